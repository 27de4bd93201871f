#pragma once

#include <TARN/core/Rational.h>
#include <TARN/videoio/Export.h>
#include <TARN/videoio/Packet.h>

#include <cstdint>
#include <memory>

struct AVCodecContext;
struct AVFrame;
struct AVStream;

namespace tio::ffmpeg {

namespace detail {
class Decoder;
}

/// The engine under the video and audio packet decoders: packets go in one at a time, decoded
/// frames come out one at a time.
///
/// The codec is opened by the first packet offered, from that packet's stream, which must outlive
/// the decoder. Offer a packet, read frames until none comes, offer the next; at the end call end()
/// and go on reading until none comes. Frames come out in strictly increasing order of their
/// presentation time; a frame that does not follow the last one, or has no time, is dropped. The
/// stream decoders do all of this by themselves.
/// Thread rule: used by one thread at a time; FFmpeg decodes on threads of its own.
class TARN_VIDEOIO_API PacketDecoder {
public:
    PacketDecoder();
    PacketDecoder(const PacketDecoder&) = delete;
    PacketDecoder& operator=(const PacketDecoder&) = delete;
    virtual ~PacketDecoder();

    /// Hands over the next packet. It is decoded when the next frame is read.
    /// @returns false, without keeping the packet, while an earlier one is still waiting, and for
    ///          an empty pointer
    /// @throws tio::ffmpeg::Exception when the codec cannot be opened (first packet only). The
    ///         packet waits all the same, and every frame asked for throws again.
    bool offerPacket(std::shared_ptr<InputPacket> packet);

    /// Whether offerPacket() would take a packet now.
    [[nodiscard]] bool offerWouldBeAccepted() const noexcept { return pendingPacket == nullptr; }

    /// Drops everything that is in the decoder, so that packets from another place may follow. Also
    /// the way past a packet at which the codec fails: that one waits, and is tried again with each
    /// frame asked for.
    /// @throws tio::ffmpeg::Exception when a codec that cannot be flushed cannot be opened again
    void flush();

    /// Says that no packet follows, so that the frames still inside come out. A packet that waits
    /// is never decoded.
    /// @throws tio::ffmpeg::Exception when a damaged packet surfaces only now; reading on still
    ///         gives every frame that is left
    void end();

    /// Seconds per tick of the stream's timestamps; 0/1 before the first packet.
    [[nodiscard]] Rational getUnitTime() const noexcept;

protected:
    /// Called right after the codec was opened for the pending packet's stream, and again before
    /// the next packet is decoded if it threw.
    virtual void onCodecOpened() = 0;

    /// Brings the next decoded frame into getFrame().
    /// @returns false when the codec needs another packet, or dropped what it had
    /// @throws tio::ffmpeg::Exception when decoding fails other than by one damaged packet
    bool receiveFrame();

    /// Presentation time in seconds of the frame just received.
    [[nodiscard]] Rational getFrameTime() const noexcept;

    /// The one frame that everything is received into; owned by the engine.
    [[nodiscard]] AVFrame* getFrame() const noexcept;

    /// Null before the first packet; owned by the engine, which may replace it in flush().
    [[nodiscard]] AVCodecContext* getCodecContext() const noexcept;

    /// The stream of the packet that is waiting, which there must be, as in onCodecOpened().
    [[nodiscard]] const AVStream& getPendingStream() const noexcept;

private:
    friend class StreamDecoder; // has to know why no frame came, and to pass over what fails

    /// What came of asking for a frame last.
    enum class Answer { None, Frame, FrameDropped, PacketFailed };

    /// Whether onCodecOpened() went through.
    enum class Preparation { Untried, FailedOnce, FailedAgain, Done };

    void prepare();
    void sendPendingPacket();
    void skipFailedPacket();
    [[nodiscard]] bool isHopeless() const noexcept;
    [[nodiscard]] bool isDrained() const noexcept;
    [[nodiscard]] bool hasDroppedFrame() const noexcept { return answer == Answer::FrameDropped; }

    std::unique_ptr<detail::Decoder> decoder;
    std::shared_ptr<InputPacket> pendingPacket; // accepted, not yet taken by the codec
    int64_t lastPresentationTime;
    Answer answer = Answer::None;
    Preparation preparation = Preparation::Untried;
};

} // namespace tio::ffmpeg
