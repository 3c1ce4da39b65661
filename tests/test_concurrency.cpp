// Images created, shared, hashed, detached and destroyed on several threads at once, buffers cycling
// through the pool. Run under ThreadSanitizer as well (scripts/test --tsan).
#include "support/images.h"

#include <gtest/gtest.h>

#include <QMutex>
#include <QMutexLocker>

#include <atomic>
#include <deque>
#include <thread>
#include <vector>

using namespace VEXA;

namespace {

bool uniform(const VImage& image, unsigned char value)
{
    for (int y = 0; y < image.height(); ++y) {
        const unsigned char* row = image.rawData() + y * image.bytesPerLine();
        for (long i = 0; i < pixelBytes(image); ++i)
            if (row[i] != value)
                return false;
    }
    return true;
}

TEST(Concurrency, ImagesCrossThreadsThroughThePoolIntact)
{
    constexpr int threads = 4, rounds = 400;
    QMutex mutex;
    std::deque<std::pair<VImage, unsigned char>> handedOver;
    std::atomic<int> corrupt{0}, received{0};
    const VImage sharedByAll = makeImage(64, 64, BGR, Channel8u, 99);
    const QByteArray sharedHash = sharedByAll.copy().hash();

    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&, t] {
            for (int i = 0; i < rounds; ++i) {
                const unsigned char value = static_cast<unsigned char>(t * 50 + i % 7);
                VImage image;
                image.create(16 + 8 * (i % 3), 16, i % 2 ? BGR : GrayScale, Channel8u, OriginBottomLeft, RowsAlignNone);
                std::memset(image.rawData(), value, size_t(image.dataSize()));
                {
                    QMutexLocker lock(&mutex);
                    handedOver.emplace_back(image, value); // a handle that shares the buffer
                }
                std::pair<VImage, unsigned char> other;
                {
                    QMutexLocker lock(&mutex);
                    if (!handedOver.empty()) {
                        other = handedOver.front();
                        handedOver.pop_front();
                    }
                }
                if (!other.first.isEmpty()) {
                    ++received;
                    if (!uniform(other.first, other.second))
                        ++corrupt;
                }
                VImage mine = sharedByAll; // hashed and detached while others read it
                if (mine.hash() != sharedHash)
                    ++corrupt;
                if (i % 5 == 0) {
                    mine.setRoi(QRect(1, 1, 4, 4));
                    if (mine.hash() != sharedHash)
                        ++corrupt;
                }
            }
        });
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_EQ(corrupt.load(), 0);
    EXPECT_GT(received.load(), threads * rounds / 2);
    EXPECT_EQ(sharedByAll.roi(), QRect(0, 0, 64, 64));
    EXPECT_LE(BufferPool::instance().idleBytes(), BufferPool::limit);
}

} // namespace
