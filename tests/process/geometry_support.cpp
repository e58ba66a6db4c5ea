// Helpers shared by the geometry tests: pixel access, strip feeding and images
// released at the end of each test.
#include "process/geometry_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "support/recorder.h"
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

uint32_t blank() { return keep(VEK_image_create()); }

uint32_t noise(uint32_t format, uint32_t width, uint32_t height, uint32_t seed,
               uint32_t strip_lines, uint32_t line_align) {
  const uint32_t h = keep(vektest::make_image(format, width, height, strip_lines, line_align));
  vektest::fill_random(h, seed);
  return h;
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

Dims dims(uint32_t h) {
  return {param(h, VEK_PARAM_WIDTH), param(h, VEK_PARAM_HEIGHT), param(h, VEK_PARAM_STRIP_LINES)};
}

const uint8_t* at(uint32_t h, uint32_t c, uint32_t r) {
  return pixels(h) + size_t(r) * param(h, VEK_PARAM_BYTES_PER_LINE) +
         size_t(c) * bpp(param(h, VEK_PARAM_FORMAT));
}

std::vector<uint8_t> stream(uint32_t full, uint32_t strip, uint32_t out,
                            const std::function<uint32_t(uint32_t)>& op, uint32_t row_bytes) {
  const uint32_t W = param(full, VEK_PARAM_WIDTH), H = param(full, VEK_PARAM_HEIGHT);
  const uint32_t in = keep(vektest::make_image(param(full, VEK_PARAM_FORMAT), W, H, strip));
  const uint32_t pitch = param(full, VEK_PARAM_BYTES_PER_LINE);
  std::vector<uint8_t> result;
  for (uint32_t done = 0; done < H; done += strip) {
    std::memcpy(pixels(in), pixels(full) + size_t(done) * pitch, size_t(std::min(strip, H - done)) * pitch);
    const uint32_t status = op(in);
    EXPECT_EQ(status, 0u) << "strip at line " << done;
    if (status) break;
    const uint32_t op_pitch = param(out, VEK_PARAM_BYTES_PER_LINE);
    for (uint32_t k = 0; k < param(out, VEK_PARAM_STRIP_LINES); ++k)
      result.insert(result.end(), pixels(out) + size_t(k) * op_pitch,
                    pixels(out) + size_t(k) * op_pitch + (row_bytes ? row_bytes : op_pitch));
  }
  EXPECT_EQ(param(in, VEK_PARAM_STRIP_LINES), H - (H - 1) / strip * strip);  // last strip trimmed
  return result;
}

}  // namespace geomtest
