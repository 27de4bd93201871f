#pragma once

#include <TARN/core/Mat.h>
#include <TARN/videoio/Export.h>
#include <TARN/videoio/PacketDecoder.h>

namespace tio::ffmpeg {

/// Decodes audio packets to blocks of float samples.
/// Thread rule: used by one thread at a time.
class TARN_VIDEOIO_API AudioPacketDecoder : public PacketDecoder {
public:
    /// One block of samples and its time.
    struct Frame {
        /// One row per sample, one column per channel; without rows when there was no block.
        /// Signed and float sources give values in [-1, 1); unsigned 8-bit sources give [0, 1]
        /// with silence at about 0.5. (In a SampleReader silence is always 0.)
        tio::Mat<float, 2, tio::MatOptions<1, 1>> samples;
        Rational timestamp;    ///< presentation time in seconds
        Rational unitTime;     ///< seconds per tick of the stream
        int sampleRate = 0;    ///< samples per second of one channel
        int channelLayout = 0; ///< lower 32 bits of FFmpeg's channel mask; 0 when unknown
    };

    AudioPacketDecoder();
    ~AudioPacketDecoder() override;

    /// The next block, or a Frame without one when another packet is needed.
    /// @throws tio::Exception "Unknown sample format"
    /// @throws tio::ffmpeg::Exception when decoding fails
    Frame readNextFrame();

    /// Samples per second of one channel.
    /// @throws tio::Exception before the first packet was accepted
    [[nodiscard]] int getSampleRate() const;

    /// Lower 32 bits of FFmpeg's channel mask; 0 when the layout is unknown.
    /// (SampleReader::layout() names every layout.)
    /// @throws tio::Exception before the first packet was accepted
    [[nodiscard]] int getChannelLayout() const;

protected:
    void onCodecOpened() override;

private:
    [[nodiscard]] const AVCodecContext& requireCodec() const;
};

} // namespace tio::ffmpeg
