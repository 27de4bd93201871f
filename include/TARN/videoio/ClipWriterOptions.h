#pragma once

#include <TARN/core/Rational.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tio::ffmpeg {

/// The matrix between RGB and the stored Y, Cb, Cr; limited range. It is written as a tag, with
/// the primaries and the transfer that go with it. The values are part of the interface and never
/// change.
enum class ClipColours : int32_t {
    Automatic = 0, ///< BT.709 from 720 lines on, else BT.601; JPEG pictures: BT.601 in full range
    Bt601 = 1,
    Bt709 = 2,
    Bt2020 = 3, ///< non-constant luminance
};

/// What the times of pictures and sound count from. The values never change.
enum class ClipOrigin : int32_t {
    AsGiven = 0, ///< 0 is where the clip begins to play
    First = 1,   ///< the first picture is shown at 0, and all times count from its own
};

/// A named part of a clip. In MP4 and MOV it ends 24 days after its begin at the latest, and the
/// next one begins no later.
struct ClipChapter {
    tio::Rational<1, int64_t> begin; ///< seconds, not negative
    tio::Rational<1, int64_t> end;   ///< seconds, after `begin`; at most 2^63 - 1 ns
    std::string title;
};

/// How a clip is written. A default is what most want; a test of every value comes before the file
/// is made.
/// Thread rule: a value.
struct ClipWriterOptions {
    /// @name Times
    /// With either of the first two, times are on a grid: multiples of `timeBase`, else of 1 /
    /// `rate`.
    /// @{
    std::optional<tio::Rational<1, int64_t>> rate; ///< pictures a second, for those without a time
    std::optional<tio::Rational<1, int64_t>> timeBase; ///< seconds
    ClipOrigin origin = ClipOrigin::AsGiven;
    /// @}

    /// @name Pictures
    /// @{
    /// "h264", "hevc", "av1", "vp9", "ffv1", "mjpeg" or the name of one of FFmpeg's encoders.
    /// Empty: H.264, in WebM VP9.
    std::string codec;
    /// How pixels are stored, in FFmpeg's words, such as "yuv422p10le". Empty: 4:2:0 for RGB, grey
    /// and NV12, the subsampling of a planar picture, 10 bits for pictures of more than 8; FFV1
    /// keeps what it gets. Where the codec cannot, what it can.
    std::string pixelFormat;
    std::optional<double> crf;                  ///< constant quality, 0 to 51 (H.264, HEVC) or 63
    std::string preset;                         ///< one of the encoder's own
    std::optional<int64_t> bitRate;             ///< bits a second
    std::map<std::string, std::string> options; ///< the encoder's own, by FFmpeg's names
    int threads = 0;                            ///< of the encoder; 0: it decides
    ClipColours colours = ClipColours::Automatic;
    /// How a player turns the pictures, which are stored as given: clockwise by 0, 90, 180 or 270
    /// degrees, then mirrored left to right. MP4 and MOV alone.
    int rotation = 0;
    bool mirrored = false;
    tio::Rational<1, int64_t> sampleAspectRatio{1, 1}; ///< width to height of a pixel
    /// @}

    /// @name Sound
    /// @{
    int audioRate = 0;     ///< samples a second; 0: no sound. A track needs samples as well
    int audioChannels = 0; ///< 0: as the first block has
    /// "aac", "opus", "flac", "alac", "pcm" (32-bit float) or the name of one of FFmpeg's encoders.
    /// Empty: what is usual in the container.
    std::string audioCodec;
    std::optional<int64_t> audioBitRate;             ///< bits a second
    std::map<std::string, std::string> audioOptions; ///< the encoder's own
    /// @}

    /// @name The file
    /// @{
    bool overwrite = true; ///< whether a file of that name may be replaced
    bool faststart = true; ///< MP4 and MOV: the index comes before the media data
    /// Whether the file is written while it grows, a fragment at least every second of pictures,
    /// each of which begins with a key picture: a process that dies leaves what plays up to the
    /// last one. The file gets its name with the first fragment. Without a rate or a time base,
    /// times are multiples of 1/3000000 s then. Not for WAV and FLAC; in MP4 and MOV without
    /// chapters.
    bool fragmented = false;
    /// FFmpeg's keys: "title", "comment", "creation_time" (ISO 8601), …
    std::map<std::string, std::string> metadata;
    std::string language; ///< of the sound, three letters of ISO 639-2; empty: not stated
    std::vector<ClipChapter> chapters;
    /// @}
};

} // namespace tio::ffmpeg
