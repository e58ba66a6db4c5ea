// TIFF: the writer's directory layout, round trips through our reader for every
// format and compression, libtiff and Pillow as peers, and damaged files.
#include <map>

#include "helpers.h"

using namespace filetest;

namespace {

struct Dir {
  uint32_t count;
  std::map<uint32_t, std::pair<uint32_t, uint32_t>> entries;  // tag -> (count, value field)
  std::vector<uint32_t> order;
  size_t at(uint32_t tag) const {  // file position of the tag's entry
    return 10 + 12 * size_t(std::find(order.begin(), order.end(), tag) - order.begin());
  }
  uint32_t value(uint32_t tag) const { return entries.at(tag).second; }
};

// Reads `n` entries of the big-endian directory at 8 (single SHORT values from the
// field's first half).
Dir directory(const std::vector<uint8_t>& f, uint32_t n) {
  Dir d{be16(f, 8), {}, {}};
  for (uint32_t i = 0; i < n; ++i) {
    const size_t at = 10 + 12 * i;
    const uint32_t tag = be16(f, at), type = be16(f, at + 2), count = be32(f, at + 4);
    d.entries[tag] = {count, type == 3 && count == 1 ? be16(f, at + 8) : be32(f, at + 8)};
    d.order.push_back(tag);
  }
  return d;
}

uint32_t make_filled(uint32_t format, uint32_t w, uint32_t h, uint32_t seed, uint32_t align = 2) {
  uint32_t img = vektest::make_image(format, w, h, 0, align);
  vektest::fill_random(img, seed);
  if (format == VEK_PALETTED) random_cmap(img, seed);
  return img;
}

uint32_t write_tiff(uint32_t img, const std::string& path, bool lzw) {
  VEK_image_set_flags(img, VEK_FLAG_TIFF_LZW, lzw ? 1 : 0);
  return write_image(img, VEK_FILE_TIFF, path);
}

}  // namespace

TEST(Tiff, DirectoryLayoutOfUncompressedAndLzwFiles) {
  vektest::ErrorRecorder rec;
  const std::string path = scratch("layout.tif");
  uint32_t img = make_filled(VEK_Y8, 640, 480, 1);
  ASSERT_EQ(write_tiff(img, path, false), 0u);
  auto f = read_file(path);
  ASSERT_EQ(std::vector<uint8_t>(f.begin(), f.begin() + 8), (std::vector<uint8_t>{'M', 'M', 0, 42, 0, 0, 0, 8}));
  Dir d = directory(f, 13);
  EXPECT_EQ(d.count, 13u);
  EXPECT_EQ(d.order, (std::vector<uint32_t>{254, 256, 257, 258, 259, 262, 273, 277, 278, 279, 282, 283, 296}));
  EXPECT_EQ(d.value(256), 640u);
  EXPECT_EQ(d.value(259), 1u);
  EXPECT_EQ(d.value(279), 307200u);
  EXPECT_EQ(d.value(273), f.size() - 307200);
  EXPECT_EQ(be32(f, 10 + 12 * 13), 0u);  // next directory
  EXPECT_EQ(be32(f, d.value(282)) << 8 | be32(f, d.value(282) + 4), 300u << 8 | 1u);
  EXPECT_TRUE(std::equal(f.begin() + d.value(273), f.end(), data(img)));

  ASSERT_EQ(write_tiff(img, path, true), 0u);
  f = read_file(path);
  d = directory(f, 14);
  EXPECT_EQ(d.count, 13u);  // the Predictor entry is there but not counted
  EXPECT_EQ(d.order, (std::vector<uint32_t>{254, 256, 257, 258, 259, 262, 273, 277, 278, 317, 279, 282, 283, 296}));
  EXPECT_EQ(d.value(259), 5u);
  EXPECT_EQ(d.value(317), 2u);
  EXPECT_EQ(d.value(279), f.size() - d.value(273));
  // Writing differenced the image in place and then gave it back unchanged.
  EXPECT_EQ(pixels(img), vektest::random_bytes(640 * 480, 1));
  VEK_image_destroy(img);

  // Paletted: 14 entries, the map behind the next-directory offset, each component twice;
  // no uncompressed data path, so the file ends after the header.
  img = make_filled(VEK_PALETTED, 3, 2, 5);
  ASSERT_EQ(write_tiff(img, path, false), 0u);
  f = read_file(path);
  d = directory(f, 14);
  EXPECT_EQ(d.count, 14u);
  EXPECT_EQ(d.value(262), 3u);
  EXPECT_EQ(d.entries[320], std::make_pair(768u, 8u + 2 + 14 * 12 + 4));
  for (uint32_t i = 0; i < 3 * 256; ++i)
    EXPECT_EQ(be16(f, d.value(320) + 2 * i), cmap_of(img)[4 * (i % 256) + i / 256] * 257u) << i;
  EXPECT_EQ(d.value(273), f.size());
  VEK_image_destroy(img);
  EXPECT_EQ(rec.count(), 0u);
}

TEST(Tiff, ColourFormatsAreWrittenAsRgb) {
  const std::string path = scratch("colour.tif");
  for (uint32_t format : {VEK_RGB24, VEK_BGR24, VEK_BGRX32, VEK_YUV422}) {
    uint32_t img = make_filled(format, 8 - (format != VEK_YUV422), 5, format, 4);
    ASSERT_EQ(write_tiff(img, path, false), 0u);
    const auto f = read_file(path);
    const Dir d = directory(f, 14);
    EXPECT_EQ(d.entries.at(258).first, 3u);
    EXPECT_EQ(be16(f, d.value(258)), 8u);
    EXPECT_EQ(d.value(284), 1u);
    const auto rgb = picture(img);  // YUV through the reference equations
    EXPECT_EQ(d.value(279), rgb.size());
    EXPECT_EQ(std::vector<uint8_t>(f.begin() + d.value(273), f.end()), rgb) << format;
    VEK_image_destroy(img);
  }
  vektest::ErrorRecorder rec;
  uint32_t img = vektest::make_image(VEK_PALETTED, 4, 4);
  VEK_image_set_parameter(img, VEK_PARAM_CMAP_SIZE, 16);
  EXPECT_EQ(write_tiff(img, path, false), 0x10070010u);
  EXPECT_TRUE(rec.only("VEK_write_TIFF_file", 0x10070010u, "Unsupported palette/colourmap size"));
  VEK_image_destroy(img);
  rec.clear();
  img = vektest::make_image(VEK_RGB16, 4, 4);
  EXPECT_EQ(write_tiff(img, path, false), 0x10070006u);
  EXPECT_TRUE(rec.only("VEK_write_TIFF_file", 0x10070006u, "Unsupported image format"));
  VEK_image_destroy(img);
}

TEST(Tiff, OurFilesReadBackInTheMatchingFormat) {
  vektest::ErrorRecorder rec;
  const std::string path = scratch("round.tif");
  struct Case {
    uint32_t format;
    bool lzw;
    uint32_t read_as;
  };
  for (const Case& c : std::vector<Case>{
           {VEK_Y8, false, VEK_Y8}, {VEK_Y8, true, VEK_Y8}, {VEK_Y16, false, VEK_Y16}, {VEK_Y16, true, VEK_Y16},
           {VEK_RGB24, false, VEK_RGB24}, {VEK_RGB24, true, VEK_RGB24}, {VEK_PALETTED, true, VEK_PALETTED},
           {VEK_BGR24, false, VEK_RGB24}, {VEK_BGRX32, false, VEK_RGB24}, {VEK_BGRX32, true, VEK_BGRX32},
           {VEK_YUV422, true, VEK_YUV422}, {VEK_CMYK32, true, VEK_CMYK32}})
    for (uint32_t w : {1u, 6u, 37u}) {
      uint32_t img = make_filled(c.format, w, 9, w * 7 + c.format);
      ASSERT_EQ(write_tiff(img, path, c.lzw), 0u);
      uint32_t back = read_image(path);
      ASSERT_NE(back, 0u) << c.format << (c.lzw ? " lzw" : "") << " w " << w;
      EXPECT_EQ(param(back, VEK_PARAM_FORMAT), c.read_as) << c.format;
      EXPECT_EQ(VEK_image_get_flags(back, VEK_FLAG_TIFF_LZW), c.lzw ? 1u : 0u);
      EXPECT_EQ(pixels(back), c.read_as == c.format ? pixels(img) : picture(img))
          << c.format << (c.lzw ? " lzw" : "") << " w " << w;
      if (c.format == VEK_PALETTED) { EXPECT_EQ(0, std::memcmp(cmap_of(back), cmap_of(img), 1024)); }
      VEK_image_destroy(back);
      VEK_image_destroy(img);
    }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(Tiff, DamagedFilesAreRefusedWithAMessage) {
  uint32_t img = make_filled(VEK_RGB24, 16, 8, 3);
  std::vector<uint8_t> files[2];
  for (bool lzw : {false, true}) {
    ASSERT_EQ(write_tiff(img, scratch("good.tif"), lzw), 0u);
    files[lzw] = read_file(scratch("good.tif"));
  }
  const Dir d = directory(files[1], 15);
  const size_t data_at = d.value(273);
  struct Case {
    bool lzw;
    size_t at;
    std::vector<uint8_t> bytes;
    size_t size;
    const char* message;
    const char* function = "VEK_read_TIFF_file";
  };
  for (const Case& c : std::vector<Case>{
           {1, 0, {'X', 'X'}, 0, "Expecting 'MM' or 'II'"},
           {1, 2, {0, 43}, 0, "Expecting 42"},
           {1, 4, {0x7F, 0, 0, 0}, 0, "Directory offset beyond end of file"},
           {1, 8, {0x10, 0}, 0, "Directory extends beyond end of file"},
           {1, d.at(259) + 8, {0, 7}, 0, "only LZW compression supported"},
           {1, d.at(317) + 8, {0, 3}, 0, "incorrect value for Predictor"},
           {1, d.at(256) + 4, {0, 0, 0, 2}, 0, "Expecting 1 entry in ImageWidth"},
           {1, d.at(262) + 8, {0, 4}, 0, "unsupported image"},
           {1, d.at(277) + 8, {0, 2}, 0, "BitsPerSample count does not match SamplesPerPixel"},
           {1, d.at(262) + 8, {0, 1}, 0, "unsupported image type"},
           {1, d.at(284) + 8, {0, 2}, 0, "unsupported TIFF format"},
           {1, d.at(273) + 8, {0x7F, 0, 0, 0}, 0, "Strip extends beyond end of file"},
           {1, d.at(257) + 8, {0xFF, 0xFF}, 0, "Strip count does not match the image height"},
           {1, d.at(278) + 4, {0, 0, 0, 2}, 0, "expecting 1 entry in RowsPerStrip"},
           {1, d.at(278) + 8, {0, 0, 0, 1}, 0, "Strip count does not match the image height"},
           {1, 0, {}, data_at + 20, "LZW strip does not match the image size"},
           {1, data_at + 5, {0xFF, 0xFF, 0xFF}, 0, "LZW code not in table", "lzw_decode"},
           {0, 10 + 12 + 8, {0x7F}, 0, "Image size exceeds what the file can hold"},
           // StripByteCounts turned into a Predictor of 2 (the reader does not need the count).
           {0, 10 + 12 * 9, {0x01, 0x3D, 0, 3, 0, 0, 0, 1, 0, 2}, 0, "Predictor only supported for LZW compressed files"},
       })
    expect_refused(VEK_read_TIFF_file, c.function, patched(files[c.lzw], c.at, c.bytes, c.size), c.message);
  VEK_image_destroy(img);
}

// ---- peers: libtiff tools and Pillow (which decodes through libtiff) ----

// libtiff describes every file we write. Where our layout lets a standard reader see
// the picture, Pillow's pixels agree; the uncounted Predictor entry of LZW files and
// the formats without a standard reading are left out there.
TEST(TiffPeer, LibtiffShowsAndDecodesOurFiles) {
  if (!have_tool("tiffinfo") || !have_pillow()) GTEST_SKIP() << "tiffinfo or Pillow not available";
  const std::string path = scratch("peer.tif"), raw = scratch("peer.raw");
  for (uint32_t format : {VEK_Y8, VEK_Y16, VEK_PALETTED, VEK_RGB24, VEK_BGR24, VEK_BGRX32, VEK_YUV422, VEK_CMYK32})
    for (bool lzw : {false, true})
      for (uint32_t w : {5u, 64u}) {
        uint32_t img = make_filled(format, w, 11, w + format);
        ASSERT_EQ(write_tiff(img, path, lzw), 0u);
        std::string out;
        run("tiffinfo " + path + " 2>&1", &out);
        EXPECT_NE(out.find("Image Width: " + std::to_string(w) + " Image Length: 11"), std::string::npos) << out;
        EXPECT_NE(out.find(lzw ? "Compression Scheme: LZW" : "Compression Scheme: None"), std::string::npos) << out;
        const bool decodable = (format == VEK_Y8 || format == VEK_RGB24) ||
                               (!lzw && (format == VEK_BGR24 || format == VEK_BGRX32 || format == VEK_Y16));
        if (decodable) {
          ASSERT_EQ(python("from PIL import Image\nopen('" + raw + "','wb').write(Image.open('" + path +
                           "').tobytes())\n", &out), 0) << out;
          std::vector<uint8_t> want = format == VEK_Y16 ? pixels(img) : picture(img);
          if (format == VEK_Y16)  // Pillow's I;16B keeps file order
            for (size_t i = 0; i + 1 < want.size(); i += 2) std::swap(want[i], want[i + 1]);
          EXPECT_EQ(read_file(raw), want) << format << " " << lzw << " " << w;
        }
        VEK_image_destroy(img);
      }
}

TEST(TiffPeer, FilesFromLibtiffAndPillowReadWithIdenticalPixels) {
  if (!have_pillow() || !have_tool("tiffcp")) GTEST_SKIP() << "Pillow or tiffcp not available";
  const std::string dir = vektest::scratch_dir();
  std::string out;
  ASSERT_EQ(python("import random\nfrom PIL import Image\nrandom.seed(11)\n"
                   "for mode in ('L','P','RGB','I;16'):\n"
                   "  n = 13*10*{'L':1,'P':1,'RGB':3,'I;16':2}[mode]\n"
                   "  im = Image.frombytes(mode,(13,10),bytes(random.randrange(256) for _ in range(n)))\n"
                   "  if mode=='P': im.putpalette([random.randrange(256) for _ in range(768)])\n"
                   "  tag = mode.replace(';','')\n"
                   "  im.save('" + dir + "src_%s.tif' % tag)\n"
                   "  im.save('" + dir + "pil_lzw_%s.tif' % tag, compression='tiff_lzw')\n"
                   "  raw = im.convert('RGB').tobytes() if mode in ('P','RGB') else im.tobytes()\n"
                   "  open('" + dir + "src_%s.raw' % tag,'wb').write(raw)\n",
                   &out),
            0)
      << out;
  vektest::ErrorRecorder rec;
  for (const char* mode : {"L", "P", "RGB", "I16"}) {
    const std::string src = dir + "src_" + mode + ".tif";
    std::vector<std::string> variants{src, dir + "pil_lzw_" + mode + ".tif"};
    for (const char* opt : {"-c none", "-c lzw", "-c lzw:2", "-c lzw:2 -r 3", "-c none -r 4 -B", "-c lzw:2 -r 1 -B",
                            "-c lzw -L -r 7"}) {
      variants.push_back(dir + "cp_" + mode + "_" + std::to_string(variants.size()) + ".tif");
      ASSERT_EQ(run(std::string("tiffcp ") + opt + " " + src + " " + variants.back() + " 2>&1", &out), 0) << opt << out;
    }
    for (const auto& v : variants) {
      uint32_t h = read_image(v);
      ASSERT_NE(h, 0u) << v;
      // 16-bit samples in host order, as Pillow's I;16 holds them; the rest as RGB or grey.
      const uint32_t f = param(h, VEK_PARAM_FORMAT);
      EXPECT_EQ(f == VEK_Y16 || f == VEK_Y8 ? pixels(h) : seen_rgb(h), read_file(dir + "src_" + mode + ".raw")) << v;
      VEK_image_destroy(h);
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}
