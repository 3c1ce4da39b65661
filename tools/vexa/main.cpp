// vexa: the library's command-line tool.
//
// Every failure ends the run with one line on stderr, "vexa: <what went wrong>", and exit code 2 for a
// wrong command line or 1 for anything that went wrong carrying it out (an interruption included).
#include "cli.h"
#include "stacking.h"

#include <QGuiApplication>

#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>

#include <cstring>

using namespace vexatool;

namespace {

// The tool reports every failure itself, in one line; the library's log records and Qt's image plugins'
// warnings would only repeat or bury it.
void dropMessage(QtMsgType, const QMessageLogContext&, const QString&) {}

} // namespace

int main(int argc, char** argv)
{
    // Worth a second start (about 20 ms) only for the long merges of large shots.
    if (argc > 1 && std::strcmp(argv[1], "focus-stack") == 0)
        startWithLargePages(argv);
    // Plots and labels are drawn with Qt's text, which needs a GUI application; without a display of its
    // own the tool draws off screen.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    qInstallMessageHandler(dropMessage);
    returnLargeBlocksToTheSystem();
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
#ifdef VEXA_UNDER_TSAN
    // TBB, which runs OpenCV's parallel loops, is not instrumented: ThreadSanitizer cannot see it hand work
    // over and back and reports every pixel a worker touches. Sequential, the tool's reports are its own.
    cv::setNumThreads(0);
#endif
    QGuiApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vexa"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VEXA_VERSION));
    installInterruptHandlers();
    return runTool(QCoreApplication::arguments().mid(1));
}
