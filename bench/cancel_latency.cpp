// How long long operations take to stop once cancelled, and what a progress costs them. On a 12-megapixel
// image (4000 x 3000; --tiny for 400 x 300) each operation runs whole without a progress, whole with one,
// and then several times with cancel() called from another thread at spread-out moments of its run; the
// latency is the time from cancel() to the call's return. Prints one table in milliseconds.
#include <vexa/Vexa.h>

#include <QTransform>
#include <QtGlobal>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <thread>
#include <vector>

using namespace VEXA;

namespace {

using Clock = std::chrono::steady_clock;

double msSince(Clock::time_point start) { return std::chrono::duration<double, std::milli>(Clock::now() - start).count(); }

VImage noise(int w, int h, Format format, unsigned seed)
{
    VImage image;
    image.create(w, h, format, Channel8u, OriginTopLeft, RowsAlignNone);
    std::mt19937 random(seed);
    // A blurred pattern rather than white noise, so that merges have sharpness to choose by.
    for (long i = 0; i < image.dataSize(); ++i)
        image.rawData()[i] = static_cast<unsigned char>(random() & 0xff);
    VImage smooth;
    smoothGaussian(image, &smooth, 3 + 2 * int(seed % 3));
    return smooth;
}

struct Row {
    const char* name;
    std::function<void()> prepare; // untimed, before each run
    std::function<bool()> run;     // false when stopped
};

} // namespace

int main(int argc, char** argv)
{
    // Every cancellation is logged as a failure; the table is what matters here.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    const bool tiny = argc > 1 && std::strcmp(argv[1], "--tiny") == 0;
    const int w = tiny ? 400 : 4000, h = tiny ? 300 : 3000;
    const VImage bgr = noise(w, h, BGR, 1);
    const VImage shotA = noise(w, h, XRGB, 2), shotB = noise(w, h, XRGB, 3);
    VImage dst = bgr.createCompatible();
    VTransform2D turn;
    turn.fromQTransform(QTransform().rotate(7.3));
    VTransformPerspective tilt;
    tilt.fromQTransform(QTransform(0.93, 0.05, 0.00002, -0.07, 1.02, 0.00001, 12.5, -7.25, 1.0));
    VImageBlender blender;

    const auto blend = [&](VImageBlender::MultifocusMethod method) {
        return Row{nullptr, [&blender, &shotA, method] {
                        blender.init(method, false, false);
                        blender.addImage(shotA);
                    },
                   [&blender, &shotB] { return blender.addImage(shotB); }};
    };
    std::vector<Row> rows{
        {"smoothGaussian 5 BGR", [] {}, [&] { return bool(smoothGaussian(bgr, &dst, 5)); }},
        {"smoothMedian 7 BGR", [] {}, [&] { return bool(smoothMedian(bgr, &dst, 7)); }},
        {"morphOpening 5x5 BGR", [] {}, [&] { return bool(morphOpening(bgr, &dst, VConvKernel(5, 5, 2, 2, ConvKernelRect), 1)); }},
        {"warpAffine 7 deg BGR", [] {}, [&] { return bool(warpAffine(bgr, &dst, turn)); }},
        {"warpPerspectiveImage BGR", [] {}, [&] { return bool(warpPerspectiveImage(bgr, &dst, tilt)); }},
        {"undistortImage BGR", [] {}, [&] { return bool(undistortImage(bgr, &dst, 1e-8)); }},
        {"resizeImage 3/4 cubic BGR", [] {}, [&] {
             VImage small;
             small.create(w * 3 / 4, h * 3 / 4, BGR, Channel8u, OriginTopLeft, RowsAlignNone);
             return bool(resizeImage(bgr, &small, InterpolationCubic));
         }},
        {"convertImage BGR -> XRGB", [] {}, [&] {
             VImage x = shotA.createCompatible();
             return bool(convertImage(bgr, &x));
         }},
    };
    const std::pair<const char*, VImageBlender::MultifocusMethod> methods[] = {
        {"blender shot: max", VImageBlender::MultifocusMaxSharpness},
        {"blender shot: pyramid", VImageBlender::MultifocusPyramid},
        {"blender shot: depth-map", VImageBlender::MultifocusDepthMap},
    };
    for (const auto& [name, method] : methods) {
        Row row = blend(method);
        row.name = name;
        rows.push_back(row);
    }

    std::printf("%-28s %10s %14s %12s %12s\n", "operation (ms)", "whole", "with progress", "latency med", "latency max");
    for (const Row& row : rows) {
        row.prepare();
        Clock::time_point start = Clock::now();
        row.run();
        const double whole = msSince(start);
        VProgress quiet;
        row.prepare();
        start = Clock::now();
        {
            const VProgressScope scope(&quiet);
            row.run();
        }
        const double withProgress = msSince(start);
        std::vector<double> latencies;
        for (int trial = 0; trial < 7; ++trial) {
            row.prepare();
            VProgress progress;
            Clock::time_point cancelled;
            const double at = whole * (0.1 + 0.8 * trial / 6.0);
            std::thread canceller([&] {
                std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(at));
                cancelled = Clock::now();
                progress.cancel();
            });
            bool finished;
            {
                const VProgressScope scope(&progress);
                finished = row.run();
            }
            const Clock::time_point returned = Clock::now();
            canceller.join();
            // A run that ended before the request has nothing to measure.
            if (!finished || returned > cancelled)
                latencies.push_back(std::max(0.0, std::chrono::duration<double, std::milli>(returned - cancelled).count()));
        }
        std::sort(latencies.begin(), latencies.end());
        const double median = latencies.empty() ? 0.0 : latencies[latencies.size() / 2];
        const double most = latencies.empty() ? 0.0 : latencies.back();
        std::printf("%-28s %10.1f %14.1f %12.1f %12.1f\n", row.name, whole, withProgress, median, most);
    }
    return 0;
}
