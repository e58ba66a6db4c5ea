// Descriptor life cycle, the header writers' byte layout, parser rules on hostile
// segments, and sequences read through an open file.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "core/alloc.h"
#include "jpeg/internal.h"
#include "support/recorder.h"
#include "vek.h"

namespace {

Tjpeg* desc(uint32_t h) { return static_cast<Tjpeg*>(VEK_image_get_ptr(h, VEK_PTR_JPEG)); }

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

// One marker segment of a written stream: code and body (length bytes excluded).
struct Segment {
  uint8_t code;
  std::vector<uint8_t> body;
};

// Splits SOI .. SOS by the segment lengths, so a length that disagrees with the
// content shows up as a misparse; `data` receives what follows SOS.
std::vector<Segment> segments(const std::vector<uint8_t>& s, std::vector<uint8_t>& data) {
  std::vector<Segment> out;
  EXPECT_GE(s.size(), 4u);
  EXPECT_EQ(s[0], 0xFF);
  EXPECT_EQ(s[1], 0xD8);
  size_t p = 2;
  while (p + 4 <= s.size()) {
    EXPECT_EQ(s[p], 0xFF) << "at " << p;
    const uint8_t code = s[p + 1];
    const size_t len = size_t(s[p + 2]) << 8 | s[p + 3];
    if (p + 2 + len > s.size()) break;
    out.push_back({code, std::vector<uint8_t>(s.begin() + long(p + 4), s.begin() + long(p + 2 + len))});
    p += 2 + len;
    if (code == 0xDA) break;
  }
  data.assign(s.begin() + long(p), s.end());
  return out;
}

TEST(JpegDescriptor, CreationDefaultsAndAllocationFailureKeepsTheImage) {
  vektest::ErrorRecorder rec;
  const uint32_t jpg = VEK_JPEG_image_create();
  ASSERT_FALSE(VEK_IS_ERROR(jpg));
  const Tjpeg& d = *desc(jpg);
  EXPECT_EQ(d.file, nullptr);
  EXPECT_EQ(d.quality_factor, 32u);
  for (uint8_t c : d.comment) EXPECT_EQ(c, ' ');
  EXPECT_EQ(d.data, nullptr);
  EXPECT_EQ(d.frame_header_length | d.scan_header_length | d.h_segment_length | d.q_segment_length, 0);
  for (int t = 0; t < 4; ++t)
    for (int i = 0; i < 16; ++i) EXPECT_EQ(d.h_bits[t][i], 0);
  VEK_image_destroy(jpg);

  // The descriptor allocation fails after the image exists: plain memory error, and
  // the image stays behind without a descriptor.
  bool seen = false;
  for (long n = 0; n < 8 && !seen; ++n) {
    const uint32_t probe = VEK_image_create();
    VEK_image_destroy(probe);
    rec.clear();
    vek::testing::fail_allocations_after(n);
    const uint32_t r = VEK_JPEG_image_create();
    vek::testing::fail_allocations_after(-1);
    if (!VEK_IS_ERROR(r)) {
      VEK_image_destroy(r);
      continue;
    }
    if (rec.last().function != "VEK_JPEG_image_create") continue;
    seen = true;
    EXPECT_EQ(r, VEK_ERROR_MEMORY);
    EXPECT_TRUE(rec.only("VEK_JPEG_image_create", VEK_ERROR_MEMORY, ""));
    EXPECT_EQ(VEK_image_get_parameter(probe, VEK_PARAM_HEIGHT), 32767u);  // still a live image
    EXPECT_EQ(VEK_image_get_ptr(probe, VEK_PTR_JPEG), nullptr);
    VEK_image_destroy(probe);
  }
  EXPECT_TRUE(seen);
}

TEST(JpegDescriptor, DataBufferSizesFollowTheImageOrTheOpenFile) {
  vektest::ErrorRecorder rec;
  const uint32_t jpg = VEK_JPEG_image_create();
  VEK_image_set_parameter(jpg, VEK_PARAM_FORMAT, VEK_Y8);
  struct Case {
    uint32_t w, h, strip;
    size_t want;
  };
  // Pitch x strip + 10000 (a 2-byte line alignment pads 75 to 76).
  for (const Case c : {Case{16, 8, 8, 16 * 8 + 10000}, Case{640, 480, 480, 640 * 480 + 10000}, Case{75, 300, 7, 76 * 7 + 10000}}) {
    VEK_image_set_parameter(jpg, VEK_PARAM_WIDTH, c.w);
    VEK_image_set_parameter(jpg, VEK_PARAM_HEIGHT, c.h);
    VEK_image_set_parameter(jpg, VEK_PARAM_STRIP_LINES, c.strip);
    ASSERT_EQ(VEK_JPEG_malloc_data(jpg), 0u);
    EXPECT_EQ(vek::jpeg::data_capacity(jpg), c.want) << c.w;
  }
  // With a file open, its length rounded up to even (and the 4200 floor).
  for (const size_t length : {size_t(5001), size_t(6000), size_t(100)}) {
    const std::string path = vektest::scratch_dir() + "sized.bin";
    spill(path, std::vector<uint8_t>(length, 0x55));
    FILE* f = std::fopen(path.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    std::fseek(f, 7, SEEK_SET);
    VEK_JPEG_set_file_ptr(jpg, f);
    ASSERT_EQ(VEK_JPEG_malloc_data(jpg), 0u);
    EXPECT_EQ(vek::jpeg::data_capacity(jpg), length < 4096 ? 4200u : length + (length & 1));
    EXPECT_EQ(std::ftell(f), 7);  // position restored
    ASSERT_EQ(VEK_JPEG_file_close(jpg), 0u);
  }
  // A locked image keeps its buffer; validation still comes first.
  ASSERT_EQ(VEK_JPEG_malloc_N_bytes_data(jpg, 77), 0u);
  uint8_t* const kept = desc(jpg)->data;
  VEK_image_set_flags(jpg, VEK_FLAG_LOCKED, 1);
  EXPECT_EQ(VEK_JPEG_malloc_data(jpg), 0u);
  EXPECT_EQ(VEK_JPEG_malloc_N_bytes_data(jpg, 5), 0u);
  EXPECT_EQ(desc(jpg)->data, kept);
  VEK_JPEG_free_data(jpg);
  EXPECT_EQ(desc(jpg)->data, kept);
  VEK_image_set_parameter(jpg, VEK_PARAM_FORMAT, 0);
  rec.clear();
  EXPECT_TRUE(VEK_IS_ERROR(VEK_JPEG_malloc_data(jpg)));
  EXPECT_EQ(rec.last().function, "VEK_JPEG_malloc_data");
  EXPECT_EQ(rec.last().message, "Corrupt image");
  VEK_image_set_flags(jpg, VEK_FLAG_LOCKED, 0);
  VEK_image_set_parameter(jpg, VEK_PARAM_FORMAT, VEK_Y8);
  VEK_image_destroy(jpg);
}

TEST(JpegDescriptor, CopySetAndBuildImage) {
  vektest::ErrorRecorder rec;
  const uint32_t a = compressed(VEK_BGR24, 40, 16, 3);
  const uint32_t b = VEK_JPEG_image_create();
  VEK_image_set_parameter(b, VEK_PARAM_FORMAT, VEK_Y8);
  ASSERT_EQ(VEK_JPEG_malloc_N_bytes_data(b, 64), 0u);
  uint8_t* const b_data = desc(b)->data;
  desc(b)->current = b_data + 5;
  ASSERT_EQ(VEK_JPEG_copy_parameters(a, b), 0u);
  EXPECT_EQ(desc(b)->data, b_data);
  EXPECT_EQ(desc(b)->current, b_data + 5);
  EXPECT_EQ(std::memcmp(desc(b)->q_table, desc(a)->q_table, sizeof desc(a)->q_table), 0);
  EXPECT_EQ(desc(b)->h_segment_length, 416);
  EXPECT_EQ(desc(b)->scan_components, 3);
  const uint32_t raster = VEK_image_create();
  rec.clear();
  EXPECT_EQ(VEK_JPEG_copy_parameters(a, raster), VEK_ERROR_BAD_HANDLE);
  EXPECT_TRUE(rec.only("VEK_JPEG_copy_parameters", VEK_ERROR_BAD_HANDLE, ""));

  // set_image: layout fields by source kind, strip count 1, table count 0.
  for (const uint32_t format : {uint32_t(VEK_Y8), uint32_t(VEK_BGRX32)}) {
    const uint32_t src = vektest::make_image(format, 24, 10, 5);
    const uint32_t dst = VEK_JPEG_image_create();
    VEK_image_set_parameter(dst, VEK_PARAM_18, 9);
    desc(dst)->q_table_count = 2;
    ASSERT_EQ(VEK_JPEG_set_image(src, dst), 0u);
    const Tjpeg& j = *desc(dst);
    const bool mono = format == VEK_Y8;
    EXPECT_EQ(VEK_image_get_parameter(dst, VEK_PARAM_FORMAT), mono ? uint32_t(VEK_Y8) : uint32_t(VEK_YUV422));
    EXPECT_EQ(VEK_image_get_parameter(dst, VEK_PARAM_18), 1u);
    EXPECT_EQ(VEK_image_get_parameter(dst, VEK_PARAM_STRIP_LINES), 5u);
    EXPECT_EQ(VEK_image_get_flags(dst, VEK_FLAG_JPEG), 1u);
    EXPECT_EQ(j.q_table_count, 0);
    EXPECT_EQ(j.precision, 8);
    EXPECT_EQ(j.frame_header_length, mono ? 11 : 17);
    EXPECT_EQ(j.scan_header_length, mono ? 8 : 12);
    EXPECT_EQ(j.scan_components, mono ? 1 : 3);
    EXPECT_EQ(j.h_sampling[0], mono ? 1 : 2);
    EXPECT_EQ(j.v_sampling[0], 1);
    EXPECT_EQ(j.spectral_end, 63);
  }

  // build_image: mode 3 copies the data into a buffer of dst's own; mode 4 leaves it
  // empty; a source without lines changes nothing.
  const uint32_t dst = VEK_JPEG_image_create();
  ASSERT_EQ(VEK_JPEG_build_image(a, dst, VEK_STRIP_NEXT), 0u);
  ASSERT_EQ(desc(dst)->data_length, desc(a)->data_length);
  EXPECT_NE(desc(dst)->data, desc(a)->data);
  EXPECT_EQ(desc(dst)->current, desc(dst)->data);
  EXPECT_EQ(std::memcmp(desc(dst)->data, desc(a)->data, desc(a)->data_length), 0);
  EXPECT_EQ(vek::jpeg::data_capacity(dst), desc(a)->data_length);  // made exact by the own-copy step
  EXPECT_EQ(VEK_get_width(dst), 40u);
  ASSERT_EQ(VEK_JPEG_build_image(a, dst, VEK_STRIP_END), 0u);
  EXPECT_EQ(desc(dst)->data_length, 0u);
  VEK_image_set_parameter(a, VEK_PARAM_STRIP_LINES, 0);
  VEK_image_set_parameter(dst, VEK_PARAM_WIDTH, 3);
  EXPECT_EQ(VEK_JPEG_build_image(a, dst, VEK_STRIP_NEXT), 0u);
  EXPECT_EQ(VEK_get_width(dst), 3u);
  rec.clear();
  EXPECT_EQ(VEK_JPEG_build_image(999, dst, VEK_STRIP_NEXT), VEK_ERROR_BAD_HANDLE);
  EXPECT_EQ(rec.last().message, "Input image does not exist");
  EXPECT_EQ(VEK_JPEG_build_image(a, 999, VEK_STRIP_NEXT), VEK_ERROR_BAD_HANDLE);
  EXPECT_EQ(rec.last().message, "Output image does not exist");
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(JpegTables, QuantisationFactorMatchesSinglePrecisionForEveryQ) {
  const uint32_t jpg = VEK_JPEG_image_create();
  for (uint32_t q = 2; q <= 800; ++q) {
    ASSERT_EQ(VEK_JPEG_set_Quantization_factor(jpg, q | 0x30000u), 0u);  // upper half ignored
    volatile float ratio = 50.0f / float(q);
    volatile float f = ratio * 16.0f;
    ASSERT_EQ(desc(jpg)->quality_factor, uint32_t(f)) << q;
  }
  // Steps that would round to 0 are raised to 1 and keep a valid reciprocal.
  ASSERT_EQ(VEK_JPEG_set_Quality_factor(jpg, 400), 0u);
  ASSERT_EQ(VEK_JPEG_make_Q_tables(jpg), 0u);
  for (int t = 0; t < 2; ++t)
    for (int k = 0; k < 64; ++k) {
      ASSERT_GE(desc(jpg)->q_table[t][k], 1);
      ASSERT_EQ(desc(jpg)->q_reciprocal[t][k], (desc(jpg)->q_table[t][k] / 2u + 65536u) / desc(jpg)->q_table[t][k]);
    }
  EXPECT_EQ(desc(jpg)->q_table[0][0], 1);  // 16 x 0.04 + 0.5 truncates to 1
  ASSERT_EQ(VEK_JPEG_Q_table_to_zero(jpg), 0u);
  for (int k = 0; k < 64; ++k) EXPECT_EQ(desc(jpg)->q_table[0][k] | desc(jpg)->q_table[1][k], 0);
  EXPECT_EQ(desc(jpg)->q_segment_length, 132);
  EXPECT_EQ(desc(jpg)->q_table_count, 2);
  VEK_image_destroy(jpg);
}

TEST(JpegWriters, SegmentOrderLengthsAndTheBufferWritersDifferences) {
  const std::string path = vektest::scratch_dir() + "layout.jpg";
  for (const uint32_t format : {uint32_t(VEK_Y8), uint32_t(VEK_YUV422)}) {
    const uint32_t jpg = compressed(format, 33, 17, 8);
    std::memcpy(desc(jpg)->comment, "thirty-two bytes of comment text", 32);
    VEK_image_set_outfilename(jpg, path.c_str());
    // The stream flag drops DHT from buffers only.
    VEK_image_set_flags(jpg, VEK_FLAG_STREAM, 1);
    ASSERT_EQ(VEK_JPEG_file_write(jpg), 0u);
    const std::vector<uint8_t> file = slurp(path);
    std::vector<uint8_t> buf(file.size() + 64);
    uint32_t n = 0;
    ASSERT_EQ(VEK_JPEG_buffer_write(jpg, buf.data(), uint32_t(buf.size()), &n), 0u);
    buf.resize(n);

    std::vector<uint8_t> file_data, buf_data;
    const std::vector<Segment> fs = segments(file, file_data);
    const std::vector<Segment> bs = segments(buf, buf_data);
    const std::vector<uint8_t> order = {0xE0, 0xFE, 0xDB, 0xC0, 0xC4, 0xDA};
    ASSERT_EQ(fs.size(), order.size());
    for (size_t i = 0; i < order.size(); ++i) EXPECT_EQ(fs[i].code, order[i]);
    ASSERT_EQ(bs.size(), order.size() - 1);
    EXPECT_EQ(bs[3].code, 0xC0);
    EXPECT_EQ(bs[4].code, 0xDA);
    EXPECT_EQ(file_data, buf_data);
    const Tjpeg& j = *desc(jpg);
    ASSERT_EQ(file_data.size(), j.data_length + 2u);
    EXPECT_EQ(std::memcmp(file_data.data(), j.data, j.data_length), 0);
    EXPECT_EQ(file_data[j.data_length], 0xFF);
    EXPECT_EQ(file_data[j.data_length + 1], 0xD9);

    EXPECT_EQ(std::string(fs[1].body.begin(), fs[1].body.begin() + 32), "thirty-two bytes of comment text");
    EXPECT_EQ(std::string(fs[1].body.begin() + 32, fs[1].body.end()), "Generated by Quillmark's VEK Library");
    EXPECT_EQ(std::string(bs[1].body.begin() + 32, bs[1].body.end()), "ZEL VEK");
    EXPECT_EQ(fs[0].body, bs[0].body);
    for (int i = 2; i < 4; ++i) EXPECT_EQ(fs[i].body, bs[i].body);
    EXPECT_EQ(fs[5].body, bs[4].body);

    // DQT: one segment, tables 0 and 1 in zigzag order.
    ASSERT_EQ(fs[2].body.size(), 130u);
    EXPECT_EQ(fs[2].body[0], 0);
    EXPECT_EQ(std::memcmp(&fs[2].body[1], j.q_table[0], 64), 0);
    EXPECT_EQ(fs[2].body[65], 1);
    // SOF0: precision, true height and width, components with sampling and selectors.
    const std::vector<uint8_t>& sof = fs[3].body;
    const size_t ns = format == VEK_Y8 ? 1 : 3;
    ASSERT_EQ(sof.size(), 6 + 3 * ns);
    EXPECT_EQ(sof[0], 8);
    EXPECT_EQ(sof[1] << 8 | sof[2], 17);
    EXPECT_EQ(sof[3] << 8 | sof[4], 33);
    EXPECT_EQ(sof[5], ns);
    if (ns == 3) {
      const std::vector<uint8_t> comps = {1, 0x21, 0, 2, 0x11, 1, 3, 0x11, 1};
      EXPECT_EQ(std::vector<uint8_t>(sof.begin() + 6, sof.end()), comps);
    }
    // DHT: all four tables, 416 bytes.
    EXPECT_EQ(fs[4].body.size(), 416u);
    EXPECT_EQ(fs[4].body[0], 0x00);
    EXPECT_EQ(fs[4].body[17 + 12], 0x01);
    EXPECT_EQ(fs[4].body[2 * 29], 0x10);
    EXPECT_EQ(fs[4].body[2 * 29 + 179], 0x11);
    // SOS: selectors 0x00 then 0x11, Ss 0, Se 63, Ah/Al 0.
    std::vector<uint8_t> sos = {uint8_t(ns), 1, 0x00};
    if (ns == 3) sos.insert(sos.end(), {2, 0x11, 3, 0x11});
    sos.insert(sos.end(), {0, 63, 0});
    EXPECT_EQ(fs[5].body, sos);
    VEK_image_destroy(jpg);
  }
}

// A grey stream from another writer has only tables 0x00 and 0x10, each in its own
// DHT segment: reading merges them, writing skips the absent slots and the lengths
// stay consistent with the bytes.
TEST(JpegWriters, TablesReadFromSeparateSegmentsAreWrittenBackWhole) {
  std::vector<uint8_t> s{0xFF, 0xD8};
  auto seg = [&](uint8_t marker, std::vector<uint8_t> body) {
    s.insert(s.end(), {0xFF, marker, uint8_t((body.size() + 2) >> 8), uint8_t(body.size() + 2)});
    s.insert(s.end(), body.begin(), body.end());
  };
  std::vector<uint8_t> q0{0};
  q0.resize(65, 3);
  seg(0xDB, q0);
  seg(0xC0, {8, 0, 8, 0, 8, 1, 1, 0x11, 0});
  for (const int t : {0, 2}) {
    std::vector<uint8_t> body{uint8_t(t == 0 ? 0x00 : 0x10)};
    body.insert(body.end(), vek::jpeg::kStdBits[t], vek::jpeg::kStdBits[t] + 16);
    body.insert(body.end(), vek::jpeg::kStdValues[t], vek::jpeg::kStdValues[t] + vek::jpeg::kStdValueCount[t]);
    seg(0xC4, body);
  }
  seg(0xDA, {1, 1, 0, 0, 63, 0});
  s.insert(s.end(), {0x12, 0x34, 0xFF, 0xD9});

  const uint32_t jpg = VEK_JPEG_image_create();
  ASSERT_EQ(VEK_JPEG_buffer_read(jpg, s.data(), uint32_t(s.size())), 0u);
  const Tjpeg& j = *desc(jpg);
  EXPECT_EQ(j.h_table_id[0], 0x00);
  EXPECT_EQ(j.h_table_id[1], 255);
  EXPECT_EQ(j.h_table_id[2], 0x10);
  EXPECT_EQ(j.h_table_id[3], 255);
  EXPECT_EQ(j.h_table_id[4], 255);
  EXPECT_EQ(j.h_segment_length, 29 + 179);

  std::vector<uint8_t> out(2048);
  uint32_t n = 0;
  ASSERT_EQ(VEK_JPEG_buffer_write(jpg, out.data(), uint32_t(out.size()), &n), 0u);
  out.resize(n);
  std::vector<uint8_t> data;
  const std::vector<Segment> segs = segments(out, data);
  ASSERT_EQ(segs.size(), 6u);
  EXPECT_EQ(segs[4].code, 0xC4);
  EXPECT_EQ(segs[4].body.size(), 29u + 179u);
  EXPECT_EQ(segs[4].body[29], 0x10);
  EXPECT_EQ(data, std::vector<uint8_t>({0x12, 0x34, 0xFF, 0xD9}));
  // Read back, the rewritten stream gives the same tables.
  const uint32_t back = VEK_JPEG_image_create();
  ASSERT_EQ(VEK_JPEG_buffer_read(back, out.data(), n), 0u);
  EXPECT_EQ(std::memcmp(desc(back)->h_table_id, j.h_table_id, sizeof j.h_table_id), 0);
  EXPECT_EQ(std::memcmp(desc(back)->h_values, j.h_values, sizeof j.h_values), 0);
  EXPECT_EQ(std::memcmp(desc(back)->q_table[0], j.q_table[0], 64), 0);
  VEK_image_destroy(VEK_ALL_IMAGES);
}

// A minimal valid grey stream, for splicing hostile segments into.
std::vector<uint8_t> grey_stream(const std::vector<uint8_t>& before_sos = {}) {
  std::vector<uint8_t> s{0xFF, 0xD8, 0xFF, 0xDB, 0x00, 0x43, 0x00};
  s.resize(s.size() + 64, 2);
  s.insert(s.end(), {0xFF, 0xC0, 0x00, 0x0B, 8, 0, 8, 0, 8, 1, 1, 0x11, 0});
  s.insert(s.end(), before_sos.begin(), before_sos.end());
  s.insert(s.end(), {0xFF, 0xDA, 0x00, 0x08, 1, 1, 0, 0, 63, 0, 0xAB, 0xCD, 0xFF, 0xD9});
  return s;
}

TEST(JpegReaders, HostileSegmentsGiveTheDescribedErrorsInBufferAndFile) {
  vektest::ErrorRecorder rec;
  const uint32_t jpg = VEK_JPEG_image_create();
  const std::string path = vektest::scratch_dir() + "hostile.jpg";
  struct Case {
    const char* name;
    std::vector<uint8_t> bytes;
    uint32_t buffer_code;  // the file readers report the end of input as "of file"
    const char* buffer_message;
  };
  auto cut = [](std::vector<uint8_t> v, size_t keep) {
    v.resize(keep);
    return v;
  };
  const std::vector<uint8_t> ok = grey_stream();
  const Case cases[] = {
      {"APP0 longer than the stream", {0xFF, 0xD8, 0xFF, 0xE0, 0xFF, 0xF0, 1, 2, 3}, 0x10050000,
       "Unexpected end of JPEG stream"},
      {"COM longer than the stream", {0xFF, 0xD8, 0xFF, 0xFE, 0x01, 0x00, 'a', 'b', 'c'}, 0x10050000,
       "Unexpected end of JPEG stream"},
      {"DQT cut inside a table", cut(ok, 40), 0x10050000, "Unexpected end of JPEG stream"},
      {"SOF cut inside a component", cut(ok, 2 + 69 + 10), 0x10050000, "Unexpected end of JPEG stream"},
      {"DHT counts beyond the stream", {0xFF, 0xD8, 0xFF, 0xC4, 0x00, 0x13, 0x00, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x10, 1},
       0x10050000, "Unexpected end of JPEG stream"},
      {"DQT selector above 3", grey_stream({0xFF, 0xDB, 0x00, 0x43, 0x07}), 0x10070000,
       "Quantization table number out of range"},
      {"APP1", grey_stream({0xFF, 0xE1, 0x00, 0x08, 'E', 'x', 'i', 'f', 0, 0}), 0x100700E1,
       "Unrecognised marker detected"},
      {"DNL-style marker", grey_stream({0xFF, 0xDC, 0x00, 0x04, 0x00, 0x08}), 0x100700DC,
       "Unrecognised marker detected"},
      {"two components", {0xFF, 0xD8, 0xFF, 0xC0, 0x00, 0x0E, 8, 0, 8, 0, 8, 2, 1, 0x11, 0, 2, 0x11, 1}, 0x10070000,
       "Unsupported image depth"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    rec.clear();
    EXPECT_EQ(VEK_JPEG_buffer_read(jpg, c.bytes.data(), uint32_t(c.bytes.size())), c.buffer_code);
    ASSERT_EQ(rec.count(), 1u);
    EXPECT_EQ(rec.last().function, "VEK_JPEG_buffer_read");
    EXPECT_EQ(rec.last().message, c.buffer_message);
    spill(path, c.bytes);
    VEK_image_set_infilename(jpg, path.c_str());
    const std::string file_message = c.buffer_code == 0x10050000 ? "Unexpected end of file" : c.buffer_message;
    for (const bool open : {false, true}) {
      rec.clear();
      EXPECT_EQ(open ? VEK_JPEG_file_open(jpg) : VEK_JPEG_file_read(jpg), c.buffer_code);
      ASSERT_EQ(rec.count(), 1u);
      EXPECT_EQ(rec.last().message, file_message);
      EXPECT_EQ(VEK_JPEG_get_file_ptr(jpg), nullptr);  // closed on failure
    }
  }
  // Lengths too small to hold their own fields never underflow into huge skips.
  for (const uint8_t marker : {0xE0, 0xFE, 0xDB, 0xC4, 0xC0, 0xDA, 0xDD}) {
    for (const uint8_t len : {0, 1, 2, 3}) {
      const std::vector<uint8_t> s = {0xFF, 0xD8, 0xFF, marker, 0x00, len, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
      rec.clear();
      const uint32_t r = VEK_JPEG_buffer_read(jpg, s.data(), uint32_t(s.size()));
      if (VEK_IS_ERROR(r)) {
        EXPECT_EQ(rec.count(), 1u);
      }
    }
  }
  // The valid stream itself reads in all three readers.
  spill(path, ok);
  EXPECT_EQ(VEK_JPEG_buffer_read(jpg, ok.data(), uint32_t(ok.size())), 0u);
  EXPECT_EQ(desc(jpg)->data_length, 2u);
  EXPECT_EQ(VEK_JPEG_file_read(jpg), 0u);
  EXPECT_EQ(desc(jpg)->data_length, 2u);
  EXPECT_EQ(VEK_JPEG_get_parameter(jpg, VEK_JPEG_HEADER_LENGTH), uint32_t(ok.size() - 4));
  EXPECT_EQ(VEK_JPEG_file_open(jpg), 0u);
  EXPECT_EQ(desc(jpg)->data, nullptr);
  EXPECT_EQ(std::ftell(VEK_JPEG_get_file_ptr(jpg)), long(ok.size() - 4));
  VEK_JPEG_file_close(jpg);
  VEK_image_destroy(jpg);
}

TEST(JpegReaders, CommentsEndOfImageAndTinyBuffers) {
  vektest::ErrorRecorder rec;
  const uint32_t jpg = VEK_JPEG_image_create();
  // COM: the buffer reader keeps the first 32 bytes, the file readers skip it.
  std::vector<uint8_t> com = {0xFF, 0xFE, 0x00, 0x28};
  const std::string text = "0123456789abcdefghijklmnopqrstuvwxyz!!";
  com.insert(com.end(), text.begin(), text.end());
  const std::vector<uint8_t> s = grey_stream(com);
  ASSERT_EQ(VEK_JPEG_buffer_read(jpg, s.data(), uint32_t(s.size())), 0u);
  EXPECT_EQ(std::string(desc(jpg)->comment, desc(jpg)->comment + 32), text.substr(0, 32));
  std::memset(desc(jpg)->comment, ' ', 32);
  const std::string path = vektest::scratch_dir() + "com.jpg";
  spill(path, s);
  VEK_image_set_infilename(jpg, path.c_str());
  ASSERT_EQ(VEK_JPEG_file_read(jpg), 0u);
  EXPECT_EQ(desc(jpg)->comment[0], ' ');

  // EOI: the buffer reader goes on past it (a later COM still lands), file_open
  // closes the file when it meets EOI before any scan.
  std::vector<uint8_t> late = {0xFF, 0xD8, 0xFF, 0xD9, 0xFF, 0xFE, 0x00, 0x05, 'L', 'A', 'T'};
  ASSERT_EQ(VEK_JPEG_buffer_read(jpg, late.data(), uint32_t(late.size())), 0u);
  EXPECT_EQ(std::memcmp(desc(jpg)->comment, "LAT", 3), 0);
  spill(path, late);
  EXPECT_EQ(VEK_JPEG_file_open(jpg), 0u);
  EXPECT_EQ(VEK_JPEG_get_file_ptr(jpg), nullptr);

  // 1..3 bytes: only the SOI bytes present are checked; no buffer at all is refused.
  const uint8_t tiny[3] = {0xFF, 0xD8, 0x00};
  for (uint32_t n = 1; n <= 3; ++n) EXPECT_EQ(VEK_JPEG_buffer_read(jpg, tiny, n), 0u) << n;
  rec.clear();
  EXPECT_EQ(VEK_JPEG_buffer_read(jpg, nullptr, 10), VEK_ERROR_OPEN_FAILED);
  EXPECT_TRUE(rec.only("VEK_JPEG_buffer_read", VEK_ERROR_OPEN_FAILED, "No buffer to read from"));
  rec.clear();
  VEK_image_set_infilename(jpg, (vektest::scratch_dir() + "missing/none.jpg").c_str());
  EXPECT_EQ(VEK_JPEG_file_read(jpg), VEK_ERROR_OPEN_FAILED);
  EXPECT_TRUE(rec.only("VEK_JPEG_file_read", VEK_ERROR_OPEN_FAILED, "Failed to open JPEG file"));
  rec.clear();
  VEK_image_set_outfilename(jpg, (vektest::scratch_dir() + "missing/none.jpg").c_str());
  EXPECT_EQ(VEK_JPEG_file_write(jpg), VEK_ERROR_OPEN_FAILED);
  EXPECT_TRUE(rec.only("VEK_JPEG_file_write", VEK_ERROR_OPEN_FAILED, "Failed to create file"));
  const uint32_t raster = VEK_image_create();
  rec.clear();
  EXPECT_EQ(VEK_JPEG_file_open(raster), VEK_ERROR_OPEN_FAILED);
  EXPECT_TRUE(rec.only("VEK_JPEG_file_open", VEK_ERROR_OPEN_FAILED, "The VEK image handle refers to a non-JPEG image"));
  VEK_image_destroy(VEK_ALL_IMAGES);
}

TEST(JpegSequences, FramesOfAnOpenFileAndFrameZero) {
  vektest::ErrorRecorder rec;
  // Three frames of distinct bytes separated by RST0, one stuffed 0xFF in frame 1.
  const std::vector<uint8_t> f1 = {0x11, 0xFF, 0x00, 0x12}, f2 = {0x21, 0x22, 0x23}, f3 = {0x31};
  std::vector<uint8_t> data = f1;
  for (const auto* f : {&f2, &f3}) {
    data.insert(data.end(), {0xFF, 0xD0});
    data.insert(data.end(), f->begin(), f->end());
  }
  std::vector<uint8_t> s = grey_stream();
  s.resize(s.size() - 4);
  const size_t header = s.size();
  s.insert(s.end(), data.begin(), data.end());
  s.insert(s.end(), {0xFF, 0xD9});
  const std::string path = vektest::scratch_dir() + "frames.jpg";
  spill(path, s);

  const uint32_t seq = VEK_JPEG_image_create();
  VEK_image_set_infilename(seq, path.c_str());
  ASSERT_EQ(VEK_JPEG_file_open(seq), 0u);
  ASSERT_EQ(VEK_JPEG_sequence_calc_length(seq), 0u);
  EXPECT_EQ(VEK_image_get_parameter(seq, VEK_PARAM_18), 3u);
  EXPECT_EQ(std::ftell(VEK_JPEG_get_file_ptr(seq)), long(header));  // position restored
  const uint32_t out = VEK_JPEG_image_create();
  const std::vector<uint8_t> want[3] = {
      [&] { auto v = f1; v.insert(v.end(), {0xFF, 0xD0}); return v; }(),
      [&] { auto v = f2; v.insert(v.end(), {0xFF, 0xD0}); return v; }(), f3};
  for (uint32_t n = 3; n >= 1; --n) {
    ASSERT_EQ(VEK_JPEG_sequence_extract_frame(seq, out, n), 0u) << n;
    const Tjpeg& o = *desc(out);
    EXPECT_EQ(std::vector<uint8_t>(o.data, o.data + o.data_length), want[n - 1]) << n;
    EXPECT_EQ(VEK_image_get_parameter(out, VEK_PARAM_18), 1u);
    EXPECT_EQ(VEK_get_width(out), 8u);
  }
  ASSERT_EQ(VEK_JPEG_sequence_set_start_frame(seq, 1), 0u);
  EXPECT_EQ(std::ftell(VEK_JPEG_get_file_ptr(seq)), long(header));
  EXPECT_EQ(VEK_image_get_parameter(seq, VEK_PARAM_19), 1u);
  ASSERT_EQ(VEK_JPEG_sequence_set_start_frame(seq, 3), 0u);
  EXPECT_EQ(std::ftell(VEK_JPEG_get_file_ptr(seq)), long(header + f1.size() + f2.size() + 4));
  EXPECT_EQ(VEK_image_get_parameter(seq, VEK_PARAM_19), 3u);

  // Frame 0 is refused by both positioning operations, in a file and in memory.
  rec.clear();
  EXPECT_EQ(VEK_JPEG_sequence_extract_frame(seq, out, 0), VEK_ERROR_BAD_PARAMETER);
  EXPECT_EQ(rec.last().function, "VEK_sequence_JPEG_extract_frame");
  EXPECT_EQ(VEK_JPEG_sequence_set_start_frame(seq, 0), VEK_ERROR_BAD_PARAMETER);
  ASSERT_EQ(VEK_JPEG_file_close(seq), 0u);
  ASSERT_EQ(VEK_JPEG_file_read(seq), 0u);
  EXPECT_EQ(VEK_image_get_parameter(seq, VEK_PARAM_18), 3u);  // each restart marker read counts a strip
  EXPECT_EQ(VEK_JPEG_sequence_set_start_frame(seq, 0), VEK_ERROR_BAD_PARAMETER);
  EXPECT_EQ(VEK_JPEG_sequence_extract_frame(seq, out, 0), VEK_ERROR_BAD_PARAMETER);

  // Own-copy step of sequence_build: a fresh buffer of exactly the data length.
  uint8_t* const before = desc(seq)->data;
  ASSERT_EQ(VEK_JPEG_sequence_build(0, seq), 0u);
  EXPECT_NE(desc(seq)->data, before);
  EXPECT_EQ(std::vector<uint8_t>(desc(seq)->data, desc(seq)->data + desc(seq)->data_length), data);
  EXPECT_EQ(vek::jpeg::data_capacity(seq), data.size());
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
  rec.clear();
  EXPECT_EQ(VEK_JPEG_sequence_calc_length(999), VEK_ERROR_BAD_HANDLE);
  EXPECT_TRUE(rec.only("VEK_JPEG_sequence_calc_length", VEK_ERROR_BAD_HANDLE, ""));
  VEK_image_destroy(VEK_ALL_IMAGES);
}

}  // namespace
