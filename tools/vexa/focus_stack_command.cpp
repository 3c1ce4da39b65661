// vexa focus-stack SHOT... -o OUT: shots merged one by one by VImageBlender.
#include "cli.h"
#include "image_io.h"

#include <vexa/imp/VImageBlender.h>

#include <QElapsedTimer>
#include <QFileInfo>
#include <QTextStream>

#include <array>
#include <sys/resource.h>

namespace vexatool {

namespace {

struct Named {
    const char* name;
    int value;
};

constexpr std::array<Named, 5> kMethods{{
    {"pyramid", VImageBlender::MultifocusPyramid},
    {"max", VImageBlender::MultifocusMaxSharpness},
    {"weighted", VImageBlender::MultifocusWeighted},
    {"weighted-all", VImageBlender::MultifocusWeightedAll},
    {"depth-map", VImageBlender::MultifocusDepthMap},
}};

enum Align { AlignNone, AlignKeypoints, AlignLocal };
constexpr std::array<Named, 3> kAligns{{{"none", AlignNone}, {"keypoints", AlignKeypoints}, {"local", AlignLocal}}};

template <size_t N>
int lookUp(const std::array<Named, N>& table, const QString& text, const char* what)
{
    QStringList known;
    for (const Named& entry : table) {
        if (text == QLatin1String(entry.name))
            return entry.value;
        known << QLatin1String(entry.name);
    }
    usageError(QStringLiteral("unknown %1 '%2' (known: %3)").arg(QLatin1String(what), text, known.join(", ")));
}

double peakRssMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024.0; // kilobytes on Linux
}

QString seconds(qint64 nanoseconds) { return QString::number(nanoseconds / 1e9, 'f', 3); }

} // namespace

int focusStackCommand(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Merges shots of one scene, each focused at another depth, into one image sharp everywhere. "
                       "The shots are read one at a time; they must all be of one size."));
    parser.addPositionalArgument(QStringLiteral("shots"), QStringLiteral("The shots, two or more."),
                                 QStringLiteral("SHOT..."));
    const QCommandLineOption output({QStringLiteral("o"), QStringLiteral("output")},
                                    QStringLiteral("Write the merged image to FILE; its suffix picks the format."),
                                    QStringLiteral("FILE"));
    const QCommandLineOption method(QStringLiteral("method"),
                                    QStringLiteral("How to merge: pyramid, max (the sharpest shot per pixel; the "
                                                   "default), weighted, weighted-all or depth-map."),
                                    QStringLiteral("METHOD"), QStringLiteral("max"));
    const QCommandLineOption align(QStringLiteral("align"),
                                   QStringLiteral("How to line each shot up with the merge so far: none (the "
                                                  "default), keypoints (a homography) or local (local shifts)."),
                                   QStringLiteral("MODE"), QStringLiteral("none"));
    const QCommandLineOption depthMap(QStringLiteral("depth-map"),
                                      QStringLiteral("With --method depth-map: also write the index of the shot "
                                                     "each pixel came from, as 16-bit gray, to FILE."),
                                      QStringLiteral("FILE"));
    const QCommandLineOption json(QStringLiteral("json"),
                                  QStringLiteral("Print the run's sizes, times and peak memory as one JSON object."));
    parser.addOptions({output, method, align, depthMap, json});
    if (!parseCommandLine(parser, QStringLiteral("focus-stack"), arguments))
        return ExitOk;

    // The whole command line is checked before any pixel is read.
    const QString methodName = parser.value(method);
    const QString alignName = parser.value(align);
    const auto multifocus = VImageBlender::MultifocusMethod(lookUp(kMethods, methodName, "method"));
    const int alignment = lookUp(kAligns, alignName, "alignment");
    const QStringList shots = parser.positionalArguments();
    if (shots.isEmpty())
        usageError(QStringLiteral("no shots given"));
    if (shots.size() == 1)
        usageError(QStringLiteral("at least two shots are needed"));
    if (!parser.isSet(output))
        usageError(QStringLiteral("no output file: give one with -o FILE"));
    const QString outputFile = parser.value(output);
    if (!canWriteFormat(outputFile))
        usageError(QStringLiteral("%1: no image format to write for this suffix").arg(outputFile));
    const QString depthFile = parser.value(depthMap);
    if (parser.isSet(depthMap)) {
        if (multifocus != VImageBlender::MultifocusDepthMap)
            usageError(QStringLiteral("--depth-map needs --method depth-map"));
        if (!canWriteFormat(depthFile))
            usageError(QStringLiteral("%1: no image format to write for this suffix").arg(depthFile));
    }
    for (const QString& shot : shots)
        if (!QFileInfo::exists(shot))
            runtimeError(QStringLiteral("%1: no such file").arg(shot));

    QElapsedTimer total;
    total.start();
    QElapsedTimer clock;
    qint64 readTime = 0;
    qint64 mergeTime = 0;
    qint64 writeTime = 0;
    QSize size;
    VImage merged;
    VImage depth;
    {
        // The blender's running state goes before the result is written.
        VImageBlender blender(multifocus, alignment == AlignKeypoints, alignment == AlignLocal);
        for (int i = 0; i < shots.size(); ++i) {
            const QString& name = shots.at(i);
            const QString step = QStringLiteral("[%1/%2] ").arg(i + 1).arg(shots.size());
            progress(step + QStringLiteral("reading ") + name);
            clock.start();
            const VImage shot = loadXrgb(name);
            readTime += clock.nsecsElapsed();
            if (i == 0)
                size = shot.size();
            if (shot.size() != size)
                runtimeError(QStringLiteral("%1: %2x%3, but the first shot is %4x%5")
                                 .arg(name)
                                 .arg(shot.width())
                                 .arg(shot.height())
                                 .arg(size.width())
                                 .arg(size.height()));
            progress(step + QStringLiteral("merging ") + name);
            clock.start();
            const bool added = blender.addImage(shot);
            mergeTime += clock.nsecsElapsed();
            if (!added)
                runtimeError(QStringLiteral("%1: the merge could not take this shot").arg(name));
        }

        progress(QStringLiteral("finishing the merge"));
        clock.start();
        merged = blender.image();
        if (parser.isSet(depthMap))
            depth = blender.depthMap();
        mergeTime += clock.nsecsElapsed();
    }
    if (merged.isEmpty())
        runtimeError(QStringLiteral("the merge gave no image"));
    if (parser.isSet(depthMap) && depth.isEmpty())
        runtimeError(QStringLiteral("the merge gave no depth map (only --method depth-map makes one)"));

    progress(QStringLiteral("writing ") + outputFile);
    clock.start();
    saveImage(merged, outputFile);
    if (!depth.isEmpty())
        saveImage(depth, depthFile);
    writeTime += clock.nsecsElapsed();
    const qint64 totalTime = total.nsecsElapsed();
    endProgress();

    if (parser.isSet(json)) {
        // Numbers in the C locale whatever the environment's.
        QTextStream(stdout) << "{\"shots\": " << shots.size() << ", \"width\": " << size.width()
                            << ", \"height\": " << size.height() << ", \"method\": \"" << methodName
                            << "\", \"align\": \"" << alignName << "\", \"seconds\": {\"read\": " << seconds(readTime)
                            << ", \"merge\": " << seconds(mergeTime) << ", \"write\": " << seconds(writeTime)
                            << ", \"total\": " << seconds(totalTime)
                            << "}, \"peak_rss_mb\": " << QString::number(peakRssMegabytes(), 'f', 1) << "}\n";
    }
    return ExitOk;
}

} // namespace vexatool
