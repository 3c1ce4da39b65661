// Destinations that operations make for sources with a region of interest, taken from buffers the pool
// recycles: nothing of the images that held those buffers before may leave in a result, its byte array or
// its file. Each operation runs once over a pool full of marker bytes and once over a pool that has
// nothing, so that every buffer is new and zero; the two results must agree to the last byte. Legitimate
// pixels may well equal the marker, so the fresh run, not a search for the marker, tells them apart.
#include "support/images.h"
#include "support/operation_cases.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <set>

using namespace VEXA;
using namespace operation_cases;

namespace {

constexpr unsigned char kMarker = 0xA5;

// Buffers of every size the operations below ask for, each full of the marker and handed back to the pool;
// their addresses.
std::set<const unsigned char*> poolFullOfMarkers()
{
    BufferPool::instance().clear();
    std::set<const unsigned char*> addresses;
    QList<VImage> held;
    for (const QSize size : {QSize(kWidth, kHeight), kRoi.size(), kSquare.size()})
        for (Format f : allFormats())
            for (Channel c : allChannels())
                for (int copy = 0; copy < 4; ++copy) { // operations take temporaries of the same size too
                    VImage image;
                    image.create(size.width(), size.height(), f, c, OriginBottomLeft, RowsAlignNone);
                    std::memset(image.rawData(), kMarker, size_t(image.dataSize()));
                    addresses.insert(image.rawData());
                    held.append(image);
                }
    return addresses; // the images go here, their buffers to the pool
}

// Bytes outside the pixels of the (clipped) roi, row padding included, that are not zero.
long nonZeroOutsideRoi(const VImage& image)
{
    if (image.isEmpty())
        return 0;
    const QRect r = image.roi() & QRect(0, 0, image.width(), image.height());
    const long pixel = pixelBytes(image) / image.width(), left = r.left() * pixel, right = (r.right() + 1) * pixel;
    long count = 0;
    for (int y = 0; y < image.height(); ++y) {
        const unsigned char* row = image.rawData() + y * image.bytesPerLine();
        for (long i = 0; i < image.bytesPerLine(); ++i) {
            const bool inside = y >= r.top() && y <= r.bottom() && i >= left && i < right;
            count += !inside && row[i] != 0;
        }
    }
    return count;
}

QByteArray bufferOf(const VImage& image)
{
    return QByteArray(reinterpret_cast<const char*>(image.rawData()), int(image.dataSize()));
}

QByteArray savedFile(const VImage& image, const QString& path)
{
    QFile file(path);
    return image.save(path) && file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Runs the operation over a pool full of markers and over an empty one: the destination must be a recycled
// buffer the first time, and the two results, byte arrays and files must be the same.
VImage expectSameOverRecycledAndFreshBuffers(const Sources& sources, const Case& operation, const QTemporaryDir& dir)
{
    SCOPED_TRACE(operation.name);
    const std::set<const unsigned char*> markers = poolFullOfMarkers();
    VImage recycled;
    EXPECT_TRUE(operation.run(sources, &recycled));
    EXPECT_FALSE(recycled.isEmpty());
    EXPECT_EQ(markers.count(recycled.rawData()), 1u) << "the destination should have been a recycled buffer";

    BufferPool::instance().clear();
    VImage fresh;
    EXPECT_TRUE(operation.run(sources, &fresh));
    EXPECT_EQ(bufferOf(recycled), bufferOf(fresh));
    EXPECT_EQ(recycled.toByteArray(CompressionNone), fresh.toByteArray(CompressionNone));
    EXPECT_EQ(savedFile(recycled, dir.filePath("recycled.png")), savedFile(fresh, dir.filePath("fresh.png")));
    return recycled;
}

TEST(RecycledBuffers, DestinationsAreZeroOutsideTheRoiAndCarryNothingOfEarlierImages)
{
    const Sources sources = makeSources();
    QTemporaryDir dir;
    for (const Case& operation : kOperations) {
        const VImage result = expectSameOverRecycledAndFreshBuffers(sources, operation, dir);
        EXPECT_EQ(nonZeroOutsideRoi(result), 0) << operation.name;
    }
}

TEST(RecycledBuffers, NewImagesOfMembersCarryNothingOfEarlierImages)
{
    const Sources sources = makeSources();
    QTemporaryDir dir;
    for (const Case& member : kMembers)
        expectSameOverRecycledAndFreshBuffers(sources, member, dir);
}

} // namespace
