// Calibration on chessboards rendered through a known camera: the corners, the camera fitted back from
// them, and the undistortion that takes the lens out again.
#include "support/images.h"

#include <opencv2/calib3d.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

using namespace VEXA;

namespace {

const QSize pattern(9, 6); // inner corners; 10 x 7 squares of side 1
const cv::Size imageSize(640, 480);
const cv::Matx33d trueCamera(560, 0, 322.5, 0, 555, 238, 0, 0, 1);
const cv::Matx<double, 5, 1> trueDistortion(-0.25, 0.08, 0.001, -0.0008, 0.0);

struct View {
    cv::Vec3d rotation, translation;
};

cv::Matx33d rotationOf(const cv::Vec3d& rotation)
{
    cv::Matx33d m;
    cv::Rodrigues(rotation, m);
    return m;
}

// Tilted up to some 30 degrees, the board (about 350 pixels wide) moved over the frame.
std::vector<View> views()
{
    const double tilts[][3] = {{0.0, 0.0, 0.05},  {0.45, 0.0, 0.0},  {-0.45, 0.1, 0.0},  {0.0, 0.5, 0.1},
                               {0.1, -0.5, -0.1}, {0.35, 0.35, 0.2}, {-0.3, -0.35, 0.0}, {0.25, -0.3, 0.3}};
    const double shifts[][2] = {{0, 0}, {-2.5, 1.5}, {2.5, -1.5}, {-3, -2}, {3, 2}, {2.5, 1.5}, {-2.5, 1.5}, {0, -2}};
    const cv::Vec3d centre(4.0, 2.5, 0.0); // the middle of the inner corners
    std::vector<View> v;
    for (int i = 0; i < 8; ++i) {
        const cv::Vec3d tilt(tilts[i]);
        v.push_back({tilt, cv::Vec3d(shifts[i][0], shifts[i][1], 16) - rotationOf(tilt) * centre});
    }
    return v;
}

// The normalized ray of every pixel centre, once for all views: the distortion inverted.
const std::vector<cv::Point2f>& rays()
{
    static const std::vector<cv::Point2f> normalized = [] {
        std::vector<cv::Point2f> pixels, out;
        for (int y = 0; y < imageSize.height; ++y)
            for (int x = 0; x < imageSize.width; ++x)
                pixels.emplace_back(float(x), float(y));
        cv::undistortPoints(pixels, out, trueCamera, trueDistortion, cv::noArray(), cv::noArray(),
                            cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 100, 1e-7));
        return out;
    }();
    return normalized;
}

// The board seen through the camera, dark squares 40 and light 215 on a light ground. Each edge is a ramp
// one pixel wide centred on its exact position (the board coordinate's distance to the edge divided by its
// gradient in pixels), so that edges and corners lie where the camera puts them to a small fraction of a
// pixel.
VImage render(const View& view, QPoint at = {}, QSize whole = QSize(imageSize.width, imageSize.height))
{
    const cv::Matx33d r = rotationOf(view.rotation);
    const cv::Matx33d toRay(r(0, 0), r(0, 1), view.translation[0], r(1, 0), r(1, 1), view.translation[1], r(2, 0),
                            r(2, 1), view.translation[2]);
    std::vector<cv::Point2f> board;
    cv::perspectiveTransform(rays(), board, cv::Mat(toRay.inv()));
    const cv::Mat b(imageSize, CV_32FC2, board.data());
    VImage image;
    image.create(whole.width(), whole.height(), GrayScale, Channel8u, OriginTopLeft, RowsAlignNone);
    roiMat(image).setTo(215);
    image = withRoi(image, QRect(at, QSize(imageSize.width, imageSize.height)));
    cv::Mat m = roiMat(image);
    const auto ramp = [](double pixels) { return std::clamp(pixels, -0.5, 0.5) + 0.5; };
    for (int y = 1; y + 1 < imageSize.height; ++y)
        for (int x = 1; x + 1 < imageSize.width; ++x) {
            double darkness = 1.0, cover = 1.0;
            for (int c = 0; c < 2; ++c) {
                const double v = b.at<cv::Vec2f>(y, x)[c], limit = c == 0 ? pattern.width() : pattern.height();
                const double gradient = std::hypot(b.at<cv::Vec2f>(y, x + 1)[c] - b.at<cv::Vec2f>(y, x - 1)[c],
                                                   b.at<cv::Vec2f>(y + 1, x)[c] - b.at<cv::Vec2f>(y - 1, x)[c]) /
                                        2;
                const double line = std::round(v), side = 2 * ramp((v - line) / gradient) - 1;
                darkness *= int(line) % 2 == 0 ? side : -side;
                cover *= ramp((std::min(v + 1, limit - v)) / gradient);
            }
            m.at<uchar>(y, x) = uchar(std::lround(215 - 175 * cover * (1 + darkness) / 2));
        }
    return image;
}

std::vector<cv::Point2f> projected(const View& view, const cv::Matx33d& camera, const cv::Mat& distortion)
{
    std::vector<cv::Point3f> corners;
    for (int i = 0; i < pattern.width() * pattern.height(); ++i)
        corners.emplace_back(float(i % pattern.width()), float(i / pattern.width()), 0.0f);
    std::vector<cv::Point2f> out;
    cv::projectPoints(corners, view.rotation, view.translation, camera, distortion, out);
    return out;
}

// The largest distance between found corners and expected ones, in either order along the board (the
// detector may start from the far corner of a board turned half round; the fit does not mind).
double worstError(const QList<QPointF>& found, const std::vector<cv::Point2f>& expected)
{
    double forward = 0, backward = 0;
    for (int i = 0; i < found.size(); ++i) {
        const auto error = [&](const cv::Point2f& e) { return std::hypot(found[i].x() - e.x, found[i].y() - e.y); };
        forward = std::max(forward, error(expected[size_t(i)]));
        backward = std::max(backward, error(expected[expected.size() - 1 - size_t(i)]));
    }
    return std::min(forward, backward);
}

} // namespace

TEST(Calibration, FitsTheCameraTheBoardsWereRenderedThrough)
{
    QList<QList<QPointF>> corners;
    double worstCorner = 0;
    for (const View& view : views()) {
        QList<QPointF> found;
        bool isFound = false;
        ASSERT_TRUE(findChessboardCorners(render(view), pattern, &found, &isFound));
        ASSERT_TRUE(isFound);
        ASSERT_EQ(found.size(), pattern.width() * pattern.height());
        worstCorner = std::max(worstCorner, worstError(found, projected(view, trueCamera, cv::Mat(trueDistortion))));
        corners.append(found);
    }
    EXPECT_LT(worstCorner, 0.2) << "sub-pixel corners";

    VCameraCalibration fit;
    ASSERT_TRUE(calibrateCamera(corners, pattern, 1.0, QSize(imageSize.width, imageSize.height), &fit));
    const double errors[] = {fit.fx() / 560 - 1, fit.fy() / 555 - 1, fit.cx() / 322.5 - 1, fit.cy() / 238 - 1,
                             fit.k1() / -0.25 - 1};
    std::printf("corners within %.4f px; rms %.4f px; relative errors fx %.2e fy %.2e cx %.2e cy %.2e k1 %.2e\n",
                worstCorner, fit.rms(), errors[0], errors[1], errors[2], errors[3], errors[4]);
    EXPECT_LT(fit.rms(), 0.1);
    for (int i = 0; i < 4; ++i)
        EXPECT_LT(std::abs(errors[i]), 0.01) << i;
    EXPECT_LT(std::abs(errors[4]), 0.1);
    EXPECT_EQ(fit.imageSize(), QSize(640, 480));
}

TEST(Calibration, UndistortionPutsTheCornersWhereTheIdealCameraSeesThem)
{
    const VCameraCalibration lens(560, 555, 322.5, 238, -0.25, 0.08, 0.001, -0.0008, 0.0, QSize(640, 480));
    const View view = views()[5];
    const VImage distorted = render(view, QPoint(7, 5), QSize(660, 500)); // through a roi
    for (double alpha : {-1.0, 0.0, 1.0}) {
        SCOPED_TRACE(alpha);
        VImage straight;
        VCameraCalibration ideal(560, 555, 322.5, 238);
        ASSERT_TRUE(alpha < 0 ? undistortImage(distorted, &straight, lens)
                              : undistortImage(distorted, &straight, lens, alpha, &ideal));
        QList<QPointF> found;
        ASSERT_TRUE(findChessboardCorners(straight, pattern, &found));
        const cv::Matx33d k(ideal.fx(), 0, ideal.cx(), 0, ideal.fy(), ideal.cy(), 0, 0, 1);
        EXPECT_LT(worstError(found, projected(view, k, cv::Mat())), 0.3);
    }
    QList<QPointF> found, moved;
    ASSERT_TRUE(findChessboardCorners(distorted, pattern, &found));
    ASSERT_TRUE(undistortPoints(found, &moved, lens));
    EXPECT_LT(worstError(moved, projected(view, trueCamera, cv::Mat())), 0.2);

    VImage separate, inPlace = distorted.copy();
    inPlace.setRoi(distorted.roi());
    ASSERT_TRUE(undistortImage(distorted, &separate, lens));
    ASSERT_TRUE(undistortImage(inPlace, &inPlace, lens));
    EXPECT_TRUE(sameRoiBytes(separate, inPlace));
}

TEST(Calibration, BadInputsFail)
{
    const VImage board = render(views()[0]);
    const VCameraCalibration lens(560, 555, 322.5, 238, -0.25, 0, 0, 0, 0, QSize(640, 480));
    QList<QPointF> corners;
    bool found = true;
    ASSERT_TRUE(findChessboardCorners(board, pattern, &corners, &found));
    const QList<QList<QPointF>> three{corners, corners, corners};
    VImage out, blank = makeImage(64, 48, GrayScale, Channel8u);
    VCameraCalibration fit;
    QList<QPointF> none;
    const VStatus failures[] = {
        findChessboardCorners(failedImage(board), pattern, &none),
        findChessboardCorners(VImage(), pattern, &none),
        findChessboardCorners(makeImage(64, 48, GrayScale, Channel16u), pattern, &none),
        findChessboardCorners(board, QSize(2, 6), &none),
        findChessboardCorners(board, pattern, nullptr),
        findChessboardCorners(blank, pattern, &none), // not found, and no `found` to say so
        calibrateCamera({corners, corners}, pattern, 1.0, QSize(640, 480), &fit),
        calibrateCamera({corners, corners, corners.mid(1)}, pattern, 1.0, QSize(640, 480), &fit),
        calibrateCamera({corners, corners, QList<QPointF>(54, QPointF(NAN, 0))}, pattern, 1.0, QSize(640, 480), &fit),
        calibrateCamera(three, pattern, 1.0, QSize(640, 480), &fit), // one pose pins nothing down
        calibrateCamera(three, pattern, 0.0, QSize(640, 480), &fit),
        calibrateCamera(three, pattern, NAN, QSize(640, 480), &fit),
        calibrateCamera(three, pattern, 1.0, QSize(0, 480), &fit),
        calibrateCamera(three, pattern, 1.0, QSize(640, 480), nullptr),
        undistortImage(board, &out, VCameraCalibration()),
        undistortImage(board, &out, VCameraCalibration(560, 555, NAN, 238)),
        undistortImage(withRoi(board, QRect(0, 0, 320, 240)), &out, lens),
        undistortImage(makeImage(640, 480, GrayScale, Channel8s), &out, lens),
        undistortImage(board, &out, lens, 1.5),
        undistortPoints({QPointF(INFINITY, 0)}, &corners, lens),
    };
    for (const VStatus& status : failures) {
        EXPECT_FALSE(status);
        EXPECT_FALSE(status.message().isEmpty());
    }
    VImage wrongPair = makeImage(640, 480, BGR, Channel8u);
    EXPECT_FALSE(undistortImage(board, &wrongPair, lens));
    for (const VImage& nothing : {blank, makeImage(9, 7, YUV422, Channel8u)}) {
        found = true;
        EXPECT_TRUE(findChessboardCorners(nothing, pattern, &corners, &found));
        EXPECT_FALSE(found);
        EXPECT_TRUE(corners.isEmpty());
    }
}
