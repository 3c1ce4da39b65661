// vexa: the library's command-line tool.
//
//   vexa sample focus-stack OUT_DIR [options]   a synthetic focus series, its sharp image and depth map
//   vexa focus-stack SHOT... -o OUT [options]    shots merged into one image sharp everywhere
//
// Every failure ends the run with one line on stderr, "vexa: <what went wrong>", and exit code 2 for a
// wrong command line or 1 for anything that went wrong carrying it out.
#include "cli.h"

#include <QCoreApplication>
#include <QTextStream>

#include <opencv2/core.hpp>

#include <cstdio>
#include <exception>
#include <new>

using namespace vexatool;

namespace {

const char* const kUsage = R"(Usage: vexa COMMAND [options]

Commands:
  sample focus-stack OUT_DIR   render a synthetic focus series with its sharp image and depth map
  focus-stack SHOT... -o OUT   merge shots focused at different depths into one image sharp everywhere

'vexa COMMAND --help' describes a command's options.
)";

// The tool reports every failure itself, in one line; the library's log records and Qt's image plugins'
// warnings would only repeat or bury it.
void dropMessage(QtMsgType, const QMessageLogContext&, const QString&) {}

int fail(int code, const QString& message)
{
    endProgress();
    std::fprintf(stderr, "vexa: %s\n", qPrintable(message));
    return code;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vexa"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VEXA_VERSION));
    qInstallMessageHandler(dropMessage);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    try {
        if (arguments.isEmpty())
            usageError(QStringLiteral("no command given; 'vexa --help' lists the commands"));
        const QString command = arguments.first();
        if (command == QLatin1String("-h") || command == QLatin1String("--help") || command == QLatin1String("help")) {
            QTextStream(stdout) << kUsage;
            return ExitOk;
        }
        if (command == QLatin1String("--version")) {
            QTextStream(stdout) << "vexa " << VEXA_VERSION << "\n";
            return ExitOk;
        }
        if (command == QLatin1String("sample"))
            return sampleCommand(arguments.mid(1));
        if (command == QLatin1String("focus-stack"))
            return focusStackCommand(arguments.mid(1));
        usageError(QStringLiteral("unknown command '%1'; 'vexa --help' lists the commands").arg(command));
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
