#pragma once

#include "base/handles.h"

#include <TARN/core/Rational.h>
#include <TARN/videoio/Packet.h>

struct AVCodecContext;
struct AVCodecParameters;
struct AVFrame;
struct AVPacket;
struct AVRational;

namespace tio::ffmpeg::detail {

/// One decoder of FFmpeg, of pictures or of sound, and the one frame that it decodes into.
///
/// Open it, then: receive() until it needs a packet, send() one, and again; after the last packet
/// drain(), and receive() until it is drained.
/// Where a call fails for lack of memory it throws what isOutOfMemory() knows or
/// std::bad_alloc, which says nothing of the packets: the same call may be made again.
/// Thread rule: used by one thread at a time; FFmpeg decodes on threads of its own.
class Decoder {
public:
    enum class State {
        Unopened, ///< open() was not called, or found no memory
        Unusable, ///< open() failed; whatever is sent fails too
        Open,
        Drained, ///< everything came out after drain(); only flush() leads on
    };

    /// What became of a packet.
    enum class Sent {
        Taken,
        Waits,   ///< not taken: receive() first, then send it again
        Invalid, ///< found damaged, and passed over
    };

    enum class Received {
        Frame, ///< it is in frame()
        NeedsPacket,
        Drained,
    };

    /// @param threadCount  of FFmpeg's decoder; 0 for one per core
    explicit Decoder(int threadCount = 0);
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    ~Decoder();

    /// @param timeBase  of the packets, and so of the frames
    /// @throws Exception when FFmpeg has no such decoder or refuses the parameters
    void open(const AVCodecParameters& parameters, AVRational timeBase);

    /// @throws Exception when the decoder fails at the packet other than by finding it damaged; it
    ///         would fail at it again
    [[nodiscard]] Sent send(const AVPacket& packet);

    /// @throws Exception when decoding fails; the next frame may be asked for all the same
    [[nodiscard]] Received receive();

    /// Says that no packet follows. Nothing happens where nothing is open, or a second time.
    /// @throws Exception when a damaged packet shows only now; what is left comes out all the same
    void drain();

    /// Drops everything inside, so that packets from another place may follow.
    void flush();

    [[nodiscard]] State state() const noexcept { return stage; }

    /// Seconds per tick of the packets' times; 0/1 before open().
    [[nodiscard]] Rational unitTime() const noexcept;

    /// What receive() filled; its data stay until the next receive().
    [[nodiscard]] AVFrame& frame() const noexcept { return *decoded; }

    /// Null before open(). Remains in place, unopened, where that failed.
    [[nodiscard]] AVCodecContext* context() const noexcept { return codec.get(); }

private:
    FrameHandle decoded;
    CodecContextHandle codec;
    int threads;
    State stage = State::Unopened;
};

} // namespace tio::ffmpeg::detail
