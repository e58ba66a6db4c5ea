// The front end and strip driver shared by every per-target conversion: source
// checks, destination preparation, the strip protocol and the line loop.
#include "convert/internal.h"

namespace vek::conv {

uint32_t pixel_bytes(uint16_t format) {
  const FormatTraits* t = format_traits(format);
  return t ? t->pixel_bytes : 0;
}

namespace {

// Copies the source's description into the destination and gives it the target
// format; `converting` tells a pixel run from a parameters-only call (it decides
// the data width a fresh Y16 destination gets).
uint32_t prepare(const Conversion& c, uint32_t source, uint32_t destination, bool converting) {
  const ImageRecord* before = lookup(destination);
  const uint16_t own_width = before ? before->data_width : 0;
  uint32_t status = VEK_image_copy_parameters(source, destination);
  if (is_error(status)) return status;
  VEK_image_set_parameter(destination, VEK_PARAM_FORMAT, c.target);
  if (c.target == VEK_Y16) {
    // A Y16 destination keeps its own data width; an unset one becomes 16 when
    // pixels are written but 8 when only parameters are prepared.
    lookup(destination)->data_width = own_width ? own_width : (converting ? 16 : 8);
  }
  status = VEK_image_check(destination);
  if (is_error(status)) return report(c.name, status, "Corrupt image");
  return VEK_OK;
}

}  // namespace

uint32_t run_conversion(const Conversion& c, uint32_t source, uint32_t destination,
                        uint32_t mode) {
  uint32_t status = VEK_image_check(source);
  if (is_error(status)) return report(c.name, status, c.corrupt_source);
  ImageRecord* src = lookup(source);

  if (src->lines_per_strip == 0) {
    status = VEK_image_copy_parameters(source, destination);
    if (is_error(status)) return status;
    VEK_image_set_parameter(destination, VEK_PARAM_FORMAT, c.target);
    return VEK_OK;
  }
  if (src->format == c.target) return VEK_image_copy(source, destination);
  if (!(c.sources & bit(src->format))) return report(c.name, VEK_ERROR_NOT_SUPPORTED, c.unsupported);
  if (c.odd_width && (src->width & 1)) return report(c.name, VEK_ERROR_NOT_SUPPORTED, c.odd_width);
  if (c.validate) {
    status = c.validate(*src, c.name);
    if (is_error(status)) return status;
  }
  // Converting an image into itself would free the pixels being read.
  if (source == destination)
    return report(c.name, VEK_ERROR_BAD_PARAMETER, "Source and destination must differ");

  if (!c.sequence) {
    status = prepare(c, source, destination, mode == VEK_STRIP_NEXT);
    if (is_error(status) || mode != VEK_STRIP_NEXT) return status;
    if (c.begin) {
      status = c.begin(source);
      if (is_error(status)) return status;
    }
    if (c.limit_to_height && src->lines_per_strip > src->height)
      src->lines_per_strip = src->height;
    lookup(destination)->lines_per_strip = src->lines_per_strip;
    return c.worker(source, destination);
  }

  StripSequence& seq = *c.sequence;
  if (mode != VEK_STRIP_NEXT && mode != VEK_STRIP_END) {
    // Parameters only; an idle sequence stays idle so the next strip starts it.
    return seq.idle() ? prepare(c, source, destination, false) : VEK_OK;
  }
  return run_strip(
      seq, mode, *src,
      [&]() -> uint32_t {
        uint32_t s = prepare(c, source, destination, true);
        if (is_error(s)) return s;
        return c.begin ? c.begin(source) : VEK_OK;
      },
      [&](const StripSequence::Strip& strip) -> uint32_t {
        ImageRecord* dst = lookup(destination);
        if (!dst) return report(c.name, VEK_ERROR_BAD_HANDLE, "Output image does not exist");
        // The destination strip holds exactly the lines converted, also on the
        // trimmed last strip, so a consumer never sees stale lines.
        dst->lines_per_strip = strip.lines;
        return c.worker(source, destination);
      });
}

uint32_t convert_strip(const char* worker_name, uint32_t source, uint32_t destination,
                       RowKernel kernel, const RowParams& params, Layout layout) {
  ImageRecord* src = lookup(source);
  ImageRecord* dst = lookup(destination);
  if (!src || !dst) return report(worker_name, VEK_ERROR_BAD_HANDLE);
  if (!src->data) return report(worker_name, kNoData, "No image data");
  if (src == dst)
    return report(worker_name, VEK_ERROR_BAD_PARAMETER, "Source and destination must differ");
  VEK_image_free_data(destination);
  uint32_t status = VEK_image_malloc_a_strip(destination);
  if (is_error(status)) return status;
  if (!kernel) return report(worker_name, VEK_ERROR_NOT_SUPPORTED, "Unsupported image format");

  const uint32_t width = src->width < dst->width ? src->width : dst->width;
  const uint32_t lines =
      src->lines_per_strip < dst->lines_per_strip ? src->lines_per_strip : dst->lines_per_strip;
  const size_t src_px = pixel_bytes(src->format), dst_px = pixel_bytes(dst->format);
  size_t src_row = 0, dst_row = 0;
  if (!checked_size(width, src_px, 1, src_row) || !checked_size(width, dst_px, 1, dst_row) ||
      src_row > src->bytes_per_line || dst_row > dst->bytes_per_line || !dst->data)
    return report(worker_name, VEK_ERROR_CORRUPT_IMAGE, "Corrupt image");
  if (layout == Layout::Contiguous) {
    run_rows(kernel, src->data, src_row, dst->data, dst_row, width, lines, params);
  } else {
    run_rows(kernel, src->data, src->bytes_per_line, dst->data, dst->bytes_per_line, width, lines,
             params);
  }
  return VEK_OK;
}

}  // namespace vek::conv
