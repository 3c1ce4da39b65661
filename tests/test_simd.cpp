// The vectorised row kernels, every build this CPU runs, against the rules they must reproduce exactly.
#include "support/images.h"

#include <vexa/imp/kernels/simd/row_kernels.h>

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <random>
#include <vector>

using namespace VEXA;

namespace {

std::vector<const simd::RowKernels*> builds()
{
    const simd::RowKernels* all[4];
    const int n = simd::availableRowKernels(all, 4);
    return std::vector<const simd::RowKernels*>(all, all + n);
}

int grayRule(int b, int g, int r) { return int(0.587 * double(g) + 0.114 * double(b) + 0.299 * double(r)); }

TEST(RowKernels, GrayIsTheDoubleRuleForAllSixteenMillionColours)
{
    std::vector<std::uint8_t> bgr(3u << 24), bgra(4u << 24), gray(1u << 24);
    for (std::uint32_t i = 0; i < (1u << 24); ++i) {
        for (int c = 0; c < 3; ++c)
            bgr[3 * i + c] = bgra[4 * i + c] = std::uint8_t(i >> (8 * c));
        bgra[4 * i + 3] = std::uint8_t(i * 7);
    }
    std::vector<std::uint8_t> expected(1u << 24);
    for (std::uint32_t i = 0; i < (1u << 24); ++i)
        expected[i] = std::uint8_t(grayRule(i & 255, (i >> 8) & 255, i >> 16));
    for (const simd::RowKernels* k : builds()) {
        for (int rows = 0; rows < 4096; ++rows)
            k->bgrToGray(bgr.data() + 3 * 4096 * rows, gray.data() + 4096 * rows, 4096);
        EXPECT_TRUE(gray == expected) << k->name << " BGR";
        for (int rows = 0; rows < 4096; ++rows)
            k->bgraToGray(bgra.data() + 4 * 4096 * rows, gray.data() + 4096 * rows, 4096);
        EXPECT_TRUE(gray == expected) << k->name << " BGRA";
    }
    // And through the operation, on an image of every colour.
    VImage image;
    image.set(bgr.data(), 4096, 4096, BGR, Channel8u, OriginBottomLeft, RowsAlignNone);
    VImage out;
    out.create(4096, 4096, GrayScale, Channel8u, OriginBottomLeft, RowsAlignNone);
    ASSERT_TRUE(convertImage(image, &out));
    EXPECT_EQ(std::memcmp(out.rawData(), expected.data(), expected.size()), 0);
}

TEST(RowKernels, ReLayoutsMatchTheirScalarRules)
{
    std::mt19937 random(3);
    for (const simd::RowKernels* k : builds())
        for (int w : {1, 2, 3, 15, 31, 32, 33, 63, 64, 65, 127, 200}) {
            std::vector<std::uint8_t> src(4 * w + 64), dst(4 * w + 64), before;
            for (auto& b : src)
                b = std::uint8_t(random());
            for (auto& b : dst)
                b = std::uint8_t(random());
            before = dst;
            for (int bytes : {3, 4}) {
                k->luminance(src.data(), dst.data(), w, bytes);
                for (int x = 0; x < w; ++x) {
                    const std::uint8_t* p = src.data() + bytes * x;
                    ASSERT_EQ(dst[x], (76 * p[2] + 150 * p[1] + 29 * p[0]) >> 8) << k->name << " luminance w " << w;
                }
            }
            std::vector<float> contrast(static_cast<size_t>(w));
            k->contrastRow(src.data(), dst.data(), contrast.data(), w, 0.003f);
            for (int x = 0; x < w; ++x) {
                const std::uint8_t *p = src.data() + 4 * x, *q = dst.data() + 4 * x;
                const int l = 114 * (p[0] - q[0]) + 587 * (p[1] - q[1]) + 299 * (p[2] - q[2]);
                ASSERT_EQ(contrast[size_t(x)], float(std::abs(l)) * 0.003f) << k->name << " contrast w " << w;
            }
            dst = before;
            k->bgraToBgr(src.data(), dst.data(), w);
            for (int x = 0; x < w; ++x)
                for (int c = 0; c < 3; ++c)
                    ASSERT_EQ(dst[3 * x + c], src[4 * x + c]) << k->name << " w " << w;
            ASSERT_TRUE(std::equal(dst.begin() + 3 * w, dst.end(), before.begin() + 3 * w)) << "nothing past the row";

            // Byte-for-byte kernels, written from dst[1] (off the vector alignment), nothing around the row touched.
            const auto bytewise = [&](const char* what, auto run, auto rule) {
                dst = before;
                run();
                simd::finishStreaming();
                for (int x = 0; x < w; ++x)
                    ASSERT_EQ(dst[x + 1], rule(src[x])) << k->name << " " << what << " w " << w;
                ASSERT_EQ(dst[0], before[0]);
                ASSERT_TRUE(std::equal(dst.begin() + w + 1, dst.end(), before.begin() + w + 1));
            };
            for (bool stream : {false, true})
                bytewise("invert", [&] { k->invertBytes(src.data(), dst.data() + 1, size_t(w), stream); }, [](int b) { return 255 - b; });
            bytewise("stream", [&] { k->streamBytes(dst.data() + 1, src.data(), size_t(w)); }, [](int b) { return b; });
            std::uint8_t table[256];
            for (auto& t : table)
                t = std::uint8_t(random());
            bytewise("look up", [&] { k->lookUpBytes(src.data(), dst.data() + 1, size_t(w), table); }, [&table](int b) { return table[b]; });
            for (bool stream : {false, true}) {
                std::vector<float> floats(size_t(w) + 2, -1.0f); // from floats[1]: off the vector alignment
                k->bytesToFloats(src.data(), floats.data() + 1, w, stream);
                simd::finishStreaming();
                for (int x = 0; x < w; ++x)
                    ASSERT_EQ(floats[size_t(x) + 1], float(src[x])) << k->name << " w " << w;
                ASSERT_EQ(floats[0], -1.0f);
                ASSERT_EQ(floats[size_t(w) + 1], -1.0f);
            }

            for (bool keep : {false, true}) {
                dst = before;
                k->bgrToBgra(src.data(), dst.data(), w, keep);
                for (int x = 0; x < w; ++x) {
                    for (int c = 0; c < 3; ++c)
                        ASSERT_EQ(dst[4 * x + c], src[3 * x + c]) << k->name << " w " << w;
                    ASSERT_EQ(dst[4 * x + 3], keep ? before[4 * x + 3] : 255) << k->name << " w " << w;
                }
                ASSERT_TRUE(std::equal(dst.begin() + 4 * w, dst.end(), before.begin() + 4 * w));

                dst = before;
                k->yuvToBgra(src.data(), dst.data(), w, keep);
                for (int x = 0; x < w; ++x) {
                    const int pair = x & ~1;
                    const int u = src[2 * pair + 1] - 128, v = (pair + 1 < w ? src[2 * pair + 3] : 128) - 128;
                    const int y = src[2 * x];
                    const int expected[3] = {y + ((u * 1814) >> 10), y + ((u * -352 - v * 733) >> 10), y + ((v * 1435) >> 10)};
                    for (int c = 0; c < 3; ++c)
                        ASSERT_EQ(dst[4 * x + c], std::clamp(expected[c], 0, 255)) << k->name << " w " << w << " x " << x;
                    ASSERT_EQ(dst[4 * x + 3], keep ? before[4 * x + 3] : 255);
                }
            }
        }
}

TEST(RowKernels, ByteSumsCoverEveryLength)
{
    std::vector<std::uint8_t> bytes(20000, 255); // the worst case for the narrow accumulators
    std::mt19937 random(5);
    for (size_t i = 0; i < bytes.size(); i += 3)
        bytes[i] = std::uint8_t(random());
    for (const simd::RowKernels* k : builds())
        for (int n : {0, 1, 31, 32, 33, 4095, 4096, 4097, 20000})
            EXPECT_EQ(k->sumBytes(bytes.data(), n), std::accumulate(bytes.begin(), bytes.begin() + n, std::uint64_t(0)))
                << k->name << " " << n;
}

TEST(RowKernels, TheBestBuildIsChosen)
{
    const auto all = builds();
    ASSERT_FALSE(all.empty());
    EXPECT_STREQ(all.front()->name, "baseline");
    EXPECT_EQ(&simd::rowKernels(), all.back());
}

// Random bytes a 32-bit word at a time: this image is large.
VImage noise(int w, int h, Format f, unsigned seed)
{
    VImage image;
    image.create(w, h, f, Channel8u, OriginBottomLeft, RowsAlignNone);
    std::mt19937 random(seed);
    unsigned char* bytes = image.rawData();
    for (long i = 0, size = image.dataSize(); i + 4 <= size; i += 4) {
        const std::uint32_t word = random();
        std::memcpy(bytes + i, &word, 4);
    }
    image.resetHash();
    return image;
}

TEST(Streaming, LargeCopiesStreamEveryRowIntoItsPlace)
{
    const int w = 2371, h = 2400; // 17 MB: past the streaming size
    VImage src = noise(w, h, BGR, 1), dst = noise(w, h, BGR, 2);
    const VImage before = dst.copy();
    src.setRoi(QRect(0, 0, w - 1, h));
    dst.setRoi(QRect(1, 0, w - 1, h)); // rows start off the vector alignment
    ASSERT_TRUE(copyImage(src, &dst));
    for (int y = 0; y < h; ++y) {
        ASSERT_EQ(std::memcmp(pixelAt(dst, 1, y), pixelAt(src, 0, y), size_t(3 * (w - 1))), 0) << "row " << y;
        ASSERT_EQ(std::memcmp(pixelAt(dst, 0, y), pixelAt(before, 0, y), 3), 0) << "outside the roi, row " << y;
    }
}

} // namespace
