#pragma once

#include "exact/sound/PacketLength.h"
#include "exact/write/ClipContainer.h"
#include "ffmpeg_compat.h"

#include <cstdint>

namespace tio::ffmpeg::detail {

/// Brings the times of a stream's packets into the form in which a container takes them.
class LeavingTimes {
public:
    LeavingTimes(const AVStream& original, const ClipContainer& container);

    /// Of the packets that leave: those of the source for pictures, samples for sound.
    [[nodiscard]] AVRational ticks() const noexcept { return target; }

    /// Says when the last picture is gone, where packets do not: those of MP4 say how long until
    /// the next one is decoded.
    /// @param tick  AV_NOPTS_VALUE where it is not known: it lasts as long as the one before then
    void setEnd(int64_t tick) noexcept {
        end = tick;
        endIsSet = true;
    }

    /// @param packet  in ticks of the source, in the order of the stream
    /// @param last    whether it is the last one of the stream
    void give(AVPacket& packet, bool last);

    /// Samples that a player takes off at the beginning, where this is the first packet.
    [[nodiscard]] int runInOf(const AVPacket& packet) const;

private:
    void toSamples(AVPacket& packet);
    void separateRunIn(AVPacket& packet) const;
    void endSound(AVPacket& packet) const;
    void endPictures(AVPacket& packet) const;
    [[nodiscard]] int64_t lengthOf(const AVPacket& packet);
    [[nodiscard]] int64_t usualPicture() const;

    const AVStream& stream;
    const ClipContainer& container;
    PacketLength told; ///< by the packet itself
    AVRational target;
    bool sound;
    bool first = true;
    int64_t rescaled = AV_NOPTS_VALUE;  ///< where sound stands, for av_rescale_delta()
    int64_t lastSound = AV_NOPTS_VALUE; ///< when the packet before is decoded
    int64_t firstDts = 0;
    int64_t firstShown = 0;
    int64_t lastShown = 0;
    int64_t beforeLast = 0;
    int64_t end = 0;
    bool endIsSet = false;
};

} // namespace tio::ffmpeg::detail
