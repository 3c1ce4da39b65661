/// @file
/// @brief ImageData, the storage behind every image; Rect, row strides and the size limit (group @ref images).
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

/// @addtogroup images
/// @{

/// A rectangle in pixels: the top-left corner (x, y), then width and height. Rois are stored in this form,
/// unclipped; a plain value type.
struct Rect {
    /// Left column.
    qint32 x = 0;
    /// Top row (the first row in memory).
    qint32 y = 0;
    /// Width in pixels; 0 or less holds nothing.
    qint32 width = 0;
    /// Height in rows; 0 or less holds nothing.
    qint32 height = 0;

    /// True when all four values are equal.
    friend bool operator==(const Rect& a, const Rect& b)
    {
        return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
    }
    /// True when any of the four values differs.
    friend bool operator!=(const Rect& a, const Rect& b) { return !(a == b); }
};

/// v clamped to the range of qint32, INT32_MIN to INT32_MAX.
constexpr qint32 clampToInt32(qint64 v)
{
    return v < INT32_MIN ? INT32_MIN : v > INT32_MAX ? INT32_MAX : qint32(v);
}

/// The part of r inside a width x height image (computed in 64 bits, so no edge overflows); the all-zero
/// Rect{0, 0, 0, 0} when nothing of r is inside, a negative width or height included.
constexpr Rect clipRect(const Rect& r, qint32 width, qint32 height)
{
    const qint64 x0 = r.x < 0 ? 0 : r.x, y0 = r.y < 0 ? 0 : r.y;
    const qint64 x1 = qint64(r.x) + r.width < width ? qint64(r.x) + r.width : width;
    const qint64 y1 = qint64(r.y) + r.height < height ? qint64(r.y) + r.height : height;
    if (x1 <= x0 || y1 <= y0)
        return Rect{0, 0, 0, 0};
    return Rect{qint32(x0), qint32(y0), qint32(x1 - x0), qint32(y1 - y0)};
}

/// The largest pixel buffer, in bytes, that one image may take (default 4 GiB, 2^32 bytes), padding
/// included. Hosts that handle larger images raise it; hosts that take files from untrusted sources may
/// lower it.
VEXA_EXPORT qint64 imageSizeLimit();
/// Sets imageSizeLimit() to bytes. Setting it sets Qt's image reader allocation limit
/// (QImageReader::setAllocationLimit, a process-wide setting) to the same figure, rounded up to whole MiB
/// (at most INT_MAX MiB; 0 MiB, which Qt reads as no limit of its own, for 0 or less), and so does loading
/// the library: one limit decides which files can be read, whichever reader decodes them. A host that wants
/// another figure for Qt's own readers sets it afterwards.
VEXA_EXPORT void setImageSizeLimit(qint64 bytes);
/// Why an image of that size and buffer is refused, naming the limit and how to raise it:
/// "the image is WIDTHxHEIGHT, SIZE, over the size limit of LIMIT (HOW)", sizes in bytes below 1 KiB and in
/// KiB, MiB, GiB and up otherwise (one decimal below 10), HOW being howToRaise (a host's own way) or, when
/// empty, "setImageSizeLimit raises it".
VEXA_EXPORT QString overSizeLimit(qint64 width, qint64 height, qint64 bytes, const QString& howToRaise = QString());
/// Empty when an image of that size and layout (dataSizeFor()) fits under imageSizeLimit(), or the size is
/// unknown (an invalid QSize); otherwise why it does not, as overSizeLimit() says it.
VEXA_EXPORT QString sizeLimitRefusal(QSize size, Format format, Channel channel, const QString& howToRaise = QString());

/// The row stride of an image: width times the bits of a pixel, rounded up to a multiple of 32 bits, in
/// bytes. 0 for a width of 0 or less or above INT32_MAX, and for unknown formats and types.
VEXA_EXPORT qint64 bytesPerLineFor(qint64 width, Format format, Channel channel);
/// The buffer size of an image: bytesPerLineFor() times height. 0 for a height of 0 or less or above
/// INT32_MAX and wherever the stride is 0; a size beyond 64 bits comes back as the largest 64-bit value,
/// which no limit lets through.
VEXA_EXPORT qint64 dataSizeFor(qint64 width, qint64 height, Format format, Channel channel);

/// Zeroes every byte of a width x height buffer that no pixel of `keep` (clipped to the image) covers: the
/// rows above and below it, the pixels left and right of it, and the padding at the end of every row. The
/// pixels of `keep` are left as they are, so a keep of the whole image zeroes the padding alone and one with
/// nothing inside zeroes everything; a null buffer or an unknown format is left alone. The buffer must hold
/// dataSizeFor() bytes.
VEXA_EXPORT void clearOutside(unsigned char* data, qint32 width, qint32 height, Format format, Channel channel,
                              const Rect& keep);

/// The storage behind one VImage block: header, roi, status and a pool buffer owned outright. Copying
/// copies the bytes. Callers normally go through VImage, which holds one of these per block and shares it;
/// the group description gives the size rules and failures.
class VEXA_EXPORT ImageData {
public:
    /// An empty object with a good status: no buffer, width and height 0, every header field invalid.
    ImageData() = default;
    /// A copy of other: header, roi, status, and (when width and height are not 0) a buffer of its own from
    /// the pool holding other's whole buffer, padding included.
    ImageData(const ImageData& other);
    /// As the copy constructor; without pixels to copy the old buffer goes back to the pool.
    ImageData& operator=(const ImageData& other);
    /// Gives the buffer back to the pool (BufferPool::release()).
    ~ImageData();

    /// Sets the header, the roi to the whole image, and a buffer of dataSize() bytes: the current one when
    /// it already has that size, otherwise one from the pool (the old one going back to it). A new buffer
    /// is all zeros. A recycled or kept one keeps the earlier pixels (unspecified content, which the caller
    /// overwrites) but has its row padding zeroed: no pixel ever writes padding, so without this an earlier
    /// image's bytes would travel on in byte arrays, data streams and hashes. The status is left as it was.
    /// Absurd sizes and refused allocations fail as the group description says, leaving the object empty.
    void create(long width, long height, Format format, Channel channel, Origin origin, RowsAlign align);
    /// As above, then copies dataSize() bytes from data, which must use the same 4-byte-padded stride; a
    /// null data copies nothing.
    void create(const unsigned char* data, long width, long height, Format format, Channel channel,
                Origin origin, RowsAlign align);
    /// Header and roi only (width and height clamped to 32 bits), no memory: for computing sizes. A buffer
    /// the object already has is left as it is.
    void createHeader(long width, long height, Format format, Channel channel, Origin origin, RowsAlign align);

    /// Width in pixels.
    qint32 width() const { return width_; }
    /// Height in pixels (rows).
    qint32 height() const { return height_; }
    /// The pixel layout.
    Format format() const { return format_; }
    /// The component type.
    Channel channelType() const { return channelType_; }
    /// The origin label.
    Origin origin() const { return origin_; }
    /// The stored rows alignment (rows are padded to 4 bytes whatever it says).
    RowsAlign rowsAlignment() const { return rowsAlignment_; }
    /// The roi as stored, unclipped.
    Rect roi() const { return roi_; }
    /// The row stride, bytesPerLineFor() of the header.
    long bytesPerLine() const { return long(bytesPerLineFor(width_, format_, channelType_)); }
    /// The buffer size the header implies, dataSizeFor() of the header.
    long dataSize() const { return long(dataSizeFor(width_, height_, format_, channelType_)); }

    /// Stored as given, without clipping against the image; a zero width or height means the whole image.
    void setRoi(Rect roi);

    /// True when width or height is 0, any header field is invalid, or there is no buffer.
    bool isEmpty() const;
    /// The first byte of the buffer (null when there is none). Writable through a const object: operations
    /// write destinations in place, seen by every handle that shares them.
    unsigned char* rawData() const;

    /// The status: good, or the failure that left the object invalid.
    VStatus status() const { return status_; }
    /// Stores status (a mutable field, so a const object takes it too).
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

/// @}

} // namespace VEXA
