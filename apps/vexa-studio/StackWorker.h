// The application's one worker thread: reading shots, stacking them and running the image tools, one job at
// a time, with a VProgress current on that thread so that cancel() from the window's thread stops the
// library at its next check. The window only ever waits for signals, so it never freezes.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/VImageBlender.h>
#include <vexa/imp/VProgress.h>

#include "Saving.h"

#include <QImage>
#include <QObject>
#include <QStringList>
#include <QThread>

#include <atomic>
#include <functional>
#include <memory>

namespace studio {

using Alignment = VImageBlender::Alignment;

// Qt hands queued calls and signals from thread to thread under locks that ThreadSanitizer cannot see
// (Qt is not built for it), so data made on one side and used on the other would look raced. A release
// before each hand-over and an acquire on arrival make the hand-over visible; they cost nothing otherwise.
class HandOver {
public:
    void send() { sequence_.fetch_add(1, std::memory_order_release); }
    void receive() const { (void)sequence_.load(std::memory_order_acquire); }
    // Queues `work` to `runner`'s thread, handed over; work calls send() before it emits its result.
    template <class Work>
    void queue(QObject* runner, Work work)
    {
        send();
        QMetaObject::invokeMethod(
            runner,
            [this, work = std::move(work)] {
                receive();
                work();
            },
            Qt::QueuedConnection);
    }

private:
    std::atomic<unsigned> sequence_{0};
};

// A single-image tool: reads the source, writes a new image into *result.
using ToolFunction = std::function<VStatus(const VImage& source, VImage* result)>;

// A stack to make: its shots in order, how to merge them, and optionally a stack to go on from.
struct StackRequest {
    QStringList files;
    VImageBlender::MultifocusMethod method = VImageBlender::MultifocusDepthMap;
    Alignment alignment = VImageBlender::AlignAuto;
    // A stack whose blender merged the first resume->count() of files, the first of layout firstShot: only
    // the later shots are read and merged, into a copy of it (which a failure or a cancellation drops).
    std::shared_ptr<const VImageBlender> resume;
    VImageHeader firstShot;
    bool keepForRetouch = true; // the result carries the blender (with every shot's fit) for the brush
    // Where the result is written once merged (a batch's), with the first shot's metadata; empty for none.
    QString saveTo;
    SaveSettings saving;
};

// What a job hands back. An empty error and cancelled unset mean success.
struct JobResult {
    enum Kind { ReadShots, Stack, Tool, RetouchSource, Save };
    Kind kind = Stack;
    QString title; // a tool's name, for the undo history
    VImage source; // a tool's input
    VImage image;  // the stack's merge or the tool's output
    VImage depth;  // the stack's depth map (the depth-map method only)
    int shots = 0; // how many shots the stack merged; for RetouchSource, the shot's number
    // The stack's blender, kept for retouching (it holds each shot's fit), and its first shot's layout.
    std::shared_ptr<const VImageBlender> blender;
    VImageHeader firstShot;
    QString error;
    QString saved;       // the file written (a save, or a stack that was to be saved)
    QString warning;     // what went wrong short of a failure (metadata not carried)
    int failedShot = -1; // the shot (its number in the stack's files) that ended a failed stack
    bool cancelled = false;
};

// The library's error records emitted on the thread that made this object, while it lives: operations
// that return a plain bool (loading, VImageBlender::addImage) say why only there.
class LibraryErrors {
public:
    LibraryErrors();
    ~LibraryErrors();
    LibraryErrors(const LibraryErrors&) = delete;
    LibraryErrors& operator=(const LibraryErrors&) = delete;
    // The first error: the cause, where later ones only say what gave up because of it.
    QString first() const;

private:
    std::shared_ptr<QStringList> texts_;
    int sink_ = 0;
};

class StackWorker : public QObject {
    Q_OBJECT
public:
    explicit StackWorker(QObject* parent = nullptr);
    ~StackWorker() override; // cancels the running job and waits for it

    bool isBusy() const { return busy_; }
    // Each starts a job and returns false, doing nothing, while another runs.
    bool readShots(const QStringList& files, int thumbnailSize);
    bool stack(const StackRequest& request);
    bool runTool(const QString& title, const VImage& source, const ToolFunction& tool);
    // The same on a file the job reads first.
    bool runTool(const QString& title, const QString& file, const ToolFunction& tool);
    // Writes an image (see saveImageFile).
    bool save(const VImage& image, const QString& file, const SaveSettings& settings);
    // Shot `index` of a stack's files as its merge read it (VImageBlender::alignedShot), for the brush.
    bool retouchSource(const QString& file, int index, const std::shared_ptr<const VImageBlender>& blender,
                       const VImageHeader& firstShot);
    // Safe at any time; the job ends at the library's next check and reports cancelled.
    void cancel();

signals:
    void progressed(double fraction, const QString& stage);
    void thumbnailRead(int index, const QImage& thumbnail, const QString& error);
    void finished(const studio::JobResult& result);

private:
    bool start(std::function<JobResult()> job);
    JobResult doReadShots(const QStringList& files, int thumbnailSize);
    JobResult doStack(const StackRequest& request);
    JobResult doTool(const QString& title, const VImage& source, const ToolFunction& tool);

    QThread thread_;
    QObject runner_; // lives on thread_: jobs are queued to it
    VProgress progress_;
    int lastPermille_ = -1; // touched on the worker thread only
    QString stagePrefix_;   // which shot the library's stage texts are about; worker thread only
    bool busy_ = false;     // touched on the window's thread only
    HandOver handOver_;
};

// The image files among paths, folders replaced by the images they hold, in natural order of names.
QStringList imageFiles(const QStringList& paths);

// The image as the screen shows it: 8-bit images as they are, others brought to 8 bits; null when the
// library has no displayable form of it.
QImage displayImage(const VImage& image);
// "640 × 480, XRGB 8u"; empty for an empty image.
QString describeImage(const VImage& image);
QString describeImage(const VImageHeader& header);

} // namespace studio

Q_DECLARE_METATYPE(studio::JobResult)
