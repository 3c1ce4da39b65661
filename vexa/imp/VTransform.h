// Plane transformations as a 3 x 3 matrix, between Qt's QTransform, OpenCV's matrices and plain arrays.
//
// The matrix m[row][col] is kept in QTransform's row-vector convention: (x, y) maps to
// x' = m00 x + m10 y + m20, y' = m01 x + m11 y + m21, divided by w = m02 x + m12 y + m22; in QTransform's
// names m = (m11 m12 m13 / m21 m22 m23 / dx dy m33). OpenCV's matrices are the transpose (column vectors).
// VTransform2D marks an affine transform, VTransformPerspective a projective one; they differ only in type.
//
// No member throws: indices outside rows() x cols() are ignored on write and read as 0.0, null arrays are
// ignored.
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

class VEXA_EXPORT VTransform {
public:
    VTransform(); // the identity
    VTransform(const VTransform& other);
    VTransform& operator=(const VTransform& other);
    virtual ~VTransform();

    virtual int rows() const; // 3
    virtual int cols() const; // 3

    void init(); // the identity
    void set(int row, int col, double value);
    double get(int row, int col) const;
    // m[r][c] = rows[r][c], and the reverse; no transposition.
    void setTransform(double** rows);
    void transform(double** rows) const;
    // A 3 x 3 row-major matrix in OpenCV's convention (x' = a[0] x + a[1] y + a[2]), stored transposed.
    void fromMatrix(const double* a);
    void fromMatrix(const float* a);
    // A 2 x 3 affine matrix in OpenCV's convention, stored transposed into the first two columns; the third
    // column, corner included, becomes 0 (users of the affine part read only the first two).
    void fromMatrix2x3(const double* a);
    void fromQTransform(const QTransform& q);
    QTransform qTransform() const;
    // A 3 x 3 CV_64F header on this transform's own buffer, filled with the transposed matrix (OpenCV's
    // convention); valid while the transform lives and until the next call.
    cv::Mat createCvMat();
    // False only for the all-zero matrix (a NaN counts as not zero).
    bool isValid() const;
    // The other's elements, 0.0 where an index is outside its rows() x cols().
    void copyDataFrom(const VTransform* other);

    VStatus status() const { return status_; }
    void setStatus(const VStatus& status) const { status_ = status; }

private:
    double m_[3][3];
    double data_[9];
    mutable VStatus status_;
};

class VEXA_EXPORT VTransform2D : public VTransform {
public:
    VTransform2D();
    VTransform2D(const VTransform2D& other);
    VTransform2D& operator=(const VTransform2D& other);
};

class VEXA_EXPORT VTransformPerspective : public VTransform {
public:
    VTransformPerspective();
    VTransformPerspective(const VTransformPerspective& other);
    VTransformPerspective& operator=(const VTransformPerspective& other);

    // The rotation in the upper-left 2 x 2 block, in degrees, in (-90, 270]: with c = (m00 + m11) / 2,
    // s = (m01 - m10) / 2 and a = asin(min(|s|, 1)): a, 180 - a, 180 + a or -a by the signs of s and c.
    // The sine is read from the matrix as it is, so a transform that also scales gives another angle.
    double toAngleDegree() const;
};

// Through Qt's own QTransform operators; the status is not streamed.
VEXA_EXPORT QDataStream& operator<<(QDataStream& stream, const VTransformPerspective& t);
VEXA_EXPORT QDataStream& operator>>(QDataStream& stream, VTransformPerspective& t);

namespace VEXA {

VEXA_EXPORT double angleDegreeFromTransformation(QTransform t);

// A homography from (from, to) pairs by OpenCV's least-median estimator. Fewer than 6 pairs: *ok false and
// the identity. Otherwise *ok is true (it tells only that there were enough pairs); a set OpenCV finds no
// homography for (collinear points, say) gives the all-zero matrix, which isValid() reports, with a failed
// status on the transform.
VEXA_EXPORT VTransformPerspective findPerspectiveTransformationByPoints(QList<QPair<QPointF, QPointF>> pairs, bool* ok);

// The homography taking the first four points of from onto the first four points of to, found by OpenCV
// from single-precision copies of the points. A figure with fewer than four points gives the identity with a
// failed status (rather than reading points that are not there); four points three of which are collinear
// give whatever OpenCV makes of them.
VEXA_EXPORT VTransformPerspective findPerspectiveTransformation(const VPolyPoint& from, const VPolyPoint& to);
// Onto the corners (0, 0), (width, 0), (width, height), (0, height): the quadrilateral's first four points
// must come in that order.
VEXA_EXPORT VTransformPerspective findPerspectiveTransformation(const VPolyPoint& quad, QSize size);
// From the turned rectangle's corners (VFigureUtils::getPolyPointFromRect), top-left first.
VEXA_EXPORT VTransformPerspective findPerspectiveTransformation(const VRectBase& rect, QSize size);

} // namespace VEXA
