// A random sequence of operations over a few small images of random (format, channel type) pairs, invalid
// values included, random sizes, contents, regions of interest and statuses, with random arguments.
// Destinations may alias sources or be null. No call may crash, read or write out of bounds, or let an
// exception out (the operations are noexcept: one escaping would terminate).
#include "fuzz_common.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <QDataStream>
#include <QIODevice>

#include <cmath>
#include <functional>
#include <memory>
#include <vector>

using namespace VEXA;

namespace {

constexpr int imageCount = 4;

struct State {
    FuzzedDataProvider& in;
    VImage images[imageCount];
    VImageList list;
    VHistogram histogram;

    VImage& image() { return images[in.ConsumeIntegralInRange(0, imageCount - 1)]; }
    VImage* destination() { return in.ConsumeProbability<float>() < 0.05f ? nullptr : &image(); }
    int smallInt() { return in.ConsumeIntegralInRange(-4, 40); }
    int anyInt() { return in.ConsumeBool() ? smallInt() : in.ConsumeIntegral<int>(); }
    double anyDouble()
    {
        static const double special[] = {std::nan(""), HUGE_VAL, -HUGE_VAL, 1e-300, -0.0};
        if (in.ConsumeProbability<float>() < 0.05f)
            return special[in.ConsumeIntegralInRange(0, 4)];
        return in.ConsumeBool() ? double(smallInt()) : in.ConsumeFloatingPoint<double>();
    }
    QRect rect() { return QRect(smallInt() - 8, smallInt() - 8, smallInt(), smallInt()); }
    // Odd, even, zero, negative and now and then huge.
    int size() { return in.ConsumeProbability<float>() < 0.9f ? in.ConsumeIntegralInRange(-3, 12) : in.ConsumeIntegral<int>(); }
    // Every shape (OpenCV's three, the refused 3, the working 100, nonsense), values of any length, nested.
    VConvKernel element()
    {
        static const int shapes[] = {0, 1, 2, 3, 100, -1, 7};
        VConvKernel k(size(), size(), in.ConsumeIntegralInRange(-2, 6), in.ConsumeIntegralInRange(-2, 6),
                      ConvKernelShape(shapes[in.ConsumeIntegralInRange(0, 6)]));
        if (in.ConsumeBool()) {
            QVariantList values;
            for (int n = in.ConsumeIntegralInRange(0, 30); n > 0; --n)
                values.append(in.ConsumeBool() ? QVariant(smallInt()) : QVariant(QVariantList{smallInt(), anyDouble()}));
            k.setCustomValues(values);
        }
        return k;
    }
    QPointF point() { return in.ConsumeBool() ? QPointF(smallInt() - 8, smallInt() - 8) : QPointF(anyDouble(), anyDouble()); }
    // A figure of any class, with coordinates near the images or anywhere at all.
    std::unique_ptr<VFigure> figure()
    {
        switch (in.ConsumeIntegralInRange(0, 4)) {
        case 0:
        case 1: {
            QPolygonF points;
            for (int n = in.ConsumeIntegralInRange(0, 8); n > 0; --n)
                points.append(point());
            if (in.ConsumeBool())
                return std::make_unique<VPolygon>(points);
            return std::make_unique<VPolyPoint>(points);
        }
        case 2: {
            auto r = std::make_unique<VRectBase>(QRectF(point(), QSizeF(anyDouble(), anyDouble())), anyDouble());
            if (in.ConsumeBool())
                r->setTransformPos(point());
            return r;
        }
        case 3:
            return std::make_unique<VEllipse>(QRectF(point(), QSizeF(smallInt(), smallInt())), anyDouble(), anyDouble(),
                                              anyDouble());
        default: return std::make_unique<VAngle>(point(), point(), point());
        }
    }
    Rect vexaRect() { return Rect{smallInt() - 8, smallInt() - 8, smallInt(), smallInt()}; }
};

VImage makeImage(FuzzedDataProvider& in)
{
    const Format format = Format(in.ConsumeIntegralInRange(-1, 7));
    const Channel channel = Channel(in.ConsumeIntegralInRange(-1, 6));
    const int width = in.ConsumeIntegralInRange(-1, 17), height = in.ConsumeIntegralInRange(-1, 13);
    VImage image;
    image.create(width, height, format, channel, Origin(in.ConsumeIntegralInRange(0, 1)),
                 RowsAlign(in.ConsumeIntegralInRange(0, 1)));
    const std::vector<std::uint8_t> bytes = in.ConsumeBytes<std::uint8_t>(size_t(std::max(0L, image.dataSize())));
    if (!bytes.empty())
        std::memcpy(image.rawData(), bytes.data(), bytes.size());
    image.resetHash();
    if (in.ConsumeBool())
        image.setRoi(QRect(in.ConsumeIntegralInRange(-3, 18), in.ConsumeIntegralInRange(-3, 14),
                           in.ConsumeIntegralInRange(-3, 20), in.ConsumeIntegralInRange(-3, 16)));
    if (in.ConsumeProbability<float>() < 0.08f)
        image.setStatus(VLog::errorStream("Fuzz", "f", "f", 0, Issue::None) << "failed on purpose");
    return image;
}

const std::vector<std::function<void(State&)>>& operations()
{
    static const std::vector<std::function<void(State&)>> all = {
        [](State& s) { int n; countNonZero(s.image(), &n); },
        [](State& s) { copyImage(s.image(), s.destination()); },
        [](State& s) { copyImageUsingRois(s.image(), s.destination(), s.vexaRect(), s.vexaRect()); },
        [](State& s) { convertImage(s.image(), s.destination()); },
        [](State& s) { double v[4]; int n = s.in.ConsumeIntegralInRange(-1, 5); getPixel(s.image(), s.anyInt(), s.anyInt(), v, &n); },
        [](State& s) { double v[4] = {s.anyDouble(), s.anyDouble(), s.anyDouble(), s.anyDouble()};
                       setPixel(s.destination(), s.smallInt(), s.smallInt(), v, s.in.ConsumeIntegralInRange(0, 4)); },
        [](State& s) { double v[4] = {s.anyDouble(), s.anyDouble(), s.anyDouble(), s.anyDouble()};
                       fillImage(s.destination(), v, s.in.ConsumeIntegralInRange(0, 4)); },
        [](State& s) { addImages(s.image(), s.image(), s.destination()); },
        [](State& s) { subtractImages(s.image(), s.image(), s.destination()); },
        [](State& s) { mulImages(s.image(), s.image(), s.destination()); },
        [](State& s) { divImages(s.image(), s.image(), s.destination()); },
        [](State& s) { maxImages(s.image(), s.image(), s.destination()); },
        [](State& s) { minImages(s.image(), s.image(), s.destination()); },
        [](State& s) { absImage(s.image(), s.destination()); },
        [](State& s) { notImage(s.image(), s.destination()); },
        [](State& s) { setZero(s.destination()); },
        [](State& s) { thresholdImage(s.image(), s.destination(), ThresholdOperation(s.in.ConsumeIntegralInRange(-1, 25)),
                                      s.anyDouble(), s.anyDouble()); },
        [](State& s) { adaptiveThresholdImage(s.image(), s.destination(), ThresholdOperation(s.in.ConsumeIntegralInRange(-1, 5)),
                                              AdaptiveMethod(s.in.ConsumeIntegralInRange(-1, 2)), s.anyDouble(),
                                              s.in.ConsumeIntegralInRange(-3, 31), s.anyDouble()); },
        [](State& s) { negativeImage(s.image(), s.destination()); },
        [](State& s) { gammaImage(s.image(), s.destination(), s.anyDouble()); },
        [](State& s) { mulImageDouble(s.image(), s.destination(), s.anyDouble()); },
        [](State& s) { maskImage(s.image(), s.image(), s.destination(), s.in.ConsumeBool()); },
        [](State& s) { combineImagesMaxAbs(s.image(), s.destination()); },
        [](State& s) { subBackground(s.image(), s.image(), s.destination(), s.anyInt(), s.in.ConsumeBool()); },
        [](State& s) { colorImage(s.image(), s.destination(), s.anyInt()); },
        [](State& s) { findExtremums(s.image(), s.destination(), s.anyInt(), s.in.ConsumeBool()); },
        [](State& s) { int levels[6]; for (int& l : levels) l = s.anyInt();
                       thresholdImageColor(s.image(), s.destination(), ThresholdOperation(s.in.ConsumeIntegralInRange(0, 2)),
                                           s.in.ConsumeBool() ? levels : nullptr, s.in.ConsumeIntegralInRange(-1, 6)); },
        [](State& s) { thresholdImageHue(s.image(), s.destination(), ThresholdOperation(s.in.ConsumeIntegralInRange(0, 2)),
                                         s.anyInt(), s.anyInt()); },
        [](State& s) { double r; compareImages(s.image(), s.image(), &r); },
        [](State& s) { double r; getMax(s.image(), &r); },
        [](State& s) { (void)getMean(s.image()); },
        [](State& s) { calculateHistogram(s.image(), &s.histogram); },
        [](State& s) { s.histogram.setSkipData(s.anyInt()); calculateHistogramFast(s.image(), &s.histogram); },
        [](State& s) { calculateHistogramBGR(s.image(), &s.histogram); s.histogram.update(); },
        [](State& s) { adjustHistogram(s.image(), s.destination(), s.in.ConsumeIntegral<quint8>(), s.in.ConsumeIntegral<quint8>(),
                                       s.in.ConsumeIntegral<quint8>(), s.in.ConsumeIntegral<quint8>()); },
        [](State& s) { adjustHistogramComponent(s.image(), s.destination(), s.in.ConsumeIntegral<quint8>(),
                                                s.in.ConsumeIntegral<quint8>(), s.in.ConsumeIntegral<quint8>(),
                                                s.in.ConsumeIntegral<quint8>(), Component(s.in.ConsumeIntegralInRange(-1, 7))); },
        [](State& s) { VHistogramAdjustComponent c[4];
                       const auto bytes = s.in.ConsumeBytes<std::uint8_t>(sizeof c);
                       std::memset(c, 0, sizeof c);
                       if (!bytes.empty())
                           std::memcpy(c, bytes.data(), bytes.size());
                       adjustHistogramByComponents(s.image(), s.destination(), s.in.ConsumeBool() ? c : nullptr); },
        [](State& s) { s.list.add(s.image()); if (s.list.count() > 6) s.list.remove(0); },
        [](State& s) { s.list.enableFormatCheck(s.in.ConsumeBool()); s.list.enableSizeCheck(s.in.ConsumeBool()); },
        [](State& s) { stackImages(s.list, s.destination()); },
        [](State& s) { s.image() = s.image().convert(Format(s.in.ConsumeIntegralInRange(-1, 6)), Channel(s.in.ConsumeIntegralInRange(-1, 6))); },
        [](State& s) { s.image() = s.image().convertFast(Format(s.in.ConsumeIntegralInRange(-1, 6)), Channel(s.in.ConsumeIntegralInRange(-1, 6))); },
        [](State& s) { s.image() = s.image().cropByRect(s.rect()); },
        [](State& s) { s.image() = s.image().copy(); },
        [](State& s) { s.image().copyTo(s.destination()); },
        [](State& s) { s.image() = s.image().createCompatible(s.smallInt(), s.smallInt()); },
        [](State& s) { s.image().setRoi(s.rect()); },
        [](State& s) { s.image().resetRoi(); },
        [](State& s) { (void)s.image().pixel(s.anyInt(), s.anyInt()); (void)s.image().pixelColor(s.smallInt(), s.smallInt()); },
        [](State& s) { s.image().setPixel(s.smallInt(), s.smallInt(), {s.anyDouble(), s.anyDouble(), s.anyDouble(), s.anyDouble()});
                       s.image().setPixelColor(s.smallInt(), s.smallInt(), QColor(Qt::red)); },
        [](State& s) { (void)s.image().hash(); (void)s.image().isEqual(s.image()); },
        [](State& s) { (void)s.image().histogram(); (void)s.image().histogramBGR(); },
        [](State& s) { s.image() = VImage::fromByteArray(s.image().toByteArray(CompressionLevel(s.in.ConsumeIntegralInRange(-2, 10)))); },
        [](State& s) { const QImage q = toQImage(s.image(), s.in.ConsumeIntegralInRange(-1, 40)); s.image() = fromQImage(q); },
        [](State& s) { const QImage view = asQImage(s.image()); if (!view.isNull()) (void)view.pixel(0, 0); },
        [](State& s) { smoothGaussian(s.image(), s.destination(), s.size()); },
        [](State& s) { smoothGaussianSigma(s.image(), s.destination(), s.size(), s.anyDouble()); },
        [](State& s) { smoothMedian(s.image(), s.destination(), s.size()); },
        [](State& s) { smoothBlur(s.image(), s.destination(), s.size(), s.size()); },
        [](State& s) { smoothBlurNoScale(s.image(), s.destination(), s.size(), s.size()); },
        [](State& s) { smoothBilaterial(s.image(), s.destination(), s.size(), s.size(), s.anyDouble(), s.anyDouble()); },
        [](State& s) { sharpImage(s.image(), s.destination(), s.size(), s.anyDouble(), s.anyInt(), s.anyInt()); },
        [](State& s) { erodeImage(s.image(), s.destination(), s.element(), s.size()); },
        [](State& s) { dilateImage(s.image(), s.destination(), s.element(), s.size()); },
        [](State& s) {
            using Morph = VStatus (*)(const VImage&, VImage*, VConvKernel, int);
            static const Morph ops[] = {morphOpening, morphClosing, morphGradient, morphTopHat, morphBlackHat};
            ops[s.in.ConsumeIntegralInRange(0, 4)](s.image(), s.destination(), s.element(), s.size());
        },
        [](State& s) { VConvKernel k = s.element(); (void)k.kernel(); VConvKernel copy = k; (void)(copy == k); },
        [](State& s) { filter2D(s.image(), s.destination(), s.image(), QPointF(s.anyDouble(), s.anyDouble())); },
        [](State& s) { laplaceImage(s.image(), s.destination(), s.size()); },
        [](State& s) { sobelImage(s.image(), s.destination(), s.size(), s.size(), s.size()); },
        [](State& s) {
            VTransformPerspective t; // near the identity, or anything at all
            const bool wild = s.in.ConsumeBool();
            for (int k = 0; k < 9; ++k)
                t.set(k / 3, k % 3, wild ? s.anyDouble() : (k % 4 == 0 ? 1.0 : 0.0) + s.smallInt() / 64.0);
            warpPerspectiveImage(s.image(), s.destination(), t);
            QByteArray bytes;
            QDataStream out(&bytes, QIODevice::WriteOnly);
            out << t;
            QDataStream in(bytes);
            in >> t;
            (void)t.toAngleDegree();
        },
        [](State& s) {
            QList<QPair<QPointF, QPointF>> pairs;
            for (int n = s.in.ConsumeIntegralInRange(0, 12); n > 0; --n)
                pairs.append({QPointF(s.anyDouble(), s.anyDouble()), QPointF(s.anyDouble(), s.anyDouble())});
            bool ok;
            (void)findPerspectiveTransformationByPoints(pairs, s.in.ConsumeBool() ? &ok : nullptr).isValid();
        },
        [](State& s) { resizeImage(s.image(), s.destination(), InterpolationMethod(s.in.ConsumeIntegralInRange(-1, 5))); },
        [](State& s) {
            VTransform2D t;
            for (int k = 0; k < 9; ++k)
                t.set(k / 3, k % 3, s.in.ConsumeBool() ? s.anyDouble() : (k % 4 == 0 ? 1.0 : 0.0) + s.smallInt() / 16.0);
            warpAffine(s.image(), s.destination(), t);
        },
        [](State& s) { flipImage(s.image(), s.destination(), s.anyInt()); },
        [](State& s) { rotateImage(s.image(), s.destination(), s.anyDouble(), RotateMethod(s.smallInt())); },
        [](State& s) { rotateImage(s.image(), s.destination(), FixedAngle(s.smallInt()), RotateMethod(s.smallInt())); },
        [](State& s) {
            VImage& image = s.image();
            const bool fixed = s.in.ConsumeBool();
            const RotateMethod method = RotateMethod(s.in.ConsumeIntegralInRange(-1, 2));
            VImage turned = fixed ? image.rotate(FixedAngle(s.smallInt()), method) : image.rotate(s.anyDouble(), method);
            if (s.in.ConsumeBool())
                image = turned;
        },
        [](State& s) { undistortImage(s.image(), s.destination(), s.in.ConsumeBool() ? s.anyDouble() : s.smallInt() * 1e-3); },
        [](State& s) {
            const std::unique_ptr<VFigure> figure = s.figure();
            const QColor color = QColor::fromRgba(s.in.ConsumeIntegral<QRgb>());
            if (s.in.ConsumeBool())
                fillFigure(s.destination(), *figure, color, s.in.ConsumeBool());
            else
                drawFigure(s.destination(), *figure, color, s.in.ConsumeBool() ? s.smallInt() / 4.0 : s.anyDouble(),
                           s.in.ConsumeBool());
        },
        [](State& s) {
            double x1, y1, x2, y2, b, c;
            calcCoordinatesByBrightnessContrast(s.anyDouble(), s.anyDouble(), &x1, &y1, &x2, &y2);
            calcBrightnessContrastByCoordinates(x1, y1, x2, y2, &b, &c);
            calcBrightnessContrastByCoordinates(s.anyDouble(), s.anyDouble(), s.anyDouble(), s.anyDouble(), &b, &c);
        },
        [](State& s) {
            const double a = s.anyDouble();
            switch (s.in.ConsumeIntegralInRange(0, 3)) {
            case 0: normalizeImage(s.image(), s.destination(), a, s.anyDouble()); break;
            case 1: normalizeCImage(s.image(), s.destination(), a); break;
            case 2: normalizeL1Image(s.image(), s.destination(), a); break;
            default: normalizeL2Image(s.image(), s.destination(), a); break;
            }
        },
        [](State& s) {
            switch (s.in.ConsumeIntegralInRange(0, 4)) {
            case 0: brightnessAlignment(s.image(), s.image(), s.destination()); break;
            case 1: brightnessAlignment(s.image(), s.destination(), s.size()); break;
            case 2: createBackgroundBrightness(s.image(), s.destination()); break;
            case 3: findNoise(s.image(), s.destination()); break;
            default: correctNoise(s.image(), s.image(), s.destination()); break;
            }
        },
        [](State& s) { contrastImage(s.image(), s.destination(), s.anyInt(), s.size()); },
        [](State& s) { createGaussianNoise(s.image(), s.destination(), s.anyDouble()); },
        [](State& s) {
            VImage& result = s.image();
            if (s.in.ConsumeBool())
                multifocusImages(s.image(), s.image(), &result, s.destination());
            else
                multifocusImagesWeighted(s.image(), s.image(), &result, s.destination());
        },
        [](State& s) {
            VImageBlender blender(VImageBlender::MultifocusMethod(s.in.ConsumeIntegralInRange(-1, 5)),
                                  VImageBlender::Alignment(s.in.ConsumeIntegralInRange(-1, 5)));
            for (int n = s.in.ConsumeIntegralInRange(0, 3); n > 0; --n)
                blender.addImage(s.image());
            VImageBlender copy = blender;
            (void)copy.depthMap();
            s.image() = blender.image();
        },
        [](State& s) {
            VRasterPyramid p, q;
            p.init(s.image(), s.in.ConsumeIntegralInRange(-2, 3));
            q.init(s.image(), -1);
            p.combineMostSharpness(&q);
            p.restore();
            QByteArray bytes;
            {
                QDataStream out(&bytes, QIODevice::WriteOnly);
                out << p;
            }
            if (s.in.ConsumeBool())
                bytes = QByteArray::fromStdString(s.in.ConsumeRandomLengthString(256)) + bytes;
            QDataStream in(bytes);
            in >> q;
            s.image() = p.image();
        },
        [](State& s) {
            const VKeypointDescriptors a(s.image()), b(s.image());
            bool ok = false;
            (void)findTransformation(a, b, s.in.ConsumeBool() ? &ok : nullptr);
            stabilizeLocal(s.image(), s.destination());
        },
        [](State& s) { cannyImage(s.image(), s.destination(), s.anyDouble(), s.anyDouble(), s.in.ConsumeIntegralInRange(-1, 9),
                                  s.in.ConsumeBool()); },
        [](State& s) {
            QList<VContour> contours;
            findContours(s.image(), s.in.ConsumeBool() ? &contours : nullptr, ContourRetrieval(s.in.ConsumeIntegralInRange(-1, 5)),
                         ContourApproximation(s.in.ConsumeIntegralInRange(-1, 5)));
            for (const VContour& c : contours) {
                VPolygon simple;
                VRectBase box;
                VContourMeasure measure;
                approximatePolygon(c.outline, &simple, s.anyDouble(), s.in.ConsumeBool());
                minAreaRect(simple, &box);
                measureContour(c.outline, &measure);
            }
        },
        [](State& s) {
            const std::unique_ptr<VFigure> f = s.figure();
            if (auto* points = dynamic_cast<VPolyPoint*>(f.get())) {
                VPolygon simple;
                VRectBase box;
                VContourMeasure measure;
                approximatePolygon(*points, &simple, s.anyDouble());
                minAreaRect(*points, &box);
                measureContour(*points, &measure);
            }
        },
        [](State& s) { QList<QLineF> lines;
                       houghLines(s.image(), &lines, s.anyDouble(), s.anyDouble(), s.anyInt(),
                                  HoughMode(s.in.ConsumeIntegralInRange(-1, 2)), s.anyDouble(), s.anyDouble()); },
        [](State& s) { QList<VCircle> circles;
                       houghCircles(s.image(), &circles, s.anyDouble(), s.anyDouble(), s.anyDouble(), s.anyDouble(),
                                    s.anyInt(), s.anyInt()); },
        [](State& s) { pyramidMeanShiftSegmentation(s.image(), s.destination(), s.anyDouble(), s.anyDouble(), s.anyInt()); },
        [](State& s) { watershedImage(s.image(), s.destination()); },
        [](State& s) { int area; QRect bounds;
                       floodFill(s.destination(), QPoint(s.smallInt(), s.smallInt()), QList<double>{s.anyDouble(), s.anyDouble(), s.anyDouble()}.mid(
                                     0, s.in.ConsumeIntegralInRange(0, 3)), s.anyDouble(), &area, &bounds, s.anyInt()); },
        [](State& s) { QList<VComponent> components;
                       connectedComponents(s.image(), s.destination(), s.in.ConsumeBool() ? &components : nullptr, s.anyInt()); },
        [](State& s) { inpaintImage(s.image(), s.image(), s.destination(), s.anyDouble(), InpaintMethod(s.in.ConsumeIntegralInRange(-1, 2))); },
        [](State& s) { QPoint at; double score;
                       matchTemplate(s.image(), s.image(), s.destination(), TemplateMatchMethod(s.in.ConsumeIntegralInRange(-1, 6)),
                                     s.in.ConsumeBool() ? &at : nullptr, s.in.ConsumeBool() ? &score : nullptr); },
        [](State& s) { invertMatrix(s.image(), s.destination(), MatrixDecomposition(s.in.ConsumeIntegralInRange(-1, 5))); },
        [](State& s) { solveLinear(s.image(), s.image(), s.destination(), MatrixDecomposition(s.in.ConsumeIntegralInRange(-1, 5))); },
        [](State& s) { dftImage(s.image(), s.destination(), s.destination()); },
        [](State& s) { inverseDftImage(s.image(), s.image(), s.destination()); },
        [](State& s) { double low, high; QPoint lowAt, highAt;
                       getMinMax(s.image(), s.in.ConsumeBool() ? &low : nullptr, &high, &lowAt, s.in.ConsumeBool() ? &highAt : nullptr,
                                 s.in.ConsumeBool() ? s.image() : VImage()); },
        [](State& s) {
            QList<VKeypointSet> sets;
            findVKeypointDescriptors(s.list, &sets, KeypointDetector(s.in.ConsumeIntegralInRange(-1, 3)), s.anyInt());
            QList<QPair<QPointF, QPointF>> pairs;
            if (sets.size() >= 2)
                matchKeypointDescriptors(sets[0], sets[s.in.ConsumeIntegralInRange(0, int(sets.size()) - 1)], &pairs,
                                         s.anyDouble(), s.in.ConsumeBool());
            QList<QList<VKeypoint>> oriented;
            findKeypointOrientations(s.list, &oriented, KeypointDetector(s.in.ConsumeIntegralInRange(-1, 3)), s.anyInt());
        },
        [](State& s) {
            VImageList out;
            stabilizeSequence(s.list, s.in.ConsumeBool() ? &out : nullptr, s.anyInt(),
                              StabilizeBorders(s.in.ConsumeIntegralInRange(-1, 3)));
        },
        [](State& s) {
            QPointF at;
            double score;
            matchTemplatePosition(s.image(), s.image(), s.point(), s.in.ConsumeIntegralInRange(-2, 40),
                                  s.in.ConsumeBool() ? &at : nullptr, s.in.ConsumeBool() ? &score : nullptr, s.anyDouble());
        },
        // The stitcher takes its time: small lists only.
        [](State& s) {
            if (s.list.count() <= 3)
                buildPanorama(s.list, s.destination(), PanoramaMode(s.in.ConsumeIntegralInRange(-1, 2)));
        },
        [](State& s) {
            const VCameraCalibration c(s.anyDouble(), s.anyDouble(), s.anyDouble(), s.anyDouble(), s.anyDouble() * 1e-3,
                                       s.anyDouble() * 1e-3, 0, 0, 0, QSize(s.size(), s.size()));
            if (s.in.ConsumeBool())
                undistortImage(s.image(), s.destination(), c);
            else
                undistortImage(s.image(), s.destination(), c, s.anyDouble());
            QList<QPointF> corners, moved;
            bool found;
            findChessboardCorners(s.image(), QSize(s.size(), s.size()), &corners, s.in.ConsumeBool() ? &found : nullptr);
            undistortPoints(QList<QPointF>{s.point(), s.point()}, &moved, c);
        },
        [](State& s) {
            QList<QList<QPointF>> views;
            for (int v = s.in.ConsumeIntegralInRange(0, 4); v > 0; --v) {
                QList<QPointF> points;
                for (int n = s.in.ConsumeIntegralInRange(0, 12); n > 0; --n)
                    points.append(s.point());
                views.append(points);
            }
            VCameraCalibration fit;
            calibrateCamera(views, QSize(s.size(), s.size()), s.anyDouble(), QSize(s.anyInt(), s.anyInt()), &fit);
        },
        [](State& s) {
            static const VCascadeClassifier face = [] {
                VCascadeClassifier c;
                c.loadStandard("lbpcascade_frontalface.xml");
                return c;
            }();
            QList<VRectBase> found;
            detectObjects(s.image(), s.in.ConsumeBool() ? face : VCascadeClassifier(), &found, s.anyDouble(), s.smallInt(),
                          QSize(s.size(), s.size()), QSize(s.size(), s.size()));
        },
        // Any operation under a progress that cancels after a few reports: every stop must leave the
        // images whole.
        [](State& s) {
            int reports = s.in.ConsumeIntegralInRange(0, 8);
            VProgress progress([&](double, const QString&) {
                if (reports-- <= 0)
                    progress.cancel();
            });
            const VProgressScope scope(&progress);
            const auto& all = operations();
            all[s.in.ConsumeIntegralInRange<size_t>(0, all.size() - 1)](s);
        },
        [](State& s) { s.image() = makeImage(s.in); },
    };
    return all;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzzSetUp();
    FuzzedDataProvider in(data, size);
    State state{in, {}, VImageList(), VHistogram()};
    for (VImage& image : state.images)
        image = makeImage(in);
    const auto& ops = operations();
    for (int step = 0; step < 32 && in.remaining_bytes() > 0; ++step)
        ops[in.ConsumeIntegralInRange<size_t>(0, ops.size() - 1)](state);
    return 0;
}
