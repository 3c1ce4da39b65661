// Scaled conversion kernels: the same picture at another depth.
//
// Every component type has a full scale, the value that means "all the way": 255 for 8u, 127 for 8s,
// 65535 for 16u, 32767 for 16s, 2147483647 for 32s and 1 for 32f. A component is multiplied by the ratio
// of the two full scales, rounded to nearest and saturated into an integer type (16u 65535 -> 8u 255,
// 16u 128 -> 8u 0 and 129 -> 1, 8u 1 -> 16u 257, 32f 0.5 -> 8u 128, 32f -0.2 -> 8u 0, 32f 1.7 -> 8u 255);
// floats keep whatever comes (8s -128 -> 32f -1.008). Zero stays zero, so signed types read as pictures
// whose negative values are below black.
// - Colour to gray: 0.587 G + 0.114 B + 0.299 R of the stored components, scaled, then rounded once.
// - Gray to colour: the gray value goes to B, G and R, into every colour format (BGR and ARGB too).
// - An alpha the source lacks is the destination's full scale (opaque); ARGB converts to ARGB of any type.
// - Premultiplied and straight alpha convert as in plain conversion, with alpha read against its own
//   full scale.
// - YUV422 converts only where plain conversion does and as it does (8-bit data).
// The walk is plain conversion's: the whole source into the destination's region of interest.
#pragma once

#include <vexa/imp/kernels/image_converters.h>

#include <limits>

namespace VEXA {

template <class T>
constexpr double componentFullScale()
{
    if constexpr (std::is_floating_point_v<T>)
        return 1.0;
    else
        return double(std::numeric_limits<T>::max());
}

// v as component type T: rounded to nearest and saturated into integers (NaN becomes 0), as is into floats.
template <class T>
inline T scaledComponent(double v)
{
    return saturate<T>(v, T(0));
}

template <class S> struct ScaledTargets {
    using type = ConvertTargetsT<S>;
};
template <class T> struct ScaledTargets<PixelGray<T>> {
    using type = JoinT<AllChannelsOf<PixelGray>, AllChannelsOf<PixelBGR>, AllChannelsOf<PixelARGB>,
                       AllChannelsOf<PixelXRGB>, AllChannelsOf<PixelARGBP>>;
};
template <class T> struct ScaledTargets<PixelARGB<T>> {
    using type = JoinT<AllChannelsOf<PixelGray>, AllChannelsOf<PixelARGB>, AllChannelsOf<PixelARGBP>,
                       std::conditional_t<std::is_same_v<T, quint8>, PixelList<PixelYUV422<quint8>>, PixelList<>>>;
};
template <class S> using ScaledTargetsT = typename ScaledTargets<S>::type;

namespace kernel {

template <class S, class D>
VStatus convertScaled(const RasterT<S>& src, const RasterT<D>& dst)
{
    using SC = typename PixelTraits<S>::Component;
    using T = typename PixelTraits<D>::Component;
    constexpr Format from = PixelTraits<S>::format, to = PixelTraits<D>::format;
    if constexpr (from == YUV422 || to == YUV422) {
        return convertImage(src, dst); // 8-bit data only, or a copy: nothing to scale
    } else {
        using K = ColourKind<S>;
        constexpr double k = componentFullScale<T>() / componentFullScale<SC>();
        constexpr double alphaScale = componentFullScale<SC>();
        forEachPixelPair(src, src.whole(), dst, dst.roi, [](const S& s, D& d) {
            if constexpr (to == GrayScale) {
                if constexpr (K::gray)
                    d.gray = scaledComponent<T>(double(s.gray) * k);
                else
                    d.gray = scaledComponent<T>(convert::grayOf(s) * k);
            } else {
                constexpr bool premultiply = to == ARGB_Premultiplied && K::alpha && !K::premultiplied;
                constexpr bool unpremultiply = to != ARGB_Premultiplied && K::premultiplied;
                double f = k;
                if constexpr (premultiply)
                    f = k * double(s.a) / alphaScale;
                if constexpr (unpremultiply)
                    f = s.a == SC(0) ? 0.0 : k * alphaScale / double(s.a);
                d.b = scaledComponent<T>(double(convert::blue(s)) * f);
                d.g = scaledComponent<T>(double(convert::green(s)) * f);
                d.r = scaledComponent<T>(double(convert::red(s)) * f);
                if constexpr (to == ARGB || to == ARGB_Premultiplied) {
                    if constexpr (K::alpha)
                        d.a = scaledComponent<T>(double(s.a) * k);
                    else
                        d.a = scaledComponent<T>(componentFullScale<T>());
                }
            }
        });
        return VStatus::Ok;
    }
}

} // namespace kernel
} // namespace VEXA
