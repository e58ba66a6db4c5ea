// Byte order, allocation counters, command parsing, the test pattern and the
// shared strip-sequencing state.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "core/image.h"
#include "support/recorder.h"

namespace {

TEST(ByteOrder, MemoryForms) {
  const uint8_t b[4] = {0x12, 0x34, 0x56, 0x78};
  EXPECT_EQ(VEK_mget_ui16m(b), 0x1234);
  EXPECT_EQ(VEK_mget_ui16i(b), 0x3412);
  const uint8_t c[4] = {1, 2, 3, 4};
  EXPECT_EQ(VEK_mget_ui32i(c), 0x04030201u);
  EXPECT_EQ(VEK_mget_ui32m(c), 0x01020304u);
  uint8_t out[4] = {};
  VEK_mput_ui32m(out, 0x11223344);
  EXPECT_EQ(std::memcmp(out, "\x11\x22\x33\x44", 4), 0);
  VEK_mput_ui32i(out, 0x11223344);
  EXPECT_EQ(std::memcmp(out, "\x44\x33\x22\x11", 4), 0);
  VEK_mput_ui16m(out, 0xABCDEF);
  EXPECT_EQ(std::memcmp(out, "\xCD\xEF", 2), 0);
  VEK_mput_ui16i(out, 0xABCD);
  EXPECT_EQ(std::memcmp(out, "\xCD\xAB", 2), 0);
  VEK_mput_ui8(out, 0x1FF);
  EXPECT_EQ(out[0], 0xFF);
}

TEST(ByteOrder, StreamFormsRoundTrip) {
  FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  VEK_fput_ui32m(f, 0x11223344);
  VEK_fput_ui32i(f, 0x11223344);
  VEK_fput_ui16m(f, 0xBEEF);
  VEK_fput_ui16i(f, 0xBEEF);
  EXPECT_EQ(VEK_fput_ui8(f, 0x7A), 0x7A);
  std::rewind(f);
  uint8_t raw[13];
  ASSERT_EQ(std::fread(raw, 1, 13, f), 13u);
  EXPECT_EQ(std::memcmp(raw, "\x11\x22\x33\x44\x44\x33\x22\x11\xBE\xEF\xEF\xBE\x7A", 13), 0);
  std::rewind(f);
  EXPECT_EQ(VEK_fget_ui32m(f), 0x11223344u);
  EXPECT_EQ(VEK_fget_ui32i(f), 0x11223344u);
  EXPECT_EQ(VEK_fget_ui16m(f), 0xBEEFu);
  EXPECT_EQ(VEK_fget_ui16i(f), 0xBEEFu);
  // Past the end the EOF value leaks into the little-endian 16-bit form unmasked.
  EXPECT_EQ(VEK_fget_ui16i(f), 0x7Au + (uint32_t(EOF) << 8));
  EXPECT_TRUE(std::feof(f));
  std::fclose(f);
}

TEST(DebugMalloc, CountsSuccessfulCallsAndBytes) {
  const uint32_t calls = VEK_DebugMallocCount();
  const uint32_t frees = VEK_DebugFreeCount();
  const size_t bytes = VEK_DebugMallocPrint();
  void* a = VEK_DebugMalloc(100);
  void* b = VEK_DebugMalloc(28);
  VEK_DebugFree(a);
  VEK_DebugFree(b);
  EXPECT_EQ(VEK_DebugMallocCount(), calls + 2);
  EXPECT_EQ(VEK_DebugFreeCount(), frees + 2);
  EXPECT_EQ(VEK_DebugMallocPrint(), bytes + 128);
}

TEST(ParseCommand, OptionsOperandsAndEmptyProgramName) {
  const char* args[] = {"prog", "-a", "x", "-b", "y"};
  tVEK_Command cmd;
  std::memset(&cmd, 0x5A, sizeof cmd);
  ASSERT_EQ(VEK_Util_ParseCommand(&cmd, 5, const_cast<char**>(args)), 0u);
  EXPECT_EQ(cmd.argc, 5);
  EXPECT_EQ(cmd.options, 2);
  EXPECT_EQ(cmd.operands, 2);
  EXPECT_STREQ(cmd.program, "");
  EXPECT_STREQ(cmd.option[0], "-a");
  EXPECT_STREQ(cmd.option[1], "-b");
  EXPECT_STREQ(cmd.option[2], "");
  EXPECT_STREQ(cmd.operand[0], "x");
  EXPECT_STREQ(cmd.operand[1], "y");
  EXPECT_STREQ(cmd.operand[2], "");
}

TEST(ParseCommand, BoundsHoldForLongAndManyArguments) {
  std::vector<std::string> store{"prog"};
  for (int i = 0; i < 40; ++i) store.push_back(std::string(300, char('a' + i % 26)));
  for (int i = 0; i < 6; ++i) store.push_back("-o" + std::to_string(i));
  std::vector<char*> argv;
  for (auto& s : store) argv.push_back(s.data());
  tVEK_Command cmd;
  ASSERT_EQ(VEK_Util_ParseCommand(&cmd, int(argv.size()), argv.data()), 0u);
  EXPECT_EQ(cmd.operands, 40);
  EXPECT_EQ(cmd.options, 6);
  EXPECT_EQ(std::strlen(cmd.operand[0]), VEK_COMMAND_TEXT - 1u);
  EXPECT_STREQ(cmd.option[2], "-o2");
  vektest::ErrorRecorder rec;
  EXPECT_EQ(VEK_Util_ParseCommand(nullptr, 0, nullptr), VEK_ERROR_BAD_PARAMETER);
}

class TestPattern : public ::testing::Test {
 protected:
  void SetUp() override { VEK_Init(); }
  void TearDown() override { VEK_image_destroy(VEK_ALL_IMAGES); }
};

TEST_F(TestPattern, Y8RampRepeatsEvery256Columns) {
  const uint32_t h = vektest::make_image(VEK_Y8, 300, 3);
  ASSERT_EQ(VEK_test_pattern(h, VEK_STRIP_NEXT), 0u);
  const auto* d = static_cast<const uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA));
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 300; ++x) ASSERT_EQ(d[y * 300 + x], x % 256) << x << "," << y;
}

TEST_F(TestPattern, DepthsAndRefusals) {
  const uint32_t rgb = vektest::make_image(VEK_RGB24, 4, 2);
  ASSERT_EQ(VEK_test_pattern(rgb, VEK_STRIP_NEXT), 0u);
  const auto* d = static_cast<const uint8_t*>(VEK_image_get_ptr(rgb, VEK_PTR_DATA));
  const uint8_t want[12] = {0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3};
  EXPECT_EQ(std::memcmp(d, want, 12), 0);
  const uint32_t bgrx = vektest::make_image(VEK_BGRX32, 3, 1);
  ASSERT_EQ(VEK_test_pattern(bgrx, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(VEK_mget_ui32i(VEK_image_get_ptr(bgrx, VEK_PTR_DATA)), 0x55AA55AAu);
  const uint32_t rgb16 = vektest::make_image(VEK_RGB16, 3, 1);
  ASSERT_EQ(VEK_test_pattern(rgb16, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(VEK_mget_ui16i(static_cast<uint8_t*>(VEK_image_get_ptr(rgb16, VEK_PTR_DATA)) + 4), 0x0202);

  vektest::ErrorRecorder rec;
  const uint32_t bayer16 = vektest::make_image(VEK_FORMAT_17, 4, 2);
  EXPECT_EQ(VEK_test_pattern(bayer16, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_test_pattern_1_strip", VEK_ERROR_NOT_SUPPORTED, "Unsupported image format"));
  rec.clear();
  const uint32_t fresh = VEK_image_create();
  EXPECT_EQ(VEK_test_pattern(fresh, VEK_STRIP_NEXT), 0x10050010u);
  EXPECT_EQ(rec.last().function, "VEK_test_pattern");
  EXPECT_EQ(rec.last().message, "Corrupt image");
}

TEST_F(TestPattern, StripProtocolTrimsTheLastStrip) {
  const uint32_t h = vektest::make_image(VEK_Y8, 16, 20, 8);
  ASSERT_EQ(VEK_image_calc_total_strips(h), 3u);
  std::vector<uint32_t> lines;
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(VEK_test_pattern(h, VEK_STRIP_NEXT), 0u);
    lines.push_back(VEK_image_get_parameter(h, VEK_PARAM_STRIP_LINES));
  }
  EXPECT_EQ(lines, (std::vector<uint32_t>{8, 8, 4}));
  // The sequence has ended: restoring the strip height starts a new image.
  VEK_image_set_parameter(h, VEK_PARAM_STRIP_LINES, 8);
  ASSERT_EQ(VEK_test_pattern(h, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(VEK_image_get_parameter(h, VEK_PARAM_STRIP_LINES), 8u);
  // Mode 4 ends early; other modes do nothing.
  EXPECT_EQ(VEK_test_pattern(h, VEK_STRIP_END), 0u);
  EXPECT_EQ(VEK_test_pattern(h, 7), 0u);
  ASSERT_EQ(VEK_test_pattern(h, VEK_STRIP_NEXT), 0u);
  ASSERT_EQ(VEK_test_pattern(h, VEK_STRIP_NEXT), 0u);
  ASSERT_EQ(VEK_test_pattern(h, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(VEK_image_get_parameter(h, VEK_PARAM_STRIP_LINES), 4u);
}

TEST(StripSequence, PlanCommitAndFailureKeepState) {
  vek::ImageRecord rec{};
  rec.height = 10;
  rec.lines_per_strip = 4;
  vek::StripSequence seq;
  int setups = 0;
  std::vector<uint32_t> seen;
  auto setup = [&] { ++setups; return VEK_OK; };
  auto process = [&](const vek::StripSequence::Strip& s) {
    seen.push_back(s.first_line * 100 + s.lines);
    return VEK_OK;
  };
  for (int i = 0; i < 3; ++i) ASSERT_EQ(vek::run_strip(seq, VEK_STRIP_NEXT, rec, setup, process), 0u);
  EXPECT_EQ(setups, 1);
  EXPECT_EQ(seen, (std::vector<uint32_t>{4, 404, 802}));
  EXPECT_TRUE(seq.idle());
  EXPECT_EQ(rec.lines_per_strip, 2u);

  // A failing strip leaves the count where it was; mode 4 resets.
  rec.lines_per_strip = 4;
  ASSERT_EQ(vek::run_strip(seq, VEK_STRIP_NEXT, rec, setup, process), 0u);
  auto failing = [](const vek::StripSequence::Strip&) { return VEK_ERROR_INTERNAL; };
  EXPECT_EQ(vek::run_strip(seq, VEK_STRIP_NEXT, rec, setup, failing), VEK_ERROR_INTERNAL);
  EXPECT_EQ(seq.consumed(), 4u);
  EXPECT_FALSE(seq.idle());
  EXPECT_EQ(vek::run_strip(seq, VEK_STRIP_END, rec, setup, process), 0u);
  EXPECT_TRUE(seq.idle());
  // A failing setup does not start a sequence.
  auto bad_setup = [] { return VEK_ERROR_BAD_PARAMETER; };
  EXPECT_EQ(vek::run_strip(seq, VEK_STRIP_NEXT, rec, bad_setup, process), VEK_ERROR_BAD_PARAMETER);
  EXPECT_TRUE(seq.idle());
}

TEST(FormatTraits, TableAgreesWithValidator) {
  VEK_Init();
  const uint32_t h = VEK_image_create();
  for (uint32_t code = 1; code <= 110; ++code) {
    const vek::FormatTraits* t = vek::format_traits(code);
    if (!t) continue;
    ASSERT_EQ(VEK_image_set_parameter(h, VEK_PARAM_FORMAT, code), 0u) << code;
    VEK_image_set_parameter(h, VEK_PARAM_WIDTH, 12);
    VEK_image_set_parameter(h, VEK_PARAM_LINE_ALIGN, 1);
    ASSERT_EQ(VEK_image_check(h), 0u) << code;
    EXPECT_EQ(VEK_image_get_parameter(h, VEK_PARAM_BYTES_PER_LINE), 12u * t->pixel_bytes) << code;
  }
  VEK_image_destroy(h);
}

}  // namespace
