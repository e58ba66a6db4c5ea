// Shared helpers of the file-format tests: file bytes, peer programs, image access.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "support/recorder.h"
#include "vek.h"

namespace filetest {

inline std::vector<uint8_t> read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline void write_file(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

inline std::string scratch(const std::string& name) { return vektest::scratch_dir() + name; }
inline std::string text_of(const std::string& p) { const auto b = read_file(p); return {b.begin(), b.end()}; }
inline bool have_tool(const std::string& t) { return !std::system(("command -v " + t + " >/dev/null 2>&1").c_str()); }
inline bool have_pillow() { return std::system("/usr/bin/python3 -c 'import PIL' >/dev/null 2>&1") == 0; }

// Runs a shell command; returns its exit status and collects standard output.
inline int run(const std::string& cmd, std::string* out = nullptr) {
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return -1;
  std::string text;
  for (int c; (c = std::fgetc(p)) != EOF;) text += char(c);
  if (out) *out = text;
  return pclose(p);
}

// Runs a Python program (for Pillow) from a scratch file; returns its exit status.
inline int python(const std::string& program, std::string* out = nullptr) {
  write_file(scratch("peer.py"), std::vector<uint8_t>(program.begin(), program.end()));
  return run("/usr/bin/python3 " + scratch("peer.py") + " 2>&1", out);
}

// The pixel bytes Pillow decodes from `path` (as RGB when `rgb`), or a failed test.
inline std::vector<uint8_t> pillow_pixels(const std::string& path, bool rgb) {
  const std::string raw = scratch("peer.raw");
  std::string out;
  EXPECT_EQ(python("from PIL import Image\nim = Image.open('" + path + "')\nopen('" + raw + "','wb').write(" +
                   (rgb ? "im.convert('RGB')" : "im") + ".tobytes())\n", &out), 0) << out;
  return read_file(raw);
}

// Owns an image handle for a scope.
struct Image {
  uint32_t h;
  explicit Image(uint32_t handle) : h(handle) {}
  ~Image() { if (h) VEK_image_destroy(h); }
  Image(const Image&) = delete;  // one owner: copies would destroy the handle twice
  operator uint32_t() const { return h; }
};

inline uint8_t* data(uint32_t h) { return static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA)); }
inline uint32_t param(uint32_t h, uint32_t id) { return VEK_image_get_parameter(h, id); }
inline const uint8_t* cmap_of(uint32_t h) { return static_cast<const uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_CMAP)); }

// The pixel bytes of every line of the strip (padding left out), lines back to back.
inline std::vector<uint8_t> pixels(uint32_t h) {
  const size_t row = param(h, VEK_PARAM_DEPTH) / 8 * param(h, VEK_PARAM_WIDTH);
  const size_t bpl = param(h, VEK_PARAM_BYTES_PER_LINE);
  std::vector<uint8_t> out;
  for (size_t y = 0; y < param(h, VEK_PARAM_STRIP_LINES); ++y)
    out.insert(out.end(), data(h) + y * bpl, data(h) + y * bpl + row);
  return out;
}

// An image read from `path` through the dispatch; 0 on failure (recorded by gtest).
inline uint32_t read_image(const std::string& path) {
  uint32_t h = VEK_image_create();
  VEK_image_set_infilename(h, path.c_str());
  const uint32_t s = VEK_image_read(h, 0, VEK_STRIP_NEXT);
  EXPECT_EQ(s, 0u) << path;
  if (s) VEK_image_destroy(h);
  return s ? 0 : h;
}

inline uint32_t write_image(uint32_t h, uint32_t format, const std::string& path) {
  VEK_image_set_outfilename(h, path.c_str());
  return VEK_image_write(h, 0, format, VEK_STRIP_NEXT);
}

// Sets a colour map of pseudo-random entries.
inline void random_cmap(uint32_t h, uint32_t seed) {
  auto bytes = vektest::random_bytes(1024, seed);
  for (int i = 0; i < 256; ++i) bytes[4 * i + 3] = 0;
  std::memcpy(VEK_image_get_ptr(h, VEK_PTR_CMAP), bytes.data(), 1024);
}

// An image of pseudo-random pixels (and colour map when paletted).
inline uint32_t filled(uint32_t format, uint32_t w, uint32_t h, uint32_t seed, uint32_t align = 2) {
  const uint32_t img = vektest::make_image(format, w, h, 0, align);
  vektest::fill_random(img, seed);
  if (format == VEK_PALETTED) random_cmap(img, seed);
  return img;
}

// The picture as a file stores it, top line first: indices for 8-bit formats, red,
// green, blue triples for the colour ones. YUV 4:2:2 goes through the fixed-point
// equations, recomputed here as floors of real quotients.
inline std::vector<uint8_t> picture(uint32_t h) {
  const uint32_t f = param(h, VEK_PARAM_FORMAT), w = param(h, VEK_PARAM_WIDTH);
  const size_t bpl = param(h, VEK_PARAM_BYTES_PER_LINE);
  auto clamp = [](double v) { return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v); };
  std::vector<uint8_t> out;
  for (uint32_t y = 0; y < param(h, VEK_PARAM_HEIGHT); ++y) {
    const uint8_t* p = data(h) + y * bpl;
    for (uint32_t x = 0; x < w; ++x) {
      if (f == VEK_Y8 || f == VEK_PALETTED) out.push_back(p[x]);
      if (f == VEK_RGB24) out.insert(out.end(), {p[3 * x], p[3 * x + 1], p[3 * x + 2]});
      if (f == VEK_BGR24) out.insert(out.end(), {p[3 * x + 2], p[3 * x + 1], p[3 * x]});
      if (f == VEK_BGRX32) out.insert(out.end(), {p[4 * x + 2], p[4 * x + 1], p[4 * x]});
      if (f == VEK_YUV422) {
        const uint8_t* q = p + 4 * (x / 2);
        const double Y = q[(x & 1) * 2], U = q[1] - 128.0, V = q[3] - 128.0;
        out.insert(out.end(), {clamp(std::floor(Y + 1436 * V / 1024)),
                               clamp(std::floor(Y - (731 * V + 352 * U) / 1024)),
                               clamp(std::floor(Y + 1815 * U / 1024))});
      }
    }
  }
  return out;
}

// The picture as red, green, blue triples, 8-bit indices looked up in the colour map.
inline std::vector<uint8_t> seen_rgb(uint32_t h) {
  std::vector<uint8_t> px = picture(h), rgb;
  if (param(h, VEK_PARAM_DEPTH) != 8) return px;
  for (uint8_t i : px) rgb.insert(rgb.end(), cmap_of(h) + 4 * i, cmap_of(h) + 4 * i + 3);
  return rgb;
}

// `file` with `bytes` laid over it at `at`, then cut to `size` bytes when that is given.
inline std::vector<uint8_t> patched(std::vector<uint8_t> file, size_t at, const std::vector<uint8_t>& bytes,
                                    size_t size = 0) {
  std::copy(bytes.begin(), bytes.end(), file.begin() + long(at));
  if (size) file.resize(size);
  return file;
}

// Reads `bytes` as a file through `reader`: it must fail with `code` and one report
// under `function` (of `message` when given), and leave no pixel buffer behind unless
// `keeps_data`.
inline void expect_refused(uint32_t (*reader)(uint32_t, uint32_t), const char* function,
                           const std::vector<uint8_t>& bytes, uint32_t code, const char* message = nullptr,
                           bool keeps_data = false) {
  const std::string path = scratch("refused.bin");
  write_file(path, bytes);
  vektest::ErrorRecorder rec;
  Image h(VEK_image_create());
  VEK_image_set_infilename(h, path.c_str());
  const std::string what = message ? message : "code " + std::to_string(code);
  EXPECT_EQ(reader(h, VEK_STRIP_NEXT), code) << what;
  ASSERT_EQ(rec.count(), 1u) << what;
  EXPECT_EQ(rec.last().function, function) << what;
  if (message) { EXPECT_EQ(rec.last().message, message); }
  if (!keeps_data) { EXPECT_EQ(VEK_image_get_ptr(h, VEK_PTR_DATA), nullptr) << what; }
}

inline uint32_t be16(const std::vector<uint8_t>& b, size_t at) { return uint32_t(b[at]) << 8 | b[at + 1]; }
inline uint32_t be32(const std::vector<uint8_t>& b, size_t at) { return be16(b, at) << 16 | be16(b, at + 2); }

}  // namespace filetest
