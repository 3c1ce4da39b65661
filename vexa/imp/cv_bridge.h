// cv::Mat headers over image memory for the kernels that call OpenCV. The header starts at the region of
// interest itself (not a sub-matrix of the whole image), so filters extrapolate at the roi's edges and
// never read pixels outside it. OpenCV's C++ calls silently allocate a new output when the one given has
// the wrong type or size; writeInto() turns that into an error instead of a result lost.
#pragma once

#include <vexa/imp/dispatch.h>
#include <vexa/imp/raster.h>

#include <opencv2/core.hpp>

namespace VEXA {

constexpr int cvDepthOf(Channel channel)
{
    switch (channel) {
    case Channel8u: return CV_8U;
    case Channel8s: return CV_8S;
    case Channel16u: return CV_16U;
    case Channel16s: return CV_16S;
    case Channel32s: return CV_32S;
    case Channel32f: return CV_32F;
    case ChannelInvalid: return -1;
    }
    return -1;
}

template <class Pixel>
constexpr int cvTypeOf()
{
    return CV_MAKETYPE(cvDepthOf(PixelTraits<Pixel>::channel), PixelTraits<Pixel>::components);
}

template <class Pixel>
cv::Mat asCvMat(const RasterT<Pixel>& raster)
{
    const Rect& r = raster.roi;
    return cv::Mat(r.height, r.width, cvTypeOf<Pixel>(), raster.row(r.y) + r.x, size_t(raster.bytesPerLine));
}

// The same from an image of any pair, for OpenCV calls that need no typed kernel.
VEXA_EXPORT cv::Mat asCvMat(const VImage& image);

// A checked source of a listed pair (status, emptiness, pair), as a header at its roi. A roi clipped to
// nothing holds no pixel either.
template <class List>
cv::Mat listedSource(List list, const VImage& image)
{
    checkSource(image);
    requireListed(list, image);
    cv::Mat m = asCvMat(image);
    if (m.empty())
        throw dip_exception_empty_source_image();
    return m;
}

// The luminance of an image's roi as one plane in memory of its own, for OpenCV's detectors: 8u sources
// through the library's conversion to GrayScale (YUV422 gives its luma). With anyDepth, every other channel
// type gives 32f stretched over 0..255 (a plain conversion to 8u would wrap around), NaN taken as 0 and
// infinities as the largest finite values; without it they are unsupported. The source is checked first.
VEXA_EXPORT cv::Mat grayPlane(const VImage& image, bool anyDepth);

// OpenCV's C interface asserted these before its calls; the C++ calls would reallocate instead.
// Each throws the OpenCV error the C call raised (-215, with the C function's name).
VEXA_EXPORT void requireSameSizeAndChannels(const cv::Mat& a, const cv::Mat& b, const char* function);
VEXA_EXPORT void requireSameSizeAndType(const cv::Mat& a, const cv::Mat& b, const char* function);

// Runs call(dst) and checks that the result landed in dst's own memory.
template <class Call>
void writeInto(cv::Mat& dst, Call&& call)
{
    const uchar* before = dst.data;
    call(dst);
    if (dst.data != before)
        CV_Error(cv::Error::StsUnmatchedFormats, "The destination image does not have the proper type");
}

} // namespace VEXA
