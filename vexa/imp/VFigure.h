// Plane figures in floating-point image coordinates (x to the right, y downwards, in pixels): a polyline, a
// polygon, a rotated rectangle, an ellipse and an angle. Each knows its type, centre, bounding rectangle, area,
// perimeter and a characteristic angle, can be moved, scaled and mapped through a QTransform, copies itself
// and writes itself to and reads itself from a serialization tree.
//
// VPolyPoint is a QPolygonF and VRectBase a QRectF (public bases), so a figure is its point list or its
// rectangle. Figures are plain heap objects: clone() and deserializeNew<VFigure> hand a new one to the caller,
// who deletes it through the virtual destructor. Copies are member-wise; the point list is implicitly shared.
//
// Degenerate figures give neutral values: 0.0 for the angle, area and perimeter of too-small point sets, a
// null line, a zero-size rectangle. No member throws or reports a status.
//
// Decisions of this library that look like slips but are kept on purpose:
// - Angles are Qt's: degrees, counter-clockwise as QLineF measures them, clockwise on screen for rotations
//   (QTransform::rotate, VRotateAngle).
// - VPolyPoint::perimeter() never adds the closing segment, for VPolygon either: close() the figure first when
//   the closed length is wanted.
// - scale() works about the origin, and VRectBase::transform() keeps width and height, so scaling a rectangle
//   or an ellipse moves its centre only.
// - VRectBase::clone() copies the stored rectangle alone (angle 0, default pivot), and VEllipse inherits it, so
//   the clone of an ellipse is a plain VRectBase. VAngle::clone() gives an angle whose three points are (0,0).
// - An ellipse is written and read as its rectangle: its arc is not stored, so a read ellipse keeps the arc it
//   had (a full 360 degrees when deserializeNew made it). An angle writes its class name only.
// - VPolyPoint's point arrays for OpenCV truncate coordinates toward zero (not rounding); NaN becomes 0 and
//   values beyond the int range are clamped to it.
#pragma once

#include <QLineF>
#include <QPair>
#include <QPointF>
#include <QPolygonF>
#include <QRectF>
#include <QString>
#include <QTransform>

#include <vcore/VSerialization.h>
#include <vexa/vexa_export.h>

#include <opencv2/core/types.hpp>

class VRectBase;
class VTransformPerspective;

class VEXA_EXPORT VFigure {
public:
    // Of fixed type int, so that any code (an unknown one read from elsewhere, say) is a valid value.
    enum Type : int {
        FigureType = 0,
        PolyPointType = 1,
        RectBaseType = 2,
        EllipseType = 3,
        AngleType = 4,
        PolygonType = 5
    };

    virtual ~VFigure();
    virtual Type type() const;
    // Moves the figure so that center() becomes p.
    virtual void setCenter(const QPointF& p);
    virtual double area() const = 0;
    virtual double perimeter() const = 0;
    virtual double angle() const = 0;
    virtual VFigure* clone() const = 0;
    virtual QRectF boundingRect() const = 0;
    virtual QPointF center() const = 0;
    virtual void translate(const QPointF& offset) = 0;
    virtual void transform(const QTransform& t) = 0;
    // Reads the figure's properties from the element the reader is on (written by writeStreamThis), skipping
    // the keys it does not know, and steps past the element. False, reading nothing, when the reader is null
    // or not on a start element.
    virtual bool readStreamThis(VAbstractReader* reader);
    // The figure as one element with tag and attribute "name" = name. False only for a null writer or a name
    // the writer refuses as a tag.
    virtual bool writeStreamThis(VAbstractWriter* writer, const QString& name);

    // True for RectBaseType and EllipseType.
    static bool isRectBaseType(Type type);
    // "Figure", "Polyline", "RectBase", "Ellipse", "Angle", "Polygon" (the names in serialized data), and
    // their translated forms; a null string for any other code.
    static QString typeToString(Type type);
    static QString typeToName(Type type);
    QString typeString() const;
    QString typeName() const;
    // Scales about the origin (0,0) through transform(); a factor of exactly 1.0 does nothing (NaN is not 1.0).
    void scale(double factor);

protected:
    VFigure() = default;
    VFigure(const VFigure&) = default;
    VFigure& operator=(const VFigure&) = default;
};

// An open sequence of points: a polyline.
class VEXA_EXPORT VPolyPoint : public VFigure, public QPolygonF {
public:
    using Type = VFigure::Type; // not the point type that QList also calls Type

    VPolyPoint() = default;
    explicit VPolyPoint(const QPolygonF& points);
    VPolyPoint(const VPolyPoint&) = default;
    VPolyPoint& operator=(const VPolyPoint&) = default;

    Type type() const override;
    double area() const override; // 0.0: a polyline encloses nothing
    // The sum of the segments p0-p1 ... p(n-2)-p(n-1); the closing segment is not added.
    double perimeter() const override;
    // The angle at the second point from the leg to the third to the leg to the first, in 0..360; 0.0 for
    // fewer than three points.
    double angle() const override;
    VFigure* clone() const override; // a VPolyPoint, for VPolygon too
    QRectF boundingRect() const override;
    QPointF center() const override; // of boundingRect()
    void translate(const QPointF& offset) override;
    void transform(const QTransform& t) override;
    bool readStreamThis(VAbstractReader* reader) override;
    bool writeStreamThis(VAbstractWriter* writer, const QString& name) override;
    // Width (along the edge) and height of the smallest rectangle holding every point that is aligned with one
    // of the figure's edges, the closing edge from the last point to the first included; edges of zero length
    // are passed over. (0, 0) for fewer than two points or when every edge has zero length.
    virtual QPair<double, double> widthHeight() const;
    // Maps every point through the homography in QTransform's row-vector convention (m.get(row, col)); a
    // point on the horizon gets infinite coordinates.
    virtual void transformHomography(const VTransformPerspective& m);

    QPolygonF polygon() const;
    void setPolygon(const QPolygonF& points);
    // Appends a copy of the first point unless the figure is closed already.
    void close();
    bool isEmpty() const; // no points
    bool isPoint() const; // exactly one
    bool isAngle() const; // exactly three
    // From point 0 to point 1; from point 0 to itself for a single point; the null line for none.
    QLineF firstSegment() const;
    // New arrays of count() points, owned by the caller (delete[]); an empty figure gives an array of no
    // elements. Integer coordinates are truncated toward zero.
    cv::Point* toCvPoints() const;
    cv::Point2f* toCvPoint2D32f() const;
    // Replaces the points by the vertices of their convex hull: no repeated closing point, no duplicates, no
    // point in the middle of an edge. The order starts at the point of least y (of those, least x) and runs
    // by increasing atan2 angle about it: counter-clockwise in the mathematical orientation, clockwise as seen
    // on a y-down image. One or two distinct points stay as they are; points with a NaN coordinate, which
    // have no place on any hull, are dropped.
    void convexHull();
};

// A closed outline: a polyline whose area is the area it encloses.
class VEXA_EXPORT VPolygon : public VPolyPoint {
public:
    VPolygon() = default;
    explicit VPolygon(const QPolygonF& points);
    VPolygon(const VPolygon&) = default;
    VPolygon& operator=(const VPolygon&) = default;

    Type type() const override;
    double area() const override;
    // The rectangle's unrotated outline, closed: (x, y+h), (x+w, y+h), (x+w, y), (x, y), (x, y+h). A null
    // rectangle pointer changes nothing.
    void fromRect(const VRectBase* rect);
};

// A rectangle turned by angle() degrees about its pivot: by default the rectangle's own centre, or a custom
// point. The stored QRectF is the rectangle before the turn.
class VEXA_EXPORT VRectBase : public VFigure, public QRectF {
public:
    explicit VRectBase(const QRectF& rect = QRectF(), double angle = 0.0);
    VRectBase(double x, double y, double width, double height, double angle = 0.0);
    // OpenCV's box: centre, size and angle (clockwise degrees on a y-down image, as here).
    explicit VRectBase(const cv::RotatedRect& box);
    VRectBase(const VRectBase&) = default;
    VRectBase& operator=(const VRectBase&) = default;

    Type type() const override;
    double area() const override;      // |w| * |h|
    double perimeter() const override; // 2 * (|w| + |h|)
    double angle() const override;
    VFigure* clone() const override;      // the stored rectangle alone: angle 0, default pivot
    QRectF boundingRect() const override; // the stored rectangle, unrotated
    // The rectangle's centre turned by angle() about transformPos().
    QPointF center() const override;
    // Moves the rectangle, and a custom pivot with it.
    void translate(const QPointF& offset) override;
    // Maps the centre through t and takes the angle of the mapped top edge; width and height are kept.
    void transform(const QTransform& t) override;
    bool readStreamThis(VAbstractReader* reader) override;
    bool writeStreamThis(VAbstractWriter* writer, const QString& name) override;

    void setRect(const QRectF& rect);
    void setRect(double x, double y, double width, double height);
    void setAngle(double angle);
    // Stores a custom pivot and enables it.
    void setTransformPos(const QPointF& p);
    // The custom pivot when enabled, otherwise the centre of the stored rectangle.
    QPointF transformPos() const;
    void enableCustomTransformPoint(bool enable);
    bool isCustomTransformPoint() const;

private:
    bool useCustomTransformPos_ = false;
    QPointF transformPosition_;
    double angle_ = 0.0;
};

// The ellipse inscribed in a turned rectangle, with the arc of it that is meant (a full ellipse sweeps 360).
class VEXA_EXPORT VEllipse : public VRectBase {
public:
    explicit VEllipse(const QRectF& rect = QRectF(), double angle = 0.0, double startAngle = 0.0,
                      double sweepLength = 360.0);
    VEllipse(const VEllipse&) = default;
    VEllipse& operator=(const VEllipse&) = default;

    Type type() const override;
    double area() const override; // pi * |w| * |h| / 4
    // Of the whole ellipse, by the power-mean approximation 4 (a^s + b^s)^(1/s), s = ln 2 / ln(pi/2), with
    // semi-axes a and b: exact for a circle and for a flat ellipse.
    double perimeter() const override;

    double startAngle() const;
    double sweepLength() const;

private:
    double startAngle_;
    double sweepLength_;
};

// Two arms from a vertex.
class VEXA_EXPORT VAngle : public VFigure {
public:
    VAngle() = default; // every point (0,0)
    VAngle(const QPointF& vertex, const QPointF& firstArm, const QPointF& secondArm);
    VAngle(const VAngle&) = default;
    VAngle& operator=(const VAngle&) = default;

    Type type() const override;
    double area() const override;      // 0.0
    double perimeter() const override; // 0.0
    // From the second arm to the first, in 0..360.
    double angle() const override;
    VFigure* clone() const override;      // every point (0,0)
    QRectF boundingRect() const override; // the vertex, of size 0
    QPointF center() const override;      // the vertex
    void translate(const QPointF& offset) override;
    void transform(const QTransform& t) override;

    QPointF vertex() const;
    QPointF firstArm() const;
    QPointF secondArm() const;

private:
    QPointF vertex_;
    QPointF firstArm_;
    QPointF secondArm_;
};

namespace VFigureUtils {

// The rectangle's corners (x, y), (x+w, y), (x+w, y+h), (x, y+h), closed by repeating the first, turned by
// its angle about its transformPos().
VEXA_EXPORT VPolyPoint getPolyPointFromRect(const VRectBase& rect);

} // namespace VFigureUtils

// A figure's part of its element: "className" = typeString() for every figure; then, for rectangles and
// ellipses, the properties "rect", "angle", "transform_position" (the pivot in use) and
// "use_custom_transform_pos"; for point figures, "points" with one "list_element" per point. Each property is
// a child element whose tag and attribute "name" are its key. A null figure writes nothing and gives false.
VEXA_EXPORT bool serialize(VAbstractWriter* writer, VFigure* figure);
VEXA_EXPORT bool serialize(VAbstractWriter* writer, VRectBase* rect);
VEXA_EXPORT bool serialize(VAbstractWriter* writer, VPolyPoint* points);

// Reads the property named name from the element the reader is on into the figure and steps past it. False
// for a key the class does not know (the caller skips the element), a null reader or a null figure. A known
// key whose value cannot be read stores 0, false or no points and is stepped past.
VEXA_EXPORT bool deserialize(VAbstractReader* reader, VFigure* figure, const QString& name);
VEXA_EXPORT bool deserialize(VAbstractReader* reader, VRectBase* rect, const QString& name);
VEXA_EXPORT bool deserialize(VAbstractReader* reader, VPolyPoint* points, const QString& name);

// An empty figure of the class whose typeString() is className, exactly and case-sensitively: "Polyline",
// "RectBase", "Ellipse" (sweeping 360), "Polygon", "Angle"; null for any other name, "Figure" included. The
// reader is not touched: read the content with readStreamThis.
template <>
VEXA_EXPORT VFigure* deserializeNew<VFigure>(VAbstractReader* reader, const QString& className);
