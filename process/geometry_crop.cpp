// Cropping a rectangle, inserting one image into another, and mirroring a rectangle
// inside an image (built from the two plus the whole-image mirror).
#include <cstring>

#include "process/geometry_internal.h"

using namespace vek;
using namespace vek::geometry;

namespace {

// The same wording as the rotation's refusal of strip-held images.
constexpr char kWholeImageOnly[] =
    "This function only supports full height images - not multiple strips";

constexpr FormatRule kCropFormats{
    format_set({VEK_Y8, VEK_PALETTED, VEK_RGB15, VEK_RGB16, VEK_RGB24, VEK_BGR24, VEK_RGBX32,
                VEK_BGRX32, VEK_XBGR32, VEK_YUV422, VEK_CMYK32, VEK_Y16}),
    "Unsupported image format", true};

// Bytes a pixel for the crop's copier; 0 marks a refusal (message in `why`).
uint32_t crop_pixel_bytes(uint32_t format, uint32_t& code, const char*& why) {
  if (format == VEK_Y1) {
    code = VEK_ERROR_NOT_SUPPORTED;
    why = "Bilevel images not supported";
    return 0;
  }
  // VEK_RGB8 and VEK_XRGB32 are not among the crop's formats although they are
  // byte-addressed: the copier refuses them like any unknown code.
  const uint32_t bytes = (format == VEK_RGB8 || format == VEK_XRGB32) ? 0 : pixel_bytes(format);
  if (bytes == 0) {
    code = VEK_ERROR_NOT_SUPPORTED | 1u;
    why = "Unsupported image type";
  }
  return bytes;
}

// The row copier; the entry has made sure the region's rows are in the buffer.
uint32_t crop_1_strip(const ImageRecord& in, uint32_t output, uint32_t x, uint32_t y, uint32_t w,
                      uint32_t h) {
  static const char kName[] = "VEK_IP_crop_1_strip";
  uint32_t code = 0;
  const char* why = "";
  const uint32_t bytes = crop_pixel_bytes(in.format, code, why);
  if (bytes == 0) return report(kName, code, why);
  uint32_t status = require_data(kName, in);
  if (is_error(status)) return status;
  ImageRecord* out = nullptr;
  status = fresh_strip(kName, output, h, out);
  if (is_error(status)) return status;
  const size_t row = size_t(w) * bytes;
  const uint8_t* src = in.data + size_t(y) * in.bytes_per_line + size_t(x) * bytes;
  uint8_t* dst = out->data;
  for (uint32_t r = 0; r < h; ++r, src += in.bytes_per_line, dst += out->bytes_per_line)
    std::memcpy(dst, src, row);
  return VEK_OK;
}

}  // namespace

extern "C" {

VEK_API uint32_t VEK_IP_crop(uint32_t input, uint32_t output, const uint32_t* region, uint32_t mode) {
  static const char kName[] = "VEK_IP_crop";
  if (!region) return report(kName, VEK_ERROR_BAD_PARAMETER, "Roi pointer is NULL");
  ImageRecord* in = nullptr;
  bool finished = false;
  uint32_t status = front_end(kName, input, output, kCropFormats, in, finished);
  if (is_error(status) || finished) return status;

  const uint32_t x = region[0], y = region[1];
  uint32_t w = region[2], h = region[3];
  // A region starting outside the image would make the clamped size below wrap
  // around; it is refused instead, as is an empty one.
  if (x >= in->width || y >= in->height || w == 0 || h == 0)
    return report(kName, VEK_ERROR_BAD_PARAMETER, "Region outside the image");
  // The clamp works on the size as 16 bits; for widths above 65535 that would wrap,
  // so the full size is used, which gives the same result for every 16-bit size.
  if (uint64_t(x) + w > in->width) w = in->width - x;
  if (uint64_t(y) + h > in->height) h = in->height - y;

  const uint32_t held = in->lines_per_strip;
  // Cropping treats the input as one whole picture and leaves the input saying so.
  // That claim must be true of the buffer: a strip the library allocated for fewer
  // lines would otherwise be read past its end, now by the row copy or later by any
  // operation trusting the raised line count. A caller-attached buffer is the
  // caller's word, but the region's rows must lie in the lines it says it holds.
  // Both are refused before the input is touched.
  if (in->data && held < in->height) {
    const bool attached = in->flags & (VEK_FLAG_LOCKED | VEK_FLAG_EXTERNAL);
    if (!attached || (mode == VEK_STRIP_NEXT && uint64_t(y) + h > held))
      return report(kName, VEK_ERROR_NOT_SUPPORTED, kWholeImageOnly);
  }
  in->lines_per_strip = in->height;
  status = VEK_image_copy_parameters(input, output);
  if (is_error(status)) return status;
  ImageRecord* out = lookup(output);
  out->width = w;
  out->height = h;
  out->lines_per_strip = h;
  status = check_output(kName, output);
  if (is_error(status)) return status;
  if (mode != VEK_STRIP_NEXT) return VEK_OK;
  return crop_1_strip(*in, output, x, y, w, h);
}

VEK_API uint32_t VEK_IP_Crop_Image(uint32_t input, uint32_t output, const uint32_t* region) {
  return VEK_IP_crop(input, output, region, VEK_STRIP_NEXT);
}

VEK_API uint32_t VEK_IP_image_insert(uint32_t target, uint32_t inserted, uint32_t x, uint32_t y) {
  static const char kName[] = "VEK_IP_image_insert";
  uint32_t status = VEK_image_check(target);
  if (is_error(status)) return report(kName, status, "hInImage is corrupt");
  status = VEK_image_check(inserted);
  if (is_error(status)) return report(kName, status, "hInsertImage is corrupt");
  ImageRecord* dst = lookup(target);
  const ImageRecord* src = lookup(inserted);
  if (dst->format != src->format)
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Pixel Formats are different");
  const int64_t W = dst->width, H = dst->height, w = src->width, h = src->height;
  if (x == 0) return report(kName, VEK_ERROR_NOT_SUPPORTED, "Trying to insert image too far left");
  if (int64_t(x) > W - w + 1)
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Trying to insert image too far right");
  if (y == 0) return report(kName, VEK_ERROR_NOT_SUPPORTED, "Trying to insert image too high");
  if (int64_t(y) > H - h + 1)
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Trying to insert image too low");
  if (w == 0 || h == 0) return VEK_OK;
  // Bytes a pixel are the target's pitch / width; for images narrower than their own
  // padding that quotient exceeds the real pixel size and would run rows past their
  // end, so it is capped at the pixel size the depth gives (equal in every other case).
  uint32_t bytes = dst->bytes_per_line / dst->width;
  const uint32_t natural = (dst->depth + 1) / 8;
  if (bytes > natural) bytes = natural;
  if (bytes == 0) return VEK_OK;
  if (!dst->data || !src->data)
    return report(kName, VEK_ERROR_BAD_PARAMETER, "Image has no data");
  if (uint64_t(y) - 1 + h > dst->lines_per_strip || uint64_t(h) > src->lines_per_strip)
    return report(kName, VEK_ERROR_BAD_PARAMETER, "Image does not hold all its lines");
  const size_t row = size_t(w) * bytes;
  const size_t src_pitch = src->bytes_per_line;
  uint8_t* d = dst->data + size_t(y - 1) * dst->bytes_per_line + size_t(x - 1) * bytes;
  const uint8_t* s = src->data;
  for (int64_t r = 0; r < h; ++r, d += dst->bytes_per_line, s += src_pitch)
    std::memmove(d, s, row);  // the inserted image may be the target itself
  return VEK_OK;
}

VEK_API uint32_t VEK_IP_mirror(uint32_t input, uint32_t output, const uint32_t* region, uint32_t mode) {
  static const char kName[] = "VEK_IP_mirror";
  if (!region) return report(kName, VEK_ERROR_BAD_PARAMETER, "Roi pointer is NULL");
  const uint32_t cropped = VEK_image_create();
  if (is_error(cropped)) return report(kName, cropped, "VEK_image_create(hCropImage) failed");
  const uint32_t mirrored = VEK_image_create();
  if (is_error(mirrored)) {
    VEK_image_destroy(cropped);
    return report(kName, mirrored, "VEK_image_create(hMirroredImage) failed");
  }
  uint32_t status = VEK_image_copy(input, output);
  if (!is_error(status)) status = VEK_IP_crop(input, cropped, region, mode);
  if (!is_error(status)) status = VEK_IP_mirror_image(cropped, mirrored, mode);
  // Only a mode-3 call has pixels to put back; other modes leave the work images
  // without data, and inserting them would read nothing meaningful.
  if (!is_error(status) && mode == VEK_STRIP_NEXT)
    status = VEK_IP_image_insert(output, mirrored, region[0] + 1, region[1] + 1);
  VEK_image_destroy(cropped);
  VEK_image_destroy(mirrored);
  return status;
}

}  // extern "C"
