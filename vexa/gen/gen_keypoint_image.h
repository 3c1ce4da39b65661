/// @file
/// @brief Keypoints over lists of images and the matching of their descriptors (group @ref keypoints).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/VImageList.h>
#include <vexa/vexa_export.h>

#include <QList>
#include <QPair>
#include <QPointF>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vector>

namespace VEXA {

/// @addtogroup keypoints
/// **Keypoints of image lists** (findKeypointPositions(), findKeypointOrientations(),
/// findVKeypointDescriptors(), matchKeypointDescriptors()): keypoints over lists of images, with the
/// detector chosen per call, and the matching of two images' keypoints by their descriptors.
///
/// Every function takes a VImageList and gives one result per image, in the list's order. The list is
/// checked like a source image (a failed status: "Bad status of image!", no image: "Empty source image!"),
/// then each image in turn (status, emptiness); images of one list may differ in format and size. Results
/// are written only when every image has been read; on failure the output keeps its content. Between
/// images the calls stop when the current VProgress is cancelled ("Operation cancelled").
///
/// **Pixel types:** detection runs on a gray copy of each image's roi at full size: 8u images through
/// VImage::convert to GrayScale 8u (YUV422 gives its luma); any other channel type stretched from its
/// smallest to its largest value over 0..255 (NaN read as 0) and rounded to 8 bits, as VKeypointDescriptors
/// does. So every (format, channel) pair the conversion takes is accepted: all six formats in all six
/// channel types (@ref pairs_keypoint_image); an image of an invalid pair fails with "Can not find template
/// with actual parameters!". A roi under 16 pixels on a side has no keypoints, with a good status.
///
/// **Coordinates:** the roi's pixel coordinates, a pixel's centre at whole numbers (the roi's first pixel
/// at (0, 0)). Where a detector finds more than maxPerImage keypoints, the strongest (by response) are
/// kept, in the detector's order; maxPerImage must be 1 to 100000 ("The number of keypoints per image must
/// be 1 to 100000").
///
/// **Detectors:** OpenCV's, with their default settings but for the count (ORB and SIFT with nfeatures =
/// maxPerImage, so that ORB's pyramid spreads them over its levels; AKAZE finds all and the strongest are
/// kept):
/// - KeypointOrb: FAST corners over an 8-level pyramid, 32-byte binary descriptors. Fast; its positions are
///   whole pixels of the level they were found on.
/// - KeypointAkaze: nonlinear scale space, binary MLDB descriptors; positions refined below a pixel.
/// - KeypointSift: difference of Gaussians, 128 float descriptors; positions refined below a pixel. A point
///   with two dominant orientations is listed twice.
///
/// Any other detector value fails with "Unknown keypoint detector".
///
/// **Failures** of the three detecting functions, in order: a null output "Null pointer argument!"; the
/// list and its images as above; the count; the detector; OpenCV's own errors. A failed call leaves the
/// output as it was.
///
/// **Progress and cancellation:** with a progress current on the calling thread, the detecting functions
/// check it before each image (stage "finding keypoints") and report completion at the end; a cancelled
/// call returns "Operation cancelled" with the output untouched. Each image's gray copy is a step of the call that
/// neither reports nor checks on its own: the reported fraction rises with the images and reaches 1 only at the end,
/// and a cancellation arriving during an image stops the call before the next one with "Operation cancelled".
/// matchKeypointDescriptors()
/// neither reports nor checks.
///
/// **Threads:** reentrant. One list and one set may be read by several calls at once; the output must not
/// be used by another thread during the call.
/// @{

/// The keypoint detector of a call.
enum KeypointDetector : int { KeypointOrb = 0, KeypointAkaze = 1, KeypointSift = 2 };
/// @var KeypointDetector KeypointOrb
/// OpenCV's ORB: FAST corners over an 8-level pyramid, 32-byte binary descriptors (CV_8U).
/// @var KeypointDetector KeypointAkaze
/// OpenCV's AKAZE: nonlinear scale space, binary MLDB descriptors (CV_8U).
/// @var KeypointDetector KeypointSift
/// OpenCV's SIFT: difference of Gaussians, 128 float descriptors (CV_32F).

/// @}

} // namespace VEXA

/// @addtogroup keypoints
/// @{

// Results as plain values; like the library's other V classes they live outside the namespace.
/// One keypoint as findKeypointOrientations() gives it: a plain value.
struct VKeypoint {
    QPointF position;      ///< roi pixel coordinates
    double size = 0.0;     ///< diameter of the neighbourhood the detector described, in pixels
    double angle = -1.0;   ///< the dominant orientation in degrees, 0 to 360, turning from +x towards +y
                           ///< (clockwise as displayed); -1 when the detector gives none
    double response = 0.0; ///< the detector's strength (comparable only within one detector)
    int octave = 0;        ///< the pyramid level or octave it was found on, as OpenCV encodes it
};

/// Keypoints with their descriptors: OpenCV's own types, which matchKeypointDescriptors reads with the
/// norm of the detector that made them.
///
/// A plain value; copies share the descriptors' data (cv::Mat's own sharing). findVKeypointDescriptors()
/// fills it; a set made by hand must keep one descriptor row per keypoint, of the detector's type.
struct VKeypointSet {
    VEXA::KeypointDetector detector = VEXA::KeypointAkaze; ///< The detector that made the set.
    std::vector<cv::KeyPoint> keypoints;                   ///< roi pixel coordinates
    /// One row per keypoint: CV_8U for ORB and AKAZE, CV_32F for SIFT; an empty matrix of that type
    /// when there are no keypoints.
    cv::Mat descriptors;                 // one row per keypoint
};

/// @}

namespace VEXA {

/// @addtogroup keypoints
/// @{

/// The positions only: for each image of the list, the list of its keypoints' positions in roi pixel
/// coordinates, in the detector's order. maxPerImage: 1 to 100000.
VEXA_EXPORT VStatus findKeypointPositions(const VImageList& images, QList<QList<QPointF>>* positions,
                                          KeypointDetector detector = KeypointAkaze, int maxPerImage = 2000);
/// Positions with size, angle and response, as VKeypoint values: for each image of the list, its
/// keypoints, in the detector's order. As findKeypointPositions() otherwise.
VEXA_EXPORT VStatus findKeypointOrientations(const VImageList& images, QList<QList<VKeypoint>>* keypoints,
                                             KeypointDetector detector = KeypointAkaze, int maxPerImage = 2000);
/// The keypoints with their descriptors, as VKeypointSet values that matchKeypointDescriptors takes: one
/// set per image, its detector set, one descriptor row per keypoint (an empty matrix of the detector's
/// descriptor type when none). As findKeypointPositions() otherwise.
VEXA_EXPORT VStatus findVKeypointDescriptors(const VImageList& images, QList<VKeypointSet>* sets,
                                             KeypointDetector detector = KeypointAkaze, int maxPerImage = 2000);
/// The pairs of keypoints of a and b whose descriptors match: for each keypoint of a, its two nearest
/// descriptors in b (Hamming distance for ORB and AKAZE, Euclidean for SIFT) pass Lowe's ratio test when
/// the nearest is closer than ratio times the second (ratio in (0, 1]); with crossCheck, a's keypoint must
/// also be the nearest in a to its match. Each pair is (point of a, point of b) in a's order, so that
/// findPerspectiveTransformationByPoints(pairs) gives the homography taking a's roi coordinates onto b's.
/// Both sets must come from one detector and hold one descriptor row per keypoint of the detector's type
/// (CV_8U for ORB and AKAZE, CV_32F for SIFT), of one width; otherwise the call fails. A set without
/// keypoints gives no pairs, with a good status.
///
/// When b has a single keypoint there is no second nearest, and every match passes the ratio test. The
/// checks, in order: a null pairs "Null pointer argument!"; for a, then b, an unknown detector "Unknown
/// keypoint detector", descriptors that do not fit (not one row per keypoint, another type, no column,
/// or keypoints without descriptors) "Descriptors do not fit their keypoints and detector", a position
/// that is not finite "Keypoint positions must be finite"; "Keypoints of different detectors do not
/// match"; "The ratio must be above 0 and at most 1"; then, when both sets have keypoints, "Descriptors of
/// different widths do not match". A failed call leaves pairs as it was.
VEXA_EXPORT VStatus matchKeypointDescriptors(const VKeypointSet& a, const VKeypointSet& b,
                                             QList<QPair<QPointF, QPointF>>* pairs, double ratio = 0.8,
                                             bool crossCheck = true);

/// @}

} // namespace VEXA
