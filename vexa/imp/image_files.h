// Image files at the depth they hold.
//
// VImage::load and save keep their 8-bit mapping (16-bit colour comes in as 8 bits, and only 8-bit images
// and 16-bit gray go out). These read and write what the file can hold:
// - readImageFile: 16-bit colour PNG and TIFF become XRGB 16u (no alpha), ARGB 16u or ARGB_Premultiplied
//   16u, 16-bit gray GrayScale 16u; camera raw files (isRawFile) developed by readRawFile as BGR 16u;
//   everything else as VImage::load reads it. With keepDepth false, exactly VImage::load. Failures are
//   VImage::load's (readRawFile's for raw files), in the returned image's status. A JPEG, PNG, TIFF or
//   WebP whose EXIF orientation is not 1 comes in upright (orientedImage), as viewers show it, unless
//   applyOrientation is false; raw files come upright from LibRaw.
// - writeImageFile: into PNG and TIFF, images of 16u (and of 8s, 16s, 32s and 32f, brought to 16u as the
//   same picture by convertImageScaled) are written with 16 bits a component: GrayScale as 16-bit gray,
//   BGR and XRGB as 16-bit colour, ARGB and ARGB_Premultiplied with alpha. 8u images, and every image into
//   formats of 8 bits (JPEG, BMP, WebP...), are written as VImage::save writes them, other depths first
//   brought to 8u as the same picture. PNG and TIFF go through libpng and libtiff row by row (png_file.h
//   and tiff_file.h say why), the other formats (and premultiplied colour into TIFF) through Qt's writers. The file is written under a temporary name beside it and
//   renamed into place when complete, so a failed or cancelled write leaves what stood there before
//   (unless replaceWhenComplete is false). The
//   returned status says why a write failed; progress is reported as "writing".
// Both keep a component's value exactly where the file holds it (16u through PNG and TIFF, bit for bit).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/file_metadata.h>
#include <vexa/imp/raw_files.h>
#include <vexa/vexa_export.h>

#include <QString>

namespace VEXA {

struct FileReadOptions {
    bool keepDepth = true;        // false: 16-bit colour comes in as 8 bits, as VImage::load reads it
    RawReadOptions raw;           // how camera raw files are developed
    bool applyOrientation = true; // false: the pixels as stored, whatever the EXIF orientation says
};

VEXA_EXPORT VImage readImageFile(const QString& fileName, const FileReadOptions& options = FileReadOptions());
struct FileWriteOptions {
    int quality = -1;      // JPEG and WebP, 0 to 100; -1 the writer's default (75 for JPEG)
    int compression = -1;  // PNG: deflate level 0 (stored) to 9, -1 fast run-length deflate after Paeth
                           // prediction; TIFF: 0 or -1 none, above 0 LZW
    QByteArray iccProfile; // written into the file where embedsProfile says so
    bool replaceWhenComplete = true; // false: straight into the file, removed on failure, for callers
                                     // that write to a temporary name of their own
};

VEXA_EXPORT VStatus writeImageFile(const VImage& image, const QString& fileName,
                                   const FileWriteOptions& options = FileWriteOptions());
// Whether writeImageFile puts this colour profile into a file of this name, as it writes the pixels: PNG
// and TIFF always (premultiplied colour into TIFF only where Qt understands the profile), JPEG and WebP
// when Qt's writers understand it. Others (and EXIF) need
// writeFileMetadata afterwards, which rewrites the whole file.
VEXA_EXPORT bool embedsProfile(const QString& fileName, const QByteArray& iccProfile);
// Whether writeImageFile writes 16 bits a component into a file of this name (by its suffix).
VEXA_EXPORT bool holdsSixteenBits(const QString& fileName);

} // namespace VEXA
