#include "media/SoundBlocks.h"

#include <algorithm>

namespace tio::tool {

namespace {

using ffmpeg::Rational;

// Containers round the times of sound, some to milliseconds; less than this is no gap.
constexpr double toleratedGap = 0.05; // seconds

// Times that jump further than this are taken to be wrong rather than silence.
constexpr double longestSilence = 60.0; // seconds

} // namespace

SoundBlocks::SoundBlocks(Format ofEncoder, Rational start) : format(ofEncoder), startTime(start) {}

void SoundBlocks::setEnd(Rational time) {
    endSample = std::max<int64_t>(sampleAt(time), 0);
}

Rational SoundBlocks::timeAt(int64_t sample) const {
    return startTime + Rational(sample, format.sampleRate);
}

int64_t SoundBlocks::sampleAt(Rational time) const {
    return ((time - startTime) * Rational(format.sampleRate, 1)).toInteger();
}

// Makes up for a difference between where a block of sound belongs and where the sound has got to.
// Returns how many of its samples come too late.
int64_t SoundBlocks::alignTo(int64_t position) {
    const int64_t gap = position - taken;
    const double seconds = static_cast<double>(gap) / format.sampleRate;
    if (taken > 0 && std::abs(seconds) < toleratedGap)
        return 0;
    if (gap > 0 && seconds <= longestSilence)
        appendSilence(gap);
    return gap < 0 && -seconds <= longestSilence ? -gap : 0;
}

void SoundBlocks::add(const ffmpeg::AudioPacketDecoder::Frame& frame) {
    const int64_t position = sampleAt(frame.timestamp);
    // Before the start nothing has been taken, and everything earlier is dropped, however early.
    const int64_t skipped = taken == 0 && position < 0 ? -position : alignTo(position);
    for (int64_t row = skipped; row < frame.samples.rows(); ++row) {
        if (endSample && taken >= *endSample)
            return;
        appendRow(frame.samples, static_cast<int>(row));
    }
}

void SoundBlocks::appendRow(const ffmpeg::AudioPacketEncoder::Samples& samples, int row) {
    for (int channel = 0; channel < format.channels; ++channel)
        waiting.push_back(channel < samples.cols() ? samples(row, channel) : 0.0F);
    ++taken;
}

void SoundBlocks::appendSilence(int64_t samples) {
    waiting.insert(waiting.end(), static_cast<size_t>(samples * format.channels), 0.0F);
    taken += samples;
}

std::optional<SoundBlocks::Block> SoundBlocks::next() {
    if (taken - cutOff < format.blockLength)
        return std::nullopt;
    return cut(format.blockLength);
}

std::optional<SoundBlocks::Block> SoundBlocks::last() {
    if (taken == cutOff)
        return std::nullopt;
    return cut(std::min<int64_t>(taken - cutOff, format.blockLength));
}

SoundBlocks::Block SoundBlocks::cut(int64_t samples) {
    Block block{
        ffmpeg::AudioPacketEncoder::Samples(tio::Vec<int, 2>(format.blockLength, format.channels)),
        timeAt(cutOff)};
    const auto end = waiting.begin() + static_cast<std::ptrdiff_t>(samples * format.channels);
    float* const target = block.samples.data();
    std::fill(std::copy(waiting.begin(), end, target), target + block.samples.count, 0.0F);
    waiting.erase(waiting.begin(), end);
    cutOff += samples;
    return block;
}

} // namespace tio::tool
