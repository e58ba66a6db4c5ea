// Encapsulated PostScript: the writer fits the picture onto a fixed printable area
// with ASCII-hex image data; the reader takes such files back into an image.
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstring>

#include "files/common.h"

using namespace vek;
using vek::files::Block;
using vek::files::Stream;

namespace {

constexpr const char kWrite[] = "VEK_write_EPS_file";
constexpr const char kRead[] = "VEK_read_EPS_file";

// Printable area in points and its lower-left corner.
constexpr long kAreaShort = 522, kAreaLong = 720, kLeft = 18, kBottom = 10;

// A stream left open by a mode other than 3 or 4; the next call closes it first.
FILE* g_eps_stream = nullptr;
StripSequence g_eps_read_sequence;

struct Placement {
  long x0, y0, x1, y1;  // bounding box
  long sx, sy;          // scale pair
  bool landscape;
};

// The long side of the picture runs along the 720-point side; the 65536 factor keeps
// the comparison of the two scale factors in integers.
Placement place(long width, long height) {
  Placement p{};
  p.landscape = width > height;
  const long L = p.landscape ? width : height;
  const long S = p.landscape ? height : width;
  long short_extent, long_extent;
  if (kAreaShort * 65536 / S >= kAreaLong * 65536 / L) {
    const long s = S * kAreaLong / L;
    p.x0 = (kAreaShort - s) / 2 + kLeft;
    p.y0 = kBottom;
    p.x1 = (s + kAreaShort) / 2 + kLeft;
    p.y1 = kAreaLong + kBottom;
    short_extent = s;
    long_extent = kAreaLong;
  } else {
    const long l = L * kAreaShort / S;
    p.x0 = kLeft;
    p.x1 = kAreaShort + kLeft;
    p.y0 = (kAreaLong - l) / 2 + kBottom;
    p.y1 = (l + kAreaLong) / 2 + kBottom;
    short_extent = kAreaShort;
    long_extent = l;
  }
  p.sx = p.landscape ? long_extent : short_extent;
  p.sy = p.landscape ? short_extent : long_extent;
  return p;
}

size_t line_bytes(const ImageRecord& rec) {
  switch (rec.format) {
    case VEK_Y1: return (size_t(rec.width) + 7) / 8;
    case VEK_RGB24: return 3 * size_t(rec.width);
    default: return rec.width;
  }
}

// Hex rows: two lower-case digits a byte, a line feed after every 39th byte of a row
// and one at the row's end (so a row of a multiple of 39 bytes ends in two).
// Rows are walked at their byte count rounded up to even, whatever the image's own
// alignment: the layout assumes the default 2-byte line alignment, and an image
// aligned otherwise is written as that walk finds it. Where the walk would leave the
// strip (an image aligned to 1) the missing bytes are written as zeros instead of
// being read from beyond the buffer.
void write_data(const ImageRecord& rec, FILE* f) {
  static const char kHex[] = "0123456789abcdef";
  const size_t n = line_bytes(rec);
  const size_t stride = (n + 1) & ~size_t(1);
  // 1-bit lines are not sized by the validator, so their strip has no known end.
  const size_t strip = rec.format == VEK_Y1 ? SIZE_MAX : size_t(rec.bytes_per_line) * rec.lines_per_strip;
  char out[4096];
  size_t k = 0;
  for (size_t y = 0; y < rec.lines_per_strip; ++y) {
    const size_t at = y * stride;
    const uint8_t* src = rec.data + (at < strip ? at : 0);
    const size_t have = at < strip ? (strip - at < n ? strip - at : n) : 0;
    for (size_t i = 0; i < n; ++i) {
      const uint8_t v = i < have ? src[i] : 0;
      out[k++] = kHex[v >> 4];
      out[k++] = kHex[v & 15];
      if ((i + 1) % 39 == 0) out[k++] = '\n';
      if (k > sizeof out - 4) {
        std::fwrite(out, 1, k, f);
        k = 0;
      }
    }
    out[k++] = '\n';
  }
  std::fwrite(out, 1, k, f);
}

void write_header(const ImageRecord& rec, const Placement& p, FILE* f) {
  const long w = rec.width, h = rec.height;
  std::fprintf(f, "%%!PS-Adobe-3.0 EPSF-3.0\n");
  std::fprintf(f, "%%%%BoundingBox: %ld %ld %ld %ld\n", p.x0, p.y0, p.x1, p.y1);
  char creator[sizeof rec.text + 1];
  std::memcpy(creator, rec.text, sizeof rec.text);
  creator[sizeof rec.text] = '\0';
  std::fprintf(f, "%%%%Creator: %s\n", creator);
  if (rec.format == VEK_RGB24) std::fprintf(f, "%%%%Extensions: CMYK\n");
  if (rec.format == VEK_PALETTED) std::fprintf(f, "%%%%LanguageLevel: 2\n");
  std::fprintf(f, "%%%%EndComments\n%%%%EndProlog\n");
  if (rec.format == VEK_PALETTED) {
    std::fprintf(f, "%ld %ld translate\n", p.x0, p.y0);
    std::fprintf(f, "0 rotate\n");
    std::fprintf(f, "%ld %ld scale\n", p.sx, p.sy);
    const uint32_t entries = rec.cmap_size > 256 ? 256 : rec.cmap_size;
    std::fprintf(f, "[/Indexed /DeviceRGB %d\n <", int(entries) - 1);
    for (uint32_t i = 0; i < entries; ++i) {
      const CmapEntry& c = rec.cmap[i];
      std::fprintf(f, "%02x%02x%02x", c.r, c.g, c.b);
      if (i + 1 < entries) std::fputs(i % 11 == 10 ? "\n  " : " ", f);
    }
    std::fprintf(f, ">\n] setcolorspace\n");
    std::fprintf(f, "<<\n  /ImageType 1\n");
    std::fprintf(f, "  /Width %d\n", int(w));
    std::fprintf(f, "  /Height %d\n", int(h));
    std::fprintf(f, "  /BitsPerComponent %d\n", int(rec.depth));
    std::fprintf(f, "  /Decode [0 1 0 1 0 1]\n");
    if (p.landscape)
      std::fprintf(f, "  /ImageMatrix[0 %ld %ld 0 0 0]\t%% Landscape Orientation\n", w, h);
    else
      std::fprintf(f, "  /ImageMatrix[%ld 0 0 -%ld 0 %ld]\t%% Portrait Orientation\n", w, h, h);
    std::fprintf(f, "  /DataSource currentfile\n");
    std::fprintf(f, "  /ASCIIHexDecode filter\n");
    std::fprintf(f, ">>\nimage\n");
    return;
  }
  std::fprintf(f, "%ld %ld translate\n", p.x0, p.y0);
  std::fprintf(f, "0 rotate\n");
  std::fprintf(f, "/picstr %ld string def\n", w);
  std::fprintf(f, "%ld %ld scale\n", p.sx, p.sy);
  std::fprintf(f, rec.format == VEK_Y1 ? "%ld %ld 1\n" : "%ld %ld 8\n", w, h);
  if (p.landscape)
    std::fprintf(f, "[0 %ld %ld 0 0 0]\t%% Landscape Orientation\n", w, h);
  else
    std::fprintf(f, "[%ld 0 0 -%ld 0 %ld]\t%% Portrait Orientation\n", w, h, h);
  std::fprintf(f, "{currentfile\n picstr readhexstring pop}\n");
  std::fprintf(f, rec.format == VEK_RGB24 ? "false 3\ncolorimage\n" : "image\n");
}

// ---- reading ----

// Lines of a text held in memory, carriage returns tolerated.
class Lines {
 public:
  Lines(const char* p, size_t n) : p_(p), n_(n) {}
  bool next(const char*& line, size_t& len) {
    if (pos_ >= n_) return false;
    line = p_ + pos_;
    const void* nl = std::memchr(line, '\n', n_ - pos_);
    len = nl ? size_t(static_cast<const char*>(nl) - line) : n_ - pos_;
    pos_ += len + (nl ? 1 : 0);
    while (len && (line[len - 1] == '\r' || line[len - 1] == ' ' || line[len - 1] == '\t')) --len;
    return true;
  }
  size_t position() const { return pos_; }

 private:
  const char* p_;
  size_t n_;
  size_t pos_ = 0;
};

bool starts(const char* line, size_t len, const char* prefix) {
  const size_t k = std::strlen(prefix);
  return len >= k && std::memcmp(line, prefix, k) == 0;
}

int hex_value(int c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

struct EpsHeader {
  int32_t width = -1, height = -1, depth = -1;
  bool paletted = false, colour = false, found_image = false;
  int32_t palette_last = -1;
  CmapEntry palette[256] = {};
  size_t data = 0;  // offset of the hex data
};

// Reads palette digits after '<' up to '>' into the header; false when malformed.
bool read_palette(const char* text, size_t n, size_t& pos, EpsHeader& h) {
  int digits[6];
  int k = 0, entry = 0;
  for (; pos < n && text[pos] != '>'; ++pos) {
    const int v = hex_value(static_cast<unsigned char>(text[pos]));
    if (v < 0) {
      if (std::isspace(static_cast<unsigned char>(text[pos]))) continue;
      return false;
    }
    digits[k++] = v;
    if (k == 6) {
      if (entry >= 256) return false;
      h.palette[entry++] = CmapEntry{uint8_t(digits[0] << 4 | digits[1]), uint8_t(digits[2] << 4 | digits[3]),
                                     uint8_t(digits[4] << 4 | digits[5]), 0};
      k = 0;
    }
  }
  if (pos >= n || k != 0 || entry != h.palette_last + 1) return false;
  ++pos;
  return true;
}

uint32_t parse_header(const char* text, size_t n, EpsHeader& h, ImageRecord& rec) {
  Lines lines(text, n);
  const char* line;
  size_t len;
  if (!lines.next(line, len) || !starts(line, len, "%!PS"))
    return report(kRead, VEK_ERROR_CORRUPT_IMAGE, "Not a PostScript file");
  char buf[256];
  while (lines.next(line, len)) {
    while (len && (*line == ' ' || *line == '\t')) ++line, --len;
    const size_t k = len < sizeof buf - 1 ? len : sizeof buf - 1;
    std::memcpy(buf, line, k);
    buf[k] = '\0';
    int32_t v[3];
    if (starts(line, len, "%%Creator: ")) {
      const size_t c = len - 11 < sizeof rec.text - 1 ? len - 11 : sizeof rec.text - 1;
      std::memcpy(rec.text, line + 11, c);
      rec.text[c] = '\0';
    } else if (VEK_sscanf(buf, "[/Indexed /DeviceRGB %d", v, 1) == 1) {
      if (v[0] < 0 || v[0] > 255) return report(kRead, VEK_ERROR_CORRUPT_IMAGE, "Invalid colour map");
      h.paletted = true;
      h.palette_last = v[0];
      size_t pos = lines.position();
      while (pos < n && text[pos] != '<') ++pos;
      if (pos >= n || !read_palette(text, n, ++pos, h))
        return report(kRead, VEK_ERROR_CORRUPT_IMAGE, "Invalid colour map");
      lines = Lines(text, n);
      // Continue after the palette: skip lines up to its end.
      while (lines.position() < pos && lines.next(line, len)) {
      }
    } else if (VEK_sscanf(buf, "/Width %d", v, 1) == 1) {
      h.width = v[0];
    } else if (VEK_sscanf(buf, "/Height %d", v, 1) == 1) {
      h.height = v[0];
    } else if (VEK_sscanf(buf, "/BitsPerComponent %d", v, 1) == 1) {
      h.depth = v[0];
    } else if (buf[0] != '[' && VEK_sscanf(buf, "%d %d %d", v, 3) == 3) {
      // "width height bits" carries no word, unlike translate and scale.
      bool digits_only = true;
      for (size_t i = 0; i < k; ++i)
        if (!std::isdigit(static_cast<unsigned char>(buf[i])) && buf[i] != ' ' && buf[i] != '-') digits_only = false;
      if (digits_only) {
        h.width = v[0];
        h.height = v[1];
        h.depth = v[2];
      }
    } else if (std::strcmp(buf, "colorimage") == 0 || std::strcmp(buf, "image") == 0) {
      h.colour = buf[0] == 'c';
      h.found_image = true;
      h.data = lines.position();
      return VEK_OK;
    }
  }
  return report(kRead, VEK_ERROR_CORRUPT_IMAGE, "No image found in file");
}

// Reads `count` bytes of hex digits from `pos` on (white space between digits is
// skipped) and leaves `pos` just after the last digit used.
uint32_t read_hex(const char* text, size_t n, size_t& pos, uint8_t* dst, size_t count) {
  size_t got = 0;
  int high = -1;
  for (; pos < n && got < count; ++pos) {
    const int c = static_cast<unsigned char>(text[pos]);
    const int v = hex_value(c);
    if (v < 0) {
      if (std::isspace(c)) continue;
      return report(kRead, VEK_ERROR_CORRUPT_IMAGE, "Invalid hex data");
    }
    if (high < 0) {
      high = v;
    } else {
      dst[got++] = static_cast<uint8_t>(high << 4 | v);
      high = -1;
    }
  }
  if (got < count) return report(kRead, VEK_ERROR_CORRUPT_IMAGE, "Image data ends early");
  return VEK_OK;
}

}  // namespace

extern "C" {

VEK_API uint32_t VEK_sscanf(const char* text, const char* format, int32_t* values, uint32_t max_values) {
  if (!text || !format) return 0;
  uint32_t count = 0;
  const char* t = text;
  const char* f = format;
  auto skip = [](const char*& s) {
    while (*s && std::isspace(static_cast<unsigned char>(*s))) ++s;
  };
  while (*f) {
    if (std::isspace(static_cast<unsigned char>(*f))) {
      skip(f);
      skip(t);
      continue;
    }
    if (*f == '%' && f[1] != '%') {
      ++f;
      while (*f == 'l') ++f;
      if (*f != 'd') return count;
      ++f;
      skip(t);
      bool negative = false;
      if (*t == '-' || *t == '+') negative = *t++ == '-';
      if (!std::isdigit(static_cast<unsigned char>(*t))) return count;
      int64_t v = 0;
      while (std::isdigit(static_cast<unsigned char>(*t))) {
        if (v <= INT32_MAX) v = v * 10 + (*t - '0');
        ++t;
      }
      if (negative) v = -v;
      if (v > INT32_MAX) v = INT32_MAX;
      if (v < INT32_MIN) v = INT32_MIN;
      if (values && count < max_values) values[count] = static_cast<int32_t>(v);
      ++count;
      continue;
    }
    if (*f == '%') ++f;  // "%%" matches one '%'
    if (*t != *f) return count;
    ++t;
    ++f;
  }
  return count;
}

VEK_API uint32_t VEK_write_EPS_file(uint32_t handle, uint32_t mode) {
  uint32_t status = VEK_image_check(handle);
  if (is_error(status)) return report(kWrite, status, "Corrupt image");
  ImageRecord* rec = lookup(handle);
  const uint32_t fmt = rec->format;
  if (fmt != VEK_Y1 && fmt != VEK_Y8 && fmt != VEK_PALETTED && fmt != VEK_RGB24)
    return report(kWrite, VEK_ERROR_NOT_SUPPORTED | fmt, "Unsupported image format");
  if (rec->lines_per_strip == 0) return VEK_OK;
  // The placement divides by the picture's sides.
  if (rec->width == 0 || rec->height == 0 || rec->width > 0x7FFFFFFFu || rec->height > 0x7FFFFFFFu)
    return report(kWrite, VEK_ERROR_BAD_PARAMETER, "Image has no pixels");
  if (mode == VEK_STRIP_NEXT && !rec->data) return report(kWrite, VEK_ERROR_BAD_PARAMETER, "Image has no data");
  if (fmt == VEK_PALETTED && !rec->cmap) return report(kWrite, VEK_ERROR_BAD_PARAMETER, "Image has no colour map");
  if (g_eps_stream) std::fclose(g_eps_stream);
  g_eps_stream = nullptr;
  Stream f(std::fopen(rec->outfile, "w"));
  if (!f) return report(kWrite, VEK_ERROR_OPEN_FAILED, "Failed to create file");
  write_header(*rec, place(rec->width, rec->height), f.get());
  if (mode == VEK_STRIP_NEXT) {
    write_data(*rec, f.get());
    std::fprintf(f.get(), "showpage\n%%%%EOF\n");
  } else if (mode != VEK_STRIP_END) {
    g_eps_stream = f.release();
    return VEK_OK;
  }
  if (!f.close()) return report(kWrite, VEK_ERROR_CLOSE_FAILED, "Failed to close file");
  return VEK_OK;
}

VEK_API uint32_t VEK_read_EPS_file(uint32_t handle, uint32_t mode) {
  ImageRecord* rec = lookup(handle);
  if (!rec) return report(kRead, VEK_ERROR_BAD_HANDLE);
  Block file;
  uint32_t s = files::read_whole_file(rec->infile, file);
  if (s == VEK_ERROR_MEMORY) return report(kRead, s, "Failed to allocate memory for the file");
  if (s == VEK_ERROR_CLOSE_FAILED) return report(kRead, s, "Failed to close file");
  if (is_error(s)) return report(kRead, s, "Failed to open file");
  const char* text = reinterpret_cast<const char*>(file.get());
  const size_t n = file.size();
  EpsHeader h;
  if (is_error(s = parse_header(text, n, h, *rec))) return s;
  uint32_t format;
  if (h.paletted && h.depth == 8) format = VEK_PALETTED;
  else if (h.colour && h.depth == 8) format = VEK_RGB24;
  else if (!h.colour && !h.paletted && h.depth == 8) format = VEK_Y8;
  else if (!h.colour && !h.paletted && h.depth == 1) format = VEK_Y1;
  else return report(kRead, VEK_ERROR_NOT_SUPPORTED, "Unsupported EPS image");
  if (h.width <= 0 || h.height <= 0) return report(kRead, VEK_ERROR_CORRUPT_IMAGE, "Invalid image size");
  // Every data byte takes two hex digits, so the file bounds the picture.
  const size_t per_line = format == VEK_Y1 ? (size_t(h.width) + 7) / 8
                          : format == VEK_RGB24 ? 3 * size_t(h.width) : size_t(h.width);
  if (uint64_t(per_line) * uint64_t(h.height) > (n - h.data) / 2)
    return report(kRead, VEK_ERROR_CORRUPT_IMAGE, "Image data ends early");
  VEK_image_set_parameter(handle, VEK_PARAM_FORMAT, format);
  if (format == VEK_PALETTED) {
    std::memcpy(rec->cmap, h.palette, sizeof h.palette);
    rec->cmap_size = uint32_t(h.palette_last + 1);
  }
  rec->width = uint32_t(h.width);
  rec->height = uint32_t(h.height);
  rec->lines_per_strip = uint32_t(h.height);
  s = VEK_image_check(handle);
  if (is_error(s)) return report(kRead, s, "VEK_image_check failed");
  return run_strip(
      g_eps_read_sequence, mode, *rec, [] { return VEK_OK; },
      [&](const StripSequence::Strip&) -> uint32_t {
        VEK_image_free_data(handle);
        size_t stride = rec->bytes_per_line;
        if (format == VEK_Y1) {
          // 1-bit lines are not sized by the validator: they take whole bytes, padded
          // to even as the writer steps over them.
          stride = (per_line + 1) & ~size_t(1);
          Block own;
          if (!own.allocate(stride * rec->height)) return report(kRead, VEK_ERROR_MEMORY);
          std::memset(own.get(), 0, own.size());
          rec->data = own.release();
        } else {
          uint32_t st = VEK_image_malloc_a_strip(handle);
          if (is_error(st)) return st;
        }
        size_t pos = h.data;
        for (size_t y = 0; y < rec->height; ++y) {
          uint32_t st = read_hex(text, n, pos, rec->data + y * stride, per_line);
          if (is_error(st)) return st;
        }
        return VEK_OK;
      });
}

}  // extern "C"
