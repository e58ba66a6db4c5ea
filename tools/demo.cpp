// vek demo: the capture pipeline on built-in data.
#include <cstdio>
#include <cstring>

#include "tools/commands.h"
#include "vek.h"

#define DEMO_CHECK(expr)                                             \
  do {                                                               \
    uint32_t status_ = (expr);                                       \
    if (VEK_IS_ERROR(status_)) {                                     \
      std::fprintf(stderr, "demo: %s failed: 0x%08x\n", #expr, status_); \
      return 1;                                                      \
    }                                                                \
  } while (0)

// A 640 x 480 grey frame produced strip by strip by the test-pattern producer, as a
// frame grabber would hand over its lines.
static int demo_test_pattern() {
  const uint32_t h = VEK_image_create();
  DEMO_CHECK(h);
  DEMO_CHECK(VEK_image_set_parameter(h, VEK_PARAM_FORMAT, VEK_Y8));
  DEMO_CHECK(VEK_image_set_parameter(h, VEK_PARAM_WIDTH, 640));
  DEMO_CHECK(VEK_image_set_parameter(h, VEK_PARAM_HEIGHT, 480));
  DEMO_CHECK(VEK_image_set_parameter(h, VEK_PARAM_STRIP_LINES, 64));
  DEMO_CHECK(VEK_image_check(h));
  DEMO_CHECK(VEK_image_malloc_a_strip(h));
  print_image("test pattern source", h);
  const uint32_t strips = VEK_image_calc_total_strips(h);
  uint64_t checksum = 0;
  for (uint32_t s = 0; s < strips; ++s) {
    DEMO_CHECK(VEK_test_pattern(h, VEK_STRIP_NEXT));
    const auto* data = static_cast<const uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA));
    const uint32_t lines = VEK_image_get_parameter(h, VEK_PARAM_STRIP_LINES);
    const uint32_t bpl = VEK_image_get_parameter(h, VEK_PARAM_BYTES_PER_LINE);
    for (uint32_t i = 0; i < lines * bpl; ++i) checksum += data[i];
    std::printf("  strip %2u: %u lines\n", s + 1, lines);
  }
  std::printf("test pattern: %u strips, byte sum %llu\n", strips,
              static_cast<unsigned long long>(checksum));
  print_image("after the last strip", h);
  VEK_image_destroy(h);
  return 0;
}

int cmd_demo(int, char**) {
  std::printf("vek demo (library version 0x%08x)\n", VEK_image_get_parameter(0, VEK_PARAM_VERSION));
  if (int rc = demo_test_pattern()) return rc;
  VEK_image_destroy(VEK_ALL_IMAGES);
  std::printf("demo finished\n");
  return 0;
}
