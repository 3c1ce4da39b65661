// Geometric warps: the pixel lists of the operations that resample an image, and the matrices they build.
#pragma once

#include <vexa/imp/VTransform.h>
#include <vexa/imp/detail/opencv_frame.h>

#include <QPointF>

namespace VEXA {

using WarpPixels = EightSixteenFloatPixels; // OpenCV's bilinear remap: 8u, 16u, 16s, 32f, any format
using ResizePixels = AllPixels;            // 8s and 32s resample only with the nearest neighbour

// OpenCV's interpolation code for a method; "Unsupported interpolation method" for any other value.
int resizeCode(InterpolationMethod method);

// The 2 x 3 single-precision matrix of OpenCV's affine warp from the first two columns of t.
cv::Mat affineMatrix(const VTransform2D& t);

// (cos, sin) of a quarter turn; (1, 0) for any value that is not one.
QPointF quarterTurn(FixedAngle angle);

// x' = c x + s y + tx, y' = -s x + c y + ty, taking the centre of src's roi to the centre of dst's.
VTransform2D rotationTransform(double c, double s, const VImage& src, const VImage& dst);

// cv::undistort's own procedure (its stripes of rows, each with the maps of initUndistortRectifyMap for
// newCamera moved up to the stripe's first row, so the same pixels), into a scratch image that goes to o
// only once complete, with cancellation checks between bands of stripes: s may be o.
void undistortInStripes(const cv::Mat& s, cv::Mat& o, const cv::Mat& camera, const cv::Mat& distortion,
                        const cv::Mat& newCamera);

} // namespace VEXA
