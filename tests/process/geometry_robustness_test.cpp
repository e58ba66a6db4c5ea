// Random and hostile arguments through every geometric operation: each call either
// succeeds or returns an error code, and (under the sanitizers) never reads or writes
// outside a buffer.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "process/geometry_support.h"
#include "support/recorder.h"
#include "vek.h"

using geomtest::keep;

namespace {

TEST(GeometryRobustness, RandomArgumentsNeverEscapeTheBuffers) {
  vektest::ErrorRecorder rec;
  std::mt19937 rng(2024);
  const uint32_t formats[] = {VEK_Y8, VEK_PALETTED, VEK_RGB8, VEK_RGB16, VEK_RGB24, VEK_BGR24,
                              VEK_XBGR32, VEK_YUV422, VEK_Y16, VEK_XRGB32};
  std::vector<uint16_t> xt(VEK_ZOOM_TABLE_ENTRIES), yt(VEK_ZOOM_TABLE_ENTRIES);
  auto small = [&](uint32_t n) { return uint32_t(rng() % n); };
  for (int trial = 0; trial < 400; ++trial) {
    const uint32_t format = formats[small(std::size(formats))];
    const uint32_t W = 1 + small(24), H = 1 + small(20), strip = 1 + small(H);
    const uint32_t in = keep(vektest::make_image(format, W, H, strip, 1 + small(4)));
    vektest::fill_random(in, trial);
    const uint32_t out = keep(VEK_image_create());
    const uint32_t other = keep(vektest::make_image(format, 1 + small(30), 1 + small(30)));
    const uint32_t region[4] = {small(W + 3), small(H + 3), small(W + 5), small(H + 5)};
    const uint32_t mode = small(6);
    for (auto& v : xt) v = uint16_t(rng());  // tables that may or may not look ready
    for (auto& v : yt) v = uint16_t(rng());
    if (small(2)) VEK_IP_bilinear_zoom_setup(region, small(40), small(40), xt.data(), yt.data());
    switch (trial % 11) {
      case 0: VEK_IP_crop(in, out, region, mode); break;
      case 1: VEK_IP_image_insert(other, in, small(32), small(32)); break;
      case 2: VEK_IP_extract_region(in, out, 0, small(30), small(30), small(20), mode); break;
      case 3: VEK_IP_mirror(in, out, region, mode); break;
      case 4: VEK_IP_mirror_image(in, out, mode); break;
      case 5: VEK_IP_rotate_image(in, out, 90 * small(4)); break;
      case 6: VEK_IP_scale(in, out, small(50), small(50), mode); break;
      case 7: VEK_IP_subsample(in, out, small(6)); break;
      case 8: VEK_IP_Subsample_by_Binning(in, out, small(6)); break;
      case 9: VEK_IP_pixel_rep(in, out, small(5), mode); break;
      default:
        VEK_IP_bilinear_zoom(in, out, region, small(60), small(60), xt.data(), yt.data(), mode);
        break;
    }
    // Strip sequences may be left in progress by a failure; a later mode 4 resets them.
    if (trial % 7 == 0) {
      VEK_IP_mirror_image(in, out, VEK_STRIP_END);
      VEK_IP_scale(in, out, 2, 2, VEK_STRIP_END);
      VEK_IP_pixel_rep(in, out, 1, VEK_STRIP_END);
      VEK_IP_bilinear_zoom(in, out, region, 2, 2, xt.data(), yt.data(), VEK_STRIP_END);
      VEK_IP_extract_region(in, out, 0, 1, 1, 1, VEK_STRIP_END);
    }
    for (const auto& r : rec.reports()) ASSERT_TRUE(VEK_IS_ERROR(r.code)) << r.function;
    rec.clear();
    if (trial % 20 == 19) VEK_image_destroy(VEK_ALL_IMAGES);
  }
  // Leave no sequence in progress for the tests that follow.
  const uint32_t region[4] = {0, 0, 1, 1};
  const uint32_t grey = keep(vektest::make_image(VEK_Y8, 2, 2)), out = keep(VEK_image_create());
  const uint32_t yuv = keep(vektest::make_image(VEK_YUV422, 2, 2));
  EXPECT_EQ(VEK_IP_mirror_image(grey, out, VEK_STRIP_END), 0u);
  EXPECT_EQ(VEK_IP_scale(grey, out, 2, 2, VEK_STRIP_END), 0u);
  EXPECT_EQ(VEK_IP_pixel_rep(grey, out, 1, VEK_STRIP_END), 0u);
  EXPECT_EQ(VEK_IP_extract_region(yuv, out, 0, 1, 1, 1, VEK_STRIP_END), 0u);
  EXPECT_EQ(VEK_IP_bilinear_zoom(grey, out, region, 2, 2, xt.data(), yt.data(), VEK_STRIP_END), 0u);
}

}  // namespace
