#pragma once

#include <TARN/imgproc/PixelFormat.h>
#include <TARN/videoio/SampleReader.h>

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

    explicit Peaks(int samplesPerSecond) : sampleRate(samplesPerSecond) {}

    /// @param block  with as many channels as the first one
    void add(const ffmpeg::SampleReader::Samples& block);

    [[nodiscard]] int channels() const { return static_cast<int>(pieces.size()); }
    [[nodiscard]] double seconds() const;

    /// What the sound reaches in one of `parts` equal parts of its length.
    [[nodiscard]] Range range(int channel, int part, int parts) const;

private:
    void addSample(const ffmpeg::SampleReader::Samples& block, int row);
    void halve();

    std::vector<std::vector<Range>> pieces; // by channel; the last one may not be full
    int64_t samples = 0;
    int64_t pieceLength = 1; // samples
    int sampleRate;
};

/// Draws a sound of at least one sample: a lane for each channel over an axis of time.
/// @throws std::runtime_error when no font is installed
[[nodiscard]] tio::PixelFormat::RgbImage drawWaveform(const Peaks& peaks, int height, int width);

} // namespace tio::tool
