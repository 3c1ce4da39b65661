/// @file
/// @brief Stabilizing an image sequence: the camera's shake taken out, its steady motion kept (group
/// @ref stabilize).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/VImageList.h>
#include <vexa/vexa_export.h>

namespace VEXA {

/// @addtogroup stabilize
/// Stabilization of an image sequence: the shake of a hand-held or mounted camera taken out, its steady
/// motion (a pan, a slow turn) kept.
///
/// **Pixel types:** the frames must all be of one (format, channel type) pair that the warps take: every
/// format in 8u, 16u, 16s or 32f (@ref pairs_stabilize_image); frames of another pair than the first fail
/// with "Can not find template with actual parameters!", and so does a first frame of a pair the warps do
/// not take (8s, 32s).
///
/// **Regions of interest:** each frame's roi is what is read, and all the rois must have one size ("Image
/// sizes differ"); the output frames are new images whose whole image is the result.
///
/// **Failures:** a null output ("Null pointer argument!"), a list with a failed status ("Bad status of
/// image!") or no frames ("Empty source image!"), a frame with a failed status or an empty roi, the pairs and
/// sizes above, a negative radius ("The radius must not be negative"), an unknown border mode ("Unknown
/// border mode"), for StabilizeCrop frames that share no area ("The frames share no common area"), and the
/// failures of the inner keypoint and warp operations, returned as they are. The output list is written
/// only on success; on failure it keeps its content.
///
/// **Progress and cancellation** (VProgress): finding the motion is the first 60% of the current progress,
/// warping the rest, under "stabilizing"; the call stops between frames (and between bands of a warp) when
/// the progress is cancelled, returning "Operation cancelled" with the output untouched.
///
/// **Threads:** reentrant. The input list and its frames may be read by several calls at once; the output
/// list must not be used by another thread during the call.
/// @{

/// What stabilizeSequence() does with the borders that the warps uncover.
enum StabilizeBorders : int { StabilizeCrop = 0, StabilizeBlack = 1, StabilizeReplicate = 2 };
/// @var StabilizeCrop
/// Cropped away: every frame is cut to one rectangle inside the area that all the warped frames cover (the
/// largest found growing outwards from the middle of that area, first with the frame's proportions, then
/// side by side), so the frames keep one size, smaller than the input; frames that share no area fail ("The
/// frames share no common area").
/// @var StabilizeBlack
/// Filled with 0 (the input's roi size is kept).
/// @var StabilizeReplicate
/// Filled with the nearest edge pixel of the frame (the input's roi size is kept).

/// Stabilizes the frames of @p in (in order) into @p out, which receives one new image per frame, in order,
/// of the input's format, channel type, origin and rows alignment.
/// - The motion between each frame and the one before it is a similarity (shift, turn, scale): AKAZE
///   keypoints of both frames (findVKeypointDescriptors(), at most 4000 a frame; frames whose roi is longer
///   than 1024 pixels on a side are first reduced by area averaging to that size), matched with the ratio
///   test and cross-check (matchKeypointDescriptors()), fitted by RANSAC with a 2-pixel inlier distance
///   (pixels of the reduced copy) and refined over the inliers. Two neighbours with fewer than 10 inliers (a
///   cut, a blank frame), or whose fit scales by more than 1.5 either way, are taken as not moved.
/// - The motions, chained, give the camera's path relative to the first frame, as its turn, log scale and
///   the shift of the frame's centre. The path is smoothed by the mean over the frames within @p radius of
///   each (fewer at the ends of the sequence); @p radius 0 keeps every frame as it is (no keypoints are
///   looked for).
/// - Each frame is warped bilinearly by the difference between the smoothed path and its own place on it,
///   through warpAffine(), and the borders this uncovers are treated as @p borders says.
///
/// Failures, progress and cancellation as the group @ref stabilize says.
VEXA_EXPORT VStatus stabilizeSequence(const VImageList& in, VImageList* out, int radius = 15,
                                      StabilizeBorders borders = StabilizeCrop);

/// @}

} // namespace VEXA
