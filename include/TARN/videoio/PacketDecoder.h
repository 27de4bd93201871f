#pragma once

#include <TARN/core/Rational.h>
#include <TARN/videoio/Export.h>
#include <TARN/videoio/Packet.h>
#include <TARN/videoio/detail/Handles.h>

#include <cstdint>
#include <memory>

struct AVCodecContext;
struct AVFrame;

namespace tio::ffmpeg {

/// The engine under the video and audio packet decoders: packets go in one at a time, decoded
/// frames come out one at a time.
///
/// The codec is opened by the first packet offered, from that packet's stream, which must outlive
/// the decoder. Offer a packet, read frames until none comes, offer the next; at the end call end()
/// and go on reading until none comes. Frames come out in strictly increasing order of their
/// presentation time; a frame that does not follow the last one, or has no time, is dropped.
/// Thread rule: used by one thread at a time; FFmpeg decodes on threads of its own behind it.
class TARN_VIDEOIO_API PacketDecoder {
public:
    PacketDecoder();
    PacketDecoder(const PacketDecoder&) = delete;
    PacketDecoder& operator=(const PacketDecoder&) = delete;
    virtual ~PacketDecoder();

    /// Hands over the next packet. It is decoded when the next frame is read.
    /// @returns false, without keeping the packet, while an earlier one is still waiting, and for
    ///          an empty pointer
    /// @throws tio::ffmpeg::Exception when the codec cannot be opened (first packet only)
    bool offerPacket(std::shared_ptr<InputPacket> packet);

    /// Whether offerPacket() would take a packet now.
    [[nodiscard]] bool offerWouldBeAccepted() const { return pendingPacket == nullptr; }

    /// Drops everything that is in the decoder, so that packets from another place may follow.
    void flush();

    /// Says that no packet follows, so that the frames still inside come out.
    /// @throws tio::ffmpeg::Exception when a damaged packet surfaces only now; reading on still
    ///         gives every frame that is left
    void end();

    /// Whether everything came out after end(). Only flush() makes the decoder take packets again.
    [[nodiscard]] bool isDrained() const { return drained; }

    /// Lets go of a packet at which the codec failed with an exception, so that the next one may
    /// follow; otherwise it is tried again. One that merely waits stays, and so does one at which
    /// memory ran out, which says nothing of the packet.
    void skipFailedPacket();

    /// Whether the last frame asked for did not come because it was dropped: the codec may hold
    /// more, and end() would lose packets that it has not looked at yet.
    [[nodiscard]] bool hasDroppedFrame() const { return dropped; }

    /// Takes the next frame without converting it, as when seeking forward.
    /// @returns whether there was one
    /// @throws tio::ffmpeg::Exception as reading the frame would
    bool skipNextFrame() { return receiveFrame(); }

    /// Seconds per tick of the stream's timestamps; 0/1 before the first packet.
    [[nodiscard]] Rational getUnitTime() const;

protected:
    /// For subclasses that say how many threads FFmpeg decodes with; 0 takes one per core.
    explicit PacketDecoder(int threadCount);

    /// Called right after the codec was opened for the pending packet's stream, and again before
    /// the next packet is decoded if it threw.
    virtual void onCodecOpened() = 0;

    /// Calls onCodecOpened() unless it went through, or there is no packet waiting.
    void prepareOnce();

    /// Brings the next decoded frame into getFrame().
    /// @returns false when the codec needs another packet, or dropped what it had
    /// @throws tio::ffmpeg::Exception when decoding fails other than by one damaged packet
    bool receiveFrame();

    /// The same for every frame, also those whose time does not follow.
    bool receiveAnyFrame();

    /// How many packets the codec refused as invalid and were passed over.
    [[nodiscard]] int64_t getInvalidPacketCount() const { return invalidPackets; }

    /// Whether decoding failed last for want of memory, which says nothing of the packets.
    [[nodiscard]] bool ranOutOfMemory() const { return outOfMemory; }

    /// Presentation time in seconds of the frame just received.
    [[nodiscard]] Rational getFrameTime() const;

    /// The one frame that everything is received into; owned by the engine.
    [[nodiscard]] AVFrame* getFrame() const { return frame.get(); }

    /// Null before the first packet; owned by the engine.
    [[nodiscard]] AVCodecContext* getCodecContext() const { return codecContext.get(); }

    /// The stream of the packet that is waiting, which there must be.
    [[nodiscard]] const AVStream& getPendingStream() const { return pendingPacket->getStream(); }

private:
    void openCodec(const AVStream& stream);
    void sendPendingPacket();

    detail::FrameHandle frame;
    detail::CodecContextHandle codecContext;
    std::shared_ptr<InputPacket> pendingPacket; // accepted, not yet taken by the codec
    int64_t lastPresentationTime;
    bool drained = false;
    bool dropped = false;
    bool prepared = false;   // onCodecOpened() went through
    bool sendFailed = false; // of the pending packet
    bool outOfMemory = false;
    int threads; // 0: one per core
    int64_t invalidPackets = 0;
};

} // namespace tio::ffmpeg
