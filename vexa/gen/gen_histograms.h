/// @file
/// @brief Histograms of 8-bit images and level curves (group @ref histograms).
#pragma once

#include <vexa/imp/VHistogram.h>
#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

namespace VEXA {

/// @addtogroup histograms
/// **Operations.** Histograms of 8-bit images and level curves.
///
/// **Pixel types:** 8u only, by function: calculateHistogram() takes GrayScale, BGR, ARGB, XRGB and
/// ARGB_Premultiplied; calculateHistogramFast() and calculateHistogramBGR() take BGR, XRGB and
/// ARGB_Premultiplied; adjustHistogram() takes GrayScale, BGR, ARGB and XRGB; adjustHistogramComponent()
/// and adjustHistogramByComponents() take BGR, ARGB, XRGB and ARGB_Premultiplied (the tables are in
/// @ref pairs_histograms). Others fail with "Can not find template with actual parameters!".
///
/// **Counting:** calculateHistogram counts GrayScale (luminance only), BGR, ARGB, XRGB and
/// ARGB_Premultiplied 8u images; calculateHistogramFast samples BGR, XRGB and ARGB_Premultiplied with the
/// histogram's VHistogram::skipData() step (below 1: every pixel); calculateHistogramBGR counts red, green
/// and blue only. Which pixels each visits (the roi, or the whole buffer) depends on the format:
/// calculateHistogram() counts the roi of GrayScale, ARGB and ARGB_Premultiplied images but every pixel of
/// the whole image for BGR and XRGB, whatever the roi; calculateHistogramFast() and calculateHistogramBGR()
/// always walk the whole image, roi ignored. In 24- and 32-bit pixels byte 0 is blue, 1 green and 2 red, and
/// the fourth byte is not counted; the luminance is (76 R + 150 G + 29 B) >> 8, whose weights sum to 255,
/// so that white lands in bin 254; a GrayScale value counts as luminance as it is. Each calculation first
/// disables every component of the histogram, then enables, zeroes and fills the ones it counts (the
/// records of others keep their old counts, disabled) and leaves the histogram's status good. Callers call
/// VHistogram::update() afterwards for VHistogram::maxValue(). The histogram detaches first: copies made
/// before keep their counts.
///
/// **Level curves:** adjustHistogram maps every colour byte of GrayScale, BGR, ARGB and XRGB 8u images
/// through one level curve; (0, 0, 255, 255) copies the source unchanged. adjustHistogramComponent maps
/// one colour byte (ComponentRed, ComponentGreen or ComponentBlue) and copies the other two; any other component maps
/// nothing and succeeds: an existing destination keeps its pixels, a new one is a copy of the source's roi.
/// adjustHistogramByComponents applies the red, green and blue
/// curves of the array [master, red, green, blue] and then the master curve. The curve of each is that of
/// VHistogramAdjustComponent (truncated between the control points); adjustHistogram() and
/// adjustHistogramComponent() cut nothing.
///
/// **Destinations:** source and destination have one pair (format and channel type; otherwise
/// "Can not find template with actual parameters!"). An empty destination is made like the source (same
/// header, same roi, zeros outside the roi); an existing one is written through its roi, and the sizes of
/// the two rois (each clipped to its image) must agree ("Image sizes differ"). The fourth byte of 32-bit pixels is not
/// mapped: an existing destination keeps its fourth bytes (except under adjustHistogram() with the curve (0, 0, 255,
/// 255), which copies whole pixels), and a new one takes them from the source, so that nothing of an image whose buffer
/// the BufferPool recycles is left in it.
///
/// **In place:** a destination sharing the source's very pixels works (each byte is mapped on its own). A
/// destination whose roi overlaps the source's at another place reads bytes already written: the result is
/// then not defined.
///
/// **Failures:** a source with a failed status "Bad status of image!", an empty one "Empty source image!";
/// a null histogram, destination or curve array "Null pointer argument!" (the curve array is checked
/// first, the histogram and destination after the source); an existing destination with a failed status,
/// or a new one that could not be made, "Bad status of image!"; then the roi sizes and the pixel types as
/// above. A failed call changes no count of the histogram and no pixel of an existing destination (an empty
/// destination may have been made before the pixel types are checked).
///
/// **Progress and cancellation:** these run whole: they do not report to a current VProgress and cannot be
/// cancelled.
///
/// **Threads:** reentrant. Calls on different images may run on any threads at once, and one source may be
/// read by several calls at once; the histogram or destination written must not be used by another thread
/// during the call.
/// @{

/// Counts the luminance, red, green and blue of BGR, ARGB, XRGB and ARGB_Premultiplied 8u images (the
/// luminance alone of GrayScale ones) into histogram: the roi of GrayScale, ARGB and ARGB_Premultiplied
/// images, every pixel of the whole image of BGR and XRGB ones. Afterwards the counted components are the
/// only enabled ones; call VHistogram::update() for maxValue().
VEXA_EXPORT VStatus calculateHistogram(const VImage& image, VHistogram* histogram);
/// Samples the whole image, roi ignored: rows 0, s, 2 s ... and in each row pixels 0, s, 2 s ..., with s the
/// histogram's skipData() (below 1: every pixel). BGR and XRGB 8u images give luminance, red, green and
/// blue. ARGB_Premultiplied 8u images give red, green and blue only, their bytes counted in the reverse
/// order of every other calculation: byte 0 as red and byte 2 as blue.
VEXA_EXPORT VStatus calculateHistogramFast(const VImage& image, VHistogram* histogram);
/// Counts red, green and blue (no luminance) of every pixel of the whole image, roi ignored, for BGR, XRGB
/// and ARGB_Premultiplied 8u images.
VEXA_EXPORT VStatus calculateHistogramBGR(const VImage& image, VHistogram* histogram);

/// Maps every colour byte of the source's roi through the level curve through (inputLow, outputLow) and
/// (inputHigh, outputHigh) (VHistogramAdjustComponent, no cut) into the destination's roi: GrayScale and
/// BGR every byte, ARGB and XRGB the first three bytes of each pixel. The curve (0, 0, 255, 255) copies
/// the roi unchanged, whole pixels with their fourth byte.
VEXA_EXPORT VStatus adjustHistogram(const VImage& src, VImage* dst, unsigned char inputLow, unsigned char outputLow,
                                    unsigned char inputHigh, unsigned char outputHigh);
/// Maps one colour byte of each pixel (component ComponentRed: byte 2, ComponentGreen: byte 1,
/// ComponentBlue: byte 0) through the level curve as adjustHistogram() does, and copies the other two from
/// the source. Any other component maps nothing and succeeds: an existing destination is left as it is, a new one is
/// made as a copy of the source's roi.
VEXA_EXPORT VStatus adjustHistogramComponent(const VImage& src, VImage* dst, unsigned char inputLow,
                                             unsigned char outputLow, unsigned char inputHigh,
                                             unsigned char outputHigh, Component component);
/// Maps each colour byte through its own curve and then through the master curve: curves points to four
/// curves [master, red, green, blue], each with its cut range (VHistogramAdjustComponent), so that blue
/// becomes master(blue curve(blue)), and so on. curves must hold four elements; null fails with
/// "Null pointer argument!".
VEXA_EXPORT VStatus adjustHistogramByComponents(const VImage& src, VImage* dst, VHistogramAdjustComponent* curves);

/// @}

} // namespace VEXA
