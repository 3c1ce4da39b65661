#include <vexa/imp/VRasterPyramid.h>

#include <vexa/gen/gen_math_image.h>
#include <vexa/gen/gen_resize_image.h>
#include <vexa/gen/gen_smooth_image.h>
#include <vexa/imp/frame.h>

using namespace VEXA;

VRasterPyramid::VRasterPyramid() = default;
namespace {

// Merging writes levels and details in place, so a copy owns its pixels.
QList<VImage> ownCopies(const QList<VImage>& images)
{
    QList<VImage> copies;
    for (const VImage& image : images)
        copies.append(image.isEmpty() ? image : image.copy());
    return copies;
}

} // namespace

VRasterPyramid::VRasterPyramid(const VRasterPyramid& other)
    : levels_(ownCopies(other.levels_)), details_(ownCopies(other.details_)), factor_(other.factor_),
      interpolation_(other.interpolation_), kernelSize_(other.kernelSize_), status_(other.status_)
{
}

VRasterPyramid& VRasterPyramid::operator=(const VRasterPyramid& other)
{
    if (this != &other) {
        levels_ = ownCopies(other.levels_);
        details_ = ownCopies(other.details_);
        factor_ = other.factor_;
        interpolation_ = other.interpolation_;
        kernelSize_ = other.kernelSize_;
        status_ = other.status_;
    }
    return *this;
}
VRasterPyramid::~VRasterPyramid() = default;

bool VRasterPyramid::init(const VImage& image, int levels)
{
    clear();
    status_ = VStatus();
    downSample(image, levels);
    return true;
}

void VRasterPyramid::clear()
{
    levels_.clear();
    details_.clear();
}

void VRasterPyramid::downSample(const VImage& image, int levels)
{
    VImage work = image.convert(BGR, Channel8u);
    for (;;) {
        levels_.append(work);
        VImage smoothed;
        smoothGaussian(work, &smoothed, kernelSize_);
        const int w = work.width() / factor_, h = work.height() / factor_;
        if (w <= 31 || h <= 31)
            return;
        VImage small, expanded;
        small.create(w, h, work.format(), work.channelType(), work.origin(), work.rowsAlignment());
        expanded.create(work.width(), work.height(), work.format(), work.channelType(), work.origin(),
                        work.rowsAlignment());
        resizeImage(smoothed, &small, interpolation_);
        resizeImage(small, &expanded, interpolation_);
        const VImage work16 = work.convert(work.format(), Channel16s);
        const VImage expanded16 = expanded.convert(expanded.format(), Channel16s);
        if (work16.isEmpty()) {
            status_ = errorAt(VEXA_CALL_SITE, Issue::LibraryError) << "Can't convert a pyramid level to 16 bits";
            return;
        }
        VImage detail;
        subtractImages(work16, expanded16, &detail);
        details_.append(detail);
        // -1 never reaches 0: the size ends the pyramid.
        if (levels == 0)
            return;
        --levels;
        work = small;
    }
}

void VRasterPyramid::upSample(int level)
{
    for (int l = level; l >= 1 && l - 1 < details_.size(); --l) {
        const VImage& detail = details_.at(l - 1);
        VImage up;
        up.create(detail.width(), detail.height(), levels_.at(l).format(), levels_.at(l).channelType(),
                  levels_.at(l).origin(), levels_.at(l).rowsAlignment());
        resizeImage(levels_.at(l), &up, interpolation_);
        VImage sum;
        addImages(up.convert(up.format(), Channel16s), detail, &sum);
        levels_[l - 1] = sum.convert(sum.format(), Channel8u);
    }
}

void VRasterPyramid::restore() { upSample(int(levels_.size()) - 1); }

void VRasterPyramid::combineMostSharpness(VRasterPyramid* other)
{
    if (!other || other->levels_.size() != levels_.size() || levels_.isEmpty())
        return;
    combineImagesMaxAbs(other->levels_.last(), &levels_.last());
    for (int i = 0; i < details_.size() && i < other->details_.size(); ++i)
        combineImagesMaxAbs(other->details_.at(i), &details_[i]);
}

VImage VRasterPyramid::image() const
{
    if (levels_.isEmpty())
        return VImage();
    return levels_.first().convert(XRGB, Channel8u);
}

VStatus VRasterPyramid::status() const { return status_; }

QDataStream& operator<<(QDataStream& stream, const VRasterPyramid& pyramid)
{
    stream << qint32(pyramid.levels_.size()) << qint32(pyramid.details_.size());
    for (const VImage& level : pyramid.levels_)
        stream << level;
    for (const VImage& detail : pyramid.details_)
        stream << detail;
    return stream;
}

QDataStream& operator>>(QDataStream& stream, VRasterPyramid& pyramid)
{
    qint32 levels = 0, details = 0;
    stream >> levels >> details;
    pyramid.clear();
    // Counts beyond what any image could need are a corrupt stream, not a reason to loop for long.
    if (stream.status() != QDataStream::Ok || levels < 0 || details < 0 || levels > 64 || details > 64) {
        stream.setStatus(QDataStream::ReadCorruptData);
        return stream;
    }
    for (qint32 i = 0; i < levels + details && stream.status() == QDataStream::Ok; ++i) {
        VImage image;
        stream >> image;
        (i < levels ? pyramid.levels_ : pyramid.details_).append(image);
    }
    if (stream.status() != QDataStream::Ok)
        pyramid.clear();
    return stream;
}
