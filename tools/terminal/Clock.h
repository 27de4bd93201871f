#pragma once

#include <string>

namespace tio::tool {

enum class ClockPrecision { Seconds, Milliseconds };

/// A time as a clock shows it, "1:02:03" or "2:03.456", rounded to its last digit.
[[nodiscard]] std::string clockText(double seconds,
                                    ClockPrecision precision = ClockPrecision::Seconds);

} // namespace tio::tool
