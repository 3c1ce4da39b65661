// Each row times one of the library's operations beside, in the same run, OpenCV's closest equivalent
// (single-threaded: the library starts no threads, so one thread against one) and memcpy of half the bytes
// the operation reads plus writes (so the same traffic), the physical limit. Every round calls the three once
// each; a row reports the minimum of each over its rounds, so that a noisy stretch of the machine cannot
// decide a ratio. The table: ms per call, GB/s (bytes read plus written per second, a destination that is
// read as well as written counted twice), time relative to OpenCV (below 1 is faster), throughput relative
// to memcpy, and the row's goal:
//   own       the library's own kernel: at most 0.80x OpenCV;
//   re-layout an own kernel that only moves bytes: also at least 0.85x memcpy's throughput;
//   wrapper   an operation that is one OpenCV call on the same memory: at most 1.02x the bare call (the
//             frame, checks and dispatch cost nothing measurable);
//   chain     an own kernel set beside the cheapest OpenCV chain for the same job (not the same bits).
// The last line names the worst own kernel.
//
//   vexa_bench [--tiny] [google benchmark flags]    --tiny: a 64 x 48 image, for smoke runs
#include <vexa/Vexa.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

using namespace VEXA;

namespace {

int width = 4000, height = 3000;

VImage randomImage(Format format, Channel channel, unsigned seed)
{
    VImage image;
    image.create(width, height, format, channel, OriginTopLeft, RowsAlignNone);
    std::mt19937 random(seed);
    auto* words = reinterpret_cast<std::uint32_t*>(image.rawData());
    for (long i = 0, n = image.dataSize() / 4; i < n; ++i)
        words[i] = random();
    image.resetHash();
    return image;
}

VImage sized(int w, int h, Format format, Channel channel)
{
    VImage image;
    image.create(w, h, format, channel, OriginTopLeft, RowsAlignNone);
    return image;
}

VImage blank(Format format, Channel channel) { return sized(width, height, format, channel); }

cv::Mat matOf(const VImage& image)
{
    return cv::Mat(image.height(), image.width(), CV_MAKETYPE(int(image.channelType()), channelsOf(image.format())),
                   image.rawData(), size_t(image.bytesPerLine()));
}

enum class Kind { Own, Relayout, Wrapper, Chain };

struct Row {
    std::string name;
    double bytes; // read plus written by one call of the library's kernel
    std::function<void()> vexa, opencv;
    Kind kind = Kind::Own;
    std::string bound{}; // what holds the row back when it misses its goal, where measured beyond the table
};

struct Fixture {
    VImage gray = randomImage(GrayScale, Channel8u, 1), bgr = randomImage(BGR, Channel8u, 2);
    VImage bgr2 = randomImage(BGR, Channel8u, 3), xrgb = randomImage(XRGB, Channel8u, 4);
    VImage yuv = randomImage(YUV422, Channel8u, 5);
    VImage grayOut = blank(GrayScale, Channel8u), gray32f = blank(GrayScale, Channel32f);
    VImage bgrOut = blank(BGR, Channel8u), xrgbOut = blank(XRGB, Channel8u), argbOut = blank(ARGB, Channel8u);
    VImage argbpOut = blank(ARGB_Premultiplied, Channel8u);
    VImage bgrHalf = sized(width / 2, height / 2, BGR, Channel8u);
    VImageList stack;
    cv::Mat bgra, scratch, lut = cv::Mat(1, 256, CV_8U);
    cv::Mat blurred, sharpened, graySrc, grayBlur, difference, inside; // the bare unsharp-mask chain
    VImage kernel3;
    VConvKernel rect3 = VConvKernel(3, 3, 1, 1, ConvKernelRect);
    VTransformPerspective homography;
    cv::Mat homographyMat;
    VTransform2D rotation; // 10 degrees about the centre
    cv::Mat rotationMat, halfTurnMat;
    VHistogram histogram;
    std::vector<unsigned char> from, to;
    double sink = 0;

    Fixture()
    {
        for (int i = 0; i < 8; ++i)
            stack.add(randomImage(BGR, Channel8u, 10 + unsigned(i)));
        cv::cvtColor(matOf(bgr), bgra, cv::COLOR_BGR2BGRA);
        for (int i = 0; i < 256; ++i)
            lut.at<uchar>(i) = cv::saturate_cast<uchar>(i * 1.5 - 40);
        homography.fromQTransform(QTransform(0.98, 0.17, 0.00001, -0.17, 0.98, -0.00002, 150, -40, 1));
        homographyMat = VTransformPerspective(homography).createCvMat().clone();
        rotation.fromQTransform(QTransform().translate(width / 2.0, height / 2.0).rotate(10).translate(-width / 2.0, -height / 2.0));
        rotationMat = cv::Mat(2, 3, CV_32F);
        for (int r = 0; r < 2; ++r)
            for (int c = 0; c < 3; ++c)
                rotationMat.at<float>(r, c) = float(rotation.get(c, r));
        halfTurnMat = (cv::Mat_<float>(2, 3) << -1, 0, width - 1, 0, -1, height - 1);
        kernel3.create(3, 3, GrayScale, Channel32f, OriginTopLeft, RowsAlignNone);
        const float taps[9] = {0, -1, 0, -1, 5, -1, 0, -1, 0};
        for (int y = 0; y < 3; ++y)
            std::memcpy(kernel3.rawData() + y * kernel3.bytesPerLine(), taps + 3 * y, 12);
        const size_t most = size_t(width) * height * 14;
        from.assign(most, 1);
        to.assign(most, 0);
    }
};

Fixture& fixture()
{
    static Fixture f;
    return f;
}

std::vector<Row> rows()
{
    Fixture& f = fixture();
    const double px = double(width) * height;
    const auto calcHist = [&f](const VImage& image, int channels) {
        const cv::Mat m = matOf(image);
        const int histSize = 256;
        const float range[] = {0, 256};
        const float* ranges = range;
        for (int c = 0; c < channels; ++c)
            cv::calcHist(&m, 1, &c, cv::noArray(), f.scratch, 1, &histSize, &ranges);
    };
    std::vector<Row> all = {
        {"BGR -> GrayScale 8u", 4 * px, [&f] { convertImage(f.bgr, &f.grayOut); },
         [&f] { cv::Mat d = matOf(f.grayOut); cv::cvtColor(matOf(f.bgr), d, cv::COLOR_BGR2GRAY); }},
        {"XRGB -> BGR 8u", 7 * px, [&f] { convertImage(f.xrgb, &f.bgrOut); },
         [&f] { cv::Mat d = matOf(f.bgrOut); cv::cvtColor(matOf(f.xrgb), d, cv::COLOR_BGRA2BGR); }},
        {"BGR -> XRGB 8u", 11 * px, [&f] { convertImage(f.bgr, &f.xrgbOut); },
         [&f] { cv::Mat d = matOf(f.xrgbOut); cv::cvtColor(matOf(f.bgr), d, cv::COLOR_BGR2BGRA); }},
        {"BGR -> ARGB 8u", 7 * px, [&f] { convertImage(f.bgr, &f.argbOut); },
         [&f] { cv::Mat d = matOf(f.argbOut); cv::cvtColor(matOf(f.bgr), d, cv::COLOR_BGR2BGRA); }},
        {"BGR -> ARGB_Premultiplied 8u", 7 * px, [&f] { convertImage(f.bgr, &f.argbpOut); },
         [&f] {
             cv::Mat d = matOf(f.argbpOut);
             cv::cvtColor(matOf(f.bgr), d, cv::COLOR_BGR2BGRA);
             cv::cvtColor(d, d, cv::COLOR_RGBA2mRGBA);
         }},
        {"YUV422 -> XRGB 8u", 10 * px, [&f] { convertImage(f.yuv, &f.xrgbOut); },
         [&f] { cv::Mat d = matOf(f.xrgbOut); cv::cvtColor(matOf(f.yuv), d, cv::COLOR_YUV2BGRA_YUYV); }},
        {"GrayScale 8u -> 32f", 5 * px, [&f] { convertImage(f.gray, &f.gray32f); },
         [&f] { cv::Mat d = matOf(f.gray32f); matOf(f.gray).convertTo(d, CV_32F); }},
        {"calculateHistogram GrayScale", 1 * px, [&f] { calculateHistogram(f.gray, &f.histogram); },
         [&f, calcHist] { calcHist(f.gray, 1); }},
        // The library's histogram of a colour image holds luminance too: OpenCV needs a gray image and a
        // fourth calcHist for the same four tables.
        {"calculateHistogram BGR", 3 * px, [&f] { calculateHistogram(f.bgr, &f.histogram); },
         [&f, calcHist] {
             calcHist(f.bgr, 3);
             cv::Mat gray = matOf(f.grayOut);
             cv::cvtColor(matOf(f.bgr), gray, cv::COLOR_BGR2GRAY);
             calcHist(f.grayOut, 1);
         }},
        {"adjustHistogram BGR", 6 * px, [&f] { adjustHistogram(f.bgr, &f.bgrOut, 30, 0, 200, 255); },
         [&f] { cv::Mat d = matOf(f.bgrOut); cv::LUT(matOf(f.bgr), f.lut, d); }},
        {"negativeImage BGR", 6 * px, [&f] { negativeImage(f.bgr, &f.bgrOut); },
         [&f] { cv::Mat d = matOf(f.bgrOut); cv::bitwise_not(matOf(f.bgr), d); }},
        {"stackImages 8 x BGR", 27 * px, [&f] { stackImages(f.stack, &f.bgrOut); },
         [&f] {
             cv::Mat d = matOf(f.bgrOut);
             cv::add(matOf(f.stack.at(0)), matOf(f.stack.at(1)), d);
             for (unsigned i = 2; i < 8; ++i)
                 cv::add(d, matOf(f.stack.at(i)), d);
         }},
        {"compareImages BGR", 6 * px, [&f] { compareImages(f.bgr, f.bgr2, &f.sink); },
         [&f] { f.sink = cv::norm(matOf(f.bgr), matOf(f.bgr2), cv::NORM_L2); }},
        {"getMean GrayScale", 1 * px, [&f] { f.sink = getMean(f.gray); }, [&f] { f.sink = cv::mean(matOf(f.gray))[0]; }},
        {"countNonZero GrayScale", 1 * px, [&f] { int n; countNonZero(f.gray, &n); }, [&f] { f.sink = cv::countNonZero(matOf(f.gray)); }},
        {"copyImage BGR", 6 * px, [&f] { copyImage(f.bgr, &f.bgrOut); },
         [&f] { cv::Mat d = matOf(f.bgrOut); matOf(f.bgr).copyTo(d); }},
        // Wrappers against the bare call (BGR 8u).
        {"smoothGaussian 5 BGR", 6 * px, [&f] { smoothGaussian(f.bgr, &f.bgrOut, 5); },
         [&f] { cv::Mat d = matOf(f.bgrOut); cv::GaussianBlur(matOf(f.bgr), d, {5, 5}, 0, 0, cv::BORDER_REPLICATE); }},
        {"smoothMedian 5 BGR", 6 * px, [&f] { smoothMedian(f.bgr, &f.bgrOut, 5); },
         [&f] { cv::Mat d = matOf(f.bgrOut); cv::medianBlur(matOf(f.bgr), d, 5); }},
        {"smoothBlur 5x5 BGR", 6 * px, [&f] { smoothBlur(f.bgr, &f.bgrOut, 5, 5); },
         [&f] { cv::Mat d = matOf(f.bgrOut); cv::boxFilter(matOf(f.bgr), d, -1, {5, 5}, {-1, -1}, true, cv::BORDER_REPLICATE); }},
        {"erodeImage 3x3 rect BGR", 6 * px, [&f] { erodeImage(f.bgr, &f.bgrOut, f.rect3, 1); },
         [&f] {
             cv::Mat d = matOf(f.bgrOut);
             cv::erode(matOf(f.bgr), d, cv::getStructuringElement(cv::MORPH_RECT, {3, 3}), {1, 1}, 1, cv::BORDER_REPLICATE);
         }},
        {"morphOpening 3x3 rect BGR", 6 * px, [&f] { morphOpening(f.bgr, &f.bgrOut, f.rect3, 1); },
         [&f] {
             cv::Mat d = matOf(f.bgrOut);
             cv::morphologyEx(matOf(f.bgr), d, cv::MORPH_OPEN, cv::getStructuringElement(cv::MORPH_RECT, {3, 3}), {1, 1}, 1,
                              cv::BORDER_REPLICATE);
         }},
        {"filter2D 3x3 BGR", 6 * px, [&f] { filter2D(f.bgr, &f.bgrOut, f.kernel3, QPointF(-1, -1)); },
         [&f] { cv::Mat d = matOf(f.bgrOut); cv::filter2D(matOf(f.bgr), d, -1, matOf(f.kernel3), {-1, -1}, 0, cv::BORDER_REPLICATE); }},
        {"sobelImage 1,0,3 BGR", 6 * px, [&f] { sobelImage(f.bgr, &f.bgrOut, 1, 0, 3); },
         [&f] { cv::Mat d = matOf(f.bgrOut); cv::Sobel(matOf(f.bgr), d, -1, 1, 0, 3, 1, 0, cv::BORDER_REPLICATE); }},
        {"laplaceImage 3 BGR", 6 * px, [&f] { laplaceImage(f.bgr, &f.bgrOut, 3); },
         [&f] { cv::Mat d = matOf(f.bgrOut); cv::Laplacian(matOf(f.bgr), d, -1, 3, 1, 0, cv::BORDER_REPLICATE); }},
        {"warpPerspectiveImage BGR", 6 * px, [&f] { warpPerspectiveImage(f.bgr, &f.bgrOut, f.homography); },
         [&f] {
             cv::Mat d = matOf(f.bgrOut);
             cv::warpPerspective(matOf(f.bgr), d, f.homographyMat, d.size(), cv::INTER_LINEAR, cv::BORDER_TRANSPARENT);
         }},
        {"resizeImage BGR half linear", 3.75 * px, [&f] { resizeImage(f.bgr, &f.bgrHalf, InterpolationLinear); },
         [&f] { cv::Mat d = matOf(f.bgrHalf); cv::resize(matOf(f.bgr), d, d.size(), 0, 0, cv::INTER_LINEAR); }},
        {"resizeImage BGR half area", 3.75 * px, [&f] { resizeImage(f.bgr, &f.bgrHalf, InterpolationArea); },
         [&f] { cv::Mat d = matOf(f.bgrHalf); cv::resize(matOf(f.bgr), d, d.size(), 0, 0, cv::INTER_AREA); }},
        {"warpAffine 10 deg BGR", 6 * px, [&f] { warpAffine(f.bgr, &f.bgrOut, f.rotation); },
         [&f] {
             cv::Mat d = matOf(f.bgrOut);
             cv::warpAffine(matOf(f.bgr), d, f.rotationMat, d.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar::all(0));
         }},
        {"rotateImage Angle180 BGR", 6 * px, [&f] { rotateImage(f.bgr, &f.bgrOut, Angle180); },
         [&f] {
             cv::Mat d = matOf(f.bgrOut);
             cv::warpAffine(matOf(f.bgr), d, f.halfTurnMat, d.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar::all(0));
         }},
        {"flipImage -1 BGR", 6 * px, [&f] { flipImage(f.bgr, &f.bgrOut, -1); },
         [&f] { cv::Mat d = matOf(f.bgrOut); cv::flip(matOf(f.bgr), d, -1); }},
        // Minimum and maximum, then the scaling: the source is read twice.
        {"normalizeImage 0..255 Gray", 3 * px, [&f] { normalizeImage(f.gray, &f.grayOut, 0, 255); },
         [&f] { cv::Mat d = matOf(f.grayOut); cv::normalize(matOf(f.gray), d, 0, 255, cv::NORM_MINMAX, d.type()); }},
        // The blender's sharpness measure against the OpenCV chain for the same map (its luminance in
        // fixed point, so not the same bits): blur, both luminances, their difference as floats.
        {"contrastImage 1,3 XRGB -> 32f", 9 * px, [&f] { contrastImage(f.xrgb, &f.gray32f, 1, 3); },
         [&f] {
             const cv::Mat s = matOf(f.xrgb);
             cv::Mat d = matOf(f.gray32f);
             cv::GaussianBlur(s, f.blurred, {3, 3}, 0, 0, cv::BORDER_REPLICATE);
             cv::cvtColor(s, f.graySrc, cv::COLOR_BGRA2GRAY);
             cv::cvtColor(f.blurred, f.grayBlur, cv::COLOR_BGRA2GRAY);
             cv::absdiff(f.graySrc, f.grayBlur, f.difference);
             f.difference.convertTo(d, CV_32F);
         }},
        // The library's unsharp mask against the cheapest OpenCV chain for the same job: blur, weighted sum,
        // both luminances, their difference, the range mask, and the source copied where it is outside.
        {"sharpImage 5 XRGB", 8 * px, [&f] { sharpImage(f.xrgb, &f.xrgbOut, 5, 2.0, 3, 60); },
         [&f] {
             const cv::Mat s = matOf(f.xrgb);
             cv::Mat d = matOf(f.xrgbOut);
             cv::GaussianBlur(s, f.blurred, {5, 5}, 0, 0, cv::BORDER_REPLICATE);
             cv::addWeighted(s, 2.0, f.blurred, -1.0, 0, d);
             cv::cvtColor(s, f.graySrc, cv::COLOR_BGRA2GRAY);
             cv::cvtColor(f.blurred, f.grayBlur, cv::COLOR_BGRA2GRAY);
             cv::absdiff(f.graySrc, f.grayBlur, f.difference);
             cv::inRange(f.difference, 3, 60, f.inside);
             cv::bitwise_not(f.inside, f.inside);
             s.copyTo(d, f.inside);
         }},
    };
    // XRGB destinations keep their X byte, so those conversions read the destination as well.
    const std::map<std::string, Kind> kinds = {
        {"XRGB -> BGR 8u", Kind::Relayout}, {"BGR -> XRGB 8u", Kind::Relayout}, {"BGR -> ARGB 8u", Kind::Relayout},
        {"GrayScale 8u -> 32f", Kind::Relayout}, {"negativeImage BGR", Kind::Relayout}, {"copyImage BGR", Kind::Relayout},
        {"countNonZero GrayScale", Kind::Wrapper},
        {"contrastImage 1,3 XRGB -> 32f", Kind::Chain}, {"sharpImage 5 XRGB", Kind::Chain}};
    // Found by profiling and by the variants measured (see the kernels' comments).
    const std::map<std::string, std::string> bounds = {
        {"BGR -> GrayScale 8u", "memory: the loads of the source wait, at memcpy's traffic counting the written lines' reads"},
        {"calculateHistogram GrayScale", "one load-add-store a byte, one a cycle in every layout tried, as calcHist"}};
    bool wrappers = false;
    for (Row& row : all) {
        if (const auto found = bounds.find(row.name); found != bounds.end())
            row.bound = found->second;
        wrappers = wrappers || row.name.rfind("smoothGaussian", 0) == 0;
        const auto found = kinds.find(row.name);
        row.kind = found != kinds.end() ? found->second : wrappers && row.name.rfind("contrast", 0) != 0 ? Kind::Wrapper : Kind::Own;
    }
    return all;
}

// Every round of a row calls the three contenders once each, in an order that turns through all six, so
// each runs after each of the others equally often.
struct Samples {
    std::vector<double> own, opencv, memcpy;
};

double fastest(const std::vector<double>& values)
{
    return values.empty() ? 0 : *std::min_element(values.begin(), values.end());
}

double timeOnce(const std::function<void()>& call)
{
    const auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void printTable(const std::vector<Row>& rows, const std::map<std::string, Samples>& samples)
{
    std::printf("\n%-30s %-9s %9s %8s %9s %9s %7s  %s\n", "operation", "kind", "ms", "GB/s", "x OpenCV", "x memcpy",
                "rounds", "goal");
    double worst = 0;
    std::string worstName;
    for (const Row& row : rows) {
        const auto found = samples.find(row.name);
        if (found == samples.end() || found->second.own.empty())
            continue;
        const Samples& s = found->second;
        const double own = fastest(s.own), opencv = fastest(s.opencv), copy = fastest(s.memcpy);
        const double xOpenCv = own / opencv, xMemcpy = copy / own;
        const char* kind = "own";
        std::string goal = xOpenCv <= 0.8 ? "met" : "MISSED (0.80x OpenCV)";
        switch (row.kind) {
        case Kind::Own: break;
        case Kind::Relayout:
            kind = "re-layout";
            if (xMemcpy < 0.85)
                goal = xOpenCv <= 0.8 ? "MISSED (0.85x memcpy)" : "MISSED (0.80x OpenCV, 0.85x memcpy)";
            break;
        case Kind::Wrapper:
            kind = "wrapper";
            goal = xOpenCv <= 1.02 ? "met" : "MISSED (1.02x the bare call)";
            break;
        case Kind::Chain: kind = "chain"; break;
        }
        // A re-layout at memcpy's speed cannot pass OpenCV's by a fifth when OpenCV's runs at memory speed too.
        const std::string bound = !row.bound.empty() ? row.bound
                                  : row.kind == Kind::Relayout && xMemcpy >= 0.85 ? "memory speed, as OpenCV's call"
                                                                                   : "";
        if (goal.rfind("MISSED", 0) == 0 && !bound.empty())
            goal += ": " + bound;
        if (row.kind != Kind::Wrapper && xOpenCv > worst) {
            worst = xOpenCv;
            worstName = row.name;
        }
        std::printf("%-30s %-9s %9.3f %8.2f %9.3f %9.2f %7zu  %s\n", row.name.c_str(), kind, own * 1e3,
                    row.bytes / own / 1e9, xOpenCv, xMemcpy, s.own.size(), goal.c_str());
    }
    std::printf("worst own kernel: %.2fx OpenCV (%s)\n", worst, worstName.c_str());
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<char*> args;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--tiny") == 0) {
            width = 64;
            height = 48;
        } else {
            args.push_back(argv[i]);
        }
    }
    int count = int(args.size());
    benchmark::Initialize(&count, args.data());
    cv::setNumThreads(1);

    const std::vector<Row> all = rows();
    std::map<std::string, Samples> samples;
    for (const Row& row : all) {
        Fixture& f = fixture();
        const size_t half = size_t(row.bytes / 2);
        const std::function<void()> copy = [&f, half] {
            std::memcpy(f.to.data(), f.from.data(), half);
            benchmark::ClobberMemory();
        };
        Samples& s = samples[row.name];
        benchmark::RegisterBenchmark(row.name.c_str(), [row, copy, &s](benchmark::State& state) {
            static const int orders[6][3] = {{0, 1, 2}, {1, 2, 0}, {2, 0, 1}, {0, 2, 1}, {2, 1, 0}, {1, 0, 2}};
            const std::function<void()>* calls[3] = {&row.vexa, &row.opencv, &copy};
            Samples run;
            std::vector<double>* into[3] = {&run.own, &run.opencv, &run.memcpy};
            int round = 0;
            for (auto _ : state) {
                double seconds[3];
                for (int k : orders[round++ % 6])
                    seconds[k] = timeOnce(*calls[k]);
                for (int k = 0; k < 3; ++k)
                    into[k]->push_back(seconds[k]);
                state.SetIterationTime(seconds[0]);
            }
            state.SetBytesProcessed(int64_t(row.bytes * double(state.iterations())));
            state.counters["x_OpenCV"] = fastest(run.own) / fastest(run.opencv);
            state.counters["x_memcpy"] = fastest(run.memcpy) / fastest(run.own);
            for (int k = 0; k < 3; ++k) {
                std::vector<double>& all = k == 0 ? s.own : k == 1 ? s.opencv : s.memcpy;
                all.insert(all.end(), into[k]->begin(), into[k]->end());
            }
        })->Unit(benchmark::kMillisecond)->UseManualTime();
    }
    benchmark::RunSpecifiedBenchmarks();
    printTable(all, samples);
    benchmark::Shutdown();
    return 0;
}
