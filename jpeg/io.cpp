// JPEG interchange-format streams in files and memory buffers: the marker-segment
// parser shared by the three readers, and the writer of the headers from the descriptor.
#include <cstdio>
#include <cstring>

#include "jpeg/internal.h"

namespace vek::jpeg {
namespace {

constexpr uint32_t kCorrupt = VEK_ERROR_CORRUPT_IMAGE;
constexpr uint32_t kUnsupported = VEK_ERROR_NOT_SUPPORTED;

struct MemSource {
  const uint8_t* p;
  size_t size;
  size_t pos = 0;
  int get() { return pos < size ? p[pos++] : -1; }
  size_t remaining() const { return size - pos; }
  uint64_t tell() const { return pos; }
};

struct FileSource {
  FILE* f;
  uint64_t pos = 0;
  int get() {
    const int c = std::getc(f);
    if (c != EOF) ++pos;
    return c;
  }
  uint64_t tell() const { return pos; }
};

enum class Reader { Buffer, FileRead, FileOpen };

template <class Src>
class Parser {
 public:
  Parser(const char* fn, Src& in, uint32_t handle, Reader kind, size_t buffer_size)
      : fn_(fn), in_(in), handle_(handle), kind_(kind), buffer_size_(buffer_size) {}

  uint32_t run() {
    int c = in_.get();
    if (c != 0xFF) return fail(kCorrupt, "Expecting PREFIX marker", c < 0);
    c = in_.get();
    if (c != 0xD8) return fail(kCorrupt, "Expecting SOI marker", c < 0);
    int pending = -1;  // marker code met at the end of the entropy-coded data
    for (;;) {
      int code = pending;
      pending = -1;
      if (code < 0) {
        if constexpr (requires { in_.remaining(); }) {
          if (in_.remaining() < 2) return VEK_OK;
        }
        c = in_.get();
        if (c < 0) return seen_sos_ ? uint32_t(VEK_OK) : fail(kCorrupt, eof_text(), true);
        if (c != 0xFF) return fail(kCorrupt | uint32_t(c), "Expecting 0xFF marker code");
        code = in_.get();
        if (code < 0) return fail(kCorrupt, eof_text(), true);
        if (kind_ == Reader::Buffer && (code < 0xC0 || code > 0xFE))
          return fail(kUnsupported | uint32_t(code), "Unrecognised marker detected");
      }
      uint32_t status = VEK_OK;
      switch (code) {
        case 0xC0: status = sof(); break;
        case 0xC4: status = dht(); break;
        case 0xDB: status = dqt(); break;
        case 0xDD: status = dri(); break;
        case 0xE0: status = skip_segment(); break;
        case 0xFE: status = com(); break;
        case 0xDA:
          status = sos(pending);
          if (!is_error(status) && kind_ == Reader::FileOpen) return VEK_OK;
          break;
        case 0xD9:
          if (kind_ == Reader::Buffer) break;
          eoi_ = true;
          return VEK_OK;
        default: return fail(kUnsupported | uint32_t(code), "Unrecognised marker detected");
      }
      if (is_error(status)) return status;
    }
  }

  bool saw_eoi() const { return eoi_; }

 private:
  const char* eof_text() const {
    return kind_ == Reader::Buffer ? "Unexpected end of JPEG stream" : "Unexpected end of file";
  }
  uint32_t fail(uint32_t code, const char* text, bool at_end = false) {
    if (at_end) return report(fn_, kCorrupt, eof_text());
    return report(fn_, code, text);
  }
  // Reads n bytes (n may be 0); false at the end of the stream.
  bool bytes(uint8_t* out, size_t n) {
    for (size_t i = 0; i < n; ++i) {
      const int c = in_.get();
      if (c < 0) return false;
      if (out) out[i] = uint8_t(c);
    }
    return true;
  }
  bool u8(uint32_t& v) {
    const int c = in_.get();
    v = uint32_t(c);
    return c >= 0;
  }
  bool u16(uint32_t& v) {
    uint32_t hi = 0, lo = 0;
    if (!u8(hi) || !u8(lo)) return false;
    v = (hi << 8) | lo;
    return true;
  }
  // Reads a segment length and checks it covers at least `minimum` bytes.
  uint32_t length(uint32_t& len, uint32_t minimum) {
    if (!u16(len)) return fail(kCorrupt, eof_text(), true);
    if (len < minimum) return report(fn_, kCorrupt, "Invalid marker segment length");
    return VEK_OK;
  }
  uint32_t skip(uint32_t n) { return bytes(nullptr, n) ? uint32_t(VEK_OK) : fail(kCorrupt, "", true); }

  uint32_t skip_segment() {
    uint32_t len = 0;
    uint32_t s = length(len, 2);
    return is_error(s) ? s : skip(len - 2);
  }

  uint32_t sof() {
    ImageRecord& rec = *lookup(handle_);
    Tjpeg& j = *rec.jpeg;
    uint32_t len = 0, p = 0, h = 0, w = 0, nf = 0;
    uint32_t s = length(len, 8);
    if (is_error(s)) return s;
    if (!u8(p) || !u16(h) || !u16(w) || !u8(nf)) return fail(kCorrupt, "", true);
    if (nf != 1 && nf != 3) return report(fn_, kUnsupported, "Unsupported image depth");
    if (len < 8 + 3 * nf) return report(fn_, kCorrupt, "Invalid marker segment length");
    j.frame_header_length = uint16_t(len);
    j.precision = uint16_t(p);
    rec.height = h;
    rec.width = w;
    rec.lines_per_strip = h;
    for (uint32_t i = 0; i < nf; ++i) {
      uint8_t comp[3];
      if (!bytes(comp, 3)) return fail(kCorrupt, "", true);
      j.h_sampling[i] = comp[1] >> 4;
      j.v_sampling[i] = comp[1] & 15;
      j.q_selector[i] = comp[2];
    }
    s = skip(len - 8 - 3 * nf);
    if (is_error(s)) return s;
    uint32_t format = VEK_Y8;
    if (nf == 3) {
      const bool chroma_h1 = j.h_sampling[1] == 1 && j.h_sampling[2] == 1;
      if (j.h_sampling[0] == 2 && j.v_sampling[0] == 1 && chroma_h1) format = VEK_YUV422;
      else if (j.h_sampling[0] == 2 && j.v_sampling[0] == 2 && chroma_h1) format = VEK_YUV411;
      else if (j.h_sampling[0] == 1 && chroma_h1) format = VEK_RGB24;
      else return report(fn_, kUnsupported, "Unknown colour image format");
    }
    VEK_image_set_parameter(handle_, VEK_PARAM_FORMAT, format);
    return VEK_OK;
  }

  uint32_t dht() {
    Tjpeg& j = *lookup(handle_)->jpeg;
    uint32_t len = 0;
    uint32_t s = length(len, 2);
    if (is_error(s)) return s;
    // Writers that put each table in a segment of its own are common: the ids are reset
    // at the first DHT of a stream only and later segments add their tables and bytes.
    if (!seen_dht_) {
      for (uint16_t& id : j.h_table_id) id = 255;
      j.h_segment_length = 0;
      seen_dht_ = true;
    }
    j.h_segment_length = uint16_t(j.h_segment_length + len - 2);
    uint32_t consumed = 0;
    while (consumed < len - 2) {
      uint32_t tc = 0;
      uint8_t counts[16];
      if (!u8(tc) || !bytes(counts, 16)) return fail(kCorrupt, "", true);
      uint32_t total = 0;
      for (uint8_t n : counts) total += n;
      // A table holds at most 256 values; counts adding up to more cannot be stored.
      if (total > 256) return report(fn_, kCorrupt, "Corrupt Huffman table");
      const int slot = tc == 0x00 ? kDcLuma : tc < 0x10 ? kDcChroma : tc == 0x10 ? kAcLuma : kAcChroma;
      std::memcpy(j.h_bits[slot], counts, 16);
      std::memset(j.h_values[slot], 0, 256);
      if (!bytes(j.h_values[slot], total)) return fail(kCorrupt, "", true);
      j.h_table_id[slot] = uint16_t(tc);
      // Values running past the segment's own length would leave the parser inside
      // the next segment; such a stream is refused rather than misread.
      consumed += 17 + total;
      if (consumed > len - 2) return report(fn_, kCorrupt, "Corrupt Huffman table");
    }
    return VEK_OK;
  }

  uint32_t dqt() {
    Tjpeg& j = *lookup(handle_)->jpeg;
    uint32_t len = 0;
    uint32_t s = length(len, 2);
    if (is_error(s)) return s;
    const uint32_t n = len / 65;
    if (2 + 65 * n > len) return report(fn_, kCorrupt, "Invalid marker segment length");
    if (!seen_dqt_) {
      j.q_segment_length = uint16_t(len);
      j.q_table_count = 0;
      seen_dqt_ = true;
    } else {
      j.q_segment_length = uint16_t(j.q_segment_length + len - 2);
    }
    for (uint32_t i = 0; i < n; ++i) {
      uint32_t pq = 0;
      if (!u8(pq)) return fail(kCorrupt, "", true);
      if (pq >> 4) return report(fn_, kUnsupported, "16 bit integer precision not supported");
      // Only four table slots exist; a larger selector would address beyond them.
      if ((pq & 15) > 3) return report(fn_, kUnsupported, "Quantization table number out of range");
      if (!bytes(j.q_table[pq & 15], 64)) return fail(kCorrupt, "", true);
      ++j.q_table_count;
    }
    return skip(len - 2 - 65 * n);
  }

  uint32_t dri() {
    uint32_t len = 0, interval = 0;
    uint32_t s = length(len, 4);
    if (is_error(s)) return s;
    if (!u16(interval)) return fail(kCorrupt, "", true);
    if (kind_ != Reader::Buffer || interval != 0)
      return report(fn_, kUnsupported, "Define Restart Interval not supported");
    return skip(len - 4);
  }

  uint32_t com() {
    Tjpeg& j = *lookup(handle_)->jpeg;
    uint32_t len = 0;
    uint32_t s = length(len, 2);
    if (is_error(s)) return s;
    uint32_t keep = 0;
    if (kind_ == Reader::Buffer) {
      keep = len - 2 < 32 ? len - 2 : 32;
      if (!bytes(j.comment, keep)) return fail(kCorrupt, "", true);
    }
    return skip(len - 2 - keep);
  }

  uint32_t sos(int& pending) {
    ImageRecord& rec = *lookup(handle_);
    Tjpeg& j = *rec.jpeg;
    uint32_t len = 0, ns = 0, ss = 0, se = 0, a = 0;
    uint32_t s = length(len, 6);
    if (is_error(s)) return s;
    if (!u8(ns)) return fail(kCorrupt, "", true);
    if (len < 6 + 2 * ns) return report(fn_, kCorrupt, "Invalid marker segment length");
    s = skip(2 * ns);
    if (is_error(s)) return s;
    if (!u8(ss) || !u8(se) || !u8(a)) return fail(kCorrupt, "", true);
    s = skip(len - 6 - 2 * ns);
    if (is_error(s)) return s;
    j.scan_header_length = uint16_t(len);
    j.scan_components = uint16_t(ns);
    j.spectral_start = uint8_t(ss);
    j.spectral_end = uint8_t(se);
    j.approximation = uint8_t(a);
    j.header_length = uint32_t(in_.tell());
    seen_sos_ = true;
    if (kind_ == Reader::FileOpen) {
      VEK_JPEG_free_data(handle_);
      return VEK_OK;
    }

    s = kind_ == Reader::Buffer ? VEK_JPEG_malloc_N_bytes_data(handle_, uint32_t(buffer_size_))
                                : VEK_JPEG_malloc_data(handle_);
    if (is_error(s)) return s;
    const size_t capacity = data_capacity(handle_);
    uint8_t* out = j.data;
    size_t n = 0;
    rec.param18 = 1;
    auto put = [&](int b) {
      if (n >= capacity) return false;
      out[n++] = uint8_t(b);
      return true;
    };
    bool room = true;
    for (;;) {
      const int c = in_.get();
      if (c < 0) break;
      if (c != 0xFF) {
        room = put(c);
        if (!room) break;
        continue;
      }
      const int c2 = in_.get();
      if (c2 < 0) {
        room = put(c);
        break;
      }
      if (c2 == 0x00 || (c2 >= 0xD0 && c2 <= 0xD7)) {
        room = put(c) && put(c2);
        if (!room) break;
        if (c2 != 0x00) ++rec.param18;
        continue;
      }
      pending = c2;
      break;
    }
    if (!room) return report(fn_, VEK_ERROR_MEMORY | uint32_t((n + 1) & 0xFFFFu));
    j.data_length = uint32_t(n);
    j.current = j.data;
    return VEK_OK;
  }

  const char* fn_;
  Src& in_;
  uint32_t handle_;
  Reader kind_;
  size_t buffer_size_;
  bool seen_dht_ = false;
  bool seen_dqt_ = false;
  bool seen_sos_ = false;
  bool eoi_ = false;
};

FILE* g_own_file[kMaxHandles + 1];

// Replaces the descriptor's stream by one the reader has just opened, closing the
// previous one only when a reader had opened it.
void adopt_file(uint32_t handle, Tjpeg& j, FILE* f) {
  if (j.file && owns_file(handle, j.file)) std::fclose(j.file);
  j.file = f;
  remember_own_file(handle, f);
}

// ---- writer ------------------------------------------------------------------

struct Out {
  uint8_t* p;
  size_t n = 0;
  void u8(uint32_t v) { p[n++] = uint8_t(v); }
  void u16(uint32_t v) {
    u8(v >> 8);
    u8(v);
  }
  void raw(const void* s, size_t len) {
    std::memcpy(p + n, s, len);
    n += len;
  }
};

constexpr char kFileComment[] = "Generated by Quillmark's VEK Library";
constexpr char kBufferComment[] = "ZEL VEK";
constexpr size_t kMaxHeader = 2 + 18 + 4 + 32 + 64 + 4 + 4 * 65 + 2 + 17 + 4 + 4 * 273 + 16;

// Marker segments SOI..SOS from the descriptor; returns the header length.
size_t write_header(const ImageRecord& rec, uint8_t* buffer, bool for_file) {
  const Tjpeg& j = *rec.jpeg;
  Out o{buffer};
  o.u16(0xFFD8);
  o.u16(0xFFE0);
  o.u16(16);
  o.raw("JFIF", 5);
  o.u16(0x0101);
  o.u8(0);
  o.u16(0);  // densities deliberately 0
  o.u16(0);
  o.u16(0);  // no thumbnail
  const char* text = for_file ? kFileComment : kBufferComment;
  const size_t text_len = std::strlen(text);
  o.u16(0xFFFE);
  o.u16(uint32_t(2 + 32 + text_len));
  o.raw(j.comment, 32);
  o.raw(text, text_len);

  // For every descriptor this library makes, and every stream it reads whole, the
  // stored segment length equals 2 + 65 per table; the length is derived from the
  // tables actually written so that a descriptor read from an odd stream (more table
  // definitions than slots, trailing bytes in a segment) still yields a valid segment.
  const uint32_t tables = j.q_table_count < 4 ? j.q_table_count : 4;
  o.u16(0xFFDB);
  o.u16(2 + 65 * tables);
  for (uint32_t t = 0; t < tables; ++t) {
    o.u8(t);
    o.raw(j.q_table[t], 64);
  }

  const uint32_t ns = j.scan_components < 3 ? j.scan_components : 3;
  o.u16(0xFFC0);
  o.u16(j.frame_header_length);
  o.u8(j.precision);
  o.u16(rec.height);
  o.u16(rec.width);
  o.u8(ns);
  for (uint32_t i = 0; i < ns; ++i) {
    o.u8(i + 1);
    o.u8(j.h_sampling[i] * 16 + j.v_sampling[i]);
    o.u8(j.q_selector[i]);
  }

  if (for_file || !(rec.flags & VEK_FLAG_STREAM)) {
    // Absent tables (id 255) are skipped rather than ending the list: a grey stream
    // read from another writer holds DC and AC luminance only, in slots 0 and 2, and
    // stopping at slot 1 would drop its AC table. With all four tables present (every
    // descriptor this library makes) both rules write the same bytes. The length is
    // patched in from the bytes written, which equals the stored Huffman segment
    // length + 2 whenever the descriptor is consistent.
    o.u16(0xFFC4);
    const size_t length_at = o.n;
    o.u16(0);
    for (int t = 0; t < 4; ++t) {
      if (j.h_table_id[t] == 255) continue;
      o.u8(j.h_table_id[t]);
      o.raw(j.h_bits[t], 16);
      size_t total = 0;
      for (int i = 0; i < 16; ++i) total += j.h_bits[t][i];
      if (total > 256) total = 256;
      o.raw(j.h_values[t], total);
    }
    const size_t length = o.n - length_at;
    buffer[length_at] = uint8_t(length >> 8);
    buffer[length_at + 1] = uint8_t(length);
  }

  o.u16(0xFFDA);
  o.u16(j.scan_header_length);
  o.u8(ns);
  for (uint32_t i = 1; i <= ns; ++i) {
    o.u8(i);
    o.u8(i == 1 ? 0x00 : 0x11);
  }
  o.u8(j.spectral_start);
  o.u8(j.spectral_end);
  o.u8(j.approximation);
  return o.n;
}

}  // namespace

void remember_own_file(uint32_t handle, FILE* file) {
  if (handle != 0 && handle <= kMaxHandles) g_own_file[handle] = file;
}

bool owns_file(uint32_t handle, FILE* file) {
  return file && handle != 0 && handle <= kMaxHandles && g_own_file[handle] == file;
}

}  // namespace vek::jpeg

using namespace vek;
using namespace vek::jpeg;

extern "C" {

VEK_API uint32_t VEK_JPEG_file_write(uint32_t handle) {
  static const char kName[] = "VEK_JPEG_file_write";
  ImageRecord* rec = lookup(handle);
  if (!rec || !rec->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  uint8_t header[kMaxHeader];
  const size_t n = write_header(*rec, header, true);
  FILE* f = std::fopen(rec->outfile, "wb");
  if (!f) return report(kName, VEK_ERROR_OPEN_FAILED, "Failed to create file");
  std::setvbuf(f, nullptr, _IOFBF, 16384);
  std::fwrite(header, 1, n, f);
  const Tjpeg& j = *rec->jpeg;
  if (j.data && j.data_length) std::fwrite(j.data, 1, j.data_length, f);
  static const uint8_t eoi[2] = {0xFF, 0xD9};
  std::fwrite(eoi, 1, 2, f);
  const bool write_failed = std::ferror(f) != 0;
  if (std::fclose(f) != 0 || write_failed)
    return report(kName, VEK_ERROR_CLOSE_FAILED, "Failed to close file");
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_buffer_write(uint32_t handle, uint8_t* buffer, uint32_t size,
                                       uint32_t* length_out) {
  static const char kName[] = "VEK_JPEG_buffer_write";
  ImageRecord* rec = lookup(handle);
  if (!rec || !rec->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  if (!buffer) return report(kName, VEK_ERROR_OPEN_FAILED, "No buffer to write to");
  uint8_t header[kMaxHeader];
  const size_t n = write_header(*rec, header, false);
  const Tjpeg& j = *rec->jpeg;
  const size_t data = j.data ? j.data_length : 0;
  const uint64_t total = uint64_t(n) + data + 2;
  if (total > size) return report(kName, VEK_ERROR_BAD_PARAMETER, "Output buffer too small");
  std::memcpy(buffer, header, n);
  if (data) std::memcpy(buffer + n, j.data, data);
  buffer[n + data] = 0xFF;
  buffer[n + data + 1] = 0xD9;
  if (length_out) *length_out = uint32_t(total);
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_file_read(uint32_t handle) {
  static const char kName[] = "VEK_JPEG_file_read";
  ImageRecord* rec = lookup(handle);
  if (!rec || !rec->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  FILE* f = std::fopen(rec->infile, "rb");
  if (!f) return report(kName, VEK_ERROR_OPEN_FAILED, "Failed to open JPEG file");
  adopt_file(handle, *rec->jpeg, f);
  FileSource in{f};
  Parser<FileSource> parser(kName, in, handle, Reader::FileRead, 0);
  const uint32_t status = parser.run();
  rec = lookup(handle);
  rec->jpeg->file = nullptr;
  remember_own_file(handle, nullptr);
  const bool close_failed = std::fclose(f) != 0;
  if (is_error(status)) return status;
  if (close_failed) return report(kName, VEK_ERROR_CLOSE_FAILED, "Failed to close file");
  rec->flags |= VEK_FLAG_JPEG;
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_file_open(uint32_t handle) {
  static const char kName[] = "VEK_JPEG_file_open";
  ImageRecord* rec = lookup(handle);
  if (!rec || !rec->jpeg)
    return report(kName, VEK_ERROR_OPEN_FAILED, "The VEK image handle refers to a non-JPEG image");
  FILE* f = std::fopen(rec->infile, "rb");
  if (!f) return report(kName, VEK_ERROR_OPEN_FAILED, "Failed to open JPEG file");
  adopt_file(handle, *rec->jpeg, f);
  FileSource in{f};
  Parser<FileSource> parser(kName, in, handle, Reader::FileOpen, 0);
  const uint32_t status = parser.run();
  if (is_error(status) || parser.saw_eoi()) {
    std::fclose(f);
    rec->jpeg->file = nullptr;
    remember_own_file(handle, nullptr);
    return status;
  }
  rec->flags |= VEK_FLAG_JPEG;
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_file_close(uint32_t handle) {
  Tjpeg* j = descriptor(handle);
  if (!j) return report("VEK_JPEG_file_close", VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  if (!j->file) return VEK_OK;
  const int rc = std::fclose(j->file);
  j->file = nullptr;
  remember_own_file(handle, nullptr);
  if (rc != 0) return report("VEK_JPEG_file_close", VEK_ERROR_CLOSE_FAILED, "Failed to close file");
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_buffer_read(uint32_t handle, const uint8_t* buffer, uint32_t size) {
  static const char kName[] = "VEK_JPEG_buffer_read";
  ImageRecord* rec = lookup(handle);
  if (!rec || !rec->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  if (!buffer) return report(kName, VEK_ERROR_OPEN_FAILED, "No buffer to read from");
  if (size == 0) return report(kName, VEK_ERROR_CORRUPT_IMAGE, "Unexpected end of JPEG stream");
  if (size < 4) {
    // Too short to hold a segment: only the start-of-image bytes present are checked.
    if (buffer[0] != 0xFF) return report(kName, VEK_ERROR_CORRUPT_IMAGE, "Expecting PREFIX marker");
    if (size > 1 && buffer[1] != 0xD8)
      return report(kName, VEK_ERROR_CORRUPT_IMAGE, "Expecting SOI marker");
    rec->flags |= VEK_FLAG_JPEG;
    return VEK_OK;
  }
  MemSource in{buffer, size};
  Parser<MemSource> parser(kName, in, handle, Reader::Buffer, size);
  const uint32_t status = parser.run();
  if (is_error(status)) return status;
  lookup(handle)->flags |= VEK_FLAG_JPEG;
  return VEK_OK;
}

VEK_API FILE* VEK_JPEG_get_file_ptr(uint32_t handle) {
  Tjpeg* j = descriptor(handle);
  return j ? j->file : nullptr;
}

VEK_API uint32_t VEK_JPEG_set_file_ptr(uint32_t handle, FILE* stream) {
  Tjpeg* j = descriptor(handle);
  if (!j) return report("VEK_JPEG_set_file_ptr", VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  j->file = stream;
  if (!owns_file(handle, stream)) remember_own_file(handle, nullptr);
  return VEK_OK;
}

}  // extern "C"
