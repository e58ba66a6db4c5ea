// Applies VEK_TEST_CPU_MASK to the library's dispatch before any test runs. Only the
// test programs read the environment; the library never does.
#include "support/cpu_mask.h"

#include <cstdlib>

namespace vektest {

uint32_t base_cpu_mask() {
  static const uint32_t mask = [] {
    const char* s = std::getenv("VEK_TEST_CPU_MASK");
    return s ? static_cast<uint32_t>(std::strtoul(s, nullptr, 0)) : 0u;
  }();
  return mask;
}

namespace {
const bool g_applied = (vek::cpu::testing::set_disabled(base_cpu_mask()), true);
}  // namespace

}  // namespace vektest
