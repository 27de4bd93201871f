#pragma once

#include <TARN/videoio/AudioStreamDecoder.h>

#include <memory>
#include <string>

namespace tio::tool {

/// The sound of a clip's best audio stream, block by block.
class SoundReader {
public:
    /// @throws Failure naming the clip, also when it has no sound
    explicit SoundReader(std::string url);

    /// The next block, with silence at 0 whatever the clip stores; without samples at the end.
    /// @throws Failure naming the clip
    [[nodiscard]] ffmpeg::AudioPacketDecoder::Frame read();

private:
    std::string input;
    bool unsignedSamples; // 8-bit sound, which is decoded to [0, 1]
    std::unique_ptr<ffmpeg::AudioStreamDecoder> decoder;
};

} // namespace tio::tool
