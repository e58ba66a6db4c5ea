// BMP: file and memory bytes against an independent builder, round trips and refusals
// (Pillow as a peer lives with the TIFF peer tests).
#include "helpers.h"

using namespace filetest;

namespace {

// A BMP of `px` (top line first: indices when `eight`, else red, green, blue) from the
// format's own rules.
std::vector<uint8_t> expected_bmp(uint32_t w, uint32_t h, bool eight, const std::vector<uint8_t>& px,
                                  const uint8_t* cmap) {
  const uint32_t row = ((eight ? w : 3 * w) + 3) / 4 * 4, offset = eight ? 1078 : 54;
  std::vector<uint8_t> b{'B', 'M'};
  auto put = [&b](uint32_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) b.push_back(uint8_t(v >> (8 * i)));
  };
  for (uint32_t v : {row * h + offset, 0u, offset, 40u, w, h}) put(v, 4);
  put(1, 2);
  put(eight ? 8 : 24, 2);
  for (uint32_t v : {0u, row * h, 0u, 0u, 0u, 0u}) put(v, 4);
  if (eight)
    for (int i = 0; i < 256; ++i) b.insert(b.end(), {cmap[4 * i + 2], cmap[4 * i + 1], cmap[4 * i], 0});
  for (uint32_t y = h; y-- > 0;) {
    const size_t start = b.size();
    for (uint32_t x = 0; x < w; ++x) {
      const uint8_t* p = &px[(eight ? 1 : 3) * (y * w + x)];
      for (int k = eight ? 0 : 2; k >= 0; --k) b.push_back(p[k]);  // blue, green, red
    }
    b.resize(start + row, 0);
  }
  return b;
}

}  // namespace

// Files for every writable format, the memory writer for the formats it takes, and
// the reader giving back pixels, map and top line at any line alignment.
TEST(Bmp, WrittenBytesMatchTheFormatAndReadBack) {
  vektest::ErrorRecorder rec;
  const std::string path = scratch("layout.bmp");
  for (uint32_t format : {VEK_Y8, VEK_PALETTED, VEK_RGB24, VEK_BGRX32, VEK_BGR24, VEK_YUV422}) {
    for (uint32_t w : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 12u, 13u, 31u}) {
      // BGR24 and YUV rows come out exact only where 3 x width is a multiple of 4.
      if ((format == VEK_BGR24 || format == VEK_YUV422) && w % 4) continue;
      const uint32_t hgt = 2 + w % 5, align = 1u << w % 3;
      Image h(filled(format, w, hgt, w * 31 + format, format == VEK_BGR24 ? 2 : align));
      ASSERT_EQ(write_image(h, VEK_FILE_BMP, path), 0u);
      if (format == VEK_Y8) { for (int i = 0; i < 256; ++i) EXPECT_EQ(cmap_of(h)[4 * i], i); }  // a grey map
      const bool eight = format == VEK_Y8 || format == VEK_PALETTED;
      const auto want = expected_bmp(w, hgt, eight, picture(h), cmap_of(h));
      EXPECT_EQ(read_file(path), want) << "format " << format << " width " << w;
      if (format == VEK_PALETTED || format == VEK_RGB24) {
        Image back(VEK_image_create());
        VEK_image_set_parameter(back, VEK_PARAM_LINE_ALIGN, align);
        VEK_image_set_infilename(back, path.c_str());
        ASSERT_EQ(VEK_image_read(back, 0, VEK_STRIP_NEXT), 0u);
        EXPECT_EQ(pixels(back), pixels(h)) << w << " " << align;
        if (format == VEK_PALETTED) { EXPECT_EQ(0, std::memcmp(cmap_of(back), cmap_of(h), 1024)); }
      }
      if (eight || format == VEK_RGB24) {
        uint32_t size = 0;
        ASSERT_EQ(VEK_image_write_BMP_buffer(h, nullptr, &size), 0u);
        std::vector<uint8_t> buf(size + 16, 0xEE);
        ASSERT_EQ(VEK_image_write_BMP_buffer(h, buf.data(), &size), 0u);
        EXPECT_EQ(std::vector<uint8_t>(buf.begin(), buf.begin() + size), want) << format << " " << w;
        EXPECT_EQ(buf[size], 0xEE);  // nothing past the end
        uint32_t small = size - 1;
        EXPECT_EQ(VEK_image_write_BMP_buffer(h, buf.data(), &small), 0x10030000u);
        rec.clear();
      }
    }
  }
  EXPECT_EQ(rec.count(), 0u);
  Image h(vektest::make_image(VEK_BGR24, 4, 4));  // the file writer takes it, memory does not
  uint32_t size = 0;
  EXPECT_EQ(VEK_image_write_BMP_buffer(h, nullptr, &size), 0x10070008u);
  EXPECT_TRUE(rec.only("VEK_image_write_BMP_buffer", 0x10070008u, "Unsupported image format"));
}

// Regression merged in: the header-only modes refused a file whose rows were cut
// short, although they never read the rows.
TEST(Bmp, RefusalsAndHeaderOnlyModes) {
  const std::string path = scratch("good.bmp");
  Image rgb(vektest::make_image(VEK_RGB24, 5, 4));
  ASSERT_EQ(write_image(rgb, VEK_FILE_BMP, path), 0u);
  const auto file = read_file(path);
  struct Case { size_t at; std::vector<uint8_t> bytes; size_t size; uint32_t code; const char* message; };
  for (const Case& c : std::vector<Case>{
           {30, {1}, 0, 0x10070000, "Compressed images not supported"},
           {30, {2}, 0, 0x10070000, "Compressed images not supported"},
           {30, {3}, 0, 0x10070000, "Unrecognized compression type"},
           {28, {16}, 0, 0x10070000, "Unsupported image depth"},
           {28, {32}, 0, 0x10070000, "Unsupported image depth"},
           // Rows or header cut short; width 0; huge height, width or data offset.
           {0, {}, file.size() - 1, 0x10050000, nullptr}, {0, {}, 40, 0x10050000, nullptr},
           {18, {0, 0, 0, 0}, 0, 0x10050000, nullptr}, {22, {0xFF, 0xFF, 0xFF, 0x0F}, 0, 0x10050000, nullptr},
           {18, {0x00, 0x00, 0x01, 0x00}, 0, 0x10050000, nullptr},
           {10, {0xF0, 0xFF, 0xFF, 0x7F}, 0, 0x10050000, nullptr},
       })
    expect_refused(VEK_read_BMP_file, "VEK_read_BMP_file", patched(file, c.at, c.bytes, c.size), c.code, c.message);

  vektest::ErrorRecorder rec;
  Image pal(vektest::make_image(VEK_PALETTED, 9, 6));
  ASSERT_EQ(write_image(pal, VEK_FILE_BMP, path), 0u);
  write_file(path, patched(read_file(path), 0, {}, 1078 + 12));
  for (uint32_t mode : {0u, 4u}) {
    Image h(VEK_image_create());
    VEK_image_set_infilename(h, path.c_str());
    EXPECT_EQ(VEK_read_BMP_file(h, mode), 0u) << mode;
    EXPECT_EQ(param(h, VEK_PARAM_WIDTH) << 16 | param(h, VEK_PARAM_HEIGHT) << 8 | param(h, VEK_PARAM_FORMAT),
              9u << 16 | 6u << 8 | VEK_PALETTED) << mode;
    EXPECT_EQ(VEK_image_get_ptr(h, VEK_PTR_DATA), nullptr);
  }
  EXPECT_EQ(rec.count(), 0u);
  expect_refused(VEK_read_BMP_file, "VEK_read_BMP_file", read_file(path), 0x10050000);
}
