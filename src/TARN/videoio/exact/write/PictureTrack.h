#pragma once

#include "exact/write/ClipTimes.h"
#include "ffmpeg_compat.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace tio::ffmpeg::detail {

/// MP4 tells for how long packets are decoded. FFmpeg's demuxer takes that for how long pictures
/// are shown, and ends a track behind the second key picture that seems to last to its end.
constexpr int keysThatEndATrack = 2;

/// When such a key picture is decoded at the earliest instead, if the packet behind it follows at
/// `nextDts`: so late that it seems to last until the next picture at most.
[[nodiscard]] inline int64_t earliestOfKey(int64_t pts, int64_t nextPts, int64_t nextDts) {
    return nextDts - std::max<int64_t>(nextPts - pts, 1);
}

/// Which picture each packet of an encoder holds, as far as it decides on decoding times.
class PacketOrder {
public:
    /// A picture that is to be decoded without those before it.
    void expectStart(int64_t number) { expected.push_back(number); }

    /// A key picture, and the one whose packet comes next.
    struct Key {
        int64_t index; ///< of its packet
        int64_t number;
        int64_t next;
    };

    void add(int64_t number, bool key) {
        if (afterKey)
            keys.push_back({count - 1, last, number});
        afterKey = key;
        // Encoders that know no key pictures on demand go on as before.
        if (count == number && std::binary_search(expected.begin(), expected.end(), number))
            starts.push_back(number);
        delay = std::max(delay, count - number);
        last = number;
        ++count;
    }

    int64_t count = 0;
    int64_t delay = 0; ///< packets by which a picture has to be decoded ahead of its turn
    int64_t last = 0;  ///< picture of the last packet
    std::vector<int64_t> starts{0}; ///< first pictures, and packets, of parts for themselves
    std::vector<Key> keys;          ///< by index; without one that is the last packet

private:
    std::vector<int64_t> expected;
    bool afterKey = false;
};

/// The times of all packets of a complete track of pictures, in ticks.
///
/// Packets are decoded at the times of pictures `delay` places earlier, so that none is late, and
/// the first few before the first picture is shown. How long before is free: it is chosen such that
/// packets from first to last take as long as the pictures, since players believe the one or the
/// other. After a long pause that begins again, because a file has few bits for the time between
/// decoding and showing.
class PictureTrack {
public:
    /// @param countsOn  whether the muxer counts on: a packet begins where the one before ends
    PictureTrack(const ClipTimes& times, const PacketOrder& order, int64_t scale, bool countsOn);

    /// Gives the packet in place `index` the times of its picture.
    /// @param packet  its pts is the number of the picture
    void giveTimes(AVPacket& packet, int64_t index) const;

private:
    [[nodiscard]] int64_t shown(int64_t number) const;
    [[nodiscard]] int64_t decoded(int64_t index) const;
    [[nodiscard]] int64_t decodedLater(int64_t index) const;
    void decodeKeysLater();
    [[nodiscard]] int64_t leadOf(int64_t start) const;
    [[nodiscard]] int64_t findShortestGap() const;

    const ClipTimes& times;
    const PacketOrder& order;
    int64_t scale;
    bool countsOn;
    int64_t shortestGap = 0;
    int64_t lead = 0;              ///< from the first decoding to the first picture
    std::vector<int64_t> keyTimes; ///< when the key pictures of `order` are decoded
};

} // namespace tio::ffmpeg::detail
