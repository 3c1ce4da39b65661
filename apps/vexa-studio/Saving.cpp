#include "Saving.h"

#include "metadata_carry.h"

#include <vexa/imp/file_metadata.h>
#include <vexa/imp/image_files.h>

namespace studio {

QString saveImageFile(const VImage& image, const QString& file, const SaveSettings& settings, QString* warning)
{
    VEXA::FileMetadata metadata;
    if (!settings.metadataFrom.isEmpty())
        metadata = VEXA::readFileMetadata(settings.metadataFrom);
    VEXA::FileWriteOptions options;
    options.quality = settings.jpegQuality;
    options.compression = settings.tiffCompressed ? 1 : 0;
    if (file.endsWith(QLatin1String(".png"), Qt::CaseInsensitive))
        options.compression = -1; // PNG's own fast default
    // The shots were read upright, so the result's pixels are upright already.
    vexatool::embedMetadata(file, image, metadata, true, &options);
    const VStatus written = VEXA::writeImageFile(image, file, options);
    if (!written)
        return written.reason().isEmpty() ? QObject::tr("the library gave no reason") : written.reason();
    if (vexatool::needsMetadataRewrite(file, metadata, options)) {
        const VStatus kept = VEXA::writeFileMetadata(file, metadata, true);
        if (!kept && warning)
            *warning = QObject::tr("The first shot's metadata could not be kept: %1").arg(kept.reason());
    }
    return QString();
}

} // namespace studio
