// Carrying a shot's metadata into a file just written, shared by the tool and the application.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/file_metadata.h>
#include <vexa/imp/image_files.h>

#include <QString>

namespace vexatool {

// Puts into the writer's options what it embeds as it writes the pixels: the colour profile, and the EXIF
// block (orientation 1 when the pixels were turned upright) where the format takes it there.
void embedMetadata(const QString& written, const VImage& image, const VEXA::FileMetadata& metadata,
                   bool orientationApplied, VEXA::FileWriteOptions* options);

// Whether the written file must be rewritten to carry the metadata: it has an EXIF block or a colour profile
// that the image writer did not embed, and the file's format holds metadata. Rewriting costs a copy of the
// file, so it is done only then.
bool needsMetadataRewrite(const QString& written, const VEXA::FileMetadata& metadata,
                          const VEXA::FileWriteOptions& options);

} // namespace vexatool
