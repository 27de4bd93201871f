#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/PacketDecoder.h>

#include <cstdint>
#include <memory>
#include <string>

namespace tio::ffmpeg {

/// Joins one stream of an input to its packet decoder: one decoded frame per call, and seeking by
/// frame number. What it yields is up to the subclass.
/// Thread rule: used by one thread at a time, together with its context.
class TARN_VIDEOIO_API StreamDecoder {
public:
    StreamDecoder(const StreamDecoder&) = delete;
    StreamDecoder& operator=(const StreamDecoder&) = delete;
    virtual ~StreamDecoder();

    /// Goes to frame number `frame`, so that it is the next one read. Frames between the landing
    /// place and the wanted one are decoded and counted, but not converted.
    /// @throws tio::Exception when there is no such frame, or the stream has none at all
    /// @throws tio::ffmpeg::Exception when the input cannot be sought in, or decoding fails
    void seek(int64_t frame);

    /// Goes to the nearest place at or before frame number `frame` without decoding.
    /// @returns the number of the frame that is read next
    /// @throws as seek()
    int64_t seekToOrBefore(int64_t frame);

    /// Number of frames; reads the whole stream when there is no index yet.
    /// @throws as InputStream::getFrameCount()
    int64_t getFrameCount() const { return inputStream.getFrameCount(); }

    /// Seconds per tick of the stream's timestamps.
    [[nodiscard]] Rational getUnitTime() { return inputStream.getUnitTime(); }

    /// Takes the frame index from a file; see InputStream::loadSeekingIndex().
    void loadSeekingIndex(std::string path);

    /// Writes the frame index to a file; see InputStream::storeSeekingIndex().
    void storeSeekingIndex(std::string path) const;

protected:
    StreamDecoder(std::shared_ptr<InputFormatContext> context, int streamIndex);

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

    // Queries prime on first need, so what priming changes is mutable.
    mutable InputStream inputStream;
    mutable bool started = false;
    std::shared_ptr<InputPacket> pendingPacket; // read, but not yet accepted by the decoder
};

} // namespace tio::ffmpeg
