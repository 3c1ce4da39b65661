// Synthetic focus series: one textured scene over a known depth map, photographed N times with the focus
// moving from the nearest depth to the farthest.
//
// Depth runs from 0 (nearest) to 1 (farthest). Shot k focuses at f_k = k / (N - 1) with a depth of field
// of half-width h = 0.5 / (N - 1), so every depth lies inside the field of at least one shot. Outside it
// the blur is a Gaussian of sigma = maxBlur * (|depth - f_k| - h), growing linearly with the distance from
// the focus. The scene is cut into depth slices thin enough that the sigmas of neighbouring ones differ by
// half a pixel at most, and each shot is made by blurring every slice's colour, premultiplied by its
// coverage, with the slice's own sigma and compositing the slices far to near in linear light: a blurred
// near object spreads over the background behind it as it does through a lens, and close to depth edges
// no shot is wholly sharp. Noise, when asked for, is added last, in 8-bit levels.
//
// A handheld series also drifts from shot to shot; each of these nuisances is off unless asked for, and
// they come in this order:
// - parallax: the camera moves sideways by the same step between shots, so in shot k a slice of depth d
//   lies parallax * f_k * (1 - d) pixels further right (subpixel): near slices move the most, the
//   farthest depth stays, and near objects uncover what lay behind them. What they uncover is each
//   slice's own texture mirrored across its edge, a few pixels deep.
// - breathing and shake, one warp of the composited shot in linear light, with the image reflected at
//   its borders: the shot is magnified by 1 + breathing * f_k, rotated by a random angle and shifted by a
//   random offset, all about the image centre c = ((width - 1) / 2, (height - 1) / 2), pixel centres at
//   whole coordinates. A point p of the scene lands at c + m * R(angle) * (p - c) + shift in the shot,
//   R turning clockwise on the screen (y points down) for a positive angle. The offset's sigma is shake
//   pixels in x and in y, the angle's shake / half-diagonal radians, so that a corner moves by about shake.
// - gains in linear light: the exposure exp(N(0, exposureDrift)) for the whole shot times the white
//   balance exp(N(0, whiteBalanceDrift)) for each channel; values past white clip.
// - noise in 8-bit levels: Gaussian of sigma noise everywhere plus, for the photon noise, sigma
//   shotNoise * sqrt(v / 255) at a pixel of level v, so the bright parts are the noisier. The two are
//   one draw of the summed variance.
//
// Shot 0 is the neutral shot: no shift, no turn, no magnification (its focus is 0), no parallax and
// gains of 1. Every other shot's nuisances are measured from it, and the truth, the scene sharp
// everywhere, is the scene as the neutral shot frames and exposes it: it lines up with shot 0 pixel for
// pixel, and the depth map with it. Noise, being no geometry, is on shot 0 too.
//
// Everything follows from the scene, the settings and the seed: the same inputs give the same bytes. The
// gains and the shake are drawn from streams of their own, so that turning one on changes no other.
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

namespace vexatool {

enum class DepthKind {
    Plane,  // a tilted plane, nearest at one edge and farthest at the opposite one
    Steps,  // flat rectangles and discs at a few depths, nearer ones over farther ones, before a far ground
    Sphere, // a dome rising towards the camera before a far ground
};

struct FocusSeriesSettings {
    cv::Size size{1024, 768};
    int shots = 8;
    DepthKind depth = DepthKind::Steps;
    double noise = 0;             // sigma of the additive Gaussian noise, in 8-bit levels
    double shotNoise = 0;         // sigma of the noise at white, in 8-bit levels; it goes with the root of the level
    double exposureDrift = 0;     // sigma of the log of each shot's exposure gain
    double whiteBalanceDrift = 0; // sigma of the log of each shot's gain per channel, on top
    double breathing = 0;         // magnification at the farthest focus, less 1
    double shake = 0;             // sigma of the shift in x and in y, in pixels
    double parallax = 0;          // sideways shift of the nearest depth in the last shot, in pixels
    std::uint64_t seed = 1;
};

// What one shot has against the neutral shot 0.
struct ShotNuisance {
    cv::Vec3d gain{1, 1, 1}; // linear-light gain of B, G and R
    double magnification = 1;
    cv::Point2d shift;   // pixels, after the magnification and the turn about the centre
    double rotation = 0; // radians, clockwise on the screen
    double parallax = 0; // shift of depth 0 to the right, in pixels, before the warp
    bool warps() const { return magnification != 1 || shift != cv::Point2d() || rotation != 0; }
};

// A deterministic seed for one of the independent random streams drawn from the user's seed.
std::uint64_t streamSeed(std::uint64_t seed, std::uint64_t stream);

// A BGR 8u scene with detail everywhere: colour washes, shapes, lines and text-like strokes at several
// scales, under a fine grain.
cv::Mat drawScene(cv::Size size, std::uint64_t seed);
// A BGR 8u copy of the photo scaled to cover the size and cropped about its centre.
cv::Mat fitPhoto(const cv::Mat& photo, cv::Size size);
// Depth in [0, 1] (CV_32F), 0 nearest; the nearest point is 0 and the farthest 1.
cv::Mat makeDepth(cv::Size size, DepthKind kind, std::uint64_t seed);

class FocusSeriesRenderer {
public:
    // scene: BGR 8u of settings.size; depth: CV_32F of the same size, values in [0, 1].
    FocusSeriesRenderer(const cv::Mat& scene, const cv::Mat& depth, const FocusSeriesSettings& settings);

    // sigma at a distance of 1 from the focus: max(2.5, diagonal / 250) pixels, so that a series looks
    // alike at every size.
    double maxBlur() const { return maxBlur_; }
    double focusDepth(int shot) const;
    double blurSigma(double depth, int shot) const;
    const ShotNuisance& nuisance(int shot) const { return nuisances_[size_t(shot)]; }
    // Shot number shot (0 focuses nearest), BGR 8u.
    cv::Mat renderShot(int shot) const;

private:
    cv::Rect tileRect(int tile) const;
    // Whether slice s has pixels inside the region.
    bool sliceMeets(int s, const cv::Rect& region) const;
    // How far right slice s lies in the shot, in pixels.
    double sliceShift(int s, int shot) const;
    // The tile of the shot in linear light, before the warp: colour divided by coverage.
    void compositeTile(int shot, int tile, cv::Mat& frame) const;
    // The tile of the warped frame as 8-bit sRGB, with the gains and the noise.
    void encodeTile(int shot, int tile, const cv::Mat& frame, cv::Mat& result) const;

    FocusSeriesSettings settings_;
    double maxBlur_ = 0;
    cv::Mat linear_; // the scene in linear light, CV_32FC3
    cv::Mat labels_; // slice of every pixel, CV_8U; slice 0 is the nearest
    int slices_ = 0;
    std::vector<double> sliceDepth_; // mean depth of each slice's pixels; negative for an empty slice
    // Shots are rendered tile by tile, each tile on its own, so tiles can run in parallel.
    int tilesX_ = 0;
    int tilesY_ = 0;
    std::vector<cv::Rect> boxes_; // [tile * slices_ + slice]: the slice's pixels in the tile, bounded
    std::vector<ShotNuisance> nuisances_;
    // With parallax: how far right of its own pixels a slice reaches under nearer ones, and for every
    // pixel within that reach, the slice that reaches it (CV_8U, 255 for none) and how far left the pixel
    // whose colour it shows there lies (CV_16U).
    int reach_ = 0;
    cv::Mat behind_;
    cv::Mat behindOffset_;
};

} // namespace vexatool
