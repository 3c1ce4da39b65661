#include <vexa/gen/gen_normalization.h>

#include <QtGlobal>

#include <algorithm>

namespace VEXA {

int createHue(int red, int green, int blue)
{
    // 64-bit steps: components beyond 8 bits (from other channel types) must not overflow; the result stays
    // within 0..360 whatever they are.
    const qint64 r = red, g = green, b = blue;
    const qint64 max = std::max({r, g, b});
    const qint64 d = max - std::min({r, g, b});
    if (d == 0)
        return 0;
    qint64 h = 0;
    if (max == r)
        h = (g - b) * 60 / d + (g < b ? 360 : 0);
    if (max == g)
        h = (b - r) * 60 / d + 120;
    if (max == b)
        h = (r - g) * 60 / d + 240;
    return int(double(h) + 0.5);
}

} // namespace VEXA
