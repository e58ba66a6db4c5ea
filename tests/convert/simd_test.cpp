// Vector row kernels of the conversion family against the scalar kernel byte for byte
// (every width up to four blocks and a tail, misaligned rows, random, 0 and 255 fills,
// guard bytes around the output, a source ending at the row's end so an overread shows
// under ASan), and YUV to RGB against the formula for every input. Under a program-wide
// mask that hides the vector levels (VEK_TEST_CPU_MASK=3) only the portable kernels run.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "convert/internal.h"
#include "convert_ref.h"
#include "support/cpu_mask.h"

namespace {

using vek::conv::RowKernel;
using vek::conv::RowParams;
using vektest::CpuMaskGuard;
namespace cpu = vek::cpu;

constexpr uint32_t kPortable = cpu::kAvx2 | cpu::kSse41;

struct Pair {
  uint16_t source, target;
  int in, out;
};
const Pair kPairs[] = {
    {VEK_YUV422, VEK_RGB24, 2, 3},  {VEK_YUV422, VEK_BGR24, 2, 3},  {VEK_YUV422, VEK_BGRX32, 2, 4},
    {VEK_YUV422, VEK_RGBX32, 2, 4}, {VEK_YUV422, VEK_XRGB32, 2, 4}, {VEK_YUV422, VEK_XBGR32, 2, 4},
    {VEK_YUV422, VEK_Y8, 2, 1},     {VEK_RGB24, VEK_YUV422, 3, 2},  {VEK_BGR24, VEK_YUV422, 3, 2},
    {VEK_BGRX32, VEK_YUV422, 4, 2}, {VEK_BGR24, VEK_RGB24, 3, 3},   {VEK_RGB24, VEK_BGR24, 3, 3},
    {VEK_RGB24, VEK_Y8, 3, 1},      {VEK_BGR24, VEK_Y8, 3, 1},      {VEK_BGRX32, VEK_Y8, 4, 1},
    {VEK_RGB24, VEK_BGRX32, 3, 4},  {VEK_BGRX32, VEK_RGB24, 4, 3},
};

RowKernel kernel_for(const Pair& p) {
  if (p.source == VEK_YUV422 && p.target != VEK_Y8) return vek::conv::yuv_kernel(p.target, false);
  return vek::conv::rgb_kernel(p.source, p.target);
}

// Extra masks for the levels to test: the portable one, plus the vector one when this
// CPU has AVX2 and the program's mask leaves it visible.
std::vector<uint32_t> levels() {
  if (cpu::has(cpu::kAvx2)) return {kPortable, 0};
  std::printf("  AVX2 hidden or absent: only the portable kernels are tested\n");
  return {kPortable};
}
std::string level_name(uint32_t extra) { return extra ? "portable" : "avx2"; }

constexpr size_t kGuard = 64;
constexpr uint8_t kSentinel = 0xA5;

// Runs `k` on one row placed at byte offset `misalign` of its buffer and returns the
// output row; fails if anything outside the output row changed.
std::vector<uint8_t> run(RowKernel k, const Pair& p, const std::vector<uint8_t>& row, uint32_t w,
                         size_t misalign, const std::string& what) {
  std::vector<uint8_t> in(misalign + row.size());  // ends exactly at the row's end
  std::memcpy(in.data() + misalign, row.data(), row.size());
  std::vector<uint8_t> out(kGuard + size_t(w) * p.out + kGuard, kSentinel);
  k(in.data() + misalign, out.data() + kGuard, w, RowParams{});
  for (size_t i = 0; i < kGuard; ++i) {
    EXPECT_EQ(out[i], kSentinel) << what << ": wrote before the row";
    EXPECT_EQ(out[out.size() - 1 - i], kSentinel) << what << ": wrote past the row";
  }
  return std::vector<uint8_t>(out.begin() + kGuard, out.end() - kGuard);
}

TEST(ConvertSimd, EveryLevelMatchesTheScalarKernelByteForByte) {
  if (levels().size() < 2) GTEST_SKIP() << "no vector level to compare";
  for (const Pair& p : kPairs) {
    RowKernel scalar, vector;
    { CpuMaskGuard g(kPortable); scalar = kernel_for(p); }
    { CpuMaskGuard g(0); vector = kernel_for(p); }
    const std::string name = std::to_string(p.source) + ">" + std::to_string(p.target);
    ASSERT_NE(scalar, nullptr) << name;
    EXPECT_NE(vector, scalar) << name << ": no avx2 kernel";
    for (uint32_t w = 1; w <= 4 * 32 + 3 + 8; ++w)
      for (int fill = 0; fill < 3; ++fill) {
        const size_t n = size_t(w) * p.in;
        const auto row = fill == 0 ? vektest::random_bytes(n, w * 7 + 1) : std::vector<uint8_t>(n, fill == 1 ? 0 : 255);
        const std::string what = name + " width " + std::to_string(w) + " fill " + std::to_string(fill);
        const size_t misalign = (w * 5 + fill) % 31;
        ASSERT_EQ(run(vector, p, row, w, (misalign + 7) % 29, what), run(scalar, p, row, w, misalign, what)) << what;
      }
  }
}

// Every (Y, U, V) triple through the direct RGB24 kernel at each level: the clamps at
// both ends and the floor of negative chroma terms are where a rewrite would slip.
TEST(ConvertSimd, YuvToRgbIsExactForEveryInput) {
  std::vector<uint8_t> row(512), out(768);
  for (uint32_t extra : levels()) {
    CpuMaskGuard guard(extra);
    const RowKernel k = vek::conv::yuv_kernel(VEK_RGB24, false);
    for (int u = 0; u < 256; ++u)
      for (int v = 0; v < 256; ++v) {
        for (int i = 0; i < 128; ++i) {
          row[4 * i] = uint8_t(2 * i), row[4 * i + 1] = uint8_t(u);
          row[4 * i + 2] = uint8_t(2 * i + 1), row[4 * i + 3] = uint8_t(v);
        }
        k(row.data(), out.data(), 256, RowParams{});
        for (int y = 0; y < 256; ++y) {
          const convref::C c = convref::yuv_rgb(y, u, v);
          if (out[3 * y] != c.r || out[3 * y + 1] != c.g || out[3 * y + 2] != c.b)
            FAIL() << level_name(extra) << " Y " << y << " U " << u << " V " << v << ": got " << int(out[3 * y])
                   << "," << int(out[3 * y + 1]) << "," << int(out[3 * y + 2]) << " want " << c.r << "," << c.g
                   << "," << c.b;
        }
      }
  }
}

}  // namespace
