#include "exact/sound/index/SoundIndexData.h"

#include "base/checks.h"

#include <algorithm>

namespace tio::ffmpeg::detail {

namespace {

__extension__ typedef __int128 Wide;

/// How many samples of a rate lie between two times, rounded down or up. Wide, because a time may
/// be any fraction: one that was a double has a denominator of up to 2^52.
/// @throws tio::Exception for times without an end
int64_t samplesBetween(const Rational& from, const Rational& to, int rate, bool roundUp) {
    const Wide ticks =
        Wide{to.numerator} * from.denominator - Wide{from.numerator} * to.denominator;
    Wide dividend = 0;
    Wide divisor = Wide{to.denominator} * from.denominator;
    if (divisor == 0 || __builtin_mul_overflow(ticks, Wide{rate}, &dividend))
        failPlainly("No sample can be counted at " + std::to_string(to.numerator) + "/" +
                    std::to_string(to.denominator) + " s");
    if (divisor < 0) {
        dividend = -dividend;
        divisor = -divisor;
    }
    const Wide whole = dividend / divisor; // toward zero
    const Wide rest = dividend % divisor;
    const int step = roundUp ? static_cast<int>(rest > 0) : -static_cast<int>(rest < 0);
    return static_cast<int64_t>(whole) + step;
}

} // namespace

SoundFormat SoundFormat::of(const AVFrame& frame) {
    return {frame.sample_rate, compat::channelCount(frame), compat::channelMask(frame),
            compat::channelLayoutText(frame)};
}

bool SoundFormat::isThatOf(const AVFrame& frame) const noexcept {
    return rate == frame.sample_rate && channels == compat::channelCount(frame) &&
           mask == compat::channelMask(frame);
}

uint32_t SoundIndexData::rawOf(uint32_t packet) const {
    const auto cut = cuts.find(packet);
    if (cut != cuts.end())
        return cut->second.raw;
    return static_cast<uint32_t>(ends[packet] - startOf(packet));
}

uint32_t SoundIndexData::packetOf(int64_t sample) const noexcept {
    const auto packet = std::upper_bound(ends.begin(), ends.end(), sample);
    return static_cast<uint32_t>(packet - ends.begin());
}

Rational SoundIndexData::timeInRun(const TimeRun& run, int64_t sample) const {
    return run.start + Rational(sample - run.firstSample, format.rate);
}

Rational SoundIndexData::timeOf(int64_t sample) const {
    const auto next = std::upper_bound(
        times.begin(), times.end(), sample,
        [](int64_t wanted, const TimeRun& run) { return wanted < run.firstSample; });
    return timeInRun(*(next - 1), sample);
}

Rational SoundIndexData::endTime() const {
    return times.empty() ? Rational() : timeInRun(times.back(), sampleCount());
}

// Times that go back make a stretch of time sound twice; the stretch that comes first counts.
int64_t SoundIndexData::firstAt(const Rational& time) const {
    for (size_t run = 0; run < times.size(); ++run) {
        if (time <= times[run].start)
            return times[run].firstSample;
        if (time <= timeInRun(times[run], endOf(run) - 1))
            return times[run].firstSample +
                   samplesBetween(times[run].start, time, format.rate, true);
    }
    return sampleCount();
}

int64_t SoundIndexData::firstAfter(const Rational& time) const {
    for (size_t run = 0; run < times.size(); ++run) {
        if (time < times[run].start)
            return times[run].firstSample;
        if (time < timeInRun(times[run], endOf(run) - 1))
            return times[run].firstSample +
                   samplesBetween(times[run].start, time, format.rate, false) + 1;
    }
    return sampleCount();
}

int64_t SoundIndexData::endOf(size_t run) const noexcept {
    return run + 1 < times.size() ? times[run + 1].firstSample : sampleCount();
}

int64_t SoundIndexData::byteCount() const noexcept {
    constexpr auto nodeBytes = int64_t{sizeof(PacketCut)} + 64; // of a map, about
    return packets.byteCount() + int64_t{sizeof *this} +
           static_cast<int64_t>(
               ends.size() * sizeof ends[0] + checksums.size() * sizeof checksums[0] +
               reservoirBytes.size() * sizeof reservoirBytes[0] + times.size() * sizeof times[0]) +
           static_cast<int64_t>(cuts.size()) * nodeBytes;
}

} // namespace tio::ffmpeg::detail
