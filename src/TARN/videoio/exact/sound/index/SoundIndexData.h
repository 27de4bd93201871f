#pragma once

#include "exact/index/IndexData.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/Packet.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// What the samples of a stretch of sound are.
struct SoundFormat {
    int rate = 0;       ///< samples a second of each channel
    int channels = 0;   ///< 0 when nothing came out
    uint64_t mask = 0;  ///< FFmpeg's of the speakers; 0 when the order of the channels is no mask
    std::string layout; ///< in FFmpeg's words, such as "stereo" or "5.1(side)"

    [[nodiscard]] static SoundFormat of(const AVFrame& frame);

    /// Whether the samples of a frame can stand in one sequence with these.
    [[nodiscard]] bool isThatOf(const AVFrame& frame) const noexcept;
};

/// How far before a packet decoding has to begin.
enum class RunIn : uint8_t {
    Guess,     ///< not known: checksums tell whether it was far enough
    None,      ///< packets do not depend on each other
    Overlap,   ///< on the one before
    Reservoir, ///< on the bytes of those before, and on the one before
};

/// What comes out of a packet that does not give just its kept samples.
struct PacketCut {
    /// A part of what the decoder gives, by the number of the sample in the packet.
    struct Part {
        uint32_t from;
        uint32_t end;
    };

    uint32_t raw = 0;        ///< samples that the decoder gives
    std::vector<Part> parts; ///< those that are neither priming nor padding
};

/// Samples whose times follow each other as the sample rate says.
struct TimeRun {
    int64_t firstSample = 0;
    Rational start; ///< in seconds
};

/// Where a stream changes what its samples are.
struct FormatChange {
    int64_t sample = 0; ///< the first one of the new kind
    SoundFormat format;
};

/// Everything that is known of the packets of a sound stream and of the samples that they give.
/// A packet gives what the decoder gives from when it is sent it until it is sent the next.
struct SoundIndexData {
    IndexData packets; ///< the columns by packet; no frames
    SoundFormat format;
    std::optional<FormatChange> change; ///< the first one
    RunIn runIn = RunIn::Guess;
    bool isSteady = false; ///< the container has no times: the samples follow each other

    std::vector<int64_t> ends;          ///< by packet: kept samples up to its end
    std::map<uint32_t, PacketCut> cuts; ///< of the packets that are not kept as a whole
    std::vector<uint32_t> checksums;    ///< by packet, of what it gives; empty when there are none
    std::vector<TimeRun> times;         ///< by first sample; never empty when there are samples
    std::vector<uint16_t> reservoirBytes; ///< by packet, with RunIn::Reservoir: what it can leave
    bool decoded = false;                 ///< the samples were counted by decoding

    [[nodiscard]] uint32_t packetCount() const noexcept { return packets.packetCount(); }
    [[nodiscard]] int64_t sampleCount() const noexcept { return ends.empty() ? 0 : ends.back(); }

    /// The first sample that a packet keeps, or would keep.
    [[nodiscard]] int64_t startOf(uint32_t packet) const noexcept {
        return packet == 0 ? 0 : ends[packet - 1];
    }

    /// How many samples the decoder gives for it.
    [[nodiscard]] uint32_t rawOf(uint32_t packet) const;

    /// The packet that a sample comes from; the sample has to be there.
    [[nodiscard]] uint32_t packetOf(int64_t sample) const noexcept;

    /// @name Times in seconds
    /// @{
    [[nodiscard]] Rational timeOf(int64_t sample) const;
    /// If the samples went on as in a run.
    [[nodiscard]] Rational timeInRun(const TimeRun& run, int64_t sample) const;
    /// At which the last sample has passed.
    [[nodiscard]] Rational endTime() const;
    /// The first sample with a time at or after `time`, or after it; sampleCount() when there is
    /// none.
    [[nodiscard]] int64_t firstAt(const Rational& time) const;
    [[nodiscard]] int64_t firstAfter(const Rational& time) const;
    /// @}

    /// Bytes in memory.
    [[nodiscard]] int64_t byteCount() const noexcept;

private:
    [[nodiscard]] int64_t endOf(size_t run) const noexcept;
};

} // namespace tio::ffmpeg::detail
