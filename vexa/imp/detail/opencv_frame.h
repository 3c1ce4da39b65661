// The one frame of every operation that calls OpenCV.
//
// cv::Mat headers over image memory: a header starts at the region of interest itself (not a sub-matrix of
// the whole image), so filters extrapolate at the roi's edges and never read pixels outside it. OpenCV's C++
// calls silently allocate a new output when the one given has the wrong type or size; writeInto() turns
// that into an error instead of a result lost. The preconditions OpenCV's C interface asserted are checked
// here before each call (their text and the C function's name), and a source that shares memory with its
// destination is read from a copy. Pairs follow what OpenCV 4.6 runs for the channel count and depth of
// each pair.
#pragma once

#include <vexa/imp/VConvKernel.h>
#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/progress.h>
#include <vexa/imp/raster.h>

#include <QList>
#include <QPointF>

#include <opencv2/core.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <tuple>
#include <vector>

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
cv::Mat asCvMat(const VImage& image);

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
cv::Mat grayPlane(const VImage& image, bool anyDepth);

// A precondition OpenCV's C interface asserted of a source and the destination before its call, with the
// assertion's own text; the C++ calls would reallocate instead. Other preconditions are asserted where the
// call is made, with requireOpenCv().
struct CvPrecondition {
    enum Test { None, Type, SizeAndType, SizeAndChannels } test = None;
    const char* text = nullptr;
};
inline constexpr CvPrecondition sameType{CvPrecondition::Type, "src.type() == dst.type()"};
inline constexpr CvPrecondition sameSizeAndType{CvPrecondition::SizeAndType,
                                                "src1.size == dst.size && src1.type() == dst.type()"};
inline constexpr CvPrecondition sameSizeAndChannels{CvPrecondition::SizeAndChannels,
                                                    "src1.size == dst.size && src1.channels() == dst.channels()"};

// OpenCV's C-interface assertion: a cv::Exception (-215) with the condition's text and the C function.
void requireOpenCv(bool holds, const char* condition, const char* function);
void requireOpenCv(const CvPrecondition& precondition, const cv::Mat& src, const cv::Mat& dst,
                   const char* function);

// Points in OpenCV's single precision. Coordinates beyond 2^24 pixels would lose whole pixels there, and
// their squares overflow it: they are refused ("Points must be finite and within 2^24 pixels"), like values
// that are not finite.
std::vector<cv::Point2f> cvPoints(const QList<QPointF>& points);

// Runs call(dst) and checks that the result landed in dst's own memory.
template <class Call>
void writeInto(cv::Mat& dst, Call&& call)
{
    const uchar* before = dst.data;
    call(dst);
    if (dst.data != before)
        CV_Error(cv::Error::StsUnmatchedFormats, "The destination image does not have the proper type");
}

// The element of a VConvKernel as the operations build it: failures thrown into their frame.
struct ConvKernelAccess {
    static const StructuringElement& element(VConvKernel& k) { return k.element(); }
};

// OpenCV allocates working buffers in proportion to the source bordered by the kernel (row buffers, a
// bordered copy, DFT planes). A kernel so large that a (width + kernel width) x (height + kernel height)
// image of the source's channels in 8-byte components would pass imageSizeLimit() is refused ("Kernel is
// too large for the image") before OpenCV sees it. Extents of 0 or less are left to OpenCV's own checks.
void checkKernelExtent(const cv::Mat& src, double kernelWidth, double kernelHeight);

// The one rule for a source that shares memory with its destination: it is read from a copy, so that each
// pixel is computed from the source as it was. Calls that work in place (OpenCV's filters, arithmetic and
// warps given the very same pixels) take readableSource, which leaves an exact in-place call to OpenCV;
// calls that cannot take separateSource, which copies whenever the two share any memory.
bool sharesMemory(const cv::Mat& a, const cv::Mat& b);
cv::Mat readableSource(const cv::Mat& src, const cv::Mat& dst);
cv::Mat separateSource(const cv::Mat& src, const cv::Mat& dst);

// Runs filter(source, destination) as one OpenCV call; while a progress is current, in bands of rows
// instead, each read with `reach` rows more on either side (at least the filter's reach, so that every row
// comes out as the single call gives it) and written into a scratch image that goes to dst only once
// complete: a cancelled filter leaves dst untouched (one the call made is written straight in, since a
// failure takes it back).
// Rows a band must read beyond its own for a filter whose kernel spans `extent` rows: the whole span, more
// than the half a centred kernel needs, since anchors may sit anywhere in it.
inline int bandReach(double extent)
{
    return std::isfinite(extent) ? int(std::clamp(std::ceil(extent), 1.0, 1e9)) : 1;
}

template <class Filter>
void filterInBands(const cv::Mat& s, cv::Mat& d, int reach, const char* stage, Filter&& filter)
{
    if (!progressIsCurrent()) {
        writeInto(d, [&](cv::Mat& o) { filter(s, o); });
        return;
    }
    // Into a scratch image, copied in once complete, so that a cancelled call leaves the destination as it
    // was; straight in where the call made the destination, which a failure takes back whole.
    cv::Mat whole = writesMadeDestination(d.data) ? d : cv::Mat(d.size(), d.type());
    cv::Mat part;
    forEachBand(s.rows, s.cols, stage, [&](int y0, int y1) {
        const auto [top, bottom] = rowsRead(y0, y1, reach, s.rows);
        // A header of its own, not a sub-matrix: OpenCV then takes the same path as for the whole image
        // (some filters pick another algorithm for sub-matrices) and extrapolates at the band's edges, which
        // the margins keep away from the rows that are kept.
        const cv::Mat rows(bottom - top, s.cols, s.type(), const_cast<uchar*>(s.ptr(top)), s.step[0]);
        part.create(bottom - top, d.cols, d.type());
        writeInto(part, [&](cv::Mat& o) { filter(rows, o); });
        part.rowRange(y0 - top, y1 - top).copyTo(whole.rowRange(y0, y1));
    }, std::min(4 * reach, s.rows)); // margins at most half the rows read
    if (whole.data != d.data)
        whole.copyTo(d);
}

// What a call through OpenCV needs of its images, as data.
struct CvCall {
    const char* function = nullptr;  // the C function a failed precondition names
    CvPrecondition precondition{};   // asserted of sources[source] and the destination
    int source = 0;
    bool sameFormat = true;          // the destination must have the sources' format (else the precondition decides)
    bool samePixel = false;          // ... and their channel type too
};

// The one frame of every call through OpenCV, after the argument checks: the first source's pair looked up
// in the operation's list, every other source and the destination required to have its format, headers
// laid at the rois, the precondition asserted, and call(sources..., destination, PixelTag<the pixel>) run
// into the destination's own memory. Whatever the operation, a source that shares memory with the
// destination without being the very same pixels is read from a copy: each pixel is computed from the
// source as it was, never from what the call has already written.
template <class List, class Call, class... Sources>
VStatus cvCallInto(List list, const CvCall& op, VImage& dst, Call&& call, const Sources&... sources)
{
    const std::array<const VImage*, sizeof...(Sources)> in{&sources...};
    const VImage& first = *in[0];
    return visitPixel(list, first.format(), first.channelType(), [&](auto tag) {
        for (const VImage* s : in)
            if (s->format() != first.format())
                throwUnsupported();
        if ((op.sameFormat && dst.format() != first.format()) ||
            (op.samePixel && dst.channelType() != first.channelType()))
            throwUnsupported();
        cv::Mat d = asCvMat(dst);
        std::array<cv::Mat, sizeof...(Sources)> mats;
        for (size_t i = 0; i < in.size(); ++i)
            mats[i] = asCvMat(*in[i]);
        if (op.precondition.test != CvPrecondition::None)
            requireOpenCv(op.precondition, mats[size_t(op.source)], d, op.function);
        for (cv::Mat& m : mats)
            m = readableSource(m, d);
        writeInto(d, [&](cv::Mat& out) {
            std::apply([&](const auto&... m) { call(m..., out, tag); }, mats);
        });
        return VStatus::Ok;
    });
}

// The same with the checks of an operation that makes its destination like its first source when empty:
// every source checked, then the destination.
template <class List, class Call, class... Sources>
VStatus throughOpenCv(List list, const CvCall& op, VImage* destination, Call&& call, const Sources&... sources)
{
    (checkSource(sources), ...);
    const TakeBackOnFailure takeBack(destination);
    VImage& dst = prepareDestination(std::get<0>(std::tie(sources...)), destination);
    return cvCallInto(list, op, dst, call, sources...);
}

// A filter: one source, its preconditions asserted by the call itself.
template <class List, class Call>
VStatus throughOpenCv(List list, const VImage& src, VImage* destination, Call&& call)
{
    return throughOpenCv(list, CvCall{}, destination, call, src);
}

} // namespace VEXA
