// Neighbourhood filters: the pixel lists of smoothing, morphology and derivatives, the frame every wrapper
// over an OpenCV filter shares, and the kernels of the library's own unsharp mask.
//
// Each wrapper is one OpenCV call on headers laid at the rois, with the border replicated at the roi's
// edge, and the precondition OpenCV's C interface asserted before that call (its text and function name),
// so that a destination of the wrong size or type is an error and never a result silently written to a
// new buffer. Pairs follow what OpenCV 4.6 runs for the channel count and depth of each pair.
#pragma once

#include <vexa/imp/VConvKernel.h>
#include <vexa/imp/cv_bridge.h>
#include <vexa/imp/dispatch.h>
#include <vexa/imp/frame.h>
#include <vexa/imp/progress.h>
#include <vexa/imp/simd/row_kernels.h>
#include <vcore/MathUtils.h>

#include <cmath>
#include <optional>

namespace VEXA {

using EightSixteenFloatPixels = JoinT<AllFormatsOf<quint8>, AllFormatsOf<quint16>, AllFormatsOf<qint16>, AllFormatsOf<float>>;

using GaussianPixels = EightSixteenFloatPixels;  // every format: 8u, 16u, 16s, 32f
using MedianPixels = EightSixteenFloatPixels;    // sizes above 5: OpenCV takes 8u of 1, 3 and 4 channels only
using BlurPixels = JoinT<EightSixteenFloatPixels, AllFormatsOf<qint32>>; // box filters: every type but 8s
using BilateralPixels = PixelList<PixelGray<quint8>, PixelBGR<quint8>, PixelGray<float>, PixelBGR<float>>;
using MorphPixels = EightSixteenFloatPixels;
using DerivativePixels = EightSixteenFloatPixels;  // filter2D, laplaceImage, sobelImage (sources)
using FilterKernelPixels = AllChannelsOf<PixelGray>; // the kernel image of filter2D
using SharpPixels = PixelList<PixelXRGB<quint8>, PixelARGB<quint8>, PixelARGBP<quint8>, PixelXRGB<float>,
                              PixelARGB<float>, PixelARGBP<float>>;

// The element of a VConvKernel as the operations build it: failures thrown into their frame.
struct ConvKernelAccess {
    static const StructuringElement& element(VConvKernel& k) { return k.element(); }
};

// OpenCV's C-interface assertion: a cv::Exception (-215) with the condition's text and the C function.
VEXA_EXPORT void requireOpenCv(bool holds, const char* condition, const char* function);

// OpenCV allocates working buffers in proportion to the source bordered by the kernel (row buffers, a
// bordered copy, DFT planes). A kernel so large that a (width + kernel width) x (height + kernel height)
// image of the source's channels in 8-byte components would pass imageSizeLimit() is refused ("Kernel is
// too large for the image") before OpenCV sees it. Extents of 0 or less are left to OpenCV's own checks.
VEXA_EXPORT void checkKernelExtent(const cv::Mat& src, double kernelWidth, double kernelHeight);

// The source as a filter may read it while writing dst: the header itself, or a copy where the two share
// memory without being the very same pixels (an exact in-place call is OpenCV's own business).
VEXA_EXPORT cv::Mat readableSource(const cv::Mat& src, const cv::Mat& dst);

// Runs filter(source, destination) as one OpenCV call; while a progress is current, in bands of rows
// instead, each read with `reach` rows more on either side (at least the filter's reach, so that every row
// comes out as the single call gives it) and written into a scratch image that goes to dst only once
// complete: a cancelled filter leaves dst untouched.
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
    cv::Mat whole(d.size(), d.type());
    cv::Mat part;
    forEachBand(s.rows, s.cols, stage, [&](int y0, int y1) {
        const int top = std::max(0, y0 - reach), bottom = std::min(s.rows, y1 + reach);
        // A header of its own, not a sub-matrix: OpenCV then takes the same path as for the whole image
        // (some filters pick another algorithm for sub-matrices) and extrapolates at the band's edges, which
        // the margins keep away from the rows that are kept.
        const cv::Mat rows(bottom - top, s.cols, s.type(), const_cast<uchar*>(s.ptr(top)), s.step[0]);
        part.create(bottom - top, d.cols, d.type());
        writeInto(part, [&](cv::Mat& o) { filter(rows, o); });
        part.rowRange(y0 - top, y1 - top).copyTo(whole.rowRange(y0, y1));
    }, std::min(4 * reach, s.rows)); // margins at most half the rows read
    whole.copyTo(d);
}

// The frame of every wrapper: source checked, destination made like it when empty, the source's pair
// looked up in the operation's list and the destination's format required to match; then
// call(source, destination, PixelTag<the source's pixel>) over the two rois.
template <class List, class Call>
VStatus throughOpenCv(List list, const VImage& src, VImage* destination, Call call)
{
    checkSource(src);
    VImage& dst = prepareDestination(src, destination);
    return visitPixel(list, src.format(), src.channelType(), [&](auto tag) {
        if (dst.format() != src.format())
            throwUnsupported();
        cv::Mat d = asCvMat(dst);
        call(readableSource(asCvMat(src), d), d, tag);
        return VStatus::Ok;
    });
}

namespace kernel {

// The unsharp mask's rule for 8-bit pixels as a fixed-point factor the row kernels can use, when one
// reproduces bound8u((s - b) * amount + b) for every (s, b); none for an amount no factor matches.
VEXA_EXPORT std::optional<simd::SharpenRule> fixedPointSharpenRule(double amount, int low, int high);

// dst holds the blurred roi; each pixel becomes the sharpened or the source pixel (see gen_smooth_image.h).
template <class T>
void sharpenByRule(const cv::Mat& src, cv::Mat& dst, double amount, int low, int high)
{
    for (int y = 0; y < src.rows; ++y) {
        const T* s = src.ptr<T>(y);
        T* d = dst.ptr<T>(y);
        for (int x = 0; x < src.cols; ++x, s += 4, d += 4) {
            const double lumBlur = 0.114 * double(d[0]) + 0.587 * double(d[1]) + 0.299 * double(d[2]);
            const double lumSrc = 0.114 * double(s[0]) + 0.587 * double(s[1]) + 0.299 * double(s[2]);
            if (!MathUtils::isBounded(low, std::abs(lumBlur - lumSrc), high)) {
                for (int c = 0; c < 4; ++c)
                    d[c] = s[c];
                continue;
            }
            for (int c = 0; c < 3; ++c)
                d[c] = T(MathUtils::bound8u((double(s[c]) - double(d[c])) * amount + double(d[c])));
        }
    }
}

// 8-bit pixels go through the row kernels where a fixed-point factor holds and the image is large enough
// to pay for finding it.
template <class T>
void sharpen(const cv::Mat& src, cv::Mat& dst, double amount, int low, int high)
{
    std::optional<simd::SharpenRule> rule;
    if constexpr (std::is_same_v<T, quint8>)
        if (src.total() >= (1u << 16))
            rule = fixedPointSharpenRule(amount, low, high);
    if (!rule) {
        sharpenByRule<T>(src, dst, amount, low, high);
        return;
    }
    const simd::RowKernels& kernels = simd::rowKernels();
    for (int y = 0; y < src.rows; ++y)
        kernels.sharpenRow(src.ptr<std::uint8_t>(y), dst.ptr<std::uint8_t>(y), src.cols, *rule);
}

} // namespace kernel
} // namespace VEXA
