#include <vexa/gen/gen_resize_image.h>

#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/progress.h>
#include <vexa/imp/kernels/resize_image.h>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <limits>

namespace VEXA {

namespace {

// The warps go through the OpenCV frame with OpenCV's type precondition under the C function's name; they
// check for cancellation between bands themselves, and the others run whole.
template <class List, class Call>
VStatus warpInto(List list, const VImage& src, VImage& dst, const char* function, Call call)
{
    return cvCallInto(list, CvCall{function, sameType}, dst, [&](const cv::Mat& s, cv::Mat& o, auto) {
        runWhole("warping", [&] {
            call(s, o);
            return true;
        });
    }, src);
}

// A warp as one OpenCV call; while a progress is current, in bands of destination rows instead, each band
// warped with the inverse map moved down to its first row, into a scratch image (starting as dst, for warps
// that leave outliers as they were) that goes to dst only once complete: a cancelled warp leaves dst
// untouched. warp(source, rows, inverse) writes `rows` by the inverse map `inverse` (3 x 3, double).
template <class Warp>
void warpInBands(const cv::Mat& s, cv::Mat& o, const cv::Matx33d& inverse, Warp&& warp)
{
    if (!progressIsCurrent()) {
        warp(s, o, inverse);
        return;
    }
    cv::Mat whole = o.clone();
    forEachBand(o.rows, o.cols, "warping", [&](int y0, int y1) {
        cv::Mat rows = whole.rowRange(y0, y1);
        // Destination row y of the band is row y0 + y of the whole.
        const cv::Matx33d down(1, 0, 0, 0, 1, y0, 0, 0, 1);
        writeInto(rows, [&](cv::Mat& r) { warp(s, r, inverse * down); });
    });
    whole.copyTo(o);
}

// The inverse of an affine map as OpenCV's warpAffine computes it, in double precision.
cv::Matx33d inverseAffine(const cv::Mat& forward)
{
    cv::Matx23d m;
    forward.convertTo(m, CV_64F);
    double d = m(0, 0) * m(1, 1) - m(0, 1) * m(1, 0);
    d = d != 0 ? 1.0 / d : 0.0;
    const double a11 = m(1, 1) * d, a22 = m(0, 0) * d, a12 = -m(0, 1) * d, a21 = -m(1, 0) * d;
    const double b1 = -a11 * m(0, 2) - a12 * m(1, 2);
    const double b2 = -a21 * m(0, 2) - a22 * m(1, 2);
    return {a11, a12, b1, a21, a22, b2, 0, 0, 1};
}

// warpAffine's body: the affine part of t in single precision, bilinear, outliers filled with 0.
VStatus affineWarp(const VImage& src, VImage& dst, const VTransform2D& t)
{
    const cv::Mat m = affineMatrix(t);
    return warpInto(WarpPixels{}, src, dst, "cvWarpAffine", [&](const cv::Mat& s, cv::Mat& o) {
        if (!progressIsCurrent()) {
            cv::warpAffine(s, o, m, o.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar::all(0));
            return;
        }
        warpInBands(s, o, inverseAffine(m), [](const cv::Mat& in, cv::Mat& rows, const cv::Matx33d& inverse) {
            cv::warpAffine(in, rows, cv::Mat(inverse).rowRange(0, 2), rows.size(),
                           cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, cv::BORDER_CONSTANT, cv::Scalar::all(0));
        });
    });
}

// A size of the rotated image, or 0 when it cannot be a 32-bit pixel count.
qint32 wholePixels(double extent)
{
    const double rounded = std::ceil(extent - 1e-6);
    if (!(rounded >= 0.0) || rounded > double(std::numeric_limits<qint32>::max()))
        return 0;
    return qint32(rounded);
}

} // namespace

VStatus resizeImage(const VImage& src, VImage* dst, InterpolationMethod method)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        VImage& d = checkExistingDestination(dst);
        const int code = resizeCode(method);
        return warpInto(ResizePixels{}, src, d, "cvResize", [&](const cv::Mat& s, cv::Mat& o) {
            cv::resize(s, o, o.size(), 0, 0, code);
        });
    });
}

VStatus warpAffine(const VImage& src, VImage* dst, VTransform2D t)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        return affineWarp(src, checkExistingDestination(dst), t);
    });
}

VStatus warpPerspectiveImage(VImage src, VImage* dst, const VTransformPerspective& t)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        VImage& d = checkExistingDestination(dst);
        VTransformPerspective matrix = t;
        const cv::Mat m = matrix.createCvMat();
        return warpInto(WarpPixels{}, src, d, "cvWarpPerspective", [&](const cv::Mat& s, cv::Mat& o) {
            if (!progressIsCurrent()) {
                cv::warpPerspective(s, o, m, o.size(), cv::INTER_LINEAR, cv::BORDER_TRANSPARENT);
                return;
            }
            // As warpPerspective inverts the map: LU in double precision.
            cv::Mat forward, inverse;
            m.convertTo(forward, CV_64F);
            cv::invert(forward, inverse, cv::DECOMP_LU);
            warpInBands(s, o, cv::Matx33d(inverse), [](const cv::Mat& in, cv::Mat& rows, const cv::Matx33d& map) {
                cv::warpPerspective(in, rows, cv::Mat(map), rows.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP,
                                    cv::BORDER_TRANSPARENT);
            });
        });
    });
}

VStatus flipImage(const VImage& src, VImage* dst, int mode)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        const TakeBackOnFailure takeBack(dst);
        VImage& d = prepareDestination(src, dst);
        return warpInto(AllPixels{}, src, d, "cvFlip", [&](const cv::Mat& s, cv::Mat& o) {
            requireOpenCv(s.size() == o.size(), "src.type() == dst.type() && src.size() == dst.size()", "cvFlip");
            cv::flip(s, o, mode);
        });
    });
}

VStatus rotateImage(const VImage& src, VImage* dst, double angle, RotateMethod)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        VImage& d = checkExistingDestination(dst);
        return affineWarp(src, d, rotationTransform(std::cos(angle), std::sin(angle), src, d));
    });
}

VStatus rotateImage(const VImage& src, VImage* dst, FixedAngle angle, RotateMethod)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        VImage& d = checkExistingDestination(dst);
        const QPointF cs = quarterTurn(angle);
        return affineWarp(src, d, rotationTransform(cs.x(), cs.y(), src, d));
    });
}

void headerForRotate(const VImageHeader& src, FixedAngle angle, RotateMethod method, VImageHeader* dst)
{
    if (!dst)
        return;
    *dst = src;
    if (method != RotateKeepSize && (angle == Angle90 || angle == Angle270))
        std::swap(dst->width, dst->height);
}

void headerForRotate(const VImageHeader& src, double angle, RotateMethod method, VImageHeader* dst)
{
    if (!dst)
        return;
    *dst = src;
    if (method == RotateKeepSize || !std::isfinite(angle))
        return;
    const double c = std::abs(std::cos(angle));
    const double s = std::abs(std::sin(angle));
    const double w = src.width;
    const double h = src.height;
    dst->width = wholePixels(w * c + h * s);
    dst->height = wholePixels(w * s + h * c);
    if (dst->width == 0 || dst->height == 0)
        dst->width = dst->height = 0;
}

VStatus undistortImage(const VImage& src, VImage* dst, double k1)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        const TakeBackOnFailure takeBack(dst);
        VImage& d = prepareDestination(src, dst);
        return warpInto(WarpPixels{}, src, d, "cvUndistort2", [&](const cv::Mat& s, cv::Mat& o) {
            requireOpenCv(s.size() == o.size(), "src.size() == dst.size() && src.type() == dst.type()",
                          "cvUndistort2");
            const cv::Matx33d camera(1.0, 0.0, double(s.cols / 2), 0.0, 1.0, double(s.rows / 2), 0.0, 0.0, 1.0);
            const cv::Matx41d distortion(k1, 0.0, 0.0, 0.0);
            if (progressIsCurrent()) {
                undistortInStripes(s, o, cv::Mat(camera), cv::Mat(distortion), cv::Mat(camera)); // o written at the end: s may be o
                return;
            }
            // OpenCV refuses to work in place; the exact in-place call reads a copy like any overlap.
            cv::undistort(separateSource(s, o), o, camera, distortion);
        });
    });
}

} // namespace VEXA
