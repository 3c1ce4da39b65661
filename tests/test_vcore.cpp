// MathUtils and VRotateAngle.
#include <vcore/MathUtils.h>
#include <vcore/VRotateAngle.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

TEST(MathUtils, Bound8uClampsThenTruncates)
{
    const struct { double in; int out; } cases[] = {
        {-1.0, 0}, {0.0, 0}, {0.99, 0}, {1.0, 1}, {127.5, 127}, {254.99, 254}, {255.0, 255}, {1e9, 255},
        {std::numeric_limits<double>::quiet_NaN(), 0}, {-std::numeric_limits<double>::infinity(), 0},
        {std::numeric_limits<double>::infinity(), 255},
    };
    for (const auto& c : cases)
        EXPECT_EQ(MathUtils::bound8u(c.in), c.out) << c.in;
}

TEST(MathUtils, IsBoundedIncludesBothEnds)
{
    EXPECT_TRUE(MathUtils::isBounded(0, 0, 1));
    EXPECT_TRUE(MathUtils::isBounded(0, 1, 1));
    EXPECT_FALSE(MathUtils::isBounded(0, 1.0000001, 1));
    EXPECT_FALSE(MathUtils::isBounded(0, -1e-9, 1));
}

TEST(MathUtils, RoundForHistogramRoundsUpToOneTwoOrFiveTimesAPowerOfTen)
{
    const struct { double in, out; } cases[] = {
        {0.3, 0.5}, {1.0, 1.0}, {1.1, 2.0}, {2.0, 2.0}, {2.5, 5.0}, {7.0, 10.0}, {10.0, 10.0},
        {0.001, 0.001}, {1000.0, 1000.0}, {1234.0, 2000.0}, {1e-12, 1e-12},
    };
    for (const auto& c : cases)
        EXPECT_DOUBLE_EQ(MathUtils::roundForHistogram(c.in), c.out) << c.in;

    double previous = 0.0;
    for (double w = 1e-6; w < 1e6; w *= 1.07) {
        const double r = MathUtils::roundForHistogram(w);
        EXPECT_GE(r, w);
        EXPECT_LT(r, w * 5.0 + 1e-12);
        EXPECT_GE(r, previous) << "monotone at " << w;
        previous = r;
    }
    EXPECT_EQ(MathUtils::roundForHistogram(0.0), 0.0);
    EXPECT_EQ(MathUtils::roundForHistogram(-3.0), -3.0);
    // The smallest subnormals, whose decade underflows to 0, come back instead of looping forever.
    for (const double tiny : {4.9e-324, 9.9e-324})
        EXPECT_EQ(MathUtils::roundForHistogram(tiny), tiny);
}

TEST(MathUtils, AreaIgnoresOrientationAndNeedsThreePoints)
{
    const QPolygonF square({{0, 0}, {1, 0}, {1, 1}, {0, 1}});
    QPolygonF reversed(square.rbegin(), square.rend());
    EXPECT_DOUBLE_EQ(MathUtils::area(square), 1.0);
    EXPECT_DOUBLE_EQ(MathUtils::area(reversed), 1.0);
    EXPECT_DOUBLE_EQ(MathUtils::area(QPolygonF({{0, 0}, {4, 0}, {0, 3}, {0, 0}})), 6.0); // closed: same area
    EXPECT_EQ(MathUtils::area(QPolygonF({{0, 0}, {4, 0}})), 0.0);
}

TEST(MathUtils, DistanceAndDegrees)
{
    EXPECT_DOUBLE_EQ(MathUtils::distance({1, 1}, {4, 5}), 5.0);
    EXPECT_DOUBLE_EQ(MathUtils::radiansToDegrees(M_PI), 180.0);
    EXPECT_DOUBLE_EQ(MathUtils::radiansToDegrees(-M_PI / 2), -90.0);
}

TEST(VRotateAngle, TurnsClockwiseOnAYDownScreenAboutItsCentre)
{
    const QTransform t = VRotateAngle(90, {10, 10}).transform();
    const QPointF p = t.map(QPointF(11, 10));
    EXPECT_NEAR(p.x(), 10.0, 1e-12);
    EXPECT_NEAR(p.y(), 11.0, 1e-12);
    EXPECT_TRUE(VRotateAngle().transform().isIdentity());
    QTransform out;
    VRotateAngle(180).transform(&out);
    EXPECT_NEAR(out.map(QPointF(2, 3)).x(), -2.0, 1e-12);
}

} // namespace
