// CPU feature detection shared by every family's kernel dispatch, with a mask that the
// tests use to force the portable kernels and each ISA level in turn. The library itself
// never sets the mask.
#pragma once

#include <cstdint>

namespace vek::cpu {

enum Feature : uint32_t {
  kSse41 = 1u << 0,
  kAvx2 = 1u << 1,  // with FMA and BMI2
};

// Features this CPU has, minus those masked off. Cheap: detection runs once.
uint32_t features();

inline bool has(Feature f) { return (features() & f) != 0; }

namespace testing {
// Features to hide from dispatch (0 restores all). Tests only; not thread-safe against
// kernels being chosen concurrently.
void set_disabled(uint32_t mask);
}  // namespace testing

}  // namespace vek::cpu
