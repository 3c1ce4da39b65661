// The image type of the whole interface: a small handle with value semantics over an ImageData, shared
// copy-on-write with an atomic count, carrying a lazily computed MD5 of its buffer (row padding included).
//
// Copies share one block. Every non-const member that changes pixels, header or roi first detaches: when the
// block is shared it gets a block of its own. Const members never detach, so an operation that writes a
// destination through its const accessors writes the shared buffer, seen by every handle of it. Members
// called on an invalid image (bad status) log a translated message (issue 3400) and return an empty result.
#pragma once

#include <QByteArray>
#include <QColor>
#include <QExplicitlySharedDataPointer>
#include <QList>
#include <QVariant>
#include <QRect>
#include <QSize>

#include <QDataStream>

#include <vlog/VLog.h>
#include <vexa/imp/ImageData.h>
#include <vexa/imp/VHistogram.h>
#include <vexa/vexa_export.h>

class VAbstractReader;
class VAbstractWriter;

struct VEXA_EXPORT VImageHeader {
    qint32 width = 0;
    qint32 height = 0;
    VEXA::Format format = VEXA::Invalid;
    VEXA::Channel channelType = VEXA::ChannelInvalid;
    VEXA::Origin origin = VEXA::OriginInvalid;
    VEXA::RowsAlign rowsAlignment = VEXA::RowsAlignInvalid;

    // Into the element the caller opened: type="VImageHeader" and the attributes width, height, format,
    // channelType, origin and rowsAlignment, as decimal integers. deserialize reads them back (all six must
    // be integers) and steps past the element.
    bool serialize(VAbstractWriter* writer) const;
    bool deserialize(VAbstractReader* reader);

    friend bool operator==(const VImageHeader& a, const VImageHeader& b)
    {
        return a.width == b.width && a.height == b.height && a.format == b.format &&
               a.channelType == b.channelType && a.origin == b.origin && a.rowsAlignment == b.rowsAlignment;
    }
};

class VEXA_EXPORT VImage {
public:
    VImage();
    // An XRGB 8u image, origin 1, rows alignment 0.
    VImage(long width, long height);
    VImage(const VImage& other);
    VImage& operator=(const VImage& other);
    ~VImage();

    // Keeps the current buffer and pixels when the image already has exactly this header.
    void create(long width, long height, VEXA::Format format, VEXA::Channel channel, VEXA::Origin origin,
                VEXA::RowsAlign align);
    void create(const VImageHeader& header);
    // create, then copy the bytes in; data uses rows padded to 4 bytes.
    void set(const unsigned char* data, long width, long height, VEXA::Format format, VEXA::Channel channel,
             VEXA::Origin origin, VEXA::RowsAlign align);
    void set(const unsigned char* data, const VImageHeader& header);
    void clear();

    // The byte size such an image would have; origin plays no part.
    static long dataSize(long width, long height, VEXA::Format format, VEXA::Channel channel, VEXA::RowsAlign align);
    static long dataSize(const VImageHeader& header);

    int width() const;
    int height() const;
    QSize size() const;
    VEXA::Format format() const;
    VEXA::Channel channelType() const;
    VEXA::Origin origin() const;
    VEXA::RowsAlign rowsAlignment() const;
    long bytesPerLine() const;
    long dataSize() const;
    unsigned char* rawData() const;
    bool isEmpty() const;
    // The roi as a QRect; edges beyond the int range (from a roi read off a byte array) are clamped.
    QRect roi() const;
    // The roi as stored: x, y, width, height.
    VEXA::Rect roiRect() const;
    VImageHeader header() const;

    void setRoi(const QRect& roi);
    void resetRoi();

    bool isCompatible(long width, long height, VEXA::Format format, VEXA::Channel channel, VEXA::Origin origin,
                      VEXA::RowsAlign align) const;
    bool isCompatible(const VImage& other) const;
    QByteArray hash() const;
    void resetHash() const;
    // Both empty: equal. One empty: not. Same block: equal. Headers differ: not. Else the hashes decide,
    // so padding bytes take part.
    bool isEqual(const VImage& other) const;

    // A deep copy with its own block; its roi is the whole image.
    VImage copy() const;
    // Makes *dst a copy of this image, pixels (padding aside), header and roi alike. False on failure.
    bool copyTo(VImage* dst) const;
    VImage createCompatible() const;
    VImage createCompatible(VEXA::Format format) const;
    VImage createCompatible(VEXA::Format format, VEXA::Channel channel) const;
    VImage createCompatible(VEXA::Channel channel) const;
    // A width or height of 0 or less gives an empty image (good status, no pixels).
    VImage createCompatible(int width, int height) const;
    // The rectangle is first forced inside the image, so one wholly outside yields a strip one pixel wide
    // or high at the nearest edge, never an error. An empty or invalid image gives an empty result
    // carrying this image's status.
    VImage cropByRect(const QRect& rect) const;

    // This image in another format and channel type, through convertImage; the roi is carried over. An
    // unsupported pair gives an empty image (the failure is logged).
    VImage convert(VEXA::Format format, VEXA::Channel channel) const;
    // As convert, but a channel of -1 keeps the current type, and an image already of the wanted pair is
    // returned as a shared copy without copying pixels.
    VImage convertFast(VEXA::Format format, VEXA::Channel channel = VEXA::ChannelInvalid) const;
    // The same picture in another format and channel type, through convertImageScaled (ranges mapped:
    // 16u 65535 becomes 8u 255); a channel of -1 keeps the current type. As convert otherwise.
    VImage convertScaled(VEXA::Format format, VEXA::Channel channel = VEXA::ChannelInvalid) const;

    // This image turned by angle radians (or a quarter turn) into a new image sized by headerForRotate for
    // the method, through rotateImage. On failure: an empty image whose status carries the reason.
    VImage rotate(double angle, VEXA::RotateMethod method = VEXA::RotateBoundingBox) const;
    VImage rotate(VEXA::FixedAngle angle, VEXA::RotateMethod method = VEXA::RotateBoundingBox) const;

    // The histogram of this image (calculateHistogram, or calculateHistogramBGR), updated; the int is not
    // used. An invalid image gives an empty histogram.
    VHistogram histogram(int unused = 0) const;
    VHistogram histogramBGR() const;

    // Components at (x, y) in R, G, B, A order, as doubles; empty on failure.
    QList<QVariant> pixel(long x, long y) const;
    void setPixel(long x, long y, const QList<QVariant>& values);
    // Red, green and blue of (x, y) truncated to integers, alpha 255; an invalid colour on failure, and
    // for components outside 0..255 (as 16-bit or float images may hold), which no QColor can carry.
    QColor pixelColor(long x, long y) const;
    void setPixelColor(long x, long y, const QColor& color);

    // The raw byte array: "VEXA_IMAGE", version 2, an empty flag, then (for a non-empty image) width,
    // height, format, channel type, origin, rows alignment, the roi as a QRect and the qCompress'd buffer,
    // row padding included; all integers 32-bit big-endian, as Qt 4's QDataStream wrote them.
    static constexpr const char* rawSerializationId = "VEXA_IMAGE";
    static constexpr qint32 rawSerializationVersion1 = 1;
    static constexpr qint32 rawSerializationVersion2 = 2;
    static constexpr qint32 currentRawSerializationVersion = rawSerializationVersion2;
    QByteArray toByteArray(VEXA::CompressionLevel level = VEXA::CompressionDefault) const;
    // Survives any bytes: anything but a well-formed array gives an empty image whose status carries the
    // reason (issue 4000). The pixel data must inflate to exactly the size its header implies, so no array
    // makes the library allocate more than its own header and data justify.
    static VImage fromByteArray(const QByteArray& array);

    // Image files through Qt's image reader and writer (the format follows the file's contents on reading
    // and its suffix on writing). load replaces this image: on failure it is left empty with the reason in
    // its status (issue 600). A file whose header promises more than imageSizeLimit() bytes is refused
    // before its pixels are read; Qt's reader also refuses images over QImageReader::allocationLimit(),
    // which the host sets.
    bool load(const QString& fileName);
    // Writes the image's nearest storable form: GrayScale 8u and 16u, BGR 8u, XRGB 8u, ARGB 8u and
    // ARGB_Premultiplied 8u as they are; GrayScale, BGR, XRGB and ARGB_Premultiplied of other channel types
    // converted to 8u of the same format, ARGB of other channel types to ARGB_Premultiplied 8u, YUV422 8u to
    // XRGB 8u. Conversions are plain numeric ones, without rescaling. YUV422 of other types cannot be saved.
    // Failures: issue 700 (3400 for an invalid image).
    bool save(const QString& fileName) const;
    static bool canLoad(const QString& fileName);

    // Into the element the caller opened: type="VImage", a child "header" (as VImageHeader writes it) and a
    // child "data" whose value attribute is the base64 of toByteArray(). deserialize checks the two against
    // each other and takes the image only when all is well; otherwise it logs the reason (issue 4000),
    // returns false and leaves this image as it was.
    bool serialize(VAbstractWriter* writer) const;
    bool deserialize(VAbstractReader* reader);

    VStatus status() const;
    void setStatus(const VStatus& status) const;
    // Stores the status only when it is a failure: a good result never clears an earlier one.
    void checkStatus(const VStatus& status) const;

private:
    struct Block;
    VEXA::ImageData* data();             // detaches
    const VEXA::ImageData* constData() const;
    void detachForOverwrite();           // a block of its own without copying pixels about to be replaced

    QExplicitlySharedDataPointer<Block> d;
};

// A stream holds one QByteArray: the raw array at compression level 0.
VEXA_EXPORT QDataStream& operator<<(QDataStream& stream, const VImage& image);
VEXA_EXPORT QDataStream& operator>>(QDataStream& stream, VImage& image);

// Log output: the texts carry no field values, on purpose.
VEXA_EXPORT VMessageStream& operator<<(VMessageStream& stream, const VImage& image);
VEXA_EXPORT VMessageStream& operator<<(VMessageStream& stream, const VImageHeader& header);
inline VMessageStream& operator<<(VMessageStream&& stream, const VImage& image) { return stream << image; }
inline VMessageStream& operator<<(VMessageStream&& stream, const VImageHeader& header) { return stream << header; }
