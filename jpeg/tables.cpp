// Fixed JPEG tables (standard quantisation and Huffman tables, zigzag order) and the
// process-wide Huffman code and decode tables built from them at start-up.
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "jpeg/internal.h"

namespace vek::jpeg {

const uint8_t kZigzag[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                             12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                             35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                             58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

const uint8_t kNaturalToZigzag[64] = {
    0,  1,  5,  6,  14, 15, 27, 28, 2,  4,  7,  13, 16, 26, 29, 42, 3,  8,  12, 17, 25, 30,
    41, 43, 9,  11, 18, 24, 31, 40, 44, 53, 10, 19, 23, 32, 39, 45, 52, 54, 20, 22, 33, 38,
    46, 51, 55, 60, 21, 34, 37, 47, 50, 56, 59, 61, 35, 36, 48, 49, 57, 58, 62, 63};

const uint16_t kLumaQuant[64] = {16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,
                                 58, 60, 55, 14, 13,  16,  24,  40,  57, 69, 56, 14, 17,
                                 22, 29, 51, 87, 80,  62,  18,  22,  37, 56, 68, 109, 103,
                                 77, 24, 35, 55, 64,  81,  104, 113, 92, 49, 64, 78,  87,
                                 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};

const uint16_t kChromaQuant[64] = {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99,
                                   99, 99, 99, 24, 26, 56, 99, 99, 99, 99, 99, 47, 66,
                                   99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
                                   99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
                                   99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

const uint8_t kStdBits[4][16] = {
    {0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0},
    {0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0},
    {0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 0x7d},
    {0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 0x77},
};

const uint16_t kStdValueCount[4] = {12, 12, 162, 162};

const uint8_t kStdValues[4][162] = {
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11},
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11},
    {0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21, 0x31, 0x41, 0x06, 0x13, 0x51, 0x61,
     0x07, 0x22, 0x71, 0x14, 0x32, 0x81, 0x91, 0xa1, 0x08, 0x23, 0x42, 0xb1, 0xc1, 0x15, 0x52,
     0xd1, 0xf0, 0x24, 0x33, 0x62, 0x72, 0x82, 0x09, 0x0a, 0x16, 0x17, 0x18, 0x19, 0x1a, 0x25,
     0x26, 0x27, 0x28, 0x29, 0x2a, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3a, 0x43, 0x44, 0x45,
     0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5a, 0x63, 0x64,
     0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a, 0x83,
     0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99,
     0x9a, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4, 0xb5, 0xb6,
     0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2, 0xd3,
     0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe1, 0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8,
     0xe9, 0xea, 0xf1, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa},
    {0x00, 0x01, 0x02, 0x03, 0x11, 0x04, 0x05, 0x21, 0x31, 0x06, 0x12, 0x41, 0x51, 0x07, 0x61,
     0x71, 0x13, 0x22, 0x32, 0x81, 0x08, 0x14, 0x42, 0x91, 0xa1, 0xb1, 0xc1, 0x09, 0x23, 0x33,
     0x52, 0xf0, 0x15, 0x62, 0x72, 0xd1, 0x0a, 0x16, 0x24, 0x34, 0xe1, 0x25, 0xf1, 0x17, 0x18,
     0x19, 0x1a, 0x26, 0x27, 0x28, 0x29, 0x2a, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3a, 0x43, 0x44,
     0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5a, 0x63,
     0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a,
     0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97,
     0x98, 0x99, 0x9a, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4,
     0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca,
     0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7,
     0xe8, 0xe9, 0xea, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa},
};

CodeEntry g_codes[4][256];

namespace {

DcEntry g_dc_luma[512];
DcEntry g_dc_chroma[2048];
AcEntry* g_ac[2] = {nullptr, nullptr};  // 65,536 entries each, allocated once, never freed
DecodeSet g_default_set{{9, 11}, {g_dc_luma, g_dc_chroma}, {nullptr, nullptr}};

void fill_dc(DcEntry* table, int bits, const CodeEntry* codes) {
  for (int i = 0; i < (1 << bits); ++i) table[i] = DcEntry{kInvalid, 0};
  for (int c = 0; c <= 11; ++c) {
    const int len = codes[c].length;
    if (len == 0 || len > bits) continue;
    const uint32_t first = codes[c].code << (bits - len);
    for (uint32_t i = 0; i < (1u << (bits - len)); ++i)
      table[first + i] = DcEntry{uint8_t(c), uint8_t(len)};
  }
}

void fill_ac(AcEntry* table, const CodeEntry* codes) {
  for (int i = 0; i < 65536; ++i) table[i] = AcEntry{0, kInvalid, 0, 0};
  for (int run = 0; run < 16; ++run) {
    for (int size = 0; size <= 10; ++size) {
      // Of the size-0 symbols only end of block (run 0) and sixteen zeros (run 15) exist.
      if (size == 0 && run != 0 && run != 15) continue;
      const int sym = run * 16 + size;
      const int len = codes[sym].length;
      if (len == 0 || len > 16) continue;
      const uint32_t first = codes[sym].code << (16 - len);
      for (uint32_t i = 0; i < (1u << (16 - len)); ++i)
        table[first + i] = AcEntry{uint8_t(run), uint8_t(size), uint8_t(len), 0};
    }
  }
}

// Canonical code assignment (sizes from BITS, then consecutive codes, shifting at each
// new length). `from_length` is 1 for the full procedure and 2 for the restricted one
// the code tables use. Returns false when the BITS list over-subscribes a length.
bool canonical_codes(const uint8_t* bits, const uint8_t* values, int from_length,
                     CodeEntry (&out)[256]) {
  for (CodeEntry& e : out) e = CodeEntry{0, 0};
  uint32_t code = 0;
  int k = 0;
  for (int len = 1; len <= 16; ++len) {
    if (len >= from_length) {
      for (int i = 0; i < bits[len - 1]; ++i) {
        if (k >= 256) return false;
        if (code >= (1u << len)) return false;
        out[values[k]] = CodeEntry{code, uint16_t(len)};
        ++k;
        ++code;
      }
    }
    code <<= 1;
  }
  return true;
}

}  // namespace

void build_code_tables(const Tjpeg& desc) {
  for (int t = 0; t < 4; ++t) {
    // The count of one-bit codes is deliberately never read: sizes start at length 2,
    // which the standard tables never notice since none has a one-bit code.
    CodeEntry codes[256];
    canonical_codes(desc.h_bits[t], desc.h_values[t], 2, codes);
    std::memcpy(g_codes[t], codes, sizeof codes);
  }
}

uint32_t build_default_decode_tables() {
  for (int i = 0; i < 2; ++i) {
    if (!g_ac[i]) {
      g_ac[i] = static_cast<AcEntry*>(vek::alloc(65536 * sizeof(AcEntry)));
      if (!g_ac[i]) return VEK_ERROR_MEMORY;
    }
  }
  fill_dc(g_dc_luma, 9, g_codes[kDcLuma]);
  fill_ac(g_ac[0], g_codes[kAcLuma]);
  fill_dc(g_dc_chroma, 11, g_codes[kDcChroma]);
  fill_ac(g_ac[1], g_codes[kAcChroma]);
  g_default_set.ac[0] = g_ac[0];
  g_default_set.ac[1] = g_ac[1];
  return VEK_OK;
}

const DecodeSet& default_decode_set() { return g_default_set; }
bool default_tables_ready() { return g_ac[0] && g_ac[1]; }

bool uses_standard_tables(const Tjpeg& desc) {
  for (int t = 0; t < 4; ++t) {
    if (desc.h_table_id[t] == 255) continue;
    int total = 0;
    for (int i = 0; i < 16; ++i) total += desc.h_bits[t][i];
    if (total == 0) continue;
    if (std::memcmp(desc.h_bits[t], kStdBits[t], 16) != 0) return false;
    if (std::memcmp(desc.h_values[t], kStdValues[t], kStdValueCount[t]) != 0) return false;
  }
  return true;
}

StreamDecodeSet::~StreamDecodeSet() {
  for (int i = 0; i < 2; ++i) {
    std::free(dc_[i]);
    std::free(ac_[i]);
  }
}

uint32_t StreamDecodeSet::build(const Tjpeg& desc) {
  for (int c = 0; c < 2; ++c) {
    const int dc_slot = c == 0 ? kDcLuma : kDcChroma;
    const int ac_slot = c == 0 ? kAcLuma : kAcChroma;
    // A table the stream does not define falls back to the standard one.
    auto source = [&](int slot, const uint8_t*& bits, const uint8_t*& values) {
      int total = 0;
      for (int i = 0; i < 16; ++i) total += desc.h_bits[slot][i];
      const bool present = desc.h_table_id[slot] != 255 && total > 0;
      bits = present ? desc.h_bits[slot] : kStdBits[slot];
      values = present ? desc.h_values[slot] : kStdValues[slot];
    };
    const uint8_t* bits = nullptr;
    const uint8_t* values = nullptr;
    CodeEntry codes[256];

    source(dc_slot, bits, values);
    if (!canonical_codes(bits, values, 1, codes)) return VEK_ERROR_CORRUPT_IMAGE;
    // Full 16-bit DC look-up: a stream's DC codes may be longer than the standard 9/11 bits.
    dc_[c] = static_cast<DcEntry*>(vek::alloc(65536 * sizeof(DcEntry)));
    if (!dc_[c]) return VEK_ERROR_MEMORY;
    fill_dc(dc_[c], 16, codes);

    source(ac_slot, bits, values);
    if (!canonical_codes(bits, values, 1, codes)) return VEK_ERROR_CORRUPT_IMAGE;
    ac_[c] = static_cast<AcEntry*>(vek::alloc(65536 * sizeof(AcEntry)));
    if (!ac_[c]) return VEK_ERROR_MEMORY;
    fill_ac(ac_[c], codes);

    set_.dc_bits[c] = 16;
    set_.dc[c] = dc_[c];
    set_.ac[c] = ac_[c];
  }
  return VEK_OK;
}

}  // namespace vek::jpeg
