// JPEG sequences: several frames' entropy-coded data in one buffer (or one open file),
// separated by RST0 markers, with the strip count as the frame count.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "jpeg/internal.h"

using namespace vek;
using namespace vek::jpeg;

namespace {

// Scans from the start of the frames for the position just after the (target-1)-th
// RST0; returns false when the data ends first. Only RST0 counts here, unlike the
// frame count of an open file, which counts every restart marker.
bool find_frame_in_memory(const Tjpeg& j, uint32_t target, const uint8_t*& at) {
  const uint8_t* p = j.data;
  const uint8_t* end = j.data + j.data_length;
  uint32_t frame = 1;
  while (frame < target) {
    if (p >= end) return false;
    if (*p++ != 0xFF) continue;
    if (p >= end) return false;
    if (*p++ == 0xD0) ++frame;
  }
  at = p;
  return true;
}

bool find_frame_in_file(FILE* f, uint32_t header_length, uint32_t target, long& at) {
  if (std::fseek(f, long(header_length), SEEK_SET) != 0) return false;
  uint32_t frame = 1;
  while (frame < target) {
    int c = std::getc(f);
    if (c == EOF) return false;
    if (c != 0xFF) continue;
    c = std::getc(f);
    if (c == EOF) return false;
    if (c == 0xD0) ++frame;
  }
  at = std::ftell(f);
  return at >= 0;
}

// End of the entropy-coded data of an open file: the first marker that is neither a
// stuffed byte nor a restart marker.
long file_data_end(FILE* f, long from) {
  if (std::fseek(f, from, SEEK_SET) != 0) return from;
  long pos = from;
  for (;;) {
    int c = std::getc(f);
    if (c == EOF) return pos;
    if (c != 0xFF) {
      ++pos;
      continue;
    }
    c = std::getc(f);
    if (c == EOF) return pos + 1;
    if (c != 0 && (c < 0xD0 || c > 0xD7)) return pos;
    pos += 2;
  }
}

}  // namespace

extern "C" {

VEK_API uint32_t VEK_JPEG_sequence_build(uint32_t src, uint32_t dst) {
  static const char kName[] = "VEK_JPEG_sequence_build";
  LibraryLock lock;
  ImageRecord* d = lookup(dst);
  if (!d || !d->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  Tjpeg& dj = *d->jpeg;
  if (src == 0) {
    const uint32_t length = dj.data ? dj.data_length : 0;
    auto* copy = static_cast<uint8_t*>(vek::alloc(length ? length : 1));
    if (!copy) return report(kName, VEK_ERROR_MEMORY | (length & 0xFFFFu));
    if (length) std::memcpy(copy, dj.data, length);
    VEK_JPEG_free_data(dst);
    dj.data = copy;
    dj.current = copy;
    dj.data_length = length;
    remember_capacity(dst, copy, length ? length : 1);
    return VEK_OK;
  }
  const ImageRecord* s = lookup(src);
  if (!s || !s->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  const uint32_t add = s->jpeg->data ? s->jpeg->data_length : 0;
  const uint32_t old = dj.data ? dj.data_length : 0;
  const uint64_t need = uint64_t(old) + (old ? 2 : 0) + add;
  if (need > 0xFFFFFFFFull) return report(kName, VEK_ERROR_MEMORY);
  const size_t capacity = data_capacity(dst);
  if (need > capacity) {
    // The buffer is grown rather than overrun; a caller's buffer cannot be.
    if (dj.data && (d->flags & (VEK_FLAG_LOCKED | VEK_FLAG_EXTERNAL)))
      return report(kName, VEK_ERROR_MEMORY | uint32_t(need & 0xFFFFu));
    size_t grown = capacity * 2 > need ? capacity * 2 : size_t(need);
    auto* bigger = static_cast<uint8_t*>(vek::alloc(grown));
    if (!bigger) return report(kName, VEK_ERROR_MEMORY | uint32_t(grown & 0xFFFFu));
    if (old) std::memcpy(bigger, dj.data, old);
    VEK_JPEG_free_data(dst);
    dj.data = bigger;
    dj.current = bigger;
    remember_capacity(dst, bigger, grown);
  }
  uint8_t* w = dj.data + old;
  if (old) {
    *w++ = 0xFF;
    *w++ = 0xD0;
  }
  if (add) std::memcpy(w, s->jpeg->data, add);
  dj.data_length = uint32_t(need);
  d->param18 += 1;
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_sequence_calc_length(uint32_t handle) {
  static const char kName[] = "VEK_JPEG_sequence_calc_length";
  ImageRecord* rec = lookup(handle);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  if (!rec->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  FILE* f = rec->jpeg->file;
  if (!f) return report(kName, VEK_ERROR_BAD_HANDLE, "JPEG file not opened");
  const long saved = std::ftell(f);
  uint32_t frames = 1;
  if (std::fseek(f, long(rec->jpeg->header_length), SEEK_SET) == 0) {
    for (;;) {
      int c = std::getc(f);
      if (c == EOF) break;
      if (c != 0xFF) continue;
      c = std::getc(f);
      if (c == EOF || c != 0) {
        if (c >= 0xD0 && c <= 0xD7) {
          ++frames;
          continue;
        }
        break;
      }
    }
  }
  std::clearerr(f);
  if (saved >= 0) std::fseek(f, saved, SEEK_SET);
  rec->param18 = frames;
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_sequence_set_start_frame(uint32_t handle, uint32_t n) {
  static const char kName[] = "VEK_JPEG_sequence_set_start_frame";
  ImageRecord* rec = lookup(handle);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE, "Input image does not exist");
  if (!rec->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  // Frame numbers start at 1; a 0 would make the search run past the data.
  if (n == 0) return report(kName, VEK_ERROR_BAD_PARAMETER, "starting frame must be 1 or more");
  if (n > rec->param18) return report(kName, VEK_ERROR_BAD_PARAMETER, "starting frame > number of frames");
  Tjpeg& j = *rec->jpeg;
  rec->param19 = 1;
  if (j.file) {
    long at = 0;
    if (!find_frame_in_file(j.file, j.header_length, n, at))
      return report(kName, VEK_ERROR_BAD_PARAMETER, "starting frame > number of frames");
    std::fseek(j.file, at, SEEK_SET);
  } else {
    if (!j.data) return report(kName, VEK_ERROR_BAD_PARAMETER, "starting frame > number of frames");
    const uint8_t* at = j.data;
    if (!find_frame_in_memory(j, n, at))
      return report(kName, VEK_ERROR_BAD_PARAMETER, "starting frame > number of frames");
    j.current = const_cast<uint8_t*>(at);
  }
  rec->param19 = n;
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_sequence_extract_frame(uint32_t src, uint32_t dst, uint32_t n) {
  static const char kName[] = "VEK_sequence_JPEG_extract_frame";
  ImageRecord* s = lookup(src);
  if (!s) return report(kName, VEK_ERROR_BAD_HANDLE, "Input image does not exist");
  if (!s->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  ImageRecord* d = lookup(dst);
  if (!d || !d->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  if (n == 0) return report(kName, VEK_ERROR_BAD_PARAMETER, "frame number must be 1 or more");
  if (n > s->param18) return report(kName, VEK_ERROR_BAD_PARAMETER, "frame number > number of frames");
  uint32_t status = VEK_JPEG_sequence_set_start_frame(src, n);
  if (is_error(status)) return status;
  Tjpeg& sj = *s->jpeg;
  uint8_t* frame = nullptr;
  size_t length = 0;
  if (sj.file) {
    const long start = std::ftell(sj.file);
    long end = 0;
    // A frame count above the frames present (a fresh image counts 1 before its first
    // append) makes frame n the last one when no further separator exists.
    if (n >= s->param18 || !find_frame_in_file(sj.file, sj.header_length, n + 1, end))
      end = file_data_end(sj.file, start);
    length = end > start ? size_t(end - start) : 0;
    frame = static_cast<uint8_t*>(vek::alloc(length ? length : 1));
    if (!frame) return report(kName, VEK_ERROR_MEMORY | uint32_t(length & 0xFFFFu));
    if (std::fseek(sj.file, start, SEEK_SET) != 0 || std::fread(frame, 1, length, sj.file) != length) {
      std::free(frame);
      return report(kName, VEK_ERROR_CORRUPT_IMAGE, "Unexpected end of file");
    }
  } else {
    const uint8_t* start = sj.current;
    const uint8_t* end = sj.data + sj.data_length;
    const uint8_t* next = nullptr;
    if (n < s->param18 && find_frame_in_memory(sj, n + 1, next)) end = next;
    length = size_t(end - start);
    frame = static_cast<uint8_t*>(vek::alloc(length ? length : 1));
    if (!frame) return report(kName, VEK_ERROR_MEMORY | uint32_t(length & 0xFFFFu));
    if (length) std::memcpy(frame, start, length);
  }
  VEK_JPEG_free_data(dst);
  status = VEK_image_copy_parameters(src, dst);
  if (is_error(status)) {
    std::free(frame);
    return status;
  }
  d = lookup(dst);
  // The frame is a buffer of our own, so neither ownership flag may stay behind.
  d->flags &= ~(VEK_FLAG_LOCKED | VEK_FLAG_EXTERNAL);
  d->param18 = 1;
  d->jpeg->data = frame;
  d->jpeg->current = frame;
  d->jpeg->data_length = uint32_t(length);
  remember_capacity(dst, frame, length ? length : 1);
  return VEK_OK;
}

}  // extern "C"
