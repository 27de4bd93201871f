#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/FrameIndexOptions.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Packet.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tio::ffmpeg {

namespace detail {
struct IndexAccess;
struct IndexData;
} // namespace detail

/// What a video stream consists of: its packets, and which of them become which frames.
///
/// Frame n is the n-th picture that comes out when the stream is decoded from its start to its end.
/// As a rule the packets alone tell that, and making the index reads them and decodes the last
/// group of pictures; where packets lack times, or share them, or the ends of the stream do not
/// give what the packets promise, the whole stream is decoded. Pictures that an edit list hides are
/// no frames.
///
/// An index is a value: copies share what it holds, which never changes. About 33 bytes a packet in
/// memory, and 4 more with checksums.
/// Thread rule: any number of threads may use an index and its copies.
class TARN_VIDEOIO_API FrameIndex {
public:
    /// What an index file is to the clip that it is loaded for.
    enum class Match {
        Fresh,   ///< the index of this clip as it is
        Stale,   ///< the clip has been changed, or replaced by a similar one, since
        Foreign, ///< the index of another clip, or of another stream, or no index at all
        Corrupt, ///< an index that was damaged
    };

    struct Loaded;

    /// Makes the index of the best video stream. The source is opened once more for that; `input`
    /// stays where it is.
    /// @throws IndexingCancelled
    /// @throws tio::ffmpeg::Exception "… Could not find stream of requested type", and what opening
    ///         throws
    [[nodiscard]] static FrameIndex build(const std::shared_ptr<InputFormatContext>& input,
                                          const FrameIndexOptions& options = {});

    /// Loads an index for the best video stream of `input`, which must be a local file. An index is
    /// given for Match::Fresh alone: a wrong one is never used.
    /// @throws tio::Exception when the file of the index or that of the clip cannot be read
    [[nodiscard]] static Loaded load(const std::string& path,
                                     const std::shared_ptr<InputFormatContext>& input);

    /// Writes the index under another name and renames it when it is complete, so that there is
    /// never a part of one under `path`.
    /// @throws tio::Exception when that fails, or the clip is no local file
    void save(const std::string& path) const;

    /// What save() writes, as a value that can be sent to another process. Also of a clip that is
    /// no local file.
    [[nodiscard]] std::vector<uint8_t> toBytes() const;

    /// The index that toBytes() was called of. Whether it is that of a clip, a FrameReader finds
    /// out as far as the stream's parameters tell, and by the bytes of each packet that it reads.
    /// @throws tio::Exception when the bytes are damaged, or no index
    [[nodiscard]] static FrameIndex fromBytes(const std::vector<uint8_t>& bytes);

    /// Writes the bare index that InputStream::loadSeekingIndex() reads.
    /// @throws tio::Exception when that fails, or frames share a time: such an index could not be
    ///         loaded
    void exportSeekingIndex(const std::string& path) const;

    [[nodiscard]] int64_t frameCount() const noexcept;

    /// Whether it holds a checksum of every picture.
    [[nodiscard]] bool hasChecksums() const noexcept;

    /// Whether the stream was found damaged. It is decoded with one thread then.
    [[nodiscard]] bool isDamaged() const noexcept;

    /// Bytes that the index takes in memory.
    [[nodiscard]] int64_t byteCount() const noexcept;

private:
    friend struct detail::IndexAccess;
    explicit FrameIndex(std::shared_ptr<const detail::IndexData> made) : data(std::move(made)) {}

    std::shared_ptr<const detail::IndexData> data; // never null
};

/// The outcome of loading an index.
struct FrameIndex::Loaded {
    Match match;
    std::optional<FrameIndex> index; ///< with Match::Fresh, and only then
};

} // namespace tio::ffmpeg
