/// @file
/// @brief Template matching, matrices and linear systems, the DFT and extreme values (group @ref matrix).
#pragma once

#include <QPoint>

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

namespace VEXA {

/// @addtogroup matrix
/// Template matching, images as matrices (inverse, linear systems), the discrete Fourier transform and the
/// extreme values of an image, over OpenCV on headers laid at the rois. Coordinates in and out are relative
/// to the rois.
///
/// **Pixel types:** each function names its own; the pairs are in @ref pairs_matrix_image. A matrix is a
/// GrayScale 32f image whose roi has `rows` = height and `cols` = width; no other pair is a matrix. Results
/// are GrayScale 32f.
///
/// **Destinations:** an empty one is made with the stated format, channel type and size (the source's origin
/// and rows alignment, the whole image as roi); an existing one must have that format and type and a roi of
/// that size, and is written through its roi. Results are computed apart and copied in only on success, so
/// a failed call leaves an existing destination untouched, and a destination may be one of the sources.
///
/// **Failures:** every operation checks its sources (status, then emptiness: "Bad status of image!",
/// "Empty source image!"), refuses pairs it does not list ("Can not find template with actual parameters!"),
/// null outputs ("Null pointer argument!") and destinations of the wrong size ("Image sizes differ"), and
/// reports OpenCV's own errors as statuses. Matrix values must be finite ("Matrix holds infinite or NaN
/// values"). Each function names its particular failures.
///
/// **Progress and cancellation:** none of these reports progress or can be cancelled.
///
/// **Threads:** reentrant. Calls on different images may run on any threads at once, and one source may be
/// read by several calls at once; a destination must not be used by another thread during the call.
/// @{

/// The measures of matchTemplate() (OpenCV's TM_* codes); any other value is refused ("Unknown template
/// matching method"). Sums run over the template's pixels and components, "window" being the part of the
/// source under the template.
enum TemplateMatchMethod : qint32 {
    TemplateSqDiff = 0,       ///< sum of squared differences
    TemplateSqDiffNormed = 1, ///< the same divided by sqrt(sum templ^2 * sum window^2)
    TemplateCCorr = 2,        ///< sum of products
    TemplateCCorrNormed = 3,  ///< the same divided by sqrt(sum templ^2 * sum window^2)
    TemplateCCoeff = 4,       ///< sum of products of the mean-free template and window
    TemplateCCoeffNormed = 5, ///< their correlation coefficient, -1 to 1
};

/// The decompositions of invertMatrix() and solveLinear() (OpenCV's DECOMP_* codes); any other value is
/// refused ("Unknown matrix decomposition").
enum MatrixDecomposition : qint32 {
    /// Gaussian elimination with partial pivoting; square matrices only.
    DecompositionLU = 0,
    /// Singular value decomposition: pseudo-inverse and least-squares (least-norm) solutions, any shape and
    /// rank.
    DecompositionSVD = 1,
    /// Cholesky: square, symmetric and positive definite matrices only (only the lower triangle is read).
    DecompositionCholesky = 3,
    /// QR: least-squares solutions for no fewer rows than columns and full column rank.
    DecompositionQR = 4,
};

/// The score of @p templ at every position where it lies wholly inside @p src's roi, by @p method. src and
/// templ are GrayScale or BGR, 8u or 32f, both of one pair; templ's roi is no larger than src's ("Template is
/// larger than the image"). @p result: GrayScale 32f of (W - w + 1) x (H - h + 1) for a W x H source roi and a
/// w x h template roi; result(x, y) scores templ's top-left corner at (x, y). @p best (may be null) receives
/// the position of the best score, the lowest for the two squared-difference measures and the highest
/// otherwise, and @p bestScore (may be null) that score; the first such position in row order wins a tie. A
/// result holding no comparable score (NaN throughout, from non-finite pixels) fails with "No comparable
/// score" when best or bestScore is asked for.
VEXA_EXPORT VStatus matchTemplate(const VImage& src, const VImage& templ, VImage* result, TemplateMatchMethod method,
                                  QPoint* best = nullptr, double* bestScore = nullptr);

/// The inverse of the matrix @p src into @p dst, a matrix of cols x rows (width = src's height), by
/// @p method:
/// - DecompositionLU: Gaussian elimination; src square.
/// - DecompositionCholesky: src square, symmetric and positive definite (only its lower triangle is read).
/// - DecompositionSVD: the pseudo-inverse, for any shape and any rank.
/// - DecompositionQR: the least-squares inverse (the solution of src * X = identity), for rows >= cols and
///   full column rank; for a square matrix, its inverse.
///
/// LU, Cholesky and QR fail with "Matrix is singular" (Cholesky: "Matrix is singular or not positive
/// definite") when the decomposition breaks down; every method, SVD included, fails so when the result
/// holds values beyond the float range (a matrix too close to singular). A non-square matrix
/// for LU or Cholesky fails with "Matrix is not square", one of fewer rows than columns for QR with
/// "Under-determined system: the matrix has fewer rows than columns".
VEXA_EXPORT VStatus invertMatrix(const VImage& src, VImage* dst, MatrixDecomposition method);
/// The matrix @p x with a * x = b, in the least-squares sense for an @p a of more rows than columns (QR and
/// SVD; LU and Cholesky need a square a, else "Matrix is not square"). a is rows x cols, b rows x k (the same
/// number of rows as a, else "Image sizes differ"), x cols x k. With QR and SVD, fewer rows than columns
/// fails ("Under-determined system: the matrix has fewer rows than columns"); singular systems fail as for
/// invertMatrix(), except with SVD, which gives the least-norm solution.
VEXA_EXPORT VStatus solveLinear(const VImage& a, const VImage& b, VImage* x, MatrixDecomposition method);

/// The forward 2-D transform of @p src's roi, unscaled, as OpenCV computes it on the roi converted to 32f.
/// The complex result comes as two GrayScale 32f images of the roi's size, one per part: the library has no
/// two-component pixel layout but YUV422, whose components mean luma and chroma, not a complex number. src
/// GrayScale 8u, 16u, 16s or 32f. @p real and @p imaginary must be distinct images, not sharing pixels
/// ("Real and imaginary parts need distinct images").
VEXA_EXPORT VStatus dftImage(const VImage& src, VImage* real, VImage* imaginary);
/// The inverse transform scaled by 1 / (width * height), so that the round trip gives the source back (up to
/// float rounding). @p real and @p imaginary are GrayScale 32f of one roi size ("Image sizes differ"
/// otherwise); @p dst, GrayScale 32f of that size, receives the real part of the result, which is all of it
/// for the transform of a real image. The full complex inverse is computed, so any spectrum gives its
/// inverse's real part.
VEXA_EXPORT VStatus inverseDftImage(const VImage& real, const VImage& imaginary, VImage* dst);

/// The lowest and highest values of a GrayScale @p src of any channel type into @p min and @p max, and their
/// first positions in row order into @p minAt and @p maxAt (which may be null). An empty @p mask means every
/// pixel of the roi; otherwise the mask is GrayScale 8u with a roi of src's roi size ("Image sizes differ"),
/// and only the pixels where it is non-zero count. A mask selecting nothing fails ("Mask selects no pixel"),
/// as does a 32f roi of NaN only ("No comparable value"); NaN pixels are otherwise skipped. A mask with a
/// failed status gives "Bad status of image!".
VEXA_EXPORT VStatus getMinMax(const VImage& src, double* min, double* max, QPoint* minAt = nullptr,
                              QPoint* maxAt = nullptr, const VImage& mask = VImage());

/// @}

} // namespace VEXA
