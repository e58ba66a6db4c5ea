// BMP files with the 40-byte information header: 8-bit (paletted or grey) and 24-bit,
// uncompressed, read as one strip holding the whole picture top line first.
#include <cstdio>
#include <cstring>

#include "files/common.h"

using namespace vek;
using vek::files::Block;
using vek::files::Stream;

namespace {

constexpr const char kRead[] = "VEK_read_BMP_file";
constexpr const char kReadStrip[] = "VEK_read_BMP_file_1_strip";
constexpr const char kWrite[] = "VEK_write_BMP_file";
constexpr const char kWriteStrip[] = "VEK_write_BMP_file_1_strip";
constexpr const char kBuffer[] = "VEK_image_write_BMP_buffer";

constexpr uint32_t kFileHeader = 14;
constexpr uint32_t kInfoHeader = 40;
constexpr uint32_t kPaletteBytes = 256 * 4;

StripSequence g_bmp_sequence;

uint32_t le32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
uint32_t le16(const uint8_t* p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8; }

// ---- writing ----

bool eight_bit(uint32_t format) { return format == VEK_Y8 || format == VEK_PALETTED; }

// Bytes of one stored row, padded to a multiple of 4.
uint32_t row_size(const ImageRecord& rec) {
  const uint64_t raw = eight_bit(rec.format) ? uint64_t(rec.width) : 3ull * rec.width;
  return static_cast<uint32_t>((raw + 3) & ~3ull);
}

// Header and palette, in file order, into `out` (54 or 1078 bytes).
size_t build_header(const ImageRecord& rec, uint8_t* out) {
  const bool pal = eight_bit(rec.format);
  const uint32_t offset = pal ? kFileHeader + kInfoHeader + kPaletteBytes : kFileHeader + kInfoHeader;
  const uint32_t image = static_cast<uint32_t>(uint64_t(rec.height) * row_size(rec));
  std::memset(out, 0, offset);
  out[0] = 'B';
  out[1] = 'M';
  VEK_mput_ui32i(out + 2, image + offset);
  VEK_mput_ui32i(out + 10, offset);
  VEK_mput_ui32i(out + 14, kInfoHeader);
  VEK_mput_ui32i(out + 18, rec.width);
  VEK_mput_ui32i(out + 22, rec.height);
  VEK_mput_ui16i(out + 26, 1);
  VEK_mput_ui16i(out + 28, pal ? 8 : 24);
  VEK_mput_ui32i(out + 34, image);
  if (pal) {
    for (uint32_t i = 0; i < 256; ++i) {
      const CmapEntry& e = rec.cmap[i];
      uint8_t* q = out + kFileHeader + kInfoHeader + 4 * i;
      q[0] = e.b;
      q[1] = e.g;
      q[2] = e.r;
      q[3] = 0;
    }
  }
  return offset;
}

// Padding after one stored row. 8-bit and RGB formats pad to the row size; BGR24 and
// YUV 4:2:2 keep the rule of padding 3 x width as if it were `depth`-bit pixels, so
// their rows match the header's row size only when 3 x width is a multiple of 4.
uint32_t row_padding(const ImageRecord& rec, uint32_t written) {
  switch (rec.format) {
    case VEK_Y8:
    case VEK_PALETTED: return VEK_image_calc_skip_bytes(rec.width, rec.depth, 4);
    case VEK_BGR24:
    case VEK_YUV422: return VEK_image_calc_skip_bytes(3 * rec.width, rec.depth, 4);
    default: return row_size(rec) - written;
  }
}

// Row kernel: one image line into its stored form (blue, green, red for colour);
// returns the bytes written before padding.
size_t encode_row(const ImageRecord& rec, const uint8_t* src, uint8_t* dst) {
  const size_t w = rec.width;
  switch (rec.format) {
    case VEK_Y8:
    case VEK_PALETTED:
      std::memcpy(dst, src, w);
      return w;
    case VEK_RGB24:
      for (size_t x = 0; x < w; ++x, src += 3, dst += 3) {
        dst[0] = src[2];
        dst[1] = src[1];
        dst[2] = src[0];
      }
      return 3 * w;
    case VEK_BGRX32:
      for (size_t x = 0; x < w; ++x, src += 4, dst += 3) std::memcpy(dst, src, 3);
      return 3 * w;
    case VEK_BGR24:
      std::memcpy(dst, src, rec.bytes_per_line);
      return rec.bytes_per_line;
    case VEK_YUV422:
      files::yuv422_to_rgb_row(src, dst, w / 2, true);
      return 6 * (w / 2);
    default:
      return 0;
  }
}

// Widest stored row any format produces, padding included.
size_t row_capacity(const ImageRecord& rec) {
  return size_t(rec.bytes_per_line) + 3ull * rec.width + 8;
}

uint32_t check_writable(const char* name, uint32_t handle, bool memory, ImageRecord*& rec) {
  uint32_t status = VEK_image_check(handle);
  if (is_error(status)) return report(name, status, "Corrupt image");
  rec = lookup(handle);
  const uint32_t f = rec->format;
  const bool ok = memory ? (f == VEK_Y8 || f == VEK_PALETTED || f == VEK_RGB24)
                         : (f == VEK_Y8 || f == VEK_PALETTED || f == VEK_RGB24 || f == VEK_BGR24 ||
                            f == VEK_BGRX32 || f == VEK_YUV422);
  if (!ok) return report(name, VEK_ERROR_NOT_SUPPORTED | f, "Unsupported image format");
  if (!rec->data && rec->height && rec->width)
    return report(name, VEK_ERROR_BAD_PARAMETER, "Image has no data");
  if (rec->lines_per_strip < rec->height)
    return report(name, VEK_ERROR_BAD_PARAMETER, "Image is not one strip");
  if (eight_bit(f) && !rec->cmap) return report(name, VEK_ERROR_BAD_PARAMETER, "Image has no colour map");
  if (f == VEK_Y8) family::cmap_set_type(handle, 2);
  return VEK_OK;
}

// ---- reading ----

struct BmpHeader {
  uint32_t data_offset = 0;
  uint32_t header_size = 0;
  uint32_t width = 0;
  uint32_t height = 0;
  bool top_down = false;
  uint32_t bits = 0;
  uint32_t palette_entries = 0;
  uint64_t row = 0;
};

uint32_t read_header(FILE* f, BmpHeader& h) {
  uint8_t b[54];
  const size_t got = std::fread(b, 1, sizeof b, f);
  if (got < 30) return report(kRead, VEK_ERROR_CORRUPT_IMAGE, "Invalid BMP header");
  h.data_offset = le32(b + 10);
  h.header_size = le32(b + 14);
  h.width = le32(b + 18);
  const auto height = static_cast<int32_t>(le32(b + 22));
  // A negative height marks rows stored top line first.
  h.top_down = height < 0;
  h.height = h.top_down ? 0u - static_cast<uint32_t>(height) : static_cast<uint32_t>(height);
  h.bits = le16(b + 28);
  if (h.bits != 8 && h.bits != 24) return report(kRead, VEK_ERROR_NOT_SUPPORTED, "Unsupported image depth");
  const uint32_t compression = got >= 34 ? le16(b + 30) : 0;
  if (compression == 1 || compression == 2)
    return report(kRead, VEK_ERROR_NOT_SUPPORTED, "Compressed images not supported");
  if (compression >= 3) return report(kRead, VEK_ERROR_NOT_SUPPORTED, "Unrecognized compression type");
  if (got < sizeof b || h.header_size < kInfoHeader || h.header_size > 0x10000u)
    return report(kRead, VEK_ERROR_CORRUPT_IMAGE, "Invalid BMP header");
  if (h.width == 0 || h.width > 0x7FFFFFFFu || h.height > 0x7FFFFFFFu)
    return report(kRead, VEK_ERROR_CORRUPT_IMAGE, "Invalid BMP image size");
  h.row = ((h.bits == 8 ? uint64_t(h.width) : 3ull * h.width) + 3) & ~3ull;
  if (h.bits == 8) {
    const uint32_t used = le32(b + 46);
    h.palette_entries = used == 0 || used > 256 ? 256 : used;
  }
  return VEK_OK;
}

// The palette follows the information header, whatever its size; only as many
// entries as stored are read, the rest of the map stays black.
uint32_t read_palette(FILE* f, const BmpHeader& h, ImageRecord& rec) {
  uint8_t pal[kPaletteBytes] = {};
  const uint64_t at = uint64_t(kFileHeader) + h.header_size;
  uint32_t entries = h.palette_entries;
  if (h.data_offset > at && (h.data_offset - at) / 4 < entries) entries = uint32_t((h.data_offset - at) / 4);
  if (std::fseek(f, long(at), SEEK_SET) != 0) return report(kRead, VEK_ERROR_INTERNAL, "fseek failed");
  if (std::fread(pal, 4, entries, f) != entries)
    return report(kRead, VEK_ERROR_CORRUPT_IMAGE, "Palette extends beyond end of file");
  if (!rec.cmap) return report(kRead, VEK_ERROR_BAD_PARAMETER, "Image has no colour map");
  for (uint32_t i = 0; i < 256; ++i) rec.cmap[i] = CmapEntry{pal[4 * i + 2], pal[4 * i + 1], pal[4 * i], 0};
  return VEK_OK;
}

uint32_t read_strip(FILE* f, const BmpHeader& h, ImageRecord& rec) {
  if (rec.format != VEK_PALETTED && rec.format != VEK_RGB24)
    return report(kReadStrip, VEK_ERROR_NOT_SUPPORTED, "Unsupported image format");
  const size_t lines = rec.lines_per_strip;
  const size_t bpl = rec.bytes_per_line;
  const size_t row = static_cast<size_t>(h.row);
  Block scratch;
  if (!scratch.allocate(row > bpl ? row : bpl))
    return report(kReadStrip, VEK_ERROR_MEMORY | (rec.bytes_per_line & 0xFFFFu));
  // The picture is read as stored and then turned upside down in place, so that
  // line 0 of the buffer is the top line.
  const uint64_t first = uint64_t(h.data_offset) + uint64_t(rec.height - lines) * h.row;
  if (first > 0x7FFFFFFFull || std::fseek(f, long(first), SEEK_SET) != 0)
    return report(kReadStrip, VEK_ERROR_INTERNAL, "fseek failed");
  for (size_t y = 0; y < lines; ++y) {
    if (std::fread(scratch.get(), 1, row, f) != row)
      return report(kReadStrip, VEK_ERROR_CORRUPT_IMAGE, "Image data extends beyond end of file");
    uint8_t* dst = rec.data + y * bpl;
    if (h.bits == 8) {
      std::memcpy(dst, scratch.get(), rec.width);
    } else {
      const uint8_t* s = scratch.get();
      for (size_t x = 0; x < rec.width; ++x, s += 3, dst += 3) {
        dst[0] = s[2];
        dst[1] = s[1];
        dst[2] = s[0];
      }
    }
  }
  if (!h.top_down) {
    for (size_t i = 0; i < lines / 2; ++i) {
      uint8_t* a = rec.data + i * bpl;
      uint8_t* b = rec.data + (lines - 1 - i) * bpl;
      std::memcpy(scratch.get(), a, bpl);
      std::memcpy(a, b, bpl);
      std::memcpy(b, scratch.get(), bpl);
    }
  }
  return VEK_OK;
}

}  // namespace

extern "C" {

VEK_API uint32_t VEK_read_BMP_file(uint32_t handle, uint32_t mode) {
  ImageRecord* rec = lookup(handle);
  if (!rec) return report(kRead, VEK_ERROR_BAD_HANDLE);
  Stream f(std::fopen(rec->infile, "rb"));
  if (!f) return report(kRead, VEK_ERROR_OPEN_FAILED, "Failed to open file");
  BmpHeader h;
  uint32_t status = read_header(f.get(), h);
  if (is_error(status)) return status;
  if (h.bits == 8) {
    status = read_palette(f.get(), h, *rec);
    if (is_error(status)) return status;
  }
  VEK_image_set_parameter(handle, VEK_PARAM_FORMAT, h.bits == 8 ? VEK_PALETTED : VEK_RGB24);
  if (h.bits == 8) rec->cmap_size = 256;
  rec->width = h.width;
  rec->height = h.height;
  rec->lines_per_strip = h.height;
  status = VEK_image_check(handle);
  if (is_error(status)) return report(kRead, status, "VEK_image_check failed");
  if (mode == VEK_STRIP_NEXT && h.height == 0) mode = 0;  // nothing to read
  // Modes other than 3 stop after the header; the stream is not kept, as no later
  // call could continue from it.
  status = run_strip(
      g_bmp_sequence, mode, *rec, [] { return VEK_OK; },
      [&](const StripSequence::Strip&) -> uint32_t {
        // Every stored row must lie inside the file before anything is allocated for
        // it; the header-only modes do not need the rows and so do not look.
        if (std::fseek(f.get(), 0, SEEK_END) != 0) return report(kReadStrip, VEK_ERROR_INTERNAL, "fseek failed");
        const long file_size = std::ftell(f.get());
        if (file_size < 0 || uint64_t(h.data_offset) + h.row * h.height > uint64_t(file_size))
          return report(kRead, VEK_ERROR_CORRUPT_IMAGE, "Image data extends beyond end of file");
        VEK_image_free_data(handle);
        uint32_t s = VEK_image_malloc_a_strip(handle);
        if (is_error(s)) return s;
        return read_strip(f.get(), h, *rec);
      });
  if (is_error(status)) return status;
  if (!f.close()) return report(kRead, VEK_ERROR_CLOSE_FAILED, "Failed to close file");
  return VEK_OK;
}

VEK_API uint32_t VEK_write_BMP_file(uint32_t handle) {
  ImageRecord* rec = nullptr;
  uint32_t status = check_writable(kWrite, handle, false, rec);
  if (is_error(status)) return status;
  Block row;
  if (!row.allocate(row_capacity(*rec))) return report(kWrite, VEK_ERROR_MEMORY);
  Stream f(std::fopen(rec->outfile, "wb"));
  if (!f) return report(kWrite, VEK_ERROR_OPEN_FAILED, "Failed to create file");
  std::setvbuf(f.get(), nullptr, _IOFBF, 16384);
  uint8_t header[kFileHeader + kInfoHeader + kPaletteBytes];
  const size_t offset = build_header(*rec, header);
  std::fwrite(header, 1, offset, f.get());
  if (std::fseek(f.get(), long(offset), SEEK_SET) != 0)
    return report(kWriteStrip, VEK_ERROR_INTERNAL, "fseek failed");
  for (uint32_t y = rec->height; y-- > 0;) {
    const size_t n = encode_row(*rec, rec->data + size_t(y) * rec->bytes_per_line, row.get());
    const size_t pad = row_padding(*rec, static_cast<uint32_t>(n));
    std::memset(row.get() + n, 0, pad);
    std::fwrite(row.get(), 1, n + pad, f.get());
  }
  if (std::ferror(f.get())) return report(kWrite, VEK_ERROR_SYSTEM_CALL, "Failed to write file");
  if (!f.close()) return report(kWrite, VEK_ERROR_CLOSE_FAILED, "Failed to close file");
  return VEK_OK;
}

VEK_API uint32_t VEK_image_write_BMP_buffer(uint32_t handle, void* buffer, uint32_t* size_out) {
  ImageRecord* rec = nullptr;
  uint32_t status = check_writable(kBuffer, handle, true, rec);
  if (is_error(status)) return status;
  const bool pal = eight_bit(rec->format);
  const uint64_t total = (pal ? kFileHeader + kInfoHeader + kPaletteBytes : kFileHeader + kInfoHeader) +
                         uint64_t(rec->height) * row_size(*rec);
  if (total > 0xFFFFFFFFull) return report(kBuffer, VEK_ERROR_BAD_PARAMETER, "Image too large");
  const uint32_t capacity = size_out ? *size_out : 0;
  if (size_out) *size_out = static_cast<uint32_t>(total);
  if (!buffer) return VEK_OK;
  if (capacity != 0 && capacity < total) return report(kBuffer, VEK_ERROR_BAD_PARAMETER, "Buffer too small");
  auto* out = static_cast<uint8_t*>(buffer);
  out += build_header(*rec, out);
  const uint32_t row = row_size(*rec);
  for (uint32_t y = rec->height; y-- > 0; out += row) {
    const size_t n = encode_row(*rec, rec->data + size_t(y) * rec->bytes_per_line, out);
    std::memset(out + n, 0, row - n);
  }
  return VEK_OK;
}

VEK_API uint32_t VEK_convert_to_DIB_w31(uint32_t, uint32_t, uint32_t, uint32_t) {
  return report("VEK_convert_to_DIB_w31", VEK_ERROR_NOT_SUPPORTED,
                "Device-independent bitmaps for display are not supported on this platform");
}

}  // extern "C"
