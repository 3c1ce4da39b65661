// The scaled conversion has a file of its own: its pairs are as many as the plain conversion's, and each
// file instantiates every one of them.
#include <vexa/gen/gen_image_converters.h>

#include <vexa/imp/detail/convert_pair.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/kernels/scaled_converters.h>

namespace VEXA {

VStatus convertImageScaled(const VImage& source, VImage* destination)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return convertPair<ScaledTargetsT>(source, destination,
                                           [](const auto& s, const auto& d) { return kernel::convertScaled(s, d); });
    });
}

} // namespace VEXA
