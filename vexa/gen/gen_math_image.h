/// @file
/// @brief Pixel arithmetic, logic, thresholds, masks, comparison and derivatives (group @ref math).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <QPointF>

namespace VEXA {

/// @addtogroup math
/// Pixel arithmetic, logic, thresholds and comparison, the library's own tone and mask kernels, and
/// convolution and derivatives.
///
/// **Pixel types:** the functions handed to OpenCV (addImages(), subtractImages(), mulImages(), divImages(),
/// maxImages(), minImages(), absImage(), notImage(), setZero()) take every format in every channel type and
/// treat each component alike, alpha, X and YUV422's chroma included; thresholdImage() takes every format in
/// 8u, 16u, 16s and 32f, adaptiveThresholdImage() GrayScale 8u only. The library's own kernels take the pairs
/// named on each function; they change colour components only (the gray value, or B, G and R): alpha is copied from the
/// source; the X of XRGB is left untouched in an existing destination and copied from the source into a new one. The
/// pairs of each function are in
/// @ref pairs_math_image. Anything else fails with "Can not find template with actual parameters!".
///
/// **Destinations:** an empty destination is made like the (first) source, with its header and its roi
/// (mulImageDouble(), colorImage() and the mask makers give it another format or channel type, as they say);
/// an existing one is written in place through its roi and must have the source's format, or the call fails
/// with "Can not find template with actual parameters!". setZero() and combineImagesMaxAbs() need an existing
/// destination. For the OpenCV-backed functions a destination of the wrong size or type fails with OpenCV's
/// C-interface error (-215, with the condition's text and the C function's name, as named on each function);
/// the library's kernels need rois of one size ("Image sizes differ") and a destination of the pair they
/// name. Nothing outside the rois is read or written.
///
/// **Rounding and saturation:** through OpenCV, results saturate to the destination's type and integers
/// round half to even (5 / 2 gives 2, 7 / 2 gives 4). The library's kernels round to nearest (halves away
/// from zero) and saturate into integer types where they say so; 32f results are not clamped. Float images
/// carry the 8-bit scale here, so "full" is 255 for 8u and 32f and 65535 for 16u.
///
/// **In place:** the OpenCV-backed functions give the result they give into a separate image whatever the
/// overlap (a source sharing memory with the destination without being the same pixels is read from a
/// copy). The library's kernels give the separate result when the destination's roi is the very pixels of
/// the source's roi; a roi overlapping the source's otherwise is not supported (pixels may be read after
/// they were written).
///
/// **Failures:** a source or destination with a failed status gives "Bad status of image!", an empty source
/// (or an empty destination where one must exist) "Empty source image!", a null destination or output
/// "Null pointer argument!". OpenCV's own errors come back as failed statuses carrying its code, text and
/// function. Each function names its particular failures.
///
/// **Progress and cancellation** (VProgress): with a progress current on the calling thread, filter2D(),
/// laplaceImage() and sobelImage() work in bands of rows into a scratch image, report between bands and copy
/// the result into the destination only once complete; a cancelled call returns "Operation cancelled" with the
/// destination untouched. The bands give the same pixels as the single call. Without a progress nothing
/// changes. The other functions neither report nor can be cancelled.
///
/// **Threads:** reentrant. Calls on different images may run on any threads at once, and one source may be
/// read by several calls at once; a destination must not be used by another thread during the call.
/// @{

/// OpenCV's threshold codes; Otsu and Triangle are flags ORed into one of the first five. In the formulas,
/// `t` is the threshold and `max` the value given to thresholdImage().
enum ThresholdOperation : qint32 {
    /// max where the value is above t, else 0.
    ThresholdBinary = 0,
    /// 0 where the value is above t, else max.
    ThresholdBinaryInv = 1,
    /// t where the value is above t, else the value.
    ThresholdTrunc = 2,
    /// The value where it is above t, else 0.
    ThresholdToZero = 3,
    /// 0 where the value is above t, else the value.
    ThresholdToZeroInv = 4,
    /// Flag: t is chosen by Otsu's method and the given one ignored. GrayScale 8u and 16u only (OpenCV's error
    /// otherwise).
    ThresholdOtsu = 8,
    /// Flag: t is chosen by the triangle method and the given one ignored. GrayScale 8u only (OpenCV's error
    /// otherwise).
    ThresholdTriangle = 16,
};

/// How adaptiveThresholdImage() computes each pixel's own threshold (OpenCV's codes).
enum AdaptiveMethod : qint32 {
    /// The mean of the blockSize x blockSize neighbourhood, minus param.
    AdaptiveMeanC = 0,
    /// The Gaussian-weighted sum of that neighbourhood, minus param.
    AdaptiveGaussianC = 1,
};

/// a + b per component, through OpenCV (cvAdd). a and b must have one format; b's roi must have a's size
/// (OpenCV's error otherwise). The destination may have another channel type than the sources (8u into
/// 16s keeps sums above 255); it must have a's roi size and channel count (-215,
/// "src1.size == dst.size && src1.channels() == dst.channels()").
VEXA_EXPORT VStatus addImages(const VImage& a, const VImage& b, VImage* dst);
/// a - b per component; otherwise as addImages() (cvSub).
VEXA_EXPORT VStatus subtractImages(const VImage& a, const VImage& b, VImage* dst);
/// a * b per component (scale 1); otherwise as addImages() (cvMul).
VEXA_EXPORT VStatus mulImages(const VImage& a, const VImage& b, VImage* dst);
/// a / b per component; otherwise as addImages() (cvDiv), except that the size and channel precondition is
/// asserted of b and the destination. Where b is 0 an integer result is 0; floats divide as IEEE does
/// (infinity or NaN).
VEXA_EXPORT VStatus divImages(const VImage& a, const VImage& b, VImage* dst);
/// The larger of a and b per component (cvMax). a and b must have one format, type and roi size (OpenCV's
/// error otherwise); the destination must have a's type and roi size (-215,
/// "src1.size == dst.size && src1.type() == dst.type()").
VEXA_EXPORT VStatus maxImages(const VImage& a, const VImage& b, VImage* dst);
/// The smaller of a and b per component; otherwise as maxImages() (cvMin).
VEXA_EXPORT VStatus minImages(const VImage& a, const VImage& b, VImage* dst);
/// |x| per component, saturated (unsigned types are copied). The destination must have the source's type
/// and roi size (-215, "src1.size == dst.size && src1.type() == dst.type()", cvAbsDiffS).
VEXA_EXPORT VStatus absImage(const VImage& src, VImage* dst);
/// The bitwise complement of every byte of the roi (the bits of floats too); destination as absImage()
/// (cvNot).
VEXA_EXPORT VStatus notImage(const VImage& src, VImage* dst);
/// Sets every component of the image's roi to 0. The image must exist; every pair is taken.
VEXA_EXPORT VStatus setZero(VImage* image);
/// OpenCV's threshold of every component by @p op (see ThresholdOperation) with the threshold @p threshold
/// and the value @p maxValue. Every format in 8u, 16u, 16s and 32f. The destination has the source's format;
/// it has the source's channel type, or is 8u, which takes the result computed in the source's type,
/// rounded and saturated. A destination of another roi size, channel count or type fails with -215
/// ("src.size == dst.size && src.channels() == dst.channels() && (src.depth() == dst.depth() ||
/// dst.depth() == CV_8U)", cvThreshold). An @p op that is not one of the first five codes, optionally with
/// one of the two flags, fails with "Unknown threshold operation" before anything else is checked. The
/// threshold Otsu or Triangle choose is not returned.
VEXA_EXPORT VStatus thresholdImage(const VImage& src, VImage* dst, ThresholdOperation op, double threshold, double maxValue);
/// OpenCV's adaptive threshold of a GrayScale 8u source: each pixel is compared with a threshold of its
/// own, computed by @p method over its @p blockSize x @p blockSize neighbourhood minus @p param; @p op is
/// ThresholdBinary or ThresholdBinaryInv and @p maxValue the value written, as in thresholdImage().
/// blockSize must be odd and above 1; other ops and sizes fail with OpenCV's error. The destination must
/// have the source's roi size and type (-215, "src1.size == dst.size && src1.type() == dst.type()",
/// cvAdaptiveThreshold).
VEXA_EXPORT VStatus adaptiveThresholdImage(const VImage& src, VImage* dst, ThresholdOperation op, AdaptiveMethod method,
                                           double maxValue, int blockSize, double param);

/// The negative: each colour component c becomes full - c (255 for 8u and 32f, 65535 for 16u; a 32f value
/// outside 0..255 gives a value outside it too). GrayScale, BGR, XRGB and ARGB in 8u, 16u and 32f; the
/// destination has the source's pair and roi size.
VEXA_EXPORT VStatus negativeImage(const VImage& src, VImage* dst);
/// Gamma correction: each colour component c becomes full * (c / full)^gamma, integer results rounded to
/// nearest (gamma 1 is the identity, full stays full); negative float values count as 0, floats above full
/// are not clamped. @p gamma must be positive and finite, else the call fails with "Gamma must be positive".
/// Pairs and destination as negativeImage().
VEXA_EXPORT VStatus gammaImage(const VImage& src, VImage* dst, double gamma);
/// Each colour component times @p factor, computed in double and stored in a 32f image of the source's
/// format (beyond the float range: infinity); alpha is copied as a float, unscaled. GrayScale, BGR, XRGB and
/// ARGB in every channel type. A new destination is the source's format in 32f; an existing one must be
/// that pair and have the source's roi size.
VEXA_EXPORT VStatus mulImageDouble(const VImage& src, VImage* dst, double factor);
/// Keeps the source pixel where @p mask is non-zero (zero, with @p inverse) and sets every other destination
/// pixel to 0, all components included (masked pixels turn transparent). @p mask is GrayScale 8u (else
/// unsupported) with a roi of the source's size. GrayScale, BGR, XRGB, ARGB and ARGB_Premultiplied in every
/// channel type; the destination has the source's pair and roi size.
VEXA_EXPORT VStatus maskImage(const VImage& src, const VImage& mask, VImage* dst, bool inverse);
/// Per colour component, the existing destination keeps its value unless the source's is larger in absolute
/// value (ties, and NaN on either side, keep the destination), as merging pyramid levels needs; alpha and X
/// stay. GrayScale, BGR and XRGB in every channel type; the destination must exist with the source's pair
/// and roi size.
VEXA_EXPORT VStatus combineImagesMaxAbs(const VImage& src, VImage* dst);
/// Background correction, per colour component: src - background + level, or with @p divide a flat-field
/// correction src * level / background (0 where the background is 0); rounded and saturated. GrayScale, BGR
/// and XRGB in 8u, 16u and 32f; @p background and the destination have the source's pair and roi size.
VEXA_EXPORT VStatus subBackground(const VImage& src, const VImage& background, VImage* dst, int level, bool divide);
/// Tints a gray image with the colour @p rgb, 0xRRGGBB: each of B, G and R becomes
/// gray * component / 255, rounded and saturated. GrayScale sources in 8u, 16u and 32f. A new destination is
/// BGR of the source's channel type; an existing one is BGR or XRGB (X untouched) of that type, with the
/// source's roi size.
VEXA_EXPORT VStatus colorImage(const VImage& src, VImage* dst, int rgb);
/// A mask of local maxima: 255 where no pixel of the @p window x @p window neighbourhood (clipped to the
/// roi) is greater, else 0; with @p minimum, local minima (no pixel smaller). An even window grows by one; a
/// window below 1 fails with "Window size must be positive". GrayScale sources in 8u, 16u, 16s and 32f (a
/// NaN pixel is never an extremum). A new destination is GrayScale 8u with the source's header and roi; an
/// existing one must be GrayScale 8u with the source's roi size.
VEXA_EXPORT VStatus findExtremums(const VImage& src, VImage* dst, int window, bool minimum);
/// A GrayScale 8u mask, 255 where every colour component lies within its [low, high] pair, else 0;
/// @p op ThresholdBinaryInv inverts it, and any op but ThresholdBinary or ThresholdBinaryInv fails with
/// "Unsupported threshold operation". @p levels holds @p count values, the pairs in R, G, B order (gray: one
/// pair), so @p count must be at least 6 (2), else "Not enough threshold levels"; a null @p levels gives
/// "Null pointer argument!". GrayScale, BGR, XRGB and ARGB in 8u, 16u and 32f. Destination as
/// findExtremums().
VEXA_EXPORT VStatus thresholdImageColor(const VImage& src, VImage* dst, ThresholdOperation op, int* levels, int count);
/// As thresholdImageColor(), by the hue createHue() gives in degrees for the components truncated to
/// integers: inside where low <= hue <= high; @p low above @p high wraps through 0 (350..10 is red). Grays
/// (R = G = B) have no hue and are never inside. BGR, XRGB and ARGB in 8u, 16u and 32f.
VEXA_EXPORT VStatus thresholdImageHue(const VImage& src, VImage* dst, ThresholdOperation op, int low, int high);
/// The root-mean-square difference of the colour components over the pixels that both rois cover at the
/// same image coordinates (the rois need not have one size), into @p result. a and b must have one pair:
/// GrayScale, BGR, XRGB and ARGB in every channel type. Where the rois share no pixel, @p result is -1 and
/// the call fails with "No common points".
VEXA_EXPORT VStatus compareImages(const VImage& a, const VImage& b, double* result);
/// The largest value of a GrayScale roi (every channel type) into @p result, starting from 0: an image of
/// negative values only gives 0, NaN pixels are skipped.
VEXA_EXPORT VStatus getMax(const VImage& src, double* result);
/// The mean value of a GrayScale roi (every channel type); -1 on failure (the failure is logged) and for a
/// roi with no pixel inside the image.
VEXA_EXPORT double getMean(const VImage& src);

/// Correlation (the kernel is not flipped) with @p kernel, a GrayScale image of any channel type whose roi
/// is the kernel (another format fails as unsupported). The anchor's coordinates are truncated toward zero
/// within the kernel, -1 meaning its centre. Sources: every format in 8u, 16u, 16s and 32f, the border
/// replicated at the roi's edge. The result takes the destination's channel type: a new destination has the
/// source's, a prepared one of the source's format may be wider (8u into 16s or 32f keeps negative and large
/// results; 8u into 8u saturates them to 0..255); a depth pair OpenCV does not run fails with its own error.
/// A destination of another format is unsupported, one of another roi size fails with -215
/// ("src.size() == dst.size() && src.channels() == dst.channels()", cvFilter2D). A kernel so large that
/// OpenCV's working buffers would pass imageSizeLimit() is refused ("Kernel is too large for the image"). In
/// place, the result is the one given into a separate image.
VEXA_EXPORT VStatus filter2D(const VImage& src, VImage* dst, const VImage& kernel, QPointF anchor);
/// The Laplacian d2/dx2 + d2/dy2: @p aperture 1 and 3 use 3 x 3 kernels, larger odd apertures up to 31 Sobel
/// kernels (OpenCV's error otherwise). Sources, destinations, border, size limit and in place as filter2D()
/// (cvLaplace).
VEXA_EXPORT VStatus laplaceImage(const VImage& src, VImage* dst, int aperture);
/// The Sobel derivative of orders @p xorder and @p yorder with the given @p aperture, -1 meaning Scharr's
/// 3 x 3; orders and apertures follow OpenCV's rules (its error otherwise). For a source whose origin is
/// bottom-left and an odd yorder the result is negated, rows counting upwards there (an unsigned destination
/// then holds 0). Sources, destinations, border, size limit and in place as filter2D() (cvSobel).
VEXA_EXPORT VStatus sobelImage(const VImage& src, VImage* dst, int xorder, int yorder, int aperture);

/// @}

} // namespace VEXA
