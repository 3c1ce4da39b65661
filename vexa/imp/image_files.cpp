#include <vexa/imp/image_files.h>

#include <vexa/imp/ImageData.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/png_file.h>
#include <vexa/imp/detail/progress.h>
#include <vexa/imp/detail/tiff_file.h>
#include <vexa/imp/qimage_support.h>

#include <QColorSpace>
#include <QFileInfo>
#include <QImageReader>
#include <QImageWriter>
#include <QSaveFile>

#include <algorithm>
#include <cstring>

namespace VEXA {

namespace {

// The library's pixel for each 64-bit QImage format: Qt keeps red first, we keep blue first.
Format deepFormatOf(int qFormat)
{
    switch (qFormat) {
    case QImage::Format_RGBX64: return XRGB;
    case QImage::Format_RGBA64: return ARGB;
    case QImage::Format_RGBA64_Premultiplied: return ARGB_Premultiplied;
    default: return Invalid;
    }
}

QImage::Format qFormatOf(Format format)
{
    switch (format) {
    case ARGB: return QImage::Format_RGBA64;
    case ARGB_Premultiplied: return QImage::Format_RGBA64_Premultiplied;
    default: return QImage::Format_RGBX64;
    }
}

// Four 16-bit components a pixel, red and blue traded on the way (either way round).
void swapRedAndBlue(const quint16* from, quint16* to, int width)
{
    for (int x = 0; x < width; ++x, from += 4, to += 4) {
        to[0] = from[2];
        to[1] = from[1];
        to[2] = from[0];
        to[3] = from[3];
    }
}

VImage readDeep(const QString& fileName, Format format)
{
    VImage image;
    const auto fail = [&](const CallSite& site, const QString& text, const QString& reason) {
        image = VImage();
        image.setStatus(loadingFailure(site, fileName, text, reason));
        return image;
    };
    QImageReader reader(fileName);
    const QSize size = reader.size();
    if (const QString over = sizeLimitRefusal(size, format, Channel16u); !over.isEmpty())
        return fail(VEXA_CALL_SITE, QStringLiteral("Failed to read.Out of memory: ") + over, over);
    QImage decoded;
    if (!reader.read(&decoded))
        return fail(VEXA_CALL_SITE, QStringLiteral("Failed to read.Out of memory: ") + reader.errorString(),
                    reader.errorString());
    // The decoder may settle on another format than it announced; only the three 64-bit ones are ours.
    const Format got = deepFormatOf(decoded.format());
    if (got == Invalid) {
        image = fromQImage(decoded);
        return image.status() && !image.isEmpty() ? image : fail(VEXA_CALL_SITE, QStringLiteral("Reason: failed VEXA::fromQImage( qImage )."),
                                                                     QStringLiteral("the decoded picture could not be taken in"));
    }
    image.create(decoded.width(), decoded.height(), got, Channel16u, OriginBottomLeft, RowsAlignNone);
    if (!image.status() || image.isEmpty())
        return fail(VEXA_CALL_SITE, QStringLiteral("Failed to read.Out of memory:"), QStringLiteral("out of memory"));
    for (int y = 0; y < decoded.height(); ++y)
        swapRedAndBlue(reinterpret_cast<const quint16*>(decoded.constScanLine(y)),
                       reinterpret_cast<quint16*>(image.rawData() + qint64(y) * image.bytesPerLine()), decoded.width());
    image.resetHash();
    return image;
}

// The same picture in a form the writers take: 8u stays 8u, 16u stays 16u where the file holds 16 bits,
// other depths become 16u there and 8u elsewhere; YUV becomes colour.
VImage storableForm(const VImage& image, bool sixteenBits)
{
    const Channel channel = sixteenBits && image.channelType() != Channel8u ? Channel16u : Channel8u;
    // BGR changes depth by way of XRGB, as the conversions between depths go.
    const bool sameDepth = channel == image.channelType();
    const Format format = image.format() == YUV422 || (image.format() == BGR && !sameDepth) ? XRGB : image.format();
    if (format == image.format() && channel == image.channelType())
        return image;
    return image.convertScaled(format, channel);
}

// A 16u image of four components for Qt's 64-bit writer. Only premultiplied colour into TIFF comes this
// way (libpng and libtiff take the rest); anything else gives a null picture, a refused write.
QImage deepQImage(const VImage& sixteen)
{
    const Format format = sixteen.format();
    if (format != XRGB && format != ARGB && format != ARGB_Premultiplied)
        return QImage();
    QImage out(sixteen.width(), sixteen.height(), qFormatOf(format));
    for (int y = 0; y < out.height() && !out.isNull(); ++y)
        swapRedAndBlue(reinterpret_cast<const quint16*>(sixteen.rawData() + qint64(y) * sixteen.bytesPerLine()),
                       reinterpret_cast<quint16*>(out.scanLine(y)), out.width());
    return out;
}

bool isTiff(const QString& suffix) { return suffix == QLatin1String("tif") || suffix == QLatin1String("tiff"); }

// An 8u image for Qt's writers: a view of its rows where Qt has the same layout (no copy of a large
// picture just to write it), else toQImage's copy.
QImage eightBitQImage(const VImage& image)
{
    QImage::Format format = QImage::Format_Invalid;
    switch (image.format()) {
    case GrayScale: format = QImage::Format_Grayscale8; break;
    case BGR: format = QImage::Format_BGR888; break;
    case XRGB: format = QImage::Format_RGB32; break;
    case ARGB: format = QImage::Format_ARGB32; break;
    case ARGB_Premultiplied: format = QImage::Format_ARGB32_Premultiplied; break;
    default: return toQImage(image);
    }
    return QImage(image.rawData(), image.width(), image.height(), int(image.bytesPerLine()), format);
}

} // namespace

bool embedsProfile(const QString& fileName, const QByteArray& iccProfile)
{
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    if (suffix == QLatin1String("png") || isTiff(suffix))
        return true;
    static const QStringList qtWriters{"jpg", "jpeg", "webp"};
    return qtWriters.contains(suffix) && QColorSpace::fromIccProfile(iccProfile).isValid();
}

bool embedsExif(const QString& fileName) { return QFileInfo(fileName).suffix().toLower() == QLatin1String("png"); }

bool holdsSixteenBits(const QString& fileName)
{
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    return suffix == QLatin1String("png") || isTiff(suffix);
}

namespace {

// 32-bit colour, as most JPEG and PNG files come in, decoded straight into the image's own rows: no second
// picture of the file's size to allocate and copy. Empty where the decoder did not write in place (it
// settled on another format or size), so that the caller reads the file as VImage::load does.
VImage readInPlace(QImageReader& reader, int qFormat)
{
    const Format format = qFormat == QImage::Format_RGB32 ? XRGB : qFormat == QImage::Format_ARGB32 ? ARGB : Invalid;
    const QSize size = reader.size();
    if (format == Invalid || !size.isValid() || size.isEmpty() ||
        dataSizeFor(size.width(), size.height(), format, Channel8u) > imageSizeLimit())
        return VImage();
    VImage image;
    image.create(size.width(), size.height(), format, Channel8u, OriginBottomLeft, RowsAlignNone);
    if (!image.status() || image.isEmpty())
        return VImage();
    // The buffer may be another picture's, recycled: the rows a damaged file leaves unwritten (Qt's readers
    // give what they decoded) must show nothing of it.
    std::memset(image.rawData(), 0, size_t(image.bytesPerLine()) * size_t(size.height()));
    QImage rows(image.rawData(), size.width(), size.height(), int(image.bytesPerLine()), QImage::Format(qFormat));
    if (!reader.read(&rows) || rows.constBits() != image.rawData() || rows.size() != size)
        return VImage();
    image.resetHash();
    return image;
}

VImage readStored(const QString& fileName, const FileReadOptions& options)
{
    // Asked as a plain integer: some plug-ins answer a damaged header with no value of QImage::Format.
    QImageReader probe(fileName);
    QImage::Format (QImageReader::*const query)() const = &QImageReader::imageFormat;
    const int qFormat = (probe.*reinterpret_cast<int (QImageReader::*)() const>(query))();
    if (options.keepDepth && deepFormatOf(qFormat) != Invalid)
        return readDeep(fileName, deepFormatOf(qFormat));
    if (options.preferBgr && qFormat == QImage::Format_RGB32 && probe.format() == "png") {
        const VImage bgr = readPngAsBgr(fileName);
        if (!bgr.isEmpty())
            return bgr;
    }
    VImage image = readInPlace(probe, qFormat);
    if (image.isEmpty())
        image.load(fileName);
    return image;
}

} // namespace

VImage readImageFile(const QString& fileName, const FileReadOptions& options)
{
    if (options.keepDepth && isRawFile(fileName))
        return readRawFile(fileName, options.raw);
    const VImage image = readStored(fileName, options);
    if (!options.applyOrientation || !image.status() || image.isEmpty())
        return image;
    // Asked of the formats that carry an orientation, told by their contents.
    static const QList<QByteArray> oriented{"jpeg", "png", "tiff", "webp"};
    if (!oriented.contains(QImageReader::imageFormat(fileName)))
        return image;
    const int orientation = readFileMetadata(fileName).orientation;
    return orientation == 1 ? image : orientedImage(image, orientation);
}

VStatus writeImageFile(const VImage& image, const QString& fileName, const FileWriteOptions& options)
{
    const auto fail = [&fileName](const CallSite& site, const QString& reason) {
        return VStatus(errorAt(site, Issue::Saving) << "Failed to save image to file " << fileName << " Reason: " << reason)
            .withReason(reason);
    };
    if (!image.status())
        return image.status();
    if (image.isEmpty())
        return fail(VEXA_CALL_SITE, QStringLiteral("conversion to nearest storable format failed."));
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    const bool png = suffix == QLatin1String("png");
    const QByteArray qtFormat = suffix.toLatin1();
    if (!png && !QImageWriter::supportedImageFormats().contains(qtFormat))
        return fail(VEXA_CALL_SITE, QStringLiteral("failed to write to file. Unsupported image format"));
    const VImage storable = storableForm(image, holdsSixteenBits(fileName));
    if (storable.isEmpty())
        return fail(VEXA_CALL_SITE, QStringLiteral("conversion to nearest storable format failed."));
    // Written beside the file and renamed over it when complete: a failed or cancelled write leaves
    // whatever stood under the name before. A caller writing to a temporary name of its own goes straight
    // in, saving a second temporary and its flush to the disk.
    QSaveFile beside(fileName);
    QFile straight(fileName);
    QFileDevice& file = options.replaceWhenComplete ? static_cast<QFileDevice&>(beside) : straight;
    if (!file.open(QIODevice::WriteOnly))
        return fail(VEXA_CALL_SITE, QStringLiteral("failed to write to file. ") + file.errorString());
    const VStatus written = guarded(VEXA_CALL_SITE, [&]() -> VStatus {
        checkCancelled();
        if (png || (isTiff(suffix) && writesTiff(storable.format(), storable.channelType()))) {
            // The encoders' own failures (a full disk, libpng or libtiff refusing) are a failed save naming
            // the cause; cancellation and the library's refusals go on to the frame.
            try {
                if (png)
                    writePng(storable, &file, options.compression, options.iccProfile, options.exif);
                else
                    writeTiff(storable, &file, options.compression, options.iccProfile);
            } catch (const dip_exception&) {
                throw;
            } catch (const exception& e) {
                return fail(VEXA_CALL_SITE, QStringLiteral("failed to write to file. ") + QString::fromUtf8(e.what()));
            }
            return VStatus::Ok;
        }
        QImage qImage = storable.channelType() == Channel16u ? deepQImage(storable) : eightBitQImage(storable);
        if (!options.iccProfile.isEmpty())
            qImage.setColorSpace(QColorSpace::fromIccProfile(options.iccProfile)); // an unknown one is dropped
        if (qImage.isNull())
            return fail(VEXA_CALL_SITE, QStringLiteral("conversion to nearest storable format failed."));
        QImageWriter writer(&file, qtFormat);
        if (options.quality >= 0)
            writer.setQuality(std::min(options.quality, 100));
        if (options.compression >= 0)
            writer.setCompression(options.compression > 0 ? 1 : 0); // TIFF: LZW, Qt's one compression
        if (!writer.write(qImage))
            return fail(VEXA_CALL_SITE, QStringLiteral("failed to write to file. ") + writer.errorString());
        reportProgress(1.0, "writing");
        return VStatus::Ok;
    });
    const bool closed = written && (options.replaceWhenComplete ? beside.commit() : straight.flush());
    if (!options.replaceWhenComplete) {
        straight.close();
        if (!closed)
            straight.remove();
    }
    if (!written)
        return written;
    if (!closed)
        return fail(VEXA_CALL_SITE, QStringLiteral("failed to write to file. ") + file.errorString());
    return VStatus::Ok;
}

} // namespace VEXA
