#include <vexa/gen/gen_keypoint_image.h>

#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/exceptions.h>
#include <vexa/imp/kernels/keypoint_image.h>

namespace VEXA {

namespace {

constexpr int maxKeypointsLimit = 100000;

// The sources, then the count, checked; then every image detected.
QList<VKeypointSet> detected(const VImageList& list, KeypointDetector detector, int maxPerImage, bool describe)
{
    const QList<VImage> images = checkSources(list);
    if (maxPerImage < 1 || maxPerImage > maxKeypointsLimit)
        throw dip_exception("The number of keypoints per image must be 1 to 100000");
    return kernel::detectAll(images, detector, maxPerImage, describe);
}

} // namespace

VStatus findKeypointPositions(const VImageList& images, QList<QList<QPointF>>* positions, KeypointDetector detector,
                              int maxPerImage)
{
    return guarded(VEXA_CALL_SITE, [&] {
        QList<QList<QPointF>>& out = checkOutput(positions);
        QList<QList<QPointF>> result;
        for (const VKeypointSet& set : detected(images, detector, maxPerImage, false)) {
            QList<QPointF> points;
            points.reserve(int(set.keypoints.size()));
            for (const cv::KeyPoint& k : set.keypoints)
                points.append(kernel::pointOf(k));
            result.append(points);
        }
        out = result;
        return VStatus::Ok;
    });
}

VStatus findKeypointOrientations(const VImageList& images, QList<QList<VKeypoint>>* keypoints,
                                 KeypointDetector detector, int maxPerImage)
{
    return guarded(VEXA_CALL_SITE, [&] {
        QList<QList<VKeypoint>>& out = checkOutput(keypoints);
        QList<QList<VKeypoint>> result;
        for (const VKeypointSet& set : detected(images, detector, maxPerImage, false)) {
            QList<VKeypoint> values;
            values.reserve(int(set.keypoints.size()));
            for (const cv::KeyPoint& k : set.keypoints)
                values.append(VKeypoint{kernel::pointOf(k), k.size, k.angle, k.response, k.octave});
            result.append(values);
        }
        out = result;
        return VStatus::Ok;
    });
}

VStatus findVKeypointDescriptors(const VImageList& images, QList<VKeypointSet>* sets, KeypointDetector detector,
                                 int maxPerImage)
{
    return guarded(VEXA_CALL_SITE, [&] {
        QList<VKeypointSet>& out = checkOutput(sets);
        out = detected(images, detector, maxPerImage, true);
        return VStatus::Ok;
    });
}

VStatus matchKeypointDescriptors(const VKeypointSet& a, const VKeypointSet& b, QList<QPair<QPointF, QPointF>>* pairs,
                                 double ratio, bool crossCheck)
{
    return guarded(VEXA_CALL_SITE, [&] {
        QList<QPair<QPointF, QPointF>>& out = checkOutput(pairs);
        kernel::checkSet(a);
        kernel::checkSet(b);
        if (a.detector != b.detector)
            throw dip_exception("Keypoints of different detectors do not match");
        if (!(ratio > 0.0 && ratio <= 1.0))
            throw dip_exception("The ratio must be above 0 and at most 1");
        if (a.keypoints.empty() || b.keypoints.empty()) {
            out = {};
            return VStatus::Ok;
        }
        if (a.descriptors.cols != b.descriptors.cols)
            throw dip_exception("Descriptors of different widths do not match");
        out = kernel::matchSets(a, b, ratio, crossCheck);
        return VStatus::Ok;
    });
}

} // namespace VEXA
