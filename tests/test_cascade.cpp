// Cascade detection: the standard cascades found and loaded at run time, a detection on a drawn face, and
// the failures of missing files and bad arguments.
#include "support/images.h"

#include <opencv2/imgproc.hpp>

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <thread>

using namespace VEXA;

namespace {

const char* const faceCascade = "haarcascade_frontalface_default.xml";

// A light oval with two dark eyes, brows and a mouth on a mid-gray ground, inside a larger image's roi.
VImage drawnFace(Format format)
{
    VImage image;
    image.create(340, 260, format, Channel8u, OriginTopLeft, RowsAlignNone);
    image = withRoi(image, QRect(10, 10, 320, 240));
    cv::Mat m = roiMat(image);
    m.setTo(cv::Scalar::all(110));
    cv::ellipse(m, cv::Point(160, 120), cv::Size(60, 80), 0, 0, 360, cv::Scalar::all(200), cv::FILLED);
    for (int side : {-1, 1}) {
        cv::ellipse(m, cv::Point(160 + side * 24, 100), cv::Size(11, 6), 0, 0, 360, cv::Scalar::all(30), cv::FILLED);
        cv::line(m, cv::Point(160 + side * 12, 84), cv::Point(160 + side * 38, 82), cv::Scalar::all(50), 4);
    }
    cv::line(m, cv::Point(160, 105), cv::Point(160, 135), cv::Scalar::all(150), 5);
    cv::ellipse(m, cv::Point(160, 158), cv::Size(22, 7), 0, 0, 360, cv::Scalar::all(60), cv::FILLED);
    cv::GaussianBlur(m, m, cv::Size(5, 5), 1.5);
    return image;
}

} // namespace

TEST(Cascade, DetectsOnDrawnFacesInEveryFormatAndThread)
{
    if (VCascadeClassifier::standardCascadeFolder().isEmpty())
        GTEST_SKIP() << "no standard cascade folder (Debian's opencv-data is not installed)";
    VCascadeClassifier face;
    ASSERT_TRUE(face.loadStandard(faceCascade)) << face.status().message().toStdString();
    EXPECT_FALSE(face.isEmpty());
    EXPECT_EQ(face.windowSize(), QSize(24, 24));
    EXPECT_TRUE(face.path().endsWith(faceCascade));

    for (Format format : {GrayScale, BGR, XRGB}) {
        SCOPED_TRACE(format);
        const VImage image = drawnFace(format);
        QList<VRectBase> objects;
        ASSERT_TRUE(detectObjects(image, face, &objects, 1.1, 2, QSize(30, 30)));
        for (const VRectBase& r : objects) // in the roi's coordinates, whatever is found
            EXPECT_TRUE(QRectF(0, 0, 320, 240).contains(r)) << r.x() << " " << r.y();
    }

    // Two threads on one classifier (and a copy of it) take turns and get the same answer.
    const VImage image = drawnFace(GrayScale);
    const VCascadeClassifier copy = face;
    QList<VRectBase> first, second;
    VStatus a, b;
    std::thread one([&] { a = detectObjects(image, face, &first, 1.05, 1); });
    std::thread two([&] { b = detectObjects(image, copy, &second, 1.05, 1); });
    one.join();
    two.join();
    EXPECT_TRUE(a && b);
    EXPECT_EQ(first, second);
}

TEST(Cascade, MissingCascadesAndBadArgumentsFail)
{
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    QFile notACascade(folder.filePath("not_a_cascade.xml"));
    ASSERT_TRUE(notACascade.open(QIODevice::WriteOnly));
    notACascade.write("<?xml version=\"1.0\"?>\n<opencv_storage><x>1</x></opencv_storage>\n");
    notACascade.close();
    QFile garbage(folder.filePath("garbage.xml"));
    ASSERT_TRUE(garbage.open(QIODevice::WriteOnly));
    garbage.write("<opencv_storage><unclosed");
    garbage.close();

    for (const QString& path :
         {folder.filePath("missing.xml"), folder.path(), QString(), notACascade.fileName(), garbage.fileName()}) {
        SCOPED_TRACE(path.toStdString());
        VCascadeClassifier classifier(path);
        EXPECT_FALSE(classifier.status());
        EXPECT_TRUE(classifier.status().message().contains("Can't load cascade"));
        EXPECT_TRUE(classifier.isEmpty());
    }

    // The override is the only folder looked at: here one without cascades, then none at all.
    const QByteArray before = qgetenv("VEXA_CASCADE_DIR");
    qputenv("VEXA_CASCADE_DIR", folder.path().toUtf8());
    EXPECT_EQ(VCascadeClassifier::standardCascadeFolder(), folder.path());
    EXPECT_TRUE(VCascadeClassifier::standardCascadePath(faceCascade).isEmpty());
    EXPECT_TRUE(VCascadeClassifier::standardCascadePath("../" + folder.path()).isEmpty());
    qputenv("VEXA_CASCADE_DIR", folder.filePath("absent").toUtf8());
    EXPECT_TRUE(VCascadeClassifier::standardCascadeFolder().isEmpty());
    VCascadeClassifier none;
    EXPECT_FALSE(none.loadStandard(faceCascade));
    if (before.isEmpty())
        qunsetenv("VEXA_CASCADE_DIR");
    else
        qputenv("VEXA_CASCADE_DIR", before);

    const VImage image = drawnFace(GrayScale);
    QList<VRectBase> objects;
    EXPECT_FALSE(detectObjects(image, VCascadeClassifier(), &objects));
    if (VCascadeClassifier::standardCascadeFolder().isEmpty())
        return;
    VCascadeClassifier face;
    ASSERT_TRUE(face.loadStandard(faceCascade));
    const VStatus failures[] = {
        detectObjects(failedImage(image), face, &objects),
        detectObjects(VImage(), face, &objects),
        detectObjects(makeImage(64, 48, GrayScale, Channel16u), face, &objects),
        detectObjects(image, face, nullptr),
        detectObjects(image, face, &objects, 1.0),
        detectObjects(image, face, &objects, NAN),
        detectObjects(image, face, &objects, 1.1, -1),
        detectObjects(image, face, &objects, 1.1, 3, QSize(-5, 10)),
    };
    for (const VStatus& status : failures)
        EXPECT_FALSE(status);
    EXPECT_TRUE(detectObjects(makeImage(12, 12, GrayScale, Channel8u), face, &objects)); // below the window
    EXPECT_TRUE(objects.isEmpty());
}
