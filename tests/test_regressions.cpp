// One case per fault that a sanitizer or the fuzzers found, with the input that showed it.
#include "support/LogCapture.h"
#include "support/images.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <limits>

using namespace VEXA;

namespace {

// UBSan: a header of 2^30 x 2^30 ARGB 32f pixels overflowed the 64-bit size product.
TEST(Regressions, AbsurdHeadersSaturateTheirSize)
{
    EXPECT_EQ(dataSizeFor(1 << 30, 1 << 30, ARGB, Channel32f), std::numeric_limits<qint64>::max());
    EXPECT_EQ(dataSizeFor(INT32_MAX, INT32_MAX, XRGB, Channel32s), std::numeric_limits<qint64>::max());
    VImage image;
    image.create(1L << 30, 1L << 30, ARGB, Channel32f, OriginBottomLeft, RowsAlignNone);
    EXPECT_FALSE(image.status());
}

// UBSan: the hue of float or 32-bit components overflowed 32-bit arithmetic.
TEST(Regressions, HueOfHugeComponentsStaysInRange)
{
    EXPECT_EQ(createHue(804257792, 0, INT32_MIN), 43); // 2^31 * 60 / (804257792 + 2^31), truncated
    for (const auto& c : {std::array<int, 3>{INT32_MAX, INT32_MIN, 0}, {0, INT32_MAX, INT32_MIN}, {INT32_MIN, 0, INT32_MAX}}) {
        const int h = createHue(c[0], c[1], c[2]);
        EXPECT_GE(h, 0);
        EXPECT_LE(h, 360);
    }
    VImage floats = makeImage(2, 2, BGR, Channel32f);
    double huge[3] = {3e9, -3e9, 1e30};
    fillImage(&floats, huge, 3);
    VImage mask;
    EXPECT_TRUE(thresholdImageHue(floats, &mask, ThresholdBinary, 0, 360));
}

// fuzz_byte_array: a byte array whose roi spans almost the whole int range made VImage::roi() overflow
// inside QRect's constructor.
TEST(Regressions, RoisBeyondTheIntRangeAreClamped)
{
    const QByteArray input = QByteArray::fromBase64(
        "AAAAClZFWEFfSU1BR0UAAAACAAAAAAAAAAQAAAACAAAABQAAAAAAAAABAAAAAADpAgABAAAAf////wAAAAEAAAAcAAAAEHjaa4qTXxu5oXxD0MKuI+a808IBP0wHTw==");
    const VImage image = VImage::fromByteArray(input);
    ASSERT_TRUE(image.status()) << image.status().message().toStdString();
    EXPECT_EQ(image.roi().left(), 15270400);
    EXPECT_EQ(image.roi().right(), INT32_MAX);
    const VImage again = VImage::fromByteArray(image.toByteArray());
    EXPECT_EQ(again.roi(), image.roi());
    VImage gray = makeImage(4, 2, GrayScale, Channel8u);
    gray.setRoi(image.roi());
    int count = -1;
    EXPECT_TRUE(countNonZero(gray, &count));
    EXPECT_EQ(count, 0) << "a roi outside the image leaves nothing to count";
}

// fuzz_operations: the difference of two 32-bit signed components overflowed 32-bit arithmetic.
TEST(Regressions, ComparisonOfFarApart32BitValues)
{
    VImage a = makeImage(1, 1, GrayScale, Channel32s), b = a.copy();
    double va[1] = {1077654333}, vb[1] = {-1684251511};
    fillImage(&a, va, 1);
    fillImage(&b, vb, 1);
    double rms = 0;
    ASSERT_TRUE(compareImages(a, b, &rms));
    EXPECT_EQ(rms, 2761905844.0);
}

// fuzz_operations (in CI): pixelColor converted a float component of -2.7e19 to int.
TEST(Regressions, ColoursOfComponentsBeyondEightBitsAreInvalid)
{
    VImage image = makeImage(2, 1, BGR, Channel32f);
    double far[3] = {-2.71757e19, 10, 10}, wide[3] = {300, 20, 10}, fine[3] = {255.9, 0, 1.5};
    setPixel(&image, 0, 0, far, 3);
    EXPECT_FALSE(image.pixelColor(0, 0).isValid());
    setPixel(&image, 0, 0, wide, 3);
    EXPECT_FALSE(image.pixelColor(0, 0).isValid());
    setPixel(&image, 1, 0, fine, 3);
    EXPECT_EQ(image.pixelColor(1, 0), QColor(255, 0, 1));
}

// fuzz_operations: a figure point at 1e300 became an infinite float, and OpenCV's polygon simplification
// then asked for gigabytes; Hough steps of a billionth of a radian did the same with the accumulator.
TEST(Regressions, AnalysisRefusesRunawaySizesBeforeOpenCv)
{
    VPolygon simple;
    EXPECT_FALSE(approximatePolygon(VPolyPoint(QPolygonF({QPointF(0, 0), QPointF(1e300, 3), QPointF(5, 5)})), &simple, 1.0));
    QList<QLineF> lines;
    EXPECT_TRUE(houghLines(makeImage(16, 12, GrayScale, Channel8u), &lines, 1.0, 1e-9, 1).message().contains("too fine"));
}

// fuzz_operations: a first shot with a roi gave the blender's pyramid levels of the roi's size, and the
// next shot's whole-image pyramid was merged into them past their end.
TEST(Regressions, PyramidMergeOfShotsWithDifferentRois)
{
    VImageBlender blender(VImageBlender::MultifocusPyramid, false, false);
    const VImage shot = makeImage(96, 80, XRGB, Channel8u);
    EXPECT_TRUE(blender.addImage(withRoi(shot, QRect(3, 5, 40, 50))));
    EXPECT_TRUE(blender.addImage(shot));
    EXPECT_TRUE(blender.addImage(withRoi(shot, QRect(0, 0, 64, 64))));
    EXPECT_EQ(blender.image().width(), 96);
}

// fuzz_operations: float pixels far enough apart that their differences overflow single precision sent
// OpenCV's bilateral filter to an index far outside its tables (ASan: SEGV).
TEST(Regressions, BilateralFilteringRefusesValuesFarApart)
{
    VImage floats = makeImage(16, 12, BGR, Channel32f);
    cv::Mat m = roiMat(floats);
    m(cv::Rect(0, 0, 8, 12)).setTo(cv::Scalar(3e38, -3e38, 3e38));
    m(cv::Rect(8, 0, 8, 12)).setTo(cv::Scalar(-3e38, 3e38, -3e38));
    VImage out = floats.createCompatible();
    const LogCapture log;
    const VStatus status = smoothBilaterial(floats, &out, 5, 0, 10.0, 10.0);
    EXPECT_FALSE(status);
    EXPECT_TRUE(status.message().contains("closer together")) << status.message().toStdString();
}

// fuzz_load: a JPEG of its start marker alone made the plugin announce an image format from uninitialised
// memory, no value of QImage::Format (UBSan).
TEST(Regressions, AJpegStartMarkerAloneIsRefused)
{
    QTemporaryDir dir;
    QFile file(dir.filePath("start.img"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write("\xFF\xD8", 2) == 2);
    file.close();
    VImage image;
    const LogCapture log;
    EXPECT_FALSE(image.load(file.fileName()));
    EXPECT_TRUE(image.isEmpty());
}

} // namespace
