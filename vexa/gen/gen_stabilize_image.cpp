#include <vexa/gen/gen_stabilize_image.h>

#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/opencv_frame.h>
#include <vexa/imp/exceptions.h>
#include <vexa/imp/kernels/resize_image.h>
#include <vexa/imp/kernels/stabilize_image.h>

namespace VEXA {

VStatus stabilizeSequence(const VImageList& in, VImageList* out, int radius, StabilizeBorders borders)
{
    return guarded(VEXA_CALL_SITE, [&]() -> VStatus {
        VImageList& result = checkOutput(out);
        const QList<VImage> frames = checkSources(in);
        for (int i = 0; i < frames.size(); ++i) {
            if (asCvMat(frames[i]).empty())
                throw dip_exception_empty_source_image();
            if (frames[i].format() != frames.first().format() || frames[i].channelType() != frames.first().channelType())
                throwUnsupported();
            checkSameSize(frames.first(), frames[i]);
        }
        requireListed(WarpPixels{}, frames.first());
        if (radius < 0)
            throw dip_exception("The radius must not be negative");
        if (borders != StabilizeCrop && borders != StabilizeBlack && borders != StabilizeReplicate)
            throw dip_exception("Unknown border mode");

        try {
            result = kernel::stabilize(frames, radius, borders);
            return VStatus::Ok;
        } catch (const NestedFailure& failure) {
            return failure.status;
        }
    });
}

} // namespace VEXA
