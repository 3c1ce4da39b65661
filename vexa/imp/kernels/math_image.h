// Kernels of the pixel arithmetic family and the pixel lists each operation accepts.
//
// The library's own kernels treat a pixel as an array of components in memory order: colour components
// first (blue, green, red; or the one gray value), then alpha or X. They change colour components only:
// alpha is copied, X is left alone. Float images carry the 8-bit scale here (conversions do not rescale),
// so "full" is 255 for 8u and 32f and 65535 for 16u.
#pragma once

#include <vexa/gen/gen_normalization.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/opencv_frame.h>
#include <vexa/imp/detail/streaming.h>
#include <vexa/imp/kernels/image_converters.h>
#include <vexa/imp/kernels/simd/row_kernels.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace VEXA {

template <template <class> class... Structs>
using EightSixteenFloatOf = JoinT<PixelList<Structs<quint8>..., Structs<quint16>..., Structs<float>...>>;

using ArithmeticPixels = AllPixels;                                  // add, subtract, multiply, divide, max, min, abs, not, zero
using ThresholdPixels = EightSixteenFloatPixels;
using DerivativePixels = EightSixteenFloatPixels;  // filter2D, laplaceImage, sobelImage (sources)
using FilterKernelPixels = AllChannelsOf<PixelGray>; // the kernel image of filter2D
using AdaptiveThresholdPixels = PixelList<PixelGray<quint8>>;
using ToneMapPixels = EightSixteenFloatOf<PixelGray, PixelBGR, PixelXRGB, PixelARGB>; // negative, gamma
using MulDoublePixels = JoinT<AllChannelsOf<PixelGray>, AllChannelsOf<PixelBGR>, AllChannelsOf<PixelXRGB>,
                              AllChannelsOf<PixelARGB>>;
using MaskPixels = JoinT<AllChannelsOf<PixelGray>, AllChannelsOf<PixelBGR>, AllChannelsOf<PixelXRGB>,
                         AllChannelsOf<PixelARGB>, AllChannelsOf<PixelARGBP>>;
using MaxAbsPixels = JoinT<AllChannelsOf<PixelGray>, AllChannelsOf<PixelBGR>, AllChannelsOf<PixelXRGB>>;
using BackgroundPixels = EightSixteenFloatOf<PixelGray, PixelBGR, PixelXRGB>;
using ColourisePixels = EightSixteenFloatOf<PixelGray>;
using ExtremumPixels = PixelList<PixelGray<quint8>, PixelGray<quint16>, PixelGray<qint16>, PixelGray<float>>;
using ColourThresholdPixels = EightSixteenFloatOf<PixelGray, PixelBGR, PixelXRGB, PixelARGB>;
using HueThresholdPixels = EightSixteenFloatOf<PixelBGR, PixelXRGB, PixelARGB>;
using ComparePixels = JoinT<AllChannelsOf<PixelGray>, AllChannelsOf<PixelBGR>, AllChannelsOf<PixelXRGB>,
                            AllChannelsOf<PixelARGB>>;
using GrayStatisticsPixels = AllChannelsOf<PixelGray>;               // getMax, getMean

// The colour components of a pixel: the gray value, or blue, green and red.
template <class P> constexpr int colourCount = ColourKind<P>::gray ? 1 : 3;
template <class P> inline auto* componentsOf(P& p) { return reinterpret_cast<typename PixelTraits<P>::Component*>(&p); }
template <class P> inline auto* componentsOf(const P& p)
{
    return reinterpret_cast<const typename PixelTraits<P>::Component*>(&p);
}

// The top of the scale a component type carries: 65535 for 16u, 255 otherwise.
template <class T> constexpr double fullScale = std::is_same_v<T, quint16> ? 65535.0 : 255.0;

namespace kernel {

// dst colour = f(src colour), alpha copied, X untouched; in a destination the call has just made (`made`)
// X is copied too, as its buffer may be recycled from another image. Pixels with no fourth component make
// rows of colour components only, mapped as one flat run (which the compiler vectorises).
template <class P, class F>
void mapColours(const RasterT<P>& src, const RasterT<P>& dst, bool made, F f)
{
    if constexpr (colourCount<P> == PixelTraits<P>::components) {
        forEachRowPair(src, src.roi, dst, dst.roi, [&f](const P* s, P* d, qint32 w) {
            const auto* sc = componentsOf(*s);
            auto* dc = componentsOf(*d);
            const qint64 n = qint64(w) * colourCount<P>;
            for (qint64 i = 0; i < n; ++i)
                dc[i] = f(sc[i]);
        });
        return;
    }
    forEachPixelPair(src, src.roi, dst, dst.roi, [&f, made](const P& s, P& d) {
        const auto* sc = componentsOf(s);
        auto* dc = componentsOf(d);
        for (int i = 0; i < colourCount<P>; ++i)
            dc[i] = f(sc[i]);
        if constexpr (PixelTraits<P>::components == 4)
            if (ColourKind<P>::alpha || made)
                dc[3] = sc[3];
    });
}

// The same over two sources walked together: dst colour = f(a colour, b colour), the fourth component
// as above from a.
template <class P, class F>
void mapColours(const RasterT<P>& a, const RasterT<P>& b, const RasterT<P>& dst, bool made, F f)
{
    const qint32 w = a.roi.width, h = a.roi.height;
    for (qint32 y = 0; y < h; ++y) {
        const P* pa = a.row(a.roi.y + y) + a.roi.x;
        const P* pb = b.row(b.roi.y + y) + b.roi.x;
        P* pd = dst.row(dst.roi.y + y) + dst.roi.x;
        for (qint32 x = 0; x < w; ++x) {
            const auto* ca = componentsOf(pa[x]);
            const auto* cb = componentsOf(pb[x]);
            auto* cd = componentsOf(pd[x]);
            for (int i = 0; i < colourCount<P>; ++i)
                cd[i] = f(ca[i], cb[i]);
            if constexpr (PixelTraits<P>::components == 4)
                if (ColourKind<P>::alpha || made)
                    cd[3] = ca[3];
        }
    }
}

template <class P>
VStatus negativeImage(const RasterT<P>& src, const RasterT<P>& dst, bool made)
{
    using T = typename PixelTraits<P>::Component;
    if constexpr (std::is_same_v<T, quint8> && colourCount<P> == PixelTraits<P>::components) {
        // A byte written for each byte read, like a copy: large results go past the cache.
        const bool stream = streamsInto(src, src.roi, dst, dst.roi);
        forEachRowPair(src, src.roi, dst, dst.roi, [stream](const P* s, P* d, qint32 w) {
            simd::rowKernels().invertBytes(componentsOf(*s), componentsOf(*d), size_t(w) * sizeof(P), stream);
        });
        if (stream)
            simd::finishStreaming();
    } else if constexpr (std::is_floating_point_v<T>)
        mapColours(src, dst, made, [](T c) { return T(fullScale<T> - c); });
    else // in the component's own integers, which the compiler vectorises; c <= full: no wrap
        mapColours(src, dst, made, [](T c) { return T(T(fullScale<T>) - c); });
    return VStatus::Ok;
}

template <class P>
VStatus gammaImage(const RasterT<P>& src, const RasterT<P>& dst, double gamma, bool made)
{
    using T = typename PixelTraits<P>::Component;
    constexpr double top = fullScale<T>;
    if constexpr (std::is_floating_point_v<T>) {
        mapColours(src, dst, made, [gamma](T c) { return T(std::pow(std::max(double(c), 0.0) / top, gamma) * top); });
    } else {
        // A table over every value; entries round to nearest, so gamma 1 is the identity and the top stays.
        std::vector<T> table(size_t(top) + 1);
        for (size_t i = 0; i < table.size(); ++i)
            table[i] = T(std::lround(std::pow(double(i) / top, gamma) * top));
        mapColours(src, dst, made, [&table](T c) { return table[c]; });
    }
    return VStatus::Ok;
}

template <class P, class D>
VStatus mulImageDouble(const RasterT<P>& src, const RasterT<D>& dst, double factor, bool made)
{
    forEachPixelPair(src, src.roi, dst, dst.roi, [factor, made](const P& s, D& d) {
        const auto* sc = componentsOf(s);
        float* dc = componentsOf(d);
        for (int i = 0; i < colourCount<P>; ++i)
            dc[i] = narrow<float>(double(sc[i]) * factor);
        if constexpr (PixelTraits<P>::components == 4)
            if (ColourKind<P>::alpha || made)
                dc[3] = float(sc[3]);
    });
    return VStatus::Ok;
}

template <class P>
VStatus maskImage(const RasterT<P>& src, const RasterT<PixelGray<quint8>>& mask, const RasterT<P>& dst, bool inverse)
{
    const qint32 w = src.roi.width, h = src.roi.height;
    for (qint32 y = 0; y < h; ++y) {
        const P* s = src.row(src.roi.y + y) + src.roi.x;
        const PixelGray<quint8>* m = mask.row(mask.roi.y + y) + mask.roi.x;
        P* d = dst.row(dst.roi.y + y) + dst.roi.x;
        for (qint32 x = 0; x < w; ++x)
            d[x] = ((m[x].gray != 0) != inverse) ? s[x] : P{};
    }
    return VStatus::Ok;
}

template <class P>
VStatus combineImagesMaxAbs(const RasterT<P>& src, const RasterT<P>& dst)
{
    using T = typename PixelTraits<P>::Component;
    mapColours(dst, src, dst, false, [](T kept, T candidate) {
        return std::fabs(double(candidate)) > std::fabs(double(kept)) ? candidate : kept;
    });
    return VStatus::Ok;
}

template <class P>
VStatus subBackground(const RasterT<P>& src, const RasterT<P>& background, const RasterT<P>& dst, int level,
                      bool divide, bool made)
{
    using T = typename PixelTraits<P>::Component;
    if (divide)
        mapColours(src, background, dst, made,
                   [level](T s, T b) { return b == T(0) ? T(0) : saturate<T>(double(s) * level / double(b)); });
    else
        mapColours(src, background, dst, made,
                   [level](T s, T b) { return saturate<T>(double(s) - double(b) + level); });
    return VStatus::Ok;
}

template <class T, class D>
VStatus colorImage(const RasterT<PixelGray<T>>& src, const RasterT<D>& dst, int rgb)
{
    const double r = (rgb >> 16) & 0xff, g = (rgb >> 8) & 0xff, b = rgb & 0xff;
    forEachPixelPair(src, src.roi, dst, dst.roi, [r, g, b](const PixelGray<T>& s, D& d) {
        const double v = double(s.gray) / 255.0;
        d.b = saturate<T>(v * b);
        d.g = saturate<T>(v * g);
        d.r = saturate<T>(v * r);
    });
    return VStatus::Ok;
}

template <class P>
VStatus findExtremums(const RasterT<P>& src, const RasterT<PixelGray<quint8>>& dst, int window, bool minimum)
{
    if (window < 1)
        throw dip_exception("Window size must be positive");
    // A window wider than the roi sees the same pixels as one that just covers it (it is clipped to the
    // roi), and an absurd width must not become an absurd kernel.
    const int half = std::min(window / 2, std::max(src.roi.width, src.roi.height));
    const cv::Mat s = asCvMat(src);
    cv::Mat extreme;
    const cv::Mat element = cv::Mat::ones(2 * half + 1, 2 * half + 1, CV_8U);
    if (minimum)
        cv::erode(s, extreme, element, cv::Point(-1, -1), 1, cv::BORDER_REPLICATE);
    else
        cv::dilate(s, extreme, element, cv::Point(-1, -1), 1, cv::BORDER_REPLICATE);
    cv::Mat d = asCvMat(dst);
    writeInto(d, [&](cv::Mat& out) { cv::compare(s, extreme, out, cv::CMP_EQ); });
    return VStatus::Ok;
}

// Levels: a [low, high] pair per colour component in R, G, B order (gray: one pair).
template <class P>
VStatus thresholdImageColor(const RasterT<P>& src, const RasterT<PixelGray<quint8>>& dst, bool inverse,
                            const int* levels, int count)
{
    constexpr int n = colourCount<P>;
    if (count < 2 * n)
        throw dip_exception("Not enough threshold levels");
    double low[3], high[3]; // in memory order: blue, green, red
    for (int i = 0; i < n; ++i) {
        const int rgbIndex = n == 1 ? 0 : 2 - i;
        low[i] = levels[2 * rgbIndex];
        high[i] = levels[2 * rgbIndex + 1];
    }
    forEachPixelPair(src, src.roi, dst, dst.roi, [&](const P& s, PixelGray<quint8>& d) {
        const auto* c = componentsOf(s);
        bool inside = true;
        for (int i = 0; i < n; ++i)
            inside = inside && double(c[i]) >= low[i] && double(c[i]) <= high[i];
        d.gray = inside != inverse ? 255 : 0;
    });
    return VStatus::Ok;
}

template <class P>
VStatus thresholdImageHue(const RasterT<P>& src, const RasterT<PixelGray<quint8>>& dst, bool inverse, int low, int high)
{
    forEachPixelPair(src, src.roi, dst, dst.roi, [&](const P& s, PixelGray<quint8>& d) {
        const int r = narrow<qint32>(double(s.r)), g = narrow<qint32>(double(s.g)), b = narrow<qint32>(double(s.b));
        const bool chromatic = !(r == g && g == b);
        const int hue = createHue(r, g, b);
        const bool inRange = low <= high ? hue >= low && hue <= high : hue >= low || hue <= high;
        d.gray = (chromatic && inRange) != inverse ? 255 : 0;
    });
    return VStatus::Ok;
}

VStatus failNoCommonPoints(const CallSite& site);

// Root-mean-square difference over the pixels both regions of interest cover, at the same image
// coordinates. Integer components differ as integers, float ones as doubles.
template <class P>
VStatus compareImages(const RasterT<P>& a, const RasterT<P>& b, double* result)
{
    using T = typename PixelTraits<P>::Component;
    using Difference = std::conditional_t<std::is_floating_point_v<T>, double, qint64>;
    const qint32 x0 = std::max(a.roi.x, b.roi.x), y0 = std::max(a.roi.y, b.roi.y);
    const qint32 x1 = std::min(a.roi.x + a.roi.width, b.roi.x + b.roi.width);
    const qint32 y1 = std::min(a.roi.y + a.roi.height, b.roi.y + b.roi.height);
    // Integer squares are summed exactly per row (every partial sum far below 2^53), so the double total
    // is the same as adding each square in turn.
    double sum = 0.0;
    qint64 pixels = 0;
    for (qint32 y = y0; y < y1; ++y) {
        const auto* ca = componentsOf(a.at(x0, y));
        const auto* cb = componentsOf(b.at(x0, y));
        const qint32 w = x1 - x0;
        if constexpr (std::is_floating_point_v<T>) {
            for (qint32 x = 0; x < w; ++x)
                for (int i = 0; i < colourCount<P>; ++i) {
                    const Difference d = Difference(ca[x * PixelTraits<P>::components + i]) -
                                         Difference(cb[x * PixelTraits<P>::components + i]);
                    sum += d * d;
                }
        } else {
            using Square = std::conditional_t<(sizeof(T) <= 2), qint64, double>;
            Square rowSum = 0;
            if constexpr (colourCount<P> == PixelTraits<P>::components) {
                const qint64 n = qint64(w) * colourCount<P>;
                for (qint64 i = 0; i < n; ++i) {
                    const Square d = Square(qint64(ca[i]) - qint64(cb[i])); // 32-bit components differ by up to 2^32
                    rowSum += d * d;
                }
            } else {
                for (qint32 x = 0; x < w; ++x)
                    for (int i = 0; i < colourCount<P>; ++i) {
                        const Square d = Square(Difference(ca[4 * x + i]) - Difference(cb[4 * x + i]));
                        rowSum += d * d; // 32-bit differences square in double: no 64-bit overflow
                    }
            }
            sum += double(rowSum);
        }
        pixels += w > 0 ? w : 0;
    }
    if (pixels <= 0) {
        *result = -1.0;
        return failNoCommonPoints(VEXA_CALL_SITE);
    }
    *result = std::sqrt(sum / double(qint64(colourCount<P>) * pixels));
    return VStatus::Ok;
}

// The running maximum starts at 0: an image of negative values only gives 0, on purpose.
template <class T>
VStatus getMax(const RasterT<PixelGray<T>>& src, double* result)
{
    double maximum = 0.0;
    forEachPixelPair(src, src.roi, src, src.roi, [&maximum](const PixelGray<T>& s, PixelGray<T>&) {
        if (double(s.gray) > maximum)
            maximum = double(s.gray);
    });
    *result = maximum;
    return VStatus::Ok;
}

template <class T>
VStatus getMean(const RasterT<PixelGray<T>>& src, double* result)
{
    double sum = 0.0;
    if constexpr (std::is_same_v<T, quint8>) {
        forEachRowPair(src, src.roi, src, src.roi, [&sum](const PixelGray<T>* s, PixelGray<T>*, qint32 w) {
            sum += double(simd::rowKernels().sumBytes(&s->gray, w));
        });
    } else if constexpr (sizeof(T) <= 2 && !std::is_floating_point_v<T>) {
        // Exact integer sums: the same double total as adding pixel by pixel. 32-bit partial sums over runs
        // of 32768 pixels cannot overflow, and vectorise well.
        forEachRowPair(src, src.roi, src, src.roi, [&sum](const PixelGray<T>* s, PixelGray<T>*, qint32 w) {
            const T* v = &s->gray;
            qint64 rowSum = 0;
            for (qint32 x0 = 0; x0 < w; x0 += 32768) {
                const qint32 n = std::min<qint32>(32768, w - x0);
                std::conditional_t<std::is_signed_v<T>, qint32, quint32> part = 0;
                for (qint32 x = 0; x < n; ++x)
                    part += v[x0 + x];
                rowSum += part;
            }
            sum += double(rowSum);
        });
    } else {
        forEachPixelPair(src, src.roi, src, src.roi, [&sum](const PixelGray<T>& s, PixelGray<T>&) { sum += double(s.gray); });
    }
    const qint64 count = qint64(src.roi.width) * src.roi.height;
    *result = count > 0 ? sum / double(count) : -1.0;
    return VStatus::Ok;
}

} // namespace kernel
} // namespace VEXA
