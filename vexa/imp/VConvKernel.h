/// @file
/// @brief The structuring element of the morphological operations (group @ref figures).
#pragma once

#include <QList>
#include <QVariant>

#include <memory>

#include <vlog/VLog.h>
#include <vexa/vexa_export.h>

#include <opencv2/core/mat.hpp>

namespace VEXA {

/// @addtogroup figures
/// **Structuring elements** (VConvKernel): the element of erosion, dilation and the compound morphological
/// operations: its size, anchor and shape, and for a custom element its values.
///
/// The element itself is built by VConvKernel::kernel() on first use and cached; every setter drops the
/// cache, and copies take the description, never the cache. The shape is handed to OpenCV as its shape
/// code: rectangle, cross and ellipse build OpenCV's own elements. ConvKernelCustom (3) is passed on as it
/// is, and OpenCV refuses it, with values or without: an element of that shape always fails with OpenCV's
/// error, as it always has. ConvKernelValues (100) is the working custom element: customValues, flattened,
/// read row by row with toInt(), give cols x rows values, non-zero meaning inside; any other count is
/// refused.
///
/// **Failures** of building an element (VConvKernel::kernel(), and the morphological operations, which
/// fail with the same texts): a size of 0 or less, or an anchor outside cols x rows, fails with OpenCV's
/// assertion (-215) "cols > 0 && rows > 0 && anchor.inside(cv::Rect(0,0,cols,rows)) && (shape !=
/// CV_SHAPE_CUSTOM || values != 0)" in cvCreateStructuringElementEx; more than imageSizeLimit() cells with
/// "Structuring element is too large"; ConvKernelValues with a count of values other than cols x rows with
/// "Custom element needs cols * rows values"; a shape code other than 0, 1, 2 and 100 with OpenCV's own
/// error.
///
/// **Threads:** not thread-safe: kernel() fills the cache. Operations take the element by value and build
/// their own, so one element may be handed to operations on several threads at once (copying reads only
/// the description); an element whose kernel() or setters run must not be used by another thread meanwhile.
/// @{

/// The shape of a VConvKernel, as OpenCV's shape codes where OpenCV has them.
enum ConvKernelShape : qint32 {
    ConvKernelRect = 0,     ///< A filled rectangle of cols x rows.
    ConvKernelCross = 1,    ///< A cross: the anchor's row and column.
    ConvKernelEllipse = 2,  ///< The filled ellipse inscribed in cols x rows, as OpenCV draws it.
    ConvKernelCustom = 3,   ///< Passed on to OpenCV, which refuses it: always fails (use ConvKernelValues).
    ConvKernelValues = 100, ///< The cells given by VConvKernel::customValues(), non-zero meaning inside.
};

/// A built element: cols x rows bytes, 1 inside and 0 outside, and the anchor inside it.
struct StructuringElement {
    cv::Mat values;   ///< rows x cols, CV_8U, 1 inside and 0 outside.
    cv::Point anchor; ///< The anchor, (anchorX, anchorY), inside the element.
};

/// Gives the morphological operations the element with its failures thrown into their frame. Used by
/// those operations; not needed by callers (declared only).
struct ConvKernelAccess;

/// @}

} // namespace VEXA

/// @addtogroup figures
/// @{

/// A structuring element: size, anchor, shape and, for ConvKernelValues, its values, with the element
/// built from them on first use and cached (see the group's rules for shapes and failures).
///
/// A value: copies take the description (size, anchor, shape, values), never the cache nor the status.
/// Not thread-safe (kernel() fills the cache); the morphological operations take it by value.
class VEXA_EXPORT VConvKernel {
public:
    /// An empty description: 0 x 0, anchor (0, 0), ConvKernelRect, no values. Building it fails.
    VConvKernel();
    /// A description of cols x rows with the anchor at (anchorX, anchorY) (column, row) and the shape;
    /// no values. Nothing is checked until the element is built.
    VConvKernel(int cols, int rows, int anchorX, int anchorY, VEXA::ConvKernelShape shape);
    /// Copies other's description; the cache is not copied and the status is good.
    VConvKernel(const VConvKernel& other);
    /// Takes other's description and drops this object's cache; its status stays as it was.
    VConvKernel& operator=(const VConvKernel& other);
    /// Destroys the description and the cached element.
    ~VConvKernel();

    /// The width of the element, in cells.
    int cols() const { return cols_; }
    /// The height of the element, in cells.
    int rows() const { return rows_; }
    /// The anchor's column, 0 to cols() - 1 for an element that builds.
    int anchorX() const { return anchorX_; }
    /// The anchor's row, 0 to rows() - 1 for an element that builds.
    int anchorY() const { return anchorY_; }
    /// The shape.
    VEXA::ConvKernelShape shape() const { return shape_; }
    /// The values of a ConvKernelValues element, flattened, row by row.
    QList<QVariant> customValues() const { return customValues_; }

    /// Sets cols() and drops the cache.
    void setCols(int cols);
    /// Sets rows() and drops the cache.
    void setRows(int rows);
    /// Sets anchorX() and drops the cache.
    void setAnchorX(int anchorX);
    /// Sets anchorY() and drops the cache.
    void setAnchorY(int anchorY);
    /// Sets shape() and drops the cache.
    void setShape(VEXA::ConvKernelShape shape);
    /// Stores the flattened list and drops the cache, like the other setters.
    /// Nested lists may give the rows (flatten()); the count is checked when the element is built.
    void setCustomValues(const QList<QVariant>& values);

    /// The cached element, built now if need be. OpenCV's checks apply (positive size, anchor inside, a
    /// shape it knows); an element larger than imageSizeLimit() bytes is refused. On failure: nullptr, the
    /// reason logged and kept in status().
    ///
    /// On success status() becomes good. The element stays valid until a setter, an assignment to this
    /// object or its destruction. The failure texts are in the group's rules.
    const VEXA::StructuringElement* kernel();

    /// Each element that is itself a list (a QVariantList, not a string or string list) replaced by its
    /// own flattened elements, in order.
    static QList<QVariant> flatten(const QList<QVariant>& list);

    /// Size, anchor, shape and values (QVariant equality, so 1 equals 1.0); cache and status play no part.
    /// The values are compared whatever the shape.
    bool operator==(const VConvKernel& other) const;
    /// The negation of operator==().
    bool operator!=(const VConvKernel& other) const { return !(*this == other); }

    /// The outcome of the last kernel() call; good before any, or what setStatus() set since.
    VStatus status() const { return status_; }
    /// Sets status(); const, since the status is not part of the description.
    void setStatus(const VStatus& status) const { status_ = status; }

private:
    friend struct VEXA::ConvKernelAccess;
    // As kernel(), for the operations: throws instead, inside their frame.
    const VEXA::StructuringElement& element();

    void dropCache();

    int cols_ = 0;
    int rows_ = 0;
    int anchorX_ = 0;
    int anchorY_ = 0;
    VEXA::ConvKernelShape shape_ = VEXA::ConvKernelRect;
    QList<QVariant> customValues_;
    std::unique_ptr<VEXA::StructuringElement> kernel_;
    mutable VStatus status_;
};

/// @}
