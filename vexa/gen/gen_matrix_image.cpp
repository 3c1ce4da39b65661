#include <vexa/gen/gen_matrix_image.h>

#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/opencv_frame.h>
#include <vexa/imp/kernels/matrix_image.h>

#include <opencv2/imgproc.hpp>

namespace VEXA {

namespace {

cv::Mat matrixOf(const VImage& image)
{
    cv::Mat m = listedSource(MatrixPixels{}, image);
    // OpenCV's decompositions run on NaN without complaint and give NaN back: refused before, so that a
    // non-finite result can only mean a matrix too close to singular.
    if (!cv::checkRange(m))
        throw dip_exception("Matrix holds infinite or NaN values");
    return m;
}

// A GrayScale 32f destination whose roi is width x height: made so when empty, else checked.
VImage& prepareResult(const VImage& model, VImage* image, int width, int height)
{
    VImage& dst = checkDestination(image);
    if (dst.status() && dst.isEmpty())
        dst.create(width, height, GrayScale, Channel32f, model.origin(), model.rowsAlignment());
    checkSource(dst);
    requireListed(MatrixPixels{}, dst);
    const cv::Mat m = asCvMat(dst);
    if (m.cols != width || m.rows != height)
        throw dip_exception("Image sizes differ");
    return dst;
}

// Results are computed into OpenCV's own buffers and copied in last: a failure leaves the destination as
// it was, and a destination sharing a source's pixels is written only after they were read.
void copyInto(const cv::Mat& result, const VImage& image)
{
    cv::Mat d = asCvMat(image);
    writeInto(d, [&](cv::Mat& o) { result.copyTo(o); });
}

void requireDecomposition(MatrixDecomposition method)
{
    switch (method) {
    case DecompositionLU:
    case DecompositionSVD:
    case DecompositionCholesky:
    case DecompositionQR: return;
    }
    throw dip_exception("Unknown matrix decomposition");
}

// LU and Cholesky work on square matrices only; QR and SVD solve in the least-squares sense, which OpenCV
// offers for no fewer rows than columns.
void requireShape(const cv::Mat& m, MatrixDecomposition method)
{
    if (method == DecompositionLU || method == DecompositionCholesky) {
        if (m.rows != m.cols)
            throw dip_exception("Matrix is not square");
    } else if (m.rows < m.cols) {
        throw dip_exception("Under-determined system: the matrix has fewer rows than columns");
    }
}

// OpenCV reports a breakdown by its return value; a 32f result beyond float's range (a nearly singular
// matrix) is no inverse either.
void requireSolved(bool solved, const cv::Mat& result, MatrixDecomposition method)
{
    if (solved && cv::checkRange(result))
        return;
    throw dip_exception(method == DecompositionCholesky ? "Matrix is singular or not positive definite"
                                                        : "Matrix is singular");
}

// The lowest and highest values as minMaxLoc finds them. Where every candidate is NaN it leaves its start
// values (+inf and -inf) in place, with positions pointing at a NaN.
struct Extremes {
    double min = 0, max = 0;
    cv::Point minAt, maxAt;
};

Extremes extremesOf(const cv::Mat& m, const cv::Mat& mask, const char* none)
{
    Extremes e;
    cv::minMaxLoc(m, &e.min, &e.max, &e.minAt, &e.maxAt, mask);
    if (!(e.min <= e.max))
        throw dip_exception(none);
    return e;
}

} // namespace

VStatus matchTemplate(const VImage& src, const VImage& templ, VImage* result, TemplateMatchMethod method, QPoint* best,
                      double* bestScore)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat s = listedSource(TemplatePixels{}, src);
        const cv::Mat t = listedSource(TemplatePixels{}, templ);
        if (templ.format() != src.format() || templ.channelType() != src.channelType())
            throwUnsupported();
        if (method < TemplateSqDiff || method > TemplateCCoeffNormed)
            throw dip_exception("Unknown template matching method");
        if (t.cols > s.cols || t.rows > s.rows)
            throw dip_exception("Template is larger than the image");
        const TakeBackOnFailure takeBack(result);
        const VImage& r = prepareResult(src, result, s.cols - t.cols + 1, s.rows - t.rows + 1);
        cv::Mat scores;
        cv::matchTemplate(s, t, scores, int(method));
        if (best || bestScore) {
            const Extremes e = extremesOf(scores, cv::Mat(), "No comparable score");
            const bool lowest = method == TemplateSqDiff || method == TemplateSqDiffNormed;
            const cv::Point at = lowest ? e.minAt : e.maxAt;
            if (best)
                *best = QPoint(at.x, at.y);
            if (bestScore)
                *bestScore = lowest ? e.min : e.max;
        }
        copyInto(scores, r);
        return VStatus::Ok;
    });
}

VStatus invertMatrix(const VImage& src, VImage* dst, MatrixDecomposition method)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat m = matrixOf(src);
        requireDecomposition(method);
        if (method != DecompositionSVD) // the pseudo-inverse exists for every shape
            requireShape(m, method);
        const TakeBackOnFailure takeBack(dst);
        const VImage& d = prepareResult(src, dst, m.rows, m.cols);
        cv::Mat inverse;
        bool solved = true;
        if (method == DecompositionQR) // cv::invert has no QR: solve against the identity instead
            solved = cv::solve(m, cv::Mat::eye(m.rows, m.rows, CV_32F), inverse, cv::DECOMP_QR);
        else
            solved = cv::invert(m, inverse, int(method)) != 0 || method == DecompositionSVD;
        requireSolved(solved, inverse, method);
        copyInto(inverse, d);
        return VStatus::Ok;
    });
}

VStatus solveLinear(const VImage& a, const VImage& b, VImage* x, MatrixDecomposition method)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat ma = matrixOf(a);
        const cv::Mat mb = matrixOf(b);
        requireDecomposition(method);
        if (mb.rows != ma.rows)
            throw dip_exception("Image sizes differ");
        requireShape(ma, method);
        const TakeBackOnFailure takeBack(x);
        const VImage& d = prepareResult(a, x, mb.cols, ma.cols);
        cv::Mat solution;
        const bool solved = cv::solve(ma, mb, solution, int(method));
        requireSolved(solved, solution, method);
        copyInto(solution, d);
        return VStatus::Ok;
    });
}

VStatus dftImage(const VImage& src, VImage* real, VImage* imaginary)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat s = listedSource(DftPixels{}, src);
        checkOutput(real);
        checkOutput(imaginary);
        if (real == imaginary)
            throw dip_exception("Real and imaginary parts need distinct images");
        const TakeBackOnFailure takeBack(real);
        const VImage& re = prepareResult(src, real, s.cols, s.rows);
        const TakeBackOnFailure takeBackImaginary(imaginary);
        const VImage& im = prepareResult(src, imaginary, s.cols, s.rows);
        if (sharesMemory(asCvMat(re), asCvMat(im)))
            throw dip_exception("Real and imaginary parts need distinct images");
        cv::Mat values, spectrum;
        s.convertTo(values, CV_32F);
        cv::dft(values, spectrum, cv::DFT_COMPLEX_OUTPUT);
        cv::Mat parts[2];
        cv::split(spectrum, parts);
        copyInto(parts[0], re);
        copyInto(parts[1], im);
        return VStatus::Ok;
    });
}

VStatus inverseDftImage(const VImage& real, const VImage& imaginary, VImage* dst)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat re = listedSource(MatrixPixels{}, real);
        const cv::Mat im = listedSource(MatrixPixels{}, imaginary);
        if (re.size() != im.size())
            throw dip_exception("Image sizes differ");
        const TakeBackOnFailure takeBack(dst);
        const VImage& d = prepareResult(real, dst, re.cols, re.rows);
        // A full complex inverse, not OpenCV's real-output one: that assumes a conjugate-symmetric spectrum
        // and reads only half of it, so any other spectrum would come back as something else than its
        // inverse's real part.
        const cv::Mat parts[2] = {re, im};
        cv::Mat spectrum, values, realPart;
        cv::merge(parts, 2, spectrum);
        cv::dft(spectrum, values, cv::DFT_INVERSE | cv::DFT_SCALE);
        cv::extractChannel(values, realPart, 0);
        copyInto(realPart, d);
        return VStatus::Ok;
    });
}

VStatus getMinMax(const VImage& src, double* min, double* max, QPoint* minAt, QPoint* maxAt, const VImage& mask)
{
    return guarded(VEXA_CALL_SITE, [&] {
        const cv::Mat s = listedSource(MinMaxPixels{}, src);
        checkOutput(min);
        checkOutput(max);
        checkStatus(mask);
        cv::Mat m;
        if (!mask.isEmpty()) {
            requireListed(MinMaxMaskPixels{}, mask);
            checkSameSize(src, mask);
            m = asCvMat(mask);
            // minMaxLoc answers 0 and 0 at (-1, -1) for an empty selection, which reads as a value.
            if (cv::countNonZero(m) == 0)
                throw dip_exception("Mask selects no pixel");
        }
        const Extremes e = extremesOf(s, m, "No comparable value");
        *min = e.min;
        *max = e.max;
        if (minAt)
            *minAt = QPoint(e.minAt.x, e.minAt.y);
        if (maxAt)
            *maxAt = QPoint(e.maxAt.x, e.maxAt.y);
        return VStatus::Ok;
    });
}

} // namespace VEXA
