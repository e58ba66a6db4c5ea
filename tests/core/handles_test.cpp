// Handle table, creation defaults, destruction semantics and the library lock.
#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>
#include <vector>

#include "core/alloc.h"
#include "core/image.h"
#include "support/recorder.h"

namespace {

class Handles : public ::testing::Test {
 protected:
  void SetUp() override { VEK_image_destroy(VEK_ALL_IMAGES); }
  void TearDown() override {
    vek::testing::fail_allocations_after(-1);
    VEK_image_destroy(VEK_ALL_IMAGES);
  }
};

TEST_F(Handles, LowestFreeHandleIsReused) {
  EXPECT_EQ(VEK_image_create(), 1u);
  EXPECT_EQ(VEK_image_create(), 2u);
  EXPECT_EQ(VEK_image_destroy(1), 0u);
  EXPECT_EQ(VEK_image_create(), 1u);
  EXPECT_EQ(VEK_image_create(), 3u);
}

TEST_F(Handles, ExhaustionAfter65535) {
  vektest::ErrorRecorder rec;
  uint32_t h = 0;
  for (uint32_t i = 1; i <= 65535; ++i) {
    h = VEK_image_create();
    ASSERT_EQ(h, i);
  }
  EXPECT_EQ(VEK_image_create(), VEK_ERROR_OUT_OF_HANDLES);
  EXPECT_TRUE(rec.only("VEK_image_create", VEK_ERROR_OUT_OF_HANDLES, "Run out of image handles"));
  VEK_image_destroy(40000);
  EXPECT_EQ(VEK_image_create(), 40000u);
}

TEST_F(Handles, NewImageDefaults) {
  const uint32_t h = VEK_image_create();
  EXPECT_EQ(VEK_image_get_parameter(h, VEK_PARAM_HEIGHT), 32767u);
  EXPECT_EQ(VEK_image_get_parameter(h, VEK_PARAM_STRIP_LINES), 8u);
  EXPECT_EQ(VEK_image_get_parameter(h, VEK_PARAM_LINE_ALIGN), 2u);
  EXPECT_EQ(VEK_image_get_parameter(h, VEK_PARAM_19), 1u);
  EXPECT_EQ(VEK_image_get_parameter(h, VEK_PARAM_WIDTH), 0u);
  EXPECT_EQ(VEK_image_get_parameter(h, VEK_PARAM_FORMAT), 0u);
  EXPECT_EQ(VEK_image_get_ptr(h, VEK_PTR_DATA), nullptr);
  EXPECT_EQ(VEK_image_get_ptr(h, VEK_PTR_JPEG), nullptr);
  const auto* map = static_cast<const uint32_t*>(VEK_image_get_ptr(h, VEK_PTR_CMAP));
  ASSERT_NE(map, nullptr);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(map[i], 0xAAAAAAAAu);
}

TEST_F(Handles, DestroyUnknownOrTwiceIsSilent) {
  vektest::ErrorRecorder rec;
  const uint32_t h = VEK_image_create();
  EXPECT_EQ(VEK_image_destroy(h), 0u);
  EXPECT_EQ(VEK_image_destroy(h), 0u);
  EXPECT_EQ(VEK_image_destroy(0), 0u);
  EXPECT_EQ(VEK_image_destroy(65535), 0u);
  EXPECT_EQ(rec.count(), 0u);
}

TEST_F(Handles, LibraryTablesOnlyWhenNoImageExists) {
  vektest::ErrorRecorder rec;
  const uint32_t h = VEK_image_create();
  EXPECT_EQ(VEK_image_destroy(VEK_LIBRARY_TABLES), VEK_ERROR_INTERNAL);
  EXPECT_EQ(rec.count(), 0u);
  VEK_image_destroy(h);
  EXPECT_EQ(VEK_image_destroy(VEK_LIBRARY_TABLES), 0u);
}

TEST_F(Handles, DestroyAllLeavesLibraryUsable) {
  for (int i = 0; i < 5; ++i) VEK_image_create();
  EXPECT_EQ(VEK_image_destroy(VEK_ALL_IMAGES), 0u);
  EXPECT_EQ(VEK_image_get_flags(3, 1), VEK_ERROR_BAD_HANDLE);
  EXPECT_EQ(VEK_image_create(), 1u);
}

TEST_F(Handles, RecordAllocationFailure) {
  vektest::ErrorRecorder rec;
  vek::testing::fail_allocations_after(0);
  EXPECT_EQ(VEK_image_create(), VEK_ERROR_MEMORY | 1u);
  EXPECT_TRUE(rec.only("VEK_image_create", 0x10060001, ""));
  vek::testing::fail_allocations_after(-1);
  EXPECT_EQ(VEK_image_create(), 1u);  // the failed attempt took no handle
}

TEST_F(Handles, ColourMapFailureKeepsHandleOccupied) {
  vektest::ErrorRecorder rec;
  vek::testing::fail_allocations_after(1);  // record yes, colour map no
  EXPECT_EQ(VEK_image_create(), VEK_ERROR_MEMORY);
  EXPECT_TRUE(rec.only("VEK_image_create", 0x10060000, ""));
  vek::testing::fail_allocations_after(-1);
  EXPECT_EQ(VEK_image_create(), 2u);
}

TEST(Lock, RecursiveAndOwnerChecked) {
  VEK_Init();
  EXPECT_EQ(VEK_CriticalSectionBegin(), 0u);
  EXPECT_EQ(VEK_CriticalSectionBegin(), 0u);
  uint32_t other = 0;
  std::thread t([&] { other = VEK_CriticalSectionEnd(); });  // not the owner
  t.join();
  EXPECT_EQ(other, VEK_ERROR_SYSTEM_CALL);
  EXPECT_EQ(VEK_CriticalSectionEnd(), 0u);
  EXPECT_EQ(VEK_CriticalSectionEnd(), 0u);
  EXPECT_EQ(VEK_CriticalSectionEnd(), VEK_ERROR_SYSTEM_CALL);
}

TEST(Lock, ConcurrentCreationGivesDistinctHandles) {
  VEK_image_destroy(VEK_ALL_IMAGES);
  std::vector<std::vector<uint32_t>> got(4);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 500; ++i) got[t].push_back(VEK_image_create());
    });
  for (auto& t : threads) t.join();
  std::vector<bool> seen(2001, false);
  for (const auto& v : got)
    for (uint32_t h : v) {
      ASSERT_GE(h, 1u);
      ASSERT_LE(h, 2000u);
      ASSERT_FALSE(seen[h]);
      seen[h] = true;
    }
  VEK_image_destroy(VEK_ALL_IMAGES);
}

}  // namespace
