// Helpers shared by the geometry tests (defined in geometry_support.cpp).
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

namespace geomtest {
uint32_t keep(uint32_t handle);  // destroyed when the running test ends
uint32_t blank();                // a new empty image, kept
// A kept, allocated image filled with pseudo-random bytes.
uint32_t noise(uint32_t format, uint32_t width, uint32_t height, uint32_t seed,
               uint32_t strip_lines = 0, uint32_t line_align = 2);
uint8_t* pixels(uint32_t handle);
uint32_t param(uint32_t handle, uint32_t id);
uint32_t bpp(uint32_t format);
using Dims = std::array<uint32_t, 3>;  // width, height, lines per strip
Dims dims(uint32_t handle);
const uint8_t* at(uint32_t handle, uint32_t column, uint32_t line);
// Feeds the whole image `full` through an image holding strips of `strip` lines,
// calling op once per strip, and returns the output's lines one after the other
// (`row_bytes` of each, 0: the whole pitch). Checks that the last strip was trimmed.
std::vector<uint8_t> stream(uint32_t full, uint32_t strip, uint32_t out,
                            const std::function<uint32_t(uint32_t)>& op, uint32_t row_bytes = 0);
}  // namespace geomtest
