// The morphology family's pixel list: its operations are single OpenCV calls through the OpenCV frame.
#pragma once

#include <vexa/imp/detail/opencv_frame.h>

namespace VEXA {

using MorphPixels = EightSixteenFloatPixels;

} // namespace VEXA
