// Internal view of the library core shared by every subsystem: the image record,
// handle lookup, report-once-and-return, checked sizes, pixel-format traits and
// the strip-sequencing state machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

#include "vek.h"

namespace vek {

inline constexpr uint32_t kMaxHandles = 65535;
inline constexpr uint32_t kErrorSlot = 1;
inline constexpr uint32_t kCmapEntries = 256;

// One colour-map entry: R, G, B and a spare byte.
struct CmapEntry {
  uint8_t r, g, b, spare;
};

// The image record, fields in the order applications see through VEK_PTR_RECORD.
struct ImageRecord {
  uint16_t format;
  uint16_t data_width;
  char text[128];
  char infile[512];
  char outfile[512];
  uint32_t width;
  uint32_t height;
  uint32_t depth;
  uint32_t line_align;
  uint32_t copy_align;
  uint32_t skip;
  uint32_t param18;
  uint32_t param19;
  uint8_t* data;
  uint32_t data_companion;
  uint32_t bytes_per_strip;
  uint32_t flags;
  uint32_t cmap_size;
  CmapEntry* cmap;
  void* cmap_info;
  uint32_t lines_per_strip;
  uint32_t bytes_per_line;
  uint16_t field;
  Tjpeg* jpeg;
};

inline bool is_error(uint32_t status) { return status > 0xFFFFu; }

// Record of a handle, or null for 0, out-of-range or free handles.
ImageRecord* lookup(uint32_t handle);

// Reports a failure once on the library's error slot and returns the code unchanged,
// so call sites read `return report("VEK_x", code, "why");`.
uint32_t report(const char* function_name, uint32_t code, const char* message = "");

// RAII guard over the process-wide recursive library lock.
class LibraryLock {
 public:
  LibraryLock();
  ~LibraryLock();
  LibraryLock(const LibraryLock&) = delete;
  LibraryLock& operator=(const LibraryLock&) = delete;
};

// Size arithmetic for everything that ends in an allocation or a copy: a product
// of up to three factors, or nullopt-like false when it does not fit `limit`.
bool checked_size(uint64_t a, uint64_t b, uint64_t c, size_t& out,
                  uint64_t limit = std::numeric_limits<uint32_t>::max());

// ---- pixel-format traits -------------------------------------------------

enum FormatKind : uint8_t {
  kKindNone,
  kKindGrey,      // Y1, Y8, Y16
  kKindIndexed,   // paletted, 8-bit colour
  kKindColour,    // RGB/BGR families, CMYK, HSI
  kKindYuv,       // YUV 4:2:2 and the 2x2 layout
  kKindBayer,     // mosaics
  kKindInternal,  // JPEG codec layouts
};

struct FormatTraits {
  uint16_t code;
  uint16_t depth;         // written into parameter 13 when the format is set
  uint16_t data_width;    // written into parameter 17 when set; 0 = left as it was
  uint8_t pixel_bytes;    // bytes of one pixel in a line (0: sub-byte)
  uint8_t components;     // parameter 26
  FormatKind kind;
  const char* name;
};

// Traits of a settable format code, or null.
const FormatTraits* format_traits(uint32_t code);

// ---- strip sequencing ----------------------------------------------------

// The per-operation state of a strip producer or transformer: idle until the first
// mode-3 call, then in progress while lines are consumed; the call that reaches the
// input's height trims the input's lines per strip to the remainder and goes idle.
// Each operation owns one process-wide instance (one sequence at a time).
class StripSequence {
 public:
  enum class State : uint8_t { Idle = 1, InProgress = 2 };

  struct Strip {
    uint32_t first_line;  // input lines consumed before this strip
    uint32_t lines;       // lines this strip holds (after trimming)
    bool last;            // this strip ends the sequence
  };

  State state() const { return state_; }
  bool idle() const { return state_ == State::Idle; }
  uint32_t consumed() const { return consumed_; }

  // Starts a new sequence (count back to 0, in progress).
  void start() {
    consumed_ = 0;
    state_ = State::InProgress;
  }
  // Decides whether the strip the input now holds is the last one; on the last strip
  // the input's lines per strip are trimmed to what remains of its height.
  Strip plan(ImageRecord& input) const;
  // Records a processed strip: advances the count, or goes idle after the last.
  void commit(const Strip& strip) {
    if (strip.last) {
      state_ = State::Idle;
    } else {
      consumed_ += strip.lines;
    }
  }
  void reset() { state_ = State::Idle; }

 private:
  State state_ = State::Idle;
  uint32_t consumed_ = 0;
};

// Drives one call of a sequenced operation. `setup()` runs when the sequence is idle
// (before the first strip) and returns a status; `process(strip)` handles one strip.
// Mode 4 resets, other modes do nothing. A failure leaves the state as it was.
template <class Setup, class Process>
uint32_t run_strip(StripSequence& seq, uint32_t mode, ImageRecord& input, Setup&& setup,
                   Process&& process) {
  if (mode == VEK_STRIP_END) {
    seq.reset();
    return VEK_OK;
  }
  if (mode != VEK_STRIP_NEXT) return VEK_OK;
  if (seq.idle()) {
    uint32_t status = setup();
    if (is_error(status)) return status;
    seq.start();
  }
  const StripSequence::Strip strip = seq.plan(input);
  uint32_t status = process(strip);
  if (is_error(status)) return status;
  seq.commit(strip);
  return VEK_OK;
}

// ---- hooks into later families -------------------------------------------
// The core and the file dispatch call these at start-up, destruction, copying and
// file I/O. Each family owns one file of definitions (core/hooks_<family>.cpp) and
// points them at its exported functions, so no family depends on another's internals.
namespace family {
// core/hooks_sequence.cpp
void init_sequence_files();     // MJPEG, MRAW and stream handle tables
// core/hooks_process.cpp
void destroy_all_process_objects();  // chroma-key and display objects
// core/hooks_convert.cpp
void destroy_all_luts();        // intensity look-up tables
void free_shared_tables();      // on-demand conversion tables
void destroy_cmap_info(uint32_t handle);
void cmap_copy(uint32_t source, uint32_t destination);
uint32_t cmap_set_type(uint32_t handle, uint32_t type);  // VEK_cmap_set_type
// core/hooks_jpeg.cpp
void init_jpeg_tables();        // process-wide Huffman code and decode tables
uint32_t jpeg_free_data(uint32_t handle);
uint32_t jpeg_destroy(uint32_t handle);
uint32_t jpeg_copy_parameters(uint32_t source, uint32_t destination);
uint32_t jpeg_build_image(uint32_t source, uint32_t destination, uint32_t mode);
uint32_t jpeg_set_quality(uint32_t handle, uint32_t factor);
uint32_t jpeg_file_read(uint32_t handle);
uint32_t jpeg_file_write(uint32_t handle);
}  // namespace family

}  // namespace vek
