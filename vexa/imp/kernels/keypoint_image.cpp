#include <vexa/imp/kernels/keypoint_image.h>

#include <vexa/imp/detail/opencv_frame.h>
#include <vexa/imp/detail/progress.h>
#include <vexa/imp/exceptions.h>

#include <opencv2/features2d.hpp>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace VEXA {

namespace {

// A roi under this many pixels on a side has no keypoints: the detectors' scale spaces need a few pixels
// each way.
constexpr int minDetectionSide = 16;

// Detectors take 8 bits: other channel types come stretched over 0..255 and are rounded.
cv::Mat grayOf(const VImage& image)
{
    cv::Mat plane = grayPlane(image, true);
    if (plane.depth() != CV_8U)
        plane.convertTo(plane, CV_8U);
    return plane;
}

cv::Ptr<cv::Feature2D> detectorOf(KeypointDetector detector, int maxPerImage)
{
    switch (detector) {
    case KeypointOrb: return cv::ORB::create(maxPerImage);
    case KeypointAkaze: return cv::AKAZE::create();
    case KeypointSift: return cv::SIFT::create(maxPerImage);
    }
    throw dip_exception("Unknown keypoint detector");
}

int descriptorType(KeypointDetector detector) { return detector == KeypointSift ? CV_32F : CV_8U; }

// The indices of the strongest keypoints, at most `limit`, in the detector's order.
std::vector<int> strongest(const std::vector<cv::KeyPoint>& found, int limit)
{
    std::vector<int> order(found.size());
    std::iota(order.begin(), order.end(), 0);
    if (int(order.size()) > limit) {
        std::stable_sort(order.begin(), order.end(),
                         [&](int i, int j) { return found[size_t(i)].response > found[size_t(j)].response; });
        order.resize(size_t(limit));
        std::sort(order.begin(), order.end());
    }
    return order;
}

} // namespace

QList<VKeypointSet> kernel::detectAll(const QList<VImage>& images, KeypointDetector detector, int maxPerImage, bool describe)
{
    const cv::Ptr<cv::Feature2D> feature = detectorOf(detector, maxPerImage);
    QList<VKeypointSet> sets;
    for (int i = 0; i < images.size(); ++i) {
        checkpoint(double(i) / images.size(), "finding keypoints");
        VKeypointSet set;
        set.detector = detector;
        const cv::Mat roi = asCvMat(images[i]);
        if (std::min(roi.cols, roi.rows) >= minDetectionSide) {
            const cv::Mat gray = grayOf(images[i]);
            std::vector<cv::KeyPoint> found;
            cv::Mat descriptors;
            if (describe) {
                feature->detectAndCompute(gray, cv::noArray(), found, descriptors);
                CV_Assert(descriptors.rows == int(found.size()));
            } else {
                feature->detect(gray, found);
            }
            const std::vector<int> kept = strongest(found, maxPerImage);
            set.keypoints.reserve(kept.size());
            for (int k : kept)
                set.keypoints.push_back(found[size_t(k)]);
            if (describe) {
                set.descriptors.create(int(kept.size()), descriptors.cols, descriptorType(detector));
                for (size_t k = 0; k < kept.size(); ++k)
                    descriptors.row(kept[k]).copyTo(set.descriptors.row(int(k)));
            }
        }
        if (describe && set.descriptors.empty())
            set.descriptors = cv::Mat(0, 0, descriptorType(detector));
        sets.append(std::move(set));
    }
    reportProgress(1.0, "finding keypoints");
    return sets;
}

void kernel::checkSet(const VKeypointSet& set)
{
    if (set.detector != KeypointOrb && set.detector != KeypointAkaze && set.detector != KeypointSift)
        throw dip_exception("Unknown keypoint detector");
    if (set.keypoints.empty() && set.descriptors.empty())
        return;
    if (set.descriptors.dims != 2 || set.descriptors.rows != int(set.keypoints.size()) ||
        set.descriptors.type() != descriptorType(set.detector) || set.descriptors.cols < 1)
        throw dip_exception("Descriptors do not fit their keypoints and detector");
    for (const cv::KeyPoint& k : set.keypoints)
        if (!std::isfinite(k.pt.x) || !std::isfinite(k.pt.y))
            throw dip_exception("Keypoint positions must be finite");
}

QList<QPair<QPointF, QPointF>> kernel::matchSets(const VKeypointSet& a, const VKeypointSet& b, double ratio,
                                                 bool crossCheck)
{
    QList<QPair<QPointF, QPointF>> result;
    const cv::BFMatcher matcher(a.detector == KeypointSift ? cv::NORM_L2 : cv::NORM_HAMMING);
    std::vector<std::vector<cv::DMatch>> forward;
    matcher.knnMatch(a.descriptors, b.descriptors, forward, 2);
    std::vector<cv::DMatch> backward;
    if (crossCheck)
        matcher.match(b.descriptors, a.descriptors, backward);
    for (const std::vector<cv::DMatch>& m : forward) {
        if (m.empty())
            continue;
        // A single candidate (b has one keypoint) has nothing to be compared with: it passes.
        if (m.size() == 2 && !(m[0].distance < ratio * m[1].distance))
            continue;
        if (crossCheck && backward[size_t(m[0].trainIdx)].trainIdx != m[0].queryIdx)
            continue;
        result.append({pointOf(a.keypoints[size_t(m[0].queryIdx)]), pointOf(b.keypoints[size_t(m[0].trainIdx)])});
    }
    return result;
}

} // namespace VEXA
