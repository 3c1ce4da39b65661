// Each row times one of the library's own kernels beside, in the same run, OpenCV's closest equivalent
// (single-threaded: the library starts no threads, so one thread against one) and memcpy of the same
// number of bytes read and written, the physical limit. The table: kernel, ms per call, GB/s (bytes read
// plus written per second), time relative to OpenCV (below 1 is faster) and throughput relative to memcpy.
//
//   vexa_bench [--tiny] [google benchmark flags]    --tiny: a 64 x 48 image, for smoke runs
//
// With --benchmark_repetitions=N the table uses each benchmark's median (bench/run asks for 5).
#include <vexa/Vexa.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <benchmark/benchmark.h>

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
    for (long i = 0; i < image.dataSize() / 4; ++i)
        words[i] = random();
    image.resetHash();
    return image;
}

VImage blank(Format format, Channel channel)
{
    VImage image;
    image.create(width, height, format, channel, OriginTopLeft, RowsAlignNone);
    return image;
}

cv::Mat matOf(const VImage& image)
{
    return cv::Mat(image.height(), image.width(), CV_MAKETYPE(int(image.channelType()), channelsOf(image.format())),
                   image.rawData(), size_t(image.bytesPerLine()));
}

struct Row {
    std::string name;
    double bytes; // read plus written by one call of the library's kernel
    std::function<void()> vexa, opencv;
};

struct Fixture {
    VImage gray = randomImage(GrayScale, Channel8u, 1), bgr = randomImage(BGR, Channel8u, 2);
    VImage bgr2 = randomImage(BGR, Channel8u, 3), xrgb = randomImage(XRGB, Channel8u, 4);
    VImage yuv = randomImage(YUV422, Channel8u, 5);
    VImage grayOut = blank(GrayScale, Channel8u), gray32f = blank(GrayScale, Channel32f);
    VImage bgrOut = blank(BGR, Channel8u), xrgbOut = blank(XRGB, Channel8u), argbOut = blank(ARGB, Channel8u);
    VImage argbpOut = blank(ARGB_Premultiplied, Channel8u);
    VImageList stack;
    cv::Mat bgra, scratch, lut = cv::Mat(1, 256, CV_8U);
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
    return {
        {"BGR -> GrayScale 8u", 4 * px, [&f] { convertImage(f.bgr, &f.grayOut); },
         [&f] { cv::Mat d = matOf(f.grayOut); cv::cvtColor(matOf(f.bgr), d, cv::COLOR_BGR2GRAY); }},
        {"XRGB -> BGR 8u", 7 * px, [&f] { convertImage(f.xrgb, &f.bgrOut); },
         [&f] { cv::Mat d = matOf(f.bgrOut); cv::cvtColor(matOf(f.xrgb), d, cv::COLOR_BGRA2BGR); }},
        {"BGR -> XRGB 8u", 7 * px, [&f] { convertImage(f.bgr, &f.xrgbOut); },
         [&f] { cv::Mat d = matOf(f.xrgbOut); cv::cvtColor(matOf(f.bgr), d, cv::COLOR_BGR2BGRA); }},
        {"BGR -> ARGB 8u", 7 * px, [&f] { convertImage(f.bgr, &f.argbOut); },
         [&f] { cv::Mat d = matOf(f.argbOut); cv::cvtColor(matOf(f.bgr), d, cv::COLOR_BGR2BGRA); }},
        {"BGR -> ARGB_Premultiplied 8u", 7 * px, [&f] { convertImage(f.bgr, &f.argbpOut); },
         [&f] {
             cv::Mat d = matOf(f.argbpOut);
             cv::cvtColor(matOf(f.bgr), d, cv::COLOR_BGR2BGRA);
             cv::cvtColor(d, d, cv::COLOR_RGBA2mRGBA);
         }},
        {"YUV422 -> XRGB 8u", 6 * px, [&f] { convertImage(f.yuv, &f.xrgbOut); },
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
    };
}

// Collects the three timings of every row and prints the table at the end.
class TableReporter : public benchmark::ConsoleReporter {
public:
    explicit TableReporter(std::vector<std::pair<std::string, double>> bytes) : bytes_(std::move(bytes)) {}

    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        // With repetitions, the median stands for the row; a single run stands for itself.
        for (const Run& run : runs) {
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.error_occurred || !(median || (run.run_type == Run::RT_Iteration && run.repetitions <= 1)))
                continue;
            const std::string name = run.run_name.function_name;
            const size_t slash = name.rfind('/');
            seconds_[name.substr(0, slash)][name.substr(slash + 1)] =
                run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
        }
    }

    void Finalize() override
    {
        ConsoleReporter::Finalize();
        std::printf("\n%-30s %9s %8s %11s %10s\n", "kernel", "ms", "GB/s", "x OpenCV", "x memcpy");
        for (const auto& [name, bytes] : bytes_) {
            const auto& t = seconds_[name];
            if (!t.count("vexa") || !t.count("opencv") || !t.count("memcpy"))
                continue;
            const double own = t.at("vexa");
            std::printf("%-30s %9.3f %8.2f %11.2f %10.2f\n", name.c_str(), own * 1e3, bytes / own / 1e9,
                        own / t.at("opencv"), t.at("memcpy") / own);
        }
    }

private:
    std::vector<std::pair<std::string, double>> bytes_;
    std::map<std::string, std::map<std::string, double>> seconds_;
};

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

    std::vector<std::pair<std::string, double>> bytes;
    for (Row& row : rows()) {
        bytes.emplace_back(row.name, row.bytes);
        const auto timed = [](std::function<void()> call, double bytesPerCall) {
            return [call, bytesPerCall](benchmark::State& state) {
                for (auto _ : state)
                    call();
                state.SetBytesProcessed(int64_t(bytesPerCall * double(state.iterations())));
            };
        };
        const size_t half = size_t(row.bytes / 2);
        Fixture& f = fixture();
        benchmark::RegisterBenchmark((row.name + "/vexa").c_str(), timed(row.vexa, row.bytes))->Unit(benchmark::kMillisecond)->UseRealTime();
        benchmark::RegisterBenchmark((row.name + "/opencv").c_str(), timed(row.opencv, row.bytes))->Unit(benchmark::kMillisecond)->UseRealTime();
        benchmark::RegisterBenchmark((row.name + "/memcpy").c_str(),
                                     timed([&f, half] { std::memcpy(f.to.data(), f.from.data(), half); benchmark::ClobberMemory(); }, row.bytes))
            ->Unit(benchmark::kMillisecond)->UseRealTime();
    }
    TableReporter reporter(bytes);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
