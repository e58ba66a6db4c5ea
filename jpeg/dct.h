// The 8x8 integer DCT pair of the codec: Loeffler-Ligtenberg-Moschytz factorisation
// with 13-bit constants (round(c * 8192)) and 2 extra bits between the passes.
// Descaling is a plain arithmetic shift with no rounding term: the truncation toward
// minus infinity is part of the defined output, so neither pass may round.
#pragma once

#include <cstdint>

namespace vek::jpeg {

inline constexpr int32_t kC0_298 = 2446;   // 0.298631336
inline constexpr int32_t kC0_390 = 3196;   // 0.390180644
inline constexpr int32_t kC0_541 = 4433;   // 0.541196100
inline constexpr int32_t kC0_765 = 6270;   // 0.765366865
inline constexpr int32_t kC0_899 = 7373;   // 0.899976223
inline constexpr int32_t kC1_175 = 9633;   // 1.175875602
inline constexpr int32_t kC1_501 = 12299;  // 1.501321110
inline constexpr int32_t kC1_847 = 15137;  // 1.847759065
inline constexpr int32_t kC1_961 = 16069;  // 1.961570560
inline constexpr int32_t kC2_053 = 16819;  // 2.053119869
inline constexpr int32_t kC2_562 = 20995;  // 2.562915447
inline constexpr int32_t kC3_072 = 25172;  // 3.072711026

// One 8-point forward transform over p[0], p[s], ..., p[7s]. Even outputs 0 and 4 are
// shifted by `even_shift` (left when negative), all others right by `odd_shift`.
// Inputs are level-shifted samples, so nothing here can overflow 32 bits.
template <int kEvenLeft, int kEvenRight, int kOddRight>
inline void fdct_1d(int32_t* p, int s) {
  const int32_t tmp0 = p[0] + p[7 * s], tmp7 = p[0] - p[7 * s];
  const int32_t tmp1 = p[s] + p[6 * s], tmp6 = p[s] - p[6 * s];
  const int32_t tmp2 = p[2 * s] + p[5 * s], tmp5 = p[2 * s] - p[5 * s];
  const int32_t tmp3 = p[3 * s] + p[4 * s], tmp4 = p[3 * s] - p[4 * s];

  const int32_t tmp10 = tmp0 + tmp3, tmp13 = tmp0 - tmp3;
  const int32_t tmp11 = tmp1 + tmp2, tmp12 = tmp1 - tmp2;
  p[0] = ((tmp10 + tmp11) * (1 << kEvenLeft)) >> kEvenRight;
  p[4 * s] = ((tmp10 - tmp11) * (1 << kEvenLeft)) >> kEvenRight;
  const int32_t z1 = (tmp12 + tmp13) * kC0_541;
  p[2 * s] = (z1 + tmp13 * kC0_765) >> kOddRight;
  p[6 * s] = (z1 - tmp12 * kC1_847) >> kOddRight;

  const int32_t z5 = (tmp4 + tmp6 + tmp5 + tmp7) * kC1_175;
  const int32_t o4 = tmp4 * kC0_298, o5 = tmp5 * kC2_053;
  const int32_t o6 = tmp6 * kC3_072, o7 = tmp7 * kC1_501;
  const int32_t y1 = -(tmp4 + tmp7) * kC0_899;
  const int32_t y2 = -(tmp5 + tmp6) * kC2_562;
  const int32_t y3 = -(tmp4 + tmp6) * kC1_961 + z5;
  const int32_t y4 = -(tmp5 + tmp7) * kC0_390 + z5;
  p[7 * s] = (o4 + y1 + y3) >> kOddRight;
  p[5 * s] = (o5 + y2 + y4) >> kOddRight;
  p[3 * s] = (o6 + y2 + y3) >> kOddRight;
  p[s] = (o7 + y1 + y4) >> kOddRight;
}

// Forward DCT of a natural-order block of level-shifted samples, in place: rows keep
// 2 extra bits (even outputs << 2, others >> 11); columns remove them and the factor 8
// of the unnormalised transform (even outputs >> 5, others >> 18).
inline void forward_dct(int32_t* block) {
  for (int r = 0; r < 8; ++r) fdct_1d<2, 0, 11>(block + 8 * r, 1);
  for (int c = 0; c < 8; ++c) fdct_1d<0, 5, 18>(block + c, 8);
}

// One 8-point inverse transform. Coefficients of a corrupt stream can be arbitrarily
// large, so the arithmetic is done modulo 2^32 (unsigned) and only the final descale
// is signed: identical to plain 32-bit arithmetic whenever that does not overflow.
template <int kShift>
inline void idct_1d(const int32_t* in, int si, int32_t* out, int so) {
  using u32 = uint32_t;
  const u32 z2 = u32(in[2 * si]), z3 = u32(in[6 * si]);
  const u32 e1 = (z2 + z3) * u32(kC0_541);
  const u32 e2 = e1 - z3 * u32(kC1_847);
  const u32 e3 = e1 + z2 * u32(kC0_765);
  const u32 e0 = (u32(in[0]) + u32(in[4 * si])) << 13;
  const u32 e1b = (u32(in[0]) - u32(in[4 * si])) << 13;
  const u32 t10 = e0 + e3, t13 = e0 - e3, t11 = e1b + e2, t12 = e1b - e2;

  u32 o0 = u32(in[7 * si]), o1 = u32(in[5 * si]), o2 = u32(in[3 * si]), o3 = u32(in[si]);
  const u32 z5 = (o0 + o2 + o1 + o3) * u32(kC1_175);
  const u32 y1 = (o0 + o3) * u32(-kC0_899);
  const u32 y2 = (o1 + o2) * u32(-kC2_562);
  const u32 y3 = (o0 + o2) * u32(-kC1_961) + z5;
  const u32 y4 = (o1 + o3) * u32(-kC0_390) + z5;
  o0 = o0 * u32(kC0_298) + y1 + y3;
  o1 = o1 * u32(kC2_053) + y2 + y4;
  o2 = o2 * u32(kC3_072) + y2 + y3;
  o3 = o3 * u32(kC1_501) + y1 + y4;

  out[0] = int32_t(t10 + o3) >> kShift;
  out[7 * so] = int32_t(t10 - o3) >> kShift;
  out[so] = int32_t(t11 + o2) >> kShift;
  out[6 * so] = int32_t(t11 - o2) >> kShift;
  out[2 * so] = int32_t(t12 + o1) >> kShift;
  out[5 * so] = int32_t(t12 - o1) >> kShift;
  out[3 * so] = int32_t(t13 + o0) >> kShift;
  out[4 * so] = int32_t(t13 - o0) >> kShift;
}

// Inverse DCT of a dequantised natural-order block into 8 rows of bytes: columns
// (>> 11), then rows (>> 18, which holds the division by 8), clamp to -128..127, +128.
// A column with all AC zero becomes DC * 4, which is what the full path gives for it.
inline void inverse_dct(const int32_t* coef, uint8_t* out, int stride) {
  int32_t ws[64];
  for (int c = 0; c < 8; ++c) {
    const int32_t* col = coef + c;
    if ((col[8] | col[16] | col[24] | col[32] | col[40] | col[48] | col[56]) == 0) {
      const int32_t dc = int32_t(uint32_t(col[0]) << 2);
      for (int r = 0; r < 8; ++r) ws[8 * r + c] = dc;
      continue;
    }
    idct_1d<11>(col, 8, ws + c, 8);
  }
  for (int r = 0; r < 8; ++r) {
    int32_t row[8];
    idct_1d<18>(ws + 8 * r, 1, row, 1);
    uint8_t* o = out + r * stride;
    for (int i = 0; i < 8; ++i) {
      int32_t v = row[i];
      v = v < -128 ? -128 : (v > 127 ? 127 : v);
      o[i] = uint8_t(v + 128);
    }
  }
}

}  // namespace vek::jpeg
