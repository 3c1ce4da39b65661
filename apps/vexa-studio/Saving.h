// Writing a result as a person saving it expects: at its depth where the format holds it (16-bit PNG and
// TIFF), with the format's options, and with the first shot's metadata (EXIF and colour profile) carried
// into the file.
#pragma once

#include <vexa/imp/VImage.h>

#include <QString>

namespace studio {

struct SaveSettings {
    int jpegQuality = 92;       // 0 to 100
    bool tiffCompressed = true; // LZW, lossless
    QString metadataFrom;       // the file whose EXIF and colour profile the result carries; empty for none
};

// Writes image into file (under a temporary name, renamed into place when complete); the reason of a
// failure, empty on success. A metadata block that cannot be carried is not a failure: *warning says so.
QString saveImageFile(const VImage& image, const QString& file, const SaveSettings& settings,
                      QString* warning = nullptr);

} // namespace studio
