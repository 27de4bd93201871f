#include "exact/write/fragment/FragmentTimes.h"

#include <algorithm>
#include <limits>

namespace tio::ffmpeg::detail {

// The one step that is known may be a pause, and 31 bits have to hold the pause and what comes
// before it together.
constexpr int64_t mostLead = 1 << 20;

void FragmentTimes::begin(int64_t packetDelay, int64_t count) {
    delay = packetDelay;
    step = std::numeric_limits<int32_t>::max();
    for (int64_t number = 0; number < count; ++number)
        step = std::min(step, shown(number + 1) - shown(number));
    lead = firstLead = std::min(delay * step, mostLead);
}

int64_t FragmentTimes::leadAfterPause(int64_t number) const {
    return std::min(delay * step, (shown(number) - shown(number - 1)) / 2);
}

void FragmentTimes::restart(int64_t number) {
    lead = leadAfterPause(number);
    start = number;
}

int64_t FragmentTimes::decoded(int64_t index) const {
    const int64_t place = index - start;
    if (place >= delay || place < 0)
        return shown(index - delay);
    return shown(start) - lead + place * lead / delay;
}

void FragmentTimes::giveTimes(AVPacket& packet, int64_t index, Next next) const {
    const int64_t number = packet.pts;
    packet.pts = shown(number);
    packet.dts = decoded(index);
    if (!countsOn) {
        packet.duration = shown(number + 1) - packet.pts;
        return;
    }
    int64_t end = 0;
    if (next == Next::Packet)
        end = decoded(index + 1);
    else if (next == Next::Pause)
        end = shown(index + 1) - leadAfterPause(index + 1);
    else // all packets together last as long as all pictures
        end = shown(index + 1) - firstLead;
    packet.duration = std::max<int64_t>(end - packet.dts, 1);
}

} // namespace tio::ffmpeg::detail
