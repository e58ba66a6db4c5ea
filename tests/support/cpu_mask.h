// The CPU features hidden from kernel dispatch for a whole test program: the number in
// VEK_TEST_CPU_MASK (bits of vek::cpu::Feature; 3 hides SSE4.1 and AVX2, so every
// kernel is the portable one). It is applied before the first test runs; tests that
// force a level restore it afterwards with CpuMaskGuard.
#pragma once

#include <cstdint>

#include "core/cpu.h"

namespace vektest {

uint32_t base_cpu_mask();

// Hides `extra` on top of the program's base mask for its lifetime.
class CpuMaskGuard {
 public:
  explicit CpuMaskGuard(uint32_t extra) { vek::cpu::testing::set_disabled(base_cpu_mask() | extra); }
  ~CpuMaskGuard() { vek::cpu::testing::set_disabled(base_cpu_mask()); }
  CpuMaskGuard(const CpuMaskGuard&) = delete;
  CpuMaskGuard& operator=(const CpuMaskGuard&) = delete;
};

}  // namespace vektest
