// The depth-map focus merge, shot by shot, with a running state bounded whatever the stack's length.
//
// Each shot, at its own depth (8u, 16u and 32f alike, no 8-bit step for the others):
// 1. brought to the first shot's geometry (FocusAligner, when aligning) and exposure (a gain per channel);
// 2. scored: the squared 3 x 3 Laplacian of its luminance, less twice the noise floor (the median of that
//    energy, or the lowest median of the series so far if lower, so that grain and JPEG blocks score
//    nothing), smoothed at three scales (about 2, 8 and 32 pixels): the finest alone, and all three summed
//    (weights 1, 0.5 and 1: the wider scales are weaker per pixel, being averages);
// 3. decided: where the shot or the best so far has detail of its own (a finest score over 3 times the
//    noise floor), the sharper detail wins; where neither has (flat or always-blurred areas), the summed
//    scales decide, which carry the sharpness of the detail around, so the choice follows the depths
//    decided nearby instead of noise. Isolated flips are removed by a 5 x 5 median of that decision;
// 4. shared: where both the shot and the result so far have detail over 1.5 times the floor, shots share
//    the pixel by their finest scores to the 4th power (a soft maximum), normalised over the shots so far:
//    shots nearly as sharp as each other are averaged, which lowers the noise without blurring, and one
//    under a quarter as sharp as the best gets nothing, so the detail stays one shot's where one is
//    clearly sharper. Elsewhere the decision gives the pixel to one shot whole;
// 5. blended into the running result's Laplacian pyramid through the Gaussian pyramid of its share: at
//    the finest level each pixel keeps the detail of the shots that share it (one, where one is sharp: no
//    ghosts), while coarser levels blend across the decision's edges, hiding seams and what is left of the
//    exposure differences.
// Scores are blurred over about 2 pixels at their finest, so they are kept at half the size each way and
// read back bilinearly at every pixel, which decides each pixel, its share and its index as the full-size
// scores would; the state's own scores are updated at that size, each of its pixels as most of the four
// full-size ones under it were decided.
// State: the result's pyramid (in colour, 8 bytes a pixel for 8-bit shots, about 5 as its levels are kept
// coded (CodedLevel); 16 for others; a third of that in gray); at half the size and in half
// precision, the best score at all scales and at the finest and the total share of the shots averaged
// (1.5); the index of the shot that gave the best (1, 2 beyond 256 shots); the aligner's neighbour at a
// quarter of the pixels in 16 bits. While a shot is merged, beside the shot and its aligned copy: its two
// scores at half the size (1; the energy behind them made a band of rows at a time, never whole), then its
// share of each pixel in 255ths (1 byte), which is exact where one shot takes a pixel whole, and the
// shot's pyramid a level at a time, the finest a band at a time. The decision is made a band at a time as
// each band is merged.
#pragma once

#include <vexa/imp/kernels/focus_align.h>

#include <opencv2/core.hpp>

#include <functional>
#include <vector>

namespace VEXA {

// A level of the merge's pyramid, a band of rows at a time. In 16-bit fixed point (8-bit shots) each band
// is kept coded: a value from -127 to 127 in a byte, any other as a marker byte and its own two. Most of a
// level's detail is that small (88 to 99% of the finest level's values on rendered and real series, 86 to
// 91% of the next's), so that a band takes a little over half its bytes; one that would take more (the
// coarse image itself) is kept as it is. In floats, kept whole.
class CodedLevel {
public:
    static constexpr int bandRows = 32;

    void create(cv::Size size, int type);
    cv::Size size() const { return size_; }
    // Rows [y0, y1) as a plane of their own (a view where the level is kept whole).
    cv::Mat rows(int y0, int y1) const;
    // Rows y0 onwards, y0 a multiple of bandRows, in whole bands (but at the bottom).
    void write(int y0, const cv::Mat& rows);
    // Rows y0 onwards (as write() takes them) += weight * (detail - rows), pixel by pixel, rounded for
    // integers; weight has one channel, in 255ths. A coded band is read and coded again in one pass, the
    // values of pixels of weight 0 (most of them, after the first shots) carried over as their bytes stand.
    void blend(int y0, const cv::Mat& detail, const cv::Mat& weight);
    // A copy with planes of its own.
    CodedLevel clone() const;

private:
    // Band b from its code (`coded` bytes of it), or where that would take as many bytes as the values
    // themselves (`bytes`), from those values.
    void store(size_t b, const uchar* code, size_t coded, size_t bytes);

    cv::Size size_;
    int type_ = 0;
    cv::Mat whole_;                         // floats
    std::vector<std::vector<uchar>> bands_; // 16-bit: coded, or as they are where coding would not pay
    std::vector<bool> raw_;
    std::vector<uchar> scratch_; // a band being coded, at the longest it can take
};

class FocusDepthMerge {
public:
    explicit FocusDepthMerge(bool align) : align_(align) {}

    bool empty() const { return levels_.empty(); }
    // A copy of its own: add() writes the state in place.
    FocusDepthMerge copy() const;
    // Merges a shot (one plane or blue, green and red, of 8u, 16u or 32f: the first shot's size, channels
    // and depth). Everything up to the
    // state's change is done aside and may throw (a cancellation, a shot that cannot be aligned); the
    // change itself runs whole. Without automatic alignment, `covered` (CV_8U, 255 where the shot has
    // data) may say which pixels a shot aligned by the caller covers.
    // Returns the shot's gains and geometry (geometryOf its fit), which `found`, where given, is shown as
    // soon as the fit is known, before the shot is merged.
    FocusAligner::Fit add(cv::Mat shot, int index, const cv::Mat& covered = cv::Mat(),
                          const std::function<void(const FocusAligner::Fit&)>& found = nullptr);
    // The merge so far without its finest level: the coarser levels collapsed, at half the size, in the
    // pyramid's units (empty when the pyramid has one level).
    cv::Mat coarse() const;
    // Rows [first, last) of the merge so far in the shots' units, as the given OpenCV depth, from coarse():
    // a band at a time, so that the merge is never made whole in the pyramid's units.
    void toShotUnits(const cv::Mat& coarse, int first, int last, int depth, cv::Mat& out) const;
    // The index of the shot each pixel's finest detail came from: CV_8U while no shot beyond the 256th was
    // merged, CV_16U from then on.
    const cv::Mat& index() const { return index_; }

private:
    bool align_;
    FocusAligner aligner_;
    // The result's Laplacian pyramid, finest first, the last the coarse image: in eighths of a level (CV_16S)
    // for 8-bit shots, which keeps it exact at half the memory of floats, coded; in floats for the others.
    std::vector<CodedLevel> levels_;
    double unit_ = 1.0; // the pyramid's values per unit of the shots
    double scoreScale_ = 1.0; // scores in units of the shots squared, times this
    float floor_ = 0;         // the lowest noise floor of the shots so far
    // At half the size and in half precision: the best score so far at all scales and at the finest, and
    // the total weight of the shots averaged there, relative to the sharpest.
    cv::Mat best_, bestFine_, totals_;
    cv::Mat index_; // CV_8U, or CV_16U once a shot's index passes 255
};

} // namespace VEXA
