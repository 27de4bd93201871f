#pragma once

#include <TARN/core/Mat.h>
#include <TARN/core/Vec.h>
#include <TARN/videoio/Export.h>
#include <TARN/videoio/Types.h>

#include <cstdint>
#include <string>

namespace tio::ffmpeg {

/// Writes an image as a JPEG (4:2:0, full range), PNG or binary PPM file.
///
/// @param path   file to make or to replace
/// @param image  rows are its height, columns its width, elements its pixels (R, G, B); rows follow
///               each other without gaps
/// @param compressionLevel  passed to FFmpeg's encoder as it is. PNG: 0 to 9, and below 0 the
///               encoder's own choice. JPEG and PPM take no notice.
/// @param type   Auto takes the type from the path's extension, as getImageFileType() tells it
///
/// Thread rule: every call stands alone; any thread.
/// @throws std::out_of_range "invalid map<K, T> key" for a type that is none
/// @throws tio::Exception "Could not open …" and "Could not write to …" with the path; after the
///         latter a part of the file stays, and its handle stays open. A disk that is full when the
///         file is closed counts as a failed write. For Auto also what getImageFileType() throws.
/// @throws tio::ffmpeg::Exception when FFmpeg refuses the image, as it does one without pixels
TARN_VIDEOIO_API void writeImage(std::string path, Mat<Vec<uint8_t, 3>, 2, MatOptions<1, 1>> image,
                                 int compressionLevel = -1,
                                 ImageFileType type = ImageFileType::Auto);

} // namespace tio::ffmpeg
