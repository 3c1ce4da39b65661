// One case per fault that a sanitizer or the fuzzers found, with the input that showed it.
#include "support/LogCapture.h"
#include "support/images.h"

#include <gtest/gtest.h>

#include <limits>

using namespace VEXA;

namespace {

// UBSan: a header of 2^30 x 2^30 ARGB 32f pixels overflowed the 64-bit size product.
TEST(Regressions, AbsurdHeadersSaturateTheirSize)
{
    EXPECT_EQ(dataSizeFor(1 << 30, 1 << 30, ARGB, Channel32f), std::numeric_limits<qint64>::max());
    EXPECT_EQ(dataSizeFor(INT32_MAX, INT32_MAX, XRGB, Channel32s), std::numeric_limits<qint64>::max());
    VImage image;
    image.create(1L << 30, 1L << 30, ARGB, Channel32f, OriginBottomLeft, RowsAlignNone);
    EXPECT_FALSE(image.status());
}

// UBSan: the hue of float or 32-bit components overflowed 32-bit arithmetic.
TEST(Regressions, HueOfHugeComponentsStaysInRange)
{
    EXPECT_EQ(createHue(804257792, 0, INT32_MIN), 43); // 2^31 * 60 / (804257792 + 2^31), truncated
    for (const auto& c : {std::array<int, 3>{INT32_MAX, INT32_MIN, 0}, {0, INT32_MAX, INT32_MIN}, {INT32_MIN, 0, INT32_MAX}}) {
        const int h = createHue(c[0], c[1], c[2]);
        EXPECT_GE(h, 0);
        EXPECT_LE(h, 360);
    }
    VImage floats = makeImage(2, 2, BGR, Channel32f);
    double huge[3] = {3e9, -3e9, 1e30};
    fillImage(&floats, huge, 3);
    VImage mask;
    EXPECT_TRUE(thresholdImageHue(floats, &mask, ThresholdBinary, 0, 360));
}

} // namespace
