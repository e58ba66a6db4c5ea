// YUV 4:2:2 conversions against references written from the colour equations:
// direct and table-driven, every target, HSI, and RGB/grey/paletted to YUV.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numbers>
#include <vector>

#include "support/recorder.h"
#include "vek.h"

using vektest::ErrorRecorder;
using vektest::make_image;

namespace {

uint8_t* data(uint32_t h) { return static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA)); }
uint32_t param(uint32_t h, uint32_t id) { return VEK_image_get_parameter(h, id); }
int clampi(int v) { return v < 0 ? 0 : v > 255 ? 255 : v; }

struct C {
  int r, g, b;
};
C yuv_rgb(int y, int u, int v) {
  return {clampi((1024 * y + 1436 * (v - 128)) >> 10),
          clampi((1024 * y - 731 * (v - 128) - 352 * (u - 128)) >> 10),
          clampi((1024 * y + 1815 * (u - 128)) >> 10)};
}

using Front = uint32_t (*)(uint32_t, uint32_t, uint32_t);
struct Case {
  Front fn;
  int target;
  bool table;
  bool pitch;  // steps by line pitch (else lines run back to back)
};

std::vector<uint8_t> pixel(int target, C c) {
  auto u = [](int v) { return uint8_t(v); };
  switch (target) {
    case VEK_RGB15: { int w = (c.r & 0xF8) << 7 | (c.g & 0xF8) << 2 | c.b >> 3; return {u(w), u(w >> 8)}; }
    case VEK_RGB16: { int w = (c.r & 0xF8) << 8 | (c.g & 0xFC) << 3 | c.b >> 3; return {u(w), u(w >> 8)}; }
    case VEK_RGB24: return {u(c.r), u(c.g), u(c.b)};
    case VEK_BGR24: return {u(c.b), u(c.g), u(c.r)};
    case VEK_RGBX32: return {u(c.r), u(c.g), u(c.b), 0};
    case VEK_BGRX32: return {u(c.b), u(c.g), u(c.r), 0};
    case VEK_XBGR32: return {0, u(c.b), u(c.g), u(c.r)};
    default: return {0, u(c.r), u(c.g), u(c.b)};  // XRGB32
  }
}

// The table-driven path quantises Y to 7 bits and U, V to 6, evaluates the equations
// into an RGB16 word and (except for the 16/15-bit targets) expands it again.
std::vector<uint8_t> table_pixel(int target, int y, int u, int v) {
  const C c = yuv_rgb(y & 0xFE, u & 0xFC, v & 0xFC);
  if (target == VEK_RGB15 || target == VEK_RGB16) return pixel(target, c);
  const int w = (c.r & 0xF8) << 8 | (c.g & 0xFC) << 3 | c.b >> 3;
  return pixel(target, C{(w >> 8) & 255, (w >> 3) & 255, (w << 3) & 255});
}

TEST(Yuv, EveryTargetDirectAndTableDriven) {
  ErrorRecorder rec;
  const Case cases[] = {
      {VEK_YUV422_to_RGB15, VEK_RGB15, false, false},      {VEK_YUV422_to_RGB16, VEK_RGB16, false, false},
      {VEK_YUV422_to_RGB24, VEK_RGB24, false, false},      {VEK_YUV422_to_BGR24, VEK_BGR24, false, false},
      {VEK_YUV422_to_RGBX32, VEK_RGBX32, false, false},    {VEK_YUV422_to_BGRX32, VEK_BGRX32, false, true},
      {VEK_YUV422_to_XBGR32, VEK_XBGR32, false, false},    {VEK_YUV422_to_XRGB32, VEK_XRGB32, false, false},
      {VEK_YUV422_to_RGB15_LUT, VEK_RGB15, true, false},   {VEK_YUV422_to_RGB16_LUT, VEK_RGB16, true, false},
      {VEK_YUV422_to_RGB24_LUT, VEK_RGB24, true, false},   {VEK_YUV422_to_BGR24_LUT, VEK_BGR24, true, false},
      {VEK_YUV422_to_RGBX32_LUT, VEK_RGBX32, true, false}, {VEK_YUV422_to_BGRX32_LUT, VEK_BGRX32, true, false},
      {VEK_YUV422_to_XBGR32_LUT, VEK_XBGR32, true, false}, {VEK_YUV422_to_XRGB32_LUT, VEK_XRGB32, true, false},
  };
  for (const Case& c : cases) {
    for (uint32_t width : {2u, 6u, 10u}) {
      SCOPED_TRACE("target " + std::to_string(c.target) + (c.table ? " table" : " direct") + " width " +
                   std::to_string(width));
      const uint32_t height = 5, strip = 2;
      const uint32_t src = make_image(VEK_YUV422, width, height, strip, 8);  // padded source lines
      const uint32_t dst = VEK_image_create();
      VEK_image_set_parameter(dst, VEK_PARAM_LINE_ALIGN, 4);
      for (int s = 0; s < 3; ++s) {
        vektest::fill_random(src, width * 100 + c.target * 7 + s);
        ASSERT_EQ(c.fn(src, dst, VEK_STRIP_NEXT), 0u);
        const uint32_t lines = param(src, VEK_PARAM_STRIP_LINES);
        ASSERT_EQ(lines, s < 2 ? 2u : 1u);
        const size_t px = pixel(c.target, C{0, 0, 0}).size();
        const size_t sp = c.pitch ? param(src, 15) : width * 2, dp = c.pitch ? param(dst, 15) : width * px;
        for (uint32_t y = 0; y < lines; ++y) {
          const uint8_t* in = data(src) + y * sp;
          for (uint32_t x = 0; x < width; ++x) {
            const int Y = in[2 * x], U = in[4 * (x / 2) + 1], V = in[4 * (x / 2) + 3];
            const auto want = c.table ? table_pixel(c.target, Y, U, V) : pixel(c.target, yuv_rgb(Y, U, V));
            const uint8_t* got = data(dst) + y * dp + x * px;
            ASSERT_EQ(std::vector<uint8_t>(got, got + px), want) << "line " << y << " x " << x;
          }
        }
      }
      VEK_image_destroy(src);
      VEK_image_destroy(dst);
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(Yuv, GreyTargetsStepByPitch) {
  ErrorRecorder rec;
  const uint32_t src = make_image(VEK_YUV422, 6, 3, 0, 8);
  vektest::fill_random(src, 9);
  const uint32_t y8 = VEK_image_create(), y16 = VEK_image_create();
  ASSERT_EQ(VEK_YUV422_to_Y8(src, y8, VEK_STRIP_NEXT), 0u);
  ASSERT_EQ(VEK_YUV422_to_Y16(src, y16, VEK_STRIP_NEXT), 0u);
  for (uint32_t y = 0; y < 3; ++y)
    for (uint32_t x = 0; x < 6; ++x) {
      const uint8_t luma = data(src)[y * param(src, 15) + 2 * x];
      EXPECT_EQ(data(y8)[y * param(y8, 15) + x], luma);
      const uint8_t* w = data(y16) + y * param(y16, 15) + 2 * x;
      EXPECT_EQ(w[0] | w[1] << 8, luma << 8);
    }
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(Yuv, HueSaturationIntensity) {
  ErrorRecorder rec;
  const uint32_t width = 16;
  const uint32_t src = make_image(VEK_YUV422, width, 4);
  vektest::fill_random(src, 4);
  data(src)[0] = 0;   // an even pixel with luma 0: saturation 0 for the pair
  data(src)[2] = 90;
  data(src)[4] = 15;  // Y <= 20: hue 180
  const uint32_t dst = VEK_image_create();
  ASSERT_EQ(VEK_YUV422_to_HSI(src, dst, VEK_STRIP_NEXT), 0u);
  auto hue = [](int u, int v) {
    const double pi = std::numbers::pi, du = u - 128.0, dv = v - 128.0;
    double a = (std::abs(du) <= 6 && std::abs(dv) <= 6) ? -pi / 3 : std::atan2(dv, du);
    if (a < 0) a += 2 * pi;
    double d = a * 180 / pi + 0.5;
    if (d < 0 || d > 359.4) d = 0;
    d -= 120;
    if (d < 0) d += 360;
    return int(d);
  };
  for (uint32_t y = 0; y < 4; ++y)
    for (uint32_t x = 0; x < width; ++x) {
      const uint8_t* in = data(src) + y * width * 2;
      const int Y = in[2 * x], Y0 = in[4 * (x / 2)], U = in[4 * (x / 2) + 1], V = in[4 * (x / 2) + 3];
      const C c = yuv_rgb(Y, U, V);
      const unsigned m = unsigned(std::min({c.r, c.g, c.b}));
      const int sat = Y0 == 0 ? 0 : (255 - int((255u * m / unsigned(Y0)) & 0xFF)) & 0xFF;
      const uint8_t* out = data(dst) + (y * width + x) * 4;
      EXPECT_EQ(out[0] | out[1] << 8, Y > 20 ? hue(U, V) : 180) << x;
      EXPECT_EQ(out[2], sat) << x;
      EXPECT_EQ(out[3], Y);
    }
  EXPECT_EQ(data(dst)[6], 0);  // odd pixel of the Y0 = 0 pair
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(Yuv, FromRgbGreyAndPaletted) {
  ErrorRecorder rec;
  auto yuv = [](int r, int g, int b, int& Y, int& U, int& V) {
    Y = std::min((306 * r + 601 * g + 117 * b) >> 10, 255);
    U = clampi(((512 * b - 339 * g - 173 * r) >> 10) + 128);
    V = clampi(((512 * r - 429 * g - 83 * b) >> 10) + 128);
  };
  struct Src {
    int format;
    int r, g, b, n;  // byte positions and pixel size
  };
  const Src sources[] = {{VEK_RGB24, 0, 1, 2, 3},  {VEK_BGR24, 2, 1, 0, 3},  {VEK_RGBX32, 0, 1, 2, 4},
                         {VEK_BGRX32, 2, 1, 0, 4}, {VEK_XBGR32, 3, 2, 1, 4}, {VEK_Y8, 0, 0, 0, 1}};
  for (const Src& s : sources) {
    for (uint32_t width : {2u, 8u}) {
      const uint32_t src = make_image(s.format, width, 5, 0, 4);
      vektest::fill_random(src, s.format + width);
      const uint32_t dst = VEK_image_create();
      ASSERT_EQ(VEK_convert_to_YUV422(src, dst, VEK_STRIP_NEXT), 0u);
      for (uint32_t y = 0; y < 5; ++y)
        for (uint32_t x = 0; x < width; x += 2) {
          const uint8_t* p = data(src) + y * param(src, 15) + x * s.n;
          int Y0, U0, V0, Y1, U1, V1;
          yuv(p[s.r], p[s.g], p[s.b], Y0, U0, V0);
          yuv(p[s.n + s.r], p[s.n + s.g], p[s.n + s.b], Y1, U1, V1);
          const uint8_t* o = data(dst) + y * param(dst, 15) + 2 * x;
          EXPECT_EQ(std::vector<int>(o, o + 4), (std::vector<int>{Y0, (U0 + U1) >> 1, Y1, (V0 + V1) >> 1}))
              << s.format << " x " << x;
        }
      VEK_image_destroy(src);
      VEK_image_destroy(dst);
    }
  }
  // Y16 gives its high byte whatever the data width; paletted looks up its map.
  const uint32_t y16 = make_image(VEK_Y16, 2, 1);
  VEK_image_set_parameter(y16, VEK_PARAM_DATA_WIDTH, 10);
  const uint8_t words[] = {0x34, 0x12, 0xFF, 0x03};
  std::memcpy(data(y16), words, 4);
  const uint32_t out = VEK_image_create();
  ASSERT_EQ(VEK_convert_to_YUV422(y16, out, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(std::vector<int>(data(out), data(out) + 4), (std::vector<int>{0x12, 128, 0x03, 128}));
  const uint32_t pal = make_image(VEK_PALETTED, 2, 1);
  VEK_cmap_set_type(pal, 1);
  data(pal)[0] = 12;   // pure red
  data(pal)[1] = 7;    // grey 152
  ASSERT_EQ(VEK_convert_to_YUV422(pal, out, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(std::vector<int>(data(out), data(out) + 4), (std::vector<int>{76, (84 + 128) >> 1, 152, (255 + 128) >> 1}));
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(Yuv, WorkedValuesAndRefusals) {
  ErrorRecorder rec;
  // Pure red goes to (76, 84, 255) and comes back as (254, 0, 0).
  const uint32_t rgb = make_image(VEK_RGB24, 2, 1);
  const uint8_t red[] = {255, 0, 0, 255, 0, 0};
  std::memcpy(data(rgb), red, 6);
  const uint32_t yuv = VEK_image_create(), back = VEK_image_create();
  ASSERT_EQ(VEK_convert_to_YUV422(rgb, yuv, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(std::vector<int>(data(yuv), data(yuv) + 4), (std::vector<int>{76, 84, 76, 255}));
  ASSERT_EQ(VEK_YUV422_to_RGB24(yuv, back, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(std::vector<int>(data(back), data(back) + 3), (std::vector<int>{254, 0, 0}));
  // Grey 200 stays on the luma axis.
  const uint32_t grey = make_image(VEK_Y8, 2, 1);
  data(grey)[0] = data(grey)[1] = 200;
  ASSERT_EQ(VEK_convert_to_YUV422(grey, yuv, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(std::vector<int>(data(yuv), data(yuv) + 4), (std::vector<int>{200, 128, 200, 128}));

  const uint32_t odd_rgb = make_image(VEK_RGB24, 3, 1);
  rec.clear();
  EXPECT_EQ(VEK_convert_to_YUV422(odd_rgb, yuv, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_convert_to_YUV422", VEK_ERROR_NOT_SUPPORTED, "Only even width YUV422 images are supported"));
  const uint32_t odd = make_image(VEK_YUV422, 3, 1);
  rec.clear();
  EXPECT_EQ(VEK_YUV422_to_BGRX32(odd, back, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_YUV422_to_BGRX32", VEK_ERROR_NOT_SUPPORTED, "YUV422 image must be an even width"));
  rec.clear();
  EXPECT_EQ(VEK_YUV422_to_RGB24_LUT(grey, back, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_YUV422_to_RGB24_LUT", VEK_ERROR_NOT_SUPPORTED, "Not 16 bit YUV 4:2:2"));
  const uint32_t rgb16 = make_image(VEK_RGB16, 2, 1);
  rec.clear();
  EXPECT_EQ(VEK_convert_to_YUV422(rgb16, yuv, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_convert_to_YUV422", VEK_ERROR_NOT_SUPPORTED, "Unsupported image format"));
  // The tables are released with the library's shared tables and rebuilt on demand.
  VEK_image_destroy(VEK_ALL_IMAGES);
  EXPECT_EQ(VEK_image_destroy(VEK_LIBRARY_TABLES), 0u);
}

}  // namespace
