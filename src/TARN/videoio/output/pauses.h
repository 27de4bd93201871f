#pragma once

#include "base/checks.h"

#include <TARN/videoio/Packet.h>

#include <string>

/// @file
/// How long a stream of an MP4 file may pause. FFmpeg's muxer takes less than 2^31 - 1 ticks from a
/// packet to the next; what is farther it moves close to the packet before, and says so in the log
/// alone.

namespace tio::ffmpeg::detail {

/// The longest pause in seconds of a stream of this codec.
[[nodiscard]] Rational longestPause(const AVCodecParameters& parameters);

/// @throws tio::Exception for a longer pause, with the longest one in its text
void requireShortPause(Rational pause, Rational longest, const std::string& path,
                       Location location);

} // namespace tio::ffmpeg::detail
