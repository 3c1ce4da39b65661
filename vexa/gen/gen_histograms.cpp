#include <vexa/gen/gen_histograms.h>

#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/kernels/copy_image.h>
#include <vexa/imp/kernels/histograms.h>
#include <vexa/imp/kernels/image_converters.h>

namespace VEXA {

LevelTable levelTable(double x1, double y1, double x2, double y2, double cutLow, double cutHigh)
{
    int ix1 = MathUtils::bound8u(x1), iy1 = MathUtils::bound8u(y1);
    int ix2 = MathUtils::bound8u(x2), iy2 = MathUtils::bound8u(y2);
    const int low = MathUtils::bound8u(cutLow), high = MathUtils::bound8u(cutHigh);
    if (ix2 < ix1) {
        std::swap(ix1, ix2);
        std::swap(iy1, iy2);
    }
    LevelTable lut{};
    for (int i = 0; i <= ix1; ++i)
        lut[size_t(i)] = quint8(iy1);
    for (int i = ix2; i < 256; ++i)
        lut[size_t(i)] = quint8(iy2);
    if (ix1 != ix2) {
        const double k = double(iy2 - iy1) / double(ix2 - ix1);
        for (int i = ix1 + 1; i < ix2; ++i)
            lut[size_t(i)] = narrow<quint8>(i * k + (iy1 - ix1 * k));
    }
    for (quint8& v : lut)
        if (v <= low || v > high)
            v = 0;
    return lut;
}

namespace {

// The destination, made like the source when empty.
VImage& prepareAdjustment(const VImage& src, VImage* dst)
{
    checkSource(src);
    VImage& d = prepareDestination(src, dst);
    checkSameSize(src, d);
    return d;
}

} // namespace

VStatus calculateHistogram(const VImage& image, VHistogram* histogram)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(image);
        VHistogram& h = checkOutput(histogram);
        return dispatch(HistogramPixels{}, image, [&h](const auto& r) { return kernel::calculateHistogram(r, h); });
    });
}

VStatus calculateHistogramFast(const VImage& image, VHistogram* histogram)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(image);
        VHistogram& h = checkOutput(histogram);
        return dispatch(FastHistogramPixels{}, image, [&h](const auto& r) { return kernel::calculateHistogramFast(r, h); });
    });
}

VStatus calculateHistogramBGR(const VImage& image, VHistogram* histogram)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(image);
        VHistogram& h = checkOutput(histogram);
        return dispatch(BgrHistogramPixels{}, image, [&h](const auto& r) { return kernel::calculateHistogramBGR(r, h); });
    });
}

VStatus adjustHistogram(const VImage& src, VImage* dst, unsigned char inputLow, unsigned char outputLow,
                        unsigned char inputHigh, unsigned char outputHigh)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const TakeBackOnFailure takeBack(dst);
        const bool made = takeBack.made();
        VImage& d = prepareAdjustment(src, dst);
        const bool identity = inputLow == 0 && outputLow == 0 && inputHigh == 255 && outputHigh == 255;
        const LevelTable lut = levelTable(inputLow, outputLow, inputHigh, outputHigh, 0, 255);
        return dispatchSame(AdjustPixels{}, src, d, [&](const auto& s, const auto& o) {
            return identity ? kernel::copyRect(s, o, s.roi, o.roi) : kernel::adjustHistogram(s, o, lut, made);
        });
    });
}

VStatus adjustHistogramComponent(const VImage& src, VImage* dst, unsigned char inputLow, unsigned char outputLow,
                                 unsigned char inputHigh, unsigned char outputHigh, Component component)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const TakeBackOnFailure takeBack(dst);
        const bool made = takeBack.made();
        VImage& d = prepareAdjustment(src, dst);
        const LevelTable lut = levelTable(inputLow, outputLow, inputHigh, outputHigh, 0, 255);
        return dispatchSame(AdjustComponentPixels{}, src, d, [&](const auto& s, const auto& o) {
            return kernel::adjustHistogramComponent(s, o, lut, component, made);
        });
    });
}

VStatus adjustHistogramByComponents(const VImage& src, VImage* dst, VHistogramAdjustComponent* curves)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkOutput(curves);
        const TakeBackOnFailure takeBack(dst);
        const bool made = takeBack.made();
        VImage& d = prepareAdjustment(src, dst);
        LevelTable tables[4];
        for (int i = 0; i < 4; ++i) {
            const VHistogramAdjustComponent& c = curves[i];
            tables[i] = levelTable(c.inputLow, c.outputLow, c.inputHigh, c.outputHigh, c.cutLow, c.cutHigh);
        }
        return dispatchSame(AdjustComponentPixels{}, src, d, [&](const auto& s, const auto& o) {
            return kernel::adjustHistogramByComponents(s, o, tables, made);
        });
    });
}

} // namespace VEXA
