#include <vexa/imp/raw_files.h>

#include <vexa/imp/ImageData.h>
#include <vexa/imp/detail/frame.h>

#include <QFile>
#include <QFileInfo>

#include <libraw/libraw.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <new>

namespace VEXA {

namespace {

// A decoder takes some 750 KiB of tables, too much for a client thread's stack. Its default callbacks
// print data and memory errors to stderr; ours come back as codes instead.
std::unique_ptr<LibRaw> makeDecoder()
{
    return std::make_unique<LibRaw>(LIBRAW_OPIONS_NO_MEMERR_CALLBACK | LIBRAW_OPIONS_NO_DATAERR_CALLBACK);
}

// Opening a file looks its camera up in LibRaw's alias tables through a pointer that every decoder shares
// (a function-level static in LibRaw 0.20), so two files opened at once could swap camera names and with
// them colour matrices. Opening only reads headers, so openings simply take turns.
int openDecoder(LibRaw& decoder, const QString& fileName)
{
    static std::mutex opening;
    const std::lock_guard<std::mutex> lock(opening);
    return decoder.open_file(QFile::encodeName(fileName).constData());
}

// LibRaw throws these only from code it does not guard itself; each maps to the code its own methods
// would have returned, so that the reason reads the same.
int codeOf(LibRaw_exceptions e)
{
    switch (e) {
    case LIBRAW_EXCEPTION_ALLOC: return LIBRAW_UNSUFFICIENT_MEMORY;
    case LIBRAW_EXCEPTION_IO_EOF:
    case LIBRAW_EXCEPTION_IO_BADFILE: return LIBRAW_IO_ERROR;
    case LIBRAW_EXCEPTION_CANCELLED_BY_CALLBACK: return LIBRAW_CANCELLED_BY_CALLBACK;
    case LIBRAW_EXCEPTION_BAD_CROP: return LIBRAW_BAD_CROP;
    case LIBRAW_EXCEPTION_TOOBIG: return LIBRAW_TOO_BIG;
    case LIBRAW_EXCEPTION_MEMPOOL: return LIBRAW_MEMPOOL_OVERFLOW;
    default: return LIBRAW_DATA_ERROR;
    }
}

// What developing holds at its peak: the sensor's samples (2 bytes a pixel), LibRaw's working copy of them
// in four 16-bit components a pixel, and the picture handed back. A few kilobytes of hostile header can
// claim a sensor of 65535 x 65535, and compressed data that break off early leave LibRaw a black picture
// rather than an error, so the whole of it must fit under the host's limit before any data are decoded.
qint64 developingPeak(const libraw_image_sizes_t& s)
{
    const qint64 sensorWidth = std::max<qint64>(s.raw_width, s.width);
    const qint64 sensorHeight = std::max<qint64>(s.raw_height, s.height);
    return dataSizeFor(sensorWidth, sensorHeight, GrayScale, Channel16u) +
           dataSizeFor(sensorWidth, sensorHeight, XRGB, Channel16u) + dataSizeFor(s.width, s.height, BGR, Channel16u);
}

// LibRaw's ceiling on its sensor buffer, in MiB: its own default, or less when the host's limit is lower.
unsigned rawMemoryCeiling(unsigned current)
{
    const qint64 mebibytes = std::max<qint64>(1, imageSizeLimit() / (1024 * 1024));
    return unsigned(std::min<qint64>(current, mebibytes));
}

// Raw formats that are TIFF underneath (or that LibRaw might confuse with one) are told by their suffix.
bool hasRawSuffix(const QString& fileName)
{
    static const char* const suffixes[] = {"3fr", "arw", "cr2", "cr3", "crw", "dcr", "erf", "iiq",
                                           "kdc", "mef", "mos", "mrw", "nef", "nrw", "orf", "pef",
                                           "raf", "rw2", "rwl", "sr2", "srf", "srw", "x3f"};
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    return std::any_of(std::begin(suffixes), std::end(suffixes),
                       [&suffix](const char* s) { return suffix == QLatin1String(s); });
}

} // namespace

VImage readRawFile(const QString& fileName, const RawReadOptions& options)
{
    VImage image;
    const auto fail = [&](const CallSite& site, const QString& reason) {
        image = VImage();
        image.setStatus(loadingFailure(site, fileName, QStringLiteral("Reason: ") + reason, reason));
        return image;
    };
    const auto failCode = [&](const CallSite& site, int code) {
        return fail(site, QString::fromUtf8(libraw_strerror(code)) + QLatin1Char('.'));
    };
    try {
        const std::unique_ptr<LibRaw> decoder = makeDecoder();
        libraw_output_params_t& params = decoder->imgdata.params;
        params.max_raw_memory_mb = rawMemoryCeiling(params.max_raw_memory_mb);
        params.output_bps = 16;
        params.use_camera_wb = options.cameraWhiteBalance ? 1 : 0;
        if (options.linear) {
            params.gamm[0] = params.gamm[1] = 1.0;
            params.no_auto_bright = 1;
        }

        int code = openDecoder(*decoder, fileName);
        if (code != LIBRAW_SUCCESS)
            return failCode(VEXA_CALL_SITE, code);
        const libraw_image_sizes_t& sizes = decoder->imgdata.sizes;
        if (const qint64 peak = developingPeak(sizes); peak > imageSizeLimit())
            return fail(VEXA_CALL_SITE, QStringLiteral("developing it needs more than its picture: ") +
                                            overSizeLimit(sizes.width, sizes.height, peak) + QLatin1Char('.'));
        if ((code = decoder->unpack()) != LIBRAW_SUCCESS)
            return failCode(VEXA_CALL_SITE, code);
        // LibRaw counts stretches of damaged data and decodes on past them: a picture with holes in it.
        if (decoder->error_count() > 0)
            return failCode(VEXA_CALL_SITE, LIBRAW_DATA_ERROR);
        if ((code = decoder->dcraw_process()) != LIBRAW_SUCCESS)
            return failCode(VEXA_CALL_SITE, code);

        int width = 0, height = 0, colors = 0, bits = 0;
        decoder->get_mem_image_format(&width, &height, &colors, &bits);
        if (bits != 16 || (colors != 3 && colors != 1))
            return fail(VEXA_CALL_SITE,
                        QStringLiteral("LibRaw developed %1 components of %2 bits.").arg(colors).arg(bits));
        image.create(width, height, BGR, Channel16u, OriginBottomLeft, RowsAlignNone);
        if (!image.status() || image.isEmpty())
            return fail(VEXA_CALL_SITE, QStringLiteral("no memory for the developed picture."));
        // Straight into the image, rows top first as the library's other readers lay them out. One
        // component a pixel lands at the head of each row and is spread from the row's end backwards, so
        // that no sample is overwritten before it is read.
        code = decoder->copy_mem_image(image.rawData(), int(image.bytesPerLine()), colors == 3 ? 1 : 0);
        for (int y = 0; y < height && colors == 1 && code == LIBRAW_SUCCESS; ++y) {
            quint16* row = reinterpret_cast<quint16*>(image.rawData() + qint64(y) * image.bytesPerLine());
            for (int x = width - 1; x >= 0; --x)
                row[3 * x] = row[3 * x + 1] = row[3 * x + 2] = row[x];
        }
        if (code != LIBRAW_SUCCESS)
            return failCode(VEXA_CALL_SITE, code);
        image.resetHash();
        return image;
    } catch (const std::bad_alloc&) {
        return failCode(VEXA_CALL_SITE, LIBRAW_UNSUFFICIENT_MEMORY);
    } catch (LibRaw_exceptions e) {
        return failCode(VEXA_CALL_SITE, codeOf(e));
    } catch (const std::exception& e) {
        return fail(VEXA_CALL_SITE, QString::fromLocal8Bit(e.what()));
    } catch (...) {
        return fail(VEXA_CALL_SITE, QStringLiteral("unexpected error."));
    }
}

bool isRawFile(const QString& fileName)
{
    try {
        const std::unique_ptr<LibRaw> decoder = makeDecoder();
        return openDecoder(*decoder, fileName) == LIBRAW_SUCCESS &&
               (decoder->imgdata.idata.dng_version != 0 || hasRawSuffix(fileName));
    } catch (...) {
        return false;
    }
}

QSize rawImageSize(const QString& fileName)
{
    try {
        const std::unique_ptr<LibRaw> decoder = makeDecoder();
        if (openDecoder(*decoder, fileName) != LIBRAW_SUCCESS || decoder->adjust_sizes_info_only() != LIBRAW_SUCCESS)
            return QSize();
        // As developing gives it: the visible area, stretched to square pixels and turned upright.
        const libraw_image_sizes_t& sizes = decoder->imgdata.sizes;
        return QSize(sizes.iwidth, sizes.iheight);
    } catch (...) {
        return QSize();
    }
}

} // namespace VEXA
