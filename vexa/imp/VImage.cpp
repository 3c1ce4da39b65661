#include <vexa/imp/VImage.h>

#include <vexa/gen/gen_copy_image.h>
#include <vexa/gen/gen_image_converters.h>
#include <vexa/imp/frame.h>

#include <QCryptographicHash>
#include <QMutex>
#include <QMutexLocker>
#include <QObject>
#include <QSharedData>

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
    return QRect(r.x, r.y, r.width, r.height);
}

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

VImage VImage::convert(Format format, Channel channel) const
{
    if (!status()) {
        reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't convert invalid image."));
        return VImage();
    }
    VImage result;
    result.create(width(), height(), format, channel, origin(), rowsAlignment());
    result.checkStatus(convertImage(*this, &result));
    if (!result.status())
        return VImage();
    result.setRoi(roi());
    return result;
}

VImage VImage::convertFast(Format format, Channel channel) const
{
    if (channel == ChannelInvalid)
        channel = channelType();
    if (format == this->format() && channel == channelType())
        return *this;
    return convert(format, channel);
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
    const auto component = [](double v) { return int(v); };
    return QColor(component(values[0]), component(values[1]), component(values[2]), 255);
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
