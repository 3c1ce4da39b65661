/// @file
/// @brief The Laplacian-style image pyramid that focus stacking merges (group @ref focus).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <QDataStream>
#include <QList>

/// @addtogroup focus
/// @{

/// A Laplacian-style pyramid of an image: BGR 8u levels, each the previous one smoothed and shrunk by the
/// factor, and signed 16-bit details, each a level minus its coarser neighbour expanded back. Restoring adds
/// the details back from the coarsest level down, so an untouched pyramid gives its image again exactly.
/// Focus stacking (VImageBlender::MultifocusPyramid) merges the pyramids of its shots by keeping,
/// coefficient by coefficient, the one of larger magnitude.
///
/// **Shape:** the factor is 2, resizing is bicubic (resizeImage() with InterpolationCubic) and each level is
/// smoothed by smoothGaussian() of size 5 (5 x 5) before it is reduced; a level of w x h gives one of
/// (w / 2) x (h / 2), truncated. Built with as many levels as the size allows, the levels stop growing when
/// the next one would be 31 pixels or less on either side: a 60 x 60 image has one level, 64 x 64 two (64 and
/// 32), 128 x 128 three; there is then one detail fewer than levels. The pyramid covers the whole image,
/// whatever its region of interest, so that the levels of shots with different rois still line up.
///
/// **Values:** the image goes through VImage::convert() to BGR 8u, a plain numeric conversion (meant for 8u
/// images; GrayScale and ARGB have no such conversion, and an image that cannot be converted gives a single
/// empty level). Details are the level as 16s minus the expanded coarser level as 16s. Restoring converts
/// each sum back to 8u the same plain way: after a merge, sums outside 0..255 wrap around to their low
/// byte, they are not clamped.
///
/// **Value semantics:** copies own their pixels (the merges write levels and details in place); a move
/// takes the other's images over. The interpolation, factor and kernel size are fixed.
///
/// **Failures** are kept in status(), not returned (init() returns true always), and are logged where they
/// happen: "Can't convert a pyramid level to 16 bits", "Operation cancelled", and unexpected errors such as
/// a lack of memory. The inner operations (smoothing, resizing, arithmetic) log their own failures, which
/// status() does not keep.
///
/// **Progress and cancellation** (VProgress): init() reports under "building the pyramid" and restore()
/// under "restoring the pyramid", each level taking its share of the work (the finest three quarters). Both
/// build aside: a cancelled call leaves the levels and details as they were, with "Operation cancelled" in
/// status(). takeMostSharpness() checks between images and is left half merged when cancelled.
///
/// **Threads:** one pyramid must not be used by two threads at once unless all of them only call const
/// members; different pyramids, and copies, may be used on any threads at once.
class VEXA_EXPORT VRasterPyramid {
public:
    /// An empty pyramid (no levels, good status), with factor 2, bicubic resizing and a 5-pixel Gaussian
    /// before each reduction.
    VRasterPyramid(); // empty; factor 2, bicubic resizing, a 5-pixel Gaussian before each reduction
    /// A copy that owns its pixels: deep copies of other's levels and details, and its status.
    VRasterPyramid(const VRasterPyramid& other);
    /// As the copy constructor: this pyramid's images are replaced by deep copies of other's.
    VRasterPyramid& operator=(const VRasterPyramid& other);
    /// Takes other's levels, details and status over; other is left valid, its contents not to be relied on.
    VRasterPyramid(VRasterPyramid&& other) noexcept;
    /// Takes other's levels, details and status over; other is left valid, its contents not to be relied on.
    VRasterPyramid& operator=(VRasterPyramid&& other) noexcept;
    /// Releases the levels and details.
    virtual ~VRasterPyramid();

    /// Rebuilds the pyramid of @p image (see the class description for the shape and the values) and
    /// first resets status() to good. A negative @p levels gives as many levels as the size allows; a count
    /// n of 0 or more stops once n + 1 details are made (sooner where the size ends it first): the pyramid
    /// then holds n + 1 levels and n + 1 details, the last detail relative to a level that is not kept, which
    /// restore() does not read. Always returns true: a failure shows in status() and the log. A level that
    /// cannot be converted to 16 bits keeps the levels and details built so far ("Can't convert a pyramid
    /// level to 16 bits"); any other failure, a cancellation included, leaves the pyramid as it was.
    bool init(const VImage& image, int levels);
    /// Removes every level and detail; status() is kept.
    void clear();
    /// Rebuilds every finer level from the coarsest one and the details, the full-size level last: each
    /// level becomes the coarser one expanded bicubically to its size, plus its detail, converted to 8u as
    /// the class description says. An untouched pyramid gives its levels again exactly. On failure or
    /// cancellation the levels stay as they were, with the reason in status().
    void restore();
    /// Keeps, per component, the coefficient of larger magnitude of this pyramid's and @p other's
    /// coarsest level and of each pair of details (combineImagesMaxAbs(): ties keep this pyramid's). A null
    /// @p other, one with another number of levels, and an empty pyramid change nothing. Runs whole; the
    /// inner calls' failures are logged, not kept in status().
    void combineMostSharpness(VRasterPyramid* other);
    /// What combineMostSharpness(this) would leave in @p kept, written into this pyramid instead: per
    /// component, kept's unless this one's is larger in magnitude (ties take kept's). So a merge can be
    /// built aside and taken whole. Returns true, changing nothing, when @p kept has another number of
    /// levels, when either pyramid is empty, or when a level or detail differs in size, layout or roi.
    /// Returns false, with the reason in status() and this pyramid unusable (partly merged), when cancelled
    /// (checked before each level and detail) or when a pair fails.
    bool takeMostSharpness(const VRasterPyramid& kept);
    /// The full-size level (the first) as XRGB 8u through VImage::convert(); an empty image without
    /// levels. Not restored first: call restore() after a merge.
    VImage image() const;
    /// Good, or the last failure of init(), restore() or takeMostSharpness() (init() resets it first).
    VStatus status() const;

    /// The levels, full size first, each BGR 8u covering its whole image.
    const QList<VImage>& levels() const { return levels_; }
    /// The details, finest first: details()[k] is levels()[k] minus the next coarser level expanded back,
    /// BGR 16s of level k's size.
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

/// Writes the level count and the detail count (32-bit integers), then every level and every detail as
/// images stream themselves (operator<<(QDataStream&, const VImage&)). Neither the status nor the fixed
/// shape settings are written.
VEXA_EXPORT QDataStream& operator<<(QDataStream& stream, const VRasterPyramid& pyramid);
/// Reads what operator<<() writes into @p pyramid, after clearing its levels and details (its status is
/// kept). Counts that are negative or above 64 set the stream's status to QDataStream::ReadCorruptData and
/// leave the pyramid empty; a stream that fails part way also leaves it empty.
VEXA_EXPORT QDataStream& operator>>(QDataStream& stream, VRasterPyramid& pyramid);

/// @}
