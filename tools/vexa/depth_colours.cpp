#include "depth_colours.h"

#include <opencv2/imgproc.hpp>

namespace vexatool {

QImage turboColours(const cv::Mat& map, double scale, double shift, cv::Size size)
{
    cv::Mat levels, coloured;
    map.convertTo(levels, CV_8U, scale, shift);
    if (!size.empty())
        cv::resize(levels, levels, size, 0, 0, cv::INTER_NEAREST);
    cv::applyColorMap(levels, coloured, cv::COLORMAP_TURBO);
    return QImage(coloured.data, coloured.cols, coloured.rows, int(coloured.step), QImage::Format_BGR888).copy();
}

} // namespace vexatool
