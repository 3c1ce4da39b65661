// The argument checks every operation runs before its kernel, in the order it calls them; each fixed text
// lives in one place here.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/VImageList.h>

namespace VEXA {

void checkStatus(const VImage& image);   // "Bad status of image!"
void checkNotEmpty(const VImage& image); // "Empty source image!"
// A source: status, then emptiness.
void checkSource(const VImage& image);
// A list's status and emptiness, checked like a source's, then each of its images as a source; their handles.
QList<VImage> checkSources(const VImageList& list);
// A destination the operation fills or creates: must not be null; its cached hash is cleared.
VImage& checkDestination(VImage* image);
// A destination that must already exist: as above, then the two source tests.
VImage& checkExistingDestination(VImage* image);
// A destination that the operation makes like `model` when it is empty (same header, same roi, zeros
// outside the roi and in the row padding); an existing one must pass the source tests and is written in
// place.
VImage& prepareDestination(const VImage& model, VImage* image);
// Whether prepareDestination makes *image (an empty image with a good status) rather than writing into it:
// kernels that leave a component of an existing destination as it was must fill it in one just made.
bool makesDestination(const VImage* image);
// Declared before prepareDestination: if the call then makes *image and fails after it (an exception
// leaves the scope: a cancellation, an OpenCV error, memory), the image is taken back to the empty one it
// was. Its pixels would otherwise be neither a result nor the caller's, and a recycled buffer can still
// hold another image's where the call had not yet written. Nested scopes keep their own images.
class TakeBackOnFailure {
public:
    explicit TakeBackOnFailure(VImage* image) noexcept;
    ~TakeBackOnFailure();
    TakeBackOnFailure(const TakeBackOnFailure&) = delete;
    TakeBackOnFailure& operator=(const TakeBackOnFailure&) = delete;
    // Whether the call makes the image (it was empty with a good status): what makesDestination() said.
    bool made() const { return image_ != nullptr; }

private:
    VImage* image_;
    int unwinding_;
    const TakeBackOnFailure* outer_;
    friend bool writesMadeDestination(const void* data) noexcept;
};
// Whether `data` lies in the pixels of a destination the innermost such scope on this thread has made:
// a failure will take them back, so the call may write them as it goes instead of through a scratch copy.
bool writesMadeDestination(const void* data) noexcept;
// As prepareDestination, with another format and channel type for a new destination.
VImage& prepareDestination(const VImage& model, VImage* image, Format format, Channel channel);
// The regions of interest (clipped to their images) of two images must have one size: "Image sizes differ".
void checkSameSize(const VImage& a, const VImage& b);
// Any other output pointer must not be null.
void throwNullArgument();
template <class T> T& checkOutput(T* pointer)
{
    if (!pointer)
        throwNullArgument();
    return *pointer;
}

} // namespace VEXA
