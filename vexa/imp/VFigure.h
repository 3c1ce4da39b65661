/// @file
/// @brief Plane figures: polylines, polygons, turned rectangles, ellipses and angles (group @ref figures).
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

/// @addtogroup figures
/// **Figures** (VFigure and its classes VPolyPoint, VPolygon, VRectBase, VEllipse and VAngle): plane figures in
/// floating-point image coordinates (x to the right, y downwards, in pixels). Each knows its type, centre,
/// bounding rectangle, area, perimeter and a characteristic angle, can be moved, scaled and mapped through a
/// QTransform, copies itself and writes itself to and reads itself from a serialization tree.
/// VEXA::drawFigure() and VEXA::fillFigure() paint them; the analysis functions hand their results back as
/// figures.
///
/// **Values and ownership:** VPolyPoint is a QPolygonF and VRectBase a QRectF (public bases), so a figure is its
/// point list or its rectangle, and the base's members work on it directly. Figures are plain values that may
/// live on the stack or in containers; clone() and deserializeNew<VFigure>() hand a new heap object to the
/// caller, who deletes it through the virtual destructor. Copies are member-wise; the point list is implicitly
/// shared (copied on the first change).
///
/// **Angles** are Qt's, in degrees. An angle measured between two lines (VPolyPoint::angle(), VAngle::angle())
/// is counter-clockwise as seen on the image, as QLineF measures it, from 0 up to but not including 360. The
/// turn of a rectangle or ellipse (VRectBase::angle(), and VRotateAngle) is clockwise as seen on the image, as
/// QTransform::rotate() turns; OpenCV's cv::RotatedRect counts its angle the same way.
///
/// **Degenerate figures** give neutral values: 0.0 for the angle, area and perimeter of too-small point sets, a
/// null line, a zero-size rectangle.
///
/// **Failures:** none. No member throws or reports a status; coordinates that are not finite are stored and
/// computed with as they are (drawing refuses them).
///
/// **Kept on purpose**, though they may look like slips:
/// - VPolyPoint::perimeter() never adds the closing segment, for VPolygon either: close() the figure first when
///   the closed length is wanted.
/// - VFigure::scale() works about the origin, and VRectBase::transform() keeps width and height, so scaling a
///   rectangle or an ellipse moves its centre only.
/// - VRectBase::clone() copies the stored rectangle alone (angle 0, default pivot), and VEllipse inherits it, so
///   the clone of an ellipse is a plain VRectBase; the clone of a VPolygon is a VPolyPoint; VAngle::clone()
///   gives an angle whose three points are (0,0).
/// - An ellipse is written and read as its rectangle: its arc is not stored, so a read ellipse keeps the arc it
///   had (a full 360 degrees when deserializeNew<VFigure>() made it). An angle writes its class name only, and
///   reads nothing.
/// - VPolyPoint's point arrays for OpenCV truncate coordinates toward zero (not rounding); NaN becomes 0 and
///   values beyond the int range are clamped to it.
///
/// **Serialization:** VFigure::writeStreamThis() writes a figure as one element of a serialization tree
/// (VAbstractWriter), its content chosen by the figure's actual class. To read one back, make an empty figure
/// of the stored class with deserializeNew<VFigure>() from the element's "className" attribute, then call its
/// readStreamThis() on the element. The free serialize() and deserialize() overloads do the per-class part and
/// are chosen by the pointer's static type.
///
/// **Threads:** figures share no state. Different figures may be used on any threads at once, and one figure may
/// be read (const members) by several threads at once; a figure must not be changed while another thread uses
/// it.
/// @{

/// The abstract base of the figures: the members every figure has. It is not constructed on its own; copying
/// and assignment are protected so that a figure cannot be sliced through a VFigure.
class VEXA_EXPORT VFigure {
public:
    /// The class of a figure, as type() gives it. Of fixed type int, so that any code (an unknown one read from
    /// elsewhere, say) is a valid value.
    enum Type : int {
        /// VFigure's own type(): no figure object has it ("Figure").
        FigureType = 0,
        /// VPolyPoint, an open polyline ("Polyline").
        PolyPointType = 1,
        /// VRectBase, a turned rectangle ("RectBase").
        RectBaseType = 2,
        /// VEllipse, an ellipse in a turned rectangle ("Ellipse").
        EllipseType = 3,
        /// VAngle, two arms from a vertex ("Angle").
        AngleType = 4,
        /// VPolygon, a closed outline ("Polygon").
        PolygonType = 5
    };

    /// Virtual, so that a figure is deleted through a VFigure pointer (as clone() and deserializeNew<VFigure>()
    /// hand them out).
    virtual ~VFigure();
    /// The figure's class: FigureType here, each class's own value in the classes (PolygonType for a VPolygon,
    /// though it is a VPolyPoint too). Tells which class to cast a VFigure to.
    virtual Type type() const;
    /// Moves the figure so that center() becomes p: translate(p - center()). Shape, size and angle are kept.
    virtual void setCenter(const QPointF& p);
    /// The area the figure encloses, in square pixels, never negative: 0.0 for a polyline and an angle.
    virtual double area() const = 0;
    /// The length of the figure's outline in pixels (for point figures, the segments between successive points
    /// without the closing one); 0.0 for an angle.
    virtual double perimeter() const = 0;
    /// The figure's characteristic angle in degrees: the angle at the second point of a polyline, the turn of a
    /// rectangle or ellipse, the opening of an angle (see the classes).
    virtual double angle() const = 0;
    /// A new figure, owned by the caller (delete it through VFigure). Not always a full copy: VRectBase::clone()
    /// and VAngle::clone() drop parts of the figure, VPolyPoint::clone() gives a VPolyPoint for a VPolygon.
    virtual VFigure* clone() const = 0;
    /// The figure's rectangle: for point figures the smallest axis-aligned one holding every point; for a
    /// rectangle or ellipse the stored rectangle before its turn (not the bounds of the turned figure); for an
    /// angle its vertex, of size 0.
    virtual QRectF boundingRect() const = 0;
    /// The figure's centre: of boundingRect() for point figures, the turned rectangle's centre for rectangles
    /// and ellipses, the vertex for an angle.
    virtual QPointF center() const = 0;
    /// Moves the figure by offset.
    virtual void translate(const QPointF& offset) = 0;
    /// Maps the figure through t: every point of point figures and angles; for rectangles and ellipses the
    /// centre and the turn only (see VRectBase::transform()).
    virtual void transform(const QTransform& t) = 0;
    /// Reads the figure's properties from the element the reader is on (written by writeStreamThis), skipping
    /// the keys it does not know, and steps past the element. False, reading nothing, when the reader is null
    /// or not on a start element; true otherwise, also when a property could not be read (see deserialize()).
    /// VFigure's own version, which VAngle keeps, knows no keys: it skips every child.
    virtual bool readStreamThis(VAbstractReader* reader);
    /// The figure as one element with tag and attribute "name" = name, holding what serialize() writes for the
    /// figure's class (VFigure's own version, which VAngle keeps: the attribute "className" alone). False only
    /// for a null writer or a name the writer refuses as a tag.
    virtual bool writeStreamThis(VAbstractWriter* writer, const QString& name);

    /// True for RectBaseType and EllipseType: the types whose figures are VRectBase objects.
    static bool isRectBaseType(Type type);
    /// "Figure", "Polyline", "RectBase", "Ellipse", "Angle", "Polygon" (the names in serialized data); a null
    /// string for any other code.
    static QString typeToString(Type type);
    /// The names of typeToString() translated through QObject::tr(), for display; a null string for any other
    /// code.
    static QString typeToName(Type type);
    /// typeToString(type()): the figure's class name in serialized data.
    QString typeString() const;
    /// typeToName(type()): the figure's translated class name.
    QString typeName() const;
    /// Scales about the origin (0,0) through transform(); a factor of exactly 1.0 does nothing (NaN is not 1.0).
    void scale(double factor);

protected:
    /// For the classes' constructors.
    VFigure() = default;
    /// For the classes' copies (VFigure holds no data).
    VFigure(const VFigure&) = default;
    /// For the classes' assignments (VFigure holds no data).
    VFigure& operator=(const VFigure&) = default;
};

/// An open sequence of points: a polyline. It is a QPolygonF (public base), so QPolygonF's and QList's members
/// (append(), size(), at(), ...) work on its points directly. Copies share the point list until either changes.
class VEXA_EXPORT VPolyPoint : public VFigure, public QPolygonF {
public:
    /// VFigure::Type, named again here because the base QList also calls its point type Type.
    using Type = VFigure::Type; // not the point type that QList also calls Type

    /// No points.
    VPolyPoint() = default;
    /// The given points as they are (no closing point is added).
    explicit VPolyPoint(const QPolygonF& points);
    /// Shares other's points until either changes.
    VPolyPoint(const VPolyPoint&) = default;
    /// Shares other's points until either changes.
    VPolyPoint& operator=(const VPolyPoint&) = default;

    /// PolyPointType.
    Type type() const override;
    double area() const override; ///< 0.0: a polyline encloses nothing
    /// The sum of the segments p0-p1 ... p(n-2)-p(n-1); the closing segment is not added. 0.0 for fewer than two
    /// points.
    double perimeter() const override;
    /// The angle at the second point from the leg to the third to the leg to the first, counter-clockwise as
    /// seen on the image (QLineF::angleTo()), from 0 up to but not including 360; 0.0 for fewer than three
    /// points. Points after the third are ignored.
    double angle() const override;
    VFigure* clone() const override; ///< A new VPolyPoint of the same points, owned by the caller; for VPolygon too
    /// QPolygonF::boundingRect(): the smallest axis-aligned rectangle holding every point; (0, 0, 0, 0) for none.
    QRectF boundingRect() const override;
    QPointF center() const override; ///< The centre of boundingRect(): (0,0) for no points
    /// Adds offset to every point.
    void translate(const QPointF& offset) override;
    /// Maps every point through t (QTransform::map()).
    void transform(const QTransform& t) override;
    /// Reads the property "points" (see deserialize()); an element without one leaves the points as they were.
    /// Otherwise as VFigure::readStreamThis().
    bool readStreamThis(VAbstractReader* reader) override;
    /// Writes the attribute "className" and the property "points" (see serialize()); otherwise as
    /// VFigure::writeStreamThis().
    bool writeStreamThis(VAbstractWriter* writer, const QString& name) override;
    /// Width (along the edge) and height of the smallest rectangle holding every point that is aligned with one
    /// of the figure's edges, the closing edge from the last point to the first included; edges of zero length
    /// or of no finite direction are passed over, and of equally small rectangles the first edge's is taken.
    /// (0, 0) for fewer than two points or when every edge has zero length.
    virtual QPair<double, double> widthHeight() const;
    /// Maps every point through the homography in QTransform's row-vector convention (m.get(row, col)):
    /// x' = (m00 x + m10 y + m20) / w, y' = (m01 x + m11 y + m21) / w, w = m02 x + m12 y + m22. A point on the
    /// horizon (w = 0) gets infinite coordinates, or NaN where the numerator is 0 as well.
    virtual void transformHomography(const VTransformPerspective& m);

    /// The points as a plain QPolygonF (sharing them, no deep copy).
    QPolygonF polygon() const;
    /// Replaces every point by points.
    void setPolygon(const QPolygonF& points);
    /// Appends a copy of the first point unless the figure is closed already: its last point equals its first
    /// (QPointF's fuzzy comparison), which a single point does. An empty figure stays empty.
    void close();
    bool isEmpty() const; ///< True for no points
    bool isPoint() const; ///< True for exactly one point
    bool isAngle() const; ///< True for exactly three points (the three points of angle())
    /// From point 0 to point 1; from point 0 to itself for a single point; the null line for none.
    QLineF firstSegment() const;
    /// New arrays of count() points, owned by the caller (delete[]); an empty figure gives an array of no
    /// elements. Integer coordinates are truncated toward zero; NaN gives 0 and values beyond the int range are
    /// clamped to it.
    cv::Point* toCvPoints() const;
    /// As toCvPoints(), with the coordinates converted to float (rounded to the nearest float, not truncated).
    cv::Point2f* toCvPoint2D32f() const;
    /// Replaces the points by the vertices of their convex hull: no repeated closing point, no duplicates, no
    /// point in the middle of an edge (points all on one line give its two ends). The order starts at the point
    /// of least y (of those, least x) and runs by increasing atan2 angle about it: counter-clockwise in the
    /// mathematical orientation, clockwise as seen on a y-down image. With one or two distinct points, those
    /// points remain, without duplicates and starting at that same point; points with a NaN coordinate, which
    /// have no place on any hull, are dropped.
    void convexHull();
};

/// A closed outline: a polyline whose area is the area it encloses. The segment from the last point back to
/// the first is implied (a repeated first point at the end changes nothing in area()). Every other member is
/// VPolyPoint's: perimeter() leaves the closing segment out, and clone() gives a VPolyPoint.
class VEXA_EXPORT VPolygon : public VPolyPoint {
public:
    /// No points.
    VPolygon() = default;
    /// The given points as they are (no closing point is added).
    explicit VPolygon(const QPolygonF& points);
    /// Shares other's points until either changes.
    VPolygon(const VPolygon&) = default;
    /// Shares other's points until either changes.
    VPolygon& operator=(const VPolygon&) = default;

    /// PolygonType.
    Type type() const override;
    /// MathUtils::area(): the absolute value of the shoelace sum over the implicitly closed outline; 0.0 for
    /// fewer than three points. Where the outline crosses itself, parts enclosed in opposite senses subtract.
    double area() const override;
    /// The rectangle's unrotated outline, closed: (x, y+h), (x+w, y+h), (x+w, y), (x, y), (x, y+h), from its
    /// boundingRect(), its angle and pivot ignored; replaces the points. A null rectangle pointer changes nothing.
    void fromRect(const VRectBase* rect);
};

/// A rectangle turned by angle() degrees about its pivot: by default the rectangle's own centre, or a custom
/// point. The stored QRectF (the public base, so x(), y(), width(), height() and QRectF's other members) is the
/// rectangle before the turn; the turn is clockwise as seen on the image, as QTransform::rotate() turns.
/// A plain value: copies copy the rectangle, the angle and the pivot.
class VEXA_EXPORT VRectBase : public VFigure, public QRectF {
public:
    /// rect turned by angle degrees about its centre.
    explicit VRectBase(const QRectF& rect = QRectF(), double angle = 0.0);
    /// VRectBase(QRectF(x, y, width, height), angle).
    VRectBase(double x, double y, double width, double height, double angle = 0.0);
    /// OpenCV's box: centre, size and angle (clockwise degrees on a y-down image, as here). The stored rectangle
    /// is centred on the box's centre, the pivot is the default one.
    explicit VRectBase(const cv::RotatedRect& box);
    /// Copies the rectangle, the angle and the pivot.
    VRectBase(const VRectBase&) = default;
    /// Copies the rectangle, the angle and the pivot.
    VRectBase& operator=(const VRectBase&) = default;

    /// RectBaseType.
    Type type() const override;
    double area() const override;      ///< |w| * |h|
    double perimeter() const override; ///< 2 * (|w| + |h|)
    /// The turn in degrees, clockwise as seen on the image: as constructed or set, not reduced to a range,
    /// except that transform() leaves it from 0 up to but not including 360.
    double angle() const override;
    VFigure* clone() const override;      ///< A new VRectBase of the stored rectangle alone: angle 0, default pivot
    QRectF boundingRect() const override; ///< The stored rectangle, unrotated
    /// The rectangle's centre turned by angle() about transformPos(): with the default pivot, the centre of the
    /// stored rectangle.
    QPointF center() const override;
    /// Moves the rectangle, and a custom pivot with it.
    void translate(const QPointF& offset) override;
    /// Maps the centre through t, moving the rectangle (and a custom pivot) with it, then takes as angle() that
    /// of the turned rectangle's top edge mapped through t, from 0 up to but not including 360; width and height
    /// are kept. With a custom
    /// pivot away from the rectangle's centre, the new angle turns the centre about the moved pivot once more,
    /// so center() then is not t applied to the old centre.
    void transform(const QTransform& t) override;
    /// Reads the properties "rect", "angle", "transform_position" and "use_custom_transform_pos" (see
    /// deserialize()); those the element lacks keep their values. Otherwise as VFigure::readStreamThis().
    bool readStreamThis(VAbstractReader* reader) override;
    /// Writes the attribute "className" and the four properties (see serialize()); otherwise as
    /// VFigure::writeStreamThis().
    bool writeStreamThis(VAbstractWriter* writer, const QString& name) override;

    /// Replaces the stored rectangle; the angle and a custom pivot are kept (the default pivot is the new centre).
    void setRect(const QRectF& rect);
    /// setRect(QRectF(x, y, width, height)).
    void setRect(double x, double y, double width, double height);
    /// Sets the turn in degrees, clockwise as seen on the image; stored as given.
    void setAngle(double angle);
    /// Stores a custom pivot and enables it.
    void setTransformPos(const QPointF& p);
    /// The custom pivot when enabled, otherwise the centre of the stored rectangle.
    QPointF transformPos() const;
    /// Turns the custom pivot on or off; the stored pivot is kept either way ((0,0) until one is set).
    void enableCustomTransformPoint(bool enable);
    /// True when the custom pivot is in use.
    bool isCustomTransformPoint() const;

private:
    bool useCustomTransformPos_ = false;
    QPointF transformPosition_;
    double angle_ = 0.0;
};

/// The ellipse inscribed in a turned rectangle, with the arc of it that is meant (a full ellipse sweeps 360).
/// Rectangle, angle and pivot are VRectBase's, with the same meaning. The arc is counted as QPainterPath::arcTo()
/// counts it, in the unturned rectangle: degrees from the 3 o'clock direction, counter-clockwise as seen on the
/// image for positive values, then turned with the rectangle; a sweep of 360 or more either way is the whole
/// ellipse. Only drawing uses the arc (VEXA::drawFigure() draws it, VEXA::fillFigure() fills its pie): area(),
/// perimeter() and the other members are of the whole ellipse, and clone() and serialization drop the arc.
class VEXA_EXPORT VEllipse : public VRectBase {
public:
    /// The ellipse in rect turned by angle degrees about its centre, with the arc starting at startAngle and
    /// sweeping sweepLength degrees (by default the whole ellipse).
    explicit VEllipse(const QRectF& rect = QRectF(), double angle = 0.0, double startAngle = 0.0,
                      double sweepLength = 360.0);
    /// Copies the rectangle, the angle, the pivot and the arc.
    VEllipse(const VEllipse&) = default;
    /// Copies the rectangle, the angle, the pivot and the arc.
    VEllipse& operator=(const VEllipse&) = default;

    /// EllipseType.
    Type type() const override;
    double area() const override; ///< pi * |w| * |h| / 4, of the whole ellipse
    /// Of the whole ellipse, by the power-mean approximation 4 (a^s + b^s)^(1/s), s = ln 2 / ln(pi/2), with
    /// semi-axes a and b: exact for a circle and for a flat ellipse.
    double perimeter() const override;

    /// Where the arc starts: degrees from the 3 o'clock direction of the unturned rectangle, counter-clockwise
    /// as seen on the image.
    double startAngle() const;
    /// The arc's extent in degrees, counter-clockwise as seen on the image when positive; 360 for the whole
    /// ellipse.
    double sweepLength() const;

private:
    double startAngle_;
    double sweepLength_;
};

/// Two arms from a vertex: the points vertex(), firstArm() and secondArm(), each arm running from the vertex to
/// its point. A plain value; VEXA::drawFigure() draws it as the two arms, and it has no inside to fill.
class VEXA_EXPORT VAngle : public VFigure {
public:
    VAngle() = default; ///< Every point (0,0)
    /// The angle at vertex between the arms to firstArm and to secondArm.
    VAngle(const QPointF& vertex, const QPointF& firstArm, const QPointF& secondArm);
    /// Copies the three points.
    VAngle(const VAngle&) = default;
    /// Copies the three points.
    VAngle& operator=(const VAngle&) = default;

    /// AngleType.
    Type type() const override;
    double area() const override;      ///< 0.0
    double perimeter() const override; ///< 0.0
    /// From the second arm to the first, counter-clockwise as seen on the image (QLineF::angleTo()), from 0 up
    /// to but not including 360.
    double angle() const override;
    VFigure* clone() const override;      ///< A new VAngle, owned by the caller, with every point (0,0)
    QRectF boundingRect() const override; ///< The vertex, of size 0
    QPointF center() const override;      ///< The vertex
    /// Moves the three points by offset.
    void translate(const QPointF& offset) override;
    /// Maps the three points through t.
    void transform(const QTransform& t) override;

    /// The vertex.
    QPointF vertex() const;
    /// The end of the first arm.
    QPointF firstArm() const;
    /// The end of the second arm.
    QPointF secondArm() const;

private:
    QPointF vertex_;
    QPointF firstArm_;
    QPointF secondArm_;
};

/// Helpers on figures.
namespace VFigureUtils {

/// The rectangle's corners (x, y), (x+w, y), (x+w, y+h), (x, y+h), closed by repeating the first, turned by
/// its angle about its transformPos(): the outline VEXA::drawFigure() draws for it.
VEXA_EXPORT VPolyPoint getPolyPointFromRect(const VRectBase& rect);

} // namespace VFigureUtils

/// A figure's part of its element: "className" = typeString() for every figure; then, for rectangles and
/// ellipses, the properties "rect", "angle", "transform_position" (the pivot in use) and
/// "use_custom_transform_pos"; for point figures, "points" with one "list_element" per point. Each property is
/// a child element whose tag and attribute "name" are its key. A null figure writes nothing and gives false.
///
/// This overload writes the attribute "className" alone, into the element the caller has opened; false for a
/// null writer or figure, or a writer in error afterwards. The overload is chosen by the pointer's static type:
/// a VFigure pointer gets this one whatever the figure is (VFigure::writeStreamThis() follows the actual class),
/// a VEllipse pointer the VRectBase one, a VPolygon pointer the VPolyPoint one.
VEXA_EXPORT bool serialize(VAbstractWriter* writer, VFigure* figure);
/// As serialize(VAbstractWriter*, VFigure*), then the properties "rect" (a QRectF value), "angle" (double),
/// "transform_position" (QPointF: transformPos(), the rectangle's centre when no custom pivot is in use) and
/// "use_custom_transform_pos" (bool). False when the attribute or any property fails; the remaining properties
/// are written all the same.
VEXA_EXPORT bool serialize(VAbstractWriter* writer, VRectBase* rect);
/// As serialize(VAbstractWriter*, VFigure*), then the property "points" holding the points as serializePoints()
/// writes them. False when the attribute or the property fails.
VEXA_EXPORT bool serialize(VAbstractWriter* writer, VPolyPoint* points);

/// Reads the property named name from the element the reader is on into the figure and steps past it. False
/// for a key the class does not know (the caller skips the element), a null reader or a null figure. A known
/// key whose value cannot be read stores 0, false or no points and is stepped past.
///
/// This overload, for the plain figure, knows no key: always false, reading nothing. Like serialize(), the
/// overload is chosen by the pointer's static type.
VEXA_EXPORT bool deserialize(VAbstractReader* reader, VFigure* figure, const QString& name);
/// Reads "rect" (QRectF(), the null rectangle, when unreadable), "angle", "transform_position" and
/// "use_custom_transform_pos" into the rectangle. Reading "transform_position" turns the custom pivot on;
/// "use_custom_transform_pos", written after it, then sets the flag as stored. Any other key gives false.
VEXA_EXPORT bool deserialize(VAbstractReader* reader, VRectBase* rect, const QString& name);
/// Reads "points" as deserializePoints() does and replaces the figure's points with them; when they cannot
/// be read (the document ends first), the figure is left with no points. Any other key gives false.
VEXA_EXPORT bool deserialize(VAbstractReader* reader, VPolyPoint* points, const QString& name);

/// An empty figure of the class whose typeString() is className, exactly and case-sensitively: "Polyline",
/// "RectBase", "Ellipse" (sweeping 360), "Polygon", "Angle"; null for any other name, "Figure" included. The
/// figure is owned by the caller. The reader is not touched (it may be null): read the content with
/// readStreamThis.
template <>
VEXA_EXPORT VFigure* deserializeNew<VFigure>(VAbstractReader* reader, const QString& className);

/// @}
