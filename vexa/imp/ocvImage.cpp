#include <vexa/imp/ocvImage.h>

#include <cstring>

namespace VEXA {

ocvImage::ocvImage(const VImage& image)
{
    std::memset(&header_, 0, sizeof header_); // ID, alphaChannel, colorModel ... imageDataOrigin: all 0
    header_.nSize = sizeof(IplImage);        // OpenCV accepts its own size only (144 on x86-64)
    header_.nChannels = formatInfo(image.format()).channels;
    header_.depth = channelInfo(image.channelType()).depth;
    header_.dataOrder = 0; // interleaved
    header_.origin = image.origin() != 0 ? 1 : 0;
    header_.width = image.width();
    header_.height = image.height();
    header_.widthStep = int(image.bytesPerLine());
    header_.imageSize = int(image.dataSize());
    header_.imageData = reinterpret_cast<char*>(image.rawData());
    const Rect roi = clipRect(image.roiRect(), image.width(), image.height());
    roi_ = IplROI{0, roi.x, roi.y, roi.width, roi.height};
    header_.roi = &roi_;
}

ocvImage::ocvImage(const ocvImage& other) : header_(other.header_), roi_(other.roi_) { header_.roi = &roi_; }

ocvImage& ocvImage::operator=(const ocvImage& other)
{
    header_ = other.header_;
    roi_ = other.roi_;
    header_.roi = &roi_;
    return *this;
}

ocvImage::~ocvImage() = default;

IplImage ocvImage::asIplImage() const { return header_; }

} // namespace VEXA
