// Tone: brightness and contrast of level curves, hue, normalization, illumination and noise.
//
// - calcCoordinatesByBrightnessContrast(brightness, contrast, x1, y1, x2, y2): the two control points of
//   the level curve (adjustHistogram) for brightness and contrast in 0..1 (0.5 neutral: (0, 0) and
//   (255, 255)). The slope is 2c up to c = 0.5 and 0.5 / (1 - c) above, with 10000 for exactly 1 and
//   0.0001 for exactly 0; the curve is centred at (1 - brightness) * 255, and a point pushed outside
//   0..255 is clipped along the line (the upper clip measured from x1 as it was before its own clip).
// - calcBrightnessContrastByCoordinates(x1, y1, x2, y2, brightness, contrast): the reverse, from where
//   the line through the points reaches 0 and 255. Contrast 1 comes back as 0.99995 (slope 10000 is
//   read back through the upper formula), which is how the pair round-trips.
// - createHue(r, g, b): the hue of an 8-bit colour in whole degrees, 0..360, in integer arithmetic: 0 for
//   grays; on ties blue wins over green and green over red. 360 can occur (255, 0, 1), as the formula
//   gives it.
// - normalizeImage(src, dst, a, b) (to the range min(a, b)..max(a, b); a constant image becomes the low
//   end), normalizeCImage(src, dst, a), normalizeL1Image(src, dst, a), normalizeL2Image(src, dst, a)
//   (scaled so that the infinity, L1 or L2 norm becomes a; an all-zero image becomes 0): OpenCV's
//   normalize over the rois, results rounded to nearest and saturated. Source and destination are both
//   GrayScale 8u; the destination must exist and have the source's size.
//
// Composites: chains of the library's own operations. Each returns VStatus::Ok whatever the inner calls
// returned; an inner failure shows in the log that the inner operation writes, and dst is then whatever
// the chain left in it (a source the chain cannot take, such as a colour image where a gray one is
// divided, leaves dst as the failing step found it).
// - brightnessAlignment(a, b, dst): divImages(a, b, dst).
// - brightnessAlignment(src, dst, kernel): src divided by its background: the gray 8u form of src
//   shrunk (nearest neighbour) so that its shorter side is 100 pixels, smoothed by smoothGaussian of
//   kernel * 100 / shorter side (truncated), enlarged back (nearest neighbour), turned to 32f and divided
//   by its maximum; then divImages(src, that background, dst).
// - createBackgroundBrightness(src, dst): the gray 8u form of src smoothed by smoothGaussian of
//   (shorter side / 1000 + 5) | 1, as GrayScale 32f divided by its maximum: a background in 0..1.
// - findNoise(src, dst): subtractImages(src, smoothGaussian(src, (shorter side / 5 + 10) | 1), dst).
// - correctNoise(a, b, dst): subtractImages(a, b, dst).
//
// - contrastImage(src, dst, amount, kernel): local contrast against blurred = smoothGaussian(src,
//   kernel | 1), in one of two forms chosen by the destination the caller prepared with src's size (the
//   rois' sizes must agree). Sources: GrayScale, BGR, XRGB, ARGB and ARGB_Premultiplied in 8u.
//   - dst of src's format and type: enhancement, each colour component bound8u(s + (s - b) * amount /
//     100) (truncated, clamped to 0..255); the alpha or X byte is copied from src.
//   - dst GrayScale 32f: the sharpness measure |L(s) - L(b)| * amount as floats, with L the luminance
//     0.114 B + 0.587 G + 0.299 R (the value itself for gray). The difference is exact (in integers, as
//     114 B + 587 G + 299 R), then scaled by the single-precision factor amount / 1000: no rounding noise
//     tells two equal luminances apart, and the loop vectorises.
//   Any other destination is unsupported parameters.
// - createGaussianNoise(src, dst, percent): a multiply-with-carry generator (multiplier 4164903690,
//   restarted at x = 0xFFFFFFFF, c = 0 on every call, so the noise is the same each time) walks the
//   columns outer and the rows inner over the whole image; per pixel one step picks it when x mod 100 is
//   at least 100 - percent, and a picked pixel takes src's components (VImage::pixel) with the first three
//   replaced by the low bytes of three further steps, written to dst (VImage::setPixel). The values are
//   uniform bytes, not Gaussian, whatever the name says; images with fewer than three components get as
//   many values as they have (the generator still takes its three steps, so every format picks the same
//   pixels). dst must exist with src's width and height; pixels not picked keep what
//   dst held. Percent 0 writes nothing, 100 (or more) every pixel.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

namespace VEXA {

VEXA_EXPORT void calcCoordinatesByBrightnessContrast(double brightness, double contrast, double* x1, double* y1,
                                                     double* x2, double* y2);
VEXA_EXPORT void calcBrightnessContrastByCoordinates(double x1, double y1, double x2, double y2, double* brightness,
                                                     double* contrast);
VEXA_EXPORT int createHue(int red, int green, int blue);

VEXA_EXPORT VStatus normalizeImage(const VImage& src, VImage* dst, double a, double b);
VEXA_EXPORT VStatus normalizeCImage(const VImage& src, VImage* dst, double a);
VEXA_EXPORT VStatus normalizeL1Image(const VImage& src, VImage* dst, double a);
VEXA_EXPORT VStatus normalizeL2Image(const VImage& src, VImage* dst, double a);

VEXA_EXPORT VStatus brightnessAlignment(const VImage& a, const VImage& b, VImage* dst);
VEXA_EXPORT VStatus brightnessAlignment(const VImage& src, VImage* dst, int kernel);
VEXA_EXPORT VStatus createBackgroundBrightness(const VImage& src, VImage* dst);
VEXA_EXPORT VStatus findNoise(const VImage& src, VImage* dst);
VEXA_EXPORT VStatus correctNoise(const VImage& a, const VImage& b, VImage* dst);

VEXA_EXPORT VStatus contrastImage(const VImage& src, VImage* dst, int amount, int kernel);
VEXA_EXPORT VStatus createGaussianNoise(const VImage& src, VImage* dst, double percent);

} // namespace VEXA
