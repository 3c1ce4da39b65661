/// @file
/// @brief Statuses, message streams and log records (group @ref status).
#pragma once

#include <QString>

#include <functional>
#include <memory>
#include <string>

#include <vlog/vlog_export.h>

/// @addtogroup status
/// **Statuses:** an operation tells how it went with a VStatus: Ok, or a failure carrying an issue number
/// (Issue::ID), the text of the failure's log record (VStatus::message()) and the words a person acts on
/// (VStatus::reason()). Every failure the library reports is also written once to the log.
///
/// **Records** (VLog::Record): a record is written once, when the last copy of the VMessageStream that built
/// it goes away. It goes through a QLoggingCategory named after the module in lower case ("Vexa" -> "vexa";
/// errors at critical level, warnings at warning level, the text printed as "[ISSUE] TEXT"), so hosts steer
/// it with QT_LOGGING_RULES or their own message handler, and to every sink installed with VLog::addSink(),
/// whatever the category's rules say. The category is left out while a sink is installed, unless
/// VLog::setConsole() says otherwise.
///
/// **Threads:** records may come from several threads at once; sinks are called outside any lock, so a sink
/// may itself log. A VStatus is a plain value, free to copy and to hand between threads; a VMessageStream and
/// its copies belong to one thread at a time.
/// @{

/// Issue numbers: what kind of failure a status or a log record reports.
namespace Issue {
/// The kind of a failure. An open set: any int converts with Issue::ID(n). The named values are those the
/// libraries pass.
enum ID : int {
    None = 0,                ///< no failure: Ok statuses, and streams that carry no record
    NullData = 1,            ///< data handed over as a null pointer
    Loading = 600,           ///< reading an image file, or its metadata, failed
    Saving = 700,            ///< writing an image file, or its metadata, failed
    OpenCvError = 3100,      ///< an OpenCV error reached an operation's frame
    LibraryError = 3200,     ///< a library or unknown exception, or memory that could not be had
    QImageConversion = 3300, ///< converting between VImage and QImage failed
    InvalidObject = 3400,    ///< a member function met an invalid object
    RawPacking = 4000,       ///< packing or unpacking the raw image byte array
    Cancelled = 4100,        ///< the caller cancelled the operation
};
}

class VMessageStream;

/// The log: its records, the sinks that receive them, and whether they also go to the console.
namespace VLog {

/// One log record, as a sink receives it. A plain value.
struct Record {
    /// How grave the record is: Warning or Error.
    enum Level { Warning, Error };
    /// @var VLog::Record::Warning
    /// Made by warningStream(); written at the logging category's warning level.
    /// @var VLog::Record::Error
    /// Made by errorStream(); written at the logging category's critical level.

    Level level = Error;           ///< how grave the record is
    QString module;                ///< the module that wrote it ("Vexa" for the library's operations); its lower case
                                   ///< names the logging category
    QString function;              ///< the function that wrote it (the library gives the operation's full signature)
    QString file;                  ///< the source file it comes from, as the writer names it (the library: its own
                                   ///< source path from its root, without the extension)
    int line = 0;                  ///< the line in that file
    Issue::ID issue = Issue::None; ///< the kind of failure
    QString text;                  ///< the message, the failed status's VStatus::message(); the logging category
                                   ///< prints it after "[ISSUE] "
};

/// A receiver of records, installed with addSink(). It is called once for every record emitted while it is
/// installed, on the thread where the record is emitted (where the last copy of its stream went away),
/// outside any lock, so it may log itself (its own records reach every sink again, itself included). It must
/// not throw: an exception from a sink is swallowed, and the sinks after it miss that record.
using Sink = std::function<void(const Record&)>;

/// A stream for an error record (Record::Error) of @p module, naming the @p function, @p file and @p line
/// where the failure was met and its issue @p id. The record is written when the last copy of the stream
/// goes away, with the text put into it by then.
VLOG_EXPORT VMessageStream errorStream(QString module, QString function, QString file, int line, Issue::ID id);
/// As errorStream(), for a warning record (Record::Warning).
VLOG_EXPORT VMessageStream warningStream(QString module, QString function, QString file, int line, Issue::ID id);

/// Installs @p sink for the whole process and returns a handle for removeSink() (1, 2, 3...: never reused).
/// Every record reaches every sink installed when it is emitted, in the order they were installed. Safe from
/// any thread.
VLOG_EXPORT int addSink(Sink sink);
/// Uninstalls the sink of @p handle; an unknown handle is ignored. A record being emitted on another thread
/// at that moment may still reach the sink once. Safe from any thread.
VLOG_EXPORT void removeSink(int handle);

/// Whether records also go through the logging category, which prints them on standard error unless the
/// category's rules or the host's message handler say otherwise. Auto (the default): only while no sink is
/// installed, since a host that installs one handles failures itself; On and Off: always and never.
enum class Console { Auto, On, Off };
/// @var VLog::Console::Auto
/// The default: records go through the category only while no sink is installed.
/// @var VLog::Console::On
/// Records always go through the category, sinks or not.
/// @var VLog::Console::Off
/// Records never go through the category.

/// Chooses, for the whole process, where the records emitted from now on go besides the sinks. Safe from
/// any thread.
VLOG_EXPORT void setConsole(Console console);

} // namespace VLog

/// The text of one log record, put together with <<. Made by VLog::errorStream() or VLog::warningStream()
/// (or the constructor), filled with <<, and written once, when the last copy goes away.
///
/// Copies share one pending record: text put in through any copy joins the same record, and copying a
/// stream (to build a VStatus from it, say) never logs twice. A stream and its copies belong to one thread
/// at a time; different streams may be used on different threads at once.
class VLOG_EXPORT VMessageStream {
public:
    /// A stream with no record: it collects nothing and writes nothing.
    VMessageStream() = default;
    /// A stream for a record of this @p level, @p module, @p function, @p file, @p line and issue @p id (the
    /// fields of VLog::Record), with an empty text so far.
    VMessageStream(VLog::Record::Level level, QString module, QString function, QString file, int line,
                   Issue::ID id);

    /// Appends @p text, read as UTF-8 (a null pointer appends nothing). Nothing is put between pieces.
    /// Without a record, every << does nothing.
    VMessageStream& operator<<(const char* text);
    /// Appends @p text.
    VMessageStream& operator<<(const QString& text);
    /// Appends @p text, read as UTF-8.
    VMessageStream& operator<<(const std::string& text);
    /// Appends @p value in decimal.
    VMessageStream& operator<<(int value);
    /// Appends @p value in decimal.
    VMessageStream& operator<<(long value);
    /// Appends @p value in decimal.
    VMessageStream& operator<<(long long value);
    /// Appends @p value in decimal.
    VMessageStream& operator<<(unsigned value);
    /// Appends @p value in decimal.
    VMessageStream& operator<<(unsigned long value);
    /// Appends @p value in decimal.
    VMessageStream& operator<<(unsigned long long value);
    /// Appends @p value as QString::number() writes it: 6 significant digits, in exponent form where that
    /// is shorter ("0.1", "1e+06").
    VMessageStream& operator<<(double value);

    /// The text put in so far; empty for a stream with no record.
    QString text() const;
    /// The record's issue; Issue::None for a stream with no record.
    Issue::ID issue() const;

private:
    struct Pending;
    // Copies share one pending record; it is emitted when the last copy is destroyed, so copying a
    // stream (to build a status from it, say) never logs twice.
    std::shared_ptr<Pending> d;
};

/// The outcome of an operation: Ok, or a failure carrying an issue number, a message (the text of the
/// failure's log record) and a reason (the words a person acts on). A small value: copies are independent,
/// and one status may be read from several threads at once.
class VLOG_EXPORT VStatus {
public:
    /// An Ok status: issue Issue::None, empty message.
    constexpr VStatus() = default;
    /// A status built from a stream is a failure carrying the stream's text and issue; the stream itself is
    /// not kept, so the record is still emitted when the stream goes. A stream with no record gives a
    /// failure with an empty message and Issue::None.
    VStatus(const VMessageStream& stream); // NOLINT(google-explicit-constructor): statuses are built from streams

    /// True for Ok, false for a failure.
    explicit operator bool() const { return ok_; }
    /// True for Ok, false for a failure.
    bool isOk() const { return ok_; }
    /// The failure's text, as its log record carries it (without the "[ISSUE] " the console adds); empty
    /// for Ok.
    QString message() const { return message_; }
    /// The kind of failure; Issue::None for Ok.
    Issue::ID issue() const { return issue_; }
    /// What went wrong in words a person acts on: the message without the framing it carries for the log
    /// (a "Reason: " prefix, OpenCV's error code, function, file and line), or a plainer account where the
    /// message is a fixed code-like text. The message itself when it was given no reason (so empty for Ok).
    QString reason() const { return reason_.isEmpty() ? message_ : reason_; }
    /// The same failure with its reason given apart; an Ok status stays Ok and has no reason.
    VStatus withReason(const QString& reason) const;

    /// The Ok status.
    static const VStatus Ok;

private:
    bool ok_ = true;
    Issue::ID issue_ = Issue::None;
    QString message_;
    QString reason_;
};

/// @}
