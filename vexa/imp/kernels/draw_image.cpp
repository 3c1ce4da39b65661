#include <vexa/imp/kernels/draw_image.h>

#include <vcore/VRotateAngle.h>
#include <vexa/imp/exceptions.h>

#include <cmath>

namespace VEXA::kernel {

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

namespace {

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

} // namespace

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

} // namespace VEXA::kernel
