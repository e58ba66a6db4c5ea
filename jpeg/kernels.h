// Block and row kernels of the JPEG codec, one portable set and one AVX2 set with
// identical results, chosen once per compress or decompress call from the CPU features.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vek::jpeg {

// One quantisation table in natural order, as the block kernels want it: the zigzag
// order of the descriptor is undone once per call, not once per coefficient.
struct QuantNat {
  alignas(32) int32_t step[64];
  alignas(32) uint32_t reciprocal[64];
};

struct Kernels {
  // Forward DCT and quantisation of one natural-order block of level-shifted samples,
  // in place; returns the mask of nonzero results (bit n = natural index n).
  uint64_t (*fdct_quant)(int32_t* block, const QuantNat& q);
  // The same, and for every natural index n also sized[n] = size << 16 | bits, the
  // magnitude category of the result and its low `size` bits (value - 1 when negative),
  // as the entropy coder writes them; 0 for a zero result.
  uint64_t (*fdct_quant_sized)(int32_t* block, uint32_t* sized, const QuantNat& q);
  // Inverse DCT of a dequantised natural-order block into 8 rows of bytes.
  void (*idct)(const int32_t* coef, uint8_t* out, size_t stride);
  // The four blocks Y1 Y2 U V of one 16x8 MCU of Y0 U Y1 V data, level-shifted.
  void (*load_mcu422)(const uint8_t* p, size_t pitch, int32_t (*blocks)[64]);
  // The same four blocks straight from 16x8 B, G, R, X pixels, converted as
  // bgrx_to_yuv422 converts them.
  void (*load_mcu_bgrx)(const uint8_t* p, size_t pitch, int32_t (*blocks)[64]);
  // B, G, R, X pixels to Y0 U Y1 V pairs (chroma the pair's average); `pairs` pixel
  // pairs are converted.
  void (*bgrx_to_yuv422)(const uint8_t* src, uint8_t* dst, size_t pairs);
  // The same for B, G, R pixels (3 bytes each).
  void (*bgr_to_yuv422)(const uint8_t* src, uint8_t* dst, size_t pairs);
};

// The bytes of a block whose only nonzero coefficient is the dequantised DC: every
// column takes DC * 4, and every row transform of (x, 0, ..., 0) gives (x << 13) >> 18,
// in the same wrap-around arithmetic as the full transform, so this is exactly what the
// transform would produce, without it.
inline uint8_t dc_only_value(int32_t dc) {
  const int32_t x = int32_t(uint32_t(dc) << 2);
  int32_t v = int32_t(uint32_t(x) << 13) >> 18;
  v = v < -128 ? -128 : (v > 127 ? 127 : v);
  return uint8_t(v + 128);
}

// Portable B, G, R row conversion for pixels `bpp` bytes apart (3 or 4).
void bgr_to_yuv422_scalar(const uint8_t* src, uint8_t* dst, size_t pairs, int bpp);

// The portable kernels: the reference every other set is tested against.
const Kernels& scalar_kernels();
// The AVX2 kernels, or null when this build has none.
const Kernels* avx2_kernels();
// The best set the CPU (minus any test mask) allows.
const Kernels& kernels();

}  // namespace vek::jpeg
