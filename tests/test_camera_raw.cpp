// Camera raw files: sensor files written here, developed through LibRaw, and files that only look like one.
#include <vexa/imp/raw_files.h>

#include <QFile>
#include <QImage>
#include <QTemporaryDir>

#include <tiffio.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

using namespace VEXA;

namespace {

constexpr int sensorWidth = 64, sensorHeight = 48, blackLevel = 256, whiteLevel = 4095;

// A DNG of an RGGB mosaic, a DNG of one channel, or a camera maker's plain 16-bit gray TIFF of the same
// samples (which LibRaw opens too, taking it for a mosaic).
enum class Kind { Bayer, Monochrome, PlainGray };

// 12-bit samples in 16 bits: below a dim top band, the left half lit at 40% on the red sites and the right
// half on the blue ones, every other site at 5%. The colour matrix is XYZ to linear sRGB: the camera sees
// sRGB's primaries, so daylight colours are the written ones; as shot, a white gave red half as much, so
// red counts twice. Only `rows` rows of pixels are written.
bool writeSensor(const QString& path, Kind kind, int rows = sensorHeight, int orientation = ORIENTATION_TOPLEFT)
{
    TIFF* tif = TIFFOpen(QFile::encodeName(path).constData(), "w");
    if (!tif)
        return false;
    const uint8_t version[4] = {1, 4, 0, 0}, rggb[4] = {0, 1, 1, 2};
    const uint16_t repeat[2] = {2, 2};
    const uint32_t white[1] = {whiteLevel};
    const float neutral[3] = {0.5f, 1, 1}, black[1] = {blackLevel}, xyzToCamera[9] = {
        3.2404542f, -1.5371385f, -0.4985314f, -0.9692660f, 1.8760108f, 0.0415560f, 0.0556434f, -0.2040259f, 1.0572252f};
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, sensorWidth);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, sensorHeight);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 16);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, sensorHeight);
    TIFFSetField(tif, TIFFTAG_MAKE, "Vexa");
    TIFFSetField(tif, TIFFTAG_ORIENTATION, orientation);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC,
                 kind == Kind::Bayer        ? PHOTOMETRIC_CFA
                 : kind == Kind::Monochrome ? 34892 /* linear raw */
                                            : PHOTOMETRIC_MINISBLACK);
    if (kind != Kind::PlainGray) {
        TIFFSetField(tif, TIFFTAG_DNGVERSION, version);
        TIFFSetField(tif, TIFFTAG_UNIQUECAMERAMODEL, "Vexa Sensor");
        TIFFSetField(tif, TIFFTAG_BLACKLEVEL, 1, black);
        TIFFSetField(tif, TIFFTAG_WHITELEVEL, 1, white);
    }
    if (kind == Kind::Bayer) {
        TIFFSetField(tif, TIFFTAG_CFAREPEATPATTERNDIM, repeat);
        TIFFSetField(tif, TIFFTAG_CFAPATTERN, 4, rggb);
        TIFFSetField(tif, TIFFTAG_COLORMATRIX1, 9, xyzToCamera);
        TIFFSetField(tif, TIFFTAG_ASSHOTNEUTRAL, 3, neutral);
    }
    std::vector<uint16_t> row(sensorWidth);
    int y = 0;
    for (; y < rows; ++y) {
        for (int x = 0; x < sensorWidth; ++x) {
            const int site = (y & 1) * 2 + (x & 1); // 0 red, 3 blue
            const bool lit = y >= sensorHeight / 6 && site == (x < sensorWidth / 2 ? 0 : 3);
            row[x] = uint16_t(blackLevel + (whiteLevel - blackLevel) * (lit ? 40 : 5) / 100);
        }
        if (TIFFWriteScanline(tif, row.data(), uint32_t(y)) != 1)
            break;
    }
    TIFFClose(tif);
    return y == rows;
}

// Component c (0 blue, 1 green, 2 red) at (x, y) of a BGR 16u image.
int at(const VImage& image, int x, int y, int c)
{
    return reinterpret_cast<const quint16*>(image.rawData() + qint64(y) * image.bytesPerLine())[3 * x + c];
}

class RawFile : public ::testing::Test {
protected:
    static QString file(const char* name)
    {
        static const QTemporaryDir dir;
        return dir.filePath(QLatin1String(name));
    }
    // Every file the tests read, written once.
    static void SetUpTestSuite()
    {
        const struct {
            const char* name;
            Kind kind;
            int rows = sensorHeight;
            int orientation = ORIENTATION_TOPLEFT;
        } sensors[] = {{"sensor.dng", Kind::Bayer},
                       {"short.dng", Kind::Bayer, sensorHeight / 2},                    // pixels cut off
                       {"turned.dng", Kind::Bayer, sensorHeight, ORIENTATION_RIGHTTOP}, // shot in portrait
                       {"mono.dng", Kind::Monochrome},
                       {"gray.tif", Kind::PlainGray},
                       {"gray.dng", Kind::PlainGray},
                       {"gray.nef", Kind::PlainGray}};
        for (const auto& s : sensors)
            ASSERT_TRUE(writeSensor(file(s.name), s.kind, s.rows, s.orientation)) << s.name;
        QImage plain(16, 16, QImage::Format_RGB32);
        plain.fill(Qt::blue);
        ASSERT_TRUE(plain.save(file("plain.tif"), "TIFF") && plain.save(file("plain.png"), "PNG") &&
                    plain.save(file("png.dng"), "PNG"));
        QFile sensor(file("sensor.dng"));
        ASSERT_TRUE(sensor.open(QIODevice::ReadOnly));
        const QByteArray whole = sensor.readAll();
        QByteArray noise(4096, '\0');
        std::generate(noise.begin(), noise.end(), std::mt19937(7));
        for (const auto& [name, bytes] : {std::pair{"sensor.bin", whole}, std::pair{"truncated.dng", whole.left(3000)},
                                          std::pair{"noise.dng", noise}}) {
            QFile out(file(name));
            ASSERT_TRUE(out.open(QIODevice::WriteOnly) && out.write(bytes) == bytes.size());
        }
    }
};

TEST_F(RawFile, DevelopsTheMosaicAtFullSizeBlueFirstTopRowFirst)
{
    const int left = sensorWidth / 4, right = 3 * sensorWidth / 4, middle = sensorHeight / 2;
    const RawReadOptions options[] = {{true, false}, {true, true}, {false, true}};
    VImage daylight, asShot, curve, *images[] = {&daylight, &asShot, &curve};
    for (int i = 0; i < 3; ++i) {
        const VImage& image = *images[i] = readRawFile(file("sensor.dng"), options[i]);
        ASSERT_TRUE(image.status()) << image.status().message().toStdString();
        EXPECT_EQ(image.size(), QSize(sensorWidth, sensorHeight));
        EXPECT_EQ(image.format(), BGR);
        EXPECT_EQ(image.channelType(), Channel16u);
        EXPECT_GT(at(image, left, middle, 2), 2 * at(image, left, middle, 0)) << i;
        EXPECT_GT(at(image, right, middle, 0), 2 * at(image, right, middle, 2)) << i;
        EXPECT_LT(2 * at(image, left, 2, 2), at(image, left, middle, 2)) << i << ": the dim band is on top";
    }
    EXPECT_NEAR(at(daylight, left, middle, 2), 0.40 * 65535, 0.04 * 65535) << "linear keeps the sensor's level";
    EXPECT_NEAR(at(asShot, left, middle, 2), 0.80 * 65535, 0.04 * 65535);
    EXPECT_GT(at(curve, left, middle, 1), at(asShot, left, middle, 1) + 1000) << "the curve lifts mid-tones";
}

TEST_F(RawFile, OneChannelComesInAsGrayAtItsLevels)
{
    const VImage image = readRawFile(file("mono.dng"), RawReadOptions{true, true});
    ASSERT_TRUE(image.status()) << image.status().message().toStdString();
    for (int x : {0, 1, 2, 5, 40, sensorWidth - 1}) { // row 20: the "red" sites lit on the left
        EXPECT_NEAR(at(image, x, 20, 0), (x % 2 == 0 && x < sensorWidth / 2 ? 0.40 : 0.05) * 65535, 0.02 * 65535) << x;
        EXPECT_TRUE(at(image, x, 20, 0) == at(image, x, 20, 1) && at(image, x, 20, 1) == at(image, x, 20, 2)) << x;
    }
}

TEST_F(RawFile, DamagedOrForeignFilesFailWithAReason)
{
    for (const char* name : {"truncated.dng", "short.dng", "noise.dng", "png.dng", "missing.dng", ""}) {
        const VImage image = readRawFile(file(name)); // "": the folder
        EXPECT_FALSE(image.status()) << name;
        EXPECT_FALSE(image.status().message().isEmpty()) << name;
        EXPECT_TRUE(image.isEmpty()) << name;
    }
}

TEST_F(RawFile, DevelopingOverTheSizeLimitIsRefusedThoughThePictureWouldFit)
{
    const qint64 limit = imageSizeLimit();
    // The picture takes 6 bytes a pixel; developing it, 16 (samples, LibRaw's four components, the picture).
    setImageSizeLimit(qint64(sensorWidth) * sensorHeight * 16 - 1);
    const VImage image = readRawFile(file("sensor.dng"));
    setImageSizeLimit(limit);
    EXPECT_TRUE(image.isEmpty());
    EXPECT_TRUE(image.status().message().contains(QLatin1String("size limit")))
        << image.status().message().toStdString();
}

// What the header says is what developing gives, turned upright; files LibRaw cannot open have no size.
TEST_F(RawFile, TheHeaderTellsTheDevelopedSize)
{
    for (const char* name : {"sensor.dng", "turned.dng", "mono.dng"})
        EXPECT_EQ(rawImageSize(file(name)), readRawFile(file(name)).size()) << name;
    EXPECT_EQ(rawImageSize(file("turned.dng")), QSize(sensorHeight, sensorWidth));
    for (const char* name : {"noise.dng", "png.dng", "missing.dng"})
        EXPECT_FALSE(rawImageSize(file(name)).isValid()) << name;
}

TEST_F(RawFile, OnlyDngsAndCameraSuffixesCountAsRaw)
{
    const struct { const char* name; bool raw; } cases[] = {
        {"sensor.dng", true}, {"sensor.bin", true}, // the DNG version is in the contents
        {"gray.tif", false},  {"gray.dng", false},  {"gray.nef", true}, // LibRaw opens all three
        {"plain.tif", false}, {"plain.png", false}, {"missing.nef", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(isRawFile(file(c.name)), c.raw) << c.name;
}

} // namespace
