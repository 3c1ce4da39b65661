/// @file
/// @brief Camera calibration from chessboard views, and lens undistortion by its result (group
/// @ref calibration).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <QList>
#include <QPointF>
#include <QSize>
#include <QString>

/// @addtogroup calibration
/// Camera calibration from chessboard views, and lens undistortion by its result.
///
/// **Camera model:** OpenCV's pinhole camera with five distortion coefficients: a point (x, y) on the
/// normalized image plane (x = X / Z, y = Y / Z in the camera's frame), at r^2 = x^2 + y^2, is seen at
///
///     x' = x (1 + k1 r^2 + k2 r^4 + k3 r^6) + 2 p1 x y + p2 (r^2 + 2 x^2)
///     y' = y (1 + k1 r^2 + k2 r^4 + k3 r^6) + p1 (r^2 + 2 y^2) + 2 p2 x y
///
/// and lands on the pixel (fx x' + cx, fy y' + cy). Pixel coordinates are those of the roi, with (0, 0) the
/// centre of its first pixel, x to the right and y down whatever the image's origin.
///
/// **Pixel types:** findChessboardCorners() takes every format in 8u (YUV422 by its luma); undistortImage()
/// every format in 8u, 16u, 16s and 32f, those of the other warps (@ref pairs_calibration_image). Others
/// fail with "Can not find template with actual parameters!".
///
/// **Failures:** every operation checks its sources (status, then emptiness: "Bad status of image!",
/// "Empty source image!"), refuses pairs it does not list, null outputs ("Null pointer argument!"),
/// calibrations that are not VCameraCalibration::isValid() ("Invalid camera calibration") and points that
/// are not finite or lie beyond 2^24 pixels ("Points must be finite and within 2^24 pixels"), and reports
/// OpenCV's own errors as statuses. Lists and calibrations are written only on success. Each function's
/// own failures are told with it.
///
/// **Progress and cancellation** (VProgress): undistortImage() works in stripes of rows into a scratch image
/// and copies it into the destination only once complete, checking between bands of stripes and reporting
/// under "undistorting"; a cancelled call leaves the destination untouched. findChessboardCorners() is
/// checked before its search, calibrateCamera() between the views it reads, and the search and the fit
/// then run whole. A cancelled call returns "Operation cancelled".
///
/// **Threads:** reentrant; sources and calibrations may be read by several calls at once, and an output
/// must not be used by another thread during the call.
/// @{

/// A camera's intrinsic parameters: focal lengths and principal point in pixels, the five distortion
/// coefficients of the model (see the group @ref calibration), the image size they belong to and the rms
/// reprojection error of the fit that gave them (0 for one made by hand). A plain value, copied freely;
/// like the library's other V classes it lives outside the namespace.
class VEXA_EXPORT VCameraCalibration {
public:
    /// All zero with no image size: not valid, having no focal length.
    VCameraCalibration() = default; // not valid: no focal length
    /// The values as given, unchecked (isValid() says whether the operations take them). No @p imageSize
    /// (QSize(), the default, or 0 x 0) makes a calibration that applies to images of any size.
    VCameraCalibration(double fx, double fy, double cx, double cy, double k1 = 0.0, double k2 = 0.0, double p1 = 0.0,
                       double p2 = 0.0, double k3 = 0.0, QSize imageSize = QSize(), double rms = 0.0);

    /// The focal length along x, in pixels.
    double fx() const { return fx_; }
    /// The focal length along y, in pixels.
    double fy() const { return fy_; }
    /// The principal point's x, in pixels.
    double cx() const { return cx_; }
    /// The principal point's y, in pixels.
    double cy() const { return cy_; }
    /// The first radial distortion coefficient (of r^2).
    double k1() const { return k1_; }
    /// The second radial distortion coefficient (of r^4).
    double k2() const { return k2_; }
    /// The first tangential distortion coefficient.
    double p1() const { return p1_; }
    /// The second tangential distortion coefficient.
    double p2() const { return p2_; }
    /// The third radial distortion coefficient (of r^6).
    double k3() const { return k3_; }
    /// The five coefficients as k1, k2, p1, p2, k3: OpenCV's order.
    QList<double> distortion() const;
    /// The size of the images the calibration belongs to; empty for one that applies to any size.
    QSize imageSize() const { return imageSize_; }
    /// The root-mean-square reprojection error of the fit that gave the calibration, in pixels (0 for one
    /// made by hand).
    double rms() const { return rms_; }

    /// Finite values (the rms included), positive focal lengths and an image size that is none (QSize() or
    /// 0 x 0) or positive both ways: what undistortImage() and undistortPoints() accept.
    bool isValid() const;
    /// "fx=... fy=... cx=... cy=... k1=... k2=... p1=... p2=... k3=... size=WxH rms=...", the numbers with
    /// up to 10 significant digits (QSize() shows as -1x-1).
    QString toString() const;

    /// Every value equal, exactly.
    friend bool operator==(const VCameraCalibration& a, const VCameraCalibration& b)
    {
        return a.fx_ == b.fx_ && a.fy_ == b.fy_ && a.cx_ == b.cx_ && a.cy_ == b.cy_ && a.k1_ == b.k1_ &&
               a.k2_ == b.k2_ && a.p1_ == b.p1_ && a.p2_ == b.p2_ && a.k3_ == b.k3_ && a.imageSize_ == b.imageSize_ &&
               a.rms_ == b.rms_;
    }
    /// Some value differs.
    friend bool operator!=(const VCameraCalibration& a, const VCameraCalibration& b) { return !(a == b); }

private:
    double fx_ = 0.0, fy_ = 0.0, cx_ = 0.0, cy_ = 0.0;
    double k1_ = 0.0, k2_ = 0.0, p1_ = 0.0, p2_ = 0.0, k3_ = 0.0;
    QSize imageSize_;
    double rms_ = 0.0;
};

/// @}

namespace VEXA {

/// @addtogroup calibration
/// @{

/// The inner corners of a chessboard of @p patternSize inner corners (width along the board's rows, 3 to
/// 1024 each way: "Pattern size must be 3 to 1024 inner corners each way") in @p src, into @p corners,
/// refined to sub-pixel precision by cornerSubPix on a gray copy of the roi, with a window reaching up to 11
/// pixels each way from the corner and no further than 40% of the distance between neighbouring corners.
/// Corners come row by row of the board, patternSize.width() per row, the order calibrateCamera()
/// expects. @p src: every format in 8u (YUV422 by its luma). A roi under 4 pixels per square of the board's
/// short side (16 pixels for 3 inner corners) cannot show it: not found. A board that is not found is an
/// answer, not a failure, when @p found is given: *found false, corners cleared, a good status. Without
/// @p found (null) a board not found fails ("Chessboard not found"), so that the caller cannot take an
/// empty list for a result.
VEXA_EXPORT VStatus findChessboardCorners(const VImage& src, QSize patternSize, QList<QPointF>* corners,
                                          bool* found = nullptr);
/// The camera, into @p result, from at least 3 views of one planar board of @p patternSize inner corners
/// (3 to 1024 each way) spaced @p squareSize apart (positive, at most 2^24, in any unit; it sets the unit
/// of nothing returned here). Each view of @p imagePoints lists its patternSize.width() *
/// patternSize.height() corners in the order findChessboardCorners() gives, as pixel coordinates of images
/// of @p imageSize (1 to 2^24 pixels each way). Fits fx, fy, cx, cy, k1, k2, p1, p2 and k3 (no skew) by
/// OpenCV's calibrateCamera; the result carries @p imageSize and the root-mean-square reprojection error in
/// pixels. Fails with "Pattern size must be 3 to 1024 inner corners each way", "Square size must be
/// positive and finite", "Image size must be 1 to 2^24 pixels each way", "At least 3 views are needed",
/// "Every view must hold the pattern's number of corners", "Calibration failed" (a fit that gives no valid
/// camera) and "Calibration failed: the views do not determine the camera" (one pose repeated, say: a
/// standard deviation of fx or fy, as OpenCV estimates it, over 2% of the value, or one for any of the nine
/// parameters that is not a number).
VEXA_EXPORT VStatus calibrateCamera(const QList<QList<QPointF>>& imagePoints, QSize patternSize, double squareSize,
                                    QSize imageSize, VCameraCalibration* result);
/// The image as the distortion-free camera with the same fx, fy, cx, cy would have taken it, into @p dst:
/// each destination pixel is read, bilinear, from where the lens put it; pixels mapping outside the source
/// become 0. @p dst has @p src's format and channel type and a roi of @p src's roi size (an empty @p dst is
/// made like the source; another pair fails with "Can not find template with actual parameters!", another
/// roi size with "Image sizes differ"); the roi size must be the calibration's image size unless that is
/// empty ("Image size differs from the calibration's": a calibration made by hand applies to any size).
/// Pairs: every format in 8u, 16u, 16s, 32f (those of the other warps). @p src and @p dst may be one image.
VEXA_EXPORT VStatus undistortImage(const VImage& src, VImage* dst, const VCameraCalibration& calibration);
/// As undistortImage(const VImage&, VImage*, const VCameraCalibration&), with the new camera chosen by
/// OpenCV's getOptimalNewCameraMatrix for the roi's size: @p alpha 0 keeps only valid pixels (the image is
/// enlarged until no border shows), 1 keeps every source pixel (black borders show); values between blend
/// the two, others fail ("Alpha must be from 0 to 1"). @p newCamera (may be null) receives that camera,
/// without distortion, with the calibration's image size and rms 0, for mapping coordinates; a chosen
/// camera that is not valid fails ("No undistorted camera for this calibration").
VEXA_EXPORT VStatus undistortImage(const VImage& src, VImage* dst, const VCameraCalibration& calibration, double alpha,
                                   VCameraCalibration* newCamera = nullptr);
/// Where @p points of the distorted image lie in the undistorted one of the first undistortImage() overload
/// (same fx, fy, cx, cy), by OpenCV's iterative inversion of the model (at most 100 iterations, to 1e-6),
/// into @p result. An empty list gives an empty list.
VEXA_EXPORT VStatus undistortPoints(const QList<QPointF>& points, QList<QPointF>* result,
                                    const VCameraCalibration& calibration);

/// @}

} // namespace VEXA
