// The raster pyramid, the focus merges and the blender.
#include "support/images.h"

#include <opencv2/imgproc.hpp>

#include <QBuffer>
#include <QDataStream>

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

using namespace VEXA;

namespace {

VImage blank(int width, int height, Format format, Channel channel)
{
    VImage image;
    image.create(width, height, format, channel, OriginTopLeft, RowsAlignNone);
    std::memset(image.rawData(), 0, size_t(image.dataSize()));
    return image;
}

double psnr(const VImage& a, const VImage& b)
{
    cv::Mat ma, mb;
    cv::cvtColor(roiMat(a), ma, cv::COLOR_BGRA2BGR);
    cv::cvtColor(roiMat(b), mb, cv::COLOR_BGRA2BGR);
    return cv::PSNR(ma, mb);
}

// A textured scene and three shots of it, each sharp in one vertical third and blurred elsewhere.
struct Stack {
    VImage truth;
    QList<VImage> shots;
    explicit Stack(int width = 120, int height = 90)
    {
        truth = makeImage(width, height, XRGB, Channel8u, 3);
        cv::Mat t = roiMat(truth);
        cv::GaussianBlur(t, t, {3, 3}, 0.7); // fine detail, but not single-pixel noise
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                t.at<cv::Vec4b>(y, x)[3] = 255;
        cv::Mat blurred;
        cv::GaussianBlur(t, blurred, {0, 0}, 2.5);
        for (int k = 0; k < 3; ++k) {
            VImage shot = truth.copy();
            cv::Mat s = roiMat(shot);
            blurred.copyTo(s);
            t(cv::Rect(k * width / 3, 0, width / 3, height)).copyTo(s(cv::Rect(k * width / 3, 0, width / 3, height)));
            shots.append(shot);
        }
    }
};

TEST(Pyramid, LevelsRestoreAndMerge)
{
    const struct {
        int side, levels;
    } sizes[] = {{60, 1}, {64, 2}, {128, 3}, {127, 2}};
    for (const auto& s : sizes) {
        VRasterPyramid p;
        ASSERT_TRUE(p.init(makeImage(s.side, s.side, XRGB, Channel8u, 1), -1));
        ASSERT_EQ(p.levels().size(), s.levels) << s.side;
        EXPECT_EQ(p.details().size(), s.levels - 1) << s.side;
        EXPECT_EQ(p.levels().last().width(), s.side >> (s.levels - 1)) << s.side;
        if (s.levels > 1) {
            EXPECT_EQ(p.details().first().channelType(), Channel16s);
        }
    }
    VRasterPyramid limited;
    limited.init(makeImage(256, 256, BGR, Channel8u, 1), 1);
    EXPECT_EQ(limited.levels().size(), 2);

    // An untouched pyramid restores its image exactly.
    const VImage src = makeImage(150, 100, BGR, Channel8u, 2);
    VRasterPyramid p;
    p.init(src, -1);
    p.restore();
    EXPECT_TRUE(sameRoiBytes(p.image(), src.convert(XRGB, Channel8u)));

    // Merging keeps the larger magnitude; a pyramid of another depth is ignored.
    VRasterPyramid q, copy = p;
    q.init(makeImage(150, 100, BGR, Channel8u, 3), -1);
    const VImage before = p.details().first().copy();
    p.combineMostSharpness(&q);
    cv::Mat mine = roiMat(p.details().first()), a = roiMat(before), b = roiMat(q.details().first());
    const short* pm = mine.ptr<short>(7);
    EXPECT_EQ(std::abs(pm[5]), std::max(std::abs(a.ptr<short>(7)[5]), std::abs(b.ptr<short>(7)[5])));
    EXPECT_TRUE(sameRoiBytes(copy.details().first(), before)) << "a copy owns its pixels";
    VRasterPyramid shallow;
    shallow.init(makeImage(128, 128, BGR, Channel8u, 4), -1);
    const VImage untouched = shallow.details().first().copy();
    shallow.combineMostSharpness(&q);
    shallow.combineMostSharpness(nullptr);
    EXPECT_TRUE(sameRoiBytes(shallow.details().first(), untouched));

    // The stream carries both lists.
    QByteArray bytes;
    {
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out << p;
    }
    QDataStream in(bytes);
    VRasterPyramid read;
    in >> read;
    ASSERT_EQ(read.levels().size(), p.levels().size());
    ASSERT_EQ(read.details().size(), p.details().size());
    EXPECT_TRUE(sameRoiBytes(read.details().last(), p.details().last()));
    QDataStream broken(bytes.left(40));
    broken >> read;
    EXPECT_NE(broken.status(), QDataStream::Ok);
    EXPECT_TRUE(read.levels().isEmpty());
}

TEST(Merges, MaximumSharpnessKeepsTiesAndBlackBordersOut)
{
    VImage image = blank(6, 5, XRGB, Channel8u), result = blank(6, 5, XRGB, Channel8u);
    VImage imageMap = blank(6, 5, GrayScale, Channel32f), resultMap = blank(6, 5, GrayScale, Channel32f);
    cv::Mat in = roiMat(image), out = roiMat(result), inMap = roiMat(imageMap), outMap = roiMat(resultMap);
    in.setTo(cv::Scalar(10, 20, 30, 40));
    out.setTo(cv::Scalar(1, 2, 3, 4));
    inMap.setTo(2.0f);
    outMap.setTo(2.0f); // ties go to the image
    outMap.at<float>(1, 1) = 3.0f;
    in.at<cv::Vec4b>(4, 5) = cv::Vec4b(0, 0, 0, 99); // black: (3..4, 4..5) stay the result's
    ASSERT_TRUE(multifocusImages(image, imageMap, &result, &resultMap));
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 6; ++x) {
            const bool kept = (x == 1 && y == 1) || (x >= 4 && y >= 3);
            EXPECT_EQ(out.at<cv::Vec4b>(y, x), kept ? cv::Vec4b(1, 2, 3, 4) : cv::Vec4b(10, 20, 30, 40))
                << x << "," << y;
            EXPECT_EQ(outMap.at<float>(y, x), x == 1 && y == 1 ? 3.0f : 2.0f);
        }
    VImage gray = blank(6, 5, GrayScale, Channel8u), small = blank(5, 5, GrayScale, Channel32f);
    EXPECT_TRUE(multifocusImages(gray, imageMap, &result, &resultMap).message().contains("Can not find template"));
    EXPECT_TRUE(multifocusImages(image, small, &result, &resultMap).message().contains("Image sizes differ"));
    EXPECT_TRUE(multifocusImagesWeighted(image, imageMap, nullptr, &resultMap).message().contains("Null pointer"));
}

TEST(Merges, WeightedFollowsLuminanceAndWeights)
{
    VImage image = blank(4, 1, XRGB, Channel8u), result = blank(4, 1, XRGB, Channel8u);
    VImage imageMap = blank(4, 1, GrayScale, Channel32f), resultMap = blank(4, 1, GrayScale, Channel32f);
    cv::Mat in = roiMat(image), out = roiMat(result), inMap = roiMat(imageMap), outMap = roiMat(resultMap);
    const cv::Vec4b shot(100, 50, 200, 7);
    in.setTo(shot);
    // A dark result pixel is replaced; a dark image pixel changes nothing; weights 1:3; zero weights.
    out.at<cv::Vec4b>(0, 0) = cv::Vec4b(2, 2, 2, 1);
    out.at<cv::Vec4b>(0, 1) = cv::Vec4b(40, 40, 40, 1);
    in.at<cv::Vec4b>(0, 1) = cv::Vec4b(1, 1, 1, 9);
    out.at<cv::Vec4b>(0, 2) = cv::Vec4b(20, 30, 40, 1);
    inMap.at<float>(0, 2) = 1.0f;
    outMap.at<float>(0, 2) = 3.0f;
    out.at<cv::Vec4b>(0, 3) = cv::Vec4b(21, 30, 40, 1);
    ASSERT_TRUE(multifocusImagesWeighted(image, imageMap, &result, &resultMap));
    EXPECT_EQ(out.at<cv::Vec4b>(0, 0), shot);
    EXPECT_EQ(out.at<cv::Vec4b>(0, 1), cv::Vec4b(40, 40, 40, 1));
    EXPECT_EQ(out.at<cv::Vec4b>(0, 2), cv::Vec4b(40, 35, 80, 1));  // (1 * 100 + 3 * 20) / 4 ...
    EXPECT_EQ(out.at<cv::Vec4b>(0, 3), cv::Vec4b(60, 40, 120, 1)); // (21 + 100) >> 1 ...
    // The map is measured afresh on the merged result.
    VImage measured = blank(4, 1, GrayScale, Channel32f);
    ASSERT_TRUE(contrastImage(result, &measured, 1, 3));
    EXPECT_TRUE(sameRoiBytes(measured, resultMap));
}

TEST(Blender, EveryMethodPicksTheSharpRegions)
{
    const Stack stack;
    double best = 0;
    for (const VImage& shot : stack.shots)
        best = std::max(best, psnr(shot, stack.truth));
    for (auto method :
         {VImageBlender::MultifocusPyramid, VImageBlender::MultifocusMaxSharpness, VImageBlender::MultifocusWeighted,
          VImageBlender::MultifocusWeightedAll, VImageBlender::MultifocusDepthMap}) {
        VImageBlender blender(method);
        for (const VImage& shot : stack.shots)
            ASSERT_TRUE(blender.addImage(shot)) << method;
        EXPECT_EQ(blender.count(), 3);
        const double merged = psnr(blender.image(), stack.truth);
        EXPECT_GT(merged, best + (method == VImageBlender::MultifocusWeighted ? 1.0 : 4.0)) << method;
        if (method == VImageBlender::MultifocusDepthMap) {
            const VImage depth = blender.depthMap();
            ASSERT_EQ(depth.channelType(), Channel16u);
            for (int k = 0; k < 3; ++k)
                EXPECT_EQ(roiMat(depth).at<quint16>(45, k * 40 + 20), k);
        } else {
            EXPECT_TRUE(blender.depthMap().isEmpty());
        }
    }
}

TEST(Blender, RefusesWhatItCannotTakeAndCopiesIndependently)
{
    const Stack stack;
    for (const auto method : {VImageBlender::MultifocusMaxSharpness, VImageBlender::MultifocusWeighted,
                              VImageBlender::MultifocusWeightedAll, VImageBlender::MultifocusDepthMap}) {
        SCOPED_TRACE(method);
        VImageBlender blender(method);
        EXPECT_FALSE(blender.addImage(VImage()));
        EXPECT_FALSE(blender.isInitialized());
        ASSERT_TRUE(blender.addImage(stack.shots[0]));
        const VImage handedOut = blender.image();
        const VImage before = handedOut.copy();
        EXPECT_FALSE(blender.addImage(makeImage(60, 90, XRGB, Channel8u, 5)));
        EXPECT_FALSE(blender.addImage(stack.shots[1].convert(BGR, Channel8u)));
        EXPECT_EQ(blender.count(), 1);
        EXPECT_TRUE(sameRoiBytes(blender.image(), before));
        EXPECT_TRUE(blender.lastStatus().message().contains("layout differs from the first shot's"))
            << blender.lastStatus().message().toStdString();
        blender.setFitFound([](const VImageBlender::ShotFit&) { throw std::runtime_error("the caller's own"); });
        EXPECT_FALSE(blender.addImage(stack.shots[1]));
        EXPECT_EQ(blender.count(), 1);
        EXPECT_TRUE(sameRoiBytes(blender.image(), before));
        blender.setFitFound(nullptr);
        VImageBlender copy = blender;
        ASSERT_TRUE(blender.addImage(stack.shots[1]));
        const VImage merged = blender.image().copy();
        EXPECT_FALSE(sameRoiBytes(merged, before));
        EXPECT_TRUE(sameRoiBytes(blender.image(), merged)) << "asking twice changes the merge";
        EXPECT_TRUE(sameRoiBytes(copy.image(), before)) << "a copy does not follow the original";
        EXPECT_TRUE(sameRoiBytes(handedOut, before)) << "an image handed out does not follow the merge";
        blender.init(VImageBlender::MultifocusWeighted, false, false);
        EXPECT_EQ(blender.count(), 0);
        EXPECT_TRUE(blender.image().isEmpty());
    }

    // A black first shot: the weighted merge takes every dark pixel from the next shot.
    VImageBlender weighted(VImageBlender::MultifocusWeighted);
    VImage black = stack.shots[0].createCompatible();
    std::memset(black.rawData(), 0, size_t(black.dataSize()));
    ASSERT_TRUE(weighted.addImage(black));
    ASSERT_TRUE(weighted.addImage(stack.shots[2]));
    EXPECT_TRUE(sameRoiBytes(weighted.image(), stack.shots[2]));
}

// A layout the method cannot merge is refused from the first shot on, naming the layout it takes; the
// pyramid merges every shot it can convert, as the same picture whatever the series' layout.
TEST(Blender, RefusesALayoutItsMethodCannotMergeFromTheFirstShot)
{
    const Stack stack;
    const struct {
        VImageBlender::MultifocusMethod method;
        Format format;
        Channel channel;
        const char* takes;
    } cases[] = {{VImageBlender::MultifocusMaxSharpness, BGR, Channel8u, "XRGB 8u"},
                 {VImageBlender::MultifocusMaxSharpness, GrayScale, Channel8u, "XRGB 8u"},
                 {VImageBlender::MultifocusWeighted, XRGB, Channel16u, "XRGB 8u"},
                 {VImageBlender::MultifocusPyramid, GrayScale, Channel8u, "BGR 8u"},
                 {VImageBlender::MultifocusPyramid, ARGB, Channel8u, "BGR 8u"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.method << " " << c.format << " " << c.channel);
        const VImage shot = stack.shots[0].convertScaled(c.format, c.channel);
        ASSERT_FALSE(shot.isEmpty());
        VImageBlender blender(c.method);
        EXPECT_FALSE(blender.addImage(shot));
        EXPECT_FALSE(blender.isInitialized());
        EXPECT_EQ(blender.count(), 0);
        const QString reason = blender.lastStatus().reason();
        EXPECT_TRUE(reason.startsWith("The shot's layout cannot be merged") && reason.contains(c.takes))
            << reason.toStdString();
    }

    VImageBlender xrgb(VImageBlender::MultifocusPyramid), bgr(VImageBlender::MultifocusPyramid);
    for (const VImage& shot : stack.shots) {
        ASSERT_TRUE(xrgb.addImage(shot));
        ASSERT_TRUE(bgr.addImage(shot.convert(BGR, Channel8u))) << bgr.lastStatus().message().toStdString();
    }
    EXPECT_EQ(bgr.count(), 3);
    EXPECT_TRUE(sameRoiBytes(bgr.image(), xrgb.image()));
}

// A failed image() says why in lastStatus(); one that succeeds puts back the last addImage()'s status.
TEST(Blender, FailedImageLeavesItsReasonInTheLastStatus)
{
    const Stack stack;
    VImageBlender blender(VImageBlender::MultifocusWeightedAll);
    for (int k = 0; k < 2; ++k)
        ASSERT_TRUE(blender.addImage(stack.shots[k]));
    {
        VProgress cancelled;
        cancelled.cancel();
        const VProgressScope scope(&cancelled);
        EXPECT_TRUE(blender.image().isEmpty());
    }
    EXPECT_EQ(blender.lastStatus().message(), QStringLiteral("Operation cancelled"));
    EXPECT_FALSE(blender.image().isEmpty());
    EXPECT_TRUE(blender.lastStatus());
    EXPECT_FALSE(blender.addImage(makeImage(60, 90, XRGB, Channel8u, 5)));
    const QString refused = blender.lastStatus().message();
    EXPECT_FALSE(blender.image().isEmpty());
    EXPECT_EQ(blender.lastStatus().message(), refused);
}

// The depth map merges the shots' rois, unless it aligns by keypoints or locally: a roi of another size is
// refused as a shot of another size, one of the same size elsewhere taken. The other ways merge whole images
// whatever their rois.
TEST(Blender, MergesRoisOrWholeImagesAsItsAlignmentReadsThem)
{
    const Stack stack;
    const struct {
        VImageBlender::MultifocusMethod method;
        VImageBlender::Alignment alignment;
        bool readsRois;
    } cases[] = {{VImageBlender::MultifocusDepthMap, VImageBlender::AlignNone, true},
                 {VImageBlender::MultifocusDepthMap, VImageBlender::AlignAuto, true},
                 {VImageBlender::MultifocusDepthMap, VImageBlender::AlignKeypoints, false},
                 {VImageBlender::MultifocusMaxSharpness, VImageBlender::AlignAuto, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.method << " " << c.alignment);
        VImageBlender blender(c.method, c.alignment);
        ASSERT_TRUE(blender.addImage(withRoi(stack.shots[0], QRect(0, 0, 100, 80))));
        EXPECT_EQ(blender.addImage(withRoi(stack.shots[1], QRect(0, 0, 90, 80))), !c.readsRois)
            << blender.lastStatus().message().toStdString();
        if (c.readsRois) {
            EXPECT_EQ(blender.lastStatus().reason(),
                      QStringLiteral("The shot's size differs from the first shot's: a roi of 90x80 against 100x80"));
        }
        EXPECT_TRUE(blender.addImage(withRoi(stack.shots[2], QRect(20, 10, 100, 80))))
            << blender.lastStatus().message().toStdString();
        EXPECT_EQ(blender.count(), c.readsRois ? 2 : 3);
        EXPECT_EQ(blender.image().size(), c.readsRois ? QSize(100, 80) : QSize(120, 90));
    }
}

// A scene with detail everywhere, as float BGR planes, and its shots: sharp inside `sharp`, blurred
// elsewhere.
cv::Mat scene(int width, int height, unsigned seed)
{
    cv::Mat noise(height, width, CV_32FC3), detail;
    cv::RNG(seed).fill(noise, cv::RNG::UNIFORM, 0, 255);
    cv::GaussianBlur(noise, detail, {0, 0}, 1.2);
    cv::Mat washes;
    cv::resize(noise(cv::Rect(0, 0, 8, 6)), washes, noise.size(), 0, 0, cv::INTER_CUBIC);
    return 0.5 * washes + 2.5 * detail - cv::Scalar::all(2.5 * 127.5 - 64);
}

cv::Mat shotOf(const cv::Mat& truth, const cv::Rect& sharp, double blur = 3.0)
{
    cv::Mat shot;
    cv::GaussianBlur(truth, shot, {0, 0}, blur);
    if (!sharp.empty())
        truth(sharp).copyTo(shot(sharp));
    return shot;
}

VImage toImage(const cv::Mat& planes, Format format, Channel channel)
{
    VImage image = blank(planes.cols, planes.rows, format, channel);
    const int depth = channel == Channel8u ? CV_8U : channel == Channel16u ? CV_16U : CV_32F;
    cv::Mat typed;
    planes.convertTo(typed, depth);
    if (format == GrayScale)
        cv::cvtColor(typed, roiMat(image), cv::COLOR_BGR2GRAY);
    else if (format == BGR)
        typed.copyTo(roiMat(image));
    else
        cv::cvtColor(typed, roiMat(image), cv::COLOR_BGR2BGRA);
    return image;
}

TEST(DepthMap, KeepsTheDepthAndTakesTheOneSharpShotExactly)
{
    const cv::Mat truth = scene(160, 120, 3);
    const cv::Rect all(0, 0, 160, 120), none(0, 0, 0, 0);
    const struct {
        Format format;
        Channel channel;
        double scale;
    } cases[] = {
        {XRGB, Channel16u, 200}, {GrayScale, Channel16u, 250}, {BGR, Channel32f, 1 / 255.0}, {XRGB, Channel8u, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.format << " " << c.channel);
        VImageBlender blender(VImageBlender::MultifocusDepthMap, VImageBlender::AlignAuto);
        QList<VImage> shots;
        for (const cv::Rect& sharp : {none, all, none})
            shots.append(toImage(shotOf(truth, sharp, 1.5) * c.scale, c.format, c.channel));
        for (const VImage& shot : shots)
            ASSERT_TRUE(blender.addImage(shot)) << blender.lastStatus().message().toStdString();
        const VImage merged = blender.image();
        EXPECT_EQ(merged.format(), c.format == GrayScale ? GrayScale : XRGB);
        EXPECT_EQ(merged.channelType(), c.channel);
        // Integers exactly; floats to their rounding.
        const Format layout = c.format == GrayScale ? GrayScale : BGR;
        EXPECT_LE(cv::norm(roiMat(merged.convert(layout, c.channel)), roiMat(shots[1].convert(layout, c.channel)),
                           cv::NORM_INF),
                  c.channel == Channel32f ? 1e-5 : 0.0);
        for (const VImageBlender::ShotFit& fit : blender.shotFits())
            EXPECT_FALSE(fit.resampled) << "shots that did not move are taken as they stand";
    }
}

TEST(DepthMap, TakesPixelNoiseAsExactlyAsSmoothDetail)
{
    // Detail of single pixels at full contrast: the finest levels' values are too large to take a byte, and
    // the merge keeps them as they are.
    cv::Mat truth(96, 128, CV_32FC3);
    cv::RNG(5).fill(truth, cv::RNG::UNIFORM, 0, 255);
    VImageBlender blender(VImageBlender::MultifocusDepthMap, VImageBlender::AlignNone);
    QList<VImage> shots;
    for (const cv::Rect& sharp : {cv::Rect(), cv::Rect(0, 0, 128, 96), cv::Rect()})
        shots.append(toImage(shotOf(truth, sharp), BGR, Channel8u));
    for (const VImage& shot : shots)
        ASSERT_TRUE(blender.addImage(shot));
    EXPECT_EQ(cv::norm(roiMat(blender.image().convert(BGR, Channel8u)), roiMat(shots[1]), cv::NORM_INF), 0.0);
}

TEST(DepthMap, MatchesExposureAndDecidesFlatAreasByTheirSurroundings)
{
    // Shot 1 is sharp everywhere but in a flat square no shot has detail in; every shot has its own noise
    // and its own exposure.
    cv::Mat truth = scene(240, 180, 5);
    const cv::Rect flat(80, 60, 80, 60);
    truth(flat).setTo(cv::Scalar(120, 140, 160));
    const cv::Vec3d gains[] = {{1, 1, 1}, {1.1, 0.95, 1.05}, {0.9, 1, 1.08}};
    VImageBlender blender(VImageBlender::MultifocusDepthMap, VImageBlender::AlignNone);
    for (int k = 0; k < 3; ++k) {
        cv::Mat shot = shotOf(truth, k == 1 ? cv::Rect(0, 0, 240, 180) : cv::Rect()), noise(shot.size(), CV_32FC3);
        cv::RNG(k + 10).fill(noise, cv::RNG::NORMAL, 0, 2);
        cv::multiply(shot + noise, cv::Scalar(gains[k][0], gains[k][1], gains[k][2]), shot);
        ASSERT_TRUE(blender.addImage(toImage(shot, XRGB, Channel8u)));
    }
    for (int k = 1; k < 3; ++k)
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(blender.shotFits()[k].gains[c] * gains[k][c], 1.0, 0.01) << k << " " << c;
    cv::Mat depth = roiMat(blender.depthMap());
    EXPECT_EQ(cv::countNonZero(depth != 1), 0) << "flat or not, every pixel follows the sharp shot around it";
}

TEST(DepthMap, TheIndexWidensPastTheTwoHundredAndFiftySixthShot)
{
    // Shot 100 is sharp on the left, shot 299 on the right: the index must keep both once it widens.
    const cv::Mat truth = scene(64, 48, 9);
    const cv::Rect left(0, 0, 32, 48), right(32, 0, 32, 48);
    const VImage blurred = toImage(shotOf(truth, cv::Rect()), GrayScale, Channel8u);
    VImageBlender blender(VImageBlender::MultifocusDepthMap, VImageBlender::AlignNone);
    for (int k = 0; k < 300; ++k)
        ASSERT_TRUE(blender.addImage(k == 100   ? toImage(shotOf(truth, left), GrayScale, Channel8u)
                                     : k == 299 ? toImage(shotOf(truth, right), GrayScale, Channel8u)
                                                : blurred));
    const cv::Mat depth = roiMat(blender.depthMap());
    EXPECT_EQ(cv::countNonZero(depth(cv::Rect(4, 4, 20, 40)) != 100), 0);
    EXPECT_EQ(cv::countNonZero(depth(cv::Rect(40, 4, 20, 40)) != 299), 0);
}

TEST(DepthMap, AveragesShotsNearlyAsSharpWhichLowersTheirNoise)
{
    // Three shots equally sharp in the middle, each with noise of its own, and one blurred everywhere.
    const cv::Mat truth = scene(240, 180, 11);
    const cv::Rect middle(60, 45, 120, 90);
    VImageBlender blender(VImageBlender::MultifocusDepthMap, VImageBlender::AlignNone);
    cv::Mat reference;
    truth(middle).convertTo(reference, CV_8U);
    double best = 0;
    for (int k = 0; k < 4; ++k) {
        cv::Mat noise(truth.size(), CV_32FC3);
        cv::RNG(k + 20).fill(noise, cv::RNG::NORMAL, 0, 4);
        const VImage image = toImage(shotOf(truth, k == 2 ? cv::Rect() : middle) + noise, BGR, Channel8u);
        best = std::max(best, cv::PSNR(roiMat(image)(middle), reference));
        ASSERT_TRUE(blender.addImage(image));
    }
    cv::Mat merged;
    cv::cvtColor(roiMat(blender.image())(middle), merged, cv::COLOR_BGRA2BGR);
    EXPECT_GT(cv::PSNR(merged, reference), best + 2.0);
}

TEST(DepthMap, LargeShotsAreFittedOnPatchesToATenthOfAPixel)
{
    // Over half a million working pixels the global fit is refined on patches spread over the picture:
    // a magnified, turned and shifted shot (no parallax, so nothing local takes up what the global fit
    // leaves) is found to a tenth of a pixel at every corner, and a shot that did not move stands as it is.
    const int w = 1024, h = 576;
    const cv::Mat truth = scene(w, h, 13);
    const double s = 1.015, a = 0.003, cx = w / 2.0, cy = h / 2.0;
    const cv::Matx23d global(s * std::cos(a), -s * std::sin(a), 0, s * std::sin(a), s * std::cos(a), 0);
    cv::Matx23d map = global; // about the centre, then shifted: the second shot's pixels to the first's
    map(0, 2) = cx + 2.3 - global(0, 0) * cx - global(0, 1) * cy;
    map(1, 2) = cy - 1.7 - global(1, 0) * cx - global(1, 1) * cy;
    cv::Mat moved;
    cv::warpAffine(truth, moved, cv::Mat(map), truth.size(), cv::INTER_CUBIC | cv::WARP_INVERSE_MAP,
                   cv::BORDER_REFLECT);
    cv::invertAffineTransform(map, map); // the fit's way round
    const cv::Rect left(0, 0, w / 2, h);
    VImageBlender blender(VImageBlender::MultifocusDepthMap, VImageBlender::AlignAuto);
    // Each fit is shown before its shot is taken, as shotFits() then reports it.
    QList<VImageBlender::ShotFit> shown;
    QList<int> taken;
    blender.setFitFound([&](const VImageBlender::ShotFit& fit) {
        shown.append(fit);
        taken.append(blender.count());
    });
    cv::RNG rng(5);
    for (cv::Mat shot :
         {shotOf(truth, left, 1.5), shotOf(moved, cv::Rect(w / 2, 0, w / 2, h), 1.5), shotOf(truth, left, 1.5)}) {
        cv::Mat noise(shot.size(), shot.type());
        rng.fill(noise, cv::RNG::NORMAL, 0, 2); // a camera's noise, each shot its own
        shot += noise;
        ASSERT_TRUE(blender.addImage(toImage(shot, XRGB, Channel8u))) << blender.lastStatus().message().toStdString();
    }
    const QTransform found = blender.shotFits()[1].transform;
    for (const QPointF corner : {QPointF(0, 0), QPointF(w - 1, 0), QPointF(0, h - 1), QPointF(w - 1, h - 1)}) {
        const QPointF expected(map(0, 0) * corner.x() + map(0, 1) * corner.y() + map(0, 2),
                               map(1, 0) * corner.x() + map(1, 1) * corner.y() + map(1, 2));
        const QPointF off = found.map(corner) - expected;
        EXPECT_LT(std::hypot(off.x(), off.y()), 0.1) << corner.x() << "," << corner.y();
    }
    EXPECT_FALSE(blender.shotFits()[2].resampled) << "back where the first shot stood";
    EXPECT_EQ(taken, QList<int>({0, 1, 2}));
    ASSERT_EQ(shown.size(), 3);
    for (int k = 0; k < 3; ++k)
        EXPECT_TRUE(shown[k].transform == blender.shotFits()[k].transform &&
                    shown[k].resampled == blender.shotFits()[k].resampled)
            << k;
}

TEST(DepthMap, StillShotsFocusedDifferentlyAreTakenAsTheyStand)
{
    // Each shot sharp in its own band of a large picture and blurred elsewhere, none moved: the fits follow
    // the focus differences by tenths of a pixel, which must not pass for motion, globally or locally.
    const int w = 1024, h = 576, bands = 4;
    const cv::Mat truth = scene(w, h, 21);
    VImageBlender blender(VImageBlender::MultifocusDepthMap, VImageBlender::AlignAuto);
    cv::RNG rng(9);
    for (int k = 0; k < bands; ++k) {
        cv::Mat shot = shotOf(truth, cv::Rect(k * w / bands, 0, w / bands, h), 4.0), noise(shot.size(), shot.type());
        rng.fill(noise, cv::RNG::NORMAL, 0, 2);
        shot += noise;
        ASSERT_TRUE(blender.addImage(toImage(shot, XRGB, Channel8u))) << blender.lastStatus().message().toStdString();
    }
    for (int k = 1; k < bands; ++k)
        EXPECT_FALSE(blender.shotFits()[size_t(k)].resampled) << "shot " << k;
}

TEST(DepthMap, FollowsParallaxThatTheGlobalFitCannotTakeUp)
{
    // A near disc in the middle moves one way and the far surround the other, so that no global fit
    // explains the pair: a camera moved towards the subject (a focusing rail) magnifies the near disc and
    // shrinks the surround, the flow pointing every way at once; one turned about a point at middle depth
    // shifts them sideways apart, by under half a pixel. It is motion all the same, and must be followed.
    const int w = 640, h = 480;
    const cv::Mat truth = scene(w, h, 17);
    cv::Mat grow(h, w, CV_32F);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            grow.at<float>(y, x) = std::hypot(x - w / 2.0, y - h / 2.0) < 120 ? 0.008f : -0.005f;
    cv::GaussianBlur(grow, grow, {0, 0}, 30);
    for (const bool alongTheAxis : {true, false}) {
        cv::Mat map(h, w, CV_32FC2);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const float g = grow.at<float>(y, x); // the second shot's pixel (x, y) shows the scene at:
                map.at<cv::Vec2f>(y, x) = alongTheAxis
                                              ? cv::Vec2f(float(x - g * (x - w / 2.0)), float(y - g * (y - h / 2.0)))
                                              : cv::Vec2f(float(x - g * 60), float(y));
            }
        cv::Mat moved;
        cv::remap(truth, moved, map, cv::noArray(), cv::INTER_CUBIC, cv::BORDER_REFLECT);
        VImageBlender blender(VImageBlender::MultifocusDepthMap, VImageBlender::AlignAuto);
        blender.setKeepShotFits(true);
        const VImage second = toImage(shotOf(moved, cv::Rect(w / 2, 0, w / 2, h), 1.5), XRGB, Channel8u);
        ASSERT_TRUE(blender.addImage(toImage(shotOf(truth, cv::Rect(0, 0, w / 2, h), 1.5), XRGB, Channel8u)));
        ASSERT_TRUE(blender.addImage(second)) << blender.lastStatus().message().toStdString();
        EXPECT_GT(blender.shotFits()[1].localShift, alongTheAxis ? 0.5 : 0.4) << alongTheAxis;
        VImage aligned;
        ASSERT_TRUE(blender.alignedShot(second, 1, &aligned));
        cv::Mat shot, reference;
        cv::cvtColor(roiMat(aligned), shot, cv::COLOR_BGRA2GRAY);
        truth.convertTo(reference, CV_8U);
        cv::cvtColor(reference, reference, cv::COLOR_BGR2GRAY);
        for (const cv::Rect part :
             {cv::Rect(340, 180, 96, 96), cv::Rect(500, 40, 96, 96), cv::Rect(500, 340, 96, 96)}) {
            cv::Mat a, b;
            shot(part).convertTo(a, CV_32F);
            reference(part).convertTo(b, CV_32F);
            const cv::Point2d shift = cv::phaseCorrelate(a, b);
            EXPECT_LT(std::hypot(shift.x, shift.y), 0.2) << part << " is off by " << shift << ", " << alongTheAxis;
        }
    }
}

TEST(DepthMap, AlignsBreathingShakeAndParallaxToATenthOfAPixel)
{
    // The reference is sharp on the left, the second shot on the right, magnified, turned and shifted as a
    // whole, and with a smooth local shift (parallax) in its right half.
    const int w = 320, h = 240;
    const cv::Mat truth = scene(w, h, 7);
    const cv::Matx23d global(1.02 * std::cos(0.004), -1.02 * std::sin(0.004), 0, 1.02 * std::sin(0.004),
                             1.02 * std::cos(0.004), 0);
    cv::Mat map(h, w, CV_32FC2);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double bump = 1.5 * std::exp(-(std::pow(x - 240.0, 2) + std::pow(y - 120.0, 2)) / (2 * 50.0 * 50.0));
            const double px = x - w / 2.0 + bump, py = y - h / 2.0;
            map.at<cv::Vec2f>(y, x) = cv::Vec2f(float(global(0, 0) * px + global(0, 1) * py + w / 2.0 + 1.3),
                                                float(global(1, 0) * px + global(1, 1) * py + h / 2.0 - 0.8));
        }
    cv::Mat moved;
    cv::remap(truth, moved, map, cv::noArray(), cv::INTER_CUBIC, cv::BORDER_REFLECT);
    cv::Mat blurred;
    cv::GaussianBlur(moved, blurred, {0, 0}, 1.5);
    moved(cv::Rect(w / 2, 0, w / 2, h)).copyTo(blurred(cv::Rect(w / 2, 0, w / 2, h)));
    VImageBlender blender(VImageBlender::MultifocusDepthMap, VImageBlender::AlignAuto);
    blender.setKeepShotFits(true);
    const VImage second = toImage(blurred, XRGB, Channel8u);
    ASSERT_TRUE(blender.addImage(toImage(shotOf(truth, cv::Rect(0, 0, w / 2, h), 1.5), XRGB, Channel8u)));
    ASSERT_TRUE(blender.addImage(second)) << blender.lastStatus().message().toStdString();
    EXPECT_TRUE(blender.shotFits()[1].resampled);
    EXPECT_NEAR(blender.shotFits()[1].transform.m11(), 1 / 1.02, 0.005); // the parallax pulls it a little
    // The merge, and the second shot as the merge read it (what a retouching brush paints from), line up
    // with the scene wherever they are sharp.
    VImage aligned;
    ASSERT_TRUE(blender.alignedShot(second, 1, &aligned));
    cv::Mat merged, shot, reference;
    cv::cvtColor(roiMat(blender.image()), merged, cv::COLOR_BGRA2GRAY);
    cv::cvtColor(roiMat(aligned), shot, cv::COLOR_BGRA2GRAY);
    truth.convertTo(reference, CV_8U);
    cv::cvtColor(reference, reference, cv::COLOR_BGR2GRAY);
    const std::initializer_list<std::pair<cv::Mat*, cv::Rect>> parts = {{&merged, {20, 20, 120, 200}},
                                                                        {&merged, {180, 60, 120, 120}},
                                                                        {&merged, {180, 10, 120, 60}},
                                                                        {&shot, {180, 60, 120, 120}},
                                                                        {&shot, {180, 10, 120, 60}}};
    for (const auto& [image, part] : parts) {
        cv::Mat a, b;
        (*image)(part).convertTo(a, CV_32F);
        reference(part).convertTo(b, CV_32F);
        const cv::Point2d shift = cv::phaseCorrelate(a, b);
        EXPECT_LT(std::hypot(shift.x, shift.y), 0.1) << part << " is off by " << shift;
    }

    // A shot of another scene cannot be aligned: refused with the reason, the blender as it was.
    const VImage before = blender.image().copy();
    EXPECT_FALSE(blender.addImage(toImage(scene(w, h, 99), XRGB, Channel8u)));
    EXPECT_TRUE(blender.lastStatus().message().contains("cannot be aligned"))
        << blender.lastStatus().message().toStdString();
    EXPECT_EQ(blender.count(), 2);
    EXPECT_TRUE(sameRoiBytes(blender.image(), before));

    // Shots with a region of interest merge that region.
    VImageBlender rois(VImageBlender::MultifocusDepthMap, VImageBlender::AlignAuto);
    for (int k = 0; k < 2; ++k)
        ASSERT_TRUE(rois.addImage(withRoi(toImage(truth, XRGB, Channel8u), QRect(10, 20, 200, 150))));
    EXPECT_EQ(rois.image().size(), QSize(200, 150));
    EXPECT_EQ(rois.depthMap().size(), QSize(200, 150));

    // An aligned shot is refused, with the reason, for a number not merged, another layout, and a blender
    // that did not keep the fits.
    const std::initializer_list<std::pair<VStatus, const char*>> refusals = {
        {blender.alignedShot(second, 2, &aligned), "No shot of that number"},
        {blender.alignedShot(second.convert(BGR, Channel8u), 1, &aligned), "320x240 BGR"},
        {rois.alignedShot(second, 1, &aligned), "fit was not kept"}};
    for (const auto& [status, reason] : refusals)
        EXPECT_TRUE(status.message().contains(reason)) << status.message().toStdString();

    // The other methods give a shot that did not move (the first one, a tripod's) as it stands: whole, as
    // they merge it whatever its roi.
    VImageBlender still(VImageBlender::MultifocusMaxSharpness, VImageBlender::AlignAuto);
    still.setKeepShotFits(true);
    const VImage tripod = withRoi(toImage(truth, XRGB, Channel8u), QRect(5, 7, 300, 200));
    for (int k = 0; k < 2; ++k)
        ASSERT_TRUE(still.addImage(tripod));
    for (int k = 0; k < 2; ++k) {
        ASSERT_TRUE(still.alignedShot(tripod, k, &aligned)) << k;
        EXPECT_TRUE(sameRoiBytes(aligned, tripod.copy())) << k;
    }
}

} // namespace
