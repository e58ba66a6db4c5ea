// Fuzz harness: the file readers (VEK_JPEG_file_read, and VEK_JPEG_file_open with the
// sequence operations) on the input written to a temporary file.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "vek.h"

static uint32_t quiet(uint32_t, const char*, uint32_t, const char*) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static bool ready = (VEK_Init(), VEK_ErrHandlerInstall(quiet), true);
  (void)ready;
  if (size > (1u << 20)) return 0;
  static const std::string path = "/tmp/vek_fuzz_jpeg_file_" + std::to_string(getpid()) + ".jpg";
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  const uint32_t jpg = VEK_JPEG_image_create();
  const uint32_t out = VEK_JPEG_image_create();
  if (!VEK_IS_ERROR(jpg) && !VEK_IS_ERROR(out)) {
    VEK_image_set_infilename(jpg, path.c_str());
    VEK_JPEG_file_read(jpg);
    if (VEK_JPEG_file_open(jpg) == 0) {
      VEK_JPEG_sequence_calc_length(jpg);
      const uint32_t frames = VEK_image_get_parameter(jpg, VEK_PARAM_18);
      if (frames <= 64) {
        for (uint32_t n = 1; n <= frames; ++n) VEK_JPEG_sequence_extract_frame(jpg, out, n);
      }
      VEK_JPEG_file_close(jpg);
    }
  }
  VEK_image_destroy(jpg);
  VEK_image_destroy(out);
  std::remove(path.c_str());
  return 0;
}
