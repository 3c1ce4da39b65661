#include "stacking.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#ifdef __GLIBC__
#include <malloc.h>
#include <unistd.h>
#endif

namespace vexatool {

std::pair<VEXA::Format, VEXA::Channel> mergeLayout(VImageBlender::MultifocusMethod method, VEXA::Format format,
                                                   VEXA::Channel channel)
{
    const bool kept = format == VEXA::GrayScale || format == VEXA::BGR || format == VEXA::XRGB || format == VEXA::ARGB;
    const bool deep = channel == VEXA::Channel8u || channel == VEXA::Channel16u || channel == VEXA::Channel32f;
    if (method == VImageBlender::MultifocusDepthMap && kept && deep)
        return {format == VEXA::XRGB ? VEXA::BGR : format, channel};
    return {VEXA::XRGB, VEXA::Channel8u};
}

bool mergeShots(VImageBlender& blender, int count, VProgress* progress, const MergeSteps& steps)
{
    for (int i = 0; i < count; ++i) {
        const VProgress::Section shot(progress, steps.shotsEnd * i / count, steps.shotsEnd * (i + 1) / count);
        const VImage image = steps.read(i);
        if (image.isEmpty())
            return false;
        bool added = false;
        {
            const VProgress::Section merge(progress, steps.mergeFrom, 1);
            added = blender.addImage(image);
        }
        if (!steps.added(i, image, added))
            return false;
        returnFreedMemory();
    }
    const VProgress::Section finish(progress, steps.shotsEnd, steps.finishEnd);
    steps.finish();
    return true;
}

void returnFreedMemory()
{
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

void startWithLargePages(char** argv)
{
#if defined(__GLIBC__) && !defined(VEXA_UNDER_TSAN) && !defined(__SANITIZE_ADDRESS__)
    static const char setting[] = "glibc.malloc.hugetlb";
    const char* tunables = std::getenv("GLIBC_TUNABLES");
    if (tunables && std::strstr(tunables, setting))
        return;
    // "always" gives them unasked; "never" not at all.
    std::ifstream mode("/sys/kernel/mm/transparent_hugepage/enabled");
    std::string modes;
    if (!std::getline(mode, modes) || modes.find("[madvise]") == std::string::npos)
        return;
    const std::string value =
        std::string(tunables && *tunables ? tunables + std::string(":") : std::string()) + setting + "=1";
    // Started by its own path, not /proc/self/exe, which would name the process "exe".
    char self[4096];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (length <= 0 || setenv("GLIBC_TUNABLES", value.c_str(), 1) != 0)
        return;
    self[length] = '\0';
    execv(self, argv); // returns only where it failed: the program goes on as it is
#else
    (void)argv;
#endif
}

void returnLargeBlocksToTheSystem()
{
#ifdef __GLIBC__
    mallopt(M_MMAP_THRESHOLD, 4 << 20);
#endif
}

} // namespace vexatool
