/// @file
/// @brief Joining overlapping images: tile placement by correlation, and whole panoramas (group
/// @ref panorama).
#pragma once

#include <QPointF>

#include <vexa/imp/VImage.h>
#include <vexa/imp/VImageList.h>
#include <vexa/vexa_export.h>

namespace VEXA {

/// @addtogroup panorama
/// Joining overlapping images: the placement of one tile against its neighbour by normalized
/// cross-correlation (stage scans, whose tiles overlap by a roughly known amount), and whole panoramas
/// through OpenCV's stitching pipeline (features, matching, bundle adjustment, seams and multi-band
/// blending).
///
/// **Pixel types:** matchTemplatePosition() takes GrayScale of any channel type, and BGR, XRGB, ARGB and
/// ARGB_Premultiplied of 8u, 16u or 32f; buildPanorama() takes GrayScale, BGR, XRGB and ARGB of 8u
/// (@ref pairs_panorama_image). Others fail with "Can not find template with actual parameters!".
///
/// **Coordinates** are relative to the rois, a pixel's centre at whole numbers.
///
/// **Failures:** every operation checks its sources (status, then emptiness: "Bad status of image!",
/// "Empty source image!"), refuses pairs it does not list and null outputs ("Null pointer argument!"), and
/// reports OpenCV's own errors as statuses; outputs are written only on success. Each function's own
/// failures are told with it.
///
/// **Progress and cancellation** (VProgress): buildPanorama() checks for a cancellation before it starts,
/// between the conversions of the images, after the images are placed and after the result is composed,
/// reporting under "panorama". The stitcher itself cannot be interrupted: a cancellation made while it runs
/// takes effect when the current stage (placing or composing) ends. matchTemplatePosition() is checked
/// before it starts, then runs whole. A cancelled call returns "Operation cancelled" with its outputs
/// untouched.
///
/// **Threads:** reentrant; sources may be read by several calls at once, and outputs must not be used by
/// another thread during the call. buildPanorama() seeds the calling thread's OpenCV random generator for
/// the call and restores it afterwards.
/// @{

/// How buildPanorama() places the images (OpenCV's cv::Stitcher::Mode values).
enum PanoramaMode : int {
    /// Photographs turned about the camera's centre, projected on a sphere, with wave correction.
    PanoramaPhotos = 0,
    /// Flat scenes moved under the camera (stage scans, documents), placed by affine transforms (no
    /// projection, no exposure compensation), so that tiles cut from one picture join into that picture.
    PanoramaScans = 1,
};

/// Where the top-left corner of @p moving's roi lies in @p fixed's roi coordinates, to a fraction of a
/// pixel, into @p offset. @p expected is the approximate answer (the stage's step, say; finite and within
/// 2^24 pixels, rounded to whole pixels) and @p searchRadius how far, in pixels along each axis, the answer
/// may be from it (0 to 4096). The part of moving that overlaps fixed at expected, shrunk so that it stays
/// inside fixed for every shift within the radius, is the template; it is scored by the correlation
/// coefficient (TemplateCCoeffNormed) at every whole-pixel shift, and the best shift is refined by a
/// parabola through it and its two neighbours along each axis (not past half a pixel; a best shift on the
/// edge of the search keeps its whole value along that axis). @p score (may be null) receives the best
/// correlation, -1 to 1. Colour tiles are matched on their luminance, their X and alpha components ignored.
///
/// @p fixed and @p moving must be of one pair (GrayScale of any channel type, or BGR, XRGB, ARGB and
/// ARGB_Premultiplied 8u, 16u or 32f). Fails when the expected offset is not finite or beyond 2^24 pixels
/// ("The expected offset must be finite and within 2^24 pixels"), for a radius outside 0 to 4096 ("The
/// search radius must be 0 to 4096 pixels"), for @p minScore outside -1 to 1 ("The least score must be -1
/// to 1"), when the template would be smaller than 8 x 8 pixels ("The expected overlap is too small for the
/// search radius"), when the compared pixels hold an infinite or NaN value ("Tiles hold infinite or NaN
/// values"), when the template has no texture to match ("The overlap has no texture to match"), and when
/// the best score is below @p minScore (0.5 by default): "The tiles do not overlap near the expected
/// offset". A periodic texture whose period is shorter than the radius may match at the wrong period: keep
/// the radius below it.
VEXA_EXPORT VStatus matchTemplatePosition(const VImage& fixed, const VImage& moving, QPointF expected, int searchRadius,
                                          QPointF* offset, double* score = nullptr, double minScore = 0.5);

/// The images joined into one by cv::Stitcher, placed as @p mode says, into @p panorama (replaced on
/// success). The images need not be of one size but must be of one pair: GrayScale, BGR, XRGB or ARGB 8u
/// (the stitcher works on 8-bit BGR: other pairs would only lose precision through it, and are refused;
/// convert them first). Colour and gray go through BGR and back. The result is made anew in that pair,
/// with the first image's origin and rows alignment: pixels no image covers are 0 (ARGB: alpha 0 there and
/// 255 elsewhere; the sources' alpha is not carried over; XRGB: the X byte 255).
///
/// Placing runs on copies scaled to at most 0.6 megapixels (1500 ORB features each) and seams on 0.1
/// megapixels, so the time to place the images hardly grows with their size, while their placement is only
/// as fine as those copies: tiles of a few megapixels land within about a pixel of each other, of twenty
/// megapixels within about two. For stage scans needing better, place the tiles with
/// matchTemplatePosition(). The result is composed at the sources' full resolution, which takes memory of
/// about 50 bytes per panorama pixel at its peak and some ten seconds per hundred megapixels (a failed
/// allocation is a status, not a crash). The same images give the same panorama: the random sampling inside
/// runs from a fixed seed (the calling thread's OpenCV generator is restored afterwards).
///
/// Failures: an empty list or one with a bad status ("Empty source image!", "Bad status of image!"), an
/// unknown mode ("Unknown panorama mode"), an image smaller than 8 x 8 pixels ("Images smaller than 8 x 8
/// pixels cannot be stitched"), images of different pairs ("The images differ in format or channel type"),
/// a single image ("A panorama needs at least two images"), images with too little in common ("The images
/// do not overlap: too few features match between them"), a placement that does not hold ("The images do
/// not overlap enough to estimate their placement"), a failed refinement ("The camera parameters could not
/// be adjusted to the images"), an image the stitcher could not place with the others ("Only N of M images
/// overlap the others": a panorama never leaves an image out silently), any other failure of the stitcher
/// ("The stitcher failed", "The stitcher gave no image") and a result too large to allocate ("Not enough
/// memory for the panorama").
VEXA_EXPORT VStatus buildPanorama(const VImageList& images, VImage* panorama, PanoramaMode mode = PanoramaPhotos);

/// @}

} // namespace VEXA
