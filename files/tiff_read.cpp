// TIFF reader: the first image of a baseline file in either byte order, uncompressed
// or LZW (with or without horizontal differencing), in one or many strips, delivered
// as one strip holding the whole picture. Grey 8 and 16 bits, paletted 8 bits, RGB
// and CMYK 8 bits per sample, chunky.
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "files/common.h"
#include "files/lzw.h"
#include "files/tiff.h"

using namespace vek;
using vek::files::Block;

namespace {

constexpr const char kName[] = "VEK_read_TIFF_file";
StripSequence g_tiff_read_sequence;

enum : uint16_t {
  kNewSubfileType = 254, kImageWidth = 256, kImageLength = 257, kBitsPerSample = 258,
  kCompression = 259, kPhotometric = 262, kStripOffsets = 273, kSamplesPerPixel = 277,
  kRowsPerStrip = 278, kStripByteCounts = 279, kPlanar = 284, kPredictor = 317,
  kColorMap = 320, kTileWidth = 322, kSampleFormat = 339,
};

uint32_t corrupt(const char* message) { return report(kName, VEK_ERROR_CORRUPT_IMAGE, message); }
uint32_t unsupported(const char* message) { return report(kName, VEK_ERROR_NOT_SUPPORTED, message); }

struct Entry {
  uint16_t tag, type;
  uint32_t count;
  size_t field;  // file position of the value-or-offset field
};

class Reader {
 public:
  Reader(const uint8_t* p, size_t n, bool big) : p_(p), n_(n), big_(big) {}
  size_t size() const { return n_; }
  bool big() const { return big_; }
  uint32_t u16(size_t at) const {
    return big_ ? uint32_t(p_[at]) << 8 | p_[at + 1] : uint32_t(p_[at + 1]) << 8 | p_[at];
  }
  uint32_t u32(size_t at) const {
    return big_ ? u16(at) << 16 | u16(at + 2) : u16(at + 2) << 16 | u16(at);
  }
  // Element i of an integer-typed entry; false when the type is not an integer type
  // or the value lies outside the file.
  bool value(const Entry& e, uint32_t i, uint32_t& out) const {
    size_t size;
    switch (e.type) {
      case 1: case 6: case 7: size = 1; break;
      case 3: case 8: size = 2; break;
      case 4: case 9: size = 4; break;
      default: return false;
    }
    if (i >= e.count) return false;
    const uint64_t total = uint64_t(e.count) * size;
    const uint64_t base = total <= 4 ? e.field : u32(e.field);
    const uint64_t at = base + uint64_t(i) * size;
    if (base + total > n_ || at + size > n_) return false;
    out = size == 1 ? p_[at] : size == 2 ? u16(at) : u32(at);
    return true;
  }

 private:
  const uint8_t* p_;
  size_t n_;
  bool big_;
};

// Everything the header says about the picture, and how its bytes are laid out.
struct Layout {
  uint32_t width = 0, height = 0, bps = 1, spp = 1, compression = 1, photometric = 0xFFFF;
  uint32_t rows_per_strip = 0xFFFFFFFFu, predictor = 1, strips = 0;
  const Entry* offsets = nullptr;
  const Entry* counts = nullptr;
  const Entry* colormap = nullptr;
  bool ours = false;       // written by our writer (uncounted Predictor entry)
  uint32_t format = 0;     // delivered pixel format
  uint32_t data_width = 0;
  size_t row = 0;          // bytes of one decoded row
  size_t capacity = 0;     // bytes decoded data may take (ours may hold other layouts)
  bool words_big = false;  // 16-bit samples are big-endian in the data
  bool invert = false;     // white is zero
  tiff::Predictor pred{0, 0, false};
};

const Entry* find(const std::vector<Entry>& entries, uint16_t tag) {
  for (const Entry& e : entries)
    if (e.tag == tag) return &e;
  return nullptr;
}

// A field that must hold one value: absent gives `fallback`.
uint32_t single(const Reader& r, const std::vector<Entry>& entries, uint16_t tag, const char* message,
                uint32_t fallback, uint32_t& out) {
  const Entry* e = find(entries, tag);
  out = fallback;
  if (!e) return VEK_OK;
  if (e->count != 1) return corrupt(message);
  if (!r.value(*e, 0, out)) return unsupported("unsupported TIFF format");
  return VEK_OK;
}

uint32_t read_directory(const Reader& r, std::vector<Entry>& entries, bool& ours) {
  const size_t n = r.size();
  const uint32_t ifd = r.u32(4);
  if (ifd < 8 || uint64_t(ifd) + 2 > n) return corrupt("Directory offset beyond end of file");
  const uint32_t count = r.u16(ifd);
  if (count == 0 || uint64_t(ifd) + 2 + 12ull * count > n) return corrupt("Directory extends beyond end of file");
  entries.reserve(count + 1);
  bool ascending = true, predictor = false;
  for (uint32_t i = 0; i < count; ++i) {
    const size_t at = ifd + 2 + 12 * size_t(i);
    Entry e{uint16_t(r.u16(at)), uint16_t(r.u16(at + 2)), r.u32(at + 4), at + 8};
    if (i && e.tag <= entries.back().tag) ascending = false;
    if (e.tag == kPredictor) predictor = true;
    entries.push_back(e);
  }
  // Our writer puts a Predictor entry before StripByteCounts without counting it, so
  // its last real entry follows the counted ones where the next-directory offset
  // would be. Out-of-order tags with a Predictor among them mark such a file.
  ours = false;
  if (!ascending && predictor && uint64_t(ifd) + 2 + 12ull * (count + 1) <= n) {
    const size_t at = ifd + 2 + 12 * size_t(count);
    Entry e{uint16_t(r.u16(at)), uint16_t(r.u16(at + 2)), r.u32(at + 4), at + 8};
    if (e.type >= 1 && e.type <= 12 && e.tag > entries.back().tag) {
      entries.push_back(e);
      ours = true;
    }
  }
  return VEK_OK;
}

uint32_t parse(const Reader& r, const std::vector<Entry>& entries, bool ours, Layout& L) {
  uint32_t s, subfile = 0;
  L.ours = ours;
  if (is_error(s = single(r, entries, kNewSubfileType, "Expecting 1 entry in NewSubFileType", 0, subfile))) return s;
  // Bit 0 marks a reduced-resolution copy, bit 2 a transparency mask.
  if (subfile & 5) return unsupported("Expecting single full resolution image");
  if (is_error(s = single(r, entries, kImageWidth, "Expecting 1 entry in ImageWidth", 0, L.width))) return s;
  if (is_error(s = single(r, entries, kImageLength, "expecting 1 entry in ImageLength", 0, L.height))) return s;
  if (is_error(s = single(r, entries, kCompression, "expecting 1 entry in Compression", 1, L.compression))) return s;
  if (is_error(s = single(r, entries, kPredictor, "expecting 1 entry in Predictor", 1, L.predictor))) return s;
  if (is_error(s = single(r, entries, kPhotometric, "expecting 1 entry in PhotometricInterp", 0xFFFF, L.photometric))) return s;
  if (is_error(s = single(r, entries, kSamplesPerPixel, "expecting 1 entry in SamplesPerPixeltr", 1, L.spp))) return s;
  if (is_error(s = single(r, entries, kRowsPerStrip, "expecting 1 entry in RowsPerStrip", 0xFFFFFFFFu, L.rows_per_strip))) return s;
  if (L.compression != 1 && L.compression != 5) return unsupported("only LZW compression supported");
  if (L.predictor != 1 && L.predictor != 2) return corrupt("incorrect value for Predictor");
  if (L.predictor == 2 && L.compression != 5) return unsupported("Predictor only supported for LZW compressed files");
  if (find(entries, kTileWidth)) return unsupported("unsupported TIFF format");
  uint32_t planar = 1, sample_format = 1;
  if (is_error(s = single(r, entries, kPlanar, "unsupported TIFF format", 1, planar))) return s;
  if (planar != 1 && L.spp > 1) return unsupported("unsupported TIFF format");
  if (const Entry* e = find(entries, kSampleFormat); e && (!r.value(*e, 0, sample_format) || sample_format != 1))
    return unsupported("unsupported image type");
  if (L.width == 0 || L.height == 0 || L.width > 0x7FFFFFFFu || L.height > 0x7FFFFFFFu)
    return corrupt("Image size is zero or too large");
  if (L.spp == 0 || L.spp > 4) return unsupported("unsupported image type");
  // BitsPerSample: one value for all samples, or one equal value per sample.
  if (const Entry* e = find(entries, kBitsPerSample)) {
    if (e->count != 1 && e->count != L.spp) return corrupt("BitsPerSample count does not match SamplesPerPixel");
    for (uint32_t i = 0; i < e->count; ++i) {
      uint32_t v = 0;
      if (!r.value(*e, i, v)) return unsupported("unsupported TIFF format");
      if (i == 0) L.bps = v;
      else if (v != L.bps) return unsupported("unsupported image type");
    }
  }
  L.offsets = find(entries, kStripOffsets);
  L.counts = find(entries, kStripByteCounts);
  L.colormap = find(entries, kColorMap);
  if (!L.offsets) return unsupported("unsupported TIFF format");
  if (L.rows_per_strip == 0 || L.rows_per_strip > L.height) L.rows_per_strip = L.height;
  L.strips = static_cast<uint32_t>((uint64_t(L.height) + L.rows_per_strip - 1) / L.rows_per_strip);
  if (L.offsets->count < L.strips || (L.counts && L.counts->count < L.strips))
    return corrupt("Strip count does not match the image height");

  // Pixel layout by photometric interpretation, samples and bits.
  const uint64_t w = L.width;
  const bool one_strip_raw = L.compression == 1 && L.strips == 1;
  uint32_t raw_count = 0;
  if (L.counts && one_strip_raw) r.value(*L.counts, 0, raw_count);
  switch (L.photometric) {
    case 0:
    case 1:
      if (L.spp != 1) return unsupported("unsupported image type");
      L.invert = L.photometric == 0;
      if (L.bps == 8) {
        L.format = VEK_Y8;
        L.row = w;
        L.pred = {1, 1, false};
      } else if (L.bps == 16 || (L.bps > 8 && L.bps < 16 && (ours || (one_strip_raw && raw_count == w * L.height)))) {
        // 9 to 15 significant bits are read only in the layout our writer gives them:
        // whole 16-bit words (its byte count then states one byte a sample).
        L.format = VEK_Y16;
        L.data_width = L.bps;
        L.row = 2 * w;
        L.pred = {2, 1, true};
        // Our LZW path stores the words as they are held in memory.
        L.words_big = ours ? false : r.big();
      } else {
        return unsupported("unsupported image type");
      }
      break;
    case 2:
      if (L.spp != 3 || L.bps != 8) return unsupported("unsupported image type");
      L.format = VEK_RGB24;
      L.row = 3 * w;
      L.pred = {3, 3, false};
      break;
    case 3:
      if (L.spp != 1 || L.bps != 8) return unsupported("unsupported image type");
      if (!L.colormap || L.colormap->count != 3 * 256) return corrupt("ColorMap missing or of the wrong size");
      L.format = VEK_PALETTED;
      L.row = w;
      L.pred = {1, 1, false};
      break;
    case 5:
      if (L.spp != 4 || L.bps != 8) return unsupported("unsupported image type");
      L.format = VEK_CMYK32;
      L.row = 4 * w;
      L.pred = {4, 4, false};
      break;
    default:
      return unsupported("unsupported image");
  }
  if (L.predictor != 2) L.pred = {0, 0, false};
  size_t total = 0;
  if (!checked_size(L.row, L.height, 1, total)) return corrupt("Image size is zero or too large");
  L.capacity = total;
  // Our writer codes BGRX32 and YUV 4:2:2 lines as held (4 and 2 bytes a pixel) under
  // an RGB header; room for the widest lets the decoded length tell them apart.
  if (ours && L.format == VEK_RGB24 && L.compression == 5 && !checked_size(4 * w, L.height, 1, L.capacity))
    return corrupt("Image size is zero or too large");
  // LZW cannot expand much beyond a few thousand bytes per code; a header that
  // promises more than the file could ever hold is refused before allocating.
  const uint64_t ceiling = L.compression == 5 ? uint64_t(r.size()) * 4096 : uint64_t(r.size());
  if (L.capacity > ceiling) return corrupt("Image size exceeds what the file can hold");
  return VEK_OK;
}

uint32_t strip_value(const Reader& r, const Entry* e, uint32_t i, uint32_t& out) {
  if (!r.value(*e, i, out)) return corrupt("Strip table extends beyond end of file");
  return VEK_OK;
}

// Decodes every strip into `packed` (rows back to back); returns the bytes decoded.
uint32_t decode(const Reader& r, const uint8_t* file, Layout& L, Block& packed, size_t& decoded) {
  if (!packed.allocate(L.capacity)) return report(kName, VEK_ERROR_MEMORY, "failed to allocate memory for TIFF_StripByteCounts");
  decoded = 0;
  const size_t n = r.size();
  for (uint32_t s = 0; s < L.strips; ++s) {
    const uint64_t first = uint64_t(s) * L.rows_per_strip;
    const uint64_t rows = L.height - first < L.rows_per_strip ? L.height - first : L.rows_per_strip;
    uint8_t* dst = packed.get() + first * L.row;
    const size_t want = static_cast<size_t>(rows * L.row);
    const size_t room = L.strips == 1 ? L.capacity : want;
    uint32_t offset = 0, count = 0;
    uint32_t st = strip_value(r, L.offsets, s, offset);
    if (is_error(st)) return st;
    if (L.compression == 1) {
      // The byte count is not trusted here: our writer states one byte per 16-bit
      // sample. What matters is that the rows are in the file.
      if (uint64_t(offset) + want > n) return corrupt("Strip extends beyond end of file");
      std::memcpy(dst, file + offset, want);
      decoded += want;
      continue;
    }
    if (offset > n) return corrupt("Strip extends beyond end of file");
    size_t length = n - offset;
    if (L.counts) {
      if (is_error(st = strip_value(r, L.counts, s, count))) return st;
      if (count < length) length = count;
    }
    LZWData* state = nullptr;
    st = lzw_open_decode_memory(&state, file + offset, length, dst, room);
    if (is_error(st)) return st;
    st = lzw_decode(state, 0xFFFFFFFFu);
    const size_t got = lzw_decoded_bytes(state);
    lzw_close_decode(state);
    if (is_error(st)) return st;
    const bool open_layout = L.ours && L.format == VEK_RGB24 && L.strips == 1;
    if (got < want && !open_layout) return corrupt("LZW strip ends before the image is complete");
    decoded += got;
  }
  return VEK_OK;
}

// Settles which of our writer's layouts an RGB-labelled LZW file holds, by length.
uint32_t settle_ours(Layout& L, size_t decoded) {
  if (!L.ours || L.format != VEK_RGB24 || L.compression != 5) return VEK_OK;
  const size_t px = size_t(L.width) * L.height;
  if (decoded == 3 * px) return VEK_OK;
  if (decoded == 4 * px) {
    L.format = VEK_BGRX32;
    L.row = 4 * size_t(L.width);
    L.pred = L.predictor == 2 ? tiff::predictor_for(VEK_BGRX32) : tiff::Predictor{0, 0, false};
  } else if (decoded == 2 * px) {
    L.format = VEK_YUV422;
    L.row = 2 * size_t(L.width);
    L.pred = L.predictor == 2 ? tiff::predictor_for(VEK_YUV422) : tiff::Predictor{0, 0, false};
  } else {
    return corrupt("LZW strip does not match the image size");
  }
  return VEK_OK;
}

void deliver(const Layout& L, uint8_t* packed, ImageRecord& rec) {
  const uint16_t probe = 1;
  uint8_t host_little;
  std::memcpy(&host_little, &probe, 1);
  const bool swap = L.format == VEK_Y16 && (L.words_big == bool(host_little));
  for (size_t y = 0; y < L.height; ++y) {
    uint8_t* row = packed + y * L.row;
    if (swap)
      for (size_t i = 0; i + 1 < L.row; i += 2) std::swap(row[i], row[i + 1]);
    tiff::accumulate_row(row, L.row, L.pred);
    if (L.invert) {
      if (L.format == VEK_Y16) {
        for (size_t i = 0; i + 1 < L.row; i += 2) {
          uint16_t v;
          std::memcpy(&v, row + i, 2);
          v = static_cast<uint16_t>(0xFFFFu - v);
          std::memcpy(row + i, &v, 2);
        }
      } else {
        for (size_t i = 0; i < L.row; ++i) row[i] = static_cast<uint8_t>(255 - row[i]);
      }
    }
    std::memcpy(rec.data + y * size_t(rec.bytes_per_line), row, L.row);
  }
}

uint32_t set_parameters(uint32_t handle, ImageRecord& rec, const Layout& L) {
  VEK_image_set_parameter(handle, VEK_PARAM_FORMAT, L.format);
  if (L.format == VEK_Y16) rec.data_width = static_cast<uint16_t>(L.data_width);
  if (L.format == VEK_PALETTED) rec.cmap_size = 256;
  rec.width = L.width;
  rec.height = L.height;
  rec.lines_per_strip = L.height;
  rec.flags &= ~(VEK_FLAG_TIFF_LZW | VEK_FLAG_TIFF_PREDICTOR);
  if (L.compression == 5) rec.flags |= VEK_FLAG_TIFF_LZW;
  if (L.predictor == 2) rec.flags |= VEK_FLAG_TIFF_PREDICTOR;
  const uint32_t s = VEK_image_check(handle);
  if (is_error(s)) return report(kName, s, "VEK_image_check failed");
  return VEK_OK;
}

void read_colormap(const Reader& r, const Layout& L, ImageRecord& rec) {
  if (!L.colormap || !rec.cmap) return;
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t c[3] = {0, 0, 0};
    for (uint32_t k = 0; k < 3; ++k) r.value(*L.colormap, k * 256 + i, c[k]);
    rec.cmap[i] = CmapEntry{uint8_t(c[0] >> 8), uint8_t(c[1] >> 8), uint8_t(c[2] >> 8), 0};
  }
}

}  // namespace

extern "C" {

VEK_API uint32_t VEK_read_TIFF_file(uint32_t handle, uint32_t mode) {
  ImageRecord* rec = lookup(handle);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  Block file;
  uint32_t s = files::read_whole_file(rec->infile, file);
  if (s == VEK_ERROR_MEMORY) return report(kName, s, "Failed to allocate memory for the file");
  if (s == VEK_ERROR_CLOSE_FAILED) return report(kName, s, "Failed to close file");
  if (is_error(s)) return report(kName, s, "Failed to open file");
  const uint8_t* p = file.get();
  if (file.size() < 8 || !((p[0] == 'M' && p[1] == 'M') || (p[0] == 'I' && p[1] == 'I')))
    return corrupt("Expecting 'MM' or 'II'");
  const Reader r(p, file.size(), p[0] == 'M');
  if (r.u16(2) != 42) return corrupt("Expecting 42");
  std::vector<Entry> entries;
  bool ours = false;
  if (is_error(s = read_directory(r, entries, ours))) return s;
  Layout L;
  if (is_error(s = parse(r, entries, ours, L))) return s;
  Block packed;
  size_t decoded = 0;
  // The data is decoded before the image is touched when a whole picture is wanted,
  // so the decoded length can settle the layout of our own LZW files.
  if (mode == VEK_STRIP_NEXT) {
    if (is_error(s = decode(r, p, L, packed, decoded))) return s;
    if (is_error(s = settle_ours(L, decoded))) return s;
  }
  if (L.format == VEK_PALETTED) read_colormap(r, L, *rec);
  if (is_error(s = set_parameters(handle, *rec, L))) return s;
  return run_strip(
      g_tiff_read_sequence, mode, *rec, [] { return VEK_OK; },
      [&](const StripSequence::Strip&) -> uint32_t {
        VEK_image_free_data(handle);
        uint32_t st = VEK_image_malloc_a_strip(handle);
        if (is_error(st)) return st;
        deliver(L, packed.get(), *rec);
        return VEK_OK;
      });
}

}  // extern "C"
