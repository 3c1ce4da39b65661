#include <vexa/imp/kernels/smooth_image.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cfloat>

namespace VEXA {

namespace {

// cvSmooth's own precondition: a box sum may change the depth, nothing else may.
void requireSmoothable(const cv::Mat& s, const cv::Mat& d, bool anyDepth = false)
{
    requireOpenCv(d.size() == s.size() && (anyDepth || d.type() == s.type()),
                  "dst.size() == src.size() && (smooth_type == CV_BLUR_NO_SCALE || dst.type() == src.type())",
                  "cvSmooth");
}

// The side OpenCV gives a Gaussian: the size itself, or one derived from sigma when the size is not positive.
double gaussianExtent(int size, double sigma, int depth)
{
    if (size > 0)
        return size;
    return sigma > 0 ? sigma * (depth == CV_8U ? 3 : 4) * 2 + 1 : 0;
}

// OpenCV's diameter: the given one made odd, or 2 * round(1.5 sigmaSpace) + 1, at least 3.
double bilateralExtent(int diameter, double sigmaSpace)
{
    if (diameter > 0)
        return double(diameter / 2) * 2 + 1;
    const double radius = std::nearbyint((sigmaSpace <= 0 ? 1.0 : sigmaSpace) * 1.5);
    return std::isnan(radius) ? 3 : std::max(radius, 1.0) * 2 + 1;
}

qint64 floorDiv(qint64 a, qint64 b)
{
    return a / b - ((a % b != 0) && ((a < 0) != (b < 0)));
}

qint64 clampTo(qint64 v, qint64 low, qint64 high) { return v < low ? low : v > high ? high : v; }

} // namespace

std::optional<simd::SharpenRule> kernel::fixedPointSharpenRule(double amount, int low, int high)
{
    if (!std::isfinite(amount) || std::abs(amount) > 1e6)
        return std::nullopt;
    // The finest scale at which 255 * factor stays well inside 32 bits.
    int shift = 22;
    while (shift > 0 && std::abs(amount) * 255.0 * std::ldexp(1.0, shift) >= std::ldexp(1.0, 30))
        --shift;
    const qint64 scale = qint64(1) << shift;
    // A factor near amount * scale and a bias with floor((D * factor + bias) / scale) == floor(D * amount)
    // for every difference D. The bias is what lets products that land exactly on an integer (10 * 1.7)
    // floor right from both signs of D.
    const qint64 nearest = std::llround(amount * double(scale));
    std::optional<std::pair<qint64, qint64>> found;
    for (qint64 factor : {nearest, nearest + 1, nearest - 1, nearest + 2, nearest - 2}) {
        qint64 least = 0, most = scale - 1;
        for (qint64 d = -255; d <= 255; ++d) {
            const qint64 q = qint64(std::floor(double(d) * amount));
            least = std::max(least, q * scale - d * factor);
            most = std::min(most, q * scale + scale - 1 - d * factor);
        }
        if (least <= most) {
            found = std::pair{factor, (least + most) / 2};
            break;
        }
    }
    if (!found || std::abs(found->first) * 255 + scale >= (qint64(1) << 31))
        return std::nullopt;
    const auto [factor, bias] = *found;
    // The row kernels' arithmetic, saturations included, against the rule for every (source, blurred) pair:
    // the factor above ignores the rounding of "+ b" in double precision, this catches it.
    for (int s = 0; s < 256; ++s)
        for (int b = 0; b < 256; ++b) {
            const qint64 step = clampTo(floorDiv((s - b) * factor + bias, scale), -32768, 32767);
            const qint64 fixed = clampTo(clampTo(step + b, -32768, 32767), 0, 255);
            if (fixed != MathUtils::bound8u(double(s - b) * amount + double(b)))
                return std::nullopt;
        }
    const auto sum = [](int bound) { return std::int32_t(clampTo(bound, -1, 256) * 1000); };
    return simd::SharpenRule{amount, low, high, sum(low), sum(high), std::int32_t(factor), std::int32_t(bias), shift};
}

void kernel::gaussian(const cv::Mat& s, cv::Mat& d, int size, double sigma)
{
    requireSmoothable(s, d);
    const double extent = gaussianExtent(size, sigma, s.depth());
    checkKernelExtent(s, extent, extent);
    filterInBands(s, d, bandReach(extent), "smoothing", [&](const cv::Mat& in, cv::Mat& o) {
        cv::GaussianBlur(in, o, cv::Size(size, size), sigma, 0, cv::BORDER_REPLICATE);
    });
}

void kernel::box(const cv::Mat& s, cv::Mat& d, int width, int height, bool normalize)
{
    requireSmoothable(s, d, !normalize);
    const cv::Size size(width, height > 0 ? height : width);
    checkKernelExtent(s, size.width, size.height);
    filterInBands(s, d, bandReach(size.height), "smoothing", [&](const cv::Mat& in, cv::Mat& o) {
        cv::boxFilter(in, o, o.depth(), size, cv::Point(-1, -1), normalize, cv::BORDER_REPLICATE);
    });
}

void kernel::median(const cv::Mat& s, cv::Mat& d, int size)
{
    requireSmoothable(s, d);
    checkKernelExtent(s, size, size);
    filterInBands(s, d, bandReach(size), "smoothing", [&](const cv::Mat& in, cv::Mat& o) { cv::medianBlur(in, o, size); });
}

void kernel::bilateral(const cv::Mat& s, cv::Mat& d, int diameter, double sigmaColor, double sigmaSpace)
{
    requireSmoothable(s, d);
    const double extent = bilateralExtent(diameter, sigmaSpace);
    checkKernelExtent(s, extent, extent);
    if (s.depth() == CV_32F) {
        if (!cv::checkRange(s))
            throw dip_exception("Bilateral filtering needs finite values");
        // The filter adds up a pixel's component differences in single precision.
        double low = 0.0, high = 0.0;
        cv::minMaxLoc(s.reshape(1), &low, &high);
        if ((high - low) * s.channels() > FLT_MAX / 2)
            throw dip_exception("Bilateral filtering needs values closer together");
    }
    // One call: OpenCV's float bilateral sizes its tables by the whole image's range of values.
    writeInto(d, [&](cv::Mat& o) {
        cv::bilateralFilter(s, o, diameter, sigmaColor, sigmaSpace, cv::BORDER_REPLICATE);
    });
}

} // namespace VEXA
