// Row kernels written with OpenCV's universal intrinsics, built twice: for the baseline instruction set
// (128-bit vectors) and for AVX2 (256-bit), the better of the two chosen once at run time. Each converts one
// row of width pixels between raw 8-bit layouts and gives exactly the results of the generic kernels
// (imp/image_converters.h); tests hold the two builds against them. Plain declarations only: the AVX2 build
// includes this header, and nothing it includes may be compiled for AVX2 into shared inline code.
#pragma once

#include <cstddef>
#include <cstdint>

#include <vexa/vexa_export.h>

namespace VEXA::simd {

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
    // 255 - each byte; with stream, by streaming stores.
    void (*invertBytes)(const std::uint8_t* src, std::uint8_t* dst, std::size_t count, bool stream);
    // Copies n bytes with stores that bypass the caches where the destination is vector-aligned; the
    // writer must call finishStreaming() before anyone else may read them.
    void (*streamBytes)(std::uint8_t* dst, const std::uint8_t* src, std::size_t n);
};

// Orders the streaming stores before every later store (a store fence).
VEXA_EXPORT void finishStreaming();

// The kernels of this CPU's best build.
VEXA_EXPORT const RowKernels& rowKernels();
// Every build this CPU can run, the baseline first (for tests).
VEXA_EXPORT int availableRowKernels(const RowKernels** kernels, int capacity);

// Per (green << 8 | blue): 1 where the one red value that makes 587 G + 114 B + 299 R a multiple of 1000
// gives a double-precision gray one below the integer quotient. Built once, from the rule itself.
VEXA_EXPORT const std::uint8_t* grayCorrection();

extern const RowKernels baselineKernels;
extern const RowKernels avx2Kernels;

} // namespace VEXA::simd
