// vek demo: the capture pipeline on built-in data — a test-pattern frame produced
// strip by strip, a synthetic colour picture written in every file format and read
// back, JPEG compression, a JPEG frame sequence, and a Bayer mosaic round trip.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "tools/commands.h"
#include "vek.h"

#define DEMO_CHECK(expr)                                                   \
  do {                                                                     \
    uint32_t status_ = (expr);                                             \
    if (VEK_IS_ERROR(status_)) {                                           \
      std::fprintf(stderr, "demo: %s failed: 0x%08x\n", #expr, status_);    \
      return 1;                                                            \
    }                                                                      \
  } while (0)

namespace {

constexpr uint32_t kWidth = 320, kHeight = 240;

// A 640 x 480 grey frame produced strip by strip by the test-pattern producer, as a
// frame grabber would hand over its lines.
int demo_test_pattern() {
  const uint32_t h = VEK_image_create();
  DEMO_CHECK(h);
  DEMO_CHECK(VEK_image_set_parameter(h, VEK_PARAM_FORMAT, VEK_Y8));
  DEMO_CHECK(VEK_image_set_parameter(h, VEK_PARAM_WIDTH, 640));
  DEMO_CHECK(VEK_image_set_parameter(h, VEK_PARAM_HEIGHT, 480));
  DEMO_CHECK(VEK_image_set_parameter(h, VEK_PARAM_STRIP_LINES, 64));
  DEMO_CHECK(VEK_image_check(h));
  DEMO_CHECK(VEK_image_malloc_a_strip(h));
  print_image("test pattern frame", h);
  const uint32_t strips = VEK_image_calc_total_strips(h);
  uint64_t checksum = 0;
  for (uint32_t s = 0; s < strips; ++s) {
    DEMO_CHECK(VEK_test_pattern(h, VEK_STRIP_NEXT));
    const auto* data = static_cast<const uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA));
    const uint32_t lines = VEK_image_get_parameter(h, VEK_PARAM_STRIP_LINES);
    const uint32_t bpl = VEK_image_get_parameter(h, VEK_PARAM_BYTES_PER_LINE);
    for (uint32_t i = 0; i < lines * bpl; ++i) checksum += data[i];
  }
  std::printf("  %u strips of 64 lines, the last trimmed to %u; byte sum %llu\n", strips,
              VEK_image_get_parameter(h, VEK_PARAM_STRIP_LINES), static_cast<unsigned long long>(checksum));
  VEK_image_destroy(h);
  return 0;
}

// The built-in colour picture: ramps in red and green, a blue disc, a grey frame.
uint32_t make_picture() {
  const uint32_t h = VEK_image_create();
  if (VEK_IS_ERROR(h)) return h;
  VEK_image_set_parameter(h, VEK_PARAM_FORMAT, VEK_RGB24);
  VEK_image_set_parameter(h, VEK_PARAM_WIDTH, kWidth);
  VEK_image_set_parameter(h, VEK_PARAM_HEIGHT, kHeight);
  VEK_image_set_parameter(h, VEK_PARAM_STRIP_LINES, kHeight);
  uint32_t status = VEK_image_malloc_a_strip(h);
  if (VEK_IS_ERROR(status)) return status;
  auto* d = static_cast<uint8_t*>(VEK_image_get_ptr(h, VEK_PTR_DATA));
  const uint32_t bpl = VEK_image_get_parameter(h, VEK_PARAM_BYTES_PER_LINE);
  for (uint32_t y = 0; y < kHeight; ++y)
    for (uint32_t x = 0; x < kWidth; ++x) {
      uint8_t* p = d + size_t(y) * bpl + 3 * x;
      const double dx = double(x) - 200, dy = double(y) - 110;
      const bool disc = dx * dx + dy * dy < 60.0 * 60.0;
      const bool frame = x < 6 || y < 6 || x >= kWidth - 6 || y >= kHeight - 6;
      p[0] = frame ? 128 : uint8_t(x * 255 / (kWidth - 1));
      p[1] = frame ? 128 : uint8_t(y * 255 / (kHeight - 1));
      p[2] = frame ? 128 : disc ? 230 : 40;
    }
  return h;
}

// How far two RGB24 pictures of the demo's size are apart.
struct Difference {
  int largest;
  double psnr;  // dB; 99 for identical pictures
};

Difference compare(uint32_t a, uint32_t b) {
  const auto* pa = static_cast<const uint8_t*>(VEK_image_get_ptr(a, VEK_PTR_DATA));
  const auto* pb = static_cast<const uint8_t*>(VEK_image_get_ptr(b, VEK_PTR_DATA));
  const uint32_t la = VEK_image_get_parameter(a, VEK_PARAM_BYTES_PER_LINE);
  const uint32_t lb = VEK_image_get_parameter(b, VEK_PARAM_BYTES_PER_LINE);
  Difference diff{0, 99.0};
  double sum = 0;
  for (uint32_t y = 0; y < kHeight; ++y)
    for (uint32_t i = 0; i < 3 * kWidth; ++i) {
      const int d = int(pa[size_t(y) * la + i]) - int(pb[size_t(y) * lb + i]);
      diff.largest = std::max(diff.largest, std::abs(d));
      sum += double(d) * d;
    }
  const double mse = sum / (3.0 * kWidth * kHeight);
  if (mse > 0) diff.psnr = 10.0 * std::log10(255.0 * 255.0 / mse);
  return diff;
}

int demo_files(const std::string& dir) {
  struct Target {
    const char* name;
    uint32_t kind;
    bool lzw;
  };
  const Target targets[] = {{"picture.bmp", VEK_FILE_BMP, false},
                            {"picture.tif", VEK_FILE_TIFF, false},
                            {"picture-lzw.tif", VEK_FILE_TIFF, true},
                            {"picture.eps", VEK_FILE_EPS, false},
                            {"picture.raw", VEK_FILE_RAW, false}};
  const uint32_t original = make_picture();
  DEMO_CHECK(original);
  print_image("colour picture", original);
  for (const Target& t : targets) {
    uint32_t h = VEK_image_create();
    DEMO_CHECK(h);
    DEMO_CHECK(VEK_image_copy(original, h));
    const std::string path = dir + "/" + t.name;
    DEMO_CHECK(save_picture(&h, path, t.kind, t.lzw, 0));
    std::printf("  wrote %-16s %8ju bytes", t.name, static_cast<uintmax_t>(std::filesystem::file_size(path)));
    if (t.kind != VEK_FILE_RAW) {
      uint32_t back = 0;
      DEMO_CHECK(load_picture(path, &back));
      DEMO_CHECK(convert_picture(&back, VEK_RGB24));
      std::printf(", read back as %s, largest difference %d", format_name(VEK_image_get_parameter(back, VEK_PARAM_FORMAT)).c_str(),
                  compare(original, back).largest);
      VEK_image_destroy(back);
    }
    std::printf("\n");
    VEK_image_destroy(h);
  }
  VEK_image_destroy(original);
  return 0;
}

int demo_jpeg(const std::string& dir) {
  const uint32_t picture = make_picture();
  DEMO_CHECK(picture);
  const uint32_t jpeg = VEK_JPEG_image_create();
  DEMO_CHECK(jpeg);
  DEMO_CHECK(VEK_JPEG_compress(picture, jpeg));
  const auto* t = static_cast<const Tjpeg*>(VEK_image_get_ptr(jpeg, VEK_PTR_JPEG));
  std::printf("  compressed %ux%u RGB24 (%u bytes) to %u bytes of entropy-coded data\n", kWidth, kHeight,
              kWidth * kHeight * 3, t->data_length);
  const std::string path = dir + "/picture.jpg";
  DEMO_CHECK(VEK_image_set_outfilename(jpeg, path.c_str()));
  DEMO_CHECK(VEK_image_write(jpeg, 0, VEK_FILE_JPEG, VEK_STRIP_NEXT));
  uint32_t back = 0;
  DEMO_CHECK(load_picture(path, &back));
  DEMO_CHECK(convert_picture(&back, VEK_RGB24));
  std::printf("  wrote picture.jpg (%ju bytes), read and decoded it: %s, PSNR %.1f dB\n",
              static_cast<uintmax_t>(std::filesystem::file_size(path)),
              format_name(VEK_image_get_parameter(back, VEK_PARAM_FORMAT)).c_str(), compare(picture, back).psnr);
  VEK_image_destroy(back);

  // Ten frames in one buffer: the first compressed straight into the sequence image,
  // each later one compressed on its own and appended.
  const uint32_t sequence = VEK_JPEG_image_create();
  DEMO_CHECK(sequence);
  const uint32_t frame = VEK_JPEG_image_create();
  DEMO_CHECK(frame);
  auto* px = static_cast<uint8_t*>(VEK_image_get_ptr(picture, VEK_PTR_DATA));
  DEMO_CHECK(VEK_JPEG_compress(picture, sequence));
  for (uint32_t i = 1; i < 10; ++i) {
    for (uint32_t x = 0; x < 24; ++x) px[3 * x] = uint8_t(i * 25);  // each frame differs
    DEMO_CHECK(VEK_JPEG_compress(picture, frame));
    DEMO_CHECK(VEK_JPEG_sequence_build(frame, sequence));
  }
  // The frame count lives in the image's strip count (parameter 18).
  const uint32_t frames = VEK_image_get_parameter(sequence, VEK_PARAM_18);
  const uint32_t fifth = VEK_JPEG_image_create();
  DEMO_CHECK(fifth);
  DEMO_CHECK(VEK_JPEG_sequence_extract_frame(sequence, fifth, 5));
  const uint32_t decoded = VEK_image_create();
  DEMO_CHECK(decoded);
  DEMO_CHECK(VEK_image_set_parameter(decoded, VEK_PARAM_FORMAT, VEK_RGB24));
  DEMO_CHECK(VEK_JPEG_decompress(fifth, decoded));
  const auto* d = static_cast<const uint8_t*>(VEK_image_get_ptr(decoded, VEK_PTR_DATA));
  std::printf("  built a sequence of %u frames in one buffer (%u bytes); frame 5 decodes to %ux%u with red %u at its top left (made with 100)\n",
              frames, static_cast<const Tjpeg*>(VEK_image_get_ptr(sequence, VEK_PTR_JPEG))->data_length,
              VEK_image_get_parameter(decoded, VEK_PARAM_WIDTH), VEK_image_get_parameter(decoded, VEK_PARAM_HEIGHT),
              d ? d[0] : 0);
  for (uint32_t h : {picture, jpeg, sequence, frame, fifth, decoded}) VEK_image_destroy(h);
  return 0;
}

int demo_bayer() {
  const uint32_t picture = make_picture();
  DEMO_CHECK(picture);
  const uint32_t mosaic = VEK_image_create();
  DEMO_CHECK(mosaic);
  DEMO_CHECK(VEK_BAY_RGB24_to_RGGB32(picture, mosaic, VEK_STRIP_NEXT));
  print_image("Bayer mosaic", mosaic);
  const uint32_t colour = VEK_image_create();
  DEMO_CHECK(colour);
  DEMO_CHECK(VEK_IP_Bayer_Convert_to_BGRX32(mosaic, colour, VEK_BAYER_BILINEAR, nullptr, 0, VEK_BAYER_RGGB));
  uint32_t rgb = colour;
  DEMO_CHECK(convert_picture(&rgb, VEK_RGB24));
  std::printf("  demosaiced (bilinear) back to %s; PSNR against the picture %.1f dB\n",
              format_name(VEK_image_get_parameter(rgb, VEK_PARAM_FORMAT)).c_str(), compare(picture, rgb).psnr);
  for (uint32_t h : {picture, mosaic, rgb}) VEK_image_destroy(h);
  return 0;
}

}  // namespace

int cmd_demo(int argc, char** argv) {
  std::string dir = argc > 1 ? argv[1] : (std::filesystem::temp_directory_path() / "vek-demo").string();
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  std::printf("vek demo (library version 0x%08x), files in %s\n", VEK_image_get_parameter(0, VEK_PARAM_VERSION),
              dir.c_str());
  std::printf("\n1. capture: test-pattern frame, strip by strip\n");
  if (int rc = demo_test_pattern()) return rc;
  std::printf("\n2. files: the picture in every file format, read back\n");
  if (int rc = demo_files(dir)) return rc;
  std::printf("\n3. JPEG: compress, JFIF file, decode; a 10-frame sequence\n");
  if (int rc = demo_jpeg(dir)) return rc;
  std::printf("\n4. Bayer: mosaic and demosaic\n");
  if (int rc = demo_bayer()) return rc;
  VEK_image_destroy(VEK_ALL_IMAGES);
  std::printf("\ndemo finished\n");
  return 0;
}
