#pragma once

#include "exact/index/SourceIdentity.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/Packet.h>

#include <cstdint>
#include <map>
#include <vector>

namespace tio::ffmpeg::detail {

/// What was learned by starting to decode in mid-stream.
struct EntryNotes {
    /// Key packets from which decoding goes wrong, and the first frame that came out right.
    std::map<uint32_t, uint32_t> cleanFrom;

    /// Whether disposable packets need not be decoded.
    bool mayLeaveOut = false;
};

/// Rows and columns of a picture as it is stored.
struct PictureSize {
    int32_t height = 0;
    int32_t width = 0;

    [[nodiscard]] bool operator==(const PictureSize& other) const noexcept {
        return height == other.height && width == other.width;
    }
};

/// Everything that is known of a stream's packets and pictures: what a FrameIndex holds. Columns
/// instead of records, because look-ups touch one of them and files are read column by column.
///
/// Packets are numbered in the order of the file, frames in the order in which a decoder gives its
/// pictures when the stream is decoded from start to end.
struct IndexData {
    // Bits of a packet's flags.
    static constexpr uint8_t key = 1;
    static constexpr uint8_t discarded = 2;  ///< decoded, but outside the edit list: not shown
    static constexpr uint8_t hidden = 4;     ///< no picture comes out
    static constexpr uint8_t disposable = 8; ///< no other picture needs it

    static constexpr uint32_t noFrame = UINT32_MAX;

    // What the stream is.
    SourceIdentity source;
    int32_t stream = 0;
    int32_t codec = 0; ///< FFmpeg's number
    AVRational timeBase{0, 1};
    int64_t frameTicks = 0;          ///< the usual distance of two pictures; 0 when not known
    int64_t lastTicks = 0;           ///< for how long the last one is shown
    int64_t maxPtsDtsDifference = 0; ///< as InputStream has it
    bool singleThread = false;       ///< the stream is damaged: pictures repeat so only
    bool decoded = false;            ///< the pictures were counted by decoding
    EntryNotes notes;
    PictureSize firstSize; ///< of the first picture; 0 where only the container says it

    // By packet.
    std::vector<int64_t> pts;
    std::vector<int64_t> positions; ///< in the file; negative when not known
    std::vector<uint64_t> hashes;   ///< of the compressed bytes
    std::vector<uint8_t> flags;

    // By key packet, of which packet 0 counts as one: decoding starts nowhere else.
    std::vector<uint32_t> keys;
    std::vector<int64_t> keyDts;

    // By frame.
    std::vector<uint32_t> packets;   ///< from which the picture comes
    std::vector<int64_t> ownTimes;   ///< in ticks; empty where the packets' pts serve
    std::vector<uint32_t> checksums; ///< of the decoded pictures; empty when there are none

    // Made of the above by finish().
    std::vector<uint32_t> frameOf;  ///< by packet; noFrame when it gives none
    std::vector<int64_t> shownFrom; ///< by frame; only where times go back

    /// Works out what follows from the rest.
    void finish();

    /// Whether this can be the index of a stream, as far as its parameters show.
    [[nodiscard]] bool isOf(const AVStream& candidate) const noexcept;

    [[nodiscard]] uint32_t packetCount() const noexcept {
        return static_cast<uint32_t>(flags.size());
    }
    [[nodiscard]] int64_t frameCount() const noexcept {
        return static_cast<int64_t>(packets.size());
    }
    [[nodiscard]] bool hasFlag(uint32_t packet, uint8_t flag) const noexcept {
        return (flags[packet] & flag) != 0;
    }

    /// Time in ticks at which a frame is shown.
    [[nodiscard]] int64_t timeOf(int64_t frame) const noexcept;
    /// How many ticks it is shown for.
    [[nodiscard]] int64_t durationOf(int64_t frame) const noexcept;
    /// The last frame with a time at or before `ticks`; -1 before the first.
    [[nodiscard]] int64_t frameAt(int64_t ticks) const noexcept;
    /// The first frame after frame `last` that is a picture of a packet; -1 when there is none.
    [[nodiscard]] int64_t frameAfter(int64_t last, uint32_t packet) const noexcept;

    /// The last packet from which decoding leads to `frame`, and before packet `limit`; packet 0
    /// when there is no other.
    [[nodiscard]] uint32_t entryFor(int64_t frame, uint32_t limit,
                                    const EntryNotes& learned) const noexcept;

    /// Bytes in memory.
    [[nodiscard]] int64_t byteCount() const noexcept;
    /// Decoding time of a key packet; AV_NOPTS_VALUE for any other.
    [[nodiscard]] int64_t dtsOfKey(uint32_t packet) const noexcept;
};

} // namespace tio::ffmpeg::detail
