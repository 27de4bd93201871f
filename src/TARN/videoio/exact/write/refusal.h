#pragma once

#include <TARN/videoio/ClipRefusal.h>

#include <string>

namespace tio::ffmpeg::detail {

/// Logs and throws a ClipRefusal: the clip's name, then what is wrong with what was asked for.
[[noreturn]] void refuse(const std::string& name, const std::string& what);

} // namespace tio::ffmpeg::detail
