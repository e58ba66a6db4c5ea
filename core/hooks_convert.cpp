// The conversion family's part in destruction and parameter copies. A build without
// that family (VEK_SUBSYSTEMS) gets the stand-ins below instead.
#include <cstdlib>
#include <cstring>

#include "core/image.h"

#if VEK_WITH_CONVERT
#include "convert/internal.h"
#endif

namespace vek::family {

// A parameter copy carries the colour map's entries (R, G, B) but never its information
// record, which the copy leaves out explicitly; so this is not VEK_cmap_copy, which also
// copies that record and may report while doing so.
void cmap_copy(uint32_t source, uint32_t destination) {
  const ImageRecord* src = lookup(source);
  ImageRecord* dst = lookup(destination);
  if (!src || !dst || !src->cmap || !dst->cmap || src->cmap == dst->cmap) return;
  for (uint32_t i = 0; i < kCmapEntries; ++i) {
    dst->cmap[i].r = src->cmap[i].r;
    dst->cmap[i].g = src->cmap[i].g;
    dst->cmap[i].b = src->cmap[i].b;
  }
}

#if VEK_WITH_CONVERT

void destroy_all_luts() { VEK_LUT_destroy(VEK_ALL_IMAGES); }

void free_shared_tables() { conv::release_shared_tables(); }

void destroy_cmap_info(uint32_t handle) { VEK_cmap_destroy_info(handle); }

uint32_t cmap_set_type(uint32_t handle, uint32_t type) { return VEK_cmap_set_type(handle, type); }

#else

void destroy_all_luts() {}

void free_shared_tables() {}

void destroy_cmap_info(uint32_t handle) {
  ImageRecord* rec = lookup(handle);
  if (!rec) return;
  std::free(rec->cmap_info);
  rec->cmap_info = nullptr;
}

// Only the grey map is known without the colour-map family.
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

#endif

}  // namespace vek::family
