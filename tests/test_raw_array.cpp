// The raw byte array and the data-stream form of an image: exact bytes, round trips, hostile input.
#include "support/LogCapture.h"
#include "support/images.h"

#include <QDataStream>
#include <QIODevice>

#include <gtest/gtest.h>

using namespace VEXA;

namespace {

QByteArray bytes(std::initializer_list<int> values)
{
    QByteArray out;
    for (int v : values)
        out += char(v);
    return out;
}

QByteArray be32(qint32 v)
{
    const quint32 u = quint32(v);
    return bytes({int(u >> 24), int(u >> 16), int(u >> 8), int(u)});
}

quint32 adler32Of(const QByteArray& bytes)
{
    quint32 a = 1, b = 0;
    for (unsigned char c : bytes) {
        a = (a + c) % 65521;
        b = (b + a) % 65521;
    }
    return b << 16 | a;
}

// A stored (level 0) zlib stream as qCompress writes it: length, header 78 01, one final stored block,
// Adler-32.
QByteArray storedBlock(const QByteArray& raw)
{
    const quint16 n = quint16(raw.size());
    return be32(raw.size()) + bytes({0x78, 0x01, 0x01, n & 0xff, n >> 8, ~n & 0xff, (~n >> 8) & 0xff}) + raw + be32(qint32(adler32Of(raw)));
}

QByteArray header(qint32 version, qint32 w, qint32 h, qint32 f, qint32 c, qint32 o, qint32 a, QRect roi)
{
    QByteArray bytes = be32(10) + "VEXA_IMAGE" + be32(version);
    if (version == 2)
        bytes += be32(0);
    return bytes + be32(w) + be32(h) + be32(f) + be32(c) + be32(o) + be32(a) + be32(roi.left()) + be32(roi.top()) +
           be32(roi.right()) + be32(roi.bottom());
}

QByteArray withPixels(const QByteArray& head, const QByteArray& compressed) { return head + be32(compressed.size()) + compressed; }

TEST(RawArray, BytesAreThoseOfTheLayout)
{
    QByteArray pixels;
    for (int i = 0; i < 24; ++i)
        pixels += char(i);
    VImage image;
    image.set(reinterpret_cast<const unsigned char*>(pixels.constData()), 3, 2, BGR, Channel8u, OriginBottomLeft,
              RowsAlignNone);
    const QByteArray expected = withPixels(header(2, 3, 2, 1, 0, 1, 0, QRect(0, 0, 3, 2)), storedBlock(pixels));
    EXPECT_EQ(image.toByteArray(CompressionNone).toHex(' '), expected.toHex(' '));
    EXPECT_EQ(expected.size(), 105);

    const QByteArray empty = QByteArray::fromHex("0000000a 564558415f494d414745 00000002 00000001");
    EXPECT_EQ(VImage().toByteArray(), empty);
    const VImage back = VImage::fromByteArray(empty);
    EXPECT_TRUE(back.isEmpty());
    EXPECT_TRUE(back.status());
}

TEST(RawArray, EveryPairRoundTripsWithRoiAndPadding)
{
    for (Format f : allFormats())
        for (Channel c : allChannels())
            for (CompressionLevel level : {CompressionNone, CompressionDefault, CompressionBest, CompressionLevel(42)}) {
                VImage image = makeImage(5, 3, f, c, unsigned(f * 6 + c), OriginTopLeft, RowsAlign4);
                image.setRoi(QRect(1, 2, 3, 7)); // reaching outside: stored as it is
                const VImage back = VImage::fromByteArray(image.toByteArray(level));
                ASSERT_TRUE(back.status()) << back.status().message().toStdString();
                EXPECT_EQ(back.header(), image.header()) << f << "/" << c;
                EXPECT_EQ(back.roi(), image.roi());
                EXPECT_EQ(back.hash(), image.hash()) << "every byte, padding included";
            }
}

TEST(RawArray, OlderVersionsAndTheWidthQuirkAreRead)
{
    const QByteArray pixels(8, '\x07'); // 3 x 2 gray: 4-byte rows
    const QByteArray v1 = withPixels(header(1, 3, 2, 0, 0, 1, 0, QRect(0, 0, 3, 2)), storedBlock(pixels));
    const QByteArray v3 = withPixels(header(3, 3, 2, 0, 0, 1, 0, QRect(1, 0, 2, 2)), storedBlock(pixels));
    for (const QByteArray& array : {v1, v3}) {
        const VImage image = VImage::fromByteArray(array);
        ASSERT_TRUE(image.status()) << image.status().message().toStdString();
        EXPECT_EQ(image.size(), QSize(3, 2));
        EXPECT_EQ(image.rawData()[5], 7);
    }
    EXPECT_EQ(VImage::fromByteArray(v3).roi(), QRect(1, 0, 2, 2));

    QByteArray quirk = be32(10) + "VEXA_IMAGE" + be32(2) + be32(0) + be32(0) + be32(3) + be32(2) + be32(0) +
                       be32(0) + be32(1) + be32(0) + be32(0) + be32(0) + be32(2) + be32(1);
    quirk = withPixels(quirk, storedBlock(pixels));
    EXPECT_EQ(VImage::fromByteArray(quirk).size(), QSize(3, 2)) << "a width of 0 is followed by the real one";
}

TEST(RawArray, HostileArraysFailCleanly)
{
    const QByteArray pixels(8, '\x07');
    const QByteArray good = withPixels(header(2, 3, 2, 0, 0, 1, 0, QRect(0, 0, 3, 2)), storedBlock(pixels));
    const QByteArray zeros = qCompress(QByteArray(10'000'000, '\0'), 9); // a little data that inflates a lot
    QByteArray wrongLength = storedBlock(pixels);
    wrongLength[3] = 9;
    QByteArray corrupt = storedBlock(pixels);
    corrupt[corrupt.size() - 1] ^= 0x55; // checksum

    const struct { const char* name; QByteArray array; const char* reason; } cases[] = {
        {"nothing", QByteArray(), "Wrong array Id."},
        {"other id", be32(10) + "VEXA_IMAGF" + be32(2), "Wrong array Id."},
        {"id with a tail", be32(12) + "VEXA_IMAGE\0x" + be32(2), "Wrong array Id."},
        {"huge id length", be32(0x7fffffff) + "VEXA", "Wrong array Id."},
        {"version 0", be32(10) + "VEXA_IMAGE" + be32(0), "Unknown array version."},
        {"no version", be32(10) + "VEXA_IMAGE", "Truncated array."},
        {"format 7", withPixels(header(2, 3, 2, 7, 0, 1, 0, {}), storedBlock(pixels)), "Unknown format or channel type."},
        {"channel -1", withPixels(header(2, 3, 2, 0, -1, 1, 0, {}), storedBlock(pixels)), "Unknown format or channel type."},
        {"origin 5", withPixels(header(2, 3, 2, 0, 0, 5, 0, {}), storedBlock(pixels)), "Unknown origin or rows alignment."},
        {"align -1", withPixels(header(2, 3, 2, 0, 0, 1, -1, {}), storedBlock(pixels)), "Unknown origin or rows alignment."},
        {"negative width", withPixels(header(2, -3, 2, 0, 0, 1, 0, {}), storedBlock(pixels)), "Negative image size."},
        {"negative height", withPixels(header(2, 3, INT32_MIN, 0, 0, 1, 0, {}), storedBlock(pixels)), "Negative image size."},
        {"absurd size", withPixels(header(2, 1 << 30, 1 << 30, 2, 5, 1, 0, {}), storedBlock(pixels)), "Image size over the limit."},
        {"bomb by header", withPixels(header(2, 30000, 30000, 0, 0, 1, 0, {}), storedBlock(pixels)),
         "Pixel data too short for the image size."},
        {"bomb by stream", withPixels(header(2, 3, 2, 0, 0, 1, 0, {}), be32(8) + zeros.mid(4)),
         "Pixel data does not match the image."},
        {"length field", withPixels(header(2, 3, 2, 0, 0, 1, 0, {}), wrongLength), "Pixel data does not match the image."},
        {"short stream", withPixels(header(2, 3, 2, 0, 0, 1, 0, {}), storedBlock(pixels.left(5))),
         "Pixel data does not match the image."},
        {"corrupt stream", withPixels(header(2, 3, 2, 0, 0, 1, 0, {}), corrupt), "Pixel data does not match the image."},
        {"garbage stream", withPixels(header(2, 3, 2, 0, 0, 1, 0, {}), be32(8) + QByteArray(20, '\xAB')),
         "Pixel data does not match the image."},
    };
    for (const auto& c : cases) {
        LogCapture log;
        const VImage image = VImage::fromByteArray(c.array);
        EXPECT_TRUE(image.isEmpty()) << c.name;
        EXPECT_EQ(image.status().message(), QString("Failed to unpack image from byte array: ") + c.reason) << c.name;
        ASSERT_EQ(log.count(), 1u) << c.name;
        EXPECT_EQ(log.records()[0].issue, Issue::RawPacking);
        EXPECT_EQ(log.records()[0].file, "imp/VImage");
    }
    for (qsizetype n = 0; n < good.size(); ++n) // every truncation of a good array
        EXPECT_FALSE(VImage::fromByteArray(good.left(n)).status()) << "cut at " << n;
    EXPECT_TRUE(VImage::fromByteArray(good).status());
}

TEST(RawArray, InvalidImagesAreNotSerialized)
{
    const VImage bad = failedImage(makeImage(2, 2, BGR, Channel8u));
    LogCapture log;
    EXPECT_TRUE(bad.toByteArray().isEmpty());
    ASSERT_EQ(log.count(), 1u);
    EXPECT_EQ(log.records()[0].text, "Can't serialize invalid image.");
    EXPECT_EQ(log.records()[0].issue, Issue::InvalidObject);
}

TEST(DataStream, HoldsOneArrayAtLevelZero)
{
    const VImage image = makeImage(4, 3, XRGB, Channel16u);
    QByteArray stored;
    {
        QDataStream out(&stored, QIODevice::WriteOnly);
        out << image << VImage();
    }
    QDataStream in(stored);
    QByteArray first;
    in >> first;
    EXPECT_EQ(first, image.toByteArray(CompressionNone));

    QDataStream again(stored);
    VImage a, b, c = makeImage(1, 1, GrayScale, Channel8u);
    again >> a >> b >> c;
    EXPECT_TRUE(a.isEqual(image));
    EXPECT_TRUE(b.isEmpty());
    EXPECT_TRUE(b.status());
    EXPECT_TRUE(c.isEmpty()) << "reading past the end gives an empty, failed image";
    EXPECT_FALSE(c.status());
}

} // namespace
