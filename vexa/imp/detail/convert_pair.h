// The frame both conversions share: their checks in order, then one pass of the kernel over the pair.
#pragma once

#include <vexa/imp/detail/checks.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>
#include <vexa/imp/detail/progress.h>
#include <vexa/imp/kernels/image_converters.h>

namespace VEXA {

template <template <class> class Targets, class Kernel>
VStatus convertPair(const VImage& source, VImage* destination, Kernel kernel)
{
    VImage& dst = checkDestination(destination);
    checkStatus(source);
    checkStatus(dst);
    checkNotEmpty(source);
    checkNotEmpty(dst);
    return runWhole("converting", [&] { return dispatchPairs<Targets>(ConvertSources{}, source, dst, kernel); });
}

} // namespace VEXA
