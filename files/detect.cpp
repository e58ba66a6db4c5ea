// Format detection from a file's first bytes, the read/write dispatch, and the raw
// pixel writer.
#include <cstdio>
#include <cstring>

#include "files/common.h"

using namespace vek;

namespace {

constexpr const char kRaw[] = "VEK_write_raw_data";
constexpr const char kRawStrip[] = "VEK_write_raw_data_1_strip";
constexpr const char kUnknownFormat[] = "Unsupported/unrecognized image format";

// One raw file is written at a time: the stream stays open between strips.
FILE* g_raw_stream = nullptr;

bool read_exact(FILE* f, void* dst, size_t n) { return std::fread(dst, 1, n, f) == n; }

bool is_tiff(FILE* f) {
  uint8_t h[8];
  if (!read_exact(f, h, 8)) return false;
  if (h[0] != 'M' && h[0] != 'I') return false;
  const bool big = h[0] == 'M';
  auto u16 = [big](const uint8_t* p) { return big ? uint32_t(p[0] << 8 | p[1]) : uint32_t(p[1] << 8 | p[0]); };
  auto u32 = [big](const uint8_t* p) {
    return big ? (uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3])
               : (uint32_t(p[3]) << 24 | uint32_t(p[2]) << 16 | uint32_t(p[1]) << 8 | p[0]);
  };
  if (u16(h + 2) != 42) return false;
  // The first directory entry must carry a known field type (1 to 11).
  if (std::fseek(f, long(u32(h + 4) & 0x7FFFFFFFu), SEEK_SET) != 0 || u32(h + 4) > 0x7FFFFFFFu)
    return false;
  uint8_t e[10];
  if (!read_exact(f, e, sizeof e)) return false;
  const uint32_t type = u16(e + 4);
  return type >= 1 && type <= 11;
}

uint32_t write_raw_strip(const ImageRecord& rec, FILE* f) {
  const size_t lines = rec.lines_per_strip;
  const size_t strip = size_t(rec.bytes_per_line) * lines;
  switch (rec.format) {
    case VEK_RGB15:
    case VEK_RGB16:
    case VEK_Y16: {
      // Words run on through the whole strip, line padding included in the walk.
      const size_t words = size_t(rec.width) * lines;
      uint8_t out[4096];
      size_t n = 0;
      for (size_t i = 0; i < words && 2 * i + 1 < strip; ++i) {
        uint16_t w;
        std::memcpy(&w, rec.data + 2 * i, 2);
        out[n++] = static_cast<uint8_t>(w & 0xFF);
        out[n++] = static_cast<uint8_t>(w >> 8);
        if (n == sizeof out) {
          std::fwrite(out, 1, n, f);
          n = 0;
        }
      }
      std::fwrite(out, 1, n, f);
      return VEK_OK;
    }
    case VEK_Y8: case VEK_PALETTED: case VEK_RGB8: case VEK_RGB24: case VEK_BGR24:
    case VEK_RGBX32: case VEK_BGRX32: case VEK_XBGR32: case VEK_YUV422: case VEK_XRGB32:
    case 100: case VEK_HSI: {
      // Each line is written whole, padding included, and the walk then moves on by the
      // padding once more. With padded lines that walk leaves the strip before the last
      // line; what would lie beyond the buffer is written as zero bytes instead.
      const size_t line = rec.bytes_per_line;
      const size_t step = line + rec.skip;
      static const uint8_t zeros[256] = {};
      for (size_t y = 0; y < lines; ++y) {
        const size_t at = y * step;
        const size_t have = at < strip ? (strip - at < line ? strip - at : line) : 0;
        if (have) std::fwrite(rec.data + at, 1, have, f);
        for (size_t left = line - have; left > 0;) {
          const size_t k = left < sizeof zeros ? left : sizeof zeros;
          std::fwrite(zeros, 1, k, f);
          left -= k;
        }
      }
      return VEK_OK;
    }
    default:
      return report(kRawStrip, VEK_ERROR_NOT_SUPPORTED | 1, "Unsupported image type");
  }
}

bool raw_writable(uint32_t format) {
  switch (format) {
    case 2: case 3: case 4: case 5: case 6: case 7: case 8: case 9: case 10: case 11:
    case 12: case 14: case 15: case 100: case 108:
      return true;
    default:
      return false;
  }
}

uint32_t close_raw() {
  FILE* f = g_raw_stream;
  g_raw_stream = nullptr;
  if (f && std::fclose(f) != 0) return report(kRaw, VEK_ERROR_CLOSE_FAILED, "Failed to close file");
  return VEK_OK;
}

}  // namespace

extern "C" {

VEK_API uint32_t VEK_image_find_file_format(const char* file_name) {
  static const char kName[] = "VEK_image_find_file_format";
  if (!file_name) return report(kName, VEK_ERROR_OPEN_FAILED, "Failed to open file");
  FILE* f = std::fopen(file_name, "rb");
  if (!f) return report(kName, VEK_ERROR_OPEN_FAILED, "Failed to open file");
  uint32_t format = VEK_FILE_UNKNOWN;
  uint8_t head[10] = {};
  if (is_tiff(f)) {
    format = VEK_FILE_TIFF;
  } else if (std::fseek(f, 0, SEEK_SET) == 0) {
    const size_t n = std::fread(head, 1, sizeof head, f);
    if (n >= 2 && head[0] == 0xFF && head[1] == 0xD8)
      format = VEK_FILE_JPEG;
    else if (n >= 4 && std::memcmp(head, "%!PS", 4) == 0)
      format = VEK_FILE_EPS;
    else if (n >= 10 && head[0] == 'B' && head[1] == 'M' && !head[6] && !head[7] && !head[8] &&
             !head[9])
      format = VEK_FILE_BMP;
  }
  if (std::fclose(f) != 0) return report(kName, VEK_ERROR_CLOSE_FAILED, "Failed to close file");
  return format;
}

VEK_API uint32_t VEK_image_read(uint32_t handle, uint32_t format, uint32_t mode) {
  static const char kName[] = "VEK_image_read";
  ImageRecord* rec = lookup(handle);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  // Detection is the only way in: any other requested format is served by no reader.
  if (format != VEK_FILE_UNKNOWN) return report(kName, VEK_ERROR_NOT_SUPPORTED, kUnknownFormat);
  const uint32_t found = VEK_image_find_file_format(rec->infile);
  if (is_error(found)) return report(kName, found, "Failed to recognise file format");
  switch (found) {
    case VEK_FILE_TIFF: return VEK_read_TIFF_file(handle, mode);
    case VEK_FILE_JPEG: return family::jpeg_file_read(handle);
    case VEK_FILE_EPS: return VEK_read_EPS_file(handle, mode);
    case VEK_FILE_BMP: return VEK_read_BMP_file(handle, mode);
    default: return report(kName, VEK_ERROR_NOT_SUPPORTED, kUnknownFormat);
  }
}

VEK_API uint32_t VEK_image_write(uint32_t handle, uint32_t, uint32_t format, uint32_t mode) {
  switch (format) {
    case VEK_FILE_TIFF: return VEK_write_TIFF_file(handle, mode);
    case VEK_FILE_JPEG: return family::jpeg_file_write(handle);
    case VEK_FILE_EPS: return VEK_write_EPS_file(handle, mode);
    case VEK_FILE_BMP: return VEK_write_BMP_file(handle);
    case VEK_FILE_RAW: return VEK_write_raw_data_file(handle, mode);
    default: return report("VEK_image_write", VEK_ERROR_NOT_SUPPORTED, kUnknownFormat);
  }
}

VEK_API uint32_t VEK_write_raw_data_file(uint32_t handle, uint32_t mode) {
  uint32_t status = VEK_image_check(handle);
  if (is_error(status)) return report(kRaw, status, "Corrupt image");
  ImageRecord* rec = lookup(handle);
  if (rec->lines_per_strip == 0) return VEK_OK;
  if (!raw_writable(rec->format)) return report(kRaw, VEK_ERROR_NOT_SUPPORTED, "Unsupported image format");
  // Every call creates the file anew, mode 4 included, so a raw file holds what the
  // last call wrote; a stream a previous call left open is closed first.
  close_raw();
  g_raw_stream = std::fopen(rec->outfile, "wb");
  if (!g_raw_stream) return report(kRaw, VEK_ERROR_OPEN_FAILED, "Failed to create file");
  if (mode == VEK_STRIP_END) return close_raw();
  if (mode != VEK_STRIP_NEXT) return VEK_OK;
  // No count of lines is kept between calls: the strip's own size against the height
  // decides whether the file is finished. A shared line count would let a partial
  // write left behind cut the strip of the next, unrelated image short.
  const bool partial = rec->lines_per_strip < rec->height;
  if (!partial) {
    rec->lines_per_strip = rec->height;
    rec->bytes_per_strip = rec->height * rec->bytes_per_line;
  }
  if (!rec->data) {
    close_raw();
    return report(kRaw, VEK_ERROR_BAD_PARAMETER, "Image has no data");
  }
  const uint32_t s = write_raw_strip(*rec, g_raw_stream);
  if (is_error(s)) {
    close_raw();
    return s;
  }
  return partial ? VEK_OK : close_raw();
}

}  // extern "C"
