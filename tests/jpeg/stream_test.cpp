// Quantisation and Huffman tables, the descriptor's life cycle, the header writers'
// byte layout, parser rules on hostile segments, and frame sequences.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>

#include "core/alloc.h"
#include "helpers.h"
#include "reference.h"

namespace {

using jt::desc;
using jt::param;

TEST(JpegTables, QuantisationTablesFollowTheScaleForEveryFactor) {
  const uint32_t jpg = VEK_JPEG_image_create();
  for (uint32_t f = 1; f <= 400; ++f) {
    ASSERT_EQ(VEK_JPEG_set_Quality_factor(jpg, f), 0u);
    ASSERT_EQ(VEK_JPEG_make_Q_tables(jpg), 0u);
    const ref::QTables want = ref::qtables(int(f));  // a step of 0 is raised to 1
    for (int k = 0; k < 128; ++k) {
      ASSERT_EQ(desc(jpg)->q_table[k / 64][k % 64], want.step[k / 64][k % 64]) << "F " << f << " k " << k;
      ASSERT_EQ(desc(jpg)->q_reciprocal[k / 64][k % 64], want.recip[k / 64][k % 64]);
    }
  }
  // Worked values of the reference itself: F = 32 halves the standard table rounding half up.
  const ref::QTables half = ref::qtables(32);
  EXPECT_EQ(std::vector<int>(half.step[0], half.step[0] + 6), (std::vector<int>{8, 6, 6, 7, 6, 5}));
  // Zeroing keeps the header fields that making set.
  ASSERT_EQ(VEK_JPEG_Q_table_to_zero(jpg), 0u);
  EXPECT_TRUE(std::vector<uint8_t>(desc(jpg)->q_table[0], desc(jpg)->q_table[2]) == std::vector<uint8_t>(128));
  EXPECT_EQ(desc(jpg)->q_segment_length, 132);
  EXPECT_EQ(VEK_JPEG_get_parameter(jpg, VEK_JPEG_NUM_Q_TABLES), 2u);
  EXPECT_EQ(desc(jpg)->q_selector[1] & desc(jpg)->q_selector[2], 1);
  VEK_image_destroy(jpg);
}

TEST(JpegTables, FactorSettersRangesAndSinglePrecision) {
  vektest::ErrorRecorder rec;
  const uint32_t jpg = VEK_JPEG_image_create();
  const std::pair<uint32_t, uint32_t> worked[] = {{2, 400}, {3, 266}, {7, 114}, {50, 16}, {800, 1}};
  for (auto [q, f] : worked) {
    EXPECT_EQ(VEK_JPEG_set_Quantization_factor(jpg, q | 0x30000u), 0u);  // low 16 bits only
    EXPECT_EQ(desc(jpg)->quality_factor, f) << q;
  }
  EXPECT_EQ(VEK_JPEG_set_Quality_factor(jpg, 0x10000u + 20), 0u);  // low 16 bits only
  EXPECT_EQ(desc(jpg)->quality_factor, 20u);
  const std::pair<uint32_t (*)(uint32_t, uint32_t), uint32_t> bad[] = {
      {VEK_JPEG_set_Quality_factor, 0},       {VEK_JPEG_set_Quality_factor, 401},
      {VEK_JPEG_set_Quantization_factor, 1},  {VEK_JPEG_set_Quantization_factor, 801}};
  for (auto [setter, value] : bad) {
    EXPECT_EQ(setter(jpg, value), VEK_ERROR_BAD_PARAMETER) << value;
    EXPECT_EQ(desc(jpg)->quality_factor, 20u);  // unchanged
  }
  EXPECT_EQ(rec.count(), 4u);
  // Parameter 27 of the image reaches the same setter.
  EXPECT_EQ(VEK_image_set_parameter(jpg, VEK_PARAM_JPEG_QUALITY, 77), 0u);
  EXPECT_EQ(desc(jpg)->quality_factor, 77u);
  const uint32_t raster = VEK_image_create();
  EXPECT_EQ(VEK_JPEG_set_Quality_factor(raster, 10), VEK_ERROR_BAD_HANDLE);
  EXPECT_EQ(VEK_JPEG_get_parameter(jpg, 603), VEK_ERROR_BAD_PARAMETER);
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(JpegTables, CodeTablesSkipOneBitCodes) {
  // The standard codes themselves show in every encoded stream; here the restriction.
  const uint32_t jpg = VEK_JPEG_image_create();
  VEK_JPEG_set_default_H_tables(jpg);
  desc(jpg)->h_bits[0][0] = 1;  // one one-bit code declared
  ASSERT_EQ(VEK_JPEG_generate_H_codetable_LUTs(jpg), 0u);
  for (int s = 0; s < 256; ++s) EXPECT_NE(vek::jpeg::g_codes[0][s].length, 1);
  VEK_JPEG_set_default_H_tables(jpg);  // the process-wide tables back as they were
  ASSERT_EQ(VEK_JPEG_generate_H_codetable_LUTs(jpg), 0u);
  ASSERT_EQ(VEK_JPEG_generate_Huffman_decode_tables(), 0u);
  VEK_image_destroy(jpg);
}

TEST(JpegDescriptor, BlankCommentAndAFailedDescriptorAllocationKeepsTheImage) {
  vektest::ErrorRecorder rec;
  const uint32_t jpg = VEK_JPEG_image_create();
  EXPECT_EQ(std::string(desc(jpg)->comment, desc(jpg)->comment + 32), std::string(32, ' '));
  VEK_image_destroy(jpg);
  // Fail ever later allocations until the descriptor's own fails: the image stays.
  uint32_t r = 0, probe = 0;
  for (long n = 0; n < 8 && !(VEK_IS_ERROR(r) && rec.last().function == "VEK_JPEG_image_create"); ++n) {
    VEK_image_destroy(probe = VEK_image_create());  // the handle the next create will take
    rec.clear();
    vek::testing::fail_allocations_after(n);
    r = VEK_JPEG_image_create();
    vek::testing::fail_allocations_after(-1);
    if (!VEK_IS_ERROR(r)) VEK_image_destroy(r);
  }
  ASSERT_TRUE(rec.only("VEK_JPEG_image_create", VEK_ERROR_MEMORY, ""));
  EXPECT_EQ(r, VEK_ERROR_MEMORY);
  EXPECT_EQ(param(probe, VEK_PARAM_HEIGHT), 32767u);  // still a live image, without descriptor
  EXPECT_EQ(VEK_image_get_ptr(probe, VEK_PTR_JPEG), nullptr);
  VEK_image_destroy(probe);
}

TEST(JpegDescriptor, DataBufferSizesFollowTheImageOrTheOpenFile) {
  vektest::ErrorRecorder rec;
  const uint32_t jpg = VEK_JPEG_image_create();
  VEK_image_set_parameter(jpg, VEK_PARAM_FORMAT, VEK_Y8);
  // Pitch x strip + 10000 (a 2-byte line alignment pads 75 to 76).
  const uint32_t sizes[][4] = {{640, 480, 480, 640 * 480 + 10000}, {75, 300, 7, 76 * 7 + 10000}};
  for (const auto& c : sizes) {
    VEK_image_set_parameter(jpg, VEK_PARAM_WIDTH, c[0]);
    VEK_image_set_parameter(jpg, VEK_PARAM_HEIGHT, c[1]);
    VEK_image_set_parameter(jpg, VEK_PARAM_STRIP_LINES, c[2]);
    ASSERT_EQ(VEK_JPEG_malloc_data(jpg), 0u);
    EXPECT_EQ(vek::jpeg::data_capacity(jpg), c[3]) << c[0];
  }
  // With a file open: its length rounded up to even, at least 4200; position kept.
  for (const size_t length : {size_t(5001), size_t(6000), size_t(100)}) {
    const std::string path = vektest::scratch_dir() + "sized.bin";
    jt::spill(path, std::vector<uint8_t>(length, 0x55));
    FILE* f = std::fopen(path.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    std::fseek(f, 7, SEEK_SET);
    VEK_JPEG_set_file_ptr(jpg, f);
    ASSERT_EQ(VEK_JPEG_malloc_data(jpg), 0u);
    EXPECT_EQ(vek::jpeg::data_capacity(jpg), length < 4096 ? 4200u : length + (length & 1));
    EXPECT_EQ(std::ftell(f), 7);
    ASSERT_EQ(VEK_JPEG_file_close(jpg), 0u);
  }
  // A locked image keeps its buffer through both allocators and free; validation comes first.
  ASSERT_EQ(VEK_JPEG_malloc_N_bytes_data(jpg, 77), 0u);
  uint8_t* const kept = desc(jpg)->data;
  VEK_image_set_flags(jpg, VEK_FLAG_LOCKED, 1);
  EXPECT_EQ(VEK_JPEG_malloc_data(jpg) | VEK_JPEG_malloc_N_bytes_data(jpg, 5) | VEK_JPEG_free_data(jpg), 0u);
  EXPECT_EQ(desc(jpg)->data, kept);
  VEK_image_set_parameter(jpg, VEK_PARAM_FORMAT, 0);
  EXPECT_TRUE(VEK_IS_ERROR(VEK_JPEG_malloc_data(jpg)));
  VEK_image_set_flags(jpg, VEK_FLAG_LOCKED, 0);
  VEK_image_destroy(jpg);
}

TEST(JpegDescriptor, CopySetAndBuildImage) {
  vektest::ErrorRecorder rec;
  const uint32_t a = jt::compressed(VEK_BGR24, 40, 16, 3);
  const uint32_t b = VEK_JPEG_image_create();
  VEK_image_set_parameter(b, VEK_PARAM_FORMAT, VEK_Y8);
  ASSERT_EQ(VEK_JPEG_malloc_N_bytes_data(b, 64), 0u);
  uint8_t* const b_data = desc(b)->data;
  desc(b)->current = b_data + 5;
  ASSERT_EQ(VEK_JPEG_copy_parameters(a, b), 0u);  // everything but the pointers
  EXPECT_TRUE(desc(b)->data == b_data && desc(b)->current == b_data + 5);
  EXPECT_EQ(std::memcmp(desc(b)->q_table, desc(a)->q_table, sizeof desc(a)->q_table), 0);
  EXPECT_EQ(desc(b)->h_segment_length, 416);
  EXPECT_EQ(desc(b)->scan_components, 3);
  EXPECT_EQ(VEK_JPEG_copy_parameters(a, VEK_image_create()), VEK_ERROR_BAD_HANDLE);

  // set_image: the layout fields show in the written headers; here what they do not.
  const uint32_t src = vektest::make_image(VEK_BGRX32, 24, 10, 5);
  VEK_image_set_parameter(b, VEK_PARAM_18, 9);
  ASSERT_EQ(VEK_JPEG_set_image(src, b), 0u);
  EXPECT_EQ(std::vector<uint32_t>({param(b, VEK_PARAM_FORMAT), param(b, VEK_PARAM_18), param(b, VEK_PARAM_STRIP_LINES),
                                    VEK_image_get_flags(b, VEK_FLAG_JPEG), uint32_t(desc(b)->q_table_count)}),
            std::vector<uint32_t>({VEK_YUV422, 1, 5, 1, 0}));

  // build_image: mode 3 copies the data into an exact buffer of dst's own; mode 4
  // leaves it empty; a source without lines changes nothing.
  const uint32_t dst = VEK_JPEG_image_create();
  ASSERT_EQ(VEK_JPEG_build_image(a, dst, VEK_STRIP_NEXT), 0u);
  ASSERT_EQ(jt::data_of(dst), jt::data_of(a));
  EXPECT_TRUE(desc(dst)->data != desc(a)->data && desc(dst)->current == desc(dst)->data);
  EXPECT_EQ(vek::jpeg::data_capacity(dst), desc(a)->data_length);
  EXPECT_EQ(VEK_get_width(dst), 40u);
  ASSERT_EQ(VEK_JPEG_build_image(a, dst, VEK_STRIP_END), 0u);
  EXPECT_EQ(desc(dst)->data_length, 0u);
  VEK_image_set_parameter(a, VEK_PARAM_STRIP_LINES, 0);
  VEK_image_set_parameter(dst, VEK_PARAM_WIDTH, 3);
  EXPECT_EQ(VEK_JPEG_build_image(a, dst, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(VEK_get_width(dst), 3u);
  EXPECT_EQ(VEK_JPEG_build_image(999, dst, VEK_STRIP_NEXT) | VEK_JPEG_build_image(a, 999, VEK_STRIP_NEXT),
            VEK_ERROR_BAD_HANDLE);
  VEK_image_destroy(VEK_ALL_IMAGES);
}

// One marker segment of a written stream: code and body (length bytes excluded).
struct Segment {
  uint8_t code;
  std::vector<uint8_t> body;
  bool operator==(const Segment&) const = default;
};

// Splits SOI .. SOS by the segment lengths, so a length that disagrees with the
// content shows up as a misparse; `data` receives what follows SOS.
std::vector<Segment> segments(const std::vector<uint8_t>& s, std::vector<uint8_t>& data) {
  std::vector<Segment> out;
  EXPECT_TRUE(s.size() >= 4 && s[0] == 0xFF && s[1] == 0xD8);
  size_t p = 2;
  while (p + 4 <= s.size()) {
    EXPECT_EQ(s[p], 0xFF) << "at " << p;
    const size_t len = size_t(s[p + 2]) << 8 | s[p + 3];
    if (p + 2 + len > s.size()) break;
    out.push_back({s[p + 1], std::vector<uint8_t>(s.begin() + long(p + 4), s.begin() + long(p + 2 + len))});
    p += 2 + len;
    if (out.back().code == 0xDA) break;
  }
  data.assign(s.begin() + long(p), s.end());
  return out;
}

std::vector<uint8_t> buffer_written(uint32_t jpg) {
  std::vector<uint8_t> buf(65536);
  uint32_t n = 0;
  EXPECT_EQ(VEK_JPEG_buffer_write(jpg, buf.data(), uint32_t(buf.size()), &n), 0u);
  buf.resize(n);
  return buf;
}

TEST(JpegWriters, SegmentLayoutOfBothWritersAndReadBack) {
  vektest::ErrorRecorder rec;
  const std::string path = vektest::scratch_dir() + "layout.jpg", comment = "thirty-two bytes of comment text";
  for (const uint32_t format : {uint32_t(VEK_Y8), uint32_t(VEK_BGRX32)}) {
    const uint32_t jpg = jt::compressed(format, 33, 17, 8);
    const Tjpeg& j = *desc(jpg);
    std::memcpy(desc(jpg)->comment, comment.data(), 32);
    const std::vector<uint8_t> buf = buffer_written(jpg);
    VEK_image_set_flags(jpg, VEK_FLAG_STREAM, 1);  // drops DHT from buffers only
    VEK_image_set_outfilename(jpg, path.c_str());
    ASSERT_EQ(VEK_JPEG_file_write(jpg), 0u);
    const std::vector<uint8_t> file = jt::slurp(path), sbuf = buffer_written(jpg);

    // The expected segments, built from the description's layout and the descriptor.
    const std::string file_com = comment + "Generated by Quillmark's VEK Library";
    std::vector<uint8_t> dqt{0}, dht;
    dqt.insert(dqt.end(), j.q_table[0], j.q_table[0] + 64);
    dqt.push_back(1);
    dqt.insert(dqt.end(), j.q_table[1], j.q_table[1] + 64);
    for (int t = 0; t < 4; ++t) {
      dht.push_back(uint8_t(t % 2 | (t / 2) << 4));  // 0x00, 0x01, 0x10, 0x11
      dht.insert(dht.end(), vek::jpeg::kStdBits[t], vek::jpeg::kStdBits[t] + 16);
      dht.insert(dht.end(), vek::jpeg::kStdValues[t], vek::jpeg::kStdValues[t] + vek::jpeg::kStdValueCount[t]);
    }
    const bool mono = format == VEK_Y8;
    std::vector<uint8_t> sof = {8, 0, 17, 0, 33, uint8_t(mono ? 1 : 3), 1, uint8_t(mono ? 0x11 : 0x21), 0};
    std::vector<uint8_t> sos = {uint8_t(mono ? 1 : 3), 1, 0x00};
    if (!mono) {
      sof.insert(sof.end(), {2, 0x11, 1, 3, 0x11, 1});
      sos.insert(sos.end(), {2, 0x11, 3, 0x11});
    }
    sos.insert(sos.end(), {0, 63, 0});
    std::vector<Segment> want = {{0xE0, {'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 0, 0, 0, 0, 0}},
                                 {0xFE, std::vector<uint8_t>(file_com.begin(), file_com.end())},
                                 {0xDB, dqt}, {0xC0, sof}, {0xC4, dht}, {0xDA, sos}};
    std::vector<uint8_t> with_eoi = jt::data_of(jpg), data;
    with_eoi.insert(with_eoi.end(), {0xFF, 0xD9});
    EXPECT_TRUE(segments(file, data) == want);
    EXPECT_EQ(data, with_eoi);
    // The buffer writer differs in its COM text only, and with the stream flag lacks DHT.
    want[1].body.resize(32);
    want[1].body.insert(want[1].body.end(), {'Z', 'E', 'L', ' ', 'V', 'E', 'K'});
    EXPECT_TRUE(segments(buf, data) == want);
    EXPECT_EQ(data, with_eoi);
    want.erase(want.begin() + 4);
    EXPECT_TRUE(segments(sbuf, data) == want);
    EXPECT_EQ(data, with_eoi);

    // Read back by either reader and written again, the stream comes out the same (the
    // file readers skip COM, so the comment goes back by hand).
    const uint32_t back = VEK_JPEG_image_create();
    VEK_image_set_infilename(back, path.c_str());
    ASSERT_EQ(VEK_JPEG_file_read(back), 0u);
    EXPECT_EQ(desc(back)->header_length, uint32_t(file.size() - j.data_length - 2));
    std::memcpy(desc(back)->comment, comment.data(), 32);
    EXPECT_EQ(buffer_written(back), buf);
    ASSERT_EQ(VEK_JPEG_buffer_read(back, file.data(), uint32_t(file.size())), 0u);
    EXPECT_EQ(buffer_written(back), buf);
    // A DHT-less buffer still decodes (the standard tables), and too small a buffer is refused.
    ASSERT_EQ(VEK_JPEG_buffer_read(back, sbuf.data(), uint32_t(sbuf.size())), 0u);
    const uint32_t dst = VEK_image_create();
    VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, VEK_YUV422);
    EXPECT_EQ(VEK_JPEG_decompress(back, dst), 0u);
    std::vector<uint8_t> small(sbuf.size() - 1);
    uint32_t n = 0;
    EXPECT_EQ(VEK_JPEG_buffer_write(jpg, small.data(), uint32_t(small.size()), &n), VEK_ERROR_BAD_PARAMETER);
    VEK_image_destroy(VEK_ALL_IMAGES);
  }
}

TEST(JpegReaders, HostileStreamsGiveTheDescribedErrorsInAllThreeReaders) {
  vektest::ErrorRecorder rec;
  const uint32_t jpg = VEK_JPEG_image_create();
  const std::string path = vektest::scratch_dir() + "hostile.jpg";
  const std::vector<uint8_t> ok = jt::grey_stream();
  auto cut = [&](size_t keep) { return std::vector<uint8_t>(ok.begin(), ok.begin() + long(keep)); };
  const std::string eos = "Unexpected end of JPEG stream";  // "of file" in the file readers
  struct Case {
    std::vector<uint8_t> bytes;
    uint32_t code;
    std::string message;
  };
  const Case cases[] = {
      {{0x00, 0xD8, 0xFF, 0xD9}, 0x10050000, "Expecting PREFIX marker"},
      {{0xFF, 0xD9, 0xFF, 0xD9}, 0x10050000, "Expecting SOI marker"},
      {{0xFF, 0xD8, 0x12, 0xD9}, 0x10050012, "Expecting 0xFF marker code"},
      {{0xFF, 0xD8, 0xFF, 0xE0, 0xFF, 0xF0, 1, 2, 3}, 0x10050000, eos},  // APP0 longer than the stream
      {{0xFF, 0xD8, 0xFF, 0xFE, 0x01, 0x00, 'a', 'b', 'c'}, 0x10050000, eos},
      {cut(40), 0x10050000, eos},           // DQT cut inside a table
      {cut(2 + 69 + 10), 0x10050000, eos},  // SOF cut inside a component
      {{0xFF, 0xD8, 0xFF, 0xC4, 0x00, 0x13, 0x00, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x10, 1}, 0x10050000, eos},
      {jt::grey_stream({0xFF, 0xDB, 0x00, 0x43, 0x07}), 0x10070000, "Quantization table number out of range"},
      {{0xFF, 0xD8, 0xFF, 0xDB, 0x00, 0x43, 0x10}, 0x10070000, "16 bit integer precision not supported"},
      {jt::grey_stream({0xFF, 0xE1, 0x00, 0x08, 'E', 'x', 'i', 'f', 0, 0}), 0x100700E1, "Unrecognised marker detected"},
      {{0xFF, 0xD8, 0xFF, 0xC2, 0x00, 0x02}, 0x100700C2, "Unrecognised marker detected"},
      {{0xFF, 0xD8, 0xFF, 0x10, 0x00, 0x02}, 0x10070010, "Unrecognised marker detected"},
      {{0xFF, 0xD8, 0xFF, 0xDD, 0x00, 0x04, 0x00, 0x08}, 0x10070000, "Define Restart Interval not supported"},
      {{0xFF, 0xD8, 0xFF, 0xC0, 0x00, 0x0E, 8, 0, 8, 0, 8, 2, 1, 0x11, 0, 2, 0x11, 1}, 0x10070000, "Unsupported image depth"},
      {jt::Stream().seg(0xC0, {8, 0, 8, 0, 16, 3, 1, 0x41, 0, 2, 0x11, 1, 3, 0x11, 1}).b, 0x10070000,
       "Unknown colour image format"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message + " " + std::to_string(c.bytes.size()));
    rec.clear();
    EXPECT_EQ(VEK_JPEG_buffer_read(jpg, c.bytes.data(), uint32_t(c.bytes.size())), c.code);
    EXPECT_TRUE(rec.only("VEK_JPEG_buffer_read", c.code, c.message));
    jt::spill(path, c.bytes);
    VEK_image_set_infilename(jpg, path.c_str());
    for (const bool open : {false, true}) {
      rec.clear();
      EXPECT_EQ(open ? VEK_JPEG_file_open(jpg) : VEK_JPEG_file_read(jpg), c.code);
      ASSERT_EQ(rec.count(), 1u);
      EXPECT_EQ(rec.last().message, c.message == eos ? "Unexpected end of file" : c.message);
      EXPECT_EQ(VEK_JPEG_get_file_ptr(jpg), nullptr);  // closed on failure
    }
  }
  // Lengths too small to hold their own fields never underflow into huge skips.
  for (const uint8_t marker : {0xE0, 0xFE, 0xDB, 0xC4, 0xC0, 0xDA, 0xDD})
    for (const uint8_t len : {0, 1, 2, 3}) {
      const std::vector<uint8_t> s = {0xFF, 0xD8, 0xFF, marker, 0x00, len, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
      rec.clear();
      if (VEK_IS_ERROR(VEK_JPEG_buffer_read(jpg, s.data(), uint32_t(s.size())))) {
        EXPECT_EQ(rec.count(), 1u);
      }
    }
  // The valid stream opens with the file left at the data.
  jt::spill(path, ok);
  EXPECT_EQ(VEK_JPEG_file_open(jpg), 0u);
  EXPECT_EQ(std::ftell(VEK_JPEG_get_file_ptr(jpg)), long(ok.size() - 4));
  VEK_JPEG_file_close(jpg);
  VEK_image_destroy(jpg);
}

TEST(JpegReaders, SegmentRulesThatDifferBetweenReaders) {
  vektest::ErrorRecorder rec;
  const uint32_t jpg = VEK_JPEG_image_create();
  const std::string path = vektest::scratch_dir() + "rules.jpg";
  // Two DQT segments merge; DRI 0 passes the buffer reader only; a restart marker in the
  // data is kept and counts a strip.
  jt::Stream s;
  s.dqt(0).dqt(1).seg(0xDD, {0, 0}).sof_y8(16).sos_y8({0x12, 0xFF, 0x00, 0x34, 0xFF, 0xD3, 0x56});
  ASSERT_EQ(VEK_JPEG_buffer_read(jpg, s.b.data(), uint32_t(s.b.size())), 0u);
  EXPECT_EQ(desc(jpg)->q_segment_length, 132);
  EXPECT_EQ(desc(jpg)->q_table_count, 2);
  EXPECT_EQ(jt::data_of(jpg), (std::vector<uint8_t>{0x12, 0xFF, 0x00, 0x34, 0xFF, 0xD3, 0x56}));
  EXPECT_EQ(param(jpg, VEK_PARAM_18), 2u);
  jt::spill(path, s.b);
  VEK_image_set_infilename(jpg, path.c_str());
  rec.clear();
  EXPECT_EQ(VEK_JPEG_file_read(jpg), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(rec.only("VEK_JPEG_file_read", VEK_ERROR_NOT_SUPPORTED, "Define Restart Interval not supported"));

  // Colour samplings name the pixel format (chroma vertical factors not examined).
  const std::pair<std::vector<uint8_t>, uint32_t> samplings[] = {
      {{0x21, 0x11, 0x11}, VEK_YUV422}, {{0x22, 0x11, 0x12}, VEK_YUV411}, {{0x11, 0x12, 0x11}, VEK_RGB24}};
  for (const auto& [hv, format] : samplings) {
    jt::Stream t;
    t.seg(0xC0, {8, 0, 8, 0, 16, 3, 1, hv[0], 0, 2, hv[1], 1, 3, hv[2], 1});
    EXPECT_EQ(VEK_JPEG_buffer_read(jpg, t.b.data(), uint32_t(t.b.size())), 0u);
    EXPECT_EQ(param(jpg, VEK_PARAM_FORMAT), format);
  }

  // COM: the buffer reader keeps the first 32 bytes, the file readers skip it.
  const std::string text = "0123456789abcdefghijklmnopqrstuvwxyz!!";
  std::vector<uint8_t> com = {0xFF, 0xFE, 0x00, uint8_t(text.size() + 2)};
  com.insert(com.end(), text.begin(), text.end());
  const std::vector<uint8_t> g = jt::grey_stream(com);
  ASSERT_EQ(VEK_JPEG_buffer_read(jpg, g.data(), uint32_t(g.size())), 0u);
  EXPECT_EQ(std::string(desc(jpg)->comment, desc(jpg)->comment + 32), text.substr(0, 32));
  std::memset(desc(jpg)->comment, ' ', 32);
  jt::spill(path, g);
  ASSERT_EQ(VEK_JPEG_file_read(jpg), 0u);
  EXPECT_EQ(desc(jpg)->comment[0], ' ');
  // EOI: the buffer reader goes on past it (a later COM still lands); file_open closes
  // the file when it meets EOI before any scan.
  const std::vector<uint8_t> late = {0xFF, 0xD8, 0xFF, 0xD9, 0xFF, 0xFE, 0x00, 0x05, 'L', 'A', 'T'};
  ASSERT_EQ(VEK_JPEG_buffer_read(jpg, late.data(), uint32_t(late.size())), 0u);
  EXPECT_EQ(std::memcmp(desc(jpg)->comment, "LAT", 3), 0);
  jt::spill(path, late);
  EXPECT_EQ(VEK_JPEG_file_open(jpg), 0u);
  EXPECT_EQ(VEK_JPEG_get_file_ptr(jpg), nullptr);
  // 1..3 bytes: only the SOI bytes present are checked.
  const uint8_t tiny[3] = {0xFF, 0xD8, 0x00};
  for (uint32_t n = 1; n <= 3; ++n) EXPECT_EQ(VEK_JPEG_buffer_read(jpg, tiny, n), 0u) << n;

  // Missing buffer, files that cannot be opened or created, a raster image.
  const std::string missing = vektest::scratch_dir() + "missing/none.jpg";
  VEK_image_set_infilename(jpg, missing.c_str());
  VEK_image_set_outfilename(jpg, missing.c_str());
  rec.clear();
  const uint32_t status[] = {VEK_JPEG_buffer_read(jpg, nullptr, 10), VEK_JPEG_file_read(jpg), VEK_JPEG_file_write(jpg),
                             VEK_JPEG_file_open(VEK_image_create())};
  const std::vector<std::string> want = {"VEK_JPEG_buffer_read", "VEK_JPEG_file_read", "VEK_JPEG_file_write",
                                         "VEK_JPEG_file_open"};
  ASSERT_EQ(rec.count(), want.size());
  for (size_t i = 0; i < want.size(); ++i) EXPECT_TRUE(status[i] == VEK_ERROR_OPEN_FAILED && rec.reports()[i].function == want[i]) << want[i];
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(JpegReaders, EveryTruncationAndBitFlipOfAStreamIsSafe) {
  vektest::ErrorRecorder rec;
  const std::vector<uint8_t> buf = buffer_written(jt::compressed(VEK_YUV422, 48, 24, 11));
  const uint32_t back = VEK_JPEG_image_create(), dst = VEK_image_create();
  std::mt19937 rng(5);
  for (uint32_t i = 0; i <= buf.size() + 300; ++i) {
    std::vector<uint8_t> m = buf;
    if (i <= buf.size()) m.resize(i);  // every truncation, then random bit flips
    else m[rng() % m.size()] ^= uint8_t(1u << (rng() % 8));
    if (VEK_JPEG_buffer_read(back, m.data(), uint32_t(m.size())) != 0 ||
        uint64_t(param(back, VEK_PARAM_WIDTH)) * param(back, VEK_PARAM_HEIGHT) > 1000000u)
      continue;
    VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, i % 2 ? VEK_RGB24 : VEK_BGRX32);
    VEK_JPEG_decompress(back, dst);
  }
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(JpegSequences, BuildPositionAndExtractInMemory) {
  vektest::ErrorRecorder rec;
  const uint32_t seq = VEK_JPEG_image_create();
  const uint32_t frame = VEK_JPEG_image_create();
  for (const uint32_t h : {seq, frame}) {
    VEK_image_set_parameter(h, VEK_PARAM_FORMAT, VEK_Y8);
    VEK_image_set_parameter(h, VEK_PARAM_WIDTH, 16);
    VEK_image_set_parameter(h, VEK_PARAM_HEIGHT, 8);
    VEK_image_set_parameter(h, VEK_PARAM_STRIP_LINES, 8);
  }
  ASSERT_EQ(VEK_JPEG_malloc_data(seq), 0u);
  const uint32_t before = param(seq, VEK_PARAM_18);
  const uint32_t lengths[3] = {100, 120, 90};
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(VEK_JPEG_malloc_N_bytes_data(frame, lengths[i]), 0u);
    std::memset(desc(frame)->data, i + 1, lengths[i]);
    desc(frame)->data_length = lengths[i];
    ASSERT_EQ(VEK_JPEG_sequence_build(frame, seq), 0u);
  }
  EXPECT_EQ(desc(seq)->data_length, 314u);  // 100 + 2 + 120 + 2 + 90
  EXPECT_EQ(param(seq, VEK_PARAM_18), before + 3);
  VEK_image_set_parameter(seq, VEK_PARAM_18, 3);
  const uint32_t out = VEK_JPEG_image_create();
  ASSERT_EQ(VEK_JPEG_sequence_extract_frame(seq, out, 2), 0u);
  std::vector<uint8_t> want(120, 2);
  want.insert(want.end(), {0xFF, 0xD0});  // the separator after frame 2 comes along
  EXPECT_EQ(jt::data_of(out), want);
  EXPECT_EQ(param(out, VEK_PARAM_18), 1u);
  ASSERT_EQ(VEK_JPEG_sequence_extract_frame(seq, out, 3), 0u);
  EXPECT_EQ(jt::data_of(out), std::vector<uint8_t>(90, 3));
  EXPECT_EQ(VEK_JPEG_sequence_set_start_frame(seq, 3), 0u);
  EXPECT_EQ(desc(seq)->current, desc(seq)->data + 224);
  for (const uint32_t n : {0u, 4u}) {  // frame 0 would make the search run past the data
    EXPECT_EQ(VEK_JPEG_sequence_set_start_frame(seq, n), VEK_ERROR_BAD_PARAMETER);
    EXPECT_EQ(VEK_JPEG_sequence_extract_frame(seq, out, n), VEK_ERROR_BAD_PARAMETER);
  }
  ASSERT_EQ(rec.count(), 4u);
  EXPECT_EQ(rec.last().function, "VEK_sequence_JPEG_extract_frame");
  // Own-copy step: a fresh buffer of exactly the data length.
  const std::vector<uint8_t> all = jt::data_of(seq);
  uint8_t* const old = desc(seq)->data;
  ASSERT_EQ(VEK_JPEG_sequence_build(0, seq), 0u);
  EXPECT_NE(desc(seq)->data, old);
  EXPECT_EQ(jt::data_of(seq), all);
  EXPECT_EQ(vek::jpeg::data_capacity(seq), all.size());
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(JpegSequences, FramesOfAnOpenFile) {
  vektest::ErrorRecorder rec;
  // Three frames separated by RST0, one stuffed 0xFF in frame 1.
  const std::vector<uint8_t> data = {0x11, 0xFF, 0x00, 0x12, 0xFF, 0xD0, 0x21, 0x22, 0x23, 0xFF, 0xD0, 0x31};
  const std::vector<uint8_t> s = jt::grey_stream({}, data);
  const long header = long(s.size() - data.size() - 2);
  const std::string path = vektest::scratch_dir() + "frames.jpg";
  jt::spill(path, s);
  const uint32_t seq = VEK_JPEG_image_create();
  VEK_image_set_infilename(seq, path.c_str());
  EXPECT_EQ(VEK_JPEG_sequence_calc_length(seq), VEK_ERROR_BAD_HANDLE);  // no file open yet
  ASSERT_EQ(VEK_JPEG_file_open(seq), 0u);
  ASSERT_EQ(VEK_JPEG_sequence_calc_length(seq), 0u);
  EXPECT_EQ(param(seq, VEK_PARAM_18), 3u);
  EXPECT_EQ(std::ftell(VEK_JPEG_get_file_ptr(seq)), header);  // position restored
  const uint32_t out = VEK_JPEG_image_create();
  const std::vector<uint8_t> want[3] = {{0x11, 0xFF, 0x00, 0x12, 0xFF, 0xD0}, {0x21, 0x22, 0x23, 0xFF, 0xD0}, {0x31}};
  for (uint32_t n = 3; n >= 1; --n) {
    ASSERT_EQ(VEK_JPEG_sequence_extract_frame(seq, out, n), 0u) << n;
    EXPECT_EQ(jt::data_of(out), want[n - 1]) << n;
    EXPECT_EQ(param(out, VEK_PARAM_18) << 16 | VEK_get_width(out), 1u << 16 | 8u);
  }
  const std::pair<uint32_t, long> starts[] = {{1, header}, {3, header + 11}};
  for (auto [n, at] : starts) {
    ASSERT_EQ(VEK_JPEG_sequence_set_start_frame(seq, n), 0u);
    EXPECT_EQ(std::ftell(VEK_JPEG_get_file_ptr(seq)), at);
    EXPECT_EQ(param(seq, VEK_PARAM_19), n);
  }
  EXPECT_EQ(VEK_JPEG_sequence_set_start_frame(seq, 0), VEK_ERROR_BAD_PARAMETER);
  ASSERT_EQ(VEK_JPEG_file_close(seq), 0u);
  EXPECT_EQ(VEK_JPEG_get_file_ptr(seq), nullptr);

  // Counting takes every restart marker (RST7 the last of them), positioning only RST0.
  jt::spill(path, jt::grey_stream({}, {0x11, 0xFF, 0xD0, 0x22, 0xFF, 0xD7, 0x33}));
  ASSERT_EQ(VEK_JPEG_file_open(seq), 0u);
  ASSERT_EQ(VEK_JPEG_sequence_calc_length(seq), 0u);
  EXPECT_EQ(param(seq, VEK_PARAM_18), 3u);
  EXPECT_EQ(VEK_JPEG_sequence_set_start_frame(seq, 2), 0u);
  EXPECT_EQ(std::ftell(VEK_JPEG_get_file_ptr(seq)), header + 3);
  EXPECT_EQ(VEK_JPEG_sequence_set_start_frame(seq, 3), VEK_ERROR_BAD_PARAMETER);
  VEK_JPEG_file_close(seq);

  // Regression: destroying the image closed a stream the caller had handed over, so
  // the caller's own fclose freed it a second time.
  FILE* mine = std::fopen(path.c_str(), "rb");
  ASSERT_NE(mine, nullptr);
  const uint32_t holder = VEK_JPEG_image_create();
  ASSERT_EQ(VEK_JPEG_set_file_ptr(holder, mine), 0u);
  EXPECT_EQ(VEK_JPEG_get_file_ptr(holder), mine);
  VEK_image_destroy(holder);
  EXPECT_EQ(std::fgetc(mine), 0xFF);
  EXPECT_EQ(std::fclose(mine), 0);
  EXPECT_EQ(VEK_JPEG_sequence_calc_length(999), VEK_ERROR_BAD_HANDLE);
  VEK_image_destroy(VEK_ALL_IMAGES);
}

}  // namespace
