#pragma once

#include "decode/Decoder.h"
#include "ffmpeg_compat.h"

#include <cstdint>

namespace tio::ffmpeg::detail {

/// The decoder of a sound stream, driven by packet numbers: each frame tells which packet it
/// comes from, and nothing is taken off it. What fails to decode is passed over, as the ffmpeg
/// program does. There is no way back: whoever wants to decode from another place makes another
/// decoder, because a flush leaves some of them with what they know of the place before.
class SoundDecoder {
public:
    /// @param threads  of FFmpeg's decoder; 0 for one per core
    /// @throws tio::ffmpeg::Exception when it cannot be opened
    SoundDecoder(const AVCodecParameters& parameters, AVRational timeBase, int threads);

    /// Hands over a packet under its number. Only after receive() has said that none is left; the
    /// packet's times are lost.
    void send(AVPacket& packet, uint32_t number);

    /// Says that no packet follows.
    void finish();

    /// Goes to the next frame; false when another packet is needed, or none is left.
    [[nodiscard]] bool receive();

    [[nodiscard]] AVFrame& frame() const noexcept { return decoder.frame(); }
    [[nodiscard]] uint32_t packetNumber() const noexcept { return current; }

private:
    Decoder decoder;
    uint32_t current = 0;
    uint32_t latestSent = 0;
};

/// A checksum of a frame's samples, which goes on from that of the frame before.
[[nodiscard]] uint64_t hashSamples(const AVFrame& frame, uint64_t seed);

} // namespace tio::ffmpeg::detail
