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

// Reads go through constData(): a non-const QList call on the shared body (first(), begin()) would
// detach the list inside it, a write that races with every other holder's reads.

bool VImageList::add(VImage image)
{
    const ImageListData* body = constData();
    if (!body->images.isEmpty()) {
        const VImage& first = body->images.constFirst();
        if (body->formatCheck && (image.format() != first.format() || image.channelType() != first.channelType()))
            return false;
        if (body->sizeCheck && (image.width() != first.width() || image.height() != first.height()))
            return false;
    }
    data()->images.append(std::move(image));
    return true;
}

VImage VImageList::at(unsigned int index) const
{
    const QList<VImage>& images = constData()->images;
    return index < unsigned(images.size()) ? images.at(qsizetype(index)) : VImage();
}

void VImageList::remove(unsigned int index)
{
    if (index < unsigned(count()))
        data()->images.removeAt(qsizetype(index));
}

void VImageList::removeAll() { data()->images.clear(); }
int VImageList::count() const { return int(constData()->images.size()); }
bool VImageList::isEmpty() const { return constData()->images.isEmpty(); }
Format VImageList::format() const { return isEmpty() ? Invalid : constData()->images.constFirst().format(); }
Channel VImageList::channelType() const
{
    return isEmpty() ? ChannelInvalid : constData()->images.constFirst().channelType();
}

bool VImageList::enableSizeCheck(bool enabled) { return data()->sizeCheck = enabled; }
bool VImageList::enableFormatCheck(bool enabled) { return data()->formatCheck = enabled; }
bool VImageList::isEnabledSizeCheck() const { return constData()->sizeCheck; }
bool VImageList::isEnabledFormatCheck() const { return constData()->formatCheck; }

VStatus VImageList::status() const { return constData()->status; }
void VImageList::setStatus(const VStatus& status) { data()->status = status; }

void VImageList::modified() const
{
    for (const VImage& image : constData()->images)
        image.resetHash();
}
