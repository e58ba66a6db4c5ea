// Left-right mirroring of whole images and circular extraction of YUV 4:2:2 pairs,
// both strip transformers.
#include <cstring>

#include "process/geometry_internal.h"
#include "process/geometry_rows.h"

using namespace vek;
using namespace vek::geometry;

namespace {

StripSequence g_mirror_sequence;
StripSequence g_extract_sequence;

constexpr FormatRule kMirrorFormats{
    format_set({VEK_Y8, VEK_PALETTED, VEK_RGB8, VEK_RGB15, VEK_RGB16, VEK_RGB24, VEK_BGR24,
                VEK_RGBX32, VEK_BGRX32, VEK_XBGR32, VEK_YUV422, VEK_CMYK32, VEK_Y16, VEK_XRGB32}),
    "Unsupported image format", false};

constexpr FormatRule kExtractFormats{format_set({VEK_YUV422}), "Unsupported image format", false};

uint32_t mirror_image_1_strip(const ImageRecord& in, uint32_t output, uint32_t lines) {
  static const char kName[] = "VEK_IP_mirror_image_1_strip";
  const uint32_t bytes = pixel_bytes(in.format);
  if (bytes == 0) return report(kName, VEK_ERROR_NOT_SUPPORTED | 1u, "Unsupported image type");
  uint32_t status = require_data(kName, in);
  if (is_error(status)) return status;
  ImageRecord* out = nullptr;
  status = fresh_strip(kName, output, lines, out);
  if (is_error(status)) return status;
  // Both images describe the same width and format, so each output line has room for
  // the input line's pixels; padding stays as the fresh strip left it.
  const uint8_t* src = in.data;
  uint8_t* dst = out->data;
  for (uint32_t r = 0; r < lines; ++r, src += in.bytes_per_line, dst += out->bytes_per_line) {
    // The pairs are reversed over the pixels, not over the whole padded pitch: with
    // padding, reversing the pitch would pull padding bytes into the first pair,
    // whereas the required result is an exact pixel mirror with per-pair chroma.
    if (in.format == VEK_YUV422) rows::mirror_yuv(src, dst, in.width);
    else rows::mirror(src, dst, in.width, bytes);
  }
  return VEK_OK;
}

// Whether the pair whose first pixel is column c on strip line `line` is kept:
// bounds in unsigned 32-bit arithmetic (so circles reaching past the top or left
// edge keep nothing), the disc test in single precision.
bool inside(uint32_t c, uint32_t line, uint32_t cx, uint32_t cy, uint32_t r) {
  if (!(line >= cy - r && line < cy + r && c >= cx - r && c < cx + r)) return false;
  const float dx = float(int64_t(c) - int64_t(cx)) / float(r);
  const float dy = float(int64_t(line) - int64_t(cy)) / float(r);
  return dx * dx + dy * dy < 1.0f;
}

uint32_t extract_1_strip(const ImageRecord& in, uint32_t output, uint32_t lines, uint32_t cx,
                         uint32_t cy, uint32_t r) {
  static const char kName[] = "VEK_IP_extract_region_1_strip";
  uint32_t status = require_data(kName, in);
  if (is_error(status)) return status;
  // Only whole pairs are walked: the last pixel of an odd width has no V in its line.
  const uint32_t pairs = in.width / 2;
  uint64_t kept = 0;
  for (uint32_t line = 0; line < lines; ++line)
    for (uint32_t k = 0; k < pairs; ++k) kept += inside(2 * k, line, cx, cy, r);
  if (2 * kept > 0xFFFFFFFFull)
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Region too large");
  ImageRecord* out = lookup(output);
  if (!out) return report(kName, VEK_ERROR_BAD_HANDLE, "Output image does not exist");
  out->format = VEK_YUV422;
  out->width = uint32_t(2 * kept);
  out->height = 1;
  status = fresh_strip(kName, output, 1, out);
  if (is_error(status)) return status;
  uint8_t* dst = out->data;
  const uint8_t* src = in.data;
  for (uint32_t line = 0; line < lines; ++line, src += in.bytes_per_line)
    for (uint32_t k = 0; k < pairs; ++k)
      if (inside(2 * k, line, cx, cy, r)) {
        std::memcpy(dst, src + 4 * size_t(k), 4);
        dst += 4;
      }
  return VEK_OK;
}

}  // namespace

extern "C" {

VEK_API uint32_t VEK_IP_mirror_image(uint32_t input, uint32_t output, uint32_t mode) {
  static const char kName[] = "VEK_IP_mirror_image";
  ImageRecord* in = nullptr;
  bool finished = false;
  uint32_t status = front_end(kName, input, output, kMirrorFormats, in, finished);
  if (is_error(status) || finished) return status;
  return run_strip(
      g_mirror_sequence, mode, *in,
      [&] {
        uint32_t s = VEK_image_copy_parameters(input, output);
        return is_error(s) ? s : check_output(kName, output);
      },
      [&](const StripSequence::Strip& strip) {
        return mirror_image_1_strip(*in, output, strip.lines);
      });
}

VEK_API uint32_t VEK_IP_extract_region(uint32_t input, uint32_t output, uint32_t /*unused*/,
                                       uint32_t centre_x, uint32_t centre_y, uint32_t radius,
                                       uint32_t mode) {
  static const char kName[] = "VEK_IP_extract_region";
  ImageRecord* in = nullptr;
  bool finished = false;
  // The output first takes the input's description as a square of side 2r.
  auto describe = [&]() -> uint32_t {
    uint32_t s = VEK_image_copy_parameters(input, output);
    if (is_error(s)) return s;
    ImageRecord* out = lookup(output);
    out->format = VEK_YUV422;
    out->width = 2 * radius;
    out->height = 2 * radius;
    return VEK_OK;
  };
  uint32_t status = front_end(kName, input, output, kExtractFormats, in, finished);
  if (is_error(status)) return status;
  if (finished) return describe();
  return run_strip(g_extract_sequence, mode, *in, describe,
                   [&](const StripSequence::Strip& strip) {
                     return extract_1_strip(*in, output, strip.lines, centre_x, centre_y, radius);
                   });
}

}  // extern "C"
