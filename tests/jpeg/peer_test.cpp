// Interoperability with libjpeg-turbo: our files decoded by it, its files decoded by us
// and re-emitted by our writers. TurboJPEG is loaded at run time and cjpeg/djpeg run as
// programs; the tests skip when they are missing.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "helpers.h"

namespace {

using jt::param;
using jt::pixels;
using Planes = std::vector<uint8_t>[3];

// The few TurboJPEG entry points used, with their documented signatures.
struct Turbo {
  void* lib = dlopen("libturbojpeg.so.0", RTLD_NOW);
  template <class F>
  F sym(const char* name) const { return lib ? reinterpret_cast<F>(dlsym(lib, name)) : nullptr; }
  void* (*init)() = sym<void* (*)()>("tjInitDecompress");
  int (*header)(void*, const unsigned char*, unsigned long, int*, int*, int*, int*) =
      sym<decltype(header)>("tjDecompressHeader3");
  int (*planes)(void*, const unsigned char*, unsigned long, unsigned char**, int, int*, int, int) =
      sym<decltype(planes)>("tjDecompressToYUVPlanes");
  int (*destroy)(void*) = sym<decltype(destroy)>("tjDestroy");
  static constexpr int kAccurateDct = 4096;
  ~Turbo() {
    if (lib) dlclose(lib);
  }
  bool ok() const { return init && header && planes && destroy; }

  // Raw component planes at their own resolution (no upsampling, no colour conversion).
  bool decode_planes(const std::vector<uint8_t>& file, int& w, int& h, int& subsamp, Planes& out, int (&pw)[3]) {
    void* d = init();
    int cs = 0;
    bool good = header(d, file.data(), file.size(), &w, &h, &subsamp, &cs) == 0;
    const int ncomp = subsamp == 3 ? 1 : 3, cw = subsamp == 0 || subsamp == 3 ? w : (w + 1) / 2;
    unsigned char* ptrs[3] = {nullptr, nullptr, nullptr};
    int strides[3] = {w, cw, cw};
    for (int c = 0; c < 3; ++c) {
      pw[c] = c ? cw : w;
      out[c].assign(c < ncomp ? size_t(pw[c]) * (h + 16) : 0, 0);  // room for whole MCU rows
      ptrs[c] = c < ncomp ? out[c].data() : nullptr;
    }
    good = good && planes(d, file.data(), file.size(), ptrs, 0, strides, 0, kAccurateDct) == 0;
    destroy(d);
    return good;
  }
};

bool have(const char* program) { return std::system((std::string("command -v ") + program + " > /dev/null 2>&1").c_str()) == 0; }

uint8_t photo(uint32_t x, uint32_t y, int c) {
  double v = 128 + 80 * std::sin(x / (11.0 + 4 * c) + y / 29.0) + 35 * std::cos(y / (9.0 + c) - x / 50.0);
  if (((x / 40) + (y / 30)) % 4 == 0) v = 0.7 * v + 40 * c;
  return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
}

// Largest difference between our decoded 4:2:2 / grey raster and the peer's planes,
// with the peer's 2x2 chroma brought to our line layout by a 3:1 line blend.
int max_difference(uint32_t ours, int subsamp, Planes& p, int (&pw)[3]) {
  const int w = int(VEK_get_width(ours)), h = int(VEK_get_height(ours)), ch = (h + 1) / 2;
  int worst = 0;
  for (int y = 0; y < h; ++y) {
    const uint8_t* line = pixels(ours) + size_t(y) * param(ours, VEK_PARAM_BYTES_PER_LINE);
    for (int x = 0; x < w; ++x) {
      if (subsamp == 3) {
        worst = std::max(worst, std::abs(line[x] - p[0][size_t(y) * pw[0] + x]));
        continue;
      }
      worst = std::max(worst, std::abs(line[2 * x] - p[0][size_t(y) * pw[0] + x]));
      const std::vector<uint8_t>& c = p[(x & 1) ? 2 : 1];
      int want = c[size_t(y) * pw[1] + x / 2];
      if (subsamp == 2) {
        const int near = y / 2, far = std::max(0, std::min((y & 1) ? near + 1 : near - 1, ch - 1));
        want = (3 * c[size_t(near) * pw[1] + x / 2] + c[size_t(far) * pw[1] + x / 2] + 2) >> 2;
      }
      worst = std::max(worst, std::abs(line[2 * x + 1] - want));
    }
  }
  return worst;
}

// The bytes of a stream written by one of our writers, also left in `path`.
std::vector<uint8_t> written(uint32_t jpg, bool buffer, const std::string& path) {
  if (!buffer) {
    VEK_image_set_outfilename(jpg, path.c_str());
    EXPECT_EQ(VEK_JPEG_file_write(jpg), 0u);
    return jt::slurp(path);
  }
  std::vector<uint8_t> out(size_t(1) << 22);
  uint32_t n = 0;
  EXPECT_EQ(VEK_JPEG_buffer_write(jpg, out.data(), uint32_t(out.size()), &n), 0u);
  out.resize(n);
  jt::spill(path, out);
  return out;
}

bool djpeg_accepts(const std::string& path) {
  return std::system(("djpeg -outfile /dev/null " + path + " 2>/dev/null").c_str()) == 0;
}

// Writes a photo-like picture to `name`.jpg: by cjpeg with `options` from a PPM/PGM, or
// by our encoder and file writer when there are none; returns the file's path.
std::string photo_file(const std::string& name, int w, int h, bool grey, const char* options) {
  const std::string in = vektest::scratch_dir() + name + (grey ? ".pgm" : ".ppm");
  const std::string out = vektest::scratch_dir() + name + ".jpg";
  if (!options) {
    const uint32_t bpp = grey ? 1 : 4, src = vektest::make_image(grey ? VEK_Y8 : VEK_BGRX32, w, h);
    const uint32_t pitch = param(src, VEK_PARAM_BYTES_PER_LINE), jpg = VEK_JPEG_image_create();
    for (uint32_t y = 0; y < uint32_t(h); ++y)
      for (uint32_t x = 0; x < w * bpp; ++x) pixels(src)[y * pitch + x] = photo(x / bpp, y, int(bpp == 1 ? 0 : 2 - x % bpp));
    EXPECT_EQ(VEK_JPEG_compress(src, jpg), 0u);
    written(jpg, false, out);
    VEK_image_destroy(VEK_ALL_IMAGES);
    return out;
  }
  {
    std::ofstream f(in, std::ios::binary);
    f << (grey ? "P5 " : "P6 ") << w << ' ' << h << " 255\n";
    for (int i = 0; i < w * h * (grey ? 1 : 3); ++i) {
      const int px = grey ? i : i / 3;
      f.put(char(photo(uint32_t(px % w), uint32_t(px / w), grey ? 0 : i % 3)));
    }
  }
  const std::string cmd = std::string("cjpeg ") + options + " -outfile " + out + " " + in;
  EXPECT_EQ(std::system(cmd.c_str()), 0) << cmd;
  return out;
}

// Our files (4:2:2 and grey) decode in the peer, and the peer's files in vek, within 2
// levels (optimised tables, 4:2:0 and odd sizes included); re-emitted by both our
// writers, the data and tables carried over must decode in the peer to the very same
// samples (tables spread over several segments, grey streams with only luminance
// tables, a spliced COM segment). djpeg counts warnings as failures.
TEST(JpegPeer, StreamsCrossBetweenVekAndTheLibjpegTurboPeer) {
  Turbo tj;
  if (!tj.ok()) GTEST_SKIP() << "libturbojpeg.so.0 not available";
  const bool djpeg = have("djpeg"), cjpeg = have("cjpeg");
  struct Peer {
    const char* name;
    int w, h;
    bool grey;
    const char* options;  // null: written by vek
  };
  const Peer peers[] = {
      {"ours422", 642, 482, false, nullptr},
      {"oursgrey", 642, 482, true, nullptr},
      {"grey", 641, 479, true, "-grayscale -dct int"},
      {"s422", 642, 482, false, "-sample 2x1 -dct int"},
      {"s420", 642, 482, false, "-sample 2x2 -dct int"},
      {"s420opt", 37, 21, false, "-sample 2x2 -optimize -quality 90"},
      {"s422opt", 101, 77, false, "-sample 2x1 -optimize -quality 40"},
      {"greyopt", 33, 9, true, "-grayscale -optimize"},
  };
  const std::string text = "a comment well over thirty-two bytes long";
  for (const Peer& pr : peers) {
    if (pr.options && !cjpeg) continue;
    SCOPED_TRACE(pr.name);
    const std::string path = photo_file(pr.name, pr.w, pr.h, pr.grey, pr.options);
    std::vector<uint8_t> original = jt::slurp(path);
    if (pr.grey && pr.options) {  // a COM segment after APP0, as other writers place it
      std::vector<uint8_t> com = {0xFF, 0xFE, 0x00, uint8_t(text.size() + 2)};
      com.insert(com.end(), text.begin(), text.end());
      original.insert(original.begin() + 20, com.begin(), com.end());
      jt::spill(path, original);
    }
    if (djpeg) {
      EXPECT_TRUE(djpeg_accepts(path));
    }
    Planes want;
    int pw[3], w = 0, h = 0, subsamp = -1;
    ASSERT_TRUE(tj.decode_planes(original, w, h, subsamp, want, pw));
    EXPECT_TRUE(pr.options || subsamp == (pr.grey ? 3 : 1)) << subsamp;
    for (const bool buffer : {false, true}) {
      const uint32_t jpg = VEK_JPEG_image_create();
      VEK_image_set_infilename(jpg, path.c_str());
      ASSERT_EQ(buffer ? VEK_JPEG_buffer_read(jpg, original.data(), uint32_t(original.size())) : VEK_JPEG_file_read(jpg), 0u);
      if (buffer && pr.grey && pr.options) {
        EXPECT_EQ(std::memcmp(jt::desc(jpg)->comment, text.data(), 32), 0);
      }
      if (!buffer) {
        const uint32_t ours = VEK_image_create();
        VEK_image_set_parameter(ours, VEK_PARAM_FORMAT, pr.grey ? VEK_Y8 : VEK_YUV422);
        ASSERT_EQ(VEK_JPEG_decompress(jpg, ours), 0u);
        ASSERT_EQ(int(VEK_get_width(ours)) << 16 | int(VEK_get_height(ours)), pr.w << 16 | pr.h);
        const int worst = max_difference(ours, subsamp, want, pw);
        std::printf("  %s: max |diff| to libjpeg-turbo %d\n", pr.name, worst);
        EXPECT_LE(worst, 2);
      }
      const std::string again = vektest::scratch_dir() + pr.name + (buffer ? "_buf.jpg" : "_file.jpg");
      Planes got;
      int gw = 0, gh = 0, gsub = -1;
      ASSERT_TRUE(tj.decode_planes(written(jpg, buffer, again), gw, gh, gsub, got, pw));
      EXPECT_TRUE(gw == w && gh == h && gsub == subsamp);
      for (int c = 0; c < 3; ++c) EXPECT_TRUE(got[c] == want[c]) << "component " << c;
      if (djpeg) {
        EXPECT_TRUE(djpeg_accepts(again));
      }
      VEK_image_destroy(VEK_ALL_IMAGES);
    }
  }
}

TEST(JpegPeer, ProgressiveAndRestartFilesAreRefusedByBothReaders) {
  if (!have("cjpeg")) GTEST_SKIP() << "cjpeg not available";
  vektest::ErrorRecorder rec;
  const uint32_t jpg = VEK_JPEG_image_create();
  const std::pair<const char*, uint32_t> variants[] = {{"-progressive", 0x100700C2u}, {"-restart 1B", 0x10070000u}};
  for (const auto& [options, code] : variants) {
    const std::string path = photo_file("refused", 32, 16, false, options);
    const std::vector<uint8_t> bytes = jt::slurp(path);
    VEK_image_set_infilename(jpg, path.c_str());
    rec.clear();
    EXPECT_EQ(VEK_JPEG_file_read(jpg), code) << options;
    EXPECT_EQ(VEK_JPEG_buffer_read(jpg, bytes.data(), uint32_t(bytes.size())), code) << options;
    EXPECT_EQ(rec.count(), 2u) << options;
  }
  VEK_image_destroy(jpg);
}

}  // namespace
