/// @file
/// @brief Pixel formats, channel types, pixel structures and the small enums (group @ref images).
#pragma once

#include <QList>
#include <QtGlobal>

#include <string>
#include <type_traits>

#include <vexa/vexa_export.h>

namespace VEXA {

/// @addtogroup images
/// @{

/// The pixel layouts: which components a pixel has, in which memory order. The four-component formats are
/// named after the little-endian 32-bit word (alpha or unused byte high), so blue comes first in memory.
enum Format : qint32 {
    /// One component, the gray value (PixelGray).
    GrayScale = 0,
    /// Three components: blue, green, red in memory (PixelBGR).
    BGR = 1,
    /// Four components: blue, green, red, alpha in memory, straight (not premultiplied) alpha, 255 opaque
    /// in every channel type (PixelARGB).
    ARGB = 2,
    /// Four components: blue, green, red and an unused fourth (PixelXRGB).
    XRGB = 3,
    /// As ARGB with blue, green and red premultiplied by alpha / 255 (PixelARGBP).
    ARGB_Premultiplied = 4,
    /// Two components per pixel: luma, then U on even and V on odd columns (PixelYUV422).
    YUV422 = 5,
    /// No format: zero components. An image never created has it.
    Invalid = -1,
};

/// The component types: the numeric type of one component (ComponentOf gives the C++ type).
enum Channel : qint32 {
    /// Unsigned 8 bits, quint8.
    Channel8u = 0,
    /// Signed 8 bits, qint8.
    Channel8s = 1,
    /// Unsigned 16 bits, quint16.
    Channel16u = 2,
    /// Signed 16 bits, qint16.
    Channel16s = 3,
    /// Signed 32 bits, qint32.
    Channel32s = 4,
    /// 32-bit float.
    Channel32f = 5,
    /// No type: zero bits. An image never created has it.
    ChannelInvalid = -1,
};

/// Where row 0 lies; the library builds its own images bottom-left (1), images loaded from files
/// included. OpenCV headers carry it as their origin field. Beyond that it is a label: no member or
/// operation reorders rows by it (row 0 is the first row in memory, the top of a loaded picture), and the
/// only calculation it changes is sobelImage(), which negates odd y derivatives of images not labelled
/// top-left.
enum Origin : qint32 {
    /// Row 0 is the top row.
    OriginTopLeft = 0,
    /// Row 0 is the bottom row: the label of every image the library makes itself.
    OriginBottomLeft = 1,
    /// No origin: an image never created has it.
    OriginInvalid = -1,
};

/// Stored, copied, compared and serialized with every image, but rows are always padded to 4 bytes,
/// whatever the value.
enum RowsAlign : qint32 {
    /// No alignment asked for: the library's own images carry it.
    RowsAlignNone = 0,
    /// Rows aligned to 4 bytes, which they are in any case.
    RowsAlign4 = 1,
    /// No alignment value: an image never created has it.
    RowsAlignInvalid = -1,
};

/// Planes of histograms and level curves. Keys 0, 1 and 6 are valid map keys that no calculation fills.
enum Component : qint32 {
    /// A valid key that no calculation fills.
    ComponentKey0 = 0,
    /// A valid key that no calculation fills.
    ComponentKey1 = 1,
    /// Luminance.
    ComponentLuminance = 2,
    /// Red.
    ComponentRed = 3,
    /// Green.
    ComponentGreen = 4,
    /// Blue.
    ComponentBlue = 5,
    /// A valid key that no calculation fills.
    ComponentKey6 = 6,
};

/// zlib levels for the raw byte array (VImage::toByteArray()), handed to qCompress unchanged; any value from
/// -1 to 9 is a zlib level, others count as the default.
enum CompressionLevel : qint32 {
    /// zlib's default level.
    CompressionDefault = -1,
    CompressionNone = 0, ///< stored blocks: fastest, largest
    /// The fastest compressing level.
    CompressionFastest = 1,
    /// The smallest output, slowest.
    CompressionBest = 9,
};

/// Resampling of resizeImage(), as OpenCV's codes 0..3; any other value is refused ("Unsupported
/// interpolation method").
enum InterpolationMethod : qint32 {
    /// Nearest neighbour.
    InterpolationNearest = 0,
    /// Bilinear.
    InterpolationLinear = 1,
    /// Bicubic.
    InterpolationCubic = 2,
    /// Pixel area relation (OpenCV's INTER_AREA).
    InterpolationArea = 3,
};

/// Quarter turns of rotateImage(), counter-clockwise as the image is displayed (y down): Angle90 takes the
/// right-hand edge to the top. Any other value leaves the image unturned.
enum FixedAngle : qint32 {
    /// A quarter turn counter-clockwise.
    Angle90 = 0,
    /// A half turn.
    Angle180 = 1,
    /// Three quarter turns counter-clockwise (a quarter turn clockwise).
    Angle270 = 2,
    /// No turn.
    AngleNone = 3,
};

/// How headerForRotate() sizes a rotated image: the bounding box of the whole turned image, or the source's
/// own size (corners cut off). The rotation itself always fills whatever destination it is given.
enum RotateMethod : qint32 {
    /// The bounding box of the whole turned image: no turned pixel is cut.
    RotateBoundingBox = 0,
    /// The source's own size: the turned image's corners are cut off.
    RotateKeepSize = 1,
};

/// One row of the format table, as formatInfo() gives it.
struct FormatInfo {
    /// The format the row describes (Invalid for the fallback row).
    Format format;
    /// Its name: "GrayScale", "BGR", "ARGB", "XRGB", "ARGB_Premultiplied", "YUV422" or "Invalid".
    std::string name;
    /// Components per pixel: 1, 3, 4, 4, 4, 2, and 0 for Invalid.
    qint32 channels;
};

/// One row of the channel type table, as channelInfo() gives it.
struct ChannelInfo {
    /// The channel type the row describes (ChannelInvalid for the fallback row).
    Channel channel;
    /// Its name: "8u", "8s", "16u", "16s", "32s", "32f" or "Invalid".
    std::string name;
    qint32 depth; ///< the OpenCV IplImage depth code (8, 0x80000008, 16, 0x80000010, 0x80000020, 32; -1)
    /// Bits of one component: 8, 16 or 32, and 0 for ChannelInvalid.
    qint32 bits;
    /// True for the five integer types, false for 32f and ChannelInvalid.
    bool isInteger;
    double min; ///< the least value (0 unsigned); signed ranges are symmetric on purpose: -127..127, not -128..127
    /// The largest value: 255, 127, 65535, 32767, 2147483647, FLT_MAX (0 for ChannelInvalid, as min).
    double max;
};

/// The format table's row of format; the Invalid row for a value that names no format.
VEXA_EXPORT FormatInfo formatInfo(Format format);
/// The channel type table's row of channel; the Invalid row for a value that names no type.
VEXA_EXPORT ChannelInfo channelInfo(Channel channel);

/// The six valid formats in numeric order, GrayScale to YUV422.
VEXA_EXPORT QList<Format> allFormats();
/// The six valid channel types in numeric order, Channel8u to Channel32f.
VEXA_EXPORT QList<Channel> allChannels();
/// The two valid origins, OriginTopLeft and OriginBottomLeft.
VEXA_EXPORT QList<Origin> allOrigins();
/// The two valid rows alignments, RowsAlignNone and RowsAlign4.
VEXA_EXPORT QList<RowsAlign> allRowsAligns();
/// All seven components in numeric order, the three unfilled keys included.
VEXA_EXPORT QList<Component> allComponents();

/// Components per pixel, the same numbers as formatInfo()'s channels without building a row: for hot
/// paths. 0 for unknown values.
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

/// Bits per component, the same numbers as channelInfo()'s bits without building a row: for hot paths. 0 for
/// unknown values.
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

/// True for the six formats GrayScale to YUV422, false for Invalid and any other value.
constexpr bool isValid(Format format) { return format >= GrayScale && format <= YUV422; }
/// True for the six channel types Channel8u to Channel32f, false for ChannelInvalid and any other value.
constexpr bool isValid(Channel channel) { return channel >= Channel8u && channel <= Channel32f; }

/// A GrayScale pixel over component type T: members in memory order, no padding.
template <class T> struct PixelGray { T gray; };
/// @var PixelGray::gray
/// The gray value.

/// A BGR pixel over component type T: blue first in memory, no padding.
template <class T> struct PixelBGR { T b, g, r; };
/// @var PixelBGR::b
/// Blue.

/// @var PixelBGR::g
/// Green.

/// @var PixelBGR::r
/// Red.

/// An XRGB pixel over component type T: blue first in memory, then green, red and the unused component.
template <class T> struct PixelXRGB { T b, g, r, x; };
/// @var PixelXRGB::b
/// Blue.

/// @var PixelXRGB::g
/// Green.

/// @var PixelXRGB::r
/// Red.

/// @var PixelXRGB::x
/// Unused: conversions and pixel access neither read nor write it (what it holds depends on how the
/// image was made).

/// An ARGB pixel over component type T: blue first in memory, alpha last, straight alpha.
template <class T> struct PixelARGB { T b, g, r, a; };
/// @var PixelARGB::b
/// Blue.

/// @var PixelARGB::g
/// Green.

/// @var PixelARGB::r
/// Red.

/// @var PixelARGB::a
/// Alpha: 255 is full opacity in every component type.

/// An ARGB_Premultiplied pixel over component type T, laid out as PixelARGB.
template <class T>
struct PixelARGBP {
    T b, g, r, a;
}; ///< b, g, r premultiplied by a
/// @var PixelARGBP::b
/// Blue, premultiplied by alpha / 255.

/// @var PixelARGBP::g
/// Green, premultiplied by alpha / 255.

/// @var PixelARGBP::r
/// Red, premultiplied by alpha / 255.

/// @var PixelARGBP::a
/// Alpha: 255 is full opacity in every component type.

/// A YUV422 pixel over component type T: two components, luma first.
template <class T>
struct PixelYUV422 {
    T y, uv;
}; ///< luma first, then U on even and V on odd columns
/// @var PixelYUV422::y
/// Luma.

/// @var PixelYUV422::uv
/// Chroma: U on even columns, V on odd ones.

/// The component type of each channel type: ComponentOf<C>::type. 32-bit signed is qint32: `long` is 64
/// bits on Linux.
template <Channel C> struct ComponentOf;
/// Channel8u components are quint8.
template <> struct ComponentOf<Channel8u> { using type = quint8; };
/// @typedef ComponentOf<Channel8u>::type
/// quint8.

/// Channel8s components are qint8.
template <> struct ComponentOf<Channel8s> { using type = qint8; };
/// @typedef ComponentOf<Channel8s>::type
/// qint8.

/// Channel16u components are quint16.
template <> struct ComponentOf<Channel16u> { using type = quint16; };
/// @typedef ComponentOf<Channel16u>::type
/// quint16.

/// Channel16s components are qint16.
template <> struct ComponentOf<Channel16s> { using type = qint16; };
/// @typedef ComponentOf<Channel16s>::type
/// qint16.

/// Channel32s components are qint32.
template <> struct ComponentOf<Channel32s> { using type = qint32; };
/// @typedef ComponentOf<Channel32s>::type
/// qint32.

/// Channel32f components are float.
template <> struct ComponentOf<Channel32f> { using type = float; };
/// @typedef ComponentOf<Channel32f>::type
/// float.

/// The channel type of component type T, the reverse of ComponentOf; defined for the six component types
/// only (any other T fails to link).
template <class T> constexpr Channel channelOf();
/// Channel8u.
template <> constexpr Channel channelOf<quint8>() { return Channel8u; }
/// Channel8s.
template <> constexpr Channel channelOf<qint8>() { return Channel8s; }
/// Channel16u.
template <> constexpr Channel channelOf<quint16>() { return Channel16u; }
/// Channel16s.
template <> constexpr Channel channelOf<qint16>() { return Channel16s; }
/// Channel32s.
template <> constexpr Channel channelOf<qint32>() { return Channel32s; }
/// Channel32f.
template <> constexpr Channel channelOf<float>() { return Channel32f; }

// What a pixel structure is: its format, component type and channel type.
template <class Pixel> struct PixelTraits;
/// Defines PixelTraits for the pixel structure template Struct of format Fmt; expanded for the six
/// structures just below and then undefined. PixelTraits<Struct<T>> has `Component` (T), `format` (Fmt),
/// `channel` (channelOf<T>()) and `components` (channelsOf(Fmt)); PixelTraits of anything else is
/// not defined (a compile error).
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

template <class Pixel, class U> struct RebindComponent;
/// The rebinding behind WithComponent: Struct\<T\> over U instead of T.
template <template <class> class Struct, class T, class U> struct RebindComponent<Struct<T>, U> { using type = Struct<U>; };
/// @typedef RebindComponent<Struct<T>, U>::type
/// Struct\<U\>.

/// The same structure over another component type: WithComponent<PixelBGR<quint8>, float> is PixelBGR<float>.
template <class Pixel, class U> using WithComponent = typename RebindComponent<Pixel, U>::type;

/// formatInfo() of a pixel structure's format; the component type plays no part. Instantiated in the
/// library for all 36 structures.
template <class Pixel> FormatInfo formatInfo() { return formatInfo(PixelTraits<Pixel>::format); }

/// Applies MACRO(Struct, T) to Struct over each of the six component types, quint8, qint8, quint16, qint16,
/// qint32 and float, in that order.
#define VEXA_FOR_EACH_COMPONENT(MACRO, Struct)                                                              \
    MACRO(Struct, quint8) MACRO(Struct, qint8) MACRO(Struct, quint16) MACRO(Struct, qint16)                 \
    MACRO(Struct, qint32) MACRO(Struct, float)
/// Applies MACRO(Struct, T) to all 36 pixel structures: PixelGray, PixelBGR, PixelARGB, PixelXRGB,
/// PixelARGBP and PixelYUV422, each over the six component types (VEXA_FOR_EACH_COMPONENT).
#define VEXA_FOR_EACH_PIXEL(MACRO)                                                                          \
    VEXA_FOR_EACH_COMPONENT(MACRO, PixelGray) VEXA_FOR_EACH_COMPONENT(MACRO, PixelBGR)                      \
    VEXA_FOR_EACH_COMPONENT(MACRO, PixelARGB) VEXA_FOR_EACH_COMPONENT(MACRO, PixelXRGB)                     \
    VEXA_FOR_EACH_COMPONENT(MACRO, PixelARGBP) VEXA_FOR_EACH_COMPONENT(MACRO, PixelYUV422)

/// Checks at compile time that Struct<T> has no padding and a standard layout, so that a row of pixels is
/// an array of them; applied to all 36 structures just below and then undefined.
#define VEXA_CHECK_PIXEL_SIZE(Struct, T)                                                                    \
    static_assert(sizeof(Struct<T>) == PixelTraits<Struct<T>>::components * sizeof(T),                      \
                  #Struct "<" #T "> must have no padding");                                                 \
    static_assert(std::is_standard_layout_v<Struct<T>>);
VEXA_FOR_EACH_PIXEL(VEXA_CHECK_PIXEL_SIZE)
#undef VEXA_CHECK_PIXEL_SIZE

/// Declares the library's instantiation of formatInfo<Struct<T>>(), so that callers do not instantiate it
/// themselves; applied to all 36 structures just below and then undefined.
#define VEXA_DECLARE_FORMAT_INFO(Struct, T) extern template VEXA_EXPORT FormatInfo formatInfo<Struct<T>>();
VEXA_FOR_EACH_PIXEL(VEXA_DECLARE_FORMAT_INFO)
#undef VEXA_DECLARE_FORMAT_INFO

/// @}

} // namespace VEXA
