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
// Everything follows from the scene, the settings and the seed: the same inputs give the same bytes.
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
    double noise = 0; // sigma of the additive Gaussian noise, in 8-bit levels
    std::uint64_t seed = 1;
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
    // Shot number shot (0 focuses nearest), BGR 8u.
    cv::Mat renderShot(int shot) const;

private:
    cv::Rect tileRect(int tile) const;
    // Whether slice s has pixels inside the region.
    bool sliceMeets(int s, const cv::Rect& region) const;
    void renderTile(int shot, int tile, cv::Mat& result) const;

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
};

} // namespace vexatool
