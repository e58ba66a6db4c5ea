// Format detection, the read/write dispatch and the raw writer.
#include "helpers.h"

using namespace filetest;

TEST(Detect, DetectionDispatchAndWriterRefusals) {
  const std::string path = scratch("detect.bin");
  struct Case { std::vector<uint8_t> bytes; uint32_t format; };
  for (const Case& c : std::vector<Case>{
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
       }) {
    write_file(path, c.bytes);
    EXPECT_EQ(VEK_image_find_file_format(path.c_str()), c.format) << c.bytes.size() << " bytes";
  }
  vektest::ErrorRecorder rec;
  EXPECT_EQ(VEK_image_find_file_format("/nonexistent/x"), 0x10090000u);
  EXPECT_TRUE(rec.only("VEK_image_find_file_format", 0x10090000u, "Failed to open file"));

  // The dispatch: nothing reads an unknown file (detection is the only way in), a
  // detection failure is reported again, and no writer serves an unknown code.
  Image h(VEK_image_create());
  VEK_image_set_infilename(h, path.c_str());  // the empty file
  for (uint32_t format : {0u, uint32_t(VEK_FILE_TIFF)}) {
    rec.clear();
    EXPECT_EQ(VEK_image_read(h, format, 3), 0x10070000u);
    EXPECT_TRUE(rec.only("VEK_image_read", 0x10070000u, "Unsupported/unrecognized image format"));
  }
  rec.clear();
  VEK_image_set_infilename(h, "/nonexistent/x");
  EXPECT_EQ(VEK_image_read(h, 0, 3), 0x10090000u);
  ASSERT_EQ(rec.count(), 2u);
  EXPECT_EQ(rec.last().message, "Failed to recognise file format");
  for (uint32_t format : {0u, 1u, 2u, 4u, 7u, 12u}) {
    rec.clear();
    EXPECT_EQ(VEK_image_write(h, 0, format, 3), 0x10070000u);
    EXPECT_TRUE(rec.only("VEK_image_write", 0x10070000u, "Unsupported/unrecognized image format"));
  }
  // Each writer refuses the formats its files cannot hold.
  struct Case2 { uint32_t file, format; const char* function; uint32_t code; };
  for (const Case2& c : {Case2{VEK_FILE_BMP, VEK_Y16, "VEK_write_BMP_file", 0x1007000E},
                         Case2{VEK_FILE_TIFF, VEK_RGB16, "VEK_write_TIFF_file", 0x10070006},
                         Case2{VEK_FILE_EPS, VEK_RGB16, "VEK_write_EPS_file", 0x10070006},
                         Case2{VEK_FILE_RAW, VEK_CMYK32, "VEK_write_raw_data", 0x10070000}}) {
    rec.clear();
    Image img(vektest::make_image(c.format, 4, 4));
    EXPECT_EQ(write_image(img, c.file, scratch("refused.out")), c.code) << c.function;
    EXPECT_TRUE(rec.only(c.function, c.code, "Unsupported image format"));
  }
}

TEST(Raw, WritesThePixelStreamAsDescribed) {
  const std::string path = scratch("out.raw");
  vektest::ErrorRecorder rec;
  Image y8(filled(VEK_Y8, 4, 3, 1, 1)), y16(filled(VEK_Y16, 3, 2, 7)), rgb(filled(VEK_RGB24, 3, 3, 2, 4));
  ASSERT_EQ(write_image(y8, VEK_FILE_RAW, path), 0u);
  EXPECT_EQ(read_file(path), vektest::random_bytes(12, 1));
  EXPECT_EQ(VEK_write_raw_data_file(y8, 4), 0u);  // mode 4 creates the file anew, empty
  EXPECT_EQ(read_file(path).size(), 0u);
  // A strip of more lines than the picture is cut to the height and ends the file.
  VEK_image_set_parameter(y8, VEK_PARAM_HEIGHT, 2);
  ASSERT_EQ(write_image(y8, VEK_FILE_RAW, path), 0u);
  EXPECT_EQ(param(y8, VEK_PARAM_STRIP_LINES), 2u);
  EXPECT_EQ(read_file(path), vektest::random_bytes(8, 1));

  // 16-bit formats go out as little-endian words.
  ASSERT_EQ(write_image(y16, VEK_FILE_RAW, path), 0u);
  const auto* words = reinterpret_cast<const uint16_t*>(data(y16));
  std::vector<uint8_t> want;
  for (int i = 0; i < 6; ++i) want.insert(want.end(), {uint8_t(words[i]), uint8_t(words[i] >> 8)});
  EXPECT_EQ(read_file(path), want);

  // Padded lines: each written whole, then the walk skips the padding once more;
  // what lies past the strip comes out as zeros.
  ASSERT_EQ(write_image(rgb, VEK_FILE_RAW, path), 0u);  // 9 bytes + 3 padding a line
  want.assign(data(rgb), data(rgb) + 12);
  want.insert(want.end(), data(rgb) + 15, data(rgb) + 27);
  want.insert(want.end(), data(rgb) + 30, data(rgb) + 36);
  want.resize(36, 0);
  EXPECT_EQ(read_file(path), want);

  // Regression: the writer kept a count of lines across calls, so an image written
  // after a partial strip had its own strip cut down to what that count left over.
  Image part(vektest::make_image(VEK_Y8, 4, 6, 2, 1)), next(filled(VEK_Y8, 4, 3, 8, 1));  // two of six lines
  VEK_image_set_outfilename(part, path.c_str());
  for (int call = 0; call < 2; ++call) {  // file left open, then opened anew: 2 lines each time
    EXPECT_EQ(VEK_write_raw_data_file(part, VEK_STRIP_NEXT), 0u);
    EXPECT_EQ(param(part, VEK_PARAM_STRIP_LINES), 2u);
  }
  ASSERT_EQ(write_image(next, VEK_FILE_RAW, path), 0u);
  EXPECT_EQ(read_file(path), vektest::random_bytes(12, 8));
  EXPECT_EQ(rec.count(), 0u);
}
