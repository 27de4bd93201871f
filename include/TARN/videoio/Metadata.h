#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Packet.h>
#include <TARN/videoio/Types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace tio::ffmpeg {

/// What a source says of one of its streams before anything is decoded.
///
/// What is not stated is empty. Names are FFmpeg's: "h264", "yuv420p", "bt709", "tv", "5.1(side)".
/// Thread rule: a value; any thread.
struct Metadata {
    /// @name Of any stream
    /// @{
    std::string container; ///< FFmpeg's name of the demuxer, a list such as "mov,mp4,m4a,…"
    StreamType type = StreamType::Unknown;
    std::string codec;                 ///< "none" when it is not known
    Rational timeBase;                 ///< seconds per tick of the stream's timestamps
    std::optional<Rational> duration;  ///< in seconds: the stream's own, else the container's
    std::optional<int64_t> bitRate;    ///< in bits per second
    std::optional<int64_t> frameCount; ///< as the container states it; FrameIndex knows for certain

    /// Those of the container, such as "title", and those of the stream, which count where both
    /// have one. Keys and values are as the container has them, text in UTF-8 as a rule.
    std::map<std::string, std::string> tags;
    /// @}

    /// @name Of pictures
    /// @{
    std::optional<int> width; ///< in pixels, as they are shown: upright
    std::optional<int> height;
    std::optional<int> codedWidth; ///< as they are stored
    std::optional<int> codedHeight;
    std::string pixelFormat;
    std::optional<int> bits; ///< of a sample

    /// Pictures per second on average.
    std::optional<Rational> averageRate;

    /// Whether the distances of pictures differ, as far as FFmpeg has seen when it opened the
    /// source: the times of an index know for certain.
    bool rateVaries = false;

    /// By how many degrees the stored picture is turned clockwise, 0, 90, 180 or 270, and whether
    /// it is then mirrored left to right, to stand upright.
    int rotation = 0;
    bool mirrored = false;
    bool turnIsExact = true; ///< false where a shear or another angle is stated: the nearest turn

    std::string colourSpace;                   ///< the matrix from RGB to luma and chroma
    std::string colourRange;                   ///< "tv" (limited) or "pc" (full)
    std::string colourPrimaries;               ///< what red, green and blue are
    std::string colourTransfer;                ///< from light to signal
    std::optional<Rational> sampleAspectRatio; ///< width of a stored pixel over its height
    /// @}

    /// @name Of sound
    /// @{
    std::string sampleFormat;
    std::optional<int> rate; ///< samples per second of one channel
    std::optional<int> channels;
    std::string layout; ///< which channel is where; the usual one where only their number is stated
    /// @}
};

/// What a source says of its stream `streamIndex`. Reads nothing.
/// @throws tio::Exception when there is no such stream
[[nodiscard]] TARN_VIDEOIO_API Metadata metadataOf(const InputFormatContext& input,
                                                   int streamIndex);

} // namespace tio::ffmpeg
