// Linear-interpolation resize of Y8 and RGB24 images, strip by strip, with Q13 steps,
// the process-wide product table and the last line of a strip carried to the next.
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "process/geometry_internal.h"
#include "process/geometry_rows.h"

using namespace vek;
using namespace vek::geometry;

namespace {

// Every error of the entry point goes out under this name, by long-standing convention
// of this function; its strip worker reports under its own name.
constexpr char kEntryName[] = "VEK_IP_threshold_grayscale";
constexpr char kWorkerName[] = "VEK_IP_scale_1_strip";
constexpr uint32_t kOne = 1u << 13;  // 1.0 in the Q13 steps

constexpr FormatRule kScaleFormats{format_set({VEK_RGB24, VEK_Y8}), "Supports RGB24 & Y8 only",
                                   false};

StripSequence g_scale_sequence;

// Process-wide scaling state: one scaling sequence at a time.
struct ScaleState {
  uint32_t x_step = 0;
  uint32_t y_step = 0;
  uint32_t y_acc = 0;
  uint32_t produced = 0;
  uint32_t fraction = 0;  // vertical weights are (256 - fraction, fraction) in table terms
  uint32_t new_width = 0;
  uint8_t* saved = nullptr;  // last horizontally scaled line of the previous strip
  bool saved_valid = false;
};
ScaleState g_scale;

void drop_saved_line() {
  std::free(g_scale.saved);
  g_scale.saved = nullptr;
  g_scale.saved_valid = false;
}

uint32_t setup(uint32_t input, uint32_t output, const ImageRecord& in, uint32_t new_width,
               uint32_t new_height) {
  // The vertical step divides by new height - 1, and the line count per strip by the
  // step itself: sizes that would make either zero are refused here.
  if (new_width == 0 || new_height < 2 || in.width == 0 || in.height < 2)
    return report(kEntryName, VEK_ERROR_BAD_PARAMETER, "Unsupported scaling size");
  const uint32_t y_step = ((in.height - 1) << 13) / (new_height - 1);
  if (y_step == 0) return report(kEntryName, VEK_ERROR_BAD_PARAMETER, "Unsupported scaling size");
  uint32_t status = VEK_image_copy_parameters(input, output);
  if (is_error(status)) return status;
  ImageRecord* out = lookup(output);
  out->width = new_width;
  out->height = new_height;
  status = check_output(kEntryName, output);
  if (is_error(status)) return status;
  drop_saved_line();
  g_scale.x_step = (in.width << 13) / new_width;
  g_scale.y_step = y_step;
  g_scale.y_acc = 0;
  g_scale.produced = 0;
  g_scale.fraction = 0;
  g_scale.new_width = new_width;
  return VEK_OK;
}

// The output's strip of n lines. Allocated here rather than through the core so that
// running out of memory is reported as this worker's "Malloc fail - no memory?", as
// every other allocation of the scaler is. A locked buffer is kept as it is.
uint32_t output_strip(uint32_t output, uint32_t lines, ImageRecord*& out) {
  out = lookup(output);
  if (!out) return report(kWorkerName, VEK_ERROR_BAD_HANDLE, "Output image does not exist");
  out->lines_per_strip = lines;
  uint32_t status = check_output(kWorkerName, output);
  if (is_error(status)) return status;
  if ((out->flags & VEK_FLAG_LOCKED) && out->data) return VEK_OK;
  VEK_image_free_data(output);
  size_t size = 0;
  uint8_t* buffer = checked_size(out->bytes_per_line, lines, 1, size)
                        ? static_cast<uint8_t*>(vek::alloc(size))
                        : nullptr;
  if (!buffer) return report(kWorkerName, VEK_ERROR_MEMORY, "Malloc fail - no memory?");
  std::memset(buffer, 0, size);  // the padding byte of odd widths is defined
  out->data = buffer;
  out->flags &= ~VEK_FLAG_EXTERNAL;  // the buffer is ours now, and freed with the image
  return VEK_OK;
}

uint32_t scale_1_strip(const ImageRecord& in, uint32_t output, const StripSequence::Strip& strip) {
  ScaleState& st = g_scale;
  uint32_t status = require_data(kWorkerName, in);
  if (is_error(status)) return status;
  const uint32_t s = strip.first_line, L = strip.lines;
  const ImageRecord* described = lookup(output);
  if (!described) return report(kWorkerName, VEK_ERROR_BAD_HANDLE, "Output image does not exist");
  if (L == 0)
    return report(kWorkerName, VEK_ERROR_INTERNAL, "Internal: Not enough lines to process");
  // Output lines whose source position falls on this strip's lines. The count is
  // formed signed: when reducing in strips shorter than the step, a strip can hold no
  // output position at all, and the unsigned difference would wrap into thousands of
  // lines. Such a strip yields an empty output strip and the sequence goes on (its
  // last line may still be carried); refusing it would leave the line count stalled
  // and every later strip misplaced.
  const int64_t span = (int64_t(L) + s - 1) * kOne - int64_t(st.produced) * st.y_step;
  int64_t n = span < 0 ? 0 : span / st.y_step + 1;
  // The floor in the step can place one line more than the height at the very end.
  const int64_t room = int64_t(described->height) - st.produced;
  if (n > room) n = room < 0 ? 0 : room;

  const uint32_t channels = in.format == VEK_RGB24 ? 3 : 1;
  ImageRecord* out = nullptr;
  status = output_strip(output, uint32_t(n), out);
  if (is_error(status)) return status;
  const size_t pitch = out->bytes_per_line;
  const size_t row = size_t(st.new_width) * channels;
  if (row > pitch) return report(kWorkerName, VEK_ERROR_INTERNAL, "Output geometry changed");

  // One allocation: the column table of the horizontal pass, its kernel plan, then the
  // strip's lines scaled across.
  size_t work_size = 0, cols_size = 0;
  const size_t plan_size = rows::scale_plan_bytes(st.new_width);
  void* block = checked_size(L, pitch, 1, work_size, SIZE_MAX - plan_size) &&
                        checked_size(st.new_width, sizeof(rows::ScaleColumn), 1, cols_size,
                                     SIZE_MAX - plan_size - work_size)
                    ? vek::alloc(cols_size + plan_size + work_size)
                    : nullptr;
  if (!block) return report(kWorkerName, VEK_ERROR_MEMORY, "Malloc fail - no memory?");
  auto* cols = static_cast<rows::ScaleColumn*>(block);
  uint8_t* plan = static_cast<uint8_t*>(block) + cols_size;
  uint8_t* work = plan + plan_size;
  const uint16_t* table = rows::scale_table();

  // Horizontal pass: every input line of the strip at the new width.
  const size_t in_row = size_t(in.width) * channels;
  rows::scale_columns(in.width, st.new_width, st.x_step, channels, cols);
  rows::scale_plan(in_row, cols, st.new_width, channels, plan);
  for (uint32_t line = 0; line < L; ++line)
    rows::scale_horizontal(in.data + size_t(line) * in.bytes_per_line, in_row, work + line * pitch,
                           cols, st.new_width, channels, table, plan);

  // Vertical pass.
  for (uint32_t k = 0; k < n; ++k) {
    const uint8_t* upper;
    const uint8_t* lower;
    if (st.saved_valid && st.saved) {
      upper = st.saved;
      lower = work;
      st.saved_valid = ((s << 13) - (st.produced + k + 1) * st.y_step - 1) < kOne;
    } else {
      int64_t at = int64_t((st.produced + k) * st.y_step >> 13) - s;
      if (at < 0) at = 0;
      if (at > int64_t(L) - 1) at = L - 1;
      upper = work + size_t(at) * pitch;
      lower = at + 1 < int64_t(L) ? upper + pitch : upper;  // the image's last line has no successor
    }
    rows::scale_vertical(upper, lower, out->data + k * pitch, row, st.fraction, table);
    st.y_acc += st.y_step;
    st.fraction = (st.y_acc >> 5) & 255u;
  }
  st.produced += uint32_t(n);

  // Carry the strip's last line when the next output line lies between it and the
  // first line of the next strip.
  status = VEK_OK;
  if (((L + s) << 13) - st.y_step * st.produced - 1 > kOne - 1) {
    st.saved_valid = false;
  } else {
    std::free(st.saved);
    st.saved = static_cast<uint8_t*>(vek::alloc(row));
    if (st.saved) {
      std::memcpy(st.saved, work + size_t(L - 1) * pitch, row);
      st.saved_valid = true;
    } else {
      st.saved_valid = false;
      status = report(kWorkerName, VEK_ERROR_MEMORY, "Malloc fail - no memory?");
    }
  }
  std::free(block);
  return status;
}

}  // namespace

extern "C" {

VEK_API uint32_t VEK_IP_scale(uint32_t input, uint32_t output, uint32_t new_width,
                              uint32_t new_height, uint32_t mode) {
  ImageRecord* in = nullptr;
  bool finished = false;
  uint32_t status = front_end(kEntryName, input, output, kScaleFormats, in, finished);
  if (is_error(status) || finished) return status;
  if (mode == VEK_STRIP_NEXT && new_width == in->width && new_height == in->height)
    return VEK_image_copy(input, output);
  (void)rows::scale_table();  // built once, on the first call ever
  status = run_strip(
      g_scale_sequence, mode, *in,
      [&] { return setup(input, output, *in, new_width, new_height); },
      [&](const StripSequence::Strip& strip) { return scale_1_strip(*in, output, strip); });
  // The carried line is only needed inside a sequence.
  if (g_scale_sequence.idle()) drop_saved_line();
  return status;
}

}  // extern "C"
