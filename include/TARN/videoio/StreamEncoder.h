#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/OutputStream.h>
#include <TARN/videoio/PacketEncoder.h>

#include <memory>
#include <optional>
#include <vector>

namespace tio::ffmpeg {

/// Joins a packet encoder to a stream of an output file, which it keeps alive.
///
/// Make every stream encoder of a file before the first frame is written, and destroy them before
/// letting the context go: the destructor writes what the encoder still holds.
/// Thread rule: used by one thread at a time, together with its context.
class TARN_VIDEOIO_API StreamEncoder {
public:
    StreamEncoder(const StreamEncoder&) = delete;
    StreamEncoder& operator=(const StreamEncoder&) = delete;

    /// Flushes the encoder into the stream. A failure ends the program, unless an earlier one was
    /// thrown: then what fails again is dropped with one line in the log. (Destroying a
    /// `ClipWriter` never ends the program.)
    virtual ~StreamEncoder();

protected:
    StreamEncoder(std::shared_ptr<OutputFormatContext> context, Rational timeBase,
                  std::shared_ptr<PacketEncoder> encoder);

    /// The frame's time as the encoder will count it; to be called before it is encoded, so that a
    /// refused one leaves the encoder as it was.
    /// @throws tio::Exception when it is too long after the frame before; the text says how long a
    ///         pause may be
    void requireShortPause(Rational time) const;

    /// Writes what came of the frame at that time.
    void writePackets(const std::vector<OutputPacket>& packets, Rational time);

    /// Minus one tick: the time of every frame that is written without one.
    [[nodiscard]] Rational timeWithoutTime() const noexcept { return -encoder->getUnitTime(); }

    template <typename Encoder>
    [[nodiscard]] Encoder& encoderAs() const noexcept {
        return static_cast<Encoder&>(*encoder);
    }

private:
    OutputStream outputStream;
    std::shared_ptr<PacketEncoder> encoder;
    std::optional<Rational> lastTime; // of the last frame taken
};

} // namespace tio::ffmpeg
