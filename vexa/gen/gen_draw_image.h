/// @file
/// @brief Drawing figures and text into images, with QPainter on the image's own pixels (group
/// @ref drawing).
#pragma once

#include <vexa/imp/VFigure.h>
#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <QColor>
#include <QFont>
#include <QPointF>
#include <QString>

namespace VEXA {

/// @addtogroup drawing
/// Drawing figures (VFigure) and text into images, with QPainter working straight on the image's own
/// pixels.
///
/// **Pixel types:** the image must exist and be one QImage can paint without a copy: GrayScale, BGR, XRGB,
/// ARGB or ARGB_Premultiplied, in 8u (@ref pairs_draw_image); any other pair fails with "Can not find
/// template with actual parameters!".
///
/// **Destinations:** the image is painted in place, confined to its roi (clipped to the image), and
/// coordinates are relative to the roi, in the library's pixel convention: pixel (x, y) has its centre at
/// (x, y), so a 1-pixel line at y = 5 covers row 5 and nothing else, and the line from (0, 5) to (10, 5)
/// covers its eleven pixels (square caps). Rows are painted as they lie in memory, row 0 on top, whatever
/// the image's origin.
///
/// **Colours** are painted as they are, alpha blending over the image, so a translucent colour leaves the
/// image showing through; painted XRGB pixels get 255 in their X byte. A gray image takes the colour's gray
/// as Qt paints it into Grayscale8.
///
/// **Failures:** a null image ("Null pointer argument!"), an invalid or empty one ("Bad status of image!",
/// "Empty source image!"), the pairs above, a figure with a coordinate that is not finite or lies beyond
/// 16777216 pixels ("Figure coordinates must be finite and within 16777216 pixels"; figures reaching far
/// beyond the image within that are clipped), a painter that cannot start ("The image cannot be painted"),
/// and each function's own below.
///
/// **Progress and cancellation** (VProgress): not checked; each call paints whole.
///
/// **Threads:** reentrant for different images; an image must not be used by another thread while it is
/// painted. The library starts no thread, but Qt's raster engine, which does the painting, spreads a large
/// fill over a pool of worker threads of its own (started by Qt on first use, kept by Qt, and done with the
/// rows before the call returns). Hosts that count their process's threads will see Qt's there.
/// @{

/// Draws the outline of @p figure in @p color with a solid pen of @p penWidth (square caps, mitred joins),
/// antialiased or not: a VPolyPoint as a polyline through its points (a single point as a dot), a VPolygon
/// closed, a VRectBase turned by its angle about its pivot, the arc of a VEllipse from its start angle over
/// its sweep (degrees, counter-clockwise as displayed from the 3 o'clock direction, as QPainter counts them;
/// a sweep of 360 or more either way draws the whole ellipse), turned like its rectangle, and a VAngle as
/// its two arms. A figure without points draws nothing. @p penWidth 0 is the thinnest line (one pixel); it
/// must be finite, not negative and at most 16777216 ("Pen width must be finite and not negative").
VEXA_EXPORT VStatus drawFigure(VImage* image, const VFigure& figure, const QColor& color, double penWidth = 0.0,
                               bool antialiased = false);
/// Fills the inside of @p figure with @p color, antialiased or not: a VPolygon, or a VPolyPoint closed for
/// the purpose, a turned VRectBase, a VEllipse (the pie of its arc when the sweep is less than 360 either
/// way). A VAngle has no inside: "Can not find template with actual parameters!".
VEXA_EXPORT VStatus fillFigure(VImage* image, const VFigure& figure, const QColor& color, bool antialiased = false);
/// Draws @p text in @p font and @p color with its baseline starting at @p position (finite and within
/// 16777216 pixels), antialiased. Text needs Qt's font database, so a QGuiApplication must exist: without
/// one the call fails ("Drawing text needs a QGuiApplication") instead of letting Qt end the program.
VEXA_EXPORT VStatus drawText(VImage* image, const QString& text, const QPointF& position, const QFont& font,
                             const QColor& color);

/// @}

} // namespace VEXA
