// Tiles cut from one textured picture: placed against each other and stitched back into the picture.
#include "support/images.h"

#include <vexa/Vexa.h>

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

using namespace VEXA;

namespace {

// Smoothed noise under random shapes: texture and corners everywhere, for correlation and features alike.
VImage picture(int w, int h, unsigned seed = 7)
{
    VImage image = makeImage(w, h, BGR, Channel8u, seed, OriginTopLeft);
    cv::Mat m = roiMat(image);
    cv::GaussianBlur(m, m, cv::Size(), 2.0);
    cv::normalize(m, m, 0, 255, cv::NORM_MINMAX);
    cv::RNG rng(seed);
    for (int i = 0; i < w * h / 2500; ++i) {
        const cv::Point at(rng.uniform(0, w), rng.uniform(0, h));
        const cv::Scalar colour(rng.uniform(0, 256), rng.uniform(0, 256), rng.uniform(0, 256));
        if (i % 2)
            cv::circle(m, at, rng.uniform(4, 20), colour, cv::FILLED);
        else
            cv::rectangle(m, at, at + cv::Point(rng.uniform(5, 30), rng.uniform(5, 30)), colour, 2);
    }
    return image;
}

VImage tile(const VImage& source, QPointF at, QSize size)
{
    VImage t;
    t.create(size.width(), size.height(), source.format(), source.channelType(), OriginTopLeft, RowsAlignNone);
    const cv::Mat shift = (cv::Mat_<double>(2, 3) << 1, 0, at.x(), 0, 1, at.y());
    cv::warpAffine(roiMat(source), roiMat(t), shift, roiMat(t).size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP);
    return t;
}

VImageList listOf(std::initializer_list<VImage> images)
{
    VImageList list;
    for (const VImage& image : images)
        list.add(image);
    return list;
}

} // namespace

TEST(Panorama, TilePositionsAreFoundToAFractionOfAPixel)
{
    const VImage source = picture(900, 900);
    for (QPointF truth : {QPointF(230, 4), QPointF(-231.5, 2.25), QPointF(3.3, 240.7), QPointF(-7.6, -250.4)}) {
        SCOPED_TRACE(testing::Message() << truth.x() << ", " << truth.y());
        const VImage fixed = tile(source, QPointF(300, 300), QSize(300, 300));
        const VImage moving = tile(source, QPointF(300, 300) + truth, QSize(300, 300));
        QPointF found;
        double score = 0;
        ASSERT_TRUE(matchTemplatePosition(fixed, moving, truth + QPointF(6, -5), 12, &found, &score));
        EXPECT_NEAR(found.x(), truth.x(), 0.15);
        EXPECT_NEAR(found.y(), truth.y(), 0.15);
        EXPECT_GT(score, 0.95);
    }
}

TEST(Panorama, TilePositionRefusesWhatCannotMatch)
{
    const VImage fixed = tile(picture(600, 300), QPointF(0, 0), QSize(300, 300));
    const VImage other = tile(picture(600, 300, 99), QPointF(230, 0), QSize(300, 300));
    VImage flat = fixed.copy();
    roiMat(flat).setTo(cv::Scalar::all(90));
    const struct {
        VImage fixed, moving;
        QPointF expected;
        int radius;
        const char* reason;
    } cases[] = {
        {fixed, other, {230, 0}, 10, "do not overlap"},
        {fixed, flat, {230, 0}, 10, "no texture"},
        {fixed, fixed, {285, 0}, 10, "too small"},
        {fixed, fixed, {qInf(), 0}, 10, "finite"},
        {fixed, fixed, {230, 0}, -1, "radius"},
        {fixed, fixed.convert(GrayScale, Channel8u), {230, 0}, 10, "template"},
        {fixed, failedImage(fixed), {230, 0}, 10, "Bad status"},
        {fixed, VImage(), {230, 0}, 10, "Empty"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.reason);
        QPointF found(1, 2);
        const VStatus status = matchTemplatePosition(c.fixed, c.moving, c.expected, c.radius, &found);
        EXPECT_FALSE(status);
        EXPECT_TRUE(status.message().contains(QLatin1String(c.reason))) << status.message().toStdString();
        EXPECT_EQ(found, QPointF(1, 2));
    }
    EXPECT_FALSE(matchTemplatePosition(fixed, fixed, {0, 0}, 4, nullptr));
}

TEST(Panorama, ScanTilesJoinIntoTheirPicture)
{
    const VImage source = picture(600, 400);
    const QSize size(280, 400);
    for (Format format : {BGR, GrayScale, ARGB}) {
        SCOPED_TRACE(format);
        const VImage whole = source.convert(format, Channel8u);
        VImage pano;
        ASSERT_TRUE(
            buildPanorama(listOf({tile(whole, {0, 0}, size), tile(whole, {160, 0}, size), tile(whole, {320, 0}, size)}),
                          &pano, PanoramaScans));
        ASSERT_EQ(pano.format(), format);
        EXPECT_NEAR(pano.width(), 600, 4);
        EXPECT_NEAR(pano.height(), 400, 4);

        // Each tile's own part of the result, found in the picture: one and the same shift for all
        // three when the tiles were put together right.
        const cv::Mat p = roiMat(pano), s = roiMat(whole);
        std::vector<cv::Point> shifts;
        for (int x : {60, 270, 480}) {
            const cv::Rect patch(x, 100, 60, 200);
            cv::Mat scores;
            cv::matchTemplate(s, p(patch), scores, cv::TM_CCOEFF_NORMED);
            cv::Point at;
            cv::minMaxLoc(scores, nullptr, nullptr, nullptr, &at);
            shifts.push_back(at - patch.tl());
        }
        EXPECT_LE(cv::norm(shifts[1] - shifts[0]), 1.0);
        EXPECT_LE(cv::norm(shifts[2] - shifts[0]), 1.0);

        const cv::Rect common = cv::Rect(shifts[0], p.size()) & cv::Rect(cv::Point(), s.size());
        const cv::Rect inside(common.x + 4, common.y + 4, common.width - 8, common.height - 8);
        EXPECT_GT(cv::PSNR(s(inside), p(inside - shifts[0])), 30.0);
    }
}

TEST(Panorama, PanoramasRefuseBadLists)
{
    const VImage a = tile(picture(600, 400), {0, 0}, {320, 400});
    const VImage b = tile(picture(600, 400), {280, 0}, {320, 400});
    const VImage stranger = tile(picture(600, 400, 99), {280, 0}, {320, 400});
    VImageList failed = listOf({a, b});
    failed.setStatus(failedImage(a).status());
    const struct {
        VImageList list;
        const char* reason;
    } cases[] = {
        {listOf({a, stranger}), "do not overlap"},
        {VImageList(), "Empty"},
        {listOf({a}), "at least two"},
        {listOf({a, b.convert(XRGB, Channel8u)}), "differ in format"},
        {listOf({a, b.convert(BGR, Channel16u)}), "template"},
        {listOf({a, failedImage(b)}), "Bad status"},
        {failed, "Bad status"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.reason);
        VImage pano = a;
        const VStatus status = buildPanorama(c.list, &pano, PanoramaScans);
        EXPECT_FALSE(status);
        EXPECT_TRUE(status.message().contains(QLatin1String(c.reason))) << status.message().toStdString();
        EXPECT_TRUE(pano.isEqual(a)) << "a failure leaves the destination as it was";
    }
    EXPECT_FALSE(buildPanorama(listOf({a, b}), nullptr));
    VImage pano;
    EXPECT_FALSE(buildPanorama(listOf({a, b}), &pano, PanoramaMode(7)));
}
