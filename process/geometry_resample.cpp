// Integer resampling: sub-sampling by picking and by binning (whole images) and pixel
// replication (a strip transformer).
#include <cstring>

#include "process/geometry_internal.h"
#include "process/geometry_rows.h"

using namespace vek;
using namespace vek::geometry;

namespace {

constexpr FormatRule kSubsampleFormats{
    format_set({VEK_Y8, VEK_PALETTED, VEK_RGB24, VEK_RGBX32, VEK_BGRX32, VEK_XBGR32, VEK_XRGB32,
                VEK_YUV422}),
    "Unsupported image format", true};

constexpr FormatRule kReplicateFormats{
    format_set({VEK_Y8, VEK_PALETTED, VEK_RGB15, VEK_RGB16, VEK_RGB24, VEK_YUV422}),
    "Unsupported image format", true};

StripSequence g_replicate_sequence;

// Entry shared by picking and binning: front end, factor rule and the output's
// description (even width W / f, height H / f). `finished` when nothing is left to do.
uint32_t reduce_entry(const char* name, uint32_t input, uint32_t output, uint32_t factor,
                      ImageRecord*& in, bool& finished) {
  // The input is validated first and the output only once its parameters are set:
  // validating a freshly created output before describing it would refuse every first
  // call, the plain cases (101 wide by 2 gives 50) included.
  uint32_t status = front_end(name, input, output, kSubsampleFormats, in, finished);
  if (is_error(status) || finished) return status;
  if (factor == 0)
    return report(name, VEK_ERROR_NOT_SUPPORTED, "Unsupported sub-sampling factor");
  status = VEK_image_copy_parameters(input, output);
  if (is_error(status)) return status;
  ImageRecord* out = lookup(output);
  out->width = (in->width / factor) & ~1u;
  out->height = in->height / factor;
  out->lines_per_strip = out->height;
  return check_output(name, output);
}

// Both reductions read whole images: the lines they reach must be in the buffer.
uint32_t require_lines(const char* name, const ImageRecord& in, uint64_t lines) {
  uint32_t status = require_data(name, in);
  if (is_error(status)) return status;
  if (lines > in.lines_per_strip)
    return report(name, VEK_ERROR_BAD_PARAMETER, "Input does not hold the whole image");
  return VEK_OK;
}

uint32_t subsample_1_strip(const ImageRecord& in, uint32_t output, uint32_t factor) {
  static const char kName[] = "VEK_IP_subsample_1_strip";
  const bool yuv = in.format == VEK_YUV422;
  const uint32_t bytes = yuv ? 2 : pixel_bytes(in.format);
  if (bytes == 0 || (bytes == 2 && !yuv))
    return report(kName, VEK_ERROR_NOT_SUPPORTED | 1u, "Unsupported image type");
  const ImageRecord* described = lookup(output);
  const uint32_t out_w = described->width, out_h = described->height;
  uint32_t status = require_lines(kName, in, out_h ? uint64_t(factor) * (out_h - 1) + 1 : 0);
  if (is_error(status)) return status;
  ImageRecord* out = nullptr;
  status = fresh_strip(kName, output, out_h, out);
  if (is_error(status)) return status;
  for (uint32_t r = 0; r < out_h; ++r) {
    const uint8_t* src = in.data + size_t(r) * factor * in.bytes_per_line;
    uint8_t* dst = out->data + size_t(r) * out->bytes_per_line;
    if (yuv) rows::pick_yuv(src, dst, out_w / 2, factor);
    else rows::pick(src, dst, out_w, factor, bytes);
  }
  return VEK_OK;
}

uint32_t binning_1_strip(const ImageRecord& in, uint32_t output, uint32_t factor) {
  static const char kName[] = "VEK_IP_subsample_by_binning_1_strip";
  // Units of the mean: YUV averages each byte of a pair over pairs; the 4-byte
  // formats average their three colour bytes and leave the fourth alone.
  uint32_t unit = 0, first = 0, channels = 0;
  switch (in.format) {
    case VEK_Y8: case VEK_PALETTED: unit = 1; channels = 1; break;
    case VEK_RGB24: unit = 3; channels = 3; break;
    case VEK_RGBX32: case VEK_BGRX32: unit = 4; channels = 3; break;
    case VEK_XBGR32: case VEK_XRGB32: unit = 4; first = 1; channels = 3; break;
    case VEK_YUV422: unit = 4; channels = 4; break;
    default: return report(kName, VEK_ERROR_NOT_SUPPORTED | 1u, "Unsupported image type");
  }
  const ImageRecord* described = lookup(output);
  const uint32_t out_h = described->height;
  const uint32_t count = in.format == VEK_YUV422 ? described->width / 2 : described->width;
  uint32_t status = require_lines(kName, in, uint64_t(factor) * out_h);
  if (is_error(status)) return status;
  ImageRecord* out = nullptr;
  status = fresh_strip(kName, output, out_h, out);
  if (is_error(status)) return status;
  for (uint32_t r = 0; r < out_h; ++r)
    rows::bin(in.data + size_t(r) * factor * in.bytes_per_line, in.bytes_per_line,
              out->data + size_t(r) * out->bytes_per_line, count, factor, unit, first, channels);
  return VEK_OK;
}

// Keeps the output's locked flag across a call that may copy parameters over it.
template <class Call>
uint32_t keeping_lock(uint32_t output, Call&& call) {
  ImageRecord* out = lookup(output);
  const uint32_t locked = out ? out->flags & VEK_FLAG_LOCKED : 0;
  const uint32_t status = call();
  if ((out = lookup(output)) != nullptr) out->flags = (out->flags & ~VEK_FLAG_LOCKED) | locked;
  return status;
}

uint32_t replicate_1_strip(const ImageRecord& in, uint32_t output, uint32_t factor, uint32_t lines) {
  static const char kName[] = "VEK_IP_pixel_rep_1_strip";
  const bool yuv = in.format == VEK_YUV422;
  const uint32_t bytes = pixel_bytes(in.format);
  if (bytes == 0 || bytes == 4 || in.format == VEK_RGB8 || in.format == VEK_Y16 ||
      in.format == VEK_BGR24)
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Unsupported image type");
  uint32_t status = require_data(kName, in);
  if (is_error(status)) return status;
  ImageRecord* out = nullptr;
  status = fresh_strip(kName, output, factor * lines, out);
  if (is_error(status)) return status;
  // The output's width may no longer be W x f if the sequence was set up for another
  // input; only as many input pixels as fit are replicated.
  uint32_t width = in.width;
  if (uint64_t(width) * factor > out->width) width = out->width / factor;
  const size_t pitch = out->bytes_per_line;
  uint8_t* dst = out->data;
  for (uint32_t r = 0; r < lines; ++r) {
    const uint8_t* src = in.data + size_t(r) * in.bytes_per_line;
    if (yuv) {
      rows::replicate_yuv(src, dst, width / 2, factor);
      if (width & 1u)  // a lone last pixel keeps its own two bytes
        rows::replicate(src + 4 * size_t(width / 2), dst + 4 * size_t(width / 2) * factor, 1,
                        factor, 2);
    } else {
      rows::replicate(src, dst, width, factor, bytes);
    }
    for (uint32_t k = 1; k < factor; ++k) std::memcpy(dst + k * pitch, dst, pitch);
    dst += size_t(factor) * pitch;
  }
  return VEK_OK;
}

}  // namespace

extern "C" {

VEK_API uint32_t VEK_IP_subsample(uint32_t input, uint32_t output, uint32_t factor) {
  static const char kName[] = "VEK_IP_subsample";
  ImageRecord* in = nullptr;
  bool finished = false;
  uint32_t status = reduce_entry(kName, input, output, factor, in, finished);
  if (is_error(status) || finished) return status;
  if (factor == 1) return VEK_image_copy(input, output);
  return subsample_1_strip(*in, output, factor);
}

VEK_API uint32_t VEK_IP_Subsample(uint32_t input, uint32_t output, uint32_t factor) {
  return keeping_lock(output, [&] { return VEK_IP_subsample(input, output, factor); });
}

VEK_API uint32_t VEK_IP_Subsample_by_Binning(uint32_t input, uint32_t output, uint32_t factor) {
  static const char kName[] = "VEK_IP_Subsample_by_Binning";
  return keeping_lock(output, [&]() -> uint32_t {
    ImageRecord* in = nullptr;
    bool finished = false;
    uint32_t status = reduce_entry(kName, input, output, factor, in, finished);
    if (is_error(status) || finished) return status;
    return binning_1_strip(*in, output, factor);
  });
}

VEK_API uint32_t VEK_IP_pixel_rep(uint32_t input, uint32_t output, uint32_t factor, uint32_t mode) {
  static const char kName[] = "VEK_IP_pixel_rep";
  ImageRecord* in = nullptr;
  bool finished = false;
  uint32_t status = front_end(kName, input, output, kReplicateFormats, in, finished);
  if (is_error(status) || finished) return status;
  // Sizes are 16-bit quantities here: a product that does not fit is refused rather
  // than truncated (a truncated width would leave no room for the replicated line).
  if (factor == 0 || uint64_t(in->width) * factor > 0xFFFF || uint64_t(in->height) * factor > 0xFFFF)
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Unsupported replication factor");
  return run_strip(
      g_replicate_sequence, mode, *in,
      [&]() -> uint32_t {
        uint32_t s = VEK_image_copy_parameters(input, output);
        if (is_error(s)) return s;
        ImageRecord* out = lookup(output);
        out->width = in->width * factor;
        out->height = in->height * factor;
        return check_output(kName, output);
      },
      [&](const StripSequence::Strip& strip) {
        return replicate_1_strip(*in, output, factor, strip.lines);
      });
}

}  // extern "C"
