// A Laplacian-style pyramid of an image: BGR 8u levels, each the previous one smoothed and shrunk by the
// factor, and signed 16-bit details, each a level minus its coarser neighbour expanded back. Restoring
// adds the details back from the coarsest level down, so an untouched pyramid gives its image again
// exactly. Focus stacking merges the pyramids of its shots by keeping, coefficient by coefficient, the one
// of larger magnitude.
//
// Levels stop growing when the next one would be 31 pixels or less on a side: a 60 x 60 image has one
// level, 64 x 64 two (64, 32), 128 x 128 three.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <QDataStream>
#include <QList>

class VEXA_EXPORT VRasterPyramid {
public:
    VRasterPyramid(); // empty; factor 2, bicubic resizing, a 5-pixel Gaussian before each reduction
    VRasterPyramid(const VRasterPyramid& other);
    VRasterPyramid& operator=(const VRasterPyramid& other);
    VRasterPyramid(VRasterPyramid&& other) noexcept;
    VRasterPyramid& operator=(VRasterPyramid&& other) noexcept;
    virtual ~VRasterPyramid();

    // Rebuilds the pyramid of image; levels -1 means as many as its size allows. Always true: a failure
    // shows in status() and the log, and leaves the levels built so far. Cancelled through the caller's
    // VProgress, it leaves the pyramid as it was, with the cancellation in status().
    bool init(const VImage& image, int levels);
    void clear();
    // Rebuilds the full-size level from the coarsest one and the details. Cancelled, it leaves the levels
    // as they were, with the cancellation in status().
    void restore();
    // Keeps, per pixel, the coefficient of larger magnitude of this pyramid's and other's coarsest level
    // and details; a pyramid of another depth (or null) is ignored.
    void combineMostSharpness(VRasterPyramid* other);
    // What combineMostSharpness(this) would leave in `kept`, written into this pyramid instead: per
    // coefficient, kept's unless this one's is larger in magnitude. Lets a merge be built aside and
    // taken whole. False, with this pyramid unusable, when cancelled; a pyramid of another depth is ignored.
    bool takeMostSharpness(const VRasterPyramid& kept);
    // The full-size level as XRGB 8u; empty without levels.
    VImage image() const;
    VStatus status() const;

    const QList<VImage>& levels() const { return levels_; }
    const QList<VImage>& details() const { return details_; }

private:
    void downSample(const VImage& image, int levels, QList<VImage>& levels_, QList<VImage>& details_);
    void upSample(int level);

    QList<VImage> levels_;
    QList<VImage> details_;
    int factor_ = 2;
    VEXA::InterpolationMethod interpolation_ = VEXA::InterpolationCubic;
    int kernelSize_ = 5;
    VStatus status_;

    friend VEXA_EXPORT QDataStream& operator<<(QDataStream& stream, const VRasterPyramid& pyramid);
    friend VEXA_EXPORT QDataStream& operator>>(QDataStream& stream, VRasterPyramid& pyramid);
};

// The level count, the detail count, then every level and every detail as images stream themselves.
VEXA_EXPORT QDataStream& operator<<(QDataStream& stream, const VRasterPyramid& pyramid);
VEXA_EXPORT QDataStream& operator>>(QDataStream& stream, VRasterPyramid& pyramid);
