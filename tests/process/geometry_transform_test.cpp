// Crop, insert, mirror, rotation, circular extraction and pixel replication against
// references written from the pixel mappings, in one strip and streamed through several;
// then the refusals of every geometric operation, and random and hostile arguments: each
// call succeeds or returns an error code, and (under the sanitizers) never leaves its buffers.
#include <random>
#include <string>

#include "process/geometry_support.h"

using namespace geomtest;

namespace {

// A random region (clamped where it overflows) is cropped, then inserted into another
// image at a random place; the first trial puts it at the bottom-right corner.
TEST_F(Geometry, CropInsertCopyTheRegionAcrossFormats) {
  std::mt19937 rng(7);
  for (uint32_t format : {VEK_Y8, VEK_PALETTED, VEK_RGB15, VEK_RGB16, VEK_RGB24, VEK_BGR24, VEK_RGBX32,
                          VEK_BGRX32, VEK_XBGR32, VEK_YUV422, VEK_CMYK32, VEK_Y16}) {
    for (uint32_t trial = 0; trial < 6; ++trial) {
      const uint32_t W = 1 + rng() % 40, H = 1 + rng() % 30, b = bpp(format);
      const uint32_t in = noise(format, W, H, 100 + trial, 0, trial % 2 ? 4 : 2), cut = blank();
      const uint32_t region[4] = {uint32_t(rng() % W), uint32_t(rng() % H), 1 + uint32_t(rng() % 45),
                                  1 + uint32_t(rng() % 35)};
      ASSERT_EQ(VEK_IP_Crop_Image(in, cut, region), 0u) << format;
      const uint32_t w = std::min(region[2], W - region[0]), h = std::min(region[3], H - region[1]);
      ASSERT_EQ(dims(cut), (Dims{w, h, h}));
      ASSERT_EQ(param(cut, VEK_PARAM_FORMAT), format);
      ASSERT_EQ(param(in, VEK_PARAM_STRIP_LINES), H);  // the input is left whole
      for (uint32_t r = 0; r < h; ++r)
        ASSERT_EQ(0, std::memcmp(at(cut, 0, r), at(in, region[0], region[1] + r), w * b)) << format << " row " << r;

      const uint32_t TW = w + rng() % 20, TH = h + rng() % 12, target = noise(format, TW, TH, trial, 0, 4);
      const uint32_t x = 1 + (trial ? rng() % (TW - w + 1) : TW - w), y = 1 + (trial ? rng() % (TH - h + 1) : TH - h);
      const uint32_t tp = param(target, VEK_PARAM_BYTES_PER_LINE);
      std::vector<uint8_t> expect(pixels(target), pixels(target) + size_t(tp) * TH);
      for (uint32_t r = 0; r < h; ++r) std::memcpy(&expect[(y - 1 + r) * tp + (x - 1) * b], at(cut, 0, r), w * b);
      ASSERT_EQ(VEK_IP_image_insert(target, cut, x, y), 0u);
      ASSERT_EQ(0, std::memcmp(expect.data(), pixels(target), expect.size())) << format;
    }
  }
}

// The end mode gives the parameters only. A caller's buffer is trusted for lines
// beyond its strip, but the region's rows must lie within the lines it holds (a
// library-allocated short strip is refused: see the refusals).
TEST_F(Geometry, CropEndModeAndCallersShortStrip) {
  const uint32_t in = noise(VEK_RGB24, 9, 7, 1), out = blank(), region[4] = {1, 1, 3, 2};
  ASSERT_EQ(VEK_IP_crop(in, out, region, VEK_STRIP_END), 0u);
  EXPECT_EQ(dims(out), (Dims{3, 2, 2}));
  EXPECT_EQ(pixels(out), nullptr);

  auto buffer = vektest::random_bytes(16 * 8, 1);
  const uint32_t ext = keep(vektest::make_image(VEK_Y8, 16, 20, 8));
  VEK_image_free_data(ext);
  VEK_image_set_ptr(ext, VEK_PTR_DATA, buffer.data());
  VEK_image_set_flags(ext, VEK_FLAG_EXTERNAL, 1);
  const uint32_t deep[4] = {0, 6, 4, 4}, inside[4] = {3, 5, 4, 3};
  EXPECT_EQ(VEK_IP_crop(ext, out, deep, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED);
  rec.clear();
  ASSERT_EQ(VEK_IP_crop(ext, out, inside, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(ext, VEK_PARAM_STRIP_LINES), 20u);
  for (uint32_t r = 0; r < 3; ++r) EXPECT_EQ(0, std::memcmp(at(out, 0, r), &buffer[(5 + r) * 16 + 3], 4)) << r;
}

// Whole images of every format and width, then a region of the same input mirrored
// over the first result (the region call copies the input first).
TEST_F(Geometry, MirrorWholeImagesAndRegionsOfEverySize) {
  std::mt19937 rng(5);
  for (uint32_t format : {VEK_Y8, VEK_PALETTED, VEK_RGB8, VEK_RGB15, VEK_RGB16, VEK_RGB24, VEK_BGR24,
                          VEK_RGBX32, VEK_BGRX32, VEK_XBGR32, VEK_YUV422, VEK_CMYK32, VEK_Y16, VEK_XRGB32}) {
    for (uint32_t W : {1u, 2u, 5u, 8u, 17u, 64u}) {
      if (format == VEK_YUV422 && W % 2) continue;
      const uint32_t in = noise(format, W, 5, W * 31 + format, 0, W % 3 ? 2 : 4), out = blank();
      ASSERT_EQ(VEK_IP_mirror_image(in, out, VEK_STRIP_NEXT), 0u);
      ASSERT_EQ(dims(out), (Dims{W, 5, 5}));
      expect_mapped(in, out, [&](uint32_t c, uint32_t r) { return Src{W - 1 - c, r, W / 2 - 1 - c / 2}; });
      if (format == VEK_YUV422 || format == VEK_RGB8 || format == VEK_XRGB32) continue;  // no crop
      const uint32_t x = rng() % W, w = 1 + rng() % (W - x), region[4] = {x, 1, w, 3};
      ASSERT_EQ(VEK_IP_mirror(in, out, region, VEK_STRIP_NEXT), 0u);
      expect_mapped(in, out, [&](uint32_t c, uint32_t r) {
        return Src{r >= 1 && r < 4 && c >= x && c < x + w ? 2 * x + w - 1 - c : c, r, 0};
      });
    }
  }
}

TEST_F(Geometry, SequenceEndModeResetsAndOtherModesDoNothing) {
  const uint32_t in = keep(vektest::make_image(VEK_Y8, 8, 10, 4)), out = blank();
  // Lines 0..3, an ignored mode, an early end; had the end not reset the count, the
  // fifth call would be the last strip and trim the input to 2 lines.
  for (uint32_t mode : {3, 7, 4, 3, 3}) ASSERT_EQ(VEK_IP_mirror_image(in, out, mode), 0u);
  EXPECT_EQ(param(in, VEK_PARAM_STRIP_LINES), 4u);
  ASSERT_EQ(VEK_IP_mirror_image(in, out, 3), 0u);
  EXPECT_EQ(param(in, VEK_PARAM_STRIP_LINES), 2u);
}

TEST_F(Geometry, RotateEveryAngleAndPixelSizeFollowsTheMapping) {
  for (uint32_t format : {VEK_Y8, VEK_RGB16, VEK_Y16, VEK_RGB24, VEK_BGR24, VEK_CMYK32, VEK_XRGB32}) {
    for (uint32_t angle : {0u, 90u, 180u, 270u}) {
      // 5 x 3, asymmetric and odd: every swap or flip error shows.
      const uint32_t W = 5, H = 3, in = noise(format, W, H, format * 7 + angle), out = blank();
      ASSERT_EQ(VEK_IP_rotate_image(in, out, angle), 0u);
      const uint32_t OW = angle % 180 ? H : W, OH = angle % 180 ? W : H;
      ASSERT_EQ(dims(out), (Dims{OW, OH, OH}));
      expect_mapped(in, out, [&](uint32_t c, uint32_t r) {
        const Src from[4] = {{c, r, 0}, {r, H - 1 - c, 0}, {W - 1 - c, H - 1 - r, 0}, {W - 1 - r, c, 0}};
        return from[angle / 90];
      });
    }
  }
}

// The circle predicate, written from its description: unsigned bounds, float disc.
bool kept(uint32_t c, uint32_t line, uint32_t cx, uint32_t cy, uint32_t r) {
  if (line < cy - r || line >= cy + r || c < cx - r || c >= cx + r) return false;
  const float dx = (float(c) - float(cx)) / float(r), dy = (float(line) - float(cy)) / float(r);
  return dx * dx + dy * dy < 1.0f;
}

TEST_F(Geometry, ExtractPacksThePairsInsideTheCircle) {
  // The last two reach past the left and the top edge: unsigned bounds keep nothing.
  const uint32_t circles[][3] = {{10, 8, 5}, {7, 7, 7}, {20, 10, 3}, {31, 15, 16}, {0, 20, 30}, {8, 3, 4}};
  for (const auto& [cx, cy, radius] : circles) {
    const uint32_t W = 32, H = 24, in = noise(VEK_YUV422, W, H, radius), out = blank();
    ASSERT_EQ(VEK_IP_extract_region(in, out, 0xDEAD, cx, cy, radius, VEK_STRIP_NEXT), 0u);
    std::vector<uint8_t> expect;
    for (uint32_t line = 0; line < H; ++line)
      for (uint32_t c = 0; c < W; c += 2)
        if (kept(c, line, cx, cy, radius)) expect.insert(expect.end(), at(in, c, line), at(in, c, line) + 4);
    ASSERT_EQ(dims(out), (Dims{uint32_t(expect.size() / 2), 1, 1}));
    if (!expect.empty()) { EXPECT_EQ(0, std::memcmp(expect.data(), pixels(out), expect.size())); }
  }
}

TEST_F(Geometry, PixelRepReplicatesPixelsAndLinesInEveryStrip) {
  for (uint32_t format : {VEK_Y8, VEK_PALETTED, VEK_RGB15, VEK_RGB16, VEK_RGB24, VEK_YUV422}) {
    for (uint32_t f : {1u, 2u, 3u}) {
      const uint32_t W = 6, H = 7, full = noise(format, W, H, format * 5 + f), out = blank();
      const auto got = stream(full, 3, out, [&](uint32_t in) { return VEK_IP_pixel_rep(in, out, f, 3); });
      ASSERT_EQ(dims(out), (Dims{W * f, H * f, f}));  // the last strip holds one line
      const uint32_t op = param(out, VEK_PARAM_BYTES_PER_LINE);
      ASSERT_EQ(got.size(), size_t(op) * H * f);
      // Output pair q of a YUV line comes from input pair q / f.
      expect_mapped(full, got.data(), op, W * f, H * f,
                    [&](uint32_t c, uint32_t r) { return Src{c / f, r / f, c / 2 / f}; });
    }
  }
}

// A call, the code it returns and reports, the reporting function, and the message
// where its wording is part of the interface (empty: code and function only).
#define REFUSAL(call, ...) {[&] { return call; }, __VA_ARGS__}

TEST_F(Geometry, RefusalsEachIsReportedOnceUnderItsName) {
  const uint32_t y8 = noise(VEK_Y8, 8, 8, 1), bgr = noise(VEK_BGR24, 8, 8, 2), out = blank(), none = blank();
  const uint32_t rgb16 = noise(VEK_RGB16, 8, 8, 3), xrgb = noise(VEK_XRGB32, 4, 4, 4), yuv = noise(VEK_YUV422, 4, 4, 5);
  const uint32_t small = noise(VEK_BGR24, 4, 3, 6), part = keep(vektest::make_image(VEK_Y8, 16, 20, 8));
  const uint32_t y1 = keep(vektest::make_image(VEK_Y1, 8, 8));
  std::vector<uint16_t> xt(VEK_ZOOM_TABLE_ENTRIES), yt(VEK_ZOOM_TABLE_ENTRIES);
  uint16_t *x = xt.data(), *y = yt.data();
  const uint32_t r[4] = {0, 0, 4, 4}, r2[4] = {0, 0, 2, 3}, past_x[4] = {8, 0, 2, 2}, empty[4] = {0, 0, 0, 2};
  const uint32_t kNS = VEK_ERROR_NOT_SUPPORTED, kBP = VEK_ERROR_BAD_PARAMETER, kCorrupt = 0x10050010;
  const std::string kFmt = "Unsupported image format", kNoRoi = "Roi pointer is NULL", kIns = "VEK_IP_image_insert",
                    kWhole = "This function only supports full height images - not multiple strips",
                    kScale = "VEK_IP_threshold_grayscale",  // historic name
                    kSetup = "VEK_IP_bilinear_zoom_setup", kZoom = "VEK_IP_bilinear_zoom";
  const struct {
    std::function<uint32_t()> call;
    uint32_t code;
    std::string function, message{};
    size_t reports = 1;  // a corrupt image is first reported by the validator itself
  } cases[] = {
      REFUSAL(VEK_IP_crop(y8, out, nullptr, 3), kBP, "VEK_IP_crop", kNoRoi),
      REFUSAL(VEK_IP_Crop_Image(xrgb, out, r), 0x1007000F, "VEK_IP_crop", kFmt),
      // Regression: a library-allocated strip of 8 of 20 lines had its line count raised
      // to 20 by the crop, so the next copy of it read past the buffer (see the end).
      REFUSAL(VEK_IP_crop(part, out, r, VEK_STRIP_NEXT), kNS, "VEK_IP_crop", kWhole),
      REFUSAL(VEK_IP_crop(part, out, r, VEK_STRIP_END), kNS, "VEK_IP_crop", kWhole),
      REFUSAL(VEK_IP_Crop_Image(y8, out, past_x), kBP, "VEK_IP_crop"),
      REFUSAL(VEK_IP_Crop_Image(y8, out, empty), kBP, "VEK_IP_crop"),
      // Insert bounds (8 x 8 target, 4 x 3 insert) are tested left, right, high, low.
      REFUSAL(VEK_IP_image_insert(bgr, small, 0, 0), kNS, kIns, "Trying to insert image too far left"),
      REFUSAL(VEK_IP_image_insert(bgr, small, 6, 0), kNS, kIns, "Trying to insert image too far right"),
      REFUSAL(VEK_IP_image_insert(bgr, small, 5, 0), kNS, kIns, "Trying to insert image too high"),
      REFUSAL(VEK_IP_image_insert(bgr, small, 5, 7), kNS, kIns, "Trying to insert image too low"),
      REFUSAL(VEK_IP_image_insert(y8, small, 1, 1), kNS, kIns, "Pixel Formats are different"),
      REFUSAL(VEK_IP_image_insert(bgr, none, 1, 1), kCorrupt, kIns, "hInsertImage is corrupt", 2),
      REFUSAL(VEK_IP_image_insert(none, bgr, 1, 1), kCorrupt, kIns, "hInImage is corrupt", 2),
      REFUSAL(VEK_IP_mirror(y8, out, nullptr, 3), kBP, "VEK_IP_mirror", kNoRoi),
      REFUSAL(VEK_IP_mirror_image(y1, out, 3), kNS, "VEK_IP_mirror_image", kFmt),
      REFUSAL(VEK_IP_mirror_image(y8, y8, 3), kBP, "VEK_IP_mirror_image"),
      REFUSAL(VEK_IP_rotate_image(y8, out, 45), kNS, "VEK_IP_rotate_image",
              "Only angles of 0, 90, 180 and 270 supported"),
      REFUSAL(VEK_IP_rotate_image(yuv, out, 90), 0x10070001, "VEK_IP_rotate_image_1_strip",
              "Unsupported image type (convert to non-YUV first)"),
      REFUSAL(VEK_IP_rotate_image(part, out, 90), kNS, "VEK_IP_rotate_image", kWhole),
      REFUSAL(VEK_IP_extract_region(y8, out, 0, 4, 4, 2, 3), kNS, "VEK_IP_extract_region", kFmt),
      REFUSAL(VEK_IP_pixel_rep(bgr, out, 2, 3), 0x10070008, "VEK_IP_pixel_rep", kFmt),
      REFUSAL(VEK_IP_pixel_rep(y8, out, 0, 3), kNS, "VEK_IP_pixel_rep"),
      REFUSAL(VEK_IP_scale(bgr, out, 4, 4, 3), kNS, kScale, "Supports RGB24 & Y8 only"),
      REFUSAL(VEK_IP_scale(none, out, 4, 4, 3), kCorrupt, kScale, "Corrupt image", 2),
      REFUSAL(VEK_IP_scale(y8, out, 4, 1, 3), kBP, kScale),  // height - 1 = 0
      REFUSAL(VEK_IP_bilinear_zoom_setup(r2, 1, 5, x, y), kNS, kSetup, "Zooming out unsupported in this release"),
      REFUSAL(VEK_IP_bilinear_zoom_setup(nullptr, 4, 4, x, y), kBP, kSetup, kNoRoi),
      REFUSAL(VEK_IP_bilinear_zoom_setup(r, 4, 4, nullptr, y), kBP, kSetup, "XCoeffs pointer is NULL"),
      REFUSAL(VEK_IP_bilinear_zoom_setup(r, 4, 4, x, nullptr), kBP, kSetup, "YCoeffs pointer is NULL"),
      REFUSAL(VEK_IP_bilinear_zoom(y8, out, nullptr, 4, 4, x, y, 3), kBP, kZoom, kNoRoi),
      REFUSAL(VEK_IP_bilinear_zoom(y8, out, r, 4, 4, x, nullptr, 3), kBP, kZoom, "YCoeffs pointer is NULL"),
      REFUSAL(VEK_IP_bilinear_zoom(bgr, out, r, 9, 9, x, y, 3), 0x10070008, kZoom, kFmt),
      REFUSAL(VEK_IP_subsample(rgb16, out, 2), 0x10070006, "VEK_IP_subsample", kFmt),
      REFUSAL(VEK_IP_Subsample_by_Binning(y8, out, 0), kNS, "VEK_IP_Subsample_by_Binning",
              "Unsupported sub-sampling factor"),
      REFUSAL(VEK_IP_subsample(part, out, 2), kBP, "VEK_IP_subsample_1_strip"),
  };
  for (const auto& c : cases) {
    rec.clear();
    EXPECT_EQ(c.call(), c.code) << c.function << " " << c.message;
    ASSERT_EQ(rec.count(), c.reports) << c.function << " " << c.message;
    EXPECT_EQ(rec.last().function, c.function) << c.message;
    EXPECT_EQ(rec.last().code, c.code) << c.function;
    if (!c.message.empty()) { EXPECT_EQ(rec.last().message, c.message); }
  }
  rec.clear();
  EXPECT_EQ(param(part, VEK_PARAM_STRIP_LINES), 8u);  // refused before anything changed
  EXPECT_EQ(VEK_image_copy(part, blank()), 0u);       // reads 8 lines, within the buffer
  EXPECT_EQ(VEK_IP_rotate_image(y8, out, 180), 0u);   // a refused sequence does not block the next
}

TEST_F(Geometry, RobustnessRandomArgumentsNeverEscapeTheBuffers) {
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
    const uint32_t region[4] = {small(W + 3), small(H + 3), small(W + 5), small(H + 5)}, mode = small(6);
    for (auto* t : {&xt, &yt}) std::generate(t->begin(), t->end(), [&] { return uint16_t(rng()); });  // ready?
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
}

}  // namespace
