// Geometric warps: resizing, affine and perspective warps, flips, rotations and lens undistortion.
//
// Each is one OpenCV call on headers laid at the rois (coordinates are relative to the rois). A destination
// must have the source's format (else unsupported parameters) and channel type (else OpenCV's -215 with
// the text of its C interface). Sources and destinations may share memory: an overlapping source is read
// from a copy, so a call in place gives the separate call's result.
//
// - resizeImage(src, dst, method): dst must exist; src is resampled to dst's roi with InterpolationMethod
//   0..3 (nearest, bilinear, bicubic, area); any other value fails with "Unsupported interpolation
//   method". Pairs: every format in every channel type; OpenCV resamples 8s and 32s only with the nearest
//   neighbour and refuses the other methods for them.
// - warpAffine(src, dst, t): dst must exist; the affine part of t (first two columns, in single precision)
//   maps source to destination coordinates; bilinear, and destination pixels mapping outside the source
//   become 0. Pairs: every format in 8u, 16u, 16s, 32f.
// - warpPerspectiveImage(src, dst, t): dst must exist; the homography t maps source to destination
//   coordinates, bilinear. Outliers are not filled: a destination pixel whose bilinear source cell is not
//   wholly inside the source's roi keeps its content, so even the identity leaves the last row and column
//   of a same-size destination as they were. Pairs: every format in 8u, 16u, 16s, 32f.
// - flipImage(src, dst, mode): 0 mirrors the rows (about the horizontal axis), a positive mode the columns,
//   a negative one both. An empty dst is made like the source. Pairs: every format in every type.
// - rotateImage(src, dst, angle, method): dst must exist; src turned by angle radians counter-clockwise as
//   displayed (y down: x' = c x + s y, y' = -s x + c y with c = cos, s = sin), the source's centre pixel
//   position ((w - 1) / 2, (h - 1) / 2) landing on the destination's, through warpAffine (so uncovered
//   pixels become 0). The FixedAngle overload turns by exact quarter turns (a half turn of a same-size
//   destination is an exact point mirror). The method is accepted and not used: the destination's size,
//   whatever the caller gave it, decides what is kept.
// - headerForRotate(src, angle, method, dst): the header of a destination for rotateImage: the source's
//   header with, for RotateBoundingBox, the size of the bounding box of the turned w x h rectangle,
//   |w cos| + |h sin| by |w sin| + |h cos|, each rounded up to whole pixels once a rounding noise of 1e-6
//   pixel is taken off (so quarter turns swap width and height exactly and no turned pixel is cut); for
//   RotateKeepSize, or an angle that is not finite, the source's size. The FixedAngle overload swaps width
//   and height for the quarter turns. A size beyond 32-bit pixels gives a zero size, which no image can be
//   created with.
// - undistortImage(src, dst, k1): the one-parameter radial lens model with the principal point at the roi's
//   integer centre (w / 2, h / 2) and a focal length of one pixel, so a point at r pixels from the centre
//   is moved by the factor 1 + k1 r^2; pixels mapping outside become 0. k1 = 0 returns the source
//   unchanged. An empty dst is made like the source. Pairs: every format in 8u, 16u, 16s, 32f.
//
// Progress and cancellation (VProgress): with a progress current on the calling thread, warpAffine,
// warpPerspectiveImage, rotateImage and undistortImage work in bands of destination rows into a scratch
// image, report between bands and copy the result into the destination only once complete; a cancelled
// call returns "Operation cancelled" with the destination untouched. The bands give the same pixels as the
// single call. resizeImage and flipImage are one OpenCV call each (OpenCV's resampling tables follow the
// whole destination, so a band of it cannot be asked for): checked before they start, then written fully.
// Without a progress nothing changes.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/VTransform.h>
#include <vexa/vexa_export.h>

namespace VEXA {

VEXA_EXPORT VStatus resizeImage(const VImage& src, VImage* dst, InterpolationMethod method);
VEXA_EXPORT VStatus warpAffine(const VImage& src, VImage* dst, VTransform2D t);
VEXA_EXPORT VStatus warpPerspectiveImage(VImage src, VImage* dst, const VTransformPerspective& t);
VEXA_EXPORT VStatus flipImage(const VImage& src, VImage* dst, int mode);
VEXA_EXPORT VStatus rotateImage(const VImage& src, VImage* dst, double angle, RotateMethod method = RotateBoundingBox);
VEXA_EXPORT VStatus rotateImage(const VImage& src, VImage* dst, FixedAngle angle, RotateMethod method = RotateBoundingBox);
VEXA_EXPORT void headerForRotate(const VImageHeader& src, FixedAngle angle, RotateMethod method, VImageHeader* dst);
VEXA_EXPORT void headerForRotate(const VImageHeader& src, double angle, RotateMethod method, VImageHeader* dst);
VEXA_EXPORT VStatus undistortImage(const VImage& src, VImage* dst, double k1);

} // namespace VEXA
