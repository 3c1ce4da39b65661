#include <vexa/imp/file_metadata.h>

#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/exceptions.h>

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QtEndian>

#include <exiv2/exiv2.hpp>
#include <tiffio.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <string>

// exiv2 0.27 hands its images and streams over in std::auto_ptr, which compilers flag as deprecated.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace VEXA {

namespace {

// exiv2 logs the damage it steps over and carries on. Its errors go to the collector of the thread that is
// reading, if any (the first one is the reason a read gives); everything else is dropped.
thread_local QString* exiv2Errors = nullptr;

void collectExiv2Message(int, const char* text)
{
    if (exiv2Errors && exiv2Errors->isEmpty()) {
        *exiv2Errors = QString::fromLocal8Bit(text).simplified();
        if (exiv2Errors->isEmpty())
            *exiv2Errors = QStringLiteral("Damaged metadata.");
    }
}

void lockXmp(void* mutex, bool lock)
{
    lock ? static_cast<std::mutex*>(mutex)->lock() : static_cast<std::mutex*>(mutex)->unlock();
}

// Once per process, before any exiv2 call: the XMP toolkit must not be set up by two threads at once, and
// the namespaces that XMP packets in camera files bring along are registered under a lock of ours.
void setUpExiv2()
{
    static const bool done = [] {
        static std::mutex xmp;
        Exiv2::XmpParser::initialize(lockXmp, &xmp);
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::error);
        Exiv2::LogMsg::setHandler(collectExiv2Message);
        return true;
    }();
    (void)done;
}

class Exiv2Errors {
public:
    Exiv2Errors() : outer_(exiv2Errors)
    {
        setUpExiv2();
        exiv2Errors = &first_;
    }
    ~Exiv2Errors() { exiv2Errors = outer_; }
    Exiv2Errors(const Exiv2Errors&) = delete;
    Exiv2Errors& operator=(const Exiv2Errors&) = delete;

    bool any() const { return !first_.isEmpty(); }
    const QString& first() const { return first_; }
    void clear() { first_.clear(); }

private:
    QString* outer_;
    QString first_;
};

const Exiv2::byte* bytesOf(const QByteArray& array) { return reinterpret_cast<const Exiv2::byte*>(array.constData()); }

QString reasonOf(const std::exception& e) { return QString::fromLocal8Bit(e.what()).simplified(); }

// exiv2 opens a stream of ours (a file, not an address even if named "http://...", or memory) and answers
// a format it doesn't know with no image rather than an exception.
Exiv2::Image::AutoPtr openImage(Exiv2::BasicIo* stream)
{
    Exiv2::BasicIo::AutoPtr io(stream);
    Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(io);
    if (!image.get())
        throw std::runtime_error("The file contains data of an unknown image type");
    return image;
}

// IFD0 tags that tell how a TIFF lays out its own pixels (size, samples, compression, strips and tiles):
// they describe no other file's picture, and a TIFF written to keeps its own whatever the block says.
void dropStorageTags(Exiv2::ExifData* exif)
{
    static const uint16_t storage[] = {0x00fe, 0x00ff, 0x0100, 0x0101, 0x0102, 0x0103, 0x0106, 0x010a,
                                       0x0111, 0x0115, 0x0116, 0x0117, 0x011c, 0x013d, 0x0140, 0x0142,
                                       0x0143, 0x0144, 0x0145, 0x014a, 0x0152, 0x0153, 0x015b};
    for (auto it = exif->begin(); it != exif->end();) {
        const bool drop = it->groupName() == "Image" &&
                          std::find(std::begin(storage), std::end(storage), it->tag()) != std::end(storage);
        it = drop ? exif->erase(it) : std::next(it);
    }
}

int orientationIn(const Exiv2::ExifData& exif)
{
    const auto tag = exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation"));
    if (tag == exif.end() || tag->count() < 1)
        return 1;
    switch (tag->typeId()) {
    case Exiv2::unsignedByte:
    case Exiv2::unsignedShort:
    case Exiv2::unsignedLong:
    case Exiv2::signedByte:
    case Exiv2::signedShort:
    case Exiv2::signedLong: break;
    default: return 1; // a rational could divide by zero on the way to an integer
    }
    const long value = tag->toLong(0);
    return value >= 1 && value <= 8 ? int(value) : 1;
}

// The block as it goes into the file: the thumbnail showed the picture before processing, the pixel
// dimensions must be the file's own, and an orientation of 0 leaves the block's as it is.
void prepareForWriting(Exiv2::ExifData* exif, int orientation, int width, int height)
{
    dropStorageTags(exif);
    Exiv2::ExifThumb(*exif).erase();
    const char* const dimensions[] = {"Exif.Photo.PixelXDimension", "Exif.Photo.PixelYDimension"};
    const int sizes[] = {width, height};
    for (int i = 0; i < 2; ++i)
        if (sizes[i] > 0 && exif->findKey(Exiv2::ExifKey(dimensions[i])) != exif->end())
            (*exif)[dimensions[i]] = uint32_t(sizes[i]);
    const Exiv2::ExifKey key("Exif.Image.Orientation");
    if (orientation > 1 || (orientation == 1 && exif->findKey(key) != exif->end()))
        (*exif)[key.key()] = uint16_t(orientation);
}

// The orientation written: 1 where the pixels were turned upright; 0 (the file's own stays) without a
// block of the caller's and with the default orientation.
int orientationToWrite(const FileMetadata& metadata, bool orientationApplied)
{
    const int given = metadata.orientation >= 1 && metadata.orientation <= 8 ? metadata.orientation : 1;
    return orientationApplied ? 1 : metadata.exif.isEmpty() && given == 1 ? 0 : given;
}

constexpr char pngSignature[] = "\x89PNG\r\n\x1a\n";

// exiv2 0.27 writes the iCCP chunk with an empty profile name, which libpng refuses (and the profile with
// it). Chunks: length (big-endian), type, data, CRC of type and data.
QByteArray withNamedPngProfile(const QByteArray& png)
{
    if (!png.startsWith(QByteArray(pngSignature, 8)))
        return png;
    for (qsizetype at = 8; at + 12 <= png.size();) {
        const quint32 length = qFromBigEndian<quint32>(png.constData() + at);
        if (length > quint32(png.size() - at - 12))
            break;
        if (std::memcmp(png.constData() + at + 4, "iCCP", 4) == 0) {
            if (length == 0 || png[at + 8] != '\0')
                break;
            QByteArray chunk = QByteArray("iCCP") + "ICC profile" + png.mid(at + 8, length);
            const quint32 crc =
                quint32(crc32(0, reinterpret_cast<const Bytef*>(chunk.constData()), uInt(chunk.size())));
            char head[4], tail[4];
            qToBigEndian<quint32>(quint32(chunk.size() - 4), head);
            qToBigEndian<quint32>(crc, tail);
            return png.left(at) + QByteArray(head, 4) + chunk + QByteArray(tail, 4) + png.mid(at + 12 + length);
        }
        at += 12 + qsizetype(length);
    }
    return png;
}

// exiv2 0.27 writes a WebP's ICCP chunk under the type VP8X; only the first chunk may be VP8X. Chunks:
// type, length (little-endian), data padded to even length.
QByteArray withLabelledWebpProfile(QByteArray webp)
{
    if (webp.size() < 12 || !webp.startsWith("RIFF") || webp.mid(8, 4) != "WEBP")
        return webp;
    for (qsizetype at = 12; at + 8 <= webp.size();) {
        const quint32 length = qFromLittleEndian<quint32>(webp.constData() + at + 4);
        if (at > 12 && std::memcmp(webp.constData() + at, "VP8X", 4) == 0)
            std::memcpy(webp.data() + at, "ICCP", 4);
        at += 8 + qsizetype(length) + (length & 1);
    }
    return webp;
}

// Whole pixels of `bytes` bytes each: destination row y, column x takes the source pixel at
// from + y * rowStep + x * columnStep. In tiles, so that a walk down the source's columns stays in cache.
template <int bytes>
void copyPixels(const uchar* from, qint64 columnStep, qint64 rowStep, uchar* to, qint64 stride, int width, int height)
{
    constexpr int tile = 64;
    for (int y0 = 0; y0 < height; y0 += tile)
        for (int x0 = 0; x0 < width; x0 += tile) {
            const int y1 = std::min(height, y0 + tile), x1 = std::min(width, x0 + tile);
            for (int y = y0; y < y1; ++y) {
                const uchar* s = from + y * rowStep + x0 * columnStep;
                uchar* d = to + y * stride + qint64(x0) * bytes;
                for (int x = x0; x < x1; ++x, s += columnStep, d += bytes)
                    std::memcpy(d, s, bytes);
            }
        }
}

} // namespace

bool holdsMetadata(const QString& fileName)
{
    static const char* const suffixes[] = {"jpg", "jpeg", "png", "tif", "tiff", "webp"};
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    return std::any_of(std::begin(suffixes), std::end(suffixes),
                       [&](const char* s) { return suffix == QLatin1String(s); });
}

FileMetadata readFileMetadata(const QString& fileName, VStatus* status)
{
    FileMetadata result;
    VStatus outcome;
    const auto fail = [&](const CallSite& site, const QString& reason) {
        outcome = VStatus(errorAt(site, Issue::Loading)
                          << "Failed to read metadata from file " << fileName << " Reason: " << reason)
                      .withReason(reason);
        result = FileMetadata();
    };
    Exiv2Errors errors;
    try {
        Exiv2::Image::AutoPtr image = openImage(new Exiv2::FileIo(QFile::encodeName(fileName).toStdString()));
        image->readMetadata();
        Exiv2::ExifData exif = image->exifData();
        if (exif.empty() && errors.any()) {
            fail(VEXA_CALL_SITE, errors.first());
        } else {
            result.orientation = orientationIn(exif);
            if (image->iccProfileDefined())
                result.iccProfile =
                    QByteArray(reinterpret_cast<const char*>(image->iccProfile()->pData_), image->iccProfile()->size_);
            const auto profileTag = exif.findKey(Exiv2::ExifKey("Exif.Image.InterColorProfile"));
            if (profileTag != exif.end()) {
                if (result.iccProfile.isEmpty() && profileTag->typeId() == Exiv2::undefined) {
                    result.iccProfile.resize(profileTag->size());
                    profileTag->copy(reinterpret_cast<Exiv2::byte*>(result.iccProfile.data()), Exiv2::invalidByteOrder);
                }
                exif.erase(profileTag);
            }
            dropStorageTags(&exif);
            if (!exif.empty()) {
                Exiv2::Blob blob;
                Exiv2::ExifParser::encode(blob, Exiv2::littleEndian, exif);
                result.exif = QByteArray(reinterpret_cast<const char*>(blob.data()), qsizetype(blob.size()));
            }
        }
    } catch (const std::exception& e) {
        fail(VEXA_CALL_SITE, reasonOf(e));
    } catch (...) {
        fail(VEXA_CALL_SITE, QStringLiteral("Unexpected error."));
    }
    if (status)
        *status = outcome;
    return result;
}

namespace {

// Swallows libtiff's complaints about one file (returning 1 keeps the process-wide handlers out of it).
int quietTiff(TIFF*, void*, const char*, const char*, va_list) { return 1; }

// A TIFF that only takes a colour profile gets it from libtiff in place: its directory is written anew
// at the end of the file and the header pointed at it last, so the pixels are neither read nor copied
// (exiv2 would rewrite the whole file) and a failure before that leaves the picture as it was.
bool profileIntoTiff(const QString& fileName, const QByteArray& iccProfile)
{
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    if (!options)
        return false;
    TIFFOpenOptionsSetErrorHandlerExtR(options, quietTiff, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options, quietTiff, nullptr);
    TIFF* tiff = TIFFOpenExt(QFile::encodeName(fileName).constData(), "r+", options);
    TIFFOpenOptionsFree(options);
    if (!tiff)
        return false;
    const bool done = TIFFNumberOfDirectories(tiff) == 1 &&
                      TIFFSetField(tiff, TIFFTAG_ICCPROFILE, uint32_t(iccProfile.size()), iccProfile.constData()) &&
                      TIFFRewriteDirectory(tiff);
    TIFFClose(tiff);
    return done;
}

} // namespace

VStatus writeFileMetadata(const QString& fileName, const FileMetadata& metadata, bool orientationApplied)
{
    const auto fail = [&fileName](const CallSite& site, const QString& reason) {
        return VStatus(errorAt(site, Issue::Saving)
                       << "Failed to write metadata to file " << fileName << " Reason: " << reason)
            .withReason(reason);
    };
    if (!holdsMetadata(fileName) || metadata.isEmpty())
        return VStatus::Ok;
    const int orientation = orientationToWrite(metadata, orientationApplied);
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    if (metadata.exif.isEmpty() && orientation <= 1 && !metadata.iccProfile.isEmpty() &&
        (suffix == QLatin1String("tif") || suffix == QLatin1String("tiff")) && profileIntoTiff(fileName, metadata.iccProfile))
        return VStatus::Ok;
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return fail(VEXA_CALL_SITE, file.errorString());
    const QByteArray original = file.readAll();
    file.close();

    QByteArray written;
    Exiv2Errors errors;
    try {
        // In memory, so that the file is touched only once everything has gone well.
        Exiv2::Image::AutoPtr image = openImage(new Exiv2::MemIo(bytesOf(original), long(original.size())));
        image->readMetadata();
        Exiv2::ExifData exif = image->exifData();
        if (!metadata.exif.isEmpty()) {
            exif.clear();
            errors.clear(); // what the file's own metadata suffered is no reason to refuse the caller's
            const Exiv2::ByteOrder order =
                Exiv2::ExifParser::decode(exif, bytesOf(metadata.exif), uint32_t(metadata.exif.size()));
            if (order == Exiv2::invalidByteOrder || (exif.empty() && errors.any()))
                return fail(VEXA_CALL_SITE,
                            (QStringLiteral("The EXIF block can't be decoded. ") + errors.first()).trimmed());
        }
        prepareForWriting(&exif, orientation, image->pixelWidth(), image->pixelHeight());
        image->setExifData(exif);
        // An XMP packet the file already holds may repeat the orientation; it must not contradict the EXIF.
        Exiv2::XmpData& xmp = image->xmpData();
        const auto xmpOrientation = xmp.findKey(Exiv2::XmpKey("Xmp.tiff.Orientation"));
        if (orientation > 0 && xmpOrientation != xmp.end())
            xmpOrientation->setValue(std::to_string(orientation));
        if (!metadata.iccProfile.isEmpty()) {
            Exiv2::DataBuf profile(bytesOf(metadata.iccProfile), long(metadata.iccProfile.size()));
            image->setIccProfile(profile);
        }
        image->writeMetadata();
        Exiv2::BasicIo& io = image->io();
        if (io.open() != 0)
            return fail(VEXA_CALL_SITE, QStringLiteral("exiv2 kept no result."));
        written = QByteArray(reinterpret_cast<const char*>(io.mmap()), qsizetype(io.size()));
        io.munmap();
        io.close();
    } catch (const std::exception& e) {
        return fail(VEXA_CALL_SITE, reasonOf(e));
    } catch (...) {
        return fail(VEXA_CALL_SITE, QStringLiteral("Unexpected error."));
    }
    written = withLabelledWebpProfile(withNamedPngProfile(written));

    QSaveFile out(fileName);
    if (!out.open(QIODevice::WriteOnly) || out.write(written) != written.size() || !out.commit())
        return fail(VEXA_CALL_SITE, out.errorString());
    return VStatus::Ok;
}

QByteArray exifForFile(const FileMetadata& metadata, bool orientationApplied, int width, int height)
{
    const int orientation = orientationToWrite(metadata, orientationApplied);
    if (metadata.exif.isEmpty() && orientation <= 1)
        return QByteArray();
    const Exiv2Errors errors;
    try {
        Exiv2::ExifData exif;
        if (!metadata.exif.isEmpty() &&
            Exiv2::ExifParser::decode(exif, bytesOf(metadata.exif), uint32_t(metadata.exif.size())) ==
                Exiv2::invalidByteOrder)
            return QByteArray();
        if (!metadata.exif.isEmpty() && exif.empty() && errors.any())
            return QByteArray();
        prepareForWriting(&exif, orientation, width, height);
        Exiv2::Blob block;
        Exiv2::ExifParser::encode(block, Exiv2::littleEndian, exif);
        return QByteArray(reinterpret_cast<const char*>(block.data()), qsizetype(block.size()));
    } catch (...) {
        return QByteArray();
    }
}

VImage orientedImage(const VImage& image, int orientation)
{
    if (orientation <= 1 || orientation > 8 || !image.status() || image.isEmpty())
        return image;
    VImage result;
    const VStatus status = guarded(VEXA_CALL_SITE, [&] {
        if (image.format() == YUV422)
            throw dip_exception("YUV422 can't be turned or mirrored: two pixels share their chroma");
        const bool swapped = orientation >= 5;
        const int w = image.width(), h = image.height();
        result.create(swapped ? h : w, swapped ? w : h, image.format(), image.channelType(), image.origin(),
                      image.rowsAlignment());
        if (!result.status() || result.isEmpty())
            return result.status()
                       ? VStatus(errorAt(VEXA_CALL_SITE, Issue::LibraryError) << "Can't create the turned image.")
                       : result.status();
        const int bytes = channelsOf(image.format()) * bitsOf(image.channelType()) / 8;
        const qint64 px = bytes, line = image.bytesPerLine(), right = qint64(w - 1) * px, bottom = qint64(h - 1) * line;
        // Where the destination's first pixel comes from, and the source steps for one destination column
        // and one destination row.
        struct Walk {
            qint64 start, column, row;
        };
        const Walk walks[] = {
            {right, -px, line},           // 2: mirrored left to right
            {bottom + right, -px, -line}, // 3: half turn
            {bottom, px, -line},          // 4: mirrored top to bottom
            {0, line, px},                // 5: transposed
            {bottom, -line, px},          // 6: quarter turn clockwise
            {bottom + right, -line, -px}, // 7: transversed
            {right, line, -px},           // 8: quarter turn counter-clockwise
        };
        const Walk& walk = walks[orientation - 2];
        const uchar* from = image.rawData() + walk.start;
        const auto run = [&](auto tag) {
            copyPixels<decltype(tag)::value>(from, walk.column, walk.row, result.rawData(), result.bytesPerLine(),
                                             result.width(), result.height());
        };
        switch (bytes) {
        case 1: run(std::integral_constant<int, 1>()); break;
        case 2: run(std::integral_constant<int, 2>()); break;
        case 3: run(std::integral_constant<int, 3>()); break;
        case 4: run(std::integral_constant<int, 4>()); break;
        case 6: run(std::integral_constant<int, 6>()); break;
        case 8: run(std::integral_constant<int, 8>()); break;
        case 12: run(std::integral_constant<int, 12>()); break;
        case 16: run(std::integral_constant<int, 16>()); break;
        default: throwUnsupported();
        }
        result.resetHash();
        return VStatus::Ok;
    });
    if (status)
        return result;
    VImage failed;
    failed.setStatus(status);
    return failed;
}

} // namespace VEXA
