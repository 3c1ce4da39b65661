/// @file
/// @brief Metadata of image files, and pixels turned upright for an EXIF orientation (group @ref exchange).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <QByteArray>
#include <QString>

namespace VEXA {

/// @addtogroup exchange
/// **Metadata of image files** (readFileMetadata(), writeFileMetadata(), holdsMetadata(), orientedImage()):
/// the EXIF block, the ICC colour profile and the EXIF orientation, read and written through exiv2, and
/// pixels turned upright for an orientation.
///
/// What each format keeps, as writeFileMetadata() writes it:
/// - JPEG: EXIF (APP1) and profile (APP2, in pieces when over 64 KB); Qt's reader finds both.
/// - PNG: EXIF as a "Raw profile type exif" text chunk (readFileMetadata() reads it, Qt's reader doesn't)
///   and the profile as iCCP, named "ICC profile" (exiv2 0.27 leaves the name empty, which libpng refuses,
///   profile and all).
/// - TIFF: EXIF tags in IFD0 and its EXIF directory, the profile as InterColorProfile; the tags of the
///   image's own layout stay the file's. Orientation is the TIFF's own tag, applied by Qt's reader. A profile
///   alone (no EXIF block, orientation 1) goes in through libtiff, the directory written anew at the end of
///   the file, without a copy of the pixels.
/// - WebP: EXIF and ICCP chunks, flagged in VP8X (exiv2 0.27 labels the ICCP chunk as a second VP8X, which
///   no reader accepts; it is put right here). Qt's reader applies no orientation from it.
///
/// exiv2 logs what it steps over instead of throwing. This library sets exiv2's log level and handler, once
/// and for the whole process: errors reach the status of the reading thread, nothing is printed.
///
/// **Threads:** reentrant; any number of files may be read from different threads at once, and different
/// files written. None of these report progress or can be cancelled.
/// @{

/// The metadata of an image file, as readFileMetadata() gives it and writeFileMetadata() takes it. A plain
/// value.
struct FileMetadata {
    QByteArray exif;       ///< TIFF-structured EXIF block, little-endian as read; empty when none
    QByteArray iccProfile; ///< the ICC profile as stored; empty when none
    int orientation = 1;   ///< EXIF orientation, 1..8

    /// Whether there is nothing to write: no EXIF block, no profile and orientation 1.
    bool isEmpty() const { return exif.isEmpty() && iccProfile.isEmpty() && orientation == 1; }
};

/// The metadata of any file exiv2 reads (JPEG, PNG, TIFF, WebP, camera raws...): the EXIF block re-encoded
/// by exiv2 as a little-endian TIFF-structured block (byte-order mark first: what a JPEG's APP1 segment holds
/// after "Exif" and two zero bytes), the ICC profile, and Exif.Image.Orientation (1 when absent, not an
/// integer or outside 1..8). The profile is kept in FileMetadata::iccProfile only (a TIFF's
/// InterColorProfile tag moves there), and the IFD0 tags telling how a TIFF stores its pixels (size,
/// samples, strips...) are left out.
///
/// A file exiv2 can't open or parse, a format it doesn't know (PPM, XPM...), and metadata it reports damaged
/// with no EXIF tag recovered give empty metadata and, in @p status when given, a failed status (issue 600)
/// with exiv2's reason on one line, logged as "Failed to read metadata from file FILE Reason: REASON"; a
/// block with some tags damaged keeps the tags exiv2 recovered. Otherwise @p status is set to Ok.
VEXA_EXPORT FileMetadata readFileMetadata(const QString& fileName, VStatus* status = nullptr);
/// Writes into an existing file of a suffix holdsMetadata() accepts the EXIF block and the ICC profile of
/// @p metadata; an empty one keeps the file's own. The written Exif.Image.Orientation is 1 when
/// @p orientationApplied (the pixels are upright already), else FileMetadata::orientation (1 when outside
/// 1..8), except that with no block given an orientation of 1 leaves the file's own alone; the tag is added
/// only for a value other than 1, and an XMP packet already in the file has its tiff:Orientation kept in
/// step. The EXIF thumbnail is dropped (it shows the picture as it was before), so are the IFD0 tags telling
/// how a TIFF stored its pixels, and Exif.Photo.PixelXDimension and PixelYDimension, where present, get the
/// file's own size.
///
/// Empty metadata, and files of other suffixes, are left alone (Ok). The file is replaced only once the
/// whole write succeeded; a failure (issue 700, logged as "Failed to write metadata to file FILE Reason:
/// REASON") leaves it as it was. Reasons: the file's own error text (it cannot be read or replaced), "The
/// EXIF block can't be decoded." followed by exiv2's account, "exiv2 kept no result.", or exiv2's account
/// of what failed.
VEXA_EXPORT VStatus writeFileMetadata(const QString& fileName, const FileMetadata& metadata, bool orientationApplied);
/// Whether writeFileMetadata writes into a file of this name, by its suffix (jpg, jpeg, png, tif, tiff,
/// webp; case ignored).
VEXA_EXPORT bool holdsMetadata(const QString& fileName);
/// The EXIF block that writeFileMetadata() would write for @p metadata into a new file of
/// @p width x @p height pixels (orientation, thumbnail, storage tags and pixel dimensions as it says), as a
/// little-endian TIFF-structured block: for FileWriteOptions::exif, so that a writer that embeds it
/// (embedsExif()) needs no rewrite of its file afterwards. Empty when there is nothing to write (no block
/// and orientation 1) and when the block cannot be decoded (writeFileMetadata() then gives the reason);
/// nothing is logged.
VEXA_EXPORT QByteArray exifForFile(const FileMetadata& metadata, bool orientationApplied, int width, int height);
/// The image as a viewer shows it for an EXIF orientation: 2 mirrored left to right, 3 turned a half turn,
/// 4 mirrored top to bottom, 5 transposed (mirrored about the top-left to bottom-right diagonal), 6 turned a
/// quarter clockwise, 7 transversed (mirrored about the other diagonal), 8 turned a quarter
/// counter-clockwise: what Qt's reader gives with auto-transform on. 1, and values outside 1..8, return the
/// image itself.
///
/// Row 0 is the top as displayed whatever the origin, as the file readers and writers and toQImage take it;
/// the result is a new image that keeps the source's format, channel type, origin and rows alignment, with
/// the whole image as roi (5 to 8 swap width and height). Every format and channel type, but YUV422 only
/// for 1 (two pixels share their chroma, so columns can't be moved apart): else an empty image with a failed
/// status (issue 3200, "Reason: YUV422 can't be turned or mirrored: two pixels share their chroma"); so
/// does a result too large to create. An invalid or empty image is returned as it is.
VEXA_EXPORT VImage orientedImage(const VImage& image, int orientation);

/// @}

} // namespace VEXA
