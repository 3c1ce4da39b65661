#include <vexa/imp/cv_bridge.h>

#include <vexa/imp/VImage.h>

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
        const VImage gray = image.convert(GrayScale, eightBit ? Channel8u : Channel32f);
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

void requireSameSizeAndChannels(const cv::Mat& a, const cv::Mat& b, const char* function)
{
    if (a.size() != b.size() || a.channels() != b.channels())
        throw cv::Exception(cv::Error::StsAssert, "src1.size == dst.size && src1.channels() == dst.channels()",
                            function, __FILE__, __LINE__);
}

void requireSameSizeAndType(const cv::Mat& a, const cv::Mat& b, const char* function)
{
    if (a.size() != b.size() || a.type() != b.type())
        throw cv::Exception(cv::Error::StsAssert, "src1.size == dst.size && src1.type() == dst.type()", function,
                            __FILE__, __LINE__);
}

} // namespace VEXA
