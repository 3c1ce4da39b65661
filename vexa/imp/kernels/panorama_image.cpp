#include <vexa/imp/kernels/panorama_image.h>

#include <vexa/imp/detail/progress.h>
#include <vexa/imp/exceptions.h>

#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/stitching.hpp>

#include <algorithm>
#include <cmath>
#include <string>

namespace VEXA {

namespace {

constexpr int kMinTemplateSide = 8;
// Three times the stitcher's default: tiles overlapping by a third or less otherwise keep too few matches.
constexpr int kPanoramaFeatures = 1500;

// A part of a tile as one float channel: colour by its luminance, the X or alpha byte left out.
cv::Mat luminanceOf(const cv::Mat& part)
{
    cv::Mat values;
    part.convertTo(values, CV_32F);
    if (values.channels() == 3)
        cv::cvtColor(values, values, cv::COLOR_BGR2GRAY);
    else if (values.channels() == 4)
        cv::cvtColor(values, values, cv::COLOR_BGRA2GRAY);
    // matchTemplate spreads a single NaN over every score it touches, through its sums.
    if (!cv::checkRange(values))
        throw dip_exception("Tiles hold infinite or NaN values");
    return values;
}

// The vertex of the parabola through (-1, left), (0, centre), (1, right), within half a pixel of the
// centre; 0 when the three do not make a peak.
double vertexOf(double left, double centre, double right)
{
    const double curvature = left - 2.0 * centre + right;
    if (!(curvature < 0.0))
        return 0.0;
    return std::clamp(0.5 * (left - right) / curvature, -0.5, 0.5);
}

// The matcher's RANSAC draws from the calling thread's OpenCV generator, which parallel_for hands on to its
// workers: seeded here, a panorama depends on its images alone, not on what the thread did before. The
// caller's generator is given back afterwards.
class SeededGenerator {
public:
    SeededGenerator() : saved_(cv::theRNG()) { cv::theRNG() = cv::RNG(0x5eed); }
    ~SeededGenerator() { cv::theRNG() = saved_; }
    SeededGenerator(const SeededGenerator&) = delete;
    SeededGenerator& operator=(const SeededGenerator&) = delete;

private:
    cv::RNG saved_;
};

void requireStitched(cv::Stitcher::Status status)
{
    switch (status) {
    case cv::Stitcher::OK: return;
    // Fewer than two images were given is refused before; this is what is left after the stitcher dropped
    // every image that matches no other.
    case cv::Stitcher::ERR_NEED_MORE_IMGS:
        throw dip_exception("The images do not overlap: too few features match between them");
    case cv::Stitcher::ERR_HOMOGRAPHY_EST_FAIL:
        throw dip_exception("The images do not overlap enough to estimate their placement");
    case cv::Stitcher::ERR_CAMERA_PARAMS_ADJUST_FAIL:
        throw dip_exception("The camera parameters could not be adjusted to the images");
    }
    throw dip_exception("The stitcher failed");
}

// The stitcher's BGR result in the sources' pair, written into a new image shaped like the first source.
VImage panoramaAs(const cv::Mat& pano, const cv::Mat& covered, const VImage& model)
{
    VImage result;
    result.create(pano.cols, pano.rows, model.format(), Channel8u, model.origin(), model.rowsAlignment());
    cv::Mat d = asCvMat(result);
    if (d.rows != pano.rows || d.cols != pano.cols)
        throw dip_exception("Not enough memory for the panorama");
    writeInto(d, [&](cv::Mat& o) {
        switch (model.format()) {
        case GrayScale: cv::cvtColor(pano, o, cv::COLOR_BGR2GRAY); break;
        case BGR: pano.copyTo(o); break;
        default: cv::cvtColor(pano, o, cv::COLOR_BGR2BGRA, 4); break;
        }
    });
    if (model.format() == ARGB && covered.size() == pano.size() && covered.type() == CV_8UC1) {
        cv::Mat alpha;
        cv::threshold(covered, alpha, 0, 255, cv::THRESH_BINARY);
        cv::insertChannel(alpha, d, 3);
    }
    return result;
}

} // namespace

cv::Mat kernel::bgrOf(const cv::Mat& m)
{
    cv::Mat bgr;
    switch (m.channels()) {
    case 1: cv::cvtColor(m, bgr, cv::COLOR_GRAY2BGR); return bgr;
    case 4: cv::cvtColor(m, bgr, cv::COLOR_BGRA2BGR); return bgr;
    default: return m; // BGR: the stitcher reads the image's own pixels
    }
}

QPointF kernel::templatePosition(const cv::Mat& f, const cv::Mat& m, QPointF expected, int searchRadius,
                                 double minScore, double* bestScore)
{
    // The template: the part of moving, placed at the expected offset, that lies at least searchRadius
    // pixels inside fixed, so that every shift within the radius keeps it inside fixed. In fixed's
    // coordinates, then moving's.
    const int r = searchRadius;
    const cv::Point at(int(std::lround(expected.x())), int(std::lround(expected.y())));
    const cv::Rect inner(r, r, std::max(0, f.cols - 2 * r), std::max(0, f.rows - 2 * r));
    const cv::Rect placed = cv::Rect(at.x, at.y, m.cols, m.rows) & inner;
    if (placed.width < kMinTemplateSide || placed.height < kMinTemplateSide)
        throw dip_exception("The expected overlap is too small for the search radius");
    const cv::Rect search(placed.x - r, placed.y - r, placed.width + 2 * r, placed.height + 2 * r);

    const cv::Mat templ = luminanceOf(m(placed - at));
    const cv::Mat window = luminanceOf(f(search));
    cv::Scalar mean, deviation;
    cv::meanStdDev(templ, mean, deviation);
    if (!(deviation[0] > 1e-7 * std::max(1.0, std::abs(mean[0]))))
        throw dip_exception("The overlap has no texture to match");

    cv::Mat scores;
    cv::matchTemplate(window, templ, scores, cv::TM_CCOEFF_NORMED);
    double best = 0.0;
    cv::Point peak;
    cv::minMaxLoc(scores, nullptr, &best, nullptr, &peak);
    if (!(best >= minScore))
        throw dip_exception("The tiles do not overlap near the expected offset");

    const auto s = [&](int x, int y) { return double(scores.at<float>(y, x)); };
    double dx = 0.0, dy = 0.0;
    if (peak.x > 0 && peak.x < scores.cols - 1)
        dx = vertexOf(s(peak.x - 1, peak.y), best, s(peak.x + 1, peak.y));
    if (peak.y > 0 && peak.y < scores.rows - 1)
        dy = vertexOf(s(peak.x, peak.y - 1), best, s(peak.x, peak.y + 1));
    *bestScore = best;
    return QPointF(at.x + peak.x - r + dx, at.y + peak.y - r + dy);
}

VImage kernel::stitch(const std::vector<cv::Mat>& bgr, PanoramaMode mode, const VImage& model, ProgressSteps& steps)
{
    // Placing works on copies of about 0.6 megapixels and seams on 0.1, whatever the images' size; the
    // result is composed from the full-size images.
    const cv::Ptr<cv::Stitcher> stitcher = cv::Stitcher::create(cv::Stitcher::Mode(mode));
    stitcher->setRegistrationResol(0.6);
    stitcher->setSeamEstimationResol(0.1);
    stitcher->setCompositingResol(cv::Stitcher::ORIG_RESOL);
    stitcher->setFeaturesFinder(cv::ORB::create(kPanoramaFeatures));
    const SeededGenerator seeded;

    steps.to(0.6);
    requireStitched(stitcher->estimateTransform(bgr));
    const size_t placed = stitcher->component().size();
    if (placed < bgr.size())
        throw dip_exception("Only " + std::to_string(placed) + " of " + std::to_string(bgr.size()) +
                            " images overlap the others");

    steps.to(0.95);
    cv::Mat pano;
    requireStitched(stitcher->composePanorama(pano));
    if (pano.empty() || pano.type() != CV_8UC3)
        throw dip_exception("The stitcher gave no image");
    const cv::Mat covered = stitcher->resultMask().getMat(cv::ACCESS_READ).clone();

    steps.to(1.0);
    VImage result = panoramaAs(pano, covered, model);
    return result;
}

} // namespace VEXA
