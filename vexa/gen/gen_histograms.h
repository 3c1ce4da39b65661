// Histograms of 8-bit images and level curves.
//
// calculateHistogram counts GrayScale (luminance only), BGR, ARGB, XRGB and ARGB_Premultiplied 8u images;
// calculateHistogramFast samples BGR, XRGB and ARGB_Premultiplied with the histogram's skipData() step
// (below 1: every pixel); calculateHistogramBGR counts red, green and blue only. Which pixels each visits
// (the roi, or the whole buffer) depends on the format, as imp/histograms.h lays out. Callers call
// update() afterwards for maxValue().
//
// adjustHistogram maps every colour byte of GrayScale, BGR, ARGB and XRGB 8u images through one level
// curve; (0, 0, 255, 255) copies the source unchanged. adjustHistogramComponent maps one colour byte
// (ComponentRed, ComponentGreen or ComponentBlue) and copies the other two; any other component writes
// nothing and succeeds. adjustHistogramByComponents applies the red, green and blue curves of the array
// [master, red, green, blue] and then the master curve. The fourth byte of 32-bit pixels is never written.
// Source and destination have one pair; a new destination is made like the source, and the sizes of the
// two rois must agree.
#pragma once

#include <vexa/imp/VHistogram.h>
#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

namespace VEXA {

VEXA_EXPORT VStatus calculateHistogram(const VImage& image, VHistogram* histogram);
VEXA_EXPORT VStatus calculateHistogramFast(const VImage& image, VHistogram* histogram);
VEXA_EXPORT VStatus calculateHistogramBGR(const VImage& image, VHistogram* histogram);

VEXA_EXPORT VStatus adjustHistogram(const VImage& src, VImage* dst, unsigned char inputLow, unsigned char outputLow,
                                    unsigned char inputHigh, unsigned char outputHigh);
VEXA_EXPORT VStatus adjustHistogramComponent(const VImage& src, VImage* dst, unsigned char inputLow,
                                             unsigned char outputLow, unsigned char inputHigh,
                                             unsigned char outputHigh, Component component);
VEXA_EXPORT VStatus adjustHistogramByComponents(const VImage& src, VImage* dst, VHistogramAdjustComponent* curves);

} // namespace VEXA
