#include <vexa/imp/detail/frame.h>

#include <vexa/imp/exceptions.h>

#include <opencv2/core.hpp>

#include <new>

#include <QObject>

namespace VEXA {

namespace {

const QString moduleName = QStringLiteral("Vexa");

VStatus failure(const CallSite& site, Issue::ID id, const exception& e)
{
    VMessageStream stream = errorAt(site, id) << "Reason: " << e.what();
    VMessageStream copy = stream;
    // The record is written when the last copy goes, once.
    return VStatus(copy).withReason(QString::fromUtf8(*e.reason() ? e.reason() : e.what()));
}

} // namespace

QString sourceName(const char* file)
{
    QString name = QString::fromUtf8(file);
    // The internal layers are folders for the reader of the code; records name a file as the library always
    // has, "imp/image_converters" whether it sits in imp/ or in imp/kernels/.
    for (const QLatin1String layer : {QLatin1String("imp/detail/"), QLatin1String("imp/kernels/")})
        if (name.startsWith(layer))
            name.remove(4, layer.size() - 4);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot > name.lastIndexOf(QLatin1Char('/')))
        name.truncate(dot);
    return name;
}

VMessageStream errorAt(const CallSite& site, Issue::ID id)
{
    return VLog::errorStream(moduleName, QString::fromUtf8(site.function), sourceName(site.file), site.line, id);
}

VStatus loadingFailure(const CallSite& site, const QString& fileName, const QString& text, const QString& reason)
{
    return VStatus(errorAt(site, Issue::Loading) << "Failed to load image from file " << fileName << " " << text)
        .withReason(reason);
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
            return failure(site, Issue::LibraryError, e);
        } catch (const dip_exception_unsupported_parameters& e) {
            return failure(site, Issue::LibraryError, e);
        } catch (const dip_exception_bad_status& e) {
            return failure(site, Issue::LibraryError, e);
        } catch (const dip_exception_empty_source_image& e) {
            return failure(site, Issue::LibraryError, e);
        } catch (const dip_exception& e) {
            return failure(site, Issue::LibraryError, e);
        } catch (const cv::Exception& e) {
            VMessageStream stream = errorAt(site, Issue::OpenCvError)
                                    << "Reason: " << e.err << " Error code: " << e.code << " Function: " << e.func
                                    << " File: " << e.file << " Line: " << e.line;
            VMessageStream copy = stream;
            const QString what = QString::fromStdString(e.err);
            return VStatus(copy).withReason(e.func.empty() ? QStringLiteral("OpenCV failed: %1").arg(what)
                                                           : QStringLiteral("OpenCV failed in %1: %2")
                                                                 .arg(QString::fromStdString(e.func), what));
        } catch (const std::bad_alloc&) {
            VMessageStream stream = errorAt(site, Issue::LibraryError) << "Unexpected error.";
            VMessageStream copy = stream;
            return VStatus(copy).withReason(QStringLiteral("out of memory"));
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
