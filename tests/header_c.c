/* The public header compiles alone as C and its functions link from C. */
#include "vek.h"

int main(void) {
  uint32_t h = VEK_image_create();
  if (VEK_IS_ERROR(h)) return 1;
  if (VEK_image_get_parameter(h, VEK_PARAM_VERSION) != VEK_VERSION_WORD) return 2;
  return (int)VEK_image_destroy(h);
}
