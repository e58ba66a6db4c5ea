// Scaling and bilinear zoom against whole-image references written from the
// fixed-point formulas, in one strip and streamed through several.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "core/alloc.h"
#include "process/geometry_support.h"
#include "support/recorder.h"
#include "vek.h"

using namespace geomtest;

namespace {

// ---- scaling reference: the whole picture at once, no strips, no carried line ----

uint32_t T(uint32_t p, uint32_t j) { return (p * (256 - j)) >> 8; }

// Output lines (NW * ch bytes each, no padding) of scaling a W x H picture.
std::vector<uint8_t> scale_reference(const uint8_t* src, size_t pitch, uint32_t W, uint32_t H,
                                     uint32_t ch, uint32_t NW, uint32_t NH) {
  const uint32_t xs = (W << 13) / NW, ys = ((H - 1) << 13) / (NH - 1);
  std::vector<uint8_t> across(size_t(H) * NW * ch);
  for (uint32_t y = 0; y < H; ++y)
    for (uint32_t o = 0; o < NW; ++o) {
      const uint32_t a = o * xs, i = a >> 13, f = (a >> 5) & 255, i1 = std::min(i + 1, W - 1);
      for (uint32_t c = 0; c < ch; ++c)
        across[(size_t(y) * NW + o) * ch + c] =
            uint8_t(T(src[y * pitch + i * ch + c], f) + T(src[y * pitch + i1 * ch + c], 256 - f));
    }
  std::vector<uint8_t> out(size_t(NH) * NW * ch);
  for (uint32_t k = 0; k < NH; ++k) {
    const uint32_t pos = k * ys, u = pos >> 13, l = std::min(u + 1, H - 1), f = (pos >> 5) & 255;
    for (size_t b = 0; b < size_t(NW) * ch; ++b)
      out[k * size_t(NW) * ch + b] =
          uint8_t(T(across[u * size_t(NW) * ch + b], f) + T(across[l * size_t(NW) * ch + b], 256 - f));
  }
  return out;
}

// Scales `full` held as strips of `strip` lines; returns the output lines unpadded.
std::vector<uint8_t> scale_streamed(uint32_t full, uint32_t strip, uint32_t NW, uint32_t NH) {
  const uint32_t format = param(full, VEK_PARAM_FORMAT), W = param(full, VEK_PARAM_WIDTH),
                 H = param(full, VEK_PARAM_HEIGHT), ch = format == VEK_RGB24 ? 3 : 1;
  const uint32_t in = keep(vektest::make_image(format, W, H, strip));
  const uint32_t out = keep(VEK_image_create());
  const uint32_t pitch = param(full, VEK_PARAM_BYTES_PER_LINE);
  std::vector<uint8_t> result;
  for (uint32_t done = 0; done < H; done += strip) {
    const uint32_t lines = std::min(strip, H - done);
    std::memcpy(pixels(in), pixels(full) + size_t(done) * pitch, size_t(lines) * pitch);
    const uint32_t status = VEK_IP_scale(in, out, NW, NH, VEK_STRIP_NEXT);
    EXPECT_EQ(status, 0u) << "strip at " << done;
    if (status) break;
    const uint32_t op = param(out, VEK_PARAM_BYTES_PER_LINE);
    for (uint32_t k = 0; k < param(out, VEK_PARAM_STRIP_LINES); ++k)
      result.insert(result.end(), pixels(out) + k * op, pixels(out) + k * op + NW * ch);
  }
  EXPECT_EQ(param(out, VEK_PARAM_WIDTH), NW);
  EXPECT_EQ(param(out, VEK_PARAM_HEIGHT), NH);
  return result;
}

TEST(GeometryScale, OneStripMatchesTheFormulas) {
  vektest::ErrorRecorder rec;
  const struct {
    uint32_t W, H, NW, NH;
  } sizes[] = {{16, 12, 40, 30}, {33, 17, 11, 5}, {7, 9, 7, 20}, {64, 48, 63, 47},
               {5, 2, 13, 2},    {100, 3, 37, 9}, {9, 31, 27, 4}};
  for (uint32_t format : {VEK_Y8, VEK_RGB24}) {
    for (const auto& s : sizes) {
      const uint32_t ch = format == VEK_RGB24 ? 3 : 1;
      const uint32_t full = keep(vektest::make_image(format, s.W, s.H));
      vektest::fill_random(full, s.W * s.H + format);
      const auto want = scale_reference(pixels(full), param(full, VEK_PARAM_BYTES_PER_LINE), s.W,
                                        s.H, ch, s.NW, s.NH);
      const auto got = scale_streamed(full, s.H, s.NW, s.NH);
      ASSERT_EQ(got, want) << format << ": " << s.W << "x" << s.H << " -> " << s.NW << "x" << s.NH;
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(GeometryScale, TallImageInStripsMatchesOneStrip) {
  vektest::ErrorRecorder rec;
  const struct {
    uint32_t W, H, NW, NH, strip;
  } cases[] = {
      {24, 100, 31, 250, 8},  // enlarging: many output lines per strip, carried lines
      {24, 100, 31, 250, 7},  {17, 90, 9, 45, 5},  // mild reduction
      {40, 64, 40, 129, 16}, {13, 57, 20, 19, 4},  {8, 203, 8, 400, 1},
  };
  for (uint32_t format : {VEK_Y8, VEK_RGB24}) {
    for (const auto& c : cases) {
      const uint32_t full = keep(vektest::make_image(format, c.W, c.H));
      vektest::fill_random(full, c.H + c.strip);
      const auto whole = scale_streamed(full, c.H, c.NW, c.NH);
      const auto strips = scale_streamed(full, c.strip, c.NW, c.NH);
      ASSERT_EQ(whole.size(), size_t(c.NW) * c.NH * (format == VEK_RGB24 ? 3 : 1));
      ASSERT_EQ(strips, whole) << format << " " << c.H << " in strips of " << c.strip;
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(GeometryScale, ErrorsCarryTheirHistoricNames) {
  const uint32_t out = keep(VEK_image_create());
  {
    vektest::ErrorRecorder rec;
    const uint32_t in = keep(vektest::make_image(VEK_BGR24, 8, 8));
    EXPECT_EQ(VEK_IP_scale(in, out, 4, 4, 3), VEK_ERROR_NOT_SUPPORTED);
    EXPECT_TRUE(rec.only("VEK_IP_threshold_grayscale", VEK_ERROR_NOT_SUPPORTED, "Supports RGB24 & Y8 only"));
  }
  {
    vektest::ErrorRecorder rec;
    const uint32_t blank = keep(VEK_image_create());
    EXPECT_EQ(VEK_IP_scale(blank, out, 4, 4, 3), 0x10050010u);
    EXPECT_EQ(rec.last().function, "VEK_IP_threshold_grayscale");  // after the validator's own report
    EXPECT_EQ(rec.last().message, "Corrupt image");
  }
  {
    vektest::ErrorRecorder rec;
    const uint32_t in = keep(vektest::make_image(VEK_Y8, 8, 8));
    EXPECT_EQ(VEK_IP_scale(in, out, 4, 1, 3), VEK_ERROR_BAD_PARAMETER);  // height - 1 = 0
    EXPECT_EQ(VEK_IP_scale(in, out, 0, 4, 3), VEK_ERROR_BAD_PARAMETER);
    EXPECT_EQ(rec.count(), 2u);
    EXPECT_EQ(rec.last().function, "VEK_IP_threshold_grayscale");
  }
  {
    // Output strips come from the worker's own allocation, reported under its name.
    vektest::ErrorRecorder rec;
    const uint32_t in = keep(vektest::make_image(VEK_Y8, 8, 12, 4));
    ASSERT_EQ(VEK_IP_scale(in, out, 6, 9, 3), 0u);
    vek::testing::fail_allocations_after(0);
    const uint32_t status = VEK_IP_scale(in, out, 6, 9, 3);
    vek::testing::fail_allocations_after(-1);
    EXPECT_EQ(status, VEK_ERROR_MEMORY);
    EXPECT_TRUE(rec.only("VEK_IP_scale_1_strip", VEK_ERROR_MEMORY, "Malloc fail - no memory?"))
        << rec.last().function << ": " << rec.last().message;
    EXPECT_EQ(VEK_IP_scale(in, out, 6, 9, 4), 0u);
  }
  {
    vektest::ErrorRecorder rec;  // same size: a plain copy
    const uint32_t in = keep(vektest::make_image(VEK_RGB24, 5, 3));
    vektest::fill_random(in, 2);
    ASSERT_EQ(VEK_IP_scale(in, out, 5, 3, 3), 0u);
    EXPECT_EQ(0, std::memcmp(pixels(in), pixels(out), param(in, VEK_PARAM_BYTES_PER_STRIP)));
  }
}

// Regression: reducing in strips shorter than the vertical step (10:1 in strips of 4,
// or of 1 line) met strips holding no output line; the worker refused them with an
// internal error and the stalled line count misplaced every later strip. Such strips
// now give an empty output strip and the whole result equals the one-strip formulas.
TEST(GeometryScale, StripsWithoutOutputLinesAreEmptyNotErrors) {
  vektest::ErrorRecorder rec;
  const struct {
    uint32_t W, H, NW, NH, strip;
  } cases[] = {{8, 100, 8, 10, 4}, {8, 100, 5, 10, 1}, {21, 64, 9, 3, 5}, {6, 50, 6, 2, 7}};
  for (uint32_t format : {VEK_Y8, VEK_RGB24}) {
    const uint32_t ch = format == VEK_RGB24 ? 3 : 1;
    for (const auto& c : cases) {
      const uint32_t full = keep(vektest::make_image(format, c.W, c.H));
      vektest::fill_random(full, c.H * 7 + c.strip);
      const auto want = scale_reference(pixels(full), param(full, VEK_PARAM_BYTES_PER_LINE), c.W,
                                        c.H, ch, c.NW, c.NH);
      const auto got = scale_streamed(full, c.strip, c.NW, c.NH);
      ASSERT_EQ(got, want) << format << ": " << c.H << " -> " << c.NH << " in strips of " << c.strip;
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

// ---- zoom ----

std::vector<uint16_t> table() { return std::vector<uint16_t>(VEK_ZOOM_TABLE_ENTRIES, 0); }

TEST(GeometryZoomSetup, WorkedTablesAndRefusals) {
  vektest::ErrorRecorder rec;
  auto xt = table(), yt = table();
  const uint32_t region[4] = {0, 0, 2, 3};
  ASSERT_EQ(VEK_IP_bilinear_zoom_setup(region, 4, 5, xt.data(), yt.data()), 0u);
  const uint16_t x_first[] = {32768, 16384, 32768, 16384}, x_adv[] = {0, 1, 0, 1};
  // Region 3 to 5 positions, worked by hand through the 16-bit accumulator.
  const uint16_t y_first[] = {32768, 13107, 26214, 6553, 19660}, y_adv[] = {0, 1, 0, 1, 1};
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(xt[i], x_first[i]);
    EXPECT_EQ(xt[VEK_ZOOM_MAX + i], 32768 - x_first[i]);
    EXPECT_EQ(xt[2 * VEK_ZOOM_MAX + i], x_adv[i]);
  }
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(yt[i], y_first[i]);
    EXPECT_EQ(yt[VEK_ZOOM_MAX + i], 32768 - y_first[i]);
    EXPECT_EQ(yt[2 * VEK_ZOOM_MAX + i], y_adv[i]);
  }
  // Same size: identity weights, advancing at every position.
  ASSERT_EQ(VEK_IP_bilinear_zoom_setup(region, 2, 3, xt.data(), yt.data()), 0u);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(yt[i], 32768);
    EXPECT_EQ(yt[VEK_ZOOM_MAX + i], 0);
    EXPECT_EQ(yt[2 * VEK_ZOOM_MAX + i], 1);
  }
  EXPECT_EQ(rec.count(), 0u);

  EXPECT_EQ(VEK_IP_bilinear_zoom_setup(region, 1, 5, xt.data(), yt.data()), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_EQ(rec.last().message, "Zooming out unsupported in this release");
  const struct {
    const uint32_t* r;
    uint16_t *x, *y;
    const char* message;
  } nulls[] = {{nullptr, xt.data(), yt.data(), "Roi pointer is NULL"},
               {region, nullptr, yt.data(), "XCoeffs pointer is NULL"},
               {region, xt.data(), nullptr, "YCoeffs pointer is NULL"}};
  for (const auto& n : nulls) {
    rec.clear();
    EXPECT_EQ(VEK_IP_bilinear_zoom_setup(n.r, 4, 4, n.x, n.y), VEK_ERROR_BAD_PARAMETER);
    EXPECT_TRUE(rec.only("VEK_IP_bilinear_zoom_setup", VEK_ERROR_BAD_PARAMETER, n.message));
    rec.clear();
    EXPECT_EQ(VEK_IP_bilinear_zoom(1, 2, n.r, 4, 4, n.x, n.y, 3), VEK_ERROR_BAD_PARAMETER);
    EXPECT_TRUE(rec.only("VEK_IP_bilinear_zoom", VEK_ERROR_BAD_PARAMETER, n.message));
  }
}

// Zoom reference: source column and line as prefix sums of the advance flags.
uint32_t zoom_sample(uint32_t format, uint32_t img, uint32_t c, uint32_t r, uint32_t ch) {
  const uint32_t W = param(img, VEK_PARAM_WIDTH);
  c = std::min(c, W - 1);
  const uint8_t* line = pixels(img) + size_t(r) * param(img, VEK_PARAM_BYTES_PER_LINE);
  if (format == VEK_Y16) {
    uint16_t v;
    std::memcpy(&v, line + 2 * c, 2);
    return v;
  }
  return line[c * (format == VEK_RGB24 ? 3 : 1) + ch];
}

void expect_zoom(uint32_t format, uint32_t in, uint32_t out, const uint32_t* region, uint32_t OW,
                 uint32_t OH, const std::vector<uint16_t>& xt, const std::vector<uint16_t>& yt) {
  const uint32_t H = param(in, VEK_PARAM_HEIGHT), chs = format == VEK_RGB24 ? 3 : 1;
  const uint32_t op = param(out, VEK_PARAM_BYTES_PER_LINE);
  uint32_t u = region[1];
  for (uint32_t j = 0; j < OH; ++j) {
    if (j) u += yt[2 * VEK_ZOOM_MAX + j - 1] == 1;
    const uint32_t uu = std::min(u, H - 1), ll = std::min(uu + 1, H - 1);
    uint32_t c = region[0];
    for (uint32_t i = 0; i < OW; ++i) {
      if (i) c += xt[2 * VEK_ZOOM_MAX + i - 1] == 1;
      for (uint32_t ch = 0; ch < chs; ++ch) {
        const uint64_t w0 = xt[i], w1 = xt[VEK_ZOOM_MAX + i];
        const uint64_t top = (zoom_sample(format, in, c, uu, ch) * w0 + zoom_sample(format, in, c + 1, uu, ch) * w1) >> 15;
        const uint64_t bot = (zoom_sample(format, in, c, ll, ch) * w0 + zoom_sample(format, in, c + 1, ll, ch) * w1) >> 15;
        const uint64_t want = (top * yt[j] + bot * yt[VEK_ZOOM_MAX + j]) >> 15;
        uint32_t got;
        if (format == VEK_Y16) {
          uint16_t v;
          std::memcpy(&v, pixels(out) + j * op + 2 * i, 2);
          got = v;
        } else {
          got = pixels(out)[j * op + i * chs + ch];
        }
        ASSERT_EQ(got, want) << "format " << format << " at " << i << "," << j;
      }
    }
  }
}

TEST(GeometryZoom, InterpolatesWithTheTablesAsGiven) {
  vektest::ErrorRecorder rec;
  std::mt19937 rng(3);
  for (uint32_t format : {VEK_Y8, VEK_PALETTED, VEK_RGB24, VEK_Y16}) {
    for (int trial = 0; trial < 4; ++trial) {
      const uint32_t W = 12 + rng() % 10, H = 9 + rng() % 6;
      const uint32_t in = keep(vektest::make_image(format, W, H));
      vektest::fill_random(in, trial + format);
      const uint32_t region[4] = {uint32_t(rng() % 5), uint32_t(rng() % 4), 3 + uint32_t(rng() % 6),
                                  2 + uint32_t(rng() % 5)};
      const uint32_t OW = region[2] + 1 + rng() % 20, OH = region[3] + 1 + rng() % 15;
      auto xt = table(), yt = table();
      const uint32_t out = keep(VEK_image_create());
      ASSERT_EQ(VEK_IP_bilinear_zoom(in, out, region, OW, OH, xt.data(), yt.data(), 3), 0u);
      ASSERT_EQ(xt[0] + xt[VEK_ZOOM_MAX], 32768);  // set up on the way
      ASSERT_EQ(param(out, VEK_PARAM_WIDTH), OW);
      ASSERT_EQ(param(out, VEK_PARAM_HEIGHT), OH);
      expect_zoom(format, in, out, region, OW, OH, xt, yt);
      // Tables for a larger output are ready and used unchanged for a smaller one.
      const auto x_before = xt;
      ASSERT_EQ(VEK_IP_bilinear_zoom(in, out, region, OW - 1, OH, xt.data(), yt.data(), 3), 0u);
      ASSERT_EQ(xt, x_before);
      expect_zoom(format, in, out, region, OW - 1, OH, xt, yt);
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(GeometryZoom, SameSizeIsACropAndOddFormatsAreRefused) {
  vektest::ErrorRecorder rec;
  const uint32_t in = keep(vektest::make_image(VEK_RGB24, 10, 8));
  vektest::fill_random(in, 4);
  auto xt = table(), yt = table();
  const uint32_t region[4] = {2, 3, 5, 4};
  const uint32_t out = keep(VEK_image_create()), crop = keep(VEK_image_create());
  ASSERT_EQ(VEK_IP_bilinear_zoom(in, out, region, 5, 4, xt.data(), yt.data(), 3), 0u);
  ASSERT_EQ(VEK_IP_Crop_Image(in, crop, region), 0u);
  EXPECT_EQ(param(out, VEK_PARAM_WIDTH), 5u);
  EXPECT_EQ(0, std::memcmp(pixels(out), pixels(crop), param(crop, VEK_PARAM_BYTES_PER_STRIP)));
  EXPECT_EQ(rec.count(), 0u);
  const uint32_t bgr = keep(vektest::make_image(VEK_BGR24, 10, 8));
  EXPECT_EQ(VEK_IP_bilinear_zoom(bgr, out, region, 9, 9, xt.data(), yt.data(), 3), 0x10070008u);
  EXPECT_TRUE(rec.only("VEK_IP_bilinear_zoom", 0x10070008u, "Unsupported image format"));
}

}  // namespace
