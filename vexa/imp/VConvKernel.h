// The structuring element of erosion, dilation and the compound morphological operations: its size, anchor
// and shape, and for a custom element its values.
//
// The element itself is built by kernel() on first use and cached; every setter drops the cache, and copies
// take the description, never the cache. The shape is handed to OpenCV as its shape code: rectangle, cross
// and ellipse build OpenCV's own elements. ConvKernelCustom (3) is passed on as it is, and OpenCV refuses
// it, with values or without: an element of that shape always fails with OpenCV's error, as it always has.
// ConvKernelValues (100) is the working custom element: customValues, flattened, read row by row with
// toInt(), give cols x rows values, non-zero meaning inside; any other count is refused.
//
// Not thread-safe: kernel() fills the cache. Operations take the element by value and build their own.
#pragma once

#include <QList>
#include <QVariant>

#include <memory>

#include <vlog/VLog.h>
#include <vexa/vexa_export.h>

#include <opencv2/core/mat.hpp>

namespace VEXA {

enum ConvKernelShape : qint32 {
    ConvKernelRect = 0,
    ConvKernelCross = 1,
    ConvKernelEllipse = 2,
    ConvKernelCustom = 3,
    ConvKernelValues = 100,
};

// A built element: cols x rows bytes, 1 inside and 0 outside, and the anchor inside it.
struct StructuringElement {
    cv::Mat values;
    cv::Point anchor;
};

struct ConvKernelAccess;

} // namespace VEXA

class VEXA_EXPORT VConvKernel {
public:
    VConvKernel();
    VConvKernel(int cols, int rows, int anchorX, int anchorY, VEXA::ConvKernelShape shape);
    VConvKernel(const VConvKernel& other);
    VConvKernel& operator=(const VConvKernel& other);
    ~VConvKernel();

    int cols() const { return cols_; }
    int rows() const { return rows_; }
    int anchorX() const { return anchorX_; }
    int anchorY() const { return anchorY_; }
    VEXA::ConvKernelShape shape() const { return shape_; }
    QList<QVariant> customValues() const { return customValues_; }

    void setCols(int cols);
    void setRows(int rows);
    void setAnchorX(int anchorX);
    void setAnchorY(int anchorY);
    void setShape(VEXA::ConvKernelShape shape);
    // Stores the flattened list and drops the cache, like the other setters.
    void setCustomValues(const QList<QVariant>& values);

    // The cached element, built now if need be. OpenCV's checks apply (positive size, anchor inside, a
    // shape it knows); an element larger than imageSizeLimit() bytes is refused. On failure: nullptr, the
    // reason logged and kept in status().
    const VEXA::StructuringElement* kernel();

    // Each element that is itself a list (a QVariantList, not a string or string list) replaced by its
    // own flattened elements, in order.
    static QList<QVariant> flatten(const QList<QVariant>& list);

    // Size, anchor, shape and values (QVariant equality, so 1 equals 1.0); cache and status play no part.
    bool operator==(const VConvKernel& other) const;
    bool operator!=(const VConvKernel& other) const { return !(*this == other); }

    VStatus status() const { return status_; }
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
