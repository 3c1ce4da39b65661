// Brightness and contrast of level curves, normalization, illumination and noise tools, local contrast.
#include "support/images.h"

#include <vcore/MathUtils.h>

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

using namespace VEXA;

namespace {

TEST(BrightnessContrast, ControlPointsAndBack)
{
    const struct {
        double brightness, contrast;
        double x1, y1, x2, y2;
        double backBrightness, backContrast, tolerance;
    } cases[] = {
        {0.5, 0.5, 0, 0, 255, 255, 0.5, 0.5, 1e-12},                             // the identity curve
        {0.5, 1.0, 127.5 - 0.01275, 0, 127.5 + 0.01275, 255, 0.5, 0.99995, 1e-9}, // slope 10000
        {0.5, 0.0, 0, 127.48725, 255, 127.51275, 0.5, 0.0, 6e-5},                 // slope 0.0001, both clipped
        {1.0, 0.5, 0, 127.5, 127.5, 255, 1.0, 0.5, 1e-12},                        // centre 0: the low end clipped
        {0.0, 0.5, 127.5, 0, 255, 127.5, 0.0, 0.5, 1e-12},                        // the high end from x1 unclipped
        {0.5, 0.75, 63.75, 0, 191.25, 255, 0.5, 0.75, 1e-12},                     // slope 2
        {0.3, 0.25, 0, 38.25, 255, 165.75, 0.3, 0.25, 1e-12},                     // slope 0.5, both clipped
    };
    for (const auto& c : cases) {
        double x1, y1, x2, y2;
        calcCoordinatesByBrightnessContrast(c.brightness, c.contrast, &x1, &y1, &x2, &y2);
        EXPECT_NEAR(x1, c.x1, 1e-9) << c.brightness << "/" << c.contrast;
        EXPECT_NEAR(y1, c.y1, 1e-6) << c.brightness << "/" << c.contrast;
        EXPECT_NEAR(x2, c.x2, 1e-9) << c.brightness << "/" << c.contrast;
        EXPECT_NEAR(y2, c.y2, 1e-6) << c.brightness << "/" << c.contrast;
        double brightness, contrast;
        calcBrightnessContrastByCoordinates(x1, y1, x2, y2, &brightness, &contrast);
        EXPECT_NEAR(brightness, c.backBrightness, 1e-8) << c.brightness << "/" << c.contrast;
        EXPECT_NEAR(contrast, c.backContrast, c.tolerance) << c.brightness << "/" << c.contrast;
    }
    // A negative contrast leaves both points at the centre; points given high end first, when they already
    // span 0..255, are taken as they come and read as a negative contrast.
    double x1, y1, x2, y2, brightness, contrast;
    calcCoordinatesByBrightnessContrast(0.5, -0.2, &x1, &y1, &x2, &y2);
    EXPECT_EQ(x1, 127.5);
    EXPECT_EQ(x2, 127.5);
    calcBrightnessContrastByCoordinates(255, 255, 0, 0, &brightness, &contrast);
    EXPECT_DOUBLE_EQ(brightness, 0.5);
    EXPECT_DOUBLE_EQ(contrast, -0.5);
    calcCoordinatesByBrightnessContrast(0.5, 0.5, nullptr, nullptr, nullptr, nullptr);
}

TEST(Normalization, MatchesOpenCvOnGrayRoisAndRefusesTheRest)
{
    const VImage src = withRoi(makeImage(23, 17, GrayScale, Channel8u, 1), QRect(2, 1, 19, 14));
    const struct {
        std::function<VStatus(VImage*)> mine;
        double a, b;
        int norm;
    } cases[] = {
        {[&](VImage* d) { return normalizeImage(src, d, 250, 10); }, 250, 10, cv::NORM_MINMAX},
        {[&](VImage* d) { return normalizeCImage(src, d, 100); }, 100, 0, cv::NORM_INF},
        {[&](VImage* d) { return normalizeL1Image(src, d, 30000); }, 30000, 0, cv::NORM_L1},
        {[&](VImage* d) { return normalizeL2Image(src, d, 2000); }, 2000, 0, cv::NORM_L2},
    };
    for (const auto& c : cases) {
        VImage mine = withRoi(makeImage(20, 16, GrayScale, Channel8u, 2), QRect(1, 2, 19, 14));
        VImage theirs = mine.copy();
        theirs.setRoi(mine.roi());
        ASSERT_TRUE(c.mine(&mine)) << c.norm;
        cv::Mat out = roiMat(theirs);
        cv::normalize(roiMat(src), out, c.a, c.b, c.norm, CV_8U);
        EXPECT_EQ(std::memcmp(mine.rawData(), theirs.rawData(), size_t(mine.dataSize())), 0) << c.norm;
    }
    VImage gray = makeImage(19, 14, GrayScale, Channel8u, 3), empty, wide = makeImage(19, 14, GrayScale, Channel16u, 4),
           small = makeImage(5, 5, GrayScale, Channel8u, 5);
    const struct {
        VStatus status;
        const char* text;
    } refusals[] = {
        {normalizeImage(makeImage(19, 14, BGR, Channel8u, 6), &gray, 0, 255), "Can not find template"},
        {normalizeCImage(src, &wide, 1), "Can not find template"},
        {normalizeL1Image(src, &empty, 1), "Empty source image!"},
        {normalizeL2Image(src, &small, 1), "Function: cvNormalize"},
        {normalizeImage(failedImage(src), &gray, 0, 255), "Bad status of image!"},
    };
    for (const auto& r : refusals)
        EXPECT_TRUE(r.status.message().contains(QLatin1String(r.text))) << r.status.message().toStdString();
}

// The chains, run by hand with the same operations.
TEST(Composites, AreTheirChainsAndNeverFail)
{
    const VImage src = makeImage(160, 120, GrayScale, Channel8u, 7);

    VImage noise, blurred = src.createCompatible(), difference;
    ASSERT_TRUE(findNoise(src, &noise));
    ASSERT_TRUE(smoothGaussian(src, &blurred, (120 / 5 + 10) | 1));
    ASSERT_TRUE(subtractImages(src, blurred, &difference));
    EXPECT_TRUE(noise.isEqual(difference));

    VImage background, gray = src.createCompatible(), scaled;
    ASSERT_TRUE(createBackgroundBrightness(src, &background));
    ASSERT_TRUE(smoothGaussian(src, &gray, 5));
    double max = 0;
    ASSERT_TRUE(getMax(gray, &max));
    ASSERT_TRUE(mulImageDouble(gray, &scaled, 1.0 / max));
    EXPECT_EQ(background.channelType(), Channel32f);
    EXPECT_TRUE(background.isEqual(scaled));

    VImage aligned, small = src.createCompatible(133, 100), smoothedSmall, back = src.createCompatible(), backF, divided;
    ASSERT_TRUE(brightnessAlignment(src, &aligned, 9));
    ASSERT_TRUE(resizeImage(src, &small, InterpolationNearest));
    ASSERT_TRUE(smoothGaussian(small, &smoothedSmall, int(9 * 100.0 / 120)));
    ASSERT_TRUE(resizeImage(smoothedSmall, &back, InterpolationNearest));
    ASSERT_TRUE(getMax(back, &max));
    ASSERT_TRUE(mulImageDouble(back, &backF, 1.0 / max));
    ASSERT_TRUE(divImages(src, backF, &divided));
    EXPECT_TRUE(aligned.isEqual(divided));

    // Failures inside stay inside: Ok, and the destination as the failing step left it.
    VImage untouched = makeImage(10, 10, GrayScale, Channel8u, 8);
    const QByteArray before = untouched.hash();
    EXPECT_TRUE(findNoise(failedImage(src), &untouched));
    EXPECT_TRUE(brightnessAlignment(VImage(), &untouched, 5));
    EXPECT_TRUE(createBackgroundBrightness(src, nullptr));
    EXPECT_TRUE(correctNoise(src, makeImage(3, 3, BGR, Channel8u, 9), &untouched));
    EXPECT_TRUE(brightnessAlignment(src, VImage(), &untouched));
    untouched.resetHash();
    EXPECT_EQ(untouched.hash(), before);
}

TEST(Contrast, EnhancesOrMeasuresByTheDestination)
{
    for (Format f : {XRGB, ARGB, GrayScale, BGR}) {
        // Wide enough that the blur goes in several bands of rows: seams must not show.
        const VImage src = withRoi(makeImage(4100, 40, f, Channel8u, 10), QRect(2, 3, 4090, 35));
        VImage blurred = src.createCompatible();
        blurred.setRoi(src.roi());
        ASSERT_TRUE(smoothGaussian(src, &blurred, 5));
        VImage enhanced = src.createCompatible(), sharpness;
        enhanced.setRoi(src.roi());
        sharpness.create(src.width(), src.height(), GrayScale, Channel32f, OriginTopLeft, RowsAlignNone);
        sharpness.setRoi(src.roi());
        ASSERT_TRUE(contrastImage(src, &enhanced, 150, 4)); // an even kernel grows by one
        ASSERT_TRUE(contrastImage(src, &sharpness, 3, 5));
        // In place, the bands must not read what earlier ones wrote: as into a copy of the source.
        VImage inPlace = withRoi(src.copy(), src.roi()), apart = withRoi(src.copy(), src.roi());
        ASSERT_TRUE(contrastImage(inPlace, &inPlace, 150, 4));
        ASSERT_TRUE(contrastImage(src, &apart, 150, 4));
        EXPECT_TRUE(sameRoiBytes(inPlace, apart)) << f;
        const cv::Mat s = roiMat(src), b = roiMat(blurred), e = roiMat(enhanced), m = roiMat(sharpness);
        const int cn = s.channels();
        for (int y = 0; y < s.rows; ++y)
            for (int x = 0; x < s.cols; ++x) {
                const uchar* sp = s.ptr<uchar>(y) + x * cn;
                const uchar* bp = b.ptr<uchar>(y) + x * cn;
                const uchar* ep = e.ptr<uchar>(y) + x * cn;
                for (int i = 0; i < std::min(cn, 3); ++i)
                    ASSERT_EQ(ep[i], MathUtils::bound8u(sp[i] + (sp[i] - bp[i]) * 1.5)) << f << " " << x << "," << y;
                if (cn == 4) {
                    ASSERT_EQ(ep[3], sp[3]);
                }
                const auto lum = [cn](const uchar* p) { return cn == 1 ? p[0] : 0.114 * p[0] + 0.587 * p[1] + 0.299 * p[2]; };
                ASSERT_NEAR(m.at<float>(y, x), std::abs(lum(sp) - lum(bp)) * 3, 1e-4) << f << " " << x << "," << y;
            }
    }
    const VImage xrgb = makeImage(8, 8, XRGB, Channel8u, 11);
    VImage bgr = makeImage(8, 8, BGR, Channel8u, 12), gray16 = makeImage(8, 8, GrayScale, Channel16u, 13),
           smaller = makeImage(7, 8, GrayScale, Channel32f, 14), none;
    EXPECT_TRUE(contrastImage(xrgb, &bgr, 1, 3).message().contains("Can not find template"));
    EXPECT_TRUE(contrastImage(xrgb, &gray16, 1, 3).message().contains("Can not find template"));
    EXPECT_TRUE(contrastImage(xrgb, &smaller, 1, 3).message().contains("Image sizes differ"));
    EXPECT_TRUE(contrastImage(xrgb, &none, 1, 3).message().contains("Empty source image!"));
    VImage wide = makeImage(8, 8, XRGB, Channel16u, 15), wideOut = wide.copy();
    EXPECT_TRUE(contrastImage(wide, &wideOut, 1, 3).message().contains("Can not find template"));
}

TEST(Noise, IsReproducibleAndPicksItsShareOfPixels)
{
    VImage src;
    src.create(60, 40, ARGB, Channel8u, OriginTopLeft, RowsAlignNone);
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 60; ++x)
            src.setPixel(x, y, {10, 20, 30, 77});
    // The alpha of a picked pixel comes from the source: 77 marks it.
    const auto picked = [](const VImage& image) {
        int n = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                n += pixelAt(image, x, y)[3] == 77;
        return n;
    };
    for (double percent : {0.0, 30.0, 100.0, 250.0}) {
        VImage first = src.createCompatible(), second = src.createCompatible();
        std::memset(first.rawData(), 0, size_t(first.dataSize()));
        std::memset(second.rawData(), 0, size_t(second.dataSize()));
        ASSERT_TRUE(createGaussianNoise(src, &first, percent));
        ASSERT_TRUE(createGaussianNoise(src, &second, percent));
        EXPECT_EQ(std::memcmp(first.rawData(), second.rawData(), size_t(first.dataSize())), 0) << percent;
        const double share = picked(first) / 2400.0;
        EXPECT_NEAR(share, std::min(percent, 100.0) / 100.0, 0.05) << percent;
        if (percent >= 100.0) {
            EXPECT_EQ(picked(first), 2400);
        }
    }
    VImage gray = makeImage(60, 40, GrayScale, Channel8u, 16), other = makeImage(59, 40, GrayScale, Channel8u, 17);
    EXPECT_TRUE(createGaussianNoise(gray, &gray, 50));
    EXPECT_TRUE(createGaussianNoise(gray, &other, 50).message().contains("Image sizes differ"));
}

} // namespace
