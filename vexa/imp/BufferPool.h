// The process-wide pool of image buffers, so that images of recurring sizes (video frames, pyramid
// levels, the temporaries of operations) cost no allocator call and no zero fill. Reuse needs an exact
// byte-count match and hands the buffer over with its old contents. Idle buffers are bounded by
// `limit` bytes: the oldest go first, and the check runs before a returned buffer is counted, so the
// pool may exceed the limit by at most one buffer. Buffers larger than the limit are never kept.
#pragma once

#include <QMutex>

#include <cstddef>
#include <deque>
#include <memory>

#include <vexa/vexa_export.h>

namespace VEXA {

// One zero-filled block of bytes, given back to the allocator when the last holder lets go.
class VEXA_EXPORT ByteBuffer {
public:
    explicit ByteBuffer(size_t size); // throws std::bad_alloc
    ~ByteBuffer();
    ByteBuffer(const ByteBuffer&) = delete;
    ByteBuffer& operator=(const ByteBuffer&) = delete;

    unsigned char* data() const { return data_; }
    size_t size() const { return size_; }
    // Blocks alive in the process, held by images or idle in the pool: what a leak check counts.
    static size_t liveCount();

private:
    unsigned char* data_ = nullptr;
    size_t size_ = 0;
};

using SharedBuffer = std::shared_ptr<ByteBuffer>;

class VEXA_EXPORT BufferPool {
public:
    static constexpr size_t limit = 200'000'000;

    static BufferPool& instance();

    // The first idle buffer of exactly `size` bytes, contents kept; otherwise a new zero-filled one. A size
    // of 0 gives no buffer at all (null). *recycled, when asked for, tells which of the two it was.
    SharedBuffer acquire(size_t size, bool* recycled = nullptr);
    // Keeps the buffer for reuse unless it is empty, larger than the limit, or still held elsewhere: a
    // buffer somebody else holds stays theirs and is never handed to a second image.
    void release(SharedBuffer buffer);

    size_t idleBytes() const;
    size_t idleCount() const;
    void clear();

private:
    mutable QMutex mutex_;
    std::deque<SharedBuffer> idle_; // front is the oldest
    size_t idleBytes_ = 0;
};

} // namespace VEXA
