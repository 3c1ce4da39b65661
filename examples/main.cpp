// A small client of the installed library.
//
//   vexa_example OUTPUT_DIR [IMAGE]
//
// Loads IMAGE (or, without one, draws a colour test card and saves it as card.png), prints its facts,
// converts it to gray, counts the gray pixels above black in the centre, and saves gray.png and the
// library's own packed form, gray.vexa, which it reads back to check. Then it sharpens the picture with an
// unsharp mask (sharp.png) and outlines the gray image with a morphological gradient (edges.png).
#include <vexa/Vexa.h>

#include <QDir>
#include <QFile>

#include <cstdio>

namespace {

// Hue bands across, brightness down; a dark frame two pixels wide.
VImage testCard(int width, int height)
{
    VImage card;
    card.create(width, height, VEXA::XRGB, VEXA::Channel8u, VEXA::OriginBottomLeft, VEXA::RowsAlignNone);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const bool frame = x < 2 || y < 2 || x >= width - 2 || y >= height - 2;
            const QColor c = frame ? QColor(10, 10, 10) : QColor::fromHsv(360 * x / width, 220, 255 - 200 * y / height);
            card.setPixelColor(x, y, c);
        }
    return card;
}

void describe(const char* name, const VImage& image)
{
    std::printf("%-6s %dx%d %s %s, MD5 %s\n", name, image.width(), image.height(),
                VEXA::formatInfo(image.format()).name.c_str(), VEXA::channelInfo(image.channelType()).name.c_str(),
                image.hash().toHex().constData());
}

int fail(const VStatus& status)
{
    std::fprintf(stderr, "failed: %s\n", qPrintable(status.message()));
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s OUTPUT_DIR [IMAGE]\n", argv[0]);
        return 2;
    }
    const QDir out(QString::fromLocal8Bit(argv[1]));
    if (!QDir().mkpath(out.path()))
        return fail(VStatus(VLog::errorStream("Example", "main", "main", __LINE__, Issue::None) << "cannot create " << out.path()));

    QString input = argc > 2 ? QString::fromLocal8Bit(argv[2]) : out.filePath("card.png");
    if (argc <= 2 && !testCard(320, 200).save(input))
        return fail(VStatus(VLog::errorStream("Example", "main", "main", __LINE__, Issue::None) << "cannot save " << input));

    VImage picture;
    if (!picture.load(input))
        return fail(picture.status());
    describe("input", picture);

    const VImage gray = picture.convert(VEXA::GrayScale, VEXA::Channel8u);
    if (gray.isEmpty())
        return fail(picture.status());
    describe("gray", gray);

    VImage centre = gray;
    centre.setRoi(QRect(gray.width() / 4, gray.height() / 4, gray.width() / 2, gray.height() / 2));
    int lit = 0;
    if (const VStatus status = VEXA::countNonZero(centre, &lit); !status)
        return fail(status);
    std::printf("centre %d of %d pixels above black\n", lit, (gray.width() / 2) * (gray.height() / 2));

    const QString grayFile = out.filePath("gray.png");
    if (!gray.save(grayFile))
        return 1;
    QFile packed(out.filePath("gray.vexa"));
    if (!packed.open(QIODevice::WriteOnly) || packed.write(gray.toByteArray()) < 0)
        return fail(VStatus(VLog::errorStream("Example", "main", "main", __LINE__, Issue::None) << "cannot write " << packed.fileName()));
    packed.close();
    packed.open(QIODevice::ReadOnly);
    const VImage unpacked = VImage::fromByteArray(packed.readAll());
    if (!unpacked.isEqual(gray))
        return fail(unpacked.status());
    std::printf("output %s, %s (read back equal)\n", qPrintable(grayFile), qPrintable(packed.fileName()));

    // Differences of luminance 2 to 80 from the 5 x 5 blur are doubled; flat areas and hard edges stay.
    VImage sharp;
    if (const VStatus status = VEXA::sharpImage(picture.convertFast(VEXA::XRGB, VEXA::Channel8u), &sharp, 5, 2.0, 2, 80); !status)
        return fail(status);
    VImage edges;
    if (const VStatus status = VEXA::morphGradient(gray, &edges, VConvKernel(3, 3, 1, 1, VEXA::ConvKernelCross), 1); !status)
        return fail(status);
    if (!sharp.save(out.filePath("sharp.png")) || !edges.save(out.filePath("edges.png")))
        return 1;
    describe("sharp", sharp);
    describe("edges", edges);
    return 0;
}
