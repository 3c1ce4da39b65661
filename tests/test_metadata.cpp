// Image-file metadata through exiv2, and pixels turned upright for an EXIF orientation.
#include "support/images.h"

#include <vexa/imp/file_metadata.h>
#include <vexa/imp/image_files.h>
#include <vexa/imp/qimage_support.h>

#include <QColorSpace>
#include <QFile>
#include <QImageReader>
#include <QProcess>
#include <QTemporaryDir>

#include <exiv2/exiv2.hpp>
#include <gtest/gtest.h>

#include <tuple>

using namespace VEXA;

namespace {

const QByteArray p3 = QColorSpace(QColorSpace::DisplayP3).iccProfile();

// Every pixel its own colour, 5 x 3: any turn or mirror shows.
QImage card()
{
    QImage image(5, 3, QImage::Format_RGB32);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x)
            image.setPixel(x, y, qRgb(50 * x, 120 * y, 250 - 20 * x - 60 * y));
    return image;
}

QByteArray contents(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

std::string tag(const QByteArray& exif, const char* key)
{
    Exiv2::ExifData data;
    Exiv2::ExifParser::decode(data, reinterpret_cast<const Exiv2::byte*>(exif.constData()), uint32_t(exif.size()));
    const auto it = data.findKey(Exiv2::ExifKey(key));
    return it == data.end() ? std::string("(none)") : it->toString();
}

// A camera's JPEG, its metadata put in by exiv2 itself: turned, with a thumbnail and an outdated pixel width.
QString cameraJpeg(const QTemporaryDir& dir)
{
    const QString path = dir.filePath("camera.jpg");
    card().save(path);
    auto image = Exiv2::ImageFactory::open(path.toStdString());
    Exiv2::ExifData exif;
    exif["Exif.Image.Make"] = "VexaCam";
    exif["Exif.Image.Model"] = "V1";
    exif["Exif.Image.Orientation"] = uint16_t(6);
    exif["Exif.Photo.DateTimeOriginal"] = "2024:05:06 07:08:09";
    exif["Exif.Photo.PixelXDimension"] = uint32_t(4000);
    Exiv2::ExifThumb(exif).setJpegThumbnail(path.toStdString());
    image->setExifData(exif);
    Exiv2::DataBuf profile(reinterpret_cast<const Exiv2::byte*>(p3.constData()), long(p3.size()));
    image->setIccProfile(profile);
    image->writeMetadata();
    return path;
}

TEST(FileMetadata, ReadsACamerasFileAndEveryFormatKeepsItWithTheAppliedOrientationOne)
{
    QTemporaryDir dir;
    VStatus status;
    const FileMetadata camera = readFileMetadata(cameraJpeg(dir), &status);
    ASSERT_TRUE(status) << status.message().toStdString();
    EXPECT_EQ(camera.orientation, 6);
    EXPECT_EQ(camera.iccProfile, p3);
    EXPECT_EQ(tag(camera.exif, "Exif.Photo.DateTimeOriginal"), "2024:05:06 07:08:09");
    for (const char* suffix : {"jpg", "png", "tif", "webp", "embedded.png"}) {
        const QString path = dir.filePath(QStringLiteral("copy.") + suffix);
        if (path.endsWith(QLatin1String("embedded.png"))) {
            // The block prepared as writeFileMetadata would write it, in PNG's eXIf chunk: no rewrite.
            FileWriteOptions options;
            options.iccProfile = camera.iccProfile;
            options.exif = exifForFile(camera, true, 5, 3);
            VImage pixels;
            ASSERT_TRUE(fromQImage(card(), &pixels) && embedsExif(path) && writeImageFile(pixels, path, options));
            EXPECT_TRUE(contents(path).contains("eXIf"));
        } else {
            ASSERT_TRUE(card().save(path) && holdsMetadata(path)) << suffix;
            status = writeFileMetadata(path, camera, true);
            ASSERT_TRUE(status) << suffix << ": " << status.message().toStdString();
        }
        const FileMetadata back = readFileMetadata(path);
        EXPECT_EQ(back.orientation, 1) << suffix;
        EXPECT_EQ(tag(back.exif, "Exif.Image.Make"), "VexaCam") << suffix;
        EXPECT_EQ(tag(back.exif, "Exif.Photo.PixelXDimension"), "5") << suffix << ": the file's own width";
        EXPECT_EQ(tag(back.exif, "Exif.Thumbnail.JPEGInterchangeFormat"), "(none)") << suffix;
        EXPECT_EQ(back.iccProfile, p3) << suffix;
        const QImage reloaded(path); // Qt's own readers: the file is sound and the profile found
        EXPECT_EQ(reloaded.size(), QSize(5, 3)) << suffix;
        EXPECT_EQ(reloaded.colorSpace().iccProfile(), p3) << suffix;
    }
    EXPECT_FALSE(holdsMetadata("x.bmp"));
    EXPECT_TRUE(writeFileMetadata(dir.filePath("absent.bmp"), camera, false)) << "formats without metadata are skipped";
}

#ifdef VEXA_TOOL_PATH
// What a user of the tool sees: the photo comes out upright, with its EXIF and profile, as the first
// input's; --keep-orientation keeps the pixels and the tag as stored.
TEST(FileMetadata, TheToolCarriesTheFirstInputsMetadataUpright)
{
    QTemporaryDir dir;
    const QString camera = cameraJpeg(dir);
    for (const auto& [extra, size, orientation] : {std::tuple<QStringList, QSize, int>{{}, {3, 5}, 1},
                                                   {{"--keep-orientation"}, {5, 3}, 6}})
        for (const char* name : {"out.png", "out.jpg"}) {
            const QString out = dir.filePath(name);
            QProcess tool;
            tool.start(VEXA_TOOL_PATH, QStringList{"convert", camera, "-o", out} + extra);
            ASSERT_TRUE(tool.waitForFinished(60000) && tool.exitCode() == 0) << tool.readAllStandardError().toStdString();
            const FileMetadata kept = readFileMetadata(out);
            EXPECT_EQ(QImage(out).size(), size) << name;
            EXPECT_EQ(kept.orientation, orientation) << name;
            EXPECT_EQ(tag(kept.exif, "Exif.Image.Make"), "VexaCam") << name;
            EXPECT_EQ(kept.iccProfile, p3) << name;
        }
}
#endif

TEST(OrientedImage, TurnsAsQtsReaderDoesForEachOrientation)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("turned.jpg");
    for (int orientation = 1; orientation <= 8; ++orientation) {
        ASSERT_TRUE(card().save(path, nullptr, 100));
        FileMetadata metadata;
        metadata.orientation = orientation;
        ASSERT_TRUE(writeFileMetadata(path, metadata, false));
        VImage stored;
        ASSERT_TRUE(stored.load(path) && stored.size() == QSize(5, 3)) << "loading must not turn by itself";
        QImageReader reader(path);
        reader.setAutoTransform(true);
        EXPECT_EQ(toQImage(orientedImage(stored, orientation)), reader.read().convertToFormat(QImage::Format_RGB32))
            << orientation;
    }
}

TEST(OrientedImage, MovesWholePixelsOfEverySizeAndKeepsTheOrigin)
{
    const int inverse[] = {0, 1, 2, 3, 4, 5, 8, 7, 6};
    const std::pair<Format, Channel> pairs[] = {// pixels of 1, 2, 3, 4, 6, 8, 12 and 16 bytes
                                                {GrayScale, Channel8u}, {GrayScale, Channel16u}, {BGR, Channel8u},
                                                {XRGB, Channel8u},      {BGR, Channel16u},       {ARGB, Channel16u},
                                                {BGR, Channel32f},      {ARGB, Channel32f}};
    for (const auto& [f, c] : pairs)
        for (Origin origin : allOrigins())
            for (int orientation = 2; orientation <= 8; ++orientation) {
                const VImage image = makeImage(7, 4, f, c, orientation, origin);
                const VImage turned = orientedImage(image, orientation);
                ASSERT_EQ(turned.size(), orientation >= 5 ? QSize(4, 7) : QSize(7, 4));
                EXPECT_EQ(turned.origin(), origin);
                EXPECT_TRUE(sameRoiBytes(orientedImage(turned, inverse[orientation]), image))
                    << f << "/" << c << " " << orientation;
            }
    const VImage yuv = makeImage(4, 2, YUV422, Channel8u);
    EXPECT_TRUE(orientedImage(yuv, 1).isEqual(yuv));
    EXPECT_FALSE(orientedImage(yuv, 6).status());
    EXPECT_TRUE(orientedImage(yuv, 6).isEmpty());
}

TEST(FileMetadata, DamagedUnknownOrMissingFilesFailWithoutMetadata)
{
    QTemporaryDir dir;
    const QString seed = cameraJpeg(dir);
    const QByteArray jpeg = contents(seed);
    const qsizetype exif = jpeg.indexOf(QByteArray("Exif\0\0", 6));
    ASSERT_GT(exif, 0);
    const VImage noise = makeImage(4000, 1, GrayScale, Channel8u);
    const std::pair<const char*, QByteArray> cases[] = {
        {"header.jpg", QByteArray(jpeg).replace(exif + 6, 4, "XXXX")},
        {"entries.jpg", QByteArray(jpeg).replace(exif + 14, 2, "\xff\xff")}, // 65535 entries in IFD0
        {"cut.jpg", jpeg.left(exif + 40)},
        {"random.jpg", QByteArray(reinterpret_cast<const char*>(noise.rawData()), 4000)},
        {"missing.jpg", QByteArray()},
    };
    for (const auto& [name, bytes] : cases) {
        const QString path = dir.filePath(name);
        QFile file(path);
        ASSERT_TRUE(bytes.isEmpty() || (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size()));
        file.close();
        VStatus status;
        EXPECT_TRUE(readFileMetadata(path, &status).isEmpty()) << name;
        EXPECT_FALSE(status) << name;
        EXPECT_FALSE(status.message().contains('\n')) << name;
    }
    EXPECT_FALSE(writeFileMetadata(dir.filePath("random.jpg"), readFileMetadata(seed), false));
    FileMetadata garbage;
    garbage.exif = QByteArray("II*\0\x08\0\0\0\xff\xff", 10);
    EXPECT_FALSE(writeFileMetadata(seed, garbage, false));
    EXPECT_EQ(contents(seed), jpeg) << "a failed write leaves the file as it was";
}

} // namespace
