// The conversion family's part in destruction and parameter copies.
#include "convert/internal.h"
#include "core/image.h"

namespace vek::family {

void destroy_all_luts() { VEK_LUT_destroy(VEK_ALL_IMAGES); }

void free_shared_tables() { conv::release_shared_tables(); }

void destroy_cmap_info(uint32_t handle) { VEK_cmap_destroy_info(handle); }

// Parameter copies must not report on their own: a missing map is simply skipped.
void cmap_copy(uint32_t source, uint32_t destination) {
  const ImageRecord* src = lookup(source);
  const ImageRecord* dst = lookup(destination);
  if (src && dst && src != dst) VEK_cmap_copy(source, destination);
}

uint32_t cmap_set_type(uint32_t handle, uint32_t type) { return VEK_cmap_set_type(handle, type); }

}  // namespace vek::family
