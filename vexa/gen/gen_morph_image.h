/// @file
/// @brief Erosion, dilation and the compound morphological operations (group @ref morphology).
#pragma once

#include <vexa/imp/VConvKernel.h>
#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

namespace VEXA {

/// @addtogroup morphology
/// Erosion, dilation and the compound morphological operations, over a structuring element described by
/// VConvKernel (taken by value: the element is built on the copy, the caller's cache stays as it was).
///
/// **Pixel types:** GrayScale, BGR, ARGB, XRGB, ARGB_Premultiplied and YUV422 in 8u, 16u, 16s and 32f, every
/// component treated alike (alpha, X and chroma included); the pairs are in @ref pairs_morph_image. Others
/// fail with "Can not find template with actual parameters!".
///
/// **Destinations:** an empty destination is made like the source (same header, same roi); an existing one
/// is written in place through its roi. It must have the source's format ("Can not find template with actual
/// parameters!" otherwise), and its channel type and roi size, or the call fails with OpenCV's C-interface
/// error (-215, "src.size() == dst.size() && src.type() == dst.type()", function cvErode, cvDilate or
/// cvMorphologyEx). Borders are replicated at the roi's edge; nothing outside the rois is read or written.
///
/// **Iterations:** 0 (and a 1 x 1 element) copies; n > 1 applies the element n times (an all-ones element
/// once, grown to (cols - 1) n + 1 by (rows - 1) n + 1, which gives the same result). Opening is n erosions
/// then n dilations, closing the reverse; gradient is dilation minus erosion, top hat source minus opening,
/// black hat closing minus source, each saturated.
///
/// **Failures:** a source or destination with a failed status gives "Bad status of image!", an empty source
/// "Empty source image!", a null destination "Null pointer argument!". An element that cannot be built fails
/// before the destination's size and type are checked: a size or anchor outside OpenCV's rules with
/// OpenCV's C-interface error (-215, "cols > 0 && rows > 0 && anchor.inside(cv::Rect(0,0,cols,rows)) &&
/// (shape != CV_SHAPE_CUSTOM || values != 0)", cvCreateStructuringElementEx), more than imageSizeLimit()
/// cells with "Structuring element is too large", ConvKernelValues without cols * rows values with "Custom
/// element needs cols * rows values", and ConvKernelCustom (3) always, with OpenCV's error. An element
/// whose grown extent would make OpenCV's working buffers pass imageSizeLimit() is refused ("Kernel is too
/// large for the image").
///
/// **In place** (destination sharing the source's pixels): every operation gives the result it gives into a
/// separate image: OpenCV's in-place calls do (measured), and a destination roi overlapping the source's
/// without being the same pixels reads the source from a copy.
///
/// **Progress and cancellation** (VProgress): with a progress current on the calling thread, these work in
/// bands of rows into a scratch image, report between bands and copy the result into the destination only
/// once complete; a cancelled call returns "Operation cancelled" with the destination untouched. The bands
/// give the same pixels as the single call. Without a progress nothing changes.
///
/// **Threads:** reentrant. Calls on different images may run on any threads at once, and one source may be
/// read by several calls at once; a destination must not be used by another thread during the call. One
/// VConvKernel may be passed to calls on several threads at once, as long as no thread changes it or calls
/// its VConvKernel::kernel() meanwhile.
/// @{

/// Erosion: each component becomes the minimum over the pixels under the element's inside (non-zero)
/// cells, the element laid with its anchor on the pixel; @p iterations times (cvErode).
VEXA_EXPORT VStatus erodeImage(const VImage& src, VImage* dst, VConvKernel element, int iterations);
/// Dilation: as erodeImage(), with the maximum (cvDilate).
VEXA_EXPORT VStatus dilateImage(const VImage& src, VImage* dst, VConvKernel element, int iterations);
/// Opening: @p iterations erosions, then as many dilations (cvMorphologyEx).
VEXA_EXPORT VStatus morphOpening(const VImage& src, VImage* dst, VConvKernel element, int iterations);
/// Closing: @p iterations dilations, then as many erosions (cvMorphologyEx).
VEXA_EXPORT VStatus morphClosing(const VImage& src, VImage* dst, VConvKernel element, int iterations);
/// Morphological gradient: dilation minus erosion, each of @p iterations passes, saturated
/// (cvMorphologyEx).
VEXA_EXPORT VStatus morphGradient(const VImage& src, VImage* dst, VConvKernel element, int iterations);
/// Top hat: the source minus its opening, saturated (cvMorphologyEx).
VEXA_EXPORT VStatus morphTopHat(const VImage& src, VImage* dst, VConvKernel element, int iterations);
/// Black hat: the closing minus the source, saturated (cvMorphologyEx).
VEXA_EXPORT VStatus morphBlackHat(const VImage& src, VImage* dst, VConvKernel element, int iterations);

/// @}

} // namespace VEXA
