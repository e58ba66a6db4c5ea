// Portable Bayer kernels: the 24 scalar demosaic drivers, the SIMD dispatch, and the row
// kernels of the half-size, balance, mosaic and view operations.
#include <algorithm>

#include "convert/bayer.h"
#include "convert/bayer_kernels.h"
#include "core/cpu.h"

namespace vek::bayer {

int colour_at(int phase, int row, int col) {
  // [phase - 1][line parity][column parity]: 0 red, 1 green, 2 blue.
  static constexpr int8_t kLayout[4][2][2] = {
      {{0, 1}, {1, 2}}, {{1, 0}, {2, 1}}, {{1, 2}, {0, 1}}, {{2, 1}, {1, 0}}};
  if (phase < 1 || phase > 4) return -1;
  return kLayout[phase - 1][row & 1][col & 1];
}

namespace detail {
DemosaicFn scalar_driver(int scheme, int phase, Output output) {
  if (scheme < 1 || scheme > 3 || phase < 1 || phase > 4) return nullptr;
  return output == Output::Bgrx32 ? DriverTable<ScalarLine, Output::Bgrx32>::get(scheme, phase)
                                  : DriverTable<ScalarLine, Output::Rgb16>::get(scheme, phase);
}
}  // namespace detail

DemosaicFn demosaic_driver(int scheme, int phase, Output output) {
  if (DemosaicFn fn = detail::simd_driver(scheme, phase, output)) return fn;
  return detail::scalar_driver(scheme, phase, output);
}

// ---- cell-wise row kernels ------------------------------------------------

void half_size_row(const CellLayout& cell, const uint8_t* line0, uint8_t* dst, uint32_t cells) {
  for (size_t i = 0; i < cells; ++i) {
    const size_t x = 2 * i;
    uint8_t* p = dst + 4 * i;
    p[0] = cell.blue_line[x + cell.blue_col];
    p[1] = line0[x + cell.green_col];
    p[2] = cell.red_line[x + cell.red_col];
    p[3] = 0;
  }
}

void balance_row(const uint8_t* src, uint8_t* dst, uint32_t width, const uint8_t* lut_even,
                 const uint8_t* lut_odd) {
  size_t x = 0;
  for (; x + 1 < width; x += 2) {
    dst[x] = lut_even[src[x]];
    dst[x + 1] = lut_odd[src[x + 1]];
  }
  if (x < width) dst[x] = lut_even[src[x]];
}

// In the reference phase the channel of column x is (odd line) + (x & 1): R G on even
// lines, G B on odd ones.
void mosaic_row(const uint8_t* rgb, uint8_t* dst, uint32_t width, bool odd_line) {
  const size_t c = odd_line ? 1 : 0;
  size_t x = 0;
  for (; x + 1 < width; x += 2) {
    dst[x] = rgb[3 * x + c];
    dst[x + 1] = rgb[3 * x + 3 + c + 1];
  }
  if (x < width) dst[x] = rgb[3 * x + c];
}

void false_colour_row(const uint8_t* src, uint8_t* rgb, uint32_t width, bool odd_line) {
  const size_t c = odd_line ? 1 : 0;
  for (size_t x = 0; x < width; ++x) {
    uint8_t* p = rgb + 3 * x;
    p[0] = p[1] = p[2] = 0;
    p[c + (x & 1)] = src[x];
  }
}

void plane_row(const uint8_t* line, uint8_t* rgb, uint32_t width, int channel, int col) {
  for (size_t x = 0; x + 1 < width; x += 2) {
    const uint8_t v = line[x + static_cast<size_t>(col)];
    uint8_t* p = rgb + 3 * x;
    p[0] = p[1] = p[2] = p[3] = p[4] = p[5] = 0;
    p[channel] = v;
    p[3 + channel] = v;
  }
}

}  // namespace vek::bayer

namespace vek::bayer::detail {
#if VEK_X86
DemosaicFn avx2_driver(int scheme, int phase, Output output);  // convert/bayer_avx2.cpp

// Asked on every conversion (a cheap load), so that the tests' feature mask takes
// effect at once.
DemosaicFn simd_driver(int scheme, int phase, Output output) {
  return cpu::has(cpu::kAvx2) ? avx2_driver(scheme, phase, output) : nullptr;
}
#else
DemosaicFn simd_driver(int, int, Output) { return nullptr; }
#endif
}  // namespace vek::bayer::detail
