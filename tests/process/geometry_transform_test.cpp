// Mirror, rotation, circular extraction and pixel replication against references
// written from the pixel mappings, in one strip and streamed through several.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "process/geometry_support.h"
#include "support/recorder.h"
#include "vek.h"

using namespace geomtest;

namespace {

// Streams the whole image `full` through an image held as strips of `strip` lines,
// calling op(strip image) once per strip; returns the output's strips' lines packed
// at the output's pitch.
std::vector<uint8_t> stream(uint32_t full, uint32_t strip, uint32_t out,
                            const std::function<uint32_t(uint32_t)>& op) {
  const uint32_t W = param(full, VEK_PARAM_WIDTH), H = param(full, VEK_PARAM_HEIGHT);
  const uint32_t in = keep(vektest::make_image(param(full, VEK_PARAM_FORMAT), W, H, strip));
  const uint32_t pitch = param(full, VEK_PARAM_BYTES_PER_LINE);
  std::vector<uint8_t> result;
  for (uint32_t done = 0; done < H; done += strip) {
    const uint32_t lines = std::min(strip, H - done);
    std::memcpy(pixels(in), pixels(full) + size_t(done) * pitch, size_t(lines) * pitch);
    EXPECT_EQ(op(in), 0u);
    const size_t n = size_t(param(out, VEK_PARAM_STRIP_LINES)) * param(out, VEK_PARAM_BYTES_PER_LINE);
    result.insert(result.end(), pixels(out), pixels(out) + n);
  }
  EXPECT_EQ(param(in, VEK_PARAM_STRIP_LINES), H - (H - 1) / strip * strip);  // last strip trimmed
  return result;
}

TEST(GeometryMirror, ReversesPixelsOfEverySizeAndKeepsYuvChromaPerPair) {
  vektest::ErrorRecorder rec;
  const uint32_t formats[] = {VEK_Y8,     VEK_PALETTED, VEK_RGB8,   VEK_RGB15,  VEK_RGB16,
                              VEK_RGB24,  VEK_BGR24,    VEK_RGBX32, VEK_BGRX32, VEK_XBGR32,
                              VEK_YUV422, VEK_CMYK32,   VEK_Y16,    VEK_XRGB32};
  for (uint32_t format : formats) {
    for (uint32_t W : {1u, 2u, 5u, 8u, 17u}) {
      if (format == VEK_YUV422 && W % 2) continue;
      const uint32_t in = keep(vektest::make_image(format, W, 5, 0, W % 3 ? 2 : 4));
      vektest::fill_random(in, W * 31 + format);
      const uint32_t out = keep(VEK_image_create());
      ASSERT_EQ(VEK_IP_mirror_image(in, out, VEK_STRIP_NEXT), 0u);
      ASSERT_EQ(param(out, VEK_PARAM_WIDTH), W);
      for (uint32_t r = 0; r < 5; ++r)
        for (uint32_t c = 0; c < W; ++c) {
          if (format == VEK_YUV422) {
            const uint8_t* o = at(out, c, r);
            ASSERT_EQ(o[0], at(in, W - 1 - c, r)[0]);  // Y of the mirrored pixel
            const uint32_t pair = c / 2, src_pair = W / 2 - 1 - pair;
            ASSERT_EQ(o[1], at(in, 2 * src_pair + c % 2, r)[1]);  // U / V of the mirrored pair
          } else {
            ASSERT_EQ(0, std::memcmp(at(out, c, r), at(in, W - 1 - c, r), bpp(format)))
                << format << " W " << W << " at " << c << "," << r;
          }
        }
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(GeometryMirror, YuvMirroredTwiceIsRestoredExactly) {
  vektest::ErrorRecorder rec;
  for (uint32_t W : {2u, 6u, 64u, 98u}) {
    const uint32_t in = keep(vektest::make_image(VEK_YUV422, W, 7, 0, 8));
    vektest::fill_random(in, W);
    const uint32_t once = keep(VEK_image_create()), twice = keep(VEK_image_create());
    ASSERT_EQ(VEK_IP_mirror_image(in, once, VEK_STRIP_NEXT), 0u);
    ASSERT_EQ(VEK_IP_mirror_image(once, twice, VEK_STRIP_NEXT), 0u);
    for (uint32_t r = 0; r < 7; ++r) ASSERT_EQ(0, std::memcmp(at(in, 0, r), at(twice, 0, r), 2 * W));
  }
}

TEST(GeometryMirror, StreamedStripsMatchOneStripAndUnsupportedFormatIsRefused) {
  vektest::ErrorRecorder rec;
  const uint32_t full = keep(vektest::make_image(VEK_RGB24, 11, 23));
  vektest::fill_random(full, 9);
  const uint32_t whole = keep(VEK_image_create()), out = keep(VEK_image_create());
  ASSERT_EQ(VEK_IP_mirror_image(full, whole, VEK_STRIP_NEXT), 0u);
  const auto streamed = stream(full, 5, out, [&](uint32_t in) { return VEK_IP_mirror_image(in, out, 3); });
  ASSERT_EQ(streamed.size(), size_t(23) * param(whole, VEK_PARAM_BYTES_PER_LINE));
  EXPECT_EQ(0, std::memcmp(streamed.data(), pixels(whole), streamed.size()));
  EXPECT_EQ(rec.count(), 0u);

  const uint32_t y1 = keep(VEK_image_create());
  VEK_image_set_parameter(y1, VEK_PARAM_FORMAT, VEK_Y1);
  VEK_image_set_parameter(y1, VEK_PARAM_WIDTH, 8);
  VEK_image_set_parameter(y1, VEK_PARAM_HEIGHT, 8);
  EXPECT_EQ(VEK_IP_mirror_image(y1, out, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_IP_mirror_image", VEK_ERROR_NOT_SUPPORTED, "Unsupported image format"));
}

TEST(GeometryRotate, EveryAngleAndPixelSizeFollowsTheMapping) {
  vektest::ErrorRecorder rec;
  for (uint32_t format : {VEK_Y8, VEK_RGB16, VEK_Y16, VEK_RGB24, VEK_BGR24, VEK_CMYK32, VEK_XRGB32}) {
    for (uint32_t angle : {90u, 180u, 270u}) {
      const uint32_t W = 5, H = 3;  // asymmetric, odd: every swap or flip error shows
      const uint32_t in = keep(vektest::make_image(format, W, H));
      vektest::fill_random(in, format * 7 + angle);
      const uint32_t out = keep(VEK_image_create());
      ASSERT_EQ(VEK_IP_rotate_image(in, out, angle), 0u);
      const uint32_t OW = angle == 180 ? W : H, OH = angle == 180 ? H : W;
      ASSERT_EQ(param(out, VEK_PARAM_WIDTH), OW);
      ASSERT_EQ(param(out, VEK_PARAM_HEIGHT), OH);
      ASSERT_EQ(param(out, VEK_PARAM_STRIP_LINES), OH);
      for (uint32_t r = 0; r < OH; ++r)
        for (uint32_t c = 0; c < OW; ++c) {
          const uint32_t sc = angle == 90 ? r : angle == 180 ? W - 1 - c : W - 1 - r;
          const uint32_t sr = angle == 90 ? H - 1 - c : angle == 180 ? H - 1 - r : c;
          ASSERT_EQ(0, std::memcmp(at(out, c, r), at(in, sc, sr), bpp(format)))
              << "format " << format << " angle " << angle << " at " << c << "," << r;
        }
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(GeometryRotate, QuarterTurnIsClockwise) {
  vektest::ErrorRecorder rec;
  // 3 x 2:  a b c / d e f  turned clockwise is  d a / e b / f c.
  const uint32_t in = keep(vektest::make_image(VEK_Y8, 3, 2, 0, 1));
  std::memcpy(pixels(in), "abcdef", 6);
  const uint32_t out = keep(VEK_image_create());
  ASSERT_EQ(VEK_IP_rotate_image(in, out, 90), 0u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(pixels(out)), 6), "daebfc");
  ASSERT_EQ(VEK_IP_rotate_image(in, out, 270), 0u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(pixels(out)), 6), "cfbead");
}

TEST(GeometryRotate, RefusalsAndPassThroughs) {
  const uint32_t in = keep(vektest::make_image(VEK_Y8, 6, 4));
  vektest::fill_random(in, 1);
  const uint32_t out = keep(VEK_image_create());
  {
    vektest::ErrorRecorder rec;
    EXPECT_EQ(VEK_IP_rotate_image(in, out, 45), VEK_ERROR_NOT_SUPPORTED);
    EXPECT_TRUE(rec.only("VEK_IP_rotate_image", VEK_ERROR_NOT_SUPPORTED,
                         "Only angles of 0, 90, 180 and 270 supported"));
  }
  {
    vektest::ErrorRecorder rec;
    ASSERT_EQ(VEK_IP_rotate_image(in, out, 0), 0u);  // angle 0 is a copy
    EXPECT_EQ(0, std::memcmp(pixels(in), pixels(out), 6 * 4));
    EXPECT_EQ(rec.count(), 0u);
  }
  {
    vektest::ErrorRecorder rec;
    const uint32_t yuv = keep(vektest::make_image(VEK_YUV422, 4, 4));
    EXPECT_EQ(VEK_IP_rotate_image(yuv, out, 90), 0x10070001u);
    EXPECT_TRUE(rec.only("VEK_IP_rotate_image_1_strip", 0x10070001u,
                         "Unsupported image type (convert to non-YUV first)"));
  }
  {
    vektest::ErrorRecorder rec;
    const uint32_t strips = keep(vektest::make_image(VEK_Y8, 6, 10, 4));
    EXPECT_EQ(VEK_IP_rotate_image(strips, out, 90), VEK_ERROR_NOT_SUPPORTED);
    EXPECT_TRUE(rec.only("VEK_IP_rotate_image", VEK_ERROR_NOT_SUPPORTED,
                         "This function only supports full height images - not multiple strips"));
    // A full-height image still rotates after the refused strip.
    EXPECT_EQ(VEK_IP_rotate_image(in, out, 180), 0u);
  }
}

// The circle predicate, written from its description: unsigned bounds, float disc.
bool kept(uint32_t c, uint32_t line, uint32_t cx, uint32_t cy, uint32_t r) {
  if (line < cy - r || line >= cy + r || c < cx - r || c >= cx + r) return false;
  const float dx = (float(c) - float(cx)) / float(r), dy = (float(line) - float(cy)) / float(r);
  return dx * dx + dy * dy < 1.0f;
}

TEST(GeometryExtract, PacksThePairsInsideTheCircle) {
  vektest::ErrorRecorder rec;
  const struct {
    uint32_t cx, cy, r;
  } circles[] = {{10, 8, 5}, {7, 7, 7}, {20, 10, 3}, {31, 15, 16}, {0, 20, 30}};
  for (const auto& k : circles) {
    const uint32_t W = 32, H = 24;
    const uint32_t in = keep(vektest::make_image(VEK_YUV422, W, H));
    vektest::fill_random(in, k.r);
    const uint32_t out = keep(VEK_image_create());
    ASSERT_EQ(VEK_IP_extract_region(in, out, 0xDEAD, k.cx, k.cy, k.r, VEK_STRIP_NEXT), 0u);
    std::vector<uint8_t> expect;
    for (uint32_t line = 0; line < H; ++line)
      for (uint32_t c = 0; c + 1 < W; c += 2)
        if (kept(c, line, k.cx, k.cy, k.r)) expect.insert(expect.end(), at(in, c, line), at(in, c, line) + 4);
    ASSERT_EQ(param(out, VEK_PARAM_WIDTH), expect.size() / 2);
    EXPECT_EQ(param(out, VEK_PARAM_HEIGHT), 1u);
    EXPECT_EQ(param(out, VEK_PARAM_STRIP_LINES), 1u);
    if (!expect.empty()) {
      EXPECT_EQ(0, std::memcmp(expect.data(), pixels(out), expect.size()));
    }
  }
  // A circle reaching over the top edge keeps nothing (unsigned bounds).
  const uint32_t in = keep(vektest::make_image(VEK_YUV422, 16, 16));
  const uint32_t out = keep(VEK_image_create());
  ASSERT_EQ(VEK_IP_extract_region(in, out, 0, 8, 3, 4, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(out, VEK_PARAM_WIDTH), 0u);
  EXPECT_EQ(param(out, VEK_PARAM_HEIGHT), 1u);
  EXPECT_EQ(rec.count(), 0u);
  const uint32_t grey = keep(vektest::make_image(VEK_Y8, 16, 16));
  EXPECT_EQ(VEK_IP_extract_region(grey, out, 0, 8, 8, 4, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_IP_extract_region", VEK_ERROR_NOT_SUPPORTED, "Unsupported image format"));
}

TEST(GeometryPixelRep, ReplicatesPixelsAndLinesInEveryStrip) {
  vektest::ErrorRecorder rec;
  for (uint32_t format : {VEK_Y8, VEK_PALETTED, VEK_RGB15, VEK_RGB16, VEK_RGB24, VEK_YUV422}) {
    for (uint32_t f : {1u, 2u, 3u}) {
      const uint32_t W = 6, H = 7;
      const uint32_t full = keep(vektest::make_image(format, W, H));
      vektest::fill_random(full, format * 5 + f);
      const uint32_t out = keep(VEK_image_create());
      const auto got = stream(full, 3, out, [&](uint32_t in) { return VEK_IP_pixel_rep(in, out, f, 3); });
      ASSERT_EQ(param(out, VEK_PARAM_WIDTH), W * f);
      ASSERT_EQ(param(out, VEK_PARAM_HEIGHT), H * f);
      const uint32_t op = param(out, VEK_PARAM_BYTES_PER_LINE), b = bpp(format);
      ASSERT_EQ(got.size(), size_t(op) * H * f);
      for (uint32_t r = 0; r < H * f; ++r)
        for (uint32_t c = 0; c < W * f; ++c) {
          const uint8_t* o = &got[size_t(r) * op + size_t(c) * b];
          if (format == VEK_YUV422) {
            ASSERT_EQ(o[0], at(full, c / f, r / f)[0]);
            const uint32_t in_pair = (c / 2) / f;  // output pair q comes from input pair q / f
            ASSERT_EQ(o[1], at(full, 2 * in_pair + c % 2, r / f)[1]);
          } else {
            ASSERT_EQ(0, std::memcmp(o, at(full, c / f, r / f), b)) << format << " f " << f;
          }
        }
    }
  }
  EXPECT_EQ(rec.count(), 0u);
  const uint32_t in = keep(vektest::make_image(VEK_BGR24, 4, 4));
  const uint32_t out = keep(VEK_image_create());
  EXPECT_EQ(VEK_IP_pixel_rep(in, out, 2, 3), 0x10070008u);
  EXPECT_TRUE(rec.only("VEK_IP_pixel_rep", 0x10070008u, "Unsupported image format"));
  const uint32_t grey = keep(vektest::make_image(VEK_Y8, 4, 4));
  EXPECT_TRUE(VEK_IS_ERROR(VEK_IP_pixel_rep(grey, out, 0, 3)));
  EXPECT_TRUE(VEK_IS_ERROR(VEK_IP_pixel_rep(grey, out, 20000, 3)));
}

TEST(GeometrySequence, EndModeResetsAndOtherModesDoNothing) {
  vektest::ErrorRecorder rec;
  const uint32_t in = keep(vektest::make_image(VEK_Y8, 8, 10, 4));
  const uint32_t out = keep(VEK_image_create());
  ASSERT_EQ(VEK_IP_mirror_image(in, out, 3), 0u);  // lines 0..3: sequence in progress
  EXPECT_EQ(VEK_IP_mirror_image(in, out, 7), 0u);  // ignored
  ASSERT_EQ(VEK_IP_mirror_image(in, out, 4), 0u);  // ended early
  // Had the end not reset the count, the second call below would be the last strip
  // and trim the input to 2 lines.
  ASSERT_EQ(VEK_IP_mirror_image(in, out, 3), 0u);
  ASSERT_EQ(VEK_IP_mirror_image(in, out, 3), 0u);
  EXPECT_EQ(param(in, VEK_PARAM_STRIP_LINES), 4u);
  ASSERT_EQ(VEK_IP_mirror_image(in, out, 3), 0u);
  EXPECT_EQ(param(in, VEK_PARAM_STRIP_LINES), 2u);
  EXPECT_EQ(param(out, VEK_PARAM_STRIP_LINES), 2u);
  EXPECT_EQ(rec.count(), 0u);
}

}  // namespace
