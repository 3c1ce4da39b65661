// Rasters, the bounded reader, the OpenCV bridge, dispatch, and the first operations on them:
// countNonZero and the copies.
#include "support/LogCapture.h"
#include "support/images.h"
#include "support/pixel_lists.h"

#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/opencv_frame.h>
#include <vexa/imp/kernels/copy_image.h>
#include <vexa/imp/kernels/stat_image.h>

#include <gtest/gtest.h>

using namespace VEXA;

namespace {

TEST(RasterT, CopiesTheImageFieldsAndClipsTheRoi)
{
    VImage image = makeImage(10, 4, BGR, Channel16u, 1, OriginTopLeft);
    image.setRoi(QRect(8, 2, 5, 5));
    const RasterT<PixelBGR<quint16>> raster(image);
    EXPECT_EQ(static_cast<void*>(raster.data), image.rawData());
    EXPECT_EQ(raster.width, 10);
    EXPECT_EQ(raster.height, 4);
    EXPECT_EQ(raster.bytesPerLine, 60);
    EXPECT_EQ(raster.origin, OriginTopLeft);
    EXPECT_EQ(raster.roi, (Rect{8, 2, 2, 2}));
    EXPECT_EQ(static_cast<void*>(&raster.at(1, 3)), image.rawData() + 3 * 60 + 6);

    image.setRoi(QRect(20, 20, 3, 3));
    EXPECT_EQ(RasterT<PixelBGR<quint16>>(image).roi, (Rect{0, 0, 0, 0}));
}

TEST(PixelReader, MirrorsOnceIntoTheWindowAndRefusesWhatStaysOutside)
{
    VImage image;
    image.create(4, 3, GrayScale, Channel8u, OriginBottomLeft, RowsAlignNone);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x)
            image.rawData()[y * image.bytesPerLine() + x] = quint8(10 * y + x);
    const RasterT<PixelGray<quint8>> raster(image);
    const PixelReader<PixelGray<quint8>> reader(raster, 0, 0, Rect{0, 0, 4, 3});
    const struct { int dx, dy, value; } reads[] = {
        {2, 1, 12},  {-1, 0, 1},  {-2, 0, 2},  {4, 0, 2},  {5, 0, 1},
        {0, -1, 10}, {0, 3, 10}, {-1, -1, 11}, {4, 3, 12},
    };
    for (const auto& r : reads)
        EXPECT_EQ(reader.pixel(r.dx, r.dy).gray, r.value) << r.dx << "," << r.dy;

    const auto failure = [](const PixelReader<PixelGray<quint8>>& r, int dx, int dy) -> std::string {
        try {
            r.pixel(dx, dy);
        } catch (const dip_exception& e) {
            return e.what();
        }
        return "read";
    };
    const PixelReader<PixelGray<quint8>> inner(raster, 1, 1, Rect{1, 1, 2, 1});
    EXPECT_EQ(inner.pixel(2, 0).gray, 13) << "outside the window but inside the raster: read as it is";
    EXPECT_EQ(failure(inner, -3, 0), "Pixel(). Bad pixel position.") << "too far to mirror";
    EXPECT_EQ(failure(reader, -10, 0), "Pixel(). Bad pixel position.");
    EXPECT_EQ(failure(reader, 0, 7), "Pixel(). Bad pixel position.");
    const PixelReader<PixelGray<quint8>> empty(RasterT<PixelGray<quint8>>(), 0, 0, Rect{0, 0, 4, 3});
    EXPECT_EQ(failure(empty, 0, 0), "Pixel(). Bad RasterT.");
}

TEST(OcvImage, HeaderDescribesTheImageAtItsRoi)
{
    VImage image = makeImage(7, 5, YUV422, Channel16u, 1, OriginBottomLeft);
    image.setRoi(QRect(1, 2, 3, 2));
    const ocvImage header(image);
    const IplImage ipl = header.asIplImage();
    EXPECT_EQ(ipl.nSize, int(sizeof(IplImage)));
    EXPECT_EQ(ipl.nChannels, 2);
    EXPECT_EQ(ipl.depth, int(IPL_DEPTH_16U));
    EXPECT_EQ(ipl.origin, 1);
    EXPECT_EQ(ipl.width, 7);
    EXPECT_EQ(ipl.height, 5);
    EXPECT_EQ(ipl.widthStep, 28);
    EXPECT_EQ(ipl.imageSize, 140);
    EXPECT_EQ(ipl.imageData, reinterpret_cast<char*>(image.rawData()));
    EXPECT_EQ(ipl.dataOrder, 0);
    ASSERT_NE(ipl.roi, nullptr);
    EXPECT_EQ(ipl.roi->coi, 0);
    EXPECT_EQ(ipl.roi->xOffset, 1);
    EXPECT_EQ(ipl.roi->yOffset, 2);
    EXPECT_EQ(ipl.roi->width, 3);
    EXPECT_EQ(ipl.roi->height, 2);

    ocvImage assigned(makeImage(1, 1, GrayScale, Channel8s, 1, OriginTopLeft));
    assigned = header;
    EXPECT_EQ(assigned.asIplImage().roi->xOffset, 1);
    EXPECT_NE(assigned.asIplImage().roi, ipl.roi) << "each copy carries its own roi";
    EXPECT_EQ(ocvImage(makeImage(1, 1, GrayScale, Channel8s, 1, OriginTopLeft)).asIplImage().origin, 0);
    EXPECT_EQ(ocvImage(makeImage(1, 1, GrayScale, Channel8s)).asIplImage().depth, int(IPL_DEPTH_8S));
}

TEST(CvBridge, MatStartsAtTheRoiAndAReallocationIsAnError)
{
    VImage image = makeImage(6, 4, BGR, Channel8u);
    image.setRoi(QRect(2, 1, 3, 2));
    const cv::Mat m = asCvMat(RasterT<PixelBGR<quint8>>(image));
    EXPECT_EQ(m.type(), CV_8UC3);
    EXPECT_EQ(m.size(), cv::Size(3, 2));
    EXPECT_EQ(m.data, pixelAt(image, 2, 1));
    cv::Point offset;
    cv::Size whole;
    m.locateROI(whole, offset);
    EXPECT_EQ(offset, cv::Point(0, 0)) << "not a sub-matrix: filters must not see outside the roi";

    VImage shorts = makeImage(3, 2, BGR, Channel16s);
    cv::Mat dst = asCvMat(RasterT<PixelBGR<qint16>>(shorts));
    const VStatus status = guarded(VEXA_CALL_SITE, [&] {
        writeInto(dst, [&](cv::Mat& d) { m.copyTo(d); }); // 8u into a 16s header: OpenCV would reallocate
        return VStatus::Ok;
    });
    EXPECT_EQ(status.issue(), Issue::OpenCvError);
    EXPECT_TRUE(status.message().contains("The destination image does not have the proper type"));
    EXPECT_TRUE(status.message().contains("Error code: -205"));
}

TEST(Dispatch, ListedPairsReachTheirKernelAndNothingElseDoes)
{
    const auto visited = [](auto list, Format f, Channel c) {
        int calls = 0;
        try {
            visitPixel(list, f, c, [&](auto tag) {
                using P = typename decltype(tag)::type;
                EXPECT_EQ(PixelTraits<P>::format, f);
                EXPECT_EQ(PixelTraits<P>::channel, c);
                ++calls;
                return VStatus::Ok;
            });
        } catch (const dip_exception_unsupported_parameters& e) {
            EXPECT_STREQ(e.what(), "Can not find template with actual parameters!");
            return -calls - 1;
        }
        return calls;
    };
    QList<Format> formats = allFormats();
    formats << Format(-1) << Format(6) << Format(7) << Format(INT32_MIN);
    QList<Channel> channels = allChannels();
    channels << Channel(-1) << Channel(6) << Channel(INT32_MAX);
    for (Format f : formats)
        for (Channel c : channels) {
            EXPECT_EQ(visited(CountNonZeroPixels{}, f, c), f == GrayScale && isValid(c) ? 1 : -1) << f << "/" << c;
            EXPECT_EQ(visited(CopyPixels{}, f, c), isValid(f) && isValid(c) ? 1 : -1) << f << "/" << c;
        }
    static_assert(supports(AllPixels{}, YUV422, Channel32f));
    static_assert(!supports(CountNonZeroPixels{}, BGR, Channel8u));
}

template <class Pixel> class CountNonZeroTyped : public ::testing::Test {};
TYPED_TEST_SUITE(CountNonZeroTyped, PixelCases<CountNonZeroPixels>::Types);

TYPED_TEST(CountNonZeroTyped, CountsOnlyInsideTheRoi)
{
    using T = typename PixelTraits<TypeParam>::Component;
    VImage image;
    image.create(3, 2, GrayScale, PixelTraits<TypeParam>::channel, OriginBottomLeft, RowsAlignNone);
    const RasterT<TypeParam> r(image);
    const T values[2][3] = {{T(1), T(0), T(-1)}, {T(0), T(5), T(2)}};
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            r.at(x, y).gray = values[y][x];
    int count = -1;
    ASSERT_TRUE(countNonZero(image, &count));
    EXPECT_EQ(count, 4);
    image.setRoi(QRect(1, 1, 1, 1));
    ASSERT_TRUE(countNonZero(image, &count));
    EXPECT_EQ(count, 1);
    image.setRoi(QRect(1, 0, 1, 1));
    ASSERT_TRUE(countNonZero(image, &count));
    EXPECT_EQ(count, 0);
}

TEST(CountNonZero, FailuresCarryTheFixedTextsAndOneRecord)
{
    int count = 0;
    const VImage gray = makeImage(3, 3, GrayScale, Channel8u);
    const struct { const char* name; VStatus status; const char* text; } cases[] = {
        {"bad status", countNonZero(failedImage(gray), &count), "Reason: Bad status of image!"},
        {"empty", countNonZero(VImage(), &count), "Reason: Empty source image!"},
        {"colour", countNonZero(makeImage(3, 3, BGR, Channel8u), &count),
         "Reason: Can not find template with actual parameters!"},
        {"null count", countNonZero(gray, nullptr), "Reason: Null pointer argument!"},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(c.status) << c.name;
        EXPECT_EQ(c.status.message(), c.text) << c.name;
        EXPECT_EQ(c.status.issue(), Issue::LibraryError) << c.name;
    }

    LogCapture log;
    countNonZero(VImage(), &count);
    ASSERT_EQ(log.count(), 1u);
    const VLog::Record r = log.records()[0];
    EXPECT_EQ(r.module, "Vexa");
    EXPECT_EQ(r.file, "gen/gen_stat_image");
    EXPECT_TRUE(r.function.contains("VEXA::countNonZero(const VImage&, int*)")) << r.function.toStdString();
    EXPECT_GT(r.line, 0);
    EXPECT_EQ(r.issue, Issue::LibraryError);
}

TEST(CopyImage, EveryPairCopiesRoiToRoi)
{
    for (Format f : allFormats())
        for (Channel c : allChannels()) {
            VImage src = makeImage(9, 7, f, c, 1);
            VImage dst = makeImage(6, 5, f, c, 2);
            src.setRoi(QRect(2, 1, 5, 4));
            dst.setRoi(QRect(3, 2, 10, 10)); // clipped to 3 x 3: the common size is 3 x 3
            const VImage before = dst.copy();
            ASSERT_TRUE(copyImage(src, &dst)) << f << "/" << c;
            const long pixel = pixelBytes(src) / src.width();
            for (int y = 0; y < 5; ++y)
                for (int x = 0; x < 6; ++x) {
                    const bool written = x >= 3 && y >= 2;
                    const unsigned char* expected = written ? pixelAt(src, x - 1, y - 1) : pixelAt(before, x, y);
                    ASSERT_EQ(std::memcmp(pixelAt(dst, x, y), expected, pixel), 0) << f << "/" << c << " " << x << "," << y;
                }
        }
}

TEST(CopyImage, RectanglesAreClippedToTheirImagesAndTheCommonSizeCopied)
{
    const VImage src = makeImage(10, 10, GrayScale, Channel32f, 1);
    VImage dst = makeImage(8, 8, GrayScale, Channel32f, 2);
    const VImage before = dst.copy();
    ASSERT_TRUE(copyImageUsingRois(src, &dst, Rect{-3, 4, 6, 20}, Rect{5, 0, 5, 5}));
    // source (0,4)-(2,9) = 3 x 6; destination (5,0)-(7,4) = 3 x 5: 3 x 5 copied
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) {
            const bool written = x >= 5 && y < 5;
            EXPECT_EQ(std::memcmp(pixelAt(dst, x, y), written ? pixelAt(src, x - 5, y + 4) : pixelAt(before, x, y), 4), 0)
                << x << "," << y;
        }
    EXPECT_TRUE(copyImageUsingRois(src, &dst, Rect{50, 50, 5, 5}, Rect{0, 0, 5, 5})) << "nothing inside: nothing copied";
    VImage self = src;
    EXPECT_TRUE(copyImageUsingRois(self, &self, Rect{0, 0, 10, 10}, Rect{0, 0, 10, 10}));
}

TEST(CopyImage, OverlappingRectanglesOfOneBufferCopyAsFromASeparateSource)
{
    // The destination above, below, beside and diagonal to the source; whole rows (the single move) too.
    const struct {
        Rect from, to;
    } moves[] = {
        {{1, 1, 5, 4}, {1, 3, 5, 4}}, {{1, 3, 5, 4}, {1, 1, 5, 4}}, {{1, 1, 5, 4}, {3, 1, 5, 4}},
        {{3, 1, 5, 4}, {1, 1, 5, 4}}, {{1, 1, 5, 4}, {2, 2, 5, 4}}, {{2, 2, 5, 4}, {1, 1, 5, 4}},
        {{3, 1, 5, 4}, {1, 2, 5, 4}}, {{0, 0, 9, 4}, {0, 2, 9, 4}}, {{0, 2, 9, 4}, {0, 0, 9, 4}},
    };
    for (Format f : {GrayScale, BGR, XRGB})
        for (const auto& m : moves) {
            VImage image = makeImage(9, 7, f, Channel8u, 5);
            const VImage before = image.copy();
            VImage sharing = image;
            ASSERT_TRUE(copyImageUsingRois(image, &sharing, m.from, m.to));
            const long pixel = pixelBytes(image) / image.width();
            for (int y = 0; y < 7; ++y)
                for (int x = 0; x < 9; ++x) {
                    const int dx = x - m.to.x, dy = y - m.to.y;
                    const bool written = dx >= 0 && dy >= 0 && dx < m.to.width && dy < m.to.height;
                    const unsigned char* expected =
                        written ? pixelAt(before, m.from.x + dx, m.from.y + dy) : pixelAt(before, x, y);
                    ASSERT_EQ(std::memcmp(pixelAt(image, x, y), expected, pixel), 0)
                        << f << " from " << m.from.x << "," << m.from.y << " to " << m.to.x << "," << m.to.y << " at "
                        << x << "," << y;
                }
        }
}

TEST(CopyImage, FailuresAndInPlaceWrites)
{
    const VImage src = makeImage(4, 4, BGR, Channel8u);
    VImage empty;
    VImage otherType = makeImage(4, 4, BGR, Channel16u);
    VImage bad = failedImage(makeImage(4, 4, BGR, Channel8u));
    EXPECT_EQ(copyImage(src, &empty).message(), "Reason: Empty source image!");
    EXPECT_EQ(copyImage(src, &otherType).message(), "Reason: Can not find template with actual parameters!");
    EXPECT_EQ(copyImage(src, &bad).message(), "Reason: Bad status of image!");
    EXPECT_EQ(copyImage(src, nullptr).message(), "Reason: Null pointer argument!");
    EXPECT_EQ(copyImage(failedImage(src), &otherType).message(), "Reason: Bad status of image!");

    VImage dst = makeImage(4, 4, BGR, Channel8u, 7);
    const VImage sharing = dst;
    const QByteArray oldHash = sharing.hash();
    ASSERT_TRUE(copyImage(src, &dst));
    EXPECT_EQ(sharing.rawData(), dst.rawData()) << "destinations are written in place";
    EXPECT_NE(sharing.hash(), oldHash) << "and their cached hash is cleared";
    EXPECT_TRUE(sharing.isEqual(src));
}

} // namespace
