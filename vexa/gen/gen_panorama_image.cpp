#include <vexa/gen/gen_panorama_image.h>
