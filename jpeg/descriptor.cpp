// The JPEG descriptor (Tjpeg): creation, copies, data buffers, quality and
// quantisation tables, default Huffman tables and the process-wide table builds.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "jpeg/internal.h"

namespace vek::jpeg {

void build_code_tables(const Tjpeg& desc);
uint32_t build_default_decode_tables();

namespace {

struct CapacityRecord {
  const uint8_t* data;
  size_t capacity;
};
CapacityRecord g_capacity[kMaxHandles + 1];

constexpr const char kNotJpeg[] = "Not a JPEG image";

void load_default_huffman(Tjpeg& d) {
  std::memset(d.h_bits, 0, sizeof d.h_bits);
  std::memset(d.h_values, 0, sizeof d.h_values);
  for (int t = 0; t < 4; ++t) {
    std::memcpy(d.h_bits[t], kStdBits[t], 16);
    std::memcpy(d.h_values[t], kStdValues[t], kStdValueCount[t]);
  }
  d.h_segment_length = 416;
  const uint16_t ids[5] = {0x00, 0x01, 0x10, 0x11, 255};
  std::memcpy(d.h_table_id, ids, sizeof ids);
}

// Single-precision step of one table entry; a step that rounds to 0 (F above 32 times
// the entry) is raised to 1 so that it has a reciprocal and is a legal DQT entry.
uint8_t quant_step(uint16_t entry, float scale) {
  const float scaled = float(entry) * scale;
  const float v = scaled + 0.5f;
  long step = long(v);  // truncation toward zero
  if (step < 0) step = 0;
  if (step > 255) step = 255;
  if (step == 0) step = 1;
  return uint8_t(step);
}

void set_q_layout(Tjpeg& d) {
  d.q_segment_length = 132;
  d.q_table_count = 2;
  d.q_selector[0] = 0;
  d.q_selector[1] = 1;
  d.q_selector[2] = 1;
}

}  // namespace

void remember_capacity(uint32_t handle, const uint8_t* data, size_t capacity) {
  if (handle == 0 || handle > kMaxHandles) return;
  g_capacity[handle] = CapacityRecord{data, capacity};
}

size_t default_capacity(const ImageRecord& rec) {
  size_t size = size_t(rec.bytes_per_line) * rec.lines_per_strip + 10000;
  if (size < 4096) size = 4200;
  return size;
}

size_t data_capacity(uint32_t handle) {
  const ImageRecord* rec = lookup(handle);
  if (!rec || !rec->jpeg || !rec->jpeg->data) return 0;
  if (g_capacity[handle].data == rec->jpeg->data) return g_capacity[handle].capacity;
  return default_capacity(*rec);
}

uint32_t replace_data(uint32_t handle, size_t size) {
  ImageRecord* rec = lookup(handle);
  auto* buffer = static_cast<uint8_t*>(vek::alloc(size));
  if (!buffer) return VEK_ERROR_MEMORY | uint32_t(size & 0xFFFFu);
  VEK_JPEG_free_data(handle);
  rec->jpeg->data = buffer;
  rec->jpeg->current = buffer;
  remember_capacity(handle, buffer, size);
  return VEK_OK;
}

void init_tables() {
  // A descriptor on the stack stands in for the temporary colour image: only its
  // Huffman tables are used, and no handle is spent.
  static Tjpeg scratch;
  std::memset(&scratch, 0, sizeof scratch);
  load_default_huffman(scratch);
  {
    LibraryLock lock;
    build_code_tables(scratch);
  }
  build_default_decode_tables();
}

}  // namespace vek::jpeg

using namespace vek;
using namespace vek::jpeg;

extern "C" {

VEK_API uint32_t VEK_JPEG_image_create(void) {
  const uint32_t handle = VEK_image_create();
  if (is_error(handle)) return handle;
  auto* d = static_cast<Tjpeg*>(vek::alloc_zeroed(1, sizeof(Tjpeg)));
  // The image made above is deliberately kept (without descriptor): the caller gets
  // no handle back, and destroying all images reclaims it.
  if (!d) return report("VEK_JPEG_image_create", VEK_ERROR_MEMORY);
  std::memset(d->comment, ' ', sizeof d->comment);
  d->quality_factor = 32;
  lookup(handle)->jpeg = d;
  return handle;
}

VEK_API uint32_t VEK_JPEG_destroy_Tjpeg(uint32_t handle) {
  ImageRecord* rec = lookup(handle);
  if (!rec || !rec->jpeg) return VEK_OK;
  VEK_JPEG_free_data(handle);
  // A file left open for sequence access would otherwise outlive its only owner; a
  // caller's stream stays the caller's to close.
  if (rec->jpeg->file && owns_file(handle, rec->jpeg->file)) std::fclose(rec->jpeg->file);
  remember_own_file(handle, nullptr);
  std::free(rec->jpeg);
  rec->jpeg = nullptr;
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_malloc_data(uint32_t handle) {
  static const char kName[] = "VEK_JPEG_malloc_data";
  ImageRecord* rec = lookup(handle);
  if (!rec || !rec->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, kNotJpeg);
  LibraryLock lock;
  // Validation comes first, so a corrupt record is reported even when a locked
  // buffer would make the allocation itself a no-op.
  uint32_t status = VEK_image_check(handle);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  if ((rec->flags & VEK_FLAG_LOCKED) && rec->jpeg->data) return VEK_OK;
  uint64_t size = 0;
  if (FILE* f = rec->jpeg->file) {
    const long here = std::ftell(f);
    long length = -1;
    if (here >= 0 && std::fseek(f, 0, SEEK_END) == 0) {
      length = std::ftell(f);
      std::fseek(f, here, SEEK_SET);
    }
    size = length > 0 ? uint64_t(length) : 0;
    size += size & 1;
  } else {
    size = uint64_t(rec->bytes_per_line) * rec->lines_per_strip + 10000;
  }
  if (size < 4096) size = 4200;
  if (size > 0xFFFFFFFFull) return report(kName, VEK_ERROR_MEMORY | uint32_t(size & 0xFFFFu));
  status = replace_data(handle, size_t(size));
  if (is_error(status)) return report(kName, status);
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_malloc_N_bytes_data(uint32_t handle, uint32_t n) {
  static const char kName[] = "VEK_JPEG_malloc_N_bytes_data";
  ImageRecord* rec = lookup(handle);
  if (!rec || !rec->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, kNotJpeg);
  LibraryLock lock;
  // Validation comes first, so a corrupt record is reported even when a locked
  // buffer would make the allocation itself a no-op.
  uint32_t status = VEK_image_check(handle);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  if ((rec->flags & VEK_FLAG_LOCKED) && rec->jpeg->data) return VEK_OK;
  status = replace_data(handle, n);
  if (is_error(status)) return report(kName, status);
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_free_data(uint32_t handle) {
  ImageRecord* rec = lookup(handle);
  if (!rec || !rec->jpeg) return VEK_OK;
  LibraryLock lock;
  if (!(rec->flags & (VEK_FLAG_LOCKED | VEK_FLAG_EXTERNAL)) && rec->jpeg->data) {
    std::free(rec->jpeg->data);
    rec->jpeg->data = nullptr;
    rec->jpeg->current = nullptr;
    rec->jpeg->data_length = 0;
    remember_capacity(handle, nullptr, 0);
  }
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_copy_parameters(uint32_t src, uint32_t dst) {
  static const char kName[] = "VEK_JPEG_copy_parameters";
  const ImageRecord* s = lookup(src);
  ImageRecord* d = lookup(dst);
  if (!s || !d || !s->jpeg || !d->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE);
  if (s->jpeg == d->jpeg) return VEK_OK;
  FILE* file = d->jpeg->file;
  uint8_t* data = d->jpeg->data;
  uint8_t* current = d->jpeg->current;
  std::memcpy(d->jpeg, s->jpeg, sizeof(Tjpeg));
  d->jpeg->file = file;
  d->jpeg->data = data;
  d->jpeg->current = current;
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_set_image(uint32_t src, uint32_t dst) {
  static const char kName[] = "VEK_JPEG_set_image";
  const ImageRecord* s = lookup(src);
  if (!s) return report(kName, VEK_ERROR_BAD_HANDLE, "Input image does not exist");
  ImageRecord* d = lookup(dst);
  if (!d || !d->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, kNotJpeg);
  Tjpeg& j = *d->jpeg;
  j.q_table_count = 0;
  d->width = s->width;
  d->height = s->height;
  d->depth = s->depth;
  d->flags |= VEK_FLAG_JPEG;
  d->param18 = 1;
  d->lines_per_strip = s->lines_per_strip;
  j.precision = 8;
  const FormatTraits* t = format_traits(s->format);
  const bool mono = t && t->kind == kKindGrey;
  if (mono) {
    VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, VEK_Y8);
    j.h_sampling[0] = 1;
    j.v_sampling[0] = 1;
    j.frame_header_length = 11;
    j.scan_header_length = 8;
    j.scan_components = 1;
  } else {
    VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, VEK_YUV422);
    j.h_sampling[0] = 2;
    j.v_sampling[0] = 1;
    for (int c = 1; c < 3; ++c) j.h_sampling[c] = j.v_sampling[c] = 1;
    j.frame_header_length = 17;
    j.scan_header_length = 12;
    j.scan_components = 3;
  }
  j.spectral_start = 0;
  j.spectral_end = 63;
  j.approximation = 0;
  const uint32_t status = VEK_image_check(dst);
  if (is_error(status)) return report(kName, status, "Corrupt image - probably an internal error");
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_build_image(uint32_t src, uint32_t dst, uint32_t mode) {
  static const char kName[] = "VEK_JPEG_build_image";
  ImageRecord* s = lookup(src);
  if (!s) return report(kName, VEK_ERROR_BAD_HANDLE, "Input image does not exist");
  ImageRecord* d = lookup(dst);
  if (!d) return report(kName, VEK_ERROR_BAD_HANDLE, "Output image does not exist");
  if (!s->jpeg || !d->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, kNotJpeg);
  if (s->lines_per_strip == 0) return VEK_OK;
  uint32_t status = VEK_image_copy_parameters(src, dst);
  if (is_error(status)) return status;
  status = VEK_image_check(dst);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  d->jpeg->data_length = 0;
  d->lines_per_strip = s->height;
  VEK_JPEG_free_data(dst);
  status = VEK_JPEG_malloc_data(dst);
  if (is_error(status)) return status;
  if (mode == VEK_STRIP_NEXT) {
    const uint32_t length = s->jpeg->data ? s->jpeg->data_length : 0;
    if (length > data_capacity(dst)) {
      // The size rule can fall short of a poorly compressed source; never overrun.
      if (d->flags & VEK_FLAG_LOCKED) return report(kName, VEK_ERROR_MEMORY | (length & 0xFFFFu));
      status = replace_data(dst, length);
      if (is_error(status)) return report(kName, status);
    }
    if (length) std::memcpy(d->jpeg->data, s->jpeg->data, length);
    d->jpeg->data_length = length;
    if (s->lines_per_strip < s->height) return VEK_OK;
  } else if (mode != VEK_STRIP_END) {
    return VEK_OK;
  }
  d->jpeg->current = d->jpeg->data;
  if (!(d->flags & VEK_FLAG_LOCKED)) return VEK_JPEG_sequence_build(0, dst);
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_get_parameter(uint32_t handle, uint32_t id) {
  static const char kName[] = "VEK_JPEG_get_parameter";
  const ImageRecord* rec = lookup(handle);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  if (!rec->jpeg) return report(kName, VEK_ERROR_BAD_HANDLE, kNotJpeg);
  switch (id) {
    case VEK_JPEG_COMPONENTS: return rec->jpeg->scan_components;
    case VEK_JPEG_HEADER_LENGTH: return rec->jpeg->header_length;
    case VEK_JPEG_NUM_Q_TABLES: return rec->jpeg->q_table_count;
    default: return report(kName, VEK_ERROR_BAD_PARAMETER, "Unknown parameter");
  }
}

VEK_API uint32_t VEK_JPEG_set_Quality_factor(uint32_t handle, uint32_t factor) {
  static const char kName[] = "VEK_JPEG_set_Quality_factor";
  Tjpeg* d = descriptor(handle);
  if (!d) return report(kName, VEK_ERROR_BAD_HANDLE, kNotJpeg);
  const uint32_t f = factor & 0xFFFFu;
  if (f < 1 || f > 400) return report(kName, VEK_ERROR_BAD_PARAMETER, "Q factor of range");
  d->quality_factor = f;
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_set_Quantization_factor(uint32_t handle, uint32_t q) {
  static const char kName[] = "VEK_JPEG_set_Quantization_factor";
  Tjpeg* d = descriptor(handle);
  if (!d) return report(kName, VEK_ERROR_BAD_HANDLE, kNotJpeg);
  const uint32_t q16 = q & 0xFFFFu;
  if (q16 < 2 || q16 > 800) return report(kName, VEK_ERROR_BAD_PARAMETER, "Q factor of range");
  const float ratio = 50.0f / float(q16);
  const float f = ratio * 16.0f;
  d->quality_factor = uint32_t(f);
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_make_Q_tables(uint32_t handle) {
  Tjpeg* d = descriptor(handle);
  if (!d) return report("VEK_JPEG_make_Q_tables", VEK_ERROR_BAD_HANDLE, kNotJpeg);
  const uint32_t f = d->quality_factor ? d->quality_factor : 32;
  const float scale = 16.0f / float(f);
  for (int k = 0; k < 64; ++k) {
    const int n = kZigzag[k];
    const uint8_t luma = quant_step(kLumaQuant[n], scale);
    const uint8_t chroma = quant_step(kChromaQuant[n], scale);
    d->q_table[0][k] = luma;
    d->q_table[1][k] = chroma;
    d->q_reciprocal[0][k] = (luma / 2u + 65536u) / luma;
    d->q_reciprocal[1][k] = (chroma / 2u + 65536u) / chroma;
  }
  set_q_layout(*d);
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_Q_table_to_zero(uint32_t handle) {
  Tjpeg* d = descriptor(handle);
  if (!d) return report("VEK_JPEG_Q_table_to_zero", VEK_ERROR_BAD_HANDLE, kNotJpeg);
  std::memset(d->q_table[0], 0, 2 * 64);
  std::memset(d->q_reciprocal, 0, sizeof d->q_reciprocal);
  set_q_layout(*d);
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_set_default_H_tables(uint32_t handle) {
  Tjpeg* d = descriptor(handle);
  if (!d) return report("VEK_JPEG_set_default_H_tables", VEK_ERROR_BAD_HANDLE, kNotJpeg);
  load_default_huffman(*d);
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_generate_H_codetable_LUTs(uint32_t handle) {
  Tjpeg* d = descriptor(handle);
  if (!d) return report("VEK_JPEG_generate_H_codetable_LUTs", VEK_ERROR_BAD_HANDLE, kNotJpeg);
  LibraryLock lock;
  build_code_tables(*d);
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_generate_Huffman_decode_tables(void) {
  LibraryLock lock;
  const uint32_t status = build_default_decode_tables();
  if (is_error(status))
    return report("VEK_JPEG_generate_Huffman_decode_tables", status | (65536u * sizeof(AcEntry) & 0xFFFFu));
  return VEK_OK;
}

VEK_API uint32_t VEK_JPEG_Q_table_print(uint32_t handle) {
  if (!descriptor(handle)) return report("VEK_JPEG_Q_table_print", VEK_ERROR_BAD_HANDLE, kNotJpeg);
  return VEK_OK;
}

VEK_API uint32_t VEK_print_Huffman_tables(uint32_t handle) {
  if (!descriptor(handle))
    return report("VEK_print_Huffman_tables", VEK_ERROR_BAD_HANDLE | 1u, "Not a JPEG type image");
  return VEK_OK;
}

}  // extern "C"
