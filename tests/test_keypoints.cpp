// Keypoints over image lists: found again after a known turn and shift, matched into pairs that give the
// turn and shift back, for every detector; and the refusals.
#include "support/images.h"

#include <vexa/Vexa.h>

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include <cmath>

using namespace VEXA;

namespace {

// Smoothed noise: blobs and corners at every scale the detectors look at.
cv::Mat texture(cv::Size size, unsigned seed)
{
    cv::Mat noise(size, CV_8U);
    cv::theRNG().state = seed;
    cv::randu(noise, 0, 256);
    cv::GaussianBlur(noise, noise, cv::Size(), 2.0);
    cv::normalize(noise, noise, 0, 255, cv::NORM_MINMAX);
    return noise;
}

// The gray picture as an image of the pair, placed at (7, 5) of a larger image whose roi it is.
VImage imageOf(const cv::Mat& gray, Format format, Channel channel)
{
    VImage image = makeImage(gray.cols + 20, gray.rows + 12, format, channel);
    image = withRoi(image, QRect(7, 5, gray.cols, gray.rows));
    cv::Mat pixels;
    if (format == BGR)
        cv::merge(std::vector<cv::Mat>{255 - gray, gray, gray}, pixels);
    else
        gray.convertTo(pixels, CV_MAKETYPE(int(channel), 1), channel == Channel16u ? 257.0 : 1.0);
    pixels.copyTo(roiMat(image));
    image.resetHash();
    return image;
}

QPointF mapped(const cv::Matx23d& m, QPointF p)
{
    return {m(0, 0) * p.x() + m(0, 1) * p.y() + m(0, 2), m(1, 0) * p.x() + m(1, 1) * p.y() + m(1, 2)};
}

} // namespace

TEST(Keypoints, FoundAgainAndMatchedAfterATurnAndShift)
{
    const cv::Mat a = texture(cv::Size(320, 240), 3);
    cv::Matx23d m = cv::getRotationMatrix2D(cv::Point2f(150, 110), 8.0, 1.0); // counter-clockwise as displayed
    m(0, 2) += 6.3;
    m(1, 2) -= 4.7;
    cv::Mat b;
    cv::warpAffine(a, b, m, a.size(), cv::INTER_CUBIC, cv::BORDER_REFLECT);
    const struct {
        KeypointDetector detector;
        Format format;
        Channel channel;
        double cornerError; // ORB's positions are whole pixels of its pyramid's levels
    } cases[] = {{KeypointOrb, GrayScale, Channel8u, 0.75},
                 {KeypointAkaze, BGR, Channel8u, 0.2},
                 {KeypointSift, GrayScale, Channel16u, 0.2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.detector);
        VImageList list;
        list.add(imageOf(a, c.format, c.channel));
        list.add(imageOf(b, c.format, c.channel));

        QList<QList<QPointF>> positions;
        ASSERT_TRUE(findKeypointPositions(list, &positions, c.detector, 500));
        ASSERT_EQ(positions.size(), 2);
        ASSERT_FALSE(positions[0].isEmpty() || positions[1].isEmpty());
        EXPECT_LE(positions[0].size(), 500);
        int inside = 0, again = 0;
        for (const QPointF& p : positions[0]) {
            const QPointF q = mapped(m, p);
            if (!QRectF(20, 20, 280, 200).contains(q))
                continue;
            ++inside;
            for (const QPointF& r : positions[1])
                if (QLineF(q, r).length() < 1.5) {
                    ++again;
                    break;
                }
        }
        EXPECT_GT(inside, 100);
        EXPECT_GT(again, inside / 2) << again << " of " << inside;

        QList<QList<VKeypoint>> oriented;
        ASSERT_TRUE(findKeypointOrientations(list, &oriented, c.detector, 500));
        ASSERT_EQ(oriented.size(), 2);
        ASSERT_EQ(oriented[0].size(), positions[0].size());
        EXPECT_EQ(oriented[0].last().position, positions[0].last());
        EXPECT_GT(oriented[0].first().size, 0.0);

        QList<VKeypointSet> sets;
        ASSERT_TRUE(findVKeypointDescriptors(list, &sets, c.detector, 1000));
        QList<QPair<QPointF, QPointF>> pairs;
        ASSERT_TRUE(matchKeypointDescriptors(sets[0], sets[1], &pairs));
        EXPECT_GT(pairs.size(), 50);
        bool ok = false;
        const VTransformPerspective found = findPerspectiveTransformationByPoints(pairs, &ok);
        ASSERT_TRUE(ok && found.status());
        double worst = 0.0;
        for (const QPointF& corner : {QPointF(0, 0), QPointF(319, 0), QPointF(319, 239), QPointF(0, 239)})
            worst = std::max(worst, QLineF(found.qTransform().map(corner), mapped(m, corner)).length());
        EXPECT_LT(worst, c.cornerError) << "pairs " << pairs.size();
        std::cout << "detector " << c.detector << ": " << again << " of " << inside << " found again, " << pairs.size()
                  << " pairs, corner error " << worst << " px\n";
    }
}

TEST(Keypoints, RefusesBadListsArgumentsAndSets)
{
    const VImage good = imageOf(texture(cv::Size(160, 120), 1), GrayScale, Channel8u);
    VImageList failedList;
    failedList.add(good);
    failedList.setStatus(VLog::errorStream("Vexa", "f", "t", 1, Issue::None) << "broken on purpose");
    VImageList withFailed, withEmpty, fine;
    withFailed.add(good);
    withFailed.add(failedImage(good));
    withEmpty.add(VImage());
    fine.add(good);
    const struct {
        VImageList list;
        KeypointDetector detector;
        int max;
    } cases[] = {{VImageList(), KeypointOrb, 10}, {failedList, KeypointOrb, 10}, {withFailed, KeypointAkaze, 10},
                 {withEmpty, KeypointSift, 10},   {fine, KeypointOrb, 0},        {fine, KeypointAkaze, 100001},
                 {fine, KeypointDetector(7), 10}};
    for (const auto& c : cases) {
        QList<QList<QPointF>> positions{{QPointF(1, 2)}};
        EXPECT_FALSE(findKeypointPositions(c.list, &positions, c.detector, c.max));
        EXPECT_EQ(positions, (QList<QList<QPointF>>{{QPointF(1, 2)}})) << "untouched on failure";
        QList<VKeypointSet> sets;
        EXPECT_FALSE(findVKeypointDescriptors(c.list, &sets, c.detector, c.max));
        EXPECT_TRUE(sets.isEmpty());
    }
    EXPECT_FALSE(findKeypointOrientations(fine, nullptr));

    QList<VKeypointSet> sets;
    ASSERT_TRUE(findVKeypointDescriptors(fine, &sets, KeypointOrb));
    VKeypointSet sift = sets[0], shortRows = sets[0];
    sift.detector = KeypointSift;
    shortRows.descriptors = shortRows.descriptors.rowRange(0, shortRows.descriptors.rows / 2);
    QList<QPair<QPointF, QPointF>> pairs;
    EXPECT_TRUE(matchKeypointDescriptors(sets[0], sets[0], &pairs));
    EXPECT_GE(pairs.size(), 0.9 * sets[0].keypoints.size()) << "keypoints match themselves";
    EXPECT_TRUE(matchKeypointDescriptors(sets[0], VKeypointSet{KeypointOrb, {}, {}}, &pairs));
    EXPECT_TRUE(pairs.isEmpty());
    EXPECT_FALSE(matchKeypointDescriptors(sets[0], sift, &pairs));
    EXPECT_FALSE(matchKeypointDescriptors(sets[0], shortRows, &pairs));
    EXPECT_FALSE(matchKeypointDescriptors(sets[0], sets[0], &pairs, 0.0));
    EXPECT_FALSE(matchKeypointDescriptors(sets[0], sets[0], &pairs, std::nan("")));
}
