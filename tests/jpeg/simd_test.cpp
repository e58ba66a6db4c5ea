// The codec's kernel sets against each other and the plain reference arithmetic: the
// portable transforms must match the reference, and every AVX2 kernel must give the
// portable kernel's bytes on random and extreme input. The AVX2 half skips when the CPU
// lacks it or VEK_TEST_CPU_MASK hides it, so a masked run stays on the portable kernels.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "helpers.h"
#include "jpeg/kernels.h"
#include "reference.h"
#include "support/cpu_mask.h"

namespace {

using vek::jpeg::Kernels;
using vek::jpeg::QuantNat;
using Block = std::array<int32_t, 64>;
constexpr int32_t kMin = std::numeric_limits<int32_t>::min(), kMax = std::numeric_limits<int32_t>::max();

// The AVX2 set when dispatch may use it under the program's mask, else null.
const Kernels* avx2() { return vek::cpu::has(vek::cpu::kAvx2) ? vek::jpeg::avx2_kernels() : nullptr; }

// Level-shifted sample blocks: random, near-flat, and extreme patterns that drive single
// frequencies hard.
std::vector<Block> sample_blocks(std::mt19937& rng) {
  std::vector<Block> out(3);  // zero, all -128, all 127
  out[1].fill(-128);
  out[2].fill(127);
  std::uniform_int_distribution<int> any(-128, 127), small(-6, 6);
  for (int i = 0; i < 300; ++i) {
    Block b{};
    const int base = any(rng);
    for (int n = 0; n < 64; ++n) {
      const int r = n / 8, c = n % 8;
      const int pick[5] = {any(rng), std::clamp(base + small(rng), -128, 127), ((r + c) & 1) ? 127 : -128,
                           (rng() & 1) ? 127 : -128, c < (i % 8) ? -128 : 127};
      b[n] = pick[i % 5];
    }
    out.push_back(b);
  }
  return out;
}

// Natural-order tables from zigzag steps, reciprocals by the stated rule (none for 0).
QuantNat quant_from_steps(const int* zz_steps) {
  QuantNat q{};
  for (int k = 0; k < 64; ++k) {
    const uint32_t s = uint32_t(zz_steps[k]);
    q.step[ref::kZig[k]] = int32_t(s);
    q.reciprocal[ref::kZig[k]] = s ? (s / 2 + 65536) / s : 0;
  }
  return q;
}

TEST(JpegKernels, ForwardTransformAndQuantisationMatchTheReferenceOnEverySet) {
  std::mt19937 rng(11);
  std::vector<QuantNat> tables;
  for (int f : {1, 16, 32, 100, 400}) {
    const ref::QTables t = ref::qtables(f);
    tables.push_back(quant_from_steps(t.step[0]));
    tables.push_back(quant_from_steps(t.step[1]));
  }
  int steps[64];
  for (int i = 0; i < 5; ++i) {  // four random tables, then a zeroed one
    for (int& s : steps) s = i < 4 ? int(rng() % 255) + 1 : 0;
    tables.push_back(quant_from_steps(steps));
  }
  const Kernels* fast = avx2();
  for (const Block& src : sample_blocks(rng)) {
    int64_t expect[64];
    std::copy(src.begin(), src.end(), expect);
    ref::fdct(expect);
    for (const QuantNat& q : tables) {
      alignas(32) int32_t a[64], b[64], c2[64], d[64];
      alignas(32) uint32_t sized[64], sized_fast[64];
      std::memcpy(a, src.data(), sizeof a);
      std::memcpy(b, src.data(), sizeof b);
      std::memcpy(c2, src.data(), sizeof c2);
      std::memcpy(d, src.data(), sizeof d);
      const uint64_t mask = vek::jpeg::scalar_kernels().fdct_quant(a, q);
      ASSERT_EQ(vek::jpeg::scalar_kernels().fdct_quant_sized(c2, sized, q), mask);
      ASSERT_EQ(0, std::memcmp(a, c2, sizeof a));
      for (int n = 0; n < 64; ++n) {
        const int64_t c = expect[n], m = c < 0 ? -c : c;
        const int64_t v = m < q.step[n] ? 0 : int64_t((uint64_t(m) * q.reciprocal[n]) >> 16);
        ASSERT_EQ(a[n], c < 0 ? -v : v) << "coefficient " << n << " step " << q.step[n];
        ASSERT_EQ((mask >> n) & 1, uint64_t(v != 0)) << "mask bit " << n;
        // Category: the smallest s with |v| < 2^s; bits: v, or v + 2^s - 1 when negative.
        uint32_t size = 0;
        while ((int64_t(1) << size) <= v) ++size;
        const int64_t bits = c < 0 ? (int64_t(1) << size) - 1 - v : v;
        ASSERT_EQ(sized[n], size << 16 | uint32_t(bits)) << "sized " << n << " value " << a[n];
      }
      if (fast) {
        ASSERT_EQ(fast->fdct_quant(b, q), mask);
        ASSERT_EQ(0, std::memcmp(a, b, sizeof a));
        ASSERT_EQ(fast->fdct_quant_sized(d, sized_fast, q), mask);
        ASSERT_EQ(0, std::memcmp(a, d, sizeof a));
        ASSERT_EQ(0, std::memcmp(sized, sized_fast, sizeof sized));
      }
    }
  }
}

// Coefficient blocks: realistic dequantised values, sparse blocks with whole columns free
// of AC (the shortcut), and values of corrupt streams large enough for every product to
// wrap (those only between kernel sets: the reference does not wrap).
TEST(JpegKernels, InverseTransformMatchesTheReferenceAndWrapsAlikeOnEverySet) {
  std::mt19937 rng(13);
  std::uniform_int_distribution<int32_t> real(-1024, 1023), huge(kMin, kMax);
  std::vector<Block> blocks;
  for (int i = 0; i < 400; ++i) {
    Block b{};
    for (int n = 0; n < 64; ++n) {
      const int32_t pick[4] = {real(rng) / (1 + n), rng() % 6 ? 0 : real(rng),
                               n < 8 || n % 8 == i % 8 ? real(rng) * 4 : 0, rng() % 3 ? 0 : huge(rng)};
      b[n] = pick[i % 4];
    }
    blocks.push_back(b);
  }
  for (int32_t dc : {kMin, kMax, 1 << 18, (1 << 19) + 3, -(1 << 20)}) {
    Block b{};
    b[0] = dc;
    blocks.push_back(b);
    b[9] = dc;  // one AC column, the others on the shortcut
    blocks.push_back(b);
  }
  const Kernels* fast = avx2();
  constexpr size_t kStride = 13;  // odd, and sentinels between the rows
  for (size_t i = 0; i < blocks.size(); ++i) {
    std::vector<uint8_t> a(8 * kStride, 0xA5), b(a);
    vek::jpeg::scalar_kernels().idct(blocks[i].data(), a.data(), kStride);
    if (i < 400 && i % 4 != 3) {
      int64_t wide[64];
      std::copy(blocks[i].begin(), blocks[i].end(), wide);
      uint8_t expect[64];
      ref::idct(wide, expect);
      for (int n = 0; n < 64; ++n) ASSERT_EQ(a[n / 8 * kStride + n % 8], expect[n]) << "block " << i;
    }
    if (fast) {
      fast->idct(blocks[i].data(), b.data(), kStride);
      ASSERT_EQ(a, b) << "block " << i;
    }
  }
}

// The decoder's DC-only shortcut must give what the transform gives, for every DC,
// wrapping ones included.
TEST(JpegKernels, DcOnlyShortcutEqualsTheTransform) {
  std::mt19937 rng(15);
  std::vector<int32_t> dcs = {kMin, kMax};
  for (int32_t dc = -5000; dc <= 5000; ++dc) dcs.push_back(dc);
  for (int i = 0; i < 2000; ++i) dcs.push_back(int32_t(rng()));
  for (int32_t dc : dcs) {
    alignas(32) int32_t coef[64] = {dc};
    uint8_t out[64];
    vek::jpeg::scalar_kernels().idct(coef, out, 8);
    for (uint8_t v : out) ASSERT_EQ(v, vek::jpeg::dc_only_value(dc)) << "dc " << dc;
  }
}

// The loaders and the conversion on random, all-0 and all-255 input (the formulas
// themselves are checked through the encoder's byte-exact streams).
TEST(JpegKernels, Avx2RowKernelsEqualPortable) {
  const Kernels* fast = avx2();
  if (!fast) GTEST_SKIP() << "AVX2 absent or masked";
  const Kernels& scalar = vek::jpeg::scalar_kernels();
  for (int fill = 0; fill < 3; ++fill) {
    auto input = [&](size_t n, uint32_t seed) {
      std::vector<uint8_t> v = vektest::random_bytes(n, seed);
      if (fill) std::fill(v.begin(), v.end(), fill == 1 ? 0 : 255);
      return v;
    };
    alignas(32) int32_t a[4][64], b[4][64];
    const std::vector<uint8_t> yuv = input(37 * 8, 21 + fill);  // odd pitch
    scalar.load_mcu422(yuv.data(), 37, a);
    fast->load_mcu422(yuv.data(), 37, b);
    ASSERT_EQ(0, std::memcmp(a, b, sizeof a));
    const std::vector<uint8_t> bgrx = input(76 * 8, 31 + fill);
    scalar.load_mcu_bgrx(bgrx.data(), 76, a);
    fast->load_mcu_bgrx(bgrx.data(), 76, b);
    ASSERT_EQ(0, std::memcmp(a, b, sizeof a));
    for (size_t pairs = 1; pairs <= 35; ++pairs) {  // every tail up to 4 x 8 + 3, sentinels intact
      const std::vector<uint8_t> px = input(pairs * 8, uint32_t(100 * fill + pairs));
      std::vector<uint8_t> da(pairs * 4 + 8, 0x5A), db(da);
      scalar.bgrx_to_yuv422(px.data(), da.data(), pairs);
      fast->bgrx_to_yuv422(px.data(), db.data(), pairs);
      ASSERT_EQ(da, db) << "pairs " << pairs;
      // Packed B, G, R input, exactly pairs * 6 bytes so that any overread shows under ASan.
      const std::vector<uint8_t> bgr(px.begin(), px.begin() + pairs * 6);
      std::vector<uint8_t> ea(pairs * 4 + 8, 0x5A), eb(ea);
      scalar.bgr_to_yuv422(bgr.data(), ea.data(), pairs);
      fast->bgr_to_yuv422(bgr.data(), eb.data(), pairs);
      ASSERT_EQ(ea, eb) << "B, G, R pairs " << pairs;
    }
  }
}

// End to end: streams and pixels are the same whichever kernel set dispatch picks, for
// every accepted layout, on noisy pictures of padded sizes.
TEST(JpegKernels, CodecOutputIsTheSameOnEveryKernelSet) {
  if (!avx2()) GTEST_SKIP() << "AVX2 absent or masked";
  struct Case { uint32_t format, w, h, target; };
  const Case cases[] = {{VEK_BGRX32, 98, 41, VEK_BGRX32}, {VEK_BGR24, 64, 24, VEK_RGB24},
                        {VEK_YUV422, 130, 18, VEK_YUV422}, {VEK_Y8, 33, 17, VEK_Y8}};
  for (const Case& c : cases) {
    std::vector<uint8_t> out[2][2];  // [set][stream, pixels]
    for (int set = 0; set < 2; ++set) {
      vektest::CpuMaskGuard mask(set ? 0u : uint32_t(vek::cpu::kAvx2));
      const uint32_t src = vektest::make_image(c.format, c.w, c.h);
      vektest::fill_random(src, c.w * 7 + c.h);
      const uint32_t jpg = VEK_JPEG_image_create(), dst = VEK_image_create();
      ASSERT_EQ(VEK_JPEG_compress(src, jpg), 0u);
      out[set][0] = jt::data_of(jpg);
      VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, c.target);
      ASSERT_EQ(VEK_JPEG_decompress(jpg, dst), 0u);
      out[set][1].assign(jt::pixels(dst), jt::pixels(dst) + size_t(jt::param(dst, VEK_PARAM_BYTES_PER_LINE)) * c.h);
      VEK_image_destroy(VEK_ALL_IMAGES);
    }
    EXPECT_EQ(out[0][0], out[1][0]) << "stream, format " << c.format;
    EXPECT_EQ(out[0][1], out[1][1]) << "pixels, format " << c.format;
  }
}

}  // namespace
