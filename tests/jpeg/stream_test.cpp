// Quantisation and Huffman tables, JFIF files and buffers, and frame sequences.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>

#include "jpeg/internal.h"
#include "reference.h"
#include "support/recorder.h"
#include "vek.h"

namespace {

Tjpeg* desc(uint32_t h) { return static_cast<Tjpeg*>(VEK_image_get_ptr(h, VEK_PTR_JPEG)); }

TEST(JpegTables, QuantisationTablesFollowTheScaleForEveryFactor) {
  const uint32_t jpg = VEK_JPEG_image_create();
  for (uint32_t f = 1; f <= 400; ++f) {
    ASSERT_EQ(VEK_JPEG_set_Quality_factor(jpg, f), 0u);
    ASSERT_EQ(VEK_JPEG_make_Q_tables(jpg), 0u);
    const ref::QTables want = ref::qtables(int(f));
    for (int t = 0; t < 2; ++t)
      for (int k = 0; k < 64; ++k) {
        ASSERT_EQ(desc(jpg)->q_table[t][k], want.step[t][k]) << "F " << f << " k " << k;
        ASSERT_EQ(desc(jpg)->q_reciprocal[t][k], want.recip[t][k]);
      }
  }
  VEK_JPEG_set_Quality_factor(jpg, 16);
  VEK_JPEG_make_Q_tables(jpg);
  for (int k = 0; k < 64; ++k) EXPECT_EQ(desc(jpg)->q_table[0][k], ref::kK1[ref::kZig[k]]);
  VEK_JPEG_set_Quality_factor(jpg, 32);
  VEK_JPEG_make_Q_tables(jpg);
  const uint8_t start[6] = {8, 6, 6, 7, 6, 5};
  EXPECT_EQ(std::memcmp(desc(jpg)->q_table[0], start, 6), 0);
  EXPECT_EQ(desc(jpg)->q_segment_length, 132);
  EXPECT_EQ(VEK_JPEG_get_parameter(jpg, VEK_JPEG_NUM_Q_TABLES), 2u);
  EXPECT_EQ(desc(jpg)->q_selector[1], 1);
  EXPECT_EQ(desc(jpg)->q_selector[2], 1);
  VEK_image_destroy(jpg);
}

TEST(JpegTables, FactorRangesAndConversions) {
  vektest::ErrorRecorder rec;
  const uint32_t jpg = VEK_JPEG_image_create();
  EXPECT_EQ(desc(jpg)->quality_factor, 32u);
  for (uint32_t bad : {0u, 401u}) {
    EXPECT_EQ(VEK_JPEG_set_Quality_factor(jpg, bad), VEK_ERROR_BAD_PARAMETER);
    EXPECT_EQ(rec.last().message, "Q factor of range");
  }
  EXPECT_EQ(VEK_JPEG_set_Quality_factor(jpg, 0x10000u + 20), 0u);  // low 16 bits only
  EXPECT_EQ(desc(jpg)->quality_factor, 20u);
  for (uint32_t bad : {1u, 801u}) EXPECT_EQ(VEK_JPEG_set_Quantization_factor(jpg, bad), VEK_ERROR_BAD_PARAMETER);
  EXPECT_EQ(desc(jpg)->quality_factor, 20u);
  const std::pair<uint32_t, uint32_t> qf[] = {{2, 400}, {3, 266}, {7, 114}, {50, 16}, {800, 1}};
  for (auto [q, f] : qf) {
    EXPECT_EQ(VEK_JPEG_set_Quantization_factor(jpg, q), 0u);
    EXPECT_EQ(desc(jpg)->quality_factor, f) << q;
  }
  // Parameter 27 of the image reaches the same setter.
  EXPECT_EQ(VEK_image_set_parameter(jpg, VEK_PARAM_JPEG_QUALITY, 77), 0u);
  EXPECT_EQ(desc(jpg)->quality_factor, 77u);
  const uint32_t raster = VEK_image_create();
  rec.clear();
  EXPECT_EQ(VEK_JPEG_set_Quality_factor(raster, 10), VEK_ERROR_BAD_HANDLE);
  EXPECT_TRUE(rec.only("VEK_JPEG_set_Quality_factor", VEK_ERROR_BAD_HANDLE, "Not a JPEG image"));
  rec.clear();
  EXPECT_EQ(VEK_JPEG_get_parameter(jpg, 603), VEK_ERROR_BAD_PARAMETER);
  EXPECT_TRUE(rec.only("VEK_JPEG_get_parameter", VEK_ERROR_BAD_PARAMETER, "Unknown parameter"));
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(JpegTables, CodeTablesAreTheCanonicalCodesAndSkipOneBitCodes) {
  for (int t = 0; t < 4; ++t) {
    const auto want = ref::codes_of(ref::standard_table(t));
    for (auto& [sym, cl] : want) {
      EXPECT_EQ(vek::jpeg::g_codes[t][sym].code, cl.first) << t << " " << sym;
      EXPECT_EQ(vek::jpeg::g_codes[t][sym].length, cl.second);
    }
  }
  const uint32_t jpg = VEK_JPEG_image_create();
  VEK_JPEG_set_default_H_tables(jpg);
  desc(jpg)->h_bits[0][0] = 1;  // one one-bit code declared
  ASSERT_EQ(VEK_JPEG_generate_H_codetable_LUTs(jpg), 0u);
  for (int s = 0; s < 256; ++s) EXPECT_NE(vek::jpeg::g_codes[0][s].length, 1);
  VEK_JPEG_set_default_H_tables(jpg);
  ASSERT_EQ(VEK_JPEG_generate_H_codetable_LUTs(jpg), 0u);
  ASSERT_EQ(VEK_JPEG_generate_Huffman_decode_tables(), 0u);
  VEK_image_destroy(jpg);
}

std::vector<uint8_t> slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void spill(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), long(bytes.size()));
}

uint32_t compressed(uint32_t format, uint32_t w, uint32_t h, uint32_t seed) {
  const uint32_t src = vektest::make_image(format, w, h);
  vektest::fill_random(src, seed);
  const uint32_t jpg = VEK_JPEG_image_create();
  EXPECT_EQ(VEK_JPEG_compress(src, jpg), 0u);
  VEK_image_destroy(src);
  return jpg;
}

TEST(JpegFiles, WriteThenReadKeepsHeadersTablesAndData) {
  const std::string path = vektest::scratch_dir() + "roundtrip.jpg";
  for (uint32_t format : {uint32_t(VEK_Y8), uint32_t(VEK_BGRX32)}) {
    const uint32_t jpg = compressed(format, 37, 21, format);
    VEK_image_set_outfilename(jpg, path.c_str());
    ASSERT_EQ(VEK_JPEG_file_write(jpg), 0u);
    const std::vector<uint8_t> file = slurp(path);
    const std::string com(reinterpret_cast<const char*>(file.data()) + 20, 4 + 32 + 36);
    EXPECT_EQ(std::memcmp(file.data(), "\xFF\xD8\xFF\xE0\x00\x10JFIF\x00\x01\x01\x00\x00\x00\x00\x00\x00\x00", 20), 0);
    EXPECT_EQ(com.substr(0, 4), std::string("\xFF\xFE\x00\x46", 4));
    EXPECT_EQ(com.substr(36), "Generated by Quillmark's VEK Library");
    EXPECT_EQ(file[file.size() - 2], 0xFF);
    EXPECT_EQ(file.back(), 0xD9);

    const uint32_t back = VEK_JPEG_image_create();
    VEK_image_set_infilename(back, path.c_str());
    ASSERT_EQ(VEK_JPEG_file_read(back), 0u);
    const Tjpeg& a = *desc(jpg);
    const Tjpeg& b = *desc(back);
    EXPECT_EQ(VEK_image_get_parameter(back, VEK_PARAM_FORMAT), VEK_image_get_parameter(jpg, VEK_PARAM_FORMAT));
    EXPECT_EQ(VEK_image_get_parameter(back, VEK_PARAM_WIDTH), 37u);
    EXPECT_EQ(VEK_image_get_parameter(back, VEK_PARAM_HEIGHT), 21u);
    EXPECT_EQ(b.frame_header_length, a.frame_header_length);
    EXPECT_EQ(b.q_segment_length, 132);
    EXPECT_EQ(b.q_table_count, 2);
    EXPECT_EQ(std::memcmp(b.q_table, a.q_table, 128), 0);
    EXPECT_EQ(b.h_segment_length, 416);
    EXPECT_EQ(std::memcmp(b.h_table_id, a.h_table_id, sizeof a.h_table_id), 0);
    EXPECT_EQ(std::memcmp(b.h_bits, a.h_bits, sizeof a.h_bits), 0);
    EXPECT_EQ(std::memcmp(b.h_values, a.h_values, sizeof a.h_values), 0);
    EXPECT_EQ(b.scan_components, a.scan_components);
    EXPECT_EQ(b.header_length, uint32_t(file.size() - a.data_length - 2));
    ASSERT_EQ(b.data_length, a.data_length);
    EXPECT_EQ(std::memcmp(b.data, a.data, a.data_length), 0);
    EXPECT_EQ(VEK_image_get_flags(back, VEK_FLAG_JPEG), 1u);
    // The dispatch path: an image written and read by format code 8.
    VEK_image_destroy(back);
    VEK_image_destroy(jpg);
  }
}

TEST(JpegBuffers, BufferWriterDifferencesAndSizeCheck) {
  vektest::ErrorRecorder rec;
  const uint32_t jpg = compressed(VEK_YUV422, 32, 16, 4);
  std::vector<uint8_t> buf(4096);
  uint32_t n = 0;
  ASSERT_EQ(VEK_JPEG_buffer_write(jpg, buf.data(), uint32_t(buf.size()), &n), 0u);
  EXPECT_EQ(std::memcmp(buf.data() + 20, "\xFF\xFE\x00\x29", 4), 0);
  EXPECT_EQ(std::memcmp(buf.data() + 56, "ZEL VEK", 7), 0);
  auto count_marker = [&](uint8_t m, uint32_t len) {
    int c = 0;
    for (uint32_t i = 0; i + 1 < len; ++i) c += buf[i] == 0xFF && buf[i + 1] == m;
    return c;
  };
  EXPECT_EQ(count_marker(0xC4, n - desc(jpg)->data_length), 1);
  VEK_image_set_flags(jpg, VEK_FLAG_STREAM, 1);
  uint32_t m = 0;
  ASSERT_EQ(VEK_JPEG_buffer_write(jpg, buf.data(), uint32_t(buf.size()), &m), 0u);
  EXPECT_EQ(count_marker(0xC4, m - desc(jpg)->data_length), 0);
  EXPECT_EQ(n - m, 4u + 416u);
  // Too small a buffer is refused before anything is written past it.
  EXPECT_EQ(VEK_JPEG_buffer_write(jpg, buf.data(), m - 1, &n), VEK_ERROR_BAD_PARAMETER);
  // A stream without DHT still decodes with the standard tables.
  const uint32_t back = VEK_JPEG_image_create();
  ASSERT_EQ(VEK_JPEG_buffer_read(back, buf.data(), m), 0u);
  const uint32_t dst = VEK_image_create();
  VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, VEK_YUV422);
  EXPECT_EQ(VEK_JPEG_decompress(back, dst), 0u);
  VEK_image_destroy(VEK_ALL_IMAGES);
}

// Builds a stream by hand around the data of a compressed 16x8 grey picture.
struct StreamBuilder {
  std::vector<uint8_t> b{0xFF, 0xD8};
  void seg(uint8_t marker, std::vector<uint8_t> body) {
    b.push_back(0xFF);
    b.push_back(marker);
    const size_t len = body.size() + 2;
    b.push_back(uint8_t(len >> 8));
    b.push_back(uint8_t(len));
    b.insert(b.end(), body.begin(), body.end());
  }
  void dqt(uint8_t tq) {
    std::vector<uint8_t> t{tq};
    t.resize(65, 1);
    seg(0xDB, t);
  }
  void sof_y8() { seg(0xC0, {8, 0, 8, 0, 16, 1, 1, 0x11, 0}); }
  void sos_y8(std::vector<uint8_t> data) {
    seg(0xDA, {1, 1, 0, 0, 63, 0});
    b.insert(b.end(), data.begin(), data.end());
    b.push_back(0xFF);
    b.push_back(0xD9);
  }
};

TEST(JpegBuffers, ParserRulesForSegments) {
  vektest::ErrorRecorder rec;
  const uint32_t jpg = VEK_JPEG_image_create();
  {
    StreamBuilder s;
    s.dqt(0);
    s.dqt(1);
    s.seg(0xDD, {0, 0});  // restart interval 0
    s.sof_y8();
    s.sos_y8({0x12, 0xFF, 0x00, 0x34, 0xFF, 0xD3, 0x56});
    ASSERT_EQ(VEK_JPEG_buffer_read(jpg, s.b.data(), uint32_t(s.b.size())), 0u);
    EXPECT_EQ(desc(jpg)->q_segment_length, 132);
    EXPECT_EQ(desc(jpg)->q_table_count, 2);
    EXPECT_EQ(desc(jpg)->data_length, 7u);
    EXPECT_EQ(VEK_image_get_parameter(jpg, VEK_PARAM_18), 2u);  // a restart marker counts a strip

    const std::string path = vektest::scratch_dir() + "dri.jpg";
    spill(path, s.b);
    VEK_image_set_infilename(jpg, path.c_str());
    rec.clear();
    EXPECT_EQ(VEK_JPEG_file_read(jpg), VEK_ERROR_NOT_SUPPORTED);
    EXPECT_TRUE(rec.only("VEK_JPEG_file_read", VEK_ERROR_NOT_SUPPORTED, "Define Restart Interval not supported"));
  }
  struct Bad {
    std::vector<uint8_t> bytes;
    uint32_t code;
    const char* message;
  };
  const Bad bad[] = {
      {{0x00, 0xD8, 0xFF, 0xD9}, 0x10050000, "Expecting PREFIX marker"},
      {{0xFF, 0xD9, 0xFF, 0xD9}, 0x10050000, "Expecting SOI marker"},
      {{0xFF, 0xD8, 0x12, 0xD9}, 0x10050012, "Expecting 0xFF marker code"},
      {{0xFF, 0xD8, 0xFF, 0xE1, 0x00, 0x02}, 0x100700E1, "Unrecognised marker detected"},
      {{0xFF, 0xD8, 0xFF, 0xC2, 0x00, 0x02}, 0x100700C2, "Unrecognised marker detected"},
      {{0xFF, 0xD8, 0xFF, 0x10, 0x00, 0x02}, 0x10070010, "Unrecognised marker detected"},
      {{0xFF, 0xD8, 0xFF, 0xDD, 0x00, 0x04, 0x00, 0x08}, 0x10070000, "Define Restart Interval not supported"},
      {{0xFF, 0xD8, 0xFF, 0xC4, 0x00, 0x40, 0x00}, 0x10050000, "Unexpected end of JPEG stream"},
      {{0xFF, 0xD8, 0xFF, 0xDB, 0x00, 0x43, 0x10}, 0x10070000, "16 bit integer precision not supported"},
      {{0xFF, 0xD8, 0xFF, 0xDB, 0x00, 0x43, 0x05}, 0x10070000, "Quantization table number out of range"},
      {{0xFF, 0xD8, 0xFF, 0xC0, 0x00, 0x0B, 8, 0, 8, 0, 8, 2, 1, 0x11, 0}, 0x10070000, "Unsupported image depth"},
  };
  for (const Bad& b : bad) {
    rec.clear();
    EXPECT_EQ(VEK_JPEG_buffer_read(jpg, b.bytes.data(), uint32_t(b.bytes.size())), b.code) << b.message;
    ASSERT_EQ(rec.count(), 1u) << b.message;
    EXPECT_EQ(rec.last().message, b.message);
  }
  // Colour samplings: 4:4:4 reads as RGB24, 4:1:1-style (4x1) is refused.
  StreamBuilder s;
  s.seg(0xC0, {8, 0, 8, 0, 16, 3, 1, 0x11, 0, 2, 0x12, 1, 3, 0x11, 1});
  rec.clear();
  EXPECT_EQ(VEK_JPEG_buffer_read(jpg, s.b.data(), uint32_t(s.b.size())), 0u);
  EXPECT_EQ(VEK_image_get_parameter(jpg, VEK_PARAM_FORMAT), uint32_t(VEK_RGB24));
  StreamBuilder t;
  t.seg(0xC0, {8, 0, 8, 0, 16, 3, 1, 0x41, 0, 2, 0x11, 1, 3, 0x11, 1});
  EXPECT_EQ(VEK_JPEG_buffer_read(jpg, t.b.data(), uint32_t(t.b.size())), VEK_ERROR_NOT_SUPPORTED);
  EXPECT_EQ(rec.last().message, "Unknown colour image format");
  VEK_image_destroy(jpg);
}

TEST(JpegBuffers, EveryTruncationAndByteFlipOfAStreamIsSafe) {
  vektest::ErrorRecorder rec;
  const uint32_t jpg = compressed(VEK_YUV422, 48, 24, 11);
  std::vector<uint8_t> buf(8192);
  uint32_t n = 0;
  ASSERT_EQ(VEK_JPEG_buffer_write(jpg, buf.data(), uint32_t(buf.size()), &n), 0u);
  buf.resize(n);
  const uint32_t back = VEK_JPEG_image_create();
  const uint32_t dst = VEK_image_create();
  for (uint32_t len = 0; len <= n; ++len) {
    std::vector<uint8_t> cut(buf.begin(), buf.begin() + len);
    if (VEK_JPEG_buffer_read(back, cut.data(), len) == 0 && VEK_image_get_parameter(back, VEK_PARAM_WIDTH) <= 48) {
      VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, VEK_RGB24);
      VEK_JPEG_decompress(back, dst);
    }
  }
  std::mt19937 rng(5);
  for (int i = 0; i < 300; ++i) {
    std::vector<uint8_t> m = buf;
    m[rng() % m.size()] ^= uint8_t(1u << (rng() % 8));
    if (VEK_JPEG_buffer_read(back, m.data(), uint32_t(m.size())) == 0 &&
        uint64_t(VEK_image_get_parameter(back, VEK_PARAM_WIDTH)) * VEK_image_get_parameter(back, VEK_PARAM_HEIGHT) <
            1000000u) {
      VEK_image_set_parameter(dst, VEK_PARAM_FORMAT, VEK_BGRX32);
      VEK_JPEG_decompress(back, dst);
    }
  }
  VEK_image_destroy(VEK_ALL_IMAGES);
}

// Frames of lengths given, each filled with a distinct byte.
uint32_t frame(uint32_t length, uint8_t fill) {
  const uint32_t f = VEK_JPEG_image_create();
  VEK_image_set_parameter(f, VEK_PARAM_FORMAT, VEK_Y8);
  VEK_image_set_parameter(f, VEK_PARAM_WIDTH, 16);
  VEK_image_set_parameter(f, VEK_PARAM_HEIGHT, 8);
  VEK_image_set_parameter(f, VEK_PARAM_STRIP_LINES, 8);
  EXPECT_EQ(VEK_JPEG_malloc_N_bytes_data(f, length), 0u);
  std::memset(desc(f)->data, fill, length);
  desc(f)->data_length = length;
  return f;
}

TEST(JpegSequences, BuildPositionAndExtract) {
  vektest::ErrorRecorder rec;
  const uint32_t seq = VEK_JPEG_image_create();
  VEK_image_set_parameter(seq, VEK_PARAM_FORMAT, VEK_Y8);
  VEK_image_set_parameter(seq, VEK_PARAM_WIDTH, 16);
  VEK_image_set_parameter(seq, VEK_PARAM_HEIGHT, 8);
  VEK_image_set_parameter(seq, VEK_PARAM_STRIP_LINES, 8);
  ASSERT_EQ(VEK_JPEG_malloc_data(seq), 0u);
  const uint32_t before = VEK_image_get_parameter(seq, VEK_PARAM_18);
  const uint32_t lengths[3] = {100, 120, 90};
  for (int i = 0; i < 3; ++i) {
    const uint32_t f = frame(lengths[i], uint8_t(i + 1));
    ASSERT_EQ(VEK_JPEG_sequence_build(f, seq), 0u);
    VEK_image_destroy(f);
  }
  EXPECT_EQ(desc(seq)->data_length, 314u);
  EXPECT_EQ(VEK_image_get_parameter(seq, VEK_PARAM_18), before + 3);
  VEK_image_set_parameter(seq, VEK_PARAM_18, 3);
  const uint32_t out = VEK_JPEG_image_create();
  ASSERT_EQ(VEK_JPEG_sequence_extract_frame(seq, out, 2), 0u);
  ASSERT_EQ(desc(out)->data_length, 122u);
  EXPECT_EQ(desc(out)->data[0], 2);
  EXPECT_EQ(desc(out)->data[119], 2);
  EXPECT_EQ(desc(out)->data[120], 0xFF);
  EXPECT_EQ(desc(out)->data[121], 0xD0);
  EXPECT_EQ(VEK_image_get_parameter(out, VEK_PARAM_18), 1u);
  ASSERT_EQ(VEK_JPEG_sequence_extract_frame(seq, out, 3), 0u);
  ASSERT_EQ(desc(out)->data_length, 90u);
  EXPECT_EQ(desc(out)->data[0], 3);
  EXPECT_EQ(VEK_JPEG_sequence_set_start_frame(seq, 3), 0u);
  EXPECT_EQ(desc(seq)->current, desc(seq)->data + 224);
  rec.clear();
  EXPECT_EQ(VEK_JPEG_sequence_set_start_frame(seq, 4), VEK_ERROR_BAD_PARAMETER);
  EXPECT_EQ(rec.last().message, "starting frame > number of frames");
  EXPECT_EQ(VEK_JPEG_sequence_set_start_frame(seq, 0), VEK_ERROR_BAD_PARAMETER);
  rec.clear();
  EXPECT_EQ(VEK_JPEG_sequence_extract_frame(seq, out, 4), VEK_ERROR_BAD_PARAMETER);
  EXPECT_TRUE(rec.only("VEK_sequence_JPEG_extract_frame", VEK_ERROR_BAD_PARAMETER,
                       "frame number > number of frames"));
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(JpegSequences, FileFrameCountTakesEveryRestartMarkerButPositioningOnlyRst0) {
  StreamBuilder s;
  s.dqt(0);
  s.sof_y8();
  s.sos_y8({0x11, 0xFF, 0xD0, 0x22, 0xFF, 0xD1, 0x33});
  const std::string path = vektest::scratch_dir() + "rst.jpg";
  spill(path, s.b);
  vektest::ErrorRecorder rec;
  const uint32_t jpg = VEK_JPEG_image_create();
  VEK_image_set_infilename(jpg, path.c_str());
  EXPECT_EQ(VEK_JPEG_sequence_calc_length(jpg), VEK_ERROR_BAD_HANDLE);
  EXPECT_EQ(rec.last().message, "JPEG file not opened");
  ASSERT_EQ(VEK_JPEG_file_open(jpg), 0u);
  ASSERT_NE(VEK_JPEG_get_file_ptr(jpg), nullptr);
  ASSERT_EQ(VEK_JPEG_sequence_calc_length(jpg), 0u);
  EXPECT_EQ(VEK_image_get_parameter(jpg, VEK_PARAM_18), 3u);
  EXPECT_EQ(VEK_JPEG_sequence_set_start_frame(jpg, 2), 0u);
  EXPECT_EQ(std::ftell(VEK_JPEG_get_file_ptr(jpg)), long(VEK_JPEG_get_parameter(jpg, VEK_JPEG_HEADER_LENGTH) + 3));
  EXPECT_EQ(VEK_JPEG_sequence_set_start_frame(jpg, 3), VEK_ERROR_BAD_PARAMETER);
  EXPECT_EQ(VEK_JPEG_file_close(jpg), 0u);
  EXPECT_EQ(VEK_JPEG_get_file_ptr(jpg), nullptr);
  VEK_image_destroy(jpg);
}

}  // namespace
