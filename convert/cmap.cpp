// Colour maps, the colour-map information record (histogram and palette choice),
// the closest-colour search, and the conversions to and from paletted images.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "convert/internal.h"
#include "core/alloc.h"

using namespace vek;
using namespace vek::conv;

namespace {

struct CmapBin {
  uint32_t code;   // the bin's own number
  uint32_t count;  // occurrences
  int32_t index;   // palette entry, or -1
};

struct CmapInfo {
  CmapBin bins[4096];
  uint32_t bins_in_use;
  uint8_t red_bits, green_bits, blue_bits, grey_bits;
  uint16_t new_colours;
  uint32_t distinct;
  uint16_t coverage;
  uint8_t spare[2];
};

constexpr uint32_t kMaxBins = 4096;

// The 16 named colours, shared with the 16-colour map type.
constexpr uint8_t kNamed[16][3] = {
    {0, 0, 0},     {0, 0, 152},   {0, 152, 0},   {0, 152, 152}, {152, 0, 0},   {152, 0, 152},
    {152, 152, 0}, {152, 152, 152}, {76, 76, 76}, {0, 0, 255},   {0, 255, 0},   {0, 255, 255},
    {255, 0, 0},   {255, 0, 255}, {255, 255, 0}, {255, 255, 255}};

// Squares of -255..255, so the search does no multiplication per entry.
struct Squares {
  int32_t v[511];
  constexpr Squares() : v{} {
    for (int32_t d = -255; d <= 255; ++d) v[d + 255] = d * d;
  }
};
constexpr Squares kSquares{};

CmapInfo* info_of(const ImageRecord* rec) { return static_cast<CmapInfo*>(rec->cmap_info); }

uint32_t colour_count(const ImageRecord* rec) {
  return rec->cmap_size > kCmapEntries ? kCmapEntries : rec->cmap_size;
}

// An index up to and including the colour count is accepted (one past the last valid
// entry); beyond the 256 entries of the map it is refused all the same.
bool index_ok(const ImageRecord* rec, uint32_t index) {
  return index <= rec->cmap_size && index < kCmapEntries;
}

uint32_t bits_mask(uint32_t bits) { return (1u << bits) - 1; }

// Bin of an RGB24 pixel or of an 8-bit grey value.
inline uint32_t rgb_bin(const CmapInfo& in, uint32_t r, uint32_t g, uint32_t b) {
  return ((r >> (8 - in.red_bits)) << (in.green_bits + in.blue_bits)) +
         ((g >> (8 - in.green_bits)) << in.blue_bits) + (b >> (8 - in.blue_bits));
}
inline uint32_t grey_bin(const CmapInfo& in, uint32_t v) { return v >> (8 - in.grey_bits); }

bool bits_ok(const CmapInfo& in) {
  return in.red_bits <= 8 && in.green_bits <= 8 && in.blue_bits <= 8 && in.grey_bits <= 8;
}

StripSequence g_generate_seq;

// ---- palette conversions' kernels ---------------------------------------------

struct PaletteContext {
  const CmapInfo* info;
  const CmapEntry* map;  // destination's map for the closest-colour fallback
  uint32_t count;
};

int32_t bin_index(const PaletteContext& c, uint32_t bin) {
  return bin < c.info->bins_in_use ? c.info->bins[bin].index : -1;
}

void rgb24_to_pal(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams& k) {
  const auto& c = *static_cast<const PaletteContext*>(k.context);
  for (uint32_t x = 0; x < width; ++x, src += 3) {
    const int32_t i = bin_index(c, rgb_bin(*c.info, src[0], src[1], src[2]));
    dst[x] = uint8_t(i >= 0 ? uint32_t(i) : closest_colour(c.map, c.count, src[0], src[1], src[2]));
  }
}

void y8_to_pal(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams& k) {
  const auto& c = *static_cast<const PaletteContext*>(k.context);
  for (uint32_t x = 0; x < width; ++x) {
    const int32_t v = src[x];
    const int32_t i = bin_index(c, grey_bin(*c.info, uint32_t(v)));
    dst[x] = uint8_t(i >= 0 ? uint32_t(i) : closest_colour(c.map, c.count, v, v, v));
  }
}

template <int N, int R, int G, int B>
void to_rgb8(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams&) {
  for (uint32_t x = 0; x < width; ++x, src += N)
    dst[x] = uint8_t((src[R] & 0xE0) | ((src[G] & 0xE0) >> 3) | (src[B] >> 6));
}

// Carries run along the line and restart every third pixel; the blue carry keeps
// the high bits of the halved sum, which is the output this conversion is known by.
void rgb24_dither(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams&) {
  uint32_t cr = 0, cg = 0, cb = 0;
  for (uint32_t x = 0; x < width; ++x, src += 3) {
    if (x % 3 == 0) cr = cg = cb = 0;
    const uint32_t r = std::min(src[0] + cr, 255u), g = std::min(src[1] + cg, 255u),
                   b = std::min(src[2] + cb, 255u);
    dst[x] = uint8_t((r & 0xE0) | ((g & 0xE0) >> 3) | (b >> 6));
    cr = (r >> 1) & 15;
    cg = (g >> 1) & 15;
    cb = (b >> 1) & 0xFFE0;
  }
}

// A grey map gives the entry's red byte.
void pal_to_y8(const uint8_t* src, uint8_t* dst, uint32_t width, const RowParams& k) {
  for (uint32_t x = 0; x < width; ++x) dst[x] = k.cmap[src[x]].r;
}

StripSequence g_seq_paletted, g_seq_rgb8, g_seq_dither, g_seq_from_paletted;

// Called directly, a worker may face a destination prepared for another format, whose
// strip would be sized for other pixels than the kernel writes.
uint32_t check_destination(const char* name, uint32_t destination, uint16_t target) {
  const ImageRecord* dst = lookup(destination);
  if (dst && dst->format != target) return report(name, VEK_ERROR_CORRUPT_IMAGE, "Corrupt image");
  return VEK_OK;
}

uint32_t needs_info(const ImageRecord& src, const char* name) {
  if (!src.cmap_info)
    return report(name, VEK_ERROR_BAD_STATE, "VEK_cmap_generate must be called first");
  return VEK_OK;
}

constexpr Conversion kToPaletted = [] {
  Conversion c{};
  c.name = "VEK_convert_to_paletted";
  c.worker_name = "VEK_convert_to_paletted_1_strip";
  c.target = VEK_PALETTED;
  c.sources = bit(VEK_RGB24) | bit(VEK_Y8);
  c.sequence = &g_seq_paletted;
  c.validate = needs_info;
  c.worker = VEK_convert_to_paletted_1_strip;
  return c;
}();

constexpr Conversion kToRgb8 = [] {
  Conversion c{};
  c.name = "VEK_convert_to_RGB8";
  c.worker_name = "VEK_convert_to_RGB8_1_strip";
  c.target = VEK_RGB8;
  c.sources = bit(VEK_RGB24) | bit(VEK_Y8);
  c.sequence = &g_seq_rgb8;
  c.worker = VEK_convert_to_RGB8_1_strip;
  return c;
}();

constexpr Conversion kDither = [] {
  Conversion c{};
  c.name = "VEK_convert_to_RGB8_dither";
  c.worker_name = "VEK_convert_to_RGB8_dither_1_strip";
  c.target = VEK_PALETTED;
  c.sources = bit(VEK_RGB24);
  c.sequence = &g_seq_dither;
  c.worker = VEK_convert_to_RGB8_dither_1_strip;
  return c;
}();

// The paletted expansion has two possible targets; both share one sequence.
constexpr Conversion from_paletted(uint16_t target) {
  Conversion c{};
  c.name = "VEK_paletted_to_RGB24_or_Y8";
  c.worker_name = "VEK_paletted_to_RGB24_or_Y8_1_strip";
  c.target = target;
  c.sources = bit(VEK_PALETTED);
  c.sequence = &g_seq_from_paletted;
  c.unsupported = "Input image should be paletted";
  c.worker = VEK_paletted_to_RGB24_or_Y8_1_strip;
  return c;
}
constexpr Conversion kPalettedToY8 = from_paletted(VEK_Y8);
constexpr Conversion kPalettedToRgb24 = from_paletted(VEK_RGB24);

// Chooses the palette after the last strip of a histogram sequence.
uint32_t choose_palette(ImageRecord* rec) {
  static const char kName[] = "VEK_cmap_generate";
  CmapInfo& in = *info_of(rec);
  if (!bits_ok(in))
    return report(kName, VEK_ERROR_BAD_PARAMETER | 2, "more than 8 bits in one colour");
  const uint32_t n = std::min(in.bins_in_use, kMaxBins);
  CmapBin* bins = in.bins;
  // Stable, so equal counts keep ascending bin order.
  std::stable_sort(bins, bins + n, [](const CmapBin& a, const CmapBin& b) { return a.count > b.count; });
  const uint32_t count = colour_count(rec);
  const uint32_t first = in.new_colours <= count ? count - in.new_colours : count;
  const bool grey = rec->format != VEK_RGB24;
  uint64_t total = 0;
  for (uint32_t k = first; k < count && k - first < n; ++k) {
    CmapBin& b = bins[k - first];
    const uint32_t code = b.code;
    CmapEntry& e = rec->cmap[k];
    if (grey) {
      const uint8_t v = uint8_t(((code & bits_mask(in.grey_bits)) << (8 - in.grey_bits)) +
                                (128 >> in.grey_bits));
      e.r = e.g = e.b = v;
    } else {
      e.b = uint8_t(((code & bits_mask(in.blue_bits)) << (8 - in.blue_bits)) + (128 >> in.blue_bits));
      e.g = uint8_t((((code >> in.blue_bits) & bits_mask(in.green_bits)) << (8 - in.green_bits)) +
                    (128 >> in.green_bits));
      e.r = uint8_t((((code >> (in.blue_bits + in.green_bits)) & bits_mask(in.red_bits))
                     << (8 - in.red_bits)) +
                    (128 >> in.red_bits));
    }
    b.index = int32_t(k);
    total += b.count;
  }
  uint32_t distinct = 0;
  while (distinct < n && bins[distinct].count != 0) ++distinct;
  in.distinct = distinct;
  const uint64_t pixels = uint64_t(rec->width) * rec->height;
  in.coverage = pixels ? uint16_t(total * 100 / pixels) : 0;
  std::sort(bins, bins + n, [](const CmapBin& a, const CmapBin& b) { return a.code < b.code; });
  for (uint64_t k = uint64_t(first) + distinct; k < count; ++k) rec->cmap[k] = CmapEntry{0, 0, 0, rec->cmap[k].spare};
  return VEK_OK;
}

}  // namespace

namespace vek::conv {

uint32_t closest_colour(const CmapEntry* map, uint32_t count, int32_t r, int32_t g, int32_t b) {
  uint32_t best_index = 0;
  int32_t best = 31234567;
  for (uint32_t i = 0; i < count && i < kCmapEntries; ++i) {
    const int32_t d = kSquares.v[r - map[i].r + 255] + kSquares.v[g - map[i].g + 255] +
                      kSquares.v[b - map[i].b + 255];
    if (d < best) {
      best = d;
      best_index = i;
    }
  }
  return best_index;
}

}  // namespace vek::conv

extern "C" {

VEK_API void* VEK_cmap_create_info(void) {
  auto* in = static_cast<CmapInfo*>(vek::alloc(sizeof(CmapInfo)));
  if (!in) return nullptr;
  std::memset(in, 0, sizeof *in);
  std::memset(in->bins, 0xAA, sizeof in->bins);
  in->red_bits = in->green_bits = in->blue_bits = 4;
  in->grey_bits = 8;
  in->new_colours = 0x0100;
  return in;
}

VEK_API uint32_t VEK_cmap_destroy_info(uint32_t image) {
  ImageRecord* rec = lookup(image);
  if (!rec) return report("VEK_cmap_destroy_info", VEK_ERROR_BAD_HANDLE);
  std::free(rec->cmap_info);
  rec->cmap_info = nullptr;
  return VEK_OK;
}

VEK_API uint32_t VEK_cmap_copy(uint32_t source, uint32_t destination) {
  static const char kName[] = "VEK_cmap_copy";
  const ImageRecord* src = lookup(source);
  ImageRecord* dst = lookup(destination);
  if (!src || !dst) return report(kName, VEK_ERROR_BAD_HANDLE);
  if (src == dst) return VEK_OK;
  dst->cmap_size = src->cmap_size;
  if (src->cmap && dst->cmap) {
    for (uint32_t i = 0; i < kCmapEntries; ++i) {
      dst->cmap[i].r = src->cmap[i].r;
      dst->cmap[i].g = src->cmap[i].g;
      dst->cmap[i].b = src->cmap[i].b;
    }
  }
  if (src->cmap_info) {
    if (!dst->cmap_info) dst->cmap_info = VEK_cmap_create_info();
    if (!dst->cmap_info)
      return report(kName, VEK_ERROR_MEMORY, "Cannot create cmap info structure");
    std::memcpy(dst->cmap_info, src->cmap_info, sizeof(CmapInfo));
  }
  return VEK_OK;
}

VEK_API uint32_t VEK_cmap_get_RGB_colour(uint32_t image, uint32_t index) {
  static const char kName[] = "VEK_cmap_get_RGB_colour";
  const ImageRecord* rec = lookup(image);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  if (!rec->cmap) return report(kName, VEK_ERROR_BAD_PARAMETER, "Colourmap is NULL");
  if (!index_ok(rec, index))
    return report(kName, VEK_ERROR_BAD_PARAMETER, "Illegal colourmap index (> max number of colours)");
  const CmapEntry& e = rec->cmap[index];
  return uint32_t(e.r) << 16 | uint32_t(e.g) << 8 | e.b;
}

VEK_API uint32_t VEK_cmap_set_RGB_colour(uint32_t image, uint32_t index, uint32_t r, uint32_t g,
                                         uint32_t b) {
  static const char kName[] = "VEK_cmap_set_RGB_colour";
  ImageRecord* rec = lookup(image);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  if (!rec->cmap) return report(kName, VEK_ERROR_BAD_PARAMETER, "Colourmap is NULL");
  if (!index_ok(rec, index))
    return report(kName, VEK_ERROR_BAD_PARAMETER, "Illegal colourmap index (> max number of colours)");
  rec->cmap[index].r = uint8_t(r);
  rec->cmap[index].g = uint8_t(g);
  rec->cmap[index].b = uint8_t(b);
  return VEK_OK;
}

VEK_API uint32_t VEK_cmap_set_colour(uint32_t image, uint32_t index, uint32_t colour) {
  static const char kName[] = "VEK_cmap_set_colour";
  ImageRecord* rec = lookup(image);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  if (!rec->cmap) return report(kName, VEK_ERROR_BAD_PARAMETER, "Colourmap is NULL");
  if (!index_ok(rec, index))
    return report(kName, VEK_ERROR_BAD_PARAMETER, "Illegal colourmap index (> max number of colours)");
  if (colour > 15) return report(kName, VEK_ERROR_BAD_PARAMETER, "Unrecognised colour");
  rec->cmap[index].r = kNamed[colour][0];
  rec->cmap[index].g = kNamed[colour][1];
  rec->cmap[index].b = kNamed[colour][2];
  return VEK_OK;
}

VEK_API uint32_t VEK_cmap_set_type(uint32_t image, uint32_t type) {
  static const char kName[] = "VEK_cmap_set_type";
  ImageRecord* rec = lookup(image);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  if (!rec->cmap) return report(kName, VEK_ERROR_BAD_PARAMETER, "Colourmap is NULL");
  CmapEntry* m = rec->cmap;
  switch (type) {
    case 0:
      for (uint32_t i = 0; i < kCmapEntries; ++i) m[i].r = m[i].g = m[i].b = 0;
      return VEK_OK;
    case 1:
      for (uint32_t i = 0; i < 16; ++i) {
        m[i].r = kNamed[i][0];
        m[i].g = kNamed[i][1];
        m[i].b = kNamed[i][2];
      }
      rec->cmap_size = 16;
      return VEK_OK;
    case 2:
      for (uint32_t i = 0; i < kCmapEntries; ++i) m[i].r = m[i].g = m[i].b = uint8_t(i);
      rec->cmap_size = 256;
      return VEK_OK;
    case 3:
      // Entry r*32 + g*4 + b holds the centre of its 3-3-2 cell.
      for (uint32_t i = 0; i < kCmapEntries; ++i) {
        m[i].r = uint8_t((i >> 5) * 32 + 31);
        m[i].g = uint8_t(((i >> 2) & 7) * 32 + 31);
        m[i].b = uint8_t((i & 3) * 64 + 31);
      }
      rec->cmap_size = 256;
      return VEK_OK;
    default:
      return report(kName, VEK_ERROR_BAD_PARAMETER, "Unrecognized colourmap type");
  }
}

VEK_API uint32_t VEK_cmap_is_grayscale(uint32_t image) {
  static const char kName[] = "VEK_cmap_is_grayscale";
  const ImageRecord* rec = lookup(image);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  if (!rec->cmap) return report(kName, VEK_ERROR_BAD_PARAMETER, "Colourmap is NULL");
  const uint32_t n = colour_count(rec);
  for (uint32_t i = 0; i < n; ++i) {
    const CmapEntry& e = rec->cmap[i];
    if (e.r != e.g || e.g != e.b) return 0;
  }
  return 1;
}

VEK_API uint32_t VEK_cmap_find_closest_colour(uint32_t image, uint32_t r, uint32_t g, uint32_t b) {
  static const char kName[] = "VEK_cmap_find_closest_colour";
  const ImageRecord* rec = lookup(image);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  if (!rec->cmap) return report(kName, VEK_ERROR_BAD_PARAMETER, "Colourmap is NULL");
  return closest_colour(rec->cmap, colour_count(rec), int32_t(r & 0xFF), int32_t(g & 0xFF),
                        int32_t(b & 0xFF));
}

VEK_API uint32_t VEK_cmap_get_occurrences(uint32_t image, uint32_t bin) {
  static const char kName[] = "VEK_cmap_get_occurrences";
  const ImageRecord* rec = lookup(image);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  if (!rec->cmap_info) return report(kName, VEK_ERROR_BAD_STATE, "No cmap info structure");
  if (bin >= kMaxBins) return report(kName, VEK_ERROR_BAD_PARAMETER, "Bin out of range");
  return info_of(rec)->bins[bin].count;
}

VEK_API uint32_t VEK_cmap_generate_1_strip(uint32_t image) {
  static const char kName[] = "VEK_cmap_generate_1_strip";
  ImageRecord* rec = lookup(image);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  if (!rec->cmap_info) return report(kName, VEK_ERROR_BAD_STATE, "No cmap info structure");
  if (!rec->data) return report(kName, kNoData, "No image data");
  CmapInfo& in = *info_of(rec);
  if (!bits_ok(in)) return report(kName, VEK_ERROR_BAD_PARAMETER | 1, "More than 8 bits in one colour");
  const uint32_t n = std::min(in.bins_in_use, kMaxBins);
  // Called directly, the worker may see any format; anything but the three it reads
  // would be walked as 16-bit words past the end of its lines.
  if (rec->format != VEK_RGB24 && rec->format != VEK_Y8 && rec->format != VEK_Y16)
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Unsupported image format");
  const uint32_t px = pixel_bytes(rec->format);
  size_t row = 0;
  if (!checked_size(rec->width, px, 1, row) || row > rec->bytes_per_line)
    return report(kName, VEK_ERROR_CORRUPT_IMAGE, "Corrupt image");
  const uint32_t shift = y16_shift(rec->data_width);
  for (uint32_t y = 0; y < rec->lines_per_strip; ++y) {
    const uint8_t* p = rec->data + size_t(y) * rec->bytes_per_line;
    for (uint32_t x = 0; x < rec->width; ++x) {
      uint32_t bin;
      switch (rec->format) {
        case VEK_RGB24: bin = rgb_bin(in, p[3 * x], p[3 * x + 1], p[3 * x + 2]); break;
        case VEK_Y8: bin = grey_bin(in, p[x]); break;
        default: bin = grey_bin(in, (load16(p + 2 * x) >> shift) & 0xFF); break;
      }
      if (bin < n) ++in.bins[bin].count;
    }
  }
  return VEK_OK;
}

VEK_API uint32_t VEK_cmap_generate(uint32_t image, uint32_t colours, uint32_t mode) {
  static const char kName[] = "VEK_cmap_generate";
  uint32_t status = VEK_image_check(image);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  ImageRecord* rec = lookup(image);
  if (rec->lines_per_strip == 0) return VEK_OK;
  if (rec->format != VEK_RGB24 && rec->format != VEK_Y8 && rec->format != VEK_Y16)
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Unsupported image format");
  if (colours > kCmapEntries)
    return report(kName, VEK_ERROR_BAD_PARAMETER, "More colours than the colour map holds");
  if (!rec->cmap) return report(kName, VEK_ERROR_BAD_PARAMETER, "Colourmap is NULL");
  return run_strip(
      g_generate_seq, mode & 0xFFFFu, *rec,
      [&]() -> uint32_t {
        if (!rec->cmap_info) rec->cmap_info = VEK_cmap_create_info();
        if (!rec->cmap_info) return report(kName, VEK_ERROR_MEMORY, "Cannot create cmap info structure");
        CmapInfo& in = *info_of(rec);
        in.new_colours = uint16_t(colours - rec->cmap_size);
        rec->cmap_size = colours;
        const uint32_t bits =
            rec->format == VEK_RGB24 ? uint32_t(in.red_bits) + in.green_bits + in.blue_bits : in.grey_bits;
        if (bits > 12) return report(kName, VEK_ERROR_BAD_PARAMETER | 3, "Array size overflow");
        in.bins_in_use = 1u << bits;
        for (uint32_t i = 0; i < in.bins_in_use; ++i) in.bins[i] = CmapBin{i, 0, -1};
        return VEK_OK;
      },
      [&](const StripSequence::Strip& strip) -> uint32_t {
        uint32_t s = VEK_cmap_generate_1_strip(image);
        if (is_error(s) || !strip.last) return s;
        return choose_palette(rec);
      });
}

VEK_API uint32_t VEK_convert_to_paletted(uint32_t source, uint32_t destination, uint32_t mode) {
  return run_conversion(kToPaletted, source, destination, mode & 0xFFFFu);
}

VEK_API uint32_t VEK_convert_to_paletted_1_strip(uint32_t source, uint32_t destination) {
  const char* name = kToPaletted.worker_name;
  const ImageRecord* src = lookup(source);
  const ImageRecord* dst = lookup(destination);
  if (!src || !dst) return report(name, VEK_ERROR_BAD_HANDLE);
  if (!src->cmap_info)
    return report(name, VEK_ERROR_BAD_STATE, "VEK_cmap_generate must be called first");
  if (!dst->cmap) return report(name, VEK_ERROR_BAD_PARAMETER, "Colourmap is NULL");
  const PaletteContext ctx{info_of(src), dst->cmap, colour_count(dst)};
  RowParams p;
  p.context = &ctx;
  RowKernel kernel = src->format == VEK_RGB24 ? rgb24_to_pal : src->format == VEK_Y8 ? y8_to_pal : nullptr;
  if (uint32_t s = check_destination(name, destination, VEK_PALETTED); is_error(s)) return s;
  return convert_strip(name, source, destination, kernel, p);
}

VEK_API uint32_t VEK_convert_to_RGB8(uint32_t source, uint32_t destination, uint32_t mode) {
  return run_conversion(kToRgb8, source, destination, mode & 0xFFFFu);
}

VEK_API uint32_t VEK_convert_to_RGB8_1_strip(uint32_t source, uint32_t destination) {
  const char* name = kToRgb8.worker_name;
  const ImageRecord* src = lookup(source);
  RowKernel kernel = !src                     ? nullptr
                     : src->format == VEK_RGB24 ? to_rgb8<3, 0, 1, 2>
                     : src->format == VEK_Y8    ? to_rgb8<1, 0, 0, 0>
                                                : nullptr;
  uint32_t status = check_destination(name, destination, VEK_RGB8);
  if (is_error(status)) return status;
  status = convert_strip(name, source, destination, kernel, RowParams{});
  if (is_error(status)) return status;
  return VEK_cmap_set_type(destination, 3);
}

VEK_API uint32_t VEK_convert_to_RGB8_dither(uint32_t source, uint32_t destination, uint32_t mode) {
  return run_conversion(kDither, source, destination, mode & 0xFFFFu);
}

VEK_API uint32_t VEK_convert_to_RGB8_dither_1_strip(uint32_t source, uint32_t destination) {
  const ImageRecord* src = lookup(source);
  RowKernel kernel = src && src->format == VEK_RGB24 ? rgb24_dither : nullptr;
  uint32_t status = check_destination(kDither.worker_name, destination, VEK_PALETTED);
  if (is_error(status)) return status;
  status = convert_strip(kDither.worker_name, source, destination, kernel, RowParams{});
  if (is_error(status)) return status;
  return VEK_cmap_set_type(destination, 3);
}

VEK_API uint32_t VEK_paletted_to_RGB24_or_Y8(uint32_t source, uint32_t destination, uint32_t mode) {
  static const char kName[] = "VEK_paletted_to_RGB24_or_Y8";
  uint32_t status = VEK_image_check(source);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  const ImageRecord* src = lookup(source);
  if (src->format == VEK_RGB24 || src->format == VEK_Y8) return VEK_image_copy(source, destination);
  if (src->format != VEK_PALETTED)
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Input image should be paletted");
  if (!src->cmap) return report(kName, VEK_ERROR_BAD_PARAMETER, "Colourmap is NULL");
  const bool grey = VEK_cmap_is_grayscale(source) == 1;
  return run_conversion(grey ? kPalettedToY8 : kPalettedToRgb24, source, destination,
                        mode & 0xFFFFu);
}

VEK_API uint32_t VEK_paletted_to_RGB24_or_Y8_1_strip(uint32_t source, uint32_t destination) {
  const char* name = "VEK_paletted_to_RGB24_or_Y8_1_strip";
  const ImageRecord* src = lookup(source);
  const ImageRecord* dst = lookup(destination);
  if (!src || !dst) return report(name, VEK_ERROR_BAD_HANDLE);
  if (src->format == VEK_PALETTED && !src->cmap)
    return report(name, VEK_ERROR_BAD_PARAMETER, "Colourmap is NULL");
  // Called directly, the worker may face a destination prepared for neither target;
  // its strip would be sized for other pixels than the kernel writes.
  if (dst->format != VEK_Y8 && dst->format != VEK_RGB24)
    return report(name, VEK_ERROR_CORRUPT_IMAGE, "Corrupt image");
  RowParams p;
  p.cmap = src->cmap;
  RowKernel kernel = nullptr;
  if (src->format == VEK_PALETTED)
    kernel = dst->format == VEK_Y8 ? pal_to_y8 : rgb_kernel(VEK_PALETTED, VEK_RGB24);
  return convert_strip(name, source, destination, kernel, p);
}

}  // extern "C"
