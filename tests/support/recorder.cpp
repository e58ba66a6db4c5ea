// A recording error handler and small helpers shared by all test programs.
#include "support/recorder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <random>

namespace vektest {

static std::vector<Report> g_reports;

static uint32_t record(uint32_t slot, const char* function, uint32_t code, const char* message) {
  g_reports.push_back(Report{slot, function ? function : "", code, message ? message : ""});
  return 1;
}

ErrorRecorder::ErrorRecorder() {
  VEK_Init();
  g_reports.clear();
  VEK_ErrHandlerInstall(record);
}

ErrorRecorder::~ErrorRecorder() { VEK_ErrHandlerInstall(VEK_ErrHandlerDefault); }

const std::vector<Report>& ErrorRecorder::reports() const { return g_reports; }

const Report& ErrorRecorder::last() const {
  static const Report none{0, "", 0, ""};
  return g_reports.empty() ? none : g_reports.back();
}

void ErrorRecorder::clear() { g_reports.clear(); }

bool ErrorRecorder::only(const std::string& function, uint32_t code,
                         const std::string& message) const {
  return g_reports.size() == 1 && g_reports[0].function == function && g_reports[0].code == code &&
         g_reports[0].message == message;
}

uint32_t make_image(uint32_t format, uint32_t width, uint32_t height, uint32_t strip_lines,
                    uint32_t line_align) {
  uint32_t h = VEK_image_create();
  EXPECT_LE(h, 0xFFFFu);
  EXPECT_EQ(VEK_image_set_parameter(h, VEK_PARAM_FORMAT, format), 0u);
  VEK_image_set_parameter(h, VEK_PARAM_WIDTH, width);
  VEK_image_set_parameter(h, VEK_PARAM_HEIGHT, height);
  VEK_image_set_parameter(h, VEK_PARAM_LINE_ALIGN, line_align);
  VEK_image_set_parameter(h, VEK_PARAM_STRIP_LINES, strip_lines ? strip_lines : height);
  EXPECT_EQ(VEK_image_check(h), 0u);
  EXPECT_EQ(VEK_image_malloc_a_strip(h), 0u);
  return h;
}

std::vector<uint8_t> random_bytes(size_t n, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint8_t> v(n);
  for (auto& b : v) b = static_cast<uint8_t>(rng() >> 24);
  return v;
}

void fill_random(uint32_t handle, uint32_t seed) {
  auto* data = static_cast<uint8_t*>(VEK_image_get_ptr(handle, VEK_PTR_DATA));
  const size_t n = size_t(VEK_image_get_parameter(handle, VEK_PARAM_BYTES_PER_LINE)) *
                   VEK_image_get_parameter(handle, VEK_PARAM_STRIP_LINES);
  auto bytes = random_bytes(n, seed);
  if (data && n) std::memcpy(data, bytes.data(), n);
}

std::string scratch_dir() {
  std::string dir = std::string(VEK_BINARY_DIR) + "/scratch/";
  mkdir(dir.c_str(), 0755);
  return dir;
}

}  // namespace vektest
