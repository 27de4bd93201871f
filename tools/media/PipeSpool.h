#pragma once

#include <TARN/videoio/Source.h>

#include <string>

namespace tio::tool {

/// Reads a pipe to its end into an unnamed file of the folder for temporary files ($TMPDIR, or
/// /tmp), so that what came through it can be read as often as a file can.
/// @returns what to read, which keeps the file as long as there is a copy of it
/// @throws std::system_error when the pipe cannot be read, or there is no room
[[nodiscard]] ffmpeg::Source spoolPipe(const std::string& path);

} // namespace tio::tool
