#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/RgbImage.h>
#include <TARN/videoio/Source.h>

#include <string>

/// @file
/// Still images, as 8-bit RGB: rows are the image's height, columns its width, elements
/// its pixels (R, G, B).
///
/// The extension decides how a file is read: ".ppm" by tio::readPpm(), which never sees FFmpeg;
/// ".jpg", ".jpeg" and ".png", in upper or lower case, by FFmpeg, which goes by what is inside and
/// not by the name. Other extensions are refused.
///
/// Thread rule: every call stands alone; any thread.
/// @throws std::out_of_range "invalid string position" for a path without a dot
/// @throws tio::Exception "Unknown image file type extension: …"; what tio::readPpm() throws; and
///         for a file whose first stream holds no pictures
/// @throws tio::ffmpeg::Exception with the system's words and the path when the file cannot be
///         opened; with FFmpeg's words when it cannot be decoded: without the path, which
///         ffmpeg::readImageFrom() gives

namespace tio {

/// The image as it is stored, except that one in a container with a "rotate" tag is turned as a
/// video would be. A photo keeps the way in which the camera was held: see readImageUpright().
[[nodiscard]] TARN_VIDEOIO_API RgbImage readImage(std::string path);

/// The image as it is meant to be seen: the EXIF orientation of a photo is applied, mirrored ones
/// included. The pixels are those of readImage() in another order. FFmpeg
/// finds the orientation of PNG images from release 9 on; PPM images have none.
[[nodiscard]] TARN_VIDEOIO_API RgbImage readImageUpright(std::string path);

namespace ffmpeg {

/// The same as tio::readImage().
[[nodiscard]] TARN_VIDEOIO_API RgbImage readImage(std::string path);

/// Which way up an image is wanted.
enum class ImageOrientation {
    AsStored, ///< as readImage() gives it
    Upright,  ///< as readImageUpright() gives it
};

/// An image from any source: a file under any name, memory, or a stream. Its bytes alone decide
/// what it is, so that it need not be one of the three types: whatever FFmpeg reads will do.
/// @throws tio::ffmpeg::Exception, tio::Exception always with the name of the source
[[nodiscard]] TARN_VIDEOIO_API RgbImage
readImageFrom(const Source& source, ImageOrientation orientation = ImageOrientation::Upright);

} // namespace ffmpeg

} // namespace tio
