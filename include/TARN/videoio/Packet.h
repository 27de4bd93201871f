#pragma once

#include <TARN/core/Rational.h>
#include <TARN/videoio/Export.h>
#include <TARN/videoio/Types.h>

#include <cstdint>
#include <memory>
#include <vector>

struct AVCodecParameters;
struct AVPacket;
struct AVStream;

namespace tio::ffmpeg {

namespace detail {
struct PacketAccess;
} // namespace detail

/// An exact fraction of seconds, or a time base.
using Rational = tio::Rational<1, int64_t>;

/// One unit of compressed data, a video frame or a block of audio, with the time base in which its
/// timestamps count.
///
/// Packets are values: copies share the compressed data, which FFmpeg counts references to.
/// Thread rule: a packet is used by one thread at a time; copies of it may be used by others.
/// Timestamps are not validated: an unknown pts (AV_NOPTS_VALUE) is multiplied like any other, so
/// callers that may meet one look at getPacket().pts first.
class TARN_VIDEOIO_API Packet {
public:
    /// Takes a reference to the data of `source`, which the caller keeps and which is not null.
    /// @throws tio::ffmpeg::Exception when memory runs out
    Packet(const AVPacket* source, Rational unitTime);

    /// Shares the data and copies the time base.
    /// @throws tio::ffmpeg::Exception when memory runs out
    Packet(const Packet& other);

    /// Shares the data of `other` but keeps this packet's own time base, so that the same ticks
    /// may stand for another time afterwards. To take over both, construct a new packet.
    /// @throws tio::ffmpeg::Exception when memory runs out; this packet is empty then
    Packet& operator=(const Packet& other);

    /// Takes the data but not the time base: the new packet counts in 0/1 until a whole packet is
    /// moved into it. `other` may only be destroyed or assigned to afterwards.
    Packet(Packet&& other) noexcept;

    /// Takes over the whole of `other`, time base included.
    Packet& operator=(Packet&& other) noexcept;

    virtual ~Packet();

    /// The FFmpeg packet, owned by this object.
    [[nodiscard]] AVPacket& getPacket() noexcept { return *packet; }
    [[nodiscard]] const AVPacket& getPacket() const noexcept { return *packet; }

    /// The time base: seconds per tick.
    [[nodiscard]] Rational getUnitTime() const noexcept { return unitTime; }

    /// Presentation time in seconds.
    [[nodiscard]] Rational getPts() const noexcept;

    /// Time in seconds at which the packet is decoded; without meaning unless hasDts().
    [[nodiscard]] Rational getDts() const noexcept;

    /// Whether the container gave the packet a time at all.
    [[nodiscard]] bool hasPts() const noexcept;
    [[nodiscard]] bool hasDts() const noexcept;

    /// Duration in seconds; 0/1 when unknown.
    [[nodiscard]] Rational getDuration() const noexcept;

    /// Moves the packet to another presentation time in seconds, truncated toward zero to whole
    /// ticks. The distance from decoding to presentation stays what it was.
    /// @throws tio::Exception when the time base is 0/1
    void setPts(Rational time);

    /// Sets the time in seconds at which the packet is decoded, truncated toward zero to whole
    /// ticks.
    /// @throws tio::Exception when the time base is 0/1
    void setDts(Rational time);

    /// The compressed bytes; `size` receives how many. Valid as long as this packet.
    [[nodiscard]] const unsigned char* getData(int& size) const noexcept;

private:
    std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet; // null only after a move
    Rational unitTime;
};

/// A packet read from an input. It refers to its stream, which must outlive it.
/// Thread rule: as Packet.
class TARN_VIDEOIO_API InputPacket : public Packet {
public:
    /// Takes a reference to the data of `source`; the time base is the stream's. Neither is null.
    /// @throws tio::ffmpeg::Exception when memory runs out
    InputPacket(const AVPacket* source, const AVStream* stream);
    InputPacket(const InputPacket& other);
    /// As for Packet: the time base stays this packet's own; the stream is taken over.
    InputPacket& operator=(const InputPacket& other);
    ~InputPacket() override;

    /// The stream that the packet was made with; its context owns it.
    [[nodiscard]] const AVStream& getStream() const noexcept { return *stream; }

private:
    const AVStream* stream;
};

/// A packet on its way to an output: from an encoder, or passed through from an input.
/// Thread rule: as Packet.
class TARN_VIDEOIO_API OutputPacket : public Packet {
public:
    /// Takes a reference to the data of `source`. `parameters` describe the codec and must outlive
    /// the packet. Neither is null.
    /// @throws tio::ffmpeg::Exception when memory runs out
    OutputPacket(const AVPacket* source, const AVCodecParameters* parameters, Rational unitTime);

    /// Passes a packet of an input through without encoding it again. The input's stream must
    /// outlive the packet.
    /// @throws tio::ffmpeg::Exception when memory runs out
    OutputPacket(const InputPacket& input); // implicit: an input's packet may be written as it is
    OutputPacket(const OutputPacket& other);
    /// As for Packet: the time base stays this packet's own; the parameters are taken over.
    OutputPacket& operator=(const OutputPacket& other);
    ~OutputPacket() override;

    /// The parameters that the packet was made with; it does not own them.
    [[nodiscard]] const AVCodecParameters& getCodecParameters() const noexcept {
        return *codecParameters;
    }

    /// Codec of the packet's data.
    [[nodiscard]] Codec getEncodingCodec() const noexcept;

private:
    friend struct detail::PacketAccess; // by which encoders keep what the parameters refer to

    const AVCodecParameters* codecParameters;
    std::shared_ptr<std::vector<uint8_t>> keepAlive; // as long as any copy of this packet
};

/// Audio parameters of a packet, read at the moment of each call from the packet's stream or codec
/// parameters, which must outlive this object.
/// Thread rule: used by one thread at a time, together with the packet.
class TARN_VIDEOIO_API AudioPacketInfo {
public:
    explicit AudioPacketInfo(const InputPacket& packet) noexcept;
    explicit AudioPacketInfo(const OutputPacket& packet) noexcept;

    /// Samples per second of one channel.
    [[nodiscard]] int getSampleRate() const noexcept;
    [[nodiscard]] int getChannelCount() const noexcept;
    /// The lower 32 bits of FFmpeg's channel mask; 0 when the layout is unknown. (Metadata::layout
    /// names every layout.)
    [[nodiscard]] int getChannelLayout() const noexcept;

private:
    const AVCodecParameters* parameters;
};

} // namespace tio::ffmpeg
