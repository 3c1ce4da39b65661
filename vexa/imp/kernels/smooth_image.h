// The smoothing family's kernels: its pixel lists and the library's own unsharp mask.
#pragma once

#include <vexa/imp/detail/opencv_frame.h>
#include <vexa/imp/kernels/simd/row_kernels.h>
#include <vexa/imp/kernels/luminance.h>
#include <vcore/MathUtils.h>

#include <cmath>
#include <optional>

namespace VEXA {

using GaussianPixels = EightSixteenFloatPixels;  // every format: 8u, 16u, 16s, 32f
using MedianPixels = EightSixteenFloatPixels;    // sizes above 5: OpenCV takes 8u of 1, 3 and 4 channels only
using BlurPixels = JoinT<EightSixteenFloatPixels, AllFormatsOf<qint32>>; // box filters: every type but 8s
using BilateralPixels = PixelList<PixelGray<quint8>, PixelBGR<quint8>, PixelGray<float>, PixelBGR<float>>;
using SharpPixels = PixelList<PixelXRGB<quint8>, PixelARGB<quint8>, PixelARGBP<quint8>, PixelXRGB<float>,
                              PixelARGB<float>, PixelARGBP<float>>;

namespace kernel {

// Each checks what cvSmooth asserted and refuses a kernel too large for the image, then runs its filter in
// bands of rows while a progress is current (one call otherwise). size is odd and already made so.
void gaussian(const cv::Mat& s, cv::Mat& d, int size, double sigma);
// A box mean, or with normalize false a box sum, which may change the depth.
void box(const cv::Mat& s, cv::Mat& d, int width, int height, bool normalize);
void median(const cv::Mat& s, cv::Mat& d, int size);
// One call: OpenCV's float bilateral sizes its tables by the whole image's range of values, which must be
// finite and close enough together for its single-precision sums.
void bilateral(const cv::Mat& s, cv::Mat& d, int diameter, double sigmaColor, double sigmaSpace);

// The unsharp mask's rule for 8-bit pixels as a fixed-point factor the row kernels can use, when one
// reproduces bound8u((s - b) * amount + b) for every (s, b); none for an amount no factor matches.
std::optional<simd::SharpenRule> fixedPointSharpenRule(double amount, int low, int high);

// dst holds the blurred roi; each pixel becomes the sharpened or the source pixel (see gen_smooth_image.h).
template <class T>
void sharpenByRule(const cv::Mat& src, cv::Mat& dst, double amount, int low, int high)
{
    for (int y = 0; y < src.rows; ++y) {
        const T* s = src.ptr<T>(y);
        T* d = dst.ptr<T>(y);
        for (int x = 0; x < src.cols; ++x, s += 4, d += 4) {
            const double lumBlur = lumaOf(double(d[0]), double(d[1]), double(d[2]));
            const double lumSrc = lumaOf(double(s[0]), double(s[1]), double(s[2]));
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

// The unsharp mask: the blur is written into the destination first, so a source sharing its memory is read
// from a copy; then each pixel is sharpened against it.
template <class T>
void unsharpMask(const cv::Mat& s, cv::Mat& d, int size, double amount, int low, int high)
{
    const cv::Mat source = separateSource(s, d);
    gaussian(source, d, size, 0);
    sharpen<T>(source, d, amount, low, high);
}

} // namespace kernel
} // namespace VEXA
