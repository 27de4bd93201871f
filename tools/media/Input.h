#pragma once

#include "terminal/Failure.h"

#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Packet.h>

#include <memory>
#include <optional>
#include <string>

namespace tio::tool {

/// What every command reads.
struct InputOptions {
    std::string url;
    std::optional<std::string> index; ///< file of a stored seeking index
};

/// Opens the clip.
[[nodiscard]] inline std::shared_ptr<ffmpeg::InputFormatContext> openInput(const std::string& url) {
    return reading(url, [&] { return std::make_shared<ffmpeg::InputFormatContext>(url); });
}

/// Gives a stored index, where there is one, to a stream or a stream decoder. Failures name the
/// index file and not the clip.
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
