#include "exact/write/PictureTrack.h"

#include <iterator>
#include <limits>

namespace tio::ffmpeg::detail {

PictureTrack::PictureTrack(const ClipTimes& clipTimes, const PacketOrder& packets, int64_t ticks,
                           bool counts)
    : times(clipTimes), order(packets), scale(ticks), countsOn(counts) {
    if (order.delay == 0)
        return;
    shortestGap = findShortestGap();
    const int64_t lastDecoded = decoded(order.count - 1);
    const int64_t least = std::max(order.delay, shown(order.last) - lastDecoded);
    const int64_t most = shown(order.count) - lastDecoded - 1;
    lead = std::clamp(order.delay * shortestGap, least, std::max(least, most));
    if (countsOn)
        decodeKeysLater();
}

int64_t PictureTrack::shown(int64_t number) const {
    return times.ticks(static_cast<std::size_t>(number), scale);
}

int64_t PictureTrack::findShortestGap() const {
    int64_t shortest = std::numeric_limits<int32_t>::max();
    for (int64_t number = 0; number < order.count; ++number)
        shortest = std::min(shortest, shown(number + 1) - shown(number));
    return shortest;
}

int64_t PictureTrack::leadOf(int64_t start) const {
    if (start == 0)
        return lead;
    return std::min(order.delay * shortestGap, (shown(start) - shown(start - 1)) / 2);
}

int64_t PictureTrack::decoded(int64_t index) const {
    const int64_t start =
        *std::prev(std::upper_bound(order.starts.begin(), order.starts.end(), index));
    const int64_t place = index - start;
    if (place >= order.delay)
        return shown(index - order.delay);
    const int64_t ahead = leadOf(start);
    return shown(start) - ahead + place * ahead / order.delay;
}

// Only where it matters, since uneven decoding times hide an even rate.
void PictureTrack::decodeKeysLater() {
    const int64_t end = shown(order.count);
    const auto lasts = [&](const PacketOrder::Key& key, int64_t dts, int64_t nextDts) {
        return shown(key.number) + (nextDts - dts) >= end;
    };
    const auto many =
        std::count_if(order.keys.begin(), order.keys.end(), [&](const PacketOrder::Key& key) {
            return lasts(key, decoded(key.index), decoded(key.index + 1));
        });
    if (many < keysThatEndATrack)
        return;
    keyTimes.resize(order.keys.size());
    for (std::size_t i = order.keys.size(); i-- > 0;) {
        const PacketOrder::Key& key = order.keys[i];
        const bool keyFollows =
            i + 1 < order.keys.size() && order.keys[i + 1].index == key.index + 1;
        const int64_t after = keyFollows ? keyTimes[i + 1] : decoded(key.index + 1);
        keyTimes[i] = decoded(key.index);
        if (lasts(key, keyTimes[i], after))
            keyTimes[i] =
                std::max(keyTimes[i], earliestOfKey(shown(key.number), shown(key.next), after));
    }
}

int64_t PictureTrack::decodedLater(int64_t index) const {
    if (keyTimes.empty())
        return decoded(index);
    const auto key =
        std::lower_bound(order.keys.begin(), order.keys.end(), index,
                         [](const PacketOrder::Key& one, int64_t at) { return one.index < at; });
    const bool found = key != order.keys.end() && key->index == index;
    return found ? keyTimes[static_cast<std::size_t>(key - order.keys.begin())] : decoded(index);
}

void PictureTrack::giveTimes(AVPacket& packet, int64_t index) const {
    const int64_t number = packet.pts;
    packet.pts = shown(number);
    packet.dts = decodedLater(index);
    packet.duration = shown(number + 1) - packet.pts;
    if (countsOn && index == order.count - 1) // all packets together last as long as all pictures
        packet.duration = shown(order.count) - shown(0) - (packet.dts - decodedLater(0));
}

} // namespace tio::ffmpeg::detail
