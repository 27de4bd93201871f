#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/FormatContext.h>
#include <TARN/videoio/Packet.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <list>
#include <memory>
#include <string>

struct AVCodecParameters;
struct AVPacket;

namespace tio::ffmpeg {

/// One output file, always MP4 whatever its name says.
///
/// Held by std::shared_ptr and shared by the output streams and stream encoders that write into it.
/// Make all of them before the first packet of any is written: each announces one stream, and the
/// file is opened and its header written when the last announced stream gets its first packet.
/// The first packet of the reference stream (the first video stream, else the first audio stream,
/// else stream 0) becomes time zero; every packet of the file is shifted alike.
/// The file is completed when the last holder lets the context go, or by finish().
/// Thread rule: one context and everything built on it is used by one thread at a time.
class TARN_VIDEOIO_API OutputFormatContext : public FormatContext {
public:
    /// Opens nothing yet.
    /// @throws tio::ffmpeg::Exception when FFmpeg has no MP4 muxer
    explicit OutputFormatContext(std::string path);

    /// Completes the file as far as that is possible and reports nothing. To learn whether it
    /// worked, call finish() first.
    ~OutputFormatContext() override;

    /// Announces one stream. Output streams do so when they are made.
    /// @throws tio::Exception when the header has been written
    void addExpectedStream();

    /// Adds a stream and, when it is the last announced one, opens the file and writes the header.
    /// Output streams do so with their first packet.
    /// @returns the stream's index
    /// @throws tio::ffmpeg::Exception when the file cannot be opened or the parameters are not for
    ///         MP4; the same again on every later call, without adding anything
    /// @param rotation quarter turns clockwise by which players turn the pictures, 0 to 3
    int addStream(const AVCodecParameters* parameters, int rotation = 0);

    /// Whether the header has been written.
    [[nodiscard]] bool readyForPackets() const { return initializationState == nullptr; }

    /// Whether nothing more can get into the file, because its header or a write to the disk
    /// failed. Whoever wrote then has had the exception.
    [[nodiscard]] bool hasFailed() const;

    /// Throws the failure of the header again, if it failed.
    void rethrowFailure() const;

    /// Writes a packet whose stream index is set and whose times count in that stream's time base,
    /// or holds it until the time origin is known. A packet written at once is blank afterwards.
    /// @throws tio::ffmpeg::Exception when FFmpeg refuses it or the disk is full
    void writePacket(AVPacket& packet);

    /// The same with a packet whose times count in a time base of its own; it stays as it is.
    void writePacket(const OutputPacket& packet, int streamIndex);

    /// Takes over the packets of a stream that goes before the header is written. They are written
    /// ahead of the first packet that comes after the header; if none ever does, they are let go.
    void adopt(int streamIndex, const std::deque<OutputPacket>& packets);

    /// Says in one line of the log that so many packets cannot get into the file; nothing for 0.
    void letGo(size_t count) const noexcept;

    /// Completes and closes the file, after every stream and stream encoder on it is gone.
    /// Does nothing when no header was written, or the second time.
    /// @throws tio::ffmpeg::Exception when not everything could be written
    void finish();

    /// Whether the container keeps codec parameters in its header. MP4 does.
    [[nodiscard]] bool formatHasGlobalHeaders() const;

    /// The path given to the constructor.
    [[nodiscard]] const std::string& getPath() const { return path; }

private:
    struct InitializationState;
    struct AdoptedPacket {
        int streamIndex;
        OutputPacket packet;
    };

    void openAndWriteHeader();
    void requireOpenFile() const;
    void writeAdoptedPackets();
    void writeRescaled(const OutputPacket& packet, int streamIndex);
    void writeOrHold(AVPacket& packet);
    void writeHeldPackets();
    void writePacketWithOffset(AVPacket& packet);
    [[nodiscard]] int getReferenceStreamIndex() const;

    std::list<AVPacket> pendingPackets;       // in order of arrival, until the time offset is known
    std::deque<AdoptedPacket> adoptedPackets; // of streams that went before the header came
    int32_t firstVideoStreamIndex = -1;
    int32_t firstAudioStreamIndex = -1;
    int64_t timeOffset; // ticks of the reference stream's time base
    std::shared_ptr<InitializationState> initializationState; // until the header is written
    std::string path;
    std::exception_ptr headerFailure;
    bool finished = false;
};

} // namespace tio::ffmpeg
