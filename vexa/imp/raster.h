/// @file
/// @brief Typed views of images (RasterT), walks over two of them and the pixel reader (group @ref images).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/exceptions.h>

#include <QList>

namespace VEXA {

/// @addtogroup images
/// @{

/// A typed, non-owning view of an image whose pixels are Pixel structures: a plain value, copied freely,
/// valid while the image's buffer lives.
template <class Pixel>
struct RasterT {
    /// The pixel structure the raster reads and writes.
    using PixelType = Pixel;

    Pixel* data = nullptr; ///< row 0: the first byte of the buffer (null for an image without pixels)
    /// Width of the image in pixels (not of the roi).
    qint32 width = 0;
    /// Height of the image in rows.
    qint32 height = 0;
    /// Bytes from one row to the next (VImage::bytesPerLine()), padding included.
    qint32 bytesPerLine = 0;
    /// The image's roi clipped to the image; the all-zero Rect when nothing of it is inside.
    Rect roi;
    /// The image's origin label.
    Origin origin = OriginInvalid;

    /// An empty raster: no data, zero size, empty roi.
    RasterT() = default;
    /// A view of image, whose format and channel type must be Pixel's (not checked): its buffer address,
    /// width, height, stride and origin, and its roi clipped to the image. The image is not detached.
    explicit RasterT(const VImage& image)
        : data(reinterpret_cast<Pixel*>(image.rawData())), width(image.width()), height(image.height()),
          bytesPerLine(qint32(image.bytesPerLine())), origin(image.origin())
    {
        roi = clipRect(image.roiRect(), width, height);
    }

    /// The first pixel of row y (row 0 first in memory); y is not checked.
    Pixel* row(qint32 y) const
    {
        return reinterpret_cast<Pixel*>(reinterpret_cast<unsigned char*>(data) + qint64(y) * bytesPerLine);
    }
    /// The pixel at column x of row y, writable; neither is checked.
    Pixel& at(qint32 x, qint32 y) const { return row(y)[x]; }
    /// The whole image as a rectangle: 0, 0, width, height.
    Rect whole() const { return Rect{0, 0, width, height}; }
};

/// The traversal every two-image kernel shares: the common size of two rectangles (each inside its own
/// raster, which the caller ensures: they are not clipped here), walked row by row from their top-left
/// corners, first row first. op(const S* sourceRow, D* destinationRow, width) is called once per row of the
/// common height, with pointers to the rows' first pixels in the rectangles; nothing is called when the
/// common width or height is 0 or less.
template <class S, class D, class RowOp>
void forEachRowPair(const RasterT<S>& src, const Rect& from, const RasterT<D>& dst, const Rect& to, RowOp op)
{
    const qint32 w = from.width < to.width ? from.width : to.width;
    const qint32 h = from.height < to.height ? from.height : to.height;
    for (qint32 y = 0; y < h && w > 0; ++y)
        op(static_cast<const S*>(src.row(from.y + y) + from.x), dst.row(to.y + y) + to.x, w);
}

/// The same, pixel by pixel: op(const S&, D&) for each pair of pixels, left to right within a row.
template <class S, class D, class PixelOp>
void forEachPixelPair(const RasterT<S>& src, const Rect& from, const RasterT<D>& dst, const Rect& to, PixelOp op)
{
    forEachRowPair(src, from, dst, to, [&op](const S* s, D* d, qint32 w) {
        for (qint32 x = 0; x < w; ++x)
            op(s[x], d[x]);
    });
}

/// One raster per image of a list, in list order. Built on the stack by a dispatcher and thrown away after
/// the kernel; it owns no pixels.
template <class Pixel>
class RasterListT {
public:
    /// An empty list.
    RasterListT() = default;
    /// A RasterT<Pixel> of each VImage of images (any range of VImage, such as a QList), in order; every
    /// image must be of Pixel's pair (not checked).
    template <class Images>
    explicit RasterListT(const Images& images)
    {
        for (const VImage& image : images)
            rasters_.append(RasterT<Pixel>(image));
    }
    /// How many rasters the list holds.
    int count() const { return int(rasters_.size()); }
    /// The raster of the i-th image, 0 <= i < count() (as QList::at, unchecked in release builds).
    const RasterT<Pixel>& at(int i) const { return rasters_.at(i); }

private:
    QList<RasterT<Pixel>> rasters_;
};

/// Reads pixels around an anchor for neighbourhood kernels. A position outside both the window and the
/// raster is mirrored once into the window; one still outside after that is an error. The window is clipped
/// to the raster, so every read stays inside the buffer. Holds a copy of the raster: a plain value.
template <class Pixel>
class PixelReader {
public:
    /// A reader over raster, anchored at (anchorX, anchorY), mirroring into window (clipped to the raster
    /// here).
    PixelReader(const RasterT<Pixel>& raster, qint32 anchorX, qint32 anchorY, const Rect& window)
        : raster_(raster), ax_(anchorX), ay_(anchorY), window_(clipRect(window, raster.width, raster.height))
    {
    }

    /// Moves the anchor to (x, y); the window stays.
    void setAnchor(qint32 x, qint32 y)
    {
        ax_ = x;
        ay_ = y;
    }

    /// The pixel at the anchor plus (dx, dy). A position inside the window or the raster is read as it is.
    /// Otherwise each coordinate outside the window is mirrored about the window's edge pixel, the edge not
    /// repeated (one before the first column reads the second, one past the last reads the last but one),
    /// if it lies no farther out than the window is wide (or high); a position still outside the window
    /// throws dip_exception("Pixel(). Bad pixel position."). A raster without data or of zero size throws
    /// dip_exception("Pixel(). Bad RasterT.").
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

/// @}

} // namespace VEXA
