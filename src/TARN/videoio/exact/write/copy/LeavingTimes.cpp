#include "exact/write/copy/LeavingTimes.h"

#include "base/littleEndian.h"
#include "exact/write/ClipTimes.h"
#include "exact/write/MatroskaDelay.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

/// What a packet says of samples that are to be left out.
struct Skip {
    int64_t begin = 0;
    int64_t end = 0;
};

Skip skipOf(const AVPacket& packet) {
    for (int i = 0; i < packet.side_data_elems; ++i) {
        const AVPacketSideData& side = packet.side_data[i];
        if (side.type == AV_PKT_DATA_SKIP_SAMPLES && static_cast<size_t>(side.size) >= skipBytes)
            return {fromLittleEndian<uint32_t>(side.data),
                    fromLittleEndian<uint32_t>(side.data + 4)};
    }
    return {};
}

} // namespace

LeavingTimes::LeavingTimes(const AVStream& original, const ClipContainer& clip)
    : stream(original),
      container(clip),
      told(*original.codecpar),
      target(original.time_base),
      sound(original.codecpar->codec_type == AVMEDIA_TYPE_AUDIO &&
            original.codecpar->sample_rate > 0) {
    if (sound)
        target = {1, original.codecpar->sample_rate};
}

int LeavingTimes::runInOf(const AVPacket& packet) const {
    if (!sound)
        return 0;
    const int64_t skipped = skipOf(packet).begin;
    const int64_t stated = packet.pts < 0 ? stream.codecpar->initial_padding : 0;
    return static_cast<int>(std::min<int64_t>(skipped > 0 ? skipped : stated, INT32_MAX));
}

void LeavingTimes::give(AVPacket& packet, bool last) {
    if (sound)
        toSamples(packet);
    if (first) {
        if (sound && container.mp4)
            separateRunIn(packet);
        firstDts = packet.dts;
        firstShown = lastShown = beforeLast = packet.pts;
        first = false;
    }
    firstShown = std::min(firstShown, packet.pts);
    if (packet.pts >= lastShown) {
        beforeLast = std::exchange(lastShown, packet.pts);
        if (!endIsSet)
            end = packet.pts + packet.duration;
    } else {
        beforeLast = std::max(beforeLast, packet.pts);
    }
    if (last && sound)
        endSound(packet);
    lastSound = packet.dts;
    if (last && !sound && container.mp4)
        endPictures(packet);
}

/// In samples; 0 where that is not known. Coarse ticks round it.
int64_t LeavingTimes::lengthOf(const AVPacket& packet) {
    const int64_t stated =
        std::max<int64_t>(av_rescale_q(packet.duration, stream.time_base, target), 0);
    const int64_t usual = av_get_audio_frame_duration2(stream.codecpar, packet.size);
    const int64_t whole = usual > 0 ? usual : told.of(packet).value_or(0);
    const int64_t tick = av_rescale_q_rnd(1, stream.time_base, target, AV_ROUND_UP);
    return whole > 0 && (stated <= 0 || std::abs(whole - stated) < tick) ? whole : stated;
}

void LeavingTimes::toSamples(AVPacket& packet) {
    const int64_t length = lengthOf(packet);
    const int64_t ahead = av_rescale_q(packet.pts - packet.dts, stream.time_base, target);
    const int runIn = first ? runInOf(packet) : 0;
    const int64_t tick = av_rescale_q_rnd(1, stream.time_base, target, AV_ROUND_UP);
    const int64_t near = av_rescale_q(packet.dts, stream.time_base, target);
    if (runIn > 0 && std::abs(near + runIn) < tick) { // the time was rounded, the run-in was not
        packet.dts = -runIn;
        rescaled = length - runIn;
    } else {
        packet.dts = av_rescale_delta(stream.time_base, packet.dts, target,
                                      static_cast<int>(std::min<int64_t>(length, INT32_MAX)),
                                      &rescaled, target);
    }
    packet.pts = packet.dts + ahead;
    packet.duration = length;
}

// Where sound begins after 0, MP4's muxer takes the run-in of a codec for sound, unless the first
// packet is said to be heard later than it is decoded.
void LeavingTimes::separateRunIn(AVPacket& packet) const {
    const int runIn = runInOf(packet);
    if (runIn == 0 || packet.pts != packet.dts || packet.pts + runIn <= 0)
        return;
    packet.pts += runIn;
    packet.duration -= std::min<int64_t>(runIn, packet.duration - 1);
}

// MP4 says with the length of the last packet where sound ends, Matroska beside it. A packet of no
// length would not be heard.
void LeavingTimes::endSound(AVPacket& packet) const {
    if (packet.duration <= 0 && container.mp4)
        packet.duration =
            std::max<int64_t>(lastSound != AV_NOPTS_VALUE ? packet.dts - lastSound : 0, 1);
    const int64_t cutOff = skipOf(packet).end;
    const int64_t whole = av_get_audio_frame_duration2(stream.codecpar, packet.size);
    // FFmpeg 9.0 takes what is cut off from the length of MP4's last packet itself.
    if (container.mp4 && cutOff > 0 && (whole <= 0 || packet.duration > whole - cutOff))
        packet.duration = std::max<int64_t>(packet.duration - cutOff, 1);
    if (!container.isMatroska() || cutOff > 0 || packet.duration <= 0 || whole <= packet.duration)
        return;
    cutOffEnd(packet, whole - packet.duration);
}

/// In ticks, by the rate.
int64_t LeavingTimes::usualPicture() const {
    const AVRational rate = stream.avg_frame_rate;
    const bool known = rate.num > 0 && rate.den > 0;
    const Fraction length = known ? Fraction(rate.den, rate.num) : usualDuration;
    return std::max<int64_t>(roundedTicks(length, target.num, target.den), 1);
}

// Players believe the packets or the pictures: both last equally long.
void LeavingTimes::endPictures(AVPacket& packet) const {
    const int64_t step = lastShown > beforeLast ? lastShown - beforeLast : usualPicture();
    const int64_t gone = end > lastShown ? end : lastShown + step;
    const int64_t rest = gone - firstShown - (packet.dts - firstDts);
    if (rest > 0 && rest <= INT32_MAX)
        packet.duration = rest;
}

} // namespace tio::ffmpeg::detail
