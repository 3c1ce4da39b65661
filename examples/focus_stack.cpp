// Focus stacking a series of hand-held shots.
//
//   focus_stack RESULT DEPTH_MAP SHOT|FOLDER...
//
// The depth-map method with automatic alignment brings each shot to the first one's exposure (a gain per
// channel) and geometry, and takes every pixel's finest detail from the shot where it is sharpest. A folder
// stands for its files in name order. A shot the blender cannot take (another size or layout) is refused
// with the reason and leaves it as it was. The depth map holds the index of the shot each pixel came from
// (0 for the first), as 16-bit gray.
#include <vexa/Vexa.h>

#include <QDir>
#include <QFileInfo>

#include <cmath>
#include <cstdio>

int main(int argc, char** argv)
{
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s RESULT DEPTH_MAP SHOT|FOLDER...\n", argv[0]);
        return 1;
    }
    QStringList files;
    for (int i = 3; i < argc; ++i) {
        const QString arg = QString::fromLocal8Bit(argv[i]);
        if (QFileInfo(arg).isDir())
            for (const QString& name : QDir(arg).entryList(QDir::Files, QDir::Name))
                files << QDir(arg).filePath(name);
        else
            files << arg;
    }

    VImageBlender blender(VImageBlender::MultifocusDepthMap, VImageBlender::AlignAuto);
    for (const QString& file : files) {
        VImage shot;
        if (!shot.load(file)) {
            std::printf("%s: not read, %s\n", qPrintable(file), qPrintable(shot.status().reason()));
            continue;
        }
        if (!blender.addImage(shot)) {
            std::printf("%s: refused, %s\n", qPrintable(file), qPrintable(blender.lastStatus().reason()));
            continue;
        }
        // The fit maps the first shot's pixels onto this one's: where the first shot's centre lies here.
        const VImageBlender::ShotFit fit = blender.shotFits().last();
        const QPointF centre(shot.width() / 2.0, shot.height() / 2.0);
        const QPointF moved = fit.transform.map(centre) - centre;
        std::printf("%s: gains %.3f %.3f %.3f (blue green red), centre moved by (%.2f, %.2f), scale %.4f, %s\n",
                    qPrintable(QFileInfo(file).fileName()), fit.gains[0], fit.gains[1], fit.gains[2], moved.x(),
                    moved.y(), std::sqrt(fit.transform.determinant()),
                    fit.resampled ? "resampled" : "taken as it stands");
    }
    if (blender.count() < 2) {
        std::fprintf(stderr, "fewer than two shots to merge\n");
        return 1;
    }

    const VImage result = blender.image();
    const VImage depth = blender.depthMap();
    if (result.isEmpty() || depth.isEmpty()) {
        std::fprintf(stderr, "the merge failed (the log says why)\n");
        return 1;
    }
    const auto save = [](const VImage& image, const char* file) {
        if (!image.save(QString::fromLocal8Bit(file)))
            std::fprintf(stderr, "cannot save %s: %s\n", file, qPrintable(image.status().reason()));
        return image.status().isOk();
    };
    if (!save(result, argv[1]) || !save(depth, argv[2]))
        return 1;
    std::printf("merged %d shots into %s (%dx%d), depth map %s\n", blender.count(), argv[1], result.width(),
                result.height(), argv[2]);
    return 0;
}
