// Replays fuzz inputs through a harness without libFuzzer: every file named on the
// command line, or every file inside a named directory, so seeds and fixed crashers
// run as ordinary regression tests on any compiler.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static int run_file(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    return 1;
  }
  std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  return 0;
}

int main(int argc, char** argv) {
  int failures = 0, count = 0;
  for (int i = 1; i < argc; ++i) {
    std::filesystem::path p(argv[i]);
    if (std::filesystem::is_directory(p)) {
      for (const auto& e : std::filesystem::recursive_directory_iterator(p))
        if (e.is_regular_file()) failures += run_file(e.path()), ++count;
    } else {
      failures += run_file(p), ++count;
    }
  }
  std::printf("replayed %d inputs\n", count);
  return failures ? 1 : 0;
}
