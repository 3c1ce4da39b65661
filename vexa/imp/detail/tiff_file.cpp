#include <vexa/imp/detail/tiff_file.h>

#include <vexa/imp/detail/progress.h>
#include <vexa/imp/exceptions.h>

#include <QIODevice>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include <tiffio.h>

namespace VEXA {

namespace {

// The file's end is kept here rather than asked of the device: a file device flushes its buffer and asks
// the system at every size() and seek(), and libtiff asks for the end before each strip it appends.
struct Sink {
    QIODevice* device;
    qint64 end;
    std::string error;
};

tmsize_t readNothing(thandle_t, void*, tmsize_t) { return 0; }

tmsize_t writeBytes(thandle_t handle, void* data, tmsize_t size)
{
    auto* sink = static_cast<Sink*>(handle);
    const qint64 written = sink->device->write(static_cast<const char*>(data), size);
    sink->end = std::max(sink->end, sink->device->pos());
    return written;
}

toff_t seekTo(thandle_t handle, toff_t offset, int whence)
{
    auto* sink = static_cast<Sink*>(handle);
    QIODevice* device = sink->device;
    const qint64 at = whence == SEEK_SET   ? qint64(offset)
                      : whence == SEEK_CUR ? device->pos() + qint64(offset)
                                           : sink->end + qint64(offset);
    return at == device->pos() || device->seek(at) ? toff_t(at) : toff_t(-1);
}

int closeNothing(thandle_t) { return 0; }

toff_t sizeOf(thandle_t handle) { return toff_t(static_cast<Sink*>(handle)->end); }

int noMap(thandle_t, void**, toff_t*) { return 0; }

void noUnmap(thandle_t, void*, toff_t) {}

// libtiff's complaints go into the sink, the first one kept, never to the process-wide handlers.
int keepError(TIFF*, void* handle, const char* module, const char* format, va_list arguments)
{
    auto* sink = static_cast<Sink*>(handle);
    if (sink->error.empty()) {
        char text[256];
        std::vsnprintf(text, sizeof text, format, arguments);
        sink->error = text;
    }
    return 1;
}

int ignoreWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

// One row red-first, alpha kept for ARGB, the X component left out for XRGB.
template <class T>
void redFirst(const T* from, T* to, int width, Format format)
{
    if (format == GrayScale) {
        std::copy(from, from + width, to);
        return;
    }
    const int in = format == BGR ? 3 : 4, out = format == ARGB ? 4 : 3;
    for (int x = 0; x < width; ++x, from += in, to += out) {
        to[0] = from[2];
        to[1] = from[1];
        to[2] = from[0];
        if (out == 4)
            to[3] = from[3];
    }
}

// Rows per strip: strips of about 256 KiB, written to the file in one call each (libtiff's default of
// 8 KiB makes a seven-thousand-strip file of an 18-megapixel picture, each strip its own write), and small
// enough for any reader to hold.
uint32_t stripRows(int width, int bytesPerPixel)
{
    const qint64 rowBytes = std::max<qint64>(1, qint64(width) * bytesPerPixel);
    return uint32_t(std::max<qint64>(1, (qint64(256) << 10) / rowBytes));
}

} // namespace

bool writesTiff(Format format, Channel channel)
{
    return (format == GrayScale || format == BGR || format == XRGB || format == ARGB) &&
           (channel == Channel8u || channel == Channel16u);
}

void writeTiff(const VImage& image, QIODevice* device, int compression, const QByteArray& iccProfile)
{
    Sink sink{device, device->size(), {}};
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    if (!options)
        throw std::bad_alloc();
    TIFFOpenOptionsSetErrorHandlerExtR(options, keepError, &sink);
    TIFFOpenOptionsSetWarningHandlerExtR(options, ignoreWarning, nullptr);
    TIFF* tiff = TIFFClientOpenExt("image", "w", &sink, readNothing, writeBytes, seekTo, closeNothing, sizeOf, noMap,
                                   noUnmap, options);
    TIFFOpenOptionsFree(options);
    if (!tiff)
        throw exception("TIFF: " + sink.error);
    const Format format = image.format();
    const int width = image.width(), height = image.height();
    const int samples = format == GrayScale ? 1 : format == ARGB ? 4 : 3;
    const bool deep = image.channelType() == Channel16u;
    bool good = TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, uint32_t(width)) &&
                TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, uint32_t(height)) &&
                TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, uint16_t(samples)) &&
                TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, uint16_t(deep ? 16 : 8)) &&
                TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, samples == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB) &&
                TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
                TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
                TIFFSetField(tiff, TIFFTAG_COMPRESSION, compression > 0 ? COMPRESSION_LZW : COMPRESSION_NONE) &&
                TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, stripRows(width, samples * (deep ? 2 : 1)));
    if (good && samples == 4) {
        const uint16_t extra = EXTRASAMPLE_UNASSALPHA;
        good = TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, uint16_t(1), &extra);
    }
    if (good && !iccProfile.isEmpty())
        good = TIFFSetField(tiff, TIFFTAG_ICCPROFILE, uint32_t(iccProfile.size()), iccProfile.constData());
    std::vector<quint16> row(size_t(width) * size_t(samples));
    bool cancelled = false;
    for (int y = 0; good && y < height; ++y) {
        const uchar* line = image.rawData() + qint64(y) * image.bytesPerLine();
        if (deep)
            redFirst(reinterpret_cast<const quint16*>(line), row.data(), width, format);
        else
            redFirst(line, reinterpret_cast<uchar*>(row.data()), width, format);
        good = TIFFWriteScanline(tiff, row.data(), uint32_t(y), 0) == 1;
        cancelled = !rowWritten(y, height, "writing");
        good = good && !cancelled;
    }
    good = good && TIFFWriteDirectory(tiff);
    TIFFClose(tiff);
    if (cancelled)
        throw dip_exception_cancelled();
    if (!good)
        throw exception("TIFF: " + (sink.error.empty() ? std::string("failed to write to file") : sink.error));
    reportProgress(1.0, "writing");
}

} // namespace VEXA
