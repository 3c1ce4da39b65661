// Template matching, images as matrices (inverse, linear systems), the discrete Fourier transform and the
// extreme values of an image, over OpenCV on headers laid at the rois. Coordinates in and out are relative
// to the rois. Every operation checks its sources (status, then emptiness), refuses pairs it does not list
// ("Can not find template with actual parameters!"), null outputs ("Null pointer argument!") and
// destinations of the wrong size ("Image sizes differ"), and reports OpenCV's own errors as statuses.
//
// Destinations: an empty one is made with the stated format, channel type and size (the source's origin
// and rows alignment, the whole image as roi); an existing one must have that format and type and a roi of
// that size, and is written through its roi. Results are computed apart and copied in only on success, so
// a failed call leaves an existing destination untouched, and a destination may be one of the sources.
//
// - matchTemplate(src, templ, result, method, best, bestScore): the score of templ at every position where
//   it lies wholly inside src's roi, by one of the six measures below. src and templ GrayScale or BGR, 8u
//   or 32f, both of one pair; templ's roi no larger than src's. result: GrayScale 32f of (W - w + 1) x
//   (H - h + 1) for a W x H source roi and a w x h template roi; result(x, y) scores templ's top-left
//   corner at (x, y). best (may be null) receives the position of the best score, the lowest for the two
//   squared-difference measures and the highest otherwise, and bestScore (may be null) that score; the
//   first such position in row order wins a tie. A result holding no comparable score (NaN throughout,
//   from non-finite pixels) fails when best or bestScore is asked for.
// - Matrices: a GrayScale 32f image whose roi has `rows` = height and `cols` = width; no other pair is a
//   matrix. Values must be finite ("Matrix holds infinite or NaN values"). Results are GrayScale 32f.
//   invertMatrix(src, dst, method): dst is cols x rows (width = src's height).
//   - DecompositionLU: Gaussian elimination; src square.
//   - DecompositionCholesky: src square, symmetric and positive definite (only its lower triangle is read).
//   - DecompositionSVD: the pseudo-inverse, for any shape and any rank; never fails on the values.
//   - DecompositionQR: the least-squares inverse (the solution of src * X = identity), for rows >= cols and
//     full column rank; for a square matrix, its inverse.
//   LU, Cholesky and QR fail with "Matrix is singular" (Cholesky: "Matrix is singular or not positive
//   definite") when the decomposition breaks down; a non-square matrix for LU or Cholesky fails with
//   "Matrix is not square".
// - solveLinear(a, b, x, method): x with a * x = b, in the least-squares sense for an a of more rows than
//   columns (QR and SVD; LU and Cholesky need a square a). a is rows x cols, b rows x k (same number of
//   rows as a, else "Image sizes differ"), x cols x k. Fewer rows than columns fails ("Under-determined
//   system"); singular systems fail as for invertMatrix, except with SVD, which gives the least-norm
//   solution.
// - dftImage(src, real, imaginary): the forward 2-D transform of src's roi, unscaled, as OpenCV computes it
//   on the roi converted to 32f. The complex result comes as two GrayScale 32f images of the roi's size,
//   one per part: the library has no two-component pixel layout but YUV422, whose components mean luma and
//   chroma, not a complex number. src GrayScale 8u, 16u, 16s or 32f. real and imaginary must be distinct
//   images.
// - inverseDftImage(real, imaginary, dst): the inverse transform scaled by 1 / (width * height), so that
//   the round trip gives the source back (up to float rounding). real and imaginary GrayScale 32f of one
//   roi size; dst GrayScale 32f of that size receives the real part of the result, which is all of it for
//   the transform of a real image.
// - getMinMax(src, min, max, minAt, maxAt, mask): the lowest and highest values of a GrayScale src of any
//   channel type and their first positions in row order (minAt and maxAt may be null). An empty mask means
//   every pixel of the roi; otherwise the mask is GrayScale 8u with a roi of src's roi size, and only the
//   pixels where it is non-zero count. A mask selecting nothing fails ("Mask selects no pixel"), as does a
//   32f roi of NaN only ("No comparable value"); NaN pixels are otherwise skipped.
#pragma once

#include <QPoint>

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

namespace VEXA {

// OpenCV's TM_* codes; any other value is refused.
enum TemplateMatchMethod : qint32 {
    TemplateSqDiff = 0,       // sum of squared differences
    TemplateSqDiffNormed = 1, // the same divided by sqrt(sum templ^2 * sum window^2)
    TemplateCCorr = 2,        // sum of products
    TemplateCCorrNormed = 3,  // the same divided by sqrt(sum templ^2 * sum window^2)
    TemplateCCoeff = 4,       // sum of products of the mean-free template and window
    TemplateCCoeffNormed = 5, // their correlation coefficient, -1 to 1
};

// OpenCV's DECOMP_* codes; any other value is refused.
enum MatrixDecomposition : qint32 {
    DecompositionLU = 0,
    DecompositionSVD = 1,
    DecompositionCholesky = 3,
    DecompositionQR = 4,
};

VEXA_EXPORT VStatus matchTemplate(const VImage& src, const VImage& templ, VImage* result, TemplateMatchMethod method,
                                  QPoint* best = nullptr, double* bestScore = nullptr);

VEXA_EXPORT VStatus invertMatrix(const VImage& src, VImage* dst, MatrixDecomposition method);
VEXA_EXPORT VStatus solveLinear(const VImage& a, const VImage& b, VImage* x, MatrixDecomposition method);

VEXA_EXPORT VStatus dftImage(const VImage& src, VImage* real, VImage* imaginary);
VEXA_EXPORT VStatus inverseDftImage(const VImage& real, const VImage& imaginary, VImage* dst);

VEXA_EXPORT VStatus getMinMax(const VImage& src, double* min, double* max, QPoint* minAt = nullptr,
                              QPoint* maxAt = nullptr, const VImage& mask = VImage());

} // namespace VEXA
