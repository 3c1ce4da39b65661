#include <vexa/imp/BufferPool.h>

#include <QMutexLocker>

#include <atomic>
#include <cstdlib>
#include <new>

namespace VEXA {

namespace {
std::atomic<size_t> liveBuffers{0};
}

ByteBuffer::ByteBuffer(size_t size) : size_(size)
{
    if (size == 0)
        return;
    // calloc gets large blocks as fresh zero pages from the system, without a fill pass.
    data_ = static_cast<unsigned char*>(std::calloc(size, 1));
    if (!data_)
        throw std::bad_alloc();
    liveBuffers.fetch_add(1, std::memory_order_relaxed);
}

ByteBuffer::~ByteBuffer()
{
    if (data_)
        liveBuffers.fetch_sub(1, std::memory_order_relaxed);
    std::free(data_);
}

size_t ByteBuffer::liveCount() { return liveBuffers.load(std::memory_order_relaxed); }

BufferPool& BufferPool::instance()
{
    static BufferPool* pool = new BufferPool; // outlives every image destroyed during static destruction
    return *pool;
}

SharedBuffer BufferPool::acquire(size_t size, bool* recycled)
{
    if (recycled)
        *recycled = false;
    if (size == 0)
        return nullptr;
    {
        QMutexLocker lock(&mutex_);
        for (auto it = idle_.begin(); it != idle_.end(); ++it) {
            if ((*it)->size() == size) {
                SharedBuffer buffer = std::move(*it);
                idle_.erase(it);
                idleBytes_ -= size;
                if (recycled)
                    *recycled = true;
                return buffer;
            }
        }
    }
    return std::make_shared<ByteBuffer>(size); // allocate outside the lock
}

void BufferPool::release(SharedBuffer buffer)
{
    if (!buffer || buffer->size() == 0 || buffer->size() > limit || buffer.use_count() > 1)
        return;
    std::deque<SharedBuffer> evicted; // freed after the lock is dropped
    QMutexLocker lock(&mutex_);
    while (idleBytes_ > limit && !idle_.empty()) {
        idleBytes_ -= idle_.front()->size();
        evicted.push_back(std::move(idle_.front()));
        idle_.pop_front();
    }
    idleBytes_ += buffer->size();
    idle_.push_back(std::move(buffer));
    lock.unlock();
}

size_t BufferPool::idleBytes() const
{
    QMutexLocker lock(&mutex_);
    return idleBytes_;
}

size_t BufferPool::idleCount() const
{
    QMutexLocker lock(&mutex_);
    return idle_.size();
}

void BufferPool::clear()
{
    std::deque<SharedBuffer> dropped;
    QMutexLocker lock(&mutex_);
    dropped.swap(idle_);
    idleBytes_ = 0;
}

} // namespace VEXA
