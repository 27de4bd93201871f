#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/OpenOptions.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tio::ffmpeg {

namespace detail {
struct SourceRecipe;
struct SourceAccess;
} // namespace detail

/// Bytes that are read from the caller's own code: an archive, a database, a decrypting reader.
///
/// Whatever a stream does wrong ends in an exception of the call that was reading. It names the
/// source, and holds what the stream threw as its nested exception (std::rethrow_if_nested).
/// Thread rule: called in the thread that uses the input, one call at a time.
class TARN_VIDEOIO_API ByteStream {
public:
    static constexpr int64_t unknownSize = -1;

    ByteStream() = default;
    ByteStream(const ByteStream&) = delete;
    ByteStream& operator=(const ByteStream&) = delete;
    virtual ~ByteStream();

    /// Reads bytes from where the stream stands, and moves it on by as many.
    /// @param to     room for `count` bytes
    /// @returns how many came: at most `count`, and 0 only at the end
    virtual int64_t read(uint8_t* to, int64_t count) = 0;

    /// Goes to a byte, counted from 0; at most to the size, where that is known.
    virtual void seek(int64_t position) = 0;

    /// How many bytes there are, or unknownSize. Asked once for each opening. A stream that ends
    /// before its size, or goes on after it, is an error.
    [[nodiscard]] virtual int64_t size() = 0;
};

/// Makes a stream that stands at its first byte. Called once for each opening; every stream gives
/// the same bytes.
using StreamFactory = std::function<std::unique_ptr<ByteStream>()>;

/// Where the bytes of a clip or an image come from: a file or URL, memory, or streams of the
/// caller's, and how they are opened.
///
/// A source is a value. Making one opens nothing, copies share what it refers to, and it may be
/// opened any number of times, also side by side. Memory and streams are complete in themselves:
/// what they hold (a playlist, say) opens no file and no URL. They have no file name to
/// recognise the format by; where the bytes do not show it either, OpenOptions::formatName says it.
///
/// @code
/// using tio::ffmpeg::Source;
/// tio::ffmpeg::InputFormatContext fromMemory(Source::memory(std::move(bytes)));
/// tio::ffmpeg::InputFormatContext fromArchive(
///     Source::streams([archive] { return archive->open("clip.mp4"); }, "archive.zip:clip.mp4"));
/// @endcode
///
/// Thread rule: any number of threads may use a source and its copies; a factory is then called
/// from several threads.
class TARN_VIDEOIO_API Source {
public:
    enum class Kind { Url, Memory, Streams };

    /// A file or whatever else FFmpeg opens under this URL; implicit, because a path is the usual
    /// source.
    Source(std::string url, OpenOptions options = {});
    /// @throws tio::Exception for a null pointer
    Source(const char* url, OpenOptions options = {});

    /// A whole file in memory, which the source keeps.
    /// @param name  for messages
    [[nodiscard]] static Source memory(std::vector<uint8_t> bytes, std::string name = "memory",
                                       OpenOptions options = {});

    /// The same, with shared ownership of a block of `count` bytes that must not change. For bytes
    /// that something else owns, std::shared_ptr's aliasing constructor makes such a pointer.
    /// @throws tio::Exception for a null pointer with a count other than 0
    [[nodiscard]] static Source memory(std::shared_ptr<const uint8_t> bytes, size_t count,
                                       std::string name = "memory", OpenOptions options = {});

    /// The same without ownership: the block must outlive the source, its copies, and everything
    /// that was opened from them.
    /// @throws tio::Exception for a null pointer with a count other than 0
    [[nodiscard]] static Source borrowed(const void* bytes, size_t count,
                                         std::string name = "memory", OpenOptions options = {});

    /// Streams of the caller's.
    /// @param name  for messages
    /// @throws tio::Exception for an empty factory
    [[nodiscard]] static Source streams(StreamFactory factory, std::string name,
                                        OpenOptions options = {});

    Source(const Source& other) noexcept;
    Source& operator=(const Source& other) noexcept;
    ~Source();

    [[nodiscard]] Kind kind() const noexcept;

    /// The URL, or the name given: how messages name the source. Valid as long as any copy of this
    /// source.
    [[nodiscard]] const std::string& name() const noexcept;

    /// Valid as long as any copy of this source.
    [[nodiscard]] const OpenOptions& options() const noexcept;

private:
    friend struct detail::SourceAccess; // by which the library opens it
    explicit Source(std::shared_ptr<const detail::SourceRecipe> made) noexcept;

    std::shared_ptr<const detail::SourceRecipe>
        recipe; // never null: a moved source is a copied one
};

} // namespace tio::ffmpeg
