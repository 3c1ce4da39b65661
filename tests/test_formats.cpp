// The format and channel tables, their lookups and lists.
#include <vexa/Vexa.h>

#include <gtest/gtest.h>

using namespace VEXA;

namespace {

TEST(Formats, TableRowsAndUnknownValues)
{
    const struct { Format f; const char* name; int channels; } rows[] = {
        {GrayScale, "GrayScale", 1}, {BGR, "BGR", 3}, {ARGB, "ARGB", 4}, {XRGB, "XRGB", 4},
        {ARGB_Premultiplied, "ARGB_Premultiplied", 4}, {YUV422, "YUV422", 2}, {Invalid, "Invalid", 0},
        {Format(7), "Invalid", 0}, {Format(-2), "Invalid", 0}, {Format(1 << 30), "Invalid", 0},
    };
    for (const auto& row : rows) {
        const FormatInfo info = formatInfo(row.f);
        EXPECT_EQ(info.name, row.name) << row.f;
        EXPECT_EQ(info.channels, row.channels) << row.f;
        EXPECT_EQ(info.format, isValid(row.f) ? row.f : Invalid);
        EXPECT_EQ(channelsOf(row.f), row.channels);
    }
}

TEST(Channels, TableRowsKeepTheSymmetricSignedRanges)
{
    const struct { Channel c; const char* name; quint32 depth; int bits; bool integer; double min, max; } rows[] = {
        {Channel8u, "8u", 8, 8, true, 0.0, 255.0},
        {Channel8s, "8s", 0x80000008u, 8, true, -127.0, 127.0},
        {Channel16u, "16u", 16, 16, true, 0.0, 65535.0},
        {Channel16s, "16s", 0x80000010u, 16, true, -32767.0, 32767.0},
        {Channel32s, "32s", 0x80000020u, 32, true, -2147483647.0, 2147483647.0},
        {Channel32f, "32f", 32, 32, false, -3.4028234663852886e38, 3.4028234663852886e38},
        {ChannelInvalid, "Invalid", 0xFFFFFFFFu, 0, false, 0.0, 0.0},
        {Channel(6), "Invalid", 0xFFFFFFFFu, 0, false, 0.0, 0.0},
    };
    for (const auto& row : rows) {
        const ChannelInfo info = channelInfo(row.c);
        EXPECT_EQ(info.name, row.name) << row.c;
        EXPECT_EQ(quint32(info.depth), row.depth) << row.c;
        EXPECT_EQ(info.bits, row.bits) << row.c;
        EXPECT_EQ(bitsOf(row.c), row.bits) << row.c;
        EXPECT_EQ(info.isInteger, row.integer) << row.c;
        EXPECT_EQ(info.min, row.min) << row.c;
        EXPECT_EQ(info.max, row.max) << row.c;
    }
    EXPECT_EQ(float(channelInfo(Channel32f).max), std::numeric_limits<float>::max());
}

TEST(Formats, ListsHoldTheValidValuesInOrder)
{
    EXPECT_EQ(allFormats(), QList<Format>({GrayScale, BGR, ARGB, XRGB, ARGB_Premultiplied, YUV422}));
    EXPECT_EQ(allChannels(), QList<Channel>({Channel8u, Channel8s, Channel16u, Channel16s, Channel32s, Channel32f}));
    EXPECT_EQ(allOrigins(), QList<Origin>({Origin(0), Origin(1)}));
    EXPECT_EQ(allRowsAligns(), QList<RowsAlign>({RowsAlign(0), RowsAlign(1)}));
    EXPECT_EQ(allComponents().size(), 7);
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(allComponents()[i], i);
}

TEST(Formats, PixelStructuresKnowTheirFormatWhateverTheComponent)
{
    int checked = 0;
#define VEXA_CHECK(Struct, T)                                                                               \
    EXPECT_EQ(formatInfo<Struct<T>>().format, PixelTraits<Struct<T>>::format);                              \
    EXPECT_EQ(formatInfo<Struct<T>>().channels * int(sizeof(T)), int(sizeof(Struct<T>)));                  \
    EXPECT_EQ(channelInfo(PixelTraits<Struct<T>>::channel).bits, int(8 * sizeof(T)));                      \
    ++checked;
    VEXA_FOR_EACH_PIXEL(VEXA_CHECK)
#undef VEXA_CHECK
    EXPECT_EQ(checked, 36);
    EXPECT_EQ(formatInfo<PixelARGBP<float>>().format, ARGB_Premultiplied);
    EXPECT_EQ(formatInfo<PixelYUV422<qint32>>().channels, 2);
}

} // namespace
