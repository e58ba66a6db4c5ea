// Scalar row kernels of the geometric operations (the reference versions).
#include "process/geometry_rows.h"

#include <array>
#include <cstring>
#include <type_traits>

#include "core/cpu.h"

namespace vek::geometry::rows {

namespace {

template <uint32_t kBytes>
void mirror_fixed(const uint8_t* src, uint8_t* dst, uint32_t width) {
  const uint8_t* s = src + size_t(width) * kBytes;
  for (uint32_t i = 0; i < width; ++i, dst += kBytes) {
    s -= kBytes;
    std::memcpy(dst, s, kBytes);
  }
}

template <uint32_t kBytes>
void replicate_fixed(const uint8_t* src, uint8_t* dst, uint32_t width, uint32_t factor) {
  for (uint32_t i = 0; i < width; ++i, src += kBytes)
    for (uint32_t r = 0; r < factor; ++r, dst += kBytes) std::memcpy(dst, src, kBytes);
}

inline uint32_t sample(const uint8_t* line, size_t index, bool wide) {
  if (!wide) return line[index];
  uint16_t v;
  std::memcpy(&v, line + 2 * index, 2);
  return v;
}

}  // namespace

void mirror(const uint8_t* src, uint8_t* dst, uint32_t width, uint32_t bytes) {
  switch (bytes) {
    case 1: mirror_fixed<1>(src, dst, width); break;
    case 2: mirror_fixed<2>(src, dst, width); break;
    case 3: mirror_fixed<3>(src, dst, width); break;
    case 4: mirror_fixed<4>(src, dst, width); break;
    default: break;
  }
}

void mirror_yuv(const uint8_t* src, uint8_t* dst, uint32_t width) {
  const uint32_t pairs = width / 2;
  for (uint32_t k = 0; k < pairs; ++k) {
    const uint8_t* s = src + 4 * size_t(pairs - 1 - k);
    dst[4 * size_t(k) + 1] = s[1];
    dst[4 * size_t(k) + 3] = s[3];
  }
  if (width & 1u) dst[2 * size_t(width) - 1] = src[2 * size_t(width) - 1];
  for (uint32_t k = 0; k < width; ++k) dst[2 * size_t(k)] = src[2 * size_t(width - 1 - k)];
}

void gather(const uint8_t* src, ptrdiff_t step, uint8_t* dst, uint32_t count, uint32_t bytes) {
  switch (bytes) {
    case 1:
      for (uint32_t i = 0; i < count; ++i, src += step) dst[i] = *src;
      break;
    case 2:
      for (uint32_t i = 0; i < count; ++i, src += step, dst += 2) std::memcpy(dst, src, 2);
      break;
    case 3:
      for (uint32_t i = 0; i < count; ++i, src += step, dst += 3) std::memcpy(dst, src, 3);
      break;
    case 4:
      for (uint32_t i = 0; i < count; ++i, src += step, dst += 4) std::memcpy(dst, src, 4);
      break;
    default: break;
  }
}

namespace {
template <uint32_t kBytes>
void gather_block_fixed(const uint8_t* src, ptrdiff_t step, uint8_t* dst, ptrdiff_t dst_pitch,
                        uint32_t lanes, uint32_t count) {
  // One source line's run of `lanes` pixels per step, spread over the output lines:
  // reads stay sequential and the `lanes` write streams stay in cache.
  for (uint32_t i = 0; i < count; ++i, src += step) {
    uint8_t* d = dst + size_t(i) * kBytes;
    for (uint32_t j = 0; j < lanes; ++j, d += dst_pitch) std::memcpy(d, src + j * kBytes, kBytes);
  }
}
}  // namespace

void gather_block(const uint8_t* src, ptrdiff_t step, uint8_t* dst, ptrdiff_t dst_pitch,
                  uint32_t lanes, uint32_t count, uint32_t bytes) {
  uint32_t done = 0;
  if (bytes == 4 && lanes == 8 && cpu::has(cpu::kAvx2))
    done = avx2::gather_block(src, step, dst, dst_pitch, count);
  src += ptrdiff_t(done) * step;
  dst += size_t(done) * bytes;
  count -= done;
  switch (bytes) {
    case 1: gather_block_fixed<1>(src, step, dst, dst_pitch, lanes, count); break;
    case 2: gather_block_fixed<2>(src, step, dst, dst_pitch, lanes, count); break;
    case 3: gather_block_fixed<3>(src, step, dst, dst_pitch, lanes, count); break;
    case 4: gather_block_fixed<4>(src, step, dst, dst_pitch, lanes, count); break;
    default: break;
  }
}

const uint16_t* scale_table() {
  // 256 sample values x 257 weights j = 0..256: the product p * (256 - j) / 256,
  // truncated, so that an interpolated sample is two look-ups and one addition.
  static const std::array<uint16_t, 256 * 257> table = [] {
    std::array<uint16_t, 256 * 257> t{};
    for (uint32_t p = 0; p < 256; ++p)
      for (uint32_t j = 0; j <= 256; ++j) t[p * 257 + j] = uint16_t((p * (256 - j)) >> 8);
    return t;
  }();
  return table.data();
}

void scale_columns(uint32_t in_width, uint32_t out_width, uint32_t step, uint32_t channels,
                   ScaleColumn* cols) {
  const uint32_t last = in_width - 1;
  uint32_t a = 0;
  for (uint32_t o = 0; o < out_width; ++o, a += step) {
    uint32_t i = a >> 13;
    // The right neighbour is read even at the last column; it is clamped to the
    // last pixel rather than taken from whatever follows the line in memory.
    const uint32_t i1 = i + 1 > last ? last : i + 1;
    if (i > last) i = last;
    cols[o] = ScaleColumn{i * channels, i1 * channels, (a >> 5) & 255u};
  }
}

namespace {
template <uint32_t kChannels>
void scale_horizontal_fixed(const uint8_t* src, uint8_t* dst, const ScaleColumn* cols,
                            uint32_t out_width, const uint16_t* table) {
  for (uint32_t o = 0; o < out_width; ++o, dst += kChannels) {
    const uint16_t* tl = table + cols[o].f;
    const uint16_t* tr = table + (256u - cols[o].f);
    const uint8_t* p0 = src + cols[o].left;
    const uint8_t* p1 = src + cols[o].right;
    for (uint32_t c = 0; c < kChannels; ++c)
      dst[c] = uint8_t(tl[p0[c] * 257u] + tr[p1[c] * 257u]);
  }
}
}  // namespace

// A plan opens with its block count; the blocks follow.
size_t scale_plan_bytes(uint32_t out_width) {
  return sizeof(uint32_t) + avx2::scale_plan_bytes(out_width);
}

void scale_plan(size_t src_bytes, const ScaleColumn* cols, uint32_t out_width, uint32_t channels,
                uint8_t* plan) {
  const uint32_t blocks = channels == 1 && cpu::has(cpu::kAvx2)
                              ? avx2::scale_plan(src_bytes, cols, out_width, plan + sizeof(uint32_t))
                              : 0;
  std::memcpy(plan, &blocks, sizeof blocks);
}

void scale_horizontal(const uint8_t* src, size_t src_bytes, uint8_t* dst,
                      const ScaleColumn* cols, uint32_t out_width, uint32_t channels,
                      const uint16_t* table, const uint8_t* plan) {
  uint32_t done = 0;
  if (cpu::has(cpu::kAvx2)) {
    uint32_t blocks = 0;
    if (plan) std::memcpy(&blocks, plan, sizeof blocks);
    if (blocks) done = avx2::scale_planned(src, dst, plan + sizeof(uint32_t), blocks);
    done += avx2::scale_horizontal(src, src_bytes, dst + size_t(done) * channels, cols + done,
                                   out_width - done, channels);
  }
  dst += size_t(done) * channels;
  cols += done;
  out_width -= done;
  if (channels == 3) scale_horizontal_fixed<3>(src, dst, cols, out_width, table);
  else scale_horizontal_fixed<1>(src, dst, cols, out_width, table);
}

void scale_vertical(const uint8_t* upper, const uint8_t* lower, uint8_t* dst, size_t count,
                    uint32_t f, const uint16_t* table) {
  size_t k = cpu::has(cpu::kAvx2) ? avx2::scale_vertical(upper, lower, dst, count, f) : 0;
  if (count - k < 256) {  // an SIMD tail: fewer samples than building the byte tables takes
    for (; k < count; ++k) dst[k] = uint8_t(table[upper[k] * 257u + f] + table[lower[k] * 257u + 256u - f]);
    return;
  }
  // The two table columns this line uses, gathered once into byte tables (every entry
  // is at most 255) so that the per-sample look-ups stay in the first-level cache.
  uint8_t tu[256], tl[256];
  for (uint32_t v = 0; v < 256; ++v) {
    tu[v] = uint8_t(table[v * 257u + f]);
    tl[v] = uint8_t(table[v * 257u + (256u - f)]);
  }
  for (; k < count; ++k) dst[k] = uint8_t(tu[upper[k]] + tl[lower[k]]);
}

void pick(const uint8_t* src, uint8_t* dst, uint32_t out_width, uint32_t factor, uint32_t bytes) {
  const size_t step = size_t(factor) * bytes;
  for (uint32_t k = 0; k < out_width; ++k, src += step, dst += bytes) std::memcpy(dst, src, bytes);
}

void pick_yuv(const uint8_t* src, uint8_t* dst, uint32_t out_pairs, uint32_t factor) {
  for (uint32_t k = 0; k < out_pairs; ++k, dst += 4) {
    const size_t first = 2 * size_t(factor) * k;  // pixel 2fk opens pair fk
    const uint8_t* pair = src + 2 * first;
    dst[0] = pair[0];
    dst[1] = pair[1];
    dst[2] = src[2 * (first + factor)];
    dst[3] = pair[3];
  }
}

namespace {

// Halving, the common case: each sample the truncated mean of a 2 x 2 block, with the
// unit layout fixed at compile time so the loop has no inner loops and no division.
template <uint32_t kUnit, uint32_t kFirst, uint32_t kChannels>
void bin2_fixed(const uint8_t* src, size_t pitch, uint8_t* dst, uint32_t count) {
  const uint8_t* below = src + pitch;
  for (uint32_t k = 0; k < count; ++k, src += 2 * kUnit, below += 2 * kUnit, dst += kUnit)
    for (uint32_t c = kFirst; c < kFirst + kChannels; ++c)
      dst[c] = uint8_t((src[c] + src[kUnit + c] + below[c] + below[kUnit + c]) >> 2);
}

bool bin2(const uint8_t* src, size_t pitch, uint8_t* dst, uint32_t count, uint32_t unit,
          uint32_t first, uint32_t channels) {
  switch (unit * 100 + first * 10 + channels) {
    case 101: bin2_fixed<1, 0, 1>(src, pitch, dst, count); return true;
    case 303: bin2_fixed<3, 0, 3>(src, pitch, dst, count); return true;
    case 403: bin2_fixed<4, 0, 3>(src, pitch, dst, count); return true;
    case 413: bin2_fixed<4, 1, 3>(src, pitch, dst, count); return true;
    case 404: bin2_fixed<4, 0, 4>(src, pitch, dst, count); return true;
    default: return false;
  }
}

}  // namespace

void bin(const uint8_t* src, size_t pitch, uint8_t* dst, uint32_t count, uint32_t factor,
         uint32_t unit, uint32_t first, uint32_t channels) {
  if (factor == 2) {
    const uint32_t done =
        cpu::has(cpu::kAvx2) ? avx2::bin2(src, pitch, dst, count, unit, first, channels) : 0;
    if (bin2(src + 2 * size_t(done) * unit, pitch, dst + size_t(done) * unit, count - done, unit,
             first, channels))
      return;
  }
  const uint64_t area = uint64_t(factor) * factor;
  const size_t span = size_t(factor) * unit;
  for (uint32_t k = 0; k < count; ++k, src += span, dst += unit) {
    for (uint32_t c = first; c < first + channels; ++c) {
      uint64_t sum = 0;
      const uint8_t* line = src + c;
      for (uint32_t dy = 0; dy < factor; ++dy, line += pitch)
        for (uint32_t dx = 0; dx < factor; ++dx) sum += line[size_t(dx) * unit];
      dst[c] = uint8_t(sum / area);
    }
  }
}

void replicate(const uint8_t* src, uint8_t* dst, uint32_t width, uint32_t factor, uint32_t bytes) {
  switch (bytes) {
    case 1: replicate_fixed<1>(src, dst, width, factor); break;
    case 2: replicate_fixed<2>(src, dst, width, factor); break;
    case 3: replicate_fixed<3>(src, dst, width, factor); break;
    case 4: replicate_fixed<4>(src, dst, width, factor); break;
    default: break;
  }
}

void replicate_yuv(const uint8_t* src, uint8_t* dst, uint32_t pairs, uint32_t factor) {
  for (uint32_t p = 0; p < pairs; ++p, src += 4) {
    // The pair becomes 2f pixels = f pairs: f copies of Y0, then f of Y1.
    for (uint32_t q = 0; q < 2 * factor; ++q) dst[2 * size_t(q)] = q < factor ? src[0] : src[2];
    for (uint32_t j = 0; j < factor; ++j) {
      dst[4 * size_t(j) + 1] = src[1];
      dst[4 * size_t(j) + 3] = src[3];
    }
    dst += 4 * size_t(factor);
  }
}

namespace {
// The zoom with its sample layout fixed at compile time. 8-bit samples keep every
// intermediate below 2^32 (255 * 65535 * 2 summed, then 1023 * 65535 * 2), so they run
// in 32-bit arithmetic; 16-bit samples need 64.
template <uint32_t kChannels, bool kWide>
void zoom_fixed(const uint8_t* upper, const uint8_t* lower, uint8_t* dst, uint32_t out_width,
                uint32_t x, uint32_t last, const uint16_t* w0, const uint16_t* w1,
                const uint16_t* adv, uint32_t wy0, uint32_t wy1) {
  using Acc = std::conditional_t<kWide, uint64_t, uint32_t>;
  uint32_t c = x;
  for (uint32_t i = 0; i < out_width; ++i) {
    const size_t c0 = (c > last ? last : c) * size_t(kChannels);
    const size_t c1 = (c >= last ? last : c + 1) * size_t(kChannels);
    const Acc a0 = w0[i], a1 = w1[i];
    for (uint32_t ch = 0; ch < kChannels; ++ch) {
      const Acc top = (sample(upper, c0 + ch, kWide) * a0 + sample(upper, c1 + ch, kWide) * a1) >> 15;
      const Acc bottom =
          (sample(lower, c0 + ch, kWide) * a0 + sample(lower, c1 + ch, kWide) * a1) >> 15;
      const Acc out = (top * wy0 + bottom * wy1) >> 15;
      const size_t o = size_t(i) * kChannels + ch;
      if constexpr (kWide) {
        const uint16_t v = uint16_t(out);
        std::memcpy(dst + 2 * o, &v, 2);
      } else {
        dst[o] = uint8_t(out);
      }
    }
    if (adv[i] == 1 && c <= last) ++c;
  }
}
}  // namespace

void zoom(const uint8_t* upper, const uint8_t* lower, uint8_t* dst, uint32_t out_width,
          uint32_t x, uint32_t last, const uint16_t* w0, const uint16_t* w1, const uint16_t* adv,
          uint32_t wy0, uint32_t wy1, uint32_t channels, bool wide) {
  if (wide)
    zoom_fixed<1, true>(upper, lower, dst, out_width, x, last, w0, w1, adv, wy0, wy1);
  else if (channels == 3)
    zoom_fixed<3, false>(upper, lower, dst, out_width, x, last, w0, w1, adv, wy0, wy1);
  else
    zoom_fixed<1, false>(upper, lower, dst, out_width, x, last, w0, w1, adv, wy0, wy1);
}

namespace {
template <uint32_t kChannels, bool kWide>
void zoom_across_fixed(const uint8_t* line, uint32_t* across, uint32_t out_width, uint32_t x,
                       uint32_t last, const uint16_t* w0, const uint16_t* w1,
                       const uint16_t* adv) {
  using Acc = std::conditional_t<kWide, uint64_t, uint32_t>;
  uint32_t c = x;
  for (uint32_t i = 0; i < out_width; ++i, across += kChannels) {
    const size_t c0 = (c > last ? last : c) * size_t(kChannels);
    const size_t c1 = (c >= last ? last : c + 1) * size_t(kChannels);
    const Acc a0 = w0[i], a1 = w1[i];
    // At most (65535 * 65535 * 2) >> 15 for 16-bit samples: fits 32 bits.
    for (uint32_t ch = 0; ch < kChannels; ++ch)
      across[ch] = uint32_t((sample(line, c0 + ch, kWide) * a0 + sample(line, c1 + ch, kWide) * a1) >> 15);
    if (adv[i] == 1 && c <= last) ++c;
  }
}
}  // namespace

void zoom_across(const uint8_t* line, uint32_t* across, uint32_t out_width, uint32_t x,
                 uint32_t last, const uint16_t* w0, const uint16_t* w1, const uint16_t* adv,
                 uint32_t channels, bool wide) {
  if (wide) zoom_across_fixed<1, true>(line, across, out_width, x, last, w0, w1, adv);
  else if (channels == 3) zoom_across_fixed<3, false>(line, across, out_width, x, last, w0, w1, adv);
  else zoom_across_fixed<1, false>(line, across, out_width, x, last, w0, w1, adv);
}

void zoom_down(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, size_t count,
               uint32_t wy0, uint32_t wy1, bool wide) {
  if (wide) {
    for (size_t k = 0; k < count; ++k) {
      const uint16_t v = uint16_t((top[k] * uint64_t(wy0) + bottom[k] * uint64_t(wy1)) >> 15);
      std::memcpy(dst + 2 * k, &v, 2);
    }
    return;
  }
  // 8-bit tops are at most 1019 (255 * 65535 * 2 >> 15): 32-bit products suffice.
  size_t k = cpu::has(cpu::kAvx2) ? avx2::zoom_down(top, bottom, dst, count, wy0, wy1) : 0;
  for (; k < count; ++k) dst[k] = uint8_t((top[k] * wy0 + bottom[k] * wy1) >> 15);
}

}  // namespace vek::geometry::rows

#if !VEK_X86
// Without the x86 kernel file the blocks do nothing and the portable loops do it all.
namespace vek::geometry::rows::avx2 {
size_t scale_vertical(const uint8_t*, const uint8_t*, uint8_t*, size_t, uint32_t) { return 0; }
uint32_t scale_horizontal(const uint8_t*, size_t, uint8_t*, const ScaleColumn*, uint32_t, uint32_t) {
  return 0;
}
uint32_t bin2(const uint8_t*, size_t, uint8_t*, uint32_t, uint32_t, uint32_t, uint32_t) { return 0; }
uint32_t scale_plan(size_t, const ScaleColumn*, uint32_t, uint8_t*) { return 0; }
uint32_t scale_planned(const uint8_t*, uint8_t*, const uint8_t*, uint32_t) { return 0; }
size_t zoom_down(const uint32_t*, const uint32_t*, uint8_t*, size_t, uint32_t, uint32_t) { return 0; }
uint32_t gather_block(const uint8_t*, ptrdiff_t, uint8_t*, ptrdiff_t, uint32_t) { return 0; }
}  // namespace vek::geometry::rows::avx2
#endif
