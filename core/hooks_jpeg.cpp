// The JPEG family's part in start-up, destruction, copies and the file dispatch.
// A build without that family (VEK_SUBSYSTEMS) gets the stand-ins below instead.
#include <cstdlib>

#include "core/image.h"

#if VEK_WITH_JPEG
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
#else
// Without the JPEG family the core still frees a descriptor attached by hand.
namespace vek::family {

void init_jpeg_tables() {}

uint32_t jpeg_free_data(uint32_t handle) {
  ImageRecord* rec = lookup(handle);
  if (!rec || !rec->jpeg) return VEK_OK;
  if (!(rec->flags & (VEK_FLAG_LOCKED | VEK_FLAG_EXTERNAL)) && rec->jpeg->data) {
    std::free(rec->jpeg->data);
    rec->jpeg->data = nullptr;
    rec->jpeg->current = nullptr;
    rec->jpeg->data_length = 0;
  }
  return VEK_OK;
}

uint32_t jpeg_destroy(uint32_t handle) {
  ImageRecord* rec = lookup(handle);
  if (!rec || !rec->jpeg) return VEK_OK;
  jpeg_free_data(handle);
  std::free(rec->jpeg);
  rec->jpeg = nullptr;
  return VEK_OK;
}

uint32_t jpeg_copy_parameters(uint32_t, uint32_t) { return VEK_OK; }

static uint32_t not_built(const char* name) {
  return report(name, VEK_ERROR_NOT_SUPPORTED, "JPEG codec not built");
}

uint32_t jpeg_build_image(uint32_t, uint32_t, uint32_t) { return not_built("VEK_JPEG_build_image"); }
uint32_t jpeg_set_quality(uint32_t, uint32_t) { return not_built("VEK_JPEG_set_Quality_factor"); }
uint32_t jpeg_file_read(uint32_t) { return not_built("VEK_JPEG_file_read"); }
uint32_t jpeg_file_write(uint32_t) { return not_built("VEK_JPEG_file_write"); }

}  // namespace vek::family
#endif
