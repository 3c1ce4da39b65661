#include <vexa/imp/image_transform.h>

#include <opencv2/imgproc.hpp>

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

} // namespace VEXA
