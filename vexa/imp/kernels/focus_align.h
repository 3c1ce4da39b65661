// Automatic alignment of a focus series, shot by shot, onto its first shot (the reference).
//
// Real series move between shots: the magnification changes with the focus (breathing), a hand-held
// camera shakes, and a camera that moves sideways sees near things shift more than far ones (parallax).
// Each shot is fitted to the one before it, which is already in the reference's geometry, so the fits
// chain to the reference while every comparison is between neighbours, whose focus differs least:
// 1. a global affine fit (shift, rotation, scale, shear) by OpenCV's ECC, which is blind to exposure
//    (zero-mean normalised correlation), coarse to fine on a pyramid up to half resolution (a quarter
//    where half has more than half a million pixels, which the local correction then completes);
// 2. the exposure and white balance of the shot, brought to the neighbour's (and so to the reference's)
//    by a gain per channel: the median ratio of the two, compared after a heavy blur at an eighth of the
//    size, where the focus difference no longer shows, over the areas flat in both (defocus spreads
//    light, which brightens detailed areas once encoded, so that they drift with focus, not exposure);
// 3. a smooth local correction for parallax: DIS optical flow at half resolution (in overlapping tiles,
//    which bound its memory) between the globally fitted shot and its neighbour, averaged over about 24
//    pixels with the detail both have as weights,
//    so that flat and blurred areas (where flow is noise) follow the detail around them; vectors longer
//    than 1% of the diagonal are matches gone astray and are left out.
// Both neighbours are blurred alike before they are compared. A global fit that removes under a tenth of
// the misfit the two show laid over each other as they stand is taken as no motion: it follows their focus
// differences (by up to 0.4 pixel, chained, on a still rendered series). Flow that focus differences alone
// make at defocused edges changes sign across an edge and points every way around an object; the local
// correction is applied only where the flow averaged over about 70 pixels still moves something by a
// quarter of a pixel along one direction (a camera moving sideways) or along the rays from the centre (a
// camera moving along its axis, as on a focusing rail). A shot whose fit moves no corner by 0.1 pixel and that needs no
// local correction is not resampled. A still shot is told cheaply: on large shots the global fit ends at
// a quarter of the working size when it explains nothing there, and a shot found globally still is looked
// at for parallax with a fast flow first.
// Shots under 100 pixels on a side are taken as they stand. A shot that cannot be fitted (no correlation,
// or a fit beyond a quarter of the image or a scale outside 0.7..1.4) throws dip_exception with a reason,
// and the aligner is unchanged.
#pragma once

#include <opencv2/core.hpp>

#include <array>

namespace VEXA {

// The pixels of the reference that a shot covers, as runs of pixels in each row: a fitted shot misses
// pixels along the borders only, so that this takes a few bytes a row where a mask takes one a pixel.
class CoveredPixels {
public:
    // Every pixel covered.
    bool all() const { return starts_.empty(); }
    // From a mask (CV_8U, nonzero where covered); all() when every pixel is, or the mask is empty.
    static CoveredPixels ofMask(const cv::Mat& mask);
    // Built a row at a time, in order, from whether each of its `width` pixels is covered; then finish().
    template <class Covered>
    void addRow(int width, Covered&& covered)
    {
        width_ = width;
        starts_.push_back(int(runs_.size()));
        int begin = -1;
        for (int x = 0; x <= width; ++x) {
            const bool in = x < width && covered(x);
            if (in && begin < 0)
                begin = x;
            if (!in && begin >= 0) {
                runs_.emplace_back(begin, x);
                begin = -1;
            }
        }
    }
    // all() from here on where every row was covered whole.
    void finish();
    // Row y as 255 where covered and 0 elsewhere, in `buffer`; null when every pixel is covered.
    const uchar* row(int y, std::vector<uchar>& buffer) const;

private:
    std::vector<int> starts_; // per row, its first run
    std::vector<cv::Vec2i> runs_;
    int width_ = 0;
};

class FocusAligner {
public:
    struct Fit {
        // Whether the shot is read through the fit (global, then the local correction); otherwise it is
        // used as it stands.
        bool moves = false;
        // The local correction: where each reference pixel is read from, relative to itself, in full-size
        // pixels, sampled at the centres of working pixels flowScale times larger (CV_32FC2; empty for none).
        cv::Mat flow;
        int flowScale = 1;
        // Pixels of the reference that the shot covers: from the caller's mask, or for a shot that moves,
        // as applyFit finds them.
        CoveredPixels covered;
        // Gains per channel (blue, green, red; gray uses the first) that match the reference's exposure.
        std::array<double, 3> gains{1.0, 1.0, 1.0};
        cv::Matx23d global = cv::Matx23d(1, 0, 0, 0, 1, 0); // reference -> shot, full-size pixels
        double localShift = 0;                              // the largest local correction, in pixels
        cv::Mat small;                                      // the shot at an eighth of the size, fitted and matched
        cv::Mat gray; // its gray plane at working size, fitted and matched, in 16 bits (see FocusAligner::packed)
        cv::Mat smallDetail;                                // per small pixel, the spread of the luminance in it
    };

    // The first shot: colour is the shot as one plane or blue, green and red, of 8u, 16u or 32f; later
    // shots are alike. Only reduced copies of them are made in single precision.
    void start(const cv::Mat& colour);
    bool started() const { return !previousGray_.empty(); }
    // Fits a later shot; the aligner is not changed until commit().
    Fit fit(const cv::Mat& colour) const;
    // The fitted shot becomes the neighbour of the next one.
    void commit(const Fit& fit);

    // Gains of a shot already in the reference's geometry, over the pixels it covers (CV_8U, 255; empty
    // for all).
    Fit matchExposure(const cv::Mat& colour, const cv::Mat& covered) const;

private:
    // The neighbour's gray plane is kept in 16 bits, at half the bytes of floats: in 128ths of a level of
    // the scale that puts the reference's brightest at 250, room enough for a shot twice as bright.
    double grayUnit() const { return 1.0 / (128 * grayScale_); }
    cv::Mat packed(const cv::Mat& gray) const
    {
        cv::Mat out;
        gray.convertTo(out, CV_16U, 1.0 / grayUnit());
        return out;
    }

    cv::Size size_;
    int workScale_ = 1; // full size / working size
    double grayScale_ = 1;
    cv::Mat previousGray_;                       // working size, packed, in the reference's geometry and exposure
    cv::Mat previousSmall_;                      // an eighth of the size, blurred, CV_32FC(n)
    cv::Mat previousDetail_;                     // the same, of its luminance
};

// The luminance of single-precision planes: the plane itself, or of blue, green and red.
cv::Mat grayOf(const cv::Mat& colour);

// The shot read through the fit (bicubic; outside it, `border` of OpenCV's, black for a constant one) into
// out, which may already be the destination's memory; a shot that does not move becomes out itself. The
// map is made a band of rows at a time; where `covered` is given and the shot moves, it says which pixels
// the shot covers.
void applyFit(const cv::Mat& shot, const FocusAligner::Fit& fit, int border, cv::Mat& out,
              CoveredPixels* covered = nullptr);
// The fit without its working planes: what applyFit reads, and the gains.
FocusAligner::Fit geometryOf(const FocusAligner::Fit& fit);

} // namespace VEXA
