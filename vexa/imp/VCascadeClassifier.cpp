#include <vexa/imp/VCascadeClassifier.h>

#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/opencv_frame.h>
#include <vexa/imp/detail/progress.h>
#include <vexa/imp/exceptions.h>

#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QObject>

#include <cmath>
#include <mutex>
#include <vector>

// The loaded cascade with the lock that keeps its working buffers to one detection at a time.
struct VCascadeClassifier::Data {
    std::mutex mutex;
    cv::CascadeClassifier cascade;
};

namespace {

using namespace VEXA;

const char* const cascadeDirVariable = "VEXA_CASCADE_DIR";

// QSize() or 0 x 0 means no bound, as does a 0 side; negative sides are refused.
cv::Size boundOf(QSize size)
{
    if (size == QSize())
        return {};
    if (size.width() < 0 || size.height() < 0)
        throw dip_exception("Object sizes must not be negative");
    return {size.width(), size.height()};
}

} // namespace

VCascadeClassifier::VCascadeClassifier() = default;
VCascadeClassifier::VCascadeClassifier(const QString& path) { load(path); }
VCascadeClassifier::VCascadeClassifier(const VCascadeClassifier&) = default;
VCascadeClassifier& VCascadeClassifier::operator=(const VCascadeClassifier&) = default;
VCascadeClassifier::~VCascadeClassifier() = default;

VStatus VCascadeClassifier::load(const QString& path)
{
    d_.reset();
    path_.clear();
    status_ = guarded(VEXA_CALL_SITE, [&] {
        const QString failure = QObject::tr("Can't load cascade %1").arg(path);
        auto data = std::make_shared<Data>();
        // OpenCV's parser reads any path it is given; a folder or a missing file is refused before it.
        if (path.isEmpty() || !QFileInfo(path).isFile())
            throw dip_exception(failure.toStdString());
        try {
            if (!data->cascade.load(QFile::encodeName(path).toStdString()) || data->cascade.empty())
                throw dip_exception(failure.toStdString());
        } catch (const cv::Exception& e) {
            throw dip_exception((failure + QStringLiteral(": ") + QString::fromStdString(e.err)).toStdString());
        }
        d_ = std::move(data);
        path_ = path;
        return VStatus::Ok;
    });
    return status_;
}

VStatus VCascadeClassifier::loadStandard(const QString& fileName)
{
    const QString path = standardCascadePath(fileName);
    if (!path.isEmpty())
        return load(path);
    // Never a file of that name elsewhere (the working folder, say): only the standard folders count.
    d_.reset();
    path_.clear();
    status_ = guarded(VEXA_CALL_SITE, [&]() -> VStatus {
        throw dip_exception(
            QObject::tr("Can't load cascade %1: no standard cascade of that name").arg(fileName).toStdString());
    });
    return status_;
}

bool VCascadeClassifier::isEmpty() const { return !d_; }

VStatus VCascadeClassifier::status() const { return status_; }

QString VCascadeClassifier::path() const { return path_; }

QSize VCascadeClassifier::windowSize() const
{
    if (!d_)
        return {};
    std::lock_guard<std::mutex> lock(d_->mutex);
    const cv::Size size = d_->cascade.getOriginalWindowSize();
    return {size.width, size.height};
}

QString VCascadeClassifier::standardCascadeFolder()
{
    const QString variable = qEnvironmentVariable(cascadeDirVariable);
    const QStringList candidates = !variable.isEmpty() ? QStringList{variable}
                                                       : QStringList{QStringLiteral("/usr/share/opencv4/haarcascades"),
                                                                     QStringLiteral("/usr/share/opencv/haarcascades")};
    for (const QString& folder : candidates)
        if (QFileInfo(folder).isDir())
            return QDir(folder).absolutePath();
    return {};
}

QString VCascadeClassifier::standardCascadePath(const QString& fileName)
{
    const QString folder = standardCascadeFolder();
    if (folder.isEmpty() || fileName.isEmpty() || fileName.contains(QLatin1Char('/')) ||
        fileName.contains(QLatin1Char('\\')) || fileName == QLatin1String(".") || fileName == QLatin1String(".."))
        return {};
    const QDir haar(folder);
    for (const QString& candidate :
         {haar.filePath(fileName), haar.filePath(QStringLiteral("../lbpcascades/") + fileName)})
        if (QFileInfo(candidate).isFile())
            return QDir::cleanPath(candidate);
    return {};
}

namespace VEXA {

VStatus detectObjects(const VImage& src, const VCascadeClassifier& classifier, QList<VRectBase>* objects,
                      double scaleFactor, int minNeighbours, QSize minSize, QSize maxSize)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat gray = grayPlane(src, false);
        QList<VRectBase>& out = checkOutput(objects);
        const std::shared_ptr<VCascadeClassifier::Data> data = classifier.d_;
        if (!data)
            throw dip_exception("Cascade classifier is empty");
        // Finer steps multiply the scales searched without finding more.
        if (!(scaleFactor >= 1.01 && scaleFactor <= 10.0))
            throw dip_exception("Scale factor must be from 1.01 to 10");
        if (minNeighbours < 0)
            throw dip_exception("Minimum neighbours must not be negative");
        const cv::Size least = boundOf(minSize), most = boundOf(maxSize);
        return runWhole("detecting objects", [&] {
            std::vector<cv::Rect> found;
            {
                std::lock_guard<std::mutex> lock(data->mutex);
                data->cascade.detectMultiScale(gray, found, scaleFactor, minNeighbours, 0, least, most);
            }
            QList<VRectBase> result;
            result.reserve(int(found.size()));
            for (const cv::Rect& r : found)
                result.append(VRectBase(r.x, r.y, r.width, r.height));
            out = result;
            return VStatus::Ok;
        });
    });
}

} // namespace VEXA
