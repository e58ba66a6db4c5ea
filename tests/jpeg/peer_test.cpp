// Interoperability with libjpeg-turbo: our files decoded by it, its files decoded by us.
// TurboJPEG is loaded at run time and cjpeg run as a program; both skip when missing.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/recorder.h"
#include "vek.h"

namespace {

// The handful of TurboJPEG entry points used, with their documented signatures.
struct Turbo {
  using Init = void* (*)();
  using Header = int (*)(void*, const unsigned char*, unsigned long, int*, int*, int*, int*);
  using ToPlanes = int (*)(void*, const unsigned char*, unsigned long, unsigned char**, int, int*, int, int);
  using ToPixels = int (*)(void*, const unsigned char*, unsigned long, unsigned char*, int, int, int, int, int);
  using Destroy = int (*)(void*);
  void* lib = nullptr;
  Init init = nullptr;
  Header header = nullptr;
  ToPlanes planes = nullptr;
  ToPixels pixels = nullptr;
  Destroy destroy = nullptr;
  static constexpr int kAccurateDct = 4096, kRgb = 0, kGray = 6;

  Turbo() {
    lib = dlopen("libturbojpeg.so.0", RTLD_NOW);
    if (!lib) return;
    init = reinterpret_cast<Init>(dlsym(lib, "tjInitDecompress"));
    header = reinterpret_cast<Header>(dlsym(lib, "tjDecompressHeader3"));
    planes = reinterpret_cast<ToPlanes>(dlsym(lib, "tjDecompressToYUVPlanes"));
    pixels = reinterpret_cast<ToPixels>(dlsym(lib, "tjDecompress2"));
    destroy = reinterpret_cast<Destroy>(dlsym(lib, "tjDestroy"));
  }
  ~Turbo() {
    if (lib) dlclose(lib);
  }
  bool ok() const { return init && header && planes && pixels && destroy; }

  // Raw component planes at their own resolution (no upsampling, no colour conversion).
  bool decode_planes(const std::vector<uint8_t>& file, int& w, int& h, int& subsamp,
                     std::vector<uint8_t> (&out)[3], int (&pw)[3], int (&ph)[3]) {
    void* d = init();
    int cs = 0;
    bool good = header(d, file.data(), file.size(), &w, &h, &subsamp, &cs) == 0;
    const int ncomp = subsamp == 3 ? 1 : 3;
    const int cw = subsamp == 0 || subsamp == 3 ? w : (w + 1) / 2;
    const int ch = subsamp == 2 ? (h + 1) / 2 : h;
    unsigned char* ptrs[3] = {nullptr, nullptr, nullptr};
    int strides[3] = {w, cw, cw};
    for (int c = 0; c < 3; ++c) {
      pw[c] = c ? cw : w;
      ph[c] = c ? ch : h;
      // Generous room: the library may write whole MCU rows into the planes.
      out[c].assign(c < ncomp ? size_t(pw[c]) * (ph[c] + 16) : 0, 0);
      ptrs[c] = c < ncomp ? out[c].data() : nullptr;
    }
    good = good && planes(d, file.data(), file.size(), ptrs, 0, strides, 0, kAccurateDct) == 0;
    destroy(d);
    return good;
  }
  std::vector<uint8_t> decode_rgb(const std::vector<uint8_t>& file, int w, int h) {
    std::vector<uint8_t> rgb(size_t(w) * h * 3);
    void* d = init();
    pixels(d, file.data(), file.size(), rgb.data(), w, 0, h, kRgb, kAccurateDct);
    destroy(d);
    return rgb;
  }
};

std::vector<uint8_t> slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

uint8_t* data(uint32_t h) { return static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA)); }
uint32_t pitch(uint32_t h) { return VEK_image_get_parameter(h, VEK_PARAM_BYTES_PER_LINE); }

uint8_t photo(uint32_t x, uint32_t y, int c) {
  double v = 128 + 80 * std::sin(x / (11.0 + 4 * c) + y / 29.0) + 35 * std::cos(y / (9.0 + c) - x / 50.0);
  if (((x / 40) + (y / 30)) % 4 == 0) v = 0.7 * v + 40 * c;
  return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
}

// Largest difference between our decoded 4:2:2 / grey raster and the peer's planes,
// with the peer's 2x2 chroma brought to our line layout by the same 3:1 line blend.
int max_difference(uint32_t ours, int subsamp, std::vector<uint8_t> (&p)[3], int (&pw)[3], int (&ph)[3]) {
  const int w = int(VEK_get_width(ours)), h = int(VEK_get_height(ours));
  int worst = 0;
  auto note = [&](int a, int b) { worst = std::max(worst, std::abs(a - b)); };
  for (int y = 0; y < h; ++y) {
    const uint8_t* line = data(ours) + size_t(y) * pitch(ours);
    for (int x = 0; x < w; ++x) {
      if (subsamp == 3) {
        note(line[x], p[0][size_t(y) * pw[0] + x]);
        continue;
      }
      note(line[2 * x], p[0][size_t(y) * pw[0] + x]);
      const int c = (x & 1) ? 2 : 1;
      int want = 0;
      if (subsamp == 1) {
        want = p[c][size_t(y) * pw[c] + x / 2];
      } else {
        const int near = y / 2;
        int far = (y & 1) ? near + 1 : near - 1;
        far = std::max(0, std::min(far, ph[c] - 1));
        want = (3 * p[c][size_t(near) * pw[c] + x / 2] + p[c][size_t(far) * pw[c] + x / 2] + 2) >> 2;
      }
      note(line[2 * x + 1], want);
    }
  }
  return worst;
}

TEST(JpegPeer, OurFilesDecodeInLibjpegTurbo) {
  Turbo tj;
  if (!tj.ok()) GTEST_SKIP() << "libturbojpeg.so.0 not available";
  for (uint32_t format : {uint32_t(VEK_BGRX32), uint32_t(VEK_Y8)}) {
    const uint32_t w = 642, h = 482;
    const uint32_t src = vektest::make_image(format, w, h);
    const uint32_t bpp = format == VEK_Y8 ? 1 : 4;
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x)
        for (uint32_t c = 0; c < bpp; ++c) data(src)[size_t(y) * pitch(src) + x * bpp + c] = photo(x, y, int(c));
    const uint32_t jpg = VEK_JPEG_image_create();
    ASSERT_EQ(VEK_JPEG_compress(src, jpg), 0u);
    const std::string path = vektest::scratch_dir() + "peer_ours.jpg";
    VEK_image_set_outfilename(jpg, path.c_str());
    ASSERT_EQ(VEK_JPEG_file_write(jpg), 0u);
    const std::vector<uint8_t> file = slurp(path);

    std::vector<uint8_t> p[3];
    int pw[3], ph[3], tw = 0, th = 0, subsamp = -1;
    ASSERT_TRUE(tj.decode_planes(file, tw, th, subsamp, p, pw, ph));
    ASSERT_EQ(tw, int(w));
    ASSERT_EQ(th, int(h));
    EXPECT_EQ(subsamp, format == VEK_Y8 ? 3 : 1);
    const uint32_t ours = VEK_image_create();
    VEK_image_set_parameter(ours, VEK_PARAM_FORMAT, format == VEK_Y8 ? VEK_Y8 : VEK_YUV422);
    ASSERT_EQ(VEK_JPEG_decompress(jpg, ours), 0u);
    const int worst = max_difference(ours, subsamp, p, pw, ph);
    EXPECT_LE(worst, 2);

    // Fidelity to the source, judged on the peer's own decode.
    double se = 0;
    size_t n = 0;
    if (format == VEK_Y8) {
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x, ++n) {
          const double d = double(p[0][size_t(y) * w + x]) - data(src)[size_t(y) * pitch(src) + x];
          se += d * d;
        }
    } else {
      const std::vector<uint8_t> rgb = tj.decode_rgb(file, int(w), int(h));
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
          for (int c = 0; c < 3; ++c, ++n) {
            const double d = double(rgb[(size_t(y) * w + x) * 3 + c]) -
                             data(src)[size_t(y) * pitch(src) + x * 4 + (2 - c)];
            se += d * d;
          }
    }
    const double psnr = 10 * std::log10(255.0 * 255.0 / (se / double(n)));
    std::printf("  peer decode of our %s file: max |diff| to our decode %d, PSNR to source %.2f dB\n",
                format == VEK_Y8 ? "grey" : "4:2:2", worst, psnr);
    EXPECT_GT(psnr, 30.0);
    VEK_image_destroy(VEK_ALL_IMAGES);
  }
}

bool have_cjpeg() { return std::system("cjpeg -version > /dev/null 2>&1") == 0 || std::system("command -v cjpeg > /dev/null 2>&1") == 0; }

// Writes a photo-like PPM/PGM and runs cjpeg with `options`; returns the file's path.
std::string peer_file(const std::string& name, int w, int h, bool grey, const std::string& options) {
  const std::string dir = vektest::scratch_dir();
  const std::string in = dir + name + (grey ? ".pgm" : ".ppm");
  const std::string out = dir + name + ".jpg";
  {
    std::ofstream f(in, std::ios::binary);
    f << (grey ? "P5 " : "P6 ") << w << ' ' << h << " 255\n";
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x)
        for (int c = 0; c < (grey ? 1 : 3); ++c) f.put(char(photo(uint32_t(x), uint32_t(y), c)));
  }
  const std::string cmd = "cjpeg " + options + " -outfile " + out + " " + in;
  EXPECT_EQ(std::system(cmd.c_str()), 0) << cmd;
  return out;
}

TEST(JpegPeer, LibjpegTurboFilesDecodeInVek) {
  Turbo tj;
  if (!tj.ok() || !have_cjpeg()) GTEST_SKIP() << "libturbojpeg.so.0 or cjpeg not available";
  struct Peer {
    const char* name;
    int w, h;
    bool grey;
    const char* options;
  };
  const Peer peers[] = {
      {"grey", 641, 479, true, "-grayscale -dct int"},
      {"s422", 642, 482, false, "-sample 2x1 -dct int"},
      {"s420", 642, 482, false, "-sample 2x2 -dct int"},
      {"s420opt", 37, 21, false, "-sample 2x2 -optimize -quality 90"},
      {"s422opt", 101, 77, false, "-sample 2x1 -optimize -quality 40"},
      {"greyopt", 33, 9, true, "-grayscale -optimize"},
  };
  for (const Peer& pr : peers) {
    SCOPED_TRACE(pr.name);
    const std::string path = peer_file(pr.name, pr.w, pr.h, pr.grey, pr.options);
    const uint32_t jpg = VEK_JPEG_image_create();
    VEK_image_set_infilename(jpg, path.c_str());
    ASSERT_EQ(VEK_JPEG_file_read(jpg), 0u);
    std::vector<uint8_t> p[3];
    int pw[3], ph[3], tw = 0, th = 0, subsamp = -1;
    ASSERT_TRUE(tj.decode_planes(slurp(path), tw, th, subsamp, p, pw, ph));
    const uint32_t ours = VEK_image_create();
    VEK_image_set_parameter(ours, VEK_PARAM_FORMAT, pr.grey ? VEK_Y8 : VEK_YUV422);
    ASSERT_EQ(VEK_JPEG_decompress(jpg, ours), 0u);
    ASSERT_EQ(int(VEK_get_width(ours)), pr.w);
    ASSERT_EQ(int(VEK_get_height(ours)), pr.h);
    const int worst = max_difference(ours, subsamp, p, pw, ph);
    std::printf("  %s: max |diff| to libjpeg-turbo %d\n", pr.name, worst);
    EXPECT_LE(worst, 2);
    VEK_image_destroy(VEK_ALL_IMAGES);
  }
}

TEST(JpegPeer, RefusedLibjpegTurboVariants) {
  if (!have_cjpeg()) GTEST_SKIP() << "cjpeg not available";
  vektest::ErrorRecorder rec;
  const std::string progressive = peer_file("prog", 32, 16, false, "-progressive");
  const std::string restart = peer_file("rst", 32, 16, false, "-restart 1B");
  const uint32_t jpg = VEK_JPEG_image_create();
  VEK_image_set_infilename(jpg, progressive.c_str());
  EXPECT_EQ(VEK_JPEG_file_read(jpg), 0x100700C2u);
  EXPECT_TRUE(rec.only("VEK_JPEG_file_read", 0x100700C2u, "Unrecognised marker detected"));
  rec.clear();
  VEK_image_set_infilename(jpg, restart.c_str());
  EXPECT_EQ(VEK_JPEG_file_read(jpg), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_JPEG_file_read", VEK_ERROR_NOT_SUPPORTED, "Define Restart Interval not supported"));
  VEK_image_destroy(jpg);
}

}  // namespace

namespace {

// The bytes of a stream written by one of our writers, `buffer` choosing which.
std::vector<uint8_t> written(uint32_t jpg, bool buffer, const std::string& path) {
  if (!buffer) {
    VEK_image_set_outfilename(jpg, path.c_str());
    EXPECT_EQ(VEK_JPEG_file_write(jpg), 0u);
    return slurp(path);
  }
  std::vector<uint8_t> out(size_t(1) << 22);
  uint32_t n = 0;
  EXPECT_EQ(VEK_JPEG_buffer_write(jpg, out.data(), uint32_t(out.size()), &n), 0u);
  out.resize(n);
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(out.data()), long(out.size()));
  return out;
}

bool djpeg_accepts(const std::string& path) {
  const std::string cmd = "djpeg -outfile /dev/null " + path + " 2>/dev/null";
  return std::system(cmd.c_str()) == 0;
}

// Peer files re-emitted by our writers: the entropy-coded data and tables are carried
// over unchanged, so the peer must decode the re-emitted stream to the very same
// samples. Covers tables spread over several DHT/DQT segments, grey streams holding
// only the luminance tables, COM segments and odd sizes.
TEST(JpegPeer, PeerFilesRewrittenByBothWritersDecodeIdentically) {
  Turbo tj;
  if (!tj.ok() || !have_cjpeg()) GTEST_SKIP() << "libturbojpeg.so.0 or cjpeg not available";
  const bool djpeg = std::system("command -v djpeg > /dev/null 2>&1") == 0;
  struct Peer {
    const char* name;
    int w, h;
    bool grey;
    const char* options;
  };
  const Peer peers[] = {
      {"rw_grey", 45, 31, true, "-grayscale"},
      {"rw_greyopt", 17, 9, true, "-grayscale -optimize"},
      {"rw_422", 50, 20, false, "-sample 2x1 -quality 60"},
      {"rw_420opt", 37, 21, false, "-sample 2x2 -optimize -quality 90"},
  };
  for (const Peer& pr : peers) {
    SCOPED_TRACE(pr.name);
    const std::string path = peer_file(pr.name, pr.w, pr.h, pr.grey, pr.options);
    std::vector<uint8_t> original = slurp(path);
    // A COM segment spliced in after APP0, as other writers place it.
    const std::string text = "a comment well over thirty-two bytes long";
    const bool with_comment = pr.grey;
    if (with_comment) {
      std::vector<uint8_t> com = {0xFF, 0xFE, 0x00, uint8_t(text.size() + 2)};
      com.insert(com.end(), text.begin(), text.end());
      original.insert(original.begin() + 20, com.begin(), com.end());
      std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(original.data()), long(original.size()));
    }
    std::vector<uint8_t> want[3];
    int pw[3], ph[3], w = 0, h = 0, subsamp = -1;
    ASSERT_TRUE(tj.decode_planes(original, w, h, subsamp, want, pw, ph));
    for (const bool buffer : {false, true}) {
      const uint32_t jpg = VEK_JPEG_image_create();
      if (buffer) {
        ASSERT_EQ(VEK_JPEG_buffer_read(jpg, original.data(), uint32_t(original.size())), 0u);
        if (with_comment) {
          EXPECT_EQ(std::memcmp(static_cast<Tjpeg*>(VEK_image_get_ptr(jpg, VEK_PTR_JPEG))->comment,
                                "a comment well over thirty-two b", 32), 0);
        }
      } else {
        VEK_image_set_infilename(jpg, path.c_str());
        ASSERT_EQ(VEK_JPEG_file_read(jpg), 0u);
      }
      const std::string again = vektest::scratch_dir() + pr.name + (buffer ? "_buf.jpg" : "_file.jpg");
      const std::vector<uint8_t> ours = written(jpg, buffer, again);
      std::vector<uint8_t> got[3];
      int gw = 0, gh = 0, gsub = -1;
      ASSERT_TRUE(tj.decode_planes(ours, gw, gh, gsub, got, pw, ph));
      EXPECT_EQ(gw, w);
      EXPECT_EQ(gh, h);
      EXPECT_EQ(gsub, subsamp);
      for (int c = 0; c < 3; ++c) EXPECT_TRUE(got[c] == want[c]) << "component " << c;
      if (djpeg) {
        EXPECT_TRUE(djpeg_accepts(again));
      }
      VEK_image_destroy(jpg);
    }
  }
}

// Our own compressed pictures through both writers, checked by the djpeg program
// (warnings count as failures) and decoded equally by TurboJPEG.
TEST(JpegPeer, BothWritersOutputIsAcceptedByDjpeg) {
  Turbo tj;
  if (!tj.ok() || std::system("command -v djpeg > /dev/null 2>&1") != 0)
    GTEST_SKIP() << "libturbojpeg.so.0 or djpeg not available";
  for (const uint32_t format : {uint32_t(VEK_Y8), uint32_t(VEK_BGR24), uint32_t(VEK_YUV422)}) {
    const uint32_t src = vektest::make_image(format, 77, 35);
    vektest::fill_random(src, format);
    const uint32_t jpg = VEK_JPEG_image_create();
    ASSERT_EQ(VEK_JPEG_compress(src, jpg), 0u);
    std::vector<uint8_t> planes[2][3];
    for (const bool buffer : {false, true}) {
      const std::string path = vektest::scratch_dir() + "ours_" + std::to_string(format) + (buffer ? "b.jpg" : "f.jpg");
      const std::vector<uint8_t> bytes = written(jpg, buffer, path);
      EXPECT_TRUE(djpeg_accepts(path)) << path;
      int pw[3], ph[3], w = 0, h = 0, subsamp = -1;
      ASSERT_TRUE(tj.decode_planes(bytes, w, h, subsamp, planes[buffer], pw, ph));
      EXPECT_EQ(w, 77);
      EXPECT_EQ(h, 35);
    }
    for (int c = 0; c < 3; ++c) EXPECT_TRUE(planes[0][c] == planes[1][c]);
    VEK_image_destroy(VEK_ALL_IMAGES);
  }
}

// An APP1 segment spliced after APP0 of a peer file, and the peer's progressive and
// restart-interval variants through the buffer reader: refused as described.
TEST(JpegPeer, RefusedVariantsInTheBufferReader) {
  if (!have_cjpeg()) GTEST_SKIP() << "cjpeg not available";
  vektest::ErrorRecorder rec;
  std::vector<uint8_t> exif = slurp(peer_file("app1", 16, 16, false, ""));
  ASSERT_GT(exif.size(), 20u);
  const std::vector<uint8_t> app1 = {0xFF, 0xE1, 0x00, 0x0A, 'E', 'x', 'i', 'f', 0, 0, 0x4D, 0x4D};
  exif.insert(exif.begin() + 20, app1.begin(), app1.end());
  const std::string path = vektest::scratch_dir() + "app1.jpg";
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(exif.data()), long(exif.size()));
  const uint32_t jpg = VEK_JPEG_image_create();
  EXPECT_EQ(VEK_JPEG_buffer_read(jpg, exif.data(), uint32_t(exif.size())), 0x100700E1u);
  EXPECT_TRUE(rec.only("VEK_JPEG_buffer_read", 0x100700E1u, "Unrecognised marker detected"));
  rec.clear();
  VEK_image_set_infilename(jpg, path.c_str());
  EXPECT_EQ(VEK_JPEG_file_read(jpg), 0x100700E1u);
  EXPECT_TRUE(rec.only("VEK_JPEG_file_read", 0x100700E1u, "Unrecognised marker detected"));
  const std::vector<uint8_t> prog = slurp(peer_file("prog_b", 32, 16, false, "-progressive"));
  rec.clear();
  EXPECT_EQ(VEK_JPEG_buffer_read(jpg, prog.data(), uint32_t(prog.size())), 0x100700C2u);
  EXPECT_TRUE(rec.only("VEK_JPEG_buffer_read", 0x100700C2u, "Unrecognised marker detected"));
  const std::vector<uint8_t> rst = slurp(peer_file("rst_b", 32, 16, false, "-restart 1B"));
  rec.clear();
  EXPECT_EQ(VEK_JPEG_buffer_read(jpg, rst.data(), uint32_t(rst.size())), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_JPEG_buffer_read", VEK_ERROR_NOT_SUPPORTED, "Define Restart Interval not supported"));
  VEK_image_destroy(jpg);
}

}  // namespace
