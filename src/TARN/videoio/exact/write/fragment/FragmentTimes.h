#pragma once

#include "exact/write/ClipTimes.h"
#include "ffmpeg_compat.h"

#include <cstdint>

namespace tio::ffmpeg::detail {

/// The times of packets, in ticks, while later ones are still to come. Packets come in groups, each
/// of which is decoded for itself; those of a group get their times when it is complete.
class FragmentTimes {
public:
    /// @param times  of the pictures so far, and of the first one of the next group
    /// @param counts  whether the muxer counts on: a packet begins where the one before ends
    FragmentTimes(const ClipTimes& clipTimes, int64_t ticks, bool counts)
        : times(clipTimes), scale(ticks), countsOn(counts) {}

    /// Begins with the first group.
    /// @param delay  packets by which any is decoded ahead of its turn
    /// @param count  of the pictures in the group
    void begin(int64_t delay, int64_t count);

    /// Says that the group which begins with a picture comes after a pause: players have few bits
    /// for the time from decoding to showing.
    void restart(int64_t number);

    /// What comes after a packet, on which its length depends.
    enum class Next { Packet, Pause, Nothing };

    /// Gives the packet in place `index` the times of its picture.
    /// @param packet  its pts is the number of the picture
    void giveTimes(AVPacket& packet, int64_t index, Next next) const;

    [[nodiscard]] int64_t shown(int64_t number) const {
        return times.ticks(static_cast<std::size_t>(number), scale);
    }

private:
    [[nodiscard]] int64_t decoded(int64_t index) const;
    [[nodiscard]] int64_t leadAfterPause(int64_t number) const;

    const ClipTimes& times;
    int64_t scale;
    bool countsOn;
    int64_t delay = 0;
    int64_t step = 1;  ///< the shortest between two pictures of the first group
    int64_t start = 0; ///< first picture, and packet, since the last pause
    int64_t lead = 0;  ///< from its decoding until it is shown
    int64_t firstLead = 0;
};

} // namespace tio::ffmpeg::detail
