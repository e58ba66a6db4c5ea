// Scalar row kernels of the conversion family: the reference every faster variant
// must match byte for byte. Each (source, target) pair is one instantiation of a
// reader/writer template, so a kernel has no per-pixel format branch.
#include <cstring>

#include "convert/internal.h"
#include "convert/kernels.h"
#include "core/cpu.h"

namespace vek::conv {
namespace {

// ---- readers: one source pixel to 8-bit R, G, B ----------------------------

struct FromY8 {
  static constexpr uint32_t bytes = 1;
  static Rgb load(const uint8_t* p, const RowParams&) { return Rgb{p[0], p[0], p[0]}; }
};
struct FromRgb15 {
  static constexpr uint32_t bytes = 2;
  static Rgb load(const uint8_t* p, const RowParams&) { return expand15(load16(p)); }
};
struct FromRgb16 {
  static constexpr uint32_t bytes = 2;
  static Rgb load(const uint8_t* p, const RowParams&) { return expand16(load16(p)); }
};
// 3-3-2 bits, each field moved to the top of its byte.
struct FromRgb8 {
  static constexpr uint32_t bytes = 1;
  static Rgb load(const uint8_t* p, const RowParams&) {
    return Rgb{p[0] & 0xE0, (p[0] & 0x1C) << 3, (p[0] & 3) << 6};
  }
};
template <int R, int G, int B, uint32_t N>
struct FromBytes {
  static constexpr uint32_t bytes = N;
  static Rgb load(const uint8_t* p, const RowParams&) { return Rgb{p[R], p[G], p[B]}; }
};
using FromRgb24 = FromBytes<0, 1, 2, 3>;
using FromBgr24 = FromBytes<2, 1, 0, 3>;
using FromRgbx32 = FromBytes<0, 1, 2, 4>;
using FromBgrx32 = FromBytes<2, 1, 0, 4>;
using FromXbgr32 = FromBytes<3, 2, 1, 4>;
struct FromY16 {
  static constexpr uint32_t bytes = 2;
  static Rgb load(const uint8_t* p, const RowParams& k) {
    const int32_t v = (load16(p) >> k.shift) & 0xFF;
    return Rgb{v, v, v};
  }
};
struct FromPaletted {
  static constexpr uint32_t bytes = 1;
  static Rgb load(const uint8_t* p, const RowParams& k) {
    const CmapEntry& e = k.cmap[p[0]];
    return Rgb{e.r, e.g, e.b};
  }
};

// ---- writers: 8-bit R, G, B to one target pixel ------------------------------

template <int R, int G, int B, int X, uint32_t N>
struct ToBytes {
  static constexpr uint32_t bytes = N;
  static void store(uint8_t* p, Rgb c) {
    p[R] = uint8_t(c.r);
    p[G] = uint8_t(c.g);
    p[B] = uint8_t(c.b);
    if constexpr (X >= 0) p[X] = 0;
  }
};
using ToRgb24 = ToBytes<0, 1, 2, -1, 3>;
using ToBgr24 = ToBytes<2, 1, 0, -1, 3>;
using ToRgbx32 = ToBytes<0, 1, 2, 3, 4>;
using ToBgrx32 = ToBytes<2, 1, 0, 3, 4>;
using ToXbgr32 = ToBytes<3, 2, 1, 0, 4>;
using ToXrgb32 = ToBytes<1, 2, 3, 0, 4>;
struct ToRgb15 {
  static constexpr uint32_t bytes = 2;
  static void store(uint8_t* p, Rgb c) { store16(p, pack15(c.r, c.g, c.b)); }
};
struct ToRgb16 {
  static constexpr uint32_t bytes = 2;
  static void store(uint8_t* p, Rgb c) { store16(p, pack16(c.r, c.g, c.b)); }
};
struct ToY8 {
  static constexpr uint32_t bytes = 1;
  static void store(uint8_t* p, Rgb c) { p[0] = grey_of(c.r, c.g, c.b); }
};
struct ToCmyk32 {
  static constexpr uint32_t bytes = 4;
  static void store(uint8_t* p, Rgb c) {
    p[0] = uint8_t(255 - c.r);
    p[1] = uint8_t(255 - c.g);
    p[2] = uint8_t(255 - c.b);
    p[3] = 0;
  }
};

template <class In, class Out>
void pixel_row(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams& k) {
  for (uint32_t x = 0; x < width; ++x, src += In::bytes, dst += Out::bytes)
    Out::store(dst, In::load(src, k));
}

// RGB family to YUV 4:2:2: the pair shares the mean of its two chroma values.
template <class In>
void yuv_row(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams& k) {
  for (uint32_t x = 0; x + 1 < width; x += 2, src += 2 * In::bytes, dst += 4) {
    const Rgb a = In::load(src, k), b = In::load(src + In::bytes, k);
    const Yuv p = rgb_to_yuv(a.r, a.g, a.b), q = rgb_to_yuv(b.r, b.g, b.b);
    dst[0] = p.y;
    dst[1] = uint8_t((p.u + q.u) >> 1);
    dst[2] = q.y;
    dst[3] = uint8_t((p.v + q.v) >> 1);
  }
}

void y8_to_y16(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams& k) {
  const uint32_t bits = k.dst_width_bits;
  for (uint32_t x = 0; x < width; ++x)
    store16(dst + 2 * x, bits >= 8 ? uint32_t(src[x]) << (bits - 8) : src[x] >> (8 - bits));
}

// Without the final shift, so full-scale white is 255 * 256 = 65280.
void rgb24_to_y16(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams&) {
  for (uint32_t x = 0; x < width; ++x, src += 3)
    store16(dst + 2 * x, 77u * src[0] + 150u * src[1] + 29u * src[2]);
}

// ---- YUV 4:2:2 sources -----------------------------------------------------

void yuv_to_y8(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams&) {
  for (uint32_t x = 0; x < width; ++x) dst[x] = src[2 * x];
}

void yuv_to_y16(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams&) {
  for (uint32_t x = 0; x < width; ++x) store16(dst + 2 * x, uint32_t(src[2 * x]) << 8);
}

// 1024 * Y is a multiple of 1024, so (1024 * Y + k) >> 10 == Y + (k >> 10): the
// chroma terms of yuv_to_rgb are computed once per pair and added to each luma.
template <class Out>
void yuv_direct_row(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams&) {
  for (uint32_t x = 0; x + 1 < width; x += 2, src += 4, dst += 2 * Out::bytes) {
    const int32_t du = int32_t(src[1]) - 128, dv = int32_t(src[3]) - 128;
    const int32_t r = (1436 * dv) >> 10, g = (-731 * dv - 352 * du) >> 10, b = (1815 * du) >> 10;
    const int32_t y0 = src[0], y1 = src[2];
    Out::store(dst, Rgb{clamp255(y0 + r), clamp255(y0 + g), clamp255(y0 + b)});
    Out::store(dst + Out::bytes, Rgb{clamp255(y1 + r), clamp255(y1 + g), clamp255(y1 + b)});
  }
}

// Table-driven: every target but RGB15/RGB16 expands the RGB16 word.
template <class Out>
void yuv_table_row(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams& k) {
  const uint16_t* t = k.table16;
  for (uint32_t x = 0; x + 1 < width; x += 2, src += 4, dst += 2 * Out::bytes) {
    Out::store(dst, expand16(t[yuv_index19(src[0], src[1], src[3])]));
    Out::store(dst + Out::bytes, expand16(t[yuv_index19(src[2], src[1], src[3])]));
  }
}

void yuv_table_word_row(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams& k) {
  const uint16_t* t = k.table16;
  for (uint32_t x = 0; x + 1 < width; x += 2, src += 4, dst += 4) {
    store16(dst, t[yuv_index19(src[0], src[1], src[3])]);
    store16(dst + 2, t[yuv_index19(src[2], src[1], src[3])]);
  }
}

// Saturation of both pixels of a pair is taken against the even pixel's luma.
void yuv_to_hsi(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams& k) {
  for (uint32_t x = 0; x + 1 < width; x += 2, src += 4, dst += 8) {
    const uint32_t y0 = src[0], u = src[1], v = src[3];
    for (int i = 0; i < 2; ++i) {
      const uint32_t y = src[2 * i];
      const Rgb c = yuv_to_rgb(int32_t(y), int32_t(u), int32_t(v));
      const uint32_t m = uint32_t(c.r < c.g ? (c.r < c.b ? c.r : c.b) : (c.g < c.b ? c.g : c.b));
      const uint32_t hue = y > 20 ? k.hue[(u << 8) | v] : 180u;
      const uint32_t sat = y0 == 0 ? 0u : (255u - ((255u * m / y0) & 0xFFu)) & 0xFFu;
      uint8_t* out = dst + 4 * i;
      store16(out, hue);
      out[2] = uint8_t(sat);
      out[3] = uint8_t(y);
    }
  }
}

// ---- table-driven conversions to paletted ---------------------------------

void rgb16_to_pal(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams& k) {
  for (uint32_t x = 0; x < width; ++x) dst[x] = k.table8[load16(src + 2 * x)];
}

void y8_to_pal(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams& k) {
  for (uint32_t x = 0; x < width; ++x) dst[x] = k.table8[src[x]];
}

// Words above the table's data width saturate at its last entry.
void y16_to_pal(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams& k) {
  for (uint32_t x = 0; x < width; ++x) {
    const uint32_t w = load16(src + 2 * x);
    dst[x] = k.table8[w < k.table8_last ? w : k.table8_last];
  }
}

void yuv_to_pal(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams& k) {
  for (uint32_t x = 0; x + 1 < width; x += 2, src += 4, dst += 2) {
    dst[0] = k.table8[yuv_index15(src[0], src[1], src[3])];
    dst[1] = k.table8[yuv_index15(src[2], src[1], src[3])];
  }
}

// ---- vector acceleration ---------------------------------------------------

// A vector block kernel for the leading blocks, this scalar kernel for the rest.
template <const simd::BlockKernel* Blocks, simd::Pair P, RowKernel Scalar, uint32_t In,
          uint32_t Out>
void accelerated(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams& k) {
  const uint32_t done = Blocks[P](src, dst, width);
  if (done < width) Scalar(src + size_t(done) * In, dst + size_t(done) * Out, width - done, k);
}

// The best kernel this CPU (minus any test mask) allows for a pair, decided once per
// call by walking the ISA ladder best-first down to the scalar kernel.
template <simd::Pair P, RowKernel Scalar, uint32_t In, uint32_t Out>
RowKernel hot() {
#if VEK_CONVERT_X86_KERNELS
  if (cpu::has(cpu::kAvx2) && simd::kAvx2Blocks[P])
    return accelerated<simd::kAvx2Blocks, P, Scalar, In, Out>;
#endif
  return Scalar;
}

// Pairs of the RGB family with vector kernels; null for the others.
RowKernel hot_rgb(uint16_t source, uint16_t target) {
  using namespace simd;
  switch (target) {
    case VEK_Y8:
      switch (source) {
        case VEK_RGB24: return hot<kRgb24ToY8, pixel_row<FromRgb24, ToY8>, 3, 1>();
        case VEK_BGR24: return hot<kBgr24ToY8, pixel_row<FromBgr24, ToY8>, 3, 1>();
        case VEK_BGRX32: return hot<kBgrx32ToY8, pixel_row<FromBgrx32, ToY8>, 4, 1>();
        case VEK_YUV422: return hot<kYuvToY8, yuv_to_y8, 2, 1>();
        default: return nullptr;
      }
    case VEK_YUV422:
      switch (source) {
        case VEK_RGB24: return hot<kRgb24ToYuv, yuv_row<FromRgb24>, 3, 2>();
        case VEK_BGR24: return hot<kBgr24ToYuv, yuv_row<FromBgr24>, 3, 2>();
        case VEK_BGRX32: return hot<kBgrx32ToYuv, yuv_row<FromBgrx32>, 4, 2>();
        default: return nullptr;
      }
    case VEK_RGB24:
      if (source == VEK_BGR24) return hot<kSwap24, pixel_row<FromBgr24, ToRgb24>, 3, 3>();
      if (source == VEK_BGRX32) return hot<kBgrx32ToRgb24, pixel_row<FromBgrx32, ToRgb24>, 4, 3>();
      return nullptr;
    case VEK_BGR24:
      if (source == VEK_RGB24) return hot<kSwap24, pixel_row<FromRgb24, ToBgr24>, 3, 3>();
      return nullptr;
    case VEK_BGRX32:
      if (source == VEK_RGB24) return hot<kRgb24ToBgrx32, pixel_row<FromRgb24, ToBgrx32>, 3, 4>();
      return nullptr;
    default: return nullptr;
  }
}

// ---- kernel tables ---------------------------------------------------------

template <class Out>
RowKernel from_source(uint16_t source) {
  switch (source) {
    case VEK_Y8:
    case VEK_RGGB32: return pixel_row<FromY8, Out>;
    case VEK_PALETTED: return pixel_row<FromPaletted, Out>;
    case VEK_RGB8: return pixel_row<FromRgb8, Out>;
    case VEK_RGB15: return pixel_row<FromRgb15, Out>;
    case VEK_RGB16: return pixel_row<FromRgb16, Out>;
    case VEK_RGB24: return pixel_row<FromRgb24, Out>;
    case VEK_BGR24: return pixel_row<FromBgr24, Out>;
    case VEK_RGBX32: return pixel_row<FromRgbx32, Out>;
    case VEK_BGRX32: return pixel_row<FromBgrx32, Out>;
    case VEK_XBGR32: return pixel_row<FromXbgr32, Out>;
    case VEK_Y16: return pixel_row<FromY16, Out>;
    default: return nullptr;
  }
}

RowKernel to_yuv(uint16_t source) {
  switch (source) {
    case VEK_Y8: return yuv_row<FromY8>;
    case VEK_PALETTED: return yuv_row<FromPaletted>;
    case VEK_RGB24: return yuv_row<FromRgb24>;
    case VEK_BGR24: return yuv_row<FromBgr24>;
    case VEK_RGBX32: return yuv_row<FromRgbx32>;
    case VEK_BGRX32: return yuv_row<FromBgrx32>;
    case VEK_XBGR32: return yuv_row<FromXbgr32>;
    case VEK_Y16: return yuv_row<FromY16>;  // the caller sets shift 8: Y is the high byte
    default: return nullptr;
  }
}

}  // namespace

RowKernel rgb_kernel(uint16_t source, uint16_t target) {
  if (RowKernel k = hot_rgb(source, target)) return k;
  switch (target) {
    case VEK_RGB24: return from_source<ToRgb24>(source);
    case VEK_BGR24: return from_source<ToBgr24>(source);
    case VEK_RGBX32: return from_source<ToRgbx32>(source);
    case VEK_BGRX32: return from_source<ToBgrx32>(source);
    case VEK_XBGR32: return from_source<ToXbgr32>(source);
    case VEK_XRGB32: return from_source<ToXrgb32>(source);
    case VEK_RGB15: return from_source<ToRgb15>(source);
    case VEK_RGB16: return from_source<ToRgb16>(source);
    case VEK_CMYK32: return from_source<ToCmyk32>(source);
    case VEK_Y8:
      if (source == VEK_YUV422) return yuv_to_y8;
      return from_source<ToY8>(source);
    case VEK_Y16:
      if (source == VEK_Y8) return y8_to_y16;
      if (source == VEK_RGB24) return rgb24_to_y16;
      return nullptr;
    case VEK_YUV422: return to_yuv(source);
    default: return nullptr;
  }
}

RowKernel paletted_lut_kernel(uint16_t source) {
  switch (source) {
    case VEK_RGB16: return rgb16_to_pal;
    case VEK_Y8: return y8_to_pal;
    case VEK_Y16: return y16_to_pal;
    case VEK_YUV422: return yuv_to_pal;
    default: return nullptr;
  }
}

RowKernel yuv_kernel(uint16_t target, bool table) {
  if (table) {
    switch (target) {
      case VEK_RGB15:
      case VEK_RGB16: return yuv_table_word_row;
      case VEK_RGB24: return yuv_table_row<ToRgb24>;
      case VEK_BGR24: return yuv_table_row<ToBgr24>;
      case VEK_RGBX32: return yuv_table_row<ToRgbx32>;
      case VEK_BGRX32: return yuv_table_row<ToBgrx32>;
      case VEK_XBGR32: return yuv_table_row<ToXbgr32>;
      case VEK_XRGB32: return yuv_table_row<ToXrgb32>;
      default: return nullptr;
    }
  }
  switch (target) {
    case VEK_Y8: return hot<simd::kYuvToY8, yuv_to_y8, 2, 1>();
    case VEK_Y16: return yuv_to_y16;
    case VEK_HSI: return yuv_to_hsi;
    case VEK_RGB15: return yuv_direct_row<ToRgb15>;
    case VEK_RGB16: return yuv_direct_row<ToRgb16>;
    case VEK_RGB24: return hot<simd::kYuvToRgb24, yuv_direct_row<ToRgb24>, 2, 3>();
    case VEK_BGR24: return hot<simd::kYuvToBgr24, yuv_direct_row<ToBgr24>, 2, 3>();
    case VEK_RGBX32: return hot<simd::kYuvToRgbx32, yuv_direct_row<ToRgbx32>, 2, 4>();
    case VEK_BGRX32: return hot<simd::kYuvToBgrx32, yuv_direct_row<ToBgrx32>, 2, 4>();
    case VEK_XBGR32: return hot<simd::kYuvToXbgr32, yuv_direct_row<ToXbgr32>, 2, 4>();
    case VEK_XRGB32: return hot<simd::kYuvToXrgb32, yuv_direct_row<ToXrgb32>, 2, 4>();
    default: return nullptr;
  }
}

}  // namespace vek::conv

#if !VEK_X86
// Without the x86 kernel files every pair runs on its portable kernel alone.
namespace vek::conv::simd {
const BlockKernel kAvx2Blocks[kPairCount] = {};
}  // namespace vek::conv::simd
#endif
