// TIFF written with libtiff straight from the image's rows, a strip at a time with progress.
//
// Qt's writer converts the whole picture to its own layout first; here each row is turned red-first into
// one row's buffer on its way out, so a large picture costs no second copy of itself. Gray, BGR, XRGB (the
// X component left out) and ARGB (straight alpha) of 8u or 16u; a colour profile goes in as the
// InterColorProfile tag. Compression 0 or -1: none; above 0: LZW.
#pragma once

#include <vexa/imp/VImage.h>

#include <QByteArray>

class QIODevice;

namespace VEXA {

// Whether writeTiff takes images of this format and channel type.
bool writesTiff(Format format, Channel channel);
// Writes the image to the device, which must be open for writing and able to seek. Throws a library
// exception naming what failed; checkpoints between strips, so a cancellation throws too.
void writeTiff(const VImage& image, QIODevice* device, int compression, const QByteArray& iccProfile);

} // namespace VEXA
