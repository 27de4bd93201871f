#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/PacketDecoder.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tio::ffmpeg {

/// Joins one stream of an input to its packet decoder: one decoded frame per call, and seeking by
/// frame number. What it yields is up to the subclass. A FrameReader numbers frames by what comes
/// out of the decoder instead, checks what it delivers, and has none of the corners named here.
///
/// The frame index is a list of the times of the stream's packets. The first call that needs it
/// makes it, by reading the whole input once and, where reading had begun, once more up to the
/// place where it stood; it then goes on there, also where the input refuses (AVI and FLV do). A
/// live source or a pipe cannot be read twice, so do not ask it for frame numbers: frames that
/// follow may be lost then.
///
/// Where the stream has no decoder in FFmpeg, or its pictures cannot be turned, this is thrown
/// once; then the stream is at its end. A stream decoder keeps its context alive.
/// Thread rule: used by one thread at a time, together with its context.
class TARN_VIDEOIO_API StreamDecoder {
public:
    StreamDecoder(const StreamDecoder&) = delete;
    StreamDecoder& operator=(const StreamDecoder&) = delete;
    virtual ~StreamDecoder();

    /// Goes to frame number `frame`, so that it is the next one read. Frames between the landing
    /// place and the wanted one are decoded and counted, but not converted; in a damaged stream,
    /// where fewer come out than the index has, the count is off (FrameReader's is not). Makes the
    /// index when there is none.
    /// @throws tio::Exception when there is no such frame, or the stream has none at all. Nothing
    ///         has changed then: reading goes on where it stood.
    /// @throws tio::ffmpeg::Exception when the input cannot be sought in, where reading goes on as
    ///         well, or decoding fails
    void seek(int64_t frame);

    /// Goes to the nearest place at or before frame number `frame` without decoding.
    /// @returns the number of the frame that is read next, or the frame count where that is not
    ///          known
    /// @throws as seek()
    int64_t seekToOrBefore(int64_t frame);

    /// Number of frames. Makes the index when there is none.
    /// @throws as InputStream::getFrameCount(), and tio::Exception when the place where reading
    ///         stood is not found again; seek() leads on
    int64_t getFrameCount() const;

    /// Seconds per tick of the stream's timestamps.
    [[nodiscard]] Rational getUnitTime() const noexcept { return inputStream.getUnitTime(); }

    /// Takes the frame index from a file; see InputStream::loadSeekingIndex(). In mid-reading
    /// reading goes on where it stood, and the input is not touched: only a file without times has
    /// it read, as getFrameCount() does.
    /// @throws as InputStream::loadSeekingIndex(), and as getFrameCount()
    void loadSeekingIndex(std::string path);

    /// Writes the frame index to a file; see InputStream::storeSeekingIndex(). Makes the index when
    /// there is none.
    /// @throws as InputStream::storeSeekingIndex(), and as getFrameCount()
    void storeSeekingIndex(std::string path) const;

protected:
    /// @throws tio::Exception for a null context
    StreamDecoder(std::shared_ptr<InputFormatContext> context, int streamIndex);

    /// The context itself.
    /// @throws tio::Exception for a null pointer
    [[nodiscard]] static InputFormatContext&
    required(const std::shared_ptr<InputFormatContext>& context);

    /// Asks the packet decoder for a frame and makes it the current one.
    /// @returns whether there was one
    virtual bool frameReady() = 0;
    virtual PacketDecoder& packetDecoder() = 0;

    /// Offers the stream's first packet, once, so that the codec is open.
    void primeOnce() const;

    /// Reads packets until the decoder yields a frame, and makes it the current one.
    /// @returns false at the end of the stream
    bool decodeNextFrame() { return pumpFrame(FrameUse::Keep); }

private:
    enum class FrameUse { Keep, Skip };

    bool pumpFrame(FrameUse use);
    bool takeFrame(FrameUse use);
    bool feedDecoder();
    void makeIndex() const;
    template <typename Action>
    void orBackToPlace(Action action) const;
    void returnToPlace() const;
    void rewind() const;
    [[nodiscard]] bool readPastPlace() const;
    std::shared_ptr<InputPacket> readPacket() const;

    /// What a packet is known by when it is read once more; the times are ticks of the stream's.
    struct Mark {
        int64_t pts;
        int64_t dts;
        int64_t position; // in the input, in bytes
        int size;

        bool operator==(const Mark& other) const {
            return pts == other.pts && dts == other.dts && position == other.position &&
                   size == other.size;
        }
    };
    [[nodiscard]] static Mark markOf(const InputPacket& packet);

    std::shared_ptr<InputFormatContext> input;

    // Queries prime on first need and make the index, so what that changes is mutable.
    mutable InputStream inputStream;
    mutable bool started = false;
    mutable std::shared_ptr<InputPacket> pendingPacket; // read, but not yet accepted by the decoder

    // The place where reading stands: after the packet that was read last or, where none was since
    // the last seek, where that seek led.
    mutable std::optional<Mark> lastRead;
    std::optional<int64_t> soughtFrame;
};

} // namespace tio::ffmpeg
