#include <vexa/imp/ImageData.h>

#include <vexa/imp/detail/frame.h>

#include <QImageReader>
#include <QObject>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <new>

namespace VEXA {

namespace {

std::atomic<qint64> sizeLimit{qint64(1) << 32};

// Qt's readers allocate their own pictures (16-bit colour, formats decoded aside) under a limit of their
// own, 128 MiB by default: the library's limit is made theirs, so that one figure decides which files
// can be read whatever the path. Set when the library is loaded and whenever the limit changes.
void limitQtReaders(qint64 bytes)
{
    const qint64 mebibytes = (std::max<qint64>(bytes, 0) + (1 << 20) - 1) >> 20;
    QImageReader::setAllocationLimit(int(std::min<qint64>(mebibytes, std::numeric_limits<int>::max())));
}

const bool qtReadersLimited = (limitQtReaders(qint64(1) << 32), true);

QString inBytes(qint64 bytes)
{
    const char* const units[] = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    double value = double(bytes);
    int unit = 0;
    while (value >= 1024 && unit < 6)
        value /= 1024, ++unit;
    return unit == 0 ? QStringLiteral("%1 bytes").arg(bytes)
                     : QStringLiteral("%1 %2").arg(value, 0, 'f', value < 10 ? 1 : 0).arg(QLatin1String(units[unit]));
}

} // namespace

qint64 imageSizeLimit() { return sizeLimit.load(std::memory_order_relaxed); }
void setImageSizeLimit(qint64 bytes)
{
    (void)qtReadersLimited;
    sizeLimit.store(bytes, std::memory_order_relaxed);
    limitQtReaders(bytes);
}

QString overSizeLimit(qint64 width, qint64 height, qint64 bytes, const QString& howToRaise)
{
    return QStringLiteral("the image is %1x%2, %3, over the size limit of %4 (%5)")
        .arg(width)
        .arg(height)
        .arg(inBytes(bytes), inBytes(imageSizeLimit()),
             howToRaise.isEmpty() ? QStringLiteral("setImageSizeLimit raises it") : howToRaise);
}

QString sizeLimitRefusal(QSize size, Format format, Channel channel, const QString& howToRaise)
{
    const qint64 bytes = size.isValid() ? dataSizeFor(size.width(), size.height(), format, channel) : 0;
    return bytes > imageSizeLimit() ? overSizeLimit(size.width(), size.height(), bytes, howToRaise) : QString();
}

qint64 bytesPerLineFor(qint64 width, Format format, Channel channel)
{
    const qint64 bitsPerPixel = qint64(channelsOf(format)) * bitsOf(channel);
    if (width <= 0 || width > std::numeric_limits<qint32>::max())
        return 0;
    return ((bitsPerPixel * width + 31) >> 3) & ~qint64(3);
}

qint64 dataSizeFor(qint64 width, qint64 height, Format format, Channel channel)
{
    if (height <= 0 || height > std::numeric_limits<qint32>::max())
        return 0;
    const qint64 stride = bytesPerLineFor(width, format, channel); // below 2^36
    if (stride > 0 && height > std::numeric_limits<qint64>::max() / stride)
        return std::numeric_limits<qint64>::max(); // beyond any limit; the caller refuses it
    return stride * height;
}

void clearOutside(unsigned char* data, qint32 width, qint32 height, Format format, Channel channel, const Rect& keep)
{
    const qint64 stride = bytesPerLineFor(width, format, channel);
    if (!data || stride == 0 || height <= 0)
        return;
    const qint64 pixel = qint64(channelsOf(format)) * bitsOf(channel) / 8;
    const Rect r = clipRect(keep, width, height); // all zero when nothing of keep is inside
    const qint64 left = r.x * pixel, right = (qint64(r.x) + r.width) * pixel;
    std::memset(data, 0, size_t(r.y * stride));
    if (left > 0 || right < stride)
        for (qint64 y = r.y; y < qint64(r.y) + r.height; ++y) {
            unsigned char* row = data + y * stride;
            std::memset(row, 0, size_t(left));
            std::memset(row + right, 0, size_t(stride - right));
        }
    const qint64 below = qint64(r.y) + r.height;
    std::memset(data + below * stride, 0, size_t((height - below) * stride));
}

ImageData::ImageData(const ImageData& other)
    : width_(other.width_), height_(other.height_), roi_(other.roi_), format_(other.format_),
      channelType_(other.channelType_), origin_(other.origin_), rowsAlignment_(other.rowsAlignment_),
      status_(other.status_)
{
    if (width_ != 0 && height_ != 0)
        copy(other);
}

ImageData& ImageData::operator=(const ImageData& other)
{
    if (this == &other)
        return *this;
    width_ = other.width_;
    height_ = other.height_;
    roi_ = other.roi_;
    format_ = other.format_;
    channelType_ = other.channelType_;
    origin_ = other.origin_;
    rowsAlignment_ = other.rowsAlignment_;
    status_ = other.status_;
    if (width_ != 0 && height_ != 0)
        copy(other);
    else {
        BufferPool::instance().release(std::move(buffer_));
        buffer_ = nullptr;
    }
    return *this;
}

ImageData::~ImageData() { BufferPool::instance().release(std::move(buffer_)); }

void ImageData::copy(const ImageData& other)
{
    allocateData();
    const size_t n = std::min(bufferSize(), other.bufferSize());
    if (n > 0)
        std::memcpy(buffer_->data(), other.buffer_->data(), n);
}

void ImageData::createHeader(long width, long height, Format format, Channel channel, Origin origin,
                             RowsAlign align)
{
    width_ = clampToInt32(width);
    height_ = clampToInt32(height);
    format_ = format;
    channelType_ = channel;
    origin_ = origin;
    rowsAlignment_ = align;
    roi_ = Rect{0, 0, width_, height_};
}

void ImageData::create(long width, long height, Format format, Channel channel, Origin origin, RowsAlign align)
{
    const qint64 bitsPerPixel = qint64(channelsOf(format)) * bitsOf(channel);
    const bool absurd = width < 0 || height < 0 || width > std::numeric_limits<qint32>::max() ||
                        height > std::numeric_limits<qint32>::max() ||
                        (bitsPerPixel * width + 31) / 8 > std::numeric_limits<qint32>::max() ||
                        dataSizeFor(width, height, format, channel) > imageSizeLimit();
    if (absurd) {
        const qint64 requested = qint64((long double)(width) * height * bitsPerPixel / 8);
        *this = ImageData();
        fail(VEXA_CALL_SITE, long(requested));
        return;
    }
    createHeader(width, height, format, channel, origin, align);
    try {
        allocateData();
    } catch (const std::bad_alloc&) {
        const long requested = dataSize();
        *this = ImageData();
        fail(VEXA_CALL_SITE, requested);
    }
}

void ImageData::create(const unsigned char* data, long width, long height, Format format, Channel channel,
                       Origin origin, RowsAlign align)
{
    create(width, height, format, channel, origin, align);
    if (data && bufferSize() > 0 && bufferSize() == size_t(dataSize()))
        std::memcpy(buffer_->data(), data, bufferSize());
    assertValid();
}

void ImageData::fail(const CallSite& site, long requestedBytes)
{
    VMessageStream stream = errorAt(site, Issue::LibraryError)
                            << "Failed to resize image data with " << requestedBytes << " bytes";
    status_ = VStatus(stream);
}

void ImageData::allocateData()
{
    const long size = dataSize();
    bool reused = size > 0 && bufferSize() == size_t(size); // kept: it holds this object's earlier pixels
    if (!reused) {
        BufferPool& pool = BufferPool::instance();
        pool.release(std::move(buffer_));
        buffer_ = nullptr;
        buffer_ = pool.acquire(size_t(size), &reused);
    }
    if (bufferSize() != size_t(size)) {
        errorAt(VEXA_CALL_SITE, Issue::LibraryError) << "Failed to resize image data with " << size << " bytes";
        return;
    }
    if (reused) // its padding may hold pixels of another layout; a new buffer is zero already
        clearOutside(buffer_->data(), width_, height_, format_, channelType_, Rect{0, 0, width_, height_});
}

void ImageData::setData(const unsigned char* data)
{
    assertValid();
    if (!status_) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't set data to the invalid image data"));
        return;
    }
    if (!data) {
        // Issue 1, not 3400: a null source is the caller's slip, not an invalid image.
        errorAt(VEXA_CALL_SITE, Issue::NullData) << QObject::tr("Can't set data to the invalid image data");
        return;
    }
    const size_t n = std::min(size_t(dataSize()), bufferSize());
    if (n > 0)
        std::memmove(buffer_->data(), data, n);
}

void ImageData::assertValid() const
{
    // Stored only when that changes it: readers of one shared image come through here (rawData) at the
    // same moment, and storing the good status it already holds would be a write they race on.
    if (status_ && (!status_.message().isEmpty() || status_.issue() != Issue::None))
        status_ = VStatus::Ok;
}

void ImageData::setRoi(Rect roi)
{
    roi_ = (roi.width == 0 || roi.height == 0) ? Rect{0, 0, width_, height_} : roi;
}

bool ImageData::isEmpty() const
{
    return width_ == 0 || height_ == 0 || format_ == Invalid || channelType_ == ChannelInvalid ||
           origin_ == OriginInvalid || rowsAlignment_ == RowsAlignInvalid || bufferSize() == 0;
}

unsigned char* ImageData::rawData() const
{
    assertValid();
    return buffer_ ? buffer_->data() : nullptr;
}

} // namespace VEXA
