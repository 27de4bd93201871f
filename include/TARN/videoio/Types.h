#pragma once

#include <TARN/videoio/Export.h>

#include <cstdint>
#include <map>
#include <string>

struct AVStream;

/// @file
/// The vocabulary of the interface: codecs, containers, pixel formats and image files, under names
/// of our own. The numeric values are part of the interface and never change.
///
/// Thread rule: any thread.

namespace tio::ffmpeg {

/// Codec of a stream, where it is one that the library writes.
/// InputFormatContext::getCodecNameOfStream() names every codec.
enum class Codec : int32_t {
    Unknown = 0, ///< any codec but the two below
    H264 = 1,    ///< AV_CODEC_ID_H264
    Aac = 2,     ///< AV_CODEC_ID_AAC
};

/// Container format of an input.
enum class Container : int32_t {
    Unknown = 0, ///< any container but the two below
    Mp4 = 1,     ///< read by FFmpeg's MP4 demuxer, which also serves QuickTime and 3GP files
    MpegTs = 2,  ///< MPEG transport stream
};

/// What a stream carries.
enum class StreamType : int32_t {
    Unknown = 0,
    Video = 1,
    Audio = 2,
    Subtitle = 3,
    Data = 4,
    Attachment = 5,
};

/// Layout of the pictures that a video decoder returns.
enum class PixelFormat : int32_t {
    Default = 0, ///< the decoder's own choice; video decoders take it as RGB
    RGB = 1,     ///< packed 8-bit R, G, B (AV_PIX_FMT_RGB24)
    NV12 = 2,    ///< 8-bit Y plane and interleaved Cb, Cr plane (AV_PIX_FMT_NV12)
};

/// Type of a still-image file.
enum class ImageFileType : int32_t {
    Auto = 0, ///< taken from the file name's extension by getImageFileType()
    Jpeg = 1,
    Png = 2,
    Ppm = 3,
};

/// Image file types by lower-case extension, dot included: ".jpeg", ".jpg", ".png", ".ppm".
TARN_VIDEOIO_API extern const std::map<std::string, ImageFileType> typeExtensionMap;

/// Type of a still-image file by its name. The extension is what follows the last dot of the whole
/// path, directories included, dot and all; upper and lower case count alike.
/// @throws std::out_of_range "invalid string position" when the path holds no dot
/// @throws tio::Exception "Unknown image file type extension: …" for an extension that
///         typeExtensionMap does not hold
[[nodiscard]] TARN_VIDEOIO_API ImageFileType getImageFileType(const std::string& path);

/// How far the pictures of a stream must be turned clockwise to stand upright, in quarter turns:
/// 0 none, 1 for 90 degrees, 2 for 180, 3 for 270. Read from the stream's "rotate" metadata tag;
/// a tag that cannot be read counts as 0 and is logged under "root" at level 3. Never throws for
/// a malformed tag. Mirrored pictures have no number here, and are shown upright by FrameReader.
/// @param stream  must not be null
[[nodiscard]] TARN_VIDEOIO_API int getStreamRotation(const AVStream* stream);

} // namespace tio::ffmpeg
