// Helpers shared by the geometry tests (defined in geometry_support.cpp).
#pragma once

#include <cstdint>

namespace geomtest {
uint32_t keep(uint32_t handle);  // destroyed when the running test ends
uint8_t* pixels(uint32_t handle);
uint32_t param(uint32_t handle, uint32_t id);
uint32_t bpp(uint32_t format);
const uint8_t* at(uint32_t handle, uint32_t column, uint32_t line);
}  // namespace geomtest
