// OpenCV's image header over a VImage's own memory, at its region of interest (clipped to the image).
// It never owns pixels: the image it was built from must outlive it and every header it hands out.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <opencv2/core/types_c.h>

namespace VEXA {

class VEXA_EXPORT ocvImage {
public:
    explicit ocvImage(const VImage& image);
    ocvImage(const ocvImage& other);
    ocvImage& operator=(const ocvImage& other);
    ~ocvImage();

    // A copy of the header; its roi points into this object.
    IplImage asIplImage() const;

private:
    IplImage header_;
    IplROI roi_;
};

} // namespace VEXA
