#include "BlockCache.h"

#include "AsanPoison.h"

#include <algorithm>
#include <new>

namespace tio::detail {

Block allocateBlock(std::size_t capacity) {
    void* const start = ::operator new (capacity, std::align_val_t{MatAlloc::alignment});
    return {static_cast<char*>(start), capacity};
}

void freeBlock(Block block) noexcept {
    if (block.start == nullptr)
        return;
    allowAccess(block.start, block.capacity);
    ::operator delete (block.start, std::align_val_t{MatAlloc::alignment});
}

void BlockCache::Evicted::free() const noexcept {
    std::for_each(blocks.begin(), blocks.begin() + count, freeBlock);
}

Block BlockCache::take(std::size_t capacity) noexcept {
    for (std::size_t i = count; i-- > 0;) {
        if (blocks[i].capacity == capacity)
            return remove(i);
    }
    return {};
}

void BlockCache::put(Block block, Evicted& evicted) noexcept {
    if (block.capacity > MatAlloc::maxCachedBytes) {
        evicted.add(block);
        return;
    }
    while (count == blocks.size() || bytes + block.capacity > MatAlloc::maxCachedBytes)
        evicted.add(remove(0));
    forbidAccess(block.start, block.capacity);
    blocks[count++] = block;
    bytes += block.capacity;
}

void BlockCache::clear(Evicted& evicted) noexcept {
    while (count > 0)
        evicted.add(remove(count - 1));
}

Block BlockCache::remove(std::size_t position) noexcept {
    const Block block = blocks[position];
    std::move(blocks.begin() + position + 1, blocks.begin() + count, blocks.begin() + position);
    --count;
    bytes -= block.capacity;
    return block;
}

} // namespace tio::detail
