#include <vexa/gen/gen_keypoint_image.h>
