// Joining overlapping images: the placement of one tile against its neighbour by normalized cross-
// correlation (stage scans, whose tiles overlap by a roughly known amount), and whole panoramas through
// OpenCV's stitching pipeline (features, matching, bundle adjustment, seams and multi-band blending).
// Coordinates are relative to the rois. Every operation checks its sources (status, then emptiness),
// refuses pairs it does not list ("Can not find template with actual parameters!") and null outputs
// ("Null pointer argument!"), and reports OpenCV's own errors as statuses; outputs are written only on
// success.
//
// - matchTemplatePosition(fixed, moving, expected, searchRadius, offset, score, minScore): where the
//   top-left corner of moving's roi lies in fixed's roi coordinates, to a fraction of a pixel. expected is
//   the approximate answer (the stage's step, say) and searchRadius how far, in pixels along each axis, the
//   answer may be from it (0 to 4096). The part of moving that overlaps fixed at expected, shrunk so that it
//   stays inside fixed for every shift within the radius, is the template; it is scored by the correlation
//   coefficient (TemplateCCoeffNormed) at every whole-pixel shift, and the best shift is refined by a
//   parabola through it and its two neighbours along each axis (not past half a pixel; a best shift on the
//   edge of the search keeps its whole value along that axis). score (may be null) receives the best
//   correlation, -1 to 1. Colour tiles are matched on their luminance.
//   Sources: fixed and moving of one pair: GrayScale of any channel type, or BGR, XRGB, ARGB and
//   ARGB_Premultiplied 8u, 16u or 32f (their X and alpha bytes ignored); 32f pixels must be finite. Fails
//   when the template would be smaller than 8 x 8 pixels ("The expected overlap is too small for the
//   search radius"), when it has no texture to match, and when the best score is below minScore (-1 to 1,
//   0.5 by default): "The tiles do not overlap near the expected offset". A periodic texture whose period
//   is shorter than the radius may match at the wrong period: keep the radius below it.
// - buildPanorama(images, panorama, mode): the images joined into one by cv::Stitcher.
//   PanoramaPhotos: photographs turned about the camera's centre, projected on a sphere, with wave
//   correction; PanoramaScans: flat scenes moved under the camera (stage scans, documents), placed by
//   affine transforms (no projection, no exposure compensation), so that tiles cut from one picture join
//   into that picture. The images need not be of one size but must be of one pair: GrayScale, BGR, XRGB
//   or ARGB 8u (the stitcher works on 8-bit BGR: other pairs would only lose precision through it, and are
//   refused; convert them first). The result is made anew in that pair, with the first image's origin and
//   rows alignment, and replaces *panorama on success: pixels no image covers are 0 (ARGB: alpha 0 there
//   and 255 elsewhere; the sources' alpha is not carried over). Colour and gray go through BGR and back.
//   Placing runs on copies scaled to at most 0.6 megapixels (1500 ORB features each) and seams on 0.1
//   megapixels, so the time to place the images hardly grows with their size, while their placement is only
//   as fine as those copies: tiles of a few megapixels land within about a pixel of each other, of twenty
//   megapixels within about two. For stage scans needing better, place the tiles with
//   matchTemplatePosition. The result is composed at the sources' full resolution, which takes memory of
//   about 50 bytes per panorama pixel at its peak and some ten seconds per hundred megapixels (a failed
//   allocation is a status, not a crash). The same images give the same panorama: the random sampling
//   inside runs from a fixed seed (the calling thread's OpenCV generator is restored afterwards).
//   Failures: an empty list or one with a bad status ("Empty source image!", "Bad status of image!"), an
//   image smaller than 8 x 8 pixels, images of different pairs ("The images differ in format or channel
//   type"), a single image ("A panorama needs at least two images"), images with too little in common ("The
//   images do not overlap: too few features match between them"), a placement that does not hold ("The
//   images do not overlap enough to estimate their placement"), a failed refinement ("The camera parameters
//   could not be adjusted to the images"), and an image the stitcher could not place with the others ("Only
//   N of M images overlap the others"): a panorama never leaves an image out silently.
//
// Progress and cancellation (VProgress): buildPanorama checks for a cancellation before it starts,
// between the conversions of the images, after the images are placed and after the result is composed.
// The stitcher itself cannot be interrupted: a cancellation made while it runs takes effect when the
// current stage (placing or composing) ends. matchTemplatePosition runs whole.
#pragma once

#include <QPointF>

#include <vexa/imp/VImage.h>
#include <vexa/imp/VImageList.h>
#include <vexa/vexa_export.h>

namespace VEXA {

// OpenCV's cv::Stitcher::Mode values.
enum PanoramaMode : int {
    PanoramaPhotos = 0,
    PanoramaScans = 1,
};

VEXA_EXPORT VStatus matchTemplatePosition(const VImage& fixed, const VImage& moving, QPointF expected, int searchRadius,
                                          QPointF* offset, double* score = nullptr, double minScore = 0.5);

VEXA_EXPORT VStatus buildPanorama(const VImageList& images, VImage* panorama, PanoramaMode mode = PanoramaPhotos);

} // namespace VEXA
