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

/// One output file, always MP4 whatever its name says. (A `ClipWriter` goes by the name.)
///
/// Held by std::shared_ptr and shared by the output streams and stream encoders that write into it.
/// Make all of them before the first packet of any is written: each announces one stream, and the
/// file is opened and its header written when the last announced stream gets its first packet.
/// The first packet of the reference stream (the first video stream, else the first audio stream,
/// else stream 0) becomes time zero; every packet of the file is shifted by as much.
/// Video counts in 1/90000 s, to which times are rounded, and sound in its samples. (A `ClipWriter`
/// keeps the times that it is given, or refuses them.)
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
    /// @param parameters are copied
    /// @param rotation quarter turns clockwise by which players turn the pictures, 0 to 3; 4 more
    ///        where they are to mirror them left to right after that
    /// @returns the stream's index
    /// @throws tio::ffmpeg::Exception when the file cannot be opened or the parameters are not for
    ///         MP4; the same again on every later call, without adding anything
    /// @throws tio::Exception when there are no parameters, or the header has been written
    int addStream(const AVCodecParameters* parameters, int rotation = 0);

    /// Whether the header has been written.
    [[nodiscard]] bool readyForPackets() const noexcept { return initializationState == nullptr; }

    /// Writes a packet whose stream index is set and whose times count in that stream's time base,
    /// or holds it until the time origin is known. A packet written at once is blank afterwards.
    /// Times are not looked at: an unknown one is shifted like any other, and of two packets that
    /// are 2^31 ticks or more apart FFmpeg moves the second close to the first. Output streams
    /// refuse such a pause.
    /// @throws tio::ffmpeg::Exception when FFmpeg refuses it or the disk is full
    /// @throws tio::Exception before the header and after finish()
    void writePacket(AVPacket& packet);

    /// Completes and closes the file, after every stream and stream encoder on it is gone.
    /// Does nothing the second time.
    /// @throws tio::ffmpeg::Exception when not everything could be written, or the header failed
    /// @throws tio::Exception when there is no file, because no stream was announced or one of them
    ///         never got a packet, and says which; or when packets still wait for the first one of
    ///         the reference stream
    void finish();

    /// Whether the container keeps codec parameters in its header. MP4 does.
    [[nodiscard]] bool formatHasGlobalHeaders() const noexcept;

    /// The path given to the constructor; as long as the context.
    [[nodiscard]] const std::string& getPath() const noexcept { return path; }

private:
    friend class OutputStream;

    struct InitializationState;
    struct PendingPacket;
    struct Answer;

    // For output streams
    uint32_t announce(Rational timeBase);
    void forgetAnnouncement(uint32_t number) noexcept;
    [[nodiscard]] bool hasFailed() const noexcept;
    void rethrowFailure() const;
    void writePacket(const OutputPacket& packet, int streamIndex);
    [[nodiscard]] bool tryToWrite(const OutputPacket& packet, int streamIndex) noexcept;
    void adopt(int streamIndex, const std::deque<OutputPacket>& packets);
    void letGo(size_t count) const noexcept;

    void openAndWriteHeader();
    void requireOpenFile() const;
    void requireAllStreams() const;
    Answer writeOrHold(AVPacket& packet);
    Answer writeCopy(const OutputPacket& packet, int streamIndex);
    Answer hold(const AVPacket& packet, Rational timeBase);
    Answer writePendingPackets();
    void rescale(PendingPacket& pending);
    Answer writePacketWithOffset(AVPacket& packet);
    [[nodiscard]] int getReferenceStreamIndex() const noexcept;

    std::list<PendingPacket> pendingPackets; // in order of arrival, until the time offset is known
    int32_t firstVideoStreamIndex = -1;
    int32_t firstAudioStreamIndex = -1;
    int64_t timeOffset; // ticks of the reference stream's time base
    std::shared_ptr<InitializationState> initializationState; // until the header is written
    std::string path;
    std::exception_ptr headerFailure;
    bool finished = false;
};

} // namespace tio::ffmpeg
