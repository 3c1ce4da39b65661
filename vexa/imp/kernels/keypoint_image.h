// The keypoint family's kernels: detection on OpenCV's detectors (the strongest kept, in the detector's
// order) and ratio-test matching of descriptors.
#pragma once

#include <vexa/gen/gen_keypoint_image.h>

#include <QList>
#include <QPair>
#include <QPointF>

namespace VEXA::kernel {

// Detects (and with `describe`, describes) the keypoints of every checked image, at most maxPerImage each.
QList<VKeypointSet> detectAll(const QList<VImage>& images, KeypointDetector detector, int maxPerImage, bool describe);
// A set the matcher can read: a known detector, its descriptor type, one row per keypoint, finite positions.
void checkSet(const VKeypointSet& set);
// The pairs of points whose descriptors match under the ratio test (and both ways, with crossCheck); the
// two sets hold keypoints and descriptors of one width.
QList<QPair<QPointF, QPointF>> matchSets(const VKeypointSet& a, const VKeypointSet& b, double ratio, bool crossCheck);

inline QPointF pointOf(const cv::KeyPoint& k) { return QPointF(k.pt.x, k.pt.y); }

} // namespace VEXA::kernel
