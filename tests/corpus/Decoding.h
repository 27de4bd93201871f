#pragma once

#include "Survey.h"

#include <TARN/videoio/Types.h>

#include <cstdint>
#include <string>

namespace tio::survey {

/// How both sides write a picture.
[[nodiscard]] std::string pictureLine(const std::string& time, int width, int height,
                                      uint64_t hash);

/// What a verdict says where FFmpeg, called directly, gives other pictures once it may use no
/// memory twice: a damaged picture is not written as a whole, and shows what was there before.
extern const std::string unsteady;

/// A line for every picture that FFmpeg, called directly, gives from start to end, whatever its
/// decoder fails at on the way.
void tellPictures(const std::string& path, ffmpeg::PixelFormat format, Facts& facts);

} // namespace tio::survey
