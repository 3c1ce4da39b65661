/// @file
/// @brief OpenCV's image header over a VImage's own memory (group @ref exchange).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <opencv2/core/types_c.h>

namespace VEXA {

/// @addtogroup exchange
/// **OpenCV's image header** (ocvImage): an IplImage over a VImage's own memory, at its region of
/// interest, for calling OpenCV on the library's images without copying them.
/// @{

/// OpenCV's image header over a VImage's own memory, at its region of interest (clipped to the image).
/// It never owns pixels: the image it was built from must outlive it and every header it hands out.
///
/// The header has the image's width, height, bytes per line and data size, the channels of its format and
/// the IplImage depth of its channel type, interleaved data, and origin 1 (bottom-left) for every image
/// origin but 0 (top-left); its roi covers all channels. Copies are independent headers over the same
/// pixels. OpenCV may write the pixels through a header: every VImage sharing that buffer sees the change.
/// Headers of one image may be built and read on several threads at once.
class VEXA_EXPORT ocvImage {
public:
    /// The header of @p image at its roi.
    explicit ocvImage(const VImage& image);
    /// A copy of @p other's header and roi, with the roi now this object's own.
    ocvImage(const ocvImage& other);
    /// Takes @p other's header and roi, with the roi now this object's own.
    ocvImage& operator=(const ocvImage& other);
    /// Destroys the header; the pixels stay the image's.
    ~ocvImage();

    /// A copy of the header; its roi points into this object, so it is valid while this object lives.
    IplImage asIplImage() const;

private:
    IplImage header_;
    IplROI roi_;
};

/// @}

} // namespace VEXA
