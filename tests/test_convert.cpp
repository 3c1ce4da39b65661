// Conversion between pairs and single-pixel access.
#include "support/LogCapture.h"
#include "support/images.h"

#include <gtest/gtest.h>

using namespace VEXA;

namespace {

// The supported pairs, written from the conversion table rather than from the code.
bool convertible(Format sf, Channel sc, Format df, Channel dc)
{
    const bool bothByte = sc == Channel8u && dc == Channel8u;
    switch (sf) {
    case GrayScale: return df == GrayScale || df == XRGB || df == ARGB_Premultiplied;
    case BGR:
    case XRGB: return df != YUV422 || bothByte;
    case ARGB: return df == GrayScale || df == ARGB_Premultiplied || (df == ARGB && dc == sc) || (df == YUV422 && bothByte);
    case ARGB_Premultiplied: return df != YUV422;
    case YUV422: return sc == Channel8u ? dc == Channel8u && df != GrayScale : df == YUV422 && dc == sc;
    case Invalid: return false;
    }
    return false;
}

VImage single(Format f, Channel c, std::initializer_list<double> rgba, int width = 1)
{
    VImage image;
    image.create(width, 1, f, c, OriginBottomLeft, RowsAlignNone);
    QList<double> values(rgba);
    fillImage(&image, values.data(), int(values.size()));
    return image;
}

QList<double> components(const VImage& image, int x = 0, int y = 0)
{
    double values[4];
    int count = 4;
    EXPECT_TRUE(getPixel(image, x, y, values, &count));
    return QList<double>(values, values + count);
}

QList<double> converted(const VImage& source, Format f, Channel c)
{
    VImage dst;
    dst.create(source.width(), source.height(), f, c, OriginBottomLeft, RowsAlignNone);
    const VStatus status = convertImage(source, &dst);
    EXPECT_TRUE(status) << status.message().toStdString();
    return components(dst);
}

TEST(Convert, EveryPairOfTheTableConvertsAndEveryGapFails)
{
    int supported = 0;
    for (Format sf : allFormats())
        for (Channel sc : allChannels()) {
            const VImage src = makeImage(5, 3, sf, sc);
            for (Format df : allFormats())
                for (Channel dc : allChannels()) {
                    VImage dst = makeImage(5, 3, df, dc, 2);
                    const VStatus status = convertImage(src, &dst);
                    const bool expected = convertible(sf, sc, df, dc);
                    EXPECT_EQ(status.isOk(), expected) << sf << "/" << sc << " -> " << df << "/" << dc;
                    if (!expected) {
                        EXPECT_EQ(status.message(), "Reason: Can not find template with actual parameters!");
                        // The reason names the pair: the source's type, then the destination's.
                        EXPECT_TRUE(status.reason().startsWith(QStringLiteral("the operation does not take %1 %2 images")
                                                                   .arg(QString::fromStdString(formatInfo(sf).name),
                                                                        QString::fromStdString(channelInfo(sc).name))))
                            << status.reason().toStdString();
                    }
                    supported += expected;
                }
        }
    EXPECT_EQ(supported, 6 * 18 + 2 * (6 * 30 + 1) + 6 * 13 + 1 + 6 * 30 + 5 + 5);
}

TEST(Convert, ComponentsConvertAsPlainNumbers)
{
    EXPECT_EQ(converted(single(GrayScale, Channel8u, {200}), GrayScale, Channel32f), QList<double>{200.0});
    EXPECT_EQ(converted(single(GrayScale, Channel32f, {300.7}), GrayScale, Channel8u), QList<double>{44});
    EXPECT_EQ(converted(single(GrayScale, Channel32f, {-1.5}), GrayScale, Channel8u), QList<double>{255});
    EXPECT_EQ(converted(single(GrayScale, Channel8u, {200}), GrayScale, Channel8s), QList<double>{-56});
    EXPECT_EQ(converted(single(GrayScale, Channel32f, {1.0}), GrayScale, Channel8u), QList<double>{1});
    EXPECT_EQ(converted(single(GrayScale, Channel32s, {70000}), GrayScale, Channel16u), QList<double>{70000 - 65536});
    EXPECT_EQ(converted(single(GrayScale, Channel32f, {-3e9}), GrayScale, Channel32s), QList<double>{1294967296});
    EXPECT_EQ(converted(single(BGR, Channel32f, {1.9, -0.9, 255.99}), BGR, Channel8u), QList<double>({1, 0, 255}));
}

TEST(Convert, ColourToGrayUsesTheDoubleWeightsAndTruncates)
{
    // BGR 8u to gray 8u is checked for every colour by the row-kernel tests.
    EXPECT_EQ(converted(single(XRGB, Channel16u, {1000, 2000, 3000}), GrayScale, Channel16u),
              QList<double>{int(0.587 * 2000 + 0.114 * 3000 + 0.299 * 1000)});
    EXPECT_DOUBLE_EQ(converted(single(ARGB, Channel8u, {30, 20, 10, 0}), GrayScale, Channel32f)[0],
                     float(0.587 * 20 + 0.114 * 10 + 0.299 * 30)) << "alpha plays no part";
    for (int g = 0; g < 256; ++g) // gray to gray never goes through the weights
        ASSERT_EQ(converted(single(GrayScale, Channel8u, {double(g)}), GrayScale, Channel16s)[0], g);
}

TEST(Convert, AlphaIs255WhereTheSourceHasNone)
{
    EXPECT_EQ(converted(single(BGR, Channel8u, {1, 2, 3}), ARGB, Channel16u), QList<double>({1, 2, 3, 255}));
    EXPECT_EQ(converted(single(GrayScale, Channel32f, {7}), ARGB_Premultiplied, Channel32f), QList<double>({7, 7, 7, 255}));
    EXPECT_EQ(converted(single(XRGB, Channel8u, {9, 8, 7}), ARGB_Premultiplied, Channel8u), QList<double>({9, 8, 7, 255}));
    EXPECT_EQ(converted(single(GrayScale, Channel8u, {42}), XRGB, Channel8u), QList<double>({42, 42, 42}));
}

TEST(Convert, PremultipliesAndBack)
{
    const VImage argb = single(ARGB, Channel8u, {200, 100, 50, 128});
    EXPECT_EQ(converted(argb, ARGB_Premultiplied, Channel8u), QList<double>({100, 50, 25, 128}));
    EXPECT_EQ(converted(single(ARGB_Premultiplied, Channel8u, {100, 50, 25, 128}), ARGB, Channel8u),
              QList<double>({199, 100, 50, 128}));
    EXPECT_EQ(converted(single(ARGB_Premultiplied, Channel8u, {100, 50, 25, 0}), BGR, Channel8u), QList<double>({0, 0, 0}));
    EXPECT_EQ(converted(single(ARGB_Premultiplied, Channel8u, {100, 50, 25, 128}), ARGB_Premultiplied, Channel16u),
              QList<double>({100, 50, 25, 128})) << "premultiplied to premultiplied is a plain conversion";
    EXPECT_EQ(converted(single(ARGB_Premultiplied, Channel8u, {100, 50, 25, 128}), GrayScale, Channel8u),
              QList<double>{int(0.587 * 50 + 0.114 * 25 + 0.299 * 100)}) << "gray from the stored values";
}

TEST(Convert, Yuv422BothWaysWithTheIntegerFormulas)
{
    const VImage white = single(BGR, Channel8u, {255, 255, 255}, 2);
    VImage yuv;
    yuv.create(2, 1, YUV422, Channel8u, OriginBottomLeft, RowsAlignNone);
    ASSERT_TRUE(convertImage(white, &yuv));
    const unsigned char* p = yuv.rawData();
    EXPECT_EQ(p[0], 207);
    EXPECT_EQ(p[1], quint8(((-173 * 255 - 338 * 255 + 511 * 255) >> 10) + 128));
    EXPECT_EQ(p[2], 207);
    EXPECT_EQ(p[3], quint8(((511 * 255 - 428 * 255 - 83 * 255) >> 10) + 128));

    std::memset(yuv.rawData(), 128, 4);
    yuv.resetHash();
    VImage back;
    back.create(2, 1, XRGB, Channel8u, OriginBottomLeft, RowsAlignNone);
    ASSERT_TRUE(convertImage(yuv, &back));
    EXPECT_EQ(components(back, 0), QList<double>({128, 128, 128}));
    EXPECT_EQ(components(back, 1), QList<double>({128, 128, 128}));

    const unsigned char saturated[4] = {250, 255, 10, 0}; // Y0 U Y1 V: clamped, not wrapped
    yuv.set(saturated, yuv.header());
    back.create(2, 1, ARGB, Channel8u, OriginBottomLeft, RowsAlignNone);
    ASSERT_TRUE(convertImage(yuv, &back));
    for (double v : components(back, 0) + components(back, 1))
        EXPECT_TRUE(v >= 0 && v <= 255);
    EXPECT_EQ(components(back, 0)[3], 255);
}

TEST(Convert, TheSourceGoesIntoTheDestinationRoi)
{
    const VImage src = makeImage(3, 2, GrayScale, Channel8u);
    VImage dst = makeImage(6, 5, GrayScale, Channel16u, 4);
    dst.setRoi(QRect(2, 1, 4, 4));
    const VImage before = dst.copy();
    ASSERT_TRUE(convertImage(src, &dst));
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 6; ++x) {
            const bool written = x >= 2 && x < 5 && y >= 1 && y < 3;
            EXPECT_EQ(components(dst, x, y), written ? components(src, x - 2, y - 1) : components(before, x, y));
        }
}

TEST(Convert, FastPathsNeedImagesOfOneSize)
{
    const VImage xrgb = makeImage(4, 4, XRGB, Channel8u);
    VImage smaller = makeImage(3, 4, BGR, Channel8u);
    LogCapture log;
    const VStatus status = convertImage(xrgb, &smaller);
    EXPECT_EQ(status.message(), "Source and destination differ in size: the destination's region is 3x4, the source's 4x4");
    ASSERT_EQ(log.count(), 1u);
    EXPECT_EQ(log.records()[0].file, "imp/image_converters");

    VImage same = makeImage(4, 4, BGR, Channel8u);
    ASSERT_TRUE(convertImage(xrgb, &same));
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(std::memcmp(pixelAt(same, x, y), pixelAt(xrgb, x, y), 3), 0);
}

TEST(Convert, ChecksComeInOrder)
{
    const VImage good = makeImage(2, 2, BGR, Channel8u);
    VImage dst = makeImage(2, 2, GrayScale, Channel8u);
    VImage badDst = failedImage(dst);
    VImage emptyDst;
    EXPECT_EQ(convertImage(VImage(), &badDst).message(), "Reason: Bad status of image!") << "statuses before emptiness";
    EXPECT_EQ(convertImage(failedImage(good), &emptyDst).message(), "Reason: Bad status of image!");
    EXPECT_EQ(convertImage(VImage(), &dst).message(), "Reason: Empty source image!");
    EXPECT_EQ(convertImage(good, &emptyDst).message(), "Reason: Empty source image!");
    EXPECT_EQ(convertImage(good, nullptr).message(), "Reason: Null pointer argument!");
}

QList<double> scaled(const VImage& source, Format f, Channel c)
{
    const VImage dst = source.convertScaled(f, c);
    EXPECT_FALSE(dst.isEmpty());
    return dst.isEmpty() ? QList<double>() : components(dst);
}

TEST(ConvertScaled, RangesMapOntoEachOtherRoundedAndSaturated)
{
    const struct {
        Channel from, to;
        double in, out;
    } cases[] = {
        {Channel8u, Channel16u, 0, 0},          {Channel8u, Channel16u, 1, 257},
        {Channel8u, Channel16u, 254, 65278},    {Channel8u, Channel16u, 255, 65535},
        {Channel16u, Channel8u, 0, 0},          {Channel16u, Channel8u, 128, 0},
        {Channel16u, Channel8u, 129, 1},        {Channel16u, Channel8u, 38187, 149},
        {Channel16u, Channel8u, 65534, 255},    {Channel16u, Channel8u, 65535, 255},
        {Channel32f, Channel8u, -0.5, 0},       {Channel32f, Channel8u, 0.5, 128},
        {Channel32f, Channel8u, 1.0, 255},      {Channel32f, Channel8u, 1.7, 255},
        {Channel32f, Channel16u, 1.0, 65535},   {Channel32f, Channel16s, -2.0, -32768},
        {Channel8u, Channel32f, 255, 1.0},      {Channel16u, Channel32f, 0, 0},
        {Channel8s, Channel8u, -128, 0},        {Channel8s, Channel8u, 127, 255},
        {Channel16s, Channel16u, 32767, 65535}, {Channel32s, Channel8u, 2147483647, 255},
        {Channel8u, Channel8u, 77, 77},
    };
    for (const auto& c : cases)
        EXPECT_EQ(scaled(single(GrayScale, c.from, {c.in}), GrayScale, c.to), QList<double>{c.out})
            << c.from << " " << c.in << " -> " << c.to;
}

TEST(ConvertScaled, ColourGrayAndAlphaAtTheDestinationsScale)
{
    // Gray to colour replicates, into BGR and ARGB as well; a missing alpha is the full scale (opaque).
    EXPECT_EQ(scaled(single(GrayScale, Channel16u, {65535}), BGR, Channel8u), QList<double>({255, 255, 255}));
    EXPECT_EQ(scaled(single(GrayScale, Channel8u, {255}), ARGB, Channel16u), QList<double>({65535, 65535, 65535, 65535}));
    EXPECT_EQ(scaled(single(BGR, Channel8u, {0, 0, 0}), ARGB, Channel32f), QList<double>({0, 0, 0, 1}));
    // Colour to gray weighs the stored values, then rounds once.
    EXPECT_EQ(scaled(single(XRGB, Channel16u, {65535, 0, 0}), GrayScale, Channel8u), QList<double>{76}); // 0.299 * 255
    // ARGB keeps its alpha across types; premultiplying reads alpha against its own scale.
    EXPECT_EQ(scaled(single(ARGB, Channel16u, {65535, 0, 257, 32896}), ARGB, Channel8u), QList<double>({255, 0, 1, 128}));
    EXPECT_EQ(scaled(single(ARGB, Channel16u, {65535, 0, 0, 32768}), ARGB_Premultiplied, Channel8u),
              QList<double>({128, 0, 0, 128}));
    // What plain conversion cannot do, scaled conversion cannot either, except the two additions.
    EXPECT_TRUE(makeImage(3, 2, ARGB, Channel8u).convertScaled(BGR, Channel8u).isEmpty());
    EXPECT_TRUE(makeImage(4, 2, BGR, Channel16u).convertScaled(YUV422, Channel8u).isEmpty());
    EXPECT_EQ(scaled(single(YUV422, Channel8u, {128, 128, 128, 128}, 2), XRGB, Channel8u), QList<double>({128, 128, 128}));
}

TEST(PixelAccess, ComponentsComeInRgbaOrder)
{
    VImage argb = makeImage(3, 3, ARGB, Channel16s);
    double rgba[4] = {1, 2, 3, 4};
    ASSERT_TRUE(setPixel(&argb, 2, 1, rgba, 4));
    const PixelARGB<qint16>& p = RasterT<PixelARGB<qint16>>(argb).at(2, 1);
    EXPECT_EQ(p.r, 1);
    EXPECT_EQ(p.g, 2);
    EXPECT_EQ(p.b, 3);
    EXPECT_EQ(p.a, 4);
    EXPECT_EQ(components(argb, 2, 1), QList<double>({1, 2, 3, 4}));

    VImage xrgb = makeImage(2, 2, XRGB, Channel8u);
    const quint8 x = RasterT<PixelXRGB<quint8>>(xrgb).at(1, 1).x;
    double rgb[3] = {300.7, -1.5, 7};
    ASSERT_TRUE(setPixel(&xrgb, 1, 1, rgb, 3));
    EXPECT_EQ(components(xrgb, 1, 1), QList<double>({44, 255, 7}));
    EXPECT_EQ(RasterT<PixelXRGB<quint8>>(xrgb).at(1, 1).x, x) << "X is never written";
}

TEST(PixelAccess, FailuresKeepTheirTexts)
{
    VImage xrgb = makeImage(2, 2, XRGB, Channel8u);
    double values[4] = {1, 2, 3, 4};
    int capacity = 2;
    EXPECT_EQ(setPixel(&xrgb, 0, 0, values, 2).message(), "Reason: Not enouth data for setting pixel value");
    EXPECT_EQ(fillImage(&xrgb, values, 1).message(), "Reason: Not enouth data for setting pixel value");
    EXPECT_EQ(getPixel(xrgb, 0, 0, values, &capacity).message(), "Reason: Not enougth space in array");
    capacity = 4;
    for (const auto& [x, y] : {std::pair{-1L, 0L}, {2L, 0L}, {0L, 2L}, {0L, -7L}, {1L << 40, 0L}}) {
        EXPECT_EQ(getPixel(xrgb, x, y, values, &capacity).message(), "Reason: Pixel position is outside the image");
        EXPECT_EQ(setPixel(&xrgb, x, y, values, 4).message(), "Reason: Pixel position is outside the image");
    }
    EXPECT_EQ(getPixel(xrgb, 0, 0, nullptr, &capacity).message(), "Reason: Null pointer argument!");
}

TEST(PixelAccess, FillSetsTheRoiOnly)
{
    VImage image = makeImage(4, 3, BGR, Channel32f);
    image.setRoi(QRect(1, 1, 2, 5));
    const VImage before = image.copy();
    double rgb[3] = {0.5, -2, 1e39};
    ASSERT_TRUE(fillImage(&image, rgb, 3));
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x) {
            const bool inside = x >= 1 && x < 3 && y >= 1;
            const QList<double> expected = inside ? QList<double>({0.5, -2, std::numeric_limits<float>::infinity()})
                                                  : components(before, x, y);
            EXPECT_EQ(components(image, x, y), expected) << x << "," << y;
        }
}

TEST(VImageConversion, ConvertFastSharesWhenNothingChanges)
{
    VImage image = makeImage(4, 4, BGR, Channel8u);
    image.setRoi(QRect(1, 1, 2, 2));
    const VImage same = image.convertFast(BGR);
    EXPECT_EQ(same.rawData(), image.rawData());
    const VImage gray = image.convertFast(GrayScale, Channel32f);
    EXPECT_EQ(gray.format(), GrayScale);
    EXPECT_EQ(gray.roi(), image.roi());
    LogCapture log;
    EXPECT_TRUE(image.convert(YUV422, Channel16u).isEmpty()) << "an unsupported pair gives an empty image";
    EXPECT_TRUE(failedImage(image).convert(GrayScale, Channel8u).isEmpty());
    EXPECT_EQ(log.records().back().text, "Can't convert invalid image.");
}

TEST(VImageConversion, NewXrgbImagesTakeTheXAMissingAlphaWouldGet)
{
    // The kernels never write X: a new image must not leave it to whatever buffer the pool hands out.
    const VImage bgr = makeImage(3, 2, BGR, Channel8u);
    const struct {
        VImage image;
        double x;
    } cases[] = {
        {bgr.convert(XRGB, Channel8u), 255},       {bgr.convert(XRGB, Channel16u), 255},
        {bgr.convert(XRGB, Channel8s), -1},        {bgr.convertScaled(XRGB, Channel16u), 65535},
        {bgr.convertScaled(XRGB, Channel8s), 127}, {bgr.convertScaled(XRGB, Channel32f), 1},
    };
    for (const auto& c : cases) {
        cv::Mat x;
        cv::extractChannel(roiMat(c.image), x, 3);
        double low = 0, high = 0;
        cv::minMaxLoc(x, &low, &high);
        EXPECT_EQ(low, c.x) << c.image.channelType();
        EXPECT_EQ(high, c.x) << c.image.channelType();
    }
}

TEST(VImagePixels, ColoursAndVariants)
{
    VImage image = makeImage(3, 3, ARGB, Channel8u);
    image.setPixelColor(1, 2, QColor(10, 20, 30, 40));
    EXPECT_EQ(image.pixel(1, 2), QList<QVariant>({10.0, 20.0, 30.0, 40.0}));
    EXPECT_EQ(image.pixelColor(1, 2), QColor(10, 20, 30, 255));
    image.setPixel(0, 0, {QVariant(5), QVariant("6"), QVariant(7.9), QVariant(8)});
    EXPECT_EQ(image.pixel(0, 0), QList<QVariant>({5.0, 6.0, 7.0, 8.0}));
    EXPECT_TRUE(image.pixel(3, 0).isEmpty());
    EXPECT_FALSE(image.pixelColor(-1, 0).isValid());
    EXPECT_FALSE(makeImage(2, 2, GrayScale, Channel8u).pixelColor(0, 0).isValid()) << "fewer than three components";

    const VImage shared = image;
    image.setPixelColor(0, 0, QColor(1, 1, 1));
    EXPECT_NE(shared.pixel(0, 0), image.pixel(0, 0)) << "a member change detaches first";
}

} // namespace
