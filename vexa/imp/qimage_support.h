/// @file
/// @brief The bridge between VImage and QImage, for display and for image files (group @ref exchange).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <QImage>
#include <QVector>

namespace VEXA {

/// @addtogroup exchange
/// **The bridge between VImage and QImage** (toQImage(), asQImage(), fromQImage()), for display and for
/// image files. Only 8u images have a QImage form: GrayScale as Indexed8 with the gray table, BGR as RGB888
/// (red and blue trade places on the way, since RGB888 stores R first), XRGB as RGB32, ARGB as ARGB32,
/// ARGB_Premultiplied as ARGB32_Premultiplied. The reverse mapping of representFormat() is narrower on
/// purpose (Indexed8, RGB32, ARGB32, ARGB32_Premultiplied only). fromQImage() takes any QImage: Grayscale8
/// and Indexed8 with a gray table become GrayScale 8u, Grayscale16 becomes GrayScale 16u, the four mapped
/// formats their counterparts, and anything else is first converted by Qt to ARGB32 (when it has alpha) or
/// RGB32. Images made from QImages have origin 1 and rows alignment 0, like every image the library makes
/// itself. Rows are copied as they lie, row 0 first, whatever the origin.
///
/// **Failures** are logged with issue Issue::QImageConversion (3300): "Can't convert invalid VImage to
/// QImage" (an image whose status is a failure), "Can't convert VImage to QImage." (a pixel type with no
/// QImage form, or memory wanting), "Can't convert QImage to VImage." (a null QImage, or one that could not
/// be converted or taken in).
///
/// **Threads:** reentrant; one image may be converted by several threads at once.
/// @{

/// The QImage format of an image of @p format and @p channel: that of the mapping above for 8u, and
/// QImage::Format_Invalid for YUV422, Invalid and every other channel type.
VEXA_EXPORT QImage::Format representFormat(Format format, Channel channel);
/// The library's format and channel type of a QImage format: Indexed8 is GrayScale 8u, RGB32 XRGB 8u,
/// ARGB32 ARGB 8u and ARGB32_Premultiplied ARGB_Premultiplied 8u. False, with both outputs -1 (Invalid and
/// ChannelInvalid), for every QImage format but the four that map directly. Null outputs are left out.
VEXA_EXPORT bool representFormat(QImage::Format qFormat, Format* format, Channel* channel);

/// 256 opaque grays, 0xFF000000 + i * 0x010101; built once, the same vector on every call.
VEXA_EXPORT const QVector<unsigned int>& grayColorTable();

/// A deep copy of the whole image (the roi plays no part); a null QImage on failure (issue 3300). An empty
/// image gives a null QImage without a failure logged.
VEXA_EXPORT QImage toQImage(const VImage& image);
/// The same, then converted by Qt to the QImage::Format given (left as it is for a value that names none).
VEXA_EXPORT QImage toQImage(const VImage& image, int qFormat);
/// A view sharing the image's pixels (no copy): it keeps the image's buffer alive, and writes through it
/// reach every handle sharing that buffer (a copy of the view that is written detaches first, as QImage
/// copies do). BGR is shown as Format_BGR888, which is its very layout; the other formats as toQImage()
/// gives them. A null QImage for an empty image and on failure, as toQImage().
VEXA_EXPORT QImage asQImage(const VImage& image);

/// A copy of the QImage's pixels; on failure an empty image carrying the failure (issue 3300).
VEXA_EXPORT VImage fromQImage(const QImage& qImage);
/// As fromQImage(const QImage&), into @p image. True when @p image then holds a non-empty image with an Ok
/// status; false, doing nothing, for a null @p image.
VEXA_EXPORT bool fromQImage(const QImage& qImage, VImage* image);

/// @}

} // namespace VEXA
