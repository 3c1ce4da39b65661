// Helpers for building test images with known contents.
#pragma once

#include <vexa/Vexa.h>

#include <QCryptographicHash>

#include <opencv2/core.hpp>

#include <cstring>
#include <random>

// An image of the given pair whose every byte (padding included) is a reproducible pseudo-random value.
inline VImage makeImage(int width, int height, VEXA::Format format, VEXA::Channel channel, unsigned seed = 1,
                        VEXA::Origin origin = VEXA::OriginBottomLeft, VEXA::RowsAlign align = VEXA::RowsAlignNone)
{
    VImage image;
    image.create(width, height, format, channel, origin, align);
    std::mt19937 random(seed);
    unsigned char* p = image.rawData();
    for (long i = 0; i < image.dataSize(); ++i)
        p[i] = static_cast<unsigned char>(random());
    image.resetHash();
    return image;
}

// Bytes of one row's pixels (padding left out).
inline long pixelBytes(const VImage& image)
{
    return long(image.width()) * VEXA::channelsOf(image.format()) * VEXA::bitsOf(image.channelType()) / 8;
}

inline const unsigned char* pixelAt(const VImage& image, int x, int y)
{
    const long pixelSize = VEXA::channelsOf(image.format()) * VEXA::bitsOf(image.channelType()) / 8;
    return image.rawData() + long(y) * image.bytesPerLine() + x * pixelSize;
}

// A deep copy carrying a failed status. (A status lives in the shared block: setting it on a mere copy of
// the handle would fail the original too.)
inline VImage failedImage(const VImage& image)
{
    VImage failed = image.copy();
    failed.setStatus(VLog::errorStream("Vexa", "f", "t", 1, Issue::None) << "broken on purpose");
    return failed;
}

// A cv::Mat over an image's roi, built here independently of the library's bridge.
inline cv::Mat roiMat(const VImage& image)
{
    const QRect r = image.roi();
    const int cn = VEXA::channelsOf(image.format()), esz = VEXA::bitsOf(image.channelType()) / 8;
    return cv::Mat(r.height(), r.width(), CV_MAKETYPE(int(image.channelType()), cn),
                   image.rawData() + r.y() * image.bytesPerLine() + r.x() * cn * esz, size_t(image.bytesPerLine()));
}

inline bool sameRoiBytes(const VImage& a, const VImage& b)
{
    const cv::Mat ma = roiMat(a), mb = roiMat(b);
    if (ma.size() != mb.size() || ma.type() != mb.type())
        return false;
    for (int y = 0; y < ma.rows; ++y)
        if (std::memcmp(ma.ptr(y), mb.ptr(y), ma.cols * ma.elemSize()) != 0)
            return false;
    return true;
}

inline VImage withRoi(VImage image, QRect roi)
{
    image.setRoi(roi);
    return image;
}
