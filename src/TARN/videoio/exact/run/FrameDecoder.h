#pragma once

#include "decode/Decoder.h"
#include "decode/PictureMaker.h"
#include "ffmpeg_compat.h"

#include <cstdint>
#include <memory>

namespace tio::ffmpeg::detail {

/// A decoder driven by packet numbers instead of times: each picture says from which packet it
/// comes, and nothing is dropped. What fails to decode is passed over and counted.
class FrameDecoder final {
public:
    /// @param threadCount  of FFmpeg's decoder; 0 for one per core
    FrameDecoder(PixelFormat format, int threadCount);

    /// Hands over a packet under its number, when the decoder wantsPacket(). The stream has to
    /// outlive the decoder.
    void send(const AVPacket& packet, uint32_t number, const AVStream& stream);
    [[nodiscard]] bool wantsPacket() const noexcept { return !packetWaits; }

    /// Says that no packet follows.
    void finish();

    /// Goes to the next picture; false when another packet is needed, or none is left.
    [[nodiscard]] bool receive();

    /// Number of the packet that the picture comes from.
    [[nodiscard]] uint32_t packetNumber() const noexcept { return current; }

    /// Of the decoded picture as it is stored, before turning and conversion.
    [[nodiscard]] uint32_t checksum() const;

    /// Whether the picture shows damage, as far as the decoder reports it.
    [[nodiscard]] bool isPictureDamaged() const;

    /// The decoded picture as it is stored. Its pts is the packet's number, not a time; what it
    /// holds stays until the next receive().
    [[nodiscard]] AVFrame& decoded() const noexcept { return decoder.frame(); }

    /// The stream of the packets; there must have been one.
    [[nodiscard]] const AVStream& stream() const noexcept { return *source; }

    /// The picture in the format asked for, turned clockwise by so many quarters, the same ones
    /// each time. decoded() stays as it is.
    /// @throws tio::Exception when it cannot be converted
    [[nodiscard]] std::shared_ptr<tio::FrameBase> picture(int quarters);

    /// Drops what is inside, so that packets from another place may follow.
    void restart();

    /// Packets and pictures that could not be decoded so far.
    [[nodiscard]] int64_t failureCount() const noexcept { return failures; }

    [[nodiscard]] int64_t packetsSent() const noexcept { return packets; }
    [[nodiscard]] int64_t picturesReceived() const noexcept { return received; }

private:
    void sendPending();
    void forgetPending() noexcept;

    Decoder decoder;
    PictureMaker pictures;
    PacketHandle pending;
    bool packetWaits = false; // in `pending`
    const AVStream* source = nullptr;
    bool turningKnown = false;
    uint32_t current = 0;
    int64_t failures = 0;
    int64_t packets = 0;
    int64_t received = 0;
};

} // namespace tio::ffmpeg::detail
