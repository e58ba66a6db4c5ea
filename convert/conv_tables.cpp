// Process-wide conversion tables: YUV to RGB16/RGB15, and RGB16, Y8, Y16 and YUV to
// palette index; their builders, the by-type interface with files, and the two
// table-driven conversions to paletted images.
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "convert/internal.h"
#include "core/alloc.h"

using namespace vek;
using namespace vek::conv;

namespace vek::conv {

namespace {
SharedTable g_tables[kTableCount];

constexpr size_t kYuvRgbBytes = 0x80000 * 2;

// Fixed byte sizes (the Y16 table's depends on the data width).
size_t table_size(int type, uint32_t data_width) {
  switch (type) {
    case VEK_LUT_RGB16_TO_PALETTED: return 65536;
    case VEK_LUT_Y8_TO_PALETTED: return 256;
    case VEK_LUT_Y16_TO_PALETTED: return size_t(1) << data_width;
    case VEK_LUT_YUV422_TO_RGB16:
    case VEK_LUT_YUV422_TO_RGB15: return kYuvRgbBytes;
    case VEK_LUT_YUV422_TO_PALETTED: return 32768;
    default: return 0;
  }
}

// Makes sure the table has a buffer of at least `size` bytes. An existing buffer is
// reused; a smaller one (a Y16 table built for a narrower width) is replaced so a
// wider image can never index past it.
bool reserve(SharedTable& t, size_t size) {
  if (t.data && t.size >= size) return true;
  auto* p = static_cast<uint8_t*>(vek::alloc(size));
  if (!p) return false;
  std::free(t.data);
  t.data = p;
  t.size = size;
  return true;
}

void release(int type) {
  SharedTable& t = shared_table(type);
  std::free(t.data);
  t = SharedTable{};
}

}  // namespace

SharedTable& shared_table(int type) { return g_tables[type - VEK_LUT_RGB16_TO_PALETTED]; }

uint32_t generate_yuv_rgb_table(bool rgb16, const char* name) {
  SharedTable& t = shared_table(rgb16 ? VEK_LUT_YUV422_TO_RGB16 : VEK_LUT_YUV422_TO_RGB15);
  {
    LibraryLock lock;
    if (!reserve(t, kYuvRgbBytes))
      return report(name, VEK_ERROR_MEMORY,
                    rgb16 ? "Unable to generate YUV to RGB16 LUT" : "Unable to generate YUV to RGB15 LUT");
  }
  auto* words = reinterpret_cast<uint16_t*>(t.data);
  // The dropped low bits of each component are taken as 0.
  for (uint32_t i = 0; i < 0x80000; ++i) {
    const Rgb c = yuv_to_rgb(int32_t((i >> 11) & 0xFE), int32_t((i >> 4) & 0xFC),
                             int32_t((i & 63) * 4));
    words[i] = rgb16 ? pack16(c.r, c.g, c.b) : pack15(c.r, c.g, c.b);
  }
  return VEK_OK;
}

void release_shared_tables() {
  LibraryLock lock;
  for (int type = VEK_LUT_RGB16_TO_PALETTED; type <= VEK_LUT_YUV422_TO_PALETTED; ++type)
    release(type);
  release_hue_table();
}

}  // namespace vek::conv

namespace {

// What a builder, or a load that has to allocate the table, says when memory runs out.
const char* alloc_message(uint32_t type) {
  switch (type) {
    case VEK_LUT_RGB16_TO_PALETTED: return "Unable to generate RGB16 to paletted LUT";
    case VEK_LUT_Y8_TO_PALETTED: return "Unable to generate Y8 to paletted LUT";
    case VEK_LUT_Y16_TO_PALETTED: return "Unable to generate Y16 to paletted LUT";
    case VEK_LUT_YUV422_TO_RGB16: return "Unable to generate YUV to RGB16 LUT";
    case VEK_LUT_YUV422_TO_RGB15: return "Unable to generate YUV to RGB15 LUT";
    default: return "Unable to generate YUV to paletted LUT";
  }
}

// Builds one of the palette-index tables from `image`'s colour map.
uint32_t build_paletted(const char* name, uint32_t image, int type) {
  const ImageRecord* rec = lookup(image);
  if (!rec) return report(name, VEK_ERROR_BAD_HANDLE);
  if (!rec->cmap) return report(name, VEK_ERROR_BAD_PARAMETER, "Colourmap is NULL");
  uint32_t data_width = 0;
  if (type == VEK_LUT_Y16_TO_PALETTED) {
    data_width = rec->data_width;
    if (data_width <= 8)
      return report(name, VEK_ERROR_BAD_PARAMETER, "data width should > 8 (and <= 16)");
    if (data_width > 16)
      return report(name, VEK_ERROR_BAD_PARAMETER, "data width should <= 16 (and > 8)");
  }
  SharedTable& t = shared_table(type);
  const size_t size = table_size(type, data_width);
  {
    LibraryLock lock;
    if (!reserve(t, size)) return report(name, VEK_ERROR_MEMORY, alloc_message(type));
  }
  const CmapEntry* map = rec->cmap;
  const uint32_t count = rec->cmap_size > kCmapEntries ? kCmapEntries : rec->cmap_size;
  uint8_t* out = t.data;
  switch (type) {
    case VEK_LUT_RGB16_TO_PALETTED:
      for (uint32_t w = 0; w < 65536; ++w) {
        const Rgb c = expand16(w);
        out[w] = uint8_t(closest_colour(map, count, c.r, c.g, c.b));
      }
      break;
    case VEK_LUT_Y8_TO_PALETTED:
      for (int32_t v = 0; v < 256; ++v) out[v] = uint8_t(closest_colour(map, count, v, v, v));
      break;
    case VEK_LUT_Y16_TO_PALETTED:
      for (uint32_t w = 0; w < size; ++w) {
        const int32_t g = int32_t((w >> (data_width - 8)) & 0xFF);
        out[w] = uint8_t(closest_colour(map, count, g, g, g));
      }
      break;
    default:
      for (uint32_t i = 0; i < 32768; ++i) {
        const Rgb c = yuv_to_rgb(int32_t((i >> 7) & 0xF8), int32_t((i >> 2) & 0xF8),
                                 int32_t((i & 31) * 8));
        out[i] = uint8_t(closest_colour(map, count, c.r, c.g, c.b));
      }
      break;
  }
  return VEK_OK;
}

int source_table(uint16_t format) {
  switch (format) {
    case VEK_RGB16: return VEK_LUT_RGB16_TO_PALETTED;
    case VEK_Y8: return VEK_LUT_Y8_TO_PALETTED;
    case VEK_Y16: return VEK_LUT_Y16_TO_PALETTED;
    case VEK_YUV422: return VEK_LUT_YUV422_TO_PALETTED;
    default: return 0;
  }
}

// Builds the source's table when it does not exist yet.
uint32_t begin_paletted(uint32_t source, const char* name) {
  const ImageRecord* src = lookup(source);
  const int type = src ? source_table(src->format) : 0;
  if (!type || shared_table(type).data) return VEK_OK;
  return build_paletted(name, source, type);
}
uint32_t begin_paletted_lut(uint32_t source) {
  return begin_paletted(source, "VEK_convert_to_paletted_LUT");
}
uint32_t begin_yuv_paletted_lut(uint32_t source) {
  return begin_paletted(source, "VEK_YUV422_to_paletted_LUT");
}

uint32_t paletted_worker(const Conversion& c, uint32_t source, uint32_t destination) {
  // Called directly, the worker may face a destination prepared for another format,
  // whose strip would be sized for other pixels than the kernel writes.
  if (const ImageRecord* dst = lookup(destination); dst && dst->format != VEK_PALETTED)
    return report(c.worker_name, VEK_ERROR_CORRUPT_IMAGE, "Corrupt image");
  RowParams p;
  RowKernel kernel = nullptr;
  if (const ImageRecord* src = lookup(source)) {
    const int type = source_table(src->format);
    if (type && (c.sources & bit(src->format))) {
      if (!shared_table(type).data) {
        uint32_t status = build_paletted(c.worker_name, source, type);
        if (is_error(status)) return status;
      }
      const SharedTable& t = shared_table(type);
      kernel = paletted_lut_kernel(src->format);
      p.table8 = t.data;
      p.table8_last = uint32_t(t.size - 1);
    }
  }
  // Like every conversion from YUV 4:2:2 other than those to grey and the direct one
  // to BGRX32, the YUV source runs through its strip as one stream of pairs and the
  // indices are written back to back, without line padding on either side.
  const ImageRecord* src = lookup(source);
  const Layout layout = src && src->format == VEK_YUV422 ? Layout::Contiguous : Layout::Pitch;
  return convert_strip(c.worker_name, source, destination, kernel, p, layout);
}

StripSequence g_seq_paletted_lut, g_seq_yuv_paletted_lut;

constexpr Conversion kPalettedLut = [] {
  Conversion c{};
  c.name = "VEK_convert_to_paletted_LUT";
  c.worker_name = "VEK_convert_to_paletted_LUT_1_strip";
  c.target = VEK_PALETTED;
  c.sources = bit(VEK_RGB16) | bit(VEK_Y8) | bit(VEK_Y16);
  c.sequence = &g_seq_paletted_lut;
  c.begin = begin_paletted_lut;
  c.worker = VEK_convert_to_paletted_LUT_1_strip;
  return c;
}();

constexpr Conversion kYuvPalettedLut = [] {
  Conversion c{};
  c.name = "VEK_YUV422_to_paletted_LUT";
  c.worker_name = "VEK_YUV422_to_paletted_LUT_1_strip";
  c.target = VEK_PALETTED;
  c.sources = bit(VEK_YUV422);
  c.sequence = &g_seq_yuv_paletted_lut;
  c.unsupported = "Not 16 bit YUV 4:2:2";
  c.odd_width = "YUV422 image must be an even width";
  c.begin = begin_yuv_paletted_lut;
  c.worker = VEK_YUV422_to_paletted_LUT_1_strip;
  return c;
}();

bool valid_type(uint32_t type) {
  return type >= VEK_LUT_RGB16_TO_PALETTED && type <= VEK_LUT_YUV422_TO_PALETTED;
}
bool wide_type(uint32_t type) {
  return type == VEK_LUT_YUV422_TO_RGB16 || type == VEK_LUT_YUV422_TO_RGB15;
}

}  // namespace

extern "C" {

VEK_API uint32_t VEK_convert_to_paletted_LUT(uint32_t source, uint32_t destination, uint32_t mode) {
  return run_conversion(kPalettedLut, source, destination, mode & 0xFFFFu);
}
VEK_API uint32_t VEK_convert_to_paletted_LUT_1_strip(uint32_t source, uint32_t destination) {
  return paletted_worker(kPalettedLut, source, destination);
}
VEK_API uint32_t VEK_YUV422_to_paletted_LUT(uint32_t source, uint32_t destination, uint32_t mode) {
  return run_conversion(kYuvPalettedLut, source, destination, mode & 0xFFFFu);
}
VEK_API uint32_t VEK_YUV422_to_paletted_LUT_1_strip(uint32_t source, uint32_t destination) {
  return paletted_worker(kYuvPalettedLut, source, destination);
}

VEK_API uint32_t VEK_generate_RGB16_to_paletted_LUT(uint32_t image) {
  return build_paletted("VEK_generate_RGB16_to_paletted_LUT", image, VEK_LUT_RGB16_TO_PALETTED);
}
VEK_API uint32_t VEK_generate_Y8_to_paletted_LUT(uint32_t image) {
  return build_paletted("VEK_generate_Y8_to_paletted_LUT", image, VEK_LUT_Y8_TO_PALETTED);
}
VEK_API uint32_t VEK_generate_Y16_to_paletted_LUT(uint32_t image) {
  return build_paletted("VEK_generate_Y16_to_paletted_LUT", image, VEK_LUT_Y16_TO_PALETTED);
}
VEK_API uint32_t VEK_generate_YUV422_to_paletted_LUT(uint32_t image) {
  return build_paletted("VEK_generate_YUV422_to_paletted_LUT", image, VEK_LUT_YUV422_TO_PALETTED);
}

VEK_API uint32_t VEK_destroy_RGB16_to_paletted_LUT(void) {
  LibraryLock lock;
  release(VEK_LUT_RGB16_TO_PALETTED);
  return VEK_OK;
}
VEK_API uint32_t VEK_destroy_Y8_to_paletted_LUT(void) {
  LibraryLock lock;
  release(VEK_LUT_Y8_TO_PALETTED);
  return VEK_OK;
}
VEK_API uint32_t VEK_destroy_Y16_to_paletted_LUT(void) {
  LibraryLock lock;
  release(VEK_LUT_Y16_TO_PALETTED);
  return VEK_OK;
}
VEK_API uint32_t VEK_destroy_YUV422_to_RGB16_LUT(void) {
  LibraryLock lock;
  release(VEK_LUT_YUV422_TO_RGB16);
  return VEK_OK;
}
VEK_API uint32_t VEK_destroy_YUV422_to_RGB15_LUT(void) {
  LibraryLock lock;
  release(VEK_LUT_YUV422_TO_RGB15);
  return VEK_OK;
}
VEK_API uint32_t VEK_destroy_YUV422_to_paletted_LUT(void) {
  LibraryLock lock;
  release(VEK_LUT_YUV422_TO_PALETTED);
  return VEK_OK;
}

VEK_API uint32_t VEK_image_conv_LUT_generate(uint32_t image, uint32_t type) {
  static const char kName[] = "VEK_image_conv_LUT_generate";
  if (!valid_type(type))
    return report(kName, VEK_ERROR_NOT_SUPPORTED,
                  "LUT function not available for this image pixel format");
  if (!lookup(image)) return report(kName, VEK_ERROR_BAD_HANDLE);
  switch (type) {
    case VEK_LUT_RGB16_TO_PALETTED: return VEK_generate_RGB16_to_paletted_LUT(image);
    case VEK_LUT_Y8_TO_PALETTED: return VEK_generate_Y8_to_paletted_LUT(image);
    case VEK_LUT_Y16_TO_PALETTED: return VEK_generate_Y16_to_paletted_LUT(image);
    case VEK_LUT_YUV422_TO_RGB16: return VEK_generate_YUV422_to_RGB16_LUT();
    case VEK_LUT_YUV422_TO_RGB15: return VEK_generate_YUV422_to_RGB15_LUT();
    default: return VEK_generate_YUV422_to_paletted_LUT(image);
  }
}

VEK_API uint32_t VEK_image_conv_LUT_destroy(uint32_t type) {
  if (!valid_type(type))
    return report("VEK_image_conv_LUT_destroy", VEK_ERROR_NOT_SUPPORTED,
                  "LUT function not available for this image pixel format");
  LibraryLock lock;
  release(int(type));
  return VEK_OK;
}

// Files hold the table's bytes and nothing else; 16-bit entries little-endian.
VEK_API uint32_t VEK_image_conv_LUT_save(uint32_t image, uint32_t type, const char* file_name) {
  static const char kName[] = "VEK_image_conv_LUT_save";
  if (!valid_type(type)) return report(kName, VEK_ERROR_BAD_PARAMETER, "Unrecognized LUT type");
  const ImageRecord* rec = lookup(image);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  const SharedTable& t = shared_table(int(type));
  if (!t.data) return report(kName, VEK_ERROR_BAD_STATE, "LUT has not been generated");
  if (!file_name) return report(kName, VEK_ERROR_OPEN_FAILED, "Failed to create file");
  size_t size = t.size;
  if (type == VEK_LUT_Y16_TO_PALETTED && rec->data_width > 8 && rec->data_width <= 16)
    size = table_size(int(type), rec->data_width) < t.size ? table_size(int(type), rec->data_width)
                                                            : t.size;
  FILE* f = std::fopen(file_name, "wb");
  if (!f) return report(kName, VEK_ERROR_OPEN_FAILED, "Failed to create file");
  bool ok = true;
  if (wide_type(type) && std::endian::native != std::endian::little) {
    const auto* words = reinterpret_cast<const uint16_t*>(t.data);
    for (size_t i = 0; ok && i < size / 2; ++i) {
      const uint8_t b[2] = {uint8_t(words[i]), uint8_t(words[i] >> 8)};
      ok = std::fwrite(b, 1, 2, f) == 2;
    }
  } else {
    ok = std::fwrite(t.data, 1, size, f) == size;
  }
  if (std::fclose(f) != 0 || !ok) return report(kName, VEK_ERROR_CLOSE_FAILED, "Failed to close file");
  return VEK_OK;
}

VEK_API uint32_t VEK_image_conv_LUT_load(uint32_t image, uint32_t type, const char* file_name) {
  static const char kName[] = "VEK_image_conv_LUT_load";
  if (!valid_type(type)) return report(kName, VEK_ERROR_BAD_PARAMETER, "Unrecognized LUT type");
  const ImageRecord* rec = lookup(image);
  if (!rec) return report(kName, VEK_ERROR_BAD_HANDLE);
  uint32_t data_width = 0;
  if (type == VEK_LUT_Y16_TO_PALETTED) {
    data_width = rec->data_width;
    if (data_width <= 8)
      return report(kName, VEK_ERROR_BAD_PARAMETER, "data width should > 8 (and <= 16)");
    if (data_width > 16)
      return report(kName, VEK_ERROR_BAD_PARAMETER, "data width should <= 16 (and > 8)");
  }
  const size_t size = table_size(int(type), data_width);
  FILE* f = file_name ? std::fopen(file_name, "rb") : nullptr;
  if (!f) return report(kName, VEK_ERROR_OPEN_FAILED, "Failed to create file");
  SharedTable& t = shared_table(int(type));
  {
    LibraryLock lock;
    if (!reserve(t, size)) {
      std::fclose(f);
      return report(kName, VEK_ERROR_MEMORY, alloc_message(type));
    }
  }
  // Never more than the table holds is stored; a longer file is detected by one
  // more byte being available.
  const size_t got = std::fread(t.data, 1, size, f);
  const bool longer = got == size && std::fgetc(f) != EOF;
  if (std::fclose(f) != 0) return report(kName, VEK_ERROR_CLOSE_FAILED, "Failed to close file");
  if (got != size || longer)
    return report(kName, VEK_ERROR_LUT_FILE_SIZE,
                  "Incorrect number of bytes read - correct LUT selected?");
  if (wide_type(type) && std::endian::native != std::endian::little) {
    auto* words = reinterpret_cast<uint16_t*>(t.data);
    for (size_t i = 0; i < size / 2; ++i) words[i] = load16(t.data + 2 * i);
  }
  return VEK_OK;
}

}  // extern "C"
