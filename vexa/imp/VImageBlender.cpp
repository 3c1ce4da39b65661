// The multifocus blender: its state machine (init, add, image, clear), the shot checks and refusals, the
// optional alignment of each shot and the dispatch to its five merges. Over 500 lines because the blender
// keeps its methods' shared state in one class; the depth-map merge's arithmetic lives in
// kernels/focus_align and kernels/focus_merge.
#include <vexa/imp/VImageBlender.h>

#include <vcore/MathUtils.h>
#include <vexa/gen/gen_copy_image.h>
#include <vexa/gen/gen_normalization.h>
#include <vexa/gen/gen_resize_image.h>
#include <vexa/gen/gen_smooth_image.h>
#include <vexa/imp/VKeypointDescriptors.h>
#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/opencv_frame.h>
#include <vexa/imp/detail/progress.h>
#include <vexa/imp/kernels/focus_merge.h>
#include <vexa/imp/kernels/luminance.h>
#include <vexa/imp/raster.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

using namespace VEXA;

namespace VEXA {
// A shot's geometry and gains, kept for alignedShot().
struct KeptShotFit {
    FocusAligner::Fit fit;
};
} // namespace VEXA

namespace {

using Xrgb = PixelXRGB<quint8>;
using Map = PixelGray<float>;

int luminance(const Xrgb& p) { return luma8(p.b, p.g, p.r); }

// 1 for each pure black pixel of the row (B = G = R = 0), else 0.
void flagBlack(const Xrgb* row, qint64 width, quint8* flags)
{
    for (qint64 x = 0; x < width; ++x)
        flags[x] = quint8((row[x].b | row[x].g | row[x].r) == 0);
}

// Each flag or-ed with its left and right neighbours, clipped at both ends.
void widenFlags(const quint8* in, qint64 width, quint8* out)
{
    out[0] = quint8(in[0] | in[width > 1 ? 1 : 0]);
    for (qint64 x = 1; x + 1 < width; ++x)
        out[x] = quint8(in[x - 1] | in[x] | in[x + 1]);
    if (width > 1)
        out[width - 1] = quint8(in[width - 2] | in[width - 1]);
}

// The four images of a merge: XRGB 8u images and GrayScale 32f maps whose rois have one size.
void checkMerge(const VImage& image, const VImage& imageSharpness, VImage* result, VImage* resultSharpness)
{
    checkSource(image);
    checkSource(imageSharpness);
    VImage& r = checkExistingDestination(result);
    VImage& rs = checkExistingDestination(resultSharpness);
    if (!isPixelOf<Xrgb>(image.format(), image.channelType()) || !isPixelOf<Xrgb>(r.format(), r.channelType()) ||
        !isPixelOf<Map>(imageSharpness.format(), imageSharpness.channelType()) ||
        !isPixelOf<Map>(rs.format(), rs.channelType()))
        throwUnsupported();
    checkSameSize(image, imageSharpness);
    checkSameSize(image, r);
    checkSameSize(image, rs);
}

// The weighted merge's walk: the four images checked, then op(image, imageSharpness, result,
// resultSharpness) for every pixel of the rois.
template <class Op>
void forEachMergePixel(const VImage& image, const VImage& imageSharpness, VImage* result, VImage* resultSharpness,
                       Op op)
{
    checkMerge(image, imageSharpness, result, resultSharpness);
    const RasterT<Xrgb> in(image), out(*result);
    const RasterT<Map> inMap(imageSharpness), outMap(*resultSharpness);
    for (qint32 y = 0; y < in.roi.height; ++y) {
        const Xrgb* s = in.row(in.roi.y + y) + in.roi.x;
        const Map* sm = inMap.row(inMap.roi.y + y) + inMap.roi.x;
        Xrgb* d = out.row(out.roi.y + y) + out.roi.x;
        Map* dm = outMap.row(outMap.roi.y + y) + outMap.roi.x;
        for (qint32 x = 0; x < in.roi.width; ++x)
            op(s[x], sm[x], d[x], dm[x]);
    }
}

// An inner step of adding a shot, checked: a failure (not a cancellation, which stays one) refuses the shot
// with the step named and the step's own reason.
void stepSucceeded(const char* step, const VStatus& status)
{
    if (status)
        return;
    checkCancelled();
    dip_exception refusal("The shot could not be merged");
    refusal.setReason(std::string(step) + " failed: " + status.reason().toStdString());
    throw refusal;
}

VImage sharpnessOf(const VImage& shot)
{
    VImage map;
    map.create(shot.width(), shot.height(), GrayScale, Channel32f, shot.origin(), shot.rowsAlignment());
    map.setRoi(shot.roi());
    contrastImage(shot, &map, 1, 3);
    return map;
}

VImage blankImage(long width, long height, Format format, Channel channel, Origin origin,
                  RowsAlign align = RowsAlignNone)
{
    VImage image;
    image.create(width, height, format, channel, origin, align);
    if (image.status() && !image.isEmpty())
        std::memset(image.rawData(), 0, size_t(image.dataSize()));
    return image;
}

// The layouts the depth-map merge takes at their own depth; others are merged in XRGB 8u.
bool mergedAsItStands(Format format, Channel channel)
{
    return (format == GrayScale || format == BGR || format == XRGB || format == ARGB) &&
           (channel == Channel8u || channel == Channel16u || channel == Channel32f);
}

Channel depthChannel(const VImageHeader& shape)
{
    return mergedAsItStands(shape.format, shape.channelType) ? shape.channelType : Channel8u;
}

// A shot's planes at its own depth: one for gray, blue-green-red for colour. Gray and BGR shots are read
// in place (never written: the merge only reads its shots); a fourth component is dropped into planes of
// their own.
cv::Mat shotPlanes(const VImage& image)
{
    const VImage shot =
        mergedAsItStands(image.format(), image.channelType()) ? image : image.convertScaled(XRGB, Channel8u);
    if (shot.isEmpty())
        throw dip_exception("The shot's layout cannot be merged");
    const cv::Mat m = asCvMat(shot);
    if (m.channels() != 4)
        return m;
    cv::Mat planes;
    cv::cvtColor(m, planes, cv::COLOR_BGRA2BGR);
    return planes;
}

QString layoutName(Format format, Channel channel)
{
    return QStringLiteral("%1 %2").arg(QString::fromStdString(formatInfo(format).name),
                                       QString::fromStdString(channelInfo(channel).name));
}

QString describe(const VImageHeader& h)
{
    return QStringLiteral("%1x%2 %3").arg(h.width).arg(h.height).arg(layoutName(h.format, h.channelType));
}

std::string refusal(const VImage& shot, const VImageHeader& first)
{
    const VImageHeader h = shot.header();
    const QString what = h.width != first.width || h.height != first.height ? QStringLiteral("size")
                         : h.format != first.format || h.channelType != first.channelType
                             ? QStringLiteral("layout")
                             : QStringLiteral("origin or row alignment");
    return QStringLiteral("The shot's %1 differs from the first shot's: %2 against %3")
        .arg(what, describe(h), describe(first))
        .toStdString();
}

// A roi of another size than the first shot's, for the depth map, which merges the shots' rois.
std::string roiRefusal(const QSize& roi, const QSize& first)
{
    return QStringLiteral("The shot's size differs from the first shot's: a roi of %1x%2 against %3x%4")
        .arg(roi.width())
        .arg(roi.height())
        .arg(first.width())
        .arg(first.height())
        .toStdString();
}

// The roi as the merges read it: clipped to the image.
QSize clippedRoiSize(const VImage& image)
{
    const Rect r = clipRect(image.roiRect(), qint32(image.width()), qint32(image.height()));
    return QSize(r.width, r.height);
}

// What the pyramid's conversion to BGR 8u, the layout its levels are built in, takes.
using PyramidShotPixels = PixelList<PixelBGR<quint8>, Xrgb, PixelARGBP<quint8>, PixelYUV422<quint8>>;

// The first shot's layout must be one the method merges, so that no later shot is taken without being
// merged: XRGB 8u for the two running sharpness merges, and for the pyramid the 8u layouts convertImage()
// turns into BGR 8u, the layout its levels are built in. MultifocusWeightedAll takes any layout (image()
// then gives the first shot); the depth map converts what it can as it reads the shot.
void checkMethodTakes(VImageBlender::MultifocusMethod method, const VImage& shot)
{
    const Format format = shot.format();
    const Channel channel = shot.channelType();
    const char* takes = nullptr;
    switch (method) {
    case VImageBlender::MultifocusMaxSharpness:
        takes = isPixelOf<Xrgb>(format, channel) ? nullptr : "MultifocusMaxSharpness merges XRGB 8u shots";
        break;
    case VImageBlender::MultifocusWeighted:
        takes = isPixelOf<Xrgb>(format, channel) ? nullptr : "MultifocusWeighted merges XRGB 8u shots";
        break;
    case VImageBlender::MultifocusPyramid:
        takes =
            supports(PyramidShotPixels{}, format, channel)
                ? nullptr
                : "MultifocusPyramid merges 8u shots that convert to BGR 8u (BGR, XRGB, ARGB_Premultiplied, YUV422)";
        break;
    default: break; // MultifocusWeightedAll and MultifocusDepthMap
    }
    if (takes)
        throw dip_exception(QStringLiteral("The shot's layout cannot be merged: %1, not %2")
                                .arg(QLatin1String(takes), layoutName(format, channel))
                                .toStdString());
}

// What the blender reports of a shot's fit; the gains only where the merge applies them (the depth map).
VImageBlender::ShotFit shotFit(const FocusAligner::Fit& found, bool withGains)
{
    VImageBlender::ShotFit fit;
    if (withGains)
        std::copy(found.gains.begin(), found.gains.end(), fit.gains);
    const cv::Matx23d& g = found.global;
    fit.transform = QTransform(g(0, 0), g(1, 0), g(0, 1), g(1, 1), g(0, 2), g(1, 2));
    fit.localShift = found.localShift;
    fit.resampled = found.moves;
    return fit;
}

} // namespace

namespace VEXA {

VStatus multifocusImages(const VImage& image, const VImage& imageSharpness, VImage* result, VImage* resultSharpness)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const Uninterruptible atomic("merging");
        checkMerge(image, imageSharpness, result, resultSharpness);
        const RasterT<Xrgb> in(image), out(*result);
        const RasterT<Map> inMap(imageSharpness), outMap(*resultSharpness);
        const qint32 width = in.roi.width, height = in.roi.height;
        // The black pixels of the rows above, at and below the current one, flagged once per row, so that
        // the 3 x 3 test is three ORs instead of nine reads a pixel.
        std::vector<quint8> flags(static_cast<size_t>(width) * 3), column(static_cast<size_t>(width)),
            near(static_cast<size_t>(width));
        const auto flagRow = [&](qint32 y) {
            flagBlack(in.row(in.roi.y + y) + in.roi.x, width, flags.data() + size_t(width) * size_t(y % 3));
        };
        const auto flagsOf = [&](qint32 y) { return flags.data() + size_t(width) * size_t(y % 3); };
        flagRow(0);
        for (qint32 y = 0; y < height; ++y) {
            if (y + 1 < height)
                flagRow(y + 1);
            // Clipped to the image: a missing row counts as the current one.
            const quint8* above = flagsOf(y > 0 ? y - 1 : y);
            const quint8* at = flagsOf(y);
            const quint8* below = flagsOf(y + 1 < height ? y + 1 : y);
            for (qint32 x = 0; x < width; ++x)
                column[size_t(x)] = above[x] | at[x] | below[x];
            widenFlags(column.data(), width, near.data());
            const Xrgb* s = in.row(in.roi.y + y) + in.roi.x;
            const Map* sm = inMap.row(inMap.roi.y + y) + inMap.roi.x;
            Xrgb* d = out.row(out.roi.y + y) + out.roi.x;
            Map* dm = outMap.row(outMap.roi.y + y) + outMap.roi.x;
            // Ties go to the image; so does a NaN on either side, as in "not smaller". Whole pixels and their
            // sharpness are chosen by bit masks, so that the loop vectorises.
            for (qint32 x = 0; x < width; ++x) {
                const quint32 take = 0u - quint32(!(sm[x].gray < dm[x].gray) & !near[size_t(x)]);
                quint32 from, to, fromMap, toMap;
                std::memcpy(&from, &s[x], 4);
                std::memcpy(&to, &d[x], 4);
                std::memcpy(&fromMap, &sm[x], 4);
                std::memcpy(&toMap, &dm[x], 4);
                to = (from & take) | (to & ~take);
                toMap = (fromMap & take) | (toMap & ~take);
                std::memcpy(&d[x], &to, 4);
                std::memcpy(&dm[x], &toMap, 4);
            }
        }
        return VStatus::Ok;
    });
}

VStatus multifocusImagesWeighted(const VImage& image, const VImage& imageSharpness, VImage* result,
                                 VImage* resultSharpness)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const Uninterruptible atomic("merging");
        forEachMergePixel(
            image, imageSharpness, result, resultSharpness, [](const Xrgb& s, const Map& sm, Xrgb& d, Map& dm) {
                if (luminance(d) < 3) {
                    d = s;
                } else if (luminance(s) > 3) {
                    const double wi = sm.gray, wr = dm.gray;
                    quint8* dc = &d.b;
                    const quint8* sc = &s.b;
                    for (int c = 2; c >= 0; --c) // red, green, blue
                        dc[c] = std::abs(wi + wr) > 0.0 ? MathUtils::bound8u((wi * sc[c] + wr * dc[c]) / (wi + wr))
                                                        : quint8((dc[c] + sc[c]) >> 1);
                }
                dm.gray = std::max(dm.gray, sm.gray);
            });
        // The map follows the merged pixels.
        return contrastImage(*result, resultSharpness, 1, 3);
    });
}

} // namespace VEXA

VImageBlender::VImageBlender(MultifocusMethod method, bool alignByKeypoints, bool stabilizeLocally)
    : method_(method), alignByKeypoints_(alignByKeypoints), stabilizeLocally_(stabilizeLocally)
{
}

VImageBlender::VImageBlender(MultifocusMethod method, Alignment alignment) { init(method, alignment); }

VImageBlender::VImageBlender(const VImageBlender& other) { deepCopyFrom(other); }

VImageBlender& VImageBlender::operator=(const VImageBlender& other)
{
    if (this != &other)
        deepCopyFrom(other);
    return *this;
}

VImageBlender::~VImageBlender() = default;

void VImageBlender::deepCopyFrom(const VImageBlender& other)
{
    const auto own = [](const VImage& image) { return image.isEmpty() ? image : image.copy(); };
    initialized_ = other.initialized_;
    sharpness_ = own(other.sharpness_);
    result_ = own(other.result_);
    count_ = other.count_;
    method_ = other.method_;
    alignByKeypoints_ = other.alignByKeypoints_;
    stabilizeLocally_ = other.stabilizeLocally_;
    pyramid_ = other.pyramid_;
    pairs_ = other.pairs_; // never written after they are stored
    autoAlign_ = other.autoAlign_;
    depth_ = own(other.depth_);
    depthMerge_ = other.depthMerge_ ? std::make_shared<FocusDepthMerge>(other.depthMerge_->copy()) : nullptr;
    depthFinished_ = other.depthFinished_;
    aligner_ = other.aligner_ ? std::make_shared<FocusAligner>(*other.aligner_) : nullptr;
    fits_ = other.fits_;
    fitFound_ = other.fitFound_;
    keepFits_ = other.keepFits_;
    keptFits_ = other.keptFits_; // never written after they are stored
    lastStatus_ = other.lastStatus_;
    addStatus_ = other.addStatus_;
    shape_ = other.shape_;
    roiSize_ = other.roiSize_;
    reference_ = other.reference_; // never written after it is stored
}

bool VImageBlender::init(MultifocusMethod method, bool alignByKeypoints, bool stabilizeLocally)
{
    clear();
    method_ = method;
    alignByKeypoints_ = alignByKeypoints;
    stabilizeLocally_ = stabilizeLocally;
    autoAlign_ = false;
    count_ = 0;
    return true;
}

bool VImageBlender::init(MultifocusMethod method, Alignment alignment)
{
    init(method, alignment == AlignKeypoints || alignment == AlignKeypointsAndLocal,
         alignment == AlignLocal || alignment == AlignKeypointsAndLocal);
    autoAlign_ = alignment == AlignAuto;
    return true;
}

VImageBlender::Alignment VImageBlender::alignment() const
{
    if (autoAlign_)
        return AlignAuto;
    return Alignment((alignByKeypoints_ ? AlignKeypoints : 0) | (stabilizeLocally_ ? AlignLocal : 0));
}

void VImageBlender::clear()
{
    result_ = VImage();
    sharpness_ = VImage();
    pyramid_.clear();
    pairs_.clear();
    depth_ = VImage();
    depthMerge_.reset();
    depthFinished_ = false;
    aligner_.reset();
    fits_.clear();
    keptFits_.clear();
    lastStatus_ = VStatus::Ok;
    addStatus_ = VStatus::Ok;
    shape_ = VImageHeader();
    roiSize_ = QSize();
    reference_ = VImage();
    initialized_ = false;
    count_ = 0;
}

bool VImageBlender::init(const VImage& image)
{
    checkMethodTakes(method_, image);
    shape_ = image.header();
    roiSize_ = clippedRoiSize(image);
    // The other methods take the first shot as it stands; the depth map shows its fit as it merges it.
    if (fitFound_ && method_ != MultifocusDepthMap)
        fitFound_(ShotFit());
    // The depth-map merge lives in its running state until image() asks for it.
    result_ = method_ == MultifocusDepthMap ? VImage() : image.copy();
    switch (method_) {
    case MultifocusPyramid:
        pyramid_.init(image, -1);
        stepSucceeded("building the shot's pyramid", pyramid_.status());
        break;
    case MultifocusMaxSharpness:
    case MultifocusWeighted: sharpness_ = sharpnessOf(result_); break;
    case MultifocusWeightedAll:
        sharpness_ = sharpnessOf(result_);
        pairs_.append({result_, sharpness_});
        break;
    case MultifocusDepthMap:
        // Aligning by keypoints or locally, the later shots are whole copies: so is the first.
        if (alignByKeypoints_ || stabilizeLocally_)
            reference_ = image.copy();
        if (!addToDepthMap(reference_.isEmpty() ? image : reference_, 0, false))
            return false;
        break;
    }
    if (autoAlign_ && method_ != MultifocusDepthMap) {
        // Fitted to the whole first shot, as the later shots are fitted whole.
        aligner_ = std::make_shared<FocusAligner>();
        aligner_->start(shotPlanes(result_));
    }
    if (method_ != MultifocusDepthMap) {
        fits_.append(ShotFit());
        keepFit({});
    }
    if (VEXA::isCancelled())
        return false;
    initialized_ = true;
    count_ = 1;
    return true;
}

bool VImageBlender::addImage(const VImage& image)
{
    // Cancellation arrives as an exception from the checkpoints, always before the state changes; every
    // refusal is an exception too, so that its reason reaches lastStatus().
    const VStatus status = guarded(VEXA_CALL_SITE, [&] {
        checkSource(image);
        checkCancelled();
        if (!add(image)) {
            checkCancelled();
            throw dip_exception("The shot could not be merged");
        }
        return VStatus::Ok;
    });
    // A first shot that did not make it leaves no half-made start behind.
    if (!status && !initialized_)
        clear();
    lastStatus_ = addStatus_ = status;
    return bool(status);
}

bool VImageBlender::add(const VImage& image)
{
    if (!initialized_)
        return init(image);
    checkShape(image);
    const VImage& target = method_ == MultifocusDepthMap ? reference_ : result_;
    // The depth-map merge only reads an unaligned shot: it takes it as it stands, without a copy.
    const bool aligning = alignByKeypoints_ || stabilizeLocally_ || (autoAlign_ && method_ != MultifocusDepthMap);
    VImage shot = method_ == MultifocusDepthMap && !aligning ? image : image.copy();
    ProgressSteps steps("merging");
    // Where the merge's own steps start: alignment takes the first part.
    const double start = aligning ? 0.3 : 0.0;
    const auto step = [&](double part) { steps.to(start + (1.0 - start) * part); };
    if (alignByKeypoints_) {
        bool found = false;
        steps.to(0.1);
        const VKeypointDescriptors targetPoints(target);
        steps.to(0.2);
        const VTransformPerspective t = findTransformation(targetPoints, VKeypointDescriptors(shot), &found);
        steps.to(0.3);
        // No homography found, or the identity: the shot is taken as it stands, never resampled for nothing.
        if (found && !isIdentity(t)) {
            VImage warped = shot.createCompatible();
            std::memset(warped.rawData(), 0, size_t(warped.dataSize()));
            stepSucceeded("warping the shot onto its keypoint match", warpPerspectiveImage(shot, &warped, t));
            shot = warped;
        }
    }
    if (stabilizeLocally_)
        stabilizeLocal(target, &shot);
    // The depth-map merge aligns automatically as it merges; the others take the shot fitted here, its
    // uncovered pixels black, and the chain moves on only once the shot is merged.
    FocusAligner::Fit autoFit;
    ShotFit report;
    if (autoAlign_ && method_ != MultifocusDepthMap) {
        autoFit = aligner_->fit(shotPlanes(shot));
        steps.to(0.3);
        report = shotFit(autoFit, false);
        if (report.resampled) {
            VImage aligned = shot.createCompatible();
            cv::Mat out = asCvMat(aligned);
            writeInto(out, [&](cv::Mat& dst) { applyFit(asCvMat(shot), autoFit, cv::BORDER_CONSTANT, dst); });
            shot = aligned;
        }
    }
    if (fitFound_ && method_ != MultifocusDepthMap)
        fitFound_(report);
    // Everything so far was done aside; from here each method measures aside, then changes its state in
    // one step that a cancellation does not cut.
    switch (method_) {
    case MultifocusPyramid: {
        // The merge is built in the shot's own pyramid and taken whole.
        VRasterPyramid p;
        step(0.5);
        p.init(shot, -1);
        stepSucceeded("building the shot's pyramid", p.status());
        step(0.6);
        if (!p.takeMostSharpness(pyramid_))
            stepSucceeded("merging the shot's pyramid", p.status());
        step(0.9);
        p.restore();
        stepSucceeded("restoring the merged pyramid", p.status());
        step(1.0);
        const VImage merged = p.image();
        if (merged.isEmpty() || VEXA::isCancelled())
            return false;
        pyramid_ = std::move(p);
        result_ = merged;
        break;
    }
    case MultifocusMaxSharpness:
    case MultifocusWeighted: {
        step(0.7);
        const VImage shotSharpness = sharpnessOf(shot);
        step(1.0);
        if (handedOut_) {
            result_ = result_.copy();
            handedOut_ = false;
        }
        const VStatus merged = method_ == MultifocusMaxSharpness
                                   ? multifocusImages(shot, shotSharpness, &result_, &sharpness_)
                                   : multifocusImagesWeighted(shot, shotSharpness, &result_, &sharpness_);
        // Both merges check their images, and a cancellation, before they write: a failure there leaves the
        // result as it was. Only the weighted merge's fresh map, measured after, can fail later (out of memory).
        stepSucceeded("merging the shot", merged);
        break;
    }
    case MultifocusWeightedAll: {
        step(1.0);
        const VImage shotSharpness = sharpnessOf(shot);
        if (VEXA::isCancelled())
            return false;
        pairs_.append({shot, shotSharpness});
        break;
    }
    case MultifocusDepthMap:
        step(1.0);
        if (!addToDepthMap(shot, count_, aligning))
            return false;
        break;
    }
    if (aligner_) {
        aligner_->commit(autoFit);
        fits_.append(report);
        keepFit({geometryOf(autoFit)});
    } else if (method_ != MultifocusDepthMap) {
        fits_.append(ShotFit());
        keepFit({});
    }
    ++count_;
    return true;
}

VImage VImageBlender::image()
{
    // No exception leaves the blender: what cannot be made gives no image, and its reason in lastStatus().
    const VStatus status = guarded(VEXA_CALL_SITE, [&] {
        if (method_ == MultifocusWeightedAll && !pairs_.isEmpty())
            averageAllPairs();
        if (method_ == MultifocusDepthMap && initialized_)
            finishDepthMap();
        return VStatus::Ok;
    });
    setViewStatus(status);
    if (!status)
        return VImage();
    handedOut_ = true;
    return result_;
}

VImage VImageBlender::depthMap()
{
    const bool made = method_ == MultifocusDepthMap && initialized_ && depthMerge_;
    // Made only when asked for, so that a merge that wants no depth map never holds one.
    const VStatus status = guarded(VEXA_CALL_SITE, [&] {
        if (made && depth_.isEmpty()) {
            const cv::Mat& index = depthMerge_->index();
            VImage depth = blankImage(index.cols, index.rows, GrayScale, Channel16u, shape_.origin);
            if (depth.isEmpty())
                throw std::bad_alloc();
            cv::Mat out = asCvMat(depth);
            writeInto(out, [&](cv::Mat& dst) { index.convertTo(dst, CV_16U); });
            depth_ = depth;
        }
        return VStatus::Ok;
    });
    setViewStatus(status);
    return made && status ? depth_ : VImage();
}

void VImageBlender::setViewStatus(const VStatus& status)
{
    // A failure is told until the next call; a success puts back what the last shot left.
    lastStatus_ = status ? addStatus_ : status;
}

void VImageBlender::checkShape(const VImage& image) const
{
    if (!(image.header() == shape_))
        throw dip_exception(refusal(image, shape_));
    // The depth map reads each shot's roi, unless it aligns by keypoints or locally (on whole copies).
    if (method_ == MultifocusDepthMap && !alignByKeypoints_ && !stabilizeLocally_) {
        const QSize roi = clippedRoiSize(image);
        if (roi != roiSize_)
            throw dip_exception(roiRefusal(roi, roiSize_));
    }
}

bool VImageBlender::isIdentity(const VTransformPerspective& t) const
{
    // Within a thousandth of a pixel at every corner of the result.
    const QTransform q = t.qTransform();
    const double w = shape_.width, h = shape_.height;
    for (const QPointF& p : {QPointF(0, 0), QPointF(w, 0), QPointF(0, h), QPointF(w, h)}) {
        const QPointF m = q.map(p);
        if (!(std::abs(m.x() - p.x()) < 1e-3 && std::abs(m.y() - p.y()) < 1e-3))
            return false;
    }
    return true;
}

void VImageBlender::averageAllPairs()
{
    if (!isPixelOf<Xrgb>(result_.format(), result_.channelType()))
        return;
    // Into a block of its own: result_ starts as the first shot, whose pixels the average still needs.
    VImage merged = pairs_.first().first.copy();
    const RasterT<Xrgb> out(merged);
    QList<RasterT<Xrgb>> shots;
    QList<RasterT<Map>> maps;
    for (const auto& [shot, map] : pairs_) {
        if (!isPixelOf<Xrgb>(shot.format(), shot.channelType()) || !isPixelOf<Map>(map.format(), map.channelType()) ||
            shot.width() != result_.width() || shot.height() != result_.height() || map.width() != result_.width() ||
            map.height() != result_.height())
            return;
        shots.append(RasterT<Xrgb>(shot));
        maps.append(RasterT<Map>(map));
    }
    for (qint32 y = 0; y < out.height; ++y) {
        // Checked every 16 rows: the pairs' whole stack is read for each row. Cancelled, nothing changes.
        if (y % 16 == 0) {
            checkCancelled();
            reportProgress(double(y) / out.height, "averaging");
        }
        Xrgb* d = out.row(y);
        for (qint32 x = 0; x < out.width; ++x) {
            double total = 0.0, sum[3] = {0.0, 0.0, 0.0};
            for (int k = 0; k < shots.size(); ++k) {
                const double w = std::abs(double(maps[k].row(y)[x].gray));
                const Xrgb& p = shots[k].row(y)[x];
                total += w;
                sum[0] += w * p.b;
                sum[1] += w * p.g;
                sum[2] += w * p.r;
            }
            if (total == 0.0)
                continue;
            d[x].r = MathUtils::bound8u(sum[2] / total);
            d[x].g = MathUtils::bound8u(sum[1] / total);
            d[x].b = MathUtils::bound8u(sum[0] / total);
        }
    }
    result_ = merged;
}

bool VImageBlender::addToDepthMap(const VImage& image, int index, bool alignedBlack)
{
    if (!depthMerge_)
        depthMerge_ = std::make_shared<FocusDepthMerge>(autoAlign_);
    cv::Mat planes = shotPlanes(image), covered;
    if (alignedBlack) {
        // Pixels that the keypoint or local alignment left black carry no data, nor do their neighbours.
        cv::compare(grayOf(planes), 0, covered, cv::CMP_GT);
        cv::erode(covered, covered, cv::Mat());
    }
    // Handed over: planes of their own are freed as soon as the merge has aligned them.
    const auto found = [this](const FocusAligner::Fit& fit) { fitFound_(shotFit(fit, true)); };
    const FocusAligner::Fit added = depthMerge_->add(
        std::move(planes), index, covered, fitFound_ ? found : std::function<void(const FocusAligner::Fit&)>());
    fits_.append(shotFit(added, true));
    keepFit({added});
    depthFinished_ = false;
    depth_ = VImage();
    return true;
}

void VImageBlender::keepFit(const KeptShotFit& fit)
{
    const bool kept = keepFits_ && !alignByKeypoints_ && !stabilizeLocally_;
    keptFits_.append(kept ? std::make_shared<const KeptShotFit>(fit) : nullptr);
}

VStatus VImageBlender::alignedShot(const VImage& shot, int index, VImage* aligned) const
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(shot);
        VImage& out = checkDestination(aligned);
        if (index < 0 || index >= keptFits_.size())
            throw dip_exception("No shot of that number was merged");
        if (!keptFits_.at(index))
            throw dip_exception("The shot's fit was not kept");
        checkShape(shot);
        const FocusAligner::Fit& fit = keptFits_.at(index)->fit;
        if (method_ != MultifocusDepthMap) {
            // As add() reads and fits the shot: whole, whatever its roi, uncovered pixels black.
            const VImage whole = shot.copy();
            if (!fit.moves) { // taken as it stood
                out = whole;
                return VStatus::Ok;
            }
            VImage made = whole.createCompatible();
            cv::Mat to = asCvMat(made);
            writeInto(to, [&](cv::Mat& dst) { applyFit(asCvMat(whole), fit, cv::BORDER_CONSTANT, dst); });
            out = made;
            return VStatus::Ok;
        }
        cv::Mat moved, matched; // a shot that does not move is read where it stands: never written
        applyFit(shotPlanes(shot), fit, cv::BORDER_REPLICATE, moved);
        cv::multiply(moved, cv::Scalar(fit.gains[0], fit.gains[1], fit.gains[2]), matched, 1.0, moved.depth());
        moved = matched;
        const bool gray = shape_.format == GrayScale;
        VImage made = blankImage(moved.cols, moved.rows, gray ? GrayScale : XRGB, depthChannel(shape_), shape_.origin,
                                 shape_.rowsAlignment);
        if (made.isEmpty())
            throw dip_exception("Not enough memory for the aligned shot");
        cv::Mat to = asCvMat(made);
        writeInto(to, [&](cv::Mat& dst) {
            if (gray)
                moved.copyTo(dst);
            else
                cv::cvtColor(moved, dst, cv::COLOR_BGR2BGRA); // X at the type's full scale, as image()
        });
        out = made;
        return VStatus::Ok;
    });
}

void VImageBlender::finishDepthMap()
{
    if (depthFinished_ || !depthMerge_ || depthMerge_->empty())
        return;
    const bool gray = shape_.format == GrayScale;
    const Channel channel = depthChannel(shape_);
    const cv::Mat coarse = depthMerge_->coarse();
    const cv::Size size = depthMerge_->index().size();
    // A fresh block each time, of the shots' roi: an image handed out earlier keeps its pixels.
    VImage merged =
        blankImage(size.width, size.height, gray ? GrayScale : XRGB, channel, shape_.origin, shape_.rowsAlignment);
    if (merged.isEmpty())
        throw std::bad_alloc();
    // A band of rows at a time: the result is never made whole but in the shots' units.
    const cv::Mat out = asCvMat(merged);
    cv::Mat typed;
    for (int y = 0; y < out.rows; y += 64) {
        const int last = std::min(out.rows, y + 64);
        depthMerge_->toShotUnits(coarse, y, last, cvDepthOf(channel), typed);
        cv::Mat rows = out.rowRange(y, last);
        writeInto(rows, [&](cv::Mat& dst) {
            if (gray)
                typed.copyTo(dst);
            else
                cv::cvtColor(typed, dst, cv::COLOR_BGR2BGRA); // X at the type's full scale
        });
    }
    result_ = merged;
    depthFinished_ = true;
}
