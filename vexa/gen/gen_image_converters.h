// Conversion between (format, channel type) pairs, and single-pixel access.
//
// convertImage converts into the image the destination already is (it never allocates); the supported
// pairs and the numeric rules are those of imp/image_converters.h. The deliberate gaps stay gaps: no
// GrayScale to BGR or ARGB, no ARGB to BGR or XRGB, no ARGB to ARGB of another channel type, no YUV422 to
// GrayScale, and YUV422 is produced from 8u sources only.
//
// convertImageScaled is the same picture at another depth: ranges map onto each other (16u 65535 is 8u
// 255 and 32f 1.0), rounded and saturated; the rules are those of imp/scaled_converters.h. It covers plain
// conversion's pairs plus gray into every colour format and ARGB into ARGB of any type, and is checked,
// cancelled and walked as convertImage.
//
// getPixel, setPixel and fillImage pass components in R, G, B, A order (GrayScale: the gray value; YUV422:
// luma, then chroma); the X byte of XRGB is neither read nor written. Coordinates are image coordinates,
// and a position outside the image is an error. fillImage sets every pixel of the region of interest.
// Doubles become components by truncation toward zero and two's-complement narrowing.
//
// Progress and cancellation (VProgress): convertImage runs at memory speed in one pass; it is checked before
// it starts (a cancelled call writes nothing) and then writes the destination fully.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

namespace VEXA {

VEXA_EXPORT VStatus convertImage(const VImage& source, VImage* destination);
VEXA_EXPORT VStatus convertImageScaled(const VImage& source, VImage* destination);
// On entry *count is the capacity of values; on success the number of components written.
VEXA_EXPORT VStatus getPixel(const VImage& image, long x, long y, double* values, int* count);
VEXA_EXPORT VStatus setPixel(VImage* image, long x, long y, double* values, int count);
VEXA_EXPORT VStatus fillImage(VImage* image, double* values, int count);

} // namespace VEXA
