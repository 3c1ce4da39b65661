/// @file
/// @brief A rotation by an angle in degrees about a centre, as a QTransform (group @ref figures).
#pragma once

#include <QPointF>
#include <QTransform>

#include <vcore/vcore_export.h>

/// @addtogroup figures
/// **Rotations** (VRotateAngle): a rotation by an angle in degrees about a centre, in Qt's sense: a positive
/// angle turns clockwise on a y-down image, as QTransform::rotate() does. The library turns rectangles and
/// ellipses (VRectBase) with it.
/// @{

/// A rotation by angle() degrees about center(), clockwise on a y-down image for positive angles. A plain
/// value of two fields, freely copied; it holds no other state, so it may be read by several threads at once.
class VCORE_EXPORT VRotateAngle {
public:
    /// No rotation: angle 0 about (0,0), the identity.
    VRotateAngle() = default;
    /// The rotation by degrees about center (by default the origin).
    explicit VRotateAngle(double degrees, const QPointF& center = QPointF());

    /// Replaces angle and centre; a centre left out is the origin (0,0), not the previous one.
    void setAngle(double degrees, const QPointF& center = QPointF());
    /// The angle in degrees, as given (not reduced to a range).
    double angle() const { return angle_; }
    /// The point the rotation turns about.
    QPointF center() const { return center_; }

    /// Translate the centre to the origin, rotate, translate back: a point p goes to c + R (p - c), with c the
    /// centre and R QTransform::rotate() by angle().
    QTransform transform() const;
    /// Stores transform() into *t (which must not be null).
    void transform(QTransform* t) const { *t = transform(); }

private:
    double angle_ = 0.0;
    QPointF center_;
};

/// @}
