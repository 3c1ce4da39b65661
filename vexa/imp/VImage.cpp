// VImage, the handle every operation takes: construction, the copy-on-write block, regions of interest,
// conversion members, the byte array and stream formats, hashing and the QImage bridge's members. Over 500
// lines because one class's members stay in one file; what they do lives in the kernels they call.
#include <vexa/imp/VImage.h>

#include <vexa/gen/gen_copy_image.h>
#include <vexa/gen/gen_histograms.h>
#include <vexa/gen/gen_image_converters.h>
#include <vexa/gen/gen_resize_image.h>
#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/opencv_frame.h>
#include <vexa/imp/qimage_support.h>

#include <vcore/VSerialization.h>

#include <QBuffer>
#include <QCryptographicHash>
#include <QImageReader>
#include <QImageWriter>
#include <QMutex>
#include <QMutexLocker>
#include <QObject>
#include <QSharedData>

#include <zlib.h>

#include <limits>

using namespace VEXA;

struct VImage::Block : QSharedData {
    ImageData data;
    mutable QMutex hashMutex; // handles on several threads may ask for the hash of one block
    mutable QByteArray hash;

    Block() = default;
    // A detached block copies the pixels; its hash is computed afresh when asked for.
    Block(const Block& other) : QSharedData(other), data(other.data) {}
};

namespace {

Rect toRect(const QRect& r)
{
    return Rect{r.left(), r.top(), clampToInt32(qint64(r.right()) - r.left() + 1),
                clampToInt32(qint64(r.bottom()) - r.top() + 1)};
}

} // namespace

VImage::VImage() : d(new Block) {}

VImage::VImage(long width, long height) : d(new Block)
{
    create(width, height, XRGB, Channel8u, OriginBottomLeft, RowsAlignNone);
}

VImage::VImage(const VImage& other) = default;
VImage& VImage::operator=(const VImage& other) = default;
VImage::~VImage() = default;

ImageData* VImage::data()
{
    d.detach();
    return &d->data;
}

const ImageData* VImage::constData() const { return &d->data; }

void VImage::detachForOverwrite()
{
    if (d->ref.loadRelaxed() == 1)
        return;
    Block* fresh = new Block;
    fresh->data.setStatus(d->data.status());
    d.reset(fresh);
}

void VImage::create(long width, long height, Format format, Channel channel, Origin origin, RowsAlign align)
{
    if (isCompatible(width, height, format, channel, origin, align))
        return;
    detachForOverwrite();
    d->data.create(width, height, format, channel, origin, align);
    resetHash();
}

void VImage::create(const VImageHeader& h)
{
    create(h.width, h.height, h.format, h.channelType, h.origin, h.rowsAlignment);
}

void VImage::set(const unsigned char* bytes, long width, long height, Format format, Channel channel,
                 Origin origin, RowsAlign align)
{
    create(width, height, format, channel, origin, align);
    data()->setData(bytes);
    resetHash();
}

void VImage::set(const unsigned char* bytes, const VImageHeader& h)
{
    set(bytes, h.width, h.height, h.format, h.channelType, h.origin, h.rowsAlignment);
}

void VImage::clear() { *this = VImage(); }

long VImage::dataSize(long width, long height, Format format, Channel channel, RowsAlign)
{
    return long(dataSizeFor(width, height, format, channel));
}

long VImage::dataSize(const VImageHeader& h) { return dataSize(h.width, h.height, h.format, h.channelType, h.rowsAlignment); }

int VImage::width() const { return constData()->width(); }
int VImage::height() const { return constData()->height(); }
QSize VImage::size() const { return QSize(width(), height()); }
Format VImage::format() const { return constData()->format(); }
Channel VImage::channelType() const { return constData()->channelType(); }
Origin VImage::origin() const { return constData()->origin(); }
RowsAlign VImage::rowsAlignment() const { return constData()->rowsAlignment(); }
long VImage::bytesPerLine() const { return constData()->bytesPerLine(); }
long VImage::dataSize() const { return constData()->dataSize(); }
unsigned char* VImage::rawData() const { return constData()->rawData(); }
bool VImage::isEmpty() const { return constData()->isEmpty(); }

QRect VImage::roi() const
{
    const Rect r = constData()->roi();
    return QRect(QPoint(r.x, r.y), QPoint(clampToInt32(qint64(r.x) + r.width - 1), clampToInt32(qint64(r.y) + r.height - 1)));
}

Rect VImage::roiRect() const { return constData()->roi(); }

VImageHeader VImage::header() const
{
    if (!status())
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't make header of invalid image."));
    const ImageData* p = constData();
    return VImageHeader{p->width(), p->height(), p->format(), p->channelType(), p->origin(), p->rowsAlignment()};
}

void VImage::setRoi(const QRect& roi)
{
    data()->setRoi(toRect(roi));
}

void VImage::resetRoi() { data()->setRoi(Rect{0, 0, width(), height()}); }

bool VImage::isCompatible(long width, long height, Format format, Channel channel, Origin origin,
                          RowsAlign align) const
{
    const ImageData* p = constData();
    return p->width() == width && p->height() == height && p->format() == format && p->channelType() == channel &&
           p->origin() == origin && p->rowsAlignment() == align;
}

bool VImage::isCompatible(const VImage& other) const
{
    const ImageData* o = other.constData();
    return isCompatible(o->width(), o->height(), o->format(), o->channelType(), o->origin(), o->rowsAlignment());
}

QByteArray VImage::hash() const
{
    if (!status()) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't make hash of invalid image."));
        return QByteArray();
    }
    {
        QMutexLocker lock(&d->hashMutex);
        if (!d->hash.isEmpty())
            return d->hash;
    }
    // Hash outside the lock: it reads the whole buffer, and other readers need not wait for it.
    const ImageData* p = constData();
    const QByteArray digest = QCryptographicHash::hash(
        QByteArrayView(reinterpret_cast<const char*>(p->rawData()), p->rawData() ? p->dataSize() : 0),
        QCryptographicHash::Md5);
    QMutexLocker lock(&d->hashMutex);
    d->hash = digest;
    return digest;
}

void VImage::resetHash() const
{
    QMutexLocker lock(&d->hashMutex);
    d->hash.clear();
}

bool VImage::isEqual(const VImage& other) const
{
    const bool empty = isEmpty();
    const bool otherEmpty = other.isEmpty();
    if (empty || otherEmpty)
        return empty && otherEmpty;
    if (d == other.d)
        return true;
    if (!isCompatible(other))
        return false;
    return hash() == other.hash();
}

VImage VImage::copy() const
{
    if (!status()) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't copy invalid image."));
        return VImage();
    }
    VImage result;
    const ImageData* p = constData();
    result.d->data.create(p->rawData(), p->width(), p->height(), p->format(), p->channelType(), p->origin(),
                          p->rowsAlignment());
    return result;
}

bool VImage::copyTo(VImage* dst) const
{
    if (!dst)
        return false;
    if (dst == this)
        return status().isOk();
    dst->create(header());
    const Rect whole{0, 0, width(), height()};
    const VStatus status = copyImageUsingRois(*this, dst, whole, whole);
    dst->setRoi(roi());
    return status.isOk();
}

VImage VImage::createCompatible() const { return createCompatible(format(), channelType()); }
VImage VImage::createCompatible(Format format) const { return createCompatible(format, channelType()); }
VImage VImage::createCompatible(Channel channel) const { return createCompatible(format(), channel); }

VImage VImage::createCompatible(Format format, Channel channel) const
{
    if (!status()) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't create compatible with invalid image."));
        return VImage();
    }
    VImage result;
    result.create(width(), height(), format, channel, origin(), rowsAlignment());
    return result;
}

VImage VImage::createCompatible(int width, int height) const
{
    if (!status()) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't create compatible with invalid image."));
        return VImage();
    }
    VImage result;
    if (width > 0 && height > 0)
        result.create(width, height, format(), channelType(), origin(), rowsAlignment());
    return result;
}

VImage VImage::cropByRect(const QRect& r) const
{
    VImage result;
    if (!status() || isEmpty()) {
        result.setStatus(status());
        return result;
    }
    const qint64 w0 = width(), h0 = height();
    const qint32 x = qint32(std::min<qint64>(std::max(r.left(), 0), w0 - 1));
    const qint32 y = qint32(std::min<qint64>(std::max(r.top(), 0), h0 - 1));
    const qint32 w = qint32(std::min<qint64>(std::max<qint64>(qint64(r.right()) - x + 1, 1), w0 - x));
    const qint32 h = qint32(std::min<qint64>(std::max<qint64>(qint64(r.bottom()) - y + 1, 1), h0 - y));
    result.create(w, h, format(), channelType(), origin(), rowsAlignment());
    result.checkStatus(copyImageUsingRois(*this, &result, Rect{x, y, w, h}, Rect{0, 0, w, h}));
    return result;
}

namespace {

// A new image of the image's size, origin, alignment and roi in the given pair, filled by `conversion`;
// empty if that fails. Conversions never write the X of XRGB, where a buffer recycled from the pool holds
// another image's bytes: X is set to `opaque` first, the value the same conversion gives an alpha that its
// source lacks.
VImage convertedBy(const VImage& image, Format format, Channel channel, VStatus (*conversion)(const VImage&, VImage*),
                   double opaque)
{
    VImage result;
    result.create(image.width(), image.height(), format, channel, image.origin(), image.rowsAlignment());
    if (format == XRGB && result.status() && !result.isEmpty())
        asCvMat(result).setTo(cv::Scalar(0.0, 0.0, 0.0, opaque));
    result.checkStatus(conversion(image, &result));
    if (!result.status())
        return VImage();
    result.setRoi(image.roi());
    return result;
}

} // namespace

VImage VImage::convert(Format format, Channel channel) const
{
    if (!status()) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't convert invalid image."));
        return VImage();
    }
    // Plain conversion gives an alpha 255 in every type, narrowed as components are (8s: -1).
    return convertedBy(*this, format, channel, convertImage, channel == Channel8s ? -1.0 : 255.0);
}

VImage VImage::convertScaled(Format format, Channel channel) const
{
    if (!status()) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't convert invalid image."));
        return VImage();
    }
    if (channel == ChannelInvalid)
        channel = channelType();
    // Scaled conversion gives an alpha the type's full scale.
    return convertedBy(*this, format, channel, convertImageScaled,
                       channel == Channel32f ? 1.0 : channelInfo(channel).max);
}

VImage VImage::convertFast(Format format, Channel channel) const
{
    if (channel == ChannelInvalid)
        channel = channelType();
    if (format == this->format() && channel == channelType())
        return *this;
    return convert(format, channel);
}

namespace {

template <class Angle>
VImage rotated(const VImage& image, Angle angle, RotateMethod method)
{
    if (!image.status()) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't rotate invalid image."));
        return VImage();
    }
    VImageHeader header;
    headerForRotate(image.header(), angle, method, &header);
    VImage result;
    result.create(header);
    const VStatus status = result.status() ? rotateImage(image, &result, angle, method) : result.status();
    if (status)
        return result;
    VImage failed;
    failed.setStatus(status);
    return failed;
}

} // namespace

VImage VImage::rotate(double angle, RotateMethod method) const { return rotated(*this, angle, method); }

VImage VImage::rotate(FixedAngle angle, RotateMethod method) const { return rotated(*this, angle, method); }

namespace {

VHistogram updatedHistogram(const VImage& image, VStatus (*calculate)(const VImage&, VHistogram*))
{
    VHistogram result;
    calculate(image, &result); // a failure is logged by the operation; the histogram stays empty
    result.update();
    return result;
}

} // namespace

VHistogram VImage::histogram(int) const
{
    if (!status()) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't create histogram by invalid image."));
        return VHistogram();
    }
    return updatedHistogram(*this, calculateHistogram);
}

VHistogram VImage::histogramBGR() const
{
    if (!status()) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't create histogram by invalid image."));
        return VHistogram();
    }
    return updatedHistogram(*this, calculateHistogramBGR);
}

QList<QVariant> VImage::pixel(long x, long y) const
{
    if (!status()) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't get pixel of invalid image."));
        return {};
    }
    double values[4];
    int count = 4;
    QList<QVariant> result;
    if (getPixel(*this, x, y, values, &count))
        for (int i = 0; i < count; ++i)
            result.append(values[i]);
    return result;
}

void VImage::setPixel(long x, long y, const QList<QVariant>& values)
{
    if (!status()) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't set pixel to the invalid image."));
        return;
    }
    QVector<double> doubles;
    doubles.reserve(values.size());
    for (const QVariant& v : values)
        doubles.append(v.toDouble());
    data(); // a pixel of this handle changes, not of the images sharing it
    VEXA::setPixel(this, x, y, doubles.data(), int(qMin<qsizetype>(doubles.size(), INT32_MAX)));
}

QColor VImage::pixelColor(long x, long y) const
{
    if (!status()) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't get pixel of invalid image."));
        return QColor();
    }
    double values[4];
    int count = 4;
    if (!getPixel(*this, x, y, values, &count) || count < 3)
        return QColor();
    // A colour holds 0..255 per component: anything else (wide or float values, NaN) has no QColor.
    for (int i = 0; i < 3; ++i)
        if (!(values[i] >= 0.0 && values[i] < 256.0))
            return QColor();
    return QColor(int(values[0]), int(values[1]), int(values[2]), 255);
}

void VImage::setPixelColor(long x, long y, const QColor& color)
{
    if (!status()) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't set pixel to the invalid image."));
        return;
    }
    double values[4] = {double(color.red()), double(color.green()), double(color.blue()), double(color.alpha())};
    data();
    VEXA::setPixel(this, x, y, values, 4);
}

VStatus VImage::status() const { return constData()->status(); }
void VImage::setStatus(const VStatus& status) const { constData()->setStatus(status); }

void VImage::checkStatus(const VStatus& status) const
{
    if (!status)
        setStatus(status);
}

VMessageStream& operator<<(VMessageStream& stream, const VImage&) { return stream << "VImage(" << ")"; }
VMessageStream& operator<<(VMessageStream& stream, const VImageHeader&) { return stream << "VImageHeader(" << ")"; }

// The raw byte array and the data-stream operators.

namespace {

// Deflate expands at most about 1032 times; a claim beyond that cannot be backed by the data.
constexpr qint64 maxInflateRatio = 1040;

// Inflates a qCompress'd array (4-byte big-endian length, then a zlib stream) into exactly `size` bytes at
// out. False unless the length field says `size` and the stream yields exactly that many bytes.
bool inflateExactly(const QByteArray& compressed, unsigned char* out, qint64 size)
{
    if (compressed.size() < 4)
        return false;
    const auto* in = reinterpret_cast<const unsigned char*>(compressed.constData());
    const quint32 claimed = quint32(in[0]) << 24 | quint32(in[1]) << 16 | quint32(in[2]) << 8 | in[3];
    if (qint64(claimed) != size)
        return false;
    z_stream zs{};
    if (inflateInit(&zs) != Z_OK)
        return false;
    zs.next_in = const_cast<unsigned char*>(in + 4);
    zs.avail_in = uInt(compressed.size() - 4);
    qint64 written = 0;
    int result = Z_OK;
    while (result == Z_OK) {
        const qint64 chunk = std::min<qint64>(size - written, std::numeric_limits<uInt>::max());
        zs.next_out = out + written;
        zs.avail_out = uInt(chunk);
        result = inflate(&zs, Z_FINISH);
        written += chunk - zs.avail_out;
        if (result == Z_BUF_ERROR && written < size && zs.avail_in > 0)
            result = Z_OK; // the output chunk was full: go on with the next one
        if (written == size && result != Z_STREAM_END) {
            // The buffer is full; the stream must end here and not a byte later.
            unsigned char probe;
            zs.next_out = &probe;
            zs.avail_out = 1;
            result = inflate(&zs, Z_FINISH);
            if (zs.avail_out == 0)
                result = Z_DATA_ERROR;
        }
    }
    inflateEnd(&zs);
    return result == Z_STREAM_END && written == size;
}

struct UnpackError {
    const char* reason;
};

void require(bool condition, const char* reason)
{
    if (!condition)
        throw UnpackError{reason};
}

} // namespace

QByteArray VImage::toByteArray(CompressionLevel level) const
{
    if (!status()) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't serialize invalid image."));
        return QByteArray();
    }
    QByteArray array;
    QBuffer device(&array);
    device.open(QIODevice::WriteOnly);
    QDataStream stream(&device);
    stream.setVersion(QDataStream::Qt_4_8); // Qt 4's layout, whatever later Qt versions change
    const bool empty = isEmpty();
    stream << QByteArray(rawSerializationId) << currentRawSerializationVersion << qint32(empty ? 1 : 0);
    if (!empty) {
        stream << qint32(width()) << qint32(height()) << qint32(format()) << qint32(channelType())
               << qint32(origin()) << qint32(rowsAlignment()) << roi();
        QByteArray compressed;
        if (dataSize() > 0) {
            const int zlibLevel = level >= -1 && level <= 9 ? int(level) : -1;
            compressed = qCompress(rawData(), dataSize(), zlibLevel);
            if (compressed.isEmpty()) {
                errorAt(VEXA_CALL_SITE, Issue::RawPacking) << "Can not allocate enougth memory for qCompress";
                return QByteArray();
            }
        }
        stream << compressed;
    }
    if (stream.status() != QDataStream::Ok) {
        errorAt(VEXA_CALL_SITE, Issue::RawPacking)
            << "Failed to pack data of image: " << "VImage(" << width() << "x" << height() << ", format "
            << int(format()) << ", channel type " << int(channelType()) << ")" << " to byte array. "
            << "Reason: " << device.errorString();
        return QByteArray();
    }
    return array;
}

VImage VImage::fromByteArray(const QByteArray& array)
{
    VImage image;
    QDataStream stream(array);
    stream.setVersion(QDataStream::Qt_4_8);
    try {
        QByteArray id;
        stream >> id;
        require(id == rawSerializationId, "Wrong array Id.");
        qint32 version = 0;
        stream >> version;
        require(stream.status() == QDataStream::Ok, "Truncated array.");
        require(version != 0, "Unknown array version.");
        if (version == rawSerializationVersion2) {
            qint32 empty = 0;
            stream >> empty;
            require(stream.status() == QDataStream::Ok, "Truncated array.");
            if (empty != 0)
                return image;
        }
        qint32 width = 0, height = 0, format = 0, channel = 0, origin = 0, align = 0;
        stream >> width;
        if (width == 0) // an old writer's quirk: the real width follows
            stream >> width;
        QRect roi;
        QByteArray compressed;
        stream >> height >> format >> channel >> origin >> align >> roi >> compressed;
        require(stream.status() == QDataStream::Ok, "Truncated array.");
        require(isValid(Format(format)) && isValid(Channel(channel)), "Unknown format or channel type.");
        require((origin == 0 || origin == 1) && (align == 0 || align == 1), "Unknown origin or rows alignment.");
        require(width >= 0 && height >= 0, "Negative image size.");
        const qint64 size = dataSizeFor(width, height, Format(format), Channel(channel));
        require(size <= imageSizeLimit() && bytesPerLineFor(width, Format(format), Channel(channel)) <= INT32_MAX,
                "Image size over the limit.");
        if (size == 0 || compressed.isEmpty())
            return image; // nothing to hold: an empty image, good status
        require(size <= qint64(compressed.size()) * maxInflateRatio, "Pixel data too short for the image size.");
        VImage result;
        result.create(width, height, Format(format), Channel(channel), Origin(origin), RowsAlign(align));
        require(result.status().isOk() && result.dataSize() == size, "Out of memory.");
        require(inflateExactly(compressed, result.rawData(), size), "Pixel data does not match the image.");
        result.resetHash();
        result.setRoi(roi);
        return result;
    } catch (const UnpackError& e) {
        VMessageStream s = errorAt(VEXA_CALL_SITE, Issue::RawPacking)
                           << "Failed to unpack image from byte array: " << e.reason;
        image.setStatus(VStatus(s));
        return image;
    }
}

QDataStream& operator<<(QDataStream& stream, const VImage& image)
{
    return stream << image.toByteArray(CompressionNone);
}

QDataStream& operator>>(QDataStream& stream, VImage& image)
{
    QByteArray array;
    stream >> array;
    image = VImage::fromByteArray(array);
    return stream;
}

// Image files.

namespace {

// The (format, channel type) that save writes for each pair; Invalid where none exists.
std::pair<Format, Channel> storableForm(Format format, Channel channel)
{
    switch (format) {
    case GrayScale: return {GrayScale, channel == Channel16u ? Channel16u : Channel8u};
    case BGR: case XRGB: case ARGB_Premultiplied: return {format, Channel8u};
    case ARGB: return channel == Channel8u ? std::pair{ARGB, Channel8u} : std::pair{ARGB_Premultiplied, Channel8u};
    case YUV422: return channel == Channel8u ? std::pair{XRGB, Channel8u} : std::pair{Invalid, ChannelInvalid};
    case Invalid: break;
    }
    return {Invalid, ChannelInvalid};
}

// An image of ours whose block a reader can decode the file into directly, for files whose pixels come out
// 32 bits wide (XRGB, ARGB): a large photo then costs one block, not a decoded copy plus ours. Empty for
// other files; they go through a QImage of their own.
VImage blockToDecodeInto(QImage::Format qFormat, QSize size)
{
    Format format = Invalid;
    Channel channel = ChannelInvalid;
    if (!size.isValid() || !representFormat(qFormat, &format, &channel) || format == GrayScale)
        return VImage();
    VImage image;
    image.create(size.width(), size.height(), format, channel, OriginBottomLeft, RowsAlignNone);
    return image.status() ? image : VImage();
}

QImage gray16ToQImage(const VImage& image)
{
    QImage result(image.width(), image.height(), QImage::Format_Grayscale16);
    for (int y = 0; y < image.height() && !result.isNull(); ++y)
        std::memcpy(result.scanLine(y), image.rawData() + y * image.bytesPerLine(), size_t(image.width()) * 2);
    return result;
}

} // namespace

bool VImage::load(const QString& fileName)
{
    const auto fail = [this, &fileName](const CallSite& site, const QString& text, const QString& reason) {
        *this = VImage();
        setStatus(loadingFailure(site, fileName, text, reason));
        return false;
    };
    QImageReader reader(fileName);
    const QSize announced = reader.size();
    if (const QString over = sizeLimitRefusal(announced, ARGB, Channel8u); !over.isEmpty())
        return fail(VEXA_CALL_SITE, QStringLiteral("Failed to read.Out of memory: ") + over, over);
    // Asked before reading (after, it is gone), and as a plain integer: the JPEG plugin answers a damaged
    // header with uninitialised memory, which is no value of QImage::Format.
    QImage::Format (QImageReader::*const query)() const = &QImageReader::imageFormat;
    const int rawFormat = (reader.*reinterpret_cast<int (QImageReader::*)() const>(query))();
    const QImage::Format announcedFormat =
        rawFormat > QImage::Format_Invalid && rawFormat < QImage::NImageFormats ? QImage::Format(rawFormat)
                                                                                : QImage::Format_Invalid;
    VImage block = blockToDecodeInto(announcedFormat, announced);
    QImage qImage;
    if (!block.isEmpty())
        qImage = QImage(block.rawData(), block.width(), block.height(), block.bytesPerLine(), announcedFormat);
    if (!reader.read(&qImage)) {
        return fail(VEXA_CALL_SITE, QStringLiteral("Failed to read.Out of memory: ") + reader.errorString(),
                    reader.errorString());
    }
    // The decoder wrote into the block unless it chose another size or format, which a QImage of its own
    // then carries.
    if (!block.isEmpty() && qImage.constBits() == block.rawData() && qImage.format() == announcedFormat &&
        qImage.size() == announced) {
        block.resetHash();
        *this = block;
        return true;
    }
    const VImage loaded = fromQImage(qImage);
    if (!loaded.status() || loaded.isEmpty())
        return fail(VEXA_CALL_SITE, QStringLiteral("Reason: failed VEXA::fromQImage( qImage )."),
                    QStringLiteral("the decoded picture could not be taken in"));
    *this = loaded;
    return true;
}

bool VImage::save(const QString& fileName) const
{
    if (!status()) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't save invalid image."));
        return false;
    }
    const auto fail = [&fileName](const CallSite& site, const QString& reason) {
        errorAt(site, Issue::Saving) << "Failed to save image to file " << fileName << " " << reason;
        return false;
    };
    const auto [format, channel] = storableForm(this->format(), channelType());
    const VImage storable = isEmpty() || format == Invalid ? VImage() : convertFast(format, channel);
    if (storable.isEmpty())
        return fail(VEXA_CALL_SITE, QStringLiteral("Reason: conversion to nearest storable format failed."));
    // 32-bit pixels go to the writer as they lie in our block; other forms need Qt's own layout.
    const bool asTheyLie = format == XRGB || format == ARGB || format == ARGB_Premultiplied;
    const QImage qImage = channel == Channel16u ? gray16ToQImage(storable)
                          : asTheyLie           ? asQImage(storable)
                                                : toQImage(storable);
    if (qImage.isNull())
        return fail(VEXA_CALL_SITE, QStringLiteral("Reason: conversion to nearest storable format failed."));
    QImageWriter writer(fileName);
    if (!writer.write(qImage))
        return fail(VEXA_CALL_SITE, QStringLiteral("Reason: failed to write to file. ") + writer.errorString());
    return true;
}

bool VImage::canLoad(const QString& fileName) { return QImageReader(fileName).canRead(); }

// Serialization trees.

namespace {

const char* const headerKeys[] = {"width", "height", "format", "channelType", "origin", "rowsAlignment"};

} // namespace

bool VImageHeader::serialize(VAbstractWriter* writer) const
{
    const qint32 values[] = {width, height, format, channelType, origin, rowsAlignment};
    writer->writeAttribute(QStringLiteral("type"), QStringLiteral("VImageHeader"));
    for (int i = 0; i < 6; ++i)
        writer->writeAttribute(QString::fromLatin1(headerKeys[i]), QString::number(values[i]));
    return !writer->hasError();
}

bool VImageHeader::deserialize(VAbstractReader* reader)
{
    if (!reader->isStartElement() || reader->attribute(QStringLiteral("type")) != QLatin1String("VImageHeader"))
        return false;
    qint32 values[6];
    for (int i = 0; i < 6; ++i) {
        bool ok = false;
        values[i] = reader->attribute(QString::fromLatin1(headerKeys[i])).toInt(&ok);
        if (!ok)
            return false;
    }
    *this = VImageHeader{values[0], values[1], Format(values[2]), Channel(values[3]), Origin(values[4]),
                         RowsAlign(values[5])};
    reader->skipCurrentElement();
    reader->readNext();
    return true;
}

bool VImage::serialize(VAbstractWriter* writer) const
{
    const QByteArray raw = toByteArray(CompressionDefault);
    if (raw.isEmpty())
        return false;
    writer->writeAttribute(QStringLiteral("type"), QStringLiteral("VImage"));
    if (!writer->beginElement(QStringLiteral("header")))
        return false;
    const VImageHeader h{width(), height(), format(), channelType(), origin(), rowsAlignment()};
    h.serialize(writer);
    writer->endElement();
    if (!writer->beginElement(QStringLiteral("data")))
        return false;
    writer->writeAttribute(QStringLiteral("value"), QString::fromLatin1(raw.toBase64()));
    writer->endElement();
    return !writer->hasError();
}

bool VImage::deserialize(VAbstractReader* reader)
{
    const auto fail = [](const CallSite& site, const char* reason) {
        errorAt(site, Issue::RawPacking) << "Failed to deserialize image: " << reason;
        return false;
    };
    if (!reader->isStartElement() || reader->attribute(QStringLiteral("type")) != QLatin1String("VImage"))
        return fail(VEXA_CALL_SITE, "not an image element.");
    reader->readNext();
    VImageHeader h;
    bool haveHeader = false;
    QByteArray raw;
    bool haveData = false;
    while (reader->isStartElement()) {
        if (reader->tag() == QLatin1String("header") && !haveHeader) {
            if (!h.deserialize(reader))
                return fail(VEXA_CALL_SITE, "bad header.");
            haveHeader = true;
        } else if (reader->tag() == QLatin1String("data") && !haveData) {
            raw = QByteArray::fromBase64(reader->attribute(QStringLiteral("value")).toLatin1(),
                                         QByteArray::AbortOnBase64DecodingErrors);
            haveData = true;
            reader->skipCurrentElement();
            reader->readNext();
        } else {
            reader->skipCurrentElement();
            reader->readNext();
        }
    }
    if (!reader->isEndElement())
        return fail(VEXA_CALL_SITE, "malformed element.");
    reader->readNext();
    if (!haveHeader || !haveData)
        return fail(VEXA_CALL_SITE, "header or data missing.");
    const VImage image = fromByteArray(raw);
    if (!image.status())
        return false; // fromByteArray has said why
    const bool empty = image.isEmpty();
    const VImageHeader actual{image.width(), image.height(), image.format(), image.channelType(), image.origin(),
                              image.rowsAlignment()};
    if (!empty && !(actual == h))
        return fail(VEXA_CALL_SITE, "header and data disagree.");
    *this = image;
    return true;
}
