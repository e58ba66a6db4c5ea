// Small helpers shared by the JPEG test programs: descriptor access, files, pictures
// with real AC energy, and hand-built marker streams.
#pragma once

#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "jpeg/internal.h"
#include "support/recorder.h"
#include "vek.h"

namespace jt {

inline Tjpeg* desc(uint32_t h) { return static_cast<Tjpeg*>(VEK_image_get_ptr(h, VEK_PTR_JPEG)); }
inline uint8_t* pixels(uint32_t h) { return static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA)); }
inline uint32_t param(uint32_t h, uint32_t id) { return VEK_image_get_parameter(h, id); }
inline std::vector<uint8_t> data_of(uint32_t jpeg) {
  return std::vector<uint8_t>(desc(jpeg)->data, desc(jpeg)->data + desc(jpeg)->data_length);
}

inline std::vector<uint8_t> slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}
inline void spill(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), long(bytes.size()));
}

// Smooth shading with edges and a little noise, so that blocks carry real AC energy.
inline void fill_photo(uint32_t h, uint32_t seed) {
  std::mt19937 rng(seed);
  const uint32_t w = param(h, VEK_PARAM_WIDTH), ht = param(h, VEK_PARAM_HEIGHT);
  const uint32_t pitch = param(h, VEK_PARAM_BYTES_PER_LINE), bpp = (param(h, VEK_PARAM_DEPTH) + 1) / 8;
  for (uint32_t y = 0; y < ht; ++y)
    for (uint32_t x = 0; x < w * bpp; ++x) {
      const double c = double(x % bpp + 1);
      double v = 128 + 70 * std::sin(x / (9.0 * c) + y / 23.0) + 40 * std::cos(y / (7.0 + c));
      if ((x / bpp / 24 + y / 16) % 3 == 0) v = 255 - v;
      v += int(rng() % 15) - 7;
      pixels(h)[size_t(y) * pitch + x] = uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
    }
}

// A JPEG image holding the compressed data of a random picture.
inline uint32_t compressed(uint32_t format, uint32_t w, uint32_t h, uint32_t seed) {
  const uint32_t src = vektest::make_image(format, w, h);
  vektest::fill_random(src, seed);
  const uint32_t jpg = VEK_JPEG_image_create();
  EXPECT_EQ(VEK_JPEG_compress(src, jpg), 0u);
  VEK_image_destroy(src);
  return jpg;
}

// A marker stream built segment by segment.
struct Stream {
  std::vector<uint8_t> b{0xFF, 0xD8};
  Stream& seg(uint8_t marker, const std::vector<uint8_t>& body) {
    b.insert(b.end(), {0xFF, marker, uint8_t((body.size() + 2) >> 8), uint8_t(body.size() + 2)});
    b.insert(b.end(), body.begin(), body.end());
    return *this;
  }
  Stream& dqt(uint8_t tq, uint8_t step = 2) {
    std::vector<uint8_t> t(65, step);
    t[0] = tq;
    return seg(0xDB, t);
  }
  Stream& sof_y8(uint8_t w = 8) { return seg(0xC0, {8, 0, 8, 0, w, 1, 1, 0x11, 0}); }
  // SOS, the data as given, then EOI.
  Stream& sos_y8(const std::vector<uint8_t>& data) {
    seg(0xDA, {1, 1, 0, 0, 63, 0});
    b.insert(b.end(), data.begin(), data.end());
    b.insert(b.end(), {0xFF, 0xD9});
    return *this;
  }
};

// A minimal valid 8x8 grey stream, with `extra` segments spliced in before SOS.
inline std::vector<uint8_t> grey_stream(const std::vector<uint8_t>& extra = {},
                                        const std::vector<uint8_t>& data = {0xAB, 0xCD}) {
  Stream s;
  s.dqt(0).sof_y8();
  s.b.insert(s.b.end(), extra.begin(), extra.end());
  return s.sos_y8(data).b;
}

}  // namespace jt
