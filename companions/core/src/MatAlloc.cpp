#include "AsanPoison.h"
#include "BlockCache.h"

#include <TARN/core/Exception.h>
#include <TARN/core/MatAlloc.h>

#include <limits>
#include <mutex>
#include <utility>

namespace tio {

using detail::Block;
using detail::BlockCache;

/// The cache and its lock. Nothing is allocated or freed while the lock is held: both may mean
/// a call into the system.
class MatAlloc::Pool {
public:
    /// Puts a block back into its pool when its last user lets go of it.
    struct Return {
        std::shared_ptr<Pool> pool;
        std::size_t capacity;

        void operator()(char* start) const noexcept { pool->put({start, capacity}); }
    };

    ~Pool() { close(); }

    [[nodiscard]] Block get(std::size_t capacity) {
        const Block cached = take(capacity);
        return cached.start != nullptr ? cached : detail::allocateBlock(capacity);
    }

    void put(Block block) noexcept {
        if (block.capacity < minCachedBytes) {
            detail::freeBlock(block);
            return;
        }
        BlockCache::Evicted evicted;
        {
            const std::lock_guard lock(mutex);
            if (closed)
                evicted.add(block);
            else
                cache.put(block, evicted);
        }
        evicted.free();
    }

    void trim() noexcept {
        BlockCache::Evicted evicted;
        {
            const std::lock_guard lock(mutex);
            cache.clear(evicted);
        }
        evicted.free();
    }

    /// From here on, blocks that come back are not kept: nobody is left to ask for them.
    void close() noexcept {
        {
            const std::lock_guard lock(mutex);
            closed = true;
        }
        trim();
    }

    [[nodiscard]] std::size_t cachedBytes() noexcept {
        const std::lock_guard lock(mutex);
        return cache.byteCount();
    }

private:
    [[nodiscard]] Block take(std::size_t capacity) noexcept {
        if (capacity < minCachedBytes)
            return {};
        const std::lock_guard lock(mutex);
        return cache.take(capacity);
    }

    std::mutex mutex;
    BlockCache cache;
    bool closed = false;
};

namespace {

// Whole cache lines, so that nearly equal requests share blocks and no line has two owners.
std::size_t blockCapacity(std::size_t byteCount) {
    constexpr std::size_t most = std::numeric_limits<std::ptrdiff_t>::max();
    constexpr std::size_t overhead = MatAlloc::spareBytes + MatAlloc::alignment;
    if (byteCount > most - overhead)
        throw Exception("No memory block can be that large");
    const std::size_t needed = byteCount + MatAlloc::spareBytes;
    return (needed + MatAlloc::alignment - 1) / MatAlloc::alignment * MatAlloc::alignment;
}

} // namespace

std::shared_ptr<MatAlloc> MatAlloc::getGlobalMatAlloc() {
    // Never destroyed: objects with static lifetime may still allocate while the process ends.
    static const auto& global = *new std::shared_ptr<MatAlloc>(std::make_shared<MatAlloc>());
    return global;
}

MatAlloc::MatAlloc() : pool(std::make_shared<Pool>()) {}

MatAlloc::~MatAlloc() {
    pool->close();
}

std::shared_ptr<char> MatAlloc::getBytes(std::size_t byteCount) {
    const std::size_t capacity = blockCapacity(byteCount);
    const Block block = pool->get(capacity);
    const std::size_t usable = byteCount + spareBytes;
    detail::allowAccess(block.start, usable);
    detail::forbidAccess(block.start + usable, capacity - usable);
    return std::shared_ptr<char>(block.start, Pool::Return{pool, capacity});
}

std::size_t MatAlloc::cachedBytes() const noexcept {
    return pool->cachedBytes();
}

void MatAlloc::trim() noexcept {
    pool->trim();
}

} // namespace tio
