// What every command of the tool shares: failures that end the run with a one-line message and an exit
// code, progress lines on a terminal, and the command-line parsing of one subcommand.
#pragma once

#include <QCommandLineParser>
#include <QString>
#include <QStringList>

namespace vexatool {

enum ExitCode : int {
    ExitOk = 0,
    ExitRuntimeError = 1, // the command was well formed but could not be carried out
    ExitUsageError = 2,   // the command line itself is wrong
};

// Thrown by the commands, caught in main: the message goes to stderr as "vexa: <message>".
struct Failure {
    int code;
    QString message;
};

[[noreturn]] void usageError(const QString& message);
[[noreturn]] void runtimeError(const QString& message);

// Progress goes to stderr, only when stderr is a terminal; each line overwrites the one before, and
// endProgress() clears the last.
bool stderrIsTerminal();
void progress(const QString& line);
void endProgress();

// Parses the arguments after "vexa <command>" (the name given as command, e.g. "focus-stack"); a parse
// error is a usage error. Returns false when --help was asked for and the help text has been printed.
bool parseCommandLine(QCommandLineParser& parser, const QString& command, const QStringList& arguments);

// Strict integer and number parsing of option values; out of range or malformed values are usage errors
// naming the option.
int intOption(const QCommandLineParser& parser, const QString& name, int min, int max);
double numberOption(const QCommandLineParser& parser, const QString& name, double min, double max);

int sampleCommand(const QStringList& arguments);
int focusStackCommand(const QStringList& arguments);

} // namespace vexatool
