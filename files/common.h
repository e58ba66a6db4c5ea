// Helpers shared by the file readers and writers: owned streams and heap blocks,
// byte-order access to memory, and the row kernels more than one format needs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "core/alloc.h"
#include "core/image.h"

namespace vek::files {

// Owns a stream and closes it on scope exit unless it was released or closed.
class Stream {
 public:
  Stream() = default;
  explicit Stream(FILE* f) : f_(f) {}
  ~Stream() {
    if (f_) std::fclose(f_);
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  FILE* get() const { return f_; }
  explicit operator bool() const { return f_ != nullptr; }
  FILE* release() {
    FILE* f = f_;
    f_ = nullptr;
    return f;
  }
  // Closes now; false when fclose failed (buffered data could not be written).
  bool close() {
    FILE* f = release();
    return f ? std::fclose(f) == 0 : true;
  }

 private:
  FILE* f_ = nullptr;
};

// A block from the library allocator, released on scope exit.
class Block {
 public:
  Block() = default;
  ~Block() { std::free(p_); }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  bool allocate(size_t n) {
    std::free(p_);
    p_ = static_cast<uint8_t*>(vek::alloc(n ? n : 1));
    size_ = p_ ? n : 0;
    return p_ != nullptr;
  }
  uint8_t* get() const { return p_; }
  size_t size() const { return size_; }
  uint8_t* release() {
    uint8_t* p = p_;
    p_ = nullptr;
    size_ = 0;
    return p;
  }

 private:
  uint8_t* p_ = nullptr;
  size_t size_ = 0;
};

// Reads a whole file into `out`. Returns 0, VEK_ERROR_OPEN_FAILED when the file
// cannot be opened or read, VEK_ERROR_CLOSE_FAILED when closing it fails, or
// VEK_ERROR_MEMORY when the block cannot be allocated.
uint32_t read_whole_file(const char* name, Block& out);

inline uint8_t clamp8(int v) { return v < 0 ? 0 : v > 255 ? 255 : static_cast<uint8_t>(v); }

// One YUV 4:2:2 pixel (its Y with the pair's U and V) to R, G, B with the library's
// fixed-point weights: 1436 = 1.402 * 1024, 731 = 0.714 * 1024, 352 = 0.344 * 1024,
// 1815 = 1.772 * 1024. The shifts floor, as an arithmetic shift does.
inline void yuv_to_rgb(int y, int u, int v, uint8_t& r, uint8_t& g, uint8_t& b) {
  const int uu = u - 128, vv = v - 128;
  r = clamp8((1024 * y + 1436 * vv) >> 10);
  g = clamp8((1024 * y - 731 * vv - 352 * uu) >> 10);
  b = clamp8((1024 * y + 1815 * uu) >> 10);
}

// Converts `pairs` groups of Y0 U Y1 V into 2 * pairs pixels of three bytes, red
// first or (bgr) blue first.
inline void yuv422_to_rgb_row(const uint8_t* src, uint8_t* dst, size_t pairs, bool bgr) {
  for (size_t i = 0; i < pairs; ++i, src += 4) {
    for (int k = 0; k < 2; ++k, dst += 3) {
      uint8_t r, g, b;
      yuv_to_rgb(src[2 * k], src[1], src[3], r, g, b);
      dst[0] = bgr ? b : r;
      dst[1] = g;
      dst[2] = bgr ? r : b;
    }
  }
}

}  // namespace vek::files
