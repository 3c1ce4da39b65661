#include <vexa/gen/gen_normalization.h>

#include <vexa/gen/gen_math_image.h>
#include <vexa/gen/gen_resize_image.h>
#include <vexa/gen/gen_smooth_image.h>
#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/opencv_frame.h>
#include <vexa/imp/kernels/normalization.h>

#include <opencv2/core.hpp>

#include <QtGlobal>

#include <algorithm>
#include <cstdint>
#include <utility>

namespace VEXA {

int createHue(int red, int green, int blue)
{
    // 64-bit steps: components beyond 8 bits (from other channel types) must not overflow; the result stays
    // within 0..360 whatever they are.
    const qint64 r = red, g = green, b = blue;
    const qint64 max = std::max({r, g, b});
    const qint64 d = max - std::min({r, g, b});
    if (d == 0)
        return 0;
    qint64 h = 0;
    if (max == r)
        h = (g - b) * 60 / d + (g < b ? 360 : 0);
    if (max == g)
        h = (b - r) * 60 / d + 120;
    if (max == b)
        h = (r - g) * 60 / d + 240;
    return int(double(h) + 0.5);
}

} // namespace VEXA

namespace VEXA {

void calcCoordinatesByBrightnessContrast(double brightness, double contrast, double* x1, double* y1, double* x2,
                                         double* y2)
{
    double slope;
    if (contrast == 1.0)
        slope = 10000.0;
    else if (contrast == 0.0)
        slope = 0.0001;
    else if (contrast <= 0.5)
        slope = 2.0 * contrast;
    else
        slope = 0.5 / (1.0 - contrast);
    const double centre = (1.0 - brightness) * 255.0;
    double low = centre, high = centre;
    if (slope > 0.0) {
        const double half = 127.5 / slope;
        low = centre - half;
        high = centre + half;
    }
    if (high < low)
        std::swap(low, high);
    double lowY = 0.0, highY = 255.0;
    if (low != high) {
        const double k = 255.0 / (high - low);
        const double lowBeforeClip = low;
        if (low < 0.0) {
            lowY = -low * k;
            low = 0.0;
        }
        if (high > 255.0) {
            highY = (255.0 - lowBeforeClip) * k;
            high = 255.0;
        }
    }
    if (x1)
        *x1 = low;
    if (y1)
        *y1 = lowY;
    if (x2)
        *x2 = high;
    if (y2)
        *y2 = highY;
}

void calcBrightnessContrastByCoordinates(double x1, double y1, double x2, double y2, double* brightness,
                                         double* contrast)
{
    double a = x1, b = x2;
    // The point of smaller x first; equal x keeps the given order.
    const bool swapped = x2 < x1;
    const double xs = swapped ? x2 : x1, ys = swapped ? y2 : y1;
    const double xl = swapped ? x1 : x2, yl = swapped ? y1 : y2;
    if (!(ys <= 0.0 && yl >= 255.0) && xl != xs) {
        const double k = (yl - ys) / (xl - xs);
        const double b0 = ys - xs * k;
        a = -b0 / k;
        b = (255.0 - b0) / k;
    }
    const double slope = 255.0 / (b - a);
    double c;
    if (slope == 0.0001)
        c = 0.0;
    else if (slope <= 1.0)
        c = slope / 2.0;
    else
        c = 1.0 - 0.5 / slope; // slope 10000 included: contrast 1 reads back as 0.99995
    if (brightness)
        *brightness = 1.0 - ((a + b) * 0.5 / 255.0);
    if (contrast)
        *contrast = c;
}

namespace {

VStatus normalizeThroughOpenCv(const VImage& src, VImage* dst, double a, double b, int normType)
{
    checkSource(src);
    VImage& d = checkExistingDestination(dst);
    const CvCall call{"cvNormalize", {}, 0, true, true};
    return cvCallInto(NormalizePixels{}, call, d, [&](const cv::Mat& s, cv::Mat& o, auto) {
        requireOpenCv(s.size() == o.size() && s.channels() == o.channels(),
                      "dst.size() == src.size() && src.channels() == dst.channels()", "cvNormalize");
        cv::normalize(s, o, a, b, normType, o.type());
    }, src);
}

// A size from a double, 0 for what no image can have (the inner operations then refuse it).
int truncatedSize(double v) { return v >= 0.0 && v < 2147483647.0 ? int(v) : 0; }

// The shorter side of an image, 0 for an invalid one.
int shorterSide(const VImage& image) { return image.status() ? std::min(image.width(), image.height()) : 0; }

// The blurred copy the contrast and noise tools measure against: like src, smoothed by smoothGaussian.
VImage smoothed(const VImage& src, int kernel)
{
    VImage blurred = src.status() ? src.createCompatible() : VImage();
    if (blurred.status())
        blurred.setRoi(src.roi());
    smoothGaussian(src, &blurred, kernel);
    return blurred;
}

} // namespace

VStatus normalizeImage(const VImage& src, VImage* dst, double a, double b)
{
    return guarded(VEXA_CALL_SITE, [&] { return normalizeThroughOpenCv(src, dst, a, b, cv::NORM_MINMAX); });
}

VStatus normalizeCImage(const VImage& src, VImage* dst, double a)
{
    return guarded(VEXA_CALL_SITE, [&] { return normalizeThroughOpenCv(src, dst, a, 0.0, cv::NORM_INF); });
}

VStatus normalizeL1Image(const VImage& src, VImage* dst, double a)
{
    return guarded(VEXA_CALL_SITE, [&] { return normalizeThroughOpenCv(src, dst, a, 0.0, cv::NORM_L1); });
}

VStatus normalizeL2Image(const VImage& src, VImage* dst, double a)
{
    return guarded(VEXA_CALL_SITE, [&] { return normalizeThroughOpenCv(src, dst, a, 0.0, cv::NORM_L2); });
}

VStatus brightnessAlignment(const VImage& a, const VImage& b, VImage* dst)
{
    divImages(a, b, dst);
    return VStatus::Ok;
}

VStatus brightnessAlignment(const VImage& src, VImage* dst, int kernel)
{
    const VImage gray = src.convert(GrayScale, Channel8u);
    const double scale = 100.0 / shorterSide(src);
    VImage small = gray.status() && !gray.isEmpty()
                       ? gray.createCompatible(truncatedSize(gray.width() * scale), truncatedSize(gray.height() * scale))
                       : VImage();
    resizeImage(gray, &small, InterpolationNearest);
    VImage smoothedSmall;
    smoothGaussian(small, &smoothedSmall, truncatedSize(kernel * scale));
    VImage background;
    if (gray.status() && !gray.isEmpty()) {
        background = gray.createCompatible();
        background.setRoi(gray.roi()); // the source's region: the division below needs the two of one size
    }
    resizeImage(smoothedSmall, &background, InterpolationNearest);
    double max = 0.0;
    getMax(background, &max);
    VImage backgroundF;
    mulImageDouble(background, &backgroundF, 1.0 / max);
    divImages(src, backgroundF, dst);
    return VStatus::Ok;
}

VStatus createBackgroundBrightness(const VImage& src, VImage* dst)
{
    const int kernel = (shorterSide(src) / 1000 + 5) | 1;
    const VImage gray = src.convert(GrayScale, Channel8u);
    const VImage blurred = smoothed(gray, kernel | 1);
    double max = 0.0;
    getMax(blurred, &max);
    mulImageDouble(blurred, dst, 1.0 / max);
    return VStatus::Ok;
}

VStatus findNoise(const VImage& src, VImage* dst)
{
    const int kernel = (shorterSide(src) / 5 + 10) | 1;
    subtractImages(src, smoothed(src, kernel), dst);
    return VStatus::Ok;
}

VStatus correctNoise(const VImage& a, const VImage& b, VImage* dst)
{
    subtractImages(a, b, dst);
    return VStatus::Ok;
}

namespace {

// The blur of the contrast operations, a band of rows at a time into a scratch that stays in cache, each band
// measured or enhanced at once: no image-sized blurred copy is allocated, written and read back. A band is
// blurred from a header of its own with size / 2 rows more on either side, so that the rows it keeps never
// see OpenCV's border and come out as the blur of the whole roi gives them.
template <class P, class Kernel>
void contrastInBands(const RasterT<P>& src, const Rect& to, int size, Kernel&& work)
{
    const cv::Mat whole = asCvMat(src);
    checkKernelExtent(whole, size, size);
    const int margin = std::max(1, size / 2);
    cv::Mat part;
    forEachBand(whole.rows, cacheBands((long long)whole.step[0]), [&](int y0, int y1) {
        const auto [top, bottom] = rowsRead(y0, y1, margin, whole.rows);
        const cv::Mat in(bottom - top, whole.cols, whole.type(), const_cast<uchar*>(whole.ptr(top)), whole.step[0]);
        cv::GaussianBlur(in, part, cv::Size(size, size), 0, 0, cv::BORDER_REPLICATE);
        RasterT<P> from = src, blurred;
        from.roi = Rect{src.roi.x, src.roi.y + y0, src.roi.width, y1 - y0};
        blurred.data = reinterpret_cast<P*>(part.ptr(y0 - top));
        blurred.width = part.cols;
        blurred.height = y1 - y0;
        blurred.bytesPerLine = qint32(part.step[0]);
        blurred.roi = Rect{0, 0, part.cols, y1 - y0};
        work(from, blurred, Rect{to.x, to.y + y0, to.width, y1 - y0});
    });
}

} // namespace

VStatus contrastImage(const VImage& src, VImage* dst, int amount, int kernel)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        VImage& d = checkExistingDestination(dst);
        const bool measure = isPixelOf<PixelGray<float>>(d.format(), d.channelType());
        if (!measure && (d.format() != src.format() || d.channelType() != src.channelType()))
            throwUnsupported();
        checkSameSize(src, d);
        // The bands blur rows around their own, which a destination sharing the source's pixels has
        // already overwritten above each band: such a source is read from a copy.
        const bool banded = !progressIsCurrent();
        VImage source = src;
        if (banded && sharesMemory(asCvMat(src), asCvMat(d))) {
            source = src.copy();
            source.setRoi(src.roi());
        }
        return dispatch(ContrastPixels{}, source, [&](const auto& s) {
            using P = typename std::decay_t<decltype(s)>::PixelType;
            if (banded) {
                const auto measureOrEnhance = [&](const RasterT<P>& from, const RasterT<P>& blurred, const Rect& to) {
                    if (measure) {
                        RasterT<PixelGray<float>> into(d);
                        into.roi = to;
                        return kernel::contrastMeasure(from, blurred, into, amount);
                    }
                    RasterT<P> into(d);
                    into.roi = to;
                    return kernel::contrastEnhance(from, blurred, into, amount);
                };
                contrastInBands(s, clipRect(d.roiRect(), d.width(), d.height()), kernel | 1, measureOrEnhance);
                return VStatus::Ok;
            }
            VImage blurred = src.createCompatible();
            blurred.setRoi(src.roi());
            const VStatus status = smoothGaussian(src, &blurred, kernel | 1);
            if (!status)
                return status;
            if (measure)
                return kernel::contrastMeasure(s, RasterT<P>(blurred), RasterT<PixelGray<float>>(d), amount);
            return kernel::contrastEnhance(s, RasterT<P>(blurred), RasterT<P>(d), amount);
        });
    });
}

VStatus createGaussianNoise(const VImage& src, VImage* dst, double percent)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        VImage& d = checkExistingDestination(dst);
        if (d.width() != src.width() || d.height() != src.height())
            throw dip_exception("Image sizes differ");
        std::uint32_t x = 0xFFFFFFFFu, carry = 0;
        const auto step = [&x, &carry] {
            const std::uint64_t t = std::uint64_t(x) * 4164903690ull + carry;
            x = std::uint32_t(t);
            carry = std::uint32_t(t >> 32);
        };
        for (int column = 0; column < src.width(); ++column)
            for (int row = 0; row < src.height(); ++row) {
                step();
                if (double(x % 100) < 100.0 - percent)
                    continue;
                // Three steps whatever the pixel holds, so that every format picks the same pixels.
                QList<QVariant> components = src.pixel(column, row);
                for (int i = 0; i < 3; ++i) {
                    step();
                    if (i < components.size())
                        components[i] = uint(x & 0xFF);
                }
                d.setPixel(column, row, components);
            }
        return VStatus::Ok;
    });
}

} // namespace VEXA
