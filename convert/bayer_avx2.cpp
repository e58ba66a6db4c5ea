// AVX2 demosaic line kernels: sixteen pixels a block in 16-bit lanes, the same roles
// and arithmetic as the portable kernel (whose bytes they must reproduce), with the
// border pixels and line tails left to the portable code.
#include <immintrin.h>

#include "convert/bayer_kernels.h"

namespace vek::bayer {
namespace {

inline __m256i load16(const uint8_t* p) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

// `a` in the even lanes (even columns), `b` in the odd ones.
inline __m256i even_odd(__m256i a, __m256i b) { return _mm256_blend_epi16(a, b, 0xAA); }

inline __m256i sum4(__m256i a, __m256i b, __m256i c, __m256i d) {
  return _mm256_add_epi16(_mm256_add_epi16(a, b), _mm256_add_epi16(c, d));
}

// Mean of the two middle values of four, as in the portable kernel.
inline __m256i mid4(__m256i a, __m256i b, __m256i c, __m256i d) {
  const __m256i lo = _mm256_max_epu16(_mm256_min_epu16(a, b), _mm256_min_epu16(c, d));
  const __m256i hi = _mm256_min_epu16(_mm256_max_epu16(a, b), _mm256_max_epu16(c, d));
  return _mm256_srli_epi16(_mm256_add_epi16(lo, hi), 1);
}

template <Output O>
inline void store16(uint8_t* dst, __m256i r, __m256i g, __m256i b) {
  if constexpr (O == Output::Bgrx32) {
    const __m256i bg = _mm256_or_si256(b, _mm256_slli_epi16(g, 8));
    // Interleaving works within 128-bit halves: lo holds pixels 0-3 and 8-11, hi 4-7
    // and 12-15; the permutes put them back in order.
    const __m256i lo = _mm256_unpacklo_epi16(bg, r);
    const __m256i hi = _mm256_unpackhi_epi16(bg, r);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), _mm256_permute2x128_si256(lo, hi, 0x20));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 32),
                        _mm256_permute2x128_si256(lo, hi, 0x31));
  } else {
    const __m256i w = _mm256_or_si256(
        _mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(r, _mm256_set1_epi16(0xF8)), 8),
                        _mm256_slli_epi16(_mm256_and_si256(g, _mm256_set1_epi16(0xFC)), 3)),
        _mm256_srli_epi16(b, 3));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), w);
  }
}

template <int Scheme, bool RedLine, bool GreenFirst, Output O>
struct Avx2Line {
  using Scalar = ScalarLine<Scheme, RedLine, GreenFirst, O>;
  static constexpr size_t kB = kOutBytes<O>;

  // Sixteen pixels from an even column; reads columns -1 .. 16 of the three lines.
  static inline void block(const uint8_t* up, const uint8_t* mid, const uint8_t* dn,
                           uint8_t* dst) {
    const __m256i m = load16(mid), ml = load16(mid - 1), mr = load16(mid + 1);
    const __m256i u = load16(up);
    // Values at colour sites (c*) and at green sites (g*): C the line's colour, O the
    // other lines' colour.
    __m256i cg, co, gc, go;
    if constexpr (Scheme == 1) {
      const __m256i partner = even_odd(mr, ml);
      cg = partner;
      co = even_odd(load16(up + 1), load16(up - 1));
      gc = partner;
      go = u;
    } else {
      const __m256i d = load16(dn);
      const __m256i ul = load16(up - 1), ur = load16(up + 1);
      const __m256i dl = load16(dn - 1), dr = load16(dn + 1);
      if constexpr (Scheme == 2) {
        cg = _mm256_srli_epi16(sum4(ml, mr, u, d), 2);
        co = _mm256_srli_epi16(sum4(ul, ur, dl, dr), 2);
      } else {
        cg = mid4(ml, mr, u, d);
        co = mid4(ul, ur, dl, dr);
      }
      gc = _mm256_srli_epi16(_mm256_add_epi16(ml, mr), 1);
      go = _mm256_srli_epi16(_mm256_add_epi16(u, d), 1);
    }
    __m256i c, g, o;
    if constexpr (GreenFirst) {
      c = even_odd(gc, m);
      g = even_odd(m, cg);
      o = even_odd(go, co);
    } else {
      c = even_odd(m, gc);
      g = even_odd(cg, m);
      o = even_odd(co, go);
    }
    if constexpr (RedLine) {
      store16<O>(dst, c, g, o);
    } else {
      store16<O>(dst, o, g, c);
    }
  }

  static void line(const uint8_t* up, const uint8_t* mid, const uint8_t* dn, uint8_t* dst,
                   size_t n) {
    Scalar::head(up, mid, dn, dst, n);
    size_t x = 2;
    for (; x + 17 <= n; x += 16) block(up + x, mid + x, dn + x, dst + x * kB);
    Scalar::span(up, mid, dn, dst, n, x);
  }
};

}  // namespace

namespace detail {
DemosaicFn avx2_driver(int scheme, int phase, Output output) {
  if (scheme < 1 || scheme > 3 || phase < 1 || phase > 4) return nullptr;
  return output == Output::Bgrx32 ? DriverTable<Avx2Line, Output::Bgrx32>::get(scheme, phase)
                                  : DriverTable<Avx2Line, Output::Rgb16>::get(scheme, phase);
}
}  // namespace detail

}  // namespace vek::bayer
