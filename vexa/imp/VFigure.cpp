// The figure family (points, lines, rectangles, rotated rectangles, ellipses, polygons, sequences): measures,
// moves, hit tests and serialization trees. Over 500 lines because it is one class hierarchy whose members
// share their helpers; each figure's members are kept together.
#include <vexa/imp/VFigure.h>

#include <vexa/imp/VTransform.h>
#include <vcore/MathUtils.h>
#include <vcore/VRotateAngle.h>

#include <QObject>
#include <QSizeF>
#include <QVariant>

#include <algorithm>
#include <climits>
#include <cmath>
#include <vector>

namespace {

const QLatin1String keyRect("rect");
const QLatin1String keyAngle("angle");
const QLatin1String keyTransformPosition("transform_position");
const QLatin1String keyUseCustomTransformPos("use_custom_transform_pos");
const QLatin1String keyPoints("points");

// Truncation toward zero that stays defined for every double: NaN gives 0, the rest is clamped to int.
int truncated(double v)
{
    if (std::isnan(v))
        return 0;
    if (v <= double(INT_MIN))
        return INT_MIN;
    if (v >= double(INT_MAX))
        return INT_MAX;
    return int(v);
}

// The turn of a rectangle by its angle about its pivot.
QTransform rotationOf(const VRectBase& rect)
{
    VRotateAngle rotation;
    rotation.setAngle(rect.angle(), rect.transformPos());
    QTransform t;
    rotation.transform(&t);
    return t;
}

// An element with tag and attribute "name" = tag, whose content body writes.
template <class Body>
bool writeElement(VAbstractWriter* writer, const QString& tag, Body&& body)
{
    if (!writer || !writer->beginElement(tag))
        return false;
    writer->writeAttribute(VSerializationKeys::name, tag);
    const bool ok = body();
    writer->endElement();
    return ok;
}

template <class T>
bool writeProperty(VAbstractWriter* writer, const QString& key, const T& value)
{
    return writeElement(writer, key, [&] { return serialize(writer, value); });
}

void stepPast(VAbstractReader* reader)
{
    reader->skipCurrentElement();
    reader->readNext();
}

// The children of the element the reader is on, each handed to readKey with its "name"; a child that readKey
// does not take is skipped. Every child is left behind either way, so the walk always ends.
template <class ReadKey>
bool readElement(VAbstractReader* reader, ReadKey&& readKey)
{
    if (!reader || !reader->isStartElement())
        return false;
    reader->readNext();
    while (reader->isStartElement()) {
        const QString key = reader->attribute(VSerializationKeys::name);
        if (!readKey(key))
            stepPast(reader);
    }
    reader->readNext(); // past the element's end
    return true;
}

// The value of the property element the reader is on, stepping past it; a value that cannot be read gives
// T() and the element is passed over all the same.
template <class T>
T readValue(VAbstractReader* reader)
{
    T value{};
    if (!deserializeValue(reader, &value)) {
        value = T{};
        stepPast(reader);
    }
    return value;
}

double cross(const QPointF& o, const QPointF& a, const QPointF& b)
{
    return (a.x() - o.x()) * (b.y() - o.y()) - (a.y() - o.y()) * (b.x() - o.x());
}

// Least y, then least x: where the hull's order starts.
bool pivotBefore(const QPointF& a, const QPointF& b) { return a.y() < b.y() || (a.y() == b.y() && a.x() < b.x()); }

} // namespace

// VFigure

VFigure::~VFigure() = default;

VFigure::Type VFigure::type() const { return FigureType; }

void VFigure::setCenter(const QPointF& p) { translate(p - center()); }

bool VFigure::readStreamThis(VAbstractReader* reader)
{
    return readElement(reader, [&](const QString& key) { return deserialize(reader, this, key); });
}

bool VFigure::writeStreamThis(VAbstractWriter* writer, const QString& name)
{
    return writeElement(writer, name, [&] {
        serialize(writer, this);
        return true;
    });
}

bool VFigure::isRectBaseType(Type type) { return type == RectBaseType || type == EllipseType; }

QString VFigure::typeToString(Type type)
{
    switch (type) {
    case FigureType: return QStringLiteral("Figure");
    case PolyPointType: return QStringLiteral("Polyline");
    case RectBaseType: return QStringLiteral("RectBase");
    case EllipseType: return QStringLiteral("Ellipse");
    case AngleType: return QStringLiteral("Angle");
    case PolygonType: return QStringLiteral("Polygon");
    }
    return QString();
}

QString VFigure::typeToName(Type type)
{
    switch (type) {
    case FigureType: return QObject::tr("Figure");
    case PolyPointType: return QObject::tr("Polyline");
    case RectBaseType: return QObject::tr("RectBase");
    case EllipseType: return QObject::tr("Ellipse");
    case AngleType: return QObject::tr("Angle");
    case PolygonType: return QObject::tr("Polygon");
    }
    return QString();
}

QString VFigure::typeString() const { return typeToString(type()); }

QString VFigure::typeName() const { return typeToName(type()); }

void VFigure::scale(double factor)
{
    if (!(factor == 1.0))
        transform(QTransform().scale(factor, factor));
}

// VPolyPoint

VPolyPoint::VPolyPoint(const QPolygonF& points) : QPolygonF(points) {}

VFigure::Type VPolyPoint::type() const { return PolyPointType; }

double VPolyPoint::area() const { return 0.0; }

double VPolyPoint::perimeter() const
{
    double sum = 0.0;
    for (qsizetype i = 1; i < count(); ++i)
        sum += QLineF(at(i - 1), at(i)).length();
    return sum;
}

double VPolyPoint::angle() const
{
    if (count() < 3)
        return 0.0;
    return QLineF(at(1), at(2)).angleTo(QLineF(at(1), at(0)));
}

VFigure* VPolyPoint::clone() const { return new VPolyPoint(*this); }

QRectF VPolyPoint::boundingRect() const { return QPolygonF::boundingRect(); }

QPointF VPolyPoint::center() const
{
    const QRectF r = boundingRect();
    return QPointF(r.x() + r.width() * 0.5, r.y() + r.height() * 0.5);
}

void VPolyPoint::translate(const QPointF& offset) { QPolygonF::translate(offset); }

void VPolyPoint::transform(const QTransform& t) { setPolygon(t.map(polygon())); }

bool VPolyPoint::readStreamThis(VAbstractReader* reader)
{
    return readElement(reader, [&](const QString& key) { return deserialize(reader, this, key); });
}

bool VPolyPoint::writeStreamThis(VAbstractWriter* writer, const QString& name)
{
    return writeElement(writer, name, [&] {
        serialize(writer, this);
        return true;
    });
}

QPair<double, double> VPolyPoint::widthHeight() const
{
    QPair<double, double> result(0.0, 0.0);
    const qsizetype n = count();
    if (n < 2)
        return result;
    const QPolygonF points = polygon();
    double best = 9e+100;
    for (qsizetype i = 0; i < n; ++i) {
        const QPointF edge = at((i + 1) % n) - at(i);
        if (edge.x() == 0.0 && edge.y() == 0.0)
            continue;
        const double degrees = MathUtils::radiansToDegrees(std::atan2(edge.y(), edge.x()));
        if (!std::isfinite(degrees))
            continue;
        const QRectF box = QTransform().rotate(-degrees).map(points).boundingRect();
        const double area = box.width() * box.height();
        if (area < best) {
            best = area;
            result = qMakePair(box.width(), box.height());
        }
    }
    return result;
}

void VPolyPoint::transformHomography(const VTransformPerspective& m)
{
    for (QPointF& p : *this) {
        const double x = p.x(), y = p.y();
        const double w = 1.0 / (m.get(0, 2) * x + m.get(1, 2) * y + m.get(2, 2));
        p = QPointF((m.get(0, 0) * x + m.get(1, 0) * y + m.get(2, 0)) * w,
                    (m.get(0, 1) * x + m.get(1, 1) * y + m.get(2, 1)) * w);
    }
}

QPolygonF VPolyPoint::polygon() const { return *this; }

void VPolyPoint::setPolygon(const QPolygonF& points) { QPolygonF::operator=(points); }

void VPolyPoint::close()
{
    if (!QPolygonF::isEmpty() && !isClosed())
        append(first());
}

bool VPolyPoint::isEmpty() const { return count() == 0; }
bool VPolyPoint::isPoint() const { return count() == 1; }
bool VPolyPoint::isAngle() const { return count() == 3; }

QLineF VPolyPoint::firstSegment() const
{
    if (isEmpty())
        return QLineF();
    return QLineF(at(0), count() > 1 ? at(1) : at(0));
}

cv::Point* VPolyPoint::toCvPoints() const
{
    cv::Point* points = new cv::Point[size_t(count())];
    for (qsizetype i = 0; i < count(); ++i)
        points[i] = cv::Point(truncated(at(i).x()), truncated(at(i).y()));
    return points;
}

cv::Point2f* VPolyPoint::toCvPoint2D32f() const
{
    cv::Point2f* points = new cv::Point2f[size_t(count())];
    for (qsizetype i = 0; i < count(); ++i)
        points[i] = cv::Point2f(float(at(i).x()), float(at(i).y()));
    return points;
}

void VPolyPoint::convexHull()
{
    // Andrew's monotone chain over the points sorted by x, then y: lower then upper hull, counter-clockwise
    // in the mathematical orientation; a turn that is not strictly to the left drops the middle point, which
    // removes collinear points. The result is then started at the pivot of the atan2 order.
    std::vector<QPointF> points;
    points.reserve(size_t(count()));
    for (const QPointF& p : *this)
        if (!std::isnan(p.x()) && !std::isnan(p.y()))
            points.push_back(p);
    std::sort(points.begin(), points.end(),
              [](const QPointF& a, const QPointF& b) { return a.x() < b.x() || (a.x() == b.x() && a.y() < b.y()); });
    points.erase(std::unique(points.begin(), points.end(),
                             [](const QPointF& a, const QPointF& b) { return a.x() == b.x() && a.y() == b.y(); }),
                 points.end());

    std::vector<QPointF> hull;
    if (points.size() < 3) {
        hull = points;
    } else {
        hull.resize(2 * points.size());
        size_t k = 0;
        for (const QPointF& p : points) {
            while (k >= 2 && cross(hull[k - 2], hull[k - 1], p) <= 0)
                --k;
            hull[k++] = p;
        }
        for (size_t i = points.size() - 1, lower = k + 1; i-- > 0;) {
            while (k >= lower && cross(hull[k - 2], hull[k - 1], points[i]) <= 0)
                --k;
            hull[k++] = points[i];
        }
        hull.resize(k - 1); // the last point is the first again
    }
    if (!hull.empty())
        std::rotate(hull.begin(), std::min_element(hull.begin(), hull.end(), pivotBefore), hull.end());
    setPolygon(QPolygonF(QList<QPointF>(hull.begin(), hull.end())));
}

// VPolygon

VPolygon::VPolygon(const QPolygonF& points) : VPolyPoint(points) {}

VFigure::Type VPolygon::type() const { return PolygonType; }

double VPolygon::area() const { return MathUtils::area(polygon()); }

void VPolygon::fromRect(const VRectBase* rect)
{
    if (!rect)
        return;
    const QRectF r = rect->boundingRect();
    const double x = r.x(), y = r.y(), w = r.width(), h = r.height();
    setPolygon(
        QPolygonF({QPointF(x, y + h), QPointF(x + w, y + h), QPointF(x + w, y), QPointF(x, y), QPointF(x, y + h)}));
}

// VRectBase

VRectBase::VRectBase(const QRectF& rect, double angle) : QRectF(rect), angle_(angle) {}

VRectBase::VRectBase(double x, double y, double width, double height, double angle)
    : QRectF(x, y, width, height), angle_(angle)
{
}

VRectBase::VRectBase(const cv::RotatedRect& box)
    : QRectF(double(box.center.x) - double(box.size.width) * 0.5, double(box.center.y) - double(box.size.height) * 0.5,
             double(box.size.width), double(box.size.height)),
      angle_(double(box.angle))
{
}

VFigure::Type VRectBase::type() const { return RectBaseType; }

double VRectBase::area() const { return std::abs(width()) * std::abs(height()); }

double VRectBase::perimeter() const { return 2.0 * (std::abs(width()) + std::abs(height())); }

double VRectBase::angle() const { return angle_; }

VFigure* VRectBase::clone() const { return new VRectBase(boundingRect()); }

QRectF VRectBase::boundingRect() const { return *this; }

QPointF VRectBase::center() const
{
    const QRectF r = boundingRect();
    return rotationOf(*this).map(QPointF(r.x() + r.width() * 0.5, r.y() + r.height() * 0.5));
}

void VRectBase::translate(const QPointF& offset)
{
    QRectF::translate(offset);
    if (useCustomTransformPos_)
        transformPosition_ += offset;
}

void VRectBase::transform(const QTransform& t)
{
    const QPolygonF corners = t.map(rotationOf(*this).map(QPolygonF(boundingRect())));
    setCenter(t.map(center()));
    angle_ = QLineF(corners.at(0), corners.at(1)).angleTo(QLineF(0, 0, 1, 0));
}

bool VRectBase::readStreamThis(VAbstractReader* reader)
{
    return readElement(reader, [&](const QString& key) { return deserialize(reader, this, key); });
}

bool VRectBase::writeStreamThis(VAbstractWriter* writer, const QString& name)
{
    return writeElement(writer, name, [&] {
        serialize(writer, this);
        return true;
    });
}

void VRectBase::setRect(const QRectF& rect) { QRectF::operator=(rect); }

void VRectBase::setRect(double x, double y, double width, double height) { QRectF::setRect(x, y, width, height); }

void VRectBase::setAngle(double angle) { angle_ = angle; }

void VRectBase::setTransformPos(const QPointF& p)
{
    transformPosition_ = p;
    useCustomTransformPos_ = true;
}

QPointF VRectBase::transformPos() const
{
    if (useCustomTransformPos_)
        return transformPosition_;
    const QRectF r = boundingRect();
    return QPointF(r.x() + r.width() * 0.5, r.y() + r.height() * 0.5);
}

void VRectBase::enableCustomTransformPoint(bool enable) { useCustomTransformPos_ = enable; }

bool VRectBase::isCustomTransformPoint() const { return useCustomTransformPos_; }

// VEllipse

VEllipse::VEllipse(const QRectF& rect, double angle, double startAngle, double sweepLength)
    : VRectBase(rect, angle), startAngle_(startAngle), sweepLength_(sweepLength)
{
}

VFigure::Type VEllipse::type() const { return EllipseType; }

double VEllipse::area() const { return std::abs(M_PI * std::abs(width()) * std::abs(height()) / 4.0); }

double VEllipse::perimeter() const
{
    const double a = std::abs(width()) / 2.0, b = std::abs(height()) / 2.0;
    const double s = std::log10(2.0) / std::log10(M_PI / 2.0);
    return 4.0 * std::pow(std::pow(a, s) + std::pow(b, s), 1.0 / s);
}

double VEllipse::startAngle() const { return startAngle_; }

double VEllipse::sweepLength() const { return sweepLength_; }

// VAngle

VAngle::VAngle(const QPointF& vertex, const QPointF& firstArm, const QPointF& secondArm)
    : vertex_(vertex), firstArm_(firstArm), secondArm_(secondArm)
{
}

VFigure::Type VAngle::type() const { return AngleType; }

double VAngle::area() const { return 0.0; }

double VAngle::perimeter() const { return 0.0; }

double VAngle::angle() const { return QLineF(vertex_, secondArm_).angleTo(QLineF(vertex_, firstArm_)); }

VFigure* VAngle::clone() const { return new VAngle(); }

QRectF VAngle::boundingRect() const { return QRectF(vertex_, QSizeF(0, 0)); }

QPointF VAngle::center() const { return vertex_; }

void VAngle::translate(const QPointF& offset)
{
    vertex_ += offset;
    firstArm_ += offset;
    secondArm_ += offset;
}

void VAngle::transform(const QTransform& t)
{
    vertex_ = t.map(vertex_);
    firstArm_ = t.map(firstArm_);
    secondArm_ = t.map(secondArm_);
}

QPointF VAngle::vertex() const { return vertex_; }

QPointF VAngle::firstArm() const { return firstArm_; }

QPointF VAngle::secondArm() const { return secondArm_; }

// VFigureUtils

namespace VFigureUtils {

VPolyPoint getPolyPointFromRect(const VRectBase& rect)
{
    const QRectF r = rect.boundingRect();
    const double x = r.x(), y = r.y(), w = r.width(), h = r.height();
    const QPolygonF corners(
        {QPointF(x, y), QPointF(x + w, y), QPointF(x + w, y + h), QPointF(x, y + h), QPointF(x, y)});
    return VPolyPoint(rotationOf(rect).map(corners));
}

} // namespace VFigureUtils

// Serialization

bool serialize(VAbstractWriter* writer, VFigure* figure)
{
    if (!writer || !figure)
        return false;
    writer->writeAttribute(VSerializationKeys::className, figure->typeString());
    return !writer->hasError();
}

bool serialize(VAbstractWriter* writer, VRectBase* rect)
{
    if (!serialize(writer, static_cast<VFigure*>(rect)))
        return false;
    bool ok = writeProperty(writer, keyRect, QVariant(rect->boundingRect()));
    ok = writeProperty(writer, keyAngle, rect->angle()) && ok;
    ok = writeProperty(writer, keyTransformPosition, QVariant(rect->transformPos())) && ok;
    ok = writeProperty(writer, keyUseCustomTransformPos, rect->isCustomTransformPoint()) && ok;
    return ok;
}

bool serialize(VAbstractWriter* writer, VPolyPoint* points)
{
    if (!serialize(writer, static_cast<VFigure*>(points)))
        return false;
    return writeElement(writer, keyPoints, [&] { return serializePoints(writer, *points); });
}

bool deserialize(VAbstractReader*, VFigure*, const QString&)
{
    return false; // a plain figure has no properties
}

bool deserialize(VAbstractReader* reader, VRectBase* rect, const QString& name)
{
    if (!reader || !rect)
        return false;
    if (name == keyAngle)
        rect->setAngle(readValue<double>(reader));
    else if (name == keyRect)
        rect->setRect(readValue<QVariant>(reader).toRectF());
    else if (name == keyTransformPosition)
        rect->setTransformPos(readValue<QPointF>(reader));
    else if (name == keyUseCustomTransformPos) // written after the position, so the flag ends as stored
        rect->enableCustomTransformPoint(readValue<bool>(reader));
    else
        return false;
    return true;
}

bool deserialize(VAbstractReader* reader, VPolyPoint* points, const QString& name)
{
    if (!reader || !points || name != keyPoints)
        return false;
    QList<QPointF> read;
    if (!deserializePoints(reader, &read))
        stepPast(reader);
    points->setPolygon(QPolygonF(read));
    return true;
}

template <>
VFigure* deserializeNew<VFigure>(VAbstractReader*, const QString& className)
{
    if (className == VFigure::typeToString(VFigure::PolyPointType))
        return new VPolyPoint();
    if (className == VFigure::typeToString(VFigure::RectBaseType))
        return new VRectBase(QRectF(0, 0, 0, 0), 0.0);
    if (className == VFigure::typeToString(VFigure::EllipseType))
        return new VEllipse(QRectF(0, 0, 0, 0), 0.0, 0.0, 360.0);
    if (className == VFigure::typeToString(VFigure::PolygonType))
        return new VPolygon();
    if (className == VFigure::typeToString(VFigure::AngleType))
        return new VAngle();
    return nullptr;
}
