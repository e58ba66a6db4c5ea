// Helpers shared by the geometry tests: pixel access and images released at the end
// of each test.
#include <gtest/gtest.h>

#include <vector>

#include "process/geometry_support.h"
#include "vek.h"

namespace geomtest {

namespace {
std::vector<uint32_t> g_kept;

class ReleaseKept : public ::testing::EmptyTestEventListener {
  void OnTestEnd(const ::testing::TestInfo&) override {
    for (uint32_t h : g_kept) VEK_image_destroy(h);
    g_kept.clear();
  }
};

const bool g_registered = [] {
  ::testing::UnitTest::GetInstance()->listeners().Append(new ReleaseKept);
  return true;
}();
}  // namespace

uint32_t keep(uint32_t handle) {
  g_kept.push_back(handle);
  return handle;
}

uint8_t* pixels(uint32_t h) { return static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA)); }

uint32_t param(uint32_t h, uint32_t id) { return VEK_image_get_parameter(h, id); }

uint32_t bpp(uint32_t format) {
  switch (format) {
    case VEK_Y8: case VEK_PALETTED: case VEK_RGB8: return 1;
    case VEK_RGB15: case VEK_RGB16: case VEK_YUV422: case VEK_Y16: return 2;
    case VEK_RGB24: case VEK_BGR24: return 3;
    default: return 4;
  }
}

const uint8_t* at(uint32_t h, uint32_t c, uint32_t r) {
  return pixels(h) + size_t(r) * param(h, VEK_PARAM_BYTES_PER_LINE) +
         size_t(c) * bpp(param(h, VEK_PARAM_FORMAT));
}

}  // namespace geomtest
