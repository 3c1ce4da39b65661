// vexa sample focus-stack OUT_DIR: a synthetic focus series with its ground truth.
#include "cli.h"
#include "focus_series.h"
#include "image_io.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QImageWriter>
#include <QRegularExpression>
#include <QTextStream>

#include <opencv2/imgproc.hpp>

#include <future>

namespace vexatool {

namespace {

const char* const kSampleUsage = R"(Usage: vexa sample KIND OUT_DIR [options]

Kinds:
  focus-stack   shots of a synthetic scene focused from near to far, with truth/truth.png and truth/depth.png

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

// The shot as a JPEG file of the given quality, appearing under its name only once complete.
void saveJpeg(const cv::Mat& bgr, const QString& fileName, int quality)
{
    OutputFile output(fileName);
    const QImage image(bgr.data, bgr.cols, bgr.rows, int(bgr.step), QImage::Format_BGR888);
    QImageWriter writer(output.temporaryName(), "jpeg");
    writer.setQuality(quality);
    if (!writer.write(image))
        runtimeError(QStringLiteral("%1: cannot write: %2").arg(fileName, writer.errorString()));
    output.commit();
}

QString number(double value) { return QString::number(value, 'g', 9); }

// What every shot has against the neutral shot 0, for checking what a merge or an alignment recovers.
QByteArray nuisanceReport(const FocusSeriesRenderer& renderer, const FocusSeriesSettings& settings, int jpeg)
{
    QString text;
    QTextStream out(&text);
    out << "{\n  \"width\": " << settings.size.width << ", \"height\": " << settings.size.height
        << ", \"neutral_shot\": 0,\n  \"settings\": {\"exposure_drift\": " << number(settings.exposureDrift)
        << ", \"white_balance_drift\": " << number(settings.whiteBalanceDrift)
        << ", \"breathing\": " << number(settings.breathing) << ", \"shake\": " << number(settings.shake)
        << ", \"parallax\": " << number(settings.parallax) << ", \"jpeg\": " << jpeg
        << ", \"shot_noise\": " << number(settings.shotNoise) << ", \"noise\": " << number(settings.noise)
        << "},\n  \"shots\": [\n";
    for (int shot = 0; shot < settings.shots; ++shot) {
        const ShotNuisance& n = renderer.nuisance(shot);
        out << "    {\"shot\": " << shot << ", \"focus\": " << number(renderer.focusDepth(shot)) << ", \"gain_bgr\": ["
            << number(n.gain[0]) << ", " << number(n.gain[1]) << ", " << number(n.gain[2])
            << "], \"magnification\": " << number(n.magnification) << ", \"shift\": [" << number(n.shift.x) << ", "
            << number(n.shift.y) << "], \"rotation\": " << number(n.rotation)
            << ", \"parallax_near\": " << number(n.parallax) << (shot + 1 < settings.shots ? "},\n" : "}\n");
    }
    out << "  ]\n}\n";
    out.flush();
    return text.toUtf8();
}

int sampleFocusStack(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Renders a synthetic focus series: OUT_DIR/shot_000.png onwards, focused from the nearest "
                       "depth to the farthest, and beside them, in OUT_DIR/truth/ so that OUT_DIR holds only the "
                       "shots, truth.png (the scene sharp everywhere) and depth.png (8-bit gray, 0 nearest, 255 "
                       "farthest), both lined up with shot 0, and nuisances.json (what every shot has against "
                       "shot 0: gains in linear light, B G R; magnification, shift in pixels and rotation in "
                       "radians, clockwise, about the image centre; parallax of the nearest depth in pixels, to "
                       "the right). The nuisances of a handheld series are off unless asked for. The same "
                       "arguments always give the same files."));
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
    const QCommandLineOption seed(
        QStringLiteral("seed"),
        QStringLiteral("Seed of the scene, its depths, the noise and the nuisances (default 1)."), QStringLiteral("S"),
        QStringLiteral("1"));
    const QCommandLineOption from(QStringLiteral("from"),
                                  QStringLiteral("Photograph the given picture instead of a drawn scene; it is "
                                                 "scaled to cover the size and cropped about its centre."),
                                  QStringLiteral("PHOTO"));
    const QCommandLineOption shotNoise(QStringLiteral("shot-noise"),
                                       QStringLiteral("Photon noise: sigma at white, in 8-bit levels; at level v it "
                                                      "is S * sqrt(v / 255), on top of --noise (default 0)."),
                                       QStringLiteral("S"));
    const QCommandLineOption exposureDrift(QStringLiteral("exposure-drift"),
                                           QStringLiteral("Each shot's exposure is off by a gain exp(N(0, S)) in "
                                                          "linear light, e.g. 0.05 (default 0)."),
                                           QStringLiteral("S"));
    const QCommandLineOption whiteBalanceDrift(QStringLiteral("white-balance-drift"),
                                               QStringLiteral("And each channel by a gain exp(N(0, S)) more, e.g. "
                                                              "0.02 (default 0)."),
                                               QStringLiteral("S"));
    const QCommandLineOption breathing(QStringLiteral("breathing"),
                                       QStringLiteral("Focus breathing: a shot focused at f (0 nearest, 1 farthest) "
                                                      "is magnified by 1 + M * f about the centre, e.g. 0.03 "
                                                      "(default 0)."),
                                       QStringLiteral("M"));
    const QCommandLineOption shake(QStringLiteral("shake"),
                                   QStringLiteral("Hand shake: each shot shifted by a random offset of sigma "
                                                  "PIXELS in x and in y and turned about the centre by a random "
                                                  "angle that moves the corners about as much (default 0)."),
                                   QStringLiteral("PIXELS"));
    const QCommandLineOption parallax(QStringLiteral("parallax"),
                                      QStringLiteral("The camera moves sideways from shot to shot: in the last shot "
                                                     "the nearest depth lies PIXELS further right, each depth d "
                                                     "PIXELS * (1 - d), so near objects uncover what lies behind "
                                                     "them (default 0)."),
                                      QStringLiteral("PIXELS"));
    const QCommandLineOption jpeg(QStringLiteral("jpeg"),
                                  QStringLiteral("Write the shots as JPEG files (shot_000.jpg onwards) of this "
                                                 "quality, 1 to 100; truth and depth stay PNG."),
                                  QStringLiteral("QUALITY"));
    const QCommandLineOption realistic(
        QStringLiteral("realistic"),
        QStringLiteral("A handheld macro series: every nuisance on, as --exposure-drift 0.03 --white-balance-drift "
                       "0.015 --breathing 0.03 --shake 2 --parallax 3 --jpeg 92 --shot-noise 3 --noise 1, the "
                       "pixels of --shake and --parallax for a 1024-pixel-wide image and in proportion to the "
                       "width otherwise. Options given as well win."));
    parser.addOptions({size, shots, depth, noise, seed, from, shotNoise, exposureDrift, whiteBalanceDrift, breathing,
                       shake, parallax, jpeg, realistic});
    if (!parseCommandLine(parser, QStringLiteral("sample focus-stack"), arguments))
        return ExitOk;

    const QStringList positional =
        positionalArguments(parser, {QStringLiteral("sample focus-stack needs an output folder")});
    FocusSeriesSettings settings;
    settings.size = parseSize(parser.value(size));
    settings.shots = intOption(parser, QStringLiteral("shots"), 2, 999);
    settings.depth =
        choice<DepthKind>(QStringLiteral("depth"), parser.value(depth),
                          {{"plane", DepthKind::Plane}, {"steps", DepthKind::Steps}, {"sphere", DepthKind::Sphere}});
    // The preset gives the defaults; what is given on the command line wins over it.
    const bool preset = parser.isSet(realistic);
    const double perWidth = settings.size.width / 1024.0;
    const auto value = [&](const QCommandLineOption& option, double min, double max, double presetValue) {
        return numberOption(parser, option.names().first(), min, max, preset ? presetValue : 0.0);
    };
    settings.noise = value(noise, 0, 255, 1);
    settings.shotNoise = value(shotNoise, 0, 255, 3);
    settings.exposureDrift = value(exposureDrift, 0, 1, 0.03);
    settings.whiteBalanceDrift = value(whiteBalanceDrift, 0, 1, 0.015);
    settings.breathing = value(breathing, -0.5, 0.5, 0.03);
    settings.shake = value(shake, 0, 1000, 2 * perWidth);
    settings.parallax = value(parallax, 0, 1000, 3 * perWidth);
    const int jpegQuality = intOption(parser, QStringLiteral("jpeg"), 1, 100, preset ? 92 : 0);
    bool seedOk = false;
    settings.seed = parser.value(seed).toULongLong(&seedOk);
    if (!seedOk)
        usageError(QStringLiteral("--seed takes a non-negative integer, not '%1'").arg(parser.value(seed)));

    // The shots alone in OUT_DIR, so that the folder can be merged as it stands.
    const QDir dir(positional.first());
    const QDir truthDir(dir.filePath(QStringLiteral("truth")));
    OutputFolder folder(truthDir.path());

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
    const auto write = [&writing](const cv::Mat& image, const QString& fileName, int jpegQuality) {
        if (writing.valid())
            writing.get();
        writing = std::async(std::launch::async, [image, fileName, jpegQuality] {
            if (jpegQuality > 0)
                saveJpeg(image, fileName, jpegQuality);
            else
                saveImage(image, fileName);
        });
    };
    write(scene, folder.add(truthDir.filePath(QStringLiteral("truth.png"))), 0);
    cv::Mat depth8u;
    depthMap.convertTo(depth8u, CV_8U, 255);
    write(depth8u, folder.add(truthDir.filePath(QStringLiteral("depth.png"))), 0);
    scene.release();
    {
        const QString fileName = folder.add(truthDir.filePath(QStringLiteral("nuisances.json")));
        OutputFile output(fileName);
        QFile file(output.temporaryName());
        const QByteArray report = nuisanceReport(renderer, settings, jpegQuality);
        if (!file.open(QIODevice::WriteOnly) || file.write(report) != report.size() || !file.flush())
            runtimeError(QStringLiteral("%1: cannot write: %2").arg(fileName, file.errorString()));
        file.close();
        output.commit();
    }
    for (int shot = 0; shot < settings.shots; ++shot) {
        const QString name = QStringLiteral("shot_%1.%2")
                                 .arg(shot, 3, 10, QLatin1Char('0'))
                                 .arg(QLatin1String(jpegQuality > 0 ? "jpg" : "png"));
        task.step(QStringLiteral("[%1/%2] rendering %3").arg(shot + 1).arg(settings.shots).arg(name),
                  double(shot) / settings.shots);
        write(renderer.renderShot(shot), folder.add(dir.filePath(name)), jpegQuality);
    }
    writing.get();
    task.checkCancelled();
    folder.commit();
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
    choiceIndex(QStringLiteral("sample kind"), kind, {QStringLiteral("focus-stack")});
    return sampleFocusStack(arguments.mid(1));
}

} // namespace vexatool
