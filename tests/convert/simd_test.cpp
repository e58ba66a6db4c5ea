// Vector row kernels of the conversion family: each ISA level against the
// scalar kernel byte for byte (every width up to four blocks and a tail,
// misaligned rows, random, 0 and 255 fills, guard bytes around the output, a
// source ending at the row's end so an overread shows under ASan), and YUV to
// RGB against the formula for every input. The formulas of the other pairs are
// checked through the public conversions by the family's other tests, at
// whatever level the program runs.
//
// Setting VEK_TEST_CPU_MASK (a number) before running the program hides those
// CPU features for every test of the program, so the whole convert suite can be
// run once on the portable kernels and once on the vector ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "convert/internal.h"
#include "convert_ref.h"
#include "core/cpu.h"

namespace {

using vek::conv::RowKernel;
using vek::conv::RowParams;
namespace cpu = vek::cpu;

using convref::base_cpu_mask;

class CpuMaskEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { cpu::testing::set_disabled(base_cpu_mask()); }
  void TearDown() override { cpu::testing::set_disabled(0); }
};
[[maybe_unused]] const auto *const kEnv =
    ::testing::AddGlobalTestEnvironment(new CpuMaskEnvironment);

// Restores the program-wide mask when a test that changed it ends.
struct MaskGuard {
  ~MaskGuard() { cpu::testing::set_disabled(base_cpu_mask()); }
};

struct Pair {
  const char *name;
  uint16_t source, target;
  int in, out;
};

const std::vector<Pair> &pairs() {
  static const std::vector<Pair> all = {
      {"YUV422>RGB24", VEK_YUV422, VEK_RGB24, 2, 3},
      {"YUV422>BGR24", VEK_YUV422, VEK_BGR24, 2, 3},
      {"YUV422>BGRX32", VEK_YUV422, VEK_BGRX32, 2, 4},
      {"YUV422>RGBX32", VEK_YUV422, VEK_RGBX32, 2, 4},
      {"YUV422>XRGB32", VEK_YUV422, VEK_XRGB32, 2, 4},
      {"YUV422>XBGR32", VEK_YUV422, VEK_XBGR32, 2, 4},
      {"YUV422>Y8", VEK_YUV422, VEK_Y8, 2, 1},
      {"RGB24>YUV422", VEK_RGB24, VEK_YUV422, 3, 2},
      {"BGR24>YUV422", VEK_BGR24, VEK_YUV422, 3, 2},
      {"BGRX32>YUV422", VEK_BGRX32, VEK_YUV422, 4, 2},
      {"BGR24>RGB24", VEK_BGR24, VEK_RGB24, 3, 3},
      {"RGB24>BGR24", VEK_RGB24, VEK_BGR24, 3, 3},
      {"RGB24>Y8", VEK_RGB24, VEK_Y8, 3, 1},
      {"BGR24>Y8", VEK_BGR24, VEK_Y8, 3, 1},
      {"BGRX32>Y8", VEK_BGRX32, VEK_Y8, 4, 1},
      {"RGB24>BGRX32", VEK_RGB24, VEK_BGRX32, 3, 4},
      {"BGRX32>RGB24", VEK_BGRX32, VEK_RGB24, 4, 3},
  };
  return all;
}

RowKernel kernel_for(const Pair &p) {
  if (p.source == VEK_YUV422 && p.target != VEK_Y8) return vek::conv::yuv_kernel(p.target, false);
  return vek::conv::rgb_kernel(p.source, p.target);
}

// Levels to force, by the features left visible.
struct Level {
  const char *name;
  uint32_t disabled;
  uint32_t needs;
};
const Level kScalar{"scalar", cpu::kAvx2 | cpu::kSse41, 0};
const Level kVector[] = {{"avx2", 0, cpu::kAvx2}};

// The scalar level and every vector level this CPU has, whatever mask the
// program runs under: these tests force each level themselves.
std::vector<Level> levels() {
  cpu::testing::set_disabled(0);
  std::vector<Level> out{kScalar};
  for (const Level &l : kVector) {
    if ((cpu::features() & l.needs) == l.needs)
      out.push_back(l);
    else
      std::printf("  %s is not available on this CPU: not tested\n", l.name);
  }
  return out;
}

constexpr size_t kGuard = 64;
constexpr uint8_t kSentinel = 0xA5;

// Runs `k` on one row placed at byte offset `misalign` of its buffer and
// returns the output row; fails if anything outside the output row changed.
std::vector<uint8_t> run(RowKernel k, const Pair &p, const std::vector<uint8_t> &row, uint32_t w,
                         size_t misalign, const std::string &what) {
  // The source ends exactly at the row's end, so an overread shows under ASan.
  std::vector<uint8_t> in(misalign + row.size());
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
  MaskGuard guard;
  for (const Level &level : levels()) {
    if (level.needs == 0) continue;
    for (const Pair &p : pairs()) {
      cpu::testing::set_disabled(kScalar.disabled);
      const RowKernel scalar = kernel_for(p);
      cpu::testing::set_disabled(level.disabled);
      const RowKernel vector = kernel_for(p);
      ASSERT_NE(scalar, nullptr) << p.name;
      EXPECT_NE(vector, scalar) << p.name << ": no " << level.name << " kernel";
      for (uint32_t w = 1; w <= 4 * 32 + 3 + 8; ++w) {
        for (int fill = 0; fill < 3; ++fill) {
          std::vector<uint8_t> row = fill == 0 ? vektest::random_bytes(size_t(w) * p.in, w * 7 + 1)
                                     : fill == 1 ? std::vector<uint8_t>(size_t(w) * p.in, 0)
                                                 : std::vector<uint8_t>(size_t(w) * p.in, 255);
          const std::string what = std::string(p.name) + " " + level.name + " width " +
                                   std::to_string(w) + " fill " + std::to_string(fill);
          const size_t misalign = (w * 5 + fill) % 31;
          const auto want = run(scalar, p, row, w, misalign, what);
          const auto got = run(vector, p, row, w, (misalign + 7) % 29, what);
          ASSERT_EQ(got, want) << what;
        }
      }
    }
  }
}

// Every (Y, U, V) triple through the direct RGB24 kernel at each level: the
// clamps at both ends and the floor of negative chroma terms are where a
// rewrite would slip.
TEST(ConvertSimd, YuvToRgbIsExactForEveryInput) {
  MaskGuard guard;
  std::vector<uint8_t> row(512), out(768);
  for (const Level &level : levels()) {
    cpu::testing::set_disabled(level.disabled);
    const RowKernel k = vek::conv::yuv_kernel(VEK_RGB24, false);
    for (int u = 0; u < 256; ++u) {
      for (int v = 0; v < 256; ++v) {
        for (int i = 0; i < 128; ++i) {
          row[4 * i] = uint8_t(2 * i), row[4 * i + 1] = uint8_t(u);
          row[4 * i + 2] = uint8_t(2 * i + 1), row[4 * i + 3] = uint8_t(v);
        }
        k(row.data(), out.data(), 256, RowParams{});
        for (int y = 0; y < 256; ++y) {
          const convref::C c = convref::yuv_rgb(y, u, v);
          if (out[3 * y] != c.r || out[3 * y + 1] != c.g || out[3 * y + 2] != c.b)
            FAIL() << level.name << " Y " << y << " U " << u << " V " << v << ": got "
                   << int(out[3 * y]) << "," << int(out[3 * y + 1]) << "," << int(out[3 * y + 2])
                   << " want " << c.r << "," << c.g << "," << c.b;
        }
      }
    }
  }
}

// The strip driver picks the kernel per call: a whole conversion through the
// public functions gives the same image with the vector kernels hidden and
// shown.
TEST(ConvertSimd, PublicConversionsAgreeAcrossLevels) {
  MaskGuard guard;
  struct Case {
    uint32_t source, target;
  };
  const Case cases[] = {{VEK_YUV422, VEK_RGB24}, {VEK_YUV422, VEK_XBGR32}, {VEK_RGB24, VEK_YUV422},
                        {VEK_BGRX32, VEK_Y8},    {VEK_BGR24, VEK_RGB24},   {VEK_RGB24, VEK_BGRX32}};
  for (const Case &c : cases) {
    // Lines without padding, so every byte of the strip is written.
    const uint32_t src = vektest::make_image(c.source, 202, 9);
    vektest::fill_random(src, c.source * 31 + c.target);
    std::vector<uint8_t> images[2];
    for (int on = 0; on < 2; ++on) {
      cpu::testing::set_disabled(on ? 0 : kScalar.disabled);
      const uint32_t dst = VEK_image_create();
      ASSERT_EQ(VEK_image_convert(src, dst, c.target, 0, VEK_STRIP_NEXT), VEK_OK);
      const auto *p = static_cast<const uint8_t *>(VEK_image_get_ptr(dst, VEK_PTR_DATA));
      ASSERT_NE(p, nullptr);
      images[on].assign(p, p + size_t(VEK_image_get_parameter(dst, VEK_PARAM_BYTES_PER_LINE)) * 9);
      VEK_image_destroy(dst);
    }
    EXPECT_EQ(images[0], images[1]) << c.source << " to " << c.target;
    VEK_image_destroy(src);
  }
}

}  // namespace
