// Erosion, dilation and the compound morphological operations, over a structuring element described by
// VConvKernel (taken by value: the element is built on the copy).
//
// Destinations: an empty destination is made like the source (same header, same roi); an existing one is
// written in place through its roi and must have the source's format, channel type and roi size, or the
// call fails with OpenCV's C-interface error (-215, function cvErode, cvDilate or cvMorphologyEx). Borders
// are replicated at the roi's edge.
//
// Pairs: GrayScale, BGR, ARGB, XRGB, ARGB_Premultiplied and YUV422 in 8u, 16u, 16s and 32f.
//
// iterations: 0 (and a 1 x 1 element) copies; n > 1 applies the element n times (an all-ones element once,
// grown to (cols - 1) n + 1 by (rows - 1) n + 1, which gives the same result). Opening is n erosions then n
// dilations, closing the reverse; gradient is dilation minus erosion, top hat source minus opening, black
// hat closing minus source, each saturated. An element that cannot be built (shape 3, a size or anchor
// outside OpenCV's rules) fails with OpenCV's error; one whose grown extent would make OpenCV's working
// buffers pass imageSizeLimit() is refused ("Kernel is too large for the image").
//
// In place (destination sharing the source's pixels) every operation gives the result it gives into a
// separate image: OpenCV's in-place calls do (measured), and a destination roi overlapping the source's
// without being the same pixels reads the source from a copy.
//
// Progress and cancellation (VProgress): with a progress current on the calling thread, these work in
// bands of rows into a scratch image, report between bands and copy the result into the destination only
// once complete; a cancelled call returns "Operation cancelled" with the destination untouched. The bands
// give the same pixels as the single call. Without a progress nothing changes.
#pragma once

#include <vexa/imp/VConvKernel.h>
#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

namespace VEXA {

VEXA_EXPORT VStatus erodeImage(const VImage& src, VImage* dst, VConvKernel element, int iterations);
VEXA_EXPORT VStatus dilateImage(const VImage& src, VImage* dst, VConvKernel element, int iterations);
VEXA_EXPORT VStatus morphOpening(const VImage& src, VImage* dst, VConvKernel element, int iterations);
VEXA_EXPORT VStatus morphClosing(const VImage& src, VImage* dst, VConvKernel element, int iterations);
VEXA_EXPORT VStatus morphGradient(const VImage& src, VImage* dst, VConvKernel element, int iterations);
VEXA_EXPORT VStatus morphTopHat(const VImage& src, VImage* dst, VConvKernel element, int iterations);
VEXA_EXPORT VStatus morphBlackHat(const VImage& src, VImage* dst, VConvKernel element, int iterations);

} // namespace VEXA
