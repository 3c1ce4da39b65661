#include <vexa/gen/gen_draw_image.h>

#include <vexa/imp/detail/frame.h>
#include <vexa/imp/exceptions.h>
#include <vexa/imp/kernels/draw_image.h>

#include <QGuiApplication>

#include <cmath>

namespace VEXA {

VStatus drawFigure(VImage* image, const VFigure& figure, const QColor& color, double penWidth, bool antialiased)
{
    return guarded(VEXA_CALL_SITE, [&] {
        if (!(penWidth >= 0.0 && penWidth <= kernel::coordinateLimit))
            throw dip_exception_unsupported_parameters("Pen width must be finite and not negative");
        const QPainterPath path = kernel::figurePath(figure, false);
        kernel::requireDrawable(path);
        return kernel::paintInto(image, antialiased, [&](QPainter& painter) {
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
        const QPainterPath path = kernel::figurePath(figure, true);
        kernel::requireDrawable(path);
        return kernel::paintInto(image, antialiased, [&](QPainter& painter) {
            painter.fillPath(path, color);
        });
    });
}

VStatus drawText(VImage* image, const QString& text, const QPointF& position, const QFont& font, const QColor& color)
{
    return guarded(VEXA_CALL_SITE, [&] {
        if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
            throw dip_exception_unsupported_parameters("Drawing text needs a QGuiApplication");
        kernel::requireFinite(kernel::finite(position) && std::abs(position.x()) <= kernel::coordinateLimit &&
                      std::abs(position.y()) <= kernel::coordinateLimit);
        return kernel::paintInto(image, true, [&](QPainter& painter) {
            painter.setRenderHint(QPainter::TextAntialiasing, true);
            painter.setFont(font);
            painter.setPen(color);
            painter.drawText(position, text);
        });
    });
}

} // namespace VEXA
