// A small client of the installed library. It prints what the library knows of its pixel formats, builds
// a gray test card, counts its non-zero pixels inside a region, crops it, and writes a report to a file in
// the directory given on the command line (default: the current one).
#include <vexa/Vexa.h>

#include <QDir>
#include <QFile>
#include <QTextStream>

#include <cstdio>

namespace {

// Vertical bars: column x holds x % 16 * 17, so every 16th column is black.
VImage testCard(int width, int height)
{
    VImage image;
    image.create(width, height, VEXA::GrayScale, VEXA::Channel8u, VEXA::OriginTopLeft, VEXA::RowsAlignNone);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.rawData()[y * image.bytesPerLine() + x] = static_cast<unsigned char>(x % 16 * 17);
    image.resetHash();
    return image;
}

} // namespace

int main(int argc, char** argv)
{
    const QString outputDir = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QDir::currentPath();
    QString report;
    QTextStream out(&report);
    out << "Pixel formats:\n";
    for (VEXA::Format f : VEXA::allFormats()) {
        const VEXA::FormatInfo info = VEXA::formatInfo(f);
        out << "  " << int(f) << ' ' << QString::fromStdString(info.name) << ", " << info.channels << " components\n";
    }
    out << "Channel types:\n";
    for (VEXA::Channel c : VEXA::allChannels()) {
        const VEXA::ChannelInfo info = VEXA::channelInfo(c);
        out << "  " << int(c) << ' ' << QString::fromStdString(info.name) << ", " << info.bits << " bits\n";
    }

    VImage card = testCard(640, 480);
    int nonZero = 0;
    VStatus status = VEXA::countNonZero(card, &nonZero);
    out << "Test card " << card.width() << "x" << card.height() << ", MD5 " << card.hash().toHex() << "\n";
    out << "  non-zero pixels: " << nonZero << " (" << (status ? "ok" : status.message()) << ")\n";
    card.setRoi(QRect(0, 0, 32, 10));
    status = VEXA::countNonZero(card, &nonZero);
    out << "  non-zero pixels in the 32x10 corner: " << nonZero << "\n";
    const VImage crop = card.cropByRect(QRect(600, 470, 100, 100));
    out << "  crop reaching past the corner: " << crop.width() << "x" << crop.height() << "\n";
    status = VEXA::countNonZero(VImage(), &nonZero);
    out << "  counting an empty image: " << status.message() << "\n";
    out.flush();
    std::fputs(report.toUtf8().constData(), stdout);

    if (!QDir().mkpath(outputDir)) {
        std::fprintf(stderr, "cannot create %s\n", qPrintable(outputDir));
        return 1;
    }
    QFile file(QDir(outputDir).filePath(QStringLiteral("report.txt")));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(report.toUtf8()) < 0) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(file.fileName()));
        return 1;
    }
    std::printf("report written to %s\n", qPrintable(QFileInfo(file).absoluteFilePath()));
    return 0;
}
