#pragma once

#include "exact/index/SourceBytes.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tio::ffmpeg::detail {

/// What a source is recognised by: its size and hashes of its first block, its last block and
/// samples of what is between. Where it is, and what it is called, plays no part.
struct SourceIdentity {
    enum class Likeness { Same, Changed, Other };

    /// How many samples there are. Up to 376 KiB, they and the two blocks are all of the source.
    static constexpr size_t sampleCount = 31; // odd, so that one lies in the very middle

    uint64_t size = 0;
    uint64_t firstBlock = 0;
    uint64_t lastBlock = 0;
    std::vector<uint64_t> samples; ///< none in an index of the first version

    // The last change of a file since 1970, which index files of the first version have in place of
    // the samples.
    int64_t seconds = 0;
    int64_t nanoseconds = 0;

    /// The one of these bytes; where they are not known, one that is like nothing.
    /// @throws tio::ffmpeg::Exception when they cannot be read
    [[nodiscard]] static SourceIdentity of(SourceBytes& bytes);

    /// Whether it is that of anything.
    [[nodiscard]] bool isKnown() const noexcept { return size > 0; }

    /// What these bytes are to those that this identity was taken of.
    /// @pre they are known
    /// @throws tio::ffmpeg::Exception when they cannot be read
    [[nodiscard]] Likeness compareWith(SourceBytes& bytes) const;
};

} // namespace tio::ffmpeg::detail
