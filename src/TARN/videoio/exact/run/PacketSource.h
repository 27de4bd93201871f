#pragma once

#include "base/handles.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Source.h>

#include <cstdint>
#include <memory>
#include <string>

namespace tio::ffmpeg::detail {

/// The packets of one stream, read through an input of its own, so that neither disturbs the other
/// readers of the caller's. The other streams are not read at all.
class PacketSource {
public:
    /// Opens the source.
    /// @throws tio::Exception for a pipe, and where there is no such stream
    /// @throws tio::ffmpeg::Exception as opening an InputFormatContext
    PacketSource(const Source& source, int streamIndex);

    /// Opens the source of an input once more.
    PacketSource(const std::shared_ptr<InputFormatContext>& origin, int streamIndex);

    /// Goes to the start of the source, in a way that every container allows: by opening it again.
    /// Packets read before must not be used any more.
    void reopen();

    /// Goes to the next packet; false at the end, damage included that the demuxer does not pass.
    /// @throws tio::ffmpeg::Exception when bytes cannot be read, a time limit passes, reading is
    ///         cancelled, or memory runs out
    [[nodiscard]] bool read();

    /// The packet that read() went to.
    [[nodiscard]] AVPacket& packet() noexcept { return *current; }

    /// Goes to a place at or before a time in ticks, or to a byte of the file.
    /// @returns false when the container cannot
    /// @throws tio::ffmpeg::Exception when a time limit passes, or the reading is cancelled
    [[nodiscard]] bool seekToTime(int64_t ticks);
    [[nodiscard]] bool seekToByte(int64_t position);

    [[nodiscard]] const AVStream& stream() const { return *input->getStream(index); }
    [[nodiscard]] const AVFormatContext& format() const;

    /// Whether a seek back to the start leads to what opening again gives. Not where parameters
    /// have changed on the way, or something came that a demuxer gives but once for each opening.
    [[nodiscard]] bool comesBackAsOpened() const;

    /// Whether nothing was read, and nothing sought, since it was opened.
    [[nodiscard]] bool isAtStart() const noexcept { return stepsAtOpening == steps; }

    /// Grows with everything that moves the source: who finds it as it was left is still in place.
    [[nodiscard]] int64_t stepCount() const noexcept { return steps; }

    /// How messages name the source.
    [[nodiscard]] const std::string& name() const noexcept { return source.name(); }
    [[nodiscard]] int streamIndex() const noexcept { return index; }

    /// How often the source was opened, and how often it was sought in.
    [[nodiscard]] int64_t openingCount() const noexcept { return openings; }
    [[nodiscard]] int64_t seekCount() const noexcept { return seeks; }

private:
    [[nodiscard]] bool seek(int64_t target, int flags);

    Source source;
    std::unique_ptr<InputFormatContext> input;
    CodecParametersHandle opened; // the stream's parameters as opening gave them
    PacketHandle current;
    int index;
    bool gaveOnce = false; // something that it would not give again after a seek
    int64_t openings = 0;
    int64_t seeks = 0;
    int64_t steps = 0;
    int64_t stepsAtOpening = 0;
};

} // namespace tio::ffmpeg::detail
