#include <vexa/gen/gen_calibration_image.h>
