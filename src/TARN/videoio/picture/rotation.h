#pragma once

#include <string>

namespace tio::ffmpeg::detail {

/// Quarter turns, 0 to 3, of a "rotate" tag such as "90" or "-90".
/// @throws std::invalid_argument, std::out_of_range for a value that is no such number
[[nodiscard]] int parseQuarterTurns(const std::string& value);

} // namespace tio::ffmpeg::detail
