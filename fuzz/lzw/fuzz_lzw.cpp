// Fuzz harness: arbitrary bytes as an LZW strip, decoded into buffers of several sizes;
// and the same bytes as plain data, coded and decoded again, which must give them back.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "files/lzw.h"
#include "vek.h"

namespace {

void round_trip(const uint8_t* data, size_t size) {
  char* coded = nullptr;
  size_t coded_len = 0;
  FILE* f = open_memstream(&coded, &coded_len);
  if (!f) return;
  vek::LZWData* s = nullptr;
  bool ok = vek::lzw_open_encode(&s, f, data, size) == 0 && vek::lzw_encode(s, uint32_t(size)) == 0;
  uint32_t count = 0;
  if (s) ok = vek::lzw_close_encode(s, &count) == 0 && ok;
  std::fclose(f);
  if (ok) {
    std::vector<uint8_t> back(size + 1);
    vek::LZWData* d = nullptr;
    if (vek::lzw_open_decode_memory(&d, reinterpret_cast<uint8_t*>(coded), coded_len, back.data(), size) == 0) {
      vek::lzw_decode(d, 0xFFFFFFFFu);
      const bool same = vek::lzw_decoded_bytes(d) == size && std::memcmp(back.data(), data, size) == 0;
      vek::lzw_close_decode(d);
      if (!same) __builtin_trap();
    }
  }
  std::free(coded);
}

}  // namespace

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
  round_trip(data, size);
  return 0;
}
