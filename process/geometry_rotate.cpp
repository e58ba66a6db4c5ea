// Rotation by quarter turns of whole images (a strip transformer that insists on a
// single strip holding the full height).
#include "process/geometry_internal.h"
#include "process/geometry_rows.h"

using namespace vek;
using namespace vek::geometry;

namespace {

StripSequence g_rotate_sequence;

constexpr FormatRule kRotateFormats{
    format_set({VEK_Y8, VEK_Y16, VEK_PALETTED, VEK_RGB8, VEK_RGB15, VEK_RGB16, VEK_RGB24, VEK_BGR24,
                VEK_YUV422, VEK_RGBX32, VEK_BGRX32, VEK_XBGR32, VEK_XRGB32, VEK_CMYK32}),
    "Unsupported image format", false};

constexpr char kAngleMessage[] = "Only angles of 0, 90, 180 and 270 supported";

// The output's geometry for the angle: quarter turns swap width and height.
uint32_t shape_output(const char* name, const ImageRecord& in, uint32_t output, uint32_t angle) {
  if (angle != 90 && angle != 180 && angle != 270)
    return report(name, VEK_ERROR_NOT_SUPPORTED, kAngleMessage);
  ImageRecord* out = lookup(output);
  if (!out) return report(name, VEK_ERROR_BAD_HANDLE, "Output image does not exist");
  const bool quarter = angle != 180;
  out->width = quarter ? in.height : in.width;
  out->height = quarter ? in.width : in.height;
  out->lines_per_strip = out->height;
  return check_output(name, output);
}

uint32_t rotate_1_strip(uint32_t input, const ImageRecord& in, uint32_t output, uint32_t angle) {
  static const char kName[] = "VEK_IP_rotate_image_1_strip";
  if (in.format == VEK_YUV422)
    return report(kName, VEK_ERROR_NOT_SUPPORTED | 1u,
                  "Unsupported image type (convert to non-YUV first)");
  const uint32_t bytes = pixel_bytes(in.format);
  if (bytes == 0) return report(kName, VEK_ERROR_NOT_SUPPORTED | 1u, "Unsupported image type");
  uint32_t status = require_data(kName, in);
  if (is_error(status)) return status;
  // The output is described again from this call's input and angle: rotation has no
  // mode argument, so a sequence left in progress by a refused strip cannot be ended
  // by the caller, and its set-up may not have run for this image.
  status = VEK_image_copy_parameters(input, output);
  if (is_error(status)) return status;
  status = shape_output(kName, in, output, angle);
  if (is_error(status)) return status;
  ImageRecord* out = nullptr;
  status = fresh_strip(kName, output, lookup(output)->height, out);
  if (is_error(status)) return status;

  const uint32_t W = in.width, H = in.height;
  if (W == 0 || H == 0) return VEK_OK;
  const ptrdiff_t pitch = in.bytes_per_line;
  const ptrdiff_t out_pitch = out->bytes_per_line;
  const uint8_t* base = in.data;
  uint8_t* dst = out->data;
  if (angle == 180) {
    for (uint32_t r = 0; r < out->height; ++r, dst += out_pitch)
      rows::mirror(base + (H - 1 - r) * pitch, dst, W, bytes);  // out(c, r) = in(W-1-c, H-1-r)
    return VEK_OK;
  }
  // Quarter turns: output line r is one input column, so input columns are taken
  // eight at a time (kLanes output lines written together).
  constexpr uint32_t kLanes = 8;
  for (uint32_t col = 0; col < W; col += kLanes) {
    const uint32_t lanes = W - col < kLanes ? W - col : kLanes;
    if (angle == 90)  // out(c, r) = in(r, H - 1 - c): input column r read bottom to top
      rows::gather_block(base + (H - 1) * pitch + size_t(col) * bytes, -pitch, dst + col * out_pitch,
                         out_pitch, lanes, H, bytes);
    else  // 270: out(c, r) = in(W - 1 - r, c): input column W-1-r read top down
      rows::gather_block(base + size_t(col) * bytes, pitch, dst + (W - 1 - col) * out_pitch,
                         -out_pitch, lanes, H, bytes);
  }
  return VEK_OK;
}

}  // namespace

extern "C" {

VEK_API uint32_t VEK_IP_rotate_image(uint32_t input, uint32_t output, uint32_t angle) {
  static const char kName[] = "VEK_IP_rotate_image";
  ImageRecord* in = nullptr;
  uint32_t status = check_input(kName, input, output, in);
  if (is_error(status)) return status;
  // Rotation lets an empty input and angle 0 through before looking at the format.
  if (in->lines_per_strip == 0) return VEK_image_copy_parameters(input, output);
  if (angle == 0) return VEK_image_copy(input, output);
  status = accept_format(kName, *in, kRotateFormats);
  if (is_error(status)) return status;
  // Checked on every call, not only when a sequence starts: with no mode argument a
  // sequence left in progress by a refused strip would otherwise skip the check.
  if (angle != 90 && angle != 180 && angle != 270)
    return report(kName, VEK_ERROR_NOT_SUPPORTED, kAngleMessage);
  return run_strip(
      g_rotate_sequence, VEK_STRIP_NEXT, *in,
      [&] {
        uint32_t s = VEK_image_copy_parameters(input, output);
        return is_error(s) ? s : shape_output(kName, *in, output, angle);
      },
      [&](const StripSequence::Strip& strip) {
        if (strip.first_line != 0 || !strip.last || strip.lines < in->height)
          return report(kName, VEK_ERROR_NOT_SUPPORTED,
                        "This function only supports full height images - not multiple strips");
        return rotate_1_strip(input, *in, output, angle);
      });
}

}  // extern "C"
