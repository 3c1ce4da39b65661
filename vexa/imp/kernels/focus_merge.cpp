#include <vexa/imp/kernels/focus_merge.h>

#include <vexa/imp/detail/progress.h>
#include <vexa/imp/kernels/luminance.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cfloat>
#include <cstdint>
#include <cstring>
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

// Rows of a shot's energy: the squared 3 x 3 Laplacian of its luminance at the first shot's exposure, in
// `scale` times its units squared, made a band at a time from the aligned shot (a band reads one row of
// the shot beyond each end): no full-size plane of it is ever made. The Laplacian is taken of the
// luminance as it stands and then brought to the first shot's exposure (it is linear): in integers for
// 8-bit shots, exact, at a fraction of the work in floats.
class Energy {
public:
    Energy(const cv::Mat& aligned, double gain, double scale) : aligned_(aligned), gain_(gain), scale_(scale) {}

    // Rows [a, b), less twice `floor`, never below 0: grain and JPEG blocks score nothing.
    cv::Mat rows(int a, int b, float floor) const
    {
        const int ga = std::max(0, a - 1), gb = std::min(aligned_.rows, b + 1);
        const cv::Mat gray = grayOf(aligned_.rowRange(ga, gb));
        cv::Mat laplacian, energy(b - a, aligned_.cols, CV_32F);
        cv::Laplacian(gray, laplacian, gray.depth() == CV_8U ? CV_16S : CV_32F, 3);
        if (laplacian.depth() == CV_16S)
            energyOf<short>(laplacian.rowRange(a - ga, b - ga), floor, energy);
        else
            energyOf<float>(laplacian.rowRange(a - ga, b - ga), floor, energy);
        return energy;
    }

    // The energy at every 3rd row and every 7th pixel of it (from the row's index modulo 7), for the
    // noise floor: only those of the Laplacian's values are made.
    void sample(std::vector<float>& out) const
    {
        forEachBand(aligned_.rows, CacheBands{64}, [&](int y0, int y1) {
            const int ga = std::max(0, y0 - 1), gb = std::min(aligned_.rows, y1 + 1);
            cv::Mat gray;
            grayOf(aligned_.rowRange(ga, gb)).convertTo(gray, CV_32F);
            for (int y = y0 + (3 - y0 % 3) % 3; y < y1; y += 3)
                sampleRow(gray, y - ga, y, out);
        });
    }

private:
    // The Laplacian's values brought to the first shot's exposure, squared in the scores' units, less twice
    // the floor and never below 0, in one pass (as OpenCV's convertTo, multiply with a scale, subtract and
    // max would make them, in that order).
    template <class T>
    void energyOf(const cv::Mat& laplacian, float floor, cv::Mat& energy) const
    {
        const float gain = float(gain_), scale = float(scale_), twice = float(2.0 * floor);
        for (int y = 0; y < laplacian.rows; ++y) {
            const T* l = laplacian.ptr<T>(y);
            float* e = energy.ptr<float>(y);
            for (int x = 0; x < laplacian.cols; ++x) {
                const float v = float(l[x]) * gain;
                e[x] = std::max(scale * v * v - twice, 0.f);
            }
        }
    }

    // OpenCV's 3 x 3 Laplacian (2 at the corners, -8 in the middle) at the sampled pixels of row r of the
    // gray band (image row y), its borders reflected as OpenCV's are: a band holds the rows beyond its
    // ends that the image has.
    void sampleRow(const cv::Mat& gray, int r, int y, std::vector<float>& out) const
    {
        const auto reflected = [](int i, int n) { return n == 1 ? 0 : i < 0 ? 1 : i >= n ? n - 2 : i; };
        const float* above = gray.ptr<float>(reflected(r - 1, gray.rows));
        const float* here = gray.ptr<float>(r);
        const float* below = gray.ptr<float>(reflected(r + 1, gray.rows));
        for (int x = y % 7; x < gray.cols; x += 7) {
            const int l = reflected(x - 1, gray.cols), rt = reflected(x + 1, gray.cols);
            const float laplacian = 2 * (above[l] + above[rt] + below[l] + below[rt]) - 8 * here[x];
            const float e = laplacian * float(gain_);
            out.push_back(e * e * float(scale_));
        }
    }

    const cv::Mat& aligned_;
    double gain_, scale_;
};

// The rows of a plane fed a band at a time, averaged down to `out` rows by area as OpenCV's area resize
// weighs them: each output row the mean of the input rows it covers, partly covered ones in part.
class AreaRows {
public:
    AreaRows(int rows, int out, int cols) : scale_(double(rows) / out), sum_(out, cols, CV_32F, cv::Scalar(0)) {}

    void add(const cv::Mat& band, int y0)
    {
        for (int r = 0; r < band.rows; ++r) {
            const double from = (y0 + r) / scale_, to = (y0 + r + 1) / scale_;
            const int j = std::min(int(from), sum_.rows - 1);
            const double first = std::min(to, j + 1.0) - from;
            cv::scaleAdd(band.row(r), first, sum_.row(j), sum_.row(j));
            if (to > j + 1 && j + 1 < sum_.rows)
                cv::scaleAdd(band.row(r), to - (j + 1), sum_.row(j + 1), sum_.row(j + 1));
        }
    }
    // The rows, averaged across to `cols` pixels by area too.
    cv::Mat reduced(int cols) const
    {
        cv::Mat out;
        cv::resize(sum_, out, cv::Size(cols, sum_.rows), 0, 0, cv::INTER_AREA);
        return out;
    }

private:
    double scale_;
    cv::Mat sum_;
};

// Two rows of a smaller plane widened to the full width, kept by their index, so that rows read in order
// are widened once each.
class WidenedRows {
public:
    explicit WidenedRows(int width) : wide_(2, width, CV_32F) {}
    // Row i, made by widen(i, its full-width row) unless kept; row `keep` is never the one dropped for it.
    template <class Widen>
    const float* get(int i, int keep, Widen&& widen)
    {
        for (int k = 0; k < 2; ++k)
            if (index_[k] == i)
                return wide_.ptr<float>(k);
        const int k = index_[0] == keep ? 1 : index_[1] == keep ? 0 : index_[0] < index_[1] ? 0 : 1;
        index_[k] = i;
        float* row = wide_.ptr<float>(k);
        widen(i, row);
        return row;
    }

private:
    cv::Mat wide_;
    int index_[2] = {-1, -1};
};

// A coarser scale of the score: the energy averaged `scale` times smaller (fed a band at a time), blurred
// with sigma 2 there, and read back at the full size bilinearly, as OpenCV's linear resize places the
// samples: each of its rows widened to the full width when first read (two kept), so that addTo brings
// its rows to the full size a band at a time.
class CoarseScale {
public:
    CoarseScale(cv::Size full, int scale)
        : full_(full), sum_(full.height, std::max(1, full.height / scale), full.width),
          cols_(std::max(1, full.width / scale)), wide_(full.width)
    {
    }
    void add(const cv::Mat& band, int y0) { sum_.add(band, y0); }
    void finish()
    {
        small_ = sum_.reduced(cols_);
        sum_ = AreaRows(1, 1, 1);
        cv::GaussianBlur(small_, small_, cv::Size(), 2.0);
    }
    // Full-size row y of this scale times `weight`, as wa * a[x] + wb * b[x]: the two widened rows it lies
    // between and their weights.
    void rowAt(int y, float weight, const float*& a, const float*& b, float& wa, float& wb)
    {
        const double scale = double(small_.rows) / full_.height;
        const auto widen = [&](int i, float* to) {
            cv::Mat row(1, full_.width, CV_32F, to);
            cv::resize(small_.row(i), row, row.size(), 0, 0, cv::INTER_LINEAR);
        };
        const double at = (y + 0.5) * scale - 0.5;
        int i = int(std::floor(at));
        float f = float(at - i);
        if (i < 0)
            i = 0, f = 0.f;
        if (i >= small_.rows - 1)
            i = small_.rows - 1, f = 0.f;
        const int below = std::min(i + 1, small_.rows - 1);
        b = wide_.get(below, below, widen);
        a = wide_.get(i, below, widen);
        wa = weight * (1.f - f);
        wb = weight * f;
    }

private:
    cv::Size full_;
    AreaRows sum_;
    int cols_;
    cv::Mat small_;
    WidenedRows wide_;
};

// Rows the sigma-2 blur of the finest scale reaches beyond a band (OpenCV's kernel for it is 17 taps).
constexpr int blurReach = 9;
constexpr CacheBands scoreBands{64};

struct Scores {
    // At half the size each way (see halved) and in half precision, at most largestScore, as the state
    // keeps them:
    cv::Mat fine;     // the finest scale alone: detail of the shot's own
    cv::Mat combined; // all three scales
    float floor = 0;  // the noise floor of the energy (its median), in the scores' units
};

// Scores are blurred over about 2 pixels at the finest: sampled at every other pixel each way, they lose
// under a hundredth of what they hold (the blur passes 0.7% at the half size's limit), and read back
// bilinearly (HalfRows) they decide each pixel as the full-size ones would, at a quarter of the memory.
cv::Size halfOf(cv::Size size) { return cv::Size((size.width + 1) / 2, (size.height + 1) / 2); }

// The mean of each 2 x 2 block of `rows`, each value taken at most `cap` (an even first row onwards; at an
// odd last row or column, of the pixels there are), as rows of the half-size plane from y0 / 2, in half
// precision.
void halveInto(const cv::Mat& rows, int y0, float cap, cv::Mat& half)
{
    const auto at = [cap](const float* row, int x) { return std::min(row[x], cap); };
    cv::Mat mean(1, half.cols, CV_32F);
    float* m = mean.ptr<float>(0);
    for (int j = 0; j < (rows.rows + 1) / 2; ++j) {
        const float* a = rows.ptr<float>(2 * j);
        const float* b = rows.ptr<float>(std::min(2 * j + 1, rows.rows - 1));
        for (int i = 0; i < half.cols; ++i) {
            const int x0 = 2 * i, x1 = std::min(x0 + 1, rows.cols - 1); // a pixel counted twice is still a mean
            m[i] = 0.25f * (at(a, x0) + at(a, x1) + at(b, x0) + at(b, x1));
        }
        mean.convertTo(half.row(y0 / 2 + j), CV_16F);
    }
}

// Rows of a half-size plane (CV_16F) read at the full size bilinearly, as OpenCV's linear resize places
// the samples (a full-size pixel x between the half-size ones around x / 2 - 0.25). The two half-size rows
// last read are kept widened, so that rows asked for in order widen each half-size row once.
class HalfRows {
public:
    HalfRows(const cv::Mat& half, cv::Size full)
        : half_(half), full_(full), wide_(full.width), narrow_(1, half.cols, CV_32F)
    {
    }
    // Row y into out (full.width values).
    void row(int y, float* out)
    {
        int i0 = 0, i1 = 0;
        float a = 0;
        place(y, half_.rows, i0, i1, a);
        // The row below first: making it never drops the row above, which is then found kept.
        const auto widen = [&](int i, float* to) { widened(i, to); };
        const float* bottom = wide_.get(i1, i1, widen);
        const float* top = wide_.get(i0, i1, widen);
        for (int x = 0; x < full_.width; ++x)
            out[x] = top[x] + (bottom[x] - top[x]) * a;
    }

private:
    static void place(int at, int n, int& i0, int& i1, float& a)
    {
        const double p = std::min(std::max((at + 0.5) / 2 - 0.5, 0.0), double(n - 1));
        i0 = std::min(int(p), n - 1);
        i1 = std::min(i0 + 1, n - 1);
        a = float(p - i0);
    }
    // Half-size row i widened into w.
    void widened(int i, float* w)
    {
        half_.row(i).convertTo(narrow_, CV_32F);
        const float* n = narrow_.ptr<float>(0);
        const auto placed = [&](int x) {
            int x0 = 0, x1 = 0;
            float a = 0;
            place(x, half_.cols, x0, x1, a);
            w[x] = n[x0] + (n[x1] - n[x0]) * a;
        };
        // Away from the ends, pixel 2k lies a quarter of the way from half-size pixel k to k - 1 and pixel
        // 2k + 1 a quarter of the way from k to k + 1, as place() finds them: the same sums, placed once
        // for all rather than pixel by pixel.
        for (int x = 0; x < std::min(2, full_.width); ++x)
            placed(x);
        int k = 1;
        for (; 2 * k + 1 < full_.width && k + 1 < half_.cols; ++k) {
            w[2 * k] = n[k - 1] + (n[k] - n[k - 1]) * 0.75f;
            w[2 * k + 1] = n[k] + (n[k + 1] - n[k]) * 0.25f;
        }
        for (int x = 2 * k; x < full_.width; ++x)
            placed(x);
    }

    const cv::Mat& half_;
    cv::Size full_;
    WidenedRows wide_;
    cv::Mat narrow_;
};

// The scores of an aligned shot whose luminance `gain` brings to the first shot's exposure, in `scale`
// times its units squared. The noise floor is the energy's median (sampled), or `floor` if lower: noise is
// the camera's, the same in every shot, but a shot with detail nearly everywhere has a median above it.
// The energy is made a band at a time, twice over (the coarser scales, then the scores; the floor from a
// sample of it alone), which costs less than the two full-size planes in single precision that it saves.
Scores scoreOf(const cv::Mat& aligned, double gain, double scale, float floor)
{
    const Energy energy(aligned, gain, scale);
    const cv::Size size = aligned.size();
    std::vector<float> sample;
    sample.reserve(size_t(size.area() / 21 + size.height));
    energy.sample(sample);
    Scores scores;
    scores.floor = floor;
    if (!sample.empty()) {
        std::nth_element(sample.begin(), sample.begin() + sample.size() / 2, sample.end());
        scores.floor = std::min(floor, sample[sample.size() / 2]);
    }
    std::vector<float>().swap(sample);
    checkpoint(0.6, "measuring");

    CoarseScale mid(size, 4), coarse(size, 16);
    forEachBand(size.height, scoreBands, [&](int y0, int y1) {
        const cv::Mat e = energy.rows(y0, y1, scores.floor);
        mid.add(e, y0);
        coarse.add(e, y0);
    });
    mid.finish();
    coarse.finish();
    checkpoint(0.7, "measuring");

    scores.fine.create(halfOf(size), CV_16F);
    scores.combined.create(halfOf(size), CV_16F);
    cv::Mat combined;
    forEachBand(size.height, scoreBands, [&](int y0, int y1) {
        const int a = std::max(0, y0 - blurReach), b = std::min(size.height, y1 + blurReach);
        const cv::Mat e = energy.rows(a, b, scores.floor);
        cv::Mat fine;
        cv::GaussianBlur(e, fine, cv::Size(), 2.0);
        fine = fine.rowRange(y0 - a, y1 - a);
        combined.create(fine.size(), CV_32F);
        for (int r = 0; r < fine.rows; ++r) {
            const float *ma, *mb, *ca, *cb;
            float mwa, mwb, cwa, cwb;
            mid.rowAt(y0 + r, midWeight, ma, mb, mwa, mwb);
            coarse.rowAt(y0 + r, coarseWeight, ca, cb, cwa, cwb);
            const float* f = fine.ptr<float>(r);
            float* c = combined.ptr<float>(r);
            for (int x = 0; x < fine.cols; ++x)
                c[x] = f[x] + (mwa * ma[x] + mwb * mb[x]) + (cwa * ca[x] + cwb * cb[x]);
        }
        // Half precision's largest value is 65504: scores beyond it (the very strongest edges) are kept as
        // that, never as infinities.
        halveInto(fine, y0, largestScore, scores.fine);
        halveInto(combined, y0, largestScore, scores.combined);
    });
    return scores;
}

// Row of a decision (255 or 0) at half the size each way, from full-size rows a and b: 255 where most of
// the 2 x 2 pixels are, or with `all`, where all of them are (at an odd last row or column, of the pixels
// there are).
void halveDecisionRow(const uchar* a, const uchar* b, int width, bool all, uchar* half)
{
    for (int i = 0; i < (width + 1) / 2; ++i) {
        const int x0 = 2 * i, x1 = std::min(x0 + 1, width - 1);
        const int count = (a[x0] != 0) + (a[x1] != 0) + (b[x0] != 0) + (b[x1] != 0);
        half[i] = (all ? count == 4 : count >= 2) ? 255 : 0;
    }
}

// Where all of a shot's 2 x 2 pixels are covered, at half the size.
cv::Mat halvedDecision(const CoveredPixels& covered, cv::Size size)
{
    cv::Mat half(halfOf(size), CV_8U);
    std::vector<uchar> a, b;
    for (int j = 0; j < half.rows; ++j)
        halveDecisionRow(covered.row(2 * j, a), covered.row(std::min(2 * j + 1, size.height - 1), b), size.width, true,
                         half.ptr<uchar>(j));
    return half;
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
    int index;
    bool first;
};

// The state of one row after a shot, and the shot's share of the result there. Where both the shot and
// the result have detail of their own, shares follow the sharpness as a steep power (a soft maximum):
// shots nearly as sharp as each other are averaged, which takes the noise down without blurring, and a
// clearly sharper shot takes the pixel alone. Elsewhere the decision says which shot takes it whole.
template <class Index>
void mergeRow(const ShotRow& shot, const float* fineRow, const float* combinedRow, const uchar* take,
              const uchar* covered, float* bestFine, float* best, float* total, Index* index, float* share, int width)
{
    for (int x = 0; x < width; ++x) {
        const float fine = fineRow[x], combined = combinedRow[x]; // at most largestScore (scoreOf)
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
                index[x] = Index(shot.index);
            }
        } else if (take[x]) {
            bestFine[x] = fine;
            best[x] = combined;
            total[x] = 1.f;
            index[x] = Index(shot.index);
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

constexpr CacheBands levelBands{CodedLevel::bandRows}; // even, so that a band starts on a row of the level below

// Rows [y0, y1) of pyrUp(down) to a level of `size`. A band reads two rows of `down` beyond each of its
// ends, so that its rows come out as from the whole image.
cv::Mat expandedRows(const cv::Mat& down, int y0, int y1, cv::Size size)
{
    const int d0 = std::max(0, y0 / 2 - 2), d1 = std::min(down.rows, (y1 + 1) / 2 + 2);
    // The expanded rows 2 * d0 onwards; at the bottom, as many as the level has.
    cv::Mat up;
    cv::pyrUp(down.rowRange(d0, d1), up, cv::Size(size.width, std::min(2 * (d1 - d0), size.height - 2 * d0)));
    return up.rowRange(y0 - 2 * d0, y1 - 2 * d0);
}

// Rows y0 onwards of a level of `size` less pyrUp(down) there (the level's detail), in place.
void subtractExpanded(cv::Mat& rows, int y0, cv::Size size, const cv::Mat& down)
{
    cv::subtract(rows, expandedRows(down, y0, y0 + rows.rows, size), rows);
}

// g -= pyrUp(down), a band of rows at a time: the expanded level is never made whole.
void subtractExpanded(cv::Mat& g, const cv::Mat& down)
{
    forEachBand(g.rows, levelBands, [&](int y0, int y1) {
        cv::Mat rows = g.rowRange(y0, y1);
        subtractExpanded(rows, y0, g.size(), down);
    });
}

// The shot's planes at the first shot's exposure in the pyramid's units and type, rows [a, b).
cv::Mat pyramidRows(const cv::Mat& aligned, int a, int b, const cv::Scalar& gains, int type)
{
    cv::Mat out;
    cv::multiply(aligned.rowRange(a, b), gains, out, 1.0, type);
    return out;
}

// The share of a weight in 255ths: 255 exactly 1, so that a shot taking a pixel whole gives it exactly.
struct Shares {
    float of[256];
    Shares()
    {
        for (int i = 0; i < 256; ++i)
            of[i] = float(i) / 255.f;
    }
};

// result += weight * (shot - result), pixel by pixel, rounded for integers; weight has one channel, in
// 255ths.
template <class T>
void blendLevel(cv::Mat& result, const cv::Mat& shot, const cv::Mat& weight)
{
    static const Shares shares;
    const int channels = result.channels();
    for (int y = 0; y < result.rows; ++y) {
        T* r = result.ptr<T>(y);
        const T* s = shot.ptr<T>(y);
        const uchar* w = weight.ptr<uchar>(y);
        for (int x = 0; x < result.cols; ++x) {
            if (w[x] == 0)
                continue;
            const float k = shares.of[w[x]];
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

// Rows y0 onwards of a kept level: the shot's detail there blended in by its weight (in 255ths), or for
// the first shot, taken as they are.
void blendRows(CodedLevel& level, int y0, const cv::Mat& detail, const cv::Mat& weight, bool first)
{
    if (first)
        level.write(y0, detail);
    else
        level.blend(y0, detail, weight);
}

// The shot's finest level (its planes in the pyramid's units less the expansion of their pyrDown) blended
// into `level` by its weight, and that pyrDown returned, from one pass over bands of the shot's rows: the
// shot is never made whole in the pyramid's units, and each band in them is made once, reduced, and kept
// for the finest level until the next band's reduced rows, which the expansion reads, are there. Each band
// reads the two rows beyond its ends that OpenCV's 5-tap kernel reaches, and starts on an even row, so that
// its rows come out as from the whole plane.
cv::Mat reducedWithFinest(const cv::Mat& aligned, const cv::Scalar& gains, int type, CodedLevel& level,
                          const cv::Mat& weight, bool first)
{
    const cv::Size size = aligned.size();
    cv::Mat down((size.height + 1) / 2, (size.width + 1) / 2, type), part, held;
    int heldFrom = 0, heldY0 = -1;
    const auto blendHeld = [&] {
        const int y1 = std::min(size.height, heldY0 + levelBands.rows);
        cv::Mat rows = held.rowRange(heldY0 - heldFrom, y1 - heldFrom);
        subtractExpanded(rows, heldY0, size, down);
        blendRows(level, heldY0, rows, weight.rowRange(heldY0, y1), first);
    };
    forEachBand(down.rows, CacheBands{levelBands.rows / 2}, [&](int d0, int d1) {
        const int a = std::max(0, 2 * d0 - 2), b = std::min(size.height, 2 * d1 + 2);
        cv::Mat band = pyramidRows(aligned, a, b, gains, type);
        cv::pyrDown(band, part);
        part.rowRange(d0 - a / 2, d1 - a / 2).copyTo(down.rowRange(d0, d1));
        if (heldY0 >= 0)
            blendHeld();
        held = band;
        heldFrom = a;
        heldY0 = 2 * d0;
    });
    if (heldY0 >= 0)
        blendHeld();
    return down;
}

// A whole level of the shot's pyramid blended into the kept one (made for the first shot), a band at a time.
void blendWhole(CodedLevel& level, const cv::Mat& detail, const cv::Mat& weight, bool first)
{
    if (first)
        level.create(detail.size(), detail.type());
    forEachBand(detail.rows, levelBands,
                [&](int y0, int y1) { blendRows(level, y0, detail.rowRange(y0, y1), weight.rowRange(y0, y1), first); });
}

} // namespace

void CodedLevel::create(cv::Size size, int type)
{
    size_ = size;
    type_ = type;
    whole_.release();
    bands_.clear();
    raw_.clear();
    if (CV_MAT_DEPTH(type) == CV_16S) {
        bands_.resize(size_t((size.height + bandRows - 1) / bandRows));
        raw_.resize(bands_.size());
    } else {
        whole_.create(size, type);
    }
}

namespace {

// A value from -127 to 127 as a byte; any other as this byte, then its own two, low first.
constexpr uchar escaped = 0x80;

// One value from its code; returns where the next one's starts.
inline const uchar* decodeOne(const uchar* code, short& value)
{
    if (*code != escaped) {
        value = static_cast<signed char>(*code);
        return code + 1;
    }
    value = short(code[1] | (code[2] << 8));
    return code + 3;
}

// A value's code at c, which moves past it.
inline void encode(short v, uchar*& c)
{
    if (v >= -127 && v <= 127) {
        *c++ = uchar(v);
    } else {
        c[0] = escaped;
        c[1] = uchar(v & 0xff);
        c[2] = uchar((v >> 8) & 0xff);
        c += 3;
    }
}

void decode(const uchar* code, short* values, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        code = decodeOne(code, values[i]);
}

} // namespace

cv::Mat CodedLevel::rows(int y0, int y1) const
{
    if (bands_.empty())
        return whole_.rowRange(y0, y1);
    cv::Mat out(y1 - y0, size_.width, type_), band;
    const size_t perRow = size_t(size_.width) * size_t(CV_MAT_CN(type_));
    for (int b = y0 / bandRows; b * bandRows < y1; ++b) {
        const int b0 = b * bandRows, b1 = std::min(size_.height, b0 + bandRows);
        const int from = std::max(y0, b0), to = std::min(y1, b1);
        // Straight into the rows asked for when they are the whole band, otherwise aside first.
        const bool whole = from == b0 && to == b1;
        if (!whole)
            band.create(b1 - b0, size_.width, type_);
        short* values = whole ? out.ptr<short>(b0 - y0) : band.ptr<short>(0);
        const std::vector<uchar>& code = bands_[size_t(b)];
        if (raw_[size_t(b)])
            std::memcpy(values, code.data(), code.size());
        else
            decode(code.data(), values, perRow * size_t(b1 - b0));
        if (!whole)
            band.rowRange(from - b0, to - b0).copyTo(out.rowRange(from - y0, to - y0));
    }
    return out;
}

void CodedLevel::write(int y0, const cv::Mat& rows)
{
    if (bands_.empty()) {
        if (rows.data != whole_.ptr(y0))
            rows.copyTo(whole_.rowRange(y0, y0 + rows.rows));
        return;
    }
    const size_t perRow = size_t(size_.width) * size_t(CV_MAT_CN(type_));
    std::vector<uchar>& code = scratch_;
    code.resize(perRow * size_t(std::min(bandRows, size_.height)) * 3); // the longest a band can take
    for (int r0 = 0; r0 < rows.rows; r0 += bandRows) {
        const int r1 = std::min(rows.rows, r0 + bandRows);
        uchar* c = code.data();
        for (int r = r0; r < r1; ++r) {
            const short* v = rows.ptr<short>(r);
            for (size_t i = 0; i < perRow; ++i)
                encode(v[i], c);
        }
        store(size_t((y0 + r0) / bandRows), code.data(), size_t(c - code.data()),
              perRow * sizeof(short) * size_t(r1 - r0));
    }
}

void CodedLevel::blend(int y0, const cv::Mat& detail, const cv::Mat& weight)
{
    if (bands_.empty()) {
        cv::Mat result = whole_.rowRange(y0, y0 + detail.rows);
        blendLevel(result, detail, weight);
        return;
    }
    static const Shares shares;
    const int channels = CV_MAT_CN(type_);
    const size_t perRow = size_t(size_.width) * size_t(channels);
    for (int r0 = 0; r0 < detail.rows; r0 += bandRows) {
        const int r1 = std::min(detail.rows, r0 + bandRows);
        const size_t b = size_t((y0 + r0) / bandRows);
        if (raw_[b]) { // kept as values: blended as rows, then stored as write() stores them
            cv::Mat result = rows(y0 + r0, y0 + r1);
            blendLevel(result, detail.rowRange(r0, r1), weight.rowRange(r0, r1));
            write(y0 + r0, result);
            continue;
        }
        std::vector<uchar>& code = scratch_;
        code.resize(perRow * size_t(std::min(bandRows, size_.height)) * 3);
        const uchar* in = bands_[b].data();
        uchar* c = code.data();
        for (int r = r0; r < r1; ++r) {
            const short* s = detail.ptr<short>(r);
            const uchar* w = weight.ptr<uchar>(r);
            for (int x = 0; x < size_.width;) {
                if (w[x] == 0) { // a run of such pixels: their codes copied whole
                    int end = x + 1;
                    while (end < size_.width && w[end] == 0)
                        ++end;
                    const uchar* from = in;
                    for (int n = (end - x) * channels; n > 0; --n)
                        in += *in == escaped ? 3 : 1;
                    std::memcpy(c, from, size_t(in - from));
                    c += in - from;
                    s += (end - x) * channels;
                    x = end;
                    continue;
                }
                if (w[x] == 255) { // the shot's value whole, as the blend below gives it
                    for (int ch = 0; ch < channels; ++ch) {
                        in += *in == escaped ? 3 : 1;
                        encode(s[ch], c);
                    }
                } else {
                    const float k = shares.of[w[x]];
                    for (int ch = 0; ch < channels; ++ch) {
                        short v = 0;
                        in = decodeOne(in, v);
                        encode(cv::saturate_cast<short>(v + k * (float(s[ch]) - float(v))), c);
                    }
                }
                s += channels;
                ++x;
            }
        }
        store(b, code.data(), size_t(c - code.data()), perRow * sizeof(short) * size_t(r1 - r0));
    }
}

void CodedLevel::store(size_t b, const uchar* code, size_t coded, size_t bytes)
{
    raw_[b] = coded >= bytes;
    const size_t size = raw_[b] ? bytes : coded;
    // A band is written again with every shot, at about the length it had: it keeps its block while the
    // new length fits with under an eighth to spare, rather than leaving holes of the old ones in the heap.
    std::vector<uchar>& band = bands_[b];
    if (size > band.capacity() || size + band.capacity() / 8 < band.capacity())
        std::vector<uchar>(size + size / 32).swap(band);
    band.resize(size);
    if (raw_[b])
        decode(code, reinterpret_cast<short*>(band.data()), bytes / sizeof(short));
    else
        std::memcpy(band.data(), code, coded);
}

CodedLevel CodedLevel::clone() const
{
    CodedLevel out = *this;
    out.whole_ = whole_.clone();
    return out;
}

FocusAligner::Fit FocusDepthMerge::add(cv::Mat shot, int index, const cv::Mat& covered,
                                       const std::function<void(const FocusAligner::Fit&)>& found)
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
    const FocusAligner::Fit added = geometryOf(fit);
    if (found)
        found(added);
    cv::Mat aligned;
    applyFit(shot, fit, cv::BORDER_REPLICATE, aligned, &fit.covered);
    shot.release();
    // The luminance scored, and the planes blended in the pyramid's type, both at the first shot's exposure.
    const std::array<double, 3>& gains = fit.gains;
    checkpoint(0.5, "measuring");
    Scores scores = scoreOf(aligned, aligned.channels() == 1 ? gains[0] : lumaOf(gains[0], gains[1], gains[2]),
                            scoreScale_, first ? FLT_MAX : floor_);
    checkpoint(0.8, "measuring");
    const cv::Size size = aligned.size(), half = halfOf(size);
    const float detail = detailFloor * scores.floor;
    const float soft = softFloor * scores.floor;
    std::vector<uchar> coveredBuffer;
    const auto coveredRow = [&](int y) { return fit.covered.row(y, coveredBuffer); };
    checkpoint(0.85, "merging");

    // From here the state changes, whole.
    const int levels = first ? levelCount(size) : int(levels_.size());
    // The index takes a byte a pixel until a 257th shot needs more.
    cv::Mat index16;
    if (index > 255 && index_.depth() == CV_8U)
        index_.convertTo(index16, CV_16U);
    if (first) {
        best_.create(half, CV_16F);
        bestFine_.create(half, CV_16F);
        totals_.create(half, CV_16F);
        index_ = cv::Mat(size, CV_8U, cv::Scalar(0));
        levels_.resize(size_t(levels));
    } else {
        aligner_.commit(fit);
    }
    if (!index16.empty())
        index_ = index16;
    floor_ = scores.floor;
    const ShotRow shotRow{soft, std::min(index, 65535), first};
    // A row at a time is worked on in single precision: the best score at the finest scale and at all, the
    // total share, the shot's scores and its share.
    cv::Mat rows(6, size.width, CV_32F);
    const auto at = [&](int row) { return rows.ptr<float>(row); };
    // Each pixel's share and index, from the state as it was, read at the full size, a band of rows at a
    // time with its decision: where the new shot beats the best so far, without isolated flips (a 5 x 5
    // median, each band decided with the two rows beyond its ends that the median reads).
    cv::Mat weight(size, CV_8U); // in 255ths: exact where one shot takes a pixel whole
    // The decision at half the size, for the state: each pixel taken by the shot where most of the four
    // full-size ones are.
    cv::Mat takeHalf(half, CV_8U);
    {
        HalfRows bestFine(bestFine_, size), best(best_, size), total(totals_, size), fine(scores.fine, size),
            combined(scores.combined, size);
        // The shot's scores and the best so far (finest, then all scales) at the full size, over the rows the
        // band's decision reads: read once, for the decision and then for the merge of the band's own rows.
        cv::Mat read4, decided, take;
        forEachBand(size.height, CacheBands{64}, [&](int y0, int y1) {
            const RowsRead read = rowsRead(y0, y1, 2, size.height);
            const int n = read.bottom - read.top;
            read4.create(4 * n, size.width, CV_32F);
            const auto kept = [&](int plane, int y) { return read4.ptr<float>(plane * n + y - read.top); };
            for (int y = read.top; y < read.bottom; ++y) {
                fine.row(y, kept(0, y));
                combined.row(y, kept(1, y));
                if (!first) {
                    bestFine.row(y, kept(2, y));
                    best.row(y, kept(3, y));
                }
            }
            if (first) {
                take = cv::Mat(n, size.width, CV_8U, cv::Scalar(255));
            } else {
                decided.create(n, size.width, CV_8U);
                for (int y = read.top; y < read.bottom; ++y)
                    decideRow(kept(0, y), kept(1, y), kept(2, y), kept(3, y), coveredRow(y), detail,
                              decided.ptr<uchar>(y - read.top), size.width);
                cv::medianBlur(decided, take, 5);
            }
            // The band's own rows of the best so far are merged where they were read (the decision is done
            // with them): only the share and the index are kept at the full size.
            for (int y = y0; y < y1; ++y) {
                if (!first)
                    total.row(y, at(2));
                const float *f = kept(0, y), *c = kept(1, y);
                const uchar* t = take.ptr<uchar>(y - read.top);
                if (index_.depth() == CV_8U)
                    mergeRow(shotRow, f, c, t, coveredRow(y), kept(2, y), kept(3, y), at(2), index_.ptr<uchar>(y),
                             at(5), size.width);
                else
                    mergeRow(shotRow, f, c, t, coveredRow(y), kept(2, y), kept(3, y), at(2),
                             index_.ptr<std::uint16_t>(y), at(5), size.width);
                rows.row(5).convertTo(weight.row(y), CV_8U, 255.0);
            }
            for (int j = y0 / 2; j < (y1 + 1) / 2; ++j) // bands start on even rows
                halveDecisionRow(take.ptr<uchar>(2 * j - read.top),
                                 take.ptr<uchar>(std::min(2 * j + 1, size.height - 1) - read.top), size.width, false,
                                 takeHalf.ptr<uchar>(j));
        });
    }
    // The state itself, at half the size, and only where all four full-size pixels are covered.
    const cv::Mat coveredHalf = fit.covered.all() ? cv::Mat() : halvedDecision(fit.covered, size);
    std::vector<uchar> noIndex(size_t(half.width));
    const auto widen = [&](const cv::Mat& plane, int y, int row) {
        plane.row(y).convertTo(rows.row(row).colRange(0, half.width), CV_32F);
    };
    for (int y = 0; y < half.height; ++y) {
        if (!first) {
            widen(bestFine_, y, 0);
            widen(best_, y, 1);
            widen(totals_, y, 2);
        }
        widen(scores.fine, y, 3);
        widen(scores.combined, y, 4);
        mergeRow(shotRow, at(3), at(4), takeHalf.ptr<uchar>(y),
                 coveredHalf.empty() ? nullptr : coveredHalf.ptr<uchar>(y), at(0), at(1), at(2), noIndex.data(), at(5),
                 half.width);
        rows.row(0).colRange(0, half.width).convertTo(bestFine_.row(y), CV_16F);
        rows.row(1).colRange(0, half.width).convertTo(best_.row(y), CV_16F);
        rows.row(2).colRange(0, half.width).convertTo(totals_.row(y), CV_16F);
    }
    scores = Scores();
    // The finest level is made and blended a band of rows at a time from the aligned shot: the shot is
    // never made whole in the pyramid's units, which take twice its bytes or more.
    const cv::Scalar units(gains[0] * unit_, gains[1] * unit_, gains[2] * unit_);
    const int type = CV_MAKETYPE(unit_ == 1.0 ? CV_32F : CV_16S, aligned.channels());
    cv::Mat g;
    if (levels > 1) {
        if (first)
            levels_[0].create(size, type);
        g = reducedWithFinest(aligned, units, type, levels_[0], weight, first);
        cv::Mat w;
        cv::pyrDown(weight, w);
        weight = w;
    } else {
        g = pyramidRows(aligned, 0, size.height, units, type);
    }
    aligned.release();
    for (int l = 1; l + 1 < levels; ++l) {
        cv::Mat down;
        cv::pyrDown(g, down);
        subtractExpanded(g, down); // the level's detail, in place of the level itself
        blendWhole(levels_[size_t(l)], g, weight, first);
        cv::Mat w;
        cv::pyrDown(weight, w);
        weight = w;
        g = down;
    }
    blendWhole(levels_.back(), g, weight, first);
    reportProgress(1.0, "merging");
    return added;
}

FocusDepthMerge FocusDepthMerge::copy() const
{
    FocusDepthMerge out = *this; // the aligner's planes are replaced, never written: they may be shared
    for (CodedLevel& level : out.levels_)
        level = level.clone();
    out.best_ = best_.clone();
    out.bestFine_ = bestFine_.clone();
    out.totals_ = totals_.clone();
    out.index_ = index_.clone();
    return out;
}

cv::Mat FocusDepthMerge::coarse() const
{
    if (levels_.size() < 2)
        return cv::Mat();
    cv::Mat r = levels_.back().rows(0, levels_.back().size().height);
    for (size_t l = levels_.size() - 1; l-- > 1;) {
        cv::Mat up;
        cv::pyrUp(r, up, levels_[l].size());
        r.release();
        forEachBand(up.rows, levelBands, [&](int y0, int y1) { // in place, a band at a time as the level is kept
            cv::Mat rows = up.rowRange(y0, y1);
            cv::add(rows, levels_[l].rows(y0, y1), rows);
        });
        r = up;
    }
    return r;
}

void FocusDepthMerge::toShotUnits(const cv::Mat& coarse, int first, int last, int depth, cv::Mat& out) const
{
    cv::Mat rows = levels_[0].rows(first, last); // with one level, the coarse image itself
    if (!coarse.empty()) {
        cv::Mat sum;
        cv::add(rows, expandedRows(coarse, first, last, levels_[0].size()), sum);
        rows = sum;
    }
    rows.convertTo(out, depth, 1.0 / unit_); // rounded and saturated
}

} // namespace VEXA
