// Start-up of the sequence-file families (MJPEG, MRAW, streams).
#include "core/image.h"

namespace vek::family {

void init_sequence_files() {}

}  // namespace vek::family
