// VImage::load, readImageFile (16-bit colour kept, camera raw developed, EXIF orientation read through
// exiv2 and applied; 8-bit colour PNG decoded straight into BGR, which must match) and rawImageSize of any
// file contents, through every image reader Qt and LibRaw have here; what loads must convert, save back and
// be counted.
#include "fuzz_common.h"

#include <QDir>
#include <QFile>

#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzzSetUp();
    static const QString path = QDir::temp().filePath(QStringLiteral("vexa_fuzz_load_%1.img").arg(getpid()));
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return 0;
        file.write(reinterpret_cast<const char*>(data), qint64(size));
    }
    const QSize header = VEXA::rawImageSize(path);
    FUZZ_CHECK(!header.isValid() || (header.width() >= 0 && header.height() >= 0));
    const VImage deep = VEXA::readImageFile(path);
    FUZZ_CHECK(deep.status() ? !deep.isEmpty() : deep.isEmpty());
    if (deep.status() && deep.channelType() == VEXA::Channel16u)
        (void)deep.convertScaled(VEXA::XRGB, VEXA::Channel8u);
    // Colour decoded straight into BGR is the same picture, and refused where the usual reading refuses.
    VEXA::FileReadOptions bgr;
    bgr.preferBgr = true;
    const VImage straight = VEXA::readImageFile(path, bgr);
    FUZZ_CHECK(bool(straight.status()) == bool(deep.status()));
    if (straight.status() && straight.format() == VEXA::BGR && deep.format() == VEXA::XRGB)
        FUZZ_CHECK(straight.isEqual(deep.convert(VEXA::BGR, VEXA::Channel8u)));
    else if (straight.status())
        FUZZ_CHECK(straight.isEqual(deep));
    VImage image;
    if (!image.load(path)) {
        FUZZ_CHECK(image.isEmpty() && !image.status());
        return 0;
    }
    FUZZ_CHECK(!image.isEmpty());
    VImage gray = image.convert(VEXA::GrayScale, VEXA::Channel8u);
    int count = 0;
    VEXA::countNonZero(gray, &count);
    (void)image.histogram();
    (void)VEXA::toQImage(image);
    return 0;
}
