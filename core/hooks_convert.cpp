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

}  // namespace vek::family
