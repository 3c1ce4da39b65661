// Collects the records VLog emits while it lives.
#pragma once

#include <vlog/VLog.h>

#include <QMutex>
#include <QMutexLocker>

#include <vector>

class LogCapture {
public:
    LogCapture()
    {
        handle_ = VLog::addSink([this](const VLog::Record& record) {
            QMutexLocker lock(&mutex_);
            records_.push_back(record);
        });
    }
    ~LogCapture() { VLog::removeSink(handle_); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<VLog::Record> records() const
    {
        QMutexLocker lock(&mutex_);
        return records_;
    }
    size_t count() const { return records().size(); }
    void clear()
    {
        QMutexLocker lock(&mutex_);
        records_.clear();
    }

private:
    mutable QMutex mutex_;
    std::vector<VLog::Record> records_;
    int handle_ = 0;
};
