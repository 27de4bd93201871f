#pragma once

#include "ffmpeg_compat.h"

namespace tio::ffmpeg::detail {

/// Samples `from` to `from` + `count` - 1 of a frame as floats, channel by channel in turn. Full
/// scale is 1, and silence 0, in every sample format: what `ffmpeg -f f32le` gives, bit for bit.
/// @param to  room for `count` times as many floats as there are channels
/// @throws tio::Exception for a sample format without a meaning as floats
void convertSamples(const AVFrame& frame, int from, int count, float* to);

} // namespace tio::ffmpeg::detail
