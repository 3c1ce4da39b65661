// vexa panorama TILE... -o OUT [--mode photos|scans]: overlapping images joined into one by buildPanorama.
#include "cli.h"
#include "image_io.h"

#include <vexa/gen/gen_panorama_image.h>
#include <vexa/imp/VImageList.h>

#include <QFileInfo>

namespace vexatool {

namespace {

bool stitchable(const VImage& image)
{
    const VEXA::Format f = image.format();
    return image.channelType() == VEXA::Channel8u &&
           (f == VEXA::GrayScale || f == VEXA::BGR || f == VEXA::XRGB || f == VEXA::ARGB);
}

} // namespace

int panoramaCommand(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Joins overlapping images into one panorama. Tiles that share one 8-bit gray or colour "
                       "layout keep it; any other mix is joined as 8-bit colour. Every tile must overlap the "
                       "others: the run fails rather than leave one out."));
    parser.addPositionalArgument(QStringLiteral("tiles"), QStringLiteral("The images, two or more."),
                                 QStringLiteral("TILE..."));
    const QCommandLineOption output =
        outputOption(QStringLiteral("Write the panorama to FILE (its suffix picks the format)."));
    const QCommandLineOption mode(QStringLiteral("mode"),
                                  QStringLiteral("photos (the default): photographs taken turning about one point; "
                                                 "scans: a flat scene moved under the camera (stage scans, "
                                                 "documents), placed by affine transforms."),
                                  QStringLiteral("MODE"), QStringLiteral("photos"));
    parser.addOptions({output, mode});
    if (!parseCommandLine(parser, QStringLiteral("panorama"), arguments, Writes::ImageFiles))
        return ExitOk;

    // The whole command line is checked before any pixel is read.
    const auto panoramaMode = choice<VEXA::PanoramaMode>(
        QStringLiteral("mode"), parser.value(mode), {{"photos", VEXA::PanoramaPhotos}, {"scans", VEXA::PanoramaScans}});
    const QStringList tiles = parser.positionalArguments();
    const QString out = requiredOutput(parser, output);
    checkOutputName(out);
    if (tiles.size() < 2)
        usageError(QStringLiteral("at least two tiles are needed"));
    for (const QString& name : tiles)
        if (!QFileInfo::exists(name))
            runtimeError(QStringLiteral("%1: no such file").arg(name));

    Task task;
    QList<VImage> images;
    const double readPart = 0.2 / tiles.size();
    for (int i = 0; i < tiles.size(); ++i) {
        task.step(QStringLiteral("reading ") + tiles.at(i), i * readPart);
        images.append(readImage(tiles.at(i)));
    }
    bool uniform = true;
    for (const VImage& image : images)
        uniform = uniform && stitchable(image) && image.format() == images.first().format();
    VImageList list;
    for (int i = 0; i < images.size(); ++i)
        list.add(uniform ? images.at(i) : asXrgb(images.at(i), tiles.at(i)));
    checkWritable(list.format(), list.channelType(), out);

    task.step(QStringLiteral("stitching %1 tiles").arg(tiles.size()), 0.2);
    VImage panorama;
    task.run(QStringLiteral("cannot join the tiles"), 0.2, 0.95,
             [&] { return VEXA::buildPanorama(list, &panorama, panoramaMode); });
    writeImage(panorama, out, &task);
    endProgress();
    return ExitOk;
}

} // namespace vexatool
