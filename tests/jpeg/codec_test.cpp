// Encoder and decoder against the plain reference codec: exact bytes and exact pixels
// over random and photo-like pictures, every accepted source layout, padded sizes;
// hand-built streams for the decoder's limits; refusals and allocation failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "core/alloc.h"
#include "helpers.h"
#include "reference.h"

namespace {

using jt::desc;
using jt::param;
using jt::pixels;

int clamp255(int v) { return v < 0 ? 0 : v > 255 ? 255 : v; }

// The reference planes of a source image: padded by repeating the last pixel and line,
// colour turned into 4:2:2 by the encoder's own formulas (BGR) or the conversion's (RGB).
ref::Planes planes_of(uint32_t h) {
  const uint32_t fmt = param(h, VEK_PARAM_FORMAT);
  const int w = int(param(h, VEK_PARAM_WIDTH)), ht = int(param(h, VEK_PARAM_HEIGHT));
  const uint32_t pitch = param(h, VEK_PARAM_BYTES_PER_LINE);
  ref::Planes p;
  p.colour = fmt != VEK_Y8;
  p.w = p.colour ? (w + 15) / 16 * 16 : (w + 7) / 8 * 8;
  p.h = (ht + 7) / 8 * 8;
  p.y.resize(size_t(p.w) * p.h);
  if (p.colour) p.u.resize(size_t(p.w / 2) * p.h), p.v.resize(size_t(p.w / 2) * p.h);
  for (int y = 0; y < p.h; ++y) {
    const uint8_t* line = pixels(h) + size_t(std::min(y, ht - 1)) * pitch;
    // Byte offsets of R, G, B and the pixel size of each RGB-family layout.
    const int at[4] = {fmt == VEK_RGB24 || fmt == VEK_RGBX32 ? 0 : fmt == VEK_XBGR32 ? 3 : 2, fmt == VEK_XBGR32 ? 2 : 1,
                       fmt == VEK_RGB24 || fmt == VEK_RGBX32 ? 2 : fmt == VEK_XBGR32 ? 1 : 0,
                       fmt == VEK_RGB24 || fmt == VEK_BGR24 ? 3 : 4};
    auto rgb = [&](int x, int& r, int& g, int& b) {
      const uint8_t* px = line + std::min(x, w - 1) * at[3];
      r = px[at[0]], g = px[at[1]], b = px[at[2]];
    };
    for (int x = 0; x < p.w; x += p.colour ? 2 : 1) {
      if (!p.colour) {
        p.y[size_t(y) * p.w + x] = line[std::min(x, w - 1)];
        continue;
      }
      int y0, y1, u, v;
      if (fmt == VEK_YUV422) {
        // A padded pair repeats the last pixel, its chroma included.
        const uint8_t* pair = line + (std::min(x, w - 1) / 2) * 4;
        const int last = line[((w - 1) / 2) * 4 + 2];
        y0 = x < w ? pair[0] : last;
        y1 = x + 1 < w ? line[((x + 1) / 2) * 4 + 2] : last;
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
          u = (clamp255(((512 * b0 - 339 * g0 - 173 * r0) >> 10) + 128) +
               clamp255(((512 * b1 - 339 * g1 - 173 * r1) >> 10) + 128)) >> 1;
          v = (clamp255(((512 * r0 - 429 * g0 - 83 * b0) >> 10) + 128) +
               clamp255(((512 * r1 - 429 * g1 - 83 * b1) >> 10) + 128)) >> 1;
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

struct Case {
  uint32_t format, width, height, quality;
  bool photo;
};

uint32_t source(const Case& c, uint32_t seed) {
  const uint32_t src = vektest::make_image(c.format, c.width, c.height);
  if (c.photo) jt::fill_photo(src, seed);
  else vektest::fill_random(src, seed);
  return src;
}

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
    const uint32_t src = source(c, seed++);
    const uint32_t jpg = VEK_JPEG_image_create();
    ASSERT_EQ(VEK_JPEG_set_Quality_factor(jpg, c.quality), 0u);
    ASSERT_EQ(VEK_JPEG_compress(src, jpg), 0u);
    const std::vector<uint8_t> got = jt::data_of(jpg);
    EXPECT_TRUE(got == ref::encode(planes_of(src), int(c.quality)));
    // EOI follows the data; the header records the true size and the stream's layout.
    EXPECT_EQ(desc(jpg)->data[got.size()] << 8 | desc(jpg)->data[got.size() + 1], 0xFFD9);
    EXPECT_EQ(std::vector<uint32_t>({param(jpg, VEK_PARAM_WIDTH), param(jpg, VEK_PARAM_HEIGHT), param(jpg, VEK_PARAM_FORMAT)}),
              std::vector<uint32_t>({c.width, c.height, c.format == VEK_Y8 ? uint32_t(VEK_Y8) : uint32_t(VEK_YUV422)}));
    VEK_image_destroy(VEK_ALL_IMAGES);
  }
}

TEST(JpegEncoder, EndOfDataRuleOnWorkedBlocks) {
  // Flat 128, two blocks: DC category 0 (00) and EOB (1010) each, 12 bits -> 2 bytes.
  // Flat 129, one block: DC difference 1 (010 1) and EOB make exactly 8 bits, which end
  // in one extra 0x00 byte.
  const std::pair<uint8_t, std::vector<uint8_t>> cases[] = {{128, {0x28, 0xA0}}, {129, {0x5A, 0x00}}};
  for (const auto& [value, want] : cases) {
    const uint32_t src = vektest::make_image(VEK_Y8, value == 128 ? 16 : 8, 8);
    std::memset(pixels(src), value, value == 128 ? 128 : 64);
    const uint32_t jpg = VEK_JPEG_image_create();
    ASSERT_EQ(VEK_JPEG_compress(src, jpg), 0u);
    EXPECT_EQ(jt::data_of(jpg), want) << int(value);
    VEK_image_destroy(src);
    VEK_image_destroy(jpg);
  }
}

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
    const uint32_t src = source(c, seed++);
    const uint32_t jpg = VEK_JPEG_image_create();
    VEK_JPEG_set_Quality_factor(jpg, c.quality);
    ASSERT_EQ(VEK_JPEG_compress(src, jpg), 0u);
    const bool colour = c.format != VEK_Y8;
    int qz[2][64];
    for (int k = 0; k < 128; ++k) qz[k / 64][k % 64] = desc(jpg)->q_table[k / 64][k % 64];
    const int pw = colour ? int(c.width + 15) / 16 * 16 : int(c.width + 7) / 8 * 8;
    const ref::Planes want = ref::decode(jt::data_of(jpg), pw, int(c.height + 7) / 8 * 8, colour, qz);
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
        const int* chroma = (x & 1) ? want.v.data() : want.u.data();
        mismatches += line[2 * x] != want.y[size_t(y) * pw + x];
        mismatches += line[2 * x + 1] != chroma[size_t(y) * (pw / 2) + x / 2];
      }
    EXPECT_EQ(mismatches, 0);

    // The RGB-family destinations are the 4:2:2 result through the colour equations.
    for (const uint32_t fmt : {uint32_t(VEK_RGB24), uint32_t(VEK_BGR24), uint32_t(VEK_BGRX32)}) {
      if (!colour) break;
      const uint32_t rgb = decode_to(jpg, fmt), bpp = fmt == VEK_BGRX32 ? 4 : 3, swap = fmt == VEK_RGB24 ? 0 : 2;
      for (uint32_t y = 0; y < c.height; ++y)
        for (uint32_t x = 0; x < c.width; ++x) {
          const uint8_t* s = pixels(dst) + size_t(y) * pitch + (x & ~1u) * 2;
          const int Y = 1024 * s[(x & 1) * 2], U = s[1] - 128, V = s[3] - 128;
          const uint8_t* o = pixels(rgb) + size_t(y) * param(rgb, VEK_PARAM_BYTES_PER_LINE) + x * bpp;
          mismatches += o[swap] != clamp255((Y + 1436 * V) >> 10) || o[1] != clamp255((Y - 731 * V - 352 * U) >> 10) ||
                        o[2 - swap] != clamp255((Y + 1815 * U) >> 10);
        }
      EXPECT_EQ(mismatches, 0) << "format " << fmt;
    }
    VEK_image_destroy(VEK_ALL_IMAGES);
  }
}

// Puts hand-coded bits into a JPEG image of the given layout as its whole data.
void set_data(uint32_t jpg, const ref::Bits& bits) {
  const std::vector<uint8_t> bytes = bits.bytes();
  ASSERT_EQ(VEK_JPEG_malloc_N_bytes_data(jpg, uint32_t(bytes.size() + 2)), 0u);
  std::memcpy(desc(jpg)->data, bytes.data(), bytes.size());
  desc(jpg)->data_length = uint32_t(bytes.size());
}

void put(ref::Bits& b, int table, int symbol) {
  const auto code = ref::codes_of(ref::standard_table(table)).at(symbol);
  b.put(code.first, code.second);
}

TEST(JpegDecoder, CoefficientLimitsCorruptCodesAndBlockNames) {
  vektest::ErrorRecorder rec;
  const uint32_t jpg = VEK_JPEG_image_create();
  VEK_image_set_parameter(jpg, VEK_PARAM_FORMAT, VEK_Y8);
  VEK_image_set_parameter(jpg, VEK_PARAM_WIDTH, 8);
  VEK_image_set_parameter(jpg, VEK_PARAM_HEIGHT, 8);
  VEK_image_set_parameter(jpg, VEK_PARAM_STRIP_LINES, 8);
  VEK_JPEG_make_Q_tables(jpg);
  const uint32_t dst = VEK_image_create();
  // One grey block: DC 0, `ones` AC coefficients of value 1, then `zrl` sixteen-zero runs.
  auto block = [&](int ones, int zrl) {
    ref::Bits b;
    put(b, 0, 0);
    for (int i = 0; i < ones; ++i) put(b, 2, 0x01), b.put(1, 1);
    for (int i = 0; i < zrl; ++i) put(b, 2, 0xF0);
    return b;
  };
  set_data(jpg, block(63, 0));  // exactly 63 coefficients and no EOB
  EXPECT_EQ(VEK_JPEG_decompress(jpg, dst), 0u);
  EXPECT_EQ(rec.count(), 0u);
  set_data(jpg, block(60, 1));  // a run of sixteen zeros overshoots the block
  EXPECT_EQ(VEK_JPEG_decompress(jpg, dst), 0x100B0000u);
  EXPECT_TRUE(rec.only("VEK_JPEG_Decode_1_strip_Y8", 0x100B0000u, "corrupt AC Huffman sequence (> 63 coeffs read)"));
  rec.clear();
  ref::Bits ones;
  ones.put(0xFFFFFF, 24);  // no luminance DC code is all ones
  set_data(jpg, ones);
  EXPECT_EQ(VEK_JPEG_decompress(jpg, dst), 0x100B0000u);
  EXPECT_TRUE(rec.only("VEK_JPEG_Decode_1_strip_Y8", 0x100B0000u, "corrupt DC Huffman sequence"));

  // In a colour stream the report names the block: Y1 and Y2 fine, U's DC code broken.
  VEK_image_set_parameter(jpg, VEK_PARAM_FORMAT, VEK_YUV422);
  VEK_image_set_parameter(jpg, VEK_PARAM_WIDTH, 16);
  ref::Bits colour;
  for (int i = 0; i < 2; ++i) put(colour, 0, 0), put(colour, 2, 0x00);
  colour.put(0x7FF, 11);  // eleven 1-bits: no chrominance DC code
  set_data(jpg, colour);
  rec.clear();
  EXPECT_EQ(VEK_JPEG_decompress(jpg, dst), 0x100B0000u);
  EXPECT_TRUE(rec.only("VEK_JPEG_Decode_1_strip_YUV422", 0x100B0000u, "U: corrupt DC Huffman sequence"));
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(JpegDecoder, AnEoiInsideTheDataFailsAndAZeroedChromaTableGivesGrey) {
  vektest::ErrorRecorder rec;
  const uint32_t src = vektest::make_image(VEK_YUV422, 64, 32);
  jt::fill_photo(src, 7);
  const uint32_t jpg = VEK_JPEG_image_create();
  ASSERT_EQ(VEK_JPEG_compress(src, jpg), 0u);
  const uint32_t full = desc(jpg)->data_length;
  const uint32_t dst = decode_to(jpg, VEK_YUV422);
  rec.clear();
  desc(jpg)->data[full / 3] = 0xFF;
  desc(jpg)->data[full / 3 + 1] = 0xD9;
  EXPECT_EQ(VEK_JPEG_decompress(jpg, dst), 0x100B0001u);
  ASSERT_EQ(rec.count(), 1u);
  EXPECT_EQ(rec.last().message, "Unexpected EOI - processing byte 2");

  // A zeroed chrominance table gives U = V = 128 everywhere.
  ASSERT_EQ(VEK_JPEG_compress(src, jpg), 0u);
  ASSERT_EQ(VEK_JPEG_ConvertToMonoYUV(jpg), 0u);
  ASSERT_EQ(VEK_JPEG_decompress(jpg, dst), 0u);
  for (uint32_t i = 0; i < 64 * 32 * 2; i += 2) ASSERT_EQ(pixels(dst)[i + 1], 128) << i;
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(JpegCodec, RefusedInputsReportOnceWithTheirCodes) {
  vektest::ErrorRecorder rec;
  const uint32_t jpg = VEK_JPEG_image_create();
  const uint32_t strip = vektest::make_image(VEK_YUV422, 32, 32, 16);
  const uint32_t rgb16 = vektest::make_image(VEK_RGB16, 16, 8);
  const uint32_t y8 = vektest::make_image(VEK_Y8, 8, 8);
  const uint32_t rgb_stream = jt::compressed(VEK_BGR24, 16, 8, 1);
  VEK_image_set_parameter(rgb_stream, VEK_PARAM_FORMAT, VEK_RGB24);  // as read from a 4:4:4 file
  struct Bad {
    uint32_t (*call)(uint32_t, uint32_t);
    uint32_t a, b, code;
    const char *function, *message;
  };
  const Bad bad[] = {
      {VEK_JPEG_compress, strip, jpg, 0x10070010, "VEK_JPEG_compress", "This function only supports a complete image"},
      {VEK_JPEG_compress, rgb16, jpg, 0x10070006, "VEK_JPEG_compress", "Unsupported image format"},
      {VEK_JPEG_compress_1_strip, rgb16, jpg, 0x10070000, "VEK_JPEG_compress_1_strip",
       "Unsupported image type/pixel format"},
      {VEK_JPEG_decompress, y8, jpg, 0x10040000, "VEK_JPEG_decompress", "Not a JPEG image"},
      {VEK_JPEG_decompress, rgb_stream, y8, 0x10070007, "VEK_JPEG_decompress", "Unsupported image format"},
  };
  for (const Bad& b : bad) {
    rec.clear();
    EXPECT_EQ(b.call(b.a, b.b), b.code) << b.message;
    EXPECT_TRUE(rec.only(b.function, b.code, b.message)) << b.message;
  }
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(JpegCodec, AllocationFailuresReturnErrorsWithoutLeaks) {
  const uint32_t src = vektest::make_image(VEK_RGB24, 50, 20);
  jt::fill_photo(src, 9);
  const uint32_t jpg = VEK_JPEG_image_create();
  const uint32_t dst = VEK_image_create();
  VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, VEK_BGRX32);
  vektest::ErrorRecorder rec;
  for (const bool decode : {false, true}) {
    bool done = false;
    for (long n = 0; n < 40 && !done; ++n) {
      vek::testing::fail_allocations_after(n);
      const uint32_t s = decode ? VEK_JPEG_decompress(jpg, dst) : VEK_JPEG_compress(src, jpg);
      vek::testing::fail_allocations_after(-1);
      done = s == 0;
      if (!done) {
        EXPECT_TRUE(VEK_IS_ERROR(s));
      }
    }
    ASSERT_TRUE(done) << decode;
  }
  VEK_image_destroy(VEK_ALL_IMAGES);
}

}  // namespace
