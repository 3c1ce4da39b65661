// Typed, non-owning views of images for the kernels, and the bounded pixel reader.
//
// A raster copies six values out of its image (buffer address, width, height, row stride, roi, origin);
// it neither keeps the image alive nor detaches it, so a raster over a destination writes the buffer that
// every handle of it shares. The roi is clipped to the image here, once: a roi reaching outside the image
// (rois are stored unclipped) never leads a kernel outside the buffer, and one wholly outside leaves an
// empty roi with nothing to process.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/exceptions.h>

#include <QList>

namespace VEXA {

template <class Pixel>
struct RasterT {
    using PixelType = Pixel;

    Pixel* data = nullptr; // row 0
    qint32 width = 0;
    qint32 height = 0;
    qint32 bytesPerLine = 0;
    Rect roi;
    Origin origin = OriginInvalid;

    RasterT() = default;
    explicit RasterT(const VImage& image)
        : data(reinterpret_cast<Pixel*>(image.rawData())), width(image.width()), height(image.height()),
          bytesPerLine(qint32(image.bytesPerLine())), origin(image.origin())
    {
        roi = clipRect(image.roiRect(), width, height);
    }

    Pixel* row(qint32 y) const
    {
        return reinterpret_cast<Pixel*>(reinterpret_cast<unsigned char*>(data) + qint64(y) * bytesPerLine);
    }
    Pixel& at(qint32 x, qint32 y) const { return row(y)[x]; }
    Rect whole() const { return Rect{0, 0, width, height}; }
};

// The traversal every two-image kernel shares: the common size of two rectangles (each inside its own
// raster), walked row by row from their top-left corners. op(const S* sourceRow, D* destinationRow, width).
template <class S, class D, class RowOp>
void forEachRowPair(const RasterT<S>& src, const Rect& from, const RasterT<D>& dst, const Rect& to, RowOp op)
{
    const qint32 w = from.width < to.width ? from.width : to.width;
    const qint32 h = from.height < to.height ? from.height : to.height;
    for (qint32 y = 0; y < h && w > 0; ++y)
        op(static_cast<const S*>(src.row(from.y + y) + from.x), dst.row(to.y + y) + to.x, w);
}

// The same, pixel by pixel: op(const S&, D&).
template <class S, class D, class PixelOp>
void forEachPixelPair(const RasterT<S>& src, const Rect& from, const RasterT<D>& dst, const Rect& to, PixelOp op)
{
    forEachRowPair(src, from, dst, to, [&op](const S* s, D* d, qint32 w) {
        for (qint32 x = 0; x < w; ++x)
            op(s[x], d[x]);
    });
}

// One raster per image of a list, in list order. Built on the stack by a dispatcher and thrown away after
// the kernel; it owns no pixels.
template <class Pixel>
class RasterListT {
public:
    RasterListT() = default;
    template <class Images>
    explicit RasterListT(const Images& images)
    {
        for (const VImage& image : images)
            rasters_.append(RasterT<Pixel>(image));
    }
    int count() const { return int(rasters_.size()); }
    const RasterT<Pixel>& at(int i) const { return rasters_.at(i); }

private:
    QList<RasterT<Pixel>> rasters_;
};

// Reads pixels around an anchor for neighbourhood kernels. A position outside both the window and the
// raster is mirrored once into the window; one still outside after that is an error. The window is clipped
// to the raster, so every read stays inside the buffer.
template <class Pixel>
class PixelReader {
public:
    PixelReader(const RasterT<Pixel>& raster, qint32 anchorX, qint32 anchorY, const Rect& window)
        : raster_(raster), ax_(anchorX), ay_(anchorY), window_(clipRect(window, raster.width, raster.height))
    {
    }

    void setAnchor(qint32 x, qint32 y)
    {
        ax_ = x;
        ay_ = y;
    }

    const Pixel& pixel(qint32 dx, qint32 dy) const
    {
        if (!raster_.data || raster_.width <= 0 || raster_.height <= 0)
            throw dip_exception("Pixel(). Bad RasterT.");
        qint64 x = qint64(ax_) + dx, y = qint64(ay_) + dy;
        if (inside(x, y) || (x >= 0 && x < raster_.width && y >= 0 && y < raster_.height))
            return raster_.at(qint32(x), qint32(y));
        x = mirror(x, window_.x, qint64(window_.x) + window_.width);
        y = mirror(y, window_.y, qint64(window_.y) + window_.height);
        if (!inside(x, y))
            throw dip_exception("Pixel(). Bad pixel position.");
        return raster_.at(qint32(x), qint32(y));
    }

private:
    bool inside(qint64 x, qint64 y) const
    {
        return x >= window_.x && x < qint64(window_.x) + window_.width && y >= window_.y &&
               y < qint64(window_.y) + window_.height;
    }
    static qint64 mirror(qint64 v, qint64 lo, qint64 hi)
    {
        if (v < lo && lo - v <= hi - lo)
            return 2 * lo - v;
        if (v >= hi && v - hi <= hi - lo)
            return 2 * hi - v - 2;
        return v;
    }

    RasterT<Pixel> raster_;
    qint32 ax_, ay_;
    Rect window_;
};

} // namespace VEXA
