// Statistics over an image's region of interest.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

namespace VEXA {

// The number of non-zero pixels in the roi of a GrayScale image of any channel type.
VEXA_EXPORT VStatus countNonZero(const VImage& image, int* count);

} // namespace VEXA
