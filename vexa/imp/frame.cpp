#include <vexa/imp/frame.h>

#include <vexa/imp/exceptions.h>

#include <opencv2/core.hpp>

#include <QObject>

namespace VEXA {

namespace {

const QString moduleName = QStringLiteral("Vexa");

VStatus failure(const CallSite& site, Issue::ID id, const char* reason)
{
    VMessageStream stream = errorAt(site, id) << "Reason: " << reason;
    VMessageStream copy = stream;
    return VStatus(copy); // the record is written when the last copy goes, once
}

} // namespace

QString sourceName(const char* file)
{
    QString name = QString::fromUtf8(file);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot > name.lastIndexOf(QLatin1Char('/')))
        name.truncate(dot);
    return name;
}

VMessageStream errorAt(const CallSite& site, Issue::ID id)
{
    return VLog::errorStream(moduleName, QString::fromUtf8(site.function), sourceName(site.file), site.line, id);
}

void reportInvalid(const CallSite& site, const QString& text) { errorAt(site, Issue::InvalidObject) << text; }

VStatus statusFromCurrentException(const CallSite& site) noexcept
{
    try {
        try {
            throw;
        } catch (const dip_exception_cancelled&) {
            VMessageStream stream = errorAt(site, Issue::Cancelled) << QObject::tr("Operation cancelled");
            VMessageStream copy = stream;
            return VStatus(copy);
        } catch (const dip_ocv_exception& e) {
            return failure(site, Issue::LibraryError, e.what());
        } catch (const dip_exception_unsupported_parameters& e) {
            return failure(site, Issue::LibraryError, e.what());
        } catch (const dip_exception_bad_status& e) {
            return failure(site, Issue::LibraryError, e.what());
        } catch (const dip_exception_empty_source_image& e) {
            return failure(site, Issue::LibraryError, e.what());
        } catch (const dip_exception& e) {
            return failure(site, Issue::LibraryError, e.what());
        } catch (const cv::Exception& e) {
            VMessageStream stream = errorAt(site, Issue::OpenCvError)
                                    << "Reason: " << e.err << " Error code: " << e.code << " Function: " << e.func
                                    << " File: " << e.file << " Line: " << e.line;
            VMessageStream copy = stream;
            return VStatus(copy);
        } catch (...) {
            VMessageStream stream = errorAt(site, Issue::LibraryError) << "Unexpected error.";
            VMessageStream copy = stream;
            return VStatus(copy);
        }
    } catch (...) {
        // Composing the message failed, most likely for want of memory. The caller still gets a failure;
        // the record is lost.
        static const VStatus unrecorded{VMessageStream()};
        return unrecorded;
    }
}

} // namespace VEXA
