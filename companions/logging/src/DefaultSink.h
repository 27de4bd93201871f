#pragma once

#include <TARN/logging/log.h>

#include <string>
#include <string_view>

namespace tio::log {

/// A message as a terminal should show it: no line ends and zero characters at the end, no control
/// characters inside except tabs and line ends. Texts may quote a foreign file, and an escape
/// sequence in its metadata must not steer the terminal.
[[nodiscard]] std::string displayText(std::string_view text);

/// Writes messages from `LevelError` up to standard error, one line each.
void writeToStandardError(const std::string& logger, Level level, const std::string& text);

} // namespace tio::log
