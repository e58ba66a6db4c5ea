// Format detection, the read/write dispatch and the raw writer.
#include "helpers.h"

using namespace filetest;

TEST(Detect, FirstBytesDecideTheFormat) {
  const std::string path = scratch("detect.bin");
  struct Case {
    std::vector<uint8_t> bytes;
    uint32_t format;
  };
  const std::vector<Case> cases{
      {{'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0, 0, 1, 3, 0, 1, 0, 0, 0}, VEK_FILE_TIFF},
      {{'M', 'M', 0, 42, 0, 0, 0, 8, 0, 1, 1, 0, 0, 11, 0, 0, 0, 1}, VEK_FILE_TIFF},
      {{'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0, 0, 1, 12, 0, 1, 0, 0, 0}, VEK_FILE_UNKNOWN},  // field type 12
      {{'I', 'I', 42, 0, 0xFF, 0xFF, 0, 0}, VEK_FILE_UNKNOWN},                          // directory past the end
      {{0xFF, 0xD8, 0xFF, 0xE0}, VEK_FILE_JPEG},
      {{'%', '!', 'P', 'S', '-'}, VEK_FILE_EPS},
      {{'B', 'M', 1, 2, 3, 4, 0, 0, 0, 0, 54}, VEK_FILE_BMP},
      {{'B', 'M', 1, 2, 3, 4, 0, 0, 0, 1, 54}, VEK_FILE_UNKNOWN},
      {{'B', 'M'}, VEK_FILE_UNKNOWN},
      {{}, VEK_FILE_UNKNOWN},
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    write_file(path, cases[i].bytes);
    EXPECT_EQ(VEK_image_find_file_format(path.c_str()), cases[i].format) << i;
  }
  vektest::ErrorRecorder rec;
  EXPECT_EQ(VEK_image_find_file_format("/nonexistent/x"), 0x10090000u);
  EXPECT_TRUE(rec.only("VEK_image_find_file_format", 0x10090000u, "Failed to open file"));
}

TEST(Detect, DispatchRefusesWhatNoReaderOrWriterServes) {
  const std::string path = scratch("dispatch.bin");
  write_file(path, {'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0, 0, 1, 12, 0});
  vektest::ErrorRecorder rec;
  uint32_t h = VEK_image_create();
  VEK_image_set_infilename(h, path.c_str());
  EXPECT_EQ(VEK_image_read(h, 0, 3), 0x10070000u);
  EXPECT_TRUE(rec.only("VEK_image_read", 0x10070000u, "Unsupported/unrecognized image format"));
  rec.clear();
  EXPECT_EQ(VEK_image_read(h, VEK_FILE_TIFF, 3), 0x10070000u);  // detection is the only way in
  rec.clear();
  VEK_image_set_infilename(h, "/nonexistent/x");
  EXPECT_EQ(VEK_image_read(h, 0, 3), 0x10090000u);
  ASSERT_EQ(rec.count(), 2u);  // detection reports, and the read reports it again
  EXPECT_EQ(rec.last().message, "Failed to recognise file format");
  for (uint32_t format : {0u, 1u, 2u, 4u, 7u, 12u}) {
    rec.clear();
    EXPECT_EQ(VEK_image_write(h, 0, format, 3), 0x10070000u);
    EXPECT_TRUE(rec.only("VEK_image_write", 0x10070000u, "Unsupported/unrecognized image format"));
  }
  VEK_image_destroy(h);
}

TEST(Raw, WritesThePixelStreamAsDescribed) {
  const std::string path = scratch("out.raw");
  vektest::ErrorRecorder rec;
  uint32_t h = vektest::make_image(VEK_Y8, 4, 2, 0, 1);
  vektest::fill_random(h, 1);
  ASSERT_EQ(write_image(h, VEK_FILE_RAW, path), 0u);
  EXPECT_EQ(read_file(path), vektest::random_bytes(8, 1));
  EXPECT_EQ(VEK_write_raw_data_file(h, 4), 0u);  // mode 4 creates the file anew, empty
  EXPECT_EQ(read_file(path).size(), 0u);
  VEK_image_destroy(h);

  // 16-bit formats go out as little-endian words.
  h = vektest::make_image(VEK_Y16, 3, 2);
  auto* w = reinterpret_cast<uint16_t*>(data(h));
  for (int i = 0; i < 6; ++i) w[i] = uint16_t(0x0102 * (i + 1));
  ASSERT_EQ(write_image(h, VEK_FILE_RAW, path), 0u);
  const auto raw = read_file(path);
  ASSERT_EQ(raw.size(), 12u);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(le16(raw, 2 * i), 0x0102u * (i + 1));
  VEK_image_destroy(h);

  // Padded lines: each written whole, then the walk skips the padding once more;
  // what lies past the strip comes out as zeros.
  h = vektest::make_image(VEK_RGB24, 3, 3, 0, 4);  // 9 bytes + 3 padding a line
  vektest::fill_random(h, 2);
  ASSERT_EQ(write_image(h, VEK_FILE_RAW, path), 0u);
  std::vector<uint8_t> want(data(h), data(h) + 12);
  want.insert(want.end(), data(h) + 15, data(h) + 27);
  want.insert(want.end(), data(h) + 30, data(h) + 36);
  want.resize(36, 0);
  EXPECT_EQ(read_file(path), want);
  VEK_image_destroy(h);
  EXPECT_EQ(rec.count(), 0u);

  h = vektest::make_image(VEK_CMYK32, 2, 2);
  EXPECT_EQ(write_image(h, VEK_FILE_RAW, path), 0x10070000u);
  EXPECT_TRUE(rec.only("VEK_write_raw_data", 0x10070000u, "Unsupported image format"));
  VEK_image_destroy(h);
}

// Regression: the raw writer kept a count of lines across calls, so an image written
// after a partial strip had its own strip cut down to what that count left over.
TEST(Raw, PartialStripDoesNotShortenTheNextImage) {
  const std::string path = scratch("partial.raw");
  vektest::ErrorRecorder rec;
  uint32_t a = vektest::make_image(VEK_Y8, 4, 6, 2, 1);  // two of six lines
  VEK_image_set_outfilename(a, path.c_str());
  for (int call = 0; call < 2; ++call) {  // file left open, then opened anew: 2 lines each time
    EXPECT_EQ(VEK_write_raw_data_file(a, VEK_STRIP_NEXT), 0u);
    EXPECT_EQ(param(a, VEK_PARAM_STRIP_LINES), 2u);
  }
  uint32_t b = vektest::make_image(VEK_Y8, 4, 3, 0, 1);
  vektest::fill_random(b, 8);
  ASSERT_EQ(write_image(b, VEK_FILE_RAW, path), 0u);
  EXPECT_EQ(read_file(path), vektest::random_bytes(12, 8));
  // A strip of more lines than the picture is cut to the height and ends the file.
  VEK_image_set_parameter(b, VEK_PARAM_HEIGHT, 2);
  ASSERT_EQ(write_image(b, VEK_FILE_RAW, path), 0u);
  EXPECT_EQ(param(b, VEK_PARAM_STRIP_LINES), 2u);
  EXPECT_EQ(read_file(path), vektest::random_bytes(8, 8));
  EXPECT_EQ(rec.count(), 0u);
  VEK_image_destroy(a);
  VEK_image_destroy(b);
}
