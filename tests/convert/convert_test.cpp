// RGB-family and grey conversions checked byte for byte against the references of
// convert_ref.h over random images of several widths, paddings and strips, plus the
// strip protocol and the dispatcher's routes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "convert_ref.h"

using namespace convref;
using vektest::make_image;

namespace {

// Each RGB-family front end with its accepted sources, as the library documents them;
// the stateful ones keep a line count and trim the last strip.
struct Target {
  int format;
  Front fn;
  const char* name;
  bool stateful;
  std::vector<int> sources;
};
#define VEK_T(F, STATEFUL, ...) {VEK_##F, VEK_convert_to_##F, "VEK_convert_to_" #F, STATEFUL, {__VA_ARGS__}}
const Target kTargets[] = {
    VEK_T(RGB24, false, 2, 5, 6, 8, 9, 10, 11, 14),      VEK_T(BGR24, false, 2, 5, 6, 7, 9, 10, 11, 14),
    VEK_T(BGRX32, false, 2, 5, 6, 7, 8, 9, 11, 14, 16),  VEK_T(RGBX32, true, 2, 5, 6, 7, 10, 11, 14),
    VEK_T(XBGR32, true, 2, 5, 6, 7, 9, 10, 14),          VEK_T(XRGB32, true, 2, 5, 6, 7, 9, 10, 14),
    VEK_T(RGB15, true, 2, 7, 8, 9, 10, 11, 14),          VEK_T(RGB16, true, 2, 4, 5, 7, 8, 9, 10, 11, 14),
    VEK_T(Y8, false, 5, 6, 7, 8, 9, 10, 11, 12, 14),
};
#undef VEK_T

// Every accepted source against the formulas; every other one refused under the
// front end's own name.
TEST(ConvertRgb, EveryAcceptedPairMatchesTheFormulasOthersAreRefused) {
  Session rec;
  for (const Target& t : kTargets) {
    const int target = t.format;
    for (int source = 2; source <= 16; ++source) {
      if (source == target) continue;
      if (std::find(t.sources.begin(), t.sources.end(), source) == t.sources.end()) {
        const uint32_t src = make_image(source, 4, 2), dst = VEK_image_create();
        rec.clear();
        expect_refused(rec, t.fn(src, dst, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED, t.name, "Unsupported image format");
        VEK_image_destroy(src);
        VEK_image_destroy(dst);
        continue;
      }
      for (uint32_t width : {1u, 2u, 5u, 8u}) {
        SCOPED_TRACE(std::string(t.name) + " from " + std::to_string(source) + " width " + std::to_string(width));
        const uint32_t height = 7, strip = 3;
        const uint32_t src = make_image(source, width, height, strip, 4), dst = VEK_image_create();
        const int dw = source == VEK_Y16 ? int(8 + width % 9) : 8;  // 9, 10, 13, 16
        if (source == VEK_Y16) VEK_image_set_parameter(src, VEK_PARAM_DATA_WIDTH, uint32_t(dw));
        const int sb = bytes_of(source), db = bytes_of(target);
        for (uint32_t done = 0, s = 0; done < height; ++s) {
          vektest::fill_random(src, width * 31 + uint32_t(source) + s);
          ASSERT_EQ(t.fn(src, dst, VEK_STRIP_NEXT), 0u);
          const uint32_t lines = param(src, VEK_PARAM_STRIP_LINES);
          ASSERT_EQ(param(dst, VEK_PARAM_STRIP_LINES), lines);
          for (uint32_t y = 0; y < lines; ++y)
            for (uint32_t x = 0; x < width; ++x) {
              const uint8_t* in = data(src) + y * pitch(src);
              const auto want = source == VEK_YUV422 ? std::vector<uint8_t>{in[2 * x]}
                                                     : encode(target, decode(source, in + x * sb, dw));
              const uint8_t* out = data(dst) + y * pitch(dst) + x * db;
              ASSERT_EQ(std::vector<uint8_t>(out, out + want.size()), want) << y << "," << x;
            }
          done += t.stateful ? lines : height;
        }
        EXPECT_EQ(param(dst, VEK_PARAM_FORMAT), uint32_t(target));
        if (t.stateful) {
          EXPECT_EQ(param(src, VEK_PARAM_STRIP_LINES), height % strip);  // the last strip was trimmed
          EXPECT_EQ(t.fn(src, dst, VEK_STRIP_END), 0u);
        }
        VEK_image_destroy(src);
        VEK_image_destroy(dst);
      }
    }
  }
}

TEST(ConvertRgb, SixteenBitGreyTarget) {
  Session rec;
  // Y8 -> Y16 shifts by the destination's data width (unset: 16).
  for (uint32_t dw : {0u, 12u, 16u}) {
    const uint32_t src = make_image(VEK_Y8, 5, 3), dst = VEK_image_create();
    vektest::fill_random(src, dw);
    VEK_image_set_parameter(dst, VEK_PARAM_DATA_WIDTH, dw);
    ASSERT_EQ(VEK_convert_to_Y16(src, dst, VEK_STRIP_NEXT), 0u);
    const uint32_t eff = dw ? dw : 16;
    EXPECT_EQ(param(dst, VEK_PARAM_DATA_WIDTH), eff);
    for (uint32_t y = 0; y < 3; ++y)
      for (uint32_t x = 0; x < 5; ++x)
        EXPECT_EQ(w16(data(dst) + y * pitch(dst) + 2 * x), data(src)[y * pitch(src) + x] << (eff - 8));
  }
  // RGB24 -> Y16 keeps the whole weighted sum; white is 65280.
  const uint32_t rgb = make_image(VEK_RGB24, 3, 2), dst = VEK_image_create();
  vektest::fill_random(rgb, 5);
  data(rgb)[0] = data(rgb)[1] = data(rgb)[2] = 255;
  ASSERT_EQ(VEK_convert_to_Y16(rgb, dst, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(w16(data(dst)), 65280);
  for (uint32_t x = 0; x < 3; ++x) {
    const uint8_t* p = data(rgb) + 3 * x;
    EXPECT_EQ(w16(data(dst) + 2 * x), 77 * p[0] + 150 * p[1] + 29 * p[2]);
  }
  // A parameters-only call gives an unset destination data width 8.
  const uint32_t prep = VEK_image_create();
  ASSERT_EQ(VEK_convert_to_Y16(rgb, prep, 0), 0u);
  EXPECT_EQ(param(prep, VEK_PARAM_DATA_WIDTH), 8u);
  EXPECT_EQ(rec.count(), 0u);
}

TEST(ConvertRgb, CmykFromPalettedComplementsTheMap) {
  Session rec;
  // CMYK from a paletted image: complements of the map entries, K = 0.
  const uint32_t pal = make_image(VEK_PALETTED, 3, 2), cmyk = VEK_image_create();
  VEK_cmap_set_type(pal, 1);
  for (uint32_t y = 0; y < 2; ++y) std::memcpy(data(pal) + y * pitch(pal), "\x0C\x0F\x09", 3);
  ASSERT_EQ(VEK_convert_to_CMYK32(pal, cmyk, VEK_STRIP_NEXT), 0u);
  const uint8_t want[] = {0, 255, 255, 0, 0, 0, 0, 0, 255, 255, 0, 0};
  for (uint32_t y = 0; y < 2; ++y) EXPECT_EQ(std::memcmp(data(cmyk) + y * pitch(cmyk), want, 12), 0);
  EXPECT_EQ(rec.count(), 0u);
}

TEST(ConvertProtocol, ParametersOnlyAndEarlyEnd) {
  Session rec;
  const uint32_t src = make_image(VEK_RGB24, 6, 4), prep = VEK_image_create();
  // A parameters-only call on a stateful conversion leaves the sequence idle.
  ASSERT_EQ(VEK_convert_to_RGB15(src, prep, 0), 0u);
  EXPECT_EQ(param(prep, VEK_PARAM_FORMAT), uint32_t(VEK_RGB15));
  EXPECT_EQ(VEK_image_get_ptr(prep, VEK_PTR_DATA), nullptr);
  ASSERT_EQ(VEK_convert_to_RGB15(src, prep, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(src, VEK_PARAM_STRIP_LINES), 4u);
  // Mode 4 ends a sequence early: the next strip starts counting from 0 again.
  VEK_image_set_parameter(src, VEK_PARAM_HEIGHT, 10);
  ASSERT_EQ(VEK_convert_to_RGBX32(src, prep, VEK_STRIP_NEXT), 0u);
  ASSERT_EQ(VEK_convert_to_RGBX32(src, prep, VEK_STRIP_END), 0u);
  for (uint32_t want : {4u, 4u, 2u}) {
    ASSERT_EQ(VEK_convert_to_RGBX32(src, prep, VEK_STRIP_NEXT), 0u);
    EXPECT_EQ(param(src, VEK_PARAM_STRIP_LINES), want);
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(ConvertDispatch, RoutesByFormatAndFlags) {
  Session rec;
  const uint32_t rgb = make_image(VEK_RGB24, 4, 2), yuv = make_image(VEK_YUV422, 4, 2), dst = VEK_image_create();
  vektest::fill_random(rgb, 3);
  vektest::fill_random(yuv, 4);
  // Unknown targets, and targets a YUV source has no route to.
  const std::pair<uint32_t, uint32_t> unknown[] = {{rgb, 13},  {rgb, 108}, {rgb, 0}, {rgb, 200},
                                                   {yuv, VEK_RGB8}, {yuv, VEK_CMYK32}, {yuv, 1}};
  for (auto [src, target] : unknown) {
    expect_refused(rec, VEK_image_convert(src, dst, target, 0, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED,
                   "VEK_image_convert", "Unsupported or unrecognized output image format");
  }
  VEK_image_set_flags(dst, VEK_FLAG_DITHER, 1);
  expect_refused(rec, VEK_image_convert(rgb, dst, VEK_BGR24, 0, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED,
                 "VEK_image_convert", "Dithering is not yet supported");
  VEK_image_set_flags(dst, VEK_FLAG_DITHER, 0);
  rec.clear();
  // Routes by source, target and the destination's LUT flag, checked by the format
  // they give and one pixel each (the formulas are checked elsewhere); the JPEG flag
  // of the destination is cleared by every conversion.
  const uint32_t white = make_image(VEK_YUV422, 2, 1), grey_pal = make_image(VEK_PALETTED, 4, 2),
                 colour_pal = make_image(VEK_PALETTED, 4, 2), y8 = make_image(VEK_Y8, 4, 2);
  std::memcpy(data(white), "\xFF\x80\xFF\x80", 4);
  VEK_cmap_set_type(grey_pal, 2);
  VEK_cmap_set_type(colour_pal, 3);
  VEK_cmap_set_type(y8, 1);
  vektest::fill_random(colour_pal, 2);
  vektest::fill_random(grey_pal, 1);
  const uint32_t e = VEK_cmap_get_RGB_colour(colour_pal, data(colour_pal)[0]);
  const struct {
    uint32_t src, target, lut;
    int format;
    std::vector<int> first;  // the destination's first bytes
  } routes[] = {
      {rgb, VEK_BGR24, 0, VEK_BGR24, {data(rgb)[2], data(rgb)[1], data(rgb)[0]}},
      {white, VEK_RGB24, 0, VEK_RGB24, {255, 255, 255}},  // direct
      {white, VEK_RGB24, 1, VEK_RGB24, {255, 255, 248}},  // table-driven
      {white, VEK_HSI, 0, VEK_HSI, {}},
      {yuv, VEK_PALETTED, 0, VEK_PALETTED, {}},  // always table-driven
      {yuv, VEK_YUV422, 0, VEK_YUV422, ints(data(yuv), 4)},
      {yuv, VEK_Y16, 0, VEK_Y16, {0, data(yuv)[0]}},
      {grey_pal, VEK_PALETTED_TO_RGB, 0, VEK_Y8, {data(grey_pal)[0]}},
      {colour_pal, VEK_PALETTED_TO_RGB, 0, VEK_RGB24, {int(e >> 16), int((e >> 8) & 255), int(e & 255)}},
      {y8, VEK_PALETTED, 1, VEK_PALETTED, {}},
      {y8, VEK_RGB8, 0, VEK_RGB8, {}},
  };
  for (const auto& r : routes) {
    const uint32_t out = VEK_image_create();
    VEK_image_set_flags(out, VEK_FLAG_LUT, r.lut);
    VEK_image_set_flags(out, VEK_FLAG_JPEG, 1);
    rec.clear();
    ASSERT_EQ(VEK_image_convert(r.src, out, r.target, 0, VEK_STRIP_NEXT), 0u) << r.target << " " << rec.last().message;
    EXPECT_EQ(param(out, VEK_PARAM_FORMAT), uint32_t(r.format)) << r.target;
    EXPECT_EQ(VEK_image_get_flags(out, VEK_FLAG_JPEG), 0u);
    EXPECT_EQ(ints(data(out), r.first.size()), r.first) << r.target << " from " << param(r.src, VEK_PARAM_FORMAT);
  }
  // Without the LUT flag, paletted from grey needs a generated palette.
  rec.clear();
  expect_refused(rec, VEK_image_convert(y8, dst, VEK_PALETTED, 0, VEK_STRIP_NEXT), VEK_ERROR_BAD_STATE,
                 "VEK_convert_to_paletted", "VEK_cmap_generate must be called first");
}

}  // namespace
