// Prints the page of pixel types: for every operation family, the (format, channel type) pairs each public
// function accepts, read from the very lists the library dispatches on (pixel_lists.inc, written at build
// time from the families' entry files), so the page cannot disagree with the code.
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/kernels/copy_image.h>
#include <vexa/imp/kernels/histograms.h>
#include <vexa/imp/kernels/image_converters.h>
#include <vexa/imp/kernels/math_image.h>
#include <vexa/imp/kernels/matrix_image.h>
#include <vexa/imp/kernels/morph_image.h>
#include <vexa/imp/kernels/normalization.h>
#include <vexa/imp/kernels/panorama_image.h>
#include <vexa/imp/kernels/resize_image.h>
#include <vexa/imp/kernels/scaled_converters.h>
#include <vexa/imp/kernels/smooth_image.h>
#include <vexa/imp/kernels/stat_image.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

using namespace VEXA;

namespace {

constexpr Format formats[] = {GrayScale, BGR, ARGB, XRGB, ARGB_Premultiplied, YUV422};
constexpr Channel channels[] = {Channel8u, Channel8s, Channel16u, Channel16s, Channel32s, Channel32f};

struct Family {
    std::string stem, title;
    std::vector<std::string> rows;
};
std::vector<Family> families;

// "8u 16u 32f" for each format, "all" where the list holds all six types, "·" where it holds none.
template <class... Pixels>
std::string cells(PixelList<Pixels...> list)
{
    std::string row;
    for (Format f : formats) {
        std::string types;
        int count = 0;
        for (Channel c : channels)
            if (supports(list, f, c)) {
                types += (types.empty() ? "" : " ") + channelInfo(c).name;
                ++count;
            }
        row += " | " + (count == 6 ? std::string("all") : types.empty() ? std::string("·") : types);
    }
    return row;
}

void family(const char* stem, const char* title) { families.push_back({stem, title, {}}); }

template <class List>
void row(const char* function, List list)
{
    families.back().rows.push_back(std::string("| ") + function + "()" + cells(list) + " |");
}

// Source and destination types of their own: one row per source type, naming the destinations it converts to.
template <template <class> class TargetsOf, class... Sources>
void pairsOf(const char* function, PixelList<Sources...>)
{
    auto& rows = families.back().rows;
    rows.push_back(std::string("\n**") + function + "()**: the source's type, then the destinations it goes to.\n");
    rows.push_back("| source | GrayScale | BGR | ARGB | XRGB | ARGB_Premultiplied | YUV422 |");
    rows.push_back("|---|---|---|---|---|---|---|");
    (rows.push_back("| " + formatInfo(PixelTraits<Sources>::format).name + " " +
                    channelInfo(PixelTraits<Sources>::channel).name + cells(TargetsOf<Sources>{}) + " |"),
     ...);
}

template <template <class> class TargetsOf>
void pairs(const char* function)
{
    pairsOf<TargetsOf>(function, ConvertSources{});
}

} // namespace

int main()
{
#include "pixel_lists.inc"

    std::printf("# Pixel types {#pixel_pairs}\n\n"
                "The (format, channel type) pairs each function accepts, per operation family, generated from the "
                "lists the library dispatches on. A pair not listed fails with \"Can not find template with actual "
                "parameters!\" before any pixel is read or written; the status's reason names the type. Where a "
                "function checks a second image (a mask, a kernel, a destination of another type) its further "
                "lists follow as rows of their own. Families not listed here, and functions missing from a "
                "family, check their types one by one: their descriptions name them.\n");
    for (const Family& f : families) {
        if (f.rows.empty())
            continue;
        std::printf("\n## %s {#pairs_%s}\n\n", f.title.c_str(), f.stem.c_str());
        if (f.rows.front().rfind("| ", 0) == 0)
            std::printf("| function | GrayScale | BGR | ARGB | XRGB | ARGB_Premultiplied | YUV422 |\n"
                        "|---|---|---|---|---|---|---|\n");
        for (const std::string& r : f.rows)
            std::printf("%s\n", r.c_str());
    }
    for (const Family& f : families)
        if (f.rows.empty())
            std::printf("\n## %s {#pairs_%s}\n\nThese functions check their pixel types one by one: each "
                        "function's description names the types it takes.\n",
                        f.title.c_str(), f.stem.c_str());
    return 0;
}
