// What every command of the tool shares: failures that end the run with a one-line message and an exit
// code, the progress bar on a terminal, Ctrl-C, and the command-line parsing of one subcommand.
#pragma once

#include <vexa/imp/VProgress.h>
#include <vlog/VLog.h>

#include <QCommandLineParser>
#include <QString>
#include <QStringList>

#include <initializer_list>
#include <utility>

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
// The run was interrupted (Ctrl-C): "vexa: cancelled", exit code 1.
[[noreturn]] void cancelledError();

// One line "vexa: <message>" on stderr, the progress bar cleared first; for failures that do not end the
// run (one stack of a batch, one file of several).
void printError(const QString& message);

// Image decoders (libpng's among them) print their complaints straight to stderr; while one of these
// lives, on any thread, stderr goes nowhere, so that a damaged file gets the tool's one line and nothing
// else. The tool's own lines still reach the terminal.
class StderrSilenced {
public:
    StderrSilenced();
    ~StderrSilenced();
    StderrSilenced(const StderrSilenced&) = delete;
    StderrSilenced& operator=(const StderrSilenced&) = delete;
};

// Ctrl-C and SIGTERM cancel every live Task through its VProgress; a second one kills the tool at once.
void installInterruptHandlers();
bool interrupted();

// One piece of work on the calling thread, watched and interruptible: its VProgress is current on this
// thread while the Task lives, so library calls made here report into the progress bar and stop when the
// user interrupts. The tool's own steps ("reading X") go through step(). Make it on the thread doing the
// work; several threads may each have one.
class Task {
public:
    explicit Task(const QString& label = QString());
    ~Task();
    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;

    VProgress* progress() { return &progress_; }
    // Shows the stage (at the given overall fraction, or where the work stands); ends the run when the
    // user has interrupted it, so that nothing more is started.
    void step(const QString& stage, double fraction = -1);
    bool isCancelled() const { return progress_.isCancelled(); }
    void checkCancelled() const;
    // A library call failed: the interruption when that was the cause, otherwise the message.
    [[noreturn]] void fail(const QString& message) const;
    // Runs a library call returning a VStatus as the part [from, to] of the bar; a failure ends the run
    // with "<what>: <the status's text>", or as interrupted when that was the cause.
    template <class Call>
    void run(const QString& what, double from, double to, Call&& call)
    {
        VStatus status;
        {
            const VProgress::Section section(&progress_, from, to);
            status = call();
        }
        if (!status)
            fail(what + QStringLiteral(": ") + status.reason().simplified());
    }

private:
    void show(double fraction, const QString& stage, bool ownStep);

    QString label_;
    VProgress progress_;
    VProgressScope scope_;
    int slot_ = -1;
};

// A run of several units of work (the stacks of a batch): the progress bar then shows the whole run, with
// every live Task counted as its fraction of one unit.
void beginUnits(int total);
void finishUnit();

// Clears the progress bar; called before anything else goes to stderr or stdout.
void endProgress();

// Parses the arguments after "vexa <command>" (the name given as command, e.g. "focus-stack"); a parse
// error is a usage error. Returns false when --help was asked for and the help text has been printed.
// Commands that write image files take --quality and --compression too, which then hold for every
// image file the run writes (see writeSettings() in image_io.h).
enum class Writes { Nothing, ImageFiles };
bool parseCommandLine(QCommandLineParser& parser, const QString& command, const QStringList& arguments,
                      Writes writes = Writes::Nothing);

// The positional arguments, as many as `missing` has texts: with fewer, the text for the first one left out
// is the usage error ("no input file given"); with more, the first one too many is named.
QStringList positionalArguments(const QCommandLineParser& parser, const QStringList& missing);

// -o, --output: where a command writes, FILE unless another value name is given.
QCommandLineOption outputOption(const QString& description, const QString& valueName = QStringLiteral("FILE"));
// Its value, without which the command cannot run: "no output file: give one with -o FILE" when it is not
// given (for a folder: "no output folder: give one with -o DIR").
enum class Output { File, Folder };
QString requiredOutput(const QCommandLineParser& parser, const QCommandLineOption& output, Output kind = Output::File);

// Strict integer and number parsing of option values; out of range or malformed values are usage errors
// naming the option. With a fallback, that is the value of an option not given.
int intOption(const QCommandLineParser& parser, const QString& name, int min, int max);
int intOption(const QCommandLineParser& parser, const QString& name, int min, int max, int fallback);
double numberOption(const QCommandLineParser& parser, const QString& name, double min, double max);
double numberOption(const QCommandLineParser& parser, const QString& name, double min, double max, double fallback);

// One of a fixed set of names (an option's value, a kind of sample): its position among them, compared as
// given or ignoring case, or else the usage error "unknown WHAT 'TEXT' (known: NAME, NAME...)".
int choiceIndex(const QString& what, const QString& text, const QStringList& names,
                Qt::CaseSensitivity sensitivity = Qt::CaseSensitive);
// The same, giving the value that goes with the name.
template <class T>
T choice(const QString& what, const QString& text, std::initializer_list<std::pair<const char*, T>> choices)
{
    QStringList names;
    for (const auto& entry : choices)
        names << QLatin1String(entry.first);
    return (choices.begin() + choiceIndex(what, text, names))->second;
}

// Runs the command line after "vexa": every failure is printed as its one line and becomes the exit code.
// The process's own set-up (the Qt application, signal handlers) is the caller's.
int runTool(const QStringList& arguments);

int sampleCommand(const QStringList& arguments);
int focusStackCommand(const QStringList& arguments);
int infoCommand(const QStringList& arguments);
int convertCommand(const QStringList& arguments);
int histogramCommand(const QStringList& arguments);
int filterCommand(const QStringList& arguments);
int transformCommand(const QStringList& arguments);
int cropCommand(const QStringList& arguments);
int compareCommand(const QStringList& arguments);
int montageCommand(const QStringList& arguments);
int stabilizeCommand(const QStringList& arguments);
int panoramaCommand(const QStringList& arguments);

} // namespace vexatool
