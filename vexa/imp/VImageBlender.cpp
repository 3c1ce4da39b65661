#include <vexa/imp/VImageBlender.h>

#include <vexa/gen/gen_normalization.h>
#include <vexa/gen/gen_resize_image.h>
#include <vexa/gen/gen_smooth_image.h>
#include <vexa/imp/VKeypointDescriptors.h>
#include <vexa/imp/dispatch.h>
#include <vexa/imp/frame.h>
#include <vexa/imp/raster.h>
#include <vcore/MathUtils.h>

#include <algorithm>
#include <cmath>
#include <cstring>

using namespace VEXA;

namespace {

using Xrgb = PixelXRGB<quint8>;
using Map = PixelGray<float>;

bool isBlack(const Xrgb& p) { return p.b == 0 && p.g == 0 && p.r == 0; }

int luminance(const Xrgb& p) { return (29 * p.b + 150 * p.g + 76 * p.r) >> 8; }

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

// Whether the 3 x 3 neighbourhood of (x, y), clipped to the raster's roi, holds a pure black pixel.
bool nearBlack(const RasterT<Xrgb>& image, qint32 x, qint32 y)
{
    const Rect& r = image.roi;
    const qint32 x0 = std::max(x - 1, 0), x1 = std::min(x + 1, r.width - 1);
    const qint32 y0 = std::max(y - 1, 0), y1 = std::min(y + 1, r.height - 1);
    for (qint32 j = y0; j <= y1; ++j) {
        const Xrgb* row = image.row(r.y + j) + r.x;
        for (qint32 i = x0; i <= x1; ++i)
            if (isBlack(row[i]))
                return true;
    }
    return false;
}

// The walk both merges share: the four images checked, then op(x, y, image, imageSharpness, result,
// resultSharpness) for every pixel of the rois, with the image's raster for neighbourhood tests.
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
            op(in, x, y, s[x], sm[x], d[x], dm[x]);
    }
}

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
        forEachMergePixel(image, imageSharpness, result, resultSharpness,
                          [](const RasterT<Xrgb>& in, qint32 x, qint32 y, const Xrgb& s, const Map& sm, Xrgb& d, Map& dm) {
                              if (sm.gray < dm.gray || nearBlack(in, x, y))
                                  return;
                              dm = sm;
                              d = s;
                          });
        return VStatus::Ok;
    });
}

VStatus multifocusImagesWeighted(const VImage& image, const VImage& imageSharpness, VImage* result,
                                 VImage* resultSharpness)
{
    return guarded(VEXA_CALL_SITE, [&] {
        forEachMergePixel(image, imageSharpness, result, resultSharpness,
                          [](const RasterT<Xrgb>&, qint32, qint32, const Xrgb& s, const Map& sm, Xrgb& d, Map& dm) {
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
    depthState_ = DepthState{own(other.depthState_.colours), own(other.depthState_.weights),
                             own(other.depthState_.best), own(other.depthState_.index), other.depthState_.finished};
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
    initialized_ = false;
    count_ = 0;
}

void VImageBlender::init(const VImage& image)
{
    result_ = image.copy();
    switch (method_) {
    case MultifocusPyramid: pyramid_.init(image, -1); break;
    case MultifocusMaxSharpness:
    case MultifocusWeighted: sharpness_ = sharpnessOf(result_); break;
    case MultifocusWeightedAll:
        sharpness_ = sharpnessOf(result_);
        pairs_.append({result_, sharpness_});
        break;
    case MultifocusDepthMap: addToDepthMap(result_, 0); break;
    }
    initialized_ = true;
    count_ = 1;
}

bool VImageBlender::addImage(const VImage& image)
{
    if (!image.status() || image.isEmpty())
        return false;
    if (!initialized_) {
        init(image);
        return true;
    }
    if (!image.isCompatible(result_))
        return false;
    VImage shot = image.copy();
    if (alignByKeypoints_) {
        bool found = false;
        const VTransformPerspective t =
            findTransformation(VKeypointDescriptors(result_), VKeypointDescriptors(shot), &found);
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
        stabilizeLocal(result_, &shot);
    switch (method_) {
    case MultifocusPyramid: {
        VRasterPyramid p;
        p.init(shot, -1);
        if (p.status()) {
            pyramid_.combineMostSharpness(&p);
            pyramid_.restore();
            result_ = pyramid_.image();
        }
        break;
    }
    case MultifocusMaxSharpness: multifocusImages(shot, sharpnessOf(shot), &result_, &sharpness_); break;
    case MultifocusWeighted: multifocusImagesWeighted(shot, sharpnessOf(shot), &result_, &sharpness_); break;
    case MultifocusWeightedAll: pairs_.append({shot, sharpnessOf(shot)}); break;
    case MultifocusDepthMap: addToDepthMap(shot, count_); break;
    }
    ++count_;
    return true;
}

VImage VImageBlender::image()
{
    if (method_ == MultifocusWeightedAll && !pairs_.isEmpty())
        averageAllPairs();
    if (method_ == MultifocusDepthMap && initialized_)
        finishDepthMap();
    return result_;
}

VImage VImageBlender::depthMap()
{
    if (method_ != MultifocusDepthMap || !initialized_)
        return VImage();
    finishDepthMap();
    return depth_;
}

bool VImageBlender::isIdentity(const VTransformPerspective& t) const
{
    // Within a thousandth of a pixel at every corner of the result.
    const QTransform q = t.qTransform();
    const double w = result_.width(), h = result_.height();
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
    const RasterT<Xrgb> out(result_);
    QList<RasterT<Xrgb>> shots;
    QList<RasterT<Map>> maps;
    for (const auto& [shot, map] : pairs_) {
        if (!isPixelOf<Xrgb>(shot.format(), shot.channelType()) || !isPixelOf<Map>(map.format(), map.channelType()) ||
            shot.width() != result_.width() || shot.height() != result_.height() ||
            map.width() != result_.width() || map.height() != result_.height())
            return;
        shots.append(RasterT<Xrgb>(shot));
        maps.append(RasterT<Map>(map));
    }
    for (qint32 y = 0; y < out.height; ++y) {
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
}

namespace {

// The sharpness that picks shots: the measure smoothed over a neighbourhood, so that noise and single
// pixels do not decide, plus a floor that keeps flat areas averaged rather than undecided.
constexpr int depthWindow = 9;
constexpr float sharpnessFloor = 1e-3f;
// Weights are (sharpness / best)^power: the sharpest shot dominates, near-equal ones blend across seams.
constexpr int depthPower = 8;

float relativeWeight(float ratio)
{
    float w = ratio * ratio; // ^2
    w *= w;                  // ^4
    return w * w;            // ^8
}

VImage blankImage(const VImage& like, Format format, Channel channel)
{
    VImage image;
    image.create(like.width(), like.height(), format, channel, like.origin(), like.rowsAlignment());
    std::memset(image.rawData(), 0, size_t(std::max(0L, image.dataSize())));
    return image;
}

} // namespace

void VImageBlender::addToDepthMap(const VImage& shot, int index)
{
    if (!isPixelOf<Xrgb>(shot.format(), shot.channelType()))
        return;
    DepthState& st = depthState_;
    if (st.colours.isEmpty()) {
        st.colours = blankImage(shot, BGR, Channel32f);
        st.weights = blankImage(shot, GrayScale, Channel32f);
        st.best = blankImage(shot, GrayScale, Channel32f);
        st.index = blankImage(shot, GrayScale, Channel16u);
    }
    st.finished = false;
    VImage measured = blankImage(shot, GrayScale, Channel32f), smoothed;
    contrastImage(shot, &measured, 1, 3);
    if (!smoothGaussian(measured, &smoothed, depthWindow))
        return;
    static_assert(depthPower == 8, "relativeWeight raises to the eighth power");
    const RasterT<Xrgb> in(shot);
    const RasterT<Map> score(smoothed), best(st.best), weights(st.weights);
    const RasterT<PixelBGR<float>> colours(st.colours);
    const RasterT<PixelGray<quint16>> chosen(st.index);
    for (qint32 y = 0; y < in.height; ++y) {
        const Xrgb* s = in.row(y);
        const Map* sc = score.row(y);
        Map* b = best.row(y);
        Map* w = weights.row(y);
        PixelBGR<float>* c = colours.row(y);
        PixelGray<quint16>* k = chosen.row(y);
        for (qint32 x = 0; x < in.width; ++x) {
            if (isBlack(s[x]) || (x > 0 && isBlack(s[x - 1])) || (x + 1 < in.width && isBlack(s[x + 1])))
                continue; // no data where alignment left black
            const float value = sc[x].gray + sharpnessFloor;
            float weight = 1.0f;
            if (value > b[x].gray) {
                // A new best: what was summed so far is rescaled to it.
                const float rescale = b[x].gray > 0.0f ? relativeWeight(b[x].gray / value) : 0.0f;
                w[x].gray *= rescale;
                c[x].b *= rescale;
                c[x].g *= rescale;
                c[x].r *= rescale;
                b[x].gray = value;
                k[x].gray = quint16(std::min(index, 65535));
            } else {
                weight = relativeWeight(value / b[x].gray);
            }
            w[x].gray += weight;
            c[x].b += weight * s[x].b;
            c[x].g += weight * s[x].g;
            c[x].r += weight * s[x].r;
        }
    }
}

void VImageBlender::finishDepthMap()
{
    DepthState& st = depthState_;
    if (st.finished || st.colours.isEmpty() || !isPixelOf<Xrgb>(result_.format(), result_.channelType()))
        return;
    const RasterT<Xrgb> out(result_);
    const RasterT<Map> weights(st.weights);
    const RasterT<PixelBGR<float>> colours(st.colours);
    for (qint32 y = 0; y < out.height; ++y) {
        Xrgb* d = out.row(y);
        const Map* w = weights.row(y);
        const PixelBGR<float>* c = colours.row(y);
        for (qint32 x = 0; x < out.width; ++x) {
            if (!(w[x].gray > 0.0f))
                continue;
            const float inverse = 1.0f / w[x].gray;
            d[x].b = MathUtils::bound8u(c[x].b * inverse + 0.5f);
            d[x].g = MathUtils::bound8u(c[x].g * inverse + 0.5f);
            d[x].r = MathUtils::bound8u(c[x].r * inverse + 0.5f);
        }
    }
    // The index map, made consistent: a 5 x 5 median removes isolated choices.
    depth_ = VImage();
    smoothMedian(st.index, &depth_, 5);
    st.finished = true;
}
