#pragma once

#include "MemoryLog.h"

#include <cstdint>
#include <ostream>

/// @file
/// Work that goes on and on. Each returns whether memory stayed flat.

namespace tio::bench {

/// Opens clips, decodes the first picture and closes them; numbers the frames of every tenth.
[[nodiscard]] bool openAndClose(std::ostream& csv, int64_t count);

/// Seeks to frames in no order and reads them, first by a stream decoder, then by a FrameReader.
[[nodiscard]] bool seekAndRead(std::ostream& csv, int64_t count);

/// Writes a video at 25 frames a second, then reads it from start to end. What FFmpeg needs for the
/// table at the end of the file is allowed for.
[[nodiscard]] bool writeAndRead(std::ostream& csv, int64_t count);

} // namespace tio::bench
