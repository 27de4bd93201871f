#pragma once

#include <TARN/core/MatAlloc.h>

#include <array>
#include <cstddef>

namespace tio::detail {

/// Memory of `capacity` bytes from the system; see `allocateBlock`.
struct Block {
    char* start = nullptr;
    std::size_t capacity = 0;
};

/// A block from the system, aligned as `MatAlloc` promises. Throws `std::bad_alloc`.
[[nodiscard]] Block allocateBlock(std::size_t capacity);

/// Gives a block back to the system; an empty one is ignored.
void freeBlock(Block block) noexcept;

/// The blocks that wait for their next use, in the order in which they came back. It keeps within
/// the bounds of `MatAlloc` and allocates nothing itself, so it can serve a deleter.
///
/// Thread rule: not synchronised; its owner holds a lock.
class BlockCache {
public:
    /// What has to leave for a new block to enter. The caller frees it, outside its lock.
    struct Evicted {
        std::array<Block, MatAlloc::maxCachedBlocks + 1> blocks;
        std::size_t count = 0;

        void add(Block block) noexcept { blocks[count++] = block; }
        void free() const noexcept;
    };

    [[nodiscard]] std::size_t byteCount() const noexcept { return bytes; }

    /// The latest block of exactly this capacity, whose content is the likeliest to be in a CPU
    /// cache; an empty block if there is none.
    [[nodiscard]] Block take(std::size_t capacity) noexcept;

    /// Keeps `block`; the oldest leave until it fits. A block that can never fit leaves at once.
    void put(Block block, Evicted& evicted) noexcept;

    /// All blocks leave.
    void clear(Evicted& evicted) noexcept;

private:
    [[nodiscard]] Block remove(std::size_t position) noexcept;

    std::array<Block, MatAlloc::maxCachedBlocks> blocks; // oldest first, `count` of them
    std::size_t count = 0;
    std::size_t bytes = 0;
};

} // namespace tio::detail
