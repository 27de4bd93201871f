#pragma once

#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Source.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// The bytes of a source at any place, read without FFmpeg, to recognise the source by.
class SourceBytes {
public:
    /// When a file was changed, since 1970.
    struct Time {
        int64_t seconds;
        int64_t nanoseconds;
    };

    /// Opens the source for itself.
    /// @throws tio::ffmpeg::Exception naming the source, when it is a file that cannot be opened,
    ///         or a factory fails
    explicit SourceBytes(const Source& source);

    /// The same of a source that is open: memory and streams are not opened once more. The input
    /// reads on where it stood, but not while these bytes are in use.
    explicit SourceBytes(const InputFormatContext& opened);

    SourceBytes(const SourceBytes&) = delete;
    SourceBytes& operator=(const SourceBytes&) = delete;
    ~SourceBytes();

    /// Whether there is a size, and a way to each byte: not for a URL that is no local file, and
    /// not for a stream that does not know its size.
    [[nodiscard]] bool areKnown() const noexcept { return stream != nullptr && byteCount >= 0; }

    /// @throws tio::Exception naming the source, when they are not known; tio::ffmpeg::Exception
    ///         with the system's code, when a file is not there
    void requireKnown() const;

    /// @pre they are known
    [[nodiscard]] uint64_t size() const noexcept { return static_cast<uint64_t>(byteCount); }

    /// The last change, of a file.
    [[nodiscard]] const std::optional<Time>& lastChange() const noexcept { return changed; }

    /// A hash of `count` bytes from `offset` on, or of as many as there are.
    /// @pre they are known
    /// @throws tio::ffmpeg::Exception naming the source, when they cannot be read
    [[nodiscard]] uint64_t hashAt(uint64_t offset, uint64_t count);

private:
    void openFile();
    void readAll(int64_t offset, std::vector<uint8_t>& block);

    Source source;
    std::unique_ptr<ByteStream> owned;
    ByteStream* stream = nullptr; // the one above, or that of the open input
    int64_t byteCount = ByteStream::unknownSize;
    int unknownBecause = 0; // the system's error number
    std::optional<Time> changed;
};

/// Whether what FFmpeg opens under this URL can be read once only: opening it again would wait for
/// another writer, for ever if none comes.
[[nodiscard]] bool isPipe(const std::string& url);

} // namespace tio::ffmpeg::detail
