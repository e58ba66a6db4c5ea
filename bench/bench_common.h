// Shared by the benchmark programs: the whole-picture image every case starts from.
#pragma once

#include <cstdint>

#include "vek.h"

namespace vekbench {

// A validated image of one strip holding the whole picture, its buffer allocated.
inline uint32_t whole_image(uint32_t format, uint32_t width, uint32_t height) {
  const uint32_t img = VEK_image_create();
  VEK_image_set_parameter(img, VEK_PARAM_FORMAT, format);
  VEK_image_set_parameter(img, VEK_PARAM_WIDTH, width);
  VEK_image_set_parameter(img, VEK_PARAM_HEIGHT, height);
  VEK_image_set_parameter(img, VEK_PARAM_STRIP_LINES, height);
  VEK_image_check(img);
  VEK_image_malloc_a_strip(img);
  return img;
}

}  // namespace vekbench
