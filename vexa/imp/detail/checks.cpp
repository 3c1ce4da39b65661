#include <vexa/imp/detail/checks.h>

#include <vexa/imp/exceptions.h>

#include <cstring>
#include <exception>

namespace VEXA {

void throwNullArgument() { throw dip_exception("Null pointer argument!"); }

void checkStatus(const VImage& image)
{
    if (!image.status())
        throw dip_exception_bad_status();
}

void checkNotEmpty(const VImage& image)
{
    if (image.isEmpty())
        throw dip_exception_empty_source_image();
}

void checkSource(const VImage& image)
{
    checkStatus(image);
    checkNotEmpty(image);
}

QList<VImage> checkSources(const VImageList& list)
{
    if (!list.status())
        throw dip_exception_bad_status();
    if (list.isEmpty())
        throw dip_exception_empty_source_image();
    QList<VImage> images;
    for (int i = 0; i < list.count(); ++i) {
        images.append(list.at(unsigned(i)));
        checkSource(images.last());
    }
    return images;
}

VImage& checkDestination(VImage* image)
{
    VImage& dst = checkOutput(image);
    dst.resetHash();
    return dst;
}

VImage& checkExistingDestination(VImage* image)
{
    VImage& dst = checkDestination(image);
    checkSource(dst);
    return dst;
}

VImage& prepareDestination(const VImage& model, VImage* image)
{
    return prepareDestination(model, image, model.format(), model.channelType());
}

bool makesDestination(const VImage* image) { return image && image->status() && image->isEmpty(); }

namespace {
thread_local const TakeBackOnFailure* innermostTakeBack = nullptr;
}

TakeBackOnFailure::TakeBackOnFailure(VImage* image) noexcept
    : image_(makesDestination(image) ? image : nullptr), unwinding_(std::uncaught_exceptions()),
      outer_(innermostTakeBack)
{
    innermostTakeBack = this;
}

TakeBackOnFailure::~TakeBackOnFailure()
{
    innermostTakeBack = outer_;
    if (!image_ || std::uncaught_exceptions() <= unwinding_)
        return;
    try {
        image_->clear();
    } catch (...) { // no memory even for an empty handle: the pixels are zeroed instead
        if (!image_->isEmpty())
            std::memset(image_->rawData(), 0, size_t(image_->dataSize()));
    }
}

bool writesMadeDestination(const void* data) noexcept
{
    const TakeBackOnFailure* scope = innermostTakeBack;
    if (!scope || !scope->image_ || scope->image_->isEmpty())
        return false;
    const VImage& made = *scope->image_;
    const auto* first = made.rawData();
    const auto* at = static_cast<const unsigned char*>(data);
    return at >= first && at < first + made.dataSize();
}

VImage& prepareDestination(const VImage& model, VImage* image, Format format, Channel channel)
{
    VImage& dst = checkDestination(image);
    if (makesDestination(&dst)) {
        dst.create(model.width(), model.height(), format, channel, model.origin(), model.rowsAlignment());
        dst.setRoi(model.roi());
        // The operation writes the roi only. Elsewhere a recycled buffer still holds another image's
        // pixels, which would leave with the result, its byte array or its file: the margins are cleared
        // here, once for every operation, and the roi is not (it is about to be overwritten).
        clearOutside(dst.rawData(), dst.width(), dst.height(), dst.format(), dst.channelType(), dst.roiRect());
    }
    checkSource(dst);
    return dst;
}

namespace {
Rect clippedRoi(const VImage& image)
{
    return clipRect(image.roiRect(), image.width(), image.height());
}
} // namespace

void checkSameSize(const VImage& a, const VImage& b)
{
    const Rect ra = clippedRoi(a), rb = clippedRoi(b);
    if (ra.width != rb.width || ra.height != rb.height)
        throw dip_exception("Image sizes differ");
}

} // namespace VEXA
