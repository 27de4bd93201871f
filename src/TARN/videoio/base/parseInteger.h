#pragma once

#include <string>

namespace tio::ffmpeg::detail {

/// The decimal integer at the beginning of a text, leading blanks and a sign allowed.
/// @param used receives how many characters belong to it, where that matters
/// @throws std::invalid_argument "invalid stoi argument"
/// @throws std::out_of_range "stoi argument out of range"
[[nodiscard]] int parseInteger(const std::string& text, size_t* used = nullptr);

} // namespace tio::ffmpeg::detail
