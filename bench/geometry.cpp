// Throughput of the geometric operations on whole images (megapixels in the "MP/s"
// counter), at VGA, 1080p and an odd width, with OpenCV as the rival for resizing,
// quarter turns, flips and 2x2 area reduction. Each rival first shows that it agrees
// with vek on the same picture (exactly where both compute the same thing, within a
// stated tolerance where their sampling or rounding differs), then is timed
// single-threaded, as vek runs.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include "bench/bench_common.h"
#include "vek.h"

#ifdef VEK_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

// A smooth picture with a little noise, so that interpolators of different sampling
// grids can be compared meaningfully; speed does not depend on the content.
struct Image {
  uint32_t handle = 0;
  Image(uint32_t format, uint32_t w, uint32_t h) {
    handle = vekbench::whole_image(format, w, h);
    auto* p = static_cast<uint8_t*>(VEK_image_get_ptr(handle, VEK_PTR_DATA));
    std::mt19937 rng(w * h);
    const size_t pitch = VEK_image_get_parameter(handle, VEK_PARAM_BYTES_PER_LINE);
    const size_t bytes = (VEK_image_get_parameter(handle, VEK_PARAM_DEPTH) + 1) / 8;
    for (uint32_t y = 0; y < h; ++y)
      for (size_t i = 0; i < pitch; ++i) {
        const double x = double(i / bytes), channel = double(i % bytes);
        const double v = 128 + 60 * std::sin(x * 0.013 + channel * 0.9) + 50 * std::cos(y * 0.017);
        p[y * pitch + i] = uint8_t(std::lround(v) + int(rng() % 5) - 2);
      }
  }
  Image() : handle(VEK_image_create()) {}
  ~Image() { VEK_image_destroy(handle); }
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;
  uint8_t* data() const { return static_cast<uint8_t*>(VEK_image_get_ptr(handle, VEK_PTR_DATA)); }
  uint32_t get(uint32_t id) const { return VEK_image_get_parameter(handle, id); }
};

void set_rate(benchmark::State& state, double pixels) {
  state.counters["MP/s"] =
      benchmark::Counter(pixels * double(state.iterations()) / 1e6, benchmark::Counter::kIsRate);
}

struct Args {
  uint32_t format, w, h;
  explicit Args(const benchmark::State& s)
      : format(uint32_t(s.range(0))), w(uint32_t(s.range(1))), h(uint32_t(s.range(2))) {}
};

// The resize workload: three quarters in each direction.
uint32_t scaled(uint32_t n) { return n * 3 / 4 + 1; }

// ---- vek ----------------------------------------------------------------------

void BM_Scale(benchmark::State& state) {
  const Args a(state);
  Image in(a.format, a.w, a.h), out;
  for (auto _ : state)
    if (VEK_IP_scale(in.handle, out.handle, scaled(a.w), scaled(a.h), VEK_STRIP_NEXT)) {
      state.SkipWithError("scale failed");
      break;
    }
  set_rate(state, double(scaled(a.w)) * scaled(a.h));
}

void BM_Rotate90(benchmark::State& state) {
  const Args a(state);
  Image in(a.format, a.w, a.h), out;
  for (auto _ : state)
    if (VEK_IP_rotate_image(in.handle, out.handle, 90)) {
      state.SkipWithError("rotate failed");
      break;
    }
  set_rate(state, double(a.w) * a.h);
}

void BM_Mirror(benchmark::State& state) {
  const Args a(state);
  Image in(a.format, a.w, a.h), out;
  for (auto _ : state)
    if (VEK_IP_mirror_image(in.handle, out.handle, VEK_STRIP_NEXT)) {
      state.SkipWithError("mirror failed");
      break;
    }
  set_rate(state, double(a.w) * a.h);
}

void BM_Binning2(benchmark::State& state) {
  const Args a(state);
  Image in(a.format, a.w, a.h), out;
  for (auto _ : state)
    if (VEK_IP_Subsample_by_Binning(in.handle, out.handle, 2)) {
      state.SkipWithError("binning failed");
      break;
    }
  set_rate(state, double(a.w) * a.h);  // input pixels consumed
}

void BM_Zoom(benchmark::State& state) {
  const Args a(state);
  Image in(a.format, a.w, a.h), out;
  static uint16_t xt[VEK_ZOOM_TABLE_ENTRIES], yt[VEK_ZOOM_TABLE_ENTRIES];
  const uint32_t region[4] = {0, 0, a.w / 2, a.h / 2};
  for (auto _ : state)
    if (VEK_IP_bilinear_zoom(in.handle, out.handle, region, a.w, a.h, xt, yt, VEK_STRIP_NEXT)) {
      state.SkipWithError("zoom failed");
      break;
    }
  set_rate(state, double(a.w) * a.h);
}

// ---- OpenCV -------------------------------------------------------------------

#ifdef VEK_BENCH_OPENCV

int cv_type(uint32_t format) {
  switch (format) {
    case VEK_Y8: return CV_8UC1;
    case VEK_RGB24: return CV_8UC3;
    default: return CV_8UC4;  // VEK_BGRX32
  }
}

// A header over an image's strip, sharing its memory and line pitch.
cv::Mat wrap(const Image& img) {
  return cv::Mat(int(img.get(VEK_PARAM_HEIGHT)), int(img.get(VEK_PARAM_WIDTH)),
                 cv_type(img.get(VEK_PARAM_FORMAT)), img.data(),
                 size_t(img.get(VEK_PARAM_BYTES_PER_LINE)));
}

// Largest and mean absolute difference of two images of one size and type.
struct Diff {
  int max = 0;
  double mean = 0;
};
Diff compare(const cv::Mat& a, const cv::Mat& b) {
  Diff d;
  if (a.size() != b.size() || a.type() != b.type()) return {1000, 1000.0};
  double sum = 0;
  const size_t row = size_t(a.cols) * a.elemSize();
  for (int y = 0; y < a.rows; ++y)
    for (size_t i = 0; i < row; ++i) {
      const int e = std::abs(int(a.ptr<uint8_t>(y)[i]) - int(b.ptr<uint8_t>(y)[i]));
      d.max = std::max(d.max, e);
      sum += e;
    }
  d.mean = sum / (double(a.rows) * double(row));
  return d;
}

// Runs the check, publishes it as counters and refuses to time a rival that does not
// do the same job.
bool agree(benchmark::State& state, const Diff& d, int max_allowed, double mean_allowed) {
  state.counters["max_diff"] = d.max;
  state.counters["mean_diff"] = d.mean;
  if (d.max <= max_allowed && d.mean <= mean_allowed) return true;
  std::fprintf(stderr, "disagreement: max %d mean %.3f\n", d.max, d.mean);
  state.SkipWithError("OpenCV and vek disagree");
  return false;
}

// Both resize bilinearly but on different grids (vek steps from the first sample by
// W/NW across and (H-1)/(NH-1) down; OpenCV maps pixel centres), so only the mean
// difference on a smooth picture is held to a bound.
void BM_OpenCV_Resize(benchmark::State& state) {
  cv::setNumThreads(1);
  const Args a(state);
  Image in(a.format, a.w, a.h), ours;
  VEK_IP_scale(in.handle, ours.handle, scaled(a.w), scaled(a.h), VEK_STRIP_NEXT);
  const cv::Mat src = wrap(in);
  cv::Mat dst;
  const cv::Size size(int(scaled(a.w)), int(scaled(a.h)));
  cv::resize(src, dst, size, 0, 0, cv::INTER_LINEAR);
  if (!agree(state, compare(wrap(ours), dst), 16, 3.0)) return;
  for (auto _ : state) {
    cv::resize(src, dst, size, 0, 0, cv::INTER_LINEAR);
    benchmark::ClobberMemory();
  }
  set_rate(state, double(size.width) * size.height);
}

// Clockwise quarter turn: identical pixels.
void BM_OpenCV_Rotate90(benchmark::State& state) {
  cv::setNumThreads(1);
  const Args a(state);
  Image in(a.format, a.w, a.h), ours;
  VEK_IP_rotate_image(in.handle, ours.handle, 90);
  const cv::Mat src = wrap(in);
  cv::Mat dst;
  cv::rotate(src, dst, cv::ROTATE_90_CLOCKWISE);
  if (!agree(state, compare(wrap(ours), dst), 0, 0.0)) return;
  for (auto _ : state) {
    cv::rotate(src, dst, cv::ROTATE_90_CLOCKWISE);
    benchmark::ClobberMemory();
  }
  set_rate(state, double(a.w) * a.h);
}

// Left-right flip: identical pixels (YUV 4:2:2 has no OpenCV counterpart here).
void BM_OpenCV_Flip(benchmark::State& state) {
  cv::setNumThreads(1);
  const Args a(state);
  Image in(a.format, a.w, a.h), ours;
  VEK_IP_mirror_image(in.handle, ours.handle, VEK_STRIP_NEXT);
  const cv::Mat src = wrap(in);
  cv::Mat dst;
  cv::flip(src, dst, 1);
  if (!agree(state, compare(wrap(ours), dst), 0, 0.0)) return;
  for (auto _ : state) {
    cv::flip(src, dst, 1);
    benchmark::ClobberMemory();
  }
  set_rate(state, double(a.w) * a.h);
}

// Halving by area: OpenCV rounds the 2x2 mean where vek truncates, so samples differ
// by at most one. vek's output width is rounded down to even; the comparison covers it.
void BM_OpenCV_Area2(benchmark::State& state) {
  cv::setNumThreads(1);
  const Args a(state);
  Image in(a.format, a.w, a.h), ours;
  VEK_IP_Subsample_by_Binning(in.handle, ours.handle, 2);
  const cv::Mat src = wrap(in)(cv::Rect(0, 0, int(a.w & ~1u), int(a.h & ~1u)));
  cv::Mat dst;
  const cv::Size size(int(a.w / 2), int(a.h / 2));
  cv::resize(src, dst, size, 0, 0, cv::INTER_AREA);
  const cv::Mat mine = wrap(ours);
  if (!agree(state, compare(mine, dst(cv::Rect(0, 0, mine.cols, mine.rows))), 1, 0.6)) return;
  for (auto _ : state) {
    cv::resize(src, dst, size, 0, 0, cv::INTER_AREA);
    benchmark::ClobberMemory();
  }
  set_rate(state, double(a.w) * a.h);  // input pixels consumed
}

#endif  // VEK_BENCH_OPENCV

void sizes(benchmark::internal::Benchmark* b, std::initializer_list<int> formats) {
  for (int f : formats) {
    b->Args({f, 640, 480});
    b->Args({f, 1920, 1080});
    b->Args({f, 1001, 757});
  }
  // CPU time: the machines these run on are shared, and both engines are single-threaded.
  b->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_Scale)->Apply([](auto* b) { sizes(b, {VEK_Y8, VEK_RGB24}); });
BENCHMARK(BM_Rotate90)->Apply([](auto* b) { sizes(b, {VEK_Y8, VEK_RGB24, VEK_BGRX32}); });
BENCHMARK(BM_Mirror)->Apply([](auto* b) { sizes(b, {VEK_Y8, VEK_RGB24, VEK_YUV422}); });
BENCHMARK(BM_Binning2)->Apply([](auto* b) { sizes(b, {VEK_Y8, VEK_RGB24, VEK_YUV422}); });
BENCHMARK(BM_Zoom)->Apply([](auto* b) { sizes(b, {VEK_Y8, VEK_RGB24}); });
#ifdef VEK_BENCH_OPENCV
BENCHMARK(BM_OpenCV_Resize)->Apply([](auto* b) { sizes(b, {VEK_Y8, VEK_RGB24}); });
BENCHMARK(BM_OpenCV_Rotate90)->Apply([](auto* b) { sizes(b, {VEK_Y8, VEK_RGB24, VEK_BGRX32}); });
BENCHMARK(BM_OpenCV_Flip)->Apply([](auto* b) { sizes(b, {VEK_Y8, VEK_RGB24}); });
BENCHMARK(BM_OpenCV_Area2)->Apply([](auto* b) { sizes(b, {VEK_Y8, VEK_RGB24}); });
#endif

}  // namespace

BENCHMARK_MAIN();
