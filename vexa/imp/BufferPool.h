/// @file
/// @brief The process-wide pool of image buffers and the buffers themselves (group @ref images).
#pragma once

#include <QMutex>

#include <cstddef>
#include <deque>
#include <memory>

#include <vexa/vexa_export.h>

namespace VEXA {

/// @addtogroup images
/// @{

/// One zero-filled block of bytes, given back to the allocator when the last holder lets go. Neither
/// copyable nor assignable: it is shared through SharedBuffer.
class VEXA_EXPORT ByteBuffer {
public:
    /// Allocates size bytes, all zero (fresh pages from the system for large blocks, without a fill pass).
    /// A size of 0 holds no memory and a null data(). Throws std::bad_alloc when the system refuses.
    explicit ByteBuffer(size_t size); // throws std::bad_alloc
    /// Frees the block.
    ~ByteBuffer();
    /// Not copyable.
    ByteBuffer(const ByteBuffer&) = delete;
    /// Not assignable.
    ByteBuffer& operator=(const ByteBuffer&) = delete;

    /// The first byte of the block; null for a size of 0.
    unsigned char* data() const { return data_; }
    /// The block's size in bytes.
    size_t size() const { return size_; }
    /// Blocks alive in the process, held by images or idle in the pool: what a leak check counts. Blocks
    /// of size 0 hold no memory and are not counted.
    static size_t liveCount();

private:
    unsigned char* data_ = nullptr;
    size_t size_ = 0;
};

/// A buffer shared by its holders; freed when the last lets go.
using SharedBuffer = std::shared_ptr<ByteBuffer>;

/// The process-wide pool of idle image buffers; see the group description. Reached only through
/// instance(); all members are safe to call from any thread.
class VEXA_EXPORT BufferPool {
public:
    /// The most bytes of idle buffers the pool aims to keep (200 MB); a larger buffer is never kept.
    static constexpr size_t limit = 200'000'000;

    /// The one pool of the process, made on first use and never destroyed (it outlives images destroyed
    /// during static destruction).
    static BufferPool& instance();

    /// The first idle buffer of exactly `size` bytes, taken out of the pool with its contents kept;
    /// otherwise a new zero-filled one (std::bad_alloc when the system refuses). A size of 0 gives no
    /// buffer at all (null). *recycled, when asked for, tells which of the two it was.
    SharedBuffer acquire(size_t size, bool* recycled = nullptr);
    /// Keeps the buffer for reuse unless it is null, empty, larger than the limit, or still held elsewhere
    /// (move the last reference in): a buffer somebody else holds stays theirs and is never handed to a
    /// second image. Before it is counted, the oldest idle buffers are freed while the idle bytes exceed
    /// the limit.
    void release(SharedBuffer buffer);

    /// Bytes held by idle buffers.
    size_t idleBytes() const;
    /// Number of idle buffers.
    size_t idleCount() const;
    /// Frees every idle buffer; buffers held by images are not affected.
    void clear();

private:
    mutable QMutex mutex_;
    std::deque<SharedBuffer> idle_; // front is the oldest
    size_t idleBytes_ = 0;
};

/// @}

} // namespace VEXA
