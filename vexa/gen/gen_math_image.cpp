#include <vexa/gen/gen_math_image.h>

#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/kernels/math_image.h>

#include <cmath>

namespace VEXA {

VStatus kernel::failNoCommonPoints(const CallSite& site)
{
    return VStatus(errorAt(site, Issue::LibraryError) << "No common points");
}

namespace {

// The destination for kernels that write a mask: GrayScale 8u like the source's roi.
VImage& prepareMask(const VImage& src, VImage* destination)
{
    VImage& dst = prepareDestination(src, destination, GrayScale, Channel8u);
    checkSameSize(src, dst);
    if (dst.format() != GrayScale || dst.channelType() != Channel8u)
        throwUnsupported();
    return dst;
}

// The C wrappers of the linear filters let the depth change, never the size or the channel count.
void requireDerivable(const cv::Mat& s, const cv::Mat& d, const char* cFunction)
{
    requireOpenCv(s.size() == d.size() && s.channels() == d.channels(),
                  "src.size() == dst.size() && src.channels() == dst.channels()", cFunction);
}

// A coordinate truncated toward zero; beyond the int range (or NaN) it becomes an int no kernel contains.
int truncatedCoordinate(double v)
{
    if (v > -2147483649.0 && v < 2147483648.0)
        return int(v);
    return v > 0 ? INT32_MAX : INT32_MIN;
}

bool inverseOf(ThresholdOperation op)
{
    if (op != ThresholdBinary && op != ThresholdBinaryInv)
        throw dip_exception("Unsupported threshold operation");
    return op == ThresholdBinaryInv;
}

} // namespace

VStatus addImages(const VImage& a, const VImage& b, VImage* dst)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(ArithmeticPixels{}, CvCall{"cvAdd", sameSizeAndChannels}, dst,
                             [](const cv::Mat& s1, const cv::Mat& s2, cv::Mat& d, auto) { cv::add(s1, s2, d, cv::noArray(), d.type()); }, a, b);
    });
}

VStatus subtractImages(const VImage& a, const VImage& b, VImage* dst)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(ArithmeticPixels{}, CvCall{"cvSub", sameSizeAndChannels}, dst,
                             [](const cv::Mat& s1, const cv::Mat& s2, cv::Mat& d, auto) { cv::subtract(s1, s2, d, cv::noArray(), d.type()); }, a, b);
    });
}

VStatus mulImages(const VImage& a, const VImage& b, VImage* dst)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(ArithmeticPixels{}, CvCall{"cvMul", sameSizeAndChannels}, dst,
                             [](const cv::Mat& s1, const cv::Mat& s2, cv::Mat& d, auto) { cv::multiply(s1, s2, d, 1.0, d.type()); }, a, b);
    });
}

VStatus divImages(const VImage& a, const VImage& b, VImage* dst)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(ArithmeticPixels{}, CvCall{"cvDiv", sameSizeAndChannels, 1}, dst,
                             [](const cv::Mat& s1, const cv::Mat& s2, cv::Mat& d, auto) { cv::divide(s1, s2, d, 1.0, d.type()); }, a, b);
    });
}

VStatus maxImages(const VImage& a, const VImage& b, VImage* dst)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(ArithmeticPixels{}, CvCall{"cvMax", sameSizeAndType}, dst,
                             [](const cv::Mat& s1, const cv::Mat& s2, cv::Mat& d, auto) { cv::max(s1, s2, d); }, a, b);
    });
}

VStatus minImages(const VImage& a, const VImage& b, VImage* dst)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(ArithmeticPixels{}, CvCall{"cvMin", sameSizeAndType}, dst,
                             [](const cv::Mat& s1, const cv::Mat& s2, cv::Mat& d, auto) { cv::min(s1, s2, d); }, a, b);
    });
}

VStatus absImage(const VImage& src, VImage* dst)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(ArithmeticPixels{}, CvCall{"cvAbsDiffS", sameSizeAndType}, dst,
                             [](const cv::Mat& s, cv::Mat& d, auto) { cv::absdiff(s, cv::Scalar::all(0), d); }, src);
    });
}

VStatus notImage(const VImage& src, VImage* dst)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(ArithmeticPixels{}, CvCall{"cvNot", sameSizeAndType}, dst,
                             [](const cv::Mat& s, cv::Mat& d, auto) { cv::bitwise_not(s, d); }, src);
    });
}

VStatus setZero(VImage* image)
{
    return guarded(VEXA_CALL_SITE, [&] {
        VImage& dst = checkExistingDestination(image);
        return visitPixel(ArithmeticPixels{}, dst.format(), dst.channelType(), [&](auto) {
            asCvMat(dst).setTo(cv::Scalar::all(0));
            return VStatus::Ok;
        });
    });
}

VStatus thresholdImage(const VImage& src, VImage* dst, ThresholdOperation op, double threshold, double maxValue)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const int type = int(op) & 7, flags = int(op) & ~7;
        if (type > ThresholdToZeroInv || (flags & ~(ThresholdOtsu | ThresholdTriangle)) != 0 ||
            flags == (ThresholdOtsu | ThresholdTriangle))
            throw dip_exception("Unknown threshold operation");
        checkSource(src);
        const TakeBackOnFailure takeBack(dst);
        VImage& d = prepareDestination(src, dst);
        return visitPixel(ThresholdPixels{}, src.format(), src.channelType(), [&](auto) {
            if (d.format() != src.format())
                throwUnsupported();
            const cv::Mat s = asCvMat(src);
            cv::Mat out = asCvMat(d);
            if (s.size() != out.size() || s.channels() != out.channels() ||
                (s.depth() != out.depth() && out.depth() != CV_8U))
                throw cv::Exception(cv::Error::StsAssert,
                                    "src.size == dst.size && src.channels() == dst.channels() && "
                                    "(src.depth() == dst.depth() || dst.depth() == CV_8U)",
                                    "cvThreshold", __FILE__, __LINE__);
            writeInto(out, [&](cv::Mat& o) {
                if (s.depth() == o.depth()) {
                    cv::threshold(s, o, threshold, maxValue, int(op));
                } else {
                    cv::Mat t;
                    cv::threshold(s, t, threshold, maxValue, int(op));
                    t.convertTo(o, CV_8U);
                }
            });
            return VStatus::Ok;
        });
    });
}

VStatus adaptiveThresholdImage(const VImage& src, VImage* dst, ThresholdOperation op, AdaptiveMethod method,
                               double maxValue, int blockSize, double param)
{
    return guarded(VEXA_CALL_SITE, [&] {
        // The destination's format is left to OpenCV's own precondition, which compares the whole type.
        const CvCall call{"cvAdaptiveThreshold", sameSizeAndType, 0, false, false};
        return throughOpenCv(AdaptiveThresholdPixels{}, call, dst, [&](const cv::Mat& s, cv::Mat& o, auto) {
            cv::adaptiveThreshold(s, o, maxValue, int(method), int(op), blockSize, param);
        }, src);
    });
}

VStatus negativeImage(const VImage& src, VImage* dst)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        const TakeBackOnFailure takeBack(dst);
        const bool made = takeBack.made();
        VImage& d = prepareDestination(src, dst);
        checkSameSize(src, d);
        return dispatchSame(ToneMapPixels{}, src, d,
                            [made](const auto& s, const auto& o) { return kernel::negativeImage(s, o, made); });
    });
}

VStatus gammaImage(const VImage& src, VImage* dst, double gamma)
{
    return guarded(VEXA_CALL_SITE, [&] {
        if (!(gamma > 0.0) || std::isinf(gamma))
            throw dip_exception("Gamma must be positive");
        checkSource(src);
        const TakeBackOnFailure takeBack(dst);
        const bool made = takeBack.made();
        VImage& d = prepareDestination(src, dst);
        checkSameSize(src, d);
        return dispatchSame(ToneMapPixels{}, src, d, [gamma, made](const auto& s, const auto& o) {
            return kernel::gammaImage(s, o, gamma, made);
        });
    });
}

VStatus mulImageDouble(const VImage& src, VImage* dst, double factor)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        const TakeBackOnFailure takeBack(dst);
        const bool made = takeBack.made();
        VImage& d = prepareDestination(src, dst, src.format(), Channel32f);
        checkSameSize(src, d);
        return dispatch(MulDoublePixels{}, src, [&](const auto& s) {
            using FloatPixel = WithComponent<typename std::decay_t<decltype(s)>::PixelType, float>;
            if (!isPixelOf<FloatPixel>(d.format(), d.channelType()))
                throwUnsupported();
            return kernel::mulImageDouble(s, RasterT<FloatPixel>(d), factor, made);
        });
    });
}

VStatus maskImage(const VImage& src, const VImage& mask, VImage* dst, bool inverse)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        checkSource(mask);
        if (!isPixelOf<PixelGray<quint8>>(mask.format(), mask.channelType()))
            throwUnsupported();
        const TakeBackOnFailure takeBack(dst);
        VImage& d = prepareDestination(src, dst);
        checkSameSize(src, mask);
        checkSameSize(src, d);
        const RasterT<PixelGray<quint8>> m(mask);
        return dispatchSame(MaskPixels{}, src, d, [&](const auto& s, const auto& o) { return kernel::maskImage(s, m, o, inverse); });
    });
}

VStatus combineImagesMaxAbs(const VImage& src, VImage* dst)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        VImage& d = checkExistingDestination(dst);
        checkSameSize(src, d);
        return dispatchSame(MaxAbsPixels{}, src, d, [](const auto& s, const auto& o) { return kernel::combineImagesMaxAbs(s, o); });
    });
}

VStatus subBackground(const VImage& src, const VImage& background, VImage* dst, int level, bool divide)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        checkSource(background);
        if (background.format() != src.format() || background.channelType() != src.channelType())
            throwUnsupported();
        const TakeBackOnFailure takeBack(dst);
        const bool made = takeBack.made();
        VImage& d = prepareDestination(src, dst);
        checkSameSize(src, background);
        checkSameSize(src, d);
        return dispatchSame(BackgroundPixels{}, src, d, [&](const auto& s, const auto& o) {
            using Raster = std::decay_t<decltype(s)>;
            return kernel::subBackground(s, Raster(background), o, level, divide, made);
        });
    });
}

VStatus colorImage(const VImage& src, VImage* dst, int rgb)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        const TakeBackOnFailure takeBack(dst);
        VImage& d = prepareDestination(src, dst, BGR, src.channelType());
        checkSameSize(src, d);
        return dispatch(ColourisePixels{}, src, [&](const auto& s) {
            using T = typename PixelTraits<typename std::decay_t<decltype(s)>::PixelType>::Component;
            return dispatch(PixelList<PixelBGR<T>, PixelXRGB<T>>{}, d, [&](const auto& o) { return kernel::colorImage(s, o, rgb); });
        });
    });
}

VStatus findExtremums(const VImage& src, VImage* dst, int window, bool minimum)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        const TakeBackOnFailure takeBack(dst);
        const RasterT<PixelGray<quint8>> mask(prepareMask(src, dst));
        return dispatch(ExtremumPixels{}, src, [&](const auto& s) { return kernel::findExtremums(s, mask, window, minimum); });
    });
}

VStatus thresholdImageColor(const VImage& src, VImage* dst, ThresholdOperation op, int* levels, int count)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const bool inverse = inverseOf(op);
        checkOutput(levels);
        checkSource(src);
        const TakeBackOnFailure takeBack(dst);
        const RasterT<PixelGray<quint8>> mask(prepareMask(src, dst));
        return dispatch(ColourThresholdPixels{}, src, [&](const auto& s) {
            return kernel::thresholdImageColor(s, mask, inverse, levels, count);
        });
    });
}

VStatus thresholdImageHue(const VImage& src, VImage* dst, ThresholdOperation op, int low, int high)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const bool inverse = inverseOf(op);
        checkSource(src);
        const TakeBackOnFailure takeBack(dst);
        const RasterT<PixelGray<quint8>> mask(prepareMask(src, dst));
        return dispatch(HueThresholdPixels{}, src, [&](const auto& s) { return kernel::thresholdImageHue(s, mask, inverse, low, high); });
    });
}

VStatus compareImages(const VImage& a, const VImage& b, double* result)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(a);
        checkSource(b);
        checkOutput(result);
        return dispatchSame(ComparePixels{}, a, b, [&](const auto& ra, const auto& rb) { return kernel::compareImages(ra, rb, result); });
    });
}

VStatus getMax(const VImage& src, double* result)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        checkOutput(result);
        return dispatch(GrayStatisticsPixels{}, src, [&](const auto& s) { return kernel::getMax(s, result); });
    });
}

double getMean(const VImage& src)
{
    double mean = -1.0;
    guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        return dispatch(GrayStatisticsPixels{}, src, [&](const auto& s) { return kernel::getMean(s, &mean); });
    });
    return mean;
}

VStatus filter2D(const VImage& src, VImage* dst, const VImage& kernel, QPointF anchor)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(kernel);
        if (!supports(FilterKernelPixels{}, kernel.format(), kernel.channelType()))
            throwUnsupported();
        return throughOpenCv(DerivativePixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto) {
            const cv::Mat k = asCvMat(kernel);
            requireDerivable(s, d, "cvFilter2D");
            checkKernelExtent(s, k.cols, k.rows);
            const cv::Point at(truncatedCoordinate(anchor.x()), truncatedCoordinate(anchor.y()));
            filterInBands(s, d, bandReach(k.rows), "filtering", [&](const cv::Mat& in, cv::Mat& o) {
                cv::filter2D(in, o, o.depth(), k, at, 0, cv::BORDER_REPLICATE);
            });
        });
    });
}

VStatus laplaceImage(const VImage& src, VImage* dst, int aperture)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(DerivativePixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto) {
            requireDerivable(s, d, "cvLaplace");
            checkKernelExtent(s, aperture, aperture);
            filterInBands(s, d, bandReach(std::max(aperture, 3)), "filtering", [&](const cv::Mat& in, cv::Mat& o) {
                cv::Laplacian(in, o, o.depth(), aperture, 1, 0, cv::BORDER_REPLICATE);
            });
        });
    });
}

VStatus sobelImage(const VImage& src, VImage* dst, int xorder, int yorder, int aperture)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(DerivativePixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto) {
            requireDerivable(s, d, "cvSobel");
            checkKernelExtent(s, aperture, aperture);
            filterInBands(s, d, bandReach(std::max(aperture, 3)), "filtering", [&](const cv::Mat& in, cv::Mat& o) {
                cv::Sobel(in, o, o.depth(), xorder, yorder, aperture, 1, 0, cv::BORDER_REPLICATE);
            });
            if (src.origin() != OriginTopLeft && yorder % 2 != 0)
                d.convertTo(d, -1, -1.0);
        });
    });
}

} // namespace VEXA
