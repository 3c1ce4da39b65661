/// @file
/// @brief VImage, the image handle of the whole interface, and VImageHeader (group @ref images).
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

/// @addtogroup images
/// **Images.** VImage is the image type of the whole interface: a small handle with value semantics over a
/// VEXA::ImageData, shared copy-on-write with an atomic count, carrying a lazily computed MD5 of its buffer
/// (row padding included). Its header (VImageHeader) is a width, a height, a format (one of six pixel
/// layouts, VEXA::Format), a channel type (one of six component types, VEXA::Channel), an origin and a rows
/// alignment; beside it the image holds a region of interest and a status.
///
/// **Pixel types:** every format with every channel type (36 pairs) can be created, copied, hashed,
/// serialized and written to a byte array; which pairs an operation takes is in its own documentation. An
/// image's format and channel type are independent choices, described by two tables
/// (VEXA::formatInfo(), VEXA::channelInfo(), or their allocation-free twins VEXA::channelsOf() and
/// VEXA::bitsOf()) which every size computation and the OpenCV bridge read; nothing else hard-codes them.
/// Unknown values (from a damaged byte array, say) yield the Invalid row: zero components and zero bits,
/// never an error. Rows are padded to a multiple of 4 bytes whatever the rows alignment says
/// (VEXA::bytesPerLineFor()); VImage::create() zeroes the padding and no operation writes it (set() and
/// writes through rawData() may), and it takes part in the hash and the byte array. The origin is a label
/// that travels with the image: no member reorders rows by it, and row 0 is always the first row in memory.
///
/// **Pixel structures:** VEXA::PixelGray, VEXA::PixelBGR, VEXA::PixelXRGB, VEXA::PixelARGB,
/// VEXA::PixelARGBP and VEXA::PixelYUV422, each over one of the six component types of VEXA::ComponentOf
/// (36 structures), lay out one pixel with its members in memory order and no padding, so that a row of an
/// image of the matching pair is an array of them. PixelTraits (see VEXA_PIXEL_TRAITS) tells a structure's
/// format, component and channel type.
///
/// **Regions of interest:** the roi is stored as given, without clipping (VEXA::ImageData::setRoi()); a
/// zero width or height means the whole image. Operations clip it to the image before use, so a roi partly
/// outside is cut to its inside part and one wholly outside leaves nothing to process. Creating an image
/// sets the roi to the whole image.
///
/// **Sharing:** copies share one block. Every non-const member that changes pixels, header or roi first
/// detaches: when the block is shared it gets a block of its own. Const members never detach, so an
/// operation that writes a destination through its const accessors (VImage::rawData()) writes the shared buffer,
/// seen by every handle of it. The status is part of the block: VImage::setStatus() on one handle sets it for
/// every handle sharing the block.
///
/// **Storage:** VEXA::ImageData is the storage behind every image: header, region of interest, status and
/// one contiguous buffer from the process-wide pool. It owns its buffer outright: copying one copies the
/// bytes; sharing happens one level up, in VImage. Absurd dimensions never reach the allocator: a negative
/// width or height, a row longer than 2^31 - 1 bytes, or a buffer beyond VEXA::imageSizeLimit() leaves the
/// object empty with a failed status and a logged "Failed to resize image data with N bytes" (issue 3200,
/// N the bytes asked for). So does an allocation the system refuses. The same limit bounds what
/// VImage::fromByteArray() and VImage::load() accept.
///
/// **Buffer pool:** image buffers come from one process-wide pool (VEXA::BufferPool::instance()), so that
/// images of recurring sizes (video frames, pyramid levels, the temporaries of operations) cost no
/// allocator call and no zero fill. Reuse needs an exact byte-count match and hands the buffer over with
/// its old contents (ImageData zeroes its row padding). Idle buffers are bounded by
/// VEXA::BufferPool::limit bytes: the oldest go first, and the check runs before a returned buffer is
/// counted, so the pool may exceed the limit by at most one buffer. Buffers larger than the limit are never
/// kept. Images use the pool on their own; callers need it only to watch or empty it.
///
/// **Rasters:** the library's kernels see images through typed, non-owning views, VEXA::RasterT over a
/// pixel structure, which code of one's own may use the same way (`<vexa/imp/raster.h>`). A raster copies
/// six values out of its image (buffer address, width, height, row stride, roi, origin); it neither keeps
/// the image alive nor detaches it, so a raster over a destination writes the buffer that every handle of
/// it shares, and the image's hash must then be reset (VImage::resetHash()). The roi is clipped to the
/// image there, once: a roi reaching outside the image (rois are stored unclipped) never leads a kernel
/// outside the buffer, and one wholly outside leaves an empty roi with nothing to process. Nothing checks
/// that the pixel structure matches the image's format and channel type: the caller picks it.
///
/// **Progress and cancellation:** VImage members that call an operation (copyTo(), cropByRect(), convert(),
/// convertScaled(), rotate(), histogram(), the pixel members) run it as a direct call would, under the
/// calling thread's current VProgress; a cancelled operation fails with "Operation cancelled" and the member
/// returns its failure result. Nothing else here reports progress or checks for cancellation.
///
/// **Failures:** VImage members called on an invalid image (failed status) log a translated message (issue
/// 3400, Issue::InvalidObject) such as "Can't copy invalid image." and return an empty result; the texts are
/// given with each member. Members that call an operation leave its failure logged by the operation.
/// VEXA::PixelReader throws VEXA::dip_exception ("Pixel(). Bad RasterT." or "Pixel(). Bad pixel
/// position."), which an operation's frame turns into a failed status "Reason: " followed by the text.
///
/// **Threads:** the free functions are reentrant; the size limit may be read and set from any thread (an
/// atomic value), and so may the buffer pool be used (one lock, never held while memory is allocated or
/// freed). VImage's share count is atomic, so handles of one block may be copied, assigned and destroyed
/// on different threads. Const members (the hash included, which is computed under a lock) may be called
/// on one image from several threads at once, as long as no thread writes its pixels or status meanwhile;
/// setStatus(), checkStatus(), writes through rawData() or a raster, and operations writing into the image
/// change the shared block and need that block to themselves. A handle object must not be changed by one
/// thread while another uses it. ImageData has no lock of its own: a const one may be read from several
/// threads at once, and anything that changes it, setStatus() included, needs it to itself.
/// @{

/// The six values that describe an image's layout: a plain value type, compared field by field.
/// VImage::header() gives an image's header and VImage::create(const VImageHeader&) makes one from it.
struct VEXA_EXPORT VImageHeader {
    /// Width in pixels.
    qint32 width = 0;
    /// Height in pixels (rows).
    qint32 height = 0;
    /// Which components a pixel has, in which memory order.
    VEXA::Format format = VEXA::Invalid;
    /// The numeric type of one component.
    VEXA::Channel channelType = VEXA::ChannelInvalid;
    /// Where row 0 lies: a label (see VEXA::Origin).
    VEXA::Origin origin = VEXA::OriginInvalid;
    /// Stored, copied and compared; rows are padded to 4 bytes whatever it says.
    VEXA::RowsAlign rowsAlignment = VEXA::RowsAlignInvalid;

    /// Writes into the element the caller opened: type="VImageHeader" and the attributes width, height,
    /// format, channelType, origin and rowsAlignment, as decimal integers. True unless the writer reports
    /// an error.
    bool serialize(VAbstractWriter* writer) const;
    /// Reads back what serialize() wrote, from the start element the reader is on: false, with this header
    /// and the reader left as they were, unless the element's type is "VImageHeader" and all six attributes
    /// are integers (their values are not checked). On success the header takes them and the reader steps
    /// past the element onto the next start or end element.
    bool deserialize(VAbstractReader* reader);

    /// True when all six fields are equal.
    friend bool operator==(const VImageHeader& a, const VImageHeader& b)
    {
        return a.width == b.width && a.height == b.height && a.format == b.format &&
               a.channelType == b.channelType && a.origin == b.origin && a.rowsAlignment == b.rowsAlignment;
    }
};

/// The image handle: value semantics over a shared, copy-on-write block holding a VEXA::ImageData (header,
/// roi, status, pixel buffer) and its cached hash. Copying a VImage copies no pixels; copy() does. See the
/// group description for sharing, failures and threads.
class VEXA_EXPORT VImage {
public:
    /// An empty image with a good status: no buffer, width and height 0, every header field invalid.
    VImage();
    /// An XRGB 8u image of width x height, origin 1 (VEXA::OriginBottomLeft), rows alignment 0
    /// (VEXA::RowsAlignNone); its pixels are arbitrary (create() says why). Absurd sizes fail as create().
    VImage(long width, long height);
    /// Shares other's block: no pixels are copied.
    VImage(const VImage& other);
    /// Shares other's block, letting go of this handle's own.
    VImage& operator=(const VImage& other);
    /// Lets go of the block; the last handle of a block gives its buffer back to the pool (VEXA::BufferPool).
    ~VImage();

    /// Gives the image this header. Keeps the current buffer, pixels, roi and hash when the image already has
    /// exactly this header (isCompatible()). Otherwise the image gets a block of its own, without copying the
    /// old pixels, through VEXA::ImageData::create(): the roi becomes the whole image and the pixels are
    /// zeros in a newly allocated buffer and arbitrary in one recycled from the pool (or kept from this
    /// image when the byte size is unchanged), row padding always zero. The status is kept as it was: a
    /// failed image stays failed (clear() gives a fresh one). A negative size, a row longer than 2^31 - 1
    /// bytes or a buffer over VEXA::imageSizeLimit() leaves the image empty with a failed status, "Failed to
    /// resize image data with N bytes" (issue 3200), as does an allocation the system refuses. A width or
    /// height of 0 gives an empty image with this header.
    void create(long width, long height, VEXA::Format format, VEXA::Channel channel, VEXA::Origin origin,
                VEXA::RowsAlign align);
    /// create() with the header's six values.
    void create(const VImageHeader& header);
    /// create(), then copies dataSize() bytes from data, which uses rows padded to 4 bytes (bytesPerLine()),
    /// padding included; resets the hash. A null data pointer leaves the bytes as create() left them and logs
    /// "Can't set data to the invalid image data" (issue 1); so does a failed image, with issue 3400.
    void set(const unsigned char* data, long width, long height, VEXA::Format format, VEXA::Channel channel,
             VEXA::Origin origin, VEXA::RowsAlign align);
    /// set() with the header's six values.
    void set(const unsigned char* data, const VImageHeader& header);
    /// Makes this handle a new empty image with a good status, as VImage(); other handles keep the old block.
    void clear();

    /// The byte size such an image would have: bytesPerLine (rows padded to 4 bytes) times height, 0 for
    /// a negative size or an unknown format or type (as VEXA::dataSizeFor()). The origin plays no part,
    /// and neither does align.
    static long dataSize(long width, long height, VEXA::Format format, VEXA::Channel channel, VEXA::RowsAlign align);
    /// dataSize() of the header's values.
    static long dataSize(const VImageHeader& header);

    /// Width in pixels; 0 for an empty image made by VImage().
    int width() const;
    /// Height in pixels (rows).
    int height() const;
    /// width() by height().
    QSize size() const;
    /// The pixel layout; VEXA::Invalid for an image never created.
    VEXA::Format format() const;
    /// The component type; VEXA::ChannelInvalid for an image never created.
    VEXA::Channel channelType() const;
    /// The origin label (see VEXA::Origin).
    VEXA::Origin origin() const;
    /// The stored rows alignment; rows are padded to 4 bytes whatever it says.
    VEXA::RowsAlign rowsAlignment() const;
    /// Bytes from one row to the next: width times the pixel size, rounded up to a multiple of 4.
    long bytesPerLine() const;
    /// Bytes of the whole buffer: bytesPerLine() times height().
    long dataSize() const;
    /// The first byte of row 0 (null when there is no buffer). Writable through a const image, without
    /// detaching: writes reach every handle that shares the block, and do not reset the hash (call
    /// resetHash() after writing).
    unsigned char* rawData() const;
    /// True when the image has no pixels: width or height 0, any header field invalid, or no buffer. The
    /// status plays no part.
    bool isEmpty() const;
    /// The roi as a QRect (left, top, right, bottom inclusive); edges beyond the int range (from a roi read
    /// off a byte array) are clamped.
    QRect roi() const;
    /// The roi as stored: x, y, width, height, unclipped.
    VEXA::Rect roiRect() const;
    /// The image's six header values. On an invalid image it logs "Can't make header of invalid image."
    /// (issue 3400) and still returns them.
    VImageHeader header() const;

    /// Sets the region of interest (detaching). It is stored as given, not clipped to the image: operations
    /// clip it when they use it. A rectangle of zero width or height (a null QRect) means the whole image; one
    /// of negative size is kept and leaves nothing to process. The hash is kept: the roi is no part of it.
    void setRoi(const QRect& roi);
    /// Sets the roi to the whole image (detaching).
    void resetRoi();

    /// True when the image has exactly this header (all six values); pixels, roi and status play no part.
    bool isCompatible(long width, long height, VEXA::Format format, VEXA::Channel channel, VEXA::Origin origin,
                      VEXA::RowsAlign align) const;
    /// True when both images have the same header (all six values).
    bool isCompatible(const VImage& other) const;
    /// The MD5 digest (16 bytes) of the whole buffer, row padding included; the roi plays no part, and an
    /// image without a buffer hashes as zero bytes. Computed on first request and cached in the block until
    /// resetHash(); every member and operation that writes the image resets it. On an invalid image: an empty
    /// array and the logged "Can't make hash of invalid image." (issue 3400). Safe to call from several
    /// threads at once.
    QByteArray hash() const;
    /// Drops the cached hash, so that hash() computes it afresh: needed after writing pixels through
    /// rawData().
    void resetHash() const;
    /// Both empty: equal. One empty: not. Same block: equal. Headers differ (isCompatible()): not. Else the
    /// hashes decide, so padding bytes take part and the roi does not.
    bool isEqual(const VImage& other) const;

    /// A deep copy with its own block: the same header and the whole buffer (padding included), a good
    /// status, and a roi of the whole image. On an invalid image: an empty image and the logged "Can't copy
    /// invalid image." (issue 3400).
    VImage copy() const;
    /// Makes *dst a copy of this image, pixels (padding aside), header and roi alike: dst->create(header())
    /// and then VEXA::copyImageUsingRois() over the whole image. A *dst that already has this header keeps
    /// its buffer and is written in place, like any destination, so handles sharing its block see the copy.
    /// False for a null dst, when the copy fails (a failed *dst, say; logged by the operation), and for an
    /// invalid image; a dst that is this image gives its status.
    bool copyTo(VImage* dst) const;
    /// A new image with this image's header and arbitrary pixels (as create()), roi the whole image. On an
    /// invalid image: an empty image and the logged "Can't create compatible with invalid image." (issue 3400).
    VImage createCompatible() const;
    /// As createCompatible(), in another format.
    VImage createCompatible(VEXA::Format format) const;
    /// As createCompatible(), in another format and channel type.
    VImage createCompatible(VEXA::Format format, VEXA::Channel channel) const;
    /// As createCompatible(), in another channel type.
    VImage createCompatible(VEXA::Channel channel) const;
    /// As createCompatible(), of another size. A width or height of 0 or less gives an empty image (good
    /// status, no pixels).
    VImage createCompatible(int width, int height) const;
    /// A new image holding the pixels of rect (this image's roi plays no part), with this image's format,
    /// channel type, origin and rows alignment, through VEXA::copyImageUsingRois(). The rectangle is first
    /// forced inside the image, so one wholly outside yields a strip one pixel wide or high at the nearest
    /// edge, never an error. An empty or invalid image gives an empty result carrying this image's status; a
    /// failed copy leaves its status in the result.
    VImage cropByRect(const QRect& rect) const;

    /// This image in another format and channel type, through VEXA::convertImage() (plain numeric
    /// conversion, no rescaling: see @ref pairs_image_converters for the pairs); the whole image is converted
    /// and the roi is carried over. An unsupported pair gives an empty image with a good status (the failure
    /// is logged by convertImage()). On an invalid image: an empty image and the logged "Can't convert invalid
    /// image." (issue 3400). The conversion leaves the X of XRGB as it finds it: a new XRGB image starts with X 255,
    /// narrowed to the type as components are (-1 in 8s), the value plain conversion gives a missing alpha.
    VImage convert(VEXA::Format format, VEXA::Channel channel) const;
    /// As convert(), but a channel of -1 (VEXA::ChannelInvalid) keeps the current type, and an image already
    /// of the wanted pair is returned as a shared copy (status included) without copying pixels.
    VImage convertFast(VEXA::Format format, VEXA::Channel channel = VEXA::ChannelInvalid) const;
    /// The same picture in another format and channel type, through VEXA::convertImageScaled() (ranges
    /// mapped: 16u 65535 becomes 8u 255; pairs in @ref pairs_scaled_converters); a channel of -1 keeps the
    /// current type. Always a new image, even for the same pair. As convert() otherwise.
    /// A new XRGB image has X at the type's full scale (opaque), as a missing alpha gets.
    VImage convertScaled(VEXA::Format format, VEXA::Channel channel = VEXA::ChannelInvalid) const;

    /// This image turned by angle radians, counter-clockwise as displayed, into a new image whose header
    /// VEXA::headerForRotate() gives for the method (RotateBoundingBox: the bounding box of the turned image;
    /// RotateKeepSize: this image's size, corners cut off), through VEXA::rotateImage(); uncovered pixels are
    /// 0. On failure: an empty image whose status carries the reason. On an invalid image: an empty image with
    /// a good status and the logged "Can't rotate invalid image." (issue 3400).
    VImage rotate(double angle, VEXA::RotateMethod method = VEXA::RotateBoundingBox) const;
    /// As rotate(double, VEXA::RotateMethod), by an exact quarter turn (VEXA::FixedAngle); the quarter turns
    /// swap width and height.
    VImage rotate(VEXA::FixedAngle angle, VEXA::RotateMethod method = VEXA::RotateBoundingBox) const;

    /// The histogram of this image, counted by VEXA::calculateHistogram() and then updated
    /// (VHistogram::update()); the int is not used. A failed count is logged by the operation and gives an
    /// empty histogram. On an invalid image: an empty histogram and the logged "Can't create histogram by
    /// invalid image." (issue 3400).
    VHistogram histogram(int unused = 0) const;
    /// As histogram(), counted by VEXA::calculateHistogramBGR() (red, green and blue only).
    VHistogram histogramBGR() const;

    /// The components of the pixel at (x, y), through VEXA::getPixel(), as doubles in R, G, B, A order:
    /// GrayScale one (the gray value), BGR and XRGB three (the X byte is not read), ARGB and
    /// ARGB_Premultiplied four (as stored), YUV422 two (luma, then chroma). x and y count from the first
    /// pixel in memory; roi and origin play no part. Empty on failure, logged: a position outside the image
    /// ("Reason: Pixel position is outside the image"), an empty image. On an invalid image: the logged
    /// "Can't get pixel of invalid image." (issue 3400).
    QList<QVariant> pixel(long x, long y) const;
    /// Sets the pixel at (x, y) from values in the order pixel() gives them, through VEXA::setPixel(); this
    /// handle detaches first, so only its own pixels change. Each value is read as a double (QVariant::toDouble,
    /// 0 for what is no number) and stored by truncation toward zero and two's-complement narrowing (floats:
    /// nearest float). Values beyond the format's count are ignored; fewer fail ("Reason: Not enouth data for
    /// setting pixel value"), and so does a position outside the image, both logged, the image unchanged. On
    /// an invalid image: the logged "Can't set pixel to the invalid image." (issue 3400).
    void setPixel(long x, long y, const QList<QVariant>& values);
    /// Red, green and blue of (x, y) (as pixel() reads them) truncated to integers, alpha 255 (an ARGB
    /// image's alpha is not read); an invalid colour on failure, for GrayScale and YUV422 images (fewer than
    /// three components), and for components outside 0..255 (as 16-bit or float images may hold), which no
    /// QColor can carry. Invalid images as pixel().
    QColor pixelColor(long x, long y) const;
    /// setPixel() with the colour's red, green, blue and alpha (0..255 each): ARGB and ARGB_Premultiplied take
    /// all four as given (nothing is premultiplied), BGR and XRGB the first three, GrayScale takes red as its
    /// gray value, YUV422 red as luma and green as chroma. Failures as setPixel().
    void setPixelColor(long x, long y, const QColor& color);

    /// The identifier that opens every raw byte array, "VEXA_IMAGE".
    static constexpr const char* rawSerializationId = "VEXA_IMAGE";
    /// The first layout: the image fields follow the version directly, with no empty flag.
    static constexpr qint32 rawSerializationVersion1 = 1;
    /// The layout toByteArray() writes, with the empty flag after the version.
    static constexpr qint32 rawSerializationVersion2 = 2;
    /// The version toByteArray() writes.
    static constexpr qint32 currentRawSerializationVersion = rawSerializationVersion2;
    /// The raw byte array: "VEXA_IMAGE" (as a QByteArray), version 2, an empty flag (1 for an empty image),
    /// then, for a non-empty image, width, height, format, channel type, origin, rows alignment, the roi as a
    /// QRect and the buffer, row padding included, qCompress'd at the given zlib level (a level outside -1..9
    /// counts as -1); all integers 32-bit big-endian, as Qt 4's QDataStream wrote them. An empty array on
    /// failure: an invalid image (logged "Can't serialize invalid image.", issue 3400), compression without
    /// memory ("Can not allocate enougth memory for qCompress") or a failed write ("Failed to pack data of
    /// image: ..."), the last two with issue 4000.
    QByteArray toByteArray(VEXA::CompressionLevel level = VEXA::CompressionDefault) const;
    /// The image of a raw byte array (version 2, or version 1 for any other non-zero version number), its
    /// roi restored as stored. An array marked empty, or a well-formed one of zero size or without pixel data,
    /// gives an empty image with a good status. Survives any bytes: anything but a well-formed array gives an
    /// empty image whose status carries the logged "Failed to unpack image from byte array: " and the reason
    /// (issue 4000): "Wrong array Id.", "Truncated array.", "Unknown array version.", "Unknown format or
    /// channel type.", "Unknown origin or rows alignment.", "Negative image size.", "Image size over the
    /// limit." (VEXA::imageSizeLimit(), or a row over 2^31 - 1 bytes), "Pixel data too short for the image
    /// size.", "Out of memory." or "Pixel data does not match the image.". The pixel data must inflate to
    /// exactly the size its header implies, so no array makes the library allocate more than its own header
    /// and data justify.
    static VImage fromByteArray(const QByteArray& array);

    /// Reads an image file through Qt's image reader (the format follows the file's contents), replacing
    /// this handle's image (other handles keep theirs). Gray files give GrayScale 8u (16-bit gray: 16u), files
    /// Qt decodes as RGB32, ARGB32 or ARGB32_Premultiplied give XRGB, ARGB or ARGB_Premultiplied 8u, others
    /// are first converted by Qt to ARGB32 (with alpha) or RGB32 (as VEXA::fromQImage()); origin 1, rows
    /// alignment 0, roi the whole image, row 0 the top of the picture. On failure the image is left empty
    /// with the reason in its status, logged "Failed to load image from file NAME " and then "Failed to
    /// read.Out of memory: " with the size refusal or the reader's error text, or "Reason: failed
    /// VEXA::fromQImage( qImage )." (issue 600). A file whose announced size would take more than
    /// VEXA::imageSizeLimit() bytes as ARGB 8u is refused before its pixels are read; Qt's reader also
    /// refuses images over QImageReader::allocationLimit(), which VEXA::setImageSizeLimit() sets.
    bool load(const QString& fileName);
    /// Writes the whole image (the roi plays no part) through Qt's image writer, the file format following
    /// the name's suffix, in the image's nearest storable form: GrayScale 8u and 16u, BGR 8u, XRGB 8u, ARGB 8u
    /// and ARGB_Premultiplied 8u as they are; GrayScale, BGR, XRGB and ARGB_Premultiplied of other channel
    /// types converted to 8u of the same format, ARGB of other channel types to ARGB_Premultiplied 8u, YUV422
    /// 8u to XRGB 8u. Conversions are plain numeric ones as convertImage() makes them, without rescaling
    /// (convertScaled() first maps the ranges instead). YUV422 of other types cannot be saved. Failures, logged
    /// "Failed to save image to file NAME " and a reason (issue 700): "Reason: conversion to nearest storable
    /// format failed." (an empty image or YUV422 beyond 8u among them) or "Reason: failed to write to file. "
    /// with the writer's error text. An invalid image logs "Can't save invalid image." (issue 3400).
    bool save(const QString& fileName) const;
    /// True when Qt's image reader recognises the file's contents (QImageReader::canRead()); the size limit
    /// is not checked.
    static bool canLoad(const QString& fileName);

    /// Writes into the element the caller opened: type="VImage", a child "header" (as VImageHeader writes
    /// it) and a child "data" whose value attribute is the base64 of toByteArray(). False, with nothing
    /// written, when toByteArray() fails (an invalid image), and when the writer reports an error.
    bool serialize(VAbstractWriter* writer) const;
    /// Reads back what serialize() wrote, from the start element the reader is on. The first "header" and
    /// "data" children count, other children are skipped; the two are checked against each other (an empty
    /// image's header is not checked) and the image is taken only when all is well, the reader then past the
    /// element's end. Otherwise it logs "Failed to deserialize image: " and the reason (issue 4000: "not an
    /// image element.", "bad header.", "malformed element.", "header or data missing.", "header and data
    /// disagree.", or fromByteArray()'s own failure), returns false and leaves this image as it was.
    bool deserialize(VAbstractReader* reader);

    /// The status of the block: good, or the failure that made the image invalid.
    VStatus status() const;
    /// Stores status in the block, seen by every handle that shares it (no detach).
    void setStatus(const VStatus& status) const;
    /// Stores the status only when it is a failure: a good result never clears an earlier one.
    void checkStatus(const VStatus& status) const;

private:
    struct Block;
    VEXA::ImageData* data();             // detaches
    const VEXA::ImageData* constData() const;
    void detachForOverwrite();           // a block of its own without copying pixels about to be replaced

    QExplicitlySharedDataPointer<Block> d;
};

/// Writes one QByteArray: the raw array (VImage::toByteArray()) at compression level 0. An invalid image
/// writes an empty array.
VEXA_EXPORT QDataStream& operator<<(QDataStream& stream, const VImage& image);
/// Reads one QByteArray and makes image VImage::fromByteArray() of it: a bad array leaves an empty image
/// carrying the reason, while the stream's own status only reflects reading the QByteArray.
VEXA_EXPORT QDataStream& operator>>(QDataStream& stream, VImage& image);

/// Log output: writes "VImage()". The texts carry no field values, on purpose.
VEXA_EXPORT VMessageStream& operator<<(VMessageStream& stream, const VImage& image);
/// Log output: writes "VImageHeader()", without field values.
VEXA_EXPORT VMessageStream& operator<<(VMessageStream& stream, const VImageHeader& header);
/// As operator<<(VMessageStream&, const VImage&), on a temporary stream.
inline VMessageStream& operator<<(VMessageStream&& stream, const VImage& image) { return stream << image; }
/// As operator<<(VMessageStream&, const VImageHeader&), on a temporary stream.
inline VMessageStream& operator<<(VMessageStream&& stream, const VImageHeader& header) { return stream << header; }

/// @}
