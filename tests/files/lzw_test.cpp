// LZW codec: exact code streams against a map-based reference coder, round trips,
// and the decoder's handling of damaged streams.
#include <map>

#include "files/lzw.h"
#include "helpers.h"

namespace {

// Reference encoder written from the TIFF rules with plain containers.
std::vector<uint8_t> reference_encode(const std::vector<uint8_t>& in) {
  std::vector<uint8_t> out;
  uint64_t acc = 0;
  int nacc = 0, width = 9;
  auto put = [&](uint32_t code) {
    acc = (acc << width) | code;
    for (nacc += width; nacc >= 8; nacc -= 8) out.push_back(uint8_t(acc >> (nacc - 8)));
  };
  std::map<std::pair<uint32_t, uint8_t>, uint32_t> table;
  uint32_t next = 258;
  auto entered = [&] { width += ++next == (1u << width) && width < 12; };
  put(256);
  uint32_t p = in.empty() ? 0 : in[0];
  for (size_t i = 1; i < in.size(); ++i) {
    const auto it = table.find({p, in[i]});
    if (it != table.end()) {
      p = it->second;
      continue;
    }
    table[{p, in[i]}] = next;
    put(p);
    entered();
    if (next == 4095) {
      put(256);
      table.clear();
      next = 258, width = 9;
    }
    p = in[i];
  }
  if (!in.empty()) put(p), entered();
  put(257);
  if (nacc) out.push_back(uint8_t(acc << (8 - nacc)));
  return out;
}

std::vector<uint8_t> encode(const std::vector<uint8_t>& in, size_t chunk = 0) {
  char* buf = nullptr;
  size_t len = 0;
  FILE* f = open_memstream(&buf, &len);
  vek::LZWData* s = nullptr;
  EXPECT_EQ(vek::lzw_open_encode(&s, f, in.data(), in.size()), 0u);
  if (chunk == 0) chunk = in.size() ? in.size() : 1;
  for (size_t at = 0; at < in.size(); at += chunk) {
    if (at) vek::lzw_set_input(s, in.data() + at);
    EXPECT_EQ(vek::lzw_encode(s, uint32_t(std::min(chunk, in.size() - at))), 0u);
  }
  uint32_t count = 0;
  EXPECT_EQ(vek::lzw_close_encode(s, &count), 0u);
  fclose(f);
  std::vector<uint8_t> out(buf, buf + len);
  free(buf);
  EXPECT_EQ(count, out.size());
  return out;
}

std::vector<uint8_t> decode(const std::vector<uint8_t>& code, size_t capacity, uint32_t* status = nullptr) {
  std::vector<uint8_t> out(capacity);
  vek::LZWData* s = nullptr;
  EXPECT_EQ(vek::lzw_open_decode_memory(&s, code.data(), code.size(), out.data(), capacity), 0u);
  const uint32_t st = vek::lzw_decode(s, 0xFFFFFFFFu);
  if (status) *status = st;
  out.resize(vek::lzw_decoded_bytes(s));
  vek::lzw_close_decode(s);
  return out;
}

std::vector<uint8_t> repetitive(size_t n, uint32_t seed) {
  auto v = vektest::random_bytes(n, seed);
  for (size_t i = 0; i < n; ++i) v[i] = uint8_t((i / 97) % 3 + (v[i] > 250 ? 1 : 0));
  return v;
}

}  // namespace

TEST(Lzw, CodeStreamMatchesReferenceAndRoundTrips) {
  // Worked value: 256, 0x41, 257 at 9 bits each, packed most significant bit first.
  EXPECT_EQ(encode({0x41}), (std::vector<uint8_t>{0x80, 0x10, 0x60, 0x20}));
  std::vector<std::vector<uint8_t>> cases{{}, std::vector<uint8_t>(5000, 7), vektest::random_bytes(100000, 1),
                                          repetitive(300000, 2)};  // several Clear codes; strings of thousands
  // Every table size around the 9/10, 10/11 and 11/12 bit boundaries: the end code
  // follows the last code at the width the decoder has reached.
  for (size_t n = 1; n < 6000; n += n < 600 ? 1 : 13) cases.push_back(vektest::random_bytes(n, uint32_t(n)));
  for (const auto& c : cases) {
    const auto out = encode(c);
    ASSERT_EQ(out, reference_encode(c)) << c.size();
    ASSERT_EQ(decode(out, c.size() + 10), c) << c.size();
  }
  // Fed line by line (the writer's way), the stream is the same.
  const auto in = repetitive(40000, 5);
  for (size_t chunk : {size_t(1), size_t(123)}) EXPECT_EQ(encode(in, chunk), encode(in)) << chunk;
}

TEST(Lzw, DecoderStopsResumesAndRefusesBadCodes) {
  const auto in = vektest::random_bytes(20000, 9);
  auto out = encode(in);
  // More codes than the buffer takes: stops cleanly, bytes so far exact.
  EXPECT_EQ(decode(out, 1000), std::vector<uint8_t>(in.begin(), in.begin() + 1000));
  // A stream cut short (no end code) reads its end as the end code.
  out.resize(out.size() / 2);
  uint32_t status = 1;
  const auto part = decode(out, in.size(), &status);
  EXPECT_EQ(status, 0u);
  ASSERT_GT(part.size(), 1000u);
  EXPECT_TRUE(std::equal(part.begin(), part.end(), in.begin()));

  vektest::ErrorRecorder rec;
  struct Case { std::vector<uint8_t> code; uint32_t status; };
  for (const Case& c : std::vector<Case>{
           {{0x80, 0x4B, 0x00, 0x00}, 0x10050000},        // Clear, then 300: nothing entered there
           {{0x80, 0x10, 0x66, 0x40, 0x00}, 0x10050000},  // Clear, 'A', 400 while next free is 258
           {{0x80, 0x7F, 0xC0}, 0x100C0000},              // Clear, all ones: a file's end as 0xFF
       }) {
    decode(c.code, 100, &status);
    EXPECT_EQ(status, c.status);
    EXPECT_EQ(rec.last().function, "lzw_decode");
  }
  EXPECT_EQ(rec.last().message, "Unexpected EOF found");
  vek::LZWData* s = nullptr;
  uint8_t byte = 0;
  EXPECT_EQ(vek::lzw_open(&s, nullptr, &byte, 0, 0), 0x10040000u);
  EXPECT_EQ(rec.last().message, "LZW null file pointer");
  EXPECT_EQ(vek::lzw_open(&s, stdout, nullptr, 0, 0), 0x10040000u);
  EXPECT_EQ(rec.last().message, "LZW null data pointer");
  EXPECT_EQ(s, nullptr);

  // The decoder keeps its place between calls (bit accumulator, table and where the
  // last string went): a strip decoded a few codes at a time from a stream into an
  // image gives the same bytes as one call.
  for (uint32_t seed : {1u, 2u}) {
    const auto data = seed == 1 ? repetitive(20000, seed) : vektest::random_bytes(20000, seed);
    const auto code = encode(data);
    FILE* f = fmemopen(const_cast<uint8_t*>(code.data()), code.size(), "rb");
    ASSERT_NE(f, nullptr);
    filetest::Image img(vektest::make_image(VEK_Y8, 200, 100));
    vek::ImageRecord* image = vek::lookup(img);
    s = nullptr;
    ASSERT_EQ(vek::lzw_open_decode(&s, f, image, 0), 0u);
    for (int n = 0; !vek::lzw_decode_finished(s) && vek::lzw_decoded_bytes(s) < data.size() && n < 100000; ++n)
      ASSERT_EQ(vek::lzw_decode(s, 1 + n % 5), 0u);
    EXPECT_EQ(vek::lzw_decoded_bytes(s), data.size());
    vek::lzw_close_decode(s);
    std::fclose(f);
    EXPECT_TRUE(std::equal(data.begin(), data.end(), image->data)) << seed;
  }
}
