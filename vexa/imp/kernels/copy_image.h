// Kernels that copy pixels between images of one pixel type.
#pragma once

#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/streaming.h>

#include <vector>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace VEXA {

using CopyPixels = AllPixels;
using StackPixels = PixelList<PixelGray<quint8>, PixelBGR<quint8>, PixelXRGB<quint8>>;

namespace kernel {

// Copies the common size of two rectangles, each already inside its own raster, from the top-left corners.
// A row of one pixel type is contiguous, so every row is one memmove; rows that span whole, equally padded
// lines go in a single memmove.
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
    if (streamsInto(src, from, dst, to)) {
        const auto& kernels = simd::rowKernels();
        for (qint32 y = 0; y < h; ++y)
            kernels.streamBytes(reinterpret_cast<std::uint8_t*>(dst.row(to.y + y) + to.x),
                                reinterpret_cast<const std::uint8_t*>(src.row(from.y + y) + from.x), rowBytes);
        simd::finishStreaming();
        return VStatus::Ok;
    }
    if (src.bytesPerLine == dst.bytesPerLine && w == src.width && w == dst.width) {
        std::memmove(d, s, size_t(src.bytesPerLine) * (h - 1) + rowBytes);
        return VStatus::Ok;
    }
    // Rectangles of one buffer may overlap. Rows go in the order memmove takes bytes: from the last when
    // the destination starts after the source, so that no row is read after it was written over.
    if (reinterpret_cast<std::uintptr_t>(d) > reinterpret_cast<std::uintptr_t>(s)) {
        for (qint32 y = h - 1; y >= 0; --y)
            std::memmove(dst.row(to.y + y) + to.x, src.row(from.y + y) + from.x, rowBytes);
        return VStatus::Ok;
    }
    for (qint32 y = 0; y < h; ++y)
        std::memmove(dst.row(to.y + y) + to.x, src.row(from.y + y) + from.x, rowBytes);
    return VStatus::Ok;
}

VStatus failNoImages(const CallSite& site);

// Adds count rows of bytes into out modulo 256: out[k] = rows[0][k] + ... + rows[count - 1][k], or, with
// keepFourth, only bytes 0..2 of every 4 (the rest of out stays). out may be one of the rows.
void sumRowsModulo256(const quint8* const* rows, int count, quint8* out, size_t bytes, bool keepFourth);

// The sum of the list's images taken modulo 256 per component (the low eight bits of the sum, no mean, no
// saturation), at every position of the destination's roi that every image covers. Adding bytes with
// wrap-around is that sum exactly. The X byte of XRGB is not written.
template <class P>
VStatus stackImagesRGBBased(const RasterListT<P>& list, const RasterT<P>& dst)
{
    if (list.count() == 0)
        return failNoImages(VEXA_CALL_SITE);
    Rect r = dst.roi;
    for (int i = 0; i < list.count(); ++i)
        r = clipRect(r, list.at(i).width, list.at(i).height);
    std::vector<const quint8*> rows(size_t(list.count()));
    for (qint32 y = r.y; y < r.y + r.height; ++y) {
        for (int i = 0; i < list.count(); ++i)
            rows[size_t(i)] = reinterpret_cast<const quint8*>(list.at(i).row(y) + r.x);
        sumRowsModulo256(rows.data(), list.count(), reinterpret_cast<quint8*>(dst.row(y) + r.x),
                         size_t(r.width) * sizeof(P), PixelTraits<P>::format == XRGB);
    }
    return VStatus::Ok;
}

} // namespace kernel
} // namespace VEXA
