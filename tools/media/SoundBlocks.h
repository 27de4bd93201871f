#pragma once

#include <TARN/videoio/AudioPacketDecoder.h>
#include <TARN/videoio/AudioPacketEncoder.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace tio::tool {

/// Cuts decoded sound anew, into blocks of the one length that an encoder takes.
///
/// The first block begins at a given time: sound before it is dropped, and where sound is missing,
/// there or later, silence stands in, so that sound and picture stay together.
class SoundBlocks {
public:
    struct Format {
        int sampleRate; // samples per second of one channel
        int channels;
        int blockLength; // samples
    };

    SoundBlocks(Format format, ffmpeg::Rational start);

    /// Drops whatever comes later.
    void setEnd(ffmpeg::Rational time);

    void add(const ffmpeg::AudioPacketDecoder::Frame& frame);

    struct Block {
        ffmpeg::AudioPacketEncoder::Samples samples;
        ffmpeg::Rational time; // seconds
    };

    /// The next whole block, if there is one.
    [[nodiscard]] std::optional<Block> next();

    /// What is left, filled up with silence, if anything is.
    [[nodiscard]] std::optional<Block> last();

    /// Time up to which there is sound, in seconds.
    [[nodiscard]] ffmpeg::Rational endTime() const { return timeAt(taken); }

private:
    [[nodiscard]] ffmpeg::Rational timeAt(int64_t sample) const;
    [[nodiscard]] int64_t sampleAt(ffmpeg::Rational time) const;
    [[nodiscard]] int64_t alignTo(int64_t position);
    [[nodiscard]] Block cut(int64_t samples);
    void appendSilence(int64_t samples);
    void appendRow(const ffmpeg::AudioPacketEncoder::Samples& samples, int row);

    Format format;
    ffmpeg::Rational startTime;
    std::optional<int64_t> endSample;
    int64_t taken = 0;          // samples since the start, silence included
    int64_t cutOff = 0;         // samples that were given out in blocks
    std::vector<float> waiting; // interleaved
};

} // namespace tio::tool
