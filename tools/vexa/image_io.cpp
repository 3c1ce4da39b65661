// The tool's reading and writing of images: loading with depth and orientation, saving with format options
// and progress, output folders that leave nothing behind on failure, and folder expansion. Over 500 lines
// because every command goes through these few entry points and they share their checks.
#include "image_io.h"

#include "metadata_carry.h"

#include "cli.h"

#include <vexa/gen/gen_image_converters.h>
#include <vexa/imp/file_metadata.h>
#include <vexa/imp/image_files.h>
#include <vexa/imp/qimage_support.h>

#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QImageWriter>
#include <QRandomGenerator>
#include <QTemporaryFile>

#include <opencv2/imgproc.hpp>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <fcntl.h>
#include <system_error>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace vexatool {

namespace {

QString systemError(int code) { return QString::fromStdString(std::generic_category().message(code)); }

// Why a write into `written` (the temporary of `fileName`) stopped, when the system said (errno, cleared
// before the write): the file reached the process's size limit, or the device is full. Otherwise the
// writer's reason, which names the file by its final name.
QString writeFailure(const QString& fileName, const QString& written, QString reason)
{
    rlimit limit{};
    if (errno == EFBIG && getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
        return QStringLiteral("the file reached this process's file size limit of %1 bytes (ulimit -f)").arg(limit.rlim_cur);
    if (errno == ENOSPC || errno == EDQUOT) {
        struct statvfs device {};
        const bool known = statvfs(QFile::encodeName(QFileInfo(written).absolutePath()).constData(), &device) == 0;
        return QStringLiteral("no space left on the device%1")
            .arg(known ? QStringLiteral(" (%1 KiB free without the unfinished file)").arg(qint64(device.f_bavail) * qint64(device.f_frsize) >> 10)
                       : QString());
    }
    if (errno == EFBIG)
        return systemError(EFBIG);
    return reason.replace(written, fileName);
}

bool isVexaName(const QString& fileName)
{
    return QFileInfo(fileName).suffix().compare(QLatin1String("vexa"), Qt::CaseInsensitive) == 0;
}

// The first bytes of every byte array: the length of the id (a 32-bit big-endian count) and the id.
const QByteArray& byteArrayMagic()
{
    static const QByteArray magic = QByteArray("\0\0\0\x0a", 4) + VImage::rawSerializationId;
    return magic;
}

const std::array<const char*, 6> kFormatNames{"gray", "bgr", "argb", "xrgb", "argb-premultiplied", "yuv422"};
const std::array<const char*, 6> kChannelNames{"8u", "8s", "16u", "16s", "32s", "32f"};

QStringList namesOf(const std::array<const char*, 6>& names)
{
    QStringList list;
    for (const char* name : names)
        list << QLatin1String(name);
    return list;
}

// "-" writes PNG to standard output, "-.SUFFIX" that suffix's format.
bool isStandardOutput(const QString& fileName)
{
    return fileName == QLatin1String("-") || fileName.startsWith(QLatin1String("-."));
}

QString writtenName(const QString& fileName) { return fileName == QLatin1String("-") ? QStringLiteral("-.png") : fileName; }

} // namespace

VImage toVImage(const cv::Mat& mat)
{
    CV_Assert(mat.depth() == CV_8U && mat.dims == 2);
    const VEXA::Format format = mat.channels() == 1 ? VEXA::GrayScale : mat.channels() == 3 ? VEXA::BGR : VEXA::XRGB;
    CV_Assert(mat.channels() == 1 || mat.channels() == 3 || mat.channels() == 4);
    VImage image;
    image.create(mat.cols, mat.rows, format, VEXA::Channel8u, VEXA::OriginBottomLeft, VEXA::RowsAlignNone);
    if (!image.status() || image.isEmpty())
        runtimeError(QStringLiteral("cannot make a %1x%2 image").arg(mat.cols).arg(mat.rows));
    const size_t rowBytes = mat.cols * mat.elemSize();
    for (int y = 0; y < mat.rows; ++y)
        std::memcpy(image.rawData() + y * image.bytesPerLine(), mat.ptr(y), rowBytes);
    image.resetHash();
    return image;
}

cv::Mat asMat(const VImage& xrgb)
{
    CV_Assert(xrgb.format() == VEXA::XRGB && xrgb.channelType() == VEXA::Channel8u);
    return view(xrgb);
}

cv::Mat view(const VImage& image)
{
    static const int depths[] = {CV_8U, CV_8S, CV_16U, CV_16S, CV_32S, CV_32F};
    CV_Assert(VEXA::isValid(image.format()) && VEXA::isValid(image.channelType()));
    const int type = CV_MAKETYPE(depths[image.channelType()], VEXA::channelsOf(image.format()));
    return cv::Mat(image.height(), image.width(), type, image.rawData(), size_t(image.bytesPerLine()));
}

cv::Mat toBgr8(const VImage& image)
{
    // The same picture in 8 bits (16-bit 65535 is 255), then chroma pairs and premultiplied colour through
    // the library's own arithmetic to plain colour.
    VImage source = image.channelType() == VEXA::Channel8u ? image : image.convertScaled(image.format(), VEXA::Channel8u);
    if (source.format() == VEXA::YUV422 || source.format() == VEXA::ARGB_Premultiplied)
        source = source.convertFast(VEXA::XRGB);
    if (source.isEmpty())
        runtimeError(QStringLiteral("cannot show a %1 image as colour").arg(pairName(image.format(), image.channelType())));
    cv::Mat eight;
    view(source).convertTo(eight, CV_8U); // saturating, and a copy that owns its pixels
    if (eight.channels() == 3)
        return eight;
    cv::Mat bgr;
    cv::cvtColor(eight, bgr, eight.channels() == 1 ? cv::COLOR_GRAY2BGR : cv::COLOR_BGRA2BGR);
    return bgr;
}

bool isByteArrayFile(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) && file.read(byteArrayMagic().size()) == byteArrayMagic();
}

namespace {

// Everything left in `from` into `to`, in blocks; false when a write falls short.
bool copyAll(QIODevice& from, QIODevice& to)
{
    char buffer[1 << 16];
    for (qint64 n; (n = from.read(buffer, sizeof buffer)) > 0;)
        if (to.write(buffer, n) != n)
            return false;
    return true;
}

// Standard input, kept in a temporary file for the run: readers need to seek and to look twice (the
// header, then the pixels), which a pipe does not allow.
QString standardInputCopy()
{
    static QTemporaryFile copy(QDir(QDir::tempPath()).filePath(QStringLiteral("vexa-stdin-XXXXXX")));
    static bool kept = false;
    if (!kept) {
        kept = true;
        QFile in;
        if (!copy.open() || !in.open(stdin, QIODevice::ReadOnly) || !copyAll(in, copy) || !copy.flush())
            runtimeError(QStringLiteral("-: cannot keep standard input: %1").arg(copy.errorString()));
    }
    return copy.fileName();
}

// Runs a reader on the file, or on standard input's copy for "-", whose failures then name "-".
template <class Read>
auto onInput(const QString& fileName, Read&& read)
{
    if (fileName != QLatin1String("-"))
        return read(fileName);
    const QString copy = standardInputCopy();
    try {
        return read(copy);
    } catch (Failure& failure) {
        failure.message.replace(copy, QStringLiteral("-"));
        throw;
    }
}

// The EXIF block and colour profile of the first image file the run reads, carried to what it writes.
struct CarriedMetadata {
    bool taken = false;
    VEXA::FileMetadata metadata;
};

CarriedMetadata& carried()
{
    static CarriedMetadata first;
    return first;
}

void keepMetadataOf(const QString& fileName)
{
    static std::mutex mutex; // shots are read on several threads at once
    const std::lock_guard lock(mutex);
    if (carried().taken)
        return;
    carried().taken = true;
    carried().metadata = VEXA::readFileMetadata(fileName);
}

QString unreadableReason(const QString& fileName);

VImage readImageAt(const QString& fileName, FileFacts* facts, bool preferBgr)
{
    const QFileInfo info(fileName);
    if (!info.exists())
        runtimeError(QStringLiteral("%1: no such file").arg(fileName));
    if (!info.isFile() || !info.isReadable())
        runtimeError(QStringLiteral("%1: not a readable file").arg(fileName));
    if (isByteArrayFile(fileName)) {
        QFile file(fileName);
        if (!file.open(QIODevice::ReadOnly))
            runtimeError(QStringLiteral("%1: %2").arg(fileName, file.errorString()));
        const VImage image = VImage::fromByteArray(file.readAll());
        if (!image.status())
            runtimeError(QStringLiteral("%1: damaged image byte array (%2)").arg(fileName, image.status().message()));
        if (image.isEmpty())
            runtimeError(QStringLiteral("%1: the byte array holds an empty image").arg(fileName));
        if (facts)
            *facts = FileFacts{QStringLiteral("vexa"), {}, QSize()};
        return image;
    }
    if (isVexaName(fileName))
        runtimeError(QStringLiteral("%1: not an image byte array").arg(fileName));
    VImage image;
    bool read = false;
    {
        const StderrSilenced quiet;
        if (facts && VEXA::isRawFile(fileName)) {
            // Developed by readImageFile; Qt's TIFF reader would take the small preview some carry.
            image = VEXA::readImageFile(fileName, readSettings());
            read = image.status() && !image.isEmpty();
            *facts = FileFacts{QStringLiteral("raw"), {}, QSize()};
        } else if (facts) {
            // One decoding gives both the pixels, as VImage::load would take them, and the file's facts.
            QImageReader reader(fileName);
            reader.setDecideFormatFromContent(true);
            facts->fileFormat = QString::fromLatin1(reader.format());
            QImage qImage;
            read = reader.read(&qImage) && VEXA::fromQImage(qImage, &image);
            if (read && qImage.depth() == 64) // 16-bit colour: the pixels again, at their depth
                image = VEXA::readImageFile(fileName);
            for (const QString& key : qImage.textKeys())
                facts->text.append({key, qImage.text(key)});
            facts->dotsPerMetre = QSize(qImage.dotsPerMeterX(), qImage.dotsPerMeterY());
        } else {
            VEXA::FileReadOptions options = readSettings(); // 16-bit colour and raw files as they are
            options.preferBgr = preferBgr;
            image = VEXA::readImageFile(fileName, options);
            read = image.status() && !image.isEmpty();
        }
        if (read)
            keepMetadataOf(fileName);
    }
    if (!read)
        runtimeError(QStringLiteral("%1: cannot read the image: %2").arg(fileName, unreadableReason(fileName)));
    return image;
}

FileFacts readFactsAt(const QString& fileName, QSize* size)
{
    const QFileInfo info(fileName);
    if (!info.isFile() || !info.isReadable())
        runtimeError((info.exists() ? QStringLiteral("%1: not a readable file") : QStringLiteral("%1: no such file")).arg(fileName));
    const StderrSilenced quiet;
    QImageReader reader(fileName);
    reader.setDecideFormatFromContent(true);
    *size = reader.size();
    if (!size->isValid())
        runtimeError(QStringLiteral("%1: cannot read the image: %2")
                         .arg(fileName, reader.canRead() ? QStringLiteral("damaged header")
                                                         : QStringLiteral("not an image file Qt can read")));
    FileFacts facts{QString::fromLatin1(reader.format()), {}, QSize()};
    for (const QString& key : reader.textKeys())
        facts.text.append({key, reader.text(key)});
    return facts;
}

// A byte array's header, as VImage::toByteArray writes it (VImage.h describes it).
bool peekByteArray(const QString& fileName, ImageShape* shape)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QDataStream stream(&file);
    stream.setVersion(QDataStream::Qt_4_8);
    QByteArray id;
    qint32 version = 0, empty = 0, width = 0, height = 0, format = 0, channel = 0;
    stream >> id >> version;
    if (version == VImage::rawSerializationVersion2)
        stream >> empty;
    stream >> width;
    if (width == 0) // an old writer's quirk: the real width follows
        stream >> width;
    stream >> height >> format >> channel;
    if (stream.status() != QDataStream::Ok || empty != 0 || width <= 0 || height <= 0 ||
        !VEXA::isValid(VEXA::Format(format)) || !VEXA::isValid(VEXA::Channel(channel)))
        return false;
    *shape = ImageShape{QSize(width, height), VEXA::Format(format), VEXA::Channel(channel)};
    return true;
}

// The layout readImage gives a file its reader announces in this QImage format; Invalid where the colour
// table decides.
std::pair<VEXA::Format, VEXA::Channel> layoutOf(QImage::Format qFormat)
{
    switch (qFormat) {
    case QImage::Format_Invalid:
    case QImage::Format_Mono:
    case QImage::Format_MonoLSB:
    case QImage::Format_Indexed8: return {VEXA::Invalid, VEXA::ChannelInvalid};
    case QImage::Format_Grayscale8: return {VEXA::GrayScale, VEXA::Channel8u};
    case QImage::Format_Grayscale16: return {VEXA::GrayScale, VEXA::Channel16u};
    case QImage::Format_RGBX64: return {VEXA::XRGB, VEXA::Channel16u};
    case QImage::Format_RGBA64: return {VEXA::ARGB, VEXA::Channel16u};
    case QImage::Format_RGBA64_Premultiplied: return {VEXA::ARGB_Premultiplied, VEXA::Channel16u};
    default: break;
    }
    VEXA::Format format = VEXA::Invalid;
    VEXA::Channel channel = VEXA::ChannelInvalid;
    if (VEXA::representFormat(qFormat, &format, &channel))
        return {format, channel};
    // The rest reach us through Qt's 32-bit colour, with alpha where they have it.
    const bool alpha = QImage::toPixelFormat(qFormat).alphaUsage() == QPixelFormat::UsesAlpha;
    return {alpha ? VEXA::ARGB : VEXA::XRGB, VEXA::Channel8u};
}

// The size and layout that an image file's header promises, without decoding it; false for files Qt
// cannot read. Raw files are developed into BGR 16u, of the size LibRaw reads from their header.
bool headerShape(const QString& fileName, ImageShape* shape)
{
    if (VEXA::isRawFile(fileName)) {
        *shape = ImageShape{VEXA::rawImageSize(fileName), VEXA::BGR, VEXA::Channel16u};
        return shape->size.isValid() && !shape->size.isEmpty();
    }
    const StderrSilenced quiet;
    QImageReader reader(fileName);
    if (!reader.canRead())
        return false;
    // Asked as a plain integer: some plug-ins answer a damaged header with no value of QImage::Format.
    QImage::Format (QImageReader::*const query)() const = &QImageReader::imageFormat;
    const int raw = (reader.*reinterpret_cast<int (QImageReader::*)() const>(query))();
    const auto [format, channel] = layoutOf(
        raw > QImage::Format_Invalid && raw < QImage::NImageFormats ? QImage::Format(raw) : QImage::Format_Invalid);
    *shape = ImageShape{reader.size(), format, channel};
    return shape->size.isValid() && !shape->size.isEmpty() && format != VEXA::Invalid;
}

// Why a file that exists gave no image: what its header promises against the image size limit (which
// VEXA_SIZE_LIMIT raises), or damage.
QString unreadableReason(const QString& fileName)
{
    // The limit to suggest: whole GiB, a power of two, enough for this image.
    const auto raise = [](qint64 bytes) {
        qint64 gibibytes = 1;
        while (gibibytes << 30 < bytes && gibibytes < (qint64(1) << 30))
            gibibytes *= 2;
        return QStringLiteral("VEXA_SIZE_LIMIT raises it, e.g. VEXA_SIZE_LIMIT=%1G").arg(gibibytes);
    };
    if (VEXA::isRawFile(fileName))
        return QStringLiteral("damaged, or over the image size limit of %1 MiB once developed (%2)")
            .arg(VEXA::imageSizeLimit() >> 20)
            .arg(raise(2 * VEXA::imageSizeLimit()));
    ImageShape shape;
    if (!headerShape(fileName, &shape))
        return QImageReader(fileName).canRead() ? QStringLiteral("damaged") : QStringLiteral("not an image file Qt can read");
    const qint64 bytes = VEXA::dataSizeFor(shape.size.width(), shape.size.height(), shape.format, shape.channel);
    const QString over = VEXA::sizeLimitRefusal(shape.size, shape.format, shape.channel, raise(bytes));
    return over.isEmpty() ? QStringLiteral("damaged") : over;
}

bool peekImageAt(const QString& fileName, ImageShape* shape)
{
    if (isByteArrayFile(fileName))
        return peekByteArray(fileName, shape);
    if (headerShape(fileName, shape))
        return true;
    try {
        const VImage image = readImage(fileName);
        *shape = ImageShape{image.size(), image.format(), image.channelType()};
        return true;
    } catch (const Failure&) {
        return false;
    }
}

} // namespace

VImage readImage(const QString& fileName, FileFacts* facts, bool preferBgr)
{
    return onInput(fileName, [&](const QString& name) { return readImageAt(name, facts, preferBgr); });
}

FileFacts readFacts(const QString& fileName, QSize* size)
{
    return onInput(fileName, [&](const QString& name) { return readFactsAt(name, size); });
}

bool peekImage(const QString& fileName, ImageShape* shape)
{
    return onInput(fileName, [&](const QString& name) { return peekImageAt(name, shape); });
}

VImage inPair(const VImage& image, VEXA::Format format, VEXA::Channel channel)
{
    if (image.format() == format && image.channelType() == channel)
        return image;
    VImage out = image.convertScaled(format, channel);
    // Straight alpha has no direct way to some layouts; premultiplied has, and gives the colour back.
    if (out.isEmpty() && image.format() == VEXA::ARGB)
        out = image.convertScaled(VEXA::ARGB_Premultiplied).convertScaled(format, channel);
    return out;
}

VImage asXrgb(const VImage& image, const QString& name)
{
    const VImage xrgb = inPair(image, VEXA::XRGB, VEXA::Channel8u);
    if (xrgb.isEmpty())
        runtimeError(QStringLiteral("%1: cannot convert the image to 8-bit colour").arg(name));
    return xrgb;
}

VImage loadXrgb(const QString& fileName) { return asXrgb(readImage(fileName), fileName); }

QString formatName(VEXA::Format format)
{
    return VEXA::isValid(format) ? QLatin1String(kFormatNames[format]) : QStringLiteral("invalid");
}

QString channelName(VEXA::Channel channel)
{
    return VEXA::isValid(channel) ? QLatin1String(kChannelNames[channel]) : QStringLiteral("invalid");
}

QString pairName(VEXA::Format format, VEXA::Channel channel)
{
    return formatName(format) + QLatin1Char(' ') + channelName(channel);
}

VEXA::Format parseFormat(const QString& text)
{
    return VEXA::Format(choiceIndex(QStringLiteral("format"), text, namesOf(kFormatNames), Qt::CaseInsensitive));
}

VEXA::Channel parseChannel(const QString& text)
{
    return VEXA::Channel(
        choiceIndex(QStringLiteral("channel type"), text, namesOf(kChannelNames), Qt::CaseInsensitive));
}

bool canWriteFormat(const QString& fileName)
{
    const QByteArray suffix = QFileInfo(fileName).suffix().toLower().toLatin1();
    return !suffix.isEmpty() && QImageWriter::supportedImageFormats().contains(suffix);
}

void checkOutputFormat(const QString& fileName)
{
    if (!isVexaName(writtenName(fileName)) && !canWriteFormat(writtenName(fileName)))
        usageError(QStringLiteral("%1: no image format to write for this suffix (or use .vexa)").arg(fileName));
}

void checkOutputName(const QString& fileName)
{
    checkOutputFormat(fileName);
    if (isStandardOutput(fileName))
        return;
    const QFileInfo info(fileName);
    if (info.isDir())
        runtimeError(QStringLiteral("%1: cannot write: it is a folder").arg(fileName));
    const QFileInfo folder(info.absolutePath());
    if (!folder.isDir())
        runtimeError(QStringLiteral("%1: cannot write: no folder %2").arg(fileName, QDir::toNativeSeparators(folder.filePath())));
    if (!folder.isWritable())
        runtimeError(QStringLiteral("%1: cannot write: the folder is not writable").arg(fileName));
}

OutputFile::OutputFile(const QString& fileName) : fileName_(fileName)
{
    // Standard output gets the file whole, once written: in a temporary folder, then copied.
    const QFileInfo info(isStandardOutput(fileName) ? QDir(QDir::tempPath()).filePath(QStringLiteral("vexa-stdout") + writtenName(fileName).mid(1)) : fileName);
    if (info.isDir())
        runtimeError(QStringLiteral("%1: cannot write: it is a folder").arg(fileName));
    const QString suffix = info.suffix().isEmpty() ? QString() : QLatin1Char('.') + info.suffix();
    const QString stem = info.suffix().isEmpty() ? info.fileName() : info.completeBaseName();
    static const char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    for (int attempt = 0; attempt < 100; ++attempt) {
        QString tag;
        for (int i = 0; i < 6; ++i)
            tag += QLatin1Char(letters[QRandomGenerator::global()->bounded(int(sizeof letters - 1))]);
        const QString name = info.dir().filePath(QLatin1Char('.') + stem + QStringLiteral(".tmp-") + tag + suffix);
        // Created here with the usual permissions (0666 less the umask), as the final file would be.
        const int fd = ::open(QFile::encodeName(name).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0) {
            ::close(fd);
            temporary_ = name;
            return;
        }
        if (errno != EEXIST)
            runtimeError(QStringLiteral("%1: cannot write: %2").arg(fileName, systemError(errno)));
    }
    runtimeError(QStringLiteral("%1: cannot write: no free temporary name").arg(fileName));
}

OutputFolder::OutputFolder(const QString& path)
{
    QStringList missing;
    for (QFileInfo info(QFileInfo(path).absoluteFilePath()); !info.exists() && !info.isRoot();
         info = QFileInfo(info.absolutePath()))
        missing.prepend(info.absoluteFilePath());
    if (!QDir().mkpath(path))
        runtimeError(QStringLiteral("%1: cannot make the folder").arg(path));
    madeFolders_ = missing;
}

OutputFolder::~OutputFolder()
{
    if (committed_)
        return;
    for (const QString& file : std::as_const(newFiles_))
        ::unlink(QFile::encodeName(file).constData());
    for (auto it = madeFolders_.crbegin(); it != madeFolders_.crend(); ++it)
        ::rmdir(QFile::encodeName(*it).constData()); // only when empty
}

QString OutputFolder::add(const QString& fileName)
{
    if (!QFileInfo::exists(fileName))
        newFiles_ << fileName;
    return fileName;
}

OutputFile::~OutputFile()
{
    if (!committed_ && !temporary_.isEmpty())
        ::unlink(QFile::encodeName(temporary_).constData());
}

void OutputFile::commit()
{
    if (isStandardOutput(fileName_)) {
        QFile from(temporary_), out;
        if (!from.open(QIODevice::ReadOnly) || !out.open(stdout, QIODevice::WriteOnly))
            runtimeError(QStringLiteral("-: cannot write: %1").arg(from.errorString()));
        if (!copyAll(from, out) || !out.flush())
            runtimeError(QStringLiteral("-: cannot write to standard output"));
        return; // the temporary goes with this object
    }
    if (::rename(QFile::encodeName(temporary_).constData(), QFile::encodeName(fileName_).constData()) != 0)
        runtimeError(QStringLiteral("%1: cannot write: %2").arg(fileName_, systemError(errno)));
    committed_ = true;
}

void checkWritable(VEXA::Format format, VEXA::Channel channel, const QString& fileName)
{
    // 16-bit images go into PNG and TIFF as they are, into formats of 8 bits as the same picture in 8 bits.
    const bool fitsImageFile = channel == VEXA::Channel8u || (channel == VEXA::Channel16u && format != VEXA::YUV422);
    if (!isVexaName(fileName) && !fitsImageFile)
        runtimeError(QStringLiteral("%1: an image file holds 8-bit and 16-bit images, not %2; write a .vexa "
                                    "file to keep the image as it is")
                         .arg(fileName, pairName(format, channel)));
}

VEXA::FileWriteOptions& writeSettings()
{
    static VEXA::FileWriteOptions settings;
    return settings;
}

VEXA::FileReadOptions& readSettings()
{
    static VEXA::FileReadOptions settings;
    return settings;
}

void writeImage(const VImage& image, const QString& fileName, Task* task, bool carryMetadata)
{
    checkWritable(image.format(), image.channelType(), fileName);
    const bool byteArray = isVexaName(fileName);
    if (task)
        task->step(QStringLiteral("writing ") + fileName);
    OutputFile output(fileName);
    const QString written = output.temporaryName();
    const VEXA::FileMetadata& metadata = carried().metadata;
    VEXA::FileWriteOptions options = writeSettings();
    options.replaceWhenComplete = false; // the output file is a temporary that is renamed when complete
    if (carryMetadata)                   // in the stream where the writer can; else afterwards
        embedMetadata(written, image, metadata, readSettings().applyOrientation, &options);
    if (byteArray) {
        const QByteArray bytes = image.toByteArray();
        if (bytes.isEmpty())
            runtimeError(QStringLiteral("%1: cannot make the image's byte array").arg(fileName));
        QFile file(written);
        errno = 0;
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.flush())
            runtimeError(QStringLiteral("%1: cannot write: %2").arg(fileName, writeFailure(fileName, written, file.errorString())));
    } else {
        VStatus status;
        {
            // The write reports its rows into the rest of the bar.
            const std::optional<VProgress::Section> section =
                task ? std::make_optional<VProgress::Section>(task->progress(), task->progress()->fraction(), 1.0)
                     : std::nullopt;
            errno = 0;
            status = VEXA::writeImageFile(image, written, options);
        }
        if (!status) {
            const QString message = QStringLiteral("%1: cannot write the image file: %2")
                                        .arg(fileName, writeFailure(fileName, written, status.reason()));
            task ? task->fail(message) : runtimeError(message);
        }
    }
    if (carryMetadata && !byteArray && needsMetadataRewrite(written, metadata, options)) {
        const VStatus kept = VEXA::writeFileMetadata(written, metadata, readSettings().applyOrientation);
        if (!kept)
            printError(QStringLiteral("warning: %1: the input's metadata could not be kept: %2").arg(fileName, kept.reason()));
    }
    if (task)
        task->checkCancelled();
    output.commit();
}

void writeImage(const QImage& image, const QString& fileName, Task* task)
{
    VImage converted;
    if (!VEXA::fromQImage(image, &converted))
        runtimeError(QStringLiteral("%1: cannot convert the picture to write it").arg(fileName));
    writeImage(converted, fileName, task, false);
}

void saveImage(const cv::Mat& mat, const QString& fileName) { writeImage(toVImage(mat), fileName); }

} // namespace vexatool
