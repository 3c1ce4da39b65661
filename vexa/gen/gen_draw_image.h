// Drawing figures and text into images, with QPainter working straight on the image's own pixels.
//
// The image must exist and be one QImage can paint without a copy: GrayScale, BGR, XRGB, ARGB or
// ARGB_Premultiplied, in 8u; any other pair is unsupported parameters. Painting is confined to the roi and
// coordinates are relative to it, in the library's pixel convention: pixel (x, y) has its centre at (x, y),
// so a 1-pixel line at y = 5 covers row 5 and nothing else, and the line from (0, 5) to (10, 5) covers
// its eleven pixels (square caps). A gray image takes the colour's gray as Qt paints it into Grayscale8.
// Colours are painted as they are, alpha blending over the image, so a translucent colour leaves the image
// showing through; painted XRGB pixels get 255 in their X byte. Rows are painted as they lie in memory,
// row 0 on top, whatever the image's origin.
//
// - drawFigure(image, figure, colour, penWidth, antialiased): the outline of every figure type: a polyline
//   through its points (a single point as a dot), a polygon closed, a rectangle turned by its angle about
//   its pivot, the arc of an ellipse from its start angle over its sweep (degrees, counter-clockwise as
//   displayed from the 3 o'clock direction, as QPainter counts them; a sweep of 360 or more draws the whole
//   ellipse), turned like its rectangle, and an angle as its two arms. penWidth 0 is the thinnest line
//   (one pixel); it must be finite and not negative.
// - fillFigure(image, figure, colour, antialiased): the inside of a figure that has one: a polygon or a
//   polyline (closed for the purpose), a turned rectangle, an ellipse (the pie of its arc when the sweep is
//   less than 360). An angle has no inside: unsupported parameters.
// - drawText(image, text, position, font, colour): the text with its baseline starting at position,
//   antialiased. Text needs Qt's font database, so a QGuiApplication must exist: without one the call fails
//   instead of letting Qt end the program.
//
// A figure with a coordinate that is not finite is refused ("Figure coordinates must be finite"); figures
// reaching far beyond the image are clipped.
//
// Threads: the library starts none, but Qt's raster engine, which does the painting, spreads a large fill
// over a pool of worker threads of its own (started by Qt on first use, kept by Qt, and done with the
// rows before the call returns). Hosts that count their process's threads will see Qt's there.
#pragma once

#include <vexa/imp/VFigure.h>
#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <QColor>
#include <QFont>
#include <QPointF>
#include <QString>

namespace VEXA {

VEXA_EXPORT VStatus drawFigure(VImage* image, const VFigure& figure, const QColor& color, double penWidth = 0.0,
                               bool antialiased = false);
VEXA_EXPORT VStatus fillFigure(VImage* image, const VFigure& figure, const QColor& color, bool antialiased = false);
VEXA_EXPORT VStatus drawText(VImage* image, const QString& text, const QPointF& position, const QFont& font,
                             const QColor& color);

} // namespace VEXA
