// Pixel arithmetic, logic, thresholds and comparison.
//
// Destinations: an empty destination is made like the (first) source, with its header and its roi; an
// existing one is written in place through its roi and must have the source's format.
//
// Handed to OpenCV, with OpenCV's arithmetic (results saturate to the destination's type, integers round
// half to even, any pair of format and channel type; the destination may have another channel type where
// OpenCV allows it): addImages, subtractImages, mulImages, divImages, maxImages, minImages, absImage
// (|x|), notImage (bitwise), setZero, thresholdImage (8u, 16u, 16s, 32f; an 8u destination takes the
// result of any other source type), adaptiveThresholdImage (GrayScale 8u). A destination of the wrong size
// or type fails with OpenCV's own error, as its C interface did.
//
// The library's own kernels, over the roi, colour components only (alpha copied, X untouched); sizes of
// the rois must agree ("Image sizes differ"):
// - negativeImage: c -> full - c (full: 255 for 8u and 32f, 65535 for 16u).
// - gammaImage: c -> full * (c / full)^gamma, integer results rounded to nearest (gamma 1 is the
//   identity, full stays full); negative float values count as 0. gamma must be positive and finite.
// - mulImageDouble: into a 32f image of the same format, c * factor computed in double.
// - maskImage: mask is GrayScale 8u; where it is non-zero (zero, when inverse) the source pixel is kept,
//   everywhere else the destination pixel becomes 0 (alpha included: masked pixels turn transparent).
// - combineImagesMaxAbs: per component, the destination keeps its value unless the source's is larger in
//   absolute value (ties keep the destination), as merging pyramid levels needs.
// - subBackground(src, background, dst, level, divide): src - background + level, or with divide a
//   flat-field correction src * level / background (0 where the background is 0); saturated.
// - colorImage(src, dst, rgb): tints a gray image with the colour 0xRRGGBB: each of B, G, R becomes
//   gray * component / 255 (saturated). A new destination is BGR; XRGB destinations are taken too.
// - findExtremums(src, dst, window, minimum): dst (GrayScale 8u) is 255 where no pixel of the
//   window x window neighbourhood (clipped to the roi) is greater (smaller, with minimum), else 0.
//   An even window grows by one.
// - thresholdImageColor(src, dst, op, levels, count): dst (GrayScale 8u) is 255 where every colour
//   component lies within its [low, high] pair, else 0; op ThresholdBinaryInv inverts. levels holds the
//   pairs in R, G, B order (gray: one pair), so count is at least 6 (2).
// - thresholdImageHue(src, dst, op, low, high): as above, by the hue of createHue in degrees; low > high
//   wraps through 0 (350..10 is red). Grays have no hue and are never inside.
// - compareImages: the root-mean-square difference over the pixels that both rois cover at the same image
//   coordinates; -1 and "No common points" when there are none.
// - getMax: the largest value of a gray roi, starting from 0 (all negative gives 0).
// - getMean: the mean of a gray roi; -1 on failure.
//
// Convolution and derivatives, each one OpenCV call with the border replicated at the roi's edge. Sources:
// every format in 8u, 16u, 16s, 32f. The result takes the destination's channel type: a new destination
// has the source's, a prepared one of the source's format may be wider (8u into 16s or 32f keeps negative
// and large results; 8u into 8u saturates them to 0..255). A destination of another size or format fails
// with OpenCV's C-interface error (-215, "src.size() == dst.size() && src.channels() == dst.channels()"),
// a depth pair OpenCV does not run with its own. In place all three give the result they give into a
// separate image.
// - filter2D(src, dst, kernel, anchor): correlation (the kernel is not flipped) with kernel, a GrayScale
//   image of any channel type whose roi is the kernel; the anchor's coordinates truncated toward zero,
//   -1 meaning the centre. A kernel so large that OpenCV's working buffers would pass imageSizeLimit() is
//   refused ("Kernel is too large for the image").
// - laplaceImage(aperture): d2/dx2 + d2/dy2; aperture 1 and 3 use 3 x 3 kernels, larger odd apertures up
//   to 31 Sobel kernels.
// - sobelImage(xorder, yorder, aperture): Sobel derivative; aperture -1 is Scharr's 3 x 3. For a source
//   whose origin is bottom-left (origin 1) and an odd yorder the result is negated, rows counting upwards
//   there (an unsigned destination then holds 0).
//
// Progress and cancellation (VProgress): with a progress current on the calling thread, filter2D, laplaceImage and sobelImage work in
// bands of rows into a scratch image, report between bands and copy the result into the destination only
// once complete; a cancelled call returns "Operation cancelled" with the destination untouched. The bands
// give the same pixels as the single call. Without a progress nothing changes.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <QPointF>

namespace VEXA {

// OpenCV's threshold codes; Otsu and Triangle are flags ORed into one of the first five.
enum ThresholdOperation : qint32 {
    ThresholdBinary = 0,
    ThresholdBinaryInv = 1,
    ThresholdTrunc = 2,
    ThresholdToZero = 3,
    ThresholdToZeroInv = 4,
    ThresholdOtsu = 8,
    ThresholdTriangle = 16,
};

enum AdaptiveMethod : qint32 {
    AdaptiveMeanC = 0,
    AdaptiveGaussianC = 1,
};

VEXA_EXPORT VStatus addImages(const VImage& a, const VImage& b, VImage* dst);
VEXA_EXPORT VStatus subtractImages(const VImage& a, const VImage& b, VImage* dst);
VEXA_EXPORT VStatus mulImages(const VImage& a, const VImage& b, VImage* dst);
VEXA_EXPORT VStatus divImages(const VImage& a, const VImage& b, VImage* dst);
VEXA_EXPORT VStatus maxImages(const VImage& a, const VImage& b, VImage* dst);
VEXA_EXPORT VStatus minImages(const VImage& a, const VImage& b, VImage* dst);
VEXA_EXPORT VStatus absImage(const VImage& src, VImage* dst);
VEXA_EXPORT VStatus notImage(const VImage& src, VImage* dst);
VEXA_EXPORT VStatus setZero(VImage* image);
VEXA_EXPORT VStatus thresholdImage(const VImage& src, VImage* dst, ThresholdOperation op, double threshold, double maxValue);
VEXA_EXPORT VStatus adaptiveThresholdImage(const VImage& src, VImage* dst, ThresholdOperation op, AdaptiveMethod method,
                                           double maxValue, int blockSize, double param);

VEXA_EXPORT VStatus negativeImage(const VImage& src, VImage* dst);
VEXA_EXPORT VStatus gammaImage(const VImage& src, VImage* dst, double gamma);
VEXA_EXPORT VStatus mulImageDouble(const VImage& src, VImage* dst, double factor);
VEXA_EXPORT VStatus maskImage(const VImage& src, const VImage& mask, VImage* dst, bool inverse);
VEXA_EXPORT VStatus combineImagesMaxAbs(const VImage& src, VImage* dst);
VEXA_EXPORT VStatus subBackground(const VImage& src, const VImage& background, VImage* dst, int level, bool divide);
VEXA_EXPORT VStatus colorImage(const VImage& src, VImage* dst, int rgb);
VEXA_EXPORT VStatus findExtremums(const VImage& src, VImage* dst, int window, bool minimum);
VEXA_EXPORT VStatus thresholdImageColor(const VImage& src, VImage* dst, ThresholdOperation op, int* levels, int count);
VEXA_EXPORT VStatus thresholdImageHue(const VImage& src, VImage* dst, ThresholdOperation op, int low, int high);
VEXA_EXPORT VStatus compareImages(const VImage& a, const VImage& b, double* result);
VEXA_EXPORT VStatus getMax(const VImage& src, double* result);
VEXA_EXPORT double getMean(const VImage& src);

VEXA_EXPORT VStatus filter2D(const VImage& src, VImage* dst, const VImage& kernel, QPointF anchor);
VEXA_EXPORT VStatus laplaceImage(const VImage& src, VImage* dst, int aperture);
VEXA_EXPORT VStatus sobelImage(const VImage& src, VImage* dst, int xorder, int yorder, int aperture);

} // namespace VEXA
