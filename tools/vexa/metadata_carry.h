// Carrying a shot's metadata into a file just written, shared by the tool and the application.
#pragma once

#include <vexa/imp/file_metadata.h>

#include <QString>

namespace vexatool {

// Whether the written file must be rewritten to carry the metadata: it has an EXIF block, or a colour
// profile the image writer could not embed, and the file's format holds metadata. Rewriting costs a copy
// of the file, so it is done only then.
bool needsMetadataRewrite(const QString& written, const VEXA::FileMetadata& metadata);

} // namespace vexatool
