// Helpers shared by the geometry tests: pixel access, strip feeding, mapping checks
// and images released at the end of each test.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "support/recorder.h"
#include "vek.h"

namespace geomtest {

inline std::vector<uint32_t> g_kept;

// Every test runs with a recording error handler and fails on any report it did not
// take and clear itself; the images it kept are destroyed at its end.
class Geometry : public ::testing::Test {
 protected:
  vektest::ErrorRecorder rec;
  void TearDown() override {
    EXPECT_EQ(rec.count(), 0u) << rec.last().function << ": " << rec.last().message;
    for (uint32_t h : g_kept) VEK_image_destroy(h);
    g_kept.clear();
  }
};

inline uint32_t keep(uint32_t h) { return g_kept.push_back(h), h; }  // destroyed when the test ends

inline uint32_t blank() { return keep(VEK_image_create()); }

// A kept, allocated image filled with pseudo-random bytes.
inline uint32_t noise(uint32_t format, uint32_t width, uint32_t height, uint32_t seed,
                      uint32_t strip_lines = 0, uint32_t line_align = 2) {
  const uint32_t h = keep(vektest::make_image(format, width, height, strip_lines, line_align));
  vektest::fill_random(h, seed);
  return h;
}

inline uint8_t* pixels(uint32_t h) { return static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA)); }
inline uint32_t param(uint32_t h, uint32_t id) { return VEK_image_get_parameter(h, id); }

inline uint32_t bpp(uint32_t f) {
  if (f == VEK_Y8 || f == VEK_PALETTED || f == VEK_RGB8) return 1;
  if (f == VEK_RGB15 || f == VEK_RGB16 || f == VEK_YUV422 || f == VEK_Y16) return 2;
  return f == VEK_RGB24 || f == VEK_BGR24 ? 3 : 4;
}

using Dims = std::array<uint32_t, 3>;  // width, height, lines per strip
inline Dims dims(uint32_t h) {
  return {param(h, VEK_PARAM_WIDTH), param(h, VEK_PARAM_HEIGHT), param(h, VEK_PARAM_STRIP_LINES)};
}

inline const uint8_t* at(uint32_t h, uint32_t c, uint32_t r) {
  return pixels(h) + size_t(r) * param(h, VEK_PARAM_BYTES_PER_LINE) + size_t(c) * bpp(param(h, VEK_PARAM_FORMAT));
}

// Where output pixel (c, r) comes from: input column and line, and for YUV 4:2:2 the
// input pair whose U / V it carries (Y always comes from the source pixel itself).
struct Src {
  uint32_t c, r, pair;
};
using Map = std::function<Src(uint32_t c, uint32_t r)>;

// Compares the `height` lines of `width` pixels in `got` (`pitch` bytes apart) with
// their sources in `in`; stops at the first difference.
inline void expect_mapped(uint32_t in, const uint8_t* got, uint32_t pitch, uint32_t width, uint32_t height,
                          const Map& from) {
  const uint32_t format = param(in, VEK_PARAM_FORMAT), b = bpp(format);
  for (uint32_t r = 0; r < height; ++r)
    for (uint32_t c = 0; c < width; ++c) {
      const Src s = from(c, r);
      const uint8_t* o = got + size_t(r) * pitch + size_t(c) * b;
      const bool same = format == VEK_YUV422
                            ? o[0] == at(in, s.c, s.r)[0] && o[1] == at(in, 2 * s.pair + c % 2, s.r)[1]
                            : std::memcmp(o, at(in, s.c, s.r), b) == 0;
      ASSERT_TRUE(same) << "format " << format << ": " << c << "," << r << " from " << s.c << "," << s.r;
    }
}

inline void expect_mapped(uint32_t in, uint32_t out, const Map& from) {
  const auto [w, h, lines] = dims(out);
  expect_mapped(in, pixels(out), param(out, VEK_PARAM_BYTES_PER_LINE), w, h, from);
}

// Feeds the whole image `full` through an image holding strips of `strip` lines,
// calling op once per strip, and returns the output's lines one after the other
// (`row_bytes` of each, 0: the whole pitch). Checks that the last strip was trimmed.
inline std::vector<uint8_t> stream(uint32_t full, uint32_t strip, uint32_t out,
                                   const std::function<uint32_t(uint32_t)>& op, uint32_t row_bytes = 0) {
  const auto [W, H, lines] = dims(full);
  const uint32_t in = keep(vektest::make_image(param(full, VEK_PARAM_FORMAT), W, H, strip));
  const uint32_t pitch = param(full, VEK_PARAM_BYTES_PER_LINE);
  std::vector<uint8_t> result;
  for (uint32_t done = 0; done < H; done += strip) {
    std::memcpy(pixels(in), pixels(full) + size_t(done) * pitch, size_t(std::min(strip, H - done)) * pitch);
    const uint32_t status = op(in);
    EXPECT_EQ(status, 0u) << "strip at line " << done;
    if (status) break;
    const uint32_t op_pitch = param(out, VEK_PARAM_BYTES_PER_LINE);
    for (uint32_t k = 0; k < param(out, VEK_PARAM_STRIP_LINES); ++k)
      result.insert(result.end(), pixels(out) + size_t(k) * op_pitch,
                    pixels(out) + size_t(k) * op_pitch + (row_bytes ? row_bytes : op_pitch));
  }
  EXPECT_EQ(param(in, VEK_PARAM_STRIP_LINES), H - (H - 1) / strip * strip);  // last strip trimmed
  return result;
}

}  // namespace geomtest
