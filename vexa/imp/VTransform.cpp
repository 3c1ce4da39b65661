#include <vexa/imp/VTransform.h>

#include <vexa/imp/VFigure.h>
#include <vexa/imp/detail/frame.h>
#include <vcore/MathUtils.h>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

VTransform::VTransform() : data_{} { init(); }

VTransform::VTransform(const VTransform& other) : data_{} { std::memcpy(m_, other.m_, sizeof m_); }

VTransform& VTransform::operator=(const VTransform& other)
{
    std::memmove(m_, other.m_, sizeof m_);
    return *this;
}

VTransform::~VTransform() = default;

int VTransform::rows() const { return 3; }
int VTransform::cols() const { return 3; }

void VTransform::init()
{
    for (int r = 0; r < rows(); ++r)
        for (int c = 0; c < cols(); ++c)
            m_[r][c] = r == c ? 1.0 : 0.0;
}

void VTransform::set(int row, int col, double value)
{
    if (row >= 0 && row < rows() && col >= 0 && col < cols())
        m_[row][col] = value;
}

double VTransform::get(int row, int col) const
{
    return row >= 0 && row < rows() && col >= 0 && col < cols() ? m_[row][col] : 0.0;
}

void VTransform::setTransform(double** rowsIn)
{
    if (!rowsIn)
        return;
    for (int r = 0; r < rows(); ++r)
        if (rowsIn[r])
            for (int c = 0; c < cols(); ++c)
                m_[r][c] = rowsIn[r][c];
}

void VTransform::transform(double** rowsOut) const
{
    if (!rowsOut)
        return;
    for (int r = 0; r < rows(); ++r)
        if (rowsOut[r])
            for (int c = 0; c < cols(); ++c)
                rowsOut[r][c] = m_[r][c];
}

void VTransform::fromMatrix(const double* a)
{
    if (!a)
        return;
    for (int r = 0; r < rows(); ++r)
        for (int c = 0; c < cols(); ++c)
            m_[r][c] = a[c * 3 + r];
}

void VTransform::fromMatrix(const float* a)
{
    if (!a)
        return;
    for (int r = 0; r < rows(); ++r)
        for (int c = 0; c < cols(); ++c)
            m_[r][c] = double(a[c * 3 + r]);
}

void VTransform::fromMatrix2x3(const double* a)
{
    if (!a)
        return;
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 3; ++c)
            m_[c][r] = a[r * 3 + c];
    for (int r = 0; r < rows(); ++r)
        m_[r][2] = 0.0;
}

void VTransform::fromQTransform(const QTransform& q)
{
    const double values[3][3] = {{q.m11(), q.m12(), q.m13()}, {q.m21(), q.m22(), q.m23()}, {q.dx(), q.dy(), q.m33()}};
    std::memcpy(m_, values, sizeof m_);
}

QTransform VTransform::qTransform() const
{
    return QTransform(m_[0][0], m_[0][1], m_[0][2], m_[1][0], m_[1][1], m_[1][2], m_[2][0], m_[2][1], m_[2][2]);
}

cv::Mat VTransform::createCvMat()
{
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            data_[i * 3 + j] = m_[j][i];
    return cv::Mat(3, 3, CV_64FC1, data_);
}

bool VTransform::isValid() const
{
    for (int r = 0; r < rows(); ++r)
        for (int c = 0; c < cols(); ++c)
            if (m_[r][c] != 0.0)
                return true;
    return false;
}

void VTransform::copyDataFrom(const VTransform* other)
{
    if (!other)
        return;
    for (int r = 0; r < rows(); ++r)
        for (int c = 0; c < cols(); ++c)
            m_[r][c] = other->get(r, c);
}

VTransform2D::VTransform2D() = default;
VTransform2D::VTransform2D(const VTransform2D& other) = default;
VTransform2D& VTransform2D::operator=(const VTransform2D& other) = default;

VTransformPerspective::VTransformPerspective() = default;
VTransformPerspective::VTransformPerspective(const VTransformPerspective& other) = default;
VTransformPerspective& VTransformPerspective::operator=(const VTransformPerspective& other) = default;

double VTransformPerspective::toAngleDegree() const
{
    const double c = (get(0, 0) + get(1, 1)) / 2, s = (get(0, 1) - get(1, 0)) / 2;
    const double a = std::asin(std::min(std::abs(s), 1.0));
    double angle;
    if (s >= 0)
        angle = c >= 0 ? a : CV_PI - a;
    else
        angle = c < 0 ? CV_PI + a : -a;
    return MathUtils::radiansToDegrees(angle);
}

QDataStream& operator<<(QDataStream& stream, const VTransformPerspective& t) { return stream << t.qTransform(); }

QDataStream& operator>>(QDataStream& stream, VTransformPerspective& t)
{
    QTransform q;
    stream >> q;
    t.fromQTransform(q);
    return stream;
}

namespace VEXA {

double angleDegreeFromTransformation(QTransform t)
{
    VTransformPerspective p;
    p.fromQTransform(t);
    return p.toAngleDegree();
}

VTransformPerspective findPerspectiveTransformationByPoints(QList<QPair<QPointF, QPointF>> pairs, bool* ok)
{
    VTransformPerspective result;
    if (pairs.size() < 6) {
        if (ok)
            *ok = false;
        return result;
    }
    if (ok)
        *ok = true;
    double h[9] = {};
    const CallSite site = VEXA_CALL_SITE;
    const VStatus status = guarded(site, [&] {
        std::vector<cv::Point2f> from, to;
        for (const auto& pair : pairs) {
            from.emplace_back(float(pair.first.x()), float(pair.first.y()));
            to.emplace_back(float(pair.second.x()), float(pair.second.y()));
        }
        const cv::Mat found = cv::findHomography(from, to, cv::LMEDS, 0.0);
        if (found.empty()) // h stays zero, as OpenCV's C interface left it
            return VStatus(errorAt(site, Issue::OpenCvError) << "No homography found");
        cv::Mat target(3, 3, CV_64F, h);
        found.convertTo(target, CV_64F);
        return VStatus::Ok;
    });
    result.fromMatrix(h);
    result.setStatus(status);
    return result;
}

VTransformPerspective findPerspectiveTransformation(const VPolyPoint& from, const VPolyPoint& to)
{
    VTransformPerspective result;
    const CallSite site = VEXA_CALL_SITE;
    if (from.count() < 4 || to.count() < 4) {
        result.setStatus(errorAt(site, Issue::LibraryError)
                         << "A perspective transformation needs four points in each figure, not " << from.count()
                         << " and " << to.count());
        return result;
    }
    float m[9] = {};
    const VStatus status = guarded(site, [&] {
        const std::unique_ptr<cv::Point2f[]> src(from.toCvPoint2D32f()), dst(to.toCvPoint2D32f());
        cv::Mat target(3, 3, CV_32F, m);
        cv::getPerspectiveTransform(src.get(), dst.get()).convertTo(target, CV_32F);
        return VStatus::Ok;
    });
    result.fromMatrix(m);
    result.setStatus(status);
    return result;
}

VTransformPerspective findPerspectiveTransformation(const VPolyPoint& quad, QSize size)
{
    const double w = size.width(), h = size.height();
    return findPerspectiveTransformation(
        quad, VPolyPoint(QPolygonF({QPointF(0, 0), QPointF(w, 0), QPointF(w, h), QPointF(0, h)})));
}

VTransformPerspective findPerspectiveTransformation(const VRectBase& rect, QSize size)
{
    return findPerspectiveTransformation(VFigureUtils::getPolyPointFromRect(rect), size);
}

} // namespace VEXA
