#pragma once

#include "terminal/Failure.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/FrameIndex.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Packet.h>
#include <TARN/videoio/Source.h>
#include <TARN/videoio/Types.h>

#include <memory>
#include <optional>
#include <string>

namespace tio::tool {

using Clip = std::shared_ptr<ffmpeg::InputFormatContext>;

/// What every command reads.
struct InputOptions {
    std::string url;
    std::optional<std::string> index; ///< file of a stored index, of either kind
};

/// Where the bytes of the clip come from, as often as they are wanted. A pipe is read to its end
/// for that, once.
/// @throws Failure naming the clip
[[nodiscard]] ffmpeg::Source sourceOf(const std::string& url);

/// Opens the clip.
/// @throws Failure naming the clip
[[nodiscard]] Clip openInput(const std::string& url);

/// The same for reading it once, in order, while it comes.
[[nodiscard]] Clip openOnce(const std::string& url);

/// Whether the clip is the same when it is opened once more: a file is, and a pipe by sourceOf(). A
/// device and a live source are not.
[[nodiscard]] bool canBeReadAgain(const std::string& url);

/// For commands that have to.
/// @throws Failure naming the clip, when it cannot be read again
void requireReadAgain(const std::string& url);

[[noreturn]] void failToDecode(const std::string& url, ffmpeg::StreamType type,
                               std::optional<int> stream, const ffmpeg::Exception& error);

/// Runs work that decodes a stream. Where that fails because the clip has no such stream, or FFmpeg
/// no decoder for it, the Failure says so.
template <typename Work>
auto decoding(const std::string& url, ffmpeg::StreamType type, std::optional<int> stream,
              Work&& work) {
    try {
        return work();
    } catch (const Failure&) {
        throw;
    } catch (const ffmpeg::Exception& error) {
        failToDecode(url, type, stream, error);
    } catch (const std::exception& error) {
        throw Failure(ExitCode::Input, url, reasonOf(error, url));
    }
}

/// Warns, on standard error, of a stream whose end is missing: it lasts less long than the
/// container says.
/// @param length  of what can be read, in seconds
void warnOfMissingEnd(const Clip& clip, int stream, const ffmpeg::Rational& length);

/// The frame index that the user gave with --index. Nothing when none was given, or a bare seeking
/// index, which does not tell what clip it is of.
/// @throws Failure naming the index, when it is damaged, that of another clip, or the clip has
/// changed
///         since
[[nodiscard]] std::optional<ffmpeg::FrameIndex> storedFrameIndex(const InputOptions& input,
                                                                 const Clip& clip);

/// Whether a file has the signature of a frame index; a bare seeking index has none.
[[nodiscard]] bool isFrameIndex(const std::string& path);

/// Whether a container refused to be rewound, as FFmpeg's AVI, FLV and raw streams do.
[[nodiscard]] bool isRefusedSeek(const std::exception& error);

/// Gives a bare seeking index, where there is one, to a stream or a stream decoder. Failures name
/// the index file and not the clip.
template <typename Reader>
void loadIndex(Reader& reader, const std::optional<std::string>& index) {
    if (index)
        reading(*index, [&] { reader.loadSeekingIndex(*index); });
}

/// "1001/30000"
[[nodiscard]] inline std::string text(const ffmpeg::Rational& value) {
    return std::to_string(value.numerator) + '/' + std::to_string(value.denominator);
}

} // namespace tio::tool
