#pragma once

#include <TARN/imgproc/PixelFormat.h>
#include <TARN/videoio/Types.h>

#include <functional>
#include <string>

namespace tio::tool {

/// Writes one picture to the file of that path.
using ImageWriter = std::function<void(const tio::PixelFormat::RgbImage&, const std::string& path)>;

/// The writer of a format. Files get their names when they are complete.
[[nodiscard]] ImageWriter imageWriter(ffmpeg::ImageFileType type);

/// The format that a file's name asks for.
/// @throws Failure with ExitCode::Usage, naming the file, when there is no such format
[[nodiscard]] ffmpeg::ImageFileType imageTypeOf(const std::string& path);

/// ".png", ".jpg" or ".ppm"
[[nodiscard]] std::string imageExtension(ffmpeg::ImageFileType type);

} // namespace tio::tool
