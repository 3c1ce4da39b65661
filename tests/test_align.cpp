// Keypoints, the homography between two shots and the local stabilization of a shot.
#include "support/images.h"

#include <vexa/imp/VKeypointDescriptors.h>
#include <vexa/imp/kernels/resize_image.h>

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

using namespace VEXA;

namespace {

// A few hundred random gray shapes, mildly blurred: texture at many scales, as a focused shot has.
cv::Mat scene(cv::Size size)
{
    cv::RNG rng(7);
    cv::Mat gray(size, CV_8U, cv::Scalar(128));
    const int extent = size.width / 16;
    for (int i = 0; i < size.area() / 800; ++i) {
        const cv::Point c(rng.uniform(0, size.width), rng.uniform(0, size.height));
        const cv::Size axes(rng.uniform(2, extent), rng.uniform(2, extent));
        const cv::Scalar g(rng.uniform(0, 256));
        if (i % 2)
            cv::ellipse(gray, c, axes, rng.uniform(0, 180), 0, 360, g, cv::FILLED);
        else
            cv::rectangle(gray, cv::Rect(c, axes), g, cv::FILLED);
    }
    cv::GaussianBlur(gray, gray, cv::Size(), 1.0);
    return gray;
}

VImage asImage(const cv::Mat& gray, Format format)
{
    VImage image;
    image.create(gray.cols, gray.rows, format, Channel8u, OriginTopLeft, RowsAlignNone);
    cv::Mat out = roiMat(image);
    cv::cvtColor(gray, out, format == BGR ? cv::COLOR_GRAY2BGR : cv::COLOR_GRAY2BGRA);
    image.resetHash();
    return image;
}

double distance(const cv::Matx33d& m, const cv::Matx33d& n, cv::Point2d p)
{
    const cv::Vec3d a = m * cv::Vec3d(p.x, p.y, 1), b = n * cv::Vec3d(p.x, p.y, 1);
    return std::hypot(a[0] / a[2] - b[0] / b[2], a[1] / a[2] - b[1] / b[2]);
}

// The shot: the scene moved by (7.3, -4.6), magnified by 2% and turned by 1 degree about its centre. The
// size above 1024 pixels makes both routes work on reduced copies and map back.
TEST(Align, RecoversAKnownMotion)
{
    for (const cv::Size size : {cv::Size(640, 480), cv::Size(1440, 1080)}) {
        const cv::Mat gray = scene(size);
        cv::Matx23d move = cv::getRotationMatrix2D(cv::Point2f(size.width / 2.f, size.height / 2.f), 1.0, 1.02);
        move(0, 2) += 7.3;
        move(1, 2) -= 4.6;
        cv::Mat shotGray;
        cv::warpAffine(gray, shotGray, move, size, cv::INTER_LINEAR, cv::BORDER_CONSTANT);
        const VImage original = asImage(gray, XRGB);
        VImage shot = asImage(shotGray, BGR);
        const cv::Matx33d forward(move(0, 0), move(0, 1), move(0, 2), move(1, 0), move(1, 1), move(1, 2), 0, 0, 1);
        const double w = size.width - 1, h = size.height - 1;
        const cv::Point2d points[] = {{0, 0}, {w, 0}, {0, h}, {w, h}, {w / 2, h / 2}};

        const VKeypointDescriptors a(original), b(shot);
        ASSERT_TRUE(a.status() && b.status());
        ASSERT_GT(a.count(), 100);
        EXPECT_EQ(a.descriptors().rows, a.count());
        bool ok = false;
        VTransformPerspective found = findTransformation(a, b, &ok);
        ASSERT_TRUE(ok) << size;
        const cv::Matx33d back(found.createCvMat());
        for (const cv::Point2d p : points)
            EXPECT_LT(distance(back, forward.inv(), p), 0.5) << size << " at " << p;

        // Lined up again, the shot samples the scene where it was: a residual motion shows as a bias of
        // its difference to the scene, measured in the interior the shot still covers.
        ASSERT_TRUE(stabilizeLocal(original, &shot)) << size;
        EXPECT_EQ(shot.format(), BGR);
        cv::Mat back8u, diff;
        cv::cvtColor(roiMat(shot), back8u, cv::COLOR_BGR2GRAY);
        const cv::Rect inner(size.width / 10, size.height / 10, size.width * 8 / 10, size.height * 8 / 10);
        cv::Mat halfPixel;
        cv::warpAffine(gray, halfPixel, cv::Matx23d(1, 0, 0.35, 0, 1, 0.35), size);
        const double residual = cv::norm(back8u(inner), gray(inner), cv::NORM_L1);
        const double offByHalf = cv::norm(halfPixel(inner), gray(inner), cv::NORM_L1);
        EXPECT_LT(residual, offByHalf) << size;
    }
}

TEST(Align, IdentityLeavesPixelsUntouched)
{
    const VImage original = asImage(scene({320, 240}), XRGB);
    VImage same = original.copy();
    ASSERT_TRUE(stabilizeLocal(original, &same));
    EXPECT_TRUE(sameRoiBytes(same, original));
    ASSERT_TRUE(stabilizeLocal(same, &same));
    EXPECT_TRUE(sameRoiBytes(same, original));
    const VKeypointDescriptors k(original);
    bool ok = false;
    VTransformPerspective t = findTransformation(k, k, &ok);
    ASSERT_TRUE(ok);
    EXPECT_LT(cv::norm(t.createCvMat(), cv::Mat::eye(3, 3, CV_64F), cv::NORM_INF), 1e-6);
}

TEST(Align, RefusesBadInputAndLeavesTheImageAlone)
{
    const VImage reference = asImage(scene({160, 120}), XRGB);
    VImage flat = reference.createCompatible();
    flat.resetHash();
    cv::Mat(roiMat(flat)).setTo(90);
    VImage image = reference.copy(), narrower = makeImage(150, 120, XRGB, Channel8u), empty;
    VImage eightSigned = makeImage(160, 120, GrayScale, Channel8s), wide = makeImage(160, 120, BGR, Channel32s);
    const struct {
        VStatus status;
        const char* text;
    } cases[] = {
        {stabilizeLocal(VImage(), &image), "Empty source image!"},
        {stabilizeLocal(reference, &empty), "Empty source image!"},
        {stabilizeLocal(failedImage(reference), &image), "Bad status of image!"},
        {stabilizeLocal(reference, nullptr), "Null pointer argument!"},
        {stabilizeLocal(reference, &narrower), "Image sizes differ"},
        {stabilizeLocal(makeImage(160, 120, GrayScale, Channel8s), &eightSigned),
         "Can not find template with actual parameters!"},
        {stabilizeLocal(reference, &wide), "Can not find template with actual parameters!"},
        {stabilizeLocal(flat, &image), "Function: findTransformECC"},
        {VKeypointDescriptors(VImage()).status(), "Empty source image!"},
        {VKeypointDescriptors(failedImage(reference)).status(), "Bad status of image!"},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(c.status) << c.text;
        EXPECT_TRUE(c.status.message().contains(QLatin1String(c.text))) << c.status.message().toStdString();
    }
    EXPECT_TRUE(sameRoiBytes(image, reference));
    VImage tiny = makeImage(15, 40, XRGB, Channel8u, 3);
    EXPECT_TRUE(stabilizeLocal(tiny.copy(), &tiny).message().contains("too small"));

    bool ok = true;
    const VKeypointDescriptors none, broken(failedImage(reference)), some(reference);
    EXPECT_TRUE(broken.isEmpty());
    for (const VKeypointDescriptors* k : {&none, &broken}) {
        const VTransformPerspective t = findTransformation(some, *k, &ok);
        EXPECT_FALSE(ok);
        EXPECT_EQ(t.qTransform(), QTransform());
        findTransformation(*k, some, nullptr);
    }
}

// Every pair and odd sizes: keypoints for all (YUV422 through its luma), random bytes (NaN and infinite
// floats among them) included; a shot lined up with itself is untouched, and the pairs the warp cannot
// take are refused.
TEST(Align, EveryPairIsTakenOrRefused)
{
    for (Format f : allFormats())
        for (Channel c : allChannels())
            for (const QSize size : {QSize(1, 1), QSize(1, 300), QSize(300, 2), QSize(40, 30)}) {
                const VImage image =
                    withRoi(makeImage(size.width() + 2, size.height(), f, c, 5), QRect(QPoint(1, 0), size));
                const VKeypointDescriptors k(image);
                EXPECT_TRUE(k.status()) << f << "/" << c << " " << k.status().message().toStdString();
                VImage shot = image.copy();
                shot.setRoi(image.roi());
                const VStatus status = stabilizeLocal(image, &shot);
                const bool big = size.width() >= 16 && size.height() >= 16;
                EXPECT_EQ(bool(status), supports(WarpPixels{}, f, c) && big)
                    << f << "/" << c << " " << size.width() << " " << status.message().toStdString();
                EXPECT_TRUE(sameRoiBytes(shot, image));
            }
}

} // namespace
