// AVX2 geometry kernels against the portable ones byte for byte: every width up to
// four blocks and a tail, random, 0 and 255 fills, odd pitches, sources that end
// exactly at the line's end (an overread shows under ASan) and guard bytes after each
// output (an overwrite shows here). Skipped where AVX2 is absent or masked off.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "process/geometry_rows.h"
#include "support/cpu_mask.h"
#include "support/recorder.h"

namespace rows = vek::geometry::rows;

namespace {

constexpr uint8_t kGuard = 0xA5;
constexpr size_t kGuardBytes = 40;

std::vector<uint8_t> filled(size_t n, int fill, uint32_t seed) {  // fill -1: random
  return fill < 0 ? vektest::random_bytes(n, seed) : std::vector<uint8_t>(n, uint8_t(fill));
}

// Runs `kernel` into a guarded buffer of `n` bytes with AVX2 and then with the
// portable kernels only, and compares the two, guards included.
void same_both_ways(size_t n, const std::function<void(uint8_t*)>& kernel, const char* what) {
  std::vector<uint8_t> got[2];
  for (int portable = 0; portable < 2; ++portable) {
    vektest::CpuMaskGuard mask(portable ? vek::cpu::kAvx2 | vek::cpu::kSse41 : 0);
    got[portable].assign(n + kGuardBytes, kGuard);
    kernel(got[portable].data());
  }
  ASSERT_EQ(got[0], got[1]) << what;
  for (size_t i = n; i < n + kGuardBytes; ++i) ASSERT_EQ(got[0][i], kGuard) << what << " wrote past";
}

struct GeometrySimd : ::testing::Test {
  void SetUp() override { if (!vek::cpu::has(vek::cpu::kAvx2)) GTEST_SKIP() << "AVX2 absent or masked off"; }
};

TEST_F(GeometrySimd, ScaleVerticalAllFractions) {
  const uint16_t* table = rows::scale_table();
  for (int fill : {-1, 0, 255})
    for (size_t count = 1; count <= 4 * 32 + 3; ++count)
      for (uint32_t f : {0u, 1u, 127u, 255u, uint32_t(count * 37 % 256)}) {
        const auto up = filled(count, fill, uint32_t(count)), lo = filled(count, fill, uint32_t(count + 9));
        same_both_ways(count, [&](uint8_t* d) { rows::scale_vertical(up.data(), lo.data(), d, count, f, table); },
                       "vertical");
      }
}

TEST_F(GeometrySimd, ScaleHorizontalReducingAndEnlarging) {
  const uint16_t* table = rows::scale_table();
  for (uint32_t channels : {1u, 3u})
    for (int fill : {-1, 0, 255})
      for (uint32_t in_w = 1; in_w <= 4 * 8 + 3; ++in_w)
        for (uint32_t out_w : {in_w * 3 / 4 + 1, in_w * 2 + 1, in_w + 5, 4 * 16 + 3u}) {
          const uint32_t step = (in_w << 13) / out_w;
          std::vector<rows::ScaleColumn> cols(out_w);
          rows::scale_columns(in_w, out_w, step, channels, cols.data());
          const size_t in_bytes = size_t(in_w) * channels;
          const auto src = filled(in_bytes, fill, in_w * 7 + out_w);
          for (bool planned : {false, true})
            same_both_ways(size_t(out_w) * channels, [&](uint8_t* d) {
              std::vector<uint8_t> plan(rows::scale_plan_bytes(out_w));
              rows::scale_plan(in_bytes, cols.data(), out_w, channels, plan.data());
              rows::scale_horizontal(src.data(), in_bytes, d, cols.data(), out_w, channels, table,
                                     planned ? plan.data() : nullptr);
            }, "horizontal");
        }
}

TEST_F(GeometrySimd, ZoomDownAnyWeights) {
  // Tops up to the 8-bit maximum 1019; weights summing past 1.0 wrap the byte.
  for (uint32_t count = 1; count <= 4 * 16 + 3; ++count)
    for (uint32_t wy0 : {0u, 16384u, 32768u, 65535u}) {
      const auto bytes = vektest::random_bytes(8 * size_t(count), count);
      std::vector<uint32_t> top(count), bottom(count);
      for (uint32_t k = 0; k < count; ++k) {
        top[k] = (bytes[k] * 4u + bytes[count + k]) % 1020u;
        bottom[k] = k % 3 ? (bytes[2 * count + k] * 4u) % 1020u : 1019u;
      }
      same_both_ways(count, [&](uint8_t* d) {
        rows::zoom_down(top.data(), bottom.data(), d, count, wy0, 65535u - wy0 / 2, false);
      }, "zoom down");
    }
}

TEST_F(GeometrySimd, HalvingByBinning) {
  struct Unit {
    uint32_t unit, first, channels, block;
  };
  for (const Unit u : {Unit{1, 0, 1, 32}, Unit{3, 0, 3, 8}})
    for (int fill : {-1, 0, 255})
      for (uint32_t count = 1; count <= 4 * u.block + 3; ++count) {
        const size_t row = 2 * size_t(count) * u.unit, pitch = row + 3;  // odd pitch
        const auto src = filled(pitch + row, fill, count);  // the second line ends the buffer
        same_both_ways(size_t(count) * u.unit, [&](uint8_t* d) {
          rows::bin(src.data(), pitch, d, count, 2, u.unit, u.first, u.channels);
        }, "binning");
      }
}

TEST_F(GeometrySimd, QuarterTurnBlocksBothDirections) {
  for (int fill : {-1, 0, 255})
    for (uint32_t count = 1; count <= 4 * 8 + 3; ++count)
      for (int dir : {1, -1}) {
        // `count` source lines of 8 pixels and 5 bytes of padding; output lines of
        // `count` pixels and 3 bytes of padding, written downwards or upwards.
        const ptrdiff_t pitch = 8 * 4 + 5, out_pitch = ptrdiff_t(count) * 4 + 3;
        const auto src = filled(size_t(pitch) * count, fill, count);
        const uint8_t* first = dir > 0 ? src.data() : src.data() + (count - 1) * pitch;
        const size_t n = size_t(out_pitch) * 8;
        same_both_ways(n, [&](uint8_t* d) {
          uint8_t* line0 = dir > 0 ? d : d + 7 * out_pitch;  // line 7 of an upward block is lowest
          rows::gather_block(first, dir * pitch, line0, dir * out_pitch, 8, count, 4);
        }, "quarter turn");
      }
}

}  // namespace
