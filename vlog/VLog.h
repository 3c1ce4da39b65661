// VLog: statuses, message streams and log records.
//
// A record is written once, when the last copy of the VMessageStream that built it goes away. It goes
// through a QLoggingCategory named after the module in lower case ("Vexa" -> "vexa"; errors at critical
// level, warnings at warning level, so hosts steer it with QT_LOGGING_RULES or their own message handler)
// and to every sink installed with VLog::addSink, whatever the category's rules say (the category is left
// out while a sink is installed, unless VLog::setConsole says otherwise). Records may come
// from several threads at once; sinks are called outside any lock, so a sink may itself log.
#pragma once

#include <QString>

#include <functional>
#include <memory>
#include <string>

#include <vlog/vlog_export.h>

namespace Issue {
// An open set: any int converts with Issue::ID(n). The named values are those the libraries pass.
enum ID : int {
    None = 0,
    NullData = 1,           // data handed over as a null pointer
    Loading = 600,          // reading an image file failed
    Saving = 700,           // writing an image file failed
    OpenCvError = 3100,     // an OpenCV error reached an operation's frame
    LibraryError = 3200,    // a library or unknown exception, or memory that could not be had
    QImageConversion = 3300,
    InvalidObject = 3400,   // a member function met an invalid object
    RawPacking = 4000,      // packing or unpacking the raw image byte array
    Cancelled = 4100,       // the caller cancelled the operation
};
}

class VMessageStream;

namespace VLog {

struct Record {
    enum Level { Warning, Error };
    Level level = Error;
    QString module;
    QString function;
    QString file;
    int line = 0;
    Issue::ID issue = Issue::None;
    QString text;
};

using Sink = std::function<void(const Record&)>;

VLOG_EXPORT VMessageStream errorStream(QString module, QString function, QString file, int line, Issue::ID id);
VLOG_EXPORT VMessageStream warningStream(QString module, QString function, QString file, int line, Issue::ID id);

// Returns a handle for removeSink. Every record reaches every sink installed when it is emitted.
VLOG_EXPORT int addSink(Sink sink);
VLOG_EXPORT void removeSink(int handle);

// Whether records also go through the logging category, which prints them on standard error unless the
// category's rules or the host's message handler say otherwise. Auto (the default): only while no sink is
// installed, since a host that installs one handles failures itself; On and Off: always and never.
enum class Console { Auto, On, Off };
VLOG_EXPORT void setConsole(Console console);

} // namespace VLog

class VLOG_EXPORT VMessageStream {
public:
    // A stream with no record: it collects nothing and writes nothing.
    VMessageStream() = default;
    VMessageStream(VLog::Record::Level level, QString module, QString function, QString file, int line,
                   Issue::ID id);

    VMessageStream& operator<<(const char* text);
    VMessageStream& operator<<(const QString& text);
    VMessageStream& operator<<(const std::string& text);
    VMessageStream& operator<<(int value);
    VMessageStream& operator<<(long value);
    VMessageStream& operator<<(long long value);
    VMessageStream& operator<<(unsigned value);
    VMessageStream& operator<<(unsigned long value);
    VMessageStream& operator<<(unsigned long long value);
    VMessageStream& operator<<(double value);

    QString text() const;
    Issue::ID issue() const;

private:
    struct Pending;
    // Copies share one pending record; it is emitted when the last copy is destroyed, so copying a
    // stream (to build a status from it, say) never logs twice.
    std::shared_ptr<Pending> d;
};

class VLOG_EXPORT VStatus {
public:
    constexpr VStatus() = default;
    // A status built from a stream is a failure carrying the stream's text; the stream itself is not
    // kept, so the record is still emitted when the stream goes.
    VStatus(const VMessageStream& stream); // NOLINT(google-explicit-constructor): statuses are built from streams

    explicit operator bool() const { return ok_; }
    bool isOk() const { return ok_; }
    QString message() const { return message_; }
    Issue::ID issue() const { return issue_; }
    // What went wrong in words a person acts on: the message without the framing it carries for the log
    // (a "Reason: " prefix, OpenCV's error code, function, file and line), or a plainer account where the
    // message is a fixed code-like text. The message itself when it was given no reason.
    QString reason() const { return reason_.isEmpty() ? message_ : reason_; }
    // The same failure with its reason given apart; an Ok status stays Ok and has no reason.
    VStatus withReason(const QString& reason) const;

    static const VStatus Ok;

private:
    bool ok_ = true;
    Issue::ID issue_ = Issue::None;
    QString message_;
    QString reason_;
};
