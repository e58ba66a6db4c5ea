// Shared by the file-reader fuzz harnesses: the readers take file names, so each input
// is written to a per-process scratch file first.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "vek.h"

namespace vekfuzz {

// Writes the input to a scratch file named after `tag`, runs `read(handle, mode)` on a
// fresh image named after it (the last byte picks header-only mode 4 now and then),
// then the detecting dispatch, and cleans up.
template <class Reader>
int read_as_file(const char* tag, const uint8_t* data, size_t size, Reader read) {
  static const bool quiet = (VEK_Init(), VEK_ErrHandlerInstall(nullptr), true);
  (void)quiet;
  const std::string path = std::string("/tmp/vek_fuzz_") + tag + "." + std::to_string(getpid());
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  const uint32_t h = VEK_image_create();
  VEK_image_set_infilename(h, path.c_str());
  const uint32_t mode = size && (data[size - 1] & 0x80) ? 4 : 3;
  read(h, mode);
  VEK_image_read(h, 0, 3);
  VEK_image_destroy(h);
  std::remove(path.c_str());
  return 0;
}

}  // namespace vekfuzz
