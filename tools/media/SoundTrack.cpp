#include "media/SoundTrack.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace tio::tool {

namespace {

using ffmpeg::Rational;

// Containers round the times of sound, some to milliseconds; less than this is no gap.
constexpr double toleratedGap = 0.05; // seconds

// Times that jump further than this are taken to be wrong rather than silence.
constexpr double longestSilence = 60.0; // seconds

constexpr int64_t longestBlock = 4096; // samples of silence that are written at a time

} // namespace

SoundTrack::SoundTrack(SoundSource& from, OutputClip& to, const Rational& begin)
    : source(from), output(to), start(begin) {
    source.startAt(start);
}

/// The sample of the output that is the nearest to a time of the source.
int64_t SoundTrack::placeOf(const Rational& time) const {
    const Rational exact = (time - start) * Rational(source.rate(), 1);
    const Rational half(1, 2);
    return exact < Rational() ? -(-exact + half).toInteger() : (exact + half).toInteger();
}

void SoundTrack::writeUpTo(const Rational& time) {
    writeBefore(placeOf(time));
}

void SoundTrack::writeRest() {
    writeBefore(std::numeric_limits<int64_t>::max());
}

bool SoundTrack::readOn() {
    if (atEnd)
        return false;
    block = source.next();
    used = 0;
    atEnd = block.samples.count == 0;
    if (!atEnd)
        placeBlock();
    return !atEnd;
}

/// Finds out what is missing between where the sound has got to and where the block belongs. Where
/// it belongs earlier, the sound goes on all the same: times repeat in some containers, and start
/// over where clips were joined.
void SoundTrack::placeBlock() {
    const int64_t gap = placeOf(block.time) - place;
    const double seconds = static_cast<double>(gap) / source.rate();
    if (!begun) { // what is heard before the beginning is left out, however early
        place += std::max<int64_t>(gap, 0);
        used = std::min<int64_t>(std::max<int64_t>(-gap, 0), block.samples.rows());
    } else if (seconds >= toleratedGap && seconds <= longestSilence) {
        silence = gap;
    }
}

void SoundTrack::writeBefore(int64_t end) {
    while (place < end) {
        if (silence > 0) {
            const int64_t count = std::min({silence, end - place, longestBlock});
            const std::vector<float> zeros(static_cast<size_t>(count * source.channels()));
            silence -= count;
            write(zeros.data(), count);
        } else if (used < block.samples.rows()) {
            const int64_t count = std::min(block.samples.rows() - used, end - place);
            const float* const from = block.samples.data() + used * source.channels();
            used += count;
            write(from, count);
        } else if (!readOn()) {
            return;
        }
    }
}

void SoundTrack::write(const float* samples, int64_t count) {
    const std::optional<Rational> time =
        begun ? std::nullopt : std::optional(Rational(place, source.rate()));
    output.write([&](ffmpeg::ClipWriter& clip) {
        const auto give = [&](std::optional<Rational> at) {
            clip.writeSamples(samples, static_cast<size_t>(count), source.channels(), at);
        };
        try {
            give(time);
        } catch (const ffmpeg::TimeRefusal& refusal) {
            // FFmpeg before 5 begins the tracks of MP4 at whole milliseconds alone.
            const double off = time ? (refusal.nearest() - *time).toDouble() : 1;
            if (std::abs(off) > 0.001)
                throw;
            give(refusal.nearest());
        }
    });
    begun = true;
    place += count;
}

} // namespace tio::tool
