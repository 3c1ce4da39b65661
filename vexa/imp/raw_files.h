/// @file
/// @brief Camera raw files, developed through LibRaw (group @ref exchange).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <QSize>
#include <QString>

namespace VEXA {

/// @addtogroup exchange
/// **Camera raw files** (readRawFile(), isRawFile()), developed through LibRaw. A raw file holds the
/// sensor's mosaic, not a picture: it has to be developed (black and white levels, white balance,
/// demosaicing, the camera's colour matrix into sRGB, a tone curve) before the library can work on it. Qt's
/// readers cannot do that, and the TIFF reader takes many raw files for the small preview they carry, so
/// raw files come in here instead (readImageFile() hands them on).
///
/// **Threads:** each call uses a decoder of its own, and only the opening of files (a few header reads)
/// takes turns, so both may be called from any number of threads at once. Neither reports progress nor can
/// be cancelled.
/// @{

/// How readRawFile() develops a raw file. A plain value; the defaults give LibRaw's own development with
/// the camera's as-shot white balance.
struct RawReadOptions {
    bool linear = false;            ///< true: the sensor's levels (gamma 1, no brightening); false: LibRaw's curve
    bool cameraWhiteBalance = true; ///< true: as shot; false: the camera's daylight balance
};

/// The developed picture of a camera raw file at full size, upright as shot, as BGR 16u (blue first), origin
/// 1 and rows alignment 0. RawReadOptions::linear keeps the sensor's levels (gamma 1, no brightening: the raw
/// white level becomes 65535); otherwise the picture is as LibRaw develops it by default (BT.709 curve,
/// brightened so that 1% of the pixels clip). White balance is the camera's as-shot one, or its daylight
/// one. A sensor of one component (monochrome) gives gray in all three.
///
/// A file is refused before its data are decoded when developing it would hold more than imageSizeLimit()
/// bytes at its peak (16 bytes a pixel: the sensor's samples, LibRaw's four working components and the
/// picture), and LibRaw's own allocation ceiling is kept under that limit too. Every failure (unreadable,
/// not raw, damaged or cut-off data, too large) gives an empty image whose status carries the reason (issue
/// 600), logged as "Failed to load image from file FILE Reason: REASON": LibRaw's own account followed by a
/// full stop, "developing it needs more than its picture: " with the limit's account, "LibRaw developed N
/// components of B bits.", or "no memory for the developed picture."; nothing is thrown.
VEXA_EXPORT VImage readRawFile(const QString& fileName, const RawReadOptions& options = RawReadOptions());
/// Whether readRawFile is the reader for a file. LibRaw must open it (by its contents), and it must either
/// carry a DNG version or have the suffix of a camera's raw format (3fr, arw, cr2, cr3, crw, dcr, erf, iiq,
/// kdc, mef, mos, mrw, nef, nrw, orf, pef, raf, rw2, rwl, sr2, srf, srw, x3f; case ignored). The suffix is
/// asked because LibRaw also opens plain TIFFs of 16-bit gray that name a camera maker, taking them for a
/// mosaic, while they are ordinary images for Qt's reader; "dng" is not such a suffix, since a real DNG
/// always says which version it is. False for a file that cannot be opened; nothing is logged.
VEXA_EXPORT bool isRawFile(const QString& fileName);
/// The size of the picture readRawFile() develops from a raw file, upright as shot, from the file's header
/// alone: nothing is unpacked or developed, so it takes milliseconds whatever the file's size or the size
/// limit. An invalid QSize for a file LibRaw cannot open (isRawFile()'s suffix rule is not applied);
/// nothing is logged.
VEXA_EXPORT QSize rawImageSize(const QString& fileName);

/// @}

} // namespace VEXA
