// Conversion kernels, one instantiation per supported (source, destination) pair, and the per-pixel
// access kernels.
//
// Rules, whatever the pair:
// - Components convert as plain numbers: no scaling between ranges, no saturation. Toward an integer type
//   the value is truncated toward zero and then reduced to its low bits (two's complement): 300.7 -> 8u 44,
//   -1.5 -> 8u 255, 8u 200 -> 8s -56. Toward float the value is rounded to the nearest float (beyond the
//   float range: infinity).
// - Colour to gray: 0.587 G + 0.114 B + 0.299 R in double precision, summed in that order, from the stored
//   components (alpha and X ignored, premultiplied values taken as stored), then converted as above.
// - Gray to colour: the gray value goes to B, G and R.
// - A destination alpha whose source has none is 255 in every component type: 255 is full opacity
//   throughout the library, 16-bit and float images included.
// - Into ARGB_Premultiplied from a straight-alpha source (ARGB), B, G and R are multiplied by alpha / 255;
//   out of ARGB_Premultiplied into a straight format they are multiplied by 255 / alpha (0 where alpha is 0).
//   Integer results round to nearest, as QImage does, so a QImage of format ARGB32_Premultiplied shows the
//   image as its ARGB original. Premultiplied to premultiplied is a plain conversion.
// - The source is walked whole, in row order, together with the destination's region of interest from its
//   top-left corner; the common size of the two is converted.
// - The three 8-bit fast paths (BGR or XRGB to ARGB_Premultiplied, XRGB to BGR) convert whole rows and
//   require images of one size.
// - YUV422 (8u only) stores two bytes per pixel, luma first, then U on even and V on odd columns, with
//   integer formulas. A lone last pixel of an odd row is read with V = 128.
#pragma once

#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/streaming.h>
#include <vexa/imp/kernels/simd/row_kernels.h>
#include <vexa/imp/kernels/luminance.h>

#include <cfloat>
#include <cstring>
#include <limits>
#include <cmath>
#include <type_traits>

namespace VEXA {

// A double as component type T, by the rules above.
template <class T>
inline T narrow(double v)
{
    if constexpr (std::is_floating_point_v<T>) {
        if (v > double(FLT_MAX))
            return std::numeric_limits<T>::infinity();
        if (v < -double(FLT_MAX))
            return -std::numeric_limits<T>::infinity();
        return T(v);
    } else {
        if (!std::isfinite(v))
            return T(0);
        double t = std::trunc(v);
        if (std::fabs(t) >= 9.0e18) // beyond 64 bits: only the low bits matter, and fmod keeps them exactly
            t = std::fmod(t, 4294967296.0);
        return static_cast<T>(static_cast<qint64>(t)); // modular narrowing
    }
}

// v rounded to nearest and kept inside an integer type's range, NaN becoming `nan` (the library's own
// arithmetic saturates, unlike plain conversions); into floats as narrow() does.
template <class T>
inline T saturate(double v, T nan = std::numeric_limits<T>::min())
{
    if constexpr (std::is_floating_point_v<T>) {
        return narrow<T>(v);
    } else {
        if (!(v > double(std::numeric_limits<T>::min())))
            return std::isnan(v) ? nan : std::numeric_limits<T>::min();
        if (v >= double(std::numeric_limits<T>::max()))
            return std::numeric_limits<T>::max();
        return T(std::lround(v));
    }
}

// A component of one type as another, by the rules above, without a detour through double where the
// compiler's own conversion already is the rule.
template <class D, class S>
inline D convertComponent(S s)
{
    if constexpr (std::is_floating_point_v<S> && !std::is_floating_point_v<D>)
        return narrow<D>(double(s));
    else
        return static_cast<D>(s);
}

template <class Pixel>
struct ColourKind {
    static constexpr Format format = PixelTraits<Pixel>::format;
    static constexpr bool gray = format == GrayScale;
    static constexpr bool alpha = format == ARGB || format == ARGB_Premultiplied;
    static constexpr bool premultiplied = format == ARGB_Premultiplied;
};

namespace convert {

template <class T> inline const T& blue(const PixelGray<T>& p) { return p.gray; }
template <class T> inline const T& green(const PixelGray<T>& p) { return p.gray; }
template <class T> inline const T& red(const PixelGray<T>& p) { return p.gray; }
template <class P> inline const auto& blue(const P& p) { return p.b; }
template <class P> inline const auto& green(const P& p) { return p.g; }
template <class P> inline const auto& red(const P& p) { return p.r; }

template <class S>
inline double grayOf(const S& s)
{
    return lumaOf(double(blue(s)), double(green(s)), double(red(s)));
}

template <class D, class S>
inline D unpremultiplied(S c, S a)
{
    if (a == S(0))
        return D(0);
    const double v = double(c) * 255.0 / double(a);
    return std::is_floating_point_v<D> ? narrow<D>(v) : narrow<D>(std::round(v));
}

template <class D, class S>
inline D premultiplied(S c, S a)
{
    const double v = double(c) * double(a) / 255.0;
    return std::is_floating_point_v<D> ? narrow<D>(v) : narrow<D>(std::round(v));
}

// One pixel of a colour or gray format into another, by the rules above.
template <class S, class D>
inline void pixel(const S& s, D& d)
{
    using T = typename PixelTraits<D>::Component;
    using K = ColourKind<S>;
    constexpr Format to = PixelTraits<D>::format;
    if constexpr (to == GrayScale) {
        if constexpr (K::gray)
            d.gray = convertComponent<T>(s.gray);
        else
            d.gray = narrow<T>(grayOf(s));
    } else {
        constexpr bool premultiply = to == ARGB_Premultiplied && K::alpha && !K::premultiplied;
        constexpr bool unpremultiply = to != ARGB_Premultiplied && K::premultiplied;
        if constexpr (premultiply) {
            d.b = premultiplied<T>(s.b, s.a);
            d.g = premultiplied<T>(s.g, s.a);
            d.r = premultiplied<T>(s.r, s.a);
        } else if constexpr (unpremultiply) {
            d.b = unpremultiplied<T>(s.b, s.a);
            d.g = unpremultiplied<T>(s.g, s.a);
            d.r = unpremultiplied<T>(s.r, s.a);
        } else {
            d.b = convertComponent<T>(blue(s));
            d.g = convertComponent<T>(green(s));
            d.r = convertComponent<T>(red(s));
        }
        if constexpr (to == ARGB || to == ARGB_Premultiplied) {
            if constexpr (K::alpha)
                d.a = convertComponent<T>(s.a);
            else
                d.a = T(255);
        }
    }
}

inline quint8 clamp8(int v) { return quint8(v < 0 ? 0 : v > 255 ? 255 : v); }

} // namespace convert

// Which destinations each source pixel type converts to.
template <class S> struct ConvertTargets;
template <class T> struct ConvertTargets<PixelGray<T>> {
    using type = JoinT<AllChannelsOf<PixelGray>, AllChannelsOf<PixelXRGB>, AllChannelsOf<PixelARGBP>>;
};
template <class T> struct ConvertTargets<PixelBGR<T>> {
    using type = JoinT<AllChannelsOf<PixelGray>, AllChannelsOf<PixelBGR>, AllChannelsOf<PixelARGB>,
                       AllChannelsOf<PixelXRGB>, AllChannelsOf<PixelARGBP>,
                       std::conditional_t<std::is_same_v<T, quint8>, PixelList<PixelYUV422<quint8>>, PixelList<>>>;
};
template <class T> struct ConvertTargets<PixelXRGB<T>> : ConvertTargets<PixelBGR<T>> {};
template <class T> struct ConvertTargets<PixelARGB<T>> {
    using type = JoinT<AllChannelsOf<PixelGray>, PixelList<PixelARGB<T>>, AllChannelsOf<PixelARGBP>,
                       std::conditional_t<std::is_same_v<T, quint8>, PixelList<PixelYUV422<quint8>>, PixelList<>>>;
};
template <class T> struct ConvertTargets<PixelARGBP<T>> {
    using type = JoinT<AllChannelsOf<PixelGray>, AllChannelsOf<PixelBGR>, AllChannelsOf<PixelARGB>,
                       AllChannelsOf<PixelXRGB>, AllChannelsOf<PixelARGBP>>;
};
template <class T> struct ConvertTargets<PixelYUV422<T>> {
    using type = std::conditional_t<std::is_same_v<T, quint8>,
                                    PixelList<PixelBGR<quint8>, PixelARGB<quint8>, PixelXRGB<quint8>,
                                              PixelARGBP<quint8>, PixelYUV422<quint8>>,
                                    PixelList<PixelYUV422<T>>>;
};
template <class S> using ConvertTargetsT = typename ConvertTargets<S>::type;
using ConvertSources = AllPixels;

// Pixel access: components in R, G, B, A order (gray: one; YUV422: luma, chroma). X is never touched.
template <class Pixel> struct PixelAccess;
template <class T> struct PixelAccess<PixelGray<T>> {
    static constexpr int count = 1;
    static T* component(PixelGray<T>& p, int) { return &p.gray; }
};
template <class T> struct PixelAccess<PixelYUV422<T>> {
    static constexpr int count = 2;
    static T* component(PixelYUV422<T>& p, int i) { return i == 0 ? &p.y : &p.uv; }
};
template <class P> struct RgbaAccess {
    static constexpr int count = ColourKind<P>::alpha ? 4 : 3;
    template <class Q> static auto* component(Q& p, int i) { return i == 0 ? &p.r : i == 1 ? &p.g : i == 2 ? &p.b : &p.a; }
};
template <class T> struct PixelAccess<PixelBGR<T>> : RgbaAccess<PixelBGR<T>> {
    static T* component(PixelBGR<T>& p, int i) { return i == 0 ? &p.r : i == 1 ? &p.g : &p.b; }
};
template <class T> struct PixelAccess<PixelXRGB<T>> : RgbaAccess<PixelXRGB<T>> {
    static T* component(PixelXRGB<T>& p, int i) { return i == 0 ? &p.r : i == 1 ? &p.g : &p.b; }
};
template <class T> struct PixelAccess<PixelARGB<T>> : RgbaAccess<PixelARGB<T>> {};
template <class T> struct PixelAccess<PixelARGBP<T>> : RgbaAccess<PixelARGBP<T>> {};

using PixelAccessPixels = AllPixels;

namespace kernel {

template <class S, class D>
VStatus convertImage(const RasterT<S>& src, const RasterT<D>& dst)
{
    constexpr Format from = PixelTraits<S>::format, to = PixelTraits<D>::format;
    if constexpr (from == YUV422 && to == YUV422) {
        forEachPixelPair(src, src.whole(), dst, dst.roi, [](const S& s, D& d) {
            d.y = convertComponent<typename PixelTraits<D>::Component>(s.y);
            d.uv = convertComponent<typename PixelTraits<D>::Component>(s.uv);
        });
    } else if constexpr (to == YUV422) {
        // Integer luma with one weight for red and blue; U from the even pixel, V from the odd one, each
        // from its own colours; results stored as bytes without clamping.
        forEachRowPair(src, src.whole(), dst, dst.roi, [](const S* s, D* d, qint32 w) {
            for (qint32 x = 0; x < w; ++x) {
                const int b = s[x].b, g = s[x].g, r = s[x].r;
                d[x].y = quint8(((b + r) * 116 + g * 601) >> 10);
                d[x].uv = x % 2 == 0 ? quint8(((-173 * r - 338 * g + 511 * b) >> 10) + 128)
                                     : quint8(((511 * r - 428 * g - 83 * b) >> 10) + 128);
            }
        });
    } else if constexpr (from == YUV422) {
        forEachRowPair(src, src.whole(), dst, dst.roi, [](const S* s, D* d, qint32 w) {
            for (qint32 x = 0; x < w; x += 2) {
                const int u = s[x].uv - 128;
                const int v = (x + 1 < w ? s[x + 1].uv : 128) - 128;
                const int dr = (v * 1435) >> 10, dg = (u * -352 - v * 733) >> 10, db = (u * 1814) >> 10;
                for (qint32 k = x; k < x + 2 && k < w; ++k) {
                    const int y = s[k].y;
                    d[k].r = convert::clamp8(y + dr);
                    d[k].g = convert::clamp8(y + dg);
                    d[k].b = convert::clamp8(y + db);
                    if constexpr (to == ARGB || to == ARGB_Premultiplied)
                        d[k].a = 255;
                }
            }
        });
    } else {
        forEachPixelPair(src, src.whole(), dst, dst.roi, [](const S& s, D& d) { convert::pixel(s, d); });
    }
    return VStatus::Ok;
}

// The 8-bit fast paths: whole rows, images of one size.
VStatus failDifferentSizes(const CallSite& site, QSize source, QSize destination);

// Row by row through the vectorised kernels of imp/kernels/simd, with the walk of the generic kernel (the whole
// source into the destination's roi) or, for the three fast paths, whole rows of images of one size.
template <class S, class D, class Row>
VStatus convertRows(const RasterT<S>& src, const RasterT<D>& dst, Row row)
{
    forEachRowPair(src, src.whole(), dst, dst.roi, [&row](const S* s, D* d, qint32 w) {
        row(reinterpret_cast<const std::uint8_t*>(s), reinterpret_cast<std::uint8_t*>(d), w);
    });
    return VStatus::Ok;
}

template <class S, class D, class Row>
VStatus convertRowsOfOneSize(const RasterT<S>& src, const RasterT<D>& dst, const CallSite& site, Row row)
{
    if (src.width != dst.width || src.height != dst.height)
        return failDifferentSizes(site, QSize(src.width, src.height), QSize(dst.width, dst.height));
    for (qint32 y = 0; y < src.height; ++y)
        row(reinterpret_cast<const std::uint8_t*>(src.row(y)), reinterpret_cast<std::uint8_t*>(dst.row(y)), src.width);
    return VStatus::Ok;
}

inline VStatus convertImage(const RasterT<PixelBGR<quint8>>& src, const RasterT<PixelGray<quint8>>& dst)
{
    return convertRows(src, dst, simd::rowKernels().bgrToGray);
}

template <class P, std::enable_if_t<sizeof(P) == 4 && std::is_same_v<typename PixelTraits<P>::Component, quint8>, int> = 0>
VStatus convertImage(const RasterT<P>& src, const RasterT<PixelGray<quint8>>& dst)
{
    return convertRows(src, dst, simd::rowKernels().bgraToGray); // XRGB, ARGB, ARGB_Premultiplied: stored values
}

inline VStatus convertImage(const RasterT<PixelBGR<quint8>>& src, const RasterT<PixelXRGB<quint8>>& dst)
{
    return convertRows(src, dst, [](const std::uint8_t* s, std::uint8_t* d, int w) { simd::rowKernels().bgrToBgra(s, d, w, true); });
}

inline VStatus convertImage(const RasterT<PixelBGR<quint8>>& src, const RasterT<PixelARGB<quint8>>& dst)
{
    return convertRows(src, dst, [](const std::uint8_t* s, std::uint8_t* d, int w) { simd::rowKernels().bgrToBgra(s, d, w, false); });
}

inline VStatus convertImage(const RasterT<PixelYUV422<quint8>>& src, const RasterT<PixelXRGB<quint8>>& dst)
{
    return convertRows(src, dst, [](const std::uint8_t* s, std::uint8_t* d, int w) { simd::rowKernels().yuvToBgra(s, d, w, true); });
}

template <class D, std::enable_if_t<std::is_same_v<D, PixelARGB<quint8>> || std::is_same_v<D, PixelARGBP<quint8>>, int> = 0>
VStatus convertImage(const RasterT<PixelYUV422<quint8>>& src, const RasterT<D>& dst)
{
    return convertRows(src, dst, [](const std::uint8_t* s, std::uint8_t* d, int w) { simd::rowKernels().yuvToBgra(s, d, w, false); });
}

inline VStatus convertImage(const RasterT<PixelBGR<quint8>>& src, const RasterT<PixelARGBP<quint8>>& dst)
{
    return convertRowsOfOneSize(src, dst, VEXA_CALL_SITE,
                                [](const std::uint8_t* s, std::uint8_t* d, int w) { simd::rowKernels().bgrToBgra(s, d, w, false); });
}

inline VStatus convertImage(const RasterT<PixelXRGB<quint8>>& src, const RasterT<PixelARGBP<quint8>>& dst)
{
    // Alpha 255 premultiplies nothing: the colour bytes are copied and the fourth byte set.
    return convertRowsOfOneSize(src, dst, VEXA_CALL_SITE, [](const std::uint8_t* s, std::uint8_t* d, int w) {
        for (int x = 0; x < w; ++x) {
            d[4 * x] = s[4 * x];
            d[4 * x + 1] = s[4 * x + 1];
            d[4 * x + 2] = s[4 * x + 2];
            d[4 * x + 3] = 255;
        }
    });
}

// Four bytes written for each one read: a large result goes past the cache (see imp/streaming.h).
inline VStatus convertImage(const RasterT<PixelGray<quint8>>& src, const RasterT<PixelGray<float>>& dst)
{
    const bool stream = streamsInto(src, src.whole(), dst, dst.roi);
    convertRows(src, dst, [stream](const std::uint8_t* s, std::uint8_t* d, int w) {
        simd::rowKernels().bytesToFloats(s, reinterpret_cast<float*>(d), w, stream);
    });
    if (stream)
        simd::finishStreaming();
    return VStatus::Ok;
}

inline VStatus convertImage(const RasterT<PixelXRGB<quint8>>& src, const RasterT<PixelBGR<quint8>>& dst)
{
    return convertRowsOfOneSize(src, dst, VEXA_CALL_SITE, simd::rowKernels().bgraToBgr);
}

template <class Pixel>
Pixel& pixelAt(const RasterT<Pixel>& raster, long x, long y)
{
    if (x < 0 || y < 0 || x >= raster.width || y >= raster.height)
        throw dip_exception("Pixel position is outside the image");
    return raster.at(qint32(x), qint32(y));
}

template <class Pixel>
VStatus getPixel(const RasterT<Pixel>& raster, long x, long y, double* values, int* count)
{
    using Access = PixelAccess<Pixel>;
    if (*count < Access::count)
        throw dip_exception("Not enougth space in array");
    Pixel& p = pixelAt(raster, x, y);
    for (int i = 0; i < Access::count; ++i)
        values[i] = double(*Access::component(p, i));
    *count = Access::count;
    return VStatus::Ok;
}

template <class Pixel>
VStatus setPixel(const RasterT<Pixel>& raster, long x, long y, const double* values, int count)
{
    using Access = PixelAccess<Pixel>;
    using T = typename PixelTraits<Pixel>::Component;
    if (count < Access::count)
        throw dip_exception("Not enouth data for setting pixel value");
    Pixel& p = pixelAt(raster, x, y);
    for (int i = 0; i < Access::count; ++i)
        *Access::component(p, i) = narrow<T>(values[i]);
    return VStatus::Ok;
}

template <class Pixel>
VStatus fillImage(const RasterT<Pixel>& raster, const double* values, int count)
{
    using Access = PixelAccess<Pixel>;
    using T = typename PixelTraits<Pixel>::Component;
    if (count < Access::count)
        throw dip_exception("Not enouth data for setting pixel value");
    Pixel value{};
    for (int i = 0; i < Access::count; ++i)
        *Access::component(value, i) = narrow<T>(values[i]);
    forEachPixelPair(raster, raster.roi, raster, raster.roi, [&value](const Pixel&, Pixel& d) {
        for (int i = 0; i < Access::count; ++i)
            *Access::component(d, i) = *Access::component(value, i);
    });
    return VStatus::Ok;
}

} // namespace kernel
} // namespace VEXA
