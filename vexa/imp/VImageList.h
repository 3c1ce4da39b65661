/// @file
/// @brief Ordered lists of images for the multi-image operations (group @ref keypoints).
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <QExplicitlySharedDataPointer>
#include <QList>

namespace VEXA {
/// The body of a VImageList, defined inside the library. Used by VImageList; not needed by callers.
struct ImageListData;
}

/// @addtogroup keypoints
/// **Image lists** (VImageList): an ordered list of images for the multi-image operations, such as
/// findKeypointPositions(). It can refuse images that differ from its first one in format and channel
/// type, or in size, so that operations reading it may count on uniform inputs. A shared copy-on-write
/// value: copies share one body until one of them changes.
///
/// **Threads (lists):** the count of the shared body is atomic and const members never detach, so copies
/// may be read and changed on different threads at once; one list must not be changed while another
/// thread uses it.
/// @{

/// An ordered list of images, with an optional format check and size check against the first image, and a
/// status. A shared copy-on-write value: copies share one body until one of them changes; the images in it
/// are VImage handles, which share their pixels with the handles they were added from.
class VEXA_EXPORT VImageList {
public:
    /// An empty list with a good status, and both checks on or both off (the default).
    explicit VImageList(bool checks = false);
    /// Shares other's body.
    VImageList(const VImageList& other);
    /// Shares other's body.
    VImageList& operator=(const VImageList& other);
    /// Gives up this handle's share of the body.
    ~VImageList();

    /// Appends unless a check refuses the image (the first image is always taken); false when refused.
    /// The format check refuses another format or channel type than the first image's, the size check
    /// another width or height (of the whole image; rois play no part).
    bool add(VImage image);
    /// A handle sharing the image at that position; an empty image past the end.
    VImage at(unsigned int index) const;
    /// Removes the image at index; past the end: ignored.
    void remove(unsigned int index); // past the end: ignored
    /// Removes every image; the checks and the status stay.
    void removeAll();
    /// The number of images.
    int count() const;
    /// Whether the list holds no image.
    bool isEmpty() const;
    /// Of the first image; -1 for an empty list: the first image's format, VEXA::Invalid for an empty list.
    VEXA::Format format() const;
    /// The first image's channel type, VEXA::ChannelInvalid (-1) for an empty list.
    VEXA::Channel channelType() const;

    /// Turns the size check on or off for the images added from now on (those in the list are not checked
    /// again); returns enabled.
    bool enableSizeCheck(bool enabled);
    /// Turns the format check (format and channel type) on or off, as enableSizeCheck(); returns enabled.
    bool enableFormatCheck(bool enabled);
    /// Whether the size check is on.
    bool isEnabledSizeCheck() const;
    /// Whether the format check is on.
    bool isEnabledFormatCheck() const;

    /// The list's status: good for a new list, otherwise what setStatus() set. Operations refuse a list with
    /// a failed status as they refuse such a source image ("Bad status of image!").
    VStatus status() const;
    /// Sets status().
    void setStatus(const VStatus& status);

    /// The body for writing (ImageListData is the library's own). Detaches first. Used by the library;
    /// not needed by callers.
    VEXA::ImageListData* data(); // detaches
    /// The body for reading, without detaching. Used by the library; not needed by callers.
    const VEXA::ImageListData* constData() const;

private:
    // The images' cached hashes are dropped after they were changed in place.
    void modified() const;

    QExplicitlySharedDataPointer<VEXA::ImageListData> d;
};

/// @}
