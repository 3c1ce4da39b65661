#include <vexa/imp/cv_bridge.h>

namespace VEXA {

cv::Mat asCvMat(const VImage& image)
{
    const Rect r = clipRect(image.roiRect(), image.width(), image.height());
    const int pixelBytes = channelsOf(image.format()) * bitsOf(image.channelType()) / 8;
    return cv::Mat(r.height, r.width, CV_MAKETYPE(cvDepthOf(image.channelType()), channelsOf(image.format())),
                   image.rawData() + qint64(r.y) * image.bytesPerLine() + qint64(r.x) * pixelBytes,
                   size_t(image.bytesPerLine()));
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
