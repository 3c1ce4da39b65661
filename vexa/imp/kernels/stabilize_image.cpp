#include <vexa/imp/kernels/stabilize_image.h>

#include <vexa/gen/gen_keypoint_image.h>
#include <vexa/gen/gen_resize_image.h>
#include <vexa/imp/detail/opencv_frame.h>
#include <vexa/imp/detail/progress.h>
#include <vexa/imp/exceptions.h>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace VEXA {

namespace {

// Keypoints are found on a copy whose long side is at most this many pixels, at most this many of them.
constexpr int detectionSide = 1024;
constexpr int keypointsPerFrame = 4000;
// Neighbours with fewer inliers than this are taken as not moved.
constexpr int minInliers = 10;
// RANSAC's inlier distance, in pixels of the copy the keypoints were found on.
constexpr double inlierPixels = 2.0;
// A step scaling by more than this (either way) is no shake of one camera: taken as not moved.
constexpr double maxStepScale = 1.5;

void require(const VStatus& status)
{
    if (!status)
        throw NestedFailure{status};
}

// A place on the camera's path: turn (radians), log scale and shift of the frame's centre.
struct Pose {
    double angle = 0.0, logScale = 0.0, x = 0.0, y = 0.0;
};

cv::Matx33d matrixOf(const Pose& p)
{
    const double s = std::exp(p.logScale), c = s * std::cos(p.angle), n = s * std::sin(p.angle);
    return {c, -n, p.x, n, c, p.y, 0.0, 0.0, 1.0};
}

// The keypoints of a frame's roi, in its full-size pixel coordinates.
VKeypointSet keypointsOf(const VImage& frame, double* pixelSize)
{
    const QSize size = frame.roi().intersected(QRect(0, 0, frame.width(), frame.height())).size();
    const int side = std::max(size.width(), size.height());
    VImage source = frame;
    double fx = 1.0, fy = 1.0;
    if (side > detectionSide) {
        const double s = double(detectionSide) / side;
        const int w = std::max(1, int(std::lround(size.width() * s))),
                  h = std::max(1, int(std::lround(size.height() * s)));
        VImage small;
        small.create(w, h, frame.format(), frame.channelType(), frame.origin(), frame.rowsAlignment());
        require(small.status());
        require(resizeImage(frame, &small, InterpolationArea));
        source = small;
        fx = double(size.width()) / w;
        fy = double(size.height()) / h;
    }
    VImageList one;
    one.add(source);
    QList<VKeypointSet> sets;
    require(findVKeypointDescriptors(one, &sets, KeypointAkaze, keypointsPerFrame));
    VKeypointSet set = sets.value(0);
    // Pixel centres on pixel centres.
    for (cv::KeyPoint& k : set.keypoints)
        k.pt = cv::Point2f(float(fx * k.pt.x + 0.5 * fx - 0.5), float(fy * k.pt.y + 0.5 * fy - 0.5));
    *pixelSize = std::max(fx, fy);
    return set;
}

// The similarity taking the current frame's pixel coordinates to the previous one's; the identity when the
// two have too little in common.
cv::Matx33d stepBetween(const VKeypointSet& previous, const VKeypointSet& current, double pixelSize)
{
    QList<QPair<QPointF, QPointF>> pairs;
    require(matchKeypointDescriptors(current, previous, &pairs));
    if (pairs.size() < minInliers)
        return cv::Matx33d::eye();
    std::vector<cv::Point2f> from, to;
    for (const auto& pair : pairs) {
        from.emplace_back(float(pair.first.x()), float(pair.first.y()));
        to.emplace_back(float(pair.second.x()), float(pair.second.y()));
    }
    std::vector<uchar> inliers;
    const cv::Mat fit =
        cv::estimateAffinePartial2D(from, to, inliers, cv::RANSAC, inlierPixels * pixelSize, 2000, 0.999, 10);
    if (fit.empty() || cv::countNonZero(inliers) < minInliers)
        return cv::Matx33d::eye();
    cv::Matx33d m = cv::Matx33d::eye();
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 3; ++c)
            m(r, c) = fit.at<double>(r, c);
    const double scale = std::hypot(m(0, 0), m(1, 0));
    if (!(scale < maxStepScale && scale > 1.0 / maxStepScale) || !std::isfinite(m(0, 2)) || !std::isfinite(m(1, 2)))
        return cv::Matx33d::eye();
    return m;
}

// Whether the rectangle's corners lie, for every warp, within the frame it was warped from.
bool covered(const std::vector<cv::Matx33d>& inverses, cv::Size size, double l, double t, double r, double b)
{
    constexpr double slack = 1e-3;
    for (const cv::Matx33d& inverse : inverses)
        for (const cv::Vec3d& q : {cv::Vec3d(l, t, 1), cv::Vec3d(r, t, 1), cv::Vec3d(r, b, 1), cv::Vec3d(l, b, 1)}) {
            const cv::Vec3d p = inverse * q;
            if (!(p[0] >= -slack && p[0] <= size.width - 1 + slack && p[1] >= -slack &&
                  p[1] <= size.height - 1 + slack))
                return false;
        }
    return true;
}

// The rectangle of whole pixels every warped frame covers: grown from the middle of the common area with
// the frame's proportions, then side by side as far as each goes.
cv::Rect commonRectangle(const std::vector<cv::Matx33d>& warps, cv::Size size)
{
    std::vector<cv::Matx33d> inverses;
    std::vector<cv::Point2f> common;
    for (const cv::Matx33d& w : warps) {
        inverses.push_back(w.inv());
        std::vector<cv::Point2f> quad;
        for (const cv::Vec3d& p : {cv::Vec3d(0, 0, 1), cv::Vec3d(size.width - 1, 0, 1),
                                   cv::Vec3d(size.width - 1, size.height - 1, 1), cv::Vec3d(0, size.height - 1, 1)}) {
            const cv::Vec3d q = w * p;
            quad.emplace_back(float(q[0]), float(q[1]));
        }
        if (common.empty()) {
            common = quad;
        } else {
            std::vector<cv::Point2f> both;
            cv::intersectConvexConvex(common, quad, both, true);
            common = both;
        }
        if (common.size() < 3)
            throw dip_exception("The frames share no common area");
    }
    cv::Point2d centre(0.0, 0.0);
    for (const cv::Point2f& p : common)
        centre += cv::Point2d(p);
    centre *= 1.0 / double(common.size());
    if (!covered(inverses, size, centre.x, centre.y, centre.x, centre.y))
        throw dip_exception("The frames share no common area");
    const auto search = [](double low, double high, auto&& fits) {
        for (int i = 0; i < 40; ++i) {
            const double middle = 0.5 * (low + high);
            (fits(middle) ? low : high) = middle;
        }
        return low;
    };
    const double hw = 0.5 * (size.width - 1), hh = 0.5 * (size.height - 1);
    const double s = search(0.0, 1.0, [&](double f) {
        return covered(inverses, size, centre.x - f * hw, centre.y - f * hh, centre.x + f * hw, centre.y + f * hh);
    });
    double l = centre.x - s * hw, t = centre.y - s * hh, r = centre.x + s * hw, b = centre.y + s * hh;
    const double reach = 2.0 * (size.width + size.height);
    for (int round = 0; round < 2; ++round) {
        l -= search(0.0, reach, [&](double d) { return covered(inverses, size, l - d, t, r, b); });
        r += search(0.0, reach, [&](double d) { return covered(inverses, size, l, t, r + d, b); });
        t -= search(0.0, reach, [&](double d) { return covered(inverses, size, l, t - d, r, b); });
        b += search(0.0, reach, [&](double d) { return covered(inverses, size, l, t, r, b + d); });
    }
    const int x0 = int(std::ceil(l - 1e-9)), y0 = int(std::ceil(t - 1e-9));
    const int x1 = int(std::floor(r + 1e-9)), y1 = int(std::floor(b + 1e-9));
    if (x1 < x0 || y1 < y0)
        throw dip_exception("The frames share no common area");
    return cv::Rect(x0, y0, x1 - x0 + 1, y1 - y0 + 1);
}

VTransform2D transformOf(const cv::Matx33d& m)
{
    const double a[6] = {m(0, 0), m(0, 1), m(0, 2), m(1, 0), m(1, 1), m(1, 2)};
    VTransform2D t;
    t.fromMatrix2x3(a);
    return t;
}

} // namespace

VImageList kernel::stabilize(const QList<VImage>& frames, int radius, StabilizeBorders borders)
{
    const int n = int(frames.size());
    const cv::Size size = asCvMat(frames.first()).size();
    const cv::Matx33d centred(1, 0, 0.5 * (size.width - 1), 0, 1, 0.5 * (size.height - 1), 0, 0, 1);
    const cv::Matx33d uncentred = centred.inv();
    ProgressSteps steps("stabilizing");

    // The path: each frame's place relative to the first, in coordinates about the frame's centre.
    std::vector<Pose> path(static_cast<size_t>(n));
    if (radius > 0 && n > 1) {
        cv::Matx33d chained = cv::Matx33d::eye();
        double pixelSize = 1.0;
        VKeypointSet previous;
        for (int i = 0; i < n; ++i) {
            steps.to(0.6 * (i + 1) / n);
            VKeypointSet current = keypointsOf(frames[i], &pixelSize);
            if (i > 0) {
                const cv::Matx33d step = uncentred * stepBetween(previous, current, pixelSize) * centred;
                chained = chained * step;
                Pose& p = path[size_t(i)];
                p.angle = path[size_t(i - 1)].angle + std::atan2(step(1, 0), step(0, 0));
                p.logScale = path[size_t(i - 1)].logScale + std::log(std::hypot(step(0, 0), step(1, 0)));
                p.x = chained(0, 2);
                p.y = chained(1, 2);
            }
            previous = std::move(current);
        }
    }

    // Each frame's warp: from its place on the path to the smoothed place.
    const int reach = std::min(radius, n);
    std::vector<cv::Matx33d> warps;
    for (int i = 0; i < n; ++i) {
        const int first = std::max(0, i - reach), last = std::min(n - 1, i + reach);
        Pose mean;
        for (int j = first; j <= last; ++j) {
            mean.angle += path[size_t(j)].angle;
            mean.logScale += path[size_t(j)].logScale;
            mean.x += path[size_t(j)].x;
            mean.y += path[size_t(j)].y;
        }
        const double count = last - first + 1;
        mean = Pose{mean.angle / count, mean.logScale / count, mean.x / count, mean.y / count};
        const Pose& own = path[size_t(i)];
        // The raw place is rebuilt from its own angle and scale, so that turns past a half turn
        // are not folded back.
        warps.push_back(centred * matrixOf(mean).inv() * matrixOf(own) * uncentred);
    }

    cv::Rect kept(0, 0, size.width, size.height);
    if (borders == StabilizeCrop) {
        kept = commonRectangle(warps, size);
        const cv::Matx33d shift(1, 0, -kept.x, 0, 1, -kept.y, 0, 0, 1);
        for (cv::Matx33d& w : warps)
            w = shift * w;
    }

    VImageList stabilized;
    for (int i = 0; i < n; ++i) {
        steps.to(0.6 + 0.4 * (i + 1) / n);
        const VImage& frame = frames[i];
        VImage dst;
        dst.create(kept.width, kept.height, frame.format(), frame.channelType(), frame.origin(),
                   frame.rowsAlignment());
        require(dst.status());
        if (borders == StabilizeReplicate) {
            cv::Mat d = asCvMat(dst);
            const cv::Matx23d m(warps[size_t(i)].val);
            writeInto(d, [&](cv::Mat& o) {
                cv::warpAffine(asCvMat(frame), o, m, o.size(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
            });
        } else {
            require(warpAffine(frame, &dst, transformOf(warps[size_t(i)])));
        }
        stabilized.add(dst);
    }
    return stabilized;
}

} // namespace VEXA
