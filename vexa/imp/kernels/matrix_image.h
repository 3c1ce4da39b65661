// The pixel types of the matrix operations, whose arithmetic is OpenCV's own.
#pragma once

#include <vexa/imp/detail/dispatch.h>

namespace VEXA {

using TemplatePixels = PixelList<PixelGray<quint8>, PixelBGR<quint8>, PixelGray<float>, PixelBGR<float>>;
using MatrixPixels = PixelList<PixelGray<float>>; // invertMatrix, solveLinear, inverseDftImage
using DftPixels = PixelList<PixelGray<quint8>, PixelGray<quint16>, PixelGray<qint16>, PixelGray<float>>;
using MinMaxPixels = AllChannelsOf<PixelGray>;
using MinMaxMaskPixels = PixelList<PixelGray<quint8>>; // getMinMax's mask

} // namespace VEXA
