#include <vexa/gen/gen_matrix_image.h>
