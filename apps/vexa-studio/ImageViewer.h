// The picture in the middle of the window: zoom to fit, 100% and by the wheel about the cursor, panning by
// dragging, and a before/after split whose divider is dragged across. Beside it, the histogram of what is
// in view.
#pragma once

#include <vexa/imp/VImage.h>

#include <QImage>
#include <QWidget>

namespace studio {

class ImageViewer : public QWidget {
    Q_OBJECT
public:
    explicit ImageViewer(QWidget* parent = nullptr);

    // The image shown (the "after" side in a split); a null image shows the placeholder text instead.
    void setImage(const QImage& image, const QString& label = QString());
    // With a non-null image the view is split: this one left of the divider, the main image right of it.
    void setBeforeImage(const QImage& image, const QString& label = QString());
    void setPlaceholder(const QString& text);

    const QImage& image() const { return image_; }
    bool isSplit() const { return !before_.isNull(); }
    double scale() const { return scale_; }
    bool isFitting() const { return fit_; }
    // The part of the main image in view, in its pixels.
    QRect visibleRect() const;
    // With a radius over 0 (image pixels) the left button paints instead of panning (the middle button
    // still pans) and the brush's outline follows the cursor; 0 ends it.
    void setBrushRadius(double radius);
    double brushRadius() const { return brushRadius_; }
    // Writes patch over the shown image with its top-left corner at `at`, for a stroke in progress.
    void patchImage(const QImage& patch, QPoint at);
    QPointF toImage(QPointF widgetPoint) const { return (widgetPoint - origin_) / scale_; }
    QPointF toWidget(QPointF imagePoint) const { return origin_ + imagePoint * scale_; }
    // Crop mode: the left button drags a rectangle, kept to `ratio` (width over height) when that is over
    // 0, and the image outside it is dimmed; the middle button pans.
    void setCropMode(bool on);
    void setCropRatio(double ratio);
    // In image pixels, inside the image; empty for none.
    QRect cropRect() const { return crop_; }
    void setCropRect(const QRect& rect);

public slots:
    void zoomToFit();
    void zoomToActualSize();
    void zoomBy(double factor, const QPointF& about);

signals:
    void viewChanged(); // zoom, pan or image
    void brushPressed(QPointF imagePoint);
    void brushMoved(QPointF imagePoint);
    void brushReleased();
    void cropChanged(const QRect& rect);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    void placeToFit();
    void drawLabel(QPainter& painter, const QString& text, bool left);
    void drawBrush(QPainter& painter);
    void drawCrop(QPainter& painter);
    void dragCropTo(QPointF imagePoint);
    double dividerX() const { return split_ * width(); }
    bool nearDivider(const QPointF& position) const;

    QImage image_, before_;
    QString label_, beforeLabel_, placeholder_;
    double scale_ = 1;
    QPointF origin_;  // where the image's top-left corner lies in the widget
    bool fit_ = true; // refit on resize and on a new image size
    double split_ = 0.5;
    enum class Drag { None, Pan, Divider, Paint, Crop } drag_ = Drag::None;
    bool cropping_ = false;
    double cropRatio_ = 0;
    QRect crop_;
    QPointF cropStart_;
    double brushRadius_ = 0;
    QPointF cursor_{-1, -1}; // where the brush's outline is drawn; off the widget when outside
    QPointF dragStart_, originAtStart_;
};

// 256 bins per colour of an image (through the library's histograms), drawn as three overlaid curves, or
// one for gray images.
class HistogramWidget : public QWidget {
    Q_OBJECT
public:
    using Curves = QList<QPair<QColor, QVector<qint64>>>;
    explicit HistogramWidget(QWidget* parent = nullptr);
    // The curves of an area of an image, through the library's histograms; safe on any thread.
    static Curves countCurves(const QImage& image, const QRect& area);
    void setCurves(const Curves& curves);
    QSize sizeHint() const override { return {280, 160}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Curves curves_;
};

// A depth map of shot indices (GrayScale 16u) in false colour: the first shot (nearest focus) blue, the
// last red, so that neighbouring shots stay told apart.
QImage depthMapColours(const VImage& depth, int shots);

} // namespace studio

Q_DECLARE_METATYPE(studio::HistogramWidget::Curves)
