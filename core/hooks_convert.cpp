// The conversion family's part in destruction and parameter copies.
#include <cstdlib>
#include <cstring>

#include "core/image.h"

namespace vek::family {

void destroy_all_luts() {}

void free_shared_tables() {}

void destroy_cmap_info(uint32_t handle) {
  ImageRecord* rec = lookup(handle);
  if (!rec) return;
  std::free(rec->cmap_info);
  rec->cmap_info = nullptr;
}

void cmap_copy(uint32_t source, uint32_t destination) {
  const ImageRecord* src = lookup(source);
  ImageRecord* dst = lookup(destination);
  if (src && dst && src->cmap && dst->cmap && src->cmap != dst->cmap)
    std::memcpy(dst->cmap, src->cmap, kCmapEntries * sizeof(CmapEntry));
}

// Until the colour-map family is built only the grey map (type 2) is known.
uint32_t cmap_set_type(uint32_t handle, uint32_t type) {
  ImageRecord* rec = lookup(handle);
  if (!rec || !rec->cmap) return VEK_ERROR_BAD_HANDLE;
  if (type != 2) return VEK_ERROR_NOT_SUPPORTED;
  for (uint32_t i = 0; i < kCmapEntries; ++i) {
    const auto v = static_cast<uint8_t>(i);
    rec->cmap[i] = CmapEntry{v, v, v, 0};
  }
  return VEK_OK;
}

}  // namespace vek::family
