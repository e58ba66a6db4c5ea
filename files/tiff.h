// Horizontal differencing shared by the TIFF writer and reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vek::tiff {

// A line is differenced in groups of `group` bytes, the first `samples` bytes of each
// group against the same byte of the group before; `words` differences host-order
// 16-bit words instead. group 0 means no differencing.
struct Predictor {
  uint8_t group;
  uint8_t samples;
  bool words;
};

// How the writer differences each of its formats.
inline Predictor predictor_for(uint32_t format) {
  switch (format) {
    case 2: case 3: return {1, 1, false};
    case 7: case 8: case 12: return {3, 3, false};
    case 9: case 10: return {4, 3, false};
    case 14: return {2, 1, true};
    default: return {0, 0, false};
  }
}

// Each sample minus its left neighbour, from the last sample back to the second;
// whole groups only, so a line that is not a multiple of the group keeps its tail.
inline void difference_row(uint8_t* p, size_t n, Predictor pr) {
  if (!pr.group) return;
  if (pr.words) {
    for (size_t i = n / 2; i-- > 1;) {
      uint16_t a, b;
      std::memcpy(&a, p + 2 * i, 2);
      std::memcpy(&b, p + 2 * (i - 1), 2);
      a = static_cast<uint16_t>(a - b);
      std::memcpy(p + 2 * i, &a, 2);
    }
    return;
  }
  const size_t g = pr.group;
  for (size_t i = n / g; i-- > 1;)
    for (size_t k = 0; k < pr.samples; ++k) p[i * g + k] = static_cast<uint8_t>(p[i * g + k] - p[(i - 1) * g + k]);
}

namespace detail {
// Running sums kept in registers: adding each sample to the one stored a group
// before would make every byte wait for the store of the byte it depends on.
template <size_t G, size_t S>
inline void accumulate_groups(uint8_t* p, size_t groups) {
  uint8_t acc[S];
  for (size_t k = 0; k < S; ++k) acc[k] = p[k];
  for (size_t i = 1; i < groups; ++i) {
    uint8_t* q = p + i * G;
    for (size_t k = 0; k < S; ++k) q[k] = acc[k] = static_cast<uint8_t>(acc[k] + q[k]);
  }
}
}  // namespace detail

// The inverse: running sums from the second sample on.
inline void accumulate_row(uint8_t* p, size_t n, Predictor pr) {
  if (!pr.group) return;
  if (pr.words) {
    uint16_t prev;
    if (n < 2) return;
    std::memcpy(&prev, p, 2);
    for (size_t i = 1; i < n / 2; ++i) {
      uint16_t a;
      std::memcpy(&a, p + 2 * i, 2);
      prev = static_cast<uint16_t>(a + prev);
      std::memcpy(p + 2 * i, &prev, 2);
    }
    return;
  }
  const size_t g = pr.group;
  const size_t groups = n / g;
  if (groups == 0) return;
  if (g == 1) return detail::accumulate_groups<1, 1>(p, groups);
  if (g == 3 && pr.samples == 3) return detail::accumulate_groups<3, 3>(p, groups);
  if (g == 4 && pr.samples == 3) return detail::accumulate_groups<4, 3>(p, groups);
  if (g == 4 && pr.samples == 4) return detail::accumulate_groups<4, 4>(p, groups);
  for (size_t i = 1; i < groups; ++i)
    for (size_t k = 0; k < pr.samples; ++k) p[i * g + k] = static_cast<uint8_t>(p[i * g + k] + p[(i - 1) * g + k]);
}

}  // namespace vek::tiff
