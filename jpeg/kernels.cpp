// Portable block and row kernels of the JPEG codec and the choice of kernel set.
#include "jpeg/kernels.h"

#include <bit>

#include "core/cpu.h"
#include "jpeg/dct.h"

namespace vek::jpeg {

void bgr_to_yuv422_scalar(const uint8_t* s, uint8_t* d, size_t pairs, int bpp) {
  for (size_t i = 0; i < pairs; ++i, s += 2 * bpp, d += 4) {
    const int b0 = s[0], g0 = s[1], r0 = s[2];
    const int b1 = s[bpp], g1 = s[bpp + 1], r1 = s[bpp + 2];
    d[0] = uint8_t((306 * r0 + 601 * g0 + 117 * b0) >> 10);
    d[2] = uint8_t((306 * r1 + 601 * g1 + 117 * b1) >> 10);
    d[1] = uint8_t(((512 * (b0 + b1) - 339 * (g0 + g1) - 173 * (r0 + r1)) >> 11) + 128);
    d[3] = uint8_t(((512 * (r0 + r1) - 429 * (g0 + g1) - 83 * (b0 + b1)) >> 11) + 128);
  }
}

namespace {

// Dead zone |c| < q gives 0; otherwise |c| * r >> 16 with c's sign (truncation toward
// zero). Written without branches: the dead-zone test is unpredictable on real data.
uint64_t fdct_quant_scalar(int32_t* block, const QuantNat& q) {
  forward_dct(block);
  uint64_t mask = 0;
  for (int n = 0; n < 64; ++n) {
    const int32_t c = block[n];
    const uint32_t a = uint32_t(c < 0 ? -c : c);
    const uint32_t m = (a * q.reciprocal[n]) >> 16;
    const int32_t v = a < uint32_t(q.step[n]) ? 0 : (c < 0 ? -int32_t(m) : int32_t(m));
    block[n] = v;
    mask |= uint64_t(v != 0) << n;
  }
  return mask;
}

uint64_t fdct_quant_sized_scalar(int32_t* block, uint32_t* sized, const QuantNat& q) {
  const uint64_t mask = fdct_quant_scalar(block, q);
  for (int n = 0; n < 64; ++n) {
    const int32_t v = block[n];
    const uint32_t size = uint32_t(std::bit_width(uint32_t(v < 0 ? -v : v)));
    const uint32_t bits = uint32_t(v < 0 ? v - 1 : v) & ((uint32_t(1) << size) - 1u);
    sized[n] = size << 16 | bits;
  }
  return mask;
}

void idct_scalar(const int32_t* coef, uint8_t* out, size_t stride) { inverse_dct(coef, out, int(stride)); }

void load_mcu422_scalar(const uint8_t* p, size_t pitch, int32_t (*blocks)[64]) {
  for (int r = 0; r < 8; ++r, p += pitch) {
    for (int c = 0; c < 8; ++c) {
      blocks[0][8 * r + c] = int32_t(p[2 * c]) - 128;
      blocks[1][8 * r + c] = int32_t(p[16 + 2 * c]) - 128;
      blocks[2][8 * r + c] = int32_t(p[4 * c + 1]) - 128;
      blocks[3][8 * r + c] = int32_t(p[4 * c + 3]) - 128;
    }
  }
}

void load_mcu_bgrx_scalar(const uint8_t* p, size_t pitch, int32_t (*blocks)[64]) {
  for (int r = 0; r < 8; ++r, p += pitch) {
    uint8_t yuv[32];
    bgr_to_yuv422_scalar(p, yuv, 8, 4);
    for (int c = 0; c < 8; ++c) {
      blocks[0][8 * r + c] = int32_t(yuv[2 * c]) - 128;
      blocks[1][8 * r + c] = int32_t(yuv[16 + 2 * c]) - 128;
      blocks[2][8 * r + c] = int32_t(yuv[4 * c + 1]) - 128;
      blocks[3][8 * r + c] = int32_t(yuv[4 * c + 3]) - 128;
    }
  }
}

void bgrx_to_yuv422_scalar(const uint8_t* s, uint8_t* d, size_t pairs) { bgr_to_yuv422_scalar(s, d, pairs, 4); }
void bgr24_to_yuv422_scalar(const uint8_t* s, uint8_t* d, size_t pairs) { bgr_to_yuv422_scalar(s, d, pairs, 3); }

const Kernels kScalar = {fdct_quant_scalar,    fdct_quant_sized_scalar, idct_scalar,           load_mcu422_scalar,
                         load_mcu_bgrx_scalar, bgrx_to_yuv422_scalar,   bgr24_to_yuv422_scalar};

}  // namespace

const Kernels& scalar_kernels() { return kScalar; }

#if !VEK_X86
// The build leaves jpeg/kernels_avx2.cpp out on other processors.
const Kernels* avx2_kernels() { return nullptr; }
#endif

const Kernels& kernels() {
  if (cpu::has(cpu::kAvx2)) {
    if (const Kernels* k = avx2_kernels()) return *k;
  }
  return kScalar;
}

}  // namespace vek::jpeg
