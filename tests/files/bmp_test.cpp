// BMP: byte layout against an independent builder, round trips, the memory writer,
// refusals of what the reader does not handle, and Pillow as a peer in both directions.
#include "helpers.h"

using namespace filetest;

namespace {

void put32(std::vector<uint8_t>& b, uint32_t v) {
  for (int i = 0; i < 4; ++i) b.push_back(uint8_t(v >> (8 * i)));
}
void put16(std::vector<uint8_t>& b, uint32_t v) {
  b.push_back(uint8_t(v));
  b.push_back(uint8_t(v >> 8));
}

// What a BMP of this picture looks like, from the file format's own rules: `rgb`
// holds the picture top line first, three bytes a pixel (or one for 8-bit).
std::vector<uint8_t> expected_bmp(uint32_t w, uint32_t h, bool eight, const std::vector<uint8_t>& px,
                                  const uint8_t* cmap) {
  const uint32_t row = ((eight ? w : 3 * w) + 3) / 4 * 4;
  const uint32_t offset = eight ? 1078 : 54;
  std::vector<uint8_t> b{'B', 'M'};
  put32(b, row * h + offset);
  put32(b, 0);
  put32(b, offset);
  put32(b, 40);
  put32(b, w);
  put32(b, h);
  put16(b, 1);
  put16(b, eight ? 8 : 24);
  put32(b, 0);
  put32(b, row * h);
  for (int i = 0; i < 4; ++i) put32(b, 0);
  if (eight)
    for (int i = 0; i < 256; ++i) b.insert(b.end(), {cmap[4 * i + 2], cmap[4 * i + 1], cmap[4 * i], 0});
  for (uint32_t y = h; y-- > 0;) {
    const size_t start = b.size();
    for (uint32_t x = 0; x < w; ++x) {
      if (eight) {
        b.push_back(px[y * w + x]);
      } else {
        const uint8_t* p = &px[3 * (y * w + x)];
        b.insert(b.end(), {p[2], p[1], p[0]});
      }
    }
    b.resize(start + row, 0);
  }
  return b;
}

// The picture as R, G, B triples (or indices), built from the image's own bytes.
std::vector<uint8_t> rgb_of(uint32_t h, uint32_t format) {
  const uint32_t w = param(h, VEK_PARAM_WIDTH), lines = param(h, VEK_PARAM_HEIGHT);
  const uint32_t bpl = param(h, VEK_PARAM_BYTES_PER_LINE);
  std::vector<uint8_t> out;
  for (uint32_t y = 0; y < lines; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      const uint8_t* p = data(h) + size_t(y) * bpl;
      switch (format) {
        case VEK_Y8: case VEK_PALETTED: out.push_back(p[x]); break;
        case VEK_RGB24: out.insert(out.end(), {p[3 * x], p[3 * x + 1], p[3 * x + 2]}); break;
        case VEK_BGR24: out.insert(out.end(), {p[3 * x + 2], p[3 * x + 1], p[3 * x]}); break;
        case VEK_BGRX32: out.insert(out.end(), {p[4 * x + 2], p[4 * x + 1], p[4 * x]}); break;
      }
    }
  return out;
}

}  // namespace

TEST(Bmp, WrittenFilesMatchTheFormatByteForByte) {
  vektest::ErrorRecorder rec;
  const std::string path = scratch("layout.bmp");
  for (uint32_t format : {VEK_Y8, VEK_PALETTED, VEK_RGB24, VEK_BGRX32, VEK_BGR24}) {
    for (uint32_t w : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 13u}) {
      // BGR24 rows come out exact only where 3 x width is a multiple of 4.
      if (format == VEK_BGR24 && (3 * w) % 4) continue;
      const uint32_t hgt = 1 + w % 4;
      uint32_t h = vektest::make_image(format, w, hgt);
      vektest::fill_random(h, w * 31 + format);
      if (format == VEK_PALETTED) random_cmap(h, w);
      ASSERT_EQ(write_image(h, VEK_FILE_BMP, path), 0u);
      const auto* cmap = static_cast<const uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_CMAP));
      if (format == VEK_Y8) {  // written with a grey map
        for (int i = 0; i < 256; ++i) EXPECT_EQ(cmap[4 * i], i);
      }
      const bool eight = format == VEK_Y8 || format == VEK_PALETTED;
      EXPECT_EQ(read_file(path), expected_bmp(w, hgt, eight, rgb_of(h, format), cmap))
          << "format " << format << " width " << w;
      VEK_image_destroy(h);
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(Bmp, Yuv422RowsFollowTheFixedPointEquations) {
  const std::string path = scratch("yuv.bmp");
  for (uint32_t w : {4u, 8u, 12u}) {
    uint32_t h = vektest::make_image(VEK_YUV422, w, 3);
    vektest::fill_random(h, w);
    ASSERT_EQ(write_image(h, VEK_FILE_BMP, path), 0u);
    const auto file = read_file(path);
    ASSERT_EQ(file.size(), 54u + 3 * 3 * w);
    auto clamp = [](int v) { return v < 0 ? 0 : v > 255 ? 255 : v; };
    for (uint32_t y = 0; y < 3; ++y)
      for (uint32_t x = 0; x < w; ++x) {
        const uint8_t* q = data(h) + y * param(h, VEK_PARAM_BYTES_PER_LINE) + 4 * (x / 2);
        const double Y = q[(x & 1) * 2], U = q[1] - 128.0, V = q[3] - 128.0;
        // Floor of the scaled sums, computed in floating point as a cross-check.
        const int b = clamp(int(std::floor((1024 * Y + 1815 * U) / 1024)));
        const int g = clamp(int(std::floor((1024 * Y - 731 * V - 352 * U) / 1024)));
        const int r = clamp(int(std::floor((1024 * Y + 1436 * V) / 1024)));
        const size_t at = 54 + size_t(2 - y) * 3 * w + 3 * x;
        ASSERT_EQ(file[at], b);
        ASSERT_EQ(file[at + 1], g);
        ASSERT_EQ(file[at + 2], r);
      }
    VEK_image_destroy(h);
  }
}

TEST(Bmp, ReadBackKeepsPixelsAndTopLine) {
  vektest::ErrorRecorder rec;
  const std::string path = scratch("round.bmp");
  for (uint32_t format : {VEK_PALETTED, VEK_RGB24}) {
    for (uint32_t w : {1u, 5u, 6u, 31u}) {
      for (uint32_t align : {1u, 2u, 4u}) {
        uint32_t h = vektest::make_image(format, w, 7, 0, align);
        vektest::fill_random(h, w + align);
        random_cmap(h, w);
        ASSERT_EQ(write_image(h, VEK_FILE_BMP, path), 0u);
        uint32_t back = VEK_image_create();
        VEK_image_set_parameter(back, VEK_PARAM_LINE_ALIGN, align);
        VEK_image_set_infilename(back, path.c_str());
        ASSERT_EQ(VEK_image_read(back, 0, VEK_STRIP_NEXT), 0u);
        EXPECT_EQ(param(back, VEK_PARAM_FORMAT), format);
        EXPECT_EQ(param(back, VEK_PARAM_STRIP_LINES), 7u);
        const size_t bpp = format == VEK_RGB24 ? 3 : 1;
        EXPECT_EQ(pixels(back, bpp), pixels(h, bpp)) << w << " " << align;
        if (format == VEK_PALETTED) {
          EXPECT_EQ(0, std::memcmp(VEK_image_get_ptr(back, VEK_PTR_CMAP), VEK_image_get_ptr(h, VEK_PTR_CMAP), 1024));
        }
        VEK_image_destroy(back);
        VEK_image_destroy(h);
      }
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(Bmp, MemoryWriterGivesTheFileBytes) {
  const std::string path = scratch("mem.bmp");
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
    vektest::ErrorRecorder rec;
    uint32_t small = size - 1;
    EXPECT_EQ(VEK_image_write_BMP_buffer(h, buf.data(), &small), 0x10030000u);
    VEK_image_destroy(h);
  }
  vektest::ErrorRecorder rec;
  uint32_t h = vektest::make_image(VEK_BGR24, 4, 4);
  uint32_t size = 0;
  EXPECT_EQ(VEK_image_write_BMP_buffer(h, nullptr, &size), 0x10070008u);
  EXPECT_TRUE(rec.only("VEK_image_write_BMP_buffer", 0x10070008u, "Unsupported image format"));
  VEK_image_destroy(h);
}

TEST(Bmp, UnsupportedAndDamagedFilesAreRefused) {
  const std::string good = scratch("good.bmp"), bad = scratch("bad.bmp");
  uint32_t src = vektest::make_image(VEK_RGB24, 5, 4);
  ASSERT_EQ(write_image(src, VEK_FILE_BMP, good), 0u);
  const auto file = read_file(good);
  struct Case {
    size_t at;
    std::vector<uint8_t> bytes;
    size_t truncate;
    uint32_t code;
    const char* message;
  };
  const std::vector<Case> cases{
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
  };
  for (const auto& c : cases) {
    auto b = file;
    std::copy(c.bytes.begin(), c.bytes.end(), b.begin() + long(c.at));
    if (c.truncate) b.resize(c.truncate);
    write_file(bad, b);
    vektest::ErrorRecorder rec;
    uint32_t h = VEK_image_create();
    VEK_image_set_infilename(h, bad.c_str());
    EXPECT_EQ(VEK_read_BMP_file(h, VEK_STRIP_NEXT), c.code) << c.message;
    EXPECT_TRUE(rec.only("VEK_read_BMP_file", c.code, c.message)) << c.message << " got " << rec.last().message << " x" << rec.count();
    EXPECT_EQ(VEK_image_get_ptr(h, VEK_PTR_DATA), nullptr);
    VEK_image_destroy(h);
  }
  vektest::ErrorRecorder rec;
  uint32_t y16 = vektest::make_image(VEK_Y16, 4, 4);
  EXPECT_EQ(write_image(y16, VEK_FILE_BMP, bad), 0x1007000Eu);
  EXPECT_TRUE(rec.only("VEK_write_BMP_file", 0x1007000Eu, "Unsupported image format"));
  VEK_image_destroy(y16);
  VEK_image_destroy(src);
}

TEST(Bmp, HeaderOnlyModesDescribeWithoutReading) {
  const std::string path = scratch("hdr.bmp");
  uint32_t src = vektest::make_image(VEK_PALETTED, 9, 6);
  ASSERT_EQ(write_image(src, VEK_FILE_BMP, path), 0u);
  for (uint32_t mode : {0u, 4u}) {
    uint32_t h = VEK_image_create();
    VEK_image_set_infilename(h, path.c_str());
    EXPECT_EQ(VEK_read_BMP_file(h, mode), 0u);
    EXPECT_EQ(param(h, VEK_PARAM_WIDTH), 9u);
    EXPECT_EQ(param(h, VEK_PARAM_HEIGHT), 6u);
    EXPECT_EQ(param(h, VEK_PARAM_FORMAT), uint32_t(VEK_PALETTED));
    EXPECT_EQ(VEK_image_get_ptr(h, VEK_PTR_DATA), nullptr);
    VEK_image_destroy(h);
  }
  // Regression: the header-only modes refused a file whose rows were cut short,
  // although they never read the rows.
  auto cut = read_file(path);
  cut.resize(1078 + 12);
  write_file(path, cut);
  vektest::ErrorRecorder rec;
  for (uint32_t mode : {0u, 4u, 3u}) {
    uint32_t h = VEK_image_create();
    VEK_image_set_infilename(h, path.c_str());
    rec.clear();
    if (mode == 3) {
      EXPECT_EQ(VEK_read_BMP_file(h, mode), 0x10050000u);
      EXPECT_TRUE(rec.only("VEK_read_BMP_file", 0x10050000u, "Image data extends beyond end of file"));
    } else {
      EXPECT_EQ(VEK_read_BMP_file(h, mode), 0u) << mode;
      EXPECT_EQ(param(h, VEK_PARAM_HEIGHT), 6u);
      EXPECT_EQ(rec.count(), 0u);
    }
    VEK_image_destroy(h);
  }
  VEK_image_destroy(src);
}

// ---- Pillow as a peer ----

TEST(BmpPeer, PillowReadsOurFilesWithIdenticalPixels) {
  if (!have_pillow()) GTEST_SKIP() << "/usr/bin/python3 with PIL not available";
  for (uint32_t format : {VEK_Y8, VEK_PALETTED, VEK_RGB24, VEK_BGRX32}) {
    for (uint32_t w : {1u, 5u, 10u, 33u}) {
      const std::string path = scratch("peer_out.bmp"), raw = scratch("peer_out.rgb");
      uint32_t h = vektest::make_image(format, w, 9);
      vektest::fill_random(h, w ^ format);
      random_cmap(h, w + 1);
      ASSERT_EQ(write_image(h, VEK_FILE_BMP, path), 0u);
      ASSERT_EQ(run("/usr/bin/python3 -c \"from PIL import Image; open('" + raw +
                    "','wb').write(Image.open('" + path + "').convert('RGB').tobytes())\""),
                0);
      std::vector<uint8_t> want = rgb_of(h, format);
      if (format == VEK_Y8 || format == VEK_PALETTED) {
        const auto* cmap = static_cast<const uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_CMAP));
        std::vector<uint8_t> rgb;
        for (uint8_t i : want) rgb.insert(rgb.end(), {cmap[4 * i], cmap[4 * i + 1], cmap[4 * i + 2]});
        want = rgb;
      }
      EXPECT_EQ(read_file(raw), want) << "format " << format << " width " << w;
      VEK_image_destroy(h);
    }
  }
}

TEST(BmpPeer, FilesWrittenByPillowReadWithIdenticalPixels) {
  if (!have_pillow()) GTEST_SKIP() << "/usr/bin/python3 with PIL not available";
  const std::string dir = vektest::scratch_dir();
  // Pillow writes the picture and, beside it, the RGB bytes it means.
  const std::string script =
      "import random\nfrom PIL import Image\nrandom.seed(7)\n"
      "for mode in ('P','L','RGB'):\n"
      "  for w in (1,3,6,17):\n"
      "    h = 5\n"
      "    n = w*h*(3 if mode=='RGB' else 1)\n"
      "    im = Image.frombytes(mode,(w,h),bytes(random.randrange(256) for _ in range(n)))\n"
      "    if mode=='P': im.putpalette([random.randrange(256) for _ in range(768)])\n"
      "    base = '" + dir + "pil_%s_%d' % (mode, w)\n"
      "    im.save(base + '.bmp')\n"
      "    open(base + '.rgb','wb').write(im.convert('RGB').tobytes())\n";
  write_file(dir + "pil_make.py", std::vector<uint8_t>(script.begin(), script.end()));
  ASSERT_EQ(run("/usr/bin/python3 " + dir + "pil_make.py"), 0);
  vektest::ErrorRecorder rec;
  for (const char* mode : {"P", "L", "RGB"}) {
    for (int w : {1, 3, 6, 17}) {
      const std::string base = dir + "pil_" + mode + "_" + std::to_string(w);
      uint32_t h = read_image(base + ".bmp");
      ASSERT_NE(h, 0u) << base;
      const uint32_t format = param(h, VEK_PARAM_FORMAT);
      std::vector<uint8_t> got = rgb_of(h, format);
      if (format == VEK_PALETTED) {
        const auto* cmap = static_cast<const uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_CMAP));
        std::vector<uint8_t> rgb;
        for (uint8_t i : got) rgb.insert(rgb.end(), {cmap[4 * i], cmap[4 * i + 1], cmap[4 * i + 2]});
        got = rgb;
      }
      EXPECT_EQ(got, read_file(base + ".rgb")) << base;
      VEK_image_destroy(h);
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}
