#include <vcore/MathUtils.h>

#include <cmath>

namespace MathUtils {

unsigned char bound8u(double value)
{
    if (!(value > 0.0)) // also catches NaN
        return 0;
    if (value >= 255.0)
        return 255;
    return static_cast<unsigned char>(value);
}

bool isBounded(double low, double value, double high) { return low <= value && value <= high; }

double roundForHistogram(double width)
{
    if (!(width > 0.0) || std::isinf(width))
        return width;
    double decade = std::pow(10.0, std::floor(std::log10(width)));
    // Below 1e-323 the decade underflows to 0 and would never grow: no rounder width exists there.
    if (decade == 0.0)
        return width;
    // log10 can land a hair off for exact powers of ten; step back or forward one decade to be sure.
    if (decade > width)
        decade /= 10.0;
    for (;;) {
        for (double factor : {1.0, 2.0, 5.0}) {
            if (factor * decade >= width)
                return factor * decade;
        }
        decade *= 10.0;
    }
}

double area(const QPolygonF& polygon)
{
    const qsizetype n = polygon.size();
    if (n < 3)
        return 0.0;
    double sum = 0.0;
    for (qsizetype i = 0; i < n; ++i) {
        const QPointF& p = polygon[i];
        const QPointF& q = polygon[(i + 1) % n];
        sum += p.x() * q.y() - q.x() * p.y();
    }
    return std::fabs(sum) / 2.0;
}

double distance(const QPointF& a, const QPointF& b) { return std::hypot(b.x() - a.x(), b.y() - a.y()); }

double radiansToDegrees(double radians) { return radians * 180.0 / M_PI; }

} // namespace MathUtils
