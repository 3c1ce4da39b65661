// vexa: the library's command-line tool.
//
// Every failure ends the run with one line on stderr, "vexa: <what went wrong>", and exit code 2 for a
// wrong command line or 1 for anything that went wrong carrying it out (an interruption included).
#include "cli.h"

#include <QGuiApplication>
#include <QTextStream>

#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>

#include <cstdio>
#include <exception>
#include <new>

using namespace vexatool;

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

// The tool reports every failure itself, in one line; the library's log records and Qt's image plugins'
// warnings would only repeat or bury it.
void dropMessage(QtMsgType, const QMessageLogContext&, const QString&) {}

int fail(int code, const QString& message)
{
    printError(message);
    return code;
}

int run(const QStringList& arguments)
{
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

int main(int argc, char** argv)
{
    // Plots and labels are drawn with Qt's text, which needs a GUI application; without a display of its
    // own the tool draws off screen.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    qInstallMessageHandler(dropMessage);
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    QGuiApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vexa"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VEXA_VERSION));
    installInterruptHandlers();
    try {
        return run(QCoreApplication::arguments().mid(1));
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
