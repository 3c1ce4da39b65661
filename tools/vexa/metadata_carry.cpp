#include "metadata_carry.h"

#include <vexa/imp/image_files.h>

namespace vexatool {

bool needsMetadataRewrite(const QString& written, const VEXA::FileMetadata& metadata)
{
    const bool afterwards = !metadata.exif.isEmpty() ||
                            (!metadata.iccProfile.isEmpty() && !VEXA::embedsProfile(written, metadata.iccProfile));
    return afterwards && VEXA::holdsMetadata(written);
}

} // namespace vexatool
