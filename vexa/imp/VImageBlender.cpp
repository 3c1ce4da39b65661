#include <vexa/imp/VImageBlender.h>

#include <vexa/gen/gen_copy_image.h>
#include <vexa/gen/gen_normalization.h>
#include <vexa/gen/gen_resize_image.h>
#include <vexa/gen/gen_smooth_image.h>
#include <vexa/imp/VKeypointDescriptors.h>
#include <vexa/imp/dispatch.h>
#include <vexa/imp/frame.h>
#include <vexa/imp/progress.h>
#include <vexa/imp/raster.h>
#include <vexa/imp/simd/row_kernels.h>
#include <vcore/MathUtils.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

using namespace VEXA;

namespace {

using Xrgb = PixelXRGB<quint8>;
using Map = PixelGray<float>;

int luminance(const Xrgb& p) { return (29 * p.b + 150 * p.g + 76 * p.r) >> 8; }

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

// A merge written in place runs whole: checked before it starts, then deaf to cancellation (its inner
// operations included) until it is done, so that a cancelled merge has written nothing.
class AtomicMerge {
public:
    AtomicMerge() = default;
    ~AtomicMerge()
    {
        if (outer_)
            outer_->report(1.0, QStringLiteral("merging"));
    }
    AtomicMerge(const AtomicMerge&) = delete;
    AtomicMerge& operator=(const AtomicMerge&) = delete;

private:
    static VProgress* checkedCurrent()
    {
        checkCancelled();
        return VProgressScope::current();
    }
    VProgress* outer_ = checkedCurrent(); // before none_ hides it
    VProgressScope none_{nullptr};
};

VImage sharpnessOf(const VImage& shot)
{
    VImage map;
    map.create(shot.width(), shot.height(), GrayScale, Channel32f, shot.origin(), shot.rowsAlignment());
    map.setRoi(shot.roi());
    contrastImage(shot, &map, 1, 3);
    return map;
}

} // namespace

namespace VEXA {

VStatus multifocusImages(const VImage& image, const VImage& imageSharpness, VImage* result, VImage* resultSharpness)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const AtomicMerge atomic;
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
        const AtomicMerge atomic;
        forEachMergePixel(image, imageSharpness, result, resultSharpness,
                          [](const Xrgb& s, const Map& sm, Xrgb& d, Map& dm) {
                              if (luminance(d) < 3) {
                                  d = s;
                              } else if (luminance(s) > 3) {
                                  const double wi = sm.gray, wr = dm.gray;
                                  quint8* dc = &d.b;
                                  const quint8* sc = &s.b;
                                  for (int c = 2; c >= 0; --c) // red, green, blue
                                      dc[c] = std::abs(wi + wr) > 0.0
                                                  ? MathUtils::bound8u((wi * sc[c] + wr * dc[c]) / (wi + wr))
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
    depth_ = own(other.depth_);
    depthState_ = DepthState{own(other.depthState_.mean), own(other.depthState_.weights), own(other.depthState_.best),
                             own(other.depthState_.index), other.depthState_.finished, cv::Mat()};
    shape_ = other.shape_;
    reference_ = other.reference_; // never written after it is stored
}

bool VImageBlender::init(MultifocusMethod method, bool alignByKeypoints, bool stabilizeLocally)
{
    clear();
    method_ = method;
    alignByKeypoints_ = alignByKeypoints;
    stabilizeLocally_ = stabilizeLocally;
    count_ = 0;
    return true;
}

void VImageBlender::clear()
{
    result_ = VImage();
    sharpness_ = VImage();
    pyramid_.clear();
    pairs_.clear();
    depth_ = VImage();
    depthState_ = DepthState();
    shape_ = VImageHeader();
    reference_ = VImage();
    initialized_ = false;
    count_ = 0;
}

bool VImageBlender::init(const VImage& image)
{
    shape_ = image.header();
    // The depth-map merge lives in its running state until image() asks for it.
    result_ = method_ == MultifocusDepthMap ? VImage() : image.copy();
    switch (method_) {
    case MultifocusPyramid: pyramid_.init(image, -1); break;
    case MultifocusMaxSharpness:
    case MultifocusWeighted: sharpness_ = sharpnessOf(result_); break;
    case MultifocusWeightedAll:
        sharpness_ = sharpnessOf(result_);
        pairs_.append({result_, sharpness_});
        break;
    case MultifocusDepthMap:
        if (alignByKeypoints_ || stabilizeLocally_)
            reference_ = image.copy();
        if (!addToDepthMap(image, 0))
            return false;
        break;
    }
    if (VEXA::isCancelled())
        return false;
    initialized_ = true;
    count_ = 1;
    return true;
}

bool VImageBlender::addImage(const VImage& image)
{
    if (!image.status() || image.isEmpty() || VEXA::isCancelled())
        return false;
    bool added = false;
    // Cancellation arrives as an exception from the checkpoints, always before the state changes.
    const VStatus status = guarded(VEXA_CALL_SITE, [&] {
        added = add(image);
        return VStatus::Ok;
    });
    added = added && status;
    // A first shot that did not make it leaves no half-made start behind.
    if (!added && !initialized_)
        clear();
    return added;
}

bool VImageBlender::add(const VImage& image)
{
    if (!initialized_)
        return init(image);
    if (!(method_ == MultifocusDepthMap ? image.header() == shape_ : image.isCompatible(result_)))
        return false;
    const VImage& target = method_ == MultifocusDepthMap ? reference_ : result_;
    // The depth-map merge only reads an unaligned shot: it takes it as it stands, without a copy.
    const bool aligning = alignByKeypoints_ || stabilizeLocally_;
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
            if (!warpPerspectiveImage(shot, &warped, t))
                return false;
            shot = warped;
        }
    }
    if (stabilizeLocally_)
        stabilizeLocal(target, &shot);
    // Everything so far was done aside; from here each method measures aside, then changes its state in
    // one step that a cancellation does not cut.
    switch (method_) {
    case MultifocusPyramid: {
        // The merge is built in the shot's own pyramid and taken whole.
        VRasterPyramid p;
        step(0.5);
        p.init(shot, -1);
        step(0.6);
        if (p.status()) {
            if (!p.takeMostSharpness(pyramid_))
                return false;
            step(0.9);
            p.restore();
            step(1.0);
            const VImage merged = p.image();
            if (VEXA::isCancelled())
                return false;
            pyramid_ = std::move(p);
            result_ = merged;
        }
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
        if (!merged && VEXA::isCancelled())
            return false; // cancelled before the merge began: nothing written
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
        if (!addToDepthMap(shot, count_))
            return false;
        break;
    }
    ++count_;
    return true;
}

VImage VImageBlender::image()
{
    if (method_ == MultifocusWeightedAll && !pairs_.isEmpty() && !averageAllPairs())
        return VImage();
    if (method_ == MultifocusDepthMap && initialized_)
        finishDepthMap();
    handedOut_ = true;
    return result_;
}

VImage VImageBlender::depthMap()
{
    if (method_ != MultifocusDepthMap || !initialized_)
        return VImage();
    finishDepthMap();
    if (depth_.isEmpty() && !depthState_.index.isEmpty()) {
        // The index map, made consistent: a 5 x 5 median removes isolated choices. Made only when asked
        // for, so that a merge that wants no depth map never holds one.
        VImage depth;
        if (!smoothMedian(depthState_.index, &depth, 5))
            return VImage();
        depth_ = depth;
    }
    return depth_;
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

bool VImageBlender::averageAllPairs()
{
    if (!isPixelOf<Xrgb>(result_.format(), result_.channelType()))
        return true;
    // Into a block of its own: result_ starts as the first shot, whose pixels the average still needs.
    VImage merged = pairs_.first().first.copy();
    const RasterT<Xrgb> out(merged);
    QList<RasterT<Xrgb>> shots;
    QList<RasterT<Map>> maps;
    for (const auto& [shot, map] : pairs_) {
        if (!isPixelOf<Xrgb>(shot.format(), shot.channelType()) || !isPixelOf<Map>(map.format(), map.channelType()) ||
            shot.width() != result_.width() || shot.height() != result_.height() || map.width() != result_.width() ||
            map.height() != result_.height())
            return true;
        shots.append(RasterT<Xrgb>(shot));
        maps.append(RasterT<Map>(map));
    }
    VProgress* progress = VProgressScope::current();
    for (qint32 y = 0; y < out.height; ++y) {
        // Checked every 16 rows: the pairs' whole stack is read for each row.
        if (progress && y % 16 == 0) {
            if (progress->isCancelled())
                return false;
            progress->report(double(y) / out.height, QStringLiteral("averaging"));
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
    return true;
}

namespace {

// The sharpness that picks shots: the measure smoothed over a neighbourhood, so that noise and single
// pixels do not decide, plus a floor that keeps flat areas averaged rather than undecided.
constexpr int depthWindow = 9;
constexpr float sharpnessFloor = 1e-3f;
// Weights are (sharpness / best)^8 (simd::DepthMergeRow): the sharpest shot dominates, near-equal ones
// blend across seams. Below this ratio the weight (under 2e-5) moves no mean by a 256th of a level: such shots are skipped.
constexpr float negligibleRatio = 0.25f;
// The measure works on bands of rows, so that its temporaries stay small and in cache; each band is
// measured with `bandMargin` rows more on either side, more than the reach of the measure's 3 x 3 blur and
// of the 9 x 9 smoothing, so every row comes out as a measure over the whole shot gives it.
constexpr int bandRows = 64;
constexpr int bandMargin = 8;
VImage blankImage(long width, long height, Format format, Channel channel, Origin origin,
                  RowsAlign align = RowsAlignNone)
{
    VImage image;
    image.create(width, height, format, channel, origin, align);
    if (image.status() && !image.isEmpty())
        std::memset(image.rawData(), 0, size_t(image.dataSize()));
    return image;
}

// The smoothed sharpness of every row of `shot`, handed band by band to use(y0, y1, row) with the
// shot's rows [y0, y1) and row(y) the GrayScale 32f scores of shot row y. False when cancelled through
// the caller's progress (checked between bands) or when a band could not be measured.
template <class Use>
bool forEachSharpnessBand(const VImage& shot, Use use)
{
    VProgress* progress = VProgressScope::current();
    // The bands are checked here; the operations inside run whole.
    const VProgressScope quiet(nullptr);
    const long w = shot.width(), h = shot.height();
    const long bandHeight = std::min<long>(h, bandRows + 2 * bandMargin);
    VImage part = blankImage(w, bandHeight, shot.format(), shot.channelType(), shot.origin());
    VImage measured = blankImage(w, bandHeight, GrayScale, Channel32f, shot.origin());
    VImage smoothed = blankImage(w, bandHeight, GrayScale, Channel32f, shot.origin());
    if (part.isEmpty() || measured.isEmpty() || smoothed.isEmpty())
        return false;
    for (long y0 = 0; y0 < h; y0 += bandRows) {
        if (progress) {
            if (progress->isCancelled())
                return false;
            progress->report(0.8 * double(y0) / double(h), QStringLiteral("measuring"));
        }
        const long y1 = std::min(h, y0 + bandRows);
        const long top = std::max(0L, y0 - bandMargin), bottom = std::min(h, y1 + bandMargin);
        const QRect band(0, 0, int(w), int(bottom - top));
        const Rect rows{0, qint32(top), qint32(w), qint32(bottom - top)};
        if (!copyImageUsingRois(shot, &part, rows, Rect{0, 0, rows.width, rows.height}))
            return false;
        part.setRoi(band);
        measured.setRoi(band);
        smoothed.setRoi(band);
        if (!contrastImage(part, &measured, 1, 3) || !smoothGaussian(measured, &smoothed, depthWindow))
            return false;
        const RasterT<Map> scores(smoothed);
        use(y0, y1, [&scores, top](long y) { return scores.row(qint32(y - top)); });
    }
    return true;
}

} // namespace

bool VImageBlender::addToDepthMap(const VImage& image, int index)
{
    // Shots of other layouts are measured and averaged in 8-bit colour.
    const VImage shot =
        isPixelOf<Xrgb>(image.format(), image.channelType()) ? image : image.convertFast(XRGB, Channel8u);
    if (!isPixelOf<Xrgb>(shot.format(), shot.channelType()) || shot.isEmpty())
        return !VEXA::isCancelled();
    DepthState& st = depthState_;
    const long w = shot.width(), h = shot.height();
    // First the shot's scores, measured without touching the running state: this is the part that a
    // cancellation may stop. Half precision keeps them at 2 bytes a pixel; their relative error (under
    // 5e-4) moves weights that are compared as eighth powers of ratios by well under 1%.
    st.scores.create(int(h), int(w), CV_16FC1);
    const bool measured = forEachSharpnessBand(shot, [&](long y0, long y1, const auto& scoreRow) {
        for (long y = y0; y < y1; ++y)
            cv::Mat(1, int(w), CV_32FC1, const_cast<Map*>(scoreRow(y))).convertTo(st.scores.row(int(y)), CV_16F);
    });
    if (!measured)
        return false;
    if (st.mean.isEmpty()) {
        st.mean = blankImage(w, h, BGR, Channel16u, shot.origin());
        st.weights = blankImage(w, h, GrayScale, Channel16u, shot.origin());
        st.best = blankImage(w, h, GrayScale, Channel32f, shot.origin());
        st.index = blankImage(w, h, GrayScale, Channel16u, shot.origin());
    }
    // Then the state, in one pass that is not interrupted.
    st.finished = false;
    depth_ = VImage();
    const RasterT<Xrgb> in(shot);
    const RasterT<Map> best(st.best);
    const RasterT<PixelBGR<quint16>> means(st.mean);
    const RasterT<PixelGray<quint16>> weights(st.weights), chosen(st.index);
    const quint16 shotIndex = quint16(std::min(index, 65535));
    std::vector<float> scoreRow(static_cast<size_t>(w));
    cv::Mat scoreView(1, int(w), CV_32FC1, scoreRow.data());
    // Black pixels carry no data (alignment left them): flagged per row, then tested with both neighbours.
    std::vector<quint8> black(static_cast<size_t>(w)), near(static_cast<size_t>(w));
    const simd::RowKernels& kernels = simd::rowKernels();
    for (long y = 0; y < h; ++y) {
        st.scores.row(int(y)).convertTo(scoreView, CV_32F);
        const Xrgb* s = in.row(qint32(y));
        const float* sc = scoreRow.data();
        Map* b = best.row(qint32(y));
        PixelBGR<quint16>* m = means.row(qint32(y));
        PixelGray<quint16>* ws = weights.row(qint32(y));
        PixelGray<quint16>* k = chosen.row(qint32(y));
        flagBlack(s, w, black.data());
        widenFlags(black.data(), w, near.data());
        const simd::DepthMergeRow merge{reinterpret_cast<const std::uint8_t*>(s), sc, near.data(),
                                        reinterpret_cast<std::uint16_t*>(m), reinterpret_cast<std::uint16_t*>(ws),
                                        reinterpret_cast<float*>(b), reinterpret_cast<std::uint16_t*>(k), shotIndex,
                                        sharpnessFloor, negligibleRatio, int(w)};
        kernels.depthMergeRow(merge);
    }
    reportProgress(1.0, "merging");
    return true;
}

void VImageBlender::finishDepthMap()
{
    DepthState& st = depthState_;
    if (st.finished || st.mean.isEmpty())
        return;
    // A fresh block each time: an image handed out earlier keeps its pixels.
    VImage merged = blankImage(st.mean.width(), st.mean.height(), XRGB, Channel8u, shape_.origin, shape_.rowsAlignment);
    if (merged.isEmpty())
        return;
    const RasterT<Xrgb> out(merged);
    const RasterT<PixelBGR<quint16>> means(st.mean);
    for (qint32 y = 0; y < out.height; ++y) {
        Xrgb* d = out.row(y);
        const PixelBGR<quint16>* m = means.row(y);
        for (qint32 x = 0; x < out.width; ++x) {
            // Pixels no shot had data for stay black.
            d[x].b = quint8((m[x].b + 128) >> 8);
            d[x].g = quint8((m[x].g + 128) >> 8);
            d[x].r = quint8((m[x].r + 128) >> 8);
            d[x].x = 255;
        }
    }
    result_ = merged;
    st.finished = true;
}
