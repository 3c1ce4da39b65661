#include <vexa/gen/gen_analysis_image.h>
