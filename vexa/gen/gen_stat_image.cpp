#include <vexa/gen/gen_stat_image.h>

#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/kernels/stat_image.h>

namespace VEXA {

VStatus countNonZero(const VImage& image, int* count)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(image);
        checkOutput(count);
        return dispatch(CountNonZeroPixels{}, image, [&](const auto& raster) { return kernel::countNonZero(raster, count); });
    });
}

} // namespace VEXA
