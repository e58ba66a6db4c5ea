// Bayer family entry points: demosaicing to BGRX32 and RGB16, half size, colour
// balance, mosaicking, the false-colour and grey views, the plane split and the
// simplified VEK_IP_Bayer_ wrappers. Validation, reporting and strip handling here;
// the pixels are produced by the kernels of convert/bayer_rows.cpp.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "convert/bayer.h"
#include "core/image.h"

using namespace vek;
using vek::bayer::Output;

namespace {

// Which error a missing strip buffer raises; the same class the core uses for it.
constexpr uint32_t kNoData = VEK_ERROR_BAD_PARAMETER;
constexpr const char* kSameImage = "Input and output images must differ";
constexpr const char* kWholeImage = "Input image must hold the whole picture in one strip";

bool is_mosaic(const ImageRecord& r) { return r.format == VEK_RGGB32 || r.format == VEK_Y8; }

// The whole-image operations read `height` lines from the source's one strip. A strip
// the library allocated for fewer lines certainly cannot hold them; a locked or
// external buffer was attached by the caller, who vouches for its size.
bool holds_whole_image(const ImageRecord& r) {
  return r.lines_per_strip >= r.height || (r.flags & (VEK_FLAG_LOCKED | VEK_FLAG_EXTERNAL));
}

// Gives `dst` the description of `src` in `format` (copy, set format, validate).
uint32_t describe_as(const char* name, uint32_t src, uint32_t dst, uint32_t format) {
  uint32_t s = VEK_image_copy_parameters(src, dst);
  if (is_error(s)) return s;
  s = VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, format);
  if (is_error(s)) return s;
  lookup(dst)->flags &= ~VEK_FLAG_JPEG;  // the destination now holds raster data
  s = VEK_image_check(dst);
  if (is_error(s)) return report(name, s, "Corrupt image");
  return VEK_OK;
}

// Copies the description only, for a source that holds no strip lines.
uint32_t describe_only(uint32_t src, uint32_t dst, uint32_t format) {
  uint32_t s = VEK_image_copy_parameters(src, dst);
  if (is_error(s)) return s;
  s = VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, format);
  if (is_error(s)) return s;
  lookup(dst)->flags &= ~VEK_FLAG_JPEG;
  return VEK_OK;
}

// Replaces the destination's strip by a fresh one of `lines` lines.
uint32_t fresh_strip(const char* name, uint32_t dst, uint32_t lines) {
  lookup(dst)->lines_per_strip = lines;
  uint32_t s = VEK_image_check(dst);
  if (is_error(s)) return report(name, s, "Corrupt image");
  s = VEK_image_free_data(dst);
  if (is_error(s)) return s;
  return VEK_image_malloc_a_strip(dst);  // reports its own failure
}

// Front-end checks shared by the operations that read a whole mosaic at once: the
// source is validated and the caller-supplied extra checks have passed; this sets the
// source's strip to its full height.
uint32_t take_whole_image(const char* name, uint32_t src, ImageRecord& in) {
  if (!holds_whole_image(in)) return report(name, VEK_ERROR_NOT_SUPPORTED, kWholeImage);
  in.lines_per_strip = in.height;
  uint32_t s = VEK_image_check(src);  // re-derives the bytes per strip
  if (is_error(s)) return report(name, s, "Corrupt image");
  return VEK_OK;
}


// ---- full-size demosaicing ------------------------------------------------

struct DemosaicNames {
  const char* api;
  const char* worker;
};

uint32_t demosaic_1_strip(const char* name, uint32_t src, uint32_t dst, uint32_t lines,
                          bayer::DemosaicFn driver) {
  ImageRecord* in = lookup(src);
  if (!in->data) return report(name, kNoData, "No image data");
  uint32_t s = fresh_strip(name, dst, lines);
  if (is_error(s)) return s;
  ImageRecord* out = lookup(dst);
  driver(in->data, in->bytes_per_line, out->data, out->bytes_per_line, in->width, lines);
  return VEK_OK;
}

uint32_t demosaic(const DemosaicNames& names, StripSequence& seq, uint32_t src, uint32_t dst,
                  uint32_t scheme, uint32_t pixel_colour, uint32_t mode, Output output) {
  const char* name = names.api;
  uint32_t s = VEK_image_check(src);
  if (is_error(s)) return report(name, s, "Corrupt image");
  ImageRecord* in = lookup(src);
  if (!is_mosaic(*in)) {
    return report(name, VEK_ERROR_NOT_SUPPORTED, "Input must be VEK_RGGB32 only");
  }
  if (scheme < 1 || scheme > 3) {
    return report(name, VEK_ERROR_BAD_PARAMETER, "Invalid Bayer Decoding Scheme");
  }
  if (pixel_colour < 1 || pixel_colour > 4) {
    return report(name, VEK_ERROR_BAD_PARAMETER, "Invalid Bayer Pixel Colour");
  }
  // The worker replaces the destination's strip, which would pull the mosaic away
  // from under itself.
  if (src == dst) return report(name, VEK_ERROR_BAD_PARAMETER, kSameImage);
  const uint32_t target = output == Output::Bgrx32 ? VEK_BGRX32 : VEK_RGB16;
  if (in->lines_per_strip == 0) return describe_only(src, dst, target);
  s = describe_as(name, src, dst, target);
  if (is_error(s)) return s;
  s = take_whole_image(name, src, *in);
  if (is_error(s)) return s;
  const bayer::DemosaicFn driver =
      bayer::demosaic_driver(static_cast<int>(scheme), static_cast<int>(pixel_colour), output);
  return run_strip(
      seq, mode, *in, [] { return VEK_OK; },
      [&](const StripSequence::Strip& strip) {
        return demosaic_1_strip(names.worker, src, dst, strip.lines, driver);
      });
}

StripSequence g_to_bgrx32;
StripSequence g_to_rgb16;
StripSequence g_mosaic;
StripSequence g_map_rgb24;
StripSequence g_map_y8;

// ---- the 3 x 3 colour matrix applied after a simplified conversion --------

// Applies the image-processing family's colour matrix to a BGRX32 image in place:
// c_i = trunc(m_i * 65536), R' = (c0 R + c1 G + c2 B) >> 16 and so on, clamped.
// Sums are formed in 64 bits so that large coefficients saturate instead of wrapping.
uint32_t colour_matrix(uint32_t handle, const float* m) {
  static const char kName[] = "VEK_IP_ImageOperation_Matrix3x3";
  uint32_t s = VEK_image_check(handle);
  if (is_error(s)) return report(kName, s, "Corrupt image");
  ImageRecord* rec = lookup(handle);
  if (rec->format != VEK_BGRX32) {
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Unsupported image format");
  }
  if (rec->width & 1) return report(kName, VEK_ERROR_NOT_SUPPORTED, "Input image width must be even");
  if (rec->height & 1) {
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Input image height must be even");
  }
  if (!rec->data) return report(kName, kNoData, "No image data");
  int64_t c[9];
  for (int i = 0; i < 9; ++i) {
    const double v = std::trunc(double(m[i]) * 65536.0);
    c[i] = std::isnan(v) ? 0 : static_cast<int64_t>(std::clamp(v, -2147483648.0, 2147483647.0));
  }
  auto clamp8 = [](int64_t v) { return static_cast<uint8_t>(std::clamp<int64_t>(v >> 16, 0, 255)); };
  const uint32_t lines = std::min(rec->lines_per_strip, rec->height);
  for (uint32_t y = 0; y < lines; ++y) {
    uint8_t* p = rec->data + size_t(y) * rec->bytes_per_line;
    for (uint32_t x = 0; x < rec->width; ++x, p += 4) {
      const int64_t b = p[0], g = p[1], r = p[2];
      p[2] = clamp8(c[0] * r + c[1] * g + c[2] * b);
      p[1] = clamp8(c[3] * r + c[4] * g + c[5] * b);
      p[0] = clamp8(c[6] * r + c[7] * g + c[8] * b);
    }
  }
  return VEK_OK;
}

// Saves flag 1 (locked) of an image and puts it back on scope exit.
class KeepLockedFlag {
 public:
  explicit KeepLockedFlag(uint32_t handle) : handle_(handle) {
    if (ImageRecord* r = lookup(handle)) saved_ = r->flags & VEK_FLAG_LOCKED;
  }
  ~KeepLockedFlag() {
    if (ImageRecord* r = lookup(handle_)) r->flags = (r->flags & ~VEK_FLAG_LOCKED) | saved_;
  }
  KeepLockedFlag(const KeepLockedFlag&) = delete;
  KeepLockedFlag& operator=(const KeepLockedFlag&) = delete;

 private:
  uint32_t handle_;
  uint32_t saved_ = 0;
};

// Common checks of the operations that need a mosaic of whole cells.
uint32_t check_cells(const char* name, uint32_t src, const char* format_msg,
                     const char* width_msg, const char* height_msg, bool accept_y8) {
  uint32_t s = VEK_image_check(src);
  if (is_error(s)) return report(name, s, "Corrupt image");
  const ImageRecord* in = lookup(src);
  if (!(in->format == VEK_RGGB32 || (accept_y8 && in->format == VEK_Y8))) {
    return report(name, VEK_ERROR_NOT_SUPPORTED, format_msg);
  }
  if (in->width & 1) return report(name, VEK_ERROR_NOT_SUPPORTED, width_msg);
  if (in->height & 1) return report(name, VEK_ERROR_NOT_SUPPORTED, height_msg);
  return VEK_OK;
}

// Column (0/1) within a cell line `row` where colour `colour` lies, or -1.
int column_of(int phase, int row, int colour) {
  for (int c = 0; c < 2; ++c) {
    if (bayer::colour_at(phase, row, c) == colour) return c;
  }
  return -1;
}

// Line (0/1) of a cell that holds `colour` (red or blue).
int line_of(int phase, int colour) { return column_of(phase, 0, colour) >= 0 ? 0 : 1; }

// Strip-sequenced per-line transform shared by the mosaic and the two views: `row`
// turns source line `y` of the strip (absolute line parity `odd`) into output line.
template <class Row>
uint32_t transform_strips(const char* name, const char* worker, StripSequence& seq,
                          uint32_t src, uint32_t dst, uint32_t target, uint32_t mode, Row&& row) {
  ImageRecord* in = lookup(src);
  if (src == dst) return report(name, VEK_ERROR_BAD_PARAMETER, kSameImage);
  if (in->lines_per_strip == 0) return describe_only(src, dst, target);
  if (mode != VEK_STRIP_END && seq.idle()) {
    uint32_t s = describe_as(name, src, dst, target);
    if (is_error(s)) return s;
  }
  return run_strip(
      seq, mode, *in, [] { return VEK_OK; },
      [&](const StripSequence::Strip& strip) -> uint32_t {
        if (!in->data) return report(worker, kNoData, "No image data");
        uint32_t s = fresh_strip(worker, dst, strip.lines);
        if (is_error(s)) return s;
        const ImageRecord* out = lookup(dst);
        for (uint32_t y = 0; y < strip.lines; ++y) {
          row(*in, y, out->data + size_t(y) * out->bytes_per_line, ((strip.first_line + y) & 1) != 0);
        }
        return VEK_OK;
      });
}

}  // namespace

extern "C" {

VEK_API uint32_t VEK_BAY_RGGB32_to_BGRX32(uint32_t source, uint32_t destination, uint32_t scheme,
                                          uint32_t pixel_colour, uint32_t strip_mode) {
  static constexpr DemosaicNames kNames{"VEK_BAY_RGGB32_to_BGRX32",
                                        "VEK_BAY_RGGB32_to_BGRX32_1_strip"};
  return demosaic(kNames, g_to_bgrx32, source, destination, scheme, pixel_colour, strip_mode,
                  Output::Bgrx32);
}

VEK_API uint32_t VEK_BAY_RGGB32_to_RGB16(uint32_t source, uint32_t destination, uint32_t scheme,
                                         uint32_t pixel_colour, uint32_t strip_mode) {
  static constexpr DemosaicNames kNames{"VEK_BAY_RGGB32_to_RGB16",
                                        "VEK_BAY_RGGB32_to_RGB16_1_strip"};
  return demosaic(kNames, g_to_rgb16, source, destination, scheme, pixel_colour, strip_mode,
                  Output::Rgb16);
}

VEK_API uint32_t VEK_BAY_ColorBalance(uint32_t source, uint32_t destination, uint32_t red_gain,
                                      uint32_t green_gain, uint32_t blue_gain) {
  static const char kName[] = "VEK_BAY_ColorBalance";
  uint32_t s = check_cells(kName, source, "Input image must be VEK_RGGB32 only",
                           "Input image width must be even", "Input image height must be even",
                           false);
  if (is_error(s)) return s;
  ImageRecord* in = lookup(source);
  s = take_whole_image(kName, source, *in);
  if (is_error(s)) return s;
  if (!in->data) return report(kName, kNoData, "No image data");
  // Balancing in place is allowed: the same buffer is read and written line by line.
  if (destination != source) {
    s = describe_as(kName, source, destination, VEK_RGGB32);
    if (is_error(s)) return s;
    s = fresh_strip(kName, destination, in->height);
    if (is_error(s)) return s;
  }
  // Gains are 8-bit quantities in 1/128 units; only their low byte counts.
  uint8_t lut[3][256];
  const uint32_t gains[3] = {red_gain & 0xFFu, green_gain & 0xFFu, blue_gain & 0xFFu};
  for (int c = 0; c < 3; ++c) {
    for (uint32_t v = 0; v < 256; ++v) lut[c][v] = static_cast<uint8_t>(std::min((v * gains[c]) >> 7, 255u));
  }
  const ImageRecord* out = lookup(destination);
  for (uint32_t y = 0; y < in->height; ++y) {
    const bool odd = (y & 1) != 0;
    bayer::balance_row(in->data + size_t(y) * in->bytes_per_line,
                       out->data + size_t(y) * out->bytes_per_line, in->width,
                       odd ? lut[1] : lut[0], odd ? lut[2] : lut[1]);
  }
  return VEK_OK;
}

VEK_API uint32_t VEK_BAY_RGB24_to_RGGB32(uint32_t source, uint32_t destination,
                                         uint32_t strip_mode) {
  static const char kName[] = "VEK_BAY_RGB24_to_RGGB32";
  uint32_t s = VEK_image_check(source);
  if (is_error(s)) return report(kName, s, "Corrupt image");
  if (lookup(source)->format != VEK_RGB24) {
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Input must be VEK_RGB24 only");
  }
  return transform_strips(kName, "VEK_BAY_RGB24_to_RGGB32_1_strip", g_mosaic, source, destination,
                          VEK_RGGB32, strip_mode,
                          [](const ImageRecord& in, uint32_t y, uint8_t* out, bool odd) {
                            bayer::mosaic_row(in.data + size_t(y) * in.bytes_per_line, out,
                                              in.width, odd);
                          });
}

VEK_API uint32_t VEK_BAY_RGGB32_map_to_RGB24(uint32_t source, uint32_t destination,
                                             uint32_t offset, uint32_t strip_mode) {
  static const char kName[] = "VEK_BAY_RGGB32_map_to_RGB24";
  uint32_t s = VEK_image_check(source);
  if (is_error(s)) return report(kName, s, "Corrupt image");
  if (!is_mosaic(*lookup(source))) {
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Unsupported image format");
  }
  // The offset moves the start of the samples inside the strip; samples that would
  // lie past the strip's end are read as 0 rather than from beyond the buffer.
  return transform_strips(
      kName, "VEK_BAY_RGGB32_map_to_RGB24_1_strip", g_map_rgb24, source, destination, VEK_RGB24,
      strip_mode, [offset](const ImageRecord& in, uint32_t y, uint8_t* out, bool odd) {
        const uint64_t total = uint64_t(in.bytes_per_line) * in.lines_per_strip;
        const uint64_t start = uint64_t(offset) + uint64_t(y) * in.bytes_per_line;
        const uint32_t avail =
            start >= total ? 0 : static_cast<uint32_t>(std::min<uint64_t>(in.width, total - start));
        if (avail) bayer::false_colour_row(in.data + start, out, avail, odd);
        std::memset(out + size_t(avail) * 3, 0, size_t(in.width - avail) * 3);
      });
}

VEK_API uint32_t VEK_BAY_RGGB32_map_to_Y8(uint32_t source, uint32_t destination,
                                          uint32_t strip_mode) {
  static const char kName[] = "VEK_BAY_RGGB32_map_to_Y8";
  uint32_t s = VEK_image_check(source);
  if (is_error(s)) return report(kName, s, "Corrupt image");
  if (!is_mosaic(*lookup(source))) {
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Unsupported image format");
  }
  return transform_strips(kName, "VEK_BAY_RGGB32_map_to_Y8_1_strip", g_map_y8, source,
                          destination, VEK_Y8, strip_mode,
                          [](const ImageRecord& in, uint32_t y, uint8_t* out, bool) {
                            std::memcpy(out, in.data + size_t(y) * in.bytes_per_line, in.width);
                          });
}

VEK_API uint32_t VEK_IP_Bayer_Convert_to_BGRX32_Sub2(uint32_t source, uint32_t destination,
                                                     uint32_t pixel_colour) {
  static const char kName[] = "VEK_IP_Bayer_Convert_to_BGRX32_Sub2";
  uint32_t s = check_cells(kName, source, "Input image must be VEK_RGGB32 or Y8.",
                           "Input image width must be even.", "Input image height must be even.",
                           true);
  if (is_error(s)) return s;
  if (pixel_colour < 1 || pixel_colour > 4) {
    return report(kName, VEK_ERROR_BAD_PARAMETER, "Invalid Bayer Pixel Colour");
  }
  if (source == destination) return report(kName, VEK_ERROR_BAD_PARAMETER, kSameImage);
  ImageRecord* in = lookup(source);
  s = take_whole_image(kName, source, *in);
  if (is_error(s)) return s;
  if (!in->data) return report(kName, kNoData, "No image data");
  s = describe_as(kName, source, destination, VEK_BGRX32);
  if (is_error(s)) return s;
  ImageRecord* out = lookup(destination);
  out->width = in->width / 2;
  out->height = in->height / 2;
  s = fresh_strip(kName, destination, out->height);
  if (is_error(s)) return s;

  const int phase = static_cast<int>(pixel_colour);
  const int red_line = line_of(phase, 0), blue_line = line_of(phase, 2);
  const int red_col = column_of(phase, red_line, 0), blue_col = column_of(phase, blue_line, 2);
  const int green_col = column_of(phase, 0, 1);
  for (uint32_t cy = 0; cy < out->height; ++cy) {
    const uint8_t* line0 = in->data + size_t(2 * cy) * in->bytes_per_line;
    const uint8_t* line1 = line0 + in->bytes_per_line;
    const bayer::CellLayout cell{red_line ? line1 : line0, blue_line ? line1 : line0, red_col,
                                 blue_col, green_col};
    bayer::half_size_row(cell, line0, out->data + size_t(cy) * out->bytes_per_line, out->width);
  }
  return VEK_OK;
}

VEK_API uint32_t VEK_IP_Bayer_Convert_to_BGRX32(uint32_t source, uint32_t destination,
                                                uint32_t scheme, const float* matrix,
                                                uint32_t offset, uint32_t pixel_colour) {
  if (offset != 0) {
    return report("VEK_IP_Bayer_Convert_to_BGRX32", VEK_ERROR_NOT_SUPPORTED,
                  "Offset values not currently supported.");
  }
  KeepLockedFlag keep(destination);
  uint32_t status;
  if (scheme >= 1 && scheme <= 3) {
    status = VEK_BAY_RGGB32_to_BGRX32(source, destination, scheme, pixel_colour, VEK_STRIP_NEXT);
  } else if (scheme == 4) {
    status = VEK_IP_Bayer_Convert_to_BGRX32_Sub2(source, destination, pixel_colour);
  } else {
    return VEK_OK;
  }
  // A failed conversion leaves nothing to correct, and ORing two error codes would
  // garble both, so the matrix only follows a successful one.
  if (matrix && !is_error(status)) status |= colour_matrix(destination, matrix);
  return status;
}

VEK_API uint32_t VEK_IP_Bayer_Map_to_RGB24(uint32_t source, uint32_t destination,
                                           uint32_t offset) {
  KeepLockedFlag keep(destination);
  return VEK_BAY_RGGB32_map_to_RGB24(source, destination, offset, VEK_STRIP_NEXT);
}

VEK_API uint32_t VEK_IP_Bayer_Convert_to_ThreePlanes(uint32_t source, uint32_t plane1,
                                                     uint32_t plane2, uint32_t plane3,
                                                     uint32_t pixel_colour) {
  static const char kName[] = "VEK_IP_Bayer_Convert_to_ThreePlanes";
  uint32_t s = check_cells(kName, source, "Input image must be VEK_RGGB32 or Y8.",
                           "Input image width must be even.", "Input image height must be even.",
                           true);
  if (is_error(s)) return s;
  if (pixel_colour < 1 || pixel_colour > 4) {
    return report(kName, VEK_ERROR_BAD_PARAMETER, "Invalid Bayer Pixel Colour");
  }
  const uint32_t planes[3] = {plane1, plane2, plane3};
  for (uint32_t p : planes) {
    if (p == source) return report(kName, VEK_ERROR_BAD_PARAMETER, kSameImage);
  }
  ImageRecord* in = lookup(source);
  s = take_whole_image(kName, source, *in);
  if (is_error(s)) return s;
  if (!in->data) return report(kName, kNoData, "No image data");

  const int phase = static_cast<int>(pixel_colour);
  for (int channel = 0; channel < 3; ++channel) {
    const uint32_t plane = planes[channel];
    s = describe_as(kName, source, plane, VEK_RGB24);
    if (is_error(s)) return s;
    s = fresh_strip(kName, plane, in->height);
    if (is_error(s)) return s;
    const ImageRecord* out = lookup(plane);
    // Red and blue come from their one line of the cell onto both lines; green from
    // each line's own green sample.
    const int fixed_line = channel == 1 ? -1 : line_of(phase, channel);
    for (uint32_t y = 0; y < in->height; ++y) {
      const int row = fixed_line < 0 ? int(y & 1) : fixed_line;
      const uint8_t* line = in->data + size_t((y & ~1u) + uint32_t(row)) * in->bytes_per_line;
      bayer::plane_row(line, out->data + size_t(y) * out->bytes_per_line, in->width, channel,
                       column_of(phase, row, channel));
    }
  }
  return VEK_OK;
}

}  // extern "C"
