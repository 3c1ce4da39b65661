// Built with -mavx2. OpenCV's headers enable their 256-bit intrinsics only inside OpenCV's own build, so
// the instruction sets are declared here, and the intrinsics get a namespace of their own: no inline code
// of this file can stand in for baseline code elsewhere.
#include <immintrin.h>

#define CV_CPU_OPTIMIZATION_HAL_NAMESPACE hal_vexa_avx2
#define CV_CPU_OPTIMIZATION_HAL_NAMESPACE_BEGIN namespace hal_vexa_avx2 {
#define CV_CPU_OPTIMIZATION_HAL_NAMESPACE_END }
#define CV_SSE 1
#define CV_SSE2 1
#define CV_SSE3 1
#define CV_SSSE3 1
#define CV_SSE4_1 1
#define CV_SSE4_2 1
#define CV_POPCNT 1
#define CV_AVX 1
#define CV_AVX2 1

#include <vexa/imp/kernels/simd/row_kernels.h>

#include <opencv2/core/hal/intrin.hpp>

static_assert(CV_SIMD256, "this file must be compiled for AVX2");

#define VEXA_SIMD_NAME avx2
#include "row_kernels.inl"

namespace VEXA::simd {

const RowKernels avx2Kernels{"avx2", avx2::bgrToGray, avx2::bgraToGray, avx2::bgraToBgr, avx2::bgrToBgra, avx2::luminance, avx2::sumBytes, avx2::yuvToBgra,
    avx2::bytesToFloats, avx2::lookUpBytes, avx2::invertBytes, avx2::streamBytes, avx2::contrastRow, avx2::sharpenRow};

} // namespace VEXA::simd
