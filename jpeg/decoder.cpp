// Baseline JPEG decoder: Huffman decoding by single table look-ups, dequantisation,
// inverse DCT and store of each block in one pass, for one-component, 4:2:2 and
// 2x2-sampled (VEK_YUV411) streams.
//
// The 2x2 layout is delivered as VEK_YUV422: each output line takes its chroma from the
// two nearest chroma lines, weighted 3:1 by distance (chroma lines sit midway between
// luma line pairs), rounded, and repeated at the top and bottom edges. This averaging
// avoids the staircase that plain line repetition leaves on diagonal colour edges.
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "jpeg/dct.h"
#include "jpeg/internal.h"
#include "jpeg/kernels.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vek::jpeg {
namespace {

inline bool has_ff_byte64(uint64_t w) {
  const uint64_t v = ~w;
  return ((v - 0x0101010101010101ull) & ~v & 0x8080808080808080ull) != 0;
}

// MSB-first bit reader over the descriptor's data. 0xFF 0x00 yields 0xFF; past the end
// of the data 1-bits are shifted in. An EOI marker inside the data ends the data too,
// but consuming bits beyond it is an error (checked once per MCU by the caller).
struct BitReader {
  const uint8_t* p = nullptr;
  const uint8_t* end = nullptr;
  uint64_t buf = 0;
  int bits = 0;
  uint64_t loaded = 0;
  uint64_t limit = ~uint64_t(0);

  // Inlined so that the reader can live in registers inside the block loop.
  __attribute__((always_inline)) inline void refill() {
    if (end - p >= 8 && bits <= 56) {
      uint64_t w = 0;
      for (int i = 0; i < 8; ++i) w = (w << 8) | p[i];
      if (!has_ff_byte64(w)) {
        const int k = (63 - bits) >> 3;
        const int after = bits + 8 * k;
        buf |= (w >> bits) & (~uint64_t(0) << (64 - after));
        p += k;
        bits = after;
        loaded += uint64_t(8 * k);
        return;
      }
    }
    while (bits <= 56) {
      uint32_t b = 0xFF;
      if (p < end) {
        b = *p++;
        if (b == 0xFF && p < end) {
          if (*p == 0x00) {
            ++p;
          } else if (*p == 0xD9) {
            if (limit == ~uint64_t(0)) limit = loaded;
            p = end;
          }
        }
      }
      buf |= uint64_t(b) << (56 - bits);
      bits += 8;
      loaded += 8;
    }
  }
  uint32_t peek(int n) const { return uint32_t(buf >> (64 - n)); }
  void skip(int n) {
    buf <<= n;
    bits -= n;
  }
  bool past_eoi() const { return loaded - uint64_t(bits) > limit; }
  // A code that failed to decode may have been looked up in bits beyond the EOI.
  bool reads_past_eoi() const { return loaded - uint64_t(bits) + 16 > limit; }
};

inline int32_t extend(uint32_t v, int s) {
  return v < (1u << (s - 1)) ? int32_t(v) - (1 << s) + 1 : int32_t(v);
}

enum BlockResult { kBlockOk = 0, kBadDc, kBadAc, kTooMany };

// First-level AC look-up by the next kFastBits bits, for symbols whose code and
// magnitude bits fit there together (most of them): the coefficient comes out already
// sign-extended. `length` 0 sends the decoder to the full 16-bit table.
constexpr int kFastBits = 11;
struct FastAc {
  int16_t value;   // 0 for end of block and sixteen zeros (size 0)
  uint8_t run;
  uint8_t length;  // code plus magnitude bits
};

void build_fast(const AcEntry* ac, FastAc* fast) {
  for (uint32_t p = 0; p < (1u << kFastBits); ++p) {
    const AcEntry a = ac[p << (16 - kFastBits)];
    FastAc f{0, 0, 0};
    if (a.size != kInvalid && a.length > 0 && a.length + a.size <= kFastBits) {
      f.run = a.run;
      f.length = uint8_t(a.length + a.size);
      if (a.size) {
        const uint32_t v = (p >> (kFastBits - a.length - a.size)) & ((1u << a.size) - 1u);
        f.value = int16_t(v < (1u << (a.size - 1)) ? int32_t(v) - (1 << a.size) + 1 : int32_t(v));
      }
    }
    fast[p] = f;
  }
}

// Decodes one block into `coef` (natural order, dequantised by the zigzag-order steps
// `qz`; must arrive zeroed).
// `has_ac` tells whether any AC coefficient was stored, so a DC-only block can skip
// the transform.
__attribute__((always_inline)) inline BlockResult decode_block_in(BitReader& br, const DcEntry* dct, int dc_bits, const AcEntry* act,
                                   const FastAc* fast, int32_t& pred, const int32_t* qz, int32_t* coef,
                                   bool& has_ac) {
  if (br.bits < 32) br.refill();
  const DcEntry e = dct[br.peek(dc_bits)];
  if (e.category == kInvalid) return kBadDc;
  br.skip(e.length);
  int32_t diff = 0;
  if (e.category) {
    diff = extend(br.peek(e.category), e.category);
    br.skip(e.category);
  }
  pred = int32_t(uint32_t(pred) + uint32_t(diff));
  coef[0] = int32_t(uint32_t(pred) * uint32_t(qz[0]));
  bool any = false;
  for (int k = 1; k < 64;) {
    if (br.bits < 32) br.refill();
    const FastAc f = fast[br.peek(kFastBits)];
    // A coefficient beyond position 63 takes the full path, which fails before reading
    // its magnitude bits: the reader's position decides how the failure is reported.
    if (f.length && (f.value == 0 || k + f.run <= 63)) {
      br.skip(f.length);
      if (f.value) {
        k += f.run;
        const int n = kZigzag[k];
        coef[n] = int32_t(uint32_t(int32_t(f.value)) * uint32_t(qz[k]));
        any = true;
        ++k;
        continue;
      }
      if (f.run != 15) break;  // end of block
      k += 16;
      if (k > 64) return kTooMany;
      continue;
    }
    const AcEntry a = act[br.peek(16)];
    if (a.size == kInvalid) return kBadAc;
    br.skip(a.length);
    if (a.size == 0) {
      if (a.run != 15) break;  // end of block
      k += 16;
      if (k > 64) return kTooMany;
      continue;
    }
    k += a.run;
    if (k > 63) return kTooMany;
    const int32_t v = extend(br.peek(a.size), a.size);
    br.skip(a.size);
    const int n = kZigzag[k];
    coef[n] = int32_t(uint32_t(v) * uint32_t(qz[k]));
    any = true;
    ++k;
  }
  has_ac = any;
  return kBlockOk;
}

// The reader is copied into a local for the block: through the caller's reference the
// compiler must assume that every coefficient store may change it.
__attribute__((always_inline)) inline BlockResult decode_block(BitReader& shared, const DcEntry* dct, int dc_bits, const AcEntry* act,
                                const FastAc* fast, int32_t& pred, const int32_t* qz, int32_t* coef,
                                bool& has_ac) {
  BitReader br = shared;
  int32_t p = pred;
  bool any = false;
  const BlockResult r = decode_block_in(br, dct, dc_bits, act, fast, p, qz, coef, any);
  shared = br;
  pred = p;
  has_ac = any;
  return r;
}

// Transforms a decoded block into 8 rows of bytes and leaves `coef` zeroed again.
inline void finish_block(const Kernels& kern, int32_t* coef, bool has_ac, uint8_t* out, size_t stride) {
  if (!has_ac) {
    const uint8_t v = dc_only_value(coef[0]);
    for (int r = 0; r < 8; ++r) std::memset(out + r * stride, v, 8);
    coef[0] = 0;
    return;
  }
  kern.idct(coef, out, stride);
  std::memset(coef, 0, 64 * sizeof(int32_t));
}

const char* block_message(BlockResult r) {
  switch (r) {
    case kBadDc: return "corrupt DC Huffman sequence";
    case kBadAc: return "corrupt AC Huffman sequence";
    default: return "corrupt AC Huffman sequence (> 63 coeffs read)";
  }
}

uint32_t block_failure(const char* fn, const char* prefix, BlockResult r) {
  char text[96];
  std::strcpy(text, prefix);
  std::strcat(text, block_message(r));
  return report(fn, VEK_ERROR_BAD_STATE, text);
}

struct DecodeContext {
  BitReader br;
  DecodeSet tables{};
  const Kernels* kern = nullptr;
  const FastAc* fast[2] = {nullptr, nullptr};
  FastAc own_fast[2][1 << kFastBits];
  int32_t qz[2][64];  // steps of components 1 and 2/3, zigzag order like the coded data
  int32_t pred[3] = {0, 0, 0};
};

// Sets up the reader and the tables for one decode. Returns 0 or a reported error.
uint32_t prepare(const char* fn, const ImageRecord& src, DecodeContext& ctx, StreamDecodeSet& own) {
  const Tjpeg& j = *src.jpeg;
  if (!j.data) return report(fn, VEK_ERROR_BAD_STATE, "Buffer failed to fill at start");
  ctx.br.p = j.data;
  ctx.br.end = j.data + j.data_length;
  ctx.br.refill();
  if (uses_standard_tables(j)) {
    if (!default_tables_ready()) return report(fn, VEK_ERROR_INTERNAL, "Huffman tables not built");
    ctx.tables = default_decode_set();
    // The standard tables never change once built, so neither do their fast tables.
    static const struct DefaultFast {
      FastAc t[2][1 << kFastBits];
      DefaultFast() {
        for (int i = 0; i < 2; ++i) build_fast(default_decode_set().ac[i], t[i]);
      }
    } fast;
    ctx.fast[0] = fast.t[0];
    ctx.fast[1] = fast.t[1];
  } else {
    const uint32_t status = own.build(j);
    if (status == VEK_ERROR_MEMORY) return report(fn, VEK_ERROR_MEMORY);
    if (is_error(status)) return report(fn, VEK_ERROR_CORRUPT_IMAGE, "Invalid Huffman table");
    ctx.tables = own.set();
    for (int i = 0; i < 2; ++i) {
      build_fast(ctx.tables.ac[i], ctx.own_fast[i]);
      ctx.fast[i] = ctx.own_fast[i];
    }
  }
  ctx.kern = &kernels();
  for (int c = 0; c < 2; ++c) {
    const int slot = j.q_selector[c] & 3;
    for (int k = 0; k < 64; ++k) ctx.qz[c][k] = j.q_table[slot][k];
  }
  return VEK_OK;
}

uint32_t eoi_failure(const char* fn) {
  return report(fn, VEK_ERROR_BAD_STATE | 1u, "Unexpected EOI - processing byte 2");
}

uint32_t decode_y8(const ImageRecord& src, ImageRecord& dst) {
  static const char kFn[] = "VEK_JPEG_Decode_1_strip_Y8";
  DecodeContext ctx;
  StreamDecodeSet own;
  uint32_t status = prepare(kFn, src, ctx, own);
  if (is_error(status)) return status;
  const size_t pitch = dst.bytes_per_line;
  alignas(32) int32_t coef[64] = {};
  const Kernels& kern = *ctx.kern;
  for (uint32_t y = 0; y < dst.height; y += 8) {
    for (uint32_t x = 0; x < dst.width; x += 8) {
      bool has_ac = false;
      const BlockResult r = decode_block(ctx.br, ctx.tables.dc[0], ctx.tables.dc_bits[0], ctx.tables.ac[0],
                                         ctx.fast[0], ctx.pred[0], ctx.qz[0], coef, has_ac);
      // Garbage decoded from the 1-bits after an EOI is reported as the EOI it is.
      if (r != kBlockOk && ctx.br.reads_past_eoi()) return eoi_failure(kFn);
      if (r != kBlockOk) return block_failure(kFn, "", r);
      if (ctx.br.past_eoi()) return eoi_failure(kFn);
      finish_block(kern, coef, has_ac, dst.data + size_t(y) * pitch + x, pitch);
    }
  }
  return VEK_OK;
}

// Decodes the blocks of one MCU in order into 8x8 byte tiles.
inline uint32_t decode_mcu(const char* fn, DecodeContext& ctx, int luma_blocks, uint8_t (*tiles)[64]) {
  static const char* const kNames[6][2] = {{"Y1: ", "Y1: "}, {"Y2: ", "Y2: "}, {"Y3: ", "U: "},
                                           {"Y4: ", "V: "},  {"U: ", ""},     {"V: ", ""}};
  alignas(32) int32_t coef[64] = {};
  const int total = luma_blocks + 2;
  for (int b = 0; b < total; ++b) {
    const int c = b < luma_blocks ? 0 : b - luma_blocks + 1;
    const int t = c == 0 ? 0 : 1;
    bool has_ac = false;
    const BlockResult r = decode_block(ctx.br, ctx.tables.dc[t], ctx.tables.dc_bits[t], ctx.tables.ac[t],
                                       ctx.fast[t], ctx.pred[c], ctx.qz[t], coef, has_ac);
    if (r != kBlockOk) {
      if (ctx.br.reads_past_eoi()) return eoi_failure(fn);
      return block_failure(fn, kNames[b][luma_blocks == 2 ? 1 : 0], r);
    }
    finish_block(*ctx.kern, coef, has_ac, tiles[b], 8);
  }
  if (ctx.br.past_eoi()) return eoi_failure(fn);
  return VEK_OK;
}

// Writes the tiles Y1 Y2 U V of one MCU as 8 lines of Y0 U Y1 V quadruples.
inline void interleave_422(const uint8_t (*tiles)[64], uint8_t* out, size_t pitch) {
  for (int r = 0; r < 8; ++r, out += pitch) {
#if defined(__SSE2__)
    const __m128i y = _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(tiles[0] + 8 * r)),
                                         _mm_loadl_epi64(reinterpret_cast<const __m128i*>(tiles[1] + 8 * r)));
    const __m128i uv = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(tiles[2] + 8 * r)),
                                         _mm_loadl_epi64(reinterpret_cast<const __m128i*>(tiles[3] + 8 * r)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(y, uv));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16), _mm_unpackhi_epi8(y, uv));
#else
    const uint8_t* y1 = tiles[0] + 8 * r;
    const uint8_t* y2 = tiles[1] + 8 * r;
    const uint8_t* u = tiles[2] + 8 * r;
    const uint8_t* v = tiles[3] + 8 * r;
    for (int i = 0; i < 4; ++i) {
      out[4 * i] = y1[2 * i];
      out[4 * i + 1] = u[i];
      out[4 * i + 2] = y1[2 * i + 1];
      out[4 * i + 3] = v[i];
      out[16 + 4 * i] = y2[2 * i];
      out[16 + 4 * i + 1] = u[i + 4];
      out[16 + 4 * i + 2] = y2[2 * i + 1];
      out[16 + 4 * i + 3] = v[i + 4];
    }
#endif
  }
}

uint32_t decode_yuv422(const ImageRecord& src, ImageRecord& dst) {
  static const char kFn[] = "VEK_JPEG_Decode_1_strip_YUV422";
  DecodeContext ctx;
  StreamDecodeSet own;
  uint32_t status = prepare(kFn, src, ctx, own);
  if (is_error(status)) return status;
  const size_t pitch = dst.bytes_per_line;
  alignas(32) uint8_t tiles[4][64];
  for (uint32_t y = 0; y < dst.height; y += 8) {
    for (uint32_t x = 0; x < dst.width; x += 16) {
      status = decode_mcu(kFn, ctx, 2, tiles);
      if (is_error(status)) return status;
      uint8_t* out = dst.data + size_t(y) * pitch + size_t(x) * 2;
      interleave_422(tiles, out, pitch);
    }
  }
  return VEK_OK;
}

uint32_t decode_yuv411(const ImageRecord& src, ImageRecord& dst) {
  static const char kFn[] = "VEK_Huffman_decode_1_strip";
  DecodeContext ctx;
  StreamDecodeSet own;
  uint32_t status = prepare(kFn, src, ctx, own);
  if (is_error(status)) return status;
  const size_t pitch = dst.bytes_per_line;
  const size_t cw = dst.width / 2, ch = dst.height / 2;
  size_t plane = 0;
  if (!checked_size(cw, ch, 2, plane)) return report(kFn, VEK_ERROR_MEMORY);
  auto* chroma = static_cast<uint8_t*>(vek::alloc(plane));
  if (!chroma) return report(kFn, VEK_ERROR_MEMORY | uint32_t(plane & 0xFFFFu));
  uint8_t* cu = chroma;
  uint8_t* cv = chroma + cw * ch;
  alignas(32) uint8_t tiles[6][64];
  for (uint32_t y = 0; y < dst.height && !is_error(status); y += 16) {
    for (uint32_t x = 0; x < dst.width; x += 16) {
      status = decode_mcu(kFn, ctx, 4, tiles);
      if (is_error(status)) break;
      for (int r = 0; r < 16; ++r) {
        uint8_t* out = dst.data + size_t(y + r) * pitch + size_t(x) * 2;
        const uint8_t* left = tiles[r < 8 ? 0 : 2] + 8 * (r & 7);
        const uint8_t* right = tiles[r < 8 ? 1 : 3] + 8 * (r & 7);
        for (int i = 0; i < 8; ++i) {
          out[2 * i] = left[i];
          out[16 + 2 * i] = right[i];
        }
      }
      for (int r = 0; r < 8; ++r) {
        std::memcpy(cu + (y / 2 + r) * cw + x / 2, tiles[4] + 8 * r, 8);
        std::memcpy(cv + (y / 2 + r) * cw + x / 2, tiles[5] + 8 * r, 8);
      }
    }
  }
  if (!is_error(status)) {
    for (size_t y = 0; y < dst.height; ++y) {
      const size_t near = y / 2;
      size_t far = (y & 1) ? near + 1 : near - 1;
      if (y < 1) far = 0;
      if (far >= ch) far = ch - 1;
      const uint8_t* un = cu + near * cw;
      const uint8_t* uf = cu + far * cw;
      const uint8_t* vn = cv + near * cw;
      const uint8_t* vf = cv + far * cw;
      uint8_t* out = dst.data + y * pitch;
      for (size_t i = 0; i < cw; ++i) {
        out[4 * i + 1] = uint8_t((3 * un[i] + uf[i] + 2) >> 2);
        out[4 * i + 3] = uint8_t((3 * vn[i] + vf[i] + 2) >> 2);
      }
    }
  }
  std::free(chroma);
  return status;
}

struct FlagRestore {
  ImageRecord* rec;
  uint32_t saved;
  ~FlagRestore() {
    if (rec) rec->flags = (rec->flags & ~VEK_FLAG_LOCKED) | saved;
  }
};

struct TempImage {
  uint32_t handle = 0;
  ~TempImage() {
    if (handle && !is_error(handle)) VEK_image_destroy(handle);
  }
};

}  // namespace
}  // namespace vek::jpeg

using namespace vek;
using namespace vek::jpeg;

extern "C" {

VEK_API uint32_t VEK_JPEG_decompress_1_strip(uint32_t src, uint32_t dst) {
  static const char kName[] = "VEK_JPEG_decompress_1_strip";
  uint32_t status = VEK_image_check(src);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  const ImageRecord* s = lookup(src);
  if (!s->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  if (!lookup(dst)) return report(kName, VEK_ERROR_BAD_HANDLE, "Output image does not exist");
  uint32_t mcu_w = 16, mcu_h = 8, out_format = VEK_YUV422;
  switch (s->format) {
    case VEK_Y8: mcu_w = 8; out_format = VEK_Y8; break;
    case VEK_YUV422: break;
    case VEK_YUV411:
      mcu_h = 16;
      if (s->lines_per_strip < s->height && s->lines_per_strip % 16)
        return report(kName, VEK_ERROR_NOT_SUPPORTED,
                      "For YUV 4:1:1 JPEG decoding, strip must be multiple of 16 lines");
      break;
    default: return report(kName, VEK_ERROR_NOT_SUPPORTED, "Unrecognized source format");
  }
  if (s->width == 0 || s->height == 0) return report(kName, VEK_ERROR_CORRUPT_IMAGE, "Corrupt image");
  const uint64_t pw = (uint64_t(s->width) + mcu_w - 1) / mcu_w * mcu_w;
  const uint64_t ph = (uint64_t(s->height) + mcu_h - 1) / mcu_h * mcu_h;
  ImageRecord* d = lookup(dst);
  VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, out_format);
  d->width = uint32_t(pw);
  d->height = uint32_t(ph);
  d->lines_per_strip = uint32_t(ph);
  d->flags &= ~VEK_FLAG_JPEG;
  status = VEK_image_check(dst);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  VEK_image_free_data(dst);
  status = VEK_image_malloc_a_strip(dst);
  if (is_error(status)) return status;
  d = lookup(dst);
  if (s->format == VEK_Y8) return decode_y8(*s, *d);
  if (s->format == VEK_YUV422) return decode_yuv422(*s, *d);
  return decode_yuv411(*s, *d);
}

VEK_API uint32_t VEK_JPEG_decompress(uint32_t src, uint32_t dst) {
  static const char kName[] = "VEK_JPEG_decompress";
  uint32_t status = VEK_image_check(src);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  ImageRecord* s = lookup(src);
  if (!s->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  const uint32_t format = s->format;
  if (format != VEK_Y8 && format != VEK_YUV422 && format != VEK_YUV411)
    return report(kName, VEK_ERROR_NOT_SUPPORTED | format, "Unsupported image format");
  ImageRecord* d = lookup(dst);
  if (!d) return report(kName, VEK_ERROR_BAD_HANDLE, "Output image does not exist");
  if (s->width == 0 || s->height == 0) return report(kName, VEK_ERROR_CORRUPT_IMAGE, "Corrupt image");

  FlagRestore keep_dst{d, d->flags & VEK_FLAG_LOCKED};
  FlagRestore keep_src{s, s->flags & VEK_FLAG_LOCKED};
  s->flags |= VEK_FLAG_LOCKED;
  // A stream with its own Huffman tables keeps them, so it decodes the same way every
  // time; with the standard tables (or none) the descriptor gets the defaults back.
  if (uses_standard_tables(*s->jpeg)) VEK_JPEG_set_default_H_tables(src);

  const uint32_t width = s->width, height = s->height;
  const bool mono = format == VEK_Y8;
  const uint32_t mcu_w = mono ? 8 : 16, mcu_h = format == VEK_YUV411 ? 16 : 8;
  const bool padded = width % mcu_w || height % mcu_h;
  const uint32_t target = d->format;
  const bool direct = mono || target == VEK_YUV422;

  TempImage decoded, cropped;
  uint32_t stage = dst;
  if (padded || !direct) {
    decoded.handle = VEK_image_create();
    if (is_error(decoded.handle)) return decoded.handle;
    stage = decoded.handle;
  }
  status = VEK_JPEG_decompress_1_strip(src, stage);
  if (is_error(status)) return status;
  if (padded) {
    uint32_t out = dst;
    if (!direct) {
      cropped.handle = VEK_image_create();
      if (is_error(cropped.handle)) return cropped.handle;
      out = cropped.handle;
    }
    const uint32_t region[4] = {0, 0, width, height};
    status = VEK_IP_crop(stage, out, region, VEK_STRIP_NEXT);
    if (is_error(status)) return status;
    stage = out;
  }
  if (!direct) {
    if (target == VEK_RGB24) status = VEK_YUV422_to_RGB24(stage, dst, VEK_STRIP_NEXT);
    else if (target == VEK_BGR24) status = VEK_YUV422_to_BGR24(stage, dst, VEK_STRIP_NEXT);
    else status = VEK_YUV422_to_BGRX32(stage, dst, VEK_STRIP_NEXT);
    if (is_error(status)) return status;
  }
  d = lookup(dst);
  d->flags &= ~VEK_FLAG_JPEG;
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_ConvertToMonoYUV(uint32_t handle) {
  Tjpeg* d = descriptor(handle);
  if (!d) return report("VEK_JPEG_ConvertToMonoYUV", VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  std::memset(d->q_table[1], 0, 64);
  return VEK_OK;
}

}  // extern "C"
