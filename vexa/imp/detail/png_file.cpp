#include <vexa/imp/detail/png_file.h>

#include <vexa/imp/ImageData.h>
#include <vexa/imp/detail/progress.h>
#include <vexa/imp/exceptions.h>

#include <QFile>
#include <QIODevice>
#include <QImage>

#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <climits>
#include <csetjmp>
#include <cstring>

namespace VEXA {

namespace {

struct Sink {
    QIODevice* device;
    char error[200] = {};
    bool cancelled = false;
};

void writeBytes(png_structp png, png_bytep data, size_t size)
{
    auto* sink = static_cast<Sink*>(png_get_io_ptr(png));
    if (sink->device->write(reinterpret_cast<const char*>(data), qint64(size)) != qint64(size))
        png_error(png, "failed to write to file");
}

void flushNothing(png_structp) {}

[[noreturn]] void failed(png_structp png, png_const_charp message)
{
    auto* sink = static_cast<Sink*>(png_get_error_ptr(png));
    std::strncpy(sink->error, message, sizeof(sink->error) - 1);
    png_longjmp(png, 1);
}

void ignoreWarning(png_structp, png_const_charp) {}

struct Rows {
    const VImage* image;
    bool premultiplied;
    QImage scratch; // one row of straight colour, for premultiplied pictures

    // Premultiplied colour is divided by alpha by Qt's own conversion, as when Qt writes such a picture,
    // so that every format gets the same colour back. Qt keeps red first at 16 bits and we keep blue
    // first, which the division, the same for every colour component, does not mind.
    const png_byte* row(int y)
    {
        const uchar* line = image->rawData() + qint64(y) * image->bytesPerLine();
        if (!premultiplied)
            return line;
        const bool deep = image->channelType() == Channel16u;
        const QImage view(line, image->width(), 1, deep ? QImage::Format_RGBA64_Premultiplied : QImage::Format_ARGB32_Premultiplied);
        scratch = view.convertToFormat(deep ? QImage::Format_RGBA64 : QImage::Format_ARGB32);
        return scratch.constBits();
    }
};

// Every libpng call that may fail lives in this frame, which owns nothing with a destructor: a failure
// comes back here through longjmp, with the reason in the sink.
bool encode(png_structp png, png_infop info, Rows& rows, int compression, const QByteArray& iccProfile,
            const QByteArray& exif)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    const VImage& image = *rows.image;
    const Format format = image.format();
    const int colourType = format == GrayScale ? PNG_COLOR_TYPE_GRAY
                           : format == BGR || format == XRGB ? PNG_COLOR_TYPE_RGB
                                                             : PNG_COLOR_TYPE_RGB_ALPHA;
    const int depth = image.channelType() == Channel16u ? 16 : 8;
    png_set_IHDR(png, info, png_uint_32(image.width()), png_uint_32(image.height()), depth, colourType,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (compression < 0) {
        png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_PAETH);
        png_set_compression_strategy(png, Z_RLE);
        png_set_compression_level(png, 1);
    } else {
        png_set_filter(png, PNG_FILTER_TYPE_BASE, compression == 0 ? PNG_FILTER_NONE : PNG_ALL_FILTERS);
        png_set_compression_level(png, compression);
    }
    if (!iccProfile.isEmpty()) {
        png_set_benign_errors(png, 1); // a malformed profile is left out, not the picture
        png_set_iCCP(png, info, "ICC profile", PNG_COMPRESSION_TYPE_BASE,
                     reinterpret_cast<png_const_bytep>(iccProfile.constData()), png_uint_32(iccProfile.size()));
    }
    if (!exif.isEmpty())
        png_set_eXIf_1(png, info, png_uint_32(exif.size()),
                       reinterpret_cast<png_bytep>(const_cast<char*>(exif.constData())));
    png_write_info(png, info);
    if (format != GrayScale)
        png_set_bgr(png);
    if (format == XRGB)
        png_set_filler(png, 0, PNG_FILLER_AFTER);
    if (depth == 16)
        png_set_swap(png); // our components are little-endian
    const int height = image.height();
    for (int y = 0; y < height; ++y) {
        png_write_row(png, rows.row(y));
        if (!rowWritten(y, height, "writing")) {
            static_cast<Sink*>(png_get_io_ptr(png))->cancelled = true;
            return false;
        }
    }
    png_write_end(png, info);
    return true;
}

void readBytes(png_structp png, png_bytep data, size_t size)
{
    auto* device = static_cast<QIODevice*>(png_get_io_ptr(png));
    if (device->read(reinterpret_cast<char*>(data), qint64(size)) != qint64(size))
        png_error(png, "truncated file");
}

[[noreturn]] void readFailed(png_structp png, png_const_charp) { png_longjmp(png, 1); }

// As encode: the calls that may fail, each frame owning nothing with a destructor. The header, and
// whether the pixels are those readPngAsBgr takes.
bool readBgrHeader(png_structp png, png_infop info, png_uint_32* width, png_uint_32* height)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_read_info(png, info);
    int depth = 0, colourType = 0, interlace = 0;
    png_get_IHDR(png, info, width, height, &depth, &colourType, &interlace, nullptr, nullptr);
    if (depth != 8 || colourType != PNG_COLOR_TYPE_RGB || interlace != PNG_INTERLACE_NONE ||
        png_get_valid(png, info, PNG_INFO_tRNS))
        return false;
    png_set_bgr(png);
    return true;
}

bool readRows(png_structp png, VImage& image)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    for (int y = 0; y < image.height(); ++y)
        png_read_row(png, image.rawData() + qint64(y) * image.bytesPerLine(), nullptr);
    png_read_end(png, nullptr); // to the end, as Qt's reader: a file damaged after its pixels fails in both
    return true;
}

} // namespace

VImage readPngAsBgr(const QString& fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return VImage();
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, readFailed, ignoreWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        throw std::bad_alloc();
    }
    png_set_read_fn(png, &file, readBytes);
    VImage image;
    png_uint_32 width = 0, height = 0;
    if (readBgrHeader(png, info, &width, &height) && width <= png_uint_32(INT_MAX) && height <= png_uint_32(INT_MAX) &&
        dataSizeFor(width, height, BGR, Channel8u) <= imageSizeLimit()) {
        image.create(long(width), long(height), BGR, Channel8u, OriginBottomLeft, RowsAlignNone);
        if (!image.status() || image.isEmpty() || !readRows(png, image))
            image = VImage();
    }
    png_destroy_read_struct(&png, &info, nullptr);
    image.resetHash();
    return image;
}

void writePng(const VImage& image, QIODevice* device, int compression, const QByteArray& iccProfile,
              const QByteArray& exif)
{
    Sink sink{device};
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &sink, failed, ignoreWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        throw std::bad_alloc();
    }
    png_set_write_fn(png, &sink, writeBytes, flushNothing);
    Rows rows{&image, image.format() == ARGB_Premultiplied, {}};
    const bool done = encode(png, info, rows, std::clamp(compression, -1, 9), iccProfile, exif);
    png_destroy_write_struct(&png, &info);
    if (sink.cancelled)
        throw dip_exception_cancelled();
    if (!done)
        throw exception(std::string("PNG: ") + sink.error);
    reportProgress(1.0, "writing");
}

} // namespace VEXA
