#include "StackWorker.h"

#include <vexa/imp/image_files.h>
#include <vexa/imp/qimage_support.h>

#include "natural_order.h"
#include "stacking.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <thread>

namespace studio {

namespace {

// A shot as the merge takes it: upright, raw files developed, in the layout and depth the first shot
// decides (see mergeLayout), always as the same picture.
VImage readShot(const QString& file, VImageBlender::MultifocusMethod method, const VImageHeader* first)
{
    const VImage read = VEXA::readImageFile(file);
    if (!read.status() || read.isEmpty())
        return read;
    const auto [format, channel] = vexatool::mergeLayout(method, first ? first->format : read.format(),
                                                         first ? first->channelType : read.channelType());
    if (read.format() == format && read.channelType() == channel)
        return read;
    // Straight alpha reaches other layouts by way of premultiplied colour.
    const VImage source = read.format() == VEXA::ARGB ? read.convertScaled(VEXA::ARGB_Premultiplied) : read;
    return source.convertScaled(format, channel);
}

} // namespace

QStringList imageFiles(const QStringList& paths)
{
    QStringList files;
    for (const QString& path : paths) {
        const QFileInfo info(path);
        if (info.isDir()) {
            const QDir dir(path);
            for (const QString& name : dir.entryList(QDir::Files | QDir::Readable))
                if (VImage::canLoad(dir.filePath(name)))
                    files << dir.filePath(name);
        } else if (info.isFile() && VImage::canLoad(path)) {
            files << info.filePath();
        }
    }
    std::sort(files.begin(), files.end(), vexatool::naturalLess);
    files.removeDuplicates();
    return files;
}

LibraryErrors::LibraryErrors() : texts_(std::make_shared<QStringList>())
{
    // The sink may run on any thread, and even just after removeSink: it holds its own copies.
    const std::thread::id owner = std::this_thread::get_id();
    std::shared_ptr<QStringList> texts = texts_;
    sink_ = VLog::addSink([owner, texts](const VLog::Record& record) {
        if (record.level == VLog::Record::Error && std::this_thread::get_id() == owner)
            texts->append(record.text);
    });
}

LibraryErrors::~LibraryErrors() { VLog::removeSink(sink_); }

QString LibraryErrors::first() const { return texts_->isEmpty() ? QString() : texts_->first(); }

QString describeImage(const VImageHeader& header)
{
    static const char* formats[] = {"Gray", "BGR", "ARGB", "XRGB", "ARGB premultiplied", "YUV 4:2:2"};
    static const char* channels[] = {"8u", "8s", "16u", "16s", "32s", "32f"};
    if (header.format < 0 || header.format > 5 || header.channelType < 0 || header.channelType > 5)
        return QString();
    return QStringLiteral("%1 × %2, %3 %4")
        .arg(header.width)
        .arg(header.height)
        .arg(QLatin1String(formats[header.format]), QLatin1String(channels[header.channelType]));
}

QString describeImage(const VImage& image) { return image.isEmpty() ? QString() : describeImage(image.header()); }

QImage displayImage(const VImage& image)
{
    if (image.isEmpty())
        return QImage();
    if (image.channelType() == VEXA::Channel8u && image.format() != VEXA::YUV422)
        return VEXA::toQImage(image);
    // Other component types and YUV are shown through the library's own conversions, as the same picture
    // (16-bit 65535 is 8-bit 255): to 8 bits in the same layout where it has one, else to plain colour.
    VImage eight;
    if (image.format() != VEXA::YUV422)
        eight = image.convertScaled(image.format(), VEXA::Channel8u);
    if (eight.isEmpty())
        eight = image.convertScaled(VEXA::XRGB, VEXA::Channel8u);
    return eight.isEmpty() ? QImage() : VEXA::toQImage(eight);
}

StackWorker::StackWorker(QObject* parent)
    : QObject(parent), progress_([this](double fraction, const QString& stage) {
          // The library reports between bands of rows; a tenth of a percent is all a bar can show.
          const int permille = int(fraction * 1000);
          if (permille != lastPermille_) {
              lastPermille_ = permille;
              emit progressed(fraction, stagePrefix_.isEmpty() || stage.isEmpty() ? stage : stagePrefix_ + stage);
          }
      })
{
    qRegisterMetaType<studio::JobResult>();
    // First connection, so every other receiver already sees the worker idle.
    connect(this, &StackWorker::finished, this, [this] {
        handOver_.receive();
        busy_ = false;
    });
    runner_.moveToThread(&thread_);
    thread_.start();
}

StackWorker::~StackWorker()
{
    cancel();
    thread_.quit();
    thread_.wait();
}

void StackWorker::cancel() { progress_.cancel(); }

bool StackWorker::start(std::function<JobResult()> job)
{
    if (busy_)
        return false;
    busy_ = true;
    // The worker thread is idle here, so the progress can be made ready for the new job from this side;
    // a cancel() that follows is then never lost to a reset on the worker's side.
    progress_.reset();
    lastPermille_ = -1;
    stagePrefix_.clear();
    handOver_.queue(&runner_, [this, job = std::move(job)] {
        JobResult result;
        {
            const VProgressScope scope(&progress_);
            result = job();
        }
        handOver_.send();
        emit finished(result);
    });
    return true;
}

bool StackWorker::readShots(const QStringList& files, int thumbnailSize)
{
    return start([=] { return doReadShots(files, thumbnailSize); });
}

bool StackWorker::stack(const StackRequest& request)
{
    return start([=] { return doStack(request); });
}

bool StackWorker::runTool(const QString& title, const VImage& source, const ToolFunction& tool)
{
    return start([=] { return doTool(title, source, tool); });
}

bool StackWorker::runTool(const QString& title, const QString& file, const ToolFunction& tool)
{
    return start([=] { return doTool(title, VEXA::readImageFile(file), tool); });
}

JobResult StackWorker::doTool(const QString& title, const VImage& source, const ToolFunction& tool)
{
    JobResult result;
    result.kind = JobResult::Tool;
    result.title = title;
    result.source = source;
    const VStatus status = tool(source, &result.image);
    if (!status) {
        result.cancelled = progress_.isCancelled();
        result.error = status.reason();
        result.image = VImage();
    }
    return result;
}

bool StackWorker::save(const VImage& image, const QString& file, const SaveSettings& settings)
{
    return start([=] {
        JobResult result;
        result.kind = JobResult::Save;
        result.title = QFileInfo(file).fileName();
        progress_.report(0, tr("writing %1").arg(result.title));
        result.error = saveImageFile(image, file, settings, &result.warning);
        result.cancelled = !result.error.isEmpty() && progress_.isCancelled();
        if (result.error.isEmpty())
            result.saved = file;
        return result;
    });
}

bool StackWorker::retouchSource(const QString& file, int index, const std::shared_ptr<const VImageBlender>& blender,
                                const VImageHeader& firstShot)
{
    return start([=] {
        JobResult result;
        result.kind = JobResult::RetouchSource;
        result.title = QFileInfo(file).fileName();
        result.shots = index;
        progress_.report(0, tr("reading %1").arg(result.title));
        const VImage shot = readShot(file, blender->method(), index > 0 ? &firstShot : nullptr);
        const VStatus aligned =
            shot.status() && !shot.isEmpty() ? blender->alignedShot(shot, index, &result.image) : shot.status();
        if (!aligned || result.image.isEmpty()) {
            result.cancelled = progress_.isCancelled();
            result.error = tr("%1: %2").arg(result.title, aligned ? tr("cannot bring it to the first shot's layout")
                                                                  : aligned.reason());
            result.image = VImage();
        }
        progress_.report(1, QString());
        return result;
    });
}

JobResult StackWorker::doReadShots(const QStringList& files, int thumbnailSize)
{
    JobResult result;
    result.kind = JobResult::ReadShots;
    for (int i = 0; i < files.size(); ++i) {
        if (progress_.isCancelled()) {
            result.cancelled = true;
            break;
        }
        progress_.report(double(i) / files.size(), tr("reading %1").arg(QFileInfo(files[i]).fileName()));
        const VImage shot = VEXA::readImageFile(files[i]);
        if (!shot.status() || shot.isEmpty()) {
            emit thumbnailRead(i, QImage(), shot.status().reason());
            continue;
        }
        const QImage shown = displayImage(shot);
        emit thumbnailRead(i, shown.scaled(thumbnailSize, thumbnailSize, Qt::KeepAspectRatio, Qt::SmoothTransformation),
                           shown.isNull() ? tr("the image cannot be shown") : QString());
    }
    progress_.report(1, QString());
    return result;
}

JobResult StackWorker::doStack(const StackRequest& request)
{
    JobResult result;
    result.kind = JobResult::Stack;
    const LibraryErrors errors;
    const QStringList& files = request.files;
    const VImageBlender::MultifocusMethod method = request.method;
    // Kept with the result: its fits give the brush each shot as the merge read it.
    const auto kept = request.resume ? std::make_shared<VImageBlender>(*request.resume)
                                     : std::make_shared<VImageBlender>(method, request.alignment);
    VImageBlender& blender = *kept;
    blender.setKeepShotFits(true);
    const int from = request.resume ? request.resume->count() : 0;
    const int count = int(files.size());
    VImageHeader first = request.firstShot; // for describing a shot unlike it
    vexatool::MergeSteps steps;
    steps.shotsEnd = 0.95; // the bar's last twentieth is the merge's final pass
    steps.read = [&](int j) {
        const int i = from + j;
        const QString name = QFileInfo(files[i]).fileName();
        stagePrefix_ = tr("shot %1 of %2: ").arg(i + 1).arg(count);
        progress_.report(0, tr("reading %1").arg(name));
        const VImage shot = readShot(files[i], method, i > 0 ? &first : nullptr);
        if (!shot.status() || shot.isEmpty()) {
            // A cancel that reached the shot's conversion into the first shot's layout stops it there.
            result.cancelled = progress_.isCancelled();
            if (!result.cancelled) {
                result.error = tr("%1: %2").arg(name, shot.status() ? tr("cannot bring it to the first shot's layout")
                                                                    : shot.status().reason());
                result.failedShot = i;
            }
            return VImage();
        }
        result.cancelled = progress_.isCancelled();
        return result.cancelled ? VImage() : shot;
    };
    steps.added = [&](int j, const VImage& shot, bool added) {
        const int i = from + j;
        if (!added) {
            result.cancelled = progress_.isCancelled();
            if (!result.cancelled) {
                // Say how a shot unlike the first differs in the application's words; other refusals (one
                // that cannot be aligned) in the blender's.
                QString reason = blender.lastStatus().reason();
                if (i > 0 && !(shot.header() == first))
                    reason = tr("it is %1, but the first shot is %2; all shots must be alike")
                                 .arg(describeImage(shot), describeImage(first));
                result.error = tr("%1: %2").arg(QFileInfo(files[i]).fileName(),
                                                reason.isEmpty() ? tr("the stack cannot take this shot") : reason);
                result.failedShot = i;
            }
            return false;
        }
        if (i == 0)
            first = shot.header();
        return true;
    };
    steps.finish = [&] {
        stagePrefix_.clear();
        progress_.report(0, tr("finishing the merge"));
        result.image = blender.image();
        result.depth = blender.depthMap();
    };
    if (!vexatool::mergeShots(blender, count - from, &progress_, steps))
        return result;
    if (result.image.isEmpty()) {
        result.cancelled = progress_.isCancelled();
        if (!result.cancelled)
            result.error = errors.first().isEmpty() ? tr("the stack gave no image") : errors.first();
        result.depth = VImage();
    }
    result.shots = blender.count();
    if (result.image.isEmpty())
        return result;
    if (request.keepForRetouch) {
        result.blender = kept;
        result.firstShot = first;
    }
    if (!request.saveTo.isEmpty()) {
        progress_.report(0.97, tr("writing %1").arg(QFileInfo(request.saveTo).fileName()));
        SaveSettings saving = request.saving;
        saving.metadataFrom = files.value(0);
        const QString failed = saveImageFile(result.image, request.saveTo, saving, &result.warning);
        result.cancelled = !failed.isEmpty() && progress_.isCancelled();
        if (!failed.isEmpty())
            result.error = tr("%1: cannot write it: %2").arg(QFileInfo(request.saveTo).fileName(), failed);
        else
            result.saved = request.saveTo;
    }
    return result;
}

} // namespace studio
