#include "ViewWorker.h"

#include <vexa/imp/image_files.h>

namespace studio {

ViewWorker::ViewWorker(QObject* parent) : QObject(parent)
{
    qRegisterMetaType<studio::HistogramWidget::Curves>();
    // First connections, so that every other receiver already sees the request answered.
    connect(this, &ViewWorker::shotRead, this, [this] {
        handOver_.receive();
        --pendingShots_;
    });
    connect(this, &ViewWorker::histogramCounted, this, [this] {
        handOver_.receive();
        --pendingCounts_;
    });
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
    handOver_.queue(&runner_, [this, file] {
        // A failure is shown on the shot's thumbnail already: here it is only an empty image.
        const VImage shot = VEXA::readImageFile(file);
        const QImage shown = displayImage(shot);
        handOver_.send();
        emit shotRead(file, shot, shown);
    });
}

void ViewWorker::countHistogram(const QImage& image, const QRect& area)
{
    ++pendingCounts_;
    handOver_.queue(&runner_, [this, image, area] {
        const HistogramWidget::Curves curves = HistogramWidget::countCurves(image, area);
        handOver_.send();
        emit histogramCounted(curves);
    });
}

} // namespace studio
