// Operations that make their destination from sources with a region of interest, as a table: one call
// each over a shared set of sources. The tests of recycled buffers and of concurrent use run them all.
#pragma once

#include "images.h"

namespace operation_cases {

using namespace VEXA;

inline constexpr int kWidth = 37, kHeight = 29; // odd: rows of 8- and 24-bit pixels end in padding
inline const QRect kRoi(5, 4, 23, 17);          // off the origin, short of every edge
inline const QRect kSquare(5, 4, 17, 17);       // the matrix operations' roi

struct Sources {
    VImage gray, other, bgr, xrgb, matrix, mask, kernel;
};

inline Sources makeSources()
{
    Sources s;
    s.gray = withRoi(makeImage(kWidth, kHeight, GrayScale, Channel8u, 1), kRoi);
    s.other = withRoi(makeImage(kWidth, kHeight, GrayScale, Channel8u, 2), kRoi);
    s.bgr = withRoi(makeImage(kWidth, kHeight, BGR, Channel8u, 3), kRoi);
    s.xrgb = withRoi(makeImage(kWidth, kHeight, XRGB, Channel8u, 4), kRoi);
    s.matrix = withRoi(s.gray.convert(GrayScale, Channel32f), kSquare);
    thresholdImage(s.gray, &s.mask, ThresholdBinary, 200, 255);
    s.kernel.create(3, 3, GrayScale, Channel32f, OriginBottomLeft, RowsAlignNone);
    double ninth = 1.0 / 9;
    fillImage(&s.kernel, &ninth, 1);
    return s;
}

inline const VConvKernel kElement(3, 3, 1, 1, ConvKernelEllipse);
inline const VCameraCalibration kCamera(30, 30, 11, 8, 0.05);
inline int colourLevels[6] = {0, 200, 30, 255, 0, 180};
inline VHistogramAdjustComponent curves[4] = {{0, 0, 255, 255, 0, 255}, {0, 255, 255, 0, 0, 255},
                                       {0, 0, 255, 255, 0, 120}, {0, 0, 255, 128, 0, 255}};

inline VStatus dftRealPart(const VImage& src, VImage* real)
{
    VImage imaginary;
    return dftImage(src, real, &imaginary);
}

struct Case {
    const char* name;
    VStatus (*run)(const Sources&, VImage*);
};

// A case named by its own call, which writes into d; a member's call returns the new image instead.
#define OPERATION(call) Case{#call, [](const Sources& s, VImage* d) -> VStatus { return call; }}
#define MEMBER(call) Case{#call, [](const Sources& s, VImage* d) { *d = call; return d->status(); }}

// Operations whose destination is made like the source and written inside its roi.
inline const Case kOperations[] = {
    OPERATION(addImages(s.gray, s.other, d)),
    OPERATION(subtractImages(s.gray, s.other, d)),
    OPERATION(mulImages(s.gray, s.other, d)),
    OPERATION(divImages(s.gray, s.other, d)),
    OPERATION(maxImages(s.gray, s.other, d)),
    OPERATION(minImages(s.gray, s.other, d)),
    OPERATION(absImage(s.gray, d)),
    OPERATION(notImage(s.gray, d)),
    OPERATION(thresholdImage(s.gray, d, ThresholdBinary, 128, 255)),
    OPERATION(adaptiveThresholdImage(s.gray, d, ThresholdBinary, AdaptiveMeanC, 255, 5, 2)),
    OPERATION(negativeImage(s.gray, d)),
    OPERATION(gammaImage(s.gray, d, 0.5)),
    OPERATION(mulImageDouble(s.gray, d, 0.5)),
    OPERATION(maskImage(s.gray, s.mask, d, false)),
    OPERATION(subBackground(s.gray, s.other, d, 100, false)),
    OPERATION(colorImage(s.gray, d, 0x3080C0)),
    OPERATION(findExtremums(s.gray, d, 3, false)),
    OPERATION(thresholdImageColor(s.bgr, d, ThresholdBinary, colourLevels, 6)),
    OPERATION(thresholdImageHue(s.bgr, d, ThresholdBinary, 30, 90)),
    OPERATION(filter2D(s.gray, d, s.kernel, QPointF(-1, -1))),
    OPERATION(laplaceImage(s.gray, d, 3)),
    OPERATION(sobelImage(s.gray, d, 1, 0, 3)),
    OPERATION(smoothGaussian(s.gray, d, 5)),
    OPERATION(smoothGaussianSigma(s.gray, d, 5, 1.5)),
    OPERATION(smoothMedian(s.gray, d, 3)),
    OPERATION(smoothBlur(s.gray, d, 3, 3)),
    OPERATION(smoothBlurNoScale(s.gray, d, 3, 3)),
    OPERATION(smoothBilaterial(s.bgr, d, 5, 0, 20, 5)),
    OPERATION(sharpImage(s.xrgb, d, 3, 1.5, 0, 255)),
    OPERATION(erodeImage(s.gray, d, kElement, 1)),
    OPERATION(dilateImage(s.gray, d, kElement, 1)),
    OPERATION(morphOpening(s.gray, d, kElement, 1)),
    OPERATION(morphClosing(s.gray, d, kElement, 1)),
    OPERATION(morphGradient(s.gray, d, kElement, 1)),
    OPERATION(morphTopHat(s.gray, d, kElement, 1)),
    OPERATION(morphBlackHat(s.gray, d, kElement, 1)),
    OPERATION(cannyImage(s.gray, d, 50, 150)),
    OPERATION(pyramidMeanShiftSegmentation(s.bgr, d, 5, 10)),
    OPERATION(connectedComponents(s.mask, d, nullptr)),
    OPERATION(inpaintImage(s.gray, s.mask, d, 3)),
    OPERATION(adjustHistogram(s.gray, d, 10, 0, 200, 255)),
    OPERATION(adjustHistogramComponent(s.bgr, d, 10, 0, 200, 255, ComponentRed)),
    OPERATION(adjustHistogramByComponents(s.bgr, d, curves)),
    // 32-bit pixels: the kernels map colour bytes only, so the fourth must still be defined
    OPERATION(adjustHistogram(s.xrgb, d, 10, 0, 200, 255)),
    OPERATION(adjustHistogramComponent(s.xrgb, d, 10, 0, 200, 255, ComponentRed)),
    OPERATION(adjustHistogramComponent(s.xrgb, d, 10, 0, 200, 255, ComponentLuminance)),
    OPERATION(adjustHistogramByComponents(s.xrgb, d, curves)),
    OPERATION(negativeImage(s.xrgb, d)),
    OPERATION(gammaImage(s.xrgb, d, 0.5)),
    OPERATION(mulImageDouble(s.xrgb, d, 0.5)),
    OPERATION(subBackground(s.xrgb, s.xrgb, d, 100, false)),
    OPERATION(flipImage(s.gray, d, 1)),
    OPERATION(undistortImage(s.gray, d, 0.01)),
    OPERATION(undistortImage(s.gray, d, kCamera)),
    OPERATION(undistortImage(s.gray, d, kCamera, 0.5)),
    OPERATION(brightnessAlignment(s.gray, s.other, d)),
    OPERATION(brightnessAlignment(s.gray, d, 5)),
    OPERATION(createBackgroundBrightness(s.gray, d)),
    OPERATION(findNoise(s.gray, d)),
    OPERATION(correctNoise(s.gray, s.other, d)),
    OPERATION(matchTemplate(s.matrix, s.matrix.cropByRect(QRect(0, 0, 1, 1)), d, TemplateSqDiff)),
    OPERATION(invertMatrix(s.matrix, d, DecompositionLU)),
    OPERATION(solveLinear(s.matrix, s.matrix, d, DecompositionLU)),
    OPERATION(dftRealPart(s.matrix, d)),
    OPERATION(inverseDftImage(s.matrix, s.matrix, d)),
};

// Members that make a whole new image from one with a roi.
inline const Case kMembers[] = {
    MEMBER(s.bgr.convert(GrayScale, Channel16u)),
    MEMBER(s.bgr.convertScaled(GrayScale, Channel32f)),
    MEMBER(s.bgr.cropByRect(kRoi)),
    MEMBER(s.gray.rotate(Angle180)),
    MEMBER(orientedImage(s.bgr, 3)),
    MEMBER(s.bgr.convert(XRGB, Channel8u)), // conversions never write X
    MEMBER(s.xrgb.convert(XRGB, Channel32f)),
    MEMBER(s.gray.convertScaled(XRGB, Channel16u)),
};

} // namespace operation_cases
