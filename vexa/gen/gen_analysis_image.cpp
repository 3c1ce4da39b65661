#include <vexa/gen/gen_analysis_image.h>

#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/opencv_frame.h>

#include <opencv2/imgproc.hpp>
#include <opencv2/photo.hpp>

#include <cmath>
#include <vector>

namespace VEXA {

namespace {

using Gray8 = PixelList<PixelGray<quint8>>;
using GrayOrBgr8 = PixelList<PixelGray<quint8>, PixelBGR<quint8>>;
using Bgr8 = PixelList<PixelBGR<quint8>>;

// A destination of the given pair and of the source's roi size: made like the source when empty.
cv::Mat destinationOf(const VImage& src, VImage* destination, Format format, Channel channel)
{
    VImage& dst = prepareDestination(src, destination, format, channel);
    if (dst.format() != format || dst.channelType() != channel)
        throwUnsupported();
    checkSameSize(src, dst);
    return asCvMat(dst);
}

void requireFinite(std::initializer_list<double> values, const char* what)
{
    for (double v : values)
        if (!std::isfinite(v))
            throw dip_exception(what);
}

QPolygonF polygonOf(const std::vector<cv::Point>& points)
{
    QPolygonF polygon;
    polygon.reserve(int(points.size()));
    for (const cv::Point& p : points)
        polygon.append(QPointF(p.x, p.y));
    return polygon;
}

// The part of the line x cos(theta) + y sin(theta) = rho inside [0, width) x [0, height), by clipping its
// parametric form against the four sides; an empty line when it misses the rectangle.
QLineF clippedLine(double rho, double theta, int width, int height)
{
    const double c = std::cos(theta), s = std::sin(theta);
    const QPointF origin(rho * c, rho * s), direction(-s, c);
    double t0 = -1e12, t1 = 1e12;
    const auto clip = [&](double p, double d, double low, double high) {
        if (std::abs(d) < 1e-12)
            return p >= low && p <= high;
        double a = (low - p) / d, b = (high - p) / d;
        if (a > b)
            std::swap(a, b);
        t0 = std::max(t0, a);
        t1 = std::min(t1, b);
        return t0 <= t1;
    };
    if (!clip(origin.x(), direction.x(), 0.0, width - 1.0) || !clip(origin.y(), direction.y(), 0.0, height - 1.0))
        return QLineF();
    return QLineF(origin + direction * t0, origin + direction * t1);
}

} // namespace

VStatus cannyImage(const VImage& src, VImage* dst, double low, double high, int aperture, bool l2Gradient)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat s = listedSource(GrayOrBgr8{}, src);
        const TakeBackOnFailure takeBack(dst);
        cv::Mat d = destinationOf(src, dst, GrayScale, Channel8u);
        requireFinite({low, high}, "Thresholds must be finite");
        const cv::Mat in = separateSource(s, d);
        writeInto(d, [&](cv::Mat& o) { cv::Canny(in, o, low, high, aperture, l2Gradient); });
        return VStatus::Ok;
    });
}

VStatus findContours(const VImage& src, QList<VContour>* contours, ContourRetrieval mode,
                     ContourApproximation method)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat s = listedSource(Gray8{}, src);
        QList<VContour>& out = checkOutput(contours);
        std::vector<std::vector<cv::Point>> found;
        std::vector<cv::Vec4i> hierarchy;
        cv::findContours(s, found, hierarchy, int(mode), int(method));
        QList<VContour> result;
        result.reserve(int(found.size()));
        for (size_t i = 0; i < found.size(); ++i) {
            VContour contour;
            contour.outline = VPolygon(polygonOf(found[i]));
            // Outer borders are traced one way round, hole borders the other.
            contour.hole = cv::contourArea(found[i], true) > 0.0;
            contour.parent = hierarchy.empty() ? -1 : hierarchy[i][3];
            result.append(contour);
        }
        out = result;
        return VStatus::Ok;
    });
}

VStatus approximatePolygon(const VPolyPoint& curve, VPolygon* result, double epsilon, bool closed)
{
    return guarded(VEXA_CALL_SITE, [&] {
        VPolygon& out = checkOutput(result);
        if (!(epsilon >= 0.0) || !std::isfinite(epsilon))
            throw dip_exception("Epsilon must be finite and not negative");
        std::vector<cv::Point2f> approximated;
        cv::approxPolyDP(cvPoints(curve), approximated, epsilon, closed);
        QPolygonF polygon;
        for (const cv::Point2f& p : approximated)
            polygon.append(QPointF(p.x, p.y));
        out.setPolygon(polygon);
        return VStatus::Ok;
    });
}

VStatus minAreaRect(const VPolyPoint& points, VRectBase* rect)
{
    return guarded(VEXA_CALL_SITE, [&] {
        VRectBase& out = checkOutput(rect);
        if (points.isEmpty())
            throw dip_exception("No points given");
        out = VRectBase(cv::minAreaRect(cvPoints(points)));
        return VStatus::Ok;
    });
}

VStatus measureContour(const VPolyPoint& contour, VContourMeasure* measure)
{
    return guarded(VEXA_CALL_SITE, [&] {
        VContourMeasure& out = checkOutput(measure);
        const std::vector<cv::Point2f> points = cvPoints(contour);
        VContourMeasure m;
        if (!points.empty()) {
            const cv::Moments moments = cv::moments(points);
            m.area = std::abs(moments.m00);
            m.perimeter = cv::arcLength(points, true);
            if (moments.m00 != 0.0) {
                m.centroid = QPointF(moments.m10 / moments.m00, moments.m01 / moments.m00);
            } else {
                const cv::Scalar mean = cv::mean(points);
                m.centroid = QPointF(mean[0], mean[1]);
            }
        }
        out = m;
        return VStatus::Ok;
    });
}

VStatus houghLines(const VImage& src, QList<QLineF>* lines, double rho, double theta, int threshold, HoughMode mode,
                   double minLength, double maxGap)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat s = listedSource(Gray8{}, src);
        QList<QLineF>& out = checkOutput(lines);
        requireFinite({rho, theta, minLength, maxGap}, "Hough parameters must be finite");
        if (!(rho > 0.0 && theta > 0.0) || threshold <= 0)
            throw dip_exception("Hough steps and threshold must be positive");
        // OpenCV's accumulator: a counter per (angle, distance) step; steps so fine that it would pass
        // 256 MB are refused before OpenCV allocates it.
        const double angles = CV_PI / theta + 2.0, distances = (2.0 * (s.cols + s.rows) + 1.0) / rho + 2.0;
        if (!(angles * distances * 4.0 <= 256.0 * 1024 * 1024))
            throw dip_exception("Hough steps too fine for the image");
        QList<QLineF> found;
        if (mode == HoughProbabilistic) {
            std::vector<cv::Vec4i> segments;
            cv::HoughLinesP(s, segments, rho, theta, threshold, minLength, maxGap);
            for (const cv::Vec4i& l : segments)
                found.append(QLineF(l[0], l[1], l[2], l[3]));
        } else if (mode == HoughStandard) {
            std::vector<cv::Vec2f> polar;
            cv::HoughLines(s, polar, rho, theta, threshold);
            for (const cv::Vec2f& l : polar) {
                const QLineF line = clippedLine(l[0], l[1], s.cols, s.rows);
                if (!line.isNull())
                    found.append(line);
            }
        } else {
            throwUnsupported();
        }
        out = found;
        return VStatus::Ok;
    });
}

VStatus houghCircles(const VImage& src, QList<VCircle>* circles, double dp, double minDistance, double cannyHigh,
                     double votes, int minRadius, int maxRadius)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat s = listedSource(Gray8{}, src);
        QList<VCircle>& out = checkOutput(circles);
        requireFinite({dp, minDistance, cannyHigh, votes}, "Hough parameters must be finite");
        // Radii beyond the image's extent only cost time.
        const int extent = 2 * (s.cols + s.rows);
        if (!(dp >= 1.0 && dp <= 64.0 && minDistance > 0.0 && cannyHigh > 0.0 && votes > 0.0) || minRadius < 0 ||
            maxRadius < 0 || minRadius > extent || maxRadius > extent)
            throw dip_exception("Hough parameters out of range");
        std::vector<cv::Vec3f> found;
        cv::HoughCircles(s, found, cv::HOUGH_GRADIENT, dp, minDistance, cannyHigh, votes, minRadius, maxRadius);
        QList<VCircle> result;
        for (const cv::Vec3f& c : found)
            result.append(VCircle{QPointF(c[0], c[1]), c[2]});
        out = result;
        return VStatus::Ok;
    });
}

VStatus pyramidMeanShiftSegmentation(const VImage& src, VImage* dst, double spatialRadius, double colourRadius,
                                     int maxLevel)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat s = listedSource(Bgr8{}, src);
        const TakeBackOnFailure takeBack(dst);
        cv::Mat d = destinationOf(src, dst, BGR, Channel8u);
        requireFinite({spatialRadius, colourRadius}, "Radii must be finite");
        if (!(spatialRadius >= 0.0 && colourRadius >= 0.0) || maxLevel < 0 || maxLevel > 8)
            throw dip_exception("Mean shift parameters out of range");
        const cv::Mat in = separateSource(s, d);
        writeInto(d, [&](cv::Mat& o) { cv::pyrMeanShiftFiltering(in, o, spatialRadius, colourRadius, maxLevel); });
        return VStatus::Ok;
    });
}

VStatus watershedImage(const VImage& src, VImage* markers)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat s = listedSource(Bgr8{}, src);
        VImage& m = checkExistingDestination(markers);
        if (!isPixelOf<PixelGray<qint32>>(m.format(), m.channelType()))
            throwUnsupported();
        checkSameSize(src, m);
        cv::Mat labels = asCvMat(m);
        cv::watershed(s, labels);
        return VStatus::Ok;
    });
}

VStatus floodFill(VImage* image, QPoint seed, const QList<double>& value, double tolerance, int* area, QRect* bounds,
                  int connectivity)
{
    return guarded(VEXA_CALL_SITE, [&] {
        VImage& target = checkExistingDestination(image);
        requireListed(GrayOrBgr8{}, target);
        cv::Mat m = asCvMat(target);
        const int components = m.channels();
        if (value.size() != components)
            throw dip_exception("One value per component is needed");
        requireFinite({tolerance}, "Tolerance must be finite");
        for (double v : value)
            requireFinite({v}, "Values must be finite");
        if (tolerance < 0.0)
            throw dip_exception("Tolerance must not be negative");
        if (connectivity != 4 && connectivity != 8)
            throw dip_exception("Connectivity must be 4 or 8");
        if (seed.x() < 0 || seed.y() < 0 || seed.x() >= m.cols || seed.y() >= m.rows)
            throw dip_exception("Seed outside the image");
        // Components in R, G, B order, as pixels are read and written elsewhere; OpenCV's are B, G, R.
        const cv::Scalar fill = components == 1 ? cv::Scalar(value[0]) : cv::Scalar(value[2], value[1], value[0]);
        const cv::Scalar range = cv::Scalar::all(tolerance);
        cv::Rect painted;
        const int count = cv::floodFill(m, cv::Point(seed.x(), seed.y()), fill, &painted, range, range,
                                        connectivity | cv::FLOODFILL_FIXED_RANGE);
        target.resetHash();
        if (area)
            *area = count;
        if (bounds)
            *bounds = QRect(painted.x, painted.y, painted.width, painted.height);
        return VStatus::Ok;
    });
}

VStatus connectedComponents(const VImage& src, VImage* labels, QList<VComponent>* components, int connectivity)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat s = listedSource(Gray8{}, src);
        const TakeBackOnFailure takeBack(labels);
        cv::Mat l = destinationOf(src, labels, GrayScale, Channel32s);
        if (connectivity != 4 && connectivity != 8)
            throw dip_exception("Connectivity must be 4 or 8");
        cv::Mat stats, centroids;
        int count = 0;
        writeInto(l, [&](cv::Mat& o) {
            count = cv::connectedComponentsWithStats(s, o, stats, centroids, connectivity, CV_32S);
        });
        if (components) {
            QList<VComponent> found;
            for (int i = 1; i < count; ++i) {
                const int* st = stats.ptr<int>(i);
                found.append(VComponent{i, st[cv::CC_STAT_AREA],
                                        QRect(st[cv::CC_STAT_LEFT], st[cv::CC_STAT_TOP], st[cv::CC_STAT_WIDTH],
                                              st[cv::CC_STAT_HEIGHT]),
                                        QPointF(centroids.at<double>(i, 0), centroids.at<double>(i, 1))});
            }
            *components = found;
        }
        return VStatus::Ok;
    });
}

VStatus inpaintImage(const VImage& src, const VImage& mask, VImage* dst, double radius, InpaintMethod method)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat s = listedSource(GrayOrBgr8{}, src);
        const cv::Mat k = listedSource(Gray8{}, mask);
        checkSameSize(src, mask);
        const TakeBackOnFailure takeBack(dst);
        cv::Mat d = destinationOf(src, dst, src.format(), Channel8u);
        requireFinite({radius}, "Radius must be finite");
        if (radius < 0.0 || radius > 1000.0)
            throw dip_exception("Radius out of range");
        if (method != InpaintTelea && method != InpaintNavierStokes)
            throwUnsupported();
        const cv::Mat in = separateSource(s, d);
        writeInto(d, [&](cv::Mat& o) { cv::inpaint(in, k, o, radius, int(method)); });
        return VStatus::Ok;
    });
}

} // namespace VEXA
