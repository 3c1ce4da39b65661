// The stabilisation of a frame sequence: the camera's path found from keypoints matched between
// neighbouring frames, smoothed over `radius` frames either way, and each frame warped from its place on
// the path to the smoothed place (see gen_stabilize_image.h).
#pragma once

#include <vexa/gen/gen_stabilize_image.h>
#include <vexa/imp/VImageList.h>

#include <QList>

namespace VEXA {

// A failed status of a nested library call (already logged by its own frame), carried out of a kernel to
// the entry's frame as it is.
struct NestedFailure {
    VStatus status;
};

namespace kernel {

// frames checked: same pair, same size, at least one. Throws NestedFailure when an inner operation fails.
VImageList stabilize(const QList<VImage>& frames, int radius, StabilizeBorders borders);

} // namespace kernel
} // namespace VEXA
