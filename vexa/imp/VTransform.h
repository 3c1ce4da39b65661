/// @file
/// @brief Plane transformations as 3 x 3 matrices, and the homographies found from points (group @ref figures).
#pragma once

#include <QDataStream>
#include <QList>
#include <QPair>
#include <QPointF>
#include <QSize>
#include <QTransform>

#include <vlog/VLog.h>
#include <vexa/vexa_export.h>

#include <opencv2/core/mat.hpp>

class VPolyPoint;
class VRectBase;

/// @addtogroup figures
/// **Transforms** (VTransform, VTransform2D, VTransformPerspective): plane transformations as a 3 x 3
/// matrix, between Qt's QTransform, OpenCV's matrices and plain arrays.
///
/// The matrix m[row][col] is kept in QTransform's row-vector convention: (x, y) maps to
/// x' = m00 x + m10 y + m20, y' = m01 x + m11 y + m21, divided by w = m02 x + m12 y + m22; in QTransform's
/// names m = (m11 m12 m13 / m21 m22 m23 / dx dy m33). OpenCV's matrices are the transpose (column vectors).
/// VTransform2D marks an affine transform, VTransformPerspective a projective one; they differ only in type.
///
/// No member throws: indices outside rows() x cols() are ignored on write and read as 0.0, null arrays are
/// ignored.
///
/// **Status:** each transform carries a status, good unless a function that found it failed
/// (findPerspectiveTransformationByPoints(), findPerspectiveTransformation()). Copies take the matrix only:
/// a copy constructed from a transform has a good status, and assignment keeps the target's own status.
/// Keep a found transform by initialisation (`auto t = findPerspectiveTransformation(...)`) to keep its
/// status.
///
/// **Threads:** plain values. A transform may be read on several threads at once; one that changes
/// (every non-const member, and setStatus(), which is const but writes) must not be used by another thread
/// meanwhile. The free functions are reentrant.
/// @{

/// A plane transformation as a 3 x 3 matrix in QTransform's convention, with a status; the identity when
/// made. A value: copies take the matrix (not the status, see the group's rules).
class VEXA_EXPORT VTransform {
public:
    VTransform(); ///< The identity, with a good status.
    /// A copy of other's matrix, with a good status of its own.
    VTransform(const VTransform& other);
    /// Takes other's matrix; this transform's status stays as it was.
    VTransform& operator=(const VTransform& other);
    /// Destroys the transform; virtual for the derived kinds.
    virtual ~VTransform();

    virtual int rows() const; ///< The number of rows of the matrix: 3.
    virtual int cols() const; ///< The number of columns of the matrix: 3.

    void init(); ///< Makes the matrix the identity; the status is not touched.
    /// Sets m[row][col] to value; indices outside 0..2 are ignored.
    void set(int row, int col, double value);
    /// m[row][col]; 0.0 for indices outside 0..2.
    double get(int row, int col) const;
    /// m[r][c] = rows[r][c], and the reverse; no transposition.
    ///
    /// setTransform() reads rows[0..2][0..2]; a null array is ignored, and so is each null row.
    void setTransform(double** rows);
    /// Writes the matrix into rows[0..2][0..2] as setTransform() reads it; a null array, and each null row,
    /// is skipped.
    void transform(double** rows) const;
    /// A 3 x 3 row-major matrix in OpenCV's convention (x' = a[0] x + a[1] y + a[2]), stored transposed.
    /// a holds 9 values; null is ignored.
    void fromMatrix(const double* a);
    /// As fromMatrix(const double*), from single-precision values.
    void fromMatrix(const float* a);
    /// A 2 x 3 affine matrix in OpenCV's convention, stored transposed into the first two columns; the third
    /// column, corner included, becomes 0 (users of the affine part read only the first two).
    /// a holds 6 values; null is ignored.
    void fromMatrix2x3(const double* a);
    /// Takes q's nine elements, (m11 m12 m13 / m21 m22 m23 / dx dy m33) as m[0..2][0..2].
    void fromQTransform(const QTransform& q);
    /// The matrix as a QTransform (the reverse of fromQTransform()).
    QTransform qTransform() const;
    /// A 3 x 3 CV_64F header on this transform's own buffer, filled with the transposed matrix (OpenCV's
    /// convention); valid while the transform lives and until the next call.
    /// Writing into it does not change the transform, and later changes of the transform do not reach it.
    cv::Mat createCvMat();
    /// False only for the all-zero matrix (a NaN counts as not zero).
    bool isValid() const;
    /// The other's elements, 0.0 where an index is outside its rows() x cols().
    /// A null other is ignored; the status is not touched.
    void copyDataFrom(const VTransform* other);

    /// The transform's status: good unless the function that found it failed, or setStatus() says otherwise.
    VStatus status() const { return status_; }
    /// Sets status(); const, since the status is not part of the transform's value.
    void setStatus(const VStatus& status) const { status_ = status; }

private:
    double m_[3][3];
    double data_[9];
    mutable VStatus status_;
};

/// A VTransform meant as an affine transform: users read only its first two columns. Nothing enforces it.
class VEXA_EXPORT VTransform2D : public VTransform {
public:
    /// The identity, with a good status.
    VTransform2D();
    /// A copy of other's matrix, with a good status of its own.
    VTransform2D(const VTransform2D& other);
    /// Takes other's matrix; this transform's status stays as it was.
    VTransform2D& operator=(const VTransform2D& other);
};

/// A VTransform meant as a projective transform (a homography), as the functions of this group find it.
class VEXA_EXPORT VTransformPerspective : public VTransform {
public:
    /// The identity, with a good status.
    VTransformPerspective();
    /// A copy of other's matrix, with a good status of its own.
    VTransformPerspective(const VTransformPerspective& other);
    /// Takes other's matrix; this transform's status stays as it was.
    VTransformPerspective& operator=(const VTransformPerspective& other);

    /// The rotation in the upper-left 2 x 2 block, in degrees, in [-90, 270]: with c = (m00 + m11) / 2,
    /// s = (m01 - m10) / 2 and a = asin(min(|s|, 1)): a, 180 - a, 180 + a or -a by the signs of s and c.
    /// The sine is read from the matrix as it is, so a transform that also scales gives another angle.
    ///
    /// In full: s >= 0 and c >= 0 give a; s >= 0 and c < 0 give 180 - a; s < 0 and c < 0 give 180 + a;
    /// s < 0 and c >= 0 give -a. So a pure rotation by an angle in (-90, 270) degrees gives that angle, and
    /// one of -90 (that is, 270) degrees gives -90.
    double toAngleDegree() const;
};

/// Through Qt's own QTransform operators; the status is not streamed.
/// Writes t.qTransform().
VEXA_EXPORT QDataStream& operator<<(QDataStream& stream, const VTransformPerspective& t);
/// Reads a QTransform and takes its matrix (fromQTransform()); t's status is not touched.
VEXA_EXPORT QDataStream& operator>>(QDataStream& stream, VTransformPerspective& t);

/// @}

namespace VEXA {

/// @addtogroup figures
/// @{

/// The angle of t's rotation in degrees: VTransformPerspective::toAngleDegree() of its matrix.
VEXA_EXPORT double angleDegreeFromTransformation(QTransform t);

/// A homography from (from, to) pairs by OpenCV's least-median estimator. Fewer than 6 pairs: *ok false and
/// the identity. Otherwise *ok is true (it tells only that there were enough pairs); a set OpenCV finds no
/// homography for (collinear points, say) gives the all-zero matrix, which isValid() reports, with a failed
/// status on the transform.
///
/// The points go to OpenCV in single precision. The returned transform takes the first point of each pair
/// onto the second. With too few pairs the status is good; no homography found gives the status
/// "No homography found", and an error OpenCV raises gives its own failed status, with the all-zero matrix
/// too. ok may be null.
VEXA_EXPORT VTransformPerspective findPerspectiveTransformationByPoints(QList<QPair<QPointF, QPointF>> pairs, bool* ok);

/// The homography taking the first four points of from onto the first four points of to, found by OpenCV
/// from single-precision copies of the points. A figure with fewer than four points gives the identity with a
/// failed status (rather than reading points that are not there); four points three of which are collinear
/// give whatever OpenCV makes of them.
///
/// The failed status of too few points reads "A perspective transformation needs four points in each
/// figure, not <from's count> and <to's count>"; an error OpenCV raises gives its failed status and the
/// all-zero matrix.
VEXA_EXPORT VTransformPerspective findPerspectiveTransformation(const VPolyPoint& from, const VPolyPoint& to);
/// Onto the corners (0, 0), (width, 0), (width, height), (0, height): the quadrilateral's first four points
/// must come in that order. Otherwise as findPerspectiveTransformation(const VPolyPoint&, const VPolyPoint&).
VEXA_EXPORT VTransformPerspective findPerspectiveTransformation(const VPolyPoint& quad, QSize size);
/// From the turned rectangle's corners (VFigureUtils::getPolyPointFromRect), top-left first.
/// Onto the corners of size as findPerspectiveTransformation(const VPolyPoint&, QSize).
VEXA_EXPORT VTransformPerspective findPerspectiveTransformation(const VRectBase& rect, QSize size);

/// @}

} // namespace VEXA
