#include "support/images.h"

#include <vexa/Vexa.h>

#include <QTransform>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <thread>
#include <vector>

TEST(Progress, SectionsMapOntoTheWholeAndTheFractionNeverFalls)
{
    std::vector<double> seen;
    VProgress progress([&seen](double fraction, const QString&) { seen.push_back(fraction); });
    progress.report(0.2, "start");
    {
        const VProgress::Section second(&progress, 0.5, 1.0);
        progress.report(0.0, "inner");
        {
            const VProgress::Section quarter(&progress, 0.5, 1.0); // 0.75 .. 1 of the whole
            progress.report(0.5, "nested");
        }
        progress.report(0.25, "falls back"); // 0.625 < 0.875: not passed on
        progress.report(1.0, "done");
    }
    progress.report(0.1, "after"); // the whole again: 0.1 would fall
    EXPECT_EQ(seen, (std::vector<double>{0.2, 0.5, 0.875, 1.0}));
    progress.reset();
    EXPECT_EQ(progress.fraction(), 0.0);
}

TEST(Progress, ScopesNestPerThreadAndCancelCrossesThreads)
{
    VProgress outer, inner;
    EXPECT_EQ(VProgressScope::current(), nullptr);
    {
        const VProgressScope a(&outer);
        {
            const VProgressScope b(&inner);
            EXPECT_EQ(VProgressScope::current(), &inner);
            std::thread([] { EXPECT_EQ(VProgressScope::current(), nullptr) << "scopes are per thread"; }).join();
        }
        EXPECT_EQ(VProgressScope::current(), &outer);
        std::thread([&outer] { outer.cancel(); }).join();
        EXPECT_TRUE(outer.isCancelled());
    }
    EXPECT_EQ(VProgressScope::current(), nullptr);
    outer.reset();
    EXPECT_FALSE(outer.isCancelled());
}

using namespace VEXA;

namespace {

using Operation = std::function<VStatus(const VImage&, VImage*)>;

struct Case {
    const char* name;
    Operation run;
    VEXA::Format format = VEXA::BGR;
};

VTransformPerspective tilted()
{
    VTransformPerspective t;
    t.fromQTransform(QTransform(0.93, 0.05, 0.0002, -0.07, 1.02, 0.0001, 12.5, -7.25, 1.0));
    return t;
}

VTransform2D turned()
{
    VTransform2D t;
    t.fromQTransform(QTransform().translate(30.5, -12.25).rotate(7.3).scale(1.1, 0.95));
    return t;
}

// Operations that work in bands of rows while a progress is current.
const std::vector<Case>& bandedOperations()
{
    static const std::vector<Case> cases{
        {"smoothGaussian", [](const VImage& s, VImage* d) { return smoothGaussian(s, d, 7); }},
        {"smoothMedian", [](const VImage& s, VImage* d) { return smoothMedian(s, d, 7); }},
        {"smoothBlur", [](const VImage& s, VImage* d) { return smoothBlur(s, d, 5, 9); }},
        {"sharpImage", [](const VImage& s, VImage* d) { return sharpImage(s, d, 5, 1.5, 0, 255); }, XRGB},
        {"morphOpening",
         [](const VImage& s, VImage* d) { return morphOpening(s, d, VConvKernel(5, 3, 2, 0, ConvKernelEllipse), 2); }},
        {"laplaceImage", [](const VImage& s, VImage* d) { return laplaceImage(s, d, 5); }},
        {"sobelImage", [](const VImage& s, VImage* d) { return sobelImage(s, d, 1, 1, 3); }},
        {"warpAffine", [](const VImage& s, VImage* d) { return warpAffine(s, d, turned()); }},
        {"warpPerspectiveImage", [](const VImage& s, VImage* d) { return warpPerspectiveImage(s, d, tilted()); }},
        {"rotateImage", [](const VImage& s, VImage* d) { return rotateImage(s, d, 0.3, RotateKeepSize); }},
        {"undistortImage", [](const VImage& s, VImage* d) { return undistortImage(s, d, 2e-6); }},
    };
    return cases;
}

// Fractions as the callback saw them: never falling, ending at 1.
void expectRisingToOne(const std::vector<double>& seen, const char* name)
{
    ASSERT_FALSE(seen.empty()) << name;
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end())) << name;
    EXPECT_EQ(seen.back(), 1.0) << name;
}

} // namespace

// In bands or whole, the same pixels; cancelled after the first band, the destination is untouched, or
// empty again where the call made it.
TEST(Progress, BandedOperationsMatchTheWholeCallAndCancelWithoutWriting)
{
    for (const Case& c : bandedOperations()) {
        const VImage src = makeImage(600, 400, c.format, Channel8u, 3, OriginTopLeft);
        const VImage before = makeImage(600, 400, c.format, Channel8u, 4, OriginTopLeft);
        VImage whole = before.copy();
        ASSERT_TRUE(c.run(src, &whole)) << c.name;

        std::vector<double> seen;
        VProgress progress([&seen](double f, const QString&) { seen.push_back(f); });
        VImage banded = before.copy(), plainMade, bandedMade;
        const bool makes = c.run(src, &plainMade).isOk(); // the warps write existing destinations only
        {
            const VProgressScope scope(&progress);
            ASSERT_TRUE(c.run(src, &banded)) << c.name;
        }
        {
            VProgress quiet;
            const VProgressScope scope(&quiet);
            EXPECT_EQ(c.run(src, &bandedMade).isOk(), makes) << c.name;
        }
        EXPECT_TRUE(sameRoiBytes(whole, banded)) << c.name;
        if (makes) {
            EXPECT_TRUE(sameRoiBytes(plainMade, bandedMade)) << c.name << ": written straight into a made destination";
        }
        EXPECT_GE(seen.size(), 3u) << c.name << ": reported between bands";
        expectRisingToOne(seen, c.name);

        VProgress cancelling([&cancelling](double f, const QString&) {
            if (f > 0.0)
                cancelling.cancel();
        });
        VImage untouched = before.copy();
        const VProgressScope scope(&cancelling);
        const VStatus status = c.run(src, &untouched);
        EXPECT_FALSE(status) << c.name;
        EXPECT_TRUE(status.message().contains(QStringLiteral("Operation cancelled"))) << c.name;
        EXPECT_TRUE(sameRoiBytes(untouched, before)) << c.name;
        // One the call made is taken back to the empty image it was: no half result, and none of the bytes
        // a recycled buffer held.
        VImage made;
        EXPECT_FALSE(c.run(src, &made)) << c.name;
        EXPECT_TRUE(made.isEmpty() && made.status()) << c.name;
    }
}

// A shot cancelled part way leaves every method's blender as it was: the merge so far is unchanged, and
// the same shot added again gives what an uninterrupted run gives. A cancelled first shot leaves none.
// (Colours are compared: the X byte of a merge made from BGR levels is not part of the result.)
TEST(Progress, CancelledShotLeavesTheBlenderAsItWas)
{
    const auto colours = [](VImageBlender& b) { return b.image().convert(BGR, Channel8u); };
    std::vector<VImage> shots;
    for (unsigned seed = 1; seed <= 3; ++seed)
        shots.push_back(makeImage(256, 160, XRGB, Channel8u, seed, OriginTopLeft));
    VProgress cancelling([&cancelling](double f, const QString&) {
        if (f > 0.0)
            cancelling.cancel();
    });
    for (int method = VImageBlender::MultifocusPyramid; method <= VImageBlender::MultifocusDepthMap; ++method) {
        SCOPED_TRACE(method);
        const auto m = VImageBlender::MultifocusMethod(method);
        VImageBlender reference(m), blender(m);
        for (const VImage& shot : shots)
            ASSERT_TRUE(reference.addImage(shot));
        {
            cancelling.reset();
            const VProgressScope scope(&cancelling);
            EXPECT_FALSE(blender.addImage(shots[0]));
        }
        EXPECT_FALSE(blender.isInitialized());
        ASSERT_TRUE(blender.addImage(shots[0]));
        ASSERT_TRUE(blender.addImage(shots[1]));
        const VImage twoShots = colours(blender);
        {
            cancelling.reset();
            const VProgressScope scope(&cancelling);
            EXPECT_FALSE(blender.addImage(shots[2]));
        }
        EXPECT_EQ(blender.count(), 2);
        EXPECT_TRUE(sameRoiBytes(colours(blender), twoShots));
        std::vector<double> seen;
        VProgress watching([&seen](double f, const QString&) { seen.push_back(f); });
        {
            const VProgressScope scope(&watching);
            ASSERT_TRUE(blender.addImage(shots[2]));
        }
        EXPECT_TRUE(sameRoiBytes(colours(blender), colours(reference)));
        expectRisingToOne(seen, "addImage");
    }
}

// Calls that read gray copies of their images: the copies are inner steps, which neither report (the
// fraction reaches 1 only with the call's last report) nor turn a cancellation into another failure.
TEST(Progress, GrayCopiesAreInnerStepsOfTheCallsThatMakeThem)
{
    const VImage image = makeImage(96, 64, XRGB, Channel8u, 6);
    VImageList list;
    for (unsigned seed = 7; seed <= 9; ++seed)
        list.add(makeImage(96, 64, BGR, Channel8u, seed));
    VCascadeClassifier face;
    const bool withCascade = bool(face.loadStandard("haarcascade_frontalface_default.xml"));
    const std::vector<std::pair<const char*, std::function<VStatus()>>> calls{
        {"findKeypointPositions",
         [&] {
             QList<QList<QPointF>> positions;
             return findKeypointPositions(list, &positions, KeypointOrb, 200);
         }},
        {"VKeypointDescriptors", [&] { return VKeypointDescriptors(image).status(); }},
        {"stabilizeLocal",
         [&] {
             VImage moving = image.copy();
             return stabilizeLocal(image, &moving);
         }},
        {"findChessboardCorners",
         [&] {
             QList<QPointF> corners;
             bool found = false;
             return findChessboardCorners(image, QSize(5, 4), &corners, &found);
         }},
        {"detectObjects",
         [&] {
             QList<VRectBase> objects;
             return withCascade ? detectObjects(image, face, &objects) : VStatus::Ok;
         }},
    };
    for (const auto& [name, call] : calls) {
        std::vector<std::pair<double, QString>> seen;
        VProgress watching([&seen](double f, const QString& stage) { seen.emplace_back(f, stage); });
        {
            const VProgressScope scope(&watching);
            ASSERT_TRUE(call()) << name;
        }
        for (size_t i = 0; i < seen.size(); ++i) {
            EXPECT_NE(seen[i].second.toStdString(), "converting") << name;
            EXPECT_TRUE(i == 0 || seen[i - 1].first <= seen[i].first) << name;
            EXPECT_TRUE(seen[i].first < 1.0 || i + 1 == seen.size()) << name << ": 1 before the end";
        }

        VProgress cancelled;
        cancelled.cancel();
        const VProgressScope scope(&cancelled);
        const VStatus status = call();
        if (std::string(name) != "detectObjects" || withCascade) {
            EXPECT_EQ(status.message().toStdString(), "Operation cancelled") << name;
        }
    }

    // Cancelled once the first image is under way: the copy goes on, the next checkpoint stops the call.
    VProgress cancelling([&cancelling](double, const QString&) { cancelling.cancel(); });
    const VProgressScope scope(&cancelling);
    QList<QList<QPointF>> positions;
    EXPECT_EQ(findKeypointPositions(list, &positions, KeypointOrb, 200).message().toStdString(), "Operation cancelled");
}
