/// @file
/// @brief Focus stacking: shots of one scene, each sharp at another depth, merged into one image sharp
/// everywhere (group @ref focus).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/VRasterPyramid.h>
#include <vexa/imp/VTransform.h>
#include <vexa/vexa_export.h>

#include <QList>
#include <QPair>
#include <QSize>
#include <QTransform>

#include <functional>
#include <memory>

namespace VEXA {
class FocusAligner;
class FocusDepthMerge;
struct KeptShotFit;
} // namespace VEXA

/// @addtogroup focus
/// Focus stacking: shots of one scene, each sharp at another depth, merged one by one into an image sharp
/// everywhere. VImageBlender takes the shots and keeps the merge so far; multifocusImages() and
/// multifocusImagesWeighted() are the two running merges it uses, open to callers that keep their own
/// images; VRasterPyramid is the pyramid of MultifocusPyramid.
///
/// **Methods** (VImageBlender::MultifocusMethod):
/// - MultifocusPyramid: the shots' pyramids (VRasterPyramid) merged coefficient by coefficient, the larger
///   magnitude winning;
/// - MultifocusMaxSharpness (the default): per pixel, the sharpest shot so far wins (multifocusImages());
/// - MultifocusWeighted: a running average weighted by sharpness (multifocusImagesWeighted());
/// - MultifocusWeightedAll: every shot kept with its sharpness map, averaged over all of them by image();
/// - MultifocusDepthMap: made for real series (hand-held, JPEG, drifting exposure), in the shots' own depth,
///   with the index of the shot each pixel came from readable as a depth map (VImageBlender::depthMap()).
///
/// Sharpness maps are GrayScale 32f maps of the shot's size, contrastImage(shot, &map, 1, 3): per pixel
/// |L(shot) - L(blurred)| in 0..255 units, with L the luminance 0.114 B + 0.587 G + 0.299 R and blurred the
/// shot's 3 x 3 Gaussian.
///
/// **Pixel types:** the first shot fixes the layout. MultifocusMaxSharpness and MultifocusWeighted merge
/// XRGB 8u shots, and MultifocusPyramid the 8u shots that VImage::convert() turns into BGR 8u (BGR, XRGB,
/// ARGB_Premultiplied and YUV422; not GrayScale or ARGB), giving XRGB 8u: these three refuse a first shot of
/// another layout, so that no shot is taken without being merged. MultifocusWeightedAll merges XRGB 8u shots.
/// MultifocusDepthMap merges GrayScale, BGR, XRGB and ARGB shots of 8u, 16u or 32f at their depth with no
/// 8-bit step (an alpha is dropped): gray gives GrayScale, colour gives XRGB, of the shots' channel type;
/// other shots are merged in XRGB 8u, as the same picture (VImage::convertScaled()). What each method does
/// with other layouts is told at its value of VImageBlender::MultifocusMethod.
///
/// **Regions of interest:** MultifocusDepthMap, unless it aligns by keypoints or locally, reads each shot's
/// roi, whose size (clipped to its image) must be the first shot's (a shot of another roi size is refused as
/// one of another size), and image() and depthMap() have that size. Every other method, and the depth map
/// aligning by keypoints or locally, works on whole images (its shots are copied, and a copy's roi is the
/// whole image): give those shots whose roi is the whole image.
///
/// **Alignment** (VImageBlender::Alignment): every alignment brings the shots into the first shot's geometry.
/// AlignAuto fits each shot to the one before it, chained to the first, with a global affine fit refined by a
/// smooth local correction; a shot that does not move is never resampled, and one that cannot be fitted is
/// refused with its reason. With AlignKeypoints each shot is first warped onto the running result (onto the first
/// shot for the depth map) by the homography between their keypoints; with AlignLocal it is then lined up by
/// stabilizeLocal(). For the methods other than the depth map, the pixels an alignment leaves uncovered are
/// black: MultifocusMaxSharpness takes no pixel within one pixel of a black one, MultifocusWeighted blends
/// no shot pixel of luminance 3 or less, while MultifocusWeightedAll and MultifocusPyramid weigh them like
/// any other. For the depth map they carry no data: with AlignAuto the pixels the fitted shot does not
/// cover take no share of the result; with the keypoint or local alignment no pixel of luminance 0 does,
/// nor its eight neighbours. The depth map matches every shot's exposure whatever the alignment.
///
/// **Failures:** VImageBlender::addImage() returns false and leaves the blender as it was, with the reason
/// in VImageBlender::lastStatus() (message "Reason: " followed by the text, VStatus::reason() the text
/// alone):
/// - an invalid or empty shot: "Bad status of image!", "Empty source image!";
/// - a later shot of another size, layout (format or channel type), or origin or rows alignment than the
///   first: "The shot's size differs from the first shot's: 320x240 BGR 8u against 640x480 XRGB 8u" (with
///   "layout" or "origin or row alignment" in place of "size" as the case is); for the depth map reading
///   rois, a roi of another size: "The shot's size differs from the first shot's: a roi of 90x80 against
///   100x80";
/// - with AlignAuto: "The shot cannot be aligned: it does not match the shot before it" (no correlation) and
///   "The shot cannot be aligned: it moved too far from the shot before it" (a scale outside 0.7 to 1.4, or
///   the centre moved by more than a quarter of the width or height);
/// - a shot of a layout its method cannot merge: "The shot's layout cannot be merged" (for the depth map, a
///   shot it cannot convert); MultifocusMaxSharpness, MultifocusWeighted and MultifocusPyramid refuse it from
///   the first shot on, naming the layouts they merge: "The shot's layout cannot be merged:
///   MultifocusMaxSharpness merges XRGB 8u shots, not BGR 8u";
/// - a failed inner step: "The shot could not be merged", whose reason names the step ("warping the shot
///   onto its keypoint match failed: ...", "building the shot's pyramid failed: ...", "merging the shot's
///   pyramid failed: ...");
/// - OpenCV's errors and a lack of memory, as every operation reports them;
/// - a cancellation: "Operation cancelled".
///
/// VImageBlender::image() and VImageBlender::depthMap() never fail for a shot: when they cannot give their
/// image (MultifocusWeightedAll's averaging cancelled, "Operation cancelled"; too little memory for the
/// depth map's images, "Unexpected error." with the reason "out of memory") they return an empty image,
/// change nothing, and leave their failed status in lastStatus() until the next call; one that succeeds puts
/// back the last addImage()'s status.
///
/// **Progress and cancellation** (VProgress): with a VProgress current on the calling thread, addImage()
/// reports the shot's fraction under "merging" (the keypoint and local alignments, and AlignAuto for the
/// methods other than the depth map, take the first 30%; the depth map's own steps report "aligning",
/// "measuring" and "merging") and, once cancel() is called, returns false with the
/// blender exactly as it was before the shot: every method measures and aligns the shot aside, checked
/// between bands of rows and steps, and then changes its state in one short step that is not interrupted (on
/// 12 MP about 15 ms for the maximum-sharpness merge, 32 ms for the depth map's). The alignments' own
/// searches (keypoints and local stabilization, single calls of a few tenths of a second; the automatic fit)
/// are checked before and after. A cancelled first shot leaves the blender uninitialised. image() of
/// MultifocusWeightedAll reports "averaging" and, cancelled, returns an empty image and changes nothing
/// (lastStatus() "Operation cancelled"); the other methods' image() and depthMap() run whole.
/// multifocusImages() and multifocusImagesWeighted() are checked once before they start ("Operation
/// cancelled", nothing written), then run whole.
///
/// **Memory:** the running state, whatever the stack's length, is the result and a 32f sharpness map
/// (4 bytes a pixel) for MultifocusMaxSharpness and MultifocusWeighted; the running pyramid and the result,
/// about 16 bytes a pixel, for MultifocusPyramid. MultifocusWeightedAll keeps a copy of every shot and its
/// map, growing with the stack. MultifocusDepthMap keeps no running image: its state is about 16 bytes a
/// pixel in colour and 11 in gray for 8u shots (24 and 13 for 16u and 32f), plus a copy of the first shot
/// when it aligns by keypoints or locally. The depth map, and AlignAuto for every method, also keep the
/// previous shot's luminance in floats, at half size (1 byte a pixel) for shots whose longer side passes
/// 1024 pixels and at full size (4 bytes a pixel) otherwise. An image made by image() or depthMap() is kept
/// until the next shot. While a shot is added a few more full-size planes of it are alive. Kept shot fits
/// (VImageBlender::setKeepShotFits()) cost more for each shot.
///
/// **Threads:** the free functions are reentrant (their four images must not be used by another thread
/// during the call). A VImageBlender is used by one thread at a time, and may be handed from one thread to
/// another between calls; only its const members may run on several threads at once. Copies are
/// independent: what either writes is its own. Images handed out by image() and depthMap() are never
/// written again by the blender and may be read on any thread while it goes on. The blender keeps no
/// reference to the caller's shots: each is copied or only read during the call.
/// @{

/// The focus stacker: takes the shots of a series one by one (addImage()) and keeps their merge so far
/// (image()), by one of five methods and with an optional alignment of each shot onto the first (see the
/// group @ref focus for the rules every method shares).
///
/// The first shot initialises the blender and fixes the layout that later shots must have; a first shot of a
/// layout the method cannot merge, and a later shot of another size or layout, are refused (addImage()
/// returns false and nothing changes), and lastStatus() says why. image() hands out the merge so far; later
/// shots never change an image handed out.
///
/// A value type: a copy owns everything the merges write (images, pyramid, depth-map state, aligner) and
/// shares only what is never written again, so the copy and the original go on independently. Settings
/// are given to the constructor or to init(); init() and clear() start a new series.
///
/// Not thread-safe: one thread at a time (see the group's **Threads**).
class VEXA_EXPORT VImageBlender {
public:
    /// How the shots are merged. Each method's rules for layouts other than those it merges are told here.
    enum MultifocusMethod : int {
        /// Each shot's VRasterPyramid (as many levels as its size allows), built from the shot converted to
        /// BGR 8u by VImage::convert(), is merged with the running one by VRasterPyramid::takeMostSharpness()
        /// (per coefficient the larger magnitude wins; ties keep the earlier shots') and restored: image() is
        /// XRGB 8u. Until a second shot is merged image() is the first shot as given. 8u shots of BGR, XRGB,
        /// ARGB_Premultiplied or YUV422 (those convert() turns into BGR 8u); a first shot of another layout is
        /// refused. Later shots are checked against the first shot, whatever the result's layout.
        MultifocusPyramid = 0,
        /// The default: per pixel the sharpest shot so far wins, by multifocusImages() with each shot's
        /// sharpness map against the running one. XRGB 8u shots; a first shot of another layout is refused.
        MultifocusMaxSharpness = 1,
        /// A running average weighted by sharpness, by multifocusImagesWeighted(); its map is measured
        /// afresh on the merged result after each shot. XRGB 8u shots; a first shot of another layout is
        /// refused.
        MultifocusWeighted = 2,
        /// Every shot kept (a copy) with its sharpness map; image() averages all of them per pixel, each
        /// component bound8u(sum of w c / sum of w) (clamped to 0..255, truncated) with w the absolute
        /// sharpness of each shot there, where every w is 0 the first shot's pixel staying, the fourth byte
        /// being the first shot's. XRGB 8u shots; with another layout image() gives the first shot.
        MultifocusWeightedAll = 3,
        /// Made for real series (hand-held, JPEG, drifting exposure), in the shots' own depth. Every shot is
        /// brought to the first shot's exposure and white balance (a gain per channel, measured against the
        /// shot before it) and, with AlignAuto, to its geometry (breathing, shake and parallax). Its
        /// sharpness is scored at three scales (the squared 3 x 3 Laplacian of its luminance, less twice the
        /// series' noise floor, smoothed over about 2, 8 and 32 pixels), so that where no shot is sharp the
        /// choice follows the depths decided around it. Each pixel's finest detail comes from the one
        /// sharpest shot (isolated flips of that decision are removed by a 5 x 5 median; shots nearly as
        /// sharp as each other are averaged, which lowers the noise), and a Laplacian pyramid blend of that
        /// decision hides seams and exposure residue at the coarser scales. The running state is bounded
        /// whatever the stack's length (see the group's **Memory**). image() is GrayScale for gray shots and
        /// XRGB for colour ones (X at the type's full scale), of the shots' channel type (8u for shots merged
        /// as XRGB 8u), rounded to the nearest and saturated; depthMap() gives the decision's shot indices.
        MultifocusDepthMap = 4,
    };

    /// How shots are lined up with the first before they are merged.
    enum Alignment : int {
        /// The shots are merged as they stand (the depth map still matches their exposure).
        AlignNone = 0,
        /// `alignByKeypoints`: each shot is warped (warpPerspectiveImage(), bilinear, uncovered pixels
        /// black) by the homography findTransformation() finds between the VKeypointDescriptors of the
        /// target and of the shot; the target is the running result, or the first shot for the depth map. A
        /// shot for which no homography is found, or whose homography moves no corner by a thousandth of a
        /// pixel, is taken as it stands. Shot fits are not kept.
        AlignKeypoints = 1, // alignByKeypoints
        /// `stabilizeLocally`: each shot is lined up with the same target by stabilizeLocal(); a shot it
        /// cannot line up is taken as it stands. Shot fits are not kept.
        AlignLocal = 2, // stabilizeLocally
        /// Both: keypoints first, then the local stabilization.
        AlignKeypointsAndLocal = 3, // both
        /// Breathing, shake and parallax, blind to exposure. Each shot is fitted to the one before it, which
        /// is already in the first shot's geometry, so that the fits chain to the first shot while every
        /// comparison is between neighbours: a global affine fit (shift, rotation, scale, shear) by OpenCV's
        /// ECC on the luminance, coarse to fine (at half resolution for shots whose longer side passes 1024
        /// pixels; above half a million pixels there, the finest step fits 64 patches spread over the
        /// picture and joins their shifts by robust least squares), then a smooth local correction for
        /// parallax, from optical flow between the fitted shot and its neighbour averaged over about 24
        /// pixels with the detail both have as weights (vectors longer than 1% of the diagonal are left
        /// out), applied only where the flow averaged over about 70 pixels still moves something by a
        /// quarter of a pixel along one direction or along the rays from the centre (a camera moving
        /// sideways or along its axis; focus changes alone move edges every way around an object). A
        /// global fit that removes under a tenth of the misfit the shots show as they stand is taken as
        /// no motion: two shots focused differently never match exactly, and a fit between two
        /// that did not move follows their focus differences. A shot whose fit moves no corner by 0.1
        /// pixel and that needs no local correction is not resampled; shots under 100 pixels on a side are
        /// taken as they stand. Resampling is bicubic. The fits are reported by shotFits().
        AlignAuto = 4, // breathing, shake and parallax, exposure-blind (see above)
    };

    /// What the blender did with a shot it took, one per shot in order of the shots (shotFits()). The first
    /// shot's is the default: gains 1, the identity, no shift, not resampled.
    struct ShotFit {
        /// Blue, green and red gains that bring the shot to the first shot's exposure and white balance
        /// (gray shots repeat the first); measured and applied by the depth map only, 1 for the other
        /// methods. A gain within 0.3% of 1 is exactly 1.
        double gains[3] = {1.0, 1.0, 1.0}; // blue, green, red: into the first shot's exposure (depth map)
        /// AlignAuto's global fit: maps the first shot's pixel coordinates (pixel centres at whole numbers,
        /// relative to the roi) to where the merge reads them in this shot. The identity for a shot taken
        /// as it stands and without AlignAuto.
        QTransform transform;              // the global fit, first shot's pixels to this shot's (AlignAuto)
        /// The size of AlignAuto's local correction on top of the global fit, in pixels: the 99th percentile
        /// of its lengths away from a 5% border; 0 where no local correction is applied.
        double localShift = 0.0; // the local correction's size on top of it, in pixels
        /// True when AlignAuto read the shot through its fit; false for a shot taken as it stands, and always
        /// without AlignAuto (the keypoint and local alignments are not reported here).
        bool resampled = false;            // false for a shot taken as it stands
    };

    /// An empty blender merging by @p method, aligning by keypoints and/or locally as the flags say
    /// (AlignKeypoints, AlignLocal, both, or AlignNone).
    explicit VImageBlender(MultifocusMethod method = MultifocusMaxSharpness, bool alignByKeypoints = false,
                           bool stabilizeLocally = false);
    /// An empty blender merging by @p method with @p alignment.
    VImageBlender(MultifocusMethod method, Alignment alignment);
    /// An independent copy: its settings, shots, merge state, fits and last status, owning whatever the
    /// merges write.
    VImageBlender(const VImageBlender& other);
    /// Makes this blender an independent copy of @p other, as the copy constructor.
    VImageBlender& operator=(const VImageBlender& other);
    /// Releases the merge state; images handed out stay valid.
    ~VImageBlender();

    /// Starts a new series: discards every shot, result and fit (as clear()) and takes the new settings, the
    /// flags as in the constructor; whether fits are kept stays as set. Always true.
    bool init(MultifocusMethod method, bool alignByKeypoints, bool stabilizeLocally);
    /// As init(MultifocusMethod, bool, bool), with @p alignment.
    bool init(MultifocusMethod method, Alignment alignment);
    /// Adds one shot, aligned as set and merged by the method. The first shot initialises the blender and
    /// fixes the layout (size, format, channel type, origin and rows alignment) that later shots must have.
    /// Returns true when the shot was taken: count() grows by one, shotFits() gains its fit and lastStatus()
    /// is good. Returns false, with nothing changed and the reason in lastStatus(), for a shot the blender
    /// cannot take or a cancellation (see the group's **Failures**); a refused or cancelled first shot leaves
    /// the blender uninitialised. The image is copied or only read during the call.
    bool addImage(const VImage& image);
    /// The merged result so far; empty before the first shot. Computed here for MultifocusWeightedAll (on
    /// every call) and MultifocusDepthMap (once after each shot), kept as they stand for the other methods.
    /// Its layout is told at each MultifocusMethod value. Later shots never change an image handed out: the
    /// blender writes a copy, or a new image, instead. An empty image when MultifocusWeightedAll's averaging
    /// is cancelled, or when the depth map cannot be finished (for want of memory, say), with nothing
    /// changed and the reason in lastStatus(); a success puts back the last addImage()'s status there.
    VImage image();
    /// For MultifocusDepthMap: per pixel the index (0 for the first shot) of the shot that won its decision,
    /// the one sharpest there, from which its finest detail came (alone, or with the shots nearly as sharp
    /// that share it); indices past 65535 count as 65535. GrayScale 16u of the merged roi's size, with the
    /// first shot's origin; made when asked and kept until the next shot. Empty for the other methods and
    /// before the first shot; empty too, with the reason in lastStatus(), when it cannot be made (for want of
    /// memory). Otherwise it puts back the last addImage()'s status in lastStatus(), as image() does.
    VImage depthMap();
    /// Discards every shot, result and fit: the blender is uninitialised, count() is 0 and lastStatus() is
    /// good. The method, the alignment and whether fits are kept stay.
    void clear();

    /// The number of shots taken since the last init() or clear(); refused and cancelled shots do not count.
    int count() const { return count_; }
    /// The merging method.
    MultifocusMethod method() const { return method_; }
    /// The alignment: AlignAuto, or AlignNone, AlignKeypoints, AlignLocal or AlignKeypointsAndLocal as the
    /// keypoint and local flags are set.
    Alignment alignment() const;
    /// Whether a first shot has been taken.
    bool isInitialized() const { return initialized_; }
    /// Good after a shot was taken, and after init() and clear(); after a refusal or a cancellation, the
    /// failed status of addImage(): message "Reason: " followed by the text ("Operation cancelled" alone for
    /// a cancellation), VStatus::reason() the text. After an image() or depthMap() that could not give its
    /// image, that call's failed status; after one that did, the last addImage()'s again.
    VStatus lastStatus() const { return lastStatus_; }
    /// What the blender did with each shot taken, in order of the shots (ShotFit).
    QList<ShotFit> shotFits() const { return fits_; }

    /// Keeps each shot's fit, so that alignedShot() can give the shot as the merge read it, for the shots
    /// added after it is set; init() and clear() leave the setting as it is. Off by default, as fits cost
    /// memory: with AlignAuto, for each shot the local correction moved, a field of 2 bytes a pixel for
    /// shots whose longer side passes 1024 pixels, 8 bytes a pixel otherwise (next to nothing for a shot
    /// that was not moved locally, and without alignment).
    void setKeepShotFits(bool keep) { keepFits_ = keep; }
    /// Whether shot fits are kept for the shots added from now on.
    bool keepsShotFits() const { return keepFits_; }
    /// Shot number @p index (0 for the first), which must be the image given to addImage() for it, as the
    /// merge read it, into @p aligned (replaced). For the depth map: the shot's roi resampled by its fit
    /// (bicubic; uncovered pixels repeat the border's) and brought to the first shot's exposure by its gains
    /// (rounded and saturated), in image()'s format, channel type and size, so that a retouch copies its
    /// pixels into the result as they stand. For the other methods, which merge whole images whatever
    /// their rois: the whole shot resampled by its fit, uncovered pixels black, as in the merge, in the
    /// shot's own layout, and a shot the merge took as it stands (the first, and any not resampled) as a
    /// whole copy. Refused, with the reason: an
    /// invalid or empty shot ("Bad status of image!", "Empty source image!"), a null @p aligned ("Null
    /// pointer argument!"), a number not merged ("No shot of that number was merged"), a shot whose fit was
    /// not kept ("The shot's fit was not kept": added while keeping was off, or aligned by keypoints or
    /// locally, whose warps are not kept), and a shot of another layout, or for the depth map reading rois
    /// another roi size (the texts of addImage()).
    VStatus alignedShot(const VImage& shot, int index, VImage* aligned) const;

    /// Called within each addImage(), on its thread, once the shot's fit is found and before the shot is
    /// merged, with the fit that shotFits() will report for it (the first shot's is the default). A program
    /// that reads its shots from files may start reading the next one there when the shot is not
    /// resampled: the merge then holds no aligned copy of this one, so that the next file costs no more
    /// memory than a shot that moves. The function may read the blender (its const members) but must not
    /// change it; an exception it throws fails the addImage() with nothing changed. Null (the default)
    /// calls nothing. Copies of the blender call the same function; init() and clear() keep it.
    void setFitFound(std::function<void(const ShotFit&)> found) { fitFound_ = std::move(found); }

private:
    bool init(const VImage& image);
    bool add(const VImage& image);
    bool isIdentity(const VTransformPerspective& t) const;
    void averageAllPairs();
    void setViewStatus(const VStatus& status);
    void checkShape(const VImage& image) const;
    bool addToDepthMap(const VImage& shot, int index, bool alignedBlack);
    VImage autoAligned(const VImage& shot);
    void finishDepthMap();
    void keepFit(const VEXA::KeptShotFit& fit);
    // Copies own their pixels: the merges write the running images in place.
    void deepCopyFrom(const VImageBlender& other);

    bool initialized_ = false;
    VImage sharpness_;
    VImage result_;
    int count_ = 0;
    MultifocusMethod method_ = MultifocusMaxSharpness;
    bool alignByKeypoints_ = false;
    bool stabilizeLocally_ = false;
    // Whether image() has handed result_'s block out: the in-place merges then write a copy of it, so that
    // what a caller holds stays as it was.
    bool handedOut_ = false;
    VRasterPyramid pyramid_;
    QList<QPair<VImage, VImage>> pairs_;
    bool autoAlign_ = false;
    VImage depth_;
    std::shared_ptr<VEXA::FocusDepthMerge> depthMerge_;
    bool depthFinished_ = false;
    std::shared_ptr<VEXA::FocusAligner> aligner_; // AlignAuto for the other methods
    QList<ShotFit> fits_;
    std::function<void(const ShotFit&)> fitFound_;
    bool keepFits_ = false;
    QList<std::shared_ptr<const VEXA::KeptShotFit>> keptFits_; // one per shot; null where not kept
    VStatus lastStatus_;
    VStatus addStatus_;  // the last addImage()'s (Ok after init() and clear()), which image() puts back
    VImageHeader shape_; // the first shot's: a later shot must match it
    QSize roiSize_;      // the first shot's roi, clipped: the depth map's shots must have its size
    // MultifocusDepthMap keeps no running image: its shots are aligned to the first, held only when aligning.
    VImage reference_;
};

/// @}

namespace VEXA {

/// @addtogroup focus
/// @{

/// The maximum-sharpness merge of one image into a running result, in place. @p image and @p result are
/// XRGB 8u, @p imageSharpness and @p resultSharpness GrayScale 32f sharpness maps, all four with rois of one
/// size; @p result and @p resultSharpness must exist. Per pixel of the rois, in row order, the result pixel
/// (all four bytes) and its sharpness are replaced by the image's where the image's sharpness is not smaller
/// than the result's (ties, and a NaN on either side, go to the image) and no pixel of the image's 3 x 3
/// neighbourhood (clipped to the roi) is pure black (B = G = R = 0). Fails with "Null pointer argument!",
/// "Bad status of image!", "Empty source image!", "Can not find template with actual parameters!" (another
/// pair) or "Image sizes differ", writing nothing; checked for a cancellation before it starts, then runs
/// whole.
VEXA_EXPORT VStatus multifocusImages(const VImage& image, const VImage& imageSharpness, VImage* result,
                                     VImage* resultSharpness);
/// The weighted merge of one image into a running result, in place; images, checks and failures as
/// multifocusImages(). With L = (29 B + 150 G + 76 R) >> 8, per pixel of the rois: a result pixel of L < 3
/// becomes the image pixel (all four bytes); otherwise, where the image pixel has L > 3, red, green and blue
/// become bound8u((wi * image + wr * result) / (wi + wr)) (clamped to 0..255, truncated) with wi and wr the
/// image's and the result's sharpness, or the integer mean (result + image) >> 1 where |wi + wr| is 0; the
/// fourth byte stays. @p resultSharpness is then measured afresh on the merged result, contrastImage(*result,
/// resultSharpness, 1, 3), whose status is returned. Checked for a cancellation before it starts, then runs
/// whole.
VEXA_EXPORT VStatus multifocusImagesWeighted(const VImage& image, const VImage& imageSharpness, VImage* result,
                                             VImage* resultSharpness);

/// @}

} // namespace VEXA
