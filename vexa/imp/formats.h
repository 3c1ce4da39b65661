// Pixel formats, component types and the pixel structures over them.
//
// An image is described by two independent choices: a format (which components a pixel has, in which
// memory order) and a channel type (the numeric type of one component). Every size computation and the
// OpenCV bridge read the two tables here; nothing else hard-codes them. Unknown values (from a damaged byte
// array, say) yield the Invalid row: zero components and zero bits, never an error.
#pragma once

#include <QList>
#include <QtGlobal>

#include <string>
#include <type_traits>

#include <vexa/vexa_export.h>

namespace VEXA {

enum Format : qint32 {
    GrayScale = 0,
    BGR = 1,
    ARGB = 2,
    XRGB = 3,
    ARGB_Premultiplied = 4,
    YUV422 = 5,
    Invalid = -1,
};

enum Channel : qint32 {
    Channel8u = 0,
    Channel8s = 1,
    Channel16u = 2,
    Channel16s = 3,
    Channel32s = 4,
    Channel32f = 5,
    ChannelInvalid = -1,
};

// Where row 0 lies; the library builds its own images bottom-left (1). OpenCV headers carry it as their
// origin field.
enum Origin : qint32 {
    OriginTopLeft = 0,
    OriginBottomLeft = 1,
    OriginInvalid = -1,
};

// Stored, copied, compared and serialized with every image, but rows are always padded to 4 bytes,
// whatever the value.
enum RowsAlign : qint32 {
    RowsAlignNone = 0,
    RowsAlign4 = 1,
    RowsAlignInvalid = -1,
};

// Planes of histograms and level curves. Keys 0, 1 and 6 are valid map keys that no calculation fills.
enum Component : qint32 {
    ComponentKey0 = 0,
    ComponentKey1 = 1,
    ComponentLuminance = 2,
    ComponentRed = 3,
    ComponentGreen = 4,
    ComponentBlue = 5,
    ComponentKey6 = 6,
};

// zlib levels for the raw byte array, handed to qCompress unchanged.
enum CompressionLevel : qint32 {
    CompressionDefault = -1,
    CompressionNone = 0, // stored blocks: fastest, largest
    CompressionFastest = 1,
    CompressionBest = 9,
};

// Resampling of resizeImage, as OpenCV's codes 0..3; any other value is refused.
enum InterpolationMethod : qint32 {
    InterpolationNearest = 0,
    InterpolationLinear = 1,
    InterpolationCubic = 2,
    InterpolationArea = 3,
};

// Quarter turns of rotateImage, counter-clockwise as the image is displayed (y down): Angle90 takes the
// right-hand edge to the top. Any other value leaves the image unturned.
enum FixedAngle : qint32 {
    Angle90 = 0,
    Angle180 = 1,
    Angle270 = 2,
    AngleNone = 3,
};

// How headerForRotate sizes a rotated image: the bounding box of the whole turned image, or the source's
// own size (corners cut off). The rotation itself always fills whatever destination it is given.
enum RotateMethod : qint32 {
    RotateBoundingBox = 0,
    RotateKeepSize = 1,
};

struct FormatInfo {
    Format format;
    std::string name;
    qint32 channels;
};

struct ChannelInfo {
    Channel channel;
    std::string name;
    qint32 depth; // the OpenCV IplImage depth code
    qint32 bits;
    bool isInteger;
    double min; // the signed ranges are symmetric on purpose: -127..127, not -128..127
    double max;
};

VEXA_EXPORT FormatInfo formatInfo(Format format);
VEXA_EXPORT ChannelInfo channelInfo(Channel channel);

VEXA_EXPORT QList<Format> allFormats();
VEXA_EXPORT QList<Channel> allChannels();
VEXA_EXPORT QList<Origin> allOrigins();
VEXA_EXPORT QList<RowsAlign> allRowsAligns();
VEXA_EXPORT QList<Component> allComponents();

// Allocation-free lookups for hot paths: the same numbers as the tables, 0 for unknown values.
constexpr qint32 channelsOf(Format format)
{
    switch (format) {
    case GrayScale: return 1;
    case BGR: return 3;
    case ARGB: case XRGB: case ARGB_Premultiplied: return 4;
    case YUV422: return 2;
    case Invalid: return 0;
    }
    return 0;
}

constexpr qint32 bitsOf(Channel channel)
{
    switch (channel) {
    case Channel8u: case Channel8s: return 8;
    case Channel16u: case Channel16s: return 16;
    case Channel32s: case Channel32f: return 32;
    case ChannelInvalid: return 0;
    }
    return 0;
}

constexpr bool isValid(Format format) { return format >= GrayScale && format <= YUV422; }
constexpr bool isValid(Channel channel) { return channel >= Channel8u && channel <= Channel32f; }

// Pixel structures: members in memory order, no padding. The four-component formats are named after the
// little-endian 32-bit word (alpha or unused byte high), so blue comes first in memory.
template <class T> struct PixelGray { T gray; };
template <class T> struct PixelBGR { T b, g, r; };
template <class T> struct PixelXRGB { T b, g, r, x; };
template <class T> struct PixelARGB { T b, g, r, a; };
template <class T> struct PixelARGBP { T b, g, r, a; }; // b, g, r premultiplied by a
template <class T> struct PixelYUV422 { T y, uv; };     // luma first, then U on even and V on odd columns

// The component type of each channel type. 32-bit signed is qint32: `long` is 64 bits on Linux.
template <Channel C> struct ComponentOf;
template <> struct ComponentOf<Channel8u> { using type = quint8; };
template <> struct ComponentOf<Channel8s> { using type = qint8; };
template <> struct ComponentOf<Channel16u> { using type = quint16; };
template <> struct ComponentOf<Channel16s> { using type = qint16; };
template <> struct ComponentOf<Channel32s> { using type = qint32; };
template <> struct ComponentOf<Channel32f> { using type = float; };

template <class T> constexpr Channel channelOf();
template <> constexpr Channel channelOf<quint8>() { return Channel8u; }
template <> constexpr Channel channelOf<qint8>() { return Channel8s; }
template <> constexpr Channel channelOf<quint16>() { return Channel16u; }
template <> constexpr Channel channelOf<qint16>() { return Channel16s; }
template <> constexpr Channel channelOf<qint32>() { return Channel32s; }
template <> constexpr Channel channelOf<float>() { return Channel32f; }

// What a pixel structure is: its format, component type and channel type.
template <class Pixel> struct PixelTraits;
#define VEXA_PIXEL_TRAITS(Struct, Fmt)                                                                      \
    template <class T> struct PixelTraits<Struct<T>> {                                                      \
        using Component = T;                                                                                \
        static constexpr Format format = Fmt;                                                               \
        static constexpr Channel channel = channelOf<T>();                                                  \
        static constexpr int components = channelsOf(Fmt);                                                 \
    };
VEXA_PIXEL_TRAITS(PixelGray, GrayScale)
VEXA_PIXEL_TRAITS(PixelBGR, BGR)
VEXA_PIXEL_TRAITS(PixelARGB, ARGB)
VEXA_PIXEL_TRAITS(PixelXRGB, XRGB)
VEXA_PIXEL_TRAITS(PixelARGBP, ARGB_Premultiplied)
VEXA_PIXEL_TRAITS(PixelYUV422, YUV422)
#undef VEXA_PIXEL_TRAITS

// The same structure over another component type: WithComponent<PixelBGR<quint8>, float> is PixelBGR<float>.
template <class Pixel, class U> struct RebindComponent;
template <template <class> class Struct, class T, class U> struct RebindComponent<Struct<T>, U> { using type = Struct<U>; };
template <class Pixel, class U> using WithComponent = typename RebindComponent<Pixel, U>::type;

// formatInfo of a pixel structure's format; the component type plays no part.
template <class Pixel> FormatInfo formatInfo() { return formatInfo(PixelTraits<Pixel>::format); }

// Applies MACRO(Struct, T) to all 36 pixel structures.
#define VEXA_FOR_EACH_COMPONENT(MACRO, Struct)                                                              \
    MACRO(Struct, quint8) MACRO(Struct, qint8) MACRO(Struct, quint16) MACRO(Struct, qint16)                 \
    MACRO(Struct, qint32) MACRO(Struct, float)
#define VEXA_FOR_EACH_PIXEL(MACRO)                                                                          \
    VEXA_FOR_EACH_COMPONENT(MACRO, PixelGray) VEXA_FOR_EACH_COMPONENT(MACRO, PixelBGR)                      \
    VEXA_FOR_EACH_COMPONENT(MACRO, PixelARGB) VEXA_FOR_EACH_COMPONENT(MACRO, PixelXRGB)                     \
    VEXA_FOR_EACH_COMPONENT(MACRO, PixelARGBP) VEXA_FOR_EACH_COMPONENT(MACRO, PixelYUV422)

#define VEXA_CHECK_PIXEL_SIZE(Struct, T)                                                                    \
    static_assert(sizeof(Struct<T>) == PixelTraits<Struct<T>>::components * sizeof(T),                      \
                  #Struct "<" #T "> must have no padding");                                                 \
    static_assert(std::is_standard_layout_v<Struct<T>>);
VEXA_FOR_EACH_PIXEL(VEXA_CHECK_PIXEL_SIZE)
#undef VEXA_CHECK_PIXEL_SIZE

#define VEXA_DECLARE_FORMAT_INFO(Struct, T) extern template VEXA_EXPORT FormatInfo formatInfo<Struct<T>>();
VEXA_FOR_EACH_PIXEL(VEXA_DECLARE_FORMAT_INFO)
#undef VEXA_DECLARE_FORMAT_INFO

} // namespace VEXA
