#include <vexa/gen/gen_draw_image.h>

#include <vcore/VRotateAngle.h>
#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/exceptions.h>

#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QPainterPath>

#include <cmath>

namespace VEXA {

namespace {

using DrawPixels = PixelList<PixelGray<quint8>, PixelBGR<quint8>, PixelXRGB<quint8>, PixelARGB<quint8>, PixelARGBP<quint8>>;

// Qt's raster engine works in fixed point; coordinates beyond this are refused before it sees them.
constexpr double coordinateLimit = 16777216.0;

QImage::Format paintFormat(Format format)
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

void requireDrawable(const QPainterPath& path)
{
    for (int i = 0; i < path.elementCount(); ++i) {
        const QPainterPath::Element e = path.elementAt(i);
        if (!(std::abs(e.x) <= coordinateLimit && std::abs(e.y) <= coordinateLimit))
            throw dip_exception("Figure coordinates must be finite and within 16777216 pixels");
    }
}

bool finite(const QPointF& p) { return std::isfinite(p.x()) && std::isfinite(p.y()); }

void requireFinite(bool holds)
{
    if (!holds)
        throw dip_exception("Figure coordinates must be finite and within 16777216 pixels");
}

QPainterPath pointsPath(const QPolygonF& points, bool closed)
{
    for (const QPointF& p : points)
        requireFinite(finite(p));
    QPainterPath path;
    path.addPolygon(points);
    if (closed)
        path.closeSubpath();
    return path;
}

// The ellipse's arc (or pie) in its unturned rectangle, then turned like the rectangle.
QPainterPath ellipsePath(const VEllipse& e, bool pie)
{
    const QRectF rect = e.boundingRect();
    const double start = e.startAngle(), sweep = e.sweepLength();
    requireFinite(std::isfinite(rect.x()) && std::isfinite(rect.y()) && std::isfinite(rect.width()) &&
                  std::isfinite(rect.height()) && std::isfinite(start) && std::isfinite(sweep) &&
                  std::isfinite(e.angle()) && finite(e.transformPos()));
    QPainterPath path;
    if (std::abs(sweep) >= 360.0) {
        path.addEllipse(rect);
    } else if (pie) {
        path.moveTo(rect.center());
        path.arcTo(rect, start, sweep);
        path.closeSubpath();
    } else {
        path.arcMoveTo(rect, start);
        path.arcTo(rect, start, sweep);
    }
    return VRotateAngle(e.angle(), e.transformPos()).transform().map(path);
}

QPainterPath rectPath(const VRectBase& r)
{
    requireFinite(std::isfinite(r.x()) && std::isfinite(r.y()) && std::isfinite(r.width()) &&
                  std::isfinite(r.height()) && std::isfinite(r.angle()) && finite(r.transformPos()));
    return pointsPath(VFigureUtils::getPolyPointFromRect(r), true);
}

// The path a figure is drawn (or filled) along; empty for a figure that has nothing to fill.
QPainterPath figurePath(const VFigure& figure, bool filled)
{
    switch (figure.type()) {
    case VFigure::PolyPointType:
        return pointsPath(static_cast<const VPolyPoint&>(figure), filled);
    case VFigure::PolygonType:
        return pointsPath(static_cast<const VPolyPoint&>(figure), true);
    case VFigure::RectBaseType:
        return rectPath(static_cast<const VRectBase&>(figure));
    case VFigure::EllipseType:
        return ellipsePath(static_cast<const VEllipse&>(figure), filled);
    case VFigure::AngleType: {
        if (filled)
            throwUnsupported();
        const auto& a = static_cast<const VAngle&>(figure);
        requireFinite(finite(a.vertex()) && finite(a.firstArm()) && finite(a.secondArm()));
        QPainterPath path(a.firstArm());
        path.lineTo(a.vertex());
        path.lineTo(a.secondArm());
        return path;
    }
    default: throwUnsupported();
    }
}

} // namespace

VStatus drawFigure(VImage* image, const VFigure& figure, const QColor& color, double penWidth, bool antialiased)
{
    return guarded(VEXA_CALL_SITE, [&] {
        if (!(penWidth >= 0.0 && penWidth <= coordinateLimit))
            throw dip_exception_unsupported_parameters("Pen width must be finite and not negative");
        const QPainterPath path = figurePath(figure, false);
        requireDrawable(path);
        return paintInto(image, antialiased, [&](QPainter& painter) {
            painter.setPen(QPen(color, penWidth, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin));
            if (figure.type() == VFigure::PolyPointType && static_cast<const VPolyPoint&>(figure).isPoint())
                painter.drawPoint(static_cast<const VPolyPoint&>(figure).first());
            else
                painter.drawPath(path);
        });
    });
}

VStatus fillFigure(VImage* image, const VFigure& figure, const QColor& color, bool antialiased)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const QPainterPath path = figurePath(figure, true);
        requireDrawable(path);
        return paintInto(image, antialiased, [&](QPainter& painter) {
            painter.fillPath(path, color);
        });
    });
}

VStatus drawText(VImage* image, const QString& text, const QPointF& position, const QFont& font, const QColor& color)
{
    return guarded(VEXA_CALL_SITE, [&] {
        if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
            throw dip_exception_unsupported_parameters("Drawing text needs a QGuiApplication");
        requireFinite(finite(position) && std::abs(position.x()) <= coordinateLimit &&
                      std::abs(position.y()) <= coordinateLimit);
        return paintInto(image, true, [&](QPainter& painter) {
            painter.setRenderHint(QPainter::TextAntialiasing, true);
            painter.setFont(font);
            painter.setPen(color);
            painter.drawText(position, text);
        });
    });
}

} // namespace VEXA
