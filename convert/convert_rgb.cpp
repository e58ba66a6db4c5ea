// The conversion dispatcher and the per-target conversions between the RGB family,
// grey, 16-bit grey and CMYK.
#include "convert/internal.h"

using namespace vek;
using namespace vek::conv;


namespace {

constexpr uint32_t kRgbSources = bit(VEK_Y8) | bit(VEK_RGB15) | bit(VEK_RGB16) | bit(VEK_RGB24) |
                                 bit(VEK_BGR24) | bit(VEK_RGBX32) | bit(VEK_BGRX32) |
                                 bit(VEK_XBGR32) | bit(VEK_Y16);
// The accepted lists are deliberately irregular (XRGB32 is never a source, BGR24 is
// refused by the three 32-bit targets other than BGRX32, RGB16 by RGB15).
constexpr uint32_t kToRgb24 = kRgbSources & ~bit(VEK_RGB24);
constexpr uint32_t kToBgr24 = kRgbSources & ~bit(VEK_BGR24);
constexpr uint32_t kToBgrx32 = (kRgbSources & ~bit(VEK_BGRX32)) | bit(VEK_RGGB32);
constexpr uint32_t kToRgbx32 = kRgbSources & ~bit(VEK_RGBX32) & ~bit(VEK_BGR24);
constexpr uint32_t kToXbgr32 = kRgbSources & ~bit(VEK_XBGR32) & ~bit(VEK_BGR24);
constexpr uint32_t kToXrgb32 = kRgbSources & ~bit(VEK_BGR24) & ~bit(VEK_XBGR32);
constexpr uint32_t kToRgb15 = kRgbSources & ~bit(VEK_RGB15) & ~bit(VEK_RGB16);
constexpr uint32_t kToRgb16 = (kRgbSources & ~bit(VEK_RGB16)) | bit(VEK_RGB8);
constexpr uint32_t kToY8 = (kRgbSources & ~bit(VEK_Y8)) | bit(VEK_YUV422);
constexpr uint32_t kToY16 = bit(VEK_Y8) | bit(VEK_RGB24);
constexpr uint32_t kToCmyk32 = bit(VEK_PALETTED);

uint32_t y16_at_least_8(const ImageRecord& src, const char* name) {
  if (src.format == VEK_Y16 && src.data_width < 8)
    return report(name, VEK_ERROR_BAD_PARAMETER, "Data width must be > 7 for Y16");
  return VEK_OK;
}

uint32_t rgb_worker(const Conversion& c, uint32_t source, uint32_t destination) {
  RowParams p;
  RowKernel kernel = nullptr;
  if (const ImageRecord* src = lookup(source)) {
    if (c.sources & bit(src->format)) kernel = rgb_kernel(src->format, c.target);
    p.shift = y16_shift(src->data_width);
    p.cmap = src->cmap;
    if (kernel && src->format == VEK_PALETTED && !src->cmap)
      return report(c.worker_name, VEK_ERROR_BAD_PARAMETER, "Colourmap is NULL");
  }
  if (const ImageRecord* dst = lookup(destination)) {
    // Called directly, a worker may be handed a destination prepared for another
    // format: its strip would be sized for other pixels than the kernel writes.
    if (dst->format != c.target)
      return report(c.worker_name, VEK_ERROR_CORRUPT_IMAGE, "Corrupt image");
    p.dst_width_bits = dst->data_width;
  }
  return convert_strip(c.worker_name, source, destination, kernel, p);
}

StripSequence g_seq_rgb15, g_seq_rgb16, g_seq_rgbx32, g_seq_xbgr32, g_seq_xrgb32, g_seq_cmyk32;

}  // namespace

// One front end and one worker per target, both exported.
#define VEK_DEFINE_CONVERSION(NAME, TARGET, SOURCES, SEQUENCE, VALIDATE, CORRUPT, UNSUPPORTED) \
  extern "C" VEK_API uint32_t VEK_convert_to_##NAME##_1_strip(uint32_t source,                 \
                                                              uint32_t destination);           \
  static constexpr Conversion kConv##NAME = [] {                                                   \
    Conversion c{};                                                                            \
    c.name = "VEK_convert_to_" #NAME;                                                          \
    c.worker_name = "VEK_convert_to_" #NAME "_1_strip";                                        \
    c.target = TARGET;                                                                         \
    c.sources = SOURCES;                                                                       \
    c.sequence = SEQUENCE;                                                                     \
    c.corrupt_source = CORRUPT;                                                                \
    c.unsupported = UNSUPPORTED;                                                               \
    c.validate = VALIDATE;                                                                     \
    c.worker = VEK_convert_to_##NAME##_1_strip;                                                \
    return c;                                                                                  \
  }();                                                                                         \
  extern "C" VEK_API uint32_t VEK_convert_to_##NAME##_1_strip(uint32_t source,                 \
                                                              uint32_t destination) {          \
    return rgb_worker(kConv##NAME, source, destination);                                       \
  }                                                                                            \
  extern "C" VEK_API uint32_t VEK_convert_to_##NAME(uint32_t source, uint32_t destination,     \
                                                    uint32_t mode) {                           \
    return run_conversion(kConv##NAME, source, destination, mode & 0xFFFFu);                   \
  }


VEK_DEFINE_CONVERSION(RGB24, VEK_RGB24, kToRgb24, nullptr, nullptr, "Corrupt image", "Unsupported image format")
VEK_DEFINE_CONVERSION(BGR24, VEK_BGR24, kToBgr24, nullptr, nullptr, "Corrupt image", "Unsupported image format")
VEK_DEFINE_CONVERSION(BGRX32, VEK_BGRX32, kToBgrx32, nullptr, nullptr, "Corrupt image", "Unsupported image format")
VEK_DEFINE_CONVERSION(RGBX32, VEK_RGBX32, kToRgbx32, &g_seq_rgbx32, nullptr, "Corrupt image", "Unsupported image format")
VEK_DEFINE_CONVERSION(XBGR32, VEK_XBGR32, kToXbgr32, &g_seq_xbgr32, y16_at_least_8, "Corrupt image", "Unsupported image format")
VEK_DEFINE_CONVERSION(XRGB32, VEK_XRGB32, kToXrgb32, &g_seq_xrgb32, y16_at_least_8, "Corrupt image", "Unsupported image format")
VEK_DEFINE_CONVERSION(RGB15, VEK_RGB15, kToRgb15, &g_seq_rgb15, nullptr, "Corrupt image", "Unsupported image format")
VEK_DEFINE_CONVERSION(RGB16, VEK_RGB16, kToRgb16, &g_seq_rgb16, nullptr, "Corrupt image", "Unsupported image format")
VEK_DEFINE_CONVERSION(Y8, VEK_Y8, kToY8, nullptr, y16_at_least_8, "Corrupt images",
                      "Unsupported image format")
VEK_DEFINE_CONVERSION(Y16, VEK_Y16, kToY16, nullptr, nullptr, "Corrupt image", "Unsupported image format")
VEK_DEFINE_CONVERSION(CMYK32, VEK_CMYK32, kToCmyk32, &g_seq_cmyk32, nullptr, "Corrupt image",
                      "Only paletted input images currently supported")

extern "C" {

VEK_API uint32_t VEK_image_convert(uint32_t source, uint32_t destination, uint32_t target,
                                   uint32_t argument, uint32_t mode) {
  static const char kName[] = "VEK_image_convert";
  ImageRecord* dst = lookup(destination);
  if (!dst) return report(kName, VEK_ERROR_BAD_HANDLE, "Output image does not exist");
  // The argument is only meaningful to the bitmap conversion; it rides in the
  // destination's companion word until then.
  dst->data_companion = argument;
  if (dst->flags & VEK_FLAG_DITHER)
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Dithering is not yet supported");

  target &= 0xFFFFu;
  const ImageRecord* src = lookup(source);
  const bool yuv = src && src->format == VEK_YUV422;
  const bool lut = dst->flags & VEK_FLAG_LUT;
  uint32_t status;
  if (dst->flags & VEK_FLAG_DIB) {
#if VEK_WITH_FILES
    status = VEK_convert_to_DIB_w31(source, destination, argument, mode);
#else
    // The device-independent-bitmap conversion lives with the file family.
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Bitmap conversion is not available");
#endif
  } else if (target == 105) {
    status = VEK_paletted_to_RGB24_or_Y8(source, destination, mode);
  } else if (!yuv) {
    switch (target) {
      case VEK_Y8: status = VEK_convert_to_Y8(source, destination, mode); break;
      case VEK_PALETTED:
        status = lut ? VEK_convert_to_paletted_LUT(source, destination, mode)
                     : VEK_convert_to_paletted(source, destination, mode);
        break;
      case VEK_RGB8: status = VEK_convert_to_RGB8(source, destination, mode); break;
      case VEK_RGB15: status = VEK_convert_to_RGB15(source, destination, mode); break;
      case VEK_RGB16: status = VEK_convert_to_RGB16(source, destination, mode); break;
      case VEK_RGB24: status = VEK_convert_to_RGB24(source, destination, mode); break;
      case VEK_BGR24: status = VEK_convert_to_BGR24(source, destination, mode); break;
      case VEK_RGBX32: status = VEK_convert_to_RGBX32(source, destination, mode); break;
      case VEK_BGRX32: status = VEK_convert_to_BGRX32(source, destination, mode); break;
      case VEK_XBGR32: status = VEK_convert_to_XBGR32(source, destination, mode); break;
      case VEK_Y16: status = VEK_convert_to_Y16(source, destination, mode); break;
      case VEK_XRGB32: status = VEK_convert_to_XRGB32(source, destination, mode); break;
      case VEK_YUV422: status = VEK_convert_to_YUV422(source, destination, mode); break;
      default:
        return report(kName, VEK_ERROR_NOT_SUPPORTED,
                      "Unsupported or unrecognized output image format");
    }
  } else {
    switch (target) {
      case VEK_Y8: status = VEK_YUV422_to_Y8(source, destination, mode); break;
      case VEK_PALETTED: status = VEK_YUV422_to_paletted_LUT(source, destination, mode); break;
#define VEK_YUV_TARGET(NAME)                                                             \
  case VEK_##NAME:                                                                     \
    status = lut ? VEK_YUV422_to_##NAME##_LUT(source, destination, mode)               \
                 : VEK_YUV422_to_##NAME(source, destination, mode);                    \
    break;
      VEK_YUV_TARGET(RGB15)
      VEK_YUV_TARGET(RGB16)
      VEK_YUV_TARGET(RGB24)
      VEK_YUV_TARGET(BGR24)
      VEK_YUV_TARGET(RGBX32)
      VEK_YUV_TARGET(BGRX32)
      VEK_YUV_TARGET(XBGR32)
      VEK_YUV_TARGET(XRGB32)
#undef VEK_YUV_TARGET
      case VEK_YUV422: status = VEK_convert_to_YUV422(source, destination, mode); break;
      case VEK_Y16: status = VEK_YUV422_to_Y16(source, destination, mode); break;
      case VEK_HSI: status = VEK_YUV422_to_HSI(source, destination, mode); break;
      default:
        return report(kName, VEK_ERROR_NOT_SUPPORTED,
                      "Unsupported or unrecognized output image format");
    }
  }
  if (is_error(status)) return status;
  if (ImageRecord* d = lookup(destination)) d->flags &= ~VEK_FLAG_JPEG;
  return status;
}

VEK_API uint32_t VEK_image_is_colour(uint32_t image) {
  const ImageRecord* rec = lookup(image);
  if (!rec) return report("VEK_image_is_colour", VEK_ERROR_BAD_HANDLE);
  switch (rec->format) {
    case VEK_Y1:
    case VEK_Y8:
    case VEK_Y16: return 0;
    case VEK_PALETTED: return VEK_cmap_is_grayscale(image) == 1 ? 0 : 1;
    default: return 1;
  }
}

}  // extern "C"
