#include <vexa/imp/kernels/simd/row_kernels.h>
#include <vexa/imp/kernels/luminance.h>

#include <opencv2/core/utility.hpp>

#include <atomic>
#include <cmath>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace VEXA::simd {

const std::uint8_t* grayCorrection()
{
    static const auto table = [] {
        static std::uint8_t t[65536];
        for (int g = 0; g < 256; ++g)
            for (int b = 0; b < 256; ++b) {
                // 299 * 699 = 1 (mod 1000): the red value that completes a multiple of 1000, if any.
                const int need = (1000 - luma1000(b, g, 0) % 1000) % 1000;
                const int r = need * 699 % 1000;
                if (r > 255)
                    continue;
                const double gray = lumaOf(double(b), double(g), double(r));
                t[g << 8 | b] = std::uint8_t(int(std::trunc(gray)) != luma1000(b, g, r) / 1000);
            }
        return t;
    }();
    return table;
}

void finishStreaming()
{
#if defined(__SSE2__)
    _mm_sfence();
#else
    std::atomic_thread_fence(std::memory_order_seq_cst);
#endif
}

int availableRowKernels(const RowKernels** kernels, int capacity)
{
    int n = 0;
    if (n < capacity)
        kernels[n++] = &baselineKernels;
    if (n < capacity && cv::checkHardwareSupport(CV_CPU_AVX2))
        kernels[n++] = &avx2Kernels;
    if (n < capacity && cv::checkHardwareSupport(CV_CPU_AVX2) && cv::checkHardwareSupport(CV_CPU_AVX_512BW) &&
        cv::checkHardwareSupport(CV_CPU_AVX_512VBMI))
        kernels[n++] = &avx512Kernels();
    return n;
}

const RowKernels& rowKernels()
{
    static const RowKernels* best = [] {
        const RowKernels* all[3];
        return all[availableRowKernels(all, 3) - 1];
    }();
    return *best;
}

} // namespace VEXA::simd
