/* Uses the installed library through its public header only. */
#include <stdio.h>
#include <vek.h>

int main(void) {
  uint32_t h = VEK_image_create();
  if (VEK_IS_ERROR(h)) return 1;
  VEK_image_set_parameter(h, VEK_PARAM_FORMAT, VEK_RGB24);
  VEK_image_set_parameter(h, VEK_PARAM_WIDTH, 3);
  VEK_image_set_parameter(h, VEK_PARAM_LINE_ALIGN, 4);
  if (VEK_image_check(h) != 0) return 2;
  if (VEK_image_get_parameter(h, VEK_PARAM_BYTES_PER_LINE) != 12) return 3;
  VEK_image_destroy(VEK_ALL_IMAGES);
  printf("consumer ok 0x%08x\n", VEK_image_get_parameter(0, VEK_PARAM_VERSION));
  return 0;
}
