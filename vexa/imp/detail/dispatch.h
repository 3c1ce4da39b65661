// How an operation reaches its typed kernel.
//
// Each operation names the pixel structures it supports in one PixelList (kept in its family's kernel
// header, where tests reach it too). dispatch() finds the list entry matching the image's (format, channel
// type) and calls the kernel with a RasterT of that exact type; anything not listed, and any value outside
// 0..5, throws the unsupported-parameters exception before a raster exists or a byte is touched. Adding a
// pair to an operation is one entry in its list. No pixel is copied to dispatch.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/VImageList.h>
#include <vexa/imp/exceptions.h>
#include <vexa/imp/raster.h>

#include <type_traits>

namespace VEXA {

template <class... Pixels> struct PixelList {};

template <class... Lists> struct Join;
template <class List> struct Join<List> { using type = List; };
template <class... A, class... B, class... Rest>
struct Join<PixelList<A...>, PixelList<B...>, Rest...> : Join<PixelList<A..., B...>, Rest...> {};
template <class... Lists> using JoinT = typename Join<Lists...>::type;

// One structure in all six component types, or all six structures over one component type.
template <template <class> class Struct>
using AllChannelsOf = PixelList<Struct<quint8>, Struct<qint8>, Struct<quint16>, Struct<qint16>, Struct<qint32>, Struct<float>>;
template <class T>
using AllFormatsOf = PixelList<PixelGray<T>, PixelBGR<T>, PixelARGB<T>, PixelXRGB<T>, PixelARGBP<T>, PixelYUV422<T>>;
using EightSixteenFloatPixels = JoinT<AllFormatsOf<quint8>, AllFormatsOf<quint16>, AllFormatsOf<qint16>, AllFormatsOf<float>>;
using AllPixels = JoinT<AllChannelsOf<PixelGray>, AllChannelsOf<PixelBGR>, AllChannelsOf<PixelARGB>,
                        AllChannelsOf<PixelXRGB>, AllChannelsOf<PixelARGBP>, AllChannelsOf<PixelYUV422>>;

template <class Pixel> struct PixelTag { using type = Pixel; };

template <class Pixel>
constexpr bool isPixelOf(Format format, Channel channel)
{
    return PixelTraits<Pixel>::format == format && PixelTraits<Pixel>::channel == channel;
}

template <class... Pixels>
constexpr bool supports(PixelList<Pixels...>, Format format, Channel channel)
{
    return (isPixelOf<Pixels>(format, channel) || ...);
}

// The one place that raises "Can not find template with actual parameters!".
[[noreturn]] void throwUnsupported();
// The same, naming the pixel type (and, for a pair, the destination's) in the failed status's reason.
[[noreturn]] void throwUnsupported(Format format, Channel channel);
[[noreturn]] void throwUnsupported(Format sourceFormat, Channel sourceChannel, Format format,
                                   Channel channel);

// An image whose (format, channel type) the list does not hold is unsupported.
template <class List>
void requireListed(List list, const VImage& image)
{
    if (!supports(list, image.format(), image.channelType()))
        throwUnsupported(image.format(), image.channelType());
}

// Calls visit(PixelTag<P>{}) for the listed P of (format, channel).
template <class... Pixels, class Visit>
VStatus visitPixel(PixelList<Pixels...>, Format format, Channel channel, Visit&& visit)
{
    VStatus result;
    const bool found = ((isPixelOf<Pixels>(format, channel) && (result = visit(PixelTag<Pixels>{}), true)) || ...);
    if (!found)
        throwUnsupported(format, channel);
    return result;
}

template <class List, class Kernel>
VStatus dispatch(List list, const VImage& image, Kernel&& kernel)
{
    return visitPixel(list, image.format(), image.channelType(), [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        return kernel(RasterT<Pixel>(image));
    });
}

// Source and destination of one and the same pixel type.
template <class List, class Kernel>
VStatus dispatchSame(List list, const VImage& src, const VImage& dst, Kernel&& kernel)
{
    if (dst.format() != src.format() || dst.channelType() != src.channelType())
        throwUnsupported(src.format(), src.channelType(), dst.format(), dst.channelType());
    return visitPixel(list, src.format(), src.channelType(), [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        return kernel(RasterT<Pixel>(src), RasterT<Pixel>(dst));
    });
}

// Source and destination each of their own listed type: TargetsOf<S> is the list of destinations that a
// source of pixel type S may go to.
template <template <class> class TargetsOf, class SourceList, class Kernel>
VStatus dispatchPairs(SourceList sources, const VImage& src, const VImage& dst, Kernel&& kernel)
{
    return visitPixel(sources, src.format(), src.channelType(), [&](auto s) {
        using S = typename decltype(s)::type;
        if (!supports(TargetsOf<S>{}, dst.format(), dst.channelType()))
            throwUnsupported(src.format(), src.channelType(), dst.format(), dst.channelType());
        return visitPixel(TargetsOf<S>{}, dst.format(), dst.channelType(), [&](auto d) {
            using D = typename decltype(d)::type;
            return kernel(RasterT<S>(src), RasterT<D>(dst));
        });
    });
}

} // namespace VEXA
