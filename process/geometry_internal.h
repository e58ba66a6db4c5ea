// Shared front end and output handling of the geometric operations: input check,
// format acceptance, the "input holds no lines" shortcut and fresh output strips.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "core/image.h"

namespace vek::geometry {

// A set of pixel-format codes (0..31) as a bit mask.
constexpr uint32_t format_set(std::initializer_list<uint32_t> codes) {
  uint32_t mask = 0;
  for (uint32_t c : codes) mask |= 1u << c;
  return mask;
}

inline bool in_set(uint32_t mask, uint32_t format) { return format < 32 && (mask >> format) & 1u; }

// How an operation refuses a format at its entry.
struct FormatRule {
  uint32_t accepted;        // format_set(...)
  const char* message;      // e.g. "Unsupported image format"
  bool code_in_error;       // the refusal code carries the format code in its low bits
};

// Validates the input, reporting "Corrupt image" with the validator's code.
// Also refuses input == output: every operation here reallocates its output while
// it still reads the input.
uint32_t check_input(const char* name, uint32_t input, uint32_t output, ImageRecord*& rec);

// Refuses a format outside the rule's set.
uint32_t accept_format(const char* name, const ImageRecord& rec, const FormatRule& rule);

// The common front end: check_input, accept_format, and, when the input holds no
// lines, a parameter copy to the output that finishes the call (`finished` set).
uint32_t front_end(const char* name, uint32_t input, uint32_t output, const FormatRule& rule,
                   ImageRecord*& rec, bool& finished);

// Fails (reported) when the image has no pixel buffer to read.
uint32_t require_data(const char* name, const ImageRecord& rec);

// Gives `output` a newly allocated strip of `lines` lines at its current geometry
// (lines per strip set, validated with "Corrupt image", old data released). A buffer
// the library allocated is zero-filled, so padding and unwritten bytes are defined;
// a locked buffer is kept as it is.
uint32_t fresh_strip(const char* name, uint32_t output, uint32_t lines, ImageRecord*& out);

// Validates an image whose parameters were just set, reporting "Corrupt image".
uint32_t check_output(const char* name, uint32_t output);

// Bytes of one pixel in a line for the byte-addressed formats 2..15, else 0.
uint32_t pixel_bytes(uint32_t format);

}  // namespace vek::geometry
