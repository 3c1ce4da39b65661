// The QImage bridge and image files.
#include "support/LogCapture.h"
#include "support/images.h"

#include <QFile>
#include <QImageReader>
#include <QImageWriter>
#include <QPainter>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstring>

using namespace VEXA;

namespace {

VImage colourCard(Format format, int width = 7, int height = 5)
{
    VImage image;
    image.create(width, height, format, Channel8u, OriginBottomLeft, RowsAlignNone);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            double rgba[4] = {double(10 + 30 * x), double(5 + 40 * y), double(200 - 20 * x), double(60 + 25 * x)};
            if (format == ARGB_Premultiplied)
                for (int i = 0; i < 3; ++i)
                    rgba[i] = std::round(rgba[i] * rgba[3] / 255);
            setPixel(&image, x, y, rgba, 4);
        }
    return image;
}

TEST(RepresentFormat, OnlyEightBitImagesHaveAQImageFormat)
{
    EXPECT_EQ(representFormat(GrayScale, Channel8u), QImage::Format_Indexed8);
    EXPECT_EQ(representFormat(BGR, Channel8u), QImage::Format_RGB888);
    EXPECT_EQ(representFormat(ARGB, Channel8u), QImage::Format_ARGB32);
    EXPECT_EQ(representFormat(XRGB, Channel8u), QImage::Format_RGB32);
    EXPECT_EQ(representFormat(ARGB_Premultiplied, Channel8u), QImage::Format_ARGB32_Premultiplied);
    EXPECT_EQ(representFormat(YUV422, Channel8u), QImage::Format_Invalid);
    EXPECT_EQ(representFormat(ARGB, Channel16u), QImage::Format_Invalid);
    EXPECT_EQ(representFormat(Format(9), Channel8u), QImage::Format_Invalid);

    Format f;
    Channel c;
    EXPECT_TRUE(representFormat(QImage::Format_ARGB32_Premultiplied, &f, &c));
    EXPECT_EQ(f, ARGB_Premultiplied);
    EXPECT_EQ(c, Channel8u);
    for (QImage::Format q : {QImage::Format_RGB888, QImage::Format_Grayscale8, QImage::Format_BGR888, QImage::Format_Mono}) {
        EXPECT_FALSE(representFormat(q, &f, &c)) << q << ": BGR maps to RGB888 one way only";
        EXPECT_EQ(f, Invalid);
        EXPECT_EQ(c, ChannelInvalid);
    }
    EXPECT_EQ(grayColorTable().size(), 256);
    EXPECT_EQ(grayColorTable()[200], 0xFFC8C8C8u);
    EXPECT_EQ(&grayColorTable(), &grayColorTable());
}

TEST(ToQImage, ColoursLandInTheirPlaces)
{
    for (Format f : {BGR, XRGB, ARGB, GrayScale}) {
        const VImage image = f == GrayScale ? makeImage(7, 5, GrayScale, Channel8u) : colourCard(f);
        const QImage q = toQImage(image);
        ASSERT_FALSE(q.isNull()) << f;
        EXPECT_EQ(q.format(), representFormat(f, Channel8u));
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 7; ++x) {
                const QList<QVariant> p = image.pixel(x, y);
                const QRgb rgb = q.pixel(x, y);
                if (f == GrayScale) {
                    EXPECT_EQ(qGray(rgb), p[0].toInt());
                    EXPECT_TRUE(qIsGray(rgb));
                    continue;
                }
                EXPECT_EQ(qRed(rgb), p[0].toInt()) << f << " " << x << "," << y;
                EXPECT_EQ(qGreen(rgb), p[1].toInt());
                EXPECT_EQ(qBlue(rgb), p[2].toInt());
                EXPECT_EQ(qAlpha(rgb), f == ARGB ? p[3].toInt() : 255);
            }
    }
    EXPECT_EQ(toQImage(colourCard(BGR), QImage::Format_RGB32).format(), QImage::Format_RGB32);
}

TEST(ToQImage, APremultipliedImageIsDrawnAsItsOriginal)
{
    const VImage argb = colourCard(ARGB, 9, 4);
    const VImage premultiplied = argb.convert(ARGB_Premultiplied, Channel8u);
    QImage viaOriginal(9, 4, QImage::Format_RGB32), viaPremultiplied(9, 4, QImage::Format_RGB32);
    viaOriginal.fill(Qt::white);
    viaPremultiplied.fill(Qt::white);
    QPainter(&viaOriginal).drawImage(0, 0, toQImage(argb));
    QPainter(&viaPremultiplied).drawImage(0, 0, toQImage(premultiplied));
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 9; ++x) {
            const QRgb a = viaOriginal.pixel(x, y), b = viaPremultiplied.pixel(x, y);
            EXPECT_NEAR(qRed(a), qRed(b), 1) << x << "," << y;
            EXPECT_NEAR(qGreen(a), qGreen(b), 1);
            EXPECT_NEAR(qBlue(a), qBlue(b), 1);
        }
    const VImage back = fromQImage(toQImage(premultiplied).convertToFormat(QImage::Format_ARGB32)).convert(ARGB_Premultiplied, Channel8u);
    EXPECT_TRUE(back.isEqual(premultiplied)) << "Qt's and the library's premultiplication agree";
}

TEST(ToQImage, FailuresAreLoggedWithIssue3300)
{
    const VImage bad = failedImage(colourCard(BGR));
    LogCapture log;
    EXPECT_TRUE(toQImage(makeImage(3, 3, BGR, Channel16u)).isNull());
    EXPECT_TRUE(toQImage(bad, QImage::Format_RGB32).isNull());
    EXPECT_TRUE(asQImage(makeImage(3, 3, YUV422, Channel8u)).isNull());
    EXPECT_TRUE(toQImage(VImage()).isNull());
    const auto records = log.records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].text, "Can't convert VImage to QImage.");
    EXPECT_EQ(records[1].text, "Can't convert invalid VImage to QImage");
    EXPECT_EQ(records[0].issue, Issue::QImageConversion);
    EXPECT_EQ(records[0].file, "imp/qimage_support");
}

TEST(AsQImage, SharesThePixelsAndKeepsThemAlive)
{
    QImage view;
    VImage image = colourCard(BGR);
    {
        const VImage handle = image;
        view = asQImage(handle);
    }
    EXPECT_EQ(view.constBits(), image.rawData());
    EXPECT_EQ(view.format(), QImage::Format_BGR888);
    double red[3] = {255, 0, 0};
    setPixel(&image, 1, 1, red, 3);
    EXPECT_EQ(view.pixel(1, 1), qRgb(255, 0, 0));
    image = VImage(); // the view still holds the buffer
    EXPECT_EQ(view.pixel(1, 1), qRgb(255, 0, 0));
    EXPECT_EQ(asQImage(makeImage(4, 4, GrayScale, Channel8u)).colorTable(), QList<QRgb>(grayColorTable()));
}

TEST(FromQImage, EveryQImageFormatComesIn)
{
    QImage rgb888(3, 2, QImage::Format_RGB888);
    rgb888.fill(QColor(10, 20, 30));
    QImage palette(3, 2, QImage::Format_Indexed8);
    palette.setColorTable({qRgb(255, 0, 0), qRgb(0, 0, 255)});
    palette.fill(1);
    QImage gray16(3, 2, QImage::Format_Grayscale16);
    gray16.fill(0);
    reinterpret_cast<quint16*>(gray16.scanLine(1))[2] = 60000;
    QImage rgba(3, 2, QImage::Format_RGBA8888);
    rgba.fill(QColor(1, 2, 3, 4));
    QImage gray8(3, 2, QImage::Format_Grayscale8);
    gray8.fill(77);

    const struct { const char* name; QImage q; Format f; Channel c; QList<QVariant> pixel; } cases[] = {
        {"RGB888", rgb888, XRGB, Channel8u, {10.0, 20.0, 30.0}},
        {"palette", palette, XRGB, Channel8u, {0.0, 0.0, 255.0}},
        {"Grayscale16", gray16, GrayScale, Channel16u, {60000.0}},
        {"RGBA8888", rgba, ARGB, Channel8u, {1.0, 2.0, 3.0, 4.0}},
        {"Grayscale8", gray8, GrayScale, Channel8u, {77.0}},
        {"Indexed8 gray", toQImage(makeImage(3, 2, GrayScale, Channel8u, 5)), GrayScale, Channel8u,
         makeImage(3, 2, GrayScale, Channel8u, 5).pixel(2, 1)},
    };
    for (const auto& c : cases) {
        VImage image;
        ASSERT_TRUE(fromQImage(c.q, &image)) << c.name;
        EXPECT_EQ(image.format(), c.f) << c.name;
        EXPECT_EQ(image.channelType(), c.c) << c.name;
        EXPECT_EQ(image.origin(), OriginBottomLeft);
        EXPECT_EQ(image.pixel(2, 1), c.pixel) << c.name;
    }
    LogCapture log;
    EXPECT_FALSE(fromQImage(QImage()).status());
    EXPECT_FALSE(fromQImage(QImage(), nullptr));
    EXPECT_EQ(log.count(), 1u);
}

class Files : public ::testing::Test {
protected:
    QString path(const QString& name) const { return dir.filePath(name); }
    void write(const QString& name, const QByteArray& bytes) const
    {
        QFile file(path(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    QByteArray bytesOf(const QString& name) const
    {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    QTemporaryDir dir;
};

TEST_F(Files, PngKeepsEveryEightBitFormat)
{
    const struct { Format saved; Format loaded; } cases[] = {
        {GrayScale, GrayScale}, {BGR, XRGB}, {XRGB, XRGB}, {ARGB, ARGB}, {ARGB_Premultiplied, ARGB},
    };
    for (const auto& c : cases) {
        const VImage image = c.saved == GrayScale ? makeImage(7, 5, GrayScale, Channel8u) : colourCard(c.saved);
        const QString file = path(QString("card%1.png").arg(c.saved));
        ASSERT_TRUE(image.save(file)) << c.saved;
        EXPECT_TRUE(VImage::canLoad(file));
        VImage loaded;
        ASSERT_TRUE(loaded.load(file)) << loaded.status().message().toStdString();
        EXPECT_EQ(loaded.format(), c.loaded);
        EXPECT_EQ(loaded.size(), image.size());
        // Premultiplied colours come back through Qt's own un-premultiplication: within one level.
        const VImage expected = c.saved == ARGB_Premultiplied ? image.convert(ARGB, Channel8u) : image;
        const double tolerance = c.saved == ARGB_Premultiplied ? 1.0 : 0.0;
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 7; ++x)
                for (int i = 0; i < (c.saved == GrayScale ? 1 : 3); ++i)
                    EXPECT_NEAR(loaded.pixel(x, y)[i].toDouble(), expected.pixel(x, y)[i].toDouble(), tolerance)
                        << c.saved << " " << x << "," << y;
    }
    VImage deep = makeImage(5, 4, GrayScale, Channel16u);
    ASSERT_TRUE(deep.save(path("deep.png")));
    VImage loaded;
    ASSERT_TRUE(loaded.load(path("deep.png")));
    EXPECT_EQ(loaded.channelType(), Channel16u);
    EXPECT_EQ(loaded.pixel(4, 3), deep.pixel(4, 3));
}

TEST_F(Files, OtherFormatsAndTypesAreWrittenInTheirNearestForm)
{
    QStringList suffixes = {"bmp", "jpg", "ppm"};
    if (QImageWriter::supportedImageFormats().contains("tif"))
        suffixes << "tif";
    for (const QString& suffix : suffixes)
        for (const VImage& image : {colourCard(BGR), makeImage(6, 4, GrayScale, Channel8u), makeImage(6, 4, XRGB, Channel32f),
                                     makeImage(6, 4, ARGB, Channel16u), makeImage(6, 4, YUV422, Channel8u)}) {
            const QString file = path("out." + suffix);
            ASSERT_TRUE(image.save(file)) << suffix.toStdString() << " " << image.format() << "/" << image.channelType();
            VImage loaded;
            EXPECT_TRUE(loaded.load(file)) << suffix.toStdString();
            EXPECT_EQ(loaded.size(), image.size());
        }
}

TEST_F(Files, SixteenBitsGoThroughPngAndTiffBitForBit)
{
    QStringList suffixes = {"png"};
    if (QImageWriter::supportedImageFormats().contains("tif"))
        suffixes << "tif";
    const struct { Format written; Format read; } cases[] = {
        {GrayScale, GrayScale}, {XRGB, XRGB}, {BGR, XRGB}, {ARGB, ARGB},
    };
    for (const QString& suffix : suffixes)
        for (const auto& c : cases) {
            SCOPED_TRACE(suffix.toStdString() + " " + std::to_string(c.written));
            VImage image = makeImage(9, 5, c.written, Channel16u, 3);
            if (c.written == XRGB) // the X component is not kept: made opaque, as it comes back
                for (int y = 0; y < 5; ++y)
                    for (int x = 0; x < 9; ++x)
                        reinterpret_cast<quint16*>(image.rawData() + y * image.bytesPerLine())[4 * x + 3] = 65535;
            const QString file = path("deep." + suffix);
            ASSERT_TRUE(writeImageFile(image, file));
            const VImage read = readImageFile(file);
            ASSERT_TRUE(read.status()) << read.status().message().toStdString();
            EXPECT_EQ(read.format(), c.read);
            EXPECT_EQ(read.channelType(), Channel16u);
            EXPECT_TRUE(sameRoiBytes(read, c.written == BGR ? image.convertScaled(XRGB, Channel16u) : image));
            VImage eight;
            ASSERT_TRUE(eight.load(file));
            EXPECT_EQ(eight.channelType(), c.written == GrayScale ? Channel16u : Channel8u) << "load keeps its mapping";
        }
    // Other depths go in as the same picture at 16 bits; formats of 8 bits take 8.
    const VImage half = makeImage(4, 2, GrayScale, Channel32f).convertScaled(GrayScale, Channel8u).convertScaled(GrayScale, Channel32f);
    ASSERT_TRUE(writeImageFile(half, path("float.png")));
    EXPECT_TRUE(sameRoiBytes(readImageFile(path("float.png")), half.convertScaled(GrayScale, Channel16u)));
    ASSERT_TRUE(writeImageFile(makeImage(4, 2, XRGB, Channel16u), path("eight.jpg")));
    EXPECT_EQ(readImageFile(path("eight.jpg")).channelType(), Channel8u);
    FileReadOptions eightBits;
    eightBits.keepDepth = false;
    EXPECT_EQ(readImageFile(path("deep.png"), eightBits).channelType(), Channel8u);
    // 8-bit colour, decoded straight into the image's rows, is what load gives.
    for (const char* name : {"colour.png", "colour.jpg"})
        for (const Format format : {XRGB, ARGB}) {
            ASSERT_TRUE(makeImage(33, 7, format, Channel8u, 9).save(path(name)));
            VImage loaded;
            ASSERT_TRUE(loaded.load(path(name)));
            EXPECT_TRUE(readImageFile(path(name)).isEqual(loaded)) << name << " " << format;
        }
}

TEST_F(Files, OwnPngAndTiffWritersReadBackAsQtsAndWriteWholeFilesOnly)
{
    for (const QString suffix : {".png", ".tif"})
        for (const Format format : {GrayScale, BGR, XRGB, ARGB, ARGB_Premultiplied})
            for (const int compression : {-1, 0, 9}) {
                SCOPED_TRACE(suffix.toStdString() + " " + std::to_string(format) + " at " + std::to_string(compression));
                VImage image = makeImage(37, 11, format, Channel8u, 5);
                if (format == ARGB_Premultiplied) // colour never above its alpha
                    image = makeImage(37, 11, ARGB, Channel8u, 5).convertScaled(ARGB_Premultiplied);
                FileWriteOptions options;
                options.compression = compression;
                ASSERT_TRUE(writeImageFile(image, path("ours" + suffix), options));
                ASSERT_TRUE(image.save(path("qts" + suffix)));
                VImage ours, qts;
                ASSERT_TRUE(ours.load(path("ours" + suffix)));
                ASSERT_TRUE(qts.load(path("qts" + suffix)));
                EXPECT_TRUE(ours.isEqual(qts));
            }
    // A cancelled write, or one into a missing folder, leaves what was there and says why.
    QFile::copy(path("ours.png"), path("old.png"));
    VProgress progress;
    progress.cancel();
    {
        const VProgressScope scope(&progress);
        EXPECT_FALSE(writeImageFile(makeImage(64, 300, XRGB, Channel8u), path("ours.png")));
    }
    EXPECT_EQ(bytesOf("ours.png"), bytesOf("old.png"));
    const VStatus missing = writeImageFile(makeImage(4, 4, XRGB, Channel8u), path("no/such/folder/x.png"));
    EXPECT_FALSE(missing);
    EXPECT_FALSE(missing.message().isEmpty());
    // A device that fills up under the encoder: a failed save naming the encoder's complaint.
    FileWriteOptions straight;
    straight.replaceWhenComplete = false;
    for (const char* full : {"/dev/full.png", "/dev/full.tif"}) {
        const QString name = QString::fromLatin1(full).section('.', 0, 0);
        if (!QFile::exists(name))
            continue;
        QFile::link(name, path(full + 5)); // the suffix picks the encoder
        const VStatus status = writeImageFile(makeImage(512, 512, XRGB, Channel8u, 3), path(full + 5), straight);
        EXPECT_FALSE(status);
        EXPECT_EQ(status.issue(), Issue::Saving) << full;
        const QString encoder = QString::fromLatin1(full).endsWith("png") ? "PNG: " : "TIFF: ";
        EXPECT_TRUE(status.reason().startsWith("failed to write to file. " + encoder)) << status.reason().toStdString();
    }
}

// Files whose headers promise a picture of width x height and carry no pixel data: a PNG (with the
// checksums its reader verifies, and an empty data stream) and a gray TIFF in one strip.
QByteArray pngClaiming(quint32 width, quint32 height)
{
    const auto be32 = [](quint32 v) {
        const char bytes[] = {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
        return QByteArray(bytes, 4);
    };
    const auto chunk = [&](const QByteArray& type, const QByteArray& data) {
        quint32 crc = 0xffffffffu;
        for (const char c : type + data) {
            crc ^= quint8(c);
            for (int k = 0; k < 8; ++k)
                crc = crc & 1 ? (crc >> 1) ^ 0xedb88320u : crc >> 1;
        }
        return be32(quint32(data.size())) + type + data + be32(~crc);
    };
    return QByteArray("\x89PNG\r\n\x1a\n", 8) +
           chunk("IHDR", be32(width) + be32(height) + QByteArray("\x08\x02\0\0\0", 5)) +
           chunk("IDAT", QByteArray("\x78\x9c\x03\0\0\0\0\x01", 8)) + chunk("IEND", {});
}

QByteArray tiffClaiming(quint32 width, quint32 height)
{
    const auto le = [](quint32 v, int bytes) { return QByteArray(reinterpret_cast<const char*>(&v), bytes); };
    const quint32 entries[][3] = {{256, 4, width}, {257, 4, height}, {258, 3, 8}, {259, 3, 1}, {262, 3, 1},
                                  {273, 4, 8},     {277, 3, 1},      {278, 4, height}, {279, 4, 0}};
    QByteArray tiff = QByteArray("II*\0", 4) + le(8, 4) + le(9, 2);
    for (const auto& e : entries)
        tiff += le(e[0], 2) + le(e[1], 2) + le(1, 4) + le(e[2], 4);
    return tiff + le(0, 4);
}

TEST_F(Files, HeadersPromisingMoreThanTheLimitAreRefusedUnreadNamingIt)
{
    // Qt's readers are held to the same limit, in whole MiB.
    EXPECT_EQ(QImageReader::allocationLimit(), int(imageSizeLimit() >> 20));
    const qint64 limit = imageSizeLimit();
    setImageSizeLimit(limit / 2 + 1);
    EXPECT_EQ(QImageReader::allocationLimit(), int(limit >> 21) + 1);
    setImageSizeLimit(limit);
    for (const auto& [name, bytes] : {std::pair{"huge.png", pngClaiming(100000, 100000)},
                                      std::pair{"huge.tif", tiffClaiming(100000, 100000)}}) {
        write(name, bytes);
        LogCapture log;
        VImage loaded;
        EXPECT_FALSE(loaded.load(path(name))) << name;
        const VImage read = readImageFile(path(name));
        for (const VStatus& status : {loaded.status(), read.status()})
            EXPECT_TRUE(status.message().contains("the image is 100000x100000")
                        && status.message().contains("over the size limit of 4.0 GiB (setImageSizeLimit raises it)"))
                << name << ": " << status.message().toStdString();
    }
}

TEST_F(Files, PreferBgrTakesEightBitColourPngStraightAndEverythingElseAsBefore)
{
    FileReadOptions bgr;
    bgr.preferBgr = true;
    const auto readBoth = [&](const QString& file) {
        return std::make_pair(readImageFile(file), readImageFile(file, bgr));
    };
    for (const Format format : {GrayScale, BGR, XRGB, ARGB})
        for (const bool qts : {false, true}) {
            SCOPED_TRACE(std::to_string(format) + (qts ? " by Qt" : " by libpng"));
            const VImage image = makeImage(37, 11, format, Channel8u, 5);
            const QString file = path(QString("card%1%2.png").arg(format).arg(qts));
            ASSERT_TRUE(qts ? image.save(file) : bool(writeImageFile(image, file)));
            const auto [usual, preferred] = readBoth(file);
            ASSERT_TRUE(usual.status() && preferred.status());
            const bool straight = usual.format() == XRGB;
            EXPECT_EQ(preferred.format(), straight ? BGR : usual.format());
            EXPECT_TRUE(preferred.isEqual(straight ? usual.convert(BGR, Channel8u) : usual));
        }
    // Other files come in as without it; a PNG cut short fails as it does without it.
    ASSERT_TRUE(colourCard(BGR, 64, 64).save(path("card.jpg")));
    ASSERT_TRUE(writeImageFile(colourCard(BGR, 64, 64), path("whole.png")));
    write("cut.png", bytesOf("whole.png").chopped(40));
    for (const QString name : {"card.jpg", "cut.png"}) {
        const auto [usual, preferred] = readBoth(path(name));
        EXPECT_EQ(bool(preferred.status()), bool(usual.status())) << name.toStdString();
        EXPECT_TRUE(preferred.isEqual(usual)) << name.toStdString();
    }
}

TEST_F(Files, RowsADamagedFileLeavesUnwrittenShowNoOtherPicture)
{
    // A BMP of 8 x 6 whose pixels stop after two rows: Qt's reader gives the picture all the same.
    QByteArray bmp = QByteArray::fromBase64("Qk3GAAAAAAAAADYAAAAoAAAACAAAAAYAAAABABgAAAAAAJAAAAA=");
    bmp.append(48, char(0x63));
    write("short.bmp", bmp);
    {
        VImage other(8, 6); // freed into the pool of buffers, of the size the file's picture takes
        std::memset(other.rawData(), 0xab, size_t(other.bytesPerLine()) * 6);
    }
    const VImage image = readImageFile(path("short.bmp"));
    ASSERT_TRUE(image.status());
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            ASSERT_NE(image.pixel(x, y)[0].toInt(), 0xab) << x << "," << y;
}

TEST_F(Files, FailuresLeaveAnEmptyImageWithTheReason)
{
    write("garbage.png", "not an image at all");
    ASSERT_TRUE(colourCard(BGR, 64, 64).save(path("good.png")));
    write("truncated.png", bytesOf("good.png").left(100));

    for (const QString& name : {QString("missing.png"), QString("garbage.png"), QString("truncated.png")}) {
        LogCapture log;
        VImage image = colourCard(XRGB);
        EXPECT_FALSE(image.load(path(name))) << name.toStdString();
        EXPECT_TRUE(image.isEmpty());
        EXPECT_TRUE(image.status().message().startsWith("Failed to load image from file " + path(name) + " "));
        ASSERT_EQ(log.count(), 1u);
        EXPECT_EQ(log.records()[0].issue, Issue::Loading);
    }
    EXPECT_FALSE(VImage::canLoad(path("garbage.png")));

    const qint64 limit = imageSizeLimit();
    setImageSizeLimit(1000);
    VImage big;
    EXPECT_FALSE(big.load(path("good.png"))) << "64 x 64 x 4 bytes is over a 1000-byte limit";
    setImageSizeLimit(limit);
    EXPECT_TRUE(big.load(path("good.png")));

    const VImage bad = failedImage(colourCard(BGR));
    LogCapture log;
    EXPECT_FALSE(bad.save(path("bad.png")));
    EXPECT_FALSE(makeImage(4, 4, YUV422, Channel16u).save(path("yuv.png")));
    EXPECT_FALSE(VImage().save(path("empty.png")));
    EXPECT_FALSE(colourCard(BGR).save(path("unknown.xyz")));
    const auto records = log.records();
    ASSERT_EQ(records.size(), 4u);
    EXPECT_EQ(records[0].text, "Can't save invalid image.");
    EXPECT_EQ(records[1].issue, Issue::Saving);
    EXPECT_TRUE(records[1].text.endsWith("Reason: conversion to nearest storable format failed."));
    EXPECT_TRUE(records[3].text.contains("Reason: failed to write to file."));
}

} // namespace
