// The focus-stacking loop that the tool and the application share: the shots read one at a time and added
// to a VImageBlender, each in its part of the progress, then the merge finished in the rest. How a shot is
// read, what is said along the way and how a failure ends the run are the caller's.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/VImageBlender.h>
#include <vexa/imp/VProgress.h>

#include <functional>
#include <utility>

namespace vexatool {

// The layout and depth the merge takes every shot in, from the first shot's: for the depth-map merge the
// first shot's own where the merge keeps them (gray, BGR or ARGB of 8u, 16u or 32f components; XRGB as
// BGR, which the merge reads in place where it would copy XRGB's pixels without their fourth byte),
// otherwise 8-bit XRGB.
std::pair<VEXA::Format, VEXA::Channel> mergeLayout(VImageBlender::MultifocusMethod method, VEXA::Format format,
                                                   VEXA::Channel channel);

struct MergeSteps {
    // The shots share the progress up to shotsEnd in equal parts, the final pass has it from there to
    // finishEnd; a shot's merge starts at mergeFrom of its part, its reading having the part before.
    double shotsEnd = 1, finishEnd = 1, mergeFrom = 0;
    // Reads shot i (saying so) as the blender is to take it; an empty image ends the loop, the caller
    // having noted why.
    std::function<VImage(int shot)> read;
    // After the blender took shot i or refused it; false ends the loop.
    std::function<bool(int shot, const VImage& image, bool added)> added;
    // The final pass: the caller takes the merge, the depth map and what else it needs from the blender.
    std::function<void()> finish;
};

// Runs the loop over `count` shots, reporting into progress (which may be null); false when a step ended
// it before the final pass. What each shot's merge freed is handed back to the system before the next
// shot is read (returnFreedMemory).
bool mergeShots(VImageBlender& blender, int count, VProgress* progress, const MergeSteps& steps);

// Makes the C library hand blocks of 4 MB and more (images, planes) back to the system as soon as they are
// freed. By default it raises that threshold to the largest block freed so far (up to 32 MB), so that the
// planes a merge makes and frees for each shot come from the heap, whose freed middle the system never
// gets back: the process would keep the memory of its busiest moment for good (8 shots of 3000x2000: 280
// against 241 MB). Smaller blocks (a band's rows) stay in the heap: fresh pages for each of them cost more
// time than the merge saves (1 MB: 237 MB, but 12.6 s against 11.5 s). Process-wide, so the programs call
// it, never the library.
void returnLargeBlocksToTheSystem();
// Hands back to the system the pages of blocks freed in the middle of the C library's heap, which it keeps
// otherwise: what one step of a merge freed (a shot's bands and planes, the merge's state once it is gone)
// would stay counted against the process while the next step (reading a shot, writing the result) makes
// its own. Process-wide, so the programs call it, never the library.
void returnFreedMemory();
// Fresh pages cost the process a fault each, about 3 us here, and a merge of large shots takes hundreds of
// thousands of them (8 shots of 3000x2000: 390,000, a fifth of its time). Where the system gives 2 MB pages
// on request, the C library asks for them for its large blocks when told so by a setting it reads only
// from the environment it starts in: this starts the program again with that setting added to its
// environment (once; nothing happens where the setting is there, the system gives no such pages, or the
// start fails). Call it first thing in main().
void startWithLargePages(char** argv);

} // namespace vexatool
