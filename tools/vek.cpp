// vek: command-line front end of the library — demo, version, help.
#include <cstdio>
#include <cstring>
#include <string>

#include "tools/commands.h"
#include "vek.h"

static const char kHelp[] =
    "usage: vek COMMAND [ARGS]\n"
    "\n"
    "commands:\n"
    "  demo             run the capture pipeline on built-in data and describe each image\n"
    "  version          print the library version word\n"
    "  --help, help     show this text\n";

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs(kHelp, stderr);
    return 2;
  }
  const std::string cmd = argv[1];
  if (cmd == "--help" || cmd == "-h" || cmd == "help") {
    std::fputs(kHelp, stdout);
    return 0;
  }
  if (cmd == "version" || cmd == "--version") {
    std::printf("0x%08x\n", VEK_image_get_parameter(0, VEK_PARAM_VERSION));
    return 0;
  }
  if (cmd == "demo") return cmd_demo(argc - 1, argv + 1);
  std::fprintf(stderr, "vek: unknown command '%s'\n\n%s", cmd.c_str(), kHelp);
  return 2;
}
