// Geometric warps: the pixel lists of the operations that resample an image through a transform.
#pragma once

#include <vexa/imp/filter_image.h>

namespace VEXA {

using WarpPixels = EightSixteenFloatPixels; // OpenCV's bilinear remap: 8u, 16u, 16s, 32f, any format

} // namespace VEXA
