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
};

// Reads `n` entries of the big-endian directory at 8 (SHORT values from the field's
// first half).
Dir directory(const std::vector<uint8_t>& f, uint32_t n) {
  Dir d;
  d.count = be16(f, 8);
  for (uint32_t i = 0; i < n; ++i) {
    const size_t at = 10 + 12 * i;
    const uint32_t tag = be16(f, at), type = be16(f, at + 2);
    d.entries[tag] = {be32(f, at + 4), type == 3 && be32(f, at + 4) == 1 ? be16(f, at + 8) : be32(f, at + 8)};
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

size_t bytes_per_pixel(uint32_t format) {
  switch (format) {
    case VEK_Y8: case VEK_PALETTED: return 1;
    case VEK_Y16: case VEK_YUV422: return 2;
    case VEK_RGB24: case VEK_BGR24: return 3;
    default: return 4;
  }
}

// The picture as a standard reader should see it: RGB for the colour formats.
std::vector<uint8_t> as_rgb(uint32_t img) {
  const uint32_t f = param(img, VEK_PARAM_FORMAT), w = param(img, VEK_PARAM_WIDTH);
  const uint32_t bpl = param(img, VEK_PARAM_BYTES_PER_LINE);
  std::vector<uint8_t> out;
  for (uint32_t y = 0; y < param(img, VEK_PARAM_HEIGHT); ++y) {
    const uint8_t* p = data(img) + size_t(y) * bpl;
    for (uint32_t x = 0; x < w; ++x) {
      if (f == VEK_RGB24) out.insert(out.end(), p + 3 * x, p + 3 * x + 3);
      if (f == VEK_BGR24) out.insert(out.end(), {p[3 * x + 2], p[3 * x + 1], p[3 * x]});
      if (f == VEK_BGRX32) out.insert(out.end(), {p[4 * x + 2], p[4 * x + 1], p[4 * x]});
    }
  }
  return out;
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
  EXPECT_EQ(d.entries[256].second, 640u);
  EXPECT_EQ(d.entries[259].second, 1u);
  EXPECT_EQ(d.entries[279].second, 307200u);
  EXPECT_EQ(d.entries[273].second, f.size() - 307200);
  EXPECT_EQ(be32(f, 10 + 12 * 13), 0u);  // next directory
  EXPECT_EQ(be32(f, d.entries[282].second), 300u);
  EXPECT_EQ(be32(f, d.entries[282].second + 4), 1u);
  EXPECT_TRUE(std::equal(f.begin() + d.entries[273].second, f.end(), data(img)));

  ASSERT_EQ(write_tiff(img, path, true), 0u);
  f = read_file(path);
  d = directory(f, 14);
  EXPECT_EQ(d.count, 13u);  // the Predictor entry is there but not counted
  EXPECT_EQ(d.order, (std::vector<uint32_t>{254, 256, 257, 258, 259, 262, 273, 277, 278, 317, 279, 282, 283, 296}));
  EXPECT_EQ(d.entries[259].second, 5u);
  EXPECT_EQ(d.entries[317].second, 2u);
  EXPECT_EQ(d.entries[279].second, f.size() - d.entries[273].second);
  // Writing differenced the image in place and then gave it back unchanged.
  EXPECT_EQ(pixels(img, 1), vektest::random_bytes(640 * 480, 1));
  VEK_image_destroy(img);

  // Paletted: 14 entries, the map behind the next-directory offset, each component twice.
  img = make_filled(VEK_PALETTED, 3, 2, 5);
  ASSERT_EQ(write_tiff(img, path, false), 0u);
  f = read_file(path);
  d = directory(f, 14);
  EXPECT_EQ(d.count, 14u);
  EXPECT_EQ(d.entries[320].first, 768u);
  EXPECT_EQ(d.entries[320].second, 8u + 2 + 14 * 12 + 4);
  EXPECT_EQ(d.entries[262].second, 3u);
  const auto* cmap = static_cast<const uint8_t*>(VEK_image_get_ptr(img, VEK_PTR_CMAP));
  for (uint32_t i = 0; i < 256; ++i) {
    EXPECT_EQ(be16(f, d.entries[320].second + 2 * i), cmap[4 * i] * 257u);
    EXPECT_EQ(be16(f, d.entries[320].second + 512 + 2 * i), cmap[4 * i + 1] * 257u);
    EXPECT_EQ(be16(f, d.entries[320].second + 1024 + 2 * i), cmap[4 * i + 2] * 257u);
  }
  // No uncompressed data path for paletted images: the file ends after the header.
  EXPECT_EQ(d.entries[273].second, f.size());
  VEK_image_destroy(img);
  EXPECT_EQ(rec.count(), 0u);
}

TEST(Tiff, ColourFormatsAreWrittenAsRgb) {
  const std::string path = scratch("colour.tif");
  for (uint32_t format : {VEK_RGB24, VEK_BGR24, VEK_BGRX32}) {
    uint32_t img = make_filled(format, 7, 5, format, 4);
    ASSERT_EQ(write_tiff(img, path, false), 0u);
    const auto f = read_file(path);
    const Dir d = directory(f, 14);
    EXPECT_EQ(d.entries.at(258).first, 3u);
    EXPECT_EQ(be16(f, d.entries.at(258).second), 8u);
    EXPECT_EQ(d.entries.at(284).second, 1u);
    EXPECT_EQ(d.entries.at(279).second, 7u * 5 * 3);
    const auto rgb = as_rgb(img);
    EXPECT_TRUE(std::equal(rgb.begin(), rgb.end(), f.begin() + d.entries.at(273).second)) << format;
    VEK_image_destroy(img);
  }
}

TEST(Tiff, RefusesFormatsAndPaletteSizesItCannotWrite) {
  const std::string path = scratch("refused.tif");
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
  const std::vector<Case> cases{
      {VEK_Y8, false, VEK_Y8},         {VEK_Y8, true, VEK_Y8},
      {VEK_Y16, false, VEK_Y16},       {VEK_Y16, true, VEK_Y16},
      {VEK_RGB24, false, VEK_RGB24},   {VEK_RGB24, true, VEK_RGB24},
      {VEK_PALETTED, true, VEK_PALETTED},
      {VEK_BGR24, false, VEK_RGB24},   {VEK_BGRX32, false, VEK_RGB24},
      {VEK_BGRX32, true, VEK_BGRX32},  {VEK_YUV422, true, VEK_YUV422},
      {VEK_CMYK32, true, VEK_CMYK32},
  };
  for (const auto& c : cases) {
    for (uint32_t w : {1u, 6u, 37u}) {
      uint32_t img = make_filled(c.format, w, 9, w * 7 + c.format);
      ASSERT_EQ(write_tiff(img, path, c.lzw), 0u);
      uint32_t back = read_image(path);
      ASSERT_NE(back, 0u) << c.format << (c.lzw ? " lzw" : "") << " w " << w;
      EXPECT_EQ(param(back, VEK_PARAM_FORMAT), c.read_as) << c.format;
      EXPECT_EQ(VEK_image_get_flags(back, VEK_FLAG_TIFF_LZW), c.lzw ? 1u : 0u);
      if (c.read_as == c.format) {
        EXPECT_EQ(pixels(back, bytes_per_pixel(c.format)), pixels(img, bytes_per_pixel(c.format)))
            << c.format << (c.lzw ? " lzw" : "") << " w " << w;
      } else {
        EXPECT_EQ(pixels(back, 3), as_rgb(img)) << c.format;
      }
      if (c.format == VEK_PALETTED) {
        EXPECT_EQ(0, std::memcmp(VEK_image_get_ptr(back, VEK_PTR_CMAP), VEK_image_get_ptr(img, VEK_PTR_CMAP), 1024));
      }
      VEK_image_destroy(back);
      VEK_image_destroy(img);
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(Tiff, DamagedFilesAreRefusedWithAMessage) {
  const std::string good = scratch("good.tif"), bad = scratch("bad.tif");
  uint32_t img = make_filled(VEK_RGB24, 16, 8, 3);
  ASSERT_EQ(write_tiff(img, good, true), 0u);
  const auto file = read_file(good);
  const Dir d = directory(file, 15);
  auto entry_at = [&](uint32_t tag) {
    for (size_t i = 0; i < d.order.size(); ++i)
      if (d.order[i] == tag) return 10 + 12 * i;
    return size_t(0);
  };
  struct Case {
    size_t at;
    std::vector<uint8_t> bytes;
    size_t truncate;
    const char* message;
  };
  const size_t data_at = d.entries.at(273).second;
  const std::vector<Case> cases{
      {0, {'X', 'X'}, 0, "Expecting 'MM' or 'II'"},
      {2, {0, 43}, 0, "Expecting 42"},
      {4, {0x7F, 0, 0, 0}, 0, "Directory offset beyond end of file"},
      {8, {0x10, 0}, 0, "Directory extends beyond end of file"},
      {entry_at(259) + 8, {0, 7}, 0, "only LZW compression supported"},
      {entry_at(317) + 8, {0, 3}, 0, "incorrect value for Predictor"},
      {entry_at(256) + 4, {0, 0, 0, 2}, 0, "Expecting 1 entry in ImageWidth"},
      {entry_at(262) + 8, {0, 4}, 0, "unsupported image"},
      {entry_at(277) + 8, {0, 2}, 0, "BitsPerSample count does not match SamplesPerPixel"},
      {entry_at(262) + 8, {0, 1}, 0, "unsupported image type"},
      {entry_at(284) + 8, {0, 2}, 0, "unsupported TIFF format"},
      {entry_at(273) + 8, {0x7F, 0, 0, 0}, 0, "Strip extends beyond end of file"},
      {entry_at(257) + 8, {0xFF, 0xFF}, 0, "Strip count does not match the image height"},
      {entry_at(278) + 4, {0, 0, 0, 2}, 0, "expecting 1 entry in RowsPerStrip"},
      {entry_at(278) + 8, {0, 0, 0, 1}, 0, "Strip count does not match the image height"},
      {0, {}, data_at + 20, "LZW strip does not match the image size"},
      {data_at + 5, {0xFF, 0xFF, 0xFF}, 0, "LZW code not in table"},
  };
  for (const auto& c : cases) {
    auto b = file;
    std::copy(c.bytes.begin(), c.bytes.end(), b.begin() + long(c.at));
    if (c.truncate) b.resize(c.truncate);
    write_file(bad, b);
    vektest::ErrorRecorder rec;
    uint32_t h = VEK_image_create();
    VEK_image_set_infilename(h, bad.c_str());
    EXPECT_GT(VEK_read_TIFF_file(h, VEK_STRIP_NEXT), 0xFFFFu) << c.message;
    EXPECT_EQ(rec.count(), 1u) << c.message;
    EXPECT_EQ(rec.last().message, c.message);
    EXPECT_EQ(VEK_image_get_ptr(h, VEK_PTR_DATA), nullptr);
    VEK_image_destroy(h);
  }
  // Uncompressed: a picture larger than the file.
  ASSERT_EQ(write_tiff(img, good, false), 0u);
  vektest::ErrorRecorder rec;
  auto b = read_file(good);
  b[10 + 12 * 1 + 8] = 0x7F;
  write_file(bad, b);
  uint32_t h = VEK_image_create();
  VEK_image_set_infilename(h, bad.c_str());
  EXPECT_EQ(VEK_read_TIFF_file(h, VEK_STRIP_NEXT), 0x10050000u);
  EXPECT_EQ(rec.last().message, "Image size exceeds what the file can hold");
  // Predictor without LZW.
  b = read_file(good);
  // StripByteCounts becomes a Predictor of 2 (the reader does not need the count).
  b[10 + 12 * 9 + 1] = 0x3D;
  b[10 + 12 * 9 + 2] = 0;
  b[10 + 12 * 9 + 3] = 3;
  b[10 + 12 * 9 + 8] = 0;
  b[10 + 12 * 9 + 9] = 2;
  write_file(bad, b);
  EXPECT_EQ(VEK_read_TIFF_file(h, VEK_STRIP_NEXT), 0x10070000u);
  EXPECT_EQ(rec.last().message, "Predictor only supported for LZW compressed files");
  VEK_image_destroy(h);
  VEK_image_destroy(img);
}

// ---- peers: libtiff tools and Pillow ----

// libtiff shows the whole first directory of every file we write. With LZW and a
// predictor the uncounted Predictor entry pushes the last counted entry to where
// the next-directory offset belongs, so the tools then fail on that bogus "next
// directory" (tag and type of the pushed entry read as an offset) after printing.
TEST(TiffPeer, LibtiffToolsShowEveryFileWeWrite) {
  if (!have_tool("tiffinfo") || !have_tool("tiffdump")) GTEST_SKIP() << "tiffinfo/tiffdump not installed";
  const std::string path = scratch("peer.tif");
  for (uint32_t format : {VEK_Y8, VEK_Y16, VEK_PALETTED, VEK_RGB24, VEK_BGR24, VEK_BGRX32, VEK_YUV422, VEK_CMYK32}) {
    for (bool lzw : {false, true}) {
      uint32_t img = make_filled(format, 12, 7, format);
      ASSERT_EQ(write_tiff(img, path, lzw), 0u);
      const bool pushed = lzw && format != VEK_CMYK32;
      std::string out;
      EXPECT_EQ(run("tiffdump " + path + " 2>&1", &out) == 0, !pushed) << format << " " << lzw << "\n" << out;
      EXPECT_NE(out.find("ImageWidth (256) SHORT (3) 1<12>"), std::string::npos) << out;
      EXPECT_EQ(out.find("Directory 0: offset 8 (0x8) next 0 (0)") != std::string::npos, !pushed) << out;
      EXPECT_EQ(run("tiffinfo " + path + " 2>&1", &out) == 0, !pushed) << format << " " << lzw << "\n" << out;
      EXPECT_NE(out.find("Image Width: 12 Image Length: 7"), std::string::npos) << out;
      EXPECT_NE(out.find(lzw ? "Compression Scheme: LZW" : "Compression Scheme: None"), std::string::npos) << out;
      VEK_image_destroy(img);
    }
  }
}

// Pillow decodes through libtiff. Where our layout lets a standard reader see the
// picture, the pixels agree; the cases left out are listed in the writer's notes.
TEST(TiffPeer, LibtiffDecodesOurFilesWhereTheLayoutAllows) {
  if (!have_pillow()) GTEST_SKIP() << "/usr/bin/python3 with PIL not available";
  const std::string path = scratch("peer_px.tif"), raw = scratch("peer_px.raw");
  struct Case {
    uint32_t format;
    bool lzw;
  };
  for (const Case c : {Case{VEK_Y8, false}, Case{VEK_Y8, true}, Case{VEK_RGB24, false}, Case{VEK_RGB24, true},
                       Case{VEK_BGR24, false}, Case{VEK_BGRX32, false}, Case{VEK_Y16, false}}) {
    for (uint32_t w : {5u, 64u}) {
      uint32_t img = make_filled(c.format, w, 11, w + c.format);
      ASSERT_EQ(write_tiff(img, path, c.lzw), 0u);
      std::string out;
      ASSERT_EQ(run("/usr/bin/python3 -c \"from PIL import Image; im=Image.open('" + path +
                        "'); open('" + raw + "','wb').write(im.tobytes())\" 2>&1",
                    &out),
                0)
          << out;
      const auto got = read_file(raw);
      if (c.format == VEK_Y8) {
        EXPECT_EQ(got, pixels(img, 1)) << c.lzw;
      } else if (c.format == VEK_Y16) {
        std::vector<uint8_t> want = pixels(img, 2);  // Pillow's I;16B keeps file order
        for (size_t i = 0; i + 1 < want.size(); i += 2) std::swap(want[i], want[i + 1]);
        EXPECT_EQ(got, want);
      } else {
        EXPECT_EQ(got, as_rgb(img)) << c.format << " " << c.lzw;
      }
      VEK_image_destroy(img);
    }
  }
}

TEST(TiffPeer, FilesFromLibtiffAndPillowReadWithIdenticalPixels) {
  if (!have_pillow() || !have_tool("tiffcp")) GTEST_SKIP() << "Pillow or tiffcp not available";
  const std::string dir = vektest::scratch_dir();
  const std::string script =
      "import random\nfrom PIL import Image\nrandom.seed(11)\n"
      "for mode in ('L','P','RGB','I;16'):\n"
      "  w, h = 13, 10\n"
      "  n = w*h*{'L':1,'P':1,'RGB':3,'I;16':2}[mode]\n"
      "  im = Image.frombytes(mode,(w,h),bytes(random.randrange(256) for _ in range(n)))\n"
      "  if mode=='P': im.putpalette([random.randrange(256) for _ in range(768)])\n"
      "  tag = mode.replace(';','')\n"
      "  im.save('" + dir + "src_%s.tif' % tag)\n"
      "  im.save('" + dir + "pil_lzw_%s.tif' % tag, compression='tiff_lzw')\n"
      "  raw = im.convert('RGB').tobytes() if mode in ('P','RGB') else im.tobytes()\n"
      "  open('" + dir + "src_%s.raw' % tag,'wb').write(raw)\n";
  write_file(dir + "tif_make.py", std::vector<uint8_t>(script.begin(), script.end()));
  std::string out;
  ASSERT_EQ(run("/usr/bin/python3 " + dir + "tif_make.py 2>&1", &out), 0) << out;
  vektest::ErrorRecorder rec;
  for (const char* mode : {"L", "P", "RGB", "I16"}) {
    const std::string src = dir + "src_" + mode + ".tif";
    const auto want = read_file(dir + "src_" + mode + ".raw");
    std::vector<std::string> variants{src, dir + "pil_lzw_" + mode + ".tif"};
    const char* options[] = {"-c none", "-c lzw", "-c lzw:2", "-c lzw:2 -r 3", "-c none -r 4 -B", "-c lzw:2 -r 1 -B",
                             "-c lzw -L -r 7"};
    for (const char* opt : options) {
      const std::string v = dir + "cp_" + mode + "_" + std::to_string(variants.size()) + ".tif";
      ASSERT_EQ(run(std::string("tiffcp ") + opt + " " + src + " " + v + " 2>&1", &out), 0) << opt << out;
      variants.push_back(v);
    }
    for (const auto& v : variants) {
      uint32_t h = read_image(v);
      ASSERT_NE(h, 0u) << v;
      std::vector<uint8_t> got;
      const uint32_t f = param(h, VEK_PARAM_FORMAT);
      if (f == VEK_PALETTED) {
        const auto* cmap = static_cast<const uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_CMAP));
        for (uint8_t i : pixels(h, 1)) got.insert(got.end(), {cmap[4 * i], cmap[4 * i + 1], cmap[4 * i + 2]});
      } else if (f == VEK_Y16) {
        got = pixels(h, 2);  // host order, as Pillow's I;16 holds it
      } else {
        got = pixels(h, f == VEK_RGB24 ? 3 : 1);
      }
      EXPECT_EQ(got, want) << v;
      VEK_image_destroy(h);
    }
  }
  EXPECT_EQ(rec.count(), 0u);
}
