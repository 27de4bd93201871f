#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/FrameDigest.h>
#include <TARN/videoio/FrameIndexOptions.h>
#include <TARN/videoio/IndexMatch.h>
#include <TARN/videoio/IndexMismatch.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Packet.h>
#include <TARN/videoio/Source.h>

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
/// As a rule the packets alone show that, and making the index reads them and decodes the last
/// group of pictures; where packets lack times, or share them, or the ends of the stream do not
/// give what the packets promise, the whole stream is decoded. Pictures that an edit list hides are
/// no frames.
///
/// An index is bound to what the clip is, not to where it is: it knows the clip by its size and by
/// hashes of blocks at the start, at the end and spread over what is between. They are all of
/// a clip of up to 376 KiB, and that much of a longer one. An index of one file is the index of its
/// copies, under any name, on any host, in memory or in streams of the caller's. A URL that is no
/// local file, and a stream that does not know its size, are not known in this way: their index
/// goes by the parameters of the stream alone.
///
/// An index is a value: copies share what it holds, which never changes. About 33 bytes a packet in
/// memory, and 4 more with checksums.
/// Thread rule: any number of threads may use an index and its copies.
class TARN_VIDEOIO_API FrameIndex {
public:
    using Match = IndexMatch; ///< what an index is to a clip

    struct Loaded;

    /// Makes the index of a video stream.
    /// @throws IndexingCancelled
    /// @throws tio::Exception when the stream asked for is not there, or is no video
    /// @throws tio::ffmpeg::Exception "… Could not find stream of requested type", and what opening
    ///         throws
    [[nodiscard]] static FrameIndex build(const Source& source,
                                          const FrameIndexOptions& options = {});

    /// The same from an input. The source is opened once more for that; `input` stays where it is.
    /// @throws IndexingCancelled
    /// @throws tio::Exception when the stream asked for is not there, or is no video
    /// @throws tio::ffmpeg::Exception "… Could not find stream of requested type", and what opening
    ///         throws
    [[nodiscard]] static FrameIndex build(const std::shared_ptr<InputFormatContext>& input,
                                          const FrameIndexOptions& options = {});

    /// Loads an index for the best video stream of `input`. An index is given for Match::Fresh
    /// alone: a wrong one is never used.
    /// @throws tio::Exception when the file of the index or the clip cannot be read, and for a clip
    ///         that is not known by its bytes
    [[nodiscard]] static Loaded load(const std::string& path,
                                     const std::shared_ptr<InputFormatContext>& input);

    /// Loads an index by itself. Whether it is that of a clip, match() tells, and a FrameReader
    /// finds out.
    /// @throws tio::Exception naming the path, when it cannot be read, is no index or was damaged
    [[nodiscard]] static FrameIndex load(const std::string& path);

    /// What this index is to a source: Fresh, Stale or Foreign. Reads at most 376 KiB of it. An
    /// index is always Foreign where the source that it was made of is not known by its bytes.
    /// @throws tio::ffmpeg::Exception "Could not identify …" with the system's code when a file
    ///         cannot be opened, and what a stream of the caller's does wrong
    /// @throws tio::Exception "Could not identify …" when `source` is not known by its bytes
    [[nodiscard]] Match match(const Source& source) const;

    /// Writes the index under another name and renames it when it is complete, so that there is
    /// never a part of one under `path`.
    /// @throws tio::Exception when that fails, or the clip is not known by its bytes
    void save(const std::string& path) const;

    /// What save() writes, as a value that can be sent to another process. Also of a clip that
    /// is not known by its bytes.
    [[nodiscard]] std::vector<uint8_t> toBytes() const;

    /// The index that toBytes() was called of. Whether it is that of a clip, match() says, and a
    /// FrameReader checks.
    /// @throws tio::Exception when the bytes are damaged, or no index
    [[nodiscard]] static FrameIndex fromBytes(const std::vector<uint8_t>& bytes);

    /// Writes the bare index that InputStream::loadSeekingIndex() reads.
    /// @throws tio::Exception when that fails, or frames share a time: such an index could not be
    ///         loaded
    void exportSeekingIndex(const std::string& path) const;

    [[nodiscard]] int64_t frameCount() const noexcept;

    /// Whether it holds a checksum of every picture.
    [[nodiscard]] bool hasChecksums() const noexcept;

    /// Of the frames `first` to `end` - 1, made of the checksums: what FrameReader::digest() gives
    /// when these are the pictures that it decodes.
    /// @throws tio::Exception for frames that there are not, and where there are no checksums
    [[nodiscard]] FrameDigest digest(int64_t first, int64_t end) const;

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
