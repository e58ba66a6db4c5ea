// Bayer family: demosaicing against a per-pixel reference written from the rules,
// half size, balance, mosaicking, the views, the plane split and the failure paths.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "convert/bayer.h"
#include "convert_ref.h"
#include "support/cpu_mask.h"

namespace {

using convref::Session;
using vektest::make_image;

// Filter colours of the four phases, [phase-1][line parity][column parity]: 0 R, 1 G, 2 B.
const int kLayout[4][2][2] = {{{0, 1}, {1, 2}}, {{1, 0}, {2, 1}}, {{1, 2}, {0, 1}}, {{2, 1}, {1, 0}}};

struct Mosaic {
  uint32_t w, h;
  std::vector<uint8_t> s;
  int at(int x, int y) const { return s[size_t(y) * w + size_t(x)]; }
};

Mosaic random_mosaic(uint32_t w, uint32_t h, uint32_t seed) {
  return Mosaic{w, h, vektest::random_bytes(size_t(w) * h, seed)};
}

// Index reflection about the edge pixel; a single-pixel dimension reads itself.
int reflect(int i, int n) {
  if (n == 1) return 0;
  if (i < 0) return -i;
  if (i >= n) return 2 * (n - 1) - i;
  return i;
}

// Reference demosaic of one pixel, straight from the rules: returns R, G, B.
std::array<int, 3> reference_pixel(const Mosaic& m, int phase, int scheme, int x, int y) {
  const int W = int(m.w), H = int(m.h);
  auto S = [&](int dx, int dy) { return m.at(reflect(x + dx, W), reflect(y + dy, H)); };
  auto mean4 = [&](int a, int b, int c, int d) {
    if (scheme == 2) return (a + b + c + d) >> 2;
    std::array<int, 4> v{a, b, c, d};
    std::sort(v.begin(), v.end());
    return (v[1] + v[2]) >> 1;
  };
  const int own = kLayout[phase - 1][y & 1][x & 1];
  const int line_colour = own == 1 ? kLayout[phase - 1][y & 1][(x + 1) & 1] : own;
  const int other = 2 - line_colour;
  std::array<int, 3> rgb{};
  rgb[own] = m.at(x, y);
  if (scheme == 1) {
    const int partner = (x & 1) ? -1 : 1;
    const int up = y > 0 ? -1 : 1;
    if (own != 1) {
      rgb[1] = S(partner, 0);
      rgb[other] = S(partner, up);
    } else {
      rgb[line_colour] = S(partner, 0);
      rgb[other] = S(0, up);
    }
  } else if (own != 1) {
    rgb[1] = mean4(S(-1, 0), S(1, 0), S(0, -1), S(0, 1));
    rgb[other] = mean4(S(-1, -1), S(1, -1), S(-1, 1), S(1, 1));
  } else {
    rgb[line_colour] = (S(-1, 0) + S(1, 0)) >> 1;
    rgb[other] = (S(0, -1) + S(0, 1)) >> 1;
  }
  return rgb;
}

uint32_t mosaic_image(const Mosaic& m, uint32_t format = VEK_RGGB32, uint32_t align = 2) {
  const uint32_t h = make_image(format, m.w, m.h, 0, align);
  auto* data = static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA));
  const uint32_t bpl = VEK_get_bytes_per_line(h);
  for (uint32_t y = 0; y < m.h; ++y) std::memcpy(data + size_t(y) * bpl, &m.s[size_t(y) * m.w], m.w);
  return h;
}

const uint8_t* pixel(uint32_t handle, uint32_t x, uint32_t y, uint32_t bytes) {
  auto* data = static_cast<const uint8_t*>(VEK_image_get_ptr(handle, VEK_PTR_DATA));
  return data + size_t(y) * VEK_get_bytes_per_line(handle) + size_t(x) * bytes;
}

// Every pixel of every scheme, phase and output matches the reference, over sizes that
// exercise the first pair, the main loop and both odd and even tails.
TEST(BayerDemosaic, MatchesReferenceEverywhere) {
  Session rec;
  const uint32_t sizes[][2] = {{1, 1}, {1, 5}, {5, 1}, {2, 2}, {3, 3}, {4, 5}, {7, 4}, {9, 6}, {33, 9}};
  uint32_t seed = 1;
  for (auto [w, h] : sizes) {
    const Mosaic m = random_mosaic(w, h, seed++);
    const uint32_t src = mosaic_image(m, seed & 1 ? VEK_RGGB32 : VEK_Y8, seed % 3 == 0 ? 4 : 2);
    const uint32_t dst = VEK_image_create();
    for (int scheme = 1; scheme <= 3; ++scheme)
      for (int phase = 1; phase <= 4; ++phase)
        for (const bool rgb16 : {false, true}) {
          const auto fn = rgb16 ? VEK_BAY_RGGB32_to_RGB16 : VEK_BAY_RGGB32_to_BGRX32;
          ASSERT_EQ(fn(src, dst, scheme, phase, VEK_STRIP_NEXT), 0u);
          ASSERT_EQ(VEK_image_get_parameter(dst, VEK_PARAM_FORMAT), uint32_t(rgb16 ? VEK_RGB16 : VEK_BGRX32));
          for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x) {
              const auto e = reference_pixel(m, phase, scheme, int(x), int(y));
              const uint8_t* p = pixel(dst, x, y, rgb16 ? 2 : 4);
              const uint32_t got = rgb16 ? uint32_t(p[0] | p[1] << 8) : uint32_t(p[2] << 16 | p[1] << 8 | p[0]) | uint32_t(p[3]) << 24;
              const uint32_t want = rgb16 ? uint32_t(convref::rgb16({e[0], e[1], e[2]})) : uint32_t(e[0] << 16 | e[1] << 8 | e[2]);
              ASSERT_EQ(got, want) << w << "x" << h << " scheme " << scheme << " phase " << phase << " rgb16 " << rgb16
                                   << " at " << x << "," << y;
            }
        }
    VEK_image_destroy(src);
    VEK_image_destroy(dst);
  }
  EXPECT_EQ(rec.count(), 0u);
}

// Every ISA level the CPU has, forced in turn through the feature mask, gives the
// portable kernels' bytes: odd widths around the 16-pixel block, padded strides,
// random, black and white fills, and a sentinel-filled output whose padding must
// survive.
TEST(BayerDemosaic, EveryIsaLevelMatchesPortableKernels) {
  using vek::bayer::Output;
  namespace cpu = vek::cpu;
  if (!cpu::has(cpu::kAvx2)) GTEST_SKIP() << "AVX2 hidden or absent: only the portable kernels run";
  const uint32_t widths[] = {1, 2, 3, 15, 16, 17, 18, 19, 31, 32, 33, 34, 35, 63, 64, 67, 130};
  for (uint32_t w : widths) {
    const uint32_t h = 5, ss = w + 3, ds = 4 * w + 8;
    for (int fill = 0; fill < 3; ++fill) {
      std::vector<uint8_t> src = vektest::random_bytes(size_t(ss) * h, w);
      if (fill) std::fill(src.begin(), src.end(), fill == 1 ? 0 : 255);
      for (int scheme = 1; scheme <= 3; ++scheme)
        for (int phase = 1; phase <= 4; ++phase)
          for (Output o : {Output::Bgrx32, Output::Rgb16}) {
            std::vector<uint8_t> want(size_t(ds) * h, 0xA5), got(size_t(ds) * h, 0xA5);
            decltype(vek::bayer::demosaic_driver(scheme, phase, o)) portable, best;
            { vektest::CpuMaskGuard g(cpu::kAvx2 | cpu::kSse41); portable = vek::bayer::demosaic_driver(scheme, phase, o); }
            best = vek::bayer::demosaic_driver(scheme, phase, o);
            ASSERT_NE(best, portable) << "AVX2 kernels not selected";
            portable(src.data(), ss, want.data(), ds, w, h);
            best(src.data(), ss, got.data(), ds, w, h);
            ASSERT_EQ(got, want) << "width " << w << " fill " << fill << " scheme " << scheme << " phase " << phase;
          }
    }
  }
}

// Strip-wise mosaicking keeps the reference phase across strips; the views of the
// whole mosaic put each sample in its own channel, or copy it as grey.
TEST(BayerViews, StripsKeepLineParityAndViewsPlaceSamples) {
  Session rec;
  const uint32_t w = 5, h = 7, lines = 3;
  const std::vector<uint8_t> full = vektest::random_bytes(size_t(w) * h * 3, 7);
  const uint32_t rgb = make_image(VEK_RGB24, w, h, lines), mos = VEK_image_create();
  Mosaic m{w, h, {}};
  for (uint32_t first = 0; first < h; first += lines) {
    const uint32_t n = std::min(lines, h - first);
    for (uint32_t y = 0; y < n; ++y)
      std::memcpy(convref::data(rgb) + y * convref::pitch(rgb), &full[(first + y) * w * 3], w * 3);
    ASSERT_EQ(VEK_BAY_RGB24_to_RGGB32(rgb, mos, VEK_STRIP_NEXT), 0u);
    ASSERT_EQ(VEK_get_lines_this_strip(mos), n);
    for (uint32_t y = 0; y < n; ++y) m.s.insert(m.s.end(), pixel(mos, 0, y, 1), pixel(mos, 0, y, 1) + w);
  }
  const uint32_t src = mosaic_image(m), view = VEK_image_create();
  ASSERT_EQ(VEK_IP_Bayer_Map_to_RGB24(src, view, 0), 0u);
  for (uint32_t i = 0; i < w * h; ++i) {
    const uint32_t x = i % w, y = i / w;
    EXPECT_EQ(m.s[i], full[3 * i + (y & 1) + (x & 1)]) << i;
    uint8_t e[3] = {0, 0, 0};
    e[(y & 1) + (x & 1)] = m.s[i];
    EXPECT_EQ(std::memcmp(pixel(view, x, y, 3), e, 3), 0) << i;
  }
  ASSERT_EQ(VEK_BAY_RGGB32_map_to_Y8(src, view, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(VEK_image_get_parameter(view, VEK_PARAM_FORMAT), uint32_t(VEK_Y8));
  for (uint32_t y = 0; y < h; ++y) EXPECT_EQ(std::memcmp(pixel(view, 0, y, 1), &m.s[y * w], w), 0);
  // An offset moves the start; samples that would lie past the strip read as 0.
  const uint32_t bpl = VEK_get_bytes_per_line(src);
  ASSERT_EQ(VEK_BAY_RGGB32_map_to_RGB24(src, view, bpl + 1, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(pixel(view, 0, 0, 3)[0], m.at(1, 1));  // line 1's samples in line 0's channels
  EXPECT_EQ(pixel(view, 1, 0, 3)[1], m.at(2, 1));
  const uint8_t* last = pixel(view, 0, h - 1, 3);
  EXPECT_EQ(last[0] | last[1] | last[2] | last[3 * (w - 1)], 0);
  for (uint32_t hd : {rgb, mos, src, view}) VEK_image_destroy(hd);
  EXPECT_EQ(rec.count(), 0u);
}

TEST(BayerCells, HalfSizeAndPlanesFollowThePhase) {
  Session rec;
  const Mosaic m = random_mosaic(8, 6, 3);
  const uint32_t src = mosaic_image(m, VEK_Y8), half = VEK_image_create();
  const uint32_t p[3] = {VEK_image_create(), VEK_image_create(), VEK_image_create()};
  for (int phase = 1; phase <= 4; ++phase) {
    ASSERT_EQ(VEK_IP_Bayer_Convert_to_BGRX32(src, half, 4, nullptr, 0, phase), 0u);
    ASSERT_EQ(VEK_get_width(half), 4u);
    ASSERT_EQ(VEK_get_height(half), 3u);
    ASSERT_EQ(VEK_IP_Bayer_Convert_to_ThreePlanes(src, p[0], p[1], p[2], phase), 0u);
    for (uint32_t y = 0; y < m.h; ++y) {
      for (uint32_t x = 0; x < m.w; ++x) {
        const int cx = int(x & ~1u), cy = int(y & ~1u);
        int cell[3] = {};  // the cell's red and blue, and this line's green
        for (int dy = 0; dy < 2; ++dy) {
          for (int dx = 0; dx < 2; ++dx) {
            const int c = kLayout[phase - 1][dy][dx];
            if (c != 1) cell[c] = m.at(cx + dx, cy + dy);
            if (c == 1 && dy == int(y & 1)) cell[1] = m.at(cx + dx, cy + dy);
          }
        }
        for (int ch = 0; ch < 3; ++ch) {
          uint8_t e[3] = {0, 0, 0};
          e[ch] = uint8_t(cell[ch]);
          ASSERT_EQ(std::memcmp(pixel(p[ch], x, y, 3), e, 3), 0) << phase << " " << ch;
        }
        if ((x & 1) || (y & 1)) continue;
        const uint8_t* q = pixel(half, x / 2, y / 2, 4);
        ASSERT_EQ((std::array<int, 4>{q[0], q[1], q[2], q[3]}),
                  (std::array<int, 4>{cell[2], cell[1], cell[0], 0}));
      }
    }
  }
  // The fixed half-size entry gives the same image.
  const uint32_t out = VEK_image_create();
  ASSERT_EQ(VEK_IP_Bayer_Convert_to_BGRX32_Sub2(src, out, 4), 0u);
  EXPECT_EQ(VEK_image_get_parameter(out, VEK_PARAM_FORMAT), uint32_t(VEK_BGRX32));
  EXPECT_EQ(std::memcmp(pixel(out, 0, 0, 4), pixel(half, 0, 0, 4), size_t(VEK_get_bytes_per_line(half)) * 3), 0);
}

TEST(BayerBalance, ScalesByReferencePositionAndSaturates) {
  Session rec;
  const Mosaic m = random_mosaic(7 + 1, 6, 11);
  const uint32_t src = mosaic_image(m), dst = VEK_image_create();
  const uint32_t gains[][3] = {{128, 128, 128}, {255, 128, 0}, {64, 200, 255}, {0x1FF, 1, 129}};
  for (auto& g : gains) {
    ASSERT_EQ(VEK_BAY_ColorBalance(src, dst, g[0], g[1], g[2]), 0u);
    for (uint32_t y = 0; y < m.h; ++y) {
      for (uint32_t x = 0; x < m.w; ++x) {
        const uint32_t gain = g[(y & 1) + (x & 1)] & 0xFF;
        const uint32_t e = std::min<uint32_t>((m.at(int(x), int(y)) * gain) >> 7, 255);
        ASSERT_EQ(*pixel(dst, x, y, 1), e) << g[0] << " " << x << "," << y;
      }
    }
  }
  // In place, a red sample of 200 with gain 255 saturates.
  auto* d = static_cast<uint8_t*>(VEK_image_get_ptr(src, VEK_PTR_DATA));
  d[0] = 200;
  ASSERT_EQ(VEK_BAY_ColorBalance(src, src, 255, 128, 128), 0u);
  EXPECT_EQ(d[0], 255);
  EXPECT_EQ(d[1], m.at(1, 0));
}

TEST(BayerFailures, RefusalsShortStripsNoLinesAndAllocationFailure) {
  Session rec;
  const uint32_t mos = make_image(VEK_RGGB32, 6, 4), odd = make_image(VEK_RGGB32, 5, 4);
  const uint32_t rgb = make_image(VEK_RGB24, 4, 4), dst = VEK_image_create();
  const std::string kBgrx = "VEK_BAY_RGGB32_to_BGRX32", kSub2 = "VEK_IP_Bayer_Convert_to_BGRX32_Sub2";
  const uint32_t kBad = VEK_ERROR_BAD_PARAMETER, kNo = VEK_ERROR_NOT_SUPPORTED;
  using convref::expect_refused;
  expect_refused(rec, VEK_BAY_RGGB32_to_BGRX32(mos, dst, 0, 1, 3), kBad, kBgrx, "Invalid Bayer Decoding Scheme");
  expect_refused(rec, VEK_BAY_RGGB32_to_BGRX32(mos, dst, 4, 1, 3), kBad, kBgrx, "Invalid Bayer Decoding Scheme");
  expect_refused(rec, VEK_BAY_RGGB32_to_RGB16(mos, dst, 2, 5, 3), kBad, "VEK_BAY_RGGB32_to_RGB16", "Invalid Bayer Pixel Colour");
  expect_refused(rec, VEK_BAY_RGGB32_to_BGRX32(rgb, dst, 2, 1, 3), kNo, kBgrx, "Input must be VEK_RGGB32 only");
  expect_refused(rec, VEK_IP_Bayer_Convert_to_BGRX32_Sub2(rgb, dst, 1), kNo, kSub2, "Input image must be VEK_RGGB32 or Y8.");
  expect_refused(rec, VEK_IP_Bayer_Convert_to_BGRX32_Sub2(odd, dst, 1), kNo, kSub2, "Input image width must be even.");
  expect_refused(rec, VEK_IP_Bayer_Convert_to_ThreePlanes(odd, dst, dst, dst, 1), kNo, "VEK_IP_Bayer_Convert_to_ThreePlanes",
                 "Input image width must be even.");
  expect_refused(rec, VEK_BAY_ColorBalance(odd, dst, 1, 1, 1), kNo, "VEK_BAY_ColorBalance", "Input image width must be even");
  expect_refused(rec, VEK_BAY_ColorBalance(rgb, dst, 1, 1, 1), kNo, "VEK_BAY_ColorBalance", "Input image must be VEK_RGGB32 only");
  expect_refused(rec, VEK_BAY_RGB24_to_RGGB32(mos, dst, 3), kNo, "VEK_BAY_RGB24_to_RGGB32", "Input must be VEK_RGB24 only");
  expect_refused(rec, VEK_BAY_RGGB32_map_to_Y8(rgb, dst, 3), kNo, "VEK_BAY_RGGB32_map_to_Y8", "Unsupported image format");
  expect_refused(rec, VEK_IP_Bayer_Convert_to_BGRX32(mos, dst, 2, nullptr, 8, 1), kNo, "VEK_IP_Bayer_Convert_to_BGRX32",
                 "Offset values not currently supported.");
  expect_refused(rec, VEK_BAY_RGGB32_to_BGRX32(mos, mos, 2, 1, 3), kBad, kBgrx, "Input and output images must differ");
  // Schemes outside 1..4 of the simplified entry do nothing.
  EXPECT_EQ(VEK_IP_Bayer_Convert_to_BGRX32(mos, dst, 7, nullptr, 0, 1), 0u);
  EXPECT_EQ(rec.count(), 0u);
  // A library-owned strip of a few lines cannot be read as a whole image.
  const uint32_t strip = make_image(VEK_RGGB32, 8, 16, 4), out = VEK_image_create();
  EXPECT_EQ(VEK_BAY_RGGB32_to_BGRX32(strip, out, 2, 1, 3), uint32_t(VEK_ERROR_NOT_SUPPORTED));
  EXPECT_EQ(VEK_image_get_ptr(out, VEK_PTR_DATA), nullptr);
  // No strip lines: the destination is only described.
  VEK_image_set_parameter(mos, VEK_PARAM_STRIP_LINES, 0);
  ASSERT_EQ(VEK_BAY_RGGB32_to_RGB16(mos, out, 1, 1, 3), 0u);
  EXPECT_EQ(VEK_image_get_parameter(out, VEK_PARAM_FORMAT), uint32_t(VEK_RGB16));
  EXPECT_EQ(VEK_get_width(out), 6u);
  EXPECT_EQ(VEK_image_get_ptr(out, VEK_PTR_DATA), nullptr);
  // A failed allocation leaves no data, and the sequence recovers.
  VEK_image_set_parameter(mos, VEK_PARAM_STRIP_LINES, 4);
  {
    convref::FailAllocations fail(0);
    EXPECT_EQ(VEK_BAY_RGGB32_to_BGRX32(mos, out, 3, 2, 3) & 0xFFFF0000u, uint32_t(VEK_ERROR_MEMORY));
  }
  EXPECT_EQ(VEK_image_get_ptr(out, VEK_PTR_DATA), nullptr);
  EXPECT_EQ(VEK_BAY_RGGB32_to_BGRX32(mos, out, 3, 2, 3), 0u);
}

TEST(BayerMatrix, AppliedAfterConversionAndLockKept) {
  Session rec;
  const Mosaic m = random_mosaic(6, 4, 5);
  const uint32_t src = mosaic_image(m), plain = VEK_image_create(), swapped = VEK_image_create();
  VEK_image_set_flags(swapped, VEK_FLAG_LOCKED, 1);
  const float swap_rb[9] = {0, 0, 1, 0, 1, 0, 1, 0, 0};
  const float halve_green[9] = {1, 0, 0, 0, 0.5f, 0, 0, 0, 1};
  ASSERT_EQ(VEK_IP_Bayer_Convert_to_BGRX32(src, plain, 3, nullptr, 0, 4), 0u);
  ASSERT_EQ(VEK_IP_Bayer_Convert_to_BGRX32(src, swapped, 3, swap_rb, 0, 4), 0u);
  EXPECT_EQ(VEK_image_get_flags(swapped, VEK_FLAG_LOCKED), 1u);
  for (uint32_t i = 0; i < 24; ++i) {
    const uint8_t *a = pixel(plain, i % 6, i / 6, 4), *b = pixel(swapped, i % 6, i / 6, 4);
    EXPECT_TRUE(a[0] == b[2] && a[1] == b[1] && a[2] == b[0]);
  }
  VEK_image_set_flags(swapped, VEK_FLAG_LOCKED, 0);
  ASSERT_EQ(VEK_IP_Bayer_Convert_to_BGRX32(src, swapped, 3, halve_green, 0, 4), 0u);
  for (uint32_t i = 0; i < 24; ++i) EXPECT_EQ(pixel(swapped, i % 6, i / 6, 4)[1], pixel(plain, i % 6, i / 6, 4)[1] >> 1);
}

}  // namespace
