#include <vexa/imp/VImageList.h>

#include <QSharedData>

namespace VEXA {

struct ImageListData : QSharedData {
    QList<VImage> images;
    bool formatCheck = false;
    bool sizeCheck = false;
    VStatus status;
};

} // namespace VEXA

using namespace VEXA;

VImageList::VImageList(bool checks) : d(new ImageListData)
{
    d->formatCheck = checks;
    d->sizeCheck = checks;
}

VImageList::VImageList(const VImageList& other) = default;
VImageList& VImageList::operator=(const VImageList& other) = default;
VImageList::~VImageList() = default;

ImageListData* VImageList::data()
{
    d.detach();
    return d.data();
}

const ImageListData* VImageList::constData() const { return d.data(); }

bool VImageList::add(VImage image)
{
    if (!d->images.isEmpty()) {
        const VImage& first = d->images.first();
        if (d->formatCheck && (image.format() != first.format() || image.channelType() != first.channelType()))
            return false;
        if (d->sizeCheck && (image.width() != first.width() || image.height() != first.height()))
            return false;
    }
    data()->images.append(std::move(image));
    return true;
}

VImage VImageList::at(unsigned int index) const
{
    return index < unsigned(d->images.size()) ? d->images.at(qsizetype(index)) : VImage();
}

void VImageList::remove(unsigned int index)
{
    if (index < unsigned(d->images.size()))
        data()->images.removeAt(qsizetype(index));
}

void VImageList::removeAll() { data()->images.clear(); }
int VImageList::count() const { return int(d->images.size()); }
bool VImageList::isEmpty() const { return d->images.isEmpty(); }
Format VImageList::format() const { return d->images.isEmpty() ? Invalid : d->images.first().format(); }
Channel VImageList::channelType() const { return d->images.isEmpty() ? ChannelInvalid : d->images.first().channelType(); }

bool VImageList::enableSizeCheck(bool enabled) { return data()->sizeCheck = enabled; }
bool VImageList::enableFormatCheck(bool enabled) { return data()->formatCheck = enabled; }
bool VImageList::isEnabledSizeCheck() const { return d->sizeCheck; }
bool VImageList::isEnabledFormatCheck() const { return d->formatCheck; }

VStatus VImageList::status() const { return d->status; }
void VImageList::setStatus(const VStatus& status) { data()->status = status; }

void VImageList::modified() const
{
    for (const VImage& image : d->images)
        image.resetHash();
}
