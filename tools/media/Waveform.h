#pragma once

#include <TARN/imgproc/PixelFormat.h>
#include <TARN/videoio/AudioPacketDecoder.h>

#include <cstdint>
#include <vector>

namespace tio::tool {

/// The lowest and the highest samples of a sound, in pieces of equal length. Memory stays bounded
/// however long the sound is: the pieces grow.
class Peaks {
public:
    struct Range {
        float low = 0;
        float high = 0;
    };

    /// @param frame  with at least as many channels as the first one
    void add(const ffmpeg::AudioPacketDecoder::Frame& frame);

    [[nodiscard]] int channels() const { return static_cast<int>(pieces.size()); }
    [[nodiscard]] double seconds() const;

    /// What the sound reaches in one of `parts` equal parts of its length.
    [[nodiscard]] Range range(int channel, int part, int parts) const;

private:
    void addSample(const ffmpeg::AudioPacketDecoder::Frame& frame, int row);
    void halve();

    std::vector<std::vector<Range>> pieces; // by channel; the last one may not be full
    int64_t samples = 0;
    int64_t pieceLength = 1; // samples
    int sampleRate = 0;
};

/// Draws a sound of at least one sample: a lane for each channel over an axis of time.
/// @throws std::runtime_error when no font is installed
[[nodiscard]] tio::PixelFormat::RgbImage drawWaveform(const Peaks& peaks, int height, int width);

} // namespace tio::tool
