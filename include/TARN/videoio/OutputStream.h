#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/OutputFormatContext.h>
#include <TARN/videoio/Packet.h>
#include <TARN/videoio/Stream.h>

#include <deque>
#include <memory>
#include <vector>

namespace tio::ffmpeg {

/// One stream of an output file. Takes packets of an encoder, or of an input to be copied as they
/// are, and holds them back until the file's header is written.
/// Thread rule: used by one thread at a time, together with its context.
class TARN_VIDEOIO_API OutputStream : public Stream {
public:
    /// Announces the stream to the context. Packets carry a time base of their own; the one given
    /// here is kept as information.
    /// @throws tio::Exception when the context's header has been written
    OutputStream(std::shared_ptr<OutputFormatContext> context, Rational timeBase);

    /// Writes what is still held, or leaves it to the context while the header is not written. An
    /// exception there ends the program; packets that can no longer get into the file are let go
    /// with one line in the log.
    ~OutputStream() override;

    /// Has players turn the pictures clockwise by so many quarter turns (0 to 3) to show them
    /// upright. Before the first packet; packets copied from an input bring no rotation along.
    void setRotation(int quarterTurns) { rotation = quarterTurns; }

    /// Writes the packet, or holds a copy of it. The first packet decides the stream's codec
    /// parameters, later ones' are not looked at.
    /// @throws tio::ffmpeg::Exception when the file cannot be opened or written, or FFmpeg refuses
    ///         the packet, which is then held still
    void writePacket(const OutputPacket& packet);

    /// Writes packets that come from a destructor: when the file has failed they are let go with
    /// one line in the log, since whoever wrote before has had the exception.
    /// @throws as writePacket()
    void writeLast(const std::vector<OutputPacket>& packets);

    /// The time base given to the constructor.
    [[nodiscard]] Rational getUnitTime() const { return timeBase; }

private:
    [[nodiscard]] std::shared_ptr<OutputFormatContext> context() const;
    void writeHeldPackets();
    void writeNow(const OutputPacket& packet);

    Rational timeBase;
    int rotation = 0;                     // in quarter turns
    bool lastWriteFailed = false;         // and its caller had the exception
    std::deque<OutputPacket> heldPackets; // oldest first
};

} // namespace tio::ffmpeg
