// The histogram of an image: statistics per component and a coarse plot.
//
//   histogram IMAGE
//
// calculateHistogram counts 8-bit images, 256 bins per component: luminance for gray images, luminance,
// red, green and blue for colour ones. Other depths are first brought to 8 bits as the same picture with
// convertScaled. Prints the mean, the 5th, 50th and 95th percentiles of each component, and the luminance
// histogram in 16 rows of 16 levels each.
#include <vexa/Vexa.h>

#include <algorithm>
#include <cstdio>
#include <string>

// The first level at or below which `part` of the pixels lie.
static int percentile(const qint64* counts, qint64 total, double part)
{
    qint64 sum = 0;
    for (int level = 0; level < 256; ++level)
        if ((sum += counts[level]) >= part * total)
            return level;
    return 255;
}

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s IMAGE\n", argv[0]);
        return 1;
    }
    VImage image;
    if (!image.load(QString::fromLocal8Bit(argv[1]))) {
        std::fprintf(stderr, "cannot load: %s\n", qPrintable(image.status().reason()));
        return 1;
    }
    if (image.channelType() != VEXA::Channel8u)
        image = image.convertScaled(image.format(), VEXA::Channel8u);
    VHistogram histogram;
    if (const VStatus status = VEXA::calculateHistogram(image, &histogram); !status) {
        std::fprintf(stderr, "no histogram: %s\n", qPrintable(status.reason()));
        return 1;
    }

    const qint64 pixels = qint64(image.width()) * image.height();
    std::printf("%dx%d %s, %lld pixels\n", image.width(), image.height(), VEXA::formatInfo(image.format()).name.c_str(),
                pixels);
    const VEXA::Component components[] = {VEXA::ComponentLuminance, VEXA::ComponentRed, VEXA::ComponentGreen,
                                          VEXA::ComponentBlue};
    const char* names[] = {"luminance", "red", "green", "blue"};
    for (int c = 0; c < 4; ++c) {
        const qint64* counts = histogram.componentData(components[c]); // null when not counted
        if (!counts)
            continue;
        qint64 total = 0;
        double sum = 0;
        for (int level = 0; level < 256; ++level) {
            total += counts[level];
            sum += double(level) * counts[level];
        }
        std::printf("%-9s counted %lld, mean %6.2f, 5%% %3d, median %3d, 95%% %3d\n", names[c], total, sum / total,
                    percentile(counts, total, 0.05), percentile(counts, total, 0.5), percentile(counts, total, 0.95));
    }

    // Luminance in rows of 16 levels, each bar in proportion to the fullest row.
    const qint64* luminance = histogram.componentData(VEXA::ComponentLuminance);
    qint64 rows[16] = {};
    for (int level = 0; level < 256; ++level)
        rows[level / 16] += luminance[level];
    const qint64 fullest = std::max<qint64>(1, *std::max_element(rows, rows + 16));
    for (int row = 0; row < 16; ++row)
        std::printf("%3d-%3d %s\n", 16 * row, 16 * row + 15,
                    std::string(size_t(50 * rows[row] / fullest), '#').c_str());
    return 0;
}
