#include <vexa/imp/VKeypointDescriptors.h>

#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/opencv_frame.h>
#include <vexa/imp/detail/progress.h>
#include <vexa/imp/exceptions.h>
#include <vexa/imp/kernels/resize_image.h>

#include <opencv2/calib3d.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <numeric>

namespace {

using namespace VEXA;

// Keypoints are found on a copy whose long side is at most this many pixels; a copy under
// minDetectionSide pixels on a side has none (AKAZE's scale space needs a few pixels each way).
constexpr int detectionSide = 1024;
constexpr int minDetectionSide = 16;
// AKAZE's response threshold, half its default: defocused shots have little contrast to spare.
constexpr float detectorThreshold = 5e-4f;
// The strongest keypoints kept, which bounds the brute-force matching.
constexpr int maxKeypoints = 4000;
// Lowe's ratio: a match counts when its best distance is below this share of the second best.
constexpr float matchRatio = 0.8f;
constexpr int minInliers = 12;
// The robust fit's inlier distance, in pixels of the copy the keypoints were found on.
constexpr double inlierPixels = 1.5;

// The finest level of the local alignment has a long side of at most this many pixels, its coarsest one
// no more than coarseSide.
constexpr int alignSide = 1024;
constexpr int coarseSide = 160;
// A finest level under this many pixels on a side has too little to align.
constexpr int minAlignSide = 16;
// A transform moving no roi corner by more than this is the identity: the image keeps its pixels.
constexpr double identityPixels = 1e-3;
// Focus breathing and a steady hand stay far within these: larger results are failures of the search.
constexpr double maxLinearChange = 0.25; // of each element of the 2 x 2 part
constexpr double maxShiftShare = 0.25;   // of the roi's width or height

// The plane reduced by area averaging so that its long side is at most maxSide pixels.
cv::Mat reduced(const cv::Mat& plane, int maxSide)
{
    const int side = std::max(plane.cols, plane.rows);
    if (side <= maxSide)
        return plane;
    const double s = double(maxSide) / side;
    const cv::Size size(std::max(1, int(std::lround(plane.cols * s))), std::max(1, int(std::lround(plane.rows * s))));
    cv::Mat small;
    cv::resize(plane, small, size, 0, 0, cv::INTER_AREA);
    return small;
}

// The 3 x 3 map from a reduced copy's pixel coordinates to the full plane's, pixel centres on pixel centres.
cv::Matx33d enlargement(cv::Size full, cv::Size small)
{
    const double fx = double(full.width) / small.width, fy = double(full.height) / small.height;
    return cv::Matx33d(fx, 0.0, 0.5 * fx - 0.5, 0.0, fy, 0.5 * fy - 0.5, 0.0, 0.0, 1.0);
}

// A homography that keeps its orientation and convexity over the rectangle the matched keypoints span;
// anything else folds the image or sends part of it to infinity.
bool isRegular(const cv::Matx33d& h, const cv::Rect2f& box)
{
    for (int i = 0; i < 9; ++i)
        if (!std::isfinite(h.val[i]))
            return false;
    const cv::Point2d corners[4] = {{box.x, box.y},
                                    {box.x + box.width, box.y},
                                    {box.x + box.width, box.y + box.height},
                                    {box.x, box.y + box.height}};
    cv::Point2d mapped[4];
    for (int i = 0; i < 4; ++i) {
        const cv::Vec3d p = h * cv::Vec3d(corners[i].x, corners[i].y, 1.0);
        if (!(p[2] > 1e-9))
            return false;
        mapped[i] = cv::Point2d(p[0] / p[2], p[1] / p[2]);
    }
    for (int i = 0; i < 4; ++i) {
        const cv::Point2d e1 = mapped[(i + 1) % 4] - mapped[i], e2 = mapped[(i + 2) % 4] - mapped[(i + 1) % 4];
        if (!(e1.cross(e2) > 0.0))
            return false;
    }
    return true;
}

// The affine warp lining moving up with fixed (both of one size), as ECC finds it: fixed's coordinates to
// moving's. Coarse to fine over a pyramid of reduced gray copies, each level starting from the one above.
cv::Matx33d alignment(const VImage& fixed, const VImage& moving)
{
    const cv::Size full = asCvMat(fixed).size();
    std::vector<cv::Mat> fixedLevels(1), movingLevels(1);
    reduced(grayPlane(fixed, true), alignSide).convertTo(fixedLevels[0], CV_32F);
    reduced(grayPlane(moving, true), alignSide).convertTo(movingLevels[0], CV_32F);
    if (std::min(fixedLevels[0].cols, fixedLevels[0].rows) < minAlignSide)
        throw dip_exception("Image is too small to align");
    while (std::max(fixedLevels.back().cols, fixedLevels.back().rows) > coarseSide &&
           std::min(fixedLevels.back().cols, fixedLevels.back().rows) >= 2 * minAlignSide) {
        cv::Mat f, m;
        cv::pyrDown(fixedLevels.back(), f);
        cv::pyrDown(movingLevels.back(), m);
        fixedLevels.push_back(f);
        movingLevels.push_back(m);
    }
    // pyrDown puts a coarse pixel's centre on fine pixel 2i, so only the shift doubles from level to level.
    cv::Mat warp = cv::Mat::eye(2, 3, CV_32F);
    for (int level = int(fixedLevels.size()) - 1; level >= 0; --level) {
        const bool finest = level == 0;
        const cv::TermCriteria stop(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, finest ? 30 : 50,
                                    finest ? 1e-6 : 1e-5);
        cv::findTransformECC(fixedLevels[level], movingLevels[level], warp, cv::MOTION_AFFINE, stop, cv::noArray(), 5);
        if (level > 0) {
            warp.at<float>(0, 2) *= 2.0f;
            warp.at<float>(1, 2) *= 2.0f;
        }
    }
    cv::Matx33d w = cv::Matx33d::eye();
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 3; ++c)
            w(r, c) = warp.at<float>(r, c);
    const cv::Matx33d up = enlargement(full, fixedLevels[0].size());
    return up * w * up.inv();
}

} // namespace

VKeypointDescriptors::VKeypointDescriptors() = default;

VKeypointDescriptors::VKeypointDescriptors(const VImage& image)
{
    status_ = guarded(VEXA_CALL_SITE, [&] {
        checkSource(image);
        // The gray copy, the search and the mapping back run whole: a cancellation is seen before they
        // start, and completion is reported once they are done.
        return runWhole("finding keypoints", [&] {
            const cv::Mat gray = grayPlane(image, true);
            cv::Mat small;
            reduced(gray, detectionSide).convertTo(small, CV_8U);
            if (std::min(small.cols, small.rows) < minDetectionSide)
                return VStatus::Ok;
            std::vector<cv::KeyPoint> found;
            cv::Mat descriptors;
            cv::AKAZE::create(cv::AKAZE::DESCRIPTOR_MLDB, 0, 3, detectorThreshold)
                ->detectAndCompute(small, cv::noArray(), found, descriptors);
            CV_Assert(descriptors.rows == int(found.size()));
            std::vector<int> order(found.size());
            std::iota(order.begin(), order.end(), 0);
            if (int(order.size()) > maxKeypoints) {
                std::stable_sort(order.begin(), order.end(),
                                 [&](int i, int j) { return found[size_t(i)].response > found[size_t(j)].response; });
                order.resize(maxKeypoints);
            }
            const cv::Matx33d up = enlargement(gray.size(), small.size());
            const double grow = std::sqrt(up(0, 0) * up(1, 1));
            keypoints_.reserve(order.size());
            descriptors_.create(int(order.size()), descriptors.cols, descriptors.type());
            for (size_t i = 0; i < order.size(); ++i) {
                cv::KeyPoint k = found[size_t(order[i])];
                k.pt = cv::Point2f(float(up(0, 0) * k.pt.x + up(0, 2)), float(up(1, 1) * k.pt.y + up(1, 2)));
                k.size = float(k.size * grow);
                keypoints_.push_back(k);
                descriptors.row(order[i]).copyTo(descriptors_.row(int(i)));
            }
            pixelSize_ = std::max(up(0, 0), up(1, 1));
            return VStatus::Ok;
        });
    });
    if (!status_) {
        keypoints_.clear();
        descriptors_.release();
    }
}

int VKeypointDescriptors::count() const { return int(keypoints_.size()); }

bool VKeypointDescriptors::isEmpty() const { return keypoints_.empty(); }

const std::vector<cv::KeyPoint>& VKeypointDescriptors::keypoints() const { return keypoints_; }

const cv::Mat& VKeypointDescriptors::descriptors() const { return descriptors_; }

VStatus VKeypointDescriptors::status() const { return status_; }

namespace VEXA {

VTransformPerspective findTransformation(const VKeypointDescriptors& a, const VKeypointDescriptors& b, bool* ok)
{
    VTransformPerspective result;
    bool found = false;
    double h[9] = {1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
    const CallSite site = VEXA_CALL_SITE;
    const VStatus status = guarded(site, [&] {
        if (!a.status())
            return a.status();
        if (!b.status())
            return b.status();
        const cv::Mat& da = a.descriptors();
        const cv::Mat& db = b.descriptors();
        if (a.count() < minInliers || b.count() < minInliers || da.type() != db.type() || da.cols != db.cols)
            return VStatus::Ok;
        std::vector<std::vector<cv::DMatch>> candidates;
        cv::BFMatcher(cv::NORM_HAMMING).knnMatch(db, da, candidates, 2);
        std::vector<cv::Point2f> from, to;
        for (const std::vector<cv::DMatch>& m : candidates)
            if (m.size() == 2 && m[0].distance < matchRatio * m[1].distance) {
                from.push_back(b.keypoints()[size_t(m[0].queryIdx)].pt);
                to.push_back(a.keypoints()[size_t(m[0].trainIdx)].pt);
            }
        if (int(from.size()) < minInliers)
            return VStatus::Ok;
        const double threshold = inlierPixels * std::max(a.pixelSize_, b.pixelSize_);
        std::vector<uchar> inliers;
        const cv::Mat fit = cv::findHomography(from, to, cv::USAC_MAGSAC, threshold, inliers, 5000, 0.999);
        if (fit.empty() || cv::countNonZero(inliers) < minInliers)
            return VStatus::Ok;
        cv::Matx33d m;
        fit.convertTo(m, CV_64F);
        if (!isRegular(m, cv::boundingRect(from)))
            return VStatus::Ok;
        std::copy(m.val, m.val + 9, h);
        found = true;
        return VStatus::Ok;
    });
    result.fromMatrix(h);
    result.setStatus(status);
    if (ok)
        *ok = found && status;
    return result;
}

VStatus stabilizeLocal(const VImage& reference, VImage* image)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(reference);
        VImage& moving = checkExistingDestination(image);
        checkSameSize(reference, moving);
        if (!supports(WarpPixels{}, moving.format(), moving.channelType()))
            throwUnsupported();
        // The gray copies, the search and the warp run whole: a cancellation is seen before they start,
        // and completion is reported once they are done.
        return runWhole("aligning", [&] {
            const cv::Matx33d w = alignment(reference, moving);
            cv::Mat roi = asCvMat(moving);
            const double right = roi.cols - 1, bottom = roi.rows - 1;
            double moved = 0.0;
            for (const cv::Vec3d& p :
                 {cv::Vec3d(0, 0, 1), cv::Vec3d(right, 0, 1), cv::Vec3d(0, bottom, 1), cv::Vec3d(right, bottom, 1)}) {
                const cv::Vec3d q = w * p;
                moved = std::max(moved, std::hypot(q[0] - p[0], q[1] - p[1]));
            }
            const cv::Vec3d centre(right / 2, bottom / 2, 1.0), c = w * centre;
            const double shift = std::max(std::abs(c[0] - centre[0]) / roi.cols, std::abs(c[1] - centre[1]) / roi.rows);
            const double linear =
                std::max({std::abs(w(0, 0) - 1), std::abs(w(0, 1)), std::abs(w(1, 0)), std::abs(w(1, 1) - 1)});
            if (!std::isfinite(moved) || linear > maxLinearChange || shift > maxShiftShare)
                throw dip_exception("No plausible alignment found");
            if (moved <= identityPixels)
                return VStatus::Ok;
            // w takes reference coordinates to the image's: the image is sampled through it. What falls
            // outside the image becomes black, which the focus merge reads as "no data" rather than as an
            // edge smeared inwards.
            const cv::Matx23d sample(w(0, 0), w(0, 1), w(0, 2), w(1, 0), w(1, 1), w(1, 2));
            const cv::Mat source = roi.clone();
            writeInto(roi, [&](cv::Mat& out) {
                cv::warpAffine(source, out, sample, out.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP,
                               cv::BORDER_CONSTANT, cv::Scalar::all(0));
            });
            return VStatus::Ok;
        });
    });
}

} // namespace VEXA
