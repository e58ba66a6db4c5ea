// A deliberately plain, slow baseline JPEG encoder and decoder written straight from the
// codec's stated arithmetic (64-bit intermediates, bit-by-bit I/O, code matching), used
// to check the library's streams and pixels for exact equality.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace ref {

inline const int kZig[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                             12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                             35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                             58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

inline const int kK1[64] = {16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14,  19,  26,  58,  60,  55,
                            14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22,  29,  51,  87,  80,  62,
                            18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55,  64,  81,  104, 113, 92,
                            49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95,  98,  112, 100, 103, 99};
inline int k2(int n) {
  static const int top[4][4] = {{17, 18, 24, 47}, {18, 21, 26, 66}, {24, 26, 56, 99}, {47, 66, 99, 99}};
  const int r = n / 8, c = n % 8;
  return (r < 4 && c < 4) ? top[r][c] : 99;
}

// Standard Huffman tables as (BITS, HUFFVAL) pairs, in the order DC luma, DC chroma, AC luma, AC chroma.
struct Table {
  std::vector<int> bits;  // 16 counts
  std::vector<int> values;
};
// Listed by code length in the standard; regenerating them would need the statistics
// they came from, so they are spelled out, two hex digits a symbol.
inline std::vector<int> ac_values(bool chroma) {
  const char* hex = chroma
      ? "000102031104052131061241510761711322328108144291a1b1c109233352f0156272d10a162434e125f11718191a26"
        "2728292a35363738393a434445464748494a535455565758595a636465666768696a737475767778797a828384858687"
        "88898a92939495969798999aa2a3a4a5a6a7a8a9aab2b3b4b5b6b7b8b9bac2c3c4c5c6c7c8c9cad2d3d4d5d6d7d8d9da"
        "e2e3e4e5e6e7e8e9eaf2f3f4f5f6f7f8f9fa"
      : "01020300041105122131410613516107227114328191a1082342b1c11552d1f02433627282090a161718191a25262728"
        "292a3435363738393a434445464748494a535455565758595a636465666768696a737475767778797a83848586878889"
        "8a92939495969798999aa2a3a4a5a6a7a8a9aab2b3b4b5b6b7b8b9bac2c3c4c5c6c7c8c9cad2d3d4d5d6d7d8d9dae1e2"
        "e3e4e5e6e7e8e9eaf1f2f3f4f5f6f7f8f9fa";
  std::vector<int> out;
  for (const char* c = hex; *c; c += 2) out.push_back(std::stoi(std::string(c, 2), nullptr, 16));
  return out;
}
inline Table standard_table(int t) {
  std::vector<int> dc(12);
  for (int i = 0; i < 12; ++i) dc[i] = i;
  switch (t) {
    case 0: return {{0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0}, dc};
    case 1: return {{0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0}, dc};
    case 2: return {{0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 125}, ac_values(false)};
    default: return {{0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 119}, ac_values(true)};
  }
}

// Annex C: sizes, then canonical codes. symbol -> (code, length).
inline std::map<int, std::pair<uint32_t, int>> codes_of(const Table& t) {
  std::vector<int> sizes;
  for (int l = 1; l <= 16; ++l)
    for (int i = 0; i < t.bits[l - 1]; ++i) sizes.push_back(l);
  std::map<int, std::pair<uint32_t, int>> out;
  uint32_t code = 0;
  size_t k = 0;
  int si = sizes.empty() ? 0 : sizes[0];
  while (k < sizes.size()) {
    while (k < sizes.size() && sizes[k] == si) {
      out[t.values[k]] = {code, si};
      ++code;
      ++k;
    }
    code <<= 1;
    ++si;
  }
  return out;
}

// ---- transforms -----------------------------------------------------------

inline void fdct8(int64_t* v, int even_left, int even_right, int odd_right) {
  const int64_t s07 = v[0] + v[7], d07 = v[0] - v[7], s16 = v[1] + v[6], d16 = v[1] - v[6];
  const int64_t s25 = v[2] + v[5], d25 = v[2] - v[5], s34 = v[3] + v[4], d34 = v[3] - v[4];
  const int64_t a = s07 + s34, b = s07 - s34, c = s16 + s25, d = s16 - s25;
  int64_t out[8];
  out[0] = ((a + c) << even_left) >> even_right;
  out[4] = ((a - c) << even_left) >> even_right;
  const int64_t m = (d + b) * 4433;
  out[2] = (m + b * 6270) >> odd_right;
  out[6] = (m - d * 15137) >> odd_right;
  const int64_t z5 = (d34 + d16 + d25 + d07) * 9633;
  const int64_t z1 = -(d34 + d07) * 7373, z2 = -(d25 + d16) * 20995;
  const int64_t z3 = -(d34 + d16) * 16069 + z5, z4 = -(d25 + d07) * 3196 + z5;
  out[7] = (d34 * 2446 + z1 + z3) >> odd_right;
  out[5] = (d25 * 16819 + z2 + z4) >> odd_right;
  out[3] = (d16 * 25172 + z2 + z3) >> odd_right;
  out[1] = (d07 * 12299 + z1 + z4) >> odd_right;
  for (int i = 0; i < 8; ++i) v[i] = out[i];
}

inline void fdct(int64_t (&b)[64]) {
  for (int r = 0; r < 8; ++r) fdct8(b + 8 * r, 2, 0, 11);
  for (int c = 0; c < 8; ++c) {
    int64_t col[8];
    for (int r = 0; r < 8; ++r) col[r] = b[8 * r + c];
    fdct8(col, 0, 5, 18);
    for (int r = 0; r < 8; ++r) b[8 * r + c] = col[r];
  }
}

inline void idct8(int64_t* v, int shift) {
  const int64_t e0 = (v[0] + v[4]) * 8192, e1 = (v[0] - v[4]) * 8192;
  const int64_t m = (v[2] + v[6]) * 4433;
  const int64_t t2 = m - v[6] * 15137, t3 = m + v[2] * 6270;
  const int64_t a0 = e0 + t3, a3 = e0 - t3, a1 = e1 + t2, a2 = e1 - t2;
  const int64_t x7 = v[7], x5 = v[5], x3 = v[3], x1 = v[1];
  const int64_t z5 = (x7 + x3 + x5 + x1) * 9633;
  const int64_t z1 = -(x7 + x1) * 7373, z2 = -(x5 + x3) * 20995;
  const int64_t z3 = -(x7 + x3) * 16069 + z5, z4 = -(x5 + x1) * 3196 + z5;
  const int64_t o7 = x7 * 2446 + z1 + z3, o5 = x5 * 16819 + z2 + z4;
  const int64_t o3 = x3 * 25172 + z2 + z3, o1 = x1 * 12299 + z1 + z4;
  int64_t out[8] = {a0 + o1, a1 + o3, a2 + o5, a3 + o7, a3 - o7, a2 - o5, a1 - o3, a0 - o1};
  for (int i = 0; i < 8; ++i) v[i] = out[i] >> shift;
}

inline void idct(int64_t (&b)[64], uint8_t (&out)[64]) {
  for (int c = 0; c < 8; ++c) {
    int64_t col[8];
    for (int r = 0; r < 8; ++r) col[r] = b[8 * r + c];
    idct8(col, 11);
    for (int r = 0; r < 8; ++r) b[8 * r + c] = col[r];
  }
  for (int r = 0; r < 8; ++r) {
    idct8(b + 8 * r, 18);
    for (int c = 0; c < 8; ++c) {
      int64_t v = b[8 * r + c];
      v = v < -128 ? -128 : v > 127 ? 127 : v;
      out[8 * r + c] = uint8_t(v + 128);
    }
  }
}

// ---- quantisation tables from F -------------------------------------------------

struct QTables {
  int step[2][64];   // zigzag order
  uint32_t recip[2][64];
};
inline QTables qtables(int f) {
  QTables q{};
  const float s = 16.0f / float(f);
  for (int k = 0; k < 64; ++k) {
    const int n = kZig[k];
    const int base[2] = {kK1[n], k2(n)};
    for (int t = 0; t < 2; ++t) {
      float x = float(base[t]) * s;
      x = x + 0.5f;
      int v = int(x);
      v = v < 0 ? 0 : v > 255 ? 255 : v;
      if (v == 0) v = 1;
      q.step[t][k] = v;
      q.recip[t][k] = uint32_t((v / 2 + 65536) / v);
    }
  }
  return q;
}

// ---- encoder -----------------------------------------------------------------------

struct Bits {
  std::vector<int> bits;
  void put(uint32_t v, int n) {
    for (int i = n - 1; i >= 0; --i) bits.push_back((v >> i) & 1);
  }
  // 32-bit words first, then floor(n/8)+1 bytes of the remaining n bits, low bits 0.
  std::vector<uint8_t> bytes() const {
    std::vector<uint8_t> out;
    auto emit = [&](size_t from, int count) {
      for (int b = 0; b < count; ++b) {
        int v = 0;
        for (int i = 0; i < 8; ++i) {
          const size_t at = from + size_t(8 * b + i);
          v = v * 2 + (at < bits.size() ? bits[at] : 0);
        }
        out.push_back(uint8_t(v));
        if (v == 0xFF) out.push_back(0);
      }
    };
    const size_t words = bits.size() / 32;
    for (size_t w = 0; w < words; ++w) emit(w * 32, 4);
    const size_t n = bits.size() % 32;
    if (n) emit(words * 32, int(n / 8 + 1));
    return out;
  }
};

// components: planes of padded size (w x h for luma; chroma planes w/2 x h for 4:2:2).
struct Planes {
  int w = 0, h = 0;
  bool colour = false;
  std::vector<int> y, u, v;
};

// Calls f(component, plane stride, x, y) for every block in scan order: grey blocks left
// to right, or 4:2:2 MCUs of Y1 Y2 U V.
template <class F>
void for_each_block(int pw, int ph, bool colour, F f) {
  for (int by = 0; by < ph; by += 8)
    for (int bx = 0; bx < pw; bx += colour ? 16 : 8) {
      f(0, pw, bx, by);
      if (!colour) continue;
      f(0, pw, bx + 8, by);
      f(1, pw / 2, bx / 2, by);
      f(2, pw / 2, bx / 2, by);
    }
}

inline void encode_block(const std::vector<int>& plane, int pw, int bx, int by, int t,
                         const QTables& q, int& pred, const std::map<int, std::pair<uint32_t, int>>& dc,
                         const std::map<int, std::pair<uint32_t, int>>& ac, Bits& out) {
  int64_t b[64];
  for (int r = 0; r < 8; ++r)
    for (int c = 0; c < 8; ++c) b[8 * r + c] = plane[size_t(by + r) * pw + bx + c] - 128;
  fdct(b);
  int zz[64];
  for (int k = 0; k < 64; ++k) {
    const int64_t c = b[kZig[k]];
    const int64_t s = q.step[t][k];
    if (-s < c && c < s) zz[k] = 0;
    else if (c > 0) zz[k] = int((c * q.recip[t][k]) >> 16);
    else zz[k] = -int(((-c) * q.recip[t][k]) >> 16);
  }
  auto mag = [](int v, int& size) {
    int a = v < 0 ? -v : v;
    size = 0;
    while (a) ++size, a >>= 1;
    return uint32_t(v < 0 ? v - 1 : v) & ((1u << size) - 1);
  };
  const int diff = zz[0] - pred;
  pred = zz[0];
  int size = 0;
  uint32_t m = mag(diff, size);
  out.put(dc.at(size).first, dc.at(size).second);
  out.put(m, size);
  int run = 0;
  for (int k = 1; k < 64; ++k) {
    if (zz[k] == 0) {
      ++run;
      continue;
    }
    while (run > 15) {
      out.put(ac.at(0xF0).first, ac.at(0xF0).second);
      run -= 16;
    }
    m = mag(zz[k], size);
    out.put(ac.at(run * 16 + size).first, ac.at(run * 16 + size).second);
    out.put(m, size);
    run = 0;
  }
  if (zz[63] == 0) out.put(ac.at(0).first, ac.at(0).second);
}

inline std::vector<uint8_t> encode(const Planes& p, int f) {
  const QTables q = qtables(f);
  std::map<int, std::pair<uint32_t, int>> codes[4];
  for (int t = 0; t < 4; ++t) codes[t] = codes_of(standard_table(t));
  Bits out;
  int pred[3] = {0, 0, 0};
  const std::vector<int>* plane[3] = {&p.y, &p.u, &p.v};
  for_each_block(p.w, p.h, p.colour, [&](int c, int stride, int bx, int by) {
    encode_block(*plane[c], stride, bx, by, c > 0, q, pred[c], codes[c > 0], codes[2 + (c > 0)], out);
  });
  return out.bytes();
}

// ---- decoder -----------------------------------------------------------------------

struct Reader {
  const std::vector<uint8_t>& d;
  size_t pos = 0;
  int cur = 0, left = 0;
  int bit() {
    if (left == 0) {
      cur = 0xFF;  // past the end: 1-bits
      if (pos < d.size()) {
        cur = d[pos++];
        if (cur == 0xFF && pos < d.size() && d[pos] == 0) ++pos;
      }
      left = 8;
    }
    --left;
    return (cur >> left) & 1;
  }
  uint32_t get(int n) {
    uint32_t v = 0;
    for (int i = 0; i < n; ++i) v = v * 2 + uint32_t(bit());
    return v;
  }
  int symbol(const std::map<std::pair<uint32_t, int>, int>& inv) {
    uint32_t code = 0;
    for (int len = 1; len <= 16; ++len) {
      code = code * 2 + uint32_t(bit());
      auto it = inv.find({code, len});
      if (it != inv.end()) return it->second;
    }
    return -1;
  }
};

inline int extend(uint32_t v, int s) { return s == 0 ? 0 : (v < (1u << (s - 1)) ? int(v) - (1 << s) + 1 : int(v)); }

// qz: zigzag-order steps of tables 0 and 1; returns planes at the padded size.
inline Planes decode(const std::vector<uint8_t>& data, int pw, int ph, bool colour, const int (&qz)[2][64]) {
  std::map<std::pair<uint32_t, int>, int> inv[4];
  for (int t = 0; t < 4; ++t)
    for (auto& [sym, cl] : codes_of(standard_table(t))) inv[t][cl] = sym;
  Planes p;
  p.w = pw;
  p.h = ph;
  p.colour = colour;
  p.y.assign(size_t(pw) * ph, 0);
  if (colour) p.u.assign(size_t(pw / 2) * ph, 0), p.v.assign(size_t(pw / 2) * ph, 0);
  Reader r{data};
  int pred[3] = {0, 0, 0};
  auto block = [&](std::vector<int>& plane, int stride, int bx, int by, int t, int& pr) {
    int64_t b[64] = {};
    const int cat = r.symbol(inv[t]);
    pr += extend(r.get(cat), cat);
    b[0] = int64_t(pr) * qz[t][0];
    for (int k = 1; k < 64;) {
      const int s = r.symbol(inv[t + 2]);
      if (s == 0) break;
      if (s == 0xF0) {
        k += 16;
        continue;
      }
      k += s >> 4;
      const int v = extend(r.get(s & 15), s & 15);
      b[kZig[k]] = int64_t(v) * qz[t][k];
      ++k;
    }
    uint8_t out[64];
    idct(b, out);
    for (int y = 0; y < 8; ++y)
      for (int x = 0; x < 8; ++x) plane[size_t(by + y) * stride + bx + x] = out[8 * y + x];
  };
  std::vector<int>* plane[3] = {&p.y, &p.u, &p.v};
  for_each_block(pw, ph, colour, [&](int c, int stride, int bx, int by) { block(*plane[c], stride, bx, by, c > 0, pred[c]); });
  return p;
}

}  // namespace ref
