// Fuzz harness: arbitrary bytes as a file for the tiff reader, whole picture and header only.
#include "fuzz/file_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return vekfuzz::read_as_file("tiff", data, size, [](uint32_t h, uint32_t mode) { VEK_read_TIFF_file(h, mode); });
}
