#pragma once

#include <TARN/videoio/AudioPacketEncoder.h>
#include <TARN/videoio/Export.h>
#include <TARN/videoio/StreamEncoder.h>

#include <cstddef>
#include <memory>

namespace tio::ffmpeg {

/// Writes blocks of float samples as the AAC stream of an MP4 file. In a file without pictures all
/// sound begins 1024 samples late, which is the encoder's delay; a `ClipWriter` has players leave
/// it out.
/// Thread rule: used by one thread at a time, together with its context.
class TARN_VIDEOIO_API AudioStreamEncoder : public StreamEncoder {
public:
    /// As AudioPacketEncoder: a time base of 0 stands for one over the sample rate.
    /// @throws as AudioPacketEncoder and OutputStream
    AudioStreamEncoder(std::shared_ptr<OutputFormatContext> context, int channelLayout,
                       int sampleRate, Rational timeBase);
    ~AudioStreamEncoder() override;

    /// Samples per block that the encoder wants.
    [[nodiscard]] size_t getFrameWidth() const noexcept;

    /// Writes a block that begins at `time` seconds.
    /// @throws as AudioPacketEncoder::writeNextFrame() and OutputStream::writePacket()
    /// @throws tio::Exception for a block that begins 2^31 samples or more after the one before;
    ///         it is not taken, and another may follow
    void writeNextFrame(AudioPacketEncoder::Samples samples, Rational time);

    /// Writes a block at minus one tick, every time. A stream of several blocks needs times of its
    /// own: use the other form, or ClipWriter::writeSamples(), whose blocks follow each other.
    void writeNextFrame(AudioPacketEncoder::Samples samples);
};

} // namespace tio::ffmpeg
