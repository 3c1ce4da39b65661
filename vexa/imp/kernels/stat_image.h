// Kernels that reduce an image to numbers.
#pragma once

#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/opencv_frame.h>

namespace VEXA {

using CountNonZeroPixels = AllChannelsOf<PixelGray>;

namespace kernel {

template <class Pixel>
VStatus countNonZero(const RasterT<Pixel>& raster, int* count)
{
    *count = cv::countNonZero(asCvMat(raster));
    return VStatus::Ok;
}

} // namespace kernel
} // namespace VEXA
