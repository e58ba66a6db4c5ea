// Conversion throughput on a 1920x1080 frame: every case runs vek and, where
// one exists, the libyuv routine doing the same job on the same input frame in
// the same run, and a closing table gives megapixels/s and the vek/libyuv ratio
// (medians when run with repetitions). Where the two must agree byte for byte
// (pure reordering) the outputs are compared once before timing. libyuv names
// formats by little-endian words: its ARGB is our BGRX32, its RGB24 our BGR24,
// its RAW our RGB24 and its YUY2 our YUV422 (Y0 U Y1 V). Its YUV matrices and
// grey weights differ from ours, so those cases compare speed only.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench/bench_common.h"
#include "vek.h"

#ifdef VEK_BENCH_LIBYUV
#include <libyuv.h>
#endif

namespace {

constexpr uint32_t kW = 1920, kH = 1080;

uint32_t pixel_bytes(uint32_t format) {
  switch (format) {
    case VEK_Y8:
      return 1;
    case VEK_YUV422:
      return 2;
    case VEK_RGB24:
    case VEK_BGR24:
      return 3;
    default:
      return 4;
  }
}

// One input frame per source format, shared by both engines.
const std::vector<uint8_t> &input(uint32_t format) {
  static std::map<uint32_t, std::vector<uint8_t>> frames;
  auto &f = frames[format];
  if (f.empty()) {
    f.resize(size_t(kW) * kH * pixel_bytes(format));
    std::mt19937 rng(format);
    for (auto &b : f) b = uint8_t(rng() >> 24);
  }
  return f;
}

void rate(benchmark::State &state) {
  state.counters["MP/s"] =
      benchmark::Counter(double(kW) * kH / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

// A vek image over a copy of the shared frame; a conversion into `dst` through
// the public dispatcher, exactly as an application calls it.
struct VekPair {
  uint32_t src = 0, dst = 0;
  bool lut = false;
  VekPair(uint32_t source_format, bool table) : lut(table) {
    src = vekbench::whole_image(source_format, kW, kH);
    const auto &f = input(source_format);
    std::memcpy(VEK_image_get_ptr(src, VEK_PTR_DATA), f.data(), f.size());
    dst = VEK_image_create();
  }
  ~VekPair() {
    VEK_image_destroy(src);
    VEK_image_destroy(dst);
  }
  // The parameter copy of every conversion gives the destination the source's
  // flags, so the table-driven request is renewed before each call.
  uint32_t convert(uint32_t target) {
    if (lut) VEK_image_set_flags(dst, VEK_FLAG_LUT, 1);
    VEK_image_set_parameter(src, VEK_PARAM_STRIP_LINES, kH);
    return VEK_image_convert(src, dst, target, 0, VEK_STRIP_NEXT);
  }
  const uint8_t *out() const {
    return static_cast<const uint8_t *>(VEK_image_get_ptr(dst, VEK_PTR_DATA));
  }
};

using Rival = std::function<void(const uint8_t *in, uint8_t *out, uint8_t *tmp)>;

struct Case {
  const char *name;
  uint32_t source, target;
  bool lut = false;
  Rival rival;        // empty: vek only
  bool same = false;  // the rival's bytes must equal ours
};

void run_vek(benchmark::State &state, const Case &c) {
  VekPair p(c.source, c.lut);
  for (auto _ : state) benchmark::DoNotOptimize(p.convert(c.target));
  rate(state);
}

void run_rival(benchmark::State &state, const Case &c) {
  const auto &in = input(c.source);
  std::vector<uint8_t> out(size_t(kW) * kH * pixel_bytes(c.target)), tmp(size_t(kW) * kH * 4);
  if (c.same) {
    VekPair p(c.source, false);
    c.rival(in.data(), out.data(), tmp.data());
    if (p.convert(c.target) != VEK_OK || std::memcmp(p.out(), out.data(), out.size()) != 0) {
      state.SkipWithError("vek and libyuv outputs differ");
      return;
    }
  }
  for (auto _ : state) {
    c.rival(in.data(), out.data(), tmp.data());
    benchmark::DoNotOptimize(out.data());
  }
  rate(state);
}

std::vector<Case> cases() {
  std::vector<Case> all = {
      {"YUV422_to_RGB24", VEK_YUV422, VEK_RGB24},
      {"YUV422_to_BGR24", VEK_YUV422, VEK_BGR24},
      {"YUV422_to_BGRX32", VEK_YUV422, VEK_BGRX32},
      {"YUV422_to_XRGB32", VEK_YUV422, VEK_XRGB32},
      {"YUV422_to_Y8", VEK_YUV422, VEK_Y8},
      {"RGB24_to_YUV422", VEK_RGB24, VEK_YUV422},
      {"BGRX32_to_YUV422", VEK_BGRX32, VEK_YUV422},
      {"BGR24_to_RGB24", VEK_BGR24, VEK_RGB24},
      {"RGB24_to_Y8", VEK_RGB24, VEK_Y8},
      {"BGRX32_to_Y8", VEK_BGRX32, VEK_Y8},
      {"RGB24_to_BGRX32", VEK_RGB24, VEK_BGRX32},
      {"BGRX32_to_RGB24", VEK_BGRX32, VEK_RGB24},
      {"YUV422_to_RGB24_LUT", VEK_YUV422, VEK_RGB24, true},
      {"YUV422_to_BGRX32_LUT", VEK_YUV422, VEK_BGRX32, true},
  };
#ifdef VEK_BENCH_LIBYUV
  constexpr int w = int(kW), h = int(kH);
  auto rival = [&](const char *name, Rival r, bool same = false) {
    for (auto &c : all)
      if (std::string(c.name) == name) c.rival = std::move(r), c.same = same;
  };
  // No single libyuv routine writes R,G,B byte order from YUY2 or reads it into
  // YUY2: those rivals go through a BGRX frame, as an application using libyuv
  // would.
  rival("YUV422_to_RGB24", [=](const uint8_t *in, uint8_t *out, uint8_t *tmp) {
    libyuv::YUY2ToARGB(in, w * 2, tmp, w * 4, w, h);
    libyuv::ARGBToRAW(tmp, w * 4, out, w * 3, w, h);
  });
  rival("YUV422_to_BGR24", [=](const uint8_t *in, uint8_t *out, uint8_t *tmp) {
    libyuv::YUY2ToARGB(in, w * 2, tmp, w * 4, w, h);
    libyuv::ARGBToRGB24(tmp, w * 4, out, w * 3, w, h);
  });
  rival("YUV422_to_BGRX32", [=](const uint8_t *in, uint8_t *out, uint8_t *) {
    libyuv::YUY2ToARGB(in, w * 2, out, w * 4, w, h);
  });
  rival(
      "YUV422_to_Y8",
      [=](const uint8_t *in, uint8_t *out, uint8_t *) { libyuv::YUY2ToY(in, w * 2, out, w, w, h); },
      true);
  rival("RGB24_to_YUV422", [=](const uint8_t *in, uint8_t *out, uint8_t *tmp) {
    libyuv::RAWToARGB(in, w * 3, tmp, w * 4, w, h);
    libyuv::ARGBToYUY2(tmp, w * 4, out, w * 2, w, h);
  });
  rival("BGRX32_to_YUV422", [=](const uint8_t *in, uint8_t *out, uint8_t *) {
    libyuv::ARGBToYUY2(in, w * 4, out, w * 2, w, h);
  });
  rival(
      "BGR24_to_RGB24",
      [=](const uint8_t *in, uint8_t *out, uint8_t *) {
        libyuv::RAWToRGB24(in, w * 3, out, w * 3, w, h);
      },
      true);
  rival("RGB24_to_Y8", [=](const uint8_t *in, uint8_t *out, uint8_t *) {
    libyuv::RAWToJ400(in, w * 3, out, w, w, h);
  });
  rival("BGRX32_to_Y8", [=](const uint8_t *in, uint8_t *out, uint8_t *) {
    libyuv::ARGBToJ400(in, w * 4, out, w, w, h);
  });
  // libyuv's ARGB alpha is 255 where ours is 0, so this pair is compared for
  // speed only.
  rival("RGB24_to_BGRX32", [=](const uint8_t *in, uint8_t *out, uint8_t *) {
    libyuv::RAWToARGB(in, w * 3, out, w * 4, w, h);
  });
  rival(
      "BGRX32_to_RGB24",
      [=](const uint8_t *in, uint8_t *out, uint8_t *) {
        libyuv::ARGBToRAW(in, w * 4, out, w * 3, w, h);
      },
      true);
#endif
  return all;
}

// Console output as usual, then one line per case: vek and libyuv MP/s and
// their ratio, from the medians when repetitions ran, else from the single run.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run &r : runs) {
      auto it = r.counters.find("MP/s");
      if (it == r.counters.end() || r.error_occurred) continue;
      const bool median = r.run_type == Run::RT_Aggregate && r.aggregate_name == "median";
      if (r.run_type == Run::RT_Aggregate && !median) continue;
      const std::string name = r.run_name.function_name;
      if (median || !medians_.count(name)) (median ? medians_ : singles_)[name] = it->second.value;
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    auto value = [&](const std::string &n, double &v) {
      auto m = medians_.find(n);
      if (m != medians_.end()) return v = m->second, true;
      auto s = singles_.find(n);
      if (s != singles_.end()) return v = s->second, true;
      return false;
    };
    std::printf("\n%-24s %10s %10s %8s\n", "case (1920x1080)", "vek MP/s", "libyuv", "ratio");
    for (const Case &c : cases()) {
      double v = 0, y = 0;
      if (!value(std::string("vek/") + c.name, v)) continue;
      if (value(std::string("libyuv/") + c.name, y) && y > 0)
        std::printf("%-24s %10.0f %10.0f %8.2f\n", c.name, v, y, v / y);
      else
        std::printf("%-24s %10.0f %10s %8s\n", c.name, v, "-", "-");
    }
  }

 private:
  std::map<std::string, double> medians_, singles_;
};

}  // namespace

int main(int argc, char **argv) {
  for (const Case &c : cases()) {
    benchmark::RegisterBenchmark((std::string("vek/") + c.name).c_str(), [c](benchmark::State &s) {
      run_vek(s, c);
    })->Unit(benchmark::kMillisecond);
    if (c.rival)
      benchmark::RegisterBenchmark((std::string("libyuv/") + c.name).c_str(),
                                   [c](benchmark::State &s) { run_rival(s, c); })
          ->Unit(benchmark::kMillisecond);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
