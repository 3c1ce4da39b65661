// Geometric warps.
//
// - warpPerspectiveImage(src, dst, t): dst (which must exist: its roi is the output) receives src warped
//   by the homography t, which maps source to destination coordinates (relative to the rois), with
//   bilinear interpolation. Outliers are not filled: a destination pixel whose bilinear source cell is not
//   wholly inside the source's roi keeps its content, so even the identity leaves the last row and column
//   of a same-size destination as they were. dst must have the source's format (else unsupported
//   parameters) and channel type (else OpenCV's -215, function cvWarpPerspective). Pairs: every format in
//   8u, 16u, 16s, 32f. In place it gives the separate result, untouched pixels keeping the source's values.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/VTransform.h>
#include <vexa/vexa_export.h>

namespace VEXA {

VEXA_EXPORT VStatus warpPerspectiveImage(VImage src, VImage* dst, const VTransformPerspective& t);

} // namespace VEXA
