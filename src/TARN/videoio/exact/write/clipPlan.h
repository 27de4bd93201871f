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

/// The same options, the fractions with denominators above 0 where that is possible.
[[nodiscard]] ClipWriterOptions withUsualSigns(ClipWriterOptions options);

/// The finest tick, in ticks a second, in which a track of MP4 holds the chapters.
[[nodiscard]] int64_t finestWithChapters(const ClipWriterOptions& options);

/// Checks all options and opens encoders with them for a try, where nothing else can tell.
/// @param options  as withUsualSigns() gives them
/// @throws ClipRefusal
[[nodiscard]] ClipPlan planClip(const std::string& path, const ClipWriterOptions& options);

} // namespace tio::ffmpeg::detail
