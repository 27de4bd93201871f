#pragma once

#include "media/Input.h"

#include <TARN/videoio/AudioStreamDecoder.h>
#include <TARN/videoio/SampleReader.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tio::tool {

/// A part of the sound, as the user names it: seconds, or the number of a sample with "samples"
/// behind it, such as "48000samples".
struct SoundRange {
    std::string from; ///< the first sample at that time or later; empty: the first of all
    std::string to;   ///< what comes before; empty: all
};

/// Adds --from and --to to a command. `range` must outlive it.
void addSoundRange(CLI::App& command, SoundRange& range);

/// Adds --stream.
void addSoundStream(CLI::App& command, std::optional<int>& stream);

/// The sound of a clip in order, block by block, as SampleReader gives it. That of a live source
/// comes from the stream decoder.
class SoundSource {
public:
    struct Block {
        ffmpeg::SampleReader::Samples samples; ///< none at the end
        ffmpeg::Rational time;                 ///< of the first one, in seconds
    };

    /// @param stream  the best one without it
    /// @throws Failure naming the clip, also when it has no sound
    explicit SoundSource(std::string url, std::optional<int> stream = std::nullopt);

    [[nodiscard]] int rate() const { return samplesPerSecond; }
    [[nodiscard]] int channels() const { return channelCount; }

    /// Goes on with the first sample that is heard at a time or later; a live source has no choice.
    void startAt(const ffmpeg::Rational& time);

    /// Keeps to a part of the sound.
    /// @throws Failure naming the clip, when there is no such part, or it can be read once only
    void keepTo(const SoundRange& range);

    /// The next block. It ends where the times of samples make a jump.
    /// @throws Failure naming the clip
    [[nodiscard]] Block next();

private:
    [[nodiscard]] int64_t firstSampleFrom(const ffmpeg::Rational& time) const;
    [[nodiscard]] int64_t sampleNamed(const std::string& text) const;

    std::string input;
    std::optional<ffmpeg::SampleReader> reader;
    std::vector<ffmpeg::SampleIndex::TimeBreak> breaks;
    int64_t nextSample = 0;
    int64_t endSample = 0;
    std::unique_ptr<ffmpeg::AudioStreamDecoder> decoder; // of a live source
    ffmpeg::AudioPacketDecoder::Frame first;             // tells its rate and channels
    int samplesPerSecond = 0;
    int channelCount = 0;
};

} // namespace tio::tool
