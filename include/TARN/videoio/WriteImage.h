#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/Image.h>
#include <TARN/videoio/RgbImage.h>
#include <TARN/videoio/Types.h>

#include <optional>
#include <string>

namespace tio::ffmpeg {

/// Writes an image as a JPEG (4:2:0, full range), PNG or binary PPM file.
///
/// @param path   file to make or to replace
/// @param image  rows are its height, columns its width, elements its pixels (R, G, B); rows follow
///               each other without gaps
/// @param compressionLevel  passed to FFmpeg's encoder as it is. PNG: 0 to 9, and below 0 the
///               encoder's own choice. JPEG and PPM ignore it.
/// @param type   Auto takes the type from the path's extension, as getImageFileType() does
///
/// Thread rule: every call stands alone; any thread.
/// @throws std::out_of_range "invalid map<K, T> key" for a value that is no type
/// @throws tio::Exception "Could not open …" and "Could not write to …" with the path; after the
///         latter a part of the file stays, and its handle stays open. (The form with
///         WriteImageOptions leaves neither.) A disk that is full when the file is closed counts as
///         a failed write. For Auto also what getImageFileType() throws.
/// @throws tio::ffmpeg::Exception when FFmpeg refuses the image, as it does one without pixels
TARN_VIDEOIO_API void writeImage(std::string path, RgbImage image, int compressionLevel = -1,
                                 ImageFileType type = ImageFileType::Auto);

/// How an image file is made. What the type of the file has no use for is checked all the same.
/// Thread rule: a value.
struct WriteImageOptions {
    /// Auto goes by the extension of the name, in upper or lower case.
    ImageFileType type = ImageFileType::Auto;

    /// Of a JPEG, 1 to 100 on the scale that JPEG programs share: the tables of the standard's
    /// Annex K, as they are at 50. Nothing leaves it to the encoder, which is about 90.
    std::optional<int> quality;

    /// Of a PNG, 0 (none, the fastest) to 9 (the smallest). Nothing leaves it to the encoder.
    std::optional<int> compression;
};

/// The same with more to say. Everything is checked, and the image is encoded, before there is a
/// file; it gets its name when it is complete, so that after a failure one that was there before
/// is still there.
///
/// PNG and PPM files keep every bit of a picture, those of grey as PGM; a JPEG file holds 8 bits.
///
/// @param picture  of RGB or grey, 8 or 16 bits, in memory of the caller's
/// @throws tio::Exception for an option out of its range, a name that shows no type, and memory
///         that holds no such picture
/// @throws tio::ffmpeg::Exception with the path and the system's code, when the file cannot be
///         written
TARN_VIDEOIO_API void writeImage(const std::string& path, const ConstImageView& picture,
                                 const WriteImageOptions& options);
TARN_VIDEOIO_API void writeImage(const std::string& path, const RgbImage& image,
                                 const WriteImageOptions& options);

} // namespace tio::ffmpeg
