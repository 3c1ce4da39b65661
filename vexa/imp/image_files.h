/// @file
/// @brief Image files at the depth they hold (group @ref exchange).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/file_metadata.h>
#include <vexa/imp/raw_files.h>
#include <vexa/vexa_export.h>

#include <QString>

namespace VEXA {

/// @addtogroup exchange
/// **Image files at the depth they hold** (readImageFile(), writeImageFile()): VImage::load and VImage::save
/// keep their 8-bit mapping (16-bit colour comes in as 8 bits, and only 8-bit images and 16-bit gray go
/// out); these read and write what the file can hold. Both keep a component's value exactly where the file
/// holds it (16u through PNG and TIFF, bit for bit). PNG and TIFF are written through libpng and libtiff
/// row by row, straight from the image's rows (faster than Qt's writers, and with no second copy of a large
/// picture); the other formats, and premultiplied colour into TIFF, through Qt's writers.
///
/// **Failures** of writeImageFile() are logged as "Failed to save image to file FILE Reason: REASON" (issue
/// Issue::Saving, 700), with REASON as the status's reason(): "conversion to nearest storable format
/// failed." (an empty image, or one with no storable form), "failed to write to file. Unsupported image
/// format" (a suffix other than png that names none of Qt's writers: tif and tiff need Qt's TIFF plugin
/// too), or "failed to write to file. " followed by the device's or Qt's writer's account (a file that
/// cannot be opened, written or put in place, or libpng's or libtiff's complaint, "PNG: ..." or "TIFF: ...",
/// when the encoder fails part way, on a full disk say). An image whose own status is a failure returns that
/// status, logging nothing.
///
/// **Progress and cancellation** (VProgress): writeImageFile() reports its stage as "writing"; through
/// libpng and libtiff every 64 rows, where it can also be cancelled, through Qt's writers only once done,
/// after a check for a cancellation before it starts. A cancelled write returns "Operation cancelled" and
/// leaves what stood under the name before (with FileWriteOptions::replaceWhenComplete false: no file).
/// readImageFile() reports nothing and cannot be cancelled.
///
/// **Threads:** reentrant. Any number of files may be read and written from different threads at once, and
/// one image may be written by several calls at once; no two calls may write the same file at once.
/// @{

/// How readImageFile() reads a file. A plain value; the defaults keep the file's depth and orientation.
struct FileReadOptions {
    bool keepDepth = true;        ///< false: 16-bit colour comes in as 8 bits, as VImage::load reads it
    RawReadOptions raw;           ///< how camera raw files are developed
    bool applyOrientation = true; ///< false: the pixels as stored, whatever the EXIF orientation says
    /// true: 8-bit colour without alpha comes in as BGR (three bytes a pixel) where the file's decoder writes
    /// it straight into the image's rows: PNG that is not interlaced. Other files come in as they would
    /// otherwise (XRGB), to be converted by the caller if need be. One picture in memory instead of two for
    /// callers that work in BGR (the focus merge takes 8-bit colour so).
    bool preferBgr = false;
};

/// Reads an image file at the depth it holds: 16-bit colour PNG and TIFF become XRGB 16u (no alpha), ARGB
/// 16u or ARGB_Premultiplied 16u, 16-bit gray GrayScale 16u; camera raw files (isRawFile()) are developed by
/// readRawFile() as BGR 16u; everything else comes in as VImage::load reads it. With
/// FileReadOptions::keepDepth false, the file is read as VImage::load reads it, raw files included (as Qt's
/// readers take them), and then turned upright as below.
///
/// A JPEG, PNG, TIFF or WebP (told by its contents) whose EXIF orientation is not 1 comes in upright
/// (orientedImage()), as viewers show it, unless FileReadOptions::applyOrientation is false; raw files come
/// upright from LibRaw. Images read have origin 1 and rows alignment 0, with the whole image as roi.
///
/// Failures are VImage::load's (readRawFile()'s for raw files): an empty image whose status carries the
/// reason (issue 600). A file whose header promises more than imageSizeLimit() bytes is refused before its
/// pixels are decoded.
VEXA_EXPORT VImage readImageFile(const QString& fileName, const FileReadOptions& options = FileReadOptions());

/// How writeImageFile() writes a file. A plain value.
struct FileWriteOptions {
    int quality = -1;      ///< JPEG and WebP, 0 to 100 (more counts as 100); -1 (or any negative) the writer's
                           ///< default (75 for JPEG)
    int compression = -1;  ///< PNG: deflate level 0 (stored) to 9 (more counts as 9), -1 (or any negative) fast
                           ///< run-length deflate after Paeth prediction; TIFF: 0 or -1 (or any negative)
                           ///< none, above 0 LZW
    QByteArray iccProfile; ///< written into the file where embedsProfile() says so; empty: none
    QByteArray exif;       ///< a TIFF-structured EXIF block (exifForFile()), written into the file where
                           ///< embedsExif() says so (PNG's eXIf chunk); empty: none
    bool replaceWhenComplete = true; ///< false: straight into the file, removed on failure, for callers
                                     ///< that write to a temporary name of their own
};

/// Writes @p image to @p fileName in the format its suffix names (case ignored). Into PNG and TIFF, images of
/// 16u (and of 8s, 16s, 32s and 32f, brought to 16u as the same picture by convertScaled) are written with
/// 16 bits a component: GrayScale as 16-bit gray, BGR and XRGB as 16-bit colour, ARGB and ARGB_Premultiplied
/// with alpha. 8u images, and every image into formats of 8 bits (JPEG, BMP, WebP...), are written with 8
/// bits a component in the layout VImage::save gives them, other depths first brought to 8u as the same
/// picture. YUV422 is written as XRGB, and so is BGR that changes depth. Into PNG, premultiplied colour is
/// divided by alpha first, as Qt's writers do.
///
/// The file is written under a temporary name beside it and renamed into place when complete, so a failed or
/// cancelled write leaves what stood there before (unless FileWriteOptions::replaceWhenComplete is false).
/// Returns Ok, or a failed status saying why (see the group's **Failures**); progress is reported as
/// "writing".
VEXA_EXPORT VStatus writeImageFile(const VImage& image, const QString& fileName,
                                   const FileWriteOptions& options = FileWriteOptions());
/// Whether writeImageFile puts this colour profile into a file of this name, as it writes the pixels: PNG
/// and TIFF always (premultiplied colour into TIFF only where Qt understands the profile), JPEG and WebP
/// when Qt's writers understand it. Others (and EXIF where embedsExif() says no) need
/// writeFileMetadata afterwards, which rewrites the whole file.
VEXA_EXPORT bool embedsProfile(const QString& fileName, const QByteArray& iccProfile);
/// Whether writeImageFile puts FileWriteOptions::exif into a file of this name as it writes the pixels:
/// PNG (its eXIf chunk). Others need writeFileMetadata afterwards.
VEXA_EXPORT bool embedsExif(const QString& fileName);
/// Whether writeImageFile writes 16 bits a component into a file of this name (by its suffix: png, tif and
/// tiff, case ignored).
VEXA_EXPORT bool holdsSixteenBits(const QString& fileName);

/// @}

} // namespace VEXA
