// Copying pixels between images of the same format and channel type.
//
// copyImage copies the source's region of interest into the destination's; copyImageUsingRois copies
// between two given rectangles. Each rectangle (roi or argument) is first clipped to its own image; then
// the common size of the two is copied, from their top-left corners. A rectangle with nothing inside its
// image copies nothing and is not an error. The destination must exist: it is written in place.
//
// Progress and cancellation (VProgress): stackImages runs at memory speed in one pass; it is checked before
// it starts (a cancelled call writes nothing) and then writes the destination fully.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/VImageList.h>
#include <vexa/vexa_export.h>

namespace VEXA {

VEXA_EXPORT VStatus copyImage(const VImage& source, VImage* destination);
VEXA_EXPORT VStatus copyImageUsingRois(const VImage& source, VImage* destination, Rect sourceRect, Rect destinationRect);

// The images of the list summed into the destination, modulo 256 per component: GrayScale, BGR or XRGB
// 8u lists into a destination of the same pair, which the caller has created. Every image of the list
// must have that pair (whatever the list's own checks), and only positions of the destination's roi that
// every image covers are written.
VEXA_EXPORT VStatus stackImages(const VImageList& list, VImage* destination);

} // namespace VEXA
