// TIFF writer: one big-endian file, one directory right after the header, its arrays
// and resolutions behind it and the pixel data last, uncompressed or LZW-coded with
// horizontal differencing.
#include <cstdio>
#include <cstring>
#include <vector>

#include "files/common.h"
#include "files/lzw.h"
#include "files/tiff.h"

using namespace vek;
using vek::files::Block;

namespace {

constexpr const char kName[] = "VEK_write_TIFF_file";

// A stream left open by a call that wrote only part of a file (a mode other than 3
// or 4, or a strip short of the height); the next call closes it first.
FILE* g_tiff_stream = nullptr;

void close_leftover() {
  if (g_tiff_stream) std::fclose(g_tiff_stream);
  g_tiff_stream = nullptr;
}

struct Entry {
  uint16_t tag, type;
  uint32_t count, value;
};

enum : uint16_t { kShort = 3, kLong = 4, kRational = 5 };

bool writable(uint32_t f) {
  switch (f) {
    case 1: case 2: case 3: case 7: case 8: case 10: case 12: case 13: case 14: return true;
    default: return false;
  }
}

uint32_t samples_of(uint32_t f) {
  if (f == VEK_CMYK32) return 4;
  if (f == VEK_RGB24 || f == VEK_BGR24 || f == VEK_BGRX32 || f == VEK_YUV422) return 3;
  return 1;
}

bool takes_predictor(uint32_t f) {
  switch (f) {
    case 7: case 8: case 10: case 12: case 2: case 14: case 3: return true;
    default: return false;
  }
}

void put16(std::vector<uint8_t>& out, uint32_t v) {
  out.push_back(uint8_t(v >> 8));
  out.push_back(uint8_t(v));
}
void put32(std::vector<uint8_t>& out, uint32_t v) {
  put16(out, v >> 16);
  put16(out, v & 0xFFFF);
}

// Header, directory, arrays and resolutions in file order; `count_at` receives the
// file position of the StripByteCounts value, which LZW fills in afterwards.
std::vector<uint8_t> build_directory(const ImageRecord& rec, bool lzw, uint32_t& count_at) {
  const uint32_t f = rec.format;
  const uint32_t spp = samples_of(f);
  const bool pal = f == VEK_PALETTED;
  const bool colour = spp > 1;
  const bool predictor = lzw && takes_predictor(f);
  // The Predictor entry is written but not counted: with LZW the directory holds one
  // entry more than its count states. Readers of our files know to look for it.
  const uint32_t counted = (pal || colour) ? 14 : 13;
  const uint32_t written = counted + (predictor ? 1 : 0);
  const uint32_t after_dir = 8 + 2 + 12 * written + 4;
  const uint32_t array_bytes = pal ? 3 * 256 * 2 : colour ? 2 * spp : 0;
  const uint32_t xres = after_dir + array_bytes;
  const uint32_t yres = xres + 8;
  const uint32_t data = yres + 8;

  uint32_t bps;
  if (spp > 1) bps = after_dir;
  else if (f == VEK_Y16) bps = rec.data_width;
  else if (f == VEK_Y1) bps = 1;
  else bps = 8;
  uint32_t photometric = 1;
  if (f == VEK_CMYK32) photometric = 5;
  else if (colour) photometric = 2;
  else if (pal) photometric = 3;
  uint64_t bytes;
  if (f == VEK_Y1) bytes = uint64_t(rec.height) * ((uint64_t(rec.width) + 7) / 8);
  else bytes = uint64_t(rec.height) * rec.width * (f == VEK_CMYK32 ? 4 : colour ? 3 : 1);

  std::vector<Entry> e;
  e.push_back({254, kLong, 1, 0});
  e.push_back({256, kShort, 1, rec.width & 0xFFFF});
  e.push_back({257, kShort, 1, rec.height & 0xFFFF});
  e.push_back({258, kShort, spp, bps});
  e.push_back({259, kShort, 1, lzw ? 5u : 1u});
  e.push_back({262, kShort, 1, photometric});
  e.push_back({273, kLong, 1, data});
  e.push_back({277, kShort, 1, spp});
  e.push_back({278, kLong, 1, rec.height});
  if (predictor) e.push_back({317, kShort, 1, 2});
  count_at = 8 + 2 + 12 * uint32_t(e.size()) + 8;
  e.push_back({279, kLong, 1, static_cast<uint32_t>(bytes)});
  e.push_back({282, kRational, 1, xres});
  e.push_back({283, kRational, 1, yres});
  if (colour) e.push_back({284, kShort, 1, 1});
  e.push_back({296, kShort, 1, 1});
  if (pal) e.push_back({320, kShort, 3 * 256, after_dir});

  std::vector<uint8_t> out;
  out.reserve(data);
  out.push_back('M');
  out.push_back('M');
  put16(out, 42);
  put32(out, 8);
  put16(out, counted);
  for (const Entry& x : e) {
    put16(out, x.tag);
    put16(out, x.type);
    put32(out, x.count);
    // A single SHORT sits in the first half of the value field.
    if (x.type == kShort && x.count == 1) {
      put16(out, x.value);
      put16(out, 0);
    } else {
      put32(out, x.value);
    }
  }
  put32(out, 0);  // next directory
  if (pal) {
    // Reds, then greens, then blues, each 8-bit component widened by repetition.
    for (int c = 0; c < 3; ++c)
      for (uint32_t i = 0; i < 256; ++i) {
        const CmapEntry& m = rec.cmap[i];
        put16(out, (c == 0 ? m.r : c == 1 ? m.g : m.b) * 257u);
      }
  } else if (colour) {
    for (uint32_t i = 0; i < spp; ++i) put16(out, 8);
  }
  for (int i = 0; i < 2; ++i) {
    put32(out, 300);
    put32(out, 1);
  }
  return out;
}

// Row kernel of the uncompressed path: one line into file order; returns its bytes.
size_t encode_row(const ImageRecord& rec, const uint8_t* src, uint8_t* dst) {
  const size_t w = rec.width;
  switch (rec.format) {
    case VEK_Y8:
      std::memcpy(dst, src, w);
      return w;
    case VEK_RGB24:
      std::memcpy(dst, src, 3 * w);
      return 3 * w;
    case VEK_Y16:
      for (size_t x = 0; x < w; ++x) {
        uint16_t v;
        std::memcpy(&v, src + 2 * x, 2);
        dst[2 * x] = uint8_t(v >> 8);
        dst[2 * x + 1] = uint8_t(v);
      }
      return 2 * w;
    case VEK_BGR24:
    case VEK_BGRX32: {
      const size_t step = rec.format == VEK_BGR24 ? 3 : 4;
      for (size_t x = 0; x < w; ++x, src += step, dst += 3) {
        dst[0] = src[2];
        dst[1] = src[1];
        dst[2] = src[0];
      }
      return 3 * w;
    }
    case VEK_YUV422:
      files::yuv422_to_rgb_row(src, dst, w / 2, false);
      if (w & 1) {
        // An odd last pixel has a Y and a U of its own; it borrows the V of the pair
        // before it (neutral when there is none) so every row stays 3 x width bytes.
        const uint8_t* s = src + 4 * (w / 2);
        const int v = w > 1 ? s[-1] : 128;
        files::yuv_to_rgb(s[0], s[1], v, dst[3 * (w - 1)], dst[3 * (w - 1) + 1], dst[3 * (w - 1) + 2]);
      }
      return 3 * w;
    default:
      return 0;  // formats without an uncompressed path
  }
}

uint32_t write_uncompressed(const ImageRecord& rec, FILE* f) {
  Block line;
  if (!line.allocate(4 * size_t(rec.width) + 4)) return report(kName, VEK_ERROR_MEMORY);
  // 16-bit lines move on by their padding rounded down to whole words.
  const size_t stride = rec.format == VEK_Y16 ? 2 * size_t(rec.width) + (rec.skip & ~1u)
                                              : rec.bytes_per_line;
  for (size_t y = 0; y < rec.lines_per_strip; ++y) {
    const size_t n = encode_row(rec, rec.data + y * stride, line.get());
    if (n) std::fwrite(line.get(), 1, n, f);
  }
  return VEK_OK;
}

uint32_t write_lzw(ImageRecord& rec, FILE* f, uint32_t count_at) {
  const tiff::Predictor pred = tiff::predictor_for(rec.format);
  const size_t line_bytes = size_t(rec.bytes_per_line) - rec.skip;
  const size_t lines = rec.lines_per_strip;
  for (size_t y = 0; y < lines; ++y) tiff::difference_row(rec.data + y * rec.bytes_per_line, line_bytes, pred);
  LZWData* state = nullptr;
  uint32_t status = lzw_open_encode(&state, f, rec.data, lines * line_bytes);
  for (size_t y = 0; y < lines && !is_error(status); ++y) {
    if (y) lzw_set_input(state, rec.data + y * rec.bytes_per_line);
    status = lzw_encode(state, static_cast<uint32_t>(line_bytes));
  }
  uint32_t compressed = 0;
  if (state) {
    const uint32_t closed = lzw_close_encode(state, &compressed);
    if (!is_error(status)) status = closed;
  }
  // The image is handed back unchanged, also when coding failed.
  for (size_t y = 0; y < lines; ++y) tiff::accumulate_row(rec.data + y * rec.bytes_per_line, line_bytes, pred);
  if (is_error(status)) return status;
  if (std::fseek(f, long(count_at), SEEK_SET) != 0) return report(kName, VEK_ERROR_INTERNAL, "fseek failed");
  VEK_fput_ui32m(f, compressed);
  std::fseek(f, 0, SEEK_END);
  return VEK_OK;
}

}  // namespace

extern "C" {

VEK_API uint32_t VEK_write_TIFF_file(uint32_t handle, uint32_t mode) {
  uint32_t status = VEK_image_check(handle);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  ImageRecord* rec = lookup(handle);
  if (!writable(rec->format)) return report(kName, VEK_ERROR_NOT_SUPPORTED | rec->format, "Unsupported image format");
  if (rec->format == VEK_PALETTED && rec->cmap_size != 256)
    return report(kName, VEK_ERROR_NOT_SUPPORTED | (rec->cmap_size & 0xFFFFu),
                  "Unsupported palette/colourmap size");
  if (rec->format == VEK_PALETTED && !rec->cmap)
    return report(kName, VEK_ERROR_BAD_PARAMETER, "Image has no colour map");
  if (mode == VEK_STRIP_NEXT && !rec->data && rec->lines_per_strip && rec->bytes_per_line)
    return report(kName, VEK_ERROR_BAD_PARAMETER, "Image has no data");
  const bool lzw = rec->flags & VEK_FLAG_TIFF_LZW;
  uint32_t count_at = 0;
  const std::vector<uint8_t> head = build_directory(*rec, lzw, count_at);

  close_leftover();
  files::Stream f(std::fopen(rec->outfile, "wb"));
  if (!f) return report(kName, VEK_ERROR_OPEN_FAILED, "Failed to create file");
  std::setvbuf(f.get(), nullptr, _IOFBF, 16384);
  std::fwrite(head.data(), 1, head.size(), f.get());
  if (mode == VEK_STRIP_NEXT) {
    const bool partial = rec->lines_per_strip < rec->height;
    if (!partial) rec->lines_per_strip = rec->height;
    status = lzw ? write_lzw(*rec, f.get(), count_at) : write_uncompressed(*rec, f.get());
    if (is_error(status)) return status;
    if (partial) {
      g_tiff_stream = f.release();
      return VEK_OK;
    }
  } else if (mode != VEK_STRIP_END) {
    g_tiff_stream = f.release();
    return VEK_OK;
  }
  if (std::ferror(f.get())) return report(kName, VEK_ERROR_SYSTEM_CALL, "Failed to write file");
  if (!f.close()) return report(kName, VEK_ERROR_CLOSE_FAILED, "Failed to close file");
  return VEK_OK;
}

}  // extern "C"
