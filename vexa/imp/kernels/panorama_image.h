// The panorama family's kernels: template matching of an overlap with a sub-pixel peak, and stitching
// through OpenCV's stitcher, seeded so that a panorama depends on its images alone.
#pragma once

#include <vexa/gen/gen_panorama_image.h>
#include <vexa/imp/detail/opencv_frame.h>
#include <vexa/imp/detail/progress.h>

#include <QPointF>

#include <vector>

namespace VEXA {


template <class T>
using ColourOf = PixelList<PixelBGR<T>, PixelXRGB<T>, PixelARGB<T>, PixelARGBP<T>>;
using TilePixels = JoinT<AllChannelsOf<PixelGray>, ColourOf<quint8>, ColourOf<quint16>, ColourOf<float>>;
using PanoramaPixels = PixelList<PixelGray<quint8>, PixelBGR<quint8>, PixelXRGB<quint8>, PixelARGB<quint8>>;

namespace kernel {

// Where moving lies on fixed, searched within searchRadius of `expected` (rounded to whole pixels): refused
// when the overlap left is too small or has no texture, or when the best score is under minScore.
QPointF templatePosition(const cv::Mat& fixed, const cv::Mat& moving, QPointF expected, int searchRadius,
                         double minScore, double* bestScore);
// An image as the stitcher reads it: BGR, 8 bits (a BGR image is its own pixels).
cv::Mat bgrOf(const cv::Mat& m);
// The stitched panorama of at least two BGR images, in model's format (ARGB with the covered area as
// alpha), reported through the caller's steps.
VImage stitch(const std::vector<cv::Mat>& bgr, PanoramaMode mode, const VImage& model, ProgressSteps& steps);

} // namespace kernel
} // namespace VEXA
