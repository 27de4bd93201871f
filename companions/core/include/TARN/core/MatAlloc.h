#pragma once

#include <TARN/core/Export.h>

#include <cstddef>
#include <memory>

namespace tio {

/// Hands out the memory of matrices and takes it back for the next one.
///
/// A video is a stream of pictures of one size. Memory that goes back to the system between two of
/// them has to be mapped and zeroed again, page by page, for each; for the largest pictures that
/// takes many times as long as filling them. The allocator therefore keeps freed blocks and gives
/// them out again for requests of the same size.
///
/// What it keeps is bounded: blocks of at least `minCachedBytes`, at most `maxCachedBlocks` of them
/// and at most `maxCachedBytes` in all. When a freed block would exceed a bound, the blocks that
/// have waited longest go back to the system, so that the sizes of an earlier stream fade away.
///
/// A block may outlive its allocator: it then goes straight back to the system when released.
///
/// Thread rule: every function may be called, and every block released, from any thread at any
/// time, static destructors included.
class TARN_CORE_API MatAlloc {
public:
    /// Every block starts at a multiple of this, a cache line and the widest SIMD register.
    static constexpr std::size_t alignment = 64;

    /// Usable bytes after the count asked for: SIMD converters write whole registers at the end of
    /// a picture.
    static constexpr std::size_t spareBytes = 64;

    /// Smaller blocks are left to the C library, which recycles them well and without a lock.
    static constexpr std::size_t minCachedBytes = std::size_t{64} << 10;

    /// 256 MiB: ten RGB pictures of 3840 x 2160, or two of 7680 x 4320.
    static constexpr std::size_t maxCachedBytes = std::size_t{256} << 20;

    /// As many pictures as a deep pipeline has under way, few enough to search in a line.
    static constexpr std::size_t maxCachedBlocks = 32;

    /// The allocator that all matrices of the process share. Never null; it is never destroyed, so
    /// the order of static destructors does not matter.
    [[nodiscard]] static std::shared_ptr<MatAlloc> getGlobalMatAlloc();

    /// An allocator with a cache of its own, empty at first.
    MatAlloc();
    ~MatAlloc();
    MatAlloc(const MatAlloc&) = delete;
    MatAlloc& operator=(const MatAlloc&) = delete;

    /// A block of `byteCount` bytes and `spareBytes` more, aligned to `alignment`. The content is
    /// whatever it is. Never null, also for zero bytes.
    /// @throws tio::Exception if no object can be that large.
    /// @throws std::bad_alloc if the system has no such memory.
    [[nodiscard]] std::shared_ptr<char> getBytes(std::size_t byteCount);

    /// Bytes kept for later requests at this moment, never more than `maxCachedBytes`.
    [[nodiscard]] std::size_t cachedBytes() const noexcept;

    /// Gives everything that is kept back to the system, for example when a stream has ended.
    void trim() noexcept;

private:
    class Pool;
    std::shared_ptr<Pool> pool; // blocks share it, so that they can outlive the allocator
};

} // namespace tio
