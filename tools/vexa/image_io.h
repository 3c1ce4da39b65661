// Image files for the tool: OpenCV matrices in and out through the library's VImage, and shots read for
// merging. Every failure is a runtime Failure naming the file.
#pragma once

#include <vexa/imp/VImage.h>

#include <QString>

#include <opencv2/core.hpp>

namespace vexatool {

// A copy of an 8-bit matrix as an image: one channel as GrayScale, three as BGR, four as XRGB.
VImage toVImage(const cv::Mat& mat);
// A view of an XRGB 8u image's pixels as a four-channel matrix (B, G, R, X); the image must outlive it.
cv::Mat asMat(const VImage& xrgb);

// Reads an image file as XRGB 8u.
VImage loadXrgb(const QString& fileName);
// Writes the image; the suffix of the name picks the file format.
void saveImage(const VImage& image, const QString& fileName);
void saveImage(const cv::Mat& mat, const QString& fileName);

// Whether Qt can write files of the name's suffix.
bool canWriteFormat(const QString& fileName);

} // namespace vexatool
