/// @file
/// @brief Edges, contours, Hough lines and circles, segmentation and inpainting (group @ref analysis).
#pragma once

#include <vexa/imp/VFigure.h>
#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <QLineF>
#include <QList>
#include <QPoint>
#include <QPointF>
#include <QRect>

/// @addtogroup analysis
/// Image analysis: edges, contours and their measures, Hough lines and circles, segmentation (mean shift,
/// watershed, flood fill, connected components) and inpainting, over OpenCV on headers laid at the rois.
///
/// **Pixel types:** each function names the (format, channel type) pairs it takes (@ref pairs_analysis_image);
/// others fail with "Can not find template with actual parameters!".
///
/// **Coordinates** in and out are relative to the source's roi, a pixel's centre at whole numbers. Figures'
/// points must be finite and within 2^24 pixels ("Points must be finite and within 2^24 pixels").
///
/// **Destinations:** those that may be empty are made like the source (its size, its roi, zeros outside the
/// roi) with the stated format and channel type; an existing one must have that pair ("Can not find
/// template with actual parameters!") and a roi of the source's roi size ("Image sizes differ"), and is
/// written through its roi.
///
/// **In place:** cannyImage(), pyramidMeanShiftSegmentation() and inpaintImage() read a source that shares
/// memory with the destination from a copy, so each gives the result it gives into a separate image.
///
/// **Failures:** every operation checks its sources (status, then emptiness: "Bad status of image!",
/// "Empty source image!"), null outputs ("Null pointer argument!"), the pairs and sizes above and its own
/// arguments (texts with each function), and reports OpenCV's own errors as statuses. Lists and values are
/// written only on success.
///
/// **Progress and cancellation** (VProgress): not checked; each call is one OpenCV call, run whole.
///
/// **Threads:** reentrant. Calls on different images may run on any threads at once, and one source may be
/// read by several calls at once; a destination, or an image changed in place, must not be used by another
/// thread during the call.
/// @{

/// A contour found by VEXA::findContours(), as a plain value (like the library's other V classes it lives
/// outside the namespace).
struct VContour {
    /// The border as OpenCV traces it (its pixels, or the end points of their runs, as the approximation
    /// says), in the roi's coordinates.
    VPolygon outline;
    /// Whether the contour is the border of a zero region inside a non-zero one (a hole), which OpenCV
    /// traces the other way round.
    bool hole = false;
    /// The index in the list of the contour that encloses this one, or -1 (always -1 for ContourExternal
    /// and ContourList).
    int parent = -1;
};

/// The measures VEXA::measureContour() gives of a contour.
struct VContourMeasure {
    /// The enclosed area in square pixels, from the polygon's moments (never negative; 0 for a contour that
    /// encloses nothing).
    double area = 0.0;
    /// The closed perimeter in pixels, the segment back to the first point included.
    double perimeter = 0.0;
    /// The centroid of the enclosed area, or the mean of the points when the area is 0.
    QPointF centroid;
};

/// A circle found by VEXA::houghCircles().
struct VCircle {
    /// The centre, in the roi's coordinates.
    QPointF centre;
    /// The radius, in pixels.
    double radius = 0.0;
};

/// A connected region found by VEXA::connectedComponents().
struct VComponent {
    /// The region's label in the label image (1 and up).
    int label = 0;
    /// The number of pixels of the region.
    int area = 0;
    /// The region's bounding rectangle, in the roi's coordinates.
    QRect bounds;
    /// The mean position of the region's pixels, in the roi's coordinates.
    QPointF centroid;
};

/// @}

namespace VEXA {

/// @addtogroup analysis
/// @{

/// Which contours findContours() gives, and how they are related (the values are OpenCV's).
enum ContourRetrieval : int { ContourExternal = 0, ContourList = 1, ContourTwoLevels = 2, ContourTree = 3 };
/// @var ContourExternal
/// The outer borders only, without parents.
/// @var ContourList
/// Every border, holes included, without parents.
/// @var ContourTwoLevels
/// Every border in two levels: outer borders, with the borders of their holes as children.
/// @var ContourTree
/// Every border with its full nesting: outer borders, their holes, what lies inside those, and so on.

/// How findContours() stores each border's points (the values are OpenCV's).
enum ContourApproximation : int {
    /// Every border pixel.
    ContourApproxNone = 1,
    /// Horizontal, vertical and diagonal runs kept as their end points only.
    ContourApproxSimple = 2,
    /// The Teh-Chin chain approximation, L1 curvature.
    ContourApproxTehChinL1 = 3,
    /// The Teh-Chin chain approximation, k-cosine curvature.
    ContourApproxTehChinKCos = 4,
};
/// The Hough line transform houghLines() runs.
enum HoughMode : int { HoughStandard = 0, HoughProbabilistic = 1 };
/// @var HoughStandard
/// The standard transform: each line found, given as the segment where it crosses the roi.
/// @var HoughProbabilistic
/// The probabilistic transform: the segments themselves.

/// The method inpaintImage() fills with (the values are OpenCV's).
enum InpaintMethod : int { InpaintNavierStokes = 0, InpaintTelea = 1 };
/// @var InpaintNavierStokes
/// The Navier-Stokes based method.
/// @var InpaintTelea
/// Telea's fast marching method.

/// Canny's edges of @p src as 255 on 0, into @p dst. @p src GrayScale or BGR 8u (a colour pixel's gradient
/// is its largest component's); @p dst GrayScale 8u. @p aperture is the Sobel size, 3, 5 or 7 (OpenCV's
/// error otherwise); @p l2Gradient measures gradients by the Euclidean norm instead of |dx| + |dy|. The
/// thresholds must be finite ("Thresholds must be finite").
VEXA_EXPORT VStatus cannyImage(const VImage& src, VImage* dst, double low, double high, int aperture = 3,
                               bool l2Gradient = false);
/// The borders of the non-zero regions of a GrayScale 8u @p src, into @p contours as a list of values (no
/// heap objects): each VContour holds its outline as a VPolygon, whether it is a hole and the index of its
/// parent in the list, or -1 (ContourList and ContourExternal give no parents). The source is not changed.
VEXA_EXPORT VStatus findContours(const VImage& src, QList<VContour>* contours, ContourRetrieval mode = ContourList,
                                 ContourApproximation method = ContourApproxSimple);
/// Douglas-Peucker simplification of @p curve to within @p epsilon pixels, into @p result (its points
/// replaced), the curve taken as closed or not. @p epsilon must be finite and not negative ("Epsilon must be
/// finite and not negative").
VEXA_EXPORT VStatus approximatePolygon(const VPolyPoint& curve, VPolygon* result, double epsilon, bool closed = true);
/// The smallest turned rectangle around @p points (at least one: "No points given"), into @p rect as a
/// VRectBase carrying OpenCV's angle (clockwise degrees on a y-down image) about its centre.
VEXA_EXPORT VStatus minAreaRect(const VPolyPoint& points, VRectBase* rect);
/// The area and centroid of @p contour from the polygon's moments (area 0 and centroid the mean point when
/// the contour encloses nothing) and its closed perimeter, into @p measure; a contour without points gives
/// zeros.
VEXA_EXPORT VStatus measureContour(const VPolyPoint& contour, VContourMeasure* measure);
/// Lines through the non-zero pixels of a GrayScale 8u @p src (an edge image), into @p lines.
/// HoughStandard gives each line found as the segment where it crosses the roi (lines that miss it are
/// left out); HoughProbabilistic gives the segments themselves, at least @p minLength long with gaps of at
/// most @p maxGap. @p rho and @p theta (radians) are the accumulator's steps and @p threshold its votes.
/// Fails for parameters that are not finite ("Hough parameters must be finite"), steps or a threshold
/// that are not positive ("Hough steps and threshold must be positive"), steps so fine that the
/// accumulator would pass 256 MB ("Hough steps too fine for the image"), and another mode ("Can not find
/// template with actual parameters!").
VEXA_EXPORT VStatus houghLines(const VImage& src, QList<QLineF>* lines, double rho, double theta, int threshold,
                               HoughMode mode = HoughStandard, double minLength = 0.0, double maxGap = 0.0);
/// Circles by the gradient method in a GrayScale 8u @p src, into @p circles. @p dp is the accumulator's
/// resolution divisor (1 to 64), @p minDistance the least distance between centres, @p cannyHigh the upper
/// edge threshold and @p votes the centre threshold (all three positive); a @p maxRadius of 0 means no
/// limit. Fails for parameters that are not finite ("Hough parameters must be finite") and for values out
/// of those ranges, negative radii or radii beyond twice the roi's width plus height ("Hough parameters out
/// of range").
VEXA_EXPORT VStatus houghCircles(const VImage& src, QList<VCircle>* circles, double dp, double minDistance,
                                 double cannyHigh = 100.0, double votes = 100.0, int minRadius = 0, int maxRadius = 0);
/// Mean-shift filtering of @p src over a Gaussian pyramid of @p maxLevel levels (0 to 8), with the given
/// spatial and colour window radii (finite and not negative), into @p dst; @p src and @p dst BGR 8u. Fails
/// with "Radii must be finite" and "Mean shift parameters out of range".
VEXA_EXPORT VStatus pyramidMeanShiftSegmentation(const VImage& src, VImage* dst, double spatialRadius,
                                                 double colourRadius, int maxLevel = 1);
/// Floods the BGR 8u @p src from @p markers, an existing GrayScale 32s image of the roi's size written in
/// place: positive labels seed the regions, 0 is unknown, and after the call every pixel carries its
/// region's label or -1 on the boundaries.
VEXA_EXPORT VStatus watershedImage(const VImage& src, VImage* markers);
/// Paints with @p value, in place, the region of the existing GrayScale or BGR 8u @p image's roi connected
/// to @p seed (4 or 8 connectivity) whose every component is within @p tolerance of the seed's. @p value has
/// one entry per component, in R, G, B order (GrayScale: one value), converted by OpenCV (rounded and
/// saturated). @p area and @p bounds (may be null) receive the number of pixels painted and their bounding
/// rectangle. Fails with "One value per component is needed", "Tolerance must be finite", "Values must be
/// finite", "Tolerance must not be negative", "Connectivity must be 4 or 8" and, for a seed outside the
/// roi, "Seed outside the image".
VEXA_EXPORT VStatus floodFill(VImage* image, QPoint seed, const QList<double>& value, double tolerance,
                              int* area = nullptr, QRect* bounds = nullptr, int connectivity = 4);
/// Labels the 4- or 8-connected regions of the non-zero pixels of a GrayScale 8u @p src into @p labels
/// (GrayScale 32s; 0 for the background, 1 and up for the regions), and lists the regions in label order
/// (the background left out) with their area, bounding rectangle and centroid into @p components, which may
/// be null. Another connectivity fails ("Connectivity must be 4 or 8").
VEXA_EXPORT VStatus connectedComponents(const VImage& src, VImage* labels, QList<VComponent>* components,
                                        int connectivity = 8);
/// Fills the pixels of @p src where the GrayScale 8u @p mask (of the roi's size) is non-zero from their
/// surroundings within @p radius pixels (finite, 0 to 1000), by @p method, into @p dst; @p src and @p dst
/// GrayScale or BGR 8u, of one format. Fails with "Radius must be finite", "Radius out of range", and "Can
/// not find template with actual parameters!" for another method.
VEXA_EXPORT VStatus inpaintImage(const VImage& src, const VImage& mask, VImage* dst, double radius,
                                 InpaintMethod method = InpaintTelea);

/// @}

} // namespace VEXA
