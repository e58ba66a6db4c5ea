// Row kernels of the geometric operations: plain loops over one line that know
// nothing of handles, errors or allocation. The scalar versions are the reference.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vek::geometry::rows {

// dst = src with its `width` pixels of `bytes` bytes (1..4) in reverse order.
void mirror(const uint8_t* src, uint8_t* dst, uint32_t width, uint32_t bytes);

// YUV 4:2:2 mirror: Y bytes in fully reversed pixel order, each pair's U and V taken
// from the mirrored pair. An odd last pixel keeps its own chroma byte.
void mirror_yuv(const uint8_t* src, uint8_t* dst, uint32_t width);

// dst[i] = pixel at src + i * step (bytes apart), `count` pixels of `bytes` bytes:
// gathers one column of a strip, read upwards when step is negative.
void gather(const uint8_t* src, ptrdiff_t step, uint8_t* dst, uint32_t count, uint32_t bytes);

// `lanes` neighbouring columns gathered at once (the cache-friendly form of a quarter
// turn): dst line j (dst_pitch bytes apart, may be negative) pixel i = the pixel at
// src + i * step + j * bytes, for j < lanes, i < count.
void gather_block(const uint8_t* src, ptrdiff_t step, uint8_t* dst, ptrdiff_t dst_pitch,
                  uint32_t lanes, uint32_t count, uint32_t bytes);

// The scaling product table: T[p * 257 + j] = (p * (256 - j)) >> 8.
const uint16_t* scale_table();

// Horizontal pass of the scaler, per output column o of a line: Q13 position
// a = o * step, i = a >> 13, f = (a >> 5) & 255, out = T(p[i], f) + T(p[i + 1], 256 - f).
// The columns are the same for every line, so they are worked out once: byte offsets of
// the two samples (reads beyond the last pixel clamped to it) and the fraction.
struct ScaleColumn {
  uint32_t left, right, f;
};
void scale_columns(uint32_t in_width, uint32_t out_width, uint32_t step, uint32_t channels,
                   ScaleColumn* cols);
// `src_bytes` is the input line's length, the bound of every read. `plan`, when given,
// is what scale_plan prepared for these columns (it only speeds the pass up).
void scale_horizontal(const uint8_t* src, size_t src_bytes, uint8_t* dst,
                      const ScaleColumn* cols, uint32_t out_width, uint32_t channels,
                      const uint16_t* table, const uint8_t* plan = nullptr);

// The line-invariant part of the horizontal pass worked out once per strip into
// scale_plan_bytes(out_width) bytes at `plan`.
size_t scale_plan_bytes(uint32_t out_width);
void scale_plan(size_t src_bytes, const ScaleColumn* cols, uint32_t out_width, uint32_t channels,
                uint8_t* plan);

// Vertical pass: dst[k] = T(upper[k], f) + T(lower[k], 256 - f) over `count` bytes.
void scale_vertical(const uint8_t* upper, const uint8_t* lower, uint8_t* dst, size_t count,
                    uint32_t f, const uint16_t* table);

// Every factor-th pixel from column 0, `out_width` pixels of `bytes` bytes.
void pick(const uint8_t* src, uint8_t* dst, uint32_t out_width, uint32_t factor, uint32_t bytes);

// YUV 4:2:2 picking: output pair k = (Y[2fk], U of pair fk, Y[2fk + f], V of pair fk).
void pick_yuv(const uint8_t* src, uint8_t* dst, uint32_t out_pairs, uint32_t factor);

// Binning of one output line: `count` output units of `unit` bytes, each the truncated
// mean over factor units across and factor lines down (`pitch` apart) of bytes
// first..first + channels - 1 of the unit; other bytes are not written.
void bin(const uint8_t* src, size_t pitch, uint8_t* dst, uint32_t count, uint32_t factor,
         uint32_t unit, uint32_t first, uint32_t channels);

// Each of `width` pixels of `bytes` bytes written factor times across.
void replicate(const uint8_t* src, uint8_t* dst, uint32_t width, uint32_t factor, uint32_t bytes);

// YUV 4:2:2 replication of `pairs` input pairs: each Y factor times, and each input
// pair's U and V in all factor output pairs it becomes.
void replicate_yuv(const uint8_t* src, uint8_t* dst, uint32_t pairs, uint32_t factor);

// One output line of the bilinear zoom over samples of `channels` components,
// 8-bit (wide = false) or 16-bit: source column c starts at `x` and advances after
// output column i when adv[i] is 1; columns beyond `last` (the line's last pixel)
// read the last pixel. top/bottom = (p(c) w0 + p(c+1) w1) >> 15, out = (top wy0 +
// bottom wy1) >> 15.
void zoom(const uint8_t* upper, const uint8_t* lower, uint8_t* dst, uint32_t out_width,
          uint32_t x, uint32_t last, const uint16_t* w0, const uint16_t* w1, const uint16_t* adv,
          uint32_t wy0, uint32_t wy1, uint32_t channels, bool wide);

// The zoom in two passes, for lines shared by several output lines: zoom_across
// leaves top = (p(c) w0 + p(c+1) w1) >> 15 of each sample of one source line in
// `across` (out_width * channels values), zoom_down combines two such lines into
// out = (top wy0 + bottom wy1) >> 15. Together they equal zoom() exactly.
void zoom_across(const uint8_t* line, uint32_t* across, uint32_t out_width, uint32_t x,
                 uint32_t last, const uint16_t* w0, const uint16_t* w1, const uint16_t* adv,
                 uint32_t channels, bool wide);
void zoom_down(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, size_t count,
               uint32_t wy0, uint32_t wy1, bool wide);

// AVX2 blocks (process/geometry_avx2.cpp), used only when vek::cpu reports AVX2: each
// does whole blocks of its scalar namesake and returns how many outputs it wrote.
namespace avx2 {
size_t scale_vertical(const uint8_t* upper, const uint8_t* lower, uint8_t* dst, size_t count,
                      uint32_t f);
uint32_t scale_horizontal(const uint8_t* src, size_t src_bytes, uint8_t* dst,
                          const ScaleColumn* cols, uint32_t out_width, uint32_t channels);
uint32_t bin2(const uint8_t* src, size_t pitch, uint8_t* dst, uint32_t count, uint32_t unit,
              uint32_t first, uint32_t channels);
// One-channel shuffle plan: bytes it needs, filling it (returns its blocks of 16
// columns), and the pass over those blocks (returns the columns done).
// Sized without running AVX2 code: 16 columns a block, blocks aligned to 32 bytes.
constexpr size_t kPlanBlockBytes = 160, kPlanAlign = 32;
inline size_t scale_plan_bytes(uint32_t out_width) {
  return kPlanAlign + size_t(out_width / 16) * kPlanBlockBytes;
}
uint32_t scale_plan(size_t src_bytes, const ScaleColumn* cols, uint32_t out_width, uint8_t* plan);
uint32_t scale_planned(const uint8_t* src, uint8_t* dst, const uint8_t* plan, uint32_t blocks);
// zoom_down of 8-bit samples.
size_t zoom_down(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, size_t count,
                 uint32_t wy0, uint32_t wy1);
// gather_block with eight lanes of 4-byte pixels.
uint32_t gather_block(const uint8_t* src, ptrdiff_t step, uint8_t* dst, ptrdiff_t dst_pitch,
                      uint32_t count);
}  // namespace avx2

}  // namespace vek::geometry::rows
