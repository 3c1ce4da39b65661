// A rotation by an angle in degrees about a centre, in Qt's sense: a positive angle turns clockwise on a
// y-down screen, as QTransform::rotate does.
#pragma once

#include <QPointF>
#include <QTransform>

#include <vcore/vcore_export.h>

class VCORE_EXPORT VRotateAngle {
public:
    VRotateAngle() = default;
    explicit VRotateAngle(double degrees, const QPointF& center = QPointF());

    void setAngle(double degrees, const QPointF& center = QPointF());
    double angle() const { return angle_; }
    QPointF center() const { return center_; }

    // Translate the centre to the origin, rotate, translate back.
    QTransform transform() const;
    void transform(QTransform* t) const { *t = transform(); }

private:
    double angle_ = 0.0;
    QPointF center_;
};
