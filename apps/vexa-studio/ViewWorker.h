// The window's second helper thread, for what the view needs and the window must not wait for: reading the
// selected shot and counting the histogram of what is in view (a 12-megapixel shot takes longer than the
// window may block). Requests go in as queued calls, results come back as queued signals, one for each
// request, in order; the heavy stacking work stays on the StackWorker.
#pragma once

#include "ImageViewer.h"
#include "StackWorker.h"

#include <vexa/imp/VImage.h>

#include <QImage>
#include <QObject>
#include <QThread>

namespace studio {

class ViewWorker : public QObject {
    Q_OBJECT
public:
    explicit ViewWorker(QObject* parent = nullptr);
    ~ViewWorker() override; // waits for the request in progress

    void readShot(const QString& file);
    void countHistogram(const QImage& image, const QRect& area);
    // Requests whose answer has not arrived yet (counted on the window's thread).
    int pendingShots() const { return pendingShots_; }
    int pendingCounts() const { return pendingCounts_; }

signals:
    void shotRead(const QString& file, const VImage& shot, const QImage& shown);
    void histogramCounted(const studio::HistogramWidget::Curves& curves);

private:
    QThread thread_;
    QObject runner_; // lives on thread_: requests are queued to it
    int pendingShots_ = 0, pendingCounts_ = 0;
    HandOver handOver_;
};

} // namespace studio
