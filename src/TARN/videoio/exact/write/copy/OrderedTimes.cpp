#include "exact/write/copy/OrderedTimes.h"

#include "base/ticks.h"

#include <algorithm>

namespace tio::ffmpeg::detail {

OrderedTimes::OrderedTimes(const IndexData& index) {
    std::vector<int64_t> shown;
    for (int64_t frame = 0; frame < index.frameCount(); ++frame)
        shown.push_back(index.timeOf(frame));
    for (uint32_t packet = 0; packet < index.packetCount(); ++packet) {
        const uint32_t frame = index.frameOf[packet];
        if (frame == IndexData::noFrame)
            times.push_back({AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0});
        else
            times.push_back({shown[frame], static_cast<int64_t>(frame), index.durationOf(frame)});
    }
    giveDecodingTimes(shown, std::clamp<int64_t>(index.frameTicks, 1, INT32_MAX));
}

// A picture is decoded at the time of the one that is shown as many places earlier as any has to be
// decoded ahead of its turn. Until here the decoding times are the numbers of the pictures.
void OrderedTimes::giveDecodingTimes(const std::vector<int64_t>& shown, int64_t step) {
    int64_t place = 0;
    int64_t delay = 0;
    for (const Times& one : times) {
        if (one.pts != AV_NOPTS_VALUE)
            delay = std::max(delay, place++ - one.dts);
    }
    place = 0;
    int64_t last = AV_NOPTS_VALUE;
    for (Times& one : times) {
        if (one.pts == AV_NOPTS_VALUE) {
            if (last != AV_NOPTS_VALUE)
                one.dts = wrappingSum(last, 1);
        } else {
            one.dts = place >= delay ? shown[static_cast<std::size_t>(place - delay)]
                                     : wrappingDifference(shown.front(), (delay - place) * step);
            ++place;
        }
        last = one.dts == AV_NOPTS_VALUE ? last : one.dts;
    }
}

bool OrderedTimes::giveTimes(AVPacket& packet, std::size_t number) const {
    if (number >= times.size())
        return false;
    const Times& own = times[number];
    const bool room =
        own.pts != AV_NOPTS_VALUE || number + 1 == times.size() || own.dts < times[number + 1].dts;
    if (own.dts == AV_NOPTS_VALUE || !room)
        return false;
    packet.pts = own.pts != AV_NOPTS_VALUE ? own.pts : own.dts;
    packet.dts = own.dts;
    packet.duration = own.duration;
    return true;
}

} // namespace tio::ffmpeg::detail
