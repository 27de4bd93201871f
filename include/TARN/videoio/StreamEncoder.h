#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/OutputStream.h>
#include <TARN/videoio/PacketEncoder.h>

#include <memory>
#include <vector>

namespace tio::ffmpeg {

/// Joins a packet encoder to a stream of an output file.
///
/// Make every stream encoder of a file before the first frame is written, and destroy them before
/// letting the context go: the destructor writes what the encoder still holds.
/// Thread rule: used by one thread at a time, together with its context.
class TARN_VIDEOIO_API StreamEncoder {
public:
    StreamEncoder(const StreamEncoder&) = delete;
    StreamEncoder& operator=(const StreamEncoder&) = delete;

    /// Flushes the encoder into the stream. An exception there ends the program; packets that can
    /// no longer get into the file are let go with one line in the log.
    virtual ~StreamEncoder();

protected:
    StreamEncoder(std::shared_ptr<OutputFormatContext> context, Rational timeBase,
                  std::shared_ptr<PacketEncoder> encoder);

    void writePackets(const std::vector<OutputPacket>& packets);

    /// Minus one tick: the time of every frame that is written without one.
    [[nodiscard]] Rational timeWithoutTime() const { return -encoder->getUnitTime(); }

    template <typename Encoder>
    [[nodiscard]] Encoder& encoderAs() const {
        return static_cast<Encoder&>(*encoder);
    }

private:
    OutputStream outputStream;
    std::shared_ptr<PacketEncoder> encoder;
};

} // namespace tio::ffmpeg
