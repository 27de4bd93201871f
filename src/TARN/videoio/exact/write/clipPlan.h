#pragma once

#include "exact/write/ClipContainer.h"
#include "exact/write/ClipTimes.h"

#include <TARN/videoio/ClipWriterOptions.h>

#include <string>

namespace tio::ffmpeg::detail {

/// What options come to once they are checked.
struct ClipPlan {
    const ClipContainer* container;
    const AVCodec* codec = nullptr;      ///< null: no pictures
    const AVCodec* audioCodec = nullptr; ///< null: no sound
    TimeRules times;
};

/// Checks all options and opens encoders with them for a try, where nothing else can tell.
/// @throws ClipRefusal
[[nodiscard]] ClipPlan planClip(const std::string& path, const ClipWriterOptions& options);

} // namespace tio::ffmpeg::detail
