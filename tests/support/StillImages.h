#pragma once

#include "support/Track.h"

#include <cstdint>
#include <string>
#include <vector>

/// @file
/// Still images: made by FFmpeg's encoders, edited, and read by FFmpeg called directly.

namespace tio::test {

/// A still image as rows of R, G, B.
struct OracleImage {
    int width;
    int height;
    std::vector<uint8_t> pixels;
};

/// The first picture of the first stream of a file, as FFmpeg decodes it from the data alone, not
/// turned.
/// @throws std::runtime_error when FFmpeg fails, and when there is no picture
[[nodiscard]] OracleImage oracleImage(const std::string& path);

/// How an image is to be made; it shows a picture of `drawPicture`.
struct ImagePlan {
    std::string encoder = "png";       ///< or "mjpeg", "ljpeg", …
    std::string pixelFormat = "rgb24"; ///< FFmpeg's name of one that the encoder takes
    int width = 33;
    int height = 21;
    int number = 5;
    Options options; ///< of the encoder
};

/// Makes the image.
/// @throws std::runtime_error when FFmpeg refuses the plan
void makeImage(const std::string& path, const ImagePlan& plan);

/// Puts an EXIF block in front of a JPEG image's data that tells how the camera was held, 1 to 8.
void addExifOrientation(const std::string& path, int orientation);

} // namespace tio::test
