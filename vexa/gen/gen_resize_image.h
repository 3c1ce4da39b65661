/// @file
/// @brief Resizing, affine and perspective warps, flips, rotations and lens undistortion (group @ref geometry).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/VTransform.h>
#include <vexa/vexa_export.h>

namespace VEXA {

/// @addtogroup geometry
/// Geometric warps: resizing, affine and perspective warps, flips, rotations and lens undistortion.
///
/// Each is one OpenCV call on headers laid at the rois: coordinates are relative to the rois, and nothing
/// outside the rois is read or written.
///
/// **Pixel types:** resizeImage() and flipImage() take every format in every channel type (OpenCV resamples
/// 8s and 32s only with the nearest neighbour and refuses the other methods for them); the other warps take
/// every format in 8u, 16u, 16s and 32f. Every component is treated alike (alpha, X and chroma included).
/// The pairs are in @ref pairs_resize_image; others fail with "Can not find template with actual
/// parameters!".
///
/// **Destinations:** resizeImage(), warpAffine(), warpPerspectiveImage() and rotateImage() need an existing
/// destination (its roi decides the output size); flipImage() and undistortImage() make an empty one like the
/// source (same header, same roi). A destination must have the source's format ("Can not find template with
/// actual parameters!" otherwise) and channel type (else OpenCV's C-interface error, -215, "src.type() ==
/// dst.type()", with the C function named on each call).
///
/// **Failures:** a source or destination with a failed status gives "Bad status of image!", an empty one
/// "Empty source image!", a null destination "Null pointer argument!"; OpenCV's own errors come back as
/// failed statuses carrying its code, text and function.
///
/// **In place:** sources and destinations may share memory: an overlapping source is read from a copy, so a
/// call in place gives the separate call's result.
///
/// **Progress and cancellation** (VProgress): with a progress current on the calling thread, warpAffine(),
/// warpPerspectiveImage(), rotateImage() and undistortImage() work in bands of destination rows into a scratch
/// image, report between bands and copy the result into the destination only once complete; a cancelled call
/// returns "Operation cancelled" with the destination untouched. The bands give the same pixels as the single
/// call. resizeImage() and flipImage() are one OpenCV call each (OpenCV's resampling tables follow the whole
/// destination, so a band of it cannot be asked for): checked before they start, then written fully. Without
/// a progress nothing changes. headerForRotate() does no image work.
///
/// **Threads:** reentrant. Calls on different images may run on any threads at once, and one source may be
/// read by several calls at once; a destination must not be used by another thread during the call.
/// @{

/// Resamples the source's roi to the existing destination's roi with @p method: InterpolationNearest,
/// InterpolationLinear, InterpolationCubic or InterpolationArea. Any other value fails with "Unsupported
/// interpolation method" (after the images are checked); 8s and 32s take only the nearest neighbour
/// (OpenCV's error otherwise). C function: cvResize.
VEXA_EXPORT VStatus resizeImage(const VImage& src, VImage* dst, InterpolationMethod method);
/// Affine warp into the existing destination: the affine part of @p t (its first two columns m[.][0] and
/// m[.][1], in single precision) maps source to destination coordinates, x' = m00 x + m10 y + m20 and
/// y' = m01 x + m11 y + m21; bilinear, and destination pixels mapping outside the source become 0.
/// C function: cvWarpAffine.
VEXA_EXPORT VStatus warpAffine(const VImage& src, VImage* dst, VTransform2D t);
/// Perspective warp into the existing destination: the homography @p t maps source to destination
/// coordinates, bilinear. Outliers are not filled: a destination pixel whose bilinear source cell is not
/// wholly inside the source's roi keeps its content, so even the identity leaves the last row and column of
/// a same-size destination as they were. C function: cvWarpPerspective.
VEXA_EXPORT VStatus warpPerspectiveImage(VImage src, VImage* dst, const VTransformPerspective& t);
/// Mirrors the roi: @p mode 0 mirrors the rows (about the horizontal axis), a positive mode the columns, a
/// negative one both. An empty destination is made like the source; an existing one needs the source's roi
/// size and type (-215, "src.type() == dst.type() && src.size() == dst.size()", cvFlip).
VEXA_EXPORT VStatus flipImage(const VImage& src, VImage* dst, int mode);
/// Turns the source by @p angle radians counter-clockwise as displayed (y down: x' = c x + s y,
/// y' = -s x + c y with c = cos, s = sin) into the existing destination, the source roi's centre pixel
/// position ((w - 1) / 2, (h - 1) / 2) landing on the destination roi's, through warpAffine() (bilinear;
/// uncovered pixels become 0). @p method is accepted and not used: the destination's size, whatever the
/// caller gave it, decides what is kept (headerForRotate() sizes one).
VEXA_EXPORT VStatus rotateImage(const VImage& src, VImage* dst, double angle, RotateMethod method = RotateBoundingBox);
/// As rotateImage(), by exact quarter turns (a half turn of a same-size destination is an exact point
/// mirror); AngleNone, or any value that is not a quarter turn, leaves the image unturned (centre on centre).
VEXA_EXPORT VStatus rotateImage(const VImage& src, VImage* dst, FixedAngle angle, RotateMethod method = RotateBoundingBox);
/// The header of a destination for rotateImage() by a quarter turn: the source's header, with width and
/// height swapped for Angle90 and Angle270 unless @p method is RotateKeepSize. A null @p dst is ignored.
VEXA_EXPORT void headerForRotate(const VImageHeader& src, FixedAngle angle, RotateMethod method, VImageHeader* dst);
/// The header of a destination for rotateImage() by @p angle radians: the source's header with, for
/// RotateBoundingBox, the size of the bounding box of the turned w x h rectangle, |w cos| + |h sin| by
/// |w sin| + |h cos|, each rounded up to whole pixels once a rounding noise of 1e-6 pixel is taken off (so
/// quarter turns swap width and height exactly and no turned pixel is cut); for RotateKeepSize, or an angle
/// that is not finite, the source's size. A size beyond 32-bit pixels (or a zero one) gives a zero width and
/// height, which no image can be created with. A null @p dst is ignored.
VEXA_EXPORT void headerForRotate(const VImageHeader& src, double angle, RotateMethod method, VImageHeader* dst);
/// Lens undistortion by the one-parameter radial model, with the principal point at the roi's integer
/// centre (w / 2, h / 2) and a focal length of one pixel: the destination pixel at offset (x, y) from the
/// centre takes the source at (1 + k1 r^2) (x, y), r^2 = x^2 + y^2, bilinear; pixels mapping outside become 0.
/// @p k1 = 0 returns the source unchanged. An empty destination is made like the source; an existing one
/// needs the source's roi size and type (-215, "src.size() == dst.size() && src.type() == dst.type()",
/// cvUndistort2).
VEXA_EXPORT VStatus undistortImage(const VImage& src, VImage* dst, double k1);

/// @}

} // namespace VEXA
