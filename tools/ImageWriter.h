#pragma once

#include <TARN/imgproc/PixelFormat.h>
#include <TARN/videoio/Types.h>

#include <functional>
#include <string>

namespace tio::tool {

/// Writes one picture to the file of that path.
using ImageWriter = std::function<void(const tio::PixelFormat::RgbImage&, const std::string& path)>;

/// The writer of a format. This is the one place that knows which formats there are.
/// @throws Failure with ExitCode::Usage, naming `output`, for one that cannot be written
[[nodiscard]] ImageWriter imageWriter(ffmpeg::ImageFileType type, const std::string& output);

} // namespace tio::tool
