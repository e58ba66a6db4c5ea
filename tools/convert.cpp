// vek convert IN OUT: file-to-file conversion with optional pixel-format change and
// geometry, and vek info FILE.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tools/commands.h"
#include "vek.h"

namespace {

bool parse_numbers(const char* text, std::vector<uint32_t>& out, size_t count) {
  out.clear();
  const char* p = text;
  while (*p) {
    char* end = nullptr;
    const unsigned long v = std::strtoul(p, &end, 10);
    if (end == p || v > 0xFFFFFFFFul) return false;
    out.push_back(static_cast<uint32_t>(v));
    p = *end == ',' ? end + 1 : end;
    if (*end && *end != ',') return false;
  }
  return out.size() == count;
}

int fail(const char* what, uint32_t status) {
  std::fprintf(stderr, "vek: %s failed (0x%08x)\n", what, status);
  return 1;
}

}  // namespace

int cmd_info(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: vek info FILE\n");
    return 2;
  }
  const char* path = argv[1];
  const uint32_t kind = VEK_image_find_file_format(path);
  if (VEK_IS_ERROR(kind)) return fail("format detection", kind);
  static const char* names[] = {"unknown", "", "", "TIFF", "", "", "", "", "JPEG", "EPS", "BMP"};
  std::printf("%s: %s\n", path, kind <= 10 ? names[kind] : "unknown");
  if (kind == VEK_FILE_UNKNOWN) return 1;
  if (kind == VEK_FILE_JPEG) {
    const uint32_t jpeg = VEK_JPEG_image_create();
    VEK_image_set_infilename(jpeg, path);
    const uint32_t status = VEK_JPEG_file_read(jpeg);
    if (VEK_IS_ERROR(status)) return fail("reading", status);
    const auto* t = static_cast<const Tjpeg*>(VEK_image_get_ptr(jpeg, VEK_PTR_JPEG));
    print_image("picture", jpeg);
    std::printf("  components %u, sampling %ux%u/%ux%u/%ux%u, %u quantisation tables, header %u bytes, "
                "data %u bytes\n",
                VEK_JPEG_get_parameter(jpeg, VEK_JPEG_COMPONENTS), t->h_sampling[0], t->v_sampling[0],
                t->h_sampling[1], t->v_sampling[1], t->h_sampling[2], t->v_sampling[2],
                VEK_JPEG_get_parameter(jpeg, VEK_JPEG_NUM_Q_TABLES),
                VEK_JPEG_get_parameter(jpeg, VEK_JPEG_HEADER_LENGTH), t->data_length);
    VEK_image_destroy(jpeg);
    return 0;
  }
  uint32_t h = 0;
  const uint32_t status = load_picture(path, &h);
  if (VEK_IS_ERROR(status)) return fail("reading", status);
  print_image("picture", h);
  VEK_image_destroy(h);
  return 0;
}

int cmd_convert(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: vek convert IN OUT [options]   (see vek --help)\n");
    return 2;
  }
  const std::string in = argv[1], out = argv[2];
  std::string to;
  uint32_t quality = 0;
  uint32_t h = 0;
  // Options are applied in the order given, after the input is read.
  std::vector<std::pair<std::string, std::string>> ops;
  for (int i = 3; i < argc; ++i) {
    const std::string opt = argv[i];
    const bool takes_value = opt != "--mirror";
    if (takes_value && i + 1 >= argc) {
      std::fprintf(stderr, "vek: %s needs a value\n", opt.c_str());
      return 2;
    }
    const std::string value = takes_value ? argv[++i] : "";
    if (opt == "--to") to = value;
    else if (opt == "--quality") quality = static_cast<uint32_t>(std::strtoul(value.c_str(), nullptr, 10));
    else if (opt == "--format" || opt == "--crop" || opt == "--rotate" || opt == "--mirror" ||
             opt == "--scale" || opt == "--subsample" || opt == "--bin")
      ops.emplace_back(opt, value);
    else {
      std::fprintf(stderr, "vek: unknown option %s\n", opt.c_str());
      return 2;
    }
  }
  const uint32_t kind = file_kind_for(out, to);
  if (kind == VEK_FILE_UNKNOWN) {
    std::fprintf(stderr, "vek: cannot tell the output format of %s (use --to)\n", out.c_str());
    return 2;
  }
  uint32_t status = load_picture(in, &h);
  if (VEK_IS_ERROR(status)) return fail("reading", status);
  std::vector<uint32_t> n;
  for (const auto& [opt, value] : ops) {
    if (opt == "--format") {
      const uint32_t code = format_code(value);
      if (!code) {
        std::fprintf(stderr, "vek: unknown pixel format %s\n", value.c_str());
        return 2;
      }
      status = convert_picture(&h, code);
    } else if (opt == "--crop") {
      if (!parse_numbers(value.c_str(), n, 4)) return fail("parsing --crop X,Y,W,H", VEK_ERROR_BAD_PARAMETER);
      uint32_t region[4] = {n[0], n[1], n[2], n[3]};
      status = replace_with_result(&h, [&](uint32_t a, uint32_t b) { return VEK_IP_Crop_Image(a, b, region); });
    } else if (opt == "--rotate") {
      const uint32_t angle = static_cast<uint32_t>(std::strtoul(value.c_str(), nullptr, 10));
      status = replace_with_result(&h, [&](uint32_t a, uint32_t b) { return VEK_IP_rotate_image(a, b, angle); });
    } else if (opt == "--mirror") {
      status = replace_with_result(&h, [](uint32_t a, uint32_t b) { return VEK_IP_mirror_image(a, b, VEK_STRIP_NEXT); });
    } else if (opt == "--scale") {
      if (!parse_numbers(value.c_str(), n, 2)) return fail("parsing --scale W,H", VEK_ERROR_BAD_PARAMETER);
      status = replace_with_result(&h, [&](uint32_t a, uint32_t b) { return VEK_IP_scale(a, b, n[0], n[1], VEK_STRIP_NEXT); });
    } else if (opt == "--subsample" || opt == "--bin") {
      const uint32_t f = static_cast<uint32_t>(std::strtoul(value.c_str(), nullptr, 10));
      const bool bin = opt == "--bin";
      status = replace_with_result(&h, [&](uint32_t a, uint32_t b) {
        return bin ? VEK_IP_Subsample_by_Binning(a, b, f) : VEK_IP_Subsample(a, b, f);
      });
    }
    if (VEK_IS_ERROR(status)) return fail(opt.c_str(), status);
  }
  status = save_picture(&h, out, kind, to == "tiff-lzw", quality);
  if (VEK_IS_ERROR(status)) return fail("writing", status);
  print_image("written", h);
  VEK_image_destroy(VEK_ALL_IMAGES);
  return 0;
}

int cmd_demosaic(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: vek demosaic IN OUT [--scheme 1..4] [--phase 1..4]\n");
    return 2;
  }
  uint32_t scheme = 2, phase = 1;
  for (int i = 3; i + 1 < argc; i += 2) {
    const std::string opt = argv[i];
    const uint32_t v = static_cast<uint32_t>(std::strtoul(argv[i + 1], nullptr, 10));
    if (opt == "--scheme") scheme = v;
    else if (opt == "--phase") phase = v;
    else {
      std::fprintf(stderr, "vek: unknown option %s\n", opt.c_str());
      return 2;
    }
  }
  if (scheme < 1 || scheme > 4 || phase < 1 || phase > 4) {
    std::fprintf(stderr, "vek: --scheme and --phase take 1..4\n");
    return 2;
  }
  uint32_t h = 0;
  uint32_t status = load_picture(argv[1], &h);
  if (VEK_IS_ERROR(status)) return fail("reading", status);
  uint32_t fmt = VEK_image_get_parameter(h, VEK_PARAM_FORMAT);
  // An 8-bit BMP reads back as paletted; a mosaic's indices are its samples.
  if (fmt == VEK_PALETTED) {
    VEK_image_set_parameter(h, VEK_PARAM_FORMAT, VEK_Y8);
    fmt = VEK_Y8;
  }
  if (fmt != VEK_Y8 && fmt != VEK_RGGB32) {
    std::fprintf(stderr, "vek: a mosaic is an 8-bit grey picture (got %s)\n", format_name(fmt).c_str());
    return 1;
  }
  status = replace_with_result(&h, [&](uint32_t a, uint32_t b) {
    return VEK_IP_Bayer_Convert_to_BGRX32(a, b, scheme, nullptr, 0, phase);
  });
  if (VEK_IS_ERROR(status)) return fail("demosaicing", status);
  const std::string out = argv[2];
  status = save_picture(&h, out, file_kind_for(out, ""), false, 0);
  if (VEK_IS_ERROR(status)) return fail("writing", status);
  print_image("written", h);
  VEK_image_destroy(VEK_ALL_IMAGES);
  return 0;
}
