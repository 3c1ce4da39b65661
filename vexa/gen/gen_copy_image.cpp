#include <vexa/gen/gen_copy_image.h>

#include <vexa/imp/copy_image.h>
#include <vexa/imp/frame.h>

namespace VEXA {

VStatus copyImage(const VImage& source, VImage* destination)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(source);
        VImage& dst = checkExistingDestination(destination);
        return dispatchSame(CopyPixels{}, source, dst, [](const auto& s, const auto& d) {
            return kernel::copyRect(s, d, s.roi, d.roi);
        });
    });
}

VStatus copyImageUsingRois(const VImage& source, VImage* destination, Rect sourceRect, Rect destinationRect)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(source);
        VImage& dst = checkExistingDestination(destination);
        return dispatchSame(CopyPixels{}, source, dst, [&](const auto& s, const auto& d) {
            return kernel::copyRect(s, d, clipRect(sourceRect, s.width, s.height),
                                    clipRect(destinationRect, d.width, d.height));
        });
    });
}

} // namespace VEXA
