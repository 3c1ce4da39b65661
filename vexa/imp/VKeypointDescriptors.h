/// @file
/// @brief Keypoints of shots, the homography between two of them, and local stabilization (group @ref keypoints).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/VTransform.h>
#include <vexa/vexa_export.h>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vector>

class VKeypointDescriptors;

// Declared ahead for the class to befriend: the fit reads how precise each set's keypoints are.
namespace VEXA {
VEXA_EXPORT VTransformPerspective findTransformation(const VKeypointDescriptors& a, const VKeypointDescriptors& b,
                                                     bool* ok);
}

/// @addtogroup keypoints
/// **Alignment of shots** (VKeypointDescriptors, findTransformation(), stabilizeLocal()): keypoints with
/// their descriptors, the homography between two sets, and the local stabilization of a shot against a
/// reference.
///
/// Keypoints are AKAZE's (binary MLDB descriptors, matched by Hamming distance), found on a gray copy of the
/// roi reduced by area averaging to a long side of at most 1024 pixels, with AKAZE's threshold at half its
/// default and the 4000 strongest kept; their coordinates are then taken back to the roi's full-size pixel
/// coordinates.
///
/// AKAZE rather than ORB, by measurement on a real seven-shot focus series (2048 x 1536 phone photos, the
/// magnification changing by up to 3.8% from the first shot to the last), against a full-resolution ECC
/// alignment of each pair as the reference, error = the largest distance at the corners and centre:
/// - ORB (5000 or 10000 keypoints, at full size or reduced) lines up neighbouring shots within 1 to 10
///   pixels, but between the first shot and the last three it keeps only 7 to 24 inliers and the transform
///   is off by tens to thousands of pixels: a defocused corner is not the same corner any more.
/// - AKAZE as configured here keeps 54 to 109 inliers for those pairs and errs by 5 to 17 pixels (0.5 to 1.3
///   pixels for neighbouring shots). So the keypoint route is the coarse one; stabilizeLocal() is the one
///   for the last pixel.
/// - Time on a 12-MP image (one thread): ORB on the full image 0.3 s; here the gray copy, the reduction and
///   AKAZE 0.31 s; findTransformation 0.08 s for some 2500 x 3000 keypoints.
///
/// Reducing further (768 pixels) costs accuracy on the far pairs; reducing less (1280 pixels and up) costs
/// time without a gain.
///
/// The gray copy: VImage::convert to GrayScale 8u for 8u images; every other channel type is converted to
/// 32f and stretched over 0..255 (a plain conversion to 8u would wrap around); YUV422 gives its luma.
/// (NaN counts as 0 and infinities as the largest finite values in the stretch.)
///
/// **Progress and cancellation:** VKeypointDescriptors(const VImage&) and stabilizeLocal() run whole: with a progress
/// current on the calling thread each checks it once, after the argument checks and before the gray copies (a cancelled
/// call gives "Operation cancelled", and stabilizeLocal() leaves the image untouched), and reports completion at the
/// end (stages "finding keypoints" and "aligning"). The gray copies are steps of the call and neither report nor check
/// on their own. findTransformation() neither reports nor checks.
///
/// **Threads:** reentrant. A VKeypointDescriptors is not changed after its construction, so one may be
/// read by several threads at once; stabilizeLocal() writes its image, which no other thread may use
/// during the call.
/// @{

/// The keypoints of an image's roi with their descriptors, found as the group's rules lay out, and the
/// status of finding them.
///
/// A value: copies share the descriptor matrix's data (cv::Mat's own sharing), which nothing changes after
/// construction.
class VEXA_EXPORT VKeypointDescriptors {
public:
    VKeypointDescriptors(); ///< no keypoints
    /// The keypoints of an image and their descriptors; an image that cannot be read gives none, with the
    /// reason in status(). Images under 16 pixels on a side after the reduction have none, with a good status.
    ///
    /// An image cannot be read with a failed status ("Bad status of image!"), when empty ("Empty source
    /// image!") or with an invalid format or channel type ("Can not find template with actual
    /// parameters!"); OpenCV's errors give their own status. When AKAZE finds more than 4000 keypoints, the
    /// 4000 of highest response are kept, strongest first; otherwise they come in AKAZE's order. Positions
    /// are mapped back with pixel centres on pixel centres and sizes scaled alike; angle, response and
    /// octave are AKAZE's, as found on the reduced copy.
    explicit VKeypointDescriptors(const VImage& image);

    /// The number of keypoints.
    int count() const;
    /// Whether there are no keypoints.
    bool isEmpty() const;
    /// In pixel coordinates of the image's roi at full size.
    const std::vector<cv::KeyPoint>& keypoints() const;
    /// One CV_8U row per keypoint.
    /// (AKAZE's MLDB descriptors; an empty matrix when there are no keypoints.)
    const cv::Mat& descriptors() const;
    /// The outcome of the construction: good for the default constructor and for an image that was read.
    VStatus status() const;

private:
    friend VTransformPerspective VEXA::findTransformation(const VKeypointDescriptors&, const VKeypointDescriptors&,
                                                          bool*);

    std::vector<cv::KeyPoint> keypoints_;
    cv::Mat descriptors_;
    VStatus status_;
    // Full-size pixels per pixel of the copy the keypoints were found on: how precise they are.
    double pixelSize_ = 1.0;
};

/// @}

namespace VEXA {

/// @addtogroup keypoints
/// @{

/// The homography that maps the second set's image onto the first's (points of b's roi to points of a's, so
/// that warpPerspectiveImage(bImage, &aSized, t) lines b up with a); *ok (when given) tells whether one was
/// found. Matches are b's descriptors' two nearest in a with Lowe's ratio test (0.8), fitted by OpenCV's
/// MAGSAC with an inlier distance of 1.5 pixels of the reduced copies. Without one (fewer than 12 inliers,
/// or a homography that folds or flips the area the matches span): the identity, *ok false and a good
/// status; a set with a failed status gives the identity, *ok false and that status.
///
/// In detail: sets of fewer than 12 keypoints each, or of different descriptor widths, and fewer than 12
/// matches passing the ratio test also give no homography. The inlier distance is that of the coarser of
/// the two reduced copies, in full-size pixels; the fit must keep the bounding rectangle of b's matched
/// points in front (positive w at its corners), convex and of the same orientation. The status is that of
/// a when both failed; an error OpenCV raises gives its failed status, the identity and *ok false. Keep the
/// result by initialisation to keep its status (see VTransform).
VEXA_EXPORT VTransformPerspective findTransformation(const VKeypointDescriptors& a, const VKeypointDescriptors& b,
                                                     bool* ok);

/// Lines image up with reference in place (shift, small rotation and the magnification change of focus
/// breathing); image keeps its size and format. Both rois must have one size; the image must be a pair the
/// warps take (every format in 8u, 16u, 16s, 32f), the reference may be any pair.
///
/// An affine transform is found by ECC (cv::findTransformECC, MOTION_AFFINE) on gray copies, coarse to fine
/// over a pyramid whose finest level has a long side of at most 1024 pixels, and the image's roi is then
/// warped once, bilinearly; pixels that come from outside the image become 0 (black), which the focus merge
/// reads as "no data". A transform moving no roi corner by more than 1e-3 pixel leaves the pixels as they
/// are. ECC failing to converge, or a result beyond what a shot of the same scene can need (the 2 x 2 part
/// off the identity by more than 0.25 in an element, the centre moved by more than a quarter of the roi),
/// fails and leaves the image untouched, as do rois whose reduced copy has under 16 pixels on a side.
///
/// On the focus series above, first shot to last, the result lies within 0.2 pixel (at the corners) of a
/// full-resolution ECC alignment; it takes 0.38 s on the 3-MP shots and 0.53 s on a 12-MP one (one thread;
/// of the latter some 0.2 s are the copy and the warp of the full image).
///
/// Only the image's roi is read and written (pixels outside the roi count as outside the image); every
/// handle sharing its pixels sees the change. Failures: the reference as a source ("Bad status of image!",
/// "Empty source image!"); a null image "Null pointer argument!", one with a failed status or empty as a
/// source; "Image sizes differ" for rois of different sizes; "Can not find template with actual
/// parameters!" for an image outside the warps' pairs or a reference of an invalid pair; "Image is too
/// small to align" for the small rois; OpenCV's error when ECC does not converge; "No plausible alignment
/// found" for a result out of bounds (the centre's shift is measured against the roi's width and height,
/// each axis apart).
VEXA_EXPORT VStatus stabilizeLocal(const VImage& reference, VImage* image);

/// @}

} // namespace VEXA
