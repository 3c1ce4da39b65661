#include <vexa/imp/kernels/focus_merge.h>

#include <vexa/imp/detail/progress.h>
#include <vexa/imp/kernels/luminance.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cfloat>
#include <cstdint>
#include <vector>

namespace VEXA {

namespace {

// Weights of the coarser scales of the score against the finest (1): an area a few pixels across does not
// beat the choice around it unless its own detail says so clearly. Heavier weights keep flat areas freer of
// grain from switching shots; on a real series, 0.5 and 1 cut that grain by a twentieth against 0.25 and
// 0.0625 for a loss of 0.3 dB on rendered series.
constexpr float midWeight = 0.5f;
constexpr float coarseWeight = 1.0f;
// The coarsest pyramid level keeps at least this many pixels on its shorter side.
constexpr int coarsestSide = 8;
// A shot has detail of its own where its finest score passes this many times the noise floor; shots
// that both pass the second are averaged by their sharpness.
constexpr float detailFloor = 3.f;
constexpr float softFloor = 1.5f;
constexpr float largestScore = 65000.f;

// The weight of a shot whose sharpness is `ratio` (0..1) of the sharpest's: a steep power, so that only
// shots nearly as sharp count, and none below 1/256.
float sharpnessShare(float ratio)
{
    const float squared = ratio * ratio;
    const float w = squared * squared;
    return w < 1.f / 256 ? 0.f : w;
}

// The median of a plane, from a sample of its pixels.
float medianOf(const cv::Mat& plane)
{
    std::vector<float> sample;
    sample.reserve(size_t(plane.total() / 7 + 1));
    for (int y = 0; y < plane.rows; y += 3) {
        const float* p = plane.ptr<float>(y);
        for (int x = y % 7; x < plane.cols; x += 7)
            sample.push_back(p[x]);
    }
    if (sample.empty())
        return 0.f;
    std::nth_element(sample.begin(), sample.begin() + sample.size() / 2, sample.end());
    return sample[sample.size() / 2];
}

// The plane at a size `scale` times smaller (area averages), blurred with sigma pixels there: a wide blur
// at a fraction of the cost, brought back by addExpanded.
cv::Mat blurredSmall(const cv::Mat& plane, int scale, double sigma)
{
    cv::Mat small;
    cv::resize(plane, small, cv::Size(std::max(1, plane.cols / scale), std::max(1, plane.rows / scale)), 0, 0,
               cv::INTER_AREA);
    cv::GaussianBlur(small, small, cv::Size(), sigma);
    return small;
}

// plane += weight * small brought to the plane's size bilinearly, a row at a time (as OpenCV's linear
// resize places the samples): no full-size copy of it is made.
void addExpanded(const cv::Mat& small, float weight, cv::Mat& plane)
{
    cv::Mat wide; // the small rows, widened to the plane's width
    cv::resize(small, wide, cv::Size(plane.cols, small.rows), 0, 0, cv::INTER_LINEAR);
    const double scale = double(small.rows) / plane.rows;
    for (int y = 0; y < plane.rows; ++y) {
        const double at = (y + 0.5) * scale - 0.5;
        int y0 = int(std::floor(at));
        float f = float(at - y0);
        if (y0 < 0)
            y0 = 0, f = 0.f;
        if (y0 >= small.rows - 1)
            y0 = small.rows - 1, f = 0.f;
        const float* a = wide.ptr<float>(y0);
        const float* b = wide.ptr<float>(std::min(y0 + 1, small.rows - 1));
        float* p = plane.ptr<float>(y);
        const float wa = weight * (1.f - f), wb = weight * f;
        for (int x = 0; x < plane.cols; ++x)
            p[x] += wa * a[x] + wb * b[x];
    }
}

struct Scores {
    cv::Mat fine;     // the finest scale alone: detail of the shot's own
    cv::Mat combined; // all three scales
    float floor = 0;  // the noise floor of the energy (its median), in the scores' units
};

// The scores of a shot's luminance (taken over: it is freed as soon as it is read), in `scale` times its
// units squared. The noise floor is the energy's median, or `floor` if lower: noise is the camera's, the
// same in every shot, but a shot with detail nearly everywhere has a median above it. Two full-size planes
// at most are alive at once: the sum of the scales is made in the energy's place.
Scores scoreOf(cv::Mat gray, double scale, float floor)
{
    cv::Mat energy;
    cv::Laplacian(gray, energy, CV_32F, 3);
    gray.release();
    cv::multiply(energy, energy, energy, scale);
    Scores scores;
    scores.floor = std::min(floor, medianOf(energy));
    cv::subtract(energy, cv::Scalar(2.0 * scores.floor), energy);
    cv::max(energy, 0.0, energy);
    const cv::Mat mid = blurredSmall(energy, 4, 2.0), coarse = blurredSmall(energy, 16, 2.0);
    cv::GaussianBlur(energy, scores.fine, cv::Size(), 2.0);
    scores.fine.copyTo(energy);
    addExpanded(mid, midWeight, energy);
    addExpanded(coarse, coarseWeight, energy);
    scores.combined = energy;
    return scores;
}

// Where a new shot beats the best so far (255): where either has detail of its own, the sharper detail
// wins; where neither has, the detail around decides (the coarser scales).
void decideRow(const float* fine, const float* combined, const float* bestFine, const float* best,
               const uchar* covered, float detail, uchar* take, int width)
{
    for (int x = 0; x < width; ++x) {
        const bool wins =
            fine[x] > detail || bestFine[x] > detail ? fine[x] > bestFine[x] : combined[x] > best[x];
        take[x] = wins && (!covered || covered[x]) ? 255 : 0;
    }
}

struct ShotRow {
    float soft;
    std::uint16_t index;
    bool first;
};

// The state of one row after a shot, and the shot's share of the result there. Where both the shot and
// the result have detail of their own, shares follow the sharpness as a steep power (a soft maximum):
// shots nearly as sharp as each other are averaged, which takes the noise down without blurring, and a
// clearly sharper shot takes the pixel alone. Elsewhere the decision says which shot takes it whole.
void mergeRow(const ShotRow& shot, const float* fineRow, const float* combinedRow, const uchar* take,
              const uchar* covered, float* bestFine, float* best, float* total, std::uint16_t* index, float* share,
              int width)
{
    for (int x = 0; x < width; ++x) {
        // Kept in half precision, whose largest value is 65504: scores beyond it (the very strongest edges)
        // are kept as that, never as infinities.
        const float fine = std::min(fineRow[x], largestScore), combined = std::min(combinedRow[x], largestScore);
        if (shot.first) {
            bestFine[x] = fine;
            best[x] = combined;
            total[x] = 1.f;
            index[x] = 0;
            share[x] = 1.f;
            continue;
        }
        share[x] = 0.f;
        if (covered && !covered[x])
            continue;
        if (fine > shot.soft && bestFine[x] > shot.soft) {
            const float top = std::max(fine, bestFine[x]);
            const float kept = total[x] * sharpnessShare(bestFine[x] / top);
            const float added = sharpnessShare(fine / top);
            share[x] = added / (kept + added);
            total[x] = kept + added;
            bestFine[x] = top;
            if (take[x]) {
                best[x] = combined;
                index[x] = shot.index;
            }
        } else if (take[x]) {
            bestFine[x] = fine;
            best[x] = combined;
            total[x] = 1.f;
            index[x] = shot.index;
            share[x] = 1.f;
        }
    }
}

int levelCount(cv::Size size)
{
    int levels = 1;
    while (levels < 12 && (std::min(size.width, size.height) >> levels) >= coarsestSide)
        ++levels;
    return levels;
}

// g -= pyrUp(down), in place, a band of rows at a time: the expanded level is never made whole. A band
// reads two rows of `down` beyond each of its ends, so that its rows come out as from the whole image.
void subtractExpanded(cv::Mat& g, const cv::Mat& down)
{
    constexpr CacheBands bands{64}; // even, so that a band starts on a row of `down`
    cv::Mat up;
    forEachBand(g.rows, bands, [&](int y0, int y1) {
        const int d0 = std::max(0, y0 / 2 - 2), d1 = std::min(down.rows, (y1 + 1) / 2 + 2);
        // The expanded rows 2 * d0 onwards; at the bottom, as many as g has.
        const int rows = std::min(2 * (d1 - d0), g.rows - 2 * d0);
        cv::pyrUp(down.rowRange(d0, d1), up, cv::Size(g.cols, rows));
        cv::Mat target = g.rowRange(y0, y1);
        cv::subtract(target, up.rowRange(y0 - 2 * d0, y1 - 2 * d0), target);
    });
}

// result += weight * (shot - result), pixel by pixel, rounded for integers; weight has one channel.
template <class T>
void blendLevel(cv::Mat& result, const cv::Mat& shot, const cv::Mat& weight)
{
    const int channels = result.channels();
    for (int y = 0; y < result.rows; ++y) {
        T* r = result.ptr<T>(y);
        const T* s = shot.ptr<T>(y);
        const float* w = weight.ptr<float>(y);
        for (int x = 0; x < result.cols; ++x) {
            const float k = w[x];
            if (k == 0.f)
                continue;
            for (int c = 0; c < channels; ++c) {
                T& v = r[x * channels + c];
                v = cv::saturate_cast<T>(v + k * (float(s[x * channels + c]) - float(v)));
            }
        }
    }
}

void blendLevel(cv::Mat& result, const cv::Mat& shot, const cv::Mat& weight)
{
    if (result.depth() == CV_16S)
        blendLevel<short>(result, shot, weight);
    else
        blendLevel<float>(result, shot, weight);
}

} // namespace

FocusAligner::Fit FocusDepthMerge::add(cv::Mat shot, int index, const cv::Mat& covered)
{
    const bool first = levels_.empty();
    if (first) {
        unit_ = shot.depth() == CV_8U ? 8.0 : 1.0;
        // Scores are kept in half precision, in 8-bit levels squared over 64 whatever the shots' depth:
        // the strongest 3 x 3 Laplacian of 8-bit data (2040 levels) then squares to 65025, under the
        // largest half value (65504), and a noise floor of a hundredth of a level squared is still far
        // above the smallest normal one (6e-5).
        const double level = shot.depth() == CV_8U ? 1.0 : shot.depth() == CV_16U ? 257.0 : 1.0 / 255;
        scoreScale_ = 1.0 / (64 * level * level);
    }
    FocusAligner::Fit fit;
    if (first)
        aligner_.start(shot);
    else if (align_)
        fit = aligner_.fit(shot);
    else
        fit = aligner_.matchExposure(shot, covered);
    checkpoint(0.4, "aligning");
    cv::Mat aligned;
    applyFit(shot, fit, cv::BORDER_REPLICATE, aligned);
    shot.release();
    const FocusAligner::Fit added = geometryOf(fit);
    // The luminance scored, and the planes blended in the pyramid's type, both at the first shot's exposure.
    const std::array<double, 3>& gains = fit.gains;
    cv::Mat gray;
    grayOf(aligned).convertTo(gray, CV_32F, aligned.channels() == 1 ? gains[0] : lumaOf(gains[0], gains[1], gains[2]));
    checkpoint(0.5, "measuring");

    Scores scores = scoreOf(std::move(gray), scoreScale_, first ? FLT_MAX : floor_);
    checkpoint(0.8, "measuring");
    const cv::Size size = aligned.size();
    const float detail = detailFloor * scores.floor;
    const float soft = softFloor * scores.floor;
    // The decision, aside: where the new shot beats the best so far, without isolated flips.
    cv::Mat take(size, CV_8U, cv::Scalar(255));
    // The state is kept in half precision; a row at a time is widened to work on.
    cv::Mat rows(3, size.width, CV_32F);
    if (!first) {
        for (int y = 0; y < size.height; ++y) {
            bestFine_.row(y).convertTo(rows.row(0), CV_32F);
            best_.row(y).convertTo(rows.row(1), CV_32F);
            decideRow(scores.fine.ptr<float>(y), scores.combined.ptr<float>(y), rows.ptr<float>(0),
                      rows.ptr<float>(1), fit.covered.empty() ? nullptr : fit.covered.ptr<uchar>(y), detail,
                      take.ptr<uchar>(y), size.width);
        }
        cv::medianBlur(take, take, 5);
    }
    checkpoint(0.85, "merging");

    // From here the state changes, whole.
    const int levels = first ? levelCount(size) : int(levels_.size());
    if (first) {
        best_.create(size, CV_16F);
        bestFine_.create(size, CV_16F);
        totals_.create(size, CV_16F);
        index_ = cv::Mat(size, CV_16U, cv::Scalar(0));
        levels_.resize(size_t(levels));
    } else {
        aligner_.commit(fit);
    }
    // The shot's share of each pixel, written over the combined scores as each is read.
    cv::Mat weight = scores.combined;
    floor_ = scores.floor;
    const ShotRow row{soft, std::uint16_t(std::min(index, 65535)), first};
    for (int y = 0; y < size.height; ++y) {
        if (!first) {
            bestFine_.row(y).convertTo(rows.row(0), CV_32F);
            best_.row(y).convertTo(rows.row(1), CV_32F);
            totals_.row(y).convertTo(rows.row(2), CV_32F);
        }
        mergeRow(row, scores.fine.ptr<float>(y), scores.combined.ptr<float>(y), take.ptr<uchar>(y),
                 fit.covered.empty() ? nullptr : fit.covered.ptr<uchar>(y), rows.ptr<float>(0), rows.ptr<float>(1),
                 rows.ptr<float>(2), index_.ptr<std::uint16_t>(y), weight.ptr<float>(y), size.width);
        rows.row(0).convertTo(bestFine_.row(y), CV_16F);
        rows.row(1).convertTo(best_.row(y), CV_16F);
        rows.row(2).convertTo(totals_.row(y), CV_16F);
    }
    scores = Scores();
    take.release();
    cv::Mat g;
    cv::multiply(aligned, cv::Scalar(gains[0] * unit_, gains[1] * unit_, gains[2] * unit_), g, 1.0,
                 unit_ == 1.0 ? CV_32F : CV_16S);
    aligned.release();
    for (int l = 0; l + 1 < levels; ++l) {
        cv::Mat down;
        cv::pyrDown(g, down);
        subtractExpanded(g, down); // the level's detail, in place of the level itself
        if (first)
            levels_[size_t(l)] = g;
        else
            blendLevel(levels_[size_t(l)], g, weight);
        cv::Mat w;
        cv::pyrDown(weight, w);
        weight = w;
        g = down;
    }
    if (first)
        levels_.back() = g;
    else
        blendLevel(levels_.back(), g, weight);
    reportProgress(1.0, "merging");
    return added;
}

FocusDepthMerge FocusDepthMerge::copy() const
{
    FocusDepthMerge out = *this; // the aligner's planes are replaced, never written: they may be shared
    for (cv::Mat& level : out.levels_)
        level = level.clone();
    out.best_ = best_.clone();
    out.bestFine_ = bestFine_.clone();
    out.totals_ = totals_.clone();
    out.index_ = index_.clone();
    return out;
}

cv::Mat FocusDepthMerge::result() const
{
    if (levels_.empty())
        return cv::Mat();
    cv::Mat r = levels_.back().clone();
    for (size_t l = levels_.size() - 1; l-- > 0;) {
        cv::Mat up;
        cv::pyrUp(r, up, levels_[l].size());
        r.release();
        cv::add(up, levels_[l], up); // in place: one full-size plane at a time
        r = up;
    }
    return r;
}

void FocusDepthMerge::toShotUnits(const cv::Mat& merged, int first, int last, int depth, cv::Mat& out) const
{
    merged.rowRange(first, last).convertTo(out, depth, 1.0 / unit_); // rounded and saturated
}

} // namespace VEXA
