// A small client of the installed library.
//
//   vexa_example OUTPUT_DIR [IMAGE]
//
// Loads IMAGE (or, without one, draws a colour test card and saves it as card.png), prints its facts,
// converts it to gray, counts the gray pixels above black in the centre, and saves gray.png and the
// library's own packed form, gray.vexa, which it reads back to check. Then it sharpens the picture with an
// unsharp mask (sharp.png), outlines the gray image with a morphological gradient (edges.png), and draws
// one figure of every kind, labelled, over the picture turned by 5 degrees (figures.png), and finds that
// drawing again, by its keypoints, in a copy turned by 5 more degrees. Last it focus-stacks three shots of
// the drawing as a hand-held camera would take them (each sharp in one third, the second one brighter and
// shifted), writes stacked.png and prints what the blender did to each shot.
#include <vexa/Vexa.h>

#include <QDir>
#include <QFile>
#include <QGuiApplication>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

// Hue bands across, brightness down; a dark frame two pixels wide.
VImage testCard(int width, int height)
{
    VImage card;
    card.create(width, height, VEXA::XRGB, VEXA::Channel8u, VEXA::OriginBottomLeft, VEXA::RowsAlignNone);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const bool frame = x < 2 || y < 2 || x >= width - 2 || y >= height - 2;
            const QColor c = frame ? QColor(10, 10, 10) : QColor::fromHsv(360 * x / width, 220, 255 - 200 * y / height);
            card.setPixelColor(x, y, c);
        }
    return card;
}

void describe(const char* name, const VImage& image)
{
    std::printf("%-6s %dx%d %s %s, MD5 %s\n", name, image.width(), image.height(),
                VEXA::formatInfo(image.format()).name.c_str(), VEXA::channelInfo(image.channelType()).name.c_str(),
                image.hash().toHex().constData());
}

int fail(const VStatus& status)
{
    std::fprintf(stderr, "failed: %s\n", qPrintable(status.message()));
    return 1;
}

} // namespace

// Every kind of figure, outlined and labelled, the polygon also filled with a translucent colour; sizes in
// proportion to the picture.
VStatus drawFigures(VImage* picture)
{
    const double w = picture->width(), h = picture->height(), s = std::min(w, h) / 200.0;
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(std::max(10, int(9 * s)));
    const VPolyPoint polyline(
        QPolygonF{{0.05 * w, 0.9 * h}, {0.15 * w, 0.7 * h}, {0.25 * w, 0.85 * h}, {0.35 * w, 0.65 * h}});
    const VPolygon polygon(
        QPolygonF{{0.4 * w, 0.6 * h}, {0.55 * w, 0.55 * h}, {0.6 * w, 0.8 * h}, {0.45 * w, 0.9 * h}});
    const VRectBase rect(QRectF(0.1 * w, 0.15 * h, 0.25 * w, 0.2 * h), 20.0);
    const VEllipse ellipse(QRectF(0.45 * w, 0.1 * h, 0.3 * w, 0.3 * h), -15.0, 30.0, 270.0);
    const VAngle angle(QPointF(0.7 * w, 0.9 * h), QPointF(0.95 * w, 0.9 * h), QPointF(0.85 * w, 0.6 * h));
    const struct {
        const VFigure* figure;
        QColor color;
    } figures[] = {
        {&polyline, Qt::yellow}, {&polygon, Qt::cyan}, {&rect, Qt::magenta}, {&ellipse, Qt::green}, {&angle, Qt::red}};
    if (const VStatus status = VEXA::fillFigure(picture, polygon, QColor(0, 255, 255, 70), true); !status)
        return status;
    for (const auto& f : figures) {
        if (const VStatus status = VEXA::drawFigure(picture, *f.figure, f.color, 2.0 * s, true); !status)
            return status;
        const QPointF at = f.figure->boundingRect().bottomLeft() + QPointF(0, font.pixelSize() + 2 * s);
        const QPointF label = f.figure->type() == VFigure::AngleType ? QPointF(0.78 * w, 0.97 * h) : at;
        if (const VStatus status = VEXA::drawText(picture, f.figure->typeName(), label, font, f.color); !status)
            return status;
    }
    return VStatus();
}

int main(int argc, char** argv)
{
    // Text needs a QGuiApplication; with no display the offscreen platform serves.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s OUTPUT_DIR [IMAGE]\n", argv[0]);
        return 2;
    }
    const QDir out(QString::fromLocal8Bit(argv[1]));
    if (!QDir().mkpath(out.path()))
        return fail(VStatus(VLog::errorStream("Example", "main", "main", __LINE__, Issue::None)
                            << "cannot create " << out.path()));

    QString input = argc > 2 ? QString::fromLocal8Bit(argv[2]) : out.filePath("card.png");
    if (argc <= 2 && !testCard(320, 200).save(input))
        return fail(
            VStatus(VLog::errorStream("Example", "main", "main", __LINE__, Issue::None) << "cannot save " << input));

    VImage picture;
    if (!picture.load(input))
        return fail(picture.status());
    describe("input", picture);

    const VImage gray = picture.convert(VEXA::GrayScale, VEXA::Channel8u);
    if (gray.isEmpty())
        return fail(picture.status());
    describe("gray", gray);

    VImage centre = gray;
    centre.setRoi(QRect(gray.width() / 4, gray.height() / 4, gray.width() / 2, gray.height() / 2));
    int lit = 0;
    if (const VStatus status = VEXA::countNonZero(centre, &lit); !status)
        return fail(status);
    std::printf("centre %d of %d pixels above black\n", lit, (gray.width() / 2) * (gray.height() / 2));

    const QString grayFile = out.filePath("gray.png");
    if (!gray.save(grayFile))
        return 1;
    QFile packed(out.filePath("gray.vexa"));
    if (!packed.open(QIODevice::WriteOnly) || packed.write(gray.toByteArray()) < 0)
        return fail(VStatus(VLog::errorStream("Example", "main", "main", __LINE__, Issue::None)
                            << "cannot write " << packed.fileName()));
    packed.close();
    packed.open(QIODevice::ReadOnly);
    const VImage unpacked = VImage::fromByteArray(packed.readAll());
    if (!unpacked.isEqual(gray))
        return fail(unpacked.status());
    std::printf("output %s, %s (read back equal)\n", qPrintable(grayFile), qPrintable(packed.fileName()));

    // Differences of luminance 2 to 80 from the 5 x 5 blur are doubled; flat areas and hard edges stay.
    VImage sharp;
    if (const VStatus status =
            VEXA::sharpImage(picture.convertFast(VEXA::XRGB, VEXA::Channel8u), &sharp, 5, 2.0, 2, 80);
        !status)
        return fail(status);
    VImage edges;
    if (const VStatus status = VEXA::morphGradient(gray, &edges, VConvKernel(3, 3, 1, 1, VEXA::ConvKernelCross), 1);
        !status)
        return fail(status);
    if (!sharp.save(out.filePath("sharp.png")) || !edges.save(out.filePath("edges.png")))
        return 1;
    describe("sharp", sharp);
    describe("edges", edges);

    // Particles: the regions of a thresholded picture, measured from their outlines.
    VImage binary;
    QList<VContour> outlines;
    if (const VStatus status = VEXA::thresholdImage(gray, &binary, VEXA::ThresholdBinary, 128, 255); !status)
        return fail(status);
    if (const VStatus status = VEXA::findContours(binary, &outlines, VEXA::ContourTwoLevels); !status)
        return fail(status);
    double largest = 0.0;
    for (const VContour& outline : outlines) {
        VContourMeasure measure;
        if (!outline.hole && VEXA::measureContour(outline.outline, &measure))
            largest = std::max(largest, measure.area);
    }
    std::printf("%d outlines, the largest region %.0f pixels\n", int(outlines.size()), largest);

    VImage figures = picture.convertFast(VEXA::XRGB, VEXA::Channel8u).rotate(5.0 * M_PI / 180.0);
    if (figures.isEmpty())
        return fail(figures.status());
    if (const VStatus status = drawFigures(&figures); !status)
        return fail(status);
    if (!figures.save(out.filePath("figures.png")))
        return 1;
    describe("figures", figures);

    // The drawing found again in a copy turned by 5 more degrees: keypoints of both, matched, and the
    // homography between them.
    VImageList pair;
    pair.add(figures);
    pair.add(figures.rotate(5.0 * M_PI / 180.0));
    QList<VKeypointSet> sets;
    if (const VStatus status = VEXA::findVKeypointDescriptors(pair, &sets, VEXA::KeypointAkaze); !status)
        return fail(status);
    QList<QPair<QPointF, QPointF>> matches;
    if (const VStatus status = VEXA::matchKeypointDescriptors(sets[0], sets[1], &matches); !status)
        return fail(status);
    bool enough = false;
    const VTransformPerspective turn = VEXA::findPerspectiveTransformationByPoints(matches, &enough);
    std::printf("%d keypoint pairs between the drawing and its turned copy, turned by %.1f degrees\n",
                int(matches.size()), enough ? VEXA::angleDegreeFromTransformation(turn.qTransform()) : 0.0);

    // The drawing's edges.
    VImage canny;
    if (const VStatus status = VEXA::cannyImage(figures.convert(VEXA::GrayScale, VEXA::Channel8u), &canny, 50, 150);
        !status)
        return fail(status);
    if (!canny.save(out.filePath("canny.png")))
        return 1;
    describe("canny", canny);

    // Focus stacking: shots sharp in one third each, the second brighter and shifted by (1.5, -1) pixels.
    // The depth-map merge brings every shot to the first one's exposure and geometry.
    VImageBlender blender(VImageBlender::MultifocusDepthMap, VImageBlender::AlignAuto);
    const VImage scene = figures.convertFast(VEXA::XRGB, VEXA::Channel8u);
    for (int k = 0; k < 3; ++k) {
        VImage shot;
        if (const VStatus status = VEXA::smoothGaussian(scene, &shot, 9); !status)
            return fail(status);
        const QRect third(k * scene.width() / 3, 0, scene.width() / 3, scene.height());
        for (int y = 0; y < scene.height(); ++y)
            for (int x = 0; x < scene.width(); ++x) {
                const QColor c = third.contains(x, y) ? scene.pixelColor(x, y) : shot.pixelColor(x, y);
                shot.setPixelColor(x, y, k == 1 ? c.lighter(110) : c);
            }
        if (k == 1) {
            VImage moved = shot.createCompatible();
            VTransform2D shift;
            const double matrix[] = {1, 0, 1.5, 0, 1, -1, 0, 0, 1};
            shift.fromMatrix(matrix);
            if (const VStatus status = VEXA::warpAffine(shot, &moved, shift); !status)
                return fail(status);
            shot = moved;
        }
        if (!blender.addImage(shot))
            return fail(blender.lastStatus());
        const VImageBlender::ShotFit& fit = blender.shotFits().last();
        std::printf("shot %d: gains %.3f %.3f %.3f, fitted with a shift of (%.2f, %.2f), %s\n", k, fit.gains[0],
                    fit.gains[1], fit.gains[2], fit.transform.dx(), fit.transform.dy(),
                    fit.resampled ? "resampled" : "as it stands");
    }
    if (!blender.addImage(canny))
        std::printf("a gray shot is refused: %s\n", qPrintable(blender.lastStatus().message()));
    const VImage stacked = blender.image();
    if (!stacked.save(out.filePath("stacked.png")))
        return 1;
    describe("stacked", stacked);
    return 0;
}
