#include <vexa/gen/gen_copy_image.h>

#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/progress.h>

#include <vexa/imp/detail/frame.h>
#include <vexa/imp/kernels/copy_image.h>

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

VStatus kernel::failNoImages(const CallSite& site)
{
    return VStatus(errorAt(site, Issue::LibraryError) << "No images");
}

VStatus stackImages(const VImageList& list, VImage* destination)
{
    return guarded(VEXA_CALL_SITE, [&] {
        VImage& dst = checkDestination(destination);
        if (!list.status())
            throw dip_exception_bad_status();
        checkStatus(dst);
        if (list.isEmpty())
            throw dip_exception_empty_source_image();
        checkNotEmpty(dst);
        QList<VImage> images;
        for (int i = 0; i < list.count(); ++i) {
            images.append(list.at(unsigned(i)));
            checkSource(images.last());
            if (images.last().format() != list.format() || images.last().channelType() != list.channelType())
                throwUnsupported();
        }
        if (dst.format() != list.format() || dst.channelType() != list.channelType())
            throwUnsupported();
        return runWhole("stacking", [&] {
            return visitPixel(StackPixels{}, list.format(), list.channelType(), [&](auto tag) {
                using P = typename decltype(tag)::type;
                return kernel::stackImagesRGBBased(RasterListT<P>(images), RasterT<P>(dst));
            });
        });
    });
}

} // namespace VEXA
