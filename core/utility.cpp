// Byte-order helpers, allocation counters, command parsing and the test pattern.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/image.h"

using namespace vek;

namespace {

uint32_t g_malloc_count = 0;
uint32_t g_free_count = 0;
size_t g_malloc_bytes = 0;
size_t g_malloc_snapshot = 0;

StripSequence g_pattern_sequence;

uint32_t u(int c) { return static_cast<uint32_t>(c); }

void copy_text(char (&field)[VEK_COMMAND_TEXT], const char* text) {
  size_t n = text ? strnlen(text, sizeof field - 1) : 0;
  if (n) std::memcpy(field, text, n);
  field[n] = '\0';
}

}  // namespace

extern "C" {

// A byte read past the end contributes fgetc's EOF value as it comes; callers that
// care test the stream themselves.
VEK_API uint32_t VEK_fget_ui16i(FILE* f) {
  const int lo = std::fgetc(f);
  const int hi = std::fgetc(f);
  return u(lo) + (u(hi) << 8);
}

VEK_API uint32_t VEK_fget_ui16m(FILE* f) {
  const int hi = std::fgetc(f);
  const int lo = std::fgetc(f);
  return ((u(hi) << 8) + u(lo)) & 0xFFFFu;
}

VEK_API uint32_t VEK_fget_ui32i(FILE* f) {
  uint32_t v = 0;
  for (int i = 0; i < 4; ++i) v += u(std::fgetc(f)) << (8 * i);
  return v;
}

VEK_API uint32_t VEK_fget_ui32m(FILE* f) {
  uint32_t v = 0;
  for (int i = 0; i < 4; ++i) v = (v << 8) + u(std::fgetc(f));
  return v;
}

VEK_API int VEK_fput_ui8(FILE* f, uint32_t v) { return std::fputc(int(v & 0xFF), f); }

VEK_API int VEK_fput_ui16i(FILE* f, uint32_t v) {
  std::fputc(int(v & 0xFF), f);
  return std::fputc(int((v >> 8) & 0xFF), f);
}

VEK_API int VEK_fput_ui16m(FILE* f, uint32_t v) {
  std::fputc(int((v >> 8) & 0xFF), f);
  return std::fputc(int(v & 0xFF), f);
}

VEK_API int VEK_fput_ui32i(FILE* f, uint32_t v) {
  int r = 0;
  for (int i = 0; i < 4; ++i) r = std::fputc(int((v >> (8 * i)) & 0xFF), f);
  return r;
}

VEK_API int VEK_fput_ui32m(FILE* f, uint32_t v) {
  int r = 0;
  for (int i = 3; i >= 0; --i) r = std::fputc(int((v >> (8 * i)) & 0xFF), f);
  return r;
}

VEK_API uint16_t VEK_mget_ui16i(const void* a) {
  const auto* p = static_cast<const uint8_t*>(a);
  return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

VEK_API uint16_t VEK_mget_ui16m(const void* a) {
  const auto* p = static_cast<const uint8_t*>(a);
  return static_cast<uint16_t>((p[0] << 8) | p[1]);
}

VEK_API uint32_t VEK_mget_ui32i(const void* a) {
  const auto* p = static_cast<const uint8_t*>(a);
  return u(p[0]) | (u(p[1]) << 8) | (u(p[2]) << 16) | (u(p[3]) << 24);
}

VEK_API uint32_t VEK_mget_ui32m(const void* a) {
  const auto* p = static_cast<const uint8_t*>(a);
  return (u(p[0]) << 24) | (u(p[1]) << 16) | (u(p[2]) << 8) | u(p[3]);
}

VEK_API void VEK_mput_ui8(void* a, uint32_t v) { static_cast<uint8_t*>(a)[0] = uint8_t(v); }

VEK_API void VEK_mput_ui16i(void* a, uint32_t v) {
  auto* p = static_cast<uint8_t*>(a);
  p[0] = uint8_t(v);
  p[1] = uint8_t(v >> 8);
}

VEK_API void VEK_mput_ui16m(void* a, uint32_t v) {
  auto* p = static_cast<uint8_t*>(a);
  p[0] = uint8_t(v >> 8);
  p[1] = uint8_t(v);
}

VEK_API void VEK_mput_ui32i(void* a, uint32_t v) {
  auto* p = static_cast<uint8_t*>(a);
  for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (8 * i));
}

VEK_API void VEK_mput_ui32m(void* a, uint32_t v) {
  auto* p = static_cast<uint8_t*>(a);
  for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (24 - 8 * i));
}

VEK_API void* VEK_DebugMalloc(size_t size) {
  void* p = std::malloc(size);
  if (p) {
    LibraryLock lock;
    ++g_malloc_count;
    g_malloc_bytes += size;
  }
  return p;
}

VEK_API void VEK_DebugFree(void* address) {
  std::free(address);
  LibraryLock lock;
  ++g_free_count;
}

VEK_API size_t VEK_DebugMallocPrint(void) {
  LibraryLock lock;
  g_malloc_snapshot = g_malloc_bytes;
  return g_malloc_snapshot;
}

VEK_API uint32_t VEK_DebugMallocCount(void) {
  LibraryLock lock;
  return g_malloc_count;
}

VEK_API uint32_t VEK_DebugFreeCount(void) {
  LibraryLock lock;
  return g_free_count;
}

VEK_API uint32_t VEK_Util_ParseCommand(tVEK_Command* record, int argc, char** argv) {
  if (!record || (argc > 0 && !argv))
    return report("VEK_Util_ParseCommand", VEK_ERROR_BAD_PARAMETER, "Null command record");
  record->argc = argc;
  record->options = 0;
  record->operands = 0;
  if (argc > 0) copy_text(record->program, argv[0]);
  // The program name reads as empty afterwards, as do the third option and operand
  // texts until an argument fills them: callers take the name from argv themselves.
  record->program[0] = '\0';
  record->option[2][0] = '\0';
  record->operand[2][0] = '\0';
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i] ? argv[i] : "";
    if (arg[0] == '-') {
      if (record->options < 3) copy_text(record->option[record->options], arg);
      ++record->options;
    } else {
      if (record->operands < VEK_COMMAND_OPERANDS) copy_text(record->operand[record->operands], arg);
      ++record->operands;
    }
  }
  return VEK_OK;
}

VEK_API uint32_t VEK_test_pattern_1_strip(uint32_t handle) {
  static const char kName[] = "VEK_test_pattern_1_strip";
  ImageRecord* rec = lookup(handle);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  const uint32_t depth = rec->depth;
  uint32_t bytes = 0;
  switch (depth) {
    case 8: bytes = 1; break;
    case 15:
    case 16: bytes = 2; break;
    case 24: bytes = 3; break;
    case 32: bytes = 4; break;
    default: return report(kName, VEK_ERROR_NOT_SUPPORTED, "Unsupported image format");
  }
  if (!rec->data) return report(kName, VEK_ERROR_BAD_PARAMETER, "Image has no data");
  // Lines are written back to back over the whole strip: the pattern runs on through
  // the padding, so a line of the pattern need not start at a line of the image.
  const size_t per_line = rec->width ? rec->width : 1;
  const size_t capacity = (size_t(rec->bytes_per_line) * rec->lines_per_strip) / bytes;
  size_t pixels = per_line * rec->lines_per_strip;
  if (pixels > capacity) pixels = capacity;
  uint8_t* p = rec->data;
  for (size_t i = 0; i < pixels; ++i, p += bytes) {
    const uint8_t x = static_cast<uint8_t>(i % per_line);
    if (depth == 32) VEK_mput_ui32i(p, 0x55AA55AAu);
    else std::memset(p, x, bytes);
  }
  return VEK_OK;
}

VEK_API uint32_t VEK_test_pattern(uint32_t handle, uint32_t mode) {
  static const char kName[] = "VEK_test_pattern";
  uint32_t status = VEK_image_check(handle);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  ImageRecord* rec = lookup(handle);
  if (rec->lines_per_strip == 0) return VEK_OK;
  return run_strip(
      g_pattern_sequence, mode, *rec, [] { return VEK_OK; },
      [&](const StripSequence::Strip&) {
        uint32_t s = VEK_image_check(handle);  // lines per strip may have been trimmed
        if (is_error(s)) return report(kName, s, "Corrupt image");
        return VEK_test_pattern_1_strip(handle);
      });
}

VEK_API uint32_t VEK_print_image(uint32_t) { return VEK_OK; }
VEK_API uint32_t VEK_print_cmap(uint32_t) { return VEK_OK; }
VEK_API uint32_t VEK_print_jpeg_image(uint32_t) { return VEK_OK; }

}  // extern "C"
