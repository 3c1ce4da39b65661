// Pixel arithmetic, thresholds and comparison.
#include "support/LogCapture.h"
#include "support/images.h"
#include "support/pixel_lists.h"

#include <vexa/imp/kernels/math_image.h>

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include <functional>

using namespace VEXA;

namespace {

using TwoImageOp = VStatus (*)(const VImage&, const VImage&, VImage*);
using CvTwoImageOp = std::function<void(const cv::Mat&, const cv::Mat&, cv::Mat&)>;

TEST(OpenCvOperations, MatchOpenCvOnTheSameData)
{
    const struct { const char* name; TwoImageOp op; CvTwoImageOp reference; } binary[] = {
        {"add", addImages, [](auto& a, auto& b, auto& d) { cv::add(a, b, d, cv::noArray(), d.type()); }},
        {"subtract", subtractImages, [](auto& a, auto& b, auto& d) { cv::subtract(a, b, d, cv::noArray(), d.type()); }},
        {"multiply", mulImages, [](auto& a, auto& b, auto& d) { cv::multiply(a, b, d, 1.0, d.type()); }},
        {"divide", divImages, [](auto& a, auto& b, auto& d) { cv::divide(a, b, d, 1.0, d.type()); }},
        {"max", maxImages, [](auto& a, auto& b, auto& d) { cv::max(a, b, d); }},
        {"min", minImages, [](auto& a, auto& b, auto& d) { cv::min(a, b, d); }},
    };
    for (Format f : allFormats())
        for (Channel c : allChannels()) {
            const VImage a = withRoi(makeImage(9, 7, f, c, 1), QRect(1, 2, 6, 4));
            const VImage b = withRoi(makeImage(8, 8, f, c, 2), QRect(0, 3, 6, 4));
            for (const auto& op : binary) {
                VImage mine = withRoi(makeImage(7, 5, f, c, 3), QRect(1, 1, 6, 4));
                VImage theirs = mine.copy();
                theirs.setRoi(mine.roi());
                ASSERT_TRUE(op.op(a, b, &mine)) << op.name << " " << f << "/" << c;
                cv::Mat out = roiMat(theirs);
                op.reference(roiMat(a), roiMat(b), out);
                EXPECT_TRUE(sameRoiBytes(mine, theirs)) << op.name << " " << f << "/" << c;
            }
            VImage absolute, inverted;
            ASSERT_TRUE(absImage(a, &absolute));
            ASSERT_TRUE(notImage(a, &inverted));
            cv::Mat expected;
            cv::absdiff(roiMat(a), cv::Scalar::all(0), expected);
            EXPECT_EQ(cv::norm(roiMat(absolute), expected, cv::NORM_INF), 0) << f << "/" << c;
            cv::bitwise_not(roiMat(a), expected);
            EXPECT_EQ(std::memcmp(roiMat(inverted).clone().data, expected.data, expected.total() * expected.elemSize()), 0);
            EXPECT_EQ(absolute.roi(), a.roi()) << "a new destination takes the source's header and roi";
        }
}

TEST(OpenCvOperations, MixedDepthsSaturateIntoTheDestinationType)
{
    VImage a = makeImage(4, 4, GrayScale, Channel8u), b = makeImage(4, 4, GrayScale, Channel8u);
    double v200[1] = {200}, v100[1] = {100};
    fillImage(&a, v200, 1);
    fillImage(&b, v100, 1);
    VImage wide;
    wide.create(4, 4, GrayScale, Channel16s, OriginBottomLeft, RowsAlignNone);
    ASSERT_TRUE(addImages(a, b, &wide));
    EXPECT_EQ(wide.pixel(3, 3)[0].toInt(), 300);
    VImage narrowResult;
    ASSERT_TRUE(addImages(a, b, &narrowResult));
    EXPECT_EQ(narrowResult.pixel(0, 0)[0].toInt(), 255) << "a new destination takes the sources' type";

    VImage small = makeImage(3, 3, GrayScale, Channel8u);
    const VStatus wrongSize = addImages(a, b, &small);
    EXPECT_EQ(wrongSize.issue(), Issue::OpenCvError);
    EXPECT_TRUE(wrongSize.message().contains("src1.size == dst.size && src1.channels() == dst.channels()"));
    EXPECT_TRUE(wrongSize.message().contains("Function: cvAdd"));
    VImage otherType = makeImage(4, 4, GrayScale, Channel16u);
    EXPECT_TRUE(maxImages(a, b, &otherType).message().contains("src1.type() == dst.type()"));
    EXPECT_EQ(addImages(a, makeImage(3, 4, GrayScale, Channel8u), &wide).issue(), Issue::OpenCvError);
}

TEST(OpenCvOperations, ThresholdsAndZero)
{
    for (Channel c : {Channel8u, Channel16u, Channel16s, Channel32f})
        for (ThresholdOperation op : {ThresholdBinary, ThresholdBinaryInv, ThresholdTrunc, ThresholdToZero, ThresholdToZeroInv}) {
            const VImage src = withRoi(makeImage(9, 6, BGR, c), QRect(1, 1, 7, 4));
            VImage mine;
            ASSERT_TRUE(thresholdImage(src, &mine, op, 100.5, 99.6)) << c << " " << op;
            cv::Mat expected;
            cv::threshold(roiMat(src), expected, 100.5, 99.6, op);
            EXPECT_EQ(cv::norm(roiMat(mine), expected, cv::NORM_INF), 0) << c << " " << op;
        }
    const VImage gray = makeImage(33, 20, GrayScale, Channel8u);
    VImage otsu, to8u = makeImage(33, 20, GrayScale, Channel8u);
    cv::Mat expected;
    ASSERT_TRUE(thresholdImage(gray, &otsu, ThresholdOperation(ThresholdBinary | ThresholdOtsu), 0, 255));
    cv::threshold(roiMat(gray), expected, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
    EXPECT_EQ(cv::norm(roiMat(otsu), expected, cv::NORM_INF), 0);
    ASSERT_TRUE(thresholdImage(makeImage(33, 20, GrayScale, Channel32f), &to8u, ThresholdTrunc, 50, 0))
        << "an 8u destination takes any source type";
    EXPECT_EQ(thresholdImage(gray, &otsu, ThresholdOperation(5), 0, 255).message(), "Reason: Unknown threshold operation");

    VImage adaptive;
    ASSERT_TRUE(adaptiveThresholdImage(gray, &adaptive, ThresholdBinary, AdaptiveMeanC, 255, 5, 2));
    cv::adaptiveThreshold(roiMat(gray), expected, 255, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY, 5, 2);
    EXPECT_EQ(cv::norm(roiMat(adaptive), expected, cv::NORM_INF), 0);
    EXPECT_EQ(adaptiveThresholdImage(gray, &adaptive, ThresholdBinary, AdaptiveMeanC, 255, 4, 2).issue(), Issue::OpenCvError);

    VImage zero = withRoi(makeImage(5, 5, XRGB, Channel32s), QRect(1, 1, 2, 2));
    const VImage before = zero.copy();
    ASSERT_TRUE(setZero(&zero));
    EXPECT_EQ(zero.pixel(1, 1), QList<QVariant>({0.0, 0.0, 0.0}));
    EXPECT_EQ(zero.pixel(0, 0), before.pixel(0, 0)) << "outside the roi nothing changes";
}

// Every operation refuses the pairs outside its list with the frame's text, before touching memory.
TEST(Operations, RefuseEveryPairOutsideTheirList)
{
    using Call = std::function<VStatus(const VImage&)>;
    int levels[6] = {0, 255, 0, 255, 0, 255};
    const struct { const char* name; Pairs supported; Call call; } operations[] = {
        {"threshold", pairsOf(ThresholdPixels{}), [](const VImage& s) { VImage d; return thresholdImage(s, &d, ThresholdBinary, 1, 1); }},
        {"adaptive", pairsOf(AdaptiveThresholdPixels{}), [](const VImage& s) { VImage d; return adaptiveThresholdImage(s, &d, ThresholdBinary, AdaptiveMeanC, 1, 3, 1); }},
        {"negative", pairsOf(ToneMapPixels{}), [](const VImage& s) { VImage d; return negativeImage(s, &d); }},
        {"gamma", pairsOf(ToneMapPixels{}), [](const VImage& s) { VImage d; return gammaImage(s, &d, 2); }},
        {"mulDouble", pairsOf(MulDoublePixels{}), [](const VImage& s) { VImage d; return mulImageDouble(s, &d, 2); }},
        {"mask", pairsOf(MaskPixels{}), [](const VImage& s) { VImage d; return maskImage(s, makeImage(4, 4, GrayScale, Channel8u), &d, false); }},
        {"maxAbs", pairsOf(MaxAbsPixels{}), [](const VImage& s) { VImage d = s.copy(); return combineImagesMaxAbs(s, &d); }},
        {"background", pairsOf(BackgroundPixels{}), [](const VImage& s) { VImage d; return subBackground(s, s, &d, 0, false); }},
        {"colour", pairsOf(ColourisePixels{}), [](const VImage& s) { VImage d; return colorImage(s, &d, 0xff0000); }},
        {"extremums", pairsOf(ExtremumPixels{}), [](const VImage& s) { VImage d; return findExtremums(s, &d, 3, false); }},
        {"colourThreshold", pairsOf(ColourThresholdPixels{}), [&levels](const VImage& s) { VImage d; return thresholdImageColor(s, &d, ThresholdBinary, levels, 6); }},
        {"hueThreshold", pairsOf(HueThresholdPixels{}), [](const VImage& s) { VImage d; return thresholdImageHue(s, &d, ThresholdBinary, 0, 60); }},
        {"compare", pairsOf(ComparePixels{}), [](const VImage& s) { double r; return compareImages(s, s, &r); }},
        {"getMax", pairsOf(GrayStatisticsPixels{}), [](const VImage& s) { double r; return getMax(s, &r); }},
    };
    for (const auto& op : operations)
        for (Format f : allFormats())
            for (Channel c : allChannels()) {
                const VStatus status = op.call(makeImage(4, 4, f, c));
                if (std::count(op.supported.begin(), op.supported.end(), std::pair(f, c)))
                    EXPECT_TRUE(status) << op.name << " " << f << "/" << c << ": " << status.message().toStdString();
                else
                    EXPECT_EQ(status.message(), "Reason: Can not find template with actual parameters!") << op.name << " " << f << "/" << c;
            }
}

TEST(OwnKernels, NegativeAndGamma)
{
    const VImage colour = makeImage(6, 4, XRGB, Channel8u);
    VImage once, twice;
    ASSERT_TRUE(negativeImage(colour, &once));
    ASSERT_TRUE(negativeImage(once, &twice));
    EXPECT_TRUE(sameRoiBytes(twice.convert(BGR, Channel8u), colour.convert(BGR, Channel8u)));
    EXPECT_EQ(once.pixel(2, 3)[0].toInt(), 255 - colour.pixel(2, 3)[0].toInt());
    VImage deep = makeImage(2, 2, ARGB, Channel16u), deepNegative;
    ASSERT_TRUE(negativeImage(deep, &deepNegative));
    EXPECT_EQ(deepNegative.pixel(1, 1)[2].toInt(), 65535 - deep.pixel(1, 1)[2].toInt());
    EXPECT_EQ(deepNegative.pixel(1, 1)[3], deep.pixel(1, 1)[3]) << "alpha is copied";

    for (Channel c : {Channel8u, Channel16u}) {
        const VImage src = makeImage(16, 16, BGR, c);
        VImage same;
        ASSERT_TRUE(gammaImage(src, &same, 1.0));
        EXPECT_TRUE(sameRoiBytes(same, src)) << c;
    }
    VImage ramp;
    ramp.create(256, 1, GrayScale, Channel8u, OriginBottomLeft, RowsAlignNone);
    for (int i = 0; i < 256; ++i)
        ramp.rawData()[i] = quint8(i);
    VImage bright;
    ASSERT_TRUE(gammaImage(ramp, &bright, 0.5));
    EXPECT_EQ(bright.pixel(64, 0)[0].toInt(), 128); // sqrt(64 / 255) * 255 = 127.75
    EXPECT_EQ(bright.pixel(255, 0)[0].toInt(), 255);
    EXPECT_EQ(bright.pixel(0, 0)[0].toInt(), 0);
    EXPECT_EQ(gammaImage(ramp, &bright, 0).message(), "Reason: Gamma must be positive");
}

TEST(OwnKernels, ProductsMasksAndMaxAbs)
{
    VImage gray = makeImage(3, 3, GrayScale, Channel8u);
    double v[1] = {200};
    fillImage(&gray, v, 1);
    VImage product;
    ASSERT_TRUE(mulImageDouble(gray, &product, 0.25));
    EXPECT_EQ(product.channelType(), Channel32f);
    EXPECT_EQ(product.pixel(1, 1)[0].toDouble(), 50.0);

    const VImage src = makeImage(4, 1, ARGB, Channel8u);
    VImage mask;
    mask.create(4, 1, GrayScale, Channel8u, OriginBottomLeft, RowsAlignNone);
    const quint8 bits[4] = {0, 1, 255, 0};
    std::memcpy(mask.rawData(), bits, 4);
    VImage kept, dropped;
    ASSERT_TRUE(maskImage(src, mask, &kept, false));
    ASSERT_TRUE(maskImage(src, mask, &dropped, true));
    for (int x = 0; x < 4; ++x) {
        const bool on = bits[x] != 0;
        EXPECT_EQ(kept.pixel(x, 0), on ? src.pixel(x, 0) : QList<QVariant>({0.0, 0.0, 0.0, 0.0})) << x;
        EXPECT_EQ(dropped.pixel(x, 0), on ? QList<QVariant>({0.0, 0.0, 0.0, 0.0}) : src.pixel(x, 0)) << x;
    }
    EXPECT_EQ(maskImage(src, makeImage(5, 1, GrayScale, Channel8u), &kept, false).message(), "Reason: Image sizes differ");

    VImage levels;
    levels.create(3, 1, GrayScale, Channel16s, OriginBottomLeft, RowsAlignNone);
    VImage candidate = levels;
    candidate.create(3, 1, GrayScale, Channel16s, OriginTopLeft, RowsAlignNone);
    const qint16 a[3] = {5, -9, 4}, b[3] = {-7, 8, -4};
    std::memcpy(levels.rawData(), a, 6);
    std::memcpy(candidate.rawData(), b, 6);
    ASSERT_TRUE(combineImagesMaxAbs(candidate, &levels));
    EXPECT_EQ(levels.pixel(0, 0)[0].toInt(), -7);
    EXPECT_EQ(levels.pixel(1, 0)[0].toInt(), -9);
    EXPECT_EQ(levels.pixel(2, 0)[0].toInt(), 4) << "a tie keeps the destination";
}

TEST(OwnKernels, BackgroundColourAndExtremums)
{
    VImage src = makeImage(2, 1, GrayScale, Channel8u), background = src.copy();
    const quint8 s[2] = {100, 250}, bg[2] = {150, 50};
    std::memcpy(src.rawData(), s, 2);
    std::memcpy(background.rawData(), bg, 2);
    VImage subtracted, divided;
    ASSERT_TRUE(subBackground(src, background, &subtracted, 20, false));
    EXPECT_EQ(subtracted.pixel(0, 0)[0].toInt(), 0) << "100 - 150 + 20 saturates at 0";
    EXPECT_EQ(subtracted.pixel(1, 0)[0].toInt(), 220);
    ASSERT_TRUE(subBackground(src, background, &divided, 100, true));
    EXPECT_EQ(divided.pixel(0, 0)[0].toInt(), 67);
    EXPECT_EQ(divided.pixel(1, 0)[0].toInt(), 255);

    VImage tinted;
    ASSERT_TRUE(colorImage(src, &tinted, 0x00FF8000));
    EXPECT_EQ(tinted.format(), BGR);
    EXPECT_EQ(tinted.pixel(1, 0), QList<QVariant>({250.0, 125.0, 0.0}));

    VImage field;
    field.create(5, 3, GrayScale, Channel16u, OriginBottomLeft, RowsAlignNone);
    const quint16 values[15] = {1, 2, 3, 2, 1, 2, 9, 3, 2, 1, 1, 2, 3, 2, 7};
    for (int y = 0; y < 3; ++y)
        std::memcpy(field.rawData() + y * field.bytesPerLine(), values + 5 * y, 10);
    VImage peaks, valleys;
    ASSERT_TRUE(findExtremums(field, &peaks, 3, false));
    ASSERT_TRUE(findExtremums(field, &valleys, 3, true));
    QList<int> peakAt, valleyAt;
    for (int i = 0; i < 15; ++i) {
        if (peaks.pixel(i % 5, i / 5)[0].toInt() == 255)
            peakAt << i;
        if (valleys.pixel(i % 5, i / 5)[0].toInt() == 255)
            valleyAt << i;
    }
    EXPECT_EQ(peakAt, QList<int>({6, 14}));
    EXPECT_EQ(valleyAt, QList<int>({0, 4, 9, 10}));
    EXPECT_EQ(findExtremums(field, &peaks, 0, false).message(), "Reason: Window size must be positive");
}

TEST(OwnKernels, ColourAndHueThresholds)
{
    VImage src;
    src.create(4, 1, XRGB, Channel8u, OriginBottomLeft, RowsAlignNone);
    const double colours[4][3] = {{250, 10, 10}, {10, 250, 10}, {120, 120, 120}, {250, 10, 40}};
    for (int x = 0; x < 4; ++x)
        setPixel(&src, x, 0, const_cast<double*>(colours[x]), 3);
    int reds[6] = {200, 255, 0, 50, 0, 20}; // R, G, B pairs
    VImage mask;
    ASSERT_TRUE(thresholdImageColor(src, &mask, ThresholdBinary, reds, 6));
    EXPECT_EQ(mask.pixel(0, 0)[0].toInt(), 255);
    EXPECT_EQ(mask.pixel(3, 0)[0].toInt(), 0) << "blue 40 is outside 0..20";
    ASSERT_TRUE(thresholdImageColor(src, &mask, ThresholdBinaryInv, reds, 6));
    EXPECT_EQ(mask.pixel(0, 0)[0].toInt(), 0);
    EXPECT_EQ(thresholdImageColor(src, &mask, ThresholdBinary, reds, 5).message(), "Reason: Not enough threshold levels");
    EXPECT_EQ(thresholdImageColor(src, &mask, ThresholdTrunc, reds, 6).message(), "Reason: Unsupported threshold operation");

    ASSERT_TRUE(thresholdImageHue(src, &mask, ThresholdBinary, 350, 10)); // wraps through red
    EXPECT_EQ(mask.pixel(0, 0)[0].toInt(), 255);
    EXPECT_EQ(mask.pixel(1, 0)[0].toInt(), 0);
    EXPECT_EQ(mask.pixel(2, 0)[0].toInt(), 0) << "grays have no hue";
    EXPECT_EQ(mask.pixel(3, 0)[0].toInt(), 255) << "hue " << createHue(250, 10, 40);
    ASSERT_TRUE(thresholdImageHue(src, &mask, ThresholdBinary, 100, 140));
    EXPECT_EQ(mask.pixel(1, 0)[0].toInt(), 255);

    const struct { int r, g, b, hue; } hues[] = {{255, 0, 0, 0}, {0, 255, 0, 120}, {0, 0, 255, 240}, {9, 9, 9, 0},
                                                  {255, 0, 1, 360}, {255, 255, 0, 60}, {0, 255, 255, 180}};
    for (const auto& h : hues)
        EXPECT_EQ(createHue(h.r, h.g, h.b), h.hue) << h.r << "," << h.g << "," << h.b;
}

TEST(Statistics, CompareMaxAndMean)
{
    const VImage a = makeImage(6, 5, BGR, Channel16s);
    double rms = -5;
    ASSERT_TRUE(compareImages(a, a, &rms));
    EXPECT_EQ(rms, 0.0);
    VImage g1 = makeImage(3, 3, GrayScale, Channel8u), g2 = g1.copy();
    double ten[1] = {10}, thirteen[1] = {13};
    fillImage(&g1, ten, 1);
    fillImage(&g2, thirteen, 1);
    ASSERT_TRUE(compareImages(g1, g2, &rms));
    EXPECT_DOUBLE_EQ(rms, 3.0);
    ASSERT_TRUE(compareImages(withRoi(g1, QRect(0, 0, 2, 2)), withRoi(g2, QRect(1, 1, 2, 2)), &rms));
    EXPECT_DOUBLE_EQ(rms, 3.0) << "one common pixel";
    LogCapture log;
    const VStatus apart = compareImages(withRoi(g1, QRect(0, 0, 1, 1)), withRoi(g2, QRect(2, 2, 1, 1)), &rms);
    EXPECT_EQ(rms, -1.0);
    EXPECT_EQ(apart.message(), "No common points");
    EXPECT_EQ(log.count(), 1u);

    VImage negative = makeImage(3, 2, GrayScale, Channel32f);
    double minus[1] = {-4};
    fillImage(&negative, minus, 1);
    double maximum = 99;
    ASSERT_TRUE(getMax(negative, &maximum));
    EXPECT_EQ(maximum, 0.0) << "the running maximum starts at 0";
    EXPECT_EQ(getMean(negative), -4.0);
    EXPECT_EQ(getMean(g2), 13.0);
    VImage ramp = makeImage(4, 1, GrayScale, Channel32s);
    const qint32 values[4] = {-3, 7, 2, 100};
    std::memcpy(ramp.rawData(), values, 16);
    ramp.setRoi(QRect(0, 0, 3, 1));
    ASSERT_TRUE(getMax(ramp, &maximum));
    EXPECT_EQ(maximum, 7.0);
    EXPECT_EQ(getMean(ramp), 2.0);
    EXPECT_EQ(getMean(VImage()), -1.0);
    EXPECT_EQ(getMean(makeImage(2, 2, BGR, Channel8u)), -1.0);
}

} // namespace
