// The tool's commands by name, and the one frame that turns every failure into its line and exit code.
#include "cli.h"

#include <vexa/Vexa.h>

#include <QCommandLineParser>
#include <QRegularExpression>
#include <QTextStream>

#include <opencv2/core.hpp>

#include <cmath>
#include <exception>
#include <new>

namespace vexatool {

namespace {

struct Command {
    const char* name;
    int (*run)(const QStringList&);
    const char* summary;
};

const Command kCommands[] = {
    {"info", infoCommand, "size, format and file facts of images, from their headers"},
    {"convert", convertCommand, "an image in another format or channel type, or another file type"},
    {"histogram", histogramCommand, "the histogram of an image, as a table, JSON or a plot"},
    {"filter", filterCommand, "smoothing, sharpening, morphology and derivatives"},
    {"transform", transformCommand, "cropping, resizing, rotation, flips and lens undistortion"},
    {"crop", cropCommand, "a rectangle of an image (transform --crop)"},
    {"compare", compareCommand, "PSNR, SSIM and the largest difference of two images"},
    {"montage", montageCommand, "images side by side or in rows, labelled, depth maps in false colour"},
    {"focus-stack", focusStackCommand, "shots focused at different depths merged into one sharp image"},
    {"stabilize", stabilizeCommand, "a shaking frame sequence steadied, frame by frame"},
    {"panorama", panoramaCommand, "overlapping photos or stage-scan tiles joined into one image"},
    {"sample", sampleCommand, "synthetic inputs (sample focus-stack OUT_DIR: a focus series)"},
};


int fail(int code, const QString& message)
{
    printError(message);
    return code;
}

// VEXA_SIZE_LIMIT sets the image size limit: bytes, or a number with K, M, G or T (powers of 1024).
void applySizeLimitFromEnvironment()
{
    const QString text = qEnvironmentVariable("VEXA_SIZE_LIMIT").trimmed();
    if (text.isEmpty())
        return;
    static const QRegularExpression form(QStringLiteral("^([0-9]+(?:\\.[0-9]+)?) *([KMGT]?)(?:i?B)?$"),
                                         QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch match = form.match(text);
    const double bytes = match.hasMatch() ? match.captured(1).toDouble() *
                                                std::pow(1024.0, QStringLiteral(" KMGT").indexOf(match.captured(2).toUpper()))
                                          : 0;
    if (!(bytes >= 1 && bytes <= std::pow(2.0, 62)))
        usageError(QStringLiteral("VEXA_SIZE_LIMIT='%1' is not a size (bytes, or a number with K, M, G or T, such as 16G)")
                       .arg(text));
    VEXA::setImageSizeLimit(qint64(bytes));
}

int run(const QStringList& arguments)
{
    applySizeLimitFromEnvironment();
    QCommandLineParser parser;
    QString description = QStringLiteral("The Vexa image library's command-line tool.\n\nCommands:\n");
    for (const Command& command : kCommands)
        description += QStringLiteral("  %1%2\n").arg(QLatin1String(command.name), -13).arg(QLatin1String(command.summary));
    description += QStringLiteral("\n'vexa COMMAND --help' describes a command's options. Exit codes: 0 done, 1 the "
                                  "work failed or was interrupted, 2 a wrong command line.");
    parser.setApplicationDescription(description);
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("The command to run."),
                                 QStringLiteral("COMMAND [options]"));
    const QCommandLineOption version = parser.addVersionOption();
    // Everything from the command on belongs to the command's own parser.
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    if (!parseCommandLine(parser, QString(), arguments))
        return ExitOk;
    if (parser.isSet(version)) {
        QTextStream(stdout) << "vexa " << VEXA_VERSION << "\n";
        return ExitOk;
    }
    const QStringList rest = parser.positionalArguments();
    if (rest.isEmpty())
        usageError(QStringLiteral("no command given; 'vexa --help' lists the commands"));
    if (rest.first() == QLatin1String("help"))
        return run({QStringLiteral("--help")});
    for (const Command& command : kCommands)
        if (rest.first() == QLatin1String(command.name))
            return command.run(rest.mid(1));
    usageError(QStringLiteral("unknown command '%1'; 'vexa --help' lists the commands").arg(rest.first()));
}

} // namespace


int runTool(const QStringList& arguments)
{
    try {
        return run(arguments);
    } catch (const Failure& failure) {
        return fail(failure.code, failure.message);
    } catch (const std::bad_alloc&) {
        return fail(ExitRuntimeError, QStringLiteral("out of memory"));
    } catch (const cv::Exception& e) {
        return fail(ExitRuntimeError, QStringLiteral("OpenCV failed: ") + QString::fromStdString(e.err));
    } catch (const std::exception& e) {
        return fail(ExitRuntimeError, QString::fromLocal8Bit(e.what()).simplified());
    }
}

} // namespace vexatool
