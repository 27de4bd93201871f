#pragma once

#include "terminal/Failure.h"

#include <TARN/videoio/FrameIndex.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Packet.h>

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

/// Opens the clip.
[[nodiscard]] Clip openInput(const std::string& url);

/// Whether the clip is the same when it is opened once more: a file is, a pipe, a device and a live
/// source are not.
[[nodiscard]] bool canBeReadAgain(const std::string& url);

/// For commands that have to.
/// @throws Failure naming the clip, when it cannot be read again
void requireReadAgain(const std::string& url);

/// The frame index that the user gave with --index. Nothing when none was given, or a bare seeking
/// index, which does not tell what clip it is of.
/// @throws Failure naming the index, when it is damaged, that of another clip, or the clip has
/// changed
///         since
[[nodiscard]] std::optional<ffmpeg::FrameIndex> storedFrameIndex(const InputOptions& input,
                                                                 const Clip& clip);

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
