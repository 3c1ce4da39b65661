// vexa convert IN -o OUT [--format F] [--channel C] [--plain]: an image in another format, channel type or
// file; the same picture at another depth unless --plain asks for the library's numeric conversion.
#include "cli.h"
#include "image_io.h"

#include <vexa/gen/gen_image_converters.h>

namespace vexatool {

int convertCommand(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Converts an image to another format and channel type through the library, and between "
                       "image files and .vexa files (the library's byte arrays, which hold every format and "
                       "channel type exactly). A new channel type keeps the picture: ranges map onto each other "
                       "(16-bit 65535 is 8-bit 255 and float 1.0), rounded and saturated; --plain converts "
                       "components as plain numbers instead. Image files hold 8-bit and 16-bit images (16 bits "
                       "in PNG and TIFF)."));
    parser.addPositionalArgument(QStringLiteral("in"), QStringLiteral("The image file or .vexa file to convert."),
                                 QStringLiteral("IN"));
    const QCommandLineOption output = outputOption(
        QStringLiteral("Write to FILE: .vexa for a byte array, otherwise an image file of the suffix's format."));
    const QCommandLineOption format(QStringLiteral("format"),
                                    QStringLiteral("The new format: gray, bgr, argb, xrgb, argb-premultiplied or "
                                                   "yuv422 (default: the input's)."),
                                    QStringLiteral("F"));
    const QCommandLineOption channel(QStringLiteral("channel"),
                                     QStringLiteral("The new channel type: 8u, 8s, 16u, 16s, 32s or 32f (default: "
                                                    "the input's)."),
                                     QStringLiteral("C"));
    const QCommandLineOption plain(QStringLiteral("plain"),
                                   QStringLiteral("Convert components as plain numbers, without mapping ranges "
                                                  "(16-bit 38187 becomes 8-bit 43, its low byte)."));
    parser.addOptions({output, format, channel, plain});
    if (!parseCommandLine(parser, QStringLiteral("convert"), arguments, Writes::ImageFiles))
        return ExitOk;
    const QString in = positionalArguments(parser, {QStringLiteral("no input file given")}).first();
    const QString out = requiredOutput(parser, output);
    checkOutputName(out);
    const VEXA::Format wantedFormat = parser.isSet(format) ? parseFormat(parser.value(format)) : VEXA::Invalid;
    const VEXA::Channel wantedChannel = parser.isSet(channel) ? parseChannel(parser.value(channel)) : VEXA::ChannelInvalid;

    Task task;
    task.step(QStringLiteral("reading ") + in, 0);
    const VImage image = readImage(in);
    const VEXA::Format toFormat = wantedFormat != VEXA::Invalid ? wantedFormat : image.format();
    const VEXA::Channel toChannel = wantedChannel != VEXA::ChannelInvalid ? wantedChannel : image.channelType();
    checkWritable(toFormat, toChannel, out);
    VImage result = image;
    if (toFormat != image.format() || toChannel != image.channelType()) {
        task.step(QStringLiteral("converting"), 0.2);
        result = VImage();
        result.create(image.width(), image.height(), toFormat, toChannel, image.origin(), image.rowsAlignment());
        task.run(QStringLiteral("%1: cannot convert %2 to %3")
                     .arg(in, pairName(image.format(), image.channelType()), pairName(toFormat, toChannel)),
                 0.2, 0.8, [&] {
                     if (!result.status())
                         return result.status();
                     return parser.isSet(plain) ? VEXA::convertImage(image, &result)
                                                : VEXA::convertImageScaled(image, &result);
                 });
        result.setRoi(image.roi());
    }
    writeImage(result, out, &task);
    endProgress();
    return ExitOk;
}

} // namespace vexatool
