// LZW codec for TIFF strips. The encoder finds (prefix, byte) pairs in an open-
// addressing hash table; the decoder keeps a prefix table and writes each string
// back to front, so neither ever searches linearly.
#include "files/lzw.h"

#include <cstdlib>
#include <cstring>

#include "core/alloc.h"

namespace vek {

namespace {

// Twice the code space keeps linear probing short even with a full table; the hash
// only decides where entries sit, never which codes come out.
constexpr uint32_t kHashSlots = 8192;
constexpr uint32_t kHashEmpty = 0xFFFFFFFFu;
constexpr uint32_t kNoCode = 0xFFFFFFFFu;
constexpr size_t kIoSize = 4096;

}  // namespace

struct LZWData {
  FILE* stream;
  uint32_t bits;        // accumulator, filled from its least significant end
  uint32_t nbits;       // valid bits in the accumulator
  uint8_t* data;        // decoder: output buffer; encoder: next input byte
  uint32_t code;        // encoder: current prefix; decoder: last code read
  uint32_t byte;        // encoder: current byte; decoder: first byte of the last string
  uint32_t width;       // code width, 9..12
  size_t count;         // bytes written (encoder) or stored (decoder)
  uint8_t primed;       // encoder: first byte already taken by lzw_open_encode
  uint32_t next;        // next free code
  uint32_t previous;    // decoder: previous code, kNoCode right after a reset
  ImageRecord* image;   // decoder bound when opened on an image
  uint32_t arg_a, arg_b;
  bool has_prefix;      // encoder: `code` holds a prefix
  bool finished;        // decoder: end code (or end of input) met
  size_t capacity;      // decoder: bytes the buffer may hold
  const uint8_t* src;   // decoder: compressed bytes in memory (null: read the stream)
  size_t src_len, src_pos;
  size_t io_len, io_pos;
  uint8_t io[kIoSize];  // stream buffer for either direction
  // Decoder string table: code -> (prefix, last byte, first byte, length).
  uint16_t prefix[kLzwCodes];
  uint8_t suffix[kLzwCodes];
  uint8_t first[kLzwCodes];
  uint16_t length[kLzwCodes];
  // Encoder table: slot -> prefix << 20 | byte << 12 | code, or kHashEmpty.
  uint32_t hash[kHashSlots];
};

namespace {

void reset_table(LZWData* s) {
  s->next = kLzwFirstFree;
  s->width = 9;
}

void clear_hash(LZWData* s) { std::memset(s->hash, 0xFF, sizeof s->hash); }

uint32_t hash_of(uint32_t key) { return (key * 2654435761u) >> 19; }  // 13 bits

// ---- encoder output ----

bool flush_io(LZWData* s) {
  if (s->io_len == 0) return true;
  const size_t n = std::fwrite(s->io, 1, s->io_len, s->stream);
  s->count += n;
  const bool ok = n == s->io_len;
  s->io_len = 0;
  return ok;
}

bool put_code(LZWData* s, uint32_t code) {
  s->bits = (s->bits << s->width) | code;
  s->nbits += s->width;
  while (s->nbits >= 8) {
    s->nbits -= 8;
    s->io[s->io_len++] = static_cast<uint8_t>(s->bits >> s->nbits);
    if (s->io_len == kIoSize && !flush_io(s)) return false;
  }
  return true;
}

// ---- decoder input ----

int next_byte(LZWData* s) {
  if (s->src) return s->src_pos < s->src_len ? s->src[s->src_pos++] : -1;
  if (s->io_pos == s->io_len) {
    s->io_len = s->stream ? std::fread(s->io, 1, kIoSize, s->stream) : 0;
    s->io_pos = 0;
    if (s->io_len == 0) return -1;
  }
  return s->io[s->io_pos++];
}

// The end of the input reads as the end code.
uint32_t get_code(LZWData* s) {
  while (s->nbits < s->width) {
    const int b = next_byte(s);
    if (b < 0) return kLzwEnd;
    s->bits = (s->bits << 8) | static_cast<uint32_t>(b);
    s->nbits += 8;
  }
  s->nbits -= s->width;
  return (s->bits >> s->nbits) & ((1u << s->width) - 1);
}

// Writes the string of `code` at the output position, cut at the buffer's end.
void put_string(LZWData* s, uint32_t code) {
  const size_t len = s->length[code];
  const size_t room = s->capacity - s->count;
  size_t keep = len < room ? len : room;
  uint8_t* out = s->data + s->count;
  size_t i = len;
  // Walk back from the string's last byte; bytes past the buffer's end are dropped.
  while (i > keep) {
    code = s->prefix[code];
    --i;
  }
  while (i > 0) {
    out[--i] = s->suffix[code];
    code = s->prefix[code];
  }
  s->count += keep;
}

uint32_t decode_failure(uint32_t code, const char* message) {
  return report("lzw_decode", code, message);
}

}  // namespace

namespace {

LZWData* create_state(FILE* stream, uint8_t* data, uint32_t a, uint32_t b) {
  auto* s = static_cast<LZWData*>(vek::alloc(sizeof(LZWData)));
  if (!s) return nullptr;
  std::memset(s, 0, offsetof(LZWData, io));
  s->stream = stream;
  s->data = data;
  s->arg_a = a;
  s->arg_b = b;
  s->previous = kNoCode;
  reset_table(s);
  for (uint32_t c = 0; c < 256; ++c) {
    s->prefix[c] = 0;
    s->suffix[c] = s->first[c] = static_cast<uint8_t>(c);
    s->length[c] = 1;
  }
  clear_hash(s);
  return s;
}

uint32_t no_memory() {
  return report("lzw_open", VEK_ERROR_MEMORY, "LZW couldn't allocate memory for struct LZWData");
}

}  // namespace

uint32_t lzw_open(LZWData** state_out, FILE* stream, uint8_t* data, uint32_t a, uint32_t b) {
  if (state_out) *state_out = nullptr;
  if (!stream) return report("lzw_open", VEK_ERROR_BAD_HANDLE, "LZW null file pointer");
  if (!data) return report("lzw_open", VEK_ERROR_BAD_HANDLE, "LZW null data pointer");
  LZWData* s = create_state(stream, data, a, b);
  if (!s) return no_memory();
  *state_out = s;
  return VEK_OK;
}

uint32_t lzw_open_decode(LZWData** state_out, FILE* stream, ImageRecord* image, uint32_t n) {
  if (state_out) *state_out = nullptr;
  if (!image) return report("lzw_open", VEK_ERROR_BAD_HANDLE, "LZW null data pointer");
  uint32_t status = lzw_open(state_out, stream, image->data, n, 0);
  if (is_error(status)) return status;
  (*state_out)->image = image;
  (*state_out)->capacity = size_t(image->bytes_per_line) * image->lines_per_strip;
  return VEK_OK;
}

uint32_t lzw_open_decode_memory(LZWData** state_out, const uint8_t* src, size_t src_len,
                                uint8_t* dst, size_t capacity) {
  static const uint8_t kNothing = 0;
  *state_out = nullptr;
  if (!dst && capacity) return report("lzw_open", VEK_ERROR_BAD_HANDLE, "LZW null data pointer");
  LZWData* s = create_state(nullptr, dst, 0, 0);
  if (!s) return no_memory();
  s->src = src ? src : &kNothing;
  s->src_len = src ? src_len : 0;
  s->capacity = capacity;
  *state_out = s;
  return VEK_OK;
}

uint32_t lzw_open_encode(LZWData** state_out, FILE* stream, const uint8_t* input,
                         size_t available) {
  static const uint8_t kNothing = 0;
  if (available == 0 && !input) input = &kNothing;
  uint32_t status = lzw_open(state_out, stream, const_cast<uint8_t*>(input), 0, 0);
  if (is_error(status)) return status;
  LZWData* s = *state_out;
  // Nothing can fail before the stream buffer fills, so the Clear code is queued.
  put_code(s, kLzwClear);
  if (available == 0) return VEK_OK;  // empty data: nothing to prime
  s->code = input[0];
  s->has_prefix = true;
  s->primed = 1;
  s->data = const_cast<uint8_t*>(input) + 1;
  return VEK_OK;
}

void lzw_set_input(LZWData* s, const uint8_t* input) {
  if (s) s->data = const_cast<uint8_t*>(input);
}

uint32_t lzw_encode(LZWData* s, uint32_t n) {
  if (!s) return report("lzw_encode", VEK_ERROR_BAD_HANDLE, "LZW null data pointer");
  if (s->primed) {
    s->primed = 0;
    if (n > 0) --n;
  }
  const uint8_t* in = s->data;
  uint32_t p = s->code;
  bool has_prefix = s->has_prefix;
  for (uint32_t i = 0; i < n; ++i) {
    const uint32_t c = in[i];
    if (!has_prefix) {
      p = c;
      has_prefix = true;
      continue;
    }
    const uint32_t key = (p << 8) | c;
    uint32_t slot = hash_of(key);
    uint32_t entry;
    while ((entry = s->hash[slot]) != kHashEmpty && (entry >> 12) != key)
      slot = (slot + 1) & (kHashSlots - 1);
    if (entry != kHashEmpty) {
      p = entry & 0xFFFu;
      continue;
    }
    if (s->next < kLzwCodes) s->hash[slot] = (key << 12) | s->next++;
    if (!put_code(s, p)) return report("lzw_encode", VEK_ERROR_UNEXPECTED, "Unexpected EOF found");
    if (s->next == (1u << s->width) && s->width < 12 && s->next < kLzwCodes) ++s->width;
    if (s->next == kLzwCodes - 1) {
      if (!put_code(s, kLzwClear))
        return report("lzw_encode", VEK_ERROR_UNEXPECTED, "Unexpected EOF found");
      clear_hash(s);
      reset_table(s);
    }
    p = c;
  }
  s->data = const_cast<uint8_t*>(in) + n;
  s->code = p;
  s->has_prefix = has_prefix;
  return VEK_OK;
}

uint32_t lzw_close_encode(LZWData* s, uint32_t* byte_count_out) {
  if (!s) return report("lzw_close_encode", VEK_ERROR_BAD_HANDLE, "LZW null data pointer");
  bool ok = true;
  if (s->has_prefix) {
    ok = put_code(s, s->code);
    // The decoder adds a table entry on reading that last code and may widen before
    // the end code; follow it so the end code arrives at the width it expects.
    if (s->next < kLzwCodes && ++s->next == (1u << s->width) && s->width < 12) ++s->width;
  }
  ok = ok && put_code(s, kLzwEnd);
  if (ok && s->nbits > 0) {
    s->io[s->io_len++] = static_cast<uint8_t>(s->bits << (8 - s->nbits));
    s->nbits = 0;
  }
  ok = ok && flush_io(s);
  if (byte_count_out) *byte_count_out = static_cast<uint32_t>(s->count);
  std::free(s);
  return ok ? VEK_OK : report("lzw_encode", VEK_ERROR_UNEXPECTED, "Unexpected EOF found");
}

uint32_t lzw_decode(LZWData* s, uint32_t n) {
  if (!s) return report("lzw_decode", VEK_ERROR_BAD_HANDLE, "LZW null data pointer");
  for (uint32_t i = 0; i < n && !s->finished; ++i) {
    uint32_t code = get_code(s);
    if (code == kLzwEnd) {
      reset_table(s);
      s->bits = s->nbits = 0;
      s->finished = true;
      return VEK_OK;
    }
    if (s->count >= s->capacity) return VEK_OK;
    if (code == kLzwClear) {
      do {
        reset_table(s);
        code = get_code(s);
      } while (code == kLzwClear);
      if (code == kLzwEnd) {
        s->finished = true;
        return VEK_OK;
      }
      if (code == (1u << s->width) - 1)
        return decode_failure(VEK_ERROR_UNEXPECTED, "Unexpected EOF found");
      if (code > 255) return decode_failure(VEK_ERROR_CORRUPT_IMAGE, "LZW code not in table");
      put_string(s, code);
      s->previous = s->code = code;
      s->byte = code;
      continue;
    }
    if (s->previous == kNoCode) {
      // A stream that does not begin with Clear starts with an empty table.
      if (code > 255) return decode_failure(VEK_ERROR_CORRUPT_IMAGE, "LZW code not in table");
      put_string(s, code);
      s->previous = s->code = code;
      s->byte = code;
      continue;
    }
    if (code > s->next || (code == s->next && s->next >= kLzwCodes))
      return decode_failure(VEK_ERROR_CORRUPT_IMAGE, "LZW code not in table");
    if (s->next < kLzwCodes) {
      // A code not yet in the table is the previous string plus its own first byte.
      const uint32_t p = s->previous;
      const uint8_t head = code < s->next ? s->first[code] : s->first[p];
      const uint32_t e = s->next++;
      s->prefix[e] = static_cast<uint16_t>(p);
      s->suffix[e] = head;
      s->first[e] = s->first[p];
      s->length[e] = static_cast<uint16_t>(s->length[p] + 1);
      if (s->next == (1u << s->width) - 1 && s->width < 12) ++s->width;
    }
    put_string(s, code);
    s->byte = s->first[code];
    s->previous = s->code = code;
  }
  return VEK_OK;
}

uint32_t lzw_close_decode(LZWData* s) {
  std::free(s);
  return VEK_OK;
}

uint32_t lzw_close(LZWData* s) {
  std::free(s);
  return VEK_OK;
}

size_t lzw_decoded_bytes(const LZWData* s) { return s ? s->count : 0; }

bool lzw_decode_finished(const LZWData* s) { return s && s->finished; }

}  // namespace vek
