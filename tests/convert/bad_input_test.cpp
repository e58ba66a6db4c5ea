// Bad input over every conversion front end and worker: zero lines, no data, odd
// widths, refused sources, Y16 data widths, destinations of another format, and
// allocation failures. Fixed faults keep a one-line note where they are checked.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "convert_ref.h"

using namespace convref;
using vektest::make_image;

namespace {

struct Entry {
  Front front;
  Worker worker;
  const char* name;
  int source;  // an accepted source format
  int target;  // format the destination gets
};
#define VEK_E(NAME, SRC, TGT) {NAME, NAME##_1_strip, #NAME, SRC, TGT}
const Entry kEntries[] = {
    VEK_E(VEK_convert_to_RGB24, VEK_BGR24, VEK_RGB24),       VEK_E(VEK_convert_to_BGR24, VEK_RGB24, VEK_BGR24),
    VEK_E(VEK_convert_to_BGRX32, VEK_RGGB32, VEK_BGRX32),    VEK_E(VEK_convert_to_RGBX32, VEK_Y8, VEK_RGBX32),
    VEK_E(VEK_convert_to_XBGR32, VEK_RGB16, VEK_XBGR32),     VEK_E(VEK_convert_to_XRGB32, VEK_RGB15, VEK_XRGB32),
    VEK_E(VEK_convert_to_RGB15, VEK_Y16, VEK_RGB15),         VEK_E(VEK_convert_to_RGB16, VEK_RGB8, VEK_RGB16),
    VEK_E(VEK_convert_to_Y8, VEK_YUV422, VEK_Y8),            VEK_E(VEK_convert_to_Y16, VEK_RGB24, VEK_Y16),
    VEK_E(VEK_convert_to_CMYK32, VEK_PALETTED, VEK_CMYK32),  VEK_E(VEK_convert_to_YUV422, VEK_XBGR32, VEK_YUV422),
    VEK_E(VEK_YUV422_to_RGB15, VEK_YUV422, VEK_RGB15),       VEK_E(VEK_YUV422_to_RGB16, VEK_YUV422, VEK_RGB16),
    VEK_E(VEK_YUV422_to_RGB24, VEK_YUV422, VEK_RGB24),       VEK_E(VEK_YUV422_to_BGR24, VEK_YUV422, VEK_BGR24),
    VEK_E(VEK_YUV422_to_RGBX32, VEK_YUV422, VEK_RGBX32),     VEK_E(VEK_YUV422_to_BGRX32, VEK_YUV422, VEK_BGRX32),
    VEK_E(VEK_YUV422_to_XBGR32, VEK_YUV422, VEK_XBGR32),     VEK_E(VEK_YUV422_to_XRGB32, VEK_YUV422, VEK_XRGB32),
    VEK_E(VEK_YUV422_to_HSI, VEK_YUV422, VEK_HSI),           VEK_E(VEK_YUV422_to_Y8, VEK_YUV422, VEK_Y8),
    VEK_E(VEK_YUV422_to_Y16, VEK_YUV422, VEK_Y16),           VEK_E(VEK_YUV422_to_RGB15_LUT, VEK_YUV422, VEK_RGB15),
    VEK_E(VEK_YUV422_to_RGB16_LUT, VEK_YUV422, VEK_RGB16),   VEK_E(VEK_YUV422_to_RGB24_LUT, VEK_YUV422, VEK_RGB24),
    VEK_E(VEK_YUV422_to_BGR24_LUT, VEK_YUV422, VEK_BGR24),   VEK_E(VEK_YUV422_to_RGBX32_LUT, VEK_YUV422, VEK_RGBX32),
    VEK_E(VEK_YUV422_to_BGRX32_LUT, VEK_YUV422, VEK_BGRX32), VEK_E(VEK_YUV422_to_XBGR32_LUT, VEK_YUV422, VEK_XBGR32),
    VEK_E(VEK_YUV422_to_XRGB32_LUT, VEK_YUV422, VEK_XRGB32), VEK_E(VEK_YUV422_to_paletted_LUT, VEK_YUV422, VEK_PALETTED),
    VEK_E(VEK_convert_to_paletted_LUT, VEK_Y8, VEK_PALETTED), VEK_E(VEK_convert_to_RGB8, VEK_Y8, VEK_RGB8),
    VEK_E(VEK_convert_to_RGB8_dither, VEK_RGB24, VEK_PALETTED), VEK_E(VEK_paletted_to_RGB24_or_Y8, VEK_PALETTED, VEK_RGB24),
};
#undef VEK_E

TEST(ConvertBadInput, ZeroLinesNoDataOddWidthsAndSameFormatOverEveryFrontEnd) {
  Session rec;
  for (const Entry& e : kEntries) {
    SCOPED_TRACE(e.name);
    const uint32_t width = 6;
    // Zero strip lines: parameters with the target format, no pixels, no report.
    const uint32_t src = make_image(e.source, width, 4), dst = VEK_image_create();
    if (e.source == VEK_PALETTED) VEK_cmap_set_type(src, 3);
    VEK_image_set_parameter(src, VEK_PARAM_STRIP_LINES, 0);
    rec.clear();
    ASSERT_EQ(e.front(src, dst, VEK_STRIP_NEXT), 0u);
    EXPECT_EQ(rec.count(), 0u);
    EXPECT_EQ(param(dst, VEK_PARAM_WIDTH), width);
    EXPECT_EQ(VEK_image_get_ptr(dst, VEK_PTR_DATA), nullptr);
    if (e.front != VEK_paletted_to_RGB24_or_Y8) {
      EXPECT_EQ(param(dst, VEK_PARAM_FORMAT), uint32_t(e.target));
    }
    // A strip without a buffer: the worker refuses under its own name.
    VEK_image_set_parameter(src, VEK_PARAM_STRIP_LINES, 4);
    VEK_image_free_data(src);
    rec.clear();
    expect_refused(rec, e.worker(src, dst), VEK_ERROR_NO_IMAGE_DATA, std::string(e.name) + "_1_strip", "No image data");
    // An unknown source handle never gets past the checks.
    EXPECT_GT(e.front(0xFFF0, dst, VEK_STRIP_NEXT), 0xFFFFu);
    EXPECT_GT(e.worker(0xFFF0, dst), 0xFFFFu);
    // Odd widths where pairs are required (grey from YUV takes any width).
    if (std::string(e.name).starts_with("VEK_YUV422_to_") || e.target == VEK_YUV422) {
      const uint32_t odd = make_image(e.source, 5, 2);
      rec.clear();
      expect_refused(rec, e.front(odd, dst, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED, e.name,
                     e.target == VEK_YUV422 ? "Only even width YUV422 images are supported" : "YUV422 image must be an even width");
      VEK_image_destroy(odd);
    }
    // A source already in the target format is copied whole, even where the worker
    // would refuse it (XRGB32, CMYK32 and HSI are no worker's source).
    const uint32_t same = make_image(e.target, width, 3, 0, 4);
    if (e.target == VEK_PALETTED) VEK_cmap_set_type(same, 2);
    vektest::fill_random(same, 11);
    rec.clear();
    ASSERT_EQ(e.front(same, dst, VEK_STRIP_NEXT), 0u);
    EXPECT_EQ(rec.count(), 0u);
    EXPECT_EQ(param(dst, VEK_PARAM_FORMAT), uint32_t(e.target));
    for (uint32_t y = 0; y < 3; ++y)
      EXPECT_EQ(std::memcmp(data(dst) + y * pitch(dst), data(same) + y * pitch(same), pitch(same)), 0);
    VEK_image_destroy(same);
    VEK_image_destroy(src);
    VEK_image_destroy(dst);
  }
}

TEST(ConvertBadInput, RefusedSourcesOfTheYuvPaletteAndCmykFamilies) {
  Session rec;
  struct Refusal {
    Front front;
    const char* name;
    std::vector<int> sources;
    const char* message;
  };
  const std::vector<int> not_yuv = {VEK_Y8, VEK_RGB24, VEK_BGRX32, VEK_Y16, VEK_RGB16, VEK_PALETTED};
  std::vector<Refusal> refusals = {
      {VEK_convert_to_YUV422, "VEK_convert_to_YUV422",
       {VEK_RGB8, VEK_RGB15, VEK_RGB16, VEK_CMYK32, VEK_XRGB32, VEK_RGGB32}, "Unsupported image format"},
      {VEK_convert_to_paletted, "VEK_convert_to_paletted", {VEK_BGR24, VEK_Y16, VEK_RGB16, VEK_YUV422}, "Unsupported image format"},
      {VEK_convert_to_paletted_LUT, "VEK_convert_to_paletted_LUT", {VEK_RGB24, VEK_RGB15, VEK_YUV422}, "Unsupported image format"},
      {VEK_convert_to_RGB8, "VEK_convert_to_RGB8", {VEK_BGR24, VEK_Y16, VEK_PALETTED}, "Unsupported image format"},
      {VEK_convert_to_RGB8_dither, "VEK_convert_to_RGB8_dither", {VEK_Y8, VEK_BGR24, VEK_RGB16}, "Unsupported image format"},
      {VEK_convert_to_CMYK32, "VEK_convert_to_CMYK32", {VEK_Y8, VEK_RGB24}, "Only paletted input images currently supported"},
      {VEK_paletted_to_RGB24_or_Y8, "VEK_paletted_to_RGB24_or_Y8", {VEK_BGR24}, "Input image should be paletted"},
      {VEK_cmap_generate, "VEK_cmap_generate", {VEK_BGR24}, "Unsupported image format"},
  };
  for (const Entry& e : kEntries)
    if (std::string(e.name).starts_with("VEK_YUV422_to_")) refusals.push_back({e.front, e.name, not_yuv, "Not 16 bit YUV 4:2:2"});
  for (const Refusal& r : refusals)
    for (int f : r.sources) {
      const auto same = std::find_if(std::begin(kEntries), std::end(kEntries),
                                     [&](const Entry& e) { return e.front == r.front && e.target == f; });
      if (same != std::end(kEntries)) continue;  // already in the target format: copied
      const uint32_t src = make_image(f, 4, 2), dst = VEK_image_create();
      rec.clear();
      expect_refused(rec, r.front(src, dst, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED, r.name, r.message);
      VEK_image_destroy(src);
      VEK_image_destroy(dst);
    }
}

TEST(ConvertBadInput, Y16DataWidthsOutOfRange) {
  Session rec;
  const uint32_t y16 = make_image(VEK_Y16, 4, 2), dst = VEK_image_create();
  vektest::fill_random(y16, 3);
  // Widths the validator refuses are "Corrupt image" (Y8 says "Corrupt images"), and
  // Y8 and the X-first 32-bit targets refuse data narrower than a byte.
  const std::tuple<uint32_t, Front, const char*> cases[] = {
      {0, VEK_convert_to_RGB24, "RGB24"}, {0, VEK_convert_to_Y8, "Y8"},   {0, VEK_convert_to_YUV422, "YUV422"},
      {17, VEK_convert_to_RGB24, "RGB24"}, {17, VEK_convert_to_Y8, "Y8"}, {17, VEK_convert_to_YUV422, "YUV422"},
      {7, VEK_convert_to_Y8, "Y8"},        {7, VEK_convert_to_XBGR32, "XBGR32"}, {7, VEK_convert_to_XRGB32, "XRGB32"}};
  for (auto [dw, fn, target] : cases) {
    VEK_image_set_parameter(y16, VEK_PARAM_DATA_WIDTH, dw);
    rec.clear();
    const uint32_t status = fn(y16, dst, VEK_STRIP_NEXT);
    EXPECT_GT(status, 0xFFFFu) << target << " " << dw;
    ASSERT_GE(rec.count(), 1u) << target << " " << dw;
    EXPECT_EQ(rec.last().function, std::string("VEK_convert_to_") + target);
    EXPECT_EQ(rec.last().message, dw == 7 ? "Data width must be > 7 for Y16" : target == std::string("Y8") ? "Corrupt images" : "Corrupt image") << dw;
    EXPECT_EQ(rec.last().code, status);
  }
  // Narrow but valid widths convert in the targets that take them.
  VEK_image_set_parameter(y16, VEK_PARAM_DATA_WIDTH, 4);
  EXPECT_EQ(VEK_convert_to_RGB24(y16, dst, VEK_STRIP_NEXT), 0u);
}

TEST(ConvertRegression, WorkersRefuseWhatTheyCannotReadOrWrite) {
  Session rec;
  // The histogram worker, called directly on an image of another format, walked its
  // lines as 16-bit words and read past the end of the strip.
  const uint32_t img = make_image(VEK_Y8, 7, 3);
  vektest::fill_random(img, 6);
  ASSERT_EQ(VEK_cmap_generate(img, 256, VEK_STRIP_NEXT), 0u);
  for (int f : {VEK_PALETTED, VEK_RGB8, VEK_RGGB32, VEK_BGR24, VEK_RGBX32}) {
    VEK_image_set_parameter(img, VEK_PARAM_FORMAT, f);
    rec.clear();
    expect_refused(rec, VEK_cmap_generate_1_strip(img), VEK_ERROR_NOT_SUPPORTED, "VEK_cmap_generate_1_strip", "Unsupported image format");
  }
  // A worker called directly on a destination prepared for another format allocated
  // the strip for that format's pixel size and then wrote its own, wider pixels past it.
  for (const Entry& e : kEntries) {
    if (e.target == VEK_Y8) continue;
    SCOPED_TRACE(e.name);
    // One-byte targets get a one-bit destination, whose strip holds no pixel bytes.
    const bool narrow = e.target == VEK_PALETTED || e.target == VEK_RGB8;
    const int wrong = narrow ? VEK_Y1 : e.front == VEK_paletted_to_RGB24_or_Y8 ? VEK_RGB16 : VEK_Y8;
    const uint32_t src = make_image(e.source, 6, 3), dst = make_image(wrong, 6, 3);
    if (e.source == VEK_PALETTED) VEK_cmap_set_type(src, 3);
    vektest::fill_random(src, 5);
    rec.clear();
    EXPECT_GT(e.worker(src, dst), 0xFFFFu);
    EXPECT_EQ(rec.count(), 1u);
    VEK_image_destroy(src);
    VEK_image_destroy(dst);
  }
}

TEST(ConvertRegression, OutOfMemory) {
  Session rec;
  VEK_image_destroy(VEK_LIBRARY_TABLES);
  const uint32_t img = make_image(VEK_Y16, 2, 1);
  VEK_image_set_parameter(img, VEK_PARAM_DATA_WIDTH, 12);
  const std::string file = write_file(vektest::scratch_dir() + "oom.bin", {});
  // A load that has to allocate its table said something else than the table's builder.
  const std::pair<uint32_t, const char*> types[] = {
      {200, "Unable to generate RGB16 to paletted LUT"}, {201, "Unable to generate Y8 to paletted LUT"},
      {202, "Unable to generate Y16 to paletted LUT"},   {203, "Unable to generate YUV to RGB16 LUT"},
      {204, "Unable to generate YUV to RGB15 LUT"},      {205, "Unable to generate YUV to paletted LUT"}};
  for (auto [type, msg] : types) {
    FailAllocations fail(0);
    rec.clear();
    expect_refused(rec, VEK_image_conv_LUT_load(img, type, file.c_str()), VEK_ERROR_MEMORY, "VEK_image_conv_LUT_load", msg);
    EXPECT_EQ(VEK_image_conv_LUT_generate(img, type), VEK_ERROR_MEMORY);
    EXPECT_EQ(rec.last().message, msg);
  }
  // A table-driven YUV conversion that cannot build its table fails before any pixel,
  // and the sequence did not start: the next call converts normally.
  const uint32_t yuv = make_image(VEK_YUV422, 4, 2), out = VEK_image_create();
  // A failed strip allocation comes back unchanged, reported by the allocator only;
  // histogram generation fails without memory for its information record.
  const uint32_t rgb = make_image(VEK_RGB24, 2, 1);
  {
    FailAllocations fail(0);
    rec.clear();
    expect_refused(rec, VEK_YUV422_to_RGB24_LUT(yuv, out, VEK_STRIP_NEXT), VEK_ERROR_MEMORY,
                   "VEK_generate_YUV422_to_RGB16_LUT", "Unable to generate YUV to RGB16 LUT");
    EXPECT_EQ(VEK_YUV422_to_RGB24(yuv, out, VEK_STRIP_NEXT) & 0xFFFF0000u, VEK_ERROR_MEMORY);
    ASSERT_EQ(rec.count(), 1u);
    EXPECT_EQ(rec.last().function, "VEK_image_malloc_a_strip");
    rec.clear();
    expect_refused(rec, VEK_cmap_generate(rgb, 256, VEK_STRIP_NEXT), VEK_ERROR_MEMORY, "VEK_cmap_generate",
                   "Cannot create cmap info structure");
  }
  EXPECT_EQ(VEK_YUV422_to_RGB24_LUT(yuv, out, VEK_STRIP_NEXT), 0u);
  VEK_YUV422_to_RGB24(yuv, out, VEK_STRIP_END);
  EXPECT_EQ(VEK_cmap_generate(rgb, 256, VEK_STRIP_NEXT), 0u);
  // Intensity tables: no record, or no arrays, and no handle is used up.
  VEK_LUT_destroy(VEK_ALL_IMAGES);
  for (long after : {0L, 2L}) {
    FailAllocations fail(after);
    EXPECT_EQ(VEK_LUT_create(256, 1) & 0xFFFF0000u, VEK_ERROR_MEMORY);
  }
  EXPECT_EQ(VEK_LUT_create(256, 1), 1u);
}

}  // namespace
