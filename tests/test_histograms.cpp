// Histograms, level curves, image lists and stacking.
#include "support/LogCapture.h"
#include "support/images.h"

#include <vexa/imp/kernels/histograms.h>

#include <gtest/gtest.h>


using namespace VEXA;

namespace {

VImage uniform(int w, int h, Format f, std::initializer_list<double> rgb)
{
    VImage image;
    image.create(w, h, f, Channel8u, OriginBottomLeft, RowsAlignNone);
    QList<double> v(rgb);
    fillImage(&image, v.data(), int(v.size()));
    return image;
}

qint64 total(const qint64* counts) { return std::accumulate(counts, counts + 256, qint64(0)); }

TEST(Histogram, WalksTheRoiOrTheWholeBufferByFormat)
{
    VImage gray = uniform(4, 4, GrayScale, {10});
    gray.setRoi(QRect(0, 0, 2, 2));
    VHistogram h;
    ASSERT_TRUE(calculateHistogram(gray, &h));
    EXPECT_EQ(h.componentData(ComponentLuminance)[10], 4) << "gray: the roi";
    EXPECT_FALSE(h.isEnabled(ComponentRed));

    for (Format f : {BGR, XRGB, ARGB, ARGB_Premultiplied}) {
        VImage colour = uniform(4, 4, f, {1, 2, 3, 255});
        colour.setRoi(QRect(1, 1, 2, 2));
        ASSERT_TRUE(calculateHistogram(colour, &h));
        const bool buffer = f == BGR || f == XRGB;
        EXPECT_EQ(h.componentData(ComponentRed)[1], buffer ? 16 : 4) << f;
        EXPECT_EQ(h.componentData(ComponentGreen)[2], buffer ? 16 : 4) << f;
        EXPECT_EQ(h.componentData(ComponentBlue)[3], buffer ? 16 : 4) << f;
        EXPECT_EQ(h.componentData(ComponentLuminance)[(1 * 76 + 2 * 150 + 3 * 29) >> 8], buffer ? 16 : 4) << f;
    }
}

TEST(Histogram, RandomRowsCountLikeOneByteAtATime)
{
    // Widths around the eight-pixel groups of the word-wise counting, each byte against a plain count.
    for (Format f : {GrayScale, BGR, XRGB})
        for (int w : {1, 7, 8, 9, 37}) {
            const VImage image = makeImage(w, 3, f, Channel8u, unsigned(w));
            VHistogram h;
            ASSERT_TRUE(calculateHistogram(image, &h));
            qint64 expected[4][256] = {}; // luminance, red, green, blue
            for (int y = 0; y < 3; ++y)
                for (int x = 0; x < w; ++x) {
                    const unsigned char* p = pixelAt(image, x, y);
                    if (f == GrayScale) {
                        ++expected[0][p[0]];
                        continue;
                    }
                    ++expected[0][(p[2] * 76 + p[1] * 150 + p[0] * 29) >> 8];
                    for (int c = 0; c < 3; ++c)
                        ++expected[1 + c][p[2 - c]];
                }
            const Component components[4] = {ComponentLuminance, ComponentRed, ComponentGreen, ComponentBlue};
            for (int c = 0; c < (f == GrayScale ? 1 : 4); ++c)
                EXPECT_TRUE(std::equal(expected[c], expected[c] + 256, h.componentData(components[c])))
                    << f << " width " << w << " component " << c;
        }
}

TEST(Histogram, FastSamplingAndTheReversedPremultipliedKernel)
{
    const VImage image = uniform(5, 4, XRGB, {7, 8, 9});
    VHistogram h;
    for (int skip : {0, -3, 1}) {
        h.setSkipData(skip);
        ASSERT_TRUE(calculateHistogramFast(image, &h));
        EXPECT_EQ(total(h.componentData(ComponentRed)), 20) << "skip " << skip << " samples every pixel";
    }
    h.setSkipData(2);
    ASSERT_TRUE(calculateHistogramFast(image, &h));
    EXPECT_EQ(h.componentData(ComponentRed)[7], 6) << "rows 0, 2 and columns 0, 2, 4";

    h.setSkipData(1);
    ASSERT_TRUE(calculateHistogramFast(uniform(2, 2, ARGB_Premultiplied, {7, 8, 9, 255}), &h));
    EXPECT_EQ(h.componentData(ComponentRed)[9], 4) << "byte 0 (blue) counts as red";
    EXPECT_EQ(h.componentData(ComponentBlue)[7], 4);
    EXPECT_EQ(h.componentData(ComponentLuminance), nullptr);

    ASSERT_TRUE(calculateHistogramBGR(image, &h));
    EXPECT_FALSE(h.isEnabled(ComponentLuminance));
    EXPECT_EQ(h.componentData(ComponentGreen)[8], 20);
    EXPECT_EQ(calculateHistogramFast(uniform(2, 2, ARGB, {1, 1, 1, 1}), &h).message(),
              "Reason: Can not find template with actual parameters!");
    EXPECT_EQ(calculateHistogram(makeImage(2, 2, BGR, Channel16u), &h).message(),
              "Reason: Can not find template with actual parameters!");
    EXPECT_EQ(calculateHistogram(image, nullptr).message(), "Reason: Null pointer argument!");
}

TEST(Histogram, RecordsStayWhenDisabledAndCopiesDetach)
{
    VHistogram h;
    ASSERT_TRUE(calculateHistogram(uniform(2, 2, BGR, {255, 255, 255}), &h));
    ASSERT_TRUE(calculateHistogram(uniform(1, 1, GrayScale, {3}), &h));
    EXPECT_EQ(h.componentData(ComponentRed), nullptr) << "disabled, although its counts are stored";
    EXPECT_FALSE(h.isEnabled(ComponentRed));
    h.update();
    EXPECT_EQ(h.maxValue(), 4) << "update sees the disabled records too";

    VHistogram copy = h;
    EXPECT_TRUE(copy.isEqual(h));
    copy.setEnabled(ComponentRed, true);
    EXPECT_FALSE(h.isEnabled(ComponentRed));
    EXPECT_FALSE(copy.isEqual(h));
    EXPECT_TRUE(uniform(2, 2, BGR, {1, 2, 3}).histogram().isEqual(uniform(2, 2, BGR, {1, 2, 3}).histogram()));
}

TEST(LevelTable, SwapCutAndTruncation)
{
    LevelTable identity = levelTable(0, 0, 255, 255, 0, 255);
    for (int i = 0; i < 256; ++i)
        EXPECT_EQ(identity[i], i == 0 ? 0 : i) << "0 is at or below cutLow 0";
    const LevelTable inverse = levelTable(0, 255, 255, 0, 0, 255);
    EXPECT_EQ(inverse[1], 254);
    EXPECT_EQ(inverse[200], 55);
    const LevelTable swapped = levelTable(100, 0, 50, 255, 0, 255);
    EXPECT_EQ(swapped[50], 255);
    EXPECT_EQ(swapped[10], 255);
    EXPECT_EQ(swapped[100], 0);
    EXPECT_EQ(swapped[200], 0);
    EXPECT_EQ(swapped[75], 127) << "255 - 25 * 5.1 = 127.5, truncated";
    const LevelTable half = levelTable(0, 0, 255, 128, 0, 255);
    EXPECT_EQ(half[1], 0);
    EXPECT_EQ(half[2], 1);
    const LevelTable cut = levelTable(0, 0, 255, 255, 10, 200);
    EXPECT_EQ(cut[10], 0);
    EXPECT_EQ(cut[11], 11);
    EXPECT_EQ(cut[200], 200);
    EXPECT_EQ(cut[201], 0);
}

TEST(AdjustHistogram, IdentityCopiesInversionInverts)
{
    for (Format f : {GrayScale, BGR, ARGB, XRGB}) {
        const VImage src = makeImage(5, 3, f, Channel8u);
        VImage copy, inverted;
        ASSERT_TRUE(adjustHistogram(src, &copy, 0, 0, 255, 255));
        ASSERT_TRUE(adjustHistogram(src, &inverted, 0, 255, 255, 0));
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 5; ++x) {
                EXPECT_EQ(std::memcmp(pixelAt(copy, x, y), pixelAt(src, x, y), pixelBytes(src) / 5), 0) << f;
                const int colourBytes = f == GrayScale ? 1 : 3;
                for (int i = 0; i < colourBytes; ++i)
                    EXPECT_EQ(pixelAt(inverted, x, y)[i], 255 - pixelAt(src, x, y)[i]) << f;
            }
    }
    EXPECT_EQ(adjustHistogram(makeImage(2, 2, YUV422, Channel8u), nullptr, 0, 0, 9, 9).message(), "Reason: Null pointer argument!");
}

TEST(AdjustHistogram, ComponentsAndTheLuminanceThatWritesNothing)
{
    const VImage src = uniform(3, 2, BGR, {100, 150, 200});
    VImage dst = makeImage(3, 2, BGR, Channel8u, 9);
    const VImage before = dst.copy();
    ASSERT_TRUE(adjustHistogramComponent(src, &dst, 0, 255, 255, 0, ComponentLuminance));
    EXPECT_TRUE(dst.isEqual(before)) << "the destination keeps what it held";
    ASSERT_TRUE(adjustHistogramComponent(src, &dst, 0, 255, 255, 0, ComponentRed));
    EXPECT_EQ(dst.pixel(2, 1), QList<QVariant>({155.0, 150.0, 200.0}));
    ASSERT_TRUE(adjustHistogramComponent(src, &dst, 0, 255, 255, 0, ComponentBlue));
    EXPECT_EQ(dst.pixel(0, 0), QList<QVariant>({100.0, 150.0, 55.0}));

    VHistogramAdjustComponent curves[4] = {
        {0, 0, 255, 255, 0, 255},   // master: identity (0 cut to 0)
        {0, 255, 255, 0, 0, 255},   // red inverted
        {0, 0, 255, 255, 0, 120},   // green: above 120 cut to 0
        {0, 0, 255, 128, 0, 255},   // blue halved
    };
    ASSERT_TRUE(adjustHistogramByComponents(src, &dst, curves));
    EXPECT_EQ(dst.pixel(1, 1), QList<QVariant>({155.0, 0.0, 100.0}));
}

TEST(AdjustHistogram, NewDestinationsTakeTheBytesNoCurveMapsFromTheSource)
{
    // The fourth byte of 32-bit pixels (and every byte, for a component that maps nothing) comes from the
    // source in a new destination; an existing one keeps its own.
    using Adjust = VStatus (*)(const VImage&, VImage*);
    const struct {
        const char* name;
        Adjust adjust;
        bool mapsNothing;
    } cases[] = {
        {"levels", [](const VImage& s, VImage* d) { return adjustHistogram(s, d, 10, 0, 200, 255); }, false},
        {"red",
         [](const VImage& s, VImage* d) { return adjustHistogramComponent(s, d, 10, 0, 200, 255, ComponentRed); },
         false},
        {"luminance",
         [](const VImage& s, VImage* d) { return adjustHistogramComponent(s, d, 0, 255, 255, 0, ComponentLuminance); },
         true},
        {"curves",
         [](const VImage& s, VImage* d) {
             VHistogramAdjustComponent c[4] = {{0, 0, 255, 255, 0, 255}, {0, 255, 255, 0, 0, 255}, {}, {}};
             return adjustHistogramByComponents(s, d, c);
         },
         false},
    };
    for (const auto& c : cases)
        for (Format f : {XRGB, ARGB, ARGB_Premultiplied}) {
            if (f == ARGB_Premultiplied && c.adjust == cases[0].adjust)
                continue; // adjustHistogram does not take it
            const VImage src = makeImage(5, 3, f, Channel8u, 3);
            VImage made, existing = makeImage(5, 3, f, Channel8u, 4);
            const VImage before = existing.copy();
            ASSERT_TRUE(c.adjust(src, &made)) << c.name << " " << f;
            ASSERT_TRUE(c.adjust(src, &existing)) << c.name << " " << f;
            for (int y = 0; y < 3; ++y)
                for (int x = 0; x < 5; ++x) {
                    EXPECT_EQ(pixelAt(made, x, y)[3], pixelAt(src, x, y)[3]) << c.name << " " << f;
                    EXPECT_EQ(pixelAt(existing, x, y)[3], pixelAt(before, x, y)[3]) << c.name << " " << f;
                    if (c.mapsNothing) {
                        EXPECT_EQ(std::memcmp(pixelAt(made, x, y), pixelAt(src, x, y), 4), 0) << f;
                    }
                }
        }
}

TEST(VHistogramCommon, EvenBordersBinsAndStatistics)
{
    VHistogramCommon h;
    for (double v : {3.0, 4.0, 10.0, 17.0, 20.0})
        h.appendData(v, 0);
    h.appendData(-100, 1);
    h.appendData(5, 1);
    EXPECT_EQ(h.countOfData(0), 5);
    EXPECT_EQ(h.minDataValue(0), 3.0);
    EXPECT_EQ(h.maxDataValue(0), 20.0);
    EXPECT_EQ(h.sumDataValue(0), 54.0);
    EXPECT_DOUBLE_EQ(h.meanDataValue(0), 10.8);
    EXPECT_DOUBLE_EQ(h.devDataValue(0), std::sqrt(230.8 / 5)) << "population deviation";
    EXPECT_EQ(h.meanDataValue(7), 0.0);

    h.setPinsBordersEven(4);
    EXPECT_EQ(h.pinsBorders(), std::vector<double>({0, 5, 10, 15, 20})) << "starts at 0 for data above zero";
    EXPECT_EQ(h.pinsCount(), 4);
    h.update();
    EXPECT_EQ(h.componentValues(0), std::vector<quint32>({2, 0, 1, 2})) << "lower edges inside, the top border too";
    EXPECT_EQ(h.componentValues(1), std::vector<quint32>({0, 1, 0, 0})) << "values outside the borders are dropped";
    EXPECT_EQ(h.maxValue(), 2u);

    h.setPinsBorders({10, 0, 5});
    h.update();
    EXPECT_EQ(h.pinsBorders(), std::vector<double>({0, 5, 10}));
    h.setPinsBordersEven(0);
    EXPECT_TRUE(h.pinsBorders().empty());
    h.update();
    EXPECT_TRUE(h.componentValues(0).empty());
}

TEST(VImageList, ChecksSharingAndBounds)
{
    VImageList checked(true);
    EXPECT_TRUE(checked.add(makeImage(64, 48, GrayScale, Channel8u)));
    EXPECT_FALSE(checked.add(makeImage(64, 48, BGR, Channel8u)));
    EXPECT_FALSE(checked.add(makeImage(64, 47, GrayScale, Channel8u)));
    EXPECT_EQ(checked.count(), 1);
    VImageList loose;
    EXPECT_TRUE(loose.add(makeImage(64, 48, GrayScale, Channel8u)));
    EXPECT_TRUE(loose.add(makeImage(3, 3, BGR, Channel16u)));

    VImageList empty;
    EXPECT_EQ(empty.format(), Invalid);
    EXPECT_EQ(empty.channelType(), ChannelInvalid);
    EXPECT_TRUE(loose.at(loose.count()).isEmpty());
    const VImageList copy = loose;
    loose.add(VImage(2, 2));
    EXPECT_EQ(copy.count(), 2);
    EXPECT_EQ(loose.count(), 3);
    loose.remove(5);
    EXPECT_EQ(loose.count(), 3);
    loose.remove(0);
    EXPECT_EQ(loose.format(), BGR);
    EXPECT_EQ(copy.at(1).rawData(), loose.at(0).rawData()) << "images stay shared handles";
    loose.removeAll();
    EXPECT_TRUE(loose.isEmpty());
}

TEST(StackImages, FailuresAndTheAreaEveryImageCovers)
{
    VImageList deep;
    deep.add(makeImage(3, 2, BGR, Channel16u));
    VImage dst = makeImage(3, 2, BGR, Channel16u), empty;
    EXPECT_EQ(stackImages(deep, &dst).message(), "Reason: Can not find template with actual parameters!");
    VImageList bytes;
    bytes.add(uniform(3, 2, BGR, {1, 1, 1}));
    EXPECT_EQ(stackImages(bytes, &empty).message(), "Reason: Empty source image!");
    EXPECT_EQ(stackImages(VImageList(), &dst).message(), "Reason: Empty source image!");
    bytes.add(uniform(3, 2, GrayScale, {1}));
    VImage bgr = uniform(3, 2, BGR, {0, 0, 0});
    EXPECT_EQ(stackImages(bytes, &bgr).message(), "Reason: Can not find template with actual parameters!")
        << "every image must have the list's pair";

    VImageList sizes;
    sizes.add(uniform(2, 2, GrayScale, {7}));
    sizes.add(uniform(4, 1, GrayScale, {7}));
    VImage big = uniform(4, 4, GrayScale, {1});
    ASSERT_TRUE(stackImages(sizes, &big)) << "only what every image covers is written";
    EXPECT_EQ(big.pixel(1, 0)[0].toInt(), 14);
    EXPECT_EQ(big.pixel(1, 1)[0].toInt(), 1);
    EXPECT_EQ(big.pixel(3, 0)[0].toInt(), 1);
}

TEST(StackImages, SumsModulo256OverAnyNumberOfRowsAndTheDestinationInTheList)
{
    // Short rows and rows longer than the kernel's chunk, image counts around its groups of four; one image
    // is copied, X is never written.
    for (Format f : {GrayScale, BGR, XRGB})
        for (int width : {3, 1500})
            for (int count : {1, 2, 3, 4, 5, 8, 9}) {
                VImageList list;
                for (int i = 0; i < count; ++i)
                    list.add(makeImage(width, 2, f, Channel8u, unsigned(10 * count + i)));
                VImage dst = makeImage(width, 2, f, Channel8u, 99);
                const VImage before = dst.copy();
                if (count == 9)
                    list.add(dst); // sums its own old contents
                ASSERT_TRUE(stackImages(list, &dst));
                const int size = f == GrayScale ? 1 : f == BGR ? 3 : 4;
                for (int y = 0; y < 2; ++y)
                    for (int k = 0; k < width * size; ++k) {
                        unsigned sum = count == 9 ? pixelAt(before, 0, y)[k] : 0;
                        for (int i = 0; i < count; ++i)
                            sum += pixelAt(list.at(i), 0, y)[k];
                        const unsigned expected = size == 4 && k % 4 == 3 ? pixelAt(before, 0, y)[k] : sum % 256;
                        ASSERT_EQ(pixelAt(dst, 0, y)[k], expected) << f << " width " << width << " count " << count << " byte " << k;
                    }
            }
}

} // namespace
