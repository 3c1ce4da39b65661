// vexa filter IN -o OUT OP: one smoothing, sharpening, morphological or derivative operation;
// vexa transform IN -o OUT: undistortion, resizing, rotation and flips, in that order.
#include "cli.h"
#include "image_io.h"

#include <vexa/gen/gen_copy_image.h>
#include <vexa/gen/gen_image_converters.h>
#include <vexa/gen/gen_math_image.h>
#include <vexa/gen/gen_morph_image.h>
#include <vexa/gen/gen_resize_image.h>
#include <vexa/gen/gen_smooth_image.h>

#include <QRegularExpression>
#include <QTextStream>

#include <algorithm>
#include <cmath>
#include <functional>

namespace vexatool {

namespace {

// Where "vexa filter" and "vexa transform" write their one image.
QCommandLineOption resultOption()
{
    return outputOption(QStringLiteral("Write the result to FILE (.vexa or an image file)."));
}

// The positional arguments of "vexa COMMAND IN ... -o OUT" (see positionalArguments), the output checked.
QStringList inputAndOutput(const QCommandLineParser& parser, const QCommandLineOption& output,
                           const QStringList& missing)
{
    const QStringList positional = positionalArguments(parser, missing);
    checkOutputName(requiredOutput(parser, output));
    return positional;
}

// An image in `via` for an operation that does not take its format, and the way back; empty when the
// image goes as it is. Only lossless round trips are made.
VImage converted(const VImage& image, VEXA::Format via, Task& task, const QString& in)
{
    VImage result;
    result.create(image.width(), image.height(), via, image.channelType(), image.origin(), image.rowsAlignment());
    task.run(QStringLiteral("%1: cannot convert %2 to %3")
                 .arg(in, pairName(image.format(), image.channelType()), pairName(via, image.channelType())),
             0, 0, [&] { return result.status() ? VEXA::convertImage(image, &result) : result.status(); });
    return result;
}

struct Operation {
    const char* name;
    const char* summary;
    QStringList options; // the options it takes; any other is refused
};

const QList<Operation> kOperations{
    {"blur", "mean over SIZE x SIZE", {"size"}},
    {"gaussian", "Gaussian of SIZE x SIZE (made odd), or of --sigma", {"size", "sigma"}},
    {"median", "median of SIZE x SIZE (made odd)", {"size"}},
    {"bilateral", "edge-keeping smoothing over a diameter of SIZE (default: from --sigma-space)",
     {"size", "sigma-color", "sigma-space"}},
    {"sharpen", "unsharp mask of a SIZE Gaussian, --amount, between --low and --high", {"size", "amount", "low", "high"}},
    {"erode", "minimum over the element", {"size", "iterations", "shape"}},
    {"dilate", "maximum over the element", {"size", "iterations", "shape"}},
    {"open", "erosions, then as many dilations", {"size", "iterations", "shape"}},
    {"close", "dilations, then as many erosions", {"size", "iterations", "shape"}},
    {"gradient", "dilation minus erosion", {"size", "iterations", "shape"}},
    {"tophat", "the image minus its opening", {"size", "iterations", "shape"}},
    {"blackhat", "the closing minus the image", {"size", "iterations", "shape"}},
    {"laplace", "second derivatives summed", {"aperture", "channel"}},
    {"sobel", "Sobel derivative of orders --dx and --dy", {"dx", "dy", "aperture", "channel"}},
};

} // namespace

int filterCommand(const QStringList& arguments)
{
    QCommandLineParser parser;
    QString operations;
    for (const Operation& op : kOperations)
        operations += QStringLiteral("\n  %1%2").arg(QLatin1String(op.name), -11).arg(QLatin1String(op.summary));
    parser.setApplicationDescription(
        QStringLiteral("Applies one operation of the library to the image. Operations:") + operations +
        QStringLiteral("\nThe result has the input's format and channel type (laplace and sobel: --channel). "
                       "Borders are replicated."));
    parser.addPositionalArgument(QStringLiteral("in"), QStringLiteral("The image file or .vexa file."), QStringLiteral("IN"));
    parser.addPositionalArgument(QStringLiteral("op"), QStringLiteral("The operation."), QStringLiteral("OP"));
    const QCommandLineOption output = resultOption();
    const QList<QCommandLineOption> options{
        {QStringLiteral("size"), QStringLiteral("Window or element size, 1 to 999 (default 3; gaussian and sharpen 5)."), QStringLiteral("N")},
        {QStringLiteral("sigma"), QStringLiteral("gaussian: the sigma; without --size the window follows from it."), QStringLiteral("S")},
        {QStringLiteral("iterations"), QStringLiteral("Morphology: times the element is applied (default 1)."), QStringLiteral("N")},
        {QStringLiteral("shape"), QStringLiteral("Morphology: the element, rect (default), cross or ellipse."), QStringLiteral("SHAPE")},
        {QStringLiteral("amount"), QStringLiteral("sharpen: 1 keeps the image, more sharpens (default 2)."), QStringLiteral("A")},
        {QStringLiteral("low"), QStringLiteral("sharpen: the smallest luminance change sharpened (default 0)."), QStringLiteral("L")},
        {QStringLiteral("high"), QStringLiteral("sharpen: the largest luminance change sharpened (default 255)."), QStringLiteral("H")},
        {QStringLiteral("sigma-color"), QStringLiteral("bilateral: the sigma of values (default 25)."), QStringLiteral("S")},
        {QStringLiteral("sigma-space"), QStringLiteral("bilateral: the sigma of distances (default 3)."), QStringLiteral("S")},
        {QStringLiteral("dx"), QStringLiteral("sobel: the order of the x derivative (default 1)."), QStringLiteral("N")},
        {QStringLiteral("dy"), QStringLiteral("sobel: the order of the y derivative (default 0)."), QStringLiteral("N")},
        {QStringLiteral("aperture"), QStringLiteral("laplace, sobel: the kernel size, odd up to 31 (default 3; sobel -1: Scharr)."), QStringLiteral("N")},
        {QStringLiteral("channel"), QStringLiteral("laplace, sobel: the result's channel type, e.g. 16s or 32f to keep negative values."), QStringLiteral("C")},
    };
    parser.addOption(output);
    parser.addOptions(options);
    if (!parseCommandLine(parser, QStringLiteral("filter"), arguments, Writes::ImageFiles))
        return ExitOk;
    const QStringList positional =
        inputAndOutput(parser, output, {QStringLiteral("no input file given"), QStringLiteral("no operation given")});
    const QString in = positional.at(0);
    const QString out = parser.value(output);
    const QString opName = positional.at(1).toLower();
    const Operation* op = nullptr;
    QStringList known;
    for (const Operation& candidate : kOperations) {
        known << QLatin1String(candidate.name);
        if (opName == QLatin1String(candidate.name))
            op = &candidate;
    }
    if (!op)
        usageError(QStringLiteral("unknown operation '%1' (known: %2)").arg(positional.at(1), known.join(QStringLiteral(", "))));
    for (const QCommandLineOption& option : options)
        if (parser.isSet(option) && !op->options.contains(option.names().first()))
            usageError(QStringLiteral("--%1 does not go with %2").arg(option.names().first(), opName));

    const bool smooth = opName == QLatin1String("gaussian") || opName == QLatin1String("sharpen");
    const int size = intOption(parser, QStringLiteral("size"), 1, 999, smooth ? 5 : 3);
    const int iterations = intOption(parser, QStringLiteral("iterations"), 0, 999, 1);
    const int aperture = intOption(parser, QStringLiteral("aperture"), -1, 31, 3);
    const int dx = intOption(parser, QStringLiteral("dx"), 0, 30, 1);
    const int dy = intOption(parser, QStringLiteral("dy"), 0, 30, 0);
    const double sigma = numberOption(parser, QStringLiteral("sigma"), 0.01, 1000, 0);
    const double amount = numberOption(parser, QStringLiteral("amount"), 0, 1000, 2);
    const int low = intOption(parser, QStringLiteral("low"), 0, 255, 0);
    const int high = intOption(parser, QStringLiteral("high"), 0, 255, 255);
    const double sigmaColor = numberOption(parser, QStringLiteral("sigma-color"), 0.01, 1e6, 25);
    const double sigmaSpace = numberOption(parser, QStringLiteral("sigma-space"), 0.01, 1000, 3);
    if (opName == QLatin1String("sobel") && dx + dy == 0)
        usageError(QStringLiteral("sobel needs --dx or --dy above 0"));
    const VEXA::ConvKernelShape shape =
        parser.isSet(QStringLiteral("shape"))
            ? choice<VEXA::ConvKernelShape>(QStringLiteral("shape"), parser.value(QStringLiteral("shape")),
                                            {{"rect", VEXA::ConvKernelRect},
                                             {"cross", VEXA::ConvKernelCross},
                                             {"ellipse", VEXA::ConvKernelEllipse}})
            : VEXA::ConvKernelRect;
    const bool derivative = opName == QLatin1String("laplace") || opName == QLatin1String("sobel");
    const VEXA::Channel channel =
        parser.isSet(QStringLiteral("channel")) ? parseChannel(parser.value(QStringLiteral("channel"))) : VEXA::ChannelInvalid;

    Task task;
    task.step(QStringLiteral("reading ") + in, 0);
    VImage image = readImage(in);
    checkWritable(image.format(), channel != VEXA::ChannelInvalid ? channel : image.channelType(), out);

    // The bilateral filter takes gray and BGR, the unsharp mask 32-bit colour; the common colour layouts
    // go through the other one and back, which loses nothing.
    VEXA::Format via = VEXA::Invalid;
    if (opName == QLatin1String("bilateral") && image.format() == VEXA::XRGB)
        via = VEXA::BGR;
    if (opName == QLatin1String("sharpen") && image.format() == VEXA::BGR)
        via = VEXA::XRGB;
    const VEXA::Format original = image.format();
    if (via != VEXA::Invalid)
        image = converted(image, via, task, in);

    VImage result;
    if (derivative && channel != VEXA::ChannelInvalid) {
        result.create(image.width(), image.height(), image.format(), channel, image.origin(), image.rowsAlignment());
        result.setRoi(image.roi());
    }
    const VConvKernel element(size, size, size / 2, size / 2, shape);
    const std::function<VStatus()> calls[] = {
        [&] { return VEXA::smoothBlur(image, &result, size, size); },
        [&] {
            return parser.isSet(QStringLiteral("sigma"))
                       ? VEXA::smoothGaussianSigma(image, &result, parser.isSet(QStringLiteral("size")) ? size : -1, sigma)
                       : VEXA::smoothGaussian(image, &result, size);
        },
        [&] { return VEXA::smoothMedian(image, &result, size); },
        [&] {
            return VEXA::smoothBilaterial(image, &result, parser.isSet(QStringLiteral("size")) ? size : 0, 0, sigmaColor,
                                          sigmaSpace);
        },
        [&] { return VEXA::sharpImage(image, &result, size, amount, low, high); },
        [&] { return VEXA::erodeImage(image, &result, element, iterations); },
        [&] { return VEXA::dilateImage(image, &result, element, iterations); },
        [&] { return VEXA::morphOpening(image, &result, element, iterations); },
        [&] { return VEXA::morphClosing(image, &result, element, iterations); },
        [&] { return VEXA::morphGradient(image, &result, element, iterations); },
        [&] { return VEXA::morphTopHat(image, &result, element, iterations); },
        [&] { return VEXA::morphBlackHat(image, &result, element, iterations); },
        [&] { return VEXA::laplaceImage(image, &result, aperture); },
        [&] { return VEXA::sobelImage(image, &result, dx, dy, aperture); },
    };
    task.step(opName, 0.1);
    task.run(QStringLiteral("%1: %2 of a %3 image failed").arg(in, opName, pairName(image.format(), image.channelType())),
             0.1, 0.9, calls[op - kOperations.data()]);
    if (image.format() != original)
        result = converted(result, original, task, in);
    writeImage(result, out, &task);
    endProgress();
    return ExitOk;
}

int transformCommand(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Undistorts, crops, resizes, rotates and flips the image, in that order, with the "
                       "library's warps; at least one of them must be asked for. Any format and channel type the "
                       "warps take is kept."));
    parser.addPositionalArgument(QStringLiteral("in"), QStringLiteral("The image file or .vexa file."), QStringLiteral("IN"));
    const QCommandLineOption output = resultOption();
    const QCommandLineOption crop(QStringLiteral("crop"),
                                  QStringLiteral("Keep the rectangle of width W and height H whose top left corner "
                                                 "is X pixels from the left and Y from the top; it must lie inside "
                                                 "the image."),
                                  QStringLiteral("X,Y,W,H"));
    const QCommandLineOption resize(QStringLiteral("resize"),
                                    QStringLiteral("Resample to WIDTHxHEIGHT; to W pixels wide or xH pixels high, "
                                                   "the other side keeping the aspect; or to N% of the size."),
                                    QStringLiteral("WxH|W|xH|N%"));
    const QCommandLineOption scale(QStringLiteral("scale"), QStringLiteral("Resample by the factor F (0.001 to 100)."),
                                   QStringLiteral("F"));
    const QCommandLineOption interpolation(QStringLiteral("interpolation"),
                                           QStringLiteral("nearest, linear, cubic or area (default: area when "
                                                          "shrinking, linear when enlarging)."),
                                           QStringLiteral("METHOD"));
    const QCommandLineOption rotate(QStringLiteral("rotate"),
                                    QStringLiteral("Turn counter-clockwise by DEGREES (negative: clockwise); the "
                                                   "result is the turned image's bounding box, corners black."),
                                    QStringLiteral("DEGREES"));
    const QCommandLineOption flip(QStringLiteral("flip"),
                                  QStringLiteral("Mirror left to right (h), top to bottom (v) or both."),
                                  QStringLiteral("h|v|both"));
    const QCommandLineOption undistort(QStringLiteral("undistort"),
                                       QStringLiteral("Radial lens correction: a point r pixels from the centre moves "
                                                      "by the factor 1 + K1 r^2."),
                                       QStringLiteral("K1"));
    parser.addOptions({output, crop, resize, scale, interpolation, rotate, flip, undistort});
    if (!parseCommandLine(parser, QStringLiteral("transform"), arguments, Writes::ImageFiles))
        return ExitOk;
    const QString in = inputAndOutput(parser, output, {QStringLiteral("no input file given")}).first();
    const QString out = parser.value(output);
    if (!parser.isSet(crop) && !parser.isSet(resize) && !parser.isSet(scale) && !parser.isSet(rotate) &&
        !parser.isSet(flip) && !parser.isSet(undistort))
        usageError(QStringLiteral("nothing to do: give --crop, --resize, --scale, --rotate, --flip or --undistort"));
    if (parser.isSet(resize) && parser.isSet(scale))
        usageError(QStringLiteral("--resize and --scale exclude each other"));
    QRect cropRect;
    if (parser.isSet(crop)) {
        static const QRegularExpression pattern(QStringLiteral("^(\\d{1,6}),(\\d{1,6}),(\\d{1,6}),(\\d{1,6})$"));
        const QRegularExpressionMatch match = pattern.match(parser.value(crop));
        if (match.hasMatch())
            cropRect = QRect(match.captured(1).toInt(), match.captured(2).toInt(), match.captured(3).toInt(),
                             match.captured(4).toInt());
        if (cropRect.isEmpty())
            usageError(QStringLiteral("--crop takes X,Y,WIDTH,HEIGHT of at least one pixel, not '%1'").arg(parser.value(crop)));
    }
    // Width, height or both (0 where the aspect decides), or a percentage.
    QSize asked;
    double factor = numberOption(parser, QStringLiteral("scale"), 0.001, 100, 0);
    if (parser.isSet(resize)) {
        static const QRegularExpression pattern(QStringLiteral("^(\\d{1,6})?(?:x(\\d{1,6}))?$|^(\\d{1,4}(?:\\.\\d*)?)%$"));
        const QString text = parser.value(resize);
        const QRegularExpressionMatch match = pattern.match(text);
        if (match.hasMatch() && !match.captured(3).isEmpty())
            factor = match.captured(3).toDouble() / 100;
        else if (match.hasMatch())
            asked = QSize(match.captured(1).toInt(), match.captured(2).toInt());
        const bool sized = asked.width() > 0 || asked.height() > 0;
        const bool noSideZero = (match.captured(1).isEmpty() || asked.width() > 0) &&
                                (match.captured(2).isEmpty() || asked.height() > 0);
        if (!(sized && noSideZero) && !(factor >= 0.001 && factor <= 100))
            usageError(QStringLiteral("--resize takes WIDTHxHEIGHT, WIDTH, xHEIGHT or N% (0.1 to 10000), not '%1'")
                           .arg(text));
    }
    int method = -1;
    if (parser.isSet(interpolation)) {
        const QStringList methods{"nearest", "linear", "cubic", "area"};
        method = int(methods.indexOf(parser.value(interpolation).toLower()));
        if (method < 0)
            usageError(QStringLiteral("unknown interpolation '%1' (known: %2)")
                           .arg(parser.value(interpolation), methods.join(QStringLiteral(", "))));
    }
    const double degrees = numberOption(parser, QStringLiteral("rotate"), -1e6, 1e6, 0);
    int flipMode = 2; // none
    if (parser.isSet(flip)) {
        const QString text = parser.value(flip);
        flipMode = text == QLatin1String("h") ? 1 : text == QLatin1String("v") ? 0 : text == QLatin1String("both") ? -1 : 2;
        if (flipMode == 2)
            usageError(QStringLiteral("--flip takes h, v or both, not '%1'").arg(text));
    }
    const double k1 = numberOption(parser, QStringLiteral("undistort"), -1, 1, 0);

    Task task;
    task.step(QStringLiteral("reading ") + in, 0);
    VImage image = readImage(in);
    checkWritable(image.format(), image.channelType(), out);
    const QString failed = in + QStringLiteral(": %1 of a ") + pairName(image.format(), image.channelType()) +
                           QStringLiteral(" image failed");
    double at = 0.1;
    const double part = 0.8 / 5;
    const auto apply = [&](const QString& stage, const std::function<VStatus(VImage*)>& operation, VImage result) {
        task.step(stage, at);
        task.run(failed.arg(stage), at, at + part, [&] { return result.status() ? operation(&result) : result.status(); });
        image = result;
        at += part;
    };
    if (parser.isSet(undistort))
        apply(QStringLiteral("undistortion"), [&](VImage* dst) { return VEXA::undistortImage(image, dst, k1); }, VImage());
    if (parser.isSet(crop)) {
        if (!QRect(0, 0, image.width(), image.height()).contains(cropRect))
            runtimeError(QStringLiteral("%1: the crop %2,%3,%4,%5 reaches outside the %6x%7 image")
                             .arg(in)
                             .arg(cropRect.x())
                             .arg(cropRect.y())
                             .arg(cropRect.width())
                             .arg(cropRect.height())
                             .arg(image.width())
                             .arg(image.height()));
        image.setRoi(cropRect);
        VImage cropped;
        cropped.create(cropRect.width(), cropRect.height(), image.format(), image.channelType(), image.origin(),
                       image.rowsAlignment());
        apply(QStringLiteral("crop"), [&](VImage* dst) { return VEXA::copyImage(image, dst); }, cropped);
    }
    const auto side = [](qint64 length, double by) { return int(std::clamp<double>(std::lround(length * by), 1, 1e6)); };
    QSize newSize;
    if (factor > 0)
        newSize = QSize(side(image.width(), factor), side(image.height(), factor));
    else if (asked.isValid())
        newSize = QSize(asked.width() > 0 ? asked.width() : side(image.width(), double(asked.height()) / image.height()),
                        asked.height() > 0 ? asked.height() : side(image.height(), double(asked.width()) / image.width()));
    if (newSize.isValid()) {
        if (method < 0)
            method = newSize.width() * newSize.height() < image.width() * qint64(image.height()) ? VEXA::InterpolationArea
                                                                                                  : VEXA::InterpolationLinear;
        VImage resized;
        resized.create(newSize.width(), newSize.height(), image.format(), image.channelType(), image.origin(),
                       image.rowsAlignment());
        apply(QStringLiteral("resizing"),
              [&](VImage* dst) { return VEXA::resizeImage(image, dst, VEXA::InterpolationMethod(method)); }, resized);
    }
    if (parser.isSet(rotate)) {
        // Quarter turns go through the exact path: no resampling, no black corners.
        const double turn = std::fmod(std::fmod(degrees, 360) + 360, 360);
        const bool quarter = std::fmod(turn, 90) == 0;
        const VEXA::FixedAngle fixed = turn == 90 ? VEXA::Angle90 : turn == 180 ? VEXA::Angle180 : turn == 270 ? VEXA::Angle270 : VEXA::AngleNone;
        const double radians = degrees * M_PI / 180;
        VImageHeader header;
        if (quarter)
            VEXA::headerForRotate(image.header(), fixed, VEXA::RotateBoundingBox, &header);
        else
            VEXA::headerForRotate(image.header(), radians, VEXA::RotateBoundingBox, &header);
        VImage turned;
        turned.create(header);
        apply(QStringLiteral("rotation"),
              [&](VImage* dst) { return quarter ? VEXA::rotateImage(image, dst, fixed) : VEXA::rotateImage(image, dst, radians); },
              turned);
    }
    if (parser.isSet(flip))
        apply(QStringLiteral("flip"), [&](VImage* dst) { return VEXA::flipImage(image, dst, flipMode); }, VImage());
    writeImage(image, out, &task);
    endProgress();
    return ExitOk;
}

// vexa crop IN X,Y,W,H -o OUT: transform --crop, the rectangle given as the second argument.
int cropCommand(const QStringList& arguments)
{
    QStringList rest = arguments;
    int positional = 0;
    for (int i = 0; i < rest.size(); ++i) {
        const QString& a = rest.at(i);
        if (a == QLatin1String("-o") || a == QLatin1String("--output") || a == QLatin1String("--quality") ||
            a == QLatin1String("--compression")) {
            ++i; // the option's value
        } else if (!a.startsWith(QLatin1Char('-')) || a == QLatin1String("-")) {
            if (++positional == 2) {
                rest.replace(i, QStringLiteral("--crop=") + a);
                return transformCommand(rest);
            }
        } else if (a == QLatin1String("-h") || a == QLatin1String("--help")) {
            QTextStream(stdout) << "Usage: vexa crop [options] IN X,Y,W,H -o OUT\n\n"
                                   "Keeps the rectangle of width W and height H whose top left corner is X pixels "
                                   "from the left and Y from the top (it must lie inside the image), as "
                                   "vexa transform --crop does; the options are transform's.\n";
            return ExitOk;
        }
    }
    usageError(positional == 0 ? QStringLiteral("no input file given") : QStringLiteral("no rectangle X,Y,W,H given"));
}

} // namespace vexatool
