// Refusals of every geometric operation, and random and hostile arguments: each call
// either succeeds or returns an error code, and (under the sanitizers) never reads or
// writes outside a buffer.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "process/geometry_support.h"
#include "support/recorder.h"
#include "vek.h"

using namespace geomtest;

namespace {

TEST(GeometryRefusals, EachIsReportedOnceUnderItsNameAndMessage) {
  const uint32_t y8 = noise(VEK_Y8, 8, 8, 1), bgr = noise(VEK_BGR24, 8, 8, 2), out = blank(), none = blank();
  const uint32_t rgb16 = noise(VEK_RGB16, 8, 8, 3), xrgb = noise(VEK_XRGB32, 4, 4, 4), yuv = noise(VEK_YUV422, 4, 4, 5);
  const uint32_t small = noise(VEK_BGR24, 4, 3, 6), part = keep(vektest::make_image(VEK_Y8, 16, 20, 8)), y1 = blank();
  VEK_image_set_parameter(y1, VEK_PARAM_FORMAT, VEK_Y1);
  VEK_image_set_parameter(y1, VEK_PARAM_WIDTH, 8);
  VEK_image_set_parameter(y1, VEK_PARAM_HEIGHT, 8);
  std::vector<uint16_t> xt(VEK_ZOOM_TABLE_ENTRIES), yt(VEK_ZOOM_TABLE_ENTRIES);
  uint16_t *x = xt.data(), *y = yt.data();
  const uint32_t r[4] = {0, 0, 4, 4}, r2[4] = {0, 0, 2, 3}, past_x[4] = {8, 0, 2, 2}, empty[4] = {0, 0, 0, 2};
  const uint32_t kNS = VEK_ERROR_NOT_SUPPORTED, kBP = VEK_ERROR_BAD_PARAMETER, kCorrupt = 0x10050010;
  const std::string kFmt = "Unsupported image format", kOutside = "Region outside the image",
                    kWhole = "This function only supports full height images - not multiple strips",
                    kIns = "VEK_IP_image_insert", kScale = "VEK_IP_threshold_grayscale",  // historic name
                    kSetup = "VEK_IP_bilinear_zoom_setup", kZoom = "VEK_IP_bilinear_zoom";
  const struct {
    std::function<uint32_t()> call;
    uint32_t code;
    std::string function, message;
    size_t reports = 1;  // a corrupt image is first reported by the validator itself
  } cases[] = {
      {[&] { return VEK_IP_crop(y8, out, nullptr, 3); }, kBP, "VEK_IP_crop", "Roi pointer is NULL"},
      {[&] { return VEK_IP_Crop_Image(xrgb, out, r); }, 0x1007000F, "VEK_IP_crop", kFmt},
      {[&] { return VEK_IP_crop(part, out, r, 3); }, kNS, "VEK_IP_crop", kWhole},
      {[&] { return VEK_IP_Crop_Image(y8, out, past_x); }, kBP, "VEK_IP_crop", kOutside},
      {[&] { return VEK_IP_Crop_Image(y8, out, empty); }, kBP, "VEK_IP_crop", kOutside},
      // Insert bounds (8 x 8 target, 4 x 3 insert) are tested left, right, high, low.
      {[&] { return VEK_IP_image_insert(bgr, small, 0, 0); }, kNS, kIns, "Trying to insert image too far left"},
      {[&] { return VEK_IP_image_insert(bgr, small, 6, 0); }, kNS, kIns, "Trying to insert image too far right"},
      {[&] { return VEK_IP_image_insert(bgr, small, 5, 0); }, kNS, kIns, "Trying to insert image too high"},
      {[&] { return VEK_IP_image_insert(bgr, small, 5, 7); }, kNS, kIns, "Trying to insert image too low"},
      {[&] { return VEK_IP_image_insert(y8, small, 1, 1); }, kNS, kIns, "Pixel Formats are different"},
      {[&] { return VEK_IP_image_insert(bgr, none, 1, 1); }, kCorrupt, kIns, "hInsertImage is corrupt", 2},
      {[&] { return VEK_IP_image_insert(none, bgr, 1, 1); }, kCorrupt, kIns, "hInImage is corrupt", 2},
      {[&] { return VEK_IP_mirror(y8, out, nullptr, 3); }, kBP, "VEK_IP_mirror", "Roi pointer is NULL"},
      {[&] { return VEK_IP_mirror_image(y1, out, 3); }, kNS, "VEK_IP_mirror_image", kFmt},
      {[&] { return VEK_IP_mirror_image(y8, y8, 3); }, kBP, "VEK_IP_mirror_image",
       "Input and output must be different images"},
      {[&] { return VEK_IP_rotate_image(y8, out, 45); }, kNS, "VEK_IP_rotate_image",
       "Only angles of 0, 90, 180 and 270 supported"},
      {[&] { return VEK_IP_rotate_image(yuv, out, 90); }, 0x10070001, "VEK_IP_rotate_image_1_strip",
       "Unsupported image type (convert to non-YUV first)"},
      {[&] { return VEK_IP_rotate_image(part, out, 90); }, kNS, "VEK_IP_rotate_image", kWhole},
      {[&] { return VEK_IP_extract_region(y8, out, 0, 4, 4, 2, 3); }, kNS, "VEK_IP_extract_region", kFmt},
      {[&] { return VEK_IP_pixel_rep(bgr, out, 2, 3); }, 0x10070008, "VEK_IP_pixel_rep", kFmt},
      {[&] { return VEK_IP_pixel_rep(y8, out, 0, 3); }, kNS, "VEK_IP_pixel_rep", "Unsupported replication factor"},
      {[&] { return VEK_IP_scale(bgr, out, 4, 4, 3); }, kNS, kScale, "Supports RGB24 & Y8 only"},
      {[&] { return VEK_IP_scale(none, out, 4, 4, 3); }, kCorrupt, kScale, "Corrupt image", 2},
      {[&] { return VEK_IP_scale(y8, out, 4, 1, 3); }, kBP, kScale, "Unsupported scaling size"},  // height - 1 = 0
      {[&] { return VEK_IP_bilinear_zoom_setup(r2, 1, 5, x, y); }, kNS, kSetup,
       "Zooming out unsupported in this release"},
      {[&] { return VEK_IP_bilinear_zoom_setup(nullptr, 4, 4, x, y); }, kBP, kSetup, "Roi pointer is NULL"},
      {[&] { return VEK_IP_bilinear_zoom_setup(r, 4, 4, nullptr, y); }, kBP, kSetup, "XCoeffs pointer is NULL"},
      {[&] { return VEK_IP_bilinear_zoom_setup(r, 4, 4, x, nullptr); }, kBP, kSetup, "YCoeffs pointer is NULL"},
      {[&] { return VEK_IP_bilinear_zoom(y8, out, nullptr, 4, 4, x, y, 3); }, kBP, kZoom, "Roi pointer is NULL"},
      {[&] { return VEK_IP_bilinear_zoom(y8, out, r, 4, 4, x, nullptr, 3); }, kBP, kZoom, "YCoeffs pointer is NULL"},
      {[&] { return VEK_IP_bilinear_zoom(bgr, out, r, 9, 9, x, y, 3); }, 0x10070008, kZoom, kFmt},
      {[&] { return VEK_IP_subsample(rgb16, out, 2); }, 0x10070006, "VEK_IP_subsample", kFmt},
      {[&] { return VEK_IP_Subsample_by_Binning(y8, out, 0); }, kNS, "VEK_IP_Subsample_by_Binning",
       "Unsupported sub-sampling factor"},
      {[&] { return VEK_IP_subsample(part, out, 2); }, kBP, "VEK_IP_subsample_1_strip",
       "Input does not hold the whole image"},
  };
  for (const auto& c : cases) {
    vektest::ErrorRecorder rec;
    EXPECT_EQ(c.call(), c.code) << c.message;
    ASSERT_EQ(rec.count(), c.reports) << c.message;
    EXPECT_EQ(rec.last().function, c.function) << c.message;
    EXPECT_EQ(rec.last().code, c.code);
    EXPECT_EQ(rec.last().message, c.message);
  }
  EXPECT_EQ(param(part, VEK_PARAM_STRIP_LINES), 8u);  // refused before anything changed
  EXPECT_EQ(VEK_IP_rotate_image(y8, out, 180), 0u);   // a refused sequence does not block the next
}

TEST(GeometryRobustness, RandomArgumentsNeverEscapeTheBuffers) {
  vektest::ErrorRecorder rec;
  std::mt19937 rng(2024);
  const uint32_t formats[] = {VEK_Y8, VEK_PALETTED, VEK_RGB8, VEK_RGB16, VEK_RGB24, VEK_BGR24,
                              VEK_XBGR32, VEK_YUV422, VEK_Y16, VEK_XRGB32};
  std::vector<uint16_t> xt(VEK_ZOOM_TABLE_ENTRIES), yt(VEK_ZOOM_TABLE_ENTRIES);
  auto small = [&](uint32_t n) { return uint32_t(rng() % n); };
  const uint32_t one[4] = {0, 0, 1, 1};
  auto end_sequences = [&](uint32_t img, uint32_t yuv) {  // mode 4 resets every sequence
    const uint32_t out = blank();
    return VEK_IP_mirror_image(img, out, 4) | VEK_IP_scale(img, out, 2, 2, 4) | VEK_IP_pixel_rep(img, out, 1, 4) |
           VEK_IP_bilinear_zoom(img, out, one, 2, 2, xt.data(), yt.data(), 4) |
           VEK_IP_extract_region(yuv, out, 0, 1, 1, 1, 4);
  };
  for (int trial = 0; trial < 400; ++trial) {
    const uint32_t format = formats[small(std::size(formats))];
    const uint32_t W = 1 + small(24), H = 1 + small(20), strip = 1 + small(H);
    const uint32_t in = noise(format, W, H, trial, strip, 1 + small(4)), out = blank();
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
      default: VEK_IP_bilinear_zoom(in, out, region, small(60), small(60), xt.data(), yt.data(), mode); break;
    }
    if (trial % 7 == 0) end_sequences(in, in);  // a failure may leave a sequence in progress
    for (const auto& rep : rec.reports()) ASSERT_TRUE(VEK_IS_ERROR(rep.code)) << rep.function;
    rec.clear();
    if (trial % 20 == 19) VEK_image_destroy(VEK_ALL_IMAGES);
  }
  rec.clear();  // leave no sequence in progress for the tests that follow
  EXPECT_EQ(end_sequences(noise(VEK_Y8, 2, 2, 0), noise(VEK_YUV422, 2, 2, 0)), 0u);
  EXPECT_EQ(rec.count(), 0u);
}

}  // namespace
