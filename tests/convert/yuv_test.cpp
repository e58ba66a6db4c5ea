// YUV 4:2:2 conversions against the references of convert_ref.h: direct and
// table-driven, every target over strips and paddings, HSI, and RGB/grey/paletted to YUV.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numbers>
#include <vector>

#include "convert_ref.h"

using namespace convref;
using vektest::make_image;

namespace {

// The table-driven path quantises Y to 7 bits and U, V to 6, evaluates the equations
// into an RGB16 word and (except for the 16/15-bit targets) expands it again.
std::vector<uint8_t> table_pixel(int target, int y, int u, int v) {
  const C c = yuv_rgb(y & 0xFE, u & 0xFC, v & 0xFC);
  return encode(target, target == VEK_RGB15 || target == VEK_RGB16 ? c : from_rgb16(rgb16(c)));
}

TEST(Yuv, EveryTargetDirectAndTableDriven) {
  Session rec;
  struct Case {
    Front fn;
    int target;
    bool table;
    bool pitch;  // steps by line pitch (else lines run back to back)
  };
#define VEK_C(F, PITCH) {VEK_YUV422_to_##F, VEK_##F, false, PITCH}, {VEK_YUV422_to_##F##_LUT, VEK_##F, true, false}
  const Case cases[] = {VEK_C(RGB15, false),  VEK_C(RGB16, false),  VEK_C(RGB24, false),  VEK_C(BGR24, false),
                        VEK_C(RGBX32, false), VEK_C(BGRX32, true),  VEK_C(XBGR32, false), VEK_C(XRGB32, false),
                        {VEK_YUV422_to_Y8, VEK_Y8, false, true},    {VEK_YUV422_to_Y16, VEK_Y16, false, true}};
#undef VEK_C
  for (const Case& c : cases) {
    for (uint32_t width : {2u, 6u, 10u}) {
      SCOPED_TRACE("target " + std::to_string(c.target) + (c.table ? " table" : " direct") + " width " +
                   std::to_string(width));
      const uint32_t src = make_image(VEK_YUV422, width, 5, 2, 8);  // padded source lines
      const uint32_t dst = VEK_image_create();
      VEK_image_set_parameter(dst, VEK_PARAM_LINE_ALIGN, 4);
      const size_t px = size_t(bytes_of(c.target));
      for (uint32_t s = 0; s < 3; ++s) {
        vektest::fill_random(src, width * 100 + uint32_t(c.target) * 7 + s);
        ASSERT_EQ(c.fn(src, dst, VEK_STRIP_NEXT), 0u);
        const uint32_t lines = param(src, VEK_PARAM_STRIP_LINES);
        ASSERT_EQ(lines, s < 2 || c.target == VEK_Y8 || c.target == VEK_Y16 ? 2u : 1u);  // grey keeps no count
        const size_t sp = c.pitch ? pitch(src) : width * 2, dp = c.pitch ? pitch(dst) : width * px;
        for (uint32_t y = 0; y < lines; ++y) {
          const uint8_t* in = data(src) + y * sp;
          for (uint32_t x = 0; x < width; ++x) {
            const int Y = in[2 * x], U = in[4 * (x / 2) + 1], V = in[4 * (x / 2) + 3];
            const auto want = c.target == VEK_Y8    ? std::vector<uint8_t>{uint8_t(Y)}
                              : c.target == VEK_Y16 ? std::vector<uint8_t>{0, uint8_t(Y)}
                              : c.table             ? table_pixel(c.target, Y, U, V)
                                                    : encode(c.target, yuv_rgb(Y, U, V));
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

TEST(Yuv, HueSaturationIntensity) {
  Session rec;
  const uint32_t width = 16;
  const uint32_t src = make_image(VEK_YUV422, width, 4), dst = VEK_image_create();
  vektest::fill_random(src, 4);
  data(src)[0] = 0;  // an even pixel with luma 0: saturation 0 for the pair
  data(src)[2] = 90;
  data(src)[4] = 15;  // Y <= 20: hue 180
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
      EXPECT_EQ(w16(out), Y > 20 ? hue(U, V) : 180) << x;
      EXPECT_EQ(out[2], sat) << x;
      EXPECT_EQ(out[3], Y);
    }
  EXPECT_EQ(data(dst)[6], 0);  // odd pixel of the Y0 = 0 pair
}

TEST(Yuv, FromRgbGreyAndPaletted) {
  Session rec;
  for (int f : {VEK_RGB24, VEK_BGR24, VEK_RGBX32, VEK_BGRX32, VEK_XBGR32, VEK_Y8}) {
    for (uint32_t width : {2u, 8u}) {
      const uint32_t src = make_image(f, width, 5, 0, 4), dst = VEK_image_create();
      vektest::fill_random(src, uint32_t(f) + width);
      ASSERT_EQ(VEK_convert_to_YUV422(src, dst, VEK_STRIP_NEXT), 0u);
      const int n = bytes_of(f);
      for (uint32_t y = 0; y < 5; ++y)
        for (uint32_t x = 0; x < width; x += 2) {
          const uint8_t* p = data(src) + y * pitch(src) + x * uint32_t(n);
          const C c0 = decode(f, p), c1 = decode(f, p + n);
          int Y0, U0, V0, Y1, U1, V1;
          rgb_yuv(c0.r, c0.g, c0.b, Y0, U0, V0);
          rgb_yuv(c1.r, c1.g, c1.b, Y1, U1, V1);
          EXPECT_EQ(ints(data(dst) + y * pitch(dst) + 2 * x, 4),
                    (std::vector<int>{Y0, (U0 + U1) >> 1, Y1, (V0 + V1) >> 1}))
              << f << " x " << x;
        }
      VEK_image_destroy(src);
      VEK_image_destroy(dst);
    }
  }
  // Y16 gives its high byte whatever the data width; paletted looks up its map.
  const uint32_t y16 = make_image(VEK_Y16, 2, 1), out = VEK_image_create();
  VEK_image_set_parameter(y16, VEK_PARAM_DATA_WIDTH, 10);
  std::memcpy(data(y16), "\x34\x12\xFF\x03", 4);
  ASSERT_EQ(VEK_convert_to_YUV422(y16, out, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(ints(data(out), 4), (std::vector<int>{0x12, 128, 0x03, 128}));
  const uint32_t pal = make_image(VEK_PALETTED, 2, 1);
  VEK_cmap_set_type(pal, 1);
  data(pal)[0] = 12;  // pure red
  data(pal)[1] = 7;   // grey 152
  ASSERT_EQ(VEK_convert_to_YUV422(pal, out, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(ints(data(out), 4), (std::vector<int>{76, (84 + 128) >> 1, 152, (255 + 128) >> 1}));
  // Worked values: pure red goes to (76, 84, 255) and comes back as (254, 0, 0).
  const uint32_t rgb = make_image(VEK_RGB24, 2, 1), back = VEK_image_create();
  std::memcpy(data(rgb), "\xFF\0\0\xFF\0\0", 6);
  ASSERT_EQ(VEK_convert_to_YUV422(rgb, out, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(ints(data(out), 4), (std::vector<int>{76, 84, 76, 255}));
  ASSERT_EQ(VEK_YUV422_to_RGB24(out, back, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(ints(data(back), 3), (std::vector<int>{254, 0, 0}));
  EXPECT_EQ(rec.count(), 0u);
}

}  // namespace
