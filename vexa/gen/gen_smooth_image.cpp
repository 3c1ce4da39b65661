#include <vexa/gen/gen_smooth_image.h>

#include <vexa/imp/detail/frame.h>
#include <vexa/imp/kernels/smooth_image.h>

namespace VEXA {


VStatus smoothGaussian(const VImage& src, VImage* dst, int size)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(GaussianPixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto) { kernel::gaussian(s, d, size | 1, 0); });
    });
}

VStatus smoothGaussianSigma(const VImage& src, VImage* dst, int size, double sigma)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(GaussianPixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto) { kernel::gaussian(s, d, size | 1, sigma); });
    });
}

VStatus smoothMedian(const VImage& src, VImage* dst, int size)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(MedianPixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto) { kernel::median(s, d, size | 1); });
    });
}

VStatus smoothBlur(const VImage& src, VImage* dst, int width, int height)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(BlurPixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto) { kernel::box(s, d, width, height, true); });
    });
}

VStatus smoothBlurNoScale(const VImage& src, VImage* dst, int width, int height)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(BlurPixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto) { kernel::box(s, d, width, height, false); });
    });
}

VStatus smoothBilaterial(const VImage& src, VImage* dst, int diameter, int, double sigmaColor, double sigmaSpace)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(BilateralPixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto) {
            kernel::bilateral(s, d, diameter, sigmaColor, sigmaSpace);
        });
    });
}

VStatus sharpImage(const VImage& src, VImage* dst, int size, double amount, int low, int high)
{
    return guarded(VEXA_CALL_SITE, [&] {
        return throughOpenCv(SharpPixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto tag) {
            using Component = typename PixelTraits<typename decltype(tag)::type>::Component;
            kernel::unsharpMask<Component>(s, d, size | 1, amount, low, high);
        });
    });
}

} // namespace VEXA
