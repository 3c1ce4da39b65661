// Keypoints over lists of images, with the detector chosen per call, and the matching of two images'
// keypoints by their descriptors.
//
// Every function takes a VImageList and gives one result per image, in the list's order. The list is
// checked like a source image (a failed status: "Bad status of image!", no image: "Empty source image!"),
// then each image in turn (status, emptiness); images of one list may differ in format and size. Results
// are written only when every image has been read; on failure the output keeps its content. Between
// images the calls stop when the current VProgress is cancelled ("Operation cancelled").
//
// Detection runs on a gray copy of each image's roi at full size: 8u images through VImage::convert to
// GrayScale 8u (YUV422 gives its luma); any other channel type stretched from its smallest to its largest
// value over 0..255 (NaN read as 0), as VKeypointDescriptors does. So every (format, channel) pair the
// conversion takes is accepted. A roi under 16 pixels on a side has no keypoints, with a good status.
// Coordinates are the roi's pixel coordinates, a pixel's centre at whole numbers (the roi's first pixel
// at (0, 0)). Where a detector finds more than maxPerImage keypoints, the strongest (by response) are
// kept; maxPerImage must be 1 to 100000.
//
// The detectors are OpenCV's, with their default settings (ORB with nfeatures = maxPerImage, so that its
// pyramid spreads them over its levels):
// - KeypointOrb: FAST corners over an 8-level pyramid, 32-byte binary descriptors. Fast; its positions are
//   whole pixels of the level they were found on.
// - KeypointAkaze: nonlinear scale space, binary MLDB descriptors; positions refined below a pixel.
// - KeypointSift: difference of Gaussians, 128 float descriptors; positions refined below a pixel. A point
//   with two dominant orientations is listed twice.
//
// - findKeypointPositions(images, positions, detector, maxPerImage): the positions only.
// - findKeypointOrientations(images, keypoints, detector, maxPerImage): positions with size, angle and
//   response, as VKeypoint values (below).
// - findVKeypointDescriptors(images, sets, detector, maxPerImage): the keypoints with their descriptors,
//   as VKeypointSet values that matchKeypointDescriptors takes.
// - matchKeypointDescriptors(a, b, pairs, ratio, crossCheck): the pairs of keypoints of a and b whose
//   descriptors match: for each keypoint of a, its two nearest descriptors in b (Hamming distance for ORB
//   and AKAZE, Euclidean for SIFT) pass Lowe's ratio test when the nearest is closer than ratio times the
//   second (ratio in (0, 1]); with crossCheck, a's keypoint must also be the nearest in a to its match.
//   Each pair is (point of a, point of b) in a's order, so that findPerspectiveTransformationByPoints(pairs)
//   gives the homography taking a's roi coordinates onto b's. Both sets must come from one detector and
//   hold one descriptor row per keypoint of the detector's type (CV_8U for ORB and AKAZE, CV_32F for
//   SIFT), of one width; otherwise the call fails. A set without keypoints gives no pairs, with a good
//   status.
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

enum KeypointDetector : int { KeypointOrb = 0, KeypointAkaze = 1, KeypointSift = 2 };

} // namespace VEXA

// Results as plain values; like the library's other V classes they live outside the namespace.
struct VKeypoint {
    QPointF position;      // roi pixel coordinates
    double size = 0.0;     // diameter of the neighbourhood the detector described, in pixels
    double angle = -1.0;   // the dominant orientation in degrees, 0 to 360, turning from +x towards +y
                           // (clockwise as displayed); -1 when the detector gives none
    double response = 0.0; // the detector's strength (comparable only within one detector)
    int octave = 0;        // the pyramid level or octave it was found on, as OpenCV encodes it
};

// Keypoints with their descriptors: OpenCV's own types, which matchKeypointDescriptors reads with the
// norm of the detector that made them.
struct VKeypointSet {
    VEXA::KeypointDetector detector = VEXA::KeypointAkaze;
    std::vector<cv::KeyPoint> keypoints; // roi pixel coordinates
    cv::Mat descriptors;                 // one row per keypoint
};

namespace VEXA {

VEXA_EXPORT VStatus findKeypointPositions(const VImageList& images, QList<QList<QPointF>>* positions,
                                          KeypointDetector detector = KeypointAkaze, int maxPerImage = 2000);
VEXA_EXPORT VStatus findKeypointOrientations(const VImageList& images, QList<QList<VKeypoint>>* keypoints,
                                             KeypointDetector detector = KeypointAkaze, int maxPerImage = 2000);
VEXA_EXPORT VStatus findVKeypointDescriptors(const VImageList& images, QList<VKeypointSet>* sets,
                                             KeypointDetector detector = KeypointAkaze, int maxPerImage = 2000);
VEXA_EXPORT VStatus matchKeypointDescriptors(const VKeypointSet& a, const VKeypointSet& b,
                                             QList<QPair<QPointF, QPointF>>* pairs, double ratio = 0.8,
                                             bool crossCheck = true);

} // namespace VEXA
