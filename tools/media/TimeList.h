#pragma once

#include <TARN/videoio/Packet.h>

#include <string>
#include <vector>

namespace tio::tool {

/// Times in seconds as a user writes them, separated by commas: a decimal fraction such as 1.5, a
/// fraction such as 2/3, or a clock's 00:01:02.5 and 1:02. Exact: nothing is rounded.
/// @throws Failure naming the one that is no time
[[nodiscard]] std::vector<ffmpeg::Rational> parseTimes(const std::string& list);

} // namespace tio::tool
