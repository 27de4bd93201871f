#pragma once

#include <TARN/videoio/Exception.h>

#include <string>

/// @file
/// How failures are reported: every diagnosis is logged before it is thrown, so that a caller who
/// swallows the exception still finds it in the log.

namespace tio::ffmpeg::detail {

/// The place of a check. The numbers are stable identifiers, by which a line of a log is searched
/// for; they do not follow the lines of the source.
struct Location {
    const char* file; ///< bare name of the source, such as "PacketDecoder"
    int number;

    [[nodiscard]] std::string text() const;
};

/// The checks of one source by their numbers: `constexpr detail::Places at("PacketDecoder");`
/// there, and `at(3)` at each.
class Places {
public:
    constexpr explicit Places(const char* source) noexcept : file(source) {}

    [[nodiscard]] constexpr Location operator()(int number) const noexcept {
        return {file, number};
    }

private:
    const char* file;
};

/// Logger of everything that the library itself says.
extern const std::string rootLogger;

/// A line about progress, under "root" at level 1.
void logProgress(const std::string& text);

/// A line about a loss that cannot be thrown, under "root" at level 4.
void logFailure(const std::string& text);

/// FFmpeg's words for a negative result.
[[nodiscard]] std::string ffmpegText(int code);

/// Whether a call into FFmpeg found no memory, which says nothing of what it was given: it may be
/// made once more.
[[nodiscard]] bool isOutOfMemory(const Exception& failure) noexcept;

[[noreturn]] void throwFfmpegFailure(int code, Location location, const std::string* context);

/// Throws tio::ffmpeg::Exception for a negative result of an FFmpeg call.
inline void checkResult(int code, Location location) {
    if (code < 0)
        throwFfmpegFailure(code, location, nullptr);
}

/// The same, with what was asked for after FFmpeg's words.
inline void checkResult(int code, Location location, const std::string& context) {
    if (code < 0)
        throwFfmpegFailure(code, location, &context);
}

/// Logs the message with its place, then the expression unless that is "false", and throws
/// tio::Exception with the message alone.
[[noreturn]] void failAssertion(const std::string& message, const char* expression,
                                Location location);

/// For a file that cannot be opened: logs and throws the message, with no place.
[[noreturn]] void failPlainly(const std::string& message);

} // namespace tio::ffmpeg::detail
