// Images created, shared, hashed, detached and destroyed on several threads at once, buffers cycling
// through the pool. Run under ThreadSanitizer as well (scripts/test --tsan).
#include "support/images.h"
#include "support/operation_cases.h"

#include <gtest/gtest.h>

#include <QMutex>
#include <QMutexLocker>

#include <atomic>
#include <chrono>
#include <deque>
#include <random>
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

QByteArray bytesOf(const VImage& image)
{
    return QByteArray(reinterpret_cast<const char*>(image.rawData()), int(image.dataSize()));
}

// Four threads call operations picked at random over one set of sources shared by handle copies, while
// they also change their own copies of those sources (which detach first, never touching the shared
// pixels): every result must be what the same call gives alone, the pool stays within its bound, and
// no block outlives the images once the pool is emptied. VEXA_STRESS_SECONDS sets how long (default 2;
// CI runs it for 30 under ThreadSanitizer).
TEST(Concurrency, RandomOperationsOnSharedImagesMatchTheirLoneResults)
{
    using namespace operation_cases;
    const double seconds = qEnvironmentVariableIsSet("VEXA_STRESS_SECONDS")
                               ? qEnvironmentVariable("VEXA_STRESS_SECONDS").toDouble()
                               : 2.0;
    const size_t liveBefore = ByteBuffer::liveCount() - BufferPool::instance().idleCount();
    std::vector<Case> cases(std::begin(kOperations), std::end(kOperations));
    cases.insert(cases.end(), std::begin(kMembers), std::end(kMembers));
    std::atomic<long> calls{0}, wrong{0}, overPool{0};
    {
        const Sources shared = makeSources();
        const QByteArray grayBefore = bytesOf(shared.gray);
        std::vector<QByteArray> alone;
        for (const Case& c : cases) {
            VImage result;
            EXPECT_TRUE(c.run(shared, &result)) << c.name;
            alone.push_back(bytesOf(result));
        }
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        std::vector<std::thread> workers;
        for (int t = 0; t < 4; ++t)
            workers.emplace_back([&, t] {
                std::mt19937 random(unsigned(t + 1));
                while (std::chrono::steady_clock::now() < deadline) {
                    const size_t pick = random() % cases.size();
                    Sources mine = shared; // handles to the same pixels
                    VImage result;
                    if (!cases[pick].run(mine, &result) || bytesOf(result) != alone[pick])
                        ++wrong;
                    // A member that changes the image detaches it first; the fill then writes the copy.
                    mine.gray.setRoi(QRect(0, 0, 8, 8));
                    double value = double(random() % 256);
                    fillImage(&mine.gray, &value, 1);
                    if (BufferPool::instance().idleBytes() > BufferPool::limit + size_t(result.dataSize()))
                        ++overPool;
                    ++calls;
                }
            });
        for (std::thread& worker : workers)
            worker.join();
        EXPECT_EQ(bytesOf(shared.gray), grayBefore);
    }
    EXPECT_EQ(wrong.load(), 0) << "of " << calls.load() << " calls";
    EXPECT_EQ(overPool.load(), 0);
    EXPECT_GT(calls.load(), 4);
    BufferPool::instance().clear();
    EXPECT_EQ(ByteBuffer::liveCount(), liveBefore);
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

TEST(Concurrency, SharedHistogramsAndListsAreReadOnManyThreads)
{
    VImage image;
    image.create(64, 64, XRGB, Channel8u, OriginBottomLeft, RowsAlignNone);
    std::memset(image.rawData(), 5, size_t(image.dataSize()));
    const VHistogram shared = image.histogram();
    VImageList list;
    for (int i = 0; i < 3; ++i)
        list.add(image.copy());
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 300; ++i) {
                VHistogram mine = shared;
                if (mine.componentData(ComponentRed)[5] != 4096)
                    ++wrong;
                mine.setSkipData(i); // a writer detaches; the shared one stays as it is
                VImageList copy = list;
                if (copy.count() != 3 || copy.at(2).width() != 64)
                    ++wrong;
                copy.add(image); // likewise
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(shared.skipData(), 0);
    EXPECT_EQ(list.count(), 3);
}

} // namespace
