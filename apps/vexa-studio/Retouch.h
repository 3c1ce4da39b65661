// Retouching: a brush that paints the result from one shot. The shot comes brought to the result's geometry
// and exposure by the stack's own fits (VImageBlender::alignedShot), so that where the brush is fully on,
// the result's pixels become the shot's exactly, with no resampling beyond the merge's own alignment.
#pragma once

#include <vexa/imp/VImage.h>

#include <QImage>
#include <QPointF>
#include <QRect>
#include <QVector>

namespace studio {

struct Brush {
    double radius = 24;    // in image pixels
    double hardness = 0.8; // the share of the radius painted fully; the rest fades out linearly
};

// One stroke, from press to release. Within it the brush's cover at a pixel is the largest of its dabs',
// not their sum, so that going over a place again does not build up: the stroke's image is
// base + cover * (source - base), component by component, rounded for integer types.
class RetouchStroke {
public:
    // base and source: the result before the stroke and the shot, of one header (XRGB or GrayScale, 8u,
    // 16u or 32f). The stroke writes a copy of base.
    RetouchStroke(const VImage& base, const VImage& source, const Brush& brush);

    bool isValid() const { return !image_.isEmpty(); }
    // A dab at `centre` (image pixels), or dabs every fifth of the radius along the line from the last one;
    // the rectangle of pixels changed, clipped to the image (empty for none).
    QRect dabAt(QPointF centre);
    QRect lineTo(QPointF to);

    const VImage& base() const { return base_; }
    const VImage& image() const { return image_; }
    bool changed() const { return !touched_.isEmpty(); }

private:
    void blend(const QRect& area);

    VImage base_, source_, image_;
    Brush brush_;
    QVector<float> cover_; // per pixel of the image, 0 .. 1
    QPointF last_;
    bool started_ = false;
    QRect touched_;
};

// The pixels of `area` of an image as the viewer shows them (displayImage of a copy of the area), for
// redrawing a stroke's change without converting the whole image.
QImage shownPart(const VImage& image, const QRect& area);

} // namespace studio
