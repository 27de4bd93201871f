#pragma once

#include <TARN/core/Mat.h>
#include <TARN/videoio/Export.h>
#include <TARN/videoio/PacketEncoder.h>

#include <cstddef>
#include <vector>

namespace tio::ffmpeg {

/// Encodes blocks of float samples to AAC, each block as one frame.
/// Thread rule: used by one thread at a time.
class TARN_VIDEOIO_API AudioPacketEncoder : public PacketEncoder {
public:
    using Samples = tio::Mat<float, 2, tio::MatOptions<1, 1>>;

    /// @param channelLayout FFmpeg's mask of speakers, not a number of channels: 4 for mono, 3 for
    ///        stereo; at most 8 channels
    /// @param sampleRate samples per second of one channel
    /// @param timeBase seconds per tick; 0 stands for one over the sample rate
    /// @throws tio::Exception, tio::ffmpeg::Exception when the encoder cannot be opened
    AudioPacketEncoder(int channelLayout, int sampleRate, Rational timeBase);
    ~AudioPacketEncoder() override;

    /// Samples per block that the encoder wants: 1024 for AAC; 0 when any number will do.
    [[nodiscard]] size_t getFrameWidth() const noexcept;

    /// Encodes a block (one row per sample, one column per channel, values in [-1, 1]) that begins
    /// at `time` seconds. All blocks are as long as the first. The samples are read before the call
    /// returns.
    /// @returns the packets that the encoder gives now, often none at first
    /// @throws tio::Exception for another number of channels
    /// @throws tio::ffmpeg::Exception for another length, or when encoding fails
    std::vector<OutputPacket> writeNextFrame(Samples samples, Rational time);

    /// The same one tick, not one block, after the block before; the first of all is at time 0.
    /// Pass times, or use ClipWriter::writeSamples(), whose blocks follow each other.
    std::vector<OutputPacket> writeNextFrame(Samples samples);

private:
    void resizeFrame(int rows);
};

} // namespace tio::ffmpeg
