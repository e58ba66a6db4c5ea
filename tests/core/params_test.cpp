// Parameters, flags, the validator's checks and the strip arithmetic.
#include <gtest/gtest.h>

#include "support/recorder.h"

namespace {

class Params : public ::testing::Test {
 protected:
  void SetUp() override {
    VEK_Init();
    h = VEK_image_create();
  }
  void TearDown() override { VEK_image_destroy(h); }
  uint32_t set(uint32_t id, uint32_t v) { return VEK_image_set_parameter(h, id, v); }
  uint32_t get(uint32_t id) { return VEK_image_get_parameter(h, id); }
  uint32_t h = 0;
};

// Independent statement of the line arithmetic: ((depth + 1) / 8) * width rounded
// up to the alignment.
uint32_t expected_line(uint32_t width, uint32_t depth, uint32_t align) {
  const uint32_t p = (depth + 1) / 8 * width;
  return (p + align - 1) / align * align;
}

TEST_F(Params, SkipAndLineSizes) {
  set(VEK_PARAM_FORMAT, VEK_RGB24);
  set(VEK_PARAM_WIDTH, 3);
  set(VEK_PARAM_LINE_ALIGN, 4);
  ASSERT_EQ(VEK_image_check(h), 0u);
  EXPECT_EQ(get(VEK_PARAM_BYTES_PER_LINE), 12u);
  set(VEK_PARAM_LINE_ALIGN, 2);
  ASSERT_EQ(VEK_image_check(h), 0u);
  EXPECT_EQ(get(VEK_PARAM_BYTES_PER_LINE), 10u);
  EXPECT_EQ(get(VEK_PARAM_BYTES_PER_STRIP), 80u);  // 8 lines per strip by default

  for (uint32_t fmt : {VEK_Y8, VEK_RGB15, VEK_RGB16, VEK_RGB24, VEK_BGRX32, VEK_YUV422, VEK_HSI})
    for (uint32_t width : {1u, 2u, 3u, 5u, 101u, 640u})
      for (uint32_t align : {1u, 2u, 4u, 8u}) {
        set(VEK_PARAM_FORMAT, fmt);
        set(VEK_PARAM_WIDTH, width);
        set(VEK_PARAM_LINE_ALIGN, align);
        ASSERT_EQ(VEK_image_check(h), 0u);
        const uint32_t depth = get(VEK_PARAM_DEPTH);
        EXPECT_EQ(get(VEK_PARAM_BYTES_PER_LINE), expected_line(width, depth, align))
            << fmt << " " << width << " " << align;
        EXPECT_EQ(VEK_image_calc_skip_bytes(width, depth, align),
                  expected_line(width, depth, align) - (depth + 1) / 8 * width);
      }
}

TEST_F(Params, OneBitLinesAreNotSized) {
  set(VEK_PARAM_FORMAT, VEK_Y1);
  set(VEK_PARAM_WIDTH, 100);
  ASSERT_EQ(VEK_image_check(h), 0u);
  EXPECT_EQ(get(VEK_PARAM_BYTES_PER_LINE), 0u);
}

TEST_F(Params, BayerLinesUseByteSamples) {
  set(VEK_PARAM_FORMAT, VEK_RGGB32);
  set(VEK_PARAM_WIDTH, 101);
  ASSERT_EQ(VEK_image_check(h), 0u);
  EXPECT_EQ(get(VEK_PARAM_BYTES_PER_LINE), 102u);
  set(VEK_PARAM_FORMAT, VEK_FORMAT_17);
  ASSERT_EQ(VEK_image_check(h), 0u);
  EXPECT_EQ(get(VEK_PARAM_BYTES_PER_LINE), 202u);
}

TEST_F(Params, FormatSetsDepthWidthAndClearsDib) {
  VEK_image_set_flags(h, VEK_FLAG_DIB, 1);
  set(VEK_PARAM_DATA_WIDTH, 5);
  set(VEK_PARAM_FORMAT, VEK_RGB24);
  EXPECT_EQ(get(VEK_PARAM_DEPTH), 24u);
  EXPECT_EQ(get(VEK_PARAM_DATA_WIDTH), 5u);  // left as it was
  EXPECT_EQ(VEK_image_get_flags(h, VEK_FLAG_DIB), 0u);
  set(VEK_PARAM_FORMAT, VEK_Y16);
  EXPECT_EQ(get(VEK_PARAM_DEPTH), 16u);
  EXPECT_EQ(get(VEK_PARAM_DATA_WIDTH), 16u);
  EXPECT_EQ(get(VEK_PARAM_COMPONENTS), 1u);
  set(VEK_PARAM_FORMAT, VEK_RGB15);
  EXPECT_EQ(get(VEK_PARAM_COMPONENTS), 3u);
  set(VEK_PARAM_FORMAT, VEK_BGRX32);
  EXPECT_EQ(get(VEK_PARAM_COMPONENTS), 4u);
}

TEST_F(Params, PalettedSetsColourMapSizeOnlyWhenZero) {
  set(VEK_PARAM_FORMAT, VEK_PALETTED);
  EXPECT_EQ(get(VEK_PARAM_CMAP_SIZE), 256u);
  set(VEK_PARAM_CMAP_SIZE, 16);
  set(VEK_PARAM_FORMAT, VEK_PALETTED);
  EXPECT_EQ(get(VEK_PARAM_CMAP_SIZE), 16u);
}

TEST_F(Params, UnknownFormatIsStoredButRefused) {
  vektest::ErrorRecorder rec;
  for (uint32_t bad : {18u, 99u, 105u, 107u, 109u, 200u}) {
    rec.clear();
    EXPECT_EQ(set(VEK_PARAM_FORMAT, bad), VEK_ERROR_NOT_SUPPORTED);
    EXPECT_TRUE(rec.only("VEK_image_set_parameter", VEK_ERROR_NOT_SUPPORTED, "Unrecognized image type"));
    EXPECT_EQ(get(VEK_PARAM_FORMAT), bad);
  }
  rec.clear();
  EXPECT_EQ(VEK_image_check(h), 0x10050010u);
  EXPECT_TRUE(rec.only("VEK_image_check", 0x10050010, "Unrecognised image"));
}

TEST_F(Params, FreshImageFailsValidation) {
  vektest::ErrorRecorder rec;
  EXPECT_EQ(VEK_image_check(h), 0x10050010u);
  EXPECT_EQ(VEK_image_check(0), VEK_ERROR_CORRUPT_IMAGE);  // no record: no report
  EXPECT_EQ(rec.count(), 1u);
}

struct CheckCase {
  uint32_t format, depth, data_width, cmap_size, code;
  const char* message;
};

TEST_F(Params, EveryValidatorCheck) {
  const CheckCase cases[] = {
      {1, 8, 0, 0, 0x10050001, "Depth not 1"},
      {2, 16, 0, 0, 0x10050002, "Depth not 8"},
      {3, 8, 0, 0, 0x10050007, "Colourmap should not be 0 size"},
      {3, 16, 0, 256, 0x10050008, "Depth not 8"},
      {4, 16, 0, 0, 0x1005000D, "Depth not 8"},
      {5, 16, 0, 0, 0x1005000C, "Depth not 15"},
      {6, 8, 0, 0, 0x10050009, "Depth not 16"},
      {12, 24, 0, 0, 0x10050009, "Depth not 16"},
      {103, 8, 0, 0, 0x10050009, "Depth not 16"},
      {106, 32, 0, 0, 0x10050009, "Depth not 16"},
      {7, 32, 0, 0, 0x10050003, "Depth not 24"},
      {8, 16, 0, 0, 0x10050003, "Depth not 24"},
      {9, 24, 0, 0, 0x10050004, "Depth not 32"},
      {13, 24, 0, 0, 0x10050004, "Depth not 32"},
      {108, 24, 0, 0, 0x10050004, "Depth not 32"},
      {100, 24, 0, 0, 0x10050004, "Depth not 32"},
      {101, 16, 0, 0, 0x10050005, "Depth not 32"},
      {104, 32, 0, 0, 0x10050006, "Depth not 16"},
      {14, 16, 0, 0, 0x1005000A, "Data width not between 1 and 16"},
      {14, 16, 17, 0, 0x1005000A, "Data width not between 1 and 16"},
      {14, 8, 12, 0, 0x1005000B, "Depth not 16"},
      {16, 8, 0, 0, 0x1005000E, "Depth not 32"},
      {17, 32, 0, 0, 0x1005000F, "Depth not 64"},
  };
  vektest::ErrorRecorder rec;
  for (const CheckCase& c : cases) {
    set(VEK_PARAM_FORMAT, c.format);
    set(VEK_PARAM_DEPTH, c.depth);
    set(VEK_PARAM_DATA_WIDTH, c.data_width);
    set(VEK_PARAM_CMAP_SIZE, c.cmap_size);
    set(VEK_PARAM_WIDTH, 10);
    rec.clear();
    EXPECT_EQ(VEK_image_check(h), c.code) << "format " << c.format;
    EXPECT_TRUE(rec.only("VEK_image_check", c.code, c.message)) << "format " << c.format;
  }
  // Format 0 is refused with the last check code.
  set(VEK_PARAM_FORMAT, 0);
  EXPECT_EQ(VEK_image_check(h), 0x10050010u);
}

TEST_F(Params, InternalLayoutsSizeTheirOwnLines) {
  set(VEK_PARAM_FORMAT, 101);
  set(VEK_PARAM_WIDTH, 7);
  ASSERT_EQ(VEK_image_check(h), 0u);
  EXPECT_EQ(get(VEK_PARAM_BYTES_PER_LINE), 56u);
  set(VEK_PARAM_FORMAT, 104);
  ASSERT_EQ(VEK_image_check(h), 0u);
  EXPECT_EQ(get(VEK_PARAM_BYTES_PER_LINE), 28u);
}

TEST_F(Params, Param18IsNormalised) {
  set(VEK_PARAM_FORMAT, VEK_Y8);
  set(VEK_PARAM_18, 0);
  VEK_image_check(h);
  EXPECT_EQ(get(VEK_PARAM_18), 1u);
  set(VEK_PARAM_18, 5);
  VEK_image_check(h);
  EXPECT_EQ(get(VEK_PARAM_18), 5u);
}

TEST_F(Params, ZeroAlignmentIsRefusedNotDivided) {
  vektest::ErrorRecorder rec;
  set(VEK_PARAM_FORMAT, VEK_Y8);
  set(VEK_PARAM_LINE_ALIGN, 0);
  EXPECT_EQ(VEK_image_check(h), VEK_ERROR_BAD_PARAMETER);
  EXPECT_EQ(rec.last().function, "VEK_image_check");
  EXPECT_EQ(VEK_image_calc_skip_bytes(10, 8, 0), 0u);
}

TEST_F(Params, HugeGeometryIsRefused) {
  vektest::ErrorRecorder rec;
  set(VEK_PARAM_FORMAT, VEK_BGRX32);
  set(VEK_PARAM_WIDTH, 0x7FFFFFFF);
  EXPECT_EQ(VEK_image_check(h), VEK_ERROR_BAD_PARAMETER);
  set(VEK_PARAM_WIDTH, 0x10000);
  set(VEK_PARAM_STRIP_LINES, 0x10000);
  EXPECT_EQ(VEK_image_check(h), VEK_ERROR_BAD_PARAMETER);
}

TEST_F(Params, IdsAndHandlesRefused) {
  vektest::ErrorRecorder rec;
  for (uint32_t id : {9u, 22u, 26u, 28u, 1000u}) {
    rec.clear();
    EXPECT_EQ(set(id, 1), VEK_ERROR_BAD_PARAMETER);
    EXPECT_TRUE(rec.only("VEK_image_set_parameter", VEK_ERROR_BAD_PARAMETER, ""));
  }
  rec.clear();
  EXPECT_EQ(get(9), VEK_ERROR_BAD_PARAMETER);
  EXPECT_TRUE(rec.only("VEK_image_get_parameter", VEK_ERROR_BAD_PARAMETER, "Unknown parameter"));
  rec.clear();
  EXPECT_EQ(VEK_image_get_parameter(60000, VEK_PARAM_VERSION), VEK_VERSION_WORD);
  EXPECT_EQ(VEK_image_get_parameter(60000, VEK_PARAM_WIDTH), VEK_ERROR_BAD_HANDLE);
  EXPECT_EQ(VEK_image_set_parameter(60000, VEK_PARAM_WIDTH, 1), VEK_ERROR_BAD_HANDLE);
  EXPECT_EQ(VEK_image_get_flags(60000, 1), VEK_ERROR_BAD_HANDLE);
  EXPECT_EQ(VEK_image_set_flags(60000, 1, 1), VEK_ERROR_BAD_HANDLE);
  EXPECT_EQ(rec.count(), 4u);
  rec.clear();
  EXPECT_EQ(set(VEK_PARAM_JPEG_FIELD, 1), VEK_ERROR_BAD_HANDLE);
  EXPECT_TRUE(rec.only("VEK_image_set_parameter", VEK_ERROR_BAD_HANDLE, "JPEG structure does not exist"));
  // Unchecked accessors answer 0 for unknown handles rather than crash.
  EXPECT_EQ(VEK_get_width(60000), 0u);
  EXPECT_EQ(VEK_get_depth(0), 0u);
}

TEST_F(Params, FlagsSingleAndBulk) {
  const uint32_t other = VEK_image_create();
  EXPECT_EQ(VEK_image_set_flags(h, VEK_FLAG_LUT | VEK_FLAG_FIELDS, 1), 0u);
  EXPECT_EQ(VEK_image_get_flags(h, VEK_FLAG_FIELDS), 1u);
  EXPECT_EQ(VEK_image_get_flags(h, VEK_FLAG_JPEG), 0u);
  EXPECT_EQ(VEK_image_set_flags(h, VEK_FLAG_LUT, 7), 0u);  // anything but 1 clears
  EXPECT_EQ(VEK_image_get_flags(h, VEK_FLAG_LUT), 0u);
  EXPECT_EQ(VEK_image_set_flags(VEK_ALL_IMAGES, VEK_FLAG_DITHER, 1), 0u);
  EXPECT_EQ(VEK_image_get_flags(h, VEK_FLAG_DITHER), 1u);
  EXPECT_EQ(VEK_image_get_flags(other, VEK_FLAG_DITHER), 1u);
  VEK_image_destroy(other);
}

TEST_F(Params, TotalStrips) {
  set(VEK_PARAM_HEIGHT, 480);
  EXPECT_EQ(VEK_image_calc_total_strips(h), 60u);
  set(VEK_PARAM_HEIGHT, 481);
  EXPECT_EQ(VEK_image_calc_total_strips(h), 61u);
  set(VEK_PARAM_HEIGHT, 32767);
  EXPECT_EQ(VEK_image_calc_total_strips(h), 4096u);
  set(VEK_PARAM_STRIP_LINES, 0);
  EXPECT_EQ(VEK_image_calc_total_strips(h), 0u);
  set(VEK_PARAM_STRIP_LINES, 1);
  set(VEK_PARAM_HEIGHT, 0x12345);
  EXPECT_EQ(VEK_image_calc_total_strips(h), 0x2345u);  // cut to 16 bits
  EXPECT_EQ(VEK_image_calc_total_strips(0), VEK_ERROR_BAD_HANDLE);
}

}  // namespace
