// The tool's command lines, from random argument vectors: every command and option, values well and badly
// formed, files that exist (small images of several kinds, a folder of shots) and files that do not. Any
// outcome but one of the tool's exit codes (0, 1, 2) is a finding, as is any sanitizer report.
//
// The input is the arguments one per line. Paths stay inside a work folder of the target's own (the
// current folder while it runs): an absolute path or one that climbs out makes the input uninteresting,
// and whatever a run writes there is removed after it.
#include "fuzz_common.h"

#include "cli.h"

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QRegularExpression>
#include <QSet>

#include <unistd.h>

namespace {

QString workFolder()
{
    static const QString folder = [] {
        const QString path = QDir::temp().filePath(QStringLiteral("vexa_fuzz_tool_%1").arg(getpid()));
        QDir(path).removeRecursively();
        QDir().mkpath(path + QStringLiteral("/shots"));
        QDir::setCurrent(path);
        // Inputs of every kind the commands take: colour and gray, 8 and 16 bits, JPEG, and three shots.
        QImage colour(24, 16, QImage::Format_RGB32), deep(24, 16, QImage::Format_Grayscale16);
        for (int y = 0; y < 16; ++y)
            for (int x = 0; x < 24; ++x) {
                colour.setPixel(x, y, qRgb(x * 10, y * 15, (x * y) % 256));
                reinterpret_cast<quint16*>(deep.scanLine(y))[x] = quint16(x * 2000 + y * 700);
            }
        colour.save(QStringLiteral("a.png"));
        colour.save(QStringLiteral("b.jpg"));
        deep.save(QStringLiteral("g16.png"));
        for (int i = 0; i < 3; ++i)
            colour.scaled(24 / (i + 1), 16 / (i + 1)).scaled(24, 16).save(QStringLiteral("shots/shot_%1.png").arg(i));
        return path;
    }();
    return folder;
}

// Everything in the work folder that a run added.
void removeOutputs(const QSet<QString>& kept)
{
    QDir dir(workFolder());
    for (const QString& name : dir.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden))
        if (!kept.contains(name))
            QFileInfo(dir.filePath(name)).isDir() ? (void)QDir(dir.filePath(name)).removeRecursively()
                                                 : (void)dir.remove(name);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzzSetUp();
    static int argc = 1;
    static char name[] = "vexa";
    static char* argv[] = {name, nullptr};
    static QGuiApplication* app = [] {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        // Small images only, so that a large size asked for (a rendered series, a resize) fails fast.
        VEXA::setImageSizeLimit(1 << 20);
        return new QGuiApplication(argc, argv);
    }();
    (void)app;
    static const QSet<QString> kept = [] {
        QDir dir(workFolder());
        const QStringList names = dir.entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
        return QSet<QString>(names.begin(), names.end());
    }();
    if (size > 2048)
        return -1;
    const QStringList arguments = QString::fromUtf8(bytesOf(data, size)).split(QLatin1Char('\n'));
    if (arguments.size() > 32)
        return -1;
    for (const QString& a : arguments)
        if (a.contains(QLatin1String("..")) || a.contains(QLatin1Char('~')) ||
            a.contains(QRegularExpression(QStringLiteral("(^|=)/"))))
            return -1;
    const int code = vexatool::runTool(arguments);
    FUZZ_CHECK(code >= 0 && code <= 2);
    removeOutputs(kept);
    return 0;
}
