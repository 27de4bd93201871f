#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/OutputFormatContext.h>
#include <TARN/videoio/Packet.h>
#include <TARN/videoio/Stream.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

namespace tio::ffmpeg {

/// One stream of an output file. Takes packets of an encoder, or of an input to be copied as they
/// are, and holds them back until the file's header is written.
/// Thread rule: used by one thread at a time, together with its context.
class TARN_VIDEOIO_API OutputStream : public Stream {
public:
    /// Announces the stream to the context, which it keeps alive. Packets carry a time base of
    /// their own; the one given here is kept as information.
    /// @throws tio::Exception when there is no context, or its header has been written
    OutputStream(std::shared_ptr<OutputFormatContext> context, Rational timeBase);

    /// Writes what is still held, or leaves it to the context while the header is not written. What
    /// a failed write left is tried once more; what fails again is dropped with one line in the
    /// log. A failure ends the program, unless an earlier one was thrown. (Destroying a
    /// `ClipWriter` never does.)
    ~OutputStream() override;

    /// Has players turn the pictures clockwise by so many quarter turns (0 to 3), and mirror them
    /// left to right after that, to show them upright. Before the first packet; packets copied from
    /// an input bring no rotation along.
    void setRotation(int quarterTurns, bool mirrored = false) noexcept {
        rotation = (quarterTurns & 3) + (mirrored ? 4 : 0);
    }

    /// Writes the packet, or holds a copy of it. The first packet decides the stream's codec
    /// parameters, later ones' are not looked at.
    /// @throws tio::ffmpeg::Exception when the file cannot be opened or written, or FFmpeg refuses
    ///         the packet, which is then held still and tried again first
    /// @throws tio::Exception for a packet that is decoded too long after the one before, more than
    ///         6 h 37 min for video; it is not taken, and the text says how long a pause may be
    void writePacket(const OutputPacket& packet);

    /// The time base given to the constructor.
    [[nodiscard]] Rational getUnitTime() const noexcept { return timeBase; }

private:
    friend class StreamEncoder;

    [[nodiscard]] OutputFormatContext& context() const;
    void writeLast(const std::vector<OutputPacket>& packets);
    void writeHeldPackets();
    void writeNow(const OutputPacket& packet);
    [[nodiscard]] size_t tryHeldPacketsOnceMore() noexcept;

    Rational timeBase;
    std::deque<OutputPacket> heldPackets; // oldest first
    int rotation = 0;                     // as addStream() takes it
    uint32_t announcement;                // its number among those of the context
    bool lastWriteFailed = false;         // and its caller had the exception
    std::optional<Rational> lastDts;      // of the last packet taken
};

} // namespace tio::ffmpeg
