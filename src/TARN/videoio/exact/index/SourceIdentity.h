#pragma once

#include <cstdint>
#include <string>

namespace tio::ffmpeg::detail {

/// By what a file is recognised: size, time of its last change and a hash of its first and of its
/// last block.
struct SourceIdentity {
    enum class Likeness { Same, Changed, Other };

    uint64_t size = 0;
    int64_t seconds = 0; ///< of the last change, since 1970
    int64_t nanoseconds = 0;
    uint64_t firstBlock = 0;
    uint64_t lastBlock = 0;

    /// Of the file that FFmpeg opens under this URL.
    /// @throws tio::Exception naming the URL, when it is no local file or cannot be read
    [[nodiscard]] static SourceIdentity of(const std::string& url);

    /// The same where that fails: an identity that is like no file's.
    [[nodiscard]] static SourceIdentity ofAny(const std::string& url);

    /// Whether it is that of a file at all.
    [[nodiscard]] bool isKnown() const noexcept { return size > 0; }

    /// What has become of the file that this identity was taken of, if it is the one of that URL.
    /// @throws tio::Exception as of() does
    [[nodiscard]] Likeness compareWith(const std::string& url) const;
};

/// Whether what FFmpeg opens under this URL can be read once only: opening it again would wait for
/// another writer, for ever if none comes.
[[nodiscard]] bool isPipe(const std::string& url);

} // namespace tio::ffmpeg::detail
