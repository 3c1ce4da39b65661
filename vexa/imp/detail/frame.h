// The operation frame: every exported operation runs its body inside guarded(), so that no exception
// reaches the caller. A failure is logged once, here, with module "Vexa", the operation's signature, its
// source file relative to the library root ("gen/gen_stat_image") and the line where the frame is used;
// the returned status carries the same text. Code below the frame throws and never logs.
#pragma once

#include <QString>
#include <QtGlobal>

#include <vlog/VLog.h>

namespace VEXA {

struct CallSite {
    const char* function; // the compiler's full signature
    const char* file;     // __FILE__, relative to the library root
    int line;
};

// Write it in the operation's own body: inside a lambda, Q_FUNC_INFO would name the lambda.
#define VEXA_CALL_SITE (::VEXA::CallSite{Q_FUNC_INFO, __FILE__, __LINE__})

// The exception in flight as a logged, failed status. Call only from inside a catch block. Library
// exceptions give "Reason: <what>" (issue 3200), OpenCV errors "Reason: <err> Error code: <code> Function:
// <func> File: <file> Line: <line>" (issue 3100), anything else "Unexpected error." (issue 3200).
VStatus statusFromCurrentException(const CallSite& site) noexcept;

template <class Body>
VStatus guarded(const CallSite& site, Body&& body) noexcept
{
    try {
        return body();
    } catch (...) {
        return statusFromCurrentException(site);
    }
}

// Starts an error record at a call site, for failures reported without an exception.
VMessageStream errorAt(const CallSite& site, Issue::ID id);

// The failed status of a loader, logged as "Failed to load image from file FILE TEXT"; reason is the part of
// the text a person acts on.
VStatus loadingFailure(const CallSite& site, const QString& fileName, const QString& text,
                       const QString& reason);

// Logs the translated text of a member function that met an invalid object (issue 3400).
void reportInvalid(const CallSite& site, const QString& text);

// "gen/gen_stat_image.cpp" -> "gen/gen_stat_image", "imp/kernels/image_converters.h" -> "imp/image_converters".
QString sourceName(const char* file);

} // namespace VEXA
