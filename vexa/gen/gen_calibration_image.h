// Camera calibration from chessboard views, and lens undistortion by its result.
//
// The camera model is OpenCV's pinhole camera with five distortion coefficients: a point (x, y) on the
// normalized image plane (x = X / Z, y = Y / Z in the camera's frame), at r^2 = x^2 + y^2, is seen at
//   x' = x (1 + k1 r^2 + k2 r^4 + k3 r^6) + 2 p1 x y + p2 (r^2 + 2 x^2)
//   y' = y (1 + k1 r^2 + k2 r^4 + k3 r^6) + p1 (r^2 + 2 y^2) + 2 p2 x y
// and lands on the pixel (fx x' + cx, fy y' + cy). Pixel coordinates are those of the roi, with (0, 0) the
// centre of its first pixel, x to the right and y down whatever the image's origin.
//
// Every operation checks its sources (status, then emptiness), refuses pairs it does not list ("Can not
// find template with actual parameters!"), null outputs ("Null pointer argument!") and reports OpenCV's own
// errors as statuses.
//
// - findChessboardCorners(src, patternSize, corners, found): the inner corners of a chessboard of patternSize inner
//   corners (width along the board's rows, 3 to 1024 each way), refined to sub-pixel precision by cornerSubPix on a
//   gray copy of the roi, with a window reaching up to 11 pixels each way from the corner and no further than 40% of
//   the distance between neighbouring corners. Corners come row by row of the board, patternSize.width() per row, the
//   order calibrateCamera expects. src: every format in 8u (YUV422 by its luma). A roi under 4 pixels per square of the
//   board's short side (16 pixels for 3 inner corners) cannot show it: not found. A board that is not found is an
//   answer, not a failure when `found` is given: *found false, corners cleared, a good status. Without `found` (null) a
//   board not found fails ("Chessboard not found"), so that the caller cannot take an empty list for a result.
// - calibrateCamera(imagePoints, patternSize, squareSize, imageSize, result): the camera from at least 3 views of
//   one planar board of patternSize inner corners spaced squareSize apart (any unit; it sets the unit of nothing
//   returned here). Each view lists its patternSize.width() * patternSize.height() corners in the order
//   findChessboardCorners gives, as pixel coordinates of images of imageSize (1 to 2^24 pixels each way; points
//   finite and within 2^24 pixels). Fits fx, fy, cx, cy, k1, k2, p1, p2 and k3 (no skew) by OpenCV's
//   calibrateCamera; the result carries the root-mean-square reprojection error in pixels. A fit that gives no
//   finite camera fails ("Calibration failed"), and so do views that do not determine the camera (one pose
//   repeated, say): a standard deviation of fx or fy, as OpenCV estimates it, over 2% of the value, or one for any of
//   the nine parameters that is not a number. Views are checked between one another for a cancellation; the fit
//   itself runs whole.
// - undistortImage(src, dst, calibration): the image as the distortion-free camera with the same fx, fy,
//   cx, cy would have taken it: each destination pixel is read, bilinear, from where the lens put it;
//   pixels mapping outside the source become 0. dst has src's format and channel type and a roi of src's
//   roi size (an empty dst is made like the source); the roi size must be the calibration's image size
//   unless that is empty (a calibration made by hand applies to any size). Pairs: every format in 8u, 16u,
//   16s, 32f (those of the other warps). src and dst may be one image.
// - undistortImage(src, dst, calibration, alpha, newCamera): as above with the new camera chosen by
//   OpenCV's getOptimalNewCameraMatrix: alpha 0 keeps only valid pixels (the image is enlarged until no
//   border shows), alpha 1 keeps every source pixel (black borders show); values between blend the two.
//   newCamera (may be null) receives that camera, without distortion, for mapping coordinates.
// - undistortPoints(points, result, calibration): where points of the distorted image lie in the
//   undistorted one of the first overload (same fx, fy, cx, cy), by OpenCV's iterative inversion of the
//   model. Points finite and within 2^24 pixels; an empty list gives an empty list.
//
// Progress and cancellation (VProgress): undistortImage works in stripes of rows into a scratch image and
// copies it into dst only once complete, checking between stripes; a cancelled call leaves dst untouched.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <QList>
#include <QPointF>
#include <QSize>
#include <QString>

// A camera's intrinsic parameters: focal lengths and principal point in pixels, the five distortion
// coefficients of the model above, the image size they belong to and the rms reprojection error of the fit
// that gave them (0 for one made by hand). A plain value; like the library's other V classes it lives
// outside the namespace.
class VEXA_EXPORT VCameraCalibration {
public:
    VCameraCalibration() = default; // not valid: no focal length
    VCameraCalibration(double fx, double fy, double cx, double cy, double k1 = 0.0, double k2 = 0.0, double p1 = 0.0,
                       double p2 = 0.0, double k3 = 0.0, QSize imageSize = QSize(), double rms = 0.0);

    double fx() const { return fx_; }
    double fy() const { return fy_; }
    double cx() const { return cx_; }
    double cy() const { return cy_; }
    double k1() const { return k1_; }
    double k2() const { return k2_; }
    double p1() const { return p1_; }
    double p2() const { return p2_; }
    double k3() const { return k3_; }
    // k1, k2, p1, p2, k3: OpenCV's order.
    QList<double> distortion() const;
    QSize imageSize() const { return imageSize_; }
    double rms() const { return rms_; }

    // Finite values, positive focal lengths and an image size that is empty or positive both ways: what
    // undistortImage accepts.
    bool isValid() const;
    // "fx=... fy=... cx=... cy=... k1=... k2=... p1=... p2=... k3=... size=WxH rms=...".
    QString toString() const;

    // Every value equal, exactly.
    friend bool operator==(const VCameraCalibration& a, const VCameraCalibration& b)
    {
        return a.fx_ == b.fx_ && a.fy_ == b.fy_ && a.cx_ == b.cx_ && a.cy_ == b.cy_ && a.k1_ == b.k1_ &&
               a.k2_ == b.k2_ && a.p1_ == b.p1_ && a.p2_ == b.p2_ && a.k3_ == b.k3_ && a.imageSize_ == b.imageSize_ &&
               a.rms_ == b.rms_;
    }
    friend bool operator!=(const VCameraCalibration& a, const VCameraCalibration& b) { return !(a == b); }

private:
    double fx_ = 0.0, fy_ = 0.0, cx_ = 0.0, cy_ = 0.0;
    double k1_ = 0.0, k2_ = 0.0, p1_ = 0.0, p2_ = 0.0, k3_ = 0.0;
    QSize imageSize_;
    double rms_ = 0.0;
};

namespace VEXA {

VEXA_EXPORT VStatus findChessboardCorners(const VImage& src, QSize patternSize, QList<QPointF>* corners,
                                          bool* found = nullptr);
VEXA_EXPORT VStatus calibrateCamera(const QList<QList<QPointF>>& imagePoints, QSize patternSize, double squareSize,
                                    QSize imageSize, VCameraCalibration* result);
VEXA_EXPORT VStatus undistortImage(const VImage& src, VImage* dst, const VCameraCalibration& calibration);
VEXA_EXPORT VStatus undistortImage(const VImage& src, VImage* dst, const VCameraCalibration& calibration, double alpha,
                                   VCameraCalibration* newCamera = nullptr);
VEXA_EXPORT VStatus undistortPoints(const QList<QPointF>& points, QList<QPointF>* result,
                                    const VCameraCalibration& calibration);

} // namespace VEXA
