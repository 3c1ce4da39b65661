#include "image_io.h"

#include "cli.h"

#include <QFileInfo>
#include <QImageReader>
#include <QImageWriter>

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace vexatool {

namespace {

// Image decoders (libpng's among them) print their complaints straight to stderr; while one runs, stderr
// goes nowhere, so that a damaged file gets the tool's one line and nothing else.
class StderrSilenced {
public:
    StderrSilenced()
    {
        std::fflush(stderr);
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (null >= 0) {
            saved_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
            if (saved_ >= 0)
                dup2(null, STDERR_FILENO);
            close(null);
        }
    }
    ~StderrSilenced()
    {
        if (saved_ < 0)
            return;
        std::fflush(stderr);
        dup2(saved_, STDERR_FILENO);
        close(saved_);
    }
    StderrSilenced(const StderrSilenced&) = delete;
    StderrSilenced& operator=(const StderrSilenced&) = delete;

private:
    int saved_ = -1;
};

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
    return cv::Mat(xrgb.height(), xrgb.width(), CV_8UC4, xrgb.rawData(), size_t(xrgb.bytesPerLine()));
}

VImage loadXrgb(const QString& fileName)
{
    const QFileInfo info(fileName);
    if (!info.exists())
        runtimeError(QStringLiteral("%1: no such file").arg(fileName));
    if (!info.isFile() || !info.isReadable())
        runtimeError(QStringLiteral("%1: not a readable file").arg(fileName));
    VImage image;
    QString failure;
    {
        const StderrSilenced quiet;
        if (!image.load(fileName))
            failure = QImageReader(fileName).canRead() ? QStringLiteral("damaged, or larger than the image size limit")
                                                       : QStringLiteral("not an image file Qt can read");
    }
    if (!failure.isEmpty())
        runtimeError(QStringLiteral("%1: cannot read the image: %2").arg(fileName, failure));
    const VImage xrgb = image.convertFast(VEXA::XRGB, VEXA::Channel8u);
    if (xrgb.isEmpty())
        runtimeError(QStringLiteral("%1: cannot convert the image to 8-bit colour").arg(fileName));
    return xrgb;
}

void saveImage(const VImage& image, const QString& fileName)
{
    if (!image.save(fileName))
        runtimeError(QStringLiteral("cannot write %1").arg(fileName));
}

void saveImage(const cv::Mat& mat, const QString& fileName) { saveImage(toVImage(mat), fileName); }

bool canWriteFormat(const QString& fileName)
{
    const QByteArray suffix = QFileInfo(fileName).suffix().toLower().toLatin1();
    return !suffix.isEmpty() && QImageWriter::supportedImageFormats().contains(suffix);
}

} // namespace vexatool
