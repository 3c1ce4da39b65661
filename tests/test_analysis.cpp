// Analysis operations against OpenCV's own calls on the same pixels, and on drawn scenes with known answers.
#include "support/images.h"

#include <vexa/Vexa.h>

#include <opencv2/imgproc.hpp>
#include <opencv2/photo.hpp>

#include <gtest/gtest.h>

#include <functional>

using namespace VEXA;

namespace {

VImage blank(int w, int h, Format format = GrayScale, Channel channel = Channel8u)
{
    VImage image;
    image.create(w, h, format, channel, OriginTopLeft, RowsAlignNone);
    roiMat(image).setTo(cv::Scalar::all(0));
    return image;
}

// A scene with something for every operation: a filled rectangle with a square hole, a disc, a line.
VImage scene(Format format = GrayScale)
{
    VImage image = blank(240, 180, format);
    cv::Mat m = roiMat(image);
    cv::rectangle(m, cv::Point(20, 20), cv::Point(99, 79), cv::Scalar::all(200), cv::FILLED);
    cv::rectangle(m, cv::Point(40, 40), cv::Point(59, 59), cv::Scalar::all(0), cv::FILLED);
    cv::circle(m, cv::Point(170, 110), 30, cv::Scalar(90, 160, 230), cv::FILLED);
    cv::line(m, cv::Point(10, 150), cv::Point(230, 150), cv::Scalar::all(255), 1);
    return image;
}

} // namespace

TEST(Analysis, EdgesSegmentationAndInpaintingAreOpenCvsOwn)
{
    for (Format format : {GrayScale, BGR}) {
        SCOPED_TRACE(format);
        const VImage src = withRoi(scene(format), QRect(5, 3, 230, 170));
        VImage edges;
        ASSERT_TRUE(cannyImage(src, &edges, 50, 150, 3, true));
        cv::Mat expected;
        cv::Canny(roiMat(src), expected, 50, 150, 3, true);
        EXPECT_EQ(cv::norm(roiMat(edges), expected, cv::NORM_INF), 0.0);

        VImage mask = blank(230, 170);
        cv::rectangle(roiMat(mask), cv::Point(60, 60), cv::Point(80, 70), cv::Scalar(255), cv::FILLED);
        VImage filled;
        ASSERT_TRUE(inpaintImage(src, mask, &filled, 3, InpaintNavierStokes));
        cv::inpaint(roiMat(src), roiMat(mask), expected, 3, cv::INPAINT_NS);
        EXPECT_EQ(cv::norm(roiMat(filled), expected, cv::NORM_INF), 0.0);
    }
    const VImage colour = scene(BGR);
    VImage segmented;
    ASSERT_TRUE(pyramidMeanShiftSegmentation(colour, &segmented, 8, 20, 1));
    cv::Mat expected;
    cv::pyrMeanShiftFiltering(roiMat(colour), expected, 8, 20, 1);
    EXPECT_EQ(cv::norm(roiMat(segmented), expected, cv::NORM_INF), 0.0);

    VImage markers = blank(240, 180, GrayScale, Channel32s);
    roiMat(markers).at<int>(50, 30) = 1;
    roiMat(markers).at<int>(110, 170) = 2;
    roiMat(markers).at<int>(5, 5) = 3;
    cv::Mat cvMarkers = roiMat(markers).clone();
    ASSERT_TRUE(watershedImage(colour, &markers));
    cv::watershed(roiMat(colour), cvMarkers);
    EXPECT_EQ(cv::norm(roiMat(markers), cvMarkers, cv::NORM_INF), 0.0);
    EXPECT_EQ(roiMat(markers).at<int>(115, 165), 2) << "the disc floods from its own marker";

    VImage painted = scene(BGR);
    cv::Mat cvPainted = roiMat(painted).clone();
    int area = 0;
    QRect bounds;
    ASSERT_TRUE(floodFill(&painted, QPoint(170, 110), {255.0, 0.0, 0.0}, 2.0, &area, &bounds));
    cv::floodFill(cvPainted, cv::Point(170, 110), cv::Scalar(0, 0, 255), nullptr, cv::Scalar::all(2),
                  cv::Scalar::all(2), 4 | cv::FLOODFILL_FIXED_RANGE);
    EXPECT_EQ(cv::norm(roiMat(painted), cvPainted, cv::NORM_INF), 0.0);
    EXPECT_EQ(bounds, QRect(140, 80, 61, 61));
    EXPECT_NEAR(area, M_PI * 30 * 30, 0.03 * M_PI * 30 * 30);
}

TEST(Analysis, ADrawnRectangleWithAHoleGivesItsOutlinesAndMeasures)
{
    const VImage src = scene();
    QList<VContour> contours;
    ASSERT_TRUE(findContours(src, &contours, ContourTwoLevels, ContourApproxSimple));
    std::vector<std::vector<cv::Point>> expected;
    std::vector<cv::Vec4i> hierarchy;
    cv::findContours(roiMat(src), expected, hierarchy, cv::RETR_CCOMP, cv::CHAIN_APPROX_SIMPLE);
    ASSERT_EQ(contours.size(), int(expected.size()));
    int outers = 0, holes = 0;
    for (int i = 0; i < contours.size(); ++i) {
        ASSERT_EQ(contours[i].outline.size(), int(expected[size_t(i)].size()));
        for (int j = 0; j < contours[i].outline.size(); ++j)
            EXPECT_EQ(contours[i].outline[j], QPointF(expected[size_t(i)][size_t(j)].x, expected[size_t(i)][size_t(j)].y));
        EXPECT_EQ(contours[i].parent, hierarchy[size_t(i)][3]);
        (contours[i].hole ? holes : outers)++;
        EXPECT_EQ(contours[i].hole, contours[i].parent >= 0) << "two levels: holes are the children";
    }
    EXPECT_EQ(holes, 1);
    EXPECT_EQ(outers, 3); // the rectangle, the disc, the line

    // The rectangle's outline: four corners after simplification, the area its pixel centres enclose.
    const auto rectangle = std::find_if(contours.begin(), contours.end(), [](const VContour& c) {
        return !c.hole && c.outline.boundingRect() == QRectF(20, 20, 79, 59);
    });
    ASSERT_NE(rectangle, contours.end());
    VPolygon corners;
    ASSERT_TRUE(approximatePolygon(rectangle->outline, &corners, 2.0));
    EXPECT_EQ(corners.size(), 4);
    VContourMeasure measure;
    ASSERT_TRUE(measureContour(rectangle->outline, &measure));
    EXPECT_DOUBLE_EQ(measure.area, 79.0 * 59.0);
    EXPECT_DOUBLE_EQ(measure.perimeter, 2 * (79.0 + 59.0));
    EXPECT_EQ(measure.centroid, QPointF(59.5, 49.5));

    VRectBase box;
    const VPolyPoint turned(QPolygonF({QPointF(0, 0), QPointF(8, 6), QPointF(5, 10), QPointF(-3, 4)}));
    ASSERT_TRUE(minAreaRect(turned, &box));
    EXPECT_NEAR(box.width() * box.height(), 50.0, 1e-3);
}

TEST(Analysis, HoughFindsTheDrawnCircleAndLinesAndComponentsAreCounted)
{
    const VImage src = scene();
    QList<VCircle> circles;
    VImage smooth;
    ASSERT_TRUE(smoothGaussian(src, &smooth, 5));
    ASSERT_TRUE(houghCircles(smooth, &circles, 1, 100, 100, 20, 20, 40));
    ASSERT_FALSE(circles.isEmpty());
    EXPECT_LT(QLineF(circles.first().centre, QPointF(170, 110)).length(), 1.0);
    EXPECT_NEAR(circles.first().radius, 30.0, 1.0);

    VImage line = blank(240, 180);
    cv::line(roiMat(line), cv::Point(10, 150), cv::Point(230, 150), cv::Scalar(255));
    QList<QLineF> segments, lines;
    ASSERT_TRUE(houghLines(line, &segments, 1, CV_PI / 180, 50, HoughProbabilistic, 100, 5));
    std::vector<cv::Vec4i> expected;
    cv::HoughLinesP(roiMat(line), expected, 1, CV_PI / 180, 50, 100, 5);
    ASSERT_EQ(segments.size(), int(expected.size()));
    EXPECT_EQ(segments.first(), QLineF(expected[0][0], expected[0][1], expected[0][2], expected[0][3]));
    ASSERT_TRUE(houghLines(line, &lines, 1, CV_PI / 180, 100));
    ASSERT_FALSE(lines.isEmpty());
    EXPECT_NEAR(lines.first().y1(), 150.0, 1.0);
    EXPECT_NEAR(lines.first().y2(), 150.0, 1.0);
    EXPECT_NEAR(std::abs(lines.first().dx()), 239.0, 1e-6) << "the whole width of the roi";

    VImage labels;
    QList<VComponent> components;
    ASSERT_TRUE(connectedComponents(src, &labels, &components));
    ASSERT_EQ(components.size(), 3);
    cv::Mat cvLabels;
    cv::connectedComponents(roiMat(src), cvLabels, 8, CV_32S);
    EXPECT_EQ(cv::norm(roiMat(labels), cvLabels, cv::NORM_INF), 0.0);
    EXPECT_EQ(components[0].area, 80 * 60 - 20 * 20);
    EXPECT_EQ(components[0].bounds, QRect(20, 20, 80, 60));
}

TEST(Analysis, BadInputFailsWithAStatus)
{
    const VImage gray = scene(), colour = scene(BGR), wide = makeImage(64, 48, GrayScale, Channel16u);
    VImage dst, small = blank(10, 10), markers = blank(240, 180);
    QList<VContour> contours;
    QList<VCircle> circles;
    QList<QLineF> lines;
    VPolygon polygon;
    const std::vector<std::pair<std::function<VStatus()>, const char*>> cases{
        {[&] { return cannyImage(failedImage(gray), &dst, 1, 2); }, "Bad status of image!"},
        {[&] { return cannyImage(VImage(), &dst, 1, 2); }, "Empty source image!"},
        {[&] { return cannyImage(wide, &dst, 1, 2); }, "Can not find template"},
        {[&] { return cannyImage(gray, &small, 1, 2); }, "Image sizes differ"},
        {[&] { return cannyImage(gray, &dst, NAN, 2); }, "finite"},
        {[&] { return cannyImage(gray, &dst, 1, 2, 4); }, "Reason"},
        {[&] { return findContours(colour, &contours); }, "Can not find template"},
        {[&] { return findContours(gray, nullptr); }, "Null pointer"},
        {[&] { return findContours(gray, &contours, ContourRetrieval(9)); }, "Reason"},
        {[&] { return approximatePolygon(VPolyPoint(), &polygon, -1); }, "Epsilon"},
        {[&] { return minAreaRect(VPolyPoint(), nullptr); }, "Null pointer"},
        {[&] { return houghLines(gray, &lines, 0, 1, 1); }, "positive"},
        {[&] { return houghCircles(gray, &circles, 0.5, 1); }, "out of range"},
        {[&] { return watershedImage(colour, &markers); }, "Can not find template"},
        {[&] { VImage w = wide.copy(); return floodFill(&w, QPoint(0, 0), {1.0}, 0); }, "Can not find template"},
        {[&] { VImage none; return floodFill(&none, QPoint(0, 0), {1.0}, 0); }, "Empty source image!"},
        {[&] { VImage g = gray.copy(); return floodFill(&g, QPoint(-1, 0), {1.0}, 0); }, "Seed outside"},
        {[&] { VImage g = gray.copy(); return floodFill(&g, QPoint(0, 0), {1.0, 2.0}, 0); }, "One value"},
        {[&] { return inpaintImage(gray, small, &dst, 3); }, "Image sizes differ"},
        {[&] { return pyramidMeanShiftSegmentation(gray, &dst, 8, 20); }, "Can not find template"},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        const VStatus status = cases[i].first();
        EXPECT_FALSE(status) << i;
        EXPECT_TRUE(status.message().contains(QString::fromLatin1(cases[i].second))) << i << ": "
                                                                                     << qPrintable(status.message());
    }
}
