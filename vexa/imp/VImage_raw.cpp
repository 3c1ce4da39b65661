// The raw byte array of an image and the data-stream operators.
#include <vexa/imp/VImage.h>

#include <vexa/imp/frame.h>

#include <QBuffer>
#include <QObject>

#include <zlib.h>

#include <limits>

using namespace VEXA;

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
