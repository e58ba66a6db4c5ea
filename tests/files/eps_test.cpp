// EPS: placement arithmetic, the exact text of header and hex data, round trips
// through our reader, the scanner, and Ghostscript rendering the files we write.
#include <cctype>

#include "helpers.h"

using namespace filetest;

namespace {

std::string hex_line(const uint8_t* p, size_t n) {
  std::string s;
  char hex[3];
  for (size_t x = 0; x < n; ++x) {
    std::snprintf(hex, sizeof hex, "%02x", p[x]);
    s += hex;
    if (x % 39 == 38 && x + 1 < n) s += "\n";  // after every 39th byte of a line
  }
  return s + "\n";
}

// A 1-bit image over the caller's bits: 1-bit lines are not sized by the library.
uint32_t bits_image(uint32_t w, uint32_t h, std::vector<uint8_t>& bits) {
  uint32_t img = vektest::make_image(VEK_Y1, w, h);
  VEK_image_free_data(img);
  VEK_image_set_ptr(img, VEK_PTR_DATA, bits.data());
  VEK_image_set_flags(img, VEK_FLAG_EXTERNAL, 1);
  return img;
}

}  // namespace

TEST(Eps, PlacementFollowsTheWorkedExamples) {
  const std::string path = scratch("place.eps");
  struct Case {
    uint32_t w, h;
    const char *box, *scale;
  };
  for (const Case c : {Case{640, 480, "18 22 540 718", "696 522"}, Case{100, 100, "18 109 540 631", "522 522"},
                       Case{100, 400, "189 10 369 730", "180 720"}, Case{400, 100, "189 10 369 730", "720 180"}}) {
    uint32_t img = vektest::make_image(VEK_Y8, c.w, c.h);
    VEK_image_set_outfilename(img, path.c_str());
    ASSERT_EQ(VEK_write_EPS_file(img, VEK_STRIP_END), 0u);  // header only
    const std::string t = text_of(path);
    EXPECT_NE(t.find(std::string("%%BoundingBox: ") + c.box + "\n"), std::string::npos) << t;
    EXPECT_NE(t.find(std::string("\n") + c.scale + " scale\n"), std::string::npos) << t;
    EXPECT_EQ(t.find("showpage"), std::string::npos);
    VEK_image_destroy(img);
  }
}

TEST(Eps, GreyFileTextIsExact) {
  const std::string path = scratch("exact.eps");
  uint32_t img = vektest::make_image(VEK_Y8, 41, 2);
  std::memcpy(static_cast<char*>(VEK_image_get_ptr(img, VEK_PTR_RECORD)) + 4, "vek test", 9);
  vektest::fill_random(img, 5);
  ASSERT_EQ(write_image(img, VEK_FILE_EPS, path), 0u);
  const uint32_t bpl = param(img, VEK_PARAM_BYTES_PER_LINE);
  EXPECT_EQ(text_of(path),
            "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 261 10 296 730\n%%Creator: vek test\n"
            "%%EndComments\n%%EndProlog\n261 10 translate\n0 rotate\n/picstr 41 string def\n720 35 scale\n"
            "41 2 8\n[0 41 2 0 0 0]\t% Landscape Orientation\n{currentfile\n picstr readhexstring pop}\nimage\n" +
                hex_line(data(img), 41) + hex_line(data(img) + bpl, 41) + "showpage\n%%EOF\n");
  VEK_image_destroy(img);
}

// Regression: rows were walked at the image's own line size; the layout walks them
// at their byte count rounded up to even, whatever the alignment, and bytes the walk
// finds past the strip (alignment 1) come out as zeros.
TEST(Eps, RowsAreWalkedAtTheirByteCountRoundedToEven) {
  const std::string path = scratch("walk.eps");
  for (uint32_t align : {1u, 4u}) {
    uint32_t img = vektest::make_image(VEK_Y8, 5, 3, 0, align);
    vektest::fill_random(img, align);
    std::vector<uint8_t> walked(18, 0);
    std::copy(data(img), data(img) + std::min<size_t>(18, param(img, VEK_PARAM_BYTES_PER_LINE) * 3), walked.begin());
    ASSERT_EQ(write_image(img, VEK_FILE_EPS, path), 0u);
    const std::string t = text_of(path);
    EXPECT_EQ(t.substr(t.find("image\n") + 6), hex_line(&walked[0], 5) + hex_line(&walked[6], 5) +
                                                   hex_line(&walked[12], 5) + "showpage\n%%EOF\n")
        << "alignment " << align;
    VEK_image_destroy(img);
  }
}

TEST(Eps, PalettedFileCarriesItsColourMap) {
  const std::string path = scratch("pal.eps");
  uint32_t img = vektest::make_image(VEK_PALETTED, 3, 5);
  VEK_image_set_parameter(img, VEK_PARAM_CMAP_SIZE, 12);
  random_cmap(img, 4);
  ASSERT_EQ(write_image(img, VEK_FILE_EPS, path), 0u);
  std::string pal = "[/Indexed /DeviceRGB 11\n <";
  for (int i = 0; i < 12; ++i) {
    char e[8];
    std::snprintf(e, sizeof e, "%02x%02x%02x", cmap_of(img)[4 * i], cmap_of(img)[4 * i + 1], cmap_of(img)[4 * i + 2]);
    pal += e;
    if (i < 11) pal += i % 11 == 10 ? "\n  " : " ";
  }
  pal += ">\n] setcolorspace\n<<\n  /ImageType 1\n  /Width 3\n  /Height 5\n  /BitsPerComponent 8\n"
         "  /Decode [0 1 0 1 0 1]\n  /ImageMatrix[3 0 0 -5 0 5]\t% Portrait Orientation\n"
         "  /DataSource currentfile\n  /ASCIIHexDecode filter\n>>\nimage\n";
  const std::string t = text_of(path);
  EXPECT_NE(t.find(pal), std::string::npos) << t;
  EXPECT_NE(t.find("%%LanguageLevel: 2\n"), std::string::npos);
  VEK_image_destroy(img);
}

TEST(Eps, EveryFormatReadsBack) {
  vektest::ErrorRecorder rec;
  const std::string path = scratch("round.eps");
  for (uint32_t format : {VEK_Y8, VEK_PALETTED, VEK_RGB24})
    for (uint32_t w : {1u, 7u, 40u, 100u})
      for (uint32_t h : {3u, 50u}) {
        uint32_t img = vektest::make_image(format, w, h);
        vektest::fill_random(img, w * h + format);
        random_cmap(img, w);
        ASSERT_EQ(write_image(img, VEK_FILE_EPS, path), 0u);
        uint32_t back = read_image(path);
        ASSERT_NE(back, 0u);
        EXPECT_EQ(param(back, VEK_PARAM_FORMAT), format);
        EXPECT_EQ(picture(back), picture(img)) << format << " " << w << "x" << h;
        if (format == VEK_PALETTED) {
          EXPECT_EQ(param(back, VEK_PARAM_CMAP_SIZE), 256u);
          EXPECT_EQ(0, std::memcmp(cmap_of(back), cmap_of(img), 1024));
        }
        VEK_image_destroy(back);
        VEK_image_destroy(img);
      }
  // 1-bit lines are sized by their bytes, padded to even.
  auto bits = vektest::random_bytes(16, 3);
  uint32_t img = bits_image(19, 4, bits);
  ASSERT_EQ(write_image(img, VEK_FILE_EPS, path), 0u);
  uint32_t back = read_image(path);
  ASSERT_NE(back, 0u);
  EXPECT_EQ(param(back, VEK_PARAM_FORMAT), uint32_t(VEK_Y1));
  for (int y = 0; y < 4; ++y) EXPECT_EQ(0, std::memcmp(data(back) + 4 * y, bits.data() + 4 * y, 3)) << y;
  VEK_image_destroy(back);
  VEK_image_destroy(img);
  EXPECT_EQ(rec.count(), 0u);
}

TEST(Eps, RefusalsAndDamagedFiles) {
  vektest::ErrorRecorder rec;
  uint32_t img = vektest::make_image(VEK_RGB16, 4, 4);
  EXPECT_EQ(write_image(img, VEK_FILE_EPS, scratch("bad.eps")), 0x10070006u);
  EXPECT_TRUE(rec.only("VEK_write_EPS_file", 0x10070006u, "Unsupported image format"));
  VEK_image_destroy(img);
  img = vektest::make_image(VEK_Y8, 50, 50);
  ASSERT_EQ(write_image(img, VEK_FILE_EPS, scratch("good.eps")), 0u);
  const std::string good = text_of(scratch("good.eps"));
  const size_t data_at = good.find("image\n") + 6;
  struct Case {
    std::string text;
    const char* message;
  };
  for (const Case& c : std::vector<Case>{
           {good.substr(0, good.size() / 2), "Image data ends early"},
           {good.substr(0, data_at) + "zz" + good.substr(data_at + 2), "Invalid hex data"},
           {"%!PS\n", "No image found in file"},
           {"%!PS\n100000 100000 8\n[1 0 0 -1 0 1]\n{}\nimage\n00\n", "Image data ends early"},
           {"%!PS\n10 10 4\nimage\n", "Unsupported EPS image"},
           {"%!PS\n[/Indexed /DeviceRGB 3\n <000000 111111>\n", "Invalid colour map"},
       })
    expect_refused(VEK_read_EPS_file, "VEK_read_EPS_file", std::vector<uint8_t>(c.text.begin(), c.text.end()),
                   c.message, 0, true);  // damaged hex data leaves the lines read so far
  VEK_image_destroy(img);
}

TEST(Eps, ScannerReadsIntegersAndLiterals) {
  int32_t v[4] = {};
  EXPECT_EQ(VEK_sscanf("[0 -41 2 0]", "[%d %d", v, 4), 2u);
  EXPECT_EQ(v[1], -41);
  EXPECT_EQ(VEK_sscanf("/Width 17", "/Height %d", v, 4), 0u);
  EXPECT_EQ(VEK_sscanf("720 35 scale", "%d %d %d", v, 4), 2u);
  EXPECT_EQ(VEK_sscanf("99999999999", "%ld", v, 1), 1u);
  EXPECT_EQ(v[0], INT32_MAX);
  EXPECT_EQ(VEK_sscanf("5%", "%d%%", v, 1), 1u);
  EXPECT_EQ(VEK_sscanf(nullptr, "%d", v, 1), 0u);
}

// Ghostscript renders our files inside the bounding box; sampled at the centre of each
// source pixel the rendering gives back the source (1-bit: 0 black, 1 white).
TEST(EpsPeer, GhostscriptRendersOurFiles) {
  if (!have_tool("gs")) GTEST_SKIP() << "ghostscript not installed";
  const std::string path = scratch("gs.eps"), out = scratch("gs.ppm");
  std::vector<uint8_t> bits = vektest::random_bytes(4096, 9);
  struct Case {
    uint32_t format, w, h;
  };
  for (const Case c : {Case{VEK_Y8, 20, 30}, Case{VEK_RGB24, 25, 16}, Case{VEK_RGB24, 9, 9}, Case{VEK_Y8, 40, 13},
                       Case{VEK_Y1, 21, 30}, Case{VEK_Y1, 40, 17}}) {
    uint32_t img = c.format == VEK_Y1 ? bits_image(c.w, c.h, bits) : vektest::make_image(c.format, c.w, c.h);
    if (c.format != VEK_Y1) vektest::fill_random(img, c.w);
    ASSERT_EQ(write_image(img, VEK_FILE_EPS, path), 0u);
    std::string log;
    ASSERT_EQ(run("gs -q -dSAFER -dBATCH -dNOPAUSE -dEPSCrop -dNOINTERPOLATE -r72 -sDEVICE=ppmraw -sOutputFile=" +
                      out + " " + path + " 2>&1",
                  &log),
              0)
        << log;
    // P6 header: magic, width, height, maximum, with '#' comment lines between.
    const auto ppm = read_file(out);
    size_t at = 2;
    int dims[3] = {};
    for (int& field : dims) {
      while (at < ppm.size() && (std::isspace(ppm[at]) || ppm[at] == '#'))
        at = ppm[at] == '#' ? std::find(ppm.begin() + long(at), ppm.end(), '\n') - ppm.begin() : at + 1;
      while (at < ppm.size() && std::isdigit(ppm[at])) field = field * 10 + (ppm[at++] - '0');
    }
    const int W = dims[0], H = dims[1];  // the page is the bounding box
    ASSERT_EQ(ppm.size(), at + 1 + size_t(W) * H * 3);
    const size_t bit_stride = ((c.w + 7) / 8 + 1) & ~size_t(1);
    const bool landscape = c.w > c.h;
    int bad = 0;
    for (uint32_t y = 0; y < c.h; ++y)
      for (uint32_t x = 0; x < c.w; ++x) {
        // Portrait: rows top to bottom. Landscape: row y at the left, columns upward.
        const double u = landscape ? (y + 0.5) / c.h : (x + 0.5) / c.w;
        const double v = landscape ? 1 - (x + 0.5) / c.w : (y + 0.5) / c.h;
        const uint8_t* g = ppm.data() + at + 1 + 3 * (size_t(v * H) * W + size_t(u * W));
        const uint8_t* s = data(img) + y * param(img, VEK_PARAM_BYTES_PER_LINE);
        for (int k = 0; k < 3; ++k) {
          const int want = c.format == VEK_Y1    ? ((bits[y * bit_stride + x / 8] >> (7 - x % 8)) & 1) * 255
                           : c.format == VEK_RGB24 ? s[3 * x + k]
                                                   : s[x];
          bad += std::abs(int(g[k]) - want) > 1;
        }
      }
    EXPECT_EQ(bad, 0) << c.format << " " << c.w << "x" << c.h << " page " << W << "x" << H;
    VEK_image_destroy(img);
  }
}
