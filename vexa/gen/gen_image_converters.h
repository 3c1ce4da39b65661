/// @file
/// @brief Conversion between pixel types, and single-pixel access (group @ref converters).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

namespace VEXA {

/// @addtogroup converters
/// Conversion between (format, channel type) pairs, plain or scaled, and single-pixel access.
///
/// **Pixel types:** convertImage() converts
/// - GrayScale into GrayScale, XRGB and ARGB_Premultiplied of every channel type (not BGR or ARGB);
/// - BGR and XRGB into GrayScale, BGR, ARGB, XRGB and ARGB_Premultiplied of every type, and from 8u into
///   YUV422 8u;
/// - ARGB into GrayScale and ARGB_Premultiplied of every type and ARGB of its own type only (not BGR or
///   XRGB), and from 8u into YUV422 8u;
/// - ARGB_Premultiplied into GrayScale, BGR, ARGB, XRGB and ARGB_Premultiplied of every type;
/// - YUV422 8u into BGR, ARGB, XRGB, ARGB_Premultiplied and YUV422 8u; YUV422 of another type only into
///   itself (no YUV422 into GrayScale).
///
/// convertImageScaled() takes the same pairs plus GrayScale into every colour format of every type (BGR and
/// ARGB too) and ARGB into ARGB of every type. The pairs are listed in @ref pairs_image_converters and
/// @ref pairs_scaled_converters; any other fails with "Can not find template with actual parameters!" (the
/// status's reason names the pairs). getPixel(), setPixel() and fillImage() take every pair.
///
/// **Destinations:** the conversions never allocate: the destination must already be the image wanted, with
/// a good status and pixels. The whole source (not its roi) is walked in row order together with the
/// destination's roi from its top-left corner, and the common size of the two is converted; nothing outside
/// the destination's roi is written. Exception: three 8-bit pairs convert whole rows of two images of one size,
/// the destination's roi notwithstanding: BGR into ARGB_Premultiplied, XRGB into ARGB_Premultiplied and XRGB
/// into BGR, all 8u. Images of different sizes fail there with "Source and destination differ in size: the
/// destination's region is WxH, the source's wxh" (the whole images' sizes). The X of an XRGB destination is
/// never written.
///
/// **Rounding and saturation:** convertImage() converts components as plain numbers: no scaling between
/// ranges, no saturation. Toward an integer type a value is truncated toward zero and then reduced to its
/// low bits, two's complement (32f 300.7 gives 8u 44, -1.5 gives 8u 255, 8u 200 gives 8s -56); toward 32f it
/// is rounded to the nearest float (beyond the float range: infinity). convertImageScaled() maps full scales
/// onto each other (255 for 8u, 127 for 8s, 65535 for 16u, 32767 for 16s, 2147483647 for 32s, 1 for 32f),
/// rounds to nearest and saturates into integers. getPixel(), setPixel() and fillImage() pass components as
/// doubles; doubles become components as in convertImage() (truncation toward zero, two's-complement
/// narrowing; NaN and infinities give 0 in integer types).
///
/// **Failures:** a source, destination or image with a failed status gives "Bad status of image!", an empty
/// one "Empty source image!", a null destination, image or array "Null pointer argument!"; each function
/// names its particular failures.
///
/// **In place:** converting an image into itself (one pair, its roi the whole image) leaves its pixels as
/// they are; any other overlap of source and destination is not supported.
///
/// **Progress and cancellation** (VProgress): convertImage() and convertImageScaled() run at memory speed in
/// one pass; they are checked before they start (a cancelled call returns "Operation cancelled" and writes
/// nothing), then write the destination fully and report it complete. Pixel access neither reports nor can
/// be cancelled.
///
/// **Threads:** reentrant. Calls on different images may run on any threads at once, and one source may be
/// read by several calls at once; a destination (the image of setPixel() and fillImage()) must not be used by
/// another thread during the call.
/// @{

/// Converts @p source into the pair and the roi @p destination already has. Colour to gray is
/// 0.114 B + 0.587 G + 0.299 R in double precision, the red term added last, from the stored components
/// (alpha and X ignored, premultiplied values taken as stored), then converted as every component is. Gray to
/// colour puts the gray value in B, G and R. A destination alpha whose source has none is 255 in every
/// channel type (full opacity throughout the library, 16-bit and float images included). Into
/// ARGB_Premultiplied from ARGB, B, G and R are multiplied by alpha / 255; out of ARGB_Premultiplied into a
/// straight format they are multiplied by 255 / alpha (0 where alpha is 0); integer results round to
/// nearest there, as QImage does, so a QImage of format ARGB32_Premultiplied shows the image as its ARGB
/// original. Premultiplied to premultiplied is a plain conversion. YUV422 stores two bytes per pixel, luma
/// first, then U on even and V on odd columns, with the library's integer formulas (luma
/// ((B + R) * 116 + G * 601) >> 10; chroma stored as bytes without clamping, colours clamped to 0..255); a
/// lone last pixel of an odd-width row is read with V = 128.
VEXA_EXPORT VStatus convertImage(const VImage& source, VImage* destination);
/// The same picture at another depth: as convertImage(), with every component multiplied by the ratio of
/// the two full scales, rounded to nearest and saturated into integer types, NaN giving 0 (16u 65535 gives
/// 8u 255, 16u 128 gives 0 and 129 gives 1, 8u 1 gives 16u 257, 32f 0.5 gives 8u 128, 32f -0.2 gives 0 and
/// 1.7 gives 255); floats keep whatever comes (8s -128 gives 32f -1.008). Zero stays zero, so signed types
/// read as pictures whose negative values are below black. Colour to gray is scaled and rounded once; an
/// alpha the source lacks is the destination's full scale (opaque); premultiplied and straight alpha convert
/// as in convertImage(), alpha read against its own full scale. YUV422 pairs convert exactly as
/// convertImage() converts them (8-bit data, nothing to scale). None of the three whole-row 8-bit pairs
/// requires images of one size here: every pair walks the source into the destination's roi.
VEXA_EXPORT VStatus convertImageScaled(const VImage& source, VImage* destination);
/// The components of the pixel at image coordinates (@p x, @p y) as doubles, in R, G, B, A order (GrayScale:
/// the gray value; YUV422: luma, then chroma; XRGB: R, G, B, the X not read; premultiplied values as
/// stored). On entry *@p count is the capacity of @p values; on success the number of components written
/// (1 to 4). A capacity below the pixel's count fails with "Not enougth space in array", a position outside
/// the image with "Pixel position is outside the image"; null @p values or @p count give "Null pointer
/// argument!".
VEXA_EXPORT VStatus getPixel(const VImage& image, long x, long y, double* values, int* count);
/// Sets the pixel at image coordinates (@p x, @p y) from the first @p count @p values, in getPixel()'s order
/// (the X of XRGB is not written). The image must exist. Fewer values than the pixel has components fail with
/// "Not enouth data for setting pixel value", a position outside the image with "Pixel position is outside
/// the image".
VEXA_EXPORT VStatus setPixel(VImage* image, long x, long y, double* values, int count);
/// Sets every pixel of the image's roi to @p values, in getPixel()'s order (the X of XRGB is not written).
/// The image must exist; fewer values than the pixel has components fail with "Not enouth data for setting
/// pixel value".
VEXA_EXPORT VStatus fillImage(VImage* image, double* values, int count);

/// @}

} // namespace VEXA
