// AVX2 block kernels of the conversion family. Each reproduces the scalar
// kernel's integer arithmetic exactly (no rounding differences are tolerated)
// and leaves the row's tail to it.
//
// Two exact rewritings make 16-bit lanes enough for YUV to RGB: 1024*Y is a
// multiple of 1024, so (1024*Y + k) >> 10 == Y + (k >> 10) and the chroma terms
// are computed once per pair; and floor(floor(a / 256) / 4) == floor(a / 1024),
// so the high half of a 16x16 multiply of (U - 128) << 8 followed by an
// arithmetic shift by 2 gives the blue and red terms exactly.
#include <immintrin.h>

#include <cstddef>
#include <type_traits>

#include "convert/kernels.h"

namespace vek::conv::simd {
namespace {

using V = __m256i;

inline V load(const uint8_t *p) { return _mm256_loadu_si256(reinterpret_cast<const V *>(p)); }
inline void store(uint8_t *p, V v) { _mm256_storeu_si256(reinterpret_cast<V *>(p), v); }

// A pshufb control for both 128-bit lanes.
struct Mask {
  alignas(32) int8_t b[32];
};
inline V use(const Mask &m) { return _mm256_load_si256(reinterpret_cast<const V *>(m.b)); }

// Four pixels per lane, `stride` bytes apart in the source, spread to one
// 32-bit lane each: output byte j of pixel i is source byte sel[j] of that
// pixel (-1: zero).
constexpr Mask spread(int stride, int s0, int s1, int s2, int s3) {
  Mask m{};
  const int sel[4] = {s0, s1, s2, s3};
  for (int lane = 0; lane < 2; ++lane)
    for (int i = 0; i < 4; ++i)
      for (int j = 0; j < 4; ++j)
        m.b[16 * lane + 4 * i + j] = int8_t(sel[j] < 0 ? -128 : i * stride + sel[j]);
  return m;
}

// Four pixels per lane, `stride` bytes apart, packed to 3 bytes each in the low
// 12 bytes of the lane (the top 4 are zero).
constexpr Mask pack3(int stride, int s0, int s1, int s2) {
  Mask m{};
  const int sel[3] = {s0, s1, s2};
  for (int lane = 0; lane < 2; ++lane) {
    for (int i = 0; i < 4; ++i)
      for (int j = 0; j < 3; ++j) m.b[16 * lane + 3 * i + j] = int8_t(i * stride + sel[j]);
    for (int j = 12; j < 16; ++j) m.b[16 * lane + j] = -128;
  }
  return m;
}

// Two signed 16-bit coefficients in every 32-bit lane, `lo` for the low half.
inline V pair16(int lo, int hi) {
  return _mm256_set1_epi32(int((uint32_t(hi) << 16) | (uint32_t(lo) & 0xFFFFu)));
}

// Eight pixels of `S` bytes each, four per 128-bit lane at the start of the
// lane. A 3-byte load reads 32 bytes for the 24 it uses, which the next group
// of the block owns; the block's last group (`last`) reads exactly its 24.
template <int S, bool last = false>
inline V load8(const uint8_t *p) {
  if constexpr (S == 3) {
    V v;
    if constexpr (last) {
      v = _mm256_inserti128_si256(
          _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p))),
          _mm_loadl_epi64(reinterpret_cast<const __m128i *>(p + 16)), 1);
    } else {
      v = load(p);
    }
    return _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 1, 2, 3, 3, 4, 5, 6));
  }
  return load(p);
}

// Eight pixels, packed to 3 bytes each per lane by pack3, stored as 24
// contiguous bytes. The store writes 32, the next group of the block rewriting
// the excess; the block's last group (`last`) writes exactly 24.
template <bool last = false>
inline void store24(uint8_t *p, V packed_lanes) {
  const V v = _mm256_permutevar8x32_epi32(packed_lanes, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
  if constexpr (last) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), _mm256_castsi256_si128(v));
    _mm_storel_epi64(reinterpret_cast<__m128i *>(p + 16), _mm256_extracti128_si256(v, 1));
  } else {
    store(p, v);
  }
}

// Asks for the destination lines a kilobyte ahead of the stores. Without it the
// large outputs run at well under the speed of the same kernel on a
// cache-resident row, the stores waiting on line fills; a prefetch is only a
// hint, so one past the end of the row (or of mapped memory) reads nothing and
// cannot fault.
inline void prefetch_ahead(const uint8_t *p) {
  _mm_prefetch(reinterpret_cast<const char *>(p + 1024), _MM_HINT_T0);
  _mm_prefetch(reinterpret_cast<const char *>(p + 1024 + 64), _MM_HINT_T0);
}

// Four groups of eight pixels, the last one told it is last.
template <class F>
inline void groups4(F &&f) {
  f(0, std::false_type{});
  f(1, std::false_type{});
  f(2, std::false_type{});
  f(3, std::true_type{});
}

// ---- RGB family to grey
// ------------------------------------------------------

// Grey = (77 R + 150 G + 29 B) >> 8. Spreading each pixel to (R, G, G, B) and
// splitting the weights 77 + 51 | 99 + 29 keeps each unsigned-by-signed byte
// pair product sum at most 128 * 255, so the saturating pairwise multiply never
// saturates.
template <int S, int R, int G, int B>
uint32_t rgb_to_y8(const uint8_t *src, uint8_t *dst, uint32_t width) {
  static constexpr Mask kPick = spread(S, R, G, G, B);
  const V pick = use(kPick);
  const V weights = _mm256_set1_epi32(int(77u | 51u << 8 | 99u << 16 | 29u << 24));
  const V ones = _mm256_set1_epi16(1);
  const V order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  uint32_t x = 0;
  for (; x + 32 <= width; x += 32) {
    V y[4];
    groups4([&](int i, auto last) {
      const V p = _mm256_shuffle_epi8(load8<S, last()>(src + size_t(x + 8 * i) * S), pick);
      y[i] = _mm256_srli_epi32(_mm256_madd_epi16(_mm256_maddubs_epi16(p, weights), ones), 8);
    });
    // Packing interleaves 4-pixel groups across lanes; the permute restores
    // order.
    const V bytes =
        _mm256_packus_epi16(_mm256_packs_epi32(y[0], y[1]), _mm256_packs_epi32(y[2], y[3]));
    store(dst + x, _mm256_permutevar8x32_epi32(bytes, order));
  }
  return x;
}

// ---- RGB family to YUV 4:2:2
// ------------------------------------------------------

// Per pixel in 32-bit lanes: (R, G) and (B, 128) as 16-bit pairs, so three
// pairwise multiply-adds each give Y, U and V exactly; the chroma offset rides
// in as 128 * 1024 and the shifts floor as the scalar kernel does. The ranges
// never leave 0..255, so the scalar clamps are no-ops here.
template <int S, int R, int G, int B>
uint32_t rgb_to_yuv(const uint8_t *src, uint8_t *dst, uint32_t width) {
  static constexpr Mask kRg = spread(S, R, -1, G, -1);
  static constexpr Mask kB = spread(S, B, -1, -1, -1);
  const V rg_pick = use(kRg), b_pick = use(kB);
  const V offset = _mm256_set1_epi32(128 << 16);
  const V y_rg = pair16(306, 601), y_b = pair16(117, 0);
  const V u_rg = pair16(-173, -339), u_b = pair16(512, 1024);
  const V v_rg = pair16(512, -429), v_b = pair16(-83, 1024);
  uint32_t x = 0;
  for (; x + 16 <= width; x += 16) {
    V half[2];
    for (int h = 0; h < 2; ++h) {
      const uint8_t *at = src + size_t(x + 8 * h) * S;
      const V p = h ? load8<S, true>(at) : load8<S>(at);
      const V rg = _mm256_shuffle_epi8(p, rg_pick);
      const V b1 = _mm256_or_si256(_mm256_shuffle_epi8(p, b_pick), offset);
      const V y = _mm256_srli_epi32(
          _mm256_add_epi32(_mm256_madd_epi16(rg, y_rg), _mm256_madd_epi16(b1, y_b)), 10);
      const V u = _mm256_srai_epi32(
          _mm256_add_epi32(_mm256_madd_epi16(rg, u_rg), _mm256_madd_epi16(b1, u_b)), 10);
      const V v = _mm256_srai_epi32(
          _mm256_add_epi32(_mm256_madd_epi16(rg, v_rg), _mm256_madd_epi16(b1, v_b)), 10);
      // Even lanes want (U0 + U1) >> 1, odd lanes (V0 + V1) >> 1.
      const V mine = _mm256_blend_epi32(u, v, 0xAA);
      const V partner =
          _mm256_shuffle_epi32(_mm256_blend_epi32(v, u, 0xAA), _MM_SHUFFLE(2, 3, 0, 1));
      const V chroma = _mm256_srli_epi32(_mm256_add_epi32(mine, partner), 1);
      half[h] = _mm256_or_si256(y, _mm256_slli_epi32(chroma, 8));  // Y | C << 8
    }
    const V words = _mm256_packus_epi32(half[0], half[1]);
    store(dst + size_t(x) * 2, _mm256_permute4x64_epi64(words, _MM_SHUFFLE(3, 1, 2, 0)));
  }
  return x;
}

// ---- byte reordering
// ---------------------------------------------------------------

// R, G, B swap between the two 24-bit orders: five pixels per 16-byte vector,
// the sixteenth byte read and written belonging to the next pixel (rewritten by
// the next vector or the scalar tail), hence one pixel of slack.
uint32_t swap24(const uint8_t *src, uint8_t *dst, uint32_t width) {
  const __m128i m = _mm_setr_epi8(2, 1, 0, 5, 4, 3, 8, 7, 6, 11, 10, 9, 14, 13, 12, 15);
  auto five = [&](uint32_t at_pixel) {
    const size_t at = size_t(at_pixel) * 3;
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + at));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + at), _mm_shuffle_epi8(v, m));
  };
  uint32_t x = 0;
  for (; x + 20 + 1 <= width; x += 20)
    for (uint32_t i = 0; i < 20; i += 5) five(x + i);
  for (; x + 5 + 1 <= width; x += 5) five(x);
  return x;
}

uint32_t rgb24_to_bgrx32(const uint8_t *src, uint8_t *dst, uint32_t width) {
  static constexpr Mask kPick = spread(3, 2, 1, 0, -1);
  const V pick = use(kPick);
  uint32_t x = 0;
  for (; x + 32 <= width; x += 32) {
    prefetch_ahead(dst + size_t(x) * 4);
    groups4([&](int i, auto last) {
      store(dst + size_t(x + 8 * i) * 4,
            _mm256_shuffle_epi8(load8<3, last()>(src + size_t(x + 8 * i) * 3), pick));
    });
  }
  return x;
}

uint32_t bgrx32_to_rgb24(const uint8_t *src, uint8_t *dst, uint32_t width) {
  static constexpr Mask kPick = pack3(4, 2, 1, 0);
  const V pick = use(kPick);
  uint32_t x = 0;
  for (; x + 32 <= width; x += 32) {
    prefetch_ahead(dst + size_t(x) * 3);
    groups4([&](int i, auto last) {
      store24<last()>(dst + size_t(x + 8 * i) * 3,
                      _mm256_shuffle_epi8(load(src + size_t(x + 8 * i) * 4), pick));
    });
  }
  return x;
}

// ---- YUV 4:2:2 sources
// ----------------------------------------------------------------

uint32_t yuv_to_y8(const uint8_t *src, uint8_t *dst, uint32_t width) {
  const V low = _mm256_set1_epi16(0x00FF);
  uint32_t x = 0;
  for (; x + 32 <= width; x += 32) {
    const V a = _mm256_and_si256(load(src + size_t(x) * 2), low);
    const V b = _mm256_and_si256(load(src + size_t(x) * 2 + 32), low);
    store(dst + x, _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), _MM_SHUFFLE(3, 1, 2, 0)));
  }
  return x;
}

// YUV to the RGB family; R, G, B, X are the byte positions in the target pixel
// of N bytes (X < 0: none). X bytes are written as 0, as the scalar kernel
// does.
template <int R, int G, int B, int X, int N>
uint32_t yuv_to_rgb(const uint8_t *src, uint8_t *dst, uint32_t width) {
  static constexpr Mask kChroma = spread(4, -1, 1, -1, 3);  // (U << 8, V << 8) per pair
  static constexpr Mask kLow = spread(4, 0, 1, 0, 1);       // low word to both halves
  static constexpr Mask kHigh = spread(4, 2, 3, 2, 3);      // high word to both halves
  static constexpr Mask kDrop = pack3(4, 0, 1, 2);
  const V chroma_pick = use(kChroma), low_word = use(kLow), high_word = use(kHigh);
  const V luma_mask = _mm256_set1_epi16(0x00FF);
  const V bias = _mm256_set1_epi16(int16_t(-32768));  // U << 8 ^ 0x8000 == (U - 128) << 8
  const V blue_red = pair16(1815, 1436);
  const V green = pair16(-352, -731);
  const V zero = _mm256_setzero_si256();
  uint32_t x = 0;
  for (; x + 32 <= width; x += 32) {
    prefetch_ahead(dst + size_t(x) * N);
    V r[2], g[2], b[2];
    for (int h = 0; h < 2; ++h) {
      const V w = load(src + size_t(x) * 2 + 32 * h);  // 8 pairs, 16 pixels
      const V y = _mm256_and_si256(w, luma_mask);
      const V uv = _mm256_xor_si256(_mm256_shuffle_epi8(w, chroma_pick), bias);
      const V br = _mm256_srai_epi16(_mm256_mulhi_epi16(uv, blue_red), 2);
      const V gt = _mm256_srai_epi32(_mm256_madd_epi16(uv, green), 18);
      r[h] = _mm256_add_epi16(y, _mm256_shuffle_epi8(br, high_word));
      g[h] = _mm256_add_epi16(y, _mm256_shuffle_epi8(gt, low_word));
      b[h] = _mm256_add_epi16(y, _mm256_shuffle_epi8(br, low_word));
    }
    // Saturating packs are the clamp to 0..255. Lanes now hold pixels 0-7 |
    // 8-15 of the first half and 16-23 | 24-31 of the second, interleaved by
    // lane.
    V plane[4];
    plane[R] = _mm256_packus_epi16(r[0], r[1]);
    plane[G] = _mm256_packus_epi16(g[0], g[1]);
    plane[B] = _mm256_packus_epi16(b[0], b[1]);
    if constexpr (N == 4) {
      plane[X] = zero;
    } else {
      plane[3] = zero;
    }
    const V lo01 = _mm256_unpacklo_epi8(plane[0], plane[1]);
    const V hi01 = _mm256_unpackhi_epi8(plane[0], plane[1]);
    const V lo23 = _mm256_unpacklo_epi8(plane[2], plane[3]);
    const V hi23 = _mm256_unpackhi_epi8(plane[2], plane[3]);
    const V q0 = _mm256_unpacklo_epi16(lo01, lo23);  // pixels 0-3 | 8-11
    const V q1 = _mm256_unpackhi_epi16(lo01, lo23);  // 4-7 | 12-15
    const V q2 = _mm256_unpacklo_epi16(hi01, hi23);  // 16-19 | 24-27
    const V q3 = _mm256_unpackhi_epi16(hi01, hi23);  // 20-23 | 28-31
    const V out[4] = {
        _mm256_permute2x128_si256(q0, q1, 0x20), _mm256_permute2x128_si256(q0, q1, 0x31),
        _mm256_permute2x128_si256(q2, q3, 0x20), _mm256_permute2x128_si256(q2, q3, 0x31)};
    if constexpr (N == 4) {
      for (int i = 0; i < 4; ++i) store(dst + size_t(x + 8 * i) * 4, out[i]);
    } else {
      const V drop = use(kDrop);
      groups4([&](int i, auto last) {
        store24<last()>(dst + size_t(x + 8 * i) * 3, _mm256_shuffle_epi8(out[i], drop));
      });
    }
  }
  return x;
}

}  // namespace

const BlockKernel kAvx2Blocks[kPairCount] = {
    /* kYuvToRgb24 */ yuv_to_rgb<0, 1, 2, -1, 3>,
    /* kYuvToBgr24 */ yuv_to_rgb<2, 1, 0, -1, 3>,
    /* kYuvToBgrx32 */ yuv_to_rgb<2, 1, 0, 3, 4>,
    /* kYuvToRgbx32 */ yuv_to_rgb<0, 1, 2, 3, 4>,
    /* kYuvToXrgb32 */ yuv_to_rgb<1, 2, 3, 0, 4>,
    /* kYuvToXbgr32 */ yuv_to_rgb<3, 2, 1, 0, 4>,
    /* kYuvToY8 */ yuv_to_y8,
    /* kRgb24ToYuv */ rgb_to_yuv<3, 0, 1, 2>,
    /* kBgr24ToYuv */ rgb_to_yuv<3, 2, 1, 0>,
    /* kBgrx32ToYuv */ rgb_to_yuv<4, 2, 1, 0>,
    /* kSwap24 */ swap24,
    /* kRgb24ToY8 */ rgb_to_y8<3, 0, 1, 2>,
    /* kBgr24ToY8 */ rgb_to_y8<3, 2, 1, 0>,
    /* kBgrx32ToY8 */ rgb_to_y8<4, 2, 1, 0>,
    /* kRgb24ToBgrx32 */ rgb24_to_bgrx32,
    /* kBgrx32ToRgb24 */ bgrx32_to_rgb24,
};

}  // namespace vek::conv::simd
