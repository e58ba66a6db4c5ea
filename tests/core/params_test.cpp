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
  uint32_t line_of(uint32_t format, uint32_t width, uint32_t align) {
    set(VEK_PARAM_FORMAT, format);
    set(VEK_PARAM_WIDTH, width);
    set(VEK_PARAM_LINE_ALIGN, align);
    EXPECT_EQ(VEK_image_check(h), 0u) << format;
    return get(VEK_PARAM_BYTES_PER_LINE);
  }
  uint32_t h = 0;
};

TEST_F(Params, LineSizes) {
  // Independent statement of the arithmetic: ((depth + 1) / 8) * width rounded up to
  // the alignment.
  const uint32_t depths[][2] = {{VEK_Y8, 8},      {VEK_RGB15, 15},  {VEK_RGB16, 16}, {VEK_RGB24, 24},
                               {VEK_BGRX32, 32}, {VEK_YUV422, 16}, {VEK_HSI, 32}};
  for (const auto& [fmt, depth] : depths)
    for (uint32_t width : {1u, 2u, 3u, 5u, 101u, 640u})
      for (uint32_t align : {1u, 2u, 4u, 8u}) {
        const uint32_t p = (depth + 1) / 8 * width;
        const uint32_t want = (p + align - 1) / align * align;
        EXPECT_EQ(line_of(fmt, width, align), want) << fmt << " " << width << " " << align;
        EXPECT_EQ(VEK_image_calc_skip_bytes(width, depth, align), want - p);
      }
  struct Case {
    uint32_t format, width, align, line;
  } const cases[] = {
      {VEK_RGB24, 3, 4, 12}, {VEK_RGB24, 3, 2, 10},
      {VEK_Y1, 100, 2, 0},  // (1 + 1) / 8 is 0: one-bit lines are sized by their users
      {VEK_RGGB32, 101, 2, 102}, {VEK_FORMAT_17, 101, 2, 202},  // mosaics: byte / word samples
      {101, 7, 2, 56}, {104, 7, 2, 28},                         // codec layouts: no padding
  };
  for (const Case& c : cases) EXPECT_EQ(line_of(c.format, c.width, c.align), c.line) << c.format;
  set(VEK_PARAM_FORMAT, VEK_RGB24);
  VEK_image_check(h);
  EXPECT_EQ(get(VEK_PARAM_BYTES_PER_STRIP), 8u * get(VEK_PARAM_BYTES_PER_LINE));  // 8 lines by default
}

TEST_F(Params, FormatSideEffects) {
  VEK_image_set_flags(h, VEK_FLAG_DIB, 1);
  set(VEK_PARAM_DATA_WIDTH, 5);
  set(VEK_PARAM_FORMAT, VEK_RGB24);
  EXPECT_EQ(get(VEK_PARAM_DEPTH), 24u);
  EXPECT_EQ(get(VEK_PARAM_DATA_WIDTH), 5u);  // left as it was
  EXPECT_EQ(VEK_image_get_flags(h, VEK_FLAG_DIB), 0u);
  set(VEK_PARAM_FORMAT, VEK_Y16);
  EXPECT_EQ(get(VEK_PARAM_DATA_WIDTH), 16u);
  const uint32_t components[][2] = {{VEK_Y16, 1}, {VEK_RGB15, 3}, {VEK_YUV422, 3}, {VEK_BGRX32, 4}, {VEK_Y8, 1}};
  for (const auto& c : components) {
    set(VEK_PARAM_FORMAT, c[0]);
    EXPECT_EQ(get(VEK_PARAM_COMPONENTS), c[1]) << c[0];
  }
  // Paletted sets the colour-map size only when it is 0.
  set(VEK_PARAM_FORMAT, VEK_PALETTED);
  EXPECT_EQ(get(VEK_PARAM_CMAP_SIZE), 256u);
  set(VEK_PARAM_CMAP_SIZE, 16);
  set(VEK_PARAM_FORMAT, VEK_PALETTED);
  EXPECT_EQ(get(VEK_PARAM_CMAP_SIZE), 16u);
  // Parameter 18 is forced to 1 below 2.
  set(VEK_PARAM_18, 0);
  VEK_image_check(h);
  EXPECT_EQ(get(VEK_PARAM_18), 1u);
  set(VEK_PARAM_18, 5);
  VEK_image_check(h);
  EXPECT_EQ(get(VEK_PARAM_18), 5u);
}

TEST_F(Params, UnknownFormatIsStoredButRefused) {
  vektest::ErrorRecorder rec;
  EXPECT_EQ(VEK_image_check(h), 0x10050010u);  // a fresh image has no format
  for (uint32_t bad : {18u, 99u, 105u, 107u, 109u, 200u}) {
    rec.clear();
    EXPECT_EQ(set(VEK_PARAM_FORMAT, bad), VEK_ERROR_NOT_SUPPORTED);
    EXPECT_TRUE(rec.only("VEK_image_set_parameter", VEK_ERROR_NOT_SUPPORTED, "Unrecognized image type"));
    EXPECT_EQ(get(VEK_PARAM_FORMAT), bad);
  }
  rec.clear();
  EXPECT_EQ(VEK_image_check(h), 0x10050010u);
  EXPECT_TRUE(rec.only("VEK_image_check", 0x10050010, "Unrecognised image"));
  rec.clear();
  EXPECT_EQ(VEK_image_check(0), VEK_ERROR_CORRUPT_IMAGE);  // no record: no report
  EXPECT_EQ(rec.count(), 0u);
}

TEST_F(Params, EveryValidatorCheck) {
  struct Case {
    uint32_t format, depth, data_width, cmap_size, code;
    const char* message;
  } const cases[] = {
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
      {0, 8, 0, 0, 0x10050010, "Unrecognised image"},
  };
  vektest::ErrorRecorder rec;
  for (const Case& c : cases) {
    set(VEK_PARAM_FORMAT, c.format);
    set(VEK_PARAM_DEPTH, c.depth);
    set(VEK_PARAM_DATA_WIDTH, c.data_width);
    set(VEK_PARAM_CMAP_SIZE, c.cmap_size);
    set(VEK_PARAM_WIDTH, 10);
    rec.clear();
    EXPECT_EQ(VEK_image_check(h), c.code) << "format " << c.format;
    EXPECT_TRUE(rec.only("VEK_image_check", c.code, c.message)) << "format " << c.format;
  }
}

TEST_F(Params, GeometryThatCannotBeSizedIsRefused) {
  vektest::ErrorRecorder rec;
  set(VEK_PARAM_FORMAT, VEK_Y8);
  set(VEK_PARAM_LINE_ALIGN, 0);  // would divide by zero
  EXPECT_EQ(VEK_image_check(h), VEK_ERROR_BAD_PARAMETER);
  EXPECT_EQ(rec.last().function, "VEK_image_check");
  EXPECT_EQ(VEK_image_calc_skip_bytes(10, 8, 0), 0u);
  set(VEK_PARAM_LINE_ALIGN, 2);
  set(VEK_PARAM_FORMAT, VEK_BGRX32);
  set(VEK_PARAM_WIDTH, 0x7FFFFFFF);  // line size beyond 32 bits
  EXPECT_EQ(VEK_image_check(h), VEK_ERROR_BAD_PARAMETER);
  set(VEK_PARAM_WIDTH, 0x10000);
  set(VEK_PARAM_STRIP_LINES, 0x10000);  // strip size beyond 32 bits
  EXPECT_EQ(VEK_image_check(h), VEK_ERROR_BAD_PARAMETER);
}

TEST_F(Params, IdsAndHandlesRefused) {
  vektest::ErrorRecorder rec;
  for (uint32_t id : {9u, 22u, 26u, 28u}) {
    rec.clear();
    EXPECT_EQ(set(id, 1), VEK_ERROR_BAD_PARAMETER);
    EXPECT_TRUE(rec.only("VEK_image_set_parameter", VEK_ERROR_BAD_PARAMETER, ""));
  }
  rec.clear();
  EXPECT_EQ(get(9), VEK_ERROR_BAD_PARAMETER);
  EXPECT_TRUE(rec.only("VEK_image_get_parameter", VEK_ERROR_BAD_PARAMETER, "Unknown parameter"));
  rec.clear();
  EXPECT_EQ(set(VEK_PARAM_JPEG_FIELD, 1), VEK_ERROR_BAD_HANDLE);
  EXPECT_TRUE(rec.only("VEK_image_set_parameter", VEK_ERROR_BAD_HANDLE, "JPEG structure does not exist"));
  rec.clear();
  EXPECT_EQ(VEK_image_get_parameter(60000, VEK_PARAM_VERSION), VEK_VERSION_WORD);  // any handle
  EXPECT_EQ(VEK_image_get_parameter(60000, VEK_PARAM_WIDTH), VEK_ERROR_BAD_HANDLE);
  EXPECT_EQ(VEK_image_set_parameter(60000, VEK_PARAM_WIDTH, 1), VEK_ERROR_BAD_HANDLE);
  EXPECT_EQ(VEK_image_get_flags(60000, 1), VEK_ERROR_BAD_HANDLE);
  EXPECT_EQ(VEK_image_set_flags(60000, 1, 1), VEK_ERROR_BAD_HANDLE);
  EXPECT_EQ(rec.count(), 4u);
  EXPECT_EQ(VEK_get_width(60000), 0u);  // unchecked accessors answer 0, never crash
}

TEST_F(Params, FlagsSingleAndBulk) {
  const uint32_t other = VEK_image_create();
  EXPECT_EQ(VEK_image_set_flags(h, VEK_FLAG_LUT | VEK_FLAG_FIELDS, 1), 0u);
  EXPECT_EQ(VEK_image_get_flags(h, VEK_FLAG_FIELDS | VEK_FLAG_JPEG), 1u);  // any bit of the mask
  EXPECT_EQ(VEK_image_get_flags(h, VEK_FLAG_JPEG), 0u);
  EXPECT_EQ(VEK_image_set_flags(h, VEK_FLAG_LUT, 7), 0u);  // anything but 1 clears
  EXPECT_EQ(VEK_image_get_flags(h, VEK_FLAG_LUT), 0u);
  EXPECT_EQ(VEK_image_set_flags(VEK_ALL_IMAGES, VEK_FLAG_DITHER, 1), 0u);
  EXPECT_EQ(VEK_image_get_flags(h, VEK_FLAG_DITHER) + VEK_image_get_flags(other, VEK_FLAG_DITHER), 2u);
  VEK_image_destroy(other);
}

TEST_F(Params, TotalStrips) {
  const uint32_t cases[][3] = {{480, 8, 60}, {481, 8, 61}, {32767, 8, 4096}, {480, 0, 0}, {0x12345, 1, 0x2345}};
  for (const auto& c : cases) {
    set(VEK_PARAM_HEIGHT, c[0]);
    set(VEK_PARAM_STRIP_LINES, c[1]);
    EXPECT_EQ(VEK_image_calc_total_strips(h), c[2]) << c[0] << "/" << c[1];
  }
  EXPECT_EQ(VEK_image_calc_total_strips(0), VEK_ERROR_BAD_HANDLE);
}

}  // namespace
