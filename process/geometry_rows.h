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
void scale_horizontal(const uint8_t* src, uint8_t* dst, const ScaleColumn* cols,
                      uint32_t out_width, uint32_t channels, const uint16_t* table);

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

}  // namespace vek::geometry::rows
