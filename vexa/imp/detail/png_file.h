// PNG written with libpng straight from the image's rows, a band at a time with progress.
//
// Qt's writer filters every row five ways and deflates at level 6: an 18-megapixel photo takes 8 s. Its
// rows run through Paeth prediction and run-length deflate instead (compression -1, the default) in about
// 1 s, and come out smaller than Qt's on photographs; levels 0 to 9 are plain deflate at that level, every
// row filter tried, as Qt does (0 stores). BGR, XRGB and ARGB rows go to libpng as they lie in memory:
// libpng turns blue-first into red-first and drops the X byte on the way.
#pragma once

#include <vexa/imp/VImage.h>

#include <QByteArray>

class QIODevice;

namespace VEXA {

// Writes a GrayScale, BGR, XRGB, ARGB or ARGB_Premultiplied image of 8u or 16u (16-bit components go out
// big-endian, as PNG keeps them; premultiplied colour is divided by alpha first, as Qt's writers do)
// to the device. Throws a library exception naming what failed; checkpoints between bands, so a
// cancellation throws too, with the device's contents then incomplete.
// A colour profile given goes in as an iCCP chunk (a profile libpng finds malformed is left out), an EXIF
// block as an eXIf chunk before the pixels.
void writePng(const VImage& image, QIODevice* device, int compression, const QByteArray& iccProfile = QByteArray(),
              const QByteArray& exif = QByteArray());

// An 8-bit colour PNG without transparency, not interlaced, decoded by libpng straight into the rows of a
// BGR 8u image: the file's pixels as Qt reads them (no gamma applied), in one picture's memory where Qt's
// reader takes XRGB. Empty for any other file, one whose picture would pass imageSizeLimit(), or one that
// libpng cannot decode whole (a damaged one): the caller reads those its usual way, which says why.
VImage readPngAsBgr(const QString& fileName);

} // namespace VEXA
