// Throughput of the geometric operations on whole images (megapixels of output per
// second in the "MP/s" counter), at VGA, 1080p and an odd width.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>

#include "vek.h"

namespace {

struct Image {
  uint32_t handle = 0;
  Image(uint32_t format, uint32_t w, uint32_t h) {
    handle = VEK_image_create();
    VEK_image_set_parameter(handle, VEK_PARAM_FORMAT, format);
    VEK_image_set_parameter(handle, VEK_PARAM_WIDTH, w);
    VEK_image_set_parameter(handle, VEK_PARAM_HEIGHT, h);
    VEK_image_set_parameter(handle, VEK_PARAM_STRIP_LINES, h);
    VEK_image_check(handle);
    VEK_image_malloc_a_strip(handle);
    auto* p = static_cast<uint8_t*>(VEK_image_get_ptr(handle, VEK_PTR_DATA));
    std::mt19937 rng(w * h);
    const size_t n = size_t(VEK_image_get_parameter(handle, VEK_PARAM_BYTES_PER_LINE)) * h;
    for (size_t i = 0; i < n; ++i) p[i] = uint8_t(rng());
  }
  Image() : handle(VEK_image_create()) {}
  ~Image() { VEK_image_destroy(handle); }
};

void set_rate(benchmark::State& state, double output_pixels) {
  state.counters["MP/s"] = benchmark::Counter(output_pixels * double(state.iterations()) / 1e6,
                                              benchmark::Counter::kIsRate);
}

// Arguments: format, width, height.
void BM_Scale(benchmark::State& state) {
  const uint32_t format = uint32_t(state.range(0)), w = uint32_t(state.range(1)),
                 h = uint32_t(state.range(2));
  Image in(format, w, h), out;
  const uint32_t nw = w * 3 / 4 + 1, nh = h * 3 / 4 + 1;
  for (auto _ : state)
    if (VEK_IP_scale(in.handle, out.handle, nw, nh, VEK_STRIP_NEXT)) state.SkipWithError("scale failed");
  set_rate(state, double(nw) * nh);
}

void BM_Rotate90(benchmark::State& state) {
  const uint32_t format = uint32_t(state.range(0)), w = uint32_t(state.range(1)),
                 h = uint32_t(state.range(2));
  Image in(format, w, h), out;
  for (auto _ : state)
    if (VEK_IP_rotate_image(in.handle, out.handle, 90)) state.SkipWithError("rotate failed");
  set_rate(state, double(w) * h);
}

void BM_Mirror(benchmark::State& state) {
  const uint32_t format = uint32_t(state.range(0)), w = uint32_t(state.range(1)),
                 h = uint32_t(state.range(2));
  Image in(format, w, h), out;
  for (auto _ : state)
    if (VEK_IP_mirror_image(in.handle, out.handle, VEK_STRIP_NEXT)) state.SkipWithError("mirror failed");
  set_rate(state, double(w) * h);
}

void BM_Binning2(benchmark::State& state) {
  const uint32_t format = uint32_t(state.range(0)), w = uint32_t(state.range(1)),
                 h = uint32_t(state.range(2));
  Image in(format, w, h), out;
  for (auto _ : state)
    if (VEK_IP_Subsample_by_Binning(in.handle, out.handle, 2)) state.SkipWithError("binning failed");
  set_rate(state, double(w) * h);  // input pixels consumed
}

void BM_Zoom(benchmark::State& state) {
  const uint32_t format = uint32_t(state.range(0)), w = uint32_t(state.range(1)),
                 h = uint32_t(state.range(2));
  Image in(format, w, h), out;
  static uint16_t xt[VEK_ZOOM_TABLE_ENTRIES], yt[VEK_ZOOM_TABLE_ENTRIES];
  const uint32_t region[4] = {0, 0, w / 2, h / 2};
  for (auto _ : state)
    if (VEK_IP_bilinear_zoom(in.handle, out.handle, region, w, h, xt, yt, VEK_STRIP_NEXT))
      state.SkipWithError("zoom failed");
  set_rate(state, double(w) * h);
}

void sizes(benchmark::internal::Benchmark* b, std::initializer_list<int> formats) {
  for (int f : formats) {
    b->Args({f, 640, 480});
    b->Args({f, 1920, 1080});
    b->Args({f, 1001, 757});
  }
  b->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_Scale)->Apply([](auto* b) { sizes(b, {VEK_Y8, VEK_RGB24}); });
BENCHMARK(BM_Rotate90)->Apply([](auto* b) { sizes(b, {VEK_Y8, VEK_RGB24, VEK_BGRX32}); });
BENCHMARK(BM_Mirror)->Apply([](auto* b) { sizes(b, {VEK_Y8, VEK_RGB24, VEK_YUV422}); });
BENCHMARK(BM_Binning2)->Apply([](auto* b) { sizes(b, {VEK_Y8, VEK_RGB24, VEK_YUV422}); });
BENCHMARK(BM_Zoom)->Apply([](auto* b) { sizes(b, {VEK_Y8, VEK_RGB24}); });

}  // namespace

BENCHMARK_MAIN();
