// Fuzz harness: arbitrary bytes as an LZW strip, decoded into buffers of several sizes.
#include <cstdint>
#include <vector>

#include "files/lzw.h"
#include "vek.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static bool quiet = (VEK_Init(), VEK_ErrHandlerInstall(nullptr), true);
  (void)quiet;
  // The first two bytes choose the output size, so strips that overrun are exercised.
  const size_t capacity = size >= 2 ? (size_t(data[0]) << 8 | data[1]) * 4 : 0;
  std::vector<uint8_t> out(capacity + 1);
  vek::LZWData* s = nullptr;
  if (vek::lzw_open_decode_memory(&s, data, size, out.data(), capacity) == 0) {
    vek::lzw_decode(s, 0xFFFFFFFFu);
    vek::lzw_close_decode(s);
  }
  return 0;
}
