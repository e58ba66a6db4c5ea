// The vek program's subcommands; each lives in its own file under tools/.
#pragma once

#include <cstdint>
#include <string>

int cmd_demo(int argc, char** argv);

// Prints an image's description (format, size, strip geometry) to stdout.
void print_image(const char* label, uint32_t handle);
// Name of a pixel-format code ("Y8", "RGB24", ...), or "format N".
std::string format_name(uint32_t code);
