#include <vexa/gen/gen_image_converters.h>

#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/convert_pair.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/progress.h>
#include <vexa/imp/kernels/image_converters.h>

namespace VEXA {

VStatus kernel::failDifferentSizes(const CallSite& site, QSize source, QSize destination)
{
    return VStatus(errorAt(site, Issue::LibraryError)
                   << QStringLiteral("Source and destination differ in size: the destination's region is %1x%2, the "
                                     "source's %3x%4")
                          .arg(destination.width())
                          .arg(destination.height())
                          .arg(source.width())
                          .arg(source.height()));
}

VStatus convertImage(const VImage& source, VImage* destination)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return convertPair<ConvertTargetsT>(source, destination,
                                            [](const auto& s, const auto& d) { return kernel::convertImage(s, d); });
    });
}

VStatus getPixel(const VImage& image, long x, long y, double* values, int* count)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(image);
        checkOutput(values);
        checkOutput(count);
        return dispatch(PixelAccessPixels{}, image, [&](const auto& r) { return kernel::getPixel(r, x, y, values, count); });
    });
}

VStatus setPixel(VImage* image, long x, long y, double* values, int count)
{
    return guarded(VEXA_CALL_SITE, [&] {
        VImage& dst = checkExistingDestination(image);
        checkOutput(values);
        return dispatch(PixelAccessPixels{}, dst, [&](const auto& r) { return kernel::setPixel(r, x, y, values, count); });
    });
}

VStatus fillImage(VImage* image, double* values, int count)
{
    return guarded(VEXA_CALL_SITE, [&] {
        VImage& dst = checkExistingDestination(image);
        checkOutput(values);
        return dispatch(PixelAccessPixels{}, dst, [&](const auto& r) { return kernel::fillImage(r, values, count); });
    });
}

} // namespace VEXA
