// Stabilization of an image sequence: the shake of a hand-held or mounted camera taken out, its steady
// motion (a pan, a slow turn) kept.
//
// stabilizeSequence(in, out, radius, borders):
// - The motion between each frame and the one before it is a similarity (shift, turn, scale): AKAZE
//   keypoints of both frames (findVKeypointDescriptors; frames whose roi is longer than 1024 pixels on a
//   side are first reduced by area averaging to that size), matched with the ratio test and cross-check,
//   fitted by RANSAC with a 2-pixel inlier distance and refined over the inliers. Two neighbours with
//   fewer than 10 inliers (a cut, a blank frame) are taken as not moved.
// - The motions, chained, give the camera's path relative to the first frame, as its turn, log scale and
//   the shift of the frame's centre. The path is smoothed by the mean over the frames within radius of each
//   (fewer at the ends of the sequence); radius 0 keeps every frame as it is.
// - Each frame is warped bilinearly by the difference between the smoothed path and its own place on the
//   path, through warpAffine, and the borders this uncovers are:
//   StabilizeCrop: cropped away: every frame is cut to one rectangle inside the area that all the warped
//   frames cover (the largest found growing outwards from the middle of that area), so the frames keep one
//   size, smaller than the input; no frames sharing any area fails.
//   StabilizeBlack: filled with 0 (the input's size is kept).
//   StabilizeReplicate: filled with the nearest edge pixel of the frame (the input's size is kept).
// - out receives one new image per frame, in order, of the input's format and channel type, whose whole
//   image is the result (the input rois are what is read). It is written only on success; on failure it
//   keeps its content.
// Failures: a list with a failed status ("Bad status of image!") or no frames ("Empty source image!"), a
// frame with a failed status or empty, frames of another format or channel type than the first
// ("Can not find template with actual parameters!") or of another roi size ("Image sizes differ"), pairs
// the warps do not take (8s, 32s), a negative radius, an unknown border mode, a null out.
// Progress: finding the motion is the first 60% of the current VProgress, warping the rest; the call stops
// between frames (and between bands of a warp) when the progress is cancelled.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/VImageList.h>
#include <vexa/vexa_export.h>

namespace VEXA {

enum StabilizeBorders : int { StabilizeCrop = 0, StabilizeBlack = 1, StabilizeReplicate = 2 };

VEXA_EXPORT VStatus stabilizeSequence(const VImageList& in, VImageList* out, int radius = 15,
                                      StabilizeBorders borders = StabilizeCrop);

} // namespace VEXA
