#pragma once

#include "exact/index/IndexData.h"
#include "exact/run/PacketCursor.h"
#include "exact/run/PacketSource.h"
#include "exact/sound/SoundDecoder.h"

#include <TARN/videoio/Source.h>

#include <cstdint>
#include <memory>
#include <string>

namespace tio::ffmpeg::detail {

/// Decodes a sound stream frame by frame from a packet of one's choice on, with a new decoder for
/// each start.
class SoundRun {
public:
    /// What was done so far.
    struct Work {
        int64_t openings = 0; ///< of the source
        int64_t seeks = 0;    ///< in the source
        int64_t packets = 0;  ///< given to a decoder
    };

    /// Stands before packet 0. The index must outlive the run.
    /// @throws tio::ffmpeg::Exception when there is no decoder, and what opening throws
    SoundRun(const Source& source, const IndexData& index, int threads);

    /// Goes on from packet `number`.
    /// @returns false when the packet cannot be found again
    [[nodiscard]] bool enterAt(uint32_t number);

    /// Goes on from the start, with the source opened again.
    void startOver();

    /// Goes to the next frame; false when no more come, because the stream is at its end or cannot
    /// be followed.
    /// @throws tio::ffmpeg::Exception when the source was cancelled, or took too long
    [[nodiscard]] bool next();

    [[nodiscard]] AVFrame& frame() noexcept { return decoder->frame(); }

    /// The packet that the frame comes from.
    [[nodiscard]] uint32_t packetNumber() const noexcept { return decoder->packetNumber(); }

    /// The packet that is read next.
    [[nodiscard]] uint32_t nextPacket() const noexcept { return cursor.nextNumber(); }

    /// Whether the packets that came were others than those of the index.
    [[nodiscard]] bool isLost() const noexcept { return lost; }

    /// As the source has it now.
    [[nodiscard]] const AVStream& stream() const { return packets.stream(); }

    [[nodiscard]] Work work() const;

private:
    void requireDecoder(const std::string& name) const;
    void makeDecoder();
    [[nodiscard]] bool feed();

    PacketSource packets;
    PacketCursor cursor;
    CodecParametersHandle parameters; // as the source had them at first
    AVRational timeBase;
    int threads;
    std::unique_ptr<SoundDecoder> decoder;
    bool ended = false;
    bool lost = false;
    int64_t packetsSent = 0;
};

} // namespace tio::ffmpeg::detail
