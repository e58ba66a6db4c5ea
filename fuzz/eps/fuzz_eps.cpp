// Fuzz harness: arbitrary bytes as a file for the eps reader, whole picture and header only.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "vek.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = "/tmp/vek_fuzz_eps." + std::to_string(getpid());
  static bool quiet = (VEK_Init(), VEK_ErrHandlerInstall(nullptr), true);
  (void)quiet;
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  const uint32_t h = VEK_image_create();
  VEK_image_set_infilename(h, path.c_str());
  // The last byte picks header-only reading now and then.
  const uint32_t mode = size && (data[size - 1] & 0x80) ? 4 : 3;
  VEK_read_EPS_file(h, mode);
  VEK_image_read(h, 0, 3);
  VEK_image_destroy(h);
  std::remove(path.c_str());
  return 0;
}
