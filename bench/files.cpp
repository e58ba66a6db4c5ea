// File throughput on one frame (1920x1080 and an odd 1283x721): LZW TIFF written and
// read by vek and by libtiff (same compression, horizontal predictor, one strip), and
// vek's BMP and uncompressed TIFF paths. Before timing, each engine's file is decoded
// by the other and must give the same pixels. Counters report megapixels per second
// of process CPU time (user and system), which a busy shared machine disturbs less
// than wall-clock time.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bench/bench_common.h"
#include "vek.h"

#ifdef VEK_BENCH_LIBTIFF
#include <tiffio.h>
#endif

namespace {

const std::string kDir = "/tmp/vek_bench_files_";

// A frame that compresses like a photograph more than like noise: smooth ramps with a
// little grain, so LZW finds strings but not endless runs.
uint32_t frame(uint32_t format, uint32_t w, uint32_t h) {
  const uint32_t img = vekbench::whole_image(format, w, h);
  auto* p = static_cast<uint8_t*>(VEK_image_get_ptr(img, VEK_PTR_DATA));
  const size_t bpl = VEK_image_get_parameter(img, VEK_PARAM_BYTES_PER_LINE);
  const size_t bpp = format == VEK_RGB24 ? 3 : 1;
  std::mt19937 rng(w);
  for (size_t y = 0; y < h; ++y)
    for (size_t x = 0; x < w * bpp; ++x)
      p[y * bpl + x] = uint8_t((x / bpp + 2 * y + 40 * (x % bpp)) / 3 + (rng() >> 30));
  return img;
}

std::vector<uint8_t> pixels(uint32_t img, size_t bpp) {
  const size_t w = VEK_image_get_parameter(img, VEK_PARAM_WIDTH), h = VEK_image_get_parameter(img, VEK_PARAM_HEIGHT);
  const size_t bpl = VEK_image_get_parameter(img, VEK_PARAM_BYTES_PER_LINE);
  const auto* p = static_cast<const uint8_t*>(VEK_image_get_ptr(img, VEK_PTR_DATA));
  std::vector<uint8_t> out;
  for (size_t y = 0; y < h; ++y) out.insert(out.end(), p + y * bpl, p + y * bpl + w * bpp);
  return out;
}

void rate(benchmark::State& state, uint32_t w, uint32_t h) {
  state.counters["MP/s"] = benchmark::Counter(double(w) * h / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

uint32_t vek_write(uint32_t img, uint32_t file_format, const std::string& path) {
  VEK_image_set_outfilename(img, path.c_str());
  return VEK_image_write(img, 0, file_format, VEK_STRIP_NEXT);
}

uint32_t vek_read(uint32_t img, const std::string& path) {
  VEK_image_set_infilename(img, path.c_str());
  return VEK_image_read(img, 0, VEK_STRIP_NEXT);
}

#ifdef VEK_BENCH_LIBTIFF
bool tiff_write(const std::string& path, const uint8_t* px, uint32_t w, uint32_t h, uint32_t spp) {
  TIFF* t = TIFFOpen(path.c_str(), "w");
  if (!t) return false;
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, w);
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, h);
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, spp);
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, spp == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
  TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
  TIFFSetField(t, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
  TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, h);
  // libtiff encodes in place (the predictor), so it gets a copy, as vek differences
  // and restores the image itself.
  std::vector<uint8_t> copy(px, px + size_t(w) * h * spp);
  const bool ok = TIFFWriteEncodedStrip(t, 0, copy.data(), tmsize_t(copy.size())) >= 0;
  TIFFClose(t);
  return ok;
}

bool tiff_read(const std::string& path, std::vector<uint8_t>& out) {
  TIFF* t = TIFFOpen(path.c_str(), "r");
  if (!t) return false;
  uint32_t w = 0, h = 0;
  uint16_t spp = 1;
  TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &w);
  TIFFGetField(t, TIFFTAG_IMAGELENGTH, &h);
  TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &spp);
  out.resize(size_t(w) * h * spp);
  const bool ok = TIFFReadEncodedStrip(t, 0, out.data(), tmsize_t(out.size())) == tmsize_t(out.size());
  TIFFClose(t);
  return ok;
}

// Each engine decodes the other's file to the same pixels; otherwise the timing
// would compare different work.
bool engines_agree(uint32_t img, size_t bpp, const std::string& ours, const std::string& theirs) {
  // Our directory holds one entry more than it counts, out of tag order: libtiff
  // warns about that on every open, which would drown the results.
  TIFFSetWarningHandler(nullptr);
  const std::vector<uint8_t> want = pixels(img, bpp);
  std::vector<uint8_t> got;
  if (!tiff_read(ours, got) || got != want) return false;
  const uint32_t back = VEK_image_create();
  const bool ok = vek_read(back, theirs) == 0 && pixels(back, bpp) == want;
  VEK_image_destroy(back);
  return ok;
}
#endif

struct Size {
  uint32_t w, h;
};
constexpr Size kSizes[] = {{1920, 1080}, {1283, 721}};

void BM_vek_tiff_lzw_write(benchmark::State& state, uint32_t format) {
  const Size s = kSizes[state.range(0)];
  const uint32_t img = frame(format, s.w, s.h);
  VEK_image_set_flags(img, VEK_FLAG_TIFF_LZW, 1);
  const std::string path = kDir + "vek.tif";
  for (auto _ : state) benchmark::DoNotOptimize(vek_write(img, VEK_FILE_TIFF, path));
  rate(state, s.w, s.h);
  VEK_image_destroy(img);
}

void BM_vek_tiff_lzw_read(benchmark::State& state, uint32_t format) {
  const Size s = kSizes[state.range(0)];
  const uint32_t img = frame(format, s.w, s.h), back = VEK_image_create();
  VEK_image_set_flags(img, VEK_FLAG_TIFF_LZW, 1);
  const std::string path = kDir + "vek_r.tif";
  vek_write(img, VEK_FILE_TIFF, path);
  for (auto _ : state) benchmark::DoNotOptimize(vek_read(back, path));
  rate(state, s.w, s.h);
  VEK_image_destroy(back);
  VEK_image_destroy(img);
}

void BM_vek_file_roundtrip(benchmark::State& state, uint32_t format, uint32_t file_format) {
  const Size s = kSizes[state.range(0)];
  const uint32_t img = frame(format, s.w, s.h), back = VEK_image_create();
  const std::string path = kDir + "rt.bin";
  for (auto _ : state) {
    vek_write(img, file_format, path);
    benchmark::DoNotOptimize(vek_read(back, path));
  }
  rate(state, s.w, s.h);
  VEK_image_destroy(back);
  VEK_image_destroy(img);
}

#ifdef VEK_BENCH_LIBTIFF
void BM_libtiff_lzw_write(benchmark::State& state, uint32_t format) {
  const Size s = kSizes[state.range(0)];
  const size_t bpp = format == VEK_RGB24 ? 3 : 1;
  const uint32_t img = frame(format, s.w, s.h);
  const std::vector<uint8_t> px = pixels(img, bpp);
  const std::string ours = kDir + "agree_vek.tif", theirs = kDir + "agree_libtiff.tif";
  VEK_image_set_flags(img, VEK_FLAG_TIFF_LZW, 1);
  if (vek_write(img, VEK_FILE_TIFF, ours) != 0 || !tiff_write(theirs, px.data(), s.w, s.h, uint32_t(bpp)) ||
      !engines_agree(img, bpp, ours, theirs)) {
    state.SkipWithError("vek and libtiff disagree on the pixels");
    VEK_image_destroy(img);
    return;
  }
  const std::string path = kDir + "libtiff.tif";
  for (auto _ : state) benchmark::DoNotOptimize(tiff_write(path, px.data(), s.w, s.h, uint32_t(bpp)));
  rate(state, s.w, s.h);
  VEK_image_destroy(img);
}

void BM_libtiff_lzw_read(benchmark::State& state, uint32_t format) {
  const Size s = kSizes[state.range(0)];
  const size_t bpp = format == VEK_RGB24 ? 3 : 1;
  const uint32_t img = frame(format, s.w, s.h);
  const std::string path = kDir + "libtiff_r.tif";
  tiff_write(path, pixels(img, bpp).data(), s.w, s.h, uint32_t(bpp));
  std::vector<uint8_t> out;
  for (auto _ : state) benchmark::DoNotOptimize(tiff_read(path, out));
  rate(state, s.w, s.h);
  VEK_image_destroy(img);
}
#endif

}  // namespace

BENCHMARK_CAPTURE(BM_vek_tiff_lzw_write, rgb24, VEK_RGB24)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_vek_tiff_lzw_read, rgb24, VEK_RGB24)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_vek_tiff_lzw_write, y8, VEK_Y8)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_vek_tiff_lzw_read, y8, VEK_Y8)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
#ifdef VEK_BENCH_LIBTIFF
BENCHMARK_CAPTURE(BM_libtiff_lzw_write, rgb24, VEK_RGB24)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_libtiff_lzw_read, rgb24, VEK_RGB24)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_libtiff_lzw_write, y8, VEK_Y8)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_libtiff_lzw_read, y8, VEK_Y8)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
#endif
BENCHMARK_CAPTURE(BM_vek_file_roundtrip, tiff_rgb24, VEK_RGB24, VEK_FILE_TIFF)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_vek_file_roundtrip, bmp_rgb24, VEK_RGB24, VEK_FILE_BMP)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_vek_file_roundtrip, bmp_y8, VEK_Y8, VEK_FILE_BMP)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
