// Shared by the conversion tests: pixel access and references written here from the
// colour equations, independently of the library's kernels and tables.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "core/alloc.h"
#include "support/recorder.h"
#include "vek.h"

namespace convref {

using Front = uint32_t (*)(uint32_t, uint32_t, uint32_t);
using Worker = uint32_t (*)(uint32_t, uint32_t);

inline uint8_t* data(uint32_t h) { return static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA)); }
inline uint32_t param(uint32_t h, uint32_t id) { return VEK_image_get_parameter(h, id); }
inline uint32_t pitch(uint32_t h) { return param(h, VEK_PARAM_BYTES_PER_LINE); }
inline int w16(const uint8_t* p) { return p[0] | p[1] << 8; }
inline int clampi(int v) { return v < 0 ? 0 : v > 255 ? 255 : v; }
template <class T>
std::vector<int> ints(const T* p, size_t n) { return std::vector<int>(p, p + n); }

struct C {
  int r, g, b;
};

// 10-bit coefficients; the shift floors negative chroma terms.
inline C yuv_rgb(int y, int u, int v) {
  return {clampi((1024 * y + 1436 * (v - 128)) >> 10),
          clampi((1024 * y - 731 * (v - 128) - 352 * (u - 128)) >> 10),
          clampi((1024 * y + 1815 * (u - 128)) >> 10)};
}
inline void rgb_yuv(int r, int g, int b, int& y, int& u, int& v) {
  y = std::min((306 * r + 601 * g + 117 * b) >> 10, 255);
  u = clampi(((512 * b - 339 * g - 173 * r) >> 10) + 128);
  v = clampi(((512 * r - 429 * g - 83 * b) >> 10) + 128);
}
inline int rgb16(C c) { return (c.r & 0xF8) << 8 | (c.g & 0xFC) << 3 | c.b >> 3; }
inline int rgb15(C c) { return (c.r & 0xF8) << 7 | (c.g & 0xF8) << 2 | c.b >> 3; }
inline C from_rgb16(int w) { return {(w >> 8) & 255, (w >> 3) & 255, (w << 3) & 255}; }

inline int bytes_of(int f) {
  switch (f) {
    case VEK_Y8: case VEK_PALETTED: case VEK_RGB8: case VEK_RGGB32: return 1;
    case VEK_RGB15: case VEK_RGB16: case VEK_YUV422: case VEK_Y16: return 2;
    case VEK_RGB24: case VEK_BGR24: return 3;
    default: return 4;
  }
}

inline C decode(int f, const uint8_t* p, int data_width = 8) {
  switch (f) {
    case VEK_Y8: case VEK_RGGB32: return {p[0], p[0], p[0]};
    case VEK_RGB15: { const int w = w16(p); return {(w >> 7) & 255, (w >> 2) & 255, (w << 3) & 255}; }
    case VEK_RGB16: return from_rgb16(w16(p));
    case VEK_RGB8: return {p[0] & 0xE0, (p[0] & 0x1C) << 3, (p[0] & 3) << 6};
    case VEK_RGB24: case VEK_RGBX32: return {p[0], p[1], p[2]};
    case VEK_BGR24: case VEK_BGRX32: return {p[2], p[1], p[0]};
    case VEK_XBGR32: return {p[3], p[2], p[1]};
    case VEK_Y16: { const int v = (w16(p) >> (data_width - 8)) & 255; return {v, v, v}; }
    default: ADD_FAILURE() << "no decoder for " << f; return {0, 0, 0};
  }
}

inline std::vector<uint8_t> encode(int f, C c) {
  auto u = [](int v) { return uint8_t(v); };
  switch (f) {
    case VEK_Y8: return {u((77 * c.r + 150 * c.g + 29 * c.b) >> 8)};
    case VEK_RGB15: return {u(rgb15(c)), u(rgb15(c) >> 8)};
    case VEK_RGB16: return {u(rgb16(c)), u(rgb16(c) >> 8)};
    case VEK_RGB24: return {u(c.r), u(c.g), u(c.b)};
    case VEK_BGR24: return {u(c.b), u(c.g), u(c.r)};
    case VEK_RGBX32: return {u(c.r), u(c.g), u(c.b), 0};
    case VEK_BGRX32: return {u(c.b), u(c.g), u(c.r), 0};
    case VEK_XBGR32: return {0, u(c.b), u(c.g), u(c.r)};
    case VEK_XRGB32: return {0, u(c.r), u(c.g), u(c.b)};
    default: ADD_FAILURE() << "no encoder for " << f; return {};
  }
}

// Closest entry by squared distance, first minimum wins.
inline int closest(const std::vector<C>& map, int r, int g, int b) {
  int best = 1 << 30, idx = 0;
  for (size_t i = 0; i < map.size(); ++i) {
    const int d = (r - map[i].r) * (r - map[i].r) + (g - map[i].g) * (g - map[i].g) +
                  (b - map[i].b) * (b - map[i].b);
    if (d < best) best = d, idx = int(i);
  }
  return idx;
}
inline std::vector<C> map_of(uint32_t h) {
  std::vector<C> m;
  for (uint32_t i = 0; i < param(h, VEK_PARAM_CMAP_SIZE); ++i) {
    const uint32_t e = VEK_cmap_get_RGB_colour(h, i);
    m.push_back(C{int(e >> 16), int((e >> 8) & 255), int(e & 255)});
  }
  return m;
}
// A small irregular palette so that nearest-colour ties and misses show.
inline void random_map(uint32_t h, uint32_t count, uint32_t seed) {
  VEK_image_set_parameter(h, VEK_PARAM_CMAP_SIZE, count);
  const auto bytes = vektest::random_bytes(3 * count, seed);
  for (uint32_t i = 0; i < count; ++i)
    ASSERT_EQ(VEK_cmap_set_RGB_colour(h, i, bytes[3 * i], bytes[3 * i + 1], bytes[3 * i + 2]), 0u);
}

inline std::vector<uint8_t> read_file(const std::string& name) {
  std::ifstream f(name, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), {});
}
inline std::string write_file(const std::string& name, const std::vector<uint8_t>& bytes) {
  std::ofstream(name, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
  return name;
}

// `status` is `code`, and since the last check exactly one report came, from `fn` with
// `msg`; clears the recorder for the next check.
inline void expect_refused(vektest::ErrorRecorder& rec, uint32_t status, uint32_t code, const std::string& fn,
                           const std::string& msg) {
  EXPECT_EQ(status, code) << fn << ": " << msg;
  EXPECT_TRUE(rec.only(fn, code, msg)) << fn << ": got " << rec.last().function << " / " << rec.last().message;
  rec.clear();
}

// Records reports; when the test ends, frees every image, intensity table and library table.
struct Session : vektest::ErrorRecorder {
  ~Session() {
    VEK_image_destroy(VEK_ALL_IMAGES);
    VEK_LUT_destroy(VEK_ALL_IMAGES);
    VEK_image_destroy(VEK_LIBRARY_TABLES);
  }
};

struct FailAllocations {
  explicit FailAllocations(long after) { vek::testing::fail_allocations_after(after); }
  ~FailAllocations() { vek::testing::fail_allocations_after(-1); }
};

}  // namespace convref
