#include <vlog/VLog.h>

#include <QByteArray>
#include <QHash>
#include <QLoggingCategory>
#include <QMessageLogger>
#include <QMutex>
#include <QMutexLocker>

#include <map>
#include <vector>

const VStatus VStatus::Ok;

VStatus::VStatus(const VMessageStream& stream) : ok_(false), issue_(stream.issue()), message_(stream.text()) {}

VStatus VStatus::withReason(const QString& reason) const
{
    VStatus status = *this;
    if (!ok_)
        status.reason_ = reason;
    return status;
}

namespace {

struct Registry {
    QMutex mutex;
    // QLoggingCategory keeps a pointer to its name's bytes, so the registry holds each name (a QByteArray
    // never changed again, whose bytes stay put however the hash moves it) and its category for as long as
    // the process lives.
    struct Category {
        QByteArray name;
        QLoggingCategory* category = nullptr;
    };
    QHash<QString, Category> categories;
    std::map<int, VLog::Sink> sinks;
    int nextHandle = 1;
    VLog::Console console = VLog::Console::Auto;
};

Registry& registry()
{
    static Registry* r = new Registry; // never destroyed: records may be emitted during static destruction
    return *r;
}

QLoggingCategory& categoryFor(const QString& module)
{
    Registry& r = registry();
    QMutexLocker lock(&r.mutex);
    Registry::Category& entry = r.categories[module];
    if (!entry.category) {
        entry.name = module.toLower().toUtf8();
        entry.category = new QLoggingCategory(entry.name.constData());
    }
    return *entry.category;
}

void emitRecord(const VLog::Record& record)
{
    std::vector<VLog::Sink> sinks;
    bool console = false;
    {
        Registry& r = registry();
        QMutexLocker lock(&r.mutex);
        sinks.reserve(r.sinks.size());
        for (const auto& entry : r.sinks)
            sinks.push_back(entry.second);
        console = r.console == VLog::Console::On || (r.console == VLog::Console::Auto && sinks.empty());
    }
    const QLoggingCategory& category = categoryFor(record.module);
    const bool error = record.level == VLog::Record::Error;
    if (console && (error ? category.isCriticalEnabled() : category.isWarningEnabled())) {
        const QByteArray file = record.file.toUtf8();
        const QByteArray function = record.function.toUtf8();
        const QByteArray text = QStringLiteral("[%1] %2").arg(int(record.issue)).arg(record.text).toUtf8();
        QMessageLogger logger(file.constData(), record.line, function.constData(), category.categoryName());
        if (error)
            logger.critical("%s", text.constData());
        else
            logger.warning("%s", text.constData());
    }

    for (const VLog::Sink& sink : sinks)
        sink(record);
}

} // namespace

struct VMessageStream::Pending {
    VLog::Record record;
    ~Pending()
    {
        try {
            emitRecord(record);
        } catch (...) {
            // A destructor must not throw; a record that cannot be written is lost.
        }
    }
};

VMessageStream::VMessageStream(VLog::Record::Level level, QString module, QString function, QString file,
                               int line, Issue::ID id)
    : d(std::make_shared<Pending>())
{
    VLog::Record& r = d->record;
    r.level = level;
    r.module = std::move(module);
    r.function = std::move(function);
    r.file = std::move(file);
    r.line = line;
    r.issue = id;
}

VMessageStream& VMessageStream::operator<<(const char* text)
{
    if (d)
        d->record.text += QString::fromUtf8(text);
    return *this;
}

VMessageStream& VMessageStream::operator<<(const QString& text)
{
    if (d)
        d->record.text += text;
    return *this;
}

VMessageStream& VMessageStream::operator<<(const std::string& text)
{
    if (d)
        d->record.text += QString::fromStdString(text);
    return *this;
}

VMessageStream& VMessageStream::operator<<(int value) { return *this << QString::number(value); }
VMessageStream& VMessageStream::operator<<(long value) { return *this << QString::number(value); }
VMessageStream& VMessageStream::operator<<(long long value) { return *this << QString::number(value); }
VMessageStream& VMessageStream::operator<<(unsigned value) { return *this << QString::number(value); }
VMessageStream& VMessageStream::operator<<(unsigned long value) { return *this << QString::number(value); }
VMessageStream& VMessageStream::operator<<(unsigned long long value) { return *this << QString::number(value); }
VMessageStream& VMessageStream::operator<<(double value) { return *this << QString::number(value); }

QString VMessageStream::text() const { return d ? d->record.text : QString(); }

Issue::ID VMessageStream::issue() const { return d ? d->record.issue : Issue::None; }

namespace VLog {

VMessageStream errorStream(QString module, QString function, QString file, int line, Issue::ID id)
{
    return VMessageStream(Record::Error, std::move(module), std::move(function), std::move(file), line, id);
}

VMessageStream warningStream(QString module, QString function, QString file, int line, Issue::ID id)
{
    return VMessageStream(Record::Warning, std::move(module), std::move(function), std::move(file), line, id);
}

int addSink(Sink sink)
{
    Registry& r = registry();
    QMutexLocker lock(&r.mutex);
    const int handle = r.nextHandle++;
    r.sinks.emplace(handle, std::move(sink));
    return handle;
}

void removeSink(int handle)
{
    Registry& r = registry();
    QMutexLocker lock(&r.mutex);
    r.sinks.erase(handle);
}

void setConsole(Console console)
{
    Registry& r = registry();
    QMutexLocker lock(&r.mutex);
    r.console = console;
}

} // namespace VLog
