// Text descriptions of images for the vek program.
#include <cctype>
#include <cstdio>

#include "tools/commands.h"
#include "vek.h"

std::string format_name(uint32_t code) {
  switch (code) {
    case VEK_Y1: return "Y1";
    case VEK_Y8: return "Y8";
    case VEK_PALETTED: return "PALETTED";
    case VEK_RGB8: return "RGB8";
    case VEK_RGB15: return "RGB15";
    case VEK_RGB16: return "RGB16";
    case VEK_RGB24: return "RGB24";
    case VEK_BGR24: return "BGR24";
    case VEK_RGBX32: return "RGBX32";
    case VEK_BGRX32: return "BGRX32";
    case VEK_XBGR32: return "XBGR32";
    case VEK_YUV422: return "YUV422";
    case VEK_CMYK32: return "CMYK32";
    case VEK_Y16: return "Y16";
    case VEK_XRGB32: return "XRGB32";
    case VEK_RGGB32: return "RGGB32";
    case VEK_FORMAT_17: return "BAYER16";
    case VEK_YUV411: return "YUV411";
    case VEK_HSI: return "HSI";
    default: return "format " + std::to_string(code);
  }
}

uint32_t format_code(const std::string& name) {
  std::string upper;
  for (char c : name) upper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  for (uint32_t code = 1; code <= 108; ++code)
    if (format_name(code) == upper) return code;
  return 0;
}

void print_image(const char* label, uint32_t h) {
  std::printf("%-22s handle %u: %s %u x %u, depth %u, %u bytes/line, %u lines/strip, %u strips\n",
              label, h, format_name(VEK_image_get_parameter(h, VEK_PARAM_FORMAT)).c_str(),
              VEK_image_get_parameter(h, VEK_PARAM_WIDTH), VEK_image_get_parameter(h, VEK_PARAM_HEIGHT),
              VEK_image_get_parameter(h, VEK_PARAM_DEPTH),
              VEK_image_get_parameter(h, VEK_PARAM_BYTES_PER_LINE),
              VEK_image_get_parameter(h, VEK_PARAM_STRIP_LINES), VEK_image_calc_total_strips(h));
}
