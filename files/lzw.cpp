// LZW codec for TIFF strips. The encoder finds (prefix, byte) pairs in an open-
// addressing hash table; the decoder remembers where in its output each string was
// written and copies it from there, so neither ever searches or walks a chain.
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
  // Decoder string table: code -> (output position, first byte, length). The output
  // only grows, so a string once written stays where it was and later copies of it
  // are taken from there.
  size_t where[kLzwCodes];
  size_t last_at;       // decoder: output position of the previous code's string
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
  s->last_at = 0;
  reset_table(s);
  for (uint32_t c = 0; c < 256; ++c) {
    s->where[c] = 0;
    s->first[c] = static_cast<uint8_t>(c);
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
  // The hot state is held in locals and written back on every way out: stores into
  // the output bytes may alias any field of the state, which would otherwise be
  // reloaded after each byte written.
  uint32_t bits = s->bits, nbits = s->nbits, width = s->width, next = s->next, previous = s->previous;
  size_t count = s->count, src_pos = s->src_pos;
  const size_t capacity = s->capacity, src_len = s->src_len;
  const uint8_t* const src = s->src;
  uint8_t* const out = s->data;
  size_t* const where = s->where;
  size_t last_at = s->last_at;
  uint8_t* const first = s->first;
  uint16_t* const length = s->length;
  bool finished = s->finished;
  auto save = [&] {
    s->bits = bits;
    s->nbits = nbits;
    s->width = width;
    s->next = next;
    s->previous = s->code = previous;
    if (previous != kNoCode) s->byte = first[previous];
    s->count = count;
    s->src_pos = src_pos;
    s->finished = finished;
    s->last_at = last_at;
  };
  // The end of the input reads as the end code.
  auto get = [&]() -> uint32_t {
    while (nbits < width) {
      int b;
      if (src) {
        b = src_pos < src_len ? src[src_pos++] : -1;
      } else {
        b = next_byte(s);
      }
      if (b < 0) return kLzwEnd;
      bits = (bits << 8) | static_cast<uint32_t>(b);
      nbits += 8;
    }
    nbits -= width;
    return (bits >> nbits) & ((1u << width) - 1);
  };
  // Writes the string of `code`, cut at the buffer's end. Single bytes are the codes
  // themselves; longer strings are copied from where they were written before. A
  // string that ends in its own first byte (a code entered just now) overlaps its
  // copy by one byte and is copied forward byte by byte.
  auto emit = [&](uint32_t code) {
    last_at = count;
    if (count >= capacity) return;
    if (code < 256) {
      out[count++] = static_cast<uint8_t>(code);
      return;
    }
    const size_t room = capacity - count;
    const size_t len = length[code] < room ? length[code] : room;
    const size_t from = where[code];
    if (from + len <= count && len <= 16 && capacity - count >= 16) {
      // Most strings are short: two whole words, loaded before either is stored, cover
      // them without a call; the bytes past the string lie beyond the output so far
      // and are overwritten by what follows.
      uint64_t a, b;
      std::memcpy(&a, out + from, 8);
      std::memcpy(&b, out + from + 8, 8);
      std::memcpy(out + count, &a, 8);
      std::memcpy(out + count + 8, &b, 8);
    } else if (from + len <= count) {
      std::memcpy(out + count, out + from, len);
    } else {
      for (size_t k = 0; k < len; ++k) out[count + k] = out[from + k];
    }
    count += len;
  };
  for (uint32_t i = 0; i < n && !finished; ++i) {
    uint32_t code = get();
    if (code == kLzwEnd) {
      next = kLzwFirstFree;
      width = 9;
      bits = nbits = 0;
      finished = true;
      break;
    }
    if (count >= capacity) break;
    if (code == kLzwClear) {
      do {
        next = kLzwFirstFree;
        width = 9;
        code = get();
      } while (code == kLzwClear);
      if (code == kLzwEnd) {
        finished = true;
        break;
      }
      if (code == (1u << width) - 1) {
        save();
        return decode_failure(VEK_ERROR_UNEXPECTED, "Unexpected EOF found");
      }
      if (code > 255) {
        save();
        return decode_failure(VEK_ERROR_CORRUPT_IMAGE, "LZW code not in table");
      }
      emit(code);
      previous = code;
      continue;
    }
    if (previous == kNoCode) {
      // A stream that does not begin with Clear starts with an empty table.
      if (code > 255) {
        save();
        return decode_failure(VEK_ERROR_CORRUPT_IMAGE, "LZW code not in table");
      }
      emit(code);
      previous = code;
      continue;
    }
    if (code > next || (code == next && next >= kLzwCodes)) {
      save();
      return decode_failure(VEK_ERROR_CORRUPT_IMAGE, "LZW code not in table");
    }
    if (next < kLzwCodes) {
      // The new entry is the previous string plus this code's first byte, which is
      // just what the output holds from the previous string on once this code is
      // written (also for a code not yet in the table, whose string starts there).
      const uint32_t e = next++;
      where[e] = last_at;
      first[e] = first[previous];
      length[e] = static_cast<uint16_t>(length[previous] + 1);
      if (next == (1u << width) - 1 && width < 12) ++width;
    }
    emit(code);
    previous = code;
  }
  save();
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
