// CPU feature detection for kernel dispatch.
#include "core/cpu.h"

#include <atomic>

namespace vek::cpu {

namespace {

uint32_t detect() {
  uint32_t f = 0;
#if VEK_X86 && (defined(__GNUC__) || defined(__clang__))
  __builtin_cpu_init();
  if (__builtin_cpu_supports("sse4.1")) f |= kSse41;
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2"))
    f |= kAvx2;
#endif
  return f;
}

std::atomic<uint32_t> g_disabled{0};

}  // namespace

uint32_t features() {
  static const uint32_t detected = detect();
  return detected & ~g_disabled.load(std::memory_order_relaxed);
}

namespace testing {
void set_disabled(uint32_t mask) { g_disabled.store(mask, std::memory_order_relaxed); }
}  // namespace testing

}  // namespace vek::cpu
