// Fuzz harness: VEK_JPEG_buffer_read then VEK_JPEG_decompress into a format chosen by
// the last input byte, the buffer writer on what was read, and frame extraction.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "vek.h"

static uint32_t quiet(uint32_t, const char*, uint32_t, const char*) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static bool ready = (VEK_Init(), VEK_ErrHandlerInstall(quiet), true);
  (void)ready;
  if (size < 1 || size > (1u << 20)) return 0;
  static const uint32_t kFormats[4] = {VEK_YUV422, VEK_RGB24, VEK_BGR24, VEK_BGRX32};
  const uint32_t target = kFormats[data[size - 1] & 3];
  const uint32_t jpg = VEK_JPEG_image_create();
  const uint32_t dst = VEK_image_create();
  if (!VEK_IS_ERROR(jpg) && !VEK_IS_ERROR(dst) &&
      VEK_JPEG_buffer_read(jpg, data, uint32_t(size - 1)) == 0) {
    // Dimensions come from the input: keep the decode small enough to stay fast.
    const uint64_t pixels = uint64_t(VEK_get_width(jpg)) * VEK_get_height(jpg);
    if (pixels <= (1u << 22)) {
      VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, target);
      VEK_JPEG_decompress(jpg, dst);
    }
    // Whatever the parser left in the descriptor must write back within bounds and
    // parse again; the frames of the data can be positioned on and copied out.
    const Tjpeg* j = static_cast<const Tjpeg*>(VEK_image_get_ptr(jpg, VEK_PTR_JPEG));
    if (j) {
      std::vector<uint8_t> out(size_t(j->data ? j->data_length : 0) + 2048);
      uint32_t n = 0;
      if (VEK_JPEG_buffer_write(jpg, out.data(), uint32_t(out.size()), &n) == 0 && n <= out.size()) {
        const uint32_t again = VEK_JPEG_image_create();
        if (!VEK_IS_ERROR(again)) VEK_JPEG_buffer_read(again, out.data(), n);
        VEK_image_destroy(again);
      }
      const uint32_t frames = VEK_image_get_parameter(jpg, VEK_PARAM_18);
      const uint32_t one = VEK_JPEG_image_create();
      for (uint32_t f = 0; f <= frames && f <= 8 && !VEK_IS_ERROR(one); ++f)
        VEK_JPEG_sequence_extract_frame(jpg, one, f);
      VEK_image_destroy(one);
    }
  }
  VEK_image_destroy(jpg);
  VEK_image_destroy(dst);
  return 0;
}
