#pragma once

#include <TARN/videoio/InputFormatContext.h>

#include <optional>

namespace tio::ffmpeg::detail {

/// The stream of that number, or the best video stream where there is none.
/// @throws tio::Exception naming the source, when there is no such stream, or it is no video
/// @throws tio::ffmpeg::Exception "… Could not find stream of requested type"
[[nodiscard]] int videoStreamOf(const InputFormatContext& input, std::optional<int> number);

} // namespace tio::ffmpeg::detail
