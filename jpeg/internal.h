// Internals shared by the JPEG codec's files: the fixed tables, the process-wide
// Huffman code and decode tables, and bookkeeping of compressed-data buffer sizes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "core/image.h"

namespace vek::jpeg {

// Table slot order used everywhere: DC luminance, DC chrominance, AC luminance, AC chrominance.
enum HuffSlot : int { kDcLuma = 0, kDcChroma = 1, kAcLuma = 2, kAcChroma = 3 };

extern const uint8_t kZigzag[64];           // zigzag position -> natural index
extern const uint8_t kNaturalToZigzag[64];  // natural index -> zigzag position
extern const uint16_t kLumaQuant[64];       // natural order
extern const uint16_t kChromaQuant[64];     // natural order
extern const uint8_t kStdBits[4][16];
extern const uint8_t kStdValues[4][162];
extern const uint16_t kStdValueCount[4];

// Encoder side: code of each symbol, right-aligned; length 0 = symbol has no code.
struct CodeEntry {
  uint32_t code;
  uint16_t length;
};
extern CodeEntry g_codes[4][256];

// Decoder side. A DC entry gives the category (255 = no valid code starts here) and
// the code length; an AC entry the run, the size (255 = invalid) and the code length.
struct DcEntry {
  uint8_t category;
  uint8_t length;
};
struct AcEntry {
  uint8_t run;
  uint8_t size;
  uint8_t length;
  uint8_t pad;
};
inline constexpr uint8_t kInvalid = 255;

// One set of decode tables: DC tables indexed by the next dc_bits bits, AC tables by
// the next 16 bits.
struct DecodeSet {
  int dc_bits[2];
  const DcEntry* dc[2];
  const AcEntry* ac[2];
};

// The process-wide set built from the standard tables (null members until built).
const DecodeSet& default_decode_set();
bool default_tables_ready();
// Builds the code tables and the decode tables from the standard tables (start-up).
void init_tables();

// Decode tables built from a stream's own Huffman tables (full Annex C procedure,
// one-bit codes included); owns its memory.
class StreamDecodeSet {
 public:
  StreamDecodeSet() = default;
  ~StreamDecodeSet();
  StreamDecodeSet(const StreamDecodeSet&) = delete;
  StreamDecodeSet& operator=(const StreamDecodeSet&) = delete;
  // 0 on success, or an error class to report (memory, corrupt table).
  uint32_t build(const Tjpeg& desc);
  const DecodeSet& set() const { return set_; }

 private:
  DecodeSet set_{};
  DcEntry* dc_[2] = {nullptr, nullptr};
  AcEntry* ac_[2] = {nullptr, nullptr};
};

// True when every Huffman table present in the descriptor equals its standard table
// (absent or empty tables count as standard).
bool uses_standard_tables(const Tjpeg& desc);

// Capacity of a descriptor's data buffer: recorded when this library allocated it,
// otherwise what the buffer-size rule promises for the image.
void remember_capacity(uint32_t handle, const uint8_t* data, size_t capacity);
size_t data_capacity(uint32_t handle);
// The buffer-size rule of VEK_JPEG_malloc_data without a file.
size_t default_capacity(const ImageRecord& rec);

// Replaces the descriptor's buffer by a new one of `size` bytes (old one released
// when ours); no lock taken. Returns 0 or the memory error (unreported).
uint32_t replace_data(uint32_t handle, size_t size);

// Streams the readers opened themselves, per handle, so that only those are closed
// on the image's behalf (a caller's stream given by VEK_JPEG_set_file_ptr is not).
void remember_own_file(uint32_t handle, FILE* file);
bool owns_file(uint32_t handle, FILE* file);

// Descriptor of a handle, or null.
inline Tjpeg* descriptor(uint32_t handle) {
  ImageRecord* rec = lookup(handle);
  return rec ? rec->jpeg : nullptr;
}

}  // namespace vek::jpeg
