#include <vcore/VRotateAngle.h>

VRotateAngle::VRotateAngle(double degrees, const QPointF& center) : angle_(degrees), center_(center) {}

void VRotateAngle::setAngle(double degrees, const QPointF& center)
{
    angle_ = degrees;
    center_ = center;
}

QTransform VRotateAngle::transform() const
{
    return QTransform().translate(center_.x(), center_.y()).rotate(angle_).translate(-center_.x(), -center_.y());
}
