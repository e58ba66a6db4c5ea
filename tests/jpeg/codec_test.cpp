// Encoder and decoder against the plain reference codec: exact bytes and exact pixels
// over random and photo-like pictures, every accepted source layout, padded sizes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "core/alloc.h"
#include "jpeg/internal.h"
#include "reference.h"
#include "support/recorder.h"
#include "vek.h"

namespace {

uint8_t* pixels(uint32_t h) { return static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA)); }
uint32_t param(uint32_t h, uint32_t id) { return VEK_image_get_parameter(h, id); }
Tjpeg* desc(uint32_t h) { return static_cast<Tjpeg*>(VEK_image_get_ptr(h, VEK_PTR_JPEG)); }

// Smooth shading with edges and a little noise, so that blocks carry real AC energy.
void fill_photo(uint32_t h, uint32_t seed) {
  std::mt19937 rng(seed);
  const uint32_t w = param(h, VEK_PARAM_WIDTH), ht = param(h, VEK_PARAM_HEIGHT);
  const uint32_t pitch = param(h, VEK_PARAM_BYTES_PER_LINE);
  const uint32_t bpp = (param(h, VEK_PARAM_DEPTH) + 1) / 8;
  for (uint32_t y = 0; y < ht; ++y)
    for (uint32_t x = 0; x < w * bpp; ++x) {
      const double c = double(x % bpp + 1);
      double v = 128 + 70 * std::sin(x / (9.0 * c) + y / 23.0) + 40 * std::cos(y / (7.0 + c));
      if ((x / bpp / 24 + y / 16) % 3 == 0) v = 255 - v;
      v += int(rng() % 15) - 7;
      pixels(h)[size_t(y) * pitch + x] = uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
    }
}

int clamp255(int v) { return v < 0 ? 0 : v > 255 ? 255 : v; }

// The reference planes of a source image: padded by repeating the last pixel and line,
// colour turned into 4:2:2 by the encoder's own formulas (BGR) or the conversion's (RGB).
ref::Planes planes_of(uint32_t h) {
  const uint32_t fmt = param(h, VEK_PARAM_FORMAT);
  const int w = int(param(h, VEK_PARAM_WIDTH)), ht = int(param(h, VEK_PARAM_HEIGHT));
  const uint32_t pitch = param(h, VEK_PARAM_BYTES_PER_LINE);
  const uint8_t* d = pixels(h);
  ref::Planes p;
  p.colour = fmt != VEK_Y8;
  p.w = p.colour ? (w + 15) / 16 * 16 : (w + 7) / 8 * 8;
  p.h = (ht + 7) / 8 * 8;
  p.y.resize(size_t(p.w) * p.h);
  if (p.colour) p.u.resize(size_t(p.w / 2) * p.h), p.v.resize(size_t(p.w / 2) * p.h);
  for (int y = 0; y < p.h; ++y) {
    const uint8_t* line = d + size_t(std::min(y, ht - 1)) * pitch;
    auto rgb = [&](int x, int& r, int& g, int& b) {
      x = std::min(x, w - 1);
      switch (fmt) {
        case VEK_RGB24: r = line[3 * x], g = line[3 * x + 1], b = line[3 * x + 2]; break;
        case VEK_BGR24: b = line[3 * x], g = line[3 * x + 1], r = line[3 * x + 2]; break;
        case VEK_RGBX32: r = line[4 * x], g = line[4 * x + 1], b = line[4 * x + 2]; break;
        case VEK_BGRX32: b = line[4 * x], g = line[4 * x + 1], r = line[4 * x + 2]; break;
        default: b = line[4 * x + 1], g = line[4 * x + 2], r = line[4 * x + 3]; break;  // XBGR32
      }
    };
    for (int x = 0; x < p.w; x += p.colour ? 2 : 1) {
      if (!p.colour) {
        p.y[size_t(y) * p.w + x] = line[std::min(x, w - 1)];
        continue;
      }
      int y0, y1, u, v;
      if (fmt == VEK_YUV422) {
        const int px = std::min(x, w - 1), qx = std::min(x + 1, w - 1);
        // A padded pair repeats the last pixel, its chroma included.
        const uint8_t* pair = line + (px / 2) * 4;
        y0 = x < w ? pair[0] : line[((w - 1) / 2) * 4 + 2];
        y1 = x + 1 < w ? line[(qx / 2) * 4 + 2] : line[((w - 1) / 2) * 4 + 2];
        u = pair[1], v = pair[3];
      } else {
        int r0, g0, b0, r1, g1, b1;
        rgb(x, r0, g0, b0);
        rgb(x + 1, r1, g1, b1);
        if (fmt == VEK_BGR24 || fmt == VEK_BGRX32) {
          y0 = (306 * r0 + 601 * g0 + 117 * b0) >> 10;
          y1 = (306 * r1 + 601 * g1 + 117 * b1) >> 10;
          u = ((512 * (b0 + b1) - 339 * (g0 + g1) - 173 * (r0 + r1)) >> 11) + 128;
          v = ((512 * (r0 + r1) - 429 * (g0 + g1) - 83 * (b0 + b1)) >> 11) + 128;
        } else {
          y0 = std::min((306 * r0 + 601 * g0 + 117 * b0) >> 10, 255);
          y1 = std::min((306 * r1 + 601 * g1 + 117 * b1) >> 10, 255);
          const int u0 = clamp255(((512 * b0 - 339 * g0 - 173 * r0) >> 10) + 128);
          const int u1 = clamp255(((512 * b1 - 339 * g1 - 173 * r1) >> 10) + 128);
          const int v0 = clamp255(((512 * r0 - 429 * g0 - 83 * b0) >> 10) + 128);
          const int v1 = clamp255(((512 * r1 - 429 * g1 - 83 * b1) >> 10) + 128);
          u = (u0 + u1) >> 1, v = (v0 + v1) >> 1;
        }
      }
      p.y[size_t(y) * p.w + x] = y0;
      p.y[size_t(y) * p.w + x + 1] = y1;
      p.u[size_t(y) * (p.w / 2) + x / 2] = u;
      p.v[size_t(y) * (p.w / 2) + x / 2] = v;
    }
  }
  return p;
}

std::vector<uint8_t> data_of(uint32_t jpeg) {
  const Tjpeg* j = desc(jpeg);
  return std::vector<uint8_t>(j->data, j->data + j->data_length);
}

struct Case {
  uint32_t format, width, height, quality;
  bool photo;
};

TEST(JpegEncoder, StreamsEqualTheReferenceForEveryLayoutAndPaddedSize) {
  const Case cases[] = {
      {VEK_Y8, 642, 482, 32, true},    {VEK_Y8, 17, 9, 32, false},      {VEK_Y8, 64, 64, 1, false},
      {VEK_Y8, 40, 24, 400, false},    {VEK_YUV422, 642, 482, 32, true}, {VEK_YUV422, 640, 480, 100, true},
      {VEK_YUV422, 34, 13, 16, false}, {VEK_BGR24, 642, 482, 32, true},  {VEK_BGR24, 33, 17, 250, false},
      {VEK_BGRX32, 96, 40, 32, true},  {VEK_BGRX32, 31, 8, 7, false},    {VEK_RGB24, 98, 30, 32, true},
      {VEK_RGBX32, 48, 16, 60, false}, {VEK_XBGR32, 50, 22, 32, true},
  };
  uint32_t seed = 1;
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "format " << c.format << " " << c.width << "x" << c.height
                                    << " F=" << c.quality);
    const uint32_t src = vektest::make_image(c.format, c.width, c.height);
    if (c.photo) fill_photo(src, seed++);
    else vektest::fill_random(src, seed++);
    const uint32_t jpg = VEK_JPEG_image_create();
    ASSERT_EQ(VEK_JPEG_set_Quality_factor(jpg, c.quality), 0u);
    ASSERT_EQ(VEK_JPEG_compress(src, jpg), 0u);
    const std::vector<uint8_t> expected = ref::encode(planes_of(src), int(c.quality));
    const std::vector<uint8_t> got = data_of(jpg);
    ASSERT_EQ(got.size(), expected.size());
    EXPECT_TRUE(got == expected);
    // EOI follows the data; the header records the true size.
    EXPECT_EQ(desc(jpg)->data[got.size()], 0xFF);
    EXPECT_EQ(desc(jpg)->data[got.size() + 1], 0xD9);
    EXPECT_EQ(param(jpg, VEK_PARAM_WIDTH), c.width);
    EXPECT_EQ(param(jpg, VEK_PARAM_HEIGHT), c.height);
    EXPECT_EQ(param(jpg, VEK_PARAM_FORMAT), c.format == VEK_Y8 ? uint32_t(VEK_Y8) : uint32_t(VEK_YUV422));
    EXPECT_EQ(VEK_image_get_flags(jpg, VEK_FLAG_JPEG), 1u);
    VEK_image_destroy(src);
    VEK_image_destroy(jpg);
  }
}

TEST(JpegEncoder, EndOfDataRuleAndAllZeroBlocks) {
  // Flat 128: every block is DC category 0 (00) and EOB (1010): 12 bits -> 2 bytes.
  uint32_t src = vektest::make_image(VEK_Y8, 16, 8);
  std::memset(pixels(src), 128, 16 * 8);
  uint32_t jpg = VEK_JPEG_image_create();
  ASSERT_EQ(VEK_JPEG_compress(src, jpg), 0u);
  EXPECT_EQ(data_of(jpg), (std::vector<uint8_t>{0x28, 0xA0}));
  // Flat 129 with the default table: DC difference 1 (010 1) then EOB = exactly 8 bits,
  // which ends in one extra 0x00 byte.
  VEK_image_destroy(src);
  src = vektest::make_image(VEK_Y8, 8, 8);
  std::memset(pixels(src), 129, 64);
  ASSERT_EQ(VEK_JPEG_compress(src, jpg), 0u);
  EXPECT_EQ(data_of(jpg), (std::vector<uint8_t>{0x5A, 0x00}));
  VEK_image_destroy(src);
  VEK_image_destroy(jpg);
}

TEST(JpegEncoder, RefusesIncompleteStripsAndOtherFormats) {
  vektest::ErrorRecorder rec;
  const uint32_t jpg = VEK_JPEG_image_create();
  const uint32_t strip = vektest::make_image(VEK_YUV422, 32, 32, 16);
  EXPECT_EQ(VEK_JPEG_compress(strip, jpg), 0x10070010u);
  EXPECT_TRUE(rec.only("VEK_JPEG_compress", 0x10070010u, "This function only supports a complete image"));
  rec.clear();
  const uint32_t rgb16 = vektest::make_image(VEK_RGB16, 16, 8);
  EXPECT_EQ(VEK_JPEG_compress(rgb16, jpg), 0x10070006u);
  EXPECT_TRUE(rec.only("VEK_JPEG_compress", 0x10070006u, "Unsupported image format"));
  rec.clear();
  EXPECT_EQ(VEK_JPEG_compress_1_strip(rgb16, jpg), 0x10070000u);
  EXPECT_TRUE(rec.only("VEK_JPEG_compress_1_strip", 0x10070000u, "Unsupported image type/pixel format"));
  VEK_image_destroy(VEK_ALL_IMAGES);
}

// Decodes with the library to `format` and returns the destination handle.
uint32_t decode_to(uint32_t jpg, uint32_t format) {
  const uint32_t dst = VEK_image_create();
  VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, format);
  EXPECT_EQ(VEK_JPEG_decompress(jpg, dst), 0u);
  return dst;
}

TEST(JpegDecoder, PixelsEqualTheReferenceDecodeCroppedToTheTrueSize) {
  const Case cases[] = {{VEK_Y8, 642, 482, 32, true},     {VEK_Y8, 23, 11, 400, false},
                        {VEK_YUV422, 642, 482, 32, true}, {VEK_BGRX32, 64, 16, 3, false},
                        {VEK_YUV422, 18, 10, 250, false}};
  uint32_t seed = 50;
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << " F=" << c.quality);
    const uint32_t src = vektest::make_image(c.format, c.width, c.height);
    if (c.photo) fill_photo(src, seed++);
    else vektest::fill_random(src, seed++);
    const uint32_t jpg = VEK_JPEG_image_create();
    VEK_JPEG_set_Quality_factor(jpg, c.quality);
    ASSERT_EQ(VEK_JPEG_compress(src, jpg), 0u);
    const bool colour = c.format != VEK_Y8;
    int qz[2][64];
    for (int t = 0; t < 2; ++t)
      for (int k = 0; k < 64; ++k) qz[t][k] = desc(jpg)->q_table[t][k];
    const int pw = colour ? int(c.width + 15) / 16 * 16 : int(c.width + 7) / 8 * 8;
    const ref::Planes want = ref::decode(data_of(jpg), pw, int(c.height + 7) / 8 * 8, colour, qz);
    const uint32_t dst = decode_to(jpg, colour ? VEK_YUV422 : VEK_Y8);
    ASSERT_EQ(param(dst, VEK_PARAM_WIDTH), c.width);
    ASSERT_EQ(param(dst, VEK_PARAM_HEIGHT), c.height);
    ASSERT_EQ(param(dst, VEK_PARAM_FORMAT), colour ? uint32_t(VEK_YUV422) : uint32_t(VEK_Y8));
    const uint32_t pitch = param(dst, VEK_PARAM_BYTES_PER_LINE);
    int mismatches = 0;
    for (uint32_t y = 0; y < c.height; ++y)
      for (uint32_t x = 0; x < c.width; ++x) {
        const uint8_t* line = pixels(dst) + size_t(y) * pitch;
        if (!colour) {
          mismatches += line[x] != want.y[size_t(y) * pw + x];
          continue;
        }
        mismatches += line[2 * x] != want.y[size_t(y) * pw + x];
        const int* chroma = (x & 1) ? want.v.data() : want.u.data();
        mismatches += line[2 * x + 1] != chroma[size_t(y) * (pw / 2) + x / 2];
      }
    EXPECT_EQ(mismatches, 0);

    if (colour) {
      // The RGB-family destinations are the 4:2:2 result through the colour equations.
      const uint32_t yuv = decode_to(jpg, VEK_YUV422);
      for (uint32_t fmt : {uint32_t(VEK_RGB24), uint32_t(VEK_BGR24), uint32_t(VEK_BGRX32)}) {
        const uint32_t rgb = decode_to(jpg, fmt);
        ASSERT_EQ(param(rgb, VEK_PARAM_FORMAT), fmt);
        const uint32_t bpp = fmt == VEK_BGRX32 ? 4 : 3;
        int bad = 0;
        for (uint32_t y = 0; y < c.height; ++y)
          for (uint32_t x = 0; x < c.width; ++x) {
            const uint8_t* s = pixels(yuv) + size_t(y) * param(yuv, VEK_PARAM_BYTES_PER_LINE) + (x & ~1u) * 2;
            const int Y = s[(x & 1) * 2], U = s[1] - 128, V = s[3] - 128;
            const int r = clamp255((1024 * Y + 1436 * V) >> 10);
            const int g = clamp255((1024 * Y - 731 * V - 352 * U) >> 10);
            const int b = clamp255((1024 * Y + 1815 * U) >> 10);
            const uint8_t* o = pixels(rgb) + size_t(y) * param(rgb, VEK_PARAM_BYTES_PER_LINE) + x * bpp;
            if (fmt == VEK_RGB24) bad += o[0] != r || o[1] != g || o[2] != b;
            else bad += o[0] != b || o[1] != g || o[2] != r;
          }
        EXPECT_EQ(bad, 0) << "format " << fmt;
        VEK_image_destroy(rgb);
      }
      VEK_image_destroy(yuv);
    }
    VEK_image_destroy(dst);
    VEK_image_destroy(jpg);
    VEK_image_destroy(src);
  }
}

// A hand-built one-block grey stream: `ac` AC symbols of run 0, size 1, value 1.
uint32_t crafted_y8(int ac_count, bool eob, int zrl_at_end = 0) {
  ref::Bits b;
  auto dc = ref::codes_of(ref::standard_table(0));
  auto ac = ref::codes_of(ref::standard_table(2));
  b.put(dc[0].first, dc[0].second);
  for (int i = 0; i < ac_count; ++i) {
    b.put(ac[0x01].first, ac[0x01].second);
    b.put(1, 1);
  }
  for (int i = 0; i < zrl_at_end; ++i) b.put(ac[0xF0].first, ac[0xF0].second);
  if (eob) b.put(ac[0].first, ac[0].second);
  const std::vector<uint8_t> bytes = b.bytes();
  const uint32_t jpg = VEK_JPEG_image_create();
  VEK_image_set_parameter(jpg, VEK_PARAM_FORMAT, VEK_Y8);
  VEK_image_set_parameter(jpg, VEK_PARAM_WIDTH, 8);
  VEK_image_set_parameter(jpg, VEK_PARAM_HEIGHT, 8);
  VEK_image_set_parameter(jpg, VEK_PARAM_STRIP_LINES, 8);
  EXPECT_EQ(VEK_JPEG_malloc_N_bytes_data(jpg, uint32_t(bytes.size() + 2)), 0u);
  std::memcpy(desc(jpg)->data, bytes.data(), bytes.size());
  desc(jpg)->data_length = uint32_t(bytes.size());
  VEK_JPEG_make_Q_tables(jpg);
  VEK_JPEG_set_default_H_tables(jpg);
  return jpg;
}

TEST(JpegDecoder, CoefficientCountLimitsAndCorruptCodes) {
  vektest::ErrorRecorder rec;
  const uint32_t dst = VEK_image_create();
  uint32_t jpg = crafted_y8(63, false);
  EXPECT_EQ(VEK_JPEG_decompress(jpg, dst), 0u);
  EXPECT_EQ(rec.count(), 0u);
  VEK_image_destroy(jpg);
  // 60 coefficients then a run of sixteen zeros overshoots the block.
  jpg = crafted_y8(60, false, 1);
  EXPECT_EQ(VEK_JPEG_decompress(jpg, dst), 0x100B0000u);
  EXPECT_TRUE(rec.only("VEK_JPEG_Decode_1_strip_Y8", 0x100B0000u,
                       "corrupt AC Huffman sequence (> 63 coeffs read)"));
  VEK_image_destroy(jpg);
  rec.clear();
  // 0xFF bytes where a DC code is expected: no DC code is all ones.
  jpg = crafted_y8(0, true);
  desc(jpg)->data[0] = 0xFF;
  desc(jpg)->data[1] = 0x00;
  desc(jpg)->data[2] = 0xFF;
  desc(jpg)->data_length = 3;
  EXPECT_EQ(VEK_JPEG_decompress(jpg, dst), 0x100B0000u);
  EXPECT_TRUE(rec.only("VEK_JPEG_Decode_1_strip_Y8", 0x100B0000u, "corrupt DC Huffman sequence"));
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(JpegDecoder, TruncatedDataRunsOnOnesButAnEoiInsideItFails) {
  vektest::ErrorRecorder rec;
  const uint32_t src = vektest::make_image(VEK_YUV422, 64, 32);
  fill_photo(src, 7);
  const uint32_t jpg = VEK_JPEG_image_create();
  ASSERT_EQ(VEK_JPEG_compress(src, jpg), 0u);
  const uint32_t full = desc(jpg)->data_length;
  const uint32_t dst = VEK_image_create();
  VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, VEK_YUV422);
  desc(jpg)->data_length = full / 3;
  const uint32_t status = VEK_JPEG_decompress(jpg, dst);
  // 1-bits decode as whatever codes they form; a corrupt-sequence report is possible,
  // an EOI report is not.
  if (status != 0) {
    EXPECT_EQ(status & 0xFFFF0000u, 0x100B0000u);
  }
  rec.clear();
  desc(jpg)->data[full / 3] = 0xFF;
  desc(jpg)->data[full / 3 + 1] = 0xD9;
  desc(jpg)->data_length = full;
  EXPECT_EQ(VEK_JPEG_decompress(jpg, dst), 0x100B0001u);
  ASSERT_EQ(rec.count(), 1u);
  EXPECT_EQ(rec.last().message, "Unexpected EOI - processing byte 2");
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(JpegDecoder, MonoConversionAndChromaBlockNames) {
  vektest::ErrorRecorder rec;
  const uint32_t src = vektest::make_image(VEK_BGR24, 48, 16);
  vektest::fill_random(src, 3);
  const uint32_t jpg = VEK_JPEG_image_create();
  ASSERT_EQ(VEK_JPEG_compress(src, jpg), 0u);
  ASSERT_EQ(VEK_JPEG_ConvertToMonoYUV(jpg), 0u);
  const uint32_t dst = decode_to(jpg, VEK_YUV422);
  for (uint32_t i = 0; i < 48 * 16 * 2; i += 2) ASSERT_EQ(pixels(dst)[i + 1], 128) << i;
  // Break the first U block's DC code: the report names the block.
  VEK_JPEG_make_Q_tables(jpg);
  const uint32_t y8 = vektest::make_image(VEK_Y8, 8, 8);
  ref::Bits b;
  auto dcl = ref::codes_of(ref::standard_table(0));
  auto acl = ref::codes_of(ref::standard_table(2));
  for (int i = 0; i < 2; ++i) b.put(dcl[0].first, dcl[0].second), b.put(acl[0].first, acl[0].second);
  b.put(0x7FF, 11);  // eleven 1-bits: no chrominance DC code
  const auto bytes = b.bytes();
  std::memcpy(desc(jpg)->data, bytes.data(), bytes.size());
  desc(jpg)->data_length = uint32_t(bytes.size());
  rec.clear();
  EXPECT_EQ(VEK_JPEG_decompress(jpg, dst), 0x100B0000u);
  EXPECT_TRUE(rec.only("VEK_JPEG_Decode_1_strip_YUV422", 0x100B0000u, "U: corrupt DC Huffman sequence"));
  rec.clear();
  EXPECT_EQ(VEK_JPEG_decompress(y8, dst), VEK_ERROR_BAD_HANDLE);
  rec.clear();
  // A stream read as 4:4:4 (VEK_RGB24) is stored but not decoded.
  VEK_image_set_parameter(jpg, VEK_PARAM_FORMAT, VEK_RGB24);
  EXPECT_EQ(VEK_JPEG_decompress(jpg, dst), 0x10070007u);
  EXPECT_TRUE(rec.only("VEK_JPEG_decompress", 0x10070007u, "Unsupported image format"));
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(JpegCodec, AllocationFailuresReturnErrorsWithoutLeaks) {
  const uint32_t src = vektest::make_image(VEK_RGB24, 50, 20);
  fill_photo(src, 9);
  const uint32_t jpg = VEK_JPEG_image_create();
  const uint32_t dst = VEK_image_create();
  VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, VEK_BGRX32);
  vektest::ErrorRecorder rec;
  bool compressed = false;
  for (long n = 0; n < 40 && !compressed; ++n) {
    vek::testing::fail_allocations_after(n);
    const uint32_t s = VEK_JPEG_compress(src, jpg);
    vek::testing::fail_allocations_after(-1);
    compressed = s == 0;
    if (!compressed) {
      EXPECT_TRUE(VEK_IS_ERROR(s));
    }
  }
  ASSERT_TRUE(compressed);
  bool decoded = false;
  for (long n = 0; n < 40 && !decoded; ++n) {
    vek::testing::fail_allocations_after(n);
    const uint32_t s = VEK_JPEG_decompress(jpg, dst);
    vek::testing::fail_allocations_after(-1);
    decoded = s == 0;
    if (!decoded) {
      EXPECT_TRUE(VEK_IS_ERROR(s));
    }
  }
  EXPECT_TRUE(decoded);
  VEK_image_destroy(VEK_ALL_IMAGES);
}

}  // namespace
