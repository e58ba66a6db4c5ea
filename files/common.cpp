// Whole-file reading for the parsers that need random access to a file.
#include "files/common.h"

namespace vek::files {

uint32_t read_whole_file(const char* name, Block& out) {
  Stream f(std::fopen(name, "rb"));
  if (!f) return VEK_ERROR_OPEN_FAILED;
  if (std::fseek(f.get(), 0, SEEK_END) != 0) return VEK_ERROR_OPEN_FAILED;
  const long end = std::ftell(f.get());
  if (end < 0 || std::fseek(f.get(), 0, SEEK_SET) != 0) return VEK_ERROR_OPEN_FAILED;
  if (!out.allocate(static_cast<size_t>(end))) return VEK_ERROR_MEMORY;
  if (end > 0 && std::fread(out.get(), 1, out.size(), f.get()) != out.size())
    return VEK_ERROR_OPEN_FAILED;
  return f.close() ? VEK_OK : VEK_ERROR_CLOSE_FAILED;
}

}  // namespace vek::files
