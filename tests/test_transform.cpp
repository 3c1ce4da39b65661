// Plane transforms and the perspective warp.
#include "support/images.h"

#include <vexa/imp/kernels/resize_image.h>

#include <QIODevice>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include <cmath>

using namespace VEXA;

namespace {

TEST(Transform, AccessorsAtTheirBounds)
{
    VTransform2D t;
    EXPECT_TRUE(t.isValid());
    EXPECT_EQ(t.qTransform(), QTransform());
    EXPECT_EQ(t.get(3, 0), 0.0);
    EXPECT_EQ(t.get(-1, 1), 0.0);
    EXPECT_EQ(t.get(0, 3), 0.0);
    t.set(3, 0, 1.0);
    t.set(0, -1, 1.0);
    EXPECT_EQ(t.qTransform(), QTransform()) << "writes outside the matrix change nothing";
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            t.set(r, c, 0.0);
    EXPECT_FALSE(t.isValid());
    t.set(2, 1, std::nan(""));
    EXPECT_TRUE(t.isValid()) << "NaN is not zero";

    double rows[3][3] = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}}, back[3][3] = {};
    double* in[3] = {rows[0], rows[1], rows[2]};
    double* out[3] = {back[0], back[1], back[2]};
    VTransformPerspective p;
    p.setTransform(in);
    p.transform(out);
    EXPECT_EQ(std::memcmp(rows, back, sizeof rows), 0);
    EXPECT_EQ(p.get(1, 2), 6.0) << "no transposition";
    VTransform copy;
    copy.copyDataFrom(&p);
    EXPECT_EQ(copy.qTransform(), p.qTransform());
    p.setTransform(nullptr);
    p.fromMatrix(static_cast<const double*>(nullptr));
    EXPECT_EQ(p.get(2, 0), 7.0) << "null arrays are ignored";
}

TEST(Transform, ConvertersAgainstHandWrittenMatrices)
{
    const double translation[9] = {1, 0, 5, 0, 1, 7, 0, 0, 1};
    VTransform t;
    t.fromMatrix(translation);
    EXPECT_EQ(t.qTransform(), QTransform::fromTranslate(5, 7));
    const float skew[9] = {2, 0.5f, 3, 0, 1, -4, 0.25f, 0, 1};
    t.fromMatrix(skew);
    EXPECT_EQ(t.get(0, 2), 0.25) << "the bottom row of OpenCV's matrix is the third column here";
    EXPECT_EQ(t.get(1, 0), 0.5);
    // OpenCV's mapping of a point and Qt's agree.
    const cv::Mat m = t.createCvMat();
    std::vector<cv::Point2d> in{{3, 4}}, out;
    cv::perspectiveTransform(in, out, m);
    const QPointF q = t.qTransform().map(QPointF(3, 4));
    EXPECT_NEAR(out[0].x, q.x(), 1e-12);
    EXPECT_NEAR(out[0].y, q.y(), 1e-12);
    EXPECT_EQ(m.at<double>(0, 1), 0.5);

    const double affine[6] = {1, 0, 5, 0, 1, 7};
    t.fromMatrix2x3(affine);
    EXPECT_EQ(t.get(2, 0), 5.0);
    EXPECT_EQ(t.get(2, 1), 7.0);
    EXPECT_EQ(t.get(2, 2), 0.0) << "the corner is left at 0";

    const QTransform q2(1.5, 0.1, 0.001, -0.2, 0.9, 0.002, 10, -20, 1.1);
    t.fromQTransform(q2);
    EXPECT_EQ(t.qTransform(), q2);
    EXPECT_EQ(t.get(2, 0), 10.0);
}

TEST(Transform, AngleInEveryQuadrant)
{
    const struct { double rotation, angle; } cases[] = {
        {30, 30}, {120, 120}, {200, 200}, {-30, -30}, {300, -60}, {0, 0}, {180, 180}, {90, 90},
    };
    for (const auto& c : cases)
        EXPECT_NEAR(angleDegreeFromTransformation(QTransform().rotate(c.rotation)), c.angle, 1e-9) << c.rotation;
}

TEST(Transform, StreamsAsQtsOwnTransform)
{
    VTransformPerspective p;
    p.fromQTransform(QTransform(1, 2, 3, 4, 5, 6, 7, 8, 9));
    p.setStatus(VLog::errorStream("Vexa", "f", "t", 1, Issue::None) << "not streamed");
    QByteArray mine, qts;
    QDataStream toMine(&mine, QIODevice::WriteOnly), toQts(&qts, QIODevice::WriteOnly);
    toMine << p;
    toQts << p.qTransform();
    EXPECT_EQ(mine, qts);
    VTransformPerspective back;
    QDataStream in(mine);
    in >> back;
    EXPECT_EQ(back.qTransform(), p.qTransform());
    EXPECT_TRUE(back.status());
}

TEST(Transform, HomographyFromPoints)
{
    const QTransform known(1.1, 0.05, 0.0002, -0.1, 0.95, 0.0001, 12, -7, 1);
    QList<QPair<QPointF, QPointF>> pairs;
    for (const QPointF p : {QPointF(0, 0), QPointF(100, 0), QPointF(100, 80), QPointF(0, 80), QPointF(50, 40),
                            QPointF(20, 70), QPointF(90, 10), QPointF(33, 55)})
        pairs.append({p, known.map(p)});
    bool ok = false;
    const VTransformPerspective found = findPerspectiveTransformationByPoints(pairs, &ok);
    ASSERT_TRUE(ok);
    EXPECT_TRUE(found.status());
    VTransform expected;
    expected.fromQTransform(known);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(found.get(r, c), expected.get(r, c), 1e-4 * std::max(1.0, std::abs(expected.get(r, c)))) << r << "," << c;

    const VTransformPerspective few = findPerspectiveTransformationByPoints(pairs.mid(0, 5), &ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(few.qTransform(), QTransform()) << "fewer than 6 pairs: the identity";

    QList<QPair<QPointF, QPointF>> collinear;
    for (int i = 0; i < 8; ++i)
        collinear.append({QPointF(i, i), QPointF(2 * i, 2 * i)});
    const VTransformPerspective none = findPerspectiveTransformationByPoints(collinear, &ok);
    EXPECT_TRUE(ok) << "ok tells only that there were enough pairs";
    EXPECT_FALSE(none.isValid());
    EXPECT_FALSE(none.status());
}

TEST(Transform, PerspectiveFromFigures)
{
    const QPolygonF quad({{10, 12}, {90, 5}, {95, 70}, {3, 80}, {50, 50}}),
        target({{0, 0}, {100, 0}, {100, 60}, {0, 60}});
    const VTransformPerspective found = findPerspectiveTransformation(VPolyPoint(quad), VPolyPoint(target));
    EXPECT_TRUE(found.status());
    cv::Point2f src[4], dst[4];
    for (int i = 0; i < 4; ++i) {
        src[i] = cv::Point2f(float(quad[i].x()), float(quad[i].y()));
        dst[i] = cv::Point2f(float(target[i].x()), float(target[i].y()));
    }
    cv::Mat expected;
    cv::getPerspectiveTransform(src, dst).convertTo(expected, CV_32F);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(found.get(r, c), double(expected.at<float>(c, r))) << r << "," << c << ": stored transposed";
    for (int i = 0; i < 4; ++i) {
        const QPointF p = found.qTransform().map(quad[i]);
        EXPECT_NEAR(p.x(), target[i].x(), 1e-3) << i;
        EXPECT_NEAR(p.y(), target[i].y(), 1e-3) << i;
    }
    EXPECT_EQ(findPerspectiveTransformation(VPolyPoint(quad), QSize(100, 60)).qTransform(), found.qTransform());

    // A rectangle turned by 30 degrees about its centre goes back upright onto the target.
    const VTransformPerspective upright = findPerspectiveTransformation(VRectBase(10, 20, 40, 30, 30), QSize(40, 30));
    const QTransform turn = QTransform().translate(30, 35).rotate(30).translate(-30, -35);
    const QPointF corners[] = {{10, 20}, {50, 20}, {50, 50}, {10, 50}},
                  targets[] = {{0, 0}, {40, 0}, {40, 30}, {0, 30}};
    for (int i = 0; i < 4; ++i) {
        const QPointF p = upright.qTransform().map(turn.map(corners[i]));
        EXPECT_NEAR(p.x(), targets[i].x(), 1e-3) << i;
        EXPECT_NEAR(p.y(), targets[i].y(), 1e-3) << i;
    }
    EXPECT_NEAR(upright.toAngleDegree(), -30.0, 1e-3);

    // Fewer than four points in either figure: the identity, and a failed status instead of a read past the end.
    const VTransformPerspective few = findPerspectiveTransformation(VPolyPoint(quad.mid(0, 3)), QSize(5, 5));
    EXPECT_EQ(few.qTransform(), QTransform());
    EXPECT_FALSE(few.status());
    EXPECT_FALSE(findPerspectiveTransformation(VPolyPoint(quad), VPolyPoint()).status());
}

TEST(WarpPerspective, MatchesOpenCvOverEveryPairAndKeepsOutliers)
{
    VTransformPerspective t;
    t.fromQTransform(QTransform(0.9, 0.1, 0.0004, -0.15, 1.05, -0.0003, 3.5, -2.25, 1));
    VTransformPerspective copy = t;
    const cv::Mat m = copy.createCvMat().clone();
    for (Format f : allFormats())
        for (Channel c : allChannels()) {
            const VImage src = withRoi(makeImage(23, 19, f, c, 1), QRect(2, 3, 18, 14));
            VImage mine = withRoi(makeImage(21, 17, f, c, 2), QRect(1, 2, 17, 13));
            VImage theirs = mine.copy();
            theirs.setRoi(mine.roi());
            const VStatus status = warpPerspectiveImage(src, &mine, t);
            if (!supports(WarpPixels{}, f, c)) {
                EXPECT_TRUE(status.message().contains("Can not find template with actual parameters!")) << f << "/" << c;
                continue;
            }
            ASSERT_TRUE(status) << f << "/" << c << status.message().toStdString();
            cv::Mat out = roiMat(theirs);
            cv::warpPerspective(roiMat(src), out, m, out.size(), cv::INTER_LINEAR, cv::BORDER_TRANSPARENT);
            EXPECT_EQ(std::memcmp(mine.rawData(), theirs.rawData(), size_t(mine.dataSize())), 0) << f << "/" << c;
        }
    // The identity leaves the last row and column of a same-size destination untouched.
    const VImage gray = makeImage(12, 9, GrayScale, Channel8u, 3);
    VImage target = makeImage(12, 9, GrayScale, Channel8u, 4);
    const VImage before = target.copy();
    ASSERT_TRUE(warpPerspectiveImage(gray, &target, VTransformPerspective()));
    EXPECT_EQ(*pixelAt(target, 11, 4), *pixelAt(before, 11, 4));
    EXPECT_EQ(*pixelAt(target, 3, 8), *pixelAt(before, 3, 8));
    EXPECT_EQ(*pixelAt(target, 3, 4), *pixelAt(gray, 3, 4));

    VImage none, wide = makeImage(12, 9, GrayScale, Channel16u, 5);
    EXPECT_TRUE(warpPerspectiveImage(gray, &none, t).message().contains("Empty source image!"));
    EXPECT_TRUE(warpPerspectiveImage(gray, &wide, t).message().contains("Function: cvWarpPerspective"));
}

} // namespace
