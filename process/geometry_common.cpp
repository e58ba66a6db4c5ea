// Front end and output-strip helpers shared by the geometric operations.
#include <cstring>

#include "process/geometry_internal.h"

namespace vek::geometry {

uint32_t check_input(const char* name, uint32_t input, uint32_t output, ImageRecord*& rec) {
  uint32_t status = VEK_image_check(input);
  if (is_error(status)) return report(name, status, "Corrupt image");
  if (input == output)
    return report(name, VEK_ERROR_BAD_PARAMETER, "Input and output must be different images");
  rec = lookup(input);
  return VEK_OK;
}

uint32_t accept_format(const char* name, const ImageRecord& rec, const FormatRule& rule) {
  if (in_set(rule.accepted, rec.format)) return VEK_OK;
  const uint32_t code = VEK_ERROR_NOT_SUPPORTED | (rule.code_in_error ? rec.format : 0u);
  return report(name, code, rule.message);
}

uint32_t front_end(const char* name, uint32_t input, uint32_t output, const FormatRule& rule,
                   ImageRecord*& rec, bool& finished) {
  finished = false;
  uint32_t status = check_input(name, input, output, rec);
  if (is_error(status)) return status;
  status = accept_format(name, *rec, rule);
  if (is_error(status)) return status;
  if (rec->lines_per_strip == 0) {
    finished = true;
    return VEK_image_copy_parameters(input, output);
  }
  return VEK_OK;
}

uint32_t require_data(const char* name, const ImageRecord& rec) {
  if (rec.data) return VEK_OK;
  return report(name, VEK_ERROR_BAD_PARAMETER, "Image has no data");
}

uint32_t check_output(const char* name, uint32_t output) {
  uint32_t status = VEK_image_check(output);
  if (is_error(status)) return report(name, status, "Corrupt image");
  return VEK_OK;
}

uint32_t fresh_strip(const char* name, uint32_t output, uint32_t lines, ImageRecord*& out) {
  out = lookup(output);
  if (!out) return report(name, VEK_ERROR_BAD_HANDLE, "Output image does not exist");
  out->lines_per_strip = lines;
  uint32_t status = check_output(name, output);
  if (is_error(status)) return status;
  const bool kept = (out->flags & VEK_FLAG_LOCKED) && out->data;
  VEK_image_free_data(output);
  status = VEK_image_malloc_a_strip(output);
  if (is_error(status)) return status;
  if (!kept && out->data) std::memset(out->data, 0, size_t(out->bytes_per_line) * lines);
  return VEK_OK;
}

uint32_t pixel_bytes(uint32_t format) {
  switch (format) {
    case VEK_Y8:
    case VEK_PALETTED:
    case VEK_RGB8:
      return 1;
    case VEK_RGB15:
    case VEK_RGB16:
    case VEK_YUV422:
    case VEK_Y16:
      return 2;
    case VEK_RGB24:
    case VEK_BGR24:
      return 3;
    case VEK_RGBX32:
    case VEK_BGRX32:
    case VEK_XBGR32:
    case VEK_CMYK32:
    case VEK_XRGB32:
      return 4;
    default:
      return 0;
  }
}

}  // namespace vek::geometry
