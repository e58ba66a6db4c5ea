// The JPEG family's part in start-up, destruction, copies and the file dispatch.
#include <cstdlib>

#include "core/image.h"

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

uint32_t jpeg_copy_parameters(uint32_t source, uint32_t destination) {
  const ImageRecord* src = lookup(source);
  ImageRecord* dst = lookup(destination);
  if (!src || !dst || !src->jpeg || !dst->jpeg || src->jpeg == dst->jpeg) return VEK_OK;
  Tjpeg keep = *dst->jpeg;
  *dst->jpeg = *src->jpeg;
  dst->jpeg->file = keep.file;
  dst->jpeg->data = keep.data;
  dst->jpeg->current = keep.current;
  return VEK_OK;
}

uint32_t jpeg_build_image(uint32_t, uint32_t, uint32_t) {
  return report("VEK_JPEG_build_image", VEK_ERROR_NOT_SUPPORTED, "JPEG codec not built");
}

uint32_t jpeg_set_quality(uint32_t handle, uint32_t factor) {
  static const char kName[] = "VEK_JPEG_set_Quality_factor";
  ImageRecord* rec = lookup(handle);
  if (!rec || !rec->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, "Not a JPEG image");
  const uint32_t f = factor & 0xFFFFu;
  if (f < 1 || f > 400) return report(kName, VEK_ERROR_BAD_PARAMETER, "Q factor of range");
  rec->jpeg->quality_factor = f;
  return VEK_OK;
}

uint32_t jpeg_file_read(uint32_t) {
  return report("VEK_JPEG_file_read", VEK_ERROR_NOT_SUPPORTED, "JPEG codec not built");
}

uint32_t jpeg_file_write(uint32_t) {
  return report("VEK_JPEG_file_write", VEK_ERROR_NOT_SUPPORTED, "JPEG codec not built");
}

}  // namespace vek::family
