// EPS: placement arithmetic, the exact text of header and hex data, round trips
// through our reader, the scanner, and Ghostscript rendering the files we write.
#include "helpers.h"

using namespace filetest;

namespace {

std::string hex_line(const uint8_t* p, size_t n) {
  std::string s;
  char hex[4];
  for (size_t x = 0; x < n; ++x) {  // a line break after every 39th byte of a line
    std::snprintf(hex, sizeof hex, "%02x%s", p[x], x % 39 == 38 && x + 1 < n ? "\n" : "");
    s += hex;
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

// Placement of the worked examples (header only), a paletted header with its map, and
// the exact text of grey files.
TEST(Eps, WrittenTextFollowsTheWorkedExamples) {
  const std::string path = scratch("place.eps");
  struct Case { uint32_t w, h; const char *box, *scale; };
  for (const Case c : {Case{640, 480, "18 22 540 718", "696 522"}, Case{100, 100, "18 109 540 631", "522 522"},
                       Case{100, 400, "189 10 369 730", "180 720"}, Case{400, 100, "189 10 369 730", "720 180"}}) {
    Image img(vektest::make_image(VEK_Y8, c.w, c.h));
    VEK_image_set_outfilename(img, path.c_str());
    ASSERT_EQ(VEK_write_EPS_file(img, VEK_STRIP_END), 0u);  // header only
    const std::string t = text_of(path);
    EXPECT_NE(t.find(std::string("%%BoundingBox: ") + c.box + "\n"), std::string::npos) << t;
    EXPECT_NE(t.find(std::string("\n") + c.scale + " scale\n"), std::string::npos) << t;
    EXPECT_EQ(t.find("showpage"), std::string::npos);
  }
  Image img(vektest::make_image(VEK_PALETTED, 3, 5));
  VEK_image_set_parameter(img, VEK_PARAM_CMAP_SIZE, 12);
  random_cmap(img, 4);
  ASSERT_EQ(write_image(img, VEK_FILE_EPS, path), 0u);
  std::string pal = "[/Indexed /DeviceRGB 11\n <";
  for (int i = 0; i < 12; ++i)  // a line break after the eleventh entry
    pal += hex_line(cmap_of(img) + 4 * i, 3).substr(0, 6) + (i == 11 ? "" : i == 10 ? "\n  " : " ");
  pal += ">\n] setcolorspace\n<<\n  /ImageType 1\n  /Width 3\n  /Height 5\n  /BitsPerComponent 8\n"
         "  /Decode [0 1 0 1 0 1]\n  /ImageMatrix[3 0 0 -5 0 5]\t% Portrait Orientation\n"
         "  /DataSource currentfile\n  /ASCIIHexDecode filter\n>>\nimage\n";
  const std::string t = text_of(path);
  EXPECT_NE(t.find(pal), std::string::npos) << t;
  EXPECT_NE(t.find("%%LanguageLevel: 2\n"), std::string::npos);

  // A grey file's whole text. Regression merged in: rows were walked at the image's own
  // line size; the layout walks them at their byte count rounded up to even, whatever
  // the alignment, and bytes the walk finds past the strip (alignment 1) are zeros.
  for (uint32_t align : {1u, 2u, 4u}) {
    Image grey(filled(VEK_Y8, 41, 2, align, align));
    std::memcpy(static_cast<char*>(VEK_image_get_ptr(grey, VEK_PTR_RECORD)) + 4, "vek test", 9);
    std::vector<uint8_t> walked(84, 0);
    std::copy(data(grey), data(grey) + std::min<size_t>(84, param(grey, VEK_PARAM_BYTES_PER_LINE) * 2), walked.begin());
    ASSERT_EQ(write_image(grey, VEK_FILE_EPS, path), 0u);
    EXPECT_EQ(text_of(path),
              "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 261 10 296 730\n%%Creator: vek test\n"
              "%%EndComments\n%%EndProlog\n261 10 translate\n0 rotate\n/picstr 41 string def\n720 35 scale\n"
              "41 2 8\n[0 41 2 0 0 0]\t% Landscape Orientation\n{currentfile\n picstr readhexstring pop}\nimage\n" +
                  hex_line(&walked[0], 41) + hex_line(&walked[42], 41) + "showpage\n%%EOF\n")
        << "alignment " << align;
  }
}

TEST(Eps, EveryFormatReadsBack) {
  vektest::ErrorRecorder rec;
  const std::string path = scratch("round.eps");
  for (uint32_t format : {VEK_Y8, VEK_PALETTED, VEK_RGB24})
    for (uint32_t w : {1u, 7u, 40u, 100u})
      for (uint32_t h : {3u, 50u}) {
        Image img(filled(format, w, h, w * h + format));
        ASSERT_EQ(write_image(img, VEK_FILE_EPS, path), 0u);
        Image back(read_image(path));
        ASSERT_NE(back.h, 0u);
        EXPECT_EQ(param(back, VEK_PARAM_FORMAT), format);
        EXPECT_EQ(picture(back), picture(img)) << format << " " << w << "x" << h;
        if (format == VEK_PALETTED) {
          EXPECT_EQ(param(back, VEK_PARAM_CMAP_SIZE), 256u);
          EXPECT_EQ(0, std::memcmp(cmap_of(back), cmap_of(img), 1024));
        }
      }
  // 1-bit lines are sized by their bytes, padded to even.
  auto bits = vektest::random_bytes(16, 3);
  Image img(bits_image(19, 4, bits));
  ASSERT_EQ(write_image(img, VEK_FILE_EPS, path), 0u);
  Image back(read_image(path));
  ASSERT_NE(back.h, 0u);
  EXPECT_EQ(param(back, VEK_PARAM_FORMAT), uint32_t(VEK_Y1));
  for (int y = 0; y < 4; ++y) EXPECT_EQ(0, std::memcmp(data(back) + 4 * y, bits.data() + 4 * y, 3)) << y;
  EXPECT_EQ(rec.count(), 0u);
}

TEST(Eps, DamagedFilesAndTheScanner) {
  Image grey(vektest::make_image(VEK_Y8, 50, 50));
  ASSERT_EQ(write_image(grey, VEK_FILE_EPS, scratch("good.eps")), 0u);
  const std::string good = text_of(scratch("good.eps"));
  const size_t data_at = good.find("image\n") + 6;
  struct Case { std::string text; uint32_t code; };
  for (const Case& c : std::vector<Case>{
           {good.substr(0, good.size() / 2), 0x10050000},                         // data ends early
           {good.substr(0, data_at) + "zz" + good.substr(data_at + 2), 0x10050000},  // not hex
           {"%!PS\n", 0x10050000},                                                 // no image
           {"%!PS\n100000 100000 8\n[1 0 0 -1 0 1]\n{}\nimage\n00\n", 0x10050000},
           {"%!PS\n10 10 4\nimage\n", 0x10070000},                        // 4 bits a sample
           {"%!PS\n[/Indexed /DeviceRGB 3\n <000000 111111>\n", 0x10050000},  // map shorter than said
       })  // damaged hex data leaves the lines read so far
    expect_refused(VEK_read_EPS_file, "VEK_read_EPS_file", std::vector<uint8_t>(c.text.begin(), c.text.end()), c.code,
                   nullptr, true);

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
  struct Case { uint32_t format, w, h; };
  for (const Case c : {Case{VEK_Y8, 20, 30}, Case{VEK_RGB24, 25, 16}, Case{VEK_RGB24, 9, 9}, Case{VEK_Y8, 40, 13},
                       Case{VEK_Y1, 21, 30}, Case{VEK_Y1, 40, 17}}) {
    Image img(c.format == VEK_Y1 ? bits_image(c.w, c.h, bits) : filled(c.format, c.w, c.h, c.w));
    ASSERT_EQ(write_image(img, VEK_FILE_EPS, path), 0u);
    std::string log;
    ASSERT_EQ(run("gs -q -dSAFER -dBATCH -dNOPAUSE -dEPSCrop -dNOINTERPOLATE -r72 -sDEVICE=ppmraw -sOutputFile=" + out +
                      " " + path + " 2>&1", &log), 0) << log;
    // P6 header: magic, '#' comment lines, width, height, maximum; the page is the box.
    const auto ppm = read_file(out);
    const std::string text(ppm.begin(), ppm.begin() + long(std::min<size_t>(ppm.size(), 300)));
    size_t at = 2;
    while (text.compare(at, 2, "\n#") == 0) at = text.find('\n', at + 1);
    int W = 0, H = 0, n = 0;
    ASSERT_EQ(std::sscanf(text.c_str() + at, "%d %d %*d%n", &W, &H, &n), 2) << text;
    at += size_t(n);
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
          const int want = c.format == VEK_Y1 ? ((bits[y * bit_stride + x / 8] >> (7 - x % 8)) & 1) * 255
                                              : s[c.format == VEK_RGB24 ? 3 * x + k : x];
          bad += std::abs(int(g[k]) - want) > 1;
        }
      }
    EXPECT_EQ(bad, 0) << c.format << " " << c.w << "x" << c.h << " page " << W << "x" << H;
  }
}
