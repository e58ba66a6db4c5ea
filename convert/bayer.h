// Bayer mosaic kernels: the demosaic strip drivers for every (scheme, phase, output)
// and the row kernels of the cell-wise operations. Nothing here knows about handles,
// errors or allocation; the exported VEK_BAY_ / VEK_IP_Bayer_ functions live in
// convert/bayer.cpp.
//
// Geometry. A phase (1..4) names the filter colours of the first 2 x 2 cell:
//   1: R G / G B    2: G R / B G    3: G B / R G    4: B G / G R
// so every line is either a "red line" (R and G alternate) or a "blue line" (G and B),
// and starts either on green or not. The demosaic row kernel is one template over
// those two facts (which colour the line carries, whether it starts on green), the
// scheme and the output packing; a phase merely picks the two row kernels used on even
// and odd lines, so no pixel ever branches on phase or position.
//
// Neighbour roles at a pixel of a line carrying colour C (red or blue) whose other
// line carries colour O:
//   C site:  own = C;  G from left, right, up, down;  O from the four diagonals.
//   G site:  own = G;  C from left, right;             O from up, down.
// Scheme 2 averages them ((a+b)>>1, (a+b+c+d)>>2); scheme 3 replaces each four-sample
// average by the mean of the two middle values; scheme 1 copies one sample:
//   C site:  G from the cell partner in the same line (the other pixel of the 2 x 2
//            cell column pair), O from the line above at the partner's column;
//   G site:  C from the cell partner, O from the line above at the same column.
//   On the first line "above" means the line below: the first line has none above.
//
// Borders. A neighbour that would lie outside the image is replaced by the sample on
// the opposite side of the pixel (line -1 reads line 1, column w reads column w-2).
// Reflecting by one pixel keeps the filter colours where they are, so only samples of
// the right colour that exist are used, and a four-sample average degenerates to the
// two-sample one: at the first pixel of a reference-phase image green is
// (right + below) >> 1 and blue the single below-right sample. An image one pixel
// wide or high has no sample of some colour at all; there the missing neighbour is the
// pixel itself, which keeps a uniform mosaic grey.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vek::bayer {

enum class Output : uint8_t { Bgrx32, Rgb16 };

// Demosaics a whole `width` x `height` mosaic into BGRX32 (B, G, R, 0) or RGB16 words.
using DemosaicFn = void (*)(const uint8_t* src, size_t src_stride, uint8_t* dst,
                            size_t dst_stride, uint32_t width, uint32_t height);

// Driver for scheme 1..3 and phase 1..4, or null outside those ranges: the best kernel
// set the CPU offers (vek::cpu), the portable one when its features are masked off.
DemosaicFn demosaic_driver(int scheme, int phase, Output output);

// Filter colour (0 red, 1 green, 2 blue) at line parity `row`, column parity `col`.
int colour_at(int phase, int row, int col);

// ---- row kernels of the cell-wise operations ------------------------------

// One output line of the half-size conversion: `cells` BGRX32 pixels from the two
// lines of a cell row. Offsets are the columns (0/1) within a cell of red on `red_line`,
// blue on `blue_line` and green on `line0`.
struct CellLayout {
  const uint8_t* red_line;
  const uint8_t* blue_line;
  int red_col, blue_col, green_col;
};
void half_size_row(const CellLayout& cell, const uint8_t* line0, uint8_t* dst, uint32_t cells);

// Colour balance of one line whose even columns use `lut_even`, odd columns `lut_odd`.
void balance_row(const uint8_t* src, uint8_t* dst, uint32_t width, const uint8_t* lut_even,
                 const uint8_t* lut_odd);

// Keeps the reference-phase component of each RGB24 pixel; `odd_line` picks G,B over R,G.
void mosaic_row(const uint8_t* rgb, uint8_t* dst, uint32_t width, bool odd_line);

// Writes each sample into the channel of its reference-phase colour of an RGB24 pixel.
void false_colour_row(const uint8_t* src, uint8_t* rgb, uint32_t width, bool odd_line);

// One line of one colour plane (RGB24): samples of `channel` taken from `line` at the
// cell column `col` fill both pixels of each cell; the other channels are 0.
void plane_row(const uint8_t* line, uint8_t* rgb, uint32_t width, int channel, int col);

namespace detail {
// The portable demosaic drivers (the reference the SIMD variants are checked against).
DemosaicFn scalar_driver(int scheme, int phase, Output output);
// SIMD drivers where this build and CPU have them, else null.
DemosaicFn simd_driver(int scheme, int phase, Output output);
}  // namespace detail

}  // namespace vek::bayer
