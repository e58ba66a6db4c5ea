// Shared helpers of the file-format tests: file bytes, peer programs, image access.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
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
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

inline std::string scratch(const std::string& name) { return vektest::scratch_dir() + name; }

inline bool have_tool(const std::string& tool) {
  return std::system(("command -v " + tool + " >/dev/null 2>&1").c_str()) == 0;
}

inline bool have_pillow() {
  return std::system("/usr/bin/python3 -c 'import PIL' >/dev/null 2>&1") == 0;
}

// Runs a shell command; returns its exit status and collects standard output.
inline int run(const std::string& cmd, std::string* out = nullptr) {
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return -1;
  std::string text;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, p)) > 0) text.append(buf, n);
  const int status = pclose(p);
  if (out) *out = text;
  return status;
}

inline uint8_t* data(uint32_t h) { return static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA)); }
inline uint32_t param(uint32_t h, uint32_t id) { return VEK_image_get_parameter(h, id); }

// The pixel bytes of every line (padding left out), lines back to back.
inline std::vector<uint8_t> pixels(uint32_t h, size_t bytes_per_pixel) {
  const size_t w = param(h, VEK_PARAM_WIDTH), lines = param(h, VEK_PARAM_STRIP_LINES);
  const size_t bpl = param(h, VEK_PARAM_BYTES_PER_LINE);
  std::vector<uint8_t> out;
  for (size_t y = 0; y < lines; ++y) out.insert(out.end(), data(h) + y * bpl, data(h) + y * bpl + w * bytes_per_pixel);
  return out;
}

// An image read from `path` through the dispatch; 0 on failure (recorded by gtest).
inline uint32_t read_image(const std::string& path) {
  uint32_t h = VEK_image_create();
  VEK_image_set_infilename(h, path.c_str());
  const uint32_t s = VEK_image_read(h, 0, VEK_STRIP_NEXT);
  EXPECT_EQ(s, 0u) << path;
  if (s) {
    VEK_image_destroy(h);
    return 0;
  }
  return h;
}

inline uint32_t write_image(uint32_t h, uint32_t format, const std::string& path) {
  VEK_image_set_outfilename(h, path.c_str());
  return VEK_image_write(h, 0, format, VEK_STRIP_NEXT);
}

// Sets a colour map of pseudo-random entries.
inline void random_cmap(uint32_t h, uint32_t seed) {
  auto bytes = vektest::random_bytes(1024, seed);
  auto* cmap = static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_CMAP));
  for (int i = 0; i < 256; ++i) {
    cmap[4 * i] = bytes[4 * i];
    cmap[4 * i + 1] = bytes[4 * i + 1];
    cmap[4 * i + 2] = bytes[4 * i + 2];
    cmap[4 * i + 3] = 0;
  }
}

inline uint32_t be16(const std::vector<uint8_t>& b, size_t at) { return uint32_t(b[at]) << 8 | b[at + 1]; }
inline uint32_t be32(const std::vector<uint8_t>& b, size_t at) { return be16(b, at) << 16 | be16(b, at + 2); }
inline uint32_t le16(const std::vector<uint8_t>& b, size_t at) { return uint32_t(b[at + 1]) << 8 | b[at]; }
inline uint32_t le32(const std::vector<uint8_t>& b, size_t at) { return le16(b, at + 2) << 16 | le16(b, at); }

}  // namespace filetest
