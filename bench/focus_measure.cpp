// focus_measure: measures one merged focus stack for bench/focus.
//
//   focus_measure [--truth TRUTH] [--thumb FILE] [--thumb-width N] IMAGE
//
// Prints one line of key=value pairs:
//   laplacian=  mean absolute 3x3 Laplacian of the gray image (a sharpness figure for sets without truth)
//   psnr=       (with --truth) PSNR in dB over the three colour channels, peak 255; "inf" when identical
//   ssim=       (with --truth) mean SSIM of the luminance: 11x11 Gaussian window (sigma 1.5),
//               C1 = (0.01 * 255)^2, C2 = (0.03 * 255)^2
// --thumb writes IMAGE scaled down (INTER_AREA) to --thumb-width pixels wide (default 1200) as PNG.
// Images are read as 8-bit colour: an alpha channel is dropped, 16-bit samples are scaled to 8 bits.
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>

namespace {

[[noreturn]] void fail(const std::string& message)
{
    std::fprintf(stderr, "focus_measure: %s\n", message.c_str());
    std::exit(2);
}

cv::Mat readColour(const std::string& path)
{
    // IMREAD_COLOR gives 8-bit BGR whatever the file holds (alpha dropped, 16 bits scaled down).
    cv::Mat image = cv::imread(path, cv::IMREAD_COLOR);
    if (image.empty())
        fail(path + ": cannot read the image");
    return image;
}

double psnr(const cv::Mat& a, const cv::Mat& b)
{
    cv::Mat difference;
    cv::absdiff(a, b, difference);
    difference.convertTo(difference, CV_64F);
    const cv::Scalar sums = cv::sum(difference.mul(difference));
    const double mse = (sums[0] + sums[1] + sums[2]) / (double(a.total()) * a.channels());
    if (mse == 0)
        return std::numeric_limits<double>::infinity();
    return 10.0 * std::log10(255.0 * 255.0 / mse);
}

cv::Mat luminance(const cv::Mat& bgr)
{
    cv::Mat gray;
    cv::cvtColor(bgr, gray, cv::COLOR_BGR2GRAY); // 0.299 R + 0.587 G + 0.114 B
    gray.convertTo(gray, CV_64F);
    return gray;
}

double ssim(const cv::Mat& a, const cv::Mat& b)
{
    const double c1 = (0.01 * 255) * (0.01 * 255);
    const double c2 = (0.03 * 255) * (0.03 * 255);
    const cv::Mat x = luminance(a);
    const cv::Mat y = luminance(b);
    const auto blur = [](const cv::Mat& m) {
        cv::Mat out;
        cv::GaussianBlur(m, out, cv::Size(11, 11), 1.5, 1.5, cv::BORDER_REFLECT);
        return out;
    };
    const cv::Mat muX = blur(x);
    const cv::Mat muY = blur(y);
    const cv::Mat muXX = muX.mul(muX);
    const cv::Mat muYY = muY.mul(muY);
    const cv::Mat muXY = muX.mul(muY);
    const cv::Mat sigmaXX = blur(x.mul(x)) - muXX;
    const cv::Mat sigmaYY = blur(y.mul(y)) - muYY;
    const cv::Mat sigmaXY = blur(x.mul(y)) - muXY;
    cv::Mat numerator = (2 * muXY + c1).mul(2 * sigmaXY + c2);
    cv::Mat denominator = (muXX + muYY + c1).mul(sigmaXX + sigmaYY + c2);
    cv::Mat map;
    cv::divide(numerator, denominator, map);
    return cv::mean(map)[0];
}

double meanAbsLaplacian(const cv::Mat& bgr)
{
    cv::Mat gray;
    cv::cvtColor(bgr, gray, cv::COLOR_BGR2GRAY);
    cv::Mat laplacian;
    // ksize 1 is the 3x3 kernel [0 1 0; 1 -4 1; 0 1 0].
    cv::Laplacian(gray, laplacian, CV_32F, 1, 1.0, 0.0, cv::BORDER_REFLECT_101);
    return cv::mean(cv::abs(laplacian))[0];
}

void writeThumb(const cv::Mat& image, const std::string& path, int width)
{
    cv::Mat out = image;
    if (image.cols > width) {
        const int height = std::max(1, int(std::lround(double(image.rows) * width / image.cols)));
        cv::resize(image, out, cv::Size(width, height), 0, 0, cv::INTER_AREA);
    }
    if (!cv::imwrite(path, out))
        fail(path + ": cannot write the image");
}

[[noreturn]] void usage()
{
    std::fprintf(stderr, "usage: focus_measure [--truth TRUTH] [--thumb FILE] [--thumb-width N] IMAGE\n");
    std::exit(2);
}

} // namespace

int main(int argc, char** argv)
{
    std::string truthPath;
    std::string thumbPath;
    std::string imagePath;
    int thumbWidth = 1200;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const auto value = [&]() -> std::string {
            if (i + 1 >= argc)
                usage();
            return argv[++i];
        };
        if (argument == "--truth")
            truthPath = value();
        else if (argument == "--thumb")
            thumbPath = value();
        else if (argument == "--thumb-width") {
            thumbWidth = std::atoi(value().c_str());
            if (thumbWidth < 1)
                usage();
        } else if (!argument.empty() && argument[0] == '-')
            usage();
        else if (imagePath.empty())
            imagePath = argument;
        else
            usage();
    }
    if (imagePath.empty())
        usage();

    const cv::Mat image = readColour(imagePath);
    std::printf("laplacian=%.4f", meanAbsLaplacian(image));
    if (!truthPath.empty()) {
        const cv::Mat truth = readColour(truthPath);
        if (truth.size() != image.size())
            fail(imagePath + ": " + std::to_string(image.cols) + "x" + std::to_string(image.rows) +
                 ", but the truth is " + std::to_string(truth.cols) + "x" + std::to_string(truth.rows));
        const double p = psnr(image, truth);
        if (std::isinf(p))
            std::printf(" psnr=inf");
        else
            std::printf(" psnr=%.3f", p);
        std::printf(" ssim=%.5f", ssim(image, truth));
    }
    std::printf("\n");
    if (!thumbPath.empty())
        writeThumb(image, thumbPath, thumbWidth);
    return 0;
}
