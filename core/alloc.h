// The library's allocator: the C heap, with a failure hook so tests can reach the
// out-of-memory paths deterministically.
#pragma once

#include <cstddef>

namespace vek {

// malloc/calloc that fail on purpose once a test has armed fail_allocations_after().
void* alloc(size_t size);
void* alloc_zeroed(size_t count, size_t size);

namespace testing {
// The next `successes` allocations succeed, every later one fails, until disarmed
// with a negative value. Process-wide and unlocked: tests only.
void fail_allocations_after(long successes);
}  // namespace testing

}  // namespace vek
