// The rendered focus series of `vexa sample focus-stack`: the layered scene, the depth of field of each
// shot and every nuisance of a real series (exposure and white balance drift, breathing, shake, parallax,
// noise, JPEG). Over 500 lines because the renderer and its nuisances share one scene model.
#include "focus_series.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <string>

namespace vexatool {

namespace {

// Below this sigma a slice is left sharp: the blur would move no value by a visible amount.
constexpr double kSharpSigma = 0.2;
// Wider blurs run on a coarser grid.
constexpr double kDirectBlurSigma = 3.0;
// Side of the square tiles shots are rendered in.
constexpr int kTile = 512;

double srgbToLinear(double v) { return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4); }
double linearToSrgb(double v) { return v <= 0.0031308 ? v * 12.92 : 1.055 * std::pow(v, 1 / 2.4) - 0.055; }

// 8-bit sRGB levels to linear light in [0, 1].
cv::Mat decodeTable()
{
    cv::Mat table(1, 256, CV_32F);
    for (int i = 0; i < 256; ++i)
        table.at<float>(i) = float(srgbToLinear(i / 255.0));
    return table;
}

// Linear light sampled at 65536 steps to sRGB in 8-bit levels (as a float, before rounding). The steps are
// fine enough that every 8-bit level decoded and encoded again comes back to itself.
constexpr int kEncodeSteps = 65535;
const std::vector<float>& encodeTable()
{
    static const std::vector<float> table = [] {
        std::vector<float> t(kEncodeSteps + 1);
        for (int i = 0; i <= kEncodeSteps; ++i)
            t[i] = float(255.0 * linearToSrgb(double(i) / kEncodeSteps));
        return t;
    }();
    return table;
}

// A smooth random field in [-1, 1] per channel, with features about cell pixels across.
cv::Mat valueNoise(cv::Size size, double cell, cv::RNG& rng)
{
    const cv::Size grid(std::max(2, int(std::ceil(size.width / cell)) + 1),
                        std::max(2, int(std::ceil(size.height / cell)) + 1));
    cv::Mat knots(grid, CV_32FC3);
    rng.fill(knots, cv::RNG::UNIFORM, -1.0, 1.0);
    cv::Mat field;
    cv::resize(knots, field, size, 0, 0, cv::INTER_CUBIC);
    return field;
}

cv::Scalar randomColour(cv::RNG& rng)
{
    return cv::Scalar(rng.uniform(0, 256), rng.uniform(0, 256), rng.uniform(0, 256));
}

// Somewhere over the image or up to slack pixels beyond its edges.
cv::Point randomPoint(cv::RNG& rng, cv::Size size, int slack)
{
    return {rng.uniform(-slack, size.width + slack), rng.uniform(-slack, size.height + slack)};
}

// How many items about extent pixels across make up the given share of the image between them (a share
// of each octave of sizes makes the scene look alike at every size).
int itemsFor(cv::Size size, double extent, double share, cv::RNG& rng)
{
    return int(share * size.width * size.height / (extent * extent) + rng.uniform(0.0, 1.0));
}

void drawShape(cv::Mat& canvas, cv::RNG& rng, double extent)
{
    const cv::Point centre = randomPoint(rng, canvas.size(), int(extent / 2));
    const cv::Scalar colour = randomColour(rng);
    const int thickness = rng.uniform(0.0, 1.0) < 0.7 ? cv::FILLED : std::clamp(int(extent / 10), 1, 12);
    const double aspect = rng.uniform(0.4, 1.0);
    switch (rng.uniform(0, 4)) {
    case 0: {
        const cv::Size box(std::max(1, int(extent)), std::max(1, int(extent * aspect)));
        cv::rectangle(canvas, cv::Rect(centre - cv::Point(box.width / 2, box.height / 2), box), colour, thickness,
                      cv::LINE_AA);
        break;
    }
    case 1: cv::circle(canvas, centre, std::max(1, int(extent / 2)), colour, thickness, cv::LINE_AA); break;
    case 2: {
        const cv::Size axes(std::max(1, int(extent / 2)), std::max(1, int(extent * aspect / 2)));
        cv::ellipse(canvas, centre, axes, rng.uniform(0.0, 180.0), 0, 360, colour, thickness, cv::LINE_AA);
        break;
    }
    default: {
        std::vector<cv::Point> corners(rng.uniform(3, 7));
        for (size_t i = 0; i < corners.size(); ++i) {
            const double angle = 2 * CV_PI * (i + rng.uniform(0.0, 0.8)) / corners.size();
            const double radius = extent / 2 * rng.uniform(0.4, 1.0);
            corners[i] = centre + cv::Point(int(radius * std::cos(angle)), int(radius * std::sin(angle)));
        }
        if (thickness == cv::FILLED)
            cv::fillPoly(canvas, std::vector<std::vector<cv::Point>>{corners}, colour, cv::LINE_AA);
        else
            cv::polylines(canvas, corners, true, colour, thickness, cv::LINE_AA);
        break;
    }
    }
}

// A polyline of one to three strokes about length pixels long each.
void drawLines(cv::Mat& canvas, cv::RNG& rng, double length)
{
    const cv::Scalar colour = randomColour(rng);
    const int thickness = std::max(1, int(length / rng.uniform(30.0, 120.0)));
    std::vector<cv::Point> points{randomPoint(rng, canvas.size(), 0)};
    for (int i = rng.uniform(1, 4); i > 0; --i) {
        const double angle = rng.uniform(0.0, 2 * CV_PI);
        const double stroke = length * rng.uniform(0.5, 1.5);
        points.push_back(points.back() + cv::Point(int(stroke * std::cos(angle)), int(stroke * std::sin(angle))));
    }
    cv::polylines(canvas, points, false, colour, thickness, cv::LINE_AA);
}

// A few lines of made-up words about height pixels high, dark on light or light on dark.
void drawText(cv::Mat& canvas, cv::RNG& rng, double height)
{
    static const std::array<int, 6> fonts{cv::FONT_HERSHEY_SIMPLEX, cv::FONT_HERSHEY_PLAIN,
                                          cv::FONT_HERSHEY_DUPLEX,  cv::FONT_HERSHEY_COMPLEX,
                                          cv::FONT_HERSHEY_TRIPLEX, cv::FONT_HERSHEY_COMPLEX_SMALL};
    static const std::string letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    const int font = fonts[rng.uniform(0, int(fonts.size()))];
    int baseline = 0;
    const int unitHeight = cv::getTextSize("Ag", font, 1.0, 1, &baseline).height + baseline;
    const double scale = height * rng.uniform(0.75, 1.5) / unitHeight;
    const int thickness = std::max(1, int(std::lround(scale * rng.uniform(0.6, 1.8))));
    const bool dark = rng.uniform(0, 2) == 0;
    const cv::Scalar colour = dark ? cv::Scalar(rng.uniform(0, 60), rng.uniform(0, 60), rng.uniform(0, 60))
                                   : cv::Scalar(rng.uniform(195, 256), rng.uniform(195, 256), rng.uniform(195, 256));
    const int lineHeight = cv::getTextSize("Ag", font, scale, thickness, &baseline).height + baseline;
    cv::Point origin = randomPoint(rng, canvas.size(), lineHeight);
    for (int line = rng.uniform(1, 5); line > 0; --line, origin.y += lineHeight * 5 / 4) {
        std::string text;
        for (int words = rng.uniform(1, 6); words > 0; --words) {
            for (int n = rng.uniform(2, 9); n > 0; --n)
                text += letters[rng.uniform(0, int(letters.size()))];
            text += ' ';
        }
        cv::putText(canvas, text, origin, font, scale, colour, thickness, cv::LINE_AA);
    }
}

// Buffers each rendering thread keeps from tile to tile.
struct Scratch {
    cv::Mat composite, layer, padded, coarse, noise;
};

// A size x type view at the top left of buffer, which grows when too small.
cv::Mat scratchView(cv::Mat& buffer, cv::Size size, int type)
{
    if (buffer.type() != type || buffer.cols < size.width || buffer.rows < size.height)
        buffer.create(cv::Size(std::max(buffer.cols, size.width), std::max(buffer.rows, size.height)), type);
    return buffer(cv::Rect(cv::Point(), size));
}

// 1 for a blur done at full resolution, else the step of the coarse grid it is done on.
int coarseStep(double sigma) { return sigma > kDirectBlurSigma ? std::max(1, int(sigma / 2.5)) : 1; }

// A Gaussian blur of a premultiplied layer. A wide one runs on a grid step times coarser: an area reduction
// and a linear enlargement blur by about step / 2 between them, and the coarse Gaussian supplies the rest.
void blurLayer(cv::Mat& layer, double sigma, int step, Scratch& scratch)
{
    if (step == 1) {
        cv::GaussianBlur(layer, layer, cv::Size(), sigma, sigma, cv::BORDER_REFLECT_101 | cv::BORDER_ISOLATED);
        return;
    }
    const cv::Size paddedSize((layer.cols + step - 1) / step * step, (layer.rows + step - 1) / step * step);
    cv::Mat padded = scratchView(scratch.padded, paddedSize, CV_32FC4);
    cv::copyMakeBorder(layer, padded, 0, padded.rows - layer.rows, 0, padded.cols - layer.cols,
                       cv::BORDER_REFLECT_101 | cv::BORDER_ISOLATED);
    cv::Mat coarse = scratchView(scratch.coarse, paddedSize / step, CV_32FC4);
    cv::resize(padded, coarse, coarse.size(), 0, 0, cv::INTER_AREA);
    const double coarseSigma = std::sqrt(std::max(0.25, sigma * sigma / (step * step) - 0.25));
    cv::GaussianBlur(coarse, coarse, cv::Size(), coarseSigma, coarseSigma,
                     cv::BORDER_REFLECT_101 | cv::BORDER_ISOLATED);
    cv::resize(coarse, padded, padded.size(), 0, 0, cv::INTER_LINEAR);
    padded(cv::Rect(cv::Point(), layer.size())).copyTo(layer);
}

// Streams of the random draws, besides the scene's (1) and the depths' (2).
constexpr std::uint64_t kNoiseStream = 1000;        // + shot; then one stream per tile
constexpr std::uint64_t kExposureStream = 2000;     // then one per shot
constexpr std::uint64_t kWhiteBalanceStream = 2001; // then one per shot
constexpr std::uint64_t kShakeStream = 2002;        // then one per shot

} // namespace

std::uint64_t streamSeed(std::uint64_t seed, std::uint64_t stream)
{
    // splitmix64 over the seed and the stream number.
    std::uint64_t z = seed + 0x9E3779B97F4A7C15ull * (stream + 1);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

cv::Mat drawScene(cv::Size size, std::uint64_t seed)
{
    cv::RNG rng(streamSeed(seed, 1));
    const double small = std::min(size.width, size.height);

    // Broad washes of colour.
    cv::Mat canvas;
    valueNoise(size, std::max(8.0, small / 2.5), rng).convertTo(canvas, CV_8UC3, 70, 128);

    // Shapes, octave by octave from the largest, so that the small ones stay in sight.
    for (double extent = small / 2.5; extent >= 16; extent /= 2)
        for (int i = itemsFor(size, extent, 0.08, rng); i > 0; --i)
            drawShape(canvas, rng, extent * rng.uniform(0.7, 1.4));

    // Texture over everything, at three scales.
    cv::Mat scene;
    canvas.convertTo(scene, CV_32FC3);
    scene += 26 * valueNoise(size, std::max(4.0, small / 16), rng);
    scene += 18 * valueNoise(size, 6, rng);
    scene += 12 * valueNoise(size, 2, rng);
    scene.convertTo(canvas, CV_8UC3);

    // Crisp strokes: lines, then text.
    for (double length = small / 4; length >= 24; length /= 2)
        for (int i = itemsFor(size, length, 0.1, rng); i > 0; --i)
            drawLines(canvas, rng, length * rng.uniform(0.7, 1.4));
    double largestText = 8;
    while (largestText * 2 <= small / 8)
        largestText *= 2;
    for (double height = largestText; height >= 8; height /= 2)
        for (int i = itemsFor(size, height, 0.003, rng); i > 0; --i)
            drawText(canvas, rng, height);

    // A fine grain, so that no two neighbouring pixels are alike anywhere.
    canvas.convertTo(scene, CV_32FC3);
    cv::Mat grain(size, CV_32FC3);
    rng.fill(grain, cv::RNG::UNIFORM, -9.0, 9.0);
    scene += grain;
    scene.convertTo(canvas, CV_8UC3);
    return canvas;
}

cv::Mat fitPhoto(const cv::Mat& photo, cv::Size size)
{
    const double scale = std::max(double(size.width) / photo.cols, double(size.height) / photo.rows);
    const cv::Size scaled(std::max(size.width, int(std::lround(photo.cols * scale))),
                          std::max(size.height, int(std::lround(photo.rows * scale))));
    cv::Mat resized;
    cv::resize(photo, resized, scaled, 0, 0, scale < 1 ? cv::INTER_AREA : cv::INTER_CUBIC);
    const cv::Rect crop((scaled.width - size.width) / 2, (scaled.height - size.height) / 2, size.width, size.height);
    return resized(crop).clone();
}

cv::Mat makeDepth(cv::Size size, DepthKind kind, std::uint64_t seed)
{
    cv::RNG rng(streamSeed(seed, 2));
    const int w = size.width;
    const int h = size.height;
    const double small = std::min(w, h);
    cv::Mat depth(size, CV_32F);
    switch (kind) {
    case DepthKind::Plane: {
        const double angle = rng.uniform(0.0, 2 * CV_PI);
        const double c = std::cos(angle);
        const double s = std::sin(angle);
        for (int y = 0; y < h; ++y) {
            float* row = depth.ptr<float>(y);
            for (int x = 0; x < w; ++x)
                row[x] = float((x + 0.5) * c + (y + 0.5) * s);
        }
        break;
    }
    case DepthKind::Steps: {
        // Four depths for the objects, the farthest for the ground behind them.
        constexpr int levels = 5;
        cv::Mat level(size, CV_8U, cv::Scalar(levels - 1));
        std::vector<int> objectLevels(8);
        for (size_t i = 0; i < objectLevels.size(); ++i)
            objectLevels[i] = int(i) % (levels - 1);
        // Far to near: nearer objects cover farther ones.
        std::sort(objectLevels.rbegin(), objectLevels.rend());
        for (const int l : objectLevels) {
            const double extent = small * rng.uniform(0.2, 0.5);
            const cv::Point centre(rng.uniform(0, w), rng.uniform(0, h));
            if (rng.uniform(0, 2) == 0) {
                const double aspect = rng.uniform(0.6, 1.6);
                const cv::Size box(int(extent * aspect), int(extent / aspect));
                cv::rectangle(level, cv::Rect(centre - cv::Point(box.width / 2, box.height / 2), box), cv::Scalar(l),
                              cv::FILLED, cv::LINE_8);
            } else {
                cv::circle(level, centre, int(extent / 2), cv::Scalar(l), cv::FILLED, cv::LINE_8);
            }
        }
        level.convertTo(depth, CV_32F, 1.0 / (levels - 1));
        break;
    }
    case DepthKind::Sphere: {
        // The dome's top is nearest; its rim stands well in front of the ground.
        const double cx = w * rng.uniform(0.4, 0.6);
        const double cy = h * rng.uniform(0.4, 0.6);
        const double radius = small * rng.uniform(0.36, 0.44);
        for (int y = 0; y < h; ++y) {
            float* row = depth.ptr<float>(y);
            for (int x = 0; x < w; ++x) {
                const double dx = (x + 0.5 - cx) / radius;
                const double dy = (y + 0.5 - cy) / radius;
                const double r2 = dx * dx + dy * dy;
                row[x] = r2 < 1 ? float(0.6 * (1 - std::sqrt(1 - r2))) : 1.f;
            }
        }
        break;
    }
    }
    cv::normalize(depth, depth, 0, 1, cv::NORM_MINMAX);
    return depth;
}

FocusSeriesRenderer::FocusSeriesRenderer(const cv::Mat& scene, const cv::Mat& depth,
                                         const FocusSeriesSettings& settings)
    : settings_(settings)
{
    CV_Assert(scene.type() == CV_8UC3 && depth.type() == CV_32F && scene.size() == depth.size());
    CV_Assert(settings.shots >= 2);
    const cv::Size size = scene.size();
    maxBlur_ = std::max(2.5, std::hypot(size.width, size.height) / 250);
    cv::LUT(scene, decodeTable(), linear_);

    // Slices thin enough that neighbouring ones differ in sigma by half a pixel at most.
    slices_ = std::clamp(int(std::ceil(2 * maxBlur_)), 16, 255);
    tilesX_ = (size.width + kTile - 1) / kTile;
    tilesY_ = (size.height + kTile - 1) / kTile;
    struct Extent {
        int x0 = INT_MAX, y0 = INT_MAX, x1 = -1, y1 = -1;
    };
    std::vector<Extent> extents(size_t(tilesX_) * tilesY_ * slices_);
    std::vector<double> depthSum(slices_, 0.0);
    std::vector<long> pixels(slices_, 0);
    labels_.create(size, CV_8U);
    for (int y = 0; y < size.height; ++y) {
        const float* d = depth.ptr<float>(y);
        uchar* label = labels_.ptr<uchar>(y);
        for (int x = 0; x < size.width; ++x) {
            const int s = std::clamp(int(d[x] * slices_), 0, slices_ - 1);
            label[x] = uchar(s);
            Extent& e = extents[(size_t(y / kTile) * tilesX_ + x / kTile) * slices_ + s];
            e.x0 = std::min(e.x0, x);
            e.x1 = std::max(e.x1, x);
            e.y0 = std::min(e.y0, y);
            e.y1 = std::max(e.y1, y);
            depthSum[s] += d[x];
            ++pixels[s];
        }
    }
    boxes_.resize(extents.size());
    for (size_t i = 0; i < extents.size(); ++i)
        if (extents[i].x1 >= 0)
            boxes_[i] = cv::Rect(extents[i].x0, extents[i].y0, extents[i].x1 - extents[i].x0 + 1,
                                 extents[i].y1 - extents[i].y0 + 1);
    sliceDepth_.resize(slices_);
    for (int s = 0; s < slices_; ++s)
        sliceDepth_[s] = pixels[s] > 0 ? depthSum[s] / pixels[s] : -1;

    // What a near slice uncovers when it moves right over a farther one is the farther one's texture,
    // mirrored across the edge where it disappears under the near one. A near slice moves at most
    // parallax pixels against a farther one, so the farther one goes that far under it, and a pixel more
    // for the subpixel sampling.
    if (settings_.parallax > 0) {
        reach_ = int(std::ceil(settings_.parallax)) + 1;
        behind_.create(size, CV_8U);
        behind_.setTo(255);
        behindOffset_.create(size, CV_16U);
        behindOffset_.setTo(0);
        for (int y = 0; y < size.height; ++y) {
            const uchar* label = labels_.ptr<uchar>(y);
            uchar* behind = behind_.ptr<uchar>(y);
            ushort* offset = behindOffset_.ptr<ushort>(y);
            for (int edge = 1; edge < size.width; ++edge) {
                const uchar far = label[edge - 1];
                if (label[edge] >= far)
                    continue;
                for (int x = edge; x < std::min(size.width, edge + reach_) && label[x] < far; ++x) {
                    const int mirrored = 2 * edge - 1 - x;
                    const int from = mirrored >= 0 && label[mirrored] == far ? mirrored : edge - 1;
                    // An edge further left may have reached here too, but from a farther slice, which
                    // the one just left of the gap hides.
                    behind[x] = far;
                    offset[x] = ushort(x - from);
                }
            }
        }
    }

    // The nuisances, each from its own stream of draws; shot 0 is the neutral one.
    const double halfDiagonal = std::hypot(size.width, size.height) / 2;
    nuisances_.resize(size_t(settings.shots));
    for (int shot = 1; shot < settings.shots; ++shot) {
        ShotNuisance& n = nuisances_[size_t(shot)];
        if (settings.exposureDrift > 0) {
            cv::RNG rng(streamSeed(streamSeed(settings.seed, kExposureStream), std::uint64_t(shot)));
            n.gain = cv::Vec3d::all(std::exp(settings.exposureDrift * rng.gaussian(1.0)));
        }
        if (settings.whiteBalanceDrift > 0) {
            cv::RNG rng(streamSeed(streamSeed(settings.seed, kWhiteBalanceStream), std::uint64_t(shot)));
            for (int c = 0; c < 3; ++c)
                n.gain[c] *= std::exp(settings.whiteBalanceDrift * rng.gaussian(1.0));
        }
        n.magnification = 1 + settings.breathing * focusDepth(shot);
        if (settings.shake > 0) {
            cv::RNG rng(streamSeed(streamSeed(settings.seed, kShakeStream), std::uint64_t(shot)));
            n.shift.x = settings.shake * rng.gaussian(1.0);
            n.shift.y = settings.shake * rng.gaussian(1.0);
            n.rotation = settings.shake / halfDiagonal * rng.gaussian(1.0);
        }
        n.parallax = settings.parallax * focusDepth(shot);
    }
}

double FocusSeriesRenderer::focusDepth(int shot) const { return double(shot) / (settings_.shots - 1); }

double FocusSeriesRenderer::blurSigma(double depth, int shot) const
{
    const double halfField = 0.5 / (settings_.shots - 1);
    return maxBlur_ * std::max(0.0, std::abs(depth - focusDepth(shot)) - halfField);
}

double FocusSeriesRenderer::sliceShift(int s, int shot) const
{
    return nuisances_[size_t(shot)].parallax * std::clamp(1 - sliceDepth_[s], 0.0, 1.0);
}

cv::Rect FocusSeriesRenderer::tileRect(int tile) const
{
    const cv::Rect rect((tile % tilesX_) * kTile, (tile / tilesX_) * kTile, kTile, kTile);
    return rect & cv::Rect(cv::Point(), linear_.size());
}

bool FocusSeriesRenderer::sliceMeets(int s, const cv::Rect& region) const
{
    for (int ty = region.y / kTile; ty <= (region.br().y - 1) / kTile; ++ty)
        for (int tx = region.x / kTile; tx <= (region.br().x - 1) / kTile; ++tx)
            if (!(boxes_[(size_t(ty) * tilesX_ + tx) * slices_ + s] & region).empty())
                return true;
    return false;
}

cv::Mat FocusSeriesRenderer::renderShot(int shot) const
{
    const int tiles = tilesX_ * tilesY_;
    cv::Mat frame(linear_.size(), CV_32FC3);
    cv::parallel_for_(cv::Range(0, tiles), [&](const cv::Range& range) {
        for (int tile = range.start; tile < range.end; ++tile)
            compositeTile(shot, tile, frame);
    });
    const ShotNuisance& n = nuisances_[size_t(shot)];
    if (n.warps()) {
        // Scene point p goes to c + m R (p - c) + shift.
        const cv::Point2d centre((frame.cols - 1) / 2.0, (frame.rows - 1) / 2.0);
        const double a = n.magnification * std::cos(n.rotation);
        const double b = n.magnification * std::sin(n.rotation);
        const cv::Matx23d warp(a, -b, centre.x - a * centre.x + b * centre.y + n.shift.x, //
                               b, a, centre.y - b * centre.x - a * centre.y + n.shift.y);
        cv::Mat warped;
        cv::warpAffine(frame, warped, warp, frame.size(), cv::INTER_LINEAR, cv::BORDER_REFLECT);
        frame = warped;
    }
    cv::Mat result(linear_.size(), CV_8UC3);
    cv::parallel_for_(cv::Range(0, tiles), [&](const cv::Range& range) {
        for (int tile = range.start; tile < range.end; ++tile)
            encodeTile(shot, tile, frame, result);
    });
    return result;
}

void FocusSeriesRenderer::compositeTile(int shot, int tileIndex, cv::Mat& frame) const
{
    thread_local Scratch scratch;
    const cv::Rect image(cv::Point(), linear_.size());
    const cv::Rect tile = tileRect(tileIndex);
    // Premultiplied colour and coverage of everything composited so far.
    cv::Mat composite = scratchView(scratch.composite, tile.size(), CV_32FC4);
    composite.setTo(cv::Scalar::all(0));
    for (int s = slices_ - 1; s >= 0; --s) {
        if (sliceDepth_[s] < 0)
            continue;
        double sigma = blurSigma(sliceDepth_[s], shot);
        if (sigma < kSharpSigma)
            sigma = 0;
        const int margin = sigma > 0 ? int(std::ceil(3 * sigma)) + 1 : 0;
        // What reaches the tile through the blur; on a coarse grid it starts on a multiple of the grid's
        // step, so that every tile sees the same grid.
        const cv::Rect reach =
            cv::Rect(tile.x - margin, tile.y - margin, tile.width + 2 * margin, tile.height + 2 * margin) & image;
        const int step = coarseStep(sigma);
        const cv::Point origin(reach.x / step * step, reach.y / step * step);
        const cv::Rect region(origin, reach.br());
        // A slice moved right comes from further left, and reaches under nearer slices on its right.
        const double shift = reach_ > 0 ? sliceShift(s, shot) : 0.0;
        const int whole = int(std::floor(shift));
        const int from = whole + 1 + reach_;
        if (!sliceMeets(s, reach_ > 0 ? cv::Rect(region.x - from, region.y, region.width + from, region.height) & image
                                      : region))
            continue;

        cv::Mat layer = scratchView(scratch.layer, region.size(), CV_32FC4);
        if (reach_ == 0) {
            for (int y = 0; y < region.height; ++y) {
                const uchar* label = labels_.ptr<uchar>(region.y + y) + region.x;
                const cv::Vec3f* colour = linear_.ptr<cv::Vec3f>(region.y + y) + region.x;
                cv::Vec4f* out = layer.ptr<cv::Vec4f>(y);
                for (int x = 0; x < region.width; ++x)
                    out[x] =
                        label[x] == s ? cv::Vec4f(colour[x][0], colour[x][1], colour[x][2], 1.f) : cv::Vec4f::all(0);
            }
        } else {
            // Linear interpolation between the two source pixels the shifted pixel falls between; beyond
            // the image's edges its outermost pixels stand in.
            const float part = float(shift - whole);
            const int last = image.width - 1;
            for (int y = 0; y < region.height; ++y) {
                const uchar* label = labels_.ptr<uchar>(region.y + y);
                const uchar* behind = behind_.ptr<uchar>(region.y + y);
                const ushort* offset = behindOffset_.ptr<ushort>(region.y + y);
                const cv::Vec3f* colour = linear_.ptr<cv::Vec3f>(region.y + y);
                const auto source = [&](int x) {
                    x = std::clamp(x, 0, last);
                    const cv::Vec3f* c = label[x] == s ? &colour[x] : behind[x] == s ? &colour[x - offset[x]] : nullptr;
                    return c ? cv::Vec4f((*c)[0], (*c)[1], (*c)[2], 1.f) : cv::Vec4f::all(0);
                };
                cv::Vec4f* out = layer.ptr<cv::Vec4f>(y);
                cv::Vec4f left = source(region.x - whole - 1);
                for (int x = 0; x < region.width; ++x) {
                    const cv::Vec4f right = source(region.x + x - whole);
                    out[x] = right * (1.f - part) + left * part;
                    left = right;
                }
            }
        }
        if (sigma > 0)
            blurLayer(layer, sigma, step, scratch);
        // Over: the slice in front of what lies behind it.
        const cv::Point offset = tile.tl() - region.tl();
        for (int y = 0; y < tile.height; ++y) {
            const cv::Vec4f* front = layer.ptr<cv::Vec4f>(offset.y + y) + offset.x;
            cv::Vec4f* behind = composite.ptr<cv::Vec4f>(y);
            for (int x = 0; x < tile.width; ++x)
                behind[x] = front[x] + behind[x] * (1.f - front[x][3]);
        }
    }

    // The coverage, 1 but at seams between blurred slices and in gaps a near slice left, is divided out.
    for (int y = 0; y < tile.height; ++y) {
        const cv::Vec4f* in = composite.ptr<cv::Vec4f>(y);
        cv::Vec3f* out = frame.ptr<cv::Vec3f>(tile.y + y) + tile.x;
        for (int x = 0; x < tile.width; ++x) {
            const float coverage = in[x][3];
            for (int c = 0; c < 3; ++c)
                out[x][c] = coverage > 1e-6f ? in[x][c] / coverage : 0.f;
        }
    }
}

void FocusSeriesRenderer::encodeTile(int shot, int tileIndex, const cv::Mat& frame, cv::Mat& result) const
{
    thread_local Scratch scratch;
    const cv::Rect tile = tileRect(tileIndex);
    const cv::Vec3d& gains = nuisances_[size_t(shot)].gain;
    const float gain[3] = {float(gains[0]), float(gains[1]), float(gains[2])};
    // Back to 8-bit sRGB. The noise comes from the tile's own stream, so it does not depend on the order
    // tiles are rendered in. With the photon noise, of sigma shotNoise * sqrt(v / 255) at level v, one draw
    // serves both: the sum of two independent Gaussians is the Gaussian of the summed variances.
    const std::vector<float>& encode = encodeTable();
    cv::RNG rng(streamSeed(streamSeed(settings_.seed, kNoiseStream + std::uint64_t(shot)), std::uint64_t(tileIndex)));
    cv::Mat noise = scratchView(scratch.noise, cv::Size(tile.width * 3, 1), CV_32F);
    noise.setTo(0);
    const bool photons = settings_.shotNoise > 0;
    const float variance = float(settings_.noise * settings_.noise);
    const float photonVariance = float(settings_.shotNoise * settings_.shotNoise / 255);
    for (int y = 0; y < tile.height; ++y) {
        if (photons)
            rng.fill(noise, cv::RNG::NORMAL, 0.0, 1.0);
        else if (settings_.noise > 0)
            rng.fill(noise, cv::RNG::NORMAL, 0.0, settings_.noise);
        const float* n = noise.ptr<float>();
        const cv::Vec3f* in = frame.ptr<cv::Vec3f>(tile.y + y) + tile.x;
        uchar* out = result.ptr<uchar>(tile.y + y) + 3 * tile.x;
        for (int x = 0; x < tile.width; ++x) {
            for (int c = 0; c < 3; ++c) {
                const int index = std::clamp(int(in[x][c] * gain[c] * kEncodeSteps + 0.5f), 0, kEncodeSteps);
                const float level = encode[index];
                const float spread =
                    photons ? n[3 * x + c] * std::sqrt(variance + photonVariance * level) : n[3 * x + c];
                out[3 * x + c] = cv::saturate_cast<uchar>(level + spread);
            }
        }
    }
}

} // namespace vexatool
