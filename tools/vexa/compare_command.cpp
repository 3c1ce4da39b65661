// vexa compare A B: how far apart two images of one size are.
#include "cli.h"
#include "image_io.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

namespace vexatool {

namespace {

// The mean SSIM of two 8-bit BGR images over their components: an 11 x 11 Gaussian window of sigma 1.5
// and the usual constants (0.01 * 255)^2 and (0.03 * 255)^2. Measured in bands of rows with five rows of
// context on each side, so a large image costs a few float bands rather than a dozen full-size planes.
double meanSsim(const cv::Mat& a, const cv::Mat& b, Task& task, double from, double to)
{
    constexpr double C1 = 6.5025, C2 = 58.5225;
    constexpr int kRadius = 5, kBand = 256;
    const cv::Size window(2 * kRadius + 1, 2 * kRadius + 1);
    const auto blur = [&window](const cv::Mat& m) {
        cv::Mat out;
        cv::GaussianBlur(m, out, window, 1.5);
        return out;
    };
    cv::Scalar sum;
    for (int y0 = 0; y0 < a.rows; y0 += kBand) {
        task.step(QStringLiteral("measuring SSIM"), from + (to - from) * y0 / a.rows);
        const int y1 = std::min(a.rows, y0 + kBand);
        const int top = std::max(0, y0 - kRadius), bottom = std::min(a.rows, y1 + kRadius);
        cv::Mat x, y;
        a.rowRange(top, bottom).convertTo(x, CV_32F);
        b.rowRange(top, bottom).convertTo(y, CV_32F);
        const cv::Mat muX = blur(x), muY = blur(y);
        const cv::Mat muXX = muX.mul(muX), muYY = muY.mul(muY), muXY = muX.mul(muY);
        const cv::Mat varX = blur(x.mul(x)) - muXX, varY = blur(y.mul(y)) - muYY, covXY = blur(x.mul(y)) - muXY;
        const cv::Scalar c1 = cv::Scalar::all(C1), c2 = cv::Scalar::all(C2); // every component, not the first
        const cv::Mat numerator = (2 * muXY + c1).mul(2 * covXY + c2);
        const cv::Mat denominator = (muXX + muYY + c1).mul(varX + varY + c2);
        cv::Mat map;
        cv::divide(numerator, denominator, map);
        sum += cv::sum(map.rowRange(y0 - top, y1 - top));
    }
    const double pixels = double(a.rows) * a.cols;
    return (sum[0] + sum[1] + sum[2]) / (3 * pixels);
}

// The largest absolute difference of any colour component (alpha included, the X byte not), in the
// images' own numbers.
double largestDifference(const cv::Mat& a, const cv::Mat& b, int components)
{
    double largest = 0;
    for (int c = 0; c < components; ++c) {
        cv::Mat x, y, diff;
        cv::extractChannel(a, x, c);
        cv::extractChannel(b, y, c);
        x.convertTo(x, CV_64F);
        y.convertTo(y, CV_64F);
        cv::absdiff(x, y, diff);
        double most = 0;
        cv::minMaxLoc(diff, nullptr, &most);
        largest = std::max(largest, most);
    }
    return largest;
}

QString number(double value, int decimals)
{
    return std::isinf(value) ? QStringLiteral("inf") : QString::number(value, 'f', decimals);
}

} // namespace

int compareCommand(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Compares two images of one size: PSNR in dB (inf for identical images) and SSIM (the "
                       "mean over blue, green and red; 11x11 Gaussian window, sigma 1.5), both of the images as "
                       "8-bit colour, and the largest absolute difference of any component, in the images' own "
                       "numbers when they share format and channel type, otherwise as 8-bit colour."));
    parser.addPositionalArgument(QStringLiteral("a"), QStringLiteral("The first image file or .vexa file."), QStringLiteral("A"));
    parser.addPositionalArgument(QStringLiteral("b"), QStringLiteral("The second."), QStringLiteral("B"));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Print one JSON object."));
    const QCommandLineOption maxDiff(QStringLiteral("max-diff"),
                                     QStringLiteral("Fail (exit code 1) when the largest difference exceeds N."),
                                     QStringLiteral("N"));
    parser.addOptions({json, maxDiff});
    if (!parseCommandLine(parser, QStringLiteral("compare"), arguments))
        return ExitOk;
    const QString needsTwo = QStringLiteral("compare needs two images");
    const QStringList files = positionalArguments(parser, {needsTwo, needsTwo});
    const double limit = numberOption(parser, QStringLiteral("max-diff"), 0, 1e300, 0);

    Task task;
    task.step(QStringLiteral("reading ") + files[0], 0);
    const VImage a = readImage(files[0]);
    task.step(QStringLiteral("reading ") + files[1], 0.1);
    const VImage b = readImage(files[1]);
    if (a.size() != b.size())
        runtimeError(QStringLiteral("%1 is %2x%3 but %4 is %5x%6")
                         .arg(files[0])
                         .arg(a.width())
                         .arg(a.height())
                         .arg(files[1])
                         .arg(b.width())
                         .arg(b.height()));
    task.step(QStringLiteral("comparing"), 0.2);
    const cv::Mat a8 = toBgr8(a), b8 = toBgr8(b);
    const bool samePair = a.format() == b.format() && a.channelType() == b.channelType();
    const int components = a.format() == VEXA::XRGB ? 3 : VEXA::channelsOf(a.format());
    const double largest = samePair ? largestDifference(view(a), view(b), components) : largestDifference(a8, b8, 3);
    const double squared = cv::norm(a8, b8, cv::NORM_L2SQR) / (double(a8.total()) * 3);
    const double psnr = squared == 0 ? std::numeric_limits<double>::infinity() : 10 * std::log10(255.0 * 255.0 / squared);
    const double ssim = meanSsim(a8, b8, task, 0.3, 1.0);
    const QString comparedAs = samePair ? pairName(a.format(), a.channelType()) : QStringLiteral("bgr 8u");
    endProgress();

    QTextStream out(stdout);
    if (parser.isSet(json)) {
        const QJsonObject object{
            {QStringLiteral("a"), files[0]},
            {QStringLiteral("b"), files[1]},
            {QStringLiteral("width"), a.width()},
            {QStringLiteral("height"), a.height()},
            {QStringLiteral("psnr"), std::isinf(psnr) ? QJsonValue(QStringLiteral("inf")) : QJsonValue(psnr)},
            {QStringLiteral("ssim"), ssim},
            {QStringLiteral("max_diff"), largest},
            {QStringLiteral("max_diff_of"), comparedAs},
        };
        out << QJsonDocument(object).toJson(QJsonDocument::Compact) << "\n";
    } else {
        out << "PSNR      " << number(psnr, 2) << " dB\n"
            << "SSIM      " << number(ssim, 5) << "\n"
            << "max diff  " << QString::number(largest, 'g', 10) << " (" << comparedAs << ")\n";
    }
    out.flush();
    if (parser.isSet(maxDiff) && largest > limit) {
        printError(QStringLiteral("%1, %2: differ by up to %3, more than %4")
                       .arg(files[0], files[1], QString::number(largest, 'g', 10), QString::number(limit, 'g', 10)));
        return ExitRuntimeError;
    }
    return ExitOk;
}

} // namespace vexatool
