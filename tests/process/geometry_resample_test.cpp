// Sub-sampling by picking and by binning against references written per sample.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "process/geometry_support.h"
#include "support/recorder.h"
#include "vek.h"

using namespace geomtest;

namespace {

uint8_t byte_at(uint32_t img, uint32_t c, uint32_t r, uint32_t b) {
  return pixels(img)[size_t(r) * param(img, VEK_PARAM_BYTES_PER_LINE) + size_t(c) * bpp(param(img, VEK_PARAM_FORMAT)) + b];
}

const uint32_t kFormats[] = {VEK_Y8,     VEK_PALETTED, VEK_RGB24,  VEK_RGBX32,
                             VEK_BGRX32, VEK_XBGR32,   VEK_XRGB32, VEK_YUV422};

TEST(GeometrySubsample, OutputSizeIsEvenWidthAndWholeLines) {
  vektest::ErrorRecorder rec;
  const uint32_t in = keep(vektest::make_image(VEK_Y8, 101, 40));
  const uint32_t out = keep(VEK_image_create());
  const struct {
    uint32_t f, w, h;
  } cases[] = {{2, 50, 20}, {3, 32, 13}, {7, 14, 5}};
  for (const auto& c : cases) {
    ASSERT_EQ(VEK_IP_subsample(in, out, c.f), 0u);
    EXPECT_EQ(param(out, VEK_PARAM_WIDTH), c.w);
    EXPECT_EQ(param(out, VEK_PARAM_HEIGHT), c.h);
    EXPECT_EQ(param(out, VEK_PARAM_STRIP_LINES), c.h);
    ASSERT_EQ(VEK_IP_Subsample_by_Binning(in, out, c.f), 0u);
    EXPECT_EQ(param(out, VEK_PARAM_WIDTH), c.w);
    EXPECT_EQ(param(out, VEK_PARAM_HEIGHT), c.h);
  }
  ASSERT_EQ(VEK_IP_subsample(in, out, 1), 0u);  // factor 1 is a copy, odd width included
  EXPECT_EQ(param(out, VEK_PARAM_WIDTH), 101u);
  EXPECT_EQ(rec.count(), 0u);
}

TEST(GeometrySubsample, PicksEveryFactorthPixel) {
  vektest::ErrorRecorder rec;
  for (uint32_t format : kFormats) {
    for (uint32_t f : {2u, 3u, 4u}) {
      const uint32_t W = 27, H = 14;
      const uint32_t in = keep(vektest::make_image(format, W, H, 0, 4));
      vektest::fill_random(in, format * 3 + f);
      const uint32_t out = keep(VEK_image_create());
      ASSERT_EQ(VEK_IP_subsample(in, out, f), 0u);
      const uint32_t OW = (W / f) & ~1u, OH = H / f;
      for (uint32_t r = 0; r < OH; ++r)
        for (uint32_t c = 0; c < OW; ++c) {
          if (format == VEK_YUV422) {
            const uint32_t k = c / 2, first = 2 * f * k;
            // Y from pixel 2fk or 2fk + f; U and V from the pair opened by pixel 2fk.
            ASSERT_EQ(byte_at(out, c, r, 0), byte_at(in, c % 2 ? first + f : first, f * r, 0));
            ASSERT_EQ(byte_at(out, c, r, 1), byte_at(in, first + c % 2, f * r, 1));
          } else {
            for (uint32_t b = 0; b < bpp(format); ++b)
              ASSERT_EQ(byte_at(out, c, r, b), byte_at(in, f * c, f * r, b)) << format << " f " << f;
          }
        }
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(GeometryBinning, AveragesBlocksPerChannelWithTruncation) {
  vektest::ErrorRecorder rec;
  for (uint32_t format : kFormats) {
    for (uint32_t f : {2u, 3u, 5u}) {
      const uint32_t W = 31, H = 16;
      const uint32_t in = keep(vektest::make_image(format, W, H));
      vektest::fill_random(in, format * 11 + f);
      const uint32_t out = keep(VEK_image_create());
      ASSERT_EQ(VEK_IP_Subsample_by_Binning(in, out, f), 0u);
      const uint32_t OW = (W / f) & ~1u, OH = H / f;
      for (uint32_t r = 0; r < OH; ++r) {
        if (format == VEK_YUV422) {
          for (uint32_t k = 0; k < OW / 2; ++k)
            for (uint32_t b = 0; b < 4; ++b) {
              uint32_t sum = 0;  // byte b of f pairs across and f lines down
              for (uint32_t dy = 0; dy < f; ++dy)
                for (uint32_t dx = 0; dx < f; ++dx)
                  sum += byte_at(in, 2 * (f * k + dx) + b / 2, f * r + dy, b % 2);
              ASSERT_EQ(byte_at(out, 2 * k + b / 2, r, b % 2), sum / (f * f)) << "f " << f;
            }
          continue;
        }
        const uint32_t first = format == VEK_XBGR32 || format == VEK_XRGB32 ? 1 : 0;
        const uint32_t colours = bpp(format) == 1 ? 1 : 3;
        for (uint32_t c = 0; c < OW; ++c)
          for (uint32_t b = first; b < first + colours; ++b) {
            uint32_t sum = 0;
            for (uint32_t dy = 0; dy < f; ++dy)
              for (uint32_t dx = 0; dx < f; ++dx) sum += byte_at(in, f * c + dx, f * r + dy, b);
            ASSERT_EQ(byte_at(out, c, r, b), sum / (f * f)) << format << " f " << f;
          }
      }
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

// The spare byte of the 4-byte formats is not part of the mean and stays as the
// output buffer had it, on the halving fast path as on the general one.
TEST(GeometryBinning, SpareByteOfFourByteFormatsIsNotWritten) {
  vektest::ErrorRecorder rec;
  for (uint32_t format : {VEK_RGBX32, VEK_BGRX32, VEK_XBGR32, VEK_XRGB32}) {
    const uint32_t spare = format == VEK_XBGR32 || format == VEK_XRGB32 ? 0 : 3;
    for (uint32_t f : {2u, 3u}) {
      const uint32_t W = 13, H = 9, OW = (W / f) & ~1u, OH = H / f;
      const uint32_t in = keep(vektest::make_image(format, W, H));
      vektest::fill_random(in, f + format);
      const uint32_t out = keep(vektest::make_image(format, OW, OH));
      std::memset(pixels(out), 0xEE, size_t(param(out, VEK_PARAM_BYTES_PER_LINE)) * OH);
      VEK_image_set_flags(out, VEK_FLAG_LOCKED, 1);
      ASSERT_EQ(VEK_IP_Subsample_by_Binning(in, out, f), 0u);
      for (uint32_t r = 0; r < OH; ++r)
        for (uint32_t c = 0; c < OW; ++c) {
          ASSERT_EQ(byte_at(out, c, r, spare), 0xEE) << format << " f " << f;
          uint32_t sum = 0;  // one colour byte as a spot check of the mean
          for (uint32_t dy = 0; dy < f; ++dy)
            for (uint32_t dx = 0; dx < f; ++dx) sum += byte_at(in, f * c + dx, f * r + dy, 2);
          ASSERT_EQ(byte_at(out, c, r, 2), sum / (f * f));
        }
      VEK_image_set_flags(out, VEK_FLAG_LOCKED, 0);
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(GeometrySubsample, RefusalsAndTheKeptLockFlag) {
  const uint32_t out = keep(VEK_image_create());
  for (auto fn : {VEK_IP_subsample, VEK_IP_Subsample_by_Binning}) {
    vektest::ErrorRecorder rec;
    const uint32_t in = keep(vektest::make_image(VEK_RGB16, 8, 8));
    EXPECT_EQ(fn(in, out, 2), 0x10070006u);
    EXPECT_EQ(rec.last().message, "Unsupported image format");
    const uint32_t grey = keep(vektest::make_image(VEK_Y8, 8, 8));
    EXPECT_EQ(fn(grey, out, 0), VEK_ERROR_NOT_SUPPORTED);
    EXPECT_EQ(rec.last().message, "Unsupported sub-sampling factor");
    // A whole image is read: a buffer holding only part of it is refused.
    const uint32_t part = keep(vektest::make_image(VEK_Y8, 8, 16, 4));
    EXPECT_EQ(fn(part, out, 2), VEK_ERROR_BAD_PARAMETER);
  }
  vektest::ErrorRecorder rec;
  const uint32_t in = keep(vektest::make_image(VEK_Y8, 8, 8));
  VEK_image_set_flags(out, VEK_FLAG_LOCKED, 1);
  ASSERT_EQ(VEK_IP_Subsample(in, out, 2), 0u);
  EXPECT_EQ(VEK_image_get_flags(out, VEK_FLAG_LOCKED), 1u);
  ASSERT_EQ(VEK_IP_Subsample_by_Binning(in, out, 2), 0u);
  EXPECT_EQ(VEK_image_get_flags(out, VEK_FLAG_LOCKED), 1u);
  EXPECT_EQ(rec.count(), 0u);
}

}  // namespace
