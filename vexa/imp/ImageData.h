// The storage behind every image: header (size, format, channel type, origin, rows alignment), region of
// interest, status and one contiguous buffer from the process-wide pool. Rows are padded to a multiple of 4
// bytes whatever the rows alignment value. An ImageData owns its buffer outright: copying one copies the
// bytes; sharing happens one level up, in VImage.
//
// Absurd dimensions never reach the allocator: a negative width or height, a row longer than 2^31 - 1
// bytes, or a buffer beyond imageSizeLimit() leaves the object empty with a failed status and a logged
// "Failed to resize image data with N bytes" (issue 3200). So does an allocation the system refuses.
#pragma once

#include <QSize>
#include <QtGlobal>

#include <memory>

#include <vlog/VLog.h>
#include <vexa/imp/BufferPool.h>
#include <vexa/imp/formats.h>
#include <vexa/vexa_export.h>

class VImage;

namespace VEXA {

struct CallSite;

struct Rect {
    qint32 x = 0;
    qint32 y = 0;
    qint32 width = 0;
    qint32 height = 0;

    friend bool operator==(const Rect& a, const Rect& b)
    {
        return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
    }
    friend bool operator!=(const Rect& a, const Rect& b) { return !(a == b); }
};

constexpr qint32 clampToInt32(qint64 v)
{
    return v < INT32_MIN ? INT32_MIN : v > INT32_MAX ? INT32_MAX : qint32(v);
}

// The part of r inside a width x height image; empty (zero size) when nothing of r is inside.
constexpr Rect clipRect(const Rect& r, qint32 width, qint32 height)
{
    const qint64 x0 = r.x < 0 ? 0 : r.x, y0 = r.y < 0 ? 0 : r.y;
    const qint64 x1 = qint64(r.x) + r.width < width ? qint64(r.x) + r.width : width;
    const qint64 y1 = qint64(r.y) + r.height < height ? qint64(r.y) + r.height : height;
    if (x1 <= x0 || y1 <= y0)
        return Rect{0, 0, 0, 0};
    return Rect{qint32(x0), qint32(y0), qint32(x1 - x0), qint32(y1 - y0)};
}

// The largest pixel buffer, in bytes, that one image may take (default 4 GiB). Hosts that handle larger
// images raise it; hosts that take files from untrusted sources may lower it.
VEXA_EXPORT qint64 imageSizeLimit();
// Setting it sets Qt's image reader allocation limit (QImageReader::setAllocationLimit, a process-wide
// setting) to the same figure, rounded up to whole MiB, and so does loading the library: one limit decides
// which files can be read, whichever reader decodes them. A host that wants another figure for Qt's own
// readers sets it afterwards.
VEXA_EXPORT void setImageSizeLimit(qint64 bytes);
// Why an image of that size and buffer is refused, naming the limit and how to raise it (a host's own
// way, or setImageSizeLimit).
VEXA_EXPORT QString overSizeLimit(qint64 width, qint64 height, qint64 bytes, const QString& howToRaise = QString());
// Empty when an image of that size and layout fits under the limit (or the size is unknown); otherwise
// why it does not, as overSizeLimit says it.
VEXA_EXPORT QString sizeLimitRefusal(QSize size, Format format, Channel channel, const QString& howToRaise = QString());

// Row stride and buffer size of an image, 0 for negative dimensions or unknown formats and types; a size
// beyond 64 bits comes back as the largest 64-bit value.
VEXA_EXPORT qint64 bytesPerLineFor(qint64 width, Format format, Channel channel);
VEXA_EXPORT qint64 dataSizeFor(qint64 width, qint64 height, Format format, Channel channel);

// Zeroes every byte of a width x height buffer that no pixel of `keep` (clipped to the image) covers: the
// rows above and below it, the pixels left and right of it, and the padding at the end of every row. The
// pixels of `keep` are left as they are; a null buffer or an unknown format is left alone.
VEXA_EXPORT void clearOutside(unsigned char* data, qint32 width, qint32 height, Format format, Channel channel,
                              const Rect& keep);

class VEXA_EXPORT ImageData {
public:
    ImageData() = default;
    ImageData(const ImageData& other);
    ImageData& operator=(const ImageData& other);
    ~ImageData();

    // A new buffer is all zeros. A recycled one keeps the earlier pixels (unspecified content, which the
    // caller overwrites) but has its row padding zeroed: no pixel ever writes padding, so without this an
    // earlier image's bytes would travel on in byte arrays, data streams and hashes.
    void create(long width, long height, Format format, Channel channel, Origin origin, RowsAlign align);
    // As above, then copies dataSize() bytes from data, which must use the same 4-byte-padded stride.
    void create(const unsigned char* data, long width, long height, Format format, Channel channel,
                Origin origin, RowsAlign align);
    // Header and roi only, no memory: for computing sizes.
    void createHeader(long width, long height, Format format, Channel channel, Origin origin, RowsAlign align);

    qint32 width() const { return width_; }
    qint32 height() const { return height_; }
    Format format() const { return format_; }
    Channel channelType() const { return channelType_; }
    Origin origin() const { return origin_; }
    RowsAlign rowsAlignment() const { return rowsAlignment_; }
    Rect roi() const { return roi_; }
    long bytesPerLine() const { return long(bytesPerLineFor(width_, format_, channelType_)); }
    long dataSize() const { return long(dataSizeFor(width_, height_, format_, channelType_)); }

    // Stored as given, without clipping against the image; a zero width or height means the whole image.
    void setRoi(Rect roi);

    bool isEmpty() const;
    // The first byte of the buffer (null when there is none). Writable through a const object: operations
    // write destinations in place, seen by every handle that shares them.
    unsigned char* rawData() const;

    VStatus status() const { return status_; }
    void setStatus(const VStatus& status) const { status_ = status; }

private:
    friend class ::VImage;

    void allocateData();
    void setData(const unsigned char* data);
    void copy(const ImageData& other);
    void assertValid() const;
    void fail(const CallSite& site, long requestedBytes);
    qint32 bitsPerComponent() const { return bitsOf(channelType_); }
    qint32 channels() const { return channelsOf(format_); }
    qint32 bitsPerPixel() const { return channels() * bitsPerComponent(); }
    size_t bufferSize() const { return buffer_ ? buffer_->size() : 0; }

    qint32 width_ = 0;
    qint32 height_ = 0;
    Rect roi_;
    Format format_ = Invalid;
    Channel channelType_ = ChannelInvalid;
    Origin origin_ = OriginInvalid;
    RowsAlign rowsAlignment_ = RowsAlignInvalid;
    mutable VStatus status_;
    SharedBuffer buffer_;
};

} // namespace VEXA
