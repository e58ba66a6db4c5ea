// Internal interface of the conversion family: pixel arithmetic shared by every
// converter, the row kernels, the shared front end and the process-wide tables.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/image.h"

namespace vek::conv {

// ---- pixel arithmetic -----------------------------------------------------

inline uint8_t clamp255(int32_t v) {
  return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

// 8-bit grey from colour: the weights 77 + 150 + 29 sum to 256, so the shift
// truncates and white stays 255.
inline uint8_t grey_of(uint32_t r, uint32_t g, uint32_t b) {
  return static_cast<uint8_t>((77 * r + 150 * g + 29 * b) >> 8);
}

struct Rgb {
  int32_t r, g, b;
};

// YUV to RGB with 10-bit fixed-point coefficients; right shifts of negative
// numbers are arithmetic (floor), which C++20 guarantees.
inline Rgb yuv_to_rgb(int32_t y, int32_t u, int32_t v) {
  const int32_t y10 = 1024 * y, du = u - 128, dv = v - 128;
  return Rgb{clamp255((y10 + 1436 * dv) >> 10), clamp255((y10 - 731 * dv - 352 * du) >> 10),
             clamp255((y10 + 1815 * du) >> 10)};
}

struct Yuv {
  uint8_t y, u, v;
};

// RGB to YUV; 306 + 601 + 117 = 1024 keeps grey exactly on the luma axis.
inline Yuv rgb_to_yuv(int32_t r, int32_t g, int32_t b) {
  int32_t y = (306 * r + 601 * g + 117 * b) >> 10;
  if (y > 255) y = 255;
  return Yuv{static_cast<uint8_t>(y), clamp255(((512 * b - 339 * g - 173 * r) >> 10) + 128),
             clamp255(((512 * r - 429 * g - 83 * b) >> 10) + 128)};
}

inline uint16_t pack15(uint32_t r, uint32_t g, uint32_t b) {
  return static_cast<uint16_t>((r & 0xF8) << 7 | (g & 0xF8) << 2 | b >> 3);
}
inline uint16_t pack16(uint32_t r, uint32_t g, uint32_t b) {
  return static_cast<uint16_t>((r & 0xF8) << 8 | (g & 0xFC) << 3 | b >> 3);
}
// Expansions keep the top bits of the next field down in the low bits of R and G.
inline Rgb expand15(uint32_t w) {
  return Rgb{int32_t((w >> 7) & 0xFF), int32_t((w >> 2) & 0xFF), int32_t((w << 3) & 0xFF)};
}
inline Rgb expand16(uint32_t w) {
  return Rgb{int32_t((w >> 8) & 0xFF), int32_t((w >> 3) & 0xFF), int32_t((w << 3) & 0xFF)};
}

// 16-bit pixels are little-endian words in memory whatever the host.
inline uint16_t load16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
inline void store16(uint8_t* p, uint32_t w) {
  p[0] = static_cast<uint8_t>(w);
  p[1] = static_cast<uint8_t>(w >> 8);
}

// Index into the 19-bit YUV-to-RGB tables: top 7 bits of Y, top 6 of U and V.
inline uint32_t yuv_index19(uint32_t y, uint32_t u, uint32_t v) {
  return ((y & 0xFE) << 11) | ((u >> 2) << 6) | (v >> 2);
}
// Index into the 15-bit YUV-to-paletted table: top 5 bits of each component.
inline uint32_t yuv_index15(uint32_t y, uint32_t u, uint32_t v) {
  return ((y & 0xF8) << 7) + ((u & 0xF8) << 2) + (v >> 3);
}

// ---- row kernels ----------------------------------------------------------

// Per-call constants of a row kernel.
struct RowParams {
  uint32_t shift = 0;                  // Y16 source: word >> shift gives 8-bit grey
  uint32_t dst_width_bits = 16;        // Y16 destination data width
  const CmapEntry* cmap = nullptr;     // paletted source
  const uint16_t* table16 = nullptr;   // YUV -> RGB16 / RGB15 table
  const uint16_t* hue = nullptr;       // hue table of the HSI conversion
  const uint8_t* table8 = nullptr;     // index -> palette entry table
  uint32_t table8_last = 0;            // highest valid index of table8
  const void* context = nullptr;       // kernel-specific state (palette conversions)
};

using RowKernel = void (*)(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams&);

// Kernel for converting a line of `source` format pixels into `target` format, or
// null when the family has no such kernel. Targets cover the RGB family, grey,
// Y16, CMYK32 (paletted source) and YUV 4:2:2 (from the RGB family and grey).
RowKernel rgb_kernel(uint16_t source, uint16_t target);
// YUV 4:2:2 source kernels. `table` selects the RGB16/RGB15-table-driven variant.
RowKernel yuv_kernel(uint16_t target, bool table);

// Table-driven kernels to paletted: RGB16, Y8, Y16 and YUV 4:2:2 sources.
RowKernel paletted_lut_kernel(uint16_t source);

// Line loop shared by every strip driver: `lines` rows of `width` pixels.
inline void run_rows(RowKernel k, const uint8_t* src, size_t src_pitch, uint8_t* dst,
                     size_t dst_pitch, uint32_t width, uint32_t lines, const RowParams& p) {
  for (uint32_t y = 0; y < lines; ++y) k(src + y * src_pitch, dst + y * dst_pitch, width, p);
}

// ---- shared front end -----------------------------------------------------

inline constexpr uint32_t bit(uint32_t format) { return format < 32 ? 1u << format : 0u; }

// "No image data": a strip worker given a source without a buffer.
inline constexpr uint32_t kNoData = VEK_ERROR_NO_IMAGE_DATA;

// Description of one per-target conversion. The exported front end hands this to
// run_conversion(); its exported `_1_strip` worker calls convert_strip().
struct Conversion {
  const char* name;
  const char* worker_name;
  uint16_t target;
  uint32_t sources;                 // accepted source formats (bit per code)
  StripSequence* sequence;          // null: converts whatever strip the source holds
  const char* corrupt_source = "Corrupt image";
  const char* unsupported = "Unsupported image format";
  const char* odd_width = nullptr;  // message refusing an odd-width source, if any
  bool limit_to_height = false;     // stateless, but trims the source strip to the height
  // Extra source checks run after the format check; reported under `name`.
  uint32_t (*validate)(const ImageRecord& src, const char* name) = nullptr;
  // Runs once at the start of a sequence (builds tables); reports itself.
  uint32_t (*begin)(uint32_t source) = nullptr;
  uint32_t (*worker)(uint32_t source, uint32_t destination) = nullptr;
};

// The common front end: checks, parameter preparation and the strip protocol.
uint32_t run_conversion(const Conversion& c, uint32_t source, uint32_t destination,
                        uint32_t mode);

// Pixel layout of a worker's strip.
enum class Layout {
  Pitch,       // each image steps by its own bytes per line
  Contiguous,  // lines run back to back without padding in source and destination
};

// Common worker: resolves handles, checks data, allocates the destination strip and
// runs `kernel` over min(source, destination) lines. `kernel` null means the format
// is outside the worker's range.
uint32_t convert_strip(const char* worker_name, uint32_t source, uint32_t destination,
                       RowKernel kernel, const RowParams& params, Layout layout = Layout::Pitch);

// Pixel bytes of a format as laid out in a line (0 for sub-byte or unknown formats).
uint32_t pixel_bytes(uint16_t format);

// Shift that brings a Y16 word of `data_width` significant bits to 8 bits.
inline uint32_t y16_shift(uint32_t data_width) { return data_width > 8 ? data_width - 8 : 0; }

// ---- process-wide tables --------------------------------------------------

// Conversion tables, indexed by type code - 200 (RGB16, Y8, Y16 to paletted;
// YUV to RGB16, RGB15; YUV to paletted).
inline constexpr int kTableCount = 6;
struct SharedTable {
  uint8_t* data = nullptr;
  size_t size = 0;
};
SharedTable& shared_table(int type);  // type 200..205

// Builds (or refills) the YUV-to-RGB16 / RGB15 table; reports under `name`.
uint32_t generate_yuv_rgb_table(bool rgb16, const char* name);
// The hue table of the HSI conversion (65536 hues, indexed (U << 8) | V), built on
// demand; null when memory runs out.
const uint16_t* hue_table();
void release_hue_table();
// Releases every shared table of the family.
void release_shared_tables();

// Closest colour-map entry to (r, g, b) among the first `count` entries.
uint32_t closest_colour(const CmapEntry* map, uint32_t count, int32_t r, int32_t g, int32_t b);

}  // namespace vek::conv
