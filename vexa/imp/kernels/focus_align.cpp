#include <vexa/imp/kernels/focus_align.h>

#include <vexa/imp/detail/progress.h>
#include <vexa/imp/exceptions.h>
#include <vexa/imp/kernels/luminance.h>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video.hpp>

#include <algorithm>
#include <cmath>
#include <functional>
#include <optional>
#include <vector>

namespace VEXA {

namespace {

// The shot at an eighth of its size, blurred over about 12 pixels of the full size: what is left of it no
// longer depends on which depth is in focus, only on the exposure.
constexpr int smallScale = 8;
// Below this spread of the luminance within a small shot's pixel (relative to its mean), the area is flat.
constexpr double flatDetail = 0.05;
// The local correction is kept this many times smaller each way than the working size it is found at.
constexpr int flowReduction = 4;
// Rows of the full-size map made at once: the map is 8 bytes a pixel, never made whole.
constexpr CacheBands mapBands{64};

cv::Mat shrink(const cv::Mat& image, int scale)
{
    if (scale == 1)
        return image.clone();
    cv::Mat out;
    cv::resize(image, out, cv::Size(std::max(1, image.cols / scale), std::max(1, image.rows / scale)), 0, 0,
               cv::INTER_AREA);
    return out;
}

// The working planes are kept at the shot's own depth (a quarter of the bytes of floats for 8-bit shots),
// reduced at that depth so that no full-size copy in floats is ever made; each use takes them in single
// precision for itself, for as long as it needs them.
cv::Mat floatsOf(const cv::Mat& planes)
{
    if (planes.depth() == CV_32F)
        return planes;
    cv::Mat out;
    planes.convertTo(out, CV_32F);
    return out;
}

// A luminance in single precision, a band of rows at a time: the planes in floats (18 MB for a working-size
// colour shot of 3000x2000) are never made whole. luma(band in floats, its rows of the luminance) works
// pixel by pixel, so that the bands make what the whole would.
template <class Luma>
cv::Mat luminanceInFloats(const cv::Mat& planes, Luma&& luma)
{
    cv::Mat gray(planes.size(), CV_32F);
    forEachBand(planes.rows, CacheBands{64}, [&](int y0, int y1) {
        cv::Mat out = gray.rowRange(y0, y1);
        luma(floatsOf(planes.rowRange(y0, y1)), out);
    });
    return gray;
}

// grayOf the planes in single precision.
cv::Mat grayInFloats(const cv::Mat& planes)
{
    return luminanceInFloats(planes, [](const cv::Mat& band, cv::Mat& out) {
        if (band.channels() == 1)
            band.copyTo(out);
        else
            cv::cvtColor(band, out, cv::COLOR_BGR2GRAY);
    });
}

// The planes reduced to `size` by area (OpenCV's INTER_AREA) in single precision, each reduced plane made
// by reduce(planes' rows in floats, its rows). Where the size divides the planes' a whole number of times
// each way, each reduced row is the mean of whole blocks of rows: the planes are then taken a band of rows
// at a time, never whole in floats (18 MB for a working-size colour shot of 3000x2000).
template <class Reduce>
void reducedByArea(const cv::Mat& planes, cv::Size size, Reduce&& reduce)
{
    const int k = planes.rows / size.height;
    if (k < 1 || planes.rows != k * size.height || planes.cols != k * size.width) {
        reduce(floatsOf(planes), 0, size.height);
        return;
    }
    forEachBand(size.height, CacheBands{16},
                [&](int y0, int y1) { reduce(floatsOf(planes.rowRange(k * y0, k * y1)), y0, y1); });
}

cv::Size smallSize(cv::Size full)
{
    return cv::Size(std::max(1, full.width / smallScale), std::max(1, full.height / smallScale));
}

// The shot at working size made small (blurred), and how much detail each of its pixels stands for: the
// standard deviation of the luminance within it, relative to its mean. Both from one pass over the shot's
// rows in floats.
struct SmallPlanes {
    cv::Mat colour, detail;
};

SmallPlanes smallPlanesOf(const cv::Mat& working, cv::Size full)
{
    const cv::Size size = smallSize(full);
    SmallPlanes out;
    out.colour.create(size, CV_32FC(working.channels()));
    cv::Mat mean(size, CV_32F), square(size, CV_32F), gray;
    reducedByArea(working, size, [&](const cv::Mat& floats, int y0, int y1) {
        cv::Mat rows = out.colour.rowRange(y0, y1);
        cv::resize(floats, rows, rows.size(), 0, 0, cv::INTER_AREA);
        if (floats.channels() == 1)
            gray = floats;
        else
            cv::cvtColor(floats, gray, cv::COLOR_BGR2GRAY);
        cv::Mat m = mean.rowRange(y0, y1), q = square.rowRange(y0, y1);
        cv::resize(gray, m, m.size(), 0, 0, cv::INTER_AREA);
        cv::resize(gray.mul(gray), q, q.size(), 0, 0, cv::INTER_AREA);
    });
    cv::GaussianBlur(out.colour, out.colour, cv::Size(), 1.5);
    out.detail = square - mean.mul(mean);
    cv::sqrt(cv::max(out.detail, 0.0), out.detail);
    cv::divide(out.detail, cv::max(mean, 1e-6), out.detail);
    return out;
}

// The luminance of the planes brought to another exposure, with no copy of the planes themselves.
cv::Mat matchedGray(const cv::Mat& planes, const std::array<double, 3>& gains)
{
    const cv::Matx13f luma(float(lumaBlue * gains[0]), float(lumaGreen * gains[1]), float(lumaRed * gains[2]));
    return luminanceInFloats(planes, [&](const cv::Mat& band, cv::Mat& out) {
        if (band.channels() == 1)
            band.convertTo(out, CV_32F, gains[0]);
        else
            cv::transform(band, out, luma);
    });
}

cv::Mat scaled(const cv::Mat& image, const std::array<double, 3>& gains)
{
    cv::Mat out;
    cv::multiply(image, cv::Scalar(gains[0], gains[1], gains[2]), out);
    return out;
}

// A map fitted between images `scale` times smaller, expressed between the full-size ones: pixel centres
// of an area reduction sit at x_full = scale * x + (scale - 1) / 2.
cv::Matx23d enlarged(const cv::Matx23d& w, double scale)
{
    const double c = (scale - 1) / 2;
    cv::Matx23d out = w;
    out(0, 2) = scale * w(0, 2) + c - w(0, 0) * c - w(0, 1) * c;
    out(1, 2) = scale * w(1, 2) + c - w(1, 0) * c - w(1, 1) * c;
    return out;
}

cv::Matx23d reduced(const cv::Matx23d& w, double scale)
{
    const double c = (scale - 1) / 2;
    cv::Matx23d out = w;
    out(0, 2) = (w(0, 2) - c + w(0, 0) * c + w(0, 1) * c) / scale;
    out(1, 2) = (w(1, 2) - c + w(1, 0) * c + w(1, 1) * c) / scale;
    return out;
}

cv::Mat warped(const cv::Mat& image, const cv::Matx23d& w, cv::Size size, int border = cv::BORDER_REPLICATE)
{
    cv::Mat out;
    cv::warpAffine(image, out, cv::Mat(w), size, cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, border);
    return out;
}

// Above this many pixels, the global fit is refined on patches of the picture (refinedOnPatches), not on
// the whole of it: ECC keeps some eighteen planes of floats of the size it fits, which on a 3000x2000 series
// was the largest memory of the whole merge.
constexpr double largestFitted = 1 << 19;

// Neighbours differ in focus: both are blurred alike before they are compared, so that what is left of
// them is what they share.
// A neighbour kept in 16 bits comes in floats, in its `unit`s.
cv::Mat equalised(const cv::Mat& gray, double unit = 1.0)
{
    cv::Mat out;
    if (gray.depth() == CV_16U) {
        gray.convertTo(out, CV_32F, unit);
        cv::GaussianBlur(out, out, cv::Size(), 2.0);
    } else {
        cv::GaussianBlur(gray, out, cv::Size(), 2.0);
    }
    return out;
}

// A mask of the plane without its borders (a 25th of its size each way): what a shot shows there may be
// uncovered in its neighbour.
cv::Rect interiorRect(cv::Size size)
{
    const int mx = std::max(2, size.width / 25), my = std::max(2, size.height / 25);
    return cv::Rect(mx, my, size.width - 2 * mx, size.height - 2 * my);
}

cv::Mat interiorOf(cv::Size size)
{
    cv::Mat inside(size, CV_8U, cv::Scalar(0));
    inside(interiorRect(size)).setTo(255);
    return inside;
}

// ECC's measure of how well b matches a over a rectangle (their zero-mean normalised correlation), b read
// through w where one is given: a band of rows at a time, without the whole planes that ECC makes.
double correlationOver(const cv::Mat& a, const cv::Mat& b, const cv::Rect& r, const cv::Matx23d* w)
{
    // Sums of the differences from the planes' means as they stand, which keeps them small.
    const double ma = cv::mean(a(r))[0], mb = cv::mean(b(r))[0];
    double sa = 0, sb = 0, sab = 0, saa = 0, sbb = 0;
    cv::Mat moved;
    for (int y0 = r.y; y0 < r.br().y; y0 += 64) {
        const cv::Rect rows(r.x, y0, r.width, std::min(64, r.br().y - y0));
        cv::Mat read = b(rows);
        if (w) { // w with the band's first pixel as its origin
            cv::Matx23d m = *w;
            m(0, 2) += m(0, 0) * rows.x + m(0, 1) * rows.y;
            m(1, 2) += m(1, 0) * rows.x + m(1, 1) * rows.y;
            cv::warpAffine(b, moved, cv::Mat(m), rows.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP,
                           cv::BORDER_REPLICATE);
            read = moved;
        }
        for (int y = 0; y < rows.height; ++y) {
            const float* pa = a.ptr<float>(rows.y + y) + rows.x;
            const float* pb = read.ptr<float>(y);
            for (int x = 0; x < rows.width; ++x) {
                const double u = pa[x] - ma, v = pb[x] - mb;
                sa += u;
                sb += v;
                sab += u * v;
                saa += u * u;
                sbb += v * v;
            }
        }
    }
    const double n = double(r.area());
    const double spread = std::sqrt((saa - sa * sa / n) * (sbb - sb * sb / n));
    return spread > 0 ? (sab - sa * sb / n) / spread : 0.0;
}

// Where w takes p.
cv::Point2f mappedBy(const cv::Matx23d& w, cv::Point2f p)
{
    return cv::Point2f(float(w(0, 0) * p.x + w(0, 1) * p.y + w(0, 2)), float(w(1, 0) * p.x + w(1, 1) * p.y + w(1, 2)));
}

// w refined on a grid of patches spread over the reference: each patch fitted by ECC (a shift) to the shot
// read through w, and the affine map that carries the patches' centres where their fits put them, by least
// squares robust to patches gone astray. Patches that match poorly (flat, noisy or uncovered) count for
// nothing; with too few left, w stands. The patches' spread keeps the lever of the whole picture for scale
// and rotation at a small part of the memory of a fit over all of it.
cv::Matx23d refinedOnPatches(const cv::Mat& reference, const cv::Mat& shot, const cv::Matx23d& w)
{
    // 64 patches of 96 pixels, each taken if it correlates over 0.9: on rendered series, fewer larger ones
    // or a lower bar let patches on the defocused rim of a near object pull the fit by a tenth of a pixel.
    constexpr int grid = 8, side = 96, fewest = 8;
    constexpr double least = 0.9;
    const cv::Size patch(std::min(side, reference.cols / grid), std::min(side, reference.rows / grid));
    const int mx = reference.cols / 20, my = reference.rows / 20;
    const auto mapped = [&w](cv::Point2f p) { return mappedBy(w, p); };
    const cv::Rect2f inside(0, 0, float(shot.cols - 1), float(shot.rows - 1));
    std::vector<cv::Point2f> from, to;
    cv::Mat moved;
    for (int gy = 0; gy < grid; ++gy)
        for (int gx = 0; gx < grid; ++gx) {
            const int cx = mx + int((reference.cols - 2 * mx) * (gx + 0.5) / grid);
            const int cy = my + int((reference.rows - 2 * my) * (gy + 0.5) / grid);
            const cv::Rect r(cx - patch.width / 2, cy - patch.height / 2, patch.width, patch.height);
            const cv::Point2f corners[] = {mapped(r.tl()), mapped(r.br()),
                                           mapped(cv::Point2f(float(r.x), float(r.br().y))),
                                           mapped(cv::Point2f(float(r.br().x), float(r.y)))};
            if (!std::all_of(std::begin(corners), std::end(corners), [&](cv::Point2f p) { return inside.contains(p); }))
                continue;
            // The shot read through w into the patch's frame.
            cv::Matx23d local = w;
            local(0, 2) += w(0, 0) * r.x + w(0, 1) * r.y;
            local(1, 2) += w(1, 0) * r.x + w(1, 1) * r.y;
            cv::warpAffine(shot, moved, cv::Mat(local), patch, cv::INTER_LINEAR | cv::WARP_INVERSE_MAP,
                           cv::BORDER_REPLICATE);
            cv::Mat shift = (cv::Mat_<float>(2, 3) << 1, 0, 0, 0, 1, 0);
            double correlation = 0;
            try {
                // Until a step moves the patch by under a thousandth of a pixel: the fit is wanted to a
                // tenth, and finer steps only cost time (a third of the alignment's, at a millionth).
                const cv::TermCriteria stop(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 50, 1e-3);
                correlation =
                    cv::findTransformECC(reference(r), moved, shift, cv::MOTION_TRANSLATION, stop, cv::noArray(), 5);
            } catch (const cv::Exception&) {
                continue;
            }
            if (!(correlation > least))
                continue;
            // reference(x) ~ moved(x + shift) = shot(w(x + r.tl() + shift)), at the patch's centre.
            const cv::Point2f centre(r.x + (patch.width - 1) / 2.f, r.y + (patch.height - 1) / 2.f);
            from.push_back(centre);
            to.push_back(mapped(centre + cv::Point2f(shift.at<float>(0, 2), shift.at<float>(1, 2))));
        }
    if (int(from.size()) < fewest)
        return w;
    const cv::Mat fitted = cv::estimateAffine2D(from, to, cv::noArray(), cv::LMEDS);
    if (fitted.empty())
        return w;
    // A refinement moves the corners by a fraction of a pixel; one that moves them by more has followed
    // patches that agree on something else, and w stands.
    const cv::Matx23d refined(fitted);
    for (const cv::Point2f corner :
         {cv::Point2f(0, 0), cv::Point2f(float(reference.cols), 0), cv::Point2f(0, float(reference.rows)),
          cv::Point2f(float(reference.cols), float(reference.rows))}) {
        if (cv::norm(mapped(corner) - mappedBy(refined, corner)) > 2.0)
            return w;
    }
    return refined;
}

// Whether w lays the shot over the reference better than no motion at all. Two shots focused differently
// never match exactly, and a fit between two that did not move follows their focus differences by up to
// a few tenths of a pixel (0.4 on a still 3000x2000 series, chained over eight shots); it then removes
// under 3% of the misfit that the shots show laid over each other as they stand, where shots that moved
// (shake, breathing) lose most of it (58% on the real series' least moved pair). A fit counts only if it
// removes at least a tenth. Both planes come equalised.
bool explainsMotion(const cv::Mat& target, const cv::Mat& shotAsIs, const cv::Matx23d& w)
{
    const cv::Rect inside = interiorRect(target.size());
    const double asIs = correlationOver(target, shotAsIs, inside, nullptr);
    const double fitted = correlationOver(target, shotAsIs, inside, &w);
    return 1.0 - fitted < 0.9 * (1.0 - asIs);
}

// The affine map from the reference's pixels to the shot's that ECC finds between the two gray planes,
// coarse to fine; none where it does not explain the shot better than no motion. Where the full size is
// refined on patches, a fit that explains nothing at a quarter of it ends there: a shot that did not move
// (a tripod's, a microscope's) then costs the coarsest sizes alone, not the finer fits and the patches'
// (a shift of a third of a pixel at the full size is still found there on a rendered pair; what the
// coarse sizes miss shows in the flow that follows, to which a shift is as coherent as motion gets).
std::optional<cv::Matx23d> fitGlobally(const cv::Mat& reference, double referenceUnit, const cv::Mat& shot)
{
    std::vector<cv::Mat> refs{equalised(reference, referenceUnit)}, shots{equalised(shot)};
    while (refs.size() < 4 && std::min(refs.back().cols, refs.back().rows) >= 96) {
        refs.push_back(shrink(refs.back(), 2));
        shots.push_back(shrink(shots.back(), 2));
    }
    // The full size is refined on patches, once the coarser sizes have been fitted whole (where ECC's own
    // planes weigh the most): its planes are made again then rather than kept through those fits.
    const bool patches = refs.size() > 1 && double(refs[0].total()) > largestFitted;
    if (patches)
        refs[0] = shots[0] = cv::Mat();
    cv::Matx23d w(1, 0, 0, 0, 1, 0);
    for (size_t i = refs.size(); i-- > 0;) {
        if (i + 1 < refs.size())
            w = enlarged(w, 2);
        if (i == 0 && patches) {
            refs[0] = equalised(reference, referenceUnit);
            shots[0] = equalised(shot);
            w = refinedOnPatches(refs[0], shots[0], w);
            continue;
        }
        cv::Mat warp(w);
        warp.convertTo(warp, CV_32F);
        const cv::TermCriteria stop(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 100, i == 0 ? 1e-6 : 1e-5);
        const cv::Mat inside = interiorOf(shots[i].size());
        double correlation = 0;
        try {
            correlation = cv::findTransformECC(refs[i], shots[i], warp, cv::MOTION_AFFINE, stop, inside, 5);
        } catch (const cv::Exception&) {
            correlation = 0;
        }
        if (!(correlation > 0.5))
            throw dip_exception("The shot cannot be aligned: it does not match the shot before it");
        warp.convertTo(warp, CV_64F);
        w = cv::Matx23d(warp);
        if (i == 2 && patches && !explainsMotion(refs[2], shots[2], w))
            return std::nullopt;
    }
    if (!explainsMotion(refs[0], shots[0], w))
        return std::nullopt;
    return w;
}

// The median of ratios a / b per channel over the pixels both have well inside their range, among those
// flat in both when there are enough of them. Defocus moves the mean brightness of detailed areas (light
// is spread in linear light, then encoded), so that two shots focused differently seem to differ in
// exposure there; flat areas do not change with focus and show only the exposure.
std::array<double, 3> medianRatios(const cv::Mat& a, const cv::Mat& b, const cv::Mat& inside, const cv::Mat& detailA,
                                   const cv::Mat& detailB)
{
    cv::Mat valid = (detailA < flatDetail) & (detailB < flatDetail) & inside;
    if (cv::countNonZero(valid) < std::max(64, int(valid.total() / 50)))
        valid = inside;
    std::array<double, 3> gains{1.0, 1.0, 1.0};
    const int channels = a.channels();
    double low[3], high[3];
    for (int c = 0; c < channels; ++c) {
        double top = 0;
        cv::Mat plane;
        cv::extractChannel(a, plane, c);
        cv::minMaxLoc(plane, nullptr, &top);
        low[c] = 0.02 * top;
        high[c] = 0.98 * top;
    }
    std::vector<float> ratios[3];
    for (int y = 0; y < a.rows; ++y) {
        const float* pa = a.ptr<float>(y);
        const float* pb = b.ptr<float>(y);
        const uchar* v = valid.ptr<uchar>(y);
        for (int x = 0; x < a.cols; ++x) {
            if (!v[x])
                continue;
            for (int c = 0; c < channels; ++c) {
                const float va = pa[x * channels + c], vb = pb[x * channels + c];
                if (va > low[c] && va < high[c] && vb > low[c] && vb < high[c])
                    ratios[c].push_back(va / vb);
            }
        }
    }
    for (int c = 0; c < channels; ++c) {
        std::vector<float>& r = ratios[c];
        if (r.size() < 16)
            continue;
        std::nth_element(r.begin(), r.begin() + r.size() / 2, r.end());
        // Within 0.3% of 1 no exposure changed visibly: the shot is then left exactly as it is.
        const double gain = r[r.size() / 2];
        gains[size_t(c)] = std::abs(gain - 1.0) < 0.003 ? 1.0 : gain;
    }
    if (channels == 1)
        gains[1] = gains[2] = gains[0];
    return gains;
}

// DIS's flow between two planes, in tiles that overlap by more than the longest motion taken: DIS keeps
// some fifty bytes a pixel while it works, so that tiles bound its memory whatever the shots' size. Each
// tile's own centre is kept; the smoothing that follows hides what little differs at the tiles' edges.
// Each tile has a DIS of its own: OpenCV 4.6's DIS, called again on a plane of another size, now and then
// reads past its buffers in its parallel loops (a crash on about half the runs of a 12-megapixel stack).
// Calls tile(inner rectangle, its flow) for each tile: the flow is never made whole.
void forEachFlowTile(const cv::Mat& target, const cv::Mat& moving, int preset,
                     const std::function<void(const cv::Rect&, const cv::Mat&)>& tile)
{
    constexpr int side = 512, overlap = 64; // a multiple of flowReduction: each cell of the grid in one tile
    cv::Mat part;
    const cv::Rect whole(cv::Point(), target.size());
    for (int y = 0; y < target.rows; y += side)
        for (int x = 0; x < target.cols; x += side) {
            const cv::Rect inner = cv::Rect(x, y, side, side) & whole;
            const cv::Rect outer = cv::Rect(x - overlap, y - overlap, side + 2 * overlap, side + 2 * overlap) & whole;
            const cv::Ptr<cv::DISOpticalFlow> dis = cv::DISOpticalFlow::create(preset);
            dis->calc(target(outer).clone(), moving(outer).clone(), part); // DIS takes continuous planes only
            tile(inner, part(inner - outer.tl()));
        }
}

// The flow that brings `moving` onto `target` (target(x) ~ moving(x + flow(x))), as a smooth field on a
// grid flowReduction times smaller each way (its vectors in the planes' pixels): DIS's
// vectors averaged over about `radius` pixels, each weighted by the detail both images have there, so that
// flat and blurred areas (where flow is noise) take the motion of the detail around them, and areas far
// from any detail none. Vectors longer than `longest` are matches gone astray and count for nothing.
// A quick look (DIS's fast preset instead of its medium one) weighs the vectors by the detail of `moving`
// alone: a neighbour differs from it by focus only, the look only decides whether to look closely, and
// the second plane of detail would be a third of its time.
cv::Mat smoothFlow(const cv::Mat& target8, const cv::Mat& moving8, double radius, double longest, bool quick)
{
    const int preset = quick ? cv::DISOpticalFlow::PRESET_FAST : cv::DISOpticalFlow::PRESET_MEDIUM;
    const cv::Mat target = equalised(target8), moving = equalised(moving8);
    // Detail that pins motion down in both directions: the structure tensor's smaller eigenvalue. Along
    // stripes (a barcode, a ruled line) flow is known across them only, and taking it there bends them.
    // Made a tile at a time with the pixels around it that the 5 x 5 window and the 3 x 3 derivative
    // reach, so that it is exact, and summed at once into the reduced grid (the field holds nothing finer
    // once averaged over `radius`), the weighted flow and the weights: neither they nor the flow are ever
    // made at the planes' size.
    const cv::Size kept(std::max(1, target.cols / flowReduction), std::max(1, target.rows / flowReduction));
    cv::Mat weighted(kept, CV_32FC2, cv::Scalar::all(0)), total(kept, CV_32F, cv::Scalar(0));
    double sum = 0;
    const cv::Rect whole(cv::Point(), target.size());
    forEachFlowTile(target, moving, preset, [&](const cv::Rect& inner, const cv::Mat& flow) {
        // In bands of 64 rows: OpenCV's planes for a whole tile (over 4 MB each) would be fresh memory, page
        // by page, on every call.
        cv::Mat a, b, weight;
        const float tooFar = float(longest * longest);
        forEachBand(flow.rows, CacheBands{64}, [&](int r0, int r1) {
            const cv::Rect part(inner.x, inner.y + r0, inner.width, r1 - r0);
            const cv::Rect read = cv::Rect(part.x - 4, part.y - 4, part.width + 8, part.height + 8) & whole;
            const cv::Rect in(part.tl() - read.tl(), part.size());
            cv::cornerMinEigenVal(moving(read), b, 5, 3);
            if (!quick) {
                cv::cornerMinEigenVal(target(read), a, 5, 3);
                b = cv::min(a, b);
            }
            cv::sqrt(cv::max(b(in), 0.0), weight);
            for (int r = r0; r < r1; ++r) {
                const int cy = std::min((inner.y + r) / flowReduction, kept.height - 1);
                const cv::Vec2f* f = flow.ptr<cv::Vec2f>(r);
                const float* w = weight.ptr<float>(r - r0);
                cv::Vec2f* sw = weighted.ptr<cv::Vec2f>(cy);
                float* st = total.ptr<float>(cy);
                for (int x = 0; x < flow.cols; ++x) {
                    // Vectors longer than `longest` count for nothing; the last cell of a row or column
                    // takes what is left over when the size is no multiple of the reduction.
                    const float wx = f[x][0] * f[x][0] + f[x][1] * f[x][1] > tooFar ? 0.f : w[x];
                    const int cx = std::min((inner.x + x) / flowReduction, kept.width - 1);
                    sw[cx] += f[x] * wx;
                    st[cx] += wx;
                    sum += wx;
                }
            }
        });
    });
    const double floor = 0.05 * sum / double(target.total()) + 1e-6;
    // Sums into means, as an area reduction makes them.
    const auto cells = [](int cell, int cells, int size) {
        return cell + 1 < cells ? flowReduction : size - flowReduction * cell;
    };
    for (int cy = 0; cy < kept.height; ++cy)
        for (int cx = 0; cx < kept.width; ++cx) {
            const float n = float(cells(cy, kept.height, target.rows) * cells(cx, kept.width, target.cols));
            weighted.at<cv::Vec2f>(cy, cx) /= n;
            total.at<float>(cy, cx) /= n;
        }
    // Averaged over `radius`, the field holds nothing finer than its reduced grid: both sums are blurred
    // there, at a sixteenth of the work of a blur this wide at full size.
    cv::GaussianBlur(weighted, weighted, cv::Size(), radius / flowReduction);
    cv::GaussianBlur(total, total, cv::Size(), radius / flowReduction);
    cv::add(total, cv::Scalar::all(floor), total);
    cv::Mat pair[] = {total, total}, totals, smooth;
    cv::merge(pair, 2, totals);
    cv::divide(weighted, totals, smooth);
    return smooth;
}

// The flow away from its borders (a 20th of its size each way), where it is extrapolated.
cv::Rect awayFromBorders(const cv::Mat& flow)
{
    const int mx = flow.cols / 20, my = flow.rows / 20;
    return cv::Rect(mx, my, flow.cols - 2 * mx, flow.rows - 2 * my);
}

// The 99th percentile of the flow's length, away from its borders.
double largeShift(const cv::Mat& flow)
{
    const cv::Mat inner = flow(awayFromBorders(flow));
    std::vector<float> lengths;
    lengths.reserve(size_t(inner.total()));
    for (int y = 0; y < inner.rows; ++y) {
        const cv::Vec2f* f = inner.ptr<cv::Vec2f>(y);
        for (int x = 0; x < inner.cols; ++x)
            lengths.push_back(std::hypot(f[x][0], f[x][1]));
    }
    if (lengths.empty())
        return 0;
    const size_t k = lengths.size() * 99 / 100;
    std::nth_element(lengths.begin(), lengths.begin() + k, lengths.end());
    return lengths[k];
}

// largeShift(flow) weighted by how much of the flow runs along one direction, or along the rays from the
// centre: 1 when every vector is parallel (a camera moving sideways shifts near things one way and far
// things the other) or radial (a camera moving along its axis magnifies near things more than far ones), 0
// when the vectors point every way alike, as they do where focus differences alone move edges (outwards
// or inwards around each object, whichever way its edges face).
double coherentShift(const cv::Mat& flow)
{
    const cv::Rect inner = awayFromBorders(flow);
    const double cx = (flow.cols - 1) / 2.0, cy = (flow.rows - 1) / 2.0;
    double xx = 0, yy = 0, xy = 0, radial = 0;
    for (int y = inner.y; y < inner.br().y; ++y) {
        const cv::Vec2f* f = flow.ptr<cv::Vec2f>(y);
        for (int x = inner.x; x < inner.br().x; ++x) {
            xx += double(f[x][0]) * f[x][0];
            yy += double(f[x][1]) * f[x][1];
            xy += double(f[x][0]) * f[x][1];
            const double rx = x - cx, ry = y - cy, r = std::hypot(rx, ry);
            if (r > 0)
                radial += std::pow((f[x][0] * rx + f[x][1] * ry) / r, 2);
        }
    }
    if (xx + yy <= 0)
        return 0;
    // The difference of the second moments' eigenvalues over their sum; and of the radial and the
    // tangential energy over their sum.
    const double parallel = std::sqrt((xx - yy) * (xx - yy) + 4 * xy * xy) / (xx + yy);
    const double outwards = std::max(0.0, 2 * radial / (xx + yy) - 1);
    return largeShift(flow) * std::max(parallel, outwards);
}

// coherentShift of a smooth flow averaged over about 70 working pixels.
double coherentMotion(const cv::Mat& flow)
{
    cv::Mat wide;
    cv::GaussianBlur(flow, wide, cv::Size(), 36.0 / flowReduction);
    return coherentShift(wide);
}

cv::Mat to8u(const cv::Mat& gray, double scale)
{
    cv::Mat out;
    gray.convertTo(out, CV_8U, scale);
    return out;
}

} // namespace

// Calls band(first row, map rows) for the full-size map of a fit, a band of rows at a time.
void forEachMapBand(const FocusAligner::Fit& fit, cv::Size size, const std::function<void(int, const cv::Mat&)>& band);

cv::Mat grayOf(const cv::Mat& colour)
{
    if (colour.channels() == 1)
        return colour;
    cv::Mat gray;
    cv::cvtColor(colour, gray, cv::COLOR_BGR2GRAY);
    return gray;
}

void FocusAligner::start(const cv::Mat& colour)
{
    size_ = colour.size();
    workScale_ = std::max(size_.width, size_.height) > 1024 ? 2 : 1;
    const cv::Mat working = shrink(colour, workScale_);
    const cv::Mat gray = grayInFloats(working);
    double top = 0;
    cv::minMaxLoc(gray, nullptr, &top);
    grayScale_ = top > 0 ? 250.0 / top : 1.0;
    previousGray_ = packed(gray);
    SmallPlanes small = smallPlanesOf(working, size_);
    previousSmall_ = small.colour;
    previousDetail_ = small.detail;
}

FocusAligner::Fit FocusAligner::matchExposure(const cv::Mat& colour, const cv::Mat& covered) const
{
    Fit fit;
    fit.covered = CoveredPixels::ofMask(covered);
    const cv::Mat working = shrink(colour, workScale_);
    const SmallPlanes planes = smallPlanesOf(working, size_);
    const cv::Mat& small = planes.colour;
    fit.smallDetail = planes.detail;
    cv::Mat inside(small.size(), CV_8U, cv::Scalar(255));
    if (!covered.empty()) {
        cv::resize(covered, inside, small.size(), 0, 0, cv::INTER_AREA);
        cv::threshold(inside, inside, 254, 255, cv::THRESH_BINARY);
    }
    fit.gains = medianRatios(previousSmall_, small, inside, previousDetail_, fit.smallDetail);
    fit.small = scaled(small, fit.gains);
    fit.gray = packed(matchedGray(working, fit.gains));
    return fit;
}

FocusAligner::Fit FocusAligner::fit(const cv::Mat& colour) const
{
    if (colour.size() != size_)
        throw dip_exception("The shot's size differs from the first shot's");
    // Too small to fit reliably between shots focused differently: taken as it stands.
    if (std::min(size_.width, size_.height) < 100)
        return matchExposure(colour, cv::Mat());
    Fit fit;
    cv::Mat work = shrink(colour, workScale_);
    const std::optional<cv::Matx23d> found = [&] {
        const cv::Mat gray = grayInFloats(work); // gone before the fit starts
        return fitGlobally(previousGray_, grayUnit(), gray);
    }();
    const cv::Matx23d w = found.value_or(cv::Matx23d(1, 0, 0, 0, 1, 0));
    fit.global = enlarged(w, workScale_);
    const cv::Matx22d a(fit.global(0, 0), fit.global(0, 1), fit.global(1, 0), fit.global(1, 1));
    const double scale = std::sqrt(std::abs(cv::determinant(a)));
    const cv::Point2d centre(size_.width / 2.0, size_.height / 2.0);
    const cv::Point2d moved(fit.global(0, 0) * centre.x + fit.global(0, 1) * centre.y + fit.global(0, 2),
                            fit.global(1, 0) * centre.x + fit.global(1, 1) * centre.y + fit.global(1, 2));
    if (scale < 0.7 || scale > 1.4 || std::abs(moved.x - centre.x) > size_.width / 4.0 ||
        std::abs(moved.y - centre.y) > size_.height / 4.0)
        throw dip_exception("The shot cannot be aligned: it moved too far from the shot before it");

    // Exposure: the small shot in the reference's geometry against its neighbour.
    const cv::Matx23d ws = reduced(fit.global, smallScale);
    const SmallPlanes planes = smallPlanesOf(work, size_);
    const cv::Mat small = warped(planes.colour, ws, previousSmall_.size());
    fit.smallDetail = warped(planes.detail, ws, previousSmall_.size());
    cv::Mat inside =
        warped(cv::Mat(previousSmall_.size(), CV_8U, cv::Scalar(255)), ws, previousSmall_.size(), cv::BORDER_CONSTANT);
    cv::erode(inside, inside, cv::Mat(), cv::Point(-1, -1), 2);
    cv::threshold(inside, inside, 254, 255, cv::THRESH_BINARY);
    fit.gains = medianRatios(previousSmall_, small, inside, previousDetail_, fit.smallDetail);
    fit.small = scaled(small, fit.gains);

    // Parallax: what the global fit leaves, locally. The shot's gray plane, matched and fitted, is made
    // again where it is needed rather than kept through the flow: at the working size in floats, each
    // such plane weighs as much as all the flow's own.
    const auto matched = [&] { return matchedGray(work, fit.gains); };
    const auto fitted = [&] { return found ? warped(matched(), w, previousGray_.size()) : matched(); };
    const auto stands = [&](const cv::Mat& gray) { // the matched gray plane
        fit.global = cv::Matx23d(1, 0, 0, 0, 1, 0);
        fit.gray = packed(gray);
        return fit;
    };
    // The smooth flow that brings the shot's gray plane (8 bits, at working size) onto its neighbour's.
    const auto flowOf = [&](const cv::Mat& moving, bool quick) {
        const double longest = std::max(4.0, 0.01 * std::hypot(previousGray_.cols, previousGray_.rows));
        return smoothFlow(to8u(previousGray_, grayUnit() * grayScale_), moving, 12.0, longest, quick);
    };
    // A shot found globally still is looked at for parallax with DIS's fast preset first (a quarter of
    // the medium one's work, and as noisy on a still series: 0.02 to 0.12 pixel), and closely only where
    // that shows some; half a pixel of parallax shows as much in both.
    cv::Mat moving;
    if (!found) {
        const cv::Mat gray = matched();
        moving = to8u(gray, grayScale_);
        if (coherentMotion(flowOf(moving, true)) * workScale_ < 0.2)
            return stands(gray);
    } else {
        moving = to8u(fitted(), grayScale_); // the plane in floats gone before the flow
    }
    const cv::Mat flow = flowOf(moving, false);
    fit.localShift = largeShift(flow) * workScale_;
    // Focus differences alone make flow appear at defocused edges, changing sign from one side of an edge
    // to the other and pointing every way around an object; motion (parallax) moves whole areas alike, in
    // one direction or along the rays from the centre. So the flow counts as motion only if what is left
    // of it averaged over about 70 pixels still moves something by a quarter of a pixel that way.
    const bool local = coherentMotion(flow) * workScale_ >= 0.25;
    double still = 0;
    for (const cv::Point2d& p : {cv::Point2d(0, 0), cv::Point2d(size_.width, 0), cv::Point2d(0, size_.height),
                                 cv::Point2d(size_.width, size_.height)})
        still = std::max(still, std::hypot(fit.global(0, 0) * p.x + fit.global(0, 1) * p.y + fit.global(0, 2) - p.x,
                                           fit.global(1, 0) * p.x + fit.global(1, 1) * p.y + fit.global(1, 2) - p.y));
    if (!local) {
        fit.localShift = 0;
        if (still < 0.1)
            return stands(matched());
        fit.gray = packed(fitted());
    } else {
        // The field read bilinearly at every working pixel, as applyFit reads it at every pixel, a band of
        // rows at a time.
        const cv::Mat gray = fitted();
        FocusAligner::Fit field;
        field.flow = flow;
        field.flowScale = flowReduction;
        fit.gray.create(gray.size(), CV_16U);
        cv::Mat rows;
        forEachMapBand(field, gray.size(), [&](int y0, const cv::Mat& map) {
            cv::remap(gray, rows, map, cv::noArray(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
            rows.convertTo(fit.gray.rowRange(y0, y0 + map.rows), CV_16U, 1.0 / grayUnit());
        });
    }
    work.release();

    // The map is made a band at a time when the shot is read (applyFit), which tells what it covers.
    fit.moves = true;
    if (local) {
        // Smooth over about 24 working pixels, the field is kept at a quarter of their number each way
        // (a sixteenth of the memory, with each shot's fit kept or not) and read back bilinearly.
        fit.flow = flow * double(workScale_);
        fit.flowScale = workScale_ * flowReduction;
    }
    return fit;
}

CoveredPixels CoveredPixels::ofMask(const cv::Mat& mask)
{
    CoveredPixels out;
    for (int y = 0; y < mask.rows; ++y) {
        const uchar* m = mask.ptr<uchar>(y);
        out.addRow(mask.cols, [m](int x) { return m[x] != 0; });
    }
    out.finish();
    return out;
}

void CoveredPixels::finish()
{
    // As many runs as rows, each the whole width: every row has one, and it covers it.
    const cv::Vec2i whole(0, width_);
    if (runs_.size() == starts_.size() &&
        std::all_of(runs_.begin(), runs_.end(), [&](const cv::Vec2i& r) { return r == whole; }))
        *this = CoveredPixels();
}

const uchar* CoveredPixels::row(int y, std::vector<uchar>& buffer) const
{
    if (all())
        return nullptr;
    buffer.assign(size_t(width_), 0);
    const int end = size_t(y) + 1 < starts_.size() ? starts_[size_t(y) + 1] : int(runs_.size());
    for (int i = starts_[size_t(y)]; i < end; ++i)
        std::fill(buffer.begin() + runs_[size_t(i)][0], buffer.begin() + runs_[size_t(i)][1], uchar(255));
    return buffer.data();
}

void FocusAligner::commit(const Fit& fit)
{
    previousGray_ = fit.gray;
    previousSmall_ = fit.small;
    previousDetail_ = fit.smallDetail;
}

void forEachMapBand(const FocusAligner::Fit& fit, cv::Size size, const std::function<void(int, const cv::Mat&)>& band)
{
    // The local correction, bilinear between the centres of the working pixels.
    const cv::Mat& flow = fit.flow;
    const double scale = fit.flowScale;
    std::vector<int> x0(size_t(size.width)), x1(size_t(size.width));
    std::vector<float> ax(size_t(size.width));
    const auto place = [](double at, int n, int& i0, int& i1, float& a) {
        at = std::min(std::max(at, 0.0), double(n - 1));
        i0 = std::min(int(at), n - 1);
        i1 = std::min(i0 + 1, n - 1);
        a = float(at - i0);
    };
    if (!flow.empty())
        for (int x = 0; x < size.width; ++x)
            place((x + 0.5) / scale - 0.5, flow.cols, x0[size_t(x)], x1[size_t(x)], ax[size_t(x)]);
    const cv::Matx23d& g = fit.global;
    cv::Mat map(std::min(mapBands.rows, size.height), size.width, CV_32FC2);
    forEachBand(size.height, mapBands, [&](int y0, int y1) {
        const int rows = y1 - y0;
        cv::Mat part = map.rowRange(0, rows);
        for (int r = 0; r < rows; ++r) {
            const int y = y0 + r;
            const cv::Vec2f *f0 = nullptr, *f1 = nullptr;
            float ay = 0;
            if (!flow.empty()) {
                int i0 = 0, i1 = 0;
                place((y + 0.5) / scale - 0.5, flow.rows, i0, i1, ay);
                f0 = flow.ptr<cv::Vec2f>(i0);
                f1 = flow.ptr<cv::Vec2f>(i1);
            }
            cv::Vec2f* m = part.ptr<cv::Vec2f>(r);
            for (int x = 0; x < size.width; ++x) {
                double px = x, py = y;
                if (f0) {
                    const size_t i = size_t(x);
                    const cv::Vec2f top = f0[x0[i]] + (f0[x1[i]] - f0[x0[i]]) * ax[i];
                    const cv::Vec2f bottom = f1[x0[i]] + (f1[x1[i]] - f1[x0[i]]) * ax[i];
                    const cv::Vec2f d = top + (bottom - top) * ay;
                    px += d[0];
                    py += d[1];
                }
                m[x] = cv::Vec2f(float(g(0, 0) * px + g(0, 1) * py + g(0, 2)), float(g(1, 0) * px + g(1, 1) * py + g(1, 2)));
            }
        }
        band(y0, part);
    });
}

void applyFit(const cv::Mat& shot, const FocusAligner::Fit& fit, int border, cv::Mat& out, CoveredPixels* covered)
{
    if (!fit.moves) {
        out = shot;
        return;
    }
    out.create(shot.size(), shot.type());
    if (covered)
        *covered = CoveredPixels();
    const float right = float(shot.cols - 1), bottom = float(shot.rows - 1);
    forEachMapBand(fit, shot.size(), [&](int y0, const cv::Mat& map) {
        cv::Mat rows = out.rowRange(y0, y0 + map.rows);
        cv::remap(shot, rows, map, cv::noArray(), cv::INTER_CUBIC, border);
        for (int r = 0; covered && r < map.rows; ++r) {
            const cv::Vec2f* m = map.ptr<cv::Vec2f>(r);
            covered->addRow(
                map.cols, [&](int x) { return m[x][0] >= 0 && m[x][1] >= 0 && m[x][0] <= right && m[x][1] <= bottom; });
        }
    });
    if (covered)
        covered->finish();
}

FocusAligner::Fit geometryOf(const FocusAligner::Fit& fit)
{
    FocusAligner::Fit kept;
    kept.moves = fit.moves;
    kept.flow = fit.flow;
    kept.flowScale = fit.flowScale;
    kept.gains = fit.gains;
    kept.global = fit.global;
    kept.localShift = fit.localShift;
    return kept;
}

} // namespace VEXA
