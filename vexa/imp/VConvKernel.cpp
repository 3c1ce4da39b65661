#include <vexa/imp/VConvKernel.h>

#include <vexa/imp/ImageData.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/exceptions.h>

#include <opencv2/imgproc.hpp>

using namespace VEXA;

VConvKernel::VConvKernel() = default;

VConvKernel::VConvKernel(int cols, int rows, int anchorX, int anchorY, ConvKernelShape shape)
    : cols_(cols), rows_(rows), anchorX_(anchorX), anchorY_(anchorY), shape_(shape)
{
}

VConvKernel::VConvKernel(const VConvKernel& other)
    : cols_(other.cols_), rows_(other.rows_), anchorX_(other.anchorX_), anchorY_(other.anchorY_),
      shape_(other.shape_), customValues_(other.customValues_)
{
}

VConvKernel& VConvKernel::operator=(const VConvKernel& other)
{
    if (this != &other) {
        cols_ = other.cols_;
        rows_ = other.rows_;
        anchorX_ = other.anchorX_;
        anchorY_ = other.anchorY_;
        shape_ = other.shape_;
        customValues_ = other.customValues_;
        dropCache();
    }
    return *this;
}

VConvKernel::~VConvKernel() = default;

void VConvKernel::dropCache() { kernel_.reset(); }

void VConvKernel::setCols(int cols)
{
    cols_ = cols;
    dropCache();
}

void VConvKernel::setRows(int rows)
{
    rows_ = rows;
    dropCache();
}

void VConvKernel::setAnchorX(int anchorX)
{
    anchorX_ = anchorX;
    dropCache();
}

void VConvKernel::setAnchorY(int anchorY)
{
    anchorY_ = anchorY;
    dropCache();
}

void VConvKernel::setShape(ConvKernelShape shape)
{
    shape_ = shape;
    dropCache();
}

void VConvKernel::setCustomValues(const QList<QVariant>& values)
{
    customValues_ = flatten(values);
    dropCache();
}

QList<QVariant> VConvKernel::flatten(const QList<QVariant>& list)
{
    QList<QVariant> flat;
    for (const QVariant& v : list) {
        // canConvert<QVariantList>() holds for strings too: only a real list is opened.
        if (v.typeId() == QMetaType::QVariantList)
            flat.append(flatten(v.toList()));
        else
            flat.append(v);
    }
    return flat;
}

bool VConvKernel::operator==(const VConvKernel& other) const
{
    if (cols_ != other.cols_ || rows_ != other.rows_ || anchorX_ != other.anchorX_ || anchorY_ != other.anchorY_ ||
        shape_ != other.shape_ || customValues_.size() != other.customValues_.size())
        return false;
    for (qsizetype i = customValues_.size() - 1; i >= 0; --i)
        if (customValues_.at(i) != other.customValues_.at(i))
            return false;
    return true;
}

const StructuringElement& VConvKernel::element()
{
    if (kernel_)
        return *kernel_;
    // OpenCV's own precondition for a structuring element, with its text.
    const cv::Point anchor(anchorX_, anchorY_);
    if (!(cols_ > 0 && rows_ > 0 && anchor.inside(cv::Rect(0, 0, cols_, rows_))))
        throw cv::Exception(cv::Error::StsAssert,
                            "cols > 0 && rows > 0 && anchor.inside(cv::Rect(0,0,cols,rows)) && "
                            "(shape != CV_SHAPE_CUSTOM || values != 0)",
                            "cvCreateStructuringElementEx", __FILE__, __LINE__);
    if (qint64(cols_) * rows_ > imageSizeLimit())
        throw dip_exception("Structuring element is too large");

    auto built = std::make_unique<StructuringElement>();
    built->anchor = anchor;
    if (shape_ == ConvKernelValues) {
        const QList<QVariant> values = flatten(customValues_);
        if (values.size() != qsizetype(cols_) * rows_)
            throw dip_exception("Custom element needs cols * rows values");
        built->values.create(rows_, cols_, CV_8U);
        uchar* p = built->values.ptr();
        for (qsizetype i = 0; i < values.size(); ++i)
            p[i] = values.at(i).toInt() != 0 ? 1 : 0;
    } else {
        // Rectangle, cross and ellipse; OpenCV refuses every other code, the library's custom 3 included.
        built->values = cv::getStructuringElement(int(shape_), cv::Size(cols_, rows_), anchor);
    }
    kernel_ = std::move(built);
    return *kernel_;
}

const StructuringElement* VConvKernel::kernel()
{
    const StructuringElement* result = nullptr;
    const VStatus status = guarded(VEXA_CALL_SITE, [&] {
        result = &element();
        return VStatus::Ok;
    });
    setStatus(status);
    return status ? result : nullptr;
}
