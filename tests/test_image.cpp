// The pooled buffer, ImageData's size rules and the copy-on-write image handle.
#include "support/LogCapture.h"
#include "support/images.h"

#include <gtest/gtest.h>

using namespace VEXA;

namespace {

class Pool : public ::testing::Test {
protected:
    void SetUp() override { BufferPool::instance().clear(); }
    void TearDown() override { BufferPool::instance().clear(); }
};

TEST_F(Pool, SameByteSizeGetsTheSameMemoryWithItsOldContents)
{
    unsigned char* first;
    {
        VImage a = makeImage(3, 2, BGR, Channel8u); // 24 bytes
        first = a.rawData();
        first[5] = 0xAB;
    }
    VImage b;
    b.create(6, 1, XRGB, Channel8u, OriginBottomLeft, RowsAlignNone); // another shape, the same 24 bytes
    EXPECT_EQ(b.rawData(), first);
    EXPECT_EQ(b.rawData()[5], 0xAB);

    VImage c;
    c.create(7, 1, XRGB, Channel8u, OriginBottomLeft, RowsAlignNone); // 28 bytes: no reuse
    EXPECT_NE(c.rawData(), first);
    EXPECT_EQ(c.rawData()[5], 0) << "fresh buffers are zeroed";
}

TEST_F(Pool, ARecycledBufferKeepsItsPixelsButNotItsRowPadding)
{
    QByteArray before;
    {
        const VImage a = makeImage(3, 2, BGR, Channel8u); // rows of 9 pixel bytes and 3 of padding
        before = QByteArray(reinterpret_cast<const char*>(a.rawData()), 24);
    }
    VImage b;
    b.create(3, 2, BGR, Channel8u, OriginBottomLeft, RowsAlignNone);
    for (int i = 0; i < 24; ++i)
        EXPECT_EQ(b.rawData()[i], i % 12 < 9 ? quint8(before[i]) : 0) << "byte " << i;
}

TEST_F(Pool, BuffersOverTheLimitOrHeldElsewhereAreNotKept)
{
    BufferPool& pool = BufferPool::instance();
    pool.release(std::make_shared<ByteBuffer>(250'000'000));
    EXPECT_EQ(pool.idleCount(), 0u);

    SharedBuffer held = std::make_shared<ByteBuffer>(64);
    SharedBuffer other = held;
    pool.release(held);
    EXPECT_EQ(pool.idleCount(), 0u) << "a buffer somebody still holds must not go to a second image";
    EXPECT_EQ(pool.acquire(0), nullptr);
}

TEST_F(Pool, EvictsOldestFirstAndHoldsAtMostOneBufferOverTheLimit)
{
    BufferPool& pool = BufferPool::instance();
    std::vector<const ByteBuffer*> released;
    for (size_t size : {90'000'000u, 80'000'000u, 40'000'000u}) { // 210 MB: over the limit after the third
        SharedBuffer b = std::make_shared<ByteBuffer>(size);
        released.push_back(b.get());
        pool.release(std::move(b));
    }
    EXPECT_EQ(pool.idleBytes(), 210'000'000u);
    pool.release(std::make_shared<ByteBuffer>(1000)); // evicts the 90 MB one only
    EXPECT_EQ(pool.idleBytes(), 120'001'000u);
    EXPECT_EQ(pool.idleCount(), 3u);
    pool.acquire(90'000'000); // the evicted size is not in the pool any more: made afresh
    EXPECT_EQ(pool.idleBytes(), 120'001'000u);
    EXPECT_EQ(pool.acquire(80'000'000).get(), released[1]);
    EXPECT_EQ(pool.idleBytes(), 40'001'000u);

    for (int i = 0; i < 30; ++i) {
        pool.release(std::make_shared<ByteBuffer>(15'000'000 + i));
        EXPECT_LE(pool.idleBytes(), BufferPool::limit + 15'000'000 + i);
    }
}

TEST(ImageData, RowsArePaddedToFourBytesWhateverTheAlignment)
{
    const struct { int width; Format f; Channel c; long stride; } examples[] = {
        {3, BGR, Channel8u, 12}, {5, GrayScale, Channel8u, 8}, {1, XRGB, Channel32f, 16},
        {3, YUV422, Channel16u, 12}, {1, GrayScale, Channel8u, 4},
    };
    for (const auto& e : examples)
        for (RowsAlign align : allRowsAligns())
            EXPECT_EQ(VImage::dataSize(e.width, 2, e.f, e.c, align), 2 * e.stride) << e.f << "/" << e.c;

    for (Format f : allFormats())
        for (Channel c : allChannels())
            for (int w = 1; w <= 9; ++w) {
                VImage image;
                image.create(w, 3, f, c, OriginTopLeft, RowsAlign4);
                const long pixels = pixelBytes(image);
                EXPECT_EQ(image.bytesPerLine() % 4, 0);
                EXPECT_GE(image.bytesPerLine(), pixels);
                EXPECT_LT(image.bytesPerLine(), pixels + 4);
                EXPECT_EQ(image.dataSize(), 3 * image.bytesPerLine());
            }
}

TEST(ImageData, EmptyImagesAndRois)
{
    VImage empty;
    empty.create(0, 0, GrayScale, Channel8u, OriginBottomLeft, RowsAlignNone);
    EXPECT_TRUE(empty.isEmpty());
    EXPECT_TRUE(empty.status());
    EXPECT_TRUE(VImage().isEmpty());

    VImage image = makeImage(20, 30, GrayScale, Channel8u);
    image.setRoi(QRect(5, 5, 0, 10));
    EXPECT_EQ(image.roi(), QRect(0, 0, 20, 30));
    image.setRoi(QRect(15, 25, 10, 10)); // stored as given, not clipped
    EXPECT_EQ(image.roi(), QRect(15, 25, 10, 10));
    image.resetRoi();
    EXPECT_EQ(image.roi(), QRect(0, 0, 20, 30));
}

TEST(ImageData, AbsurdDimensionsLeaveAnEmptyFailedImage)
{
    const struct { long w, h; Format f; Channel c; } cases[] = {
        {-5, 3, GrayScale, Channel8u}, {3, -1, BGR, Channel8u}, {100000, 100000, XRGB, Channel32f},
        {1L << 31, 1, GrayScale, Channel8u}, {1L << 40, 1L << 40, GrayScale, Channel8u},
    };
    for (const auto& c : cases) {
        LogCapture log;
        VImage image;
        image.create(c.w, c.h, c.f, c.c, OriginBottomLeft, RowsAlignNone);
        EXPECT_TRUE(image.isEmpty()) << c.w << "x" << c.h;
        EXPECT_FALSE(image.status());
        EXPECT_TRUE(image.status().message().startsWith("Failed to resize image data with "));
        ASSERT_EQ(log.count(), 1u);
        EXPECT_EQ(log.records()[0].issue, Issue::LibraryError);
        EXPECT_EQ(log.records()[0].file, "imp/ImageData");
    }
    const qint64 limit = imageSizeLimit();
    setImageSizeLimit(1000);
    VImage overLimit;
    overLimit.create(100, 100, GrayScale, Channel8u, OriginBottomLeft, RowsAlignNone);
    setImageSizeLimit(limit);
    EXPECT_FALSE(overLimit.status());
}

TEST(ImageData, SettingNullDataLogsIssueOneAndKeepsTheBytes)
{
    VImage image = makeImage(4, 4, GrayScale, Channel8u);
    const QByteArray before = image.hash();
    LogCapture log;
    image.set(nullptr, image.header());
    ASSERT_EQ(log.count(), 1u);
    EXPECT_EQ(log.records()[0].issue, Issue::NullData);
    EXPECT_EQ(log.records()[0].text, "Can't set data to the invalid image data");
    EXPECT_EQ(image.hash(), before);
}

TEST(VImage, ChangingACopyDetachesItAndLeavesTheOriginal)
{
    VImage original = makeImage(8, 8, BGR, Channel8u);
    VImage copy = original;
    EXPECT_EQ(copy.rawData(), original.rawData()) << "copies share";
    copy.setRoi(QRect(1, 1, 2, 2));
    EXPECT_EQ(original.roi(), QRect(0, 0, 8, 8));
    EXPECT_NE(copy.rawData(), original.rawData()) << "a change forces a deep copy";
    EXPECT_TRUE(copy.isCompatible(original));
    EXPECT_EQ(copy.hash(), original.hash());
}

TEST(VImage, CreateWithTheSameHeaderKeepsPixelsAndSharing)
{
    VImage a = makeImage(5, 3, GrayScale, Channel16u);
    VImage b = a;
    unsigned char* pixels = a.rawData();
    a.create(a.header());
    EXPECT_EQ(a.rawData(), pixels);
    EXPECT_EQ(b.rawData(), pixels);
    a.create(6, 3, GrayScale, Channel16u, a.origin(), a.rowsAlignment());
    EXPECT_EQ(b.rawData(), pixels) << "the other handle keeps the old pixels";
    EXPECT_EQ(b.width(), 5);
}

TEST(VImage, HashCoversPaddingAndEqualityFollowsItsOrder)
{
    EXPECT_EQ(VImage().hash().toHex(), "d41d8cd98f00b204e9800998ecf8427e"); // MD5 of nothing

    VImage a = makeImage(3, 2, GrayScale, Channel8u); // 1 byte of padding per row
    EXPECT_EQ(a.hash(), QCryptographicHash::hash(QByteArrayView(reinterpret_cast<const char*>(a.rawData()), 8),
                                                 QCryptographicHash::Md5));
    VImage b = a.copy();
    EXPECT_TRUE(a.isEqual(b));
    b.rawData()[3] ^= 1; // padding only
    b.resetHash();
    EXPECT_FALSE(a.isEqual(b)) << "padding bytes take part";

    VImage c = a.copy();
    c.create(3, 2, GrayScale, Channel8u, a.origin(), RowsAlign4); // same bytes, other alignment value
    std::memcpy(c.rawData(), a.rawData(), 8);
    c.resetHash();
    EXPECT_FALSE(a.isEqual(c));

    EXPECT_TRUE(VImage().isEqual(VImage()));
    EXPECT_FALSE(a.isEqual(VImage()));
    EXPECT_FALSE(VImage().isEqual(a));
    const VImage shared = a;
    EXPECT_TRUE(shared.isEqual(a));
}

TEST(VImage, InvalidImagesLogAndGiveEmptyResults)
{
    const VImage bad = failedImage(makeImage(4, 4, BGR, Channel8u));
    bad.checkStatus(VStatus::Ok);
    EXPECT_FALSE(bad.status()) << "a good result never clears an earlier failure";
    LogCapture log;
    EXPECT_TRUE(bad.copy().isEmpty());
    EXPECT_TRUE(bad.hash().isEmpty());
    EXPECT_TRUE(bad.createCompatible().isEmpty());
    EXPECT_TRUE(bad.createCompatible(2, 2).isEmpty());
    bad.header();
    const char* texts[] = {"Can't copy invalid image.", "Can't make hash of invalid image.",
                           "Can't create compatible with invalid image.", "Can't create compatible with invalid image.",
                           "Can't make header of invalid image."};
    const auto records = log.records();
    ASSERT_EQ(records.size(), 5u);
    for (size_t i = 0; i < records.size(); ++i) {
        EXPECT_EQ(records[i].text, texts[i]);
        EXPECT_EQ(records[i].issue, Issue::InvalidObject);
        EXPECT_EQ(records[i].file, "imp/VImage");
    }
    VLog::errorStream("Vexa", "f", "x", 1, Issue::None) << bad << " " << bad.header();
    EXPECT_EQ(log.records().back().text, "VImage() VImageHeader()") << "no field values, on purpose";
}

TEST(VImage, CopyAndCreateCompatible)
{
    EXPECT_EQ(VImage(7, 5).header(), (VImageHeader{7, 5, XRGB, Channel8u, OriginBottomLeft, RowsAlignNone}));
    VImage image = makeImage(10, 6, XRGB, Channel16s, 3, OriginTopLeft, RowsAlign4);
    image.setRoi(QRect(2, 2, 3, 3));
    const VImage copy = image.copy();
    EXPECT_EQ(copy.roi(), QRect(0, 0, 10, 6));
    EXPECT_EQ(copy.hash(), image.hash());
    EXPECT_NE(copy.rawData(), image.rawData());

    EXPECT_EQ(image.createCompatible().header(), image.header());
    EXPECT_EQ(image.createCompatible(GrayScale).format(), GrayScale);
    EXPECT_EQ(image.createCompatible(Channel8u).channelType(), Channel8u);
    const VImage other = image.createCompatible(BGR, Channel32f);
    EXPECT_EQ(other.header(), (VImageHeader{10, 6, BGR, Channel32f, OriginTopLeft, RowsAlign4}));
    EXPECT_EQ(image.createCompatible(4, 9).size(), QSize(4, 9));
    EXPECT_TRUE(image.createCompatible(0, 9).isEmpty());
    EXPECT_TRUE(image.createCompatible(4, -1).isEmpty());

    VImage target;
    ASSERT_TRUE(image.copyTo(&target));
    EXPECT_EQ(target.header(), image.header());
    EXPECT_EQ(target.roi(), image.roi());
    for (int y = 0; y < 6; ++y)
        EXPECT_EQ(std::memcmp(pixelAt(target, 0, y), pixelAt(image, 0, y), pixelBytes(image)), 0);
    EXPECT_FALSE(image.copyTo(nullptr));
}

TEST(VImage, CropByRectForcesTheRectangleInside)
{
    const VImage image = makeImage(100, 100, BGR, Channel8u);
    const struct { QRect r; QRect expected; } cases[] = {
        {QRect(-10, -10, 5, 5), QRect(0, 0, 1, 1)},
        {QRect(200, 50, 10, 10), QRect(99, 50, 1, 10)},
        {QRect(10, 20, 30, 40), QRect(10, 20, 30, 40)},
        {QRect(90, 95, 50, 50), QRect(90, 95, 10, 5)},
        {QRect(20, 20, -5, 3), QRect(20, 20, 1, 3)},
    };
    for (const auto& c : cases) {
        const VImage crop = image.cropByRect(c.r);
        ASSERT_EQ(crop.size(), c.expected.size()) << c.r.x() << "," << c.r.y();
        for (int y = 0; y < crop.height(); ++y)
            EXPECT_EQ(std::memcmp(pixelAt(crop, 0, y), pixelAt(image, c.expected.x(), c.expected.y() + y),
                                  pixelBytes(crop)), 0);
    }
    EXPECT_TRUE(VImage().cropByRect(QRect(0, 0, 5, 5)).isEmpty());
    EXPECT_FALSE(failedImage(image).cropByRect(QRect(0, 0, 5, 5)).status());
}

} // namespace
