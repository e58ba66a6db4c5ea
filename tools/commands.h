// The vek program's subcommands and the picture I/O they share; each command lives
// in its own file under tools/.
#pragma once

#include <cstdint>
#include <string>

#include "vek.h"

int cmd_demo(int argc, char** argv);
int cmd_info(int argc, char** argv);
int cmd_convert(int argc, char** argv);
int cmd_demosaic(int argc, char** argv);

// Prints an image's description (format, size, strip geometry) to stdout.
void print_image(const char* label, uint32_t handle);
// Name of a pixel-format code ("Y8", "RGB24", ...), or "format N".
std::string format_name(uint32_t code);
// Pixel-format code of a name (case-insensitive), or 0.
uint32_t format_code(const std::string& name);

// Runs `op(in, out)` from `*handle` into a fresh image that then replaces it; on
// failure the new image is dropped and `*handle` is left as it was.
template <class Op>
uint32_t replace_with_result(uint32_t* handle, Op op) {
  const uint32_t out = VEK_image_create();
  if (VEK_IS_ERROR(out)) return out;
  const uint32_t status = op(*handle, out);
  if (VEK_IS_ERROR(status)) {
    VEK_image_destroy(out);
    return status;
  }
  VEK_image_destroy(*handle);
  *handle = out;
  return VEK_OK;
}

// Reads a whole picture from any supported file (JPEG files are decoded).
uint32_t load_picture(const std::string& path, uint32_t* handle);
// File-format code for an explicit --to word, or else from the path's extension.
uint32_t file_kind_for(const std::string& path, const std::string& to);
// Converts the picture to `format` (replacing the handle) when it differs.
uint32_t convert_picture(uint32_t* handle, uint32_t format);
// Writes the picture, converting first to a pixel format the file kind holds.
uint32_t save_picture(uint32_t* handle, const std::string& path, uint32_t kind, bool lzw,
                      uint32_t quality);
