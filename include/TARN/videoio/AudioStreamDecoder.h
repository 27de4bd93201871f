#pragma once

#include <TARN/videoio/AudioPacketDecoder.h>
#include <TARN/videoio/Export.h>
#include <TARN/videoio/StreamDecoder.h>

#include <memory>

namespace tio::ffmpeg {

/// Reads the best audio stream of an input, one block of float samples per call. Frame numbers
/// count blocks, not samples. (A SampleReader counts samples.)
/// Thread rule: used by one thread at a time, together with its context.
class TARN_VIDEOIO_API AudioStreamDecoder : public StreamDecoder {
public:
    /// Reads nothing yet.
    /// @throws tio::Exception for a null context
    /// @throws tio::ffmpeg::Exception "… Could not find stream of requested type"
    explicit AudioStreamDecoder(std::shared_ptr<InputFormatContext> context);
    ~AudioStreamDecoder() override;

    /// Samples per second of one channel. Reads the first packet when none was read yet.
    /// @throws tio::Exception when the stream has no packet that shows it
    [[nodiscard]] int getSampleRate() const;

    /// Lower 32 bits of FFmpeg's channel mask. Reads the first packet when none was read yet.
    /// (SampleReader::layout() names every layout.)
    /// @throws tio::Exception when the stream has no packet that shows it
    [[nodiscard]] int getChannelLayout() const;

    /// The next block; a Frame without samples at the end, as often as it is called. Copies of the
    /// Frame share the samples.
    /// @throws as AudioPacketDecoder::readNextFrame()
    AudioPacketDecoder::Frame readNextFrame();

protected:
    bool frameReady() override;
    PacketDecoder& packetDecoder() override { return audioDecoder; }

private:
    mutable AudioPacketDecoder audioDecoder; // primed by queries as well
    AudioPacketDecoder::Frame currentFrame;
};

} // namespace tio::ffmpeg
