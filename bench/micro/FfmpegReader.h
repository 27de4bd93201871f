#pragma once

#include <cstdint>
#include <string>

namespace tio::bench {

/// Decodes and converts every picture of a file as a program does that calls FFmpeg directly and
/// knows its trade: as many threads as the machine has, one frame and one buffer used again and
/// again, rows padded for the converter.
/// @param format an AVPixelFormat
/// @returns the number of pictures
int64_t readAllByFfmpeg(const std::string& path, int format);

} // namespace tio::bench
