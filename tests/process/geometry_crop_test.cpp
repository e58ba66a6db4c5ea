// Crop, insert and region mirror against byte-level references built in the test.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "process/geometry_support.h"
#include "support/recorder.h"
#include "vek.h"

using namespace geomtest;

namespace {

TEST(GeometryCrop, MatchesReferenceAcrossFormatsAndClampsOverflowingRegions) {
  vektest::ErrorRecorder rec;
  const uint32_t formats[] = {VEK_Y8,     VEK_PALETTED, VEK_RGB15,  VEK_RGB16,  VEK_RGB24, VEK_BGR24,
                              VEK_RGBX32, VEK_BGRX32,   VEK_XBGR32, VEK_YUV422, VEK_CMYK32, VEK_Y16};
  std::mt19937 rng(7);
  for (uint32_t format : formats) {
    for (int trial = 0; trial < 6; ++trial) {
      const uint32_t W = 1 + rng() % 40, H = 1 + rng() % 30, align = trial % 2 ? 4 : 2;
      const uint32_t in = keep(vektest::make_image(format, W, H, 0, align));
      vektest::fill_random(in, 100 + trial);
      const uint32_t out = keep(VEK_image_create());
      const uint32_t region[4] = {uint32_t(rng() % W), uint32_t(rng() % H), 1 + uint32_t(rng() % 45),
                                  1 + uint32_t(rng() % 35)};
      ASSERT_EQ(VEK_IP_Crop_Image(in, out, region), 0u) << format;
      const uint32_t w = std::min(region[2], W - region[0]);
      const uint32_t h = std::min(region[3], H - region[1]);
      ASSERT_EQ(param(out, VEK_PARAM_WIDTH), w);
      ASSERT_EQ(param(out, VEK_PARAM_HEIGHT), h);
      ASSERT_EQ(param(out, VEK_PARAM_STRIP_LINES), h);
      ASSERT_EQ(param(out, VEK_PARAM_FORMAT), format);
      const uint32_t b = bpp(format), ip = param(in, VEK_PARAM_BYTES_PER_LINE),
                     op = param(out, VEK_PARAM_BYTES_PER_LINE);
      for (uint32_t r = 0; r < h; ++r)
        ASSERT_EQ(0, std::memcmp(pixels(out) + r * op,
                                 pixels(in) + (region[1] + r) * ip + region[0] * b, w * b))
            << "format " << format << " row " << r;
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(GeometryCrop, TreatsInputAsWholeImageAndKeepsThatOnTheInput) {
  vektest::ErrorRecorder rec;
  // The input's lines per strip above its height comes back down to the height.
  const uint32_t in = keep(vektest::make_image(VEK_Y8, 16, 20));
  vektest::fill_random(in, 3);
  const uint32_t out = keep(VEK_image_create());
  const uint32_t region[4] = {10, 2, 10, 5};
  ASSERT_EQ(VEK_IP_crop(in, out, region, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(out, VEK_PARAM_WIDTH), 6u);  // 16 - 10 columns remain
  EXPECT_EQ(param(in, VEK_PARAM_STRIP_LINES), 20u);
  EXPECT_EQ(rec.count(), 0u);
}

// Regression: cropping an image held as a library-allocated strip of 8 of its 20
// lines raised the input's line count to 20 over the 8-line buffer, so the next copy
// of the input read 12 lines past the allocation. Such an input is now refused
// before anything changes.
TEST(GeometryCrop, ShortStripIsRefusedAndInputLeftTruthful) {
  vektest::ErrorRecorder rec;
  const uint32_t in = keep(vektest::make_image(VEK_Y8, 16, 20, 8));
  const uint32_t out = keep(VEK_image_create()), copy = keep(VEK_image_create());
  const uint32_t region[4] = {0, 0, 4, 4};
  for (uint32_t mode : {VEK_STRIP_NEXT, VEK_STRIP_END}) {
    rec.clear();
    EXPECT_EQ(VEK_IP_crop(in, out, region, mode), VEK_ERROR_NOT_SUPPORTED);
    EXPECT_TRUE(rec.only("VEK_IP_crop", VEK_ERROR_NOT_SUPPORTED,
                         "This function only supports full height images - not multiple strips"));
    EXPECT_EQ(param(in, VEK_PARAM_STRIP_LINES), 8u);
  }
  ASSERT_EQ(VEK_image_copy(in, copy), 0u);  // reads 8 lines (overran under ASan before)

  // A buffer the caller attached is taken at its word for the lines beyond the strip,
  // but the region's rows must lie within the lines it holds.
  std::vector<uint8_t> buffer(16 * 8);
  for (size_t i = 0; i < buffer.size(); ++i) buffer[i] = uint8_t(i);
  const uint32_t ext = keep(vektest::make_image(VEK_Y8, 16, 20, 8));
  VEK_image_free_data(ext);
  VEK_image_set_ptr(ext, VEK_PTR_DATA, buffer.data());
  VEK_image_set_flags(ext, VEK_FLAG_EXTERNAL, 1);
  const uint32_t deep[4] = {0, 6, 4, 4};
  rec.clear();
  EXPECT_EQ(VEK_IP_crop(ext, out, deep, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_EQ(rec.count(), 1u);
  const uint32_t inside[4] = {3, 5, 4, 3};
  ASSERT_EQ(VEK_IP_crop(ext, out, inside, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(ext, VEK_PARAM_STRIP_LINES), 20u);
  for (uint32_t r = 0; r < 3; ++r)
    EXPECT_EQ(0, std::memcmp(at(out, 0, r), &buffer[(5 + r) * 16 + 3], 4)) << r;
}

TEST(GeometryCrop, OtherModesSetParametersOnlyAndRefusalsReport) {
  vektest::ErrorRecorder rec;
  const uint32_t in = keep(vektest::make_image(VEK_RGB24, 9, 7));
  const uint32_t out = keep(VEK_image_create());
  const uint32_t region[4] = {1, 1, 3, 2};
  ASSERT_EQ(VEK_IP_crop(in, out, region, VEK_STRIP_END), 0u);
  EXPECT_EQ(param(out, VEK_PARAM_WIDTH), 3u);
  EXPECT_EQ(param(out, VEK_PARAM_HEIGHT), 2u);
  EXPECT_EQ(pixels(out), nullptr);
  EXPECT_EQ(rec.count(), 0u);

  EXPECT_EQ(VEK_IP_crop(in, out, nullptr, VEK_STRIP_NEXT), VEK_ERROR_BAD_PARAMETER);
  EXPECT_TRUE(rec.only("VEK_IP_crop", VEK_ERROR_BAD_PARAMETER, "Roi pointer is NULL"));
  const uint32_t xrgb = keep(vektest::make_image(VEK_XRGB32, 4, 4));
  rec.clear();
  EXPECT_EQ(VEK_IP_Crop_Image(xrgb, out, region), 0x1007000Fu);  // format code in the low bits
  EXPECT_TRUE(rec.only("VEK_IP_crop", 0x1007000Fu, "Unsupported image format"));
  // Regions starting outside the image, or empty, are refused instead of wrapping.
  const uint32_t bad[3][4] = {{9, 0, 2, 2}, {0, 7, 2, 2}, {0, 0, 0, 2}};
  for (const auto& b : bad) EXPECT_EQ(VEK_IP_Crop_Image(in, out, b), VEK_ERROR_BAD_PARAMETER);
}

TEST(GeometryInsert, BoundsAreTestedInOrderAndRightAlignedInsertSucceeds) {
  const uint32_t target = keep(vektest::make_image(VEK_RGB24, 10, 6));
  const uint32_t small = keep(vektest::make_image(VEK_RGB24, 4, 3));
  const struct {
    uint32_t x, y;
    const char* message;
  } cases[] = {
      {0, 0, "Trying to insert image too far left"},  // left wins over high
      {8, 0, "Trying to insert image too far right"},
      {7, 0, "Trying to insert image too high"},
      {7, 5, "Trying to insert image too low"},
  };
  for (const auto& c : cases) {
    vektest::ErrorRecorder rec;
    EXPECT_EQ(VEK_IP_image_insert(target, small, c.x, c.y), VEK_ERROR_NOT_SUPPORTED);
    EXPECT_TRUE(rec.only("VEK_IP_image_insert", VEK_ERROR_NOT_SUPPORTED, c.message)) << c.message;
  }
  vektest::ErrorRecorder rec;
  EXPECT_EQ(VEK_IP_image_insert(target, small, 7, 4), 0u);  // x = W - w + 1, y = H - h + 1
  const uint32_t grey = keep(vektest::make_image(VEK_Y8, 4, 3));
  EXPECT_EQ(VEK_IP_image_insert(target, grey, 1, 1), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_EQ(rec.last().message, "Pixel Formats are different");
  const uint32_t blank = keep(VEK_image_create());
  EXPECT_EQ(VEK_IP_image_insert(target, blank, 1, 1), 0x10050010u);
  EXPECT_EQ(rec.last().message, "hInsertImage is corrupt");
  EXPECT_EQ(VEK_IP_image_insert(blank, target, 1, 1), 0x10050010u);
  EXPECT_EQ(rec.last().message, "hInImage is corrupt");
}

TEST(GeometryInsert, CopiesOnlyTheInsertedRectangle) {
  vektest::ErrorRecorder rec;
  std::mt19937 rng(11);
  for (uint32_t format : {VEK_Y8, VEK_RGB24, VEK_YUV422, VEK_BGRX32}) {
    for (int trial = 0; trial < 5; ++trial) {
      const uint32_t W = 2 + rng() % 20, H = 1 + rng() % 12;
      const uint32_t w = 1 + rng() % W, h = 1 + rng() % H;
      const uint32_t target = keep(vektest::make_image(format, W, H, 0, 4));
      const uint32_t ins = keep(vektest::make_image(format, w, h));
      vektest::fill_random(target, trial);
      vektest::fill_random(ins, 50 + trial);
      const uint32_t x = 1 + rng() % (W - w + 1), y = 1 + rng() % (H - h + 1);
      const uint32_t tp = param(target, VEK_PARAM_BYTES_PER_LINE);
      std::vector<uint8_t> expect(pixels(target), pixels(target) + tp * H);
      const uint32_t b = bpp(format), ip = param(ins, VEK_PARAM_BYTES_PER_LINE);
      for (uint32_t r = 0; r < h; ++r)
        std::memcpy(&expect[(y - 1 + r) * tp + (x - 1) * b], pixels(ins) + r * ip, w * b);
      ASSERT_EQ(VEK_IP_image_insert(target, ins, x, y), 0u);
      ASSERT_EQ(0, std::memcmp(expect.data(), pixels(target), expect.size())) << format;
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(GeometryMirrorRegion, MirrorsOnlyTheRegion) {
  vektest::ErrorRecorder rec;
  std::mt19937 rng(5);
  for (uint32_t format : {VEK_Y8, VEK_RGB16, VEK_BGR24, VEK_CMYK32}) {
    const uint32_t W = 13, H = 9;
    const uint32_t in = keep(vektest::make_image(format, W, H));
    vektest::fill_random(in, format);
    const uint32_t out = keep(VEK_image_create());
    const uint32_t region[4] = {2 + uint32_t(rng() % 3), 1, 6, 5};
    ASSERT_EQ(VEK_IP_mirror(in, out, region, VEK_STRIP_NEXT), 0u);
    const uint32_t p = param(in, VEK_PARAM_BYTES_PER_LINE), b = bpp(format);
    for (uint32_t r = 0; r < H; ++r)
      for (uint32_t c = 0; c < W; ++c) {
        const bool inside = r >= region[1] && r < region[1] + region[3] && c >= region[0] &&
                            c < region[0] + region[2];
        const uint32_t sc = inside ? region[0] + region[2] - 1 - (c - region[0]) : c;
        ASSERT_EQ(0, std::memcmp(pixels(out) + r * p + c * b, pixels(in) + r * p + sc * b, b))
            << format << " at " << c << "," << r;
      }
  }
  EXPECT_EQ(rec.count(), 0u);
  EXPECT_EQ(VEK_IP_mirror(1, 2, nullptr, VEK_STRIP_NEXT), VEK_ERROR_BAD_PARAMETER);
}

}  // namespace
