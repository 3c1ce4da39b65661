// An ordered list of images for the multi-image operations. It can refuse images that differ from its
// first one in format and channel type, or in size, so that operations reading it may count on uniform
// inputs. A shared copy-on-write value: copies share one body until one of them changes.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <QExplicitlySharedDataPointer>
#include <QList>

namespace VEXA {
struct ImageListData;
}

class VEXA_EXPORT VImageList {
public:
    // Both checks on or both off (the default).
    explicit VImageList(bool checks = false);
    VImageList(const VImageList& other);
    VImageList& operator=(const VImageList& other);
    ~VImageList();

    // Appends unless a check refuses the image (the first image is always taken); false when refused.
    bool add(VImage image);
    // A handle sharing the image at that position; an empty image past the end.
    VImage at(unsigned int index) const;
    void remove(unsigned int index); // past the end: ignored
    void removeAll();
    int count() const;
    bool isEmpty() const;
    // Of the first image; -1 for an empty list.
    VEXA::Format format() const;
    VEXA::Channel channelType() const;

    bool enableSizeCheck(bool enabled);
    bool enableFormatCheck(bool enabled);
    bool isEnabledSizeCheck() const;
    bool isEnabledFormatCheck() const;

    VStatus status() const;
    void setStatus(const VStatus& status);

    VEXA::ImageListData* data(); // detaches
    const VEXA::ImageListData* constData() const;

private:
    // The images' cached hashes are dropped after they were changed in place.
    void modified() const;

    QExplicitlySharedDataPointer<VEXA::ImageListData> d;
};
