// CPU feature detection shared by every family's kernel dispatch, with a mask that the
// tests use to force the portable kernels and each ISA level in turn. The library itself
// never sets the mask.
#pragma once

#include <cstdint>

// 1 where the x86 kernel files (*_sse41.cpp, *_avx2.cpp) are part of the build. A build
// may force 0 (the VEK_SIMD=OFF option) to get the portable kernels only; the dispatch
// code then uses the stand-ins that each family defines for its ISA kernels.
#ifndef VEK_X86
#if defined(__x86_64__) || defined(_M_X64) || defined(__i386__) || defined(_M_IX86)
#define VEK_X86 1
#else
#define VEK_X86 0
#endif
#endif

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
