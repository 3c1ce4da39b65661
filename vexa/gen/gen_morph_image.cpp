#include <vexa/gen/gen_morph_image.h>

#include <vexa/imp/detail/frame.h>
#include <vexa/imp/kernels/morph_image.h>

#include <opencv2/imgproc.hpp>

namespace VEXA {

namespace {

// One of cvErode, cvDilate, cvMorphologyEx: the element is built before the wrapper's own check, as the
// C call evaluated its arguments first.
void morph(const cv::Mat& s, cv::Mat& d, VConvKernel& element, int op, int iterations, const char* cFunction)
{
    const StructuringElement& e = ConvKernelAccess::element(element);
    requireOpenCv(s.size() == d.size() && s.type() == d.type(), "src.size() == dst.size() && src.type() == dst.type()",
                  cFunction);
    // n passes reach as far as one element grown n times.
    const double passes = iterations > 1 ? iterations : 1;
    checkKernelExtent(s, (e.values.cols - 1) * passes + 1, (e.values.rows - 1) * passes + 1);
    // Opening, closing and the hats run two passes of n iterations each.
    const int reach = bandReach(2.0 * e.values.rows * passes);
    filterInBands(s, d, reach, "morphology", [&](const cv::Mat& in, cv::Mat& o) {
        if (op == cv::MORPH_ERODE)
            cv::erode(in, o, e.values, e.anchor, iterations, cv::BORDER_REPLICATE);
        else if (op == cv::MORPH_DILATE)
            cv::dilate(in, o, e.values, e.anchor, iterations, cv::BORDER_REPLICATE);
        else
            cv::morphologyEx(in, o, op, e.values, e.anchor, iterations, cv::BORDER_REPLICATE);
    });
}

VStatus morphThroughOpenCv(const VImage& src, VImage* dst, VConvKernel& element, int op, int iterations,
                           const char* cFunction)
{
    return throughOpenCv(MorphPixels{}, src, dst, [&](const cv::Mat& s, cv::Mat& d, auto) {
        morph(s, d, element, op, iterations, cFunction);
    });
}

} // namespace

VStatus erodeImage(const VImage& src, VImage* dst, VConvKernel element, int iterations)
{
    return guarded(VEXA_CALL_SITE, [&] { return morphThroughOpenCv(src, dst, element, cv::MORPH_ERODE, iterations, "cvErode"); });
}

VStatus dilateImage(const VImage& src, VImage* dst, VConvKernel element, int iterations)
{
    return guarded(VEXA_CALL_SITE, [&] { return morphThroughOpenCv(src, dst, element, cv::MORPH_DILATE, iterations, "cvDilate"); });
}

VStatus morphOpening(const VImage& src, VImage* dst, VConvKernel element, int iterations)
{
    return guarded(VEXA_CALL_SITE, [&] { return morphThroughOpenCv(src, dst, element, cv::MORPH_OPEN, iterations, "cvMorphologyEx"); });
}

VStatus morphClosing(const VImage& src, VImage* dst, VConvKernel element, int iterations)
{
    return guarded(VEXA_CALL_SITE, [&] { return morphThroughOpenCv(src, dst, element, cv::MORPH_CLOSE, iterations, "cvMorphologyEx"); });
}

VStatus morphGradient(const VImage& src, VImage* dst, VConvKernel element, int iterations)
{
    return guarded(VEXA_CALL_SITE, [&] { return morphThroughOpenCv(src, dst, element, cv::MORPH_GRADIENT, iterations, "cvMorphologyEx"); });
}

VStatus morphTopHat(const VImage& src, VImage* dst, VConvKernel element, int iterations)
{
    return guarded(VEXA_CALL_SITE, [&] { return morphThroughOpenCv(src, dst, element, cv::MORPH_TOPHAT, iterations, "cvMorphologyEx"); });
}

VStatus morphBlackHat(const VImage& src, VImage* dst, VConvKernel element, int iterations)
{
    return guarded(VEXA_CALL_SITE, [&] { return morphThroughOpenCv(src, dst, element, cv::MORPH_BLACKHAT, iterations, "cvMorphologyEx"); });
}

} // namespace VEXA
