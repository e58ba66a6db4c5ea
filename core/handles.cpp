// Image handle table, library lock, initialisation, creation and destruction.
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "core/alloc.h"
#include "core/image.h"
#include "core/state.h"

namespace vek {

ImageRecord* g_images[kMaxHandles + 2];
bool g_initialised = false;

// Every entry below this index is occupied, so creation scans from here and still
// hands out the lowest free handle.
static uint32_t g_lowest_maybe_free = 1;

namespace {

// A recursive lock that knows its owner, so that leaving a lock this thread does not
// hold is a reported failure rather than undefined behaviour.
class RecursiveLock {
 public:
  bool enter() {
    const auto self = std::this_thread::get_id();
    std::unique_lock<std::mutex> guard(mutex_);
    if (depth_ > 0 && owner_ == self) {
      ++depth_;
      return true;
    }
    released_.wait(guard, [this] { return depth_ == 0; });
    owner_ = self;
    depth_ = 1;
    return true;
  }
  bool leave() {
    std::unique_lock<std::mutex> guard(mutex_);
    if (depth_ == 0 || owner_ != std::this_thread::get_id()) return false;
    if (--depth_ == 0) {
      owner_ = std::thread::id();
      guard.unlock();
      released_.notify_one();
    }
    return true;
  }

 private:
  std::mutex mutex_;
  std::condition_variable released_;
  std::thread::id owner_;
  unsigned depth_ = 0;
};

RecursiveLock& library_lock() {
  static RecursiveLock lock;
  return lock;
}

}  // namespace

LibraryLock::LibraryLock() { library_lock().enter(); }
LibraryLock::~LibraryLock() { library_lock().leave(); }

ImageRecord* lookup(uint32_t handle) {
  if (handle == 0 || handle > kMaxHandles) return nullptr;
  return g_images[handle];
}

bool checked_size(uint64_t a, uint64_t b, uint64_t c, size_t& out, uint64_t limit) {
  // Each factor of an image size is at most 32 bits, so two products are checked
  // against the limit before the next multiplication can overflow 64 bits.
  if (a > limit || b > limit || c > limit) return false;
  uint64_t ab = a * b;
  if (ab > limit) return false;
  if (c != 0 && ab > limit / c) return false;
  uint64_t total = ab * c;
  if (total > limit || total > std::numeric_limits<size_t>::max()) return false;
  out = static_cast<size_t>(total);
  return true;
}

static void destroy_one(uint32_t handle) {
  ImageRecord* rec = lookup(handle);
  if (!rec) return;
  rec->flags &= ~VEK_FLAG_LOCKED;
  VEK_image_free_data(handle);
  std::free(rec->cmap);
  rec->cmap = nullptr;
  if (rec->cmap_info) family::destroy_cmap_info(handle);
  if (rec->jpeg) family::jpeg_destroy(handle);
  std::free(rec);
  LibraryLock lock;
  g_images[handle] = nullptr;
  if (handle < g_lowest_maybe_free) g_lowest_maybe_free = handle;
}

static void free_shared_tables() {
  LibraryLock lock;
  family::free_shared_tables();
}

}  // namespace vek

using namespace vek;

extern "C" {

VEK_API uint32_t VEK_CriticalSectionInit(void) {
  library_lock();
  return VEK_OK;
}

VEK_API uint32_t VEK_CriticalSectionBegin(void) {
  return library_lock().enter() ? VEK_OK : VEK_ERROR_SYSTEM_CALL;
}

VEK_API uint32_t VEK_CriticalSectionEnd(void) {
  return library_lock().leave() ? VEK_OK : VEK_ERROR_SYSTEM_CALL;
}

VEK_API uint32_t VEK_Init(void) {
  VEK_CriticalSectionInit();
  {
    LibraryLock lock;
    g_error_records[kErrorSlot] = ErrorRecord{};
    g_error_records[kErrorSlot].handler = VEK_ErrHandlerDefault;
    g_error_records[kErrorSlot].version = VEK_VERSION_WORD;
    g_initialised = true;
    family::init_sequence_files();
  }
  family::init_jpeg_tables();
  return VEK_OK;
}

VEK_API uint32_t VEK_InitLibrary(void) { return VEK_Init(), VEK_OK; }
VEK_API uint32_t VEK_LibraryInit(void) { return VEK_Init(), VEK_OK; }
VEK_API uint32_t VEK_Library_Init(void) { return VEK_Init(), VEK_OK; }

VEK_API void* VEK_image_create_cmap(void) {
  auto* map = static_cast<uint32_t*>(vek::alloc(kCmapEntries * sizeof(uint32_t)));
  if (!map) return nullptr;
  for (uint32_t i = 0; i < kCmapEntries; ++i) map[i] = 0xAAAAAAAAu;
  return map;
}

VEK_API uint32_t VEK_image_create(void) {
  static const char kName[] = "VEK_image_create";
  if (!g_initialised) VEK_Init();
  ImageRecord* rec = nullptr;
  uint32_t handle = 0;
  {
    LibraryLock lock;
    for (uint32_t h = g_lowest_maybe_free; h <= kMaxHandles; ++h) {
      if (!g_images[h]) {
        handle = h;
        break;
      }
    }
    if (handle == 0) {
      g_lowest_maybe_free = kMaxHandles + 1;
    } else {
      g_lowest_maybe_free = handle + 1;
      rec = static_cast<ImageRecord*>(vek::alloc_zeroed(1, sizeof(ImageRecord)));
      if (rec) g_images[handle] = rec;
      else g_lowest_maybe_free = handle;
    }
  }
  if (handle == 0) return report(kName, VEK_ERROR_OUT_OF_HANDLES, "Run out of image handles");
  if (!rec) return report(kName, VEK_ERROR_MEMORY | 1u);
  rec->height = 32767;
  rec->line_align = 2;
  rec->param19 = 1;
  rec->lines_per_strip = 8;
  rec->cmap = static_cast<CmapEntry*>(VEK_image_create_cmap());
  // The record stays in the table on this failure: the handle remains occupied.
  if (!rec->cmap) return report(kName, VEK_ERROR_MEMORY);
  return handle;
}

VEK_API uint32_t VEK_image_destroy(uint32_t handle) {
  if (handle == VEK_ALL_IMAGES) {
    {
      LibraryLock lock;
      for (uint32_t h = 1; h <= kMaxHandles + 1; ++h) destroy_one(h);
    }
    family::destroy_all_process_objects();
    family::destroy_all_luts();
    free_shared_tables();
    return VEK_OK;
  }
  if (handle == VEK_LIBRARY_TABLES) {
    {
      LibraryLock lock;
      for (uint32_t h = 1; h <= kMaxHandles; ++h)
        if (g_images[h]) return VEK_ERROR_INTERNAL;
    }
    free_shared_tables();
    return VEK_OK;
  }
  destroy_one(handle);
  return VEK_OK;
}

}  // extern "C"
