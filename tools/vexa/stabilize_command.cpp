// vexa stabilize FRAMES... -o DIR: the frames of a shaking sequence stabilized, written into DIR under
// their own names.
#include "cli.h"
#include "image_io.h"
#include "natural_order.h"

#include <vexa/gen/gen_stabilize_image.h>
#include <vexa/imp/VImageList.h>

#include <QDir>
#include <QFileInfo>
#include <QSet>

#include <algorithm>

namespace vexatool {

int stabilizeCommand(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Takes the shake out of a sequence of frames: the motion between neighbours is found from "
                       "keypoints, the camera's path smoothed over the frames within --radius of each, and every "
                       "frame moved from its place on the path to the smoothed one. The frames are taken in "
                       "natural order of their names (frame_2 before frame_10), whatever order they are given in, "
                       "must be of one size and kind, and are written into DIR under their own names."));
    parser.addPositionalArgument(QStringLiteral("frames"), QStringLiteral("The frames of the sequence."),
                                 QStringLiteral("FRAMES..."));
    const QCommandLineOption output = outputOption(
        QStringLiteral("Write the stabilized frames into the folder DIR (made when missing)."), QStringLiteral("DIR"));
    const QCommandLineOption radius(QStringLiteral("radius"),
                                    QStringLiteral("Smooth the path over the frames within N of each, 0 to 10000 "
                                                   "(default 15; 0 leaves the frames as they are)."),
                                    QStringLiteral("N"), QStringLiteral("15"));
    const QCommandLineOption borders(QStringLiteral("borders"),
                                     QStringLiteral("What becomes of the borders the moves uncover: crop (every "
                                                    "frame cut to the area all of them cover; the default), fill "
                                                    "(black) or replicate (the nearest edge pixels)."),
                                     QStringLiteral("MODE"), QStringLiteral("crop"));
    parser.addOptions({output, radius, borders});
    if (!parseCommandLine(parser, QStringLiteral("stabilize"), arguments, Writes::ImageFiles))
        return ExitOk;

    // The whole command line is checked before any pixel is read.
    const auto border = choice<VEXA::StabilizeBorders>(
        QStringLiteral("border mode"), parser.value(borders),
        {{"crop", VEXA::StabilizeCrop}, {"fill", VEXA::StabilizeBlack}, {"replicate", VEXA::StabilizeReplicate}});
    const int frameRadius = intOption(parser, QStringLiteral("radius"), 0, 10000);
    // A shell's pattern lists frame_10 before frame_2: the names' numbers give the order instead.
    QStringList frames = parser.positionalArguments();
    std::sort(frames.begin(), frames.end(), [](const QString& a, const QString& b) {
        return naturalLess(QFileInfo(a).fileName(), QFileInfo(b).fileName());
    });
    if (frames.isEmpty())
        usageError(QStringLiteral("no frames given"));
    const QDir dir(requiredOutput(parser, output, Output::Folder));
    QStringList outputs;
    QSet<QString> names;
    for (const QString& frame : frames) {
        const QString name = QFileInfo(frame).fileName();
        if (names.contains(name))
            usageError(QStringLiteral("two frames are named %1: their outputs would overwrite each other").arg(name));
        names.insert(name);
        const QString out = dir.filePath(name);
        checkOutputFormat(out); // the folder is made when the frames are read
        if (QFileInfo(out).absoluteFilePath() == QFileInfo(frame).absoluteFilePath())
            usageError(QStringLiteral("%1: the output would overwrite the frame itself").arg(frame));
        outputs << out;
    }
    for (const QString& frame : frames)
        if (!QFileInfo(frame).isFile())
            runtimeError(QStringLiteral("%1: no such file").arg(frame));

    Task task;
    VImageList sequence;
    for (int i = 0; i < frames.size(); ++i) {
        task.step(QStringLiteral("reading ") + frames[i], 0.2 * i / frames.size());
        const VImage image = readImage(frames[i]);
        if (i > 0 && (image.size() != sequence.at(0).size() || image.format() != sequence.format() ||
                      image.channelType() != sequence.channelType()))
            runtimeError(QStringLiteral("%1: %2x%3 %4, but the first frame is %5x%6 %7")
                             .arg(frames[i])
                             .arg(image.width())
                             .arg(image.height())
                             .arg(pairName(image.format(), image.channelType()))
                             .arg(sequence.at(0).width())
                             .arg(sequence.at(0).height())
                             .arg(pairName(sequence.format(), sequence.channelType())));
        if (i == 0)
            for (const QString& out : outputs)
                checkWritable(image.format(), image.channelType(), out);
        sequence.add(image);
    }
    task.step(QStringLiteral("stabilizing"), 0.2);
    VImageList stabilized;
    task.run(QStringLiteral("stabilizing failed"), 0.2, 0.8,
             [&] { return VEXA::stabilizeSequence(sequence, &stabilized, frameRadius, border); });
    sequence = VImageList();
    OutputFolder folder(dir.path());
    for (int i = 0; i < outputs.size(); ++i) {
        task.step(QStringLiteral("writing ") + outputs[i], 0.8 + 0.2 * i / outputs.size());
        writeImage(stabilized.at(unsigned(i)), folder.add(outputs[i]), &task);
    }
    folder.commit();
    endProgress();
    return ExitOk;
}

} // namespace vexatool
