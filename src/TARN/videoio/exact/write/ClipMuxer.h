#pragma once

#include "exact/write/ClipContainer.h"
#include "exact/write/MatroskaDelay.h"
#include "exact/write/SinkChannel.h"
#include "exact/write/fractions.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/ClipWriterOptions.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// A file of a container that packets are written to.
class ClipMuxer {
public:
    /// @param clip  the name that failures tell
    ClipMuxer(const ClipContainer& container, std::string clip);
    ~ClipMuxer();
    ClipMuxer(const ClipMuxer&) = delete;
    ClipMuxer& operator=(const ClipMuxer&) = delete;

    /// Adds a stream of an open encoder's.
    /// @param ticks  of its packets' times, a second
    /// @returns its number
    int addPictures(const AVCodecContext& encoder, const ClipWriterOptions& options, int64_t ticks);
    int addSound(const AVCodecContext& encoder, const ClipWriterOptions& options);

    /// Adds a stream that is copied from another file.
    /// @param ticks  of its packets' times
    /// @param runIn  samples of sound that a player takes off at the beginning
    /// @returns its number
    int addCopy(const AVStream& original, AVRational ticks, int runIn, bool keepTurn);

    /// Opens the file and writes what comes before the packets.
    /// @param path        of the file; one that is there is overwritten
    /// @param movieScale  ticks a second in which MP4 says when a track begins
    void begin(const std::string& path, const ClipWriterOptions& options, int64_t movieScale);

    /// The same into a sink of the caller's, in fragments. Packets come in the order of their
    /// decoding then.
    void begin(SinkChannel& sink, const ClipWriterOptions& options, int64_t movieScale);

    /// Writes a packet whose times are ticks of its stream. It is blank after that.
    void write(AVPacket& packet, int stream);

    /// Ends a fragment and writes it out.
    void endFragment();

    /// Completes and closes the file.
    void end();

private:
    struct Track {
        AVRational ticks;
        MatroskaDelay delay;
    };

    AVStream& addStream(AVRational timeBase);
    AVStream& addStream(const AVCodecContext& encoder, AVRational timeBase);
    [[nodiscard]] int64_t scaleOfPictures() const;
    void writeHeader(const ClipWriterOptions& options, int64_t movieScale);
    void describe(const ClipWriterOptions& options);
    void addChapters(const ClipWriterOptions& options);
    void require(int result, int place) const;
    void requireDisk(int place) const;

    const ClipContainer& kind;
    std::string name;
    AVFormatContext* context = nullptr;
    std::string file;               ///< that is written
    SinkChannel* channel = nullptr; ///< or this
    bool headIsOut = false;
    std::vector<Track> tracks;
};

} // namespace tio::ffmpeg::detail
