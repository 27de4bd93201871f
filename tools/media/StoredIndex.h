#pragma once

#include "media/Input.h"

#include <TARN/videoio/FrameIndex.h>

#include <optional>

namespace tio::tool {

/// The frame index that the user gave with --index. Nothing when none was given, or a bare seeking
/// index, which does not tell what clip it is of.
/// @throws Failure naming the index, when it is damaged or the clip has changed since
[[nodiscard]] std::optional<ffmpeg::FrameIndex> storedFrameIndex(const InputOptions& input);

} // namespace tio::tool
