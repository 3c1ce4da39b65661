/// @file
/// @brief Statistics over an image's region of interest (group @ref statistics).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

namespace VEXA {

/// @addtogroup statistics
/// Statistics over an image's region of interest (clipped to the image).
///
/// **Pixel types:** GrayScale of every channel type (8u, 8s, 16u, 16s, 32s, 32f), as @ref pairs_stat_image
/// lists; others fail with "Can not find template with actual parameters!".
///
/// **Failures:** an invalid or empty image ("Bad status of image!", "Empty source image!"), a null output
/// ("Null pointer argument!"); the output is written only on success.
///
/// **Progress and cancellation** (VProgress): one pass at memory speed, not checked for a cancellation.
///
/// **Threads:** reentrant; one image may be read by several calls at once.
/// @{

/// The number of non-zero pixels in the roi of a GrayScale image of any channel type, into @p count.
VEXA_EXPORT VStatus countNonZero(const VImage& image, int* count);

/// @}

} // namespace VEXA
