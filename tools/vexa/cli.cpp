#include "cli.h"
#include "image_io.h"

#include <QTextStream>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <thread>
#include <type_traits>
#include <vector>

#include <cerrno>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace vexatool {

void usageError(const QString& message) { throw Failure{ExitUsageError, message}; }

void runtimeError(const QString& message) { throw Failure{ExitRuntimeError, message}; }

void cancelledError() { throw Failure{ExitRuntimeError, QStringLiteral("cancelled")}; }

namespace {

// Interruption. The handler may run on any thread, at any moment, so it touches nothing but lock-free
// atomics: it sets the flag and cancels every VProgress registered in the slots. A Task leaving its slot
// waits until no handler is inside, so the handler never calls cancel() on a VProgress that is gone.
constexpr int kLiveSlots = 256;
std::atomic<VProgress*> liveProgress[kLiveSlots];
std::atomic<int> handlersInside{0};
std::atomic<bool> interruptedFlag{false};
static_assert(std::atomic<VProgress*>::is_always_lock_free && std::atomic<int>::is_always_lock_free &&
              std::atomic<bool>::is_always_lock_free);

void onInterrupt(int)
{
    handlersInside.fetch_add(1);
    interruptedFlag.store(true);
    for (std::atomic<VProgress*>& slot : liveProgress)
        if (VProgress* progress = slot.load())
            progress->cancel();
    handlersInside.fetch_sub(1);
}

int takeSlot(VProgress* progress)
{
    for (int i = 0; i < kLiveSlots; ++i) {
        VProgress* expected = nullptr;
        if (liveProgress[i].compare_exchange_strong(expected, progress))
            return i;
    }
    return -1; // more live tasks than slots: this one still sees the flag at each step
}

void leaveSlot(int slot)
{
    if (slot < 0)
        return;
    liveProgress[slot].store(nullptr);
    while (handlersInside.load() != 0)
        std::this_thread::yield();
}

// The tool's own stderr, kept open for the whole run: while decoders are silenced the descriptor 2 leads
// nowhere, and the tool's lines (from other threads too) go here instead.
int toolStderr()
{
    static const int fd = [] {
        const int copy = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
        return copy >= 0 ? copy : STDERR_FILENO;
    }();
    return fd;
}

void writeStderr(const QString& text)
{
    const QByteArray bytes = text.toLocal8Bit();
    for (qsizetype done = 0; done < bytes.size();) {
        const ssize_t n = ::write(toolStderr(), bytes.constData() + done, size_t(bytes.size() - done));
        if (n <= 0 && errno != EINTR)
            return;
        done += n > 0 ? n : 0;
    }
}

std::mutex silenceMutex;
int silenced = 0;

bool stderrIsTerminal()
{
    static const bool terminal = isatty(toolStderr()) == 1;
    return terminal;
}

int terminalColumns()
{
    winsize size{};
    return ioctl(toolStderr(), TIOCGWINSZ, &size) == 0 && size.ws_col > 10 ? size.ws_col : 80;
}

// The progress bar: one line on stderr, redrawn in place, fed by every live Task on any thread.
class Board {
public:
    static Board& instance()
    {
        static Board board;
        return board;
    }

    void add(const Task* task, const QString& label)
    {
        const std::lock_guard lock(mutex_);
        entries_.push_back({task, label, 0.0, QString(), QString()});
    }

    void remove(const Task* task)
    {
        const std::lock_guard lock(mutex_);
        entries_.erase(std::remove_if(entries_.begin(), entries_.end(), [task](const Entry& e) { return e.task == task; }),
                       entries_.end());
    }

    // The tool's own steps replace each other; the library's stages are shown after the step they belong to.
    void update(const Task* task, double fraction, const QString& stage, bool ownStep)
    {
        const std::lock_guard lock(mutex_);
        for (Entry& e : entries_)
            if (e.task == task) {
                e.fraction = std::max(e.fraction, std::clamp(fraction, 0.0, 1.0)); // a bar never runs back
                if (ownStep)
                    e.step = stage;
                e.stage = ownStep || e.step.startsWith(stage) ? QString() : stage; // "writing X" says "writing"
            }
        draw();
    }

    void setUnits(int done, int total)
    {
        const std::lock_guard lock(mutex_);
        done_ = total >= 0 ? done : done_ + 1;
        total_ = total >= 0 ? total : total_;
        draw();
    }

    void clear()
    {
        const std::lock_guard lock(mutex_);
        clearLine();
    }

    void print(const QString& message)
    {
        const std::lock_guard lock(mutex_);
        clearLine();
        writeStderr(QStringLiteral("vexa: ") + message + QLatin1Char('\n'));
    }

private:
    struct Entry {
        const Task* task;
        QString label;
        double fraction;
        QString step, stage;

        QString text() const { return stage.isEmpty() ? step : step + QStringLiteral(" (") + stage + QLatin1Char(')'); }
    };

    void clearLine()
    {
        if (!shown_.isEmpty() && stderrIsTerminal())
            writeStderr(QStringLiteral("\r\033[K"));
        shown_.clear();
    }

    void draw()
    {
        if (!stderrIsTerminal())
            return;
        double fraction = 0;
        QString text;
        if (total_ > 0) {
            double sum = done_;
            text = QStringLiteral("%1/%2").arg(done_).arg(total_);
            for (const Entry& e : entries_) {
                sum += e.fraction;
                text += QStringLiteral("  ") + e.label + QStringLiteral(": ") + e.text();
            }
            fraction = sum / total_;
        } else if (!entries_.empty()) {
            fraction = entries_.back().fraction;
            text = entries_.back().text();
        } else {
            return;
        }
        // Fractions come far more often than a person can read them: the line changes at most ten times a
        // second unless its words do.
        const auto now = std::chrono::steady_clock::now();
        if (text == text_ && now - drawn_ < std::chrono::milliseconds(100))
            return;
        constexpr int kBar = 24;
        const int filled = int(std::lround(std::clamp(fraction, 0.0, 1.0) * kBar));
        QString line = QStringLiteral("[%1%2] %3% %4")
                           .arg(QString(filled, QLatin1Char('#')), QString(kBar - filled, QLatin1Char('-')))
                           .arg(int(fraction * 100), 3)
                           .arg(text);
        line.truncate(terminalColumns() - 1);
        if (line == shown_)
            return;
        writeStderr(QStringLiteral("\r\033[K") + line);
        shown_ = line;
        text_ = text;
        drawn_ = now;
    }

    std::mutex mutex_;
    std::vector<Entry> entries_;
    int done_ = 0, total_ = 0;
    QString shown_, text_;
    std::chrono::steady_clock::time_point drawn_;
};

} // namespace

void printError(const QString& message) { Board::instance().print(message); }

StderrSilenced::StderrSilenced()
{
    toolStderr(); // the copy is made before descriptor 2 is ever redirected
    const std::lock_guard lock(silenceMutex);
    if (silenced++ > 0)
        return;
    std::fflush(stderr);
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null >= 0) {
        dup2(null, STDERR_FILENO);
        close(null);
    }
}

StderrSilenced::~StderrSilenced()
{
    const std::lock_guard lock(silenceMutex);
    if (--silenced > 0)
        return;
    std::fflush(stderr);
    dup2(toolStderr(), STDERR_FILENO);
}

void installInterruptHandlers()
{
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    // The first signal asks the work to stop and clean up; the handler then reverts to the default, so a
    // second one ends the tool at once.
    action.sa_flags = SA_RESETHAND | SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    // A file over the process's size limit (ulimit -f) would end the tool mid-write, its temporary file
    // left behind; ignored, the write fails like one on a full disk, and is reported and cleaned up.
    signal(SIGXFSZ, SIG_IGN);
}

bool interrupted() { return interruptedFlag.load(); }

Task::Task(const QString& label)
    : label_(label),
      progress_([this](double fraction, const QString& stage) { show(fraction, stage, false); }),
      scope_(&progress_)
{
    slot_ = takeSlot(&progress_);
    if (interrupted())
        progress_.cancel();
    Board::instance().add(this, label_);
}

Task::~Task()
{
    leaveSlot(slot_);
    Board::instance().remove(this);
}

void Task::step(const QString& stage, double fraction)
{
    checkCancelled();
    show(fraction >= 0 ? fraction : progress_.fraction(), stage, true);
}

void Task::checkCancelled() const
{
    if (isCancelled() || interrupted())
        cancelledError();
}

void Task::fail(const QString& message) const
{
    checkCancelled();
    runtimeError(message);
}

void Task::show(double fraction, const QString& stage, bool ownStep)
{
    Board::instance().update(this, fraction, stage, ownStep);
}

void beginUnits(int total) { Board::instance().setUnits(0, total); }

void finishUnit() { Board::instance().setUnits(0, -1); }

void endProgress() { Board::instance().clear(); }

bool parseCommandLine(QCommandLineParser& parser, const QString& command, const QStringList& arguments,
                      Writes writes)
{
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption quality(QStringLiteral("quality"),
                                     QStringLiteral("JPEG and WebP quality, 0 to 100 (default 75)."), QStringLiteral("Q"));
    const QCommandLineOption compression(
        QStringLiteral("compression"),
        QStringLiteral("PNG: deflate level, 0 (none) to 9 (smallest, slowest); the default is a fast "
                       "run-length deflate that compresses photographs about as well as level 6. TIFF: 0 "
                       "none (the default), 1 LZW."),
        QStringLiteral("N"));
    const QCommandLineOption keepOrientation(
        QStringLiteral("keep-orientation"),
        QStringLiteral("Read images as stored, not turned upright by their EXIF orientation (which then "
                       "goes into the output as it was)."));
    const QCommandLineOption rawLinear(
        QStringLiteral("raw-linear"),
        QStringLiteral("Develop camera raw files with the sensor's linear levels (gamma 1, no brightening) "
                       "instead of the usual tone curve."));
    if (writes == Writes::ImageFiles)
        parser.addOptions({quality, compression, keepOrientation, rawLinear});
    if (!parser.parse(QStringList{QStringLiteral("vexa")} + arguments))
        usageError(parser.errorText());
    if (writes == Writes::ImageFiles) {
        if (parser.isSet(quality))
            writeSettings().quality = intOption(parser, quality.names().first(), 0, 100);
        if (parser.isSet(compression))
            writeSettings().compression = intOption(parser, compression.names().first(), 0, 9);
        readSettings().applyOrientation = !parser.isSet(keepOrientation);
        readSettings().raw.linear = parser.isSet(rawLinear);
    }
    if (!parser.isSet(help) && !parser.isSet(QStringLiteral("help-all")))
        return true;
    // Qt's help text names the program by its path; the command's own name reads better.
    QString text = parser.helpText();
    const int options = text.indexOf(QStringLiteral(" [options]"));
    if (text.startsWith(QStringLiteral("Usage: ")) && options > 0)
        text.replace(7, options - 7, command.isEmpty() ? QStringLiteral("vexa") : QStringLiteral("vexa ") + command);
    QTextStream(stdout) << text;
    return false;
}

QStringList positionalArguments(const QCommandLineParser& parser, const QStringList& missing)
{
    const QStringList given = parser.positionalArguments();
    if (given.size() < missing.size())
        usageError(missing.at(given.size()));
    if (given.size() > missing.size())
        usageError(QStringLiteral("unexpected argument '%1'").arg(given.at(missing.size())));
    return given;
}

QCommandLineOption outputOption(const QString& description, const QString& valueName)
{
    return QCommandLineOption({QStringLiteral("o"), QStringLiteral("output")}, description, valueName);
}

QString requiredOutput(const QCommandLineParser& parser, const QCommandLineOption& output, Output kind)
{
    if (!parser.isSet(output))
        usageError(kind == Output::File ? QStringLiteral("no output file: give one with -o FILE")
                                        : QStringLiteral("no output folder: give one with -o DIR"));
    return parser.value(output);
}

namespace {

// An option's value, an integer or any number as T is, refused unless it is one from min to max.
template <class T>
T rangedOption(const QCommandLineParser& parser, const QString& name, T min, T max)
{
    bool ok = false;
    const QString text = parser.value(name);
    T value;
    if constexpr (std::is_integral_v<T>)
        value = text.toInt(&ok);
    else
        value = text.toDouble(&ok);
    if (!ok || !(value >= min && value <= max))
        usageError(QStringLiteral("--%1 takes %2 from %3 to %4, not '%5'")
                       .arg(name, QLatin1String(std::is_integral_v<T> ? "an integer" : "a number"))
                       .arg(min)
                       .arg(max)
                       .arg(text));
    return value;
}

} // namespace

int intOption(const QCommandLineParser& parser, const QString& name, int min, int max)
{
    return rangedOption(parser, name, min, max);
}

int intOption(const QCommandLineParser& parser, const QString& name, int min, int max, int fallback)
{
    return parser.isSet(name) ? rangedOption(parser, name, min, max) : fallback;
}

double numberOption(const QCommandLineParser& parser, const QString& name, double min, double max)
{
    return rangedOption(parser, name, min, max);
}

double numberOption(const QCommandLineParser& parser, const QString& name, double min, double max, double fallback)
{
    return parser.isSet(name) ? rangedOption(parser, name, min, max) : fallback;
}

int choiceIndex(const QString& what, const QString& text, const QStringList& names, Qt::CaseSensitivity sensitivity)
{
    for (qsizetype i = 0; i < names.size(); ++i)
        if (text.compare(names.at(i), sensitivity) == 0)
            return int(i);
    usageError(QStringLiteral("unknown %1 '%2' (known: %3)").arg(what, text, names.join(QStringLiteral(", "))));
}

} // namespace vexatool
