// The portable demosaic row kernel, shared by the scalar drivers and, for the border
// pixels and line tails, by the SIMD ones. Everything here has internal linkage so that
// a translation unit compiled with ISA flags gets its own copy instead of lending one
// to code that must run on any CPU.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "convert/bayer.h"

namespace vek::bayer {
namespace {

inline uint32_t avg2(uint32_t a, uint32_t b) { return (a + b) >> 1; }

// Mean of the two middle values of four: of the two pair minima the larger, and of
// the two pair maxima the smaller, are exactly the values left once the overall
// largest and smallest are dropped.
inline uint32_t mid4(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
  const uint32_t lo = std::max(std::min(a, b), std::min(c, d));
  const uint32_t hi = std::min(std::max(a, b), std::max(c, d));
  return (lo + hi) >> 1;
}

template <int Scheme>
inline uint32_t four(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
  if constexpr (Scheme == 3) {
    return mid4(a, b, c, d);
  } else {
    return (a + b + c + d) >> 2;
  }
}

template <Output O>
inline constexpr size_t kOutBytes = O == Output::Bgrx32 ? 4 : 2;

template <Output O>
inline void store(uint8_t* p, uint32_t r, uint32_t g, uint32_t b) {
  if constexpr (O == Output::Bgrx32) {
    p[0] = static_cast<uint8_t>(b);
    p[1] = static_cast<uint8_t>(g);
    p[2] = static_cast<uint8_t>(r);
    p[3] = 0;
  } else {
    const uint32_t w = (r & 0xF8u) << 8 | (g & 0xFCu) << 3 | b >> 3;
    p[0] = static_cast<uint8_t>(w);  // little-endian 16-bit word
    p[1] = static_cast<uint8_t>(w >> 8);
  }
}

// The pixels of one line carrying colour C (red when RedLine) whose neighbouring lines
// carry O. Column arguments are already resolved against the borders.
template <int Scheme, bool RedLine, Output O>
struct Roles {
  static inline void emit(uint32_t c, uint32_t g, uint32_t o, uint8_t* out) {
    if constexpr (RedLine) {
      store<O>(out, c, g, o);
    } else {
      store<O>(out, o, g, c);
    }
  }
  static inline void colour_site(const uint8_t* up, const uint8_t* mid, const uint8_t* dn,
                                 size_t xl, size_t x, size_t xr, size_t partner, uint8_t* out) {
    uint32_t g, o;
    if constexpr (Scheme == 1) {
      g = mid[partner];
      o = up[partner];
    } else {
      g = four<Scheme>(mid[xl], mid[xr], up[x], dn[x]);
      o = four<Scheme>(up[xl], up[xr], dn[xl], dn[xr]);
    }
    emit(mid[x], g, o, out);
  }
  static inline void green_site(const uint8_t* up, const uint8_t* mid, const uint8_t* dn,
                                size_t xl, size_t x, size_t xr, size_t partner, uint8_t* out) {
    uint32_t c, o;
    if constexpr (Scheme == 1) {
      c = mid[partner];
      o = up[x];
    } else {
      c = avg2(mid[xl], mid[xr]);
      o = avg2(up[x], dn[x]);
    }
    emit(c, mid[x], o, out);
  }
};

// One output line. Pixels go two at a time (one cell column per iteration); the first
// pair and the last one or two pixels resolve their outside neighbours by reflection:
// column -1 reads column 1 and column n reads n - 2; a one-pixel line reads itself.
template <int Scheme, bool RedLine, bool GreenFirst, Output O>
struct ScalarLine {
  using R = Roles<Scheme, RedLine, O>;
  static constexpr size_t kB = kOutBytes<O>;

  // Even columns pair with their right neighbour, odd ones with their left.
  static inline void first(const uint8_t* up, const uint8_t* mid, const uint8_t* dn,
                           uint8_t* dst, size_t xl, size_t x, size_t xr) {
    if constexpr (GreenFirst) {
      R::green_site(up, mid, dn, xl, x, xr, xr, dst + x * kB);
    } else {
      R::colour_site(up, mid, dn, xl, x, xr, xr, dst + x * kB);
    }
  }
  static inline void second(const uint8_t* up, const uint8_t* mid, const uint8_t* dn,
                            uint8_t* dst, size_t xl, size_t x, size_t xr) {
    if constexpr (GreenFirst) {
      R::colour_site(up, mid, dn, xl, x, xr, xl, dst + x * kB);
    } else {
      R::green_site(up, mid, dn, xl, x, xr, xl, dst + x * kB);
    }
  }
  static inline size_t right_edge(size_t i, size_t n) {
    return i < n ? i : (n > 1 ? 2 * (n - 1) - i : 0);
  }

  // Pixels 0 and 1.
  static void head(const uint8_t* up, const uint8_t* mid, const uint8_t* dn, uint8_t* dst,
                   size_t n) {
    first(up, mid, dn, dst, n > 1 ? 1 : 0, 0, right_edge(1, n));
    if (n > 1) second(up, mid, dn, dst, 0, 1, right_edge(2, n));
  }
  // Pixels from the even column `x` (at least 2) to the end of the line.
  static void span(const uint8_t* up, const uint8_t* mid, const uint8_t* dn, uint8_t* dst,
                   size_t n, size_t x) {
    for (; x + 2 < n; x += 2) {
      first(up, mid, dn, dst, x - 1, x, x + 1);
      second(up, mid, dn, dst, x, x + 1, x + 2);
    }
    if (x < n) first(up, mid, dn, dst, x - 1, x, right_edge(x + 1, n));
    if (x + 1 < n) second(up, mid, dn, dst, x, x + 1, right_edge(x + 2, n));
  }
  static void line(const uint8_t* up, const uint8_t* mid, const uint8_t* dn, uint8_t* dst,
                   size_t n) {
    head(up, mid, dn, dst, n);
    span(up, mid, dn, dst, n, 2);
  }
};

// The whole-image driver: a phase fixes which line kernel serves even and which odd
// lines. Line -1 reads line 1 (which is also scheme 1's "line above" of the first
// line) and line h reads h - 2.
template <template <int, bool, bool, Output> class Line, int Scheme, int Phase, Output O>
void demosaic_image(const uint8_t* src, size_t src_stride, uint8_t* dst, size_t dst_stride,
                    uint32_t width, uint32_t height) {
  constexpr bool kRed0 = Phase == 1 || Phase == 2;
  constexpr bool kGreen0 = Phase == 2 || Phase == 3;
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* mid = src + size_t(y) * src_stride;
    const uint8_t* up = y > 0 ? mid - src_stride : (height > 1 ? mid + src_stride : mid);
    const uint8_t* dn = y + 1 < height ? mid + src_stride : (height > 1 ? mid - src_stride : mid);
    uint8_t* out = dst + size_t(y) * dst_stride;
    if (y & 1) {
      Line<Scheme, !kRed0, !kGreen0, O>::line(up, mid, dn, out, width);
    } else {
      Line<Scheme, kRed0, kGreen0, O>::line(up, mid, dn, out, width);
    }
  }
}

// The 24 drivers of one line-kernel family, indexed [scheme - 1][phase - 1].
template <template <int, bool, bool, Output> class Line, Output O>
struct DriverTable {
  template <int Scheme>
  static constexpr DemosaicFn kPhases[4] = {
      &demosaic_image<Line, Scheme, 1, O>, &demosaic_image<Line, Scheme, 2, O>,
      &demosaic_image<Line, Scheme, 3, O>, &demosaic_image<Line, Scheme, 4, O>};
  static DemosaicFn get(int scheme, int phase) {
    static constexpr const DemosaicFn* kSchemes[3] = {kPhases<1>, kPhases<2>, kPhases<3>};
    return kSchemes[scheme - 1][phase - 1];
  }
};

}  // namespace
}  // namespace vek::bayer
