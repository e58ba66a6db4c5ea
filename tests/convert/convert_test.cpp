// Pixel-format conversions checked byte for byte against references written here
// from the stated formulas, over random images of several widths, paddings and strips.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <vector>

#include "support/recorder.h"
#include "vek.h"

using vektest::ErrorRecorder;
using vektest::make_image;

namespace {

using Front = uint32_t (*)(uint32_t, uint32_t, uint32_t);

struct C {
  int r, g, b;
};

int bytes_of(int f) {
  switch (f) {
    case VEK_Y8: case VEK_PALETTED: case VEK_RGB8: case VEK_RGGB32: return 1;
    case VEK_RGB15: case VEK_RGB16: case VEK_YUV422: case VEK_Y16: return 2;
    case VEK_RGB24: case VEK_BGR24: return 3;
    default: return 4;
  }
}

int w16(const uint8_t* p) { return p[0] | p[1] << 8; }

C decode(int f, const uint8_t* p, int data_width) {
  switch (f) {
    case VEK_Y8: case VEK_RGGB32: return {p[0], p[0], p[0]};
    case VEK_RGB15: { int w = w16(p); return {(w >> 7) & 255, (w >> 2) & 255, (w << 3) & 255}; }
    case VEK_RGB16: { int w = w16(p); return {(w >> 8) & 255, (w >> 3) & 255, (w << 3) & 255}; }
    case VEK_RGB8: return {p[0] & 0xE0, (p[0] & 0x1C) << 3, (p[0] & 3) << 6};
    case VEK_RGB24: case VEK_RGBX32: return {p[0], p[1], p[2]};
    case VEK_BGR24: case VEK_BGRX32: return {p[2], p[1], p[0]};
    case VEK_XBGR32: return {p[3], p[2], p[1]};
    case VEK_Y16: { int v = (w16(p) >> (data_width - 8)) & 255; return {v, v, v}; }
    default: ADD_FAILURE() << "no decoder for " << f; return {0, 0, 0};
  }
}

std::vector<uint8_t> encode(int f, C c) {
  auto u = [](int v) { return uint8_t(v); };
  switch (f) {
    case VEK_Y8: return {u((77 * c.r + 150 * c.g + 29 * c.b) >> 8)};
    case VEK_RGB15: { int w = (c.r & 0xF8) << 7 | (c.g & 0xF8) << 2 | c.b >> 3; return {u(w), u(w >> 8)}; }
    case VEK_RGB16: { int w = (c.r & 0xF8) << 8 | (c.g & 0xFC) << 3 | c.b >> 3; return {u(w), u(w >> 8)}; }
    case VEK_RGB24: return {u(c.r), u(c.g), u(c.b)};
    case VEK_BGR24: return {u(c.b), u(c.g), u(c.r)};
    case VEK_RGBX32: return {u(c.r), u(c.g), u(c.b), 0};
    case VEK_BGRX32: return {u(c.b), u(c.g), u(c.r), 0};
    case VEK_XBGR32: return {0, u(c.b), u(c.g), u(c.r)};
    case VEK_XRGB32: return {0, u(c.r), u(c.g), u(c.b)};
    default: ADD_FAILURE() << "no encoder for " << f; return {};
  }
}

uint8_t* data(uint32_t h) { return static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA)); }
uint32_t param(uint32_t h, uint32_t id) { return VEK_image_get_parameter(h, id); }

// Accepted sources of each RGB-family target, as the library documents them.
const std::map<int, std::vector<int>>& accepted() {
  static const std::map<int, std::vector<int>> m = {
      {VEK_RGB24, {2, 5, 6, 8, 9, 10, 11, 14}},
      {VEK_BGR24, {2, 5, 6, 7, 9, 10, 11, 14}},
      {VEK_BGRX32, {2, 5, 6, 7, 8, 9, 11, 14, 16}},
      {VEK_RGBX32, {2, 5, 6, 7, 10, 11, 14}},
      {VEK_XBGR32, {2, 5, 6, 7, 9, 10, 14}},
      {VEK_XRGB32, {2, 5, 6, 7, 9, 10, 14}},
      {VEK_RGB15, {2, 7, 8, 9, 10, 11, 14}},
      {VEK_RGB16, {2, 4, 5, 7, 8, 9, 10, 11, 14}},
      {VEK_Y8, {5, 6, 7, 8, 9, 10, 11, 12, 14}},
  };
  return m;
}

struct Target {
  Front fn;
  const char* name;
  bool stateful;
};
const std::map<int, Target>& fronts() {
  static const std::map<int, Target> m = {
      {VEK_RGB24, {VEK_convert_to_RGB24, "VEK_convert_to_RGB24", false}},
      {VEK_BGR24, {VEK_convert_to_BGR24, "VEK_convert_to_BGR24", false}},
      {VEK_BGRX32, {VEK_convert_to_BGRX32, "VEK_convert_to_BGRX32", false}},
      {VEK_RGBX32, {VEK_convert_to_RGBX32, "VEK_convert_to_RGBX32", true}},
      {VEK_XBGR32, {VEK_convert_to_XBGR32, "VEK_convert_to_XBGR32", true}},
      {VEK_XRGB32, {VEK_convert_to_XRGB32, "VEK_convert_to_XRGB32", true}},
      {VEK_RGB15, {VEK_convert_to_RGB15, "VEK_convert_to_RGB15", true}},
      {VEK_RGB16, {VEK_convert_to_RGB16, "VEK_convert_to_RGB16", true}},
      {VEK_Y8, {VEK_convert_to_Y8, "VEK_convert_to_Y8", false}},
  };
  return m;
}

// Runs a conversion strip by strip over an image of `height` lines, refilling the
// source strip with random bytes each time, and checks every destination pixel with
// `expect(src_line, x, dst_pixel)`.
void run_strips(uint32_t src, uint32_t dst, Front fn, uint32_t height, uint32_t strip, bool stateful,
                uint32_t seed, const std::function<void(const uint8_t*, uint32_t, const uint8_t*)>& check,
                uint32_t src_px, uint32_t dst_px, bool contiguous = false) {
  const uint32_t width = param(src, VEK_PARAM_WIDTH);
  uint32_t done = 0;
  for (int s = 0; done < height; ++s) {
    vektest::fill_random(src, seed + s);
    ASSERT_EQ(fn(src, dst, VEK_STRIP_NEXT), 0u);
    const uint32_t lines = param(src, VEK_PARAM_STRIP_LINES);
    ASSERT_EQ(param(dst, VEK_PARAM_STRIP_LINES), lines);
    const uint32_t sp = contiguous ? width * src_px : param(src, VEK_PARAM_BYTES_PER_LINE);
    const uint32_t dp = contiguous ? width * dst_px : param(dst, VEK_PARAM_BYTES_PER_LINE);
    for (uint32_t y = 0; y < lines; ++y)
      for (uint32_t x = 0; x < width; ++x) check(data(src) + y * sp, x, data(dst) + y * dp + x * dst_px);
    done += stateful ? lines : height;
  }
  if (stateful) {
    EXPECT_EQ(param(src, VEK_PARAM_STRIP_LINES), height % strip ? height % strip : strip);
  }
}

TEST(ConvertRgb, EveryAcceptedPairMatchesTheFormulas) {
  ErrorRecorder rec;
  for (const auto& [target, sources] : accepted()) {
    const Target& t = fronts().at(target);
    for (int source : sources) {
      for (uint32_t width : {1u, 2u, 5u, 8u}) {
        SCOPED_TRACE(std::string(t.name) + " from " + std::to_string(source) + " width " + std::to_string(width));
        const uint32_t height = 7, strip = 3;
        const uint32_t src = make_image(source, width, height, strip, 4);
        uint32_t dw = 8;
        if (source == VEK_Y16) {
          dw = 8 + width % 9;  // 9, 10, 13, 16
          VEK_image_set_parameter(src, VEK_PARAM_DATA_WIDTH, dw);
        }
        const uint32_t dst = VEK_image_create();
        run_strips(src, dst, t.fn, height, strip, t.stateful, width * 31 + source,
                   [&](const uint8_t* line, uint32_t x, const uint8_t* out) {
                     std::vector<uint8_t> want;
                     if (source == VEK_YUV422) want = {line[2 * x]};
                     else want = encode(target, decode(source, line + x * bytes_of(source), dw));
                     ASSERT_EQ(std::vector<uint8_t>(out, out + want.size()), want) << "x " << x;
                   },
                   bytes_of(source), bytes_of(target));
        EXPECT_EQ(param(dst, VEK_PARAM_FORMAT), uint32_t(target));
        if (t.stateful) {
          EXPECT_EQ(t.fn(src, dst, VEK_STRIP_END), 0u);
        }
        VEK_image_destroy(src);
        VEK_image_destroy(dst);
      }
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(ConvertRgb, RefusedSourcesReportUnderTheFrontEndName) {
  const int formats[] = {2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  for (const auto& [target, sources] : accepted()) {
    const Target& t = fronts().at(target);
    for (int source : formats) {
      if (source == target || std::find(sources.begin(), sources.end(), source) != sources.end()) continue;
      const uint32_t src = make_image(source, 4, 2);
      const uint32_t dst = VEK_image_create();
      ErrorRecorder rec;
      EXPECT_EQ(t.fn(src, dst, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED) << t.name << " " << source;
      EXPECT_TRUE(rec.only(t.name, VEK_ERROR_NOT_SUPPORTED, "Unsupported image format")) << t.name << " " << source;
      VEK_image_destroy(src);
      VEK_image_destroy(dst);
    }
  }
}

TEST(ConvertRgb, SixteenBitGreyTargetAndSource) {
  ErrorRecorder rec;
  // Y8 -> Y16 shifts by the destination's data width; RGB24 -> Y16 keeps the weighted sum.
  for (uint32_t dw : {0u, 12u, 16u}) {
    const uint32_t src = make_image(VEK_Y8, 5, 3);
    vektest::fill_random(src, dw);
    const uint32_t dst = VEK_image_create();
    VEK_image_set_parameter(dst, VEK_PARAM_DATA_WIDTH, dw);
    ASSERT_EQ(VEK_convert_to_Y16(src, dst, VEK_STRIP_NEXT), 0u);
    const uint32_t eff = dw ? dw : 16;
    EXPECT_EQ(param(dst, VEK_PARAM_DATA_WIDTH), eff);
    for (uint32_t y = 0; y < 3; ++y)
      for (uint32_t x = 0; x < 5; ++x)
        EXPECT_EQ(w16(data(dst) + y * param(dst, 15) + 2 * x), data(src)[y * param(src, 15) + x] << (eff - 8));
    VEK_image_destroy(src);
    VEK_image_destroy(dst);
  }
  const uint32_t rgb = make_image(VEK_RGB24, 3, 2);
  vektest::fill_random(rgb, 5);
  data(rgb)[0] = data(rgb)[1] = data(rgb)[2] = 255;
  const uint32_t dst = VEK_image_create();
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

  // 4095 at data width 12 is full scale in every 8-bit target.
  const uint32_t y16 = make_image(VEK_Y16, 2, 1);
  VEK_image_set_parameter(y16, VEK_PARAM_DATA_WIDTH, 12);
  data(y16)[0] = data(y16)[2] = 0xFF;
  data(y16)[1] = data(y16)[3] = 0x0F;
  for (const auto& [target, t] : fronts()) {
    const uint32_t out = VEK_image_create();
    ASSERT_EQ(t.fn(y16, out, VEK_STRIP_NEXT), 0u) << t.name;
    const std::vector<uint8_t> want = encode(target, C{255, 255, 255});
    EXPECT_EQ(std::vector<uint8_t>(data(out), data(out) + want.size()), want) << t.name;
    VEK_image_destroy(out);
  }
  // Y8 and the X-first 32-bit targets refuse narrow Y16 data.
  VEK_image_set_parameter(y16, VEK_PARAM_DATA_WIDTH, 7);
  const std::pair<Front, const char*> narrow[] = {{VEK_convert_to_Y8, "VEK_convert_to_Y8"},
                                                  {VEK_convert_to_XBGR32, "VEK_convert_to_XBGR32"},
                                                  {VEK_convert_to_XRGB32, "VEK_convert_to_XRGB32"}};
  for (auto [fn, name] : narrow) {
    rec.clear();
    EXPECT_EQ(fn(y16, dst, VEK_STRIP_NEXT), VEK_ERROR_BAD_PARAMETER);
    EXPECT_TRUE(rec.only(name, VEK_ERROR_BAD_PARAMETER, "Data width must be > 7 for Y16"));
  }
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(ConvertRgb, WorkedValuesAndCmyk) {
  ErrorRecorder rec;
  const uint32_t src = make_image(VEK_RGB24, 4, 1);
  const uint8_t px[] = {255, 255, 255, 255, 0, 0, 0, 255, 0, 0, 0, 255};
  std::memcpy(data(src), px, sizeof px);
  const uint32_t grey = VEK_image_create();
  ASSERT_EQ(VEK_convert_to_Y8(src, grey, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(std::vector<uint8_t>(data(grey), data(grey) + 4), (std::vector<uint8_t>{255, 76, 149, 28}));

  const uint32_t w15 = make_image(VEK_RGB15, 1, 1), w16i = make_image(VEK_RGB16, 1, 1);
  data(w15)[0] = 0xFF, data(w15)[1] = 0x7F;
  data(w16i)[0] = 0xFF, data(w16i)[1] = 0xFF;
  for (uint32_t h : {w15, w16i}) {
    const uint32_t out = VEK_image_create();
    ASSERT_EQ(VEK_convert_to_RGB24(h, out, VEK_STRIP_NEXT), 0u);
    EXPECT_EQ(std::vector<uint8_t>(data(out), data(out) + 3), (std::vector<uint8_t>{255, 255, 248}));
  }

  // CMYK from a paletted image: complements of the map entries, K = 0.
  const uint32_t pal = make_image(VEK_PALETTED, 3, 2);
  VEK_cmap_set_type(pal, 1);
  const uint8_t idx[] = {12, 15, 9};
  for (uint32_t y = 0; y < 2; ++y) std::memcpy(data(pal) + y * param(pal, 15), idx, 3);
  const uint32_t cmyk = VEK_image_create();
  ASSERT_EQ(VEK_convert_to_CMYK32(pal, cmyk, VEK_STRIP_NEXT), 0u);
  const uint8_t want[] = {0, 255, 255, 0, 0, 0, 0, 0, 255, 255, 0, 0};
  for (uint32_t y = 0; y < 2; ++y) EXPECT_EQ(std::memcmp(data(cmyk) + y * param(cmyk, 15), want, 12), 0);
  rec.clear();
  EXPECT_EQ(VEK_convert_to_CMYK32(src, cmyk, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_convert_to_CMYK32", VEK_ERROR_NOT_SUPPORTED, "Only paletted input images currently supported"));
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(ConvertProtocol, ZeroLinesSameFormatAndModes) {
  ErrorRecorder rec;
  const uint32_t src = make_image(VEK_RGB24, 6, 4);
  vektest::fill_random(src, 1);
  const uint32_t dst = VEK_image_create();
  // Same format: a whole copy, even for a target whose worker would refuse it.
  ASSERT_EQ(VEK_convert_to_RGB24(src, dst, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(std::memcmp(data(src), data(dst), param(src, 16)), 0);
  const uint32_t y16 = make_image(VEK_Y16, 4, 2);
  const uint32_t y16copy = VEK_image_create();
  EXPECT_EQ(VEK_convert_to_XRGB32(y16, y16copy, VEK_STRIP_END), 0u);
  // No strip lines: only parameters, with the target's format.
  VEK_image_set_parameter(src, VEK_PARAM_STRIP_LINES, 0);
  const uint32_t empty = VEK_image_create();
  ASSERT_EQ(VEK_convert_to_RGB16(src, empty, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(empty, VEK_PARAM_FORMAT), uint32_t(VEK_RGB16));
  EXPECT_EQ(param(empty, VEK_PARAM_WIDTH), 6u);
  EXPECT_EQ(VEK_image_get_ptr(empty, VEK_PTR_DATA), nullptr);
  // A parameters-only call on a stateful conversion leaves the sequence idle.
  VEK_image_set_parameter(src, VEK_PARAM_STRIP_LINES, 4);
  const uint32_t prep = VEK_image_create();
  ASSERT_EQ(VEK_convert_to_RGB15(src, prep, 0), 0u);
  EXPECT_EQ(param(prep, VEK_PARAM_FORMAT), uint32_t(VEK_RGB15));
  EXPECT_EQ(VEK_image_get_ptr(prep, VEK_PTR_DATA), nullptr);
  ASSERT_EQ(VEK_convert_to_RGB15(src, prep, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(src, VEK_PARAM_STRIP_LINES), 4u);
  // Mode 4 ends a sequence early: the next strip starts counting from 0 again.
  VEK_image_set_parameter(src, VEK_PARAM_HEIGHT, 10);
  ASSERT_EQ(VEK_convert_to_RGBX32(src, prep, VEK_STRIP_NEXT), 0u);
  ASSERT_EQ(VEK_convert_to_RGBX32(src, prep, VEK_STRIP_END), 0u);
  ASSERT_EQ(VEK_convert_to_RGBX32(src, prep, VEK_STRIP_NEXT), 0u);
  ASSERT_EQ(VEK_convert_to_RGBX32(src, prep, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(src, VEK_PARAM_STRIP_LINES), 4u);
  ASSERT_EQ(VEK_convert_to_RGBX32(src, prep, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(src, VEK_PARAM_STRIP_LINES), 2u);
  EXPECT_EQ(rec.count(), 0u);
  // A source without data is refused by the worker.
  const uint32_t bare = VEK_image_create();
  VEK_image_set_parameter(bare, VEK_PARAM_FORMAT, VEK_RGB24);
  VEK_image_set_parameter(bare, VEK_PARAM_WIDTH, 2);
  VEK_image_set_parameter(bare, VEK_PARAM_STRIP_LINES, 2);
  rec.clear();
  EXPECT_EQ(VEK_convert_to_BGR24(bare, dst, VEK_STRIP_NEXT), VEK_ERROR_NO_IMAGE_DATA);
  EXPECT_TRUE(rec.only("VEK_convert_to_BGR24_1_strip", VEK_ERROR_NO_IMAGE_DATA, "No image data"));
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(ConvertDispatch, RoutesByFlagsAndRefusesUnknownTargets) {
  ErrorRecorder rec;
  const uint32_t src = make_image(VEK_RGB24, 4, 2);
  vektest::fill_random(src, 3);
  const uint32_t dst = VEK_image_create();
  for (uint32_t target : {13u, 108u, 0u, 200u}) {
    rec.clear();
    EXPECT_EQ(VEK_image_convert(src, dst, target, 0, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED);
    EXPECT_TRUE(rec.only("VEK_image_convert", VEK_ERROR_NOT_SUPPORTED, "Unsupported or unrecognized output image format"));
  }
  VEK_image_set_flags(dst, VEK_FLAG_DITHER, 1);
  rec.clear();
  EXPECT_EQ(VEK_image_convert(src, dst, VEK_BGR24, 0, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_image_convert", VEK_ERROR_NOT_SUPPORTED, "Dithering is not yet supported"));
  VEK_image_set_flags(dst, VEK_FLAG_DITHER, 0);
  rec.clear();
  VEK_image_set_flags(dst, VEK_FLAG_JPEG, 1);
  ASSERT_EQ(VEK_image_convert(src, dst, VEK_BGR24, 0, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(VEK_image_get_flags(dst, VEK_FLAG_JPEG), 0u);
  EXPECT_EQ(param(dst, VEK_PARAM_FORMAT), uint32_t(VEK_BGR24));
  // YUV sources: the LUT flag of the destination picks the table-driven path, whose
  // white is (255, 255, 248) where the direct path gives (255, 255, 255).
  const uint32_t yuv = make_image(VEK_YUV422, 2, 1);
  const uint8_t white[] = {255, 128, 255, 128};
  std::memcpy(data(yuv), white, 4);
  const uint32_t direct = VEK_image_create(), table = VEK_image_create();
  VEK_image_set_flags(table, VEK_FLAG_LUT, 1);
  ASSERT_EQ(VEK_image_convert(yuv, direct, VEK_RGB24, 0, VEK_STRIP_NEXT), 0u);
  ASSERT_EQ(VEK_image_convert(yuv, table, VEK_RGB24, 0, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(std::vector<uint8_t>(data(direct), data(direct) + 3), (std::vector<uint8_t>{255, 255, 255}));
  EXPECT_EQ(std::vector<uint8_t>(data(table), data(table) + 3), (std::vector<uint8_t>{255, 255, 248}));
  ASSERT_EQ(VEK_image_convert(yuv, direct, VEK_HSI, 0, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(direct, VEK_PARAM_FORMAT), uint32_t(VEK_HSI));
  EXPECT_EQ(rec.count(), 0u) << rec.last().function << ": " << rec.last().message;
  VEK_image_destroy(VEK_ALL_IMAGES);
}

}  // namespace
