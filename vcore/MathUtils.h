/// @file
/// @brief Small numeric helpers shared by the imaging code (group @ref figures).
#pragma once

#include <QPointF>
#include <QPolygonF>

#include <vcore/vcore_export.h>

/// Small numeric helpers shared by the imaging code: saturation to a byte, bounds, histogram bin widths, and
/// plane geometry. Every function is pure and reentrant.
namespace MathUtils {

/// @addtogroup figures
/// **Numeric helpers** (namespace MathUtils): small pure functions shared by the imaging code, such as
/// VPolygon::area() and the library's 8-bit saturation. They report no errors and may be called from any
/// thread.
/// @{

/// Clamps to 0..255 and truncates the fraction; NaN gives 0. So values up to 0 (and -infinity) give 0, values
/// of 255 and above (and +infinity) give 255, and 12.9 gives 12.
VCORE_EXPORT unsigned char bound8u(double value);

/// low <= value <= high: both ends included; false whenever any argument is NaN.
VCORE_EXPORT bool isBounded(double low, double value, double high);

/// The bin width actually used for a raw width w > 0: the smallest of 1, 2, 5 times a power of ten that is
/// not below w. Monotone, never 0, and rounding up keeps low + n * width at or above the data's maximum.
/// A width that is not positive (or NaN), or infinite, comes back as it is; widths above 1e308 give +infinity
/// (2e308 is beyond double). The two smallest subnormal widths, about 4.9e-324 and 9.9e-324, whose power of
/// ten is below the smallest double, come back as they are.
VCORE_EXPORT double roundForHistogram(double width);

/// Area enclosed by a polygon (absolute value of the shoelace sum); 0 for fewer than three points. The outline
/// is closed implicitly (a repeated first point at the end changes nothing); where it crosses itself, parts
/// enclosed in opposite senses subtract.
VCORE_EXPORT double area(const QPolygonF& polygon);

/// The Euclidean distance between a and b (std::hypot, so no overflow in the squares).
VCORE_EXPORT double distance(const QPointF& a, const QPointF& b);

/// radians * 180 / pi.
VCORE_EXPORT double radiansToDegrees(double radians);

/// @}

} // namespace MathUtils
