// Kernels that copy pixels between images of one pixel type.
#pragma once

#include <vexa/imp/dispatch.h>

#include <algorithm>
#include <cstring>

namespace VEXA {

using CopyPixels = AllPixels;

namespace kernel {

// Copies the common size of two rectangles, each already inside its own raster, from the top-left corners.
// A row of one pixel type is contiguous, so every row is one memcpy; rows that span whole, equally padded
// lines go in a single memcpy.
template <class Pixel>
VStatus copyRect(const RasterT<Pixel>& src, const RasterT<Pixel>& dst, const Rect& from, const Rect& to)
{
    const qint32 w = std::min(from.width, to.width);
    const qint32 h = std::min(from.height, to.height);
    if (w <= 0 || h <= 0)
        return VStatus::Ok;
    const Pixel* s = src.row(from.y) + from.x;
    Pixel* d = dst.row(to.y) + to.x;
    if (s == d)
        return VStatus::Ok;
    const size_t rowBytes = size_t(w) * sizeof(Pixel);
    if (src.bytesPerLine == dst.bytesPerLine && w == src.width && w == dst.width) {
        std::memmove(d, s, size_t(src.bytesPerLine) * (h - 1) + rowBytes);
        return VStatus::Ok;
    }
    for (qint32 y = 0; y < h; ++y)
        std::memmove(dst.row(to.y + y) + to.x, src.row(from.y + y) + from.x, rowBytes);
    return VStatus::Ok;
}

} // namespace kernel
} // namespace VEXA
