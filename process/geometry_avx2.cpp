// AVX2 block kernels of the geometric operations. Each reproduces its scalar kernel's
// integer arithmetic exactly, handles whole blocks only and returns how far it got,
// leaving the rest of the line to the scalar kernel; none reads or writes past a line.
//
// The scaler's table entry T(p, j) = (p * (256 - j)) >> 8 never exceeds 255 * 256, so
// each product fits a 16-bit lane and the table look-ups become a multiply and a shift.
#include <immintrin.h>

#include <cstring>

#include "process/geometry_rows.h"

namespace vek::geometry::rows::avx2 {

namespace {

using V = __m256i;

inline V load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const V*>(p)); }
inline void store(uint8_t* p, V v) { _mm256_storeu_si256(reinterpret_cast<V*>(p), v); }
inline V load2(const uint8_t* lo, const uint8_t* hi) {
  return _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(hi),
                             reinterpret_cast<const __m128i*>(lo));
}

// Twelve bytes of one 128-bit half, without touching the four after them.
inline void store12(uint8_t* p, __m128i v) {
  _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v);
  const int tail = _mm_extract_epi32(v, 2);
  std::memcpy(p + 8, &tail, 4);
}

// T(a, f) + T(b, 256 - f) on 16-bit lanes holding bytes, with wa = 256 - f, wb = f.
inline V blend16(V a, V b, V wa, V wb) {
  return _mm256_add_epi16(_mm256_srli_epi16(_mm256_mullo_epi16(a, wa), 8),
                          _mm256_srli_epi16(_mm256_mullo_epi16(b, wb), 8));
}

// The 8 columns o..o+7 of the scaler's column table, one field each.
struct Columns {
  V left, right, f;
};
inline Columns columns(const ScaleColumn* cols) {
  static_assert(sizeof(ScaleColumn) == 12, "three 32-bit fields");
  // 96 bytes in three loads; field k of column i is word 3i + k. Each field's eight
  // words are blended from the three loads so that each sits in a distinct slot, then
  // put in column order by one permute.
  const uint8_t* p = reinterpret_cast<const uint8_t*>(cols);
  const V a = load(p), b = load(p + 32), c = load(p + 64);
  const V left = _mm256_blend_epi32(_mm256_blend_epi32(a, b, 0x92), c, 0x24);
  const V right = _mm256_blend_epi32(_mm256_blend_epi32(a, b, 0x24), c, 0x49);
  const V f = _mm256_blend_epi32(_mm256_blend_epi32(a, b, 0x49), c, 0x92);
  return {_mm256_permutevar8x32_epi32(left, _mm256_setr_epi32(0, 3, 6, 1, 4, 7, 2, 5)),
          _mm256_permutevar8x32_epi32(right, _mm256_setr_epi32(1, 4, 7, 2, 5, 0, 3, 6)),
          _mm256_permutevar8x32_epi32(f, _mm256_setr_epi32(2, 5, 0, 3, 6, 1, 4, 7))};
}

// Sixteen columns whose samples lie within 16 bytes per group of eight, each right
// sample next to its left one (any enlargement, reductions down to about a half): one
// 16-byte load per group and byte shuffles replace the gathers. The block depends only
// on the columns, so a plan of them serves every line.
struct ShuffleBlock {
  V ctrl0, ctrl1, fa, fb;  // shuffles picking left and right samples as 16-bit lanes, weights
  uint32_t base_a, base_b;  // byte offsets of the two 16-byte loads
};

bool shuffle_block(const ScaleColumn* cols, size_t src_bytes, ShuffleBlock& blk) {
  const V span = _mm256_set1_epi32(14), one = _mm256_set1_epi32(1), all = _mm256_set1_epi32(-1);
  const Columns a = columns(cols), b = columns(cols + 8);
  blk.base_a = cols[0].left;
  blk.base_b = cols[8].left;
  if (size_t(blk.base_a) + 16 > src_bytes || size_t(blk.base_b) + 16 > src_bytes) return false;
  const V ia = _mm256_sub_epi32(a.left, _mm256_set1_epi32(int(blk.base_a)));
  const V ib = _mm256_sub_epi32(b.left, _mm256_set1_epi32(int(blk.base_b)));
  // Offsets are unsigned distances from the block's first column: negative ones (not
  // expected, columns only advance) fail the range test as large values would.
  const V bad = _mm256_or_si256(
      _mm256_or_si256(_mm256_cmpgt_epi32(ia, span), _mm256_cmpgt_epi32(ib, span)),
      _mm256_or_si256(
          _mm256_or_si256(_mm256_cmpgt_epi32(_mm256_setzero_si256(), ia),
                          _mm256_cmpgt_epi32(_mm256_setzero_si256(), ib)),
          _mm256_or_si256(
              _mm256_xor_si256(_mm256_cmpeq_epi32(_mm256_add_epi32(a.left, one), a.right), all),
              _mm256_xor_si256(_mm256_cmpeq_epi32(_mm256_add_epi32(b.left, one), b.right), all))));
  if (_mm256_movemask_epi8(bad)) return false;
  // Offsets (0..14) and fractions as 16-bit lanes, group a low, b high; the shuffle's
  // high byte per lane set to zero the upper half of each sample.
  const V idx = _mm256_permute4x64_epi64(_mm256_packus_epi32(ia, ib), 0xD8);
  blk.ctrl0 = _mm256_or_si256(idx, _mm256_set1_epi16(int16_t(0x8000)));
  blk.ctrl1 = _mm256_add_epi16(blk.ctrl0, _mm256_set1_epi16(1));
  blk.fb = _mm256_permute4x64_epi64(_mm256_packus_epi32(a.f, b.f), 0xD8);
  blk.fa = _mm256_sub_epi16(_mm256_set1_epi16(256), blk.fb);
  return true;
}

inline void apply(const uint8_t* src, const ShuffleBlock& blk, uint8_t* dst) {
  const V data = load2(src + blk.base_a, src + blk.base_b);
  const V r = blend16(_mm256_shuffle_epi8(data, blk.ctrl0), _mm256_shuffle_epi8(data, blk.ctrl1),
                      blk.fa, blk.fb);
  const V packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(r, r), 0x08);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm256_castsi256_si128(packed));
}

}  // namespace

static_assert(sizeof(ShuffleBlock) == kPlanBlockBytes && alignof(ShuffleBlock) == kPlanAlign,
              "the plan's size is worked out outside this file");

uint32_t scale_plan(size_t src_bytes, const ScaleColumn* cols, uint32_t out_width, uint8_t* plan) {
  auto* blocks = reinterpret_cast<ShuffleBlock*>(
      (reinterpret_cast<uintptr_t>(plan) + alignof(ShuffleBlock) - 1) & ~uintptr_t(alignof(ShuffleBlock) - 1));
  uint32_t n = 0;
  while (16 * (n + 1) <= out_width && shuffle_block(cols + 16 * n, src_bytes, blocks[n])) ++n;
  return n;
}

uint32_t scale_planned(const uint8_t* src, uint8_t* dst, const uint8_t* plan, uint32_t blocks) {
  const auto* blk = reinterpret_cast<const ShuffleBlock*>(
      (reinterpret_cast<uintptr_t>(plan) + alignof(ShuffleBlock) - 1) & ~uintptr_t(alignof(ShuffleBlock) - 1));
  for (uint32_t n = 0; n < blocks; ++n) apply(src, blk[n], dst + 16 * size_t(n));
  return 16 * blocks;
}

size_t scale_vertical(const uint8_t* upper, const uint8_t* lower, uint8_t* dst, size_t count,
                      uint32_t f) {
  const V wa = _mm256_set1_epi16(int16_t(256 - f)), wb = _mm256_set1_epi16(int16_t(f));
  const V zero = _mm256_setzero_si256();
  size_t k = 0;
  for (; k + 32 <= count; k += 32) {
    const V a = load(upper + k), b = load(lower + k);
    const V lo = blend16(_mm256_unpacklo_epi8(a, zero), _mm256_unpacklo_epi8(b, zero), wa, wb);
    const V hi = blend16(_mm256_unpackhi_epi8(a, zero), _mm256_unpackhi_epi8(b, zero), wa, wb);
    store(dst + k, _mm256_packus_epi16(lo, hi));  // in-lane unpack and pack keep the order
  }
  return k;
}

uint32_t scale_horizontal(const uint8_t* src, size_t src_bytes, uint8_t* dst,
                          const ScaleColumn* cols, uint32_t out_width, uint32_t channels) {
  // Samples are fetched as 32-bit words at their byte offsets, so a block is done only
  // while its furthest word ends inside the line.
  if (src_bytes < 4 || (channels != 1 && channels != 3)) return 0;
  const V limit = _mm256_set1_epi32(int(src_bytes - 4));
  const V bytes = _mm256_set1_epi32(0xFF), w256 = _mm256_set1_epi32(256);
  const V one = _mm256_set1_epi32(1);
  const int* line = reinterpret_cast<const int*>(src);
  uint32_t o = 0;
  if (channels == 1) {
    for (; o + 8 <= out_width; o += 8) {
      if (o + 16 <= out_width) {
        ShuffleBlock blk;
        if (shuffle_block(cols + o, src_bytes, blk)) {
          apply(src, blk, dst + o);
          o += 8;  // with the loop's own step, sixteen
          continue;
        }
      }
      const Columns c = columns(cols + o);
      if (_mm256_movemask_epi8(_mm256_cmpgt_epi32(c.right, limit))) break;
      // Away from the clamped end the right sample follows the left one, and one
      // gathered word holds both.
      const V w0 = _mm256_i32gather_epi32(line, c.left, 1);
      const bool adjacent =
          _mm256_movemask_epi8(_mm256_cmpeq_epi32(_mm256_add_epi32(c.left, one), c.right)) == -1;
      const V w1 = adjacent ? _mm256_srli_epi32(w0, 8) : _mm256_i32gather_epi32(line, c.right, 1);
      const V p0 = _mm256_and_si256(w0, bytes), p1 = _mm256_and_si256(w1, bytes);
      // 32-bit lanes whose upper halves are zero: a 16-bit multiply is exact.
      const V r = _mm256_add_epi32(
          _mm256_srli_epi32(_mm256_mullo_epi16(p0, _mm256_sub_epi32(w256, c.f)), 8),
          _mm256_srli_epi32(_mm256_mullo_epi16(p1, c.f), 8));
      const V w = _mm256_permute4x64_epi64(_mm256_packus_epi32(r, r), 0x08);
      const __m128i b = _mm256_castsi256_si128(w);
      _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + o), _mm_packus_epi16(b, b));
    }
    return o;
  }
  // Three channels: each gathered word is one pixel and the byte after it, which the
  // final shuffle drops.
  const V zero = _mm256_setzero_si256();
  const V drop = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1, 0, 1,
                                  2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  for (; o + 8 <= out_width; o += 8) {
    const Columns c = columns(cols + o);
    if (_mm256_movemask_epi8(_mm256_cmpgt_epi32(c.right, limit))) break;
    const V p0 = _mm256_i32gather_epi32(line, c.left, 1);
    const V p1 = _mm256_i32gather_epi32(line, c.right, 1);
    // Each weight in both 16-bit halves of its word, then spread over the four 16-bit
    // lanes its pixel occupies after widening.
    const V fb = _mm256_or_si256(c.f, _mm256_slli_epi32(c.f, 16));
    const V fa = _mm256_sub_epi16(_mm256_set1_epi16(256), fb);
    const V lo = blend16(_mm256_unpacklo_epi8(p0, zero), _mm256_unpacklo_epi8(p1, zero),
                         _mm256_unpacklo_epi32(fa, fa), _mm256_unpacklo_epi32(fb, fb));
    const V hi = blend16(_mm256_unpackhi_epi8(p0, zero), _mm256_unpackhi_epi8(p1, zero),
                         _mm256_unpackhi_epi32(fa, fa), _mm256_unpackhi_epi32(fb, fb));
    const V packed = _mm256_shuffle_epi8(_mm256_packus_epi16(lo, hi), drop);
    store12(dst + 3 * size_t(o), _mm256_castsi256_si128(packed));
    store12(dst + 3 * size_t(o) + 12, _mm256_extracti128_si256(packed, 1));
  }
  return o;
}

uint32_t bin2(const uint8_t* src, size_t pitch, uint8_t* dst, uint32_t count, uint32_t unit,
              uint32_t first, uint32_t channels) {
  const uint8_t* below = src + pitch;
  const V ones = _mm256_set1_epi8(1);
  uint32_t k = 0;
  if (unit == 1 && first == 0 && channels == 1) {
    // 32 outputs from 64 bytes of each line: pairs summed across by a multiply-add
    // with ones, then down, then a quarter.
    for (; k + 32 <= count; k += 32) {
      const uint8_t* a = src + 2 * size_t(k);
      const uint8_t* b = below + 2 * size_t(k);
      const V s0 = _mm256_add_epi16(_mm256_maddubs_epi16(load(a), ones),
                                    _mm256_maddubs_epi16(load(b), ones));
      const V s1 = _mm256_add_epi16(_mm256_maddubs_epi16(load(a + 32), ones),
                                    _mm256_maddubs_epi16(load(b + 32), ones));
      const V r = _mm256_packus_epi16(_mm256_srli_epi16(s0, 2), _mm256_srli_epi16(s1, 2));
      store(dst + k, _mm256_permute4x64_epi64(r, 0xD8));
    }
    return k;
  }
  if (unit == 3 && first == 0 && channels == 3) {
    // 8 outputs from 48 bytes of each line, as four 12-byte chunks (two output pixels
    // each) read 16 bytes at a time: the chunk at 36 reads to byte 52, so a block needs
    // nine output pixels' worth of line. Each chunk's bytes are reordered so that the
    // two samples of one sum sit side by side.
    const V pairs = _mm256_setr_epi8(0, 3, 1, 4, 2, 5, 6, 9, 7, 10, 8, 11, -1, -1, -1, -1, 0, 3,
                                     1, 4, 2, 5, 6, 9, 7, 10, 8, 11, -1, -1, -1, -1);
    const V compact = _mm256_setr_epi8(0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, -1, -1, -1, -1, 0,
                                       1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, -1, -1, -1, -1);
    auto sums = [&](const uint8_t* a, const uint8_t* b) {
      return _mm256_srli_epi16(
          _mm256_add_epi16(_mm256_maddubs_epi16(_mm256_shuffle_epi8(load2(a, a + 24), pairs), ones),
                           _mm256_maddubs_epi16(_mm256_shuffle_epi8(load2(b, b + 24), pairs), ones)),
          2);
    };
    for (; k + 9 <= count; k += 8) {
      const uint8_t* a = src + 6 * size_t(k);
      const uint8_t* b = below + 6 * size_t(k);
      // Low lane: chunks 0 and 1 (outputs k..k+3); high lane: chunks 2 and 3.
      const V r = _mm256_shuffle_epi8(_mm256_packus_epi16(sums(a, b), sums(a + 12, b + 12)),
                                      compact);
      store12(dst + 3 * size_t(k), _mm256_castsi256_si128(r));
      store12(dst + 3 * size_t(k) + 12, _mm256_extracti128_si256(r, 1));
    }
    return k;
  }
  return 0;
}

size_t zoom_down(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, size_t count,
                 uint32_t wy0, uint32_t wy1) {
  // 8-bit samples only: products stay below 2^32 as in the scalar kernel, and the
  // result keeps its low byte as the scalar cast does (tables summing past 1.0 can
  // exceed 255), so it is masked rather than saturated.
  const V a = _mm256_set1_epi32(int(wy0)), b = _mm256_set1_epi32(int(wy1));
  const V low = _mm256_set1_epi32(0xFF);
  auto one = [&](size_t k) {
    const V t = _mm256_loadu_si256(reinterpret_cast<const V*>(top + k));
    const V u = _mm256_loadu_si256(reinterpret_cast<const V*>(bottom + k));
    return _mm256_and_si256(
        _mm256_srli_epi32(_mm256_add_epi32(_mm256_mullo_epi32(t, a), _mm256_mullo_epi32(u, b)), 15),
        low);
  };
  size_t k = 0;
  for (; k + 16 <= count; k += 16) {
    const V w = _mm256_permute4x64_epi64(_mm256_packus_epi32(one(k), one(k + 8)), 0xD8);
    const __m128i lo = _mm256_castsi256_si128(w), hi = _mm256_extracti128_si256(w, 1);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + k), _mm_packus_epi16(lo, hi));
  }
  return k;
}

uint32_t gather_block(const uint8_t* src, ptrdiff_t step, uint8_t* dst, ptrdiff_t dst_pitch,
                      uint32_t count) {
  // Eight 4-byte pixels of eight source lines, transposed in registers.
  uint32_t i = 0;
  for (; i + 8 <= count; i += 8) {
    V r[8], t[8];
    for (int m = 0; m < 8; ++m) r[m] = load(src + ptrdiff_t(i + m) * step);
    for (int m = 0; m < 8; m += 2) {
      t[m] = _mm256_unpacklo_epi32(r[m], r[m + 1]);
      t[m + 1] = _mm256_unpackhi_epi32(r[m], r[m + 1]);
    }
    for (int h = 0; h < 8; h += 4) {
      r[h] = _mm256_unpacklo_epi64(t[h], t[h + 2]);
      r[h + 1] = _mm256_unpackhi_epi64(t[h], t[h + 2]);
      r[h + 2] = _mm256_unpacklo_epi64(t[h + 1], t[h + 3]);
      r[h + 3] = _mm256_unpackhi_epi64(t[h + 1], t[h + 3]);
    }
    // r[j] (j < 4) now holds column j of lines 0..3 low and column j + 4 high; r[j + 4]
    // the same for lines 4..7.
    uint8_t* out = dst + 4 * size_t(i);
    for (int j = 0; j < 4; ++j) {
      store(out + j * dst_pitch, _mm256_permute2x128_si256(r[j], r[j + 4], 0x20));
      store(out + (j + 4) * dst_pitch, _mm256_permute2x128_si256(r[j], r[j + 4], 0x31));
    }
  }
  return i;
}

}  // namespace vek::geometry::rows::avx2
