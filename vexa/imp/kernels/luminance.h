// The library's luminance formulas, each by name. Every one weighs blue, green and red 0.114, 0.587 and
// 0.299; they differ in the arithmetic, and each result is exact as written here: the double form adds the
// red term last (addition commutes, but does not associate), the integer forms are exact by construction.
// The vectorised row kernels repeat lumaOf in their own instruction sets (kernels/simd).
#pragma once

#include <cstdint>

namespace VEXA {

inline constexpr double lumaBlue = 0.114, lumaGreen = 0.587, lumaRed = 0.299;

// The gray of the conversions and the unsharp mask's luminance, in double precision.
inline double lumaOf(double b, double g, double r) { return lumaBlue * b + lumaGreen * g + lumaRed * r; }

// A thousand times the luminance, exactly: the tone tools' measure.
inline std::int32_t luma1000(std::int32_t b, std::int32_t g, std::int32_t r) { return 114 * b + 587 * g + 299 * r; }

// 8-bit fixed point, (29 B + 150 G + 76 R) / 256 truncated: the histograms' luminance channel and the
// weighted blender's.
inline int luma8(int b, int g, int r) { return (29 * b + 150 * g + 76 * r) >> 8; }

} // namespace VEXA
