// Image data: the strip buffer and its ownership, pointer slots, copying and moving.
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/image.h"
#include "core/state.h"

namespace vek {

StripSequence::Strip StripSequence::plan(ImageRecord& input) const {
  Strip strip{consumed_, input.lines_per_strip, false};
  const uint64_t reached = uint64_t(consumed_) + input.lines_per_strip;
  if (reached >= input.height) {
    strip.lines = input.height > consumed_ ? input.height - consumed_ : 0;
    input.lines_per_strip = strip.lines;
    input.bytes_per_strip = strip.lines * input.bytes_per_line;  // keep the derived size true
    strip.last = true;
  }
  return strip;
}

// Bounded copy of a zero-terminated name into a 512-byte field.
static void copy_name(char (&field)[512], const char* name) {
  size_t n = strnlen(name, sizeof field - 1);
  std::memmove(field, name, n);
  field[n] = '\0';
}

}  // namespace vek

using namespace vek;

extern "C" {

VEK_API uint32_t VEK_image_malloc_a_strip(uint32_t handle) {
  static const char kName[] = "VEK_image_malloc_a_strip";
  ImageRecord* rec = lookup(handle);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  if ((rec->flags & VEK_FLAG_LOCKED) && rec->data) return VEK_OK;
  uint32_t status = VEK_image_check(handle);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  size_t size = 0;
  const uint64_t want = uint64_t(rec->bytes_per_line) * rec->lines_per_strip;
  void* buffer = checked_size(rec->bytes_per_line, rec->lines_per_strip, 1, size) ? vek::alloc(size)
                                                                                   : nullptr;
  // The low half of the size travels in the sub-code.
  if (!buffer) return report(kName, VEK_ERROR_MEMORY | uint32_t(want & 0xFFFFu));
  // An earlier buffer is deliberately not released here: callers free data first,
  // and a buffer attached by hand may not be ours to free.
  rec->data = static_cast<uint8_t*>(buffer);
  // The buffer is the library's now; an external mark left from an earlier caller
  // buffer would keep it from ever being freed.
  rec->flags &= ~VEK_FLAG_EXTERNAL;
  return VEK_OK;
}

VEK_API uint32_t VEK_image_free_data(uint32_t handle) {
  ImageRecord* rec = lookup(handle);
  if (!rec) return report("VEK_image_free_data", VEK_ERROR_BAD_HANDLE);
  LibraryLock lock;
  uint8_t* freed = nullptr;
  if (!(rec->flags & (VEK_FLAG_LOCKED | VEK_FLAG_EXTERNAL)) && rec->data) {
    freed = rec->data;
    std::free(rec->data);
    rec->data = nullptr;
  }
  if (rec->jpeg) {
    if (freed && rec->jpeg->data == freed) rec->jpeg->data = nullptr;
    family::jpeg_free_data(handle);
  }
  return VEK_OK;
}

VEK_API void* VEK_image_get_ptr(uint32_t handle, uint32_t kind) {
  ImageRecord* rec = lookup(handle);
  if (!rec) return nullptr;
  switch (kind) {
    case VEK_PTR_DATA: return rec->data;
    case VEK_PTR_CMAP: return rec->cmap;
    case VEK_PTR_JPEG_DATA: return rec->jpeg ? rec->jpeg->data : nullptr;
    case VEK_PTR_JPEG_DATA2: return rec->jpeg ? rec->jpeg->current : nullptr;
    case VEK_PTR_RECORD: return rec;
    case VEK_PTR_JPEG: return rec->jpeg;
    case VEK_PTR_JPEG_BLOCK: return rec->jpeg ? rec->jpeg->comment : nullptr;
    default: return nullptr;
  }
}

VEK_API uint32_t VEK_image_set_ptr(uint32_t handle, uint32_t kind, void* pointer) {
  static const char kName[] = "VEK_image_set_ptr";
  ImageRecord* rec = lookup(handle);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  switch (kind) {
    case VEK_PTR_DATA:
      rec->data = static_cast<uint8_t*>(pointer);
      return VEK_OK;
    case VEK_PTR_CMAP:
      rec->cmap = static_cast<CmapEntry*>(pointer);
      return VEK_OK;
    case VEK_PTR_JPEG_DATA:
    case VEK_PTR_JPEG_DATA2:
      if (!rec->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
      (kind == VEK_PTR_JPEG_DATA ? rec->jpeg->data : rec->jpeg->current) =
          static_cast<uint8_t*>(pointer);
      return VEK_OK;
    case VEK_PTR_RECORD: {
      if (!pointer) return report(kName, VEK_ERROR_BAD_PARAMETER, "Null image record");
      LibraryLock lock;
      // lookup() succeeded, so the handle indexes a live table entry.
      g_images[handle] = static_cast<ImageRecord*>(pointer);
      return VEK_OK;
    }
    case VEK_PTR_JPEG:
      rec->jpeg = static_cast<Tjpeg*>(pointer);
      return VEK_OK;
    case VEK_PTR_JPEG_BLOCK:
      if (!rec->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
      if (!pointer) return report(kName, VEK_ERROR_BAD_PARAMETER, "Null pointer");
      std::memcpy(rec->jpeg->comment, pointer, sizeof rec->jpeg->comment);
      return VEK_OK;
    default:
      return report(kName, VEK_ERROR_BAD_PARAMETER, "Unrecognized pointer type");
  }
}

VEK_API void* VEK_malloc_N_lines(uint32_t handle, uint32_t n) {
  const ImageRecord* rec = lookup(handle);
  size_t size = 0;
  if (!rec || !checked_size(n & 0xFFFFu, rec->bytes_per_line, 1, size)) return nullptr;
  return vek::alloc(size);
}

static uint32_t copy_parameters(uint32_t source, uint32_t destination, bool with_jpeg) {
  static const char kName[] = "VEK_image_copy_parameters";
  const ImageRecord* src = lookup(source);
  if (!src) return report(kName, VEK_ERROR_BAD_HANDLE, "Input image does not exist");
  ImageRecord* dst = lookup(destination);
  if (!dst) return report(kName, VEK_ERROR_BAD_HANDLE, "Output image does not exist");
  const uint32_t kept = dst->flags & (VEK_FLAG_LOCKED | VEK_FLAG_EXTERNAL);
  if (src != dst) {
    dst->format = src->format;
    dst->data_width = src->data_width;
    std::memcpy(dst->text, src->text, sizeof dst->text);
    std::memcpy(dst->infile, src->infile, sizeof dst->infile);
    std::memcpy(dst->outfile, src->outfile, sizeof dst->outfile);
    dst->width = src->width;
    dst->height = src->height;
    dst->depth = src->depth;
    dst->line_align = src->line_align;
    dst->copy_align = src->copy_align;
    dst->skip = src->skip;
    dst->param18 = src->param18;
    dst->param19 = src->param19;
    dst->flags = src->flags;
    dst->cmap_size = src->cmap_size;
    family::cmap_copy(source, destination);
    dst->lines_per_strip = src->lines_per_strip;
    dst->bytes_per_line = src->bytes_per_line;
    dst->field = src->field;
  }
  if (with_jpeg && src->jpeg && dst->jpeg) {
    uint32_t status = family::jpeg_copy_parameters(source, destination);
    if (is_error(status)) return status;
  }
  if (src->copy_align != 0) dst->line_align = src->copy_align;
  dst->flags = (dst->flags & ~(VEK_FLAG_LOCKED | VEK_FLAG_EXTERNAL)) | kept;
  return VEK_OK;
}

VEK_API uint32_t VEK_image_copy_parameters(uint32_t source, uint32_t destination) {
  return copy_parameters(source, destination, true);
}

VEK_API uint32_t VEK_image_copy_parameters_raw(uint32_t source, uint32_t destination) {
  return copy_parameters(source, destination, false);
}

VEK_API uint32_t VEK_image_copy(uint32_t source, uint32_t destination) {
  static const char kName[] = "VEK_image_copy";
  uint32_t status = VEK_image_check(source);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  const ImageRecord* src = lookup(source);
  if (src->lines_per_strip == 0) return VEK_image_copy_parameters(source, destination);
  status = VEK_image_copy_parameters(source, destination);
  if (is_error(status)) return status;
  status = VEK_image_check(destination);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  ImageRecord* dst = lookup(destination);
  if (src == dst) return VEK_OK;
  if ((src->flags & VEK_FLAG_JPEG) && dst->jpeg)
    return family::jpeg_build_image(source, destination, VEK_STRIP_NEXT);
  if (!src->data) return report(kName, VEK_ERROR_BAD_PARAMETER, "Source image has no data");
  VEK_image_free_data(destination);
  status = VEK_image_malloc_a_strip(destination);
  if (is_error(status)) return status;
  const uint32_t row = src->bytes_per_line < dst->bytes_per_line ? src->bytes_per_line
                                                                 : dst->bytes_per_line;
  for (uint32_t y = 0; y < src->lines_per_strip; ++y)
    std::memcpy(dst->data + size_t(y) * dst->bytes_per_line,
                src->data + size_t(y) * src->bytes_per_line, row);
  return VEK_OK;
}

VEK_API uint32_t VEK_image_move(uint32_t source, uint32_t destination) {
  static const char kName[] = "VEK_image_move";
  ImageRecord* src = lookup(source);
  if (!src) return report(kName, VEK_ERROR_BAD_HANDLE, "Input image does not exist");
  ImageRecord* dst = lookup(destination);
  if (!dst) return report(kName, VEK_ERROR_BAD_HANDLE, "Output image does not exist");
  if (src->flags & VEK_FLAG_LOCKED)
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "locked memory can't be moved (in source image)");
  if (dst->flags & VEK_FLAG_LOCKED)
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Can't free locked memory (in destination image)");
  if (src == dst) return VEK_OK;
  VEK_image_free_data(destination);
  uint32_t status = VEK_image_copy_parameters(source, destination);
  if (is_error(status)) return status;
  if ((src->flags & VEK_FLAG_JPEG) && src->jpeg && dst->jpeg) {
    dst->jpeg->data = src->jpeg->data;
    dst->jpeg->current = src->jpeg->current;
    src->jpeg->data = nullptr;
    src->jpeg->current = nullptr;
  } else {
    dst->data = src->data;
    dst->data_companion = src->data_companion;
    src->data = nullptr;
    src->data_companion = 0;
  }
  return VEK_OK;
}

VEK_API uint32_t VEK_image_set_infilename(uint32_t handle, const char* name) {
  static const char kName[] = "VEK_image_set_infilename";
  ImageRecord* rec = lookup(handle);
  if (!rec) return VEK_ERROR_BAD_HANDLE;
  if (!name) return report(kName, VEK_ERROR_BAD_PARAMETER, "Null file name");
  copy_name(rec->infile, name);
  return VEK_OK;
}

VEK_API uint32_t VEK_image_set_outfilename(uint32_t handle, const char* name) {
  static const char kName[] = "VEK_image_set_outfilename";
  ImageRecord* rec = lookup(handle);
  if (!rec) return VEK_ERROR_BAD_HANDLE;
  if (!name) return report(kName, VEK_ERROR_BAD_PARAMETER, "Null file name");
  copy_name(rec->outfile, name);
  return VEK_OK;
}

VEK_API char* VEK_image_get_infilename(uint32_t handle) {
  ImageRecord* rec = lookup(handle);
  return rec ? rec->infile : nullptr;
}

VEK_API char* VEK_image_get_outfilename(uint32_t handle) {
  ImageRecord* rec = lookup(handle);
  return rec ? rec->outfile : nullptr;
}

VEK_API uint32_t VEK_copy_outfilename(uint32_t destination, uint32_t source) {
  ImageRecord* dst = lookup(destination);
  const ImageRecord* src = lookup(source);
  if (dst && src && dst != src) std::memcpy(dst->outfile, src->outfile, sizeof dst->outfile);
  return VEK_OK;
}

}  // extern "C"
