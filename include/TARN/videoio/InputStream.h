#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Packet.h>
#include <TARN/videoio/Stream.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct AVPacket;

namespace tio::ffmpeg {

namespace detail {
class SeekingIndex;
} // namespace detail

/// One stream of an input, read packet by packet, with frames numbered in presentation order.
///
/// Frame n is the n-th smallest pts among the stream's usable packets. The list of them, the frame
/// index, is made by one pass over the whole stream on the first call that needs it, or loaded from
/// a file that an earlier run stored. Plain reading never pays for it.
/// A frame here is a time; FrameReader numbers the pictures that come out of the decoder.
/// Thread rule: used by one thread at a time, together with its context.
class TARN_VIDEOIO_API InputStream : public Stream {
public:
    /// Reads nothing yet. `streamIndex` must name a stream of the context: it is not checked.
    /// @throws tio::Exception for a context that is null
    InputStream(std::shared_ptr<InputFormatContext> context, int streamIndex);
    ~InputStream() override;

    /// The stream's next packet in file order; empty at the end.
    std::shared_ptr<InputPacket> getNextPacket();

    /// Seconds per tick of this stream's timestamps. Needs no index.
    [[nodiscard]] Rational getUnitTime() const noexcept;

    /// @name Frame numbers
    /// All of these make the index when there is none.
    /// @throws tio::Exception "Ffmpeg stream has no usable frames."
    /// @throws tio::ffmpeg::Exception "… Seeking" when the input cannot be rewound
    /// @{

    /// Number of entries of the index.
    int64_t getFrameCount() const;

    /// Presentation time of every frame, by frame number: in seconds, not in milliseconds as the
    /// name suggests. (FrameReader::frameTime() is named for what it gives.)
    std::vector<Rational> getFrameMsMap() const;

    /// Goes to the nearest place from which `frame` can be decoded.
    /// @returns the number of the frame that getNextPacket() delivers next; the frame count when
    ///          that packet is not in the index; 0 when it lies before the first frame or the input
    ///          is at its end
    /// @throws tio::Exception when there is no such frame
    int64_t seekToOrBefore(int64_t frame);

    /// @}

    /// Looks at the next packets, up to 100 of them, from wherever the stream stands: whether the
    /// first is a key frame and none is presented before it. The packets looked at count as read,
    /// and their times stay in the index as they are, so ask this of a stream made for it alone.
    /// (FrameReader::isKeyFrame() changes nothing.)
    /// @throws tio::Exception "Ffmpeg stream has no usable frames."
    bool startsWithKeyFrame();

    /// @name The index file
    /// Signed 64-bit integers in the machine's byte order: the largest distance from decoding to
    /// presentation, then the pts of every frame, strictly increasing.
    /// @{

    /// Writes the index, making it first where there is none.
    /// @throws tio::Exception naming the path and the step that failed; a part of the file may
    ///         have been written
    void storeSeekingIndex(std::string path) const;

    /// Takes the index from a file instead of reading the stream, then goes to frame 0.
    /// @throws tio::Exception naming the path and the check that failed, lack of memory included.
    ///         What was read up to then stays in place: see docs/behaviour.md before going on with
    ///         the same stream. Where going to frame 0 fails, the index is loaded, and the
    ///         exception is that of the seek or, for a file without times, of reading the stream.
    void loadSeekingIndex(std::string path);

    /// @}

private:
    friend class StreamDecoder; // keeps the place where it reads, in what moves the stream

    enum class Scan { Whole, StartOnly };
    struct StartProbe;

    [[nodiscard]] std::shared_ptr<InputFormatContext> context() const;
    bool readPacket() const;
    bool buildIndex(Scan scan) const;
    void buildIndexWhenMissing() const;
    void recordPacket(bool ptsSeekable) const;
    void finishIndex() const;
    int64_t seekToFrame(int64_t frame) const;
    int64_t seekToTimestamp(int64_t timestamp) const;
    void checkFrameNumber(int64_t frame) const;
    [[nodiscard]] bool hasIndex() const;
    void readIndexFile(const std::string& path); // moves nothing

    // Queries make the index on first need, so what it consists of is mutable.
    mutable std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet; // pending when its size is not 0
    std::unique_ptr<detail::SeekingIndex> index;
};

} // namespace tio::ffmpeg
