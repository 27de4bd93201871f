#pragma once

#include <TARN/videoio/Image.h>

#include <string>

namespace tio::ffmpeg::detail {

/// Whether a caller's picture can be given to an encoder: format, size, planes, and samples that
/// keep to their depth.
/// @param name  of the clip, for the message
/// @throws ClipRefusal
void requireView(const ConstImageView& picture, const std::string& name);

} // namespace tio::ffmpeg::detail
