// Checks of the conversion family: the palette, table and intensity
// paths over several strips and every accepted format, compared against references
// written here from the stated formulas, plus bad input (zero lines, no data, odd
// widths, data widths out of range, table files of the wrong size).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "core/alloc.h"
#include "support/recorder.h"
#include "vek.h"

using vektest::ErrorRecorder;
using vektest::make_image;

namespace {

uint8_t* data(uint32_t h) { return static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA)); }
uint32_t param(uint32_t h, uint32_t id) { return VEK_image_get_parameter(h, id); }
uint32_t pitch(uint32_t h) { return param(h, VEK_PARAM_BYTES_PER_LINE); }
int w16(const uint8_t* p) { return p[0] | p[1] << 8; }
int clampi(int v) { return v < 0 ? 0 : v > 255 ? 255 : v; }

struct C {
  int r, g, b;
};
C yuv_rgb(int y, int u, int v) {
  return {clampi((1024 * y + 1436 * (v - 128)) >> 10),
          clampi((1024 * y - 731 * (v - 128) - 352 * (u - 128)) >> 10),
          clampi((1024 * y + 1815 * (u - 128)) >> 10)};
}
void rgb_yuv(int r, int g, int b, int& y, int& u, int& v) {
  y = std::min((306 * r + 601 * g + 117 * b) >> 10, 255);
  u = clampi(((512 * b - 339 * g - 173 * r) >> 10) + 128);
  v = clampi(((512 * r - 429 * g - 83 * b) >> 10) + 128);
}
int rgb16(C c) { return (c.r & 0xF8) << 8 | (c.g & 0xFC) << 3 | c.b >> 3; }
int rgb15(C c) { return (c.r & 0xF8) << 7 | (c.g & 0xF8) << 2 | c.b >> 3; }

// Closest entry by squared distance, first minimum wins.
int closest(const std::vector<C>& map, int r, int g, int b) {
  int best = 31234567, idx = 0;
  for (size_t i = 0; i < map.size(); ++i) {
    const int d = (r - map[i].r) * (r - map[i].r) + (g - map[i].g) * (g - map[i].g) +
                  (b - map[i].b) * (b - map[i].b);
    if (d < best) best = d, idx = int(i);
  }
  return idx;
}
std::vector<C> map_of(uint32_t h) {
  std::vector<C> m;
  for (uint32_t i = 0; i < param(h, VEK_PARAM_CMAP_SIZE); ++i) {
    const uint32_t e = VEK_cmap_get_RGB_colour(h, i);
    m.push_back(C{int(e >> 16), int((e >> 8) & 255), int(e & 255)});
  }
  return m;
}
// A small irregular palette so that nearest-colour ties and misses show.
void random_map(uint32_t h, uint32_t count, uint32_t seed) {
  VEK_image_set_parameter(h, VEK_PARAM_CMAP_SIZE, count);
  const auto bytes = vektest::random_bytes(3 * count, seed);
  for (uint32_t i = 0; i < count; ++i)
    ASSERT_EQ(VEK_cmap_set_RGB_colour(h, i, bytes[3 * i], bytes[3 * i + 1], bytes[3 * i + 2]), 0u);
}

// ---- conversion tables -------------------------------------------------------

TEST(ConvTablesReview, EveryTableMatchesItsBuilderFormula) {
  ErrorRecorder rec;
  const std::string dir = vektest::scratch_dir();
  auto read_file = [](const std::string& name) {
    std::vector<uint8_t> v;
    FILE* f = std::fopen(name.c_str(), "rb");
    if (!f) return v;
    int c;
    while ((c = std::fgetc(f)) != EOF) v.push_back(uint8_t(c));
    std::fclose(f);
    return v;
  };
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
      const int want = type == VEK_LUT_YUV422_TO_RGB16 ? rgb16(c) : rgb15(c);
      ASSERT_EQ(w16(&bytes[2 * i]), want) << type << " index " << i;
    }
  }
  // The palette tables, each against the nearest-colour search over the image's map.
  const std::vector<C> map = map_of(img);
  for (uint32_t dw : {9u, 12u}) {
    VEK_image_set_parameter(img, VEK_PARAM_DATA_WIDTH, dw);
    ASSERT_EQ(VEK_image_conv_LUT_generate(img, VEK_LUT_Y16_TO_PALETTED), 0u);
    const std::string name = dir + "y16_" + std::to_string(dw) + ".bin";
    ASSERT_EQ(VEK_image_conv_LUT_save(img, VEK_LUT_Y16_TO_PALETTED, name.c_str()), 0u);
    const auto bytes = read_file(name);
    ASSERT_EQ(bytes.size(), size_t(1) << dw);
    for (uint32_t w = 0; w < bytes.size(); ++w) {
      const int g = int(w >> (dw - 8)) & 255;
      ASSERT_EQ(bytes[w], closest(map, g, g, g)) << "Y16 word " << w;
    }
  }
  struct Pal {
    uint32_t type;
    size_t size;
    C (*colour)(uint32_t);
  };
  const Pal pals[] = {
      {VEK_LUT_RGB16_TO_PALETTED, 65536,
       [](uint32_t w) { return C{int(w >> 8), int((w >> 3) & 255), int((w << 3) & 255)}; }},
      {VEK_LUT_Y8_TO_PALETTED, 256, [](uint32_t v) { return C{int(v), int(v), int(v)}; }},
      {VEK_LUT_YUV422_TO_PALETTED, 32768,
       [](uint32_t i) { return yuv_rgb(int((i >> 7) & 0xF8), int((i >> 2) & 0xF8), int(i & 31) * 8); }},
  };
  for (const Pal& p : pals) {
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
  VEK_image_destroy(VEK_ALL_IMAGES);
  VEK_image_destroy(VEK_LIBRARY_TABLES);
}

TEST(ConvTablesReview, TableDrivenPalettedConversionsOverStrips) {
  ErrorRecorder rec;
  VEK_image_destroy(VEK_LIBRARY_TABLES);
  struct Src {
    int format;
    uint32_t width;
  };
  for (const Src s : {Src{VEK_RGB16, 7}, Src{VEK_Y8, 9}, Src{VEK_Y16, 5}, Src{VEK_YUV422, 6}}) {
    SCOPED_TRACE(s.format);
    const uint32_t height = 7, strip = 3;
    // Padded lines on both sides (alignment 8): the YUV source is read, and its
    // indices written, back to back without the padding.
    const bool stream = s.format == VEK_YUV422;
    const uint32_t src = make_image(s.format, s.width, height, strip, 8);
    if (s.format == VEK_Y16) VEK_image_set_parameter(src, VEK_PARAM_DATA_WIDTH, 11);
    random_map(src, 20, s.format);
    const std::vector<C> map = map_of(src);
    const auto fn = s.format == VEK_YUV422 ? VEK_YUV422_to_paletted_LUT : VEK_convert_to_paletted_LUT;
    const uint32_t dst = VEK_image_create();
    ASSERT_GT(pitch(src), s.width * (s.format == VEK_Y8 ? 1 : 2));
    uint32_t done = 0;
    for (int k = 0; done < height; ++k) {
      vektest::fill_random(src, 40 + k);
      if (s.format == VEK_Y16)  // keep the words inside the data width
        for (uint32_t i = 1; i < pitch(src) * strip; i += 2) data(src)[i] &= 0x07;
      ASSERT_EQ(fn(src, dst, VEK_STRIP_NEXT), 0u);
      const uint32_t lines = param(src, VEK_PARAM_STRIP_LINES);
      ASSERT_EQ(param(dst, VEK_PARAM_STRIP_LINES), lines);
      EXPECT_EQ(param(dst, VEK_PARAM_FORMAT), uint32_t(VEK_PALETTED));
      const uint32_t sp = stream ? 2 * s.width : pitch(src), dp = stream ? s.width : pitch(dst);
      for (uint32_t y = 0; y < lines; ++y)
        for (uint32_t x = 0; x < s.width; ++x) {
          const uint8_t* p = data(src) + y * sp;
          C c{};
          switch (s.format) {
            case VEK_RGB16: {
              const int w = w16(p + 2 * x);
              c = C{w >> 8, (w >> 3) & 255, (w << 3) & 255};
              break;
            }
            case VEK_Y8: c = C{p[x], p[x], p[x]}; break;
            case VEK_Y16: {
              const int g = (w16(p + 2 * x) >> 3) & 255;
              c = C{g, g, g};
              break;
            }
            default: {
              const uint8_t* q = p + 4 * (x / 2);
              c = yuv_rgb(q[2 * (x % 2)] & 0xF8, q[1] & 0xF8, q[3] & 0xF8);
            }
          }
          ASSERT_EQ(data(dst)[y * dp + x], closest(map, c.r, c.g, c.b)) << y << "," << x;
        }
      done += lines;
    }
    EXPECT_EQ(param(src, VEK_PARAM_STRIP_LINES), 1u);  // the last strip was trimmed
  }
  EXPECT_EQ(rec.count(), 0u);
  VEK_image_destroy(VEK_ALL_IMAGES);
  VEK_image_destroy(VEK_LIBRARY_TABLES);
}

TEST(ConvTablesReview, FilesOfTheWrongSizeAndBadWidths) {
  ErrorRecorder rec;
  const std::string dir = vektest::scratch_dir();
  auto write = [&](const std::string& name, size_t n) {
    FILE* f = std::fopen((dir + name).c_str(), "wb");
    const auto bytes = vektest::random_bytes(n, uint32_t(n));
    if (n) std::fwrite(bytes.data(), 1, n, f);
    std::fclose(f);
    return dir + name;
  };
  const uint32_t img = make_image(VEK_Y16, 2, 1);
  VEK_image_set_parameter(img, VEK_PARAM_DATA_WIDTH, 10);
  // One byte short, one byte long and empty files are all refused, for every type.
  const struct {
    uint32_t type;
    size_t size;
  } types[] = {{200, 65536}, {201, 256}, {202, 1024}, {203, 1048576}, {204, 1048576}, {205, 32768}};
  for (const auto& t : types) {
    for (size_t n : {t.size - 1, t.size + 1, size_t(0)}) {
      rec.clear();
      EXPECT_EQ(VEK_image_conv_LUT_load(img, t.type, write("bad.bin", n).c_str()), VEK_ERROR_LUT_FILE_SIZE)
          << t.type << " " << n;
      EXPECT_TRUE(rec.only("VEK_image_conv_LUT_load", VEK_ERROR_LUT_FILE_SIZE,
                           "Incorrect number of bytes read - correct LUT selected?"));
    }
    // The exact size loads and saves back byte for byte.
    const std::string good = write("good.bin", t.size);
    ASSERT_EQ(VEK_image_conv_LUT_load(img, t.type, good.c_str()), 0u) << t.type;
    ASSERT_EQ(VEK_image_conv_LUT_save(img, t.type, (dir + "again.bin").c_str()), 0u);
    const auto want = vektest::random_bytes(t.size, uint32_t(t.size));
    FILE* f = std::fopen((dir + "again.bin").c_str(), "rb");
    std::vector<uint8_t> got(t.size + 1);
    EXPECT_EQ(std::fread(got.data(), 1, got.size(), f), t.size);
    std::fclose(f);
    got.resize(t.size);
    EXPECT_EQ(got, want) << t.type;
  }
  // Data widths outside 9..16 for the Y16 table, whether built or loaded.
  const std::pair<uint32_t, const char*> widths[] = {{8, "data width should > 8 (and <= 16)"},
                                                      {3, "data width should > 8 (and <= 16)"}};
  for (auto [dw, msg] : widths) {
    VEK_image_set_parameter(img, VEK_PARAM_DATA_WIDTH, dw);
    rec.clear();
    EXPECT_EQ(VEK_image_conv_LUT_generate(img, VEK_LUT_Y16_TO_PALETTED), VEK_ERROR_BAD_PARAMETER);
    EXPECT_TRUE(rec.only("VEK_generate_Y16_to_paletted_LUT", VEK_ERROR_BAD_PARAMETER, msg));
    rec.clear();
    EXPECT_EQ(VEK_image_conv_LUT_load(img, VEK_LUT_Y16_TO_PALETTED, write("w.bin", 256).c_str()),
              VEK_ERROR_BAD_PARAMETER);
  }
  VEK_image_set_parameter(img, VEK_PARAM_DATA_WIDTH, 17);
  rec.clear();
  EXPECT_EQ(VEK_generate_Y16_to_paletted_LUT(img), VEK_ERROR_BAD_PARAMETER);
  EXPECT_TRUE(rec.only("VEK_generate_Y16_to_paletted_LUT", VEK_ERROR_BAD_PARAMETER, "data width should <= 16 (and > 8)"));
  // A Y16 conversion through a table built for a narrower width never reads past it.
  VEK_image_set_parameter(img, VEK_PARAM_DATA_WIDTH, 9);
  ASSERT_EQ(VEK_generate_Y16_to_paletted_LUT(img), 0u);
  VEK_image_set_parameter(img, VEK_PARAM_DATA_WIDTH, 16);
  data(img)[0] = data(img)[1] = data(img)[2] = data(img)[3] = 0xFF;
  const uint32_t out = VEK_image_create();
  rec.clear();
  EXPECT_EQ(VEK_convert_to_paletted_LUT(img, out, VEK_STRIP_NEXT), 0u);
  // Bad types, an unknown image, a table never built, an unwritable file.
  rec.clear();
  EXPECT_EQ(VEK_image_conv_LUT_destroy(206), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_image_conv_LUT_destroy", VEK_ERROR_NOT_SUPPORTED,
                       "LUT function not available for this image pixel format"));
  rec.clear();
  EXPECT_EQ(VEK_image_conv_LUT_load(img, 199, dir.c_str()), VEK_ERROR_BAD_PARAMETER);
  EXPECT_TRUE(rec.only("VEK_image_conv_LUT_load", VEK_ERROR_BAD_PARAMETER, "Unrecognized LUT type"));
  EXPECT_EQ(VEK_image_conv_LUT_generate(9999, VEK_LUT_Y8_TO_PALETTED), VEK_ERROR_BAD_HANDLE);
  rec.clear();
  EXPECT_EQ(VEK_image_conv_LUT_save(img, VEK_LUT_Y8_TO_PALETTED, dir.c_str()), VEK_ERROR_OPEN_FAILED);
  EXPECT_TRUE(rec.only("VEK_image_conv_LUT_save", VEK_ERROR_OPEN_FAILED, "Failed to create file"));
  VEK_image_destroy(VEK_ALL_IMAGES);
  VEK_image_destroy(VEK_LIBRARY_TABLES);
  const uint32_t fresh = make_image(VEK_Y8, 2, 1);
  rec.clear();
  EXPECT_GT(VEK_image_conv_LUT_save(fresh, VEK_LUT_Y8_TO_PALETTED, (dir + "never.bin").c_str()), 0xFFFFu);
  EXPECT_EQ(rec.count(), 1u);
  VEK_image_destroy(VEK_ALL_IMAGES);
}


// ---- colour maps and paletted images ------------------------------------------

TEST(CmapReview, GenerateOverStripsThenConvertWithClosestFallback) {
  ErrorRecorder rec;
  // Y16 (data width 10) and Y8 of odd width: a padding byte after each line must not
  // be counted, and the histogram accumulates over every strip of the sequence.
  for (int format : {VEK_Y16, VEK_Y8}) {
    SCOPED_TRACE(format);
    const uint32_t width = 5, height = 7, strip = 3;
    const uint32_t src = make_image(format, width, height, strip, 4);
    if (format == VEK_Y16) VEK_image_set_parameter(src, VEK_PARAM_DATA_WIDTH, 10);
    VEK_cmap_set_type(src, 1);  // 16 named colours; generation appends after them
    std::vector<uint32_t> hist(256, 0);
    std::vector<std::vector<uint8_t>> strips;
    uint32_t done = 0;
    for (int k = 0; done < height; ++k) {
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
    done = 0;
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
            if (map[k].r == v) want = k;
          ASSERT_EQ(data(pal)[y * pitch(pal) + x], want) << y << "," << x;
        }
    }
    EXPECT_EQ(param(pal, VEK_PARAM_FORMAT), uint32_t(VEK_PALETTED));
  }
  EXPECT_EQ(rec.count(), 0u);
  VEK_image_destroy(VEK_ALL_IMAGES);
}

// ---- intensity look-up tables ----------------------------------------------------

// Every entry of every array against the formula, over random parameter sets (each
// clamp exercised) for a full 1-byte table and a 2-byte table of 1000 entries.
TEST(IntensityLutReview, GenerationOverParameterSetsAndSizes) {
  ErrorRecorder rec;
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
    const double hi = size == 1 ? 255 : n - 1;
    for (int set = 0; set < 30; ++set) {
      // Parameters from -40 to 470; set 0 is brightness 0 alone.
      int p[6];
      for (int k = 0; k < 6; ++k) p[k] = set == 0 ? (k == 0 ? 0 : 100) : rnd[6 * set + k] * 2 - 40;
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
      if (set == 0 && size == 1) {  // brightness 0 takes about 50 off every entry
        for (int i = 0; i < 256; ++i) {
          EXPECT_TRUE(entry(0, i) == std::max(i - 50, 0) || entry(0, i) == std::max(i - 51, 0)) << i;
        }
      }
    }
  }
  EXPECT_EQ(rec.count(), 0u);
  VEK_LUT_destroy(VEK_ALL_IMAGES);
}

TEST(IntensityLutReview, ApplyMapsEveryAcceptedFormat) {
  ErrorRecorder rec;
  VEK_LUT_destroy(VEK_ALL_IMAGES);
  const uint32_t t = VEK_LUT_create(256, 1);
  ASSERT_EQ(VEK_LUT_generate(t, 130, 90, 120, 60, 140, 110), 0u);
  const auto* G = static_cast<const uint8_t*>(VEK_LUT_get_ptr(t, VEK_LUT_GREY));
  const auto* R = static_cast<const uint8_t*>(VEK_LUT_get_ptr(t, VEK_LUT_RED));
  const auto* Gr = static_cast<const uint8_t*>(VEK_LUT_get_ptr(t, VEK_LUT_GREEN));
  const auto* B = static_cast<const uint8_t*>(VEK_LUT_get_ptr(t, VEK_LUT_BLUE));
  const uint32_t width = 6, height = 3;
  for (int f : {VEK_Y8, VEK_RGB24, VEK_RGB15, VEK_RGB16, VEK_RGB8, VEK_RGGB32, VEK_YUV422}) {
    SCOPED_TRACE(f);
    const uint32_t src = make_image(f, width, height, 0, 4), dst = VEK_image_create();
    vektest::fill_random(src, 300 + f);
    ASSERT_EQ(VEK_LUT_apply(src, dst, t), 0u);
    EXPECT_EQ(param(dst, VEK_PARAM_FORMAT), uint32_t(f));
    for (uint32_t y = 0; y < height; ++y) {
      const uint8_t* s = data(src) + y * pitch(src);
      const uint8_t* d = data(dst) + y * pitch(dst);
      for (uint32_t x = 0; x < width; ++x) {
        switch (f) {
          case VEK_Y8: ASSERT_EQ(d[x], G[s[x]]); break;
          case VEK_RGB24:
            ASSERT_EQ(d[3 * x], R[s[3 * x]]);
            ASSERT_EQ(d[3 * x + 1], Gr[s[3 * x + 1]]);
            ASSERT_EQ(d[3 * x + 2], B[s[3 * x + 2]]);
            break;
          case VEK_RGB15: {
            const int w = w16(s + 2 * x);
            const int r = R[(w >> 7) & 0xF8], g = Gr[(w >> 2) & 0xF8], b = B[(w & 31) * 8];
            ASSERT_EQ(w16(d + 2 * x), (r >> 3) << 10 | (g & 0xF8) << 2 | b >> 3) << x;
            break;
          }
          case VEK_RGB16: {
            const int w = w16(s + 2 * x);
            const int r = R[(w >> 8) & 0xF8], g = Gr[(w >> 3) & 0xFC], b = B[(w & 31) * 8];
            ASSERT_EQ(w16(d + 2 * x), (r & 0xF8) << 8 | (g & 0xFC) << 3 | b >> 3) << x;
            break;
          }
          case VEK_RGB8: {
            const int p = s[x], r = R[p & 0xE0], g = Gr[(p & 0x1C) * 8], b = B[(p & 3) * 64];
            ASSERT_EQ(d[x], (r & 0xE0) | ((g & 0xE0) >> 3) | (b >> 6)) << x;
            break;
          }
          case VEK_RGGB32: {
            const uint8_t* arr = (y % 2 == 0) ? (x % 2 == 0 ? R : Gr) : (x % 2 == 0 ? Gr : B);
            ASSERT_EQ(d[x], arr[s[x]]) << y << "," << x;
            break;
          }
          default: {
            if (x % 2) break;
            const uint8_t* q = s + 2 * x;
            int Y[2], U[2], V[2];
            for (int i = 0; i < 2; ++i) {
              const C c = yuv_rgb(q[2 * i], q[1], q[3]);
              rgb_yuv(R[c.r], Gr[c.g], B[c.b], Y[i], U[i], V[i]);
            }
            const uint8_t* o = d + 2 * x;
            ASSERT_EQ(std::vector<int>(o, o + 4), (std::vector<int>{Y[0], (U[0] + U[1]) >> 1, Y[1], (V[0] + V[1]) >> 1})) << x;
          }
        }
      }
    }
  }
  // With neutral gains only luma goes through the grey array; chroma is copied.
  ASSERT_EQ(VEK_LUT_generate(t, 150, 100, 100, 100, 100, 100), 0u);
  const uint32_t yuv = make_image(VEK_YUV422, 4, 2), out = VEK_image_create();
  vektest::fill_random(yuv, 17);
  ASSERT_EQ(VEK_LUT_apply(yuv, out, t), 0u);
  for (uint32_t i = 0; i < 16; ++i) EXPECT_EQ(data(out)[i], i % 2 ? data(yuv)[i] : G[data(yuv)[i]]) << i;
  // Refused formats carry the format in the code; zero lines copy parameters only.
  for (int f : {VEK_BGR24, VEK_RGBX32, VEK_Y16, VEK_PALETTED}) {
    const uint32_t bad = make_image(f, 2, 1);
    rec.clear();
    EXPECT_EQ(VEK_IP_LUT_Apply(bad, out, t), VEK_ERROR_NOT_SUPPORTED | uint32_t(f));
    EXPECT_TRUE(rec.only("VEK_LUT_apply", VEK_ERROR_NOT_SUPPORTED | uint32_t(f), "Unsupported image format"));
  }
  const uint32_t t2 = VEK_LUT_create(256, 2);
  rec.clear();
  EXPECT_EQ(VEK_LUT_apply(yuv, out, t2), VEK_ERROR_NOT_SUPPORTED | uint32_t(VEK_YUV422));
  VEK_image_set_parameter(yuv, VEK_PARAM_STRIP_LINES, 0);
  const uint32_t empty = VEK_image_create();
  rec.clear();
  EXPECT_EQ(VEK_LUT_apply(yuv, empty, t), 0u);
  EXPECT_EQ(param(empty, VEK_PARAM_WIDTH), 4u);
  EXPECT_EQ(VEK_image_get_ptr(empty, VEK_PTR_DATA), nullptr);
  // The wrappers store their results and always return 0.
  uint32_t handle = 0;
  void* ptr = nullptr;
  EXPECT_EQ(VEK_LUT_Create(&handle, 300, 1), 0u);
  EXPECT_EQ(handle, VEK_ERROR_BAD_PARAMETER | 1);
  EXPECT_EQ(VEK_LUT_ParameterPtrGet(t, VEK_LUT_BLUE, &ptr), 0u);
  EXPECT_EQ(ptr, B);
  EXPECT_EQ(VEK_LUT_Create(&handle, 65537, 2), 0u);
  EXPECT_EQ(handle, VEK_ERROR_BAD_PARAMETER | 2);
  VEK_image_destroy(VEK_ALL_IMAGES);
  VEK_LUT_destroy(VEK_ALL_IMAGES);
}


// ---- dispatcher and bad input over every front end ----------------------------------

using Front = uint32_t (*)(uint32_t, uint32_t, uint32_t);
using Worker = uint32_t (*)(uint32_t, uint32_t);
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

TEST(ConvertBadInput, ZeroLinesNoDataAndOddWidthsOverEveryFrontEnd) {
  ErrorRecorder rec;
  for (const Entry& e : kEntries) {
    SCOPED_TRACE(e.name);
    const uint32_t width = 6;
    // Zero strip lines: parameters with the target format, no pixels, no report.
    const uint32_t src = make_image(e.source, width, 4);
    if (e.source == VEK_PALETTED) VEK_cmap_set_type(src, 3);
    VEK_image_set_parameter(src, VEK_PARAM_STRIP_LINES, 0);
    const uint32_t dst = VEK_image_create();
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
    EXPECT_EQ(e.worker(src, dst), VEK_ERROR_NO_IMAGE_DATA);
    EXPECT_TRUE(rec.only(std::string(e.name) + "_1_strip", VEK_ERROR_NO_IMAGE_DATA, "No image data"))
        << rec.last().function << ": " << rec.last().message;
    // An unknown source handle never gets past the checks.
    rec.clear();
    EXPECT_GT(e.front(0xFFF0, dst, VEK_STRIP_NEXT), 0xFFFFu);
    EXPECT_GT(e.worker(0xFFF0, dst), 0xFFFFu);
    // Odd widths where pairs are required (grey from YUV takes any width).
    if (std::string(e.name).starts_with("VEK_YUV422_to_") || e.target == VEK_YUV422) {
      const uint32_t odd = make_image(e.source, 5, 2);
      rec.clear();
      EXPECT_EQ(e.front(odd, dst, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED);
      EXPECT_TRUE(rec.only(e.name, VEK_ERROR_NOT_SUPPORTED,
                           e.target == VEK_YUV422 ? "Only even width YUV422 images are supported"
                                                  : "YUV422 image must be an even width"));
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
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(ConvertBadInput, RefusedSourcesOfTheYuvAndPaletteFamilies) {
  ErrorRecorder rec;
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
      EXPECT_EQ(r.front(src, dst, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED) << r.name << " " << f;
      EXPECT_TRUE(rec.only(r.name, VEK_ERROR_NOT_SUPPORTED, r.message)) << r.name << " " << f << ": " << rec.last().message;
      VEK_image_destroy(src);
      VEK_image_destroy(dst);
    }
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(ConvertBadInput, Y16DataWidthsOutOfRange) {
  ErrorRecorder rec;
  const uint32_t y16 = make_image(VEK_Y16, 4, 2);
  vektest::fill_random(y16, 3);
  const uint32_t dst = VEK_image_create();
  // Widths the validator refuses are "Corrupt image" (Y8 says "Corrupt images").
  for (uint32_t dw : {0u, 17u}) {
    VEK_image_set_parameter(y16, VEK_PARAM_DATA_WIDTH, dw);
    const std::tuple<Front, const char*, const char*> fronts[] = {
        {VEK_convert_to_RGB24, "VEK_convert_to_RGB24", "Corrupt image"},
        {VEK_convert_to_Y8, "VEK_convert_to_Y8", "Corrupt images"},
        {VEK_convert_to_YUV422, "VEK_convert_to_YUV422", "Corrupt image"}};
    for (auto [fn, name, msg] : fronts) {
      rec.clear();
      const uint32_t status = fn(y16, dst, VEK_STRIP_NEXT);
      EXPECT_GT(status, 0xFFFFu) << name << " " << dw;
      ASSERT_FALSE(rec.reports().empty());
      EXPECT_EQ(rec.last().function, name);
      EXPECT_EQ(rec.last().message, msg);
      EXPECT_EQ(rec.last().code, status);
    }
  }
  // Narrow but valid widths convert in the targets that take them.
  VEK_image_set_parameter(y16, VEK_PARAM_DATA_WIDTH, 4);
  rec.clear();
  EXPECT_EQ(VEK_convert_to_RGB24(y16, dst, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(VEK_convert_to_Y8(y16, dst, VEK_STRIP_NEXT), VEK_ERROR_BAD_PARAMETER);
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(ConvertDispatch, PalettedAndTableRoutes) {
  ErrorRecorder rec;
  const uint32_t grey_pal = make_image(VEK_PALETTED, 4, 2), colour_pal = make_image(VEK_PALETTED, 4, 2);
  VEK_cmap_set_type(grey_pal, 2);
  VEK_cmap_set_type(colour_pal, 3);
  vektest::fill_random(grey_pal, 1);
  vektest::fill_random(colour_pal, 2);
  const uint32_t out = VEK_image_create();
  ASSERT_EQ(VEK_image_convert(grey_pal, out, VEK_PALETTED_TO_RGB, 0, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(out, VEK_PARAM_FORMAT), uint32_t(VEK_Y8));
  for (uint32_t i = 0; i < 4; ++i) EXPECT_EQ(data(out)[i], data(grey_pal)[i]);
  ASSERT_EQ(VEK_image_convert(colour_pal, out, VEK_PALETTED_TO_RGB, 0, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(out, VEK_PARAM_FORMAT), uint32_t(VEK_RGB24));
  const uint32_t e = VEK_cmap_get_RGB_colour(colour_pal, data(colour_pal)[1]);
  EXPECT_EQ(std::vector<int>(data(out) + 3, data(out) + 6), (std::vector<int>{int(e >> 16), int((e >> 8) & 255), int(e & 255)}));
  // Target 3: the LUT flag picks the table-driven conversion, else the generated palette.
  const uint32_t y8 = make_image(VEK_Y8, 4, 2);
  VEK_cmap_set_type(y8, 1);
  const uint32_t pal = VEK_image_create();
  rec.clear();
  EXPECT_EQ(VEK_image_convert(y8, pal, VEK_PALETTED, 0, VEK_STRIP_NEXT), VEK_ERROR_BAD_STATE);
  EXPECT_TRUE(rec.only("VEK_convert_to_paletted", VEK_ERROR_BAD_STATE, "VEK_cmap_generate must be called first"));
  VEK_image_set_flags(pal, VEK_FLAG_LUT, 1);
  rec.clear();
  EXPECT_EQ(VEK_image_convert(y8, pal, VEK_PALETTED, 0, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(pal, VEK_PARAM_FORMAT), uint32_t(VEK_PALETTED));
  // YUV sources: target 3 is always table-driven, 12 copies, 4 and 13 are refused.
  const uint32_t yuv = make_image(VEK_YUV422, 4, 2);
  vektest::fill_random(yuv, 4);
  const uint32_t ydst = VEK_image_create();
  EXPECT_EQ(VEK_image_convert(yuv, ydst, VEK_PALETTED, 0, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(ydst, VEK_PARAM_FORMAT), uint32_t(VEK_PALETTED));
  EXPECT_EQ(VEK_image_convert(yuv, ydst, VEK_YUV422, 0, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(std::memcmp(data(yuv), data(ydst), 16), 0);
  EXPECT_EQ(VEK_image_convert(yuv, ydst, VEK_Y16, 0, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(w16(data(ydst) + 2), data(yuv)[2] << 8);
  EXPECT_EQ(rec.count(), 0u);
  for (uint32_t target : {uint32_t(VEK_RGB8), uint32_t(VEK_CMYK32), 1u}) {
    rec.clear();
    EXPECT_EQ(VEK_image_convert(yuv, ydst, target, 0, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED);
    EXPECT_TRUE(rec.only("VEK_image_convert", VEK_ERROR_NOT_SUPPORTED, "Unsupported or unrecognized output image format"));
  }
  // RGB8 is reachable for other sources.
  EXPECT_EQ(VEK_image_convert(y8, ydst, VEK_RGB8, 0, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(param(ydst, VEK_PARAM_FORMAT), uint32_t(VEK_RGB8));
  VEK_image_destroy(VEK_ALL_IMAGES);
}


TEST(CmapReview, UnknownHandlesAndMissingRecords) {
  ErrorRecorder rec;
  const uint32_t bad = 0xFFF0;
  const uint32_t results[] = {VEK_cmap_destroy_info(bad), VEK_cmap_copy(bad, bad), VEK_cmap_get_RGB_colour(bad, 0),
                              VEK_cmap_set_RGB_colour(bad, 0, 1, 2, 3), VEK_cmap_set_colour(bad, 0, 1),
                              VEK_cmap_set_type(bad, 1), VEK_cmap_is_grayscale(bad),
                              VEK_cmap_find_closest_colour(bad, 1, 2, 3), VEK_cmap_get_occurrences(bad, 0)};
  for (uint32_t r : results) EXPECT_EQ(r, VEK_ERROR_BAD_HANDLE);
  const uint32_t img = make_image(VEK_Y8, 2, 1);
  rec.clear();
  EXPECT_EQ(VEK_cmap_get_occurrences(img, 0), VEK_ERROR_BAD_STATE);
  EXPECT_TRUE(rec.only("VEK_cmap_get_occurrences", VEK_ERROR_BAD_STATE, "No cmap info structure"));
  EXPECT_EQ(VEK_cmap_destroy_info(img), 0u);  // none to free is no error
  // A map without valid entries is grey and its nearest entry is 0.
  VEK_image_set_parameter(img, VEK_PARAM_CMAP_SIZE, 0);
  EXPECT_EQ(VEK_cmap_is_grayscale(img), 1u);
  EXPECT_EQ(VEK_cmap_find_closest_colour(img, 200, 10, 10), 0u);
  rec.clear();
  EXPECT_EQ(VEK_cmap_generate(make_image(VEK_BGR24, 2, 1), 16, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_cmap_generate", VEK_ERROR_NOT_SUPPORTED, "Unsupported image format"));
  rec.clear();
  EXPECT_EQ(VEK_paletted_to_RGB24_or_Y8(make_image(VEK_BGR24, 2, 1), img, VEK_STRIP_NEXT), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_paletted_to_RGB24_or_Y8", VEK_ERROR_NOT_SUPPORTED, "Input image should be paletted"));
  VEK_image_destroy(VEK_ALL_IMAGES);
}

// ---- regressions and out-of-memory paths -------------------------------------------

// The histogram worker, called directly on an image of another format, walked its
// lines as 16-bit words and read past the end of the strip.
TEST(ConvertRegression, HistogramWorkerRefusesFormatsItCannotRead) {
  ErrorRecorder rec;
  const uint32_t img = make_image(VEK_Y8, 7, 3);
  vektest::fill_random(img, 6);
  ASSERT_EQ(VEK_cmap_generate(img, 256, VEK_STRIP_NEXT), 0u);
  for (int f : {VEK_PALETTED, VEK_RGB8, VEK_RGGB32, VEK_BGR24, VEK_RGBX32}) {
    VEK_image_set_parameter(img, VEK_PARAM_FORMAT, f);
    rec.clear();
    EXPECT_EQ(VEK_cmap_generate_1_strip(img), VEK_ERROR_NOT_SUPPORTED) << f;
    EXPECT_TRUE(rec.only("VEK_cmap_generate_1_strip", VEK_ERROR_NOT_SUPPORTED, "Unsupported image format"));
  }
  VEK_image_destroy(VEK_ALL_IMAGES);
}

// A worker called directly on a destination prepared for another format allocated
// the strip for that format's pixel size and then wrote its own, wider pixels past it.
TEST(ConvertRegression, WorkersRefuseADestinationOfAnotherFormat) {
  ErrorRecorder rec;
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
  VEK_image_destroy(VEK_ALL_IMAGES);
}

struct FailAllocations {
  explicit FailAllocations(long after) { vek::testing::fail_allocations_after(after); }
  ~FailAllocations() { vek::testing::fail_allocations_after(-1); }
};

// A load that has to allocate its table says what a builder of that table says.
TEST(ConvertRegression, OutOfMemoryMessagesNameTheTable) {
  ErrorRecorder rec;
  VEK_image_destroy(VEK_LIBRARY_TABLES);
  const uint32_t img = make_image(VEK_Y16, 2, 1);
  VEK_image_set_parameter(img, VEK_PARAM_DATA_WIDTH, 12);
  const std::string file = vektest::scratch_dir() + "oom.bin";
  if (FILE* f = std::fopen(file.c_str(), "wb")) std::fclose(f);
  const std::pair<uint32_t, const char*> types[] = {
      {200, "Unable to generate RGB16 to paletted LUT"}, {201, "Unable to generate Y8 to paletted LUT"},
      {202, "Unable to generate Y16 to paletted LUT"},   {203, "Unable to generate YUV to RGB16 LUT"},
      {204, "Unable to generate YUV to RGB15 LUT"},      {205, "Unable to generate YUV to paletted LUT"}};
  for (auto [type, msg] : types) {
    FailAllocations fail(0);
    rec.clear();
    EXPECT_EQ(VEK_image_conv_LUT_load(img, type, file.c_str()), VEK_ERROR_MEMORY);
    EXPECT_TRUE(rec.only("VEK_image_conv_LUT_load", VEK_ERROR_MEMORY, msg)) << rec.last().message;
    rec.clear();
    EXPECT_EQ(VEK_image_conv_LUT_generate(img, type), VEK_ERROR_MEMORY);
    ASSERT_EQ(rec.count(), 1u);
    EXPECT_EQ(rec.last().message, msg);
  }
  // A table-driven YUV conversion that cannot build its table fails before any pixel.
  const uint32_t yuv = make_image(VEK_YUV422, 4, 2), out = VEK_image_create();
  {
    FailAllocations fail(0);
    rec.clear();
    EXPECT_EQ(VEK_YUV422_to_RGB24_LUT(yuv, out, VEK_STRIP_NEXT), VEK_ERROR_MEMORY);
    EXPECT_TRUE(rec.only("VEK_generate_YUV422_to_RGB16_LUT", VEK_ERROR_MEMORY, "Unable to generate YUV to RGB16 LUT"));
  }
  // The sequence did not start: the next call converts normally.
  rec.clear();
  EXPECT_EQ(VEK_YUV422_to_RGB24_LUT(yuv, out, VEK_STRIP_NEXT), 0u);
  // A failed strip allocation comes back unchanged, reported by the allocator only.
  {
    FailAllocations fail(0);
    rec.clear();
    const uint32_t status = VEK_YUV422_to_RGB24(yuv, out, VEK_STRIP_NEXT);
    EXPECT_EQ(status & 0xFFFF0000u, VEK_ERROR_MEMORY);
    ASSERT_EQ(rec.count(), 1u);
    EXPECT_EQ(rec.last().function, "VEK_image_malloc_a_strip");
  }
  VEK_YUV422_to_RGB24(yuv, out, VEK_STRIP_END);
  // Histogram generation without memory for its information record.
  const uint32_t rgb = make_image(VEK_RGB24, 2, 1);
  {
    FailAllocations fail(0);
    rec.clear();
    EXPECT_EQ(VEK_cmap_generate(rgb, 256, VEK_STRIP_NEXT), VEK_ERROR_MEMORY);
    EXPECT_TRUE(rec.only("VEK_cmap_generate", VEK_ERROR_MEMORY, "Cannot create cmap info structure"));
    EXPECT_EQ(VEK_cmap_create_info(), nullptr);
  }
  EXPECT_EQ(VEK_cmap_generate(rgb, 256, VEK_STRIP_NEXT), 0u);
  // Intensity tables: no record, or no arrays, and no handle is used up.
  VEK_LUT_destroy(VEK_ALL_IMAGES);
  for (long after : {0L, 2L}) {
    FailAllocations fail(after);
    EXPECT_EQ(VEK_LUT_create(256, 1) & 0xFFFF0000u, VEK_ERROR_MEMORY);
  }
  EXPECT_EQ(VEK_LUT_create(256, 1), 1u);
  VEK_LUT_destroy(VEK_ALL_IMAGES);
  VEK_image_destroy(VEK_ALL_IMAGES);
  VEK_image_destroy(VEK_LIBRARY_TABLES);
}

}  // namespace
