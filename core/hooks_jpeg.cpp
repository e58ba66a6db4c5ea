// The JPEG family's part in start-up, destruction, copies and the file dispatch.
#include "core/image.h"

namespace vek::jpeg {
void init_tables();
}

namespace vek::family {

void init_jpeg_tables() { jpeg::init_tables(); }

uint32_t jpeg_free_data(uint32_t handle) { return VEK_JPEG_free_data(handle); }

uint32_t jpeg_destroy(uint32_t handle) { return VEK_JPEG_destroy_Tjpeg(handle); }

uint32_t jpeg_copy_parameters(uint32_t source, uint32_t destination) {
  return VEK_JPEG_copy_parameters(source, destination);
}

uint32_t jpeg_build_image(uint32_t source, uint32_t destination, uint32_t mode) {
  return VEK_JPEG_build_image(source, destination, mode);
}

uint32_t jpeg_set_quality(uint32_t handle, uint32_t factor) {
  return VEK_JPEG_set_Quality_factor(handle, factor);
}

uint32_t jpeg_file_read(uint32_t handle) { return VEK_JPEG_file_read(handle); }

uint32_t jpeg_file_write(uint32_t handle) { return VEK_JPEG_file_write(handle); }

}  // namespace vek::family
