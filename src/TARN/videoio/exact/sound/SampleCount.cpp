#include "exact/sound/SampleCount.h"

#include "base/hash.h"
#include "exact/sound/SoundDecoder.h"

#include <optional>

namespace tio::ffmpeg::detail {

namespace {

/// The time of the first sample that a packet keeps, as its container tells it.
Rational toldTime(const SoundIndexData& index, uint32_t packet) {
    const auto cut = index.cuts.find(packet);
    const uint32_t skipped = cut == index.cuts.end() ? 0 : cut->second.parts.front().from;
    return Rational(index.packets.pts[packet], 1) * Rational(index.packets.timeBase) +
           Rational(skipped, index.format.rate);
}

/// The time of the first sample, from that of a later one. Containers round the time of the first
/// packet, and the priming is no whole number of their ticks: what they cannot tell from 0 is 0.
Rational startFrom(const SoundIndexData& index, int64_t sample, const Rational& told) {
    const Rational start = told - Rational(sample, index.format.rate);
    const Rational halfTick = Rational(index.packets.timeBase) / Rational(2);
    return start <= halfTick && -start <= halfTick ? Rational() : start;
}

} // namespace

SampleCount::SampleCount(SoundIndexData& ofStream) : index(ofStream) {
    index.ends.clear();
    index.cuts.clear();
    index.checksums.clear();
    index.change.reset();
    index.format = {};
}

void SampleCount::noteFormat(const AVFrame& frame) {
    if (index.format.channels == 0)
        index.format = SoundFormat::of(frame);
    else if (!index.change && !index.format.isThatOf(frame))
        index.change = FormatChange{total, SoundFormat::of(frame)};
}

void SampleCount::add(uint32_t packet, const AVFrame& frame) {
    closePackets(packet);
    noteFormat(frame);
    PacketCut::Part part = trimmer.keep(frame);
    total += part.end - part.from;
    part.from += current.raw;
    part.end += current.raw;
    current.raw += static_cast<uint32_t>(frame.nb_samples);
    hash = hashSamples(frame, hash);
    if (part.from == part.end)
        return;
    if (!current.parts.empty() && current.parts.back().end == part.from)
        current.parts.back().end = part.end;
    else
        current.parts.push_back(part);
}

void SampleCount::closePackets(uint32_t end) {
    while (index.ends.size() < end) {
        const bool whole =
            current.raw == 0 || (current.parts.size() == 1 && current.parts[0].from == 0 &&
                                 current.parts[0].end == current.raw);
        if (!whole)
            index.cuts.emplace(static_cast<uint32_t>(index.ends.size()), std::move(current));
        index.ends.push_back(total);
        index.checksums.push_back(folded(hash));
        current = {};
        hash = 0;
    }
}

void SampleCount::finish() {
    closePackets(index.packetCount());
    index.decoded = true;
}

// Containers round times to their ticks, and some to milliseconds. What is off by more than a tick
// and a sample is a gap or an overlap, unless it is over within a few packets: some demuxers guess
// the times between those that the container has, and are off at times.
void findTimes(SoundIndexData& index) {
    constexpr int patience = 8;
    index.times.clear();
    if (index.sampleCount() == 0)
        return;
    const Rational tolerance = Rational(index.packets.timeBase) + Rational(1, index.format.rate);
    const int64_t end = index.change ? index.change->sample : index.sampleCount();
    std::optional<TimeRun> off; // that may be a new run
    int packetsOff = 0;
    for (uint32_t packet = 0; packet < index.packetCount(); ++packet) {
        const int64_t sample = index.startOf(packet);
        if (index.ends[packet] == sample || sample >= end ||
            index.packets.pts[packet] == AV_NOPTS_VALUE)
            continue;
        const Rational told = toldTime(index, packet);
        if (index.times.empty())
            index.times.push_back({0, startFrom(index, sample, told)});
        const Rational difference = told - index.timeOf(sample);
        if (index.isSteady || (difference <= tolerance && -difference <= tolerance)) {
            off.reset();
            continue;
        }
        if (!off) {
            off = TimeRun{sample, told};
            packetsOff = 0;
        }
        if (++packetsOff == patience) {
            index.times.push_back(*off);
            packet = index.packetOf(off->firstSample);
            off.reset();
        }
    }
    if (off)
        index.times.push_back(*off);
    if (index.times.empty())
        index.times.push_back({0, Rational()});
}

} // namespace tio::ffmpeg::detail
