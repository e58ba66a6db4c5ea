// Bilinear zoom of a region driven by caller-held Q15 coefficient tables, and the
// setup that fills those tables.
#include <cstdlib>

#include "core/alloc.h"
#include "process/geometry_internal.h"
#include "process/geometry_rows.h"

using namespace vek;
using namespace vek::geometry;

namespace {

constexpr FormatRule kZoomFormats{format_set({VEK_Y8, VEK_PALETTED, VEK_RGB24, VEK_Y16}),
                                  "Unsupported image format", true};

constexpr uint32_t kQ15One = 32768;

StripSequence g_zoom_sequence;

// The three parts of a coefficient table.
struct Table {
  uint16_t* first;
  uint16_t* second;
  uint16_t* advance;
  explicit Table(uint16_t* t) : first(t), second(t + VEK_ZOOM_MAX), advance(t + 2 * VEK_ZOOM_MAX) {}
};

uint32_t null_arguments(const char* name, const uint32_t* region, const uint16_t* x_table,
                        const uint16_t* y_table) {
  if (!region) return report(name, VEK_ERROR_BAD_PARAMETER, "Roi pointer is NULL");
  if (!x_table) return report(name, VEK_ERROR_BAD_PARAMETER, "XCoeffs pointer is NULL");
  if (!y_table) return report(name, VEK_ERROR_BAD_PARAMETER, "YCoeffs pointer is NULL");
  return VEK_OK;
}

// One dimension: region size R to output size N (N >= R, N <= VEK_ZOOM_MAX).
void fill(Table t, uint32_t R, uint32_t N) {
  if (N == R) {
    for (uint32_t i = 0; i < N; ++i) {
      t.first[i] = uint16_t(kQ15One);
      t.second[i] = 0;
      t.advance[i] = 1;
    }
    return;
  }
  // A 16-bit accumulator walks the output positions in steps of R against N: its
  // value over N is the first sample's weight, and the flag says the next output
  // position has moved on to the next source sample.
  uint16_t a = uint16_t(N);
  uint16_t flag = 0;
  const uint16_t n16 = uint16_t(N), r16 = uint16_t(R);
  for (uint32_t i = 0; i < N; ++i) {
    const float weight = float(a) / float(N) * 32768.0f;
    const uint16_t first = uint16_t(int64_t(weight));
    t.first[i] = first;
    t.second[i] = uint16_t(kQ15One - first);
    t.advance[i] = flag;
    if (flag == 1) {
      a = uint16_t(a + n16);
      if (n16 < a) a = uint16_t(a - r16);
    } else {
      a = uint16_t(a - r16);
    }
    flag = a <= r16 ? 1 : 0;
  }
}

bool ready(const uint16_t* table) {
  return ((uint32_t(table[0]) + table[VEK_ZOOM_MAX]) & ~0x7FFFu) == 0x8000u;
}

uint32_t zoom_1_strip(uint32_t input, const ImageRecord& in, uint32_t output, const uint32_t* region,
                      uint32_t out_w, uint32_t out_h, const uint16_t* x_table,
                      const uint16_t* y_table, uint32_t lines) {
  static const char kName[] = "VEK_IP_bilinear_zoom_1_strip";
  if (!in_set(kZoomFormats.accepted, in.format))
    return report(kName, VEK_ERROR_NOT_SUPPORTED, "Unsupported image type");
  if (region[2] == out_w && region[3] == out_h) {
    // Nothing to interpolate: a crop, handed over without copying where allowed.
    const uint32_t temp = VEK_image_create();
    if (is_error(temp)) return temp;
    uint32_t status = VEK_IP_crop(input, temp, region, VEK_STRIP_NEXT);
    if (!is_error(status)) {
      const ImageRecord* out = lookup(output);
      const bool locked = (out && (out->flags & VEK_FLAG_LOCKED)) ||
                          (lookup(temp)->flags & VEK_FLAG_LOCKED);
      status = locked ? VEK_image_copy(temp, output) : VEK_image_move(temp, output);
    }
    VEK_image_destroy(temp);
    return status;
  }
  uint32_t status = require_data(kName, in);
  if (is_error(status)) return status;
  if (lines == 0) return report(kName, VEK_ERROR_BAD_PARAMETER, "Image has no lines");
  ImageRecord* out = nullptr;
  status = fresh_strip(kName, output, out_h, out);
  if (is_error(status)) return status;
  const bool wide = in.format == VEK_Y16;
  const uint32_t channels = in.format == VEK_RGB24 ? 3 : 1;
  if (size_t(out_w) * channels * (wide ? 2 : 1) > out->bytes_per_line)
    return report(kName, VEK_ERROR_INTERNAL, "Output geometry changed");
  const Table xt(const_cast<uint16_t*>(x_table)), yt(const_cast<uint16_t*>(y_table));
  // Source lines and columns that run past the strip or the line (tables made for
  // another geometry, the lower neighbour of the last line) read the last one.
  const uint32_t last_line = lines - 1, last_column = in.width - 1;
  // Each source line serves several output lines as upper or lower neighbour, so its
  // pass across is kept for as long as it is needed: two cached lines, tagged with the
  // source line they hold. Without memory for them every output line is done in one.
  const size_t samples = size_t(out_w) * channels;
  size_t cache_size = 0;
  auto* cache = checked_size(samples, 2 * sizeof(uint32_t), 1, cache_size)
                    ? static_cast<uint32_t*>(vek::alloc(cache_size))
                    : nullptr;
  uint32_t* held[2] = {cache, cache ? cache + samples : nullptr};
  uint32_t tag[2] = {UINT32_MAX, UINT32_MAX};
  auto across = [&](uint32_t line, uint32_t keep) -> const uint32_t* {
    for (int k = 0; k < 2; ++k)
      if (tag[k] == line) return held[k];
    const int k = tag[0] == keep ? 1 : 0;  // replace the line not also wanted now
    rows::zoom_across(in.data + size_t(line) * in.bytes_per_line, held[k], out_w, region[0],
                      last_column, xt.first, xt.second, xt.advance, channels, wide);
    tag[k] = line;
    return held[k];
  };
  uint32_t upper = region[1];
  for (uint32_t j = 0; j < out_h; ++j) {
    if (j > 0 && yt.advance[j - 1] == 1 && upper <= last_line) ++upper;
    const uint32_t u = upper > last_line ? last_line : upper;
    const uint32_t l = u >= last_line ? last_line : u + 1;
    if (cache) {
      const uint32_t* top = across(u, l);
      const uint32_t* bottom = across(l, u);
      rows::zoom_down(top, bottom, out->data + size_t(j) * out->bytes_per_line, samples,
                      yt.first[j], yt.second[j], wide);
      continue;
    }
    rows::zoom(in.data + size_t(u) * in.bytes_per_line, in.data + size_t(l) * in.bytes_per_line,
               out->data + size_t(j) * out->bytes_per_line, out_w, region[0], last_column,
               xt.first, xt.second, xt.advance, yt.first[j], yt.second[j], channels, wide);
  }
  std::free(cache);
  return VEK_OK;
}

}  // namespace

extern "C" {

VEK_API uint32_t VEK_IP_bilinear_zoom_setup(const uint32_t* region, uint32_t output_width,
                                            uint32_t output_height, uint16_t* x_table,
                                            uint16_t* y_table) {
  static const char kName[] = "VEK_IP_bilinear_zoom_setup";
  uint32_t status = null_arguments(kName, region, x_table, y_table);
  if (is_error(status)) return status;
  const uint32_t sizes[2][2] = {{region[2], output_width & 0xFFFFu},
                                {region[3], output_height & 0xFFFFu}};
  for (int axis = 0; axis < 2; ++axis) {
    const uint32_t R = sizes[axis][0], N = sizes[axis][1];
    if (N < R) return report(kName, VEK_ERROR_NOT_SUPPORTED, "Zooming out unsupported in this release");
    // One table entry per output position.
    if (N > VEK_ZOOM_MAX) return report(kName, VEK_ERROR_BAD_PARAMETER, "Output size too large");
    fill(Table(axis == 0 ? x_table : y_table), R, N);
  }
  return VEK_OK;
}

VEK_API uint32_t VEK_IP_bilinear_zoom(uint32_t input, uint32_t output, const uint32_t* region,
                                      uint32_t output_width, uint32_t output_height,
                                      uint16_t* x_table, uint16_t* y_table, uint32_t mode) {
  static const char kName[] = "VEK_IP_bilinear_zoom";
  uint32_t status = null_arguments(kName, region, x_table, y_table);
  if (is_error(status)) return status;
  ImageRecord* in = nullptr;
  bool finished = false;
  status = front_end(kName, input, output, kZoomFormats, in, finished);
  if (is_error(status) || finished) return status;
  const uint32_t out_w = output_width & 0xFFFFu, out_h = output_height & 0xFFFFu;
  // Table entries exist for VEK_ZOOM_MAX output positions; a region starting outside
  // the image has no pixel to interpolate from.
  if (out_w > VEK_ZOOM_MAX || out_h > VEK_ZOOM_MAX)
    return report(kName, VEK_ERROR_BAD_PARAMETER, "Output size too large");
  if (region[0] >= in->width || region[1] >= in->height)
    return report(kName, VEK_ERROR_BAD_PARAMETER, "Region outside the image");
  // Tables made for another region or size are taken as they are.
  if (!ready(x_table) || !ready(y_table)) {
    status = VEK_IP_bilinear_zoom_setup(region, output_width, output_height, x_table, y_table);
    if (is_error(status)) return status;
  }
  return run_strip(
      g_zoom_sequence, mode, *in,
      [&]() -> uint32_t {
        uint32_t s = VEK_image_copy_parameters(input, output);
        if (is_error(s)) return s;
        ImageRecord* out = lookup(output);
        out->width = out_w;
        out->height = out_h;
        return check_output(kName, output);
      },
      [&](const StripSequence::Strip& strip) {
        return zoom_1_strip(input, *in, output, region, out_w, out_h, x_table, y_table,
                            strip.lines);
      });
}

}  // extern "C"
