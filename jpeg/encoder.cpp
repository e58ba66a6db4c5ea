// Baseline JPEG encoder: padding to whole MCUs, colour preparation, forward DCT,
// reciprocal quantisation and Huffman coding of a whole image in one pass.
#include <bit>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "jpeg/dct.h"
#include "jpeg/internal.h"
#include "jpeg/kernels.h"

namespace vek::jpeg {
namespace {

// Worst case of one MCU (four blocks of 11 + 11 DC bits and 63 x (16 + 10) AC bits,
// every byte stuffed), rounded up; the tail adds at most 5 stuffed bytes and EOI.
constexpr size_t kMcuReserve = 2048;
constexpr size_t kTailReserve = 16;

inline bool has_ff_byte(uint64_t w) {
  const uint64_t v = ~w;
  return ((v - 0x0101010101010101ull) & ~v & 0x8080808080808080ull) != 0;
}

// MSB-first bit writer over a 64-bit word, emptied 8 bytes at a time (each 0xFF byte
// followed by a stuffed 0x00). The data are defined in terms of a 32-bit word emptied
// 4 bytes at a time; since 64 is a multiple of 32, the pending count taken modulo 32
// is the same in both, and that is all the end-of-data rule looks at.
struct BitWriter {
  uint64_t acc = 0;
  int free = 64;  // never 0 after a put, so that the shifts below stay below 64
  uint8_t* out = nullptr;

  inline void put(uint32_t value, int n) {  // value < 2^n, n <= 32
    if (n < free) {
      acc = (acc << n) | value;
      free -= n;
      return;
    }
    const int rest = n - free;
    emit(acc << free | (uint64_t(value) >> rest));
    // The bits of `value` already emitted are shifted out before the next emit.
    acc = value;
    free = 64 - rest;
  }

  inline void emit(uint64_t w) {
    if (!has_ff_byte(w)) {
      const uint64_t be = __builtin_bswap64(w);
      std::memcpy(out, &be, 8);
      out += 8;
      return;
    }
    for (int s = 56; s >= 0; s -= 8) byte(uint8_t(w >> s));
  }

  inline void byte(uint8_t b) {
    *out++ = b;
    if (b == 0xFF) *out++ = 0;
  }

  // With n pending bits modulo 32, n > 0: floor(n / 8) + 1 bytes from the top of the
  // word, unused low bits 0, so a multiple of 8 ends in one extra 0x00 byte.
  void finish() {
    const int pending = 64 - free;
    if (pending == 0) return;
    const uint64_t w = acc << free;
    int i = 0;
    for (; i < pending / 8; ++i) byte(uint8_t(w >> (56 - 8 * i)));
    if (pending % 32) byte(uint8_t(w >> (56 - 8 * i)));
    free = 64;
    acc = 0;
  }
};

// Bit n of byte b of a natural-order mask, moved to its zigzag position: eight look-ups
// turn the kernels' natural-order nonzero mask into the coding order.
struct ZigzagMaskTable {
  uint64_t bits[8][256];
  ZigzagMaskTable() {
    for (int byte = 0; byte < 8; ++byte)
      for (int v = 0; v < 256; ++v) {
        uint64_t m = 0;
        for (int b = 0; b < 8; ++b)
          if (v & (1 << b)) m |= uint64_t(1) << kNaturalToZigzag[8 * byte + b];
        bits[byte][v] = m;
      }
  }
  uint64_t operator()(uint64_t natural) const {
    uint64_t m = 0;
    for (int byte = 0; byte < 8; ++byte) m |= bits[byte][(natural >> (8 * byte)) & 0xFF];
    return m;
  }
};
const ZigzagMaskTable kZigzagMask;

// The descriptor's zigzag-order table slot in the natural order the kernels use.
void natural_quant(const Tjpeg& j, int slot, QuantNat& q) {
  for (int k = 0; k < 64; ++k) {
    q.step[kZigzag[k]] = j.q_table[slot][k];
    q.reciprocal[kZigzag[k]] = j.q_reciprocal[slot][k];
  }
}

struct Component {
  const QuantNat* q;
  const CodeEntry* dc;
  const CodeEntry* ac;
};

// Transforms, quantises and Huffman-codes one natural-order block of level-shifted
// samples. Only the nonzero coefficients are visited, in zigzag order.
inline void encode_block(const Kernels& kern, int32_t* block, const Component& comp, int32_t& predictor,
                         BitWriter& shared) {
  // A local copy keeps the writer in registers: through the reference, every byte it
  // stores could change it.
  BitWriter bw = shared;
  // Sizes and magnitude bits come from the block kernel, several lanes at a time; the
  // loop below only looks up codes.
  alignas(32) uint32_t sized[64];
  const uint64_t natural = kern.fdct_quant_sized(block, sized, *comp.q);
  const int32_t diff = block[0] - predictor;
  predictor = block[0];
  {
    const uint32_t mag = uint32_t(diff < 0 ? -diff : diff);
    const int cat = int(std::bit_width(mag));
    const uint32_t bits = uint32_t(diff < 0 ? diff - 1 : diff) & ((1u << cat) - 1u);
    const CodeEntry& e = comp.dc[cat];
    bw.put((e.code << cat) | bits, e.length + cat);
  }

  const CodeEntry* ac = comp.ac;
  uint64_t nonzero = kZigzagMask(natural) & ~uint64_t(1);
  int last = 0;
  while (nonzero) {
    const int k = std::countr_zero(nonzero);
    nonzero &= nonzero - 1;
    int run = k - last - 1;
    last = k;
    while (run > 15) {
      bw.put(ac[0xF0].code, ac[0xF0].length);
      run -= 16;
    }
    const uint32_t s = sized[kZigzag[k]];
    const int size = int(s >> 16);
    const CodeEntry& e = ac[run * 16 + size];
    bw.put((e.code << size) | (s & 0xFFFFu), e.length + size);
  }
  if (last != 63) bw.put(ac[0x00].code, ac[0x00].length);
  shared = bw;
}

// Loads an 8x8 block of bytes, level-shifted.
inline void load_block(const uint8_t* p, size_t pitch, int32_t* block) {
  for (int r = 0; r < 8; ++r, p += pitch)
    for (int c = 0; c < 8; ++c) block[8 * r + c] = int32_t(p[c]) - 128;
}

// Makes sure `need` more bytes fit after the writer's position, growing the buffer
// when the library owns it. Returns 0 or the memory error.
uint32_t ensure_room(uint32_t handle, BitWriter& bw, size_t need, size_t& capacity) {
  ImageRecord* rec = lookup(handle);
  uint8_t* base = rec->jpeg->data;
  const size_t used = size_t(bw.out - base);
  if (used + need <= capacity) return VEK_OK;
  size_t grown = capacity * 2;
  if (grown < used + need) grown = used + need;
  if ((rec->flags & (VEK_FLAG_LOCKED | VEK_FLAG_EXTERNAL)) || grown > 0xFFFFFFFFu)
    return VEK_ERROR_MEMORY | uint32_t(grown & 0xFFFFu);
  auto* bigger = static_cast<uint8_t*>(vek::alloc(grown));
  if (!bigger) return VEK_ERROR_MEMORY | uint32_t(grown & 0xFFFFu);
  std::memcpy(bigger, base, used);
  std::free(base);
  rec->jpeg->data = bigger;
  rec->jpeg->current = bigger;
  remember_capacity(handle, bigger, grown);
  capacity = grown;
  bw.out = bigger + used;
  return VEK_OK;
}

}  // namespace
}  // namespace vek::jpeg

using namespace vek;
using namespace vek::jpeg;

namespace {

// Destroys the temporary images of one call on every path.
struct TempImages {
  uint32_t handles[2] = {0, 0};
  ~TempImages() {
    for (uint32_t h : handles)
      if (h && !is_error(h)) VEK_image_destroy(h);
  }
};

}  // namespace

extern "C" {

VEK_API uint32_t VEK_pad_to_MCU_1_strip(uint32_t src, uint32_t padded) {
  static const char kName[] = "VEK_pad_to_MCU_1_strip";
  uint32_t status = VEK_image_check(src);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  const ImageRecord* s = lookup(src);
  if (s->format < 2 || s->format > 12) return report(kName, VEK_ERROR_NOT_SUPPORTED, "Unsupported image type");
  if (!s->data) return report(kName, VEK_ERROR_BAD_PARAMETER, "Source image has no data");
  const uint32_t mcu_w = s->format == VEK_Y8 ? 8 : 16;
  const uint64_t pw = (uint64_t(s->width) + mcu_w - 1) / mcu_w * mcu_w;
  const uint64_t ph = (uint64_t(s->height) + 7) / 8 * 8;
  if (pw > 0xFFFFFFF0u || ph > 0xFFFFFFF0u || s->width == 0 || s->height == 0)
    return report(kName, VEK_ERROR_BAD_PARAMETER, "Image too large");
  status = VEK_image_copy_parameters_raw(src, padded);
  if (is_error(status)) return status;
  ImageRecord* p = lookup(padded);
  p->flags &= ~VEK_FLAG_JPEG;
  p->width = uint32_t(pw);
  p->height = uint32_t(ph);
  p->lines_per_strip = uint32_t(ph);
  status = VEK_image_check(padded);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  VEK_image_free_data(padded);
  status = VEK_image_malloc_a_strip(padded);
  if (is_error(status)) return status;

  const FormatTraits* t = format_traits(s->format);
  const size_t bpp = t && t->pixel_bytes ? t->pixel_bytes : 1;
  const size_t row = size_t(s->width) * bpp;
  const uint32_t lines = s->lines_per_strip < s->height ? s->lines_per_strip : s->height;
  for (uint32_t y = 0; y < p->height; ++y) {
    uint8_t* d = p->data + size_t(y) * p->bytes_per_line;
    if (y >= lines) {
      std::memcpy(d, p->data + size_t(lines - 1) * p->bytes_per_line, size_t(pw) * bpp);
      continue;
    }
    std::memcpy(d, s->data + size_t(y) * s->bytes_per_line, row);
    if (s->format == VEK_YUV422 && s->width >= 2) {
      // The last pixel of a 4:2:2 line carries its pair's chroma along.
      const uint8_t* last = d + (size_t(s->width) / 2 - 1) * 4;
      for (uint64_t x = s->width & ~1u; x < pw; x += 2) {
        uint8_t* q = d + x * 2;
        q[0] = last[2], q[1] = last[1], q[2] = last[2], q[3] = last[3];
      }
    } else {
      const uint8_t* last = d + row - bpp;
      for (uint64_t x = s->width; x < pw; ++x) std::memcpy(d + x * bpp, last, bpp);
    }
  }
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_compress_1_strip(uint32_t src, uint32_t dst) {
  static const char kName[] = "VEK_JPEG_compress_1_strip";
  uint32_t status = VEK_image_check(src);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  const ImageRecord* s = lookup(src);
  ImageRecord* d = lookup(dst);
  if (!d || !d->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  const uint32_t format = s->format;
  if (format != VEK_Y8 && format != VEK_YUV422 && format != VEK_BGR24 && format != VEK_BGRX32)
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Unsupported image type/pixel format");
  const uint32_t mcu_w = format == VEK_Y8 ? 8 : 16;
  if (s->width % mcu_w || s->height % 8 || s->lines_per_strip < s->height || !s->data)
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Image is not padded to whole MCUs");
  if (!default_tables_ready()) return report(kName, VEK_ERROR_INTERNAL, "Huffman tables not built");

  VEK_JPEG_free_data(dst);
  status = VEK_JPEG_malloc_data(dst);
  if (is_error(status)) return status;
  size_t capacity = data_capacity(dst);

  Tjpeg& j = *d->jpeg;
  const Kernels& kern = kernels();
  QuantNat qluma, qchroma;
  natural_quant(j, 0, qluma);
  natural_quant(j, 1, qchroma);
  const Component luma{&qluma, g_codes[kDcLuma], g_codes[kAcLuma]};
  const Component chroma{&qchroma, g_codes[kDcChroma], g_codes[kAcChroma]};
  BitWriter bw;
  bw.out = j.data;
  int32_t pred[3] = {0, 0, 0};
  alignas(32) int32_t blocks[4][64];
  const size_t pitch = s->bytes_per_line;

  // B, G, R, X pixels are converted block by block; B, G, R ones into 4:2:2 one band of
  // 8 lines at a time, which stays in cache until its blocks are coded.
  uint8_t* band = nullptr;
  size_t band_pitch = 0;
  if (format == VEK_BGR24) {
    band_pitch = size_t(s->width) * 2;
    band = static_cast<uint8_t*>(vek::alloc(band_pitch * 8));
    if (!band) return report(kName, VEK_ERROR_MEMORY | uint32_t((band_pitch * 8) & 0xFFFFu));
  }

  // The room check is inline; the buffer is only looked up again when it must grow.
  auto room = [&](size_t need) {
    if (size_t(bw.out - j.data) + need <= capacity) return true;
    status = ensure_room(dst, bw, need, capacity);
    return !is_error(status);
  };
  auto fail = [&] {
    std::free(band);
    return report(kName, status);
  };

  for (uint32_t y = 0; y < s->height; y += 8) {
    const uint8_t* rows = s->data + size_t(y) * pitch;
    size_t rows_pitch = pitch;
    if (band) {
      for (int r = 0; r < 8; ++r)
        kern.bgr_to_yuv422(rows + r * pitch, band + r * band_pitch, s->width / 2);
      rows = band;
      rows_pitch = band_pitch;
    }
    if (format == VEK_Y8) {
      for (uint32_t x = 0; x < s->width; x += 8) {
        if (!room(kMcuReserve + kTailReserve)) return fail();
        load_block(rows + x, rows_pitch, blocks[0]);
        encode_block(kern, blocks[0], luma, pred[0], bw);
      }
    } else {
      for (uint32_t x = 0; x < s->width; x += 16) {
        if (!room(kMcuReserve + kTailReserve)) return fail();
        if (format == VEK_BGRX32) kern.load_mcu_bgrx(rows + size_t(x) * 4, rows_pitch, blocks);
        else kern.load_mcu422(rows + size_t(x) * 2, rows_pitch, blocks);
        encode_block(kern, blocks[0], luma, pred[0], bw);
        encode_block(kern, blocks[1], luma, pred[0], bw);
        encode_block(kern, blocks[2], chroma, pred[1], bw);
        encode_block(kern, blocks[3], chroma, pred[2], bw);
      }
    }
  }
  std::free(band);
  status = ensure_room(dst, bw, kTailReserve, capacity);
  if (is_error(status)) return report(kName, status);
  bw.finish();
  j.data_length = uint32_t(bw.out - j.data);
  bw.out[0] = 0xFF;
  bw.out[1] = 0xD9;
  j.current = j.data;
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_compress(uint32_t src, uint32_t dst) {
  static const char kName[] = "VEK_JPEG_compress";
  uint32_t status = VEK_image_check(src);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  const ImageRecord* s = lookup(src);
  if (s->lines_per_strip != s->height)
    return report(kName, VEK_ERROR_NOT_SUPPORTED | (s->lines_per_strip & 0xFFFFu),
                  "This function only supports a complete image");
  const uint32_t format = s->format;
  switch (format) {
    case VEK_Y8: case VEK_RGB24: case VEK_BGR24: case VEK_RGBX32:
    case VEK_BGRX32: case VEK_XBGR32: case VEK_YUV422: break;
    default:
      return report(kName, VEK_ERROR_NOT_SUPPORTED | format, "Unsupported image format");
  }
  ImageRecord* d = lookup(dst);
  if (!d || !d->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  const uint32_t width = s->width, height = s->height;
  VEK_copy_outfilename(dst, src);
  status = VEK_JPEG_set_image(src, dst);
  if (is_error(status)) return status;
  VEK_JPEG_make_Q_tables(dst);
  VEK_JPEG_set_default_H_tables(dst);

  TempImages temps;
  uint32_t source = src;
  const bool pad = height % 8 || width % 8 || (format != VEK_Y8 && width % 16);
  if (pad) {
    temps.handles[0] = VEK_image_create();
    if (is_error(temps.handles[0])) return temps.handles[0];
    status = VEK_pad_to_MCU_1_strip(src, temps.handles[0]);
    if (is_error(status)) return status;
    status = VEK_image_check(temps.handles[0]);
    if (is_error(status)) return report(kName, status, "hPaddedImage is corrupt");
    source = temps.handles[0];
  }
  if (format == VEK_RGB24 || format == VEK_RGBX32 || format == VEK_XBGR32) {
    temps.handles[1] = VEK_image_create();
    if (is_error(temps.handles[1])) return temps.handles[1];
    status = VEK_convert_to_YUV422(source, temps.handles[1], VEK_STRIP_NEXT);
    if (is_error(status)) return status;
    status = VEK_image_check(temps.handles[1]);
    if (is_error(status)) return report(kName, status, "Corrupt image");
    source = temps.handles[1];
  }
  status = VEK_JPEG_compress_1_strip(source, dst);
  if (is_error(status)) return status;
  d = lookup(dst);
  d->width = width;
  d->height = height;
  d->flags |= VEK_FLAG_JPEG;
  return VEK_OK;
}

}  // extern "C"
