#pragma once

#include <string>

namespace tio::ffmpeg::detail {

/// Makes a file without a name, to write and to read, which the system removes with its last user.
/// @returns its descriptor; below 0 with the reason in errno
[[nodiscard]] int openUnnamed(const std::string& folder);

} // namespace tio::ffmpeg::detail
