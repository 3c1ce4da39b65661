// Row kernels written with OpenCV's universal intrinsics, built twice: for the baseline instruction set
// (128-bit vectors) and for AVX2 (256-bit), the best build this CPU runs chosen once at run time. A third
// set, for processors with AVX-512 byte permutations (VBMI), is AVX2's with BGR to gray of its own. Where the
// universal intrinsics have no byte shuffle within 128-bit halves or no sum of absolute differences (the
// 3- and 4-byte re-layouts, BGR to gray, byte sums), the AVX2 build uses those instructions directly. Each converts one
// row of width pixels between raw 8-bit layouts and gives exactly the results of the generic kernels
// (imp/image_converters.h); tests hold the two builds against them. Plain declarations only: the AVX2 build
// includes this header, and nothing it includes may be compiled for AVX2 into shared inline code.
#pragma once

#include <cstddef>
#include <cstdint>


namespace VEXA::simd {

// The unsharp mask's rule for 4-byte BGRA-ordered pixels, as sharpenRow applies it. A pixel is sharpened when
// low <= |lum(blur) - lum(src)| <= high, lum = 0.114 B + 0.587 G + 0.299 R in double precision; then each of
// B, G, R becomes bound8u((s - b) * amount + b), the fourth byte staying the blurred one; otherwise the
// source pixel is copied whole. The row kernel decides by the exact integer 1000 * lum difference and asks
// the double-precision rule only where that sum sits exactly on a bound; it computes the components as
// b + (((s - b) * factor + bias) >> shift), which the caller has checked against the rule for every (s, b).
struct SharpenRule {
    double amount;
    int low, high;                    // the bounds as given
    std::int32_t lowSum, highSum;     // 1000 * the bounds, clamped to -1000 .. 256000
    std::int32_t factor, bias;
    int shift;
};

struct RowKernels {
    const char* name;
    // BGR (3 bytes) or BGRA-ordered 4-byte pixels to gray, by the double-precision rule.
    void (*bgrToGray)(const std::uint8_t* src, std::uint8_t* dst, int width);
    void (*bgraToGray)(const std::uint8_t* src, std::uint8_t* dst, int width);
    // Drops the fourth byte.
    void (*bgraToBgr)(const std::uint8_t* src, std::uint8_t* dst, int width);
    // Adds a fourth byte: 255, or with keepFourth the one the destination holds (XRGB's X is never written).
    void (*bgrToBgra)(const std::uint8_t* src, std::uint8_t* dst, int width, bool keepFourth);
    // (76 R + 150 G + 29 B) >> 8 of 3- or 4-byte BGR-ordered pixels, for histograms.
    void (*luminance)(const std::uint8_t* src, std::uint8_t* dst, int width, int pixelBytes);
    // The sum of count bytes.
    std::uint64_t (*sumBytes)(const std::uint8_t* src, int count);
    // YUV422 (Y0 U Y1 V per pair of pixels) to 4-byte BGRA-ordered pixels, fourth byte as above.
    void (*yuvToBgra)(const std::uint8_t* src, std::uint8_t* dst, int width, bool keepFourth);
    // Bytes to floats of the same values; with stream, by streaming stores (see streamBytes).
    void (*bytesToFloats)(const std::uint8_t* src, float* dst, int count, bool stream);
    // Each of n bytes replaced by the entry of the 256-byte table it names.
    void (*lookUpBytes)(const std::uint8_t* src, std::uint8_t* dst, std::size_t n, const std::uint8_t* table);
    // 255 - each byte; with stream, by streaming stores.
    void (*invertBytes)(const std::uint8_t* src, std::uint8_t* dst, std::size_t count, bool stream);
    // Copies n bytes with stores that bypass the caches where the destination is vector-aligned; the
    // writer must call finishStreaming() before anyone else may read them.
    void (*streamBytes)(std::uint8_t* dst, const std::uint8_t* src, std::size_t n);
    // Per 4-byte BGRA-ordered pixel: float(|L(s) - L(b)|) * factor, L = 114 B + 587 G + 299 R exactly.
    void (*contrastRow)(const std::uint8_t* src, const std::uint8_t* blurred, float* dst, int width, float factor);
    // dst holds the blurred row and receives the sharpened one (see SharpenRule).
    void (*sharpenRow)(const std::uint8_t* src, std::uint8_t* dst, int width, const SharpenRule& rule);
};

// Orders the streaming stores before every later store (a store fence).
void finishStreaming();

// The kernels of this CPU's best build.
const RowKernels& rowKernels();
// Every build this CPU can run, the baseline first (for tests).
int availableRowKernels(const RowKernels** kernels, int capacity);

// Per (green << 8 | blue): 1 where the one red value that makes 587 G + 114 B + 299 R a multiple of 1000
// gives a double-precision gray one below the integer quotient. Built once, from the rule itself.
const std::uint8_t* grayCorrection();

extern const RowKernels baselineKernels;
extern const RowKernels avx2Kernels;
const RowKernels& avx512Kernels(); // AVX2's, BGR to gray by AVX-512 byte permutations (VBMI)

} // namespace VEXA::simd
