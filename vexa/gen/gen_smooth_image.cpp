#include <vexa/gen/gen_smooth_image.h>

#include <vexa/imp/filter_image.h>

#include <opencv2/imgproc.hpp>

#include <cfloat>

namespace VEXA {

namespace {

// cvSmooth's own precondition: a box sum may change the depth, nothing else may.
void requireSmoothable(const cv::Mat& s, const cv::Mat& d, bool anyDepth = false)
{
    requireOpenCv(d.size() == s.size() && (anyDepth || d.type() == s.type()),
                  "dst.size() == src.size() && (smooth_type == CV_BLUR_NO_SCALE || dst.type() == src.type())",
                  "cvSmooth");
}

// The side OpenCV gives a Gaussian: the size itself, or one derived from sigma when the size is not positive.
double gaussianExtent(int size, double sigma, int depth)
{
    if (size > 0)
        return size;
    return sigma > 0 ? sigma * (depth == CV_8U ? 3 : 4) * 2 + 1 : 0;
}

void gaussian(const cv::Mat& s, cv::Mat& d, int size, double sigma)
{
    requireSmoothable(s, d);
    const double extent = gaussianExtent(size, sigma, s.depth());
    checkKernelExtent(s, extent, extent);
    filterInBands(s, d, bandReach(extent), "smoothing", [&](const cv::Mat& in, cv::Mat& o) {
        cv::GaussianBlur(in, o, cv::Size(size, size), sigma, 0, cv::BORDER_REPLICATE);
    });
}

void box(const cv::Mat& s, cv::Mat& d, int width, int height, bool normalize)
{
    requireSmoothable(s, d, !normalize);
    const cv::Size size(width, height > 0 ? height : width);
    checkKernelExtent(s, size.width, size.height);
    filterInBands(s, d, bandReach(size.height), "smoothing", [&](const cv::Mat& in, cv::Mat& o) {
        cv::boxFilter(in, o, o.depth(), size, cv::Point(-1, -1), normalize, cv::BORDER_REPLICATE);
    });
}

// OpenCV's diameter: the given one made odd, or 2 * round(1.5 sigmaSpace) + 1, at least 3.
double bilateralExtent(int diameter, double sigmaSpace)
{
    if (diameter > 0)
        return double(diameter / 2) * 2 + 1;
    const double radius = std::nearbyint((sigmaSpace <= 0 ? 1.0 : sigmaSpace) * 1.5);
    return std::isnan(radius) ? 3 : std::max(radius, 1.0) * 2 + 1;
}

} // namespace

VStatus smoothGaussian(const VImage& src, VImage* dst, int size)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(GaussianPixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto) { gaussian(s, d, size | 1, 0); });
    });
}

VStatus smoothGaussianSigma(const VImage& src, VImage* dst, int size, double sigma)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(GaussianPixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto) { gaussian(s, d, size | 1, sigma); });
    });
}

VStatus smoothMedian(const VImage& src, VImage* dst, int size)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(MedianPixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto) {
            requireSmoothable(s, d);
            checkKernelExtent(s, size | 1, size | 1);
            filterInBands(s, d, bandReach(size | 1), "smoothing",
                          [&](const cv::Mat& in, cv::Mat& o) { cv::medianBlur(in, o, size | 1); });
        });
    });
}

VStatus smoothBlur(const VImage& src, VImage* dst, int width, int height)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(BlurPixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto) { box(s, d, width, height, true); });
    });
}

VStatus smoothBlurNoScale(const VImage& src, VImage* dst, int width, int height)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(BlurPixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto) { box(s, d, width, height, false); });
    });
}

VStatus smoothBilaterial(const VImage& src, VImage* dst, int diameter, int, double sigmaColor, double sigmaSpace)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(BilateralPixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto) {
            requireSmoothable(s, d);
            const double extent = bilateralExtent(diameter, sigmaSpace);
            checkKernelExtent(s, extent, extent);
            if (s.depth() == CV_32F) {
                if (!cv::checkRange(s))
                    throw dip_exception("Bilateral filtering needs finite values");
                // The filter adds up a pixel's component differences in single precision.
                double low = 0.0, high = 0.0;
                cv::minMaxLoc(s.reshape(1), &low, &high);
                if ((high - low) * s.channels() > FLT_MAX / 2)
                    throw dip_exception("Bilateral filtering needs values closer together");
            }
            // One call: OpenCV's float bilateral sizes its tables by the whole image's range of values.
            writeInto(d, [&](cv::Mat& o) {
                cv::bilateralFilter(s, o, diameter, sigmaColor, sigmaSpace, cv::BORDER_REPLICATE);
            });
        });
    });
}

VStatus sharpImage(const VImage& src, VImage* dst, int size, double amount, int low, int high)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(SharpPixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto tag) {
            using Component = typename PixelTraits<typename decltype(tag)::type>::Component;
            // The blur is written into the destination first: a source in the same pixels is read from a copy.
            const cv::Mat source = s.data == d.data ? s.clone() : s;
            gaussian(source, d, size | 1, 0);
            kernel::sharpen<Component>(source, d, amount, low, high);
        });
    });
}

} // namespace VEXA
