// vexa sample focus-stack OUT_DIR: a synthetic focus series with its ground truth.
#include "cli.h"
#include "focus_series.h"
#include "image_io.h"

#include <QDir>
#include <QRegularExpression>
#include <QTextStream>

#include <opencv2/imgproc.hpp>

#include <future>

namespace vexatool {

namespace {

const char* const kSampleUsage = R"(Usage: vexa sample KIND OUT_DIR [options]

Kinds:
  focus-stack   shots of a synthetic scene focused from near to far, with truth.png and depth.png

'vexa sample KIND --help' describes the options.
)";

cv::Size parseSize(const QString& text)
{
    static const QRegularExpression pattern(QStringLiteral("^(\\d{1,6})x(\\d{1,6})$"));
    const QRegularExpressionMatch match = pattern.match(text);
    const int w = match.hasMatch() ? match.captured(1).toInt() : 0;
    const int h = match.hasMatch() ? match.captured(2).toInt() : 0;
    if (w < 16 || h < 16 || w > 30000 || h > 30000 || double(w) * h > 100e6)
        usageError(QStringLiteral("--size takes WIDTHxHEIGHT, each side 16 to 30000 and at most 100 megapixels, "
                                  "not '%1'")
                       .arg(text));
    return {w, h};
}

DepthKind parseDepth(const QString& text)
{
    if (text == QLatin1String("plane"))
        return DepthKind::Plane;
    if (text == QLatin1String("steps"))
        return DepthKind::Steps;
    if (text == QLatin1String("sphere"))
        return DepthKind::Sphere;
    usageError(QStringLiteral("unknown depth '%1' (known: plane, steps, sphere)").arg(text));
}

int sampleFocusStack(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Renders a synthetic focus series: OUT_DIR/shot_000.png onwards, focused from the nearest "
                       "depth to the farthest, truth.png (the scene sharp everywhere) and depth.png (8-bit gray, 0 "
                       "nearest, 255 farthest). The same arguments always give the same files."));
    parser.addPositionalArgument(QStringLiteral("out_dir"), QStringLiteral("Folder to write to; made if missing."),
                                 QStringLiteral("OUT_DIR"));
    const QCommandLineOption size(QStringLiteral("size"), QStringLiteral("Image size (default 1024x768)."),
                                  QStringLiteral("WxH"), QStringLiteral("1024x768"));
    const QCommandLineOption shots(QStringLiteral("shots"), QStringLiteral("Number of shots, 2 to 999 (default 8)."),
                                   QStringLiteral("N"), QStringLiteral("8"));
    const QCommandLineOption depth(QStringLiteral("depth"),
                                   QStringLiteral("Shape of the scene: plane (a tilted plane), steps (flat "
                                                  "rectangles and discs at a few depths; the default) or sphere "
                                                  "(a dome)."),
                                   QStringLiteral("plane|steps|sphere"), QStringLiteral("steps"));
    const QCommandLineOption noise(QStringLiteral("noise"),
                                   QStringLiteral("Sigma of the Gaussian noise added to every shot, in 8-bit "
                                                  "levels (default 0)."),
                                   QStringLiteral("SIGMA"), QStringLiteral("0"));
    const QCommandLineOption seed(QStringLiteral("seed"),
                                  QStringLiteral("Seed of the scene, its depths and the noise (default 1)."),
                                  QStringLiteral("S"), QStringLiteral("1"));
    const QCommandLineOption from(QStringLiteral("from"),
                                  QStringLiteral("Photograph the given picture instead of a drawn scene; it is "
                                                 "scaled to cover the size and cropped about its centre."),
                                  QStringLiteral("PHOTO"));
    parser.addOptions({size, shots, depth, noise, seed, from});
    if (!parseCommandLine(parser, QStringLiteral("sample focus-stack"), arguments))
        return ExitOk;

    const QStringList positional = parser.positionalArguments();
    if (positional.isEmpty())
        usageError(QStringLiteral("sample focus-stack needs an output folder"));
    if (positional.size() > 1)
        usageError(QStringLiteral("unexpected argument '%1'").arg(positional.at(1)));
    FocusSeriesSettings settings;
    settings.size = parseSize(parser.value(size));
    settings.shots = intOption(parser, QStringLiteral("shots"), 2, 999);
    settings.depth = parseDepth(parser.value(depth));
    settings.noise = numberOption(parser, QStringLiteral("noise"), 0, 255);
    bool seedOk = false;
    settings.seed = parser.value(seed).toULongLong(&seedOk);
    if (!seedOk)
        usageError(QStringLiteral("--seed takes a non-negative integer, not '%1'").arg(parser.value(seed)));

    const QDir dir(positional.first());
    if (!QDir().mkpath(dir.path()))
        runtimeError(QStringLiteral("%1: cannot make the folder").arg(dir.path()));

    Task task;
    cv::Mat scene;
    if (parser.isSet(from)) {
        const VImage photo = loadXrgb(parser.value(from));
        cv::Mat bgr;
        cv::cvtColor(asMat(photo), bgr, cv::COLOR_BGRA2BGR);
        scene = fitPhoto(bgr, settings.size);
    } else {
        task.step(QStringLiteral("drawing the scene"));
        scene = drawScene(settings.size, settings.seed);
    }
    const cv::Mat depthMap = makeDepth(settings.size, settings.depth, settings.seed);
    const FocusSeriesRenderer renderer(scene, depthMap, settings);

    // Each file is compressed and written while the next image is rendered; no more than two images are
    // held at any time.
    std::future<void> writing;
    const auto write = [&writing](const cv::Mat& image, const QString& fileName) {
        if (writing.valid())
            writing.get();
        writing = std::async(std::launch::async, [image, fileName] { saveImage(image, fileName); });
    };
    write(scene, dir.filePath(QStringLiteral("truth.png")));
    cv::Mat depth8u;
    depthMap.convertTo(depth8u, CV_8U, 255);
    write(depth8u, dir.filePath(QStringLiteral("depth.png")));
    scene.release();
    for (int shot = 0; shot < settings.shots; ++shot) {
        const QString name = QStringLiteral("shot_%1.png").arg(shot, 3, 10, QLatin1Char('0'));
        task.step(QStringLiteral("[%1/%2] rendering %3").arg(shot + 1).arg(settings.shots).arg(name),
                  double(shot) / settings.shots);
        write(renderer.renderShot(shot), dir.filePath(name));
    }
    writing.get();
    task.checkCancelled();
    endProgress();
    return ExitOk;
}

} // namespace

int sampleCommand(const QStringList& arguments)
{
    if (arguments.isEmpty())
        usageError(QStringLiteral("sample needs a kind: vexa sample focus-stack OUT_DIR"));
    const QString kind = arguments.first();
    if (kind == QLatin1String("-h") || kind == QLatin1String("--help")) {
        QTextStream(stdout) << kSampleUsage;
        return ExitOk;
    }
    if (kind == QLatin1String("focus-stack"))
        return sampleFocusStack(arguments.mid(1));
    usageError(QStringLiteral("unknown sample kind '%1' (known: focus-stack)").arg(kind));
}

} // namespace vexatool
