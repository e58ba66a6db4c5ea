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
    "  demo                  run the capture pipeline on built-in data and describe each step\n"
    "  info FILE             detected file format, size and pixel format (JPEG: header fields)\n"
    "  convert IN OUT [OPTIONS]\n"
    "                        read IN (BMP, TIFF, EPS, JPEG), apply OPTIONS in order, write OUT\n"
    "      --to bmp|tiff|tiff-lzw|eps|raw|jpg   output file format (default: OUT's extension)\n"
    "      --quality F       JPEG quality factor 1..400 (default 32; 16 = standard tables)\n"
    "      --format NAME     pixel format: Y8 PALETTED RGB8 RGB15 RGB16 RGB24 BGR24 RGBX32\n"
    "                        BGRX32 XBGR32 XRGB32 YUV422 CMYK32 Y16 HSI\n"
    "      --crop X,Y,W,H    keep a rectangle (X, Y from 0)\n"
    "      --rotate 90|180|270\n"
    "      --mirror          left-right mirror\n"
    "      --scale W,H       linear resize (Y8 and RGB24)\n"
    "      --subsample N     keep every N-th pixel of every N-th line\n"
    "      --bin N           average N x N blocks\n"
    "  demosaic IN OUT [--scheme 1..4] [--phase 1..4]\n"
    "                        Bayer mosaic (8-bit grey picture) to colour; scheme 1 replicate,\n"
    "                        2 bilinear (default), 3 median of four, 4 half size; phase 1 RGGB,\n"
    "                        2 GRBG, 3 GBRG, 4 BGGR\n"
    "  version               print the library version word\n"
    "  --help, help          show this text\n";

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
  if (cmd == "info") return cmd_info(argc - 1, argv + 1);
  if (cmd == "convert") return cmd_convert(argc - 1, argv + 1);
  if (cmd == "demosaic") return cmd_demosaic(argc - 1, argv + 1);
  std::fprintf(stderr, "vek: unknown command '%s'\n\n%s", cmd.c_str(), kHelp);
  return 2;
}
