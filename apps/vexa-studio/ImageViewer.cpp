#include "ImageViewer.h"

#include <vexa/gen/gen_histograms.h>
#include <vexa/imp/qimage_support.h>

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWheelEvent>

#include "depth_colours.h"

#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>

namespace studio {

ImageViewer::ImageViewer(QWidget* parent) : QWidget(parent)
{
    setMinimumSize(200, 150);
    setMouseTracking(true);
    setFocusPolicy(Qt::WheelFocus);
}

void ImageViewer::setImage(const QImage& image, const QString& label)
{
    const bool newSize = image.size() != image_.size();
    image_ = image;
    label_ = label;
    if (fit_ || newSize)
        placeToFit();
    update();
    emit viewChanged();
}

void ImageViewer::setBeforeImage(const QImage& image, const QString& label)
{
    before_ = image;
    beforeLabel_ = label;
    update();
}

void ImageViewer::setPlaceholder(const QString& text)
{
    placeholder_ = text;
    update();
}

QRect ImageViewer::visibleRect() const
{
    return QRectF(-origin_ / scale_, QSizeF(size()) / scale_).toAlignedRect().intersected(image_.rect());
}

void ImageViewer::placeToFit()
{
    fit_ = true;
    if (image_.isNull())
        return;
    scale_ = std::min(double(width()) / image_.width(), double(height()) / image_.height());
    origin_ = QPointF((width() - image_.width() * scale_) / 2, (height() - image_.height() * scale_) / 2);
}

void ImageViewer::zoomToFit()
{
    placeToFit();
    update();
    emit viewChanged();
}

void ImageViewer::zoomToActualSize() { zoomBy(1 / scale_, QPointF(width() / 2.0, height() / 2.0)); }

void ImageViewer::zoomBy(double factor, const QPointF& about)
{
    if (image_.isNull())
        return;
    // From a 1-pixel-wide view of the whole image up to 32 screen pixels per image pixel.
    const double lowest = std::min(1.0, 16.0 / std::max(image_.width(), image_.height()));
    const double scale = std::clamp(scale_ * factor, lowest, 32.0);
    origin_ = about - (about - origin_) * (scale / scale_);
    scale_ = scale;
    fit_ = false;
    update();
    emit viewChanged();
}

void ImageViewer::resizeEvent(QResizeEvent*)
{
    if (fit_)
        placeToFit();
    emit viewChanged();
}

void ImageViewer::wheelEvent(QWheelEvent* event)
{
    zoomBy(std::pow(1.25, event->angleDelta().y() / 120.0), event->position());
    event->accept();
}

bool ImageViewer::nearDivider(const QPointF& position) const
{
    return isSplit() && std::abs(position.x() - dividerX()) <= 6;
}

void ImageViewer::setBrushRadius(double radius)
{
    brushRadius_ = std::max(0.0, radius);
    if (brushRadius_ > 0)
        setCursor(Qt::CrossCursor);
    else
        unsetCursor();
    update();
}

void ImageViewer::patchImage(const QImage& patch, QPoint at)
{
    QPainter painter(&image_);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.drawImage(at, patch);
    painter.end();
    update(
        QRectF(origin_ + QPointF(at) * scale_, QSizeF(patch.size()) * scale_).toAlignedRect().adjusted(-2, -2, 2, 2));
}

void ImageViewer::setCropMode(bool on)
{
    cropping_ = on;
    crop_ = QRect();
    if (on)
        setCursor(Qt::CrossCursor);
    else if (brushRadius_ <= 0)
        unsetCursor();
    update();
    emit cropChanged(crop_);
}

void ImageViewer::setCropRatio(double ratio)
{
    cropRatio_ = std::max(0.0, ratio);
    if (crop_.isEmpty())
        return;
    // The rectangle keeps its corner and its width where it can, its height following the ratio.
    cropStart_ = crop_.topLeft();
    dragCropTo(QPointF(crop_.right() + 1, crop_.bottom() + 1));
}

void ImageViewer::setCropRect(const QRect& rect)
{
    crop_ = rect.intersected(image_.rect());
    update();
    emit cropChanged(crop_);
}

void ImageViewer::dragCropTo(QPointF imagePoint)
{
    const QPointF end(std::clamp(imagePoint.x(), 0.0, double(image_.width())),
                      std::clamp(imagePoint.y(), 0.0, double(image_.height())));
    double w = end.x() - cropStart_.x(), h = end.y() - cropStart_.y();
    if (cropRatio_ > 0 && w != 0 && h != 0) {
        // The smaller side of the two the ratio allows: the rectangle stays inside the image.
        if (std::abs(w) / std::abs(h) > cropRatio_)
            w = std::copysign(std::abs(h) * cropRatio_, w);
        else
            h = std::copysign(std::abs(w) / cropRatio_, h);
    }
    const QRectF rect = QRectF(cropStart_, QSizeF(w, h)).normalized();
    setCropRect(QRect(QPoint(int(std::lround(rect.left())), int(std::lround(rect.top()))),
                      QPoint(int(std::lround(rect.right())) - 1, int(std::lround(rect.bottom())) - 1)));
}

void ImageViewer::mousePressEvent(QMouseEvent* event)
{
    const bool left = event->button() == Qt::LeftButton && !image_.isNull();
    const bool paint = brushRadius_ > 0 && left, crop = cropping_ && left;
    const bool pan = event->button() == Qt::MiddleButton || (event->button() == Qt::LeftButton && !paint && !crop);
    if (!paint && !crop && !pan)
        return;
    if (crop) {
        drag_ = Drag::Crop;
        cropStart_ = toImage(event->position());
        return;
    }
    drag_ = paint ? Drag::Paint : nearDivider(event->position()) ? Drag::Divider : Drag::Pan;
    dragStart_ = event->position();
    originAtStart_ = origin_;
    if (drag_ == Drag::Pan)
        setCursor(Qt::ClosedHandCursor);
    if (paint)
        emit brushPressed(toImage(event->position()));
}

void ImageViewer::mouseMoveEvent(QMouseEvent* event)
{
    if (brushRadius_ > 0) {
        const double r = brushRadius_ * scale_ + 3;
        update(QRectF(cursor_ - QPointF(r, r), QSizeF(2 * r, 2 * r)).toAlignedRect());
        cursor_ = event->position();
        update(QRectF(cursor_ - QPointF(r, r), QSizeF(2 * r, 2 * r)).toAlignedRect());
    }
    if (drag_ == Drag::Crop) {
        dragCropTo(toImage(event->position()));
    } else if (drag_ == Drag::Paint) {
        emit brushMoved(toImage(event->position()));
    } else if (drag_ == Drag::Divider) {
        split_ = std::clamp(event->position().x() / std::max(1, width()), 0.0, 1.0);
        update();
    } else if (drag_ == Drag::Pan) {
        origin_ = originAtStart_ + (event->position() - dragStart_);
        fit_ = false;
        update();
        emit viewChanged();
    } else if (brushRadius_ <= 0 && !cropping_) {
        setCursor(nearDivider(event->position()) ? Qt::SplitHCursor : Qt::OpenHandCursor);
    }
}

void ImageViewer::mouseReleaseEvent(QMouseEvent*)
{
    const bool painting = drag_ == Drag::Paint;
    drag_ = Drag::None;
    if (brushRadius_ > 0 || cropping_)
        setCursor(Qt::CrossCursor);
    else
        unsetCursor();
    if (painting)
        emit brushReleased();
}

void ImageViewer::leaveEvent(QEvent*)
{
    cursor_ = QPointF(-1e6, -1e6);
    update();
}

void ImageViewer::drawLabel(QPainter& painter, const QString& text, bool left)
{
    if (text.isEmpty())
        return;
    const QFontMetrics metrics(painter.font());
    const int width = metrics.horizontalAdvance(text) + 16;
    const QRect box(left ? 8 : this->width() - width - 8, 8, width, metrics.height() + 8);
    painter.fillRect(box, QColor(0, 0, 0, 160));
    painter.setPen(Qt::white);
    painter.drawText(box, Qt::AlignCenter, text);
}

void ImageViewer::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), QColor(48, 48, 52));
    if (image_.isNull()) {
        painter.setPen(QColor(200, 200, 200));
        painter.drawText(rect().adjusted(20, 20, -20, -20), Qt::AlignCenter | Qt::TextWordWrap, placeholder_);
        return;
    }
    // Smooth when shrinking; enlarged pixels stay square so that they can be inspected.
    painter.setRenderHint(QPainter::SmoothPixmapTransform, scale_ < 1);
    const QRectF target(origin_, QSizeF(image_.size()) * scale_);
    if (!isSplit()) {
        painter.drawImage(target, image_);
        drawLabel(painter, label_, true);
        drawCrop(painter);
        drawBrush(painter);
        return;
    }
    const double x = dividerX();
    painter.save();
    painter.setClipRect(QRectF(0, 0, x, height()));
    // The shot is laid over the result's pixels, one to one, whatever its own size.
    painter.drawImage(QRectF(origin_, QSizeF(before_.size()) * scale_), before_);
    painter.setClipRect(QRectF(x, 0, width() - x, height()));
    painter.drawImage(target, image_);
    painter.restore();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(Qt::white, 2));
    painter.drawLine(QPointF(x, 0), QPointF(x, height()));
    painter.setBrush(Qt::white);
    painter.drawEllipse(QPointF(x, height() / 2.0), 7, 7);
    drawLabel(painter, beforeLabel_, true);
    drawLabel(painter, label_, false);
    drawCrop(painter);
    drawBrush(painter);
}

void ImageViewer::drawCrop(QPainter& painter)
{
    if (!cropping_ || crop_.isEmpty())
        return;
    const QRectF inside(toWidget(crop_.topLeft()), QSizeF(crop_.size()) * scale_);
    QPainterPath outside;
    outside.addRect(QRectF(toWidget(QPointF(0, 0)), QSizeF(image_.size()) * scale_));
    outside.addRect(inside);
    painter.fillPath(outside, QColor(0, 0, 0, 150)); // odd-even fill: all but the rectangle
    painter.setPen(QPen(Qt::white, 1, Qt::DashLine));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(inside);
    const QString size = QStringLiteral("%1 × %2").arg(crop_.width()).arg(crop_.height());
    const QFontMetrics metrics(painter.font());
    const QRectF box(inside.left(), inside.bottom() + 4, metrics.horizontalAdvance(size) + 12, metrics.height() + 6);
    painter.fillRect(box, QColor(0, 0, 0, 170));
    painter.drawText(box, Qt::AlignCenter, size);
}

void ImageViewer::drawBrush(QPainter& painter)
{
    if (brushRadius_ <= 0 || !rect().contains(cursor_.toPoint()))
        return;
    // Two rings, dark and light, so that the outline shows on any picture.
    const double r = brushRadius_ * scale_;
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(QColor(0, 0, 0, 200), 3));
    painter.drawEllipse(cursor_, r, r);
    painter.setPen(QPen(QColor(255, 255, 255, 230), 1));
    painter.drawEllipse(cursor_, r, r);
}

HistogramWidget::HistogramWidget(QWidget* parent) : QWidget(parent) { setMinimumSize(160, 100); }

HistogramWidget::Curves HistogramWidget::countCurves(const QImage& image, const QRect& area)
{
    Curves curves;
    if (image.isNull() || area.isEmpty())
        return curves;
    const VImage counted = VEXA::fromQImage(image.copy(area));
    VHistogram histogram;
    if (!VEXA::calculateHistogram(counted, &histogram))
        return curves;
    const bool gray = counted.format() == VEXA::GrayScale;
    const QList<QPair<VEXA::Component, QColor>> planes =
        gray ? QList<QPair<VEXA::Component, QColor>>{{VEXA::ComponentLuminance, QColor(220, 220, 220)}}
             : QList<QPair<VEXA::Component, QColor>>{{VEXA::ComponentRed, QColor(235, 70, 70)},
                                                     {VEXA::ComponentGreen, QColor(70, 200, 70)},
                                                     {VEXA::ComponentBlue, QColor(80, 120, 255)}};
    for (const auto& [component, colour] : planes) {
        if (const qint64* counts = histogram.componentData(component))
            curves.append({colour, QVector<qint64>(counts, counts + 256)});
    }
    return curves;
}

void HistogramWidget::setCurves(const Curves& curves)
{
    curves_ = curves;
    update();
}

void HistogramWidget::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), QColor(30, 30, 34));
    qint64 top = 1;
    for (const auto& curve : curves_)
        top = std::max(top, *std::max_element(curve.second.begin(), curve.second.end()));
    // Square-root heights: a few large bins (a black border, a flat sky) would flatten the rest.
    const double peak = std::sqrt(double(top));
    const QRectF area = QRectF(rect()).adjusted(4, 4, -4, -4);
    painter.setRenderHint(QPainter::Antialiasing);
    for (const auto& [colour, counts] : curves_) {
        QPainterPath path(area.bottomLeft());
        for (int i = 0; i < 256; ++i)
            path.lineTo(area.left() + area.width() * i / 255,
                        area.bottom() - area.height() * std::sqrt(double(counts[i])) / peak);
        path.lineTo(area.bottomRight());
        QColor fill = colour;
        fill.setAlpha(45);
        painter.fillPath(path, fill);
        painter.strokePath(path, QPen(colour, 1.5));
    }
}

QImage depthMapColours(const VImage& depth, int shots)
{
    if (depth.isEmpty() || depth.format() != VEXA::GrayScale || depth.channelType() != VEXA::Channel16u)
        return QImage();
    const cv::Mat indices(depth.height(), depth.width(), CV_16UC1, depth.rawData(), size_t(depth.bytesPerLine()));
    // The ends of the map are nearly black; its blue-to-red middle keeps every shot a clear colour.
    return vexatool::turboColours(indices, shots > 1 ? 192.0 / (shots - 1) : 0, 32);
}

} // namespace studio
