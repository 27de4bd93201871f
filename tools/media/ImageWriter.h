#pragma once

#include <TARN/imgproc/PixelFormat.h>
#include <TARN/videoio/Image.h>
#include <TARN/videoio/Types.h>

#include <functional>
#include <string>
#include <vector>

namespace tio::tool {

/// What a picture file holds.
struct ImageFormat {
    ffmpeg::ImageFileType type;
    ffmpeg::PictureFormat pixels;
    std::string extension; ///< ".png", ".jpg" or ".ppm"
};

/// The names that a user may give, such as "png16".
[[nodiscard]] std::vector<std::string> imageFormatNames();

/// The format of one of those names.
[[nodiscard]] ImageFormat imageFormatNamed(const std::string& name);

/// The format that a file's name asks for.
/// @throws Failure with ExitCode::Usage, naming the file, when there is no such format
[[nodiscard]] ImageFormat imageFormatOf(const std::string& path);

/// Writes one picture to the file of that path, which gets its name when it is complete.
using ImageWriter = std::function<void(const ffmpeg::ConstImageView&, const std::string& path)>;

/// The writer of a format, for pictures of its pixels.
[[nodiscard]] ImageWriter imageWriter(const ImageFormat& format);

/// The pixels of a picture; valid as long as it is.
[[nodiscard]] ffmpeg::ConstImageView viewOf(const tio::PixelFormat::RgbImage& picture);

/// The same pixels, shared, of a picture of 8-bit RGB whose rows follow each other.
[[nodiscard]] tio::PixelFormat::RgbImage rgbOf(const ffmpeg::Image& picture);

/// A picture of 8-bit RGB with these pixels.
[[nodiscard]] ffmpeg::Image imageOf(const tio::PixelFormat::RgbImage& picture);

} // namespace tio::tool
