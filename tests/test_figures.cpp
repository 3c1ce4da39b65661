// Figures: measures, moves, hulls, point arrays and serialization trees. Over 500 lines because every
// figure type has its table of cases here, kept beside the others for comparison.
#include <vexa/Vexa.h>

#include <vcore/VSerialization.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <memory>
#include <random>
#include <type_traits>
#include <utility>

namespace {

// Whether serialize(writer, T) is a call that compiles (a deleted overload makes it ill-formed).
template <class T, class = void>
struct Serializable : std::false_type {
};
template <class T>
struct Serializable<T, std::void_t<decltype(serialize(std::declval<VAbstractWriter*>(), std::declval<T>()))>>
    : std::true_type {
};

static_assert(Serializable<VEllipse*>::value && Serializable<VPolygon*>::value && Serializable<VAngle*>::value);
static_assert(!Serializable<const VFigure*>::value, "a const figure must not pass for a bool");
static_assert(!Serializable<const char*>::value);

void expectNear(const QPointF& actual, const QPointF& expected, double tolerance = 1e-9)
{
    EXPECT_NEAR(actual.x(), expected.x(), tolerance) << "expected y " << expected.y();
    EXPECT_NEAR(actual.y(), expected.y(), tolerance) << "expected x " << expected.x();
}

// Braced point lists of one or two points are ambiguous to QPolygonF's own constructors.
QPolygonF poly(std::initializer_list<QPointF> points) { return QPolygonF(QList<QPointF>(points)); }

QPolygonF square() { return poly({{0, 0}, {1, 0}, {1, 1}, {0, 1}}); }

// The XML of one figure written as the document's root, without the XML declaration.
QByteArray written(VFigure* figure, const QString& name = QStringLiteral("figure"))
{
    QByteArray xml;
    {
        VXmlWriter writer(&xml);
        EXPECT_TRUE(figure->writeStreamThis(&writer, name));
    }
    return xml.mid(xml.indexOf('\n') + 1).trimmed();
}

// A figure made by its class name and read from the document's root.
std::unique_ptr<VFigure> readBack(const QByteArray& xml)
{
    VXmlReader reader(xml);
    std::unique_ptr<VFigure> figure(deserializeNew<VFigure>(&reader, reader.attribute("className")));
    if (figure) {
        EXPECT_TRUE(figure->readStreamThis(&reader));
    }
    return figure;
}

TEST(Figures, TypesNamesAndClones)
{
    VPolyPoint line(square());
    VPolygon polygon(square());
    VRectBase rect(1, 2, 3, 4, 30);
    rect.setTransformPos({5, 6});
    VEllipse ellipse(QRectF(1, 2, 3, 4), 30, 10, 90);
    VAngle angle({1, 1}, {2, 1}, {1, 2});
    const struct {
        VFigure* figure;
        int type;
        const char* name;
        bool rectBase;
        int cloneType;
    } cases[] = {
        {&line, 1, "Polyline", false, 1},  {&polygon, 5, "Polygon", false, 1}, {&rect, 2, "RectBase", true, 2},
        {&ellipse, 3, "Ellipse", true, 2}, {&angle, 4, "Angle", false, 4},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.figure->type(), c.type);
        EXPECT_EQ(c.figure->typeString(), c.name);
        EXPECT_EQ(c.figure->typeName(), c.name) << "no translator installed";
        EXPECT_EQ(VFigure::isRectBaseType(c.figure->type()), c.rectBase) << c.name;
        const std::unique_ptr<VFigure> copy(c.figure->clone());
        EXPECT_EQ(copy->type(), c.cloneType) << c.name;
    }
    EXPECT_EQ(VFigure::typeToString(VFigure::FigureType), "Figure");
    EXPECT_TRUE(VFigure::typeToString(VFigure::Type(6)).isNull());
    EXPECT_TRUE(VFigure::typeToName(VFigure::Type(-1)).isNull());

    // The clones that keep less than their source.
    const std::unique_ptr<VFigure> rectCopy(rect.clone()), ellipseCopy(ellipse.clone()), angleCopy(angle.clone());
    const auto* r = static_cast<const VRectBase*>(ellipseCopy.get());
    EXPECT_EQ(r->boundingRect(), QRectF(1, 2, 3, 4));
    EXPECT_EQ(r->angle(), 0.0);
    EXPECT_FALSE(static_cast<const VRectBase*>(rectCopy.get())->isCustomTransformPoint());
    const auto* a = static_cast<const VAngle*>(angleCopy.get());
    EXPECT_EQ(a->vertex(), QPointF());
    EXPECT_EQ(a->firstArm(), QPointF());
    EXPECT_EQ(a->secondArm(), QPointF());
    const std::unique_ptr<VFigure> lineCopy(polygon.clone());
    EXPECT_EQ(static_cast<const VPolyPoint*>(lineCopy.get())->polygon(), square());
}

TEST(PolyPoint, MeasuresOfSmallShapes)
{
    VPolyPoint line(square());
    EXPECT_DOUBLE_EQ(line.perimeter(), 3.0) << "the closing segment is not counted";
    line.close();
    EXPECT_EQ(line.count(), 5);
    EXPECT_DOUBLE_EQ(line.perimeter(), 4.0);
    line.close();
    EXPECT_EQ(line.count(), 5) << "closed already";
    EXPECT_EQ(line.area(), 0.0);
    VPolygon polygon(poly({{0, 0}, {4, 0}, {4, 3}}));
    EXPECT_DOUBLE_EQ(polygon.area(), 6.0);
    EXPECT_DOUBLE_EQ(polygon.perimeter(), 7.0) << "open for a polygon too";

    // The angle at the second point, from the leg to the third to the leg to the first.
    EXPECT_NEAR(VPolyPoint(poly({{1, 0}, {0, 0}, {0, 1}})).angle(), 90.0, 1e-12);
    EXPECT_NEAR(VPolyPoint(poly({{0, 1}, {0, 0}, {1, 0}})).angle(), 270.0, 1e-12);
    EXPECT_EQ(VPolyPoint(poly({{0, 0}, {5, 5}})).angle(), 0.0);

    const struct {
        QPolygonF points;
        bool empty, point, angle;
        QLineF first;
    } cases[] = {
        {{}, true, false, false, QLineF()},
        {poly({{2, 3}}), false, true, false, QLineF(2, 3, 2, 3)},
        {poly({{2, 3}, {4, 5}}), false, false, false, QLineF(2, 3, 4, 5)},
        {poly({{2, 3}, {4, 5}, {6, 7}}), false, false, true, QLineF(2, 3, 4, 5)},
    };
    for (const auto& c : cases) {
        VPolyPoint p(c.points);
        EXPECT_EQ(p.isEmpty(), c.empty);
        EXPECT_EQ(p.isPoint(), c.point);
        EXPECT_EQ(p.isAngle(), c.angle);
        EXPECT_EQ(p.firstSegment(), c.first);
    }
    VPolyPoint none;
    none.close();
    EXPECT_TRUE(none.isEmpty());
    EXPECT_EQ(none.perimeter(), 0.0);

    VPolyPoint shape(poly({{1, 2}, {5, 2}, {3, 8}}));
    EXPECT_EQ(shape.boundingRect(), QRectF(1, 2, 4, 6));
    EXPECT_EQ(shape.center(), QPointF(3, 5));
    shape.setCenter({0, 0});
    EXPECT_EQ(shape.polygon(), poly({{-2, -3}, {2, -3}, {0, 3}}));
}

TEST(PolyPoint, OpenCvPointsTruncateTowardZero)
{
    const VPolyPoint points(poly({{2.9, -2.9}, {-0.5, 0.99}, {std::nan(""), 1e20}, {-1e20, 7}}));
    const std::unique_ptr<cv::Point[]> ints(points.toCvPoints());
    const cv::Point expected[] = {{2, -2}, {0, 0}, {0, INT_MAX}, {INT_MIN, 7}};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(ints[i], expected[i]) << i;
    const std::unique_ptr<cv::Point2f[]> floats(points.toCvPoint2D32f());
    EXPECT_EQ(floats[0], cv::Point2f(2.9f, -2.9f));
    EXPECT_EQ(floats[3], cv::Point2f(-1e20f, 7.0f));
    const VPolyPoint none;
    const std::unique_ptr<cv::Point[]> noInts(none.toCvPoints());
    const std::unique_ptr<cv::Point2f[]> noFloats(none.toCvPoint2D32f());
    EXPECT_NE(noInts.get(), nullptr);
    EXPECT_NE(noFloats.get(), nullptr);
}

TEST(PolyPoint, ConvexHullKeepsCornersOnlyFromThePivotOn)
{
    const double nan = std::nan("");
    const struct {
        QPolygonF in, out;
    } cases[] = {
        // interior (2,2), points in the middle of edges, a duplicate corner
        {poly({{2, 2}, {4, 4}, {0, 0}, {2, 0}, {4, 0}, {4, 2}, {0, 4}, {0, 0}, {1, 3}}),
         poly({{0, 0}, {4, 0}, {4, 4}, {0, 4}})},
        // a triangle given the other way round; the pivot is the least y, of those the least x
        {poly({{5, 1}, {0, 5}, {9, 5}}), poly({{5, 1}, {9, 5}, {0, 5}})},
        {poly({{3, 0}, {0, 0}, {1, 2}}), poly({{0, 0}, {3, 0}, {1, 2}})},
        {poly({{3, 3}, {1, 1}, {2, 2}, {3, 3}}), poly({{1, 1}, {3, 3}})},
        {poly({{3, 3}, {3, 3}}), poly({{3, 3}})},
        {poly({{1, nan}, {0, 0}, {2, 0}, {1, 1}}), poly({{0, 0}, {2, 0}, {1, 1}})},
        {QPolygonF(), QPolygonF()},
    };
    for (const auto& c : cases) {
        VPolyPoint p(c.in);
        p.convexHull();
        EXPECT_EQ(p.polygon(), c.out) << "from " << c.in.size() << " points";
    }

    // Random clouds: every point lies on the left of (or on) every hull edge, the hull turns strictly left at
    // each corner, and its corners are input points.
    std::mt19937 random(5);
    std::uniform_int_distribution<int> coordinate(-20, 20);
    for (int round = 0; round < 50; ++round) {
        QPolygonF cloud;
        for (int i = 0; i < 3 + round; ++i)
            cloud.append(QPointF(coordinate(random), coordinate(random)));
        VPolyPoint hull(cloud);
        hull.convexHull();
        const qsizetype n = hull.count();
        ASSERT_GE(n, 1);
        const auto cross = [](QPointF o, QPointF a, QPointF b) {
            return (a.x() - o.x()) * (b.y() - o.y()) - (a.y() - o.y()) * (b.x() - o.x());
        };
        for (qsizetype i = 0; i < n; ++i) {
            EXPECT_TRUE(cloud.contains(hull[i]));
            if (n < 3)
                continue;
            const QPointF a = hull[i], b = hull[(i + 1) % n];
            EXPECT_GT(cross(a, b, hull[(i + 2) % n]), 0) << "round " << round;
            for (const QPointF& p : cloud)
                EXPECT_GE(cross(a, b, p), 0) << "round " << round;
        }
    }
}

TEST(PolyPoint, WidthHeightOfTheTightestEdgeAlignedBox)
{
    const QTransform turn = QTransform().rotate(30);
    const struct {
        QPolygonF points;
        double width, height;
    } cases[] = {
        {turn.map(poly({{0, 0}, {2, 0}, {2, 2}, {0, 2}})), 2, 2},
        {turn.map(poly({{0, 0}, {4, 0}, {4, 1}, {0, 1}})), 4, 1},
        // the edge from the last point back to the first gives the tightest box
        {turn.map(poly({{4, 0}, {3.5, 0.8}, {2, 1}, {0.5, 0.8}, {0, 0}})), 4, 1},
        {poly({{0, 0}, {0, 0}, {3, 4}}), 5, 0},
        {poly({{1, 1}, {1, 1}}), 0, 0},
        {poly({{1, 1}}), 0, 0},
        {QPolygonF(), 0, 0},
    };
    for (const auto& c : cases) {
        const QPair<double, double> wh = VPolyPoint(c.points).widthHeight();
        EXPECT_NEAR(wh.first, c.width, 1e-9) << c.points.size();
        EXPECT_NEAR(wh.second, c.height, 1e-9) << c.points.size();
    }
}

TEST(PolyPoint, MovesAndHomography)
{
    VPolyPoint p(poly({{1, 2}, {3, -4}}));
    p.translate({1, 1});
    EXPECT_EQ(p.polygon(), poly({{2, 3}, {4, -3}}));
    p.transform(QTransform().rotate(90));
    expectNear(p.at(0), {-3, 2});
    p.scale(2.0);
    expectNear(p.at(1), {6, 8});

    // The homography maps as QTransform does with the same matrix.
    const QTransform q(1.1, 0.05, 0.0002, -0.1, 0.95, 0.0001, 12, -7, 1);
    VTransformPerspective m;
    m.fromQTransform(q);
    const QPolygonF points({{0, 0}, {100, 0}, {100, 80}, {-30, 55.5}});
    VPolyPoint mapped(points);
    mapped.transformHomography(m);
    for (int i = 0; i < points.size(); ++i)
        expectNear(mapped.at(i), q.map(points.at(i)), 1e-9);
}

TEST(Polygon, FromRectIgnoresTheAngle)
{
    const VRectBase rect(1, 2, 3, 4, 30);
    VPolygon p(square());
    p.fromRect(&rect);
    EXPECT_EQ(p.polygon(), poly({{1, 6}, {4, 6}, {4, 2}, {1, 2}, {1, 6}}));
    p.fromRect(nullptr);
    EXPECT_EQ(p.count(), 5);
    EXPECT_DOUBLE_EQ(p.area(), 12.0);
}

TEST(RectBase, ConstructionCentreAndPivot)
{
    const VRectBase box(cv::RotatedRect(cv::Point2f(10, 20), cv::Size2f(4, 6), 30));
    EXPECT_EQ(box.boundingRect(), QRectF(8, 17, 4, 6));
    EXPECT_EQ(box.angle(), 30.0);
    EXPECT_FALSE(box.isCustomTransformPoint());
    expectNear(box.center(), {10, 20}, 1e-12);
    EXPECT_EQ(box.transformPos(), QPointF(10, 20));

    VRectBase r(QRectF(8, 17, 4, 6), 90);
    r.setTransformPos({0, 0});
    EXPECT_TRUE(r.isCustomTransformPoint());
    expectNear(r.center(), {-20, 10}); // the centre turned about the custom pivot
    r.translate({1, 2});
    EXPECT_EQ(r.transformPos(), QPointF(1, 2)) << "the custom pivot moves with the rectangle";
    expectNear(r.center(), {-20 + 1, 10 + 2});
    r.enableCustomTransformPoint(false);
    EXPECT_EQ(r.transformPos(), QPointF(11, 22));

    const VRectBase flipped(5, 5, -2, 3);
    EXPECT_EQ(flipped.area(), 6.0);
    EXPECT_EQ(flipped.perimeter(), 10.0);
}

TEST(RectBase, ScaleAndTransformKeepTheSize)
{
    VRectBase tilted(1, 2, 3, 4, -30);
    tilted.setTransformPos({7, 7});
    const VRectBase before = tilted;
    tilted.scale(1.0);
    EXPECT_EQ(tilted.angle(), -30.0) << "1.0 does nothing, not even normalise the angle";
    EXPECT_EQ(tilted.boundingRect(), before.boundingRect());

    VRectBase r(10, 10, 4, 4, 0);
    r.scale(2.0);
    expectNear(r.center(), {24, 24});
    EXPECT_EQ(r.width(), 4.0);
    EXPECT_EQ(r.height(), 4.0);

    // A turn and a shift: the centre follows the map and the angle adds up.
    VRectBase rotated(0, 0, 4, 2, 30);
    const QTransform t = QTransform::fromTranslate(5, -3).rotate(45);
    const QPointF mappedCentre = t.map(rotated.center());
    rotated.transform(t);
    expectNear(rotated.center(), mappedCentre);
    EXPECT_NEAR(rotated.angle(), 75.0, 1e-9);
    EXPECT_EQ(rotated.width(), 4.0);
    EXPECT_EQ(rotated.height(), 2.0);
    VEllipse ellipse(QRectF(0, 0, 4, 2), 0, 0, 90);
    ellipse.transform(QTransform().rotate(90));
    EXPECT_NEAR(ellipse.angle(), 90.0, 1e-9);
    EXPECT_EQ(ellipse.sweepLength(), 90.0);
}

TEST(Ellipse, AreaAndPerimeter)
{
    const VEllipse circle(QRectF(0, 0, 10, -10), 15, 0, 360);
    EXPECT_NEAR(circle.area(), M_PI * 25, 1e-9);
    EXPECT_NEAR(circle.perimeter(), M_PI * 10, 1e-9);
    EXPECT_NEAR(VEllipse(QRectF(0, 0, 10, 0)).perimeter(), 20.0, 1e-9) << "flat: there and back";
}

TEST(Angle, MeasuresAndMoves)
{
    VAngle a({1, 1}, {2, 1}, {1, 2});
    EXPECT_NEAR(a.angle(), 90.0, 1e-12);
    EXPECT_NEAR(VAngle({1, 1}, {1, 2}, {2, 1}).angle(), 270.0, 1e-12);
    EXPECT_EQ(VAngle().angle(), 0.0);
    EXPECT_EQ(a.area(), 0.0);
    EXPECT_EQ(a.perimeter(), 0.0);
    EXPECT_EQ(a.boundingRect(), QRectF(1, 1, 0, 0));
    a.setCenter({0, 0});
    EXPECT_EQ(a.secondArm(), QPointF(0, 1));
    a.transform(QTransform::fromScale(3, 3));
    EXPECT_EQ(a.firstArm(), QPointF(3, 0));
    EXPECT_EQ(a.center(), QPointF(0, 0));
}

TEST(FigureXml, WritesTheExactLayoutAndReadsItBack)
{
    VRectBase rect(1.5, 2, 3, 4, 30);
    rect.setTransformPos({7, 8});
    EXPECT_EQ(written(&rect),
              "<figure name=\"figure\" className=\"RectBase\">\n"
              "    <rect name=\"rect\" type=\"QRectF\" value=\"1.5;2;3;4\"/>\n"
              "    <angle name=\"angle\" type=\"double\" value=\"30\"/>\n"
              "    <transform_position name=\"transform_position\" type=\"QPointF\" value=\"7;8\"/>\n"
              "    <use_custom_transform_pos name=\"use_custom_transform_pos\" type=\"bool\" value=\"true\"/>\n"
              "</figure>");
    const std::unique_ptr<VFigure> back(readBack(written(&rect)));
    ASSERT_TRUE(back);
    const auto* r = static_cast<const VRectBase*>(back.get());
    EXPECT_EQ(r->boundingRect(), QRectF(1.5, 2, 3, 4));
    EXPECT_EQ(r->angle(), 30.0);
    EXPECT_TRUE(r->isCustomTransformPoint());
    EXPECT_EQ(r->transformPos(), QPointF(7, 8));

    // Without a custom pivot the centre is written (the flag, read after it, clears it again: see the arc test).
    VEllipse ellipse(QRectF(0, 0, 2, 2), 0, 0, 360);
    EXPECT_TRUE(
        written(&ellipse).contains("<transform_position name=\"transform_position\" type=\"QPointF\" value=\"1;1\"/>"));

    VPolygon polygon(poly({{1, 2}, {-0.25, 1e-3}}));
    EXPECT_EQ(written(&polygon, "outline"),
              "<outline name=\"outline\" className=\"Polygon\">\n"
              "    <points name=\"points\">\n"
              "        <list_element name=\"list_element\" type=\"QPointF\" value=\"1;2\"/>\n"
              "        <list_element name=\"list_element\" type=\"QPointF\" value=\"-0.25;0.001\"/>\n"
              "    </points>\n"
              "</outline>");
    const std::unique_ptr<VFigure> polygonBack(readBack(written(&polygon)));
    ASSERT_TRUE(polygonBack);
    EXPECT_EQ(static_cast<const VPolygon*>(polygonBack.get())->polygon(), polygon.polygon());
    VPolyPoint none;
    EXPECT_EQ(written(&none), "<figure name=\"figure\" className=\"Polyline\">\n"
                              "    <points name=\"points\"/>\n"
                              "</figure>");

    VAngle angle({1, 1}, {2, 1}, {1, 2});
    EXPECT_EQ(written(&angle), "<figure name=\"figure\" className=\"Angle\"/>");
    const std::unique_ptr<VFigure> angleBack(readBack(written(&angle)));
    ASSERT_TRUE(angleBack);
    EXPECT_EQ(angleBack->center(), QPointF()) << "an angle's points are not stored";

    // The free overloads pick the most derived class they know, never the bool writer.
    QByteArray xml;
    {
        VXmlWriter writer(&xml);
        writer.beginElement("e");
        EXPECT_TRUE(serialize(&writer, &ellipse));
        writer.endElement();
    }
    EXPECT_TRUE(xml.contains("<e className=\"Ellipse\">")) << xml.constData();
    EXPECT_TRUE(xml.contains("<rect name=\"rect\""));
}

TEST(FigureXml, ReadingSkipsUnknownKeysAndStopsAfterItsElement)
{
    const QByteArray xml = R"(<doc>
        <f className="RectBase">
            <colour name="colour" type="QString" value="red"><nested name="angle" type="double" value="9"/></colour>
            <angle name="angle" type="double" value="not a number"/>
            <rect name="rect" type="QRectF" value="1;2;3;4"/>
            <use_custom_transform_pos name="use_custom_transform_pos" type="bool" value="true"/>
        </f>
        <g className="Polyline">
            <points name="points">
                <list_element name="list_element" type="QPointF" value="1;2"/>
                <other name="other" type="QPointF" value="8;8"/>
                <list_element name="list_element" type="double" value="5"/>
                <list_element name="list_element" type="QPointF" value="3;4"><x/></list_element>
            </points>
            <points name="unknown"><list_element type="QPointF" value="9;9"/></points>
        </g>
        <after/>
    </doc>)";
    VXmlReader reader(xml);
    reader.readNext();
    VRectBase rect(0, 0, 1, 1, 45);
    ASSERT_TRUE(rect.readStreamThis(&reader));
    EXPECT_EQ(rect.angle(), 0.0) << "an unreadable value stores 0, and the nested angle was skipped";
    EXPECT_EQ(rect.boundingRect(), QRectF(1, 2, 3, 4));
    EXPECT_TRUE(rect.isCustomTransformPoint());
    ASSERT_EQ(reader.tag(), "g");
    VPolyPoint line(square());
    ASSERT_TRUE(line.readStreamThis(&reader));
    EXPECT_EQ(line.polygon(), poly({{1, 2}, {3, 4}}));
    EXPECT_EQ(reader.tag(), "after");
    EXPECT_TRUE(reader.isStartElement());
}

TEST(FigureXml, EllipseArcComesFromWhoeverMadeTheObject)
{
    VEllipse source(QRectF(1, 2, 3, 4), 20, 45, 90);
    const QByteArray xml = written(&source);
    EXPECT_TRUE(xml.contains("className=\"Ellipse\""));
    const std::unique_ptr<VFigure> made(readBack(xml));
    ASSERT_TRUE(made);
    const auto* e = static_cast<const VEllipse*>(made.get());
    EXPECT_FALSE(e->isCustomTransformPoint()) << "the centre written without a custom pivot is not one on reading";
    EXPECT_EQ(e->sweepLength(), 360.0);
    EXPECT_EQ(e->startAngle(), 0.0);
    EXPECT_EQ(e->boundingRect(), QRectF(1, 2, 3, 4));

    VEllipse existing(QRectF(), 0, 10, 30);
    VXmlReader reader(xml);
    ASSERT_TRUE(existing.readStreamThis(&reader));
    EXPECT_EQ(existing.sweepLength(), 30.0);
    EXPECT_EQ(existing.startAngle(), 10.0);
    EXPECT_EQ(existing.angle(), 20.0);
}

TEST(FigureXml, DeserializeNewKnowsExactClassNamesOnly)
{
    const struct {
        const char* name;
        int type;
    } cases[] = {
        {"Polyline", 1}, {"RectBase", 2}, {"Ellipse", 3},    {"Angle", 4}, {"Polygon", 5},
        {"Figure", -1},  {"polygon", -1}, {"Polyline ", -1}, {"", -1},     {"VEllipse", -1},
    };
    for (const auto& c : cases) {
        const std::unique_ptr<VFigure> f(deserializeNew<VFigure>(nullptr, c.name));
        EXPECT_EQ(f ? int(f->type()) : -1, c.type) << c.name;
        if (f && VFigure::isRectBaseType(f->type())) {
            EXPECT_EQ(f->boundingRect(), QRectF(0, 0, 0, 0));
        }
    }
}

TEST(FigureXml, NullAndMalformedInputFailQuietly)
{
    VRectBase rect(1, 1, 1, 1, 5);
    VPolyPoint line(square());
    VAngle angle;
    for (VFigure* f : std::initializer_list<VFigure*>{&rect, &line, &angle}) {
        EXPECT_FALSE(f->readStreamThis(nullptr));
        EXPECT_FALSE(f->writeStreamThis(nullptr, "x"));
        VXmlReader empty(QByteArray{});
        EXPECT_FALSE(f->readStreamThis(&empty));
        VXmlReader garbage("<<not xml");
        EXPECT_FALSE(f->readStreamThis(&garbage));
    }
    EXPECT_FALSE(serialize(nullptr, &rect));
    EXPECT_FALSE(deserialize(nullptr, &rect, "angle"));
    EXPECT_FALSE(deserialize(nullptr, static_cast<VPolyPoint*>(nullptr), "points"));

    // A document cut short: what came before the cut is read, and the walk ends.
    VXmlReader cut("<f><rect name=\"rect\" type=\"QRectF\" value=\"1;2;3;4\"/><points name=\"points\"><list_element");
    rect.readStreamThis(&cut);
    EXPECT_EQ(rect.boundingRect(), QRectF(1, 2, 3, 4));
    VXmlReader cutPoints(
        "<f><points name=\"points\"><list_element name=\"list_element\" type=\"QPointF\" value=\"5;5\"/>");
    line.readStreamThis(&cutPoints);
    EXPECT_TRUE(line.isEmpty()) << "an unfinished point list stores no points";

    // A name the writer refuses as a tag writes nothing into the open element.
    QByteArray xml;
    {
        VXmlWriter writer(&xml);
        writer.beginElement("root");
        EXPECT_FALSE(rect.writeStreamThis(&writer, "1 bad"));
    }
    EXPECT_FALSE(xml.contains("className"));
}

} // namespace
