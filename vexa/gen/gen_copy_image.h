/// @file
/// @brief Copying pixels between images, and stacking lists of images (group @ref copying).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/VImageList.h>
#include <vexa/vexa_export.h>

namespace VEXA {

/// @addtogroup copying
/// Copying pixels between images of the same format and channel type, and summing lists of images.
///
/// **Pixel types:** copyImage() and copyImageUsingRois() take every format in every channel type;
/// stackImages() GrayScale, BGR and XRGB in 8u. The pairs are in @ref pairs_copy_image. A pair not taken,
/// or a destination (or listed image) of another pair, fails with "Can not find template with actual
/// parameters!".
///
/// **Destinations:** the destination must exist (none is made) and is written in place: only the pixels the
/// function names change.
///
/// **Failures:** a source, list or destination with a failed status gives "Bad status of image!", an empty
/// one "Empty source image!", a null destination "Null pointer argument!".
///
/// **In place:** a copy onto the very same pixels does nothing. Rectangles of one buffer that overlap are copied as
/// from a separate copy of the source, whichever way they overlap (as memmove does): rows go from the top when the
/// destination starts before the source in memory and from the bottom otherwise, each row as one move.
///
/// **Progress and cancellation** (VProgress): stackImages() runs at memory speed in one pass; it is checked
/// before it starts (a cancelled call returns "Operation cancelled" and writes nothing) and then writes the
/// destination fully. The copies neither report nor can be cancelled.
///
/// **Threads:** reentrant. Calls on different images may run on any threads at once, and one source may be
/// read by several calls at once; a destination must not be used by another thread during the call.
/// @{

/// Copies the source's roi into the destination's roi. Both rois are first clipped to their own images;
/// then the common size of the two is copied, from their top-left corners. A roi with nothing inside its
/// image copies nothing and is not an error. Source and destination must have one pair.
VEXA_EXPORT VStatus copyImage(const VImage& source, VImage* destination);
/// As copyImage(), between the rectangles @p sourceRect of the source and @p destinationRect of the
/// destination (image coordinates; the rois play no part), each first clipped to its own image.
VEXA_EXPORT VStatus copyImageUsingRois(const VImage& source, VImage* destination, Rect sourceRect, Rect destinationRect);

/// The images of the list summed into the destination, modulo 256 per component (the low eight bits of the
/// sum: no mean, no saturation): GrayScale, BGR or XRGB 8u lists into a destination of the same pair, which
/// the caller has created. Every image of the list must have that pair (whatever the list's own checks),
/// and only positions of the destination's roi that every image covers are written, each image read at the
/// same image coordinates (their own rois play no part). The X of XRGB is not written. The destination may
/// be one of the listed images.
VEXA_EXPORT VStatus stackImages(const VImageList& list, VImage* destination);

/// @}

} // namespace VEXA
