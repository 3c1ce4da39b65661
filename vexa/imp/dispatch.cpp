#include <vexa/imp/dispatch.h>

namespace VEXA {

void throwUnsupported() { throw dip_exception_unsupported_parameters(); }

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

} // namespace VEXA
