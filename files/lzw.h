// LZW coding of TIFF strip data: codes of 9 to 12 bits packed most significant bit
// first, Clear 256, end-of-information 257, first free code 258, and the code width
// raised one code early, as TIFF readers expect.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "core/image.h"

namespace vek {

inline constexpr uint32_t kLzwClear = 256;
inline constexpr uint32_t kLzwEnd = 257;
inline constexpr uint32_t kLzwFirstFree = 258;
inline constexpr uint32_t kLzwCodes = 4096;

struct LZWData;

// Allocates and resets a codec state on `stream` with `data` as its data pointer;
// `a` and `b` are only stored.
uint32_t lzw_open(LZWData** state_out, FILE* stream, uint8_t* data, uint32_t a, uint32_t b);
// Decoder into the image's strip buffer, bounded by bytes per line x lines per strip.
uint32_t lzw_open_decode(LZWData** state_out, FILE* stream, ImageRecord* image, uint32_t n);
// Encoder reading from `input`: writes the Clear code and primes the first byte
// (unless `available` says there is no byte at all).
uint32_t lzw_open_encode(LZWData** state_out, FILE* stream, const uint8_t* input,
                         size_t available = SIZE_MAX);
// Consumes n input bytes (the primed byte counts towards the first call's n).
uint32_t lzw_encode(LZWData* state, uint32_t n);
// Expands at most n codes into the buffer; stops at the end code or a full buffer.
uint32_t lzw_decode(LZWData* state, uint32_t n);
// Writes the pending prefix and the end code, flushes, stores the byte count, frees.
uint32_t lzw_close_encode(LZWData* state, uint32_t* byte_count_out);
uint32_t lzw_close_decode(LZWData* state);
uint32_t lzw_close(LZWData* state);

// Moves the encoder's input to the next line (lines need not be contiguous).
void lzw_set_input(LZWData* state, const uint8_t* input);
// Decoder over compressed bytes in memory into [dst, dst + capacity).
uint32_t lzw_open_decode_memory(LZWData** state_out, const uint8_t* src, size_t src_len,
                                uint8_t* dst, size_t capacity);
// Bytes the decoder has stored so far.
size_t lzw_decoded_bytes(const LZWData* state);
// True once the decoder has met the end code (or the end of its input).
bool lzw_decode_finished(const LZWData* state);

}  // namespace vek
