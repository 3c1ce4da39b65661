// Kernels of the tone operations: local contrast against a blurred copy.
#pragma once

#include <vexa/imp/kernels/math_image.h>
#include <vexa/imp/kernels/simd/row_kernels.h>
#include <vexa/imp/kernels/luminance.h>
#include <vcore/MathUtils.h>


namespace VEXA {

using ContrastPixels = PixelList<PixelGray<quint8>, PixelBGR<quint8>, PixelXRGB<quint8>, PixelARGB<quint8>,
                                 PixelARGBP<quint8>>;
using NormalizePixels = PixelList<PixelGray<quint8>>; // the OpenCV normalisations

namespace kernel {

// A thousand times the luminance 0.114 B + 0.587 G + 0.299 R, exactly (the value itself, times 1000, for
// gray): 114 B + 587 G + 299 R.
template <class P>
qint32 luminance1000(const P& p)
{
    const auto* c = componentsOf(p);
    if constexpr (colourCount<P> == 1)
        return 1000 * qint32(c[0]);
    else
        return luma1000(qint32(c[0]), qint32(c[1]), qint32(c[2]));
}

// Each colour component bound8u(s + (s - b) * amount / 100); the fourth byte copied from the source.
template <class P>
VStatus contrastEnhance(const RasterT<P>& src, const RasterT<P>& blurred, const RasterT<P>& dst, int amount)
{
    const double weight = double(amount) / 100.0;
    const qint32 w = src.roi.width, h = src.roi.height;
    for (qint32 y = 0; y < h; ++y) {
        const P* s = src.row(src.roi.y + y) + src.roi.x;
        const P* b = blurred.row(blurred.roi.y + y) + blurred.roi.x;
        P* d = dst.row(dst.roi.y + y) + dst.roi.x;
        for (qint32 x = 0; x < w; ++x) {
            const auto* sc = componentsOf(s[x]);
            const auto* bc = componentsOf(b[x]);
            auto* dc = componentsOf(d[x]);
            for (int i = 0; i < colourCount<P>; ++i)
                dc[i] = MathUtils::bound8u(double(sc[i]) + (double(sc[i]) - double(bc[i])) * weight);
            if constexpr (PixelTraits<P>::components == 4)
                dc[3] = sc[3];
        }
    }
    return VStatus::Ok;
}

// |L(s) - L(b)| * amount into a single float per pixel: the difference exact in integers, then scaled by
// amount / 1000 in single precision.
template <class P>
VStatus contrastMeasure(const RasterT<P>& src, const RasterT<P>& blurred, const RasterT<PixelGray<float>>& dst,
                        int amount)
{
    const float factor = float(double(amount) / 1000.0);
    const qint32 w = src.roi.width, h = src.roi.height;
    for (qint32 y = 0; y < h; ++y) {
        const P* s = src.row(src.roi.y + y) + src.roi.x;
        const P* b = blurred.row(blurred.roi.y + y) + blurred.roi.x;
        float* d = &dst.row(dst.roi.y + y)[dst.roi.x].gray;
        if constexpr (sizeof(P) == 4 && colourCount<P> == 3) {
            simd::rowKernels().contrastRow(reinterpret_cast<const quint8*>(s), reinterpret_cast<const quint8*>(b), d, w, factor);
            continue;
        }
        for (qint32 x = 0; x < w; ++x) {
            const qint32 difference = luminance1000(s[x]) - luminance1000(b[x]);
            d[x] = float(difference < 0 ? -difference : difference) * factor;
        }
    }
    return VStatus::Ok;
}

} // namespace kernel
} // namespace VEXA
