// Colour maps, palette generation, conversion tables with their files, and the
// intensity look-up tables.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "support/recorder.h"
#include "vek.h"

using vektest::ErrorRecorder;
using vektest::make_image;

namespace {

uint8_t* data(uint32_t h) { return static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA)); }
uint32_t param(uint32_t h, uint32_t id) { return VEK_image_get_parameter(h, id); }

TEST(Cmap, TypesIndicesAndClosestColour) {
  ErrorRecorder rec;
  const uint32_t h = make_image(VEK_PALETTED, 4, 1);
  ASSERT_EQ(VEK_cmap_set_type(h, 3), 0u);
  EXPECT_EQ(VEK_cmap_get_RGB_colour(h, 255), (255u << 16) | (255u << 8) | 223u);
  EXPECT_EQ(VEK_cmap_get_RGB_colour(h, 0), (31u << 16) | (31u << 8) | 31u);
  EXPECT_EQ(VEK_cmap_is_grayscale(h), 0u);
  ASSERT_EQ(VEK_cmap_set_type(h, 1), 0u);
  EXPECT_EQ(param(h, VEK_PARAM_CMAP_SIZE), 16u);
  // An index equal to the colour count is accepted, one above it refused.
  EXPECT_EQ(VEK_cmap_set_RGB_colour(h, 16, 1, 2, 3), 0u);
  EXPECT_EQ(VEK_cmap_get_RGB_colour(h, 16), 0x010203u);
  EXPECT_EQ(VEK_cmap_set_RGB_colour(h, 17, 1, 2, 3), VEK_ERROR_BAD_PARAMETER);
  EXPECT_TRUE(rec.only("VEK_cmap_set_RGB_colour", VEK_ERROR_BAD_PARAMETER,
                       "Illegal colourmap index (> max number of colours)"));
  rec.clear();
  EXPECT_EQ(VEK_cmap_set_colour(h, 0, 16), VEK_ERROR_BAD_PARAMETER);
  EXPECT_TRUE(rec.only("VEK_cmap_set_colour", VEK_ERROR_BAD_PARAMETER, "Unrecognised colour"));
  rec.clear();
  EXPECT_EQ(VEK_cmap_set_type(h, 4), VEK_ERROR_BAD_PARAMETER);
  EXPECT_TRUE(rec.only("VEK_cmap_set_type", VEK_ERROR_BAD_PARAMETER, "Unrecognized colourmap type"));
  EXPECT_EQ(VEK_cmap_find_closest_colour(h, 0, 76, 76), 8u);
  EXPECT_EQ(VEK_cmap_find_closest_colour(h, 250, 10, 10), 12u);
  // Ties go to the lower index; only the first `count` entries take part.
  VEK_image_set_parameter(h, VEK_PARAM_CMAP_SIZE, 2);
  VEK_cmap_set_RGB_colour(h, 0, 30, 30, 30);
  VEK_cmap_set_RGB_colour(h, 1, 10, 10, 10);
  EXPECT_EQ(VEK_cmap_find_closest_colour(h, 20, 20, 20), 0u);
  EXPECT_EQ(VEK_cmap_find_closest_colour(h, 255, 0, 0), 0u);
  EXPECT_EQ(VEK_cmap_find_closest_colour(h, 0, 0, 0), 1u);
  ASSERT_EQ(VEK_cmap_set_type(h, 2), 0u);
  EXPECT_EQ(VEK_cmap_is_grayscale(h), 1u);
  for (uint32_t v : {0u, 77u, 255u}) EXPECT_EQ(VEK_cmap_find_closest_colour(h, v, v, v), v);
  VEK_image_destroy(h);
}

TEST(Cmap, GenerateChoosesBinsByFrequencyAndConverts) {
  ErrorRecorder rec;
  // Ten distinct bins, pixel counts 1..10 for bin colours spread over the cube.
  std::vector<uint8_t> px;
  for (int c = 0; c < 10; ++c)
    for (int n = 0; n <= c; ++n) {
      px.push_back(uint8_t(c * 25));
      px.push_back(uint8_t(255 - c * 25));
      px.push_back(uint8_t(c * 16));
    }
  const uint32_t width = uint32_t(px.size() / 3);  // 55, odd
  const uint32_t src = make_image(VEK_RGB24, width, 1);
  std::memcpy(data(src), px.data(), px.size());
  VEK_image_set_parameter(src, VEK_PARAM_CMAP_SIZE, 0);
  ASSERT_EQ(VEK_cmap_generate(src, 256, VEK_STRIP_NEXT), 0u);
  for (int k = 0; k < 10; ++k) {
    const int c = 9 - k;  // most frequent first
    const uint32_t r = (uint32_t(c * 25) >> 4 << 4) + 8, g = (uint32_t(255 - c * 25) >> 4 << 4) + 8,
                   b = (uint32_t(c * 16) >> 4 << 4) + 8;
    EXPECT_EQ(VEK_cmap_get_RGB_colour(src, k), r << 16 | g << 8 | b) << k;
    const uint32_t bin = (uint32_t(c * 25) >> 4 << 8) + (uint32_t(255 - c * 25) >> 4 << 4) + (uint32_t(c * 16) >> 4);
    EXPECT_EQ(VEK_cmap_get_occurrences(src, bin), uint32_t(c + 1));
  }
  for (uint32_t k = 10; k < 256; ++k) EXPECT_EQ(VEK_cmap_get_RGB_colour(src, k), 0u);
  // Every pixel's bin got an entry, so the paletted image maps back to bin centres.
  const uint32_t pal = VEK_image_create();
  ASSERT_EQ(VEK_convert_to_paletted(src, pal, VEK_STRIP_NEXT), 0u);
  for (uint32_t x = 0; x < width; ++x) {
    const uint32_t e = VEK_cmap_get_RGB_colour(pal, data(pal)[x]);
    EXPECT_EQ(e >> 20, uint32_t(px[3 * x] >> 4));
    EXPECT_EQ((e >> 12) & 15, uint32_t(px[3 * x + 1] >> 4));
  }
  const uint32_t rgb = VEK_image_create();
  ASSERT_EQ(VEK_paletted_to_RGB24_or_Y8(pal, rgb, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(rgb, VEK_PARAM_FORMAT), uint32_t(VEK_RGB24));
  const uint32_t fresh = make_image(VEK_RGB24, 2, 1);
  rec.clear();
  EXPECT_EQ(VEK_convert_to_paletted(fresh, pal, VEK_STRIP_NEXT), VEK_ERROR_BAD_STATE);
  EXPECT_TRUE(rec.only("VEK_convert_to_paletted", VEK_ERROR_BAD_STATE, "VEK_cmap_generate must be called first"));
  // Generated colours are appended after the existing ones.
  VEK_cmap_set_type(fresh, 1);
  ASSERT_EQ(VEK_cmap_generate(fresh, 16, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(VEK_cmap_get_RGB_colour(fresh, 15), 0xFFFFFFu);
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(Cmap, Rgb8AndDitherCarries) {
  ErrorRecorder rec;
  const uint32_t src = make_image(VEK_RGB24, 7, 2);
  vektest::fill_random(src, 8);
  const uint32_t dst = VEK_image_create();
  ASSERT_EQ(VEK_convert_to_RGB8(src, dst, VEK_STRIP_NEXT), 0u);
  for (uint32_t y = 0; y < 2; ++y)
    for (uint32_t x = 0; x < 7; ++x) {
      const uint8_t* p = data(src) + y * param(src, 15) + 3 * x;
      EXPECT_EQ(data(dst)[y * param(dst, 15) + x], (p[0] & 0xE0) | ((p[1] & 0xE0) >> 3) | (p[2] >> 6));
    }
  EXPECT_EQ(VEK_cmap_get_RGB_colour(dst, 255), 0xFFFFDFu);
  // A uniform (16, 16, 16) line packs to 0 throughout; (40, 40, 200) shows the carries.
  const uint32_t flat = make_image(VEK_RGB24, 6, 1);
  for (int i = 0; i < 18; i += 3) data(flat)[i] = data(flat)[i + 1] = 40, data(flat)[i + 2] = 200;
  ASSERT_EQ(VEK_convert_to_RGB8_dither(flat, dst, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(dst, VEK_PARAM_FORMAT), uint32_t(VEK_PALETTED));
  // pixel 0: 40,40,200 -> 0x20|0x04|3; carries (4,4,96); pixel 1: 44,44,255 -> same bits;
  // carries (6,6,96); pixel 2: 46,46,255; pixel 3 restarts.
  const uint8_t p0 = 0x20 | 0x04 | 3;
  EXPECT_EQ(std::vector<uint8_t>(data(dst), data(dst) + 6), std::vector<uint8_t>(6, p0));
  for (int i = 0; i < 18; ++i) data(flat)[i] = 16;
  ASSERT_EQ(VEK_convert_to_RGB8_dither(flat, dst, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(std::vector<uint8_t>(data(dst), data(dst) + 6), std::vector<uint8_t>(6, 0));
  for (int i = 0; i < 18; i += 3) data(flat)[i] = 30, data(flat)[i + 1] = 0, data(flat)[i + 2] = 0;
  ASSERT_EQ(VEK_convert_to_RGB8_dither(flat, dst, VEK_STRIP_NEXT), 0u);
  // 30 -> 0; carry 15 -> 45 packs 0x20; carry (45>>1)&15 = 6 -> 36 packs 0x20; restart.
  EXPECT_EQ(std::vector<uint8_t>(data(dst), data(dst) + 6), (std::vector<uint8_t>{0, 0x20, 0x20, 0, 0x20, 0x20}));
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(ConvTables, BuildersDrivenConversionsAndFiles) {
  ErrorRecorder rec;
  const uint32_t grey = make_image(VEK_Y8, 9, 2);
  VEK_cmap_set_type(grey, 1);
  vektest::fill_random(grey, 2);
  const uint32_t pal = VEK_image_create();
  VEK_destroy_Y8_to_paletted_LUT();
  ASSERT_EQ(VEK_convert_to_paletted_LUT(grey, pal, VEK_STRIP_NEXT), 0u);
  for (uint32_t y = 0; y < 2; ++y)
    for (uint32_t x = 0; x < 9; ++x) {
      const uint8_t v = data(grey)[y * param(grey, 15) + x];
      EXPECT_EQ(data(pal)[y * param(pal, 15) + x], VEK_cmap_find_closest_colour(grey, v, v, v));
    }
  const std::string dir = vektest::scratch_dir();
  const std::string f203 = dir + "lut203.bin", small = dir + "small.bin";
  ASSERT_EQ(VEK_image_conv_LUT_generate(grey, VEK_LUT_YUV422_TO_RGB16), 0u);
  ASSERT_EQ(VEK_image_conv_LUT_save(grey, VEK_LUT_YUV422_TO_RGB16, f203.c_str()), 0u);
  FILE* f = std::fopen(f203.c_str(), "rb");
  ASSERT_NE(f, nullptr);
  std::fseek(f, 0, SEEK_END);
  EXPECT_EQ(std::ftell(f), 1048576L);
  // Word for white (index of Y 254, U = V = 128) is stored little-endian: 0xFFFF.
  const long white = ((254L << 11) | (32L << 6) | 32L) * 2;
  std::fseek(f, white, SEEK_SET);
  EXPECT_EQ(std::fgetc(f), 0xFF);
  std::fclose(f);
  EXPECT_EQ(VEK_image_conv_LUT_load(grey, VEK_LUT_YUV422_TO_RGB15, f203.c_str()), 0u);
  f = std::fopen(small.c_str(), "wb");
  std::fwrite(std::vector<uint8_t>(256).data(), 1, 256, f);
  std::fclose(f);
  rec.clear();
  EXPECT_EQ(VEK_image_conv_LUT_load(grey, VEK_LUT_RGB16_TO_PALETTED, small.c_str()), VEK_ERROR_LUT_FILE_SIZE);
  EXPECT_TRUE(rec.only("VEK_image_conv_LUT_load", VEK_ERROR_LUT_FILE_SIZE,
                       "Incorrect number of bytes read - correct LUT selected?"));
  EXPECT_EQ(VEK_image_conv_LUT_load(grey, VEK_LUT_Y8_TO_PALETTED, small.c_str()), 0u);
  rec.clear();
  EXPECT_EQ(VEK_image_conv_LUT_load(grey, VEK_LUT_Y8_TO_PALETTED, (dir + "missing/x").c_str()), VEK_ERROR_OPEN_FAILED);
  EXPECT_TRUE(rec.only("VEK_image_conv_LUT_load", VEK_ERROR_OPEN_FAILED, "Failed to create file"));
  rec.clear();
  EXPECT_EQ(VEK_image_conv_LUT_save(grey, 206, f203.c_str()), VEK_ERROR_BAD_PARAMETER);
  EXPECT_TRUE(rec.only("VEK_image_conv_LUT_save", VEK_ERROR_BAD_PARAMETER, "Unrecognized LUT type"));
  rec.clear();
  EXPECT_EQ(VEK_image_conv_LUT_generate(grey, 199), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_image_conv_LUT_generate", VEK_ERROR_NOT_SUPPORTED,
                       "LUT function not available for this image pixel format"));
  const uint32_t y16 = make_image(VEK_Y16, 2, 1);
  VEK_image_set_parameter(y16, VEK_PARAM_DATA_WIDTH, 8);
  rec.clear();
  EXPECT_EQ(VEK_generate_Y16_to_paletted_LUT(y16), VEK_ERROR_BAD_PARAMETER);
  EXPECT_TRUE(rec.only("VEK_generate_Y16_to_paletted_LUT", VEK_ERROR_BAD_PARAMETER, "data width should > 8 (and <= 16)"));
  VEK_image_destroy(VEK_ALL_IMAGES);
  EXPECT_EQ(VEK_image_destroy(VEK_LIBRARY_TABLES), 0u);
}

TEST(IntensityLut, CreationGenerationAndApplication) {
  ErrorRecorder rec;
  VEK_LUT_destroy(VEK_ALL_IMAGES);
  const uint32_t t = VEK_LUT_create(256, 1);
  ASSERT_EQ(t, 1u);
  auto* grey = static_cast<uint8_t*>(VEK_LUT_get_ptr(t, VEK_LUT_GREY));
  for (int i = 0; i < 256; ++i) ASSERT_EQ(grey[i], i);
  EXPECT_EQ(VEK_LUT_get_ptr(t, 3), nullptr);
  ASSERT_EQ(VEK_LUT_generate(t, 200, 100, 100, 100, 100, 100), 0u);
  for (int i = 1; i < 256; ++i) {
    const int want = std::min(i + 50, 255);
    EXPECT_TRUE(grey[i] == want || grey[i] == want - 1) << i << " " << int(grey[i]);
  }
  EXPECT_EQ(grey[0], 0);
  ASSERT_EQ(VEK_LUT_generate(t, 100, 100, 200, 100, 100, 100), 0u);
  EXPECT_TRUE(grey[64] == 127 || grey[64] == 128);
  auto* red = static_cast<uint8_t*>(VEK_LUT_get_ptr(t, VEK_LUT_RED));
  ASSERT_EQ(VEK_LUT_generate(t, 100, 100, 100, 100, 100, 100), 0u);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(red[i], i);

  // Apply: RGB24 through the colour arrays, RGB16 repacked.
  ASSERT_EQ(VEK_LUT_generate(t, 150, 100, 100, 100, 100, 100), 0u);
  const uint32_t src = make_image(VEK_RGB24, 5, 3), dst = VEK_image_create();
  vektest::fill_random(src, 12);
  ASSERT_EQ(VEK_LUT_apply(src, dst, t), 0u);
  for (uint32_t i = 0; i < 15; ++i) EXPECT_EQ(data(dst)[i], red[data(src)[i]]);
  const uint32_t y16 = make_image(VEK_Y16, 2, 1);
  rec.clear();
  EXPECT_EQ(VEK_LUT_apply(y16, dst, t), VEK_ERROR_NOT_SUPPORTED | VEK_Y16);
  EXPECT_TRUE(rec.only("VEK_LUT_apply", VEK_ERROR_NOT_SUPPORTED | VEK_Y16, "Unsupported image format"));

  rec.clear();
  EXPECT_EQ(VEK_LUT_create(257, 1), VEK_ERROR_BAD_PARAMETER | 1);
  EXPECT_EQ(rec.last().message, "too many LUT elements");
  EXPECT_EQ(VEK_LUT_create(16, 3), VEK_ERROR_BAD_PARAMETER | 3);
  EXPECT_EQ(rec.last().message, "element size must be 1 or 2 bytes");
  for (int i = 2; i <= 15; ++i) ASSERT_EQ(VEK_LUT_create(4096, 2), uint32_t(i));
  EXPECT_EQ(VEK_LUT_create(16, 1), VEK_ERROR_OUT_OF_HANDLES);
  EXPECT_EQ(VEK_LUT_destroy(7), 0u);
  EXPECT_EQ(VEK_LUT_create(16, 1), 7u);
  // A 2-byte table of fewer entries than the data's range still maps every word.
  auto* g16 = static_cast<uint16_t*>(VEK_LUT_get_ptr(2, VEK_LUT_GREY));
  ASSERT_EQ(VEK_LUT_generate(2, 100, 100, 200, 100, 100, 100), 0u);
  data(y16)[0] = 0x00, data(y16)[1] = 0x04;  // 1024
  data(y16)[2] = 0xFF, data(y16)[3] = 0xFF;  // beyond the 4096 entries: identity
  ASSERT_EQ(VEK_LUT_apply(y16, dst, 2), 0u);
  EXPECT_EQ(data(dst)[0] | data(dst)[1] << 8, g16[1024]);
  EXPECT_EQ(data(dst)[2] | data(dst)[3] << 8, 0xFFFF);
  VEK_image_destroy(VEK_ALL_IMAGES);
  EXPECT_EQ(VEK_LUT_create(16, 1), 1u);
  VEK_LUT_destroy(VEK_ALL_IMAGES);
}

}  // namespace
