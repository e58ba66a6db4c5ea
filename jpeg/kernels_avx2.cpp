// AVX2 block and row kernels of the JPEG codec: the portable kernels' integer
// arithmetic done on eight rows or columns at once. Every lane computes exactly what the
// scalar code computes (32-bit wrap-around products, arithmetic shifts without rounding),
// so the results are the same bytes; tests/jpeg/simd_test.cpp checks that.
//
// Only the DCT constants are taken from jpeg/dct.h: its inline transforms must not be
// instantiated here, where they would be compiled with AVX2 enabled.
#include <immintrin.h>

#include "jpeg/dct.h"
#include "jpeg/kernels.h"

namespace vek::jpeg {
namespace {

inline __m256i add(__m256i a, __m256i b) { return _mm256_add_epi32(a, b); }
inline __m256i sub(__m256i a, __m256i b) { return _mm256_sub_epi32(a, b); }
inline __m256i mul(__m256i a, int32_t c) { return _mm256_mullo_epi32(a, _mm256_set1_epi32(c)); }

// Two 16-bit multipliers for _mm256_madd_epi16: `lo` for the low half of each 32-bit lane.
inline __m256i pair16(int lo, int hi) {
  return _mm256_set1_epi32(int32_t(uint32_t(uint16_t(lo)) | (uint32_t(uint16_t(hi)) << 16)));
}

inline void transpose8(__m256i* r) {
  const __m256i t0 = _mm256_unpacklo_epi32(r[0], r[1]), t1 = _mm256_unpackhi_epi32(r[0], r[1]);
  const __m256i t2 = _mm256_unpacklo_epi32(r[2], r[3]), t3 = _mm256_unpackhi_epi32(r[2], r[3]);
  const __m256i t4 = _mm256_unpacklo_epi32(r[4], r[5]), t5 = _mm256_unpackhi_epi32(r[4], r[5]);
  const __m256i t6 = _mm256_unpacklo_epi32(r[6], r[7]), t7 = _mm256_unpackhi_epi32(r[6], r[7]);
  const __m256i u0 = _mm256_unpacklo_epi64(t0, t2), u1 = _mm256_unpackhi_epi64(t0, t2);
  const __m256i u2 = _mm256_unpacklo_epi64(t1, t3), u3 = _mm256_unpackhi_epi64(t1, t3);
  const __m256i u4 = _mm256_unpacklo_epi64(t4, t6), u5 = _mm256_unpackhi_epi64(t4, t6);
  const __m256i u6 = _mm256_unpacklo_epi64(t5, t7), u7 = _mm256_unpackhi_epi64(t5, t7);
  r[0] = _mm256_permute2x128_si256(u0, u4, 0x20);
  r[1] = _mm256_permute2x128_si256(u1, u5, 0x20);
  r[2] = _mm256_permute2x128_si256(u2, u6, 0x20);
  r[3] = _mm256_permute2x128_si256(u3, u7, 0x20);
  r[4] = _mm256_permute2x128_si256(u0, u4, 0x31);
  r[5] = _mm256_permute2x128_si256(u1, u5, 0x31);
  r[6] = _mm256_permute2x128_si256(u2, u6, 0x31);
  r[7] = _mm256_permute2x128_si256(u3, u7, 0x31);
}

// 32-bit product of a lane that fits in 16 bits (its upper half is the sign extension)
// by a 16-bit constant: one multiply-add with a zero partner instead of a full 32-bit
// multiply. Exact, hence identical, whenever the operand fits.
inline __m256i mul16(__m256i a, int32_t c) { return _mm256_madd_epi16(a, _mm256_set1_epi32(c & 0xFFFF)); }

// Eight forward 8-point transforms over v[0..7] (lane i of every vector is one transform).
// kNarrow: the inputs are level-shifted samples, so every multiplied operand (a sum of
// at most eight of them with signs) lies within +-1024 and the 16-bit product applies.
template <int kEvenLeft, int kEvenRight, int kOddRight, bool kNarrow>
inline void fdct8(__m256i* v) {
  const auto mul = [](__m256i a, int32_t c) { return kNarrow ? mul16(a, c) : _mm256_mullo_epi32(a, _mm256_set1_epi32(c)); };
  const __m256i tmp0 = add(v[0], v[7]), tmp7 = sub(v[0], v[7]);
  const __m256i tmp1 = add(v[1], v[6]), tmp6 = sub(v[1], v[6]);
  const __m256i tmp2 = add(v[2], v[5]), tmp5 = sub(v[2], v[5]);
  const __m256i tmp3 = add(v[3], v[4]), tmp4 = sub(v[3], v[4]);

  const __m256i tmp10 = add(tmp0, tmp3), tmp13 = sub(tmp0, tmp3);
  const __m256i tmp11 = add(tmp1, tmp2), tmp12 = sub(tmp1, tmp2);
  v[0] = _mm256_srai_epi32(_mm256_slli_epi32(add(tmp10, tmp11), kEvenLeft), kEvenRight);
  v[4] = _mm256_srai_epi32(_mm256_slli_epi32(sub(tmp10, tmp11), kEvenLeft), kEvenRight);
  const __m256i z1 = mul(add(tmp12, tmp13), kC0_541);
  v[2] = _mm256_srai_epi32(add(z1, mul(tmp13, kC0_765)), kOddRight);
  v[6] = _mm256_srai_epi32(sub(z1, mul(tmp12, kC1_847)), kOddRight);

  const __m256i z5 = mul(add(add(tmp4, tmp6), add(tmp5, tmp7)), kC1_175);
  const __m256i o4 = mul(tmp4, kC0_298), o5 = mul(tmp5, kC2_053);
  const __m256i o6 = mul(tmp6, kC3_072), o7 = mul(tmp7, kC1_501);
  const __m256i y1 = mul(add(tmp4, tmp7), -kC0_899);
  const __m256i y2 = mul(add(tmp5, tmp6), -kC2_562);
  const __m256i y3 = add(mul(add(tmp4, tmp6), -kC1_961), z5);
  const __m256i y4 = add(mul(add(tmp5, tmp7), -kC0_390), z5);
  v[7] = _mm256_srai_epi32(add(add(o4, y1), y3), kOddRight);
  v[5] = _mm256_srai_epi32(add(add(o5, y2), y4), kOddRight);
  v[3] = _mm256_srai_epi32(add(add(o6, y2), y3), kOddRight);
  v[1] = _mm256_srai_epi32(add(add(o7, y1), y4), kOddRight);
}

// kSized: also the coder's size << 16 | bits of every result. A result's magnitude is
// below 2^16 (a 32-bit product shifted right by 16), so its conversion to float is exact
// and the exponent field gives the bit width: (exponent bits >> 23) - 126 for nonzero.
template <bool kSized>
inline uint64_t fdct_quant_impl(int32_t* block, uint32_t* sized, const QuantNat& q) {
  __m256i r[8];
  for (int i = 0; i < 8; ++i) r[i] = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(block + 8 * i));
  // Rows: transpose so that each vector holds one sample position of all eight rows.
  transpose8(r);
  fdct8<2, 0, 11, true>(r);
  transpose8(r);
  fdct8<0, 5, 18, false>(r);

  uint64_t mask = 0;
  const __m256i zero = _mm256_setzero_si256();
  for (int u = 0; u < 8; ++u) {
    const __m256i c = r[u];
    const __m256i a = _mm256_abs_epi32(c);
    const __m256i step = _mm256_load_si256(reinterpret_cast<const __m256i*>(q.step + 8 * u));
    const __m256i rec = _mm256_load_si256(reinterpret_cast<const __m256i*>(q.reciprocal + 8 * u));
    const __m256i m = _mm256_srli_epi32(_mm256_mullo_epi32(a, rec), 16);
    const __m256i dead = _mm256_cmpgt_epi32(step, a);
    const __m256i v = _mm256_andnot_si256(dead, _mm256_sign_epi32(m, c));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(block + 8 * u), v);
    const __m256i is_zero = _mm256_cmpeq_epi32(v, zero);
    const unsigned zeros = unsigned(_mm256_movemask_ps(_mm256_castsi256_ps(is_zero)));
    mask |= uint64_t(~zeros & 0xFFu) << (8 * u);
    if constexpr (kSized) {
      const __m256i mag = _mm256_andnot_si256(dead, m);
      const __m256i exp = _mm256_srli_epi32(_mm256_castps_si256(_mm256_cvtepi32_ps(mag)), 23);
      const __m256i size = _mm256_andnot_si256(is_zero, sub(exp, _mm256_set1_epi32(126)));
      const __m256i low = sub(_mm256_sllv_epi32(_mm256_set1_epi32(1), size), _mm256_set1_epi32(1));
      const __m256i bits = _mm256_and_si256(add(v, _mm256_srai_epi32(v, 31)), low);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(sized + 8 * u),
                          _mm256_or_si256(_mm256_slli_epi32(size, 16), bits));
    }
  }
  return mask;
}

uint64_t fdct_quant_avx2(int32_t* block, const QuantNat& q) { return fdct_quant_impl<false>(block, nullptr, q); }
uint64_t fdct_quant_sized_avx2(int32_t* block, uint32_t* sized, const QuantNat& q) {
  return fdct_quant_impl<true>(block, sized, q);
}

// Eight inverse 8-point transforms, wrap-around arithmetic as in the portable code.
template <int kShift>
inline void idct8(const __m256i* in, __m256i* out) {
  const __m256i z2 = in[2], z3 = in[6];
  const __m256i e1 = mul(add(z2, z3), kC0_541);
  const __m256i e2 = sub(e1, mul(z3, kC1_847));
  const __m256i e3 = add(e1, mul(z2, kC0_765));
  const __m256i e0 = _mm256_slli_epi32(add(in[0], in[4]), 13);
  const __m256i e1b = _mm256_slli_epi32(sub(in[0], in[4]), 13);
  const __m256i t10 = add(e0, e3), t13 = sub(e0, e3), t11 = add(e1b, e2), t12 = sub(e1b, e2);

  const __m256i o0 = in[7], o1 = in[5], o2 = in[3], o3 = in[1];
  const __m256i z5 = mul(add(add(o0, o2), add(o1, o3)), kC1_175);
  const __m256i y1 = mul(add(o0, o3), -kC0_899);
  const __m256i y2 = mul(add(o1, o2), -kC2_562);
  const __m256i y3 = add(mul(add(o0, o2), -kC1_961), z5);
  const __m256i y4 = add(mul(add(o1, o3), -kC0_390), z5);
  const __m256i p0 = add(add(mul(o0, kC0_298), y1), y3);
  const __m256i p1 = add(add(mul(o1, kC2_053), y2), y4);
  const __m256i p2 = add(add(mul(o2, kC3_072), y2), y3);
  const __m256i p3 = add(add(mul(o3, kC1_501), y1), y4);

  out[0] = _mm256_srai_epi32(add(t10, p3), kShift);
  out[7] = _mm256_srai_epi32(sub(t10, p3), kShift);
  out[1] = _mm256_srai_epi32(add(t11, p2), kShift);
  out[6] = _mm256_srai_epi32(sub(t11, p2), kShift);
  out[2] = _mm256_srai_epi32(add(t12, p1), kShift);
  out[5] = _mm256_srai_epi32(sub(t12, p1), kShift);
  out[3] = _mm256_srai_epi32(add(t13, p0), kShift);
  out[4] = _mm256_srai_epi32(sub(t13, p0), kShift);
}

void idct_avx2(const int32_t* coef, uint8_t* out, size_t stride) {
  __m256i r[8], w[8];
  for (int i = 0; i < 8; ++i) r[i] = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(coef + 8 * i));
  // Columns first: with one row per vector, lane c runs column c's transform.
  idct8<11>(r, w);
  // Columns without AC take DC * 4, as the portable shortcut does (the two differ only
  // when DC << 13 wraps, so the shortcut has to be reproduced, not assumed equal).
  __m256i ac = _mm256_or_si256(_mm256_or_si256(r[1], r[2]), _mm256_or_si256(r[3], r[4]));
  ac = _mm256_or_si256(ac, _mm256_or_si256(_mm256_or_si256(r[5], r[6]), r[7]));
  const __m256i flat = _mm256_cmpeq_epi32(ac, _mm256_setzero_si256());
  const __m256i dc4 = _mm256_slli_epi32(r[0], 2);
  for (int i = 0; i < 8; ++i) w[i] = _mm256_blendv_epi8(w[i], dc4, flat);
  transpose8(w);
  idct8<18>(w, r);
  transpose8(r);
  // Saturating packs clamp to -128..127; flipping the top bit adds 128.
  const __m256i b03 = _mm256_packs_epi16(_mm256_packs_epi32(r[0], r[1]), _mm256_packs_epi32(r[2], r[3]));
  const __m256i b47 = _mm256_packs_epi16(_mm256_packs_epi32(r[4], r[5]), _mm256_packs_epi32(r[6], r[7]));
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  const __m256i bias = _mm256_set1_epi8(char(0x80));
  const __m256i rows03 = _mm256_xor_si256(_mm256_permutevar8x32_epi32(b03, order), bias);
  const __m256i rows47 = _mm256_xor_si256(_mm256_permutevar8x32_epi32(b47, order), bias);
  const __m128i q0 = _mm256_castsi256_si128(rows03), q1 = _mm256_extracti128_si256(rows03, 1);
  const __m128i q2 = _mm256_castsi256_si128(rows47), q3 = _mm256_extracti128_si256(rows47, 1);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out), q0);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out + stride), _mm_unpackhi_epi64(q0, q0));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 2 * stride), q1);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 3 * stride), _mm_unpackhi_epi64(q1, q1));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 4 * stride), q2);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 5 * stride), _mm_unpackhi_epi64(q2, q2));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 6 * stride), q3);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 7 * stride), _mm_unpackhi_epi64(q3, q3));
}

void load_mcu422_avx2(const uint8_t* p, size_t pitch, int32_t (*blocks)[64]) {
  const __m256i low8 = _mm256_set1_epi16(0xFF);
  const __m256i low16 = _mm256_set1_epi32(0xFFFF);
  const __m256i shift = _mm256_set1_epi32(128);
  for (int r = 0; r < 8; ++r, p += pitch) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const __m256i y = _mm256_and_si256(v, low8);  // luma of pixels 0..7 | 8..15 as 16-bit
    const __m256i c = _mm256_srli_epi16(v, 8);    // U V pairs as 16-bit
    const __m256i y1 = sub(_mm256_cvtepu16_epi32(_mm256_castsi256_si128(y)), shift);
    const __m256i y2 = sub(_mm256_cvtepu16_epi32(_mm256_extracti128_si256(y, 1)), shift);
    const __m256i u = sub(_mm256_and_si256(c, low16), shift);
    const __m256i w = sub(_mm256_srli_epi32(c, 16), shift);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(blocks[0] + 8 * r), y1);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(blocks[1] + 8 * r), y2);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(blocks[2] + 8 * r), u);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(blocks[3] + 8 * r), w);
  }
}

// Luma of 8 B, G, R, X pixels, and the chroma of their 4 pairs in the low half of each
// 64-bit lane (the high halves are unused); chroma without the +128, so level-shifted.
struct Bgrx8 {
  __m256i y, u, v;
};
inline Bgrx8 bgrx8(__m256i px) {
  const __m256i br = _mm256_and_si256(px, _mm256_set1_epi32(0x00FF00FF));          // B | R << 16
  const __m256i g = _mm256_and_si256(_mm256_srli_epi32(px, 8), _mm256_set1_epi32(0xFF));
  Bgrx8 o;
  o.y = _mm256_srai_epi32(add(_mm256_madd_epi16(br, pair16(117, 306)), _mm256_madd_epi16(g, pair16(601, 0))), 10);
  const __m256i sbr = _mm256_add_epi16(br, _mm256_srli_epi64(br, 32));  // pair sums, at most 510
  const __m256i sg = add(g, _mm256_srli_epi64(g, 32));
  o.u = _mm256_srai_epi32(add(_mm256_madd_epi16(sbr, pair16(512, -173)), _mm256_madd_epi16(sg, pair16(-339, 0))), 11);
  o.v = _mm256_srai_epi32(add(_mm256_madd_epi16(sbr, pair16(-83, 512)), _mm256_madd_epi16(sg, pair16(-429, 0))), 11);
  return o;
}

void load_mcu_bgrx_avx2(const uint8_t* p, size_t pitch, int32_t (*blocks)[64]) {
  const __m256i even = _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6);
  const __m256i shift = _mm256_set1_epi32(128);
  for (int r = 0; r < 8; ++r, p += pitch) {
    const Bgrx8 a = bgrx8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
    const Bgrx8 b = bgrx8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 32)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(blocks[0] + 8 * r), sub(a.y, shift));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(blocks[1] + 8 * r), sub(b.y, shift));
    const __m256i u = _mm256_permute2x128_si256(_mm256_permutevar8x32_epi32(a.u, even),
                                                _mm256_permutevar8x32_epi32(b.u, even), 0x20);
    const __m256i v = _mm256_permute2x128_si256(_mm256_permutevar8x32_epi32(a.v, even),
                                                _mm256_permutevar8x32_epi32(b.v, even), 0x20);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(blocks[2] + 8 * r), u);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(blocks[3] + 8 * r), v);
  }
}

void bgrx_to_yuv422_avx2(const uint8_t* s, uint8_t* d, size_t pairs) {
  const __m256i c128 = _mm256_set1_epi32(128);
  const __m256i gather = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
  size_t i = 0;
  for (; i + 4 <= pairs; i += 4, s += 32, d += 16) {
    const Bgrx8 c = bgrx8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s)));
    const __m256i u = add(c.u, c128), w = add(c.v, c128);
    __m256i out = _mm256_or_si256(c.y, _mm256_srli_epi64(c.y, 16));
    out = _mm256_or_si256(out, _mm256_or_si256(_mm256_slli_epi32(u, 8), _mm256_slli_epi32(w, 24)));
    out = _mm256_permutevar8x32_epi32(out, gather);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(out));
  }
  if (i < pairs) bgr_to_yuv422_scalar(s, d, pairs - i, 4);
}

// Four pairs of B, G, R pixels spread to B, G, R, 0 and converted as above. The two
// 16-byte loads read 28 bytes, so the vector loop stops while 5 pairs (30 bytes) remain.
void bgr24_to_yuv422_avx2(const uint8_t* s, uint8_t* d, size_t pairs) {
  const __m256i c128 = _mm256_set1_epi32(128);
  const __m256i gather = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
  const __m256i spread = _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1,
                                          0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
  size_t i = 0;
  for (; i + 5 <= pairs; i += 4, s += 24, d += 16) {
    const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
    const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 12));
    const __m256i px = _mm256_shuffle_epi8(_mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1), spread);
    const Bgrx8 c = bgrx8(px);
    const __m256i u = add(c.u, c128), w = add(c.v, c128);
    __m256i out = _mm256_or_si256(c.y, _mm256_srli_epi64(c.y, 16));
    out = _mm256_or_si256(out, _mm256_or_si256(_mm256_slli_epi32(u, 8), _mm256_slli_epi32(w, 24)));
    out = _mm256_permutevar8x32_epi32(out, gather);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(out));
  }
  if (i < pairs) bgr_to_yuv422_scalar(s, d, pairs - i, 3);
}

const Kernels kAvx2 = {fdct_quant_avx2,    fdct_quant_sized_avx2, idct_avx2,          load_mcu422_avx2,
                       load_mcu_bgrx_avx2, bgrx_to_yuv422_avx2,   bgr24_to_yuv422_avx2};

}  // namespace

const Kernels* avx2_kernels() { return &kAvx2; }

}  // namespace vek::jpeg
