// Process-wide state of the library core, shared by its own translation units only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/image.h"

namespace vek {

inline constexpr const char* kErrorCaption = "ERROR REPORTED by VEK Default Error Handler";

struct ErrorRecord {
  uint32_t version;
  uint32_t last_code;
  uint32_t last_other;
  VEK_ErrHandler handler;
};

// Index 1 is the only slot the library writes.
extern ErrorRecord g_error_records[2];

// Handle table: entries 1..65535 in use; 0 and 65536 stay null.
extern ImageRecord* g_images[kMaxHandles + 2];

extern bool g_initialised;

// Builds the default handler's text into a 512-byte buffer (at most 511 characters),
// updating the slot's record as the handler does; returns the text length.
size_t compose_report(uint32_t slot, const char* function_name, uint32_t code, const char* message,
                      char (&text)[512]);

}  // namespace vek
