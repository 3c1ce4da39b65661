// vexa focus-stack SHOT|FOLDER... -o OUT, and --batch PARENT -o OUT_DIR: shots merged one by one by
// VImageBlender; a batch merges several folders at once, each on a thread of its own.
#include "cli.h"
#include "image_io.h"
#include "natural_order.h"
#include "stacking.h"

#include <vexa/imp/BufferPool.h>
#include <vexa/imp/VImageBlender.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>

#include <opencv2/core.hpp>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <future>
#include <optional>
#include <sys/resource.h>
#include <system_error>
#include <thread>
#include <vector>

namespace vexatool {

namespace {

double peakRssMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024.0; // kilobytes on Linux
}

double seconds(qint64 nanoseconds) { return nanoseconds / 1e9; }

// A file of a folder that is none of its shots, and why.
struct Stray {
    QString file, reason;
};

struct FolderShots {
    QStringList shots;
    QList<Stray> strays;
};

// Why a file of this shape is none of the shots of the common one.
QString strayReason(const ImageShape& shape, const ImageShape& common)
{
    if (!shape.size.isValid())
        return QStringLiteral("not an image");
    QStringList reasons;
    if (shape.size != common.size)
        reasons << QStringLiteral("other size %1x%2").arg(shape.size.width()).arg(shape.size.height());
    if (shape.format != common.format || shape.channel != common.channel)
        reasons << QStringLiteral("other layout ") + pairName(shape.format, shape.channel);
    return reasons.join(QStringLiteral(", "));
}

// A folder's shots: its image files of the size and layout most of them share, in natural order of their
// names; of groups equally large, the one of the larger pictures, then the one whose first file comes
// first (thumbnails beside as many shots are the strays). Hidden files and this run's outputs are passed
// over; every other file is a stray. Only headers are read (see peekImage).
FolderShots shotsIn(const QString& folder, const QStringList& outputs = QStringList())
{
    const QDir dir(folder);
    QStringList names = dir.entryList(QDir::Files | QDir::Readable);
    std::sort(names.begin(), names.end(), naturalLess);
    QStringList ours;
    for (const QString& output : outputs)
        ours << QFileInfo(output).absoluteFilePath();
    QStringList files;
    QList<ImageShape> shapes;
    for (const QString& name : names) {
        const QString path = dir.filePath(name);
        if (ours.contains(QFileInfo(path).absoluteFilePath()))
            continue;
        ImageShape shape;
        if (!peekImage(path, &shape))
            shape = ImageShape();
        files << path;
        shapes << shape;
    }
    ImageShape common;
    qsizetype most = 0;
    const auto area = [](const ImageShape& shape) { return qint64(shape.size.width()) * shape.size.height(); };
    for (const ImageShape& shape : shapes) {
        const qsizetype count = shapes.count(shape);
        if (shape.size.isValid() && (count > most || (count == most && area(shape) > area(common)))) {
            most = count;
            common = shape;
        }
    }
    FolderShots found;
    for (qsizetype i = 0; i < files.size(); ++i) {
        if (most > 0 && shapes[i] == common)
            found.shots << files[i];
        else
            found.strays.append({files[i], strayReason(shapes[i], common)});
    }
    return found;
}

// Files of the folders that are none of their shots: skipped, each named in a warning, or with strict the
// run refused, naming them all.
void passOver(const QList<Stray>& strays, bool strict)
{
    QStringList named;
    for (const Stray& stray : strays)
        named << QStringLiteral("%1 (%2)").arg(stray.file, stray.reason);
    if (strict && !strays.isEmpty())
        runtimeError(QStringLiteral("files that are no shots, refused with --strict: ") + named.join(QStringLiteral(", ")));
    for (const Stray& stray : strays)
        printError(QStringLiteral("warning: skipping %1: %2").arg(stray.file, stray.reason));
}

struct Settings {
    VImageBlender::MultifocusMethod method;
    VImageBlender::Alignment alignment;
    QString methodName, alignName;
};

// Where the depth map goes: a picture to look at, the raw shot indices, or both.
struct DepthOutputs {
    QString picture, raw;
    bool any() const { return !picture.isEmpty() || !raw.isEmpty(); }
};

struct StackRun {
    QList<VImageBlender::ShotFit> fits;
    int shots = 0;
    QSize size;
    // Nanoseconds; `read` is what the merge waited for its files (a file read ahead costs it nothing).
    qint64 read = 0, merge = 0, write = 0, total = 0;
};

// The picture of a shot's file as the depth map reads it: 8-bit colour PNG straight in its layout.
VImage readShotFile(const QString& name) { return readImage(name, nullptr, true); }

// A shot as the merge takes it (see mergeLayout), as the same picture; format and channel are the first
// shot's, set when it is read. For the depth map, `image` is what readShotFile gave (read here when
// empty); `converted` tells whether it came in another layout.
VImage loadShot(const QString& name, VImageBlender::MultifocusMethod method, VEXA::Format& format,
                VEXA::Channel& channel, bool* converted, VImage image)
{
    if (method != VImageBlender::MultifocusDepthMap)
        return loadXrgb(name);
    if (image.isEmpty())
        image = readShotFile(name);
    if (format == VEXA::Invalid)
        std::tie(format, channel) = mergeLayout(method, image.format(), image.channelType());
    const VImage shot = inPair(image, format, channel);
    if (shot.isEmpty() && interrupted())
        cancelledError(); // Ctrl-C reached the conversion
    if (shot.isEmpty())
        runtimeError(QStringLiteral("%1: cannot bring the image to %2 as the first shot is")
                         .arg(name, pairName(format, channel)));
    const bool other = shot.format() != image.format() || shot.channelType() != image.channelType();
    if (converted)
        *converted = other;
    if (other) {
        // The file's pixels in another layout would stay idle in the library's pool of buffers, beside the
        // shot, through the whole merge: the next file is read into a fresh buffer instead.
        image = VImage();
        VEXA::BufferPool::instance().clear();
    }
    return shot;
}

StackRun stackShots(const QStringList& shots, const Settings& settings, const QString& outputFile,
                    const DepthOutputs& depthFiles, Task& task)
{
    QElapsedTimer total;
    total.start();
    QElapsedTimer clock;
    StackRun run;
    run.shots = int(shots.size());
    VImage merged;
    VImage depth;
    // The first shot's layout and depth, which the others come in.
    std::pair<VEXA::Format, VEXA::Channel> pair{VEXA::Invalid, VEXA::ChannelInvalid};
    // Each shot has an equal part of the bar, and writing the result one more.
    const double part = 1.0 / (shots.size() + 1);
    const auto step = [&shots](int i) { return QStringLiteral("[%1/%2] ").arg(i + 1).arg(shots.size()); };
    {
        // The blender's running state goes before the result is written. Every failure ends the run.
        VImageBlender blender(settings.method, settings.alignment);
        MergeSteps steps;
        steps.shotsEnd = shots.size() * part;
        steps.finishEnd = (shots.size() + 0.5) * part;
        steps.mergeFrom = 0.1;
        // The next shot's file is read on a thread of its own while one merges, where that costs no more
        // memory than a shot that moves: when the files come straight in the merge's layout (8-bit colour
        // PNG), and only beside a shot taken as it stands (beside one that moves, the aligner's copy and
        // the next file would raise the merge's peak by a shot). So the next file is asked for once the
        // shot's fit is known, as its merge starts. A still series, the one whose files take the largest
        // part of its time, is read as it merges.
        bool ahead = settings.method == VImageBlender::MultifocusDepthMap &&
                     (settings.alignment == VImageBlender::AlignAuto || settings.alignment == VImageBlender::AlignNone);
        std::future<VImage> next;
        int merging = 0;
        const auto readAhead = [&](int i) {
            if (!ahead || i >= shots.size() || next.valid())
                return;
            try {
                next = std::async(std::launch::async, [&shots, i] { return readShotFile(shots.at(i)); });
            } catch (const std::system_error&) {
                // No thread to be had: the file is read in its turn.
            }
        };
        blender.setFitFound([&](const VImageBlender::ShotFit& fit) {
            if (!fit.resampled)
                readAhead(merging + 1);
        });
        steps.read = [&](int i) {
            const QString& name = shots.at(i);
            task.step(step(i) + QStringLiteral("reading ") + name, i * part);
            clock.start();
            merging = i;
            VImage file;
            if (next.valid())
                file = next.get();
            bool converted = false;
            const VImage shot = loadShot(name, settings.method, pair.first, pair.second, &converted, std::move(file));
            ahead = ahead && !converted;
            run.read += clock.nsecsElapsed();
            if (i == 0)
                run.size = shot.size();
            if (shot.size() != run.size)
                runtimeError(QStringLiteral("%1: %2x%3, but the first shot is %4x%5")
                                 .arg(name)
                                 .arg(shot.width())
                                 .arg(shot.height())
                                 .arg(run.size.width())
                                 .arg(run.size.height()));
            task.step(step(i) + QStringLiteral("merging ") + name);
            clock.start();
            return shot;
        };
        steps.added = [&](int i, const VImage&, bool added) {
            run.merge += clock.nsecsElapsed();
            if (!added)
                task.fail(QStringLiteral("%1: the merge could not take this shot: %2")
                              .arg(shots.at(i), blender.lastStatus().reason()));
            return true;
        };
        steps.finish = [&] {
            task.step(QStringLiteral("finishing the merge"));
            clock.start();
            VEXA::BufferPool::instance().clear(); // the shots' buffers, idle from here on
            merged = blender.image();
            run.fits = blender.shotFits();
            if (depthFiles.any())
                depth = blender.depthMap();
        };
        mergeShots(blender, int(shots.size()), task.progress(), steps);
        run.merge += clock.nsecsElapsed();
    }
    returnFreedMemory();
    if (merged.isEmpty())
        task.fail(QStringLiteral("the merge gave no image"));
    if (depthFiles.any() && depth.isEmpty())
        task.fail(QStringLiteral("the merge gave no depth map (only --method depth-map makes one)"));

    clock.start();
    writeImage(merged, outputFile, &task);
    if (!depthFiles.picture.isEmpty())
        writeImage(falseColourPicture(depth, QStringLiteral("depth: the shot each pixel came from (0 = first)")),
                   depthFiles.picture, &task);
    if (!depthFiles.raw.isEmpty())
        writeImage(depth, depthFiles.raw, &task, false);
    run.write = clock.nsecsElapsed();
    run.total = total.nsecsElapsed();
    return run;
}

struct Stack {
    QString folder;
    QStringList shots;
    QString output;
    QList<Stray> skipped;
};

QJsonObject report(const StackRun& run, const Settings& settings, const Stack& stack)
{
    // What was done to each shot: its gains into the first shot's exposure, and its fit to the first shot.
    QJsonArray fits;
    for (const VImageBlender::ShotFit& fit : run.fits) {
        const QTransform& t = fit.transform;
        fits.append(QJsonObject{
            {QStringLiteral("gains"), QJsonArray{fit.gains[0], fit.gains[1], fit.gains[2]}},
            {QStringLiteral("scale"), std::sqrt(std::abs(t.determinant()))},
            {QStringLiteral("shift"), QJsonArray{t.dx(), t.dy()}},
            {QStringLiteral("local_shift"), fit.localShift},
            {QStringLiteral("resampled"), fit.resampled},
        });
    }
    QJsonArray skipped;
    for (const Stray& stray : stack.skipped)
        skipped.append(QJsonObject{{QStringLiteral("file"), stray.file}, {QStringLiteral("reason"), stray.reason}});
    return QJsonObject{
        {QStringLiteral("files"), QJsonArray::fromStringList(stack.shots)},
        {QStringLiteral("skipped"), skipped},
        {QStringLiteral("fits"), fits},
        {QStringLiteral("shots"), run.shots},
        {QStringLiteral("width"), run.size.width()},
        {QStringLiteral("height"), run.size.height()},
        {QStringLiteral("method"), settings.methodName},
        {QStringLiteral("align"), settings.alignName},
        {QStringLiteral("seconds"), QJsonObject{{QStringLiteral("read"), seconds(run.read)},
                                                {QStringLiteral("merge"), seconds(run.merge)},
                                                {QStringLiteral("write"), seconds(run.write)},
                                                {QStringLiteral("total"), seconds(run.total)}}},
    };
}

// Each worker takes the next stack until none is left; one stack's failure is reported and the others go
// on. Returns the number that failed.
int runBatch(const std::vector<Stack>& stacks, const Settings& settings, int jobs,
             std::vector<std::optional<StackRun>>* runs)
{
    std::atomic<int> next{0};
    std::atomic<int> failed{0};
    beginUnits(int(stacks.size()));
    const auto work = [&] {
        for (int i = next++; i < int(stacks.size()) && !interrupted(); i = next++) {
            const Stack& stack = stacks[size_t(i)];
            QString message;
            try {
                Task task(QFileInfo(stack.folder).fileName());
                (*runs)[size_t(i)] = stackShots(stack.shots, settings, stack.output, DepthOutputs(), task);
            } catch (const Failure& failure) {
                message = failure.message;
            } catch (const std::bad_alloc&) {
                message = QStringLiteral("out of memory");
            } catch (const cv::Exception& e) {
                message = QStringLiteral("OpenCV failed: ") + QString::fromStdString(e.err);
            } catch (const std::exception& e) {
                message = QString::fromLocal8Bit(e.what()).simplified();
            }
            if (!message.isEmpty() && !interrupted()) {
                ++failed;
                printError(message.startsWith(stack.folder) ? message : stack.folder + QStringLiteral(": ") + message);
            }
            finishUnit();
        }
    };
    std::vector<std::thread> threads;
    for (int j = 1; j < jobs; ++j)
        threads.emplace_back(work);
    work();
    for (std::thread& thread : threads)
        thread.join();
    return failed;
}

} // namespace

int focusStackCommand(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Merges shots of one scene, each focused at another depth, into one image sharp everywhere. "
                       "The shots are read one at a time; they must all be of one size. A folder stands for its "
                       "shots: the image files in it of the size and layout (pixel format and channel type, as "
                       "read) that most of them share, in natural order of their names (shot_2 before shot_10). "
                       "Of groups of as many files, the one of the larger pictures (width times height) wins, "
                       "and of those as large too, the one whose first file comes first in that order. Every "
                       "other file is skipped with a warning naming it and why "
                       "(other size, other layout, not an image); hidden files and the run's own outputs are "
                       "passed over. Only the files' headers are read to sort a folder out. With --batch, every "
                       "sub-folder of PARENT holding two or more shots is merged into OUT_DIR/<sub-folder>"
                       "<suffix>, several at once."));
    parser.addPositionalArgument(QStringLiteral("shots"), QStringLiteral("The shots, two or more, or folders of them."),
                                 QStringLiteral("SHOT|FOLDER..."));
    const QCommandLineOption output = outputOption(QStringLiteral("Write the merged image to FILE (its suffix picks "
                                                                  "the format), or with --batch the merged images "
                                                                  "into the folder."),
                                                   QStringLiteral("FILE|OUT_DIR"));
    const QCommandLineOption method(QStringLiteral("method"),
                                    QStringLiteral("How to merge: depth-map (the default: one shot per pixel, "
                                                   "aligned, exposure-matched and blended without seams), "
                                                   "pyramid, max (the sharpest shot per pixel), weighted or "
                                                   "weighted-all."),
                                    QStringLiteral("METHOD"), QStringLiteral("depth-map"));
    const QCommandLineOption align(QStringLiteral("align"),
                                   QStringLiteral("How to line each shot up with the first: auto (the default: "
                                                  "focus breathing, shake and parallax, fitted to the shot before "
                                                  "it; a shot that did not move is taken as it stands), none (a "
                                                  "tripod), keypoints (a homography) or local (local shifts)."),
                                   QStringLiteral("MODE"), QStringLiteral("auto"));
    const QCommandLineOption depthMap(QStringLiteral("depth-map"),
                                      QStringLiteral("With --method depth-map: also write a picture of the shot "
                                                     "each pixel came from, in false colour with a colour bar, "
                                                     "to FILE."),
                                      QStringLiteral("FILE"));
    const QCommandLineOption depthMapRaw(QStringLiteral("depth-map-raw"),
                                         QStringLiteral("With --method depth-map: also write the index of the "
                                                        "shot each pixel came from (0 for the first), as 16-bit "
                                                        "gray, to FILE."),
                                         QStringLiteral("FILE"));
    const QCommandLineOption batch(QStringLiteral("batch"),
                                   QStringLiteral("Merge every sub-folder of PARENT that holds two or more shots."),
                                   QStringLiteral("PARENT"));
    const QCommandLineOption suffix(QStringLiteral("suffix"),
                                    QStringLiteral("With --batch: the suffix of the merged images (default .png)."),
                                    QStringLiteral("SUFFIX"), QStringLiteral(".png"));
    const QCommandLineOption jobs(QStringLiteral("jobs"),
                                  QStringLiteral("With --batch: stacks merged at once (default: the number of "
                                                 "cores)."),
                                  QStringLiteral("N"));
    const QCommandLineOption strict(QStringLiteral("strict"),
                                    QStringLiteral("Refuse a folder holding files that are not its shots (exit "
                                                   "code 1, naming them) instead of skipping them."));
    const QCommandLineOption json(QStringLiteral("json"),
                                  QStringLiteral("Print each merge's sizes and times, its files in the order merged "
                                                 "(\"files\") and those skipped with the reason (\"skipped\"), and "
                                                 "the peak memory, as JSON."));
    parser.addOptions({output, method, align, depthMap, depthMapRaw, batch, suffix, jobs, strict, json});
    if (!parseCommandLine(parser, QStringLiteral("focus-stack"), arguments, Writes::ImageFiles))
        return ExitOk;

    // The whole command line is checked before any pixel is read.
    Settings settings;
    settings.methodName = parser.value(method);
    settings.alignName = parser.value(align);
    settings.method = choice<VImageBlender::MultifocusMethod>(QStringLiteral("method"), settings.methodName,
                                                              {{"pyramid", VImageBlender::MultifocusPyramid},
                                                               {"max", VImageBlender::MultifocusMaxSharpness},
                                                               {"weighted", VImageBlender::MultifocusWeighted},
                                                               {"weighted-all", VImageBlender::MultifocusWeightedAll},
                                                               {"depth-map", VImageBlender::MultifocusDepthMap}});
    settings.alignment = choice<VImageBlender::Alignment>(QStringLiteral("alignment"), settings.alignName,
                                                          {{"auto", VImageBlender::AlignAuto},
                                                           {"none", VImageBlender::AlignNone},
                                                           {"keypoints", VImageBlender::AlignKeypoints},
                                                           {"local", VImageBlender::AlignLocal}});
    const QStringList positional = parser.positionalArguments();
    const QString outputName = requiredOutput(parser, output);
    const DepthOutputs depthFiles{parser.value(depthMap), parser.value(depthMapRaw)};
    for (const QCommandLineOption* option : {&depthMap, &depthMapRaw})
        if (parser.isSet(*option) && settings.method != VImageBlender::MultifocusDepthMap)
            usageError(QStringLiteral("--%1 needs --method depth-map").arg(option->names().first()));

    if (parser.isSet(batch)) {
        if (!positional.isEmpty())
            usageError(
                QStringLiteral("--batch takes its shots from PARENT's sub-folders, not '%1'").arg(positional.first()));
        if (depthFiles.any())
            usageError(QStringLiteral("--depth-map and --depth-map-raw write one file and cannot be used with "
                                      "--batch"));
        QString dot = parser.value(suffix);
        if (!dot.startsWith(QLatin1Char('.')))
            dot.prepend(QLatin1Char('.'));
        checkOutputFormat(QStringLiteral("merged") + dot);
        const int jobCount =
            intOption(parser, QStringLiteral("jobs"), 1, 256, int(std::max(1u, std::thread::hardware_concurrency())));
        const QString parent = parser.value(batch);
        if (!QFileInfo(parent).isDir())
            runtimeError(QStringLiteral("%1: no such folder").arg(parent));
        const QString outputDir = QFileInfo(outputName).absoluteFilePath();
        std::vector<Stack> stacks;
        QList<Stray> strays;
        QStringList folders = QDir(parent).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        std::sort(folders.begin(), folders.end(), naturalLess);
        for (const QString& folder : folders) {
            const QString path = QDir(parent).filePath(folder);
            if (QFileInfo(path).absoluteFilePath() == outputDir)
                continue; // the results of an earlier run are no stack
            const FolderShots found = shotsIn(path);
            if (found.shots.size() >= 2) {
                stacks.push_back({path, found.shots, QDir(outputName).filePath(folder + dot), found.strays});
                strays << found.strays;
            }
        }
        if (stacks.empty())
            runtimeError(QStringLiteral("%1: no sub-folder holds two or more shots").arg(parent));
        passOver(strays, parser.isSet(strict));
        if (!QDir().mkpath(outputName))
            runtimeError(QStringLiteral("%1: cannot make the folder").arg(outputName));
        std::vector<std::optional<StackRun>> runs(stacks.size());
        const int failed = runBatch(stacks, settings, std::min(jobCount, int(stacks.size())), &runs);
        endProgress();
        if (interrupted())
            cancelledError();
        if (parser.isSet(json)) {
            QJsonArray merges;
            for (size_t i = 0; i < stacks.size(); ++i)
                if (runs[i]) {
                    QJsonObject object = report(*runs[i], settings, stacks[i]);
                    object.insert(QStringLiteral("folder"), stacks[i].folder);
                    object.insert(QStringLiteral("output"), stacks[i].output);
                    merges.append(object);
                }
            const QJsonObject whole{{QStringLiteral("merges"), merges},
                                    {QStringLiteral("peak_rss_mb"), peakRssMegabytes()}};
            QTextStream(stdout) << QJsonDocument(whole).toJson(QJsonDocument::Compact) << "\n";
        }
        if (failed > 0)
            runtimeError(QStringLiteral("%1 of %2 stacks failed").arg(failed).arg(stacks.size()));
        return ExitOk;
    }

    if (parser.isSet(jobs) || parser.isSet(suffix))
        usageError(QStringLiteral("--jobs and --suffix go with --batch"));
    if (positional.isEmpty())
        usageError(QStringLiteral("no shots given"));
    checkOutputName(outputName);
    for (const QString& depthFile : {depthFiles.picture, depthFiles.raw})
        if (!depthFile.isEmpty())
            checkOutputName(depthFile);
    Stack stack{QString(), QStringList(), outputName, {}};
    for (const QString& name : positional) {
        if (QFileInfo(name).isDir()) {
            stack.folder = name;
            const FolderShots found = shotsIn(name, {outputName, depthFiles.picture, depthFiles.raw});
            stack.shots << found.shots;
            stack.skipped << found.strays;
        } else if (!QFileInfo::exists(name)) {
            runtimeError(QStringLiteral("%1: no such file").arg(name));
        } else {
            stack.shots << name;
        }
    }
    passOver(stack.skipped, parser.isSet(strict));
    if (stack.shots.size() < 2) {
        if (!stack.folder.isEmpty())
            runtimeError(QStringLiteral("%1: fewer than two shots to merge").arg(stack.folder));
        usageError(QStringLiteral("at least two shots are needed"));
    }

    Task task;
    const StackRun run = stackShots(stack.shots, settings, outputName, depthFiles, task);
    endProgress();
    if (parser.isSet(json)) {
        QJsonObject object = report(run, settings, stack);
        object.insert(QStringLiteral("peak_rss_mb"), peakRssMegabytes());
        QTextStream(stdout) << QJsonDocument(object).toJson(QJsonDocument::Compact) << "\n";
    }
    return ExitOk;
}

} // namespace vexatool
