// Vector block kernels of the conversion family and the pairs they accelerate.
// A block kernel converts the leading whole blocks of a row and returns how
// many pixels it did; the scalar row kernel finishes the row, so every byte
// equals the scalar result.
#pragma once

#include <cstdint>

namespace vek::conv::simd {

// Converts pixels [0, n) of a `width`-pixel row, n a multiple of the kernel's
// block (even for YUV 4:2:2 rows), and returns n. It reads and writes nothing
// past the row: a vector access that runs over its block's end either is
// rewritten by the next vector of the block, or the kernel stops early enough
// that the overrun stays inside the row and the scalar tail rewrites it.
using BlockKernel = uint32_t (*)(const uint8_t *src, uint8_t *dst, uint32_t width);

// The (source, target) pairs with vector kernels; indexes the per-ISA tables.
enum Pair : int {
  kYuvToRgb24,
  kYuvToBgr24,
  kYuvToBgrx32,
  kYuvToRgbx32,
  kYuvToXrgb32,
  kYuvToXbgr32,
  kYuvToY8,
  kRgb24ToYuv,
  kBgr24ToYuv,
  kBgrx32ToYuv,
  kSwap24,  // RGB24 <-> BGR24: the same byte swap both ways
  kRgb24ToY8,
  kBgr24ToY8,
  kBgrx32ToY8,
  kRgb24ToBgrx32,
  kBgrx32ToRgb24,
  kPairCount
};

#if defined(__x86_64__) || defined(__i386__) || defined(_M_X64) || defined(_M_IX86)
#define VEK_CONVERT_X86_KERNELS 1
// Per-ISA table, null where the ISA has no kernel for the pair.
// Constant-initialised, so it is usable before any dynamic initialisation; the
// caller checks the CPU.
extern const BlockKernel kAvx2Blocks[kPairCount];  // convert/rows_avx2.cpp
#endif

}  // namespace vek::conv::simd
