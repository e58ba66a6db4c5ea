// Bilinear demosaicing of a 1080p mosaic to BGRX32: vek's API and kernels beside
// OpenCV's cvtColor Bayer-to-BGRA conversion, single-threaded, after checking that the
// two agree on the picture's interior.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "convert/bayer.h"
#include "core/cpu.h"
#include "vek.h"

#ifdef VEK_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

constexpr uint32_t kW = 1920, kH = 1080;

// A smooth colour picture mosaicked in the reference phase, plus some noise, so that
// the interpolators of the two engines can be compared meaningfully.
const std::vector<uint8_t>& mosaic() {
  static const std::vector<uint8_t> m = [] {
    std::vector<uint8_t> v(size_t(kW) * kH);
    uint32_t seed = 12345;
    for (uint32_t y = 0; y < kH; ++y) {
      for (uint32_t x = 0; x < kW; ++x) {
        seed = seed * 1664525u + 1013904223u;
        const int c = int((y & 1) + (x & 1));
        const double base = c == 0 ? 128 + 100 * std::sin(x * 0.01) : c == 1 ? 40 + y * 0.15 : 200 - x * 0.08;
        v[size_t(y) * kW + x] = static_cast<uint8_t>(std::lround(base) + int(seed >> 29) - 4);
      }
    }
    return v;
  }();
  return m;
}

void set_rate(benchmark::State& state) {
  state.counters["MP/s"] = benchmark::Counter(double(kW) * kH * 1e-6 * double(state.iterations()),
                                              benchmark::Counter::kIsRate);
}

void BM_vek_api(benchmark::State& state) {
  const uint32_t src = VEK_image_create(), dst = VEK_image_create();
  VEK_image_set_parameter(src, VEK_PARAM_FORMAT, VEK_RGGB32);
  VEK_image_set_parameter(src, VEK_PARAM_WIDTH, kW);
  VEK_image_set_parameter(src, VEK_PARAM_HEIGHT, kH);
  VEK_image_set_parameter(src, VEK_PARAM_STRIP_LINES, kH);
  VEK_image_set_parameter(src, VEK_PARAM_LINE_ALIGN, 1);
  VEK_image_check(src);
  VEK_image_malloc_a_strip(src);
  std::memcpy(VEK_image_get_ptr(src, VEK_PTR_DATA), mosaic().data(), mosaic().size());
  // A locked destination keeps its strip across calls, as a display buffer would.
  VEK_BAY_RGGB32_to_BGRX32(src, dst, VEK_BAYER_BILINEAR, VEK_BAYER_RGGB, VEK_STRIP_NEXT);
  VEK_image_set_flags(dst, VEK_FLAG_LOCKED, 1);
  for (auto _ : state) {
    if (VEK_BAY_RGGB32_to_BGRX32(src, dst, VEK_BAYER_BILINEAR, VEK_BAYER_RGGB, VEK_STRIP_NEXT)) {
      state.SkipWithError("conversion failed");
      break;
    }
    benchmark::ClobberMemory();
  }
  set_rate(state);
  VEK_image_destroy(src);
  VEK_image_destroy(dst);
}

void run_driver(benchmark::State& state, bool simd) {
  vek::cpu::testing::set_disabled(simd ? 0u : vek::cpu::kAvx2 | vek::cpu::kSse41);
  auto fn = vek::bayer::demosaic_driver(2, 1, vek::bayer::Output::Bgrx32);
  vek::cpu::testing::set_disabled(0);
  std::vector<uint8_t> out(size_t(kW) * kH * 4);
  for (auto _ : state) {
    fn(mosaic().data(), kW, out.data(), size_t(kW) * 4, kW, kH);
    benchmark::ClobberMemory();
  }
  set_rate(state);
}
void BM_vek_kernel_best(benchmark::State& state) { run_driver(state, true); }
void BM_vek_kernel_scalar(benchmark::State& state) { run_driver(state, false); }

#ifdef VEK_BENCH_OPENCV
// OpenCV names a pattern by the second line's second and third pixels, so a mosaic
// starting R G / G B is its "BayerBG". Rather than trust the naming, the code that
// agrees best with vek on the interior is chosen.
int opencv_code(double* mean_diff) {
  const int codes[] = {cv::COLOR_BayerBG2BGRA, cv::COLOR_BayerGB2BGRA, cv::COLOR_BayerRG2BGRA,
                       cv::COLOR_BayerGR2BGRA};
  cv::Mat src(int(kH), int(kW), CV_8UC1, const_cast<uint8_t*>(mosaic().data()));
  std::vector<uint8_t> ours(size_t(kW) * kH * 4);
  vek::bayer::detail::scalar_driver(2, 1, vek::bayer::Output::Bgrx32)(mosaic().data(), kW,
                                                                      ours.data(), kW * 4, kW, kH);
  int best = codes[0];
  double best_diff = 1e9;
  for (int code : codes) {
    cv::Mat dst;
    cv::cvtColor(src, dst, code);
    double sum = 0;
    size_t n = 0;
    for (uint32_t y = 2; y + 2 < kH; ++y) {
      const uint8_t* a = dst.ptr<uint8_t>(int(y));
      const uint8_t* b = &ours[size_t(y) * kW * 4];
      for (uint32_t x = 2 * 4; x + 2 * 4 < kW * 4; ++x) {
        if ((x & 3) == 3) continue;
        sum += std::abs(int(a[x]) - int(b[x]));
        ++n;
      }
    }
    if (sum / double(n) < best_diff) best_diff = sum / double(n), best = code;
  }
  *mean_diff = best_diff;
  return best;
}

void BM_opencv_cvtColor(benchmark::State& state) {
  cv::setNumThreads(1);
  double diff = 0;
  const int code = opencv_code(&diff);
  state.counters["mean_abs_diff"] = diff;
  if (diff > 1.0) state.SkipWithError("OpenCV and vek disagree on the interior");
  cv::Mat src(int(kH), int(kW), CV_8UC1, const_cast<uint8_t*>(mosaic().data()));
  cv::Mat dst(int(kH), int(kW), CV_8UC4);
  for (auto _ : state) {
    cv::cvtColor(src, dst, code);
    benchmark::ClobberMemory();
  }
  set_rate(state);
}
BENCHMARK(BM_opencv_cvtColor)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

BENCHMARK(BM_vek_api)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_vek_kernel_best)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_vek_kernel_scalar)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
