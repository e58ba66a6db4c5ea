// Test helpers: a recording error handler and small image builders.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vek.h"

namespace vektest {

struct Report {
  uint32_t slot;
  std::string function;
  uint32_t code;
  std::string message;
};

// Installs itself as the library's error handler for its lifetime and records every
// report; the previous (default) handler comes back on destruction.
class ErrorRecorder {
 public:
  ErrorRecorder();
  ~ErrorRecorder();
  ErrorRecorder(const ErrorRecorder&) = delete;
  ErrorRecorder& operator=(const ErrorRecorder&) = delete;

  const std::vector<Report>& reports() const;
  size_t count() const { return reports().size(); }
  const Report& last() const;
  void clear();
  // True when exactly one report arrived with this function, code and message.
  bool only(const std::string& function, uint32_t code, const std::string& message) const;
};

// Creates an image of the given format and size with one strip of `strip_lines`
// lines (0: the whole height) and allocates it; fails the test on error.
uint32_t make_image(uint32_t format, uint32_t width, uint32_t height, uint32_t strip_lines = 0,
                    uint32_t line_align = 2);

// Deterministic pseudo-random bytes.
std::vector<uint8_t> random_bytes(size_t n, uint32_t seed);

// Fills an image's strip buffer with pseudo-random bytes.
void fill_random(uint32_t handle, uint32_t seed);

// A scratch directory under the build tree, created on demand, ending in '/'.
std::string scratch_dir();

}  // namespace vektest
