// Stabilization of a shaking sequence cut from one larger picture by known shifts and turns: the motion
// left between neighbours, measured by phase correlation, and the borders of each mode; and the refusals.
#include "support/images.h"

#include <vexa/Vexa.h>

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include <random>

using namespace VEXA;

namespace {

VImage imageOf(const cv::Mat& pixels)
{
    VImage image = makeImage(pixels.cols, pixels.rows, GrayScale, Channel8u);
    pixels.copyTo(roiMat(image));
    image.resetHash();
    return image;
}

// 20 frames of 320 x 240, each centred within 6 pixels of the picture's middle and turned by up to 1
// degree; the picture's values are 20 to 235, so black is only ever a border.
VImageList shakingSequence()
{
    cv::Mat picture(450, 600, CV_8U);
    cv::theRNG().state = 11;
    cv::randu(picture, 0, 256);
    cv::GaussianBlur(picture, picture, cv::Size(), 2.0);
    cv::normalize(picture, picture, 20, 235, cv::NORM_MINMAX);
    std::mt19937 random(5);
    std::uniform_real_distribution<double> shake(-6.0, 6.0), turn(-1.0, 1.0);
    VImageList frames;
    for (int i = 0; i < 20; ++i) {
        cv::Matx23d m = cv::getRotationMatrix2D(cv::Point2f(159.5f, 119.5f), turn(random), 1.0);
        m(0, 2) += 300 - 159.5 + shake(random);
        m(1, 2) += 225 - 119.5 + shake(random);
        cv::Mat frame;
        cv::warpAffine(picture, frame, m, cv::Size(320, 240), cv::INTER_CUBIC | cv::WARP_INVERSE_MAP);
        frames.add(imageOf(frame));
    }
    return frames;
}

// The shifts between neighbours' middles (160 x 120), by phase correlation: their mean and largest.
std::pair<double, double> motion(const VImageList& frames)
{
    double sum = 0.0, largest = 0.0;
    cv::Mat previous;
    for (int i = 0; i < frames.count(); ++i) {
        const cv::Mat m = roiMat(frames.at(unsigned(i)));
        cv::Mat middle;
        m(cv::Rect(m.cols / 2 - 80, m.rows / 2 - 60, 160, 120)).convertTo(middle, CV_64F);
        if (i > 0) {
            const double shift = cv::norm(cv::phaseCorrelate(previous, middle));
            sum += shift;
            largest = std::max(largest, shift);
        }
        previous = middle;
    }
    return {sum / (frames.count() - 1), largest};
}

} // namespace

TEST(Stabilize, TakesTheShakeOutOfASequence)
{
    const VImageList frames = shakingSequence();
    const auto before = motion(frames);
    EXPECT_GT(before.first, 3.0);
    for (StabilizeBorders borders : {StabilizeCrop, StabilizeBlack, StabilizeReplicate}) {
        SCOPED_TRACE(borders);
        VImageList out;
        ASSERT_TRUE(stabilizeSequence(frames, &out, 10, borders));
        ASSERT_EQ(out.count(), frames.count());
        const auto after = motion(out);
        EXPECT_LT(after.first, 0.4);
        EXPECT_LT(after.second, 1.0);
        std::cout << "borders " << borders << ": motion between neighbours, mean " << before.first << " px, largest "
                  << before.second << " px before; mean " << after.first << " px, largest " << after.second
                  << " px after\n";
        const QSize size = out.at(0).size();
        double lowest = 255.0;
        for (int i = 0; i < out.count(); ++i) {
            EXPECT_EQ(out.at(unsigned(i)).size(), size);
            EXPECT_EQ(out.at(unsigned(i)).format(), GrayScale);
            double low = 0.0;
            cv::minMaxLoc(roiMat(out.at(unsigned(i))), &low);
            lowest = std::min(lowest, low);
        }
        if (borders == StabilizeCrop) {
            EXPECT_LT(size.width(), 320);
            EXPECT_GT(size.width(), 260) << "no more is cut than the shake needs";
            EXPECT_GT(size.height(), 190);
        } else {
            EXPECT_EQ(size, QSize(320, 240));
        }
        EXPECT_EQ(lowest < 15.0, borders == StabilizeBlack) << "black borders only where asked for: " << lowest;
    }
    // A radius spanning the sequence holds the camera still: what moves then is the estimate's error.
    VImageList still;
    ASSERT_TRUE(stabilizeSequence(frames, &still, 100, StabilizeCrop));
    const auto error = motion(still);
    EXPECT_LT(error.first, 0.1);
    EXPECT_LT(error.second, 0.2);
    std::cout << "radius 100: mean " << error.first << " px, largest " << error.second << " px\n";
}

TEST(Stabilize, RefusesBadSequencesAndArguments)
{
    const VImage frame = makeImage(64, 48, GrayScale, Channel8u);
    VImageList failed, mixedFormats, mixedSizes, eightSigned, withFailed;
    failed.add(frame);
    failed.setStatus(VLog::errorStream("Vexa", "f", "t", 1, Issue::None) << "broken on purpose");
    mixedFormats.add(frame);
    mixedFormats.add(makeImage(64, 48, BGR, Channel8u));
    mixedSizes.add(frame);
    mixedSizes.add(withRoi(makeImage(64, 48, GrayScale, Channel8u), QRect(0, 0, 60, 48)));
    eightSigned.add(makeImage(64, 48, GrayScale, Channel8s));
    withFailed.add(frame);
    withFailed.add(failedImage(frame));
    const struct {
        VImageList list;
        int radius;
        StabilizeBorders borders;
    } cases[] = {{VImageList(), 5, StabilizeCrop}, {failed, 5, StabilizeCrop},      {mixedFormats, 5, StabilizeBlack},
                 {mixedSizes, 5, StabilizeCrop},   {eightSigned, 5, StabilizeCrop}, {withFailed, 5, StabilizeCrop}};
    VImageList out;
    out.add(frame);
    for (const auto& c : cases) {
        EXPECT_FALSE(stabilizeSequence(c.list, &out, c.radius, c.borders));
        EXPECT_EQ(out.count(), 1) << "untouched on failure";
    }
    VImageList good;
    good.add(frame);
    good.add(frame);
    EXPECT_FALSE(stabilizeSequence(good, &out, -1));
    EXPECT_FALSE(stabilizeSequence(good, &out, 5, StabilizeBorders(9)));
    EXPECT_FALSE(stabilizeSequence(good, nullptr));
    EXPECT_EQ(out.count(), 1);
    ASSERT_TRUE(stabilizeSequence(good, &out, 0, StabilizeCrop));
    EXPECT_TRUE(out.count() == 2 && sameRoiBytes(out.at(1), frame)) << "radius 0 keeps every frame as it is";
}
