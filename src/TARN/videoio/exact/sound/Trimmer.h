#pragma once

#include "exact/sound/index/SoundIndexData.h"
#include "ffmpeg_compat.h"

namespace tio::ffmpeg::detail {

/// Takes priming and padding off, the way FFmpeg's decoders do when nobody tells them to leave it
/// to the caller. They are told so here, because what is to be taken off is known for a decoding
/// from start to end alone: behind a seek a container tells something else, or nothing.
class Trimmer {
public:
    /// What of a frame stays. Frames have to come in the order of the stream, from its start.
    [[nodiscard]] PacketCut::Part keep(const AVFrame& frame);

    /// The same, of as many samples for which the container tells this.
    [[nodiscard]] PacketCut::Part keep(uint32_t samples, uint32_t skipped, uint32_t padding,
                                       bool isDiscarded);

    /// The same, of what the decoder will give for a packet.
    [[nodiscard]] PacketCut::Part keep(const AVPacket& packet, uint32_t samples);

private:
    uint32_t toSkip = 0; // of the frames that follow
};

} // namespace tio::ffmpeg::detail
