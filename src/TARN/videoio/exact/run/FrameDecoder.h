#pragma once

#include "ffmpeg_compat.h"

#include <TARN/videoio/VideoPacketDecoder.h>

#include <cstdint>
#include <memory>

namespace tio::ffmpeg::detail {

/// The video decoder of the library, driven by packet numbers instead of times: each picture tells
/// from which packet it comes, and nothing is dropped. What fails to decode is passed over and
/// remembered.
class FrameDecoder final : private VideoPacketDecoder {
public:
    /// @param threadCount  of FFmpeg's decoder; 0 for one per core
    FrameDecoder(PixelFormat format, int threadCount) : VideoPacketDecoder(format, threadCount) {}

    /// Hands over a packet of the stream under its number, when the decoder wantsPacket().
    void send(const AVPacket& packet, uint32_t number, const AVStream& stream);
    [[nodiscard]] bool wantsPacket() const { return offerWouldBeAccepted(); }

    /// Says that no packet follows.
    void finish();

    /// Goes to the next picture; false when another packet is needed, or none is left.
    [[nodiscard]] bool receive();

    /// Number of the packet that the picture comes from.
    [[nodiscard]] uint32_t packetNumber() const noexcept { return current; }

    /// Of the decoded picture as it is stored, before turning and conversion.
    [[nodiscard]] uint32_t checksum() const;

    /// Whether the picture shows damage, as far as the decoder tells.
    [[nodiscard]] bool isPictureDamaged() const;

    /// The picture, upright, in the format asked for. It can be had once.
    /// @throws tio::Exception when it cannot be converted
    [[nodiscard]] std::shared_ptr<tio::FrameBase> picture() { return finishFrame(); }

    /// Drops what is inside, so that packets from another place may follow.
    void restart();

    /// Packets and pictures that could not be decoded so far.
    [[nodiscard]] int64_t failureCount() const { return failures + getInvalidPacketCount(); }

    [[nodiscard]] int64_t packetsSent() const noexcept { return packets; }
    [[nodiscard]] int64_t picturesReceived() const noexcept { return pictures; }

private:
    void noteFailure();

    uint32_t current = 0;
    int64_t failures = 0;
    int64_t packets = 0;
    int64_t pictures = 0;
};

} // namespace tio::ffmpeg::detail
