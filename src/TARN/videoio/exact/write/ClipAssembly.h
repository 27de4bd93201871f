#pragma once

#include "exact/write/PacketSpool.h"
#include "exact/write/PictureTrack.h"
#include "exact/write/clipPlan.h"
#include "exact/write/encode/PictureEncoder.h"
#include "exact/write/encode/SoundEncoder.h"

#include <string>

namespace tio::ffmpeg::detail {

/// The pictures of a clip, encoded.
struct EncodedPictures {
    const AVCodecContext& encoder;
    PacketSpool& spool;
    const ClipTimes& times;
    const PacketOrder& order;
};

/// The sound of a clip, encoded.
struct EncodedSound {
    const AVCodecContext& encoder;
    PacketSpool& spool;
    Fraction begin; ///< seconds, at which the first sample is heard
};

/// Gives a packet of sound its times in the clip, and tells Matroska where its sound ends in it.
/// @param packet  its pts counts samples from the first one of all
/// @param index   of the packet
/// @param begin   samples before the first one
void giveSoundTimes(AVPacket& packet, const AVCodecContext& encoder, int64_t index, int64_t begin,
                    bool mp4);

/// Ticks a second in which MP4 tells when tracks begin: FFmpeg's milliseconds only if they do.
/// Nothing if no number of ticks holds both beginnings.
/// @param scale   of the track of pictures; 1 without one
/// @param finest  that is possible, from 1000 on
[[nodiscard]] std::optional<int64_t> movieScale(const ClipContainer& container,
                                                const Fraction& pictures, const Fraction& sound,
                                                int64_t scale, int64_t finest);

/// Writes the clip, packets in the order of their decoding times.
/// @param path      of the file that is written
/// @param clip      the name that failures tell
/// @param pictures, sound  null where there are none
/// @throws tio::ffmpeg::Exception
void assembleClip(const std::string& path, const std::string& clip, const ClipContainer& container,
                  const ClipWriterOptions& options, const EncodedPictures* pictures,
                  const EncodedSound* sound);

} // namespace tio::ffmpeg::detail
