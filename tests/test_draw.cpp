// Drawing figures and text into images.
#include "support/images.h"

#include <vcore/MathUtils.h>

#include <QFont>

#include <gtest/gtest.h>

#include <cmath>

using namespace VEXA;

namespace {

VImage blankImage(int width, int height, Format format)
{
    VImage image;
    image.create(width, height, format, Channel8u, OriginTopLeft, RowsAlignNone);
    std::memset(image.rawData(), 0, size_t(image.dataSize()));
    return image;
}

// Pixels whose first component is not zero, over the whole image.
int litPixels(const VImage& image, QRect* bounds = nullptr)
{
    int n = 0;
    QRect box;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (*pixelAt(image, x, y) != 0) {
                ++n;
                box |= QRect(x, y, 1, 1);
            }
    if (bounds)
        *bounds = box;
    return n;
}

TEST(Draw, OnePixelLineLandsOnItsRowInEveryPaintableFormat)
{
    const VPolyPoint line(QPolygonF{QPointF(2, 5), QPointF(12, 5)});
    for (Format f : {GrayScale, BGR, XRGB, ARGB, ARGB_Premultiplied})
        for (bool antialiased : {false, true}) {
            VImage image = blankImage(16, 10, f);
            ASSERT_TRUE(drawFigure(&image, line, Qt::white, 1.0, antialiased)) << f;
            QRect box;
            EXPECT_EQ(litPixels(image, &box), 11) << f << " " << antialiased;
            EXPECT_EQ(box, QRect(2, 5, 11, 1)) << f << " " << antialiased;
            EXPECT_EQ(*pixelAt(image, 7, 5), 255) << f;
        }
    // Colours land in their components: BGR keeps B first; gray takes the colour's gray.
    VImage bgr = blankImage(16, 10, BGR), gray = blankImage(16, 10, GrayScale);
    ASSERT_TRUE(drawFigure(&bgr, line, QColor(10, 20, 30)));
    ASSERT_TRUE(drawFigure(&gray, line, QColor(10, 20, 30)));
    EXPECT_EQ(pixelAt(bgr, 4, 5)[0], 30);
    EXPECT_EQ(pixelAt(bgr, 4, 5)[2], 10);
    EXPECT_NEAR(*pixelAt(gray, 4, 5), qGray(10, 20, 30), 1);
}

TEST(Draw, FilledAreasMatchTheGeometry)
{
    const VPolygon polygon(QPolygonF{QPointF(10.3, 12.7), QPointF(150.2, 30.1), QPointF(170.6, 140.4),
                                     QPointF(60.5, 170.9), QPointF(20.1, 110.2)});
    const VEllipse ellipse(QRectF(30.5, 40.25, 120, 70), 35.0, 0.0, 360.0);
    const VRectBase rect(QRectF(40, 60, 100, 30), 60.0);
    for (const VFigure* figure : std::initializer_list<const VFigure*>{&polygon, &ellipse, &rect}) {
        VImage image = blankImage(200, 200, GrayScale);
        ASSERT_TRUE(fillFigure(&image, *figure, Qt::white, false)) << figure->typeString().toStdString();
        EXPECT_NEAR(litPixels(image), figure->area(), figure->area() * 0.01) << figure->typeString().toStdString();
        // Antialiased coverage sums to the same area.
        image = blankImage(200, 200, GrayScale);
        ASSERT_TRUE(fillFigure(&image, *figure, Qt::white, true));
        EXPECT_NEAR(cv::sum(roiMat(image))[0] / 255.0, figure->area(), figure->area() * 0.01);
    }
}

TEST(Draw, FiguresTakeTheirShapes)
{
    // A rectangle turned by 90 degrees about its centre stands upright.
    VImage image = blankImage(80, 80, GrayScale);
    QRect box;
    ASSERT_TRUE(fillFigure(&image, VRectBase(QRectF(20, 35, 40, 10), 90.0), Qt::white));
    litPixels(image, &box);
    EXPECT_EQ(box, QRect(35, 20, 10, 40));
    // The arc of a quarter from 0 degrees runs over the upper right of the ellipse, as displayed.
    image = blankImage(80, 80, GrayScale);
    ASSERT_TRUE(drawFigure(&image, VEllipse(QRectF(10, 10, 60, 60), 0.0, 0.0, 90.0), Qt::white, 1.0, false));
    litPixels(image, &box);
    EXPECT_GE(box.left(), 39);
    EXPECT_LE(box.bottom(), 41);
    EXPECT_GE(box.width(), 30);
    // An angle is its two arms: the far ends are painted, the space between them is not.
    image = blankImage(80, 80, GrayScale);
    ASSERT_TRUE(drawFigure(&image, VAngle(QPointF(10, 70), QPointF(70, 70), QPointF(10, 10)), Qt::white, 1.0, false));
    EXPECT_EQ(*pixelAt(image, 70, 70), 255);
    EXPECT_EQ(*pixelAt(image, 10, 10), 255);
    EXPECT_EQ(*pixelAt(image, 40, 40), 0);
    EXPECT_EQ(litPixels(image), 121);
    // A polyline of one point is a dot; a polyline is open, a polygon closed.
    image = blankImage(20, 20, GrayScale);
    ASSERT_TRUE(drawFigure(&image, VPolyPoint(QPolygonF{QPointF(4, 6)}), Qt::white));
    EXPECT_EQ(litPixels(image, &box), 1);
    EXPECT_EQ(box, QRect(4, 6, 1, 1));
    const QPolygonF corner{QPointF(2, 2), QPointF(12, 2), QPointF(12, 12)};
    image = blankImage(20, 20, GrayScale);
    ASSERT_TRUE(drawFigure(&image, VPolyPoint(corner), Qt::white));
    EXPECT_EQ(*pixelAt(image, 7, 7), 0);
    ASSERT_TRUE(drawFigure(&image, VPolygon(corner), Qt::white));
    EXPECT_EQ(*pixelAt(image, 7, 7), 255);
}

TEST(Draw, PaintsOnlyInsideTheRoi)
{
    VImage image = withRoi(blankImage(30, 20, BGR), QRect(10, 5, 15, 10));
    ASSERT_TRUE(fillFigure(&image, VRectBase(QRectF(-100, -100, 1000, 1000), 0.0), Qt::red));
    QRect box;
    EXPECT_EQ(litPixels(image, &box), 0); // red has no blue: the first component stays 0
    ASSERT_TRUE(fillFigure(&image, VRectBase(QRectF(-100, -100, 1000, 1000), 0.0), Qt::blue));
    EXPECT_EQ(litPixels(image, &box), 150);
    EXPECT_EQ(box, QRect(10, 5, 15, 10));
    // Coordinates are relative to the roi.
    image = withRoi(blankImage(30, 20, GrayScale), QRect(10, 5, 15, 10));
    ASSERT_TRUE(drawFigure(&image, VPolyPoint(QPolygonF{QPointF(0, 0)}), Qt::white));
    EXPECT_EQ(*pixelAt(image, 10, 5), 255);
}

TEST(Draw, TextPaintsNearItsBaseline)
{
    VImage image = blankImage(120, 40, XRGB);
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(20);
    ASSERT_TRUE(drawText(&image, QStringLiteral("Vexa"), QPointF(5, 30), font, Qt::white));
    QRect box;
    EXPECT_GT(litPixels(image, &box), 50);
    EXPECT_LE(box.bottom(), 31);
    EXPECT_GE(box.top(), 8);
    EXPECT_GE(box.left(), 4);
}

TEST(Draw, RefusesWhatItCannotPaint)
{
    VImage gray = blankImage(20, 20, GrayScale), wide;
    wide.create(20, 20, GrayScale, Channel16u, OriginTopLeft, RowsAlignNone);
    VImage yuv = blankImage(20, 20, YUV422), empty;
    const VPolyPoint line(QPolygonF{QPointF(2, 5), QPointF(12, 5)});
    const VPolyPoint broken(QPolygonF{QPointF(2, 5), QPointF(std::nan(""), 5)});
    const VPolyPoint far(QPolygonF{QPointF(2, 5), QPointF(1e300, 5)});
    const VRectBase turned(QRectF(0, 0, 5, 5), INFINITY);
    const struct {
        VStatus status;
        const char* text;
    } cases[] = {
        {drawFigure(&wide, line, Qt::white), "Can not find template with actual parameters!"},
        {drawFigure(&yuv, line, Qt::white), "Can not find template with actual parameters!"},
        {drawFigure(&empty, line, Qt::white), "Empty source image!"},
        {drawFigure(nullptr, line, Qt::white), "Null pointer argument!"},
        {drawFigure(&gray, broken, Qt::white), "Figure coordinates must be finite"},
        {drawFigure(&gray, far, Qt::white), "Figure coordinates must be finite"},
        {fillFigure(&gray, turned, Qt::white), "Figure coordinates must be finite"},
        {drawFigure(&gray, line, Qt::white, -1.0), "Pen width must be finite and not negative"},
        {drawFigure(&gray, line, Qt::white, std::nan("")), "Pen width must be finite and not negative"},
        {fillFigure(&gray, VAngle(), Qt::white), "Can not find template with actual parameters!"},
        {drawText(&wide, QStringLiteral("x"), QPointF(2, 10), QFont(), Qt::white), "Can not find template"},
        {drawText(&gray, QStringLiteral("x"), QPointF(INFINITY, 10), QFont(), Qt::white), "must be finite"},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(c.status) << c.text;
        EXPECT_TRUE(c.status.message().contains(QLatin1String(c.text))) << c.status.message().toStdString();
    }
    EXPECT_EQ(litPixels(gray), 0);
    VImage failed = failedImage(gray);
    EXPECT_TRUE(drawFigure(&failed, line, Qt::white).message().contains("Bad status of image!"));
}

} // namespace
