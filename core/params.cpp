// Image parameters, flags, the pixel-format traits table and the validator.
#include <cstring>

#include "core/image.h"
#include "core/state.h"

namespace vek {

// Depth and data width are what setting the format writes; pixel_bytes is the
// storage of one pixel in a line, components what parameter 26 answers.
static constexpr FormatTraits kFormats[] = {
    {VEK_Y1, 1, 0, 0, 0, kKindGrey, "Y1"},
    {VEK_Y8, 8, 8, 1, 1, kKindGrey, "Y8"},
    {VEK_PALETTED, 8, 8, 1, 1, kKindIndexed, "PALETTED"},
    {VEK_RGB8, 8, 8, 1, 3, kKindIndexed, "RGB8"},
    {VEK_RGB15, 15, 0, 2, 3, kKindColour, "RGB15"},
    {VEK_RGB16, 16, 16, 2, 3, kKindColour, "RGB16"},
    {VEK_RGB24, 24, 0, 3, 3, kKindColour, "RGB24"},
    {VEK_BGR24, 24, 0, 3, 3, kKindColour, "BGR24"},
    {VEK_RGBX32, 32, 0, 4, 4, kKindColour, "RGBX32"},
    {VEK_BGRX32, 32, 0, 4, 4, kKindColour, "BGRX32"},
    {VEK_XBGR32, 32, 0, 4, 4, kKindColour, "XBGR32"},
    {VEK_YUV422, 16, 16, 2, 3, kKindYuv, "YUV422"},
    {VEK_CMYK32, 32, 0, 4, 4, kKindColour, "CMYK32"},
    {VEK_Y16, 16, 16, 2, 1, kKindGrey, "Y16"},
    {VEK_XRGB32, 32, 0, 4, 4, kKindColour, "XRGB32"},
    {VEK_RGGB32, 32, 0, 1, 4, kKindBayer, "RGGB32"},
    {VEK_FORMAT_17, 64, 0, 2, 8, kKindBayer, "BAYER16"},
    {100, 32, 0, 4, 4, kKindInternal, "JPEG100"},
    {101, 32, 0, 8, 4, kKindInternal, "JPEG101"},
    {102, 32, 0, 8, 4, kKindInternal, "JPEG102"},
    {103, 16, 16, 2, 2, kKindInternal, "JPEG103"},
    {104, 16, 16, 4, 2, kKindInternal, "JPEG104"},
    {VEK_YUV411, 16, 16, 2, 2, kKindYuv, "YUV411"},
    {VEK_HSI, 32, 0, 4, 4, kKindColour, "HSI"},
};

const FormatTraits* format_traits(uint32_t code) {
  for (const FormatTraits& t : kFormats)
    if (t.code == code) return &t;
  return nullptr;
}

}  // namespace vek

using namespace vek;

namespace {

constexpr const char kCheck[] = "VEK_image_check";

uint32_t components_of(const ImageRecord& rec) {
  switch (rec.format) {
    case VEK_RGB8:
    case VEK_RGB15:
    case VEK_RGB16:
    case VEK_YUV422: return 3;
    case VEK_Y16: return 1;
    default: return rec.depth / 8;
  }
}

uint32_t check_depth(ImageRecord& rec) {
  auto fail = [](uint32_t code, const char* msg) { return report(kCheck, code, msg); };
  const uint32_t d = rec.depth;
  switch (rec.format) {
    case 1:
      return d == 1 ? 0 : fail(0x10050001, "Depth not 1");
    case 2:
      if (d != 8) return fail(0x10050002, "Depth not 8");
      rec.data_width = 8;
      return 0;
    case 3:
      if (rec.cmap_size == 0) return fail(0x10050007, "Colourmap should not be 0 size");
      return d == 8 ? 0 : fail(0x10050008, "Depth not 8");
    case 4:
      return d == 8 ? 0 : fail(0x1005000D, "Depth not 8");
    case 5:
      return d == 15 ? 0 : fail(0x1005000C, "Depth not 15");
    case 6:
    case 12:
    case 103:
    case 106:
      return d == 16 ? 0 : fail(0x10050009, "Depth not 16");
    case 7:
    case 8:
      return d == 24 ? 0 : fail(0x10050003, "Depth not 24");
    case 9:
    case 10:
    case 11:
    case 13:
    case 15:
    case 100:
    case 108:
      return d == 32 ? 0 : fail(0x10050004, "Depth not 32");
    case 14:
      if (rec.data_width < 1 || rec.data_width > 16)
        return fail(0x1005000A, "Data width not between 1 and 16");
      return d == 16 ? 0 : fail(0x1005000B, "Depth not 16");
    case 16:
      rec.skip = VEK_image_calc_skip_bytes(rec.width, 8, rec.line_align);
      rec.bytes_per_line = rec.width + rec.skip;
      return d == 32 ? 0 : fail(0x1005000E, "Depth not 32");
    case 17:
      rec.skip = VEK_image_calc_skip_bytes(rec.width, 16, rec.line_align);
      rec.bytes_per_line = 2 * rec.width + rec.skip;
      return d == 64 ? 0 : fail(0x1005000F, "Depth not 64");
    case 101:
    case 102:
      if (d != 32) return fail(0x10050005, "Depth not 32");
      rec.bytes_per_line = 8 * rec.width;
      return 0;
    case 104:
      if (d != 16) return fail(0x10050006, "Depth not 16");
      rec.bytes_per_line = 4 * rec.width;
      return 0;
    default:
      return fail(0x10050010, "Unrecognised image");
  }
}

}  // namespace

extern "C" {

VEK_API uint32_t VEK_image_calc_skip_bytes(uint32_t width, uint32_t depth, uint32_t alignment) {
  if (alignment == 0) return 0;
  const uint64_t p = uint64_t((depth + 1) / 8) * width;
  const uint32_t r = static_cast<uint32_t>(p % alignment);
  return r ? alignment - r : 0;
}

VEK_API uint32_t VEK_image_check(uint32_t handle) {
  ImageRecord* rec = lookup(handle);
  if (!rec) return VEK_ERROR_CORRUPT_IMAGE;
  if (rec->param18 < 2) rec->param18 = 1;
  // A zero alignment would divide by zero in the padding arithmetic.
  if (rec->line_align == 0) return report(kCheck, VEK_ERROR_BAD_PARAMETER, "Line alignment is 0");
  const uint64_t line =
      uint64_t((rec->depth + 1) / 8) * rec->width +
      VEK_image_calc_skip_bytes(rec->width, rec->depth, rec->line_align);
  if (line > 0xFFFFFFFFull) return report(kCheck, VEK_ERROR_BAD_PARAMETER, "Image too large");
  rec->skip = VEK_image_calc_skip_bytes(rec->width, rec->depth, rec->line_align);
  rec->bytes_per_line = static_cast<uint32_t>(line);
  if (rec->format == 0 || rec->format > 108)
    return report(kCheck, 0x10050010, "Unrecognised image");
  uint32_t status = check_depth(*rec);
  if (is_error(status)) return status;
  const uint64_t strip = uint64_t(rec->lines_per_strip) * rec->bytes_per_line;
  if (strip > 0xFFFFFFFFull) return report(kCheck, VEK_ERROR_BAD_PARAMETER, "Image too large");
  rec->bytes_per_strip = static_cast<uint32_t>(strip);
  return VEK_OK;
}

VEK_API uint32_t VEK_image_set_parameter(uint32_t handle, uint32_t id, uint32_t value) {
  static const char kName[] = "VEK_image_set_parameter";
  ImageRecord* rec = lookup(handle);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  switch (id) {
    case VEK_PARAM_FORMAT: {
      // The code is stored even when refused, so the validator reports it later.
      rec->format = static_cast<uint16_t>(value);
      const FormatTraits* t = format_traits(rec->format);
      if (!t) return report(kName, VEK_ERROR_NOT_SUPPORTED, "Unrecognized image type");
      VEK_image_set_parameter(handle, VEK_PARAM_DEPTH, t->depth);
      if (t->data_width) VEK_image_set_parameter(handle, VEK_PARAM_DATA_WIDTH, t->data_width);
      if (rec->format == VEK_PALETTED && rec->cmap_size == 0) rec->cmap_size = kCmapEntries;
      rec->flags &= ~VEK_FLAG_DIB;
      return VEK_OK;
    }
    case VEK_PARAM_WIDTH: rec->width = value; return VEK_OK;
    case VEK_PARAM_HEIGHT: rec->height = value; return VEK_OK;
    case VEK_PARAM_DEPTH: rec->depth = value; return VEK_OK;
    case VEK_PARAM_STRIP_LINES: rec->lines_per_strip = value; return VEK_OK;
    case VEK_PARAM_BYTES_PER_LINE: rec->bytes_per_line = value; return VEK_OK;
    case VEK_PARAM_BYTES_PER_STRIP: rec->bytes_per_strip = value; return VEK_OK;
    case VEK_PARAM_DATA_WIDTH: rec->data_width = static_cast<uint16_t>(value); return VEK_OK;
    case VEK_PARAM_18: rec->param18 = value; return VEK_OK;
    case VEK_PARAM_19: rec->param19 = value; return VEK_OK;
    case VEK_PARAM_CMAP_SIZE: rec->cmap_size = value; return VEK_OK;
    case VEK_PARAM_JPEG_FIELD:
      // The word exposed here is the descriptor's compressed-data length: the one field
      // a caller who fills the data buffer by hand must be able to set.
      if (!rec->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "JPEG structure does not exist");
      rec->jpeg->data_length = value;
      return VEK_OK;
    case VEK_PARAM_FIELD: rec->field = static_cast<uint16_t>(value); return VEK_OK;
    case VEK_PARAM_LINE_ALIGN: rec->line_align = value; return VEK_OK;
    case VEK_PARAM_COPY_ALIGN: rec->copy_align = value; return VEK_OK;
    case VEK_PARAM_JPEG_QUALITY: return family::jpeg_set_quality(handle, value);
    default: return report(kName, VEK_ERROR_BAD_PARAMETER);
  }
}

VEK_API uint32_t VEK_image_get_parameter(uint32_t handle, uint32_t id) {
  static const char kName[] = "VEK_image_get_parameter";
  if (id == VEK_PARAM_VERSION) return VEK_VERSION_WORD;
  ImageRecord* rec = lookup(handle);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  switch (id) {
    case VEK_PARAM_FORMAT: return rec->format;
    case VEK_PARAM_WIDTH: return rec->width;
    case VEK_PARAM_HEIGHT: return rec->height;
    case VEK_PARAM_DEPTH: return rec->depth;
    case VEK_PARAM_STRIP_LINES: return rec->lines_per_strip;
    case VEK_PARAM_BYTES_PER_LINE: return rec->bytes_per_line;
    case VEK_PARAM_BYTES_PER_STRIP: return rec->bytes_per_strip;
    case VEK_PARAM_DATA_WIDTH: return rec->data_width;
    case VEK_PARAM_18: return rec->param18;
    case VEK_PARAM_19: return rec->param19;
    case VEK_PARAM_CMAP_SIZE: return rec->cmap_size;
    case VEK_PARAM_JPEG_FIELD:
      if (!rec->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "JPEG structure does not exist");
      return rec->jpeg->data_length;
    case VEK_PARAM_FIELD: return rec->field;
    case VEK_PARAM_LINE_ALIGN: return rec->line_align;
    case VEK_PARAM_COPY_ALIGN: return rec->copy_align;
    case VEK_PARAM_COMPONENTS: return components_of(*rec);
    default: return report(kName, VEK_ERROR_BAD_PARAMETER, "Unknown parameter");
  }
}

VEK_API uint32_t VEK_image_get_flags(uint32_t handle, uint32_t mask) {
  ImageRecord* rec = lookup(handle);
  if (!rec) return report("VEK_image_get_flags", VEK_ERROR_BAD_HANDLE);
  return (rec->flags & mask) ? 1 : 0;
}

VEK_API uint32_t VEK_image_set_flags(uint32_t handle, uint32_t mask, uint32_t value) {
  auto apply = [&](ImageRecord* rec) {
    if (value == 1) rec->flags |= mask;
    else rec->flags &= ~mask;
  };
  if (handle == VEK_ALL_IMAGES) {
    LibraryLock lock;
    for (uint32_t h = 1; h <= kMaxHandles; ++h)
      if (g_images[h]) apply(g_images[h]);
    return VEK_OK;
  }
  ImageRecord* rec = lookup(handle);
  if (!rec) return report("VEK_image_set_flags", VEK_ERROR_BAD_HANDLE);
  apply(rec);
  return VEK_OK;
}

VEK_API uint32_t VEK_image_calc_total_strips(uint32_t handle) {
  ImageRecord* rec = lookup(handle);
  if (!rec) return VEK_ERROR_BAD_HANDLE;
  if (rec->lines_per_strip == 0) return 0;
  const uint64_t n = (uint64_t(rec->height) + rec->lines_per_strip - 1) / rec->lines_per_strip;
  return static_cast<uint32_t>(n & 0xFFFFu);
}

// Unchecked in the sense of "no report": an unknown handle answers 0 instead of crashing.
VEK_API uint32_t VEK_get_width(uint32_t handle) {
  const ImageRecord* rec = lookup(handle);
  return rec ? rec->width : 0;
}
VEK_API uint32_t VEK_get_height(uint32_t handle) {
  const ImageRecord* rec = lookup(handle);
  return rec ? rec->height : 0;
}
VEK_API uint16_t VEK_get_depth(uint32_t handle) {
  const ImageRecord* rec = lookup(handle);
  return rec ? static_cast<uint16_t>(rec->depth) : 0;
}
VEK_API uint32_t VEK_get_bytes_per_line(uint32_t handle) {
  const ImageRecord* rec = lookup(handle);
  return rec ? rec->bytes_per_line : 0;
}
VEK_API uint32_t VEK_get_lines_this_strip(uint32_t handle) {
  const ImageRecord* rec = lookup(handle);
  return rec ? rec->lines_per_strip : 0;
}

}  // extern "C"
