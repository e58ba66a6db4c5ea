// The codec's kernel sets against each other: every AVX2 kernel must give the portable
// kernel's bytes on random and extreme blocks, and the portable transforms must match
// the plain reference arithmetic. Setting VEK_JPEG_TEST_PORTABLE in the environment runs
// the whole jpeg test program on the portable kernels.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "core/cpu.h"
#include "jpeg/internal.h"
#include "jpeg/kernels.h"
#include "reference.h"
#include "support/recorder.h"
#include "vek.h"

namespace {

using vek::jpeg::Kernels;
using vek::jpeg::QuantNat;

// The mask every test returns to: the whole program runs on the portable kernels when
// asked to, from before the first test.
const uint32_t kBaseMask = [] {
  const uint32_t mask = std::getenv("VEK_JPEG_TEST_PORTABLE") ? uint32_t(vek::cpu::kAvx2) : 0u;
  vek::cpu::testing::set_disabled(mask);
  return mask;
}();

struct MaskGuard {
  explicit MaskGuard(uint32_t mask) { vek::cpu::testing::set_disabled(mask); }
  ~MaskGuard() { vek::cpu::testing::set_disabled(kBaseMask); }
};

// The AVX2 set when the CPU has it, whatever mask the run uses.
const Kernels* avx2_or_skip() {
  MaskGuard all(0);
  return vek::cpu::has(vek::cpu::kAvx2) ? vek::jpeg::avx2_kernels() : nullptr;
}

#define REQUIRE_AVX2(k)                                              \
  const Kernels* k = avx2_or_skip();                                 \
  if (!k) GTEST_SKIP() << "no AVX2 on this CPU or in this build"

// Sample blocks: random, the extremes, and patterns that drive single frequencies hard.
std::vector<std::array<int32_t, 64>> sample_blocks(std::mt19937& rng) {
  std::vector<std::array<int32_t, 64>> out;
  std::uniform_int_distribution<int> any(-128, 127), small(-6, 6);
  for (int i = 0; i < 300; ++i) {
    std::array<int32_t, 64> b{};
    const int kind = i % 5;
    const int base = any(rng);
    for (int n = 0; n < 64; ++n) {
      const int r = n / 8, c = n % 8;
      switch (kind) {
        case 0: b[n] = any(rng); break;
        case 1: b[n] = std::clamp(base + small(rng), -128, 127); break;
        case 2: b[n] = ((r + c) & 1) ? 127 : -128; break;
        case 3: b[n] = (rng() & 1) ? 127 : -128; break;
        default: b[n] = c < (i % 8) ? -128 : 127; break;
      }
    }
    out.push_back(b);
  }
  out.push_back({});
  std::array<int32_t, 64> lo, hi;
  lo.fill(-128);
  hi.fill(127);
  out.push_back(lo);
  out.push_back(hi);
  return out;
}

// Natural-order tables from descriptor-style zigzag steps, reciprocals by the stated rule.
QuantNat quant_from_steps(const int* zz_steps) {
  QuantNat q{};
  for (int k = 0; k < 64; ++k) {
    const uint32_t s = uint32_t(zz_steps[k]);
    q.step[ref::kZig[k]] = int32_t(s);
    q.reciprocal[ref::kZig[k]] = s ? (s / 2 + 65536) / s : 0;
  }
  return q;
}

std::vector<QuantNat> sample_tables(std::mt19937& rng) {
  std::vector<QuantNat> out;
  for (int f : {1, 16, 32, 100, 400}) {
    const ref::QTables t = ref::qtables(f);
    out.push_back(quant_from_steps(t.step[0]));
    out.push_back(quant_from_steps(t.step[1]));
  }
  int steps[64];
  for (int i = 0; i < 4; ++i) {
    for (int& s : steps) s = int(rng() % 255) + 1;
    out.push_back(quant_from_steps(steps));
  }
  std::fill(std::begin(steps), std::end(steps), 0);  // a zeroed table: no reciprocal
  out.push_back(quant_from_steps(steps));
  return out;
}

TEST(JpegKernels, PortableForwardTransformAndQuantisationMatchTheReference) {
  std::mt19937 rng(11);
  const Kernels& k = vek::jpeg::scalar_kernels();
  const auto tables = sample_tables(rng);
  for (const auto& src : sample_blocks(rng)) {
    int64_t expect[64];
    for (int n = 0; n < 64; ++n) expect[n] = src[n];
    ref::fdct(expect);
    for (const QuantNat& q : tables) {
      alignas(32) int32_t block[64];
      std::memcpy(block, src.data(), sizeof block);
      const uint64_t mask = k.fdct_quant(block, q);
      for (int n = 0; n < 64; ++n) {
        const int64_t c = expect[n], a = c < 0 ? -c : c;
        int64_t v = a < q.step[n] ? 0 : int64_t((uint64_t(a) * q.reciprocal[n]) >> 16);
        if (c < 0) v = -v;
        ASSERT_EQ(block[n], v) << "coefficient " << n << " step " << q.step[n];
        ASSERT_EQ((mask >> n) & 1, uint64_t(v != 0)) << "mask bit " << n;
      }
    }
  }
}

TEST(JpegKernels, Avx2ForwardTransformAndQuantisationEqualPortable) {
  REQUIRE_AVX2(avx2);
  std::mt19937 rng(12);
  const Kernels& scalar = vek::jpeg::scalar_kernels();
  const auto tables = sample_tables(rng);
  for (const auto& src : sample_blocks(rng))
    for (const QuantNat& q : tables) {
      alignas(32) int32_t a[64], b[64];
      std::memcpy(a, src.data(), sizeof a);
      std::memcpy(b, src.data(), sizeof b);
      const uint64_t ma = scalar.fdct_quant(a, q), mb = avx2->fdct_quant(b, q);
      ASSERT_EQ(ma, mb);
      ASSERT_EQ(0, std::memcmp(a, b, sizeof a));
    }
}

// Coefficient blocks for the inverse transform: realistic dequantised values, sparse
// blocks with whole columns free of AC (the shortcut), and values of corrupt streams
// large enough for every product to wrap.
std::vector<std::array<int32_t, 64>> coefficient_blocks(std::mt19937& rng, bool realistic_only) {
  std::vector<std::array<int32_t, 64>> out;
  std::uniform_int_distribution<int32_t> real(-1024, 1023);
  std::uniform_int_distribution<int32_t> huge(std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max());
  for (int i = 0; i < 400; ++i) {
    std::array<int32_t, 64> b{};
    const int kind = i % 4;
    if (kind == 3 && realistic_only) continue;
    for (int n = 0; n < 64; ++n) {
      switch (kind) {
        case 0: b[n] = real(rng) / (1 + n); break;
        case 1: if (rng() % 6 == 0) b[n] = real(rng); break;
        case 2: if (n < 8 || (n % 8) == int(i % 8)) b[n] = real(rng) * 4; break;  // AC-free columns
        default: b[n] = (rng() % 3) ? 0 : huge(rng); break;
      }
    }
    out.push_back(b);
  }
  if (!realistic_only) {
    for (int32_t dc : {std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max(), 1 << 18, (1 << 19) + 3, -(1 << 20)}) {
      std::array<int32_t, 64> b{};
      b[0] = dc;
      out.push_back(b);
      b[9] = dc;  // one AC column, the others on the shortcut
      out.push_back(b);
    }
  }
  return out;
}

TEST(JpegKernels, PortableInverseTransformMatchesTheReference) {
  std::mt19937 rng(13);
  const Kernels& k = vek::jpeg::scalar_kernels();
  for (const auto& src : coefficient_blocks(rng, true)) {
    int64_t wide[64];
    for (int n = 0; n < 64; ++n) wide[n] = src[n];
    uint8_t expect[64], got[64];
    ref::idct(wide, expect);
    k.idct(src.data(), got, 8);
    ASSERT_EQ(0, std::memcmp(expect, got, 64));
  }
}

TEST(JpegKernels, Avx2InverseTransformEqualsPortableIncludingWrapAround) {
  REQUIRE_AVX2(avx2);
  std::mt19937 rng(14);
  const Kernels& scalar = vek::jpeg::scalar_kernels();
  constexpr size_t kStride = 13;  // odd, and sentinels between the rows
  for (const auto& src : coefficient_blocks(rng, false)) {
    std::vector<uint8_t> a(8 * kStride, 0xA5), b(8 * kStride, 0xA5);
    scalar.idct(src.data(), a.data(), kStride);
    avx2->idct(src.data(), b.data(), kStride);
    ASSERT_EQ(a, b);
  }
}

// The decoder's DC-only shortcut must give what the transform gives, for every DC,
// wrapping ones included.
TEST(JpegKernels, DcOnlyShortcutEqualsTheTransform) {
  std::mt19937 rng(15);
  const Kernels& k = vek::jpeg::scalar_kernels();
  std::vector<int32_t> dcs;
  for (int32_t dc = -5000; dc <= 5000; ++dc) dcs.push_back(dc);
  for (int i = 0; i < 2000; ++i) dcs.push_back(int32_t(rng()));
  dcs.push_back(std::numeric_limits<int32_t>::min());
  dcs.push_back(std::numeric_limits<int32_t>::max());
  for (int32_t dc : dcs) {
    alignas(32) int32_t coef[64] = {};
    coef[0] = dc;
    uint8_t out[64];
    k.idct(coef, out, 8);
    for (uint8_t v : out) ASSERT_EQ(v, vek::jpeg::dc_only_value(dc)) << "dc " << dc;
  }
}

TEST(JpegKernels, Avx2RowKernelsEqualPortable) {
  REQUIRE_AVX2(avx2);
  const Kernels& scalar = vek::jpeg::scalar_kernels();
  for (int fill = 0; fill < 3; ++fill) {
    // 4:2:2 MCU loads from an odd pitch.
    const size_t pitch = 37;
    std::vector<uint8_t> src = vektest::random_bytes(pitch * 8, 21 + fill);
    if (fill) std::fill(src.begin(), src.end(), fill == 1 ? 0 : 255);
    alignas(32) int32_t a[4][64], b[4][64];
    scalar.load_mcu422(src.data(), pitch, a);
    avx2->load_mcu422(src.data(), pitch, b);
    ASSERT_EQ(0, std::memcmp(a, b, sizeof a));

    // The same blocks straight from B G R X pixels.
    const size_t bgrx_pitch = 16 * 4 + 12;
    std::vector<uint8_t> bgrx = vektest::random_bytes(bgrx_pitch * 8, 31 + fill);
    if (fill) std::fill(bgrx.begin(), bgrx.end(), fill == 1 ? 0 : 255);
    scalar.load_mcu_bgrx(bgrx.data(), bgrx_pitch, a);
    avx2->load_mcu_bgrx(bgrx.data(), bgrx_pitch, b);
    ASSERT_EQ(0, std::memcmp(a, b, sizeof a));

    // B G R X to 4:2:2 over every pair count up to 4 x 8 + 3, output sentinels intact.
    for (size_t pairs = 1; pairs <= 35; ++pairs) {
      std::vector<uint8_t> px = vektest::random_bytes(pairs * 8, uint32_t(100 * fill + pairs));
      if (fill) std::fill(px.begin(), px.end(), fill == 1 ? 0 : 255);
      std::vector<uint8_t> da(pairs * 4 + 8, 0x5A), db(pairs * 4 + 8, 0x5A);
      scalar.bgrx_to_yuv422(px.data(), da.data(), pairs);
      avx2->bgrx_to_yuv422(px.data(), db.data(), pairs);
      ASSERT_EQ(da, db) << "pairs " << pairs;
    }
  }
}

TEST(JpegKernels, PortableColourConversionFollowsTheStatedFormulas) {
  std::mt19937 rng(16);
  for (int i = 0; i < 20000; ++i) {
    uint8_t px[8];
    for (uint8_t& v : px) v = uint8_t(rng());
    if (i < 16) for (int c = 0; c < 8; ++c) px[c] = (i >> (c % 4)) & 1 ? 255 : 0;
    uint8_t out[4];
    vek::jpeg::scalar_kernels().bgrx_to_yuv422(px, out, 1);
    const int b0 = px[0], g0 = px[1], r0 = px[2], b1 = px[4], g1 = px[5], r1 = px[6];
    ASSERT_EQ(out[0], (306 * r0 + 601 * g0 + 117 * b0) / 1024);
    ASSERT_EQ(out[2], (306 * r1 + 601 * g1 + 117 * b1) / 1024);
    const int u = 512 * (b0 + b1) - 339 * (g0 + g1) - 173 * (r0 + r1);
    const int v = 512 * (r0 + r1) - 429 * (g0 + g1) - 83 * (b0 + b1);
    auto floor_div = [](int a, int d) { return a >= 0 ? a / d : -((-a + d - 1) / d); };
    ASSERT_EQ(out[1], floor_div(u, 2048) + 128);
    ASSERT_EQ(out[3], floor_div(v, 2048) + 128);
  }
}

// End to end: streams and pixels are the same whichever kernel set runs, for every
// accepted layout, on noisy pictures of padded sizes.
TEST(JpegKernels, CodecOutputIsTheSameOnEveryKernelSet) {
  if (!avx2_or_skip()) GTEST_SKIP() << "no AVX2 on this CPU or in this build";
  struct Case { uint32_t format, w, h, target; };
  const Case cases[] = {{VEK_BGRX32, 98, 41, VEK_BGRX32}, {VEK_BGR24, 64, 24, VEK_RGB24},
                        {VEK_YUV422, 130, 18, VEK_YUV422}, {VEK_Y8, 33, 17, VEK_Y8}};
  for (const Case& c : cases) {
    std::vector<uint8_t> streams[2], pixels[2];
    for (int set = 0; set < 2; ++set) {
      MaskGuard mask(set ? 0u : uint32_t(vek::cpu::kAvx2));
      const uint32_t src = vektest::make_image(c.format, c.w, c.h);
      vektest::fill_random(src, c.w * 7 + c.h);
      const uint32_t jpg = VEK_JPEG_image_create();
      ASSERT_EQ(VEK_JPEG_compress(src, jpg), 0u);
      const Tjpeg* j = static_cast<Tjpeg*>(VEK_image_get_ptr(jpg, VEK_PTR_JPEG));
      streams[set].assign(j->data, j->data + j->data_length);
      const uint32_t dst = VEK_image_create();
      VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, c.target);
      ASSERT_EQ(VEK_JPEG_decompress(jpg, dst), 0u);
      const auto* p = static_cast<const uint8_t*>(VEK_image_get_ptr(dst, VEK_PTR_DATA));
      const size_t n = size_t(VEK_image_get_parameter(dst, VEK_PARAM_BYTES_PER_LINE)) * c.h;
      pixels[set].assign(p, p + n);
      VEK_image_destroy(src);
      VEK_image_destroy(jpg);
      VEK_image_destroy(dst);
    }
    EXPECT_EQ(streams[0], streams[1]) << "format " << c.format;
    EXPECT_EQ(pixels[0], pixels[1]) << "format " << c.format;
  }
}

}  // namespace
