// Image analysis: edges, contours and their measures, Hough lines and circles, segmentation (mean shift,
// watershed, flood fill, connected components) and inpainting, over OpenCV on headers laid at the rois.
// Coordinates in and out are relative to the source's roi; figures' points must be finite and within 2^24
// pixels. Every operation checks its sources (status, then
// emptiness), refuses pairs it does not list ("Can not find template with actual parameters!") and
// destinations of the wrong size ("Image sizes differ"), and reports OpenCV's own errors as statuses.
// Destinations that may be empty are made like the source's roi with the stated format.
//
// - cannyImage(src, dst, low, high, aperture, l2Gradient): Canny's edges as 255 on 0. src GrayScale or BGR
//   8u (a colour pixel's gradient is its largest component's); dst GrayScale 8u. aperture 3, 5 or 7 (the
//   Sobel size); l2Gradient measures gradients by the Euclidean norm instead of |dx| + |dy|. The
//   thresholds must be finite.
// - findContours(src, contours, mode, method): the borders of the non-zero regions of a GrayScale 8u src,
//   as a list of values (no heap objects): each VContour holds its outline as a VPolygon, whether it is a
//   hole (the border of a zero region inside a non-zero one, which OpenCV traces the other way round) and
//   the index of its parent in the list, or -1 (ContourList and ContourExternal give no parents). The
//   source is not changed.
// - approximatePolygon(curve, result, epsilon, closed): Douglas-Peucker simplification to within epsilon
//   pixels (finite, not negative).
// - minAreaRect(points, rect): the smallest turned rectangle around the points (at least one point), as a
//   VRectBase carrying its angle.
// - measureContour(contour, measure): the area and centroid from the polygon's moments (area 0 and
//   centroid the mean point when the contour encloses nothing) and the closed perimeter.
// - houghLines(src, lines, rho, theta, threshold, mode, minLength, maxGap): lines through the non-zero
//   pixels of a GrayScale 8u src (an edge image). HoughStandard gives each line found as the segment where
//   it crosses the roi; HoughProbabilistic gives the segments themselves, at least minLength long with gaps
//   of at most maxGap. rho and theta (radians) are the accumulator's steps, threshold its votes; steps so fine that
//   the accumulator would pass 256 MB are refused.
// - houghCircles(src, circles, dp, minDistance, cannyHigh, votes, minRadius, maxRadius): circles by the
//   gradient method in a GrayScale 8u src; dp is the accumulator's resolution divisor, minDistance the
//   least distance between centres, cannyHigh the upper edge threshold, votes the centre threshold; a
//   maxRadius of 0 means no limit; radii beyond twice the roi's width plus height are refused.
// - pyramidMeanShiftSegmentation(src, dst, spatialRadius, colourRadius, maxLevel): mean-shift filtering
//   over a Gaussian pyramid of maxLevel levels (0 to 8); src and dst BGR 8u.
// - watershedImage(src, markers): floods the BGR 8u src from the markers, a GrayScale 32s image of the
//   roi's size written in place: positive labels seed the regions, 0 is unknown, and after the call every
//   pixel carries its region's label or -1 on the boundaries.
// - floodFill(image, seed, value, tolerance, area, bounds, connectivity): paints, in place, the region of
//   GrayScale or BGR 8u pixels connected to the seed (4 or 8 connectivity) whose every component is within
//   tolerance of the seed's, with value (components in R, G, B order; GrayScale: one value). area and
//   bounds (may be null) receive the number of pixels painted and their bounding rectangle. A seed outside
//   the roi fails.
// - connectedComponents(src, labels, components, connectivity): labels the 4- or 8-connected regions of
//   the non-zero pixels of a GrayScale 8u src into labels (GrayScale 32s; 0 for the background, 1.. for the
//   regions), and lists the regions (the background left out) with their area, bounding rectangle and
//   centroid; components may be null.
// - inpaintImage(src, mask, dst, radius, method): fills the pixels where the GrayScale 8u mask is non-zero
//   from their surroundings within radius pixels, by Telea's fast marching or the Navier-Stokes method.
//   src and dst GrayScale or BGR 8u.
#pragma once

#include <vexa/imp/VFigure.h>
#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <QLineF>
#include <QList>
#include <QPoint>
#include <QPointF>
#include <QRect>

// Results as plain values; like the library's other V classes they live outside the namespace.
struct VContour {
    VPolygon outline;
    bool hole = false;
    int parent = -1;
};

struct VContourMeasure {
    double area = 0.0;
    double perimeter = 0.0;
    QPointF centroid;
};

struct VCircle {
    QPointF centre;
    double radius = 0.0;
};

struct VComponent {
    int label = 0;
    int area = 0;
    QRect bounds;
    QPointF centroid;
};

namespace VEXA {

// The values are OpenCV's.
enum ContourRetrieval : int { ContourExternal = 0, ContourList = 1, ContourTwoLevels = 2, ContourTree = 3 };
enum ContourApproximation : int {
    ContourApproxNone = 1,
    ContourApproxSimple = 2,
    ContourApproxTehChinL1 = 3,
    ContourApproxTehChinKCos = 4,
};
enum HoughMode : int { HoughStandard = 0, HoughProbabilistic = 1 };
enum InpaintMethod : int { InpaintNavierStokes = 0, InpaintTelea = 1 };

VEXA_EXPORT VStatus cannyImage(const VImage& src, VImage* dst, double low, double high, int aperture = 3,
                               bool l2Gradient = false);
VEXA_EXPORT VStatus findContours(const VImage& src, QList<VContour>* contours, ContourRetrieval mode = ContourList,
                                 ContourApproximation method = ContourApproxSimple);
VEXA_EXPORT VStatus approximatePolygon(const VPolyPoint& curve, VPolygon* result, double epsilon, bool closed = true);
VEXA_EXPORT VStatus minAreaRect(const VPolyPoint& points, VRectBase* rect);
VEXA_EXPORT VStatus measureContour(const VPolyPoint& contour, VContourMeasure* measure);
VEXA_EXPORT VStatus houghLines(const VImage& src, QList<QLineF>* lines, double rho, double theta, int threshold,
                               HoughMode mode = HoughStandard, double minLength = 0.0, double maxGap = 0.0);
VEXA_EXPORT VStatus houghCircles(const VImage& src, QList<VCircle>* circles, double dp, double minDistance,
                                 double cannyHigh = 100.0, double votes = 100.0, int minRadius = 0, int maxRadius = 0);
VEXA_EXPORT VStatus pyramidMeanShiftSegmentation(const VImage& src, VImage* dst, double spatialRadius,
                                                 double colourRadius, int maxLevel = 1);
VEXA_EXPORT VStatus watershedImage(const VImage& src, VImage* markers);
VEXA_EXPORT VStatus floodFill(VImage* image, QPoint seed, const QList<double>& value, double tolerance,
                              int* area = nullptr, QRect* bounds = nullptr, int connectivity = 4);
VEXA_EXPORT VStatus connectedComponents(const VImage& src, VImage* labels, QList<VComponent>* components,
                                        int connectivity = 8);
VEXA_EXPORT VStatus inpaintImage(const VImage& src, const VImage& mask, VImage* dst, double radius,
                                 InpaintMethod method = InpaintTelea);

} // namespace VEXA
