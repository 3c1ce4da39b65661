#include <vexa/gen/gen_stabilize_image.h>
