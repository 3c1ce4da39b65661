/// @file
/// @brief Smoothing and sharpening (group @ref smoothing).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

namespace VEXA {

/// @addtogroup smoothing
/// Gaussian, median, box and bilateral filters, and the library's unsharp mask.
///
/// **Pixel types:** every format (GrayScale, BGR, ARGB, XRGB, ARGB_Premultiplied, YUV422, as OpenCV's 1 to 4
/// channels); the channel types of each function are in @ref pairs_smooth_image. Others fail with
/// "Can not find template with actual parameters!".
///
/// **Destinations:** an empty destination is made like the source (same header, same roi); an existing one
/// is written in place through its roi, and must have the source's format (or the call fails with "Can not
/// find template with actual parameters!"), its channel type (smoothBlurNoScale(): any type OpenCV writes)
/// and the roi's size (or it fails with OpenCV's C-interface error, -215, function cvSmooth). Borders are replicated at the roi's edge; nothing outside the
/// rois is read or written.
///
/// **Failures:** kernels so large that OpenCV's working buffers would pass imageSizeLimit() are refused
/// ("Kernel is too large for the image"); every other invalid size fails with OpenCV's own error and message.
///
/// **In place** (destination sharing the source's pixels): the Gaussian, median and box filters work as into
/// a separate image (OpenCV's in-place behaviour, measured equal); sharpImage() works (it reads the source
/// from a copy); smoothBilaterial() fails with OpenCV's error (-215, "src.data != dst.data"). A destination
/// whose roi overlaps the source's without being the same pixels reads the source from a copy: every filter
/// then gives the result it gives into a separate image.
///
/// **Progress and cancellation** (VProgress): with a progress current on the calling thread, these work in
/// bands of rows into a scratch image, report between bands and copy the result into the destination only
/// once complete; a cancelled call returns "Operation cancelled" with the destination untouched. The bands
/// give the same pixels as the single call. Without a progress nothing changes.
///
/// **Threads:** reentrant. Calls on different images may run on any threads at once, and one source may be
/// read by several calls at once; a destination must not be used by another thread during the call.
/// @{

/// Gaussian blur of (size | 1) x (size | 1), sigma from the size: size 4 gives 5 x 5, 0 gives 1 x 1 (a copy).
/// 8u, 16u, 16s and 32f.
VEXA_EXPORT VStatus smoothGaussian(const VImage& src, VImage* dst, int size);
/// smoothGaussian() with the given sigma; where size | 1 is negative the size follows from sigma
/// (8u: 6 sigma + 1, otherwise 8 sigma + 1, made odd).
VEXA_EXPORT VStatus smoothGaussianSigma(const VImage& src, VImage* dst, int size, double sigma);
/// Median of (size | 1) x (size | 1); negative sizes fail. 8u, 16u, 16s and 32f for sizes 1 to 5; larger
/// sizes only 8u of GrayScale, BGR, ARGB, XRGB and ARGB_Premultiplied (OpenCV's error otherwise).
VEXA_EXPORT VStatus smoothMedian(const VImage& src, VImage* dst, int size);
/// Mean over width x height (height 0 or less: width), even sizes allowed, anchored at size / 2; widths of
/// 0 or less fail. 8u, 16u, 16s, 32s and 32f, rounded to the nearest in integer types.
VEXA_EXPORT VStatus smoothBlur(const VImage& src, VImage* dst, int width, int height);
/// The sum over the same window as smoothBlur(), written in the destination's channel type and saturated
/// there: a new destination has the source's type (an 8u sum saturates at 255), a prepared one may be wider
/// (8u into 16u, 16s, 32s or 32f; 16u into 32s or 32f; 16s into 32s; 32f into 8u).
VEXA_EXPORT VStatus smoothBlurNoScale(const VImage& src, VImage* dst, int width, int height);
/// OpenCV's bilateral filter. A diameter of 0 or less follows from sigmaSpace (radius 1.5 sigma), sigmas of
/// 0 or less count as 1; `unused` is ignored. GrayScale and BGR, 8u and 32f. A 32f source holding an
/// infinite or NaN value is refused ("Bilateral filtering needs finite values"), and so is one whose values
/// lie so far apart that the sum of a pixel's component differences could pass half the float range
/// ("Bilateral filtering needs values closer together"): OpenCV's filter indexes its tables out of bounds
/// with either.
VEXA_EXPORT VStatus smoothBilaterial(const VImage& src, VImage* dst, int diameter, int unused, double sigmaColor,
                                     double sigmaSpace);
/// The library's unsharp mask. The destination first receives the Gaussian of the source (size as
/// smoothGaussian()); then for each pixel, with lum = 0.114 B + 0.587 G + 0.299 R in double precision, if
/// low <= |lum(blurred) - lum(source)| <= high, each of B, G and R becomes
/// bound8u((source - blurred) * amount + blurred), clamped to 0..255 and truncated, the fourth component
/// staying the blurred one; otherwise the source pixel is copied whole. So amount 1 gives the source back
/// (exactly, for components holding whole values 0..255), amount above 1 sharpens, and low above high leaves
/// the source untouched. XRGB, ARGB and ARGB_Premultiplied in 8u and 32f (floats follow the 8-bit rule).
VEXA_EXPORT VStatus sharpImage(const VImage& src, VImage* dst, int size, double amount, int low, int high);

/// @}

} // namespace VEXA
