#include <vexa/imp/detail/opencv_frame.h>

#include <vexa/imp/VImage.h>
#include <vexa/imp/VProgress.h>
#include <vexa/imp/detail/checks.h>

#include <cfloat>

namespace VEXA {

cv::Mat asCvMat(const VImage& image)
{
    const Rect r = clipRect(image.roiRect(), image.width(), image.height());
    const int pixelBytes = channelsOf(image.format()) * bitsOf(image.channelType()) / 8;
    return cv::Mat(r.height, r.width, CV_MAKETYPE(cvDepthOf(image.channelType()), channelsOf(image.format())),
                   image.rawData() + qint64(r.y) * image.bytesPerLine() + qint64(r.x) * pixelBytes,
                   size_t(image.bytesPerLine()));
}

cv::Mat grayPlane(const VImage& image, bool anyDepth)
{
    checkSource(image);
    const bool eightBit = image.channelType() == Channel8u;
    if (!isValid(image.format()) || !isValid(image.channelType()) || (!eightBit && !anyDepth))
        throwUnsupported();
    cv::Mat plane;
    if (image.format() == YUV422) {
        cv::extractChannel(asCvMat(image), plane, 0);
    } else {
        // A step of the caller's work, not an operation of its own: with the current progress hidden it
        // neither reports its completion nor fails under a cancellation, which is the caller's to see.
        VImage gray;
        {
            const VProgressScope inner(nullptr);
            gray = image.convert(GrayScale, eightBit ? Channel8u : Channel32f);
        }
        if (!gray.status() || gray.isEmpty())
            throwUnsupported();
        plane = asCvMat(gray).clone(); // the conversion's block goes with `gray`
    }
    if (eightBit)
        return plane;
    if (plane.depth() != CV_32F)
        plane.convertTo(plane, CV_32F);
    cv::patchNaNs(plane, 0.0);
    cv::min(plane, FLT_MAX, plane);
    cv::max(plane, -FLT_MAX, plane);
    double low = 0.0, high = 0.0;
    cv::minMaxLoc(plane, &low, &high);
    const double gain = high > low ? 255.0 / (high - low) : 0.0;
    plane.convertTo(plane, CV_32F, gain, -low * gain);
    return plane;
}

void requireOpenCv(bool holds, const char* condition, const char* function)
{
    if (!holds)
        throw cv::Exception(cv::Error::StsAssert, condition, function, __FILE__, __LINE__);
}

void requireOpenCv(const CvPrecondition& precondition, const cv::Mat& src, const cv::Mat& dst, const char* function)
{
    const bool sameSize = src.size() == dst.size();
    switch (precondition.test) {
    case CvPrecondition::None: return;
    case CvPrecondition::Type: return requireOpenCv(src.type() == dst.type(), precondition.text, function);
    case CvPrecondition::SizeAndType:
        return requireOpenCv(sameSize && src.type() == dst.type(), precondition.text, function);
    case CvPrecondition::SizeAndChannels:
        return requireOpenCv(sameSize && src.channels() == dst.channels(), precondition.text, function);
    }
}

void checkKernelExtent(const cv::Mat& src, double kernelWidth, double kernelHeight)
{
    // std::max keeps a NaN extent, which then fails the comparison like an infinite one.
    const double width = double(src.cols) + std::max(kernelWidth, 0.0);
    const double height = double(src.rows) + std::max(kernelHeight, 0.0);
    if (!(width * height * src.channels() * 8.0 <= double(imageSizeLimit())))
        throw dip_exception("Kernel is too large for the image");
}

bool sharesMemory(const cv::Mat& a, const cv::Mat& b)
{
    if (a.empty() || b.empty())
        return false;
    const uchar* aEnd = a.data + (a.rows - 1) * a.step[0] + a.cols * a.elemSize();
    const uchar* bEnd = b.data + (b.rows - 1) * b.step[0] + b.cols * b.elemSize();
    return a.data < bEnd && b.data < aEnd;
}

cv::Mat readableSource(const cv::Mat& src, const cv::Mat& dst)
{
    if (src.data == dst.data && src.size() == dst.size() && src.step[0] == dst.step[0])
        return src;
    return sharesMemory(src, dst) ? src.clone() : src;
}

cv::Mat separateSource(const cv::Mat& src, const cv::Mat& dst) { return sharesMemory(src, dst) ? src.clone() : src; }

std::vector<cv::Point2f> cvPoints(const QList<QPointF>& points)
{
    constexpr double reach = 1 << 24;
    std::vector<cv::Point2f> out;
    out.reserve(size_t(points.size()));
    for (const QPointF& p : points) {
        if (!(std::abs(p.x()) <= reach && std::abs(p.y()) <= reach))
            throw dip_exception("Points must be finite and within 2^24 pixels");
        out.emplace_back(float(p.x()), float(p.y()));
    }
    return out;
}

} // namespace VEXA
