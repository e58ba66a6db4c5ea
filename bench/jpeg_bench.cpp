// JPEG compress and decompress throughput, vek beside libjpeg-turbo (TurboJPEG, accurate
// integer DCT, 4:2:2, quality 75 = vek's default F 32) on the same photo-like frames.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "bench/bench_common.h"
#include "vek.h"
#ifdef VEK_BENCH_TURBOJPEG
#include <turbojpeg.h>
#endif

namespace {

uint8_t photo(uint32_t x, uint32_t y, int c) {
  double v = 128 + 80 * std::sin(x / (11.0 + 4 * c) + y / 29.0) + 35 * std::cos(y / (9.0 + c) - x / 50.0);
  v += ((x * 7 + y * 13 + c) % 11) - 5;
  return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
}

uint8_t* data(uint32_t h) { return static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA)); }

uint32_t frame(uint32_t format, uint32_t w, uint32_t h) {
  const uint32_t img = vekbench::whole_image(format, w, h);
  const uint32_t pitch = VEK_image_get_parameter(img, VEK_PARAM_BYTES_PER_LINE);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      uint8_t* p = data(img) + size_t(y) * pitch;
      if (format == VEK_BGRX32) {
        for (int c = 0; c < 3; ++c) p[4 * x + c] = photo(x, y, 2 - c);
        p[4 * x + 3] = 0;
      } else {  // YUV422
        p[2 * x] = photo(x, y, 1);
        p[2 * x + 1] = uint8_t(128 + (photo(x & ~1u, y, 0) - 128) / 2);
      }
    }
  return img;
}

void set_rate(benchmark::State& state, uint32_t w, uint32_t h) {
  state.counters["MP/s"] = benchmark::Counter(double(w) * h * double(state.iterations()) / 1e6,
                                              benchmark::Counter::kIsRate);
}

void BM_vek_compress(benchmark::State& state, uint32_t format) {
  const uint32_t w = uint32_t(state.range(0)), h = uint32_t(state.range(1));
  const uint32_t src = frame(format, w, h);
  const uint32_t jpg = VEK_JPEG_image_create();
  for (auto _ : state) {
    if (VEK_JPEG_compress(src, jpg) != 0) state.SkipWithError("compress failed");
    benchmark::DoNotOptimize(VEK_image_get_ptr(jpg, VEK_PTR_JPEG_DATA));
  }
  // Bits per pixel of the stream: the entropy coder's share of the time grows with it.
  const auto* j = static_cast<const Tjpeg*>(VEK_image_get_ptr(jpg, VEK_PTR_JPEG));
  state.counters["bpp"] = 8.0 * double(j->data_length) / (double(w) * h);
  set_rate(state, w, h);
  VEK_image_destroy(src);
  VEK_image_destroy(jpg);
}

void BM_vek_decompress(benchmark::State& state, uint32_t target) {
  const uint32_t w = uint32_t(state.range(0)), h = uint32_t(state.range(1));
  const uint32_t src = frame(VEK_BGRX32, w, h);
  const uint32_t jpg = VEK_JPEG_image_create();
  VEK_JPEG_compress(src, jpg);
  const uint32_t dst = VEK_image_create();
  for (auto _ : state) {
    VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, target);
    if (VEK_JPEG_decompress(jpg, dst) != 0) state.SkipWithError("decompress failed");
    benchmark::DoNotOptimize(data(dst));
  }
  set_rate(state, w, h);
  VEK_image_destroy(src);
  VEK_image_destroy(jpg);
  VEK_image_destroy(dst);
}

#ifdef VEK_BENCH_TURBOJPEG
constexpr int kFlags = TJFLAG_ACCURATEDCT;

void BM_turbo_compress_bgrx(benchmark::State& state) {
  const int w = int(state.range(0)), h = int(state.range(1));
  const uint32_t src = frame(VEK_BGRX32, uint32_t(w), uint32_t(h));
  tjhandle tj = tjInitCompress();
  unsigned char* out = tjAlloc(int(tjBufSize(w, h, TJSAMP_422)));
  for (auto _ : state) {
    unsigned long size = tjBufSize(w, h, TJSAMP_422);
    if (tjCompress2(tj, data(src), w, 0, h, TJPF_BGRX, &out, &size, TJSAMP_422, 75, kFlags | TJFLAG_NOREALLOC))
      state.SkipWithError("tjCompress2 failed");
    benchmark::DoNotOptimize(out);
  }
  set_rate(state, uint32_t(w), uint32_t(h));
  tjFree(out);
  tjDestroy(tj);
  VEK_image_destroy(src);
}

void BM_turbo_compress_yuv422(benchmark::State& state) {
  const int w = int(state.range(0)), h = int(state.range(1));
  std::vector<uint8_t> y(size_t(w) * h), u(size_t(w / 2) * h), v(size_t(w / 2) * h);
  for (int r = 0; r < h; ++r)
    for (int x = 0; x < w; ++x) {
      y[size_t(r) * w + x] = photo(uint32_t(x), uint32_t(r), 1);
      if (!(x & 1)) u[size_t(r) * (w / 2) + x / 2] = v[size_t(r) * (w / 2) + x / 2] = photo(uint32_t(x), uint32_t(r), 0);
    }
  const unsigned char* planes[3] = {y.data(), u.data(), v.data()};
  tjhandle tj = tjInitCompress();
  unsigned char* out = tjAlloc(int(tjBufSize(w, h, TJSAMP_422)));
  for (auto _ : state) {
    unsigned long size = tjBufSize(w, h, TJSAMP_422);
    if (tjCompressFromYUVPlanes(tj, planes, w, nullptr, h, TJSAMP_422, &out, &size, 75, kFlags | TJFLAG_NOREALLOC))
      state.SkipWithError("tjCompressFromYUVPlanes failed");
    benchmark::DoNotOptimize(out);
  }
  set_rate(state, uint32_t(w), uint32_t(h));
  tjFree(out);
  tjDestroy(tj);
}

// The same stream vek decodes: our own file, read by libjpeg-turbo.
std::vector<uint8_t> vek_stream(int w, int h) {
  const uint32_t src = frame(VEK_BGRX32, uint32_t(w), uint32_t(h));
  const uint32_t jpg = VEK_JPEG_image_create();
  VEK_JPEG_compress(src, jpg);
  std::vector<uint8_t> buf(size_t(w) * h * 4 + 65536);
  uint32_t n = 0;
  VEK_JPEG_buffer_write(jpg, buf.data(), uint32_t(buf.size()), &n);
  buf.resize(n);
  VEK_image_destroy(src);
  VEK_image_destroy(jpg);
  return buf;
}

void BM_turbo_decompress(benchmark::State& state, int pixel_format) {
  const int w = int(state.range(0)), h = int(state.range(1));
  const std::vector<uint8_t> stream = vek_stream(w, h);
  tjhandle tj = tjInitDecompress();
  std::vector<uint8_t> out(size_t(w) * h * 4);
  std::vector<uint8_t> y(size_t(w) * h), u(size_t(w) * h), v(size_t(w) * h);
  unsigned char* planes[3] = {y.data(), u.data(), v.data()};
  for (auto _ : state) {
    int rc = pixel_format < 0
                 ? tjDecompressToYUVPlanes(tj, stream.data(), stream.size(), planes, w, nullptr, h, kFlags)
                 : tjDecompress2(tj, stream.data(), stream.size(), out.data(), w, 0, h, pixel_format, kFlags);
    if (rc) state.SkipWithError("TurboJPEG decode failed");
    benchmark::DoNotOptimize(out.data());
  }
  set_rate(state, uint32_t(w), uint32_t(h));
  tjDestroy(tj);
}
#endif

// VGA, 1080p, and a size that is no whole number of MCUs (padding and crop paths).
void sizes(benchmark::internal::Benchmark* b) {
  b->Args({640, 480})->Args({1920, 1080})->Args({1282, 721})->Unit(benchmark::kMillisecond);
}

}  // namespace

BENCHMARK_CAPTURE(BM_vek_compress, bgrx32, uint32_t(VEK_BGRX32))->Apply(sizes);
BENCHMARK_CAPTURE(BM_vek_compress, yuv422, uint32_t(VEK_YUV422))->Apply(sizes);
BENCHMARK_CAPTURE(BM_vek_decompress, to_yuv422, uint32_t(VEK_YUV422))->Apply(sizes);
BENCHMARK_CAPTURE(BM_vek_decompress, to_rgb24, uint32_t(VEK_RGB24))->Apply(sizes);
BENCHMARK_CAPTURE(BM_vek_decompress, to_bgrx32, uint32_t(VEK_BGRX32))->Apply(sizes);
#ifdef VEK_BENCH_TURBOJPEG
BENCHMARK(BM_turbo_compress_bgrx)->Apply(sizes);
BENCHMARK(BM_turbo_compress_yuv422)->Apply(sizes);
BENCHMARK_CAPTURE(BM_turbo_decompress, to_yuv_planes, -1)->Apply(sizes);
BENCHMARK_CAPTURE(BM_turbo_decompress, to_rgb, int(TJPF_RGB))->Apply(sizes);
BENCHMARK_CAPTURE(BM_turbo_decompress, to_bgrx, int(TJPF_BGRX))->Apply(sizes);
#endif

BENCHMARK_MAIN();
