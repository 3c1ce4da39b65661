// Maps of values (a depth map's shot indices above all) in false colour, as the tool's pictures and the
// application's view show them.
#pragma once

#include <QImage>

#include <opencv2/core.hpp>

namespace vexatool {

// The one-channel map in the turbo colour map, a value v at level v * scale + shift of it (saturated to
// 0..255), scaled to `size` by nearest neighbours where one is given so that its steps stay sharp.
QImage turboColours(const cv::Mat& map, double scale, double shift, cv::Size size = cv::Size());

} // namespace vexatool
