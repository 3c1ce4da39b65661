#include <vexa/imp/kernels/resize_image.h>

#include <vexa/imp/detail/opencv_frame.h>
#include <vexa/imp/detail/progress.h>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>

#include <utility>

namespace VEXA {

int resizeCode(InterpolationMethod method)
{
    // Built on each call, as the codes are checked against the methods one by one.
    const std::pair<InterpolationMethod, int> codes[] = {{InterpolationNearest, cv::INTER_NEAREST},
                                                         {InterpolationLinear, cv::INTER_LINEAR},
                                                         {InterpolationCubic, cv::INTER_CUBIC},
                                                         {InterpolationArea, cv::INTER_AREA}};
    for (const auto& [m, code] : codes)
        if (m == method)
            return code;
    throw dip_exception_unsupported_parameters("Unsupported interpolation method");
}

cv::Mat affineMatrix(const VTransform2D& t)
{
    cv::Mat m(2, 3, CV_32F);
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 3; ++c)
            m.at<float>(r, c) = float(t.get(c, r));
    return m;
}

QPointF quarterTurn(FixedAngle angle)
{
    switch (angle) {
    case Angle90: return {0.0, 1.0};
    case Angle180: return {-1.0, 0.0};
    case Angle270: return {0.0, -1.0};
    default: return {1.0, 0.0};
    }
}

VTransform2D rotationTransform(double c, double s, const VImage& src, const VImage& dst)
{
    const cv::Mat from = asCvMat(src), to = asCvMat(dst);
    const double srcCx = (from.cols - 1) * 0.5, srcCy = (from.rows - 1) * 0.5;
    const double dstCx = (to.cols - 1) * 0.5, dstCy = (to.rows - 1) * 0.5;
    VTransform2D t;
    t.set(0, 0, c);
    t.set(1, 0, s);
    t.set(0, 1, -s);
    t.set(1, 1, c);
    t.set(2, 0, dstCx - srcCx * c - srcCy * s);
    t.set(2, 1, dstCy - srcCy * c + srcCx * s);
    return t;
}

void undistortInStripes(const cv::Mat& s, cv::Mat& o, const cv::Mat& camera, const cv::Mat& distortion,
                        const cv::Mat& newCamera)
{
    const int stripe = std::min(std::max(1, (1 << 12) / std::max(s.cols, 1)), s.rows);
    cv::Mat map1(stripe, s.cols, CV_16SC2), map2(stripe, s.cols, CV_16UC1);
    const cv::Mat_<double> identity = cv::Mat_<double>::eye(3, 3);
    cv::Mat_<double> moved;
    newCamera.convertTo(moved, CV_64F);
    const double v0 = moved(1, 2);
    cv::Mat whole(o.size(), o.type());
    const int stripes = (s.rows + stripe - 1) / stripe;
    forEachBand(stripes, long(stripe) * s.cols, "undistorting", [&](int first, int last) {
        for (int i = first; i < last; ++i) {
            const int y = i * stripe, rows = std::min(stripe, s.rows - y);
            moved(1, 2) = v0 - y;
            cv::Mat m1 = map1.rowRange(0, rows), m2 = map2.rowRange(0, rows);
            cv::initUndistortRectifyMap(camera, distortion, identity, moved, cv::Size(s.cols, rows), m1.type(), m1, m2);
            cv::Mat part = whole.rowRange(y, y + rows);
            cv::remap(s, part, m1, m2, cv::INTER_LINEAR, cv::BORDER_CONSTANT);
        }
    });
    writeInto(o, [&](cv::Mat& out) { whole.copyTo(out); });
}

} // namespace VEXA
