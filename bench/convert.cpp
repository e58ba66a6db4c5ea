// Conversion throughput on a 1920x1080 frame, each vek conversion beside the libyuv
// routine doing the same job on the same frame (counters report megapixels/s).
// libyuv names formats by little-endian words: its ARGB is our BGRX32, its RGB24 our
// BGR24, its RAW our RGB24 and its YUY2 our YUV422 (Y0 U Y1 V).
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "vek.h"

#ifdef VEK_BENCH_LIBYUV
#include <libyuv.h>
#endif

namespace {

constexpr uint32_t kW = 1920, kH = 1080;

uint32_t frame(uint32_t format) {
  const uint32_t h = VEK_image_create();
  VEK_image_set_parameter(h, VEK_PARAM_FORMAT, format);
  VEK_image_set_parameter(h, VEK_PARAM_WIDTH, kW);
  VEK_image_set_parameter(h, VEK_PARAM_HEIGHT, kH);
  VEK_image_set_parameter(h, VEK_PARAM_STRIP_LINES, kH);
  VEK_image_malloc_a_strip(h);
  auto* p = static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA));
  std::mt19937 rng(format);
  const size_t n = size_t(VEK_image_get_parameter(h, VEK_PARAM_BYTES_PER_LINE)) * kH;
  for (size_t i = 0; i < n; ++i) p[i] = uint8_t(rng() >> 24);
  return h;
}

uint8_t* bytes(uint32_t h) { return static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA)); }

void rate(benchmark::State& state) {
  state.counters["MP/s"] = benchmark::Counter(double(kW) * kH / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

void vek_run(benchmark::State& state, uint32_t source_format, uint32_t target, bool lut) {
  const uint32_t src = frame(source_format), dst = VEK_image_create();
  if (lut) VEK_image_set_flags(dst, VEK_FLAG_LUT, 1);
  for (auto _ : state) {
    VEK_image_set_parameter(src, VEK_PARAM_STRIP_LINES, kH);
    benchmark::DoNotOptimize(VEK_image_convert(src, dst, target, 0, VEK_STRIP_NEXT));
  }
  rate(state);
  VEK_image_destroy(src);
  VEK_image_destroy(dst);
}

void BM_vek_YUV422_to_RGB24(benchmark::State& s) { vek_run(s, VEK_YUV422, VEK_RGB24, false); }
void BM_vek_YUV422_to_RGB24_LUT(benchmark::State& s) { vek_run(s, VEK_YUV422, VEK_RGB24, true); }
void BM_vek_YUV422_to_BGRX32(benchmark::State& s) { vek_run(s, VEK_YUV422, VEK_BGRX32, false); }
void BM_vek_YUV422_to_BGRX32_LUT(benchmark::State& s) { vek_run(s, VEK_YUV422, VEK_BGRX32, true); }
void BM_vek_RGB24_to_YUV422(benchmark::State& s) { vek_run(s, VEK_RGB24, VEK_YUV422, false); }
void BM_vek_BGR24_to_RGB24(benchmark::State& s) { vek_run(s, VEK_BGR24, VEK_RGB24, false); }
void BM_vek_RGB24_to_Y8(benchmark::State& s) { vek_run(s, VEK_RGB24, VEK_Y8, false); }
BENCHMARK(BM_vek_YUV422_to_RGB24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_vek_YUV422_to_RGB24_LUT)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_vek_YUV422_to_BGRX32)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_vek_YUV422_to_BGRX32_LUT)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_vek_RGB24_to_YUV422)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_vek_BGR24_to_RGB24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_vek_RGB24_to_Y8)->Unit(benchmark::kMillisecond);

#ifdef VEK_BENCH_LIBYUV
struct Planes {
  std::vector<uint8_t> in, out, tmp;
};

template <class F>
void yuv_run(benchmark::State& state, size_t in_px, size_t out_px, F&& f) {
  Planes p{std::vector<uint8_t>(size_t(kW) * kH * in_px), std::vector<uint8_t>(size_t(kW) * kH * out_px),
           std::vector<uint8_t>(size_t(kW) * kH * 4)};
  std::mt19937 rng(1);
  for (auto& b : p.in) b = uint8_t(rng() >> 24);
  for (auto _ : state) {
    f(p);
    benchmark::DoNotOptimize(p.out.data());
  }
  rate(state);
}

// No single libyuv routine writes R,G,B byte order from YUY2 or reads it into YUY2:
// those two rivals go through a BGRX frame, as an application using libyuv would.
void BM_libyuv_YUY2_to_RAW(benchmark::State& s) {
  yuv_run(s, 2, 3, [](Planes& p) {
    libyuv::YUY2ToARGB(p.in.data(), kW * 2, p.tmp.data(), kW * 4, kW, kH);
    libyuv::ARGBToRAW(p.tmp.data(), kW * 4, p.out.data(), kW * 3, kW, kH);
  });
}
void BM_libyuv_YUY2_to_ARGB(benchmark::State& s) {
  yuv_run(s, 2, 4, [](Planes& p) { libyuv::YUY2ToARGB(p.in.data(), kW * 2, p.out.data(), kW * 4, kW, kH); });
}
void BM_libyuv_RAW_to_YUY2(benchmark::State& s) {
  yuv_run(s, 3, 2, [](Planes& p) {
    libyuv::RAWToARGB(p.in.data(), kW * 3, p.tmp.data(), kW * 4, kW, kH);
    libyuv::ARGBToYUY2(p.tmp.data(), kW * 4, p.out.data(), kW * 2, kW, kH);
  });
}
void BM_libyuv_RGB24_to_RAW(benchmark::State& s) {
  yuv_run(s, 3, 3, [](Planes& p) { libyuv::RAWToRGB24(p.in.data(), kW * 3, p.out.data(), kW * 3, kW, kH); });
}
void BM_libyuv_RAW_to_J400(benchmark::State& s) {
  yuv_run(s, 3, 1, [](Planes& p) { libyuv::RAWToJ400(p.in.data(), kW * 3, p.out.data(), kW, kW, kH); });
}
BENCHMARK(BM_libyuv_YUY2_to_RAW)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_libyuv_YUY2_to_ARGB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_libyuv_RAW_to_YUY2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_libyuv_RGB24_to_RAW)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_libyuv_RAW_to_J400)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
