#include <vexa/gen/gen_normalization.h>

#include <algorithm>

namespace VEXA {

int createHue(int red, int green, int blue)
{
    const int max = std::max({red, green, blue});
    const int d = max - std::min({red, green, blue});
    if (d == 0)
        return 0;
    int h = 0;
    if (max == red)
        h = (green - blue) * 60 / d + (green < blue ? 360 : 0);
    if (max == green)
        h = (blue - red) * 60 / d + 120;
    if (max == blue)
        h = (red - green) * 60 / d + 240;
    return int(double(h) + 0.5);
}

} // namespace VEXA
