#include <vexa/imp/qimage_support.h>

#include <vexa/imp/detail/frame.h>

#include <QObject>

#include <cstring>

namespace VEXA {

namespace {

void failConversion(const CallSite& site, const QString& text) { errorAt(site, Issue::QImageConversion) << text; }

bool isGrayTable(const QList<QRgb>& table)
{
    for (qsizetype i = 0; i < table.size(); ++i)
        if (table[i] != (0xFF000000u | uint(i) * 0x010101u))
            return false;
    return true;
}

// Rows of the common width, each copied whole; the two images have the same height.
void copyRows(const uchar* src, qsizetype srcStride, uchar* dst, qsizetype dstStride, int height)
{
    const size_t n = size_t(std::min(srcStride, dstStride));
    for (int y = 0; y < height; ++y)
        std::memcpy(dst + y * dstStride, src + y * srcStride, n);
}

} // namespace

QImage::Format representFormat(Format format, Channel channel)
{
    if (channel != Channel8u)
        return QImage::Format_Invalid;
    switch (format) {
    case GrayScale: return QImage::Format_Indexed8;
    case BGR: return QImage::Format_RGB888;
    case ARGB: return QImage::Format_ARGB32;
    case XRGB: return QImage::Format_RGB32;
    case ARGB_Premultiplied: return QImage::Format_ARGB32_Premultiplied;
    case YUV422: case Invalid: return QImage::Format_Invalid;
    }
    return QImage::Format_Invalid;
}

bool representFormat(QImage::Format qFormat, Format* format, Channel* channel)
{
    Format f = Invalid;
    switch (qFormat) {
    case QImage::Format_Indexed8: f = GrayScale; break;
    case QImage::Format_RGB32: f = XRGB; break;
    case QImage::Format_ARGB32: f = ARGB; break;
    case QImage::Format_ARGB32_Premultiplied: f = ARGB_Premultiplied; break;
    default: break;
    }
    if (format)
        *format = f;
    if (channel)
        *channel = f == Invalid ? ChannelInvalid : Channel8u;
    return f != Invalid;
}

const QVector<unsigned int>& grayColorTable()
{
    static const QVector<unsigned int> table = [] {
        QVector<unsigned int> t(256);
        for (unsigned i = 0; i < 256; ++i)
            t[i] = 0xFF000000u + i * 0x10000u + i * 0x100u + i;
        return t;
    }();
    return table;
}

QImage toQImage(const VImage& image)
{
    if (!image.status()) {
        failConversion(VEXA_CALL_SITE, QObject::tr("Can't convert invalid VImage to QImage"));
        return QImage();
    }
    if (image.isEmpty())
        return QImage();
    const QImage::Format qFormat = representFormat(image.format(), image.channelType());
    if (qFormat == QImage::Format_Invalid) {
        failConversion(VEXA_CALL_SITE, QObject::tr("Can't convert VImage to QImage."));
        return QImage();
    }
    QImage result;
    if (image.format() == BGR) {
        // RGB888 stores red first: Qt swaps the bytes on its way from our own layout, BGR888.
        const QImage view(image.rawData(), image.width(), image.height(), image.bytesPerLine(), QImage::Format_BGR888);
        result = view.convertToFormat(QImage::Format_RGB888);
    } else {
        result = QImage(image.width(), image.height(), qFormat);
        if (!result.isNull())
            copyRows(image.rawData(), image.bytesPerLine(), result.bits(), result.bytesPerLine(), image.height());
        if (image.format() == GrayScale)
            result.setColorTable(grayColorTable());
    }
    if (result.isNull())
        failConversion(VEXA_CALL_SITE, QObject::tr("Can't convert VImage to QImage."));
    return result;
}

QImage toQImage(const VImage& image, int qFormat)
{
    QImage result = toQImage(image);
    if (!result.isNull() && qFormat > QImage::Format_Invalid && qFormat < QImage::NImageFormats &&
        qFormat != result.format())
        result = result.convertToFormat(QImage::Format(qFormat));
    return result;
}

QImage asQImage(const VImage& image)
{
    if (!image.status() || image.isEmpty()) {
        if (!image.status())
            failConversion(VEXA_CALL_SITE, QObject::tr("Can't convert invalid VImage to QImage"));
        return QImage();
    }
    QImage::Format qFormat = representFormat(image.format(), image.channelType());
    if (qFormat == QImage::Format_RGB888)
        qFormat = QImage::Format_BGR888;
    if (qFormat == QImage::Format_Invalid) {
        failConversion(VEXA_CALL_SITE, QObject::tr("Can't convert VImage to QImage."));
        return QImage();
    }
    auto* keeper = new VImage(image); // shares the buffer until the view goes
    QImage view(image.rawData(), image.width(), image.height(), image.bytesPerLine(), qFormat,
                [](void* info) { delete static_cast<VImage*>(info); }, keeper);
    if (image.format() == GrayScale)
        view.setColorTable(grayColorTable());
    return view;
}

VImage fromQImage(const QImage& qImage)
{
    VImage result;
    const auto fail = [&result](const CallSite& site) {
        VMessageStream s = errorAt(site, Issue::QImageConversion) << QObject::tr("Can't convert QImage to VImage.");
        result = VImage();
        result.setStatus(VStatus(s));
        return result;
    };
    if (qImage.isNull())
        return fail(VEXA_CALL_SITE);

    QImage source = qImage;
    Format format = Invalid;
    Channel channel = Channel8u;
    switch (source.format()) {
    case QImage::Format_Grayscale8: format = GrayScale; break;
    case QImage::Format_Grayscale16: format = GrayScale; channel = Channel16u; break;
    case QImage::Format_Indexed8:
        if (isGrayTable(source.colorTable()))
            format = GrayScale;
        break;
    default: representFormat(source.format(), &format, &channel); break;
    }
    if (format == Invalid) {
        source = source.convertToFormat(source.hasAlphaChannel() ? QImage::Format_ARGB32 : QImage::Format_RGB32);
        if (source.isNull())
            return fail(VEXA_CALL_SITE);
        representFormat(source.format(), &format, &channel);
    }
    result.create(source.width(), source.height(), format, channel, OriginBottomLeft, RowsAlignNone);
    if (!result.status() || result.isEmpty())
        return fail(VEXA_CALL_SITE);
    copyRows(source.constBits(), source.bytesPerLine(), result.rawData(), result.bytesPerLine(), source.height());
    result.resetHash();
    return result;
}

bool fromQImage(const QImage& qImage, VImage* image)
{
    if (!image)
        return false;
    *image = fromQImage(qImage);
    return image->status().isOk() && !image->isEmpty();
}

} // namespace VEXA
