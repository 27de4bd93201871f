#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/IndexMatch.h>
#include <TARN/videoio/IndexMismatch.h>
#include <TARN/videoio/Packet.h>
#include <TARN/videoio/SampleIndexOptions.h>
#include <TARN/videoio/Source.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tio::ffmpeg {

namespace detail {
struct SampleIndexAccess;
struct SoundIndexData;
} // namespace detail

/// What a sound stream consists of: its packets, and which of them give which samples.
///
/// Sample n is the n-th sample of each channel that comes out when the stream is decoded from its
/// start to its end, without the priming and the padding that the container states, as
/// `ffmpeg -f f32le` gives it.
///
/// Like a FrameIndex it is bound to what the clip is, not to where it is, and knows it by the
/// same blocks of bytes.
///
/// An index is a value: copies share what it holds, which never changes. About 60 bytes a packet
/// in memory, and 4 more with checksums.
/// Thread rule: any number of threads may use an index and its copies.
class TARN_VIDEOIO_API SampleIndex {
public:
    /// A place where the times of two samples that follow each other do not: a gap, which is not
    /// filled, or an overlap.
    struct TimeBreak {
        int64_t sample = 0; ///< the first one after the break
        Rational expected;  ///< its time in seconds if there were no break
        Rational told;      ///< its time as the container states it: later in a gap
    };

    using Match = IndexMatch; ///< what an index is to a clip

    /// Makes the index.
    /// @throws IndexingCancelled
    /// @throws tio::Exception when there is no such stream, or it is not of sound
    /// @throws tio::ffmpeg::Exception "… Could not find stream of requested type", when there is no
    ///         decoder, and what opening throws
    [[nodiscard]] static SampleIndex build(const Source& source,
                                           const SampleIndexOptions& options = {});

    /// Loads an index. Whether it is that of a clip, match() tells, and a SampleReader finds out.
    /// @throws tio::Exception naming the path, when it cannot be read, is no index of sound or was
    ///         damaged
    [[nodiscard]] static SampleIndex load(const std::string& path);

    /// What this index is to a source: Fresh, Stale or Foreign, as FrameIndex::match() tells it.
    /// @throws as that
    [[nodiscard]] Match match(const Source& source) const;

    /// Writes the index, in a file of its own, under another name and renames it when it is
    /// complete, so that there is never a part of one under `path`.
    /// @throws tio::Exception when that fails, or the clip is not known by its bytes
    void save(const std::string& path) const;

    /// What save() writes, as a value that can be sent to another process. Also of a clip that is
    /// not known by its bytes.
    [[nodiscard]] std::vector<uint8_t> toBytes() const;

    /// The index that toBytes() was called of.
    /// @throws tio::Exception when the bytes are damaged, or no index of sound
    [[nodiscard]] static SampleIndex fromBytes(const std::vector<uint8_t>& bytes);

    [[nodiscard]] int64_t sampleCount() const noexcept;

    /// Whether it holds a checksum of what every packet gives.
    [[nodiscard]] bool hasChecksums() const noexcept;

    /// Gaps and overlaps, by rising numbers. Deviations of one tick of the container and one sample
    /// are none.
    [[nodiscard]] std::vector<TimeBreak> timeBreaks() const;

    /// Bytes that the index takes in memory.
    [[nodiscard]] int64_t byteCount() const noexcept;

private:
    friend struct detail::SampleIndexAccess;
    explicit SampleIndex(std::shared_ptr<const detail::SoundIndexData> made)
        : data(std::move(made)) {}

    std::shared_ptr<const detail::SoundIndexData> data; // never null
};

} // namespace tio::ffmpeg
