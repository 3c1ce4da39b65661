// Resizing, affine warps, flips, rotations and undistortion.
#include "support/images.h"

#include <vexa/imp/kernels/resize_image.h>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

using namespace VEXA;

namespace {

using Mine = std::function<VStatus(const VImage&, VImage*)>;
using Theirs = std::function<void(const cv::Mat&, cv::Mat&)>;

struct WarpCase {
    const char* name;
    bool (*supported)(Format, Channel);
    QSize dstSize; // of the destination's roi
    Mine mine;
    Theirs theirs;
};

bool anyPair(Format, Channel) { return true; }
bool warpPair(Format f, Channel c) { return supports(WarpPixels{}, f, c); }

TEST(Warps, MatchOpenCvOverEveryPairWithRois)
{
    VTransform2D affine;
    affine.fromQTransform(QTransform().rotate(10).translate(2.5, -1.25));
    const cv::Mat m = affineMatrix(affine);
    std::vector<WarpCase> cases;
    const int codes[] = {cv::INTER_NEAREST, cv::INTER_LINEAR, cv::INTER_CUBIC, cv::INTER_AREA};
    for (int method = 0; method < 4; ++method)
        for (QSize size : {QSize(9, 7), QSize(31, 23)})
            cases.push_back({"resize", method == 0 ? anyPair : warpPair, size,
                             [=](const VImage& s, VImage* d) { return resizeImage(s, d, InterpolationMethod(method)); },
                             [=](const cv::Mat& s, cv::Mat& d) { cv::resize(s, d, d.size(), 0, 0, codes[method]); }});
    cases.push_back({"warpAffine", warpPair, QSize(17, 13), [&](const VImage& s, VImage* d) { return warpAffine(s, d, affine); },
                     [&](const cv::Mat& s, cv::Mat& d) {
                         cv::warpAffine(s, d, m, d.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar::all(0));
                     }});
    for (int mode : {0, 3, -2})
        cases.push_back({"flip", anyPair, QSize(18, 14), [=](const VImage& s, VImage* d) { return flipImage(s, d, mode); },
                         [=](const cv::Mat& s, cv::Mat& d) { cv::flip(s, d, mode); }});
    cases.push_back({"undistort", warpPair, QSize(18, 14), [](const VImage& s, VImage* d) { return undistortImage(s, d, 2e-3); },
                     [](const cv::Mat& s, cv::Mat& d) {
                         cv::undistort(s, d, cv::Matx33d(1, 0, 9, 0, 1, 7, 0, 0, 1), cv::Matx41d(2e-3, 0, 0, 0));
                     }});

    for (const WarpCase& w : cases)
        for (Format f : allFormats())
            for (Channel c : allChannels()) {
                const VImage src = withRoi(makeImage(23, 19, f, c, 1), QRect(2, 3, 18, 14));
                VImage mine = withRoi(makeImage(w.dstSize.width() + 3, w.dstSize.height() + 2, f, c, 2),
                                      QRect(QPoint(1, 2), w.dstSize));
                VImage theirs = mine.copy();
                theirs.setRoi(mine.roi());
                const VStatus status = w.mine(src, &mine);
                if (!w.supported(f, c)) {
                    EXPECT_FALSE(status) << w.name << " " << f << "/" << c;
                    continue;
                }
                ASSERT_TRUE(status) << w.name << " " << f << "/" << c << status.message().toStdString();
                cv::Mat out = roiMat(theirs);
                w.theirs(roiMat(src), out);
                EXPECT_EQ(std::memcmp(mine.rawData(), theirs.rawData(), size_t(mine.dataSize())), 0)
                    << w.name << " " << f << "/" << c;
            }
}

TEST(Warps, RefuseBadArguments)
{
    const VImage src = makeImage(8, 6, BGR, Channel8u, 1);
    VImage dst = makeImage(5, 4, BGR, Channel8u, 2), empty, wide = makeImage(5, 4, BGR, Channel16u, 3),
           gray = makeImage(5, 4, GrayScale, Channel8u, 4);
    const struct {
        VStatus status;
        const char* text;
    } cases[] = {
        {resizeImage(src, &dst, InterpolationMethod(4)), "Unsupported interpolation method"},
        {resizeImage(src, &dst, InterpolationMethod(-1)), "Unsupported interpolation method"},
        {resizeImage(src, &empty, InterpolationLinear), "Empty source image!"},
        {resizeImage(src, nullptr, InterpolationLinear), "Null pointer argument!"},
        {resizeImage(src, &wide, InterpolationLinear), "Function: cvResize"},
        {resizeImage(src, &gray, InterpolationLinear), "Can not find template with actual parameters!"},
        {resizeImage(failedImage(src), &dst, InterpolationLinear), "Bad status of image!"},
        {warpAffine(src, &wide, VTransform2D()), "Function: cvWarpAffine"},
        {rotateImage(src, &empty, 0.5), "Empty source image!"},
        {rotateImage(VImage(), &dst, Angle90), "Empty source image!"},
        {flipImage(src, &wide, 1), "Function: cvFlip"},
        {undistortImage(src, &dst, 1e-3), "Function: cvUndistort2"},
        {resizeImage(makeImage(8, 6, BGR, Channel32s, 1), &empty, InterpolationNearest), "Empty source image!"},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(c.status) << c.text;
        EXPECT_TRUE(c.status.message().contains(QLatin1String(c.text))) << c.status.message().toStdString();
    }
}

TEST(Rotation, QuarterTurnsAreExact)
{
    const VImage src = makeImage(4, 3, BGR, Channel8u, 7);
    // A half turn into a same-size image: (0, 0) lands on (3, 2), and the whole is the point mirror.
    VImage half = makeImage(4, 3, BGR, Channel8u, 8);
    ASSERT_TRUE(rotateImage(src, &half, Angle180));
    EXPECT_EQ(std::memcmp(pixelAt(half, 3, 2), pixelAt(src, 0, 0), 3), 0);
    cv::Mat flipped;
    cv::flip(roiMat(src), flipped, -1);
    EXPECT_EQ(cv::norm(flipped, roiMat(half), cv::NORM_INF), 0.0);
    // A quarter turn moves the right-hand edge to the top, as displayed.
    VImage quarter = makeImage(3, 4, BGR, Channel8u, 9);
    ASSERT_TRUE(rotateImage(src, &quarter, Angle90, RotateKeepSize));
    cv::Mat turned;
    cv::rotate(roiMat(src), turned, cv::ROTATE_90_COUNTERCLOCKWISE);
    EXPECT_EQ(cv::norm(turned, roiMat(quarter), cv::NORM_INF), 0.0);
    ASSERT_TRUE(rotateImage(src, &quarter, Angle270));
    cv::rotate(roiMat(src), turned, cv::ROTATE_90_CLOCKWISE);
    EXPECT_EQ(cv::norm(turned, roiMat(quarter), cv::NORM_INF), 0.0);
    // Any other value is the identity, and so is the angle 0.
    VImage same = makeImage(4, 3, BGR, Channel8u, 10), unturned = makeImage(4, 3, BGR, Channel8u, 11);
    ASSERT_TRUE(rotateImage(src, &same, FixedAngle(7)));
    ASSERT_TRUE(rotateImage(src, &unturned, 0.0));
    EXPECT_TRUE(sameRoiBytes(same, src));
    EXPECT_TRUE(sameRoiBytes(unturned, src));
}

TEST(Rotation, HeadersBoundTheTurnedImage)
{
    VImageHeader h;
    h.width = 10;
    h.height = 4;
    h.format = XRGB;
    h.channelType = Channel16u;
    h.origin = OriginTopLeft;
    h.rowsAlignment = RowsAlignNone;
    const struct {
        double angle;
        RotateMethod method;
        int width, height;
    } free[] = {
        {0.0, RotateBoundingBox, 10, 4},          {M_PI / 2, RotateBoundingBox, 4, 10},
        {M_PI, RotateBoundingBox, 10, 4},         {-M_PI / 2, RotateBoundingBox, 4, 10},
        {M_PI / 4, RotateBoundingBox, 10, 10},    {0.3, RotateBoundingBox, 11, 7}, // 10.73 x 6.78
        {0.3, RotateKeepSize, 10, 4},             {std::nan(""), RotateBoundingBox, 10, 4},
        {INFINITY, RotateBoundingBox, 10, 4},
    };
    for (const auto& c : free) {
        VImageHeader out;
        headerForRotate(h, c.angle, c.method, &out);
        EXPECT_EQ(out.width, c.width) << c.angle;
        EXPECT_EQ(out.height, c.height) << c.angle;
        EXPECT_EQ(out.format, h.format);
        EXPECT_EQ(out.channelType, h.channelType);
        EXPECT_EQ(out.origin, h.origin);
    }
    VImageHeader out;
    for (FixedAngle a : {Angle90, Angle270}) {
        headerForRotate(h, a, RotateBoundingBox, &out);
        EXPECT_EQ(QSize(out.width, out.height), QSize(4, 10));
        headerForRotate(h, a, RotateKeepSize, &out);
        EXPECT_EQ(QSize(out.width, out.height), QSize(10, 4));
    }
    headerForRotate(h, Angle180, RotateBoundingBox, &out);
    EXPECT_EQ(QSize(out.width, out.height), QSize(10, 4));
    // Beyond 32-bit sizes nothing can be made.
    h.width = h.height = 2000000000;
    headerForRotate(h, M_PI / 4, RotateBoundingBox, &out);
    EXPECT_EQ(QSize(out.width, out.height), QSize(0, 0));
    headerForRotate(h, 1.0, RotateBoundingBox, nullptr);
}

TEST(Rotation, ImageRotateMakesItsDestination)
{
    const VImage src = makeImage(6, 4, ARGB, Channel8u, 3);
    const VImage quarter = src.rotate(Angle90);
    ASSERT_TRUE(quarter.status());
    ASSERT_EQ(QSize(quarter.width(), quarter.height()), QSize(4, 6));
    cv::Mat turned;
    cv::rotate(roiMat(src), turned, cv::ROTATE_90_COUNTERCLOCKWISE);
    EXPECT_EQ(cv::norm(turned, roiMat(quarter), cv::NORM_INF), 0.0);

    const VImage tilted = src.rotate(0.4);
    ASSERT_TRUE(tilted.status());
    EXPECT_EQ(QSize(tilted.width(), tilted.height()), QSize(8, 7)); // 7.06 x 6.03, less the 1e-6 noise allowance

    EXPECT_TRUE(failedImage(src).rotate(0.4).isEmpty());
    const VImage refused = makeImage(6, 4, ARGB, Channel32s, 3).rotate(Angle180);
    EXPECT_TRUE(refused.isEmpty());
    EXPECT_TRUE(refused.status().message().contains("Can not find template with actual parameters!"));
}

TEST(Undistort, ZeroIsTheIdentityAndInPlaceIsTheSeparateResult)
{
    const VImage src = withRoi(makeImage(40, 30, BGR, Channel8u, 5), QRect(3, 2, 30, 24));
    VImage same;
    ASSERT_TRUE(undistortImage(src, &same, 0.0));
    EXPECT_TRUE(sameRoiBytes(same, src));

    VImage separate, inPlace = src.copy();
    inPlace.setRoi(src.roi());
    ASSERT_TRUE(undistortImage(src, &separate, -4e-4));
    ASSERT_TRUE(undistortImage(inPlace, &inPlace, -4e-4));
    EXPECT_TRUE(sameRoiBytes(separate, inPlace));
    EXPECT_FALSE(sameRoiBytes(separate, src));
}

} // namespace
