/// @file
/// @brief Brightness and contrast, hue, normalization, illumination and noise (group @ref normalization).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

namespace VEXA {

/// @addtogroup normalization
/// Tone: brightness and contrast of level curves, hue, normalization, illumination and noise.
///
/// **Pixel types:** each function names its own; the pairs are in @ref pairs_normalization. The
/// normalizations take GrayScale 8u, contrastImage() GrayScale, BGR, XRGB, ARGB and ARGB_Premultiplied in
/// 8u; others fail with "Can not find template with actual parameters!". The composites take what their
/// inner operations take.
///
/// **Destinations:** the normalizations, contrastImage() and createGaussianNoise() need an existing
/// destination, written in place (through its roi, except createGaussianNoise()). The composites make or
/// check theirs as their inner operations do.
///
/// **Failures:** a source or destination with a failed status gives "Bad status of image!", an empty one
/// "Empty source image!", a null destination "Null pointer argument!"; each function names its particular
/// failures. The composites (brightnessAlignment(), createBackgroundBrightness(), findNoise(),
/// correctNoise()) are chains of the library's own operations and return VStatus::Ok whatever the inner
/// calls returned: an inner failure shows in the log that the inner operation writes, and the destination
/// is then whatever the chain left in it (a source the chain cannot take, such as a colour image where a
/// gray one is divided, leaves it as the failing step found it).
///
/// **In place:** the normalizations give the result they give into a separate image whatever the overlap.
/// createGaussianNoise() may write into its source image itself. contrastImage() into its own source's
/// pixels gives what it gives into a separate image (its source is then read from a copy).
///
/// **Progress and cancellation** (VProgress): the composites run their inner operations under the calling
/// thread's progress, each reporting and stopping as its own documentation says; a cancelled step fails
/// like any other inner step, and the composite still returns VStatus::Ok. With a progress current,
/// contrastImage() blurs through smoothGaussian(), which reports and can be cancelled ("Operation cancelled",
/// the destination untouched); without one it works in bands of its own and neither reports nor can be
/// cancelled. The normalizations and createGaussianNoise() neither report nor can be cancelled.
///
/// **Threads:** reentrant. Calls on different images may run on any threads at once, and one source may be
/// read by several calls at once; a destination must not be used by another thread during the call.
/// @{

/// The two control points (x1, y1) and (x2, y2) of the level curve (adjustHistogram()) for @p brightness and
/// @p contrast in 0..1; 0.5 and 0.5 are neutral: (0, 0) and (255, 255). The slope is 2 c up to c = 0.5 and
/// 0.5 / (1 - c) above, with 10000 for exactly 1 and 0.0001 for exactly 0; the line crosses the middle height
/// at x = (1 - brightness) * 255, and a point pushed outside 0..255 is clipped along the line (the upper clip
/// measured from x1 as it was before its own clip). A contrast outside 0..1 (or NaN) gives a slope of 0 or
/// less, taken as a vertical step at that x: x1 = x2, y1 = 0, y2 = 255. Null outputs are skipped.
VEXA_EXPORT void calcCoordinatesByBrightnessContrast(double brightness, double contrast, double* x1, double* y1,
                                                     double* x2, double* y2);
/// The reverse of calcCoordinatesByBrightnessContrast(): @p brightness and @p contrast from where the line
/// through the two points reaches heights 0 and 255 (points already at or beyond those heights, or of one x,
/// are taken as they are). Contrast 1 comes back as 0.99995 (slope 10000 is read back through the upper
/// formula), which is how the pair round-trips. Null outputs are skipped.
VEXA_EXPORT void calcBrightnessContrastByCoordinates(double x1, double y1, double x2, double y2, double* brightness,
                                                     double* contrast);
/// The hue of an 8-bit colour in whole degrees, 0..360, in integer arithmetic (quotients truncated toward
/// zero): 0 for grays; on ties of the largest component blue wins over green and green over red. 360 can
/// occur ((255, 0, 1) gives it), as the formula gives it. Components beyond 8 bits do not overflow, and the
/// result stays within 0..360 whatever they are.
VEXA_EXPORT int createHue(int red, int green, int blue);

/// OpenCV's min-max normalization of the roi to the range min(a, b)..max(a, b): the lowest value becomes the
/// low end and the highest the high end, linearly; a constant roi becomes the low end. Results are rounded to
/// nearest and saturated. Source and destination are GrayScale 8u; the destination must exist with
/// the source's roi size (-215, "dst.size() == src.size() && src.channels() == dst.channels()", cvNormalize).
VEXA_EXPORT VStatus normalizeImage(const VImage& src, VImage* dst, double a, double b);
/// As normalizeImage(), scaled so that the infinity norm (the largest absolute value) becomes @p a; an
/// all-zero roi becomes 0.
VEXA_EXPORT VStatus normalizeCImage(const VImage& src, VImage* dst, double a);
/// As normalizeCImage(), for the L1 norm (the sum of the values).
VEXA_EXPORT VStatus normalizeL1Image(const VImage& src, VImage* dst, double a);
/// As normalizeCImage(), for the L2 norm (the square root of the sum of squares).
VEXA_EXPORT VStatus normalizeL2Image(const VImage& src, VImage* dst, double a);

/// divImages(a, b, dst), returning VStatus::Ok whatever it returned (see the composites above).
VEXA_EXPORT VStatus brightnessAlignment(const VImage& a, const VImage& b, VImage* dst);
/// @p src divided by its background, a composite: the gray 8u form of src shrunk (nearest neighbour) by the
/// factor that makes the image's shorter side 100 pixels, smoothed by smoothGaussian() of
/// kernel * 100 / shorter side (truncated), enlarged back (nearest neighbour), turned to 32f and divided by its
/// maximum; then divImages(src, that background, dst). So src must be GrayScale for the division to run.
VEXA_EXPORT VStatus brightnessAlignment(const VImage& src, VImage* dst, int kernel);
/// A background in 0..1, a composite: the gray 8u form of @p src smoothed by smoothGaussian() of
/// (shorter side / 1000 + 5) | 1 and turned into GrayScale 32f divided by its maximum, through
/// mulImageDouble() (a new destination is GrayScale 32f with src's roi). A black roi gives NaN.
VEXA_EXPORT VStatus createBackgroundBrightness(const VImage& src, VImage* dst);
/// The noise of @p src, a composite: subtractImages(src, smoothGaussian(src, (shorter side / 5 + 10) | 1),
/// dst), the blur made like src with its roi.
VEXA_EXPORT VStatus findNoise(const VImage& src, VImage* dst);
/// subtractImages(a, b, dst), returning VStatus::Ok whatever it returned (see the composites above).
VEXA_EXPORT VStatus correctNoise(const VImage& a, const VImage& b, VImage* dst);

/// Local contrast against blurred = the Gaussian of @p src of (kernel | 1) x (kernel | 1), sigma from the
/// size (as smoothGaussian(); the border replicated at the roi's edge), in one of two forms chosen by the
/// destination the caller prepared, whose roi must have the source's size ("Image sizes differ"):
/// - a destination of src's format and type: enhancement, each colour component
///   bound8u(s + (s - b) * amount / 100) (truncated, clamped to 0..255); the alpha or X byte is copied from
///   src;
/// - a GrayScale 32f destination: the sharpness measure |L(s) - L(b)| * amount as floats, with L the
///   luminance 0.114 B + 0.587 G + 0.299 R (the value itself for gray). The difference is exact (in integers,
///   as 114 B + 587 G + 299 R), then scaled by the single-precision factor amount / 1000: no rounding noise
///   tells two equal luminances apart.
///
/// Any other destination is unsupported. A kernel so large that the blur's working buffers would pass
/// imageSizeLimit() is refused ("Kernel is too large for the image"); a negative one fails with OpenCV's
/// error.
VEXA_EXPORT VStatus contrastImage(const VImage& src, VImage* dst, int amount, int kernel);
/// Speckles of random bytes. A multiply-with-carry generator (multiplier 4164903690, restarted at
/// x = 0xFFFFFFFF, c = 0 on every call, so the noise is the same each time) walks the columns outer and the
/// rows inner over the whole image; per pixel one step picks it when x mod 100 is at least 100 - percent,
/// and a picked pixel takes src's components (VImage::pixel()) with the first three replaced by the low bytes
/// of three further steps, written to dst (VImage::setPixel()). The values are uniform bytes, not Gaussian,
/// whatever the name says; images with fewer than three components get as many values as they have (the
/// generator still takes its three steps, so every format picks the same pixels). @p dst must exist with
/// src's width and height ("Image sizes differ"); pixels not picked keep what dst held. Percent 0 writes
/// nothing, 100 (or more) every pixel. As VImage::setPixel() does, the writes detach @p dst from the images
/// sharing its pixels. @p dst may be @p src.
VEXA_EXPORT VStatus createGaussianNoise(const VImage& src, VImage* dst, double percent);

/// @}

} // namespace VEXA
