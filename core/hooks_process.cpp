// Release of the image-processing family's process-wide objects on destroy-all.
#include "core/image.h"

namespace vek::family {

void destroy_all_process_objects() {}

}  // namespace vek::family
