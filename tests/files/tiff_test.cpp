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
  // The file position of the tag's entry.
  size_t at(uint32_t tag) const { return 10 + 12 * size_t(std::find(order.begin(), order.end(), tag) - order.begin()); }
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

uint32_t write_tiff(uint32_t img, const std::string& path, bool lzw) {
  VEK_image_set_flags(img, VEK_FLAG_TIFF_LZW, lzw ? 1 : 0);
  return write_image(img, VEK_FILE_TIFF, path);
}

}  // namespace

TEST(Tiff, WriterLayoutOfGreyLzwPalettedAndColourFiles) {
  vektest::ErrorRecorder rec;
  const std::string path = scratch("layout.tif");
  Image grey(filled(VEK_Y8, 640, 480, 1)), pal(filled(VEK_PALETTED, 3, 2, 5));
  std::vector<uint8_t> f;
  Dir d;
  auto write = [&](uint32_t img, bool lzw, uint32_t entries) {
    ASSERT_EQ(write_tiff(img, path, lzw), 0u);
    f = read_file(path);
    d = directory(f, entries);
  };
  write(grey, false, 13);
  ASSERT_EQ(std::vector<uint8_t>(f.begin(), f.begin() + 8), (std::vector<uint8_t>{'M', 'M', 0, 42, 0, 0, 0, 8}));
  EXPECT_EQ(d.count, 13u);
  EXPECT_EQ(d.order, (std::vector<uint32_t>{254, 256, 257, 258, 259, 262, 273, 277, 278, 279, 282, 283, 296}));
  EXPECT_EQ(d.value(256) << 16 | d.value(259), 640u << 16 | 1u);
  EXPECT_EQ(d.value(279), 307200u);
  EXPECT_EQ(d.value(273), f.size() - 307200);
  EXPECT_EQ(be32(f, 10 + 12 * 13), 0u);  // next directory
  EXPECT_EQ(be32(f, d.value(282)) << 8 | be32(f, d.value(282) + 4), 300u << 8 | 1u);
  EXPECT_TRUE(std::equal(f.begin() + d.value(273), f.end(), data(grey)));

  write(grey, true, 14);
  EXPECT_EQ(d.count, 13u);  // the Predictor entry is there but not counted
  EXPECT_EQ(d.order, (std::vector<uint32_t>{254, 256, 257, 258, 259, 262, 273, 277, 278, 317, 279, 282, 283, 296}));
  EXPECT_EQ(d.value(259) << 16 | d.value(317), 5u << 16 | 2u);
  EXPECT_EQ(d.value(279), f.size() - d.value(273));
  // Writing differenced the image in place and then gave it back unchanged.
  EXPECT_EQ(pixels(grey), vektest::random_bytes(640 * 480, 1));

  // Paletted: 14 entries, the map behind the next-directory offset, each component twice;
  // no uncompressed data path, so the file ends after the header.
  write(pal, false, 14);
  EXPECT_EQ(d.count << 16 | d.value(262), 14u << 16 | 3u);
  EXPECT_EQ(d.entries[320], std::make_pair(768u, 8u + 2 + 14 * 12 + 4));
  for (uint32_t i = 0; i < 3 * 256; ++i)
    EXPECT_EQ(be16(f, d.value(320) + 2 * i), cmap_of(pal)[4 * (i % 256) + i / 256] * 257u) << i;
  EXPECT_EQ(d.value(273), f.size());

  // Colour formats go out as 8-bit RGB, YUV through the reference equations.
  for (uint32_t format : {VEK_RGB24, VEK_BGR24, VEK_BGRX32, VEK_YUV422}) {
    Image img(filled(format, 8 - (format != VEK_YUV422), 5, format, 4));
    write(img, false, 14);
    EXPECT_EQ(d.entries.at(258).first << 16 | be16(f, d.value(258)) << 8 | d.value(284), 3u << 16 | 8u << 8 | 1u);
    EXPECT_EQ(std::vector<uint8_t>(f.begin() + d.value(273), f.end()), picture(img)) << format;
    EXPECT_EQ(d.value(279), f.size() - d.value(273));
  }
  EXPECT_EQ(rec.count(), 0u);
  VEK_image_set_parameter(pal, VEK_PARAM_CMAP_SIZE, 16);
  EXPECT_EQ(write_tiff(pal, path, false), 0x10070010u);
  EXPECT_TRUE(rec.only("VEK_write_TIFF_file", 0x10070010u, "Unsupported palette/colourmap size"));
}

TEST(Tiff, OurFilesReadBackInTheMatchingFormat) {
  vektest::ErrorRecorder rec;
  const std::string path = scratch("round.tif");
  struct Case { uint32_t format; bool lzw; uint32_t read_as; };
  for (const Case& c : std::vector<Case>{
           {VEK_Y8, false, VEK_Y8}, {VEK_Y8, true, VEK_Y8}, {VEK_Y16, false, VEK_Y16}, {VEK_Y16, true, VEK_Y16},
           {VEK_RGB24, false, VEK_RGB24}, {VEK_RGB24, true, VEK_RGB24}, {VEK_PALETTED, true, VEK_PALETTED},
           {VEK_BGR24, false, VEK_RGB24}, {VEK_BGRX32, false, VEK_RGB24}, {VEK_BGRX32, true, VEK_BGRX32},
           {VEK_YUV422, true, VEK_YUV422}, {VEK_CMYK32, true, VEK_CMYK32}})
    for (uint32_t w : {1u, 6u, 37u}) {
      Image img(filled(c.format, w, 9, w * 7 + c.format));
      ASSERT_EQ(write_tiff(img, path, c.lzw), 0u);
      Image back(read_image(path));
      ASSERT_NE(back.h, 0u) << c.format << (c.lzw ? " lzw" : "") << " w " << w;
      EXPECT_EQ(param(back, VEK_PARAM_FORMAT), c.read_as) << c.format;
      EXPECT_EQ(VEK_image_get_flags(back, VEK_FLAG_TIFF_LZW), c.lzw ? 1u : 0u);
      EXPECT_EQ(pixels(back), c.read_as == c.format ? pixels(img) : picture(img))
          << c.format << (c.lzw ? " lzw" : "") << " w " << w;
      if (c.format == VEK_PALETTED) { EXPECT_EQ(0, std::memcmp(cmap_of(back), cmap_of(img), 1024)); }
    }
  EXPECT_EQ(rec.count(), 0u);
}

TEST(Tiff, DamagedFilesAreRefused) {
  Image img(filled(VEK_RGB24, 16, 8, 3));
  std::vector<uint8_t> files[2];
  for (bool lzw : {false, true}) {
    ASSERT_EQ(write_tiff(img, scratch("good.tif"), lzw), 0u);
    files[lzw] = read_file(scratch("good.tif"));
  }
  const Dir d = directory(files[1], 15);
  const size_t data_at = d.value(273);
  constexpr uint32_t kCorrupt = 0x10050000, kUnsupported = 0x10070000;
  struct Case {  // messages where the reader's are fixed
    bool lzw; size_t at; std::vector<uint8_t> bytes; size_t size; uint32_t code;
    const char *message, *function = "VEK_read_TIFF_file";
  };
  for (const Case& c : std::vector<Case>{
           {1, 0, {'X', 'X'}, 0, kCorrupt, "Expecting 'MM' or 'II'"},
           {1, 2, {0, 43}, 0, kCorrupt, "Expecting 42"},
           {1, 4, {0x7F, 0, 0, 0}, 0, kCorrupt, nullptr},  // directory offset past the end
           {1, 8, {0x10, 0}, 0, kCorrupt, nullptr},        // directory runs past the end
           {1, d.at(259) + 8, {0, 7}, 0, kUnsupported, "only LZW compression supported"},
           {1, d.at(317) + 8, {0, 3}, 0, kCorrupt, "incorrect value for Predictor"},
           {1, d.at(256) + 4, {0, 0, 0, 2}, 0, kCorrupt, "Expecting 1 entry in ImageWidth"},
           {1, d.at(262) + 8, {0, 4}, 0, kUnsupported, "unsupported image"},
           {1, d.at(277) + 8, {0, 2}, 0, kCorrupt, nullptr},  // BitsPerSample count vs SamplesPerPixel
           {1, d.at(262) + 8, {0, 1}, 0, kUnsupported, "unsupported image type"},
           {1, d.at(284) + 8, {0, 2}, 0, kUnsupported, "unsupported TIFF format"},
           {1, d.at(273) + 8, {0x7F, 0, 0, 0}, 0, kCorrupt, nullptr},  // strip past the end
           {1, d.at(257) + 8, {0xFF, 0xFF}, 0, kCorrupt, nullptr},     // strip count vs height
           {1, d.at(278) + 4, {0, 0, 0, 2}, 0, kCorrupt, "expecting 1 entry in RowsPerStrip"},
           {1, d.at(278) + 8, {0, 0, 0, 1}, 0, kCorrupt, nullptr},  // strip count vs height
           {1, 0, {}, data_at + 20, kCorrupt, nullptr},             // LZW strip cut short
           {1, data_at + 5, {0xFF, 0xFF, 0xFF}, 0, kCorrupt, nullptr, "lzw_decode"},
           {0, 10 + 12 + 8, {0x7F}, 0, kCorrupt, nullptr},  // size beyond what the file holds
           // StripByteCounts turned into a Predictor of 2 (the reader does not need the count).
           {0, 10 + 12 * 9, {0x01, 0x3D, 0, 3, 0, 0, 0, 1, 0, 2}, 0, kUnsupported,
            "Predictor only supported for LZW compressed files"},
       })
    expect_refused(VEK_read_TIFF_file, c.function, patched(files[c.lzw], c.at, c.bytes, c.size), c.code, c.message);
}

// ---- peers: Pillow (which decodes TIFF through libtiff) and libtiff's tools ----

// Pillow reads our BMP files of every format it can hold. libtiff describes every TIFF
// file we write; where our layout lets a standard reader see the picture, Pillow's
// pixels agree (the uncounted Predictor entry of LZW files and the formats without a
// standard reading are left out there).
TEST(FilePeers, PillowAndLibtiffReadOurFiles) {
  if (!have_tool("tiffinfo") || !have_pillow()) GTEST_SKIP() << "tiffinfo or Pillow not available";
  const std::string bmp = scratch("peer.bmp"), tif = scratch("peer.tif");
  for (uint32_t format : {VEK_Y8, VEK_Y16, VEK_PALETTED, VEK_RGB24, VEK_BGR24, VEK_BGRX32, VEK_YUV422, VEK_CMYK32})
    for (uint32_t w : {1u, 6u, 33u, 64u}) {
      Image img(filled(format, w, 11, w + format));
      if (format == VEK_Y8 || format == VEK_PALETTED || format == VEK_RGB24 || format == VEK_BGRX32) {
        ASSERT_EQ(write_image(img, VEK_FILE_BMP, bmp), 0u);
        EXPECT_EQ(pillow_pixels(bmp, true), seen_rgb(img)) << "BMP format " << format << " width " << w;
      }
      for (bool lzw : {false, true}) {
        ASSERT_EQ(write_tiff(img, tif, lzw), 0u);
        std::string out;
        run("tiffinfo " + tif + " 2>&1", &out);
        EXPECT_NE(out.find("Image Width: " + std::to_string(w) + " Image Length: 11"), std::string::npos) << out;
        EXPECT_NE(out.find(lzw ? "Compression Scheme: LZW" : "Compression Scheme: None"), std::string::npos) << out;
        if (format == VEK_Y8 || format == VEK_RGB24 ||
            (!lzw && (format == VEK_BGR24 || format == VEK_BGRX32 || format == VEK_Y16))) {
          std::vector<uint8_t> want = format == VEK_Y16 ? pixels(img) : picture(img);
          if (format == VEK_Y16)  // Pillow's I;16B keeps file order
            for (size_t i = 0; i + 1 < want.size(); i += 2) std::swap(want[i], want[i + 1]);
          EXPECT_EQ(pillow_pixels(tif, false), want) << format << " " << lzw << " " << w;
        }
      }
    }
}

// Pillow writes each picture as TIFF (plain and LZW) and BMP, with the bytes it means
// beside it; tiffcp rewrites the TIFF in other strip, predictor and byte-order layouts.
TEST(FilePeers, FilesFromPillowAndLibtiffReadWithIdenticalPixels) {
  if (!have_pillow() || !have_tool("tiffcp")) GTEST_SKIP() << "Pillow or tiffcp not available";
  const std::string dir = vektest::scratch_dir();
  std::string out;
  ASSERT_EQ(python("import random\nfrom PIL import Image\nrandom.seed(11)\n"
                   "for mode in ('L','P','RGB','I;16'):\n"
                   "  for w in (1,6,13):\n"
                   "    n = w*10*{'L':1,'P':1,'RGB':3,'I;16':2}[mode]\n"
                   "    im = Image.frombytes(mode,(w,10),bytes(random.randrange(256) for _ in range(n)))\n"
                   "    if mode=='P': im.putpalette([random.randrange(256) for _ in range(768)])\n"
                   "    base = '" + dir + "pil_%s_%d' % (mode.replace(';',''), w)\n"
                   "    im.save(base + '.tif')\n"
                   "    im.save(base + '_lzw.tif', compression='tiff_lzw')\n"
                   "    if mode != 'I;16': im.save(base + '.bmp')\n"
                   "    raw = im.convert('RGB').tobytes() if mode in ('P','RGB') else im.tobytes()\n"
                   "    open(base + '.raw','wb').write(raw)\n", &out), 0) << out;
  vektest::ErrorRecorder rec;
  for (const std::string mode : {"L", "P", "RGB", "I16"})
    for (int w : {1, 6, 13}) {
      const std::string base = dir + "pil_" + mode + "_" + std::to_string(w);
      std::vector<std::string> variants{base + ".tif", base + "_lzw.tif"};
      if (mode != "I16") variants.push_back(base + ".bmp");
      for (const char* opt : {"-c none", "-c lzw", "-c lzw:2", "-c lzw:2 -r 3", "-c none -r 4 -B", "-c lzw:2 -r 1 -B",
                              "-c lzw -L -r 7"}) {
        variants.push_back(base + "_cp" + std::to_string(variants.size()) + ".tif");
        ASSERT_EQ(run(std::string("tiffcp ") + opt + " " + base + ".tif " + variants.back() + " 2>&1", &out), 0) << out;
      }
      for (const auto& v : variants) {
        Image h(read_image(v));
        // Grey as samples (a grey BMP's indices are its values), 16-bit in host order as
        // Pillow's I;16 holds them, the rest as RGB.
        const bool samples = mode == "L" || param(h, VEK_PARAM_FORMAT) == VEK_Y16;
        EXPECT_EQ(samples ? pixels(h) : seen_rgb(h), read_file(base + ".raw")) << v;
      }
    }
  EXPECT_EQ(rec.count(), 0u);
}
