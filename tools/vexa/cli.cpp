#include "cli.h"

#include <QTextStream>

#include <cstdio>
#include <unistd.h>

namespace vexatool {

void usageError(const QString& message) { throw Failure{ExitUsageError, message}; }

void runtimeError(const QString& message) { throw Failure{ExitRuntimeError, message}; }

bool stderrIsTerminal()
{
    static const bool terminal = isatty(STDERR_FILENO) == 1;
    return terminal;
}

void progress(const QString& line)
{
    if (!stderrIsTerminal())
        return;
    std::fprintf(stderr, "\r\033[K%s", line.toLocal8Bit().constData());
    std::fflush(stderr);
}

void endProgress()
{
    if (!stderrIsTerminal())
        return;
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
}

bool parseCommandLine(QCommandLineParser& parser, const QString& command, const QStringList& arguments)
{
    const QCommandLineOption help = parser.addHelpOption();
    if (!parser.parse(QStringList{QStringLiteral("vexa")} + arguments))
        usageError(parser.errorText());
    if (!parser.isSet(help) && !parser.isSet(QStringLiteral("help-all")))
        return true;
    // Qt's help text names the program by its path; the command's own name reads better.
    QString text = parser.helpText();
    const int options = text.indexOf(QStringLiteral(" [options]"));
    if (text.startsWith(QStringLiteral("Usage: ")) && options > 0)
        text.replace(7, options - 7, QStringLiteral("vexa ") + command);
    QTextStream(stdout) << text;
    return false;
}

int intOption(const QCommandLineParser& parser, const QString& name, int min, int max)
{
    bool ok = false;
    const int value = parser.value(name).toInt(&ok);
    if (!ok || value < min || value > max)
        usageError(QStringLiteral("--%1 takes an integer from %2 to %3, not '%4'")
                       .arg(name)
                       .arg(min)
                       .arg(max)
                       .arg(parser.value(name)));
    return value;
}

double numberOption(const QCommandLineParser& parser, const QString& name, double min, double max)
{
    bool ok = false;
    const double value = parser.value(name).toDouble(&ok);
    if (!ok || !(value >= min && value <= max))
        usageError(QStringLiteral("--%1 takes a number from %2 to %3, not '%4'")
                       .arg(name)
                       .arg(min)
                       .arg(max)
                       .arg(parser.value(name)));
    return value;
}

} // namespace vexatool
