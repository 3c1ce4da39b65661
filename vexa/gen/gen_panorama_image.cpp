#include <vexa/gen/gen_panorama_image.h>

#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/opencv_frame.h>
#include <vexa/imp/detail/progress.h>
#include <vexa/imp/kernels/panorama_image.h>

#include <cmath>
#include <vector>

namespace VEXA {

namespace {

constexpr int kMaxSearchRadius = 4096;
// Expected offsets are rounded to whole pixels and added to image sizes in int.
constexpr double kMaxExpected = 1 << 24;
// Below this the stitcher's scaled copies can come out empty, which OpenCV asserts on.
constexpr int kMinPanoramaSide = 8;

} // namespace

VStatus matchTemplatePosition(const VImage& fixed, const VImage& moving, QPointF expected, int searchRadius,
                              QPointF* offset, double* score, double minScore)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat f = listedSource(TilePixels{}, fixed);
        const cv::Mat m = listedSource(TilePixels{}, moving);
        if (moving.format() != fixed.format() || moving.channelType() != fixed.channelType())
            throwUnsupported();
        QPointF& found = checkOutput(offset);
        if (!(std::abs(expected.x()) <= kMaxExpected && std::abs(expected.y()) <= kMaxExpected))
            throw dip_exception("The expected offset must be finite and within 2^24 pixels");
        if (searchRadius < 0 || searchRadius > kMaxSearchRadius)
            throw dip_exception("The search radius must be 0 to 4096 pixels");
        if (!(minScore >= -1.0 && minScore <= 1.0))
            throw dip_exception("The least score must be -1 to 1");
        checkCancelled();

        double best = 0.0;
        found = kernel::templatePosition(f, m, expected, searchRadius, minScore, &best);
        if (score)
            *score = best;
        return VStatus::Ok;
    });
}

VStatus buildPanorama(const VImageList& images, VImage* panorama, PanoramaMode mode)
{
    return guarded(VEXA_CALL_SITE, [&] {
        VImage& out = checkOutput(panorama);
        if (!images.status())
            throw dip_exception_bad_status();
        if (images.isEmpty())
            throw dip_exception_empty_source_image();
        if (mode != PanoramaPhotos && mode != PanoramaScans)
            throw dip_exception("Unknown panorama mode");

        ProgressSteps steps("panorama");
        steps.to(0.05);
        // The handles keep the pixels the BGR headers may point into.
        QList<VImage> sources;
        std::vector<cv::Mat> bgr;
        for (int i = 0; i < images.count(); ++i) {
            checkCancelled();
            sources.append(images.at(unsigned(i)));
            const cv::Mat m = listedSource(PanoramaPixels{}, sources.last());
            if (sources.last().format() != images.format() || sources.last().channelType() != images.channelType())
                throw dip_exception("The images differ in format or channel type");
            if (m.cols < kMinPanoramaSide || m.rows < kMinPanoramaSide)
                throw dip_exception("Images smaller than 8 x 8 pixels cannot be stitched");
            bgr.push_back(kernel::bgrOf(m));
        }
        if (bgr.size() < 2)
            throw dip_exception("A panorama needs at least two images");

        VImage result = kernel::stitch(bgr, mode, sources.first(), steps);
        out = result;
        reportProgress(1.0, "panorama");
        return VStatus::Ok;
    });
}

} // namespace VEXA
