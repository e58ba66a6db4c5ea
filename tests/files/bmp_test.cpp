// BMP: file bytes against an independent builder, round trips, the memory writer,
// refusals, and Pillow as a peer in both directions.
#include "helpers.h"

using namespace filetest;

namespace {

void put(std::vector<uint8_t>& b, uint32_t v, int bytes) {
  for (int i = 0; i < bytes; ++i) b.push_back(uint8_t(v >> (8 * i)));
}

// A BMP of `px` (top line first: indices when `eight`, else red, green, blue) from the
// format's own rules.
std::vector<uint8_t> expected_bmp(uint32_t w, uint32_t h, bool eight, const std::vector<uint8_t>& px,
                                  const uint8_t* cmap) {
  const uint32_t row = ((eight ? w : 3 * w) + 3) / 4 * 4, offset = eight ? 1078 : 54;
  std::vector<uint8_t> b{'B', 'M'};
  for (uint32_t v : {row * h + offset, 0u, offset, 40u, w, h}) put(b, v, 4);
  put(b, 1, 2);
  put(b, eight ? 8 : 24, 2);
  for (uint32_t v : {0u, row * h, 0u, 0u, 0u, 0u}) put(b, v, 4);
  if (eight)
    for (int i = 0; i < 256; ++i) b.insert(b.end(), {cmap[4 * i + 2], cmap[4 * i + 1], cmap[4 * i], 0});
  for (uint32_t y = h; y-- > 0;) {
    const size_t start = b.size();
    for (uint32_t x = 0; x < w; ++x) {
      const uint8_t* p = &px[(eight ? 1 : 3) * (y * w + x)];
      if (eight) b.push_back(p[0]);
      else b.insert(b.end(), {p[2], p[1], p[0]});
    }
    b.resize(start + row, 0);
  }
  return b;
}

uint32_t read_bmp(const std::string& path, uint32_t align, uint32_t mode = VEK_STRIP_NEXT, uint32_t* status = nullptr) {
  const uint32_t h = VEK_image_create();
  VEK_image_set_parameter(h, VEK_PARAM_LINE_ALIGN, align);
  VEK_image_set_infilename(h, path.c_str());
  const uint32_t s = VEK_image_read(h, 0, mode);  // through the dispatch
  if (status) *status = s;
  else EXPECT_EQ(s, 0u) << path;
  return h;
}

}  // namespace

TEST(Bmp, WrittenFilesMatchTheFormatByteForByte) {
  vektest::ErrorRecorder rec;
  const std::string path = scratch("layout.bmp");
  for (uint32_t format : {VEK_Y8, VEK_PALETTED, VEK_RGB24, VEK_BGRX32, VEK_BGR24, VEK_YUV422}) {
    for (uint32_t w : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 12u, 13u}) {
      // BGR24 and YUV rows come out exact only where 3 x width is a multiple of 4.
      if ((format == VEK_BGR24 || format == VEK_YUV422) && w % 4) continue;
      const uint32_t hgt = 1 + w % 4;
      uint32_t h = vektest::make_image(format, w, hgt);
      vektest::fill_random(h, w * 31 + format);
      if (format == VEK_PALETTED) random_cmap(h, w);
      ASSERT_EQ(write_image(h, VEK_FILE_BMP, path), 0u);
      if (format == VEK_Y8) {  // written with a grey map
        for (int i = 0; i < 256; ++i) EXPECT_EQ(cmap_of(h)[4 * i], i);
      }
      const bool eight = format == VEK_Y8 || format == VEK_PALETTED;
      EXPECT_EQ(read_file(path), expected_bmp(w, hgt, eight, picture(h), cmap_of(h)))
          << "format " << format << " width " << w;
      VEK_image_destroy(h);
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(Bmp, ReadBackKeepsPixelsMapAndTopLine) {
  vektest::ErrorRecorder rec;
  const std::string path = scratch("round.bmp");
  for (uint32_t format : {VEK_PALETTED, VEK_RGB24})
    for (uint32_t w : {1u, 5u, 6u, 31u})
      for (uint32_t align : {1u, 2u, 4u}) {
        uint32_t h = vektest::make_image(format, w, 7, 0, align);
        vektest::fill_random(h, w + align);
        random_cmap(h, w);
        ASSERT_EQ(write_image(h, VEK_FILE_BMP, path), 0u);
        uint32_t back = read_bmp(path, align);
        EXPECT_EQ(param(back, VEK_PARAM_FORMAT), format);
        EXPECT_EQ(param(back, VEK_PARAM_STRIP_LINES), 7u);
        const size_t bpp = format == VEK_RGB24 ? 3 : 1;
        EXPECT_EQ(pixels(back, bpp), pixels(h, bpp)) << w << " " << align;
        if (format == VEK_PALETTED) { EXPECT_EQ(0, std::memcmp(cmap_of(back), cmap_of(h), 1024)); }
        VEK_image_destroy(back);
        VEK_image_destroy(h);
      }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(Bmp, MemoryWriterGivesTheFileBytes) {
  const std::string path = scratch("mem.bmp");
  vektest::ErrorRecorder rec;
  for (uint32_t format : {VEK_Y8, VEK_PALETTED, VEK_RGB24}) {
    uint32_t h = vektest::make_image(format, 11, 5);
    vektest::fill_random(h, format);
    ASSERT_EQ(write_image(h, VEK_FILE_BMP, path), 0u);
    const auto file = read_file(path);
    uint32_t size = 0;
    ASSERT_EQ(VEK_image_write_BMP_buffer(h, nullptr, &size), 0u);
    ASSERT_EQ(size, file.size());
    std::vector<uint8_t> buf(size + 16, 0xEE);
    ASSERT_EQ(VEK_image_write_BMP_buffer(h, buf.data(), &size), 0u);
    EXPECT_TRUE(std::equal(file.begin(), file.end(), buf.begin()));
    EXPECT_EQ(buf[size], 0xEE);  // nothing past the end
    uint32_t small = size - 1;
    EXPECT_EQ(VEK_image_write_BMP_buffer(h, buf.data(), &small), 0x10030000u);
    VEK_image_destroy(h);
  }
  rec.clear();
  uint32_t h = vektest::make_image(VEK_BGR24, 4, 4);
  uint32_t size = 0;
  EXPECT_EQ(VEK_image_write_BMP_buffer(h, nullptr, &size), 0x10070008u);
  EXPECT_TRUE(rec.only("VEK_image_write_BMP_buffer", 0x10070008u, "Unsupported image format"));
  VEK_image_destroy(h);
}

TEST(Bmp, UnsupportedAndDamagedFilesAreRefused) {
  const std::string good = scratch("good.bmp");
  uint32_t src = vektest::make_image(VEK_RGB24, 5, 4);
  ASSERT_EQ(write_image(src, VEK_FILE_BMP, good), 0u);
  const auto file = read_file(good);
  struct Case {
    size_t at;
    std::vector<uint8_t> bytes;
    size_t size;
    uint32_t code;
    const char* message;
  };
  for (const Case& c : std::vector<Case>{
           {30, {1}, 0, 0x10070000, "Compressed images not supported"},
           {30, {2}, 0, 0x10070000, "Compressed images not supported"},
           {30, {3}, 0, 0x10070000, "Unrecognized compression type"},
           {28, {16}, 0, 0x10070000, "Unsupported image depth"},
           {28, {32}, 0, 0x10070000, "Unsupported image depth"},
           {0, {}, file.size() - 1, 0x10050000, "Image data extends beyond end of file"},
           {18, {0, 0, 0, 0}, 0, 0x10050000, "Invalid BMP image size"},
           {22, {0xFF, 0xFF, 0xFF, 0x0F}, 0, 0x10050000, "Image data extends beyond end of file"},
           {18, {0x00, 0x00, 0x01, 0x00}, 0, 0x10050000, "Image data extends beyond end of file"},
           {10, {0xF0, 0xFF, 0xFF, 0x7F}, 0, 0x10050000, "Image data extends beyond end of file"},
           {0, {}, 40, 0x10050000, "Invalid BMP header"},
       })
    expect_refused(VEK_read_BMP_file, "VEK_read_BMP_file", patched(file, c.at, c.bytes, c.size), c.message, c.code);
  vektest::ErrorRecorder rec;
  uint32_t y16 = vektest::make_image(VEK_Y16, 4, 4);
  EXPECT_EQ(write_image(y16, VEK_FILE_BMP, scratch("y16.bmp")), 0x1007000Eu);
  EXPECT_TRUE(rec.only("VEK_write_BMP_file", 0x1007000Eu, "Unsupported image format"));
  VEK_image_destroy(y16);
  VEK_image_destroy(src);
}

// Regression: the header-only modes refused a file whose rows were cut short, although
// they never read the rows.
TEST(Bmp, HeaderOnlyModesDescribeWithoutReading) {
  const std::string path = scratch("hdr.bmp");
  uint32_t src = vektest::make_image(VEK_PALETTED, 9, 6);
  ASSERT_EQ(write_image(src, VEK_FILE_BMP, path), 0u);
  write_file(path, patched(read_file(path), 0, {}, 1078 + 12));
  vektest::ErrorRecorder rec;
  for (uint32_t mode : {0u, 4u}) {
    uint32_t h = read_bmp(path, 2, mode);
    EXPECT_EQ(param(h, VEK_PARAM_WIDTH) << 16 | param(h, VEK_PARAM_HEIGHT), 9u << 16 | 6u) << mode;
    EXPECT_EQ(param(h, VEK_PARAM_FORMAT), uint32_t(VEK_PALETTED));
    EXPECT_EQ(VEK_image_get_ptr(h, VEK_PTR_DATA), nullptr);
    VEK_image_destroy(h);
  }
  EXPECT_EQ(rec.count(), 0u);
  expect_refused(VEK_read_BMP_file, "VEK_read_BMP_file", read_file(path), "Image data extends beyond end of file");
  VEK_image_destroy(src);
}

// ---- Pillow as a peer ----

TEST(BmpPeer, PillowReadsOurFilesWithIdenticalPixels) {
  if (!have_pillow()) GTEST_SKIP() << "/usr/bin/python3 with PIL not available";
  const std::string path = scratch("peer_out.bmp"), raw = scratch("peer_out.rgb");
  for (uint32_t format : {VEK_Y8, VEK_PALETTED, VEK_RGB24, VEK_BGRX32})
    for (uint32_t w : {1u, 5u, 10u, 33u}) {
      uint32_t h = vektest::make_image(format, w, 9);
      vektest::fill_random(h, w ^ format);
      random_cmap(h, w + 1);
      ASSERT_EQ(write_image(h, VEK_FILE_BMP, path), 0u);
      ASSERT_EQ(python("from PIL import Image\nopen('" + raw + "','wb').write(Image.open('" + path +
                       "').convert('RGB').tobytes())\n"),
                0);
      EXPECT_EQ(read_file(raw), seen_rgb(h)) << "format " << format << " width " << w;
      VEK_image_destroy(h);
    }
}

TEST(BmpPeer, FilesWrittenByPillowReadWithIdenticalPixels) {
  if (!have_pillow()) GTEST_SKIP() << "/usr/bin/python3 with PIL not available";
  const std::string dir = vektest::scratch_dir();
  // Pillow writes each picture and, beside it, the RGB bytes it means.
  ASSERT_EQ(python("import random\nfrom PIL import Image\nrandom.seed(7)\n"
                   "for mode in ('P','L','RGB'):\n"
                   "  for w in (1,3,6,17):\n"
                   "    n = w*5*(3 if mode=='RGB' else 1)\n"
                   "    im = Image.frombytes(mode,(w,5),bytes(random.randrange(256) for _ in range(n)))\n"
                   "    if mode=='P': im.putpalette([random.randrange(256) for _ in range(768)])\n"
                   "    base = '" + dir + "pil_%s_%d' % (mode, w)\n"
                   "    im.save(base + '.bmp')\n"
                   "    open(base + '.rgb','wb').write(im.convert('RGB').tobytes())\n"),
            0);
  vektest::ErrorRecorder rec;
  for (const char* mode : {"P", "L", "RGB"})
    for (int w : {1, 3, 6, 17}) {
      const std::string base = dir + "pil_" + mode + "_" + std::to_string(w);
      uint32_t h = read_image(base + ".bmp");
      ASSERT_NE(h, 0u) << base;
      EXPECT_EQ(seen_rgb(h), read_file(base + ".rgb")) << base;
      VEK_image_destroy(h);
    }
  EXPECT_EQ(rec.count(), 0u);
}
