#include <vexa/imp/filter_image.h>

#include <algorithm>

namespace VEXA {

void requireOpenCv(bool holds, const char* condition, const char* function)
{
    if (!holds)
        throw cv::Exception(cv::Error::StsAssert, condition, function, __FILE__, __LINE__);
}

void checkKernelExtent(const cv::Mat& src, double kernelWidth, double kernelHeight)
{
    // std::max keeps a NaN extent, which then fails the comparison like an infinite one.
    const double width = double(src.cols) + std::max(kernelWidth, 0.0);
    const double height = double(src.rows) + std::max(kernelHeight, 0.0);
    if (!(width * height * src.channels() * 8.0 <= double(imageSizeLimit())))
        throw dip_exception("Kernel is too large for the image");
}

cv::Mat readableSource(const cv::Mat& src, const cv::Mat& dst)
{
    if (src.empty() || dst.empty() || (src.data == dst.data && src.size() == dst.size() && src.step[0] == dst.step[0]))
        return src;
    const uchar* srcEnd = src.data + (src.rows - 1) * src.step[0] + src.cols * src.elemSize();
    const uchar* dstEnd = dst.data + (dst.rows - 1) * dst.step[0] + dst.cols * dst.elemSize();
    return src.data < dstEnd && dst.data < srcEnd ? src.clone() : src;
}

namespace {

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

} // namespace VEXA
