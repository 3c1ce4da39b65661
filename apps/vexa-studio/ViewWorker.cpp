#include "ViewWorker.h"

#include "StackWorker.h"

#include <vexa/imp/image_files.h>

namespace studio {

ViewWorker::ViewWorker(QObject* parent) : QObject(parent)
{
    qRegisterMetaType<studio::HistogramWidget::Curves>();
    // First connections, so that every other receiver already sees the request answered.
    connect(this, &ViewWorker::shotRead, this, [this] { --pendingShots_; });
    connect(this, &ViewWorker::histogramCounted, this, [this] { --pendingCounts_; });
    runner_.moveToThread(&thread_);
    thread_.start();
}

ViewWorker::~ViewWorker()
{
    thread_.quit();
    thread_.wait();
}

void ViewWorker::readShot(const QString& file)
{
    ++pendingShots_;
    QMetaObject::invokeMethod(
        &runner_,
        [this, file] {
            // A failure is shown on the shot's thumbnail already: here it is only an empty image.
            const VImage shot = VEXA::readImageFile(file);
            emit shotRead(file, shot, displayImage(shot));
        },
        Qt::QueuedConnection);
}

void ViewWorker::countHistogram(const QImage& image, const QRect& area)
{
    ++pendingCounts_;
    QMetaObject::invokeMethod(
        &runner_, [this, image, area] { emit histogramCounted(HistogramWidget::countCurves(image, area)); },
        Qt::QueuedConnection);
}

} // namespace studio
