#pragma once

#include <TARN/videoio/Packet.h>

#include <optional>
#include <string>
#include <vector>

namespace tio::tool {

/// A time in seconds, or another number, as a user writes it; nothing when it is none.
[[nodiscard]] std::optional<ffmpeg::Rational> parseTime(const std::string& text);

/// Times in seconds as a user writes them, separated by commas: a decimal fraction such as 1.5, a
/// fraction such as 2/3, or a clock's 00:01:02.5 and 1:02. Exact: nothing is rounded.
/// @throws Failure naming the one that is no time
[[nodiscard]] std::vector<ffmpeg::Rational> parseTimes(const std::string& list);

} // namespace tio::tool
