// Figures read from any bytes as XML: every element that names a figure class is read as that figure, and
// the root element is read once as each class in turn; each figure is then measured, moved, hulled, turned
// into point arrays and transforms, written back and read again.
#include "fuzz_common.h"

#include <vcore/VSerialization.h>

#include <memory>

namespace {

const char* const classNames[] = {"Polyline", "RectBase", "Ellipse", "Polygon", "Angle"};

void exercise(VFigure* figure)
{
    (void)figure->area();
    (void)figure->perimeter();
    (void)figure->angle();
    (void)figure->boundingRect();
    (void)figure->typeName();
    const QPointF centre = figure->center();

    const std::unique_ptr<VFigure> copy(figure->clone());
    FUZZ_CHECK(copy && VFigure::isRectBaseType(copy->type()) == VFigure::isRectBaseType(figure->type()));
    copy->translate(QPointF(1.5, -2));
    copy->scale(0.5);
    copy->transform(QTransform().translate(3, 4).rotate(33).shear(0.1, 0));
    copy->setCenter(centre);

    if (auto* points = dynamic_cast<VPolyPoint*>(figure)) {
        (void)points->widthHeight();
        (void)points->firstSegment();
        delete[] points->toCvPoints();
        delete[] points->toCvPoint2D32f();
        VPolyPoint hull(*points);
        hull.convexHull();
        FUZZ_CHECK(hull.count() <= points->count());
        VTransformPerspective m;
        m.fromQTransform(QTransform(1.1, 0.05, 0.0002, -0.1, 0.95, 0.0001, 12, -7, 1));
        hull.transformHomography(m);
        (void)VEXA::findPerspectiveTransformation(*points, QSize(16, 9));
        (void)VEXA::findPerspectiveTransformation(hull, *points);
        points->close();
    }
    if (auto* rect = dynamic_cast<VRectBase*>(figure)) {
        (void)VEXA::findPerspectiveTransformation(*rect, QSize(8, 8));
        VPolygon outline;
        outline.fromRect(rect);
        FUZZ_CHECK(outline.count() == 5);
    }

    // Written back, it reads again as the same class, point for point.
    QByteArray xml;
    {
        VXmlWriter writer(&xml);
        FUZZ_CHECK(figure->writeStreamThis(&writer, QStringLiteral("figure")));
    }
    VXmlReader reader(xml);
    const std::unique_ptr<VFigure> again(
        deserializeNew<VFigure>(&reader, reader.attribute(QStringLiteral("className"))));
    FUZZ_CHECK(again && again->type() == figure->type());
    FUZZ_CHECK(again->readStreamThis(&reader));
    if (auto* points = dynamic_cast<VPolyPoint*>(figure))
        FUZZ_CHECK(static_cast<VPolyPoint*>(again.get())->count() == points->count());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzzSetUp();
    const QByteArray bytes = bytesOf(data, size);

    // Every element that names its class; the others are walked into.
    VXmlReader reader(bytes);
    for (int steps = 0; steps < 256 && !reader.atEnd(); ++steps) {
        if (!reader.isStartElement()) {
            reader.readNext();
            continue;
        }
        std::unique_ptr<VFigure> figure(
            deserializeNew<VFigure>(&reader, reader.attribute(QStringLiteral("className"))));
        if (!figure) {
            reader.readNext();
            continue;
        }
        FUZZ_CHECK(figure->readStreamThis(&reader));
        exercise(figure.get());
    }

    // The root as every class in turn, whatever it names.
    for (const char* name : classNames) {
        VXmlReader root(bytes);
        std::unique_ptr<VFigure> figure(deserializeNew<VFigure>(&root, QString::fromLatin1(name)));
        FUZZ_CHECK(figure);
        if (figure->readStreamThis(&root))
            exercise(figure.get());
    }
    return 0;
}
