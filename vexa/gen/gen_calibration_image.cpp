#include <vexa/gen/gen_calibration_image.h>

#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/opencv_frame.h>
#include <vexa/imp/detail/progress.h>
#include <vexa/imp/kernels/resize_image.h>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

VCameraCalibration::VCameraCalibration(double fx, double fy, double cx, double cy, double k1, double k2, double p1,
                                       double p2, double k3, QSize imageSize, double rms)
    : fx_(fx), fy_(fy), cx_(cx), cy_(cy), k1_(k1), k2_(k2), p1_(p1), p2_(p2), k3_(k3), imageSize_(imageSize), rms_(rms)
{
}

QList<double> VCameraCalibration::distortion() const { return {k1_, k2_, p1_, p2_, k3_}; }

bool VCameraCalibration::isValid() const
{
    for (double v : {fx_, fy_, cx_, cy_, k1_, k2_, p1_, p2_, k3_, rms_})
        if (!std::isfinite(v))
            return false;
    const bool sizeOk = imageSize_.isEmpty() ? imageSize_ == QSize(0, 0) || imageSize_ == QSize()
                                             : imageSize_.width() > 0 && imageSize_.height() > 0;
    return fx_ > 0.0 && fy_ > 0.0 && sizeOk;
}

QString VCameraCalibration::toString() const
{
    return QStringLiteral("fx=%1 fy=%2 cx=%3 cy=%4 k1=%5 k2=%6 p1=%7 p2=%8 k3=%9 size=%10x%11 rms=%12")
        .arg(fx_, 0, 'g', 10)
        .arg(fy_, 0, 'g', 10)
        .arg(cx_, 0, 'g', 10)
        .arg(cy_, 0, 'g', 10)
        .arg(k1_, 0, 'g', 10)
        .arg(k2_, 0, 'g', 10)
        .arg(p1_, 0, 'g', 10)
        .arg(p2_, 0, 'g', 10)
        .arg(k3_, 0, 'g', 10)
        .arg(imageSize_.width())
        .arg(imageSize_.height())
        .arg(rms_, 0, 'g', 10);
}

namespace VEXA {

namespace {

constexpr double reach = 1 << 24; // coordinates and sizes beyond lose whole pixels in OpenCV's floats
constexpr int minViews = 3;       // Zhang's method: two views leave the intrinsics under-determined
constexpr int maxPatternSide = 1024;
// A fit is refused when its focal lengths' standard deviation passes this share of them: 0.07% on eight
// clean views, 4.5% on one view repeated.
constexpr double maxFocalDeviation = 0.02;

void requirePattern(QSize patternSize)
{
    if (patternSize.width() < 3 || patternSize.height() < 3 || patternSize.width() > maxPatternSide ||
        patternSize.height() > maxPatternSide)
        throw dip_exception("Pattern size must be 3 to 1024 inner corners each way");
}

struct CameraMats {
    cv::Matx33d camera;
    cv::Matx<double, 5, 1> distortion;
};

CameraMats matsOf(const VCameraCalibration& c)
{
    if (!c.isValid())
        throw dip_exception("Invalid camera calibration");
    return {cv::Matx33d(c.fx(), 0.0, c.cx(), 0.0, c.fy(), c.cy(), 0.0, 0.0, 1.0),
            cv::Matx<double, 5, 1>(c.k1(), c.k2(), c.p1(), c.p2(), c.k3())};
}

// A destination of src's pair and roi size; the roi must be of the calibration's size when it has one.
cv::Mat undistortDestination(const VImage& src, VImage* dst, const VCameraCalibration& calibration)
{
    checkSource(src);
    requireListed(WarpPixels{}, src);
    VImage& d = prepareDestination(src, dst);
    if (d.format() != src.format() || d.channelType() != src.channelType())
        throwUnsupported();
    checkSameSize(src, d);
    const cv::Mat o = asCvMat(d);
    if (o.empty())
        throw dip_exception_empty_source_image();
    const QSize size = calibration.imageSize();
    if (!size.isEmpty() && size != QSize(o.cols, o.rows))
        throw dip_exception("Image size differs from the calibration's");
    return o;
}

} // namespace

VStatus findChessboardCorners(const VImage& src, QSize patternSize, QList<QPointF>* corners, bool* found)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat gray = grayPlane(src, false);
        QList<QPointF>& out = checkOutput(corners);
        requirePattern(patternSize);
        checkCancelled();
        std::vector<cv::Point2f> points;
        const cv::Size pattern(patternSize.width(), patternSize.height());
        // Squares under 4 pixels are not told apart, and OpenCV's thresholds need some 16 pixels each way.
        const bool fits = std::min(gray.cols, gray.rows) >= 4 * (std::min(pattern.width, pattern.height) + 1);
        const bool isFound =
            fits && cv::findChessboardCorners(gray, pattern, points,
                                              cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_NORMALIZE_IMAGE);
        if (!isFound || points.size() != size_t(pattern.area())) {
            if (!found)
                throw dip_exception("Chessboard not found");
            out.clear();
            *found = false;
            return VStatus::Ok;
        }
        // The window stays short of the neighbouring corners: the nearest pair along a row or a column.
        double spacing = HUGE_VAL;
        for (int y = 0; y < pattern.height; ++y)
            for (int x = 0; x < pattern.width; ++x) {
                const cv::Point2f& p = points[size_t(y * pattern.width + x)];
                if (x + 1 < pattern.width)
                    spacing = std::min(spacing, double(cv::norm(points[size_t(y * pattern.width + x + 1)] - p)));
                if (y + 1 < pattern.height)
                    spacing = std::min(spacing, double(cv::norm(points[size_t((y + 1) * pattern.width + x)] - p)));
            }
        const int half = std::clamp(int(spacing * 0.4), 1, 11);
        cv::cornerSubPix(gray, points, cv::Size(half, half), cv::Size(-1, -1),
                         cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 50, 1e-4));
        QList<QPointF> result;
        result.reserve(int(points.size()));
        for (const cv::Point2f& p : points)
            result.append(QPointF(p.x, p.y));
        out = result;
        if (found)
            *found = true;
        reportProgress(1.0, "finding a chessboard");
        return VStatus::Ok;
    });
}

VStatus calibrateCamera(const QList<QList<QPointF>>& imagePoints, QSize patternSize, double squareSize, QSize imageSize,
                        VCameraCalibration* result)
{
    return guarded(VEXA_CALL_SITE, [&] {
        VCameraCalibration& out = checkOutput(result);
        requirePattern(patternSize);
        if (!(squareSize > 0.0 && squareSize <= reach))
            throw dip_exception("Square size must be positive and finite");
        if (imageSize.width() < 1 || imageSize.height() < 1 || imageSize.width() > reach || imageSize.height() > reach)
            throw dip_exception("Image size must be 1 to 2^24 pixels each way");
        if (imagePoints.size() < minViews)
            throw dip_exception("At least 3 views are needed");
        const int count = patternSize.width() * patternSize.height();
        std::vector<cv::Point3f> board;
        board.reserve(size_t(count));
        for (int i = 0; i < count; ++i)
            board.emplace_back(float(i % patternSize.width() * squareSize), float(i / patternSize.width() * squareSize),
                               0.0f);
        std::vector<std::vector<cv::Point3f>> objects;
        std::vector<std::vector<cv::Point2f>> views;
        for (const QList<QPointF>& view : imagePoints) {
            checkCancelled();
            if (view.size() != count)
                throw dip_exception("Every view must hold the pattern's number of corners");
            views.push_back(cvPoints(view));
            objects.push_back(board);
        }
        return runWhole("calibrating", [&] {
            cv::Mat camera, distortion;
            std::vector<cv::Mat> rotations, translations;
            cv::Mat deviations, extrinsicDeviations, perView;
            const double rms =
                cv::calibrateCamera(objects, views, cv::Size(imageSize.width(), imageSize.height()), camera, distortion,
                                    rotations, translations, deviations, extrinsicDeviations, perView, 0);
            cv::Mat_<double> k, d;
            camera.convertTo(k, CV_64F);
            distortion.convertTo(d, CV_64F);
            d = d.reshape(1, 1);
            if (k.rows != 3 || k.cols != 3 || d.cols < 5)
                throw dip_exception("Calibration failed");
            const VCameraCalibration c(k(0, 0), k(1, 1), k(0, 2), k(1, 2), d(0), d(1), d(2), d(3), d(4), imageSize,
                                       rms);
            if (!c.isValid())
                throw dip_exception("Calibration failed");
            // Views that do not pin the camera down (one pose over and over, say) still give a camera, but
            // one whose parameters the fit cannot tell: their standard deviations are huge or not numbers.
            cv::Mat_<double> sigma;
            deviations.convertTo(sigma, CV_64F);
            sigma = sigma.reshape(1, 1);
            bool determined =
                sigma.cols >= 9 && sigma(0) <= maxFocalDeviation * c.fx() && sigma(1) <= maxFocalDeviation * c.fy();
            for (int i = 0; determined && i < 9; ++i)
                determined = std::isfinite(sigma(i));
            if (!determined)
                throw dip_exception("Calibration failed: the views do not determine the camera");
            out = c;
            return VStatus::Ok;
        });
    });
}

VStatus undistortImage(const VImage& src, VImage* dst, const VCameraCalibration& calibration)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const CameraMats camera = matsOf(calibration);
        const TakeBackOnFailure takeBack(dst);
        cv::Mat o = undistortDestination(src, dst, calibration);
        undistortInStripes(asCvMat(src), o, cv::Mat(camera.camera), cv::Mat(camera.distortion), cv::Mat(camera.camera));
        return VStatus::Ok;
    });
}

VStatus undistortImage(const VImage& src, VImage* dst, const VCameraCalibration& calibration, double alpha,
                       VCameraCalibration* newCamera)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const CameraMats camera = matsOf(calibration);
        if (!(alpha >= 0.0 && alpha <= 1.0))
            throw dip_exception("Alpha must be from 0 to 1");
        const TakeBackOnFailure takeBack(dst);
        cv::Mat o = undistortDestination(src, dst, calibration);
        const cv::Size size(o.cols, o.rows);
        const cv::Matx33d chosen(cv::getOptimalNewCameraMatrix(camera.camera, camera.distortion, size, alpha, size));
        const VCameraCalibration made(chosen(0, 0), chosen(1, 1), chosen(0, 2), chosen(1, 2), 0.0, 0.0, 0.0, 0.0, 0.0,
                                      calibration.imageSize());
        if (!made.isValid())
            throw dip_exception("No undistorted camera for this calibration");
        undistortInStripes(asCvMat(src), o, cv::Mat(camera.camera), cv::Mat(camera.distortion), cv::Mat(chosen));
        if (newCamera)
            *newCamera = made;
        return VStatus::Ok;
    });
}

VStatus undistortPoints(const QList<QPointF>& points, QList<QPointF>* result, const VCameraCalibration& calibration)
{
    return guarded(VEXA_CALL_SITE, [&] {
        QList<QPointF>& out = checkOutput(result);
        const CameraMats camera = matsOf(calibration);
        const std::vector<cv::Point2f> in = cvPoints(points);
        QList<QPointF> moved;
        if (!in.empty()) {
            std::vector<cv::Point2f> undistorted;
            cv::undistortPoints(in, undistorted, camera.camera, camera.distortion, cv::noArray(), camera.camera,
                                cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 100, 1e-6));
            moved.reserve(int(undistorted.size()));
            for (const cv::Point2f& p : undistorted)
                moved.append(QPointF(p.x, p.y));
        }
        out = moved;
        return VStatus::Ok;
    });
}

} // namespace VEXA
