// Intensity look-up tables: per-component maps of sample values, shaped by
// brightness, contrast, gamma and colour gains, and applied to images.
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "convert/internal.h"
#include "core/alloc.h"

using namespace vek;
using namespace vek::conv;

namespace {

constexpr uint32_t kMaxLuts = 15;

// Arrays are always allocated at full capacity (256 bytes or 65536 words), the
// entries past the element count staying the identity, so any sample value indexes
// inside them whatever count the table was created with.
struct LutRecord {
  uint32_t elements;
  uint16_t element_size;
  uint8_t* a8[4];    // grey, red, green, blue
  uint16_t* a16[4];  // same order, 2-byte tables
  int16_t brightness, contrast, gamma, red_gain, green_gain, blue_gain;
};

LutRecord* g_luts[kMaxLuts + 2];

enum { kGrey, kRed, kGreen, kBlue };

uint32_t capacity(uint16_t size) { return size == 1 ? 256u : 65536u; }

void fill_identity(LutRecord& t) {
  const uint32_t n = capacity(t.element_size);
  for (int c = 0; c < 4; ++c)
    for (uint32_t i = 0; i < n; ++i) {
      if (t.element_size == 1) t.a8[c][i] = uint8_t(i);
      else t.a16[c][i] = uint16_t(i);
    }
}

void free_record(LutRecord* t) {
  if (!t) return;
  for (int c = 0; c < 4; ++c) {
    std::free(t->a8[c]);
    std::free(t->a16[c]);
  }
  std::free(t);
}

LutRecord* table_of(uint32_t handle) { return handle >= 1 && handle <= kMaxLuts ? g_luts[handle] : nullptr; }

int16_t clamp16(int32_t v, int32_t lo, int32_t hi) { return int16_t(v < lo ? lo : (v > hi ? hi : v)); }

// Stored element: the value clamped to the table's range, truncated toward zero.
uint32_t element(double v, uint16_t size, uint32_t n) {
  const double hi = size == 1 ? 255.0 : double(n - 1);
  if (!(v > 0)) return 0;
  if (v >= hi) return uint32_t(hi);
  return uint32_t(v);
}

struct Arrays {
  const uint8_t *grey, *red, *green, *blue;
};

void apply_yuv(const uint8_t* s, uint8_t* d, uint32_t width, const Arrays& a, bool neutral) {
  uint32_t x = 0;
  for (; x + 1 < width; x += 2, s += 4, d += 4) {
    if (neutral) {
      d[0] = a.grey[s[0]];
      d[1] = s[1];
      d[2] = a.grey[s[2]];
      d[3] = s[3];
      continue;
    }
    Yuv out[2];
    for (int i = 0; i < 2; ++i) {
      const Rgb c = yuv_to_rgb(s[2 * i], s[1], s[3]);
      out[i] = rgb_to_yuv(a.red[c.r], a.green[c.g], a.blue[c.b]);
    }
    d[0] = out[0].y;
    d[1] = uint8_t((out[0].u + out[1].u) >> 1);
    d[2] = out[1].y;
    d[3] = uint8_t((out[0].v + out[1].v) >> 1);
  }
  if (x < width) std::memcpy(d, s, 2);  // an odd trailing pixel is passed through
}

}  // namespace

extern "C" {

VEK_API uint32_t VEK_LUT_create(uint32_t elements, uint32_t element_size) {
  static const char kName[] = "VEK_LUT_create";
  LibraryLock lock;
  uint32_t handle = 1;
  while (handle <= kMaxLuts && g_luts[handle]) ++handle;
  if (handle > kMaxLuts) return report(kName, VEK_ERROR_OUT_OF_HANDLES);
  if (element_size == 1 && elements > 256)
    return report(kName, VEK_ERROR_BAD_PARAMETER | 1, "too many LUT elements");
  if (element_size == 2 && elements > 65536)
    return report(kName, VEK_ERROR_BAD_PARAMETER | 2, "too many LUT elements");
  if (element_size != 1 && element_size != 2)
    return report(kName, VEK_ERROR_BAD_PARAMETER | 3, "element size must be 1 or 2 bytes");
  auto* t = static_cast<LutRecord*>(vek::alloc_zeroed(1, sizeof(LutRecord)));
  if (!t) return report(kName, VEK_ERROR_MEMORY);
  t->elements = elements;
  t->element_size = uint16_t(element_size);
  t->brightness = t->contrast = t->gamma = t->red_gain = t->green_gain = t->blue_gain = 100;
  const size_t bytes = size_t(capacity(t->element_size)) * element_size;
  for (int c = 0; c < 4; ++c) {
    void* p = vek::alloc(bytes);
    if (!p) {
      free_record(t);
      return report(kName, VEK_ERROR_MEMORY | uint32_t(bytes & 0xFFFF));
    }
    if (element_size == 1) t->a8[c] = static_cast<uint8_t*>(p);
    else t->a16[c] = static_cast<uint16_t*>(p);
  }
  fill_identity(*t);
  g_luts[handle] = t;
  return handle;
}

VEK_API uint32_t VEK_LUT_generate(uint32_t handle, int32_t brightness, int32_t contrast, int32_t gamma,
                                  int32_t red_gain, int32_t green_gain, int32_t blue_gain) {
  LutRecord* t = table_of(handle);
  if (!t) return report("VEK_LUT_generate", VEK_ERROR_BAD_HANDLE);
  // Parameters are signed 16-bit percentages.
  t->brightness = clamp16(int16_t(brightness), 0, 200);
  t->contrast = clamp16(int16_t(contrast), 0, 200);
  t->gamma = clamp16(int16_t(gamma), 25, 400);
  t->red_gain = clamp16(int16_t(red_gain), 0, 200);
  t->green_gain = clamp16(int16_t(green_gain), 0, 200);
  t->blue_gain = clamp16(int16_t(blue_gain), 0, 200);
  if (t->brightness == 100 && t->contrast == 100 && t->gamma == 100 && t->red_gain == 100 &&
      t->green_gain == 100 && t->blue_gain == 100) {
    fill_identity(*t);
    return VEK_OK;
  }
  const uint32_t n = t->elements;
  const uint16_t size = t->element_size;
  const double e = 100.0 / t->gamma;
  const double h = double(n / 2);
  const double gains[4] = {1.0, 1.0 + (t->red_gain - 100) / 100.0, 1.0 + (t->green_gain - 100) / 100.0,
                           1.0 + (t->blue_gain - 100) / 100.0};
  for (int c = 0; c < 4; ++c) {
    if (size == 1) t->a8[c][0] = 0;
    else t->a16[c][0] = 0;
  }
  const double ln_n = n ? std::log(double(n)) : 0.0;
  for (uint32_t i = 1; i < n; ++i) {
    double v = std::exp(e * std::log(double(i)) - (e - 1) * ln_n);
    v = (v - h) * (t->contrast / 100.0) + h + t->brightness * 0.5 - 50;
    for (int c = 0; c < 4; ++c) {
      const uint32_t out = element(gains[c] * v, size, n);
      if (size == 1) t->a8[c][i] = uint8_t(out);
      else t->a16[c][i] = uint16_t(out);
    }
  }
  return VEK_OK;
}

VEK_API void* VEK_LUT_get_ptr(uint32_t handle, uint32_t component) {
  LutRecord* t = table_of(handle);
  if (!t) return nullptr;
  int c;
  switch (component) {
    case VEK_LUT_GREY: c = kGrey; break;
    case VEK_LUT_RED: c = kRed; break;
    case VEK_LUT_GREEN: c = kGreen; break;
    case VEK_LUT_BLUE: c = kBlue; break;
    default: return nullptr;
  }
  return t->element_size == 1 ? static_cast<void*>(t->a8[c]) : static_cast<void*>(t->a16[c]);
}

VEK_API uint32_t VEK_LUT_apply(uint32_t source, uint32_t destination, uint32_t handle) {
  static const char kName[] = "VEK_LUT_apply";
  uint32_t status = VEK_image_check(source);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  const ImageRecord* src = lookup(source);
  if (src->lines_per_strip == 0) return VEK_image_copy(source, destination);
  const LutRecord* t = table_of(handle);
  if (!t) return report(kName, VEK_ERROR_BAD_HANDLE, "No such LUT");
  const uint16_t f = src->format;
  const bool byte_format = f == VEK_YUV422 || f == VEK_Y8 || f == VEK_RGB24 || f == VEK_RGB16 ||
                           f == VEK_RGB15 || f == VEK_RGGB32 || f == VEK_RGB8;
  if (t->element_size == 1 ? !byte_format : f != VEK_Y16)
    return report(kName, VEK_ERROR_NOT_SUPPORTED | f, "Unsupported image format");
  if (source == destination)
    return report(kName, VEK_ERROR_BAD_PARAMETER, "Source and destination must differ");
  if (!src->data) return report(kName, kNoData, "No image data");
  status = VEK_image_copy_parameters(source, destination);
  if (is_error(status)) return status;
  status = VEK_image_check(destination);
  if (is_error(status)) return report(kName, status, "Corrupt image");
  VEK_image_free_data(destination);
  status = VEK_image_malloc_a_strip(destination);
  if (is_error(status)) return status;
  const ImageRecord* dst = lookup(destination);
  const uint32_t width = src->width, lines = src->lines_per_strip;
  size_t row = 0;
  if (!checked_size(width, pixel_bytes(f), 1, row) || row > src->bytes_per_line ||
      row > dst->bytes_per_line || lines > dst->lines_per_strip)
    return report(kName, VEK_ERROR_CORRUPT_IMAGE, "Corrupt image");

  const Arrays a{t->a8[kGrey], t->a8[kRed], t->a8[kGreen], t->a8[kBlue]};
  const bool neutral = t->red_gain == 100 && t->green_gain == 100 && t->blue_gain == 100;
  for (uint32_t y = 0; y < lines; ++y) {
    const uint8_t* s = src->data + size_t(y) * src->bytes_per_line;
    uint8_t* d = dst->data + size_t(y) * dst->bytes_per_line;
    switch (f) {
      case VEK_Y8:
        for (uint32_t x = 0; x < width; ++x) d[x] = a.grey[s[x]];
        break;
      case VEK_RGB24:
        for (uint32_t x = 0; x < 3 * width; x += 3) {
          d[x] = a.red[s[x]];
          d[x + 1] = a.green[s[x + 1]];
          d[x + 2] = a.blue[s[x + 2]];
        }
        break;
      case VEK_RGB15:
        for (uint32_t x = 0; x < width; ++x) {
          const uint32_t w = load16(s + 2 * x);
          const uint32_t r = a.red[(w >> 7) & 0xF8], g = a.green[(w >> 2) & 0xF8], b = a.blue[(w & 0x1F) * 8];
          store16(d + 2 * x, (r >> 3) << 10 | (g & 0xF8) << 2 | b >> 3);
        }
        break;
      case VEK_RGB16:
        for (uint32_t x = 0; x < width; ++x) {
          const uint32_t w = load16(s + 2 * x);
          const uint32_t r = a.red[(w >> 8) & 0xF8], g = a.green[(w >> 3) & 0xFC], b = a.blue[(w & 0x1F) * 8];
          store16(d + 2 * x, pack16(r, g, b));
        }
        break;
      case VEK_RGB8:
        for (uint32_t x = 0; x < width; ++x) {
          const uint32_t p = s[x];
          const uint32_t r = a.red[p & 0xE0], g = a.green[(p & 0x1C) * 8], b = a.blue[(p & 3) * 64];
          d[x] = uint8_t((r & 0xE0) | ((g & 0xE0) >> 3) | (b >> 6));
        }
        break;
      case VEK_RGGB32: {
        // Even lines hold red/green cells, odd lines green/blue.
        const uint8_t* even = (y & 1) ? a.green : a.red;
        const uint8_t* odd = (y & 1) ? a.blue : a.green;
        for (uint32_t x = 0; x < width; ++x) d[x] = (x & 1) ? odd[s[x]] : even[s[x]];
        break;
      }
      case VEK_Y16:
        for (uint32_t x = 0; x < width; ++x) store16(d + 2 * x, t->a16[kGrey][load16(s + 2 * x)]);
        break;
      case VEK_YUV422:
        apply_yuv(s, d, width, a, neutral);
        break;
      default:
        return report(kName, VEK_ERROR_NOT_SUPPORTED, "Unsupported image type");
    }
  }
  return VEK_OK;
}

VEK_API uint32_t VEK_LUT_destroy(uint32_t handle) {
  LibraryLock lock;
  if (handle == VEK_ALL_IMAGES) {
    for (uint32_t h = 1; h <= kMaxLuts + 1; ++h) {
      free_record(g_luts[h]);
      g_luts[h] = nullptr;
    }
    return VEK_OK;
  }
  if (handle <= kMaxLuts + 1) {
    free_record(g_luts[handle]);
    g_luts[handle] = nullptr;
  }
  return VEK_OK;
}

VEK_API uint32_t VEK_IP_LUT_Apply(uint32_t source, uint32_t destination, uint32_t handle) {
  return VEK_LUT_apply(source, destination, handle);
}

VEK_API uint32_t VEK_LUT_Create(uint32_t* handle, uint32_t elements, uint32_t element_size) {
  const uint32_t result = VEK_LUT_create(elements, element_size);
  if (handle) *handle = result;
  return VEK_OK;
}

VEK_API uint32_t VEK_LUT_ParameterPtrGet(uint32_t handle, uint32_t component, void** pointer) {
  void* p = VEK_LUT_get_ptr(handle, component);
  if (pointer) *pointer = p;
  return VEK_OK;
}

}  // extern "C"
