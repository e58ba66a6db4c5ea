// Strip buffers and ownership, pointer kinds, copying and moving.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "core/alloc.h"
#include "support/recorder.h"

namespace {

class Strips : public ::testing::Test {
 protected:
  void SetUp() override { VEK_Init(); }
  void TearDown() override {
    vek::testing::fail_allocations_after(-1);
    VEK_image_destroy(VEK_ALL_IMAGES);
  }
};

uint8_t* data_of(uint32_t h) { return static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA)); }

// LeakSanitizer and ASan's invalid-free check watch every case here.
TEST_F(Strips, Ownership) {
  // Locked: kept by allocation and free; destruction still frees the library's buffer.
  const uint32_t locked = vektest::make_image(VEK_Y8, 16, 4);
  void* first = data_of(locked);
  VEK_image_set_flags(locked, VEK_FLAG_LOCKED, 1);
  EXPECT_EQ(VEK_image_malloc_a_strip(locked), 0u);
  EXPECT_EQ(VEK_image_free_data(locked), 0u);
  EXPECT_EQ(data_of(locked), first);

  // External: never freed, not even at destruction.
  std::vector<uint8_t> mine(64, 7);
  const uint32_t ext = vektest::make_image(VEK_Y8, 8, 8);
  VEK_image_free_data(ext);
  EXPECT_EQ(VEK_image_set_ptr(ext, VEK_PTR_DATA, mine.data()), 0u);
  VEK_image_set_flags(ext, VEK_FLAG_EXTERNAL, 1);
  EXPECT_EQ(VEK_image_free_data(ext), 0u);
  EXPECT_EQ(data_of(ext), mine.data());

  // A library buffer allocated after a caller's used to keep the external mark and leak.
  const uint32_t again = vektest::make_image(VEK_Y8, 8, 8);
  VEK_image_free_data(again);
  VEK_image_set_ptr(again, VEK_PTR_DATA, mine.data());
  VEK_image_set_flags(again, VEK_FLAG_EXTERNAL, 1);
  EXPECT_EQ(VEK_image_malloc_a_strip(again), 0u);
  EXPECT_NE(data_of(again), mine.data());
  EXPECT_EQ(VEK_image_get_flags(again, VEK_FLAG_EXTERNAL), 0u);
}

TEST_F(Strips, AllocationFailures) {
  vektest::ErrorRecorder rec;
  const uint32_t h = VEK_image_create();
  EXPECT_EQ(VEK_image_malloc_a_strip(h), 0x10050010u);  // invalid: reported twice
  ASSERT_EQ(rec.count(), 2u);
  EXPECT_EQ(rec.reports()[0].function, "VEK_image_check");
  EXPECT_EQ(rec.reports()[1].function, "VEK_image_malloc_a_strip");
  EXPECT_EQ(rec.reports()[1].message, "Corrupt image");

  VEK_image_set_parameter(h, VEK_PARAM_FORMAT, VEK_Y8);
  VEK_image_set_parameter(h, VEK_PARAM_WIDTH, 70000);
  VEK_image_set_parameter(h, VEK_PARAM_LINE_ALIGN, 1);
  VEK_image_set_parameter(h, VEK_PARAM_STRIP_LINES, 1);
  rec.clear();
  vek::testing::fail_allocations_after(0);
  EXPECT_EQ(VEK_image_malloc_a_strip(h), 0x10061170u);  // low half of the size in the sub-code
  EXPECT_TRUE(rec.only("VEK_image_malloc_a_strip", 0x10061170, ""));
}

TEST_F(Strips, PointerKinds) {
  vektest::ErrorRecorder rec;
  const uint32_t h = VEK_image_create();
  EXPECT_EQ(VEK_image_get_ptr(h, 99), nullptr);
  EXPECT_EQ(VEK_image_get_ptr(h, 107), nullptr);
  EXPECT_EQ(VEK_image_get_ptr(60000, VEK_PTR_DATA), nullptr);
  EXPECT_EQ(rec.count(), 0u);  // getting never reports
  int dummy = 0;
  const struct {
    uint32_t handle, kind, code;
    const char* message;
  } refusals[] = {{h, 99, VEK_ERROR_BAD_PARAMETER, "Unrecognized pointer type"},
                  {h, 107, VEK_ERROR_BAD_PARAMETER, "Unrecognized pointer type"},
                  {h, VEK_PTR_JPEG_DATA, VEK_ERROR_BAD_HANDLE, "Not a JPEG image"},
                  {h, VEK_PTR_JPEG_DATA2, VEK_ERROR_BAD_HANDLE, "Not a JPEG image"},
                  {60000, VEK_PTR_DATA, VEK_ERROR_BAD_HANDLE, ""}};
  for (const auto& r : refusals) {
    rec.clear();
    EXPECT_EQ(VEK_image_set_ptr(r.handle, r.kind, &dummy), r.code) << r.kind;
    EXPECT_TRUE(rec.only("VEK_image_set_ptr", r.code, r.message)) << r.kind;
  }
  EXPECT_EQ(VEK_image_set_ptr(h, VEK_PTR_RECORD, nullptr), VEK_ERROR_BAD_PARAMETER);

  // A descriptor attached by hand exposes its buffers, its 32-byte block and a word.
  auto* jpeg = static_cast<Tjpeg*>(std::calloc(1, sizeof(Tjpeg)));
  EXPECT_EQ(VEK_image_set_ptr(h, VEK_PTR_JPEG, jpeg), 0u);
  uint8_t block[32];
  for (int i = 0; i < 32; ++i) block[i] = uint8_t(i);
  EXPECT_EQ(VEK_image_set_ptr(h, VEK_PTR_JPEG_BLOCK, block), 0u);
  EXPECT_EQ(std::memcmp(VEK_image_get_ptr(h, VEK_PTR_JPEG_BLOCK), block, 32), 0);
  EXPECT_EQ(VEK_image_set_ptr(h, VEK_PTR_JPEG_DATA2, block), 0u);
  EXPECT_EQ(VEK_image_get_ptr(h, VEK_PTR_JPEG_DATA2), block);
  VEK_image_set_ptr(h, VEK_PTR_JPEG_DATA2, nullptr);
  EXPECT_EQ(VEK_image_set_parameter(h, VEK_PARAM_JPEG_FIELD, 1234), 0u);
  EXPECT_EQ(VEK_image_get_parameter(h, VEK_PARAM_JPEG_FIELD), 1234u);
}

TEST_F(Strips, CopyParameters) {
  vektest::ErrorRecorder rec;
  const uint32_t src = vektest::make_image(VEK_RGB24, 5, 3);
  const uint32_t dst = VEK_image_create();
  VEK_image_set_flags(dst, VEK_FLAG_LOCKED, 1);
  VEK_image_set_flags(src, VEK_FLAG_EXTERNAL | VEK_FLAG_LUT, 1);
  VEK_image_set_parameter(src, VEK_PARAM_FIELD, 2);
  VEK_image_set_parameter(src, VEK_PARAM_COPY_ALIGN, 4);
  std::strcpy(VEK_image_get_outfilename(src), "out.bmp");
  static_cast<uint32_t*>(VEK_image_get_ptr(src, VEK_PTR_CMAP))[17] = 0x01020304;
  ASSERT_EQ(VEK_image_copy_parameters(src, dst), 0u);
  VEK_image_set_flags(src, VEK_FLAG_EXTERNAL, 0);
  // The destination keeps its own ownership flags and takes the rest.
  EXPECT_EQ(VEK_image_get_flags(dst, VEK_FLAG_LOCKED), 1u);
  EXPECT_EQ(VEK_image_get_flags(dst, VEK_FLAG_EXTERNAL), 0u);
  EXPECT_EQ(VEK_image_get_flags(dst, VEK_FLAG_LUT), 1u);
  EXPECT_EQ(VEK_image_get_parameter(dst, VEK_PARAM_FIELD), 2u);
  EXPECT_EQ(VEK_image_get_parameter(dst, VEK_PARAM_LINE_ALIGN), 4u);  // from the copy alignment
  EXPECT_STREQ(VEK_image_get_outfilename(dst), "out.bmp");
  // R, G and B travel; the spare byte keeps the destination's own value.
  EXPECT_EQ(static_cast<uint32_t*>(VEK_image_get_ptr(dst, VEK_PTR_CMAP))[17] & 0xFFFFFFu, 0x020304u);
  EXPECT_EQ(data_of(dst), nullptr);  // buffers are not copied
  ASSERT_EQ(VEK_image_check(dst), 0u);
  EXPECT_EQ(VEK_image_get_parameter(dst, VEK_PARAM_BYTES_PER_LINE), 16u);  // 15 -> 16 at align 4
  VEK_image_set_flags(dst, VEK_FLAG_LOCKED, 0);

  rec.clear();
  EXPECT_EQ(VEK_image_copy_parameters(60000, dst), VEK_ERROR_BAD_HANDLE);
  EXPECT_TRUE(rec.only("VEK_image_copy_parameters", VEK_ERROR_BAD_HANDLE, "Input image does not exist"));
  rec.clear();
  EXPECT_EQ(VEK_image_copy_parameters_raw(dst, 60000), VEK_ERROR_BAD_HANDLE);
  EXPECT_EQ(rec.last().message, "Output image does not exist");
}

TEST_F(Strips, Copy) {
  const uint32_t src = vektest::make_image(VEK_RGB24, 7, 9, 0, 4);
  vektest::fill_random(src, 11);
  const uint32_t dst = VEK_image_create();
  ASSERT_EQ(VEK_image_copy(src, dst), 0u);
  const uint32_t bpl = VEK_image_get_parameter(src, VEK_PARAM_BYTES_PER_LINE);
  ASSERT_EQ(VEK_image_get_parameter(dst, VEK_PARAM_BYTES_PER_LINE), bpl);
  EXPECT_NE(data_of(dst), data_of(src));
  EXPECT_EQ(std::memcmp(data_of(dst), data_of(src), size_t(bpl) * 9), 0);

  // A source holding no lines only passes its description on.
  const uint32_t empty = vektest::make_image(VEK_Y8, 4, 4);
  VEK_image_set_parameter(empty, VEK_PARAM_STRIP_LINES, 0);
  const uint32_t dst2 = VEK_image_create();
  EXPECT_EQ(VEK_image_copy(empty, dst2), 0u);
  EXPECT_EQ(VEK_image_get_parameter(dst2, VEK_PARAM_WIDTH), 4u);
  EXPECT_EQ(data_of(dst2), nullptr);

  vektest::ErrorRecorder rec;
  EXPECT_EQ(VEK_image_copy(VEK_image_create(), dst), 0x10050010u);
  EXPECT_EQ(rec.last().function, "VEK_image_copy");
  EXPECT_EQ(rec.last().message, "Corrupt image");
}

TEST_F(Strips, Move) {
  const uint32_t src = vektest::make_image(VEK_Y8, 8, 8);
  const uint32_t dst = vektest::make_image(VEK_Y8, 2, 2);
  void* buffer = data_of(src);
  ASSERT_EQ(VEK_image_move(src, dst), 0u);
  EXPECT_EQ(data_of(src), nullptr);
  EXPECT_EQ(data_of(dst), buffer);
  EXPECT_EQ(VEK_image_get_parameter(dst, VEK_PARAM_WIDTH), 8u);

  vektest::ErrorRecorder rec;
  VEK_image_set_flags(dst, VEK_FLAG_LOCKED, 1);
  EXPECT_EQ(VEK_image_move(dst, src), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_image_move", VEK_ERROR_NOT_SUPPORTED, "locked memory can't be moved (in source image)"));
  rec.clear();
  EXPECT_EQ(VEK_image_move(src, dst), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_image_move", VEK_ERROR_NOT_SUPPORTED, "Can't free locked memory (in destination image)"));
}

TEST_F(Strips, NLinesAndFileNames) {
  vektest::ErrorRecorder rec;
  const uint32_t h = vektest::make_image(VEK_RGB24, 10, 4);
  void* lines = VEK_malloc_N_lines(h, 0x10003);  // the count is 16-bit: 3 lines of 30 bytes
  ASSERT_NE(lines, nullptr);
  std::memset(lines, 0, 3 * 30);
  std::free(lines);
  EXPECT_EQ(VEK_malloc_N_lines(60000, 3), nullptr);

  EXPECT_EQ(VEK_image_set_infilename(h, "in.tif"), 0u);
  EXPECT_STREQ(VEK_image_get_infilename(h), "in.tif");
  EXPECT_EQ(VEK_image_set_outfilename(60000, "x"), VEK_ERROR_BAD_HANDLE);
  EXPECT_EQ(VEK_image_get_outfilename(60000), nullptr);
  EXPECT_EQ(VEK_image_set_outfilename(h, nullptr), VEK_ERROR_BAD_PARAMETER);
  const std::string long_name(900, 'n');
  EXPECT_EQ(VEK_image_set_outfilename(h, long_name.c_str()), 0u);
  EXPECT_EQ(std::strlen(VEK_image_get_outfilename(h)), 511u);

  const uint32_t other = VEK_image_create();
  VEK_image_set_outfilename(h, "a.bmp");
  EXPECT_EQ(VEK_copy_outfilename(other, h), 0u);  // destination first
  EXPECT_STREQ(VEK_image_get_outfilename(other), "a.bmp");
  EXPECT_EQ(VEK_copy_outfilename(other, 60000), 0u);
}

}  // namespace
