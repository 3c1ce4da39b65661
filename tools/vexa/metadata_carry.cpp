#include "metadata_carry.h"

namespace vexatool {

void embedMetadata(const QString& written, const VImage& image, const VEXA::FileMetadata& metadata,
                   bool orientationApplied, VEXA::FileWriteOptions* options)
{
    options->iccProfile = metadata.iccProfile;
    if (VEXA::embedsExif(written))
        options->exif = VEXA::exifForFile(metadata, orientationApplied, image.width(), image.height());
}

bool needsMetadataRewrite(const QString& written, const VEXA::FileMetadata& metadata,
                          const VEXA::FileWriteOptions& options)
{
    const bool afterwards = (!metadata.exif.isEmpty() && options.exif.isEmpty()) ||
                            (!metadata.iccProfile.isEmpty() && !VEXA::embedsProfile(written, metadata.iccProfile));
    return afterwards && VEXA::holdsMetadata(written);
}

} // namespace vexatool
