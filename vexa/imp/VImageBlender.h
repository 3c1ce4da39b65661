// Focus stacking: shots of one scene, each sharp at another depth, merged one by one into an image sharp
// everywhere.
//
// Methods:
// - MultifocusPyramid: the shots' pyramids (VRasterPyramid) merged coefficient by coefficient, the larger
//   magnitude winning;
// - MultifocusMaxSharpness (the default): per pixel, the sharpest shot so far wins (multifocusImages);
// - MultifocusWeighted: a running average weighted by sharpness (multifocusImagesWeighted);
// - MultifocusWeightedAll: every shot kept with its sharpness map, averaged over all of them by image();
// - MultifocusDepthMap: per pixel selection by a sharpness smoothed over a neighbourhood, made consistent
//   and blended across seams, with the index of the chosen shot readable as a depth map. Its running state
//   is 12 bytes a pixel whatever the stack's length, plus 2 for the current shot's scores; without
//   alignment it copies no shot, and its sharpness is measured in bands of rows, so a merge holds the state
//   and the caller's current shot, no more.
//   Shots of another layout are merged in XRGB 8u; pixels no shot has data for come out black.
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
// returns false and nothing changes). With alignByKeypoints each shot is first warped onto the running
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

#include <opencv2/core.hpp>

class VEXA_EXPORT VImageBlender {
public:
    enum MultifocusMethod : int {
        MultifocusPyramid = 0,
        MultifocusMaxSharpness = 1,
        MultifocusWeighted = 2,
        MultifocusWeightedAll = 3,
        MultifocusDepthMap = 4,
    };

    explicit VImageBlender(MultifocusMethod method = MultifocusMaxSharpness, bool alignByKeypoints = false,
                           bool stabilizeLocally = false);
    VImageBlender(const VImageBlender& other);
    VImageBlender& operator=(const VImageBlender& other);
    ~VImageBlender();

    // Discards everything and takes new settings; always true.
    bool init(MultifocusMethod method, bool alignByKeypoints, bool stabilizeLocally);
    // Adds one shot; false, with nothing changed, for a shot the blender cannot take.
    bool addImage(const VImage& image);
    // The merged result so far (computed here for MultifocusWeightedAll and MultifocusDepthMap).
    VImage image();
    // For MultifocusDepthMap: the index (0 for the first shot) of the shot each pixel came from, GrayScale
    // 16u; empty for the other methods.
    VImage depthMap();
    void clear();

    int count() const { return count_; }
    MultifocusMethod method() const { return method_; }
    bool isInitialized() const { return initialized_; }

private:
    // The running state of MultifocusDepthMap, 12 bytes a pixel whatever the stack's length: per pixel, the
    // weighted mean colour so far, the sum of its weights, the largest smoothed sharpness so far (the
    // weights are relative to it) and the index of the shot that had it.
    struct DepthState {
        VImage mean;    // BGR 16u, in 256ths of a level
        VImage weights; // GrayScale 16u, in 1024ths
        VImage best;    // GrayScale 32f
        VImage index;   // GrayScale 16u
        bool finished = false;
        cv::Mat scores; // a shot's smoothed sharpness in half precision, measured before any state changes
    };
    bool init(const VImage& image);
    bool add(const VImage& image);
    bool isIdentity(const VTransformPerspective& t) const;
    bool averageAllPairs();
    bool addToDepthMap(const VImage& shot, int index);
    void finishDepthMap();
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
    VImage depth_;
    DepthState depthState_;
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
