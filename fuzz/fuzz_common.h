// Shared set-up of the fuzz targets: quiet logging (records would dominate the time) and tight memory
// limits, so that big but legal inputs do not pass for leaks or hangs.
#pragma once

#include <vexa/Vexa.h>

#include <QImageReader>
#include <QLoggingCategory>

#include <cstddef>
#include <cstdint>

inline void fuzzSetUp()
{
    static const bool done = [] {
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
        QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
        VEXA::setImageSizeLimit(4 << 20);
        QImageReader::setAllocationLimit(4);
        return true;
    }();
    (void)done;
}

inline QByteArray bytesOf(const std::uint8_t* data, std::size_t size)
{
    return QByteArray(reinterpret_cast<const char*>(data), qsizetype(size));
}

// A failure the library must never show: stop so that libFuzzer keeps the input.
#define FUZZ_CHECK(condition)                                                                              \
    do {                                                                                                   \
        if (!(condition))                                                                                  \
            __builtin_trap();                                                                              \
    } while (false)
