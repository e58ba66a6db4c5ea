// Colour maps and palette generation, the conversion tables with their files, and
// the intensity look-up tables, against references written here from the formulas.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "convert_ref.h"

using namespace convref;
using vektest::make_image;

namespace {

// ---- colour maps ---------------------------------------------------------------------

TEST(Cmap, TypesIndicesClosestColourAndBadHandles) {
  Session rec;
  const uint32_t h = make_image(VEK_PALETTED, 4, 1);
  ASSERT_EQ(VEK_cmap_set_type(h, 3), 0u);
  EXPECT_EQ(VEK_cmap_get_RGB_colour(h, 255), 0xFFFFDFu);
  EXPECT_EQ(VEK_cmap_get_RGB_colour(h, 0), 0x1F1F1Fu);
  EXPECT_EQ(VEK_cmap_is_grayscale(h), 0u);
  ASSERT_EQ(VEK_cmap_set_type(h, 1), 0u);
  EXPECT_EQ(param(h, VEK_PARAM_CMAP_SIZE), 16u);
  EXPECT_EQ(VEK_cmap_find_closest_colour(h, 0, 76, 76), 8u);
  EXPECT_EQ(VEK_cmap_find_closest_colour(h, 250, 10, 10), 12u);
  // An index equal to the colour count is accepted, one above it refused.
  EXPECT_EQ(VEK_cmap_set_RGB_colour(h, 16, 1, 2, 3), 0u);
  EXPECT_EQ(VEK_cmap_get_RGB_colour(h, 16), 0x010203u);
  rec.clear();
  expect_refused(rec, VEK_cmap_set_RGB_colour(h, 17, 1, 2, 3), VEK_ERROR_BAD_PARAMETER, "VEK_cmap_set_RGB_colour",
                 "Illegal colourmap index (> max number of colours)");
  expect_refused(rec, VEK_cmap_set_colour(h, 0, 16), VEK_ERROR_BAD_PARAMETER, "VEK_cmap_set_colour", "Unrecognised colour");
  expect_refused(rec, VEK_cmap_set_type(h, 4), VEK_ERROR_BAD_PARAMETER, "VEK_cmap_set_type", "Unrecognized colourmap type");
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
  // A map without valid entries is grey and its nearest entry is 0.
  VEK_image_set_parameter(h, VEK_PARAM_CMAP_SIZE, 0);
  EXPECT_EQ(VEK_cmap_is_grayscale(h), 1u);
  EXPECT_EQ(VEK_cmap_find_closest_colour(h, 200, 10, 10), 0u);
  // Unknown handles, and an image without histogram information.
  const uint32_t bad = 0xFFF0;
  for (uint32_t r : {VEK_cmap_destroy_info(bad), VEK_cmap_copy(bad, bad), VEK_cmap_get_RGB_colour(bad, 0),
                     VEK_cmap_set_RGB_colour(bad, 0, 1, 2, 3), VEK_cmap_set_colour(bad, 0, 1),
                     VEK_cmap_set_type(bad, 1), VEK_cmap_is_grayscale(bad),
                     VEK_cmap_find_closest_colour(bad, 1, 2, 3), VEK_cmap_get_occurrences(bad, 0)})
    EXPECT_EQ(r, VEK_ERROR_BAD_HANDLE);
  rec.clear();
  expect_refused(rec, VEK_cmap_get_occurrences(h, 0), VEK_ERROR_BAD_STATE, "VEK_cmap_get_occurrences", "No cmap info structure");
  EXPECT_EQ(VEK_cmap_destroy_info(h), 0u);  // none to free is no error
}

// Colour sources: ten distinct 4-bit bins with pixel counts 1..10; every bin gets an
// entry at its centre, most frequent first, and the paletted image maps back to them.
TEST(Cmap, GenerateFromColourChoosesBinsByFrequency) {
  Session rec;
  std::vector<uint8_t> px;
  for (int c = 0; c < 10; ++c)
    for (int n = 0; n <= c; ++n) px.insert(px.end(), {uint8_t(c * 25), uint8_t(255 - c * 25), uint8_t(c * 16)});
  const uint32_t width = uint32_t(px.size() / 3);  // 55, odd
  const uint32_t src = make_image(VEK_RGB24, width, 1);
  std::memcpy(data(src), px.data(), px.size());
  VEK_image_set_parameter(src, VEK_PARAM_CMAP_SIZE, 0);
  ASSERT_EQ(VEK_cmap_generate(src, 256, VEK_STRIP_NEXT), 0u);
  for (int k = 0; k < 10; ++k) {
    const uint32_t c = uint32_t(9 - k), r = c * 25 >> 4, g = (255 - c * 25) >> 4, b = c * 16 >> 4;
    EXPECT_EQ(VEK_cmap_get_RGB_colour(src, uint32_t(k)), (r << 20 | g << 12 | b << 4) + 0x080808u) << k;
    EXPECT_EQ(VEK_cmap_get_occurrences(src, r << 8 | g << 4 | b), c + 1);
  }
  for (uint32_t k = 10; k < 256; ++k) EXPECT_EQ(VEK_cmap_get_RGB_colour(src, k), 0u);
  const uint32_t pal = VEK_image_create(), rgb = VEK_image_create();
  ASSERT_EQ(VEK_convert_to_paletted(src, pal, VEK_STRIP_NEXT), 0u);
  for (uint32_t x = 0; x < width; ++x) {
    const uint32_t e = VEK_cmap_get_RGB_colour(pal, data(pal)[x]);
    EXPECT_EQ(e >> 20, uint32_t(px[3 * x] >> 4));
    EXPECT_EQ((e >> 12) & 15, uint32_t(px[3 * x + 1] >> 4));
  }
  ASSERT_EQ(VEK_paletted_to_RGB24_or_Y8(pal, rgb, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(rgb, VEK_PARAM_FORMAT), uint32_t(VEK_RGB24));
  EXPECT_EQ(rec.count(), 0u);
}

// Grey sources over strips: Y16 (data width 10) and Y8 of odd width, so a padding byte
// after each line must not be counted, and the histogram accumulates over every strip.
TEST(Cmap, GenerateFromGreyOverStripsThenConvertWithClosestFallback) {
  Session rec;
  for (int format : {VEK_Y16, VEK_Y8}) {
    SCOPED_TRACE(format);
    const uint32_t width = 5, height = 7, strip = 3;
    const uint32_t src = make_image(format, width, height, strip, 4);
    if (format == VEK_Y16) VEK_image_set_parameter(src, VEK_PARAM_DATA_WIDTH, 10);
    VEK_cmap_set_type(src, 1);  // 16 named colours; generation appends after them
    std::vector<uint32_t> hist(256, 0);
    std::vector<std::vector<uint8_t>> strips;
    for (uint32_t done = 0, k = 0; done < height; ++k) {
      vektest::fill_random(src, 70 + k);
      ASSERT_EQ(VEK_cmap_generate(src, 20, VEK_STRIP_NEXT), 0u);
      const uint32_t lines = param(src, VEK_PARAM_STRIP_LINES);
      for (uint32_t y = 0; y < lines; ++y)
        for (uint32_t x = 0; x < width; ++x) {
          const uint8_t* p = data(src) + y * pitch(src);
          ++hist[format == VEK_Y8 ? p[x] : (w16(p + 2 * x) >> 2) & 255];
        }
      strips.emplace_back(data(src), data(src) + pitch(src) * lines);
      done += lines;
    }
    for (uint32_t b = 0; b < 256; ++b) ASSERT_EQ(VEK_cmap_get_occurrences(src, b), hist[b]) << b;
    // Four new entries 16..19 hold the four most frequent grey levels, in order.
    ASSERT_EQ(param(src, VEK_PARAM_CMAP_SIZE), 20u);
    std::vector<uint32_t> sorted = hist;
    std::sort(sorted.rbegin(), sorted.rend());
    EXPECT_EQ(VEK_cmap_get_RGB_colour(src, 8), 0x4C4C4Cu);  // the named colours stay
    EXPECT_EQ(VEK_cmap_get_RGB_colour(src, 15), 0xFFFFFFu);
    for (uint32_t k = 16; k < 20; ++k) {
      const uint32_t v = VEK_cmap_get_RGB_colour(src, k) & 0xFF;
      EXPECT_EQ(VEK_cmap_get_RGB_colour(src, k), v * 0x010101u);
      EXPECT_EQ(hist[v], sorted[k - 16]) << k;
    }
    if (format == VEK_Y16) continue;
    // Pixels of the four chosen levels take their entry; all others the nearest one.
    const uint32_t pal = VEK_image_create();
    const std::vector<C> map = map_of(src);
    for (const auto& bytes : strips) {
      VEK_image_set_parameter(src, VEK_PARAM_STRIP_LINES, strip);
      std::memcpy(data(src), bytes.data(), bytes.size());
      ASSERT_EQ(VEK_convert_to_paletted(src, pal, VEK_STRIP_NEXT), 0u);
      const uint32_t lines = param(src, VEK_PARAM_STRIP_LINES);
      ASSERT_EQ(lines * pitch(src), bytes.size());
      for (uint32_t y = 0; y < lines; ++y)
        for (uint32_t x = 0; x < width; ++x) {
          const int v = bytes[y * pitch(src) + x];
          int want = closest(map, v, v, v);
          for (int k = 16; k < 20; ++k)
            if (map[size_t(k)].r == v) want = k;
          ASSERT_EQ(data(pal)[y * pitch(pal) + x], want) << y << "," << x;
        }
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(Cmap, Rgb8AndDitherCarries) {
  Session rec;
  const uint32_t src = make_image(VEK_RGB24, 7, 2), dst = VEK_image_create();
  vektest::fill_random(src, 8);
  ASSERT_EQ(VEK_convert_to_RGB8(src, dst, VEK_STRIP_NEXT), 0u);
  for (uint32_t y = 0; y < 2; ++y)
    for (uint32_t x = 0; x < 7; ++x) {
      const uint8_t* p = data(src) + y * pitch(src) + 3 * x;
      EXPECT_EQ(data(dst)[y * pitch(dst) + x], (p[0] & 0xE0) | ((p[1] & 0xE0) >> 3) | (p[2] >> 6));
    }
  EXPECT_EQ(VEK_cmap_get_RGB_colour(dst, 255), 0xFFFFDFu);
  // Worked lines of six pixels: the carries restart every third pixel.
  const struct {
    C colour;
    std::vector<int> want;
  } lines[] = {
      // 40,40,200 -> carries (4,4,96), then (6,6,96): the bits never change.
      {{40, 40, 200}, std::vector<int>(6, 0x20 | 0x04 | 3)},
      {{16, 16, 16}, std::vector<int>(6, 0)},
      // 30 -> 0; carry 15 gives 45 -> 0x20; carry (45 >> 1) & 15 = 6 gives 36 -> 0x20.
      {{30, 0, 0}, {0, 0x20, 0x20, 0, 0x20, 0x20}},
  };
  const uint32_t flat = make_image(VEK_RGB24, 6, 1);
  for (const auto& l : lines) {
    for (int i = 0; i < 18; i += 3) data(flat)[i] = uint8_t(l.colour.r), data(flat)[i + 1] = uint8_t(l.colour.g),
                                    data(flat)[i + 2] = uint8_t(l.colour.b);
    ASSERT_EQ(VEK_convert_to_RGB8_dither(flat, dst, VEK_STRIP_NEXT), 0u);
    EXPECT_EQ(param(dst, VEK_PARAM_FORMAT), uint32_t(VEK_PALETTED));
    EXPECT_EQ(ints(data(dst), 6), l.want) << l.colour.r;
  }
  EXPECT_EQ(rec.count(), 0u);
}

// ---- conversion tables ---------------------------------------------------------------

TEST(ConvTables, EveryTableMatchesItsBuilderFormula) {
  Session rec;
  const std::string dir = vektest::scratch_dir();
  // YUV to RGB16 / RGB15: every one of the 2^19 entries, read back through the file.
  ASSERT_EQ(VEK_generate_YUV422_to_RGB16_LUT(), 0u);
  ASSERT_EQ(VEK_generate_YUV422_to_RGB15_LUT(), 0u);
  const uint32_t img = make_image(VEK_Y16, 4, 1);
  random_map(img, 37, 5);
  for (uint32_t type : {uint32_t(VEK_LUT_YUV422_TO_RGB16), uint32_t(VEK_LUT_YUV422_TO_RGB15)}) {
    const std::string name = dir + "t" + std::to_string(type) + ".bin";
    ASSERT_EQ(VEK_image_conv_LUT_save(img, type, name.c_str()), 0u);
    const auto bytes = read_file(name);
    ASSERT_EQ(bytes.size(), 1048576u);
    for (uint32_t i = 0; i < 0x80000; ++i) {
      const C c = yuv_rgb(int((i >> 11) & 0xFE), int((i >> 4) & 0xFC), int(i & 63) * 4);
      ASSERT_EQ(w16(&bytes[2 * i]), type == VEK_LUT_YUV422_TO_RGB16 ? rgb16(c) : rgb15(c)) << type << " index " << i;
    }
  }
  // The palette tables, each against the nearest-colour search over the image's map.
  const std::vector<C> map = map_of(img);
  struct Pal {
    uint32_t type, data_width;
    size_t size;
    C (*colour)(uint32_t);
  };
  const Pal pals[] = {
      {VEK_LUT_RGB16_TO_PALETTED, 8, 65536, [](uint32_t w) { return from_rgb16(int(w)); }},
      {VEK_LUT_Y8_TO_PALETTED, 8, 256, [](uint32_t v) { return C{int(v), int(v), int(v)}; }},
      {VEK_LUT_YUV422_TO_PALETTED, 8, 32768,
       [](uint32_t i) { return yuv_rgb(int((i >> 7) & 0xF8), int((i >> 2) & 0xF8), int(i & 31) * 8); }},
      {VEK_LUT_Y16_TO_PALETTED, 9, 512, [](uint32_t w) { return C{int(w >> 1), int(w >> 1), int(w >> 1)}; }},
      {VEK_LUT_Y16_TO_PALETTED, 12, 4096, [](uint32_t w) { return C{int(w >> 4), int(w >> 4), int(w >> 4)}; }},
  };
  for (const Pal& p : pals) {
    VEK_image_set_parameter(img, VEK_PARAM_DATA_WIDTH, p.data_width);
    ASSERT_EQ(VEK_image_conv_LUT_generate(img, p.type), 0u);
    const std::string name = dir + "pal" + std::to_string(p.type) + ".bin";
    ASSERT_EQ(VEK_image_conv_LUT_save(img, p.type, name.c_str()), 0u);
    const auto bytes = read_file(name);
    ASSERT_EQ(bytes.size(), p.size);
    for (uint32_t i = 0; i < p.size; ++i) {
      const C c = p.colour(i);
      ASSERT_EQ(bytes[i], closest(map, c.r, c.g, c.b)) << p.type << " index " << i;
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(ConvTables, TableDrivenPalettedConversionsOverStrips) {
  Session rec;
  VEK_image_destroy(VEK_LIBRARY_TABLES);
  for (auto [format, width] : {std::pair{VEK_RGB16, 7u}, {VEK_Y8, 9u}, {VEK_Y16, 5u}, {VEK_YUV422, 6u}}) {
    SCOPED_TRACE(format);
    const uint32_t height = 7, strip = 3;
    // Padded lines on both sides (alignment 8): the YUV source is read, and its
    // indices written, back to back without the padding.
    const bool stream = format == VEK_YUV422;
    const uint32_t src = make_image(format, width, height, strip, 8), dst = VEK_image_create();
    if (format == VEK_Y16) VEK_image_set_parameter(src, VEK_PARAM_DATA_WIDTH, 11);
    random_map(src, 20, uint32_t(format));
    const std::vector<C> map = map_of(src);
    const Front fn = stream ? VEK_YUV422_to_paletted_LUT : VEK_convert_to_paletted_LUT;
    ASSERT_GT(pitch(src), width * uint32_t(bytes_of(format)));
    for (uint32_t done = 0, k = 0; done < height; ++k) {
      vektest::fill_random(src, 40 + k);
      if (format == VEK_Y16)  // keep the words inside the data width
        for (uint32_t i = 1; i < pitch(src) * strip; i += 2) data(src)[i] &= 0x07;
      ASSERT_EQ(fn(src, dst, VEK_STRIP_NEXT), 0u);
      const uint32_t lines = param(src, VEK_PARAM_STRIP_LINES);
      ASSERT_EQ(param(dst, VEK_PARAM_STRIP_LINES), lines);
      EXPECT_EQ(param(dst, VEK_PARAM_FORMAT), uint32_t(VEK_PALETTED));
      const uint32_t sp = stream ? 2 * width : pitch(src), dp = stream ? width : pitch(dst);
      for (uint32_t y = 0; y < lines; ++y)
        for (uint32_t x = 0; x < width; ++x) {
          const uint8_t* p = data(src) + y * sp;
          C c{};
          if (format == VEK_YUV422) {
            const uint8_t* q = p + 4 * (x / 2);
            c = yuv_rgb(q[2 * (x % 2)] & 0xF8, q[1] & 0xF8, q[3] & 0xF8);
          } else {
            c = decode(format, p + x * uint32_t(bytes_of(format)), 11);
          }
          ASSERT_EQ(data(dst)[y * dp + x], closest(map, c.r, c.g, c.b)) << y << "," << x;
        }
      done += lines;
    }
    EXPECT_EQ(param(src, VEK_PARAM_STRIP_LINES), 1u);  // the last strip was trimmed
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(ConvTables, FilesOfTheWrongSizeBadWidthsAndBadTypes) {
  Session rec;
  const std::string dir = vektest::scratch_dir();
  auto write = [&](const std::string& name, size_t n) {
    return write_file(dir + name, vektest::random_bytes(n, uint32_t(n)));
  };
  const uint32_t img = make_image(VEK_Y16, 2, 1);
  VEK_image_set_parameter(img, VEK_PARAM_DATA_WIDTH, 10);
  // One byte short, one byte long and empty files are all refused, for every type;
  // the exact size loads and saves back byte for byte.
  const std::pair<uint32_t, size_t> types[] = {{200, 65536},   {201, 256},     {202, 1024},
                                               {203, 1048576}, {204, 1048576}, {205, 32768}};
  for (auto [type, size] : types) {
    rec.clear();
    for (size_t n : {size - 1, size + 1, size_t(0)})
      expect_refused(rec, VEK_image_conv_LUT_load(img, type, write("bad.bin", n).c_str()), VEK_ERROR_LUT_FILE_SIZE,
                     "VEK_image_conv_LUT_load", "Incorrect number of bytes read - correct LUT selected?");
    ASSERT_EQ(VEK_image_conv_LUT_load(img, type, write("good.bin", size).c_str()), 0u) << type;
    ASSERT_EQ(VEK_image_conv_LUT_save(img, type, (dir + "again.bin").c_str()), 0u);
    EXPECT_EQ(read_file(dir + "again.bin"), vektest::random_bytes(size, uint32_t(size))) << type;
  }
  // Data widths outside 9..16 for the Y16 table, whether built or loaded.
  for (auto [dw, msg] : {std::pair{8u, "data width should > 8 (and <= 16)"}, {3u, "data width should > 8 (and <= 16)"},
                         {17u, "data width should <= 16 (and > 8)"}}) {
    VEK_image_set_parameter(img, VEK_PARAM_DATA_WIDTH, dw);
    rec.clear();
    expect_refused(rec, VEK_image_conv_LUT_generate(img, VEK_LUT_Y16_TO_PALETTED), VEK_ERROR_BAD_PARAMETER,
                   "VEK_generate_Y16_to_paletted_LUT", msg);
    EXPECT_EQ(VEK_image_conv_LUT_load(img, VEK_LUT_Y16_TO_PALETTED, write("w.bin", 256).c_str()), VEK_ERROR_BAD_PARAMETER);
  }
  // A Y16 conversion through a table built for a narrower width never reads past it.
  VEK_image_set_parameter(img, VEK_PARAM_DATA_WIDTH, 9);
  ASSERT_EQ(VEK_generate_Y16_to_paletted_LUT(img), 0u);
  VEK_image_set_parameter(img, VEK_PARAM_DATA_WIDTH, 16);
  std::memset(data(img), 0xFF, 4);
  EXPECT_EQ(VEK_convert_to_paletted_LUT(img, VEK_image_create(), VEK_STRIP_NEXT), 0u);
  // Bad types, an unknown image, an unreadable or unwritable file.
  const char* kNoLut = "LUT function not available for this image pixel format";
  rec.clear();
  expect_refused(rec, VEK_image_conv_LUT_destroy(206), VEK_ERROR_NOT_SUPPORTED, "VEK_image_conv_LUT_destroy", kNoLut);
  expect_refused(rec, VEK_image_conv_LUT_generate(img, 199), VEK_ERROR_NOT_SUPPORTED, "VEK_image_conv_LUT_generate", kNoLut);
  expect_refused(rec, VEK_image_conv_LUT_load(img, 199, dir.c_str()), VEK_ERROR_BAD_PARAMETER, "VEK_image_conv_LUT_load",
                 "Unrecognized LUT type");
  expect_refused(rec, VEK_image_conv_LUT_save(img, 206, dir.c_str()), VEK_ERROR_BAD_PARAMETER, "VEK_image_conv_LUT_save",
                 "Unrecognized LUT type");
  expect_refused(rec, VEK_image_conv_LUT_load(img, VEK_LUT_Y8_TO_PALETTED, (dir + "missing/x").c_str()),
                 VEK_ERROR_OPEN_FAILED, "VEK_image_conv_LUT_load", "Failed to create file");
  expect_refused(rec, VEK_image_conv_LUT_save(img, VEK_LUT_Y8_TO_PALETTED, dir.c_str()), VEK_ERROR_OPEN_FAILED,
                 "VEK_image_conv_LUT_save", "Failed to create file");
  EXPECT_EQ(VEK_image_conv_LUT_generate(9999, VEK_LUT_Y8_TO_PALETTED), VEK_ERROR_BAD_HANDLE);
  VEK_image_destroy(VEK_ALL_IMAGES);
  VEK_image_destroy(VEK_LIBRARY_TABLES);
  // Saving a table never built is an error.
  EXPECT_GT(VEK_image_conv_LUT_save(make_image(VEK_Y8, 2, 1), VEK_LUT_Y8_TO_PALETTED, (dir + "never.bin").c_str()), 0xFFFFu);
}

// ---- intensity look-up tables ------------------------------------------------------------

// Every entry of every array against the formula, over random parameter sets (each
// clamp exercised) for a full 1-byte table and a 2-byte table of 1000 entries.
TEST(IntensityLut, GenerationOverParameterSetsAndSizes) {
  Session rec;
  VEK_LUT_destroy(VEK_ALL_IMAGES);
  auto clampd = [](int v, int lo, int hi) { return v < lo ? lo : v > hi ? hi : v; };
  const auto rnd = vektest::random_bytes(6 * 30, 77);
  for (auto [n, size] : {std::pair{256u, 1u}, std::pair{1000u, 2u}}) {
    const uint32_t t = VEK_LUT_create(n, size);
    const uint32_t sel[4] = {VEK_LUT_GREY, VEK_LUT_RED, VEK_LUT_GREEN, VEK_LUT_BLUE};
    auto entry = [&](int c, uint32_t i) -> int {
      const void* a = VEK_LUT_get_ptr(t, sel[c]);
      return size == 1 ? static_cast<const uint8_t*>(a)[i] : static_cast<const uint16_t*>(a)[i];
    };
    for (uint32_t i = 0; i < n; ++i) ASSERT_EQ(entry(0, i), int(i)) << "a new table is the identity";
    const double hi = size == 1 ? 255 : n - 1;
    for (int set = 0; set < 30; ++set) {
      // Parameters from -40 to 470; set 0 is brightness 0 alone.
      int p[6];
      for (int k = 0; k < 6; ++k) p[k] = set == 0 ? (k == 0 ? 0 : 100) : rnd[size_t(6 * set + k)] * 2 - 40;
      ASSERT_EQ(VEK_LUT_generate(t, p[0], p[1], p[2], p[3], p[4], p[5]), 0u);
      const double bright = clampd(p[0], 0, 200), contrast = clampd(p[1], 0, 200), gamma = clampd(p[2], 25, 400);
      const double gains[4] = {1.0, 1.0 + (clampd(p[3], 0, 200) - 100) / 100.0,
                               1.0 + (clampd(p[4], 0, 200) - 100) / 100.0, 1.0 + (clampd(p[5], 0, 200) - 100) / 100.0};
      const double h = double(n / 2), e = 100.0 / gamma;
      for (int c = 0; c < 4; ++c) {
        ASSERT_EQ(entry(c, 0), 0);
        for (uint32_t i = 1; i < n; ++i) {
          double v = std::exp(e * std::log(double(i)) - (e - 1) * std::log(double(n)));
          v = ((v - h) * (contrast / 100.0) + h + bright * 0.5 - 50) * gains[c];
          ASSERT_EQ(entry(c, i), v <= 0 ? 0 : v >= hi ? int(hi) : int(v)) << "set " << set << " component " << c << " entry " << i;
        }
      }
      if (set != 0 || size != 1) continue;
      for (int i = 0; i < 256; ++i) {  // worked value: brightness 0 takes about 50 off every entry
        const int got = entry(0, uint32_t(i));
        EXPECT_TRUE(got == std::max(i - 50, 0) || got == std::max(i - 51, 0)) << i;
      }
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(IntensityLut, ApplyMapsEveryAcceptedFormat) {
  Session rec;
  VEK_LUT_destroy(VEK_ALL_IMAGES);
  const uint32_t t = VEK_LUT_create(256, 1);
  ASSERT_EQ(VEK_LUT_generate(t, 130, 90, 120, 60, 140, 110), 0u);
  const auto arr = [&](uint32_t sel) { return static_cast<const uint8_t*>(VEK_LUT_get_ptr(t, sel)); };
  const uint8_t *G = arr(VEK_LUT_GREY), *R = arr(VEK_LUT_RED), *Gr = arr(VEK_LUT_GREEN), *B = arr(VEK_LUT_BLUE);
  const uint32_t width = 6, height = 3;
  for (int f : {VEK_Y8, VEK_RGB24, VEK_RGB15, VEK_RGB16, VEK_RGB8, VEK_RGGB32, VEK_YUV422}) {
    SCOPED_TRACE(f);
    const uint32_t src = make_image(f, width, height, 0, 4), dst = VEK_image_create();
    vektest::fill_random(src, 300 + uint32_t(f));
    ASSERT_EQ(VEK_LUT_apply(src, dst, t), 0u);
    EXPECT_EQ(param(dst, VEK_PARAM_FORMAT), uint32_t(f));
    const uint32_t n = uint32_t(bytes_of(f));
    for (uint32_t y = 0; y < height; ++y)
      for (uint32_t x = 0; x < width; x += f == VEK_YUV422 ? 2 : 1) {
        const uint8_t* sp = data(src) + y * pitch(src) + x * n;
        std::vector<int> want;
        if (f == VEK_YUV422) {
          int Y[2], U[2], V[2];
          for (int i = 0; i < 2; ++i) {
            const C k = yuv_rgb(sp[2 * i], sp[1], sp[3]);
            rgb_yuv(R[k.r], Gr[k.g], B[k.b], Y[i], U[i], V[i]);
          }
          want = {Y[0], (U[0] + U[1]) >> 1, Y[1], (V[0] + V[1]) >> 1};
        } else if (f == VEK_RGGB32) {
          want = {((y | x) & 1) == 0 ? R[*sp] : (y & x & 1) ? B[*sp] : Gr[*sp]};
        } else if (f == VEK_Y8) {
          want = {G[*sp]};
        } else {  // 15/16-bit fields index without their low bits
          const C c = decode(f, sp);
          const int rm = f == VEK_RGB15 || f == VEK_RGB16 ? 0xF8 : 0xFF, gm = f == VEK_RGB16 ? 0xFC : rm;
          const C m{R[c.r & rm], Gr[c.g & gm], B[c.b]};
          if (f == VEK_RGB8) want = {(m.r & 0xE0) | ((m.g & 0xE0) >> 3) | (m.b >> 6)};
          else want = ints(encode(f, m).data(), encode(f, m).size());
        }
        ASSERT_EQ(ints(data(dst) + y * pitch(dst) + x * n, want.size()), want) << y << "," << x;
      }
  }
  // With neutral gains only luma goes through the grey array; chroma is copied.
  ASSERT_EQ(VEK_LUT_generate(t, 150, 100, 100, 100, 100, 100), 0u);
  const uint32_t yuv = make_image(VEK_YUV422, 4, 2), out = VEK_image_create();
  vektest::fill_random(yuv, 17);
  ASSERT_EQ(VEK_LUT_apply(yuv, out, t), 0u);
  for (uint32_t i = 0; i < 16; ++i) EXPECT_EQ(data(out)[i], i % 2 ? data(yuv)[i] : G[data(yuv)[i]]) << i;
  // A 2-byte table of fewer entries than the data's range still maps every Y16 word.
  const uint32_t t16 = VEK_LUT_create(4096, 2), y16 = make_image(VEK_Y16, 2, 1);
  ASSERT_EQ(VEK_LUT_generate(t16, 100, 100, 200, 100, 100, 100), 0u);
  std::memcpy(data(y16), "\x00\x04\xFF\xFF", 4);  // 1024, and a word beyond the table: identity
  ASSERT_EQ(VEK_LUT_apply(y16, out, t16), 0u);
  EXPECT_EQ(w16(data(out)), static_cast<const uint16_t*>(VEK_LUT_get_ptr(t16, VEK_LUT_GREY))[1024]);
  EXPECT_EQ(w16(data(out) + 2), 0xFFFF);
  VEK_image_set_parameter(yuv, VEK_PARAM_STRIP_LINES, 0);  // zero lines: parameters only
  const uint32_t empty = VEK_image_create();
  EXPECT_EQ(VEK_LUT_apply(yuv, empty, t), 0u);
  EXPECT_EQ(VEK_image_get_ptr(empty, VEK_PTR_DATA), nullptr);
  EXPECT_EQ(rec.count(), 0u);
  // Refused formats carry the format in the code, YUV through a 2-byte table too.
  for (int f : {VEK_BGR24, VEK_RGBX32, VEK_PALETTED, VEK_YUV422})
    expect_refused(rec, VEK_IP_LUT_Apply(make_image(f, 2, 1), out, f == VEK_YUV422 ? t16 : t),
                   VEK_ERROR_NOT_SUPPORTED | uint32_t(f), "VEK_LUT_apply", "Unsupported image format");
}

TEST(IntensityLut, CreationLimitsHandlesAndWrappers) {
  Session rec;
  VEK_LUT_destroy(VEK_ALL_IMAGES);
  const uint32_t t = VEK_LUT_create(256, 1);
  ASSERT_EQ(t, 1u);
  EXPECT_EQ(VEK_LUT_get_ptr(t, 3), nullptr);
  rec.clear();
  EXPECT_EQ(VEK_LUT_create(257, 1), VEK_ERROR_BAD_PARAMETER | 1);
  EXPECT_EQ(rec.last().message, "too many LUT elements");
  EXPECT_EQ(VEK_LUT_create(16, 3), VEK_ERROR_BAD_PARAMETER | 3);
  EXPECT_EQ(rec.last().message, "element size must be 1 or 2 bytes");
  // The wrappers store their results and always return 0.
  uint32_t handle = 0, bad_handle = 0;
  void* ptr = nullptr;
  EXPECT_EQ(VEK_LUT_ParameterPtrGet(t, VEK_LUT_BLUE, &ptr) | VEK_LUT_Create(&handle, 300, 1) |
                VEK_LUT_Create(&bad_handle, 65537, 2), 0u);
  EXPECT_EQ(ptr, VEK_LUT_get_ptr(t, VEK_LUT_BLUE));
  EXPECT_EQ(handle, VEK_ERROR_BAD_PARAMETER | 1);
  EXPECT_EQ(bad_handle, VEK_ERROR_BAD_PARAMETER | 2);
  for (uint32_t i = 2; i <= 15; ++i) ASSERT_EQ(VEK_LUT_create(4096, 2), i);
  EXPECT_EQ(VEK_LUT_create(16, 1), VEK_ERROR_OUT_OF_HANDLES);
  EXPECT_EQ(VEK_LUT_destroy(7), 0u);
  EXPECT_EQ(VEK_LUT_create(16, 1), 7u);
  // Destroying every image releases the tables as well.
  VEK_image_destroy(VEK_ALL_IMAGES);
  EXPECT_EQ(VEK_LUT_create(16, 1), 1u);
}

}  // namespace
