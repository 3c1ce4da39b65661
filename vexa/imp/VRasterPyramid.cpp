#include <vexa/imp/VRasterPyramid.h>

#include <vexa/gen/gen_math_image.h>
#include <vexa/gen/gen_resize_image.h>
#include <vexa/gen/gen_smooth_image.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/progress.h>
#include <vexa/imp/kernels/math_image.h>

#include <cmath>

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
VRasterPyramid::VRasterPyramid(VRasterPyramid&& other) noexcept = default;
VRasterPyramid& VRasterPyramid::operator=(VRasterPyramid&& other) noexcept = default;
VRasterPyramid::~VRasterPyramid() = default;

bool VRasterPyramid::init(const VImage& image, int levels)
{
    // Built aside, so that a cancelled build leaves the pyramid as it was.
    QList<VImage> newLevels, newDetails;
    status_ = VStatus();
    const VStatus built = guarded(VEXA_CALL_SITE, [&] {
        downSample(image, levels, newLevels, newDetails);
        return VStatus::Ok;
    });
    if (!built) {
        status_ = built;
        return true;
    }
    levels_ = newLevels;
    details_ = newDetails;
    return true;
}

void VRasterPyramid::clear()
{
    levels_.clear();
    details_.clear();
}

void VRasterPyramid::downSample(const VImage& image, int levels, QList<VImage>& levels_, QList<VImage>& details_)
{
    // Each level has a quarter of the pixels of the one before: the first is three quarters of the work.
    double done = 0.0, share = 0.75;
    ProgressSteps steps("building the pyramid");
    const auto step = [&](double part) { steps.to(std::min(done + share * part, 1.0)); };
    step(0.1);
    // The pyramid covers the whole image: levels of shots with different rois still line up.
    VImage work = image.convert(BGR, Channel8u);
    work.resetRoi();
    for (;;) {
        step(0.3);
        levels_.append(work);
        VImage smoothed;
        smoothGaussian(work, &smoothed, kernelSize_);
        step(0.6);
        const int w = work.width() / factor_, h = work.height() / factor_;
        if (w <= 31 || h <= 31) {
            steps.to(1.0);
            return;
        }
        VImage small, expanded;
        small.create(w, h, work.format(), work.channelType(), work.origin(), work.rowsAlignment());
        expanded.create(work.width(), work.height(), work.format(), work.channelType(), work.origin(),
                        work.rowsAlignment());
        resizeImage(smoothed, &small, interpolation_);
        resizeImage(small, &expanded, interpolation_);
        step(0.8);
        const VImage work16 = work.convert(work.format(), Channel16s);
        const VImage expanded16 = expanded.convert(expanded.format(), Channel16s);
        step(0.9);
        if (work16.isEmpty()) {
            status_ = errorAt(VEXA_CALL_SITE, Issue::LibraryError) << "Can't convert a pyramid level to 16 bits";
            return;
        }
        VImage detail;
        subtractImages(work16, expanded16, &detail);
        step(1.0);
        details_.append(detail);
        // -1 never reaches 0: the size ends the pyramid.
        if (levels == 0) {
            steps.to(1.0);
            return;
        }
        --levels;
        work = small;
        done += share;
        share /= 4;
    }
}

void VRasterPyramid::upSample(int level)
{
    // Into a list of its own: the levels change only once every one is rebuilt.
    QList<VImage> levels = levels_;
    const VStatus restored = guarded(VEXA_CALL_SITE, [&] {
        // The finest level costs three quarters of the work, the next a quarter of that, and so on.
        // Coarse levels first: the finest is three quarters of the work, the next a quarter of that, ...
        double done = 0.0;
        ProgressSteps steps("restoring the pyramid");
        for (int l = level; l >= 1 && l - 1 < details_.size(); --l) {
            const double share = 0.75 * std::pow(0.25, l - 1);
            const auto step = [&](double part) { steps.to(std::min(done + share * part, 1.0)); };
            step(0.0);
            const VImage& detail = details_.at(l - 1);
            VImage up;
            up.create(detail.width(), detail.height(), levels.at(l).format(), levels.at(l).channelType(),
                      levels.at(l).origin(), levels.at(l).rowsAlignment());
            resizeImage(levels.at(l), &up, interpolation_);
            step(0.3);
            const VImage up16 = up.convert(up.format(), Channel16s);
            step(0.5);
            VImage sum;
            addImages(up16, detail, &sum);
            step(0.7);
            levels[l - 1] = sum.convert(sum.format(), Channel8u);
            step(1.0);
            done += share;
        }
        steps.to(1.0);
        return VStatus::Ok;
    });
    if (restored)
        levels_ = levels;
    else
        status_ = restored;
}

void VRasterPyramid::restore() { upSample(int(levels_.size()) - 1); }

bool VRasterPyramid::takeMostSharpness(const VRasterPyramid& kept)
{
    if (kept.levels_.size() != levels_.size() || levels_.isEmpty())
        return true;
    // The merge walks both pyramids coefficient by coefficient: one of another shape is another depth too.
    const auto sameShapes = [](const QList<VImage>& a, const QList<VImage>& b) {
        for (int i = 0; i < a.size() && i < b.size(); ++i)
            if (!a.at(i).isCompatible(b.at(i)) || a.at(i).roi() != b.at(i).roi())
                return false;
        return true;
    };
    if (!sameShapes(kept.levels_, levels_) || !sameShapes(kept.details_, details_))
        return true;
    const VStatus taken = guarded(VEXA_CALL_SITE, [&] {
        // Written in place, as combineMostSharpness writes its own.
        const auto take = [](const VImage& keptImage, VImage& mine) {
            checkCancelled();
            return dispatchSame(MaxAbsPixels{}, keptImage, mine, [](const auto& k, const auto& m) {
                using T = typename PixelTraits<typename std::decay_t<decltype(m)>::PixelType>::Component;
                kernel::mapColours(m, k, m, false, [](T own, T other) {
                    return std::fabs(double(own)) > std::fabs(double(other)) ? own : other;
                });
                return VStatus::Ok;
            });
        };
        take(kept.levels_.last(), levels_.last());
        for (int i = 0; i < details_.size() && i < kept.details_.size(); ++i)
            take(kept.details_.at(i), details_[i]);
        return VStatus::Ok;
    });
    if (!taken)
        status_ = taken;
    return bool(taken);
}

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
