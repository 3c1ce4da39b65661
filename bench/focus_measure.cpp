// focus_measure: measures one merged focus stack for bench/focus.
//
//   focus_measure [--truth TRUTH [--register] | --frame REF] [--flat-mask MASK] [--crop X,Y,W,H:FILE]...
//                 [--blotches S] [--thumb FILE] [--thumb-width N] IMAGE
//   focus_measure --make-flat-mask MASK [--frame REF] SHOT...
//
// Prints one line of key=value pairs:
//   laplacian=  mean absolute 3x3 Laplacian of the gray image (a sharpness figure for sets without truth)
//   psnr=       (with --truth) PSNR in dB over the three colour channels, peak 255; "inf" when identical
//   ssim=       (with --truth) mean SSIM of the luminance: 11x11 Gaussian window (sigma 1.5),
//               C1 = (0.01 * 255)^2, C2 = (0.03 * 255)^2
//   ecc=        (with --register or --frame) the correlation the registration reached, 1 at best
//   flat=       (with --flat-mask) grain, blotches and stray edges in the scene's flat areas, in percent of
//               the local brightness (see flatFigure); flat_area= the share of the image that counted
//
// The frame is the coordinate system of the flat mask and of the crops: TRUTH's with --register, REF's
// with --frame, otherwise IMAGE's own. --register and --frame first fit a homography that maps the frame
// onto IMAGE (registerOnto). With --register, IMAGE is then warped onto the truth, each colour channel
// gets the gain and offset that fit the truth best (least squares), and PSNR and SSIM count the central
// 90% of the truth only: a merge is not blamed for the reference shot it aligned to, for the exposure it
// kept or for its borders. IMAGE may be of another size than the truth (a cropped merge): the search then
// starts from IMAGE centred on the truth, and only the truth's pixels that IMAGE covers count.
// --crop cuts W x H pixels of IMAGE (100%, no resampling) around the point of IMAGE that the frame's
// rectangle X,Y,W,H centres on, and writes them to FILE.
// --blotches S spoils IMAGE with synthetic blotches and grain of strength S before measuring it, to check
// that the flat figure rises with them.
// --make-flat-mask writes MASK, the flat areas of the frame (REF's, or the first SHOT's): see flatMask.
// --thumb writes IMAGE scaled down (INTER_AREA) to --thumb-width pixels wide (default 1200) as PNG.
// Images are read as 8-bit colour: an alpha channel is dropped, 16-bit samples are scaled to 8 bits.
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

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

void write(const cv::Mat& image, const std::string& path)
{
    if (!cv::imwrite(path, image))
        fail(path + ": cannot write the image");
}

// Over the pixels where mask is set (all when it is empty).
double psnr(const cv::Mat& a, const cv::Mat& b, const cv::Mat& mask = cv::Mat())
{
    cv::Mat difference;
    cv::absdiff(a, b, difference);
    difference.convertTo(difference, CV_64F);
    difference = difference.mul(difference);
    const cv::Scalar sums = mask.empty() ? cv::sum(difference) : cv::mean(difference, mask);
    const double count = mask.empty() ? double(a.total()) : 1.0;
    const double mse = (sums[0] + sums[1] + sums[2]) / (count * a.channels());
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

double ssim(const cv::Mat& a, const cv::Mat& b, const cv::Mat& mask = cv::Mat())
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
    return cv::mean(map, mask)[0];
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

cv::Mat gray32(const cv::Mat& bgr)
{
    cv::Mat gray;
    cv::cvtColor(bgr, gray, cv::COLOR_BGR2GRAY);
    gray.convertTo(gray, CV_32F);
    return gray;
}

// The central part of a size-sized image, margin (a share of each side) left off all round.
cv::Mat centralMask(cv::Size size, double margin)
{
    cv::Mat mask(size, CV_8U, cv::Scalar(0));
    const int x = int(std::lround(size.width * margin));
    const int y = int(std::lround(size.height * margin));
    mask(cv::Rect(x, y, size.width - 2 * x, size.height - 2 * y)).setTo(255);
    return mask;
}

struct Registration {
    cv::Mat warp; // 3x3 CV_32F homography from frame to image coordinates
    double ecc = 1;
};

// Fits the homography that maps frame onto image by ECC, coarse to fine: from the level of a gray pyramid
// whose longer side is at most 400 pixels, starting from identity, down to level finest (0: full
// resolution), each level starting from the fit of the one above. Only the central 90% of the frame takes
// part, so borders that a merge leaves empty or black do not pull. An image of another size than the
// frame is first centred on a canvas of the frame's size (whole pixels, no resampling).
Registration registerOnto(const cv::Mat& frame, const cv::Mat& image, int finest = 0)
{
    const cv::Point shift((frame.cols - image.cols) / 2, (frame.rows - image.rows) / 2);
    const cv::Rect onCanvas = cv::Rect(shift, image.size()) & cv::Rect(cv::Point(), frame.size());
    cv::Mat canvas(frame.size(), image.type(), cv::Scalar::all(0));
    image(onCanvas - shift).copyTo(canvas(onCanvas));
    std::vector<cv::Mat> frames{gray32(frame)}, images{gray32(canvas)};
    cv::Mat covered(frame.size(), CV_8U, cv::Scalar(0));
    covered(onCanvas).setTo(255);
    std::vector<cv::Mat> masks{centralMask(frame.size(), 0.05) & covered};
    while (std::max(frames.back().cols, frames.back().rows) > 400) {
        cv::Mat f, i, m;
        cv::pyrDown(frames.back(), f);
        cv::pyrDown(images.back(), i);
        cv::resize(masks.back(), m, f.size(), 0, 0, cv::INTER_NEAREST);
        frames.push_back(f), images.push_back(i), masks.push_back(m);
    }
    const int top = int(frames.size()) - 1;
    finest = std::min(finest, top);
    Registration r;
    r.warp = cv::Mat::eye(3, 3, CV_32F);
    const auto twice = [](cv::Mat& h) { // the same warp for coordinates twice as large
        h.at<float>(0, 2) *= 2, h.at<float>(1, 2) *= 2;
        h.at<float>(2, 0) /= 2, h.at<float>(2, 1) /= 2;
    };
    for (int level = top; level >= finest; --level) {
        if (level < top)
            twice(r.warp);
        // The two finest levels only refine the fit from above: a few iterations there cost as much as the rest.
        const bool refine = level < top && level <= 1;
        const cv::TermCriteria criteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, refine ? 15 : 100,
                                        refine ? 1e-5 : 1e-6);
        cv::Mat warp = r.warp.clone();
        try {
            r.ecc = cv::findTransformECC(frames[level], images[level], warp, cv::MOTION_HOMOGRAPHY, criteria,
                                         masks[level], 5);
            r.warp = warp;
        } catch (const cv::Exception& e) {
            if (level == top)
                fail(std::string("the registration found no fit: ") + e.what());
            // A finer level that does not converge keeps the coarser fit.
        }
    }
    for (int level = finest; level > 0; --level)
        twice(r.warp);
    // From canvas to image coordinates.
    const cv::Matx33f toImage(1, 0, float(-shift.x), 0, 1, float(-shift.y), 0, 0, 1);
    r.warp = cv::Mat(toImage * cv::Matx33f(r.warp));
    return r;
}

// image (of any type) resampled into frame coordinates (size): pixel x of the result is image(H x).
cv::Mat warpIntoFrame(const cv::Mat& image, const cv::Mat& warp, cv::Size size, int interpolation)
{
    cv::Mat out;
    cv::warpPerspective(image, out, warp, size, interpolation | cv::WARP_INVERSE_MAP, cv::BORDER_CONSTANT);
    return out;
}

// The frame pixels that image covers, a pixel off its edge left out.
cv::Mat coverage(cv::Size imageSize, const cv::Mat& warp, cv::Size size)
{
    cv::Mat covered = warpIntoFrame(cv::Mat(imageSize, CV_8U, cv::Scalar(255)), warp, size, cv::INTER_NEAREST);
    cv::erode(covered, covered, cv::Mat(), cv::Point(-1, -1), 1, cv::BORDER_CONSTANT, cv::Scalar(0));
    return covered;
}

// image warped into the truth's frame, each channel given the gain and offset that fit the truth best
// over mask, clamped to 0..255 (CV_32FC3).
cv::Mat fitToTruth(const cv::Mat& image, const cv::Mat& truth, const cv::Mat& warp, const cv::Mat& mask)
{
    cv::Mat warped = warpIntoFrame(image, warp, truth.size(), cv::INTER_LINEAR);
    warped.convertTo(warped, CV_32F);
    cv::Mat target;
    truth.convertTo(target, CV_32F);
    std::vector<cv::Mat> x, y;
    cv::split(warped, x);
    cv::split(target, y);
    for (int c = 0; c < 3; ++c) {
        cv::Scalar meanX, sdX, meanY;
        cv::meanStdDev(x[c], meanX, sdX, mask);
        meanY = cv::mean(y[c], mask);
        const double covariance = cv::mean((x[c] - meanX[0]).mul(y[c] - meanY[0]), mask)[0];
        const double gain = sdX[0] > 0 ? covariance / (sdX[0] * sdX[0]) : 1.0;
        x[c].convertTo(x[c], CV_32F, gain, meanY[0] - gain * meanX[0]);
    }
    cv::merge(x, warped);
    cv::max(warped, 0.0, warped);
    cv::min(warped, 255.0, warped);
    return warped;
}

// The detail of 1 to about 8 pixels relative to the local brightness: the gray image less its Gaussian
// blur of sigma 4, over that blur (at least 10% of full scale, so that near-black areas do not weigh
// without bound).
cv::Mat detailRatio(const cv::Mat& bgr)
{
    const cv::Mat gray = gray32(bgr);
    cv::Mat local, ratio;
    cv::GaussianBlur(gray, local, cv::Size(), 4, 4, cv::BORDER_REFLECT);
    cv::divide(gray - local, cv::max(local, 25.5), ratio);
    return ratio;
}

// Grain, blotches and stray edges inside the flat mask (image coordinates): the RMS of detailRatio over
// the mask, in percent.
double flatFigure(const cv::Mat& bgr, const cv::Mat& mask)
{
    const cv::Mat ratio = detailRatio(bgr);
    return 100 * std::sqrt(cv::mean(ratio.mul(ratio), mask)[0]);
}

// What a shot holds at 1 to 8 pixels around each place: the local RMS of detailRatio (a Gaussian of
// sigma 4 over its square).
cv::Mat localDetail(const cv::Mat& bgr)
{
    const cv::Mat ratio = detailRatio(bgr);
    cv::Mat energy;
    cv::GaussianBlur(ratio.mul(ratio), energy, cv::Size(), 4, 4, cv::BORDER_REFLECT);
    cv::sqrt(energy, energy);
    return energy;
}

// The flat areas of the scene, in the frame's coordinates: every shot is registered onto the frame (to
// half resolution; a mask needs no finer fit), and a pixel is flat when no shot holds more local detail
// there than twice the floor, the detail that the flattest tenth of the frame holds in the shot that has
// most there: noise, which every merge inherits. Flat in every shot means flat at every focus distance, so
// the mask depends on the scene and the shots only, never on the merge being measured. The frame's 5%
// margin is left out.
cv::Mat flatMask(const cv::Mat& frame, const std::vector<std::string>& shots)
{
    cv::Mat most(frame.size(), CV_32F, cv::Scalar(0));
    for (const std::string& path : shots) {
        const cv::Mat shot = readColour(path);
        const Registration r = registerOnto(frame, shot, 1);
        cv::Mat detail = warpIntoFrame(localDetail(shot), r.warp, frame.size(), cv::INTER_LINEAR);
        const cv::Mat uncovered = coverage(shot.size(), r.warp, frame.size()) == 0;
        detail.setTo(1e3, uncovered); // never flat
        most = cv::max(most, detail);
    }
    const cv::Mat central = centralMask(frame.size(), 0.05);
    std::vector<float> values;
    values.reserve(frame.total());
    for (int y = 0; y < most.rows; ++y)
        for (int x = 0; x < most.cols; ++x)
            if (central.at<uchar>(y, x))
                values.push_back(most.at<float>(y, x));
    const auto tenth = values.begin() + values.size() / 10;
    std::nth_element(values.begin(), tenth, values.end());
    cv::Mat mask = most <= 2 * *tenth;
    return mask & central;
}

// Spoils image with blotches and grain of strength s: softened 8-pixel patches brightened or darkened by up
// to 3 s levels, and one pixel in a hundred moved up or down by 10 s levels.
cv::Mat blotch(const cv::Mat& image, double s)
{
    cv::RNG rng(7);
    cv::Mat small(image.rows / 8 + 1, image.cols / 8 + 1, CV_32F), patches, grain(image.size(), CV_32F);
    rng.fill(small, cv::RNG::UNIFORM, -1, 1);
    cv::resize(small, patches, image.size(), 0, 0, cv::INTER_NEAREST);
    cv::GaussianBlur(patches, patches, cv::Size(), 1.5);
    rng.fill(grain, cv::RNG::UNIFORM, 0, 1);
    const cv::Mat up = grain<0.005, down = grain> 0.995;
    cv::Mat change = 3 * s * patches;
    change.setTo(10 * s, up);
    change.setTo(-10 * s, down);
    cv::Mat out;
    image.convertTo(out, CV_32F);
    std::vector<cv::Mat> channels;
    cv::split(out, channels);
    for (cv::Mat& c : channels)
        c += change;
    cv::merge(channels, out);
    out.convertTo(out, CV_8U);
    return out;
}

void writeThumb(const cv::Mat& image, const std::string& path, int width)
{
    cv::Mat out = image;
    if (image.cols > width) {
        const int height = std::max(1, int(std::lround(double(image.rows) * width / image.cols)));
        cv::resize(image, out, cv::Size(width, height), 0, 0, cv::INTER_AREA);
    }
    write(out, path);
}

// W x H pixels of image around the point that the centre of the frame's rectangle maps to.
cv::Mat crop(const cv::Mat& image, const cv::Mat& warp, const cv::Rect& rect)
{
    std::vector<cv::Point2f> centre{cv::Point2f(rect.x + rect.width / 2.f, rect.y + rect.height / 2.f)};
    cv::perspectiveTransform(centre, centre, warp);
    const int w = std::min(rect.width, image.cols), h = std::min(rect.height, image.rows);
    const int x = std::clamp(int(std::lround(centre[0].x - w / 2.f)), 0, image.cols - w);
    const int y = std::clamp(int(std::lround(centre[0].y - h / 2.f)), 0, image.rows - h);
    return image(cv::Rect(x, y, w, h));
}

[[noreturn]] void usage()
{
    std::fprintf(stderr, "usage: focus_measure [--truth TRUTH [--register] | --frame REF] [--flat-mask MASK]\n"
                         "                     [--crop X,Y,W,H:FILE]... [--blotches S] [--thumb FILE]\n"
                         "                     [--thumb-width N] IMAGE\n"
                         "       focus_measure --make-flat-mask MASK [--frame REF] SHOT...\n");
    std::exit(2);
}

} // namespace

int main(int argc, char** argv)
{
    std::string truthPath, framePath, maskPath, makeMaskPath, thumbPath;
    std::vector<std::string> positional;
    std::vector<std::pair<cv::Rect, std::string>> crops;
    bool registered = false;
    double blotches = 0;
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
        else if (argument == "--register")
            registered = true;
        else if (argument == "--frame")
            framePath = value();
        else if (argument == "--flat-mask")
            maskPath = value();
        else if (argument == "--make-flat-mask")
            makeMaskPath = value();
        else if (argument == "--blotches")
            blotches = std::atof(value().c_str());
        else if (argument == "--crop") {
            const std::string text = value();
            cv::Rect r;
            char file[4096] = "";
            if (std::sscanf(text.c_str(), "%d,%d,%d,%d:%4095s", &r.x, &r.y, &r.width, &r.height, file) != 5 ||
                r.width < 1 || r.height < 1)
                usage();
            crops.emplace_back(r, file);
        } else if (argument == "--thumb")
            thumbPath = value();
        else if (argument == "--thumb-width") {
            thumbWidth = std::atoi(value().c_str());
            if (thumbWidth < 1)
                usage();
        } else if (!argument.empty() && argument[0] == '-')
            usage();
        else
            positional.push_back(argument);
    }
    if (positional.empty() || (registered && truthPath.empty()) || (registered && !framePath.empty()))
        usage();

    if (!makeMaskPath.empty()) {
        const cv::Mat frame = readColour(framePath.empty() ? positional.front() : framePath);
        const cv::Mat mask = flatMask(frame, positional);
        write(mask, makeMaskPath);
        std::printf("flat_area=%.4f\n", cv::countNonZero(mask) / double(mask.total()));
        return 0;
    }
    if (positional.size() != 1)
        usage();
    const std::string imagePath = positional.front();

    cv::Mat image = readColour(imagePath);
    if (blotches > 0)
        image = blotch(image, blotches);
    std::printf("laplacian=%.4f", meanAbsLaplacian(image));
    cv::Mat truth, frame;
    if (!truthPath.empty())
        truth = readColour(truthPath);
    if (registered)
        frame = truth;
    else if (!framePath.empty())
        frame = readColour(framePath);
    Registration r;
    r.warp = cv::Mat::eye(3, 3, CV_32F);
    if (!frame.empty()) {
        r = registerOnto(frame, image);
        std::printf(" ecc=%.5f", r.ecc);
    } else
        frame = image;

    if (!truth.empty()) {
        double p, s;
        if (registered) {
            const cv::Mat mask = coverage(image.size(), r.warp, truth.size()) & centralMask(truth.size(), 0.05);
            const cv::Mat fitted = fitToTruth(image, truth, r.warp, mask);
            cv::Mat target;
            truth.convertTo(target, CV_32F);
            p = psnr(fitted, target, mask);
            s = ssim(fitted, target, mask);
        } else {
            if (truth.size() != image.size())
                fail(imagePath + ": " + std::to_string(image.cols) + "x" + std::to_string(image.rows) +
                     ", but the truth is " + std::to_string(truth.cols) + "x" + std::to_string(truth.rows) +
                     " (--register copes)");
            p = psnr(image, truth);
            s = ssim(image, truth);
        }
        if (std::isinf(p))
            std::printf(" psnr=inf");
        else
            std::printf(" psnr=%.3f", p);
        std::printf(" ssim=%.5f", s);
    }
    if (!maskPath.empty()) {
        const cv::Mat mask = cv::imread(maskPath, cv::IMREAD_GRAYSCALE);
        if (mask.empty())
            fail(maskPath + ": cannot read the mask");
        if (mask.size() != frame.size())
            fail(maskPath + ": the mask is not of the frame's size");
        // The mask goes to the image rather than the image to the mask: resampling would soften the grain.
        cv::Mat inImage;
        cv::warpPerspective(mask, inImage, r.warp, image.size(), cv::INTER_NEAREST, cv::BORDER_CONSTANT);
        const int area = cv::countNonZero(inImage);
        if (area == 0)
            fail(maskPath + ": no flat area falls inside the image");
        std::printf(" flat=%.4f flat_area=%.4f", flatFigure(image, inImage), area / double(image.total()));
    }
    std::printf("\n");
    for (const auto& [rect, file] : crops)
        write(crop(image, r.warp, rect), file);
    if (!thumbPath.empty())
        writeThumb(image, thumbPath, thumbWidth);
    return 0;
}
