// Loading and saving whole pictures for the vek program, over the library's
// detection, readers, writers, JPEG codec and conversions.
#include <cstdio>
#include <cstring>
#include <string>

#include "tools/commands.h"
#include "vek.h"

namespace {

bool ends_with(const std::string& s, const char* suffix) {
  const size_t n = std::strlen(suffix);
  if (s.size() < n) return false;
  for (size_t i = 0; i < n; ++i)
    if (std::tolower(static_cast<unsigned char>(s[s.size() - n + i])) != suffix[i]) return false;
  return true;
}

bool is_grey(uint32_t format) { return format == VEK_Y8 || format == VEK_Y16 || format == VEK_Y1; }

}  // namespace

uint32_t load_picture(const std::string& path, uint32_t* out) {
  const uint32_t format = VEK_image_find_file_format(path.c_str());
  if (VEK_IS_ERROR(format)) return format;
  if (format == VEK_FILE_JPEG) {
    // The JPEG reader fills a JPEG image with compressed data; decoding gives pixels.
    const uint32_t jpeg = VEK_JPEG_image_create();
    if (VEK_IS_ERROR(jpeg)) return jpeg;
    VEK_image_set_infilename(jpeg, path.c_str());
    uint32_t status = VEK_JPEG_file_read(jpeg);
    const uint32_t pixels = VEK_IS_ERROR(status) ? 0 : VEK_image_create();
    // Colour streams decode straight to RGB24; grey ones always give Y8.
    if (pixels && !VEK_IS_ERROR(pixels)) VEK_image_set_parameter(pixels, VEK_PARAM_FORMAT, VEK_RGB24);
    if (!VEK_IS_ERROR(status)) status = VEK_IS_ERROR(pixels) ? pixels : VEK_JPEG_decompress(jpeg, pixels);
    VEK_image_destroy(jpeg);
    if (VEK_IS_ERROR(status)) {
      if (pixels && !VEK_IS_ERROR(pixels)) VEK_image_destroy(pixels);
      return status;
    }
    *out = pixels;
    return VEK_OK;
  }
  const uint32_t h = VEK_image_create();
  if (VEK_IS_ERROR(h)) return h;
  VEK_image_set_infilename(h, path.c_str());
  const uint32_t status = VEK_image_read(h, 0, VEK_STRIP_NEXT);
  if (VEK_IS_ERROR(status)) {
    VEK_image_destroy(h);
    return status;
  }
  *out = h;
  return VEK_OK;
}

uint32_t file_kind_for(const std::string& path, const std::string& to) {
  const std::string t = to.empty() ? path : to;
  if (t == "bmp" || ends_with(t, ".bmp")) return VEK_FILE_BMP;
  if (t == "tiff" || t == "tiff-lzw" || ends_with(t, ".tif") || ends_with(t, ".tiff")) return VEK_FILE_TIFF;
  if (t == "eps" || ends_with(t, ".eps")) return VEK_FILE_EPS;
  if (t == "raw" || ends_with(t, ".raw")) return VEK_FILE_RAW;
  if (t == "jpg" || t == "jpeg" || ends_with(t, ".jpg") || ends_with(t, ".jpeg")) return VEK_FILE_JPEG;
  return VEK_FILE_UNKNOWN;
}

// Converts `h` in place (by handle swap) to `format` when it differs.
uint32_t convert_picture(uint32_t* h, uint32_t format) {
  if (VEK_image_get_parameter(*h, VEK_PARAM_FORMAT) == format) return VEK_OK;
  return replace_with_result(h, [format](uint32_t src, uint32_t dst) {
    return format == VEK_CMYK32 ? VEK_convert_to_CMYK32(src, dst, VEK_STRIP_NEXT)
                                : VEK_image_convert(src, dst, format, 0, VEK_STRIP_NEXT);
  });
}

uint32_t save_picture(uint32_t* h, const std::string& path, uint32_t kind, bool lzw, uint32_t quality) {
  const uint32_t format = VEK_image_get_parameter(*h, VEK_PARAM_FORMAT);
  uint32_t status = VEK_OK;
  // Each writer takes a few pixel formats; everything else goes to 8-bit grey or
  // 24-bit colour first. TIFF keeps 16-bit grey.
  bool ok = true;
  switch (kind) {
    case VEK_FILE_BMP:
      ok = format == VEK_Y8 || format == VEK_PALETTED || format == VEK_RGB24 || format == VEK_BGR24;
      break;
    case VEK_FILE_TIFF: ok = format == VEK_Y8 || format == VEK_RGB24 || format == VEK_Y16; break;
    case VEK_FILE_EPS: ok = format == VEK_Y8 || format == VEK_RGB24; break;
    default: break;
  }
  if (!ok) status = convert_picture(h, is_grey(format) ? VEK_Y8 : VEK_RGB24);
  if (VEK_IS_ERROR(status)) return status;
  if (kind == VEK_FILE_JPEG) {
    const uint32_t jpeg = VEK_JPEG_image_create();
    if (VEK_IS_ERROR(jpeg)) return jpeg;
    status = quality ? VEK_JPEG_set_Quality_factor(jpeg, quality) : VEK_OK;
    if (!VEK_IS_ERROR(status)) status = VEK_JPEG_compress(*h, jpeg);
    if (!VEK_IS_ERROR(status)) {
      VEK_image_set_outfilename(jpeg, path.c_str());
      status = VEK_image_write(jpeg, 0, VEK_FILE_JPEG, VEK_STRIP_NEXT);
    }
    VEK_image_destroy(jpeg);
    return status;
  }
  VEK_image_set_outfilename(*h, path.c_str());
  VEK_image_set_flags(*h, VEK_FLAG_TIFF_LZW | VEK_FLAG_TIFF_PREDICTOR, lzw ? 1 : 0);
  return VEK_image_write(*h, 0, kind, VEK_STRIP_NEXT);
}
