// The library's allocator with its test-only failure hook.
#include "core/alloc.h"

#include <atomic>
#include <cstdlib>

namespace vek {

static std::atomic<long> g_allocations_left{-1};

static bool allowed() {
  long left = g_allocations_left.load(std::memory_order_relaxed);
  if (left < 0) return true;
  if (left == 0) return false;
  g_allocations_left.store(left - 1, std::memory_order_relaxed);
  return true;
}

void* alloc(size_t size) { return allowed() ? std::malloc(size ? size : 1) : nullptr; }

void* alloc_zeroed(size_t count, size_t size) {
  return allowed() ? std::calloc(count ? count : 1, size ? size : 1) : nullptr;
}

namespace testing {
void fail_allocations_after(long successes) { g_allocations_left.store(successes); }
}  // namespace testing

}  // namespace vek
