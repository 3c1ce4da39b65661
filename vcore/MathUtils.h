// Small numeric helpers shared by the imaging code.
#pragma once

#include <QPointF>
#include <QPolygonF>

#include <vcore/vcore_export.h>

namespace MathUtils {

// Clamps to 0..255 and truncates the fraction; NaN gives 0.
VCORE_EXPORT unsigned char bound8u(double value);

// low <= value <= high.
VCORE_EXPORT bool isBounded(double low, double value, double high);

// The bin width actually used for a raw width w > 0: the smallest of 1, 2, 5 times a power of ten that is
// not below w. Monotone, never 0, and rounding up keeps low + n * width at or above the data's maximum.
// A width that is not positive (or NaN) comes back as it is.
VCORE_EXPORT double roundForHistogram(double width);

// Area enclosed by a polygon (absolute value of the shoelace sum); 0 for fewer than three points.
VCORE_EXPORT double area(const QPolygonF& polygon);

VCORE_EXPORT double distance(const QPointF& a, const QPointF& b);

VCORE_EXPORT double radiansToDegrees(double radians);

} // namespace MathUtils
