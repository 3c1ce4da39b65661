#include <vexa/imp/formats.h>

#include <map>

namespace VEXA {

namespace {

// Six valid rows, then the Invalid row that every unknown key falls back to.
const FormatInfo formatRows[] = {
    {GrayScale, "GrayScale", 1},
    {BGR, "BGR", 3},
    {ARGB, "ARGB", 4},
    {XRGB, "XRGB", 4},
    {ARGB_Premultiplied, "ARGB_Premultiplied", 4},
    {YUV422, "YUV422", 2},
    {Invalid, "Invalid", 0},
};

const ChannelInfo channelRows[] = {
    {Channel8u, "8u", 8, 8, true, 0.0, 255.0},
    {Channel8s, "8s", qint32(0x80000008), 8, true, -127.0, 127.0},
    {Channel16u, "16u", 16, 16, true, 0.0, 65535.0},
    {Channel16s, "16s", qint32(0x80000010), 16, true, -32767.0, 32767.0},
    {Channel32s, "32s", qint32(0x80000020), 32, true, -2147483647.0, 2147483647.0},
    {Channel32f, "32f", 32, 32, false, -3.4028234663852886e38, 3.4028234663852886e38},
    {ChannelInvalid, "Invalid", -1, 0, false, 0.0, 0.0},
};

// The row of a key, or the Invalid row (the last one) for a key the table does not hold. The map is built
// on first use; C++ runs that initialisation exactly once, whatever the threads.
template <class Row, class Key, size_t N>
const Row& findRow(const Row (&rows)[N], Key Row::*keyField, Key key)
{
    static const std::map<qint32, const Row*> byKey = [&rows, keyField] {
        std::map<qint32, const Row*> map;
        for (const Row& row : rows)
            map.emplace(row.*keyField, &row);
        return map;
    }();
    const auto it = byKey.find(key);
    return it != byKey.end() ? *it->second : rows[N - 1];
}

} // namespace

FormatInfo formatInfo(Format format) { return findRow(formatRows, &FormatInfo::format, format); }

ChannelInfo channelInfo(Channel channel) { return findRow(channelRows, &ChannelInfo::channel, channel); }

QList<Format> allFormats() { return {GrayScale, BGR, ARGB, XRGB, ARGB_Premultiplied, YUV422}; }
QList<Channel> allChannels() { return {Channel8u, Channel8s, Channel16u, Channel16s, Channel32s, Channel32f}; }
QList<Origin> allOrigins() { return {OriginTopLeft, OriginBottomLeft}; }
QList<RowsAlign> allRowsAligns() { return {RowsAlignNone, RowsAlign4}; }
QList<Component> allComponents()
{
    return {ComponentKey0, ComponentKey1, ComponentLuminance, ComponentRed, ComponentGreen, ComponentBlue,
            ComponentKey6};
}

#define VEXA_DEFINE_FORMAT_INFO(Struct, T) template VEXA_EXPORT FormatInfo formatInfo<Struct<T>>();
VEXA_FOR_EACH_PIXEL(VEXA_DEFINE_FORMAT_INFO)
#undef VEXA_DEFINE_FORMAT_INFO

} // namespace VEXA
