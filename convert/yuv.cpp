// YUV 4:2:2 conversions: to the RGB family (direct and through the 19-bit RGB16 /
// RGB15 tables), to grey, to hue/saturation/intensity, and from RGB and grey.
#include <cmath>
#include <cstdlib>
#include <numbers>

#include "convert/internal.h"
#include "core/alloc.h"

using namespace vek;
using namespace vek::conv;

namespace vek::conv {

namespace {
uint16_t* g_hue = nullptr;
}

// Hue in degrees rotated so that grey (the near-grey square around U = V = 128,
// pinned to -60 degrees) lands on 180; generated from the formula, not stored.
const uint16_t* hue_table() {
  if (g_hue) return g_hue;
  LibraryLock lock;
  if (g_hue) return g_hue;
  auto* t = static_cast<uint16_t*>(vek::alloc(65536 * sizeof(uint16_t)));
  if (!t) return nullptr;
  constexpr double pi = std::numbers::pi;
  for (uint32_t i = 0; i < 65536; ++i) {
    const double u = double(i >> 8) - 128.0, v = double(i & 255) - 128.0;
    double a = (u >= -6 && u <= 6 && v >= -6 && v <= 6) ? -pi / 3 : std::atan2(v, u);
    if (a < 0) a += 2 * pi;
    double d = a * 180 / pi + 0.5;
    if (d < 0 || d > 359.4) d = 0;
    d -= 120;
    if (d < 0) d += 360;
    t[i] = static_cast<uint16_t>(d);
  }
  g_hue = t;
  return g_hue;
}

void release_hue_table() {
  std::free(g_hue);
  g_hue = nullptr;
}

}  // namespace vek::conv

namespace {

constexpr uint32_t kYuvOnly = bit(VEK_YUV422);
constexpr uint32_t kToYuv = bit(VEK_RGB24) | bit(VEK_BGR24) | bit(VEK_RGBX32) | bit(VEK_BGRX32) |
                            bit(VEK_XBGR32) | bit(VEK_PALETTED) | bit(VEK_Y8) | bit(VEK_Y16);

const uint16_t* table_for(uint16_t target) {
  return reinterpret_cast<const uint16_t*>(
      shared_table(target == VEK_RGB15 ? VEK_LUT_YUV422_TO_RGB15 : VEK_LUT_YUV422_TO_RGB16).data);
}

// Only Y8, Y16 and the direct BGRX32 conversion step by the images' line pitches;
// the others run through the strip as one stream of pixels, without line padding.
Layout yuv_layout(uint16_t target, bool table) {
  if (target == VEK_Y8 || target == VEK_Y16 || (target == VEK_BGRX32 && !table))
    return Layout::Pitch;
  return Layout::Contiguous;
}

// Called directly, a worker may be handed a destination prepared for another format:
// its strip would be sized for other pixels than the kernel writes.
uint32_t check_destination(const Conversion& c, uint32_t destination) {
  const ImageRecord* dst = lookup(destination);
  if (dst && dst->format != c.target)
    return report(c.worker_name, VEK_ERROR_CORRUPT_IMAGE, "Corrupt image");
  return VEK_OK;
}

uint32_t yuv_worker(const Conversion& c, bool table, uint32_t source, uint32_t destination) {
  if (uint32_t status = check_destination(c, destination); is_error(status)) return status;
  RowParams p;
  const ImageRecord* src = lookup(source);
  RowKernel kernel = src && src->format == VEK_YUV422 ? yuv_kernel(c.target, table) : nullptr;
  if (kernel && table) {
    const bool rgb16 = c.target != VEK_RGB15;
    if (!table_for(c.target)) {
      uint32_t status = generate_yuv_rgb_table(rgb16, c.worker_name);
      if (is_error(status)) return status;
    }
    p.table16 = table_for(c.target);
  }
  if (kernel && c.target == VEK_HSI) {
    p.hue = hue_table();
    if (!p.hue) return report(c.worker_name, VEK_ERROR_MEMORY);
  }
  return convert_strip(c.worker_name, source, destination, kernel, p,
                       yuv_layout(c.target, table));
}

uint32_t begin_rgb16(uint32_t) {
  return table_for(VEK_RGB16) ? VEK_OK
                              : generate_yuv_rgb_table(true, "VEK_generate_YUV422_to_RGB16_LUT");
}
uint32_t begin_rgb15(uint32_t) {
  return table_for(VEK_RGB15) ? VEK_OK
                              : generate_yuv_rgb_table(false, "VEK_generate_YUV422_to_RGB15_LUT");
}
uint32_t begin_hsi(uint32_t) {
  return hue_table() ? VEK_OK : report("VEK_YUV422_to_HSI", VEK_ERROR_MEMORY);
}

constexpr Conversion from_yuv(const char* name, const char* worker_name, uint16_t target,
                    StripSequence* seq, uint32_t (*begin)(uint32_t),
                    uint32_t (*worker)(uint32_t, uint32_t)) {
  Conversion c{};
  c.name = name;
  c.worker_name = worker_name;
  c.target = target;
  c.sources = kYuvOnly;
  c.sequence = seq;
  c.unsupported = "Not 16 bit YUV 4:2:2";
  c.odd_width = "YUV422 image must be an even width";
  c.begin = begin;
  c.worker = worker;
  return c;
}

uint32_t to_yuv_worker(const Conversion& c, uint32_t source, uint32_t destination) {
  if (uint32_t status = check_destination(c, destination); is_error(status)) return status;
  RowParams p;
  RowKernel kernel = nullptr;
  if (const ImageRecord* src = lookup(source)) {
    if (c.sources & bit(src->format)) kernel = rgb_kernel(src->format, VEK_YUV422);
    p.shift = 8;  // a Y16 source gives its high byte as luma, whatever its data width
    p.cmap = src->cmap;
    if (kernel && src->format == VEK_PALETTED && !src->cmap)
      return report(c.worker_name, VEK_ERROR_BAD_PARAMETER, "Colourmap is NULL");
  }
  return convert_strip(c.worker_name, source, destination, kernel, p);
}

}  // namespace

#define VEK_DEFINE_YUV(SUFFIX, TARGET, TABLE, SEQUENCE, BEGIN)                                  \
  extern "C" VEK_API uint32_t VEK_YUV422_to_##SUFFIX##_1_strip(uint32_t source,                 \
                                                               uint32_t destination);           \
  static constexpr Conversion kYuv##SUFFIX =                                                        \
      from_yuv("VEK_YUV422_to_" #SUFFIX, "VEK_YUV422_to_" #SUFFIX "_1_strip", TARGET, SEQUENCE, \
               BEGIN, VEK_YUV422_to_##SUFFIX##_1_strip);                                        \
  extern "C" VEK_API uint32_t VEK_YUV422_to_##SUFFIX##_1_strip(uint32_t source,                 \
                                                               uint32_t destination) {          \
    return yuv_worker(kYuv##SUFFIX, TABLE, source, destination);                                \
  }                                                                                             \
  extern "C" VEK_API uint32_t VEK_YUV422_to_##SUFFIX(uint32_t source, uint32_t destination,     \
                                                     uint32_t mode) {                           \
    return run_conversion(kYuv##SUFFIX, source, destination, mode & 0xFFFFu);                   \
  }

namespace {
StripSequence g_rgb15, g_rgb16, g_rgb24, g_bgr24, g_rgbx32, g_bgrx32, g_xbgr32, g_xrgb32, g_hsi;
StripSequence g_lut_rgb15, g_lut_rgb16, g_lut_rgb24, g_lut_bgr24, g_lut_rgbx32, g_lut_bgrx32,
    g_lut_xbgr32, g_lut_xrgb32;
}  // namespace

VEK_DEFINE_YUV(RGB15, VEK_RGB15, false, &g_rgb15, nullptr)
VEK_DEFINE_YUV(RGB16, VEK_RGB16, false, &g_rgb16, nullptr)
VEK_DEFINE_YUV(RGB24, VEK_RGB24, false, &g_rgb24, nullptr)
VEK_DEFINE_YUV(BGR24, VEK_BGR24, false, &g_bgr24, nullptr)
VEK_DEFINE_YUV(RGBX32, VEK_RGBX32, false, &g_rgbx32, nullptr)
VEK_DEFINE_YUV(BGRX32, VEK_BGRX32, false, &g_bgrx32, nullptr)
VEK_DEFINE_YUV(XBGR32, VEK_XBGR32, false, &g_xbgr32, nullptr)
VEK_DEFINE_YUV(XRGB32, VEK_XRGB32, false, &g_xrgb32, nullptr)
VEK_DEFINE_YUV(HSI, VEK_HSI, false, &g_hsi, begin_hsi)
VEK_DEFINE_YUV(Y8, VEK_Y8, false, nullptr, nullptr)
VEK_DEFINE_YUV(Y16, VEK_Y16, false, nullptr, nullptr)
VEK_DEFINE_YUV(RGB15_LUT, VEK_RGB15, true, &g_lut_rgb15, begin_rgb15)
VEK_DEFINE_YUV(RGB16_LUT, VEK_RGB16, true, &g_lut_rgb16, begin_rgb16)
VEK_DEFINE_YUV(RGB24_LUT, VEK_RGB24, true, &g_lut_rgb24, begin_rgb16)
VEK_DEFINE_YUV(BGR24_LUT, VEK_BGR24, true, &g_lut_bgr24, begin_rgb16)
VEK_DEFINE_YUV(RGBX32_LUT, VEK_RGBX32, true, &g_lut_rgbx32, begin_rgb16)
VEK_DEFINE_YUV(BGRX32_LUT, VEK_BGRX32, true, &g_lut_bgrx32, begin_rgb16)
VEK_DEFINE_YUV(XBGR32_LUT, VEK_XBGR32, true, &g_lut_xbgr32, begin_rgb16)
VEK_DEFINE_YUV(XRGB32_LUT, VEK_XRGB32, true, &g_lut_xrgb32, begin_rgb16)

static constexpr Conversion kToYuv422 = [] {
  Conversion c{};
  c.name = "VEK_convert_to_YUV422";
  c.worker_name = "VEK_convert_to_YUV422_1_strip";
  c.target = VEK_YUV422;
  c.sources = kToYuv;
  c.odd_width = "Only even width YUV422 images are supported";
  c.limit_to_height = true;
  c.worker = VEK_convert_to_YUV422_1_strip;
  return c;
}();

extern "C" {

VEK_API uint32_t VEK_convert_to_YUV422_1_strip(uint32_t source, uint32_t destination) {
  return to_yuv_worker(kToYuv422, source, destination);
}

VEK_API uint32_t VEK_convert_to_YUV422(uint32_t source, uint32_t destination, uint32_t mode) {
  return run_conversion(kToYuv422, source, destination, mode & 0xFFFFu);
}

VEK_API uint32_t VEK_generate_YUV422_to_RGB15_LUT(void) {
  return generate_yuv_rgb_table(false, "VEK_generate_YUV422_to_RGB15_LUT");
}

VEK_API uint32_t VEK_generate_YUV422_to_RGB16_LUT(void) {
  return generate_yuv_rgb_table(true, "VEK_generate_YUV422_to_RGB16_LUT");
}

}  // extern "C"
