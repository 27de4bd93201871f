#pragma once

#include "support/Track.h"

#include <string>
#include <vector>

namespace tio::test {

/// How a file of sound is to be made. The defaults give two seconds of stereo AAC in MP4.
struct SoundPlan {
    std::string format = "mp4"; ///< muxer
    std::string encoder = "aac";
    std::string sampleFormat = "fltp"; ///< FFmpeg's name of one that the encoder takes
    int rate = 44100;
    std::string layout = "stereo";
    double seconds = 2;

    /// FFmpeg's expression of a sample, with `n` for its number and `t` for its time; one for all
    /// channels. Empty for a mixture of tones, noise and pauses that leaves no encoder idle.
    std::string expression;

    Options encoderOptions;
    Options muxerOptions;
};

/// Makes the file.
/// @throws std::runtime_error when FFmpeg refuses the plan
void makeSound(const std::string& path, const SoundPlan& plan);

/// Whether this FFmpeg has the encoder and the muxer.
[[nodiscard]] bool canMake(const SoundPlan& plan);

/// What libavformat and libavcodec, called directly, give of a file's sound when it is decoded from
/// start to end: the trimming is left to FFmpeg's decoder.
struct OracleSound {
    int rate = 0;
    int channels = 0;
    std::vector<float> samples; ///< the channels of a sample side by side; full scale is 1

    int64_t changesAt = -1; ///< where the rate or the number of channels changes; -1 if never. What
                            ///< comes after is left out

    bool timed = false;
    double start = 0; ///< time of the first frame in seconds, with `timed`

    [[nodiscard]] int64_t count() const {
        return channels == 0 ? 0 : static_cast<int64_t>(samples.size()) / channels;
    }
};

/// Of the best sound stream.
/// @throws std::runtime_error when the file cannot be opened, or there is no sound or no decoder
[[nodiscard]] OracleSound oracleSound(const std::string& path);

} // namespace tio::test
