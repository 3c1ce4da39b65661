// The drawing family's kernels: the painter frame over an image's roi, and the Qt paths figures are drawn
// along, their coordinates checked for what Qt's fixed-point raster engine can take.
#pragma once

#include <vexa/imp/VFigure.h>
#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/exceptions.h>

#include <QImage>
#include <QPainter>
#include <QPainterPath>

namespace VEXA::kernel {

using DrawPixels = PixelList<PixelGray<quint8>, PixelBGR<quint8>, PixelXRGB<quint8>, PixelARGB<quint8>, PixelARGBP<quint8>>;

// Qt's raster engine works in fixed point; coordinates beyond this are refused before it sees them.
constexpr double coordinateLimit = 16777216.0;

inline QImage::Format paintFormat(Format format)
{
    switch (format) {
    case GrayScale: return QImage::Format_Grayscale8;
    case BGR: return QImage::Format_BGR888;
    case XRGB: return QImage::Format_RGB32;
    case ARGB: return QImage::Format_ARGB32;
    case ARGB_Premultiplied: return QImage::Format_ARGB32_Premultiplied;
    default: throwUnsupported();
    }
}

// Paints into the image's roi through a QImage laid over its pixels, in the library's pixel convention:
// Qt's aliased painting already puts pixel (x, y) at (x, y), its antialiased painting at (x + 0.5, y + 0.5).
template <class Paint>
VStatus paintInto(VImage* destination, bool antialiased, Paint paint)
{
    VImage& image = checkExistingDestination(destination);
    return visitPixel(DrawPixels{}, image.format(), image.channelType(), [&](auto) {
        const Rect r = clipRect(image.roiRect(), image.width(), image.height());
        const int pixelSize = channelsOf(image.format());
        uchar* first = image.rawData() + qint64(r.y) * image.bytesPerLine() + qint64(r.x) * pixelSize;
        QImage view(first, r.width, r.height, image.bytesPerLine(), paintFormat(image.format()));
        QPainter painter(&view);
        if (!painter.isActive())
            throw dip_exception("The image cannot be painted");
        painter.setRenderHint(QPainter::Antialiasing, antialiased);
        if (antialiased)
            painter.translate(0.5, 0.5);
        paint(painter);
        painter.end();
        return VStatus::Ok;
    });
}

// Refuses a path with a coordinate beyond coordinateLimit (or not finite).
void requireDrawable(const QPainterPath& path);
bool finite(const QPointF& p);
// "Figure coordinates must be finite and within 16777216 pixels" unless `holds`.
void requireFinite(bool holds);
// The path a figure is drawn (or filled) along; empty for a figure that has nothing to fill.
QPainterPath figurePath(const VFigure& figure, bool filled);

} // namespace VEXA::kernel
