#include <vexa/imp/detail/dispatch.h>

namespace VEXA {

namespace {

[[noreturn]] void throwUnsupportedTaking(const std::string& what)
{
    dip_exception_unsupported_parameters e;
    e.setReason("the operation does not take " + what);
    throw e;
}

std::string pixelName(Format format, Channel channel)
{
    return formatInfo(format).name + " " + channelInfo(channel).name;
}

} // namespace

void throwUnsupported() { throwUnsupportedTaking("the image's pixel format and component type"); }

void throwUnsupported(Format format, Channel channel) { throwUnsupportedTaking(pixelName(format, channel) + " images"); }

void throwUnsupported(Format sourceFormat, Channel sourceChannel, Format format, Channel channel)
{
    throwUnsupportedTaking(pixelName(sourceFormat, sourceChannel) + " images into " + pixelName(format, channel) +
                           " ones");
}

} // namespace VEXA
