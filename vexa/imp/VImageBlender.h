// Focus stacking: shots of one scene, each sharp at another depth, merged one by one into an image sharp
// everywhere.
//
// Methods:
// - MultifocusPyramid: the shots' pyramids (VRasterPyramid) merged coefficient by coefficient, the larger
//   magnitude winning;
// - MultifocusMaxSharpness (the default): per pixel, the sharpest shot so far wins (multifocusImages);
// - MultifocusWeighted: a running average weighted by sharpness (multifocusImagesWeighted);
// - MultifocusWeightedAll: every shot kept with its sharpness map, averaged over all of them by image();
// - MultifocusDepthMap: made for real series (hand-held, JPEG, drifting exposure), in the shots' own depth:
//   every shot is brought to the first shot's exposure and white balance (a gain per channel) and, with
//   AlignAuto, to its geometry (breathing, shake and parallax: see imp/focus_align.h); its sharpness is
//   scored at three scales, so that where no shot is sharp the choice follows the depths decided around
//   it; each pixel's finest detail comes from the one sharpest shot (shots nearly as sharp as each other
//   are averaged, which lowers the noise), and a Laplacian pyramid blend of that decision hides seams and
//   exposure residue at the coarser scales (imp/focus_merge.h). GrayScale, BGR,
//   XRGB and ARGB shots of 8u, 16u or 32f merge at their depth with no 8-bit step: gray gives GrayScale,
//   colour gives XRGB, of the shots' channel type; other shots are merged in XRGB 8u, as the same
//   picture (convertScaled). The index of the shot each pixel came from is readable as a depth map.
//   The running state is 16 bytes a pixel in colour (11 in gray) whatever the stack's length.
// Sharpness maps are GrayScale 32f maps of the shot's size, contrastImage(shot, &map, 1, 3).
//
// image() hands out the merge so far; later shots never change an image handed out.
//
// Progress and cancellation: with a VProgress current on the calling thread, addImage() reports the
// shot's fraction (aligning, measuring, merging) and, once cancel() is called, returns false with the
// blender exactly as it was before the shot: every method measures and aligns the shot aside, checked
// between bands of rows, and then changes its state in one short step that is not interrupted (on 12 MP
// about 15 ms for the maximum-sharpness merge, 32 ms for the depth map's). The alignments' own searches
// (keypoints, local stabilization) are single calls of a few tenths of a second, checked before and after. A cancelled first shot leaves the
// blender uninitialised. image() and depthMap() of a cancelled computation return an empty image and
// change nothing.
//
// The first shot initialises the blender; a later shot of another size or format is refused (addImage
// returns false and nothing changes), and lastStatus() says why. The first shot is the reference of every
// alignment. AlignAuto (setAlignment) fits each shot to the one before it, chained to the first, with a
// global affine fit refined by a smooth local correction; a shot that does not move is never resampled,
// and one that cannot be fitted is refused with its reason. For the methods other than the depth map its
// uncovered pixels are black, and so stay out of the merge. With alignByKeypoints each shot is first warped onto the running
// result by the homography between their keypoints; with stabilizeLocally it is then lined up by
// stabilizeLocal. Pixels that alignment leaves black carry no data: they never enter the result.
//
// - multifocusImages(image, imageSharpness, result, resultSharpness): XRGB 8u images and GrayScale 32f
//   maps of one size; per pixel, in row order, the result pixel (all four bytes) and its sharpness are
//   replaced by the image's where the image's sharpness is not smaller (ties go to the image) and no pixel
//   of the image's 3 x 3 neighbourhood (clipped to the image) is pure black (B = G = R = 0).
// - multifocusImagesWeighted(image, imageSharpness, result, resultSharpness): with L = (29 B + 150 G +
//   76 R) >> 8: a result pixel of L < 3 becomes the image pixel; otherwise, where the image pixel has
//   L > 3, red, green and blue become bound8u((wi * image + wr * result) / (wi + wr)) with the two
//   sharpnesses as weights, or the integer mean (result + image) >> 1 when |wi + wr| is 0. The sharpness
//   map keeps the larger of the two, and is then measured afresh on the merged result.
// Both merge in place: checked for a cancellation before they start, they then run whole.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/VRasterPyramid.h>
#include <vexa/imp/VTransform.h>
#include <vexa/vexa_export.h>

#include <QList>
#include <QPair>
#include <QTransform>

#include <memory>

namespace VEXA {
class FocusAligner;
class FocusDepthMerge;
struct KeptShotFit;
} // namespace VEXA

class VEXA_EXPORT VImageBlender {
public:
    enum MultifocusMethod : int {
        MultifocusPyramid = 0,
        MultifocusMaxSharpness = 1,
        MultifocusWeighted = 2,
        MultifocusWeightedAll = 3,
        MultifocusDepthMap = 4,
    };

    // How shots are lined up with the first before they are merged.
    enum Alignment : int {
        AlignNone = 0,
        AlignKeypoints = 1,         // alignByKeypoints
        AlignLocal = 2,             // stabilizeLocally
        AlignKeypointsAndLocal = 3, // both
        AlignAuto = 4,              // breathing, shake and parallax, exposure-blind (see above)
    };

    // What the blender did with a shot it took, in order of the shots.
    struct ShotFit {
        double gains[3] = {1.0, 1.0, 1.0}; // blue, green, red: into the first shot's exposure (depth map)
        QTransform transform;              // the global fit, first shot's pixels to this shot's (AlignAuto)
        double localShift = 0.0;           // the largest local correction on top of it, in pixels
        bool resampled = false;            // false for a shot taken as it stands
    };

    explicit VImageBlender(MultifocusMethod method = MultifocusMaxSharpness, bool alignByKeypoints = false,
                           bool stabilizeLocally = false);
    VImageBlender(MultifocusMethod method, Alignment alignment);
    VImageBlender(const VImageBlender& other);
    VImageBlender& operator=(const VImageBlender& other);
    ~VImageBlender();

    // Discards everything and takes new settings; always true.
    bool init(MultifocusMethod method, bool alignByKeypoints, bool stabilizeLocally);
    bool init(MultifocusMethod method, Alignment alignment);
    // Adds one shot; false, with nothing changed, for a shot the blender cannot take.
    bool addImage(const VImage& image);
    // The merged result so far (computed here for MultifocusWeightedAll and MultifocusDepthMap).
    VImage image();
    // For MultifocusDepthMap: the index (0 for the first shot) of the shot each pixel's finest detail came
    // from, GrayScale 16u; empty for the other methods.
    VImage depthMap();
    void clear();

    int count() const { return count_; }
    MultifocusMethod method() const { return method_; }
    Alignment alignment() const;
    bool isInitialized() const { return initialized_; }
    // Ok after a shot was taken; after a refusal or a cancellation, the reason ("Reason: ...").
    VStatus lastStatus() const { return lastStatus_; }
    QList<ShotFit> shotFits() const { return fits_; }

    // Keeps each shot's fit, so that alignedShot() can give the shot as the merge read it, for the shots
    // added after it is set. Off by default, as fits cost memory: with AlignAuto, 2 bytes a pixel for each
    // shot the local correction moved (none for one that did not move, nor without alignment).
    void setKeepShotFits(bool keep) { keepFits_ = keep; }
    bool keepsShotFits() const { return keepFits_; }
    // Shot number `index` (0 for the first), which must be the image given to addImage() for it, as the
    // merge read it: resampled by its fit (uncovered pixels repeat the border's for the depth map, black
    // for the others, as in the merge) and, for the depth map, brought to the first shot's exposure by its
    // gains; in image()'s format and channel type, so that a retouch copies its pixels into the result
    // as they stand. Refused, with the reason, for a shot of another layout, a number not merged, and a shot
    // whose fit was not kept: added while keeping was off, or aligned by keypoints or locally (those
    // warps are not kept).
    VStatus alignedShot(const VImage& shot, int index, VImage* aligned) const;

private:
    bool init(const VImage& image);
    bool add(const VImage& image);
    bool isIdentity(const VTransformPerspective& t) const;
    bool averageAllPairs();
    bool addToDepthMap(const VImage& shot, int index, bool alignedBlack);
    VImage autoAligned(const VImage& shot);
    bool finishDepthMap();
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
    bool keepFits_ = false;
    QList<std::shared_ptr<const VEXA::KeptShotFit>> keptFits_; // one per shot; null where not kept
    VStatus lastStatus_;
    VImageHeader shape_; // the first shot's: a later shot must match it
    // MultifocusDepthMap keeps no running image: its shots are aligned to the first, held only when aligning.
    VImage reference_;
};

namespace VEXA {

VEXA_EXPORT VStatus multifocusImages(const VImage& image, const VImage& imageSharpness, VImage* result,
                                     VImage* resultSharpness);
VEXA_EXPORT VStatus multifocusImagesWeighted(const VImage& image, const VImage& imageSharpness, VImage* result,
                                             VImage* resultSharpness);

} // namespace VEXA
