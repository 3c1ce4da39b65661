#include <vexa/imp/kernels/simd/row_kernels.h>

#include <opencv2/core/hal/intrin.hpp>

#define VEXA_SIMD_NAME baseline
#include "row_kernels.inl"

namespace VEXA::simd {

const RowKernels baselineKernels{"baseline", baseline::bgrToGray, baseline::bgraToGray, baseline::bgraToBgr,
                                 baseline::bgrToBgra, baseline::luminance, baseline::sumBytes, baseline::yuvToBgra,
    baseline::bytesToFloats, baseline::lookUpBytes, baseline::invertBytes, baseline::streamBytes, baseline::contrastRow, baseline::sharpenRow};

} // namespace VEXA::simd
