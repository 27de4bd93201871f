#include "exact/write/copy/JoinedTimes.h"

#include <algorithm>

namespace tio::ffmpeg::detail {

namespace {

// By less, times may go back in one part: streams are cut off in the middle, and clocks waver.
const Fraction leastStep{1, 2};

} // namespace

void JoinedTimes::move(AVPacket& packet, AVRational base, Place& place) {
    const Fraction tick(base.num, base.den);
    if (packet.dts != AV_NOPTS_VALUE) {
        if (place.lastDts != AV_NOPTS_VALUE && packet.dts < place.lastDts &&
            Fraction(place.lastDts - packet.dts) * tick > leastStep) {
            ++place.part;
            if (place.part == shifts.size()) // this stream is the first to meet the joint
                shifts.push_back(Fraction(place.end - packet.dts) * tick);
        }
        place.lastDts = packet.dts;
    }
    const int64_t shift = roundedTicks(shifts[place.part], base.num, base.den);
    if (packet.pts != AV_NOPTS_VALUE)
        packet.pts += shift;
    if (packet.dts != AV_NOPTS_VALUE) {
        packet.dts += shift;
        place.end = packet.dts + std::max<int64_t>(packet.duration, 1);
    }
}

} // namespace tio::ffmpeg::detail
