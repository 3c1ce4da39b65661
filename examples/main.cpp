// A small client of the installed library: it prints what the library knows of its pixel formats and
// writes the same report to a file in the directory given on the command line (default: the current one).
#include <vexa/Vexa.h>

#include <QDir>
#include <QFile>
#include <QTextStream>

#include <cstdio>

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
        out << "  " << int(c) << ' ' << QString::fromStdString(info.name) << ", " << info.bits << " bits, "
            << info.min << " .. " << info.max << '\n';
    }
    out.flush();
    std::fputs(report.toUtf8().constData(), stdout);

    if (!QDir().mkpath(outputDir)) {
        std::fprintf(stderr, "cannot create %s\n", qPrintable(outputDir));
        return 1;
    }
    QFile file(QDir(outputDir).filePath(QStringLiteral("formats.txt")));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(report.toUtf8()) < 0) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(file.fileName()));
        return 1;
    }
    std::printf("report written to %s\n", qPrintable(QFileInfo(file).absoluteFilePath()));
    return 0;
}
